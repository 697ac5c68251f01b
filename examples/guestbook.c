/* guestbook: a page on which guests leave a line; a cookie remembers their name if they like. The
 * entries stand in the file that TARN_GUESTBOOK_FILE names, which the web server must be able to
 * write and should not serve.
 *
 *   cc -std=c99 -o guestbook guestbook.c -ltarn       (with page.h beside it)
 */
#include "page.h"

enum { NAME_BYTES = 120, MESSAGE_BYTES = 4000, YEAR_SECONDS = 31536000 };

static void showEntries(const char *path) {
  FILE *lines = openLines(path, F_RDLCK);
  char *entry[2];
  if (!lines) puts("<p>No entries yet.</p>");
  while (readLine(lines, entry, 2)) {
    fputs("<article><h2 dir=\"auto\">", stdout);
    putEscaped(entry[0], stdout);
    fputs("</h2><p dir=\"auto\">", stdout);
    putEscaped(entry[1], stdout);
    puts("</p></article>");
    free(entry[0]);
    free(entry[1]);
  }
  if (lines) fclose(lines);
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

int main(void) {
  const char *path = getenv("TARN_GUESTBOOK_FILE");
  TarnHandle request = 0;
  const int taken = Tarn_new(&request) == TARN_OK && path;
  const int post = isMethod("POST");
  char *name = post ? field(&request, "name") : stripString(cookieValue(&request, "guest"));
  char *message = field(&request, "message");
  const char *entry[] = {name, message};
  const char *status = "200 OK";
  const char *problem = "";
  if (!taken) {
    status = "500 Internal Server Error";
    problem = "TARN_GUESTBOOK_FILE does not say where the entries are.";
  } else if (post && !(fits(name, NAME_BYTES) && fits(message, MESSAGE_BYTES))) {
    status = "400 Bad Request";
    problem = "A short name and a message, please.";
  } else if (post && !arrivedWhole(&request)) {
    status = "400 Bad Request";
    problem = "Your entry did not arrive whole.";
  } else if (post && !addLine(openLines(path, F_WRLCK), entry, 2)) {
    status = "500 Internal Server Error";
    problem = "Your entry could not be kept.";
  }
  if (post && !*problem) {
    const int remember = Tarn_queryCheckbox(&request, "remember") != 0;
    seeOther("");
    setCookie("guest", remember ? name : "", remember ? YEAR_SECONDS : 0);
    puts("");
  } else {
    printf("Status: %s\n", status);
    if (beginPage("Guestbook")) {
      showProblem(problem);
      showForm(name, message);
      showEntries(path ? path : "");
      endPage();
    }
  }
  free(name);
  free(message);
  Tarn_delete(&request);
  return fflush(stdout) == 0 ? 0 : 1;
}
