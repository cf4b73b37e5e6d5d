// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "YearReport.hpp"

#include "DepthMeans.hpp"
#include "Interrupt.hpp"
#include "Report.hpp"
#include "Statistics.hpp"

#include <algorithm>
#include <limits>
#include <ostream>

namespace Example {

using Tresk::CreatorPtr;
using Tresk::FieldPtr;

namespace {

void forgetAll() { Ostrel::Cache::MemCache()->trim(std::numeric_limits<unsigned long long>::max()); }

/// Each line of a text behind a mark.
std::string quoted(const std::string& text) {
  std::string out = "  | ";
  for (const char c : text) out += c == '\n' ? std::string("\n  | ") : std::string(1, c == '\t' ? ' ' : c);
  return out.substr(0, out.size() - 4);
}

}  // namespace

YearReport::YearReport(const OceanField& ocean, std::shared_ptr<const OceanSource> source, std::ostream& out,
                       Checks& checks)
    : ocean_(ocean), source_(std::move(source)), out_(out), checks_(checks), year_(ocean) {}

void YearReport::showMean(int chapter) {
  const std::size_t nMonths = year_.getMonths().size();
  const OceanYear::Month& first = *year_.getMonths().front();
  const unsigned long long nRead = ocean_.nSlabsRead();
  out_ << "\n" << chapter << ". The mean of the year: a chain of fields that hold nothing until they are asked\n\n";
  out_ << "  Months        " << nMonths << " fields of " << first.getExtents()[0] << " x " << first.getExtents()[1]
       << " x " << first.getExtents()[2] << " blocks, \"" << year_.getFragment(0)->getName() << "\" to \""
       << year_.getFragment(source_->nDepths() - 1)->getName() << "\", on one numbering\n";
  out_ << "  Mean          (((month 1 + month 2) + ...) + month " << nMonths << ") * 1/" << nMonths << ": "
       << nMonths - 1 << " sums and a scale\n";
  out_
      << "  Made          " << year_.countChain() << " arrays computed, " << bytes(year_.getChainMemory()) << " held, "
      << ocean_.nSlabsRead() - nRead << " slabs read; rank " << year_.getMean()->Dims() << " and element type "
      << Ostrel::StrongPtr<Tresk::TreskTypeBase, Tresk::TreskTypeBase>(year_.getMean()->getElementTreskType())->typeName
      << " are known\n";
  checks_.add(year_.countChain() == 0 && year_.getChainMemory() == 0 && ocean_.nSlabsRead() == nRead,
              "a chain of sums holds nothing until it is asked");

  const std::size_t depth = std::min<std::size_t>(6, source_->nDepths() - 1);
  const double begin = Progress::seconds();
  const std::uint64_t sum = checksum(*SlabPtr(year_.getMean()->getData(year_.getFragment(depth))));
  const double time = Progress::seconds() - begin;
  const unsigned long long slabBytes = source_->nLongitudes() * source_->nLatitudes() * sizeof(double);
  out_ << "  Asked         for " << source_->getDescription().depth.values[depth] << " "
       << source_->getDescription().depth.unit << ": " << ocean_.nSlabsRead() - nRead << " slabs read, "
       << year_.countChain() << " arrays computed, " << bytes(year_.getChainMemory()) << " held, in " << duration(time)
       << "\n";
  checks_.add(ocean_.nSlabsRead() == nRead + nMonths, "one fragment of the mean reads one slab of each month");
  checks_.add(year_.countChain() == nMonths && year_.getChainMemory() == nMonths * slabBytes,
              "and computes one array for each link of the chain");

  Slab direct({source_->nLongitudes(), source_->nLatitudes()}, Tresk::CreatorWeakPtr());
  Slab one({source_->nLongitudes(), source_->nLatitudes()}, Tresk::CreatorWeakPtr());
  auto* const total = static_cast<double*>(direct.getDataPointer());
  const auto* const cells = static_cast<const double*>(one.getDataPointer());
  for (std::size_t month = 0; month < nMonths; ++month) {
    Interrupt::check();
    source_->readSlab(month, depth, {static_cast<double*>(one.getDataPointer()), one.nElements()});
    for (std::size_t i = 0; i < direct.nElements(); ++i) total[i] = month == 0 ? cells[i] : total[i] + cells[i];
  }
  for (std::size_t i = 0; i < direct.nElements(); ++i) total[i] *= 1.0 / static_cast<double>(nMonths);
  forgetAll();
  const std::uint64_t again = checksum(*SlabPtr(year_.getMean()->getData(year_.getFragment(depth))));
  out_ << "  Checksum      " << hexadecimal(sum) << ", after forgetting " << hexadecimal(again) << ",\n"
       << "                by a plain loop " << hexadecimal(checksum(direct)) << "\n";
  checks_.add(sum == again && sum == checksum(direct), "the mean is that of a plain loop, bit for bit");
  forgetAll();
  checks_.add(year_.getChainMemory() == 0, "forgetting empties the whole chain");
}

void YearReport::showProduction(int chapter) {
  const std::size_t month = std::min<std::size_t>(7, source_->nMonths() - 1);
  const std::size_t nDepths = source_->nDepths();
  const DepthMeans production(source_, month);
  Tresk::AsynchronCreator& creator = production.getCreator();
  const auto state = [&] { return std::to_string(production.nDone()) + " of " + std::to_string(nDepths) + " slabs"; };
  out_ << "\n" << chapter << ". One production on a thread, while the program goes on\n\n";
  out_ << "  Declared      the means by area of all depths of " << source_->getDescription().months[month] << ": "
       << Tresk::getSize(creator)->str() << " numbers, not computed yet\n";
  const bool isTaken = creator.request(nullptr);
  const bool isTakenTwice = creator.request(nullptr);
  out_ << "  Requested     thread: " << state() << "\n";
  for (std::size_t depth = 0; depth < nDepths; depth += std::max<std::size_t>(1, nDepths / 3)) {
    Interrupt::check();
    const SlabPtr mean(year_.getMean()->getData(year_.getFragment(depth)));
    out_ << "  Meanwhile     the mean of the year at " << source_->getDescription().depth.values[depth] << " "
         << source_->getDescription().depth.unit << " is "
         << fixed(summarise(*mean, source_->getDescription().latitude.values).getWeightedMean(), 3)
         << "; thread: " << state() << "\n";
  }
  const MeansPtr means = production.join();
  out_ << "  Joined        thread: " << state() << "; from " << fixed((*means)(0), 3) << " at the top to "
       << fixed((*means)(nDepths - 1), 3) << " at the bottom\n";
  checks_.add(isTaken && !isTakenTwice, "a production that runs is not started again");
  bool isEqual = true;
  for (std::size_t depth = 0; depth < nDepths; ++depth) {
    const SlabPtr slab = ocean_.getSlab(ocean_.getField().getFragmentID(ocean_.getName(month, depth)));
    isEqual =
        isEqual && (*means)(depth) == summarise(*slab, source_->getDescription().latitude.values).getWeightedMean();
  }
  checks_.add(isEqual && creator.nCreations() == 1, "the thread has computed what the field tells, once");
  forgetAll();
}

void YearReport::showAccounts(int chapter) {
  out_ << "\n" << chapter << ". Accounts: what a field tells of itself\n\n";
  const FieldPtr mean = year_.getMean();
  const auto report = [this](const std::string& when, const Tresk::Field& field) {
    unsigned long long held = 0;
    unsigned long long full = 0;
    const int answer = field.getMemoryUsage(held, full);
    out_ << "  " << when << bytes(held) << " held of " << bytes(full) << ", answer " << answer << "\n";
    return held;
  };
  const Tresk::Field& may = *year_.getMonths()[std::min<std::size_t>(4, year_.getMonths().size() - 1)];
  const unsigned long long before = report("One month     ", may);
  may.getData(year_.getFragment(0));
  const unsigned long long after = report("One read      ", may);
  checks_.add(before == 0 && after > 0, "a field tells what it holds and what it would take");

  const Ostrel::Ageable now = Ostrel::Ageable::now();
  const bool isNewerBefore = may.hasFragmentsNewerThan(now);
  may.getCreatorByNumericalID(0)->touch();
  const bool isNewerAfter = may.hasFragmentsNewerThan(now);
  const bool isOtherNewer = year_.getMonths().front()->hasFragmentsNewerThan(now);
  const auto something = [](bool isNewer) { return isNewer ? "something" : "nothing"; };
  out_ << "  Ages          " << something(isNewerBefore)
       << " is newer than now; after one creator was told that its data\n"
       << "                have changed: " << something(isNewerAfter) << " in that month, " << something(isOtherNewer)
       << " in the first\n";
  checks_.add(!isNewerBefore && isNewerAfter && (!isOtherNewer || year_.getMonths().size() == 1),
              "ages tell which month has changed");

  const FieldPtr small(new Tresk::Field);
  small->setCreator(may.getCreatorByNumericalID(0), Tresk::FragmentIDPtr(small->makeFragmentID("top")));
  small->setCreator(CreatorPtr(), Tresk::FragmentIDPtr(small->makeFragmentID("bottom")));
  const unsigned long long nRead = ocean_.nSlabsRead();
  const std::string text = small->xml();
  out_ << "  Text          of a field of two fragments, one of them without a creator:\n\n" << quoted(text);
  checks_.add(text.find("<NUMBEROFRAGMENTS>2<") != std::string::npos && text.find("<NODATA/>") != std::string::npos &&
                  ocean_.nSlabsRead() == nRead,
              "a field describes its fragments without reading them");
  forgetAll();
}

}  // namespace Example
