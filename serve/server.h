// The service: listening sockets, and the process that looks after the others.
#ifndef TARN_SERVE_SERVER_H
#define TARN_SERVE_SERVER_H

#include "serve/options.h"

namespace tarn::server {

// Serves FastCGI until SIGTERM or SIGINT. Returns the exit status.
//
// The process that calls this is the supervisor. It owns the listening sockets and starts a worker,
// which accepts connections and forks a child for each request. At SIGHUP it starts a worker from the
// program's file, which may be a new one by then; when that worker is ready, the old one hands its
// idle connections over, answers the requests that it has, and ends. So the process number of the
// service stays the same, and no request is lost.
int serve(const Options &options);

}  // namespace tarn::server

#endif
