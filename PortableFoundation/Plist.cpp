#include "PortableFoundation/Plist.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <charconv>
#include <cmath>
#include <new>
#include <utility>
#include <vector>

#include "PortableFoundation/LoadBytes.h"
#include "PortableFoundation/NSException.h"
#include "PortableFoundation/PlistDate.h"
#include "PortableFoundation/SipHash.h"

namespace zekara {

struct Plist::Node {
  explicit Node(Kind kindOfNode) noexcept : kind(kindOfNode) {}

  std::atomic<std::uint32_t> references{1};
  Kind kind;
  bool isMutable = true;
};

// Strings too long for the handle, and data. The bytes follow the structure in the same allocation.
struct Plist::StringNode : Node {
  StringNode(Kind kindOfNode, std::size_t size) noexcept : Node(kindOfNode), length(size) {}

  char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }
  const char* bytes() const noexcept { return reinterpret_cast<const char*>(this + 1); }

  // The bytes are not set.
  static StringNode* make(Kind kind, std::size_t size) {
    void* memory = ::operator new(sizeof(StringNode) + size);
    return new (memory) StringNode(kind, size);
  }
  static void free(StringNode* node) noexcept {
    node->~StringNode();
    ::operator delete(node);
  }

  std::size_t length;
};

inline std::string_view Plist::view() const noexcept {
  if (!holdsNode()) return {storage_, length_};
  const auto* text = static_cast<const StringNode*>(node());
  if (length_ == kHoldsPart) return {text->bytes() + extent().offset, extent().length};
  return {text->bytes(), text->length};
}

struct Plist::ArrayNode : Node {
  ArrayNode() noexcept : Node(Kind::Array) {}

  void append(Plist element) {
    if (element.isNil()) throw NSException(NSInvalidArgumentException, "nothing was added to an array");
    elements.push_back(std::move(element));
  }

  std::vector<Plist> elements;
  Node* nextToFree = nullptr;
};

struct Plist::DictionaryNode : Node {
  DictionaryNode() noexcept : Node(Kind::Dictionary) {}
  // Modifiable, with the same entries.
  DictionaryNode(const DictionaryNode& other)
      : Node(Kind::Dictionary),
        entries(other.entries),
        isAscending_(other.isAscending_),
        slots_(other.slots_) {}

  // The place of `key` in entries, or entries.size().
  std::size_t find(const Plist& key) const;
  // The entry under `key`. If there was none it is new and holds neither key nor value: both have to be put
  // in at once.
  Entry& entryFor(const Plist& key);
  static void require(const Plist& value, const Plist& key) {
    if (value.isNil() || key.isNil() || key.isContainer()) raiseUnfit(key);
  }
  // Moves the value in, and the key if it is new.
  void store(Plist& value, Plist& key) {
    require(value, key);
    Entry& entry = entryFor(key);
    if (entry.key.isNil()) entry.key.takeFrom(key);
    entry.value = std::move(value);
  }
  void reserve(std::size_t count) {
    entries.reserve(count);
    expected_ = count;
  }
  // A key that will be stored soon: of a million keys, none has its slot in the processor's caches.
  void expect(const Plist& key) const noexcept {
    if (!slots_.empty()) __builtin_prefetch(&slots_[hashOf(key) & (slots_.size() - 1)]);
  }

  std::vector<Entry> entries;
  Node* nextToFree = nullptr;

 private:
  // A configuration section has a dozen keys: looking at each beats any index. Beyond that, keys in ascending
  // order, as a serialiser writes them, are found by halving; for others `slots_` is an open-addressing hash
  // table of places in entries.
  static constexpr std::size_t kUnindexedEntries = 16;
  struct Slot {
    std::uint32_t hash;
    std::uint32_t place;  // counted from 1; 0 is a free slot
  };

  static std::uint32_t hashOf(const Plist& key) noexcept { return static_cast<std::uint32_t>(key.keyHash()); }
  bool comesLast(const Plist& key) const noexcept {
    return isAscending_ && key.isString() && (entries.empty() || entries.back().key.view() < key.view());
  }
  [[noreturn]] static void raiseUnfit(const Plist& key);
  std::size_t findByHalving(const Plist& key) const noexcept;
  std::size_t slotFor(const Plist& key, std::uint32_t hash) const;
  // Room for more is taken threefold: memory that is not used is never touched, and entries are moved less
  // often.
  Entry& append() {
    constexpr std::size_t kFirstCapacity = 8;
    if (entries.size() >= std::numeric_limits<std::uint32_t>::max() - 1) throw std::bad_alloc();
    if (entries.size() == entries.capacity()) entries.reserve(std::max(kFirstCapacity, 3 * entries.size()));
    return entries.emplace_back();
  }
  void makeRoom();

  std::size_t expected_ = 0;  // entries, as announced
  bool isAscending_ = true;   // all keys are strings, each greater than the one before, by their bytes
  std::vector<Slot> slots_;   // none, or a power of two of them, at most three quarters in use
};

std::size_t Plist::DictionaryNode::findByHalving(const Plist& key) const noexcept {
  if (!key.isString()) return entries.size();
  const auto found =
      std::ranges::lower_bound(entries, key.view(), {}, [](const Entry& entry) { return entry.key.view(); });
  if (found == entries.end() || !found->key.hasSameText(key)) return entries.size();
  return static_cast<std::size_t>(found - entries.begin());
}

inline std::size_t Plist::DictionaryNode::slotFor(const Plist& key, std::uint32_t hash) const {
  const std::size_t mask = slots_.size() - 1;
  const Slot* const slots = slots_.data();
  std::size_t at = hash & mask;
  while (slots[at].place != 0 && (slots[at].hash != hash || !(entries[slots[at].place - 1].key == key))) {
    at = (at + 1) & mask;
  }
  return at;
}

std::size_t Plist::DictionaryNode::find(const Plist& key) const {
  if (!slots_.empty()) {
    const Slot& slot = slots_[slotFor(key, hashOf(key))];
    return slot.place != 0 ? slot.place - 1 : entries.size();
  }
  if (entries.size() > kUnindexedEntries) return findByHalving(key);
  const bool isShortString = key.isString() && !key.holdsNode();
  const auto found = std::ranges::find_if(entries, [&](const Entry& entry) {
    return isShortString ? entry.key.isSameHandle(key) : entry.key == key;
  });
  return static_cast<std::size_t>(found - entries.begin());
}

Plist::Entry& Plist::DictionaryNode::entryFor(const Plist& key) {
  if (slots_.empty()) {
    if (comesLast(key)) return append();
    if (const std::size_t place = find(key); place != entries.size()) return entries[place];
    isAscending_ = false;
    if (entries.size() < kUnindexedEntries) return append();
  }
  if ((entries.size() + 1) * 4 > slots_.size() * 3) makeRoom();
  const std::uint32_t hash = hashOf(key);
  Slot& slot = slots_[slotFor(key, hash)];
  if (slot.place != 0) return entries[slot.place - 1];
  Entry& entry = append();
  slot = {hash, static_cast<std::uint32_t>(entries.size())};
  return entry;
}

// Gives all keys slots, and one more or as many as are expected.
void Plist::DictionaryNode::makeRoom() {
  const std::size_t needed = std::max(entries.size() + 1, expected_);
  std::vector<Slot> wider(std::bit_ceil(needed / 3 * 4 + kUnindexedEntries));
  const auto insert = [slots = wider.data(), mask = wider.size() - 1](Slot slot) {
    std::size_t at = slot.hash & mask;
    while (slots[at].place != 0) at = (at + 1) & mask;
    slots[at] = slot;
  };
  if (slots_.empty()) {
    for (std::uint32_t i = 0; i < entries.size(); ++i) insert({hashOf(entries[i].key), i + 1});
  }
  for (const Slot& slot : slots_) {
    if (slot.place != 0) insert(slot);
  }
  slots_ = std::move(wider);
}

[[gnu::cold]] void Plist::DictionaryNode::raiseUnfit(const Plist& key) {
  if (key.isNil()) throw NSException(NSInvalidArgumentException, "a value was stored under no key");
  if (key.isContainer()) {
    throw NSException(NSInvalidArgumentException, std::string(key.kindName()) + " cannot be a key");
  }
  throw NSException(NSInvalidArgumentException, "no value was stored under the key " + key.description());
}

inline Plist::DictionaryNode& Plist::dictionaryToChange() const {
  if (!isDictionary()) raise("a changed entry");
  if (!node()->isMutable) {
    throw NSException(NSInvalidArgumentException, "an unmodifiable dictionary was changed");
  }
  return *static_cast<DictionaryNode*>(node());
}

Plist::Plist(Kind kind, std::string_view bytes) {
  constexpr std::size_t kWord = sizeof(std::uint64_t);
  const std::size_t size = bytes.size();
  if (size <= kInlineCapacity) {
    const std::size_t first = std::min(size, kWord);
    set(kind, static_cast<std::uint8_t>(size), LoadBytes(bytes.data(), first),
        LoadBytes(bytes.data() + first, size - first));
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

Plist Plist::dictionary(std::initializer_list<Entry> entries) {
  Plist dictionary(Kind::Dictionary, new DictionaryNode);
  for (const Entry& entry : entries) dictionary.setObject_forKey(entry.value, entry.key);
  return dictionary;
}

Plist Plist::dictionaryWithCapacity(std::size_t capacity) {
  Plist dictionary = Plist::dictionary();
  static_cast<DictionaryNode*>(dictionary.node())->reserve(capacity);
  return dictionary;
}

Plist Plist::frozenArray(std::span<Plist> elements) {
  Plist array = Plist::array();
  auto& node = *static_cast<ArrayNode*>(array.node());
  node.elements.reserve(elements.size());
  for (Plist& element : elements) node.append(std::move(element));
  array.freeze();
  return array;
}

Plist Plist::frozenDictionary(std::span<Plist> keysAndValues) {
  Plist dictionary = dictionaryWithCapacity(keysAndValues.size() / 2);
  auto& node = *static_cast<DictionaryNode*>(dictionary.node());
  constexpr std::size_t kAhead = 32;
  for (std::size_t i = 0; i + 1 < keysAndValues.size(); i += 2) {
    if (i + kAhead < keysAndValues.size()) node.expect(keysAndValues[i + kAhead]);
    node.store(keysAndValues[i + 1], keysAndValues[i]);
  }
  dictionary.freeze();
  return dictionary;
}

Plist Plist::StringPool::string(std::string_view text) {
  if (text.size() <= kInlineCapacity || text.size() > kLargestPart) return text;
  if (size_ - used_ < text.size()) open(text.size());
  const Extent extent = {static_cast<std::uint16_t>(used_), static_cast<std::uint16_t>(text.size())};
  text.copy(block_->bytes() + used_, text.size());
  used_ += text.size();
  --unclaimed_;
  return Plist(block_, extent);
}

// Counting references once a block instead of once a string is what makes a string cheap.
void Plist::StringPool::open(std::size_t leastSize) {
  const std::size_t size = std::clamp(2 * size_, std::max(kFirstBlock, leastSize), kLargestBlock);
  StringNode* const block = StringNode::make(Kind::String, size);
  close();
  block_ = block;
  size_ = size;
  used_ = 0;
  unclaimed_ = 1 + static_cast<std::uint32_t>(size / (kInlineCapacity + 1));
  block->references.store(unclaimed_, std::memory_order_relaxed);
}

void Plist::StringPool::close() noexcept {
  if (block_ == nullptr) return;
  if (block_->references.fetch_sub(unclaimed_, std::memory_order_acq_rel) == unclaimed_) {
    StringNode::free(block_);
  }
}

void Plist::shareFrom(const Plist& other) noexcept {
  std::memcpy(static_cast<void*>(this), static_cast<const void*>(&other), sizeof other);
  if (holdsNode()) node()->references.fetch_add(1, std::memory_order_relaxed);
}

// Containers that lose their last handle while others are being freed wait in a list that runs through
// themselves: however deep a value is nested, the stack does not grow and nothing is allocated.
void Plist::release(Node* node) noexcept {
  const auto wasLast = [](Node* released) {
    return released->references.load(std::memory_order_acquire) == 1 ||
           released->references.fetch_sub(1, std::memory_order_acq_rel) == 1;
  };
  if (!wasLast(node)) return;
  Node* waiting = nullptr;
  const auto enqueue = [&](Plist& element) {
    if (!element.isContainer() || !wasLast(element.node())) {
      if (element.isContainer()) element.length_ = 0;
      return;
    }
    Node* container = element.node();
    auto& next = container->kind == Kind::Array ? static_cast<ArrayNode*>(container)->nextToFree
                                                : static_cast<DictionaryNode*>(container)->nextToFree;
    next = std::exchange(waiting, container);
    element.length_ = 0;
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
    } else {
      StringNode::free(static_cast<StringNode*>(node));
    }
    node = waiting;
    if (node != nullptr) {
      waiting = node->kind == Kind::Array ? static_cast<ArrayNode*>(node)->nextToFree
                                          : static_cast<DictionaryNode*>(node)->nextToFree;
    }
  }
}

bool Plist::isMutable() const noexcept {
  return isContainer() && node()->isMutable;
}

// Of two strings.
bool Plist::hasSameText(const Plist& other) const noexcept {
  if (isSameHandle(other)) return true;
  return holdsNode() && other.holdsNode() && kind_ == other.kind_ && view() == other.view();
}

std::string_view Plist::string() const& {
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
  if (kind_ == Kind::Array) return static_cast<const ArrayNode*>(node())->elements.size();
  return dictionaryAskedFor("its count")->entries.size();
}

std::span<const Plist> Plist::elements() const {
  if (isNil()) return {};
  if (!isArray()) raise("its elements");
  return static_cast<const ArrayNode*>(node())->elements;
}

void Plist::addObject(Plist element) const {
  arrayToChange().append(std::move(element));
}

std::span<const Plist::Entry> Plist::entries() const {
  if (isNil()) return {};
  return dictionaryAskedFor("its entries")->entries;
}

Plist Plist::objectForKey(const Plist& key) const {
  if (isNil() || key.isNil() || key.isContainer()) return {};
  const DictionaryNode* dictionary = dictionaryAskedFor("the value of a key");
  const std::size_t place = dictionary->find(key);
  return place < dictionary->entries.size() ? dictionary->entries[place].value : Plist();
}

void Plist::setObject_forKey(Plist value, Plist key) const {
  dictionaryToChange().store(value, key);
}

Plist Plist::setObject_forKeyIfAbsent(Plist& value, Plist key) const {
  DictionaryNode& dictionary = dictionaryToChange();
  DictionaryNode::require(value, key);
  Entry& entry = dictionary.entryFor(key);
  if (!entry.value.isNil()) return entry.value;
  entry.key.takeFrom(key);
  entry.value.takeFrom(value);
  return {};
}

Plist Plist::copy() const {
  if (!isContainer()) return *this;
  Plist copy = mutableCopy();
  copy.freeze();
  return copy;
}

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
  switch (kind_) {
    case Kind::Nil:
      return "nothing";
    case Kind::String:
      return "a string";
    case Kind::Integer:
    case Kind::Real:
      return "a number";
    case Kind::Boolean:
      return "a boolean";
    case Kind::Data:
      return "data";
    case Kind::Date:
      return "a date";
    case Kind::Array:
      return "an array";
    case Kind::Dictionary:
      return "a dictionary";
  }
  return "nothing";
}

void Plist::raise(const char* asked) const {
  throw NSException(NSInvalidArgumentException, std::string(kindName()) + " was asked for " + asked);
}

Plist::ArrayNode& Plist::arrayToChange() const {
  if (!isArray()) raise("an additional element");
  if (!node()->isMutable) throw NSException(NSInvalidArgumentException, "an unmodifiable array was changed");
  return *static_cast<ArrayNode*>(node());
}

const Plist::DictionaryNode* Plist::dictionaryAskedFor(const char* asked) const {
  if (!isDictionary()) raise(asked);
  return static_cast<const DictionaryNode*>(node());
}

// Equal keys have equal hashes; numbers of all widths that are equal convert to the same double.
std::uint64_t Plist::keyHash() const noexcept {
  if (isString() || kind_ == Kind::Data) {
    // Text in the handle is hashed with what is behind it, its length: always the same two words.
    const auto* const handle = reinterpret_cast<const char*>(this);
    return SipHash(ProcessHashKey(), holdsNode() ? view() : std::string_view(handle, kInlineCapacity + 1));
  }
  double number = kind_ == Kind::Real ? payload<double>()
                  : isBeyondSigned()  ? static_cast<double>(payload<std::uint64_t>())
                                      : static_cast<double>(payload<std::int64_t>());
  if (number == 0) number = 0;  // of either sign
  if (std::isnan(number)) number = std::numeric_limits<double>::quiet_NaN();
  char bytes[sizeof number];
  std::memcpy(bytes, &number, sizeof number);
  return SipHash(ProcessHashKey(), {bytes, sizeof bytes});
}

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
  if (real != std::trunc(real)) return false;  // NaN included
  if (right.isBeyondSigned()) {
    return real >= 0x1p63 && real < 0x1p64 &&
           static_cast<std::uint64_t>(real) == right.payload<std::uint64_t>();
  }
  return real >= -0x1p63 && real < 0x1p63 && static_cast<std::int64_t>(real) == right.payload<std::int64_t>();
}

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

namespace {

template <class Number>
void AppendNumber(std::string& text, Number number) {
  char digits[32];
  const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  text.append(digits, static_cast<std::size_t>(end - digits));
}

// As it stands inside <...>: groups of four bytes.
void AppendHexadecimal(std::string& text, std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i != 0 && i % 4 == 0) text += ' ';
    const auto byte = static_cast<unsigned char>(bytes[i]);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
}

bool IsPlainWord(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
  });
}

// A string inside a container's text. Whatever could end a word of a configuration file is escaped, byte by
// byte, and so is the double quote: the text may come to stand between two of them.
void AppendQuoted(std::string& text, std::string_view string) {
  if (IsPlainWord(string)) {
    text += string;
    return;
  }
  text += '\'';
  for (const char c : string) {
    if (c == '\'' || c == '\\') {
      text += '\\';
      text += c;
    } else if (static_cast<signed char>(c) < ' ' || c == 127 ||
               std::string_view("[]=,;#\"").find(c) != std::string_view::npos) {
      text += "\\x";
      AppendHexadecimal(text, {&c, 1});
    } else {
      text += c;
    }
  }
  text += '\'';
}

}  // namespace

std::string Plist::description() const {
  std::string text;
  appendDescriptionTo(text);
  return text;
}

// Only inside a container is a string anything but itself.
void Plist::appendDescriptionTo(std::string& text) const {
  isString() ? static_cast<void>(text += view()) : appendDescription(text, 0);
}

void Plist::appendDescription(std::string& text, int depth) const {
  if (isContainer() && depth >= kMaximumPlistDepth) {
    throw NSException(NSInvalidArgumentException, "a value too deeply nested was asked for its text");
  }
  const char* separator = "";
  switch (kind_) {
    case Kind::Nil:
      text += "(null)";
      break;
    case Kind::String:
      AppendQuoted(text, view());
      break;
    case Kind::Integer:
    case Kind::Boolean:
      isBeyondSigned() ? AppendNumber(text, payload<std::uint64_t>())
                       : AppendNumber(text, payload<std::int64_t>());
      break;
    case Kind::Real:
      AppendNumber(text, payload<double>());
      break;
    case Kind::Data:
      text += '<';
      AppendHexadecimal(text, view());
      text += '>';
      break;
    case Kind::Date:
      PlistDate::fromSeconds(payload<std::int64_t>()).appendTo(text, ' ', " +0000");
      break;
    case Kind::Array:
      text += '(';
      for (const Plist& element : elements()) {
        text += std::exchange(separator, " ");
        element.appendDescription(text, depth + 1);
      }
      text += ')';
      break;
    case Kind::Dictionary:
      text += '{';
      for (const Entry& entry : entries()) {
        text += std::exchange(separator, " ");
        entry.key.appendDescription(text, depth + 1);
        text += ": ";
        entry.value.appendDescription(text, depth + 1);
      }
      text += '}';
      break;
  }
}

}  // namespace zekara
