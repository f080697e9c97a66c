// Code on its way into memory: instructions one behind the other, literals behind them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sve/runner/arm64/encode.h"

namespace sve::arm64 {

/// At most `Capacity` words of code that will lie at `address`. What does not fit, an operand or a word, makes the
/// whole buffer bad, so that only the end need be looked at.
template <std::size_t Capacity>
class CodeBuffer {
 public:
  explicit constexpr CodeBuffer(std::uint64_t address) : address_(address) {}
  void restart(std::uint64_t address) {
    address_ = address;
    good_ = true;
    size_ = literal_count_ = load_count_ = 0;
  }

  bool is_good() const { return good_; }
  std::size_t size() const { return size_; }
  const word* words() const { return words_; }
  void spoil() { good_ = false; }
  /// Where the next word will lie.
  std::uint64_t here() const { return address_ + 4 * size_; }

  void put(word w) {
    if (size_ < Capacity)
      words_[size_++] = w;
    else
      good_ = false;
  }
  // Inlined, so that of a form that is known there where it is put no more is left than its own fields.
  template <class... Operands>
  [[gnu::always_inline]] void put(const Form& f, Operands... operands) {
    put(encoded(f, static_cast<std::int64_t>(operands)...));
  }
  /// Goes back to where the buffer had `size` words. Not across a load of a constant.
  void truncate(std::size_t size) { size_ = size; }
  /// Lets the branch at word `at`, of this form, whose offset is its field `i`, go to what comes next.
  void aim(std::size_t at, const Form& f, int i) {
    const auto distance = static_cast<std::int64_t>(4 * (size_ - at));
    good_ = good_ && fits(f.fields[i], distance);
    if (good_) words_[at] |= encode_field(f.fields[i], distance);
  }
  void branch(std::uint64_t target) { put(b, static_cast<std::int64_t>(target - here())); }

  /// Loads a 64-bit or a 32-bit constant from behind the code; equal ones share a place.
  void load_x(unsigned r, std::uint64_t value) { load(ldr_x_literal, r, value); }

  /// Puts the literals; the code must not run into them.
  void finish() {
    for (std::size_t i = 0; i < literal_count_; ++i) {
      for (std::size_t k = 0; k < load_count_; ++k) {
        if (loads_[k].literal != i) continue;
        const auto distance = static_cast<std::int64_t>(4 * (size_ - loads_[k].at));
        good_ = good_ && fits(ldr_x_literal.fields[1], distance);
        words_[loads_[k].at] |= encode_field(ldr_x_literal.fields[1], distance);
      }
      put(static_cast<word>(literals_[i]));
      put(static_cast<word>(literals_[i] >> 32));
    }
  }

 private:
  static constexpr std::size_t most_literals = 512;

  template <class... Operands>
  [[gnu::always_inline]] word encoded(const Form& f, Operands... given) {
    word w = f.base;
    bool good = true;
    int i = 0;
    const auto add = [&](std::int64_t operand) __attribute__((always_inline)) {
      good &= fits(f.fields[i], operand);
      w |= encode_field(f.fields[i++], operand);
    };
    (add(given), ...);
    good_ &= good;
    return w;
  }

  void load(const Form& f, unsigned r, std::uint64_t value) {
    std::size_t i = 0;
    while (i < literal_count_ && literals_[i] != value) ++i;
    if (i == most_literals || load_count_ == most_loads) {
      good_ = false;
      return;
    }
    if (i == literal_count_) literals_[literal_count_++] = value;
    loads_[load_count_++] = {size_, i};
    put(f, r, 0);
  }

  static constexpr std::size_t most_loads = 1024;
  struct PendingLoad {
    std::size_t at = 0, literal = 0;
  };
  std::uint64_t address_;
  bool good_ = true;
  std::size_t size_ = 0, literal_count_ = 0, load_count_ = 0;
  word words_[Capacity] = {};
  std::uint64_t literals_[most_literals] = {};
  PendingLoad loads_[most_loads] = {};
};

}  // namespace sve::arm64
