// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const char *text = tarn::String("text").c_str();
#else
  const tarn::String string("text");
  const char *text = string.c_str();
#endif
  return *text == 0 ? 1 : 0;
}
