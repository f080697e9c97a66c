#include "sve/runner/preload/place.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cstring>

#include "sve/runner/preload/process.h"
#include "sve/runner/sites/memory_map.h"

namespace sve::runner {
namespace {

// A file's bytes, read through a mapping of it.
class MappedFile {
 public:
  explicit MappedFile(const char* path) {
    const long fd = system_call(SYS_openat, AT_FDCWD, address(path), O_RDONLY | O_CLOEXEC);
    struct stat s;
    if (fd < 0) return;
    if (system_call(SYS_fstat, fd, address(&s)) == 0) {
      const long at = system_call(SYS_mmap, 0, s.st_size, PROT_READ, MAP_PRIVATE, fd);
      if (at > 0) {
        begin_ = reinterpret_cast<const char*>(at);
        size_ = s.st_size;
      }
    }
    system_call(SYS_close, fd);
  }
  ~MappedFile() {
    if (begin_) system_call(SYS_munmap, address(begin_), size_);
  }
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  const char* begin() const { return begin_; }

 private:
  const char* begin_ = nullptr;
  long size_ = 0;
};

struct NamedPlace {
  const char* name = nullptr;
  std::uint64_t offset = 0;  // in the function, or as the file counts addresses
};

// Believes what the file says: to be called guarded.
NamedPlace look_up(const char* file, std::uint64_t file_offset) {
  NamedPlace found;
  const auto* header = reinterpret_cast<const Elf64_Ehdr*>(file);
  if (std::memcmp(header->e_ident, ELFMAG, SELFMAG) != 0) return found;
  const auto* segments = reinterpret_cast<const Elf64_Phdr*>(file + header->e_phoff);
  for (unsigned i = 0; i < header->e_phnum; ++i)
    if (segments[i].p_type == PT_LOAD && file_offset - segments[i].p_offset < segments[i].p_filesz)
      found.offset = file_offset - segments[i].p_offset + segments[i].p_vaddr;
  const std::uint64_t place = found.offset;
  const auto* sections = reinterpret_cast<const Elf64_Shdr*>(file + header->e_shoff);
  for (unsigned i = 0; i < header->e_shnum && !found.name; ++i) {
    const Elf64_Shdr& section = sections[i];
    if (section.sh_type != SHT_SYMTAB && section.sh_type != SHT_DYNSYM) continue;
    const auto* symbols = reinterpret_cast<const Elf64_Sym*>(file + section.sh_offset);
    for (std::uint64_t n = 0; n < section.sh_size / sizeof *symbols; ++n) {
      const Elf64_Sym& symbol = symbols[n];
      if (ELF64_ST_TYPE(symbol.st_info) != STT_FUNC || place - symbol.st_value >= symbol.st_size) continue;
      found = {file + sections[section.sh_link].sh_offset + symbol.st_name, place - symbol.st_value};
      break;
    }
  }
  return found;
}

}  // namespace

void add_place(Text<1024>& line, ThreadBlock* block, std::uintptr_t address) {
  if (!block || is_sandboxed()) {
    line.hex(address);
    return;
  }
  Mapping m;
  MappingReader reader;
  bool is_in_file = false;
  while (!is_in_file && reader.next(m)) is_in_file = address >= m.begin && address < m.end && reader.path()[0] == '/';
  if (!is_in_file) {
    line.hex(address);
    return;
  }
  const char* const file_name = std::strrchr(reader.path(), '/') + 1;
  const MappedFile file(reader.path());
  NamedPlace place{nullptr, address - m.begin + m.offset};
  Text<256> function;
  if (file.begin()) {
    guarded(block, [&] {
      place = look_up(file.begin(), place.offset);
      if (place.name) function << std::string_view(place.name);
    });
  }
  line << std::string_view(function.size() ? function.c_str() : file_name) << "+";
  line.hex(place.offset);
  if (function.size()) line << " (" << file_name << ")";
}

}  // namespace sve::runner
