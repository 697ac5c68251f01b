// Refused: deleted
#include <tarn.hpp>

int main() {
  tarn::Response response;
#ifdef REFUSED
  tarn::Response other(response);
#else
  tarn::Response &other(response);
#endif
  return other.problem() == nullptr ? 0 : 1;
}
