// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const std::optional<tarn::Entry> lent = tarn::Request().entry("a");
#else
  const tarn::Request request;
  const std::optional<tarn::Entry> lent = request.entry("a");
#endif
  static_cast<void>(lent);
}
