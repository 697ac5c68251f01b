// Refused: deleted
#include <tarn.hpp>

int main() {
  tarn::Element item("li");
  tarn::Element list("ul");
#ifdef REFUSED
  list.add(item);
#else
  list.add(std::move(item));
#endif
}
