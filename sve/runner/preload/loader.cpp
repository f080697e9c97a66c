#include "sve/runner/preload/loader.h"

#include <algorithm>
#include <cstring>

#include "sve/runner/preload/early.h"

namespace sve::runner {

LoadedObject::LoadedObject(std::uintptr_t base, const ElfW(Dyn) * dynamic) : base_(base) {
  // The loader may or may not have added the base already.
  const auto at = [&](const ElfW(Dyn) * entry) {
    return entry->d_un.d_ptr < base ? base + entry->d_un.d_ptr : entry->d_un.d_ptr;
  };
  for (const ElfW(Dyn)* entry = dynamic; entry->d_tag != DT_NULL; ++entry) {
    switch (entry->d_tag) {
      case DT_SYMTAB:
        symbols_ = reinterpret_cast<const ElfW(Sym)*>(at(entry));
        break;
      case DT_STRTAB:
        strings_ = reinterpret_cast<const char*>(at(entry));
        break;
      case DT_HASH:
        hash_ = reinterpret_cast<const std::uint32_t*>(at(entry));
        break;
      case DT_GNU_HASH:
        gnu_hash_ = reinterpret_cast<const std::uint32_t*>(at(entry));
        break;
      case DT_RELA:
        relocations_ = reinterpret_cast<const ElfW(Rela)*>(at(entry));
        break;
      case DT_RELASZ:
        relocation_count_ = entry->d_un.d_val / sizeof(ElfW(Rela));
        break;
      case DT_RELACOUNT:
        relative_count_ = entry->d_un.d_val;
        break;
      case DT_JMPREL:
        plt_ = reinterpret_cast<const ElfW(Rela)*>(at(entry));
        break;
      case DT_PLTRELSZ:
        plt_count_ = entry->d_un.d_val / sizeof(ElfW(Rela));
        break;
      case DT_INIT_ARRAY:
        initialisers_ = reinterpret_cast<std::uintptr_t*>(at(entry));
        break;
      case DT_INIT_ARRAYSZ:
        initialiser_count_ = entry->d_un.d_val / sizeof(std::uintptr_t);
        break;
      case DT_SONAME:
        name_ = entry->d_un.d_val;
        break;
      default:
        break;
    }
  }
}

std::size_t LoadedObject::symbol_count() const {
  if (hash_) return hash_[1];
  if (!gnu_hash_) return 0;
  const std::uint32_t buckets = gnu_hash_[0], first = gnu_hash_[1], words = gnu_hash_[2];
  const std::uint32_t* bucket = gnu_hash_ + 4 + 2 * words;
  const std::uint32_t* chain = bucket + buckets;
  std::uint32_t last = 0;
  for (std::uint32_t i = 0; i < buckets; ++i) last = std::max(last, bucket[i]);
  if (last < first) return first;
  while ((chain[last - first] & 1) == 0) ++last;  // the last of a chain has its low bit set
  return last + 1;
}

const char* LoadedObject::name() const { return strings_ && name_ ? strings_ + name_ : ""; }

void* LoadedObject::find(const char* name, std::size_t* size) const {
  const std::size_t count = symbol_count();
  for (std::size_t i = 1; i < count; ++i) {
    const ElfW(Sym)& s = symbols_[i];
    if (s.st_shndx == SHN_UNDEF) continue;
    if (ELF64_ST_TYPE(s.st_info) == STT_TLS || ELF64_ST_TYPE(s.st_info) == STT_GNU_IFUNC) continue;
    if (std::strcmp(name_of(s), name) != 0) continue;
    if (size) *size = s.st_size;
    return reinterpret_cast<void*>(base_ + s.st_value);
  }
  return nullptr;
}

bool LoadedObject::chooses_implementations() const {
  const auto chooses = [](const ElfW(Rela) & r) { return ELF64_R_TYPE(r.r_info) == R_AARCH64_IRELATIVE; };
  // Those that only add the base come first, and are counted.
  if (std::any_of(relocations_ + std::min(relative_count_, relocation_count_), relocations_ + relocation_count_,
                  chooses))
    return true;
  if (std::any_of(plt_, plt_ + plt_count_, chooses)) return true;
  return std::any_of(symbols_, symbols_ + symbol_count(), [](const ElfW(Sym) & s) {
    return s.st_shndx != SHN_UNDEF && ELF64_ST_TYPE(s.st_info) == STT_GNU_IFUNC;
  });
}

LoadedObject object_around(const void* inside) {
  constexpr std::uintptr_t page = 4096;
  std::uintptr_t at = reinterpret_cast<std::uintptr_t>(inside) & ~(page - 1);
  while (std::memcmp(reinterpret_cast<const void*>(at), ELFMAG, SELFMAG) != 0) at -= page;
  const auto* header = reinterpret_cast<const ElfW(Ehdr)*>(at);
  const auto* segment = reinterpret_cast<const ElfW(Phdr)*>(at + header->e_phoff);
  while (segment->p_type != PT_DYNAMIC) ++segment;
  return {at, reinterpret_cast<const ElfW(Dyn)*>(at + segment->p_vaddr)};
}

bool program_has_note_of(const char* owner) {
  const unsigned long* const place = auxiliary_value(AT_PHDR);
  const unsigned long* const count = auxiliary_value(AT_PHNUM);
  if (!place || !count) return false;
  const std::span headers(reinterpret_cast<const ElfW(Phdr)*>(*place), *count);
  std::uintptr_t base = 0;
  for (const ElfW(Phdr) & header : headers)
    if (header.p_type == PT_PHDR) base = *place - header.p_vaddr;
  for (const ElfW(Phdr) & header : headers) {
    if (header.p_type != PT_NOTE) continue;
    const std::uintptr_t end = base + header.p_vaddr + header.p_filesz;
    for (std::uintptr_t at = base + header.p_vaddr; at < end;) {
      const auto* const note = reinterpret_cast<const ElfW(Nhdr)*>(at);
      if (note->n_namesz == 4 && std::strncmp(reinterpret_cast<const char*>(note + 1), owner, 4) == 0) return true;
      at += sizeof *note + ((note->n_namesz + 3) & ~3u) + ((note->n_descsz + 3) & ~3u);
    }
  }
  return false;
}

}  // namespace sve::runner
