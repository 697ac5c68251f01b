#ifndef TARN_REQUEST_CGI_ENV_H
#define TARN_REQUEST_CGI_ENV_H

#include "core/cgigs.h"

namespace tarn {

// Captures the environment and reads the body; null without memory. The status is that of keeping
// the body.
Node *newEnvironment(TarnStatus &status);

void destroyEnvironment(Node *environment);

// The byte buffer with the body, or null.
const Node *bodyOf(const Node &environment);

}  // namespace tarn

#endif
