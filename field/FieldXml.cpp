// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Descriptions as text. Indentation, names and the element that is opened twice are fixed: consumers match them
// literally.

#include <tresk/field/WalkHolder.hpp>
#include <tresk/foundation/Diagnostics.hpp>

#include <charconv>
#include <cstdio>
#include <string_view>

namespace Tresk {

namespace {

/// Room for one slot of a collection or one fragment of a field, which take about three quarters of it.
constexpr std::size_t RoomForEntry = 200;

template <class Integer>
void appendNumber(std::string& text, std::string_view before, Integer number, std::string_view after) {
  char digits[24];
  const std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits), number);
  text.append(before).append(digits, end.ptr).append(after);
}

void appendFragmentID(std::string& text, const FragmentID& fragment) {
  appendNumber(text, "\t     <NUMERICALID>", static_cast<std::int32_t>(fragment.getNumericalID()), "</NUMERICALID>\n");
  text.append("\t     <NAME>").append(fragment.getName()).append("</NAME>\n");
}

void appendCollection(std::string& text, const FragmentIDCollection& collection) {
  const std::vector<FragmentIDPtr>& slots = collection.getFragmentIDs();
  char address[32];
  std::snprintf(address, sizeof(address), "%p", static_cast<const void*>(&collection));
  text.append("\t    <FRAGMENTIDCOLLECTION>\n\t\t <PTR>").append(address).append("</PTR>\n");
  appendNumber(text, "\t      <NUMBEROFFRAGMENTIDS>", slots.size(), "</NUMBEROFFRAGMENTIDS>\n");
  for (std::size_t i = 0; i < slots.size(); ++i) {
    appendNumber(text, "\t    <FRAGMENTID>\n\t     <NUMBER>", i, "</NUMBER>\n");
    if (slots[i]) appendFragmentID(text, *slots[i]);
    text.append("\t    </FRAGMENTID>\n");
  }
  text.append("\t    </FRAGMENTIDCOLLECTION>\n");
}

void appendCreator(std::string& text, const CreativeArrayBase& creator) {
  if (const SizePtr size = getSize(creator))
    text.append("\t      <SIZE>").append(size->str()).append("</SIZE>\n");
  else
    text.append("<SIZE/>\n");  // at the margin, deliberately
  text.append(creator.hasData() ? "\t      <DATA>\n\t      </DATA>\n" : "\t      <DATA/>\n");
}

}  // namespace

std::string FragmentID::xml() const {
  std::string text;
  appendFragmentID(text, *this);
  return text;
}

std::string FragmentIDCollection::xml() const {
  std::string text;
  text.reserve(RoomForEntry * (nFragmentIDs() + 1));
  appendCollection(text, *this);
  return text;
}

std::string Field::xml() const {
  std::string text;
  text.reserve(RoomForEntry * (getFragmentIDs().size() + nFragments() + 2));
  text.append("\t    <TRESKTYPE>\n");
  if (const TreskTypePtr type{getElementTreskType()}) {
    text.append("\t     <TYPE>").append(Ostrel::Typename(type->getType())).append("</TYPE>\n");
    appendNumber(text, "\t     <MULTIPLICITY>", type->multiplicity, "</MULTIPLICITY>\n");
    appendNumber(text, "\t     <RANK>", static_cast<unsigned int>(type->rank), "</RANK>\n");
    text.append("\t     <CHART>").append(type->chartName).append("</CHART>\n");
  } else {
    text.append("\t     <TYPE></TYPE>\n");
  }
  text.append("\t    <TRESKTYPE>\n");  // opened again and never closed, deliberately
  if (const FragmentIDCollectionPtr collection = getFragmentIDCollection())
    appendCollection(text, *collection);
  else
    text.append("\t    <FRAGMENTIDCOLLECTION/>\n");

  Detail::WalkHolder holder;
  const SharedFragmentLock lock(mutex_);
  const std::size_t nEntries = fragments_.keys.size();
  appendNumber(text, "\t   <NUMBEROFRAGMENTS>", nEntries, "</NUMBEROFRAGMENTS>\n");
  for (std::size_t i = 0; i < nEntries; ++i) {
    appendNumber(text, "\t    <FRAGMENT>\n\t      <ID>", static_cast<std::int32_t>(fragments_.keys[i]), "</ID>\n");
    if (const CreativeArrayBase* const creator = holder.hold(fragments_.values[i]))
      appendCreator(text, *creator);
    else
      text.append("\t     <NODATA/>\n");
    text.append("\t    </FRAGMENT>\n");
  }
  return text;
}

}  // namespace Tresk
