#include <gtest/gtest.h>
#include <tarn.h>

#include <array>
#include <cstring>
#include <functional>
#include <limits>
#include <numeric>
#include <vector>

#include "support/failing_memory.h"
#include "support/handles.h"

namespace {

using tarn_test::List;
using tarn_test::Node;

constexpr uint32_t kHuge = std::numeric_limits<uint32_t>::max();
constexpr uintptr_t kWide = ~uintptr_t{0};

std::vector<uintptr_t> wordsOf(TarnHandle *list) {
  std::vector<uintptr_t> words;
  for (uint32_t i = 0; i < TARNGenericList_getCount(list); ++i) {
    words.push_back(TARNGenericList_getByIndex(list, i));
  }
  return words;
}

using Words = std::vector<uintptr_t>;

// ---- Creating and deleting ----------------------------------------------------------------------

TEST(GenericListNew, CreatesAListWithoutElementsCapacityOrArray) {
  TarnHandle handle = 0;
  EXPECT_EQ(TARN_OK, TARNGenericList_new(&handle));
  ASSERT_NE(0u, handle);
  EXPECT_EQ(1u, TARNGenericList_IsA(&handle));
  EXPECT_EQ(9565u, CGIgs_getMagic(&handle));
  EXPECT_EQ(0u, TARNGenericList_getCount(&handle));
  EXPECT_EQ(0u, TARNGenericList_getCapacity(&handle));
  EXPECT_EQ(nullptr, TARNGenericList_getData(&handle));
  EXPECT_EQ(0u, TARNGenericList_getByIndex(&handle, 0));
  EXPECT_EQ(TARN_OK, TARNGenericList_delete(&handle));
}

TEST(GenericListNew, RefusesANullAddressAndAHandleInUse) {
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNGenericList_new(nullptr));
  List list{1};
  const TarnHandle before = list.value();
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNGenericList_new(list));
  EXPECT_EQ(before, list.value());
  EXPECT_EQ(Words{1}, wordsOf(list));
}

TEST(GenericListDelete, SetsTheHandleToZeroAndReturnsOkTwice) {
  List list{1, 2};
  EXPECT_EQ(TARN_OK, TARNGenericList_delete(list));
  EXPECT_EQ(0u, list.value());
  EXPECT_EQ(TARN_OK, TARNGenericList_delete(list));
  EXPECT_EQ(TARN_OK, TARNGenericList_delete(nullptr));
}

TEST(GenericListDelete, LeavesANodeUnchangedButReturnsOk) {
  Node node(4711);
  const TarnHandle before = node.value();
  EXPECT_EQ(TARN_OK, TARNGenericList_delete(node));
  EXPECT_EQ(before, node.value());
  EXPECT_EQ(4711u, CGIgs_getMagic(node));
}

TEST(GenericListDelete, DoesNotReleaseTheElements) {
  char element[] = "element";
  List list{reinterpret_cast<uintptr_t>(element)};
  TARNGenericList_delete(list);
  EXPECT_STREQ("element", element);
}

// ---- The type test ------------------------------------------------------------------------------

TEST(GenericListType, EveryOperationRefusesAnythingButAList) {
  Node node(4711);
  TarnHandle empty = 0;
  uintptr_t words[3] = {1, 2, 3};
  for (TarnHandle *handle :
       {static_cast<TarnHandle *>(nullptr), &empty, static_cast<TarnHandle *>(node)}) {
    TarnHandle copy = 0;
    EXPECT_EQ(0u, TARNGenericList_IsA(handle));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNGenericList_clear(handle));
    EXPECT_EQ(TARN_WRONG_TYPE, ATRNGenericList_init(handle, words, 3, 3));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNGenericList_clone(handle, &copy));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNGenericList_clone(handle, nullptr));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNGenericList_addDatum(handle, 1));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNGenericList_reserve(handle, 10));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNGenericList_setByIndex(handle, 0, 1));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNGenericList_setByIndex(handle, kHuge, 1));
    EXPECT_EQ(0u, TARNGenericList_getCount(handle));
    EXPECT_EQ(0u, TARNGenericList_getCapacity(handle));
    EXPECT_EQ(nullptr, TARNGenericList_getData(handle));
    EXPECT_EQ(0u, TARNGenericList_getByIndex(handle, 0));
    EXPECT_EQ(0u, copy);
  }
  EXPECT_EQ(4711u, CGIgs_getMagic(node));
  EXPECT_EQ(0u, empty);
}

// ---- Adding and growing -------------------------------------------------------------------------

TEST(GenericListAdd, KeepsWordsInOrderAndCountsThem) {
  List list;
  for (const uintptr_t word : {uintptr_t{7}, uintptr_t{0}, kWide}) {
    SCOPED_TRACE(word);
    EXPECT_EQ(TARN_OK, TARNGenericList_addDatum(list, word));
  }
  EXPECT_EQ((Words{7, 0, kWide}), wordsOf(list));
}

TEST(GenericListAdd, ElevenElementsRaiseTheCapacityToTwenty) {
  List list;
  for (uintptr_t i = 1; i <= 10; ++i) TARNGenericList_addDatum(list, i);
  EXPECT_EQ(10u, TARNGenericList_getCapacity(list));
  EXPECT_EQ(TARN_OK, TARNGenericList_addDatum(list, 11));
  EXPECT_EQ(20u, TARNGenericList_getCapacity(list));
  EXPECT_EQ((Words{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}), wordsOf(list));
}

TEST(GenericListAdd, CapacityIsAlwaysTheNextMultipleOfTen) {
  List list;
  for (uint32_t count = 1; count <= 1000; ++count) {
    SCOPED_TRACE(count);
    ASSERT_EQ(TARN_OK, TARNGenericList_addDatum(list, count));
    ASSERT_EQ((count + 9) / 10 * 10, TARNGenericList_getCapacity(list));
    ASSERT_EQ(count, TARNGenericList_getCount(list));
  }
}

TEST(GenericListAdd, HundredsOfThousandsOfWordsKeepTheirOrder) {
  constexpr uint32_t kCount = 300001;
  List list;
  for (uint32_t i = 0; i < kCount; ++i)
    ASSERT_EQ(TARN_OK, TARNGenericList_addDatum(list, kWide - i)) << i;
  EXPECT_EQ(kCount, TARNGenericList_getCount(list));
  EXPECT_EQ(300010u, TARNGenericList_getCapacity(list));
  for (uint32_t i = 0; i < kCount; ++i)
    ASSERT_EQ(kWide - i, TARNGenericList_getByIndex(list, i)) << i;
}

TEST(GenericListReserve, RaisesTheCapacityInStepsOfTen) {
  const std::array<std::pair<uint32_t, uint32_t>, 6> cases = {
      {{0, 0}, {1, 10}, {10, 10}, {11, 20}, {25, 30}, {100001, 100010}}};
  for (const auto &[asked, given] : cases) {
    SCOPED_TRACE(asked);
    List list;
    EXPECT_EQ(TARN_OK, TARNGenericList_reserve(list, asked));
    EXPECT_EQ(given, TARNGenericList_getCapacity(list));
    EXPECT_EQ(0u, TARNGenericList_getCount(list));
    EXPECT_EQ(given == 0, TARNGenericList_getData(list) == nullptr);
  }
}

TEST(GenericListReserve, NeverLowersTheCapacityAndKeepsTheElements) {
  List list{1, 2, 3};
  EXPECT_EQ(TARN_OK, TARNGenericList_reserve(list, 5));
  EXPECT_EQ(10u, TARNGenericList_getCapacity(list));
  EXPECT_EQ(TARN_OK, TARNGenericList_reserve(list, 31));
  EXPECT_EQ(40u, TARNGenericList_getCapacity(list));
  EXPECT_EQ(TARN_OK, TARNGenericList_reserve(list, 0));
  EXPECT_EQ(40u, TARNGenericList_getCapacity(list));
  EXPECT_EQ((Words{1, 2, 3}), wordsOf(list));
}

TEST(GenericListReserve, ArrayIsZeroBeyondTheElements) {
  List list{1, 2, 3};
  TARNGenericList_reserve(list, 5000);
  const uintptr_t *data = TARNGenericList_getData(list);
  EXPECT_EQ(6, std::accumulate(data, data + 5000, uintptr_t{0}));
}

TEST(GenericListReserve, ReservedWordsCanBeWrittenThroughTheArray) {
  List list;
  TARNGenericList_reserve(list, 95);
  uintptr_t *data = TARNGenericList_getData(list);
  for (uint32_t i = 0; i < 100; ++i) data[i] = i + 1;
  EXPECT_EQ(TARN_OK, TARNGenericList_setByIndex(list, 99, 100));
  EXPECT_EQ(50u, TARNGenericList_getByIndex(list, 49));
  EXPECT_EQ(data, TARNGenericList_getData(list));
}

// ---- Reading and writing by index ---------------------------------------------------------------

TEST(GenericListGet, ReturnsZeroAtAndBeyondTheCount) {
  List list{5, 6};
  EXPECT_EQ(6u, TARNGenericList_getByIndex(list, 1));
  EXPECT_EQ(0u, TARNGenericList_getByIndex(list, 2));
  EXPECT_EQ(0u, TARNGenericList_getByIndex(list, 10));
  EXPECT_EQ(0u, TARNGenericList_getByIndex(list, kHuge));
}

TEST(GenericListGet, GetDataReturnsTheArrayItself) {
  List list{5, 6};
  uintptr_t *data = TARNGenericList_getData(list);
  ASSERT_NE(nullptr, data);
  EXPECT_EQ(5u, data[0]);
  data[1] = 60;
  EXPECT_EQ(60u, TARNGenericList_getByIndex(list, 1));
}

TEST(GenericListSet, BelowTheCountReplacesAWord) {
  List list{5, 6, 7};
  EXPECT_EQ(TARN_OK, TARNGenericList_setByIndex(list, 1, kWide));
  EXPECT_EQ((Words{5, kWide, 7}), wordsOf(list));
}

TEST(GenericListSet, BeyondTheCountRaisesTheCountAndSkippedWordsReadZero) {
  List list{5, 6};
  EXPECT_EQ(TARN_OK, TARNGenericList_setByIndex(list, 7, 9));
  EXPECT_EQ((Words{5, 6, 0, 0, 0, 0, 0, 9}), wordsOf(list));
  EXPECT_EQ(10u, TARNGenericList_getCapacity(list));
}

TEST(GenericListSet, NeverGrows) {
  List fresh;
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNGenericList_setByIndex(fresh, 0, 1));
  List list{5};
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNGenericList_setByIndex(list, 10, 1));
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNGenericList_setByIndex(list, kHuge, 1));
  EXPECT_EQ(Words{5}, wordsOf(list));
  EXPECT_EQ(TARN_OK, TARNGenericList_setByIndex(list, 9, 1));
  EXPECT_EQ(10u, TARNGenericList_getCount(list));
}

// ---- Clearing -----------------------------------------------------------------------------------

TEST(GenericListClear, DropsTheElementsAndKeepsTheCapacityAndTheArray) {
  List list;
  for (uintptr_t i = 1; i <= 15; ++i) TARNGenericList_addDatum(list, i);
  const uintptr_t *data = TARNGenericList_getData(list);
  EXPECT_EQ(TARN_OK, TARNGenericList_clear(list));
  EXPECT_EQ(0u, TARNGenericList_getCount(list));
  EXPECT_EQ(0u, TARNGenericList_getByIndex(list, 0));
  EXPECT_EQ(20u, TARNGenericList_getCapacity(list));
  ASSERT_EQ(data, TARNGenericList_getData(list));
  EXPECT_EQ(0u, std::accumulate(data, data + 20, uintptr_t{0}));
}

TEST(GenericListClear, OldWordsNeverReappear) {
  List list{1, 2, 3};
  TARNGenericList_clear(list);
  EXPECT_EQ(TARN_OK, TARNGenericList_setByIndex(list, 3, 4));
  EXPECT_EQ((Words{0, 0, 0, 4}), wordsOf(list));
}

TEST(GenericListClear, ZeroesWordsBeyondTheCount) {
  const uintptr_t words[] = {1, 2, 3, 4};
  List list;
  ATRNGenericList_init(list, words, 1, 4);
  TARNGenericList_clear(list);
  TARNGenericList_setByIndex(list, 3, 9);
  EXPECT_EQ((Words{0, 0, 0, 9}), wordsOf(list));
}

TEST(GenericListClear, OnANewListReturnsOk) {
  List list;
  EXPECT_EQ(TARN_OK, TARNGenericList_clear(list));
  EXPECT_EQ(0u, TARNGenericList_getCapacity(list));
}

// ---- Filling at once ----------------------------------------------------------------------------

TEST(GenericListInit, StoresCountCapacityAndWordsAsGiven) {
  const uintptr_t words[] = {1, 2, 3, 4, 5};
  List list;
  EXPECT_EQ(TARN_OK, ATRNGenericList_init(list, words, 2, 5));
  EXPECT_EQ((Words{1, 2}), wordsOf(list));
  EXPECT_EQ(5u, TARNGenericList_getCapacity(list));
  ASSERT_NE(nullptr, TARNGenericList_getData(list));
  EXPECT_NE(words, TARNGenericList_getData(list));
  EXPECT_EQ(0, std::memcmp(words, TARNGenericList_getData(list), sizeof words));
}

TEST(GenericListInit, WordsBetweenCountAndCapacityAppearWhenTheCountGrows) {
  const uintptr_t words[] = {1, 2, 3, 4, 5};
  List list;
  ATRNGenericList_init(list, words, 2, 5);
  EXPECT_EQ(0u, TARNGenericList_getByIndex(list, 2));
  EXPECT_EQ(TARN_OK, TARNGenericList_setByIndex(list, 4, 50));
  EXPECT_EQ((Words{1, 2, 3, 4, 50}), wordsOf(list));
}

TEST(GenericListInit, CapacityThenGrowsByTen) {
  const uintptr_t words[] = {1, 2, 3};
  List list;
  ATRNGenericList_init(list, words, 3, 3);
  EXPECT_EQ(TARN_OK, TARNGenericList_addDatum(list, 4));
  EXPECT_EQ(13u, TARNGenericList_getCapacity(list));
  EXPECT_EQ(TARN_OK, TARNGenericList_reserve(list, 14));
  EXPECT_EQ(23u, TARNGenericList_getCapacity(list));
  EXPECT_EQ((Words{1, 2, 3, 4}), wordsOf(list));
}

TEST(GenericListInit, ReplacesWhatTheListHeld) {
  const uintptr_t words[] = {8, 9};
  List list;
  for (uintptr_t i = 1; i <= 25; ++i) TARNGenericList_addDatum(list, i);
  EXPECT_EQ(TARN_OK, ATRNGenericList_init(list, words, 2, 2));
  EXPECT_EQ((Words{8, 9}), wordsOf(list));
  EXPECT_EQ(2u, TARNGenericList_getCapacity(list));
}

TEST(GenericListInit, OldArrayIsZeroedAndStaysReadable) {
  const uintptr_t words[] = {8, 9};
  List list{1, 2, 3};
  const uintptr_t *former = TARNGenericList_getData(list);
  ATRNGenericList_init(list, words, 2, 2);
  EXPECT_NE(former, TARNGenericList_getData(list));
  EXPECT_EQ(0u, std::accumulate(former, former + 10, uintptr_t{0}));
}

TEST(GenericListInit, FromItsOwnArrayReadsZeros) {
  List list{1, 2, 3};
  EXPECT_EQ(TARN_OK, ATRNGenericList_init(list, TARNGenericList_getData(list), 3, 10));
  EXPECT_EQ((Words{0, 0, 0}), wordsOf(list));
}

TEST(GenericListInit, NullSourceReadsAsZeros) {
  List list{1, 2, 3};
  EXPECT_EQ(TARN_OK, ATRNGenericList_init(list, nullptr, 4, 5));
  EXPECT_EQ((Words{0, 0, 0, 0}), wordsOf(list));
  EXPECT_EQ(5u, TARNGenericList_getCapacity(list));
}

TEST(GenericListInit, AcceptsAnUnalignedSource) {
  const uintptr_t words[] = {kWide, 2, 3};
  std::array<char, sizeof words + 1> shifted{};
  std::memcpy(shifted.data() + 1, words, sizeof words);
  List list;
  EXPECT_EQ(TARN_OK, ATRNGenericList_init(list, shifted.data() + 1, 3, 3));
  EXPECT_EQ((Words{kWide, 2, 3}), wordsOf(list));
}

TEST(GenericListInit, WithCapacityZeroLeavesAListThatCanGrow) {
  List list{1};
  EXPECT_EQ(TARN_OK, ATRNGenericList_init(list, nullptr, 0, 0));
  EXPECT_EQ(0u, TARNGenericList_getCount(list));
  EXPECT_EQ(0u, TARNGenericList_getCapacity(list));
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNGenericList_setByIndex(list, 0, 1));
  EXPECT_EQ(TARN_OK, TARNGenericList_addDatum(list, 2));
  EXPECT_EQ(10u, TARNGenericList_getCapacity(list));
  EXPECT_EQ(Words{2}, wordsOf(list));
}

TEST(GenericListInit, CountAboveTheCapacityIsKeptAndReadsZeroBeyondTheCapacity) {
  const uintptr_t words[] = {1, 2, 3};
  List list;
  EXPECT_EQ(TARN_OK, ATRNGenericList_init(list, words, 5, 3));
  EXPECT_EQ(3u, TARNGenericList_getCapacity(list));
  EXPECT_EQ((Words{1, 2, 3, 0, 0}), wordsOf(list));
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNGenericList_setByIndex(list, 3, 9));
  EXPECT_EQ(TARN_OK, TARNGenericList_setByIndex(list, 2, 30));
  EXPECT_EQ((Words{1, 2, 30, 0, 0}), wordsOf(list));
}

TEST(GenericListInit, CountAboveTheCapacityGrowsTheListBeforeAWordIsAdded) {
  const uintptr_t words[] = {1, 2, 3};
  List list;
  ATRNGenericList_init(list, words, 25, 3);
  EXPECT_EQ(TARN_OK, TARNGenericList_addDatum(list, 9));
  ASSERT_EQ(26u, TARNGenericList_getCount(list));
  EXPECT_EQ(33u, TARNGenericList_getCapacity(list));
  EXPECT_EQ(3u, TARNGenericList_getByIndex(list, 2));
  for (uint32_t i = 3; i < 25; ++i) EXPECT_EQ(0u, TARNGenericList_getByIndex(list, i)) << i;
  EXPECT_EQ(9u, TARNGenericList_getByIndex(list, 25));
}

TEST(GenericListInit, CountAboveTheCapacityCanBeClonedAndCleared) {
  const uintptr_t words[] = {1, 2, 3};
  List list;
  ATRNGenericList_init(list, words, 1000, 3);
  TarnHandle copy = 0;
  EXPECT_EQ(TARN_OK, TARNGenericList_clone(list, &copy));
  EXPECT_EQ(1000u, TARNGenericList_getCount(&copy));
  EXPECT_EQ(3u, TARNGenericList_getCapacity(&copy));
  EXPECT_EQ(3u, TARNGenericList_getByIndex(&copy, 2));
  EXPECT_EQ(0u, TARNGenericList_getByIndex(&copy, 999));
  EXPECT_EQ(TARN_OK, TARNGenericList_clear(list));
  EXPECT_EQ(0u, TARNGenericList_getCount(list));
  EXPECT_EQ(TARN_OK, TARNGenericList_delete(&copy));
}

// ---- Cloning ------------------------------------------------------------------------------------

TEST(GenericListClone, HasTheSameWordsInItsOwnArray) {
  char element[] = "shared";
  List list{reinterpret_cast<uintptr_t>(element), kWide};
  TarnHandle copy = 0;
  EXPECT_EQ(TARN_OK, TARNGenericList_clone(list, &copy));
  EXPECT_NE(list.value(), copy);
  EXPECT_EQ(wordsOf(list), wordsOf(&copy));
  EXPECT_EQ(10u, TARNGenericList_getCapacity(&copy));
  TARNGenericList_setByIndex(&copy, 1, 5);
  TARNGenericList_addDatum(list, 6);
  EXPECT_EQ((Words{reinterpret_cast<uintptr_t>(element), kWide, 6}), wordsOf(list));
  EXPECT_EQ((Words{reinterpret_cast<uintptr_t>(element), 5}), wordsOf(&copy));
  TARNGenericList_delete(list);
  EXPECT_EQ(5u, TARNGenericList_getByIndex(&copy, 1));
  EXPECT_EQ(TARN_OK, TARNGenericList_delete(&copy));
}

TEST(GenericListClone, CopiesWordsBeyondTheCountToo) {
  const uintptr_t words[] = {1, 2, 3, 4, 5};
  List list;
  ATRNGenericList_init(list, words, 2, 5);
  TarnHandle copy = 0;
  EXPECT_EQ(TARN_OK, TARNGenericList_clone(list, &copy));
  EXPECT_EQ((Words{1, 2}), wordsOf(&copy));
  TARNGenericList_setByIndex(&copy, 4, 50);
  EXPECT_EQ((Words{1, 2, 3, 4, 50}), wordsOf(&copy));
  TARNGenericList_delete(&copy);
}

TEST(GenericListClone, OfANewListGrowsLikeANewList) {
  List list;
  TarnHandle copy = 0;
  EXPECT_EQ(TARN_OK, TARNGenericList_clone(list, &copy));
  EXPECT_EQ(0u, TARNGenericList_getCapacity(&copy));
  EXPECT_EQ(TARN_OK, TARNGenericList_addDatum(&copy, 1));
  EXPECT_EQ(10u, TARNGenericList_getCapacity(&copy));
  TARNGenericList_delete(&copy);
}

TEST(GenericListClone, OfALongListCanGrow) {
  List list;
  for (uint32_t i = 0; i < 12345; ++i) TARNGenericList_addDatum(list, i);
  TarnHandle copy = 0;
  EXPECT_EQ(TARN_OK, TARNGenericList_clone(list, &copy));
  for (uint32_t i = 12345; i < 20000; ++i) TARNGenericList_addDatum(&copy, i);
  for (uint32_t i = 0; i < 20000; ++i) ASSERT_EQ(i, TARNGenericList_getByIndex(&copy, i)) << i;
  TARNGenericList_delete(&copy);
}

TEST(GenericListClone, ChecksTheSourceThenTheDestination) {
  List list{1};
  List used{2};
  Node node(4711);
  const TarnHandle before = used.value();
  EXPECT_EQ(TARN_WRONG_TYPE, TARNGenericList_clone(node, used));
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNGenericList_clone(list, nullptr));
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNGenericList_clone(list, used));
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNGenericList_clone(list, list));
  EXPECT_EQ(before, used.value());
  EXPECT_EQ(Words{2}, wordsOf(used));
  EXPECT_EQ(Words{1}, wordsOf(list));
}

// ---- Out of memory ------------------------------------------------------------------------------

// Adds until an allocation fails: the list may have room for some words.
TarnStatus addUntilItFails(TarnHandle *list) {
  TarnStatus status = TARN_OK;
  for (int i = 0; status == TARN_OK && i < 1000000; ++i) status = TARNGenericList_addDatum(list, 7);
  return status;
}

void addThousand(TarnHandle *list) {
  for (uintptr_t i = 0; i < 1000; ++i) ASSERT_EQ(TARN_OK, TARNGenericList_addDatum(list, i)) << i;
}

TEST(ListWithoutMemory, NewAndCloneReportItAndLeaveTheHandleUnchanged) {
  List list{1};
  TarnHandle fresh = 0;
  TarnHandle copy = 0;
  std::array<TarnStatus, 2> status{};
  tarn_test::withoutMemory([&] {
    status = {TARNGenericList_new(&fresh), TARNGenericList_clone(list, &copy)};
  });
  EXPECT_EQ((std::array<TarnStatus, 2>{TARN_OUT_OF_MEMORY, TARN_OUT_OF_MEMORY}), status);
  EXPECT_EQ(0u, fresh);
  EXPECT_EQ(0u, copy);
}

TEST(ListWithoutMemory, FirstWordIsRefusedAndTheCapacityIsOverstated) {
  List list;
  std::array<TarnStatus, 2> status{};
  tarn_test::withoutMemory([&] {
    status = {TARNGenericList_addDatum(list, 1), TARNGenericList_setByIndex(list, 0, 1)};
  });
  EXPECT_EQ((std::array<TarnStatus, 2>{TARN_OUT_OF_MEMORY, TARN_OUT_OF_MEMORY}), status);
  EXPECT_EQ(0u, TARNGenericList_getCount(list));
  EXPECT_EQ(10u, TARNGenericList_getCapacity(list));
  EXPECT_EQ(nullptr, TARNGenericList_getData(list));
  EXPECT_EQ(0u, TARNGenericList_getByIndex(list, 0));
  EXPECT_EQ(TARN_OK, TARNGenericList_clear(list));
}

TEST(ListWithoutMemory, AddReportsItAndKeepsTheElements) {
  List list;
  addThousand(list);
  TarnStatus status = TARN_OK;
  tarn_test::withoutMemory([&] { status = addUntilItFails(list); });
  EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
  const uint32_t count = TARNGenericList_getCount(list);
  ASSERT_GE(count, 1000u);
  EXPECT_EQ(0u, count % 10);
  EXPECT_EQ(count + 10, TARNGenericList_getCapacity(list));
  for (uint32_t i = 0; i < count; ++i) {
    SCOPED_TRACE(i);
    ASSERT_EQ(i < 1000 ? i : 7, TARNGenericList_getByIndex(list, i));
  }
}

TEST(ListWithoutMemory, ListThatCouldNotGrowIsWrittenOnlyInsideItsArray) {
  List list;
  addThousand(list);
  std::array<TarnStatus, 5> status{};
  tarn_test::withoutMemory([&] {
    status[0] = addUntilItFails(list);
    const uint32_t count = TARNGenericList_getCount(list);
    status[1] = TARNGenericList_setByIndex(list, count, 1);
    status[2] = TARNGenericList_setByIndex(list, count + 9, 1);
    status[3] = TARNGenericList_setByIndex(list, count + 10, 1);
    status[4] = TARNGenericList_setByIndex(list, 999, 5);
  });
  EXPECT_EQ((std::array<TarnStatus, 5>{TARN_OUT_OF_MEMORY, TARN_OUT_OF_MEMORY, TARN_OUT_OF_MEMORY,
                                       TARN_BAD_ARGUMENT, TARN_OK}),
            status);
  EXPECT_EQ(5u, TARNGenericList_getByIndex(list, 999));
}

TEST(ListWithoutMemory, ListThatCouldNotGrowCanBeClonedAndCleared) {
  List list;
  addThousand(list);
  tarn_test::withoutMemory([&] { addUntilItFails(list); });
  const uint32_t capacity = TARNGenericList_getCapacity(list);
  TarnHandle copy = 0;
  EXPECT_EQ(TARN_OK, TARNGenericList_clone(list, &copy));
  EXPECT_EQ(wordsOf(list), wordsOf(&copy));
  EXPECT_EQ(capacity, TARNGenericList_getCapacity(&copy));
  EXPECT_EQ(TARN_OK, TARNGenericList_delete(&copy));
  EXPECT_EQ(TARN_OK, TARNGenericList_clear(list));
  EXPECT_EQ(0u, TARNGenericList_getCount(list));
  EXPECT_EQ(capacity, TARNGenericList_getCapacity(list));
}

TEST(ListWithoutMemory, ListThatCouldNotGrowAcceptsWordsWhenMemoryIsBack) {
  List list;
  addThousand(list);
  tarn_test::withoutMemory([&] { addUntilItFails(list); });
  Words expected = wordsOf(list);
  const uint32_t capacity = TARNGenericList_getCapacity(list);
  EXPECT_EQ(TARN_OK, TARNGenericList_addDatum(list, 1));
  EXPECT_EQ(TARN_OK, TARNGenericList_setByIndex(list, capacity - 1, 2));
  expected.push_back(1);
  expected.insert(expected.end(), 8, 0);
  expected.push_back(2);
  EXPECT_EQ(expected, wordsOf(list));
  EXPECT_EQ(capacity, TARNGenericList_getCapacity(list));
}

TEST(ListWithoutMemory, MemoryForTenMoreIsEnoughToGrow) {
  List list;
  addThousand(list);
  tarn_test::withoutMemory([&] { addUntilItFails(list); });
  const uint32_t capacity = TARNGenericList_getCapacity(list);
  TarnStatus status = kHuge;
  tarn_test::withoutMemory([&] { status = TARNGenericList_addDatum(list, 1); },
                           capacity * sizeof(uintptr_t));
  EXPECT_EQ(TARN_OK, status);
  EXPECT_EQ(capacity, TARNGenericList_getCapacity(list));
  EXPECT_EQ(1u, TARNGenericList_getByIndex(list, capacity - 10));
}

TEST(ListWithoutMemory, ReserveReportsItAndStopsAtTheStepThatFailed) {
  List list;
  List filled{1, 2, 3};
  std::array<TarnStatus, 2> status{};
  tarn_test::withoutMemory([&] {
    status = {TARNGenericList_reserve(list, 1000), TARNGenericList_reserve(filled, kHuge)};
  });
  EXPECT_EQ((std::array<TarnStatus, 2>{TARN_OUT_OF_MEMORY, TARN_OUT_OF_MEMORY}), status);
  EXPECT_EQ(10u, TARNGenericList_getCapacity(list));
  EXPECT_GE(TARNGenericList_getCapacity(filled), 20u);
  EXPECT_EQ(0u, TARNGenericList_getCapacity(filled) % 10);
  EXPECT_EQ((Words{1, 2, 3}), wordsOf(filled));
}

TEST(ListWithoutMemory, ReserveKeepsTheStepsThatSucceeded) {
  struct {
    uint32_t held, wanted, room, capacity;
  } const cases[] = {{0, 45, 10, 20}, {0, 45, 39, 30}, {0, 45, 40, 50}, {0, 45, 9, 10},
                     {3, 95, 40, 40}, {3, 95, 9, 20},  {21, 95, 0, 50}};
  for (const auto &each : cases) {
    SCOPED_TRACE(std::to_string(each.wanted) + " where " + std::to_string(each.room) + " fit");
    List list;
    for (uintptr_t word = 1; word <= each.held; ++word) TARNGenericList_addDatum(list, word);
    TarnStatus status = TARN_OK;
    tarn_test::withoutMemory([&] { status = TARNGenericList_reserve(list, each.wanted); },
                             each.room * sizeof(uintptr_t));
    EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
    EXPECT_EQ(each.capacity, TARNGenericList_getCapacity(list));
    EXPECT_EQ(each.held, TARNGenericList_getCount(list));
    for (uint32_t i = 0; i < each.held; ++i)
      EXPECT_EQ(i + 1, TARNGenericList_getByIndex(list, i)) << i;
    const uint32_t array = each.capacity - 10;
    const uintptr_t *words = TARNGenericList_getData(list);
    ASSERT_EQ(array == 0, words == nullptr);
    for (uint32_t i = each.held; i < array; ++i) EXPECT_EQ(0u, words[i]) << i;
    for (uint32_t i = 0; i < array; ++i) {
      SCOPED_TRACE(i);
      EXPECT_EQ(TARN_OK, TARNGenericList_setByIndex(list, i, i));
    }
  }
}

TEST(ListWithoutMemory, ReserveBeyondTheLargestCapacityReportsItAndKeepsTheCapacity) {
  List list;
  TarnStatus status = TARN_OK;
  tarn_test::withoutMemory([&] { ATRNGenericList_init(list, nullptr, 0, UINT32_MAX - 5); });
  tarn_test::withoutMemory([&] { status = TARNGenericList_reserve(list, UINT32_MAX); });
  EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
  EXPECT_EQ(UINT32_MAX - 5, TARNGenericList_getCapacity(list));
}

TEST(ListWithoutMemory, ListWithTheLargestCountRefusesAnotherWord) {
  List list;
  const uintptr_t word = 1;
  EXPECT_EQ(TARN_OK, ATRNGenericList_init(list, &word, UINT32_MAX, 1));
  EXPECT_EQ(TARN_OUT_OF_MEMORY, TARNGenericList_addDatum(list, 2));
  EXPECT_EQ(UINT32_MAX, TARNGenericList_getCount(list));
  EXPECT_EQ(1U, TARNGenericList_getCapacity(list));
  EXPECT_EQ(1U, TARNGenericList_getByIndex(list, 0));
}

TEST(ListWithoutMemory, InitLeavesAListWithoutAnArray) {
  const std::vector<uintptr_t> words(1000, 5);
  List list{1, 2, 3};
  std::array<TarnStatus, 2> status{};
  tarn_test::withoutMemory([&] {
    status = {ATRNGenericList_init(list, words.data(), 2, 1000),
              TARNGenericList_setByIndex(list, 0, 1)};
  });
  EXPECT_EQ((std::array<TarnStatus, 2>{TARN_OK, TARN_OUT_OF_MEMORY}), status);
  EXPECT_EQ((Words{0, 0}), wordsOf(list));
  EXPECT_EQ(1000u, TARNGenericList_getCapacity(list));
  EXPECT_EQ(nullptr, TARNGenericList_getData(list));
}

TEST(ListWithoutMemory, CloneWithoutRoomForTheWordsReadsZeros) {
  List list;
  for (uint32_t i = 1; i <= 100000; ++i) TARNGenericList_addDatum(list, i);
  TarnHandle copy = 0;
  TarnStatus status = kHuge;
  tarn_test::withoutMemory([&] { status = TARNGenericList_clone(list, &copy); },
                           tarn_test::kLittleMemory);
  EXPECT_EQ(TARN_OK, status);
  EXPECT_EQ(100000u, TARNGenericList_getCount(&copy));
  EXPECT_EQ(100000u, TARNGenericList_getCapacity(&copy));
  EXPECT_EQ(0u, TARNGenericList_getByIndex(&copy, 0));
  EXPECT_EQ(0u, TARNGenericList_getByIndex(&copy, 99999));
  EXPECT_EQ(TARN_OK, TARNGenericList_delete(&copy));
}

}  // namespace
