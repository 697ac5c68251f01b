// Chooses the arguments of each call in the `calls` target.
#ifndef TARN_FUZZ_CALLS_PLAYER_H
#define TARN_FUZZ_CALLS_PLAYER_H

#include <deque>
#include <span>

#include "calls/ownership.h"
#include "support.h"

namespace tarn_fuzz {

bool isNode(TarnHandle *handle, uint32_t magic);
bool sameText(const char *a, const char *b);
bool sameWords(TarnHandle a, TarnHandle b);
// Whether `b` is what CGIgs_clone() makes of node `a`.
bool sameNodes(TarnHandle a, TarnHandle b);

// A type that holds copies of elements, in order.
struct ListType {
  uint32_t magic;
  uint32_t element;
  TarnStatus (*add)(TarnHandle *, TarnHandle *);
  int (*count)(TarnHandle *);
  TarnHandle (*byIndex)(TarnHandle *, uint32_t);
  TarnStatus (*clear)(TarnHandle *);
  bool clearKeepsTheList;
  TarnStatus (*remove)(TarnHandle *);
  TarnStatus (*clone)(TarnHandle *, TarnHandle *);
};

extern const ListType kEntryLists;
extern const ListType kFileLists;
extern const ListType kCookieLists;
extern const ListType kAttributeLists;
extern const ListType kElementLists;

inline const ListType *const kListTypes[] = {&kEntryLists, &kFileLists, &kCookieLists,
                                             &kAttributeLists, &kElementLists};

// Whether `b` is a copy of list `a`, with copies of its elements.
bool sameLists(const ListType &type, TarnHandle a, TarnHandle b);
// Whether `b` is a copy of HTML element `a`, with the same texts, number and subtree.
bool sameElements(TarnHandle a, TarnHandle b);

// Takes arguments from the input.
class Player {
 public:
  explicit Player(Input &bytes) : input(bytes) {}

  Input &input;
  Variables variables;

  uint32_t magic();
  // Usually the tag of the handle's object, sometimes another.
  uint32_t magicFor(TarnHandle *handle);

  // One of the handle variables, or null.
  TarnHandle *variable();
  // Any handle: a variable, null, an empty handle or a borrowed one.
  TarnHandle *any();
  // The same, but usually of this type; creates an object if there is none.
  TarnHandle *variableOf(uint32_t magic);
  TarnHandle *anyOf(uint32_t magic);

  // A text from the input, one borrowed from an object, or null.
  const char *text();
  const Block &bytes() { return blocks_.emplace_back(input.piece()); }

  // Whether the elements may be released with the handle's object: convention 9 (e).
  bool ownsElements(TarnHandle *handle) const;
  // Expects the next call to free the elements of a list, or of everything an object holds, if they
  // have the right type.
  void expectElementsFreed(const ListType &type, TarnHandle list);
  void expectElementsFreed(TarnHandle object);
  // An object can be given away only if a variable owns it and it does not contain its new owner:
  // convention 9 (d).
  bool canBeGiven(TarnHandle *given, TarnHandle *target) const;
  // A copy shares the elements of its lists. Stored inside one of them, it would contain itself:
  // convention 9 (e).
  static bool canBeCopiedInto(TarnHandle *child, TarnHandle *target);

  // Releases the arguments of the last call.
  void endCall();

 private:
  TarnHandle *ofType(uint32_t magic);
  TarnHandle lentBy(TarnHandle owner);

  std::deque<TarnHandle> lent_;
  std::deque<CText> texts_;
  std::deque<Block> blocks_;
};

using Call = void (*)(Player &);
using Calls = std::span<const Call>;

Calls coreCalls();
Calls listCalls();
Calls requestCalls();
Calls responseCalls();

}  // namespace tarn_fuzz

#endif
