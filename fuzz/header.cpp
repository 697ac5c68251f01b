// Builds responses from untrusted headers, cookies and redirects, and reads them back line by line.
#include <algorithm>
#include <optional>

#include "request.h"
#include "tarn.hpp"

using namespace tarn_fuzz;

namespace {

using Lines = std::vector<std::pair<std::string, std::string>>;

const std::string kFailure =
    "Status: 500 Internal Server Error\r\n"
    "Content-Type: text/plain; charset=utf-8\r\n"
    "Content-Length: 22\r\n"
    "\r\n"
    "Internal Server Error\n";

const std::string kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

bool consistsOf(std::string_view text, std::string_view set) {
  return text.find_first_not_of(set) == text.npos;
}

bool isName(std::string_view text) {
  return !text.empty() && consistsOf(text, kLetters + "!#$%&'*+-.^_`|~");
}

bool isValue(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<uint8_t>(c);
    return byte == '\t' || (byte >= ' ' && byte != 0x7F);
  });
}

bool isReserved(std::string_view name) {
  for (const char *one :
       {"connection", "content-disposition", "content-length", "content-type", "etag",
        "last-modified", "location", "set-cookie", "status", "transfer-encoding"}) {
    if (tarn_rules::lowered(std::string(name)) == one) return true;
  }
  return false;
}

// Reads a URL as browsers do: drops leading blanks and control characters, drops tabs and line ends
// everywhere, and treats "\" as "/".
std::string asBrowsersRead(std::string_view url) {
  std::string read;
  for (const char c : url) {
    if (c == '\t' || c == '\n' || c == '\r' || (read.empty() && static_cast<uint8_t>(c) <= ' ')) {
      continue;
    }
    read += c == '\\' ? '/' : c;
  }
  return read;
}

// A response, and everything that was added to it, to check against what it writes.
struct Answer {
  Stream out;
  tarn::Response response{out.file()};
  int status = 200;
  std::string type = "text/plain; charset=utf-8";
  std::string location;
  Lines headers;
  // Headers that are sent once, the last value.
  std::optional<std::string> policy;
  std::optional<std::string> language;
  std::optional<std::string> allowed;
  std::string etag;
  std::string disposition;  // the name
  bool isAttachment = false;
  Lines cookies;

  bool accepts() const { return response.problem() == nullptr; }
};

// ---- Building the response ----------------------------------------------------------------------

void header(Input &input, Answer &answer) {
  const std::string name(input.piece());
  const std::string value(input.piece());
  answer.response.header(name, value);
  EXPECT(answer.accepts() == (isName(name) && isValue(value) && !isReserved(name)));
  answer.headers.emplace_back(name, value);
}

void knownHeader(Input &input, Answer &answer) {
  const std::string value(input.piece());
  switch (input.below(4)) {
    case 0:
      answer.response.allow(value);
      answer.allowed = value;
      break;
    case 1:
      answer.response.content_language(value);
      answer.language = value;
      break;
    case 2:
      answer.response.content_security_policy(value);
      answer.policy = value;
      break;
    default:
      answer.response.etag(value);
      answer.etag = '"' + value + '"';
      EXPECT(!answer.accepts() || value.find('"') == value.npos);
      return;
  }
  EXPECT(answer.accepts() == isValue(value));
}

void attachment(Input &input, Answer &answer) {
  const std::string name(input.piece());
  answer.response.attachment(name);
  EXPECT(answer.accepts());
  answer.disposition = name;
  answer.isAttachment = true;
}

// What a browser makes of the header: a name without folders and control characters, which is the one
// that was given if that has neither.
void expectAttachment(const std::string &value, const std::string &given) {
  const std::string start = "attachment; filename=\"";
  const std::string last = given.substr(given.find_last_of("/\\") + 1);
  EXPECT((value == "attachment") == last.empty());
  if (last.empty()) return;
  EXPECT(value.rfind(start, 0) == 0);
  const std::string extended = "; filename*=UTF-8''";
  // No name that Tarn writes needs a backslash, so the next quotation mark ends it.
  const size_t end = value.find('"', start.size());
  EXPECT(end != value.npos);
  const std::string plain = value.substr(start.size(), end - start.size());
  EXPECT(!plain.empty() && plain.find_first_of("\\%") == plain.npos && isValue(plain));
  EXPECT(std::none_of(plain.begin(), plain.end(), [](char c) { return (c & 0x80) != 0; }));
  std::string name = plain;
  const std::string rest = value.substr(end + 1);
  if (!rest.empty()) {
    EXPECT(rest.rfind(extended, 0) == 0);
    const std::string encoded = rest.substr(extended.size());
    EXPECT(consistsOf(encoded, kLetters + "%-._~"));
    name = tarn_rules::decoded(encoded.c_str());
    EXPECT(name != plain);
  }
  EXPECT(isValue(name) && name.find_first_of("/\\\t") == name.npos);
  if (consistsOf(last, kLetters + " !#$&'()+,-.;=@[]^_`{}~%\"")) EXPECT(name == last);
}

void type(Input &input, Answer &answer) {
  answer.type = input.piece();
  answer.response.content_type(answer.type);
  EXPECT(answer.accepts() == (!answer.type.empty() && isValue(answer.type)));
}

void status(Input &input, Answer &answer) {
  answer.status = 3 * input.byte() + input.byte() % 3;
  answer.response.status(answer.status);
  EXPECT(answer.accepts() == (answer.status >= 200 && answer.status < 600));
  const int redirections[] = {301, 302, 303, 307, 308};
  if (std::count(std::begin(redirections), std::end(redirections), answer.status) == 0) {
    answer.location.clear();
  }
}

void redirection(Input &input, Answer &answer) {
  answer.location = input.piece();
  answer.status = 301 + static_cast<int>(input.below(3));
  answer.response.redirect(answer.location, answer.status);
  const std::string read = asBrowsersRead(answer.location);
  EXPECT(!answer.accepts() || (read[0] == '/' && read[1] != '/'));
  const bool plain =
      !read.empty() && read[0] == '/' && consistsOf(read.substr(1), kLetters + "?=&");
  EXPECT(answer.accepts() || !plain || read != answer.location);
}

void redirectionAway(Input &input, Answer &answer) {
  answer.location = input.piece();
  answer.status = 303;
  answer.response.redirect_away(answer.location);
  const std::string read = tarn_rules::lowered(asBrowsersRead(answer.location));
  const size_t host = read.rfind("http://", 0) == 0 ? 7 : read.rfind("https://", 0) == 0 ? 8 : 0;
  EXPECT(!answer.accepts() || (host > 0 && read[host] != '/' && read[host] != '\0'));
  const bool plain = host > 0 && read.size() > host && consistsOf(read.substr(host), kLetters);
  EXPECT(answer.accepts() || !plain || read != answer.location);
}

// Checks that the cookie comes back in the browser's next request.
void expectBack(const std::string &pair, const std::string &name, const std::string &value) {
  Script script({{"HTTP_COOKIE", "first=1; " + pair + "; last=1"}}, "");
  TarnHandle environment = 0;
  EXPECT(CgiEnv_new(&environment) == TARN_OK);
  const Cookies cookies =
      cookiesOf(CGIgs_getStruct(&environment, TARN_ENVIRONMENT_COOKIES, TARN_ENVIRONMENT_MAGIC));
  EXPECT(cookies.size() == 3 && cookies[1].name == name && cookies[1].value == value);
  EXPECT(CgiEnv_delete(&environment) == TARN_OK);
}

void cookie(Input &input, Answer &answer) {
  const std::string name(input.piece());
  const std::string value(input.piece());
  const uint32_t flags = input.byte();
  tarn::SetCookie made(name, value);
  std::string attributes;
  if (flags & 1) {
    const auto seconds = static_cast<int32_t>(input.anyNumber());
    made.max_age(seconds);
    attributes += "; Max-Age=" + std::to_string(seconds);
  }
  const std::string domain(flags & 2 ? input.piece() : "");
  made.domain(domain);
  if (!domain.empty()) attributes += "; Domain=" + domain;
  const std::string path(flags & 4 ? input.piece() : "/");
  made.path(path);
  attributes += "; Path=" + path;
  const bool secure = flags & 8;
  if (secure) made.secure();
  if (secure) attributes += "; Secure";
  if (flags & 16) made.readable_by_scripts();
  if (!(flags & 16)) attributes += "; HttpOnly";
  const uint32_t site = flags / 32 % 3;
  made.same_site(static_cast<tarn::SameSite>(site));
  const char *const sites[] = {"Strict", "Lax", "None"};
  attributes += std::string("; SameSite=") + sites[site];
  const bool partitioned = flags / 96 == 1;
  if (partitioned) made.partitioned();
  if (partitioned) attributes += "; Partitioned";
  answer.response.cookie(made);

  const std::string prefix = tarn_rules::lowered(name).substr(0, 9);
  const bool forHost = prefix.rfind("__host-", 0) == 0;
  const bool needsHttps = forHost || prefix == "__secure-" || site == 2;
  const bool sound =
      isName(name) && name.find_first_of("%+") == name.npos && value.find('\0') == value.npos &&
      consistsOf(domain, kLetters + "-.") && path.rfind('/', 0) == 0 && isValue(path) &&
      path.find_first_of(" \t;") == path.npos &&
      std::all_of(path.begin(), path.end(), [](char c) { return (c & 0x80) == 0; }) &&
      (secure || (!needsHttps && !partitioned)) && (!forHost || (path == "/" && domain.empty())) &&
      std::max(path.size(), domain.size()) <= 1024;
  const tarn::Text escaped = tarn::escape_url(value);
  const bool accepted = sound && name.size() + escaped.view().size() <= 4096;
  EXPECT(answer.accepts() == accepted);
  if (!accepted) return;
  EXPECT(consistsOf(escaped.view(), kLetters + "%-._~"));
  const std::string pair = name + "=" + escaped.c_str();
  expectBack(pair, name, value);
  answer.cookies.emplace_back("Set-Cookie", pair + attributes);
}

// ---- Reading the response -----------------------------------------------------------------------

// Removes and returns the first line. Every kind of line end counts, as in the most lenient server.
std::string nextLine(std::string &text) {
  const size_t end = text.find_first_of("\r\n");
  EXPECT(end != text.npos);
  std::string line = text.substr(0, end);
  text.erase(0, end + (text.compare(end, 2, "\r\n") == 0 ? 2 : 1));
  return line;
}

Lines takeHeader(std::string &text) {
  Lines lines;
  for (std::string line = nextLine(text); !line.empty(); line = nextLine(text)) {
    const size_t colon = line.find(": ");
    EXPECT(isName(line.substr(0, colon)) && line.find('\0') == line.npos);
    lines.emplace_back(line.substr(0, colon), line.substr(colon + 2));
  }
  return lines;
}

void expectAnswer(Answer &answer, const std::string &body) {
  const bool accepted = answer.accepts();
  EXPECT(answer.response.send_text(body) == accepted);
  std::string text = answer.out.written();
  if (!accepted) {
    EXPECT(text == kFailure);
    return;
  }
  const bool hasBody = answer.status != 204 && answer.status != 205 && answer.status != 304;
  Lines expected;
  if (hasBody) expected.emplace_back("Content-Type", answer.type);
  if (!answer.location.empty()) expected.emplace_back("Location", answer.location);
  expected.insert(expected.end(), answer.headers.begin(), answer.headers.end());
  if (answer.policy) expected.emplace_back("Content-Security-Policy", *answer.policy);
  if (answer.language) expected.emplace_back("Content-Language", *answer.language);
  if (answer.allowed) expected.emplace_back("Allow", *answer.allowed);
  if (!answer.etag.empty()) expected.emplace_back("ETag", answer.etag);
  expected.insert(expected.end(), answer.cookies.begin(), answer.cookies.end());
  if (hasBody) expected.emplace_back("Content-Length", std::to_string(body.size()));
  Lines lines = takeHeader(text);
  if (answer.status != 200) {
    const std::string status = lines.at(0).second;
    EXPECT(lines[0].first == "Status" && status.rfind(std::to_string(answer.status) + " ", 0) == 0);
    lines.erase(lines.begin());
  }
  if (answer.isAttachment) {
    // A header that was added may have the same name; it comes before.
    const auto last = std::find_if(lines.rbegin(), lines.rend(), [](const auto &line) {
      return line.first == "Content-Disposition";
    });
    EXPECT(last != lines.rend());
    expectAttachment(last->second, answer.disposition);
    lines.erase(std::next(last).base());
  }
  EXPECT(lines == expected);
  EXPECT(text == (hasBody ? body : ""));
}

}  // namespace

void fuzz(Input input) {
  using Action = void (*)(Input &, Answer &);
  constexpr Action kActions[] = {header, knownHeader, attachment,      type,
                                 status, redirection, redirectionAway, cookie};
  Answer answer;
  while (!input.empty() && answer.accepts()) {
    // Actions are letters, to keep inputs readable: "a" adds a header, "b" a well-known one, ...
    const uint8_t letter = input.byte();
    if (letter == '.') break;
    kActions[(letter + 256U - 'a') % std::size(kActions)](input, answer);
  }
  expectAnswer(answer, std::string(input.rest()));
}
