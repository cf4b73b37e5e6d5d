// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/MemoryLedger.hpp>

#include <tresk/field/AsynchronCreator.hpp>
#include <tresk/foundation/CacheBooks.hpp>
#include <tresk/foundation/Diagnostics.hpp>

#include <algorithm>
#include <functional>
#include <unordered_map>
#include <unordered_set>

namespace Tresk {

namespace {

using Ostrel::Creature;
using CreatureWeakPtr = Ostrel::WeakPtr<Creature, Creature>;
using OwnerWeakPtr = Ostrel::WeakPtr<CreatorContainer, CreatorContainer>;

// ---------------------------------------------------------------------------------------------------- one creator

/// What was seen of one creator.
struct Look {
  MemoryAmount MemoryRow::*state = &MemoryRow::unknown;
  unsigned long long nBytes = 0;
  bool isSizeKnown = false;
  long long sharedData = 0;  ///< serial number of data that others hold too; 0 if there are none
};

/// The bytes of one element of the data to come; 0 if the type is unknown.
/// \param isSetUp the creator stands in a field; else its own record of the type may just be written
unsigned long long getElementBytes(const Creature& creator, bool isSetUp) {
  TreskTypePtr type;
  if (const auto properties = Ostrel::findInterface<MemArrayProperties>(creator))
    type = TreskTypePtr(properties->getType());
  if (!type && isSetUp) {
    const auto* const typed = dynamic_cast<const CreativeArrayBase*>(&creator);
    if (typed != nullptr) type = typed->getTreskType();
  }
  return type ? type->memSize : 0;
}

/// What the data of a creator would take, as far as it is known.
void lookAtExpectedBytes(const Creature& creator, bool isSetUp, Look& look) {
  const SizePtr size = Ostrel::findInterface<SizeInterface>(creator);
  if (!size) return;
  const unsigned long long nElementBytes = getElementBytes(creator, isSetUp);
  if (nElementBytes == 0) return;
  look.nBytes = size->nElements() * nElementBytes;
  look.isSizeKnown = true;
}

/// The data that a creator holds; false if there are none.
bool lookAtHeldData(Creature& creator, Look& look) {
  if (!creator.hasData()) return false;
  const auto data = creator.getCacheable();
  if (!data) return false;
  const int nOthers = data.strongCount() - 1;
  if (nOthers < 1) return false;  // the creator has just let them go
  look.state = nOthers == 1 ? &MemoryRow::held : &MemoryRow::heldByCallers;
  look.nBytes = data->memsize();
  look.isSizeKnown = true;
  if (nOthers > 1) look.sharedData = data->getSerialNumber();
  return true;
}

/// \param producing the creators whose productions run, in the order of their addresses
Look lookAt(Creature& creator, bool isSetUp, const std::vector<const Creature*>& producing) {
  Look look;
  if (lookAtHeldData(creator, look)) return look;
  const bool isUnderCreation = creator.isUnderCreation();
  if (!isUnderCreation && lookAtHeldData(creator, look)) return look;  // the work has ended since the first look
  lookAtExpectedBytes(creator, isSetUp, look);
  const auto* const asynchron = dynamic_cast<const AsynchronCreator*>(&creator);
  if (isUnderCreation && asynchron != nullptr && asynchron->hasFailed())
    look.state = &MemoryRow::stuck;
  else if (isUnderCreation ||
           std::binary_search(producing.begin(), producing.end(), &creator, std::less<const Creature*>()))
    look.state = &MemoryRow::computing;
  else if (look.isSizeKnown)
    look.state = &MemoryRow::forgotten;
  return look;
}

/// Adds up what was seen in a row.
class RowSum {
 public:
  void add(MemoryRow& row, const Look& look) {
    MemoryAmount& amount = row.*look.state;
    ++amount.nCreators;
    if (!look.isSizeKnown) ++amount.nOfUnknownSize;
    if (look.sharedData == 0 || sharedData_.insert(look.sharedData).second) amount.nBytes += look.nBytes;
  }

 private:
  std::unordered_set<long long> sharedData_;  ///< what counts already
};

// --------------------------------------------------------------------------------------------------------- taking

/// Takes a ledger: enters fields, caches and creators first, and then looks at each creator once.
class LedgerTaker {
 public:
  LedgerTaker() : caches_(Ostrel::Cache::getCaches()), producing_(Ostrel::Detail::shownProductions()) {
    std::sort(producing_.begin(), producing_.end(), std::less<const Creature*>());
    ledger_.inNoField.name = "in no field";
    ledger_.inNoCache.name = "in no cache";
    ledger_.total.name = "total";
    for (const CachePtr& cache : caches_) {
      cacheNumbers_.emplace(cache.getRecord(), ledger_.caches.size());
      CacheMemoryRow& row = ledger_.caches.emplace_back();
      row.name = nameOf(cache);
      if (cache->getParent()) row.parent = nameOf(cache->getParent());
    }
  }

  /// Enters a field and its creators, once.
  void enterField(const Field& field, const std::string& name) {
    if (!fieldNumbers_.emplace(field.getRecord(), fields_.size()).second) return;
    FieldEntry& entry = fields_.emplace_back();
    entry.field = field.getSelf();
    entry.serialNumber = field.getSerialNumber();
    entry.name = name.empty() ? "field #" + std::to_string(entry.serialNumber) : name;
    // The walk holds the lock of the field: creators are asked afterwards.
    std::vector<CreatureWeakPtr> found;
    found.reserve(field.nFragments());
    const auto note = [&found](const FragmentIDPtr&, const CreatorPtr& creator) {
      if (creator.getRecord() != nullptr) found.emplace_back(creator);
      return true;
    };
    field.iterate(note, false, false);
    for (const CreatureWeakPtr& creator : found) {
      std::vector<std::size_t>& numbers = enterCreator(creator).fields;
      if (numbers.empty() || numbers.back() != fields_.size() - 1) numbers.push_back(fields_.size() - 1);
    }
  }
  void enterFields(const std::vector<MemoryLedger::NamedField>& fields) {
    for (const auto& [name, field] : fields)
      if (field) enterField(*field, name);
    nGiven_ = fields_.size();
  }
  /// Enters what the caches know of, and what can be reached from there.
  void enterProcess() {
    for (const CachePtr& cache : caches_)
      for (const CreatureWeakPtr& creator : cache->getCreatures()) enterCreator(creator);
    // Their fields may bring more creators in.
    for (std::size_t i = 0; i < creators_.size(); ++i) {
      const Ostrel::Pin<Creature> creature(creators_[i].creator);
      const auto* const creator = dynamic_cast<const CreativeArrayBase*>(creature.get());
      if (creator == nullptr) continue;
      for (const OwnerWeakPtr& pointer : creator->getOwners()) {
        const Ostrel::Pin<CreatorContainer> owner(pointer);
        if (!owner) continue;
        // A field that nobody has held yet may still be in its constructor, on another thread.
        if (owner->getRecord()->deferred.load(std::memory_order_acquire) == 0) continue;
        if (const auto* const field = dynamic_cast<const Field*>(owner.get())) enterField(*field, std::string());
      }
    }
  }

  /// Looks at all creators that were entered.
  MemoryLedger finish(bool isOfProcess) {
    putFieldsInOrder();
    const std::vector<std::size_t> order = orderOfLooks();
    for (const std::size_t i : order) count(creators_[i]);
    for (std::size_t i = 0; i < caches_.size(); ++i) {
      ledger_.caches[i].statistics = caches_[i]->getStatistics();
      if (!caches_[i]->getParent()) ledger_.nAccountedBytes += ledger_.caches[i].statistics.nHeldBytes;
    }
    if (!isOfProcess) std::erase_if(ledger_.caches, [](const CacheMemoryRow& row) { return row.nCreators() == 0; });
    const auto nChunkBytes = static_cast<long long>(Ostrel::ChunkBase::TotalMemsize);
    ledger_.nChunkBytes = static_cast<unsigned long long>(std::max(0LL, nChunkBytes));
    ledger_.nResidentBytes = Ostrel::getResidentBytes();
    return std::move(ledger_);
  }

 private:
  /// The weak pointers keep the records, so that these stand for creator and field.
  struct CreatorEntry {
    CreatureWeakPtr creator;
    std::vector<std::size_t> fields;  ///< numbers of the fields where it stands
  };
  struct FieldEntry {
    OwnerWeakPtr field;
    long long serialNumber = 0;
    std::string name;
    std::size_t row = 0;
  };

  static std::string nameOf(const CachePtr& cache) {
    return cache == Ostrel::Cache::MemCache() ? "default cache" : "cache #" + std::to_string(cache->getSerialNumber());
  }

  CreatorEntry& enterCreator(const CreatureWeakPtr& creator) {
    const auto [place, isNew] = creatorNumbers_.emplace(creator.getRecord(), creators_.size());
    if (isNew) creators_.push_back({creator, {}});
    return creators_[place->second];
  }

  /// The given fields first, the others as they were constructed.
  void putFieldsInOrder() {
    std::vector<FieldEntry*> order;
    for (FieldEntry& entry : fields_) order.push_back(&entry);
    std::sort(order.begin() + static_cast<std::ptrdiff_t>(nGiven_), order.end(),
              [](const FieldEntry* a, const FieldEntry* b) { return a->serialNumber < b->serialNumber; });
    for (FieldEntry* const entry : order) {
      entry->row = ledger_.fields.size();
      ledger_.fields.emplace_back().name = entry->name;
    }
    fieldSums_.resize(ledger_.fields.size());
    cacheSums_.resize(ledger_.caches.size());
  }

  /// Those of one field behind each other.
  std::vector<std::size_t> orderOfLooks() const {
    const auto firstField = [this](std::size_t i) {
      return creators_[i].fields.empty() ? fields_.size() : fields_[creators_[i].fields.front()].row;
    };
    std::vector<std::vector<std::size_t>> byField(fields_.size() + 1);
    for (std::size_t i = 0; i < creators_.size(); ++i) byField[firstField(i)].push_back(i);
    std::vector<std::size_t> order;
    order.reserve(creators_.size());
    for (const std::vector<std::size_t>& some : byField) order.insert(order.end(), some.begin(), some.end());
    return order;
  }

  void count(const CreatorEntry& entry) {
    const Ostrel::Pin<Creature> creator(entry.creator);
    if (!creator) return;
    const Look look = lookAt(*creator, !entry.fields.empty(), producing_);
    totalSum_.add(ledger_.total, look);
    if (entry.fields.empty()) noFieldSum_.add(ledger_.inNoField, look);
    for (const std::size_t number : entry.fields) {
      const std::size_t row = fields_[number].row;
      fieldSums_[row].add(ledger_.fields[row], look);
    }
    if (entry.fields.size() > 1) ++ledger_.nInSeveralFields;
    const auto cache = cacheNumbers_.find(creator->getCache().getRecord());
    if (cache == cacheNumbers_.end())
      noCacheSum_.add(ledger_.inNoCache, look);
    else
      cacheSums_[cache->second].add(ledger_.caches[cache->second], look);
  }

  const std::vector<CachePtr> caches_;
  std::vector<const Creature*> producing_;  ///< to be compared only
  std::unordered_map<const Ostrel::ReferenceRecord*, std::size_t> cacheNumbers_;
  std::unordered_map<const Ostrel::ReferenceRecord*, std::size_t> fieldNumbers_;
  std::unordered_map<const Ostrel::ReferenceRecord*, std::size_t> creatorNumbers_;
  std::vector<FieldEntry> fields_;
  std::vector<CreatorEntry> creators_;
  std::size_t nGiven_ = 0;  ///< fields that were given come first
  std::vector<RowSum> fieldSums_;
  std::vector<RowSum> cacheSums_;
  RowSum noFieldSum_;
  RowSum noCacheSum_;
  RowSum totalSum_;
  MemoryLedger ledger_;
};

// ----------------------------------------------------------------------------------------------------------- text

/// Like 3: 24.0 KiB, or 3: 24.0 KiB (1?) if one of three is of unknown size, or 3 (?) if all are.
std::string toText(const MemoryAmount& amount) {
  if (amount.nCreators == 0) return "-";
  std::string text = std::to_string(amount.nCreators);
  if (amount.nOfUnknownSize == amount.nCreators) return text + " (?)";
  text += ": " + Ostrel::toByteText(amount.nBytes);
  if (amount.nOfUnknownSize != 0) text += " (" + std::to_string(amount.nOfUnknownSize) + "?)";
  return text;
}

/// Lines of cells: the first column stands at the left, the others at the right.
class TextTable {
 public:
  void add(std::vector<std::string> cells) { lines_.push_back(std::move(cells)); }

  std::string toText() const {
    std::vector<std::size_t> widths;
    for (const std::vector<std::string>& cells : lines_) {
      widths.resize(std::max(widths.size(), cells.size()));
      for (std::size_t i = 0; i < cells.size(); ++i) widths[i] = std::max(widths[i], cells[i].size());
    }
    std::string text;
    for (const std::vector<std::string>& cells : lines_) {
      for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::string filling(widths[i] - cells[i].size(), ' ');
        text += i == 0 ? cells[i] + filling : "  " + filling + cells[i];
      }
      text += '\n';
    }
    return text;
  }

 private:
  std::vector<std::vector<std::string>> lines_;
};

struct StateColumn {
  const char* title;
  MemoryAmount MemoryRow::*state;
};
constexpr StateColumn StateColumns[] = {
    {"held", &MemoryRow::held},           {"held by callers too", &MemoryRow::heldByCallers},
    {"computing", &MemoryRow::computing}, {"stuck", &MemoryRow::stuck},
    {"forgotten", &MemoryRow::forgotten}, {"unknown", &MemoryRow::unknown}};

/// The lines of states under a title, with the columns that have something to tell in the total.
std::string statesToText(const char* title, const std::vector<const MemoryRow*>& rows, const MemoryRow& total) {
  TextTable table;
  const auto isShown = [&total](const StateColumn& column) { return (total.*column.state).nCreators != 0; };
  std::vector<std::string> head = {title, "creators"};
  for (const StateColumn& column : StateColumns)
    if (isShown(column)) head.emplace_back(column.title);
  table.add(std::move(head));
  for (const MemoryRow* const row : rows) {
    std::vector<std::string> cells = {row->name, std::to_string(row->nCreators())};
    for (const StateColumn& column : StateColumns)
      if (isShown(column)) cells.push_back(toText(row->*column.state));
    table.add(std::move(cells));
  }
  return table.toText();
}

/// The numbers of the caches: those in bytes, and those that count.
std::string statisticsToText(const std::vector<CacheMemoryRow>& caches) {
  TextTable bytes;
  TextTable counts;
  bytes.add({"cache", "limit", "held", "peak", "in flight", "given back"});
  counts.add({"cache", "hits", "productions", "failures", "entries", "asked", "evicted", "cannot release", "in use",
              "exceptions"});
  for (const CacheMemoryRow& row : caches) {
    const Ostrel::CacheStatistics& s = row.statistics;
    const std::string name = row.parent.empty() ? row.name : row.name + " in " + row.parent;
    bytes.add({name, s.limit == Ostrel::Cache::NoLimit ? "none" : Ostrel::toByteText(s.limit),
               Ostrel::toByteText(s.nHeldBytes), Ostrel::toByteText(s.nPeakBytes), Ostrel::toByteText(s.nInFlightBytes),
               Ostrel::toByteText(s.nBytesGivenBack)});
    std::vector<std::string> cells = {name};
    for (const unsigned long long n : {s.nHits, s.nProductions, s.nFailures, s.nEntries, s.nAsked, s.nEvicted,
                                       s.nCannotRelease, s.nStillInUse, s.nThrown})
      cells.push_back(std::to_string(n));
    counts.add(std::move(cells));
  }
  return bytes.toText() + '\n' + counts.toText();
}

}  // namespace

unsigned long long MemoryRow::nCreators() const noexcept {
  unsigned long long n = 0;
  for (const StateColumn& column : StateColumns) n += (this->*column.state).nCreators;
  return n;
}

unsigned long long MemoryRow::nHeldBytes() const noexcept { return held.nBytes + heldByCallers.nBytes; }

MemoryLedger MemoryLedger::of(const Field& field) {
  LedgerTaker taker;
  taker.enterField(field, std::string());
  return taker.finish(false);
}

MemoryLedger MemoryLedger::of(const std::vector<NamedField>& fields) {
  LedgerTaker taker;
  taker.enterFields(fields);
  return taker.finish(false);
}

MemoryLedger MemoryLedger::ofProcess(const std::vector<NamedField>& fields) {
  LedgerTaker taker;
  taker.enterFields(fields);
  taker.enterProcess();
  return taker.finish(true);
}

std::string MemoryLedger::toText() const {
  std::vector<const MemoryRow*> byField;
  for (const MemoryRow& row : fields) byField.push_back(&row);
  if (inNoField.nCreators() != 0) byField.push_back(&inNoField);
  byField.push_back(&total);
  std::string text = statesToText("field", byField, total);
  if (nInSeveralFields != 0)
    text += "creators in several fields, once in the total: " + std::to_string(nInSeveralFields) + '\n';

  if (total.computing.nOfUnknownSize + total.stuck.nOfUnknownSize + total.unknown.nOfUnknownSize != 0)
    text += "(?): of unknown size, and not in the bytes\n";

  std::vector<const MemoryRow*> byCache;
  for (const CacheMemoryRow& row : caches) byCache.push_back(&row);
  if (inNoCache.nCreators() != 0) byCache.push_back(&inNoCache);
  if (!byCache.empty()) text += '\n' + statesToText("cache", byCache, total);
  if (!caches.empty()) text += '\n' + statisticsToText(caches);

  text += "\naccounted in caches " + Ostrel::toByteText(nAccountedBytes) + ", chunks " +
          Ostrel::toByteText(nChunkBytes) + ", resident set " + Ostrel::toByteText(nResidentBytes) + '\n';
  return text;
}

}  // namespace Tresk
