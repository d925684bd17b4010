// Dictionaries: entries in the order in which their keys were first stored, and the search for a key.
//
// A section of a configuration file has a dozen keys, so the usual dictionary is small. Up to 64 entries have
// one tag byte each, which mixes the key's length with its first and last characters. The tags are a string,
// so that a search for equal ones is one of the standard library's, and so that up to 15 of them need no
// memory of their own. One tag in 256 is equal by chance. An attacker who chooses keys with equal tags makes
// a search compare 64 keys, and no more.
//
// A dictionary with room for more entries has an open-addressing hash table of places in `entries`. Its hash
// is keyed with a secret of this process, so an attacker cannot choose keys that collide.

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <span>

#include "PortableFoundation/PlistNodes.h"
#include "PortableFoundation/SipHash.h"

namespace zekara {
namespace {

std::uint64_t WordAt(const char* bytes) noexcept {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

[[noreturn, gnu::cold]] void RaiseUnfit(const Plist& key) {
  if (key.isNil()) throw NSException(NSInvalidArgumentException, "a value was stored under no key");
  if (key.isArray() || key.isDictionary()) {
    throw NSException(NSInvalidArgumentException, std::string(key.kindName()) + " cannot be a key");
  }
  throw NSException(NSInvalidArgumentException, "no value was stored under the key " + key.description());
}

}  // namespace

// ---- The node

Plist::DictionaryNode::DictionaryNode(const DictionaryNode& other)
    : ContainerNode(Kind::Dictionary),
      entries(other.entries),
      tags_(other.tags_),
      slots_(other.isIndexed() ? std::make_unique<Slots>(*other.slots_) : nullptr) {}

// Builds the index before anything is changed, so that running out of memory leaves the dictionary as it was.
void Plist::DictionaryNode::reserve(std::size_t count) {
  if (count <= kMostTags) return entries.reserve(count);
  if (count >= std::numeric_limits<std::uint32_t>::max()) throw std::bad_alloc();
  auto wider = std::make_unique<Slots>(std::bit_ceil(count / 3 * 4 + 4));
  entries.reserve(count);
  const auto insert = [slots = wider->data(), mask = wider->size() - 1](Slot slot) {
    std::size_t at = slot.hash & mask;
    while (slots[at].place != 0) at = (at + 1) & mask;
    slots[at] = slot;
  };
  if (isIndexed()) {
    for (const Slot& slot : *slots_) {
      if (slot.place != 0) insert(slot);
    }
  } else {
    for (std::uint32_t i = 0; i < entries.size(); ++i) insert({hashOf(entries[i].key), i + 1});
  }
  slots_ = std::move(wider);
}

// Equal keys have equal tags. All keys that are not strings share one tag, because 1, 1.0 and true are one
// key.
inline char Plist::DictionaryNode::tagOf(const Plist& key) noexcept {
  if (!key.isString()) return 0;
  std::uint64_t first = WordAt(key.storage_);
  std::uint64_t last = WordAt(key.storage_ + sizeof first);  // length and kind included
  if (key.holdsNode()) {
    const std::string_view text = key.view();  // longer than kInlineCapacity
    first = WordAt(text.data());
    last = WordAt(text.data() + text.size() - sizeof last) + text.size();
  }
  constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15U;
  return static_cast<char>((first ^ std::rotl(last, 29)) * kOdd >> 56);
}

inline std::uint32_t Plist::DictionaryNode::hashOf(const Plist& key) noexcept {
  return static_cast<std::uint32_t>(key.keyHash());
}

inline Plist::Entry* Plist::DictionaryNode::findByTag(const Plist& key, char tag) {
  for (std::size_t at = tags_.find(tag); at != std::string::npos; at = tags_.find(tag, at + 1)) {
    if (entries[at].key == key) return &entries[at];
  }
  return nullptr;
}

// The slot of the key, or the free slot where it belongs.
inline Plist::DictionaryNode::Slot& Plist::DictionaryNode::slotFor(const Plist& key, std::uint32_t hash) {
  const std::size_t mask = slots_->size() - 1;
  Slot* const slots = slots_->data();
  std::size_t at = hash & mask;
  while (slots[at].place != 0 && (slots[at].hash != hash || !(entries[slots[at].place - 1].key == key))) {
    at = (at + 1) & mask;
  }
  return slots[at];
}

Plist::Entry* Plist::DictionaryNode::find(const Plist& key) {
  if (!isIndexed()) return findByTag(key, tagOf(key));
  const Slot& slot = slotFor(key, hashOf(key));
  return slot.place != 0 ? &entries[slot.place - 1] : nullptr;
}

inline Plist::Entry& Plist::DictionaryNode::append(Plist&& key) {
  Entry& entry = entries.emplace_back();
  entry.key.takeFrom(key);
  return entry;
}

Plist::Entry& Plist::DictionaryNode::entryFor(Plist&& key) {
  if (isIndexed()) return entryByHash(std::move(key));
  const char tag = tagOf(key);
  if (Entry* const found = findByTag(key, tag)) return *found;
  if (entries.size() == entries.capacity()) {
    grow();
    if (isIndexed()) return entryByHash(std::move(key));
  }
  tags_.push_back(tag);
  return append(std::move(key));
}

Plist::Entry& Plist::DictionaryNode::entryByHash(Plist&& key) {
  const std::uint32_t hash = hashOf(key);
  Slot* slot = &slotFor(key, hash);
  if (slot->place != 0) return entries[slot->place - 1];
  if (entries.size() == entries.capacity()) {
    grow();
    slot = &slotFor(key, hash);
  }
  *slot = {hash, static_cast<std::uint32_t>(entries.size() + 1)};
  return append(std::move(key));
}

// Capacities are 8, 12, 16, 32, 64 and so on. A file has many small dictionaries, so what they reserve and do
// not use adds up, and they grow in small steps.
void Plist::DictionaryNode::grow() {
  constexpr std::size_t kFirstCapacity = 8;
  constexpr std::size_t kSmall = 16;
  const std::size_t size = entries.size();
  reserve(std::max(kFirstCapacity, size < kSmall ? size + 4 : 2 * size));
}

// ---- The handle

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

Plist Plist::frozenDictionary(std::span<Plist> keysAndValues) {
  Plist dictionary = dictionaryWithCapacity(keysAndValues.size() / 2);
  for (std::size_t i = 0; i + 1 < keysAndValues.size(); i += 2) {
    dictionary.setObject_forKey(std::move(keysAndValues[i + 1]), std::move(keysAndValues[i]));
  }
  dictionary.freeze();
  return dictionary;
}

inline Plist::DictionaryNode& Plist::dictionaryAskedFor(const char* asked) const {
  if (!isDictionary()) raise(asked);
  return *static_cast<DictionaryNode*>(node());
}

inline Plist::DictionaryNode& Plist::dictionaryToChange() const {
  if (!isDictionary()) raise("a changed entry");
  if (!node()->isMutable) {
    throw NSException(NSInvalidArgumentException, "an unmodifiable dictionary was changed");
  }
  return *static_cast<DictionaryNode*>(node());
}

std::span<const Plist::Entry> Plist::entries() const {
  if (isNil()) return {};
  return dictionaryAskedFor("its entries").entries;
}

Plist Plist::objectForKey(const Plist& key) const {
  if (isNil() || key.isNil() || key.isContainer()) return {};
  const Entry* const entry = dictionaryAskedFor("the value of a key").find(key);
  return entry != nullptr ? entry->value : Plist();
}

inline Plist::Entry& Plist::entryToChange(const Plist& value, Plist&& key) const {
  DictionaryNode& dictionary = dictionaryToChange();
  if (value.isNil() || key.isNil() || key.isContainer()) RaiseUnfit(key);
  return dictionary.entryFor(std::move(key));
}

void Plist::setObject_forKey(Plist value, Plist key) const {
  entryToChange(value, std::move(key)).value = std::move(value);
}

const Plist::Entry& Plist::setObject_forKeyIfAbsent(Plist& value, Plist key) const {
  Entry& entry = entryToChange(value, std::move(key));
  if (entry.value.isNil()) entry.value.takeFrom(value);
  return entry;
}

// Equal keys have equal hashes. Equal numbers of all kinds convert to the same double.
std::uint64_t Plist::keyHash() const noexcept {
  if (isString() || kind_ == Kind::Data) {
    // Inline text is hashed with its padding and length byte: always 15 bytes.
    const auto* const handle = reinterpret_cast<const char*>(this);
    return SipHash(ProcessHashKey(), holdsNode() ? view() : std::string_view(handle, kInlineCapacity + 1));
  }
  double number = kind_ == Kind::Real ? payload<double>()
                  : isBeyondSigned()  ? static_cast<double>(payload<std::uint64_t>())
                                      : static_cast<double>(payload<std::int64_t>());
  if (number == 0) number = 0;  // minus zero as well
  if (std::isnan(number)) number = std::numeric_limits<double>::quiet_NaN();
  char bytes[sizeof number];
  std::memcpy(bytes, &number, sizeof number);
  return SipHash(ProcessHashKey(), {bytes, sizeof bytes});
}

}  // namespace zekara
