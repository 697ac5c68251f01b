/* Responses. */
#ifndef TARN_RESPONSE_HPP
#define TARN_RESPONSE_HPP

#include <cstdio>
#include <ctime>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "html.hpp"
#include "set_cookie.hpp"

namespace tarn {

namespace detail {

constexpr bool is_in_header(char c) noexcept { return !is_control(c) || c == '\t'; }

// A browser reads "\" as "/", and leaves out what is not visible.
constexpr bool is_in_url(char c) noexcept { return is_visible(c) && !is_among(c, "\"<>\\^`{|}"); }

// "//" would begin another host.
constexpr bool is_own_path(std::string_view url) noexcept {
  const bool absolute = !url.empty() && url[0] == '/' && (url.size() == 1 || url[1] != '/');
  return absolute && all_of(url, is_in_url);
}

inline bool is_site_url(std::string_view url) noexcept {
  for (const std::string_view scheme : {"http://", "https://"}) {
    const bool has_host = url.size() > scheme.size() && !is_among(url[scheme.size()], "/?#");
    if (begins_with(url, scheme) && has_host) return all_of(url, is_in_url);
  }
  return false;
}

struct Reason {
  int status;
  const char *phrase;
};

inline constexpr Reason kReasons[] = {{201, "Created"},
                                      {202, "Accepted"},
                                      {204, "No Content"},
                                      {206, "Partial Content"},
                                      {301, "Moved Permanently"},
                                      {302, "Found"},
                                      {303, "See Other"},
                                      {304, "Not Modified"},
                                      {307, "Temporary Redirect"},
                                      {308, "Permanent Redirect"},
                                      {400, "Bad Request"},
                                      {401, "Unauthorized"},
                                      {403, "Forbidden"},
                                      {404, "Not Found"},
                                      {405, "Method Not Allowed"},
                                      {406, "Not Acceptable"},
                                      {409, "Conflict"},
                                      {410, "Gone"},
                                      {411, "Length Required"},
                                      {412, "Precondition Failed"},
                                      {413, "Content Too Large"},
                                      {415, "Unsupported Media Type"},
                                      {422, "Unprocessable Content"},
                                      {429, "Too Many Requests"},
                                      {500, "Internal Server Error"},
                                      {501, "Not Implemented"},
                                      {502, "Bad Gateway"},
                                      {503, "Service Unavailable"},
                                      {504, "Gateway Timeout"}};

constexpr const char *reason_for(int status) noexcept {
  for (const Reason &reason : kReasons) {
    if (reason.status == status) return reason.phrase;
  }
  return "Other";
}

inline constexpr std::string_view kPlainText = "text/plain; charset=utf-8";

// Written by functions of their own, or by the server.
inline constexpr std::string_view kOwnHeaders[] = {
    "Connection", "Content-Length", "Content-Type",     "Location",
    "Set-Cookie", "Status",         "Transfer-Encoding"};

inline constexpr const char *kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
inline constexpr const char *kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

}  // namespace detail

/** The answer to a request.
 *
 *  @code
 *  return tarn::Response().status(404).send(page) ? 0 : 1;
 *  @endcode
 *
 *  Functions before send() set what the answer says, in any order. What cannot be written safely,
 *  such as a header with a line end in it, is refused: send() then answers false, problem() tells
 *  why, and the visitor gets a plain page for status 500 instead.
 */
class Response {
 public:
  /** Begins an answer.
   *
   *  @param out  where the server reads; stays open */
  explicit Response(FILE *out = stdout) noexcept
      : out_(out), head_(std::string_view(CgiEnv_getRequestMethod(nullptr)) == "HEAD") {}
  Response(const Response &) = delete;
  Response &operator=(const Response &) = delete;

  /** 200 to 599; 200 without it. */
  Response &status(int code) noexcept {
    if (code < 200 || code > 599) return refuse("a status is none");
    status_ = code;
    return *this;
  }

  /** What the body is, instead of what the sending function says. */
  Response &content_type(std::string_view type) noexcept {
    if (type.empty() || !detail::all_of(type, detail::is_in_header)) {
      return refuse("a content type is none");
    }
    return keep(type_, {type});
  }

  /** Sends the browser on to a page of this site.
   *
   *  The status goes with it, so that the browser asks anew: a path alone would let the server
   *  answer with that page under this address.
   *
   *  @param path  with the query, if any; begins with one "/", in ASCII as in a URL
   *  @param code  301, 302, 303, 307 or 308; with 303 a form is not sent again
   */
  Response &redirect(std::string_view path, int code = 303) noexcept {
    if (!detail::is_own_path(path)) return refuse("a path to redirect to is none of this site");
    return redirect_to(path, code);
  }

  /** Sends the browser on to any site: never one that a visitor named.
   *
   *  @param url  begins with "http://" or "https://" and a host; otherwise as for redirect()
   */
  Response &redirect_away(std::string_view url, int code = 303) noexcept {
    if (!detail::is_site_url(url)) return refuse("a URL to redirect to is none");
    return redirect_to(url, code);
  }

  /** Adds a header of any name but those that have a function here or are the server's.
   *
   *  @param name   letters, digits and any of "!#$%&'*+-.^_`|~"
   *  @param value  without control characters other than tabs
   */
  Response &header(std::string_view name, std::string_view value) noexcept {
    if (name.empty() || !detail::all_of(name, detail::is_token)) {
      return refuse("a header has a name that is none");
    }
    if (detail::is_one_of(name, detail::kOwnHeaders)) return refuse("a header is not to be added");
    if (!detail::all_of(value, detail::is_in_header)) {
      return refuse("a header's value has a control character");
    }
    lines_ << name << ": " << value << "\r\n";
    return *this;
  }

  /** Keeps the answer out of all caches. */
  Response &no_store() noexcept { return header("Cache-Control", "no-store"); }

  /** Keeps browsers from taking the body for another type than the content type. */
  Response &nosniff() noexcept { return header("X-Content-Type-Options", "nosniff"); }

  /** Keeps the page out of other pages' frames. */
  Response &deny_framing() noexcept { return header("X-Frame-Options", "DENY"); }

  /** Keeps the page's address from those that it links to. */
  Response &no_referrer() noexcept { return header("Referrer-Policy", "no-referrer"); }

  /** What the page may load and run: `default-src 'self'` and the like. */
  Response &content_security_policy(std::string_view policy) noexcept {
    return header("Content-Security-Policy", policy);
  }

  /** The language of the body: `en`. */
  Response &content_language(std::string_view tag) noexcept {
    return header("Content-Language", tag);
  }

  /** The methods that the script takes: `GET, POST`. Goes with status 405. */
  Response &allow(std::string_view methods) noexcept { return header("Allow", methods); }

  /** When the content was changed. */
  Response &last_modified(std::time_t when) noexcept {
    std::tm utc;
    if (gmtime_r(&when, &utc) == nullptr || utc.tm_year < -1900 || utc.tm_year > 9999 - 1900) {
      return refuse("a time is none");
    }
    char date[64];
    std::snprintf(date, sizeof date, "%s, %02d %s %04d %02d:%02d:%02d GMT",
                  detail::kDays[utc.tm_wday], utc.tm_mday, detail::kMonths[utc.tm_mon],
                  utc.tm_year + 1900, utc.tm_hour, utc.tm_min, utc.tm_sec);
    return header("Last-Modified", date);
  }

  /** A name for this state of the content, without its quotation marks. */
  Response &etag(std::string_view tag) noexcept {
    const auto in_tag = [](char c) { return !detail::is_control(c) && c != ' ' && c != '"'; };
    if (!detail::all_of(tag, in_tag)) return refuse("an etag is none");
    lines_ << "ETag: \"" << tag << "\"\r\n";
    return *this;
  }

  /** Lets the browser save the body under this name. */
  Response &attachment(std::string_view name) noexcept {
    lines_ << "Content-Disposition: attachment; filename*=UTF-8''";
    detail::put_url(lines_, name);
    lines_ << "\r\n";
    return *this;
  }

  /** Sets a cookie in the browser. */
  Response &cookie(const SetCookie &cookie) noexcept {
    if (const char *problem = cookie.problem()) return refuse(problem);
    cookie.put(cookies_);
    return *this;
  }

  /** Whether the header goes without the body. By itself it does when the request's method is HEAD.
   */
  Response &head(bool alone) noexcept {
    head_ = alone;
    return *this;
  }

  /** Sends a page, as text/html in UTF-8.
   *
   *  @return whether the answer has been written, as it was meant to be and to the end; otherwise
   *          problem() tells what went wrong
   */
  [[nodiscard]] bool send(const Element &page) noexcept {
    const Text body = html(page);
    refuse(body.problem());
    return send_as("text/html; charset=utf-8", body.view());
  }
  /** Sends an answer without content, such as a redirection. @return as for a page */
  [[nodiscard]] bool send() noexcept { return send_text({}); }
  /** Sends a text, as text/plain in UTF-8. @return as for a page */
  [[nodiscard]] bool send_text(std::string_view text) noexcept {
    return send_as(detail::kPlainText, text);
  }
  /** Sends bytes, as application/octet-stream. @return as for a page */
  [[nodiscard]] bool send_bytes(std::string_view bytes) noexcept {
    return send_as("application/octet-stream", bytes);
  }

  /** What was refused first, or failed, in words for the server's log. @return a constant text;
   *  null when all is well */
  const char *problem() const noexcept { return problem_; }

 private:
  // The first problem stays.
  Response &refuse(const char *problem) noexcept {
    if (problem_ == nullptr) problem_ = problem;
    return *this;
  }

  Response &redirect_to(std::string_view url, int code) noexcept {
    constexpr int kCodes[] = {301, 302, 303, 307, 308};
    bool redirects = false;
    for (const int one : kCodes) redirects = redirects || code == one;
    if (!redirects) return refuse("a status does not redirect");
    return keep(location_, {"Location: ", url, "\r\n"}).status(code);
  }

  Response &keep(Text &place, std::initializer_list<std::string_view> pieces) noexcept {
    detail::Buffer text;
    for (const std::string_view piece : pieces) text << piece;
    place = text.take();
    return refuse(place.problem());
  }

  bool send_as(std::string_view type, std::string_view body) noexcept {
    if (std::exchange(sent_, true)) {
      refuse("an answer has been sent before");
      return false;
    }
    const Text lines = lines_.take();
    const Text cookies = cookies_.take();
    refuse(lines.problem()).refuse(cookies.problem());
    if (problem_ == nullptr) {
      write(status_, type_.view().empty() ? type : type_.view(),
            {location_.view(), lines.view(), cookies.view()}, body);
    } else {
      write(500, detail::kPlainText, {}, "Internal Server Error\n");
    }
    if (std::fflush(out_) != 0 || std::ferror(out_) != 0) refuse("the answer was not written");
    return problem_ == nullptr;
  }

  // A server takes 200 as said, and may then answer 304 in its place.
  void write(int status, std::string_view type, std::initializer_list<std::string_view> lines,
             std::string_view body) noexcept {
    const bool has_body = status != 204 && status != 304;
    if (status != 200) std::fprintf(out_, "Status: %d %s\r\n", status, detail::reason_for(status));
    if (has_body) {
      put("Content-Type: ");
      put(type);
      put("\r\n");
    }
    for (const std::string_view line : lines) put(line);
    if (has_body) std::fprintf(out_, "Content-Length: %zu\r\n", body.size());
    put("\r\n");
    if (has_body && !head_) put(body);
  }

  void put(std::string_view text) noexcept {
    if (!text.empty()) std::fwrite(text.data(), 1, text.size(), out_);
  }

  FILE *out_;
  bool head_;
  bool sent_ = false;
  int status_ = 200;
  Text type_{adopt, nullptr, 0};
  Text location_{adopt, nullptr, 0};
  detail::Buffer lines_;
  detail::Buffer cookies_;
  const char *problem_ = nullptr;
};

}  // namespace tarn

#endif  // TARN_RESPONSE_HPP
