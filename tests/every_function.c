/* Calls every function of the libraries from plain C with empty arguments: an empty environment, null
 * addresses and zeros. A script that forgot to fill a handle, or has no memory for a form, gets the
 * same results. The test of the exported names checks that no function is missing here. */
#include <stdio.h>
#include <string.h>
#include <tarn.h>
#include <tarn_form.h>
#include <tarn_serve.h>

static int failures;

#define CHECK(condition)                                                            \
  do {                                                                              \
    if (!(condition)) {                                                             \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
      ++failures;                                                                   \
    }                                                                               \
  } while (0)

static int format(char **out, const char *text, ...) TARN_PRINTF(2, 3);

static int format(char **out, const char *text, ...) {
  va_list args;
  va_start(args, text);
  const int length = tarn_vasprintf(out, text, args);
  va_end(args);
  return length;
}

static void check_form(TarnForm *form, TarnFormProblem problem) {
  CHECK(form != NULL);
  TarnForm_setLimit(form, TARN_FORM_FIELDS, 0);
  CHECK(TarnForm_next(form) == NULL);
  CHECK(TarnForm_problem(form) == problem);
  CHECK(TarnForm_isWhole(form) == (problem == TARN_FORM_NO_PROBLEM));
  CHECK(TarnForm_cookie(form, "") == NULL);
  TarnForm_close(form);
}

static void check_form_functions(void) {
  check_form(TarnForm_open(), TARN_FORM_NO_PROBLEM);
  check_form(TarnForm_openMemory(NULL, NULL, 0), TARN_FORM_NO_PROBLEM);
  check_form(TarnForm_openDescriptor(NULL, -1, 0), TARN_FORM_READ_ERROR);
  check_form(TarnForm_openQuery(NULL), TARN_FORM_NO_PROBLEM);
  TarnForm_readToEnd(NULL);
  TarnForm_setLimit(NULL, TARN_FORM_FIELDS, 1);
  TarnForm_setDurable(NULL, 0);
  TarnForm_close(NULL);
  CHECK(TarnForm_next(NULL) == NULL);
  CHECK(TarnForm_body(NULL) == NULL);
  CHECK(TarnForm_isWhole(NULL) == 0);
  CHECK(TarnForm_problem(NULL) == TARN_FORM_OUT_OF_MEMORY);
  CHECK(TarnForm_problemOffset(NULL) == 0);
  CHECK(strcmp(TarnForm_message(NULL), "out of memory") == 0);
  CHECK(TarnForm_status(NULL) == 500);
  CHECK(TarnForm_limit(NULL, NULL, NULL) == 0);
  CHECK(strcmp(TarnForm_problemName(0), "") == 0);
  CHECK(TarnForm_load(NULL) == 0);
  CHECK(TarnForm_count(NULL, NULL) == 0);
  CHECK(TarnForm_get(NULL, NULL, 0) == NULL);
  CHECK(TarnForm_getIgnoringCase(NULL, NULL, 0) == NULL);
  CHECK(strcmp(TarnFormField_name(NULL), "") == 0);
  CHECK(TarnFormField_nameSize(NULL) == 0);
  CHECK(TarnFormField_filename(NULL) == NULL);
  CHECK(TarnFormField_filenameSize(NULL) == 0);
  CHECK(TarnFormField_type(NULL) == NULL);
  CHECK(TarnFormField_header(NULL, NULL) == NULL);
  CHECK(TarnFormField_headerSize(NULL, NULL) == 0);
  CHECK(TarnFormField_offset(NULL) == 0);
  CHECK(TarnFormField_size(NULL) == 0);
  CHECK(TarnFormField_text(NULL) == NULL);
  CHECK(TarnFormField_view(NULL) == NULL);
  CHECK(TarnFormField_block(NULL, NULL) == -1);
  CHECK(TarnFormField_read(NULL, NULL, 0) == -1);
  CHECK(TarnFormField_write(NULL, 0) == -1);
  CHECK(TarnFormField_save(NULL, NULL, NULL) == -1);
  CHECK(TarnFormField_skip(NULL) == 0);
  CHECK(TarnForm_cookie(NULL, NULL) == NULL);
  CHECK(TarnForm_decodedCookie(NULL, NULL) == NULL);
  CHECK(TarnForm_query(NULL, NULL) == NULL);
  CHECK(TarnForm_decodedQuery(NULL, NULL) == NULL);
  CHECK(TarnForm_isUtf8(NULL, 0) == 1);
}

static int script(void) { return 3; }

static int prepare(void) { return 4; }

static void check_serve_functions(void) {
  char *nothing[] = {NULL};
  char empty[] = "";
  char *no_program[] = {empty, NULL};
  CHECK(tarn_serve_option("", NULL) == 0);
  CHECK(tarn_serve_option(NULL, NULL) == 0);
  CHECK(tarn_serve_arguments(0, nothing) == 0);
  CHECK(tarn_serve_arguments(2, nothing) == 0);
  CHECK(tarn_serve_arguments(-1, NULL) == 0);
  CHECK(tarn_serve(script) == 3);
  CHECK(tarn_serve(NULL) == 127);
  CHECK(tarn_serve_program(no_program) == 127);
  CHECK(tarn_serve_program(nothing) == 127);
  CHECK(tarn_serve_program(NULL) == 127);
  tarn_serve_prepare(prepare);
  CHECK(tarn_serve(script) == 4);
  tarn_serve_prepare(NULL);
  tarn_serve_option("unconfined-if-unsupported", NULL);
  CHECK(tarn_confine() == 1);
}

int main(void) {
  CHECK(CGIgs_empty_string[0] == '\0');
  CHECK(tarn_asprintf(NULL, "%d", 12) == 2);
  CHECK(format(NULL, "%d", 123) == 3);
  CHECK(CGIgs_new(NULL, 1) == TARN_BAD_ARGUMENT);
  CHECK(CGIgs_delete(NULL, 0) == TARN_WRONG_TYPE);
  CHECK(CGIgs_clear(NULL, 0) == TARN_WRONG_TYPE);
  CHECK(CGIgs_IsA(NULL, 0) == 0);
  CHECK(CGIgs_clone(NULL, NULL, 0) == TARN_WRONG_TYPE);
  CHECK(CGIgs_setList(NULL, 0, NULL, 0) == TARN_WRONG_TYPE);
  CHECK(CGIgs_setStruct(NULL, 0, NULL, 0, 0) == TARN_WRONG_TYPE);
  CHECK(CGIgs_setString(NULL, 0, NULL, 0) == TARN_WRONG_TYPE);
  CHECK(CGIgs_setNString(NULL, 0, NULL, 0, 0) == TARN_WRONG_TYPE);
  CHECK(CGIgs_setInt(NULL, 0, 0, 0) == TARN_WRONG_TYPE);
  CHECK(CGIgs_setFixed(NULL, 0, 0) == TARN_WRONG_TYPE);
  CHECK(CGIgs_setDouble(NULL, 0, 0.0, 0) == TARN_WRONG_TYPE);
  CHECK(CGIgs_getList(NULL, 0, 0) == 0);
  CHECK(CGIgs_getStruct(NULL, 0, 0) == 0);
  CHECK(CGIgs_getMagic(NULL) == 0);
  CHECK(CGIgs_getChildMagic(NULL, 0, 0) == 0);
  CHECK(CGIgs_getString(NULL, 0, 0) == NULL);
  CHECK(CGIgs_getInt(NULL, 0, 0) == 0);
  CHECK(CGIgs_getFixed(NULL, 0) == 0);
  CHECK(!(CGIgs_getDouble(NULL, 0, 0) < 0.0) && !(CGIgs_getDouble(NULL, 0, 0) > 0.0));
  CHECK(TARNGenericList_new(NULL) == TARN_BAD_ARGUMENT);
  CHECK(TARNGenericList_delete(NULL) == TARN_OK);
  CHECK(TARNGenericList_clear(NULL) == TARN_WRONG_TYPE);
  CHECK(TARNGenericList_IsA(NULL) == 0);
  CHECK(ATRNGenericList_init(NULL, NULL, 0, 0) == TARN_WRONG_TYPE);
  CHECK(TARNGenericList_clone(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(TARNGenericList_getCount(NULL) == 0);
  CHECK(TARNGenericList_getCapacity(NULL) == 0);
  CHECK(TARNGenericList_getData(NULL) == NULL);
  CHECK(TARNGenericList_addDatum(NULL, 0) == TARN_WRONG_TYPE);
  CHECK(TARNGenericList_getByIndex(NULL, 0) == 0);
  CHECK(TARNGenericList_reserve(NULL, 0) == TARN_WRONG_TYPE);
  CHECK(TARNGenericList_setByIndex(NULL, 0, 0) == TARN_WRONG_TYPE);
  CHECK(TARNString_new(NULL) == TARN_BAD_ARGUMENT);
  CHECK(TARNString_delete(NULL) == TARN_WRONG_TYPE);
  CHECK(TARNString_IsA(NULL) == 0);
  CHECK(TARNString_dup(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(TARNString_set(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(TARNString_set_string(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(TARNString_length(NULL) == 0);
  CHECK(TARNString_clear(NULL) == TARN_WRONG_TYPE);
  CHECK(strcmp(TARNString_c_str(NULL), "") == 0);
  CHECK(TARNString_append(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(TARNString_appendn(NULL, NULL, 0, 0) == TARN_WRONG_TYPE);
  CHECK(TARNString_append_string(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(TARNString_append_sprintf(NULL, NULL) == TARN_BAD_ARGUMENT);
  CHECK(TARNString_insert(NULL, NULL, 0) == TARN_WRONG_TYPE);
  CHECK(TARNString_insertn(NULL, NULL, 0, 0, 0) == TARN_WRONG_TYPE);
  CHECK(TARNString_insert_sprintf(NULL, 0, NULL) == TARN_BAD_ARGUMENT);
  CHECK(TARNString_remove(NULL, 0, 0) == TARN_WRONG_TYPE);
  CHECK(TARNString_substr(NULL, 0, 0, NULL) == TARN_WRONG_TYPE);
  CHECK(TARNString_compare(NULL, NULL) == -1);
  CHECK(TARNString_compare_string(NULL, NULL) == -1);
  CHECK(TARNString_print(NULL) == TARN_WRONG_TYPE);
  CHECK(TARNString_fprint(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(TARNString_printline(NULL) == TARN_WRONG_TYPE);
  CHECK(TARNString_fprintline(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(TARNString_reserve(NULL, 0) == TARN_WRONG_TYPE);
  CHECK(strcmp(safeGetenv(NULL), "") == 0);
  CHECK(stringsAreEqual(NULL, NULL) == 0);
  CHECK(nStringsAreEqual(NULL, NULL, 0) == 0);
  CHECK(unescapeString(NULL) == NULL);
  CHECK(hexToChar('4', '1') == 'A');
  CHECK(saferSystem(NULL) == -1);
  CHECK(memfind(NULL, 0, NULL, 0) == NULL);
  TarnHandle nothing = extractBetween(NULL, 0, NULL, NULL);
  CHECK(CGIgs_getInt(&nothing, 0, TARN_BYTE_BUFFER_MAGIC) == 0);
  CHECK(CGIgs_delete(&nothing, TARN_BYTE_BUFFER_MAGIC) == TARN_OK);
  nothing = extractBetween1(NULL, 0, NULL);
  CHECK(CGIgs_delete(&nothing, TARN_BYTE_BUFFER_MAGIC) == TARN_OK);
  CHECK(stripString(NULL) == NULL);
  CHECK(readString(NULL) == NULL);
  writeString(NULL, NULL);
  CHECK(readLong(NULL) == 0);
  writeLong(NULL, 0);
  CHECK(CGIfb_setData(NULL, NULL, 0) == TARN_WRONG_TYPE);
  CHECK(CgiEnv_new(NULL) == TARN_BAD_ARGUMENT);
  CHECK(CgiEnv_delete(NULL) == TARN_WRONG_TYPE);
  CHECK(CgiEnv_clear(NULL) == TARN_WRONG_TYPE);
  CHECK(CgiEnv_setPostData(NULL, NULL, 0) == TARN_WRONG_TYPE);
  CHECK(CgiEnv_save(NULL, NULL) == TARN_OK);
  CHECK(CgiEnv_restore(NULL, NULL) == TARN_OK);
  CHECK(CgiEnv_getServerSoftware(NULL)[0] == '\0');
  CHECK(CgiEnv_getServerName(NULL)[0] == '\0');
  CHECK(CgiEnv_getGatewayInterface(NULL)[0] == '\0');
  CHECK(CgiEnv_getServerProtocol(NULL)[0] == '\0');
  CHECK(CgiEnv_getServerPort(NULL) == 0);
  CHECK(CgiEnv_getCookies(NULL)[0] == '\0');
  CHECK(CgiEnv_getRequestMethod(NULL)[0] == '\0');
  CHECK(CgiEnv_getPathInfo(NULL)[0] == '\0');
  CHECK(CgiEnv_getPathTranslated(NULL)[0] == '\0');
  CHECK(CgiEnv_getScriptName(NULL)[0] == '\0');
  CHECK(CgiEnv_getQueryString(NULL)[0] == '\0');
  CHECK(CgiEnv_getContentLength(NULL) == 0);
  CHECK(CgiEnv_getContentType(NULL)[0] == '\0');
  CHECK(CgiEnv_getReferrer(NULL)[0] == '\0');
  CHECK(CgiEnv_getRemoteHost(NULL)[0] == '\0');
  CHECK(CgiEnv_getRemoteAddr(NULL)[0] == '\0');
  CHECK(CgiEnv_getAuthType(NULL)[0] == '\0');
  CHECK(CgiEnv_getRemoteUser(NULL)[0] == '\0');
  CHECK(CgiEnv_getRemoteIdent(NULL)[0] == '\0');
  CHECK(CgiEnv_getAccept(NULL)[0] == '\0');
  CHECK(CgiEnv_getUserAgent(NULL)[0] == '\0');
  CHECK(CgiEnv_getRedirectRequest(NULL)[0] == '\0');
  CHECK(CgiEnv_getRedirectURL(NULL)[0] == '\0');
  CHECK(CgiEnv_getRedirectStatus(NULL)[0] == '\0');
  CHECK(FormEntry_init(NULL, NULL, NULL, 0) == TARN_WRONG_TYPE);
  CHECK(FormEntry_setValue(NULL, NULL, 0) == TARN_WRONG_TYPE);
  CHECK(FormEntry_compare(NULL, NULL) == 0);
  CHECK(FormEntry_compareName(NULL, NULL) == -1);
  CHECK(FormEntry_compareValue(NULL, NULL) == -1);
  CHECK(strcmp(FormEntry_getStrippedValue(NULL), "") == 0);
  CHECK(FormEntry_getIntegerValue(NULL) == 0);
  CHECK(!(FormEntry_getDoubleValue(NULL) < 0.0) && !(FormEntry_getDoubleValue(NULL) > 0.0));
  CHECK(strcmp(FormEntry_toString(NULL), "Not yet implemented") == 0);
  CHECK(FormEntryList_addEntry(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(FormEntryList_getCount(NULL) == 0);
  CHECK(FormEntryList_getByIndex(NULL, 0) == 0);
  FormEntryList_reserve(NULL, 0);
  CHECK(FormEntryList_clear(NULL) == TARN_WRONG_TYPE);
  CHECK(FormEntryList_delete(NULL) == TARN_WRONG_TYPE);
  CHECK(FormEntryList_clone(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(strcmp(FormEntryList_toHTML(NULL), "Not yet implemented.") == 0);
  CHECK(FormFile_init(NULL, NULL, NULL, NULL, NULL, 0) == TARN_WRONG_TYPE);
  CHECK(FormFile_compare(NULL, NULL) == 1);
  CHECK(FormFile_compareName(NULL, NULL) == 1);
  CHECK(FormFile_writeToStream(NULL, NULL) == 0);
  CHECK(FormFile_getDataLength(NULL) == 0);
  CHECK(FormFileList_addEntry(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(FormFileList_getCount(NULL) == 0);
  CHECK(FormFileList_getByIndex(NULL, 0) == 0);
  FormFileList_reserve(NULL, 0);
  CHECK(FormFileList_clear(NULL) == TARN_WRONG_TYPE);
  CHECK(FormFileList_delete(NULL) == TARN_WRONG_TYPE);
  CHECK(FormFileList_clone(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(strcmp(FormFileList_toHTML(NULL), "Not yet implemented.") == 0);
  CHECK(Tarn_new(NULL) == TARN_BAD_ARGUMENT);
  CHECK(Tarn_delete(NULL) == TARN_WRONG_TYPE);
  CHECK(Tarn_clear(NULL) == TARN_NOT_IMPLEMENTED);
  CHECK(strcmp(Tarn_getCompileDate(NULL), "Jul 17 2007") == 0);
  CHECK(strcmp(Tarn_getCompileTime(NULL), "14:49:31") == 0);
  CHECK(strcmp(Tarn_getVersion(NULL), "1.0.0") == 0);
  CHECK(strcmp(Tarn_getHost(NULL), "Set this to the platform we compiled for") == 0);
  Tarn_save(NULL, NULL);
  Tarn_restore(NULL, NULL);
  CHECK(Tarn_isComplete(NULL) == 0);
  CHECK(Tarn_queryCheckbox(NULL, NULL) == 0);
  CHECK(Tarn_getElementByName(NULL, NULL) == 0);
  CHECK(Tarn_getElementByValue(NULL, NULL) == 0);
  CHECK(Tarn_getFile(NULL, NULL) == 0);
  CHECK(Tarn_findEntries(NULL, NULL, 0, NULL) == 0);
  CHECK(Tarn_parseFormInput(NULL, NULL, 0) == TARN_BAD_ARGUMENT);
  Tarn_parsePair(NULL, NULL);
  Tarn_parseMime(NULL, NULL, 0);
  CHECK(HTTPCookie_init(NULL, NULL, NULL, NULL, NULL, 0, NULL, 0) == TARN_BAD_ARGUMENT);
  CHECK(HTTPCookie_compare(NULL, NULL) == 0);
  CHECK(HTTPCookie_getMaxAge(NULL) == 0);
  CHECK(HTTPCookie_setMaxAge(NULL, 0) == TARN_WRONG_TYPE);
  CHECK(HTTPCookie_isSecure(NULL) == 0);
  CHECK(HTTPCookie_setSecure(NULL, 0) == TARN_WRONG_TYPE);
  CHECK(strcmp(HTTPCookie_toString(NULL), "") == 0);
  CHECK(HTTPCookieList_delete(NULL) == TARN_WRONG_TYPE);
  CHECK(HTTPCookieList_clear(NULL) == TARN_WRONG_TYPE);
  CHECK(HTTPCookieList_clone(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(HTTPCookieList_addCookie(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(HTTPCookieList_getCount(NULL) == 0);
  CHECK(HTTPCookieList_getByIndex(NULL, 0) == 0);
  CHECK(strcmp(HTTPCookieList_toHTML(NULL), "Not yet implemented.") == 0);
  CHECK(HTTPHeader_delete(NULL) == TARN_WRONG_TYPE);
  CHECK(HTTPHeader_clear(NULL) == TARN_WRONG_TYPE);
  CHECK(HTTPHeader_init(NULL, NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(HTTPHeader_setCookieList(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(HTTPPlainHeader_new(NULL) == TARN_BAD_ARGUMENT);
  CHECK(HTTPResponseHeader_delete(NULL) == TARN_WRONG_TYPE);
  CHECK(HTTPResponseHeader_clear(NULL) == TARN_WRONG_TYPE);
  CHECK(HTTPResponseHeader_init(NULL, NULL, 0, NULL) == TARN_WRONG_TYPE);
  CHECK(HTTPResponseHeader_getHeaderList(NULL) == 0);
  CHECK(HTTPResponseHeader_addHeader(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(HTTPResponseHeader_setCookieList(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(HTTPResponseHeader_addCookie(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(MultiPartHeader_init(NULL, NULL, NULL, NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(strcmp(HTTPContentHeader_toString(NULL), "Not yet implemented") == 0);
  CHECK(strcmp(HTTPRedirectHeader_toHTML(NULL), "Not implemented.") == 0);
  CHECK(strcmp(HTTPResponseHeader_toHTML(NULL), "Not implemented yet.") == 0);
  CHECK(strcmp(HTTPStatusHeader_toHTML(NULL), "Not yet implemented") == 0);
  CHECK(HTMLAttribute_init(NULL, NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(strcmp(HTMLAttribute_toHTML(NULL), "Not yet implemented.") == 0);
  CHECK(HTMLAttributeList_delete(NULL) == TARN_WRONG_TYPE);
  CHECK(HTMLAttributeList_clear(NULL) == TARN_WRONG_TYPE);
  CHECK(HTMLAttributeList_clone(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(HTMLAttributeList_addAttribute(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(HTMLAttributeList_getCount(NULL) == 0);
  CHECK(HTMLAttributeList_getByIndex(NULL, 0) == 0);
  CHECK(strcmp(HTMLAttributeList_toHTML(NULL), "Not yet implemented.") == 0);
  CHECK(HTMLElement_delete(NULL) == TARN_WRONG_TYPE);
  CHECK(HTMLElement_clear(NULL) == TARN_WRONG_TYPE);
  CHECK(HTMLElement_clone(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(HTMLElement_compare(NULL, NULL) == -1);
  CHECK(HTMLElement_setAttributes(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(HTMLElement_addAttribute(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(HTMLElement_setEmbedded(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(HTMLElement_addElement(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(strcmp(HTMLElement_toHTML(NULL), "Not yet implemented") == 0);
  CHECK(HTMLElementList_delete(NULL) == TARN_WRONG_TYPE);
  CHECK(HTMLElementList_clear(NULL) == TARN_WRONG_TYPE);
  CHECK(HTMLElementList_clone(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(HTMLElementList_addElement(NULL, NULL) == TARN_WRONG_TYPE);
  CHECK(HTMLElementList_getCount(NULL) == 0);
  CHECK(HTMLElementList_getByIndex(NULL, 0) == 0);
  CHECK(strcmp(HTMLElementList_toHTML(NULL), "Not yet implemented.") == 0);
  check_form_functions();
  check_serve_functions();
  return failures == 0 ? 0 : 1;
}
