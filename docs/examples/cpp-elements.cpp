/* Builds a page as a tree, in which a visitor's text stays text: */

#include <cstdio>
#include <tarn.hpp>

static void print(const tarn::ElementView element,
                  const int depth) {
  std::printf("%*s%s", depth, "",
              element.name().value_or("text").data());
  tarn::Attributes attributes = element.attributes();
  for (const tarn::AttributeView attribute : attributes) {
    std::printf(" %s=%s%s", attribute.name().value_or("").data(),
                attribute.value().value_or("-").data(),
                attribute.is_raw() ? " (trusted)" : "");
  }
  std::printf(" \"%s\"%s\n", element.text().value_or("").data(),
              element.is_raw() ? " (trusted)" : "");
  tarn::Elements children = element.children();
  for (const tarn::ElementView child : children)
    print(child, depth + 2);
}

int main(int, char **argv) {
  const std::string_view sent = argv[1];
  tarn::Element page("p", tarn::Attribute("title", sent),
                     "You wrote ", sent);
  page.add(tarn::Element("br"));
  page.add(tarn::Raw("&mdash;"));
  page.add(" for the record");
  page.add(tarn::Attribute("hidden"));

  tarn::AttributeList attributes;
  attributes.add(tarn::Attribute("onclick", tarn::Raw("tell()")));
  page.add(std::move(attributes));

  tarn::ElementList list;
  list.add("So far ").add(tarn::Element("b", 1));
  list.add(tarn::Raw("&nbsp;lake"));
  page.add(std::move(list));

  const tarn::Raw dot(".");
  if (dot) std::printf("trusted: %s\n", dot.text().data());
  print(page.view(), 0);
  const tarn::Text written = tarn::html(page);
  std::puts(written.c_str());
  return written ? 0 : 1;
}

/* Output:
$ ./cpp-elements '<b>"lake"</b>'
trusted: .
p title=<b>"lake"</b> hidden=- onclick=tell() (trusted) ""
  text "You wrote "
  text "<b>"lake"</b>"
  br ""
  text "&mdash;" (trusted)
  text " for the record"
  text "So far "
  b ""
    text "1"
  text "&nbsp;lake" (trusted)
<p title="&lt;b&gt;&quot;lake&quot;&lt;/b&gt;" hidden onclick="tell()">You wrote &lt;b&gt;&quot;lake&quot;&lt;/b&gt;<br>&mdash; for the recordSo far <b>1</b>&nbsp;lake</p>
*/
