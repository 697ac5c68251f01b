// upload: keeps the files that a form sends in the folder that TARN_UPLOAD_DIR names. Let it be a
// folder that the web server does not serve.
//
//   c++ -std=c++17 -o upload upload.cpp -ltarn
#include <fcntl.h>
#include <sys/stat.h>
#include <tarn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace {

std::string escaped(std::string_view text) {
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < ' ' || byte == 127)
      out += "&#xFFFD;";
    else if (std::strchr("&<>\"'", c) != nullptr)
      out += "&#" + std::to_string(byte) + ";";
    else
      out += c;
  }
  return out;
}

bool takeOff(std::string_view &text, std::string_view end) {
  const bool found = text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
  if (found) text.remove_suffix(end.size());
  return found;
}

// What a form sends ends in its closing boundary. A body without it is the beginning of one whose
// sender hung up, and the files in it may be beginnings too.
bool arrivedWhole(TarnHandle &environment) {
  TarnHandle buffer = CGIgs_getStruct(&environment, 0, TARN_ENVIRONMENT_MAGIC);
  const uintptr_t bytes = CGIgs_getFixed(&buffer, TARN_BYTE_BUFFER_MAGIC);
  const char *boundary = std::strstr(CgiEnv_getContentType(&environment), "boundary=");
  if (bytes == 0 || boundary == nullptr) return false;
  std::string_view body(reinterpret_cast<const char *>(bytes),
                        CGIgs_getInt(&buffer, 0, TARN_BYTE_BUFFER_MAGIC));
  takeOff(body, "\r\n");
  return takeOff(body, "--" + std::string(boundary + std::strlen("boundary=")) + "--");
}

// A stranger's name for a file is a hint at best. Of what stands after its last slash, letters,
// digits and three marks stay as they are; a dot or a dash at the front would hide the file or pass
// for an option, and goes.
std::string safeName(std::string_view sent) {
  sent.remove_prefix(sent.find_last_of("/\\") + 1);
  std::string name(sent.substr(0, 100));
  for (char &c : name) {
    const bool harmless = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                          (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
    if (!harmless) c = '_';
  }
  name.erase(0, name.find_first_not_of(".-"));
  return name.empty() ? "file" : name;
}

// True when every byte is on the disk. The descriptor is closed either way.
bool writeWhole(TarnHandle &file, int descriptor) {
  FILE *stream = fdopen(descriptor, "wb");
  if (stream == nullptr) {
    close(descriptor);
    return false;
  }
  struct stat written {};
  const bool whole = FormFile_writeToStream(&file, stream) == 0 && std::fflush(stream) == 0 &&
                     fstat(descriptor, &written) == 0 &&
                     written.st_size == static_cast<off_t>(FormFile_getDataLength(&file)) &&
                     fsync(descriptor) == 0;
  return std::fclose(stream) == 0 && whole;
}

// Gives a whole file the name it is to have, or the first free one like it. link() never replaces
// what stands there, however many scripts store at the same time.
std::string nameFor(const std::string &temporary, std::string_view sent) {
  const std::string wanted = safeName(sent);
  std::string name = wanted;
  for (int next = 2; link(temporary.c_str(), name.c_str()) != 0; ++next) {
    if (errno != EEXIST) return {};
    name = std::to_string(next).append("-").append(wanted);
  }
  return name;
}

// The name under which the file is kept; empty when it is not, and the server's log says why.
std::string keep(TarnHandle &file, std::string_view sent) {
  std::string temporary = ".upload-XXXXXX";
  const int descriptor = mkstemp(temporary.data());
  std::string name;
  if (descriptor >= 0 && writeWhole(file, descriptor)) name = nameFor(temporary, sent);
  if (name.empty()) std::perror("upload: cannot keep a file");
  if (descriptor >= 0) unlink(temporary.c_str());
  return name;
}

// Names are as lasting as the bytes once the folder is on the disk too.
bool folderIsWritten() {
  const int folder = open(".", O_RDONLY | O_DIRECTORY);
  const bool written = folder >= 0 && fsync(folder) == 0;
  if (folder >= 0) close(folder);
  return written;
}

// Tells of each file what became of it. `failed` is set when one was not kept.
std::string keepAll(TarnHandle &request, bool &failed) {
  TarnHandle files = CGIgs_getStruct(&request, 2, TARN_REQUEST_MAGIC);
  const auto count = static_cast<uint32_t>(FormFileList_getCount(&files));
  std::string items;
  for (uint32_t i = 0; i < count; ++i) {
    TarnHandle file = FormFileList_getByIndex(&files, i);
    const char *sent = CGIgs_getString(&file, 1, TARN_FORM_FILE_MAGIC);
    // A part without a Content-Type arrives as a file that has no name and no bytes.
    const std::string name = sent == nullptr ? std::string() : keep(file, sent);
    items += "<li>" + escaped(sent == nullptr ? "A file without a type" : sent) + ": ";
    if (name.empty()) {
      failed = true;
      items += "not kept</li>\n";
    } else {
      items += "kept as <code>" + name + "</code>, " +
               std::to_string(FormFile_getDataLength(&file)) + " bytes</li>\n";
    }
  }
  failed = failed || !folderIsWritten();
  return items.empty() ? "<p>No file came.</p>" : "<ul>\n" + items + "</ul>";
}

}  // namespace

int main() {
  TarnHandle request = 0;
  const bool taken = Tarn_new(&request) == TARN_OK;
  TarnHandle environment = CGIgs_getStruct(&request, 0, TARN_REQUEST_MAGIC);
  const std::string_view method = CgiEnv_getRequestMethod(&environment);
  const char *folder = std::getenv("TARN_UPLOAD_DIR");
  std::string status = "200 OK";
  std::string result;
  if (!taken || folder == nullptr || chdir(folder) != 0) {
    status = "500 Internal Server Error";
    result = "<p>TARN_UPLOAD_DIR does not say where to keep files.</p>";
  } else if (method == "POST" && !arrivedWhole(environment)) {
    status = "400 Bad Request";
    result = "<p>The upload did not arrive whole; nothing was kept.</p>";
  } else if (method == "POST") {
    bool failed = false;
    result = keepAll(request, failed);
    if (failed) status = "500 Internal Server Error";
  }
  std::printf("Status: %s\nContent-Type: text/html; charset=utf-8\n\n", status.c_str());
  if (method != "HEAD") {
    std::printf(
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<title>Upload</title>\n</head>\n<body>\n<h1>Upload</h1>\n%s\n"
        "<form method=\"post\" enctype=\"multipart/form-data\">\n"
        "<p><label>Files <input type=\"file\" name=\"file\" multiple required></label>\n"
        "<button>Upload</button></p>\n</form>\n"
        "<p>Tarn keeps a file up to its first CR LF pair.</p>\n</body>\n</html>\n",
        result.c_str());
  }
  Tarn_delete(&request);
  return std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
