// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const tarn::SetCookie cookie("name", nullptr);
#else
  const tarn::SetCookie cookie("name", "");
#endif
  tarn::Response().cookie(cookie);
}
