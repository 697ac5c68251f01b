/* page.h: what the example scripts share. Include it before any other header; it compiles as C99
 * and as C++. Scripts that save something include store.h instead, which includes page.h.
 */
#ifndef PAGE_H
#define PAGE_H

#ifndef _POSIX_C_SOURCE
#define _POSIX_C_SOURCE 200809L
#endif
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/random.h>
#include <tarn.h>
#include <tarn_form.h>
#include <tarn_serve.h>
#include <time.h>
#include <unistd.h>

/* ---- What a visitor sent ------------------------------------------------------------------- */

static inline int isMethod(const char *method) {
  return strcmp(CgiEnv_getRequestMethod(NULL), method) == 0;
}

/* The value of a form field without surrounding white space; the caller frees it. It is empty if the
 * field was not sent, and if it contains a zero byte, at which a C text would end. */
static inline char *field(TarnForm *form, const char *name) {
  TarnFormField *sent = TarnForm_get(form, name, 0);
  const char *text = TarnFormField_text(sent);
  return stripString(text && strlen(text) == TarnFormField_size(sent) ? text : "");
}

/* The value of a cookie, or an empty text. */
static inline const char *cookieValue(TarnForm *form, const char *name) {
  const char *value = TarnForm_decodedCookie(form, name);
  return value ? value : "";
}

static inline int isHTTPS(void) {
  const char *https = getenv("HTTPS");
  return https && strcmp(https, "on") == 0;
}

/* The length of a host without the port, if that is the default. */
static inline size_t hostLength(const char *host) {
  const char *port = isHTTPS() ? ":443" : ":80";
  const size_t length = strlen(host);
  const size_t end = strlen(port);
  return length > end && strcmp(host + length - end, port) == 0 ? length - end : length;
}

/* True unless a page of this site sent the form, as tarn::same_origin() tells for a POST. Another
 * site can have the visitor's browser send a form with the visitor's cookies, but without the
 * visitor's knowledge. Browsers send Sec-Fetch-Site, older ones Origin. */
static inline int sentByAnotherSite(void) {
  const char *site = getenv("HTTP_SEC_FETCH_SITE");
  const char *origin = getenv("HTTP_ORIGIN");
  const char *host = getenv("HTTP_HOST");
  const char *scheme = isHTTPS() ? "https://" : "http://";
  if (site && *site) return strcmp(site, "same-origin") != 0;
  if (!origin || !host || !*host || strncasecmp(origin, scheme, strlen(scheme)) != 0) return 1;
  origin += strlen(scheme);
  const size_t length = hostLength(host);
  return hostLength(origin) != length || strncasecmp(origin, host, length) != 0;
}

/* The status for a form that could not be read; sets `problem` to what the visitor should know. */
static inline const char *refusedForm(int status, const char **problem) {
  switch (status) {
    case 403:
      *problem = "This form was sent from another site, so nothing was saved.";
      return "403 Forbidden";
    case 400:
      *problem = "The form did not arrive completely, so nothing was saved.";
      return "400 Bad Request";
    case 408:
      *problem = "The form arrived too slowly, so nothing was saved.";
      return "408 Request Timeout";
    case 413:
      *problem = "The form is larger than this page accepts, so nothing was saved.";
      return "413 Content Too Large";
    case 415:
      *problem = "The page cannot read this kind of form, so nothing was saved.";
      return "415 Unsupported Media Type";
    default:
      *problem = "The form could not be read, so nothing was saved.";
      return "500 Internal Server Error";
  }
}

/* Reads what is left of a refused form, for 10 seconds and 32 MiB at most. Apache, and nginx with
 * fcgiwrap, lose the answer of a script that does not read its whole body. */
static inline void discardBody(void) {
  struct pollfd input = {STDIN_FILENO, POLLIN, 0};
  char bytes[BUFSIZ];
  const time_t begin = time(NULL);
  ssize_t got = 1;
  for (long long most = 32 << 20; most > 0 && got > 0 && time(NULL) - begin < 10; most -= got)
    got = poll(&input, 1, 1000) > 0 ? read(STDIN_FILENO, bytes, sizeof bytes) : 0;
}

/* Reads the whole form. Returns null, or a status if the form must not be used, and then the form has
 * no fields. The log has the details. */
static inline const char *readForm(TarnForm *form, const char **problem) {
  const int foreign = isMethod("POST") && sentByAnotherSite();
  if (!foreign && TarnForm_load(form)) return NULL;
  if (!foreign) fprintf(stderr, "cannot read the form: %s\n", TarnForm_message(form));
  discardBody();
  if (foreign) return refusedForm(403, problem);
  return refusedForm(TarnForm_status(form), problem);
}

/* ---- The response --------------------------------------------------------------------------- */

/* Escapes for HTML, for text and attribute values alike. */
static inline void putEscapedByte(unsigned char c, FILE *out) {
  if (c == 127 || (c < ' ' && c != '\t' && c != '\n' && c != '\r')) {
    fputs("&#xFFFD;", out);
  } else if (strchr("&<>\"'", c)) {
    fprintf(out, "&#%d;", c);
  } else {
    putc(c, out);
  }
}

/* Null counts as empty, here and below. */
static inline void putEscaped(const char *text, FILE *out) {
  for (; text && *text; text++) putEscapedByte((unsigned char)*text, out);
}

/* Encodes a byte for a header, a URL or a line of a file. The result has no white space or control
 * characters, so nobody can inject a header or a line. decodeInPlace() decodes it. `code` must have
 * room for 4 bytes; returns the length of the text in it. */
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

static inline void decodeInPlace(char *text) {
  char *out = text;
  for (; *text; text++) {
    const int code = *text == '%' && text[1] && text[2];
    *out++ = code ? (char)hexToChar(text[1], text[2]) : *text;
    if (code) text += 2;
  }
  *out = '\0';
}

/* Over HTTPS the cookie is marked Secure, so the browser never sends it unencrypted. */
static inline void setCookie(const char *name, const char *value, int seconds) {
  printf("Set-Cookie: %s=", name);
  putEncoded(value, stdout);
  printf("; Max-Age=%d; HttpOnly; SameSite=Lax%s\n", seconds, isHTTPS() ? "; Secure" : "");
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
  "img { display: block; max-width: 100%; max-height: 24rem; margin: .5rem 0 }\n"                  \
  "svg { max-width: 100%; fill: var(--text) }\n"                                                   \
  "rect { fill: var(--link) }\n"

/* The browser may load only the style sheet and the script with this response's nonce, load pictures
 * from this site and connect only to it. No site may frame the page, which prevents clickjacking. */
#define PAGE_POLICY                                                                   \
  "default-src 'none'; style-src 'nonce-%s'; script-src 'nonce-%s'; img-src 'self'; " \
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

/* What script() returns: 0 if the whole response was written. */
static inline int endResponse(void) { return fflush(stdout) == 0 && !ferror(stdout) ? 0 : 1; }

#endif
