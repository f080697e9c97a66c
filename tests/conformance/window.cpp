// Mapping and moving the memory window.
#include "tests/conformance/window.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace conformance::window {
namespace {

std::uint8_t* host(std::uint64_t address) {
  return reinterpret_cast<std::uint8_t*>(static_cast<std::uintptr_t>(address));  // NOLINT: the window's own addresses
}

}  // namespace

void map() {
  if (static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) != page) {
    std::fprintf(stderr, "conformance: needs pages of %d bytes\n", static_cast<int>(page));
    std::exit(2);
  }
  void* at = mmap(host(base), pages * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  if (at != host(base)) {
    std::fprintf(stderr, "conformance: cannot map the memory window at 0x%llx\n",
                 static_cast<unsigned long long>(base));
    std::exit(2);
  }
  for (unsigned n = 0; n < pages; ++n)
    if (page_readable[n]) mprotect(host(address_of_page(n)), page, PROT_READ | PROT_WRITE);
}

void fill(const Contents& from) {
  std::memcpy(host(address_of_page(1)), from.data, 2 * page);
  std::memcpy(host(address_of_page(4)), from.data + 2 * page, page);
}

void save(Contents& to) {
  std::memcpy(to.data, host(address_of_page(1)), 2 * page);
  std::memcpy(to.data + 2 * page, host(address_of_page(4)), page);
}

}  // namespace conformance::window
