// Works out who owns what among the objects behind a set of handle variables, using only the
// interface. A script that follows convention 9 has to know the same.
#ifndef TARN_FUZZ_CALLS_OWNERSHIP_H
#define TARN_FUZZ_CALLS_OWNERSHIP_H

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "tarn.h"

namespace tarn_fuzz {

// Words in a generic list that are smaller than this are numbers; others are addresses.
constexpr uintptr_t kNumbers = 4096;

struct Element {
  uint32_t named;  // how many list words name it
  bool isLine;     // a line of a response header, not an object
};

// Everything that can be reached from some object.
struct Reach {
  std::set<TarnHandle> objects;
  std::map<TarnHandle, Element> elements;

  size_t size() const { return objects.size() + elements.size(); }
};

void addReach(TarnHandle object, Reach &reach);
Reach reachOf(TarnHandle object);

// Whether objects of this type keep other objects in generic list 0.
bool isListType(uint32_t magic);
// Whether every word of a generic list is 0 or the address of an object.
bool holdsObjects(TarnHandle list);

// Deletes an object and what it owns, except list elements.
void deleteObject(TarnHandle object);

// The handle variables.
class Variables {
 public:
  static constexpr uint32_t kCount = 8;

  ~Variables();

  TarnHandle &operator[](uint32_t index) { return handles_[index]; }
  // Returns an empty variable, or null if all are in use.
  TarnHandle *unused();
  bool isOne(const TarnHandle *handle) const;

  // What was reachable at the last settle().
  const Reach &reach() const { return reach_; }
  // Whether an object's elements may be deleted with it because no other list names them.
  bool ownsElements(TarnHandle object) const;

  // Expects this element to be freed before settle().
  void expectFreed(TarnHandle element) { doomed_.push_back(element); }

  // Call these around anything that may change an object. settle() deletes elements that are in no
  // list any more and were not deleted: the script owns them and no longer uses them.
  void watch();
  void settle();

 private:
  std::array<TarnHandle, kCount> handles_{};
  Reach reach_;
  std::vector<TarnHandle> doomed_;
};

}  // namespace tarn_fuzz

#endif
