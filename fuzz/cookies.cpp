// Parses a Cookie header: the input is the value of HTTP_COOKIE.
#include <algorithm>
#include <cstring>

#include "request.h"

using namespace tarn_fuzz;

namespace {

constexpr size_t kCompared = 16;

int sign(int number) { return (number > 0) - (number < 0); }

int order(const Text &a, const Text &b) {
  if (a && b) return sign(std::strcmp(a->c_str(), b->c_str()));
  return static_cast<int>(a.has_value()) - static_cast<int>(b.has_value());
}

void expectOrder(TarnHandle a, TarnHandle b, const Cookie &left, const Cookie &right) {
  const int byName = order(right.name, left.name);
  EXPECT(sign(HTTPCookie_compare(&a, &b)) ==
         (byName != 0 ? byName : order(right.value, left.value)));
}

void expectRendering(TarnHandle cookie, const Cookie &expected) {
  const OwnedText text = owned(HTTPCookie_toString(&cookie));
  EXPECT(text.get() == "HTTPCookie{name=\"" + expected.name.value_or("(null)") + "\";value=\"" +
                           expected.value.value_or("(null)") +
                           "\";comment=\"(null)\";domain=\"(null)\",maxage=0;path=\"(null)\";"
                           "secure=\"no\"}");
}

}  // namespace

void fuzz(Input input) {
  const CText header(input.rest());
  Script script({{"HTTP_COOKIE", header.data()}}, "");
  TarnHandle environment = 0;
  EXPECT(CgiEnv_new(&environment) == TARN_OK);
  TarnHandle list = CGIgs_getStruct(&environment, TARN_ENVIRONMENT_COOKIES, TARN_ENVIRONMENT_MAGIC);
  const Cookies expected = tarn_rules::modelCookies(header.data());
  EXPECT(cookiesOf(list) == expected);
  for (uint32_t i = 0; i < std::min(expected.size(), kCompared); ++i) {
    expectOrder(HTTPCookieList_getByIndex(&list, 0), HTTPCookieList_getByIndex(&list, i),
                expected[0], expected[i]);
    expectRendering(HTTPCookieList_getByIndex(&list, i), expected[i]);
  }

  TarnHandle copy = 0;
  EXPECT(HTTPCookieList_clone(&list, &copy) == TARN_OK);
  EXPECT(CgiEnv_delete(&environment) == TARN_OK && environment == 0);
  EXPECT(cookiesOf(copy) == expected);
  EXPECT(HTTPCookieList_delete(&copy) == TARN_OK && copy == 0);
}
