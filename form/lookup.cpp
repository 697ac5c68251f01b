#include <algorithm>

#include "form/kept.h"
#include "form/text.h"

namespace tarn::form {
namespace {

// To sort all fields takes about as long as to look through them so often.
constexpr uint64_t kLooksBeforeSorting = 16;

int compareNames(std::string_view a, std::string_view b, bool folded) {
  const size_t common = std::min(a.size(), b.size());
  if (!folded) {
    const int order = common > 0 ? std::memcmp(a.data(), b.data(), common) : 0;
    if (order != 0) return order;
  }
  for (size_t i = 0; folded && i < common; ++i) {
    const int order =
        static_cast<unsigned char>(toLower(a[i])) - static_cast<unsigned char>(toLower(b[i]));
    if (order != 0) return order;
  }
  return a.size() < b.size() ? -1 : a.size() > b.size();
}

// A hash that does not depend on the case of letters. Different names may have the same one.
uint32_t hashOf(std::string_view name) {
  constexpr uint64_t kLower = 0x2020202020202020;
  constexpr uint64_t kFactor = 0x9E3779B97F4A7C15;
  uint64_t hash = name.size();
  while (!name.empty()) {
    uint64_t word = 0;
    const size_t size = name.size() < sizeof word ? name.size() : sizeof word;
    if (size == sizeof word) {
      std::memcpy(&word, name.data(), sizeof word);
    } else {
      for (const char c : name) word = word << 8 | static_cast<unsigned char>(c);
    }
    hash = (hash ^ (word | kLower)) * kFactor;
    hash ^= hash >> 32;
    name.remove_prefix(size);
  }
  return static_cast<uint32_t>(hash >> 16);
}

// The order of fields for lookups: by a few bits of the hash, by name, then as they were sent. Fields
// of the same name are neighbours.
class Order {
 public:
  Order(TarnForm &form, bool folded) : form_(form), folded_(folded) {
    while (size_t{buckets_} * kFieldsInBucket < count()) buckets_ *= 2;
  }

  // Sorts all fields unless that is done. There is room for the result.
  Places sorted() {
    Bytes &bytes = folded_ ? form_.by_folded_name : form_.by_name;
    if (bytes.size() == 0) sort(bytes);
    return placesIn(bytes);
  }

  // How many bytes to reserve for the result and, behind it, a number for each bucket.
  static size_t roomFor(size_t fields) {
    return (fields + 2 * (fields / kFieldsInBucket) + 2) * sizeof(uint32_t);
  }

  // The first field that has this name or comes after it.
  const uint32_t *find(const Places &all, std::string_view name) const {
    return std::lower_bound(
        all.begin, all.end, name,
        [this](uint32_t place, std::string_view text) { return compare(nameAt(place), text) < 0; });
  }

  // The first field that comes after this name.
  const uint32_t *findEnd(const Places &all, std::string_view name) const {
    return std::upper_bound(
        all.begin, all.end, name,
        [this](std::string_view text, uint32_t place) { return compare(text, nameAt(place)) < 0; });
  }

 private:
  static constexpr size_t kFieldsInBucket = 4;

  size_t count() const { return form_.order.size() / sizeof(uint32_t); }
  uint32_t bucketOf(std::string_view name) const { return hashOf(name) & (buckets_ - 1); }
  std::string_view nameAt(uint32_t place) const { return form_.kept.at(place)->nameView(); }

  int compare(std::string_view a, std::string_view b) const {
    const uint32_t bucket_a = bucketOf(a);
    const uint32_t bucket_b = bucketOf(b);
    if (bucket_a != bucket_b) return bucket_a < bucket_b ? -1 : 1;
    return compareNames(a, b, folded_);
  }

  // Distributes the fields to the buckets, and then sorts each bucket.
  void sort(Bytes &bytes) {
    const Places all = placesIn(form_.order);
    auto *sorted = reinterpret_cast<uint32_t *>(bytes.data());
    // First how many fields the bucket before has, then where the bucket begins, and at last where it
    // ends, since each field moves that.
    uint32_t *ends = sorted + count();
    std::memset(ends, 0, (buckets_ + 1) * sizeof *ends);
    for (const uint32_t *place = all.begin; place != all.end; ++place) {
      ++ends[bucketOf(nameAt(*place)) + 1];
    }
    for (uint32_t i = 1; i < buckets_; ++i) ends[i] += ends[i - 1];
    for (const uint32_t *place = all.begin; place != all.end; ++place) {
      sorted[ends[bucketOf(nameAt(*place))]++] = *place;
    }
    for (uint32_t i = 0; i < buckets_; ++i) {
      sortBucket(sorted + (i > 0 ? ends[i - 1] : 0), sorted + ends[i]);
    }
    bytes.grow(count() * sizeof(uint32_t));
  }

  void sortBucket(uint32_t *begin, uint32_t *end) const {
    const auto comes_before = [this](uint32_t a, uint32_t b) {
      const int order = compareNames(nameAt(a), nameAt(b), folded_);
      return order != 0 ? order < 0 : a < b;
    };
    // Fields that all have one name are sorted.
    if (!std::is_sorted(begin, end, comes_before)) std::sort(begin, end, comes_before);
  }

  TarnForm &form_;
  bool folded_;
  uint32_t buckets_ = 1;
};

bool canLookUp(const TarnForm *form) {
  return form && form->loaded && !form->problem && form->order.size() > 0;
}

TarnFormField *fieldAt(TarnForm &form, const Places &places, uint64_t index) {
  return index < places.size() ? form.kept.at(places.begin[index]) : nullptr;
}

[[gnu::always_inline]] inline bool isNamed(const TarnFormField &field, std::string_view name,
                                           bool folded) {
  if (field.nameSize() != name.size()) return false;
  // Names that are alike, such as numbered ones, differ at the end.
  if (!folded && !name.empty() && field.name()[name.size() - 1] != name.back()) return false;
  return folded ? equalIgnoringCase(field.nameView(), name) : field.nameView() == name;
}

// Whether a lookup goes through all fields. That is faster until there were many lookups.
bool looksThrough(const TarnForm &form, const Places &all, bool folded) {
  if ((folded ? form.by_folded_name : form.by_name).size() > 0) return false;
  return form.looked_at < kLooksBeforeSorting * all.size();
}

// Finds a field with this name, and counts those before it.
TarnFormField *lookThrough(TarnForm &form, const Places &all, std::string_view name, uint64_t index,
                           bool folded, uint64_t &before) {
  TarnFormField *found = nullptr;
  before = 0;
  const uint32_t *place = all.begin;
  for (; place != all.end && !found; ++place) {
    TarnFormField *field = form.kept.at(*place);
    if (!isNamed(*field, name, folded)) continue;
    if (before == index) {
      found = field;
    } else {
      ++before;
    }
  }
  form.looked_at += static_cast<uint64_t>(place - all.begin);
  return found;
}

[[gnu::noinline]] TarnFormField *findNamed(TarnForm *form, std::string_view name, uint64_t index,
                                           bool folded) {
  const Places all = placesIn(form->order);
  uint64_t before = 0;
  if (looksThrough(*form, all, folded)) {
    return lookThrough(*form, all, name, index, folded, before);
  }
  Order order(*form, folded);
  const Places sorted = order.sorted();
  TarnFormField *field = fieldAt(*form, {order.find(sorted, name), sorted.end}, index);
  return field && isNamed(*field, name, folded) ? field : nullptr;
}

TarnFormField *findField(TarnForm *form, const char *name, uint64_t index, bool folded) {
  if (!canLookUp(form)) return nullptr;
  return name ? findNamed(form, name, index, folded) : fieldAt(*form, placesIn(form->order), index);
}

}  // namespace

Places placesIn(const Bytes &bytes) {
  const auto *begin = reinterpret_cast<const uint32_t *>(bytes.data());
  return {begin, begin + bytes.size() / sizeof(uint32_t)};
}

bool reserveForLookups(TarnForm &form) {
  const size_t room = Order::roomFor(placesIn(form.order).size());
  return form.by_name.reserve(room) && form.by_folded_name.reserve(room);
}

}  // namespace tarn::form

using namespace tarn::form;

uint64_t TarnForm_count(TarnForm *form, const char *name) {
  if (!canLookUp(form)) return 0;
  const Places all = placesIn(form->order);
  if (!name) return all.size();
  uint64_t count = 0;
  if (looksThrough(*form, all, false)) {
    lookThrough(*form, all, name, UINT64_MAX, false, count);
    return count;
  }
  Order order(*form, false);
  const Places sorted = order.sorted();
  return static_cast<uint64_t>(order.findEnd(sorted, name) - order.find(sorted, name));
}

TarnFormField *TarnForm_get(TarnForm *form, const char *name, uint64_t index) {
  return findField(form, name, index, false);
}

TarnFormField *TarnForm_getIgnoringCase(TarnForm *form, const char *name, uint64_t index) {
  return findField(form, name, index, true);
}
