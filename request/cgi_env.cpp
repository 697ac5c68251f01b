#include "request/cgi_env.h"

#include <strings.h>

#include <cerrno>
#include <cstdio>

#include "core/cgifb.h"
#include "core/text.h"
#include "response/http_cookie.h"

namespace tarn {
namespace {

enum Number : uint32_t { kContentLength, kHttps };
enum Child : uint32_t { kBody, kCookies };

int32_t number(const char *name) { return toNumber(variable(name)); }

bool isPost() { return strcasecmp(variable("REQUEST_METHOD"), "post") == 0; }

// A signal does not end a body; the end of the input or an error does.
void readInput(char *block, size_t length) {
  while (length > 0) {
    const size_t got = std::fread(block, 1, length, stdin);
    block += got;
    length -= got;
    if (length == 0 || std::feof(stdin) || errno != EINTR) return;
    std::clearerr(stdin);
  }
}

// The body is read into the block that keeps it. What does not arrive is zero.
TarnStatus readBody(Node &environment, int32_t length) {
  if (length < 0) return TARN_BAD_ARGUMENT;
  const auto count = static_cast<uint32_t>(length);
  OwnedText block = newZeroedText(count);
  if (!block) return TARN_BAD_ARGUMENT;
  readInput(block.get(), count);
  Node *body = newByteBuffer(std::move(block), count);
  setChild(environment, kBody, body);
  return body ? TARN_OK : TARN_WRONG_TYPE;
}

OwnedText clean(std::string_view text) { return unescape(strip(text)); }

// A token without "=" makes a cookie without name and value, which is in the list all the same.
Node *parseCookie(std::string_view token) {
  const size_t equals = token.find('=');
  if (equals == std::string_view::npos) return newCookie(nullptr, nullptr);
  return newCookie(clean({token.data(), equals}),
                   clean({token.data() + equals + 1, token.size() - equals - 1}));
}

// Every ";" ends a token and the end of the header ends the last one; empty tokens count.
Node *parseCookies(std::string_view header) {
  Node *list = Cookies::newList();
  for (size_t semicolon = 0; semicolon != std::string_view::npos;) {
    semicolon = header.find(';');
    const std::string_view token(header.data(),
                                 semicolon == std::string_view::npos ? header.size() : semicolon);
    if (Node *cookie = parseCookie(token)) Cookies::adopt(list, cookie);
    if (semicolon != std::string_view::npos) header.remove_prefix(semicolon + 1);
  }
  return list;
}

Node *environmentIn(const TarnHandle *handle) { return nodeIn(handle, TARN_ENVIRONMENT_MAGIC); }

void releaseCookies(const Node &environment) {
  Cookies::releaseElements(Cookies::at(environment.structs[kCookies]));
}

}  // namespace

Node *newEnvironment(TarnStatus &status) {
  status = TARN_OK;
  Node *made = newNode(TARN_ENVIRONMENT_MAGIC);
  if (!made) return nullptr;
  const int32_t length = number("CONTENT_LENGTH");
  made->ints[kContentLength] = static_cast<uint32_t>(length);
  // In lower case only, while the method is taken in any case.
  made->ints[kHttps] = std::strcmp(variable("HTTPS"), "on") == 0 ? 1 : 0;
  if (isPost() && length != 0) status = readBody(*made, length);
  if (const char *cookies = std::getenv("HTTP_COOKIE")) {
    setChild(*made, kCookies, parseCookies(cookies));
  }
  return made;
}

void destroyEnvironment(Node *environment) {
  if (!environment) return;
  releaseCookies(*environment);
  destroyNode(environment);
}

const Node *bodyOf(const Node &environment) {
  return childOf(environment, kBody, TARN_BYTE_BUFFER_MAGIC);
}

}  // namespace tarn

using namespace tarn;

TarnStatus CgiEnv_new(TarnHandle *handle) {
  if (!handle || *handle) return TARN_BAD_ARGUMENT;
  TarnStatus status;
  Node *made = newEnvironment(status);
  *handle = handleOf(made);
  return made ? status : TARN_BAD_ARGUMENT;
}

TarnStatus CgiEnv_delete(TarnHandle *handle) {
  Node *node = environmentIn(handle);
  if (!node) return TARN_WRONG_TYPE;
  *handle = 0;
  destroyEnvironment(node);
  return TARN_OK;
}

TarnStatus CgiEnv_clear(TarnHandle *handle) {
  Node *node = environmentIn(handle);
  if (!node) return TARN_WRONG_TYPE;
  releaseCookies(*node);
  emptyNode(*node);
  return TARN_OK;
}

TarnStatus CgiEnv_setPostData(TarnHandle *handle, const void *data, uint32_t length) {
  Node *node = environmentIn(handle);
  if (!node) return TARN_WRONG_TYPE;
  Node *body = newByteBuffer(nullptr, 0);
  if (TarnStatus status = fillByteBuffer(body, data, length)) {
    destroyNode(body);
    return status;
  }
  setChild(*node, kBody, body);
  return TARN_OK;
}

TarnStatus CgiEnv_save(TarnHandle *, FILE *) { return TARN_OK; }

TarnStatus CgiEnv_restore(TarnHandle *, FILE *) { return TARN_OK; }

const char *CgiEnv_getServerSoftware(TarnHandle *) { return variable("SERVER_SOFTWARE"); }
const char *CgiEnv_getServerName(TarnHandle *) { return variable("SERVER_NAME"); }
const char *CgiEnv_getGatewayInterface(TarnHandle *) { return variable("GATEWAY_INTERFACE"); }
const char *CgiEnv_getServerProtocol(TarnHandle *) { return variable("SERVER_PROTOCOL"); }
int32_t CgiEnv_getServerPort(TarnHandle *) { return number("SERVER_PORT"); }
const char *CgiEnv_getCookies(TarnHandle *) { return variable("HTTP_COOKIE"); }
const char *CgiEnv_getRequestMethod(TarnHandle *) { return variable("REQUEST_METHOD"); }
const char *CgiEnv_getPathInfo(TarnHandle *) { return variable("PATH_INFO"); }
const char *CgiEnv_getPathTranslated(TarnHandle *) { return variable("PATH_TRANSLATED"); }
const char *CgiEnv_getScriptName(TarnHandle *) { return variable("SCRIPT_NAME"); }
const char *CgiEnv_getQueryString(TarnHandle *) { return variable("QUERY_STRING"); }
int32_t CgiEnv_getContentLength(TarnHandle *) { return number("CONTENT_LENGTH"); }
const char *CgiEnv_getContentType(TarnHandle *) { return variable("CONTENT_TYPE"); }
const char *CgiEnv_getReferrer(TarnHandle *) { return variable("HTTP_REFERER"); }
const char *CgiEnv_getRemoteHost(TarnHandle *) { return variable("REMOTE_HOST"); }
const char *CgiEnv_getRemoteAddr(TarnHandle *) { return variable("REMOTE_ADDR"); }
const char *CgiEnv_getAuthType(TarnHandle *) { return variable("AUTH_TYPE"); }
const char *CgiEnv_getRemoteUser(TarnHandle *) { return variable("REMOTE_USER"); }
const char *CgiEnv_getRemoteIdent(TarnHandle *) { return variable("REMOTE_IDENT"); }
const char *CgiEnv_getAccept(TarnHandle *) { return variable("HTTP_ACCEPT"); }
const char *CgiEnv_getUserAgent(TarnHandle *) { return variable("HTTP_USER_AGENT"); }
const char *CgiEnv_getRedirectRequest(TarnHandle *) { return variable("REDIRECT_REQUEST"); }
const char *CgiEnv_getRedirectURL(TarnHandle *) { return variable("REDIRECT_URL"); }
const char *CgiEnv_getRedirectStatus(TarnHandle *) { return variable("REDIRECT_STATUS"); }
