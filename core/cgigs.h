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
// Texts that are known when a node is made can be stored in the same block, in the room behind the
// record: a form may have thousands of short texts, and a block for each would cost more than the
// text.
struct Node {
  uint32_t magic;
#if UINTPTR_MAX > UINT32_MAX
  // In a gap between the interface's fields.
  uint32_t incomplete : 1;  // if something that belongs here was lost
  uint32_t offset : 31;     // in a block that the node shares with others; 0 if it has its own
#endif
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

// CGIgs_new() accepts the tag of a generic list or a string too, and list and string operations
// accept any object with their tag. Such an object is therefore both: a list or string record, whose
// address is the handle, and a node behind it. Neither kind of operation can damage what the other
// stored. Kept: quirk 73.
template <class Record>
struct RecordAndNode {
  Record record;
  Node node;
};

// An empty node with uninitialised room for texts; null if the allocation fails. It shares a block
// with other nodes if there is an arena and it has room.
Node *newNode(uint32_t magic, size_t room = 0, NodeArena *arena = nullptr);

// The start of the room. placeText() points a slot to a text in it, which is freed with the node.
inline char *roomOf(Node &node) { return reinterpret_cast<char *>(&node + 1); }
inline const char *roomOf(const Node &node) { return reinterpret_cast<const char *>(&node + 1); }
inline void placeText(Node &node, uint32_t slot, char *text) { node.strings[slot] = text; }

// A deep copy, except that lists share their elements and `fixed` is copied as a value. If memory
// runs out, the copy lacks what could not be allocated and the node it is missing from is marked as
// incomplete; null if the node itself could not be allocated. Kept: quirk 71.
Node *copyNode(const Node &source);

// Releases what a node holds, except strings 2 to 7, and keeps the node. Kept: quirk 69.
void emptyNode(Node &node);

// Releases a node and all it holds.
void destroyNode(Node *node);

// Records that something that belongs in a node was lost.
inline void markIncomplete(Node *node) {
  if (node) node->incomplete = 1;
}

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
                                        offsetof(RecordAndNode<Record>, node));
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
  return nodeAt(node.structs[slot], magic);
}

}  // namespace tarn::internal

#endif
