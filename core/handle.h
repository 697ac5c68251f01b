// The way from the handles that scripts pass to the blocks behind them.
#ifndef TARN_CORE_HANDLE_H
#define TARN_CORE_HANDLE_H

#include <cstdint>

#include "tarn.h"

namespace tarn::internal {

template <class T>
T *blockAt(TarnHandle value) {
  return reinterpret_cast<T *>(value);
}

inline TarnHandle handleOf(const void *block) { return reinterpret_cast<TarnHandle>(block); }

// Every object begins with its type tag; 0 is no object's.
inline uint32_t magicAt(TarnHandle value) {
  return value ? *reinterpret_cast<const uint32_t *>(value) : 0;
}

inline TarnHandle objectIn(const TarnHandle *handle) { return handle ? *handle : 0; }

}  // namespace tarn::internal

#endif
