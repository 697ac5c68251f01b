// Refused: deleted
#include <tarn.hpp>

int main() {
  tarn::Element item("li");
#ifdef REFUSED
  const tarn::Element list("ul", item);
#else
  const tarn::Element list("ul", item.clone());
#endif
  return list ? 0 : 1;
}
