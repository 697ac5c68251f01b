#include "calls/player.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace tarn_fuzz {
namespace {

void newNode(Player &play) {
  TarnHandle *handle = play.variable();
  const uint32_t magic = play.input.below(16) == 0 ? 0 : play.magic();
  const bool isFree = handle && *handle == 0 && magic != 0;
  EXPECT(CGIgs_new(handle, magic) == (isFree ? TARN_OK : TARN_BAD_ARGUMENT));
  EXPECT(!isFree || isNode(handle, magic));
}

void deleteNode(Player &play) {
  TarnHandle *handle = play.variable();
  const uint32_t magic = play.magicFor(handle);
  const bool matches = isNode(handle, magic);
  const TarnHandle before = handle ? *handle : 0;
  EXPECT(CGIgs_delete(handle, magic) == (matches ? TARN_OK : TARN_WRONG_TYPE));
  EXPECT(!handle || *handle == (matches ? 0 : before));
}

void clearNode(Player &play) {
  TarnHandle *handle = play.any();
  const uint32_t magic = play.magicFor(handle);
  const bool matches = isNode(handle, magic);
  EXPECT(CGIgs_clear(handle, magic) == (matches ? TARN_OK : TARN_WRONG_TYPE));
  if (!matches) return;
  EXPECT(CGIgs_getInt(handle, 0, 0) == 0 && CGIgs_getFixed(handle, 0) == 0);
  EXPECT(!CGIgs_getString(handle, 0, 0) && !CGIgs_getList(handle, 0, 0));
  EXPECT(!CGIgs_getStruct(handle, 2, 0) && CGIgs_getChildMagic(handle, 2, 0) == 0);
}

void cloneNode(Player &play) {
  TarnHandle *source = play.any();
  TarnHandle *destination = play.variable();
  const uint32_t magic = play.magicFor(source);
  const bool matches = isNode(source, magic);
  const bool isFree = destination && *destination == 0 && magic != 0;
  EXPECT(CGIgs_clone(source, destination, magic) == (!matches  ? TARN_WRONG_TYPE
                                                     : !isFree ? TARN_BAD_ARGUMENT
                                                               : TARN_OK));
  EXPECT(!matches || !isFree || sameNodes(*source, *destination));
}

void setList(Player &play) {
  TarnHandle *handle = play.any();
  TarnHandle *list = play.variableOf(TARN_GENERIC_LIST_MAGIC);
  const uint32_t index = play.input.below(4);
  const uint32_t magic = play.magicFor(handle);
  if (list && *list) {
    // Convention 9 (d): index 2 accepts any object, 0 and 1 only lists. Then (b) and (a).
    if (!play.canBeGiven(list, handle)) return;
    if (index < 2 && !TARNGenericList_IsA(list)) return;
    if (index == 0 && CGIgs_getMagic(handle) == TARN_RESPONSE_HEADER_MAGIC) return;
    if (index == 0 && isListType(CGIgs_getMagic(handle)) && !holdsObjects(*list)) return;
  }
  TarnHandle child = index == 2 ? CGIgs_getStruct(handle, 0, magic) : 0;
  const bool isLost = child && !TARNGenericList_IsA(&child);
  const bool matches = isNode(handle, magic);
  const TarnStatus status = CGIgs_setList(handle, index, list, magic);
  EXPECT(status == (!matches ? TARN_WRONG_TYPE : index > 2 ? TARN_BAD_ARGUMENT : TARN_OK));
  if (status != TARN_OK) return;
  if (isLost) deleteObject(child);
  const TarnHandle given = list ? *list : 0;
  EXPECT(given == (index < 2 ? CGIgs_getList(handle, index, 0) : CGIgs_getStruct(handle, 0, 0)));
  if (list) *list = 0;
}

void setStruct(Player &play) {
  TarnHandle *handle = play.any();
  TarnHandle *child = play.any();
  const uint32_t index = play.input.below(4);
  const uint32_t magic = play.magicFor(handle);
  const uint32_t childMagic = play.magicFor(child);
  if (!play.canBeCopiedInto(child, handle)) return;
  const bool matches = isNode(handle, magic);
  const bool isGood = index < 3 && isNode(child, childMagic);
  EXPECT(CGIgs_setStruct(handle, index, child, magic, childMagic) == (!matches  ? TARN_WRONG_TYPE
                                                                      : !isGood ? TARN_BAD_ARGUMENT
                                                                                : TARN_OK));
  EXPECT(!matches || !isGood || CGIgs_getChildMagic(handle, index, 0) == childMagic);
  const bool isCopied = matches && isGood && childMagic != 0;
  const TarnHandle copy = CGIgs_getStruct(handle, index, 0);
  EXPECT(!isCopied || (copy && copy != *child));
  // If a node is stored in itself, the same slot of the copy is still empty.
  TarnHandle inside = copy;
  EXPECT(!isCopied || *handle != *child || CGIgs_getStruct(&inside, index, 0) == 0);
}

void setSlots(Player &play) {
  TarnHandle *handle = play.any();
  const uint32_t magic = play.magicFor(handle);
  const bool matches = isNode(handle, magic);
  const uint32_t index = play.input.below(10);
  const TarnStatus bad = !matches ? TARN_WRONG_TYPE : TARN_BAD_ARGUMENT;
  const char *text = play.text();
  const std::string copy = text ? text : "";
  EXPECT(CGIgs_setString(handle, index, text, magic) == (matches && index < 8 ? TARN_OK : bad));
  if (matches && index < 8 && text) EXPECT(CGIgs_getString(handle, index, magic) == copy);
  const Block &bytes = play.bytes();
  EXPECT(CGIgs_setNString(handle, index + 1, bytes.data(), bytes.size(), magic) ==
         (matches && index < 7 ? TARN_OK : bad));
  EXPECT(CGIgs_setDouble(handle, index, 0.5, magic) == (matches && index == 0 ? TARN_OK : bad));
  // Convention 9 (c).
  const bool isBytes = CGIgs_IsA(handle, TARN_BYTE_BUFFER_MAGIC);
  if (!isBytes || index != TARN_BYTE_BUFFER_LENGTH) {
    EXPECT(CGIgs_setInt(handle, index, 77, magic) == (matches && index < 3 ? TARN_OK : bad));
    EXPECT(CGIgs_getInt(handle, index, magic) == (matches && index < 3 ? 77U : 0U));
  }
  if (!isBytes) {
    EXPECT(CGIgs_setFixed(handle, 78, magic) == (matches ? TARN_OK : TARN_WRONG_TYPE));
    EXPECT(CGIgs_getFixed(handle, magic) == (matches ? 78U : 0U));
  }
  EXPECT(!matches || index != 0 || CGIgs_getDouble(handle, 0, magic) == 0.5);
}

void newList(Player &play) {
  TarnHandle *handle = play.variable();
  const bool isFree = handle && *handle == 0;
  EXPECT(TARNGenericList_new(handle) == (isFree ? TARN_OK : TARN_BAD_ARGUMENT));
  EXPECT(!isFree || !isNode(handle, 0));
}

void deleteList(Player &play) {
  TarnHandle *handle = play.variableOf(TARN_GENERIC_LIST_MAGIC);
  EXPECT(TARNGenericList_delete(handle) == TARN_OK);
  EXPECT(!TARNGenericList_IsA(handle));
}

void clearList(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_GENERIC_LIST_MAGIC);
  EXPECT(TARNGenericList_clear(handle) ==
         (TARNGenericList_IsA(handle) ? TARN_OK : TARN_WRONG_TYPE));
  EXPECT(TARNGenericList_getCount(handle) == 0);
}

void cloneList(Player &play) {
  TarnHandle *source = play.anyOf(TARN_GENERIC_LIST_MAGIC);
  TarnHandle *destination = play.variable();
  const bool isFree = destination && *destination == 0;
  EXPECT(TARNGenericList_clone(source, destination) == (!TARNGenericList_IsA(source)
                                                            ? TARN_WRONG_TYPE
                                                        : !isFree ? TARN_BAD_ARGUMENT
                                                                  : TARN_OK));
  EXPECT(!isFree || !*destination || sameWords(*source, *destination));
}

// Fills any list with zeros, but only a list that a variable owns with numbers: convention 9 (a).
void initList(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_GENERIC_LIST_MAGIC);
  const uint32_t count = play.input.byte();
  const uint32_t capacity = play.input.byte();
  const std::vector<uintptr_t> numbers(capacity, 5);
  const bool zeros = !play.variables.isOne(handle) || count % 2 == 0;
  const bool matches = TARNGenericList_IsA(handle);
  EXPECT(ATRNGenericList_init(handle, zeros ? nullptr : numbers.data(), count, capacity) ==
         (matches ? TARN_OK : TARN_WRONG_TYPE));
  if (!matches) return;
  EXPECT(TARNGenericList_getCount(handle) == count);
  EXPECT(TARNGenericList_getCapacity(handle) == capacity);
  EXPECT(TARNGenericList_getByIndex(handle, 0) == (count == 0 || capacity == 0 || zeros ? 0 : 5));
}

// Adds a hole, or moves an object from a variable to the list: convention 9 (a) and (e).
void addWord(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_GENERIC_LIST_MAGIC);
  TarnHandle *given = play.variable();
  const uint32_t index = play.input.byte();
  const bool appends = play.input.below(2) == 0;
  if (given && *given && !play.canBeGiven(given, handle)) return;
  const uintptr_t word = given ? *given : 0;
  const TarnStatus status = appends ? TARNGenericList_addDatum(handle, word)
                                    : TARNGenericList_setByIndex(handle, index, word);
  if (status != TARN_OK) return;
  const uint32_t count = TARNGenericList_getCount(handle);
  EXPECT(TARNGenericList_getByIndex(handle, appends ? count - 1 : index) == word);
  EXPECT(!appends || count <= TARNGenericList_getCapacity(handle));
  if (given) *given = 0;
}

void reserveWords(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_GENERIC_LIST_MAGIC);
  const uint32_t wanted = play.input.byte();
  const TarnStatus status = TARNGenericList_reserve(handle, wanted);
  EXPECT(status != TARN_OK || TARNGenericList_getCapacity(handle) >= wanted);
  const uint32_t capacity = TARNGenericList_getCapacity(handle);
  EXPECT(TARNGenericList_setByIndex(handle, capacity, 0) != TARN_OK);
  if (const uintptr_t *words = TARNGenericList_getData(handle)) {
    EXPECT(std::count(words, words + capacity, uintptr_t{1}) == 0);
  }
}

void newString(Player &play) {
  TarnHandle *handle = play.variable();
  const bool isFree = handle && *handle == 0;
  EXPECT(TARNString_new(handle) == (isFree ? TARN_OK : TARN_BAD_ARGUMENT));
  EXPECT(!isFree || !isNode(handle, 0));
}

void deleteString(Player &play) {
  TarnHandle *handle = play.variableOf(TARN_STRING_MAGIC);
  const bool matches = TARNString_IsA(handle);
  EXPECT(TARNString_delete(handle) == (matches ? TARN_OK : TARN_WRONG_TYPE));
}

void changeString(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_STRING_MAGIC);
  TarnHandle *other = play.anyOf(TARN_STRING_MAGIC);
  const char *text = play.text();
  const bool matches = TARNString_IsA(handle);
  EXPECT(TARNString_set(handle, text) == (!matches ? TARN_WRONG_TYPE
                                          : !text  ? TARN_BAD_ARGUMENT
                                                   : TARN_OK));
  EXPECT(!matches || !text || TARNString_compare(handle, text) == 0);
  TARNString_append(handle, text);
  TARNString_append_string(handle, other);
  TARNString_insert(handle, text, play.input.byte());
  const uint8_t position = play.input.byte();
  TARNString_remove(handle, position, play.input.byte());
  TARNString_append_sprintf(handle, "%s", "x");
  TARNString_set_string(other, handle);
  TARNString_reserve(handle, play.input.byte());
  EXPECT(!matches || !TARNString_IsA(other) || TARNString_compare_string(handle, other) == 0);
  const char *own = TARNString_c_str(handle);
  EXPECT(TARNString_length(handle) == (own ? std::strlen(own) : 0));
  EXPECT(TARNString_print(handle) == (!matches ? TARN_WRONG_TYPE
                                      : own    ? TARN_OK
                                               : TARN_OUT_OF_MEMORY));
  EXPECT(TARNString_clear(handle) == (matches ? TARN_OK : TARN_WRONG_TYPE));
}

void copyString(Player &play) {
  TarnHandle *source = play.anyOf(TARN_STRING_MAGIC);
  TARNString_dup(source, play.variable());
  TARNString_substr(source, 1, 2, play.variable());
}

void fillBuffer(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_BYTE_BUFFER_MAGIC);
  const Block &bytes = play.bytes();
  EXPECT(CGIfb_setData(handle, bytes.data(), bytes.size()) ==
         (!isNode(handle, TARN_BYTE_BUFFER_MAGIC) ? TARN_WRONG_TYPE
          : bytes.size() == 0                     ? TARN_BAD_ARGUMENT
                                                  : TARN_OK));
  if (TarnHandle *unused = play.variables.unused()) {
    *unused = extractBetween1(bytes.data(), bytes.size(), "");
  }
}

}  // namespace

Calls coreCalls() {
  static constexpr Call kCalls[] = {newNode,      deleteNode,   clearNode,  cloneNode,    setList,
                                    setStruct,    setSlots,     newList,    deleteList,   clearList,
                                    cloneList,    initList,     addWord,    reserveWords, newString,
                                    deleteString, changeString, copyString, fillBuffer};
  return kCalls;
}

}  // namespace tarn_fuzz
