#include "sve/runner/launcher/program.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>
#include <vector>

#ifndef EM_AARCH64
#define EM_AARCH64 183
#endif

namespace sve::runner {
namespace {

finding refuse(int status, std::string_view name, std::string_view text) {
  finding f;
  f.status = status;
  f.error = std::string(name) + ": " + std::string(text);
  return f;
}

bool is_directory(const std::string& path) {
  struct stat s;
  return stat(path.c_str(), &s) == 0 && S_ISDIR(s.st_mode);
}

class File {
 public:
  explicit File(const std::string& path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~File() {
    if (fd_ >= 0) close(fd_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  bool is_open() const { return fd_ >= 0; }
  /// As many of `size` bytes at `offset` as there are.
  std::string read(std::size_t size, std::uint64_t offset) const {
    std::string bytes(size, '\0');
    const ssize_t n = pread(fd_, bytes.data(), size, static_cast<off_t>(offset));
    bytes.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    return bytes;
  }
  template <class T>
  std::optional<T> record(std::uint64_t offset) const {
    const std::string bytes = read(sizeof(T), offset);
    if (bytes.size() != sizeof(T)) return std::nullopt;
    T value;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
  }

 private:
  int fd_;
};

// The segments that an ELF file's headers tell of. A damaged file may tell anything.
class program_headers {
 public:
  explicit program_headers(const File& file) {
    const auto header = file.record<Elf64_Ehdr>(0);
    for (unsigned i = 0; header && i < header->e_phnum; ++i) {
      const auto segment = file.record<Elf64_Phdr>(header->e_phoff + std::uint64_t{i} * header->e_phentsize);
      if (!segment) return;
      segments_.push_back(*segment);
    }
  }
  std::optional<Elf64_Phdr> find(unsigned type) const {
    for (const Elf64_Phdr& segment : segments_)
      if (segment.p_type == type) return segment;
    return std::nullopt;
  }
  /// The entries of the dynamic section with this tag.
  std::vector<std::uint64_t> dynamic(const File& file, std::int64_t tag) const {
    std::vector<std::uint64_t> values;
    const auto segment = find(PT_DYNAMIC);
    const std::uint64_t count = segment ? std::min<std::uint64_t>(segment->p_filesz / sizeof(Elf64_Dyn), 4096) : 0;
    for (std::uint64_t i = 0; i < count; ++i) {
      const auto entry = file.record<Elf64_Dyn>(segment->p_offset + i * sizeof(Elf64_Dyn));
      if (!entry || entry->d_tag == DT_NULL) break;
      if (entry->d_tag == tag) values.push_back(entry->d_un.d_val);
    }
    return values;
  }
  /// A dynamic section, and no mark of a position-independent program.
  bool is_library(const File& file) const {
    if (!find(PT_DYNAMIC)) return false;
    const auto flags = dynamic(file, DT_FLAGS_1);
    return flags.empty() || !(flags.front() & DF_1_PIE);
  }
  /// The names of the libraries that the program was linked with.
  std::vector<std::string> needed(const File& file) const {
    std::vector<std::string> names;
    const auto strings = dynamic(file, DT_STRTAB);
    if (strings.empty()) return names;
    for (const Elf64_Phdr& segment : segments_) {
      if (segment.p_type != PT_LOAD || strings.front() - segment.p_vaddr >= segment.p_filesz) continue;
      const std::uint64_t table = strings.front() - segment.p_vaddr + segment.p_offset;
      for (const std::uint64_t name : dynamic(file, DT_NEEDED)) names.push_back(file.read(256, table + name).c_str());
      break;
    }
    return names;
  }

 private:
  std::vector<Elf64_Phdr> segments_;
};

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

// "#!/usr/bin/env python3" is a script of "/usr/bin/env python3".
finding refuse_script(const std::string& path, const std::string& head) {
  std::string interpreter = head.substr(2, head.find('\n') - 2);
  const auto first = interpreter.find_first_not_of(" \t");
  const auto last = interpreter.find_last_not_of(" \t\r");
  interpreter = first == std::string::npos ? "/bin/sh" : interpreter.substr(first, last - first + 1);
  return refuse(status_not_executable, path, "a script; run its interpreter: sve-run " + interpreter + " " + path);
}

}  // namespace

finding find_program(std::string_view name, std::string_view search_path) {
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
  std::optional<finding> unusable;
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
      finding f;
      f.path = path;
      return f;
    }
  }
  if (unusable) return *unusable;
  const bool is_path = name.find('/') != std::string_view::npos;
  return refuse(status_not_found, name,
                is_path ? "no such program; check the path" : "no such program in PATH; give its path, as in ./NAME");
}

finding check_machine(const std::string& path) {
  const File file(path);
  if (!file.is_open()) {
    return refuse(status_not_executable, path, "cannot be read; make it readable: chmod +r " + path);
  }
  const std::string head = file.read(256, 0);
  if (head.starts_with("#!")) return refuse_script(path, head);
  if (!head.starts_with(ELFMAG)) {
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
  finding f;
  f.path = path;
  return f;
}

finding check_program(const std::string& path) {
  if (finding machine = check_machine(path); machine.status != 0) return machine;
  const File file(path);
  const program_headers segments(file);
  std::string loader;
  if (const auto segment = segments.find(PT_INTERP)) {
    loader = file.read(std::min<std::uint64_t>(segment->p_filesz, PATH_MAX), segment->p_offset).c_str();
    if (loader.empty()) return refuse(status_not_executable, path, "its ELF headers are damaged; link it again");
  }
  if (loader.empty() && segments.is_library(file)) {
    return refuse(status_not_executable, path, "a shared library, not a program; run a program that loads it");
  }
  if (loader.empty()) {
    return refuse(status_not_executable, path,
                  "statically linked, and preloading cannot reach it; link it dynamically (without -static), or give "
                  "--platform=dynamorio");
  }
  if (loader.find("ld-linux-aarch64") == std::string::npos) {
    return refuse(status_not_executable, path,
                  "its loader is " + loader + ", not glibc's ld-linux-aarch64.so.1; build it against glibc");
  }
  struct stat s;
  if (stat(path.c_str(), &s) == 0 &&
      (((s.st_mode & S_ISUID) && s.st_uid != geteuid()) || ((s.st_mode & S_ISGID) && s.st_gid != getegid()))) {
    return refuse(status_not_executable, path,
                  "set-user-ID or set-group-ID, which turns preloading off; run a plain copy");
  }
  if (getuid() != 0 && getxattr(path.c_str(), "security.capability", nullptr, 0) > 0) {
    return refuse(status_not_executable, path, "has file capabilities, which turn preloading off; run a plain copy");
  }
  finding f;
  f.path = path;
  return f;
}

std::string sanitizer_of(const std::string& path) {
  const File file(path);
  for (const std::string& name : program_headers(file).needed(file))
    for (const char* prefix : {"libasan.so.", "libhwasan.so.", "libtsan.so."})
      if (name.starts_with(prefix)) return name;
  return "";
}

}  // namespace sve::runner
