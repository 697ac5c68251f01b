#include "core/text.h"
#include "core/typed_list.h"
#include "response/html_attribute.h"

namespace tarn::internal {
namespace {

TarnStatus copyTree(const Node &source, Node *&copy);
void destroyTree(Node *element);

using Elements = NodeList<TARN_ELEMENT_LIST_MAGIC, TARN_ELEMENT_MAGIC, ElementsMade::kBeforeCopying,
                          copyTree, destroyTree>;

Node *elementIn(const TarnHandle *handle) { return nodeIn(handle, TARN_ELEMENT_MAGIC); }

Node *attributesOf(const Node &element) {
  return Attributes::at(wholeNode(element).slots.structs[TARN_ELEMENT_ATTRIBUTES]);
}

Node *embeddedOf(const Node &element) {
  return Elements::at(wholeNode(element).slots.structs[TARN_ELEMENT_EMBEDDED]);
}

// Trees are walked without recursion, so that no depth can exhaust the stack. Elements still to be
// released are linked through their `fixed` slots, which nobody reads any more; copies still to be
// filled are linked through their struct slots, which also hold the source. Each function below has
// the head of such a linked list as `pending`.

// Releases the attributes of an element and adds its children to the elements to be released. The
// nodes of the two lists stay.
void releaseContents(const Node &element, Node *&pending) {
  Attributes::releaseElements(attributesOf(element));
  const Node *embedded = embeddedOf(element);
  for (uint32_t i = 0; i < Elements::count(embedded); ++i) {
    if (Node *child = Elements::ownedAt(embedded, i)) {
      wholeNode(*child).slots.fixed = handleOf(pending);
      pending = child;
    }
  }
}

void emptyTree(Node &top) {
  Node *pending = nullptr;
  releaseContents(top, pending);
  emptyNode(top);
  while (Node *element = pending) {
    pending = blockAt<Node>(wholeNode(*element).slots.fixed);
    releaseContents(*element, pending);
    destroyNode(element);
  }
}

void destroyTree(Node *element) {
  emptyTree(*element);
  destroyNode(element);
}

enum PendingSlot : uint32_t { kNextPending, kSource };

void copyLater(Node &copy, const Node &source, Node *&pending) {
  wholeNode(copy).slots.structs[kNextPending] = handleOf(pending);
  wholeNode(copy).slots.structs[kSource] = handleOf(&source);
  pending = &copy;
}

// Takes the next copy to be filled, and its source.
Node *nextPending(Node *&pending, const Node *&source) {
  Node *copy = pending;
  if (copy) {
    pending = blockAt<Node>(take(wholeNode(*copy).slots.structs[kNextPending]));
    source = blockAt<const Node>(take(wholeNode(*copy).slots.structs[kSource]));
  }
  return copy;
}

TarnStatus copyAttributes(const Node &source, Node &copy) {
  if (!wholeNode(source).slots.structs[TARN_ELEMENT_ATTRIBUTES]) return TARN_OK;
  const Node *list = attributesOf(source);
  if (!list) return TARN_WRONG_TYPE;
  Node *made = nullptr;
  const TarnStatus status = Attributes::copy(*list, made);
  setChild(copy, TARN_ELEMENT_ATTRIBUTES, made);
  return status;
}

// Gives the copy as many children as the source has, to be filled later.
TarnStatus copyEmbedded(const Node &source, Node &copy, Node *&pending) {
  if (!wholeNode(source).slots.structs[TARN_ELEMENT_EMBEDDED]) return TARN_OK;
  const Node *list = embeddedOf(source);
  if (!list) return TARN_WRONG_TYPE;
  Node *made = Elements::create();
  setChild(copy, TARN_ELEMENT_EMBEDDED, made);
  for (uint32_t i = 0; i < Elements::count(list); ++i) {
    const Node *child = Elements::nodeAtIndex(list, i);
    if (!child) return TARN_WRONG_TYPE;
    Node *childCopy = newNode(TARN_ELEMENT_MAGIC);
    if (TarnStatus status = Elements::adopt(made, childCopy)) return status;
    copyLater(*childCopy, *child, pending);
  }
  return TARN_OK;
}

TarnStatus fillElement(Node &copy, const Node &source, Node *&pending) {
  setNumber(copy, TARN_ELEMENT_NUMBER, source.number(TARN_ELEMENT_NUMBER));
  setText(copy, TARN_ELEMENT_TEXT, copyText(wholeNode(source).slots.strings[TARN_ELEMENT_TEXT]));
  setText(copy, TARN_ELEMENT_NAME, copyText(wholeNode(source).slots.strings[TARN_ELEMENT_NAME]));
  const TarnStatus status = copyAttributes(source, copy);
  return status == TARN_OK ? copyEmbedded(source, copy, pending) : status;
}

// Fills a new element. If something in the subtree cannot be copied, the element ends up without
// embedded elements. Kept: quirk 58.
TarnStatus copyInto(Node &top, const Node &source) {
  Node *pending = nullptr;
  copyLater(top, source, pending);
  TarnStatus status = TARN_OK;
  const Node *original = nullptr;
  while (Node *copy = nextPending(pending, original)) {
    if (status == TARN_OK) status = fillElement(*copy, *original, pending);
  }
  if (status != TARN_OK) Elements::store(top, TARN_ELEMENT_EMBEDDED, nullptr);
  return status;
}

TarnStatus copyTree(const Node &source, Node *&copy) {
  copy = newNode(TARN_ELEMENT_MAGIC);
  if (!copy) return TARN_OUT_OF_MEMORY;
  const TarnStatus status = copyInto(*copy, source);
  if (status != TARN_OK) destroyTree(take(copy));
  return status;
}

}  // namespace
}  // namespace tarn::internal

using namespace tarn::internal;

TarnStatus HTMLElement_delete(TarnHandle *element) {
  Node *node = elementIn(element);
  if (!node) return TARN_WRONG_TYPE;
  *element = 0;
  destroyTree(node);
  return TARN_OK;
}

TarnStatus HTMLElement_clear(TarnHandle *element) {
  Node *node = elementIn(element);
  if (!node) return TARN_WRONG_TYPE;
  emptyTree(*node);
  return TARN_OK;
}

TarnStatus HTMLElement_clone(TarnHandle *source, TarnHandle *destination) {
  const Node *node = elementIn(source);
  if (!node) return TARN_WRONG_TYPE;
  if (!destination || *destination) return TARN_BAD_ARGUMENT;
  Node *copy = newNode(TARN_ELEMENT_MAGIC);
  *destination = handleOf(copy);
  return copy ? copyInto(*copy, *node) : TARN_OK;
}

// In the usual order, unlike HTTPCookie_compare(); -1 if either is not an element. Kept: quirks 40
// and 48.
int HTMLElement_compare(TarnHandle *a, TarnHandle *b) {
  const Node *left = elementIn(a);
  const Node *right = elementIn(b);
  return left && right ? orderTexts(wholeNode(*left).slots.strings[TARN_ELEMENT_NAME],
                                    wholeNode(*right).slots.strings[TARN_ELEMENT_NAME])
                       : -1;
}

TarnStatus HTMLElement_setAttributes(TarnHandle *element, TarnHandle *attributes) {
  Node *node = elementIn(element);
  if (!node) return TARN_WRONG_TYPE;
  const Node *list = Attributes::in(attributes);
  if (!list) return TARN_BAD_ARGUMENT;
  // Copied before the old list is released: they may be the same list. If the copy fails, the old list
  // is released anyway. Kept: quirk 59.
  Node *copy = nullptr;
  const TarnStatus status = Attributes::copy(*list, copy);
  Attributes::store(*node, TARN_ELEMENT_ATTRIBUTES, copy);
  return status;
}

TarnStatus HTMLElement_addAttribute(TarnHandle *element, TarnHandle *attribute) {
  Node *node = elementIn(element);
  if (!node) return TARN_WRONG_TYPE;
  if (!nodeIn(attribute, TARN_ATTRIBUTE_MAGIC)) return TARN_BAD_ARGUMENT;
  TarnHandle &list = wholeNode(*node).slots.structs[TARN_ELEMENT_ATTRIBUTES];
  if (!list) setChild(*node, TARN_ELEMENT_ATTRIBUTES, Attributes::create());
  return list ? Attributes::add(&list, attribute) : TARN_BAD_ARGUMENT;
}

TarnStatus HTMLElement_setEmbedded(TarnHandle *element, TarnHandle *embedded) {
  Node *node = elementIn(element);
  if (!node) return TARN_WRONG_TYPE;
  const Node *list = Elements::in(embedded);
  if (!list) return TARN_BAD_ARGUMENT;
  // Copied before the old list is released: they may be the same list, or one inside the other. If the
  // copy fails, the old list is released anyway. Kept: quirk 59.
  Node *copy = nullptr;
  const TarnStatus status = Elements::copy(*list, copy);
  Elements::store(*node, TARN_ELEMENT_EMBEDDED, copy);
  return status;
}

TarnStatus HTMLElement_addElement(TarnHandle *element, TarnHandle *child) {
  Node *node = elementIn(element);
  if (!node) return TARN_WRONG_TYPE;
  if (!elementIn(child)) return TARN_BAD_ARGUMENT;
  TarnHandle &list = wholeNode(*node).slots.structs[TARN_ELEMENT_EMBEDDED];
  if (!list) setChild(*node, TARN_ELEMENT_EMBEDDED, Elements::create());
  return Elements::add(&list, child);
}

const char *HTMLElement_toHTML(TarnHandle *) { return "Not yet implemented"; }

TarnStatus HTMLElementList_delete(TarnHandle *list) { return Elements::remove(list); }

// Deletes the list, unlike HTMLAttributeList_clear(). Kept: quirk 44.
TarnStatus HTMLElementList_clear(TarnHandle *list) { return Elements::remove(list); }

TarnStatus HTMLElementList_clone(TarnHandle *source, TarnHandle *destination) {
  return Elements::clone(source, destination);
}

TarnStatus HTMLElementList_addElement(TarnHandle *list, TarnHandle *element) {
  return Elements::add(list, element);
}

int HTMLElementList_getCount(TarnHandle *list) {
  return static_cast<int>(Elements::count(Elements::in(list)));
}

TarnHandle HTMLElementList_getByIndex(TarnHandle *list, uint32_t index) {
  return Elements::handleAt(Elements::in(list), index);
}

const char *HTMLElementList_toHTML(TarnHandle *) { return "Not yet implemented."; }
