/* Reads values, a checkbox, a number within limits, and a file from a form: */

#include <cstdio>
#include <tarn.hpp>

int main() {
  tarn::Request request;
  if (!request) return request.status();
  if (!request.complete()) {
    const char *plea = "Please send the form again.\n";
    return tarn::Response().status(400).send_text(plea) ? 0 : 1;
  }

  tarn::String page("Hello, ");
  page.append(request.get("name", "stranger"));
  page.append("\n");
  for (const std::string_view tag : request.all("tag")) {
    page.append_format("tag: %s\n", tag.data());
  }
  page.append_format("public: %s\n",
                     request.checked("public") ? "yes" : "no");
  if (!request["email"]) page.append("no address\n");
  if (const auto depth = request.integer("depth", 0, 1000)) {
    page.append_format("%d m deep\n", static_cast<int>(*depth));
  }
  page.append_format("about %d people\n", request.number("people"));
  if (const auto note = request.entry("note")) {
    page.append_format("a note of %zu bytes\n",
                       note->value().size());
  }
  if (const auto photo = request.file("photo")) {
    page.append_format("photo: %zu bytes\n", photo->bytes().size());
  }
  page.append_format("%zu fields, %zu files, %zu cookies\n",
                     request.entries().size(),
                     request.files().size(),
                     request.cookies().size());
  page.append_format(
      "you like it %s\n",
      request.cookie("taste").value_or("somehow").data());
  if (request.environment().https())
    page.append("nobody else reads this\n");
  return tarn::Response().send_text(page.view()) ? 0 : 1;
}

/* Output:
$ form='name=Ada&tag=a&tag=b&public=on&depth=18&people=3or4&note='
$ printf %s "$form" | REQUEST_METHOD=POST CONTENT_LENGTH=${#form} \
    CONTENT_TYPE=application/x-www-form-urlencoded \
    HTTP_COOKIE='taste=much' ./cpp-request
Content-Type: text/plain; charset=utf-8
Content-Length: 137

Hello, Ada
tag: a
tag: b
public: yes
no address
18 m deep
about 3 people
a note of 0 bytes
7 fields, 0 files, 1 cookies
you like it much
*/
