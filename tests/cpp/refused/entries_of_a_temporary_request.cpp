// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const tarn::Entries lent = tarn::Request().entries();
#else
  const tarn::Request request;
  const tarn::Entries lent = request.entries();
#endif
  static_cast<void>(lent);
}
