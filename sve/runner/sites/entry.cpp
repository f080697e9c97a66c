#include "sve/runner/sites/entry.h"

#include <cstddef>

#include "sve/decode/table.h"
#include "sve/runner/preload/thread_block.h"
#include "sve/runner/sites/offsets.h"

extern "C" {
extern const char sve_entry_save[], sve_entry_restore[];
}

namespace sve::runner {
namespace {

using namespace arm64;

static_assert(offsetof(cpu_state, sp) == SVE_STATE_X30 + 8);
static_assert(offsetof(cpu_state, pc) == SVE_STATE_PC);
static_assert(offsetof(cpu_state, nzcv) == SVE_STATE_NZCV);
static_assert(offsetof(cpu_state, fpsr) == SVE_STATE_FPSR && offsetof(cpu_state, fpcr) == SVE_STATE_FPSR + 4);
static_assert(offsetof(cpu_state, z) == SVE_STATE_Z);
static_assert(offsetof(ThreadBlock, state) == SVE_STATE_IN_BLOCK);
static_assert(thread_counts_offset == SVE_STATE_IN_BLOCK + SVE_ENTRY_COUNTS);
static_assert(offsetof(ThreadBlock, used_sve) == SVE_STATE_IN_BLOCK + SVE_ENTRY_USED);
static_assert(offsetof(ThreadBlock, running) == SVE_STATE_IN_BLOCK + SVE_ENTRY_RUNNING);
static_assert(offsetof(ThreadBlock, pending) == SVE_STATE_IN_BLOCK + SVE_ENTRY_PENDING);

using Buffer = EntryBuffer;

constexpr unsigned sp = 31, zero = 31, state = 19;
constexpr int time_begun = static_cast<int>(offsetof(ThreadBlock, run_begun)) - SVE_STATE_IN_BLOCK;
static_assert(offsetof(ThreadBlock, in_runs) == offsetof(ThreadBlock, run_begun) + 8 && time_begun % 8 == 0);

void call(Buffer& code, const void* function) {
  code.load_x(30, reinterpret_cast<std::uint64_t>(function));
  code.put(blr, 30);
}

// Adds one to this thread's count of the site.
void count(Buffer& code, const Site& s) {
  const std::size_t offset = SVE_ENTRY_COUNTS + std::size_t{8} * s.index;
  code.put(add_x_imm_page, 1, state, offset / 4096);
  code.put(ldr_x, 0, 1, offset % 4096);
  code.put(add_x_imm, 0, 0, 1);
  code.put(str_x, 0, 1, offset % 4096);
}

// What is known of the instructions' registers: predicates that handlers write are not known to be full any more.
struct WrittenRegisters {
  std::uint32_t x = 0;
  std::uint16_t p = 0;
};
WrittenRegisters written_by(std::uint32_t word, DecodeHandler handle) {
  WrittenRegisters written;
  for (const decode::Operand& o : find_row(handle)->operands()) {
    if (!o.is_written()) continue;
    if (o.kind == decode::OperandKind::p) written.p |= static_cast<std::uint16_t>(1u << o.number(word));
    if (o.kind == decode::OperandKind::x || o.kind == decode::OperandKind::x_or_sp) written.x |= 1u << o.number(word);
  }
  return written;
}

// Between the two the program's registers are saved.
void begin_time(Buffer& code, const Site& s) {
  if (!s.is_timed) return;
  code.put(mrs_counter, 0);
  code.put(str_x, 0, state, time_begun);
}
void end_time(Buffer& code, const Site& s) {
  if (!s.is_timed) return;
  code.put(mrs_counter, 0);
  code.put(ldr_x, 1, state, time_begun);
  code.put(sub_x, 0, 0, 1);
  code.put(ldr_x, 1, state, time_begun + 8);
  code.put(add_x, 0, 0, 1);
  code.put(str_x, 0, state, time_begun + 8);
}

void put_handlers(Buffer& code, EventLog& log, const Site& s, std::size_t first, std::size_t end, bool is_last) {
  log.add(code.size(), CodeEvent::heavy_begin, 0, first);
  code.put(stp_x_pre, 0, 30, sp, -SVE_ENTRY_PUSHED);
  put_thread_block(code, 0, 30);
  call(code, sve_entry_save);
  begin_time(code, s);
  std::uint32_t written = 0;
  for (std::size_t i = first; i < end; ++i) {
    const WrittenRegisters now = written_by(s.words[i], s.handlers[i]);
    written |= now.x;
    for (unsigned n = 0; n < 16; ++n)
      if (now.p >> n & 1) code.put(str_w, zero, state, SVE_ENTRY_FULL + 4 * n);
    code.load_x(3, reinterpret_cast<std::uint64_t>(s.address + i));
    code.load_x(1, s.words[i]);
    code.put(str_x, 3, state, SVE_STATE_PC);
    code.put(mov_x, 0, state);
    if (const decode::Row* r = s.uses ? decode::find_row(s.words[i]) : nullptr; r && has_lane_use(*r)) {
      code.load_x(2, reinterpret_cast<std::uint64_t>(r));
      code.load_x(3, reinterpret_cast<std::uint64_t>(&s.uses[i]));
      code.load_x(4, reinterpret_cast<std::uint64_t>(&execute_and_count));
      code.put(blr, 4);
      continue;
    }
    code.load_x(2, reinterpret_cast<std::uint64_t>(s.handlers[i]));
    code.put(blr, 2);
  }
  if (is_last) count(code, s);
  end_time(code, s);
  call(code, sve_entry_restore);
  log.add(code.size(), CodeEvent::heavy_tail, is_last, end);
  for (unsigned n = 20; n < 30; ++n)
    if (written >> n & 1) code.put(ldr_x, n, state, 8 * n);
  code.put(ldr_x, 30, state, SVE_STATE_X30);
  code.put(ldp_x, 18, 19, state, 8 * 18);
  if (is_last) code.branch(reinterpret_cast<std::uint64_t>(s.end()));
}

}  // namespace

bool make_entry(const Site& s, std::uint64_t address, Translation how, EntryCode& made) {
  static constinit Buffer code(0);
  static constinit EventLog log;
  // What is too much for native code is left to handlers.
  for (const bool is_native : {true, false}) {
    if (is_native && how != Translation::native) continue;
    code.restart(address);
    log.restart();
    code.put(static_cast<word>(reinterpret_cast<std::uint64_t>(&s)));
    code.put(static_cast<word>(reinterpret_cast<std::uint64_t>(&s) >> 32));
    made.begin = code.size();
    if (is_native || s.has_scalars)
      put_native(code, log, s, put_handlers, !is_native);
    else
      put_handlers(code, log, s, 0, s.count, true);
    code.finish();
    if (!code.is_good() || !log.is_good()) continue;
    made.words = code.words();
    made.size = code.size();
    made.events = log.data();
    made.event_count = log.size();
    return true;
  }
  return false;
}

EntryPosition locate(const Site& s, std::uintptr_t at) {
  EntryPosition p;
  const std::size_t place = (at - s.code) / 4;
  const CodeEvent* events = s.events.load(std::memory_order_acquire);
  for (std::size_t k = 0; k < s.event_count && events[k].at <= place; ++k) {
    const CodeEvent& e = events[k];
    switch (e.what) {
      case CodeEvent::light_begin:
      case CodeEvent::heavy_begin:
        p = {};
        p.is_light = e.what == CodeEvent::light_begin;
        p.is_begin = e.at == place;
        p.instruction = e.value;
        break;
      case CodeEvent::borrowed_low:
        p.is_pushed = true;
        p.is_begin = false;
        p.low[e.value] = e.reg;
        break;
      case CodeEvent::borrowed_x:
        p.x |= 1u << e.reg;
        p.x_slot[e.reg] = static_cast<std::uint8_t>(e.value);
        break;
      case CodeEvent::borrowed_v:
        p.v |= 1u << e.reg;
        p.v_slot[e.reg] = static_cast<std::uint8_t>(e.value);
        break;
      case CodeEvent::lent_z:
        p.z |= 1u << e.reg;
        break;
      case CodeEvent::returned_z:
        p.z = 0;
        break;
      case CodeEvent::instruction:
        p.instruction = e.value;
        break;
      case CodeEvent::leaving:
        p.is_leaving = true;
        p.is_last = e.reg;
        p.x = p.v = p.z = 0;
        break;
      case CodeEvent::counted:
        p.is_counted = true;
        break;
      case CodeEvent::popped:
        p.is_pushed = false;
        p.instruction = e.value;
        break;
      case CodeEvent::waited:
        p.waited = true;
        p.without_block = false;
        break;
      case CodeEvent::without_block:
        p.without_block = true;
        p.instruction = e.value;
        break;
      case CodeEvent::heavy_tail:
        p.is_leaving = true;
        p.is_last = e.reg;
        p.instruction = e.value;
        break;
    }
  }
  return p;
}

std::uint32_t branch_to(std::uint64_t from, std::uint64_t to) {
  const auto distance = static_cast<std::int64_t>(to - from);
  return fits(b.fields[0], distance) ? b.base | encode_field(b.fields[0], distance) : 0;
}

}  // namespace sve::runner
