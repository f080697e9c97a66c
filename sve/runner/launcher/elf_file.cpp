#include "sve/runner/launcher/elf_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <map>

namespace sve::runner {

ElfFile::ElfFile(const std::string& path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  struct stat s;
  if (fd_ >= 0 && fstat(fd_, &s) == 0) size_ = static_cast<std::uint64_t>(s.st_size);
  const auto header = record<Elf64_Ehdr>(0);
  if (!header) return;
  for (unsigned i = 0; i < header->e_phnum; ++i) {
    const auto segment = record<Elf64_Phdr>(header->e_phoff + std::uint64_t{i} * header->e_phentsize);
    if (!segment) break;
    segments_.push_back(*segment);
  }
  for (unsigned i = 0; i < header->e_shnum; ++i) {
    const auto section = record<Elf64_Shdr>(header->e_shoff + std::uint64_t{i} * header->e_shentsize);
    if (!section) break;
    sections_.push_back(*section);
  }
  if (header->e_shstrndx < sections_.size()) section_names_ = sections_[header->e_shstrndx].sh_offset;
}

ElfFile::~ElfFile() {
  if (fd_ >= 0) close(fd_);
}

std::string ElfFile::read(std::uint64_t size, std::uint64_t offset) const {
  if (offset >= size_) return "";
  std::string bytes(std::min(size, size_ - offset), '\0');
  const ssize_t n = pread(fd_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
  bytes.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
  return bytes;
}

std::optional<Elf64_Phdr> ElfFile::find(unsigned type) const {
  for (const Elf64_Phdr& segment : segments_)
    if (segment.p_type == type) return segment;
  return std::nullopt;
}

std::vector<std::uint64_t> ElfFile::dynamic(std::int64_t tag) const {
  std::vector<std::uint64_t> values;
  const auto segment = find(PT_DYNAMIC);
  const std::uint64_t count = segment ? std::min<std::uint64_t>(segment->p_filesz / sizeof(Elf64_Dyn), 4096) : 0;
  for (std::uint64_t i = 0; i < count; ++i) {
    const auto entry = record<Elf64_Dyn>(segment->p_offset + i * sizeof(Elf64_Dyn));
    if (!entry || entry->d_tag == DT_NULL) break;
    if (entry->d_tag == tag) values.push_back(entry->d_un.d_val);
  }
  return values;
}

bool ElfFile::is_library() const {
  if (!find(PT_DYNAMIC)) return false;
  const auto flags = dynamic(DT_FLAGS_1);
  return flags.empty() || !(flags.front() & DF_1_PIE);
}

std::vector<std::string> ElfFile::needed() const {
  std::vector<std::string> names;
  const auto strings = dynamic(DT_STRTAB);
  if (strings.empty()) return names;
  for (const Elf64_Phdr& segment : segments_) {
    if (segment.p_type != PT_LOAD || strings.front() - segment.p_vaddr >= segment.p_filesz) continue;
    const std::uint64_t table = strings.front() - segment.p_vaddr + segment.p_offset;
    for (const std::uint64_t name : dynamic(DT_NEEDED)) names.emplace_back(read(256, table + name).c_str());
    break;
  }
  return names;
}

std::string ElfFile::loader() const {
  const auto segment = find(PT_INTERP);
  return segment ? read(std::min<std::uint64_t>(segment->p_filesz, PATH_MAX), segment->p_offset).c_str() : "";
}

std::string ElfFile::name_of(const Elf64_Shdr& section) const {
  return read(64, section_names_ + section.sh_name).c_str();
}

bool ElfFile::has_section(std::string_view name) const {
  return std::any_of(sections_.begin(), sections_.end(), [&](const Elf64_Shdr& s) { return name_of(s) == name; });
}

template <class Body>
void ElfFile::for_each_symbol(Body body) const {
  for (const Elf64_Shdr& section : sections_) {
    if ((section.sh_type != SHT_SYMTAB && section.sh_type != SHT_DYNSYM) || section.sh_link >= sections_.size())
      continue;
    const Elf64_Shdr& names = sections_[section.sh_link];
    const std::string symbols = read(section.sh_size, section.sh_offset);
    const std::string strings = read(names.sh_size, names.sh_offset);
    for (std::size_t at = 0; at + sizeof(Elf64_Sym) <= symbols.size(); at += sizeof(Elf64_Sym)) {
      Elf64_Sym symbol;
      std::memcpy(&symbol, symbols.data() + at, sizeof symbol);
      if (symbol.st_shndx != SHN_UNDEF && symbol.st_name < strings.size())
        body(symbol, strings.c_str() + symbol.st_name);
    }
  }
}

std::vector<ElfFile::Code> ElfFile::executable() const {
  std::vector<Code> stretches;
  for (const Elf64_Shdr& section : sections_) {
    if (section.sh_type == SHT_PROGBITS && (section.sh_flags & SHF_EXECINSTR))
      stretches.push_back({section.sh_addr, read(section.sh_size, section.sh_offset)});
  }
  if (sections_.empty()) {
    for (const Elf64_Phdr& segment : segments_)
      if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X))
        stretches.push_back({segment.p_vaddr, read(segment.p_filesz, segment.p_offset)});
  }
  // "$x" and "$d" mark where instructions and where data begin.
  std::map<std::uint64_t, bool> begins_data;
  for_each_symbol([&](const Elf64_Sym& symbol, const char* name) {
    if (name[0] == '$' && (name[1] == 'x' || name[1] == 'd') && (name[2] == 0 || name[2] == '.'))
      begins_data[symbol.st_value] = name[1] == 'd';
  });
  for (Code& stretch : stretches) {
    const std::uint64_t end = stretch.address + stretch.bytes.size();
    for (auto mark = begins_data.lower_bound(stretch.address); mark != begins_data.end() && mark->first < end;) {
      const auto [from, is_data] = *mark++;
      const std::uint64_t to = mark == begins_data.end() ? end : std::min(end, mark->first);
      if (is_data)
        std::fill_n(stretch.bytes.begin() + static_cast<std::ptrdiff_t>(from - stretch.address), to - from, '\0');
    }
  }
  return stretches;
}

std::vector<ElfFile::Function> ElfFile::functions() const {
  std::vector<Function> found;
  for_each_symbol([&](const Elf64_Sym& symbol, const char* name) {
    if (ELF64_ST_TYPE(symbol.st_info) == STT_FUNC || ELF64_ST_TYPE(symbol.st_info) == STT_GNU_IFUNC)
      found.push_back({symbol.st_value, symbol.st_size, name});
  });
  std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.address < b.address; });
  return found;
}

}  // namespace sve::runner
