#include "calls/player.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace tarn_fuzz {
namespace {

void newEnvironment(Player &play) {
  TarnHandle *handle = play.variable();
  const bool isFree = handle && *handle == 0;
  EXPECT(CgiEnv_new(handle) == (isFree ? TARN_OK : TARN_BAD_ARGUMENT));
}

void endEnvironment(Player &play) {
  TarnHandle *handle = play.variableOf(TARN_ENVIRONMENT_MAGIC);
  if (!play.ownsElements(handle)) return;
  const bool matches = CGIgs_IsA(handle, TARN_ENVIRONMENT_MAGIC);
  const bool clears = play.input.below(2) == 0;
  if (matches) play.expectElementsFreed(*handle);
  EXPECT((clears ? CgiEnv_clear : CgiEnv_delete)(handle) == (matches ? TARN_OK : TARN_WRONG_TYPE));
  EXPECT(!matches || clears || *handle == 0);
}

void setPostData(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_ENVIRONMENT_MAGIC);
  const Block &bytes = play.bytes();
  const TarnStatus status = CgiEnv_setPostData(handle, bytes.data(), bytes.size());
  EXPECT(status == TARN_OK || bytes.size() == 0 || !CGIgs_IsA(handle, TARN_ENVIRONMENT_MAGIC));
  EXPECT(CgiEnv_save(handle, nullptr) == TARN_OK && CgiEnv_restore(handle, nullptr) == TARN_OK);
}

constexpr struct {
  const char *(*get)(TarnHandle *);
  const char *name;
} kVariables[] = {{CgiEnv_getServerSoftware, "SERVER_SOFTWARE"},
                  {CgiEnv_getServerName, "SERVER_NAME"},
                  {CgiEnv_getGatewayInterface, "GATEWAY_INTERFACE"},
                  {CgiEnv_getServerProtocol, "SERVER_PROTOCOL"},
                  {CgiEnv_getCookies, "HTTP_COOKIE"},
                  {CgiEnv_getRequestMethod, "REQUEST_METHOD"},
                  {CgiEnv_getPathInfo, "PATH_INFO"},
                  {CgiEnv_getPathTranslated, "PATH_TRANSLATED"},
                  {CgiEnv_getScriptName, "SCRIPT_NAME"},
                  {CgiEnv_getQueryString, "QUERY_STRING"},
                  {CgiEnv_getContentType, "CONTENT_TYPE"},
                  {CgiEnv_getReferrer, "HTTP_REFERER"},
                  {CgiEnv_getRemoteHost, "REMOTE_HOST"},
                  {CgiEnv_getRemoteAddr, "REMOTE_ADDR"},
                  {CgiEnv_getAuthType, "AUTH_TYPE"},
                  {CgiEnv_getRemoteUser, "REMOTE_USER"},
                  {CgiEnv_getRemoteIdent, "REMOTE_IDENT"},
                  {CgiEnv_getAccept, "HTTP_ACCEPT"},
                  {CgiEnv_getUserAgent, "HTTP_USER_AGENT"},
                  {CgiEnv_getRedirectRequest, "REDIRECT_REQUEST"},
                  {CgiEnv_getRedirectURL, "REDIRECT_URL"},
                  {CgiEnv_getRedirectStatus, "REDIRECT_STATUS"}};

void readVariables(Player &play) {
  TarnHandle *handle = play.any();
  for (const auto &[get, name] : kVariables) EXPECT(get(handle) == safeGetenv(name));
  EXPECT(CgiEnv_getServerPort(handle) == 0 &&
         CgiEnv_getContentLength(handle) == std::atoi(safeGetenv("CONTENT_LENGTH")));
}

void newRequest(Player &play) {
  TarnHandle *handle = play.variable();
  const bool isFree = handle && *handle == 0;
  EXPECT(Tarn_new(handle) == (isFree ? TARN_OK : TARN_BAD_ARGUMENT));
  EXPECT(Tarn_clear(handle) == TARN_NOT_IMPLEMENTED);
}

void deleteRequest(Player &play) {
  TarnHandle *handle = play.variableOf(TARN_REQUEST_MAGIC);
  if (!play.ownsElements(handle)) return;
  const bool matches = CGIgs_IsA(handle, TARN_REQUEST_MAGIC);
  if (matches) play.expectElementsFreed(*handle);
  EXPECT(Tarn_delete(handle) == (matches ? TARN_OK : TARN_WRONG_TYPE));
  EXPECT(!matches || *handle == 0);
}

void parse(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_REQUEST_MAGIC);
  const Block &bytes = play.bytes();
  const CText text(bytes.view());
  const bool isRequest = CGIgs_IsA(handle, TARN_REQUEST_MAGIC);
  const TarnStatus status = Tarn_parseFormInput(handle, text.data(), text.size() - 1);
  EXPECT(status == (isRequest && CGIgs_getStruct(handle, TARN_REQUEST_ENVIRONMENT, 0)
                        ? TARN_OK
                        : TARN_NO_ENVIRONMENT));
  Tarn_parsePair(handle, text.data());
  Tarn_parseMime(handle, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

void lookUp(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_REQUEST_MAGIC);
  TarnHandle *destination = play.anyOf(TARN_FORM_ENTRY_LIST_MAGIC);
  const char *name = play.text();
  TarnHandle entry = Tarn_getElementByName(handle, name);
  EXPECT(entry == Tarn_getElementByValue(handle, name));
  EXPECT(entry == 0 || stringsAreEqual(CGIgs_getString(&entry, TARN_ENTRY_NAME, 0), name) == 0);
  EXPECT(entry == 0 || CGIgs_IsA(handle, TARN_REQUEST_MAGIC));
  EXPECT(entry != 0 || Tarn_queryCheckbox(handle, name) == 0);
  EXPECT(!Tarn_isComplete(handle) || CGIgs_getStruct(handle, TARN_REQUEST_ENVIRONMENT, 0));
  TarnHandle file = Tarn_getFile(handle, name);
  EXPECT(file == 0 || CGIgs_IsA(&file, TARN_FORM_FILE_MAGIC));
  const int before = FormEntryList_getCount(destination);
  const uint32_t failed = Tarn_findEntries(handle, name, 0, destination);
  EXPECT(failed == 0 || !CGIgs_IsA(destination, TARN_FORM_ENTRY_LIST_MAGIC));
  EXPECT(entry == 0 || failed != 0 || FormEntryList_getCount(destination) > before);
}

void changeEntry(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_FORM_ENTRY_MAGIC);
  const bool matches = CGIgs_IsA(handle, TARN_FORM_ENTRY_MAGIC);
  const char *name = play.text();
  const char *value = play.text();
  const auto length = static_cast<uint32_t>(value ? std::strlen(value) : 0);
  const std::string expected = value ? value : "";
  EXPECT(FormEntry_init(handle, name, value, length) == (matches ? TARN_OK : TARN_WRONG_TYPE));
  EXPECT(!matches || FormEntry_compareValue(handle, expected.c_str()) == 0);
  EXPECT(!matches || CGIgs_getInt(handle, TARN_ENTRY_LENGTH, 0) == length);
  const Block &bytes = play.bytes();
  EXPECT(FormEntry_setValue(handle, bytes.data(), bytes.size()) ==
         (matches ? TARN_OK : TARN_WRONG_TYPE));
}

void readEntry(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_FORM_ENTRY_MAGIC);
  TarnHandle *other = play.any();
  const bool matches = CGIgs_IsA(handle, TARN_FORM_ENTRY_MAGIC);
  const char *stripped = FormEntry_getStrippedValue(handle);
  EXPECT((stripped == CGIgs_empty_string) == !matches);
  if (stripped != CGIgs_empty_string) std::free(const_cast<char *>(stripped));
  FormEntry_getDoubleValue(handle);
  EXPECT(matches || FormEntry_getIntegerValue(handle) == 0);
  EXPECT(matches || FormEntry_compare(handle, other) == 0);
  EXPECT(matches || FormEntry_compareName(handle, "a") == -1);
  EXPECT(FormEntry_compare(handle, other) == 0 || CGIgs_IsA(other, TARN_FORM_ENTRY_MAGIC));
  FormEntryList_reserve(other, play.input.byte());
  FormFileList_reserve(other, play.input.byte());
}

void changeFile(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_FORM_FILE_MAGIC);
  TarnHandle *other = play.anyOf(TARN_FORM_FILE_MAGIC);
  const bool matches = CGIgs_IsA(handle, TARN_FORM_FILE_MAGIC);
  const char *name = play.text();
  const char *fileName = play.text();
  const char *type = play.text();
  const Block &bytes = play.bytes();
  EXPECT((FormFile_compare(handle, other) == 0) <= (matches && CGIgs_getMagic(other)));
  EXPECT(matches || FormFile_compareName(handle, name) == 1);
  const bool isWhole = name && fileName && type;
  EXPECT(FormFile_init(handle, name, fileName, type, bytes.data(), bytes.size()) ==
         (!matches   ? TARN_WRONG_TYPE
          : !isWhole ? TARN_BAD_ARGUMENT
                     : TARN_OK));
  Stream stream;
  EXPECT(FormFile_writeToStream(handle, stream.file()) == 0);
  EXPECT(stream.written().size() == FormFile_getDataLength(handle));
  EXPECT(!matches || !isWhole || stream.written() == bytes.view());
}

}  // namespace

Calls requestCalls() {
  static constexpr Call kCalls[] = {newEnvironment, endEnvironment, setPostData, readVariables,
                                    newRequest,     deleteRequest,  parse,       lookUp,
                                    changeEntry,    readEntry,      changeFile};
  return kCalls;
}

}  // namespace tarn_fuzz
