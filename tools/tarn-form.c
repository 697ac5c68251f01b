/* tarn-form: prints the form of a request as lines of JSON. See tarn-form.1. */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "tarn_form.h"

/* Larger values wait for their end in a temporary file, since their size is printed first. */
#define MOST_IN_MEMORY ((size_t)1024 * 1024)

#define LONGEST_NAME 200

static const char help[] =
    "Usage: tarn-form [--no-data] [--save DIR]\n"
    "\n"
    "Reads the form of a request as a CGI script does, from its environment and its\n"
    "standard input, and prints each field as a line of JSON.\n"
    "\n"
    "  --no-data      leave out the values\n"
    "  --save DIR     save uploaded files in this folder instead of printing them\n"
    "  -h, --help     show this help\n"
    "  -V, --version  show the version\n";

static const char *save_folder;
static int with_data = 1;

static void fail(const char *what) {
  fprintf(stderr, "tarn-form: %s: %s\n", what, strerror(errno));
  exit(2);
}

/* Where the answer goes that waits in a temporary file. */
static int server = -1;

/* Some servers, such as nginx with fcgiwrap, read nothing of an answer before they have written all
 * of the body. A script that writes more than a pipe holds while it reads would wait for them, and
 * they for the script. So under a server, the answer waits until the body is read. */
static void hold_answer(void) {
  FILE *held = tmpfile();
  server = held ? dup(STDOUT_FILENO) : -1;
  if (server < 0 || dup2(fileno(held), STDOUT_FILENO) < 0) fail("cannot open a temporary file");
  fclose(held);
}

/* Reads what is left of a body after a problem, for 10 seconds and 64 MiB at most: some servers lose
 * the answer of a script that does not read its whole body. */
static void discard_body(void) {
  struct pollfd input = {STDIN_FILENO, POLLIN, 0};
  char block[65536];
  const time_t begin = time(NULL);
  int blocks;
  for (blocks = 0; blocks < 1024 && time(NULL) - begin < 10; ++blocks) {
    if (poll(&input, 1, 1000) <= 0 || read(STDIN_FILENO, block, sizeof block) <= 0) return;
  }
}

static void send_answer(void) {
  char block[65536];
  ssize_t size;
  if (lseek(STDOUT_FILENO, 0, SEEK_SET) != 0) fail("cannot read a temporary file");
  while ((size = read(STDOUT_FILENO, block, sizeof block)) > 0) {
    const char *rest = block;
    while (size > 0) {
      const ssize_t written = write(server, rest, (size_t)size);
      if (written < 0) fail("cannot write");
      rest += written;
      size -= written;
    }
  }
  if (size < 0) fail("cannot read a temporary file");
}

static void end(int status) {
  if (fflush(stdout) != 0 || ferror(stdout)) fail("cannot write");
  if (server >= 0) send_answer();
  exit(status);
}

/* ---- JSON --------------------------------------------------------------------------------------- */

/* Takes a character of UTF-8. Returns its size; 0 if the bytes are not UTF-8. */
static unsigned take_character(const unsigned char *text, uint64_t left, unsigned long *code) {
  unsigned size;
  unsigned i;
  for (size = 1; size <= 4 && size <= left; ++size) {
    if (!TarnForm_isUtf8(text, size)) continue;
    *code = size == 1 ? text[0] : text[0] & (0x7FU >> size);
    for (i = 1; i < size; ++i) *code = *code << 6 | (text[i] & 0x3F);
    return size;
  }
  return 0;
}

/* Prints a text as a JSON string, in ASCII. Bytes that are not UTF-8 become \udc80 to \udcff, as in
 * Python. */
static void print_string(const char *text, uint64_t size) {
  const unsigned char *c = (const unsigned char *)text;
  if (!text) {
    fputs("null", stdout);
    return;
  }
  putchar('"');
  while (size > 0) {
    unsigned long code = 0;
    const unsigned count = take_character(c, size, &code);
    if (count == 0) {
      printf("\\udc%02x", *c);
    } else if (code == '"' || code == '\\') {
      printf("\\%c", (int)code);
    } else if (code >= 0x20 && code < 0x7F) {
      putchar((int)code);
    } else if (code < 0x10000) {
      printf("\\u%04lx", code);
    } else {
      code -= 0x10000;
      printf("\\u%04lx\\u%04lx", 0xD800 + (code >> 10), 0xDC00 + (code & 0x3FF));
    }
    c += count > 0 ? count : 1;
    size -= count > 0 ? count : 1;
  }
  putchar('"');
}

static void print_text(const char *text) { print_string(text, text ? strlen(text) : 0); }

/* ---- Values ------------------------------------------------------------------------------------- */

struct Value {
  char *bytes;
  size_t size;
  size_t capacity;
  FILE *file; /* instead of `bytes` once the value is large */
};

static void append(struct Value *value, const void *bytes, size_t size) {
  if (!value->file && value->size + size > MOST_IN_MEMORY) {
    value->file = tmpfile();
    if (!value->file) fail("cannot create a temporary file");
    if (fwrite(value->bytes, 1, value->size, value->file) != value->size) fail("temporary file");
  }
  if (value->file) {
    if (fwrite(bytes, 1, size, value->file) != size) fail("temporary file");
    return;
  }
  if (value->size + size > value->capacity) {
    value->capacity = 2 * (value->size + size);
    value->bytes = realloc(value->bytes, value->capacity);
    if (!value->bytes) fail("out of memory");
  }
  memcpy(value->bytes + value->size, bytes, size);
  value->size += size;
}

static void release(struct Value *value) {
  if (value->file) fclose(value->file);
  free(value->bytes);
}

static void print_base64(const unsigned char *bytes, size_t size) {
  static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  size_t i;
  for (i = 0; i < size; i += 3) {
    const unsigned second = i + 1 < size ? bytes[i + 1] : 0;
    const unsigned third = i + 2 < size ? bytes[i + 2] : 0;
    const unsigned bits = (unsigned)bytes[i] << 16 | second << 8 | third;
    putchar(digits[bits >> 18]);
    putchar(digits[bits >> 12 & 63]);
    putchar(i + 1 < size ? digits[bits >> 6 & 63] : '=');
    putchar(i + 2 < size ? digits[bits & 63] : '=');
  }
}

static void print_data(struct Value *value) {
  fputs(", \"data\": \"", stdout);
  if (value->file) {
    unsigned char block[3 * 16384];
    size_t count;
    rewind(value->file);
    while ((count = fread(block, 1, sizeof block, value->file)) > 0) print_base64(block, count);
    if (ferror(value->file)) fail("temporary file");
  } else {
    print_base64((const unsigned char *)value->bytes, value->size);
  }
  putchar('"');
}

/* ---- Saving ------------------------------------------------------------------------------------- */

/* Makes a name from what follows the last slash or backslash: ASCII letters, digits, ".", "_" and
 * "-"; other bytes become "_". It begins with neither "." nor "-". */
static void make_safe(const char *name, uint64_t size, char *safe) {
  size_t count = 0;
  const char *c;
  for (c = name; c < name + size; ++c) {
    const int slash = *c == '/' || *c == '\\';
    const int letter = (*c >= 'a' && *c <= 'z') || (*c >= 'A' && *c <= 'Z');
    const int digit = *c >= '0' && *c <= '9';
    const int mark = *c == '.' || *c == '_' || *c == '-';
    if (slash) count = 0;
    if (slash || (count == 0 && (*c == '.' || *c == '-')) || count == LONGEST_NAME) continue;
    safe[count++] = (char)(letter || digit || mark ? *c : '_');
  }
  if (count == 0) {
    memcpy(safe, "file", 4);
    count = 4;
  }
  safe[count] = '\0';
}

/* Saves a file; a number goes before the name's extension if the name is taken. Returns 0 if the form
 * has a problem. */
static int save(TarnFormField *field, char *name, size_t room) {
  char safe[LONGEST_NAME + 1];
  const char *dot;
  unsigned number;
  make_safe(TarnFormField_filename(field), TarnFormField_filenameSize(field), safe);
  dot = strrchr(safe, '.');
  if (!dot) dot = safe + strlen(safe);
  snprintf(name, room, "%s", safe);
  for (number = 2;; ++number) {
    const int error = TarnFormField_save(field, save_folder, name);
    if (error == 0) return 1;
    if (error < 0) return 0;
    if (error != EEXIST) {
      errno = error;
      fail(save_folder);
    }
    snprintf(name, room, "%.*s-%u%s", (int)(dot - safe), safe, number, dot);
  }
}

/* ---- The command -------------------------------------------------------------------------------- */

/* Prints a field. Nothing is printed and 0 returned if its value is not whole. */
static int print_field(TarnFormField *field) {
  const char *filename = TarnFormField_filename(field);
  const int saves = save_folder && filename && *filename != '\0';
  char saved[LONGEST_NAME + 16];
  struct Value value = {NULL, 0, 0, NULL};
  if (saves) {
    if (!save(field, saved, sizeof saved)) return 0;
  } else if (with_data) {
    const void *block;
    int64_t size;
    while ((size = TarnFormField_block(field, &block)) > 0) append(&value, block, (size_t)size);
    if (size < 0) {
      release(&value);
      return 0;
    }
  } else if (!TarnFormField_skip(field)) {
    return 0;
  }
  fputs("{\"name\": ", stdout);
  print_string(TarnFormField_name(field), TarnFormField_nameSize(field));
  fputs(", \"filename\": ", stdout);
  print_string(filename, TarnFormField_filenameSize(field));
  fputs(", \"content_type\": ", stdout);
  print_string(TarnFormField_type(field), TarnFormField_headerSize(field, "Content-Type"));
  printf(", \"size\": %llu", (unsigned long long)TarnFormField_size(field));
  if (saves) {
    fputs(", \"saved\": ", stdout);
    print_text(saved);
  } else if (with_data) {
    print_data(&value);
  }
  puts("}");
  release(&value);
  return 1;
}

/* Some servers pass the words of a query without "=" as arguments. Options must not come from the
 * visitor. */
static int arguments_may_be_the_query(void) {
  const char *query = getenv("QUERY_STRING");
  return getenv("GATEWAY_INTERFACE") && query && *query != '\0' && !strchr(query, '=');
}

static void read_arguments(int count, char **arguments) {
  int i;
  for (i = 1; i < count; ++i) {
    const char *word = arguments[i];
    if (strcmp(word, "--no-data") == 0) {
      with_data = 0;
    } else if (strncmp(word, "--save=", 7) == 0) {
      save_folder = word + 7;
    } else if (strcmp(word, "--save") == 0 && i + 1 < count) {
      save_folder = arguments[++i];
    } else if (strcmp(word, "--version") == 0 || strcmp(word, "-V") == 0) {
      puts("tarn-form " TARN_VERSION);
      end(0);
    } else if (strcmp(word, "--help") == 0 || strcmp(word, "-h") == 0) {
      fputs(help, stdout);
      end(0);
    } else {
      const char *what = strcmp(word, "--save") == 0 ? "needs a folder" : "is not an option";
      fprintf(stderr, "tarn-form: %s %s; see tarn-form --help\n", word, what);
      exit(2);
    }
  }
}

int main(int count, char **arguments) {
  TarnForm *form;
  TarnFormField *field;
  int whole;
  if (!arguments_may_be_the_query()) read_arguments(count, arguments);
  if (getenv("GATEWAY_INTERFACE")) {
    hold_answer();
    fputs("Content-Type: application/x-ndjson\r\n\r\n", stdout);
  }
  form = TarnForm_open();
  while ((field = TarnForm_next(form)) != NULL && print_field(field)) continue;
  whole = TarnForm_isWhole(form);
  if (whole) {
    puts("{\"end\": true}");
  } else {
    printf("{\"error\": \"%s\", \"at\": %llu, \"message\": ",
           TarnForm_problemName(TarnForm_problem(form)),
           (unsigned long long)TarnForm_problemOffset(form));
    print_text(TarnForm_message(form));
    puts("}");
  }
  TarnForm_close(form);
  if (!whole && server >= 0) discard_body();
  end(whole ? 0 : 1);
}
