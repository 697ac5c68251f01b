// The typed lists: nodes whose list slot 0 holds the addresses of elements that the list owns.
#ifndef TARN_CORE_TYPED_LIST_H
#define TARN_CORE_TYPED_LIST_H

#include "core/cgigs.h"

namespace tarn::internal {

inline TarnStatus copyElement(const Node &source, Node *&copy) {
  copy = copyNode(source);
  return copy ? TARN_OK : TARN_OUT_OF_MEMORY;
}

// Whether the generic list of elements is made before or after the first element is copied. It shows
// if the copy fails, and if an element is added to a list inside itself.
enum class ElementsMade { kBeforeCopying, kAfterCopying };

// The parameters are what differs between list types: the tags of list and elements, when the generic
// list is made, and how an element is copied and released.
template <uint32_t kListMagic, uint32_t kElementMagic,
          ElementsMade kElementsMade = ElementsMade::kBeforeCopying,
          TarnStatus (*kCopy)(const Node &, Node *&) = copyElement,
          void (*kRelease)(Node *) = destroyNode>
struct NodeList {
  static Node *create() { return newNode(kListMagic); }
  static Node *in(const TarnHandle *handle) { return nodeIn(handle, kListMagic); }
  static Node *at(TarnHandle value) { return nodeAt(value, kListMagic); }

  // Null until something has been added, and if `list` is null.
  static GenericList *elements(const Node *list) {
    return list ? listAt(wholeNode(*list).slots.lists[TARN_LIST_ELEMENTS]) : nullptr;
  }

  static uint32_t count(const Node *list) {
    const GenericList *all = elements(list);
    return all ? all->count : 0;
  }

  static TarnHandle handleAt(const Node *list, uint32_t index) {
    const GenericList *all = elements(list);
    return all ? elementAt(*all, index) : 0;
  }

  // Null also for an element of the type that shares the list's tag. Kept: quirk 45.
  static Node *nodeAtIndex(const Node *list, uint32_t index) {
    return nodeAt(handleAt(list, index), kElementMagic);
  }

  // Does nothing to a list that has never had an element. Kept: quirk 46.
  static void reserve(Node *list, uint32_t capacity) {
    if (elements(list))
      TARNGenericList_reserve(&wholeNode(*list).slots.lists[TARN_LIST_ELEMENTS], capacity);
  }

  // Appends an element and takes ownership; releases it if it cannot be appended.
  static TarnStatus adopt(Node *list, Node *element) {
    if (!element) return TARN_OUT_OF_MEMORY;
    makeElements(list);
    // If the generic list could not be allocated, append() reports TARN_WRONG_TYPE.
    const TarnStatus status = append(elements(list), handleOf(element));
    if (status != TARN_OK) kRelease(element);
    return status;
  }

  static TarnStatus addCopy(Node *list, const Node &source) {
    if (kElementsMade == ElementsMade::kBeforeCopying) makeElements(list);
    Node *copy = nullptr;
    const TarnStatus status = kCopy(source, copy);
    return status == TARN_OK ? adopt(list, copy) : status;
  }

  // Appends a copy.
  static TarnStatus add(TarnHandle *list, TarnHandle *element) {
    Node *target = in(list);
    if (!target) return TARN_WRONG_TYPE;
    const Node *source = nodeIn(element, kElementMagic);
    return source ? addCopy(target, *source) : TARN_BAD_ARGUMENT;
  }

  // An element that is released with the list. One of the type that shares the list's tag stays
  // allocated, since a script may still use it.
  static Node *ownedAt(const Node *list, uint32_t index) {
    Node *element = nodeAtIndex(list, index);
    if (!element) abandon(blockAt<void>(handleAt(list, index)));
    return element;
  }

  // Releases the elements. The caller must clear or release the generic list, which still has their
  // addresses.
  static void releaseElements(const Node *list) {
    for (uint32_t i = 0; i < count(list); ++i) {
      if (Node *element = ownedAt(list, i)) kRelease(element);
    }
  }

  static void destroy(Node *list) {
    releaseElements(list);
    destroyNode(list);
  }

  // Puts a list (null: none) into a struct slot. The list that it replaces is released with its
  // elements, which the node that owns the slot would not do. A child of another type that a script
  // put there stays if there is no list to replace it.
  static void store(Node &owner, uint32_t slot, Node *list) {
    const Node *old = at(owner.child(slot));
    releaseElements(old);
    if (old || list) setChild(owner, slot, list);
  }

  static TarnStatus copy(const Node &source, Node *&made) {
    made = create();
    for (uint32_t i = 0; i < count(&source); ++i) {
      const Node *element = nodeAtIndex(&source, i);
      const TarnStatus status = element ? addCopy(made, *element) : TARN_WRONG_TYPE;
      if (status != TARN_OK) {
        destroy(take(made));
        return status;
      }
    }
    return TARN_OK;
  }

  // Overwrites the destination without deleting what it held. Kept: quirk 47.
  static TarnStatus clone(TarnHandle *source, TarnHandle *destination) {
    const Node *list = in(source);
    if (!list) return TARN_WRONG_TYPE;
    Node *made = nullptr;
    if (TarnStatus status = copy(*list, made)) return status;
    if (destination) {
      *destination = handleOf(made);
    } else {
      destroy(made);
    }
    return TARN_OK;
  }

  // Empties the list and keeps the node.
  static TarnStatus clear(TarnHandle *handle) {
    Node *list = in(handle);
    if (!list) return TARN_WRONG_TYPE;
    releaseElements(list);
    emptyNode(*list);
    return TARN_OK;
  }

  // Deletes elements and list, and sets the handle to 0.
  static TarnStatus remove(TarnHandle *handle) {
    Node *list = in(handle);
    if (!list) return TARN_WRONG_TYPE;
    *handle = 0;
    destroy(list);
    return TARN_OK;
  }

 private:
  static void makeElements(Node *list) {
    if (list && !wholeNode(*list).slots.lists[TARN_LIST_ELEMENTS])
      wholeNode(*list).slots.lists[TARN_LIST_ELEMENTS] = handleOf(newList());
  }
};

}  // namespace tarn::internal

#endif
