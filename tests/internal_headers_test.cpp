// One file can include every internal header of both libraries and tarn.hpp: their names do not
// collide.
#include <gtest/gtest.h>

#include "every_internal_header.h"  // made by CMakeLists.txt
#include "tarn.hpp"

namespace {

TEST(InternalHeaders, WorkBesideTheHeaderForCpp) {
  tarn::String text("depth");
  const tarn::internal::String *record = tarn::internal::stringIn(text.handle());
  ASSERT_NE(nullptr, record);
  EXPECT_STREQ("depth", record->buffer);

  tarn::Element element("p", "text");
  const tarn::internal::Node *node = tarn::internal::nodeIn(element.handle(), TARN_ELEMENT_MAGIC);
  ASSERT_NE(nullptr, node);
  EXPECT_STREQ("p", node->text(TARN_ELEMENT_NAME));

  const tarn::internal::OwnedText decoded = tarn::internal::unescape("%41+b");
  EXPECT_STREQ("A b", decoded.get());
  tarn::internal::Node *entry = tarn::internal::newFormEntry("name", "value", 5);
  ASSERT_NE(nullptr, entry);
  EXPECT_STREQ("value", tarn::internal::valueOfEntry(*entry));
  tarn::internal::destroyNode(entry);
  tarn::internal::Node *cookies = tarn::internal::parseCookieHeader("a=1; b=2", nullptr);
  EXPECT_EQ(2U, tarn::internal::Cookies::count(cookies));
  tarn::internal::Cookies::destroy(cookies);

  tarn::form::Problem problem;
  EXPECT_FALSE(problem.reportOutOfMemory(7));
  EXPECT_EQ(7U, problem.offset);
}

}  // namespace
