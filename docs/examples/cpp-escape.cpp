/* Escapes a text for HTML, a URL and a script, and shows a refusal: */

#include <cstdio>
#include <tarn.hpp>

int main(int, char **argv) {
  const std::string_view sent = argv[1];
  std::printf("<p>%s</p>\n", tarn::escape_html(sent).c_str());
  const tarn::Text attribute = tarn::escape_attribute(sent);
  std::printf("<input value=%s>\n", attribute.c_str());
  const tarn::Text url = tarn::escape_url(sent);
  std::printf("/find?q=%s\n", url.c_str());
  const tarn::Text path = tarn::escape_path("/cgi-bin/my page");
  std::printf("%s\n", path.c_str());
  const tarn::Text json = tarn::escape_json(sent);
  std::printf("let sent = %s;\n", json.c_str());

  tarn::Text page = tarn::html(tarn::Element(
      "a", tarn::Attribute("href", "javascript:tell()")));
  if (!page) std::printf("refused: %s\n", page.problem());

  // A text that takes ownership of a block, and the lack of one.
  char *made = nullptr;
  const int size = tarn_asprintf(&made, "%d m", 18);
  page =
      tarn::Text(tarn::adopt, made, static_cast<std::size_t>(size));
  std::printf("%s, %zu bytes\n", page.c_str(), page.view().size());
  page = tarn::Text::refused("out of depth");
  std::printf("%s\n", page.problem());
  return 0;
}

/* Output:
$ ./cpp-escape "it's </script>"
<p>it&#39;s &lt;/script&gt;</p>
<input value=it&#39;s&#32;&lt;/script&gt;>
/find?q=it%27s%20%3C%2Fscript%3E
/cgi-bin/my%20page
let sent = "it\u0027s \u003c/script\u003e";
refused: URL scheme must be http, https, mailto or tel
18 m, 4 bytes
out of depth
*/
