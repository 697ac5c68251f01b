#include "core/cgigs.h"

namespace tarn::internal {
namespace {

// The largest value of Node::room, and the most room that fits into one block with the node.
constexpr uint32_t kRoomBits = UINTPTR_MAX > UINT32_MAX ? UINT32_MAX : INT32_MAX;
constexpr uint32_t kMostRoom =
    UINTPTR_MAX > UINT32_MAX ? UINT32_MAX : kRoomBits - uint32_t{sizeof(Node)};

// Nodes for 32 bits have no gap for the offset, so they do not share blocks.
#if UINTPTR_MAX > UINT32_MAX
uint32_t offsetOf(const Node &node) { return node.offset; }
void setOffset(Node &node, uint32_t offset) { node.offset = offset & INT32_MAX; }
void *newBlock(size_t size, NodeArena *arena, uint32_t &offset) {
  void *block = arena ? arena->allocate(size, offset) : nullptr;
  return block ? block : std::malloc(size);
}
#else
uint32_t offsetOf(const Node &) { return 0; }
void setOffset(Node &, uint32_t) {}
void *newBlock(size_t size, NodeArena *, uint32_t &) { return std::malloc(size); }
#endif

// Children are visited without recursion, so that no depth can exhaust the stack. Nodes still to be
// released are linked through their `fixed` slots, which nobody reads any more; copies still to be
// filled are linked through their struct slots. Each function below has the head of such a linked
// list as `pending`.

// Adds a child to the nodes to be released. What a script parked in the slot through list index 2
// may be a list or a string instead, which is released at once. Kept: quirk 70.
void releaseLater(TarnHandle child, Node *&pending) {
  if (Node *node = nodeAt(child, 0)) {
    node->fixed = handleOf(pending);
    pending = node;
  } else if (GenericList *list = listAt(child)) {
    deleteList(list);
  } else if (String *string = stringAt(child)) {
    deleteString(string);
  }
}

void releaseChildrenLater(Node &node, Node *&pending) {
  for (TarnHandle &child : node.structs) releaseLater(take(child), pending);
  for (uint32_t &magic : node.childMagics) magic = 0;
}

// Something other than a list in a list slot belongs to the script and stays there.
void releaseListsLater(Node &node, Node *&pending) {
  for (TarnHandle &slot : node.lists) {
    if (listAt(slot)) releaseLater(take(slot), pending);
  }
}

bool hasChildren(const Node &node) {
  TarnHandle any = 0;
  for (const TarnHandle child : node.structs) any |= child;
  for (const TarnHandle list : node.lists) any |= list;
  return any != 0;
}

// Frees a text unless it is in the node's own block.
void releaseText(const Node &node, char *text) {
  if (!text) return;
  const uintptr_t offset = handleOf(text) - handleOf(roomOf(node));
  if (offset >= node.room) std::free(text);
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
  } else if (const uint32_t offset = offsetOf(*node)) {
    NodeArena::release(node, offset);
  } else {
    std::free(node);
  }
}

void destroyPending(Node *pending) {
  while (Node *node = pending) {
    pending = nodeAt(node->fixed, 0);
    // Most nodes have neither.
    if (hasChildren(*node)) {
      releaseChildrenLater(*node, pending);
      releaseListsLater(*node, pending);
    }
    for (char *text : node->strings) releaseText(*node, text);
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
    copy->structs[kNextPending] = handleOf(pending);
    copy->structs[kSource] = handleOf(&source);
    pending = copy;
  }
  return copy;
}

void fillCopy(Node &copy, const Node &source, Node *&pending) {
  bool whole = true;
  for (uint32_t i = 0; i < kListSlots; ++i) {
    if (const GenericList *list = listAt(source.lists[i])) {
      const GenericList *made = copyList(*list);
      copy.lists[i] = handleOf(made);
      whole = whole && made && isWholeCopy(*made, *list);
    }
  }
  for (uint32_t i = 0; i < kStructSlots; ++i) {
    // A child stored under tag 0 is not copied: no node can be created under that tag.
    const uint32_t magic = source.childMagics[i];
    const Node *child = magic ? childOf(source, i, magic) : nullptr;
    copy.structs[i] = child ? handleOf(newPendingCopy(*child, pending)) : 0;
    copy.childMagics[i] = magic;
    whole = whole && (!child || copy.structs[i]);
  }
  for (uint32_t i = 0; i < kStringSlots; ++i) {
    copy.strings[i] = copyText(source.strings[i]).release();
    whole = whole && (!source.strings[i] || copy.strings[i]);
  }
  for (uint32_t i = 0; i < kIntSlots; ++i) copy.ints[i] = source.ints[i];
  copy.doubleValue = source.doubleValue;
  copy.fixed = source.fixed;
  copy.incomplete = source.incomplete || !whole ? 1 : 0;
}

// A list or a string that is also a node.
template <class Record>
Node *newRecordAndNode(uint32_t magic) {
  auto *block = static_cast<RecordAndNode<Record> *>(std::calloc(1, sizeof(RecordAndNode<Record>)));
  if (!block) return nullptr;
  block->record.magic = magic;
  block->record.node = &block->node;
  block->node.magic = magic;
  return &block->node;
}

}  // namespace

Node *newNode(uint32_t magic, size_t room, NodeArena *arena) {
  if (magic == TARN_GENERIC_LIST_MAGIC) return newRecordAndNode<GenericList>(magic);
  if (magic == TARN_STRING_MAGIC) return newRecordAndNode<String>(magic);
  if (room > kMostRoom) return nullptr;
  uint32_t offset = 0;
  void *block = newBlock(sizeof(Node) + room, arena, offset);
  if (!block) return nullptr;
  auto *node = static_cast<Node *>(block);
  *node = {};
  node->magic = magic;
  setOffset(*node, offset);
  node->room = static_cast<uint32_t>(room) & kRoomBits;
  return node;
}

Node *copyNode(const Node &source) {
  Node *pending = nullptr;
  Node *top = newPendingCopy(source, pending);
  while (Node *copy = pending) {
    pending = nodeAt(copy->structs[kNextPending], 0);
    fillCopy(*copy, *nodeAt(copy->structs[kSource], 0), pending);
  }
  return top;
}

void emptyNode(Node &node) {
  Node *pending = nullptr;
  releaseListsLater(node, pending);
  releaseChildrenLater(node, pending);
  destroyPending(pending);
  // Kept: quirk 69.
  for (const uint32_t i : {0U, 1U}) releaseText(node, take(node.strings[i]));
  for (uint32_t &number : node.ints) number = 0;
  node.doubleValue = 0;
  node.fixed = 0;
}

void destroyNode(Node *node) { releaseChild(handleOf(node)); }

void setText(Node &node, uint32_t slot, OwnedText text) {
  releaseText(node, std::exchange(node.strings[slot], text.release()));
}

void setChild(Node &node, uint32_t slot, Node *child) {
  releaseChild(std::exchange(node.structs[slot], handleOf(child)));
  node.childMagics[slot] = child ? child->magic : 0;
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
  TarnHandle &slot = index < kListSlots ? node->lists[index] : node->structs[0];
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
  const TarnHandle before = take(node->structs[index]);
  Node *copy = childMagic ? copyNode(*given) : nullptr;
  releaseChild(before);
  node->structs[index] = handleOf(copy);
  node->childMagics[index] = childMagic;
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
  node->ints[index] = value;
  return TARN_OK;
}

TarnStatus CGIgs_setFixed(TarnHandle *handle, uintptr_t value, uint32_t magic) {
  Node *node = nodeIn(handle, magic);
  if (!node) return TARN_WRONG_TYPE;
  node->fixed = value;
  return TARN_OK;
}

TarnStatus CGIgs_setDouble(TarnHandle *handle, uint32_t index, double value, uint32_t magic) {
  Node *node = nodeIn(handle, magic);
  if (!node) return TARN_WRONG_TYPE;
  if (index != 0) return TARN_BAD_ARGUMENT;
  node->doubleValue = static_cast<float>(value);
  return TARN_OK;
}

TarnHandle CGIgs_getList(TarnHandle *handle, uint32_t index, uint32_t magic) {
  const Node *node = nodeIn(handle, magic);
  return node && index < kListSlots ? node->lists[index] : 0;
}

TarnHandle CGIgs_getStruct(TarnHandle *handle, uint32_t index, uint32_t magic) {
  const Node *node = nodeIn(handle, magic);
  return node && index < kStructSlots ? node->structs[index] : 0;
}

uint32_t CGIgs_getMagic(TarnHandle *handle) { return magicAt(objectIn(handle)); }

uint32_t CGIgs_getChildMagic(TarnHandle *handle, uint32_t index, uint32_t magic) {
  const Node *node = nodeIn(handle, magic);
  return node && index < kStructSlots ? node->childMagics[index] : 0;
}

const char *CGIgs_getString(TarnHandle *handle, uint32_t index, uint32_t magic) {
  const Node *node = nodeIn(handle, magic);
  return node && index < kStringSlots ? node->strings[index] : nullptr;
}

uint32_t CGIgs_getInt(TarnHandle *handle, uint32_t index, uint32_t magic) {
  const Node *node = nodeIn(handle, magic);
  return node && index < kIntSlots ? node->ints[index] : 0;
}

uintptr_t CGIgs_getFixed(TarnHandle *handle, uint32_t magic) {
  const Node *node = nodeIn(handle, magic);
  return node ? node->fixed : 0;
}

double CGIgs_getDouble(TarnHandle *handle, uint32_t index, uint32_t magic) {
  const Node *node = nodeIn(handle, magic);
  return node && index == 0 ? static_cast<double>(node->doubleValue) : 0.0;
}
