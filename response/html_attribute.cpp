#include "response/html_attribute.h"

using namespace tarn::internal;

// A null name or value empties its slot.
TarnStatus HTMLAttribute_init(TarnHandle *attribute, const char *name, const char *value) {
  Node *node = nodeIn(attribute, TARN_ATTRIBUTE_MAGIC);
  if (!node) return TARN_WRONG_TYPE;
  // Both are copied before the first is set: the texts may belong to the attribute itself.
  OwnedText nameCopy = copyText(name);
  OwnedText valueCopy = copyText(value);
  setText(*node, TARN_ATTRIBUTE_NAME, std::move(nameCopy));
  setText(*node, TARN_ATTRIBUTE_VALUE, std::move(valueCopy));
  return TARN_OK;
}

const char *HTMLAttribute_toHTML(TarnHandle *) { return "Not yet implemented."; }

TarnStatus HTMLAttributeList_delete(TarnHandle *list) { return Attributes::remove(list); }

TarnStatus HTMLAttributeList_clear(TarnHandle *list) { return Attributes::clear(list); }

TarnStatus HTMLAttributeList_clone(TarnHandle *source, TarnHandle *destination) {
  return Attributes::clone(source, destination);
}

TarnStatus HTMLAttributeList_addAttribute(TarnHandle *list, TarnHandle *attribute) {
  return Attributes::add(list, attribute);
}

int HTMLAttributeList_getCount(TarnHandle *list) {
  return static_cast<int>(Attributes::count(Attributes::in(list)));
}

TarnHandle HTMLAttributeList_getByIndex(TarnHandle *list, uint32_t index) {
  return Attributes::handleAt(Attributes::in(list), index);
}

const char *HTMLAttributeList_toHTML(TarnHandle *) { return "Not yet implemented."; }
