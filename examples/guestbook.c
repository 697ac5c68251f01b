/* guestbook: a page on which guests leave a message; a cookie remembers their name if they wish.
 * Entries are appended to the file named by TARN_GUESTBOOK_FILE. The web server must be able to
 * write that file and should not serve it. Anything after the last line end in it is discarded.
 * Entries are refused once the file has STORE_BYTES.
 *
 *   cc -std=c99 -o guestbook guestbook.c -ltarn_form -ltarn -ltarn_serve
 *
 * with page.h and store.h in the same folder.
 */
#include "store.h"

enum { NAME_BYTES = 120, MESSAGE_BYTES = 4000, STORE_BYTES = 8 << 20, YEAR_SECONDS = 31536000 };

static const char *const remarks[] = STORED_REMARKS("entry");

static void showEntries(Lines *lines) {
  char *entry[2];
  if (!*lines->next) puts("<p>No entries yet.</p>");
  if (lines->from)
    printf("<p><a href=\"?before=%lld\">Older entries</a></p>\n", (long long)lines->from);
  while (takeLine(lines, entry, 2)) {
    fputs("<article><h2 dir=\"auto\">", stdout);
    putEscaped(entry[0], stdout);
    fputs("</h2><p dir=\"auto\">", stdout);
    putEscaped(entry[1], stdout);
    puts("</p></article>");
  }
}

static void showForm(const char *name, const char *message) {
  fputs(
      "<form method=\"post\">\n<p><label>Name <input name=\"name\" required dir=\"auto\" value=\"",
      stdout);
  putEscaped(name, stdout);
  fputs("\"></label></p>\n<p><label>Message <textarea name=\"message\" required dir=\"auto\">\n",
        stdout);
  putEscaped(message, stdout);
  printf(
      "</textarea></label></p>\n"
      "<p><label><input type=\"checkbox\" name=\"remember\"%s> Remember my name</label></p>\n"
      "<p><button>Write</button></p>\n</form>\n",
      name && *name ? " checked" : "");
}

static int fits(const char *text, size_t most) { return text && *text && strlen(text) <= most; }

/* Saves an entry. Returns the status; sets `problem` if the entry was not saved. */
static const char *saveEntry(const char *path, const char *const *entry, const char **problem) {
  if (!fits(entry[0], NAME_BYTES) || !fits(entry[1], MESSAGE_BYTES)) {
    *problem = "Please enter a short name and a message.";
    return "422 Unprocessable Content";
  }
  const Stored stored = addLine(path, entry, 2, STORE_BYTES);
  *problem = remarks[stored];
  return storedStatus(stored);
}

static int script(void) {
  const char *path = getenv("TARN_GUESTBOOK_FILE");
  TarnForm *form = TarnForm_open();
  const char *problem = "";
  const char *status = readForm(form, &problem);
  const int post = isMethod("POST");
  char *name = post ? field(form, "name") : stripString(cookieValue(form, "guest"));
  char *message = post ? field(form, "message") : NULL;
  char *before = post ? NULL : field(form, "before");
  const char *const entry[] = {name, message};
  const int remember = TarnForm_count(form, "remember") > 0;
  Lines lines = {NULL, NULL, 0};
  if (!path) {
    status = "500 Internal Server Error";
    problem = "TARN_GUESTBOOK_FILE is not set, so entries cannot be saved.";
  } else if (!status) {
    status = post ? saveEntry(path, entry, &problem) : "200 OK";
  }
  if (post && !*problem) {
    seeOther("");
    setCookie("guest", remember ? name : "", remember ? YEAR_SECONDS : 0);
    puts("");
  } else {
    if (path && !readLines(path, before && *before ? atoll(before) : -1, &lines) && !*problem) {
      status = "500 Internal Server Error";
      problem = "The entries could not be read.";
    }
    printf("Status: %s\n", status);
    if (beginPage("Guestbook")) {
      showProblem(problem);
      showForm(name, message);
      if (lines.next) showEntries(&lines);
      endPage();
    }
  }
  free(lines.text);
  free(before);
  free(name);
  free(message);
  TarnForm_close(form);
  return endResponse();
}

int main(void) { return tarn_serve(script); }
