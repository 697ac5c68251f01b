/* store.h: how the example scripts keep things, so that what a visitor is told is true: what is
 * confirmed is on the disk, whole, and of what is refused nothing is. It comes before every other
 * header, stands with page.h beside the script when that is compiled, and reads as C99 and as C++.
 *
 * Nobody writes to a visitor while a file is locked: one who does not read would stop all others.
 */
#ifndef STORE_H
#define STORE_H

#include "page.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

/* What became of something that was to be kept. UNSURE: the disk failed, and then failed to undo. */
typedef enum { STORED, NOT_STORED, STORE_FULL, STORE_UNSURE } Stored;

static inline const char *storedStatus(Stored stored) {
  if (stored == STORED) return "303 See Other";
  return stored == STORE_FULL ? "507 Insufficient Storage" : "500 Internal Server Error";
}

/* What to tell the visitor: an array of texts in the order of Stored. */
#define STORED_REMARKS(thing)                                            \
  {                                                                      \
    "", "Your " thing " could not be kept.",                             \
        "There is no room left, so your " thing " was not kept.",        \
        "The disk failed, so your " thing " may have been kept, or not." \
  }

/* ---- Files ----------------------------------------------------------------------------------- */

/* Opens a file as it stands: -1 for a link, which may lead to a file that is not ours, and for
 * anything but a regular file, such as a FIFO, on which a script would wait for ever. */
static inline int openRegular(const char *path, int flags) {
  const int file = open(path, flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600);
  struct stat known;
  if (file < 0 || (fstat(file, &known) == 0 && S_ISREG(known.st_mode))) return file;
  close(file);
  errno = EINVAL;
  return -1;
}

/* Makes a new file, in place of what a script that was killed may have left there. */
static inline int openFresh(const char *path) {
  if (unlink(path) != 0 && errno != ENOENT) return -1;
  return openRegular(path, O_WRONLY | O_CREAT | O_EXCL);
}

/* Opens a file to read it (F_RDLCK) or to add to it (F_WRLCK); -1 when it cannot. Nobody adds to it
 * until it is closed, and nobody reads it while something is added. */
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

/* ---- Lines ------------------------------------------------------------------------------------
 *
 * A file of lines has some texts in each, encoded, none of them empty. What has no line end is no
 * line: a script that was killed left it, and the next one that adds a line cuts it off.
 */

/* Makes a line of texts, to be freed; null without memory. */
static inline char *makeLine(const char *const *texts, size_t count, size_t *length) {
  size_t most = 1;
  for (size_t i = 0; i < count; i++) most += 3 * strlen(texts[i]) + 1;
  char *line = (char *)malloc(most);
  char *end = line;
  for (size_t i = 0; line && i < count; i++) {
    for (const char *text = texts[i]; *text; text++) end += encode(*text, end);
    *end++ = i + 1 < count ? ' ' : '\n';
  }
  *length = (size_t)(end - line);
  return line;
}

/* Where the last whole line ends; -1 when that cannot be read. */
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

/* Adds a line to what openStore() gave, up to `most` bytes in all. */
static inline Stored appendLine(int file, const char *line, size_t length, off_t most) {
  const off_t end = endOfLines(file);
  if (end < 0 || ftruncate(file, end) != 0) return NOT_STORED;
  if (end + (off_t)length > most) return STORE_FULL;
  const ssize_t written = write(file, line, length);
  if (written == (ssize_t)length && fsync(file) == 0) return STORED;
  if (written >= 0 && written != (ssize_t)length) errno = ENOSPC; /* as far as there was room */
  perror("cannot keep a line");
  /* Of a line that is not whole nothing counts, even if it stays. */
  return ftruncate(file, end) == 0 || written != (ssize_t)length ? NOT_STORED : STORE_UNSURE;
}

/* Adds a line of texts to a file of up to `most` bytes. */
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
  char *text; /* to be freed */
  char *next; /* what takeLine() takes next */
  off_t from; /* where they begin in the file: older ones stand before */
} Lines;

/* Reads the last lines that end at or before an offset; false when they cannot be read. A file that
 * is not there has none. */
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
  /* With no more lines than that, the first may have begun before what was read. */
  const char *first = begin == 0 && lines->from > 0 ? strchr(lines->text, '\n') : NULL;
  lines->next += first ? first + 1 - lines->text : begin;
  lines->from += lines->next - lines->text;
  return 1;
}

/* Decodes in place what encode() made. */
static inline void decode(char *text) {
  char *out = text;
  for (; *text; text++) {
    const int code = *text == '%' && text[1] && text[2];
    *out++ = code ? (char)hexToChar(text[1], text[2]) : *text;
    if (code) text += 2;
  }
  *out = '\0';
}

/* Takes the next line apart, into `count` texts that live as long as the page; false at the end. */
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
    decode(texts[i]);
  }
  return 1;
}

/* ---- Folders ----------------------------------------------------------------------------------
 *
 * The script is in the folder, and has locked it by openStore(".lock", F_WRLCK) when it adds a file.
 */

enum { HARMLESS_BYTES = 101 };                  /* with the zero at the end */
enum { FILE_NAME_BYTES = HARMLESS_BYTES + 16 }; /* and with a number in front */
enum { MOST_NUMBER = 1 << 20 };
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

static inline int isTaken(const char *name) {
  struct stat file;
  return lstat(name, &file) == 0 || errno != ENOENT;
}

static inline void makeName(const char *sent, unsigned number, char *name) {
  makeHarmless(sent, name + (number > 1 ? sprintf(name, "%u-", number) : 0));
}

/* Makes the name that the file is to have, or one with a number in front that is free. Numbers
 * double until one is free, and then close in: a thousand files of one name cost twenty looks. */
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

/* Keeps a file. Only a whole one gets its name, and link() never replaces what stands there. */
static inline Stored keepFile(TarnHandle *file, const char *sent, char *name, int folder) {
  makeFreeName(sent, name);
  const int fresh = openFresh(".new");
  FILE *out = fresh < 0 ? NULL : fdopen(fresh, "wb");
  const int whole = out && FormFile_writeToStream(file, out) == 0 && fflush(out) == 0 &&
                    ftello(out) == (off_t)FormFile_getDataLength(file) && fsync(fresh) == 0;
  Stored stored = NOT_STORED;
  if (whole && link(".new", name) == 0)
    stored = fsync(folder) == 0 ? STORED : unlink(name) == 0 ? NOT_STORED : STORE_UNSURE;
  if (stored != STORED) perror("cannot keep a file");
  if (fresh >= 0) unlink(".new");
  if (out) fclose(out);
  return stored;
}

/* Counts the files in the folder and their bytes; false when it cannot. */
static inline int measureFolder(int *files, long long *bytes) {
  DIR *folder = opendir(".");
  struct stat file;
  errno = 0;
  for (struct dirent *entry; folder && (entry = readdir(folder));) {
    if (*entry->d_name == '.' || lstat(entry->d_name, &file) != 0) continue;
    *files += 1;
    *bytes += file.st_size;
  }
  const int measured = folder && errno == 0;
  if (folder) closedir(folder);
  return measured;
}

#endif
