// Handles that careless scripts pass: deleted, deleted twice, or of another type.
#include <gtest/gtest.h>
#include <tarn.h>

#include <string>

#include "support/handles.h"

namespace tarn_test {
namespace {

constexpr uint32_t kNodes[] = {
    TARN_BYTE_BUFFER_MAGIC, TARN_ENVIRONMENT_MAGIC,     TARN_FORM_ENTRY_MAGIC,
    TARN_FORM_FILE_MAGIC,   TARN_FORM_ENTRY_LIST_MAGIC, TARN_REQUEST_MAGIC,
    TARN_COOKIE_MAGIC,      TARN_COOKIE_LIST_MAGIC,     TARN_HEADER_MAGIC,
    TARN_ATTRIBUTE_MAGIC,   TARN_RESPONSE_HEADER_MAGIC, TARN_MULTIPART_HEADER_MAGIC,
    TARN_ELEMENT_MAGIC,     TARN_ATTRIBUTE_LIST_MAGIC,
};

struct Release {
  const char *name;
  TarnStatus (*call)(TarnHandle *);
  uint32_t magic;
};

const Release kReleases[] = {
    {"CgiEnv_delete", CgiEnv_delete, TARN_ENVIRONMENT_MAGIC},
    {"CgiEnv_clear", CgiEnv_clear, TARN_ENVIRONMENT_MAGIC},
    {"FormEntryList_delete", FormEntryList_delete, TARN_FORM_ENTRY_LIST_MAGIC},
    {"FormEntryList_clear", FormEntryList_clear, TARN_FORM_ENTRY_LIST_MAGIC},
    {"FormFileList_delete", FormFileList_delete, TARN_FORM_FILE_LIST_MAGIC},
    {"FormFileList_clear", FormFileList_clear, TARN_FORM_FILE_LIST_MAGIC},
    {"Tarn_delete", Tarn_delete, TARN_REQUEST_MAGIC},
    {"HTTPCookieList_delete", HTTPCookieList_delete, TARN_COOKIE_LIST_MAGIC},
    {"HTTPCookieList_clear", HTTPCookieList_clear, TARN_COOKIE_LIST_MAGIC},
    {"HTTPHeader_delete", HTTPHeader_delete, TARN_HEADER_MAGIC},
    {"HTTPHeader_clear", HTTPHeader_clear, TARN_HEADER_MAGIC},
    {"HTTPResponseHeader_delete", HTTPResponseHeader_delete, TARN_RESPONSE_HEADER_MAGIC},
    {"HTTPResponseHeader_clear", HTTPResponseHeader_clear, TARN_RESPONSE_HEADER_MAGIC},
    {"HTMLAttributeList_delete", HTMLAttributeList_delete, TARN_ATTRIBUTE_LIST_MAGIC},
    {"HTMLAttributeList_clear", HTMLAttributeList_clear, TARN_ATTRIBUTE_LIST_MAGIC},
    {"HTMLElement_delete", HTMLElement_delete, TARN_ELEMENT_MAGIC},
    {"HTMLElement_clear", HTMLElement_clear, TARN_ELEMENT_MAGIC},
    {"HTMLElementList_delete", HTMLElementList_delete, TARN_ELEMENT_LIST_MAGIC},
    {"HTMLElementList_clear", HTMLElementList_clear, TARN_ELEMENT_LIST_MAGIC},
    {"TARNString_delete", TARNString_delete, TARN_STRING_MAGIC},
    {"TARNString_clear", TARNString_clear, TARN_STRING_MAGIC},
    {"TARNGenericList_clear", TARNGenericList_clear, TARN_GENERIC_LIST_MAGIC},
};

TEST(HostileHandle, OfAnotherTypeIsRefusedByEveryDeleteAndClearAndKeepsItsObject) {
  for (const Release &release : kReleases) {
    SCOPED_TRACE(release.name);
    for (const uint32_t magic : kNodes) {
      if (magic == release.magic) continue;
      Node node(magic);
      CGIgs_setString(node, 0, "kept", magic);
      const TarnHandle before = node.value();
      EXPECT_EQ(TARN_WRONG_TYPE, release.call(node)) << magic;
      EXPECT_EQ(before, node.value());
      EXPECT_EQ(magic, CGIgs_getMagic(node));
      EXPECT_STREQ("kept", CGIgs_getString(node, 0, magic));
    }
    if (release.magic != TARN_GENERIC_LIST_MAGIC) {
      List list{7};
      EXPECT_EQ(TARN_WRONG_TYPE, release.call(list));
      EXPECT_EQ(7U, TARNGenericList_getByIndex(list, 0));
    }
    if (release.magic != TARN_STRING_MAGIC) {
      TarnHandle string = 0;
      ASSERT_EQ(TARN_OK, TARNString_new(&string));
      TARNString_set(&string, "kept");
      EXPECT_EQ(TARN_WRONG_TYPE, release.call(&string));
      EXPECT_STREQ("kept", TARNString_c_str(&string));
      EXPECT_EQ(TARN_OK, TARNString_delete(&string));
    }
  }
}

TEST(HostileHandle, DeletedTwiceIsRefusedTheSecondTime) {
  for (const Release &release : kReleases) {
    SCOPED_TRACE(release.name);
    TarnHandle handle = 0;
    if (release.magic == TARN_STRING_MAGIC) {
      ASSERT_EQ(TARN_OK, TARNString_new(&handle));
      EXPECT_EQ(TARN_OK, TARNString_delete(&handle));
    } else if (release.magic == TARN_GENERIC_LIST_MAGIC) {
      ASSERT_EQ(TARN_OK, TARNGenericList_new(&handle));
      EXPECT_EQ(TARN_OK, TARNGenericList_delete(&handle));
      EXPECT_EQ(TARN_OK, TARNGenericList_delete(&handle)) << "a list's delete succeeds on nothing";
    } else {
      ASSERT_EQ(TARN_OK, CGIgs_new(&handle, release.magic));
      EXPECT_EQ(TARN_OK, CGIgs_delete(&handle, release.magic));
      EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_delete(&handle, release.magic));
      EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_delete(&handle, 0));
    }
    EXPECT_EQ(0U, handle);
    EXPECT_EQ(TARN_WRONG_TYPE, release.call(&handle));
    EXPECT_EQ(0U, handle);
    EXPECT_EQ(TARN_WRONG_TYPE, release.call(nullptr));
  }
}

TEST(HostileHandle, AfterDeleteReadsAsEmptyAndCanHoldANewObject) {
  for (const uint32_t magic : kNodes) {
    SCOPED_TRACE(magic);
    TarnHandle handle = 0;
    ASSERT_EQ(TARN_OK, CGIgs_new(&handle, magic));
    CGIgs_setString(&handle, 0, "text", magic);
    CGIgs_setInt(&handle, 0, 7, magic);
    ASSERT_EQ(TARN_OK, CGIgs_delete(&handle, magic));
    EXPECT_EQ(nullptr, CGIgs_getString(&handle, 0, magic));
    EXPECT_EQ(0U, CGIgs_getInt(&handle, 0, magic));
    EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_setString(&handle, 0, "again", magic));
    EXPECT_EQ(0U, CGIgs_getMagic(&handle));
    EXPECT_EQ(TARN_OK, CGIgs_new(&handle, magic));
    EXPECT_EQ(nullptr, CGIgs_getString(&handle, 0, magic));
    EXPECT_EQ(TARN_OK, CGIgs_delete(&handle, magic));
  }
}

}  // namespace
}  // namespace tarn_test
