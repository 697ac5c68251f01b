// What the server tells a script: environment variables, the body, the cookies.
#ifndef TARN_REQUEST_CGI_ENV_H
#define TARN_REQUEST_CGI_ENV_H

#include <string_view>

#include "core/cgigs.h"
#include "request/body.h"

namespace tarn::internal {

// What CgiEnv_new() makes. The input is the part of the body that arrived, allocated to the end of the
// process; null data if there is no body.
struct Capture {
  Node *environment = nullptr;
  TarnStatus status = TARN_BAD_ARGUMENT;
  std::string_view input;
  Body body;
};

void captureEnvironment(Capture &capture);

bool isPost();

void destroyEnvironment(Node *environment);

}  // namespace tarn::internal

#endif
