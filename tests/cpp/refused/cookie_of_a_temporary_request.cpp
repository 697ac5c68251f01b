// Refused: deleted
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const std::optional<std::string_view> lent = tarn::Request().cookie("a");
#else
  const tarn::Request request;
  const std::optional<std::string_view> lent = request.cookie("a");
#endif
  static_cast<void>(lent);
}
