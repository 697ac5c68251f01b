/* store.h: how the example scripts save things, so that what a visitor is told is true: what is
 * confirmed is completely on disk, and nothing remains of what is refused. Include it before any
 * other header; it compiles as C99 and as C++.
 *
 * Never write to a visitor while a file is locked: a visitor who does not read would block all
 * others.
 */
#ifndef STORE_H
#define STORE_H

#include "page.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

/* The result of saving something. STORE_UNSURE: writing failed, and so did undoing it. */
typedef enum { STORED, NOT_STORED, STORE_FULL, STORE_UNSURE } Stored;

static inline const char *storedStatus(Stored stored) {
  if (stored == STORED) return "303 See Other";
  return stored == STORE_FULL ? "507 Insufficient Storage" : "500 Internal Server Error";
}

/* What to tell the visitor for each value of Stored. */
#define STORED_REMARKS(thing)                                                    \
  {                                                                              \
    "", "Your " thing " could not be saved.",                                    \
        "There is no room left, so your " thing " was not saved.",               \
        "There was a disk error: your " thing " may or may not have been saved." \
  }

/* ---- Files ----------------------------------------------------------------------------------- */

/* Opens a regular file. Returns -1 for a symbolic link, which could lead to someone else's file,
 * and for anything else, such as a FIFO, on which a script would wait forever. */
static inline int openRegular(const char *path, int flags) {
  const int file = open(path, flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600);
  struct stat known;
  if (file < 0 || (fstat(file, &known) == 0 && S_ISREG(known.st_mode))) return file;
  close(file);
  errno = EINVAL;
  return -1;
}

/* Creates a file, replacing one that a killed script may have left. */
static inline int openFresh(const char *path) {
  if (unlink(path) != 0 && errno != ENOENT) return -1;
  return openRegular(path, O_WRONLY | O_CREAT | O_EXCL);
}

/* Opens and locks a file for reading (F_RDLCK) or for appending (F_WRLCK); -1 on failure. The lock
 * lasts until the file is closed. */
static inline int openStore(const char *path, short type) {
  const int file = openRegular(path, type == F_RDLCK ? O_RDONLY : O_RDWR | O_CREAT | O_APPEND);
  struct flock lock;
  memset(&lock, 0, sizeof lock);
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  if (file < 0 || fcntl(file, F_SETLKW, &lock) == 0) return file;
  close(file);
  return -1;
}

/* Reads the first bytes of a file; false if it has fewer. */
static inline int readBytes(const char *path, char *bytes, size_t length) {
  const int file = openRegular(path, O_RDONLY);
  const int got = file >= 0 && read(file, bytes, length) == (ssize_t)length;
  if (file >= 0) close(file);
  return got;
}

/* Writes a few bytes over those at an offset; false if they may not be on disk. */
static inline int overwrite(const char *path, off_t offset, const char *bytes, size_t length) {
  const int file = openRegular(path, O_WRONLY | O_CREAT);
  const int put = file >= 0 && pwrite(file, bytes, length, offset) == (ssize_t)length;
  const int stored = put && fsync(file) == 0;
  if (file >= 0) close(file);
  return stored;
}

/* ---- Lines ------------------------------------------------------------------------------------
 *
 * Each line of a file has a number of texts, encoded and not empty. Text without a line end was
 * left by a script that was killed; the next script that appends a line removes it.
 */

/* Makes a line of texts, which the caller frees; null if memory runs out. */
static inline char *makeLine(const char *const *texts, size_t count, size_t *length) {
  size_t most = 1;
  for (size_t i = 0; i < count; i++) most += 3 * strlen(texts[i]) + 1;
  char *line = (char *)malloc(most);
  char *end = line;
  for (size_t i = 0; line && i < count; i++) {
    for (const char *text = texts[i]; *text; text++) end += encodeByte(*text, end);
    *end++ = i + 1 < count ? ' ' : '\n';
  }
  *length = (size_t)(end - line);
  return line;
}

/* The offset after the last complete line; -1 if the file cannot be read. */
static inline off_t endOfLines(int file) {
  char bytes[BUFSIZ];
  off_t end = lseek(file, 0, SEEK_END);
  while (end > 0) {
    const off_t begin = end > BUFSIZ ? end - BUFSIZ : 0;
    if (pread(file, bytes, (size_t)(end - begin), begin) != end - begin) return -1;
    for (; end > begin; end--)
      if (bytes[end - begin - 1] == '\n') return end;
  }
  return end;
}

/* Appends a line to a file from openStore(), which may grow to `most` bytes. */
static inline Stored appendLine(int file, const char *line, size_t length, off_t most) {
  const off_t end = endOfLines(file);
  if (end < 0 || ftruncate(file, end) != 0) return NOT_STORED;
  if (end + (off_t)length > most) return STORE_FULL;
  const ssize_t written = write(file, line, length);
  if (written == (ssize_t)length && fsync(file) == 0) return STORED;
  if (written >= 0 && written != (ssize_t)length) errno = ENOSPC; /* the disk is full */
  perror("cannot save a line");
  /* A partial line is ignored by readers, even if it cannot be removed. */
  return ftruncate(file, end) == 0 || written != (ssize_t)length ? NOT_STORED : STORE_UNSURE;
}

/* Appends a line of texts to a file, which may grow to `most` bytes. */
static inline Stored addLine(const char *path, const char *const *texts, size_t count, off_t most) {
  size_t length = 0;
  char *line = makeLine(texts, count, &length);
  const int file = line ? openStore(path, F_WRLCK) : -1;
  const Stored stored = file < 0 ? NOT_STORED : appendLine(file, line, length, most);
  if (file >= 0) close(file);
  free(line);
  return stored;
}

enum { PAGE_LINES = 100, PAGE_BYTES = 0x40000 };

/* The lines of one page, in memory. */
typedef struct {
  char *text; /* owned by the caller, who frees it */
  char *next; /* the line that takeLine() returns next */
  off_t from; /* their offset in the file; older lines are before it */
} Lines;

/* Reads the last lines that end at or before an offset; false if they cannot be read. A missing
 * file has no lines. */
static inline int readLines(const char *path, long long before, Lines *lines) {
  struct stat known;
  const int file = openStore(path, F_RDLCK);
  const int none = file < 0 && errno == ENOENT;
  off_t got = -1;
  lines->from = 0;
  lines->next = lines->text = (char *)calloc(PAGE_BYTES + 1, 1);
  if (lines->text && file >= 0 && fstat(file, &known) == 0) {
    const off_t end = before >= 0 && before < known.st_size ? (off_t)before : known.st_size;
    lines->from = end > PAGE_BYTES ? end - PAGE_BYTES : 0;
    got = pread(file, lines->text, (size_t)(end - lines->from), lines->from);
    if (got != end - lines->from) got = -1;
  }
  if (file >= 0) close(file);
  if (got < 0) return none && lines->text;
  while (got > 0 && lines->text[got - 1] != '\n') got--;
  lines->text[got] = '\0';
  off_t begin = got;
  for (int count = 0; begin > 0; begin--)
    if (lines->text[begin - 1] == '\n' && count++ == PAGE_LINES) break;
  /* If the page is not full, the first line may have started before the bytes that were read. */
  const char *first = begin == 0 && lines->from > 0 ? strchr(lines->text, '\n') : NULL;
  lines->next += first ? first + 1 - lines->text : begin;
  lines->from += lines->next - lines->text;
  return 1;
}

/* Splits the next line into `count` texts, valid as long as `lines`; false at the end. */
static inline int takeLine(Lines *lines, char **texts, size_t count) {
  char *text = lines->next;
  char *end = text ? strchr(text, '\n') : NULL;
  if (!end) return 0;
  *end = '\0';
  lines->next = end + 1;
  for (size_t i = 0; i < count; i++) {
    texts[i] = text;
    text += strcspn(text, " ");
    if (*text) *text++ = '\0';
    decodeInPlace(texts[i]);
  }
  return 1;
}

/* ---- Folders ----------------------------------------------------------------------------------
 *
 * The folder is the current one. Before a script adds a file, it locks the folder with
 * openStore(".lock", F_WRLCK).
 */

enum { HARMLESS_BYTES = 101 };                  /* including the terminator */
enum { FILE_NAME_BYTES = HARMLESS_BYTES + 16 }; /* with a number in front */
enum { MOST_NUMBER = 1 << 20 };
#define HARMLESS_LETTERS "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-."

/* Makes a safe file name from one that a stranger sent. Only the part after the last slash is used,
 * and only letters, digits and "_-." are kept. Leading dots and dashes are removed: they would hide
 * the file or look like an option. `name` must have room for HARMLESS_BYTES. */
static inline void makeHarmless(const char *sent, char *name) {
  for (const char *c = sent; *c; c++)
    if (*c == '/' || *c == '\\') sent = c + 1;
  sent += strspn(sent, ".-");
  snprintf(name, HARMLESS_BYTES, "%s", *sent ? sent : "file");
  for (; *name; name++)
    if (!strchr(HARMLESS_LETTERS, *name)) *name = '_';
}

/* True for a name that makeHarmless() could have made. */
static inline int isHarmless(const char *name) {
  return *name && !strchr(".-", *name) && !name[strspn(name, HARMLESS_LETTERS)];
}

static inline int isTaken(const char *name) {
  struct stat file;
  return lstat(name, &file) == 0 || errno != ENOENT;
}

static inline void makeName(const char *sent, unsigned number, char *name) {
  makeHarmless(sent, name + (number > 1 ? sprintf(name, "%u-", number) : 0));
}

/* Makes a name that is not taken yet, with a number in front if necessary. The number doubles until
 * one is free; a binary search then finds the first: for a thousand files with the same name, about
 * twenty checks. */
static inline void makeFreeName(const char *sent, char *name) {
  unsigned taken = 0;
  unsigned found = 1;
  for (makeName(sent, found, name); isTaken(name); makeName(sent, found, name)) {
    taken = found;
    found *= 2;
    if (found > MOST_NUMBER) return;
  }
  while (found - taken > 1) {
    const unsigned middle = taken + (found - taken) / 2;
    makeName(sent, middle, name);
    *(isTaken(name) ? &taken : &found) = middle;
  }
  makeName(sent, found, name);
}

/* Saves a file of a form. It gets its name only when it is complete, and replaces no other. */
static inline Stored saveFile(TarnFormField *file, char *name) {
  makeFreeName(TarnFormField_filename(file), name);
  const int error = TarnFormField_save(file, ".", name);
  if (error == 0) return STORED;
  fprintf(stderr, "cannot save a file: %s\n", error > 0 ? strerror(error) : "it cannot be read");
  /* Nothing had this name, so what has it now is a file that could not be removed. */
  return isTaken(name) ? STORE_UNSURE : NOT_STORED;
}

/* Counts the files in the folder and their bytes; false on failure. */
static inline int measureFolder(int *files, long long *bytes) {
  DIR *folder = opendir(".");
  struct stat file;
  for (struct dirent *entry; folder && (errno = 0, entry = readdir(folder)) != NULL;) {
    if (*entry->d_name == '.') continue;
    if (lstat(entry->d_name, &file) != 0) {
      if (errno == ENOENT) continue; /* it has just been deleted */
      break;
    }
    *files += 1;
    *bytes += file.st_size;
  }
  const int measured = folder && errno == 0;
  if (folder) closedir(folder);
  return measured;
}

#endif
