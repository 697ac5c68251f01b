/* Sends bytes to save as a file, or just the header: */

#include <tarn.hpp>

int main(int argc, char **) {
  tarn::Response response;
  response.last_modified(1763683200)
      .etag("v18")
      .attachment("lake data.bin");
  if (argc > 1) response.head(true);
  return response.send_bytes({"\x00\x12\n", 3}) ? 0 : 1;
}
