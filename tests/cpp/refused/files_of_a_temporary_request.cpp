// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const tarn::Files lent = tarn::Request().files();
#else
  const tarn::Request request;
  const tarn::Files lent = request.files();
#endif
  static_cast<void>(lent);
}
