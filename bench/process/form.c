/* A script that reads a form with libtarn_form.
 *
 * Usage: form OPERATION [TIMES]
 *
 *   text   reads each value as a text
 *   load   loads the form, and looks up the names of the first, middle and last field
 *   skip   skips the values
 *   block  reads them block by block
 *   body   does that with the body as it is
 *   write  writes the last file to $FOLDER/saved
 *   save   saves it there with TarnFormField_save()
 *   cache  does that without waiting for the disk
 *
 * With TIMES it rewinds standard input and reads the same form as often, in one process. Prints how
 * many fields there are and how long their names and values are, as the programs of form_peers.py do. */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tarn_form.h>
#include <unistd.h>

static unsigned long long fields, name_bytes, value_bytes;

static void count(TarnFormField *field) {
  ++fields;
  name_bytes += TarnFormField_nameSize(field);
  value_bytes += TarnFormField_size(field);
}

static void check(int holds, const char *what) {
  if (holds) return;
  fprintf(stderr, "form: %s\n", what);
  exit(1);
}

/* ---- Values ------------------------------------------------------------------------------------- */

static void text(TarnFormField *field) {
  check(TarnFormField_text(field) != NULL, "a value cannot be read");
}

static void skip(TarnFormField *field) { TarnFormField_skip(field); }

static void block(TarnFormField *field) {
  const void *bytes;
  while (TarnFormField_block(field, &bytes) > 0) continue;
}

static const char *folder(void) {
  const char *name = getenv("FOLDER");
  check(name != NULL, "no FOLDER");
  return name;
}

static void writeToFile(TarnFormField *field) {
  char path[4096];
  int file;
  snprintf(path, sizeof path, "%s/saved", folder());
  file = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
  check(file >= 0 && TarnFormField_write(field, file) == 0, "the file cannot be written");
  close(file);
}

static void save(TarnFormField *field) {
  check(TarnFormField_save(field, folder(), "saved") == 0, "the file cannot be saved");
}

/* ---- Forms -------------------------------------------------------------------------------------- */

static void (*read_value)(TarnFormField *);

static void step(TarnForm *form) {
  TarnFormField *field;
  while ((field = TarnForm_next(form)) != NULL) {
    read_value(field);
    count(field);
  }
}

static void stepWithoutWaiting(TarnForm *form) {
  TarnForm_setDurable(form, 0);
  step(form);
}

static void body(TarnForm *form) {
  TarnFormField *field = TarnForm_body(form);
  check(field != NULL, "no body");
  block(field);
  count(field);
}

static void look(TarnForm *form, unsigned long long index) {
  const char *name = TarnFormField_name(TarnForm_get(form, NULL, index));
  check(TarnFormField_text(TarnForm_get(form, name, 0)) != NULL, "a field is missing");
}

static void load(TarnForm *form) {
  unsigned long long i;
  unsigned long long all;
  TarnForm_load(form);
  all = TarnForm_count(form, NULL);
  for (i = 0; i < all; ++i) count(TarnForm_get(form, NULL, i));
  if (all == 0) return;
  look(form, 0);
  look(form, all / 2);
  look(form, all - 1);
}

/* Chooses what to do by its name. */
static void (*operation(const char *name))(TarnForm *) {
  const struct {
    const char *name;
    void (*form)(TarnForm *);
    void (*value)(TarnFormField *);
  } all[] = {{"text", step, text},         {"load", load, NULL},
             {"skip", step, skip},         {"block", step, block},
             {"body", body, NULL},         {"save", step, save},
             {"write", step, writeToFile}, {"cache", stepWithoutWaiting, save}};
  size_t i;
  for (i = 0; i < sizeof all / sizeof *all; ++i) {
    if (strcmp(name, all[i].name) != 0) continue;
    read_value = all[i].value;
    return all[i].form;
  }
  check(0, "unknown operation");
  return NULL;
}

int main(int argc, char **argv) {
  void (*const run)(TarnForm *) = operation(argc > 1 ? argv[1] : "text");
  long times = argc > 2 ? atol(argv[2]) : 1;
  const int again = times > 1;
  for (; times > 0; --times) {
    TarnForm *form = TarnForm_open();
    fields = name_bytes = value_bytes = 0;
    TarnForm_setLimit(form, TARN_FORM_FIELDS, TARN_FORM_UNLIMITED);
    TarnForm_setLimit(form, TARN_FORM_HEADER_SIZE, TARN_FORM_UNLIMITED);
    TarnForm_setLimit(form, TARN_FORM_TEXT_SIZE, TARN_FORM_UNLIMITED);
    TarnForm_setLimit(form, TARN_FORM_LOAD_SIZE, TARN_FORM_UNLIMITED);
    run(form);
    check(TarnForm_isWhole(form), TarnForm_message(form));
    TarnForm_close(form);
    check(!again || lseek(0, 0, SEEK_SET) == 0, "cannot rewind");
  }
  printf("Content-Type: text/plain\n\n%llu fields, names of %llu and values of %llu bytes\n",
         fields, name_bytes, value_bytes);
  return fflush(stdout) == 0 ? 0 : 1;
}
