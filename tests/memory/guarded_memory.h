// Memory for tests of loads and stores: readable pages between unreadable ones.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>

namespace test {

inline constexpr std::size_t page = 4096;

/// `pages` readable and writable pages with an unreadable one on each side; shared with child processes.
class GuardedMemory {
 public:
  explicit GuardedMemory(std::size_t pages = 1) : size_((pages + 2) * page) {
    base_ = static_cast<std::uint8_t*>(mmap(nullptr, size_, PROT_NONE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    if (base_ == MAP_FAILED || mprotect(base_ + page, pages * page, PROT_READ | PROT_WRITE) != 0) {
      ADD_FAILURE() << "no memory for the test";
      std::abort();
    }
  }
  ~GuardedMemory() { munmap(base_, size_); }
  GuardedMemory(const GuardedMemory&) = delete;
  GuardedMemory& operator=(const GuardedMemory&) = delete;

  std::uint8_t* begin() const { return base_ + page; }
  std::uint8_t* end() const { return base_ + size_ - page; }
  std::uint64_t address(std::ptrdiff_t from_begin = 0) const {
    return reinterpret_cast<std::uint64_t>(begin()) + static_cast<std::uint64_t>(from_begin);
  }
  std::uint64_t end_address(std::ptrdiff_t before = 0) const {
    return reinterpret_cast<std::uint64_t>(end()) - static_cast<std::uint64_t>(before);
  }
  void fill_counting() const {
    for (std::uint8_t* p = begin(); p < end(); ++p) *p = static_cast<std::uint8_t>((p - begin()) * 7 + 3);
  }

 private:
  std::uint8_t* base_;
  std::size_t size_;
};

}  // namespace test
