/* contact: a contact form that reports each error beside its field. Messages are appended to the
 * file named by TARN_CONTACT_FILE, one line each: name, address and message, URL-encoded. The web
 * server must be able to write that file and should not serve it. Anything after the last line end
 * in it is discarded. Messages are refused once the file has STORE_BYTES.
 *
 *   cc -std=c99 -o contact contact.c -ltarn_form -ltarn -ltarn_serve
 *
 * with page.h and store.h in the same folder.
 */
#include "store.h"

enum { NAME, EMAIL, MESSAGE, FIELDS };
enum { STORE_BYTES = 8 << 20 };

static const char *const remarks[] = STORED_REMARKS("message");

static int isText(const char *text) { return *text != '\0'; }

/* A minimal check: only a message that arrives proves that an address works. */
static int isAddress(const char *text) {
  const char *at = strchr(text, '@');
  if (!at || at == text || !at[1] || strchr(at + 1, '@')) return 0;
  for (; *text; text++)
    if ((unsigned char)*text <= ' ' || strchr("\"(),:;<>[\\]\177", *text)) return 0;
  return 1;
}

static const struct {
  const char *name;
  const char *label;
  const char *attributes;
  size_t most;
  int (*fits)(const char *text);
  const char *problem;
} fields[FIELDS] = {
    {"name", "Your name", "dir=\"auto\" autocomplete=\"name\"", 120, isText,
     "Please enter your name (at most 120 bytes)."},
    {"email", "Your e-mail address", "type=\"email\" autocomplete=\"email\"", 254, isAddress,
     "Please enter an address like name@example.org."},
    {"message", "Message", "dir=\"auto\"", 4000, isText,
     "Please enter a message (at most 4000 bytes)."},
};

static void showField(int i, const char *value, const char *problem) {
  const char *name = fields[i].name;
  const char *tag = i == MESSAGE ? "textarea" : "input";
  printf("<p><label for=\"%s\">%s</label>\n", name, fields[i].label);
  printf("<%s id=\"%s\" name=\"%s\" required %s", tag, name, name, fields[i].attributes);
  if (problem) printf(" aria-invalid=\"true\" aria-describedby=\"%s-problem\"", name);
  fputs(i == MESSAGE ? ">\n" : " value=\"", stdout);
  putEscaped(value, stdout);
  puts(i == MESSAGE ? "</textarea>" : "\">");
  if (problem) printf("<strong id=\"%s-problem\">%s</strong>\n", name, problem);
  puts("</p>");
}

/* novalidate: the server checks the fields, so that it can explain errors in its own words. */
static void showForm(char *const *values, const char *const *problems) {
  puts("<form method=\"post\" novalidate>");
  for (int i = 0; i < FIELDS; i++) showField(i, values[i], problems[i]);
  puts("<p><button>Send</button></p>\n</form>");
}

/* Saves a message. Returns the status; sets `problem` if the message was not saved. */
static const char *saveMessage(const char *path, char *const *values, const char **problems,
                               const char **problem) {
  for (int i = 0; i < FIELDS; i++) {
    if (values[i] && strlen(values[i]) <= fields[i].most && fields[i].fits(values[i])) continue;
    problems[i] = fields[i].problem;
    *problem = "Your message was not sent. Please correct the marked fields.";
  }
  if (**problem) return "422 Unprocessable Content";
  const Stored stored = addLine(path, (const char *const *)values, FIELDS, STORE_BYTES);
  *problem = remarks[stored];
  return storedStatus(stored);
}

static int script(void) {
  const char *path = getenv("TARN_CONTACT_FILE");
  TarnForm *form = TarnForm_open();
  const char *problem = "";
  const char *status = readForm(form, &problem);
  const int post = isMethod("POST");
  const int sent = strcmp(CgiEnv_getQueryString(NULL), "sent") == 0;
  char *values[FIELDS];
  const char *problems[FIELDS] = {NULL};
  for (int i = 0; i < FIELDS; i++) values[i] = field(form, fields[i].name);
  if (!path) {
    status = "500 Internal Server Error";
    problem = "TARN_CONTACT_FILE is not set, so messages cannot be saved.";
  } else if (!status) {
    status = post ? saveMessage(path, values, problems, &problem) : "200 OK";
  }
  if (post && !*problem) {
    seeOther("?sent");
    puts("");
  } else {
    printf("Status: %s\n", status);
    if (beginPage("Contact")) {
      showProblem(problem);
      if (sent && !post) puts("<p role=\"status\">Thank you, we have your message.</p>");
      showForm(values, problems);
      endPage();
    }
  }
  for (int i = 0; i < FIELDS; i++) free(values[i]);
  TarnForm_close(form);
  return endResponse();
}

int main(void) { return tarn_serve(script); }
