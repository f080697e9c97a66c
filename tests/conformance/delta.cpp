// Comparing and recording outcomes.
#include "tests/conformance/delta.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "tests/conformance/memory_accesses.h"

namespace conformance {
namespace {

/// A named place of the machine.
struct Place {
  char name[16];
  std::size_t offset, size;
  unsigned element;  ///< bytes in which it is shown
  bool predicate;
};

template <class Visit>
void for_each_place(unsigned element_bytes, Visit visit) {
  Place at;
  const auto show = [&](const char* format, int n, std::size_t offset, std::size_t size, unsigned element,
                        bool predicate) {
    std::snprintf(at.name, sizeof at.name, format, n);
    at.offset = offset;
    at.size = size;
    at.element = element;
    at.predicate = predicate;
    visit(at);
  };
  for (int n = 0; n < 31; ++n) show("x%d", n, offsetof(Machine, x) + 8u * static_cast<unsigned>(n), 8, 8, false);
  show("sp", 0, offsetof(Machine, sp), 8, 8, false);
  show("nzcv", 0, offsetof(Machine, nzcv), 8, 8, false);
  show("fpsr", 0, offsetof(Machine, fpsr), 8, 8, false);
  show("fpcr", 0, offsetof(Machine, fpcr), 8, 8, false);
  for (int n = 0; n < 32; ++n)
    show("z%d", n, offsetof(Machine, z) + sve::vector_bytes * static_cast<unsigned>(n), sve::vector_bytes,
         element_bytes, false);
  for (int n = 0; n < 16; ++n)
    show("p%d", n, offsetof(Machine, p) + sve::predicate_bytes * static_cast<unsigned>(n), sve::predicate_bytes, 1,
         true);
  show("ffr", 0, offsetof(Machine, ffr), sve::predicate_bytes, 1, true);
}

unsigned shown_bytes(const RowInfo& row) {
  return row.element_bits >= 8 && row.element_bits <= 64 ? row.element_bits / 8 : 8;
}

const std::uint8_t* bytes_of(const Machine& m) {
  return reinterpret_cast<const std::uint8_t*>(&m);  // NOLINT: bytes
}

std::uint64_t value_at(const std::uint8_t* at, unsigned bytes) {
  std::uint64_t value = 0;
  std::memcpy(&value, at, bytes);
  return value;
}

void append(std::vector<std::uint8_t>& to, const void* from, std::size_t size) {
  const auto* at = static_cast<const std::uint8_t*>(from);
  for (std::size_t i = 0; i < size; ++i) to.push_back(at[i]);
}

}  // namespace

std::vector<std::uint8_t> encode_change(const TestCase& c, const window::Contents& original,
                                        const ModelOutcome& result) {
  std::vector<std::uint8_t> change;
  change.push_back(result.faulted);
  if (result.faulted) {
    const std::uint64_t page = result.fault_address / window::page;
    append(change, &page, 8);
  }
  const std::uint8_t *before = bytes_of(c.state), *after = bytes_of(result.state);
  std::uint8_t n = 0;
  for_each_place(8, [&](const Place& at) {
    ++n;
    if (std::memcmp(before + at.offset, after + at.offset, at.size) == 0) return;
    change.push_back(n);
    append(change, after + at.offset, at.size);
  });
  if (c.row->memory.stores() && !(result.faulted && c.row->memory.access == AccessKind::spill))
    for (std::size_t i = 0; i < sizeof original.data; ++i)
      if (original.data[i] != result.memory.data[i]) {
        const std::uint16_t offset = static_cast<std::uint16_t>(i);
        append(change, &offset, 2);
        change.push_back(result.memory.data[i]);
      }
  return change;
}

std::uint64_t hash_case(const TestCase& c) {
  std::uint64_t h = c.word;
  for (std::size_t i = 0; i < sizeof c.state; i += 8)
    h = (h ^ value_at(bytes_of(c.state) + i, 8)) * 0x9e3779b97f4a7c15u ^ h >> 29;
  return h;
}

std::string first_difference(const TestCase& c, const Outcome& expected, const Outcome& actual) {
  char text[200];
  if (expected.faulted != actual.faulted) {
    std::snprintf(text, sizeof text, "expected %s, model %s (address 0x%" PRIx64 ")",
                  expected.faulted ? "a fault" : "no fault", actual.faulted ? "faulted" : "did not fault",
                  expected.faulted ? expected.fault_address : actual.fault_address);
    return text;
  }
  // Within a page nothing tells in which order elements fault.
  if (expected.faulted && expected.fault_address / window::page != actual.fault_address / window::page) {
    std::snprintf(text, sizeof text, "expected a fault at 0x%" PRIx64 ", model faulted at 0x%" PRIx64,
                  expected.fault_address, actual.fault_address);
    return text;
  }
  std::string found;
  for_each_place(shown_bytes(*c.row), [&](const Place& at) {
    if (!found.empty()) return;
    const std::uint8_t *want = bytes_of(expected.state) + at.offset, *have = bytes_of(actual.state) + at.offset;
    if (std::memcmp(want, have, at.size) == 0) return;
    for (unsigned i = 0; i < at.size / at.element; ++i) {
      const std::uint64_t w = value_at(want + i * at.element, at.element),
                          h = value_at(have + i * at.element, at.element);
      if (w == h) continue;
      if (at.predicate) {
        unsigned bit = 0;
        while (((w ^ h) >> bit & 1) == 0) ++bit;
        std::snprintf(text, sizeof text, "%s bit %u: expected %d, model %d", at.name, i * 8 + bit,
                      static_cast<int>(w >> bit & 1), static_cast<int>(h >> bit & 1));
      } else {
        std::snprintf(text, sizeof text, "%s element %u of %u bits: expected 0x%0*" PRIx64 ", model 0x%0*" PRIx64,
                      at.name, i, at.element * 8, static_cast<int>(at.element * 2), w, static_cast<int>(at.element * 2),
                      h);
      }
      found = text;
      return;
    }
  });
  const MemoryForm& m = c.row->memory;
  if (!found.empty() || !m.stores()) return found;
  const auto is_unspecified = [&expected](std::uint64_t address) {
    return address >= expected.unspecified_begin && address < expected.unspecified_end;
  };
  for (std::size_t i = 0; i < sizeof expected.memory.data; ++i)
    if (!is_unspecified(expected.memory.address(i)) && expected.memory.data[i] != actual.memory.data[i]) {
      std::snprintf(text, sizeof text, "memory at 0x%" PRIx64 ": expected 0x%02x, model 0x%02x",
                    expected.memory.address(i), expected.memory.data[i], actual.memory.data[i]);
      return text;
    }
  return found;
}

std::string describe_inputs(const TestCase& c) {
  std::string text;
  char line[120];
  const auto add = [&] { text += line; };
  std::snprintf(line, sizeof line,
                "  fpcr 0x%08" PRIx64 " fpsr 0x%08" PRIx64 " nzcv 0x%08" PRIx64 " sp 0x%" PRIx64 "\n", c.state.fpcr,
                c.state.fpsr, c.state.nzcv, c.state.sp);
  add();
  std::uint64_t shown_z = 0, shown_p = 0, shown_x = 0;
  const auto bits = [&](const char* name, unsigned n, const std::uint8_t* p) {
    std::snprintf(line, sizeof line, "  %s%u ", name, n);
    add();
    for (unsigned i = 0; i < sve::vector_bytes; ++i) text += element_active(p, i) ? '1' : '0';
    text += '\n';
  };
  for (const Operand& o : c.row->operands) {
    const unsigned n = o.number(c.word);
    const auto once = [n](std::uint64_t& shown) { return !(shown >> n & 1) && (shown |= std::uint64_t{1} << n); };
    if ((o.kind == Role::z || o.kind == Role::v) && once(shown_z)) {
      const unsigned element = shown_bytes(*c.row);
      std::snprintf(line, sizeof line, "  z%u", n);
      add();
      for (unsigned i = 0; i < sve::vector_bytes / element; ++i) {
        std::snprintf(line, sizeof line, " %0*" PRIx64, static_cast<int>(element * 2),
                      value_at(c.state.z[n] + i * element, element));
        add();
      }
      text += '\n';
    } else if (o.kind == Role::p && once(shown_p)) {
      bits("p", n, c.state.p[n]);
    } else if ((o.kind == Role::x || o.kind == Role::x_or_sp) && n < 31 && once(shown_x)) {
      std::snprintf(line, sizeof line, "  x%u 0x%" PRIx64 "\n", n, c.state.x[n]);
      add();
    }
  }
  bits("ffr", 0, c.state.ffr);
  return text;
}

}  // namespace conformance
