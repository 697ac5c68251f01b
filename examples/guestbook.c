/* guestbook: a page on which guests leave a line; a cookie remembers their name if they like. The
 * entries stand in the file that TARN_GUESTBOOK_FILE names, which the web server must be able to
 * write and should not serve.
 *
 *   cc -std=c99 -o guestbook guestbook.c -ltarn
 */
#define _POSIX_C_SOURCE 200809L
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tarn.h>
#include <unistd.h>

enum { NAME_BYTES = 120, MESSAGE_BYTES = 4000, YEAR_SECONDS = 31536000 };

/* For HTML: text and attribute values alike. */
static void putEscaped(const char *text) {
  for (; *text; text++) {
    const unsigned char c = (unsigned char)*text;
    if (strchr("&<>\"'", c)) {
      printf("&#%d;", c);
    } else if (c == 127 || (c < ' ' && !strchr("\t\n\r", c))) {
      fputs("&#xFFFD;", stdout);
    } else {
      putchar(c);
    }
  }
}

/* For a header or a line of the file: what comes out holds no white space and no control
 * characters, so nobody can add a header or a line. unescapeString() is the way back. */
static void putEncoded(const char *text, FILE *out) {
  for (; *text; text++) {
    const unsigned char c = (unsigned char)*text;
    const int plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    fprintf(out, plain || strchr("-._~/", c) ? "%c" : "%%%02X", c);
  }
}

/* A field of the form without the white space around it, to be freed. */
static char *field(TarnHandle *request, const char *name) {
  TarnHandle entry = Tarn_getElementByName(request, name);
  return stripString(entry ? CGIgs_getString(&entry, 1, TARN_FORM_ENTRY_MAGIC) : "");
}

static const char *cookieValue(TarnHandle *request, const char *name) {
  TarnHandle environment = CGIgs_getStruct(request, 0, TARN_REQUEST_MAGIC);
  TarnHandle cookies = CGIgs_getStruct(&environment, 1, TARN_ENVIRONMENT_MAGIC);
  const int count = HTTPCookieList_getCount(&cookies);
  for (int i = 0; i < count; i++) {
    TarnHandle cookie = HTTPCookieList_getByIndex(&cookies, (uint32_t)i);
    const char *found = CGIgs_getString(&cookie, 0, TARN_COOKIE_MAGIC);
    if (found && strcmp(found, name) == 0) return CGIgs_getString(&cookie, 1, TARN_COOKIE_MAGIC);
  }
  return "";
}

/* A form holds no zero byte; one whose sender hung up ends in them. */
static int arrivedWhole(TarnHandle *request) {
  TarnHandle environment = CGIgs_getStruct(request, 0, TARN_REQUEST_MAGIC);
  TarnHandle body = CGIgs_getStruct(&environment, 0, TARN_ENVIRONMENT_MAGIC);
  const uint32_t length = CGIgs_getInt(&body, 0, TARN_BYTE_BUFFER_MAGIC);
  const char *bytes = (const char *)CGIgs_getFixed(&body, TARN_BYTE_BUFFER_MAGIC);
  return bytes && length && bytes[length - 1];
}

static int lockFile(int file, short type) {
  struct flock lock = {.l_type = type, .l_whence = SEEK_SET};
  return fcntl(file, F_SETLKW, &lock) == 0;
}

/* Where the last whole line ends: a script that is killed may leave the beginning of another. */
static off_t endOfLines(int file) {
  off_t end = lseek(file, 0, SEEK_END);
  for (char last; end > 0 && pread(file, &last, 1, end - 1) == 1 && last != '\n';) end--;
  return end;
}

/* Adds a line, whole or not at all; the lock ends with the descriptor. */
static int addLine(const char *path, const char *line, size_t length) {
  const int file = open(path, O_RDWR | O_CREAT | O_APPEND, 0600);
  int done = 0;
  if (file < 0) return 0;
  if (lockFile(file, F_WRLCK)) {
    const off_t end = endOfLines(file);
    done = ftruncate(file, end) == 0 && write(file, line, length) == (ssize_t)length &&
           fsync(file) == 0;
    if (!done && ftruncate(file, end) != 0) perror("guestbook: a torn line stays");
  }
  return close(file) == 0 && done;
}

static int addEntry(const char *path, const char *name, const char *message) {
  char *line = NULL;
  size_t length = 0;
  FILE *out = open_memstream(&line, &length);
  if (!out) return 0;
  putEncoded(name, out);
  fputc(' ', out);
  putEncoded(message, out);
  fputc('\n', out);
  const int done = fclose(out) == 0 && addLine(path, line, length);
  free(line);
  return done;
}

static void showEntries(const char *path) {
  FILE *in = fopen(path, "r");
  char *line = NULL;
  size_t size = 0;
  const int readable = in && lockFile(fileno(in), F_RDLCK);
  if (!readable) puts("<p>No entries yet.</p>");
  while (readable && getline(&line, &size, in) > 0) {
    char *space = strchr(line, ' ');
    char *end = strchr(line, '\n');
    if (!space || !end) continue;
    *space = *end = '\0';
    char *name = unescapeString(line);
    char *message = unescapeString(space + 1);
    fputs("<article><h2>", stdout);
    putEscaped(name ? name : "");
    fputs("</h2><p>", stdout);
    putEscaped(message ? message : "");
    puts("</p></article>");
    free(name);
    free(message);
  }
  free(line);
  if (in) fclose(in);
}

static void showPage(const char *path, const char *problem, const char *name, const char *message) {
  puts(
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<title>Guestbook</title>\n<style>article p { white-space: pre-wrap }</style>\n"
      "</head>\n<body>\n<h1>Guestbook</h1>");
  if (*problem) printf("<p role=\"alert\">%s</p>\n", problem);
  fputs("<form method=\"post\">\n<p><label>Name <input name=\"name\" required value=\"", stdout);
  putEscaped(name);
  fputs("\"></label></p>\n<p><label>Message <textarea name=\"message\" required>\n", stdout);
  putEscaped(message);
  printf(
      "</textarea></label></p>\n"
      "<p><label><input type=\"checkbox\" name=\"remember\"%s> Remember my name</label></p>\n"
      "<p><button>Write</button></p>\n</form>\n",
      *name ? " checked" : "");
  showEntries(path);
  puts("</body>\n</html>");
}

/* Sends the browser back to the page, so that reloading it does not write again. */
static void sendBack(const char *name, int remember) {
  fputs("Status: 303 See Other\nLocation: ", stdout);
  putEncoded(CgiEnv_getScriptName(NULL), stdout);
  fputs("\nSet-Cookie: guest=", stdout);
  if (remember) putEncoded(name, stdout);
  printf("; Max-Age=%d; HttpOnly; SameSite=Lax\n\n", remember ? YEAR_SECONDS : 0);
}

static int fits(const char *text, size_t most) { return text && *text && strlen(text) <= most; }

int main(void) {
  const char *path = getenv("TARN_GUESTBOOK_FILE");
  TarnHandle request = 0;
  const int taken = Tarn_new(&request) == TARN_OK && path;
  const int post = strcmp(CgiEnv_getRequestMethod(NULL), "POST") == 0;
  char *name = post ? field(&request, "name") : stripString(cookieValue(&request, "guest"));
  char *message = field(&request, "message");
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
  } else if (post && !addEntry(path, name, message)) {
    status = "500 Internal Server Error";
    problem = "Your entry could not be kept.";
  }
  if (post && !*problem) {
    sendBack(name, Tarn_queryCheckbox(&request, "remember") != 0);
  } else {
    printf("Status: %s\nContent-Type: text/html; charset=utf-8\n\n", status);
    if (strcmp(CgiEnv_getRequestMethod(NULL), "HEAD") != 0)
      showPage(path ? path : "", problem, name ? name : "", message ? message : "");
  }
  free(name);
  free(message);
  Tarn_delete(&request);
  return fflush(stdout) == 0 ? 0 : 1;
}
