/* Tarn for C++: the interface of tarn.h as types that own, view and check.
 *
 * One header over the C interface, C++17: nothing to compile, nothing exported. It throws nothing,
 * and a script that is compiled with -fno-exceptions needs no C++ runtime for it. (The C++ library's
 * own checks, -D_GLIBCXX_ASSERTIONS, do: link with -lstdc++ then.)
 *
 * Conventions that hold for every type and function:
 *
 *  1. Ownership. A type such as Element or Cookie owns its object and releases it. It can be moved;
 *     a copy is asked for by clone(). What takes an object as an rvalue (an element its children)
 *     takes it over, without a copy.
 *  2. Views. A type such as ElementView, Entry or File reads an object that belongs to another one.
 *     It is as small as a pointer and copied like one, and lives as long as what lent it: until
 *     that is changed, moved from or gone. So does every std::string_view. A view of a temporary
 *     object does not compile.
 *  3. Missing and empty. What may be missing is a std::optional: nothing is not the empty text.
 *  4. Texts. A text that you pass is a std::string_view and is copied; it counts up to its first
 *     zero byte, as all texts of the interface do. Names to look for are `const char *`. Neither
 *     may be a null pointer. A text that is lent has a zero byte after its end; bytes() and body()
 *     may have some in the middle too.
 *  5. Memory. What could not be made whole holds nothing, and neither does what it was to be part
 *     of: `if (!element)` asks. Only a clone() lacks silently what memory did not suffice for.
 *  6. C. handle() gives the address that a function of tarn.h takes, release() gives an object
 *     away, and each type has a constructor `(tarn::adopt, handle)` that takes one over.
 *  7. Threads. As in tarn.h: no object may be used from two threads at once.
 */
#ifndef TARN_HPP
#define TARN_HPP

// In the order of the reference.
// clang-format off
#include "tarn/request.hpp"     // Request: what a script begins with
#include "tarn/form.hpp"        // Entry, Entries, Values: the fields of a form
#include "tarn/file.hpp"        // File, FileName, Saved: uploaded files
#include "tarn/cookie.hpp"      // CookieView, Cookies; Cookie, CookieList
#include "tarn/environment.hpp" // Environment: the server's variables and the body
#include "tarn/response.hpp"    // Response: the header and body that the script sends
#include "tarn/set_cookie.hpp"  // SetCookie, SameSite: for Response::cookie()
#include "tarn/element.hpp"     // Element, Attribute, their lists and views; Raw
#include "tarn/html.hpp"        // html(): writes an Element
#include "tarn/escape.hpp"      // escape_html(), escape_url(), escape_json() and others
#include "tarn/text.hpp"        // Text: a text, or the reason why there is none
#include "tarn/string.hpp"      // String: a text that grows
#include "tarn/header.hpp"      // PlainHeader, ResponseHeader, MultiPartHeader: headers as data
#include "tarn/object.hpp"      // what all owning types share
#include "tarn/view.hpp"        // what all views and ranges share
#include "tarn/adopt.hpp"       // adopt: for taking over handles of tarn.h
#include "tarn/characters.hpp"  // used by the others
// clang-format on

#endif  // TARN_HPP
