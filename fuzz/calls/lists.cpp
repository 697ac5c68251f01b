#include "calls/player.h"

#include <iterator>
#include <vector>

namespace tarn_fuzz {
namespace {

const ListType &listType(Player &play) {
  return *kListTypes[play.input.below(std::size(kListTypes))];
}

// Returns the objects in a list that are not of its element type. They are not copied with the
// list, and they survive when it is cleared or deleted.
std::vector<TarnHandle> foreignIn(const ListType &type, TarnHandle *list) {
  std::vector<TarnHandle> foreign;
  for (uint32_t i = 0; i < static_cast<uint32_t>(type.count(list)); ++i) {
    TarnHandle element = type.byIndex(list, i);
    if (!CGIgs_IsA(&element, type.element)) foreign.push_back(element);
  }
  return foreign;
}

void expectObjects(std::vector<TarnHandle> handles) {
  for (TarnHandle &handle : handles) EXPECT(handle == 0 || CGIgs_IsA(&handle, 0));
}

void addElement(Player &play) {
  const ListType &type = listType(play);
  TarnHandle *list = play.anyOf(type.magic);
  TarnHandle *element = play.anyOf(type.element);
  const int before = type.count(list);
  const bool isList = CGIgs_IsA(list, type.magic);
  const bool isElement = CGIgs_IsA(element, type.element);
  if (!play.canBeCopiedInto(element, list)) return;
  const TarnStatus status = type.add(list, element);
  if (!isList || !isElement) {
    EXPECT(status == (isList ? TARN_BAD_ARGUMENT : TARN_WRONG_TYPE));
  }
  EXPECT(type.count(list) == before + (status == TARN_OK ? 1 : 0));
  EXPECT(type.byIndex(list, static_cast<uint32_t>(type.count(list))) == 0);
}

void clearElements(Player &play) {
  const ListType &type = listType(play);
  TarnHandle *list = type.clearKeepsTheList ? play.anyOf(type.magic) : play.variableOf(type.magic);
  if (!play.ownsElements(list)) return;
  const bool matches = CGIgs_IsA(list, type.magic);
  const std::vector<TarnHandle> foreign = foreignIn(type, list);
  if (matches) play.expectElementsFreed(type, *list);
  EXPECT(type.clear(list) == (matches ? TARN_OK : TARN_WRONG_TYPE));
  expectObjects(foreign);
  EXPECT(!matches || type.count(list) == 0);
  EXPECT(!matches || (*list != 0) == type.clearKeepsTheList);
}

void deleteElements(Player &play) {
  const ListType &type = listType(play);
  TarnHandle *list = play.variableOf(type.magic);
  if (!play.ownsElements(list)) return;
  const bool matches = CGIgs_IsA(list, type.magic);
  const std::vector<TarnHandle> foreign = foreignIn(type, list);
  if (matches) play.expectElementsFreed(type, *list);
  EXPECT(type.remove(list) == (matches ? TARN_OK : TARN_WRONG_TYPE));
  expectObjects(foreign);
  EXPECT(!matches || *list == 0);
}

void cloneElements(Player &play) {
  const ListType &type = listType(play);
  TarnHandle *source = play.anyOf(type.magic);
  TarnHandle *destination = play.variables.unused();
  const bool isWhole = CGIgs_IsA(source, type.magic) && foreignIn(type, source).empty();
  const TarnStatus status = type.clone(source, destination);
  EXPECT(isWhole || status == TARN_WRONG_TYPE);
  EXPECT(status != TARN_OK || !destination || sameLists(type, *source, *destination));
}

}  // namespace

Calls listCalls() {
  static constexpr Call kCalls[] = {addElement, clearElements, deleteElements, cloneElements};
  return kCalls;
}

}  // namespace tarn_fuzz
