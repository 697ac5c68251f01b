// Refused: deleted
#include <tarn.hpp>

int main() {
  const tarn::Request request;
#ifdef REFUSED
  return request[0] ? 0 : 1;
#else
  return request.entries()[0] ? 0 : 1;
#endif
}
