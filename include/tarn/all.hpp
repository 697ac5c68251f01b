// Internal: what tarn.hpp includes.
//
// Compilers take long to instantiate what inline functions call, even if the script does not call these
// functions. So some functions are templates, although they return one type only:
// `template <class Sent = bool> Sent send_error(...)`.
#ifndef TARN_ALL_HPP
#define TARN_ALL_HPP

// clang-format off
#include "whole_form.hpp"  // Form, KeptField and its ranges: whole forms, by name
#include "form_reader.hpp" // FormReader, FormLimits, Problem: whole forms, as a stream
#include "field.hpp"       // Field, KeptField, Blocks: their fields; FileName, Saved
#include "query.hpp"       // Query: the fields of the query string, whatever the method
#include "checked_form.hpp" // CheckedForm: checks a form and shows it again
#include "typed.hpp"       // integer(), real(), date() and others: values or reasons
#include "input.hpp"       // request_method(), request_path(), request_header()
#include "request.hpp"     // Request: environment, cookies, and a form read by the old rules
#include "form.hpp"        // Entry, Entries, Values: the fields of a Request
#include "file.hpp"        // File, Files: the files of a Request
#include "cookie.hpp"      // CookieView, Cookies; Cookie, CookieList
#include "environment.hpp" // Environment: the variables of the server, and the body
#include "response.hpp"    // Response: what the script sends
#include "send_file.hpp"   // StoredFile, for Response::send_file(): files, ranges, conditions
#include "stream.hpp"      // Stream: a body in pieces
#include "cors.hpp"        // Cors: requests of pages of other sites
#include "negotiation.hpp" // choose_type(), choose_language(): what the visitor accepts
#include "router.hpp"      // Router: chooses a function by method and path
#include "set_cookie.hpp"  // SetCookie, SameSite: for Response::cookie()
#include "origin.hpp"      // same_origin(): which site a request comes from
#include "element.hpp"     // Element, Attribute, their lists and views; Raw
#include "html.hpp"        // html(): writes an Element as HTML
#include "escape.hpp"      // escape_html(), escape_url(), escape_json() and others
#include "json.hpp"        // JsonWriter: objects, arrays, texts and numbers as JSON
#include "text.hpp"        // Text: a text, or the reason why there is none
#include "string.hpp"      // String: a string that grows
#include "header.hpp"      // PlainHeader, ResponseHeader, MultiPartHeader: headers as data
#include "serve.hpp"       // serve(): one program as a CGI script and as a FastCGI service
#include "adopt.hpp"       // adopt: for taking over handles of tarn.h

// Used by the others:
#include "object.hpp"      // the base classes of owning types
#include "view.hpp"        // the base classes of views and ranges
#include "argument.hpp"    // texts and names as arguments
#include "attribute_kind.hpp" // what is done with the value of each attribute
#include "conditions.hpp"  // conditions and ranges of requests
#include "characters.hpp"  // classes of characters, and UTF-8

// Not included here, because it needs libsodium too:
// #include "signed.hpp"   // Keys, Verified: signed texts, cookies and forms; random_id()
// clang-format on

#endif  // TARN_ALL_HPP
