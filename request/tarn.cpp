#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "core/text.h"
#include "request/cgi_env.h"
#include "request/form_entry.h"
#include "request/form_file.h"
#include "request/form_lists.h"
#include "request/multipart.h"
#include "request/url_encoded.h"

namespace tarn::internal {
namespace {

constexpr std::string_view kMultipart = "multipart/form-data";

Node *requestIn(const TarnHandle *handle) { return nodeIn(handle, TARN_REQUEST_MAGIC); }

FormLists listsOf(Node *request, const Body *body = nullptr) {
  if (!request) return {nullptr, nullptr, nullptr, body};
  return {request, FormEntries::at(request->child(TARN_REQUEST_ENTRIES)),
          FormFiles::at(request->child(TARN_REQUEST_FILES)), body};
}

// CONTENT_TYPE alone chooses the parser, and URL-encoded text ends at its first zero byte, whatever the
// length. Kept: quirks 2 and 13. Any object in the first slot counts as an environment.
TarnStatus parseForm(Node *request, const char *input, size_t length, const Body *body = nullptr) {
  if (!input) return TARN_BAD_ARGUMENT;
  if (!request || !request->child(TARN_REQUEST_ENVIRONMENT)) return TARN_NO_ENVIRONMENT;
  const char *contentType = environmentVariable("CONTENT_TYPE");
  NodeArena arena;
  FormLists lists = listsOf(request, body);
  lists.arena = &arena;
  if (strncasecmp(contentType, kMultipart.data(), kMultipart.size()) == 0) {
    parseMultipart(lists, {input, length}, contentType);
  } else {
    parseUrlEncoded(lists, viewOf(input));
  }
  return TARN_OK;
}

// Parses the body of a POST, and the query string of any other request. Kept: quirk 3. The input is
// what arrived, without the zeros that pad a short body.
TarnStatus parseRequest(Node *request, const Capture &capture) {
  const std::string_view input = capture.input;
  if (isPost()) {
    return input.data() ? parseForm(request, input.data(), input.size(), &capture.body) : TARN_OK;
  }
  const char *query = environmentVariable("QUERY_STRING");
  return parseForm(request, query, textLength(query));
}

// If the request cannot be allocated, standard input is still consumed; parsing then returns
// TARN_NO_ENVIRONMENT. Kept: quirk 16.
TarnStatus newRequest(TarnHandle *handle) {
  if (!handle || *handle) return TARN_BAD_ARGUMENT;
  Node *request = newNode(TARN_REQUEST_MAGIC);
  *handle = handleOf(request);
  Capture capture;
  captureEnvironment(capture);
  if (request) {
    setChild(*request, TARN_REQUEST_ENVIRONMENT, capture.environment);
    setChild(*request, TARN_REQUEST_ENTRIES, FormEntries::create());
    setChild(*request, TARN_REQUEST_FILES, FormFiles::create());
  } else {
    destroyEnvironment(capture.environment);
  }
  return parseRequest(request, capture);
}

template <class List>
TarnHandle firstNamed(const Node *list, const char *(*nameOf)(const Node &), const char *name) {
  for (uint32_t i = 0; i < List::count(list); ++i) {
    const Node *element = List::nodeAtIndex(list, i);
    if (element && compareTexts(nameOf(*element), name) == 0) return handleOf(element);
  }
  return 0;
}

}  // namespace
}  // namespace tarn::internal

using namespace tarn::internal;

TarnStatus Tarn_new(TarnHandle *handle) {
  const TarnStatus status = newRequest(handle);
  // A text that is allocated and freed unread. Kept: quirk 75.
  constexpr std::string_view kTrace = "exiting Tarn_new with ret = ";
  static_assert(TARN_NO_ENVIRONMENT < 10 && TARN_NOT_IMPLEMENTED < 10);
  if (const OwnedText trace = newText(kTrace.size() + 1)) {
    copyTo(trace.get(), kTrace)[-1] = static_cast<char>('0' + status);
    keepAllocation(trace.get());
  }
  return status;
}

TarnStatus Tarn_delete(TarnHandle *handle) {
  Node *request = requestIn(handle);
  if (!request) return TARN_WRONG_TYPE;
  *handle = 0;
  // Each empties its slot, unless that holds something else, which is released with the node.
  Slots &slots = request->slots();
  CgiEnv_delete(&slots.structs[TARN_REQUEST_ENVIRONMENT]);
  FormEntryList_delete(&slots.structs[TARN_REQUEST_ENTRIES]);
  FormFileList_delete(&slots.structs[TARN_REQUEST_FILES]);
  destroyNode(request);
  return TARN_OK;
}

TarnStatus Tarn_clear(TarnHandle *) { return TARN_NOT_IMPLEMENTED; }

// Fixed texts, whenever the library was built. Kept: quirk 21.
const char *Tarn_getCompileDate(TarnHandle *) { return "Jul 17 2007"; }

const char *Tarn_getCompileTime(TarnHandle *) { return "14:49:31"; }

const char *Tarn_getVersion(TarnHandle *) { return "1.0.0"; }

const char *Tarn_getHost(TarnHandle *) { return "Set this to the platform we compiled for"; }

void Tarn_save(TarnHandle *, FILE *) {}

void Tarn_restore(TarnHandle *, FILE *) {}

// Tarn_new() marks the request or its environment; in a copy, a list may be marked.
uint32_t Tarn_isComplete(TarnHandle *handle) {
  Node *request = requestIn(handle);
  const Node *environment =
      request ? childOf(*request, TARN_REQUEST_ENVIRONMENT, TARN_ENVIRONMENT_MAGIC) : nullptr;
  if (!environment) return 0;
  const FormLists lists = listsOf(request);
  const Node *cookies = childOf(*environment, TARN_ENVIRONMENT_COOKIES, TARN_COOKIE_LIST_MAGIC);
  for (const Node *part :
       {static_cast<const Node *>(request), environment, cookies,
        static_cast<const Node *>(lists.entries), static_cast<const Node *>(lists.files)}) {
    if (part && isIncomplete(*part)) return 0;
  }
  return 1;
}

uint32_t Tarn_queryCheckbox(TarnHandle *handle, const char *name) {
  const Node *entry = nodeAt(Tarn_getElementByName(handle, name), TARN_FORM_ENTRY_MAGIC);
  return entry && compareTexts(valueOfEntry(*entry), "on") == 0 ? 1 : 0;
}

TarnHandle Tarn_getElementByName(TarnHandle *handle, const char *name) {
  return firstNamed<FormEntries>(listsOf(requestIn(handle)).entries, nameOfEntry, name);
}

// Despite its name, looks up by name. Kept: quirk 17.
TarnHandle Tarn_getElementByValue(TarnHandle *handle, const char *text) {
  return Tarn_getElementByName(handle, text);
}

TarnHandle Tarn_getFile(TarnHandle *handle, const char *name) {
  return firstNamed<FormFiles>(listsOf(requestIn(handle)).files, nameOfFile, name);
}

// Returns 1 or 0, not a status. Kept: quirk 20.
uint32_t Tarn_findEntries(TarnHandle *handle, const char *name, uint32_t, TarnHandle *destination) {
  const Node *entries = listsOf(requestIn(handle)).entries;
  // The count is taken once: the destination may be the request's own list.
  const uint32_t count = FormEntries::count(entries);
  for (uint32_t i = 0; i < count; ++i) {
    const Node *entry = FormEntries::nodeAtIndex(entries, i);
    if (!entry || compareTexts(nameOfEntry(*entry), name) != 0) continue;
    TarnHandle source = handleOf(entry);
    if (FormEntryList_addEntry(destination, &source) != TARN_OK) return 1;
  }
  return 0;
}

TarnStatus Tarn_parseFormInput(TarnHandle *handle, char *input, uint32_t length) {
  return parseForm(requestIn(handle), input, length);
}

void Tarn_parsePair(TarnHandle *handle, char *pair) {
  if (!pair) return;
  const size_t length = textLength(pair);
  parsePair(listsOf(requestIn(handle)), {pair, length});
  // The caller's text is cut into name and value. Kept: quirk 14.
  if (void *equals = std::memchr(pair, '=', length)) *static_cast<char *>(equals) = '\0';
}

void Tarn_parseMime(TarnHandle *handle, const uint8_t *part, uint32_t length) {
  if (!part) return;
  const std::string_view bytes(reinterpret_cast<const char *>(part), length);
  const char *headersEnd = parsePart(listsOf(requestIn(handle)), bytes);
  // The caller's part ends after its last header line. Kept: quirk 14.
  if (headersEnd) *const_cast<char *>(headersEnd) = '\0';
}
