// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const tarn::Values lent = tarn::Request().all("a");
#else
  const tarn::Request request;
  const tarn::Values lent = request.all("a");
#endif
  static_cast<void>(lent);
}
