#include "sve/runner/sites/entry.h"

#include <cstddef>

#include "sve/runner/arm64/code_buffer.h"
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
static_assert(offsetof(thread_block, state) == SVE_STATE_IN_BLOCK);
static_assert(thread_counts_offset == SVE_STATE_IN_BLOCK + SVE_ENTRY_COUNTS);
static_assert(offsetof(thread_block, used_sve) == SVE_STATE_IN_BLOCK + SVE_ENTRY_USED);
static_assert(offsetof(thread_block, running) == SVE_STATE_IN_BLOCK + SVE_ENTRY_RUNNING);
static_assert(offsetof(thread_block, pending) == SVE_STATE_IN_BLOCK + SVE_ENTRY_PENDING);

using buffer = code_buffer<most_entry_words>;

constexpr unsigned sp = 31, state = 19, pc = 20;

void call(buffer& code, const void* function) {
  code.load_x(1, reinterpret_cast<std::uint64_t>(function));
  code.put(blr, 1);
}

// Adds one to this thread's count of the site.
void count(buffer& code, const site& s) {
  const std::size_t offset = SVE_ENTRY_COUNTS + std::size_t{8} * s.index;
  code.put(add_x_imm_page, 1, state, offset / 4096);
  code.put(ldr_x, 0, 1, offset % 4096);
  code.put(add_x_imm, 0, 0, 1);
  code.put(str_x, 0, 1, offset % 4096);
}

}  // namespace

bool make_entry(const site& s, std::uint64_t address, entry_code& made) {
  static buffer code(0);
  code.restart(address);
  code.put(static_cast<word>(reinterpret_cast<std::uint64_t>(&s)));
  code.put(static_cast<word>(reinterpret_cast<std::uint64_t>(&s) >> 32));
  made.begin = code.size();
  code.put(stp_x_pre, 0, 1, sp, -SVE_ENTRY_PUSHED);
  code.put(str_x, 30, sp, 16);
  call(code, sve_entry_save);
  code.load_x(pc, reinterpret_cast<std::uint64_t>(s.address));
  for (std::size_t i = 0; i < s.count; ++i) {
    code.load_x(1, s.words[i]);
    code.put(str_x, pc, state, SVE_STATE_PC);
    code.put(mov_x, 0, state);
    code.load_x(2, reinterpret_cast<std::uint64_t>(s.handlers[i]));
    code.put(blr, 2);
    code.put(add_x_imm, pc, pc, 4);
  }
  code.put(str_x, pc, state, SVE_STATE_PC);
  count(code, s);
  call(code, sve_entry_restore);
  made.tail = code.size();
  code.put(ldr_x, 30, sp, 16);
  code.put(ldp_x_post, 0, 1, sp, SVE_ENTRY_PUSHED);
  code.branch(reinterpret_cast<std::uint64_t>(s.end()));
  code.finish();
  made.words = code.words();
  made.size = code.size();
  return code.is_good();
}

std::uint32_t branch_to(std::uint64_t from, std::uint64_t to) {
  const auto distance = static_cast<std::int64_t>(to - from);
  return fits(b.fields[0], distance) ? b.base | encode_field(b.fields[0], distance) : 0;
}

}  // namespace sve::runner
