/* page.h: what the example scripts share. It comes before every other header, stands beside the
 * script when that is compiled, and reads as C99 and as C++.
 */
#ifndef PAGE_H
#define PAGE_H

#ifndef _POSIX_C_SOURCE
#define _POSIX_C_SOURCE 200809L
#endif
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tarn.h>
#include <unistd.h>

/* ---- What a visitor sent ------------------------------------------------------------------- */

static inline int isMethod(const char *method) {
  return strcmp(CgiEnv_getRequestMethod(NULL), method) == 0;
}

/* A field of the form without the white space around it, to be freed. */
static inline char *field(TarnHandle *request, const char *name) {
  TarnHandle entry = Tarn_getElementByName(request, name);
  const char *value = CGIgs_getString(&entry, TARN_ENTRY_VALUE, TARN_FORM_ENTRY_MAGIC);
  return stripString(value ? value : "");
}

/* A cookie's value, empty when there is none; names are compared exactly. */
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

/* A body whose sender hung up is the beginning of a form, filled up with zero bytes. A whole one
 * ends in its closing boundary, or, URL-encoded, in a byte that is not zero. */
static inline int arrivedWhole(TarnHandle *request) {
  TarnHandle environment = CGIgs_getStruct(request, TARN_REQUEST_ENVIRONMENT, TARN_REQUEST_MAGIC);
  TarnHandle body = CGIgs_getStruct(&environment, TARN_ENVIRONMENT_BODY, TARN_ENVIRONMENT_MAGIC);
  const char *bytes = (const char *)CGIgs_getFixed(&body, TARN_BYTE_BUFFER_MAGIC);
  size_t length = CGIgs_getInt(&body, TARN_BYTE_BUFFER_LENGTH, TARN_BYTE_BUFFER_MAGIC);
  const char *boundary = strstr(CgiEnv_getContentType(NULL), "boundary=");
  if (!bytes || !length) return 0;
  if (!boundary) return bytes[length - 1] != '\0';
  boundary += strlen("boundary=");
  const size_t closing = strlen(boundary) + 4;
  if (length >= 2 && memcmp(bytes + length - 2, "\r\n", 2) == 0) length -= 2;
  if (length < closing) return 0;
  bytes += length - closing;
  return memcmp(bytes, "--", 2) == 0 && memcmp(bytes + 2, boundary, closing - 4) == 0 &&
         memcmp(bytes + closing - 2, "--", 2) == 0;
}

enum { HARMLESS_BYTES = 101 }; /* with the zero at the end */
#define HARMLESS_LETTERS "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-."

/* A stranger's name for a file is a hint at best. Of what stands after its last slash, letters,
 * digits and three marks stay as they are; a dot or a dash at the front would hide the file or pass
 * for an option, and goes. `name` has room for HARMLESS_BYTES. */
static inline void makeHarmless(const char *sent, char *name) {
  for (const char *c = sent; *c; c++)
    if (*c == '/' || *c == '\\') sent = c + 1;
  sent += strspn(sent, ".-");
  snprintf(name, HARMLESS_BYTES, "%s", *sent ? sent : "file");
  for (; *name; name++)
    if (!strchr(HARMLESS_LETTERS, *name)) *name = '_';
}

/* True for the names that makeHarmless() makes. */
static inline int isHarmless(const char *name) {
  return *name && !strchr(".-", *name) && !name[strspn(name, HARMLESS_LETTERS)];
}

/* ---- The answer ---------------------------------------------------------------------------- */

/* For HTML: text and attribute values alike. Null is empty here and below. */
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

/* For a header, a URL or a line of a file: what comes out holds no white space and no control
 * characters, so nobody can add a header or a line. unescapeString() is the way back. */
static inline void putEncoded(const char *text, FILE *out) {
  for (; text && *text; text++) {
    const unsigned char c = (unsigned char)*text;
    const int plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    fprintf(out, plain || strchr("-._~/", c) ? "%c" : "%%%02X", c);
  }
}

static inline void setCookie(const char *name, const char *value, int seconds) {
  printf("Set-Cookie: %s=", name);
  putEncoded(value, stdout);
  printf("; Max-Age=%d; HttpOnly; SameSite=Lax\n", seconds);
}

/* Sends the browser back to the page, so that reloading it does not send the form again. More
 * headers may follow, and an empty line has to. */
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
  ".pairs * { min-width: 11rem }\n"                                                                \
  ".pairs th { font: 600 .875em/1.7 ui-monospace, monospace }\n"                                   \
  "@media (max-width: 30rem) {\n"                                                                  \
  ".pairs * { display: block; padding: 0 }\n"                                                      \
  ".pairs tr { padding: .5rem 0 }\n"                                                               \
  "}\n"                                                                                            \
  "svg { max-width: 100%; fill: var(--text) }\n"                                                   \
  "rect { fill: var(--link) }\n"

/* Ends the headers and begins a page; false when the client asked for no more than the headers. */
static inline int beginPage(const char *title) {
  puts("X-Content-Type-Options: nosniff\nContent-Type: text/html; charset=utf-8\n");
  if (isMethod("HEAD")) return 0;
  printf(
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"" PAGE_VIEWPORT
      "\">\n"
      "<title>%s</title>\n<style>\n%s</style>\n</head>\n<body>\n<main>\n<h1>%s</h1>\n",
      title, PAGE_STYLE, title);
  return 1;
}

static inline void showProblem(const char *problem) {
  if (*problem) printf("<p role=\"alert\">%s</p>\n", problem);
}

static inline void endPage(void) { puts("</main>\n</body>\n</html>"); }

/* ---- Files ----------------------------------------------------------------------------------
 *
 * A file of lines has some texts in each, none of them empty.
 */

/* Closes a file that was written; true when every byte of it is on the disk. */
static inline int closeWritten(FILE *out, int written) {
  written = written && fflush(out) == 0 && fsync(fileno(out)) == 0;
  return fclose(out) == 0 && written;
}

static inline int lockFile(int file, short type) {
  struct flock lock;
  memset(&lock, 0, sizeof lock);
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return fcntl(file, F_SETLKW, &lock) == 0;
}

/* Opens a file to read its lines (F_RDLCK) or to add one (F_WRLCK); null when it cannot. Nobody
 * adds to it until it is closed, and nobody reads it while one is added. */
static inline FILE *openLines(const char *path, short lock) {
  const int flags = lock == F_RDLCK ? O_RDONLY : O_RDWR | O_CREAT | O_APPEND;
  const int file = open(path, flags | O_CLOEXEC, 0600);
  FILE *lines = file >= 0 && lockFile(file, lock) ? fdopen(file, "r") : NULL;
  if (!lines && file >= 0) close(file);
  return lines;
}

/* Reads the next line into `count` texts, to be freed; false at the end. What has no line end yet
 * is no line. */
static inline int readLine(FILE *lines, char **texts, size_t count) {
  char *line = NULL;
  size_t size = 0;
  const int whole = lines && getline(&line, &size, lines) > 0 && strchr(line, '\n');
  for (size_t i = 0; whole && i < count; i++)
    texts[i] = unescapeString(strtok(i ? NULL : line, " \n"));
  free(line);
  return whole;
}

/* Where the last whole line ends: a script that is killed may leave the beginning of another. */
static inline off_t endOfLines(int file) {
  off_t end = lseek(file, 0, SEEK_END);
  for (char last; end > 0 && pread(file, &last, 1, end - 1) == 1 && last != '\n';) end--;
  return end;
}

/* Adds a whole line, with its end, to what openLines() gave, and closes that. All of it is on the
 * disk, or nothing and the answer is false. */
static inline int appendLine(FILE *lines, const char *line, size_t length) {
  if (!lines) return 0;
  const int file = fileno(lines);
  const off_t end = endOfLines(file);
  const int done =
      ftruncate(file, end) == 0 && write(file, line, length) == (ssize_t)length && fsync(file) == 0;
  if (!done && ftruncate(file, end) != 0) perror("a torn line stays");
  return fclose(lines) == 0 && done;
}

/* The same of a line that is made of texts. */
static inline int addLine(FILE *lines, const char *const *texts, size_t count) {
  char *line = NULL;
  size_t length = 0;
  FILE *out = open_memstream(&line, &length);
  for (size_t i = 0; out && i < count; i++) {
    putEncoded(texts[i], out);
    fputc(i + 1 < count ? ' ' : '\n', out);
  }
  const int made = out && fclose(out) == 0;
  const int added = made && appendLine(lines, line, length);
  if (!made && lines) fclose(lines);
  free(line);
  return added;
}

#endif
