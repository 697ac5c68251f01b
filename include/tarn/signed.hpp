/* Signed texts, cookies and forms.
 *
 * What this site signs comes back unchanged or not at all: a visitor can read it, but neither change
 * it, nor move it to another cookie or form, nor use it after its time.
 *
 * This header needs libsodium, which does all of the cryptography. `tarn.hpp` does not include it.
 * Compile with `pkg-config --cflags --libs tarn libsodium`.
 */
#ifndef TARN_SIGNED_HPP
#define TARN_SIGNED_HPP

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <optional>
#include <string_view>
#include <utility>

#include "argument.hpp"
#include "element.hpp"
#include "environment.hpp"
#include "response.hpp"
#include "set_cookie.hpp"
#include "text.hpp"

#if !__has_include(<sodium.h>)
#error "tarn/signed.hpp needs libsodium: install libsodium-dev, and see pkg-config libsodium"
#endif
#include <sodium.h>

namespace tarn {

/** What came of verifying a token. */
enum class Verdict {
  valid,     /**< it was signed here, for this purpose, and has time left */
  missing,   /**< nothing was sent, or verify_form() had no session */
  malformed, /**< it is not a token */
  forged,    /**< it was signed with no key of these, or for another purpose */
  expired,   /**< its time is over */
  failed     /**< there are no keys, or memory ran out */
};

class Keys;

/** The value of a token, or why there is none. */
class Verified {
 public:
  /** Tells whether the token is valid. */
  explicit operator bool() const noexcept { return static_cast<bool>(value_); }

  /** Whether the token is valid, and if not, why. */
  Verdict verdict() const noexcept { return verdict_; }

  /** The value that was signed, null-terminated and valid as long as this object; empty unless the
   *  token is valid. */
  std::string_view value() const noexcept TARN_LIFETIMEBOUND { return value_.view(); }

  /** Why there is no value, in words for the server's log. @return a constant text; null when the
   *  token is valid */
  const char *problem() const noexcept { return value_.problem(); }

 private:
  friend class Keys;

  explicit Verified(Text value) noexcept : verdict_(Verdict::valid), value_(std::move(value)) {}
  explicit Verified(Verdict verdict) noexcept
      : verdict_(verdict), value_(Text::refused(kProblems[static_cast<int>(verdict)])) {}

  static constexpr const char *kProblems[] = {
      nullptr,
      "token is missing",
      "token is malformed",
      "token was not signed with these keys for this purpose",
      "token has expired",
      "token cannot be verified without keys or memory"};

  Verdict verdict_;
  Text value_;
};

namespace detail {

inline constexpr std::size_t kKeySize = crypto_auth_hmacsha512256_KEYBYTES;
inline constexpr std::size_t kMacSize = crypto_auth_hmacsha512256_BYTES;
inline constexpr int kTokenLetters = sodium_base64_VARIANT_URLSAFE_NO_PADDING;

inline bool is_token_letter(char c) noexcept { return is_alphanumeric(c) || c == '-' || c == '_'; }

// A number as eight bytes, whatever the order of the processor's.
struct EightBytes {
  explicit EightBytes(std::uint64_t number) noexcept {
    for (unsigned i = 8; i-- > 0; number >>= 8U) bytes[i] = static_cast<unsigned char>(number);
  }
  explicit EightBytes(const unsigned char *from) noexcept { std::memcpy(bytes, from, 8); }

  std::uint64_t number() const noexcept {
    std::uint64_t number = 0;
    for (const unsigned char byte : bytes) number = number << 8U | byte;
    return number;
  }

  unsigned char bytes[8];
};

// What a token is good for. It is signed too, so the token is good for nothing else.
struct Use {
  enum Kind : unsigned char { text = 't', cookie = 'c', form = 'f' };

  Kind kind;
  std::string_view name;
  std::string_view session = {};
};

// A token is the letters of these bytes and of the value. What is signed is the use, with the length of
// each text before the text, then the expiry and the value. So two different tokens never sign the same
// bytes.
struct TokenHead {
  EightBytes expiry;
  unsigned char mac[kMacSize];
};
static_assert(sizeof(TokenHead) == 8 + kMacSize, "there are no gaps");

inline void put_mac(TokenHead &head, const unsigned char *key, const Use &use,
                    std::string_view value) noexcept {
  crypto_auth_hmacsha512256_state state;
  const auto add = [&state](const void *bytes, std::size_t size) {
    crypto_auth_hmacsha512256_update(&state, static_cast<const unsigned char *>(bytes), size);
  };
  crypto_auth_hmacsha512256_init(&state, key, kKeySize);
  add(&use.kind, 1);
  for (const std::string_view text : {use.name, use.session}) {
    add(EightBytes(text.size()).bytes, 8);
    add(text.data(), text.size());
  }
  add(head.expiry.bytes, 8);
  add(value.data(), value.size());
  crypto_auth_hmacsha512256_final(&state, head.mac);
  sodium_memzero(&state, sizeof state);
}

// At most 256 bytes, which a signal does not cut short. @return false if there are none
inline bool get_random(unsigned char *bytes, std::size_t size) noexcept {
  ssize_t got = 0;
  do got = ::getrandom(bytes, size, 0);
  while (got < 0 && errno == EINTR);
  return got == static_cast<ssize_t>(size);
}

// Without random bytes, sodium_init() would end the process.
inline const char *problem_of_sodium() noexcept {
  unsigned char byte = 0;
  if (!get_random(&byte, 1)) return "keys: libsodium needs getrandom(), which failed";
  return sodium_init() < 0 ? "libsodium cannot be used" : nullptr;
}

}  // namespace detail

/** The keys that sign and verify.
 *
 *  @code
 *  const tarn::Keys keys = tarn::Keys::from_file("/etc/guestbook/keys");
 *  const tarn::Text token = keys.sign("stop", address, 30 * 86400);
 *  ...
 *  const tarn::Verified address = keys.verify("stop", form["token"]);
 *  if (!address) std::fprintf(stderr, "%s\n", address.problem());
 *  @endcode
 *
 *  A key is 32 random bytes, written as 64 hexadecimal digits. White space separates keys; write one a
 *  line, and at most 8. The first key signs and all of them verify. To replace a key, put a new one
 *  before it, and remove the old one when all that it signed has expired. Without keys, nothing is
 *  signed and nothing is valid. There are no keys either where a filter of system calls forbids
 *  getrandom(), which libsodium needs.
 *
 *  The keys are overwritten when the object is destroyed. It cannot be copied or moved.
 */
class Keys {
 public:
  /** Reads keys from a file.
   *
   *  @param path  a regular file of at most 4,095 bytes. Others must have no permission, and the group
   *               none but to read: mode 600, or 640 if it belongs to root and to the script's group
   */
  static Keys from_file(const detail::Name &path) noexcept {
    return {path.c_str(), &Keys::read_file};
  }

  /** Reads keys from an environment variable. Whoever may debug the process, and every program that
   *  it starts, can read it too: prefer a file. */
  static Keys from_variable(const detail::Name &name) noexcept {
    return {name.c_str(), &Keys::read_variable};
  }

  Keys(const Keys &) = delete;
  Keys &operator=(const Keys &) = delete;
  ~Keys() { sodium_memzero(keys_, sizeof keys_); }

  /** Tells whether there are keys. */
  explicit operator bool() const noexcept { return problem_ == nullptr; }

  /** Why there are no keys, in words for the server's log. @return a constant text; null when there
   *  are keys */
  const char *problem() const noexcept { return problem_; }

  /** The number of keys. */
  std::size_t size() const noexcept { return size_; }

  /** Signs a text.
   *
   *  @param purpose  what it is good for: only verify() with the same purpose accepts it
   *  @param value    at most 65,536 bytes, readable by whoever has the token
   *  @param seconds  how long the token is valid: at least 1
   *  @return a token of letters, digits, "-" and "_", a third longer than the value and 54 characters;
   *          or the reason why there is none
   */
  [[nodiscard]] Text sign(std::string_view purpose, std::string_view value,
                          std::int64_t seconds) const noexcept {
    return make({detail::Use::text, purpose}, value, seconds);
  }

  /** Verifies what sign() returned.
   *
   *  @param purpose  as for sign()
   *  @param token    what a visitor sent; no text or an empty one is Verdict::missing
   */
  [[nodiscard]] Verified verify(std::string_view purpose,
                                std::optional<std::string_view> token) const noexcept {
    return check({detail::Use::text, purpose}, token);
  }

  /** Makes a cookie whose value is signed, and is good only in a cookie of this name.
   *
   *  @code
   *  response.cookie(keys.sign_cookie("__Host-user", name, 8 * 3600).secure());
   *  @endcode
   *
   *  @param name     as for SetCookie
   *  @param value    readable by the visitor. With the name, about 3,000 bytes at most
   *  @param seconds  how long the value is valid, even if the browser keeps the cookie longer. Without
   *                  SetCookie::max_age(), the browser deletes the cookie when it is closed
   *  @return a cookie, which Response::cookie() refuses if it could not be signed
   */
  [[nodiscard]] SetCookie sign_cookie(detail::KeptText name, std::string_view value,
                                      std::int64_t seconds) const noexcept {
    const Text token = make({detail::Use::cookie, name.view()}, value, seconds);
    const char *const none = nullptr;
    return token ? SetCookie(std::move(name), token.view()) : SetCookie(std::move(name), none);
  }

  /** Verifies the first cookie of this name.
   *
   *  @param sent  a Request, a Form or a FormReader
   *  @param name  as for sign_cookie()
   */
  template <class Sent>
  [[nodiscard]] Verified verify_cookie(const Sent &sent, const detail::Name &name) const noexcept {
    if (name.c_str() == nullptr) return Verified(Verdict::missing);
    return check({detail::Use::cookie, name.c_str()}, sent.cookie(name));
  }

  /** Makes a hidden field, which proves that this site made the form for this visitor.
   *
   *  @code
   *  page.add(Element("form", Attribute("method", "post"), keys.sign_form("delete", session, 3600),
   *                   Element("button", "Delete")));
   *  @endcode
   *
   *  Until it expires, the visitor can send the same form more than once.
   *
   *  @param purpose  what the form does: the field is good for no other purpose
   *  @param session  what only this visitor has, such as the value of the session cookie; not empty
   *  @param seconds  how long the visitor may take to send the form
   *  @return an `input` named "form-token"; an empty element, which Response::send() refuses, if it
   *          could not be signed
   */
  [[nodiscard]] Element sign_form(std::string_view purpose, std::string_view session,
                                  std::int64_t seconds) const noexcept {
    const char *const none = nullptr;
    const Text token = make({detail::Use::form, purpose, session}, {}, seconds);
    if (session.empty() || !token) return Element(none);
    return Element("input", Attribute("type", "hidden"), Attribute("name", kFormField),
                   Attribute("value", token.view()));
  }

  /** Verifies the field that sign_form() made. Ask before a form changes anything.
   *
   *  @param sent     a Request or a Form
   *  @param purpose  as for sign_form()
   *  @param session  as for sign_form(), from this request; if it is empty, no field is valid
   *  @return with an empty value
   */
  template <class Sent>
  [[nodiscard]] Verified verify_form(const Sent &sent, std::string_view purpose,
                                     std::string_view session) const noexcept {
    if (session.empty()) return Verified(Verdict::missing);
    return check({detail::Use::form, purpose, session}, sent[kFormField]);
  }

  /** Makes a cookie with a message for the next page, usually the one to which the response redirects.
   *  It is valid for five minutes.
   *
   *  @param message  readable by the visitor; as the value for sign_cookie()
   *  @param name     as for SetCookie, with the path "/" and no domain
   *  @return as sign_cookie()
   */
  [[nodiscard]] SetCookie flash(std::string_view message,
                                detail::KeptText name = "flash") const noexcept {
    return sign_cookie(std::move(name), message, 300);
  }

  /** Takes the message of flash() from the request. It is shown once.
   *
   *  @param sent      a Request, a Form or a FormReader
   *  @param response  deletes the cookie, if one was sent. It may set the next one afterwards
   *  @param name      as for flash()
   */
  template <class Sent>
  [[nodiscard]] Verified take_flash(const Sent &sent, Response &response,
                                    const detail::Name &name = "flash") const noexcept {
    Verified message = verify_cookie(sent, name);
    if (name.c_str() == nullptr || !sent.cookie(name)) return message;
    const std::string_view own = name.c_str();
    SetCookie cookie(own, "");
    cookie.max_age(0);
    // Browsers ignore a cookie with these names, even this one, unless it is secure.
    if (detail::begins_with(own, "__Host-") || detail::begins_with(own, "__Secure-")) {
      cookie.secure();
    }
    response.cookie(cookie);
    return message;
  }

  /** Replaces the clock, for tests. @param now  returns the seconds since 1970 */
  Keys &clock(std::int64_t (*now)()) noexcept {
    now_ = now;
    return *this;
  }

 private:
  static constexpr std::string_view kFormField = "form-token";
  static constexpr std::size_t kMostOfKeys = 8;
  static constexpr std::size_t kMostOfValue = 65536;
  static constexpr std::size_t kMostOfToken =
      sodium_base64_ENCODED_LEN(sizeof(detail::TokenHead) + kMostOfValue, detail::kTokenLetters) -
      1;  // without the zero byte

  Keys(const char *name, void (Keys::*read)(const char *)) noexcept {
    problem_ = detail::problem_of_sodium();
    if (problem_ == nullptr && name == nullptr) problem_ = "keys: no name of a file or variable";
    if (problem_ == nullptr) (this->*read)(name);
    if (problem_ == nullptr && size_ == 0) problem_ = "keys: there is none";
    if (problem_ != nullptr) size_ = 0;
  }

  Text make(const detail::Use &use, std::string_view value, std::int64_t seconds) const noexcept {
    using namespace detail;
    if (problem_ != nullptr) return Text::refused(problem_);
    const std::int64_t now = now_();
    if (value.size() > kMostOfValue) return Text::refused("value to sign is too long");
    if (seconds < 1 || now > INT64_MAX - seconds) {
      return Text::refused("a token must be valid for at least a second");
    }
    TokenHead head{EightBytes(static_cast<std::uint64_t>(now + seconds)), {}};
    put_mac(head, keys_[0], use, value);
    Array<unsigned char> bytes;
    Array<char> letters;
    const std::size_t size = sizeof head + value.size();
    const std::size_t count = sodium_base64_encoded_len(size, kTokenLetters);
    if (bytes.reserve(size) == nullptr || letters.reserve(count) == nullptr) {
      return Text::refused(kOutOfMemory);
    }
    std::memcpy(bytes.data(), &head, sizeof head);
    if (!value.empty()) std::memcpy(bytes.data() + sizeof head, value.data(), value.size());
    sodium_bin2base64(letters.data(), count, bytes.data(), size, kTokenLetters);
    return {adopt, letters.release(), count - 1};
  }
  Verified check(const detail::Use &use, std::optional<std::string_view> token) const noexcept {
    using namespace detail;
    if (problem_ != nullptr) return Verified(Verdict::failed);
    if (!token || token->empty()) return Verified(Verdict::missing);
    // libsodium 1.0.18 reads bytes above 127 as letters. A token has one spelling.
    if (token->size() > kMostOfToken || !all_of(*token, is_token_letter)) {
      return Verified(Verdict::malformed);
    }
    Array<char> decoded;
    char *const block = decoded.reserve(token->size() + 1);
    if (block == nullptr) return Verified(Verdict::failed);
    auto *const bytes = reinterpret_cast<unsigned char *>(block);
    std::size_t size = 0;
    if (sodium_base642bin(bytes, token->size(), token->data(), token->size(), nullptr, &size,
                          nullptr, kTokenLetters) != 0 ||
        size < sizeof(TokenHead)) {
      return Verified(Verdict::malformed);
    }
    size -= sizeof(TokenHead);
    const TokenHead head{EightBytes(bytes), {}};
    bool is_signed = false;
    for (std::size_t i = 0; i < size_ && !is_signed; ++i) {
      TokenHead expected = head;
      put_mac(expected, keys_[i], use, {block + sizeof head, size});
      is_signed = sodium_memcmp(expected.mac, bytes + sizeof head.expiry, kMacSize) == 0;
      sodium_memzero(expected.mac, kMacSize);
    }
    if (!is_signed) return Verified(Verdict::forged);
    const auto expiry = static_cast<std::int64_t>(head.expiry.number());
    if (now_() >= expiry) return Verified(Verdict::expired);
    std::memmove(block, block + sizeof head, size);
    block[size] = '\0';
    return Verified(Text(adopt, decoded.release(), size));
  }

  static std::int64_t system_time() { return std::time(nullptr); }

  void read_variable(const char *name) noexcept {
    const std::optional<std::string_view> text = Environment::variable(name);
    if (!text) problem_ = "keys: the variable is not set";
    parse(detail::or_empty(text));
  }

  void read_file(const char *path) noexcept {
    // The server must not wait for whoever would write to a pipe of this name.
    const int file = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (file < 0) {
      problem_ = "keys: the file cannot be opened";
      return;
    }
    read_open(file);
    close(file);
  }

  void read_open(int file) noexcept {
    struct stat about = {};
    if (fstat(file, &about) != 0 || !S_ISREG(about.st_mode)) {
      problem_ = "keys: not a regular file";
      return;
    }
    if ((about.st_mode & (S_IRWXO | S_IWGRP | S_IXGRP)) != 0) {
      problem_ = "keys: others may read the file, or the group may write it; set mode 600 or 640";
      return;
    }
    char text[4096];
    std::size_t size = 0;
    ssize_t got = 0;
    do {
      got = read(file, text + size, sizeof text - size);
      if (got > 0) size += static_cast<std::size_t>(got);
    } while ((got > 0 && size < sizeof text) || (got < 0 && errno == EINTR));
    if (got < 0) {
      problem_ = "keys: the file cannot be read";
    } else if (size == sizeof text) {
      problem_ = "keys: the file is too long";
    } else {
      parse({text, size});
    }
    sodium_memzero(text, sizeof text);
  }

  void parse(std::string_view text) noexcept {
    constexpr std::string_view kSpace = " \t\r\n";
    for (;;) {
      while (!text.empty() && detail::is_among(text[0], kSpace)) text.remove_prefix(1);
      if (text.empty()) return;
      std::size_t length = 0;
      while (length < text.size() && !detail::is_among(text[length], kSpace)) ++length;
      const std::string_view word(text.data(), length);
      text.remove_prefix(length);
      if (size_ == kMostOfKeys) {
        problem_ = "keys: there are more than 8";
        return;
      }
      std::size_t size = 0;
      if (word.size() != 2 * detail::kKeySize ||
          sodium_hex2bin(keys_[size_], detail::kKeySize, word.data(), word.size(), nullptr, &size,
                         nullptr) != 0 ||
          size != detail::kKeySize) {
        problem_ = "keys: one is not 64 hexadecimal digits";
        return;
      }
      ++size_;
    }
  }

  unsigned char keys_[kMostOfKeys][detail::kKeySize] = {};
  std::size_t size_ = 0;
  const char *problem_ = nullptr;
  std::int64_t (*now_)() = system_time;
};

/** Makes a random text that nobody can guess, such as the value of a session cookie.
 *
 *  @return 32 hexadecimal digits, which are 16 random bytes of getrandom(); or the reason why there is
 *          none: memory ran out, or a filter of system calls forbids getrandom()
 */
[[nodiscard]] inline Text random_id() noexcept {
  unsigned char bytes[16];
  constexpr std::size_t kDigits = 2 * sizeof bytes;
  detail::Array<char> digits;
  if (digits.reserve(kDigits + 1) == nullptr) return Text::refused(detail::kOutOfMemory);
  // randombytes_buf() would end the process if there are none.
  if (!detail::get_random(bytes, sizeof bytes)) return Text::refused("getrandom() failed");
  sodium_bin2hex(digits.data(), kDigits + 1, bytes, sizeof bytes);
  return {adopt, digits.release(), kDigits};
}

}  // namespace tarn

#endif  // TARN_SIGNED_HPP
