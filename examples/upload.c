/* upload: saves uploaded files in the folder named by TARN_UPLOAD_DIR, shows pictures, and lists all
 * files for download. Use a folder that the web server does not serve. A request may have
 * REQUEST_BYTES and FILES_AT_ONCE files; the folder may hold FOLDER_FILES files and FOLDER_BYTES.
 *
 *   cc -std=c99 -o upload upload.c -ltarn_form -ltarn -ltarn_serve
 *
 * with page.h and store.h in the same folder.
 */
#include "store.h"

#include <glob.h>

enum {
  FILES_AT_ONCE = 20,
  FOLDER_FILES = 1000,
  REQUEST_BYTES = 20 << 20,
  FOLDER_BYTES = 100 << 20
};

/* The result for one file, and its name in the folder, with room for a number in front. */
typedef struct {
  TarnFormField *file;
  Stored stored;
  char name[FILE_NAME_BYTES];
} Outcome;

/* Finds the files of the form. A file field without a chosen file has an empty file name. */
static int findFiles(TarnForm *form, Outcome *outcomes) {
  TarnFormField *field;
  int count = 0;
  for (uint64_t i = 0; (field = TarnForm_get(form, NULL, i)) != NULL && count < FILES_AT_ONCE; i++)
    if (TarnFormField_filenameSize(field) > 0) outcomes[count++].file = field;
  return count;
}

/* Saves the files for which there is room, under a lock. By now all of them have arrived: a visitor
 * with a slow line keeps nobody waiting. */
static void saveAll(Outcome *outcomes, int count) {
  const int lock = openStore(".lock", F_WRLCK);
  int used = 0;
  long long bytes = 0;
  const int measured = lock >= 0 && measureFolder(&used, &bytes);
  for (int i = 0; i < count; i++) {
    const long long more = (long long)TarnFormField_size(outcomes[i].file);
    const int full = used >= FOLDER_FILES || bytes + more > FOLDER_BYTES;
    outcomes[i].stored = !measured ? NOT_STORED : full ? STORE_FULL : NOT_STORED;
    if (!measured || full) continue;
    outcomes[i].stored = saveFile(outcomes[i].file, outcomes[i].name);
    used += 1;
    bytes += more;
  }
  if (lock >= 0) close(lock);
}

/* Returns 200, or the status for the worst outcome. */
static const char *uploadStatus(const Outcome *outcomes, int count) {
  const char *status = "200 OK";
  for (int i = 0; i < count; i++)
    if (outcomes[i].stored != STORED && strncmp(status, "500", 3) != 0)
      status = storedStatus(outcomes[i].stored);
  return status;
}

/* The content type of a picture that every browser shows, or null. The first bytes decide, because
 * a visitor may give any file the name and the type of a picture. SVG is missing on purpose: it may
 * contain scripts. */
static const char *pictureType(int file) {
  char bytes[12] = "";
  if (pread(file, bytes, sizeof bytes, 0) < 0) return NULL;
  if (memcmp(bytes, "\211PNG\r\n\032\n", 8) == 0) return "image/png";
  if (memcmp(bytes, "\377\330\377", 3) == 0) return "image/jpeg";
  if (memcmp(bytes, "GIF87a", 6) == 0 || memcmp(bytes, "GIF89a", 6) == 0) return "image/gif";
  if (memcmp(bytes, "RIFF", 4) == 0 && memcmp(bytes + 8, "WEBP", 4) == 0) return "image/webp";
  return NULL;
}

static void showPicture(const char *name) {
  const int file = openRegular(name, O_RDONLY);
  if (file >= 0 && pictureType(file)) printf("<img src=\"?picture=%s\" alt=\"%s\">", name, name);
  if (file >= 0) close(file);
}

/* Shows the result for each file. */
static void showOutcomes(const Outcome *outcomes, int count) {
  static const char *const texts[] = {"saved as", "not saved", "not saved, the folder is full",
                                      "disk error, may have been saved as"};
  puts(count ? "<ul>" : "<p>No file was sent.</p>");
  for (int i = 0; i < count; i++) {
    const Stored stored = outcomes[i].stored;
    fputs("<li><bdi>", stdout);
    putEscaped(TarnFormField_filename(outcomes[i].file), stdout);
    printf("</bdi>: %s", texts[stored]);
    if (stored == STORED || stored == STORE_UNSURE)
      printf(" %s, %lld bytes", outcomes[i].name, (long long)TarnFormField_size(outcomes[i].file));
    if (stored == STORED) showPicture(outcomes[i].name);
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

/* Sends a file: a picture to be shown, or any file as a download. Nothing in it can run as a part of
 * the site: "nosniff" keeps the browser to the type, and the policy blocks scripts. */
static int sendFile(const char *name, int shown) {
  struct stat file;
  char bytes[BUFSIZ];
  const int in = isHarmless(name) ? openRegular(name, O_RDONLY) : -1;
  const char *type = shown ? pictureType(in) : "application/octet-stream";
  const int found = in >= 0 && type && fstat(in, &file) == 0;
  if (found) {
    printf(
        "Content-Type: %s\nX-Content-Type-Options: nosniff\n"
        "Content-Security-Policy: default-src 'none'; sandbox\n"
        "Content-Disposition: %s; filename=\"%s\"\nContent-Length: %lld\n\n",
        type, shown ? "inline" : "attachment", name, (long long)file.st_size);
    for (ssize_t got; !isMethod("HEAD") && (got = read(in, bytes, sizeof bytes)) > 0;)
      fwrite(bytes, 1, (size_t)got, stdout);
  }
  if (in >= 0) close(in);
  return found;
}

/* The form works without JavaScript. With it, a bar shows the progress of the upload. */
static const char html[] =
    "<p>Pictures (PNG, JPEG, GIF, WebP) are shown. All files are saved byte for byte.</p>\n"
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

static int script(void) {
  const char *folder = getenv("TARN_UPLOAD_DIR");
  TarnForm *form = TarnForm_open();
  TarnForm_setLimit(form, TARN_FORM_BODY_SIZE, REQUEST_BYTES);
  TarnForm_setLimit(form, TARN_FORM_FIELDS, FILES_AT_ONCE);
  const int place = open(folder ? folder : "", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const int there = fchdir(place) == 0;
  const int post = isMethod("POST");
  const char *problem = "";
  const char *status = readForm(form, &problem);
  const int picture = TarnForm_count(form, "picture") > 0;
  char *name = field(form, picture ? "picture" : "file");
  Outcome outcomes[FILES_AT_ONCE];
  const int count = findFiles(form, outcomes);
  if (!there) {
    status = "500 Internal Server Error";
    problem = "TARN_UPLOAD_DIR is not a folder that the script can open.";
  } else if (!status && post) {
    saveAll(outcomes, count);
    status = uploadStatus(outcomes, count);
  } else if (!status && (picture || TarnForm_count(form, "file") > 0)) {
    status = sendFile(name ? name : "", picture) ? NULL : "404 Not Found";
    problem = "There is no such file.";
  } else if (!status) {
    status = "200 OK";
  }
  if (status) {
    printf("Status: %s\n", status);
    if (beginPage("Upload")) {
      printf(html, FILES_AT_ONCE, pageNonce());
      showProblem(problem);
      if (post && !*problem) showOutcomes(outcomes, count);
      if (there) showFiles();
      puts("</div>");
      endPage();
    }
  }
  free(name);
  TarnForm_close(form);
  return endResponse();
}

int main(void) { return tarn_serve(script); }
