/* Tarn: a library for CGI scripts in C and C++. This is the C interface.
 *
 * Conventions that hold for every function:
 *
 *  1. Handles. You reach an object through a variable of type TarnHandle that you own. Set it to 0
 *     before you create an object in it and pass its address to every operation; the matching
 *     delete sets it back to 0. A null handle address is accepted everywhere and counts as a handle
 *     that holds nothing.
 *  2. Statuses. A function that can fail returns a TarnStatus: TARN_OK (0) or one of the codes
 *     below. The type of a handle is tested before anything else, unless the function says
 *     otherwise. Getters have no status: they return 0, a null pointer or 0.0 instead.
 *  3. Ownership. Putting an object into another one (a child into a node, an entry into a list, a
 *     cookie list into a header) stores a deep copy. What you passed stays yours, to change or to
 *     delete.
 *  4. Borrowing. A `const char *` or a TarnHandle that a getter or a lookup returns is borrowed: it
 *     belongs to the object that holds it and is valid until that object is changed, cleared or
 *     deleted. To use a borrowed TarnHandle, store it in a variable of your own and pass that
 *     variable's address; never delete through it.
 *  5. Texts. A text is a sequence of bytes that ends at the first zero byte, in whatever encoding
 *     the browser sent; lengths count bytes. If a function allocates a text for you, its
 *     description says so, and you release it with free().
 *  6. Case. Comparisons of names and values ignore the case of ASCII letters, as strcasecmp() does;
 *     a function that compares otherwise says so.
 *  7. Memory. If an allocation fails, a function that makes an object may return TARN_OK and leave
 *     or set the handle to 0: test the handle. Other functions may return TARN_WRONG_TYPE if an
 *     inner object could not be made. What was there before is kept unless the function says
 *     otherwise.
 *  8. Threads. A script has one thread. No object may be used from two threads at once; the library
 *     has no locks.
 *  9. Your part. Tarn cannot detect a handle that still names a deleted object, a borrowed object
 *     that you delete, a text without its final zero byte, a length beyond your data, or a
 *     read-only argument that a function writes to. Even with valid handles and arguments, these
 *     calls can damage memory, at once or later: (a) adding to the generic list behind a typed
 *     list, or handing over to the typed list in a new one, any word except 0 and the address of an
 *     object that nobody else owns or deletes, or the same word twice; (b) putting anything but a
 *     text from malloc(), owned by nobody else, into the list of header lines; (c) changing `fixed`
 *     or int 0 of a byte buffer; (d) passing CGIgs_setList() anything but an object that you own,
 *     for slots 0 and 1 a generic list, or passing the same one twice, into itself or into what it
 *     holds; (e) letting two lists name the same element or header line (see CGIgs_clone()), or an
 *     element hold itself, and then clearing, deleting, filling or replacing both by type. All
 *     other calls are safe, in any order.
 *
 * Some results look odd and stay as they are because scripts rely on them. Each has a number, in
 * the page "Quirks" of the documentation (docs/quirks.md), and comments here refer to it.
 *
 * This header is valid C99 and C++11.
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

/* Each status means the same for every function. */
#define TARN_OK 0u              /* done */
#define TARN_BAD_ARGUMENT 1u    /* a null argument, an index out of range, a handle in use */
#define TARN_WRONG_TYPE 2u      /* the handle holds nothing, or an object of another type */
#define TARN_OUT_OF_MEMORY 4u   /* an allocation failed */
#define TARN_NOT_IMPLEMENTED 5u /* only Tarn_clear() */
#define TARN_NO_ENVIRONMENT 6u  /* no environment: Tarn_new(), Tarn_parseFormInput() */

/* The type tags, for CGIgs_new(), CGIgs_delete() and the other node operations. Entry and file
 * lists share a tag, and so do attribute and element lists: each passes the other's type test
 * (quirk 45). */
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
 * Every object except the generic list and the string is a node: a type tag and fixed slots.
 *
 *   slot        indexes   holds
 *   list        0, 1      a generic list, owned by the node (its elements are not)
 *   struct      0 .. 2    a child node, owned by the node, with the tag it was stored under
 *   string      0 .. 7    a text or a run of bytes, owned by the node
 *   int         0 .. 2    a 32-bit number, signed or unsigned as you read it
 *   double      0         a real number in single precision
 *   fixed       (none)    one pointer-sized value that the node does not interpret
 *
 * A generic list made by TARNGenericList_new() and a string made by TARNString_new() are not nodes:
 * CGIgs_IsA() and CGIgs_getMagic() read their tags, and every other operation here treats them as
 * the wrong type, whatever tag you pass (quirk 73).
 *
 * @param handle  the node
 * @param magic   the tag that the node must have; 0 accepts any node
 * @param value   what to store
 */

/** An empty text, which some functions return instead of a text of their own; never free it. */
TARN_API extern const char *CGIgs_empty_string;

/** Creates an empty node.
 *
 *  If memory runs out, the status is still TARN_OK and the handle stays 0: test the handle
 *  (quirk 68).
 *
 *  Under the tag of a generic list or a string, the result is a node and also an empty list or
 *  string without an array or a buffer (quirk 73). The two keep their contents apart: CGIgs_clone()
 *  copies only the node; any delete that accepts it deletes both.
 *
 *  @param handle  where to put the node; must hold 0
 *  @param magic   the type tag, not 0
 *  @return TARN_OK; TARN_BAD_ARGUMENT when `handle` is null or in use, or `magic` is 0
 */
TARN_API TarnStatus CGIgs_new(TarnHandle *handle, uint32_t magic);

/** Deletes a node with its lists, children and strings, and sets the handle to 0.
 *
 *  Neither the elements of its lists nor what `fixed` points at is released.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus CGIgs_delete(TarnHandle *handle, uint32_t magic);

/** Empties a node and keeps it with its tag.
 *
 *  Lists, children, numbers, `fixed` and strings 0 and 1 are released or zeroed. Strings 2 to 7
 *  stay and can still be read (quirk 69).
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
 *  Lists are copied as lists: the copy's list has the same elements, not copies of them (quirk 71).
 *  Of two such typed lists, only one may be cleared, deleted or replaced by its type; delete the
 *  other with CGIgs_delete(). FormEntryList_clone() and its like make independent copies. `fixed`
 *  is shared too. A string slot filled by CGIgs_setNString() is copied up to its first zero byte.
 *  If there is no memory for the node itself, the status is TARN_OK and `destination` stays 0.
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
 *  The node then owns the list: do not delete it through your own handle. A list that the slot held
 *  is deleted first; handing over the list that is already there changes nothing. Index 2 is
 *  accepted and sets struct slot 0 (quirk 70): the list is parked there, and CGIgs_getList() does
 *  not show it, until the node is cleared or the slot is set again; a child that was in the slot is
 *  lost. A node parked like this is released as a list is, with all it owns.
 *
 *  @param index  0 or 1 (2: see above)
 *  @param list   the list's handle; null or 0 empties the slot. Its type is not checked: see
 *                conventions 9 (a), (b) and (d).
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `index` is above 2
 */
TARN_API TarnStatus CGIgs_setList(TarnHandle *handle, uint32_t index, TarnHandle *list,
                                  uint32_t magic);

/** Stores a deep copy of a node as a child.
 *
 *  A child that the slot held is deleted. Lists inside the child are copied as CGIgs_clone() copies
 *  them: both lists then name the same elements. With `childMagic` 0 the slot ends up empty
 *  (quirk 72).
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
 *  If memory runs out, the slot is empty and the status is still TARN_OK (quirk 68).
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
 *  an unused block of `size` bytes allocated to the end of the process (quirk 75).
 *
 *  @param index  0 to 7
 *  @param data   copied
 *  @param size   in bytes
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `index` is above 7; TARN_OUT_OF_MEMORY,
 *          with the slot empty
 */
TARN_API TarnStatus CGIgs_setNString(TarnHandle *handle, uint32_t index, const void *data,
                                     uint32_t size, uint32_t magic);

/** Stores a number. Do not set index 0 of a byte buffer: see convention 9 (c).
 *
 *  @param index  0 to 2
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `index` is above 2
 */
TARN_API TarnStatus CGIgs_setInt(TarnHandle *handle, uint32_t index, uint32_t value,
                                 uint32_t magic);

/** Stores the opaque value; the node never follows or frees it. Do not set that of a byte buffer:
 *  see convention 9 (c).
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus CGIgs_setFixed(TarnHandle *handle, uintptr_t value, uint32_t magic);

/** Stores a real number, rounded to single precision (quirk 74): 0.1 reads back as
 *  0.10000000149011612.
 *
 *  @param index  0
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `index` is not 0
 */
TARN_API TarnStatus CGIgs_setDouble(TarnHandle *handle, uint32_t index, double value,
                                    uint32_t magic);

/** Returns the list in a slot, borrowed. Conventions 9 (a) and (b) limit what you may put into it.
 *
 *  @param index  0 or 1
 *  @return the list; 0 if there is none, or for the wrong type or index
 */
TARN_API TarnHandle CGIgs_getList(TarnHandle *handle, uint32_t index, uint32_t magic);

/** Returns the child in a slot, or the list that is parked there (see CGIgs_setList()), borrowed.
 *
 *  @param index  0 to 2
 *  @return the child; 0 if there is none, or for the wrong type or index
 */
TARN_API TarnHandle CGIgs_getStruct(TarnHandle *handle, uint32_t index, uint32_t magic);

/** Returns an object's tag.
 *
 *  @return the tag; 0 if the handle holds nothing
 */
TARN_API uint32_t CGIgs_getMagic(TarnHandle *handle);

/** Returns the tag under which a child was stored.
 *
 *  @param index  0 to 2
 *  @return the tag; 0 if there is no child, or for the wrong type or index
 */
TARN_API uint32_t CGIgs_getChildMagic(TarnHandle *handle, uint32_t index, uint32_t magic);

/** Returns the text in a slot, borrowed.
 *
 *  @param index  0 to 7
 *  @return the text; null if there is none, or for the wrong type or index
 */
TARN_API const char *CGIgs_getString(TarnHandle *handle, uint32_t index, uint32_t magic);

/** Returns a number.
 *
 *  @param index  0 to 2
 *  @return the number; 0 for the wrong type or index
 */
TARN_API uint32_t CGIgs_getInt(TarnHandle *handle, uint32_t index, uint32_t magic);

/** Returns the opaque value.
 *
 *  @return the value; 0 for the wrong type
 */
TARN_API uintptr_t CGIgs_getFixed(TarnHandle *handle, uint32_t magic);

/** Returns the real number, converted exactly.
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
 * points at. Its capacity grows in steps of ten: 0, 10, 20, 30 ...
 *
 * A generic list that you got from a typed list, a response header or an element still belongs to
 * that object: conventions 9 (a) and (b) limit what you may put into it.
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

/** Deletes a list and sets the handle to 0; anything else is left alone (quirk 76). Elements are
 *  not freed.
 *
 *  @return always TARN_OK
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

/** Fills a list with `capacity` words from `source`. The name is spelt this way (quirk 77). See
 *  conventions 9 (a) and (b) for a list that another object owns.
 *
 *  The array that the list had is emptied and stays allocated to the end of the process. If memory
 *  runs out, the list has no array and every element reads as 0.
 *
 *  @param source    at least `capacity` words; null counts as words of 0
 *  @param count     the new count, not checked; elements beyond the capacity read as 0
 *  @param capacity  the new capacity
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus ATRNGenericList_init(TarnHandle *handle, const void *source, uint32_t count,
                                         uint32_t capacity);

/** Copies a list; both then hold the same words. If only the array cannot be allocated, the
 *  elements of the copy read as 0.
 *
 *  @param source       the list to copy
 *  @param destination  where to put the copy; must hold 0
 *  @return TARN_OK; TARN_WRONG_TYPE for `source`; TARN_BAD_ARGUMENT when `destination` is null or
 *          in use; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus TARNGenericList_clone(TarnHandle *source, TarnHandle *destination);

/** Returns the number of elements.
 *
 *  @return the count; 0 for the wrong type
 */
TARN_API uint32_t TARNGenericList_getCount(TarnHandle *handle);

/** Returns the number of elements that fit before the list grows.
 *
 *  @return the capacity; 0 for the wrong type
 */
TARN_API uint32_t TARNGenericList_getCapacity(TarnHandle *handle);

/** Returns the array, borrowed until the list grows or is deleted.
 *
 *  It has as many words as the capacity, unless a growth has failed.
 *
 *  @return the array; null if there is none yet, and for the wrong type
 */
TARN_API uintptr_t *TARNGenericList_getData(TarnHandle *handle);

/** Appends a word. See conventions 9 (a) and (b) for a list that another object owns.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_OUT_OF_MEMORY: the elements are as they were,
 *          but the capacity has grown (quirk 78)
 */
TARN_API TarnStatus TARNGenericList_addDatum(TarnHandle *handle, uintptr_t value);

/** Returns the element at an index.
 *
 *  @return the word; 0 if `index` is not below the count, and for the wrong type
 */
TARN_API uintptr_t TARNGenericList_getByIndex(TarnHandle *handle, uint32_t index);

/** Raises the capacity in steps of ten until it is at least `n`. If memory runs out on the way, the
 *  steps that succeeded are kept, and the capacity also counts the step that failed (quirk 78).
 *
 *  @param n  in elements; more than 4,294,967,290 fails at the first step
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus TARNGenericList_reserve(TarnHandle *handle, uint32_t n);

/** Sets the element at an index; beyond the count, the count becomes `index` + 1 (quirk 79). See
 *  conventions 9 (a) and (b) for a list that another object owns.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `index` is not below the capacity;
 *          TARN_OUT_OF_MEMORY after an earlier failed growth
 */
TARN_API TarnStatus TARNGenericList_setByIndex(TarnHandle *handle, uint32_t index, uintptr_t value);

/* ---- Dynamic string: TARNString ----------------------------------------------------------------
 *
 * A string is a text that grows. It is not a node but a record of its own: its tag, its capacity in
 * bytes as a signed number, its buffer. The length is not stored; the text ends at its first zero
 * byte. A failed allocation can cost a string its buffer (quirk 65): it then reads as an empty
 * text, and the next write makes a new buffer.
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
 *  @return TARN_OK, even if there was no memory for the buffer; TARN_WRONG_TYPE for `source`;
 *          TARN_BAD_ARGUMENT when `target` is null or in use; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus TARNString_dup(TarnHandle *source, TarnHandle *target);

/** Replaces the text.
 *
 *  If the text is longer than the capacity, the new capacity is its length plus 16 (quirk 64). Only
 *  TARNString_clear() makes the capacity smaller.
 *
 *  @param text  copied; may be the string's own
 *  @return TARN_OK, even if memory ran out or the text has 2 GiB, and the string is now empty
 *          (quirk 65); TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `text` is null
 */
TARN_API TarnStatus TARNString_set(TarnHandle *handle, const char *text);

/** Replaces the text by that of another string.
 *
 *  @return as TARNString_set(); TARN_BAD_ARGUMENT when `source` is not a string
 */
TARN_API TarnStatus TARNString_set_string(TarnHandle *handle, TarnHandle *source);

/** Returns the length of the text. @return the length in bytes; 0 if `handle` is not a string */
TARN_API uint32_t TARNString_length(TarnHandle *handle);

/** Empties the text and sets the capacity to 0: the next text that is not empty gets a new buffer.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus TARNString_clear(TarnHandle *handle);

/** Returns the text, borrowed until the string is changed or deleted.
 *
 *  @return the text; an empty one, never to be freed, if `handle` is not a string; null if the
 *          string has no buffer: a growth has failed, or CGIgs_new() has just made it (quirk 66)
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
 *          null, whatever the object (quirk 56); otherwise as TARNString_insertn()
 */
TARN_API TarnStatus TARNString_appendn(TarnHandle *handle, const char *text, uint32_t offset,
                                       uint32_t count);

/** Appends the text of another string. A source that is not a string appends nothing and succeeds
 *  (quirk 66).
 *
 *  @return TARN_BAD_ARGUMENT when `source` has no buffer (see TARNString_c_str()), tested first;
 *          otherwise as TARNString_append()
 */
TARN_API TarnStatus TARNString_append_string(TarnHandle *handle, TarnHandle *source);

/** Appends formatted text.
 *
 *  @param format  as for printf(); never a text that a visitor sent
 *  @return as TARNString_append(); TARN_BAD_ARGUMENT when `format` is null, whatever the handle,
 *          and when formatting fails
 */
TARN_API TarnStatus TARNString_append_sprintf(TarnHandle *handle, const char *format, ...)
    TARN_PRINTF(2, 3);

/** Inserts a text.
 *
 *  @param text      copied; may be the string's own
 *  @param position  in bytes; beyond the text, the text does not change (quirk 63)
 *  @return as TARNString_insertn()
 */
TARN_API TarnStatus TARNString_insert(TarnHandle *handle, const char *text, uint32_t position);

/** Inserts part of a text.
 *
 *  If the new text and its zero byte do not fit, the new capacity is their size plus 16 (quirk 64).
 *  If the source ends before `count` bytes, zero bytes are inserted instead, and the text ends
 *  there (quirk 62).
 *
 *  @param text      copied; may be the string's own
 *  @param offset    in bytes, into `text`; must not be beyond its end
 *  @param count     in bytes; 0 means the length of the whole of `text`, despite the offset
 *                   (quirk 61)
 *  @param position  in bytes; beyond the text, the text does not change; the capacity may grow
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
 *          and when formatting fails
 */
TARN_API TarnStatus TARNString_insert_sprintf(TarnHandle *handle, uint32_t position,
                                              const char *format, ...) TARN_PRINTF(3, 4);

/** Removes bytes from the text.
 *
 *  @param position  in bytes; beyond the text, nothing changes
 *  @param count     in bytes; 0, or more than there are, means all up to the end
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus TARNString_remove(TarnHandle *handle, uint32_t position, uint32_t count);

/** Makes a string of part of the text.
 *
 *  @param start   in bytes; beyond the text, or negative, makes an empty string
 *  @param count   in bytes; 0, or more than there are, means all up to the end
 *  @param result  where to put the string, which you delete; must hold 0. If its text cannot be
 *                 allocated, it is empty.
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_OUT_OF_MEMORY; TARN_BAD_ARGUMENT when `result` is null or
 *          in use, tested last
 */
TARN_API TarnStatus TARNString_substr(TarnHandle *handle, int32_t start, uint32_t count,
                                      TarnHandle *result);

/** Compares a string's text with another text, byte by byte.
 *
 *  @param text  the text to compare with
 *  @return as strcmp(); -1 if `handle` is not a string; 1 if `text` is null
 */
TARN_API int32_t TARNString_compare(TarnHandle *handle, const char *text);

/** Compares the texts of two strings, byte by byte.
 *
 *  @param other  the string to compare with
 *  @return as strcmp(); -1 if either is not a string
 */
TARN_API int32_t TARNString_compare_string(TarnHandle *handle, TarnHandle *other);

/** Writes the text to standard output. @return as TARNString_fprint() */
TARN_API TarnStatus TARNString_print(TarnHandle *handle);

/** Writes the text to a stream.
 *
 *  @return TARN_OK, even if writing failed (quirk 67); TARN_WRONG_TYPE;
 *          TARN_BAD_ARGUMENT when `stream` is null; TARN_OUT_OF_MEMORY when the string has no
 *          buffer
 */
TARN_API TarnStatus TARNString_fprint(TarnHandle *handle, FILE *stream);

/** Writes the text and a newline to standard output. @return as TARNString_fprint() */
TARN_API TarnStatus TARNString_printline(TarnHandle *handle);

/** Writes the text and a newline to a stream. @return as TARNString_fprint() */
TARN_API TarnStatus TARNString_fprintline(TarnHandle *handle, FILE *stream);

/** Makes the capacity at least the length of the text plus `requested` bytes; if it grows, to
 *  exactly that.
 *
 *  @param requested  in bytes
 *  @return TARN_OK, even if memory ran out or the capacity would exceed 2 GiB, and the string is as
 *          it was (quirk 65); TARN_WRONG_TYPE
 */
TARN_API TarnStatus TARNString_reserve(TarnHandle *handle, uint32_t requested);

/* ---- Formatted allocation and text utilities ---------------------------------------------------
 *
 * @param stream  where to read or write; may be null
 */

/** Formats into a new block.
 *
 *  @param out     receives the text, which you free with free(); null if memory runs out or
 *                 formatting fails. May itself be null: the text is then dropped.
 *  @param format  as for vprintf()
 *  @param args    as for vprintf()
 *  @return the length of the text in bytes; 0 if there is none
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

/** Returns an environment variable.
 *
 *  @param name  may be null
 *  @return the value itself, in the process environment; an empty text if unset; never null; do not
 *          free or change it
 */
TARN_API char *safeGetenv(const char *name);

/** Compares two texts, ignoring the case of ASCII letters.
 *
 *  @param a,b  either may be null
 *  @return 0 if they are equal or both null (quirk 35); negative or positive as for strcasecmp();
 *          -1 if only `a` is null, 1 if only `b` is
 */
TARN_API int stringsAreEqual(const char *a, const char *b);

/** Compares at most `n` bytes of two texts, ignoring the case of ASCII letters.
 *
 *  @param a,b  either may be null
 *  @param n    in bytes
 *  @return as stringsAreEqual()
 */
TARN_API int nStringsAreEqual(const char *a, const char *b, uint32_t n);

/** Decodes URL-encoded text: "+" becomes a space, "%" and two digits the byte they name.
 *
 *  Digits are not checked: see hexToChar(). Digits missing at the end count as zero bytes and end
 *  the text (quirk 33); so does a decoded zero byte (quirk 34).
 *
 *  @param text  not changed; may be null
 *  @return new text, which you free with free(); null if `text` is null or memory runs out
 */
TARN_API char *unescapeString(const char *text);

/** Converts two hexadecimal digits to a byte.
 *
 *  Any character is accepted as a digit (quirk 32): from "A" upward, bytes from 0x80 included, it
 *  counts as a letter (bit 0x20 cleared, minus 55), otherwise as a decimal digit (minus 48); the
 *  result is cut to eight bits.
 *
 *  @param high,low  the digits
 *  @return the byte
 */
TARN_API unsigned char hexToChar(char high, char low);

/** Runs a command through the shell with ";", "|", "<" and ">" escaped by a backslash.
 *
 *  This does not make a command safe (quirk 36): quotation marks, "&", "$", backquotes and newlines
 *  reach the shell. Never pass it text that a visitor sent; use posix_spawn() or execve() with an
 *  argument list.
 *
 *  @param command  what the shell is to run; may be null
 *  @return what system() returns; if memory runs out, what it returns for a null command; -1 if
 *          `command` is null
 */
TARN_API int saferSystem(const char *command);

/** Finds the first occurrence of a byte sequence in another.
 *
 *  @param haystack                     where to search
 *  @param haystackLength,needleLength  in bytes; an empty needle is found at the start
 *  @param needle                       what to find
 *  @return its address inside `haystack`; null if there is none or either pointer is null
 */
TARN_API void *memfind(const void *haystack, uint32_t haystackLength, const void *needle,
                       uint32_t needleLength);

/** Copies the bytes between the first `open` and the `close` that follows it.
 *
 *  It reads beyond the data (quirk 37). Without a `close`, the result runs to the end of the data
 *  and one byte beyond, normally the text's final zero byte. `close` is searched for in `length`
 *  minus the length of `open` bytes after `open`: if `open` is not at the start, that range extends
 *  past the data by the number of bytes before `open`. `data` must be readable that far.
 *
 *  @param data        the bytes to search
 *  @param length      of `data`, in bytes
 *  @param open,close  the texts before and after
 *  @return a new byte buffer, which you delete with CGIgs_delete() and TARN_BYTE_BUFFER_MAGIC; it
 *          is empty if an argument is null, `open` is not found, there is nothing between, or there
 *          is no memory for the bytes; 0 if there is no memory for the buffer
 */
TARN_API TarnHandle extractBetween(const void *data, uint32_t length, const char *open,
                                   const char *close);

/** extractBetween() with one delimiter on both sides.
 *
 *  @param data,length  as for extractBetween()
 *  @param delimiter    the text before and after
 *  @return as extractBetween()
 */
TARN_API TarnHandle extractBetween1(const void *data, uint32_t length, const char *delimiter);

/** Copies a text without leading and trailing spaces, tabs, line feeds and carriage returns.
 *
 *  @param text  may be null
 *  @return new text, which you free with free(); null if `text` is null or memory runs out
 */
TARN_API char *stripString(const char *text);

/** Reads what writeLong() and writeString() wrote: a count, then text. White space at the start of
 *  the text is lost (quirk 38).
 *
 *  @return at most count - 1 bytes, up to and including a newline, which you free with free(); an
 *          empty text if the count is below 2; null if `stream` is null or memory runs out
 */
TARN_API char *readString(FILE *stream);

/** Writes a space, the text and a space; nothing if either argument is null.
 *
 *  @code
 *  // plus one, so that readString() returns the whole text
 *  writeLong(stream, (long)strlen(text) + 1);
 *  writeString(stream, text);
 *  @endcode
 *
 *  @param text  may be null
 */
TARN_API void writeString(FILE *stream, const char *text);

/** Reads a decimal number and the white space around it.
 *
 *  @return the number; 0 if there is none or `stream` is null
 */
TARN_API long readLong(FILE *stream);

/** Writes a space, the number and a space; nothing if `stream` is null.
 *
 *  @param value  the number
 */
TARN_API void writeLong(FILE *stream, long value);

/* ---- Byte buffer: CGIfb ------------------------------------------------------------------------
 *
 * A byte buffer is a node (TARN_BYTE_BUFFER_MAGIC) that holds a run of bytes: `fixed` is their
 * address, and a zero byte follows them. The bytes stay allocated to the end of the process, and
 * copies of the node share them (quirk 31).
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
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `data` is null or `length` is 0,
 *          contents kept; TARN_OUT_OF_MEMORY, contents lost
 */
TARN_API TarnStatus CGIfb_setData(TarnHandle *buffer, const void *data, uint32_t length);

/* ---- CGI environment: CgiEnv -------------------------------------------------------------------
 *
 * An environment is a node (TARN_ENVIRONMENT_MAGIC) with what was captured when it was made. There
 * is no body if none was read, and no cookie list if HTTP_COOKIE is unset.
 *
 * The cookie header is split at every ";". A piece makes a cookie with the name before its first
 * "=" and the value after it, both trimmed and URL-decoded; a piece without "=", even the empty one
 * after a trailing ";", makes a cookie whose name and value are null (quirk 29).
 *
 * Since names are decoded, anyone who can set a cookie can send one that appears here under a name
 * with the prefix "__Host-" or "__Secure-", spelled "__%48ost-", which browsers do not protect
 * (quirk 30). For such names, compare the name in HTTP_COOKIE itself; the guide to cookies has a
 * function for it.
 *
 * The getters read the process environment when they are called and never the handle (quirk 28).
 *
 * @param handle  the environment
 * @param stream  ignored
 */

/** The slots of an environment. */
enum TarnEnvironmentSlot {
  TARN_ENVIRONMENT_CONTENT_LENGTH = 0, /* int: CONTENT_LENGTH, as a signed number; 0 if unset */
  TARN_ENVIRONMENT_HTTPS = 1,          /* int: 1 if HTTPS is "on", in lower case, else 0 */
  TARN_ENVIRONMENT_BODY = 0,           /* struct: the body of a POST, a byte buffer */
  TARN_ENVIRONMENT_COOKIES = 1         /* struct: the cookies of HTTP_COOKIE, a list */
};

/** Captures the environment; for a POST with a body, reads CONTENT_LENGTH bytes of standard input.
 *
 *  Bytes that do not arrive are zero (quirk 26). The body can be read only once in a process. The
 *  environment is made, and the handle set, even if the body could not be read or kept (quirk 27).
 *
 *  A signal does not end the reading, which goes on when the handler returns. To limit a slow
 *  upload, call alarm() and leave SIGALRM its default action, or use a handler that does not
 *  return.
 *
 *  @param handle  where to put it; must hold 0
 *  @return TARN_OK; TARN_BAD_ARGUMENT when `handle` is null or in use, when there is no memory for
 *          the environment (the handle stays 0), and when CONTENT_LENGTH is negative or more than
 *          can be allocated (nothing is read then); TARN_WRONG_TYPE when the body was read but
 *          could not be kept
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
 *  @return TARN_OK; TARN_WRONG_TYPE, also when there is no memory for a buffer; TARN_BAD_ARGUMENT
 *          when `data` is null or `length` is 0; TARN_OUT_OF_MEMORY. Unless the status is TARN_OK,
 *          the old body stays.
 */
TARN_API TarnStatus CgiEnv_setPostData(TarnHandle *handle, const void *data, uint32_t length);

/** Does nothing. @return TARN_OK */
TARN_API TarnStatus CgiEnv_save(TarnHandle *handle, FILE *stream);

/** Does nothing. @return TARN_OK */
TARN_API TarnStatus CgiEnv_restore(TarnHandle *handle, FILE *stream);

/* Each getter below reads one variable. Texts are those of the process environment: never null,
 * empty if unset, not to be freed. Numbers are decimal, 0 if unset, and clamped to 32 bits
 * (quirk 25). */

/** SERVER_SOFTWARE. @return borrowed text, never null */
TARN_API const char *CgiEnv_getServerSoftware(TarnHandle *handle);
/** SERVER_NAME. @return borrowed text, never null */
TARN_API const char *CgiEnv_getServerName(TarnHandle *handle);
/** GATEWAY_INTERFACE. @return borrowed text, never null */
TARN_API const char *CgiEnv_getGatewayInterface(TarnHandle *handle);
/** SERVER_PROTOCOL. @return borrowed text, never null */
TARN_API const char *CgiEnv_getServerProtocol(TarnHandle *handle);
/** SERVER_PORT. @return the number; 0 if unset */
TARN_API int32_t CgiEnv_getServerPort(TarnHandle *handle);
/** HTTP_COOKIE, the raw header. @return borrowed text, never null */
TARN_API const char *CgiEnv_getCookies(TarnHandle *handle);
/** REQUEST_METHOD. @return borrowed text, never null */
TARN_API const char *CgiEnv_getRequestMethod(TarnHandle *handle);
/** PATH_INFO. @return borrowed text, never null */
TARN_API const char *CgiEnv_getPathInfo(TarnHandle *handle);
/** PATH_TRANSLATED. @return borrowed text, never null */
TARN_API const char *CgiEnv_getPathTranslated(TarnHandle *handle);
/** SCRIPT_NAME. @return borrowed text, never null */
TARN_API const char *CgiEnv_getScriptName(TarnHandle *handle);
/** QUERY_STRING. @return borrowed text, never null */
TARN_API const char *CgiEnv_getQueryString(TarnHandle *handle);
/** CONTENT_LENGTH, in bytes, as it is now. @return the number; 0 if unset */
TARN_API int32_t CgiEnv_getContentLength(TarnHandle *handle);
/** CONTENT_TYPE. @return borrowed text, never null */
TARN_API const char *CgiEnv_getContentType(TarnHandle *handle);
/** HTTP_REFERER. @return borrowed text, never null */
TARN_API const char *CgiEnv_getReferrer(TarnHandle *handle);
/** REMOTE_HOST. @return borrowed text, never null */
TARN_API const char *CgiEnv_getRemoteHost(TarnHandle *handle);
/** REMOTE_ADDR. @return borrowed text, never null */
TARN_API const char *CgiEnv_getRemoteAddr(TarnHandle *handle);
/** AUTH_TYPE. @return borrowed text, never null */
TARN_API const char *CgiEnv_getAuthType(TarnHandle *handle);
/** REMOTE_USER. @return borrowed text, never null */
TARN_API const char *CgiEnv_getRemoteUser(TarnHandle *handle);
/** REMOTE_IDENT. @return borrowed text, never null */
TARN_API const char *CgiEnv_getRemoteIdent(TarnHandle *handle);
/** HTTP_ACCEPT. @return borrowed text, never null */
TARN_API const char *CgiEnv_getAccept(TarnHandle *handle);
/** HTTP_USER_AGENT. @return borrowed text, never null */
TARN_API const char *CgiEnv_getUserAgent(TarnHandle *handle);
/** REDIRECT_REQUEST. @return borrowed text, never null */
TARN_API const char *CgiEnv_getRedirectRequest(TarnHandle *handle);
/** REDIRECT_URL. @return borrowed text, never null */
TARN_API const char *CgiEnv_getRedirectURL(TarnHandle *handle);
/** REDIRECT_STATUS. @return borrowed text, never null */
TARN_API const char *CgiEnv_getRedirectStatus(TarnHandle *handle);

/* ---- Form entries: FormEntry, FormEntryList ----------------------------------------------------
 *
 * An entry (TARN_FORM_ENTRY_MAGIC) is one field of a form: a name, a value and the value's length.
 * Create one with CGIgs_new(), release it with CGIgs_delete().
 *
 * A list (TARN_FORM_ENTRY_LIST_MAGIC) owns copies of entries, in order. A value with a zero byte in
 * it is complete in your own entry; the text of a list's copy ends at that byte, while the length
 * stays (quirk 11).
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
 *  @param name    null for no name
 *  @param data    the value's bytes; null only with `length` 0
 *  @param length  in bytes
 *  @return TARN_OK; TARN_WRONG_TYPE; otherwise as FormEntry_setValue(), but with the name set
 *          (quirk 42)
 */
TARN_API TarnStatus FormEntry_init(TarnHandle *entry, const char *name, const void *data,
                                   uint32_t length);

/** Sets an entry's value and puts a zero byte after it.
 *
 *  @param data    null only with `length` 0: an empty text
 *  @param length  in bytes
 *  @return TARN_OK; TARN_WRONG_TYPE; with the entry unchanged, TARN_BAD_ARGUMENT for null data with
 *          a length, and TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus FormEntry_setValue(TarnHandle *entry, const void *data, uint32_t length);

/** Compares two entries by name, then by value.
 *
 *  @param a,b  the entries
 *  @return negative, 0 or positive; 0 if either is not an entry (quirk 40); -1 if `b` has no name,
 *          or, when the names are equal, no value
 */
TARN_API int32_t FormEntry_compare(TarnHandle *a, TarnHandle *b);

/** Compares an entry's name with a text.
 *
 *  @param name  the text to compare with
 *  @return as stringsAreEqual(); -1 if `entry` is not an entry or `name` is null (quirk 40)
 */
TARN_API int32_t FormEntry_compareName(TarnHandle *entry, const char *name);

/** Compares an entry's value, up to its first zero byte, with a text.
 *
 *  @param value  the text to compare with
 *  @return as stringsAreEqual(); -1 if `entry` is not an entry or `value` is null
 */
TARN_API int32_t FormEntry_compareValue(TarnHandle *entry, const char *value);

/** Copies the value without leading and trailing white space; see stripString().
 *
 *  A copy is kept in the entry (TARN_ENTRY_STRIPPED_VALUE).
 *
 *  @return new text, which you free with free() despite the `const` (quirk 39); null if the entry
 *          has no value or memory runs out; CGIgs_empty_string, not to be freed, if `entry` is not
 *          an entry
 */
TARN_API const char *FormEntry_getStrippedValue(TarnHandle *entry);

/** Reads the value as a decimal number, clamped to 32 bits (quirk 25).
 *
 *  @return the number, up to the first byte that is not a digit; 0 if there is none
 */
TARN_API int32_t FormEntry_getIntegerValue(TarnHandle *entry);

/** Reads the value as a real number, as atof() does.
 *
 *  @return the number; 0.0 if there is none
 */
TARN_API double FormEntry_getDoubleValue(TarnHandle *entry);

/** Not implemented. @return the constant text "Not yet implemented" */
TARN_API const char *FormEntry_toString(TarnHandle *entry);

/** Appends a copy of an entry to a list.
 *
 *  A name may occur more than once; lookups find the first.
 *
 *  @param list   a form entry list (a file list passes too: quirk 45)
 *  @param entry  the entry to copy
 *  @return TARN_OK; TARN_WRONG_TYPE when `list` is not a list; TARN_BAD_ARGUMENT when `entry` is
 *          not an entry; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus FormEntryList_addEntry(TarnHandle *list, TarnHandle *entry);

/** Returns the number of entries. @return the number; 0 if `list` is not such a list */
TARN_API int32_t FormEntryList_getCount(TarnHandle *list);

/** Returns the entry at an index, borrowed.
 *
 *  @return the entry; 0 if `index` is not below the count or `list` is not such a list
 */
TARN_API TarnHandle FormEntryList_getByIndex(TarnHandle *list, uint32_t index);

/** Makes room for `capacity` entries; does nothing to a list that has never had an entry
 *  (quirk 46).
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
 *  @param destination  receives the copy; what it held is overwritten, not deleted (quirk 47)
 *  @return TARN_OK; TARN_WRONG_TYPE when `source` is not a list or holds something that is not an
 *          entry; TARN_OUT_OF_MEMORY; on failure `destination` is left alone
 */
TARN_API TarnStatus FormEntryList_clone(TarnHandle *source, TarnHandle *destination);

/** Not implemented. @return the constant text "Not yet implemented." */
TARN_API const char *FormEntryList_toHTML(TarnHandle *list);

/* ---- Uploaded files: FormFile, FormFileList ----------------------------------------------------
 *
 * A file (TARN_FORM_FILE_MAGIC) is one uploaded file. Only the bytes before the first CR LF (13,
 * 10) arrive; the rest is dropped without an error (quirk 1). A PNG image arrives as four bytes.
 * The file name is what a visitor sent, decoded (quirk 10): it may contain "../", quotation marks
 * and control characters.
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
 *  @param length                          of `data`, in bytes; 0 makes a file without bytes
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when an argument is null, file unchanged
 */
TARN_API TarnStatus FormFile_init(TarnHandle *file, const char *name, const char *fileName,
                                  const char *contentType, const void *data, uint32_t length);

/** Tells whether field name, file name and content type of two files are equal.
 *
 *  @param a,b  the files
 *  @return 0 if they are; 1 if not, or if either is not a file (quirk 40). The bytes are not
 *          compared.
 */
TARN_API uint32_t FormFile_compare(TarnHandle *a, TarnHandle *b);

/** Compares a file's field name with a text.
 *
 *  @param name  the text to compare with
 *  @return as stringsAreEqual(); 1 if `file` is not a file or `name` is null (quirk 40)
 */
TARN_API int32_t FormFile_compareName(TarnHandle *file, const char *name);

/** Writes a file's bytes to a stream, without flushing it. An uploaded file ends before its first
 *  CR LF (quirk 1).
 *
 *  @param stream  where to write
 *  @return 1 if the stream refused a byte (the rest is still tried: quirk 43), or if `stream` is
 *          null and there are bytes to write; otherwise 0, also if `file` is not a file
 */
TARN_API uint32_t FormFile_writeToStream(TarnHandle *file, FILE *stream);

/** Returns the number of a file's bytes: in an uploaded file, those before its first CR LF.
 *
 *  @return the number; 0 if `file` is not a file
 */
TARN_API uint32_t FormFile_getDataLength(TarnHandle *file);

/** Appends a copy of a file to a list.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE when `list` is not a list; TARN_BAD_ARGUMENT when `file` is
 *          not a file; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus FormFileList_addEntry(TarnHandle *list, TarnHandle *file);

/** Returns the number of files. @return the number; 0 if `list` is not such a list */
TARN_API int32_t FormFileList_getCount(TarnHandle *list);

/** Returns the file at an index, borrowed.
 *
 *  @return the file; 0 if `index` is not below the count or `list` is not such a list
 */
TARN_API TarnHandle FormFileList_getByIndex(TarnHandle *list, uint32_t index);

/** Makes room for `capacity` files; does nothing to a list that has never had a file (quirk 46).
 *
 *  @param capacity  in files
 */
TARN_API void FormFileList_reserve(TarnHandle *list, uint32_t capacity);

/** Deletes every file and the list itself, and sets the handle to 0.
 *
 *  This differs from FormEntryList_clear(), which keeps the list (quirk 44).
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
 *  @param destination  receives the copy; what it held is overwritten, not deleted (quirk 47)
 *  @return TARN_OK; TARN_WRONG_TYPE when `source` is not a list or holds something that is not a
 *          file; TARN_OUT_OF_MEMORY; on failure `destination` is left alone
 */
TARN_API TarnStatus FormFileList_clone(TarnHandle *source, TarnHandle *destination);

/** Not implemented. @return the constant text "Not yet implemented." */
TARN_API const char *FormFileList_toHTML(TarnHandle *list);

/* ---- Request: Tarn -----------------------------------------------------------------------------
 *
 * A request is a node (TARN_REQUEST_MAGIC) that holds the environment, the entries and the files.
 * Lookups return the first match.
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

/** Reads the request: environment, cookies and body; parses the form.
 *
 *  For a POST it parses the body, for any other method the query string (quirk 3). A CONTENT_TYPE
 *  that begins with "multipart/form-data" means multipart, anything else URL-encoded, whatever the
 *  method (quirk 2). A signal does not end the reading of a slow body: see CgiEnv_new().
 *  Tarn_isComplete() tells whether everything arrived and was kept (quirk 15).
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
 *          Tarn_parseFormInput(), or TARN_OK when a POST has no body to parse. If there is no
 *          memory for the request, the handle stays 0 (quirk 16).
 */
TARN_API TarnStatus Tarn_new(TarnHandle *handle);

/** Deletes a request with all it holds and sets the handle to 0.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus Tarn_delete(TarnHandle *handle);

/** Does nothing. @return TARN_NOT_IMPLEMENTED */
TARN_API TarnStatus Tarn_clear(TarnHandle *handle);

/** Returns a fixed date (quirk 21). @return the text "Jul 17 2007" */
TARN_API const char *Tarn_getCompileDate(TarnHandle *handle);
/** Returns a fixed time (quirk 21). @return the text "14:49:31" */
TARN_API const char *Tarn_getCompileTime(TarnHandle *handle);
/** Returns the version (quirk 21). @return the text "1.0.0" */
TARN_API const char *Tarn_getVersion(TarnHandle *handle);
/** Returns a placeholder (quirk 21). @return the text "Set this to the platform we compiled for" */
TARN_API const char *Tarn_getHost(TarnHandle *handle);

/** Does nothing. */
TARN_API void Tarn_save(TarnHandle *handle, FILE *stream);
/** Does nothing. */
TARN_API void Tarn_restore(TarnHandle *handle, FILE *stream);

/** Tells whether the request holds everything that was sent and could be parsed.
 *
 *  Ask before you store anything: Tarn_new() returns TARN_OK even if memory ran out for some of the
 *  fields, files or cookies, or if the body broke off (quirk 15). What the rules of parsing leave
 *  out does not count as lost: the rest of a multipart value after its first CR LF; a multipart
 *  body whose boundary is missing from CONTENT_TYPE or quoted there; a piece without "=";
 *  URL-encoded text after a zero byte; a body without a valid CONTENT_LENGTH; the body of a request
 *  other than POST.
 *
 *  @code
 *  if (!Tarn_isComplete(&request)) {
 *    puts("Status: 400 Bad Request");
 *    puts("Content-Type: text/plain\n\nPlease send it again.");
 *    ...
 *  @endcode
 *
 *  @return 1 if it does; 0 if something could not be allocated, in Tarn_new() or a later
 *          Tarn_parseFormInput(), Tarn_parsePair() or Tarn_parseMime(), if the body ended before
 *          CONTENT_LENGTH or was too long to read, and if `handle` holds no request or one without
 *          an environment
 */
TARN_API uint32_t Tarn_isComplete(TarnHandle *handle); /* since TARN_1.1 */

/** Tells whether a checkbox was ticked (quirk 19): its field has the value "on", in any case.
 *
 *  @return 1 or 0
 */
TARN_API uint32_t Tarn_queryCheckbox(TarnHandle *handle, const char *name);

/** Finds the first entry with this name.
 *
 *  In a form that was sent as multipart/form-data, a value ends at its first CR LF: a text area
 *  arrives as its first line (quirk 1).
 *
 *  @param name  null finds the first entry without a name (quirk 18); files in the entry list are
 *               skipped
 *  @return the entry, borrowed; 0 if there is none
 */
TARN_API TarnHandle Tarn_getElementByName(TarnHandle *handle, const char *name);

/** Does the same as Tarn_getElementByName(): despite its name, it compares names (quirk 17).
 *
 *  @param text  the name to look for
 *  @return as Tarn_getElementByName()
 */
TARN_API TarnHandle Tarn_getElementByValue(TarnHandle *handle, const char *text);

/** Finds the first file whose field has this name.
 *
 *  The file holds what was sent before the first CR LF (bytes 13 and 10), and there is no way to
 *  tell whether more followed (quirk 1).
 *
 *  @param name  null finds the first file without a field name; entries in the file list are
 *               skipped
 *  @return the file, borrowed; 0 if there is none
 */
TARN_API TarnHandle Tarn_getFile(TarnHandle *handle, const char *name);

/** Appends copies of all entries with this name to a list that you have made. A null name finds the
 *  entries without a name; files in the entry list are skipped.
 *
 *  @param unused       ignored
 *  @param destination  a form entry list
 *  @return 1 if an append failed, which ends the copying; otherwise 0 (quirk 20)
 */
TARN_API uint32_t Tarn_findEntries(TarnHandle *handle, const char *name, uint32_t unused,
                                   TarnHandle *destination);

/** Parses a form and appends its entries and files to the request.
 *
 *  CONTENT_TYPE, at the time of the call, decides between multipart and URL-encoded. `input` is
 *  tested before the handle.
 *
 *  URL-encoded text is split at every "&", and each piece is parsed as in Tarn_parsePair(). A
 *  multipart body is split at each delimiter: "--", what follows "boundary=" in CONTENT_TYPE
 *  (quirk 4), and CR LF; each part is parsed as in Tarn_parseMime(). The bytes before the first
 *  delimiter are skipped; the closing delimiter has no meaning (quirk 5).
 *
 *  @param input   URL-encoded text with its final zero byte, or a multipart body; not changed
 *  @param length  of a multipart body, in bytes; ignored for URL-encoded text (quirk 13)
 *  @return TARN_OK, even if single fields were lost; TARN_BAD_ARGUMENT when `input` is null;
 *          TARN_NO_ENVIRONMENT when the request has none, or `handle` is not a request
 */
TARN_API TarnStatus Tarn_parseFormInput(TarnHandle *handle, char *input, uint32_t length);

/** Appends the entry for one "name=value"; a text without "=" makes none (quirk 12).
 *
 *  The text is split at its first "=", and both sides are decoded as by unescapeString().
 *
 *  @param pair  its first "=" is overwritten with a zero byte (quirk 14)
 */
TARN_API void Tarn_parsePair(TarnHandle *handle, char *pair);

/** Appends the entry or file for one part of a multipart body.
 *
 *  The value runs from the blank line after the headers to the first CR LF after it; without one it
 *  is empty (quirk 1). A part without a blank line makes nothing. A part with a file name that is
 *  not empty makes a file, any other an entry. The file name is decoded as by unescapeString(); a
 *  file without a field name or a content type is appended empty (quirk 9).
 *
 *  Field name, file name and content type are found by their marks anywhere in the part (quirks 6
 *  and 7), and the content type includes the header lines after it (quirk 8).
 *
 *  @param part    the bytes between two delimiters; the CR that ends the last header line is
 *                 overwritten with a zero byte, in your memory (quirk 14)
 *  @param length  in bytes; nothing beyond is read
 */
TARN_API void Tarn_parseMime(TarnHandle *handle, const uint8_t *part, uint32_t length);

/* ---- Cookies: HTTPCookie, HTTPCookieList -------------------------------------------------------
 *
 * A cookie (TARN_COOKIE_MAGIC) is created with CGIgs_new() and released with CGIgs_delete(). A list
 * (TARN_COOKIE_LIST_MAGIC) owns copies of cookies, in order. Nothing is checked or escaped
 * (quirk 57).
 *
 * @param cookie  the cookie
 * @param list    the list
 * @param index   counted from 0, in order of appending
 * @param maxAge  in seconds; its low 32 bits are stored
 * @param secure  0 for no; stored as given
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

/** Empties a cookie and sets its fields.
 *
 *  @param name,value           copied; neither may be null
 *  @param comment,domain,path  may be null
 *  @return TARN_BAD_ARGUMENT when `name` or `value` is null, tested first (quirk 50);
 *          TARN_WRONG_TYPE; TARN_OK
 */
TARN_API TarnStatus HTTPCookie_init(TarnHandle *cookie, const char *name, const char *value,
                                    const char *comment, const char *domain, long maxAge,
                                    const char *path, int secure);

/** Compares two cookies by name, then by value, byte by byte, in reverse: b with a (quirk 48).
 *
 *  @param a,b  the cookies
 *  @return positive if `a` sorts before `b`, negative if after; 0 if they are equal or either is
 *          not a cookie (quirk 40). A missing name or value sorts before any text.
 */
TARN_API int HTTPCookie_compare(TarnHandle *a, TarnHandle *b);

/** Returns the max-age. @return the seconds; 0 if `cookie` is not a cookie */
TARN_API long HTTPCookie_getMaxAge(TarnHandle *cookie);

/** Sets the max-age. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTTPCookie_setMaxAge(TarnHandle *cookie, long maxAge);

/** Returns the secure flag. @return the flag as it was set; 0 if `cookie` is not a cookie */
TARN_API int HTTPCookie_isSecure(TarnHandle *cookie);

/** Sets the secure flag. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTTPCookie_setSecure(TarnHandle *cookie, int secure);

/** Formats a cookie as one line for a log or a debugger; not a Set-Cookie header (quirk 49).
 *
 *  Unset texts print as (null). A copy is kept in the cookie (TARN_COOKIE_RENDERED).
 *
 *  @return new text, which you free with free() despite the `const` (quirk 39); CGIgs_empty_string,
 *          not to be freed, if `cookie` is not a cookie or memory runs out
 */
TARN_API const char *HTTPCookie_toString(TarnHandle *cookie);

/** Deletes a list with its cookies and sets the handle to 0. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTTPCookieList_delete(TarnHandle *list);

/** Deletes every cookie; the list stays, empty. @return TARN_OK; TARN_WRONG_TYPE */
TARN_API TarnStatus HTTPCookieList_clear(TarnHandle *list);

/** Copies a list with its cookies.
 *
 *  @param source       the list to copy
 *  @param destination  receives the copy; what it held is overwritten, not deleted (quirk 47)
 *  @return TARN_OK; TARN_WRONG_TYPE when `source` is not a list or holds something that is not a
 *          cookie; TARN_OUT_OF_MEMORY; on failure `destination` is left alone
 */
TARN_API TarnStatus HTTPCookieList_clone(TarnHandle *source, TarnHandle *destination);

/** Appends a copy of a cookie; a name may occur more than once.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE when `list` is not a list; TARN_BAD_ARGUMENT when `cookie` is
 *          not a cookie; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTTPCookieList_addCookie(TarnHandle *list, TarnHandle *cookie);

/** Returns the number of cookies. @return the number; 0 if `list` is not such a list */
TARN_API int HTTPCookieList_getCount(TarnHandle *list);

/** Returns the cookie at an index, borrowed. Names are decoded: a name with a prefix such as
 *  "__Host-" proves nothing here (quirk 30), see CgiEnv_new().
 *
 *  @return the cookie; 0 if `index` is not below the count or `list` is not such a list
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
 * They only hold data: the script writes the response to the browser itself.
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

/** Empties a header and sets its content type and cookies.
 *
 *  @param contentType  copied
 *  @param cookies      the list to copy; if null, the content type is stored and the status is
 *                      TARN_BAD_ARGUMENT (quirk 52)
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `contentType` is null or `cookies` is
 *          not a cookie list (header unchanged), and when `cookies` is null or cannot be copied
 *          (content type stored, no cookies)
 */
TARN_API TarnStatus HTTPHeader_init(TarnHandle *header, const char *contentType,
                                    TarnHandle *cookies);

/** Replaces a header's cookies by a copy of a list.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `cookies` is not a cookie list, and
 *          when it cannot be copied, with no cookies left (quirk 55)
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

/** Empties a response header and sets its texts and number; does nothing if either text is null
 *  (quirk 53).
 *
 *  Tarn does not interpret the three: they can be an HTTP version, a status code and a reason
 *  phrase, for example.
 *
 *  @param first,second  two texts, copied
 *  @param number        stored as int 0
 *
 *  @return TARN_OK, even if nothing was done; TARN_WRONG_TYPE
 */
TARN_API TarnStatus HTTPResponseHeader_init(TarnHandle *header, const char *first, int number,
                                            const char *second);

/** Returns the generic list of header lines, borrowed; its words are `char *`, also borrowed. A
 *  line that could not be allocated is null. Convention 9 (b) limits what you may put into the
 *  list.
 *
 *  @return the list; 0 if no line was added or `header` is not a response header
 */
TARN_API TarnHandle HTTPResponseHeader_getHeaderList(TarnHandle *header);

/** Appends a copy of a header line, as given.
 *
 *  @param line  a text, usually "Name: value"; not checked (quirk 57)
 *
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `line` is null; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTTPResponseHeader_addHeader(TarnHandle *header, const char *line);

/** Replaces a response header's cookies by a copy of a list.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `cookies` is not a cookie list;
 *          otherwise the status of copying it (quirk 55)
 */
TARN_API TarnStatus HTTPResponseHeader_setCookieList(TarnHandle *header, TarnHandle *cookies);

/** Appends a copy of a cookie to a response header's list.
 *
 *  A header that has no list yet gets an empty one, and the cookie is lost (quirk 54): add the
 *  first cookie of such a header twice, or call HTTPResponseHeader_setCookieList() first.
 *
 *  @param cookie  the cookie to copy
 *  @return TARN_OK, even for the cookie that is lost; TARN_WRONG_TYPE, also when there is no memory
 *          for the empty list, and when something other than a cookie list was stored as the
 *          cookies; TARN_BAD_ARGUMENT when `cookie` is not a cookie; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTTPResponseHeader_addCookie(TarnHandle *header, TarnHandle *cookie);

/** Sets the four texts of a part's header.
 *
 *  @param disposition,name,fileName,contentType  copied; null empties the slot
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
 * one tag and pass each other's type test (quirk 45); an error shows only at the first element of
 * the other type. A tree may have any depth. Nothing is checked or escaped (quirk 57).
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
 *  @param name,value  copied; null empties the slot
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
 *  @param destination  receives the copy; what it held is overwritten, not deleted (quirk 47)
 *  @return TARN_OK; TARN_WRONG_TYPE when `source` is not a list or holds something that is
 *          not an attribute; TARN_OUT_OF_MEMORY; on failure `destination` is left alone
 */
TARN_API TarnStatus HTMLAttributeList_clone(TarnHandle *source, TarnHandle *destination);

/** Appends a copy of an attribute; a name may occur more than once.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE when `list` is not a list; TARN_BAD_ARGUMENT when `attribute`
 *          is no attribute; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTMLAttributeList_addAttribute(TarnHandle *list, TarnHandle *attribute);

/** Returns the number of attributes. @return the number; 0 if `list` is not such a list */
TARN_API int HTMLAttributeList_getCount(TarnHandle *list);

/** Returns the attribute at an index, borrowed.
 *
 *  @return the attribute; 0 if `index` is not below the count or `list` is not such a list
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

/** Copies an element with its whole subtree: names, second texts, numbers, attributes and embedded
 *  elements, but no other slot. If there is no memory for the element itself, the status is TARN_OK
 *  and `destination` stays 0.
 *
 *  @param source       the element to copy
 *  @param destination  where to put the copy; must hold 0
 *  @return TARN_OK; TARN_WRONG_TYPE for `source`; TARN_BAD_ARGUMENT when `destination` is null or
 *          in use; otherwise, with part of the copy in `destination` (quirk 58), TARN_WRONG_TYPE
 *          when a list holds something of another type, TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTMLElement_clone(TarnHandle *source, TarnHandle *destination);

/** Compares two elements by name, byte by byte: a with b.
 *
 *  @param a,b  the elements
 *  @return negative if `a` sorts before `b` or either is not an element (quirk 40); otherwise 0 or
 *          positive. A missing name sorts before any text.
 */
TARN_API int HTMLElement_compare(TarnHandle *a, TarnHandle *b);

/** Replaces an element's attributes by a copy of a list.
 *
 *  @param attributes  the list to copy
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `attributes` is not a list; otherwise
 *          the status of copying it, with no attributes left if that failed (quirk 59)
 */
TARN_API TarnStatus HTMLElement_setAttributes(TarnHandle *element, TarnHandle *attributes);

/** Appends a copy of an attribute to an element's attributes.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE, also when something other than a list was stored as the
 *          attributes; TARN_BAD_ARGUMENT when `attribute` is not an attribute, and when there is no
 *          memory for the first list (quirk 60); TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTMLElement_addAttribute(TarnHandle *element, TarnHandle *attribute);

/** Replaces an element's embedded elements by a copy of a list, subtrees included.
 *
 *  @param embedded  the list to copy
 *  @return TARN_OK; TARN_WRONG_TYPE; TARN_BAD_ARGUMENT when `embedded` is not a list; otherwise the
 *          status of copying it, with no elements left if that failed (quirk 59)
 */
TARN_API TarnStatus HTMLElement_setEmbedded(TarnHandle *element, TarnHandle *embedded);

/** Appends a copy of an element, with its subtree, to the embedded elements of another.
 *
 *  A child is copied when it is added. To build a deep tree in linear time, work from the top down
 *  and add each child to the copy of its parent inside the tree (HTMLElementList_getByIndex()).
 *
 *  @param child  the element to copy
 *  @return TARN_OK; TARN_WRONG_TYPE, also when there is no memory for the first list (quirk 60),
 *          when something other than a list was stored as the embedded elements, and when the
 *          subtree of `child` holds something of another type; TARN_BAD_ARGUMENT when `child` is
 *          not an element; TARN_OUT_OF_MEMORY
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
 *  This differs from HTMLAttributeList_clear(), which keeps the list (quirk 44).
 *
 *  @return TARN_OK; TARN_WRONG_TYPE
 */
TARN_API TarnStatus HTMLElementList_clear(TarnHandle *list);

/** Copies a list with its elements and their subtrees.
 *
 *  @param source       the list to copy
 *  @param destination  receives the copy; what it held is overwritten, not deleted (quirk 47)
 *  @return TARN_OK; TARN_WRONG_TYPE when `source` is not a list or something in it is of another
 *          type; TARN_OUT_OF_MEMORY; on failure `destination` is left alone
 */
TARN_API TarnStatus HTMLElementList_clone(TarnHandle *source, TarnHandle *destination);

/** Appends a copy of an element with its subtree.
 *
 *  @return TARN_OK; TARN_WRONG_TYPE when `list` is not a list, or when the subtree holds something
 *          of another type; TARN_BAD_ARGUMENT when `element` is not an element; TARN_OUT_OF_MEMORY
 */
TARN_API TarnStatus HTMLElementList_addElement(TarnHandle *list, TarnHandle *element);

/** Returns the number of elements. @return the number; 0 if `list` is not such a list */
TARN_API int HTMLElementList_getCount(TarnHandle *list);

/** Returns the element at an index, borrowed.
 *
 *  @return the element; 0 if `index` is not below the count or `list` is not such a list
 */
TARN_API TarnHandle HTMLElementList_getByIndex(TarnHandle *list, uint32_t index);

/** Not implemented. @return the constant text "Not yet implemented." */
TARN_API const char *HTMLElementList_toHTML(TarnHandle *list);

#ifdef __cplusplus
}
#endif

#endif /* TARN_H */
