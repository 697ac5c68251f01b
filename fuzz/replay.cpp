// Runs a target over the files of folders, as a test: what a fuzzer found once is tried on every
// build, with any compiler.
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
    // Said beforehand: a target that fails ends the process.
    std::fprintf(stderr, "%s\n", file.path().c_str());
    std::ifstream stream(file.path(), std::ios::binary);
    run({std::istreambuf_iterator<char>(stream), {}});
    ++files;
  }
  return files;
}

}  // namespace

int main(int count, char **folders) {
  run({});
  size_t files = 0;
  for (int i = 1; i < count; ++i) files += replay(folders[i]);
  std::fprintf(stderr, "%zu files\n", files);
  return files > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
