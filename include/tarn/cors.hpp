/* Requests of pages of other sites. */
#ifndef TARN_CORS_HPP
#define TARN_CORS_HPP

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "argument.hpp"
#include "response.hpp"

namespace tarn {
namespace detail {

inline bool is_in_scheme(char c) noexcept {
  return is_digit(c) || (c >= 'a' && c <= 'z') || is_among(c, "+-.");
}
inline bool is_in_host(char c) noexcept {
  return is_digit(c) || (c >= 'a' && c <= 'z') || is_among(c, "-._:[]");
}

// Whether a text is an origin as browsers send it: "https://example.org", with a port if need be.
inline bool is_origin(std::string_view text) noexcept {
  constexpr std::string_view kMark = "://";
  const std::size_t mark = text.find(kMark);
  if (mark == std::string_view::npos || mark == 0) return false;
  const std::string_view scheme(text.data(), mark);
  text.remove_prefix(mark + kMark.size());
  return all_of(scheme, is_in_scheme) && !text.empty() && all_of(text, is_in_host);
}

}  // namespace detail

/** Which pages of other sites may read what the script responds to their scripts (CORS).
 *
 *  @code
 *  tarn::Cors cors({"https://app.example.org"});
 *  cors.methods("PUT, DELETE").headers("Content-Type").max_age(600);
 *  tarn::Response response;
 *  cors.apply(response);
 *  if (cors.is_preflight()) return response.send() ? 0 : 1;
 *  @endcode
 *
 *  It guards what other sites may read, not what they may cause: browsers send simple requests, such
 *  as a POST of a form, without asking. */
class Cors {
 public:
  /** Allows the pages of these sites. They are compared at once with the origin of the request.
   *
   *  @param origins  such as "https://app.example.org": a scheme, a host and perhaps a port, in lower
   *                  case and without a path */
  Cors(std::initializer_list<std::string_view> origins) noexcept {
    const char *const origin = std::getenv("HTTP_ORIGIN");
    if (origin != nullptr) origin_ = origin;
    for (const std::string_view each : origins) {
      if (!detail::is_origin(each)) problem_ = "CORS origin must be like https://example.org";
      allowed_ = allowed_ || (origin != nullptr && each == origin_);
    }
  }

  /** Allows the pages of all sites, for content that everybody may read. */
  static Cors any_origin() noexcept {
    Cors any({});
    any.any_ = true;
    return any;
  }

  /** Lets those pages send cookies and read the response to them. Not with any_origin(): every page
   *  could then read what is meant for the visitor. */
  Cors &credentials() noexcept {
    credentials_ = true;
    return *this;
  }
  /** Allows methods other than GET, HEAD and POST: `PUT, DELETE`. */
  Cors &methods(detail::KeptText methods) noexcept {
    methods_ = std::move(methods);
    return *this;
  }
  /** Allows headers in requests: `Content-Type, X-Lake`. A Content-Type that no form has, such as that
   *  of JSON, must be allowed. */
  Cors &headers(detail::KeptText names) noexcept {
    headers_ = std::move(names);
    return *this;
  }
  /** Lets pages read these headers of the response, too: `ETag`. */
  Cors &expose(detail::KeptText names) noexcept {
    exposed_ = std::move(names);
    return *this;
  }
  /** Lets browsers remember for this many seconds what is allowed. */
  Cors &max_age(std::int64_t seconds) noexcept {
    max_age_ = seconds;
    has_max_age_ = true;
    return *this;
  }

  /** Tells whether a browser asks what is allowed, before it sends the request itself. Send a response
   *  with what apply() adds, and nothing else. */
  static bool is_preflight() noexcept {
    return std::string_view(CgiEnv_getRequestMethod(nullptr)) == "OPTIONS" &&
           std::getenv("HTTP_ORIGIN") != nullptr &&
           std::getenv("HTTP_ACCESS_CONTROL_REQUEST_METHOD") != nullptr;
  }

  /** Adds the headers that allow this request, if its origin is allowed, and Vary. For a preflight it
   *  sets status 204. An invalid origin, and credentials() for any_origin(), are refused. Call it once
   *  for a response: browsers refuse one with two Access-Control-Allow-Origin. */
  template <class Applied = Response>
  Applied &apply(Response &response) const noexcept {
    const bool preflight = is_preflight();
    response.refuse(problem_);
    if (any_ && credentials_) response.refuse("CORS: credentials need a list of origins");
    for (const detail::KeptText *const text : {&methods_, &headers_, &exposed_}) {
      if (!*text) response.refuse("CORS has a text that is a null pointer or could not be copied");
    }
    if (preflight) {
      response.status(204).header(
          "Vary", "Origin, Access-Control-Request-Method, Access-Control-Request-Headers");
    } else if (!any_) {
      response.header("Vary", "Origin");
    }
    if (!allowed_ && !any_) return response;
    response.header("Access-Control-Allow-Origin", any_ ? "*" : origin_);
    if (credentials_) response.header("Access-Control-Allow-Credentials", "true");
    const auto add = [&response](std::string_view name, const detail::KeptText &value) {
      if (!value.view().empty()) response.header(name, value.view());
    };
    if (!preflight) {
      add("Access-Control-Expose-Headers", exposed_);
      return response;
    }
    add("Access-Control-Allow-Methods", methods_);
    add("Access-Control-Allow-Headers", headers_);
    if (has_max_age_) {
      char digits[24];
      std::snprintf(digits, sizeof digits, "%lld", static_cast<long long>(max_age_));
      response.header("Access-Control-Max-Age", digits);
    }
    return response;
  }

 private:
  std::string_view origin_;
  bool allowed_ = false;
  bool any_ = false;
  bool credentials_ = false;
  const char *problem_ = nullptr;
  detail::KeptText methods_ = "";
  detail::KeptText headers_ = "";
  detail::KeptText exposed_ = "";
  std::int64_t max_age_ = 0;
  bool has_max_age_ = false;
};

}  // namespace tarn

#endif  // TARN_CORS_HPP
