// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const std::string_view view = tarn::String("text").view();
#else
  const tarn::String string("text");
  const std::string_view view = string.view();
#endif
  return view.empty() ? 1 : 0;
}
