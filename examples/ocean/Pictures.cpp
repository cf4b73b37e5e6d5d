// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Pictures.hpp"

#include "Report.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <sstream>

namespace Example {

namespace {

constexpr const char* Land = "#b9b4aa";
constexpr const char* Ink = "#30343b";
constexpr double MarginalShare = 0.99;  ///< of the cells that keep within the ends of a palette

std::string number(double value) {
  std::ostringstream text;
  text.precision(12);
  text << value;
  return text.str();
}

/// The name of a vertical axis, in one column for all panels and pictures.
std::string axisName(const std::string& name, double y) {
  return "set label " + Gnuplot::quoted(name) + " at screen 0.013," + number(y) +
         " center rotate font 'sans,12' textcolor rgb '" + Ink + "'";
}

std::string degrees(double value, char positive, char negative) {
  std::string text = number(std::abs(value)) + "°";
  if (value > 0 && value != 180) text += positive;
  if (value < 0) text += negative;
  return text;
}

/// Longitudes count on beyond 180 degrees in many sources.
std::string longitudeName(double longitude) { return degrees(std::remainder(longitude, 360.0), 'E', 'W'); }
std::string latitudeName(double latitude) { return degrees(latitude, 'N', 'S'); }

/// Marks at the multiples of a step.
template <class Name>
std::string tics(const std::string& axis, double low, double high, double step, const Name& name) {
  std::string line = "set " + axis + "tics (";
  bool isFirst = true;
  for (double at = std::ceil(low / step) * step; at <= high; at += step) {
    line += (isFirst ? "" : ", ") + Gnuplot::quoted(name(at)) + " " + number(at);
    isFirst = false;
  }
  return line + ")";
}

/// What all pictures begin with.
Gnuplot begin() {
  Gnuplot plot;
  plot << "set encoding utf8"
       << "set terminal pngcairo noenhanced size " + std::to_string(PictureWidth) + "," +
              std::to_string(PictureHeight) + " font 'sans,13' linewidth 1 background '#ffffff'"
       << std::string("set border 31 lc rgb '") + Ink + "'" << std::string("set tics textcolor rgb '") + Ink + "'"
       << "set tics out nomirror"
       << "unset key";
  return plot;
}

std::string titleAt(const std::string& text, double y = 0.955) {
  return "set label " + Gnuplot::quoted(text) + " at screen 0.075," + number(y) +
         " left font 'sans,17' textcolor rgb '" + Ink + "'";
}

std::string greyBackground() {
  return std::string("set object rectangle from graph 0,0 to graph 1,1 fc rgb '") + Land + "' fs solid noborder behind";
}

std::string imageLine(const ImageAxis& x, const ImageAxis& y) {
  return "plot '-' binary array=(" + std::to_string(x.cells.size()) + "," + std::to_string(y.cells.size()) +
         ") format='%float64' origin=(" + number(x.low + x.step / 2) + "," + number(y.low + y.step / 2) +
         ") dx=" + number(x.step) + " dy=" + number(y.step) + " with image";
}

/// Coasts as a part of a plot; their numbers follow those of the parts before.
std::string coastPart(const std::vector<CoastLine>& coasts) {
  if (coasts.empty()) return "";
  return ", '-' binary record=" + std::to_string(coasts.size()) +
         " format='%float64' using 1:2:3:4 with vectors nohead lw 1 lc rgb '#5f5a52'";
}

void addCoasts(Gnuplot& plot, const std::vector<CoastLine>& coasts) {
  std::vector<double> numbers;
  for (const CoastLine& coast : coasts) numbers.insert(numbers.end(), {coast.x, coast.y, coast.dx, coast.dy});
  plot.add(numbers);
}

/// The value below which a share of the absolute values lies, rounded up; at least 1.
double marginalValue(const std::vector<double>& values) {
  std::vector<double> sizes;
  for (const double value : values)
    if (std::isfinite(value)) sizes.push_back(std::abs(value));
  if (sizes.empty()) return 1;
  const auto place = static_cast<std::ptrdiff_t>(MarginalShare * static_cast<double>(sizes.size() - 1));
  std::nth_element(sizes.begin(), sizes.begin() + place, sizes.end());
  return std::max(1.0, std::ceil(sizes[static_cast<std::size_t>(place)]));
}

std::pair<double, double> extremes(const std::vector<double>& values) {
  std::pair<double, double> ends{INFINITY, -INFINITY};
  for (const double value : values) {
    if (!std::isfinite(value)) continue;
    ends.first = std::min(ends.first, value);
    ends.second = std::max(ends.second, value);
  }
  return ends;
}

}  // namespace

ImageAxis makeImageAxis(const Axis& axis, std::size_t nPlaces) {
  const std::vector<double>& at = axis.values;
  ImageAxis image;
  if (axis.isEvenlySpaced()) {
    const double step = axis.getStep();
    image.step = step == 0 ? 1 : std::abs(step);
    image.low = std::min(at.front(), at.back()) - image.step / 2;
    for (std::size_t i = 0; i < at.size(); ++i) image.cells.push_back(step < 0 ? at.size() - 1 - i : i);
    return image;
  }
  const auto [low, high] = std::minmax_element(at.begin(), at.end());
  image.low = *low;
  image.step = (*high - *low) / static_cast<double>(nPlaces);
  for (std::size_t place = 0; place < nPlaces; ++place) {
    const double here = image.low + image.step * (static_cast<double>(place) + 0.5);
    const auto nearest = std::min_element(
        at.begin(), at.end(), [here](double a, double b) { return std::abs(a - here) < std::abs(b - here); });
    image.cells.push_back(static_cast<std::size_t>(nearest - at.begin()));
  }
  return image;
}

std::vector<CoastLine> findCoasts(const std::vector<double>& image, const ImageAxis& x, const ImageAxis& y) {
  const std::size_t nX = x.cells.size();
  const std::size_t nY = y.cells.size();
  const auto isWater = [&](std::size_t i, std::size_t j) { return std::isfinite(image[j * nX + i]); };
  const auto atX = [&](std::size_t i) { return x.low + x.step * static_cast<double>(i); };
  const auto atY = [&](std::size_t j) { return y.low + y.step * static_cast<double>(j); };
  std::vector<CoastLine> coasts;
  // Along each line between cells, as long as water and land face each other.
  for (std::size_t j = 1; j < nY; ++j)
    for (std::size_t i = 0; i < nX; ++i) {
      const std::size_t first = i;
      while (i < nX && isWater(i, j) != isWater(i, j - 1)) ++i;
      if (i > first) coasts.push_back({atX(first), atY(j), atX(i) - atX(first), 0});
    }
  for (std::size_t i = 1; i < nX; ++i)
    for (std::size_t j = 0; j < nY; ++j) {
      const std::size_t first = j;
      while (j < nY && isWater(i, j) != isWater(i - 1, j)) ++j;
      if (j > first) coasts.push_back({atX(i), atY(first), 0, atY(j) - atY(first)});
    }
  return coasts;
}

Gnuplot makeAnomalyPicture(const Slab& anomaly, const OceanDescription& ocean, const std::string& title) {
  const ImageAxis x = makeImageAxis(ocean.longitude, 720);
  const ImageAxis y = makeImageAxis(ocean.latitude, 360);
  std::vector<double> image;
  for (const std::size_t j : y.cells)
    for (const std::size_t i : x.cells) image.push_back(anomaly(i, j));
  const std::vector<CoastLine> coasts = findCoasts(image, x, y);
  const double end = marginalValue(image);
  const auto [lowest, highest] = extremes(image);
  const std::string endName = number(end);

  Gnuplot plot = begin();
  plot << titleAt(title) << greyBackground()
       << "set palette defined (0 '#08306b', 1 '#2b74b8', 2 '#8cbfe0', 3 '#f7f7f7', 4 '#f6a582', 5 '#cb3b3b', 6 "
          "'#67001f')"
       << "set cbrange [" + number(-end) + ":" + endName + "]"
       << "set xrange [" + number(x.low) + ":" + number(x.high()) + "]"
       << "set yrange [" + number(y.low) + ":" + number(y.high()) + "]" << tics("x", x.low, x.high(), 60, longitudeName)
       << tics("y", y.low, y.high(), 30, latitudeName) << "set lmargin at screen 0.075"
       << "set rmargin at screen 0.885"
       << "set bmargin at screen 0.095"
       << "set tmargin at screen 0.915"
       << "set colorbox user origin screen 0.91,0.14 size screen 0.02,0.72"
       << "set cbtics nomirror (" + Gnuplot::quoted("≤ −" + endName) + " " + number(-end) + ", '−" + number(end / 2) +
              "' " + number(-end / 2) + ", '0' 0, '" + number(end / 2) + "' " + number(end / 2) + ", " +
              Gnuplot::quoted("≥ " + endName) + " " + endName + ")"
       << "set label 'K' at screen 0.92,0.885 center"
       << "set label " + Gnuplot::quoted("from " + fixed(lowest, 2) + " to " + fixed(highest, 2) + " K") +
              " at screen 0.885,0.955 right textcolor rgb '#6a6f78'"
       << imageLine(x, y) + coastPart(coasts);
  plot.add(image);
  addCoasts(plot, coasts);
  return plot;
}

Gnuplot makeSectionPicture(const std::vector<double>& section, const OceanDescription& ocean,
                           const std::string& title) {
  const std::size_t nLatitudes = ocean.latitude.values.size();
  const ImageAxis x = makeImageAxis(ocean.latitude, 720);
  const ImageAxis y = makeImageAxis(ocean.depth, 400);
  std::vector<double> image;
  for (const std::size_t k : y.cells)
    for (const std::size_t j : x.cells) image.push_back(section[k * nLatitudes + j]);
  const std::vector<CoastLine> coasts = findCoasts(image, x, y);
  const auto [lowest, highest] = extremes(section);
  const double low = std::isfinite(lowest) ? std::floor(lowest / 5) * 5 : 0;
  const double high = std::isfinite(highest) ? std::ceil(highest / 5) * 5 : 1;
  const std::string unit = ocean.unit.empty() || ocean.unit == "degC" ? "°C" : ocean.unit;

  Gnuplot plot = begin();
  // Isotherms over the levels as they are, spaced unevenly.
  std::string levels;
  for (double at = low; at < highest; at += 5)
    if (at > lowest) levels += (levels.empty() ? "" : ",") + number(at);
  if (!levels.empty()) {
    plot << "$levels << EndOfLevels";
    for (std::size_t k = 0; k < ocean.depth.values.size(); ++k) {
      for (std::size_t j = 0; j < nLatitudes; ++j)
        plot << number(ocean.latitude.values[j]) + " " + number(ocean.depth.values[k]) + " " +
                    (std::isfinite(section[k * nLatitudes + j]) ? number(section[k * nLatitudes + j]) : "NaN");
      plot << "";
    }
    plot << "EndOfLevels"
         << "set contour base"
         << "set cntrparam levels discrete " + levels << "unset surface"
         << "set table $isotherms"
         << "splot $levels using 1:2:3"
         << "unset table"
         << "unset contour"
         << "set surface";
  }
  plot << titleAt(title) << greyBackground()
       << "set palette defined (0 '#14224f', 1 '#1f5fa8', 2 '#2f9fc4', 3 '#8fd6b8', 4 '#f4e38a', 5 '#f0932b', 6 "
          "'#c7352b', 7 '#6d1a36')"
       << "set cbrange [" + number(low) + ":" + number(high) + "]"
       << "set cbtics 5"
       << "set xrange [" + number(x.low) + ":" + number(x.high()) + "]"
       << "set yrange [" + number(y.high()) + ":" + number(y.low) + "]" << tics("x", x.low, x.high(), 30, latitudeName)
       << axisName("depth / " + ocean.depth.unit, 0.505) << "set lmargin at screen 0.085"
       << "set rmargin at screen 0.87"
       << "set bmargin at screen 0.095"
       << "set tmargin at screen 0.915"
       << "set colorbox user origin screen 0.915,0.14 size screen 0.02,0.72"
       << "set label " + Gnuplot::quoted(unit) + " at screen 0.925,0.885 center"
       << "set label 'levels' at graph 1.008,-0.022 left font 'sans,10' textcolor rgb '#6a6f78'";
  std::string marks = "set y2tics (";
  for (std::size_t k = 0; k < ocean.depth.values.size(); ++k)
    marks += std::string(k > 0 ? ", " : "") + "'' " + number(ocean.depth.values[k]);
  plot << marks + ") textcolor rgb '" + Ink + "'"
       << "set y2range [" + number(y.high()) + ":" + number(y.low) + "]"
       << imageLine(x, y) + (levels.empty() ? "" : ", $isotherms using 1:2 with lines lw 1.2 lc rgb '#60202020'") +
              coastPart(coasts);
  plot.add(image);
  addCoasts(plot, coasts);
  return plot;
}

namespace {

constexpr std::size_t nSpans = 1400;                                                  ///< more than there are pixels
constexpr std::size_t nLeastSpans = 4;                                                ///< of a production, to be seen
constexpr const char* StateColours[] = {"#ffffff", "#f2711c", "#3f83c9", "#dde1e6"};  ///< in the order of the states
constexpr const char* GroupColours[] = {"#3f83c9", "#8d7cc3", "#e2b007", "#6bb38a"};

std::string screenMargins(double bottom, double top) {
  return "set lmargin at screen 0.085; set rmargin at screen 0.975; set bmargin at screen " + number(bottom) +
         "; set tmargin at screen " + number(top);
}

/// Labels of colours, one behind the other.
class Legend {
 public:
  Legend(Gnuplot& plot, double x, double y) : plot_(plot), x_(x), y_(y) {}
  void add(const std::string& colour, const std::string& name) {
    plot_ << "set object rectangle from screen " + number(x_) + "," + number(y_ - 0.011) + " to screen " +
                 number(x_ + 0.015) + "," + number(y_ + 0.011) + " fc rgb '" + colour +
                 "' fs solid border lc rgb '#9aa0a8' front"
          << "set label " + Gnuplot::quoted(name) + " at screen " + number(x_ + 0.02) + "," + number(y_) +
                 " left front font 'sans,11' textcolor rgb '" + Ink + "'";
    x_ += 0.042 + 0.0061 * static_cast<double>(name.size());
  }

 private:
  Gnuplot& plot_;
  double x_;
  const double y_;
};

void addRows(Gnuplot& plot, const std::vector<FragmentLog::Entry>& entries, std::size_t group, std::size_t nRows,
             double begin, double end) {
  const std::vector<FragmentLog::State> states = paintRows(entries, group, nRows, begin, end, nSpans, nLeastSpans);
  std::vector<std::uint8_t> pixels;
  for (const FragmentLog::State state : states) pixels.push_back(static_cast<std::uint8_t>(state));
  const double step = 1e3 * (end - begin) / static_cast<double>(nSpans);
  plot << "plot '-' binary array=(" + std::to_string(nSpans) + "," + std::to_string(nRows) +
              ") format='%uint8' origin=(" + number(step / 2) + ",0) dx=" + number(step) + " dy=1 with image";
  plot.add(pixels);
}

}  // namespace

Gnuplot makeFragmentPicture(const FragmentPicture& picture, const std::string& title) {
  const std::vector<FragmentLog::Entry> entries = picture.log.getEntries();
  const double begin = picture.stretches.front().begin;
  const double end = picture.stretches.back().end;
  const double length = 1e3 * (end - begin);  // milliseconds
  constexpr double Mebi = 1024.0 * 1024.0;

  Gnuplot plot = Example::begin();
  std::string colours;
  for (std::size_t i = 0; i < std::size(StateColours); ++i)
    colours += std::string(i > 0 ? ", " : "") + std::to_string(i) + " '" + StateColours[i] + "'";
  plot << "set multiplot"
       << "set palette maxcolors 4 defined (" + colours + ")"
       << "set cbrange [-0.5:3.5]"
       << "unset colorbox"
       << "set xrange [0:" + number(length) + "]"
       << "set format x ''";

  // The large panel.
  plot << titleAt(title, 0.965);
  Legend states(plot, 0.085, 0.915);
  states.add(StateColours[0], "not asked for yet");
  states.add(StateColours[1], "computing");
  states.add(StateColours[2], "held");
  states.add(StateColours[3], "forgotten");
  for (const Stretch& stretch : picture.stretches)
    plot << "set label " + Gnuplot::quoted(stretch.name) + " at first " +
                number(1e3 * ((stretch.begin + stretch.end) / 2 - begin)) +
                ", graph 1.038 center font 'sans,12' textcolor rgb '" + Ink + "'";
  const std::size_t nUpper = picture.log.nRows(picture.upperGroup);
  std::string names = "set ytics scale 0 font 'sans,9' (";
  for (std::size_t i = 0; i < picture.rowNames.size(); ++i) {
    const std::size_t next = i + 1 < picture.rowNames.size() ? picture.rowNames[i + 1].first : nUpper;
    const auto first = static_cast<double>(picture.rowNames[i].first);
    names += (i > 0 ? ", " : "") + Gnuplot::quoted(picture.rowNames[i].second) + " " +
             number((first + static_cast<double>(next) - 1) / 2);
    if (i > 0)
      plot << "set arrow from graph 0, first " + number(first - 0.5) + " to graph 1, first " + number(first - 0.5) +
                  " nohead front lw 0.5 lc rgb '#c9cdd3'";
  }
  const auto separate = [&](double top) {
    for (std::size_t i = 1; i < picture.stretches.size(); ++i) {
      const std::string at = number(1e3 * ((picture.stretches[i - 1].end + picture.stretches[i].begin) / 2 - begin));
      plot << "set arrow from first " + at + ", graph 0 to first " + at + ", graph " + number(top) +
                  " nohead front lw 1.5 lc rgb '" + Ink + "'";
    }
  };
  separate(1);
  plot << names + ")"
       << "set xtics scale 0" << axisName(picture.upperName, 0.62)
       << "set yrange [" + number(static_cast<double>(nUpper) - 0.5) + ":-0.5]" << screenMargins(0.375, 0.865);
  addRows(plot, entries, picture.upperGroup, nUpper, begin, end);

  // The small one.
  const std::size_t nLower = picture.log.nRows(picture.lowerGroup);
  plot << "unset label; unset arrow; unset object";
  separate(1);
  plot << "unset ytics" << axisName(picture.lowerName, 0.3275)
       << "set yrange [" + number(static_cast<double>(nLower) - 0.5) + ":-0.5]" << screenMargins(0.295, 0.36);
  addRows(plot, entries, picture.lowerGroup, nLower, begin, end);

  // Bytes held, the groups one upon the other.
  const std::size_t nGroups = picture.log.nGroups();
  const std::vector<HeldBytes> levels = addUpBytes(entries, nGroups);
  std::vector<std::vector<double>> steps(nGroups);
  std::vector<double> held(nGroups, 0);
  const auto put = [&](double at) {
    double sum = 0;
    for (std::size_t group = 0; group < nGroups; ++group) {
      sum += held[group];
      steps[group].insert(steps[group].end(), {at, sum});
    }
  };
  put(0);
  double most = 0;
  for (const HeldBytes& level : levels) {
    if (level.seconds > end) break;
    const double at = std::clamp(1e3 * (level.seconds - begin), 0.0, length);
    put(at);
    double sum = 0;
    for (std::size_t group = 0; group < nGroups; ++group)
      sum += held[group] = static_cast<double>(level.groups[group]) / Mebi;
    most = std::max(most, sum);
    put(at);
  }
  put(length);
  const double limit = static_cast<double>(picture.limit) / Mebi;
  const double top = 1.28 * std::max(limit, most);
  plot << "unset arrow; unset label";
  separate(limit / top);
  Legend groups(plot, 0.095, 0.262);
  for (std::size_t group = 0; group < nGroups; ++group)
    groups.add(GroupColours[group % std::size(GroupColours)], picture.log.getName(group));
  plot << "set arrow from graph 0, first " + number(limit) + " to graph 1, first " + number(limit) +
              " nohead front lw 1.5 dt 2 lc rgb '#b3202a'"
       << "set label " + Gnuplot::quoted("limit " + bytes(picture.limit)) + " at graph 0.995, first " +
              number(limit + 0.07 * top) + " right front font 'sans,11' textcolor rgb '#b3202a'"
       << "set format x '%g'"
       << "set xtics auto scale 1 nomirror"
       << "set ytics auto scale 1 nomirror font 'sans,10'"
       << "set yrange [0:" + number(top) + "]"
       << std::string("set xlabel 'time / ms' offset 0,0.4 textcolor rgb '") + Ink + "'"
       << axisName("held / MiB", 0.185) << screenMargins(0.09, 0.28);
  std::string line = "plot ";
  for (std::size_t group = nGroups; group-- > 0;)
    line += "'-' binary record=" + std::to_string(steps[group].size() / 2) +
            " format='%float64' using 1:2 with filledcurves y1=0 fs solid noborder lc rgb '" +
            GroupColours[group % std::size(GroupColours)] + "'" + (group > 0 ? ", " : "");
  plot << line;
  for (std::size_t group = nGroups; group-- > 0;) plot.add(steps[group]);
  plot << "unset multiplot";
  return plot;
}

std::optional<std::pair<unsigned int, unsigned int>> readPictureSize(const std::filesystem::path& file) {
  constexpr std::array<unsigned char, 8> Signature{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  std::array<unsigned char, 24> head{};
  std::ifstream in(file, std::ios::binary);
  if (!in.read(reinterpret_cast<char*>(head.data()), head.size())) return std::nullopt;
  if (!std::equal(Signature.begin(), Signature.end(), head.begin())) return std::nullopt;
  const auto word = [&head](std::size_t at) {
    unsigned int value = 0;
    for (std::size_t i = 0; i < 4; ++i) value = value << 8 | head[at + i];
    return value;
  };
  return std::pair(word(16), word(20));
}

}  // namespace Example
