// The file of this program, from which new workers are started.
#ifndef TARN_SERVE_PROGRAM_H
#define TARN_SERVE_PROGRAM_H

#include "core/bytes.h"
#include "serve/environment.h"
#include "serve/worker.h"

namespace tarn::server {

class Program {
 public:
  // Finds the path that the program was started by, even if that names another file by now. Returns
  // false if it cannot be found.
  bool find();

  // Opens the file that has the path now. Returns -1 with errno set.
  int open() const;

  // Replaces this process by a worker that runs a file that open() opened. Returns if that fails, with
  // errno set.
  void run(int file, const WorkerFiles &files) const;

  const char *path() const { return path_.data(); }

 private:
  CommandLine line_;
  Bytes path_;
};

// Whether run() started this process.
bool wasStartedAsWorker();

// Takes over the files that run() passed. Returns false if it did not start this process.
bool takeOver(WorkerFiles &files);

}  // namespace tarn::server

#endif
