// Nodes that share blocks. Sanitizers check that each block is freed once.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/cgigs.h"

namespace tarn::internal {
namespace {

struct Made {
  Node *node;
  std::string text;
};

// Nodes of different sizes, each with a text in its room, in enough blocks of each size.
std::vector<Made> makeNodes() {
  std::vector<Made> all;
  NodeArena arena;
  for (size_t i = 0; i < 5000; ++i) {
    const size_t size = i % 97 == 0 ? 5000 : i % 131;
    const std::string text(size, static_cast<char>('a' + i % 26));
    Node *node = newNode(TARN_FORM_ENTRY_MAGIC, size + 1, &arena);
    if (!node) break;
    std::copy_n(text.c_str(), size + 1, roomOf(*node));
    fillNode(*node, roomOf(*node), nullptr, 0);
    all.push_back({node, text});
  }
  return all;
}

// Where malloc() puts blocks on every processor: 16 bytes with 64 bits, 8 on ARM with 32 bits.
constexpr size_t kAlignment = 2 * sizeof(void *);

void expectIntact(const std::vector<Made> &all) {
  for (const auto &[node, text] : all) {
    ASSERT_EQ(0U, reinterpret_cast<uintptr_t>(node) % kAlignment);
    ASSERT_EQ(uint32_t{TARN_FORM_ENTRY_MAGIC}, node->magic);
    ASSERT_EQ(text, node->text(TARN_ENTRY_NAME));
    ASSERT_EQ(0U, node->child(0));
    ASSERT_FALSE(isIncomplete(*node));
  }
}

TEST(NodeArena, KeepsNodesApartAndAliveUntilEachIsDestroyed) {
  std::vector<Made> all = makeNodes();
  ASSERT_EQ(5000U, all.size());
  expectIntact(all);
  // Every third, then the rest from the end.
  std::vector<Made> rest;
  for (size_t i = 0; i < all.size(); ++i) {
    if (i % 3 == 0) {
      destroyNode(all[i].node);
    } else {
      rest.push_back(all[i]);
    }
  }
  expectIntact(rest);
  while (!rest.empty()) {
    destroyNode(rest.back().node);
    rest.pop_back();
  }
}

TEST(NodeArena, LeavesCopiesAndNewTextsToTheHeap) {
  const std::vector<Made> all = makeNodes();
  const Made &last = all.back();
  Node *copy = copyNode(*last.node);
  ASSERT_NE(nullptr, copy);
  setText(*last.node, TARN_ENTRY_NAME, copyText("new"));
  for (const auto &[node, text] : all) destroyNode(node);
  EXPECT_EQ(last.text, copy->text(TARN_ENTRY_NAME));
  destroyNode(copy);
}

// ---- Slots that are not in use ------------------------------------------------------------------

struct NodeArenaSlots : testing::Test {
  NodeArenaSlots() {
    for (const auto &[node, text] : all) {
      if (!node->isShort()) continue;
      setNumber(*node, 0, static_cast<uint32_t>(text.size()));
      std::fill_n(slotsIn(*node), sizeof(Slots), kUntouched);
    }
  }
  ~NodeArenaSlots() override {
    for (const auto &[node, text] : all) destroyNode(node);
  }

  static char *slotsIn(const Node &node) {
    return reinterpret_cast<char *>(&slotsBehind(shortNode(node)));
  }
  static void expectUntouched(const Node &node) {
    ASSERT_TRUE(node.isWithoutSlots());
    const char *slots = slotsIn(node);
    ASSERT_EQ(slots + sizeof(Slots),
              std::find_if(slots, slots + sizeof(Slots), [](char c) { return c != kUntouched; }));
  }
  static void expectValues(const Node &node, const std::string &text) {
    ASSERT_EQ(text, node.text(TARN_ENTRY_NAME));
    for (uint32_t i = 1; i < kStringSlots; ++i) ASSERT_EQ(nullptr, node.text(i));
    for (uint32_t i = 0; i < kListSlots; ++i) ASSERT_EQ(0U, node.list(i));
    for (uint32_t i = 0; i < kStructSlots; ++i) {
      ASSERT_EQ(0U, node.child(i));
      ASSERT_EQ(0U, node.childMagic(i));
    }
    ASSERT_EQ(text.size(), node.number(0));
    ASSERT_EQ(0U, node.number(1));
    ASSERT_EQ(0U, node.number(2));
    ASSERT_EQ(0, node.real());
  }

  static constexpr char kUntouched = '\xA5';
  const std::vector<Made> all = makeNodes();
};

// Whatever was there before reads as zero, and stays there: the kernel need not find pages for it.
TEST_F(NodeArenaSlots, AreNotTouchedUntilTheyAreSet) {
  size_t shared = 0;
  for (const auto &[node, text] : all) {
    if (!node->isShort()) continue;
    ++shared;
    ASSERT_NO_FATAL_FAILURE(expectValues(*node, text));
    ASSERT_EQ(0U, node->fixed());
    markIncomplete(node);
    Node *copy = copyNode(*node);
    ASSERT_NE(nullptr, copy);
    ASSERT_NO_FATAL_FAILURE(expectValues(*copy, text));
    destroyNode(copy);
    ASSERT_NO_FATAL_FAILURE(expectUntouched(*node));
  }
  // Nodes for 32 bits do not share blocks.
  EXPECT_EQ(sizeof(void *) == 8 ? 4884U : 0U, shared);
}

TEST_F(NodeArenaSlots, KeepTheValuesOfTheNodeWhenTheFirstIsSet) {
  for (size_t i = 0; i < all.size(); i += 2) {
    Node &node = *all[i].node;
    node.slots().fixed = i;
    setNumber(node, 0, static_cast<uint32_t>(all[i].text.size()));
    ASSERT_FALSE(node.isWithoutSlots());
    ASSERT_EQ(i, node.fixed());
    ASSERT_NO_FATAL_FAILURE(expectValues(node, all[i].text));
  }
  for (size_t i = 1; i < all.size(); i += 2) {
    if (!all[i].node->isShort()) continue;
    ASSERT_NO_FATAL_FAILURE(expectUntouched(*all[i].node));
  }
  for (size_t i = 0; i < all.size(); i += 2) ASSERT_EQ(i, all[i].node->fixed());
}

}  // namespace
}  // namespace tarn::internal
