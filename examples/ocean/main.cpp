// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// A monthly ocean atlas as one field: 228 fragments, one for each month at each depth, read when they are asked for.
// The exit code is 0 if everything that the program shows holds, 1 if not, 2 for a wrong command line or an unreadable
// file, 130 after an interrupt.

#include "AnalyticOcean.hpp"
#include "AnomalyReport.hpp"
#include "Checks.hpp"
#include "Interrupt.hpp"
#include "LimitReport.hpp"
#include "OceanField.hpp"
#include "OceanGrid.hpp"
#include "Options.hpp"
#include "Report.hpp"
#include "Statistics.hpp"
#include "YearReport.hpp"
#ifdef TRESK_OCEAN_WITH_NETCDF
#include "OceanFile.hpp"
#endif

#include <tresk/field/SizeInterface.hpp>
#include <tresk/field/TreskTypeBase.hpp>
#include <tresk/foundation/TraceWriter.hpp>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <limits>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace {

using namespace Example;
using Tresk::CreatorPtr;
using Tresk::FragmentIDPtr;

constexpr double FreezingPoint = -1.9;  // degC, of sea water at the surface
constexpr unsigned long long Everything = std::numeric_limits<unsigned long long>::max();

/// Opens the file that the command line names, or else the atlas, or else the analytic ocean.
std::shared_ptr<const OceanSource> openOcean(const std::optional<std::string>& path, bool isAnalytic) {
  if (isAnalytic) return std::make_shared<AnalyticOcean>();
#ifdef TRESK_OCEAN_WITH_NETCDF
  if (path) return std::make_shared<OceanFile>(*path);
  if (const std::optional<std::string> atlas = findOceanAtlas()) return std::make_shared<OceanFile>(*atlas);
  std::cout << "ocean_atlas_subset.nc is not installed: running on the embedded analytic ocean.\n\n";
#else
  if (path) throw std::runtime_error(*path + ": this program was built without netCDF and reads no files");
  std::cout << "Built without netCDF: running on the embedded analytic ocean.\n\n";
#endif
  return std::make_shared<AnalyticOcean>();
}

/// Records what happens while it lives.
class Trace {
 public:
  explicit Trace(const std::string& path) : writer_(path) {
    writer_.attach();
    Ostrel::Cache::MemCache()->setListener(getListener());
  }
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;
  ~Trace() { Ostrel::Cache::MemCache()->setListener(Ostrel::CacheListener()); }

  Ostrel::CacheListener getListener() const { return writer_.makeCacheListener("bytes held"); }
  /// Whether everything has reached the file.
  bool close() { return writer_.close(); }

 private:
  Ostrel::TraceWriter writer_;
};

/// What a field tells at one moment without producing anything.
struct Moment {
  std::string name;
  unsigned long long nSlabsRead;
  std::size_t nHeld;
  unsigned long long memoryHeld;
  unsigned long long fullMemory;
  std::string size;
  int rank;
  std::string type;
};

/// Runs the example and keeps what it finds.
class Demonstration {
 public:
  /// \param listener is told of all events of the cache; may be empty
  Demonstration(std::shared_ptr<const OceanSource> source, const Options& options, Ostrel::CacheListener listener)
      : source_(std::move(source)), options_(options), listener_(std::move(listener)) {}

  bool run() {
    describeSource();
    describeGrid();
    bind();
    readSome();
    readEverything();
    forget();
    readMonthByMonth();
    showMoments();
    YearReport year(*ocean_, source_, std::cout, checks_);
    year.showMean(7);
    year.showProduction(8);
    year.showAccounts(9);
    showLimits(*ocean_, std::cout, checks_, 10, listener_);
    AnomalyReport anomalies(
        source_, std::cout, checks_,
        [](const std::string& work, std::size_t total) { return makeProgress(work, total); }, listener_);
    anomalies.show(11);
    int chapter = 12;
    if (options_.pictures) anomalies.draw(chapter++, *options_.pictures);
    std::cout << "\n" << chapter << ". Checks\n\n";
    checks_.print(std::cout);
    std::cout.flush();
    return checks_.doAllHold();
  }

 private:
  const Tresk::Field& field() const { return ocean_->getField(); }
  const OceanDescription& source() const { return source_->getDescription(); }
  std::string unit() const { return source().unit.empty() ? "degC" : source().unit; }

  void check(bool holds, const std::string& what) { checks_.add(holds, what); }

  const Moment& observe(const std::string& name) {
    const Tresk::SizePtr size = field().getSize();
    const Tresk::TreskTypePtr type(field().getElementTreskType());
    moments_.push_back({name, ocean_->nSlabsRead(), countHeld(field()), getMemoryHeld(field()), getFullMemory(field()),
                        size ? size->str() : "unknown", field().Dims(), type ? type->typeName : "unknown"});
    return moments_.back();
  }

  static std::unique_ptr<Progress> makeProgress(const std::string& work, std::size_t total) {
    std::cout << std::flush;  // the report so far stands before the first line about progress
    return std::make_unique<Progress>(work, total, std::cerr, isatty(STDERR_FILENO) == 1);
  }

  void describeSource() const {
    const OceanDescription& ocean = source();
    const auto show = [](const char* label, const char* name, const Axis& axis) {
      const std::vector<double>& x = axis.values;
      std::cout << label << x.size() << " " << name << ", " << x.front();
      if (x.size() > 1) std::cout << " to " << x.back();
      std::cout << " " << axis.unit;
      if (x.size() > 2 && axis.isEvenlySpaced())
        std::cout << " in steps of " << axis.getStep();
      else if (x.size() > 2)
        std::cout << ", unevenly spaced";
      std::cout << "\n";
    };
    std::cout << "An ocean as a field of fragments, each read when it is asked for\n\n";
    std::cout << "  Source        " << ocean.origin << "\n";
    std::cout << "  Quantity      " << ocean.quantity << " in " << unit()
              << (ocean.unit.empty() ? " (assumed: the file names no unit)" : "") << "\n";
    show("  Grid          ", "longitudes", ocean.longitude);
    show("                ", "latitudes", ocean.latitude);
    show("                ", "depths", ocean.depth);
    std::cout << "                " << ocean.months.size() << " months, " << ocean.months.front() << " to "
              << ocean.months.back() << "\n";
    std::cout << "  No water      " << ocean.missingMark
              << (ocean.missingMark == "NaN" ? "\n" : " in the source, NaN in memory\n");
  }

  /// The coordinates of the cells need no memory of their own.
  void describeGrid() {
    const GridPtr grid = makeGrid(source());
    const Tresk::MultiIndex<3> size = grid->getIndexSize();
    const unsigned long long last = grid->nElements() - 1;
    const Tresk::MemBasePtr points = grid->makeExplicit(Tresk::CreatorWeakPtr());
    const auto* const written = static_cast<const Quorvel::PhysicalSpace::point*>(points->getDataPointer());
    std::cout << "\n1. The grid: coordinates that are computed, not stored\n\n";
    std::cout << "  Points        " << size[0] << " x " << size[1] << " x " << size[2] << " = "
              << grouped(grid->nElements()) << ", from " << grid->getElementString(0) << " to "
              << grid->getElementString(last) << "\n";
    std::cout << "  Axes          " << bytes(getAxisMemory(*grid)) << " held for all of them; written out they take "
              << bytes(points->memsize()) << "\n";
    bool isEqual = points->nElements() == grid->nElements();
    const Axis *x = &source().longitude, *y = &source().latitude, *z = &source().depth;
    std::size_t p = 0;
    for (const double depth : z->values)
      for (const double latitude : y->values)
        for (const double longitude : x->values) {
          const Quorvel::PhysicalSpace::point& point = written[p++];
          isEqual = isEqual && point[0] == longitude && point[1] == latitude && point[2] == depth;
        }
    check(isEqual, "the coordinates are those of the source, bit for bit");
    check(getAxisMemory(*grid) == 8 * (x->values.size() + y->values.size() + z->values.size()),
          "coordinates hold their axes alone");

    const LevelGridPtr level = makeLevelGrid(source());
    if (!level) return;
    std::cout << "  One level     " << bytes(getAxisMemory(*level)) << " held, as longitudes and latitudes are evenly "
              << "spaced: two origins and two steps\n";
    double largest = 0;
    const Tresk::MemBasePtr plane = level->makeExplicit(Tresk::CreatorWeakPtr());
    const auto* const computed = static_cast<const Quorvel::FixedArray<double, 2>*>(plane->getDataPointer());
    for (std::size_t i = 0; i < plane->nElements(); ++i)
      for (int c = 0; c < 2; ++c) largest = std::max(largest, std::abs(computed[i][c] - written[i][c]));
    check(largest <= Axis::StepTolerance * std::max(std::abs(x->getStep()), std::abs(y->getStep())),
          "evenly spaced axes give the same coordinates");
  }

  void bind() {
    const unsigned long long resident = residentMemory();
    const double begin = Progress::seconds();
    ocean_.emplace(source_);
    const double time = Progress::seconds() - begin;
    const unsigned long long residentNow = residentMemory();
    const Moment& now = observe("bound, nothing read");

    const std::size_t nFragments = field().nFragments();
    const std::string extents = std::to_string(source_->nLongitudes()) + " x " + std::to_string(source_->nLatitudes());
    const std::string count = std::to_string(nFragments);
    std::cout << "\n2. Bind: a creator for every month at every depth, and nothing read\n\n";
    std::cout << "  Fragments     " << nFragments << ", bound in " << duration(time) << " ("
              << duration(time / static_cast<double>(nFragments)) << " each); slabs read: " << now.nSlabsRead << "\n";
    std::cout << "  Element type  " << now.type << ", declared before any data exist\n";
    std::cout << "  Dims          " << now.rank << " (longitude fastest, then latitude)\n";
    std::cout << "  getSize       " << now.size << ": the extents of all fragments, added up axis by axis,\n"
              << "                " << count << " x " << source_->nLongitudes() << " and " << count << " x "
              << source_->nLatitudes() << ". It is no number of elements: that is the sum over the\n"
              << "                fragments, " << count << " x (" << extents
              << ") = " << grouped(nFragments * source_->nLongitudes() * source_->nLatitudes()) << ".\n";
    std::cout << "  Full size     " << bytes(now.fullMemory) << " if every fragment were held\n";
    std::cout << "  Memory held   " << bytes(now.memoryHeld) << " of data";
    if (resident > 0)
      std::cout << "; binding let the process grow by " << bytes(residentNow - std::min(resident, residentNow));
    std::cout << "\n";

    checks_.add("fragments: one for each month at each depth", std::to_string(source_->nMonths() * source_->nDepths()),
                count);
    check(now.nSlabsRead == 0 && now.memoryHeld == 0, "binding and asking for size and type read nothing");
  }

  /// A fragment in the middle of the atlas.
  std::string chosenName() const {
    return ocean_->getName(std::min<std::size_t>(7, source_->nMonths() - 1),
                           std::min<std::size_t>(6, source_->nDepths() - 1));
  }

  void readSome() {
    const std::vector<FragmentIDPtr>& fragments = field().getFragmentIDs();
    const FragmentIDPtr byName = field().getFragmentID(chosenName());
    const FragmentIDPtr byNumber = fragments[fragments.size() / 2];
    const FragmentIDPtr byObject = fragments.back();

    std::cout << "\n3. Read three fragments, asked for in three ways\n\n";
    Table table({"asked for by", "fragment", "number", "first\nread", "again\n", "cells with\nwater", "min\n" + unit(),
                 "max\n" + unit(), "mean\n" + unit()},
                2);
    bool isReadOnce = true;
    const auto show = [&](const char* way, const FragmentIDPtr& fragment, const auto& get) {
      const unsigned long long nReads = ocean_->nSlabsRead() + (field().getCreator(fragment)->hasData() ? 0 : 1);
      const double begin = Progress::seconds();
      const SlabPtr slab(get());
      const double middle = Progress::seconds();
      const SlabPtr again(get());
      const double end = Progress::seconds();
      if (!slab) throw std::runtime_error("no array for fragment \"" + fragment->getName() + "\"");
      isReadOnce = isReadOnce && slab.get() == again.get() && ocean_->nSlabsRead() == nReads;
      const Statistics cells = summarise(*slab, source().latitude.values);
      table.addRow({way, fragment->getName(), std::to_string(fragment->getNumericalID()), duration(middle - begin),
                    duration(end - middle), grouped(cells.nFinite()), fixed(cells.getMinimum(), 2),
                    fixed(cells.getMaximum(), 2), fixed(cells.getMean(), 3)});
    };
    show("name", byName, [&] { return field().getCreatorByName(byName->getName())->create(false); });
    show("number", byNumber, [&] { return field().getDataByNumericalID(byNumber->getNumericalID()); });
    show("object", byObject, [&] { return field().getData(byObject); });
    table.print(std::cout);
    observe("three fragments read");
    check(isReadOnce, "a fragment that is held is not read again");
  }

  void readEverything() {
    std::cout << "\n4. Read everything: each depth over all months\n\n";
    const double begin = Progress::seconds();
    std::vector<Statistics> depths;
    {
      const std::unique_ptr<Progress> progress = makeProgress("reading", field().getFragmentIDs().size());
      depths = summariseDepths(*ocean_, [&](const FragmentIDPtr& fragment, const Slab& slab) {
        checksums_[fragment->getNumericalID()] = checksum(slab);
        progress->advance();
      });
    }
    const double time = Progress::seconds() - begin;
    const Moment& now = observe("everything read");

    Table table({"depth\n" + source().depth.unit, "cells with\nwater", "share\n%", "min\n" + unit(), "max\n" + unit(),
                 "mean of cells\n" + unit(), "mean by area\n" + unit()});
    const auto addRow = [&table](const std::string& name, const Statistics& cells) {
      table.addRow({name, grouped(cells.nFinite()),
                    fixed(100 * static_cast<double>(cells.nFinite()) / static_cast<double>(cells.nCells()), 1),
                    fixed(cells.getMinimum(), 2), fixed(cells.getMaximum(), 2), fixed(cells.getMean(), 3),
                    fixed(cells.getWeightedMean(), 3)});
    };
    Statistics all;
    for (std::size_t depth = 0; depth < depths.size(); ++depth) {
      std::ostringstream name;
      name << source().depth.values[depth];
      addRow(name.str(), depths[depth]);
      all.add(depths[depth]);
    }
    table.addRule();
    addRow("all", all);
    table.print(std::cout);
    std::cout << "\n  The mean by area weighs each cell by the cosine of its latitude. Over all depths the means are\n"
              << "  those of the levels as they stand, not weighed by thickness. Read and summed up in "
              << duration(time) << ".\n";
    if (unit() == "degC" && all.getMinimum() < FreezingPoint)
      std::cout << "  Values stand as the source has them, also those below the freezing point of sea water ("
                << FreezingPoint << " degC).\n";
    checks_.add("slabs read when all fragments were asked for", std::to_string(field().nFragments()),
                std::to_string(now.nSlabsRead));
    checks_.add("memory held then, the full size", bytes(now.fullMemory), bytes(now.memoryHeld));
  }

  void forget() {
    std::cout << "\n5. Forget everything, and read one fragment again\n\n";
    const FragmentIDPtr fragment = field().getFragmentID(chosenName());
    const unsigned long long given = Ostrel::Cache::MemCache()->trim(Everything);
    const Moment forgotten = observe("everything forgotten");
    const std::uint64_t before = checksums_.at(fragment->getNumericalID());
    const std::uint64_t after = checksum(*ocean_->getSlab(fragment));
    const Moment again = observe("one read again");
    std::cout << "  The cache gave back " << bytes(given) << "; memory held: " << bytes(forgotten.memoryHeld) << "\n";
    std::cout << "  Checksum of \"" << fragment->getName() << "\"   before " << hexadecimal(before) << "   after "
              << hexadecimal(after) << "\n";
    checks_.add("memory given back by forgetting everything", bytes(forgotten.fullMemory), bytes(given));
    check(forgotten.memoryHeld == 0, "nothing is held then");
    check(again.nSlabsRead == forgotten.nSlabsRead + 1, "a forgotten fragment is read again");
    checks_.add("checksum of a fragment read again", hexadecimal(before), hexadecimal(after));
  }

  void readMonthByMonth() {
    Ostrel::Cache::MemCache()->trim(Everything);
    std::size_t nSame = 0;
    unsigned long long most = 0;
    {
      const std::unique_ptr<Progress> progress = makeProgress("reading by month", field().getFragmentIDs().size());
      std::size_t month = 0;
      summariseDepths(*ocean_, [&](const FragmentIDPtr& fragment, const Slab& slab) {
        if (ocean_->getMonth(fragment) != month) {
          month = ocean_->getMonth(fragment);
          Ostrel::Cache::MemCache()->trim(Everything);
        }
        // The last depth of a month: more than now is never held.
        if (ocean_->getDepth(fragment) + 1 == source_->nDepths()) most = std::max(most, getMemoryHeld(field()));
        if (checksum(slab) == checksums_.at(fragment->getNumericalID())) ++nSame;
        progress->advance();
      });
    }
    Ostrel::Cache::MemCache()->trim(Everything);
    const Moment& now = observe("again month by month");
    std::cout << "  All of it again, forgetting after each month: " << nSame << " of " << field().nFragments()
              << " checksums as before,\n  and never more than " << bytes(most) << " held\n";
    checks_.add("fragments that are the same again, bit for bit", std::to_string(field().nFragments()),
                std::to_string(nSame));
    check(most <= now.fullMemory / source_->nMonths(), "a pass that forgets holds one month at a time");
    check(now.memoryHeld == 0, "nothing is held after the pass");
  }

  void showMoments() {
    std::cout << "\n6. What the field told, moment by moment\n\n";
    Table table({"moment", "slabs read\nso far", "fragments\nheld", "memory\nheld", "full\nsize", "getSize\n", "Dims\n",
                 "type\n"},
                1);
    bool isSteady = true;
    for (const Moment& moment : moments_) {
      table.addRow({moment.name, std::to_string(moment.nSlabsRead), std::to_string(moment.nHeld),
                    bytes(moment.memoryHeld), bytes(moment.fullMemory), moment.size, std::to_string(moment.rank),
                    moment.type});
      const Moment& first = moments_.front();
      isSteady = isSteady && moment.size == first.size && moment.rank == first.rank && moment.type == first.type &&
                 moment.fullMemory == first.fullMemory;
    }
    table.print(std::cout);
    check(isSteady, "size, rank and type are the same at every moment");
  }

  const std::shared_ptr<const OceanSource> source_;
  const Options options_;
  const Ostrel::CacheListener listener_;
  std::optional<OceanField> ocean_;
  std::map<unsigned int, std::uint64_t> checksums_;  ///< of each fragment by its number
  std::vector<Moment> moments_;
  Checks checks_;
};

/// Throws if a folder is not there and cannot be made, or takes no files.
void checkFolder(const std::filesystem::path& folder) {
  std::error_code ignored;
  std::filesystem::path there = std::filesystem::absolute(folder);
  while (!std::filesystem::exists(there, ignored)) there = there.parent_path();
  const bool isFolder = std::filesystem::is_directory(there, ignored);
  if (isFolder && access(there.c_str(), W_OK) == 0) return;
  const int reason = isFolder ? errno : ENOTDIR;
  throw std::runtime_error("cannot write pictures in '" + folder.string() +
                           "': " + std::generic_category().message(reason));
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  try {
    options = Options::parse({argv + 1, argv + argc});
  } catch (const UsageError& error) {
    std::cerr << "ocean: " << error.what() << "\n";
    printUsage(std::cerr);
    return 2;
  }
  if (options.isHelp) {
    printUsage(std::cout);
    return 0;
  }
  const Interrupt interrupt;
  std::shared_ptr<const OceanSource> source;
  std::optional<Trace> trace;
  try {
    source = openOcean(options.file, options.isAnalytic);
    options.checkTrace(source->getDescription().origin);   // the atlas is not named on the command line
    if (options.pictures) checkFolder(*options.pictures);  // now, and not after all the work
    if (options.trace) trace.emplace(*options.trace);
  } catch (const std::exception& error) {
    std::cerr << "ocean: " << error.what() << "\n";
    return 2;
  }
  try {
    const bool isGood = Demonstration(source, options, trace ? trace->getListener() : Ostrel::CacheListener()).run();
    if (!std::cout.flush()) throw std::runtime_error("the report could not be written");
    if (!trace) return isGood ? 0 : 1;
    const bool isWritten = trace->close();
    std::cout << (isWritten ? "The trace is in " : "The trace could not be written in whole: ") << *options.trace
              << "\n";
    return isGood && isWritten ? 0 : 1;
  } catch (const std::exception& error) {
    std::cout << std::flush;
    // Also where the interrupt has reached another program first, and that one's end is the error.
    if (Interrupt::isRequested()) {
      std::cerr << "\nocean: interrupted; all work has ended\n";
      return 130;
    }
    std::cerr << "ocean: " << error.what() << "\n";
    return 1;
  }
}
