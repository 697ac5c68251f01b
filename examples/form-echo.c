/* form-echo: shows everything in a request, as a page, or as lines for a terminal if the client
 * asks for text/plain first (curl -H 'Accept: text/plain' ...). Do not put it on a live site: it
 * shows HttpOnly cookies, so a script in another page of the site can read them here.
 *
 *   cc -std=c99 -o form-echo form-echo.c -ltarn_form -ltarn -ltarn_serve
 *
 * with page.h in the same folder.
 */
#include "page.h"

static const char *const variables[] = {
    "REQUEST_METHOD", "SCRIPT_NAME",      "PATH_INFO",       "PATH_TRANSLATED", "QUERY_STRING",
    "CONTENT_TYPE",   "CONTENT_LENGTH",   "HTTP_COOKIE",     "HTTP_ACCEPT",     "HTTP_USER_AGENT",
    "HTTP_REFERER",   "REMOTE_ADDR",      "REMOTE_HOST",     "REMOTE_USER",     "REMOTE_IDENT",
    "AUTH_TYPE",      "REDIRECT_REQUEST", "REDIRECT_URL",    "REDIRECT_STATUS", "GATEWAY_INTERFACE",
    "SERVER_NAME",    "SERVER_PORT",      "SERVER_PROTOCOL", "SERVER_SOFTWARE"};

static int plain;

/* Writes bytes from the request so that they cannot break out of their table cell or line. */
static void putBytes(const char *bytes, uint64_t size) {
  for (const char *end = bytes + size; bytes < end; bytes++) {
    const unsigned char c = (unsigned char)*bytes;
    if (plain) {
      printf(c < ' ' || c == 127 || c == '\\' ? "\\x%02x" : "%c", c);
    } else {
      putEscapedByte(c, stdout);
    }
  }
}

static void put(const char *text) {
  if (!text) text = "(none)";
  putBytes(text, strlen(text));
}

static void beginSection(const char *title, int rows) {
  if (plain) {
    printf("%s%s\n", title, rows ? "" : ": none");
  } else {
    printf("<h2>%s</h2>\n%s\n", title, rows ? "<div class=\"pairs\">\n<table>" : "<p>None.</p>");
  }
}

static void endSection(int rows) {
  if (!plain && rows) puts("</table>\n</div>");
}

static void beginRow(const char *name, uint64_t size) {
  fputs(plain ? "  " : "<tr><th scope=\"row\">", stdout);
  putBytes(name, size);
  fputs(plain ? " = " : "</th><td>", stdout);
}

static void endRow(void) { puts(plain ? "" : "</td></tr>"); }

/* The form's problem, and where in the body it is. */
static void showWhy(TarnForm *form) {
  printf(plain ? "%s (byte %llu)\n" : "<p role=\"alert\">%s (byte %llu)</p>\n",
         TarnForm_message(form), (unsigned long long)TarnForm_problemOffset(form));
}

static void showFile(TarnFormField *file) {
  const char *type = TarnFormField_type(file);
  putBytes(TarnFormField_filename(file), TarnFormField_filenameSize(file));
  if (TarnFormField_filenameSize(file) == 0) fputs("(no file chosen)", stdout);
  fputs(", ", stdout);
  put(type ? type : "(no type)");
  printf(", %llu bytes", (unsigned long long)TarnFormField_size(file));
}

/* Shows the texts of the form, or its files: the fields that have a file name. */
static void showFields(TarnForm *form, const char *title, int files) {
  TarnFormField *field;
  int count = 0;
  for (uint64_t i = 0; (field = TarnForm_get(form, NULL, i)) != NULL; i++) {
    if ((TarnFormField_filename(field) != NULL) != files) continue;
    if (count++ == 0) beginSection(title, 1);
    beginRow(TarnFormField_name(field), TarnFormField_nameSize(field));
    if (files) {
      showFile(field);
    } else {
      const char *text = TarnFormField_text(field);
      putBytes(text, text ? TarnFormField_size(field) : 0);
    }
    endRow();
  }
  if (count == 0) beginSection(title, 0);
  endSection(count);
}

/* Names are shown as they were sent: one that would be the name of another cookie once it is decoded
 * is not that cookie. */
static void showCookies(const char *cookies) {
  cookies += strspn(cookies, "; ");
  const int any = *cookies != '\0';
  beginSection("Cookies", any);
  while (*cookies) {
    const size_t size = strcspn(cookies, ";");
    const char *equals = memchr(cookies, '=', size);
    const size_t name = equals ? (size_t)(equals - cookies) : size;
    char *value = equals ? strndup(equals + 1, size - name - 1) : NULL;
    if (value) decodeInPlace(value);
    beginRow(cookies, name);
    put(value);
    endRow();
    free(value);
    cookies += size;
    cookies += strspn(cookies, "; ");
  }
  endSection(any);
}

static void showVariables(void) {
  beginSection("Variables that are set", 1);
  for (size_t i = 0; i < sizeof variables / sizeof variables[0]; i++) {
    const char *value = getenv(variables[i]);
    if (!value || !*value) continue;
    beginRow(variables[i], strlen(variables[i]));
    put(value);
    endRow();
  }
  endSection(1);
}

static const char warning[] =
    "<p role=\"note\">Do not put this script on a live site: it shows all cookies, even HttpOnly "
    "ones, which scripts in a page must not read.</p>";

static int script(void) {
  TarnForm *form = TarnForm_open();
  TarnForm_setLimit(form, TARN_FORM_FIELDS, 10000);
  plain = strncmp(CgiEnv_getAccept(NULL), "text/plain", 10) == 0;
  const int whole = TarnForm_load(form);
  if (!whole) fprintf(stderr, "cannot read the form: %s\n", TarnForm_message(form));
  if (!whole) discardBody();
  printf("Status: %d\n", TarnForm_status(form));
  if (plain) puts("Content-Type: text/plain; charset=utf-8\nX-Content-Type-Options: nosniff\n");
  if (plain ? !isMethod("HEAD") : beginPage("Contents of this request")) {
    if (!plain) puts(warning);
    if (!whole) showWhy(form);
    if (whole) showFields(form, "Texts", 0);
    if (whole) showFields(form, "Files", 1);
    showCookies(CgiEnv_getCookies(NULL));
    showVariables();
    if (!plain) endPage();
  }
  TarnForm_close(form);
  return endResponse();
}

int main(void) { return tarn_serve(script); }
