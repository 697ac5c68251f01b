// What the server tells a script: environment variables, the body, the cookies.
#ifndef TARN_REQUEST_CGI_ENV_H
#define TARN_REQUEST_CGI_ENV_H

#include <string_view>

#include "core/cgigs.h"

namespace tarn::internal {

// What CgiEnv_new() makes. The input is the part of the body that arrived, allocated to the end of the
// process; null data if there is no body.
struct Capture {
  Node *environment;
  TarnStatus status;
  std::string_view input;
};

Capture captureEnvironment();

bool isPost();

void destroyEnvironment(Node *environment);

}  // namespace tarn::internal

#endif
