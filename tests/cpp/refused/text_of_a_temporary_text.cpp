// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  return tarn::escape_html("x").view().empty() ? 1 : 0;
#else
  const tarn::Text text = tarn::escape_html("x");
  return text.view().empty() ? 1 : 0;
#endif
}
