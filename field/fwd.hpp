// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

/// \file
/// Declarations of the field floor, for headers that only mention a type, and the short names of its pointers.

#include <tresk/foundation/fwd.hpp>

namespace Tresk {

// A template instance is no more visible than its arguments, and an argument is as visible as its first declaration.
#pragma GCC visibility push(default)

class DynamicSize;
class SizeInterface;
class FragmentedSizeInterface;

struct TreskTypeIndex;
class TreskTypeBase;
template <class T>
class TreskType;
class TypeList;

struct HyperslabParameters;
template <int N>
class MultiIndex;
class MemBase;
class MemArrayProperties;
template <int N>
class MemArrayBase;
template <class T>
class TypedArray;
template <int N, class T>
class ReferencingMemArray;
template <int N, class T>
class MemArray;

class OwnerBase;
class BinderBase;
class CreativeArrayBase;
class CreativeArray;
class FunctionalCreatorBase;
class FunctionalCreator;
class AsynchronCreator;

class FragmentID;
class FragmentIDCollection;
class FragmentIDCollectionProvider;
class FragmentIDContainer;
class FragmentIterator;
class FragmentIndexIterator;
class FragmentSelector;
class Field;
template <int N>
class RegularlyFragmentedField;
template <class Op, class R, class A, class B>
class BinaryOperator;
template <class Op>
class ComputationalField;
class Fragment;
class FieldCollection;
class BaseSpace;
class BaseSpaceDependency;

#pragma GCC visibility pop

/// An array of any rank and element type.
using MemBasePtr = Ostrel::StrongPtr<MemBase, Ostrel::Cacheable>;
/// A creator, held.
using CreatorPtr = Ostrel::StrongPtr<CreativeArrayBase, Ostrel::Creature>;
/// A creator, observed: the pointer keeps neither it nor its data.
using CreatorWeakPtr = Ostrel::WeakPtr<CreativeArrayBase, Ostrel::Creature>;
/// The record of an element type, held.
using TreskTypePtr = Ostrel::StrongPtr<TreskTypeBase, TreskTypeBase>;
/// The record of an element type, observed.
using TreskTypeWeakPtr = Ostrel::WeakPtr<TreskTypeBase, TreskTypeBase>;
/// A fragment; empty for the unnamed fragment of an unfragmented field.
using FragmentIDPtr = Ostrel::StrongPtr<FragmentID, FragmentID>;
/// The numbering authority of fragments.
using FragmentIDCollectionPtr = Ostrel::StrongPtr<FragmentIDCollection, FragmentIDCollection>;
/// The cache that a creator belongs to, held.
using CachePtr = Ostrel::StrongPtr<Ostrel::Cache, Ostrel::CacheBase>;
/// The same observed, as creators do: none keeps its cache alive.
using CacheWeakPtr = Ostrel::WeakPtr<Ostrel::Cache, Ostrel::CacheBase>;
/// What a saver is known by; empty without one.
using BinderPtr = Ostrel::StrongPtr<BinderBase, BinderBase>;
/// The size that a creator or a field tells.
using SizePtr = Ostrel::StrongPtr<SizeInterface, Ostrel::InterfaceBase>;

}  // namespace Tresk
