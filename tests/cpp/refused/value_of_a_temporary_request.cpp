// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const std::optional<std::string_view> lent = tarn::Request()["a"];
#else
  const tarn::Request request;
  const std::optional<std::string_view> lent = request["a"];
#endif
  static_cast<void>(lent);
}
