// What the kernel tells of the process's mappings.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sve::runner {

struct Mapping {
  std::uintptr_t begin = 0, end = 0;
  bool readable = false, writable = false, executable = false, is_private = false;
  bool is_stack = false;     ///< the main thread's, which grows downwards into the gap below it
  std::uint64_t offset = 0;  ///< in the file that is mapped
  std::uint32_t module = 0;  ///< of remembered ones, the number of the file's code that is noted, from 1 on
};

/// Reads the mappings in rising order. Allocates nothing and takes 5 KB of stack.
class MappingReader {
 public:
  MappingReader();
  ~MappingReader();
  MappingReader(const MappingReader&) = delete;
  MappingReader& operator=(const MappingReader&) = delete;

  /// The next mapping; false after the last one, or when the kernel tells nothing.
  bool next(Mapping& m);
  /// The file that the last one maps; empty if it maps none, or one whose path is too long.
  const char* path() const { return path_; }

 private:
  int get();  ///< the next character, -1 at the end

  int fd_;
  std::size_t at_ = 0, size_ = 0;
  char text_[4096];
  char path_[512];
};

/// The mapping that holds `address`; false if there is none.
bool find_mapping(std::uintptr_t address, Mapping& m);

/// Reads what the file behind a mapping holds for an address. Changes nothing if there is no such file.
void read_mapped_file(const void* from, void* to, std::size_t size);

/// As find_mapping, for private mappings that can be executed, which are remembered. Not for two threads at once.
bool find_code_mapping(std::uintptr_t address, Mapping& m);
void forget_code_mappings();

/// Code of a file that the process has executed sites of.
struct NotedModule {
  std::uintptr_t begin, end;
  std::uint64_t offset;
  char path[512];
};
/// From now on find_code_mapping notes what it finds, which stays noted when the program unmaps it.
void note_modules();
/// What is noted under a number; null behind the last one.
const NotedModule* find_noted_module(std::uint32_t number);

/// Whether one that is remembered has a byte between the two addresses.
bool knows_code_mapping(std::uintptr_t from, std::uintptr_t to);

/// A place for `size` bytes of which every byte is less than `reach` from `address`, in a gap between mappings, as near
/// as can be; 0 if there is none.
std::uintptr_t find_gap(std::uintptr_t address, std::size_t size, std::size_t reach);

}  // namespace sve::runner
