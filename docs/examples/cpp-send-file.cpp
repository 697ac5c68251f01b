/* Sends files, and knows what the browser has already: */

#include <cstdio>
#include <tarn.hpp>

static tarn::StoredFile chosen(std::string_view name) {
  if (name == "all") return tarn::StoredFile::at("lakes/all.csv");
  // A visitor may send any other name.
  if (name != "-") return tarn::StoredFile::below("lakes", name);
  return {tarn::adopt, 0, "standard-input.txt"};
}

int main(int argc, char **argv) {
  tarn::Response response;
  response.etag("v18");
  if (response.not_modified()) return response.send() ? 0 : 1;
  if (argc < 2) {
    const char *const text = "Which lake?";
    return response.send_error(400, text) ? 0 : 1;
  }

  const tarn::StoredFile file = chosen(argv[1]);
  if (file) {
    const auto size = static_cast<unsigned>(file.size());
    const bool old = file.modified() < 1763683201;
    std::fprintf(stderr, "%u bytes, %s\n", size,
                 old ? "old" : "new");
  } else {
    std::fprintf(stderr, "%d: %s\n", file.error(), file.message());
  }
  return response.send_file(file) ? 0 : 1;
}

/* Output:
$ mkdir lakes; echo Attersee,169 >lakes/all.csv
$ touch -d @1763683200 lakes/all.csv
$ export REQUEST_METHOD=GET
$ HTTP_RANGE=bytes=-4 ./cpp-send-file all 2>&1
13 bytes, old
Status: 206 Partial Content
Content-Type: text/csv; charset=utf-8
X-Content-Type-Options: nosniff
Accept-Ranges: bytes
Content-Range: bytes 9-12/13
Last-Modified: Fri, 21 Nov 2025 00:00:00 GMT
ETag: "v18"
Content-Length: 4

169
$ HTTP_IF_NONE_MATCH='"v18"' ./cpp-send-file all
Status: 304 Not Modified
ETag: "v18"

$ ./cpp-send-file ../secret 2>&1 | head -n 2
2: No such file or directory
Status: 404 Not Found
$ ./cpp-send-file - 2>&1 <lakes/all.csv | tail -n 1
Attersee,169
$ ./cpp-send-file | tail -n 2; echo
<!DOCTYPE html>
<html lang="en"><head><title>400 Bad Request</title></head><body><h1>Bad Request</h1><p>Which lake?</p></body></html>
*/
