// The files that the kernel opens to start a program.
#ifndef TARN_SERVE_PROGRAM_FILES_H
#define TARN_SERVE_PROGRAM_FILES_H

#include <climits>

namespace tarn::server {

// Finds a program as execvp() does. Returns false with errno set if there is none.
bool findProgram(const char *name, char (&path)[PATH_MAX]);

// The exit status of shells for a program that cannot be run, by the error: 127 if there is none, 126
// if it may not be run.
int statusOfMissingProgram(int error);

// What runs a program.
struct Runner {
  enum class Kind {
    kNone,         // the kernel alone, or nothing that is known here
    kInterpreter,  // of a script
    kLoader,       // of shared libraries
  };
  static constexpr int kMostOfLine = 256;  // that the kernel reads of a script

  Kind kind = Kind::kNone;
  char path[PATH_MAX] = "";
  char name[kMostOfLine] = "";  // of the program that /usr/bin/env looks for
};

// Reads it from the beginning of a file. Returns false with errno set if that cannot be read.
bool readRunner(const char *program, Runner &runner);

}  // namespace tarn::server

#endif
