/* Sends a long table while it is made: */

#include <cstdio>
#include <tarn.hpp>

int main() {
  tarn::Response response;
  response.content_type("text/csv; charset=utf-8")
      .attachment("Tiefe der Seen.csv");
  tarn::Stream body(response);
  char row[40];
  bool more = body.write("year,depth\n");
  for (int year = 2023; more && year < 2026; ++year) {
    std::snprintf(row, sizeof row, "%d,169\n", year);
    more = body.write(row) && body.flush();
  }
  if (body.finish()) return 0;
  std::fprintf(stderr, "depths: %s\n", response.problem());
  return 1;
}

/* Output:
$ ./cpp-stream
Content-Type: text/csv; charset=utf-8
Content-Disposition: attachment; filename="Tiefe der Seen.csv"

year,depth
2023,169
2024,169
2025,169
$ REQUEST_METHOD=HEAD ./cpp-stream | wc -l
3
$ ./cpp-stream 2>&1 >/dev/full || echo status $?
depths: response could not be written
status 1
*/
