/* Redirects to this site or to another, and shows a refusal: */

#include <cstdio>
#include <tarn.hpp>

int main(int, char **argv) {
  const std::string_view where = argv[1];
  tarn::Response response;
  if (where == "away") {
    response.redirect_away("https://www.example.org/lake", 301);
  } else {
    response.redirect(where);
  }
  const bool sent = response.send();
  if (!sent) std::printf("(%s)\n", response.problem());
  return 0;
}

/* Output:
$ ./cpp-redirect '/lake?depth=18'
Status: 303 See Other
Content-Type: text/plain; charset=utf-8
Location: /lake?depth=18
Content-Length: 0

$ ./cpp-redirect away
Status: 301 Moved Permanently
Content-Type: text/plain; charset=utf-8
Location: https://www.example.org/lake
Content-Length: 0

$ ./cpp-redirect //elsewhere.example.org
Status: 500 Internal Server Error
Content-Type: text/plain; charset=utf-8
Content-Length: 22

Internal Server Error
(redirect path must start with a single '/')
*/
