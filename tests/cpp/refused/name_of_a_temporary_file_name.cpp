// Refused: deleted
#include <tarn.hpp>

int main() {
  const tarn::File file(0);
#ifdef REFUSED
  const std::string_view name = file.safe_name().view();
#else
  const tarn::FileName safe = file.safe_name();
  const std::string_view name = safe.view();
#endif
  return name.empty() ? 1 : 0;
}
