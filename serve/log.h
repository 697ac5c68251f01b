// The log of the service, and its clock.
#ifndef TARN_SERVE_LOG_H
#define TARN_SERVE_LOG_H

#include <cstdint>
#include <string_view>

namespace tarn::server {

// Writes a line to standard error, in one piece. Long lines are cut.
[[gnu::format(printf, 1, 2)]] void log(const char *format, ...);

// Writes what a script wrote to its standard error.
//
// If nobody reads the log, this process must not wait forever: it waits a second, then drops what
// cannot be written until there is room again.
void writeLog(std::string_view bytes);

// Milliseconds of a clock that does not jump.
uint64_t currentTime();

}  // namespace tarn::server

#endif
