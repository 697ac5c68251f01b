// All owning types: what they share, and each by itself.
#include <gtest/gtest.h>
#include <tarn.hpp>

#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "support/failing_memory.h"
#include "support/object.h"

using tarn_test::FailingMemory;
using tarn_test::forEachFailingAllocation;
using tarn_test::pictureOf;

namespace {

// An object of each type, with contents.

template <class Type>
Type made();

template <>
tarn::String made() {
  return tarn::String("a text that is longer than sixteen bytes");
}

template <>
tarn::Cookie made() {
  tarn::Cookie cookie("name", "value");
  cookie.comment("comment").domain("domain").path("/").max_age(60).secure();
  return cookie;
}

template <>
tarn::CookieList made() {
  tarn::CookieList list;
  list.add(tarn::Cookie("a", "1")).add(tarn::Cookie("a", "2"));
  return list;
}

template <>
tarn::PlainHeader made() {
  tarn::PlainHeader header("text/html");
  header.add(tarn::Cookie("a", "1")).add(made<tarn::CookieList>());
  return header;
}

template <>
tarn::ResponseHeader made() {
  tarn::ResponseHeader header("first", -7, "second");
  header.add("A: 1").add("B: 2").add(tarn::Cookie("a", "1")).add(made<tarn::CookieList>());
  return header;
}

template <>
tarn::MultiPartHeader made() {
  return tarn::MultiPartHeader("form-data", "field", "file", "text/plain");
}

template <>
tarn::Attribute made() {
  return tarn::Attribute("onclick", tarn::Raw("go()"));
}

template <>
tarn::AttributeList made() {
  tarn::AttributeList list;
  list.add(tarn::Attribute("id", "x")).add(tarn::Attribute("required"));
  return list;
}

template <>
tarn::ElementList made() {
  tarn::ElementList list;
  list.add(tarn::Element("li", "one")).add("text").add(tarn::Raw("<hr>"));
  return list;
}

template <>
tarn::Element made() {
  return tarn::Element("p", tarn::Attribute("class", "x"), "Hello, ", tarn::Raw("<b>"),
                       made<tarn::AttributeList>(), made<tarn::ElementList>());
}

// The contents of an object. The lines of a header are compared as texts; the dump has only their
// addresses.

template <class Type>
std::string textOf(Type &object) {
  return pictureOf(*object.handle());
}

std::string textOf(tarn::ResponseHeader &header) {
  const tarn::ResponseHeaderView view = header.view();
  std::string text = std::string(*view.first()) + std::to_string(view.number());
  text += *view.second();
  for (const std::string_view line : view.lines()) text.append("|").append(line);
  TarnHandle cookies =
      CGIgs_getStruct(header.handle(), TARN_RESPONSE_HEADER_COOKIES, TARN_RESPONSE_HEADER_MAGIC);
  return text + pictureOf(cookies);
}

template <class Type>
class CppObject : public testing::Test {};

using Types = testing::Types<tarn::String, tarn::Cookie, tarn::CookieList, tarn::PlainHeader,
                             tarn::ResponseHeader, tarn::MultiPartHeader, tarn::Attribute,
                             tarn::AttributeList, tarn::Element, tarn::ElementList>;

TYPED_TEST_SUITE(CppObject, Types, );

TYPED_TEST(CppObject, IsAsSmallAsAHandle) {
  // A String also knows its length.
  const size_t more = std::is_same_v<TypeParam, tarn::String> ? 2 * sizeof(size_t) : 0;
  EXPECT_EQ(sizeof(TarnHandle) + more, sizeof(TypeParam));
}

TYPED_TEST(CppObject, IsMovedAndNotCopied) {
  static_assert(!std::is_copy_constructible_v<TypeParam>);
  static_assert(!std::is_copy_assignable_v<TypeParam>);
  static_assert(std::is_nothrow_move_constructible_v<TypeParam>);
  static_assert(std::is_nothrow_move_assignable_v<TypeParam>);
  TypeParam first = made<TypeParam>();
  const TarnHandle object = *first.handle();
  EXPECT_TRUE(first);
  TypeParam second(std::move(first));
  EXPECT_FALSE(first);
  EXPECT_EQ(object, *second.handle());
  TypeParam third = made<TypeParam>();
  third = std::move(second);
  EXPECT_FALSE(second);
  EXPECT_EQ(object, *third.handle());
  TypeParam &itself = third;
  third = std::move(itself);
  EXPECT_EQ(object, *third.handle());
}

TYPED_TEST(CppObject, IsClonedWhole) {
  TypeParam original = made<TypeParam>();
  const std::string picture = textOf(original);
  TypeParam copy = original.clone();
  EXPECT_NE(*original.handle(), *copy.handle());
  EXPECT_EQ(picture, textOf(copy));
  original = made<TypeParam>();
  EXPECT_EQ(picture, textOf(copy)) << "nothing is shared with the original";
  const TypeParam gone = std::move(copy);
  EXPECT_FALSE(copy.clone()) << "nothing is cloned of nothing";
  EXPECT_TRUE(gone.clone());
}

TYPED_TEST(CppObject, IsGivenAwayAndTakenOver) {
  TypeParam original = made<TypeParam>();
  const std::string picture = textOf(original);
  TarnHandle given = original.release();
  EXPECT_FALSE(original);
  EXPECT_NE(0U, given);
  TypeParam taken(tarn::adopt, given);
  EXPECT_EQ(0U, given);
  EXPECT_EQ(picture, textOf(taken));
}

TYPED_TEST(CppObject, DoesNotAdoptAnObjectOfAnotherType) {
  TarnHandle other = 0;
  ASSERT_EQ(TARN_OK, CGIgs_new(&other, 4242));
  const TypeParam taken(tarn::adopt, other);
  EXPECT_FALSE(taken);
  EXPECT_NE(0U, other);
  CGIgs_delete(&other, 4242);
  const TypeParam nothing(tarn::adopt, other);
  EXPECT_FALSE(nothing);
}

// If any allocation fails, the object is empty. A clone may silently lack something.
TYPED_TEST(CppObject, IsMadeWholeOrNotAtAll) {
  const std::string whole = [] {
    TypeParam object = made<TypeParam>();
    return textOf(object);
  }();
  forEachFailingAllocation([&whole](FailingMemory &memory) {
    TypeParam object = memory.call([] { return made<TypeParam>(); });
    if (object) {
      EXPECT_EQ(whole, textOf(object));
    } else {
      EXPECT_TRUE(memory.failed());
    }
    const TypeParam copy = memory.call([&object] { return object.clone(); });
    EXPECT_TRUE(copy || !object || memory.failed());
  });
}

// What tarn.h allocated before the failure is freed.
TEST(CppElement, ReleasesWhatAFailedCloneAllocated) {
  tarn::Element element = made<tarn::Element>();
  TarnHandle *const original = element.handle();
  const std::string whole = textOf(element);
  size_t halfway = 0;
  for (size_t spare = 0;; spare += 8) {
    ASSERT_LT(spare, 100000U) << "with that much the clone is whole";
    TarnHandle copy = 0;
    TarnStatus status = TARN_OK;
    tarn_test::withoutMemory([&] { status = HTMLElement_clone(original, &copy); }, spare);
    const bool succeeds = status == TARN_OK && copy != 0;
    if (status != TARN_OK && copy != 0) ++halfway;
    HTMLElement_delete(&copy);
    std::optional<tarn::Element> clone;
    tarn_test::withoutMemory([&] { clone.emplace(element.clone()); }, spare);
    ASSERT_EQ(succeeds, static_cast<bool>(*clone)) << spare;
    if (succeeds && textOf(*clone) == whole) break;
  }
  EXPECT_GT(halfway, 0U) << "no clone failed halfway";
}

TEST(CppCookie, HasWhatWasSet) {
  const auto cookie = made<tarn::Cookie>();
  const tarn::CookieView view = cookie.view();
  EXPECT_TRUE(view);
  EXPECT_EQ("name", view.name());
  EXPECT_EQ("value", view.value());
  EXPECT_EQ("comment", view.comment());
  EXPECT_EQ("domain", view.domain());
  EXPECT_EQ("/", view.path());
  EXPECT_EQ(60, view.max_age());
  EXPECT_TRUE(view.is_secure());
}

TEST(CppCookie, DistinguishesUnsetFromEmptyTexts) {
  tarn::Cookie cookie("name", "");
  cookie.domain("").secure().secure(false);
  EXPECT_EQ("", cookie.view().value());
  EXPECT_EQ("", cookie.view().domain());
  EXPECT_EQ(std::nullopt, cookie.view().comment());
  EXPECT_EQ(std::nullopt, cookie.view().path());
  EXPECT_EQ(0, cookie.view().max_age());
  EXPECT_FALSE(cookie.view().is_secure());
}

TEST(CppCookie, EndsATextAtTheEndOfTheViewOrAtAZeroByte) {
  const tarn::Cookie cookie(std::string_view("name, and more", 4), std::string_view("a\0b", 3));
  EXPECT_EQ("name", cookie.view().name());
  EXPECT_EQ("a", cookie.view().value());
  const tarn::Cookie empty(std::string_view{}, std::string_view{});
  EXPECT_EQ("", empty.view().name());
}

TEST(CppCookie, IsEmptyAfterAMove) {
  tarn::Cookie cookie("name", "value");
  const tarn::Cookie other = std::move(cookie);
  cookie.path("/").max_age(1).secure();
  EXPECT_FALSE(cookie);
  EXPECT_FALSE(cookie.view());
  EXPECT_EQ(std::nullopt, cookie.view().name());
  EXPECT_EQ("name", other.view().name());
}

TEST(CppCookieList, KeepsTheOrderOfItsCookies) {
  tarn::CookieList list;
  EXPECT_TRUE(list);
  EXPECT_TRUE(list.empty());
  tarn::Cookie cookie("b", "2");
  const char *name = cookie.view().name()->data();
  list.add(tarn::Cookie("a", "1")).add(std::move(cookie));
  EXPECT_FALSE(cookie);
  ASSERT_EQ(2U, list.size());
  EXPECT_EQ("a", list[0].name());
  EXPECT_EQ(name, list[1].name()->data()) << "the cookie itself and no copy";
  EXPECT_FALSE(list[2]);
  std::string seen;
  for (const tarn::CookieView each : list) seen += *each.value();
  EXPECT_EQ("12", seen);
  EXPECT_EQ(2U, list.view().size());
}

TEST(CppCookieList, IsEmptyAfterAddingAnEmptyCookie) {
  tarn::CookieList list;
  tarn::Cookie cookie("a", "1");
  list.add(std::move(cookie)).add(std::move(cookie));
  EXPECT_FALSE(list);
  EXPECT_EQ(0U, list.size());
}

TEST(CppCookieList, IsReadByFunctionsOfTarnH) {
  auto list = made<tarn::CookieList>();
  EXPECT_EQ(2, HTTPCookieList_getCount(list.handle()));
  EXPECT_EQ(TARN_OK, HTTPCookieList_clear(list.handle()));
  EXPECT_TRUE(list.empty());
  EXPECT_TRUE(list);
}

TEST(CppPlainHeader, HasAContentTypeAndCookies) {
  const tarn::PlainHeader plain;
  EXPECT_EQ("text/plain", plain.view().content_type());
  EXPECT_TRUE(plain.view().cookies().empty());
  const auto header = made<tarn::PlainHeader>();
  EXPECT_EQ("text/html", header.view().content_type());
  ASSERT_EQ(3U, header.view().cookies().size());
  EXPECT_EQ("1", header.view().cookies()[0].value());
  EXPECT_EQ("2", header.view().cookies()[2].value());
}

TEST(CppResponseHeader, HasTextsLinesAndCookies) {
  const auto header = made<tarn::ResponseHeader>();
  const tarn::ResponseHeaderView view = header.view();
  EXPECT_EQ("first", view.first());
  EXPECT_EQ(-7, view.number());
  EXPECT_EQ("second", view.second());
  EXPECT_EQ((std::vector<std::string>{"A: 1", "B: 2"}),
            std::vector<std::string>(view.lines().begin(), view.lines().end()));
  ASSERT_EQ(3U, view.cookies().size()) << "the first one is not lost";
  EXPECT_EQ("a", view.cookies()[0].name());
}

TEST(CppResponseHeader, MayHaveNeitherLinesNorCookies) {
  const tarn::ResponseHeader header("", 0, "");
  EXPECT_TRUE(header.view().lines().empty());
  EXPECT_TRUE(header.view().cookies().empty());
  EXPECT_EQ("", header.view().lines()[0]);
  EXPECT_EQ("", header.view().first());
}

TEST(CppMultiPartHeader, HasFourTextsOfWhichThreeAreOptional) {
  const auto header = made<tarn::MultiPartHeader>();
  EXPECT_EQ("form-data", header.view().disposition());
  EXPECT_EQ("field", header.view().name());
  EXPECT_EQ("file", header.view().file_name());
  EXPECT_EQ("text/plain", header.view().content_type());
  const tarn::MultiPartHeader less("form-data", "");
  EXPECT_EQ("", less.view().name());
  EXPECT_EQ(std::nullopt, less.view().file_name());
  EXPECT_EQ(std::nullopt, less.view().content_type());
}

}  // namespace
