// Who owns what among the objects behind a set of handle variables, read from the objects through
// the interface: what a script that keeps to its part of the bargain has to know.
#ifndef TARN_FUZZ_CALLS_OWNERSHIP_H
#define TARN_FUZZ_CALLS_OWNERSHIP_H

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "tarn.h"

namespace tarn_fuzz {

// Smaller words in a generic list are numbers, others are addresses.
constexpr uintptr_t kNumbers = 4096;

struct Element {
  uint32_t named;  // by so many words of lists
  bool isLine;     // a text of a response header, no object
};

// All that is reached from somewhere.
struct Reach {
  std::set<TarnHandle> objects;
  std::map<TarnHandle, Element> elements;

  size_t size() const { return objects.size() + elements.size(); }
};

void addReach(TarnHandle object, Reach &reach);
Reach reachOf(TarnHandle object);

// A type whose generic list 0 holds objects.
bool isListType(uint32_t magic);
// Whether all words of a generic list are addresses of objects, or 0.
bool holdsObjects(TarnHandle list);

// Deletes an object and what it owns, elements aside.
void deleteObject(TarnHandle object);

// The handle variables.
class Variables {
 public:
  static constexpr uint32_t kCount = 8;

  ~Variables();

  TarnHandle &operator[](uint32_t index) { return handles_[index]; }
  // One that holds nothing; null when all are taken.
  TarnHandle *unused();
  bool isOne(const TarnHandle *handle) const;

  // What the last settle() saw.
  const Reach &reach() const { return reach_; }
  // Whether an object's elements may be deleted with it: no other list names them.
  bool ownsElements(TarnHandle object) const;

  // This element has to be freed before settle().
  void expectFreed(TarnHandle element) { doomed_.push_back(element); }

  // To be called around whatever may change an object. Elements that no list names any more and
  // nobody deleted are deleted: they are the script's, and it is done with them.
  void watch();
  void settle();

 private:
  std::array<TarnHandle, kCount> handles_{};
  Reach reach_;
  std::vector<TarnHandle> doomed_;
};

}  // namespace tarn_fuzz

#endif
