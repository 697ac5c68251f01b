// Refused: invalid conversion|no matching
#include <tarn.hpp>

int main() {
  tarn::Element page("main");
#ifdef REFUSED
  page.add(42);
#else
  page.add("42");
#endif
}
