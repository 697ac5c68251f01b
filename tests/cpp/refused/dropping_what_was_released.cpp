// Refused: nodiscard|warn_unused_result|unused-result
#include <tarn.hpp>

int main() {
  tarn::Cookie cookie("a", "1");
#ifdef REFUSED
  cookie.release();
#else
  TarnHandle given = cookie.release();
  CGIgs_delete(&given, TARN_COOKIE_MAGIC);
#endif
}
