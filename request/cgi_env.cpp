#include "request/cgi_env.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "core/cgifb.h"
#include "core/text.h"
#include "request/cookie_header.h"
#include "response/http_cookie.h"

namespace tarn::internal {
namespace {

int32_t numberIn(const char *name) { return toNumber(environmentVariable(name)); }

// Whether CONTENT_LENGTH is larger than the number it was clamped to.
bool lengthExceeds(int32_t length) {
  return std::strtoll(environmentVariable("CONTENT_LENGTH"), nullptr, 10) > length;
}

// Reads the body into the block that the environment keeps. Bytes that do not arrive are zero.
// Kept: quirk 26.
TarnStatus readBody(int32_t length, Capture &capture) {
  if (length < 0) return TARN_BAD_ARGUMENT;
  const auto count = static_cast<uint32_t>(length);
  size_t arrived = 0;
  OwnedBytes block = capture.body.read(count, arrived);
  if (!block) return TARN_BAD_ARGUMENT;
  const std::string_view input(block.get(), arrived);
  if (input.size() < count) markIncomplete(capture.environment);
  Node *body = newByteBuffer(std::move(block), count);
  if (!body) return TARN_WRONG_TYPE;
  setChild(*capture.environment, TARN_ENVIRONMENT_BODY, body);
  capture.input = input;
  return TARN_OK;
}

Node *environmentIn(const TarnHandle *handle) { return nodeIn(handle, TARN_ENVIRONMENT_MAGIC); }

void releaseCookies(const Node &environment) {
  Cookies::releaseElements(Cookies::at(environment.child(TARN_ENVIRONMENT_COOKIES)));
}

}  // namespace

bool isPost() { return compareTexts(environmentVariable("REQUEST_METHOD"), "post") == 0; }

void captureEnvironment(Capture &capture) {
  Node *environment = newNode(TARN_ENVIRONMENT_MAGIC);
  if (!environment) return;
  capture.environment = environment;
  capture.status = TARN_OK;
  const int32_t length = numberIn("CONTENT_LENGTH");
  setNumber(*environment, TARN_ENVIRONMENT_CONTENT_LENGTH, static_cast<uint32_t>(length));
  // In lower case only. Kept: quirk 24.
  setNumber(*environment, TARN_ENVIRONMENT_HTTPS,
            std::strcmp(environmentVariable("HTTPS"), "on") == 0 ? 1 : 0);
  if (isPost() && length != 0) capture.status = readBody(length, capture);
  if (capture.status != TARN_OK || (isPost() && lengthExceeds(length))) markIncomplete(environment);
  if (const char *cookies = std::getenv("HTTP_COOKIE")) {
    setChild(*environment, TARN_ENVIRONMENT_COOKIES,
             parseCookieHeader(viewOf(cookies), environment));
  }
}

void destroyEnvironment(Node *environment) {
  if (!environment) return;
  releaseCookies(*environment);
  destroyNode(environment);
}

}  // namespace tarn::internal

using namespace tarn::internal;

TarnStatus CgiEnv_new(TarnHandle *handle) {
  if (!handle || *handle) return TARN_BAD_ARGUMENT;
  Capture capture;
  captureEnvironment(capture);
  *handle = handleOf(capture.environment);
  return capture.status;
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
  setChild(*node, TARN_ENVIRONMENT_BODY, body);
  return TARN_OK;
}

TarnStatus CgiEnv_save(TarnHandle *, FILE *) { return TARN_OK; }

TarnStatus CgiEnv_restore(TarnHandle *, FILE *) { return TARN_OK; }

const char *CgiEnv_getServerSoftware(TarnHandle *) {
  return environmentVariable("SERVER_SOFTWARE");
}
const char *CgiEnv_getServerName(TarnHandle *) { return environmentVariable("SERVER_NAME"); }
const char *CgiEnv_getGatewayInterface(TarnHandle *) {
  return environmentVariable("GATEWAY_INTERFACE");
}
const char *CgiEnv_getServerProtocol(TarnHandle *) {
  return environmentVariable("SERVER_PROTOCOL");
}
int32_t CgiEnv_getServerPort(TarnHandle *) { return numberIn("SERVER_PORT"); }
const char *CgiEnv_getCookies(TarnHandle *) { return environmentVariable("HTTP_COOKIE"); }
const char *CgiEnv_getRequestMethod(TarnHandle *) { return environmentVariable("REQUEST_METHOD"); }
const char *CgiEnv_getPathInfo(TarnHandle *) { return environmentVariable("PATH_INFO"); }
const char *CgiEnv_getPathTranslated(TarnHandle *) {
  return environmentVariable("PATH_TRANSLATED");
}
const char *CgiEnv_getScriptName(TarnHandle *) { return environmentVariable("SCRIPT_NAME"); }
const char *CgiEnv_getQueryString(TarnHandle *) { return environmentVariable("QUERY_STRING"); }
int32_t CgiEnv_getContentLength(TarnHandle *) { return numberIn("CONTENT_LENGTH"); }
const char *CgiEnv_getContentType(TarnHandle *) { return environmentVariable("CONTENT_TYPE"); }
const char *CgiEnv_getReferrer(TarnHandle *) { return environmentVariable("HTTP_REFERER"); }
const char *CgiEnv_getRemoteHost(TarnHandle *) { return environmentVariable("REMOTE_HOST"); }
const char *CgiEnv_getRemoteAddr(TarnHandle *) { return environmentVariable("REMOTE_ADDR"); }
const char *CgiEnv_getAuthType(TarnHandle *) { return environmentVariable("AUTH_TYPE"); }
const char *CgiEnv_getRemoteUser(TarnHandle *) { return environmentVariable("REMOTE_USER"); }
const char *CgiEnv_getRemoteIdent(TarnHandle *) { return environmentVariable("REMOTE_IDENT"); }
const char *CgiEnv_getAccept(TarnHandle *) { return environmentVariable("HTTP_ACCEPT"); }
const char *CgiEnv_getUserAgent(TarnHandle *) { return environmentVariable("HTTP_USER_AGENT"); }
const char *CgiEnv_getRedirectRequest(TarnHandle *) {
  return environmentVariable("REDIRECT_REQUEST");
}
const char *CgiEnv_getRedirectURL(TarnHandle *) { return environmentVariable("REDIRECT_URL"); }
const char *CgiEnv_getRedirectStatus(TarnHandle *) {
  return environmentVariable("REDIRECT_STATUS");
}
