#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "PortableFoundation/NSException.h"
#include "PortableFoundation/Plist.h"

namespace zekara {

// The nodes that handles of Plist point to. Only the source files of Plist include this header; other code
// knows handles only.
//
//   Node                  the count of references, the kind, and the mark of unmodifiable containers
//     StringNode          the bytes of one long string or of data
//     TextNode            the text of a SharedText
//     ContainerNode
//       ArrayNode         elements
//       DictionaryNode    entries, and the means to find a key
//
// A node counts its references: one for each handle, and one for each SharedText of a TextNode.
// Plist::retain() and Plist::release() change the count; release() deletes the node with its last reference.
// The count is atomic, so that handles of one node may be copied and destroyed on several threads.

// The head of every node. A new node has one reference, which belongs to the handle that is made for it.
// `isMutable` is meaningful for containers only. There is no virtual destructor: release() knows the type of
// a node by its kind.
struct Plist::Node {
  explicit Node(Kind kindOfNode) noexcept : kind(kindOfNode) {}

  std::atomic<std::uint32_t> references{1};
  const Kind kind;
  bool isMutable = true;
};

// A string or data of more than 14 bytes. The bytes follow the structure in the same allocation, so nodes are
// made by make() and deleted by free() only.
struct Plist::StringNode : Node {
  // Allocates a node for `size` bytes and leaves the bytes uninitialised. The caller owns its one reference.
  // Raises std::bad_alloc.
  static StringNode* make(Kind kind, std::size_t size) {
    void* memory = ::operator new(sizeof(StringNode) + size);
    return new (memory) StringNode(kind, size);
  }
  // Destroys a node that make() returned and frees its memory. No handle may refer to it any more.
  static void free(StringNode* node) noexcept {
    node->~StringNode();
    ::operator delete(node);
  }

  // Return the first of `length` bytes. No NUL follows them.
  char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }
  const char* bytes() const noexcept { return reinterpret_cast<const char*>(this + 1); }

  const std::size_t length;

 private:
  StringNode(Kind kindOfNode, std::size_t size) noexcept : Node(kindOfNode), length(size) {}
};

// The text of a SharedText. The strings that share it hold a reference and a range of it. Its kind is Nil,
// which no other node has. The text never changes, so views of it are valid as long as the node lives.
struct Plist::TextNode : Node {
  // Takes the text over; a caller that moves it in copies no bytes.
  explicit TextNode(std::string bytes) noexcept : Node(Kind::Nil), text(std::move(bytes)) {}

  const std::string text;
};

// What arrays and dictionaries have in common. Containers may be nested so deep that freeing each one from
// within its parent would overflow the stack; release() therefore keeps them in a list and frees them one
// after the other.
struct Plist::ContainerNode : Node {
  using Node::Node;

  ContainerNode* nextToFree = nullptr;  // links the containers that release() has still to free
};

// The elements of an array. They are public, because Plist copies and releases them as a whole; new ones come
// in by append(), which checks them.
struct Plist::ArrayNode : ContainerNode {
  ArrayNode() noexcept : ContainerNode(Kind::Array) {}

  // Raises "NSInvalidArgumentException" if the element is nil, and std::bad_alloc if memory runs out. The
  // array then stays as it was.
  void append(Plist element) {
    if (element.isNil()) throw NSException(NSInvalidArgumentException, "nothing was added to an array");
    if (elements.capacity() == 0) elements.reserve(kFirstCapacity);
    elements.push_back(std::move(element));
  }

  std::vector<Plist> elements;

 private:
  // A vector by itself would begin with one element and allocate again for the second and the third.
  static constexpr std::size_t kFirstCapacity = 4;
};

// The entries of a dictionary in the order in which their keys were first stored, with the means to find a
// key. PlistDictionary.cpp explains how. Entries are never removed.
class Plist::DictionaryNode : public ContainerNode {
 public:
  DictionaryNode() noexcept : ContainerNode(Kind::Dictionary) {}
  // Makes a modifiable node with the same entries.
  DictionaryNode(const DictionaryNode& other);

  // Reserves memory for `count` entries in all, which must not be fewer than the dictionary has. Builds a
  // wider index if `count` is above kMostTags; a dictionary never loses its index. Raises std::bad_alloc and
  // changes nothing if there is not enough memory, or if the count does not fit into 32 bits.
  void reserve(std::size_t count);
  // Returns the entry under `key`; null if there is none. The key must be neither nil nor a container. The
  // pointer is valid until an entry is added.
  Entry* find(const Plist& key);
  // Returns the entry under `key`, and adds it first, with the key moved in and no value, if there is none.
  // The caller must store a value before it does anything else. `key` must not be part of this dictionary's
  // entries, which may be moved.
  Entry& entryFor(Plist&& key);

  std::vector<Entry> entries;  // added by entryFor() alone, because the tags and the index must follow

 private:
  // The number of entries up to which a dictionary works without an index.
  static constexpr std::size_t kMostTags = 64;
  // One place of the index, 8 bytes. With the hash in it, a search compares few keys that differ, and growing
  // computes no hash again.
  struct Slot {
    std::uint32_t hash;
    std::uint32_t place;  // counted from 1; 0 marks a free slot
  };

  using Slots = std::vector<Slot>;  // a power of two of them, more than entries.capacity()

  // Returns true if keys are found by their hashes, and false if by their tags. It never becomes false again.
  bool isIndexed() const noexcept { return slots_ != nullptr; }
  // Equal keys have equal tags and equal hashes, across all kinds of numbers.
  static char tagOf(const Plist& key) noexcept;
  static std::uint32_t hashOf(const Plist& key) noexcept;
  // find() without an index. `tag` must be that of the key.
  Entry* findByTag(const Plist& key, char tag);
  // Returns the slot of the key, or the free slot where it belongs. Needs an index, which always has a free
  // slot, so the search ends.
  Slot& slotFor(const Plist& key, std::uint32_t hash);
  // entryFor() with an index.
  Entry& entryByHash(Plist&& key);
  // Adds an entry without a value.
  Entry& append(Plist&& key);
  // Reserves memory for more entries, which may build the index. Moves the entries.
  void grow();

  // The tags of the entries in their order, while there is no index. Up to 15 are in the node itself.
  std::string tags_;
  std::unique_ptr<Slots> slots_;  // null without an index
};

// Defined here, because Plist.h only declares the nodes. It is inline, because every use of a text goes
// through it.
inline std::string_view Plist::view() const noexcept {
  if (!holdsNode()) return {storage_, length_};
  if (length_ == kHoldsPart) {
    return {static_cast<const TextNode*>(node())->text.data() + extent().offset, extent().length};
  }
  const auto* text = static_cast<const StringNode*>(node());
  return {text->bytes(), text->length};
}

}  // namespace zekara
