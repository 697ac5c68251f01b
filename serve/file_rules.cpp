#include "serve/file_rules.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace tarn::server {
namespace {

// The C library's headers are older than some kernels.
constexpr uint64_t kTruncate = uint64_t{1} << 14;
constexpr uint64_t kDeviceControl = uint64_t{1} << 15;
constexpr uint64_t kBindTcp = uint64_t{1} << 0;
constexpr uint64_t kConnectTcp = uint64_t{1} << 1;
constexpr uint64_t kAbstractSockets = uint64_t{1} << 0;
constexpr uint64_t kSignals = uint64_t{1} << 1;

struct Attributes {
  uint64_t files;
  uint64_t network;
  uint64_t scoped;
};

constexpr uint64_t kReadFile = LANDLOCK_ACCESS_FS_READ_FILE;
constexpr uint64_t kWriteFile = kReadFile | LANDLOCK_ACCESS_FS_WRITE_FILE | kTruncate;
constexpr uint64_t kExecuteFile = kReadFile | LANDLOCK_ACCESS_FS_EXECUTE;
constexpr uint64_t kReadDirectory = kReadFile | LANDLOCK_ACCESS_FS_READ_DIR;
// Neither devices, nor pipes and symbolic links, which would mislead others who use the directory.
constexpr uint64_t kWriteDirectory = kReadDirectory | kWriteFile | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                                     LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_DIR |
                                     LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_REFER;
constexpr uint64_t kExecuteDirectory = kReadDirectory | LANDLOCK_ACCESS_FS_EXECUTE;

// What a version of the interface knows about files: with the first, renaming and linking between
// directories is refused anyway.
uint64_t knownToVersion(int version) {
  uint64_t known = (uint64_t{1} << 13) - 1;
  if (version >= 2) known |= LANDLOCK_ACCESS_FS_REFER;
  if (version >= 3) known |= kTruncate;
  if (version >= 5) known |= kDeviceControl;
  return known;
}

uint64_t rightsFor(Access access, bool is_directory) {
  switch (access) {
    case Access::kRead:
      return is_directory ? kReadDirectory : kReadFile;
    case Access::kWrite:
      return is_directory ? kWriteDirectory : kWriteFile;
    case Access::kExecute:
      return is_directory ? kExecuteDirectory : kExecuteFile;
  }
  return 0;
}

}  // namespace

FileRules::~FileRules() {
  if (file_ >= 0) close(file_);
}

int FileRules::version() {
  return static_cast<int>(
      syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION));
}

int FileRules::create(int version, bool network, bool unix_sockets) {
  Attributes attributes = {};
  attributes.files = handled_ = knownToVersion(version);
  if (version >= 4 && !network) attributes.network = kBindTcp | kConnectTcp;
  if (version >= 6) attributes.scoped = kAbstractSockets | kSignals;
  unix_sockets_ = unix_sockets;
  // The kernel closes it when a program is started.
  file_ = static_cast<int>(syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0));
  return file_ >= 0 ? 0 : errno;
}

int FileRules::allow(const char *path, Access access) const {
  const int place = open(path, O_PATH | O_CLOEXEC);
  struct stat about;
  if (place < 0) return errno;
  landlock_path_beneath_attr rule = {};
  int error = fstat(place, &about) == 0 ? 0 : errno;
  rule.parent_fd = place;
  rule.allowed_access = rightsFor(access, S_ISDIR(about.st_mode)) & handled_;
  if (unix_sockets_ && access == Access::kWrite && S_ISDIR(about.st_mode)) {
    rule.allowed_access |= LANDLOCK_ACCESS_FS_MAKE_SOCK;
  }
  if (error == 0 &&
      syscall(SYS_landlock_add_rule, file_, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) != 0) {
    error = errno;
  }
  close(place);
  return error;
}

int FileRules::restrict() const {
  return syscall(SYS_landlock_restrict_self, file_, 0) == 0 ? 0 : errno;
}

}  // namespace tarn::server
