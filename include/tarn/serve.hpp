/* One program as a CGI script and as a FastCGI service.
 *
 * serve() calls a script once, or for each request in a process of its own. It uses libtarn_serve: link
 * with -ltarn_serve. A script that includes only this header needs no other library; one that uses
 * none of it does not need libtarn_serve.
 */
#ifndef TARN_SERVE_HPP
#define TARN_SERVE_HPP

#include <new>
#include <type_traits>
#include <utility>

#include "../tarn_serve.h"
#include "adopt.hpp"

namespace tarn {
namespace detail {

enum class Purpose { kScript, kPreparation };

// A function of C that calls a callable of this type. A copy of the callable is kept until the process
// ends and is never destroyed, so that nothing has to run at exit. Scripts and preparations are kept
// apart: both may be functions of the same type.
template <Purpose purpose, class Callable>
class HeldCallable {
 public:
  using Function = int (*)();

  template <class Given>
  static Function keep(Given &&given) noexcept {
    callable_ = ::new (static_cast<void *>(storage_)) Callable(std::forward<Given>(given));
    return call;
  }

 private:
  using Result = std::invoke_result_t<Callable &>;
  static_assert(std::is_same_v<Result, int> || std::is_void_v<Result>,
                "it must return an exit status as an int, or nothing");

  // An exception that the script does not catch ends the process.
  static int call() noexcept {
    if constexpr (std::is_void_v<Result>) {
      (*callable_)();
      return 0;
    } else {
      return (*callable_)();
    }
  }

  alignas(Callable) static inline unsigned char storage_[sizeof(Callable)];
  static inline Callable *callable_ = nullptr;
};

}  // namespace detail

/** Runs a script: once as a CGI script, or for each request as a FastCGI service. tarn_serve()
 *  explains which, and how a service ends.
 *
 *  @code
 *  int main() {
 *    const tarn::Element page("p", "Hello");
 *    return tarn::serve([&page] { return tarn::Response().send(page) ? 0 : 1; });
 *  }
 *  @endcode
 *
 *  An uncaught exception ends the process, and the visitor gets status 500. In a service, flush
 *  `std::cout` at the end of a script that turns off `std::ios::sync_with_stdio`.
 *
 *  @param script  what to call without arguments: a lambda, with captures if you like, a function or
 *                 a function object. It returns an exit status as an int, or nothing, which is
 *                 status 0. A copy is kept until the process ends.
 *  @return the exit status of the program
 */
template <class Script>
int serve(Script &&script) noexcept {
  using Held = detail::HeldCallable<detail::Purpose::kScript, std::decay_t<Script>>;
  return tarn_serve(Held::keep(std::forward<Script>(script)));
}

/** Sets what runs before the first request: reading templates, computing tables. Call it before
 *  serve(). tarn_serve_prepare() explains what it may do.
 *
 *  @param callback  what to call without arguments. It returns nothing, or 0; any other int ends the
 *                   program with that exit status. A copy is kept until the process ends.
 */
template <class Callback>
void serve_prepare(Callback &&callback) noexcept {
  using Held = detail::HeldCallable<detail::Purpose::kPreparation, std::decay_t<Callback>>;
  tarn_serve_prepare(Held::keep(std::forward<Callback>(callback)));
}

}  // namespace tarn

#endif  // TARN_SERVE_HPP
