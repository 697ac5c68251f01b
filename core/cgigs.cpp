#include "core/cgigs.h"

namespace tarn::internal {
namespace {

// The largest value of Slots::room, and the most room that fits into one block with a whole node.
constexpr uint32_t kRoomBits = UINTPTR_MAX > UINT32_MAX ? UINT32_MAX : INT32_MAX;
constexpr uint32_t kMostRoom =
    UINTPTR_MAX > UINT32_MAX ? UINT32_MAX : kRoomBits - uint32_t{sizeof(WholeNode)};

#if UINTPTR_MAX > UINT32_MAX

static_assert(sizeof(ShortNode) == 16);

// Null if the node should have its own block, as every node does that is not a field.
Node *newShortNode(uint32_t magic, size_t room, NodeArena *arena) {
  if (!arena || magic != TARN_FORM_ENTRY_MAGIC || room > ShortNode::kMostRoom) return nullptr;
  const NodeArena::Place place = arena->allocate(sizeof(ShortNode) + room, sizeof(Slots));
  if (!place.node) return nullptr;
  auto *made = static_cast<ShortNode *>(place.node);
  *made = {.node = {.magic = magic,
                    .incomplete = 0,
                    .hasSlots = 0,
                    .offset = place.offset & 0x7FFF,
                    .distance = place.distance & 0x7FFF},
           .number = 0,
           .first = 0,
           .second = 0,
           .room = static_cast<uint32_t>(room) & 0x3FF};
  return &made->node;
}

void leaveBlock(Node *node) { NodeArena::release(node, node->offset); }
void setHasSlots(Node &node) { node.hasSlots = 1; }

#else

Node *newShortNode(uint32_t, size_t, NodeArena *) { return nullptr; }
void leaveBlock(Node *) {}
void setHasSlots(Node &) {}

#endif

// Copies the values of a short node whose slots are not in use.
void fillSlots(Slots &slots, const ShortNode &node) {
  slots = {};
  for (uint32_t i = 0; i < ShortNode::kTexts; ++i) slots.strings[i] = node.text(i);
  slots.ints[0] = node.number;
}

// Children are visited without recursion, so that no depth can exhaust the stack. Nodes still to be
// released are linked through their `fixed` slots, which nobody reads any more; copies still to be
// filled are linked through their struct slots. Each function below has the head of such a linked
// list as `pending`.

// Adds a child to the nodes to be released. What a script parked in the slot through list index 2
// may be a list or a string instead, which is released at once. Kept: quirk 70.
void releaseLater(TarnHandle child, Node *&pending) {
  if (Node *node = nodeAt(child, 0)) {
    if (node->isWithoutSlots()) return leaveBlock(node);
    node->slots().fixed = handleOf(pending);
    pending = node;
  } else if (GenericList *list = listAt(child)) {
    deleteList(list);
  } else if (String *string = stringAt(child)) {
    deleteString(string);
  }
}

void releaseChildrenLater(Slots &slots, Node *&pending) {
  for (TarnHandle &child : slots.structs) releaseLater(take(child), pending);
  for (uint32_t &magic : slots.childMagics) magic = 0;
}

// Something other than a list in a list slot belongs to the script and stays there.
void releaseListsLater(Slots &slots, Node *&pending) {
  for (TarnHandle &slot : slots.lists) {
    if (listAt(slot)) releaseLater(take(slot), pending);
  }
}

bool hasChildren(const Slots &slots) {
  TarnHandle any = 0;
  for (const TarnHandle child : slots.structs) any |= child;
  for (const TarnHandle list : slots.lists) any |= list;
  return any != 0;
}

// Frees a text unless it is in the node's own room.
void releaseText(Node &node, char *text) {
  if (!text) return;
  const uintptr_t offset = handleOf(text) - handleOf(roomOf(node));
  const uint32_t room = node.isShort() ? shortNode(node).room : wholeNode(node).slots.room;
  if (offset >= room) std::free(text);
}

// Frees a node's block, and the array or buffer if it is a list or a string too.
void freeBlock(Node *node) {
  if (node->magic == TARN_GENERIC_LIST_MAGIC) {
    auto *block = recordOf<GenericList>(node);
    freeArray(block->record);
    std::free(block);
  } else if (node->magic == TARN_STRING_MAGIC) {
    auto *block = recordOf<String>(node);
    std::free(block->record.buffer);
    std::free(block);
  } else if (node->isShort()) {
    leaveBlock(node);
  } else {
    std::free(node);
  }
}

void destroyPending(Node *pending) {
  while (Node *node = pending) {
    Slots &slots = node->slots();
    pending = nodeAt(slots.fixed, 0);
    // Most nodes have neither.
    if (hasChildren(slots)) {
      releaseChildrenLater(slots, pending);
      releaseListsLater(slots, pending);
    }
    for (char *text : slots.strings) releaseText(*node, text);
    freeBlock(node);
  }
}

void releaseChild(TarnHandle child) {
  Node *pending = nullptr;
  releaseLater(child, pending);
  destroyPending(pending);
}

enum PendingSlot : uint32_t { kNextPending, kSource };

// An empty node, to be filled from `source` later.
Node *newPendingCopy(const Node &source, Node *&pending) {
  Node *copy = newNode(source.magic);
  if (copy) {
    copy->slots().structs[kNextPending] = handleOf(pending);
    copy->slots().structs[kSource] = handleOf(&source);
    pending = copy;
  }
  return copy;
}

void fillCopy(Node &copy, const Node &source, Node *&pending) {
  Slots values;
  const Slots *from = source.usedSlots();
  if (!from) {
    fillSlots(values, shortNode(source));
    from = &values;
  }
  Slots &to = copy.slots();
  bool whole = true;
  for (uint32_t i = 0; i < kListSlots; ++i) {
    if (const GenericList *list = listAt(from->lists[i])) {
      const GenericList *made = copyList(*list);
      to.lists[i] = handleOf(made);
      whole = whole && made && isWholeCopy(*made, *list);
    }
  }
  for (uint32_t i = 0; i < kStructSlots; ++i) {
    // A child stored under tag 0 is not copied: no node can be created under that tag.
    const uint32_t magic = from->childMagics[i];
    const Node *child = magic ? nodeAt(from->structs[i], magic) : nullptr;
    to.structs[i] = child ? handleOf(newPendingCopy(*child, pending)) : 0;
    to.childMagics[i] = magic;
    whole = whole && (!child || to.structs[i]);
  }
  for (uint32_t i = 0; i < kStringSlots; ++i) {
    to.strings[i] = copyText(from->strings[i]).release();
    whole = whole && (!from->strings[i] || to.strings[i]);
  }
  for (uint32_t i = 0; i < kIntSlots; ++i) to.ints[i] = from->ints[i];
  to.doubleValue = from->doubleValue;
  to.fixed = from->fixed;
  if (isIncomplete(source) || !whole) markIncomplete(&copy);
}

// A list or a string that is also a node.
template <class Record>
Node *newRecordAndNode(uint32_t magic) {
  auto *block = static_cast<RecordAndNode<Record> *>(std::calloc(1, sizeof(RecordAndNode<Record>)));
  if (!block) return nullptr;
  block->record.magic = magic;
  block->record.node = &block->whole.node;
  block->whole.node.magic = magic;
  return &block->whole.node;
}

}  // namespace

Node *newNode(uint32_t magic, size_t room, NodeArena *arena) {
  if (magic == TARN_GENERIC_LIST_MAGIC) return newRecordAndNode<GenericList>(magic);
  if (magic == TARN_STRING_MAGIC) return newRecordAndNode<String>(magic);
  if (room > kMostRoom) return nullptr;
  if (Node *made = newShortNode(magic, room, arena)) return made;
  auto *whole = static_cast<WholeNode *>(std::malloc(sizeof(WholeNode) + room));
  if (!whole) return nullptr;
  *whole = {};
  whole->node.magic = magic;
  whole->slots.room = static_cast<uint32_t>(room) & kRoomBits;
  return &whole->node;
}

void setNumber(Node &node, uint32_t slot, uint32_t value) {
  if (slot == 0 && node.isWithoutSlots()) {
    shortNode(node).number = value;
  } else {
    node.slots().ints[slot] = value;
  }
}

Slots &useSlots(ShortNode &node) {
  Slots &slots = slotsBehind(node);
  fillSlots(slots, node);
  setHasSlots(node.node);
  return slots;
}

Node *copyNode(const Node &source) {
  Node *pending = nullptr;
  Node *top = newPendingCopy(source, pending);
  while (Node *copy = pending) {
    pending = nodeAt(copy->child(kNextPending), 0);
    fillCopy(*copy, *nodeAt(copy->child(kSource), 0), pending);
  }
  return top;
}

void emptyNode(Node &node) {
  Slots &slots = node.slots();
  Node *pending = nullptr;
  releaseListsLater(slots, pending);
  releaseChildrenLater(slots, pending);
  destroyPending(pending);
  // Kept: quirk 69.
  for (const uint32_t i : {0U, 1U}) releaseText(node, take(slots.strings[i]));
  for (uint32_t &number : slots.ints) number = 0;
  slots.doubleValue = 0;
  slots.fixed = 0;
}

void destroyNode(Node *node) { releaseChild(handleOf(node)); }

void setText(Node &node, uint32_t slot, OwnedText text) {
  releaseText(node, std::exchange(node.slots().strings[slot], text.release()));
}

void setChild(Node &node, uint32_t slot, Node *child) {
  Slots &slots = node.slots();
  releaseChild(std::exchange(slots.structs[slot], handleOf(child)));
  slots.childMagics[slot] = child ? child->magic : 0;
}

}  // namespace tarn::internal

using namespace tarn::internal;

const char *CGIgs_empty_string = "";

// The status does not report a failed allocation; the handle stays 0. Kept: quirk 68.
TarnStatus CGIgs_new(TarnHandle *handle, uint32_t magic) {
  if (!handle || *handle || magic == 0) return TARN_BAD_ARGUMENT;
  *handle = handleOf(newNode(magic));
  return TARN_OK;
}

TarnStatus CGIgs_delete(TarnHandle *handle, uint32_t magic) {
  Node *node = nodeIn(handle, magic);
  if (!node) return TARN_WRONG_TYPE;
  *handle = 0;
  destroyNode(node);
  return TARN_OK;
}

TarnStatus CGIgs_clear(TarnHandle *handle, uint32_t magic) {
  Node *node = nodeIn(handle, magic);
  if (!node) return TARN_WRONG_TYPE;
  emptyNode(*node);
  return TARN_OK;
}

uint32_t CGIgs_IsA(TarnHandle *handle, uint32_t magic) {
  const uint32_t found = magicAt(objectIn(handle));
  return found != 0 && (magic == 0 || magic == found) ? 1 : 0;
}

TarnStatus CGIgs_clone(TarnHandle *source, TarnHandle *destination, uint32_t magic) {
  const Node *node = nodeIn(source, magic);
  if (!node) return TARN_WRONG_TYPE;
  if (!destination || *destination || magic == 0) return TARN_BAD_ARGUMENT;
  *destination = handleOf(copyNode(*node));
  return TARN_OK;
}

TarnStatus CGIgs_setList(TarnHandle *handle, uint32_t index, TarnHandle *list, uint32_t magic) {
  Node *node = nodeIn(handle, magic);
  if (!node) return TARN_WRONG_TYPE;
  // Index 2 sets struct slot 0. Kept: quirk 70.
  if (index > kListSlots) return TARN_BAD_ARGUMENT;
  Slots &slots = node->slots();
  TarnHandle &slot = index < kListSlots ? slots.lists[index] : slots.structs[0];
  const TarnHandle given = objectIn(list);
  if (slot == given) return TARN_OK;
  TARNGenericList_delete(&slot);
  // The child in that slot is lost, not released: a script may still use it.
  if (index == kListSlots) abandon(blockAt<void>(slot));
  slot = given;
  return TARN_OK;
}

TarnStatus CGIgs_setStruct(TarnHandle *handle, uint32_t index, TarnHandle *child, uint32_t magic,
                           uint32_t childMagic) {
  Node *node = nodeIn(handle, magic);
  if (!node) return TARN_WRONG_TYPE;
  const Node *given = nodeIn(child, childMagic);
  if (!given || index >= kStructSlots) return TARN_BAD_ARGUMENT;
  // If `child` is the node itself, the copy must not include the old child; if `child` is the old
  // child, the copy must be made before that is released.
  Slots &slots = node->slots();
  const TarnHandle before = take(slots.structs[index]);
  Node *copy = childMagic ? copyNode(*given) : nullptr;
  releaseChild(before);
  slots.structs[index] = handleOf(copy);
  slots.childMagics[index] = childMagic;
  return TARN_OK;
}

TarnStatus CGIgs_setString(TarnHandle *handle, uint32_t index, const char *text, uint32_t magic) {
  Node *node = nodeIn(handle, magic);
  if (!node) return TARN_WRONG_TYPE;
  if (index >= kStringSlots) return TARN_BAD_ARGUMENT;
  setText(*node, index, copyText(text));
  return TARN_OK;
}

TarnStatus CGIgs_setNString(TarnHandle *handle, uint32_t index, const void *data, uint32_t size,
                            uint32_t magic) {
  Node *node = nodeIn(handle, magic);
  if (!node) return TARN_WRONG_TYPE;
  if (index >= kStringSlots) return TARN_BAD_ARGUMENT;
  OwnedText kept = copyBytes(data, size);
  // Each call allocates a second block and leaves it. Kept: quirk 75.
  if (data) abandon(std::malloc(size));
  const bool failed = data && !kept;
  setText(*node, index, std::move(kept));
  return failed ? TARN_OUT_OF_MEMORY : TARN_OK;
}

TarnStatus CGIgs_setInt(TarnHandle *handle, uint32_t index, uint32_t value, uint32_t magic) {
  Node *node = nodeIn(handle, magic);
  if (!node) return TARN_WRONG_TYPE;
  if (index >= kIntSlots) return TARN_BAD_ARGUMENT;
  setNumber(*node, index, value);
  return TARN_OK;
}

TarnStatus CGIgs_setFixed(TarnHandle *handle, uintptr_t value, uint32_t magic) {
  Node *node = nodeIn(handle, magic);
  if (!node) return TARN_WRONG_TYPE;
  node->slots().fixed = value;
  return TARN_OK;
}

TarnStatus CGIgs_setDouble(TarnHandle *handle, uint32_t index, double value, uint32_t magic) {
  Node *node = nodeIn(handle, magic);
  if (!node) return TARN_WRONG_TYPE;
  if (index != 0) return TARN_BAD_ARGUMENT;
  node->slots().doubleValue = static_cast<float>(value);
  return TARN_OK;
}

TarnHandle CGIgs_getList(TarnHandle *handle, uint32_t index, uint32_t magic) {
  const Node *node = nodeIn(handle, magic);
  return node && index < kListSlots ? node->list(index) : 0;
}

TarnHandle CGIgs_getStruct(TarnHandle *handle, uint32_t index, uint32_t magic) {
  const Node *node = nodeIn(handle, magic);
  return node && index < kStructSlots ? node->child(index) : 0;
}

uint32_t CGIgs_getMagic(TarnHandle *handle) { return magicAt(objectIn(handle)); }

uint32_t CGIgs_getChildMagic(TarnHandle *handle, uint32_t index, uint32_t magic) {
  const Node *node = nodeIn(handle, magic);
  return node && index < kStructSlots ? node->childMagic(index) : 0;
}

const char *CGIgs_getString(TarnHandle *handle, uint32_t index, uint32_t magic) {
  const Node *node = nodeIn(handle, magic);
  return node && index < kStringSlots ? node->text(index) : nullptr;
}

uint32_t CGIgs_getInt(TarnHandle *handle, uint32_t index, uint32_t magic) {
  const Node *node = nodeIn(handle, magic);
  return node && index < kIntSlots ? node->number(index) : 0;
}

uintptr_t CGIgs_getFixed(TarnHandle *handle, uint32_t magic) {
  const Node *node = nodeIn(handle, magic);
  return node ? node->fixed() : 0;
}

double CGIgs_getDouble(TarnHandle *handle, uint32_t index, uint32_t magic) {
  const Node *node = nodeIn(handle, magic);
  return node && index == 0 ? static_cast<double>(node->real()) : 0.0;
}
