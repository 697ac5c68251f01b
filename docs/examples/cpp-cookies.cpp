/* Reads the cookies that were sent, and builds a list of cookies: */

#include <cstdio>
#include <tarn.hpp>

static void print(const tarn::CookieView cookie) {
  std::printf("%s=%s for %ld s, domain %s, path %s, %s%s\n",
              cookie.name().value_or("").data(),
              cookie.value().value_or("").data(), cookie.max_age(),
              cookie.domain().value_or("-").data(),
              cookie.path().value_or("-").data(),
              cookie.comment().value_or("no comment").data(),
              cookie.is_secure() ? ", secure" : "");
}

int main() {
  tarn::Request request;
  if (!request) return request.status();
  tarn::Cookies cookies = request.cookies();
  for (const tarn::CookieView cookie : cookies) print(cookie);

  tarn::Cookie colour("colour", "blue");
  colour.comment("of the lake")
      .domain("example.org")
      .path("/lake")
      .max_age(3600)
      .secure();
  tarn::CookieList list;
  list.add(std::move(colour));
  list.add(tarn::Cookie("depth", "18"));
  for (const tarn::CookieView cookie : list) print(cookie);
  return list.size() == 2 ? 0 : 1;
}

/* Output:
$ REQUEST_METHOD=GET HTTP_COOKIE='guest=Ada; theme=dark' ./cpp-cookies
guest=Ada for 0 s, domain -, path -, no comment
theme=dark for 0 s, domain -, path -, no comment
colour=blue for 3600 s, domain example.org, path /lake, of the lake, secure
depth=18 for 0 s, domain -, path -, no comment
*/
