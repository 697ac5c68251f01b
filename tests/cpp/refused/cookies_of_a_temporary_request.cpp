// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const tarn::Cookies lent = tarn::Request().cookies();
#else
  const tarn::Request request;
  const tarn::Cookies lent = request.cookies();
#endif
  static_cast<void>(lent);
}
