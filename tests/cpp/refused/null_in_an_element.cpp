// Refused: deleted
#include <tarn.hpp>

int main() {
  tarn::Element page("main");
#ifdef REFUSED
  page.add(nullptr);
#else
  page.add("");
#endif
}
