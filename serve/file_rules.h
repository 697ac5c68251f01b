// Which files a script may use. Landlock in the kernel refuses the others.
#ifndef TARN_SERVE_FILE_RULES_H
#define TARN_SERVE_FILE_RULES_H

#include <cstdint>

namespace tarn::server {

// What a rule allows: for a file, or for everything in a directory.
enum class Access {
  kRead,
  kWrite,    // and read, create, remove, rename and link
  kExecute,  // and read
};

class FileRules {
 public:
  FileRules() = default;
  ~FileRules();
  FileRules(const FileRules &) = delete;
  FileRules &operator=(const FileRules &) = delete;

  // The version of the kernel's interface; -1 with errno set if it has none.
  static int version();

  // Begins with rules that allow nothing: no files, neither connecting nor listening by TCP unless
  // `network`, and no signals to processes outside. Returns 0 or an errno value.
  int create(int version, bool network, bool unix_sockets);

  // Returns 0 or an errno value. A symbolic link leads to what is allowed.
  int allow(const char *path, Access access) const;

  // Applies the rules to this process and all that it starts. The process must have given up new
  // privileges. Returns 0 or an errno value.
  int restrict() const;

 private:
  int file_ = -1;
  uint64_t handled_ = 0;
  bool unix_sockets_ = false;
};

}  // namespace tarn::server

#endif
