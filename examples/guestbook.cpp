/* guestbook: a page on which guests leave a message; a cookie remembers their name if they wish.
 * Entries are appended to the file named by TARN_GUESTBOOK_FILE. The web server must be able to
 * write that file and should not serve it. Anything after the last line end in it is discarded. The
 * script behaves like guestbook.c, and both can use the same file.
 *
 *   cc -std=c++17 -fno-exceptions -o guestbook guestbook.cpp -ltarn
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

static Outcome save_entry(tarn::Request &request, const char *path, std::string_view name,
                          std::string_view message, const SeeOther &there) {
  const Outcome refused = refuse_form(request);
  if (refused.status != 0) return refused;
  const bool fit = fits(name, kNameBytes) && fits(message, kMessageBytes);
  if (!fit) return {400, "Please enter a short name and a message."};
  if (!there.ready()) return {500, kRemarks[NOT_STORED]};
  return save_line(path, {name, message}, kStoreBytes, kRemarks);
}

static bool answer_form(tarn::Request &request, const char *path, Outcome &outcome) {
  const std::string_view name = field(request, "name");
  const bool remember = request.checked("remember");
  tarn::SetCookie guest("guest", remember ? name : "");
  guest.max_age(remember ? kYear : 0);
  if (request.environment().https()) guest.secure();
  const SeeOther there(request, "", &guest);
  outcome = save_entry(request, path, name, field(request, "message"), there);
  return outcome.status == 303 && there.send();
}

int main() {
  tarn::Request request;
  const char *path = getenv("TARN_GUESTBOOK_FILE");
  Outcome outcome{200, nullptr};
  if (!path) outcome = {500, "TARN_GUESTBOOK_FILE is not set, so entries cannot be saved."};
  if (path && is_post(request)) {
    const bool sent = answer_form(request, path, outcome);
    if (outcome.status == 303) return sent ? 0 : 1;
  }
  const std::string_view name =
      is_post(request) ? field(request, "name") : stripped(request.cookie("guest").value_or(""));
  const char *before = is_post(request) ? "" : request["before"].value_or("").data();
  Lines lines{nullptr, nullptr, 0};
  tarn::ElementList content;
  content.add(form(name, is_post(request) ? field(request, "message") : ""));
  const bool read = path && readLines(path, *before ? atoll(before) : -1, &lines);
  if (path && !read && !outcome.problem) outcome = {500, "The entries could not be read."};
  if (read) show_entries(lines, content);
  const bool sent = send_page("Guestbook", outcome, std::move(content));
  free(lines.text);
  return sent ? 0 : 1;
}
