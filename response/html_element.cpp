#include "core/node_list.h"
#include "core/text.h"
#include "response/html_attribute.h"

namespace tarn {
namespace {

TarnStatus copyTree(const Node &source, Node *&copy);
void destroyTree(Node *element);

using Elements = NodeList<TARN_ELEMENT_LIST_MAGIC, TARN_ELEMENT_MAGIC, Begins::kBeforeTheCopy,
                          copyTree, destroyTree>;

Node *elementIn(const TarnHandle *handle) { return nodeIn(handle, TARN_ELEMENT_MAGIC); }

Node *attributesOf(const Node &element) {
  return Attributes::at(element.structs[TARN_ELEMENT_ATTRIBUTES]);
}

Node *embeddedOf(const Node &element) {
  return Elements::at(element.structs[TARN_ELEMENT_EMBEDDED]);
}

// Trees are walked without recursion, so that no depth can exhaust a stack. Elements that wait to
// be released hang on a chain through their `fixed` slots, which nobody reads any more; copies that
// wait to be filled, on one through their struct slots, which also name the source.

// Releases the attributes of an element and hangs its children on the chain. The lists' own nodes
// stay, with the element.
void strip(const Node &element, Node *&chain) {
  Attributes::releaseElements(attributesOf(element));
  const Node *embedded = embeddedOf(element);
  for (uint32_t i = 0; i < Elements::count(embedded); ++i) {
    if (Node *child = Elements::ownedAt(embedded, i)) {
      child->fixed = handleOf(chain);
      chain = child;
    }
  }
}

void emptyTree(Node &top) {
  Node *chain = nullptr;
  strip(top, chain);
  emptyNode(top);
  while (Node *element = chain) {
    chain = blockAt<Node>(element->fixed);
    strip(*element, chain);
    destroyNode(element);
  }
}

void destroyTree(Node *element) {
  emptyTree(*element);
  destroyNode(element);
}

enum Waiting : uint32_t { kNextCopy, kSource };

void await(Node &copy, const Node &source, Node *&chain) {
  copy.structs[kNextCopy] = handleOf(chain);
  copy.structs[kSource] = handleOf(&source);
  chain = &copy;
}

// The next copy to be filled, with its source.
Node *nextWaiting(Node *&chain, const Node *&source) {
  Node *copy = chain;
  if (copy) {
    chain = blockAt<Node>(take(copy->structs[kNextCopy]));
    source = blockAt<const Node>(take(copy->structs[kSource]));
  }
  return copy;
}

TarnStatus copyAttributes(const Node &source, Node &copy) {
  if (!source.structs[TARN_ELEMENT_ATTRIBUTES]) return TARN_OK;
  const Node *list = attributesOf(source);
  if (!list) return TARN_WRONG_TYPE;
  Node *made = nullptr;
  const TarnStatus status = Attributes::copy(*list, made);
  setChild(copy, TARN_ELEMENT_ATTRIBUTES, made);
  return status;
}

// Gives the copy as many children as the source has, which wait to be filled.
TarnStatus copyEmbedded(const Node &source, Node &copy, Node *&chain) {
  if (!source.structs[TARN_ELEMENT_EMBEDDED]) return TARN_OK;
  const Node *list = embeddedOf(source);
  if (!list) return TARN_WRONG_TYPE;
  Node *made = Elements::create();
  setChild(copy, TARN_ELEMENT_EMBEDDED, made);
  for (uint32_t i = 0; i < Elements::count(list); ++i) {
    const Node *child = Elements::nodeAtIndex(list, i);
    if (!child) return TARN_WRONG_TYPE;
    Node *shell = newNode(TARN_ELEMENT_MAGIC);
    if (TarnStatus status = Elements::adopt(made, shell)) return status;
    await(*shell, *child, chain);
  }
  return TARN_OK;
}

TarnStatus fill(Node &copy, const Node &source, Node *&chain) {
  copy.ints[TARN_ELEMENT_NUMBER] = source.ints[TARN_ELEMENT_NUMBER];
  setText(copy, TARN_ELEMENT_TEXT, copyText(source.strings[TARN_ELEMENT_TEXT]));
  setText(copy, TARN_ELEMENT_NAME, copyText(source.strings[TARN_ELEMENT_NAME]));
  const TarnStatus status = copyAttributes(source, copy);
  return status == TARN_OK ? copyEmbedded(source, copy, chain) : status;
}

// The node releases a list, but only the list's own type releases what is in it. A child of another
// type that a script put there stays as long as there is nothing to take its place.
void storeAttributes(Node &element, Node *list) {
  const Node *old = attributesOf(element);
  Attributes::releaseElements(old);
  if (old || list) setChild(element, TARN_ELEMENT_ATTRIBUTES, list);
}

void storeEmbedded(Node &element, Node *list) {
  const Node *old = embeddedOf(element);
  Elements::releaseElements(old);
  if (old || list) setChild(element, TARN_ELEMENT_EMBEDDED, list);
}

// Fills a new element. When something in the subtree cannot be copied it stays without embedded
// elements.
TarnStatus fillTree(Node &top, const Node &source) {
  Node *chain = nullptr;
  await(top, source, chain);
  TarnStatus status = TARN_OK;
  const Node *from = nullptr;
  while (Node *copy = nextWaiting(chain, from)) {
    if (status == TARN_OK) status = fill(*copy, *from, chain);
  }
  if (status != TARN_OK) storeEmbedded(top, nullptr);
  return status;
}

TarnStatus copyTree(const Node &source, Node *&copy) {
  copy = newNode(TARN_ELEMENT_MAGIC);
  if (!copy) return TARN_OUT_OF_MEMORY;
  const TarnStatus status = fillTree(*copy, source);
  if (status != TARN_OK) destroyTree(take(copy));
  return status;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

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
  return copy ? fillTree(*copy, *node) : TARN_OK;
}

// In the usual order of operands, unlike HTTPCookie_compare(); what is no element sorts first.
int HTMLElement_compare(TarnHandle *a, TarnHandle *b) {
  const Node *left = elementIn(a);
  const Node *right = elementIn(b);
  return left && right
             ? orderTexts(left->strings[TARN_ELEMENT_NAME], right->strings[TARN_ELEMENT_NAME])
             : -1;
}

TarnStatus HTMLElement_setAttributes(TarnHandle *element, TarnHandle *attributes) {
  Node *node = elementIn(element);
  if (!node) return TARN_WRONG_TYPE;
  const Node *list = Attributes::in(attributes);
  if (!list) return TARN_BAD_ARGUMENT;
  // Copied before the old list goes: the new one may be that very list.
  Node *copy = nullptr;
  const TarnStatus status = Attributes::copy(*list, copy);
  storeAttributes(*node, copy);
  return status;
}

TarnStatus HTMLElement_addAttribute(TarnHandle *element, TarnHandle *attribute) {
  Node *node = elementIn(element);
  if (!node) return TARN_WRONG_TYPE;
  if (!nodeIn(attribute, TARN_ATTRIBUTE_MAGIC)) return TARN_BAD_ARGUMENT;
  TarnHandle &list = node->structs[TARN_ELEMENT_ATTRIBUTES];
  if (!list) setChild(*node, TARN_ELEMENT_ATTRIBUTES, Attributes::create());
  return list ? Attributes::add(&list, attribute) : TARN_BAD_ARGUMENT;
}

TarnStatus HTMLElement_setEmbedded(TarnHandle *element, TarnHandle *embedded) {
  Node *node = elementIn(element);
  if (!node) return TARN_WRONG_TYPE;
  const Node *list = Elements::in(embedded);
  if (!list) return TARN_BAD_ARGUMENT;
  // Copied before the old list goes: the new one may be that very list, or one below it.
  Node *copy = nullptr;
  const TarnStatus status = Elements::copy(*list, copy);
  storeEmbedded(*node, copy);
  return status;
}

TarnStatus HTMLElement_addElement(TarnHandle *element, TarnHandle *child) {
  Node *node = elementIn(element);
  if (!node) return TARN_WRONG_TYPE;
  if (!elementIn(child)) return TARN_BAD_ARGUMENT;
  TarnHandle &list = node->structs[TARN_ELEMENT_EMBEDDED];
  if (!list) setChild(*node, TARN_ELEMENT_EMBEDDED, Elements::create());
  return Elements::add(&list, child);
}

const char *HTMLElement_toHTML(TarnHandle *) { return "Not yet implemented"; }

TarnStatus HTMLElementList_delete(TarnHandle *list) { return Elements::remove(list); }

// Unlike an attribute list's clear this one ends the list: scripts test the handle for 0 after it.
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
