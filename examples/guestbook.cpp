/* guestbook: a page on which guests leave a message; a cookie remembers their name if they wish.
 * Entries are appended to the file named by TARN_GUESTBOOK_FILE. The web server must be able to
 * write that file and should not serve it. Anything after the last line end in it is discarded. The
 * script behaves like guestbook.c, and both can use the same file.
 *
 *   cc -std=c++17 -fno-exceptions -o guestbook guestbook.cpp -ltarn_form -ltarn -ltarn_serve
 *
 * with page.h, store.h and page.hpp in the same folder.
 */
#include "page.hpp"

using tarn::Attribute, tarn::Element;

constexpr std::size_t kNameBytes = 120, kMessageBytes = 4000;
constexpr off_t kStoreBytes = 8 << 20;
constexpr int kYear = 365 * 24 * 60 * 60;
constexpr const char *kRemarks[] = STORED_REMARKS("entry");

static void show_entries(Lines &lines, tarn::ElementList &content) {
  char older[32];
  if (!*lines.next) content.add(Element("p", "No entries yet."));
  snprintf(older, sizeof older, "?before=%lld", static_cast<long long>(lines.from));
  if (lines.from > 0) {
    content.add(Element("p", Element("a", Attribute("href", older), "Older entries")));
  }
  for (char *entry[2]; takeLine(&lines, entry, 2);) {
    content.add(Element("article", Element("h2", Attribute("dir", "auto"), entry[0]),
                        Element("p", Attribute("dir", "auto"), entry[1])));
  }
}

static Element control(const char *tag, const char *name) {
  return Element(tag, Attribute("name", name), Attribute("required"), Attribute("dir", "auto"));
}

static Element form(std::string_view name, std::string_view message) {
  Element text = control("input", "name");
  text.add(Attribute("value", name));
  Element area = control("textarea", "message");
  area.add(message);
  Element box("input", Attribute("type", "checkbox"), Attribute("name", "remember"));
  if (!name.empty()) box.add(Attribute("checked"));
  return Element("form", Attribute("method", "post"),
                 Element("p", Element("label", "Name ", std::move(text))),
                 Element("p", Element("label", "Message ", std::move(area))),
                 Element("p", Element("label", std::move(box), " Remember my name")),
                 Element("p", Element("button", "Write")));
}

static bool fits(std::string_view text, std::size_t most) {
  return !text.empty() && text.size() <= most;
}

static Outcome save_entry(const char *path, std::string_view name, std::string_view message,
                          const SeeOther &there) {
  const bool fit = fits(name, kNameBytes) && fits(message, kMessageBytes);
  if (!fit) return {422, "Please enter a short name and a message."};
  if (!there.ready()) return {500, kRemarks[NOT_STORED]};
  return save_line(path, {name, message}, kStoreBytes, kRemarks);
}

static bool answer_form(const tarn::Form &sent, const char *path, Outcome &outcome) {
  const std::string_view name = field(sent, "name");
  const bool remember = sent.count("remember") > 0;
  tarn::SetCookie guest("guest", remember ? name : "");
  guest.max_age(remember ? kYear : 0);
  if (isHTTPS()) guest.secure();
  const SeeOther there("", &guest);
  outcome = save_entry(path, name, field(sent, "message"), there);
  return outcome.status == 303 && there.send();
}

static int script() {
  const tarn::Form sent;
  const bool post = isMethod("POST");
  const char *path = getenv("TARN_GUESTBOOK_FILE");
  Outcome outcome = refuse_form(sent);
  const bool usable = outcome.status == 0;
  if (!path) {
    outcome = {500, "TARN_GUESTBOOK_FILE is not set, so entries cannot be saved."};
  } else if (usable && post) {
    const bool answered = answer_form(sent, path, outcome);
    if (outcome.status == 303) return answered ? 0 : 1;
  } else if (usable) {
    outcome.status = 200;
  }
  const std::string_view guest = stripped(sent.decoded_cookie("guest").value_or(""));
  const std::string_view name = !post ? guest : usable ? field(sent, "name") : "";
  const std::string_view message = post && usable ? field(sent, "message") : "";
  const char *before = post ? "" : sent.get("before", "").data();
  Lines lines{nullptr, nullptr, 0};
  tarn::ElementList content;
  content.add(form(name, message));
  const bool read = path && readLines(path, *before ? atoll(before) : -1, &lines);
  if (path && !read && !outcome.problem) outcome = {500, "The entries could not be read."};
  if (read) show_entries(lines, content);
  const bool whole = send_page("Guestbook", outcome, std::move(content));
  free(lines.text);
  return whole ? 0 : 1;
}

int main() { return tarn::serve(script); }
