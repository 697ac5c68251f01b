// The fields of a large form share blocks. No call can tell: each does the same to such a field as to
// an entry that a script made.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "support/failing_memory.h"
#include "support/form.h"
#include "support/handles.h"
#include "support/object.h"
#include "support/script.h"

namespace tarn_test {
namespace {

constexpr uint32_t kMagic = TARN_FORM_ENTRY_MAGIC;
constexpr uint32_t kChild = 815;

// The first fields have blocks of their own.
constexpr uint32_t kFirst = 64;
constexpr uint32_t kFields = 1500;

std::string nameOf(uint32_t index) { return "field" + std::to_string(index); }

// Some are empty, and some are too long for a shared block.
std::string valueOf(uint32_t index) {
  const size_t size = index % 50 == 49 ? 2000 : index % 37;
  return std::string(size, static_cast<char>('a' + index % 26));
}

std::string query() {
  std::string text;
  for (uint32_t i = 0; i < kFields; ++i) text += "&" + nameOf(i) + "=" + valueOf(i);
  return text.substr(1);
}

// An entry like a field of the form, in a block of its own.
struct Entry : Object {
  explicit Entry(uint32_t index) : Object(kMagic) {
    const std::string value = valueOf(index);
    EXPECT_EQ(TARN_OK, FormEntry_init(*this, nameOf(index).c_str(), value.data(),
                                      static_cast<uint32_t>(value.size())));
  }
};

class SharedField : public testing::Test {
 protected:
  // A field for which this was not called before.
  TarnHandle *next() {
    list_ = request_.entryList();
    field_ = FormEntryList_getByIndex(&list_, next_++);
    EXPECT_NE(0U, field_) << "the form has too few fields";
    return &field_;
  }
  uint32_t index() const { return next_ - 1; }
  Request &request() { return request_; }

 private:
  struct Made {
    Made() {
      withEnvironment(get(query()), [this] { request = new Request; });
    }
    ~Made() { delete request; }
    Request *request = nullptr;
  };

  Made made_;
  Request &request_ = *made_.request;
  TarnHandle list_ = 0;
  TarnHandle field_ = 0;
  uint32_t next_ = kFirst;
};

struct SharedFieldMemory : SharedField {};

// ---- The operations -----------------------------------------------------------------------------

// Makes a call to the library, perhaps without memory.
using Call = std::function<void(const std::function<void()> &)>;

// Does something to an entry and returns what the call did.
using Operation = std::function<std::string(TarnHandle *entry, const Call &call)>;
using Operations = std::vector<std::pair<std::string, Operation>>;

template <class Function>
Operation returning(Function function) {
  return [function](TarnHandle *entry, const Call &call) {
    uint32_t result = 0;
    call([&] { result = static_cast<uint32_t>(function(entry)); });
    return std::to_string(result);
  };
}

Operation setList(uint32_t index) {
  return [index](TarnHandle *entry, const Call &call) {
    List list{0x1000, 0x2000 + index};
    TarnStatus status = TARN_WRONG_TYPE;
    call([&] { status = CGIgs_setList(entry, index, list, kMagic); });
    if (status == TARN_OK) list.forget();
    return std::to_string(status);
  };
}

// Index 2 accepts any object.
std::string parkNode(TarnHandle *entry, const Call &call) {
  TarnHandle node = 0;
  EXPECT_EQ(TARN_OK, CGIgs_new(&node, kChild));
  EXPECT_EQ(TARN_OK, CGIgs_setString(&node, 3, "parked", kChild));
  // A child would be lost, which quirk 70 allows and the leak sanitizer reports.
  EXPECT_EQ(TARN_OK, CGIgs_setStruct(entry, 0, entry, kMagic, 0));
  TarnStatus status = TARN_WRONG_TYPE;
  call([&] { status = CGIgs_setList(entry, 2, &node, kMagic); });
  return std::to_string(status);
}

Operation setStruct(uint32_t index, uint32_t childMagic) {
  return [index, childMagic](TarnHandle *entry, const Call &call) {
    Node child(kChild);
    CGIgs_setString(child, 5, "a text of the child", kChild);
    CGIgs_setInt(child, 1, index, kChild);
    TarnStatus status = TARN_WRONG_TYPE;
    call([&] { status = CGIgs_setStruct(entry, index, child, kMagic, childMagic); });
    return std::to_string(status);
  };
}

std::string getStrippedValue(TarnHandle *entry, const Call &call) {
  const char *text = nullptr;
  call([&] { text = FormEntry_getStrippedValue(entry); });
  const std::string result = text ? text : "null";
  std::free(const_cast<char *>(text));
  return result;
}

std::string clone(TarnHandle *entry, const Call &call) {
  Object copy;
  TarnStatus status = TARN_WRONG_TYPE;
  call([&] { status = CGIgs_clone(entry, copy, kMagic); });
  return std::to_string(status) + copy.picture();
}

std::string addToList(TarnHandle *entry, const Call &call) {
  Object list(TARN_FORM_ENTRY_LIST_MAGIC, FormEntryList_delete);
  TarnStatus status = TARN_WRONG_TYPE;
  call([&] { status = FormEntryList_addEntry(list, entry); });
  return std::to_string(status) + list.picture();
}

std::string setAsItsOwnChild(TarnHandle *entry, const Call &call) {
  TarnStatus status = TARN_WRONG_TYPE;
  call([&] { status = CGIgs_setStruct(entry, 1, entry, kMagic, kMagic); });
  return std::to_string(status);
}

Operations makeOperations() {
  Operations all;
  const auto add = [&](const std::string &name, const Operation &operation) {
    all.emplace_back(name, operation);
  };
  // The last index of each is refused.
  for (uint32_t i = 0; i <= 8; ++i) {
    const std::string at = " " + std::to_string(i);
    add("setString" + at, returning([i](auto *e) { return CGIgs_setString(e, i, "new", kMagic); }));
    add("setString, null" + at,
        returning([i](auto *e) { return CGIgs_setString(e, i, nullptr, kMagic); }));
    add("setString, its own" + at, returning([i](auto *e) {
          return CGIgs_setString(e, i, CGIgs_getString(e, i % 3, kMagic), kMagic);
        }));
    add("setNString" + at,
        returning([i](auto *e) { return CGIgs_setNString(e, i, "bytes\0more", 11, kMagic); }));
    add("setNString, null" + at,
        returning([i](auto *e) { return CGIgs_setNString(e, i, nullptr, 0, kMagic); }));
  }
  for (uint32_t i = 0; i <= 3; ++i) {
    const std::string at = " " + std::to_string(i);
    add("setInt" + at, returning([i](auto *e) { return CGIgs_setInt(e, i, 70000 + i, kMagic); }));
    add("setStruct" + at, setStruct(i, kChild));
    add("setStruct, tag 0" + at, setStruct(i, 0));
  }
  for (const uint32_t i : {0U, 1U, 3U}) {
    const std::string at = " " + std::to_string(i);
    add("setList" + at, setList(i));
    add("setList, null" + at,
        returning([i](auto *e) { return CGIgs_setList(e, i, nullptr, kMagic); }));
  }
  add("setList, parked", [](TarnHandle *entry, const Call &call) {
    EXPECT_EQ(TARN_OK, CGIgs_setStruct(entry, 0, entry, kMagic, 0));
    return setList(2)(entry, call);
  });
  add("setList, parked node", parkNode);
  add("setStruct, itself", setAsItsOwnChild);
  add("setFixed", returning([](auto *e) { return CGIgs_setFixed(e, 4711, kMagic); }));
  add("setDouble", returning([](auto *e) { return CGIgs_setDouble(e, 0, 0.1, kMagic); }));
  add("setDouble 1", returning([](auto *e) { return CGIgs_setDouble(e, 1, 0.1, kMagic); }));
  add("clear", returning([](auto *e) { return CGIgs_clear(e, kMagic); }));
  add("clone", clone);
  add("init", returning([](auto *e) { return FormEntry_init(e, "other", "value", 5); }));
  add("init, refused", returning([](auto *e) { return FormEntry_init(e, "refused", nullptr, 5); }));
  add("setValue", returning([](auto *e) { return FormEntry_setValue(e, " a longer value ", 16); }));
  add("setValue, its name", returning([](auto *e) {
        return FormEntry_setValue(e, CGIgs_getString(e, TARN_ENTRY_NAME, kMagic), 2);
      }));
  add("getStrippedValue", getStrippedValue);
  add("compare", returning([](auto *e) { return FormEntry_compareName(e, "field70"); }));
  add("compareValue", returning([](auto *e) { return FormEntry_compareValue(e, "aaa"); }));
  add("getIntegerValue", returning([](auto *e) { return FormEntry_getIntegerValue(e); }));
  add("addEntry", addToList);
  return all;
}

const Operations &operations() {
  static const Operations all = makeOperations();
  return all;
}

void withMemory(const std::function<void()> &call) { call(); }

void expectTheSame(const std::pair<std::string, Operation> &operation, TarnHandle *field,
                   TarnHandle *entry, const Call &call = withMemory) {
  const auto &[name, run] = operation;
  const std::string expected = run(entry, call);
  ASSERT_EQ(expected, run(field, call)) << name;
  ASSERT_EQ(pictureOf(*entry), pictureOf(*field)) << name;
}

// ---- The tests ----------------------------------------------------------------------------------

TEST_F(SharedField, ReadsLikeAnyOtherEntry) {
  for (uint32_t i = kFirst; i < kFields; ++i) {
    TarnHandle *field = next();
    Entry entry(i);
    ASSERT_EQ(entry.picture(), pictureOf(*field)) << i;
  }
}

TEST_F(SharedField, IsChangedByEachOperationLikeAnyOtherEntry) {
  for (const auto &operation : operations()) {
    TarnHandle *field = next();
    Entry entry(index());
    expectTheSame(operation, field, entry);
  }
}

TEST_F(SharedField, IsChangedByManyOperationsLikeAnyOtherEntry) {
  std::minstd_rand random(4711);
  for (int i = 0; i < 400; ++i) {
    TarnHandle *field = next();
    Entry entry(index());
    for (int n = 0; n < 12; ++n) {
      const auto &operation = operations()[random() % operations().size()];
      ASSERT_NO_FATAL_FAILURE(expectTheSame(operation, field, entry)) << "sequence " << i;
    }
  }
}

TEST_F(SharedFieldMemory, IsChangedLikeAnyOtherEntryWithoutMemory) {
  for (const auto &operation : operations()) {
    // Less than each of the blocks that an operation allocates, or enough for some of them.
    for (const size_t spare : {0, 5, 20, 160, 180, 200, 400}) {
      TarnHandle *field = next();
      Entry entry(index());
      const Call call = [spare](const auto &theCall) { withoutMemory(theCall, spare); };
      ASSERT_NO_FATAL_FAILURE(expectTheSame(operation, field, entry, call)) << spare << " bytes";
    }
  }
}

TEST_F(SharedFieldMemory, IsSetWithoutMemoryWhereNoCallMayFail) {
  List list{1, 2};
  List parked{3};
  Node child(kChild);
  TarnHandle *field = next();
  std::vector<TarnStatus> statuses;
  statuses.reserve(16);
  withoutMemory([&] {
    for (uint32_t i = 0; i < 3; ++i) statuses.push_back(CGIgs_setInt(field, i, 10 + i, kMagic));
    statuses.push_back(CGIgs_setDouble(field, 0, 0.5, kMagic));
    statuses.push_back(CGIgs_setFixed(field, 99, kMagic));
    statuses.push_back(CGIgs_setList(field, 1, list, kMagic));
    statuses.push_back(CGIgs_setList(field, 2, parked, kMagic));
    // The copy of the child fails, but its tag is stored. Quirk 68.
    statuses.push_back(CGIgs_setStruct(field, 2, child, kMagic, kChild));
    statuses.push_back(CGIgs_setString(field, TARN_ENTRY_NAME, nullptr, kMagic));
  });
  list.forget();
  parked.forget();
  EXPECT_EQ(std::vector<TarnStatus>(9, TARN_OK), statuses);
  EXPECT_EQ("{5471 - '" + valueOf(index()) + "' - - - - - - 10 11 12 0.5 99[1 2 ] 0[3 ] 0 815}",
            pictureOf(*field));
}

// The texts of a field stay where they are until they are replaced.
TEST_F(SharedField, KeepsItsTextsWhereTheyAre) {
  TarnHandle *field = next();
  const char *name = CGIgs_getString(field, TARN_ENTRY_NAME, kMagic);
  const char *value = CGIgs_getString(field, TARN_ENTRY_VALUE, kMagic);
  EXPECT_EQ(TARN_OK, CGIgs_setFixed(field, 1, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_setString(field, 7, "seven", kMagic));
  EXPECT_EQ(name, CGIgs_getString(field, TARN_ENTRY_NAME, kMagic));
  EXPECT_EQ(value, CGIgs_getString(field, TARN_ENTRY_VALUE, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_setString(field, TARN_ENTRY_NAME, "other", kMagic));
  EXPECT_EQ(value, CGIgs_getString(field, TARN_ENTRY_VALUE, kMagic));
  EXPECT_EQ(valueOf(index()), value);
}

TEST_F(SharedField, IsLookedUpAfterItsNameChanged) {
  TarnHandle *field = next();
  EXPECT_EQ(TARN_OK, CGIgs_setString(field, TARN_ENTRY_NAME, "unheard-of", kMagic));
  EXPECT_EQ(*field, Tarn_getElementByName(&request().handle, "UNHEARD-OF"));
  EXPECT_EQ(0U, Tarn_getElementByName(&request().handle, nameOf(index()).c_str()));
}

// The sanitizers check that all that was set is released.
TEST_F(SharedField, IsReleasedWithItsListInAnyState) {
  for (const auto &operation : operations()) operation.second(next(), withMemory);
  TarnHandle list = request().entryList();
  TarnHandle made = 0;
  EXPECT_EQ(TARN_OK, FormEntryList_clone(&list, &made));
  EXPECT_EQ(int32_t{kFields}, FormEntryList_getCount(&made));
  EXPECT_EQ(TARN_OK, FormEntryList_delete(&made));
  EXPECT_EQ(TARN_OK, FormEntryList_clear(&list));
  EXPECT_EQ(0, FormEntryList_getCount(&list));
}

}  // namespace
}  // namespace tarn_test
