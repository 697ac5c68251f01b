/* page.hpp: what the C++ example scripts share, on top of page.h and store.h. */
#ifndef PAGE_HPP
#define PAGE_HPP

#include "store.h"

#include <tarn.hpp>

/* The text without surrounding white space. */
inline std::string_view stripped(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  while (!text.empty() && kBlanks.find(text.front()) != kBlanks.npos) text.remove_prefix(1);
  while (!text.empty() && kBlanks.find(text.back()) != kBlanks.npos) text.remove_suffix(1);
  return text;
}

/* A form field without surrounding white space; valid as long as the form. Like field() in page.h, it
 * is empty if the field was not sent or contains a zero byte. */
inline std::string_view field(const tarn::Form &form, const char *name) {
  const std::string_view text = form.get(name, "");
  return text.find('\0') == text.npos ? stripped(text) : std::string_view();
}

/* The status of a request, and what to tell the visitor, or null. */
struct Outcome {
  int status;
  const char *problem;
};

/* The address of a path of this script, such as "/items". */
inline tarn::Text address(std::string_view path, std::string_view name = {}) {
  tarn::String whole(CgiEnv_getScriptName(nullptr));
  const bool made = whole.append(path) && whole.append(name);
  return made ? tarn::escape_path(whole.view()) : tarn::Text::refused("out of memory");
}

/* The cookie, which the browser sends back over HTTPS only if it was set over HTTPS. */
inline tarn::SetCookie over_https(tarn::SetCookie cookie) {
  if (isHTTPS()) cookie.secure();
  return cookie;
}

/* Sends a page; false if it could not be written. `response` may have headers and cookies. */
inline bool send_page(const char *title, const Outcome &outcome, tarn::ElementList content,
                      tarn::Response response = tarn::Response()) {
  using tarn::Attribute, tarn::Element;
  Element head("head", Element("meta", Attribute("charset", "utf-8")));
  head.add(Element("meta", Attribute("name", "viewport"), Attribute("content", PAGE_VIEWPORT)));
  head.add(Element("title", title));
  head.add(Element("style", Attribute("nonce", pageNonce()), tarn::Raw(PAGE_STYLE)));
  Element main("main", Element("h1", title));
  if (outcome.problem) main.add(Element("p", Attribute("role", "alert"), outcome.problem));
  main.add(std::move(content));
  const Element page("html", Attribute("lang", "en"), std::move(head),
                     Element("body", std::move(main)));
  char policy[sizeof PAGE_POLICY + 64];
  snprintf(policy, sizeof policy, PAGE_POLICY, pageNonce(), pageNonce());
  response.status(outcome.status).nosniff().content_security_policy(policy);
  return response.send(page);
}

/* Refuses a form that must not be used; the status is 0 if it is fine. */
inline Outcome refuse_form(const tarn::Form &form,
                           bool foreign = isMethod("POST") && !tarn::same_origin()) {
  if (!foreign && form) return {0, nullptr};
  if (!form) fprintf(stderr, "cannot read the form: %s\n", form.problem().message());
  discardBody();
  const char *problem = nullptr;
  const char *status = refusedForm(foreign ? 403 : form.problem().status(), &problem);
  return {atoi(status), problem};
}

/* The redirect to the page after a form was saved. It is prepared before anything is saved: running
 * out of memory afterwards cannot turn the confirmation into a failure. */
class SeeOther {
 public:
  explicit SeeOther(std::string_view query = {}, const tarn::SetCookie *cookie = nullptr) {
    const tarn::Text here = tarn::escape_path(CgiEnv_getScriptName(nullptr));
    tarn::String there(here.view());
    FILE *out = fmemopen(text_, sizeof text_, "w");
    if (!out) return;
    tarn::Response response(out);
    const bool whole =
        here && there.append(query) && there.size() == here.view().size() + query.size();
    response.redirect(there.view());
    if (cookie) response.cookie(*cookie);
    ready_ = response.send() && whole;
    size_ = static_cast<std::size_t>(ftell(out));
    fclose(out);
  }

  bool ready() const { return ready_; }
  bool send() const { return fwrite(text_, 1, size_, stdout) == size_ && fflush(stdout) == 0; }

 private:
  char text_[16384];
  std::size_t size_ = 0;
  bool ready_ = false;
};

/* Makes a line of texts, encoded and with a space between them; false if memory runs out. */
inline bool make_line(std::initializer_list<std::string_view> texts, tarn::String &line) {
  bool made = true;
  for (const std::string_view text : texts) {
    const tarn::Text encoded = tarn::escape_url(text);
    made = made && encoded && line.append(line.empty() ? "" : " ") && line.append(encoded.view());
  }
  return made;
}

/* Appends a line of texts to a file, which may grow to `most` bytes; status 303 means that the line
 * is on disk. */
inline Outcome save_line(const char *path, std::initializer_list<std::string_view> texts,
                         off_t most, const char *const *remarks) {
  tarn::String line;
  const bool made = make_line(texts, line) && line.append("\n");
  const int file = made ? openStore(path, F_WRLCK) : -1;
  const Stored stored = file < 0 ? NOT_STORED : appendLine(file, line.c_str(), line.size(), most);
  if (file >= 0) close(file);
  return {atoi(storedStatus(stored)), remarks[stored]};
}

/* How many bytes the lines in a file, and the other files beside it, may have. */
struct Room {
  off_t lines, files;
};

/* As save_line(), but only at this offset: if the lines have another end by now, the status is 409.
 * Saves a file as well, if there is one, in the current folder: both are saved or neither. The last
 * text of the line is its name, or missing. */
inline Outcome save_line_at(off_t offset, const char *path,
                            std::initializer_list<std::string_view> texts,
                            const std::optional<tarn::KeptField> &file, const Room &most,
                            const char *const *remarks) {
  char name[FILE_NAME_BYTES] = "";
  int count = 0;
  long long bytes = 0;
  tarn::String line;
  const int store = make_line(texts, line) ? openStore(path, F_WRLCK) : -1;
  const bool ready = store >= 0 && measureFolder(&count, &bytes);
  const bool moved = ready && endOfLines(store) != offset;
  Stored stored = !ready || moved ? NOT_STORED : STORED;
  if (stored == STORED && file) {
    const bool full = bytes + static_cast<long long>(file->size()) > most.files;
    stored = full ? STORE_FULL : saveFile(file->handle(), name);
  }
  if (stored == STORED) {
    const bool made = (!file || (line.append(" ") && line.append(name))) && line.append("\n");
    stored = made ? appendLine(store, line.c_str(), line.size(), most.lines) : NOT_STORED;
    if (*name && stored != STORED && stored != STORE_UNSURE) unlink(name);
  }
  if (store >= 0) close(store);
  if (moved) return {409, "Something was added meanwhile. Look whether it is yours, or try again."};
  return {atoi(storedStatus(stored)), remarks[stored]};
}

/* True for a file that begins as a picture that every browser shows. SVG is missing on purpose: it may
 * contain scripts. */
inline bool is_picture(const tarn::KeptField &file) {
  constexpr std::string_view kBegins[] = {"\211PNG\r\n\032\n", "\377\330\377", "GIF87a", "GIF89a"};
  const std::string_view bytes = *file.blocks().begin();
  const auto has = [bytes](std::size_t at, std::string_view text) {
    return bytes.size() >= at + text.size() &&
           memcmp(bytes.data() + at, text.data(), text.size()) == 0;
  };
  bool found = has(0, "RIFF") && has(8, "WEBP");
  for (const std::string_view begin : kBegins) found = found || has(0, begin);
  return found;
}

#endif
