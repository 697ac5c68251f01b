#include "calls/player.h"

#include <cstring>
#include <iterator>

namespace tarn_fuzz {
namespace {

constexpr size_t kLongestText = 200;

constexpr uint32_t kMagics[] = {TARN_GENERIC_LIST_MAGIC,
                                TARN_STRING_MAGIC,
                                TARN_BYTE_BUFFER_MAGIC,
                                TARN_ENVIRONMENT_MAGIC,
                                TARN_FORM_ENTRY_MAGIC,
                                TARN_FORM_ENTRY_LIST_MAGIC,
                                TARN_FORM_FILE_MAGIC,
                                TARN_REQUEST_MAGIC,
                                TARN_COOKIE_MAGIC,
                                TARN_COOKIE_LIST_MAGIC,
                                TARN_HEADER_MAGIC,
                                TARN_RESPONSE_HEADER_MAGIC,
                                TARN_MULTIPART_HEADER_MAGIC,
                                TARN_ATTRIBUTE_MAGIC,
                                TARN_ATTRIBUTE_LIST_MAGIC,
                                TARN_ELEMENT_MAGIC,
                                7};

bool copiesAreSame(TarnHandle child, uint32_t magic, TarnHandle copy) {
  // An object parked in a struct slot is not copied.
  return magic && isNode(&child, magic) ? copy && sameNodes(child, copy) : copy == 0;
}

}  // namespace

const ListType kEntryLists = {TARN_FORM_ENTRY_LIST_MAGIC,
                              TARN_FORM_ENTRY_MAGIC,
                              FormEntryList_addEntry,
                              FormEntryList_getCount,
                              FormEntryList_getByIndex,
                              FormEntryList_clear,
                              true,
                              FormEntryList_delete,
                              FormEntryList_clone};
const ListType kFileLists = {TARN_FORM_FILE_LIST_MAGIC,
                             TARN_FORM_FILE_MAGIC,
                             FormFileList_addEntry,
                             FormFileList_getCount,
                             FormFileList_getByIndex,
                             FormFileList_clear,
                             false,
                             FormFileList_delete,
                             FormFileList_clone};
const ListType kCookieLists = {TARN_COOKIE_LIST_MAGIC,
                               TARN_COOKIE_MAGIC,
                               HTTPCookieList_addCookie,
                               HTTPCookieList_getCount,
                               HTTPCookieList_getByIndex,
                               HTTPCookieList_clear,
                               true,
                               HTTPCookieList_delete,
                               HTTPCookieList_clone};
const ListType kAttributeLists = {TARN_ATTRIBUTE_LIST_MAGIC,
                                  TARN_ATTRIBUTE_MAGIC,
                                  HTMLAttributeList_addAttribute,
                                  HTMLAttributeList_getCount,
                                  HTMLAttributeList_getByIndex,
                                  HTMLAttributeList_clear,
                                  true,
                                  HTMLAttributeList_delete,
                                  HTMLAttributeList_clone};
const ListType kElementLists = {TARN_ELEMENT_LIST_MAGIC,
                                TARN_ELEMENT_MAGIC,
                                HTMLElementList_addElement,
                                HTMLElementList_getCount,
                                HTMLElementList_getByIndex,
                                HTMLElementList_clear,
                                false,
                                HTMLElementList_delete,
                                HTMLElementList_clone};

// A generic list or a string is a node only if CGIgs_new() made it. A node passes the type test, so
// that the index out of range is what gets refused.
bool isNode(TarnHandle *handle, uint32_t magic) {
  const bool isRecord = TARNGenericList_IsA(handle) || TARNString_IsA(handle);
  return CGIgs_IsA(handle, magic) &&
         (!isRecord || CGIgs_setInt(handle, UINT32_MAX, 0, magic) == TARN_BAD_ARGUMENT);
}

bool sameText(const char *a, const char *b) { return a && b ? std::strcmp(a, b) == 0 : a == b; }

bool sameWords(TarnHandle a, TarnHandle b) {
  const uint32_t count = TARNGenericList_getCount(&a);
  bool same = TARNGenericList_IsA(&a) == TARNGenericList_IsA(&b) &&
              count == TARNGenericList_getCount(&b) &&
              TARNGenericList_getCapacity(&a) == TARNGenericList_getCapacity(&b);
  for (uint32_t i = 0; same && i < count; ++i) {
    same = TARNGenericList_getByIndex(&a, i) == TARNGenericList_getByIndex(&b, i);
  }
  return same;
}

bool sameNodes(TarnHandle a, TarnHandle b) {
  bool same = CGIgs_getMagic(&a) == CGIgs_getMagic(&b) &&
              CGIgs_getFixed(&a, 0) == CGIgs_getFixed(&b, 0) &&
              CGIgs_getDouble(&a, 0, 0) == CGIgs_getDouble(&b, 0, 0);
  for (uint32_t i = 0; i < 2; ++i) {
    same = same && sameWords(CGIgs_getList(&a, i, 0), CGIgs_getList(&b, i, 0));
  }
  for (uint32_t i = 0; i < 3; ++i) {
    const uint32_t magic = CGIgs_getChildMagic(&a, i, 0);
    same = same && CGIgs_getInt(&a, i, 0) == CGIgs_getInt(&b, i, 0) &&
           CGIgs_getChildMagic(&b, i, 0) == magic &&
           copiesAreSame(CGIgs_getStruct(&a, i, 0), magic, CGIgs_getStruct(&b, i, 0));
  }
  for (uint32_t i = 0; i < 8; ++i) {
    same = same && sameText(CGIgs_getString(&a, i, 0), CGIgs_getString(&b, i, 0));
  }
  return same;
}

bool sameLists(const ListType &type, TarnHandle a, TarnHandle b) {
  const auto same = type.element == TARN_ELEMENT_MAGIC ? sameElements : sameNodes;
  const auto count = static_cast<uint32_t>(type.count(&a));
  bool all = static_cast<uint32_t>(type.count(&b)) == count;
  for (uint32_t i = 0; all && i < count; ++i) {
    const TarnHandle left = type.byIndex(&a, i);
    const TarnHandle right = type.byIndex(&b, i);
    all = left != right && same(left, right);
  }
  return all;
}

bool sameElements(TarnHandle a, TarnHandle b) {
  const auto same = [&a, &b](const ListType &type, uint32_t slot) {
    return sameLists(type, CGIgs_getStruct(&a, slot, 0), CGIgs_getStruct(&b, slot, 0));
  };
  return sameText(CGIgs_getString(&a, TARN_ELEMENT_NAME, 0),
                  CGIgs_getString(&b, TARN_ELEMENT_NAME, 0)) &&
         sameText(CGIgs_getString(&a, TARN_ELEMENT_TEXT, 0),
                  CGIgs_getString(&b, TARN_ELEMENT_TEXT, 0)) &&
         CGIgs_getInt(&a, TARN_ELEMENT_NUMBER, 0) == CGIgs_getInt(&b, TARN_ELEMENT_NUMBER, 0) &&
         same(kAttributeLists, TARN_ELEMENT_ATTRIBUTES) &&
         same(kElementLists, TARN_ELEMENT_EMBEDDED);
}

uint32_t Player::magic() { return kMagics[input.below(std::size(kMagics))]; }

uint32_t Player::magicFor(TarnHandle *handle) {
  const uint32_t kind = input.below(16);
  if (kind == 0) return magic();
  return kind == 1 ? 0 : CGIgs_getMagic(handle);
}

TarnHandle *Player::variable() {
  const uint32_t kind = input.byte();
  return kind == UINT8_MAX ? nullptr : &variables[kind % Variables::kCount];
}

TarnHandle *Player::any() {
  const uint32_t kind = input.byte();
  if (kind < 128) return &variables[kind % Variables::kCount];
  TarnHandle owner = 0;
  if (kind < 250) owner = variables[kind % Variables::kCount];
  // Each turn goes one level down.
  for (uint32_t turns = kind / 8 % 4 + 1; turns > 0 && owner; --turns) owner = lentBy(owner);
  return kind == UINT8_MAX ? nullptr : &lent_.emplace_back(owner);
}

TarnHandle Player::lentBy(TarnHandle owner) {
  const uint32_t slot = input.below(8);
  if (slot < 3) return CGIgs_getStruct(&owner, slot, 0);
  const uint32_t index = slot == 3 || slot == 5 ? 1 : 0;
  // A response header's lines are texts, not objects: convention 9 (b).
  if (index == 0 && CGIgs_getMagic(&owner) == TARN_RESPONSE_HEADER_MAGIC) return 0;
  TarnHandle list = TARNGenericList_IsA(&owner) ? owner : CGIgs_getList(&owner, index, 0);
  if (slot < 5) return list;
  const TarnHandle word = TARNGenericList_getByIndex(&list, input.below(16));
  return word < kNumbers ? 0 : word;
}

TarnHandle *Player::ofType(uint32_t wanted) {
  const uint32_t kind = input.byte();
  if (kind >= 192) return nullptr;
  for (uint32_t i = 0; i < Variables::kCount; ++i) {
    TarnHandle *handle = &variables[(kind + i) % Variables::kCount];
    if (CGIgs_IsA(handle, wanted)) return handle;
  }
  TarnHandle *unused = variables.unused();
  if (!unused) return nullptr;
  if (wanted == TARN_GENERIC_LIST_MAGIC && input.below(2) == 0) {
    EXPECT(TARNGenericList_new(unused) == TARN_OK);
  } else if (wanted == TARN_STRING_MAGIC && input.below(2) == 0) {
    EXPECT(TARNString_new(unused) == TARN_OK);
  } else {
    EXPECT(CGIgs_new(unused, wanted) == TARN_OK);
  }
  return unused;
}

TarnHandle *Player::variableOf(uint32_t wanted) {
  TarnHandle *handle = ofType(wanted);
  return handle ? handle : variable();
}

TarnHandle *Player::anyOf(uint32_t wanted) {
  TarnHandle *handle = ofType(wanted);
  return handle ? handle : any();
}

const char *Player::text() {
  const uint32_t kind = input.byte();
  if (kind < 16) return nullptr;
  if (kind < 48) {
    const char *own = CGIgs_getString(any(), input.below(8), 0);
    if (own && std::strlen(own) < kLongestText) return own;
  }
  const char *const usual[] = {"on", "a", "", "name", "12"};
  if (kind < 128) return usual[kind % std::size(usual)];
  return texts_.emplace_back(input.piece()).data();
}

bool Player::ownsElements(TarnHandle *handle) const {
  return !handle || variables.ownsElements(*handle);
}

void Player::expectElementsFreed(const ListType &type, TarnHandle list) {
  for (uint32_t i = 0; i < static_cast<uint32_t>(type.count(&list)); ++i) {
    TarnHandle element = type.byIndex(&list, i);
    if (!CGIgs_IsA(&element, type.element)) continue;
    variables.expectFreed(element);
    if (type.element == TARN_ELEMENT_MAGIC) expectElementsFreed(element);
  }
}

void Player::expectElementsFreed(TarnHandle object) {
  const auto inStruct = [this, &object](uint32_t slot, const ListType &type) {
    expectElementsFreed(type, CGIgs_getStruct(&object, slot, 0));
  };
  switch (CGIgs_getMagic(&object)) {
    case TARN_REQUEST_MAGIC: {
      TarnHandle environment = CGIgs_getStruct(&object, TARN_REQUEST_ENVIRONMENT, 0);
      if (CGIgs_IsA(&environment, TARN_ENVIRONMENT_MAGIC)) expectElementsFreed(environment);
      inStruct(TARN_REQUEST_ENTRIES, kEntryLists);
      return inStruct(TARN_REQUEST_FILES, kFileLists);
    }
    case TARN_ENVIRONMENT_MAGIC:
      return inStruct(TARN_ENVIRONMENT_COOKIES, kCookieLists);
    case TARN_HEADER_MAGIC:
      return inStruct(TARN_HEADER_COOKIES, kCookieLists);
    case TARN_RESPONSE_HEADER_MAGIC: {
      TarnHandle lines = HTTPResponseHeader_getHeaderList(&object);
      for (uint32_t i = 0; i < TARNGenericList_getCount(&lines); ++i) {
        variables.expectFreed(TARNGenericList_getByIndex(&lines, i));
      }
      return inStruct(TARN_RESPONSE_HEADER_COOKIES, kCookieLists);
    }
    case TARN_ELEMENT_MAGIC:
      inStruct(TARN_ELEMENT_ATTRIBUTES, kAttributeLists);
      return inStruct(TARN_ELEMENT_EMBEDDED, kElementLists);
    default:
      return;
  }
}

bool Player::canBeGiven(TarnHandle *given, TarnHandle *target) const {
  return variables.isOne(given) && *given && target && given != target &&
         reachOf(*given).objects.count(*target) == 0;
}

bool Player::canBeCopiedInto(TarnHandle *child, TarnHandle *target) {
  if (!child || !target) return true;
  const Reach reach = reachOf(*child);
  return reach.elements.empty() || reach.objects.count(*target) == 0;
}

void Player::endCall() {
  lent_.clear();
  texts_.clear();
  blocks_.clear();
}

}  // namespace tarn_fuzz
