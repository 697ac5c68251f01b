// Room for many small nodes. A form may have a hundred thousand fields; a block for each would take
// more time than to parse it, most of it in page faults.
#ifndef TARN_CORE_NODE_ARENA_H
#define TARN_CORE_NODE_ARENA_H

#include <cstddef>
#include <cstdint>

namespace tarn::internal {

// Puts nodes into shared blocks. Each node counts for its block, which is freed with the last of them.
class NodeArena {
 public:
  NodeArena() = default;
  ~NodeArena();
  NodeArena(const NodeArena &) = delete;
  NodeArena &operator=(const NodeArena &) = delete;

  // Room for a node of this size, and in `offset` what release() needs, which is never 0. Null if the
  // node should have its own block: the first nodes of a form do, and large ones, and all if memory for
  // a shared block runs out.
  void *allocate(size_t size, uint32_t &offset);

  static void release(void *node, uint32_t offset);

 private:
  struct Block;

  bool addBlock();
  void leaveBlock();

  Block *block_ = nullptr;
  uint32_t used_ = 0;  // of the block, in units
  uint32_t room_ = 0;
  uint32_t nodes_ = 0;
  uint32_t nodes_in_block_ = 0;
};

}  // namespace tarn::internal

#endif
