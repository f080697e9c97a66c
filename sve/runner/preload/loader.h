// The dynamic loader and the libraries that it has loaded, as they can be read before it has relocated anything: no
// function of libc and no imported symbol is needed.
#pragma once

#include <elf.h>
#include <link.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace sve::runner {

/// What of a loaded object is needed to look at its symbols and relocations.
class LoadedObject {
 public:
  LoadedObject(std::uintptr_t base, const ElfW(Dyn) * dynamic);

  /// The address of a function or variable that it defines, chosen by no function, or null.
  void* find(const char* name, std::size_t* size = nullptr) const;

  /// Whether the loader runs functions of it to choose implementations (ifunc).
  bool chooses_implementations() const;

  const char* name() const;  ///< its DT_SONAME, or ""
  std::span<std::uintptr_t> initialisers() const { return {initialisers_, initialiser_count_}; }  ///< DT_INIT_ARRAY

  template <class Body>
  void for_each_relocation(Body body) const {
    for (const ElfW(Rela)* at = relocations_; at < relocations_ + relocation_count_; ++at) body(*at);
    for (const ElfW(Rela)* at = plt_; at < plt_ + plt_count_; ++at) body(*at);
  }

  const ElfW(Sym) & symbol(const ElfW(Rela) & relocation) const { return symbols_[ELF64_R_SYM(relocation.r_info)]; }
  const char* name_of(const ElfW(Sym) & symbol) const { return strings_ + symbol.st_name; }
  std::uintptr_t base() const { return base_; }

 private:
  std::size_t symbol_count() const;

  std::uintptr_t base_;
  const ElfW(Sym) * symbols_ = nullptr;
  const char* strings_ = nullptr;
  const std::uint32_t* hash_ = nullptr;      // DT_HASH
  const std::uint32_t* gnu_hash_ = nullptr;  // DT_GNU_HASH
  const ElfW(Rela) * relocations_ = nullptr;
  const ElfW(Rela) * plt_ = nullptr;
  std::size_t relocation_count_ = 0, relative_count_ = 0, plt_count_ = 0, initialiser_count_ = 0;
  std::size_t name_ = 0;
  std::uintptr_t* initialisers_ = nullptr;
};

/// The object that holds the code at `inside`, whose headers begin it.
LoadedObject object_around(const void* inside);

/// Whether the program has a note whose owner has this name of three letters.
bool program_has_note_of(const char* owner);

}  // namespace sve::runner
