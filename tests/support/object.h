// Objects of any type that can be compared as a whole, and must be deletable whatever happened to
// them.
#ifndef TARN_TESTS_SUPPORT_OBJECT_H
#define TARN_TESTS_SUPPORT_OBJECT_H

#include <cstdint>
#include <string>

#include "tarn.h"

namespace tarn_test {

// Everything that the interface shows of an object, as text: the slots of a node, the objects in a
// typed list and in struct slots, recursively, the bytes of a byte buffer, the words of a generic
// list, the text of a string.
std::string pictureOf(TarnHandle object);

inline TarnStatus deleteNode(TarnHandle *handle) { return CGIgs_delete(handle, 0); }

// An object owned by the test, or an empty handle for one.
class Object {
 public:
  using Delete = TarnStatus (*)(TarnHandle *);

  explicit Object(Delete itsDelete = deleteNode) : delete_(itsDelete) {}
  explicit Object(uint32_t magic, Delete itsDelete = deleteNode);
  ~Object();
  Object(const Object &) = delete;
  Object &operator=(const Object &) = delete;

  operator TarnHandle *() { return &handle_; }
  TarnHandle value() const { return handle_; }
  std::string picture() const { return pictureOf(handle_); }

 private:
  TarnHandle handle_ = 0;
  Delete delete_;
};

}  // namespace tarn_test

#endif
