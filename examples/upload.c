/* upload: keeps the files that a form sends in the folder that TARN_UPLOAD_DIR names, lists what is
 * there and gives it back. Let it be a folder that the web server does not serve. A request may
 * bring FILES_AT_ONCE, and the folder takes FOLDER_FILES of FOLDER_BYTES together.
 *
 *   cc -std=c99 -o upload upload.c -ltarn       (with page.h and store.h beside it)
 */
#include "store.h"

#include <glob.h>

enum { FILES_AT_ONCE = 20, FOLDER_FILES = 1000, FOLDER_BYTES = 100 << 20 };

/* What became of a file: its name in the folder, with room for a number in front. */
typedef struct {
  Stored stored;
  char name[FILE_NAME_BYTES];
} Outcome;

/* Keeps the files for which there is room, with no other script at it. */
static void keepAll(TarnHandle *files, int count, Outcome *outcomes, int folder) {
  const int lock = openStore(".lock", F_WRLCK);
  int used = 0;
  long long bytes = 0;
  const int measured = lock >= 0 && measureFolder(&used, &bytes);
  for (int i = 0; measured && i < count; i++) {
    TarnHandle file = FormFileList_getByIndex(files, (uint32_t)i);
    const char *sent = CGIgs_getString(&file, TARN_FILE_FILENAME, TARN_FORM_FILE_MAGIC);
    const long long more = FormFile_getDataLength(&file);
    outcomes[i].stored = STORE_FULL;
    if (used >= FOLDER_FILES || bytes + more > FOLDER_BYTES) continue;
    outcomes[i].stored = keepFile(&file, sent, outcomes[i].name, folder);
    used += 1;
    bytes += more;
  }
  if (lock >= 0) close(lock);
}

/* Which file came without a Content-Type, counted from 1; 0 when all have one. Tarn keeps neither
 * the name nor the bytes of such a file. */
static int fileWithoutType(TarnHandle *files, int count) {
  for (int i = 0; i < count; i++) {
    TarnHandle file = FormFileList_getByIndex(files, (uint32_t)i);
    if (!CGIgs_getString(&file, TARN_FILE_FILENAME, TARN_FORM_FILE_MAGIC)) return i + 1;
  }
  return 0;
}

/* Takes the files of a form; gives the status, and why none of them was kept. */
static const char *takeFiles(TarnHandle *request, TarnHandle *files, Outcome *outcomes, int folder,
                             const char **problem) {
  const int count = FormFileList_getCount(files);
  const char *status = refuseForm(request, 1, problem);
  if (status) return status;
  if (count > FILES_AT_ONCE) {
    *problem = "These were too many files at once, so none of them was kept.";
    return "413 Content Too Large";
  }
  const int untyped = fileWithoutType(files, count);
  if (untyped) {
    static char text[80];
    snprintf(text, sizeof text, "File %d has no Content-Type, so no file was kept.", untyped);
    *problem = text;
    return "400 Bad Request";
  }
  keepAll(files, count, outcomes, folder);
  status = "200 OK";
  for (int i = 0; i < count; i++)
    if (outcomes[i].stored != STORED && strncmp(status, "500", 3) != 0)
      status = storedStatus(outcomes[i].stored);
  return status;
}

/* Tells of each file what became of it. */
static void showOutcomes(TarnHandle *files, const Outcome *outcomes) {
  static const char *const texts[] = {"kept as", "not kept", "not kept, the folder is full",
                                      "the disk failed, perhaps kept as"};
  const int count = FormFileList_getCount(files);
  puts(count ? "<ul>" : "<p>No file came.</p>");
  for (int i = 0; i < count; i++) {
    TarnHandle file = FormFileList_getByIndex(files, (uint32_t)i);
    const char *sent = CGIgs_getString(&file, TARN_FILE_FILENAME, TARN_FORM_FILE_MAGIC);
    const Stored stored = outcomes[i].stored;
    fputs("<li><bdi>", stdout);
    putEscaped(sent, stdout);
    printf("</bdi>: %s", texts[stored]);
    if (stored == STORED || stored == STORE_UNSURE)
      printf(" %s, %u bytes", outcomes[i].name, FormFile_getDataLength(&file));
    puts("</li>");
  }
  if (count) puts("</ul>");
}

/* What else may stand in the folder, a link out of it say, is not shown and not given. */
static void showFiles(void) {
  struct stat file;
  glob_t names;
  const int found = glob("*", 0, NULL, &names);
  if (found != 0 && found != GLOB_NOMATCH) showProblem("The files cannot be listed now.");
  puts("<table>\n<caption>Kept files</caption>\n<tr><th>Name</th><th>Bytes</th></tr>");
  for (size_t i = 0; found == 0 && i < names.gl_pathc; i++) {
    const char *name = names.gl_pathv[i];
    if (isHarmless(name) && lstat(name, &file) == 0 && S_ISREG(file.st_mode))
      printf("<tr><td><a href=\"?file=%s\">%s</a></td><td>%lld</td></tr>\n", name, name,
             (long long)file.st_size);
  }
  puts("</table>");
  if (found == 0) globfree(&names);
}

/* What a stranger sent is a download and nothing else, whatever it looks like. */
static int sendFile(const char *name) {
  struct stat file;
  char bytes[BUFSIZ];
  const int in = isHarmless(name) ? openRegular(name, O_RDONLY) : -1;
  if (in < 0 || fstat(in, &file) != 0) return 0;
  printf(
      "Content-Type: application/octet-stream\nX-Content-Type-Options: nosniff\n"
      "Content-Security-Policy: default-src 'none'; sandbox\n"
      "Content-Disposition: attachment; filename=\"%s\"\nContent-Length: %lld\n\n",
      name, (long long)file.st_size);
  for (ssize_t got; !isMethod("HEAD") && (got = read(in, bytes, sizeof bytes)) > 0;)
    fwrite(bytes, 1, (size_t)got, stdout);
  close(in);
  return 1;
}

/* The form works without the script. With it, a bar shows how far the files have gone up. */
static const char form[] =
    "<p><strong>A photo does not survive this form: Tarn keeps a file up to its first CR "
    "LF.</strong>\n"
    "That pair of bytes ends a line in a text from Windows, which is kept up to there, and it is "
    "in\n"
    "nearly every photo, PDF and ZIP archive. A text with the line ends of Unix is kept "
    "whole.</p>\n"
    "<form method=\"post\" enctype=\"multipart/form-data\">\n"
    "<p><label>Files, at most %d <input type=\"file\" name=\"file\" multiple required></label>\n"
    "<button>Upload</button></p>\n"
    "<p><label hidden>Sent <progress value=\"0\"></progress></label></p>\n</form>\n"
    "<script nonce=\"%s\">\n"
    "addEventListener('submit', event => {\n"
    "  const bar = document.querySelector('progress'), request = new XMLHttpRequest();\n"
    "  event.preventDefault();\n"
    "  bar.parentNode.hidden = false;\n"
    "  request.upload.onprogress = sent => { bar.max = sent.total; bar.value = sent.loaded; };\n"
    "  request.onloadend = () => {\n"
    "    const came = request.responseText.split(/<div id=\"answer\"[^>]*>|<\\/div>/).at(-2);\n"
    "    document.getElementById('answer').innerHTML = came ?? 'The upload failed.';\n"
    "  };\n"
    "  request.open('POST', location.pathname);\n"
    "  request.send(new FormData(event.target));\n"
    "});\n</script>\n<div id=\"answer\" role=\"status\">";

int main(void) {
  const char *folder = getenv("TARN_UPLOAD_DIR");
  TarnHandle request = 0;
  Tarn_new(&request); /* refuseForm() tells whether it is whole */
  const int place = open(folder ? folder : "", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const int there = fchdir(place) == 0;
  TarnHandle files = CGIgs_getStruct(&request, TARN_REQUEST_FILES, TARN_REQUEST_MAGIC);
  Outcome outcomes[FILES_AT_ONCE];
  const int post = isMethod("POST");
  char *wanted = post ? NULL : field(&request, "file");
  const char *status = "200 OK";
  const char *problem = "";
  for (int i = 0; i < FILES_AT_ONCE; i++) outcomes[i].stored = NOT_STORED;
  if (!there) {
    status = "500 Internal Server Error";
    problem = "TARN_UPLOAD_DIR does not say where to keep files.";
  } else if (post) {
    status = takeFiles(&request, &files, outcomes, place, &problem);
  } else if (wanted && *wanted) {
    status = sendFile(wanted) ? NULL : "404 Not Found";
    problem = "There is no such file.";
  }
  if (status) {
    printf("Status: %s\n", status);
    if (beginPage("Upload")) {
      printf(form, FILES_AT_ONCE, pageNonce());
      showProblem(problem);
      if (post && !*problem) showOutcomes(&files, outcomes);
      if (there) showFiles();
      puts("</div>");
      endPage();
    }
  }
  free(wanted);
  Tarn_delete(&request);
  return endAnswer();
}
