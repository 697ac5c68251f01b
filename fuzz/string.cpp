// Makes sequences of calls on two dynamic strings and checks them against a model of their text and
// capacity.
#include <algorithm>
#include <cstring>

#include "support.h"

using namespace tarn_fuzz;

namespace {

// Scripts rely on the order of these fields.
struct Record {
  uint32_t magic;
  int32_t capacity;
  const char *buffer;
};

// Larger blocks are slow under AddressSanitizer. Nothing is allocated above INT32_MAX.
constexpr uint32_t kLargest = 1 << 16;
constexpr int64_t kSlack = 16;

bool isTried(uint32_t count) { return count <= kLargest || count > uint32_t{INT32_MAX}; }

class Model {
 public:
  const std::string &text() const { return text_; }
  int64_t capacity() const { return capacity_; }
  bool isLost() const { return lost_; }

  void set(const std::string &text) {
    const auto size = static_cast<int64_t>(text.size());
    if (size > capacity_) capacity_ = size + kSlack;
    text_ = text;
    lost_ = false;
  }

  TarnStatus insert(std::string_view source, uint32_t offset, uint32_t count, uint32_t position) {
    const size_t n = count > 0 ? count : source.size();
    const int64_t need = static_cast<int64_t>(text_.size()) + static_cast<int64_t>(n) + 1;
    if (need > capacity_ || lost_) {
      const int64_t grown = need > capacity_ ? need + kSlack : capacity_;
      if (grown > INT32_MAX) {
        text_.clear();
        lost_ = true;
        return TARN_OUT_OF_MEMORY;
      }
      capacity_ = grown;
      lost_ = false;
    }
    if (position > text_.size()) return TARN_OK;
    std::string piece(source.substr(offset, n));
    piece.resize(n, '\0');
    text_.insert(position, piece);
    text_ = asText(text_);
    return TARN_OK;
  }

  void remove(uint32_t position, uint32_t count) {
    if (position < text_.size()) text_.erase(position, count > 0 ? count : std::string::npos);
  }

  std::string cut(uint32_t start, uint32_t count) const {
    if (start >= text_.size()) return "";
    return text_.substr(start, count > 0 ? count : std::string::npos);
  }

  void reserve(uint32_t requested) {
    const auto length = static_cast<int64_t>(text_.size());
    if (static_cast<uint32_t>(capacity_ - length) >= requested) return;
    if (length + requested > INT32_MAX) return;
    capacity_ = length + requested;
    lost_ = false;
  }

  // A copy has a buffer even if the original has none.
  void copy() { lost_ = false; }

  void clear() {
    text_.clear();
    capacity_ = 0;
  }

 private:
  std::string text_;
  int64_t capacity_ = 16;
  bool lost_ = false;
};

struct Subject {
  TarnHandle handle = 0;
  Model model;

  Subject() { EXPECT(TARNString_new(&handle) == TARN_OK); }
  ~Subject() { EXPECT(TARNString_delete(&handle) == TARN_OK && handle == 0); }
  Subject(const Subject &) = delete;
  Subject &operator=(const Subject &) = delete;

  void expectModel() {
    EXPECT(TARNString_length(&handle) == model.text().size());
    const char *text = TARNString_c_str(&handle);
    EXPECT((text == nullptr) == model.isLost());
    EXPECT(!text || text == model.text());
    const auto *record = reinterpret_cast<const Record *>(handle);
    EXPECT(record->magic == TARN_STRING_MAGIC && record->buffer == text);
    EXPECT(record->capacity == model.capacity());
  }
};

int sign(int number) { return (number > 0) - (number < 0); }

struct Game {
  Script script{{}, ""};
  Subject subjects[2];
  std::string printed;

  void expectModels() {
    for (Subject &subject : subjects) subject.expectModel();
    EXPECT(script.printed() == printed);
  }
};

void inserting(Input &input, Game &, Subject &subject) {
  const uint32_t position = input.anyNumber();
  const uint32_t count = input.anyNumber();
  const uint32_t offset = input.byte();
  const CText text(input.piece());
  if (!isTried(count) || offset > text.size() - 1) return;
  const bool appends = position == UINT32_MAX;
  const TarnStatus expected =
      subject.model.insert(text.data(), offset, count,
                           appends ? static_cast<uint32_t>(subject.model.text().size()) : position);
  EXPECT(expected ==
         (appends ? TARNString_appendn(&subject.handle, text.data(), offset, count)
                  : TARNString_insertn(&subject.handle, text.data(), offset, count, position)));
}

// Inserts the string's own text or the other's.
void insertingAString(Input &input, Game &game, Subject &subject) {
  Subject &source = game.subjects[input.below(2)];
  const uint32_t offset = input.byte();
  const uint32_t count = input.anyNumber();
  const uint32_t position = input.anyNumber();
  const std::string text = source.model.text();
  const char *lent = TARNString_c_str(&source.handle);
  if (!isTried(count) || offset > text.size() || !lent || text.size() > kLargest) return;
  const TarnStatus expected = subject.model.insert(text, offset, count, position);
  EXPECT(TARNString_insertn(&subject.handle, lent, offset, count, position) == expected);
}

void appending(Input &input, Game &game, Subject &subject) {
  Subject &source = game.subjects[input.below(2)];
  if (source.model.text().size() > kLargest) return;
  if (source.model.isLost()) {
    EXPECT(TARNString_append_string(&subject.handle, &source.handle) == TARN_BAD_ARGUMENT);
    return;
  }
  const std::string text = source.model.text();
  const auto end = static_cast<uint32_t>(subject.model.text().size());
  const TarnStatus expected = subject.model.insert(text, 0, 0, end);
  EXPECT(TARNString_append_string(&subject.handle, &source.handle) == expected);
}

void formatting(Input &input, Game &, Subject &subject) {
  const auto number = static_cast<int>(input.anyNumber());
  const uint32_t position = input.byte();
  const CText text(input.piece());
  const std::string made = text.data() + std::to_string(number);
  const auto end = static_cast<uint32_t>(subject.model.text().size());
  TarnStatus expected = subject.model.insert(made, 0, 0, end);
  EXPECT(TARNString_append_sprintf(&subject.handle, "%s%d", text.data(), number) == expected);
  expected = subject.model.insert(made, 0, 0, position);
  EXPECT(TARNString_insert_sprintf(&subject.handle, position, "%s%d", text.data(), number) ==
         expected);
}

void setting(Input &input, Game &, Subject &subject) {
  const CText text(input.piece());
  subject.model.set(text.data());
  EXPECT(TARNString_set(&subject.handle, text.data()) == TARN_OK);
}

void settingAString(Input &input, Game &game, Subject &subject) {
  Subject &source = game.subjects[input.below(2)];
  const std::string text = source.model.text();
  subject.model.set(text);
  EXPECT(TARNString_set_string(&subject.handle, &source.handle) == TARN_OK);
}

// Sets the string to the end of its own text, from some offset.
void settingItsOwn(Input &input, Game &, Subject &subject) {
  const uint32_t offset = input.byte();
  const char *text = TARNString_c_str(&subject.handle);
  if (!text || offset > subject.model.text().size()) return;
  subject.model.set(subject.model.text().substr(offset));
  EXPECT(TARNString_set(&subject.handle, text + offset) == TARN_OK);
}

void removing(Input &input, Game &, Subject &subject) {
  const uint32_t position = input.anyNumber();
  const uint32_t count = input.anyNumber();
  subject.model.remove(position, count);
  EXPECT(TARNString_remove(&subject.handle, position, count) == TARN_OK);
}

void cutting(Input &input, Game &, Subject &subject) {
  const uint32_t start = input.anyNumber();
  const uint32_t count = input.anyNumber();
  TarnHandle cut = 0;
  EXPECT(TARNString_substr(&subject.handle, static_cast<int32_t>(start), count, &cut) == TARN_OK);
  EXPECT(TARNString_compare(&cut, subject.model.cut(start, count).c_str()) == 0);
  EXPECT(TARNString_substr(&subject.handle, 0, 0, &cut) == TARN_BAD_ARGUMENT);
  EXPECT(TARNString_delete(&cut) == TARN_OK);
}

void reserving(Input &input, Game &, Subject &subject) {
  const uint32_t requested = input.anyNumber();
  if (!isTried(requested)) return;
  subject.model.reserve(requested);
  EXPECT(TARNString_reserve(&subject.handle, requested) == TARN_OK);
}

void clearing(Input &, Game &, Subject &subject) {
  subject.model.clear();
  EXPECT(TARNString_clear(&subject.handle) == TARN_OK);
}

void copying(Input &, Game &, Subject &subject) {
  TarnHandle copy = 0;
  EXPECT(TARNString_dup(&subject.handle, &copy) == TARN_OK);
  EXPECT(TARNString_compare_string(&copy, &subject.handle) == 0);
  EXPECT(reinterpret_cast<const Record *>(copy)->capacity == subject.model.capacity());
  std::swap(copy, subject.handle);
  subject.model.copy();
  EXPECT(TARNString_delete(&copy) == TARN_OK);
}

void comparing(Input &input, Game &game, Subject &subject) {
  const CText text(input.piece());
  const std::string &own = subject.model.text();
  EXPECT(sign(TARNString_compare(&subject.handle, text.data())) == sign(own.compare(text.data())));
  const std::string &other = game.subjects[0].model.text();
  EXPECT(sign(TARNString_compare_string(&subject.handle, &game.subjects[0].handle)) ==
         sign(own.compare(other)));
}

void printing(Input &, Game &game, Subject &subject) {
  const TarnStatus expected = subject.model.isLost() ? TARN_OUT_OF_MEMORY : TARN_OK;
  Stream stream;
  EXPECT(TARNString_fprint(&subject.handle, stream.file()) == expected);
  EXPECT(TARNString_fprintline(&subject.handle, stream.file()) == expected);
  EXPECT(TARNString_print(&subject.handle) == expected);
  EXPECT(TARNString_printline(&subject.handle) == expected);
  const std::string &text = subject.model.text();
  const std::string once = expected == TARN_OK ? text + text + "\n" : "";
  EXPECT(stream.written() == once);
  game.printed += once;
}

}  // namespace

void fuzz(Input input) {
  using Action = void (*)(Input &, Game &, Subject &);
  constexpr Action kActions[] = {inserting,      insertingAString, appending, formatting, setting,
                                 settingAString, settingItsOwn,    removing,  cutting,    reserving,
                                 clearing,       copying,          comparing, printing};
  Game game;
  while (!input.empty()) {
    Subject &subject = game.subjects[input.below(2)];
    kActions[input.below(std::size(kActions))](input, game, subject);
    game.expectModels();
    // Stop texts that double with every call from growing without limit.
    if (subject.model.text().size() > kLargest || game.printed.size() > kLargest) return;
  }
}
