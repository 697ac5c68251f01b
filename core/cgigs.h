// The typed node behind every object.
#ifndef TARN_CORE_CGIGS_H
#define TARN_CORE_CGIGS_H

#include <cstddef>

#include "core/generic_list.h"
#include "core/handle.h"
#include "core/memory.h"
#include "core/node_arena.h"
#include "core/tarn_string.h"

namespace tarn::internal {

constexpr uint32_t kListSlots = 2;
constexpr uint32_t kStructSlots = 3;
constexpr uint32_t kStringSlots = 8;
constexpr uint32_t kIntSlots = 3;

// The order of the fields is part of the interface; each type names its slots in enumerations.
struct Slots {
  TarnHandle lists[kListSlots];
  TarnHandle structs[kStructSlots];
  uint32_t childMagics[kStructSlots];
#if UINTPTR_MAX > UINT32_MAX
  uint32_t room;  // in bytes; uses a gap, or follows the interface's fields
#endif
  char *strings[kStringSlots];
  uint32_t ints[kIntSlots];
  float doubleValue;
  uintptr_t fixed;
#if UINTPTR_MAX == UINT32_MAX
  uint32_t room : 31;
  uint32_t incomplete : 1;
#endif
};

// How every node begins. There are two kinds:
//
// A node with a block of its own is a WholeNode: its slots follow.
//
// A node that shares a block, which only a form entry does, is a ShortNode: the few values that a field of a form has follow. Its
// slots are at the end of the block. Nothing touches them until a call sets one, so until then the
// kernel need not give them memory. They are allocated with the block, since most calls that set a slot
// may not fail.
//
// Texts that are known when a node is made can be stored in the same block, in the room behind the
// record: a form may have thousands of short texts, and a block for each would cost more than the
// text.
struct Node {
  uint32_t magic;
#if UINTPTR_MAX > UINT32_MAX
  // In a gap between the interface's fields.
  uint32_t incomplete : 1;  // if something that belongs here was lost
  uint32_t hasSlots : 1;    // in a short node: its slots are in use, and no longer its own values
  uint32_t offset : 15;     // in the block that a short node shares; 0 in a whole node
  uint32_t distance : 15;   // from a short node to its slots
#endif

  // Whether this is a short node, and one whose slots are not in use.
  bool isShort() const;
  bool isWithoutSlots() const;

  // What the slots hold.
  TarnHandle list(uint32_t slot) const;
  TarnHandle child(uint32_t slot) const;
  uint32_t childMagic(uint32_t slot) const;
  const char *text(uint32_t slot) const;
  uint32_t number(uint32_t slot) const;
  float real() const;
  uintptr_t fixed() const;

  // The slots, to be changed. From now on they are in use.
  Slots &slots();

  // The slots if they are in use, else null.
  const Slots *usedSlots() const;
};

struct WholeNode {
  Node node;
  Slots slots;
};

// The values of a field whose slots are not in use. The slots not named here are zero.
struct ShortNode {
  static constexpr uint32_t kTexts = 2;
  static constexpr uint32_t kMostRoom = 1000;

  Node node;
  uint32_t number;  // int 0
  // Where the texts of strings 0 and 1 are in the room, plus 1; 0 if there is none.
  uint32_t first : 11;
  uint32_t second : 11;
  uint32_t room : 10;  // in bytes

  char *text(uint32_t slot) const;
};

// CGIgs_new() accepts the tag of a generic list or a string too, and list and string operations
// accept any object with their tag. Such an object is therefore both: a list or string record, whose
// address is the handle, and a node behind it. Neither kind of operation can damage what the other
// stored. Kept: quirk 73.
template <class Record>
struct RecordAndNode {
  Record record;
  WholeNode whole;
};

// An empty node with uninitialised room for texts; null if the allocation fails. It shares a block
// with other nodes if there is an arena and it has room.
Node *newNode(uint32_t magic, size_t room = 0, NodeArena *arena = nullptr);

// The start of the room.
char *roomOf(Node &node);

// Gives a new node its string slots 0 and 1 and its int slot 0. The texts are in its room, or null, and
// are freed with the node.
void fillNode(Node &node, char *first, char *second, uint32_t number);

// Sets an int slot, if possible without using the slots of a short node.
void setNumber(Node &node, uint32_t slot, uint32_t value);

// A deep copy, except that lists share their elements and `fixed` is copied as a value. If memory
// runs out, the copy lacks what could not be allocated and the node it is missing from is marked as
// incomplete; null if the node itself could not be allocated. Kept: quirk 71.
Node *copyNode(const Node &source);

// Releases what a node holds, except strings 2 to 7, and keeps the node. Kept: quirk 69.
void emptyNode(Node &node);

// Releases a node and all it holds.
void destroyNode(Node *node);

// Records that something that belongs in a node was lost.
void markIncomplete(Node *node);
bool isIncomplete(const Node &node);

// Replaces a text; the node takes ownership. Null empties the slot.
void setText(Node &node, uint32_t slot, OwnedText text);

// Replaces a child; the node takes ownership. Null empties the slot.
void setChild(Node &node, uint32_t slot, Node *child);

// The node at this address if it has the tag (0: any tag), else null. A generic list or a string
// made by its own constructor has no node.
inline Node *nodeAt(TarnHandle value, uint32_t magic) {
  const uint32_t found = magicAt(value);
  if (found == 0 || (magic != 0 && magic != found)) return nullptr;
  if (found == TARN_GENERIC_LIST_MAGIC) return blockAt<GenericList>(value)->node;
  if (found == TARN_STRING_MAGIC) return blockAt<String>(value)->node;
  return blockAt<Node>(value);
}

template <class Record>
RecordAndNode<Record> *recordOf(const Node *node) {
  return blockAt<RecordAndNode<Record>>(reinterpret_cast<uintptr_t>(node) -
                                        offsetof(RecordAndNode<Record>, whole));
}

// The reverse of nodeAt().
inline TarnHandle handleOf(const Node *node) {
  if (node && node->magic == TARN_GENERIC_LIST_MAGIC)
    return handleOf(static_cast<const void *>(recordOf<GenericList>(node)));
  if (node && node->magic == TARN_STRING_MAGIC)
    return handleOf(static_cast<const void *>(recordOf<String>(node)));
  return handleOf(static_cast<const void *>(node));
}

inline Node *nodeIn(const TarnHandle *handle, uint32_t magic) {
  return nodeAt(objectIn(handle), magic);
}

inline Node *childOf(const Node &node, uint32_t slot, uint32_t magic) {
  return nodeAt(node.child(slot), magic);
}

// ---- Where the slots are ------------------------------------------------------------------------
//
// Nothing else may depend on it.

// Puts the slots of a short node into use.
Slots &useSlots(ShortNode &node);

// The record that begins with a node. (handleOf() would lead to the list or string record before it.)
template <class Record>
Record &recordAround(const Node &node) {
  return *blockAt<Record>(reinterpret_cast<uintptr_t>(&node));
}
inline WholeNode &wholeNode(const Node &node) { return recordAround<WholeNode>(node); }
inline ShortNode &shortNode(const Node &node) { return recordAround<ShortNode>(node); }

#if UINTPTR_MAX > UINT32_MAX

inline bool Node::isShort() const { return offset != 0; }
inline bool Node::isWithoutSlots() const { return isShort() && !hasSlots; }

inline Slots &slotsBehind(const ShortNode &node) {
  return *blockAt<Slots>(handleOf(&node) + size_t{node.node.distance} * NodeArena::kUnit);
}

inline void markIncomplete(Node *node) {
  if (node) node->incomplete = 1;
}

inline bool isIncomplete(const Node &node) { return node.incomplete; }

#else

// Nodes for 32 bits have no gap for the offset, so they do not share blocks.
inline bool Node::isShort() const { return false; }
inline bool Node::isWithoutSlots() const { return false; }
inline Slots &slotsBehind(const ShortNode &node) {
  return recordAround<WholeNode>(node.node).slots;
}

inline void markIncomplete(Node *node) {
  if (node) node->slots().incomplete = 1;
}

inline bool isIncomplete(const Node &node) { return node.usedSlots()->incomplete; }

#endif

inline const Slots *Node::usedSlots() const {
  if (!isShort()) return &wholeNode(*this).slots;
  return isWithoutSlots() ? nullptr : &slotsBehind(shortNode(*this));
}

// What it returns is to be changed.
// NOLINTNEXTLINE(readability-make-member-function-const)
inline Slots &Node::slots() {
  if (!isShort()) return wholeNode(*this).slots;
  return isWithoutSlots() ? useSlots(shortNode(*this)) : slotsBehind(shortNode(*this));
}

inline char *roomOf(Node &node) {
  return reinterpret_cast<char *>(&node) + (node.isShort() ? sizeof(ShortNode) : sizeof(WholeNode));
}

inline void fillNode(Node &node, char *first, char *second, uint32_t number) {
  if (node.isShort()) {
    const char *before = roomOf(node) - 1;
    ShortNode &made = shortNode(node);
    made.number = number;
    made.first = first ? static_cast<uint32_t>(first - before) & 0x7FF : 0;
    made.second = second ? static_cast<uint32_t>(second - before) & 0x7FF : 0;
  } else {
    Slots &slots = wholeNode(node).slots;
    slots.strings[0] = first;
    slots.strings[1] = second;
    slots.ints[0] = number;
  }
}

inline char *ShortNode::text(uint32_t slot) const {
  const uint32_t place = slot == 0 ? first : slot == 1 ? second : 0;
  return place == 0 ? nullptr : blockAt<char>(handleOf(this + 1) + place - 1);
}

inline TarnHandle Node::list(uint32_t slot) const {
  const Slots *used = usedSlots();
  return used ? used->lists[slot] : 0;
}

inline TarnHandle Node::child(uint32_t slot) const {
  const Slots *used = usedSlots();
  return used ? used->structs[slot] : 0;
}

inline uint32_t Node::childMagic(uint32_t slot) const {
  const Slots *used = usedSlots();
  return used ? used->childMagics[slot] : 0;
}

inline const char *Node::text(uint32_t slot) const {
  const Slots *used = usedSlots();
  return used ? used->strings[slot] : shortNode(*this).text(slot);
}

inline uint32_t Node::number(uint32_t slot) const {
  if (const Slots *used = usedSlots()) return used->ints[slot];
  return slot == 0 ? shortNode(*this).number : 0;
}

inline float Node::real() const {
  const Slots *used = usedSlots();
  return used ? used->doubleValue : 0;
}

inline uintptr_t Node::fixed() const {
  const Slots *used = usedSlots();
  return used ? used->fixed : 0;
}

}  // namespace tarn::internal

#endif
