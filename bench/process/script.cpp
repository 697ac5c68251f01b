// script.c written with tarn.hpp: it sends the same response to the same request.
#include <cstdio>
#include <tarn.hpp>

namespace {

// Strings of a request are null-terminated, as printf() needs them.
const char *text(std::optional<std::string_view> value) { return value.value_or("").data(); }

void show(tarn::Entry entry) {
  const std::string_view value = entry.value();
  std::printf("%s=%.16s (%zu bytes)\n", text(entry.name()), value.data(), value.size());
}

void show(tarn::File file) {
  const std::string_view bytes = file.bytes();
  std::printf("%s: %s, %s, %zu bytes, ", text(file.field()), text(file.name()), text(file.type()),
              bytes.size());
  for (std::size_t i = bytes.size() > 8 ? bytes.size() - 8 : 0; i < bytes.size(); ++i) {
    std::printf("%02x", static_cast<unsigned char>(bytes[i]));
  }
  std::putchar('\n');
}

template <class Range>
void show(Range all, std::size_t count) {
  if (count == 0) return;
  show(all[0]);
  show(all[count / 2]);
  show(all[count - 1]);
}

}  // namespace

int main() {
  const tarn::Request request;
  if (!request) return 1;
  const tarn::Entries entries = request.entries();
  const tarn::Files files = request.files();
  const std::size_t entry_count = entries.size();
  const std::size_t file_count = files.size();
  std::printf("Content-Type: text/plain\n\n%zu entries, %zu files\n", entry_count, file_count);
  show(entries, entry_count);
  show(files, file_count);
  return std::fflush(stdout) == 0 ? 0 : 1;
}
