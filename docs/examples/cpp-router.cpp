/* Routes requests by method and path: */

#include <cstdio>
#include <tarn.hpp>

static int answer(std::string_view method, std::string_view path) {
  return tarn::Router(method, path)
      .route("GET", "/", [] { std::puts("the list"); })
      .route("GET", "/lake/{name}/{year}",
             [](const tarn::PathValues &values) {
               std::printf(
                   "%s in %s\n",
                   tarn::escape_html(*values["name"]).c_str(),
                   tarn::escape_html(*values["year"]).c_str());
             })
      .route("POST", "/lake/{name}/{year}", [] { return 3; })
      .finish();
}

int main() {
  answer("GET", "/");
  answer("HEAD", "/lake/Attersee/2026");
  std::printf("status %d\n", answer("POST", "/lake/Attersee/2026"));
  answer("GET", "/lake/../2026");
  answer("PUT", "/lake/Attersee/2026");

  // The request of this process.
  return tarn::route("GET", "/",
                     [] { std::puts("\nstill the list"); })
      .route("GET", "/lake/{name}", [] { return 1; })
      .finish();
}

/* Output:
$ REQUEST_METHOD=GET PATH_INFO=/ ./cpp-router
the list
Attersee in 2026
status 3
Status: 404 Not Found
Content-Type: text/plain; charset=utf-8
Content-Length: 10

Not Found
Status: 405 Method Not Allowed
Content-Type: text/plain; charset=utf-8
Allow: GET, HEAD, POST
Content-Length: 19

Method Not Allowed

still the list
*/
