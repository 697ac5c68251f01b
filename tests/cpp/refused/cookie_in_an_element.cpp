// Refused: no matching
#include <tarn.hpp>

int main() {
  tarn::Cookie cookie("a", "1");
  tarn::Element page("main");
  tarn::PlainHeader header;
#ifdef REFUSED
  page.add(std::move(cookie));
#else
  header.add(std::move(cookie));
#endif
}
