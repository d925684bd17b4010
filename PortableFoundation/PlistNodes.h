#pragma once

#include <atomic>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "PortableFoundation/NSException.h"
#include "PortableFoundation/Plist.h"

namespace zekara {

// What the handles of Plist point to. Included by the source files of Plist only.

// The head of every node. A node is deleted when its last handle lets go of it: see Plist::release().
struct Plist::Node {
  explicit Node(Kind kindOfNode) noexcept : kind(kindOfNode) {}

  std::atomic<std::uint32_t> references{1};
  const Kind kind;
  bool isMutable = true;
};

// A string or data too long for its handle. The bytes follow the structure in the same allocation.
struct Plist::StringNode : Node {
  // Allocates a node for `size` bytes and leaves the bytes uninitialised.
  static StringNode* make(Kind kind, std::size_t size) {
    void* memory = ::operator new(sizeof(StringNode) + size);
    return new (memory) StringNode(kind, size);
  }
  static void free(StringNode* node) noexcept {
    node->~StringNode();
    ::operator delete(node);
  }

  char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }
  const char* bytes() const noexcept { return reinterpret_cast<const char*>(this + 1); }

  const std::size_t length;

 private:
  StringNode(Kind kindOfNode, std::size_t size) noexcept : Node(kindOfNode), length(size) {}
};

// The text that the strings of a SharedText are parts of. Its kind is Nil.
struct Plist::TextNode : Node {
  explicit TextNode(std::string bytes) noexcept : Node(Kind::Nil), text(std::move(bytes)) {}

  const std::string text;
};

struct Plist::ContainerNode : Node {
  using Node::Node;

  ContainerNode* nextToFree = nullptr;  // used by release() only
};

struct Plist::ArrayNode : ContainerNode {
  ArrayNode() noexcept : ContainerNode(Kind::Array) {}

  void append(Plist element) {
    if (element.isNil()) throw NSException(NSInvalidArgumentException, "nothing was added to an array");
    if (elements.capacity() == 0) elements.reserve(kFirstCapacity);
    elements.push_back(std::move(element));
  }

  std::vector<Plist> elements;

 private:
  static constexpr std::size_t kFirstCapacity = 4;
};

// The entries of a dictionary in the order in which their keys were first stored, and what finds them:
// PlistDictionary.cpp explains how.
class Plist::DictionaryNode : public ContainerNode {
 public:
  DictionaryNode() noexcept : ContainerNode(Kind::Dictionary) {}
  // A modifiable node with the same entries.
  DictionaryNode(const DictionaryNode& other);

  // Makes room for `count` entries in all.
  void reserve(std::size_t count);
  // Returns the entry under `key`; null if there is none. The key is neither nil nor a container.
  Entry* find(const Plist& key);
  // Returns the entry under `key`. If there was none, the entry is new and both its members are nil: the
  // caller moves key and value in before it does anything else.
  Entry& entryFor(const Plist& key);

  std::vector<Entry> entries;

 private:
  static constexpr std::size_t kMostTags = 64;
  struct Slot {
    std::uint32_t hash;
    std::uint32_t place;  // counted from 1; 0 marks a free slot
  };

  bool isIndexed() const noexcept { return !slots_.empty(); }
  static std::uint8_t tagOf(const Plist& key) noexcept;
  static std::uint32_t hashOf(const Plist& key) noexcept;
  Entry* findByTag(const Plist& key, std::uint8_t tag);
  Slot& slotFor(const Plist& key, std::uint32_t hash);
  Entry& entryByHash(const Plist& key);
  void grow();

  std::uint8_t tags_[kMostTags] = {};
  std::vector<Slot> slots_;  // empty, or a power of two, with room for more than entries.capacity()
};

inline std::string_view Plist::view() const noexcept {
  if (!holdsNode()) return {storage_, length_};
  if (length_ == kHoldsPart) {
    return {static_cast<const TextNode*>(node())->text.data() + extent().offset, extent().length};
  }
  const auto* text = static_cast<const StringNode*>(node());
  return {text->bytes(), text->length};
}

}  // namespace zekara
