// Lines of text put together without libc, whose formatting a program may replace and which is not for signal handlers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace sve {

/// A text of at most `Size` characters; what is too long is cut off.
template <std::size_t Size>
class Text {
 public:
  Text& operator<<(std::string_view part) {
    for (char c : part) put(c);
    return *this;
  }
  Text& operator<<(unsigned long value) { return number(value, 10, 1); }
  /// As printf's %p does, and with a `width` as "0x%08x".
  Text& hex(std::uint64_t value, unsigned width = 1) { return (*this << "0x").number(value, 16, width); }
  /// `value` in at least `width` digits.
  Text& number(std::uint64_t value, unsigned base, unsigned width) {
    char digits[20];
    unsigned n = 0;
    for (; value != 0 || n < width; value /= base) digits[n++] = "0123456789abcdef"[value % base];
    while (n > 0) put(digits[--n]);
    return *this;
  }
  const char* data() const { return text_; }
  std::size_t size() const { return size_; }
  std::size_t room() const { return Size - size_; }
  void clear() { size_ = 0; }
  /// Closed by a 0, which does not count.
  const char* c_str() {
    text_[size_] = 0;
    return text_;
  }

 private:
  void put(char c) {
    if (size_ < Size) text_[size_++] = c;
  }
  char text_[Size + 1];
  std::size_t size_ = 0;
};

}  // namespace sve
