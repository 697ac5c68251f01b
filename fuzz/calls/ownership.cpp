#include "calls/ownership.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "support.h"

namespace tarn_fuzz {
namespace {

constexpr uint32_t kLists = 2;
constexpr uint32_t kStructs = 3;

bool watching = false;
std::vector<const void *> freed;

bool isFreed(TarnHandle object) {
  return std::count(freed.begin(), freed.end(), reinterpret_cast<const void *>(object)) > 0;
}

void addWords(TarnHandle list, bool areLines, Reach &reach) {
  const uint32_t count = TARNGenericList_getCount(&list);
  for (uint32_t i = 0; i < count; ++i) {
    const TarnHandle word = TARNGenericList_getByIndex(&list, i);
    if (word < kNumbers) continue;
    ++reach.elements.try_emplace(word, Element{0, areLines}).first->second.named;
    if (!areLines) addReach(word, reach);
  }
}

}  // namespace

void addReach(TarnHandle object, Reach &reach) {
  if (!object || !reach.objects.insert(object).second) return;
  const uint32_t magic = CGIgs_getMagic(&object);
  addWords(object, false, reach);
  for (uint32_t i = 0; i < kLists; ++i) {
    const TarnHandle list = CGIgs_getList(&object, i, 0);
    if (list && magic == TARN_RESPONSE_HEADER_MAGIC && i == 0) {
      addWords(list, true, reach);
    } else {
      addReach(list, reach);
    }
  }
  for (uint32_t i = 0; i < kStructs; ++i) addReach(CGIgs_getStruct(&object, i, 0), reach);
}

Reach reachOf(TarnHandle object) {
  Reach reach;
  addReach(object, reach);
  return reach;
}

bool isListType(uint32_t magic) {
  return magic == TARN_FORM_ENTRY_LIST_MAGIC || magic == TARN_COOKIE_LIST_MAGIC ||
         magic == TARN_ATTRIBUTE_LIST_MAGIC;
}

bool holdsObjects(TarnHandle list) {
  for (uint32_t i = 0; i < TARNGenericList_getCount(&list); ++i) {
    const uintptr_t word = TARNGenericList_getByIndex(&list, i);
    if (word != 0 && word < kNumbers) return false;
  }
  return true;
}

void deleteObject(TarnHandle object) {
  notAbandoned(reinterpret_cast<const void *>(object));
  TARNGenericList_delete(&object);
  if (TARNString_delete(&object) != TARN_OK) CGIgs_delete(&object, 0);
  EXPECT(object == 0);
}

Variables::~Variables() {
  for (const TarnHandle handle : handles_) EXPECT(handle == 0);
}

TarnHandle *Variables::unused() {
  auto *const found = std::find(handles_.begin(), handles_.end(), TarnHandle{0});
  return found == handles_.end() ? nullptr : found;
}

bool Variables::isOne(const TarnHandle *handle) const {
  return std::any_of(handles_.begin(), handles_.end(),
                     [handle](const TarnHandle &each) { return &each == handle; });
}

bool Variables::ownsElements(TarnHandle object) const {
  for (const auto &[element, use] : reachOf(object).elements) {
    if (reach_.elements.at(element).named > 1) return false;
  }
  return true;
}

void Variables::watch() {
  freed.clear();
  watching = true;
}

void Variables::settle() {
  watching = false;
  for (const TarnHandle element : doomed_) EXPECT(isFreed(element));
  doomed_.clear();
  const Reach before = std::move(reach_);
  reach_ = Reach();
  for (const TarnHandle handle : handles_) addReach(handle, reach_);
  for (const auto &[element, use] : before.elements) {
    if (reach_.elements.count(element) || isFreed(element)) continue;
    if (use.isLine) {
      std::free(reinterpret_cast<void *>(element));
    } else if (!reach_.objects.count(element)) {
      deleteObject(element);
    }
  }
}

}  // namespace tarn_fuzz

// The linker redirects every call of free() here.
extern "C" void __real_free(void *block);

extern "C" void __wrap_free(void *block) {
  if (tarn_fuzz::watching && block) {
    tarn_fuzz::watching = false;
    tarn_fuzz::freed.push_back(block);
    tarn_fuzz::watching = true;
  }
  __real_free(block);
}
