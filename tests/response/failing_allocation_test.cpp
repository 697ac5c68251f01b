// Cookies, headers, attributes and elements, with each allocation failing in turn.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/failing_memory.h"
#include "support/object.h"

namespace tarn_test {
namespace {

// Both statuses report a failed allocation: TARN_WRONG_TYPE that of an inner list.
bool reportsFailure(TarnStatus status) {
  return status == TARN_OUT_OF_MEMORY || status == TARN_WRONG_TYPE;
}

struct Cookie : Object {
  explicit Cookie(const char *name) : Object(TARN_COOKIE_MAGIC) {
    EXPECT_EQ(TARN_OK, HTTPCookie_init(*this, name, "value", "comment", "domain", 60, "/", 1));
  }
};

struct Cookies : Object {
  Cookies() : Object(TARN_COOKIE_LIST_MAGIC, HTTPCookieList_delete) {}
  explicit Cookies(const char *name) : Cookies() {
    EXPECT_EQ(TARN_OK, HTTPCookieList_addCookie(*this, Cookie(name)));
  }
};

struct Attribute : Object {
  explicit Attribute(const char *name) : Object(TARN_ATTRIBUTE_MAGIC) {
    EXPECT_EQ(TARN_OK, HTMLAttribute_init(*this, name, "value"));
  }
};

struct Attributes : Object {
  Attributes() : Object(TARN_ATTRIBUTE_LIST_MAGIC, HTMLAttributeList_delete) {}
  explicit Attributes(const char *name) : Attributes() {
    EXPECT_EQ(TARN_OK, HTMLAttributeList_addAttribute(*this, Attribute(name)));
  }
};

struct Element : Object {
  explicit Element(const char *name) : Object(TARN_ELEMENT_MAGIC, HTMLElement_delete) {
    EXPECT_EQ(TARN_OK, CGIgs_setString(*this, TARN_ELEMENT_NAME, name, TARN_ELEMENT_MAGIC));
  }
};

// An element with an attribute and a child that has one too.
struct Tree : Element {
  explicit Tree(const char *name) : Element(name) {
    Element child("child");
    EXPECT_EQ(TARN_OK, HTMLElement_addAttribute(child, Attribute("inner")));
    EXPECT_EQ(TARN_OK, HTMLElement_addAttribute(*this, Attribute("outer")));
    EXPECT_EQ(TARN_OK, HTMLElement_addElement(*this, child));
  }
};

struct Elements : Object {
  Elements() : Object(TARN_ELEMENT_LIST_MAGIC, HTMLElementList_delete) {}
  explicit Elements(const char *name) : Elements() {
    EXPECT_EQ(TARN_OK, HTMLElementList_addElement(*this, Tree(name)));
  }
};

// ---- Cookies ------------------------------------------------------------------------------------

TEST(CookieAtEachFailure, InitReturnsOkAndKeepsTheTextsItCouldCopy) {
  forEachFailingAllocation([](FailingMemory &memory) {
    const Cookie whole("name");
    Cookie cookie("old");
    EXPECT_EQ(TARN_OK, memory.call([&] {
      return HTTPCookie_init(cookie, "name", "value", "comment", "domain", 60, "/", 1);
    }));
    EXPECT_EQ(memory.failed(), cookie.picture() != whole.picture());
    EXPECT_EQ(60, HTTPCookie_getMaxAge(cookie));
  });
}

TEST(CookieAtEachFailure, ToStringReturnsTheSharedEmptyTextOrKeepsNoCopy) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Cookie cookie("name");
    const char *text = memory.call([&] { return HTTPCookie_toString(cookie); });
    const bool made = text != CGIgs_empty_string;
    EXPECT_EQ(made, std::string(text).find("name=\"name\"") != std::string::npos);
    const char *kept = CGIgs_getString(cookie, TARN_COOKIE_RENDERED, TARN_COOKIE_MAGIC);
    EXPECT_STREQ(memory.failed() ? nullptr : text, kept);
    EXPECT_STREQ("name", CGIgs_getString(cookie, TARN_COOKIE_NAME, TARN_COOKIE_MAGIC));
    if (made) std::free(const_cast<char *>(text));
  });
}

// ---- Lists --------------------------------------------------------------------------------------

// Expects that the list has one more element, or that the status reports why not.
void expectAdded(FailingMemory &memory, TarnStatus status, int countBefore, int count) {
  EXPECT_TRUE(status == TARN_OK || (memory.failed() && reportsFailure(status)));
  EXPECT_EQ(status == TARN_OK ? countBefore + 1 : countBefore, count);
}

// Expects a copy that may lack only texts, or an unchanged destination, which is 0 if the node of
// an empty list could not be allocated.
void expectCopied(FailingMemory &memory, TarnStatus status, const Object &list,
                  const Object &copy) {
  EXPECT_TRUE(status == TARN_OK || (memory.failed() && reportsFailure(status)));
  EXPECT_TRUE(status == TARN_OK || copy.value() == 0);
  EXPECT_TRUE(memory.failed() || list.picture() == copy.picture());
}

TEST(CookieListAtEachFailure, AddAndCloneReportItAndKeepTheRest) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Cookie cookie("name");
    Cookies list;
    const std::string before = cookie.picture();
    for (int i = 0; i < 2; ++i) {
      SCOPED_TRACE(i);
      const int held = HTTPCookieList_getCount(list);
      const TarnStatus added = memory.call([&] { return HTTPCookieList_addCookie(list, cookie); });
      expectAdded(memory, added, held, HTTPCookieList_getCount(list));
    }
    EXPECT_EQ(before, cookie.picture());
    HTTPCookieList_addCookie(list, cookie);
    const std::string listBefore = list.picture();
    Object copy(HTTPCookieList_delete);
    const TarnStatus cloned = memory.call([&] { return HTTPCookieList_clone(list, copy); });
    expectCopied(memory, cloned, list, copy);
    EXPECT_EQ(listBefore, list.picture());
  });
}

TEST(AttributeListAtEachFailure, AddAndCloneReportItAndKeepTheRest) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Attribute attribute("name");
    Attributes list;
    const std::string before = attribute.picture();
    const TarnStatus added =
        memory.call([&] { return HTMLAttributeList_addAttribute(list, attribute); });
    expectAdded(memory, added, 0, HTMLAttributeList_getCount(list));
    EXPECT_EQ(before, attribute.picture());
    if (added != TARN_OK) HTMLAttributeList_addAttribute(list, attribute);
    const std::string listBefore = list.picture();
    Object copy(HTMLAttributeList_delete);
    const TarnStatus cloned = memory.call([&] { return HTMLAttributeList_clone(list, copy); });
    expectCopied(memory, cloned, list, copy);
    EXPECT_EQ(listBefore, list.picture());
  });
}

TEST(ElementListAtEachFailure, AddAndCloneReportItAndKeepTheRest) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Tree tree("name");
    Elements list;
    const std::string before = tree.picture();
    const TarnStatus added = memory.call([&] { return HTMLElementList_addElement(list, tree); });
    expectAdded(memory, added, 0, HTMLElementList_getCount(list));
    EXPECT_EQ(before, tree.picture());
    if (added != TARN_OK) HTMLElementList_addElement(list, tree);
    const std::string listBefore = list.picture();
    Object copy(HTMLElementList_delete);
    const TarnStatus cloned = memory.call([&] { return HTMLElementList_clone(list, copy); });
    expectCopied(memory, cloned, list, copy);
    EXPECT_EQ(listBefore, list.picture());
  });
}

// ---- Headers ------------------------------------------------------------------------------------

TEST(HeaderAtEachFailure, NewPlainHeaderReturnsWrongTypeWhenTheNodeIsMissing) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Object header(HTTPHeader_delete);
    const TarnStatus status = memory.call([&] { return HTTPPlainHeader_new(header); });
    EXPECT_EQ(header.value() ? TARN_OK : TARN_WRONG_TYPE, status);
    EXPECT_STREQ(memory.failed() ? nullptr : "text/plain",
                 CGIgs_getString(header, TARN_HEADER_CONTENT_TYPE, TARN_HEADER_MAGIC));
  });
}

// Expects the new cookies in the header, or none if they could not be copied.
void expectCookies(FailingMemory &memory, TarnHandle cookies, const Cookies &source) {
  EXPECT_TRUE(memory.failed() || pictureOf(cookies) == source.picture());
  EXPECT_GE(1, HTTPCookieList_getCount(&cookies));
}

TEST(HeaderAtEachFailure, FailedCopyOfTheCookiesReturnsBadArgumentAndLeavesNone) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Cookies cookies("new");
    const std::string before = cookies.picture();
    Object header(TARN_HEADER_MAGIC, HTTPHeader_delete);
    HTTPHeader_setCookieList(header, Cookies("old"));
    const TarnStatus status =
        memory.call([&] { return HTTPHeader_init(header, "text/html", cookies); });
    TarnHandle stored = CGIgs_getStruct(header, TARN_HEADER_COOKIES, TARN_HEADER_MAGIC);
    EXPECT_EQ(stored ? TARN_OK : TARN_BAD_ARGUMENT, status);
    expectCookies(memory, stored, cookies);
    const char *type = CGIgs_getString(header, TARN_HEADER_CONTENT_TYPE, TARN_HEADER_MAGIC);
    EXPECT_TRUE(type ? std::string("text/html") == type : memory.failed());
    const TarnStatus set = memory.call([&] { return HTTPHeader_setCookieList(header, cookies); });
    stored = CGIgs_getStruct(header, TARN_HEADER_COOKIES, TARN_HEADER_MAGIC);
    EXPECT_EQ(stored ? TARN_OK : TARN_BAD_ARGUMENT, set);
    expectCookies(memory, stored, cookies);
    EXPECT_EQ(before, cookies.picture());
  });
}

struct ResponseHeader : Object {
  ResponseHeader() : Object(TARN_RESPONSE_HEADER_MAGIC, HTTPResponseHeader_delete) {}
  TarnHandle cookies() {
    return CGIgs_getStruct(*this, TARN_RESPONSE_HEADER_COOKIES, TARN_RESPONSE_HEADER_MAGIC);
  }
  uint32_t lines() {
    TarnHandle list = HTTPResponseHeader_getHeaderList(*this);
    return TARNGenericList_getCount(&list);
  }
};

TEST(ResponseHeaderAtEachFailure, InitReturnsOkAndKeepsTheTextsItCouldCopy) {
  forEachFailingAllocation([](FailingMemory &memory) {
    ResponseHeader header;
    HTTPResponseHeader_addHeader(header, "Old: line");
    EXPECT_EQ(TARN_OK,
              memory.call([&] { return HTTPResponseHeader_init(header, "one", 7, "two"); }));
    const char *first =
        CGIgs_getString(header, TARN_RESPONSE_HEADER_FIRST, TARN_RESPONSE_HEADER_MAGIC);
    const char *second =
        CGIgs_getString(header, TARN_RESPONSE_HEADER_SECOND, TARN_RESPONSE_HEADER_MAGIC);
    EXPECT_TRUE(first ? std::string("one") == first : memory.failed());
    EXPECT_TRUE(second ? std::string("two") == second : memory.failed());
    EXPECT_EQ(memory.failed(), !first || !second);
    EXPECT_EQ(7U, CGIgs_getInt(header, TARN_RESPONSE_HEADER_NUMBER, TARN_RESPONSE_HEADER_MAGIC));
    EXPECT_EQ(0U, header.lines());
  });
}

TEST(ResponseHeaderAtEachFailure, AddHeaderReportsAFailedListGrowthButNotAFailedLineCopy) {
  forEachFailingAllocation([](FailingMemory &memory) {
    ResponseHeader header;
    for (uint32_t i = 0; i < 11; ++i) {
      SCOPED_TRACE(i);
      const uint32_t before = header.lines();
      const TarnStatus status =
          memory.call([&] { return HTTPResponseHeader_addHeader(header, "Name: value"); });
      EXPECT_TRUE(status == TARN_OK || (memory.failed() && reportsFailure(status)));
      ASSERT_EQ(status == TARN_OK ? before + 1 : before, header.lines());
      if (status != TARN_OK) continue;
      TarnHandle list = HTTPResponseHeader_getHeaderList(header);
      const auto *line = reinterpret_cast<const char *>(TARNGenericList_getByIndex(&list, before));
      EXPECT_TRUE(line ? std::string("Name: value") == line : memory.failed());
    }
  });
}

TEST(ResponseHeaderAtEachFailure, SetCookieListReportsItAndLeavesNone) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Cookies cookies("new");
    ResponseHeader header;
    HTTPResponseHeader_setCookieList(header, Cookies("old"));
    const TarnStatus status =
        memory.call([&] { return HTTPResponseHeader_setCookieList(header, cookies); });
    EXPECT_TRUE(status == TARN_OK || (memory.failed() && reportsFailure(status)));
    EXPECT_EQ(status == TARN_OK, header.cookies() != 0);
    expectCookies(memory, header.cookies(), cookies);
  });
}

TEST(ResponseHeaderAtEachFailure, AddCookieReportsItAndKeepsTheCookies) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Cookie cookie("name");
    ResponseHeader header;
    const TarnStatus first =
        memory.call([&] { return HTTPResponseHeader_addCookie(header, cookie); });
    EXPECT_EQ(memory.failed() ? TARN_WRONG_TYPE : TARN_OK, first);
    EXPECT_EQ(memory.failed(), header.cookies() == 0);
    HTTPResponseHeader_setCookieList(header, Cookies("old"));
    const TarnStatus second =
        memory.call([&] { return HTTPResponseHeader_addCookie(header, cookie); });
    TarnHandle cookies = header.cookies();
    expectAdded(memory, second, 1, HTTPCookieList_getCount(&cookies));
  });
}

TEST(PartHeaderAtEachFailure, InitReturnsOkAndKeepsTheTextsItCouldCopy) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Object header(TARN_MULTIPART_HEADER_MAGIC);
    EXPECT_EQ(TARN_OK,
              memory.call([&] { return MultiPartHeader_init(header, "d", "n", "f", "t"); }));
    std::string texts;
    for (uint32_t i = 0; i < 4; ++i) {
      const char *text = CGIgs_getString(header, i, TARN_MULTIPART_HEADER_MAGIC);
      texts += text ? text : "-";
    }
    EXPECT_EQ(memory.failed(), texts != "dnft");
    EXPECT_EQ(memory.failed(), texts.find('-') != std::string::npos);
  });
}

// ---- Attributes and elements --------------------------------------------------------------------

TEST(AttributeAtEachFailure, InitReturnsOkAndKeepsTheTextsItCouldCopy) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Attribute attribute("old");
    EXPECT_EQ(TARN_OK, memory.call([&] { return HTMLAttribute_init(attribute, "new", "value"); }));
    EXPECT_EQ(memory.failed(), attribute.picture() != Attribute("new").picture());
  });
}

TEST(ElementAtEachFailure, CloneReportsItAndLeavesWhatCouldBeCopiedInTheDestination) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Tree tree("name");
    const std::string before = tree.picture();
    Object copy(HTMLElement_delete);
    const TarnStatus status = memory.call([&] { return HTMLElement_clone(tree, copy); });
    EXPECT_TRUE(status == TARN_OK || (memory.failed() && copy.value() && reportsFailure(status)));
    EXPECT_EQ(before, tree.picture());
    EXPECT_TRUE(memory.failed() || copy.picture() == before);
  });
}

TEST(ElementAtEachFailure, SettingListsReportsItAndLeavesNone) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Tree tree("name");
    Attributes attributes("new");
    Elements elements("new");
    const std::string before = attributes.picture() + elements.picture();
    const TarnStatus first =
        memory.call([&] { return HTMLElement_setAttributes(tree, attributes); });
    EXPECT_TRUE(first == TARN_OK || (memory.failed() && reportsFailure(first)));
    EXPECT_EQ(first == TARN_OK,
              CGIgs_getStruct(tree, TARN_ELEMENT_ATTRIBUTES, TARN_ELEMENT_MAGIC) != 0);
    const TarnStatus second = memory.call([&] { return HTMLElement_setEmbedded(tree, elements); });
    EXPECT_TRUE(second == TARN_OK || (memory.failed() && reportsFailure(second)));
    EXPECT_EQ(second == TARN_OK,
              CGIgs_getStruct(tree, TARN_ELEMENT_EMBEDDED, TARN_ELEMENT_MAGIC) != 0);
    EXPECT_EQ(before, attributes.picture() + elements.picture());
  });
}

TEST(ElementAtEachFailure, AddingReportsItAndAddsNothing) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Element parent("name");
    Attribute attribute("new");
    Tree child("new");
    const std::string before = attribute.picture() + child.picture();
    for (int i = 0; i < 2; ++i) {
      SCOPED_TRACE(i);
      TarnHandle list = CGIgs_getStruct(parent, TARN_ELEMENT_ATTRIBUTES, TARN_ELEMENT_MAGIC);
      const int held = HTMLAttributeList_getCount(&list);
      const TarnStatus status =
          memory.call([&] { return HTMLElement_addAttribute(parent, attribute); });
      list = CGIgs_getStruct(parent, TARN_ELEMENT_ATTRIBUTES, TARN_ELEMENT_MAGIC);
      EXPECT_TRUE(status == (list ? TARN_OK : TARN_BAD_ARGUMENT) || reportsFailure(status));
      EXPECT_TRUE(memory.failed() || status == TARN_OK);
      EXPECT_EQ(status == TARN_OK ? held + 1 : held, HTMLAttributeList_getCount(&list));
    }
    for (int i = 0; i < 2; ++i) {
      SCOPED_TRACE(i);
      TarnHandle list = CGIgs_getStruct(parent, TARN_ELEMENT_EMBEDDED, TARN_ELEMENT_MAGIC);
      const int held = HTMLElementList_getCount(&list);
      const TarnStatus status = memory.call([&] { return HTMLElement_addElement(parent, child); });
      list = CGIgs_getStruct(parent, TARN_ELEMENT_EMBEDDED, TARN_ELEMENT_MAGIC);
      expectAdded(memory, status, held, HTMLElementList_getCount(&list));
    }
    EXPECT_EQ(before, attribute.picture() + child.picture());
  });
}

}  // namespace
}  // namespace tarn_test
