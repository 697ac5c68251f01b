// Writing trees of elements as HTML.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <string>
#include <string_view>
#include <utility>

#include "support/failing_memory.h"
#include "support/script.h"
#include "tarn.hpp"

namespace {

using tarn::Attribute;
using tarn::Element;
using tarn::Raw;

std::string written(const Element &element) {
  const tarn::Text text = tarn::html(element);
  EXPECT_TRUE(text) << text.problem();
  return std::string(text.view());
}

template <class... Pieces>
std::string paragraph(Pieces &&...pieces) {
  return written(Element("p", std::forward<Pieces>(pieces)...));
}

// Why an element is refused, or its HTML if it is not.
std::string problemOf(const Element &element) {
  const tarn::Text text = tarn::html(element);
  return text ? "written: " + std::string(text.view()) : text.problem();
}

std::string problemOf(Attribute attribute) { return problemOf(Element("p", std::move(attribute))); }

// ---- Texts and values ---------------------------------------------------------------------------

TEST(Html, KeepsTheOrderOfTextsAttributesAndElements) {
  EXPECT_EQ("<p id=\"1\" class=\"x\">Hello, <b>Ann</b>!<i></i></p>",
            paragraph("Hello, ", Attribute("id", "1"), Element("b", "Ann"), Attribute("class", "x"),
                      "!", Element("i")));
}

TEST(Html, EscapesTexts) {
  EXPECT_EQ("<p>&lt;script&gt;alert(&#39;1&#39;)&lt;/script&gt; &amp;amp;</p>",
            paragraph("<script>alert('1')</script> &amp;"));
}

TEST(Html, EscapesAttributeValues) {
  EXPECT_EQ("<p title=\"&quot; onclick=&#39;a&#39;&gt;&lt;b&gt;&amp;&#13;\n\"></p>",
            paragraph(Attribute("title", "\" onclick='a'><b>&\r\n")));
}

TEST(Html, ReplacesControlCharactersAndInvalidUtf8) {
  EXPECT_EQ("<p title=\"\uFFFD\">a\uFFFDb\uFFFD</p>", paragraph(Attribute("title", "\xFF"),
                                                                "a\x1B"
                                                                "b\xC3"));
}

TEST(Html, WritesRawUnchanged) {
  EXPECT_EQ("<p>1 < 2<br>&amp;</p>", paragraph("1 ", Raw("< 2<br>"), "&"));
  EXPECT_EQ("<p></p>", paragraph(Raw("")));
}

TEST(Html, WritesAValueOnlyIfThereIsOne) {
  EXPECT_EQ("<p hidden title=\"\"></p>", paragraph(Attribute("hidden"), Attribute("title", "")));
}

TEST(Html, KeepsRepeatedAttributes) {
  EXPECT_EQ("<p id=\"a\" id=\"b\"></p>", paragraph(Attribute("id", "a"), Attribute("id", "b")));
}

TEST(Html, WritesTheTagsOfAnEmptyElement) { EXPECT_EQ("<p></p>", paragraph()); }

TEST(Html, BeginsAPageWithTheDoctype) {
  EXPECT_EQ("<!DOCTYPE html>\n<html><body>x</body></html>",
            written(Element("html", Element("body", "x"))));
  EXPECT_EQ("<!DOCTYPE html>\n<HTML></HTML>", written(Element("HTML")));
  EXPECT_EQ("<p><html></html></p>", paragraph(Element("html")));
}

// ---- Names --------------------------------------------------------------------------------------

TEST(Html, KeepsElementNames) {
  for (const std::string name : {"p", "h1", "DIV", "my-list", "linearGradient", "x2-"}) {
    EXPECT_EQ("<" + name + "></" + name + ">", written(Element(name)));
  }
}

TEST(Html, RefusesInvalidElementNames) {
  for (const std::string_view name :
       {"",    "1",   "-x",     " p",      "p ",   "p>",        "p/",       "p onclick=alert(1)",
        "p\n", "a<b", "p\"",    "p'",      "!--",  "?xml",      "/p",       "svg:a",
        "a.b", "a_b", "\u00E9", "p\u00E9", "\xFF", "plaintext", "PlainText"}) {
    EXPECT_EQ("invalid element name", problemOf(Element(name))) << name;
    EXPECT_EQ("invalid element name", problemOf(Element("p", Element(name)))) << name;
  }
}

TEST(Html, KeepsAttributeNames) {
  for (const std::string name :
       {"id", "data-x", "aria-label", "xml:lang", "Title", "1", "-", "x-", "_x"}) {
    EXPECT_EQ("<p " + name + "=\"v\"></p>", paragraph(Attribute(name, "v")));
  }
}

TEST(Html, RefusesInvalidAttributeNames) {
  for (const std::string_view name :
       {"",   " ", "a b", "a\tb", "a\nb", "a\fb", "a=b",   "=",     "a>",     ">",
        "a/", "/", "a<b", "a\"",  "'",    "a`",   "a\x7F", "a\x01", "\u00E9", "a\xFF"}) {
    EXPECT_EQ("invalid attribute name", problemOf(Attribute(name))) << name;
    EXPECT_EQ("invalid attribute name", problemOf(Attribute(name, "v"))) << name;
    EXPECT_EQ("invalid attribute name", problemOf(Attribute(name, Raw("v")))) << name;
  }
}

// ---- Elements that are always empty -------------------------------------------------------------

const char *const kVoid[] = {"area",  "base",   "basefont", "bgsound", "br",     "col",  "embed",
                             "frame", "hr",     "img",      "input",   "keygen", "link", "meta",
                             "param", "source", "track",    "wbr",     "BR",     "Img"};

TEST(Html, WritesNoEndTagForAVoidElement) {
  for (const std::string name : kVoid) {
    EXPECT_EQ("<p><" + name + " id=\"1\"></p>", paragraph(Element(name, Attribute("id", "1"))));
  }
}

TEST(Html, RefusesContentInAVoidElement) {
  const std::string kProblem = "void element has content";
  for (const char *name : kVoid) {
    EXPECT_EQ(kProblem, problemOf(Element(name, "text")));
    EXPECT_EQ(kProblem, problemOf(Element(name, "")));
    EXPECT_EQ(kProblem, problemOf(Element(name, Raw("x"))));
    EXPECT_EQ(kProblem, problemOf(Element(name, Element("p"))));
    EXPECT_EQ(kProblem, problemOf(Element("div", Element("p", Element(name, "text")))));
  }
}

// ---- Elements that hold text or code ------------------------------------------------------------

const char *const kForCode[] = {"script",   "style", "iframe", "noembed",
                                "noframes", "xmp",   "SCRIPT", "Style"};

TEST(Html, WritesRawInElementsForCode) {
  for (const std::string name : kForCode) {
    EXPECT_EQ("<" + name + ">if (a < b && c) '</b>'</" + name + ">",
              written(Element(name, Raw("if (a < b "), Raw("&& c) '</b>'"))));
    EXPECT_EQ("<" + name + "></" + name + ">", written(Element(name)));
    EXPECT_EQ("<" + name + "></" + name + ">", written(Element(name, "", Raw(""))));
  }
}

TEST(Html, RefusesTextInElementsForCode) {
  for (const char *name : kForCode) {
    EXPECT_EQ("script or style content must be Raw", problemOf(Element(name, "x")));
    EXPECT_EQ("script or style content must be Raw", problemOf(Element(name, Raw("x"), "x")));
  }
}

TEST(Html, RefusesElementsWhereOnlyTextIsAllowed) {
  for (const char *name :
       {"script", "STYLE", "iframe", "noembed", "noframes", "xmp", "title", "TextArea"}) {
    EXPECT_EQ("element inside an element that may only contain text",
              problemOf(Element(name, Element("b"))));
    EXPECT_EQ("element inside an element that may only contain text",
              problemOf(Element("p", Element(name, Raw("x"), Element("br")))));
  }
}

TEST(Html, RefusesRawThatEndsItsElementEarly) {
  for (const char *end : {"</script", "</script>", "x</ScRiPt x", "</scripty", "</</script>",
                          "<!--", "a <!-- <script>"}) {
    EXPECT_EQ("content would end its element early", problemOf(Element("script", Raw(end)))) << end;
    EXPECT_EQ("content would end its element early", problemOf(Element("SCRIPT", Raw(end)))) << end;
  }
  EXPECT_EQ("content would end its element early", problemOf(Element("style", Raw("a</Style>"))));
  EXPECT_EQ("content would end its element early", problemOf(Element("iframe", Raw("</iframe "))));
  EXPECT_EQ("content would end its element early", problemOf(Element("title", Raw("</TITLE>"))));
  EXPECT_EQ("content would end its element early",
            problemOf(Element("textarea", Raw("</textarea>"))));
}

TEST(Html, RefusesAnEarlyEndInTwoPieces) {
  EXPECT_EQ("content would end its element early",
            problemOf(Element("script", Raw("</scr"), Raw("ipt>"))));
  EXPECT_EQ("content would end its element early",
            problemOf(Element("script", Raw("<"), Raw("!--"))));
}

TEST(Html, AllowsRawThatOnlyResemblesAnEndTag) {
  for (const std::string text :
       {"</scrip", "<", "</", "<!-", "< /script>", "<script>", "</style>"}) {
    EXPECT_EQ("<script>" + text + "</script>", written(Element("script", Raw(text))));
  }
  EXPECT_EQ("<style><!-- --></style>", written(Element("style", Raw("<!-- -->"))));
}

// The end tag of the first is not the early end of the second.
TEST(Html, WritesSeveralElementsForCode) {
  EXPECT_EQ("<p><script>a</script><script>b</script><style>c</style></p>",
            paragraph(Element("script", Raw("a")), Element("script", Raw("b")),
                      Element("style", Raw("c"))));
}

TEST(Html, EscapesTextInTitleAndTextarea) {
  EXPECT_EQ("<title>&lt;/title&gt;&lt;script&gt;</title>",
            written(Element("title", "</title><script>")));
  EXPECT_EQ("<textarea>\n&lt;/textarea&gt;</textarea>",
            written(Element("textarea", "</textarea>")));
}

TEST(Html, KeepsTheLineEndAtTheStartOfATextarea) {
  EXPECT_EQ("<textarea>\n\nx</textarea>", written(Element("textarea", "\nx")));
  EXPECT_EQ("<pre>\n\nx</pre>", written(Element("pre", "\nx")));
  EXPECT_EQ("<PRE>\n<b>\n</b></PRE>", written(Element("PRE", Element("b", "\n"))));
  EXPECT_EQ("<listing>\n</listing>", written(Element("listing")));
}

// ---- Code and URLs in attributes ----------------------------------------------------------------

TEST(Html, RefusesAttributesForCodeThatAreNotRaw) {
  for (const char *name : {"onclick", "ONERROR", "onx", "on", "style", "Style", "srcdoc"}) {
    EXPECT_EQ("style, srcdoc and event attributes must be Raw", problemOf(Attribute(name, "x")))
        << name;
    EXPECT_EQ("style, srcdoc and event attributes must be Raw", problemOf(Attribute(name, "")))
        << name;
    EXPECT_EQ("style, srcdoc and event attributes must be Raw", problemOf(Attribute(name))) << name;
  }
}

TEST(Html, EscapesRawAttributesForCode) {
  EXPECT_EQ(
      "<p onclick=\"a(&quot;&lt;b&gt;&quot;)\" style=\"color: red\"></p>",
      paragraph(Attribute("onclick", Raw("a(\"<b>\")")), Attribute("style", Raw("color: red"))));
}

struct Place {
  std::string element;
  std::string attribute;
};

std::string withValue(const Place &place, const std::string &value) {
  return written(Element(place.element, Attribute(place.attribute, value)));
}

std::string problemWith(const Place &place, std::string_view value) {
  return problemOf(Element(place.element, Attribute(place.attribute, value)));
}

// Where a URL is followed by the visitor, or shows an image or plays a sound.
const Place kLinks[] = {{"a", "href"},       {"A", "HREF"},         {"a", "xlink:href"},
                        {"a", "XLink:Href"}, {"area", "href"},      {"image", "href"},
                        {"feImage", "href"}, {"img", "src"},        {"input", "src"},
                        {"source", "src"},   {"track", "src"},      {"audio", "src"},
                        {"video", "src"},    {"video", "poster"},   {"q", "cite"},
                        {"img", "longdesc"}, {"body", "background"}};

// Where a URL is one of code, a page or a form, or where nobody knows what it is.
const Place kOwn[] = {{"script", "src"},        {"SCRIPT", "Src"},     {"script", "href"},
                      {"script", "xlink:href"}, {"base", "href"},      {"link", "href"},
                      {"object", "data"},       {"object", "classid"}, {"object", "codebase"},
                      {"object", "archive"},    {"applet", "code"},    {"embed", "src"},
                      {"iframe", "src"},        {"frame", "src"},      {"use", "href"},
                      {"use", "xlink:href"},    {"form", "action"},    {"button", "formaction"},
                      {"input", "formaction"},  {"html", "manifest"},  {"a", "ping"},
                      {"a", "attributionsrc"},  {"img", "srcset"},     {"source", "srcset"},
                      {"link", "imagesrcset"},  {"param", "value"},    {"svg", "xml:base"},
                      {"animate", "values"},    {"set", "to"},         {"animate", "from"},
                      {"animate", "by"},        {"p", "href"},         {"x-frame", "src"},
                      {"x-link", "href"},       {"portal", "src"},     {"math", "href"}};

const char *const kHere[] = {
    "",    "/",          "page?a=b:c", "#a:b",  "./javascript:x", "a/b:c",          "1:2",
    ":x",  "javascript", "?x=//y",     "/a//b", "a//b",           "%6Aavascript:x", "java/script:x",
    "\\x", "\u00FC:x",   "#//x"};

const char *const kElsewhere[] = {"//other.example/",
                                  "http://x/",
                                  "https://x/",
                                  "HTTPS://x/",
                                  "mailto:a@b.example",
                                  "tel:+1-2",
                                  "\\\\x",
                                  "/\\x",
                                  "\\/x",
                                  "https:x",
                                  " //x",
                                  "/\t/x",
                                  "\u3000//x"};

const std::string_view kUnsafe[] = {"javascript:alert(1)",
                                    "JavaScript:alert(1)",
                                    " javascript:x",
                                    "\tjavascript:x",
                                    "\x01javascript:x",
                                    "java\nscript:x",
                                    "java\r\nscript:x",
                                    "j\ta\tv\ta\tscript:x",
                                    "javascript\t:x",
                                    "data:text/html,x",
                                    "vbscript:x",
                                    "blob:x",
                                    "file:///etc/passwd",
                                    "view-source:x",
                                    "httpx:x",
                                    "http+x:x",
                                    "h:x",
                                    "feed:javascript:x",
                                    "a1.b-c+d:x",
                                    "averyveryverylongscheme:x",
                                    "java script:x",
                                    "\u2028javascript:x",
                                    " \uFEFF\u00A0data:,x"};

constexpr const char *kScheme = "URL scheme must be http, https, mailto or tel";
constexpr const char *kForeign = "this URL must be a path of this site, or Raw";
constexpr const char *kCode = "style, srcdoc and event attributes must be Raw";

// Blanks separate the URLs of some attributes, so one inside a URL makes it two harmless ones.
bool isDivided(const Place &place, std::string_view url) {
  const bool isList = place.attribute == "ping" || place.attribute == "archive" ||
                      place.attribute == "attributionsrc" ||
                      place.attribute.find("srcset") != std::string::npos;
  return isList && (url == "/\t/x" || url == "javascript\t:x");
}

TEST(Html, AllowsUrlsOfThisSite) {
  for (const std::string url : kHere) {
    for (const Place &place : kLinks) {
      EXPECT_NE(std::string::npos, withValue(place, url).find("=\"" + url + "\"")) << url;
    }
    for (const Place &place : kOwn) {
      EXPECT_NE(std::string::npos, withValue(place, url).find("=\"" + url + "\"")) << url;
    }
  }
}

TEST(Html, AllowsLinksAndImagesOfOtherSites) {
  for (const Place &place : kLinks) {
    for (const std::string url : kElsewhere) {
      EXPECT_NE(std::string::npos, withValue(place, url).find("=\"" + url + "\"")) << url;
    }
  }
}

TEST(Html, RefusesUrlsOfOtherSitesForCodePagesAndForms) {
  for (const Place &place : kOwn) {
    for (const std::string_view url : kElsewhere) {
      if (isDivided(place, url)) continue;
      EXPECT_EQ(kForeign, problemWith(place, url)) << place.element << place.attribute << url;
    }
  }
}

TEST(Html, RefusesUrlsWithOtherSchemes) {
  for (const std::string_view url : kUnsafe) {
    for (const Place &place : kLinks) {
      EXPECT_EQ(kScheme, problemWith(place, url)) << place.element << place.attribute << url;
    }
    for (const Place &place : kOwn) {
      if (isDivided(place, url)) continue;
      const std::string problem = problemWith(place, url);
      EXPECT_TRUE(problem == kScheme || problem == kForeign)
          << place.element << place.attribute << url << problem;
    }
  }
}

TEST(Html, RefusesAListWithOneBadUrl) {
  const struct {
    Place place;
    std::string good;
    std::string before;
    std::string after;
  } lists[] = {{{"a", "ping"}, "/a b", "/a ", " /b"},
               {{"a", "ping"}, "/a\n/b\tc", "/a\n", "\t/b"},
               {{"object", "archive"}, "a.jar b.jar", "a.jar ", ""},
               {{"img", "srcset"}, "a.png 1x, /b.png 2x,c.png", "a.png 1x, ", " 2x"},
               {{"a", "ping"}, "/a,b", "/a,", ""},
               {{"img", "srcset"}, ",a.png", ",", ""},
               {{"img", "srcset"}, "a.png (1x, 2y), b", "a.png (1x, 2y), ", ""},
               {{"source", "srcset"}, "a.png 100w,\n\tb.png 200w", "a.png 100w,\n\t", " 200w"},
               {{"link", "imagesrcset"}, "a 1x,b 2x", "a 1x,", " 2x"},
               {{"animate", "values"}, "#a;#b", "#;", ""},
               {{"animate", "values"}, "0 0; 10 10;", "0 0; ", ";"},
               {{"ANIMATE", "Values"}, ";;", ";;", ";#"},
               {{"animate", "from"}, "a;b", "#;", ""},
               {{"animate", "by"}, "a;b", "#;", ""},
               {{"set", "to"}, "a;b", "#;\n", ""}};
  for (const auto &list : lists) {
    EXPECT_NE(std::string::npos, withValue(list.place, list.good).find("=\"" + list.good + "\""));
    for (const char *const bad :
         {"javascript:alert(1)", "JAVA\tSCRIPT:x", "data:,x", "//x", "https://x"}) {
      const bool isList = list.place.attribute == "ping" || list.place.attribute == "srcset";
      if (isList && std::string_view(bad).find('\t') != std::string_view::npos) continue;
      EXPECT_EQ(kForeign, problemWith(list.place, list.before + bad + list.after)) << bad;
    }
  }
}

TEST(Html, RefusesAnimationsOfCode) {
  for (const char *name : {"href", "xlink:href", "opacity", "class", "d"}) {
    EXPECT_EQ("<animate attributeName=\"" + std::string(name) + "\"></animate>",
              written(Element("animate", Attribute("attributeName", name))));
  }
  for (const char *name : {"onclick", "ONCLICK", "style", "srcdoc", "v-html", " onclick"}) {
    EXPECT_EQ(kCode, problemOf(Element("set", Attribute("attributeName", name)))) << name;
  }
}

TEST(Html, AllowsLinkElementsOfOtherSitesOnlyIfTheyLoadNoCode) {
  const auto link = [](std::string_view rel) {
    return Element("link", Attribute("href", "https://x/"), Attribute("rel", rel));
  };
  for (const char *rel :
       {"canonical", "alternate", "Author", "ICON", "icon  license", "\tnext\n"}) {
    EXPECT_EQ(0U, written(link(rel)).find("<link href=\"https://x/\"")) << rel;
  }
  for (const char *rel :
       {"stylesheet", "alternate stylesheet", "StyleSheet", "manifest", "import", "modulepreload",
        "preload", "prefetch", "preconnect", "canonical,x", "x", "canonical\vx"}) {
    EXPECT_EQ(kForeign, problemOf(link(rel))) << rel;
  }
  Element both = link("icon");
  both.add(Attribute("REL", "stylesheet"));
  EXPECT_EQ(kForeign, problemOf(both));
  Element other = link("stylesheet");
  other.add(Attribute("rel", "icon"));
  EXPECT_EQ(kForeign, problemOf(other));
  EXPECT_EQ(kForeign, problemOf(Element("link", Attribute("rel", Raw("stylesheet")),
                                        Attribute("href", "https://x/"))));
  EXPECT_EQ(kScheme, problemOf(Element("link", Attribute("rel", "icon"),
                                       Attribute("href", "javascript:x"))));
}

TEST(Html, ReloadsOnlyPagesOfThisSite) {
  const auto meta = [](std::string_view content) {
    return Element("meta", Attribute("content", content), Attribute("http-equiv", "Refresh"));
  };
  for (const char *content : {"", "5", "5.5", "0; url=/x", "0;URL='next'", "0, /x", "0 x",
                              "3;url=\"?a=b:c\"", " 1 ; url = #a", ";", "1;url", "1;url="}) {
    EXPECT_NE(std::string::npos, written(meta(content)).find("<meta content=\"")) << content;
  }
  for (const char *content : {"0; url=https://x/",
                              "0;url=//x",
                              "0;URL='//x'",
                              "0 //x",
                              "0,\\\\x",
                              "0;https://x",
                              "0;'//x",
                              "0; url = \" javascript:x",
                              "0;\turl\n=\njavascript:x",
                              "0;UrL=data:text/html,x",
                              ".;url=//x",
                              "0;;//x",
                              " 0 ; //x",
                              "\f0;url=//x",
                              "1e3;url=//x",
                              "+0;url=//x",
                              "0; url='/\t/x",
                              "0 \u2028https://x/",
                              "0;\u2028url=//x",
                              "0\u2028;url\u2028=\u2028//x"}) {
    EXPECT_EQ(kForeign, problemOf(meta(content))) << content;
  }
  for (const char *name : {"description", "og:image"}) {
    EXPECT_NE(std::string::npos, written(Element("meta", Attribute("name", name),
                                                 Attribute("content", "0;url=https://x/")))
                                     .find("https://x/"));
  }
  EXPECT_EQ(kForeign, problemOf(Element("META", Attribute("HTTP-EQUIV", Raw("REFRESH")),
                                        Attribute("Content", "0;url=https://x/"))));
}

TEST(Html, RefusesAttributesOfTemplateEngines) {
  for (const char *name :
       {"@click",       "v-on:click",  "v-html",       "V-HTML",     ":href",       "[innerHTML]",
        "(click)",      "[(ngModel)]", "*ngIf",        "#ref",       "ng-click",    "ng_click",
        "data-ng-init", "data_ng-x",   "x-data",       "x-on:click", "x-ng-click",  "hx-on:click",
        "hx-get",       "data-hx-on",  "data-hx-post", "_",          "script",      "data-script",
        "data-v-html",  "data-bind",   "bind-href",    "wire:click", "href.bind",   ".innerHTML",
        "on-click",     "up-on-x",     "data-on-load", "fx-action",  "sse-connect", "svg:href",
        "x:href",       "xmlns:x",     "{x}",          "?x",         "a,b",         "$x"}) {
    const std::string problem = problemOf(Attribute(name, "x"));
    EXPECT_TRUE(problem == "attributes of template engines must be Raw" || problem == kCode)
        << name << problem;
    EXPECT_EQ(problem, problemOf(Attribute(name))) << name;
    EXPECT_EQ("<p " + std::string(name) + "=\"x\"></p>", paragraph(Attribute(name, Raw("x"))));
  }
}

TEST(Html, KeepsOrdinaryAttributes) {
  for (const std::string name : {"title",
                                 "alt",
                                 "class",
                                 "data-href",
                                 "data-x",
                                 "data-x-axis",
                                 "data-on",
                                 "data-up-votes",
                                 "data-v",
                                 "data-action",
                                 "data-controller",
                                 "data-url",
                                 "data-",
                                 "data",
                                 "ng",
                                 "x",
                                 "v",
                                 "aria-label",
                                 "value",
                                 "name",
                                 "content",
                                 "width",
                                 "viewBox",
                                 "xmlns",
                                 "xmlns:xlink",
                                 "xlink:title",
                                 "xml:space",
                                 "x-height",
                                 "v-hanging",
                                 "unknown",
                                 "my-text",
                                 "up",
                                 "bin"}) {
    for (const std::string value : {"Note: x", "#a", "1", "{&quot;a&quot;:1}"}) {
      if (name == "data" && value[0] == 'N') continue;
      const std::string text = value[0] == '{' ? "{\"a\":1}" : value;
      EXPECT_EQ("<p " + name + "=\"" + value + "\"></p>", paragraph(Attribute(name, text)));
    }
  }
}

TEST(Html, RefusesCodeInUnknownAttributes) {
  for (const char *url : {"javascript:x", " JAVA\tSCRIPT:x", "data:text/html,x", "vbscript:x"}) {
    for (const char *name : {"unknown", "my-link", "srcs", "url"}) {
      EXPECT_EQ("unknown attribute must not hold a URL that runs code",
                problemOf(Attribute(name, url)));
    }
    for (const std::string name : {"title", "TITLE", "alt", "id", "data-href", "aria-label",
                                   "value", "content", "xlink:title"}) {
      EXPECT_EQ(0U, paragraph(Attribute(name, url)).find("<p " + name + "="));
    }
  }
  EXPECT_EQ("<p unknown=\"data\" other=\"https://x\"></p>",
            paragraph(Attribute("unknown", "data"), Attribute("other", "https://x")));
}

TEST(Html, AllowsAnyRawUrl) {
  for (const Place &place : kOwn) {
    EXPECT_NE(std::string::npos,
              written(Element(place.element, Attribute(place.attribute, Raw("data:,&lt;"))))
                  .find("=\"data:,&amp;lt;\""));
  }
}

// ---- Whole trees --------------------------------------------------------------------------------

TEST(Html, RefusesATreeWithOneProblem) {
  const tarn::Text text =
      tarn::html(Element("html", Element("body", "text", Element("p", Attribute("onclick", "x")))));
  EXPECT_FALSE(text);
  EXPECT_EQ("", text.view());
}

TEST(Html, RefusesAnElementThatWasMovedFrom) {
  Element element("p");
  const Element taken(std::move(element));
  EXPECT_EQ("element is empty: moved from, or out of memory",
            problemOf(element));  // NOLINT(bugprone-use-after-move)
}

TEST(Html, WritesACloneLikeTheOriginal) {
  const Element element("p", Attribute("onclick", Raw("x")), Attribute("hidden"), Raw("<br>"),
                        Element("b", "a<b"));
  EXPECT_EQ("<p onclick=\"x\" hidden><br><b>a&lt;b</b></p>", written(element));
  EXPECT_EQ(written(element), written(element.clone()));
}

// Only a function of tarn.h can build such an element.
TEST(Html, WritesAnElementsOwnTextBeforeItsChildren) {
  Element element("p", Element("b"));
  CGIgs_setString(element.handle(), TARN_ELEMENT_TEXT, "a<b", TARN_ELEMENT_MAGIC);
  EXPECT_EQ("<p>a&lt;b<b></b></p>", written(element));
}

// The Raw mark counts only for a text, which has no name.
TEST(Html, EscapesAnElementsOwnTextWhateverItsNumber) {
  Element element("p");
  CGIgs_setString(element.handle(), TARN_ELEMENT_TEXT, "a<b", TARN_ELEMENT_MAGIC);
  CGIgs_setInt(element.handle(), TARN_ELEMENT_NUMBER, tarn::raw_mark, TARN_ELEMENT_MAGIC);
  EXPECT_EQ("<p>a&lt;b</p>", written(element));
}

TEST(Html, RefusesAnElementsOwnTextWhereNoneIsAllowed) {
  const std::pair<const char *, const char *> kCases[] = {
      {"br", "void element has content"}, {"script", "script or style content must be Raw"}};
  for (const auto &[name, problem] : kCases) {
    Element element(name);
    CGIgs_setString(element.handle(), TARN_ELEMENT_TEXT, "x", TARN_ELEMENT_MAGIC);
    EXPECT_EQ(problem, problemOf(element));
  }
}

TEST(Html, RefusesATextThatContainsElements) {
  Element text("x", Element("b"));
  CGIgs_setString(text.handle(), TARN_ELEMENT_NAME, nullptr, TARN_ELEMENT_MAGIC);
  EXPECT_EQ("text contains elements", problemOf(text));
}

TEST(Html, RefusesAnAttributeWithoutAName) {
  Attribute attribute("x", "y");
  CGIgs_setString(attribute.handle(), TARN_ATTRIBUTE_NAME, nullptr, TARN_ATTRIBUTE_MAGIC);
  EXPECT_EQ("invalid attribute name", problemOf(std::move(attribute)));
}

// The two list types have the same type tag.
TEST(Html, IsSafeWhenListsAreSwapped) {
  Element element("p", Attribute("title", "<"), Element("b", "<"));
  TarnHandle attributes =
      CGIgs_getStruct(element.handle(), TARN_ELEMENT_ATTRIBUTES, TARN_ELEMENT_MAGIC);
  TarnHandle children =
      CGIgs_getStruct(element.handle(), TARN_ELEMENT_EMBEDDED, TARN_ELEMENT_MAGIC);
  TarnHandle words[2] = {CGIgs_getList(&attributes, TARN_LIST_ELEMENTS, TARN_ATTRIBUTE_LIST_MAGIC),
                         CGIgs_getList(&children, TARN_LIST_ELEMENTS, TARN_ELEMENT_LIST_MAGIC)};
  const uintptr_t attribute = TARNGenericList_getByIndex(&words[0], 0);
  const uintptr_t child = TARNGenericList_getByIndex(&words[1], 0);
  TARNGenericList_setByIndex(&words[1], 0, attribute);
  EXPECT_EQ("<p title=\"&lt;\"></p>", written(element));
  TARNGenericList_setByIndex(&words[1], 0, child);
  TARNGenericList_setByIndex(&words[0], 0, child);
  EXPECT_EQ("invalid attribute name", problemOf(element));
  TARNGenericList_setByIndex(&words[0], 0, attribute);
}

TEST(Html, NeedsLittleStackForAHundredThousandLevels) {
  tarn_test::asScript({}, "", [] {
    rlimit small{};
    ASSERT_EQ(0, getrlimit(RLIMIT_STACK, &small));
    small.rlim_cur = 1 << 20;
    ASSERT_EQ(0, setrlimit(RLIMIT_STACK, &small));
    constexpr int kLevels = 100000;
    std::string expected;
    Element tree("b", "<");
    for (int level = 0; level < kLevels; ++level) {
      Element outer("i");
      outer.add(std::move(tree));
      tree = std::move(outer);
      expected += "<i>";
    }
    expected += "<b>&lt;</b>";
    for (int level = 0; level < kLevels; ++level) expected += "</i>";
    EXPECT_TRUE(expected == written(tree));
  });
}

TEST(Html, WritesAHundredThousandChildren) {
  std::string expected = "<ul>";
  Element list("ul");
  for (int child = 0; child < 100000; ++child) {
    list.add(Element("li", "<"));
    expected += "<li>&lt;</li>";
  }
  EXPECT_TRUE(expected + "</ul>" == written(list));
}

TEST(Html, IsCompleteOrAbsentWhenAnAllocationFails) {
  Element tree("b", "text");
  for (int level = 0; level < 40; ++level) {
    tree = Element("i", Attribute("title", "<<<<<<<<<<<<<<<<"), std::move(tree));
  }
  const std::string whole = written(tree);
  tarn_test::forEachFailingAllocation([&](tarn_test::FailingMemory &memory) {
    const tarn::Text text = memory.call([&] { return tarn::html(tree); });
    EXPECT_EQ(memory.failed() ? "" : whole, text.view());
    EXPECT_STREQ(memory.failed() ? "out of memory" : nullptr, text.problem());
  });
}

}  // namespace
