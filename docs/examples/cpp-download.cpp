/* Sends bytes to save as a file, or just the header: */

#include <tarn.hpp>

int main(int argc, char **) {
  tarn::Response response;
  response.last_modified(1763683200)
      .etag("v18")
      .attachment("lake data.bin");
  if (argc > 1) response.head(true).weak_etag("v18");
  return response.send_bytes({"\x00\x12\n", 3}) ? 0 : 1;
}

/* Output:
$ ./cpp-download | od -c | tail -n 3
0000240   n   t   e   n   t   -   L   e   n   g   t   h   :       3  \r
0000260  \n  \r  \n  \0 022  \n
0000266
$ ./cpp-download header-alone
Content-Type: application/octet-stream
Last-Modified: Fri, 21 Nov 2025 00:00:00 GMT
ETag: W/"v18"
Content-Disposition: attachment; filename="lake data.bin"
Content-Length: 3

*/
