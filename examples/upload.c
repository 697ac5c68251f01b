/* upload: keeps the files that a form sends in the folder that TARN_UPLOAD_DIR names, lists what is
 * there and gives it back. Let it be a folder that the web server does not serve.
 *
 *   cc -std=c99 -o upload upload.c -ltarn       (with page.h beside it)
 */
#include "page.h"

#include <errno.h>
#include <glob.h>
#include <sys/stat.h>

/* Keeps a file under the name that it is to have, or the first free one like it. Only a whole file
 * gets there, and link() never replaces what stands there, however many scripts store at once. */
static int keep(TarnHandle *file, const char *sent, char *name) {
  char temporary[] = ".upload-XXXXXX";
  const int descriptor = mkstemp(temporary);
  FILE *out = descriptor < 0 ? NULL : fdopen(descriptor, "wb");
  int kept = out && closeWritten(out, FormFile_writeToStream(file, out) == 0 &&
                                          ftello(out) == (off_t)FormFile_getDataLength(file));
  makeHarmless(sent, name);
  for (unsigned next = 2; kept && link(temporary, name) != 0; next++) {
    kept = errno == EEXIST;
    makeHarmless(sent, name + sprintf(name, "%u-", next));
  }
  if (!kept) perror("upload: cannot keep a file");
  if (descriptor >= 0) unlink(temporary);
  return kept;
}

/* Tells of each file what became of it; true when all were kept. */
static int keepAll(TarnHandle *files, FILE *answer) {
  const int count = FormFileList_getCount(files);
  int done = 1;
  fputs(count ? "<ul>\n" : "<p>No file came.</p>\n", answer);
  for (int i = 0; i < count; i++) {
    TarnHandle file = FormFileList_getByIndex(files, (uint32_t)i);
    const char *sent = CGIgs_getString(&file, TARN_FILE_FILENAME, TARN_FORM_FILE_MAGIC);
    char name[HARMLESS_BYTES + 16] = ""; /* and a number in front */
    /* A part without a Content-Type arrives as a file that has no name and no bytes. */
    const int kept = sent && keep(&file, sent, name);
    fputs("<li><bdi>", answer);
    putEscaped(sent ? sent : "A file without a type", answer);
    fprintf(answer, kept ? "</bdi>: kept as %s, %u bytes</li>\n" : "</bdi>: not kept</li>\n", name,
            FormFile_getDataLength(&file));
    done = done && kept;
  }
  if (count) fputs("</ul>\n", answer);
  return done;
}

/* What else may stand in the folder, a link out of it say, is not shown and not given. */
static int isKept(const char *name, struct stat *file) {
  return isHarmless(name) && lstat(name, file) == 0 && S_ISREG(file->st_mode);
}

static void showFiles(void) {
  struct stat file;
  glob_t names;
  const int found = glob("*", 0, NULL, &names) == 0;
  puts("<table>\n<caption>Kept files</caption>\n<tr><th>Name</th><th>Bytes</th></tr>");
  for (size_t i = 0; found && i < names.gl_pathc; i++) {
    const char *name = names.gl_pathv[i];
    if (isKept(name, &file))
      printf("<tr><td><a href=\"?file=%s\">%s</a></td><td>%lld</td></tr>\n", name, name,
             (long long)file.st_size);
  }
  puts("</table>");
  if (found) globfree(&names);
}

/* What a stranger sent is a download and nothing else, whatever it looks like. */
static int sendFile(const char *name) {
  struct stat file;
  FILE *in = isKept(name, &file) ? fopen(name, "rb") : NULL;
  if (!in) return 0;
  printf(
      "Content-Type: application/octet-stream\nX-Content-Type-Options: nosniff\n"
      "Content-Disposition: attachment; filename=\"%s\"\nContent-Length: %lld\n\n",
      name, (long long)file.st_size);
  char bytes[BUFSIZ];
  for (size_t got; !isMethod("HEAD") && (got = fread(bytes, 1, sizeof bytes, in)) > 0;)
    fwrite(bytes, 1, got, stdout);
  return fclose(in) == 0;
}

/* The form works without the script. With it, a bar shows how far the files have gone up. */
static const char form[] =
    "<form method=\"post\" enctype=\"multipart/form-data\">\n"
    "<p><label>Files <input type=\"file\" name=\"file\" multiple required></label>\n"
    "<button>Upload</button></p>\n"
    "<p><label hidden>Sent <progress value=\"0\"></progress></label></p>\n</form>\n"
    "<p>Tarn keeps a file up to its first CR LF pair.</p>\n<script>\n"
    "addEventListener('submit', event => {\n"
    "  const bar = document.querySelector('progress'), request = new XMLHttpRequest();\n"
    "  event.preventDefault();\n"
    "  bar.parentNode.hidden = false;\n"
    "  request.upload.onprogress = sent => { bar.max = sent.total; bar.value = sent.loaded; };\n"
    "  request.onloadend = () => {\n"
    "    const came = request.response?.getElementById('answer')?.childNodes;\n"
    "    document.getElementById('answer').replaceChildren(...came ?? ['The upload failed.']);\n"
    "  };\n"
    "  request.open('POST', location.pathname);\n"
    "  request.responseType = 'document';\n"
    "  request.send(new FormData(event.target));\n"
    "});\n</script>\n<div id=\"answer\" role=\"status\">";

int main(void) {
  const char *folder = getenv("TARN_UPLOAD_DIR");
  TarnHandle request = 0;
  const TarnStatus taken = Tarn_new(&request);
  const int place = open(folder ? folder : "", O_RDONLY | O_DIRECTORY);
  const int there = taken == TARN_OK && fchdir(place) == 0;
  TarnHandle files = CGIgs_getStruct(&request, TARN_REQUEST_FILES, TARN_REQUEST_MAGIC);
  const int post = isMethod("POST");
  char *wanted = post ? NULL : field(&request, "file");
  char *answer = NULL;
  size_t length = 0;
  FILE *out = open_memstream(&answer, &length);
  const char *status = "200 OK";
  const char *problem = "";
  if (!there || !out) {
    status = "500 Internal Server Error";
    problem = "TARN_UPLOAD_DIR does not say where to keep files.";
  } else if (post &&
             !(strstr(CgiEnv_getContentType(NULL), "boundary=") && arrivedWhole(&request))) {
    status = "400 Bad Request";
    problem = "The upload did not arrive whole; nothing was kept.";
  } else if (post && !(keepAll(&files, out) && fsync(place) == 0)) {
    status = "500 Internal Server Error";
  } else if (wanted && *wanted) {
    status = sendFile(wanted) ? NULL : "404 Not Found";
    problem = "There is no such file.";
  }
  if (out) fclose(out);
  if (status) {
    printf("Status: %s\n", status);
    if (beginPage("Upload")) {
      puts(form);
      showProblem(problem);
      if (answer) fputs(answer, stdout);
      if (there) showFiles();
      puts("</div>");
      endPage();
    }
  }
  free(answer);
  free(wanted);
  Tarn_delete(&request);
  return fflush(stdout) == 0 ? 0 : 1;
}
