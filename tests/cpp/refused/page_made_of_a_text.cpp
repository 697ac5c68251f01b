// Refused: no known conversion|could not convert|cannot convert
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  return tarn::Response().send("text") ? 0 : 1;
#else
  return tarn::Response().send_text("text") ? 0 : 1;
#endif
}
