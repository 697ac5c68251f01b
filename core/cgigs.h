// The typed node behind every object.
#ifndef TARN_CORE_CGIGS_H
#define TARN_CORE_CGIGS_H

#include <cstddef>

#include "core/generic_list.h"
#include "core/handle.h"
#include "core/memory.h"
#include "core/tarn_string.h"

namespace tarn::internal {

constexpr uint32_t kListSlots = 2;
constexpr uint32_t kStructSlots = 3;
constexpr uint32_t kStringSlots = 8;
constexpr uint32_t kIntSlots = 3;

// Each type names its own slots by enumerations; the order of the fields is the interface's. Texts
// that a node is made with may stand in the same block, in the room behind the record: a request
// brings small ones by the thousands, and each block of its own would cost more than its text.
struct Node {
  uint32_t magic;
#if UINTPTR_MAX > UINT32_MAX
  uint32_t incomplete;  // 1 when something that belongs here was lost; it fills a gap
#endif
  TarnHandle lists[kListSlots];
  TarnHandle structs[kStructSlots];
  uint32_t childMagics[kStructSlots];
#if UINTPTR_MAX > UINT32_MAX
  uint32_t room;  // in bytes; it fills a gap, or stands behind the interface's fields
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

// CGIgs_new() under the tag of a generic list or of a string makes a node, as under any other tag,
// and list or string operations accept what carries their tag. So that neither kind of operation
// can damage what the other stored, such an object is both: a record, which its handle names, and a
// node behind it.
template <class Record>
struct RecordAndNode {
  Record record;
  Node node;
};

// An empty node with room for texts, which is not zeroed; null without memory.
Node *newNode(uint32_t magic, size_t room = 0);

// Where the room begins. A text in it goes with the node; it is set by placeText().
inline char *roomOf(Node &node) { return reinterpret_cast<char *>(&node + 1); }
inline const char *roomOf(const Node &node) { return reinterpret_cast<const char *>(&node + 1); }
inline void placeText(Node &node, uint32_t slot, char *text) { node.strings[slot] = text; }

// A deep copy but for lists, whose elements are shared, and `fixed`. What memory does not suffice
// for is absent from the copy, and the node that lacks it is marked as incomplete; null when that
// is the node itself.
Node *copyNode(const Node &source);

// Releases what a node holds and keeps the node; strings 2 to 7 stay.
void emptyNode(Node &node);

// Releases a node and all it holds.
void destroyNode(Node *node);

// Notes that something that belongs into a node was lost.
inline void markIncomplete(Node *node) {
  if (node) node->incomplete = 1;
}

// Replaces a text by one that the node owns from now on; null empties the slot.
void setText(Node &node, uint32_t slot, OwnedText text);

// Replaces a child by one that the node owns from now on; null empties the slot.
void setChild(Node &node, uint32_t slot, Node *child);

// The node at this address when it carries the tag (0: any), else null. A generic list or a string
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

// The way back from nodeAt().
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
