// The array of words behind every list; typed_list.h builds the typed lists on it.
#ifndef TARN_CORE_GENERIC_LIST_H
#define TARN_CORE_GENERIC_LIST_H

#include "core/handle.h"

namespace tarn::internal {

struct Node;

// The order of the first four fields is part of the interface.
struct GenericList {
  uint32_t magic;
  uint32_t count;
  uint32_t capacity;  // what scripts see; grows in steps of ten
  uintptr_t *data;
  uint32_t room;  // the words that fit into `data`: more than the capacity if it grew ahead, less
                  // after a failed growth
  Node *node;     // null, except for a list that CGIgs_new() made, which is a node too (cgigs.h)
};

GenericList *newList();

// Frees the list's array and keeps the list.
void freeArray(GenericList &list);

// Deletes the list, and its node if it has one.
void deleteList(GenericList *list);

// The copy has the same words. If they cannot be allocated, it has the same count and every word
// reads as 0.
GenericList *copyList(const GenericList &source);
bool isWholeCopy(const GenericList &copy, const GenericList &source);

// TARN_WRONG_TYPE if the list is null.
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
