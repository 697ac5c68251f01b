// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const std::optional<tarn::File> lent = tarn::Request().file("a");
#else
  const tarn::Request request;
  const std::optional<tarn::File> lent = request.file("a");
#endif
  static_cast<void>(lent);
}
