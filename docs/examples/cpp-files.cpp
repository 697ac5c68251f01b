/* Saves uploaded files under safe names: */

#include <cerrno>
#include <cstdio>
#include <tarn.hpp>

int main() {
  tarn::Request request;
  if (!request) return request.status();

  tarn::Files files = request.files();
  for (const tarn::File file : files) {
    std::printf(
        "%s: %s, %s, %zu bytes\n", file.field().value_or("").data(),
        file.name().value_or("").data(),
        file.type().value_or("").data(), file.bytes().size());
    const tarn::FileName safe = file.safe_name();
    std::printf("to be saved as %s, %zu bytes long\n", safe.c_str(),
                safe.view().size());

    const tarn::Saved saved = file.save(".");
    if (saved) std::printf("saved as %s\n", saved.name().c_str());
    const tarn::Saved again = file.save(".", "lake.txt");
    if (!again && again.error() == EEXIST)
      std::printf("lake.txt is there already\n");
  }
  return 0;
}

/* Output:
$ field='Content-Disposition: form-data; name='
$ printf '%s\r\n' --cut "$field\"photo\"; filename=\"../lake.txt\"" \
    'Content-Type: text/plain' '' 'A photo in words.' --cut-- >body
$ REQUEST_METHOD=POST CONTENT_LENGTH=$(wc -c <body) \
    CONTENT_TYPE='multipart/form-data; boundary=cut' \
    ./cpp-files <body
photo: ../lake.txt, text/plain, 17 bytes
to be saved as lake.txt, 8 bytes long
saved as lake.txt
lake.txt is there already
$ wc -c <lake.txt
17
*/
