// Refused: deleted
#include <tarn.hpp>

int main() {
  const tarn::Request request;
#ifdef REFUSED
  const tarn::Request copy = request.clone();
#else
  const tarn::Request &copy = request;
#endif
  return copy ? 0 : 1;
}
