/* Tarn for C++: the functions of tarn.h and tarn_form.h as classes that own, view and check.
 *
 * The headers need C++17. Link with -ltarn, as in C, with -ltarn_form if you use Form, FormReader,
 * Query or CheckedForm, and with -ltarn_serve if you use serve(); there is nothing else to compile or
 * link. This one includes all others, which `tarn/all.hpp` lists, except for `tarn/signed.hpp`, which
 * needs libsodium too. A script can include just those that it uses, such as `tarn/request.hpp`, and
 * compiles faster. Nothing throws, and a script that is compiled with -fno-exceptions needs no C++
 * runtime for them. (The checks of the C++ library, -D_GLIBCXX_ASSERTIONS, need it: link with
 * -lstdc++ then.)
 *
 * Conventions of all classes and functions:
 *
 *  1. Ownership. A type such as Element or Cookie owns its object and deletes it. It can be moved;
 *     to copy it, call clone(). A function that takes an object as an rvalue, such as
 *     Element::add(), moves it and does not copy it.
 *  2. Views. A type such as ElementView, Entry, File or KeptField reads an object that another one
 *     owns. It is small and cheap to copy. It is valid until the owner is changed or destroyed, and so
 *     is every std::string_view; except for a Form, also until the owner is moved from. The compiler
 *     rejects a view of a temporary. A temporary Text does have a view, to pass to a function; clang
 *     warns if you keep it (-Wdangling). A SetCookie and a Raw copy temporaries. A Field, which
 *     the next one replaces, cannot be copied.
 *  3. Missing and empty. What may be missing is a std::optional: nothing is not the empty text.
 *  4. Texts. Pass a text as a std::string_view, or as what converts to it. Objects copy it up to its
 *     first zero byte, where every text in tarn.h ends. They also take whole numbers, which they
 *     write in decimal. The name of a field or a cookie that is a `const char *` is not copied. A
 *     null pointer makes the object empty, and is the name of nothing; escapes, Stream, JsonWriter,
 *     same_origin() and CheckedForm take one for an empty text. Do not pass one as any other text.
 *     Texts that you get are null-terminated; bytes() and body() may also have zero bytes in the
 *     middle, and so may all texts of a Form or FormReader.
 *  5. Memory. An object that could not be built completely is empty, and so is any object it was
 *     added to: test it with `if (!element)`. Only clone() drops silently what could not be
 *     allocated.
 *  6. C. handle() returns what functions of tarn.h and tarn_form.h take, release() gives up
 *     ownership, and the constructor `(tarn::adopt, handle)` takes ownership. All types that own an
 *     object of those headers have them, except that a Form has only handle(): it is made from a
 *     FormReader.
 *  7. Threads. As in tarn.h, two threads may not use the same object at the same time.
 */
#ifndef TARN_HPP
#define TARN_HPP

// The list is in tarn/: GCC opens a header again if another one included it under a different name.
#include "tarn/all.hpp"

#endif  // TARN_HPP
