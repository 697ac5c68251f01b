#include "request/body.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "core/system_calls.h"

// Older headers lack it.
#ifndef MADV_POPULATE_READ
#define MADV_POPULATE_READ 22
#endif

namespace tarn::internal {
namespace {

// To map fewer bytes costs more than to copy them. It also limits the number of mappings: a body of
// 2 GiB can have 8,192 such files, and Linux allows 65,530 mappings.
constexpr size_t kLeastMapped = size_t{256} * 1024;

// A multiple of the size of a page, which is 4 to 64 KiB on the processors that Tarn is built for.
constexpr size_t kPages = size_t{64} * 1024;

// What is read and written at once: as much as fits into a pipe, and a multiple of kPages.
constexpr size_t kChunk = kPages;

// Reads on after a signal; stops at the end of the input or at an error.
size_t readInput(char *block, size_t length) {
  for (size_t arrived = 0;;) {
    errno = 0;
    arrived += std::fread(block + arrived, 1, length - arrived, stdin);
    if (arrived == length || feof_unlocked(stdin) || errno != EINTR) return arrived;
    std::clearerr(stdin);
  }
}

OwnedBytes mapped(void *mapping, size_t lead, size_t size) {
  if (mapping == MAP_FAILED) return nullptr;
  return {static_cast<char *>(mapping) + lead, Release(mapping, size)};
}

// Zeros, in pages that cost memory only once they are written to.
OwnedBytes mapZeros(size_t size) {
  if (size >= PTRDIFF_MAX) return nullptr;
  return mapped(mapPages(nullptr, size, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0), 0, size);
}

// Replaces the pages at the start of a block by those of a file. If that fails, the block is lost.
bool mapOver(char *block, size_t size, int file, off_t offset) {
  return mapPages(block, size, MAP_PRIVATE | MAP_FIXED, file, offset) == block;
}

// Whether standard input reads this descriptor from here on, with nothing in the buffer.
bool isUnbuffered(off_t offset) { return !feof_unlocked(stdin) && ftello(stdin) == offset; }

}  // namespace

Body::~Body() {
  if (is_own_) closeFile(file_);
}

OwnedBytes Body::read(uint32_t length, size_t &arrived) {
  if (length < kLeastMapped) {
    OwnedBytes block = newZeroedText(length);
    if (block) arrived = readInput(block.get(), length);
    return block;
  }
  OwnedBytes block = mapZeros(size_t{length} + 1);
  if (block && !mapInput(block, length, arrived) && block) arrived = receive(block, length);
  start_ = block.get();  // cppcheck-suppress danglingLifetime  // nobody frees the block
  return block;
}

// Maps what is in the file that standard input reads, from whole pages. The rest, if there is any,
// is read, so that standard input knows its position and whether the file has ended.
//
// Who truncates a mapped file lets its readers crash. So the file must have no name under which
// another process could open it. What remains: a process that has had it open before, as the server
// has, or that may look into this one through /proc, can still truncate or change it while the script
// runs. It could change what a script reads in any other way, too.
bool Body::mapInput(OwnedBytes &block, size_t length, size_t &arrived) {
  const int file = fileno(stdin);
  const off_t offset = positionOf(file);
  if (offset < 0 || static_cast<uint64_t>(offset) % kPages != 0 || !isUnbuffered(offset)) {
    return false;
  }
  const int64_t size = sizeOfUnnamedFile(file);
  if (size <= offset) return false;
  const auto rest = static_cast<uint64_t>(size - offset);
  const size_t backed = rest < length ? static_cast<size_t>(rest) : length;
  const size_t whole = backed - backed % kPages;
  if (whole < kLeastMapped) return false;
  // Populating fails where the file is shorter by now or cannot be read.
  if (!mapOver(block.get(), whole, file, offset) ||
      !advise(block.get(), whole, MADV_POPULATE_READ) ||
      fseeko(stdin, static_cast<off_t>(whole), SEEK_CUR) != 0) {
    block = mapZeros(length + 1);
    return false;
  }
  arrived = whole + readInput(block.get() + whole, length - whole);
  file_ = file;
  offset_ = offset;
  backed_ = std::min(backed, arrived);
  return true;
}

// Reads the input and writes it to a file in memory, which is then mapped. That takes less time than
// to read into the block itself, whose pages would have to be found and cleared one by one. If the
// file cannot be made or memory for it runs out, the rest is read into the block.
size_t Body::receive(OwnedBytes &block, size_t length) {
  // Until the file is mapped, the start of the block is what is read into.
  char *const start = block.get();
  size_t count = readInput(start, kChunk);
  if (count < kChunk || !createFile(length)) {
    return count < kChunk ? count : count + readInput(start + count, length - count);
  }
  size_t written = 0;
  bool is_backed = true;
  while (count == kChunk && (is_backed = writeToFile(file_, {start, count}))) {
    written += count;
    count = readInput(start, std::min(kChunk, length - written));
  }
  const size_t arrived = written + count;
  if (written > 0) {
    copyMemory(start + written, start, count);
    if (!mapOver(start, written, file_, 0)) {
      block = nullptr;
      return 0;
    }
  }
  // The file also has the last bytes, since it can only be mapped as far as it goes.
  if (is_backed && writeToFile(file_, {start + written, count})) backed_ = arrived;
  return count < kChunk ? arrived : arrived + readInput(start + arrived, length - arrived);
}

// Creates a file in memory, unless to write so much to a file would kill the process.
bool Body::createFile(size_t size) {
  if (!mayWrite(size)) return false;
  file_ = createMemoryFile("tarn-body");
  is_own_ = file_ >= 0;
  return is_own_;
}

OwnedBytes Body::copy(std::string_view bytes) const {
  if (bytes.size() < kLeastMapped) return copyBytes(bytes.data(), bytes.size());
  const auto begin = static_cast<size_t>(bytes.data() - start_);
  // The zero byte takes the place of one that the file has.
  if (begin < backed_ && bytes.size() < backed_ - begin) {
    const size_t lead = begin % kPages;
    const size_t size = lead + bytes.size() + 1;
    OwnedBytes copy = mapped(
        mapPages(nullptr, size, MAP_PRIVATE, file_, offset_ + static_cast<off_t>(begin - lead)),
        lead, size);
    if (copy) {
      copy.get()[bytes.size()] = '\0';
      return copy;
    }
  }
  return copyBytes(bytes.data(), bytes.size());
}

}  // namespace tarn::internal
