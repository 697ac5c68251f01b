/* Builds headers as data and reads them: */

#include <cstdio>
#include <tarn.hpp>

int main() {
  tarn::PlainHeader plain("text/html");
  plain.add(tarn::Cookie("colour", "blue"));
  tarn::CookieList cookies;
  cookies.add(tarn::Cookie("depth", "18"));
  plain.add(std::move(cookies));
  const tarn::PlainHeaderView view = plain.view();
  std::printf("%s with %zu cookies\n",
              view.content_type().value_or("").data(),
              view.cookies().size());

  tarn::ResponseHeader header("HTTP/1.1", 404, "Not Found");
  header.add("Cache-Control: no-store")
      .add(tarn::Cookie("colour", "blue"));
  const tarn::ResponseHeaderView read = header.view();
  std::printf("%s %d %s, %zu cookie\n",
              read.first().value_or("").data(), read.number(),
              read.second().value_or("").data(),
              read.cookies().size());
  tarn::Lines lines = read.lines();
  for (const std::string_view line : lines) std::puts(line.data());

  tarn::MultiPartHeader part("form-data", "photo", "lake.png",
                             "image/png");
  const tarn::MultiPartHeaderView of = part.view();
  std::printf("%s of %s: %s, %s\n",
              of.disposition().value_or("").data(),
              of.name().value_or("").data(),
              of.file_name().value_or("").data(),
              of.content_type().value_or("").data());
  return 0;
}

/* Output:
$ ./cpp-headers
text/html with 2 cookies
HTTP/1.1 404 Not Found, 1 cookie
Cache-Control: no-store
form-data of photo: lake.png, image/png
*/
