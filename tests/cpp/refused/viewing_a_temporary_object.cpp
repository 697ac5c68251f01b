// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const tarn::CookieView view = tarn::Cookie("a", "1").view();
#else
  const tarn::Cookie cookie("a", "1");
  const tarn::CookieView view = cookie.view();
#endif
  return view ? 0 : 1;
}
