// Refused: no matching|cannot convert
#include <tarn.hpp>

int main() {
  const tarn::Request request;
  tarn::Element page("main");
#ifdef REFUSED
  page.add(request["name"]);
#else
  page.add(request["name"].value_or("stranger"));
#endif
}
