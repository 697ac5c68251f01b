// Signed texts, cookies and forms.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sodium.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <tarn.hpp>
#include <tarn/signed.hpp>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>

#include "support/failing_memory.h"
#include "support/script.h"

namespace {
bool isRandomForbidden = false;
}

// Takes the place of the function of libc, for libsodium too.
extern "C" ssize_t getrandom(void *bytes, size_t size, unsigned flags) {
  if (!isRandomForbidden) return syscall(SYS_getrandom, bytes, size, flags);
  errno = EPERM;
  return -1;
}

namespace {

using tarn::Keys;
using tarn::Verdict;
using tarn_test::asScript;
using tarn_test::Variables;

const std::string kKey = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
const std::string kNewer = "f0e0d0c0b0a090807060504030201000ffeeddccbbaa99887766554433221100";

constexpr std::int64_t kNow = 1'800'000'000;
std::int64_t now = kNow;
std::int64_t testTime() { return now; }

// Keys as a script would read them, with a clock that stands still.
class Signed : public testing::Test {
 protected:
  Signed() {
    now = kNow;
    set(kKey);
  }
  ~Signed() override { unsetenv("TARN_TEST_KEYS"); }

  static void set(const std::string &text) { setenv("TARN_TEST_KEYS", text.c_str(), 1); }

  // A new set of keys with each call.
  static std::unique_ptr<Keys> with(const std::string &text) {
    set(text);
    std::unique_ptr<Keys> keys(new Keys(Keys::from_variable("TARN_TEST_KEYS")));
    keys->clock(testTime);
    return keys;
  }

  std::unique_ptr<Keys> keys_ = with(kKey);
};

std::string sign(const Keys &keys, std::string_view purpose, std::string_view value,
                 std::int64_t seconds = 60) {
  const tarn::Text token = keys.sign(purpose, value, seconds);
  EXPECT_TRUE(token) << token.problem();
  return std::string(token.view());
}

std::string bytesOf(std::string_view token) {
  std::string bytes(token.size(), '\0');
  std::size_t size = 0;
  EXPECT_EQ(0, sodium_base642bin(reinterpret_cast<unsigned char *>(bytes.data()), bytes.size(),
                                 token.data(), token.size(), nullptr, &size, nullptr,
                                 sodium_base64_VARIANT_URLSAFE_NO_PADDING));
  bytes.resize(size);
  return bytes;
}

std::string tokenOf(std::string_view bytes) {
  std::string token(
      sodium_base64_encoded_len(bytes.size(), sodium_base64_VARIANT_URLSAFE_NO_PADDING), '\0');
  sodium_bin2base64(token.data(), token.size(),
                    reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(),
                    sodium_base64_VARIANT_URLSAFE_NO_PADDING);
  token.pop_back();
  return token;
}

// ---- Texts ---------------------------------------------------------------------------------------

TEST_F(Signed, TextsComeBackAsTheyWere) {
  const std::string everyByte = [] {
    std::string text;
    for (int byte = 0; byte < 256; ++byte) text += static_cast<char>(byte);
    return text;
  }();
  for (const std::string &value : {std::string(), std::string("Ada"), everyByte,
                                   std::string(65536, '\0'), std::string("a; b=\"c\"\r\n")}) {
    const std::string token = sign(*keys_, "test", value);
    const tarn::Verified read = keys_->verify("test", token);
    EXPECT_TRUE(read) << read.problem();
    EXPECT_EQ(Verdict::valid, read.verdict());
    EXPECT_EQ(nullptr, read.problem());
    EXPECT_EQ(value, read.value());
    EXPECT_EQ('\0', read.value().data()[value.size()]);
    EXPECT_EQ(token.npos,
              token.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvw"
                                      "xyz0123456789-_"));
  }
}

// Worked out with libsodium's other function for the same, from the bytes that the header describes.
TEST_F(Signed, TokensAreTheLettersOfTimeCodeAndValue) {
  const std::string eight = {'\0', '\0', '\0', '\0', '\0', '\0', '\0', '\4'};
  const std::string none(8, '\0');
  const std::string expiry = {'\0', '\0', '\0', '\0', 'k', 'I', '\xd2', '<'};  // kNow + 60
  const std::string message = "t" + eight + "test" + none + expiry + "Ada";
  std::array<unsigned char, 32> key = {};
  for (unsigned char i = 0; i < 32; ++i) key[i] = i;
  std::string code(crypto_auth_BYTES, '\0');
  crypto_auth(reinterpret_cast<unsigned char *>(code.data()),
              reinterpret_cast<const unsigned char *>(message.data()), message.size(), key.data());
  EXPECT_EQ(tokenOf(expiry + code + "Ada"), sign(*keys_, "test", "Ada"));
  EXPECT_EQ(58U, sign(*keys_, "test", "Ada").size());
}

TEST_F(Signed, NoChangedBitIsAccepted) {
  const std::string bytes = bytesOf(sign(*keys_, "test", "Ada Lovelace"));
  ASSERT_TRUE(keys_->verify("test", tokenOf(bytes)));
  for (std::size_t i = 0; i < 8 * bytes.size(); ++i) {
    std::string changed = bytes;
    changed[i / 8] = static_cast<char>(changed[i / 8] ^ 1 << i % 8);
    const tarn::Verified read = keys_->verify("test", tokenOf(changed));
    EXPECT_EQ(Verdict::forged, read.verdict()) << i;
    EXPECT_EQ("", read.value());
    EXPECT_NE(nullptr, read.problem());
  }
}

// Also not one that leads to the same bytes: a token has one spelling.
TEST_F(Signed, NoChangedCharacterIsAccepted) {
  for (const char *value : {"", "A", "Ad", "Ada"}) {
    const std::string token = sign(*keys_, "test", value);
    for (std::size_t i = 0; i < token.size(); ++i) {
      for (int byte = 0; byte < 256; ++byte) {
        std::string changed = token;
        changed[i] = static_cast<char>(byte);
        EXPECT_EQ(changed == token, static_cast<bool>(keys_->verify("test", changed)))
            << value << " " << i << " " << byte;
      }
    }
  }
}

TEST_F(Signed, NothingShorterOrLongerIsAccepted) {
  const std::string token = sign(*keys_, "test", "Ada Lovelace");
  for (std::size_t size = 0; size < token.size(); ++size) {
    EXPECT_FALSE(keys_->verify("test", std::string_view(token).substr(0, size))) << size;
    EXPECT_FALSE(keys_->verify("test", std::string_view(token).substr(size + 1))) << size;
  }
  for (const char *more : {"A", "AA", "AAA", "AAAA", "=", "==", " ", "\n", "\r\n", ".", "+", "/"}) {
    EXPECT_FALSE(keys_->verify("test", token + more)) << more;
    EXPECT_FALSE(keys_->verify("test", more + token)) << more;
  }
  EXPECT_FALSE(keys_->verify("test", token + std::string(1, '\0')));
  EXPECT_FALSE(keys_->verify("test", token + token));
}

TEST_F(Signed, TellsWhyThereIsNoValue) {
  EXPECT_EQ(Verdict::missing, keys_->verify("test", std::nullopt).verdict());
  EXPECT_EQ(Verdict::missing, keys_->verify("test", "").verdict());
  EXPECT_EQ(Verdict::malformed, keys_->verify("test", "!").verdict());
  EXPECT_EQ(Verdict::malformed, keys_->verify("test", std::string(53, 'A')).verdict());
  EXPECT_EQ(Verdict::malformed, keys_->verify("test", std::string(57, 'A')).verdict());
  EXPECT_EQ(Verdict::forged, keys_->verify("test", std::string(54, 'A')).verdict());
  EXPECT_STREQ("token is missing", keys_->verify("test", "").problem());
  EXPECT_STREQ("token is malformed", keys_->verify("test", "!").problem());
  now = kNow + 60;
  const std::string token = sign(*keys_, "test", "Ada");
  now = kNow + 120;
  const tarn::Verified late = keys_->verify("test", token);
  EXPECT_EQ(Verdict::expired, late.verdict());
  EXPECT_STREQ("token has expired", late.problem());
  EXPECT_EQ("", late.value());
}

TEST_F(Signed, HugeTokensAreRefusedAtOnce) {
  const tarn::Text longer = keys_->sign("test", std::string(65537, 'a'), 60);
  EXPECT_FALSE(longer);
  EXPECT_STREQ("value to sign is too long", longer.problem());
  const std::string longest = sign(*keys_, "test", std::string(65536, 'a'));
  EXPECT_EQ(Verdict::forged, keys_->verify("other", longest).verdict());
  EXPECT_EQ(Verdict::forged, keys_->verify("test", std::string(longest.size(), 'A')).verdict());
  EXPECT_EQ(Verdict::malformed, keys_->verify("test", longest + "A").verdict());
  // Without memory, it would fail if it tried to decode this.
  const std::string huge(100'000'000, 'A');
  Verdict verdict = Verdict::valid;
  tarn_test::withoutMemory([&] { verdict = keys_->verify("test", huge).verdict(); });
  EXPECT_EQ(Verdict::malformed, verdict);
}

TEST_F(Signed, PurposesDoNotShareTokens) {
  const std::string token = sign(*keys_, "test", "Ada");
  for (const char *other : {"", "tes", "test ", "Test", "testA"}) {
    EXPECT_EQ(Verdict::forged, keys_->verify(other, token).verdict()) << other;
  }
  // The same characters, divided otherwise.
  EXPECT_EQ(Verdict::forged, keys_->verify("a", sign(*keys_, "ab", "c")).verdict());
  std::string shifted = bytesOf(sign(*keys_, "ab", "c"));
  shifted.insert(shifted.size() - 1, "b");
  EXPECT_EQ(Verdict::forged, keys_->verify("a", tokenOf(shifted)).verdict());
}

// ---- Time ----------------------------------------------------------------------------------------

TEST_F(Signed, TokensExpireWithTheSecond) {
  const std::string token = sign(*keys_, "test", "Ada", 1);
  EXPECT_TRUE(keys_->verify("test", token));
  now = kNow + 1;
  EXPECT_EQ(Verdict::expired, keys_->verify("test", token).verdict());
  now = kNow - 1000000;
  EXPECT_TRUE(keys_->verify("test", token));
  now = INT64_MAX;
  EXPECT_EQ(Verdict::expired, keys_->verify("test", token).verdict());
}

TEST_F(Signed, LifetimesAreAtLeastASecond) {
  for (const std::int64_t seconds :
       {std::int64_t{0}, std::int64_t{-1}, INT64_MIN, INT64_MAX, INT64_MAX - kNow + 1}) {
    const tarn::Text token = keys_->sign("test", "Ada", seconds);
    EXPECT_FALSE(token) << seconds;
    EXPECT_STREQ("a token must be valid for at least a second", token.problem());
  }
  EXPECT_TRUE(keys_->verify("test", sign(*keys_, "test", "Ada", INT64_MAX - kNow)));
}

TEST_F(Signed, TimeIsTheSystemsUnlessItIsReplaced) {
  const Keys keys = Keys::from_variable("TARN_TEST_KEYS");
  const std::string token = sign(keys, "test", "Ada", 3600);
  EXPECT_TRUE(keys.verify("test", token));
  now = std::time(nullptr);
  EXPECT_TRUE(keys_->verify("test", token));
  now += 3590;
  EXPECT_TRUE(keys_->verify("test", token));
  now += 20;
  EXPECT_EQ(Verdict::expired, keys_->verify("test", token).verdict());
}

// ---- Keys ----------------------------------------------------------------------------------------

TEST_F(Signed, OtherKeysDoNotVerify) {
  const std::string token = sign(*keys_, "test", "Ada");
  EXPECT_EQ(Verdict::forged, with(kNewer)->verify("test", token).verdict());
}

TEST_F(Signed, TheFirstKeySignsAndAllVerify) {
  const auto before = with(kKey);
  const auto during = with(kNewer + "\n" + kKey + "\n");
  const auto after = with(kNewer);
  EXPECT_EQ(2U, during->size());
  const std::string old = sign(*before, "test", "Ada");
  const std::string fresh = sign(*during, "test", "Ada");
  EXPECT_EQ(fresh, sign(*after, "test", "Ada"));
  EXPECT_TRUE(during->verify("test", old));
  EXPECT_TRUE(during->verify("test", fresh));
  EXPECT_TRUE(after->verify("test", fresh));
  EXPECT_EQ(Verdict::forged, after->verify("test", old).verdict());
  EXPECT_EQ(Verdict::forged, before->verify("test", fresh).verdict());
}

TEST_F(Signed, KeysAreSeparatedByWhiteSpace) {
  std::string upper = kKey;
  for (char &c : upper) c = static_cast<char>(std::toupper(c));
  for (const std::string &text :
       {kKey, kKey + "\n", "\n\n" + kKey, kKey + "\r\n", upper, " \t" + kKey + " "}) {
    const auto keys = with(text);
    EXPECT_TRUE(*keys) << text << keys->problem();
    EXPECT_EQ(1U, keys->size());
    EXPECT_EQ(nullptr, keys->problem());
    EXPECT_EQ(sign(*keys_, "test", "Ada"), sign(*keys, "test", "Ada"));
  }
  std::string eight;
  for (int i = 0; i < 8; ++i) eight += kKey + "\n";
  EXPECT_EQ(8U, with(eight)->size());
  EXPECT_STREQ("keys: there are more than 8", with(eight + kKey)->problem());
}

TEST_F(Signed, MalformedKeysAreRefusedAltogether) {
  for (const std::string &text :
       {kKey.substr(1), kKey.substr(2), kKey + "0", kKey + "00", kKey + kKey, "0x" + kKey,
        kKey.substr(0, 63) + "g", kKey.substr(0, 62) + ":0", "# " + kKey, kKey + ",", kKey + "\v",
        std::string("secret")}) {
    for (const std::string &all : {text, kNewer + "\n" + text, text + "\n" + kNewer}) {
      const auto keys = with(all);
      EXPECT_FALSE(*keys) << all;
      EXPECT_EQ(0U, keys->size());
      EXPECT_STREQ("keys: one is not 64 hexadecimal digits", keys->problem());
    }
  }
  for (std::size_t i = 0; i < kKey.size(); ++i) {
    for (int byte = 1; byte < 256; ++byte) {
      std::string changed = kKey;
      changed[i] = static_cast<char>(byte);
      const bool isDigit = std::string_view("0123456789abcdefABCDEF").find(changed[i]) != kKey.npos;
      EXPECT_EQ(isDigit, static_cast<bool>(*with(changed))) << i << " " << byte;
    }
  }
  for (const char *text : {"", " ", "\n\n"})
    EXPECT_STREQ("keys: there is none", with(text)->problem());
  unsetenv("TARN_TEST_KEYS");
  EXPECT_STREQ("keys: the variable is not set", Keys::from_variable("TARN_TEST_KEYS").problem());
  EXPECT_STREQ("keys: no name of a file or variable", Keys::from_variable(nullptr).problem());
  EXPECT_STREQ("keys: no name of a file or variable", Keys::from_file(nullptr).problem());
}

TEST_F(Signed, WithoutKeysNothingIsSignedAndNothingIsValid) {
  const auto none = with("");
  EXPECT_STREQ("keys: there is none", none->sign("test", "Ada", 60).problem());
  EXPECT_EQ(Verdict::failed, none->verify("test", sign(*keys_, "test", "Ada")).verdict());
  EXPECT_EQ(Verdict::failed, none->verify("test", std::nullopt).verdict());
  EXPECT_EQ(Verdict::failed, none->verify("test", std::string(54, 'A')).verdict());
  EXPECT_FALSE(none->sign_form("test", "session", 60));
  testing::internal::CaptureStdout();
  tarn::Response response;
  EXPECT_FALSE(response.cookie(none->sign_cookie("user", "Ada", 60)).send());
  EXPECT_EQ(0U, testing::internal::GetCapturedStdout().find("Status: 500 "));
  EXPECT_STREQ("cookie has a text that is a null pointer or could not be copied",
               response.problem());
}

TEST_F(Signed, KeysAreWipedWhenTheyAreDestroyed) {
  alignas(Keys) std::array<unsigned char, sizeof(Keys)> memory = {};
  const std::string_view held(reinterpret_cast<const char *>(memory.data()), memory.size());
  const std::string key = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  set(kKey + " " + kNewer + " junk");  // keys that are refused, too
  for (const char *name : {"TARN_TEST_KEYS", "TARN_TEST_MORE"}) {
    setenv("TARN_TEST_MORE", kKey.c_str(), 1);
    Keys *const keys = new (memory.data()) Keys(Keys::from_variable(name));
    EXPECT_NE(held.npos, held.find(key));
    keys->~Keys();
    asm volatile("" : : "r"(memory.data()) : "memory");
    EXPECT_EQ(held.npos, held.find(key));
  }
  unsetenv("TARN_TEST_MORE");
}

static_assert(!std::is_copy_constructible_v<Keys> && !std::is_move_constructible_v<Keys>);
static_assert(!std::is_copy_assignable_v<Keys> && !std::is_move_assignable_v<Keys>);

// ---- Key files -----------------------------------------------------------------------------------

class KeyFile : public Signed {
 protected:
  KeyFile() {
    EXPECT_NE(nullptr, mkdtemp(folder_.data()));
    path_ = folder_ + "/keys";
  }
  ~KeyFile() override {
    unlink(path_.c_str());
    rmdir(folder_.c_str());
  }

  void write(std::string_view text, mode_t mode) {
    unlink(path_.c_str());
    const int file = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    ASSERT_GE(file, 0);
    EXPECT_EQ(static_cast<ssize_t>(text.size()), ::write(file, text.data(), text.size()));
    EXPECT_EQ(0, fchmod(file, mode));
    close(file);
  }

  std::string folder_ = "/tmp/tarn-keys-XXXXXX";
  std::string path_;
};

TEST_F(KeyFile, HasTheKeysOfItsLines) {
  for (const std::string end : {"\n", "", "\r\n"}) {
    write(kNewer + "\n" + kKey + end, 0600);
    Keys keys = Keys::from_file(path_);
    keys.clock(testTime);
    EXPECT_EQ(2U, keys.size()) << keys.problem();
    EXPECT_EQ(sign(*with(kNewer), "test", "Ada"), sign(keys, "test", "Ada"));
    EXPECT_TRUE(keys.verify("test", sign(*with(kKey), "test", "Ada")));
  }
}

TEST_F(KeyFile, IsRefusedWhenOthersHaveAccess) {
  for (mode_t mode = 0; mode < 01000; ++mode) {
    // Root can read a file without any rights.
    if ((mode & 0400) == 0) continue;
    write(kKey, mode);
    const bool isPrivate = (mode & 037) == 0;
    const Keys keys = Keys::from_file(path_);
    EXPECT_EQ(isPrivate, static_cast<bool>(keys)) << std::oct << mode;
    if (isPrivate) continue;
    EXPECT_EQ(0U, keys.size());
    EXPECT_STREQ("keys: others may read the file, or the group may write it; set mode 600 or 640",
                 keys.problem());
  }
}

TEST_F(KeyFile, MustBeAShortRegularFile) {
  EXPECT_STREQ("keys: the file cannot be opened", Keys::from_file(path_).problem());
  EXPECT_STREQ("keys: not a regular file", Keys::from_file(folder_).problem());
  EXPECT_STREQ("keys: not a regular file", Keys::from_file("/dev/null").problem());
  ASSERT_EQ(0, mkfifo(path_.c_str(), 0600));
  EXPECT_STREQ("keys: not a regular file", Keys::from_file(path_).problem());
  write("", 0600);
  EXPECT_STREQ("keys: there is none", Keys::from_file(path_).problem());
  write(kKey + std::string(4031, '\n'), 0600);
  EXPECT_EQ(1U, Keys::from_file(path_).size());
  write(kKey + std::string(4032, '\n'), 0600);
  EXPECT_STREQ("keys: the file is too long", Keys::from_file(path_).problem());
  write(kKey.substr(2), 0600);
  EXPECT_STREQ("keys: one is not 64 hexadecimal digits", Keys::from_file(path_).problem());
  write(kKey + '\0', 0600);
  EXPECT_STREQ("keys: one is not 64 hexadecimal digits", Keys::from_file(path_).problem());
}

// ---- Requests ------------------------------------------------------------------------------------

// The value of the cookie that a response sets.
std::string setCookie(const tarn::SetCookie &cookie) {
  testing::internal::CaptureStdout();
  tarn::Response response;
  EXPECT_TRUE(response.cookie(cookie).send()) << response.problem();
  const std::string sent = testing::internal::GetCapturedStdout();
  const std::size_t begin = sent.find("Set-Cookie: ") + 12;
  return sent.substr(begin, sent.find("; ", begin) - begin);
}

// The value of the hidden field.
std::string valueOf(const tarn::Element &field) {
  const tarn::Text html = tarn::html(field);
  const std::string before = "<input type=\"hidden\" name=\"form-token\" value=\"";
  EXPECT_EQ(0U, html.view().find(before)) << html.view();
  const std::string rest(html.view().substr(before.size()));
  return rest.substr(0, rest.find('"'));
}

void withCookies(const std::string &cookies, const std::function<void()> &script) {
  asScript({{"REQUEST_METHOD", "GET"}, {"HTTP_COOKIE", cookies}}, "", script);
}

TEST_F(Signed, CookiesComeBackInRequestsAndForms) {
  const std::string cookie = setCookie(keys_->sign_cookie("user", "Ada; Lovelace", 60));
  withCookies("a=b; " + cookie + "; c=d", [&] {
    const tarn::Request request;
    EXPECT_EQ("Ada; Lovelace", keys_->verify_cookie(request, "user").value());
    EXPECT_EQ(Verdict::missing, keys_->verify_cookie(request, "use").verdict());
    EXPECT_EQ(Verdict::malformed, keys_->verify_cookie(request, "a").verdict());
    EXPECT_EQ(Verdict::missing, keys_->verify_cookie(request, nullptr).verdict());
    now = kNow + 60;
    EXPECT_EQ(Verdict::expired, keys_->verify_cookie(request, "user").verdict());
  });
  withCookies(cookie, [&] {
    const tarn::Form form;
    EXPECT_EQ("Ada; Lovelace", keys_->verify_cookie(form, "user").value());
  });
  withCookies(cookie, [&] {
    const tarn::FormReader reader;
    EXPECT_EQ("Ada; Lovelace", keys_->verify_cookie(reader, std::string("user")).value());
  });
}

TEST_F(Signed, CookiesAreGoodUnderTheirNameOnly) {
  const std::string cookie = setCookie(keys_->sign_cookie("user", "Ada", 60));
  const std::string value = cookie.substr(cookie.find('=') + 1);
  withCookies("admin=" + value + "; users=" + value + "; text=" + sign(*keys_, "text", "Ada") +
                  "; form-token=" + valueOf(keys_->sign_form("form-token", "s", 60)),
              [&] {
                const tarn::Request request;
                for (const char *name : {"admin", "users", "text", "form-token"}) {
                  EXPECT_EQ(Verdict::forged, keys_->verify_cookie(request, name).verdict()) << name;
                }
              });
  EXPECT_EQ(Verdict::forged, keys_->verify("user", value).verdict());
}

TEST_F(Signed, TheFirstCookieOfANameCounts) {
  const std::string cookie = setCookie(keys_->sign_cookie("user", "Ada", 60));
  withCookies("user=x; " + cookie, [&] {
    const tarn::Request request;
    EXPECT_EQ(Verdict::malformed, keys_->verify_cookie(request, "user").verdict());
  });
}

TEST_F(Signed, CookiesThatAreTooLongOrHaveNoNameAreRefused) {
  testing::internal::CaptureStdout();
  tarn::Response longest;
  EXPECT_TRUE(longest.cookie(keys_->sign_cookie("user", std::string(3000, 'a'), 60)).send());
  tarn::Response longer;
  EXPECT_FALSE(longer.cookie(keys_->sign_cookie("user", std::string(3030, 'a'), 60)).send());
  tarn::Response nameless;
  const char *const none = nullptr;
  EXPECT_FALSE(nameless.cookie(keys_->sign_cookie(none, "Ada", 60)).send());
  testing::internal::GetCapturedStdout();
}

// Runs a script as a POST of a form with this token.
void withToken(const std::string &token, const std::function<void()> &script) {
  asScript(tarn_test::post("application/x-www-form-urlencoded", "a=b&form-token=" + token),
           "a=b&form-token=" + token, script);
}

TEST_F(Signed, FormsAreGoodForTheirPurposeAndSession) {
  const std::string token = valueOf(keys_->sign_form("delete", "session 1", 60));
  withToken(token, [&] {
    const tarn::Form form;
    EXPECT_TRUE(keys_->verify_form(form, "delete", "session 1"));
    EXPECT_EQ("", keys_->verify_form(form, "delete", "session 1").value());
    for (const char *session : {"session 2", "session ", "session 11", "delete"}) {
      EXPECT_EQ(Verdict::forged, keys_->verify_form(form, "delete", session).verdict()) << session;
    }
    for (const char *purpose : {"", "delet", "deletes", "session 1", "deletesession 1"}) {
      EXPECT_EQ(Verdict::forged, keys_->verify_form(form, purpose, "session 1").verdict())
          << purpose;
    }
    EXPECT_EQ(Verdict::missing, keys_->verify_form(form, "delete", "").verdict());
    now = kNow + 59;
    EXPECT_TRUE(keys_->verify_form(form, "delete", "session 1"));
    now = kNow + 60;
    EXPECT_EQ(Verdict::expired, keys_->verify_form(form, "delete", "session 1").verdict());
  });
  withToken(token, [&] {
    const tarn::Request request;
    EXPECT_TRUE(keys_->verify_form(request, "delete", "session 1"));
    EXPECT_EQ(Verdict::forged, keys_->verify_form(request, "delete", "session 2").verdict());
  });
}

TEST_F(Signed, FormsNeedAToken) {
  for (const std::string &token :
       {std::string(), std::string("x"), sign(*keys_, "delete", ""), std::string(54, 'A')}) {
    withToken(token, [&] {
      const tarn::Form form;
      EXPECT_FALSE(keys_->verify_form(form, "delete", "session 1"));
    });
  }
  asScript(tarn_test::get("a=b"), "", [&] {
    const tarn::Form form;
    EXPECT_EQ(Verdict::missing, keys_->verify_form(form, "delete", "session 1").verdict());
  });
  // Where a purpose ends and a session begins matters.
  withToken(valueOf(keys_->sign_form("a", "bc", 60)), [&] {
    const tarn::Form form;
    EXPECT_EQ(Verdict::forged, keys_->verify_form(form, "ab", "c").verdict());
  });
}

TEST_F(Signed, FormsWithoutASessionAreRefused) {
  EXPECT_FALSE(keys_->sign_form("delete", "", 60));
  EXPECT_FALSE(keys_->sign_form("delete", "session", 0));
  testing::internal::CaptureStdout();
  tarn::Response response;
  EXPECT_FALSE(response.send(tarn::Element("form", keys_->sign_form("delete", "", 60))));
  EXPECT_EQ(0U, testing::internal::GetCapturedStdout().find("Status: 500 "));
}

TEST_F(Signed, MessagesAreShownOnceWithinFiveMinutes) {
  const std::string cookie = setCookie(keys_->flash("Saved <1> note."));
  const auto expect = [&](const std::string &cookies, std::string_view body, bool isDeleted) {
    withCookies(cookies, [&] {
      testing::internal::CaptureStdout();
      const tarn::Request request;
      tarn::Response response;
      const tarn::Verified message = keys_->take_flash(request, response);
      EXPECT_TRUE(response.send_text(message.value())) << response.problem();
      const std::string sent = testing::internal::GetCapturedStdout();
      EXPECT_EQ(body, sent.substr(sent.find("\r\n\r\n") + 4));
      EXPECT_EQ(isDeleted, sent.npos != sent.find("Set-Cookie: flash=; Max-Age=0; Path=/; HttpOnly;"
                                                  " SameSite=Lax\r\n"))
          << sent;
    });
  };
  expect(cookie, "Saved <1> note.", true);
  expect("a=b", "", false);
  expect("flash=", "", true);
  expect("flash=forged", "", true);
  now = kNow + 299;
  expect(cookie, "Saved <1> note.", true);
  now = kNow + 300;
  expect(cookie, "", true);
}

TEST_F(Signed, MessagesCanHaveAnotherName) {
  const std::string cookie = setCookie(keys_->flash("Saved.", "__Host-note").secure());
  withCookies(cookie, [&] {
    testing::internal::CaptureStdout();
    const tarn::Form form;
    tarn::Response response;
    EXPECT_EQ(Verdict::missing, keys_->take_flash(form, response).verdict());
    EXPECT_EQ(Verdict::missing, keys_->take_flash(form, response, nullptr).verdict());
    EXPECT_EQ("Saved.", keys_->take_flash(form, response, "__Host-note").value());
    EXPECT_TRUE(response.send()) << response.problem();
    const std::string sent = testing::internal::GetCapturedStdout();
    EXPECT_NE(sent.npos, sent.find("Set-Cookie: __Host-note=; Max-Age=0; Path=/; Secure;")) << sent;
    EXPECT_EQ(sent.npos, sent.find("Set-Cookie: flash")) << sent;
  });
}

TEST_F(Signed, RandomIdsDiffer) {
  std::set<std::string> all;
  for (int i = 0; i < 1000; ++i) {
    const tarn::Text id = tarn::random_id();
    ASSERT_TRUE(id);
    EXPECT_EQ(32U, id.view().size());
    EXPECT_EQ(std::string_view::npos, id.view().find_first_not_of("0123456789abcdef"));
    all.emplace(id.view());
  }
  EXPECT_EQ(1000U, all.size());
}

// libsodium would end the process.
TEST_F(Signed, WithoutRandomBytesThereAreNeitherKeysNorIds) {
  asScript({{"KEYS", kKey}}, "", [] {
    isRandomForbidden = true;
    const Keys keys = Keys::from_variable("KEYS");
    EXPECT_STREQ("keys: libsodium needs getrandom(), which failed", keys.problem());
    EXPECT_EQ(Verdict::failed, keys.verify("test", "token").verdict());
    const tarn::Text id = tarn::random_id();
    EXPECT_STREQ("getrandom() failed", id.problem());
    EXPECT_EQ("", id.view());
    isRandomForbidden = false;
    EXPECT_TRUE(Keys::from_variable("KEYS"));
    EXPECT_TRUE(tarn::random_id());
  });
}

// ---- Memory --------------------------------------------------------------------------------------

TEST_F(Signed, WithoutMemoryNothingIsSigned) {
  tarn_test::forEachFailingAllocation([this](tarn_test::FailingMemory &memory) {
    const tarn::Text token = memory.call([this] { return keys_->sign("test", "Ada", 60); });
    EXPECT_EQ(memory.failed(), !token);
    EXPECT_STREQ(memory.failed() ? "out of memory" : nullptr, token.problem());
  });
  tarn_test::forEachFailingAllocation([](tarn_test::FailingMemory &memory) {
    const tarn::Text id = memory.call([] { return tarn::random_id(); });
    EXPECT_EQ(memory.failed(), !id);
  });
}

TEST_F(Signed, WithoutMemoryNothingIsValid) {
  const std::string token = sign(*keys_, "test", "Ada");
  tarn_test::forEachFailingAllocation([&](tarn_test::FailingMemory &memory) {
    const tarn::Verified read = memory.call([&] { return keys_->verify("test", token); });
    EXPECT_EQ(memory.failed() ? Verdict::failed : Verdict::valid, read.verdict());
    EXPECT_EQ(memory.failed() ? "" : "Ada", read.value());
  });
}

TEST_F(Signed, WithoutMemoryNoPageHasAFormWithoutItsField) {
  tarn_test::forEachFailingAllocation([this](tarn_test::FailingMemory &memory) {
    const tarn::Element form = memory.call(
        [this] { return tarn::Element("form", keys_->sign_form("delete", "session", 60)); });
    EXPECT_EQ(memory.failed(), !form);
  });
}

}  // namespace
