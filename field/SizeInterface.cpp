// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/SizeInterface.hpp>

namespace Tresk {

SizeInterface::SizeInterface(const DynamicSize& size) : DynamicSize(size) {}
SizeInterface::SizeInterface(const SizeInterface& other)
    : Ostrel::Interface<SizeInterface>(), DynamicSize(static_cast<const DynamicSize&>(other)) {}
SizeInterface::SizeInterface(int rank, const SizeInterface& a, const SizeInterface& b) : DynamicSize(rank, a, b) {}
SizeInterface::~SizeInterface() = default;

FragmentedSizeInterface::FragmentedSizeInterface(const DynamicSize& size, unsigned long long nFragments)
    : SizeInterface(size), nFragments_(nFragments) {}
FragmentedSizeInterface::~FragmentedSizeInterface() = default;

}  // namespace Tresk
