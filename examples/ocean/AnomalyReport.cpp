// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "AnomalyReport.hpp"

#include "Interrupt.hpp"
#include "Statistics.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>

namespace Example {

using Ostrel::Cache;
using Tresk::FieldPtr;

namespace {

constexpr unsigned long long PercentOfData = 20;
constexpr double Rounding = 1e-9;           ///< K; what sums of a year may leave
constexpr double SectionLongitude = 330.5;  ///< degrees east, through the Atlantic

/// What is known of the atlas of Debian's package ferret-datasets, computed from the bytes of the file.
struct KnownNumbers {
  static bool areOf(const OceanDescription& ocean) {
    return std::filesystem::path(ocean.origin).filename() == "ocean_atlas_subset.nc" && ocean.months.size() == 12 &&
           ocean.depth.values.size() == 19;
  }
  static constexpr const char* AugustSurface = "-5.15 to 12.17";
  static constexpr const char* YearSurface = "-10.28 to 12.17";
  static constexpr unsigned long long nEveryMonthAtSurface = 10516;
  static constexpr unsigned long long nEveryMonth = 186582;
};

std::string range(double low, double high) { return fixed(low, 2) + " to " + fixed(high, 2); }

std::vector<FieldPtr> asFields(const std::vector<OceanYear::MonthPtr>& months) {
  return std::vector<FieldPtr>(months.begin(), months.end());
}

/// The cell of an axis that is nearest to a coordinate.
std::size_t nearest(const Axis& axis, double coordinate) {
  const std::vector<double>& at = axis.values;
  return static_cast<std::size_t>(
      std::min_element(at.begin(), at.end(),
                       [=](double a, double b) { return std::abs(a - coordinate) < std::abs(b - coordinate); }) -
      at.begin());
}

}  // namespace

AnomalyReport::AnomalyReport(std::shared_ptr<const OceanSource> source, std::ostream& out, Checks& checks,
                             MakeProgress makeProgress, Ostrel::CacheListener also)
    : source_(std::move(source)),
      out_(out),
      checks_(checks),
      makeProgress_(std::move(makeProgress)),
      also_(std::move(also)),
      month_(std::min<std::size_t>(7, source_->nMonths() - 1)),
      ocean_(source_),
      year_(ocean_),
      limit_(getFullMemory(ocean_.getField()) / 100 * PercentOfData),
      levels_(source_->nDepths()) {
  monthGroup_ = log_.addGroup("months, as read", asFields(year_.getMonths()));
  log_.addGroup("sums", year_.getSums());
  meanGroup_ = log_.addGroup("means of the year", {year_.getMean()});
  log_.addGroup("anomalies", year_.getAnomalies());
}

void AnomalyReport::show(int chapter) {
  const std::size_t nArrays = source_->nMonths() * source_->nDepths();
  out_ << "\n"
       << chapter << ". The anomaly: each month less the mean of the year, under a limit of " << PercentOfData
       << " %\n\n"
       << "  mean = (month 1 + month 2 + ...) * 1/" << source_->nMonths()
       << ",   anomaly = month - mean:   fields, computed on demand\n\n"
       << "  Each month is needed twice, for the mean and for the difference, and the cache decides what stays\n"
       << "  between. Under the limit of " << bytes(limit_) << ", depth by depth, both uses lie close together. Month\n"
       << "  by month they lie far apart: the cache is told to keep the means, and most months are read again.\n\n";
  out_.flush();
  std::vector<Walk> walks;
  {
    const std::unique_ptr<Progress> progress = makeProgress_("computing anomalies", 3 * nArrays);
    walks.push_back(walk("no limit", false, *progress));
    Cache::MemCache()->setLimit(limit_);
    struct Unlimited {
      ~Unlimited() { Cache::MemCache()->setLimit(Cache::NoLimit); }
    } const unlimited;
    for (const bool isMonthByMonth : {false, true}) {
      const std::string order = isMonthByMonth ? "month by month" : "depth by depth";
      walks.push_back(walk("20 %, " + order, isMonthByMonth, *progress));
      const Walk& last = walks.back();
      stretches_.push_back({last.begin, last.end, order + ": " + std::to_string(last.nRead) + " slabs read"});
    }
  }

  Table table({"walk\n", "time\n", "slabs\nread", "arrays\ncomputed", "let go\n", "most\nheld"}, 1);
  for (const Walk& walk : walks)
    table.addRow({walk.name, duration(walk.end - walk.begin), std::to_string(walk.nRead),
                  std::to_string(walk.nProductions - walk.nRead), std::to_string(walk.nEvicted), bytes(walk.nPeak)});
  table.print(out_);
  out_ << "\n  What was made and let go under the limit:\n\n";
  printMadeAndForgotten();

  const Level& surface = levels_.front();
  out_ << "\n  At " << source_->getDescription().depth.values.front() << " " << source_->getDescription().depth.unit
       << " " << monthName() << " differs from the mean by " << range(surface.minimumInMonth, surface.maximumInMonth)
       << " K, all months by\n  " << range(surface.minimum, surface.maximum) << " K; " << grouped(surface.nEveryMonth)
       << " of " << grouped(source_->nLongitudes() * source_->nLatitudes()) << " cells have a value in every month.\n";
  checkWalks(walks);
  checkByLoop(month_);
  if (KnownNumbers::areOf(source_->getDescription())) checkKnownNumbers();
}

AnomalyReport::Walk AnomalyReport::walk(const std::string& name, bool isMonthByMonth, Progress& progress) {
  Cache& cache = *Cache::MemCache();
  cache.trim(Cache::NoLimit);
  const bool isLimited = cache.getLimit() != Cache::NoLimit;
  const auto peak = std::make_shared<unsigned long long>(0);
  cache.setListener([peak, also = also_, note = isLimited ? log_.makeListener() : Ostrel::CacheListener()](
                        const Ostrel::CacheEvent& event) {
    *peak = std::max(*peak, event.nHeldBytes);
    if (note) note(event);
    if (also) also(event);
  });
  // However the walk ends, the next one finds the cache as this one did.
  struct Restore {
    const AnomalyReport& report;
    ~Restore() {
      report.year_.stopKeeping();
      Cache::MemCache()->trim(Cache::NoLimit);  // the log hears of it
      Cache::MemCache()->setListener(report.also_);
    }
  };
  const std::size_t nMonths = source_->nMonths();
  const std::size_t nDepths = source_->nDepths();
  Walk walk;
  walk.name = name;
  walk.checksums.resize(nMonths * nDepths);
  const unsigned long long nReadBefore = ocean_.nSlabsRead();
  const Ostrel::CacheStatistics before = cache.getStatistics();
  walk.begin = log_.now();
  {
    const Restore restore{*this};
    for (std::size_t i = 0; i < nMonths * nDepths; ++i) {
      Interrupt::check();
      const std::size_t month = isMonthByMonth ? i / nDepths : i % nMonths;
      const std::size_t depth = isMonthByMonth ? i % nDepths : i / nMonths;
      const SlabPtr anomaly = year_.makeAnomaly(month, depth, isMonthByMonth);
      walk.checksums[depth * nMonths + month] = checksum(*anomaly);
      if (!isLimited) addToLevel(month, depth, *anomaly);
      progress.advance();
    }
    walk.end = log_.now();
    const Ostrel::CacheStatistics after = cache.getStatistics();
    walk.nRead = ocean_.nSlabsRead() - nReadBefore;
    walk.nProductions = after.nProductions - before.nProductions;
    walk.nEvicted = after.nEvicted - before.nEvicted;
    walk.nPeak = *peak;
  }
  return walk;
}

void AnomalyReport::addToLevel(std::size_t month, std::size_t depth, const Slab& anomaly) {
  Level& level = levels_[depth];
  const Statistics cells = summarise(anomaly, source_->getDescription().latitude.values);
  if (cells.nFinite() == 0) return;
  level.minimum = std::min(level.minimum, cells.getMinimum());
  level.maximum = std::max(level.maximum, cells.getMaximum());
  level.sumOfMeans += cells.getWeightedMean();
  level.nEveryMonth = cells.nFinite();
  if (month != month_) return;
  level.minimumInMonth = cells.getMinimum();
  level.maximumInMonth = cells.getMaximum();
}

void AnomalyReport::printMadeAndForgotten() const {
  struct Count {
    std::size_t nMade = 0;
    std::size_t nForgotten = 0;
  };
  std::vector<std::vector<Count>> counts(log_.nGroups(), std::vector<Count>(stretches_.size()));
  for (const FragmentLog::Entry& entry : log_.getEntries())
    for (std::size_t i = 0; i < stretches_.size(); ++i)
      if (entry.seconds >= stretches_[i].begin && entry.seconds <= stretches_[i].end)
        ++(entry.isMade ? counts[entry.group][i].nMade : counts[entry.group][i].nForgotten);
  Table table({"arrays of\n", "in all\n", "depth by depth\nmade", "\nlet go", "month by month\nmade", "\nlet go"}, 1);
  for (std::size_t group = 0; group < log_.nGroups(); ++group) {
    std::vector<std::string> row{log_.getName(group), std::to_string(log_.nRows(group))};
    for (const Count& count : counts[group]) {
      row.push_back(std::to_string(count.nMade));
      row.push_back(std::to_string(count.nForgotten));
    }
    table.addRow(row);
  }
  table.print(out_);
}

void AnomalyReport::checkWalks(const std::vector<Walk>& walks) {
  const std::size_t nMonths = source_->nMonths();
  const std::size_t nDepths = source_->nDepths();
  const unsigned long long slab = source_->nLongitudes() * source_->nLatitudes() * sizeof(double);
  bool isSame = true;
  bool isWithin = true;
  for (const Walk& walk : walks) {
    isSame = isSame && walk.checksums == walks.front().checksums;
    isWithin = isWithin && (&walk == &walks.front() || walk.nPeak <= limit_ + 3 * slab);
  }
  checks_.add(isSame, "anomalies are the same under a limit, bit for bit");
  checks_.add(isWithin, "under the limit three slabs at most are in flight");
  const std::string nAll = std::to_string(nMonths * nDepths);
  checks_.add("slabs read for all anomalies without a limit", nAll, std::to_string(walks[0].nRead));
  // All of one depth: months, sums, the mean and anomalies.
  if (limit_ >= (3 * nMonths + 2) * slab)
    checks_.add("slabs read under the limit, depth by depth", nAll, std::to_string(walks[1].nRead));
  // The means, and what one of them needs.
  if (limit_ >= (nDepths + 8) * slab)
    checks_.add(walks[2].nRead <= 2 * nMonths * nDepths, "month by month no slab is read more than twice");
  bool isAddedUp = true;
  const std::vector<HeldBytes> held = addUpBytes(log_.getEntries(), log_.nGroups());
  for (const HeldBytes& level : held) {
    unsigned long long sum = 0;
    for (const unsigned long long bytesOfGroup : level.groups) sum += bytesOfGroup;
    isAddedUp = isAddedUp && sum == level.inCache;
  }
  checks_.add(!held.empty() && isAddedUp, "at each event the events add up to the bytes held");
  double largest = 0;
  for (const Level& level : levels_) largest = std::max(largest, std::abs(level.sumOfMeans));
  checks_.add(largest < Rounding * static_cast<double>(nMonths), "the anomalies of a year add up to nothing");
}

void AnomalyReport::checkByLoop(std::size_t month) {
  const std::size_t nCells = source_->nLongitudes() * source_->nLatitudes();
  std::vector<double> sum(nCells);
  std::vector<double> cells(nCells);
  std::vector<double> shown(nCells);
  for (std::size_t m = 0; m < source_->nMonths(); ++m) {
    source_->readSlab(m, 0, cells);
    for (std::size_t i = 0; i < nCells; ++i) sum[i] = m == 0 ? cells[i] : sum[i] + cells[i];
    if (m == month) shown = cells;
  }
  Slab direct({source_->nLongitudes(), source_->nLatitudes()}, Tresk::CreatorWeakPtr());
  auto* const anomaly = static_cast<double*>(direct.getDataPointer());
  const double factor = 1.0 / static_cast<double>(source_->nMonths());
  for (std::size_t i = 0; i < nCells; ++i) anomaly[i] = shown[i] - factor * sum[i];
  checks_.add("checksum of a surface anomaly, by a plain loop", hexadecimal(checksum(direct)),
              hexadecimal(checksum(*year_.makeAnomaly(month, 0, false))));
  Cache::MemCache()->trim(Cache::NoLimit);
}

void AnomalyReport::checkKnownNumbers() {
  const Level& surface = levels_.front();
  unsigned long long nEveryMonth = 0;
  for (const Level& level : levels_) nEveryMonth += level.nEveryMonth;
  checks_.add("anomaly at the surface in August, in K", KnownNumbers::AugustSurface,
              range(surface.minimumInMonth, surface.maximumInMonth));
  checks_.add("anomaly at the surface in all months, in K", KnownNumbers::YearSurface,
              range(surface.minimum, surface.maximum));
  checks_.add("cells with a value in every month, at the surface", grouped(KnownNumbers::nEveryMonthAtSurface),
              grouped(surface.nEveryMonth));
  checks_.add("cells with a value in every month, at all depths", grouped(KnownNumbers::nEveryMonth),
              grouped(nEveryMonth));
}

void AnomalyReport::draw(int chapter, const std::filesystem::path& folder) {
  const OceanDescription& ocean = source_->getDescription();
  const std::string unit = ocean.depth.unit;
  out_ << "\n" << chapter << ". Pictures\n\n";
  Interrupt::check();
  const bool isNewFolder = std::filesystem::create_directories(folder);

  const auto drawOne = [&](const Gnuplot& plot, const char* name, const std::string& what) {
    const std::filesystem::path file = folder / name;
    if (!plot.draw(file)) return false;
    Interrupt::check();
    const auto size = readPictureSize(file);
    out_ << "  " << what << std::string(24 - std::min<std::size_t>(24, what.size()), ' ') << file.string() << "\n";
    checks_.add(std::string("extents of the picture ") + name,
                std::to_string(PictureWidth) + " x " + std::to_string(PictureHeight),
                size ? std::to_string(size->first) + " x " + std::to_string(size->second) : "no picture");
    return true;
  };

  const Gnuplot map = makeAnomalyPicture(*year_.makeAnomaly(month_, 0, false), ocean,
                                         "Surface anomaly of " + monthName() + " against the mean of the year");
  const std::size_t column = nearest(ocean.longitude, SectionLongitude);
  std::vector<double> section;
  for (std::size_t depth = 0; depth < source_->nDepths(); ++depth) {
    const SlabPtr slab = ocean_.getSlab(ocean_.getField().getFragmentID(ocean_.getName(month_, depth)));
    for (std::size_t j = 0; j < source_->nLatitudes(); ++j) section.push_back((*slab)(column, j));
  }
  Cache::MemCache()->trim(Cache::NoLimit);
  if (!drawOne(map, "ocean-anomaly.png", "surface anomaly")) {
    out_ << "  gnuplot is not installed (Debian package gnuplot-nox): no pictures.\n";
    if (isNewFolder) std::filesystem::remove(folder);
    return;
  }
  const double east = std::remainder(ocean.longitude.values[column], 360.0);
  const std::string meridian = fixed(std::abs(east), 1) + "°" + (east < 0 ? "W" : "E");
  drawOne(makeSectionPicture(section, ocean, ocean.quantity + " along " + meridian + " in " + monthName()),
          "ocean-section.png", "section over depth");

  FragmentPicture picture{log_, monthGroup_, {}, "month slabs, by depth", meanGroup_, "means", limit_, stretches_};
  for (std::size_t depth = 0; depth < source_->nDepths(); ++depth)
    picture.rowNames.emplace_back(depth * source_->nMonths(), fixed(ocean.depth.values[depth], 0) + " " + unit);
  drawOne(makeFragmentPicture(picture, "What the cache holds while all anomalies are computed under a limit of 20 %"),
          "ocean-fragments.png", "fragments over time");
}

}  // namespace Example
