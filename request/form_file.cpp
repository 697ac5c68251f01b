#include "request/form_file.h"

#include "core/cgifb.h"
#include "core/text.h"

namespace tarn::internal {
namespace {

Node *fileIn(const TarnHandle *handle) { return nodeIn(handle, TARN_FORM_FILE_MAGIC); }

Bytes contentsOf(const Node *file) {
  const Node *buffer = file ? childOf(*file, TARN_FILE_BYTES, TARN_BYTE_BUFFER_MAGIC) : nullptr;
  return buffer ? bytesOf(*buffer) : Bytes{};
}

void storeParts(Node &file, FileParts parts) {
  setText(file, TARN_FILE_FIELD_NAME, std::move(parts.name));
  setText(file, TARN_FILE_FILENAME, std::move(parts.fileName));
  setText(file, TARN_FILE_CONTENT_TYPE, std::move(parts.contentType));
  setChild(file, TARN_FILE_BYTES, newByteBuffer(std::move(parts.data), parts.length));
}

bool sameText(const Node &a, const Node &b, uint32_t slot) {
  return compareTexts(a.text(slot), b.text(slot)) == 0;
}

}  // namespace

Node *newFormFile(FileParts parts) {
  Node *file = newNode(TARN_FORM_FILE_MAGIC);
  if (file && parts.name && parts.contentType) storeParts(*file, std::move(parts));
  return file;
}

const char *nameOfFile(const Node &file) { return file.text(TARN_FILE_FIELD_NAME); }

}  // namespace tarn::internal

using namespace tarn::internal;

TarnStatus FormFile_init(TarnHandle *file, const char *name, const char *fileName,
                         const char *contentType, const void *data, uint32_t length) {
  Node *node = fileIn(file);
  if (!node) return TARN_WRONG_TYPE;
  if (!name || !fileName || !contentType || !data) return TARN_BAD_ARGUMENT;
  // Copied before the node is emptied: the texts may belong to the file itself.
  FileParts parts{.name = copyText(name),
                  .fileName = copyText(fileName),
                  .contentType = copyText(contentType),
                  .data = copyBytes(data, length),
                  .length = length};
  emptyNode(*node);
  storeParts(*node, std::move(parts));
  return TARN_OK;
}

uint32_t FormFile_compare(TarnHandle *a, TarnHandle *b) {
  const Node *left = fileIn(a);
  const Node *right = fileIn(b);
  if (!left || !right) return 1;
  return sameText(*left, *right, TARN_FILE_FIELD_NAME) &&
                 sameText(*left, *right, TARN_FILE_FILENAME) &&
                 sameText(*left, *right, TARN_FILE_CONTENT_TYPE)
             ? 0
             : 1;
}

// Returns 1 where FormEntry_compareName() returns -1. Kept: quirk 40.
int32_t FormFile_compareName(TarnHandle *file, const char *name) {
  const Node *node = fileIn(file);
  return node && name ? compareTexts(nameOfFile(*node), name) : 1;
}

uint32_t FormFile_writeToStream(TarnHandle *file, FILE *stream) {
  const Bytes bytes = contentsOf(fileIn(file));
  if (!bytes.data || bytes.count == 0) return 0;
  if (!stream) return 1;
  // Byte by byte, since only that reports an error when a line-buffered stream flushes a line. Goes on
  // after a byte that the stream refuses. Kept: quirk 43.
  uint32_t written = 0;
  flockfile(stream);
  for (uint32_t i = 0; i < bytes.count; ++i) {
    if (putc_unlocked(bytes.data[i], stream) != EOF) ++written;
  }
  funlockfile(stream);
  return written == bytes.count ? 0 : 1;
}

uint32_t FormFile_getDataLength(TarnHandle *file) { return contentsOf(fileIn(file)).count; }

TarnStatus FormFileList_addEntry(TarnHandle *list, TarnHandle *file) {
  return FormFiles::add(list, file);
}

int32_t FormFileList_getCount(TarnHandle *list) {
  return static_cast<int32_t>(FormFiles::count(FormFiles::in(list)));
}

TarnHandle FormFileList_getByIndex(TarnHandle *list, uint32_t index) {
  return FormFiles::handleAt(FormFiles::in(list), index);
}

void FormFileList_reserve(TarnHandle *list, uint32_t capacity) {
  FormFiles::reserve(FormFiles::in(list), capacity);
}

// Deletes the list, unlike FormEntryList_clear(). Kept: quirk 44.
TarnStatus FormFileList_clear(TarnHandle *list) { return FormFiles::remove(list); }

TarnStatus FormFileList_delete(TarnHandle *list) { return FormFiles::remove(list); }

TarnStatus FormFileList_clone(TarnHandle *source, TarnHandle *destination) {
  return FormFiles::clone(source, destination);
}

const char *FormFileList_toHTML(TarnHandle *) { return "Not yet implemented."; }
