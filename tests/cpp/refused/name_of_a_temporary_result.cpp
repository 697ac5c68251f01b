// Refused: deleted
#include <tarn.hpp>

int main() {
  const tarn::File file(0);
#ifdef REFUSED
  const tarn::FileName &name = file.save("/tmp").name();
#else
  const tarn::Saved saved = file.save("/tmp");
  const tarn::FileName &name = saved.name();
#endif
  static_cast<void>(name);
}
