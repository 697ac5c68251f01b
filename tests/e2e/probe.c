/* probe: a script that prints everything it saw of its request, to the last byte.
 *
 * The answer is a sequence of items "key:length:bytes" and a newline, "key:-" for a null text. The
 * answer to a HEAD, which has no body, holds them in hexadecimal in the header X-Probe.
 */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tarn.h>

static FILE *out;

static void bytes(const char *key, const void *data, size_t length) {
  if (!data) {
    fprintf(out, "%s:-\n", key);
    return;
  }
  fprintf(out, "%s:%zu:", key, length);
  fwrite(data, 1, length, out);
  fputc('\n', out);
}

static void text(const char *key, const char *value) {
  bytes(key, value, value ? strlen(value) : 0);
}

static void number(const char *key, long value) {
  char digits[32];
  snprintf(digits, sizeof digits, "%ld", value);
  text(key, digits);
}

static void tellVariables(TarnHandle *environment) {
  text("SERVER_SOFTWARE", CgiEnv_getServerSoftware(environment));
  text("SERVER_NAME", CgiEnv_getServerName(environment));
  text("GATEWAY_INTERFACE", CgiEnv_getGatewayInterface(environment));
  text("SERVER_PROTOCOL", CgiEnv_getServerProtocol(environment));
  number("SERVER_PORT", CgiEnv_getServerPort(environment));
  text("HTTP_COOKIE", CgiEnv_getCookies(environment));
  text("REQUEST_METHOD", CgiEnv_getRequestMethod(environment));
  text("PATH_INFO", CgiEnv_getPathInfo(environment));
  text("PATH_TRANSLATED", CgiEnv_getPathTranslated(environment));
  text("SCRIPT_NAME", CgiEnv_getScriptName(environment));
  text("QUERY_STRING", CgiEnv_getQueryString(environment));
  number("CONTENT_LENGTH", CgiEnv_getContentLength(environment));
  text("CONTENT_TYPE", CgiEnv_getContentType(environment));
  text("HTTP_REFERER", CgiEnv_getReferrer(environment));
  text("REMOTE_HOST", CgiEnv_getRemoteHost(environment));
  text("REMOTE_ADDR", CgiEnv_getRemoteAddr(environment));
  text("AUTH_TYPE", CgiEnv_getAuthType(environment));
  text("REMOTE_USER", CgiEnv_getRemoteUser(environment));
  text("REMOTE_IDENT", CgiEnv_getRemoteIdent(environment));
  text("HTTP_ACCEPT", CgiEnv_getAccept(environment));
  text("HTTP_USER_AGENT", CgiEnv_getUserAgent(environment));
  text("REDIRECT_REQUEST", CgiEnv_getRedirectRequest(environment));
  text("REDIRECT_URL", CgiEnv_getRedirectURL(environment));
  text("REDIRECT_STATUS", CgiEnv_getRedirectStatus(environment));
}

static void tellCaptured(TarnHandle *environment) {
  number("captured.length", (int32_t)CGIgs_getInt(environment, TARN_ENVIRONMENT_CONTENT_LENGTH,
                                                  TARN_ENVIRONMENT_MAGIC));
  number("captured.https",
         (int32_t)CGIgs_getInt(environment, TARN_ENVIRONMENT_HTTPS, TARN_ENVIRONMENT_MAGIC));
  TarnHandle body = CGIgs_getStruct(environment, TARN_ENVIRONMENT_BODY, TARN_ENVIRONMENT_MAGIC);
  bytes("body", (const void *)CGIgs_getFixed(&body, TARN_BYTE_BUFFER_MAGIC),
        CGIgs_getInt(&body, TARN_BYTE_BUFFER_LENGTH, TARN_BYTE_BUFFER_MAGIC));
}

static void tellCookies(TarnHandle *environment) {
  TarnHandle cookies =
      CGIgs_getStruct(environment, TARN_ENVIRONMENT_COOKIES, TARN_ENVIRONMENT_MAGIC);
  const int count = HTTPCookieList_getCount(&cookies);
  number("cookies", cookies ? count : -1);
  for (int i = 0; i < count; i++) {
    TarnHandle cookie = HTTPCookieList_getByIndex(&cookies, (uint32_t)i);
    text("cookie.name", CGIgs_getString(&cookie, TARN_COOKIE_NAME, TARN_COOKIE_MAGIC));
    text("cookie.value", CGIgs_getString(&cookie, TARN_COOKIE_VALUE, TARN_COOKIE_MAGIC));
  }
}

static void tellEntries(TarnHandle *request) {
  TarnHandle entries = CGIgs_getStruct(request, TARN_REQUEST_ENTRIES, TARN_REQUEST_MAGIC);
  const int count = FormEntryList_getCount(&entries);
  number("entries", count);
  for (int i = 0; i < count; i++) {
    TarnHandle entry = FormEntryList_getByIndex(&entries, (uint32_t)i);
    text("entry.name", CGIgs_getString(&entry, TARN_ENTRY_NAME, TARN_FORM_ENTRY_MAGIC));
    text("entry.value", CGIgs_getString(&entry, TARN_ENTRY_VALUE, TARN_FORM_ENTRY_MAGIC));
    number("entry.length", (int32_t)CGIgs_getInt(&entry, TARN_ENTRY_LENGTH, TARN_FORM_ENTRY_MAGIC));
  }
}

static void tellFiles(TarnHandle *request) {
  TarnHandle files = CGIgs_getStruct(request, TARN_REQUEST_FILES, TARN_REQUEST_MAGIC);
  const int count = FormFileList_getCount(&files);
  number("files", count);
  for (int i = 0; i < count; i++) {
    TarnHandle file = FormFileList_getByIndex(&files, (uint32_t)i);
    text("file.name", CGIgs_getString(&file, TARN_FILE_FIELD_NAME, TARN_FORM_FILE_MAGIC));
    text("file.fileName", CGIgs_getString(&file, TARN_FILE_FILENAME, TARN_FORM_FILE_MAGIC));
    text("file.type", CGIgs_getString(&file, TARN_FILE_CONTENT_TYPE, TARN_FORM_FILE_MAGIC));
    fprintf(out, "file.bytes:%u:", FormFile_getDataLength(&file));
    if (FormFile_writeToStream(&file, out) != 0) abort();
    fputc('\n', out);
  }
}

int main(void) {
  char *answer = NULL;
  size_t size = 0;
  TarnHandle request = 0;
  const TarnStatus status = Tarn_new(&request);
  TarnHandle environment = CGIgs_getStruct(&request, TARN_REQUEST_ENVIRONMENT, TARN_REQUEST_MAGIC);
  out = open_memstream(&answer, &size);
  if (!out) return 1;
  number("status", status);
  tellVariables(&environment);
  tellCaptured(&environment);
  tellCookies(&environment);
  tellEntries(&request);
  tellFiles(&request);
  fclose(out);
  fputs("Content-Type: application/octet-stream\n", stdout);
  if (strcmp(CgiEnv_getRequestMethod(&environment), "HEAD") == 0) {
    fputs("X-Probe: ", stdout);
    for (size_t i = 0; i < size; i++) printf("%02x", (unsigned char)answer[i]);
    fputs("\n\n", stdout);
  } else {
    fputs("\n", stdout);
    fwrite(answer, 1, size, stdout);
  }
  free(answer);
  Tarn_delete(&request);
  return fflush(stdout) == 0 ? 0 : 1;
}
