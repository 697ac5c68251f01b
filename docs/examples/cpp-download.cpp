/* Bytes to be kept as a file; only the header for those who ask for no more: */

#include <tarn.hpp>

int main(int argc, char **) {
  tarn::Response response;
  response.last_modified(1763683200)
      .etag("v18")
      .attachment("lake data.bin");
  if (argc > 1) response.head(true);
  return response.send_bytes({"\x00\x12\n", 3}) ? 0 : 1;
}
