/* Computes a table once, and answers each request from it: */

#include <cstdio>
#include <cstdlib>
#include <tarn/serve.hpp>

int main() {
  int depths[3] = {};
  tarn::serve_prepare([&depths] {
    for (int i = 0; i < 3; ++i) depths[i] = 11 + 7 * i;
  });
  return tarn::serve([&depths] {
    const char *query = std::getenv("QUERY_STRING");
    const int lake = query ? std::atoi(query) : -1;
    std::printf("Content-Type: text/plain\r\n");
    if (lake < 0 || lake > 2) {
      std::printf("Status: 404 Not Found\r\n\r\nNo such lake\n");
      return 1;
    }
    std::printf("\r\n%d m\n", depths[lake]);
    return 0;
  });
}

/* Output:
$ QUERY_STRING=1 ./cpp-serve
Content-Type: text/plain

18 m
$ QUERY_STRING=7 ./cpp-serve || echo "exit status $?"
Content-Type: text/plain
Status: 404 Not Found

No such lake
exit status 1
*/
