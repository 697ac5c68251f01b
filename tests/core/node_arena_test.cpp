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
    placeText(*node, TARN_ENTRY_NAME, roomOf(*node));
    all.push_back({node, text});
  }
  return all;
}

void expectIntact(const std::vector<Made> &all) {
  for (const auto &[node, text] : all) {
    ASSERT_EQ(0U, reinterpret_cast<uintptr_t>(node) % alignof(Node));
    ASSERT_EQ(uint32_t{TARN_FORM_ENTRY_MAGIC}, node->magic);
    ASSERT_EQ(text, node->strings[TARN_ENTRY_NAME]);
    ASSERT_EQ(0U, node->structs[0]);
    ASSERT_EQ(0U, node->incomplete);
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
  EXPECT_EQ(last.text, copy->strings[TARN_ENTRY_NAME]);
  destroyNode(copy);
}

}  // namespace
}  // namespace tarn::internal
