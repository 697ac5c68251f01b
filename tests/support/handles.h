// What the tests of nodes and lists share: objects that are released at the end of their scope.
#ifndef TARN_TESTS_SUPPORT_HANDLES_H
#define TARN_TESTS_SUPPORT_HANDLES_H

#include <gtest/gtest.h>
#include <tarn.h>

#include <cstdlib>
#include <string>

namespace tarn_test {

#if defined(__SANITIZE_ADDRESS__)
#define TARN_TESTS_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TARN_TESTS_SANITIZED
#endif
#endif

#ifdef TARN_TESTS_SANITIZED
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

// A node owned by the test; converts to the address of its handle. Borrowed handles are plain
// TarnHandles instead.
class Node {
 public:
  Node() = default;
  explicit Node(uint32_t magic) { EXPECT_EQ(TARN_OK, CGIgs_new(&handle_, magic)); }
  ~Node() { CGIgs_delete(&handle_, 0); }
  Node(const Node &) = delete;
  Node &operator=(const Node &) = delete;

  operator TarnHandle *() { return &handle_; }
  TarnHandle value() const { return handle_; }
  void adopt(TarnHandle made) { handle_ = made; }

 private:
  TarnHandle handle_ = 0;
};

// A generic list of these words, owned by the test.
class List {
 public:
  List(std::initializer_list<uintptr_t> words = {}) {
    EXPECT_EQ(TARN_OK, TARNGenericList_new(&handle_));
    for (const uintptr_t word : words) TARNGenericList_addDatum(&handle_, word);
  }
  ~List() { TARNGenericList_delete(&handle_); }
  List(const List &) = delete;
  List &operator=(const List &) = delete;

  operator TarnHandle *() { return &handle_; }
  TarnHandle value() const { return handle_; }
  // Gives up ownership, because a node owns the list now.
  void forget() { handle_ = 0; }

 private:
  TarnHandle handle_ = 0;
};

// Calls `call` with handles of other types and checks that they do not change: a null address, an
// empty handle, a node of a type that only the test knows with every slot filled, a generic list
// and a string.
template <typename Call>
void withEveryOtherType(Call call) {
  constexpr uint32_t kNobodysMagic = 4242;
  Node nothing;
  Node node(kNobodysMagic);
  for (uint32_t i = 0; i < 8; ++i) CGIgs_setString(node, i, "strange", kNobodysMagic);
  for (uint32_t i = 0; i < 3; ++i) CGIgs_setInt(node, i, 7, kNobodysMagic);
  List within;
  CGIgs_setList(node, 0, within, kNobodysMagic);
  within.forget();
  List list;
  TarnHandle string = 0;
  EXPECT_EQ(TARN_OK, TARNString_new(&string));
  for (TarnHandle *stranger :
       {static_cast<TarnHandle *>(nullptr), static_cast<TarnHandle *>(nothing),
        static_cast<TarnHandle *>(node), static_cast<TarnHandle *>(list), &string}) {
    const TarnHandle before = stranger ? *stranger : 0;
    const uint32_t magic = CGIgs_getMagic(stranger);
    SCOPED_TRACE(stranger ? "a handle with tag " + std::to_string(magic) : "a null address");
    call(stranger);
    EXPECT_EQ(before, stranger ? *stranger : 0);
    EXPECT_EQ(magic, CGIgs_getMagic(stranger));
  }
  EXPECT_EQ(0U, CGIgs_getStruct(node, 0, kNobodysMagic));
  EXPECT_STREQ("strange", CGIgs_getString(node, 0, kNobodysMagic));
  TARNString_delete(&string);
}

// Copies and frees a text that the library allocated for its caller.
inline std::string copyAndRelease(char *text) {
  if (text == nullptr) {
    ADD_FAILURE() << "the library returned no text";
    return {};
  }
  std::string copy = text;
  std::free(text);
  return copy;
}

}  // namespace tarn_test

#endif
