/* Tarn's form reader: every byte of every field, at any size.
 *
 * TarnForm reads the form of one request as a stream, in the order in which the browser sent it. It
 * reads multipart/form-data, application/x-www-form-urlencoded and query strings, and bodies of any
 * other type as a whole. It never needs the whole body in memory.
 *
 *   TarnForm *form = TarnForm_open();
 *   TarnFormField *field;
 *   while ((field = TarnForm_next(form)) != NULL) {
 *     const char *text = TarnFormField_text(field);
 *     if (text) printf("%s: %s\n", TarnFormField_name(field), text);
 *   }
 *   if (!TarnForm_isWhole(form)) {
 *     fprintf(stderr, "%s\n", TarnForm_message(form));
 *   }
 *   TarnForm_close(form);
 *
 * Conventions that hold for every function:
 *
 *  1. Null. Every function accepts a null form or field. A null form has the problem
 *     TARN_FORM_OUT_OF_MEMORY, so a script only has to check TarnForm_isWhole() at the end.
 *  2. Problems. A form that cannot be read to its end has one problem: a code, the place in the body
 *     where it was found, and a sentence for the log. After it there are no more fields. A value
 *     that was cut short is never returned as if it were whole.
 *  3. Ownership. The form owns everything that its functions return. A field and what it returns are
 *     valid until the next call of TarnForm_next(); a field that TarnForm_load() keeps is valid until
 *     TarnForm_close().
 *  4. Texts. Names and values are the bytes that were sent, zero bytes included. A zero byte follows
 *     each of them; functions with "size" in their name count the bytes before it.
 *  5. Sizes and places count bytes and have 64 bits on every machine.
 *  6. Threads. No form may be used from two threads at once. Different forms are independent.
 *
 * This header is valid C99 and C++11.
 */
#ifndef TARN_FORM_H
#define TARN_FORM_H

#include <stdint.h>

#if defined(__GNUC__)
#define TARN_FORM_API __attribute__((__visibility__("default")))
#define TARN_FORM_PURE __attribute__((__pure__))
#else
#define TARN_FORM_API
#define TARN_FORM_PURE
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** One request's form, while it is read. */
typedef struct TarnForm TarnForm;

/** One field of a form: a text or an uploaded file. */
typedef struct TarnFormField TarnFormField;

/** Why a form could not be read: one of the codes below. */
typedef uint32_t TarnFormProblem;

/* In brackets: what TarnForm_problemName() and TarnForm_status() return for it. */
#define TARN_FORM_NO_PROBLEM 0u        /* none so far ("", 200) */
#define TARN_FORM_NO_BOUNDARY 1u       /* no usable boundary in the type ("no_boundary", 400) */
#define TARN_FORM_TWO_BOUNDARIES 2u    /* two boundaries in it ("two_boundaries", 400) */
#define TARN_FORM_CUT_SHORT 3u         /* the body ends too early ("cut_short", 400) */
#define TARN_FORM_MALFORMED 4u         /* bytes around a delimiter ("malformed", 400) */
#define TARN_FORM_MALFORMED_HEADER 5u  /* a header of a part ("malformed_header", 400) */
#define TARN_FORM_PART_WITHOUT_NAME 6u /* a part has no field name ("part_without_name", 400) */
#define TARN_FORM_LIMIT 7u             /* more than a limit allows ("limit", 413) */
#define TARN_FORM_UNSUPPORTED_TYPE 8u  /* not a type that is read ("unsupported_type", 415) */
#define TARN_FORM_BAD_LENGTH 9u        /* CONTENT_LENGTH is not a number ("bad_length", 400) */
#define TARN_FORM_READ_ERROR 10u       /* reading failed ("read_error", 400) */
#define TARN_FORM_TIMED_OUT 11u        /* the sender was too slow ("timed_out", 408) */
#define TARN_FORM_OUT_OF_MEMORY 12u    /* memory or temporary files ("out_of_memory", 500) */

/** Which limit: one of the codes below. */
typedef uint32_t TarnFormLimit;

/* The values in brackets are the defaults. */
#define TARN_FORM_FIELDS 0u        /* number of fields (1,000) */
#define TARN_FORM_HEADER_SIZE 1u   /* bytes of the headers of a part (16 KiB) */
#define TARN_FORM_TEXT_SIZE 2u     /* bytes of a value read as text, or of a name (1 MiB) */
#define TARN_FORM_BODY_SIZE 3u     /* bytes of the body (no limit) */
#define TARN_FORM_WAIT_SECONDS 4u  /* seconds without a byte (60) */
#define TARN_FORM_TOTAL_SECONDS 5u /* seconds for the whole body (no limit) */
#define TARN_FORM_MEMORY_SIZE 6u   /* TarnForm_load(): bytes of one file in memory (64 KiB) */
#define TARN_FORM_LOAD_SIZE 7u     /* TarnForm_load(): bytes of all fields in memory (16 MiB) */

/** As a limit: no limit. As a length: read to the end. */
#define TARN_FORM_UNLIMITED UINT64_MAX

/* ---- Opening ------------------------------------------------------------------------------------
 *
 * Nothing is read before the first TarnForm_next(), TarnForm_load() or TarnForm_body().
 *
 * @param form  the form
 */

/** Opens the form of the request that this script answers.
 *
 *  For GET, HEAD and without REQUEST_METHOD, it is in QUERY_STRING. For every other method it is the
 *  body: CONTENT_LENGTH bytes on standard input, of the type CONTENT_TYPE. Without CONTENT_LENGTH
 *  there is no body; see TarnForm_readToEnd(). A request without a body and without CONTENT_TYPE has
 *  a whole form without fields.
 *
 *  @return the form, to be closed with TarnForm_close(); null if it cannot be allocated
 */
TARN_FORM_API TarnForm *TarnForm_open(void);

/** Opens a form in memory, such as the body that an environment keeps (TARN_ENVIRONMENT_BODY). The
 *  bytes are not copied.
 *
 *  @param type    the value of CONTENT_TYPE, which is copied; null counts as empty
 *  @param body    the bytes, valid and unchanged until TarnForm_close()
 *  @param length  how many
 *  @return as TarnForm_open()
 */
TARN_FORM_API TarnForm *TarnForm_openMemory(const char *type, const void *body, uint64_t length);

/** Opens a form that a file descriptor delivers.
 *
 *  @param type        the value of CONTENT_TYPE, which is copied; null counts as empty
 *  @param descriptor  open for reading; stays yours to close after TarnForm_close()
 *  @param length      how many bytes to read; TARN_FORM_UNLIMITED for all up to the end
 *  @return as TarnForm_open()
 */
TARN_FORM_API TarnForm *TarnForm_openDescriptor(const char *type, int descriptor, uint64_t length);

/** Opens a query string or other URL-encoded text.
 *
 *  @param query  the text, valid and unchanged until TarnForm_close(); null for QUERY_STRING
 *  @return as TarnForm_open()
 */
TARN_FORM_API TarnForm *TarnForm_openQuery(const char *query);

/** Reads a body without CONTENT_LENGTH up to the end of standard input.
 *
 *  Call it before the first field, and only where the server promises that standard input ends with
 *  the body. A body that breaks off then looks like one that ends, except in multipart/form-data,
 *  which has an end of its own. With CONTENT_LENGTH it changes nothing.
 */
TARN_FORM_API void TarnForm_readToEnd(TarnForm *form);

/** Changes a limit. Call it before the first field.
 *
 *  @param limit  which one
 *  @param value  the most that is allowed; TARN_FORM_UNLIMITED for no limit
 */
TARN_FORM_API void TarnForm_setLimit(TarnForm *form, TarnFormLimit limit, uint64_t value);

/** Chooses whether TarnFormField_save() waits for the disk, as it does unless you call this.
 *
 *  Not to wait is faster, and is meant for files of a cache, or those that the script soon deletes. The
 *  file still appears under its name when all of it has been written, or not at all, even if the
 *  process dies. But after a power cut or a crash of the kernel, it may be missing or damaged: some or
 *  all of its bytes may be missing or zero. An error that the disk reports later is not returned.
 *
 *  May be called at any time. Holds for all later saves of this form, also of fields that
 *  TarnForm_load() keeps.
 *
 *  @param durable  0 to save without waiting; any other value to wait
 */
TARN_FORM_API void TarnForm_setDurable(TarnForm *form, int durable);

/** Closes a form and releases everything that it owns. Does not read the rest of the body. */
TARN_FORM_API void TarnForm_close(TarnForm *form);

/* ---- Reading ------------------------------------------------------------------------------------
 *
 * @param form  the form
 */

/** Steps to the next field. Skips what you have not read of the current field's value.
 *
 *  @return the field; null at the end of the form and when it has a problem: TarnForm_isWhole()
 *          tells which
 */
TARN_FORM_API TarnFormField *TarnForm_next(TarnForm *form);

/** Steps to the body as it is, whatever its type: for JSON, or a file sent with PUT. Call it instead
 *  of TarnForm_next(). A form that is read from the query string has the query string as its body.
 *
 *  @return a field whose value is the body, whose name is empty and whose type is CONTENT_TYPE, unless
 *          that contains a line end; null if there is a problem or something was read before
 */
TARN_FORM_API TarnFormField *TarnForm_body(TarnForm *form);

/** Tells whether the form was read to its end without a problem: no byte is missing.
 *
 *  @return 1 if it was, 0 while it is still read and after a problem
 */
TARN_FORM_API int TarnForm_isWhole(const TarnForm *form);

/** @return the problem; TARN_FORM_NO_PROBLEM while there is none; TARN_FORM_OUT_OF_MEMORY for null */
TARN_FORM_API TarnFormProblem TarnForm_problem(const TarnForm *form);

/** @return where in the body the problem was found, from 0; 0 without a problem */
TARN_FORM_API uint64_t TarnForm_problemOffset(const TarnForm *form);

/** Describes the problem for a log, such as "cut short: the body ends in a value". It contains
 *  nothing that the browser sent.
 *
 *  @return a sentence; empty without a problem
 */
TARN_FORM_API const char *TarnForm_message(const TarnForm *form);

/** Gives the HTTP status for an answer.
 *
 *  @return 200 without a problem, otherwise 400, 408, 413, 415 or 500
 */
TARN_FORM_API int TarnForm_status(const TarnForm *form);

/** Tells which limit was exceeded.
 *
 *  @param limit  where to store which one; may be null
 *  @param value  where to store what it allows; may be null
 *  @return 1 if the problem is TARN_FORM_LIMIT or TARN_FORM_TIMED_OUT; otherwise 0, and nothing is
 *          stored
 */
TARN_FORM_API int TarnForm_limit(const TarnForm *form, TarnFormLimit *limit, uint64_t *value);

/** @param problem  a problem's code
 *  @return its short name, such as "cut_short"; empty for no problem and unknown codes
 */
TARN_FORM_API const char *TarnForm_problemName(TarnFormProblem problem);

/* ---- Looking up fields --------------------------------------------------------------------------
 *
 * For forms of a moderate size: TarnForm_load() reads the whole form, and the other functions find
 * its fields. Texts are kept in memory, and files too unless they are large.
 *
 * @param form  the form
 * @param name  the field's name; null finds fields of any name
 */

/** Reads the whole form and keeps it. Fields that TarnForm_next() returned before are not kept.
 *
 *  A field without a file name is a text, and TARN_FORM_TEXT_SIZE limits it. A file goes into a
 *  temporary file if it is larger than TARN_FORM_MEMORY_SIZE, or if keeping it in memory would leave
 *  less than half of TARN_FORM_LOAD_SIZE. The temporary file is in the folder TMPDIR, or in /tmp if
 *  that is not set. It has no name (for a moment it has one, where the file system cannot do that)
 *  and is gone after TarnForm_close().
 *
 *  @return 1 if the form is whole; 0 if it has a problem, and then no field is kept
 */
TARN_FORM_API int TarnForm_load(TarnForm *form);

/** @return how many fields with this name TarnForm_load() kept */
TARN_FORM_API uint64_t TarnForm_count(TarnForm *form, const char *name);

/** Finds a field by its exact name.
 *
 *  @param index  0 for the first field of that name, 1 for the second
 *  @return the field, valid until TarnForm_close(); null if there is none
 */
TARN_FORM_API TarnFormField *TarnForm_get(TarnForm *form, const char *name, uint64_t index);

/** Finds a field by its name, ignoring the case of ASCII letters.
 *
 *  @param index  0 for the first field of that name, 1 for the second
 *  @return as TarnForm_get()
 */
TARN_FORM_API TarnFormField *TarnForm_getIgnoringCase(TarnForm *form, const char *name,
                                                      uint64_t index);

/* ---- A field ------------------------------------------------------------------------------------
 *
 * The sender chose all of this: do not trust a name, a file name or a type.
 *
 * @param field  the field
 */

/** @return the field's name, decoded; empty if it is empty, and for the raw body */
TARN_FORM_API const char *TarnFormField_name(const TarnFormField *field) TARN_FORM_PURE;
/** @return the bytes of the name */
TARN_FORM_API uint64_t TarnFormField_nameSize(const TarnFormField *field) TARN_FORM_PURE;

/** Returns the name of an uploaded file on the visitor's machine, decoded. It may be a path.
 *
 *  @return the name; empty when no file was chosen in a file field; null when the field is not a file
 */
TARN_FORM_API const char *TarnFormField_filename(const TarnFormField *field) TARN_FORM_PURE;
/** @return the bytes of the file name; 0 without one */
TARN_FORM_API uint64_t TarnFormField_filenameSize(const TarnFormField *field) TARN_FORM_PURE;

/** @return the content type of the part with its parameters, as sent; null without one */
TARN_FORM_API const char *TarnFormField_type(const TarnFormField *field);

/** Finds a header of the part.
 *
 *  @param name  the header's name, in any case
 *  @return the value as sent, without white space around it; null if there is no such header
 */
TARN_FORM_API const char *TarnFormField_header(const TarnFormField *field, const char *name);
/** @param name  the header's name, in any case
 *  @return the bytes of TarnFormField_header(); 0 if there is no such header
 */
TARN_FORM_API uint64_t TarnFormField_headerSize(const TarnFormField *field, const char *name);

/** @return where the field begins in the body: at its delimiter's line or, URL-encoded, its name */
TARN_FORM_API uint64_t TarnFormField_offset(const TarnFormField *field) TARN_FORM_PURE;

/** @return how many bytes of the value have been read so far; the size of the whole value after
 *          TarnFormField_text(), TarnFormField_view() or TarnForm_load()
 */
TARN_FORM_API uint64_t TarnFormField_size(const TarnFormField *field) TARN_FORM_PURE;

/** Reads the whole value as a text.
 *
 *  @return the value; null if it is longer than TARN_FORM_TEXT_SIZE (the form then has a problem, but
 *          not if TarnForm_load() keeps the field), if part of it was read by another function, and
 *          after a problem
 */
TARN_FORM_API const char *TarnFormField_text(TarnFormField *field);

/** Finds the whole value in memory, without copying it. No zero byte follows.
 *
 *  @return the value, TarnFormField_size() bytes; null if it is not in memory, if it would have to be
 *          decoded, if another function read some of it, and after a problem
 */
TARN_FORM_API const void *TarnFormField_view(TarnFormField *field);

/** Reads the next block of the value without copying it.
 *
 *  @param block  where to store its address, valid until the next call with this form
 *  @return its size; 0 at the end of the value, -1 after a problem and after a failed write
 */
TARN_FORM_API int64_t TarnFormField_block(TarnFormField *field, const void **block);

/** Reads the next bytes of the value: as many as there is room for, or all that are left.
 *
 *  @param bytes  where to put them
 *  @param size   how many to read at most
 *  @return how many; 0 at the end of the value, -1 after a problem and after a failed write
 */
TARN_FORM_API int64_t TarnFormField_read(TarnFormField *field, void *bytes, uint64_t size);

/** Writes the value, or what has not been read of it, to a file descriptor.
 *
 *  A value that TarnFormField_text() or TarnFormField_view() returned, or that TarnForm_load() keeps,
 *  can be written again, from its beginning. Any other value can be written once, because the bytes
 *  are gone after that. They are gone after a failed write, too; the next field can still be read.
 *
 *  @param descriptor  open for writing, and blocking
 *  @return 0; the errno value of a failed write; ENODATA if the value is gone; -1 if the form has a
 *          problem
 */
TARN_FORM_API int TarnFormField_write(TarnFormField *field, int descriptor);

/** Saves the value, or what has not been read of it, as a new file that only the script's user may
 *  read and write.
 *
 *  The file appears under its name when all of it is on the disk, or not at all. No existing file is
 *  overwritten and no link is followed. If the process dies, no partial file is left, because the
 *  file has no name until it is complete. Where the file system cannot do that, its name begins with
 *  ".tarn-form-" until then, and the next save in that folder removes what a dead process left.
 *  TarnForm_setDurable() saves faster, without waiting for the disk.
 *
 *  @param folder  an existing folder, not a link to one
 *  @param name    1 to 255 bytes without "/", and neither "." nor ".."
 *  @return as TarnFormField_write(). EINVAL if the name is not allowed, EEXIST if it is taken: call
 *          again with another name and the same folder. EXDEV if you then name another folder and the
 *          value is gone.
 */
TARN_FORM_API int TarnFormField_save(TarnFormField *field, const char *folder, const char *name);

/** Reads the rest of the value without keeping it.
 *
 *  @return 1 if the value is whole, 0 after a problem
 */
TARN_FORM_API int TarnFormField_skip(TarnFormField *field);

/* ---- Cookies and query --------------------------------------------------------------------------
 *
 * For scripts that read the body as a stream. Names are compared exactly as they were sent, with
 * nothing decoded, so that "__%48ost-id" is not taken for "__Host-id".
 *
 * @param form  the form, which keeps the result until TarnForm_close()
 * @param name  the name as it was sent
 */

/** Finds a cookie in HTTP_COOKIE. @return the first one's value as sent; null if there is none */
TARN_FORM_API const char *TarnForm_cookie(TarnForm *form, const char *name);
/** @return as TarnForm_cookie(), with "%XX" decoded; null too if the value has a zero byte */
TARN_FORM_API const char *TarnForm_decodedCookie(TarnForm *form, const char *name);
/** Finds a field of QUERY_STRING. @return the first one's value as sent; null if there is none */
TARN_FORM_API const char *TarnForm_query(TarnForm *form, const char *name);
/** @return as TarnForm_query(), with "+" and "%XX" decoded; null too if it has a zero byte */
TARN_FORM_API const char *TarnForm_decodedQuery(TarnForm *form, const char *name);

/** Tells whether bytes are valid UTF-8.
 *
 *  @param bytes  the bytes; may be null if there are none
 *  @param size   how many
 *  @return 1 if they are, without surrogates and overlong forms; otherwise 0
 */
TARN_FORM_API int TarnForm_isUtf8(const void *bytes, uint64_t size);

#ifdef __cplusplus
}
#endif

#endif
