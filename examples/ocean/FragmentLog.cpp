// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "FragmentLog.hpp"

#include <tresk/foundation/Mutex.hpp>

#include <algorithm>
#include <chrono>
#include <map>

namespace Example {

using Clock = std::chrono::steady_clock;
using CreatureWeakPtr = Ostrel::WeakPtr<Ostrel::Creature, Ostrel::Creature>;

/// What a log and its listener share.
struct FragmentLog::Book {
  struct Place {
    std::size_t group;
    std::size_t row;
  };

  double toSeconds(Clock::time_point time) const { return std::chrono::duration<double>(time - begin).count(); }
  void note(const Ostrel::CacheEvent& event) {
    const bool isMade = event.kind == Ostrel::CacheEventKind::Produced || event.kind == Ostrel::CacheEventKind::Entered;
    if (!isMade && event.kind != Ostrel::CacheEventKind::Evicted) return;
    const auto place = places.find(event.creator);
    if (place == places.end()) return;
    const Ostrel::MutexLock lock(mutex);
    entries.push_back({place->second.group, place->second.row, isMade, toSeconds(event.time), event.seconds,
                       event.nBytes, event.nHeldBytes});
  }

  const Clock::time_point begin = Clock::now();
  std::vector<std::string> names;
  std::vector<std::size_t> nRows;
  std::map<CreatureWeakPtr, Place> places;  ///< constant once the listener is in use
  mutable Ostrel::Mutex mutex;
  std::vector<Entry> entries TRESK_GUARDED_BY(mutex);
};

FragmentLog::FragmentLog() : book_(std::make_shared<Book>()) {}

std::size_t FragmentLog::addGroup(const std::string& name, const std::vector<Tresk::FieldPtr>& fields) {
  const std::size_t group = book_->names.size();
  std::size_t nRowsSoFar = 0;
  for (std::size_t f = 0; f < fields.size(); ++f) {
    std::size_t row = f;
    for (const Tresk::FragmentIDPtr& fragment : fields[f]->getFragmentIDs()) {
      if (const Tresk::CreatorPtr creator = fields[f]->getCreator(fragment))
        book_->places[CreatureWeakPtr(creator)] = {group, row};
      nRowsSoFar = std::max(nRowsSoFar, row + 1);
      row += fields.size();
    }
  }
  book_->names.push_back(name);
  book_->nRows.push_back(nRowsSoFar);
  return group;
}

Ostrel::CacheListener FragmentLog::makeListener() const {
  return [book = book_](const Ostrel::CacheEvent& event) { book->note(event); };
}

std::size_t FragmentLog::nGroups() const { return book_->names.size(); }
const std::string& FragmentLog::getName(std::size_t group) const { return book_->names.at(group); }
std::size_t FragmentLog::nRows(std::size_t group) const { return book_->nRows.at(group); }

std::vector<FragmentLog::Entry> FragmentLog::getEntries() const {
  const Ostrel::MutexLock lock(book_->mutex);
  std::vector<Entry> sorted = book_->entries;
  std::stable_sort(sorted.begin(), sorted.end(), [](const Entry& a, const Entry& b) { return a.seconds < b.seconds; });
  return sorted;
}

double FragmentLog::now() const { return book_->toSeconds(Clock::now()); }

std::vector<FragmentLog::State> paintRows(const std::vector<FragmentLog::Entry>& entries, std::size_t group,
                                          std::size_t nRows, double begin, double end, std::size_t nSpans,
                                          std::size_t nLeast) {
  using State = FragmentLog::State;
  std::vector<State> spans(nRows * nSpans, State::Untouched);
  const double perSecond = static_cast<double>(nSpans) / (end - begin);
  const auto spanOf = [&](double seconds) {
    const double span = std::clamp((seconds - begin) * perSecond, 0.0, static_cast<double>(nSpans - 1));
    return static_cast<std::size_t>(span);
  };
  const auto paint = [&](std::size_t row, std::size_t first, std::size_t last, State state) {
    std::fill(spans.begin() + static_cast<std::ptrdiff_t>(row * nSpans + first),
              spans.begin() + static_cast<std::ptrdiff_t>(row * nSpans + last), state);
  };
  // The states that last first, each until another one begins, and over them the productions.
  for (const FragmentLog::Entry& entry : entries)
    if (entry.group == group && entry.seconds < end)
      paint(entry.row, spanOf(entry.seconds), nSpans, entry.isMade ? State::Held : State::Forgotten);
  for (const FragmentLog::Entry& entry : entries)
    if (entry.group == group && entry.isMade && entry.seconds >= begin && entry.seconds < end) {
      const std::size_t first = spanOf(entry.seconds - entry.duration);
      const std::size_t last = std::max(spanOf(entry.seconds) + 1, first + nLeast);
      paint(entry.row, first, std::min(last, nSpans), State::Computing);
    }
  return spans;
}

std::vector<HeldBytes> addUpBytes(const std::vector<FragmentLog::Entry>& entries, std::size_t nGroups) {
  std::vector<HeldBytes> levels;
  std::vector<unsigned long long> groups(nGroups, 0);
  for (const FragmentLog::Entry& entry : entries) {
    if (entry.isMade)
      groups.at(entry.group) += entry.nBytes;
    else
      groups.at(entry.group) -= std::min(entry.nBytes, groups.at(entry.group));
    levels.push_back({entry.seconds, groups, entry.nHeld});
  }
  return levels;
}

}  // namespace Example
