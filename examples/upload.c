/* upload: saves uploaded files in the folder named by TARN_UPLOAD_DIR, lists them and offers them
 * for download. Use a folder that the web server does not serve. A request may contain at most
 * FILES_AT_ONCE files, and the folder may hold FOLDER_FILES files and FOLDER_BYTES in all.
 *
 *   cc -std=c99 -o upload upload.c -ltarn       (page.h and store.h in the same folder)
 */
#include "store.h"

#include <glob.h>

enum { FILES_AT_ONCE = 20, FOLDER_FILES = 1000, FOLDER_BYTES = 100 << 20 };

/* The result for one file, and its name in the folder, with room for a number in front. */
typedef struct {
  Stored stored;
  char name[FILE_NAME_BYTES];
} Outcome;

/* Saves the files for which there is room, under a lock. */
static void saveAll(TarnHandle *files, int count, Outcome *outcomes, int folder) {
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
    outcomes[i].stored = saveFile(&file, sent, outcomes[i].name, folder);
    used += 1;
    bytes += more;
  }
  if (lock >= 0) close(lock);
}

/* The number, from 1, of the first file without a Content-Type; 0 if all have one. Tarn drops the
 * name and the bytes of such a file. */
static int fileWithoutType(TarnHandle *files, int count) {
  for (int i = 0; i < count; i++) {
    TarnHandle file = FormFileList_getByIndex(files, (uint32_t)i);
    if (!CGIgs_getString(&file, TARN_FILE_FILENAME, TARN_FORM_FILE_MAGIC)) return i + 1;
  }
  return 0;
}

/* Saves the files of a form. Returns the status; sets `problem` if none of them was saved. */
static const char *saveFiles(TarnHandle *request, TarnHandle *files, Outcome *outcomes, int folder,
                             const char **problem) {
  const int count = FormFileList_getCount(files);
  const char *status = refuseForm(request, 1, problem);
  if (status) return status;
  if (count > FILES_AT_ONCE) {
    *problem = "There were too many files at once, so none of them was saved.";
    return "413 Content Too Large";
  }
  const int untyped = fileWithoutType(files, count);
  if (untyped) {
    static char text[80];
    snprintf(text, sizeof text, "File %d has no Content-Type, so no file was saved.", untyped);
    *problem = text;
    return "400 Bad Request";
  }
  saveAll(files, count, outcomes, folder);
  status = "200 OK";
  for (int i = 0; i < count; i++)
    if (outcomes[i].stored != STORED && strncmp(status, "500", 3) != 0)
      status = storedStatus(outcomes[i].stored);
  return status;
}

/* Shows the result for each file. */
static void showOutcomes(TarnHandle *files, const Outcome *outcomes) {
  static const char *const texts[] = {"saved as", "not saved", "not saved, the folder is full",
                                      "disk error, may have been saved as"};
  const int count = FormFileList_getCount(files);
  puts(count ? "<ul>" : "<p>No file was sent.</p>");
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

/* Other things in the folder, symbolic links for example, are neither listed nor sent. */
static void showFiles(void) {
  struct stat file;
  glob_t names;
  const int found = glob("*", 0, NULL, &names);
  if (found != 0 && found != GLOB_NOMATCH) showProblem("The files could not be listed.");
  puts("<table>\n<caption>Saved files</caption>\n<tr><th>Name</th><th>Bytes</th></tr>");
  for (size_t i = 0; found == 0 && i < names.gl_pathc; i++) {
    const char *name = names.gl_pathv[i];
    if (isHarmless(name) && lstat(name, &file) == 0 && S_ISREG(file.st_mode))
      printf("<tr><td><a href=\"?file=%s\">%s</a></td><td>%lld</td></tr>\n", name, name,
             (long long)file.st_size);
  }
  puts("</table>");
  if (found == 0) globfree(&names);
}

/* Files from strangers are sent only as downloads, whatever they contain. */
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

/* The form works without JavaScript. With it, a bar shows the progress of the upload. */
static const char form[] =
    "<p><strong>Do not upload photos here: Tarn truncates a file at its first CR LF.</strong>\n"
    "That pair of bytes ends each line of a Windows text file, so only the first line is saved,\n"
    "and it occurs in nearly every photo, PDF and ZIP archive. Text files with Unix line ends\n"
    "are saved in full.</p>\n"
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
  Tarn_new(&request); /* refuseForm() checks the request */
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
    problem = "TARN_UPLOAD_DIR is not a folder that the script can open.";
  } else if (post) {
    status = saveFiles(&request, &files, outcomes, place, &problem);
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
  return endResponse();
}
