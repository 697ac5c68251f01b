#include "serve/program_files.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "core/text.h"

namespace tarn::server {
namespace {

using internal::splitAtFirst;

bool isProgram(const char *path) {
  struct stat about;
  if (stat(path, &about) != 0) return false;
  if (!S_ISREG(about.st_mode)) {
    errno = EACCES;
    return false;
  }
  return access(path, X_OK) == 0;
}

// The members of std::string_view for these can throw.
bool beginsWith(std::string_view text, std::string_view start) {
  return text.size() >= start.size() && std::memcmp(text.data(), start.data(), start.size()) == 0;
}

bool endsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() &&
         std::memcmp(text.data() + text.size() - end.size(), end.data(), end.size()) == 0;
}

// Joins a folder of PATH and a name. An empty folder is the current one.
bool join(std::string_view folder, std::string_view name, char (&path)[PATH_MAX]) {
  if (folder.empty()) folder = ".";
  if (folder.size() + name.size() + 2 > sizeof path) return false;
  std::memcpy(path, folder.data(), folder.size());
  path[folder.size()] = '/';
  std::memcpy(path + folder.size() + 1, name.data(), name.size());
  path[folder.size() + 1 + name.size()] = '\0';
  return true;
}

bool copy(std::string_view text, char *place, size_t room) {
  if (text.size() >= room) return false;
  std::memcpy(place, text.data(), text.size());
  place[text.size()] = '\0';
  return true;
}

// Takes a word off a line.
std::string_view takeWord(std::string_view &line) {
  const auto is_blank = [](char c) { return c == ' ' || c == '\t'; };
  const char *begin = line.data();
  const char *const end = begin + line.size();
  while (begin < end && is_blank(*begin)) ++begin;
  const char *after = begin;
  while (after < end && !is_blank(*after)) ++after;
  line = {after, static_cast<size_t>(end - after)};
  return {begin, static_cast<size_t>(after - begin)};
}

// The word after "env" that is neither an option nor a variable is a program, too.
void readScript(std::string_view text, Runner &runner) {
  std::string_view line;
  std::string_view rest;
  splitAtFirst(text, '\n', line, rest);
  const std::string_view interpreter = takeWord(line);
  if (interpreter.empty() || !copy(interpreter, runner.path, sizeof runner.path)) return;
  runner.kind = Runner::Kind::kInterpreter;
  if (interpreter != "env" && !endsWith(interpreter, "/env")) return;
  std::string_view word = takeWord(line);
  while (word.starts_with('-') || word.find('=') != std::string_view::npos) word = takeWord(line);
  copy(word, runner.name, sizeof runner.name);
}

template <typename Header, typename Segment>
void readElf(int file, Runner &runner) {
  Header header;
  if (pread(file, &header, sizeof header, 0) != sizeof header) return;
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    Segment segment;
    const auto offset = static_cast<off_t>(header.e_phoff) +
                        static_cast<off_t>(i) * static_cast<off_t>(sizeof segment);
    if (pread(file, &segment, sizeof segment, offset) != sizeof segment) return;
    if (segment.p_type != PT_INTERP || segment.p_filesz >= sizeof runner.path) continue;
    const auto size = static_cast<size_t>(segment.p_filesz);
    if (pread(file, runner.path, size, static_cast<off_t>(segment.p_offset)) ==
        static_cast<ssize_t>(size)) {
      runner.path[size] = '\0';
      runner.kind = Runner::Kind::kLoader;
    }
    return;
  }
}

}  // namespace

bool findProgram(const char *name, char (&path)[PATH_MAX]) {
  if (std::strchr(name, '/')) {
    if (copy(name, path, sizeof path)) return isProgram(path);
    errno = ENAMETOOLONG;
    return false;
  }
  const char *folders = std::getenv("PATH");
  std::string_view rest = folders ? folders : "/bin:/usr/bin";
  int error = ENOENT;
  bool more = *name != '\0';
  while (more) {
    std::string_view folder;
    more = splitAtFirst(rest, ':', folder, rest);
    if (!join(folder, name, path)) continue;
    if (isProgram(path)) return true;
    if (errno == EACCES) error = EACCES;
  }
  errno = error;
  return false;
}

int statusOfMissingProgram(int error) { return error == ENOENT || error == ENOTDIR ? 127 : 126; }

bool readRunner(const char *program, Runner &runner) {
  runner.kind = Runner::Kind::kNone;
  runner.path[0] = runner.name[0] = '\0';
  const int file = open(program, O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (file < 0) return false;
  char bytes[Runner::kMostOfLine];
  const ssize_t size = pread(file, bytes, sizeof bytes, 0);
  const std::string_view begin(bytes, size > 0 ? static_cast<size_t>(size) : 0);
  constexpr char data = std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB;
  if (beginsWith(begin, "#!")) {
    readScript({bytes + 2, begin.size() - 2}, runner);
  } else if (begin.size() > EI_NIDENT && beginsWith(begin, ELFMAG) && bytes[EI_DATA] == data) {
    if (bytes[EI_CLASS] == ELFCLASS64) {
      readElf<Elf64_Ehdr, Elf64_Phdr>(file, runner);
    } else {
      readElf<Elf32_Ehdr, Elf32_Phdr>(file, runner);
    }
  }
  close(file);
  return size >= 0;
}

}  // namespace tarn::server
