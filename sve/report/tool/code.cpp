#include "sve/report/tool/code.h"

#include <cxxabi.h>
#include <dwarf.h>
#include <elfutils/libdw.h>
#include <elfutils/libdwfl.h>
#include <fcntl.h>
#include <gelf.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

namespace sve::report {
namespace {

std::string demangled(const char* name) {
  if (!name) return "";
  int status = 0;
  char* const text = abi::__cxa_demangle(name, nullptr, nullptr, &status);
  const std::string result = status == 0 ? text : name;
  std::free(text);
  return result;
}

// `plain` is set where the name is not the one that a linker knows, which says more.
std::string name_of(Dwarf_Die* die, bool& plain) {
  Dwarf_Attribute attribute;
  plain = false;
  for (const unsigned name : {DW_AT_linkage_name, DW_AT_MIPS_linkage_name})
    if (const char* text = dwarf_formstring(dwarf_attr_integrate(die, name, &attribute))) return demangled(text);
  plain = true;
  if (const char* text = dwarf_formstring(dwarf_attr_integrate(die, DW_AT_name, &attribute))) return text;
  return "";
}

// The target of a direct branch that stands at an address; the address itself for any other word.
std::uint64_t branch_target(std::uint32_t word, std::uint64_t at) {
  const auto distance = [&](unsigned low, unsigned width) {
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(std::uint64_t{word} << (64 - low - width)) >>
                                      (64 - width) << 2);
  };
  if ((word & 0xfc000000) == 0x14000000) return at + distance(0, 26);  // b
  if ((word & 0xff000010) == 0x54000000 || (word & 0x7e000000) == 0x34000000)
    return at + distance(5, 19);                                       // b.cond, cbz
  if ((word & 0x7e000000) == 0x36000000) return at + distance(5, 14);  // tbz
  return at;
}

// A piece of code that belongs to a function, or to the body of one that is inlined.
struct Scope {
  std::uint64_t begin, end;
  unsigned depth;  // 0: a function of its own
  std::string function;
  bool plain;
  SourceLine called_from;
};

// With the directory where the unit was compiled.
std::string whole_path(const char* file, const char* directory) {
  std::filesystem::path path = file;
  if (path.is_relative() && directory) path = directory / path;
  return path.lexically_normal().string();
}

}  // namespace

struct CodeFile::State {
  int fd = -1;
  Elf* elf = nullptr;
  Dwfl* dwfl = nullptr;
  Dwfl_Module* module = nullptr;
  std::string debug_path;
  std::set<Dwarf_Off> units_read;
  std::vector<Scope> scopes;  // of those units, by their begin
  bool sorted = true;
  std::map<std::uint64_t, std::vector<LoopPlace>> loops_by_function;

  std::uint64_t address_of(std::uint64_t offset) const {
    std::size_t n = 0;
    if (!elf || elf_getphdrnum(elf, &n) != 0) return offset;
    for (std::size_t i = 0; i < n; ++i) {
      GElf_Phdr p;
      if (gelf_getphdr(elf, static_cast<int>(i), &p) && p.p_type == PT_LOAD && offset >= p.p_offset &&
          offset < p.p_offset + p.p_filesz)
        return offset - p.p_offset + p.p_vaddr;
    }
    return offset;
  }

  std::uint64_t offset_of(std::uint64_t address) const {
    std::size_t n = 0;
    if (elf_getphdrnum(elf, &n) != 0) return address;
    for (std::size_t i = 0; i < n; ++i) {
      GElf_Phdr p;
      if (gelf_getphdr(elf, static_cast<int>(i), &p) && p.p_type == PT_LOAD && address >= p.p_vaddr &&
          address < p.p_vaddr + p.p_filesz)
        return address - p.p_vaddr + p.p_offset;
    }
    return address;
  }

  void read_scopes(Dwarf_Die* parent, unsigned depth, Dwarf_Files* files, const char* directory) {
    Dwarf_Die die;
    if (dwarf_child(parent, &die) != 0) return;
    do {
      const int tag = dwarf_tag(&die);
      const bool is_function = tag == DW_TAG_subprogram, is_inlined = tag == DW_TAG_inlined_subroutine;
      if (is_function || is_inlined) {
        Scope s{0, 0, is_function ? 0 : depth, "", false, {}};
        s.function = name_of(&die, s.plain);
        Dwarf_Attribute attribute;
        Dwarf_Word number = 0;
        if (is_inlined && dwarf_formudata(dwarf_attr(&die, DW_AT_call_file, &attribute), &number) == 0)
          if (const char* file = files ? dwarf_filesrc(files, number, nullptr, nullptr) : nullptr)
            s.called_from.file = whole_path(file, directory);
        if (is_inlined && dwarf_formudata(dwarf_attr(&die, DW_AT_call_line, &attribute), &number) == 0)
          s.called_from.line = static_cast<int>(number);
        Dwarf_Addr base, begin, end;
        for (ptrdiff_t next = 0; (next = dwarf_ranges(&die, next, &base, &begin, &end)) > 0;) {
          s.begin = begin, s.end = end;
          scopes.push_back(s);
          sorted = false;
        }
      }
      if (is_function || is_inlined || tag == DW_TAG_lexical_block || tag == DW_TAG_namespace)
        read_scopes(&die, is_function ? 1 : depth + is_inlined, files, directory);
    } while (dwarf_siblingof(&die, &die) == 0);
  }

  // The scopes around an address, the innermost one first.
  std::vector<const Scope*> scopes_around(std::uint64_t address, std::uint64_t bias) {
    std::vector<const Scope*> around;
    Dwarf_Addr unit_bias = 0;
    Dwarf_Die* const unit = dwfl_module_addrdie(module, address + bias, &unit_bias);
    if (!unit) return around;
    if (units_read.insert(dwarf_dieoffset(unit)).second) {
      Dwarf_Files* files = nullptr;
      dwarf_getsrcfiles(unit, &files, nullptr);
      Dwarf_Attribute attribute;
      read_scopes(unit, 1, files, dwarf_formstring(dwarf_attr(unit, DW_AT_comp_dir, &attribute)));
    }
    if (!sorted) {
      std::sort(scopes.begin(), scopes.end(), [](const Scope& a, const Scope& b) { return a.begin < b.begin; });
      reach.clear();
      for (const Scope& s : scopes) reach.push_back(std::max(s.end, reach.empty() ? 0 : reach.back()));
      sorted = true;
    }
    auto at = std::upper_bound(scopes.begin(), scopes.end(), address,
                               [](std::uint64_t a, const Scope& s) { return a < s.begin; });
    while (at != scopes.begin()) {
      --at;
      if (reach[static_cast<std::size_t>(at - scopes.begin())] <= address) break;  // nothing before it comes so far
      if (at->end > address) around.push_back(&*at);
    }
    std::stable_sort(around.begin(), around.end(), [](auto* a, auto* b) { return a->depth > b->depth; });
    return around;
  }
  std::vector<std::uint64_t> reach;  // up to each scope, the farthest end

  // From the backward branches of a function.
  const std::vector<LoopPlace>& loops_of(std::uint64_t begin, std::uint64_t end) {
    const auto [at, is_new] = loops_by_function.try_emplace(begin);
    std::vector<LoopPlace>& loops = at->second;
    if (!is_new || end <= begin || end - begin > (64u << 20)) return loops;
    std::vector<std::uint32_t> words((end - begin) / 4);
    const ssize_t got = pread(fd, words.data(), words.size() * 4, static_cast<off_t>(offset_of(begin)));
    words.resize(got > 0 ? static_cast<std::size_t>(got) / 4 : 0);
    std::map<std::uint64_t, std::uint64_t> last;  // the last branch to each target
    for (std::size_t i = 0; i < words.size(); ++i) {
      const std::uint64_t from = begin + 4 * i, to = branch_target(words[i], from);
      if (to < from && to >= begin) last[to] = from + 4;
    }
    for (const auto& [to, from] : last) loops.push_back({to, from});
    return loops;
  }
};

CodeFile::CodeFile(const std::string& path) : state_(std::make_unique<State>()) {
  static const Dwfl_Callbacks callbacks = {dwfl_build_id_find_elf, dwfl_standard_find_debuginfo,
                                           dwfl_offline_section_address, nullptr};
  elf_version(EV_CURRENT);
  state_->fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (state_->fd < 0) return;
  state_->elf = elf_begin(state_->fd, ELF_C_READ_MMAP, nullptr);
  if (elf_kind(state_->elf) != ELF_K_ELF) return;
  state_->dwfl = dwfl_begin(&callbacks);
  state_->module = dwfl_report_elf(state_->dwfl, path.c_str(), path.c_str(), -1, 0, true);
  dwfl_report_end(state_->dwfl, nullptr, nullptr);
}

CodeFile::~CodeFile() {
  if (state_->dwfl) dwfl_end(state_->dwfl);
  if (state_->elf) elf_end(state_->elf);
  if (state_->fd >= 0) close(state_->fd);
}

SourceLine CodeFile::line_of(std::uint64_t address) {
  SourceLine found;
  Dwfl_Line* const line = state_->module ? dwfl_module_getsrc(state_->module, address) : nullptr;
  if (!line) return found;
  const char* const file = dwfl_lineinfo(line, nullptr, &found.line, nullptr, nullptr, nullptr);
  if (!file) return {};
  found.file = whole_path(file, dwfl_line_comp_dir(line));
  return found;
}

CodePlace CodeFile::find(std::uint64_t offset) {
  CodePlace place;
  place.address = state_->address_of(offset);
  if (!state_->module) return place;
  GElf_Off into = 0;
  GElf_Sym symbol{};
  Dwarf_Addr bias = 0;
  const char* const name = dwfl_module_addrinfo(state_->module, place.address, &into, &symbol, nullptr, nullptr, &bias);
  // What lies behind the end of the last function is not of it.
  std::uint64_t begin = 0, end = 0;
  if (name && (symbol.st_size == 0 || into < symbol.st_size)) {
    place.function = demangled(name);
    begin = place.address - into;
    end = begin + symbol.st_size;
  }
  place.line = line_of(place.address);
  for (const Scope* s : state_->scopes_around(place.address, 0)) {
    if (s->depth > 0) {
      place.inlined.push_back({s->function, s->called_from});
    } else {
      if (!s->plain || place.function.empty()) place.function = s->function;
      if (begin == 0) begin = s->begin, end = s->end;
      break;
    }
  }
  for (const LoopPlace& loop : state_->loops_of(begin, end)) {
    if (place.address < loop.begin || place.address >= loop.end) continue;
    if (place.loop.end == 0 || loop.end - loop.begin < place.loop.end - place.loop.begin) place.loop = loop;
  }
  return place;
}

std::string CodeFile::build_id() {
  const unsigned char* bits = nullptr;
  GElf_Addr address;
  const int size = state_->module ? dwfl_module_build_id(state_->module, &bits, &address) : 0;
  std::string text;
  for (int i = 0; i < size; ++i) {
    text += "0123456789abcdef"[bits[i] >> 4];
    text += "0123456789abcdef"[bits[i] & 15];
  }
  return text;
}

}  // namespace sve::report
