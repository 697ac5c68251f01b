/* Responses. */
#ifndef TARN_RESPONSE_HPP
#define TARN_RESPONSE_HPP

#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "argument.hpp"
#include "conditions.hpp"
#include "html.hpp"
#include "set_cookie.hpp"

namespace tarn {
namespace detail {

inline bool is_in_header(char c) noexcept { return !is_control(c) || c == '\t'; }

// Browsers read "\" as "/", and remove characters that are not visible.
inline bool is_in_url(char c) noexcept { return is_visible(c) && !is_among(c, "\"<>\\^`{|}"); }

inline bool is_in_tag(char c) noexcept { return !is_control(c) && c != ' ' && c != '"'; }

// "//" would begin another host.
inline bool is_local_path(std::string_view url) noexcept {
  return !url.empty() && url[0] == '/' && (url.size() == 1 || url[1] != '/');
}

inline bool has_http_host(std::string_view url) noexcept {
  const auto has_host = [url](std::string_view scheme) {
    return begins_with(url, scheme) && url.size() > scheme.size() &&
           !is_among(url[scheme.size()], "/?#");
  };
  return has_host("http://") || has_host("https://");
}

inline bool is_redirect(int status) noexcept {
  return (status >= 301 && status <= 303) || status == 307 || status == 308;
}

struct ReasonPhrase {
  int status;
  const char *phrase;
};

inline constexpr ReasonPhrase kReasons[] = {{201, "Created"},
                                            {202, "Accepted"},
                                            {203, "Non-Authoritative Information"},
                                            {204, "No Content"},
                                            {205, "Reset Content"},
                                            {206, "Partial Content"},
                                            {300, "Multiple Choices"},
                                            {301, "Moved Permanently"},
                                            {302, "Found"},
                                            {303, "See Other"},
                                            {304, "Not Modified"},
                                            {307, "Temporary Redirect"},
                                            {308, "Permanent Redirect"},
                                            {400, "Bad Request"},
                                            {401, "Unauthorized"},
                                            {402, "Payment Required"},
                                            {403, "Forbidden"},
                                            {404, "Not Found"},
                                            {405, "Method Not Allowed"},
                                            {406, "Not Acceptable"},
                                            {407, "Proxy Authentication Required"},
                                            {408, "Request Timeout"},
                                            {409, "Conflict"},
                                            {410, "Gone"},
                                            {411, "Length Required"},
                                            {412, "Precondition Failed"},
                                            {413, "Content Too Large"},
                                            {414, "URI Too Long"},
                                            {415, "Unsupported Media Type"},
                                            {416, "Range Not Satisfiable"},
                                            {417, "Expectation Failed"},
                                            {421, "Misdirected Request"},
                                            {422, "Unprocessable Content"},
                                            {423, "Locked"},
                                            {424, "Failed Dependency"},
                                            {425, "Too Early"},
                                            {426, "Upgrade Required"},
                                            {428, "Precondition Required"},
                                            {429, "Too Many Requests"},
                                            {431, "Request Header Fields Too Large"},
                                            {451, "Unavailable For Legal Reasons"},
                                            {500, "Internal Server Error"},
                                            {501, "Not Implemented"},
                                            {502, "Bad Gateway"},
                                            {503, "Service Unavailable"},
                                            {504, "Gateway Timeout"},
                                            {505, "HTTP Version Not Supported"},
                                            {507, "Insufficient Storage"},
                                            {508, "Loop Detected"},
                                            {511, "Network Authentication Required"}};

inline const char *reason_for(int status) noexcept {
  for (const ReasonPhrase &reason : kReasons) {
    if (reason.status == status) return reason.phrase;
  }
  return "Other";
}

inline constexpr std::string_view kPlainText = "text/plain; charset=utf-8";
inline constexpr std::string_view kHtml = "text/html; charset=utf-8";

// Other functions of Response, or the server, write these.
inline constexpr std::string_view kReservedHeaders[] = {
    "Connection"sv, "Content-Disposition"sv, "Content-Length"sv, "Content-Type"sv,
    "ETag"sv,       "Last-Modified"sv,       "Location"sv,       "Set-Cookie"sv,
    "Status"sv,     "Transfer-Encoding"sv};

// Characters that make the rest of a file name read backwards, which hides its extension, and
// characters that end a line.
inline bool is_misleading(char32_t c) noexcept {
  return (c >= 0x2028 && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

// Writes the name that a browser saves a file under: without the folders of a path, and without
// characters that are no part of a name.
inline void put_file_name(Buffer &out, std::string_view name) noexcept {
  const std::size_t slash = name.find_last_of("/\\");
  if (slash != std::string_view::npos) name.remove_prefix(slash + 1);
  put_replaced(out, name, [](std::string_view character) noexcept -> std::string_view {
    if (character.empty()) return "\xEF\xBF\xBD";
    const bool kept = !is_control(character) && !is_misleading(first_character(character).code);
    return kept ? std::string_view() : "_";
  });
}

// Writes a name for browsers that read only ASCII. Some of them decode "%XX".
inline void put_ascii_name(Buffer &out, std::string_view name) noexcept {
  put_replaced(out, name, [](std::string_view character) noexcept -> std::string_view {
    return character.size() > 1 || is_among(character[0], "\"%") ? "_" : std::string_view();
  });
}

}  // namespace detail

class Cors;
class StoredFile;
class Stream;

/** The response to a request.
 *
 *  @code
 *  return tarn::Response().status(404).send(page) ? 0 : 1;
 *  @endcode
 *
 *  Set up the response in any order, then call one of the functions that send it. Unsafe output,
 *  such as a header with a line end in it, is refused: sending then returns false, problem() tells
 *  why, and the visitor gets a plain page with status 500 instead.
 */
class Response {
 public:
  /** Begins a response.
   *
   *  @param out  the stream that the server reads; it stays open */
  explicit Response(FILE *out = stdout) noexcept
      : out_(out), head_(std::string_view(CgiEnv_getRequestMethod(nullptr)) == "HEAD") {}
  Response(const Response &) = delete;
  Response &operator=(const Response &) = delete;

  // `other` cannot be sent afterwards.
  Response(Response &&other) noexcept
      : out_(other.out_),
        head_(other.head_),
        sent_(detail::exchanged(other.sent_, true)),
        status_(other.status_),
        type_(std::move(other.type_)),
        location_(std::move(other.location_)),
        etag_(std::move(other.etag_)),
        modified_(std::move(other.modified_)),
        disposition_(std::move(other.disposition_)),
        policy_(std::move(other.policy_)),
        language_(std::move(other.language_)),
        allow_(std::move(other.allow_)),
        lines_(std::move(other.lines_)),
        cookies_(std::move(other.cookies_)),
        constants_(other.constants_),
        problem_(other.problem_) {}

  /** Sets the status, from 200 to 599. The default is 200. A status that does not redirect takes back
   *  a redirect. */
  Response &status(int code) &noexcept {
    if (code < 200 || code > 599) return refuse("status must be 200 to 599");
    if (!detail::is_redirect(code)) location_ = Text(adopt, nullptr, 0);
    status_ = code;
    return *this;
  }

  /** Sets the content type, in place of the default of the function that sends the body. */
  Response &content_type(const detail::TextArgument &type) &noexcept {
    if (type.view().empty() || !detail::all_of(type.view(), detail::is_in_header)) {
      return refuse("invalid content type");
    }
    return keep(type_, {type.view()});
  }

  /** Redirects the browser to a page of this site.
   *
   *  It always sets the status as well. Given a path alone, the server would return that page under
   *  the address of this one.
   *
   *  @param path  with the query, if any; begins with one "/", in ASCII as in a URL
   *  @param code  301, 302, 303, 307 or 308; with 303, the browser does not send a form again
   */
  Response &redirect(const detail::TextArgument &path, int code = 303) &noexcept {
    if (!detail::is_local_path(path.view()))
      return refuse("redirect path must start with a single '/'");
    return redirect_to(path.view(), code);
  }

  /** Redirects the browser to any site. Never pass a URL that a visitor sent.
   *
   *  @param url   begins with "http://" or "https://" and a host; otherwise as for redirect()
   *  @param code  as for redirect()
   */
  Response &redirect_away(const detail::TextArgument &url, int code = 303) &noexcept {
    if (!detail::has_http_host(url.view())) {
      return refuse("redirect URL must start with http:// or https:// and a host");
    }
    return redirect_to(url.view(), code);
  }

  /** Adds a header. Content-Type, Content-Length, Content-Disposition, ETag, Last-Modified, Location and
   *  Set-Cookie are refused, because other functions write them; Status, Connection and
   *  Transfer-Encoding, because the server does. Each call adds a header, also beside a function below
   *  that sends one of this name.
   *
   *  @param name   letters, digits and any of "!#$%&'*+-.^_`|~"
   *  @param value  without control characters other than tabs; or a whole number
   */
  Response &header(const detail::TextArgument &name, const detail::TextArgument &value) &noexcept {
    if (name.view().empty() || !detail::all_of(name.view(), detail::is_token)) {
      return refuse("invalid header name");
    }
    if (detail::is_one_of(name.view(), detail::kReservedHeaders)) {
      return refuse("header() cannot add a header that Response or the server writes");
    }
    if (!is_value(value)) return *this;
    lines_ << name.view() << ": " << value.view() << "\r\n";
    return *this;
  }

  /** Forbids all caches to store the response. The header is sent once, however often this is called.
   */
  Response &no_store() &noexcept { return once(1, "Cache-Control", "no-store"); }

  /** Forbids browsers to guess a type other than the content type. The header is sent once, too. */
  Response &nosniff() &noexcept { return once(2, "X-Content-Type-Options", "nosniff"); }

  /** Forbids other pages to show this one in a frame. The header is sent once, too. Do not add another
   *  X-Frame-Options with header(): both would be sent. */
  Response &deny_framing() &noexcept { return once(4, "X-Frame-Options", "DENY"); }

  /** Hides the address of the page from the sites that it links to. The header is sent once, too. */
  Response &no_referrer() &noexcept { return once(8, "Referrer-Policy", "no-referrer"); }

  /** Limits what the page may load and run: `default-src 'self'` and the like. The last call counts.
   *  Another policy that header() adds applies as well. */
  Response &content_security_policy(const detail::TextArgument &policy) &noexcept {
    return set(policy_, "Content-Security-Policy: ", policy);
  }

  /** Names the language of the body: `en`. The last call counts. */
  Response &content_language(const detail::TextArgument &tag) &noexcept {
    return set(language_, "Content-Language: ", tag);
  }

  /** Lists the methods that the script accepts: `GET, POST`. Status 405 requires it. The last call
   *  counts. */
  Response &allow(const detail::TextArgument &methods) &noexcept {
    return set(allow_, "Allow: ", methods);
  }

  /** Tells when the content was last changed. The last call counts. */
  Response &last_modified(std::time_t when) &noexcept {
    std::tm utc;
    if (gmtime_r(&when, &utc) == nullptr || utc.tm_year < -1900 || utc.tm_year > 9999 - 1900) {
      return refuse("last_modified() takes the years 0 to 9999");
    }
    char date[64];
    std::snprintf(date, sizeof date, "%s, %02d %s %04d %02d:%02d:%02d GMT",
                  detail::kDays[utc.tm_wday], utc.tm_mday, detail::kMonths[utc.tm_mon],
                  utc.tm_year + 1900, utc.tm_hour, utc.tm_min, utc.tm_sec);
    return keep(modified_, {"Last-Modified: ", date, "\r\n"});
  }

  /** Identifies this version of the content, byte by byte. The last call of etag() or weak_etag()
   *  counts.
   *
   *  @param tag  without its quotation marks */
  Response &etag(const detail::TextArgument &tag) &noexcept { return set_etag("ETag: \"", tag); }

  /** Identifies versions of the content that mean the same, although their bytes may differ.
   *
   *  @param tag  without "W/" and its quotation marks */
  Response &weak_etag(const detail::TextArgument &tag) &noexcept {
    return set_etag("ETag: W/\"", tag);
  }

  /** Makes the browser save the body under this name. The last call counts.
   *
   *  @param name  in any script, in UTF-8. Only what follows the last slash or backslash is sent;
   *               control characters, and those that end a line or turn the direction of writing,
   *               become "_". If it is empty, the browser finds a name itself. */
  template <class Self = Response>
  Self &attachment(const detail::TextArgument &name) &noexcept {
    using namespace detail;
    if (!name) return refuse("file name is a null pointer");
    const Text whole = escaped<put_file_name>(name.view());
    const Text ascii = escaped<put_ascii_name>(whole.view());
    const Text encoded = escape_url(whole.view());
    refuse(whole.problem()).refuse(ascii.problem()).refuse(encoded.problem());
    if (whole.view().empty()) return keep(disposition_, {"Content-Disposition: attachment\r\n"});
    const bool same = ascii.view() == whole.view();
    return keep(disposition_,
                {"Content-Disposition: attachment; filename=\"", ascii.view(), "\"",
                 same ? "" : "; filename*=UTF-8''", same ? "" : encoded.view(), "\r\n"});
  }

  /** Sets a cookie in the browser. */
  Response &cookie(const SetCookie &cookie) &noexcept {
    if (const char *problem = cookie.problem()) return refuse(problem);
    cookie.put(cookies_);
    return *this;
  }

  /** Sends the header without the body, or with it. The default follows the request: without it if
   *  the method is HEAD.
   */
  Response &head(bool alone) &noexcept {
    head_ = alone;
    return *this;
  }

  // The same on a response without a name, so that a function can return it.
  Response status(int code) &&noexcept { return std::move(status(code)); }
  Response content_type(const detail::TextArgument &type) &&noexcept {
    return std::move(content_type(type));
  }
  Response redirect(const detail::TextArgument &path, int code = 303) &&noexcept {
    return std::move(redirect(path, code));
  }
  Response redirect_away(const detail::TextArgument &url, int code = 303) &&noexcept {
    return std::move(redirect_away(url, code));
  }
  Response header(const detail::TextArgument &name, const detail::TextArgument &value) &&noexcept {
    return std::move(header(name, value));
  }
  Response no_store() &&noexcept { return std::move(no_store()); }
  Response nosniff() &&noexcept { return std::move(nosniff()); }
  Response deny_framing() &&noexcept { return std::move(deny_framing()); }
  Response no_referrer() &&noexcept { return std::move(no_referrer()); }
  Response content_security_policy(const detail::TextArgument &policy) &&noexcept {
    return std::move(content_security_policy(policy));
  }
  Response content_language(const detail::TextArgument &tag) &&noexcept {
    return std::move(content_language(tag));
  }
  Response allow(const detail::TextArgument &methods) &&noexcept {
    return std::move(allow(methods));
  }
  Response last_modified(std::time_t when) &&noexcept { return std::move(last_modified(when)); }
  Response etag(const detail::TextArgument &tag) &&noexcept { return std::move(etag(tag)); }
  Response weak_etag(const detail::TextArgument &tag) &&noexcept {
    return std::move(weak_etag(tag));
  }
  template <class Self = Response>
  Self attachment(const detail::TextArgument &name) &&noexcept {
    return std::move(attachment(name));
  }
  Response cookie(const SetCookie &cookie) &&noexcept { return std::move(this->cookie(cookie)); }
  Response head(bool alone) &&noexcept { return std::move(head(alone)); }

  /** Sends a page, as text/html in UTF-8.
   *
   *  @return true if the whole response was written; otherwise problem() tells what went wrong
   */
  template <class Sent = bool>
  [[nodiscard]] Sent send(const Element &page) noexcept {
    const Text body = html(page);
    refuse(body.problem());
    return send_as(detail::kHtml, body.view());
  }
  /** Sends a response without content, such as a redirect. @return as for a page */
  [[nodiscard]] bool send() noexcept { return send_text(""); }
  /** Sends a text, as text/plain in UTF-8. @return as for a page */
  [[nodiscard]] bool send_text(const detail::TextArgument &text) noexcept {
    return send_given(detail::kPlainText, text);
  }
  /** Sends JSON, as application/json.
   *
   *  @param json  from JsonWriter::take(), or any other JSON in UTF-8
   *  @return as for a page */
  [[nodiscard]] bool send_json(const Text &json) noexcept {
    refuse(json.problem());
    return send_as("application/json", json.view());
  }
  /** Sends bytes, as application/octet-stream. @return as for a page */
  [[nodiscard]] bool send_bytes(const detail::TextArgument &bytes) noexcept {
    return send_given("application/octet-stream", bytes);
  }

  /** Sends a page for an error: its status, a title with the reason, and a sentence. Caches must not
   *  store it. Keeps the headers and cookies that were added, but sends nothing that was meant for
   *  another body: a content type, an etag, a time of change or an attachment.
   *
   *  @code
   *  if (!lake) return response.send_error(404, "There is no such lake.") ? 0 : 1;
   *  @endcode
   *
   *  @param code  400 to 599
   *  @param text  is escaped as every text in a page
   *  @return as for a page */
  template <class Sent = bool>
  [[nodiscard]] Sent send_error(int code, const detail::TextArgument &text = "") noexcept {
    if (!text) refuse(kNoText);
    if (code < 400) refuse("send_error() takes 400 to 599");
    status(code).no_store();
    for (Text *const kept : {&type_, &etag_, &modified_, &disposition_}) {
      *kept = Text(adopt, nullptr, 0);
    }
    const char *const reason = detail::reason_for(code);
    detail::Buffer title;
    char digits[16];
    std::snprintf(digits, sizeof digits, "%d ", code);
    title << digits << reason;
    Element body("body", Element("h1", reason));
    if (!text.view().empty()) body.add(Element("p", text.view()));
    const Text said = title.take();
    return send(Element("html", Attribute("lang", "en"),
                        Element("head", Element("title", said.view())), std::move(body)));
  }

  /** Sends a file, or the part of it that is asked for.
   *
   *  @code
   *  return tarn::Response().send_file(tarn::StoredFile::below("/srv/lakes", name)) ? 0 : 1;
   *  @endcode
   *
   *  It adds Last-Modified and ETag, unless last_modified() and etag() were called. To a GET or HEAD
   *  it responds as the conditions in the request demand: with status 304 if the browser has this
   *  version, 412 if it wants another one, 206 and one range of bytes, or 416 if the file has no such
   *  range. If several ranges are asked for, it sends the whole file. To any other method, and with a
   *  status() other than 200, it sends the whole file.
   *
   *  The content type comes from the extension of the name, unless content_type() was called. HTML,
   *  SVG and XML are then sent with `Content-Security-Policy: sandbox`, so that a file that a visitor
   *  uploaded runs no scripts. A file that is not open is status 404, 403 or 500.
   *
   *  The file is not read into memory. If it becomes shorter meanwhile, sending fails.
   *
   *  @return as for a page; include `tarn/send_file.hpp` */
  template <class Sent = bool>
  [[nodiscard]] Sent send_file(const StoredFile &file) noexcept;

  /** Tells whether the browser has this version already, which etag() or last_modified() identify.
   *  If so, it sets status 304: call send().
   *
   *  @code
   *  if (response.etag(version).not_modified()) return response.send() ? 0 : 1;
   *  @endcode
   *
   *  It is false unless the method is GET or HEAD and the status 200. */
  template <class Answer = bool>
  [[nodiscard]] Answer not_modified() noexcept {
    if (!is_conditional() || (etag_.view().empty() && modified_.view().empty())) return false;
    const std::int64_t now = std::time(nullptr);
    detail::Part part;
    const detail::Outcome outcome =
        detail::Conditions<>::of_request().judge(version(now, 0), now, false, part);
    const bool is_known = outcome == detail::Outcome::not_modified;
    if (is_known) status(304);
    return is_known;
  }

  /** The first thing that was refused or failed, in words for the server's log. @return a constant
   *  text; null if nothing did */
  const char *problem() const noexcept { return problem_; }

 private:
  friend class Cors;
  friend class Stream;

  // Keeps the first problem.
  Response &refuse(const char *problem) noexcept {
    if (problem_ == nullptr) problem_ = problem;
    return *this;
  }

  // Adds a header that always has the same value. @param bit  which one
  Response &once(unsigned bit, std::string_view name, std::string_view value) noexcept {
    if ((constants_ & bit) != 0) return *this;
    constants_ |= bit;
    return header(name, value);
  }

  // Whether a header can have this value.
  bool is_value(const detail::TextArgument &value) noexcept {
    if (!value) {
      refuse("header value is a null pointer");
    } else if (!detail::all_of(value.view(), detail::is_in_header)) {
      refuse("header value contains a control character");
    } else {
      return true;
    }
    return false;
  }

  Response &set(Text &place, std::string_view beginning,
                const detail::TextArgument &value) noexcept {
    return is_value(value) ? keep(place, {beginning, value.view(), "\r\n"}) : *this;
  }

  Response &set_etag(std::string_view beginning, const detail::TextArgument &tag) noexcept {
    if (!tag || !detail::all_of(tag.view(), detail::is_in_tag)) return refuse("invalid etag");
    return keep(etag_, {beginning, tag.view(), "\"\r\n"});
  }

  Response &redirect_to(std::string_view url, int code) noexcept {
    if (!detail::all_of(url, detail::is_in_url)) {
      return refuse("redirect target contains a character that must be escaped");
    }
    if (!detail::is_redirect(code)) {
      return refuse("redirect status must be 301, 302, 303, 307 or 308");
    }
    return keep(location_, {"Location: ", url, "\r\n"}).status(code);
  }

  Response &keep(Text &place, std::initializer_list<std::string_view> pieces) noexcept {
    detail::Buffer text;
    for (const std::string_view piece : pieces) text << piece;
    place = text.take();
    return refuse(place.problem());
  }

  bool send_given(std::string_view type, const detail::TextArgument &body) noexcept {
    if (!body) refuse(kNoText);
    return send_as(type, body.view());
  }

  bool send_as(std::string_view type, std::string_view body) noexcept {
    if (begin(type, body.size())) put(body);
    return end();
  }

  static constexpr const char *kNoText = "text is a null pointer";
  // A body that ends with the output.
  static constexpr std::uint64_t kUnknownSize = UINT64_MAX;

  // Writes the header, or the whole page that says that there is no response.
  //
  // @return whether a body follows
  bool begin(std::string_view type, std::uint64_t size) noexcept {
    if (detail::exchanged(sent_, true)) {
      refuse("response was already sent");
      return false;
    }
    const Text lines = lines_.take();
    const Text cookies = cookies_.take();
    refuse(lines.problem()).refuse(cookies.problem());
    if (problem_ == nullptr) {
      return write_header(
          status_, type_.view().empty() ? type : type_.view(),
          {location_.view(), lines.view(), policy_.view(), language_.view(), allow_.view(),
           modified_.view(), etag_.view(), disposition_.view(), cookies.view()},
          size);
    }
    constexpr std::string_view kFailure = "Internal Server Error\n";
    if (write_header(500, detail::kPlainText, {}, kFailure.size())) put(kFailure);
    return false;
  }

  bool end() noexcept {
    if (std::fflush(out_) != 0 || std::ferror(out_) != 0) refuse("response could not be written");
    return problem_ == nullptr;
  }

  // Without a Status line the server assumes 200, and is still free to send 304 instead.
  bool write_header(int status, std::string_view type,
                    std::initializer_list<std::string_view> lines, std::uint64_t size) noexcept {
    const bool has_body = status != 204 && status != 205 && status != 304;
    if (status != 200) std::fprintf(out_, "Status: %d %s\r\n", status, detail::reason_for(status));
    if (has_body) {
      put("Content-Type: ");
      put(type);
      put("\r\n");
    }
    for (const std::string_view line : lines) put(line);
    if (has_body && size != kUnknownSize) {
      std::fprintf(out_, "Content-Length: %" PRIu64 "\r\n", size);
    }
    put("\r\n");
    return has_body && !head_;
  }

  // Whether conditions of the request apply: to what it would get without them.
  bool is_conditional() const noexcept {
    const std::string_view method = CgiEnv_getRequestMethod(nullptr);
    return status_ == 200 && (method == "GET" || method == "HEAD");
  }

  // What etag() and last_modified() say. Without a time, no date of the request is late enough.
  template <class = void>
  detail::Version version(std::int64_t now, std::uint64_t size) const noexcept {
    const auto value = [](const Text &line, std::string_view name) {
      const std::string_view all = line.view();
      if (all.empty()) return all;
      return std::string_view(all.data() + name.size(), all.size() - name.size() - 2);
    };
    std::int64_t modified = 0;
    if (!detail::read_date(value(modified_, "Last-Modified: "), now, modified))
      modified = INT64_MAX;
    return {value(etag_, "ETag: "), modified, size};
  }

  void put(std::string_view text) noexcept {
    if (!text.empty()) std::fwrite(text.data(), 1, text.size(), out_);
  }

  FILE *out_;
  bool head_;
  bool sent_ = false;
  int status_ = 200;
  Text type_{adopt, nullptr, 0};
  // Headers that are sent once: empty, or a line.
  Text location_{adopt, nullptr, 0};
  Text etag_{adopt, nullptr, 0};
  Text modified_{adopt, nullptr, 0};
  Text disposition_{adopt, nullptr, 0};
  Text policy_{adopt, nullptr, 0};
  Text language_{adopt, nullptr, 0};
  Text allow_{adopt, nullptr, 0};
  detail::Buffer lines_;
  detail::Buffer cookies_;
  unsigned constants_ = 0;  // which of them lines_ has
  const char *problem_ = nullptr;
};

}  // namespace tarn

#endif  // TARN_RESPONSE_HPP
