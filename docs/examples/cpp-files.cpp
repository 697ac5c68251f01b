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
    if (file.is_cut()) std::printf("%s\n", saved.message());
  }

  // A file that does not know its request.
  tarn::File first = files[0];
  if (!tarn::File(*first.handle()).is_cut())
    std::printf("not known to be cut\n");
  const tarn::FileName name =
      tarn::FileName::safe("C:\\my lake.txt");
  std::printf("%s\n", name.c_str());
  return 0;
}

/* Output:
$ field='Content-Disposition: form-data; name='
$ printf '%s\r\n' --cut "$field\"photo\"; filename=\"../lake.txt\"" \
    'Content-Type: text/plain' '' 'A photo in words.' \
    --cut "$field\"notes\"; filename=\"notes.txt\"" \
    'Content-Type: text/plain' '' 'Calm.' 'No wind.' --cut-- >body
$ REQUEST_METHOD=POST CONTENT_LENGTH=$(wc -c <body) \
    CONTENT_TYPE='multipart/form-data; boundary=cut' \
    ./cpp-files <body
photo: ../lake.txt, text/plain, 17 bytes
to be saved as lake.txt, 8 bytes long
saved as lake.txt
lake.txt is there already
notes: notes.txt, text/plain, 5 bytes
to be saved as notes.txt, 9 bytes long
Tarn_new() cut the file at its first line end; read it with tarn::FormReader
not known to be cut
my_lake.txt
$ wc -c <lake.txt
17
*/
