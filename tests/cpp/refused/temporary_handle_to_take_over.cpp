// Refused: bind|no matching|rvalue
#include <tarn.hpp>

int main() {
  TarnHandle handle = 0;
#ifdef REFUSED
  const tarn::Cookie cookie(tarn::adopt, TarnHandle(handle));
#else
  const tarn::Cookie cookie(tarn::adopt, handle);
#endif
  return cookie ? 0 : 1;
}
