// Reading ELF files. A damaged one may tell anything: what it tells is taken as far as it is there.
#pragma once

#include <elf.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace sve::runner {

class ElfFile {
 public:
  explicit ElfFile(const std::string& path);
  ~ElfFile();
  ElfFile(const ElfFile&) = delete;
  ElfFile& operator=(const ElfFile&) = delete;

  bool is_open() const { return fd_ >= 0; }
  /// As many of `size` bytes at `offset` as there are.
  std::string read(std::uint64_t size, std::uint64_t offset) const;
  template <class T>
  std::optional<T> record(std::uint64_t offset) const {
    const std::string bytes = read(sizeof(T), offset);
    if (bytes.size() != sizeof(T)) return std::nullopt;
    T value;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
  }

  /// The first segment of this type.
  std::optional<Elf64_Phdr> find(unsigned type) const;
  /// The entries of the dynamic section with this tag.
  std::vector<std::uint64_t> dynamic(std::int64_t tag) const;
  /// A dynamic section, and no mark of a position-independent program.
  bool is_library() const;
  /// The names of the libraries that it was linked with.
  std::vector<std::string> needed() const;
  /// The path of the loader that it wants; empty if none, or a damaged one.
  std::string loader() const;
  bool has_section(std::string_view name) const;

  /// A stretch of what can be executed.
  struct Code {
    std::uint64_t address = 0;
    std::string bytes;
  };
  /// The executable sections, or where there is no table of them the executable segments. Data among the instructions,
  /// where symbols tell of them, are zero.
  std::vector<Code> executable() const;

  struct Function {
    std::uint64_t address = 0, size = 0;
    std::string name;
  };
  /// The functions that it has names for, in rising order of addresses.
  std::vector<Function> functions() const;

 private:
  std::string name_of(const Elf64_Shdr& section) const;
  template <class Body>
  void for_each_symbol(Body body) const;

  int fd_;
  std::uint64_t size_ = 0;
  std::vector<Elf64_Phdr> segments_;
  std::vector<Elf64_Shdr> sections_;
  std::uint64_t section_names_ = 0;  ///< where they are in the file
};

}  // namespace sve::runner
