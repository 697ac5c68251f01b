// The environment, entries, files and whole requests, with each allocation failing in turn.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

#include "support/failing_memory.h"
#include "support/form.h"
#include "support/object.h"
#include "support/script.h"

namespace tarn_test {
namespace {

const std::string kMultipart = "multipart/form-data; boundary=b";
const std::string kParts =
    "--b\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\n1\r\n"
    "--b\r\nContent-Disposition: form-data; name=\"f\"; filename=\"f%2B.txt\"\r\n"
    "Content-Type: text/plain\r\n\r\ndata\r\n"
    "--b\r\nContent-Disposition: form-data; name=\"c\"\r\n\r\n2\r\n--b--\r\n";

// Both statuses report a failed allocation: TARN_WRONG_TYPE that of an inner list.
bool reportsFailure(TarnStatus status) {
  return status == TARN_OUT_OF_MEMORY || status == TARN_WRONG_TYPE;
}

struct Entry : Object {
  explicit Entry(const char *value = "value") : Object(TARN_FORM_ENTRY_MAGIC) {
    EXPECT_EQ(TARN_OK, FormEntry_init(*this, "name", value, 5));
  }
};

struct Entries : Object {
  Entries() : Object(TARN_FORM_ENTRY_LIST_MAGIC, FormEntryList_delete) {}
};

struct File : Object {
  File() : Object(TARN_FORM_FILE_MAGIC) {
    EXPECT_EQ(TARN_OK, FormFile_init(*this, "name", "file", "type", "bytes", 5));
  }
};

struct Files : Object {
  Files() : Object(TARN_FORM_FILE_LIST_MAGIC, FormFileList_delete) {}
};

// ---- Entries ------------------------------------------------------------------------------------

TEST(EntryAtEachFailure, InitReportsAMissingValueButNotAMissingName) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Entry entry("older");
    const TarnStatus status = memory.call([&] { return FormEntry_init(entry, "new", "newer", 5); });
    EXPECT_TRUE(status == TARN_OK || (memory.failed() && status == TARN_OUT_OF_MEMORY));
    EXPECT_STREQ(status == TARN_OK ? "newer" : "older",
                 CGIgs_getString(entry, TARN_ENTRY_VALUE, TARN_FORM_ENTRY_MAGIC));
    const char *name = CGIgs_getString(entry, TARN_ENTRY_NAME, TARN_FORM_ENTRY_MAGIC);
    EXPECT_TRUE(name ? std::string("new") == name : memory.failed());
  });
}

TEST(EntryAtEachFailure, SetValueReportsItAndKeepsTheEntry) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Entry entry;
    const std::string before = entry.picture();
    const TarnStatus status = memory.call([&] { return FormEntry_setValue(entry, "newer", 5); });
    EXPECT_EQ(memory.failed() ? TARN_OUT_OF_MEMORY : TARN_OK, status);
    EXPECT_EQ(memory.failed(), entry.picture() == before);
  });
}

TEST(EntryAtEachFailure, StrippedValueIsNullOrNotStored) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Entry entry(" abc ");
    const char *text = memory.call([&] { return FormEntry_getStrippedValue(entry); });
    EXPECT_TRUE(text ? std::string("abc") == text : memory.failed());
    EXPECT_STREQ(memory.failed() ? nullptr : "abc",
                 CGIgs_getString(entry, TARN_ENTRY_STRIPPED_VALUE, TARN_FORM_ENTRY_MAGIC));
    EXPECT_STREQ(" abc ", CGIgs_getString(entry, TARN_ENTRY_VALUE, TARN_FORM_ENTRY_MAGIC));
    std::free(const_cast<char *>(text));
  });
}

// Expects that the list has one more element, or that the status reports why not.
void expectAdded(FailingMemory &memory, TarnStatus status, int32_t count) {
  EXPECT_TRUE(status == TARN_OK || (memory.failed() && reportsFailure(status)));
  EXPECT_EQ(status == TARN_OK ? 1 : 0, count);
}

// Expects a copy that may lack only texts, or an unchanged destination.
void expectCopied(FailingMemory &memory, TarnStatus status, const Object &list,
                  const Object &copy) {
  EXPECT_TRUE(status == TARN_OK || (memory.failed() && reportsFailure(status)));
  EXPECT_TRUE(status == TARN_OK || copy.value() == 0);
  EXPECT_TRUE(memory.failed() || list.picture() == copy.picture());
}

TEST(EntryListAtEachFailure, AddReserveAndCloneKeepTheRest) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Entry entry;
    Entries list;
    const std::string before = entry.picture();
    const TarnStatus added = memory.call([&] { return FormEntryList_addEntry(list, entry); });
    expectAdded(memory, added, FormEntryList_getCount(list));
    EXPECT_EQ(before, entry.picture());
    if (added != TARN_OK) FormEntryList_addEntry(list, entry);
    const std::string listBefore = list.picture();
    memory.call([&] { FormEntryList_reserve(list, 100); });
    Object copy(FormEntryList_delete);
    const TarnStatus cloned = memory.call([&] { return FormEntryList_clone(list, copy); });
    expectCopied(memory, cloned, list, copy);
    EXPECT_EQ(listBefore, list.picture());
  });
}

// ---- Files --------------------------------------------------------------------------------------

TEST(FileAtEachFailure, InitReturnsOkAndKeepsWhatItCouldCopy) {
  forEachFailingAllocation([](FailingMemory &memory) {
    const File whole;
    Object file(TARN_FORM_FILE_MAGIC);
    EXPECT_EQ(TARN_OK,
              memory.call([&] { return FormFile_init(file, "name", "file", "type", "bytes", 5); }));
    EXPECT_EQ(memory.failed(), file.picture() != whole.picture());
  });
}

TEST(FileListAtEachFailure, AddReserveAndCloneKeepTheRest) {
  forEachFailingAllocation([](FailingMemory &memory) {
    File file;
    Files list;
    const std::string before = file.picture();
    const TarnStatus added = memory.call([&] { return FormFileList_addEntry(list, file); });
    expectAdded(memory, added, FormFileList_getCount(list));
    EXPECT_EQ(before, file.picture());
    if (added != TARN_OK) FormFileList_addEntry(list, file);
    const std::string listBefore = list.picture();
    memory.call([&] { FormFileList_reserve(list, 100); });
    Object copy(FormFileList_delete);
    const TarnStatus cloned = memory.call([&] { return FormFileList_clone(list, copy); });
    expectCopied(memory, cloned, list, copy);
    EXPECT_EQ(listBefore, list.picture());
  });
}

// ---- The environment ----------------------------------------------------------------------------

// A fresh standard input, without a buffer, as a script finds it.
void resetStandardInput(const std::string &body) {
  const int input = memfd_create("input", 0);
  ASSERT_EQ(static_cast<ssize_t>(body.size()), write(input, body.data(), body.size()));
  const std::string path = "/proc/self/fd/" + std::to_string(input);
  ASSERT_NE(nullptr, std::freopen(path.c_str(), "r", stdin));
  close(input);
}

TEST(EnvironmentAtEachFailure, NewReportsAMissingBody) {
  Variables variables = post("text/plain", "hello");
  variables["HTTP_COOKIE"] = "a=1; x; b=%41";
  asScript(variables, "", [] {
    std::string whole;
    std::set<TarnStatus> seen;
    forEachFailingAllocation([&](FailingMemory &memory) {
      resetStandardInput("hello");
      Object environment(CgiEnv_delete);
      const TarnStatus status = memory.call([&] { return CgiEnv_new(environment); });
      seen.insert(status);
      const TarnHandle body =
          CGIgs_getStruct(environment, TARN_ENVIRONMENT_BODY, TARN_ENVIRONMENT_MAGIC);
      EXPECT_EQ(body != 0, status == TARN_OK);
      EXPECT_TRUE(body || status == TARN_BAD_ARGUMENT || status == TARN_WRONG_TYPE);
      if (!memory.failed()) whole = environment.picture();
      EXPECT_FALSE(whole.empty());
    });
    // The second status means no memory for the bytes, the third none for their node.
    EXPECT_EQ((std::set<TarnStatus>{TARN_OK, TARN_BAD_ARGUMENT, TARN_WRONG_TYPE}), seen);
  });
}

TEST(EnvironmentAtEachFailure, SetPostDataReportsItAndKeepsTheBody) {
  asScript(post("text/plain", "hello"), "hello", [] {
    Object environment(CgiEnv_delete);
    ASSERT_EQ(TARN_OK, CgiEnv_new(environment));
    forEachFailingAllocation([&](FailingMemory &memory) {
      ASSERT_EQ(TARN_OK, CgiEnv_setPostData(environment, "old", 3));
      const std::string before = environment.picture();
      const TarnStatus status =
          memory.call([&] { return CgiEnv_setPostData(environment, "new", 3); });
      EXPECT_TRUE(status == TARN_OK || (memory.failed() && reportsFailure(status)));
      EXPECT_EQ(status != TARN_OK, environment.picture() == before);
    });
  });
}

// ---- Requests -----------------------------------------------------------------------------------

// Everything in a request.
struct RequestContents {
  bool operator==(const RequestContents &) const = default;

  Form form;
  Text body;
  std::optional<Cookies> cookies;
};

RequestContents contentsOf(TarnHandle *request) {
  const auto child = [request](uint32_t slot) {
    return CGIgs_getStruct(request, slot, TARN_REQUEST_MAGIC);
  };
  const TarnHandle environment = child(TARN_REQUEST_ENVIRONMENT);
  return {{entriesOf(child(TARN_REQUEST_ENTRIES)), filesOf(child(TARN_REQUEST_FILES))},
          bodyOf(environment),
          cookiesOf(environment)};
}

// Reads this request, first with all allocations granted and then with each failing in turn.
void readAtEachFailure(Variables variables, const std::string &body) {
  variables["HTTP_COOKIE"] = "a=1; x; b=%41";
  const bool isPost = variables["REQUEST_METHOD"] == "POST";
  asScript(variables, "", [&] {
    size_t wholeSize = 0;
    std::string whole;
    RequestContents all;
    forEachFailingAllocation([&](FailingMemory &memory) {
      resetStandardInput(body);
      Object request(Tarn_delete);
      const TarnStatus status = memory.call([&] { return Tarn_new(request); });
      // A body that was not stored is not parsed; a query without an environment is refused.
      const bool environment =
          CGIgs_getStruct(request, TARN_REQUEST_ENVIRONMENT, TARN_REQUEST_MAGIC) != 0;
      EXPECT_TRUE(status == (environment ? TARN_OK : TARN_NO_ENVIRONMENT) ||
                  (isPost && !environment && status == TARN_OK));
      EXPECT_TRUE(memory.failed() || environment);
      if (wholeSize == 0) wholeSize = request.picture().size();
      EXPECT_GE(wholeSize, request.picture().size());
      if (whole.empty()) {
        whole = request.picture();
        all = contentsOf(request);
        EXPECT_EQ(1U, Tarn_isComplete(request));
      }
      // A request is complete exactly if nothing is missing.
      if (Tarn_isComplete(request)) {
        EXPECT_TRUE(all == contentsOf(request)) << request.picture();
      } else {
        EXPECT_TRUE(memory.failed());
        EXPECT_NE(whole, request.picture());
      }
      // Every lookup works even if something is missing.
      Tarn_queryCheckbox(request, "a");
      Tarn_getFile(request, "f");
      EXPECT_TRUE(memory.failed() || Tarn_getElementByName(request, "a"));
    });
  });
}

// With a null address there is nothing else to allocate.
TEST(RequestAtEachFailure, NewFormatsATextOnItsWayOut) {
  size_t failures = 0;
  forEachFailingAllocation([&](FailingMemory &memory) {
    EXPECT_EQ(TARN_BAD_ARGUMENT, memory.call([] { return Tarn_new(nullptr); }));
    if (memory.failed()) ++failures;
  });
  EXPECT_GT(failures, 0U);
}

// Without memory for the environment or the body, there is nowhere to read the body to.
TEST(RequestAtEachFailure, NewConsumesTheBodyEvenIfTheRequestCannotBeAllocated) {
  const std::string body = "a=1";
  asScript(post("application/x-www-form-urlencoded", body), "", [&] {
    std::set<TarnStatus> seen;
    forEachFailingAllocation([&](FailingMemory &memory) {
      resetStandardInput(body);
      Object request(Tarn_delete);
      const TarnStatus status = memory.call([&] { return Tarn_new(request); });
      if (request.value() != 0) return;
      EXPECT_EQ(status == TARN_NO_ENVIRONMENT ? "" : body, restOfStandardInput());
      seen.insert(status);
    });
    EXPECT_EQ((std::set<TarnStatus>{TARN_OK, TARN_NO_ENVIRONMENT}), seen);
  });
}

TEST(RequestAtEachFailure, NewOfAGet) { readAtEachFailure(get("a=1&b=%41&=&c"), ""); }

TEST(RequestAtEachFailure, NewOfAUrlEncodedPost) {
  const std::string body = "a=1&b=%41&=&c";
  readAtEachFailure(post("application/x-www-form-urlencoded", body), body);
}

TEST(RequestAtEachFailure, NewOfAMultipartPost) {
  readAtEachFailure(post(kMultipart, kParts), kParts);
}

// Fields that share blocks of memory get their own if there is none for a block.
TEST(RequestAtEachFailure, NewOfManyFields) {
  std::string body = "a=1";
  for (int i = 0; i < 119; ++i) body += "&b=%41";
  readAtEachFailure(post("application/x-www-form-urlencoded", body), body);
}

TEST(RequestAtEachFailure, ParsingReturnsOkAndKeepsWhatWasThere) {
  asScript(get("a=1"), "", [] {
    forEachFailingAllocation([](FailingMemory &memory) {
      unsetenv("CONTENT_TYPE");
      Object request(Tarn_delete);
      ASSERT_EQ(TARN_OK, Tarn_new(request));
      const TarnHandle first = Tarn_getElementByName(request, "a");
      const std::string before = pictureOf(first);
      bool failed = false;
      const auto expectNoted = [&] {
        failed = failed || memory.failed();
        EXPECT_EQ(failed ? 0U : 1U, Tarn_isComplete(request));
      };
      char pairs[] = "b=2&c=3";
      EXPECT_EQ(TARN_OK, memory.call([&] { return Tarn_parseFormInput(request, pairs, 7); }));
      expectNoted();
      EXPECT_TRUE(memory.failed() || Tarn_getElementByName(request, "c"));
      char pair[] = "d=4";
      memory.call([&] { Tarn_parsePair(request, pair); });
      expectNoted();
      EXPECT_TRUE(memory.failed() || Tarn_getElementByName(request, "d"));
      EXPECT_STREQ("d", pair);
      uint8_t part[] = "name=\"e\"\r\n\r\n5\r\n";
      memory.call([&] { Tarn_parseMime(request, part, sizeof part - 1); });
      expectNoted();
      EXPECT_TRUE(memory.failed() || Tarn_getElementByName(request, "e"));
      setenv("CONTENT_TYPE", kMultipart.c_str(), 1);
      std::string parts = kParts;
      EXPECT_EQ(TARN_OK, memory.call([&] {
        return Tarn_parseFormInput(request, parts.data(), static_cast<uint32_t>(parts.size()));
      }));
      EXPECT_TRUE(memory.failed() || Tarn_getFile(request, "f"));
      EXPECT_EQ(kParts, parts);
      EXPECT_EQ(first, Tarn_getElementByName(request, "a"));
      EXPECT_EQ(before, pictureOf(first));
    });
  });
}

// Copied directly, and as a child of another node.
TEST(RequestAtEachFailure, CopyThatLacksSomethingIsNotComplete) {
  Variables variables = get("a=1&b=2");
  variables["HTTP_COOKIE"] = "a=1; b=2";
  asScript(variables, "", [] {
    constexpr uint32_t kParent = 4711;
    bool seenIncomplete = false;
    forEachFailingAllocation([&](FailingMemory &memory) {
      Object request(Tarn_delete);
      ASSERT_EQ(TARN_OK, Tarn_new(request));
      const RequestContents all = contentsOf(request);
      const auto expectHonest = [&](TarnHandle *copy) {
        if (Tarn_isComplete(copy)) {
          EXPECT_TRUE(all == contentsOf(copy));
        } else {
          EXPECT_TRUE(memory.failed());
          seenIncomplete = true;
        }
      };
      Object copy;
      EXPECT_EQ(TARN_OK,
                memory.call([&] { return CGIgs_clone(request, copy, TARN_REQUEST_MAGIC); }));
      expectHonest(copy);
      Object parent(kParent);
      EXPECT_EQ(TARN_OK, memory.call([&] {
        return CGIgs_setStruct(parent, 0, request, kParent, TARN_REQUEST_MAGIC);
      }));
      TarnHandle child = CGIgs_getStruct(parent, 0, kParent);
      expectHonest(&child);
    });
    EXPECT_TRUE(seenIncomplete);
  });
}

TEST(RequestAtEachFailure, FindEntriesReportsAFailedAppend) {
  asScript(get("a=1&b=2&a=3"), "", [] {
    forEachFailingAllocation([](FailingMemory &memory) {
      Object request(Tarn_delete);
      ASSERT_EQ(TARN_OK, Tarn_new(request));
      const std::string before = request.picture();
      Entries found;
      const uint32_t failed = memory.call([&] { return Tarn_findEntries(request, "a", 0, found); });
      EXPECT_TRUE(failed == 0 || memory.failed());
      EXPECT_EQ(failed == 0, FormEntryList_getCount(found) == 2);
      EXPECT_EQ(before, request.picture());
    });
  });
}

}  // namespace
}  // namespace tarn_test
