// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/Field.hpp>

#include <utility>
#include <vector>

namespace Tresk {

namespace Detail {

/// Holds one creator after the other during a walk under a field's lock. It is declared before the lock: slots are
/// reassigned under the shared lock, and a creator that only the walk still holds dies after it, as its end may ask
/// the field. Until then caches ask only creators whose release calls nobody.
class WalkHolder {
 public:
  /// The creator of a slot, held until the next call; empty if there is none.
  const CreatorPtr& holdPointer(const CreatorPtr& slot) {
    if (!held_.resetUnlessLast()) last_.push_back(std::move(held_));
    held_.fill(slot);
    return held_;
  }
  /// The same as an object, or null.
  CreativeArrayBase* hold(const CreatorPtr& slot) {
    const CreatorPtr& held = holdPointer(slot);
    return held ? held.get() : nullptr;
  }

 private:
  const Ostrel::Detail::CacheWalk walk_;  // ends last
  CreatorPtr held_;
  std::vector<CreatorPtr> last_;
};

}  // namespace Detail

template <class F>
void Field::visitCreators(const F& f) const {
  Detail::WalkHolder holder;
  const SharedFragmentLock lock(mutex_);
  for (const CreatorPtr& value : fragments_.values) {
    CreativeArrayBase* const creator = holder.hold(value);
    if (creator != nullptr && f(*creator)) return;
  }
}

}  // namespace Tresk
