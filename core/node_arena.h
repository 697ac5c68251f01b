// Room for many small nodes. A form may have a hundred thousand fields; a block for each would take
// more time than to parse it, most of it in page faults.
#ifndef TARN_CORE_NODE_ARENA_H
#define TARN_CORE_NODE_ARENA_H

#include <cstddef>
#include <cstdint>

namespace tarn::internal {

// Puts nodes into shared blocks. Nodes fill a block from its start. Each also gets a part at the end of
// the block, which it may never use: nothing writes there before the node does, so that the kernel has
// to find memory for nodes only. Each node counts for its block, which is freed with the last of them.
class NodeArena {
 public:
  // What Place is measured in.
  static constexpr uint32_t kUnit = 8;

  struct Place {
    void *node = nullptr;
    uint32_t offset = 0;    // for release(); never 0
    uint32_t distance = 0;  // from the node to its part at the end of the block
  };

  NodeArena() = default;
  ~NodeArena();
  NodeArena(const NodeArena &) = delete;
  NodeArena &operator=(const NodeArena &) = delete;

  // Room for a node of this size with so much at the end of the block, together at most 4 KiB. No node
  // if it should have its own block: the first nodes of a form do, and all if memory for a shared block
  // runs out.
  Place allocate(size_t size, size_t later);

  static void release(void *node, uint32_t offset);

 private:
  struct Block;

  bool addBlock();
  void leaveBlock();

  Block *block_ = nullptr;
  // In units: the size of the block, where its next node begins, and where the parts at its end begin.
  uint32_t size_ = 0;
  uint32_t used_ = 0;
  uint32_t end_ = 0;
  uint32_t nodes_ = 0;
  uint32_t nodes_in_block_ = 0;
};

}  // namespace tarn::internal

#endif
