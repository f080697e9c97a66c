// The required differences, each computed from its definition.
#include "tests/conformance/rules.h"

#include <bit>
#include <cstring>

#include "tests/conformance/memory_accesses.h"
#include "tests/conformance/native.h"

namespace conformance {
namespace {

enum RuleIndex {
  shifted_8_bit,
  reserved_logical,
  index_31,
  probe_first_fault,
  probe_non_fault,
  guarded_first_fault,
  speculative_page_crossing,
  speculative_first_inactive,
  plain_fault_store,
  plain_fault_load,
  straddling_fault,
  unzip_predicate,
  rule_count
};

// Where a predicate takes more than one word and half of it is no whole number of them, but for powers of two.
constexpr bool emulator_unzips_wrongly = sve::vector_bytes > 64 && !std::has_single_bit(sve::vector_bytes);

DifferenceRule rules[rule_count] = {
    {"shifted-8-bit-immediate",
     "the processor reserves an 8-bit element's immediate that is shifted left by 8; here its value is 0, so the "
     "processor is asked with the immediate 0",
     0},
    {"reserved-logical-immediate",
     "the processor reserves a logical immediate of all ones; here it is expanded as any other: ones throughout, or "
     "0 where 64 ones leave an empty element",
     0},
    {"index-register-31",
     "the processor reserves the zero register as the index of a contiguous access; here it adds zero, so the "
     "processor is asked with an index register that holds zero",
     0},
    {"first-fault-page-probe",
     "LDFF1B, LDFF1W and LDFF1D (scalar plus scalar) probe the next page only, count unreadable elements by the "
     "register's element size, and leave the destination of failed elements alone; an unreadable first page ends "
     "the process",
     0},
    {"non-fault-page-probe",
     "LDNF1 probes an element's first byte once a page: a failure is not sticky, marks active elements only and "
     "leaves their destination alone; an element that runs into an unreadable page ends the process",
     0},
    {"first-fault-guarded-read",
     "the other LDFF1 guard every element, the first active one too: from the first that cannot be read all "
     "elements are zero and marked, and nothing faults",
     0},
    {"emulator-speculative-page-crossing",
     "the emulated processor gives up first-fault and non-fault loads at a page end although the next page is "
     "readable; expected is what the definition gives",
     0},
    {"emulator-speculative-first-inactive",
     "the emulated processor loads wrong data when element 0 of a contiguous first-fault or non-fault load is "
     "inactive; expected is what the definition gives",
     0},
    {"store-fault-is-partial",
     "a store that faults has stored the elements below the fault; the emulated processor checks all pages first "
     "and stores nothing",
     0},
    {"load-fault-destination",
     "a load that faults has written the elements below the fault to its destination, unless that is its vector of "
     "addresses or the load is the vector library's; the emulated processor writes none",
     0},
    {"emulator-straddling-fault",
     "a plain access whose element or structure lies across the end of a readable page ends the emulator, so only "
     "the model is asked; it must fault",
     0},
    {"emulator-unzip-predicate",
     "the emulated processor lays bits 32 to 55 of what UZP1 and UZP2 of predicates take from each source 4 bits "
     "too low at this vector length; expected is its answer with that put right, and the 8 bits that are lost so as "
     "defined",
     0, emulator_unzips_wrongly},
};

void fire(RuleIndex r) { ++rules[r].fired; }

bool speculative(const MemoryForm& m) {
  return m.access == AccessKind::first_fault || m.access == AccessKind::non_fault;
}
bool contiguous(const MemoryForm& m) {
  return m.address == AddressForm::base_immediate || m.address == AddressForm::base_index;
}

bool any_unreadable(const MemoryPlan& plan, unsigned bytes) {
  for (unsigned i = 0; i < plan.count; ++i)
    if (plan.accesses[i].active && !plan.accesses[i].readable(bytes)) return true;
  return false;
}
/// Whether an element, or a structure of several, lies on both sides of a readable page's end.
bool any_straddles(const MemoryPlan& plan, const MemoryForm& m) {
  for (unsigned i = 0; i < plan.count; i += m.registers) {
    const MemoryAccess &first = plan.accesses[i], &last = plan.accesses[i + m.registers - 1];
    if (first.active && window::readable(first.address) != window::readable(last.address + m.memory_bytes - 1))
      return true;
  }
  return false;
}

/// The element at an address of the window's original contents, extended to 64 bits.
std::uint64_t memory_element(const window::Contents& memory, std::uint64_t address, const MemoryForm& m) {
  std::uint64_t value = 0;
  for (unsigned i = 0; i < m.memory_bytes; ++i)
    value |= std::uint64_t{const_cast<window::Contents&>(memory).at(address + i)} << (8 * i);
  const unsigned unused = 64 - 8u * m.memory_bytes;
  if (m.sign_extends) value = static_cast<std::uint64_t>(static_cast<std::int64_t>(value << unused) >> unused);
  return value;
}

/// Index register 31 of a contiguous access or prefetch, other than a first-fault load.
bool reserved_index(const RowInfo& row, std::uint32_t word) {
  return row.row->form->address == sve::decode::AddressForm::base_index && (word >> 16 & 31) == register_31 &&
         row.memory.access != AccessKind::first_fault;
}
bool reserved_shift(const RowInfo& row, std::uint32_t word) {
  return row.element_bits == 8 && has_shifted_immediate(row) && (word >> 13 & 1);
}
/// Whether the ones of a logical immediate fill its element.
bool reserved_logical_immediate(const RowInfo& row, std::uint32_t word) {
  if (!is_logical_immediate(row)) return false;
  const std::uint32_t imms = word >> 5 & 63;
  if (word >> 17 & 1) return imms == 63;
  for (unsigned width = 2; width <= 32; width *= 2)  // imms is 0 below a run of ones that tells the width
    if ((imms & (64 - width)) == ((64 - 2 * width) & 63)) return (imms & (width - 1)) == width - 1;
  return true;  // one bit
}
unsigned unnamed_register(std::uint32_t word) {
  unsigned n = 0;
  while ((word & 31) == n || (word >> 5 & 31) == n) ++n;
  return n;
}

bool same_state(const Machine& a, const Machine& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// ---- First-fault and non-fault loads ----

struct SpeculativeLoad {
  const MemoryForm& m;
  const MemoryPlan plan;
  const window::Contents& memory;
  std::uint8_t* destination;
  Outcome& expected;

  void put(unsigned e, std::uint64_t value) { std::memcpy(destination + e * m.element_bytes, &value, m.element_bytes); }
  void mark(unsigned e) {
    for (unsigned i = 0; i < m.element_bytes; ++i) set_bit(expected.state.ffr, e * m.element_bytes + i, false);
  }
  /// A plain read of element e; false when it faults.
  bool read(unsigned e) {
    const MemoryAccess& a = plan.accesses[e];
    if (!a.readable(m.memory_bytes)) {
      expected.faulted = true;
      expected.fault_address = a.first_unreadable();
      return false;
    }
    put(e, memory_element(memory, a.address, m));
    return true;
  }

  void page_probe() {
    const std::uint64_t start = plan.start, within = start % window::page;
    const bool crosses = within > (start + sve::vector_bytes) % window::page;
    unsigned loaded = m.elements();
    if (crosses && !window::readable(start + window::page)) {
      const std::uint64_t below = window::page - within;
      loaded = static_cast<unsigned>(below < sve::vector_bytes ? below : sve::vector_bytes) / m.element_bytes;
    }
    for (unsigned e = 0; e < loaded; ++e) {
      if (!plan.accesses[e].active)
        put(e, 0);
      else if (!read(e))
        return;
    }
    for (unsigned e = loaded; e < m.elements(); ++e) mark(e);
  }

  void non_fault() {
    bool page_readable = window::readable(plan.start);
    std::uint64_t last = plan.start % window::page;
    for (unsigned e = 0; e < m.elements(); ++e) {
      const MemoryAccess& a = plan.accesses[e];
      if (!a.active) {
        put(e, 0);
        continue;
      }
      if (a.address % window::page <= last) {
        page_readable = window::readable(a.address);
        last = a.address % window::page;
      }
      if (!page_readable)
        mark(e);
      else if (!read(e))
        return;
    }
  }

  void guarded() {
    bool fault = false;
    for (unsigned e = 0; e < m.elements(); ++e) {
      const MemoryAccess& a = plan.accesses[e];
      if (a.active && !fault) fault = !a.readable(m.memory_bytes);
      put(e, a.active && !fault ? memory_element(memory, a.address, m) : 0);
      if (fault) mark(e);
    }
  }
};

void expect_speculative(const TestCase& c, bool native_ran, const window::Contents& memory, Outcome& expected) {
  const RowInfo& row = *c.row;
  const MemoryForm& m = row.memory;
  Outcome defined;
  defined.state = c.state;
  SpeculativeLoad load{m, plan_accesses(row, c.word, c.state), memory, defined.state.z[operands_of(row, c.word).data],
                       defined};
  RuleIndex mechanism = guarded_first_fault;
  if (m.access == AccessKind::non_fault) {
    mechanism = probe_non_fault;
    load.non_fault();
  } else if (row.row->model == sve::decode::Kind::direct) {
    mechanism = probe_first_fault;
    load.page_probe();
  } else {
    load.guarded();
  }
  defined.memory = expected.memory;
  if (defined.faulted && mechanism == probe_first_fault) defined.state = c.state;  // it writes all at once
  if (native_ran) {
    // Asked only where the processor's answer stands; a difference is the mechanism's.
    if (!same_state(defined.state, expected.state)) fire(mechanism);
  } else if (any_unreadable(load.plan, m.memory_bytes)) {
    fire(mechanism);
  } else {
    fire(load.plan.accesses[0].active ? speculative_page_crossing : speculative_first_inactive);
  }
  expected = defined;
}

// ---- Plain accesses that fault ----

/// A whole register moves in pieces, of which those below the one that faults are done. Byte `at` is the first that
/// cannot be touched.
void expect_whole_register(const TestCase& c, const MemoryPlan& plan, unsigned at, Outcome& expected) {
  const MemoryForm& m = c.row->memory;
  const unsigned data = operands_of(*c.row, c.word).data, piece = m.predicate_register ? 8 : 16;
  const unsigned done = at / piece * piece;
  if (!m.stores()) {
    if (!m.predicate_register)
      std::memcpy(expected.state.z[data] + done, c.state.z[data] + done, sve::vector_bytes - done);
    return;
  }
  const std::uint8_t* from = m.predicate_register ? c.state.p[data] : c.state.z[data];
  for (unsigned i = 0; i < done; ++i) expected.memory.at(plan.accesses[i].address) = from[i];
  // How much of a piece that lies across the end of a page is stored is the host's affair.
  expected.unspecified_begin = plan.start + done;
  expected.unspecified_end = plan.start + at;
}

void expect_plain_fault(const TestCase& c, bool native_ran, const MemoryPlan& plan, const window::Contents& original,
                        Outcome& expected) {
  const MemoryForm& m = c.row->memory;
  const Outcome native = expected;
  expected.state = c.state;
  expected.memory = original;
  expected.faulted = true;
  const unsigned bytes = c.row->memory.memory_bytes;
  const MemoryOperands o = operands_of(*c.row, c.word);
  const bool VectorForm = m.address != AddressForm::base_immediate && m.address != AddressForm::base_index;
  const bool loads_in_place = !m.stores() && !m.predicate_register && c.row->row->model == sve::decode::Kind::direct &&
                              !(VectorForm && o.data == o.vector);
  for (unsigned i = 0; i < plan.count; ++i) {
    const MemoryAccess& a = plan.accesses[i];
    std::uint8_t* element = expected.state.z[(o.data + a.register_offset) % 32] + a.element * m.element_bytes;
    if (a.active && !a.readable(bytes)) {
      expected.fault_address = a.first_unreadable();
      if (m.access == AccessKind::fill || m.access == AccessKind::spill) expect_whole_register(c, plan, i, expected);
      break;
    }
    if (loads_in_place) {
      const std::uint64_t value = a.active ? memory_element(original, a.address, m) : 0;
      std::memcpy(element, &value, m.element_bytes);
    } else if (m.access == AccessKind::store && a.active) {
      for (unsigned b = 0; b < bytes; ++b) expected.memory.at(a.address + b) = element[b];
    }
  }
  if (!native_ran)
    fire(straddling_fault);
  else if (!native.faulted)
    expected.faulted = false;  // the processor does not agree that this faults: let the comparison say so
  else if (m.stores())
    fire(plain_fault_store);
  else
    fire(plain_fault_load);
}

// ---- Immediates ----

void expect_reserved_logical(const TestCase& c, Outcome& expected) {
  const bool empty = c.word >> 17 & 1;
  const std::string_view operation = c.row->row->mnemonic();
  expected.state = c.state;
  std::uint8_t* z = expected.state.z[c.word & 31];
  for (unsigned i = 0; i < sve::vector_bytes; ++i) {
    const std::uint8_t imm = empty ? 0 : 0xff;
    if (operation == "orr")
      z[i] |= imm;
    else if (operation == "eor")
      z[i] ^= imm;
    else if (operation == "and")
      z[i] &= imm;
    else
      z[i] = imm;
  }
  fire(reserved_logical);
}

// ---- Predicates ----

void expect_unzip(const TestCase& c, unsigned part, Outcome& expected) {
  const unsigned group = c.row->element_bits / 8, n = static_cast<unsigned>(sve::vector_bytes) / group;
  const std::uint8_t* sources[] = {c.state.p[c.word >> 5 & 15], c.state.p[c.word >> 16 & 15]};
  Machine defined = c.state;
  for (unsigned e = 0; e < n; ++e) {
    const unsigned from = 2 * e + part;
    for (unsigned i = 0; i < group; ++i)
      set_bit(defined.p[c.word & 15], e * group + i, element_active(sources[from / n], from % n * group + i));
  }
  if (same_state(defined, expected.state)) return;
  // Of what each source gives, bits 32 to 55 are laid 4 bits too low, over bits 28 to 31. Those 8 are as defined; the
  // others are the processor's own.
  fire(unzip_predicate);
  const std::uint8_t* const right = defined.p[c.word & 15];
  std::uint8_t* const result = expected.state.p[c.word & 15];
  constexpr unsigned half = sve::vector_bytes / 2, shift = 4, laid_over = 32 - shift;
  for (unsigned from = 0; from < sve::vector_bytes; from += half)
    for (unsigned i = half; i-- > 32 + shift;) set_bit(result, from + i, element_active(result, from + i - shift));
  for (unsigned from = 0; from < sve::vector_bytes; from += half)
    for (unsigned i = laid_over; i < 32 + shift; ++i) set_bit(result, from + i, element_active(right, from + i));
}

}  // namespace

std::span<DifferenceRule> difference_rules() { return rules; }

std::uint32_t native_word(const RowInfo& row, std::uint32_t word) {
  if (reserved_shift(row, word)) return word & ~(0x1ffu << 5);
  if (!reserved_index(row, word)) return word;
  return (word & ~(31u << 16)) | unnamed_register(word) << 16;
}

bool prepare_native(TestCase& c) {
  const RowInfo& row = *c.row;
  const MemoryForm& m = row.memory;
  if (reserved_index(row, c.word)) {
    c.state.x[unnamed_register(c.word)] = 0;
    fire(index_31);
  }
  if (reserved_shift(row, c.word)) fire(shifted_8_bit);
  if (reserved_logical_immediate(row, c.word)) return false;
  if (!m.is_memory()) return true;
  const MemoryPlan plan = plan_accesses(row, c.word, c.state);
  if (!speculative(m)) return !any_straddles(plan, m);
  if (any_unreadable(plan, m.memory_bytes)) return false;
  if (!contiguous(m)) return true;
  const std::uint64_t last = plan.start + m.elements() * m.memory_bytes - 1;
  return plan.accesses[0].active && plan.start / window::page == last / window::page;
}

void apply_rules(const TestCase& c, bool native_ran, const window::Contents& original, Outcome& expected) {
  const RowInfo& row = *c.row;
  const MemoryForm& m = row.memory;
  if (m.is_memory()) {
    if (speculative(m)) {
      expect_speculative(c, native_ran, original, expected);
      return;
    }
    const MemoryPlan plan = plan_accesses(row, c.word, c.state);
    if (any_unreadable(plan, m.memory_bytes)) expect_plain_fault(c, native_ran, plan, original, expected);
  } else if (emulator_unzips_wrongly && row.unzips_predicates()) {
    expect_unzip(c, row.row->mnemonic() == "uzp2", expected);
  } else if (reserved_logical_immediate(row, c.word)) {
    expect_reserved_logical(c, expected);
  }
}

}  // namespace conformance
