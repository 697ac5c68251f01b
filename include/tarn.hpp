/* Tarn for C++: the functions of tarn.h and tarn_form.h as classes that own, view and check.
 *
 * The headers need C++17. Link with -ltarn, as in C, with -ltarn_form if you use Form, FormReader,
 * Query or CheckedForm, and with -ltarn_serve if you use serve(); there is nothing else to compile or
 * link. This one includes all others, except for `tarn/signed.hpp`, which needs libsodium too. A
 * script can include just those that it uses, such as `tarn/request.hpp`, and compiles faster. Nothing
 * throws, and a script that is compiled with -fno-exceptions needs no C++ runtime for them. (The checks
 * of the C++ library, -D_GLIBCXX_ASSERTIONS, need it: link with -lstdc++ then.)
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
 *     null pointer makes the object empty, and is the name of nothing; do not pass one as any other
 *     text. Texts that you get are null-terminated; bytes() and body() may also have zero bytes in the
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

// clang-format off
#include "tarn/whole_form.hpp"  // Form, KeptField and its ranges: whole forms, by name
#include "tarn/form_reader.hpp" // FormReader, FormLimits, Problem: whole forms, as a stream
#include "tarn/field.hpp"       // Field, KeptField, Blocks: their fields; FileName, Saved
#include "tarn/query.hpp"       // Query: the fields of the query string, whatever the method
#include "tarn/checked_form.hpp" // CheckedForm: checks a form and shows it again
#include "tarn/typed.hpp"       // integer(), real(), date() and others: values or reasons
#include "tarn/input.hpp"       // request_method(), request_path(), request_header()
#include "tarn/request.hpp"     // Request: environment, cookies, and a form read by the old rules
#include "tarn/form.hpp"        // Entry, Entries, Values: the fields of a Request
#include "tarn/file.hpp"        // File, Files: the files of a Request
#include "tarn/cookie.hpp"      // CookieView, Cookies; Cookie, CookieList
#include "tarn/environment.hpp" // Environment: the variables of the server, and the body
#include "tarn/response.hpp"    // Response: what the script sends
#include "tarn/send_file.hpp"   // StoredFile, for Response::send_file(): files, ranges, conditions
#include "tarn/stream.hpp"      // Stream: a body in pieces
#include "tarn/cors.hpp"        // Cors: requests of pages of other sites
#include "tarn/negotiation.hpp" // choose_type(), choose_language(): what the visitor accepts
#include "tarn/router.hpp"      // Router: chooses a function by method and path
#include "tarn/set_cookie.hpp"  // SetCookie, SameSite: for Response::cookie()
#include "tarn/origin.hpp"      // same_origin(): which site a request comes from
#include "tarn/element.hpp"     // Element, Attribute, their lists and views; Raw
#include "tarn/html.hpp"        // html(): writes an Element as HTML
#include "tarn/escape.hpp"      // escape_html(), escape_url(), escape_json() and others
#include "tarn/json.hpp"        // JsonWriter: objects, arrays, texts and numbers as JSON
#include "tarn/text.hpp"        // Text: a text, or the reason why there is none
#include "tarn/string.hpp"      // String: a string that grows
#include "tarn/header.hpp"      // PlainHeader, ResponseHeader, MultiPartHeader: headers as data
#include "tarn/serve.hpp"       // serve(): one program as a CGI script and as a FastCGI service
#include "tarn/adopt.hpp"       // adopt: for taking over handles of tarn.h

// Used by the others:
#include "tarn/object.hpp"      // the base classes of owning types
#include "tarn/view.hpp"        // the base classes of views and ranges
#include "tarn/argument.hpp"    // texts and names as arguments
#include "tarn/attribute_kind.hpp" // what is done with the value of each attribute
#include "tarn/conditions.hpp"  // conditions and ranges of requests
#include "tarn/characters.hpp"  // classes of characters, and UTF-8

// Not included here, because it needs libsodium too. Include it yourself:
// #include "tarn/signed.hpp"   // Keys, Verified: signed texts, cookies and forms; random_id()
// clang-format on

#endif  // TARN_HPP
