// How requests are read, written a second time and for nothing but plainness, so that inputs nobody
// thought of have something to be compared with.
#ifndef TARN_TESTS_SUPPORT_RULES_H
#define TARN_TESTS_SUPPORT_RULES_H

#include <string>

#include "support/form.h"

namespace tarn_test {

// Of URL-encoded text without zero bytes.
Entries modelEntries(const std::string &text);

// Of a cookie header.
Cookies modelCookies(const std::string &header);

// Of a multipart body, and what a single part adds to a form.
Form modelForm(const std::string &contentType, const std::string &body);
void modelPart(Form &form, const std::string &part);

}  // namespace tarn_test

#endif
