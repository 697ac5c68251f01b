// From the handles that scripts pass to the blocks behind them. Names follow one scheme here and in
// the other headers:
//
//   nodeAt(value)    from an address as a slot or a lookup holds it (TarnHandle)
//   nodeIn(handle)   from the address of a handle, as exported functions receive it (TarnHandle *)
//   childOf(node)    from an object that has been looked up already
//
// All three return null if there is nothing, or an object of another type; handleOf() leads back.
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

// Every object begins with its type tag; no object has the tag 0.
inline uint32_t magicAt(TarnHandle value) {
  return value ? *reinterpret_cast<const uint32_t *>(value) : 0;
}

inline TarnHandle objectIn(const TarnHandle *handle) { return handle ? *handle : 0; }

}  // namespace tarn::internal

#endif
