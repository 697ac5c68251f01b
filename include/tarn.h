/* Tarn: the input side of a CGI script, in C.
 *
 * Conventions that hold for every function:
 *
 *  1. Handles. An object is reached through a variable of type TarnHandle that you own. Set it to
 *     0 before you create an object in it; pass its address to every operation; the matching
 *     delete sets it back to 0. A null handle address is accepted everywhere and reads as a handle
 *     that holds nothing.
 *  2. Statuses. A function that can fail returns a TarnStatus: TARN_OK (0) or one of the codes
 *     below. The type of a handle is tested before anything else, unless the function says
 *     otherwise. Getters have no status: they answer 0, a null pointer or 0.0 instead.
 *  3. Ownership. Putting an object into another one (a child into a node, an entry into a list, a
 *     cookie list into a header) stores a deep copy. What you passed stays yours, to change or to
 *     delete.
 *  4. Lending. A `const char *` or a TarnHandle that a getter or a lookup returns is lent: it
 *     belongs to the object that holds it and is good until that object is set anew, cleared or
 *     deleted. To use a lent TarnHandle, keep it in a variable of your own and pass that
 *     variable's address; never delete through it.
 *  5. Texts. Texts are bytes that end at the first zero byte, in whatever encoding the browser
 *     sent; lengths count bytes. Text that a function makes for you is named as such in its
 *     description and goes to free().
 *  6. Case. Comparisons of names and values ignore the case of letters, as strcasecmp() does;
 *     exceptions say so.
 *  7. Memory. When it runs out, a function that makes an object may answer TARN_OK and leave or set
 *     the handle to 0 (test the handle), and others may say TARN_WRONG_TYPE: of the inner object
 *     that could not be made. What was there before is kept unless the function says otherwise.
 *  8. Threads. A script has one. No object may be used from two threads at once; nothing here
 *     locks.
 *  9. Your part. Tarn cannot detect a handle that still names a deleted object, a lent object that
 *     is deleted, a text without its final zero byte, a length beyond your data, or an argument
 *     that a function writes to and must not. With valid handles and arguments, these calls can
 *     still damage memory, then or later: (a) putting into the generic list behind a typed list,
 *     or handing to it in such a list, a word other than 0 or the address of an object that nobody
 *     else owns or deletes, or the same word twice; (b) putting anything but a text from malloc(),
 *     owned by nobody else, into the list of header lines; (c) changing `fixed` or int 0 of a byte
 *     buffer; (d) giving CGIgs_setList() anything but an object that you own, for slots 0 and 1 a
 *     generic list, or giving the same one twice, into itself or into what it holds; (e) letting
 *     two lists name the same element or header line (see CGIgs_clone()), or an element hold
 *     itself, and then clearing, deleting, filling or replacing both by type. All other calls are
 *     safe, in any order.
 *
 * This header reads as C99 and as C++11.
 */
#ifndef TARN_H
#define TARN_H

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

#if defined(__GNUC__)
#define TARN_API __attribute__((__visibility__("default")))
#define TARN_PRINTF(text, first) __attribute__((__format__(__printf__, text, first)))
#else
#define TARN_API
#define TARN_PRINTF(text, first)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** An object's address, or 0 for none. */
typedef uintptr_t TarnHandle;

/** The outcome of an operation: one of the codes below. */
typedef uint32_t TarnStatus;

/* The statuses mean the same for every function. */
#define TARN_OK 0u              /* done */
#define TARN_BAD_ARGUMENT 1u    /* a null argument, an index out of range, a handle in use */
#define TARN_WRONG_TYPE 2u      /* the handle holds nothing, or an object of another type */
#define TARN_OUT_OF_MEMORY 4u   /* an allocation failed */
#define TARN_NOT_IMPLEMENTED 5u /* Tarn_clear() alone */
#define TARN_NO_ENVIRONMENT 6u  /* no environment: Tarn_new(), Tarn_parseFormInput() */

/* The type tags, for CGIgs_new(), CGIgs_delete() and the other node operations. Twice, two list
 * types share a tag and pass each other's type test. */
#define TARN_GENERIC_LIST_MAGIC 9565u
#define TARN_STRING_MAGIC 37181u
#define TARN_BYTE_BUFFER_MAGIC 22878u
#define TARN_ENVIRONMENT_MAGIC 18238u
#define TARN_FORM_ENTRY_MAGIC 5471u
#define TARN_FORM_ENTRY_LIST_MAGIC 206173u
#define TARN_FORM_FILE_MAGIC 22842u
#define TARN_FORM_FILE_LIST_MAGIC 206173u
#define TARN_REQUEST_MAGIC 28658u
#define TARN_COOKIE_MAGIC 30211u
#define TARN_COOKIE_LIST_MAGIC 75101u
#define TARN_HEADER_MAGIC 4979u
#define TARN_RESPONSE_HEADER_MAGIC 135456u
#define TARN_MULTIPART_HEADER_MAGIC 19383u
#define TARN_ATTRIBUTE_MAGIC 32001u
#define TARN_ATTRIBUTE_LIST_MAGIC 140637u
#define TARN_ELEMENT_MAGIC 58413u
#define TARN_ELEMENT_LIST_MAGIC 140637u

/* ---- Typed node: CGIgs ------------------------------------------------------------------------
 *
 * Every object but the generic list and the string is one node: a type tag and fixed slots.
 *
 *   slot        indexes   holds
 *   list        0, 1      a generic list, owned by the node (its elements are not)
 *   struct      0 .. 2    a child node, owned by the node, with the tag it was stored under
 *   string      0 .. 7    a text or a run of bytes, owned by the node
 *   int         0 .. 2    a 32-bit number, signed or unsigned as you read it
 *   double      0         a real number in single precision
 *   fixed       (none)    one pointer-sized value that the node never looks at
 *
 * A generic list and a string made by TARNGenericList_new() and TARNString_new() are not nodes:
 * CGIgs_IsA() and CGIgs_getMagic() read their tags, and every other operation here treats them as
 * the wrong type, whatever tag is given.
 *
 * @param handle  the node
 * @param magic   the tag that the node must carry; 0 accepts any node
 * @param value   what to store
 */

/** An empty text, returned by some functions that have no text to give; never free it. */
TARN_API extern const char *CGIgs_empty_string;

/** Creates an empty node.
 *
 *  When memory runs out the status is still TARN_OK and the handle stays 0: test the handle.
 *
 *  Under the tag of a generic list or a string, the result is a node and, as well, an empty list or
 *  string without an array or a buffer. The two keep their contents apart: CGIgs_clone() copies the
 *  node alone; any delete that accepts it deletes both.
 *
 *  @param handle  where to put the node; must hold 0
 *  @param magic   the type tag, not 0
 *  @return TARN_OK; TARN_BAD_ARGUMENT when `handle` is null or in use, or `magic` is 0
 */
TARN_API TarnStatus CGIgs_new(TarnHandle *handle, uint32_t magic);

/** Deletes a node with its lists, children and strings, and sets the handle to 0.
 *
 *  Elements of its lists are not released, nor is what `fixed` holds.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus CGIgs_delete(TarnHandle *handle, uint32_t magic);

/** Empties a node and keeps it with its tag.
 *
 *  Lists, children, numbers, `fixed` and strings 0 and 1 are released or zeroed. Strings 2 to 7
 *  survive and can still be read.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus CGIgs_clear(TarnHandle *handle, uint32_t magic);

/** Tells whether a handle holds an object with this tag (0: any object).
 *
 *  @return 1 or 0
 */
TARN_API uint32_t CGIgs_IsA(TarnHandle *handle, uint32_t magic);

/** Copies a node with its children and strings.
 *
 *  Lists are copied as lists: the copy's list has the same elements, not copies of them, so of two
 *  such typed lists only one may be cleared, deleted or replaced by its type, the other must go by
 *  CGIgs_delete();
 *  use FormEntryList_clone() and its like for independent copies. `fixed` is shared too. A string
 *  slot filled by CGIgs_setNString() is copied up to its first zero byte. When memory runs out for
 *  the node itself the status is TARN_OK and `destination` stays 0.
 *
 *  @param source       the node to copy
 *  @param destination  where to put the copy; must hold 0
 *  @param magic        the tag of `source`; 0 is refused
 *  @return TARN_OK; TARN_WRONG_TYPE for `source`; TARN_BAD_ARGUMENT when `destination` is null or
 *          in use, or `magic` is 0
 */
TARN_API TarnStatus CGIgs_clone(TarnHandle *source, TarnHandle *destination, uint32_t magic);

/** Hands a generic list over to a node.
 *
 *  The node owns the list from now on: leave your own handle alone, do not delete through it. A
 *  list that the slot held is deleted first; handing over the list that is already there changes
 *  nothing. Index 2 is accepted and acts on struct slot 0: the list is parked there, unseen by
 *  CGIgs_getList(), until the node is cleared or the slot is set again; a child that stood there is
 *  lost. A node parked like this is released, with all it owns, as a list is.
 *
 *  @param index  0 or 1 (2: see above)
 *  @param list   the list's handle; null or 0 empties the slot. What it names is not checked: see
 *                conventions 9 (a), (b) and (d).
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `index` is above 2
 */
TARN_API TarnStatus CGIgs_setList(TarnHandle *handle, uint32_t index, TarnHandle *list,
                                  uint32_t magic);

/** Stores a deep copy of a node as a child.
 *
 *  A child that the slot held is deleted. Lists inside the child are copied as CGIgs_clone() copies
 *  them: both lists then name the same elements. With `childMagic` 0 the slot ends empty.
 *
 *  @param index       0 to 2
 *  @param child       the node to copy; stays yours
 *  @param magic       the tag of the node
 *  @param childMagic  the tag of the child
 *  @return TARN_OK; TARN_WRONG_TYPE for the node; TARN_BAD_ARGUMENT when `child` fails its type
 *          test or `index` is above 2
 */
TARN_API TarnStatus CGIgs_setStruct(TarnHandle *handle, uint32_t index, TarnHandle *child,
                                    uint32_t magic, uint32_t childMagic);

/** Stores a copy of a text, or empties the slot when `text` is null.
 *
 *  When memory runs out the slot is empty and the status is still TARN_OK.
 *
 *  @param index  0 to 7
 *  @param text   copied
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `index` is above 7
 */
TARN_API TarnStatus CGIgs_setString(TarnHandle *handle, uint32_t index, const char *text,
                                    uint32_t magic);

/** Stores a copy of `size` bytes in a string slot, or empties the slot when `data` is null.
 *
 *  One zero byte follows the copy, so that it can be read as text. Each call with data also leaves
 *  a block of `size` bytes allocated to the end of the process.
 *
 *  @param index  0 to 7
 *  @param data   copied
 *  @param size   in bytes
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `index` is above 7; TARN_OUT_OF_MEMORY,
 *          with the slot empty
 */
TARN_API TarnStatus CGIgs_setNString(TarnHandle *handle, uint32_t index, const void *data,
                                     uint32_t size, uint32_t magic);

/** Stores a number. On a byte buffer, index 0 is not yours to set: see convention 9 (c).
 *
 *  @param index  0 to 2
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `index` is above 2
 */
TARN_API TarnStatus CGIgs_setInt(TarnHandle *handle, uint32_t index, uint32_t value,
                                 uint32_t magic);

/** Stores the opaque value; the node never follows or frees it. That of a byte buffer is not yours
 *  to set: see convention 9 (c).
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus CGIgs_setFixed(TarnHandle *handle, uintptr_t value, uint32_t magic);

/** Stores a real number, rounded to single precision (0.1 reads back as 0.10000000149011612).
 *
 *  @param index  0
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `index` is not 0
 */
TARN_API TarnStatus CGIgs_setDouble(TarnHandle *handle, uint32_t index, double value,
                                    uint32_t magic);

/** Lends the list in a slot. What you may put into it is limited by conventions 9 (a) and (b).
 *
 *  @param index  0 or 1
 *  @return the list; 0 when there is none, for the wrong type or index
 */
TARN_API TarnHandle CGIgs_getList(TarnHandle *handle, uint32_t index, uint32_t magic);

/** Lends the child in a slot, or the list that is parked there (see CGIgs_setList()).
 *
 *  @param index  0 to 2
 *  @return the child; 0 when there is none, for the wrong type or index
 */
TARN_API TarnHandle CGIgs_getStruct(TarnHandle *handle, uint32_t index, uint32_t magic);

/** Tells an object's tag.
 *
 *  @return the tag; 0 when the handle holds nothing
 */
TARN_API uint32_t CGIgs_getMagic(TarnHandle *handle);

/** Tells the tag under which a child was stored.
 *
 *  @param index  0 to 2
 *  @return the tag; 0 when none, for the wrong type or index
 */
TARN_API uint32_t CGIgs_getChildMagic(TarnHandle *handle, uint32_t index, uint32_t magic);

/** Lends the text in a slot.
 *
 *  @param index  0 to 7
 *  @return the text; null when there is none, for the wrong type or index
 */
TARN_API const char *CGIgs_getString(TarnHandle *handle, uint32_t index, uint32_t magic);

/** Reads a number.
 *
 *  @param index  0 to 2
 *  @return the number; 0 for the wrong type or index
 */
TARN_API uint32_t CGIgs_getInt(TarnHandle *handle, uint32_t index, uint32_t magic);

/** Reads the opaque value.
 *
 *  @return the value; 0 for the wrong type
 */
TARN_API uintptr_t CGIgs_getFixed(TarnHandle *handle, uint32_t magic);

/** Reads the real number, widened exactly.
 *
 *  @param index  0
 *  @return the number; 0.0 for the wrong type or index
 */
TARN_API double CGIgs_getDouble(TarnHandle *handle, uint32_t index, uint32_t magic);

/** The slot of every list type: entries, files, cookies, attributes, elements. */
enum TarnListSlot {
  TARN_LIST_ELEMENTS = 0 /* list: the elements, in order; 0 until the first is added */
};

/* ---- Generic list: TARNGenericList ------------------------------------------------------------
 *
 * A list is a growable array of pointer-sized words. It never follows, copies or frees what a word
 * points at. Its capacity passes through 0, 10, 20, 30 ...
 *
 * A list that a typed list, a response header or an element lends is read by its owner: what you
 * may put into it is limited by conventions 9 (a) and (b).
 *
 * @param handle  the list
 * @param index   counted from 0
 * @param value   the word
 */

/** Creates an empty list.
 *
 *  @param handle  where to put it; must hold 0
 *  @return TARN_OK; TARN_BAD_ARGUMENT when `handle` is null or in use; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus TARNGenericList_new(TarnHandle *handle);

/** Deletes a list and sets the handle to 0; anything else is left alone. Elements are not freed.
 *
 *  @return TARN_OK, always
 */
TARN_API TarnStatus TARNGenericList_delete(TarnHandle *handle);

/** Empties a list: every word becomes 0, the capacity stays. Elements are not freed.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus TARNGenericList_clear(TarnHandle *handle);

/** Tells whether a handle holds a generic list.
 *
 *  @return 1 or 0
 */
TARN_API uint32_t TARNGenericList_IsA(TarnHandle *handle);

/** Fills a list with `capacity` words from `source`. (The name is spelt like this.) See conventions
 *  9 (a) and (b) for a list that another object owns.
 *
 *  The array that the list had is emptied and stays allocated to the end of the process. When
 *  memory runs out the list has no array and every element reads as 0.
 *
 *  @param source    at least `capacity` words; null counts as words of 0
 *  @param count     the new count, taken as given; elements beyond the capacity read as 0
 *  @param capacity  the new capacity
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus ATRNGenericList_init(TarnHandle *handle, const void *source, uint32_t count,
                                         uint32_t capacity);

/** Copies a list; both then hold the same words. Without memory for the array alone, the elements
 *  of the copy read as 0.
 *
 *  @param source       the list to copy
 *  @param destination  where to put the copy; must hold 0
 *  @return TARN_OK; TARN_WRONG_TYPE for `source`; TARN_BAD_ARGUMENT when `destination` is null or
 *          in use; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus TARNGenericList_clone(TarnHandle *source, TarnHandle *destination);

/** Counts the elements.
 *
 *  @return the count; 0 for the wrong type
 */
TARN_API uint32_t TARNGenericList_getCount(TarnHandle *handle);

/** Tells how many elements fit before the list grows.
 *
 *  @return the capacity; 0 for the wrong type
 */
TARN_API uint32_t TARNGenericList_getCapacity(TarnHandle *handle);

/** Lends the array, good until the list grows or is deleted.
 *
 *  It has as many words as the capacity says, unless a growth has failed.
 *
 *  @return the array; null when there is none yet, and for the wrong type
 */
TARN_API uintptr_t *TARNGenericList_getData(TarnHandle *handle);

/** Appends a word. See conventions 9 (a) and (b) for a list that another object owns.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_OUT_OF_MEMORY: the recorded capacity has grown all the
 *          same, the elements are as they were
 */
TARN_API TarnStatus TARNGenericList_addDatum(TarnHandle *handle, uintptr_t value);

/** Reads the element at an index.
 *
 *  @return the word; 0 when `index` is not below the count, and for the wrong type
 */
TARN_API uintptr_t TARNGenericList_getByIndex(TarnHandle *handle, uint32_t index);

/** Raises the capacity, ten by ten, until it is at least `n`. When memory runs out part of the way,
 *  the steps that succeeded are kept, and the capacity counts the step that failed.
 *
 *  @param n  in elements; more than 4,294,967,290 fails at the first step
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus TARNGenericList_reserve(TarnHandle *handle, uint32_t n);

/** Writes the element at an index; beyond the count, the count becomes `index` + 1. See conventions
 *  9 (a) and (b) for a list that another object owns.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `index` is not below the capacity;
 *          TARN_OUT_OF_MEMORY after an earlier growth that failed
 */
TARN_API TarnStatus TARNGenericList_setByIndex(TarnHandle *handle, uint32_t index, uintptr_t value);

/* ---- Dynamic string: TARNString ----------------------------------------------------------------
 *
 * A string is a text that grows. It is a record of its own and not a node: its tag, its capacity in
 * bytes as a signed number, its buffer. The length is never stored; the text ends at its first zero
 * byte. When a growth fails for lack of memory the buffer may be gone: the string then reads as an
 * empty text, and the next write makes a new buffer.
 *
 * @param handle  the string
 * @param source  the other string
 * @param stream  where to write
 */

/** Creates an empty string with a capacity of 16.
 *
 *  @param handle  where to put it; must hold 0
 *  @return TARN_OK; TARN_BAD_ARGUMENT when `handle` is null or in use; TARN_OUT_OF_MEMORY: the
 *          handle stays 0, or names a string without a buffer
 */
TARN_API TarnStatus TARNString_new(TarnHandle *handle);

/** Deletes a string and sets the handle to 0.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus TARNString_delete(TarnHandle *handle);

/** Tells whether a handle holds a string.
 *
 *  @return 1 or 0
 */
TARN_API uint32_t TARNString_IsA(TarnHandle *handle);

/** Copies a string with the whole of its buffer.
 *
 *  @param source  the string to copy
 *  @param target  where to put the copy; must hold 0
 *  @return TARN_OK, also when there was no memory for the buffer; TARN_WRONG_TYPE for `source`;
 *          TARN_BAD_ARGUMENT when `target` is null or in use; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus TARNString_dup(TarnHandle *source, TarnHandle *target);

/** Replaces the text.
 *
 *  A text longer than the capacity makes it the text's length and 16. Of all functions, only
 *  TARNString_clear() makes it smaller.
 *
 *  @param text  copied; may be the string's own
 *  @return TARN_OK, also when there was no memory, or the text has 2 GiB, and the string is empty
 *          now; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `text` is null
 */
TARN_API TarnStatus TARNString_set(TarnHandle *handle, const char *text);

/** Replaces the text by that of another string.
 *
 *  @return as TARNString_set(); TARN_BAD_ARGUMENT when `source` is no string
 */
TARN_API TarnStatus TARNString_set_string(TarnHandle *handle, TarnHandle *source);

/** Tells the length of the text. @return the length in bytes; 0 when `handle` is no string */
TARN_API uint32_t TARNString_length(TarnHandle *handle);

/** Empties the text and sets the capacity to 0, so that the next text that is not empty makes a new
 *  buffer.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus TARNString_clear(TarnHandle *handle);

/** Lends the text, good until the string is changed or deleted.
 *
 *  @return the text; an empty one, never to be freed, when `handle` is no string; null when the
 *          string has no buffer: a growth has failed, or CGIgs_new() has just made it
 */
TARN_API const char *TARNString_c_str(TarnHandle *handle);

/** Appends a text.
 *
 *  @param text  copied; may be the string's own
 *  @return as TARNString_appendn()
 */
TARN_API TarnStatus TARNString_append(TarnHandle *handle, const char *text);

/** Appends part of a text.
 *
 *  @param text,offset,count  as for TARNString_insertn()
 *  @return TARN_OK; TARN_WRONG_TYPE when the handle holds nothing; TARN_BAD_ARGUMENT when `text` is
 *          null; otherwise as TARNString_insertn()
 */
TARN_API TarnStatus TARNString_appendn(TarnHandle *handle, const char *text, uint32_t offset,
                                       uint32_t count);

/** Appends the text of another string; what is no string appends nothing and succeeds.
 *
 *  @return TARN_BAD_ARGUMENT when `source` has no buffer (see TARNString_c_str()), tested first;
 *          otherwise as TARNString_append()
 */
TARN_API TarnStatus TARNString_append_string(TarnHandle *handle, TarnHandle *source);

/** Appends formatted text.
 *
 *  @param format  as for printf(); never a text that a visitor sent
 *  @return as TARNString_append(); TARN_BAD_ARGUMENT when `format` is null, whatever the handle,
 *          and when nothing could be formatted
 */
TARN_API TarnStatus TARNString_append_sprintf(TarnHandle *handle, const char *format, ...)
    TARN_PRINTF(2, 3);

/** Inserts a text.
 *
 *  @param text      copied; may be the string's own
 *  @param position  in bytes; beyond the text, the text stays as it is
 *  @return as TARNString_insertn()
 */
TARN_API TarnStatus TARNString_insert(TarnHandle *handle, const char *text, uint32_t position);

/** Inserts part of a text.
 *
 *  A capacity that is too small for the new text and its zero byte becomes that size and 16. A
 *  source that ends before `count` bytes is filled up with zero bytes, and the text ends there.
 *
 *  @param text      copied; may be the string's own
 *  @param offset    in bytes, into `text`; must not lie beyond it
 *  @param count     in bytes; 0 stands for the length of the whole of `text`
 *  @param position  in bytes; beyond the text, the text stays as it is; the capacity may grow
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `text` is null; TARN_OUT_OF_MEMORY,
 *          also for a text of 2 GiB: the text is lost
 */
TARN_API TarnStatus TARNString_insertn(TarnHandle *handle, const char *text, uint32_t offset,
                                       uint32_t count, uint32_t position);

/** Inserts formatted text.
 *
 *  @param position  as for TARNString_insert()
 *  @param format    as for printf(); never a text that a visitor sent
 *  @return as TARNString_insert(); TARN_BAD_ARGUMENT when `format` is null, whatever the handle,
 *          and when nothing could be formatted
 */
TARN_API TarnStatus TARNString_insert_sprintf(TarnHandle *handle, uint32_t position,
                                              const char *format, ...) TARN_PRINTF(3, 4);

/** Removes bytes from the text.
 *
 *  @param position  in bytes; beyond the text, nothing changes
 *  @param count     in bytes; 0, or more than there are, stands for all up to the end
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus TARNString_remove(TarnHandle *handle, uint32_t position, uint32_t count);

/** Makes a string of part of the text.
 *
 *  @param start   in bytes; beyond the text, or negative, gives an empty string
 *  @param count   in bytes; 0, or more than there are, stands for all up to the end
 *  @param result  where to put the string, which is yours to delete; must hold 0. Without memory
 *                 for its text it is empty.
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_OUT_OF_MEMORY; TARN_BAD_ARGUMENT when `result` is null or
 *          in use, tested last
 */
TARN_API TarnStatus TARNString_substr(TarnHandle *handle, int32_t start, uint32_t count,
                                      TarnHandle *result);

/** Orders a string's text against a text, byte by byte.
 *
 *  @param text  the text to compare with
 *  @return as strcmp(); -1 when `handle` is no string; 1 when `text` is null
 */
TARN_API int32_t TARNString_compare(TarnHandle *handle, const char *text);

/** Orders the texts of two strings, byte by byte.
 *
 *  @param other  the string to compare with
 *  @return as strcmp(); -1 when either is no string
 */
TARN_API int32_t TARNString_compare_string(TarnHandle *handle, TarnHandle *other);

/** Writes the text to standard output. @return as TARNString_fprint() */
TARN_API TarnStatus TARNString_print(TarnHandle *handle);

/** Writes the text to a stream.
 *
 *  @return TARN_OK, whatever became of the writing; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when
 *          `stream` is null; TARN_OUT_OF_MEMORY when the string has no buffer
 */
TARN_API TarnStatus TARNString_fprint(TarnHandle *handle, FILE *stream);

/** Writes the text and a newline to standard output. @return as TARNString_fprint() */
TARN_API TarnStatus TARNString_printline(TarnHandle *handle);

/** Writes the text and a newline to a stream. @return as TARNString_fprint() */
TARN_API TarnStatus TARNString_fprintline(TarnHandle *handle, FILE *stream);

/** Makes the capacity at least the length of the text and `requested` bytes, growing to just that.
 *
 *  @param requested  in bytes
 *  @return TARN_OK, also when there was no memory, or 2 GiB are passed, and the string is as it
 *          was; TARN_WRONG_TYPE
 */
TARN_API TarnStatus TARNString_reserve(TarnHandle *handle, uint32_t requested);

/* ---- Formatted allocation and text utilities ---------------------------------------------------
 *
 * @param stream  where to read or write; may be null
 */

/** Formats into a new block.
 *
 *  @param out     receives the text, to be freed with free(); null when memory runs out or `format`
 *                 cannot be formatted. May itself be null: the text is then dropped.
 *  @param format  as for vprintf()
 *  @param args    as for vprintf()
 *  @return the length of the text in bytes; 0 when there is none
 */
TARN_API int tarn_vasprintf(char **out, const char *format, va_list args) TARN_PRINTF(2, 0);

/** Formats into a new block.
 *
 *  @code
 *  char *text;
 *  int length = tarn_asprintf(&text, "%d-%s", 7, "x");
 *  free(text);
 *  @endcode
 *
 *  @param out     as for tarn_vasprintf()
 *  @param format  as for printf()
 *  @return as tarn_vasprintf()
 */
TARN_API int tarn_asprintf(char **out, const char *format, ...) TARN_PRINTF(2, 3);

/** Reads an environment variable.
 *
 *  @param name  may be null
 *  @return the value itself, as the environment holds it; an empty text when unset; never null;
 *          not to be freed or changed
 */
TARN_API char *safeGetenv(const char *name);

/** Orders two texts, ignoring the case of letters.
 *
 *  @param a,b  either may be null
 *  @return 0 when equal or both null; negative or positive as for strcasecmp(); -1 when only `a` is
 *          null, 1 when only `b` is
 */
TARN_API int stringsAreEqual(const char *a, const char *b);

/** Orders at most `n` bytes of two texts, ignoring the case of letters.
 *
 *  @param a,b  either may be null
 *  @param n    in bytes
 *  @return as stringsAreEqual()
 */
TARN_API int nStringsAreEqual(const char *a, const char *b, uint32_t n);

/** Decodes URL-encoded text: "+" becomes a space, "%" and two digits the byte they name.
 *
 *  Digits are not checked: see hexToChar(). Missing digits at the end count as zero bytes and end
 *  the text; so does a decoded zero byte.
 *
 *  @param text  stays as it is; may be null
 *  @return new text, to be freed with free(); null when `text` is null or memory runs out
 */
TARN_API char *unescapeString(const char *text);

/** Makes a byte of two hexadecimal digits.
 *
 *  No character is refused: from "A" upward, bytes from 0x80 included, a character counts as a
 *  letter (bit 0x20 cleared, minus 55), any other as a digit (minus 48); the sum is cut to eight
 *  bits.
 *
 *  @param high,low  the digits
 *  @return the byte
 */
TARN_API unsigned char hexToChar(char high, char low);

/** Runs a command through the shell with ";", "|", "<" and ">" escaped by a backslash.
 *
 *  This is no sanitiser: quotes, "&", "$", backquotes and newlines reach the shell. Never pass it
 *  text that a visitor sent; use posix_spawn() or execve() with an argument list.
 *
 *  @param command  what the shell is to run; may be null
 *  @return what system() returns, for a null command when memory runs out; -1 when `command` is
 *          null
 */
TARN_API int saferSystem(const char *command);

/** Finds the first occurrence of some bytes in others.
 *
 *  @param haystack                     where to search
 *  @param haystackLength,needleLength  in bytes; an empty needle is found at the start
 *  @param needle                       what to find
 *  @return its address inside `haystack`; null when there is none or either pointer is null
 */
TARN_API void *memfind(const void *haystack, uint32_t haystackLength, const void *needle,
                       uint32_t needleLength);

/** Cuts out the bytes between the first `open` and the `close` that follows it.
 *
 *  Without a `close` the bytes run to the end of the data and one byte beyond, normally the text's
 *  final zero byte. `close` is looked for in as many bytes after `open` as the data has without
 *  `open`: when `open` is not at the start, that reaches past the data by what stands before
 *  `open`. `data` must be readable that far.
 *
 *  @param data        the bytes to cut from
 *  @param length      of `data`, in bytes
 *  @param open,close  the texts on either side
 *  @return a new byte buffer, yours to delete with CGIgs_delete() and TARN_BYTE_BUFFER_MAGIC; it is
 *          empty when an argument is null, `open` is absent, nothing stands between or memory runs
 *          out for the bytes; 0 when it runs out for the buffer
 */
TARN_API TarnHandle extractBetween(const void *data, uint32_t length, const char *open,
                                   const char *close);

/** extractBetween() with one delimiter on both sides.
 *
 *  @param data,length  as for extractBetween()
 *  @param delimiter    the text on either side
 *  @return as extractBetween()
 */
TARN_API TarnHandle extractBetween1(const void *data, uint32_t length, const char *delimiter);

/** Copies a text without the spaces, tabs, line feeds and carriage returns around it.
 *
 *  @param text  null gives null
 *  @return new text, to be freed with free(); null when memory runs out
 */
TARN_API char *stripString(const char *text);

/** Reads what writeLong() and writeString() wrote: a count, then text. White space at the front of
 *  the text is lost.
 *
 *  @return at most count - 1 bytes, up to and including a newline, to be freed with free(); an
 *          empty text for a count below 2; null when `stream` is null or memory runs out
 */
TARN_API char *readString(FILE *stream);

/** Writes a space, the text and a space; nothing when either argument is null.
 *
 *  @code
 *  // and one, for readString() to give it back whole
 *  writeLong(stream, (long)strlen(text) + 1);
 *  writeString(stream, text);
 *  @endcode
 *
 *  @param text  may be null
 */
TARN_API void writeString(FILE *stream, const char *text);

/** Reads a decimal number with the white space around it.
 *
 *  @return the number; 0 when there is none or `stream` is null
 */
TARN_API long readLong(FILE *stream);

/** Writes a space, the number and a space; nothing when `stream` is null.
 *
 *  @param value  the number
 */
TARN_API void writeLong(FILE *stream, long value);

/* ---- Byte buffer: CGIfb ------------------------------------------------------------------------
 *
 * A byte buffer is a node (TARN_BYTE_BUFFER_MAGIC) that holds a run of bytes: `fixed` is their
 * address, and a zero byte follows them. The bytes outlive the node, and copies of the node share
 * them: they stay to the end of the process.
 */

/** The slots of a byte buffer, besides `fixed`. */
enum TarnByteBufferSlot {
  TARN_BYTE_BUFFER_LENGTH = 0 /* int: how many bytes `fixed` points at */
};

/** Fills a byte buffer with a copy of some bytes.
 *
 *  @param buffer  the byte buffer
 *  @param data    copied
 *  @param length  in bytes
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT, contents kept, when `data` is null or
 *          `length` is 0; TARN_OUT_OF_MEMORY, contents gone
 */
TARN_API TarnStatus CGIfb_setData(TarnHandle *buffer, const void *data, uint32_t length);

/* ---- CGI environment: CgiEnv -------------------------------------------------------------------
 *
 * An environment is a node (TARN_ENVIRONMENT_MAGIC) with what was captured when it was made. The
 * body is empty when none was read, the cookie list when HTTP_COOKIE is unset.
 *
 * The cookie header is cut at every ";". A piece makes a cookie with the name before its first "="
 * and the value after it, both trimmed and URL-decoded; a piece without "=", the empty one after a
 * trailing ";" included, makes a cookie whose name and value are null.
 *
 * Since names are decoded, anyone who can set a cookie can send one that appears here under a name
 * with the prefix "__Host-" or "__Secure-", spelled "__%48ost-", which browsers do not protect. For
 * such names, compare the name in HTTP_COOKIE itself; the guide to cookies has a function for it.
 *
 * The getters look at the process environment when they are called and never at the handle.
 *
 * @param handle  the environment
 * @param stream  ignored
 */

/** The slots of an environment. */
enum TarnEnvironmentSlot {
  TARN_ENVIRONMENT_CONTENT_LENGTH = 0, /* int: CONTENT_LENGTH, as a signed number; 0 when unset */
  TARN_ENVIRONMENT_HTTPS = 1,          /* int: 1 when HTTPS is "on", in lower case, else 0 */
  TARN_ENVIRONMENT_BODY = 0,           /* struct: the body of a POST, a byte buffer */
  TARN_ENVIRONMENT_COOKIES = 1         /* struct: the cookies of HTTP_COOKIE, a list */
};

/** Captures the environment; for a POST with a body, reads CONTENT_LENGTH bytes of standard input.
 *
 *  Bytes that do not arrive are zero. The body can be read once in a process. The environment is
 *  made, and the handle set, also when the body could not be kept.
 *
 *  A signal does not end the reading, which goes on when the handler returns. To bound a slow
 *  upload, call alarm() and leave SIGALRM its default action, or use a handler that does not
 *  return.
 *
 *  @param handle  where to put it; must hold 0
 *  @return TARN_OK; TARN_BAD_ARGUMENT when `handle` is null or in use, without memory for the
 *          environment (the handle stays 0), and when CONTENT_LENGTH is negative or more than can
 *          be allocated (nothing is read then); TARN_WRONG_TYPE when the body was read but could
 *          not be kept
 */
TARN_API TarnStatus CgiEnv_new(TarnHandle *handle);

/** Deletes an environment and sets the handle to 0.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus CgiEnv_delete(TarnHandle *handle);

/** Empties an environment: numbers 0, no body, no cookies. The node stays.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus CgiEnv_clear(TarnHandle *handle);

/** Replaces the body by a copy of some bytes.
 *
 *  @param data    copied
 *  @param length  in bytes
 *  @return TARN_OK; TARN_WRONG_TYPE, also without memory for a buffer; TARN_BAD_ARGUMENT when
 *          `data` is null or `length` is 0; TARN_OUT_OF_MEMORY. The old body stays unless all went
 *          well.
 */
TARN_API TarnStatus CgiEnv_setPostData(TarnHandle *handle, const void *data, uint32_t length);

/** Does nothing. @return TARN_OK */
TARN_API TarnStatus CgiEnv_save(TarnHandle *handle, FILE *stream);

/** Does nothing. @return TARN_OK */
TARN_API TarnStatus CgiEnv_restore(TarnHandle *handle, FILE *stream);

/* Each getter below reads one variable. Texts are the environment's own: never null, empty when
 * unset, not to be freed. Numbers are decimal, 0 when unset, and stop at the limits of 32 bits. */

/** SERVER_SOFTWARE. @return lent text, never null */
TARN_API const char *CgiEnv_getServerSoftware(TarnHandle *handle);
/** SERVER_NAME. @return lent text, never null */
TARN_API const char *CgiEnv_getServerName(TarnHandle *handle);
/** GATEWAY_INTERFACE. @return lent text, never null */
TARN_API const char *CgiEnv_getGatewayInterface(TarnHandle *handle);
/** SERVER_PROTOCOL. @return lent text, never null */
TARN_API const char *CgiEnv_getServerProtocol(TarnHandle *handle);
/** SERVER_PORT. @return the number; 0 when unset */
TARN_API int32_t CgiEnv_getServerPort(TarnHandle *handle);
/** HTTP_COOKIE, the raw header. @return lent text, never null */
TARN_API const char *CgiEnv_getCookies(TarnHandle *handle);
/** REQUEST_METHOD. @return lent text, never null */
TARN_API const char *CgiEnv_getRequestMethod(TarnHandle *handle);
/** PATH_INFO. @return lent text, never null */
TARN_API const char *CgiEnv_getPathInfo(TarnHandle *handle);
/** PATH_TRANSLATED. @return lent text, never null */
TARN_API const char *CgiEnv_getPathTranslated(TarnHandle *handle);
/** SCRIPT_NAME. @return lent text, never null */
TARN_API const char *CgiEnv_getScriptName(TarnHandle *handle);
/** QUERY_STRING. @return lent text, never null */
TARN_API const char *CgiEnv_getQueryString(TarnHandle *handle);
/** CONTENT_LENGTH, in bytes, read afresh. @return the number; 0 when unset */
TARN_API int32_t CgiEnv_getContentLength(TarnHandle *handle);
/** CONTENT_TYPE. @return lent text, never null */
TARN_API const char *CgiEnv_getContentType(TarnHandle *handle);
/** HTTP_REFERER. @return lent text, never null */
TARN_API const char *CgiEnv_getReferrer(TarnHandle *handle);
/** REMOTE_HOST. @return lent text, never null */
TARN_API const char *CgiEnv_getRemoteHost(TarnHandle *handle);
/** REMOTE_ADDR. @return lent text, never null */
TARN_API const char *CgiEnv_getRemoteAddr(TarnHandle *handle);
/** AUTH_TYPE. @return lent text, never null */
TARN_API const char *CgiEnv_getAuthType(TarnHandle *handle);
/** REMOTE_USER. @return lent text, never null */
TARN_API const char *CgiEnv_getRemoteUser(TarnHandle *handle);
/** REMOTE_IDENT. @return lent text, never null */
TARN_API const char *CgiEnv_getRemoteIdent(TarnHandle *handle);
/** HTTP_ACCEPT. @return lent text, never null */
TARN_API const char *CgiEnv_getAccept(TarnHandle *handle);
/** HTTP_USER_AGENT. @return lent text, never null */
TARN_API const char *CgiEnv_getUserAgent(TarnHandle *handle);
/** REDIRECT_REQUEST. @return lent text, never null */
TARN_API const char *CgiEnv_getRedirectRequest(TarnHandle *handle);
/** REDIRECT_URL. @return lent text, never null */
TARN_API const char *CgiEnv_getRedirectURL(TarnHandle *handle);
/** REDIRECT_STATUS. @return lent text, never null */
TARN_API const char *CgiEnv_getRedirectStatus(TarnHandle *handle);

/* ---- Form entries: FormEntry, FormEntryList ----------------------------------------------------
 *
 * An entry (TARN_FORM_ENTRY_MAGIC) is one field of a form: a name, a value and the value's length.
 * Create one with CGIgs_new(), release it with CGIgs_delete().
 *
 * A list (TARN_FORM_ENTRY_LIST_MAGIC) owns copies of entries, in order. A value that holds a zero
 * byte is whole in your own entry; a list's copy ends at that byte, while its length stays.
 *
 * @param entry  the entry
 * @param list   the list
 * @param index  counted from 0, in order of appending
 */

/** The slots of an entry. */
enum TarnEntrySlot {
  TARN_ENTRY_NAME = 0,           /* string: the field's name; null for a field without a name */
  TARN_ENTRY_VALUE = 1,          /* string: the value, with a zero byte after it */
  TARN_ENTRY_STRIPPED_VALUE = 2, /* string: what FormEntry_getStrippedValue() returned last */
  TARN_ENTRY_LENGTH = 0          /* int: the value's length in bytes */
};

/** Sets an entry's name and value.
 *
 *  @param name    null: no name
 *  @param data    the value's bytes; null only with `length` 0
 *  @param length  in bytes
 *  @return TARN_OK; TARN_WRONG_TYPE; otherwise as FormEntry_setValue(), with the name set
 */
TARN_API TarnStatus FormEntry_init(TarnHandle *entry, const char *name, const void *data,
                                   uint32_t length);

/** Sets an entry's value; a zero byte is put after it.
 *
 *  @param data    null only with `length` 0: an empty text
 *  @param length  in bytes
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT for null data with a length, and
 *          TARN_OUT_OF_MEMORY, entry unchanged
 */
TARN_API TarnStatus FormEntry_setValue(TarnHandle *entry, const void *data, uint32_t length);

/** Orders two entries by name, then by value.
 *
 *  @param a,b  the entries
 *  @return negative, 0 or positive; 0 when either is no entry; -1 when the names are to be compared
 *          and `b` has none, likewise for the values
 */
TARN_API int32_t FormEntry_compare(TarnHandle *a, TarnHandle *b);

/** Orders an entry's name against a text.
 *
 *  @param name  the text to compare with
 *  @return as stringsAreEqual(); -1 when `entry` is no entry or `name` is null
 */
TARN_API int32_t FormEntry_compareName(TarnHandle *entry, const char *name);

/** Orders an entry's value, read as text, against a text.
 *
 *  @param value  the text to compare with
 *  @return as stringsAreEqual(); -1 when `entry` is no entry or `value` is null
 */
TARN_API int32_t FormEntry_compareValue(TarnHandle *entry, const char *value);

/** Copies the value without the white space around it; see stripString().
 *
 *  A copy is kept in the entry (TARN_ENTRY_STRIPPED_VALUE).
 *
 *  @return new text, to be freed with free(); null when the entry has no value or memory runs out;
 *          CGIgs_empty_string, not to be freed, when `entry` is no entry
 */
TARN_API const char *FormEntry_getStrippedValue(TarnHandle *entry);

/** Reads the value as a decimal number; text that does not fit 32 bits stops at their limits.
 *
 *  @return the number, up to the first byte that is no digit; 0 when there is none
 */
TARN_API int32_t FormEntry_getIntegerValue(TarnHandle *entry);

/** Reads the value as a real number, as atof() does.
 *
 *  @return the number; 0.0 when there is none
 */
TARN_API double FormEntry_getDoubleValue(TarnHandle *entry);

/** Not implemented. @return the constant text "Not yet implemented" */
TARN_API const char *FormEntry_toString(TarnHandle *entry);

/** Appends a copy of an entry to a list.
 *
 *  A name that the list already holds is appended again: lookups find the first.
 *
 *  @param list   a form entry list (a file list passes too: they share one tag)
 *  @param entry  the entry to copy
 *  @return TARN_OK; TARN_WRONG_TYPE when `list` is no list; TARN_BAD_ARGUMENT when `entry` is no
 *          entry; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus FormEntryList_addEntry(TarnHandle *list, TarnHandle *entry);

/** Counts the entries. @return the count; 0 when `list` is no list */
TARN_API int32_t FormEntryList_getCount(TarnHandle *list);

/** Lends the entry at an index.
 *
 *  @return the entry; 0 when `index` is not below the count or `list` is no list
 */
TARN_API TarnHandle FormEntryList_getByIndex(TarnHandle *list, uint32_t index);

/** Makes room for `capacity` entries in a list that has had an entry; a fresh list stays as it is.
 *
 *  @param capacity  in entries
 */
TARN_API void FormEntryList_reserve(TarnHandle *list, uint32_t capacity);

/** Deletes every entry; the list stays, empty.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus FormEntryList_clear(TarnHandle *list);

/** Deletes a list with its entries and sets the handle to 0.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus FormEntryList_delete(TarnHandle *list);

/** Copies a list with its entries.
 *
 *  @param source       the list to copy
 *  @param destination  receives the copy; what it held is overwritten, not deleted
 *  @return TARN_OK; TARN_WRONG_TYPE when `source` is no list or holds something that is no entry;
 *          TARN_OUT_OF_MEMORY; on failure `destination` is left alone
 */
TARN_API TarnStatus FormEntryList_clone(TarnHandle *source, TarnHandle *destination);

/** Not implemented. @return the constant text "Not yet implemented." */
TARN_API const char *FormEntryList_toHTML(TarnHandle *list);

/* ---- Uploaded files: FormFile, FormFileList ----------------------------------------------------
 *
 * A file (TARN_FORM_FILE_MAGIC) is one uploaded file. Of what a visitor sent, the bytes up to the
 * first CR LF (13, 10) arrive; the rest is dropped without an error. A PNG image arrives as four
 * bytes. The file name is what a stranger sent: it may hold "../", quotes and control bytes.
 *
 * A list (TARN_FORM_FILE_LIST_MAGIC) owns copies of files, in order; copies share the bytes.
 *
 * @param file   the file
 * @param list   the list
 * @param index  counted from 0, in order of appending
 */

/** The slots of a file. */
enum TarnFileSlot {
  TARN_FILE_FIELD_NAME = 0,   /* string: the field's name */
  TARN_FILE_FILENAME = 1,     /* string: the client's file name, URL-decoded */
  TARN_FILE_CONTENT_TYPE = 2, /* string: the content type */
  TARN_FILE_BYTES = 0         /* struct: the bytes, a byte buffer */
};

/** Fills a file.
 *
 *  @param name,fileName,contentType,data  copied
 *  @param length                          of `data`, in bytes; 0 gives a file without bytes
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT, file unchanged, when an argument is null
 */
TARN_API TarnStatus FormFile_init(TarnHandle *file, const char *name, const char *fileName,
                                  const char *contentType, const void *data, uint32_t length);

/** Tells whether field name, file name and content type of two files are equal.
 *
 *  @param a,b  the files
 *  @return 0 when they are; 1 when not, or when either is no file. The bytes are not compared.
 */
TARN_API uint32_t FormFile_compare(TarnHandle *a, TarnHandle *b);

/** Orders a file's field name against a text.
 *
 *  @param name  the text to compare with
 *  @return as stringsAreEqual(); 1 when `file` is no file or `name` is null
 */
TARN_API int32_t FormFile_compareName(TarnHandle *file, const char *name);

/** Writes a file's bytes to a stream; does not flush it. An uploaded file ends at its first CR LF.
 *
 *  @param stream  where to write
 *  @return 0 when there are no bytes or `file` is no file; else 1 when a byte was refused (the rest
 *          is still tried) or `stream` is null; else 0
 */
TARN_API uint32_t FormFile_writeToStream(TarnHandle *file, FILE *stream);

/** Counts a file's bytes: of an uploaded file, those before its first CR LF.
 *
 *  @return the count; 0 when `file` is no file
 */
TARN_API uint32_t FormFile_getDataLength(TarnHandle *file);

/** Appends a copy of a file to a list.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE when `list` is no list; TARN_BAD_ARGUMENT when `file` is no
 *          file; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus FormFileList_addEntry(TarnHandle *list, TarnHandle *file);

/** Counts the files. @return the count; 0 when `list` is no list */
TARN_API int32_t FormFileList_getCount(TarnHandle *list);

/** Lends the file at an index.
 *
 *  @return the file; 0 when `index` is not below the count or `list` is no list
 */
TARN_API TarnHandle FormFileList_getByIndex(TarnHandle *list, uint32_t index);

/** Makes room for `capacity` files in a list that has had a file; a fresh list stays as it is.
 *
 *  @param capacity  in files
 */
TARN_API void FormFileList_reserve(TarnHandle *list, uint32_t capacity);

/** Deletes every file and the list itself, and sets the handle to 0.
 *
 *  Unlike FormEntryList_clear(), which keeps the list.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus FormFileList_clear(TarnHandle *list);

/** Deletes a list with its files and sets the handle to 0.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus FormFileList_delete(TarnHandle *list);

/** Copies a list with its files; the copies share the bytes.
 *
 *  @param source       the list to copy
 *  @param destination  receives the copy; what it held is overwritten, not deleted
 *  @return TARN_OK; TARN_WRONG_TYPE when `source` is no list or holds something that is no file;
 *          TARN_OUT_OF_MEMORY; on failure `destination` is left alone
 */
TARN_API TarnStatus FormFileList_clone(TarnHandle *source, TarnHandle *destination);

/** Not implemented. @return the constant text "Not yet implemented." */
TARN_API const char *FormFileList_toHTML(TarnHandle *list);

/* ---- Request: Tarn -----------------------------------------------------------------------------
 *
 * A request is a node (TARN_REQUEST_MAGIC) that holds the environment, the entries and the files.
 * Lookups take the first match.
 *
 * @param handle  the request
 * @param name    the field's name
 * @param stream  ignored
 */

/** The slots of a request. */
enum TarnRequestSlot {
  TARN_REQUEST_ENVIRONMENT = 0, /* struct: the environment */
  TARN_REQUEST_ENTRIES = 1,     /* struct: the form entry list */
  TARN_REQUEST_FILES = 2        /* struct: the form file list */
};

/** Takes in the request: environment, cookies, body, and the form, parsed.
 *
 *  A POST has its body parsed, any other method its query string. A CONTENT_TYPE that begins with
 *  "multipart/form-data" means multipart, anything else URL-encoded, whatever the method. A signal
 *  does not end the reading of a slow body: see CgiEnv_new(). Tarn_isComplete() tells whether all
 *  of it arrived and was kept.
 *
 *  @code
 *  TarnHandle request = 0;
 *  if (Tarn_new(&request) == TARN_OK) {
 *    TarnHandle name = Tarn_getElementByName(&request, "name");
 *    ...
 *  }
 *  Tarn_delete(&request);
 *  @endcode
 *
 *  @param handle  where to put the request; must hold 0
 *  @return TARN_BAD_ARGUMENT when `handle` is null or in use; otherwise the status of
 *          Tarn_parseFormInput(), TARN_OK when there was no body to parse. Without memory for the
 *          request the handle stays 0.
 */
TARN_API TarnStatus Tarn_new(TarnHandle *handle);

/** Deletes a request with all it holds and sets the handle to 0.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus Tarn_delete(TarnHandle *handle);

/** Does nothing. @return TARN_NOT_IMPLEMENTED */
TARN_API TarnStatus Tarn_clear(TarnHandle *handle);

/** Tells the date of this release. @return the text "Jul 17 2007" */
TARN_API const char *Tarn_getCompileDate(TarnHandle *handle);
/** Tells the time of this release. @return the text "14:49:31" */
TARN_API const char *Tarn_getCompileTime(TarnHandle *handle);
/** Tells the version. @return the text "1.0.0" */
TARN_API const char *Tarn_getVersion(TarnHandle *handle);
/** Not filled in. @return the constant text "Set this to the platform we compiled for" */
TARN_API const char *Tarn_getHost(TarnHandle *handle);

/** Does nothing. */
TARN_API void Tarn_save(TarnHandle *handle, FILE *stream);
/** Does nothing. */
TARN_API void Tarn_restore(TarnHandle *handle, FILE *stream);

/** Tells whether everything that arrived is in the request.
 *
 *  Ask before you store anything: Tarn_new() returns TARN_OK also when memory ran out for some of
 *  the fields, files or cookies, and when the body broke off. What the rules of parsing leave out
 *  does not count as lost: the rest of a multipart value after its first CR LF; a multipart body
 *  whose boundary is missing from CONTENT_TYPE or quoted there; a piece without "="; URL-encoded
 *  text after a zero byte; a body without a CONTENT_LENGTH that says how long it is; the body of a
 *  request other than POST.
 *
 *  @code
 *  if (!Tarn_isComplete(&request)) {
 *    puts("Status: 400 Bad Request");
 *    puts("Content-Type: text/plain\n\nPlease send it again.");
 *    ...
 *  @endcode
 *
 *  @return 1 when it is; 0 when something could not be allocated, in Tarn_new() or a later
 *          Tarn_parseFormInput(), Tarn_parsePair() or Tarn_parseMime(), when the body ended before
 *          CONTENT_LENGTH or was too long to read, and when `handle` holds no request or one
 *          without an environment
 */
TARN_API uint32_t Tarn_isComplete(TarnHandle *handle); /* since TARN_1.1 */

/** Tells whether a checkbox was ticked: its field came with the value "on", in any case.
 *
 *  @return 1 or 0
 */
TARN_API uint32_t Tarn_queryCheckbox(TarnHandle *handle, const char *name);

/** Lends the first entry with this name.
 *
 *  In a form that was sent as multipart/form-data, a value ends at its first CR LF: a text area
 *  arrives as its first line.
 *
 *  @param name  null finds the first entry without a name; files in the entry list are skipped
 *  @return the entry; 0 when there is none
 */
TARN_API TarnHandle Tarn_getElementByName(TarnHandle *handle, const char *name);

/** The same as Tarn_getElementByName(): it too compares names, not values.
 *
 *  @param text  the name to look for
 *  @return as Tarn_getElementByName()
 */
TARN_API TarnHandle Tarn_getElementByValue(TarnHandle *handle, const char *text);

/** Lends the first file whose field has this name.
 *
 *  The file holds what was sent up to the first CR LF (bytes 13 and 10), and nothing tells whether
 *  more followed: see the family of uploaded files.
 *
 *  @param name  null finds the first file without a field name; entries in the file list are
 *               skipped
 *  @return the file; 0 when there is none
 */
TARN_API TarnHandle Tarn_getFile(TarnHandle *handle, const char *name);

/** Appends copies of all entries with this name to a list of yours. A null name finds the entries
 *  without a name; files in the entry list are skipped.
 *
 *  @param unused       ignored
 *  @param destination  a form entry list
 *  @return 1 when an append failed, and the copying ends there; else 0
 */
TARN_API uint32_t Tarn_findEntries(TarnHandle *handle, const char *name, uint32_t unused,
                                   TarnHandle *destination);

/** Parses a form and appends its entries and files to the request.
 *
 *  CONTENT_TYPE, at the time of the call, decides between multipart and URL-encoded. `input` is
 *  tested before the handle.
 *
 *  URL-encoded text is cut at every "&" and each piece goes the way of Tarn_parsePair(). A
 *  multipart body is cut at "--", what follows "boundary=" in CONTENT_TYPE, and CR LF; each part
 *  goes the way of Tarn_parseMime(). What stands before the first delimiter is skipped.
 *
 *  @param input   URL-encoded text with its final zero byte, or a multipart body; left as it is
 *  @param length  of a multipart body, in bytes; ignored for URL-encoded text
 *  @return TARN_OK, whatever became of single fields; TARN_BAD_ARGUMENT when `input` is null;
 *          TARN_NO_ENVIRONMENT when the request has none, or `handle` is no request
 */
TARN_API TarnStatus Tarn_parseFormInput(TarnHandle *handle, char *input, uint32_t length);

/** Appends the entry that one "name=value" makes; a text without "=" makes none.
 *
 *  The first "=" divides. Both sides are decoded as unescapeString() does.
 *
 *  @param pair  its "=" is overwritten by a zero byte
 */
TARN_API void Tarn_parsePair(TarnHandle *handle, char *pair);

/** Appends the entry or file that one part of a multipart body makes.
 *
 *  The value runs from the blank line after the headers to the first CR LF after it; without one it
 *  is empty. A part without a blank line makes nothing. A part with a file name that is not empty
 *  makes a file, any other an entry. The file name is decoded as unescapeString() does; a file
 *  without field name or content type is appended empty.
 *
 *  @param part    the bytes between two delimiters; a zero byte is written over the CR that ends
 *                 the last header line, in your memory
 *  @param length  in bytes; nothing is read beyond
 */
TARN_API void Tarn_parseMime(TarnHandle *handle, const uint8_t *part, uint32_t length);

/* ---- Cookies: HTTPCookie, HTTPCookieList -------------------------------------------------------
 *
 * A cookie (TARN_COOKIE_MAGIC) is created with CGIgs_new() and released with CGIgs_delete(). A list
 * (TARN_COOKIE_LIST_MAGIC) owns copies of cookies, in order. Nothing is checked or escaped.
 *
 * @param cookie  the cookie
 * @param list    the list
 * @param index   counted from 0, in order of appending
 * @param maxAge  in seconds, kept as 32 bits
 * @param secure  0 for no; kept as given
 */

/** The slots of a cookie. */
enum TarnCookieSlot {
  TARN_COOKIE_NAME = 0,     /* string */
  TARN_COOKIE_VALUE = 1,    /* string */
  TARN_COOKIE_COMMENT = 2,  /* string */
  TARN_COOKIE_DOMAIN = 3,   /* string */
  TARN_COOKIE_PATH = 4,     /* string */
  TARN_COOKIE_RENDERED = 5, /* string: what HTTPCookie_toString() returned last */
  TARN_COOKIE_MAX_AGE = 0,  /* int: in seconds, as a signed number */
  TARN_COOKIE_SECURE = 1    /* int: the secure flag */
};

/** Fills a cookie, after emptying it.
 *
 *  @param name,value           copied; neither may be null
 *  @param comment,domain,path  may be null
 *  @return TARN_BAD_ARGUMENT when `name` or `value` is null, tested first; TARN_WRONG_TYPE; TARN_OK
 */
TARN_API TarnStatus HTTPCookie_init(TarnHandle *cookie, const char *name, const char *value,
                                    const char *comment, const char *domain, long maxAge,
                                    const char *path, int secure);

/** Orders two cookies by name, then by value, byte by byte, in reverse: b against a.
 *
 *  @param a,b  the cookies
 *  @return positive when `a` sorts before `b`, negative when after; 0 when equal or either is no
 *          cookie. A missing name or value sorts before any text.
 */
TARN_API int HTTPCookie_compare(TarnHandle *a, TarnHandle *b);

/** Reads the max-age. @return the seconds; 0 when `cookie` is no cookie */
TARN_API long HTTPCookie_getMaxAge(TarnHandle *cookie);

/** Sets the max-age. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTTPCookie_setMaxAge(TarnHandle *cookie, long maxAge);

/** Reads the secure flag. @return the flag as it was set; 0 when `cookie` is no cookie */
TARN_API int HTTPCookie_isSecure(TarnHandle *cookie);

/** Sets the secure flag. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTTPCookie_setSecure(TarnHandle *cookie, int secure);

/** Formats a cookie as one line for a log or a debugger; not for a Set-Cookie header.
 *
 *  Unset texts print as (null). A copy is kept in the cookie (TARN_COOKIE_RENDERED).
 *
 *  @return new text, to be freed with free(); CGIgs_empty_string, not to be freed, when `cookie` is
 *          no cookie or memory runs out
 */
TARN_API const char *HTTPCookie_toString(TarnHandle *cookie);

/** Deletes a list with its cookies and sets the handle to 0. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTTPCookieList_delete(TarnHandle *list);

/** Deletes every cookie; the list stays, empty. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTTPCookieList_clear(TarnHandle *list);

/** Copies a list with its cookies.
 *
 *  @param source       the list to copy
 *  @param destination  receives the copy; what it held is overwritten, not deleted
 *  @return TARN_OK; TARN_WRONG_TYPE when `source` is no list or holds something that is no cookie;
 *          TARN_OUT_OF_MEMORY; on failure `destination` is left alone
 */
TARN_API TarnStatus HTTPCookieList_clone(TarnHandle *source, TarnHandle *destination);

/** Appends a copy of a cookie; equal names are kept.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE when `list` is no list; TARN_BAD_ARGUMENT when `cookie` is no
 *          cookie; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTTPCookieList_addCookie(TarnHandle *list, TarnHandle *cookie);

/** Counts the cookies. @return the count; 0 when `list` is no list */
TARN_API int HTTPCookieList_getCount(TarnHandle *list);

/** Lends the cookie at an index. Names are decoded: a name with a prefix such as "__Host-" proves
 *  nothing here, see CgiEnv_new().
 *
 *  @return the cookie; 0 when `index` is not below the count or `list` is no list
 */
TARN_API TarnHandle HTTPCookieList_getByIndex(TarnHandle *list, uint32_t index);

/** Not implemented. @return the constant text "Not yet implemented." */
TARN_API const char *HTTPCookieList_toHTML(TarnHandle *list);

/* ---- HTTP headers ------------------------------------------------------------------------------
 *
 * A header is a node of one of three types:
 *
 *   HTTPHeader (TARN_HEADER_MAGIC)                   a content type and cookies
 *   HTTPResponseHeader (TARN_RESPONSE_HEADER_MAGIC)  two texts, a number, header lines and cookies
 *   MultiPartHeader (TARN_MULTIPART_HEADER_MAGIC)    the header of one part of a multipart body
 *
 * They hold data; what goes to the browser is for the script to write.
 *
 * @param header   the header
 * @param cookies  the list to copy
 */

/** The slots of an HTTPHeader. */
enum TarnHeaderSlot {
  TARN_HEADER_CONTENT_TYPE = 0, /* string */
  TARN_HEADER_COOKIES = 0       /* struct: a cookie list */
};

/** The slots of an HTTPResponseHeader. */
enum TarnResponseHeaderSlot {
  TARN_RESPONSE_HEADER_FIRST = 0,  /* string: the first text */
  TARN_RESPONSE_HEADER_SECOND = 1, /* string: the second text */
  TARN_RESPONSE_HEADER_NUMBER = 0, /* int: a number, signed */
  TARN_RESPONSE_HEADER_LINES = 0,  /* list: header lines, `char *` */
  TARN_RESPONSE_HEADER_COOKIES = 0 /* struct: a cookie list */
};

/** The slots of a MultiPartHeader. */
enum TarnMultipartHeaderSlot {
  TARN_MULTIPART_HEADER_DISPOSITION = 0, /* string: "form-data" */
  TARN_MULTIPART_HEADER_NAME = 1,        /* string: the field's name */
  TARN_MULTIPART_HEADER_FILENAME = 2,    /* string: the client's file name */
  TARN_MULTIPART_HEADER_CONTENT_TYPE = 3 /* string: the content type */
};

/** Deletes a header and sets the handle to 0. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTTPHeader_delete(TarnHandle *header);

/** Empties a header; the node stays. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTTPHeader_clear(TarnHandle *header);

/** Fills a header, after emptying it.
 *
 *  @param contentType  copied
 *  @param cookies      the list to copy; null stores the content type and answers TARN_BAD_ARGUMENT
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `contentType` is null or `cookies` is
 *          no cookie list (header unchanged), and when `cookies` is null or cannot be copied
 *          (content type stored, no cookies)
 */
TARN_API TarnStatus HTTPHeader_init(TarnHandle *header, const char *contentType,
                                    TarnHandle *cookies);

/** Replaces a header's cookies by a copy of a list.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `cookies` is no cookie list, and, with
 *          no cookies left, when it cannot be copied
 */
TARN_API TarnStatus HTTPHeader_setCookieList(TarnHandle *header, TarnHandle *cookies);

/** Creates an HTTPHeader for "text/plain", without cookies.
 *
 *  @param handle  where to put it; must hold 0
 *  @return TARN_OK; TARN_BAD_ARGUMENT when `handle` is null or in use; TARN_WRONG_TYPE when memory
 *          runs out
 */
TARN_API TarnStatus HTTPPlainHeader_new(TarnHandle *handle);

/** Deletes a response header and sets the handle to 0. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTTPResponseHeader_delete(TarnHandle *header);

/** Empties a response header; the node stays. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTTPResponseHeader_clear(TarnHandle *header);

/** Fills a response header, after emptying it; does nothing when either text is null.
 *
 *  Tarn gives these three no meaning: an HTTP version, a status code and a reason phrase, for
 *  instance.
 *
 *  @param first,second  two texts, copied
 *  @param number        stored as int 0
 *
 *  @return TARN_OK, also when nothing was done; TARN_WRONG_TYPE
 */
TARN_API TarnStatus HTTPResponseHeader_init(TarnHandle *header, const char *first, int number,
                                            const char *second);

/** Lends the generic list of header lines; its words are `char *`, also lent. A line for which
 *  there was no memory is null. For what you put into the list, see convention 9 (b).
 *
 *  @return the list; 0 when no line was added or `header` is no response header
 */
TARN_API TarnHandle HTTPResponseHeader_getHeaderList(TarnHandle *header);

/** Appends a copy of a header line, as given.
 *
 *  @param line  a text, usually "Name: value"; nothing in it is checked
 *
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `line` is null; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTTPResponseHeader_addHeader(TarnHandle *header, const char *line);

/** Replaces a response header's cookies by a copy of a list.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `cookies` is no cookie list; otherwise
 *          the status of copying it
 */
TARN_API TarnStatus HTTPResponseHeader_setCookieList(TarnHandle *header, TarnHandle *cookies);

/** Appends a copy of a cookie to a response header's list.
 *
 *  A header that has no list yet gets an empty one and the cookie is lost: the first cookie of such
 *  a header has to be added twice, or set with HTTPResponseHeader_setCookieList().
 *
 *  @param cookie  the cookie to copy
 *  @return TARN_OK, also for the cookie that is lost; TARN_WRONG_TYPE, also without memory for the
 *          empty list, and when something other than a cookie list was stored as the cookies;
 *          TARN_BAD_ARGUMENT when `cookie` is no cookie; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTTPResponseHeader_addCookie(TarnHandle *header, TarnHandle *cookie);

/** Sets the four texts of a part's header.
 *
 *  @param disposition,name,fileName,contentType  copied; a null one empties its slot
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus MultiPartHeader_init(TarnHandle *header, const char *disposition,
                                         const char *name, const char *fileName,
                                         const char *contentType);

/** Not implemented. @return the constant text "Not yet implemented" */
TARN_API const char *HTTPContentHeader_toString(TarnHandle *header);
/** Not implemented. @return the constant text "Not implemented." */
TARN_API const char *HTTPRedirectHeader_toHTML(TarnHandle *header);
/** Not implemented. @return the constant text "Not implemented yet." */
TARN_API const char *HTTPResponseHeader_toHTML(TarnHandle *header);
/** Not implemented. @return the constant text "Not yet implemented" */
TARN_API const char *HTTPStatusHeader_toHTML(TarnHandle *header);

/* ---- HTML attributes and elements: HTMLAttribute, HTMLElement and their lists ------------------
 *
 * An attribute (TARN_ATTRIBUTE_MAGIC) has a name and a value. An element (TARN_ELEMENT_MAGIC) has a
 * name, a second text and a number, all set with the node operations, attributes, and embedded
 * elements. Create them with CGIgs_new(); release an attribute with CGIgs_delete(), an element with
 * HTMLElement_delete().
 *
 * The lists (TARN_ATTRIBUTE_LIST_MAGIC, TARN_ELEMENT_LIST_MAGIC) own copies, in order. They share
 * one tag and pass each other's type test; what is wrong shows at the first entry. A tree may be of
 * any depth.
 *
 * @param attribute  the attribute
 * @param element    the element
 * @param list       the list
 * @param index      counted from 0, in order of appending
 */

/** The slots of an attribute. */
enum TarnAttributeSlot {
  TARN_ATTRIBUTE_NAME = 0,  /* string */
  TARN_ATTRIBUTE_VALUE = 1, /* string */
  TARN_ATTRIBUTE_NUMBER = 0 /* int: a number, which Tarn does not interpret */
};

/** The slots of an element. */
enum TarnElementSlot {
  TARN_ELEMENT_NAME = 0,       /* string */
  TARN_ELEMENT_TEXT = 1,       /* string: a second text, which Tarn does not interpret */
  TARN_ELEMENT_NUMBER = 0,     /* int: a number, which Tarn does not interpret */
  TARN_ELEMENT_ATTRIBUTES = 0, /* struct: the attribute list */
  TARN_ELEMENT_EMBEDDED = 1    /* struct: the list of embedded elements */
};

/** Sets an attribute's name and value.
 *
 *  @param name,value  copied; a null one empties its place
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus HTMLAttribute_init(TarnHandle *attribute, const char *name, const char *value);

/** Not implemented. @return the constant text "Not yet implemented." */
TARN_API const char *HTMLAttribute_toHTML(TarnHandle *attribute);

/** Deletes a list with its attributes and sets the handle to 0. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTMLAttributeList_delete(TarnHandle *list);

/** Deletes every attribute; the list stays, empty. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTMLAttributeList_clear(TarnHandle *list);

/** Copies a list with its attributes.
 *
 *  @param source       the list to copy
 *  @param destination  receives the copy; what it held is overwritten, not deleted
 *  @return TARN_OK; TARN_WRONG_TYPE when `source` is no list or holds something that is no
 *          attribute; TARN_OUT_OF_MEMORY; on failure `destination` is left alone
 */
TARN_API TarnStatus HTMLAttributeList_clone(TarnHandle *source, TarnHandle *destination);

/** Appends a copy of an attribute; equal names are kept.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE when `list` is no list; TARN_BAD_ARGUMENT when `attribute` is
 *          no attribute; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTMLAttributeList_addAttribute(TarnHandle *list, TarnHandle *attribute);

/** Counts the attributes. @return the count; 0 when `list` is no list */
TARN_API int HTMLAttributeList_getCount(TarnHandle *list);

/** Lends the attribute at an index.
 *
 *  @return the attribute; 0 when `index` is not below the count or `list` is no list
 */
TARN_API TarnHandle HTMLAttributeList_getByIndex(TarnHandle *list, uint32_t index);

/** Not implemented. @return the constant text "Not yet implemented." */
TARN_API const char *HTMLAttributeList_toHTML(TarnHandle *list);

/** Deletes an element with its whole subtree and sets the handle to 0.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus HTMLElement_delete(TarnHandle *element);

/** Empties an element and deletes its subtree; the node stays. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTMLElement_clear(TarnHandle *element);

/** Copies an element with its whole subtree: names, second texts, numbers, attributes, embedded
 *  elements; no other slot. When memory runs out for the element itself the status is TARN_OK and
 *  `destination` stays 0.
 *
 *  @param source       the element to copy
 *  @param destination  where to put the copy; must hold 0
 *  @return TARN_OK; TARN_WRONG_TYPE for `source`; TARN_BAD_ARGUMENT when `destination` is null or
 *          in use; otherwise, with what could be copied in `destination`, TARN_WRONG_TYPE when a
 *          list holds something foreign, TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTMLElement_clone(TarnHandle *source, TarnHandle *destination);

/** Orders two elements by name, byte by byte: a against b.
 *
 *  @param a,b  the elements
 *  @return negative when `a` sorts before `b` or either is no element; 0 or positive otherwise. A
 *          missing name sorts before any text.
 */
TARN_API int HTMLElement_compare(TarnHandle *a, TarnHandle *b);

/** Replaces an element's attributes by a copy of a list.
 *
 *  @param attributes  the list to copy
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `attributes` is no list; otherwise the
 *          status of copying it, with no attributes left
 */
TARN_API TarnStatus HTMLElement_setAttributes(TarnHandle *element, TarnHandle *attributes);

/** Appends a copy of an attribute to an element's attributes.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE, also when something other than a list was stored as the
 *          attributes; TARN_BAD_ARGUMENT when `attribute` is no attribute, and without memory for a
 *          first list; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTMLElement_addAttribute(TarnHandle *element, TarnHandle *attribute);

/** Replaces an element's embedded elements by a copy of a list, subtrees included.
 *
 *  @param embedded  the list to copy
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `embedded` is no list; otherwise the
 *          status of copying it, with no elements left
 */
TARN_API TarnStatus HTMLElement_setEmbedded(TarnHandle *element, TarnHandle *embedded);

/** Appends a copy of an element, with its subtree, to the embedded elements of another.
 *
 *  To build a deep tree at a cost in proportion to its size, add each child to the lent copy of its
 *  parent (HTMLElementList_getByIndex()), from the top down: a child is copied when it is added.
 *
 *  @param child  the element to copy
 *  @return TARN_OK; TARN_WRONG_TYPE, also without memory for a first list, when something other
 *          than a list was stored as the embedded elements, and when the subtree of `child` holds
 *          something foreign; TARN_BAD_ARGUMENT when `child` is no element; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTMLElement_addElement(TarnHandle *element, TarnHandle *child);

/** Not implemented. @return the constant text "Not yet implemented" */
TARN_API const char *HTMLElement_toHTML(TarnHandle *element);

/** Deletes a list with its elements and their subtrees, and sets the handle to 0.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus HTMLElementList_delete(TarnHandle *list);

/** Deletes every element and the list itself, and sets the handle to 0.
 *
 *  Unlike HTMLAttributeList_clear(), which keeps the list.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus HTMLElementList_clear(TarnHandle *list);

/** Copies a list with its elements and their subtrees.
 *
 *  @param source       the list to copy
 *  @param destination  receives the copy; what it held is overwritten, not deleted
 *  @return TARN_OK; TARN_WRONG_TYPE when `source` is no list or something in it is of a foreign
 *          type; TARN_OUT_OF_MEMORY; on failure `destination` is left alone
 */
TARN_API TarnStatus HTMLElementList_clone(TarnHandle *source, TarnHandle *destination);

/** Appends a copy of an element with its subtree.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE when `list` is no list, or something foreign is in the subtree;
 *          TARN_BAD_ARGUMENT when `element` is no element; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTMLElementList_addElement(TarnHandle *list, TarnHandle *element);

/** Counts the elements. @return the count; 0 when `list` is no list */
TARN_API int HTMLElementList_getCount(TarnHandle *list);

/** Lends the element at an index.
 *
 *  @return the element; 0 when `index` is not below the count or `list` is no list
 */
TARN_API TarnHandle HTMLElementList_getByIndex(TarnHandle *list, uint32_t index);

/** Not implemented. @return the constant text "Not yet implemented." */
TARN_API const char *HTMLElementList_toHTML(TarnHandle *list);

#ifdef __cplusplus
}
#endif

#endif /* TARN_H */
