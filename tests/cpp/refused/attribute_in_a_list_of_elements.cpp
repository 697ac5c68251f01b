// Refused: no matching|cannot convert
#include <tarn.hpp>

int main() {
  tarn::Attribute id("id", "x");
  tarn::ElementList elements;
  tarn::AttributeList attributes;
#ifdef REFUSED
  elements.add(std::move(id));
#else
  attributes.add(std::move(id));
#endif
  return elements && attributes ? 0 : 1;
}
