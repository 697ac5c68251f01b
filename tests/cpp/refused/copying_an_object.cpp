// Refused: deleted
#include <tarn.hpp>

int main() {
  const tarn::Element page("main");
#ifdef REFUSED
  const tarn::Element copy = page;
#else
  const tarn::Element copy = page.clone();
#endif
  return copy ? 0 : 1;
}
