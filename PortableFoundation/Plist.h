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
#include <utility>

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
  class StringPool;

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
  Plist& operator=(const Plist& other) noexcept {
    if (this != &other) {
      const Plist released(std::move(*this));
      shareFrom(other);
    }
    return *this;
  }
  Plist& operator=(Plist&& other) noexcept {
    if (this != &other) {
      const Plist released(std::move(*this));
      takeFrom(other);
    }
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
  struct ArrayNode;
  struct DictionaryNode;

  // Up to this many bytes of text stand in the handle itself; unused ones are zero, so equal short strings
  // are equal handles, bit for bit.
  static constexpr std::size_t kInlineCapacity = 14;
  static constexpr std::uint8_t kHoldsNode = 0xFF;
  static constexpr std::uint8_t kHoldsPart = 0xFE;
  // Where in its node the text of a part stands.
  struct Extent {
    std::uint16_t offset;
    std::uint16_t length;
  };

  Plist(Kind kind, std::string_view bytes);
  Plist(Kind kind, Node* node) noexcept { set(kind, kHoldsNode, std::bit_cast<std::uint64_t>(node)); }
  Plist(Node* node, Extent extent) noexcept {
    set(Kind::String, kHoldsPart, std::bit_cast<std::uint64_t>(node), std::bit_cast<std::uint32_t>(extent));
  }
  // A handle is soon copied as a whole, which waits if its members were stored one by one (processors forward
  // from one store to one load): so they are not.
  void set(Kind kind, std::uint8_t length, std::uint64_t low, std::uint64_t high = 0) noexcept {
    using Words [[gnu::vector_size(16)]] = std::uint64_t;
    const Words words = {low, high | std::uint64_t{length} << 48 | static_cast<std::uint64_t>(kind) << 56};
    std::memcpy(static_cast<void*>(this), &words, sizeof words);
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
    Extent extent = {};
    std::memcpy(&extent, storage_ + sizeof(Node*), sizeof extent);
    return extent;
  }
  bool isSameHandle(const Plist& other) const noexcept {
    return std::memcmp(static_cast<const void*>(this), static_cast<const void*>(&other), sizeof other) == 0;
  }
  void shareFrom(const Plist& other) noexcept;
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
  const DictionaryNode* dictionaryAskedFor(const char* asked) const;
  void appendDescription(std::string& text, int depth) const;

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

// Makes strings whose texts stand together in blocks of memory, which costs whoever reads many of them less
// than a block for each. A block, of at most 16 KiB, is freed when the pool has done with it and the last of
// its strings is gone. For use by one thread at a time; the strings are like all others.
class Plist::StringPool {
 public:
  StringPool() noexcept = default;
  StringPool(StringPool&& other) noexcept { swap(other); }
  StringPool& operator=(StringPool&& other) noexcept {
    swap(other);
    return *this;
  }
  ~StringPool() { close(); }

  Plist string(std::string_view text);

 private:
  static constexpr std::size_t kFirstBlock = 240;
  static constexpr std::size_t kLargestBlock = 16 * 1024 - 32;
  static constexpr std::size_t kLargestPart = 2048;

  void open(std::size_t leastSize);
  void close() noexcept;
  void swap(StringPool& other) noexcept {
    std::swap(block_, other.block_);
    std::swap(size_, other.size_);
    std::swap(used_, other.used_);
    std::swap(unclaimed_, other.unclaimed_);
  }

  StringNode* block_ = nullptr;
  std::size_t size_ = 0;
  std::size_t used_ = 0;
  std::uint32_t unclaimed_ = 0;  // references to the block that no string has taken yet, and the pool's own
};

}  // namespace zekara
