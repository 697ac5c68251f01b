#include "core/generic_list.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

#include "core/cgigs.h"
#include "core/memory.h"

namespace tarn::internal {
namespace {

constexpr uint32_t kStep = 10;

uintptr_t *newWords(uint32_t words) {
  const uint64_t size = uint64_t{words} * sizeof(uintptr_t);
  if (size > PTRDIFF_MAX) return nullptr;
  return static_cast<uintptr_t *>(std::calloc(1, static_cast<size_t>(size)));
}

uintptr_t *reallocateWords(uintptr_t *data, uint32_t words) {
  const uint64_t size = uint64_t{words} * sizeof(uintptr_t);
  if (size > PTRDIFF_MAX) return nullptr;
  return static_cast<uintptr_t *>(std::realloc(data, static_cast<size_t>(size)));
}

void copyWords(uintptr_t *to, const void *from, uint32_t words) {
  if (to && from) copyMemory(to, from, words * sizeof(uintptr_t));
}

// Replaces the list's array by a larger one and copies the first `old` words; false if it is null.
bool replaceArray(GenericList &list, uintptr_t *data, uint32_t old, uint32_t room) {
  if (!data) return false;
  copyWords(data, list.data, old);
  freeArray(list);
  list.data = data;
  list.room = room;
  return true;
}

// Gives the list an array of at least `words`. The array doubles, so that appending takes constant
// time on average, while the capacity that scripts see grows by ten.
bool makeRoom(GenericList &list, uint32_t words) {
  if (words <= list.room) return true;
  // Far more than before: a new array, whose zero pages cost no memory until they are written to.
  if (words / 2 > list.room) return replaceArray(list, newWords(words), list.room, words);
  uint32_t room = std::max(words, list.room > UINT32_MAX / 2 ? UINT32_MAX : list.room * 2);
  uintptr_t *data = reallocateWords(list.data, room);
  if (!data) data = reallocateWords(list.data, room = words);
  if (!data) return false;
  std::fill_n(data + list.room, room - list.room, uintptr_t{0});
  list.data = data;
  list.room = room;
  return true;
}

// Raises the capacity as far as memory allows, by fewer than `steps` steps, trying ever smaller powers
// of two. Only the words that were there before are copied; the others are zero.
void growAsFarAsPossible(GenericList &list, uint32_t steps) {
  const uint32_t old = list.room;
  uint32_t done = 0;
  for (uint32_t more = std::bit_floor(steps); more > 0; more /= 2) {
    if (done + more >= steps) continue;
    const uint32_t words = list.capacity + (done + more) * kStep;
    if (words <= list.room || replaceArray(list, newWords(words), old, words)) done += more;
  }
  list.capacity += done * kStep;
}

// Raises the capacity by tens until it is at least `least`; the array grows in one go. If memory runs
// out, the capacity keeps the steps that succeeded and also counts the one that failed, although the
// array did not grow with it. Kept: quirk 78.
TarnStatus growTo(GenericList &list, uint32_t least) {
  if (list.capacity >= least) return TARN_OK;
  const uint32_t steps = (least - list.capacity - 1) / kStep + 1;
  const uint32_t most = (UINT32_MAX - list.capacity) / kStep;
  const uint32_t wanted = list.capacity + steps * kStep;
  if (steps <= most && makeRoom(list, wanted)) {
    list.capacity = wanted;
    return TARN_OK;
  }
  if (steps <= most) growAsFarAsPossible(list, steps);
  if (list.capacity <= UINT32_MAX - kStep) list.capacity += kStep;
  return TARN_OUT_OF_MEMORY;
}

// After a failed growth the array is smaller than the capacity; a write beyond it tries again.
TarnStatus write(GenericList &list, uint32_t index, uintptr_t value) {
  if (index >= list.room && !makeRoom(list, list.capacity)) return TARN_OUT_OF_MEMORY;
  list.data[index] = value;
  return TARN_OK;
}

void clear(GenericList &list) {
  if (list.data) std::fill_n(list.data, list.room, uintptr_t{0});
  list.count = 0;
}

}  // namespace

GenericList *newList() {
  auto *list = static_cast<GenericList *>(std::calloc(1, sizeof(GenericList)));
  if (list) list->magic = TARN_GENERIC_LIST_MAGIC;
  return list;
}

void freeArray(GenericList &list) { std::free(take(list.data)); }

void deleteList(GenericList *list) {
  if (list->node) return destroyNode(list->node);
  freeArray(*list);
  std::free(list);
}

GenericList *copyList(const GenericList &source) {
  GenericList *copy = newList();
  if (!copy) return nullptr;
  copy->count = source.count;
  copy->capacity = source.capacity;
  if (makeRoom(*copy, source.capacity)) {
    copyWords(copy->data, source.data, std::min(source.room, source.capacity));
  }
  return copy;
}

bool isWholeCopy(const GenericList &copy, const GenericList &source) {
  return copy.room >= std::min(source.room, source.capacity);
}

TarnStatus append(GenericList *list, uintptr_t value) {
  if (!list) return TARN_WRONG_TYPE;
  if (list->count == UINT32_MAX) return TARN_OUT_OF_MEMORY;
  if (TarnStatus status = growTo(*list, list->count + 1)) return status;
  if (TarnStatus status = write(*list, list->count, value)) return status;
  ++list->count;
  return TARN_OK;
}

}  // namespace tarn::internal

using namespace tarn::internal;

TarnStatus TARNGenericList_new(TarnHandle *handle) {
  if (!handle || *handle) return TARN_BAD_ARGUMENT;
  GenericList *list = newList();
  if (!list) return TARN_OUT_OF_MEMORY;
  *handle = handleOf(list);
  return TARN_OK;
}

// Succeeds for anything. Kept: quirk 76.
TarnStatus TARNGenericList_delete(TarnHandle *handle) {
  if (GenericList *list = listIn(handle)) {
    *handle = 0;
    deleteList(list);
  }
  return TARN_OK;
}

TarnStatus TARNGenericList_clear(TarnHandle *handle) {
  GenericList *list = listIn(handle);
  if (!list) return TARN_WRONG_TYPE;
  clear(*list);
  return TARN_OK;
}

uint32_t TARNGenericList_IsA(TarnHandle *handle) { return listIn(handle) ? 1 : 0; }

// The name is spelt this way, and the count is taken as given. Kept: quirk 77.
TarnStatus ATRNGenericList_init(TarnHandle *handle, const void *source, uint32_t count,
                                uint32_t capacity) {
  GenericList *list = listIn(handle);
  if (!list) return TARN_WRONG_TYPE;
  clear(*list);
  // A script may still be reading the old array, since the list gave out its address.
  abandon(take(list->data));
  list->count = count;
  list->capacity = capacity;
  list->room = 0;
  if (makeRoom(*list, capacity)) copyWords(list->data, source, capacity);
  return TARN_OK;
}

TarnStatus TARNGenericList_clone(TarnHandle *source, TarnHandle *destination) {
  const GenericList *list = listIn(source);
  if (!list) return TARN_WRONG_TYPE;
  if (!destination || *destination) return TARN_BAD_ARGUMENT;
  GenericList *copy = copyList(*list);
  if (!copy) return TARN_OUT_OF_MEMORY;
  *destination = handleOf(copy);
  return TARN_OK;
}

uint32_t TARNGenericList_getCount(TarnHandle *handle) {
  const GenericList *list = listIn(handle);
  return list ? list->count : 0;
}

uint32_t TARNGenericList_getCapacity(TarnHandle *handle) {
  const GenericList *list = listIn(handle);
  return list ? list->capacity : 0;
}

uintptr_t *TARNGenericList_getData(TarnHandle *handle) {
  const GenericList *list = listIn(handle);
  return list ? list->data : nullptr;
}

TarnStatus TARNGenericList_addDatum(TarnHandle *handle, uintptr_t value) {
  return append(listIn(handle), value);
}

uintptr_t TARNGenericList_getByIndex(TarnHandle *handle, uint32_t index) {
  const GenericList *list = listIn(handle);
  return list ? elementAt(*list, index) : 0;
}

TarnStatus TARNGenericList_reserve(TarnHandle *handle, uint32_t n) {
  GenericList *list = listIn(handle);
  if (!list) return TARN_WRONG_TYPE;
  return growTo(*list, n);
}

TarnStatus TARNGenericList_setByIndex(TarnHandle *handle, uint32_t index, uintptr_t value) {
  GenericList *list = listIn(handle);
  if (!list) return TARN_WRONG_TYPE;
  if (index >= list->capacity) return TARN_BAD_ARGUMENT;
  if (TarnStatus status = write(*list, index, value)) return status;
  list->count = std::max(list->count, index + 1);
  return TARN_OK;
}
