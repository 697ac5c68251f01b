// Text from strangers in a response: nothing is checked, changed or interpreted.
#include <gtest/gtest.h>
#include <tarn.h>

#include <cstdlib>
#include <string>

#include "support/form.h"
#include "support/guarded.h"
#include "support/handles.h"

namespace tarn_test {
namespace {

const char *const kInjections[] = {
    "v\r\nSet-Cookie: admin=1",
    "v\r\n\r\n<script>",
    "\r\n",
    "\n",
    "\r",
    "v\n folded",
    "%0d%0aX: y",
    "%s%n%d%99999999s",
    "",
    ";",
    "\"",
    "\xFF\x80\r\n",
};

TEST(HostileHeaderLine, WithLineEndsIsStoredAsOneText) {
  Node header(TARN_RESPONSE_HEADER_MAGIC);
  for (const char *injection : kInjections) {
    SCOPED_TRACE(testing::PrintToString(injection));
    GuardedText line(injection);
    EXPECT_EQ(TARN_OK, HTTPResponseHeader_addHeader(header, line.text()));
  }
  TarnHandle lines = HTTPResponseHeader_getHeaderList(header);
  ASSERT_EQ(std::size(kInjections), TARNGenericList_getCount(&lines));
  for (uint32_t i = 0; i < std::size(kInjections); ++i) {
    SCOPED_TRACE(i);
    EXPECT_STREQ(kInjections[i],
                 reinterpret_cast<const char *>(TARNGenericList_getByIndex(&lines, i)));
  }
  EXPECT_STREQ("Not implemented yet.", HTTPResponseHeader_toHTML(header));
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_delete(header));
}

TEST(HostileHeaderLine, WithLineEndsIsStoredUnchangedInEveryHeaderText) {
  for (const char *injection : kInjections) {
    SCOPED_TRACE(testing::PrintToString(injection));
    GuardedText text(injection);
    Node response(TARN_RESPONSE_HEADER_MAGIC);
    EXPECT_EQ(TARN_OK, HTTPResponseHeader_init(response, text.text(), 200, text.text()));
    EXPECT_STREQ(injection,
                 CGIgs_getString(response, TARN_RESPONSE_HEADER_FIRST, TARN_RESPONSE_HEADER_MAGIC));
    EXPECT_STREQ(injection, CGIgs_getString(response, TARN_RESPONSE_HEADER_SECOND,
                                            TARN_RESPONSE_HEADER_MAGIC));
    Node header(TARN_HEADER_MAGIC);
    EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPHeader_init(header, text.text(), nullptr));
    EXPECT_STREQ(injection, CGIgs_getString(header, TARN_HEADER_CONTENT_TYPE, TARN_HEADER_MAGIC));
  }
}

TEST(HostileCookieValue, WithLineEndsIsStoredAndRenderedUnchanged) {
  for (const char *injection : kInjections) {
    GuardedText text(injection);
    Node cookie(TARN_COOKIE_MAGIC);
    EXPECT_EQ(TARN_OK, HTTPCookie_init(cookie, text.text(), text.text(), text.text(), text.text(),
                                       -1, text.text(), 1));
    for (uint32_t slot = 0; slot < 5; ++slot) {
      EXPECT_STREQ(injection, CGIgs_getString(cookie, slot, TARN_COOKIE_MAGIC)) << slot;
    }
    const std::string v = injection;
    EXPECT_EQ("HTTPCookie{name=\"" + v + "\";value=\"" + v + "\";comment=\"" + v + "\";domain=\"" +
                  v + "\",maxage=-1;path=\"" + v + "\";secure=\"yes\"}",
              copyAndRelease(const_cast<char *>(HTTPCookie_toString(cookie))));
  }
}

TEST(HostileMarkup, IsStoredUnchangedInAttributesAndElements) {
  for (const char *injection : {"\"><script>alert(1)</script>", "' onload='x", "\r\n", "%s%n"}) {
    SCOPED_TRACE(testing::PrintToString(injection));
    GuardedText text(injection);
    Node attribute(TARN_ATTRIBUTE_MAGIC);
    EXPECT_EQ(TARN_OK, HTMLAttribute_init(attribute, text.text(), text.text()));
    EXPECT_STREQ(injection, CGIgs_getString(attribute, TARN_ATTRIBUTE_NAME, TARN_ATTRIBUTE_MAGIC));
    EXPECT_STREQ(injection, CGIgs_getString(attribute, TARN_ATTRIBUTE_VALUE, TARN_ATTRIBUTE_MAGIC));
  }
}

}  // namespace
}  // namespace tarn_test
