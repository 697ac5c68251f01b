/* Choosing a function by the method and the path of a request. */
#ifndef TARN_ROUTER_HPP
#define TARN_ROUTER_HPP

#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "input.hpp"
#include "response.hpp"

namespace tarn {

/** The values of a route's placeholders. Valid as long as the path that was routed. */
class PathValues {
 public:
  /** Compares a path with a pattern that it matches, as described at Router::route(). */
  PathValues(std::string_view pattern, std::string_view path) noexcept
      : pattern_(pattern), path_(path) {}

  /** The value of a placeholder.
   *
   *  @param name  without braces
   *  @return a text without "/", neither empty nor "." nor ".."; nothing if the route has no such
   *          placeholder
   */
  template <class Value = std::string_view>
  std::optional<Value> operator[](std::string_view name) const noexcept {
    std::optional<Value> value;
    match(name, &value);
    return value;
  }

 private:
  friend class Router;

  // Compares the path with the pattern, and finds the value of the first placeholder of this name.
  //
  // @return whether they match
  template <class = void>
  bool match(std::string_view name, std::optional<std::string_view> *value) const noexcept {
    std::string_view pattern = pattern_;
    std::string_view path = path_;
    while (!pattern.empty() && !path.empty() && pattern[0] == '/' && path[0] == '/') {
      const std::string_view wanted = detail::take_segment(pattern);
      const std::string_view segment = detail::take_segment(path);
      const bool is_open = wanted.size() > 2 && wanted.front() == '{' && wanted.back() == '}';
      if (is_open ? !detail::is_path_value(segment) : wanted != segment) return false;
      // substr() needs the C++ runtime unless the compiler optimizes.
      const std::string_view inside(wanted.data() + 1, is_open ? wanted.size() - 2 : 0);
      if (is_open && value != nullptr && !*value && inside == name) *value = segment;
    }
    return pattern.empty() && path.empty();
  }

  std::string_view pattern_;
  std::string_view path_;
};

/** Chooses a function by the method and the path of the request.
 *
 *  @code
 *  return tarn::route("GET", "/", list)
 *      .route("GET", "/item/{id}", [](const tarn::PathValues &path) {
 *        return tarn::Response().send_text(*path["id"]) ? 0 : 1;
 *      })
 *      .finish();
 *  @endcode
 *
 *  tarn::route() makes a router for the request of this process. To add routes one after the other,
 *  give it a name. route() calls its function at once if the request matches and no earlier route did.
 *  finish() sends the response if none did: 405 with the methods of the path, or 404.
 */
class Router {
 public:
  /** Routes the request of this process: REQUEST_METHOD and PATH_INFO, which must not change as long as
   *  the router is used. */
  Router() noexcept : Router(CgiEnv_getRequestMethod(nullptr), CgiEnv_getPathInfo(nullptr)) {}

  /** Routes another request. Both texts must live as long as the router; an empty path is "/". */
  Router(std::string_view method, std::string_view path) noexcept
      : method_(method), path_(path.empty() ? "/" : path) {}

  // `other` calls no function and sends nothing afterwards, and its finish() returns 1.
  Router(Router &&other) noexcept
      : method_(other.method_),
        path_(other.path_),
        methods_(std::move(other.methods_)),
        done_(other.done_),
        status_(other.status_) {
    other.done_ = true;
    other.status_ = 1;
  }

  /** Calls a function if the request has this method and a path like this one, and no earlier route
   *  had.
   *
   *  @param method   as it is sent, such as "GET", which includes HEAD
   *  @param pattern  a path that begins with "/". "{name}" between two "/" is a placeholder for any
   *                  text there but "", "." and "..". Otherwise the path must be the same, including a
   *                  "/" at its end.
   *  @param handler  takes a `const PathValues &` or nothing. It returns an exit status as an int, or
   *                  nothing, which is status 0.
   */
  template <class Handler>
  Router &route(std::string_view method, std::string_view pattern, Handler &&handler) & {
    const PathValues values(pattern, path_);
    if (done_ || !values.match({}, nullptr)) return *this;
    done_ = method == method_ || (method == "GET" && method_ == "HEAD");
    if (!done_) {
      allow(method);
      if (method == "GET") allow("HEAD");
    } else if constexpr (std::is_invocable_v<Handler, const PathValues &>) {
      status_ = status_of([&] { return handler(values); });
    } else {
      status_ = status_of(handler);
    }
    return *this;
  }

  // The same on a router without a name, which ends with the statement.
  template <class Handler>
  [[nodiscard]] Router &&route(std::string_view method, std::string_view pattern,
                               Handler &&handler) && {
    return std::move(route(method, pattern, handler));
  }

  /** Sends a response if no route had the request: status 405 and the methods that the path allows, or
   *  404.
   *
   *  @return what the function returned; if there was none, 0, or 1 if the response could not be sent
   */
  template <class Status = int>
  [[nodiscard]] Status finish() noexcept {
    if (detail::exchanged(done_, true)) return status_;
    const Text methods = methods_.take();
    // What cannot be allowed, because an allocation failed, makes status 500 of it.
    const bool exists = !methods || !methods.view().empty();
    Response response = Response().status(exists ? 405 : 404);
    if (exists) response.allow(methods ? methods.c_str() : nullptr);
    return status_ = response.send_text(exists ? "Method Not Allowed\n" : "Not Found\n") ? 0 : 1;
  }

 private:
  template <class Function>
  static int status_of(Function &&function) {
    if constexpr (std::is_void_v<std::invoke_result_t<Function>>) {
      return function(), 0;
    } else {
      return function();
    }
  }

  // Adds a method to the list unless it is there.
  template <class = void>
  void allow(std::string_view method) noexcept {
    const std::string_view all = methods_.written();
    for (auto at = all.find(method); at != std::string_view::npos; at = all.find(method, at + 1)) {
      const auto end = at + method.size();
      if ((at == 0 || all[at - 1] == ' ') && (end == all.size() || all[end] == ',')) return;
    }
    methods_ << (all.empty() ? "" : ", ") << method;
  }

  std::string_view method_;
  std::string_view path_;
  detail::Buffer methods_;  // of the routes with this path
  bool done_ = false;
  int status_ = 0;
};

/** Makes a router for the request of this process, and begins with this route.
 *
 *  @code
 *  return tarn::route("GET", "/", list).route("GET", "/item/{id}", item).finish();
 *  @endcode
 *
 *  @param method,pattern,handler  as for Router::route()
 *  @return a router: add routes, then call Router::finish() */
template <class Handler>
[[nodiscard]] Router route(std::string_view method, std::string_view pattern, Handler &&handler) {
  return Router().route(method, pattern, handler);
}

}  // namespace tarn

#endif  // TARN_ROUTER_HPP
