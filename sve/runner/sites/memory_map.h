// What the kernel tells of the process's mappings.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sve::runner {

struct mapping {
  std::uintptr_t begin = 0, end = 0;
  bool readable = false, writable = false, executable = false, is_private = false;
  bool is_stack = false;  ///< the main thread's, which grows downwards into the gap below it
};

/// Reads the mappings in rising order. Allocates nothing and takes 4 KB of stack.
class MappingReader {
 public:
  MappingReader();
  ~MappingReader();
  MappingReader(const MappingReader&) = delete;
  MappingReader& operator=(const MappingReader&) = delete;

  /// The next mapping; false after the last one, or when the kernel tells nothing.
  bool next(mapping& m);

 private:
  int get();  ///< the next character, -1 at the end

  int fd_;
  std::size_t at_ = 0, size_ = 0;
  char text_[4096];
};

/// The mapping that holds `address`; false if there is none.
bool find_mapping(std::uintptr_t address, mapping& m);

/// The same for private mappings that can be executed and not written, which are remembered. Not for two threads at once.
bool find_code_mapping(std::uintptr_t address, mapping& m);
void forget_code_mappings();

/// A place for `size` bytes of which every byte is less than `reach` from `address`, in a gap between mappings, as near
/// as can be; 0 if there is none.
std::uintptr_t find_gap(std::uintptr_t address, std::size_t size, std::size_t reach);

}  // namespace sve::runner
