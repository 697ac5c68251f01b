// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const tarn::CookieView first = tarn::CookieList()[0];
#else
  const tarn::CookieList list;
  const tarn::CookieView first = list[0];
#endif
  return first ? 1 : 0;
}
