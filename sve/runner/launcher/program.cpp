#include "sve/runner/launcher/program.h"

#include <elf.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "sve/runner/launcher/elf_file.h"

#ifndef EM_AARCH64
#define EM_AARCH64 183
#endif

namespace sve::runner {
namespace {

constexpr int most_interpreters = 4;  // as the kernel has it: interpreters may be scripts themselves

Finding refuse(int status, std::string_view name, std::string_view text) {
  Finding f;
  f.status = status;
  f.error = std::string(name) + ": " + std::string(text);
  return f;
}

bool is_directory(const std::string& path) {
  struct stat s;
  return stat(path.c_str(), &s) == 0 && S_ISDIR(s.st_mode);
}

std::string machine_name(unsigned machine) {
  switch (machine) {
    case EM_X86_64:
      return "x86-64";
    case EM_386:
      return "32-bit x86";
    case EM_ARM:
      return "32-bit Arm";
    case EM_RISCV:
      return "RISC-V";
    case EM_PPC64:
      return "64-bit PowerPC";
    case EM_S390:
      return "S/390";
    default:
      return "machine number " + std::to_string(machine);
  }
}

// The interpreter that the first line of a script names, and the one argument that it may have; nothing for other
// files.
std::vector<std::string> interpreter_of(const std::string& path) {
  const std::string head = ElfFile(path).read(256, 0);
  if (!head.starts_with("#!")) return {};
  constexpr char blanks[] = " \t\r";
  const std::string line = head.substr(2, head.find('\n') - 2);
  const auto first = line.find_first_not_of(blanks);
  if (first == std::string::npos) return {"/bin/sh"};
  const auto end = std::min(line.find_first_of(blanks, first), line.size());
  std::vector<std::string> words = {line.substr(first, end - first)};
  if (const auto argument = line.find_first_not_of(blanks, end); argument != std::string::npos)
    words.push_back(line.substr(argument, line.find_last_not_of(blanks) + 1 - argument));
  return words;
}

}  // namespace

Finding find_program(std::string_view name, std::string_view search_path) {
  std::vector<std::string> candidates;
  if (name.find('/') != std::string_view::npos) {
    candidates.emplace_back(name);
  } else {
    for (std::size_t at = 0; !name.empty() && at <= search_path.size();) {
      const std::size_t end = std::min(search_path.find(':', at), search_path.size());
      const std::string_view directory = search_path.substr(at, end - at);
      candidates.push_back((directory.empty() ? "." : std::string(directory)) + "/" + std::string(name));
      at = end + 1;
    }
  }
  std::optional<Finding> unusable;
  for (const std::string& path : candidates) {
    if (access(path.c_str(), F_OK) != 0) {
      if (errno == EACCES && !unusable)
        unusable = refuse(status_not_executable, path, "permission denied; make its directories searchable (chmod +x)");
      if (errno == ELOOP && !unusable)
        unusable =
            refuse(status_not_executable, path, "a loop of symbolic links; mend the link that leads back (ls -l)");
      continue;
    }
    if (is_directory(path)) {
      if (!unusable) unusable = refuse(status_not_executable, path, "a directory; name a program in it");
    } else if (access(path.c_str(), X_OK) != 0) {
      if (!unusable) unusable = refuse(status_not_executable, path, "not executable; make it so: chmod +x " + path);
    } else {
      Finding f;
      f.path = path;
      return f;
    }
  }
  if (unusable) return *unusable;
  const bool is_path = name.find('/') != std::string_view::npos;
  return refuse(status_not_found, name,
                is_path ? "no such program; check the path" : "no such program in PATH; give its path, as in ./NAME");
}

Finding resolve_scripts(const Finding& program, std::vector<std::string>& words) {
  Finding f = program;
  for (int depth = 0; f.status == 0; ++depth) {
    std::vector<std::string> interpreter = interpreter_of(f.path);
    if (interpreter.empty()) return f;
    if (depth == most_interpreters) {
      return refuse(status_not_executable, program.path, "a script of scripts without end; name a program in its #!");
    }
    words.front() = f.path;
    words.insert(words.begin(), interpreter.begin(), interpreter.end());
    const std::string script = f.path;
    // Not searched for in PATH.
    const bool is_path = interpreter.front().find('/') != std::string::npos;
    f = find_program(is_path ? interpreter.front() : "./" + interpreter.front(), "");
    if (f.status != 0) f.error = script + ": a script of " + f.error;
  }
  return f;
}

Finding check_machine(const std::string& path) {
  const ElfFile file(path);
  if (!file.is_open()) {
    return refuse(status_not_executable, path, "cannot be read; make it readable: chmod +r " + path);
  }
  if (!file.read(SELFMAG, 0).starts_with(ELFMAG)) {
    return refuse(status_not_executable, path, "not an ELF program; give the program that gcc or your linker made");
  }
  const auto header = file.record<Elf64_Ehdr>(0);
  const unsigned machine = header ? header->e_machine : 0;
  if (!header || header->e_ident[EI_CLASS] != ELFCLASS64 || header->e_ident[EI_DATA] != ELFDATA2LSB ||
      machine != EM_AARCH64) {
    const bool aarch64 = machine == EM_AARCH64;
    return refuse(status_not_executable, path,
                  "a program for " + (aarch64 ? std::string("another ABI of AArch64") : machine_name(machine)) +
                      ", not for 64-bit little-endian AArch64; build it with aarch64-linux-gnu-gcc");
  }
  if (header->e_type != ET_EXEC && header->e_type != ET_DYN) {
    return refuse(status_not_executable, path, "an object file or core, not a program; link it first");
  }
  Finding f;
  f.path = path;
  return f;
}

ProgramKind kind_of(const std::string& path) {
  const ElfFile file(path);
  ProgramKind kind;
  kind.loader = file.loader();
  kind.is_dynamic = file.find(PT_INTERP).has_value();
  kind.is_library = !kind.is_dynamic && file.is_library();
  kind.has_glibc = kind.loader.find("ld-linux-aarch64") != std::string::npos;
  struct stat s;
  kind.changes_user = stat(path.c_str(), &s) == 0 && (((s.st_mode & S_ISUID) && s.st_uid != geteuid()) ||
                                                      ((s.st_mode & S_ISGID) && s.st_gid != getegid()));
  kind.gets_capabilities = getuid() != 0 && getxattr(path.c_str(), "security.capability", nullptr, 0) > 0;
  kind.is_go = file.has_section(".go.buildinfo") || file.has_section(".note.go.buildid");
  for (const std::string& name : file.needed())
    for (const char* prefix : {"libasan.so.", "libhwasan.so.", "libtsan.so."})
      if (kind.sanitizer.empty() && name.starts_with(prefix)) kind.sanitizer = name;
  return kind;
}

Finding check_program(const std::string& path) {
  if (Finding machine = check_machine(path); machine.status != 0) return machine;
  const ProgramKind kind = kind_of(path);
  if (kind.is_dynamic && kind.loader.empty()) {
    return refuse(status_not_executable, path, "its ELF headers are damaged; link it again");
  }
  if (kind.is_library) {
    return refuse(status_not_executable, path, "a shared library, not a program; run a program that loads it");
  }
  if (!kind.is_dynamic) {
    return refuse(status_not_executable, path,
                  "statically linked, and preloading cannot reach it; link it dynamically (without -static), or give "
                  "--platform=dynamorio");
  }
  if (!kind.has_glibc) {
    return refuse(status_not_executable, path,
                  "its loader is " + kind.loader + ", not glibc's ld-linux-aarch64.so.1; build it against glibc");
  }
  if (kind.changes_user) {
    return refuse(status_not_executable, path,
                  "set-user-ID or set-group-ID, which turns preloading off; run a plain copy");
  }
  if (kind.gets_capabilities) {
    return refuse(status_not_executable, path, "has file capabilities, which turn preloading off; run a plain copy");
  }
  Finding f;
  f.path = path;
  return f;
}

}  // namespace sve::runner
