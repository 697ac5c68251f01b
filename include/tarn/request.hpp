/* The request. */
#ifndef TARN_REQUEST_HPP
#define TARN_REQUEST_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>

#include "environment.hpp"
#include "form.hpp"
#include "object.hpp"

namespace tarn {
namespace detail {

// Tells whether a name has a prefix that browsers protect. They ignore its case.
inline bool is_protected_name(const char *name) noexcept {
  return nStringsAreEqual(name, "__Host-", 7) == 0 || nStringsAreEqual(name, "__Secure-", 9) == 0;
}

// The number of cookies that Tarn reads from a cookie header: one more than there are ";".
inline std::size_t count_cookies(std::string_view header) noexcept {
  std::size_t count = 1;
  for (const char c : header) count += c == ';' ? 1 : 0;
  return count;
}

// Removes the first cookie from a cookie header.
//
// @return its name as it was sent; empty for a piece without a "="
inline std::string_view remove_first_cookie(std::string_view &header) noexcept {
  const std::size_t end = header.find(';');
  const bool is_last = end == std::string_view::npos;
  const std::string_view piece(header.data(), is_last ? header.size() : end);
  header.remove_prefix(piece.size() + (is_last ? 0 : 1));
  const std::size_t equals = piece.find('=');
  return trimmed({piece.data(), equals == std::string_view::npos ? 0 : equals});
}

// Which parts of the body File::is_cut() found to be cut: searched once for all files of a request.
struct CutParts {
  TarnHandle environment;
  bool searched;
  std::uint64_t *marks;  // sorted, one for each part that was cut
  std::size_t count;
};

// For files whose CutParts could not be allocated.
inline CutParts no_cut_parts = {0, false, nullptr, 0};

// Owns the CutParts of a request. Its files keep their address, so they stay where they are when the
// request moves.
class CutPartsOwner {
 public:
  CutPartsOwner() noexcept = default;
  CutPartsOwner(CutPartsOwner &&other) noexcept
      : parts_(detail::exchanged(other.parts_, nullptr)) {}
  CutPartsOwner &operator=(CutPartsOwner &&other) noexcept {
    detail::swap_values(parts_, other.parts_);
    return *this;
  }
  CutPartsOwner(const CutPartsOwner &) = delete;
  CutPartsOwner &operator=(const CutPartsOwner &) = delete;
  ~CutPartsOwner() {
    if (parts_ == nullptr) return;
    std::free(parts_->marks);
    std::free(parts_);
  }

  // Allocates them for the first file.
  CutParts *of(TarnHandle environment) noexcept {
    if (parts_ == nullptr) parts_ = static_cast<CutParts *>(std::calloc(1, sizeof(CutParts)));
    if (parts_ == nullptr) return &no_cut_parts;
    parts_->environment = environment;
    return parts_;
  }

 private:
  CutParts *parts_ = nullptr;
};

}  // namespace detail

class File;

/** The files of a form, in order: a random-access range of File. Include `tarn/file.hpp` to read
 *  them. */
using Files =
    detail::Range<File, TARN_FORM_FILE_LIST_MAGIC, FormFileList_getCount, FormFileList_getByIndex>;

/** The request: environment, cookies, body, and the parsed form.
 *
 *  Names of fields are compared without regard to case. Views of it are valid as long as the
 *  request; those of a temporary request do not compile.
 *
 *  @code
 *  tarn::Request request;
 *  std::string_view name = request.get("name", "stranger");
 *  for (std::string_view tag : request.all("tag")) ...
 *  @endcode
 */
class Request : public detail::Owned<Request, TARN_REQUEST_MAGIC, Tarn_delete, nullptr> {
 public:
  using Owned::Owned;

  /** Reads the request, as Tarn_new() does. A process can read the body only once. */
  Request() noexcept : status_(Tarn_new(&handle_)) {}

  /** The status that Tarn_new() returned. */
  TarnStatus status() const noexcept { return status_; }

  /** Tells whether the request was read successfully. */
  explicit operator bool() const noexcept { return handle_ != 0 && status_ == TARN_OK; }

  /** Tells whether the request holds everything that was sent, as Tarn_isComplete() does: false when
   *  an allocation failed or the body ended early. Ask before you store anything. */
  bool complete() const noexcept { return detail::query(Tarn_isComplete, handle_) != 0; }

  /** A request cannot be copied. */
  Request clone() const = delete;

  /** The value of the first field with this name.
   *
   *  @return a view, empty for a field that was left empty; nothing when there is no such field
   */
  std::optional<std::string_view> operator[](const detail::Name &name) const &noexcept {
    const Entry found = find(name);
    if (!found) return {};
    return found.value();
  }
  void operator[](const detail::Name &) const && = delete;
  void operator[](int) const = delete;

  /** The value of the first field with this name, or `otherwise` when there is none. */
  std::string_view get(const detail::Name &name,
                       std::string_view otherwise TARN_LIFETIMEBOUND) const &noexcept {
    const std::optional<std::string_view> text = (*this)[name];
    return text ? *text : otherwise;
  }
  void get(const detail::Name &, std::string_view) const && = delete;
  void get(const detail::Name &, std::nullptr_t) const = delete;
  template <class Text, class = detail::IfOwning<Text>>
  void get(const detail::Name &, Text &&) const = delete;

  /** The first field with this name; nothing when there is none. */
  template <class Found = Entry>
  std::optional<Found> entry(const detail::Name &name) const &noexcept {
    const Found found = find(name);
    if (!found) return {};
    return found;
  }
  void entry(const detail::Name &) const && = delete;

  /** The values of all fields with this name, in order. */
  Values all(const detail::Name &name) const &noexcept { return {entries(), name}; }
  void all(const detail::Name &) const && = delete;

  /** Tells whether a checkbox is ticked: the first field with this name is "on", in any case. */
  bool checked(const detail::Name &name) const noexcept {
    return detail::query(Tarn_queryCheckbox, handle_, name.c_str()) != 0;
  }

  /** Reads the first field with this name as a whole number.
   *
   *  @param least,most  the range to accept
   *  @return as Entry::integer(); nothing also when there is no such field
   */
  template <class Number = std::int64_t>
  std::optional<Number> integer(const detail::Name &name, std::int64_t least = INT64_MIN,
                                std::int64_t most = INT64_MAX) const noexcept {
    const Entry found = find(name);
    if (!found) return {};
    return found.template integer<Number>(least, most);
  }

  /** Reads the first field with this name as Entry::number() does; 0 when there is none. */
  std::int32_t number(const detail::Name &name) const noexcept { return find(name).number(); }

  /** All fields, in order. */
  Entries entries() const &noexcept { return Entries(child(TARN_REQUEST_ENTRIES)); }
  void entries() const && = delete;

  /** The first file whose field has this name, up to its first CR LF; nothing when there is none.
   *  Include `tarn/file.hpp` to call it. */
  template <class Found = File>
  std::optional<Found> file(const detail::Name &name) const &noexcept;
  void file(const detail::Name &) const && = delete;

  /** All files, in order. */
  Files files() const &noexcept {
    return {child(TARN_REQUEST_FILES), cut_parts_.of(child(TARN_REQUEST_ENVIRONMENT))};
  }
  void files() const && = delete;

  /** The value of the first cookie with this name, decoded. Case matters, as it does in browsers.
   *
   *  A browser protects cookies whose names begin with `__Host-` or `__Secure-`, but only if the
   *  name is spelled out: anyone who can set a cookie can set `__%48ost-id`, which decodes to
   *  `__Host-id`. For a name with such a prefix, this finds only a cookie that was sent under
   *  literally that name.
   *
   *  @return a view; nothing when there is no such cookie
   */
  std::optional<std::string_view> cookie(const detail::Name &name) const &noexcept {
    if (name.c_str() == nullptr) return {};
    const std::string_view wanted = name.c_str();
    const Cookies all = cookies();
    const bool literally = detail::is_protected_name(name.c_str());
    std::string_view header = CgiEnv_getCookies(nullptr);
    // Cookies that could not be allocated are missing, and the rest do not match the header.
    if (literally && detail::count_cookies(header) != all.size()) return {};
    for (const CookieView found : all) {
      const bool is_sent_so = !literally || detail::remove_first_cookie(header) == wanted;
      if (is_sent_so && found.name() == wanted) return found.value();
    }
    return {};
  }
  void cookie(const detail::Name &) const && = delete;

  /** All cookies, in order, including pieces of the cookie header without a "=". */
  Cookies cookies() const &noexcept { return environment().cookies(); }
  void cookies() const && = delete;

  /** The environment variables and the body. */
  Environment environment() const &noexcept {
    const Environment view(child(TARN_REQUEST_ENVIRONMENT));
    return view;
  }
  void environment() const && = delete;

 private:
  TarnHandle child(std::uint32_t slot) const noexcept {
    return detail::query(CGIgs_getStruct, handle_, slot, TARN_REQUEST_MAGIC);
  }

  // The first field with this name, or an entry without an object.
  Entry find(const detail::Name &name) const noexcept {
    const Entry found(detail::query(Tarn_getElementByName, handle_, name.c_str()));
    return found;
  }

  TarnStatus status_ = TARN_OK;
  mutable detail::CutPartsOwner cut_parts_;
};

}  // namespace tarn

#endif  // TARN_REQUEST_HPP
