#pragma once

#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace zekara {

// Containers may stand inside one another this deep. The property-list reader refuses more; comparing,
// describing or writing a value that a program nested deeper raises.
inline constexpr int kMaximumPlistDepth = 512;

// A property-list value: nothing (nil), a string, number, boolean, data, date, array or dictionary.
//
// Scalars, strings and data are values. An array or a dictionary is a shared object: copying the handle
// shares the object, and a change through one handle is seen through all of them. Whether an object may be
// changed is a property of the object, not of the handle, so changing operations are const. copy() and
// mutableCopy() make a new object that shares the elements of the old one.
//
// Nil can be asked anything: it answers nil, 0, false, an empty string or an empty range. Asking any other
// value what its kind does not know, storing nil, and changing what cannot be changed raise NSException
// "NSInvalidArgumentException" with a sentence that names the kind and what was asked; the value stays as it
// was.
//
// Strings are UTF-8; nothing checks that here, the property-list writer refuses what is not. A dictionary
// keeps the order in which its keys were first stored. A container that holds itself, at any level, is never
// freed.
//
// Threads: as with standard containers, values may be read and copied by several threads at once; changing
// one needs exclusion from every reader of the same object.
class Plist {
 public:
  enum class Kind : std::uint8_t { Nil, String, Integer, Real, Boolean, Data, Date, Array, Dictionary };
  struct Entry;
  class SharedText;

  Plist() noexcept = default;
  // Conversions are implicit, as literals in a tree are to read like the tree.
  // NOLINTBEGIN(google-explicit-constructor)
  Plist(std::string_view text) : Plist(Kind::String, text) {}
  Plist(const char* text) : Plist(std::string_view(text)) {}
  Plist(const std::string& text) : Plist(std::string_view(text)) {}
  Plist(double real) noexcept { set(Kind::Real, 0, std::bit_cast<std::uint64_t>(real)); }
  template <std::integral T>
  requires(!std::same_as<T, char>) Plist(T number)
  noexcept {
    constexpr bool kIsBoolean = std::same_as<T, bool>;
    const auto bits = static_cast<std::uint64_t>(number);
    const bool isBeyondSigned = std::is_unsigned_v<T> && bits >> 63 != 0;
    set(kIsBoolean ? Kind::Boolean : Kind::Integer, isBeyondSigned ? 1 : 0, bits);
  }
  // NOLINTEND(google-explicit-constructor)

  // `bytes` are copied.
  static Plist data(std::string_view bytes) { return Plist(Kind::Data, bytes); }
  // Whole seconds since 1970-01-01T00:00:00Z.
  static Plist date(std::int64_t seconds) noexcept;
  // New, modifiable containers. Storing nil raises, as with the changing operations below; a key given twice
  // keeps its first place and its last value.
  static Plist array(std::initializer_list<Plist> elements = {});
  static Plist dictionary(std::initializer_list<Entry> entries = {});
  static Plist dictionaryWithCapacity(std::size_t capacity);
  // New, unmodifiable containers of values that are moved out of the given ones: an array's elements; a
  // dictionary's keys, each followed by its value. Otherwise as above.
  static Plist frozenArray(std::span<Plist> elements);
  static Plist frozenDictionary(std::span<Plist> keysAndValues);

  Plist(const Plist& other) noexcept { shareFrom(other); }
  Plist(Plist&& other) noexcept { takeFrom(other); }
  Plist& operator=(const Plist& other) noexcept { return *this = Plist(other); }
  // The old value is released last, because `other` may be part of it.
  Plist& operator=(Plist&& other) noexcept {
    if (this == &other) return *this;
    Node* const released = holdsNode() ? node() : nullptr;
    takeFrom(other);
    if (released != nullptr) release(released);
    return *this;
  }
  ~Plist() {
    if (holdsNode()) release(node());
  }

  Kind kind() const noexcept { return kind_; }
  bool isNil() const noexcept { return kind_ == Kind::Nil; }
  bool isString() const noexcept { return kind_ == Kind::String; }
  // Integer, real or boolean.
  bool isNumber() const noexcept {
    return kind_ == Kind::Integer || kind_ == Kind::Real || kind_ == Kind::Boolean;
  }
  bool isArray() const noexcept { return kind_ == Kind::Array; }
  bool isDictionary() const noexcept { return kind_ == Kind::Dictionary; }
  // False for everything but containers that may be changed.
  bool isMutable() const noexcept;
  // Whether both handles hold the very same array or dictionary.
  bool isSameObject(const Plist& other) const noexcept {
    return isContainer() && other.isContainer() && node() == other.node();
  }

  // A string's UTF-8 bytes. The view lives as long as this handle is neither changed nor destroyed.
  std::string_view string() const&;
  std::string_view string() && = delete;
  // Whether this string holds exactly the characters of `text`; false for nil.
  bool isEqualToString(std::string_view text) const;
  // The bytes of data; the view lives as string()'s does.
  std::string_view bytes() const&;
  std::string_view bytes() && = delete;
  // A date's seconds since 1970-01-01T00:00:00Z.
  std::int64_t secondsSince1970() const;

  // A number's value; a boolean is 1 or 0. The integer forms cut a fraction off and saturate.
  std::int64_t longLongValue() const;
  std::uint64_t unsignedLongLongValue() const;
  double doubleValue() const;
  bool boolValue() const;
  // Whether this is an integer of 2^63 or more, which only unsignedLongLongValue() gives in full.
  bool isBeyondSigned() const noexcept { return kind_ == Kind::Integer && length_ != 0; }

  // How many elements an array, or entries a dictionary, holds.
  std::size_t count() const;

  // An array's elements. The range lives until the array changes.
  std::span<const Plist> elements() const;
  void addObject(Plist element) const;

  // A dictionary's entries, in order. The range lives until the dictionary changes.
  std::span<const Entry> entries() const;
  // The value under `key`, nil when there is none. Constant time in the mean, logarithmic where all keys were
  // stored in ascending order, whatever keys a hostile writer chose.
  Plist objectForKey(const Plist& key) const;
  // The place of `key` among the entries; count() if there is none.
  std::size_t placeOfKey(const Plist& key) const;
  // Stores `value` under `key`, replacing an earlier value in its place. A key is any value but nil and
  // containers; only string keys can be written as a property list.
  void setObject_forKey(Plist value, Plist key) const;
  // The same, but leaves an earlier value alone, and `value` too. Returns the earlier value; nil when `value`
  // was moved in.
  Plist setObject_forKeyIfAbsent(Plist& value, Plist key) const;

  // An unmodifiable copy: containers are copied one level deep and share their elements; scalars are
  // themselves.
  Plist copy() const;
  // A modifiable copy, likewise. A number, a boolean and a date have none: raises.
  Plist mutableCopy() const;
  // Makes the array or dictionary itself, not what it holds, unmodifiable from now on.
  void freeze() const;

  // Property-list equality: same kind and same content. Numbers are equal when their values are, exactly and
  // whatever their width; a boolean is the number 1 or 0; NaN equals NaN. Raises beyond kMaximumPlistDepth.
  friend bool operator==(const Plist& left, const Plist& right) {
    return left.isSameHandle(right) || isEqual(left, right, 0);
  }

  // The text that "%@" shows: a string itself, "(null)" for nil, a boolean as 1 or 0, an integer in decimal,
  // a real in its shortest form that reads back the same, a date as "2009-02-13 23:31:30 +0000". Data and
  // containers give one line of printable ASCII without any of [ ] = , ; # or double quotes:
  // <00010203 04>, (1 'a b'), {key: value}. Raises beyond kMaximumPlistDepth.
  std::string description() const;
  void appendDescriptionTo(std::string& text) const;

  // "a string", "an array", "nothing"...: the kind as it stands in the sentences of exceptions.
  const char* kindName() const noexcept;

 private:
  struct Node;
  struct StringNode;
  struct TextNode;
  struct ContainerNode;
  struct ArrayNode;
  class DictionaryNode;

  // Up to this many bytes of text stand in the handle itself; unused ones are zero, so equal short strings
  // are equal handles, bit for bit.
  static constexpr std::size_t kInlineCapacity = 14;
  static constexpr std::uint8_t kHoldsNode = 0xFF;
  static constexpr std::uint8_t kHoldsPart = 0xFE;
  // The byte range of a part within its SharedText.
  struct Extent {
    std::uint32_t offset;
    std::uint16_t length;
  };

  Plist(Kind kind, std::string_view bytes);
  Plist(Kind kind, Node* node) noexcept { set(kind, kHoldsNode, std::bit_cast<std::uint64_t>(node)); }
  // Text of at most kInlineCapacity bytes, as two words whose unused bytes are zero.
  Plist(std::uint64_t low, std::uint64_t high, std::size_t length) noexcept {
    set(Kind::String, static_cast<std::uint8_t>(length), low, high);
  }
  // Takes over one reference to `node`, a TextNode.
  Plist(Node* node, Extent part) noexcept {
    set(Kind::String, kHoldsPart, std::bit_cast<std::uint64_t>(node),
        part.offset | std::uint64_t{part.length} << 32);
  }
  // Two words at once, because the handle is soon copied as two words: members stored one by one would delay
  // that copy.
  void set(Kind kind, std::uint8_t length, std::uint64_t low, std::uint64_t high = 0) noexcept {
    static_assert(std::endian::native == std::endian::little);
    const std::uint64_t words[] = {
        low, high | std::uint64_t{length} << 48 | static_cast<std::uint64_t>(kind) << 56};
    std::memcpy(static_cast<void*>(this), words, sizeof words);
  }

  bool isContainer() const noexcept { return kind_ == Kind::Array || kind_ == Kind::Dictionary; }
  bool holdsNode() const noexcept { return length_ >= kHoldsPart; }
  template <class T>
  T payload() const noexcept {
    T value;
    std::memcpy(&value, storage_, sizeof value);
    return value;
  }
  Node* node() const noexcept { return payload<Node*>(); }
  Extent extent() const noexcept {
    Extent part = {};
    std::memcpy(&part.offset, storage_ + sizeof(Node*), sizeof part.offset);
    std::memcpy(&part.length, storage_ + sizeof(Node*) + sizeof part.offset, sizeof part.length);
    return part;
  }
  bool isSameHandle(const Plist& other) const noexcept {
    return std::memcmp(static_cast<const void*>(this), static_cast<const void*>(&other), sizeof other) == 0;
  }
  void shareFrom(const Plist& other) noexcept {
    std::memcpy(static_cast<void*>(this), static_cast<const void*>(&other), sizeof other);
    if (holdsNode()) retain(node());
  }
  void takeFrom(Plist& other) noexcept {
    std::memcpy(static_cast<void*>(this), static_cast<const void*>(&other), sizeof other);
    other.length_ = 0;
    other.kind_ = Kind::Nil;
  }
  std::string_view view() const noexcept;
  bool hasSameText(const Plist& other) const noexcept;
  std::uint64_t keyHash() const noexcept;
  [[noreturn]] void raise(const char* asked) const;
  ArrayNode& arrayToChange() const;
  DictionaryNode& dictionaryToChange() const;
  DictionaryNode& dictionaryAskedFor(const char* asked) const;
  void appendDescription(std::string& text, int depth) const;

  static void retain(Node* node) noexcept;
  static void release(Node* node) noexcept;
  static bool isEqual(const Plist& left, const Plist& right, int depth);
  static bool areEqualNumbers(const Plist& left, const Plist& right) noexcept;

  alignas(8) char storage_[kInlineCapacity] = {};
  std::uint8_t length_ = 0;  // of inline text; one of the above; 1 for integers beyond the signed range
  Kind kind_ = Kind::Nil;
};

static_assert(sizeof(Plist) == 16);

struct Plist::Entry {
  Plist key;
  Plist value;
};

}  // namespace zekara
