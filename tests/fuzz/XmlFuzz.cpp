// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/RegularlyFragmentedField.hpp>
#include <tresk/field/TreskType.hpp>
#include <tresk/foundation/ReferenceRecord.hpp>

#include <support/NameArray.hpp>

#include "FuzzSupport.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// \file
/// Descriptions of fields, collections and fragments with names of any bytes, read back by a small parser and compared
/// with what was built.
///
/// The texts are no XML, deliberately: names stand in them as they are, and one element is opened twice in place of
/// being closed. Blanks and line ends are fixed. All of that is looked at here.

namespace {

using Tresk::CreatorPtr;
using Tresk::DynamicSize;
using Tresk::Field;
using Tresk::FragmentID;
using Tresk::FragmentIDCollection;
using Tresk::FragmentIDCollectionPtr;
using Tresk::FragmentIDPtr;
using TreskFuzz::demand;
using TreskFuzz::onceIn;
using TreskFuzz::oneOf;
using TreskFuzz::upTo;

// ------------------------------------------------------------------------------------------------------------- reading

/// One element: what stands before its first tag, its text or its children, and what stands before its last tag.
struct Element {
  std::string tag;
  std::string indent;
  std::string text;
  std::vector<Element> children;
  bool isLine = false;      ///< opened and closed on one line, with a text between the tags
  bool isEmpty = false;     ///< one tag for both
  bool isReopened = false;  ///< ends with an opening tag
};

/// Reads a description into a tree. Names are taken by their length, as nothing in the text tells where they end.
class Reader {
 public:
  Reader(std::string_view text, const std::vector<std::string>& names) : rest_(text), names_(names) {}

  std::vector<Element> readAll() {
    std::vector<Element> elements;
    while (!rest_.empty()) elements.push_back(readElement());
    demand(nNames_ == names_.size(), "number of names");
    return elements;
  }

 private:
  static constexpr std::string_view TagCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";

  std::string take(std::size_t n) {
    demand(n <= rest_.size(), "end of a text");
    const std::string taken(rest_.substr(0, n));
    rest_.remove_prefix(n);
    return taken;
  }
  void take(std::string_view expected) {
    demand(rest_.substr(0, expected.size()) == expected, "text that is fixed");
    rest_.remove_prefix(expected.size());
  }
  bool takeIf(std::string_view expected) {
    if (rest_.substr(0, expected.size()) != expected) return false;
    rest_.remove_prefix(expected.size());
    return true;
  }
  std::string takeBlanks() { return take(std::min(rest_.find_first_not_of(" \t"), rest_.size())); }

  Element readElement() {
    Element element;
    element.indent = takeBlanks();
    take("<");
    element.tag = take(std::min(rest_.find_first_not_of(TagCharacters), rest_.size()));
    demand(!element.tag.empty(), "name of an element");
    const std::string end = "</" + element.tag + ">\n";
    if (takeIf("/>\n")) {
      element.isEmpty = true;
      return element;
    }
    take(">");
    const bool isName = element.tag == "NAME";
    if (isName || !takeIf("\n")) {
      element.isLine = true;
      element.text = isName ? takeName(end) : take(std::min(rest_.find(end), rest_.size()));
      take(end);
      return element;
    }
    const std::string last = element.indent + end;
    const std::string again = element.indent + "<" + element.tag + ">\n";
    while (!takeIf(last)) {
      // The type alone is opened a second time in place of being closed.
      if (element.tag == "TRESKTYPE" && takeIf(again)) {
        element.isReopened = true;
        break;
      }
      element.children.push_back(readElement());
    }
    return element;
  }

  std::string takeName(const std::string& end) {
    demand(nNames_ < names_.size(), "name that nobody gave");
    const std::string& name = names_[nNames_++];
    // A name without the closing tag ends where any reader would see it end.
    if (name.find("</") == std::string::npos) demand(rest_.find(end) == name.size(), "end of a name");
    demand(rest_.substr(0, name.size()) == name, "bytes of a name");
    return take(name.size());
  }

  std::string_view rest_;
  const std::vector<std::string>& names_;
  std::size_t nNames_ = 0;
};

// ------------------------------------------------------------------------------------------------------------ expected

bool isSame(const Element& a, const Element& b) {
  if (a.tag != b.tag || a.indent != b.indent || a.text != b.text || a.isLine != b.isLine || a.isEmpty != b.isEmpty ||
      a.isReopened != b.isReopened || a.children.size() != b.children.size())
    return false;
  for (std::size_t i = 0; i < a.children.size(); ++i)
    if (!isSame(a.children[i], b.children[i])) return false;
  return true;
}

std::string blanks(int n) { return "\t" + std::string(static_cast<std::size_t>(n), ' '); }

Element line(const std::string& tag, const std::string& indent, const std::string& text) {
  Element element;
  element.tag = tag;
  element.indent = indent;
  element.text = text;
  element.isLine = true;
  return element;
}
Element empty(const std::string& tag, const std::string& indent) {
  Element element;
  element.tag = tag;
  element.indent = indent;
  element.isEmpty = true;
  return element;
}
Element block(const std::string& tag, const std::string& indent) {
  Element element;
  element.tag = tag;
  element.indent = indent;
  return element;
}

/// A number as a signed one of 32 bits.
std::string signedText(unsigned int n) {
  const long long value = n;
  return std::to_string(n >= 0x80000000U ? value - 0x100000000LL : value);
}

// --------------------------------------------------------------------------------------------------------------- model

struct PlainFragment {
  std::string name;
  unsigned int number = 0;
};

struct PlainType {
  std::string name;
  unsigned int multiplicity = 1;
};

struct PlainCreator {
  std::optional<std::string> size;
  bool hasData = false;
  std::optional<PlainType> type;
  bool isDeclared = false;  ///< the type is known without the data
};

/// A field or a collection as its description should tell it.
struct Plain {
  const FragmentIDCollection* collection = nullptr;
  std::vector<std::optional<PlainFragment>> slots;
  std::map<std::uint32_t, std::optional<PlainCreator>> table;

  static void append(std::vector<Element>& to, const PlainFragment& fragment) {
    to.push_back(line("NUMERICALID", blanks(5), signedText(fragment.number)));
    to.push_back(line("NAME", blanks(5), fragment.name));
  }
  Element expectedCollection() const {
    if (collection == nullptr) return empty("FRAGMENTIDCOLLECTION", blanks(4));
    Element all = block("FRAGMENTIDCOLLECTION", blanks(4));
    char address[32];
    std::snprintf(address, sizeof(address), "%p", static_cast<const void*>(collection));
    all.children.push_back(line("PTR", "\t\t ", address));
    all.children.push_back(line("NUMBEROFFRAGMENTIDS", blanks(6), std::to_string(slots.size())));
    for (std::size_t i = 0; i < slots.size(); ++i) {
      Element slot = block("FRAGMENTID", blanks(4));
      slot.children.push_back(line("NUMBER", blanks(5), std::to_string(i)));
      if (slots[i]) append(slot.children, *slots[i]);
      all.children.push_back(slot);
    }
    return all;
  }
  std::vector<Element> expectedField() const {
    Element type = block("TRESKTYPE", blanks(4));
    type.isReopened = true;
    // Whoever declares its type comes first.
    const PlainType* known = nullptr;
    for (const bool isDeclared : {true, false})
      for (const auto& [number, creator] : table)
        if (known == nullptr && creator && creator->type && creator->isDeclared == isDeclared) known = &*creator->type;
    type.children.push_back(line("TYPE", blanks(5), known != nullptr ? known->name : ""));
    if (known != nullptr) {
      type.children.push_back(line("MULTIPLICITY", blanks(5), std::to_string(known->multiplicity)));
      type.children.push_back(line("RANK", blanks(5), "0"));
      type.children.push_back(line("CHART", blanks(5), "void"));
    }
    std::vector<Element> all{type, expectedCollection()};
    all.push_back(line("NUMBEROFRAGMENTS", blanks(3), std::to_string(table.size())));
    for (const auto& [number, creator] : table) {
      Element fragment = block("FRAGMENT", blanks(4));
      fragment.children.push_back(line("ID", blanks(6), signedText(number)));
      if (!creator) {
        fragment.children.push_back(empty("NODATA", blanks(5)));
      } else {
        fragment.children.push_back(creator->size ? line("SIZE", blanks(6), *creator->size) : empty("SIZE", ""));
        fragment.children.push_back(creator->hasData ? block("DATA", blanks(6)) : empty("DATA", blanks(6)));
      }
      all.push_back(fragment);
    }
    return all;
  }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& slot : slots)
      if (slot) names.push_back(slot->name);
    return names;
  }
};

void compare(const std::string& text, const std::vector<std::string>& names, const std::vector<Element>& expected) {
  const std::vector<Element> elements = Reader(text, names).readAll();
  demand(elements.size() == expected.size(), "number of elements");
  for (std::size_t i = 0; i < elements.size(); ++i) demand(isSame(elements[i], expected[i]), "element of a text");
}

// ---------------------------------------------------------------------------------------------------------- generation

/// Names that look like what stands around them, and names of any bytes.
std::string anyName(FuzzedDataProvider& data) {
  static const std::vector<std::string> pieces{"<",
                                               "&",
                                               "]]>",
                                               "\"",
                                               "</NAME>\n",
                                               "</NAME>",
                                               "<NAME>",
                                               "\t     ",
                                               "\n",
                                               "<!--",
                                               "&lt;",
                                               "\xC3\xA4",
                                               "\xC3",
                                               "\xFF\xFE",
                                               "\x01\x1B",
                                               "%s%n",
                                               "</FRAGMENT",
                                               "\r\n",
                                               std::string(3, 0),
                                               "a",
                                               "<SIZE/>\n",
                                               "\t    </FRAGMENTID>\n"};
  if (data.ConsumeBool()) return data.ConsumeRandomLengthString(24);
  std::string name;
  for (std::size_t n = upTo(data, 4); n > 0; --n) name += oneOf(data, pieces);
  return name;
}

void compareFragment(const FragmentID& fragment, const PlainFragment& plain) {
  std::vector<Element> expected;
  Plain::append(expected, plain);
  compare(fragment.xml(), {plain.name}, expected);
}

/// A collection that is made from names, or empty.
FragmentIDCollectionPtr makeCollection(FuzzedDataProvider& data, Plain& plain) {
  if (!onceIn(data, 4)) return FragmentIDCollectionPtr(new FragmentIDCollection);
  std::vector<std::string> names(upTo(data, 4));
  for (std::string& name : names) {
    name = anyName(data);
    plain.slots.emplace_back(PlainFragment{name, static_cast<unsigned int>(plain.slots.size())});
  }
  const DynamicSize shape{names.size()};
  return FragmentIDCollectionPtr(new FragmentIDCollection(TreskTest::makeNames(shape, names)));
}

/// Adds a slot in one of the ways to do it.
void addSlot(FuzzedDataProvider& data, FragmentIDCollection& collection, Plain& plain) {
  const std::size_t nSlots = plain.slots.size();
  switch (upTo(data, 3)) {
    case 0: {
      const unsigned int number = collection.getID(FragmentIDPtr());
      if (number == nSlots) plain.slots.emplace_back();
      demand(!plain.slots[number], "slot of no fragment");
      break;
    }
    case 1: {
      // A fragment of any number in a slot that is open to the caller.
      const std::string name = anyName(data);
      FragmentIDPtr& slot = collection.makeFragmentID(name);
      if (collection.nFragmentIDs() > nSlots) plain.slots.emplace_back();
      const PlainFragment fragment{anyName(data), data.ConsumeIntegral<std::uint32_t>()};
      slot = FragmentIDPtr(new FragmentID(fragment.name, fragment.number, {}));
      compareFragment(*slot, fragment);
      plain.slots[collection.findNumericalIDByName(name)] = fragment;
      break;
    }
    default: {
      const std::string name = anyName(data);
      collection.makeFragmentID(name);
      if (collection.nFragmentIDs() > nSlots)
        plain.slots.emplace_back(PlainFragment{name, static_cast<unsigned int>(nSlots)});
    }
  }
}

template <class T>
Tresk::MemBasePtr makeData(FuzzedDataProvider& data, std::string& size) {
  const unsigned long long n0 = 1 + upTo(data, 4);
  const unsigned long long n1 = 1 + upTo(data, 4);
  size = std::to_string(n0) + "x" + std::to_string(n1);
  return Tresk::MemBasePtr(new Tresk::MemArray<2, T>(Tresk::MultiIndex<2>(n0, n1), Tresk::CreatorWeakPtr()));
}

/// A creator that declares nothing, its size, or its size and type, and one that has data.
CreatorPtr makeCreator(FuzzedDataProvider& data, PlainCreator& plain) {
  using Triple = Quorvel::FixedArray<double, 3>;
  using Forgetful = Ostrel::AlzheimerCreator<Tresk::MemBase, Tresk::CreativeArrayBase>;
  const std::size_t kind = upTo(data, 2);
  const PlainType types[]{{"double", 1}, {"unsigned int", 1}, {"Quorvel::FixedArray<double, 3>", 3}};
  if (data.ConsumeBool()) {
    std::string size;
    const Tresk::MemBasePtr array = kind == 0   ? makeData<double>(data, size)
                                    : kind == 1 ? makeData<unsigned int>(data, size)
                                                : makeData<Triple>(data, size);
    plain = {size, true, types[kind], false};
    return CreatorPtr(new Forgetful(array, Tresk::CacheWeakPtr()));
  }
  // Nothing of this is ever produced.
  const CreatorPtr creator(new Tresk::FunctionalCreator(
      []() -> Tresk::MemBasePtr {
        demand(false, "production for a description");
        return {};
      },
      false, Tresk::CacheWeakPtr()));
  if (onceIn(data, 4)) return creator;
  std::vector<unsigned long long> extents(upTo(data, 5));
  std::string size;
  for (unsigned long long& extent : extents) {
    extent = TreskFuzz::number(data, 20);
    size += (size.empty() ? "" : "x") + std::to_string(extent);
  }
  plain.size = size;
  Tresk::TreskTypePtr type;
  if (data.ConsumeBool()) {
    plain.type = types[kind];
    plain.isDeclared = true;
    type = kind == 0   ? Tresk::getTreskType<double>()
           : kind == 1 ? Tresk::getTreskType<unsigned int>()
                       : Tresk::getTreskType<Triple>();
  }
  creator->addMetaInfo(DynamicSize(static_cast<int>(extents.size()), extents.data()), type);
  return creator;
}

/// Fills a field and reads its description again and again. The expected one stands behind some elements.
template <class AnyField>
void useField(FuzzedDataProvider& data, AnyField& field, Plain& plain, const std::vector<Element>& before) {
  const auto read = [&] {
    std::vector<Element> expected = plain.expectedField();
    expected.insert(expected.begin(), before.begin(), before.end());
    compare(field.xml(), plain.names(), expected);
  };
  for (int nOperations = 0; nOperations < 24 && data.remaining_bytes() > 0; ++nOperations) {
    if (plain.collection != nullptr && data.ConsumeBool()) {
      addSlot(data, *field.getFragmentIDCollection(), plain);
    } else {
      const auto number = static_cast<unsigned int>(TreskFuzz::number(data, 12));
      std::optional<PlainCreator> described;
      CreatorPtr creator;
      if (!onceIn(data, 4)) creator = makeCreator(data, described.emplace());
      field.setCreatorViaFragmentIndex(number, creator);
      plain.table[number] = described;
    }
    if (onceIn(data, 6)) read();
  }
  read();
  read();  // the first time has changed nothing
}

void runField(FuzzedDataProvider& data) {
  Plain plain;
  const FragmentIDCollectionPtr collection = onceIn(data, 4) ? FragmentIDCollectionPtr() : makeCollection(data, plain);
  plain.collection = collection.get();
  const Tresk::FieldPtr field(new Field(collection));
  useField(data, *field, plain, {});
  if (collection) compare(collection->xml(), plain.names(), {plain.expectedCollection()});
}

/// A grid of blocks, whose names end with a suffix of any bytes.
void runRegularField(FuzzedDataProvider& data) {
  using RegularField = Tresk::RegularlyFragmentedField<3>;
  const unsigned long long extents[]{upTo(data, 2), upTo(data, 2), upTo(data, 2)};
  const std::string suffix = anyName(data);
  Plain plain;
  for (unsigned long long k = 0; k < extents[2]; ++k)
    for (unsigned long long j = 0; j < extents[1]; ++j)
      for (unsigned long long i = 0; i < extents[0]; ++i) {
        const std::string name = std::to_string(i) + "x" + std::to_string(j) + "x" + std::to_string(k) + suffix;
        plain.slots.emplace_back(PlainFragment{name, static_cast<unsigned int>(plain.slots.size())});
      }
  const Ostrel::StrongPtr<RegularField, Tresk::CreatorContainer> field(
      new RegularField(Tresk::MultiIndex<3>(extents[0], extents[1], extents[2]), suffix));
  plain.collection = field->getFragmentIDCollection().get();
  useField(data, *field, plain, {line("REGULARLYFRAGMENTIONDIMENSIONS", "", "3")});
}

void runCollection(FuzzedDataProvider& data) {
  Plain plain;
  const FragmentIDCollectionPtr collection = makeCollection(data, plain);
  plain.collection = collection.get();
  for (int nOperations = 0; nOperations < 24 && data.remaining_bytes() > 0; ++nOperations)
    addSlot(data, *collection, plain);
  compare(collection->xml(), plain.names(), {plain.expectedCollection()});
}

void runFragment(FuzzedDataProvider& data) {
  const PlainFragment plain{anyName(data), data.ConsumeIntegral<std::uint32_t>()};
  const FragmentIDPtr fragment(new FragmentID(plain.name, plain.number, {}));
  compareFragment(*fragment, plain);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t n) {
  FuzzedDataProvider data(bytes, n);
  const long long nRecords = Ostrel::ReferenceRecord::nLive();
  switch (upTo(data, 5)) {
    case 0:
      runFragment(data);
      break;
    case 1:
      runCollection(data);
      break;
    case 2:
      runRegularField(data);
      break;
    default:
      runField(data);
  }
  demand(Ostrel::ReferenceRecord::nLive() == nRecords, "objects that stay behind");
  return 0;
}
