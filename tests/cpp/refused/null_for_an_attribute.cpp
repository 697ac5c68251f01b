// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const tarn::Attribute value("value", nullptr);
#else
  const tarn::Attribute value("value", "");
#endif
  return value ? 0 : 1;
}
