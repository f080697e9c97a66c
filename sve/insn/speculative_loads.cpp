// First-fault and non-fault loads that run as instruction functions. Two mechanisms, which differ in what they detect
// and in how the first-fault register comes out; programs see the differences, so they are kept apart. A third one, the
// guarded read of each element, is the vector library's.
#include "sve/fault/fault_capture.h"
#include "sve/insn/memory.h"

using namespace sve;

namespace {

bool is_readable(u64 address) { return addr_is_readable(reinterpret_cast<char volatile*>(address)); }

// One element, guarded.
template <class M>
bool read_guarded(u64 address, M& element) {
  std::make_unsigned_t<M> bits;
  const bool readable = guarded_read(address, bits);
  element = static_cast<M>(bits);
  return readable;
}

// Elements 0 to n-1 into `to`, an inactive one as 0. Returns how many were read: an element that another thread takes
// away meanwhile ends the walk. The first active one of the first page is read plainly, since it may fault.
template <class T, class M>
std::size_t read_elements(byte* to, const byte* predicate, u64 start, std::size_t n) {
  const u64 first_page_end = start | (page_size - 1);
  bool first = true;
  for (std::size_t e = 0; e < n; ++e) {
    M element{0};
    if (active<T>(predicate, e)) {
      const u64 address = start + e * sizeof(M);
      if (first && address <= first_page_end)
        element = read_memory<M>(address);
      else if (!read_guarded(address, element))
        return e;
      first = false;
    }
    store<T>(to, e, static_cast<T>(element));
  }
  return n;
}

// All elements' memory, if all of it can be read at once. What is less than a word is left to reads by element.
template <class T, class M>
bool copy_span(byte* span, u64 start) {
  constexpr std::size_t bytes = lanes<T> * sizeof(M);
  if constexpr (bytes < sizeof(u64)) return false;
  return guarded_copy(span, start, bytes);
}

// The elements of a span that could be read whole.
template <class T, class M>
void take_span(byte* dst, const byte* predicate, const byte* span) {
#pragma GCC ivdep
  for (std::size_t e = 0; e < lanes<T>; ++e)
    store<T>(dst, e, static_cast<T>(static_cast<T>(load<M>(span, e)) & active_mask<T>(predicate, e)));
}

// First-fault, scalar plus scalar: one probe of the next page, and that only when the span of a whole vector crosses a
// page end. The first page is never tested: a load that starts in unreadable memory ends the process.
template <class T, class M>
aarch64_decode_rc load_first_fault(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg, aarch64_i_rsp_reg rn,
                                   aarch64_i_reg rm) {
  const u64 start = read(state, rn) + read(state, rm) * sizeof(M);
  byte* dst = z_of(state, zt);
  const byte* predicate = p_of(state, pg);
  alignas(16) byte span[vector_bytes];
  // The span is that of a whole vector whatever the load covers.
  const int offset = static_cast<int>(start & (page_size - 1));
  const int end = static_cast<int>((start + vector_bytes) & (page_size - 1));
  if (offset <= end && copy_span<T, M>(span, start)) {
    take_span<T, M>(dst, predicate, span);
    return executed;
  }
  // Elements that lie wholly below the page end if memory elements were as wide as the register's: an under-count for
  // the widening forms, and required. A program that loops until all is loaded, as it must, takes a round more at a
  // page's end.
  const std::size_t below = page_size - static_cast<unsigned>(offset);
  const std::size_t in_first_page = (below < vector_bytes ? below : vector_bytes) / sizeof(T);
  std::size_t readable = lanes<T>;
  if (offset > end && !is_readable(start + page_size)) readable = in_first_page;
  {
    const GuardedReads guard;
    const std::size_t n = read_elements<T, M>(span, predicate, start, readable);
    if (n < readable) readable = n < in_first_page ? n : in_first_page;
  }
  std::memcpy(dst, span, readable * sizeof(T));
  // The elements above keep their old values; their bytes of the first-fault register are cleared, active or not.
  if (readable < lanes<T>) std::memset(state->ffr + readable * sizeof(T), 0, vector_bytes - readable * sizeof(T));
  return executed;
}

// Non-fault, scalar plus immediate: a probe at the first element and after each page end, of an element's first byte
// only. A failure is not sticky: a later element on a readable page loads.
template <class T, class M>
aarch64_decode_rc load_non_fault(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg, aarch64_i_rsp_reg rn, int imm) {
  const u64 start = read(state, rn) + static_cast<u64>(static_cast<std::int64_t>(imm)) * (lanes<T> * sizeof(M));
  byte* dst = z_of(state, zt);
  const byte* predicate = p_of(state, pg);
  const GuardedReads guard;
  bool readable = is_readable(start);  // also when no element is active
  // In one page all elements are read or none is.
  alignas(16) byte span[vector_bytes];
  if (readable && within_page(start, lanes<T> * sizeof(M)) && copy_span<T, M>(span, start)) {
    take_span<T, M>(dst, predicate, span);
    return executed;
  }
  auto last = static_cast<std::int64_t>(start & (page_size - 1));
  for (std::size_t e = 0; e < lanes<T>; ++e) {
    if (!active<T>(predicate, e)) {
      store<T>(dst, e, T{0});
      continue;
    }
    const u64 address = start + e * sizeof(M);
    const auto offset = static_cast<std::int64_t>(address & (page_size - 1));
    if (offset <= last) {
      readable = is_readable(address);
      last = offset;
    }
    M element;
    bool loaded = readable && read_guarded(address, element);
    if (readable && !loaded && static_cast<u64>(offset) + sizeof(M) > page_size) {
      element = read_memory<M>(address);  // it runs into an unreadable page: fatal
      loaded = true;
    }
    if (loaded)
      store<T>(dst, e, static_cast<T>(element));
    else
      std::memset(state->ffr + e * sizeof(T), 0, sizeof(T));  // the destination element keeps its old value
  }
  return executed;
}

}  // namespace

#define FIRST_FAULT(name, T, M) \
  SVE_ZPRR(name) { return load_first_fault<T, M>(state, zt, pg, rn, rm); }
#define NON_FAULT(name, T, M) \
  SVE_ZPRI(name) { return load_non_fault<T, M>(state, zt, pg, rn, imm); }

FIRST_FAULT(ldff1b_d, u64, u8)
FIRST_FAULT(ldff1b_h, u16, u8)
FIRST_FAULT(ldff1b_s, u32, u8)
FIRST_FAULT(ldff1b, u8, u8)
FIRST_FAULT(ldff1d, u64, u64)
FIRST_FAULT(ldff1w_d, u64, u32)
FIRST_FAULT(ldff1w, u32, u32)

SVE_LOAD_FUNCTIONS(NON_FAULT, ldnf1)
