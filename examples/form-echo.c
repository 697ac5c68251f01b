/* form-echo: shows everything in a request, as a page, or as lines for a terminal if the client
 * asks for text/plain first (curl -H 'Accept: text/plain' ...). Do not put it on a live site: it
 * shows HttpOnly cookies, so a script in another page of the site can read them here.
 *
 *   cc -std=c99 -o form-echo form-echo.c -ltarn       (page.h in the same folder)
 */
#include "page.h"

static const struct {
  const char *name;
  const char *(*get)(TarnHandle *);
} variables[] = {
    {"REQUEST_METHOD", CgiEnv_getRequestMethod},
    {"SCRIPT_NAME", CgiEnv_getScriptName},
    {"PATH_INFO", CgiEnv_getPathInfo},
    {"PATH_TRANSLATED", CgiEnv_getPathTranslated},
    {"QUERY_STRING", CgiEnv_getQueryString},
    {"CONTENT_TYPE", CgiEnv_getContentType},
    {"HTTP_COOKIE", CgiEnv_getCookies},
    {"HTTP_ACCEPT", CgiEnv_getAccept},
    {"HTTP_USER_AGENT", CgiEnv_getUserAgent},
    {"HTTP_REFERER", CgiEnv_getReferrer},
    {"REMOTE_ADDR", CgiEnv_getRemoteAddr},
    {"REMOTE_HOST", CgiEnv_getRemoteHost},
    {"REMOTE_USER", CgiEnv_getRemoteUser},
    {"REMOTE_IDENT", CgiEnv_getRemoteIdent},
    {"AUTH_TYPE", CgiEnv_getAuthType},
    {"REDIRECT_REQUEST", CgiEnv_getRedirectRequest},
    {"REDIRECT_URL", CgiEnv_getRedirectURL},
    {"REDIRECT_STATUS", CgiEnv_getRedirectStatus},
    {"GATEWAY_INTERFACE", CgiEnv_getGatewayInterface},
    {"SERVER_NAME", CgiEnv_getServerName},
    {"SERVER_PROTOCOL", CgiEnv_getServerProtocol},
    {"SERVER_SOFTWARE", CgiEnv_getServerSoftware},
};

static int plain;

/* Writes text from the request so that it cannot break out of its table cell or line. */
static void put(const char *text) {
  if (!text) text = "(none)";
  if (!plain) putEscaped(text, stdout);
  for (; plain && *text; text++) {
    const unsigned char c = (unsigned char)*text;
    printf(c < ' ' || c == 127 || c == '\\' ? "\\x%02x" : "%c", c);
  }
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

static void beginRow(const char *name) {
  fputs(plain ? "  " : "<tr><th scope=\"row\">", stdout);
  put(name);
  fputs(plain ? " = " : "</th><td>", stdout);
}

static void endRow(void) { puts(plain ? "" : "</td></tr>"); }

static void showEntries(TarnHandle *request) {
  TarnHandle entries = CGIgs_getStruct(request, TARN_REQUEST_ENTRIES, TARN_REQUEST_MAGIC);
  const int count = FormEntryList_getCount(&entries);
  beginSection("Entries", count);
  for (int i = 0; i < count; i++) {
    TarnHandle entry = FormEntryList_getByIndex(&entries, (uint32_t)i);
    const char *value = CGIgs_getString(&entry, TARN_ENTRY_VALUE, TARN_FORM_ENTRY_MAGIC);
    const uint32_t length = CGIgs_getInt(&entry, TARN_ENTRY_LENGTH, TARN_FORM_ENTRY_MAGIC);
    beginRow(CGIgs_getString(&entry, TARN_ENTRY_NAME, TARN_FORM_ENTRY_MAGIC));
    put(value);
    if (value && strlen(value) < length) printf(" (truncated at a zero byte; %u bytes)", length);
    endRow();
  }
  endSection(count);
}

static void showFiles(TarnHandle *request) {
  TarnHandle files = CGIgs_getStruct(request, TARN_REQUEST_FILES, TARN_REQUEST_MAGIC);
  const int count = FormFileList_getCount(&files);
  beginSection("Files", count);
  for (int i = 0; i < count; i++) {
    TarnHandle file = FormFileList_getByIndex(&files, (uint32_t)i);
    beginRow(CGIgs_getString(&file, TARN_FILE_FIELD_NAME, TARN_FORM_FILE_MAGIC));
    put(CGIgs_getString(&file, TARN_FILE_FILENAME, TARN_FORM_FILE_MAGIC));
    fputs(", ", stdout);
    put(CGIgs_getString(&file, TARN_FILE_CONTENT_TYPE, TARN_FORM_FILE_MAGIC));
    printf(", %u bytes", FormFile_getDataLength(&file));
    endRow();
  }
  endSection(count);
}

static void showCookies(TarnHandle *environment) {
  TarnHandle cookies =
      CGIgs_getStruct(environment, TARN_ENVIRONMENT_COOKIES, TARN_ENVIRONMENT_MAGIC);
  const int count = HTTPCookieList_getCount(&cookies);
  beginSection("Cookies", count);
  for (int i = 0; i < count; i++) {
    TarnHandle cookie = HTTPCookieList_getByIndex(&cookies, (uint32_t)i);
    beginRow(CGIgs_getString(&cookie, TARN_COOKIE_NAME, TARN_COOKIE_MAGIC));
    put(CGIgs_getString(&cookie, TARN_COOKIE_VALUE, TARN_COOKIE_MAGIC));
    endRow();
  }
  endSection(count);
}

static void showVariables(TarnHandle *environment) {
  beginSection("Variables that are set", 1);
  for (size_t i = 0; i < sizeof variables / sizeof variables[0]; i++) {
    const char *value = variables[i].get(environment);
    if (!*value) continue;
    beginRow(variables[i].name);
    put(value);
    endRow();
  }
  beginRow("CONTENT_LENGTH");
  printf("%d", CgiEnv_getContentLength(environment));
  endRow();
  beginRow("SERVER_PORT");
  printf("%d", CgiEnv_getServerPort(environment));
  endRow();
  endSection(1);
}

static const char warning[] =
    "<p role=\"note\">Do not put this script on a live site: it shows all cookies, even HttpOnly "
    "ones, which scripts in a page must not read.</p>";

int main(void) {
  TarnHandle request = 0;
  if (Tarn_new(&request) != TARN_OK) {
    puts(
        "Status: 500 Internal Server Error\nContent-Type: text/plain\n\nThe form could not be "
        "read.");
    return 1;
  }
  TarnHandle environment = CGIgs_getStruct(&request, TARN_REQUEST_ENVIRONMENT, TARN_REQUEST_MAGIC);
  plain = strncmp(CgiEnv_getAccept(&environment), "text/plain", 10) == 0;
  if (plain) puts("Content-Type: text/plain; charset=utf-8\nX-Content-Type-Options: nosniff\n");
  if (plain ? !isMethod("HEAD") : beginPage("Contents of this request")) {
    if (!plain) puts(warning);
    showEntries(&request);
    showFiles(&request);
    showCookies(&environment);
    showVariables(&environment);
    if (!plain) endPage();
  }
  Tarn_delete(&request);
  return endResponse();
}
