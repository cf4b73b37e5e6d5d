// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/TreskTypeBase.hpp>
#include <tresk/foundation/InterfaceBase.hpp>

namespace Tresk {

/// Says on a creator which rank and element type its data will have, without producing them.
class TRESK_EXPORT MemArrayProperties : public Ostrel::Interface<MemArrayProperties> {
 public:
  MemArrayProperties(int rank, const TreskTypeWeakPtr& type);
  ~MemArrayProperties() override;

  int getRank() const noexcept { return rank_; }
  /// The element type; weak, so that the interface keeps no record alive.
  const TreskTypeWeakPtr& getType() const noexcept { return type_; }

 private:
  int rank_;
  TreskTypeWeakPtr type_;
};

}  // namespace Tresk
