/* page.h: what the example scripts share. Include it before any other header; it compiles as C99
 * and as C++. Scripts that save something include store.h instead, which includes page.h.
 */
#ifndef PAGE_H
#define PAGE_H

#ifndef _POSIX_C_SOURCE
#define _POSIX_C_SOURCE 200809L
#endif
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/random.h>
#include <tarn.h>

/* ---- What a visitor sent ------------------------------------------------------------------- */

static inline int isMethod(const char *method) {
  return strcmp(CgiEnv_getRequestMethod(NULL), method) == 0;
}

/* The value of a form field without surrounding white space; the caller frees it. */
static inline char *field(TarnHandle *request, const char *name) {
  TarnHandle entry = Tarn_getElementByName(request, name);
  const char *value = CGIgs_getString(&entry, TARN_ENTRY_VALUE, TARN_FORM_ENTRY_MAGIC);
  return stripString(value ? value : "");
}

/* The value of a cookie, or an empty text; names are case-sensitive. */
static inline const char *cookieValue(TarnHandle *request, const char *name) {
  TarnHandle environment = CGIgs_getStruct(request, TARN_REQUEST_ENVIRONMENT, TARN_REQUEST_MAGIC);
  TarnHandle cookies =
      CGIgs_getStruct(&environment, TARN_ENVIRONMENT_COOKIES, TARN_ENVIRONMENT_MAGIC);
  const int count = HTTPCookieList_getCount(&cookies);
  for (int i = 0; i < count; i++) {
    TarnHandle cookie = HTTPCookieList_getByIndex(&cookies, (uint32_t)i);
    const char *found = CGIgs_getString(&cookie, TARN_COOKIE_NAME, TARN_COOKIE_MAGIC);
    const char *value = CGIgs_getString(&cookie, TARN_COOKIE_VALUE, TARN_COOKIE_MAGIC);
    if (found && value && strcmp(found, name) == 0) return value;
  }
  return "";
}

/* True if the whole form was received: the body was not truncated, all of it fitted into memory,
 * and a multipart body ends with its closing boundary. */
static inline int isFormComplete(TarnHandle *request) {
  TarnHandle environment = CGIgs_getStruct(request, TARN_REQUEST_ENVIRONMENT, TARN_REQUEST_MAGIC);
  TarnHandle body = CGIgs_getStruct(&environment, TARN_ENVIRONMENT_BODY, TARN_ENVIRONMENT_MAGIC);
  const char *bytes = (const char *)CGIgs_getFixed(&body, TARN_BYTE_BUFFER_MAGIC);
  size_t length = CGIgs_getInt(&body, TARN_BYTE_BUFFER_LENGTH, TARN_BYTE_BUFFER_MAGIC);
  const char *boundary = strstr(CgiEnv_getContentType(NULL), "boundary=");
  if (!Tarn_isComplete(request)) return 0;
  if (!boundary) return 1;
  boundary += strlen("boundary=");
  const size_t closing = strlen(boundary) + 4;
  if (length >= 2 && memcmp(bytes + length - 2, "\r\n", 2) == 0) length -= 2;
  if (!bytes || length < closing) return 0;
  bytes += length - closing;
  return memcmp(bytes, "--", 2) == 0 && memcmp(bytes + 2, boundary, closing - 4) == 0 &&
         memcmp(bytes + closing - 2, "--", 2) == 0;
}

/* True if a page of another site sent the form: with the visitor's cookies, but perhaps without the
 * visitor's knowledge. Browsers send Sec-Fetch-Site, older ones Origin. A client that sends neither
 * is not a browser that another site could trick. */
static inline int sentByAnotherSite(void) {
  const char *site = getenv("HTTP_SEC_FETCH_SITE");
  const char *origin = getenv("HTTP_ORIGIN");
  const char *host = getenv("HTTP_HOST");
  const char *port = getenv("SERVER_PORT");
  if (site && *site) return strcmp(site, "same-origin") != 0 && strcmp(site, "none") != 0;
  if (!origin || !*origin) return 0;
  const char *sender = strstr(origin, "://");
  if (!sender || !host) return 1;
  sender += strlen("://");
  const size_t length = strlen(host);
  if (strncasecmp(sender, host, length) != 0) return 1;
  /* nginx, as Debian configures it, removes the port from HTTP_HOST. */
  return sender[length] && !(sender[length] == ':' && port && !strcmp(sender + length + 1, port));
}

/* Refuses a form that must not be processed, whatever its fields: returns the status and sets
 * `problem`. Returns null if the form is fine. Tarn truncates text in a multipart form at its first
 * CR LF, which would cut a message to one line, so only scripts that expect files accept one. */
static inline const char *refuseForm(TarnHandle *request, int multipart, const char **problem) {
  const char *boundary = strstr(CgiEnv_getContentType(NULL), "boundary=");
  if (sentByAnotherSite()) {
    *problem = "This form was sent from another site, so nothing was saved.";
    return "403 Forbidden";
  }
  if (!isFormComplete(request)) {
    *problem = "The form did not arrive completely, so nothing was saved.";
    return "400 Bad Request";
  }
  if ((boundary != NULL) != multipart) {
    *problem = multipart ? "This form has no files, so nothing was saved."
                         : "This form was sent as multipart/form-data, so nothing was saved.";
    return "415 Unsupported Media Type";
  }
  return NULL;
}

/* ---- The response --------------------------------------------------------------------------- */

/* Escapes for HTML, for text and attribute values alike. Null counts as empty, here and below. */
static inline void putEscaped(const char *text, FILE *out) {
  for (; text && *text; text++) {
    const unsigned char c = (unsigned char)*text;
    if (strchr("&<>\"'", c)) {
      fprintf(out, "&#%d;", c);
    } else if (c == 127 || (c < ' ' && !strchr("\t\n\r", c))) {
      fputs("&#xFFFD;", out);
    } else {
      putc(c, out);
    }
  }
}

/* Encodes a byte for a header, a URL or a line of a file. The result has no white space or control
 * characters, so nobody can inject a header or a line. unescapeString() decodes it. `code` must
 * have room for 4 bytes; returns the length of the text in it. */
static inline size_t encodeByte(char byte, char *code) {
  const unsigned char c = (unsigned char)byte;
  const int plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  return (size_t)snprintf(code, 4, plain || strchr("-._~/", c) ? "%c" : "%%%02X", c);
}

static inline void putEncoded(const char *text, FILE *out) {
  char code[4];
  for (; text && *text; text++) {
    const size_t length = encodeByte(*text, code);
    fwrite(code, 1, length, out);
  }
}

/* Over HTTPS the cookie is marked Secure, so the browser never sends it unencrypted. */
static inline void setCookie(TarnHandle *request, const char *name, const char *value,
                             int seconds) {
  TarnHandle environment = CGIgs_getStruct(request, TARN_REQUEST_ENVIRONMENT, TARN_REQUEST_MAGIC);
  const int https = CGIgs_getInt(&environment, TARN_ENVIRONMENT_HTTPS, TARN_ENVIRONMENT_MAGIC) == 1;
  printf("Set-Cookie: %s=", name);
  putEncoded(value, stdout);
  printf("; Max-Age=%d; HttpOnly; SameSite=Lax%s\n", seconds, https ? "; Secure" : "");
}

/* Redirects the browser to the page itself, so that reloading does not send the form again. The
 * caller may add headers and must end them with an empty line. */
static inline void seeOther(const char *query) {
  fputs("Status: 303 See Other\nLocation: ", stdout);
  putEncoded(CgiEnv_getScriptName(NULL), stdout);
  printf("%s\n", query);
}

#define PAGE_VIEWPORT "width=device-width, initial-scale=1"
#define PAGE_STYLE                                                                                 \
  ":root { --page: #fff; --soft: #f1f4f7; --line: #d3dae0; --edge: #717d87 }\n"                    \
  ":root { --text: #1c2226; --link: #0a58a8; --bad: #b02020; color-scheme: light dark }\n"         \
  "@media (prefers-color-scheme: dark) {\n"                                                        \
  ":root { --page: #14181b; --soft: #20272c; --line: #3a454d; --edge: #8d9aa4 }\n"                 \
  ":root { --text: #e3e7ea; --link: #8ac2f7; --bad: #ff9d93 }\n"                                   \
  "}\n"                                                                                            \
  "html { background: var(--page); color: var(--text); accent-color: var(--link) }\n"              \
  "body { max-width: 42rem; margin: auto; padding: 1rem; overflow-wrap: anywhere }\n"              \
  "body { font: 100%/1.5 system-ui, sans-serif }\n"                                                \
  "h1, h2 { margin: 2rem 0 .5rem; font-size: 1.2rem; line-height: 1.3 }\n"                         \
  "h1 { margin-top: 1rem; font-size: 1.75rem }\n"                                                  \
  "a { color: var(--link) }\n"                                                                     \
  ":focus-visible { outline: 3px solid var(--link); outline-offset: 2px }\n"                       \
  "form { margin: 1.5rem 0; padding: 1.25rem; border-radius: .75rem; background: var(--soft) }\n"  \
  "form p, fieldset { margin: 0 0 1rem; padding: 0; border: 0 }\n"                                 \
  "form > :last-child, fieldset p { margin: 0 }\n"                                                 \
  "legend, label, caption { padding: 0; font-weight: 600 }\n"                                      \
  "input, textarea, progress { display: block; width: 100%; margin: .25rem 0 0 }\n"                \
  "input, textarea, button { box-sizing: border-box; padding: .6rem .75rem; font: inherit }\n"     \
  "input, textarea { background: var(--page); color: inherit; font-weight: 400 }\n"                \
  "input, textarea, button { border: 1px solid var(--edge); border-radius: .4rem }\n"              \
  "textarea { height: 8rem }\n"                                                                    \
  ":is([type=checkbox], [type=radio]) { width: 1.5rem; height: 1.5rem; margin: 0 .6rem 0 0 }\n"    \
  "label:has([type=checkbox], [type=radio]) { display: flex; padding: .65rem 0; font: inherit }\n" \
  "button { background: var(--link); color: var(--page); border-color: var(--link) }\n"            \
  "button { padding: .6rem 1.5rem; font-weight: 600 }\n"                                           \
  "label + button { margin-top: 1rem }\n"                                                          \
  "p[role] { padding: .6rem 1rem; border-left: 4px solid var(--link); background: var(--soft) }\n" \
  "[aria-invalid], p[role=alert] { border-color: var(--bad) }\n"                                   \
  "[aria-invalid] + strong { display: block; margin-top: .25rem; color: var(--bad) }\n"            \
  "article, tr { border-top: 1px solid var(--line) }\n"                                            \
  "article { padding: 1rem 0 }\n"                                                                  \
  "article * { margin: 0 0 .25rem }\n"                                                             \
  "article p, td { white-space: pre-wrap }\n"                                                      \
  "table { width: 100%; border-collapse: collapse }\n"                                             \
  "caption, th, td { padding: .5rem 1rem .5rem 0; text-align: left; vertical-align: top }\n"       \
  "th, td + td { white-space: nowrap }\n"                                                          \
  "th + th, td + td { padding-right: 0; text-align: right }\n"                                     \
  ".pairs { overflow-x: auto }\n"                                                                  \
  ".pairs * { display: block; min-width: 11rem; padding: 0 }\n"                                    \
  ".pairs tr { display: flex; flex-wrap: wrap; column-gap: 1rem; padding: .5rem 0 }\n"             \
  ".pairs th { min-width: 14rem; font: 600 .875em/1.7 ui-monospace, monospace }\n"                 \
  ".pairs td { flex: 1 1 11rem }\n"                                                                \
  "svg { max-width: 100%; fill: var(--text) }\n"                                                   \
  "rect { fill: var(--link) }\n"

/* The browser may load only the style sheet and the script with this response's nonce, and connect
 * only to this site. No site may frame the page, which prevents clickjacking. */
#define PAGE_POLICY                                                   \
  "default-src 'none'; style-src 'nonce-%s'; script-src 'nonce-%s'; " \
  "connect-src 'self'; form-action 'self'; frame-ancestors 'none'; base-uri 'none'"

/* An unguessable text, different in each response. If there are no random numbers it is empty, and
 * the page is shown without its style. */
static inline const char *pageNonce(void) {
  static char nonce[33];
  unsigned char bytes[16];
  if (!*nonce && getrandom(bytes, sizeof bytes, 0) == (ssize_t)sizeof bytes)
    for (size_t i = 0; i < sizeof bytes; i++) snprintf(nonce + 2 * i, 3, "%02x", bytes[i]);
  return nonce;
}

/* Ends the headers and starts a page; false for a HEAD request, which has no body. */
static inline int beginPage(const char *title) {
  printf("Content-Security-Policy: " PAGE_POLICY "\n", pageNonce(), pageNonce());
  puts("X-Content-Type-Options: nosniff\nContent-Type: text/html; charset=utf-8\n");
  if (isMethod("HEAD")) return 0;
  printf(
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"" PAGE_VIEWPORT
      "\">\n"
      "<title>%s</title>\n<style nonce=\"%s\">\n%s</style>\n</head>\n<body>\n<main>\n<h1>%s</h1>\n",
      title, pageNonce(), PAGE_STYLE, title);
  return 1;
}

static inline void showProblem(const char *problem) {
  if (*problem) printf("<p role=\"alert\">%s</p>\n", problem);
}

static inline void endPage(void) { puts("</main>\n</body>\n</html>"); }

/* What main() returns: 0 if the whole response was written. */
static inline int endResponse(void) { return fflush(stdout) == 0 && !ferror(stdout) ? 0 : 1; }

#endif
