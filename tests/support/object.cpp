#include "support/object.h"

#include <gtest/gtest.h>

#include <sstream>

namespace tarn_test {
namespace {

bool isTypedList(uint32_t magic) {
  return magic == TARN_FORM_ENTRY_LIST_MAGIC || magic == TARN_COOKIE_LIST_MAGIC ||
         magic == TARN_ELEMENT_LIST_MAGIC;
}

std::string pictureOfList(TarnHandle list, bool ofObjects) {
  if (!list) return {};
  std::ostringstream out;
  out << "[";
  for (uint32_t i = 0; i < TARNGenericList_getCount(&list); ++i) {
    const uintptr_t word = TARNGenericList_getByIndex(&list, i);
    if (ofObjects) {
      out << pictureOf(word) << " ";
    } else {
      out << word << " ";
    }
  }
  out << "]";
  return out.str();
}

std::string pictureOfBytes(TarnHandle buffer) {
  const auto *bytes = reinterpret_cast<const char *>(CGIgs_getFixed(&buffer, 0));
  return bytes ? "<" + std::string(bytes, CGIgs_getInt(&buffer, TARN_BYTE_BUFFER_LENGTH, 0)) + ">"
               : "";
}

std::string pictureOfNode(TarnHandle node, uint32_t magic) {
  std::ostringstream out;
  out << "{" << magic;
  for (uint32_t i = 0; i < 8; ++i) {
    const char *text = CGIgs_getString(&node, i, 0);
    out << (text ? " '" + std::string(text) + "'" : " -");
  }
  for (uint32_t i = 0; i < 3; ++i) out << " " << CGIgs_getInt(&node, i, 0);
  out << " " << CGIgs_getDouble(&node, 0, 0);
  out << (magic == TARN_BYTE_BUFFER_MAGIC ? pictureOfBytes(node)
                                          : " " + std::to_string(CGIgs_getFixed(&node, 0)));
  for (uint32_t i = 0; i < 2; ++i) {
    out << pictureOfList(CGIgs_getList(&node, i, 0), isTypedList(magic) && i == 0);
  }
  for (uint32_t i = 0; i < 3; ++i) {
    out << " " << CGIgs_getChildMagic(&node, i, 0) << pictureOf(CGIgs_getStruct(&node, i, 0));
  }
  out << "}";
  return out.str();
}

}  // namespace

std::string pictureOf(TarnHandle object) {
  const uint32_t magic = CGIgs_getMagic(&object);
  if (magic == 0) return {};
  if (magic == TARN_GENERIC_LIST_MAGIC) return pictureOfList(object, false);
  if (magic != TARN_STRING_MAGIC) return pictureOfNode(object, magic);
  const char *text = TARNString_c_str(&object);
  return text ? "\"" + std::string(text) + "\"" : "\"lost\"";
}

Object::Object(uint32_t magic, Delete itsDelete) : delete_(itsDelete) {
  EXPECT_EQ(TARN_OK, CGIgs_new(&handle_, magic));
}

Object::~Object() {
  EXPECT_TRUE(!handle_ || delete_(&handle_) == TARN_OK);
  EXPECT_EQ(0U, handle_);
}

}  // namespace tarn_test
