// The handle: making, copying and releasing values, the questions that every kind answers, and equality.
// PlistNodes.h describes what handles point to; dictionaries and the text form have files of their own.

#include "PortableFoundation/Plist.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "PortableFoundation/PlistNodes.h"
#include "PortableFoundation/SharedText.h"

namespace zekara {

// ---- Making values

// Short text needs no node. The rest of storage_ is zero already, as comparing handles requires.
Plist::Plist(Kind kind, std::string_view bytes) {
  const std::size_t size = bytes.size();
  if (size <= kInlineCapacity) {
    bytes.copy(storage_, size);
    length_ = static_cast<std::uint8_t>(size);
    kind_ = kind;
    return;
  }
  StringNode* const text = StringNode::make(kind, size);
  bytes.copy(text->bytes(), size);
  set(kind, kHoldsNode, std::bit_cast<std::uint64_t>(text));
}

Plist Plist::date(std::int64_t seconds) noexcept {
  Plist date;
  date.set(Kind::Date, 0, static_cast<std::uint64_t>(seconds));
  return date;
}

Plist Plist::array(std::initializer_list<Plist> elements) {
  Plist array(Kind::Array, new ArrayNode);
  for (const Plist& element : elements) array.addObject(element);
  return array;
}

// Reserves exactly what is needed, because an unmodifiable array never grows.
Plist Plist::frozenArray(std::span<Plist> elements) {
  Plist array = Plist::array();
  auto& node = *static_cast<ArrayNode*>(array.node());
  node.elements.reserve(elements.size());
  for (Plist& element : elements) node.append(std::move(element));
  array.freeze();
  return array;
}

Plist::SharedText::SharedText(std::string text)
    : holder_(new TextNode(std::move(text)), Extent{}),
      text_(static_cast<const TextNode*>(holder_.node())->text) {}

// Copies a short part as two whole words if at least as many bytes of the text follow its start, and masks
// the bytes behind the part out: copying a number of bytes that varies is slower.
Plist Plist::SharedText::string(std::string_view part) const {
  const auto offset = static_cast<std::size_t>(part.data() - text_.data());
  if (part.size() <= kInlineCapacity) {
    if (text_.size() - offset < sizeof(Plist)) return part;
    std::uint64_t words[2];
    std::memcpy(words, part.data(), sizeof words);
    constexpr auto kFirst = [](std::size_t bytes) { return (std::uint64_t{1} << (8 * bytes)) - 1; };
    if (part.size() < sizeof words[0]) return Plist(words[0] & kFirst(part.size()), 0, part.size());
    return Plist(words[0], words[1] & kFirst(part.size() - sizeof words[0]), part.size());
  }
  // An extent that its members cannot hold comes out different.
  const Extent extent = {static_cast<std::uint32_t>(offset), static_cast<std::uint16_t>(part.size())};
  if (extent.length != part.size() || extent.offset != offset) return part;
  retain(holder_.node());
  return Plist(holder_.node(), extent);
}

// ---- Counting references

// Relaxed order suffices: a thread that copies a handle owns a reference, so the node cannot be freed
// meanwhile.
void Plist::retain(Node* node) noexcept {
  node->references.fetch_add(1, std::memory_order_relaxed);
}

// Frees the node if this was its last reference. Containers that lose their last reference in turn are put on
// a list that is linked through the containers themselves. So neither the depth of the stack nor memory
// depends on how deep the value is nested.
void Plist::release(Node* node) noexcept {
  // The only owner need not write the count.
  const auto wasLast = [](Node* released) {
    return released->references.load(std::memory_order_acquire) == 1 ||
           released->references.fetch_sub(1, std::memory_order_acq_rel) == 1;
  };
  if (!wasLast(node)) return;
  ContainerNode* waiting = nullptr;
  const auto enqueue = [&](Plist& element) {
    if (!element.isContainer()) return;
    if (wasLast(element.node())) {
      auto* container = static_cast<ContainerNode*>(element.node());
      container->nextToFree = std::exchange(waiting, container);
    }
    element.length_ = 0;  // the element's destructor must not release the node again
  };
  while (node != nullptr) {
    if (node->kind == Kind::Array) {
      auto* array = static_cast<ArrayNode*>(node);
      for (Plist& element : array->elements) enqueue(element);
      delete array;
    } else if (node->kind == Kind::Dictionary) {
      auto* dictionary = static_cast<DictionaryNode*>(node);
      for (Entry& entry : dictionary->entries) enqueue(entry.value);
      delete dictionary;
    } else if (node->kind == Kind::Nil) {
      delete static_cast<TextNode*>(node);
    } else {
      StringNode::free(static_cast<StringNode*>(node));
    }
    node = waiting;
    if (waiting != nullptr) waiting = waiting->nextToFree;
  }
}

// ---- Questions

bool Plist::isMutable() const noexcept {
  return isContainer() && node()->isMutable;
}

// Both must be of one kind: strings, data or dates.
bool Plist::hasSameText(const Plist& other) const noexcept {
  if (isSameHandle(other)) return true;
  return holdsNode() && other.holdsNode() && kind_ == other.kind_ && view() == other.view();
}

std::string_view Plist::stringOfNode() const {
  if (isNil()) return {};
  if (!isString()) raise("its text");
  return view();
}

bool Plist::isEqualToString(std::string_view text) const {
  if (isNil()) return false;
  if (!isString()) raise("a comparison with a string");
  return view() == text;
}

std::string_view Plist::bytes() const& {
  if (isNil()) return {};
  if (kind_ != Kind::Data) raise("its bytes");
  return view();
}

std::int64_t Plist::secondsSince1970() const {
  if (isNil()) return 0;
  if (kind_ != Kind::Date) raise("its point in time");
  return payload<std::int64_t>();
}

// Compares with the limits first, because converting a real number outside the range of the type is
// undefined.
std::int64_t Plist::longLongValue() const {
  constexpr auto kHighest = std::numeric_limits<std::int64_t>::max();
  if (isNil()) return 0;
  if (!isNumber()) raise("its number");
  if (kind_ != Kind::Real) return isBeyondSigned() ? kHighest : payload<std::int64_t>();
  const auto real = payload<double>();
  if (std::isnan(real)) return 0;
  if (real >= 0x1p63) return kHighest;
  return real <= -0x1p63 ? std::numeric_limits<std::int64_t>::min() : static_cast<std::int64_t>(real);
}

std::uint64_t Plist::unsignedLongLongValue() const {
  if (isBeyondSigned()) return payload<std::uint64_t>();
  if (kind_ == Kind::Real && payload<double>() >= 0x1p63) {
    const auto real = payload<double>();
    return real >= 0x1p64 ? std::numeric_limits<std::uint64_t>::max() : static_cast<std::uint64_t>(real);
  }
  return static_cast<std::uint64_t>(std::max<std::int64_t>(longLongValue(), 0));
}

double Plist::doubleValue() const {
  if (isBeyondSigned()) return static_cast<double>(payload<std::uint64_t>());
  return kind_ == Kind::Real ? payload<double>() : static_cast<double>(longLongValue());
}

bool Plist::boolValue() const {
  if (kind_ == Kind::Real) return payload<double>() != 0;
  return isBeyondSigned() || longLongValue() != 0;
}

std::size_t Plist::count() const {
  if (isNil()) return 0;
  if (isArray()) return static_cast<const ArrayNode*>(node())->elements.size();
  if (!isDictionary()) raise("its count");
  return static_cast<const DictionaryNode*>(node())->entries.size();
}

std::span<const Plist> Plist::elements() const {
  if (isNil()) return {};
  if (!isArray()) raise("its elements");
  return static_cast<const ArrayNode*>(node())->elements;
}

void Plist::addObject(Plist element) const {
  arrayToChange().append(std::move(element));
}

Plist Plist::copy() const {
  if (!isContainer()) return *this;
  Plist copy = mutableCopy();
  copy.freeze();
  return copy;
}

// Strings and data are values here, so each is its own copy. The platform has modifiable copies of them, so
// asking for one does not raise.
Plist Plist::mutableCopy() const {
  if (isArray()) {
    Plist copy = array();
    static_cast<ArrayNode*>(copy.node())->elements = static_cast<const ArrayNode*>(node())->elements;
    return copy;
  }
  if (isDictionary()) {
    return Plist(Kind::Dictionary, new DictionaryNode(*static_cast<const DictionaryNode*>(node())));
  }
  if (isNumber() || kind_ == Kind::Date) raise("a modifiable copy");
  return *this;
}

void Plist::freeze() const {
  if (isContainer()) node()->isMutable = false;
}

const char* Plist::kindName() const noexcept {
  constexpr const char* kNames[] = {"nothing", "a string", "a number", "a number",    "a boolean",
                                    "data",    "a date",   "an array", "a dictionary"};  // in Kind's order
  return kNames[static_cast<std::size_t>(kind_)];
}

void Plist::raise(const char* asked) const {
  throw NSException(NSInvalidArgumentException, std::string(kindName()) + " was asked for " + asked);
}

Plist::ArrayNode& Plist::arrayToChange() const {
  if (!isArray()) raise("an additional element");
  if (!node()->isMutable) throw NSException(NSInvalidArgumentException, "an unmodifiable array was changed");
  return *static_cast<ArrayNode*>(node());
}

// ---- Equality

// Compares exactly: converting a 64-bit integer to double would make different numbers equal.
bool Plist::areEqualNumbers(const Plist& left, const Plist& right) noexcept {
  if (left.kind_ != Kind::Real && right.kind_ != Kind::Real) {
    return left.isBeyondSigned() == right.isBeyondSigned() &&
           left.payload<std::uint64_t>() == right.payload<std::uint64_t>();
  }
  if (left.kind_ != Kind::Real) return areEqualNumbers(right, left);
  const auto real = left.payload<double>();
  if (right.kind_ == Kind::Real) {
    const auto other = right.payload<double>();
    return real == other || (std::isnan(real) && std::isnan(other));
  }
  if (real != std::trunc(real)) return false;  // a fraction or NaN
  if (right.isBeyondSigned()) {
    return real >= 0x1p63 && real < 0x1p64 &&
           static_cast<std::uint64_t>(real) == right.payload<std::uint64_t>();
  }
  return real >= -0x1p63 && real < 0x1p63 && static_cast<std::int64_t>(real) == right.payload<std::int64_t>();
}

// `depth` is the number of containers around the values. Two dictionaries of one size are equal if one has
// all entries of the other: a key that is missing gives nil, which no stored value equals.
bool Plist::isEqual(const Plist& left, const Plist& right, int depth) {
  if (left.isNumber() && right.isNumber()) return areEqualNumbers(left, right);
  if (left.kind_ != right.kind_) return false;
  if (left.isNil()) return true;
  if (!left.isContainer()) return left.hasSameText(right);
  if (left.node() == right.node()) return true;
  if (left.count() != right.count()) return false;
  if (depth >= kMaximumPlistDepth) {
    throw NSException(NSInvalidArgumentException, "values too deeply nested were compared");
  }
  if (left.isArray()) {
    return std::equal(left.elements().begin(), left.elements().end(), right.elements().begin(),
                      [depth](const Plist& a, const Plist& b) { return isEqual(a, b, depth + 1); });
  }
  return std::ranges::all_of(left.entries(), [&](const Entry& entry) {
    return isEqual(entry.value, right.objectForKey(entry.key), depth + 1);
  });
}

}  // namespace zekara
