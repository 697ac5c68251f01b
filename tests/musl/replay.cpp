// As fuzz/replay.cpp, without file systems and streams, which are parts of the C++ runtime.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

void run(const std::string &bytes) {
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

[[noreturn]] void giveUp(const char *what) {
  std::perror(what);
  std::exit(EXIT_FAILURE);
}

std::string contents(int folder, const char *name) {
  const int file = openat(folder, name, O_RDONLY);
  struct stat status;
  if (file < 0 || fstat(file, &status) != 0) giveUp(name);
  std::string bytes(static_cast<size_t>(status.st_size), '\0');
  if (read(file, bytes.data(), bytes.size()) != status.st_size) giveUp(name);
  close(file);
  return bytes;
}

size_t replay(const char *path) {
  DIR *folder = opendir(path);
  if (!folder) giveUp(path);
  size_t files = 0;
  while (const dirent *entry = readdir(folder)) {
    if (entry->d_name[0] == '.') continue;
    // Print the name first: a failing target ends the process.
    std::fprintf(stderr, "%s/%s\n", path, entry->d_name);
    run(contents(dirfd(folder), entry->d_name));
    ++files;
  }
  closedir(folder);
  std::fprintf(stderr, "%zu files in %s\n", files, path);
  return files;
}

}  // namespace

int main(int count, char **folders) {
  run({});
  bool replayed = count > 1;
  for (int i = 1; i < count; ++i) replayed = replay(folders[i]) > 0 && replayed;
  return replayed ? EXIT_SUCCESS : EXIT_FAILURE;
}
