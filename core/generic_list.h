#ifndef TARN_CORE_GENERIC_LIST_H
#define TARN_CORE_GENERIC_LIST_H

#include "core/handle.h"

namespace tarn::internal {

struct Node;

// Scripts read the first four fields by their order.
struct GenericList {
  uint32_t magic;
  uint32_t count;
  uint32_t capacity;  // what the list says it can hold; moves in steps of ten
  uintptr_t *data;
  uint32_t room;  // what `data` really holds: more than the capacity when it grew ahead of it, less
                  // after a growth that failed
  Node *node;     // null, but for a list that CGIgs_new() made, which is a node too (core/cgigs.h)
};

GenericList *newList();

// Releases the list's array and keeps the list.
void freeArray(GenericList &list);

// Releases the list, and the node that it is a part of.
void deleteList(GenericList *list);

// The copy has the same words. Without memory for them it has the same count and reads as zeros.
GenericList *copyList(const GenericList &source);
bool isWholeCopy(const GenericList &copy, const GenericList &source);

// A missing list is one of the wrong type.
TarnStatus append(GenericList *list, uintptr_t value);

inline GenericList *listAt(TarnHandle value) {
  return magicAt(value) == TARN_GENERIC_LIST_MAGIC ? blockAt<GenericList>(value) : nullptr;
}

inline GenericList *listIn(const TarnHandle *handle) { return listAt(objectIn(handle)); }

inline uintptr_t elementAt(const GenericList &list, uint32_t index) {
  return index < list.count && index < list.room ? list.data[index] : 0;
}

}  // namespace tarn::internal

#endif
