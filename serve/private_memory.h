// Memory for everything that belongs to requests. Children do not get it: each begins as a copy of
// this process, and a script that an attacker controls must not find another visitor's request there.
#ifndef TARN_SERVE_PRIVATE_MEMORY_H
#define TARN_SERVE_PRIVATE_MEMORY_H

#include <cstddef>

#include "core/bytes.h"

namespace tarn::server {

// Blocks of powers of two come from chunks and are used again. Larger blocks have a mapping of their
// own. Only the process that allocated a block can use it.
struct PrivateMemory {
  // The size of the block that is best for so many bytes.
  static size_t roundUp(size_t size);

  // Like realloc(). The block has `old` bytes; it is null for a new one.
  static void *resize(void *block, size_t old, size_t size);

  // Like free().
  static void release(void *block, size_t size);

  // Begins anew in a child that is to serve requests itself. In a child of a sanitized program, other
  // memory may come to these addresses, so such children always call it.
  static void forget();
};

using PrivateBytes = BasicBytes<PrivateMemory>;

}  // namespace tarn::server

#endif
