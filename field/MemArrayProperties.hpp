// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/TreskTypeBase.hpp>
#include <tresk/foundation/InterfaceBase.hpp>

namespace Tresk {

/// Says on a creator which rank and element type its data will have, without producing them.
class TRESK_EXPORT MemArrayProperties : public Ostrel::Interface<MemArrayProperties> {
 public:
  /// \param rank number of dimensions; \param type element type, may be empty
  MemArrayProperties(int rank, const TreskTypeWeakPtr& type);
  ~MemArrayProperties() override;

  /// The number of dimensions.
  int getRank() const noexcept { return rank_; }
  /// The element type; weak, so that the interface keeps no record alive.
  const TreskTypeWeakPtr& getType() const noexcept { return type_; }

 private:
  int rank_;
  TreskTypeWeakPtr type_;
};

}  // namespace Tresk
