// What a call of the `calls` target takes its arguments from.
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
// A node and what CGIgs_clone() makes of it.
bool sameNodes(TarnHandle a, TarnHandle b);

// The types that hold copies of elements in order.
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

// A list and its copy, whose elements are copies too.
bool sameLists(const ListType &type, TarnHandle a, TarnHandle b);
// An HTML element and its copy, which has its texts, its number and its tree.
bool sameElements(TarnHandle a, TarnHandle b);

// The input chooses the arguments.
class Player {
 public:
  explicit Player(Input &bytes) : input(bytes) {}

  Input &input;
  Variables variables;

  uint32_t magic();
  // The tag of what the handle names, mostly.
  uint32_t magicFor(TarnHandle *handle);

  // One of the handle variables, or null.
  TarnHandle *variable();
  // Any handle: a variable, null, an empty one, a lent one.
  TarnHandle *any();
  // The same, but mostly of this type; one is made when there is none.
  TarnHandle *variableOf(uint32_t magic);
  TarnHandle *anyOf(uint32_t magic);

  // A text of the input's, one that an object lends, or null.
  const char *text();
  const Block &bytes() { return blocks_.emplace_back(input.piece()); }

  // Whether elements may be released with what the handle names: convention 9, (e).
  bool ownsElements(TarnHandle *handle) const;
  // The elements of a list, and of what an object holds, have to go with the next call, as far as
  // they are of the right type.
  void expectElementsFreed(const ListType &type, TarnHandle list);
  void expectElementsFreed(TarnHandle object);
  // An object that is given away for good must be a variable's, and not hold what it goes into:
  // convention 9, (d).
  bool canBeGiven(TarnHandle *given, TarnHandle *target) const;
  // A copy with lists names the same elements: in one of them it would hold itself, convention 9,
  // (e).
  static bool canBeCopiedInto(TarnHandle *child, TarnHandle *target);

  // Drops what the arguments of one call lived in.
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
