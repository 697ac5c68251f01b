/* Choosing a function by the method and the path of a request. */
#ifndef TARN_ROUTER_HPP
#define TARN_ROUTER_HPP

#include <cstddef>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "input.hpp"
#include "response.hpp"

namespace tarn {
namespace detail {

// The name in "{name}"; empty if the segment is another text.
inline std::string_view placeholder(std::string_view segment) noexcept {
  const bool has_name = segment.size() > 2 && segment.front() == '{' && segment.back() == '}';
  // substr() needs the C++ runtime unless the compiler optimizes.
  return has_name ? std::string_view(segment.data() + 1, segment.size() - 2) : std::string_view();
}

inline bool matches_path(std::string_view pattern, std::string_view path) noexcept {
  while (!pattern.empty() && !path.empty() && pattern[0] == '/' && path[0] == '/') {
    const std::string_view wanted = take_segment(pattern);
    const std::string_view segment = take_segment(path);
    if (placeholder(wanted).empty() ? wanted != segment : !is_path_value(segment)) return false;
  }
  return pattern.empty() && path.empty();
}

// Whether a method is one of a list such as "GET, HEAD".
inline bool has_method(std::string_view words, std::string_view word) noexcept {
  std::size_t begin = 0;
  while (begin < words.size()) {
    std::size_t end = begin;
    while (end < words.size() && words[end] != ',') ++end;
    if (std::string_view(words.data() + begin, end - begin) == word) return true;
    begin = end + 2;  // ", "
  }
  return false;
}

}  // namespace detail

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
  std::optional<std::string_view> operator[](std::string_view name) const noexcept {
    std::string_view pattern = pattern_;
    std::string_view path = path_;
    while (!pattern.empty() && !path.empty()) {
      const std::string_view wanted = detail::take_segment(pattern);
      const std::string_view segment = detail::take_segment(path);
      if (!name.empty() && detail::placeholder(wanted) == name) return segment;
    }
    return {};
  }

 private:
  std::string_view pattern_;
  std::string_view path_;
};

/** Chooses a function by the method and the path of the request.
 *
 *  @code
 *  tarn::Router router;
 *  router.route("GET", "/", list);
 *  router.route("GET", "/item/{id}", [](const tarn::PathValues &path) {
 *    return tarn::Response().send_text(*path["id"]) ? 0 : 1;
 *  });
 *  return router.finish();
 *  @endcode
 *
 *  route() calls its function at once if the request matches and no earlier route did. finish() sends
 *  the response if none did: 405 with the methods of the path, or 404.
 */
class Router {
 public:
  /** Routes the request of this process: REQUEST_METHOD and PATH_INFO. */
  Router() noexcept : Router(CgiEnv_getRequestMethod(nullptr), CgiEnv_getPathInfo(nullptr)) {}

  /** Routes another request. Both texts must live as long as the router; an empty path is "/". */
  Router(std::string_view method, std::string_view path) noexcept
      : method_(method), path_(path.empty() ? "/" : path) {}

  Router(const Router &) = delete;
  Router &operator=(const Router &) = delete;

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
  Router &route(std::string_view method, std::string_view pattern, Handler &&handler) {
    if (done_ || !detail::matches_path(pattern, path_)) return *this;
    if (method != method_ && !(method == "GET" && method_ == "HEAD")) {
      allow(method);
      return *this;
    }
    done_ = true;
    const PathValues values(pattern, path_);
    if constexpr (std::is_invocable_v<Handler, const PathValues &>) {
      status_ = status_of([&] { return handler(values); });
    } else {
      status_ = status_of(handler);
    }
    return *this;
  }

  /** Sends a response if no route had the request: status 405 and the methods that the path allows, or
   *  404.
   *
   *  @return what the function returned; if there was none, 0, or 1 if the response could not be sent
   */
  [[nodiscard]] int finish() noexcept {
    if (detail::exchanged(done_, true)) return status_;
    const Text methods = methods_.take();
    Response response;
    bool sent = false;
    if (!methods) {
      static_cast<void>(response.status(500).send_text("Internal Server Error\n"));
    } else if (methods.view().empty()) {
      sent = response.status(404).send_text("Not Found\n");
    } else {
      sent = response.status(405).allow(methods.view()).send_text("Method Not Allowed\n");
    }
    status_ = sent ? 0 : 1;
    return status_;
  }

 private:
  template <class Function>
  static int status_of(Function &&function) {
    if constexpr (std::is_void_v<std::invoke_result_t<Function>>) {
      function();
      return 0;
    } else {
      return function();
    }
  }

  void allow(std::string_view method) noexcept {
    add(method);
    if (method == "GET") add("HEAD");
  }

  void add(std::string_view method) noexcept {
    if (detail::has_method(methods_.written(), method)) return;
    methods_ << (methods_.written().empty() ? "" : ", ") << method;
  }

  std::string_view method_;
  std::string_view path_;
  detail::Buffer methods_;  // of the routes with this path
  bool done_ = false;
  int status_ = 0;
};

}  // namespace tarn

#endif  // TARN_ROUTER_HPP
