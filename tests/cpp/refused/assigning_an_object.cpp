// Refused: deleted
#include <tarn.hpp>

int main() {
  tarn::Cookie cookie("a", "1");
  tarn::Cookie other("b", "2");
#ifdef REFUSED
  other = cookie;
#else
  other = cookie.clone();
#endif
}
