// New files that appear under their names when they are complete, or not at all.
#ifndef TARN_FORM_SAVING_H
#define TARN_FORM_SAVING_H

#include <cstdint>
#include <string_view>

#include "core/files.h"

namespace tarn::form {

// A file in a folder, without its name until keep(). Functions return 0 or an errno value.
class NewFile {
 public:
  NewFile() = default;
  ~NewFile() { close(); }
  NewFile(const NewFile &) = delete;
  NewFile &operator=(const NewFile &) = delete;

  // EINVAL and EEXIST for a name that cannot be used.
  int open(const char *folder, const char *name);

  // Whether keep() waits for the disk. close() does not change it.
  void setDurable(bool durable) { durable_ = durable; }

  int write(std::string_view bytes);

  // Puts the file under its name, and on the disk if it is to be durable. After EEXIST, keepIn() can
  // be tried.
  int keep(const char *name);

  // Whether keep() failed because another process took the name meanwhile.
  bool isUnnamed() const { return unnamed_; }

  // keep() under another name. EXDEV if the folder is another one.
  int keepIn(const char *folder, const char *name);

  bool isOpen() const { return folder_ >= 0; }

  // Closes the file. Nothing of it is left unless it was kept.
  void close();

 private:
  int openNamed();
  int checkWritten() const;
  int publish(const char *name);
  int isNameOf(const char *name, int file, bool &same) const;
  bool removeStale(const char *name) const;

  int folder_ = -1;
  int file_ = -1;
  uint64_t size_ = 0;
  uint64_t started_ = 0;     // how much of it is on its way to the disk
  char temporary_[32] = "";  // the name it has before keep(), if it needs one
  bool unnamed_ = false;
  bool durable_ = true;
};

}  // namespace tarn::form

#endif
