// Null pointers as texts: they are empty texts, except where a function says otherwise.
#include <gtest/gtest.h>
#include <tarn.hpp>

#include <string>
#include <string_view>

#include "output.h"

namespace {

const char *const kNone = nullptr;

TEST(NullPointer, IsAnEmptyKeyInJson) {
  tarn::JsonWriter json;
  json.begin_object().key(kNone).value(1).member(kNone, 2).member("text", kNone).end_object();
  EXPECT_EQ("{\"\":1,\"\":2,\"text\":null}", std::string(json.take().view()));
}

TEST(NullPointer, IsAnEmptyPieceOfAStream) {
  tarn_test::Output out;
  tarn::Response response(out);
  tarn::Stream body(response);
  EXPECT_TRUE(body.write(kNone));
  EXPECT_TRUE(body.write("a"));
  EXPECT_TRUE(body.finish());
  EXPECT_EQ("Content-Type: text/plain; charset=utf-8\r\n\r\na", out.written());
}

TEST(NullPointer, IsNoOrigin) { EXPECT_FALSE(tarn::same_origin(kNone)); }

TEST(NullPointer, IsNoNameOfAHeader) { EXPECT_FALSE(tarn::request_header(kNone).has_value()); }

TEST(NullPointer, IsAnEmptyTextInACheckedForm) {
  const tarn::Form sent(tarn::FormReader::from_query("a=1"));
  tarn::CheckedForm form(sent, false);
  form.initially("a", "b").initially("a", kNone).initially(kNone, "c");
  EXPECT_EQ("", form.typed("a"));
  EXPECT_EQ("", form.typed(kNone));
  EXPECT_FALSE(form.sentence(kNone).has_value());
}

}  // namespace
