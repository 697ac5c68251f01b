// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const auto first = tarn::ElementList().begin();
#else
  const tarn::ElementList list;
  const auto first = list.begin();
#endif
  static_cast<void>(first);
}
