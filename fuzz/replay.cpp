// Runs a fuzz target on every file in the given folders, as a test: any build, with any compiler,
// replays what the fuzzer found.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

void run(const std::string &bytes) {
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

size_t replay(const std::filesystem::path &folder) {
  size_t files = 0;
  for (const auto &file : std::filesystem::directory_iterator(folder)) {
    // Print the name first: a failing target ends the process.
    std::fprintf(stderr, "%s\n", file.path().c_str());
    std::ifstream stream(file.path(), std::ios::binary);
    run({std::istreambuf_iterator<char>(stream), {}});
    ++files;
  }
  std::fprintf(stderr, "%zu files in %s\n", files, folder.c_str());
  return files;
}

}  // namespace

int main(int count, char **folders) {
  run({});
  bool replayed = count > 1;
  for (int i = 1; i < count; ++i) replayed = replay(folders[i]) > 0 && replayed;
  return replayed ? EXIT_SUCCESS : EXIT_FAILURE;
}
