#include "sve/runner/sites/memory_map.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <atomic>
#include <cstring>
#include <initializer_list>
#include <iterator>

#include "sve/runner/preload/kernel.h"

namespace sve::runner {
namespace {

std::uintptr_t distance(std::uintptr_t a, std::uintptr_t b) { return a < b ? b - a : a - b; }

Mapping known[64];
std::size_t known_count = 0;

constexpr std::size_t most_modules = 4096;
NotedModule* modules = nullptr;
std::atomic<std::uint32_t> module_count{0};

// Returns its number, or 0 if it is no file or there is no room.
std::uint32_t note(const Mapping& m, const char* path) {
  if (!modules || path[0] != '/') return 0;
  const std::uint32_t n = module_count.load(std::memory_order_relaxed);
  for (std::uint32_t i = 0; i < n; ++i) {
    const NotedModule& known_one = modules[i];
    if (known_one.begin == m.begin && known_one.offset == m.offset && std::strcmp(known_one.path, path) == 0)
      return i + 1;
  }
  if (n == most_modules) return 0;
  modules[n] = {m.begin, m.end, m.offset, {}};
  std::memcpy(modules[n].path, path, std::strlen(path) + 1);
  module_count.store(n + 1, std::memory_order_release);
  return n + 1;
}

}  // namespace

MappingReader::MappingReader()
    : fd_(static_cast<int>(system_call(SYS_openat, AT_FDCWD, address("/proc/self/maps"), O_RDONLY | O_CLOEXEC))) {}

MappingReader::~MappingReader() {
  if (fd_ >= 0) system_call(SYS_close, fd_);
}

int MappingReader::get() {
  if (at_ == size_) {
    const long n = fd_ >= 0 ? system_call(SYS_read, fd_, address(text_), sizeof text_) : 0;
    if (n <= 0) return -1;
    at_ = 0;
    size_ = static_cast<std::size_t>(n);
  }
  return static_cast<unsigned char>(text_[at_++]);
}

// A line is "begin-end rwxp offset device inode   name".
bool MappingReader::next(Mapping& m) {
  m = {};
  int c = get();
  for (std::uintptr_t* number : {&m.begin, &m.end}) {
    for (; c >= 0 && c != '-' && c != ' '; c = get())
      *number = *number << 4 | static_cast<unsigned>(c <= '9' ? c - '0' : c - 'a' + 10);
    if (c < 0) return false;
    c = get();
  }
  m.readable = c == 'r';
  m.writable = get() == 'w';
  m.executable = get() == 'x';
  m.is_private = get() == 'p';
  get();
  while ((c = get()) >= 0 && c != ' ')
    m.offset = m.offset << 4 | static_cast<unsigned>(c <= '9' ? c - '0' : c - 'a' + 10);
  // The name begins a path or a word in brackets.
  std::size_t size = 0;
  while ((c = get()) >= 0 && c != '\n') {
    if ((size > 0 || c == '/' || c == '[') && size < sizeof path_) path_[size++] = static_cast<char>(c);
  }
  path_[size < sizeof path_ ? size : 0] = 0;
  m.is_stack = std::strcmp(path_, "[stack]") == 0;
  return m.end > m.begin;
}

bool find_mapping(std::uintptr_t address, Mapping& m) {
  MappingReader reader;
  while (reader.next(m))
    if (address >= m.begin && address < m.end) return true;
  return false;
}

void read_mapped_file(const void* from, void* to, std::size_t size) {
  const auto place = reinterpret_cast<std::uintptr_t>(from);
  MappingReader reader;
  for (Mapping m; reader.next(m);) {
    if (place < m.begin || place >= m.end || reader.path()[0] != '/') continue;
    const long fd = system_call(SYS_openat, AT_FDCWD, address(reader.path()), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    system_call(SYS_pread64, fd, address(to), static_cast<long>(size), static_cast<long>(place - m.begin + m.offset));
    system_call(SYS_close, fd);
    return;
  }
}

void note_modules() {
  const long memory = system_call(SYS_mmap, 0, most_modules * sizeof(NotedModule), PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory > 0 || memory < -4096) modules = reinterpret_cast<NotedModule*>(memory);
}

const NotedModule* find_noted_module(std::uint32_t number) {
  return number > 0 && number <= module_count.load(std::memory_order_acquire) ? &modules[number - 1] : nullptr;
}

bool find_code_mapping(std::uintptr_t address, Mapping& m) {
  for (std::size_t i = 0; i < known_count; ++i) {
    m = known[i];
    if (address >= m.begin && address < m.end) return true;
  }
  MappingReader reader;
  do {
    if (!reader.next(m)) return false;
  } while (address < m.begin || address >= m.end);
  if (!m.executable || !m.is_private) return false;
  m.module = note(m, reader.path());
  if (known_count == std::size(known)) known_count = 0;
  known[known_count++] = m;
  return true;
}

void forget_code_mappings() { known_count = 0; }

bool knows_code_mapping(std::uintptr_t from, std::uintptr_t to) {
  for (std::size_t i = 0; i < known_count; ++i)
    if (from < known[i].end && known[i].begin < to) return true;
  return false;
}

// The upper end of a gap is taken, next to the mapping above: heaps grow upwards into the lower ends.
std::uintptr_t find_gap(std::uintptr_t address, std::size_t size, std::size_t reach) {
  constexpr std::uintptr_t lowest = 0x10000, alignment = 0x10000;
  std::uintptr_t best = 0, gap_begin = lowest;
  const auto consider = [&](std::uintptr_t place) {
    const std::uintptr_t farthest = place > address ? place + size : place;
    if (distance(farthest, address) >= reach) return;
    if (best == 0 || distance(place, address) < distance(best, address)) best = place;
  };
  MappingReader reader;
  for (Mapping m; reader.next(m); gap_begin = m.end) {
    if (m.begin < gap_begin + size + 2 * alignment || m.is_stack) continue;
    consider((m.begin - size) & ~(alignment - 1));
    // A large gap's upper end may be out of reach.
    if (m.begin > address && gap_begin >= address) consider((gap_begin + reach / 4) & ~(alignment - 1));
  }
  return best;
}

}  // namespace sve::runner
