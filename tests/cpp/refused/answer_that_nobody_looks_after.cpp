// Refused: nodiscard
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  tarn::Response().send();
#else
  return tarn::Response().send() ? 0 : 1;
#endif
}
