// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const tarn::Environment lent = tarn::Request().environment();
#else
  const tarn::Request request;
  const tarn::Environment lent = request.environment();
#endif
  static_cast<void>(lent);
}
