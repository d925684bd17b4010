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

// How deep containers may be nested. The property-list reader rejects more; comparing, describing or writing
// a value that a program nested deeper raises "NSInvalidArgumentException".
inline constexpr int kMaximumPlistDepth = 512;

// A property-list value: nothing (nil), a string, number, boolean, data, date, array or dictionary. Messages,
// configuration files and patches are trees of these values:
//
//   const Plist patch = Plist::dictionary({{"UpdateD", Plist::dictionary({{"Interval", 3600}})}});
//   patch.objectForKey("UpdateD").objectForKey("Interval").longLongValue();  // 3600
//   patch.objectForKey("Other").objectForKey("Interval").isNil();            // true
//
// Values and objects: strings, data and scalars are values. Arrays and dictionaries are shared objects. A
// copy of a handle refers to the same object, and all handles see a change made through one of them. The
// object, not the handle, is modifiable or unmodifiable; therefore the operations that change it are const.
// copy() and mutableCopy() make a new object that shares the elements of the old one.
//
// Nil: every question has an answer for nil, namely nil, 0, false, an empty string or an empty range.
// Changing nil raises, because there is no object to change.
//
// Errors: asking any other value for something that its kind does not have, storing nil, and changing an
// unmodifiable object raise NSException "NSInvalidArgumentException". Its reason is a sentence that names the
// kind and the question. The value stays as it was. Operations that allocate raise std::bad_alloc if memory
// runs out, and also leave the value as it was.
//
// Strings are UTF-8 by convention. This class does not check them; the property-list writer rejects others.
//
// Dictionaries keep the order in which their keys were first stored.
//
// Ownership: nodes are reference-counted. A container that contains itself, at any level, is never freed.
//
// Threads: as with standard containers, several threads may read and copy a value at the same time. A thread
// that changes an object must have excluded all readers of the object.
class Plist {
 public:
  // Strings and data hold bytes, integers -2^63 to 2^64-1, reals a double, and dates whole seconds. A
  // boolean is a number as well.
  enum class Kind : std::uint8_t { Nil, String, Integer, Real, Boolean, Data, Date, Array, Dictionary };
  struct Entry;      // a key and its value
  class SharedText;  // makes strings that share one text: see SharedText.h

  // Nil.
  Plist() noexcept = default;
  // Conversions are implicit so that a literal tree reads like the tree. Texts are copied; one of more than
  // 14 bytes allocates memory. A `const char*` must not be null. Every integer type but bool makes an
  // integer. `char` is excluded because a character is neither a number nor a string.
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

  // Returns data with a copy of `bytes`.
  static Plist data(std::string_view bytes) { return Plist(Kind::Data, bytes); }
  // Returns a date, in whole seconds since 1970-01-01T00:00:00Z.
  static Plist date(std::int64_t seconds) noexcept;
  // Return new, modifiable containers. A nil element, key or value raises. A key that is given twice keeps
  // its first place and its last value. `capacity` is the number of entries to reserve memory for.
  static Plist array(std::initializer_list<Plist> elements = {});
  static Plist dictionary(std::initializer_list<Entry> entries = {});
  static Plist dictionaryWithCapacity(std::size_t capacity);
  // Return new, unmodifiable containers and move the given values into them: the elements of an array; the
  // keys of a dictionary, each followed by its value. Otherwise as above.
  static Plist frozenArray(std::span<Plist> elements);
  static Plist frozenDictionary(std::span<Plist> keysAndValues);

  // Copying a handle takes constant time and allocates nothing. Moving it leaves `other` nil.
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
  // Returns true for integers, reals and booleans.
  bool isNumber() const noexcept {
    return kind_ == Kind::Integer || kind_ == Kind::Real || kind_ == Kind::Boolean;
  }
  bool isArray() const noexcept { return kind_ == Kind::Array; }
  bool isDictionary() const noexcept { return kind_ == Kind::Dictionary; }
  // Returns true for a container that may be changed, and false for every other value.
  bool isMutable() const noexcept;
  // Returns true if both handles refer to the same array or dictionary object.
  bool isSameObject(const Plist& other) const noexcept {
    return isContainer() && other.isContainer() && node() == other.node();
  }

  // Returns the bytes of a string. The view is valid until this handle is changed, moved or destroyed; that
  // is why a temporary handle cannot be asked.
  std::string_view string() const& {
    return isString() && !holdsNode() ? std::string_view(storage_, length_) : stringOfNode();
  }
  std::string_view string() && = delete;
  // Returns true if this string has exactly the bytes of `text`; false for nil.
  bool isEqualToString(std::string_view text) const;
  // Returns the bytes of data. The view is valid as long as that of string().
  std::string_view bytes() const&;
  std::string_view bytes() && = delete;
  // Returns a date's seconds since 1970-01-01T00:00:00Z.
  std::int64_t secondsSince1970() const;

  // Return the value of a number; a boolean is 1 or 0. The two integer forms truncate a fraction, clamp to
  // the range of their type, and return 0 for NaN.
  std::int64_t longLongValue() const;
  std::uint64_t unsignedLongLongValue() const;
  // Rounds an integer that a double cannot represent, which is beyond 2^53, to the nearest one that it can.
  double doubleValue() const;
  // Returns true for every number but zero, NaN included.
  bool boolValue() const;
  // Returns true for an integer of 2^63 or more, which unsignedLongLongValue() returns and longLongValue()
  // clamps.
  bool isBeyondSigned() const noexcept { return kind_ == Kind::Integer && length_ != 0; }

  // Returns the number of elements of an array, or of entries of a dictionary.
  std::size_t count() const;

  // Returns the elements of an array. The range is valid until the array changes or is freed.
  std::span<const Plist> elements() const;
  // Appends an element.
  void addObject(Plist element) const;

  // Returns the entries of a dictionary, in order. The range is valid until the dictionary changes or is
  // freed.
  std::span<const Entry> entries() const;
  // Returns the value under `key`; nil if there is none. Keys are compared by ==, so 1, 1.0 and true are the
  // same key. A container is returned as the dictionary's own object, not as a copy.
  //
  // A search compares about one key. Keys that an attacker chose can raise that to 64, and no further:
  // beyond 64 entries, dictionaries use a hash that is keyed with a secret of this process.
  Plist objectForKey(const Plist& key) const;
  // Stores `value` under `key`. Replaces an earlier value and keeps its place in the order. A key may be any
  // value but nil and containers; only a dictionary whose keys are strings can be written as a property list.
  void setObject_forKey(Plist value, Plist key) const;
  // Moves `value` into the dictionary, and leaves it nil, if `key` is absent. Otherwise changes nothing,
  // `value` included. Returns the entry of the key, which is in the range of entries() and as long valid.
  const Entry& setObject_forKeyIfAbsent(Plist& value, Plist key) const;

  // Returns an unmodifiable copy of a container, which shares the elements of the original, and any other
  // value itself.
  Plist copy() const;
  // Returns a modifiable copy of a container, which shares the elements of the original, and strings and data
  // themselves. Raises for numbers, booleans and dates, as the platform does.
  Plist mutableCopy() const;
  // Makes an array or a dictionary unmodifiable from now on, but not the containers in it. Does nothing to
  // other values. Cannot be undone: mutableCopy() makes a modifiable object.
  void freeze() const;

  // Compares by kind and content. Numbers are equal if their mathematical values are equal, across all kinds
  // of numbers; a boolean is the number 1 or 0, and NaN equals NaN. The order of a dictionary's entries does
  // not count. Raises if the values are nested deeper than kMaximumPlistDepth.
  friend bool operator==(const Plist& left, const Plist& right) {
    return left.isSameHandle(right) || isEqual(left, right, 0);
  }

  // Returns the text that "%@" shows: a string itself, "(null)" for nil, 1 or 0 for a boolean, an integer in
  // decimal, a real in the shortest form that reads back as the same number, a date as
  // "2009-02-13 23:31:30 +0000". Data and containers become one line of printable ASCII without any of
  // [ ] = , ; # and double quotes, such as <00010203 04>, (1 'a b') and {key: value}, so that the text is one
  // word of a configuration file. Raises if the value is nested deeper than kMaximumPlistDepth.
  std::string description() const;
  // Appends the same to `text`. What was appended before an exception stays.
  void appendDescriptionTo(std::string& text) const;

  // Returns the kind as a noun for the sentences of exceptions: "a string", "an array", "nothing".
  const char* kindName() const noexcept;

 private:
  struct Node;
  struct StringNode;
  struct TextNode;
  struct ContainerNode;
  struct ArrayNode;
  class DictionaryNode;

  // A handle is 16 bytes: 14 bytes of storage, a length and a kind.
  //
  //   text or data of up to 14 bytes: the bytes, padded with zeros; `length_` is their number
  //   longer text or data:            a StringNode*; `length_` is kHoldsNode
  //   part of a SharedText:           a TextNode* and an Extent; `length_` is kHoldsPart
  //   arrays and dictionaries:        an ArrayNode* or DictionaryNode*; `length_` is kHoldsNode
  //   numbers, booleans and dates:    8 bytes; `length_` is 1 for an integer of 2^63 or more, otherwise 0
  //
  // Because of the padding, equal short texts are equal handles, bit for bit.
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
  // Returns the number or pointer at the start of the storage.
  template <class T>
  T payload() const noexcept {
    T value;
    std::memcpy(&value, storage_, sizeof value);
    return value;
  }
  // Meaningful only if holdsNode().
  Node* node() const noexcept { return payload<Node*>(); }
  // Meaningful only if `length_` is kHoldsPart.
  Extent extent() const noexcept {
    Extent part = {};
    std::memcpy(&part.offset, storage_ + sizeof(Node*), sizeof part.offset);
    std::memcpy(&part.length, storage_ + sizeof(Node*) + sizeof part.offset, sizeof part.length);
    return part;
  }
  // Compares bit for bit. Handles that are the same are equal; handles that differ may be equal, too.
  bool isSameHandle(const Plist& other) const noexcept {
    return std::memcmp(static_cast<const void*>(this), static_cast<const void*>(&other), sizeof other) == 0;
  }
  // The next three overwrite this handle and do not release what it held.
  //
  // The builtin is two moves wherever the handle is. std::memcpy(), if fortified, is a checked call for a
  // handle in memory whose size is known at run time only, as that of a vector is.
  void copyFrom(const Plist& other) noexcept {
    __builtin_memcpy(static_cast<void*>(this), &other, sizeof other);
  }
  void shareFrom(const Plist& other) noexcept {
    copyFrom(other);
    if (holdsNode()) retain(node());
  }
  // Leaves `other` nil.
  void takeFrom(Plist& other) noexcept {
    copyFrom(other);
    other.length_ = 0;
    other.kind_ = Kind::Nil;
  }
  // Returns what string() returns for every value that is not a short string.
  std::string_view stringOfNode() const;
  // Returns the bytes of a string or of data, wherever they are.
  std::string_view view() const noexcept;
  bool hasSameText(const Plist& other) const noexcept;
  // Returns the hash of a key, which depends on this process's secret. Equal keys have equal hashes.
  std::uint64_t keyHash() const noexcept;
  // Raises "NSInvalidArgumentException"; the reason names this value's kind and what it was asked for.
  [[noreturn]] void raise(const char* asked) const;
  // Return the node of a container. All raise if this is not such a container, and the first two also if it
  // is unmodifiable.
  ArrayNode& arrayToChange() const;
  DictionaryNode& dictionaryToChange() const;
  // Returns the entry of a dictionary under `key`, and adds it first if there is none. The value of a new
  // entry is nil, and the caller must store `value` in it before it does anything else. Raises if either must
  // not be stored.
  Entry& entryToChange(const Plist& value, Plist&& key) const;
  DictionaryNode& dictionaryAskedFor(const char* asked) const;
  void appendDescription(std::string& text, int depth) const;

  // Add and give up one reference. release() deletes what loses its last reference by that, in memory and
  // stack that do not depend on the depth of nesting.
  static void retain(Node* node) noexcept;
  static void release(Node* node) noexcept;
  // Compares two values that are inside `depth` containers. Raises instead of looking into containers at the
  // limit.
  static bool isEqual(const Plist& left, const Plist& right, int depth);
  static bool areEqualNumbers(const Plist& left, const Plist& right) noexcept;

  alignas(8) char storage_[kInlineCapacity] = {};
  std::uint8_t length_ = 0;
  Kind kind_ = Kind::Nil;
};

static_assert(sizeof(Plist) == 16);

struct Plist::Entry {
  Plist key;
  Plist value;
};

}  // namespace zekara
