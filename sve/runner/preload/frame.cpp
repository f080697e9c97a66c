#include "sve/runner/preload/frame.h"

#include <asm/sigcontext.h>

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "sve/lanes/predicate_bits.h"

namespace sve::runner {
namespace {

constexpr unsigned quadwords = vector_bytes / 16;
constexpr std::size_t record_area = sizeof(mcontext_t::__reserved);
constexpr std::size_t rounded(std::size_t size) { return (size + 15) & ~std::size_t{15}; }
constexpr std::size_t terminator_size = rounded(sizeof(_aarch64_ctx));
constexpr std::size_t extra_size = rounded(sizeof(extra_context));
constexpr std::size_t sve_size = rounded(SVE_SIG_CONTEXT_SIZE(quadwords));
constexpr std::size_t frame_record_size = 16;
constexpr std::size_t records_offset = offsetof(SignalFrame, context.uc_mcontext.__reserved);
constexpr std::size_t largest_frame = 65536;  // the kernel's limit

// The head of a record, at any place.
_aarch64_ctx head_at(const void* at) {
  _aarch64_ctx head;
  std::memcpy(&head, at, sizeof head);
  return head;
}

// Where the records of the kernel's own frame end. The kernel wrote them, so they are well formed; and it knows no SVE,
// so all are in the one area.
std::size_t records_size(const ucontext_t* context) {
  const auto* area = context->uc_mcontext.__reserved;
  std::size_t size = 0;
  for (;;) {
    const _aarch64_ctx head = head_at(area + size);
    if (head.magic == 0 || head.size == 0) return size;
    size += head.size;
  }
}

// The first record of a kind in the kernel's own frame, or null.
template <class Context>
auto* record_of(Context* context, std::uint32_t magic) {
  auto* at = context->uc_mcontext.__reserved;
  for (auto* end = at + records_size(context); at < end; at += head_at(at).size) {
    if (head_at(at).magic == magic) return at;
  }
  return static_cast<decltype(at)>(nullptr);
}

// The frame's record of V registers and control words. The kernel always writes one.
template <class Context>
auto* fpsimd_record(Context* context) {
  using Record = std::conditional_t<std::is_const_v<Context>, const fpsimd_context, fpsimd_context>;
  return reinterpret_cast<Record*>(record_of(context, FPSIMD_MAGIC));
}

constexpr unsigned long btype_mask = 3ul << 10;  // a landing pad expected by an indirect branch
constexpr unsigned long privileged = 0x3df;      // another mode, or interrupts masked

// Whether the thread's SVE record is inside the record area, behind `kernel_records` bytes, or in the extra space.
constexpr bool fits(std::size_t kernel_records, std::size_t size) {
  return kernel_records + size <= record_area - terminator_size - extra_size;
}

constexpr std::size_t frame_size(std::size_t kernel_records, std::size_t size) {
  const std::size_t extra = fits(kernel_records, size) ? 0 : extra_size + terminator_size;
  return std::max(rounded(records_offset + kernel_records + extra + size + terminator_size), sizeof(SignalFrame));
}

std::size_t sve_record_size(const ThreadBlock* block) { return block->used_sve ? sve_size : sizeof(sve_context); }

template <class T>
void put(void* at, const T& value) {
  std::memcpy(at, &value, sizeof value);
}

void pack(const std::uint8_t (&bytes)[vector_bytes], std::uint8_t* bits) {
  PredicateWords packed;
  pack_register(bytes, packed.words);
  std::memcpy(bits, packed.words, predicate_bytes);
}

void unpack(const std::uint8_t* bits, std::uint8_t (&bytes)[vector_bytes]) {
  PredicateWords packed{};
  std::memcpy(packed.words, bits, predicate_bytes);
  unpack_register(packed.words, bytes);
}

void write_sve_record(std::uint8_t* at, const ThreadBlock* block, const fpsimd_context* vectors) {
  std::memset(at, 0, sve_record_size(block));
  sve_context head{};
  head.head = {SVE_MAGIC, static_cast<std::uint32_t>(sve_record_size(block))};
  head.vl = vector_bytes;
  put(at, head);
  if (!block->used_sve) return;
  const cpu_state& state = block->state;
  for (unsigned n = 0; n < 32; ++n) {
    std::uint8_t* z = at + SVE_SIG_ZREG_OFFSET(quadwords, n);
    std::memcpy(z, &vectors->vregs[n], 16);
    std::memcpy(z + 16, state.z[n] + 16, vector_bytes - 16);
  }
  for (unsigned n = 0; n < 16; ++n) pack(state.p[n], at + SVE_SIG_PREG_OFFSET(quadwords, n));
  pack(state.ffr, at + SVE_SIG_FFR_OFFSET(quadwords));
}

void read_sve_record(const std::uint8_t* at, ThreadBlock* block) {
  cpu_state& state = block->state;
  block->used_sve = at != nullptr;
  std::memset(block->full, 0, sizeof block->full);
  if (!at) {
    std::memset(state.z, 0, sizeof state.z);
    std::memset(state.p, 0, sizeof state.p);
    std::memset(state.ffr, 0, sizeof state.ffr);
    return;
  }
  for (unsigned n = 0; n < 32; ++n) {
    std::memcpy(state.z[n] + 16, at + SVE_SIG_ZREG_OFFSET(quadwords, n) + 16, vector_bytes - 16);
  }
  for (unsigned n = 0; n < 16; ++n) unpack(at + SVE_SIG_PREG_OFFSET(quadwords, n), state.p[n]);
  unpack(at + SVE_SIG_FFR_OFFSET(quadwords), state.ffr);
}

// The records of a frame that comes from the program, checked as the kernel checks them.
struct FoundRecords {
  const std::uint8_t* fpsimd = nullptr;
  const std::uint8_t* sve = nullptr;
};

bool find_records(const SignalFrame* frame, const ucontext_t* context, FoundRecords* found) {
  const auto* base = reinterpret_cast<const std::uint8_t*>(frame->context.uc_mcontext.__reserved);
  std::size_t limit = record_area, offset = 0;
  bool have_extra = false;
  for (;;) {
    if (limit - offset < sizeof(_aarch64_ctx) || offset % 16 != 0) return false;
    const std::uint8_t* at = base + offset;
    const _aarch64_ctx head = head_at(at);
    if (head.magic == 0) return head.size == 0 && found->fpsimd;
    if (head.size < sizeof head || limit - offset < head.size) return false;
    if (head.magic == FPSIMD_MAGIC) {
      if (found->fpsimd || head.size != sizeof(fpsimd_context)) return false;
      found->fpsimd = at;
    } else if (head.magic == SVE_MAGIC) {
      if (found->sve) return false;
      found->sve = at;
    } else if (head.magic == EXTRA_MAGIC) {
      if (have_extra || head.size < sizeof(extra_context)) return false;
      have_extra = true;
      extra_context extra;
      std::memcpy(&extra, at, sizeof extra);
      const std::uint8_t* end = at + head.size;
      if (limit - offset - head.size < terminator_size) return false;
      if (head_at(end).magic != 0 || head_at(end).size != 0) return false;
      // The extra space begins behind the terminator and stays within what the kernel takes for a frame.
      if (extra.datap % 16 != 0 || extra.size % 16 != 0) return false;
      if (extra.datap != reinterpret_cast<std::uintptr_t>(end + terminator_size)) return false;
      const auto first = reinterpret_cast<const std::uint8_t*>(frame);
      if (extra.size > static_cast<std::size_t>(first + largest_frame - end)) return false;
      base = end + terminator_size;
      limit = extra.size;
      offset = 0;
      continue;
    } else if (head.magic != ESR_MAGIC && !record_of(context, head.magic)) {
      return false;
    }
    offset += head.size;
  }
}

// Whether the kernel would take the SVE record.
bool is_sve_record(const std::uint8_t* at) {
  sve_context head;
  if (head_at(at).size < sizeof head) return false;
  std::memcpy(&head, at, sizeof head);
  if (head.vl != vector_bytes || (head.flags & SVE_SIG_FLAG_SM)) return false;
  return head.head.size == sizeof head || head.head.size >= SVE_SIG_CONTEXT_SIZE(quadwords);
}

}  // namespace

const std::size_t least_signal_stack =
    frame_size(rounded(sizeof(fpsimd_context)) + rounded(sizeof(esr_context)), sve_size) + frame_record_size +
    16;  // to align it

void load_state(cpu_state* state, const ucontext_t* context) {
  const mcontext_t& from = context->uc_mcontext;
  std::memcpy(state->x, from.regs, sizeof state->x);
  state->sp = from.sp;
  state->pc = reinterpret_cast<std::uint32_t*>(from.pc);
  state->nzcv = from.pstate & flag_mask;
  const fpsimd_context* vectors = fpsimd_record(context);
  state->fpsr = vectors->fpsr;
  state->fpcr = vectors->fpcr;
  for (int n = 0; n < 32; ++n) std::memcpy(state->z[n], &vectors->vregs[n], sizeof vectors->vregs[n]);
}

void store_state(const cpu_state* state, ucontext_t* context) {
  mcontext_t& to = context->uc_mcontext;
  std::memcpy(to.regs, state->x, sizeof state->x);
  to.sp = state->sp;
  to.pc = reinterpret_cast<std::uintptr_t>(state->pc);
  to.pstate = (to.pstate & ~(flag_mask | btype_mask)) | (state->nzcv & flag_mask);
  fpsimd_context* vectors = fpsimd_record(context);
  vectors->fpsr = state->fpsr;
  for (int n = 0; n < 32; ++n) std::memcpy(&vectors->vregs[n], state->z[n], sizeof vectors->vregs[n]);
}

void store_vector(ucontext_t* context, unsigned n, const std::uint8_t (&bytes)[16]) {
  std::memcpy(&fpsimd_record(context)->vregs[n], bytes, sizeof bytes);
}

FramePlace place_frame(const ThreadBlock* block, const ucontext_t* context, std::uintptr_t top) {
  const std::uintptr_t record = (top - frame_record_size) & ~std::uintptr_t{15};
  return {reinterpret_cast<SignalFrame*>(record - frame_size(records_size(context), sve_record_size(block))),
          reinterpret_cast<std::uint64_t*>(record)};
}

void write_frame(const FramePlace& place, const ThreadBlock* block, const siginfo_t& info, const ucontext_t* context,
                 SignalBits mask) {
  const mcontext_t& from = context->uc_mcontext;
  place.frame_record[0] = from.regs[29];
  place.frame_record[1] = from.regs[30];
  SignalFrame* frame = place.frame;
  frame->info = info;
  ucontext_t& to = frame->context;
  std::memset(&to, 0, offsetof(ucontext_t, uc_mcontext));
  to.uc_stack = block->program_stack;
  set_saved_mask(&to, mask);
  std::size_t size = records_size(context);
  std::memcpy(&to.uc_mcontext, &from, offsetof(mcontext_t, __reserved) + size);
  // Debuggers and unwinders read the records as the kernel writes them: each at once behind the one before.
  auto* at = reinterpret_cast<std::uint8_t*>(to.uc_mcontext.__reserved) + size;
  const std::size_t needed = sve_record_size(block);
  if (!fits(size, needed)) {
    extra_context extra{};
    extra.head = {EXTRA_MAGIC, extra_size};
    extra.datap = reinterpret_cast<std::uintptr_t>(at + extra_size + terminator_size);
    extra.size = static_cast<std::uint32_t>(needed + terminator_size);
    put(at, extra);
    put(at + extra_size, _aarch64_ctx{});
    at += extra_size + terminator_size;
  }
  write_sve_record(at, block, fpsimd_record(context));
  put(at + needed, _aarch64_ctx{});
}

bool read_frame(ThreadBlock* block, const SignalFrame* frame, ucontext_t* context) {
  const ucontext_t& from = frame->context;
  std::memcpy(&context->uc_mcontext, &from.uc_mcontext, offsetof(mcontext_t, __reserved));
  set_saved_mask(context, saved_mask(&from));
  if (from.uc_mcontext.pstate & privileged) {
    context->uc_mcontext.pstate &= flag_mask;
    return false;
  }
  FoundRecords found;
  if (!find_records(frame, context, &found)) return false;
  if (found.sve && !is_sve_record(found.sve)) return false;
  // A kernel that knows no SVE resumes from its own record of the V registers.
  std::memcpy(fpsimd_record(context), found.fpsimd, sizeof(fpsimd_context));
  const bool whole = found.sve && head_at(found.sve).size >= SVE_SIG_CONTEXT_SIZE(quadwords);
  read_sve_record(whole ? found.sve : nullptr, block);
  return true;
}

}  // namespace sve::runner
