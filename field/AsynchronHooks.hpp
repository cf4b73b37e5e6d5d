// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

#include <functional>

namespace Tresk::Detail {

/// Points of `AsynchronCreator` at which tests hold a thread. Empty outside tests; written while no thread works.
struct TRESK_EXPORT AsynchronHooks {
  std::function<void()> beforeUpgrade;  ///< on the thread, before it holds the creator
  std::function<void()> beforeLock;     ///< on the thread, before it takes the creation mutex
  std::function<void()> beforeWait;     ///< in `produce`, before it waits for the announcement of a thread
};

/// The hooks of the process.
TRESK_EXPORT AsynchronHooks& asynchronHooks();

}  // namespace Tresk::Detail
