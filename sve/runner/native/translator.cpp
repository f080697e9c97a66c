#include "sve/runner/native/translator.h"

#include <algorithm>
#include <bit>
#include <span>
#include <string_view>
#include <utility>

#include "sve/decode/table.h"
#include "sve/lanes/patterns.h"
#include "sve/runner/native/tables.h"
#include "sve/runner/preload/thread_block.h"
#include "sve/runner/sites/offsets.h"

namespace sve::runner {
namespace {

using namespace arm64;
using decode::AccessKind;
using decode::Operand;
using decode::OperandKind;
using decode::OperandRole;
using decode::Predication;

// ---- What the code finds through the base register ----

constexpr unsigned pieces = vector_bytes / 16;
constexpr unsigned sp = 31, zero = 31;
// The base register points into the thread's block, so that pairs of V registers are in reach.
constexpr int base_in_block = 816;
constexpr int state_offset = SVE_STATE_IN_BLOCK - base_in_block;
constexpr int z_offset(unsigned n, unsigned byte) {
  return state_offset + SVE_STATE_Z + static_cast<int>(vector_bytes * n + byte);
}
constexpr int p_offset(unsigned n, unsigned byte) { return z_offset(32 + n, byte); }
constexpr int ffr_offset(unsigned byte) { return z_offset(48, byte); }
constexpr int borrowed_v_offset = 16 - base_in_block;
constexpr int time_begun_offset = static_cast<int>(offsetof(ThreadBlock, run_begun)) - base_in_block;
constexpr int time_offset = static_cast<int>(offsetof(ThreadBlock, in_runs)) - base_in_block;
static_assert(offsetof(cpu_state, z) == SVE_STATE_Z && sizeof(cpu_state::z) == 32 * vector_bytes);
static_assert(offsetof(cpu_state, p) == SVE_STATE_Z + 32 * vector_bytes);
static_assert(offsetof(cpu_state, ffr) == SVE_STATE_Z + 48 * vector_bytes);
static_assert(offsetof(ThreadBlock, borrowed_v) == 16);
static_assert(offsetof(ThreadBlock, full) == SVE_STATE_IN_BLOCK + SVE_ENTRY_FULL);
static_assert(offsetof(ThreadBlock, gathered) == SVE_STATE_IN_BLOCK + SVE_ENTRY_GATHERED);
static_assert(offsetof(ThreadBlock, borrowed_x) == SVE_STATE_IN_BLOCK + SVE_ENTRY_BORROWED_X);
static_assert(z_offset(0, 0) >= -256 && borrowed_v_offset >= -1008);

constexpr std::uint8_t all_sizes = 15;
// Full at one size, a vector of predicate bytes is so at all larger ones.
constexpr std::uint8_t full_from(unsigned size) { return static_cast<std::uint8_t>(all_sizes << size & all_sizes); }

// ---- The translator ----

class Translator {
 public:
  void put_run(EntryBuffer& code, EventLog& log, const Site& s, HeavyEmitter put_handlers, bool scalars_only) {
    code_ = &code;
    log_ = &log;
    site_ = &s;
    put_handlers_ = put_handlers;
    count_ = s.count;
    for (std::size_t i = 0; i < count_; ++i) {
      if (scalars_only && s.handlers[i])
        insns_[i] = {};
      else
        insns_[i] = decode_insn(s.words[i], s.handlers[i]);
    }
    if (calls_are_cheaper())
      put_handlers_(code, log, s, 0, count_, true);
    else
      put_range(0, count_, true);
  }

 private:
  // ---- Runs in parts ----

  struct Knowledge {
    std::uint8_t full[16] = {};  // by predicate: for which sizes all elements are known to be active
  };

  // Whether the instruction has a native form where its governing predicate is full, or where it may not be.
  static bool has_form(const Insn& i, bool full) {
    if (i.how == Action::none) return false;
    if (i.pg == no_register || full) return true;
    switch (i.how) {
      case Action::compare:
      case Action::compare_reversed:
      case Action::compare_not:
        return i.pd != i.pg;  // the flags need it
      case Action::fp_ordered_sum:
        return false;
      case Action::store:
        return i.size >= element_s;
      case Action::structure:
        return !i.is_store;
      default:
        return true;
    }
  }

  // Those that take their governing predicate as it is, whatever is known of it.
  static bool reads_mask(Action how) {
    return how == Action::logic || (how >= Action::set_ffr && how <= Action::compact);
  }

  bool is_full(const Insn& i, const Knowledge& k) const { return i.pg == no_register || (k.full[i.pg] >> i.size & 1); }

  static void learn(const Insn& i, Knowledge& k) {
    const std::uint8_t moved = is_predicate_move(i) ? k.full[i.pn] : 0;
    for (unsigned n = 0; n < 16; ++n)
      if (i.p_written >> n & 1) k.full[n] = 0;
    if (i.how == Action::set_pattern && active_elements(i) == elements(i.size)) k.full[i.pd] = full_from(i.size);
    if (is_predicate_move(i)) k.full[i.pd] = moved;
  }

  static unsigned elements(unsigned size) { return static_cast<unsigned>(vector_bytes) >> size; }
  static unsigned active_elements(const Insn& i) {
    return static_cast<unsigned>(
        VecTrueILength(static_cast<unsigned long>(i.immediate), static_cast<int>(elements(i.size))));
  }
  static bool is_predicate_move(const Insn& i) {
    return i.how == Action::logic && i.form == &v_orr_v && i.pg == i.pn && i.pn == i.pm;
  }

  // The instructions from `first` on that one piece of native code can hold. Those whose predicates come from before
  // it are told by `tests`, if it is allowed to assume that they are full.
  std::size_t light_end(std::size_t first, std::size_t end, bool may_assume, Knowledge& tests) const {
    Knowledge known;
    std::uint16_t written = 0;
    std::size_t i = first;
    std::uint32_t x_used = 0;
    for (; i < end; ++i) {
      const Insn& in = insns_[i];
      bool full = is_full(in, known);
      const bool can_assume = may_assume && !full && in.pg != no_register && !(written >> in.pg & 1);
      if (!has_form(in, full || can_assume)) break;
      if (std::popcount(x_used | in.x_used) > 20) break;
      x_used |= in.x_used;
      if (can_assume && !reads_mask(in.how)) {
        known.full[in.pg] |= full_from(in.size);
        tests.full[in.pg] |= full_from(in.size);
      }
      written |= in.p_written;
      learn(in, known);
    }
    return i;
  }

  void put_range(std::size_t first, std::size_t end, bool may_assume) {
    while (first < end) {
      Knowledge tests;
      std::size_t next = light_end(first, end, may_assume, tests);
      if (next == first) {
        next = heavy_end(first, end, may_assume);
        put_handlers_(*code_, *log_, *site_, first, next, next == count_);
      } else {
        put_light(first, next, tests);
      }
      first = next;
    }
  }

  // Native code beside calls pays for its own way in and out, and an instruction by itself takes half of a call.
  static constexpr std::ptrdiff_t fewest_beside_calls = 6;

  bool calls_are_cheaper() const {
    const auto is_scalar = [](const Insn& in) { return in.how == Action::scalar; };
    const auto is_native = [](const Insn& in) { return has_form(in, true); };
    const Insn* const end = insns_ + count_;
    return std::none_of(insns_, end, is_scalar) && !std::all_of(insns_, end, is_native) &&
           std::count_if(insns_, end, is_native) < fewest_beside_calls;
  }

  // A few instructions that have native code, between two that have none, cost less as calls than leaving and entering
  // the state would.
  static constexpr std::size_t fewest_native = 3;

  std::size_t heavy_end(std::size_t first, std::size_t end, bool may_assume) const {
    std::size_t i = first;
    while (i < end && insns_[i].how != Action::scalar) {
      Knowledge tests;
      const std::size_t native_end = i == first ? i : light_end(i, end, may_assume, tests);
      if (native_end == i) {
        ++i;
        continue;
      }
      const auto is_scalar = [](const Insn& in) { return in.how == Action::scalar; };
      const bool is_worth_it = native_end == end || native_end - i >= fewest_native ||
                               std::any_of(insns_ + i, insns_ + native_end + 1, is_scalar);
      if (is_worth_it) break;
      i = native_end;
    }
    return i;
  }

  // ---- A piece of native code ----

  void put_light(std::size_t first, std::size_t end, const Knowledge& tests) {
    choose_registers(first, end);
    log_->add(code_->size(), CodeEvent::light_begin, first == 0);
    log_->add(code_->size(), CodeEvent::instruction, 0, first);
    code_->put(stp_x_pre, base_, temp_[0], sp, -SVE_ENTRY_PUSHED);
    code_->put(stp_x, temp_[1], temp_[2], sp, 16);
    log_->add(code_->size(), CodeEvent::borrowed_low, base_, 0);
    log_->add(code_->size(), CodeEvent::borrowed_low, temp_[0], 1);
    log_->add(code_->size(), CodeEvent::borrowed_low, temp_[1], 2);
    log_->add(code_->size(), CodeEvent::borrowed_low, temp_[2], 3);
    put_thread_block(*code_, base_, temp_[0]);
    const std::size_t without_block = code_->size();
    code_->put(cbz_x, base_, 0);
    code_->put(add_x_imm, base_, base_, base_in_block);
    if (site_->is_timed) {
      code_->put(mrs_counter, temp_[0]);
      code_->put(str_x, temp_[0], base_, time_begun_offset);
    }
    // Where a predicate is not full the other code is taken.
    std::size_t slow[64];
    std::size_t slow_count = 0;
    for (unsigned n = 0; n < 16; ++n) {
      if (tests.full[n] == 0) continue;
      code_->put(ldr_w, temp_[0], base_, full_offset(n));
      slow[slow_count++] = code_->size();
      code_->put(tbz_w, temp_[0], std::countr_zero(tests.full[n]), 0);
    }
    const std::size_t waits_fast = put_body(first, end, tests);
    std::size_t over_slow = 0, waits_slow = 0;
    if (slow_count) {
      const bool is_last = end == count_;
      if (!is_last) {
        over_slow = code_->size();
        code_->put(b, 0);
      }
      for (std::size_t i = 0; i < slow_count; ++i) code_->aim(slow[i], tbz_w, 2);
      // As at the branches.
      log_->add(code_->size(), CodeEvent::light_begin);
      log_->add(code_->size(), CodeEvent::instruction, 0, first);
      log_pushed();
      Knowledge none;
      if (light_end(first, end, false, none) == end) {
        waits_slow = put_body(first, end, {});
      } else {
        log_->add(code_->size(), CodeEvent::leaving);
        code_->put(ldp_x, temp_[1], temp_[2], sp, 16);
        code_->put(ldp_x_post, base_, temp_[0], sp, SVE_ENTRY_PUSHED);
        log_->add(code_->size(), CodeEvent::popped, 0, first);
        const Registers kept = save_registers();
        put_range(first, end, false);
        restore_registers(kept);
      }
    }
    // Traps.
    if (end != count_) {
      const std::size_t over = code_->size();
      code_->put(b, 0);
      put_traps(first, without_block, 0, 0);
      code_->aim(over, b, 0);
      // Between parts the registers are the program's.
      log_->add(code_->size(), CodeEvent::light_begin);
      log_->add(code_->size(), CodeEvent::instruction, 0, end);
    } else {
      put_traps(first, without_block, waits_fast, waits_slow);
    }
    if (over_slow) code_->aim(over_slow, b, 0);
  }

  void put_traps(std::size_t first, std::size_t without_block, std::size_t waits, std::size_t other_waits) {
    log_->add(code_->size(), CodeEvent::light_begin);
    log_pushed();
    log_->add(code_->size(), CodeEvent::without_block, 0, first);
    code_->aim(without_block, cbz_x, 1);
    code_->put(word{0});
    if (!waits && !other_waits) return;
    log_->add(code_->size(), CodeEvent::waited);
    if (waits) code_->aim(waits, cbnz_w, 1);
    if (other_waits) code_->aim(other_waits, cbnz_w, 1);
    code_->put(word{0});
  }

  void log_pushed() {
    log_->add(code_->size(), CodeEvent::borrowed_low, base_, 0);
    for (unsigned k = 0; k < 3; ++k) log_->add(code_->size(), CodeEvent::borrowed_low, temp_[k], k + 1);
  }

  static int full_offset(unsigned n) { return state_offset + SVE_ENTRY_FULL + 4 * static_cast<int>(n); }

  // ---- Registers that are borrowed ----

  struct Registers {
    unsigned base, temp[7], temp_count, spare_v[32], spare_v_count;
  };
  Registers save_registers() const {
    Registers r{base_, {}, temp_count_, {}, spare_count_};
    std::copy_n(temp_, 7, r.temp);
    std::copy_n(spare_, 32, r.spare_v);
    return r;
  }
  void restore_registers(const Registers& r) {
    base_ = r.base;
    temp_count_ = r.temp_count;
    spare_count_ = r.spare_v_count;
    std::copy_n(r.temp, 7, temp_);
    std::copy_n(r.spare_v, 32, spare_);
  }

  void choose_registers(std::size_t first, std::size_t end) {
    std::uint32_t x = 1u << 18 | 1u << 29 | 1u << 30 | 1u << 31, z = 0;
    for (std::size_t i = first; i < end; ++i) {
      x |= insns_[i].x_used;
      z |= insns_[i].z_used;
    }
    unsigned chosen[8] = {};
    unsigned n = 0;
    for (int r = 28; r >= 0 && n < 8; --r)
      if (!(x >> r & 1)) chosen[n++] = static_cast<unsigned>(r);
    base_ = chosen[0];
    std::copy_n(chosen + 1, 7, temp_);
    temp_count_ = n - 1;
    spare_count_ = 0;
    for (int r = 31; r >= 0; --r)
      if (!(z >> r & 1)) spare_[spare_count_++] = static_cast<unsigned>(r);
  }

  // The k-th borrowed general register; those behind the third are borrowed when they are first asked for.
  unsigned temp(unsigned k) {
    if (k >= temp_count_) {
      code_->spoil();
      return 0;
    }
    while (k >= borrowed_x_) {
      const unsigned slot = borrowed_x_ - 3;
      code_->put(str_x, temp_[borrowed_x_], base_, state_offset + SVE_ENTRY_BORROWED_X + 8 * static_cast<int>(slot));
      log_->add(code_->size(), CodeEvent::borrowed_x, temp_[borrowed_x_], slot);
      ++borrowed_x_;
    }
    return temp_[k];
  }

  unsigned usable_spares() const { return std::min(spare_count_ & ~1u, 16u); }  // they are borrowed in pairs
  // Lets the first `n` spare V registers be used.
  void borrow_vectors(unsigned n) {
    if (n > usable_spares()) return code_->spoil();
    while (borrowed_v_ < n) {
      const unsigned a = spare_[borrowed_v_], b2 = spare_[borrowed_v_ + 1];
      code_->put(stp_q, a, b2, base_, borrowed_v_offset + 16 * static_cast<int>(borrowed_v_));
      log_->add(code_->size(), CodeEvent::borrowed_v, a, borrowed_v_);
      log_->add(code_->size(), CodeEvent::borrowed_v, b2, borrowed_v_ + 1);
      borrowed_v_ += 2;
    }
  }
  unsigned spare(unsigned k) {
    borrow_vectors(k + 1);
    return spare_[k];
  }

  // ---- The body ----

  // Returns where the branch of a run that signals wait for is, or 0.
  std::size_t put_body(std::size_t first, std::size_t end, const Knowledge& assumed) {
    borrowed_x_ = 3;
    borrowed_v_ = 0;
    known_ = assumed;
    for (std::size_t i = first; i < end;) {
      const std::size_t next = is_standalone(insns_[i].how) ? i + 1 : group_end(i, end);
      log_->add(code_->size(), CodeEvent::instruction, 0, i);
      if (is_standalone(insns_[i].how)) {
        put_alone(insns_[i]);
        learn(insns_[i], known_);
      } else {
        put_group(i, next);
      }
      i = next;
    }
    // Everything is done: the log says so by the next instruction.
    for (unsigned k = 0; k < borrowed_v_; k += 2)
      code_->put(ldp_q, spare_[k], spare_[k + 1], base_, borrowed_v_offset + 16 * static_cast<int>(k));
    for (unsigned k = 3; k < borrowed_x_; ++k)
      code_->put(ldr_x, temp_[k], base_, state_offset + SVE_ENTRY_BORROWED_X + 8 * static_cast<int>(k - 3));
    code_->put(str_x, base_, base_, state_offset + SVE_ENTRY_USED);
    if (site_->is_timed) {
      code_->put(mrs_counter, temp_[0]);
      code_->put(ldr_x, temp_[1], base_, time_begun_offset);
      code_->put(sub_x, temp_[0], temp_[0], temp_[1]);
      code_->put(ldr_x, temp_[1], base_, time_offset);
      code_->put(add_x, temp_[0], temp_[0], temp_[1]);
      code_->put(str_x, temp_[0], base_, time_offset);
    }
    std::size_t waits = 0;
    const bool is_last = end == count_;
    if (is_last) {
      code_->put(ldr_w, temp_[0], base_, state_offset + SVE_ENTRY_PENDING);
      // What comes from here on is not seen any more.
      log_->add(code_->size(), CodeEvent::leaving, 1);
      waits = code_->size();
      code_->put(cbnz_w, temp_[0], 0);
      const std::size_t offset = SVE_ENTRY_COUNTS + SVE_STATE_IN_BLOCK - base_in_block + std::size_t{8} * site_->index;
      code_->put(add_x_imm_page, base_, base_, offset / 4096);
      code_->put(ldr_x, temp_[0], base_, offset % 4096);
      code_->put(add_x_imm, temp_[0], temp_[0], 1);
      code_->put(str_x, temp_[0], base_, offset % 4096);
      log_->add(code_->size(), CodeEvent::counted);
    } else {
      log_->add(code_->size(), CodeEvent::leaving, 0);
    }
    code_->put(ldp_x, temp_[1], temp_[2], sp, 16);
    code_->put(ldp_x_post, base_, temp_[0], sp, SVE_ENTRY_PUSHED);
    log_->add(code_->size(), CodeEvent::popped, 0, end);
    if (is_last) code_->branch(reinterpret_cast<std::uint64_t>(site_->end()));
    return waits;
  }

  // ---- Accesses ----

  void load_q(unsigned r, int offset) {
    if (offset < 0)
      code_->put(ldur_q, r, base_, offset);
    else
      code_->put(ldr_q, r, base_, offset);
  }
  void store_q(unsigned r, int offset) {
    if (offset < 0)
      code_->put(stur_q, r, base_, offset);
    else
      code_->put(str_q, r, base_, offset);
  }
  void load_pair(unsigned a, unsigned b2, int offset) {
    if (fits(ldp_q.fields[3], offset)) {
      code_->put(ldp_q, a, b2, base_, offset);
    } else {
      load_q(a, offset);
      load_q(b2, offset + 16);
    }
  }
  void store_pair(unsigned a, unsigned b2, int offset) {
    if (fits(stp_q.fields[3], offset)) {
      code_->put(stp_q, a, b2, base_, offset);
    } else {
      store_q(a, offset);
      store_q(b2, offset + 16);
    }
  }
  // Inlined, as most forms are known where they are put.
  [[gnu::always_inline]] void vector(const VectorForm& f, unsigned size, unsigned d, unsigned n, unsigned m = 0) {
    code_->put(encode(f, size, d, n, m));
  }
  void move_v(unsigned d, unsigned n) {
    if (d != n) vector(v_orr_v, 0, d, n, n);
  }
  // A register with the sum of the base and an offset of any kind.
  void add_offset(unsigned d, unsigned n, std::int64_t offset) {
    const auto distance = static_cast<std::uint64_t>(offset < 0 ? -offset : offset);
    if (distance >= 1u << 24) return code_->spoil();
    if (distance >> 12) {
      code_->put(offset < 0 ? sub_x_imm_page : add_x_imm_page, d, n, distance >> 12);
      n = d;
    }
    if ((distance & 4095) || d != n) code_->put(offset < 0 ? sub_x_imm : add_x_imm, d, n, distance & 4095);
  }

  // ---- Groups: instructions that are executed piece by piece ----

  struct HalfRegisters {
    std::uint8_t of[32];
  };
  struct Constant {
    std::uint64_t value;
    unsigned gpr, size;  // a general register's, at this size, or none
    unsigned home;
  };
  struct Mask {
    unsigned pg, size;
    unsigned home[2];
    bool made;
  };
  struct Address {
    std::size_t at;  // instruction
    unsigned r;
    int offset;
  };

  static unsigned memory_span(const Insn& i) {
    const unsigned bytes = std::max<unsigned>(i.row->function->memory_bytes, 1);
    return is_whole(i) ? static_cast<unsigned>(vector_bytes) : (static_cast<unsigned>(vector_bytes) >> i.size) * bytes;
  }
  static bool is_whole(const Insn& i) {
    return i.row->function->access == AccessKind::fill || i.row->function->access == AccessKind::spill;
  }
  static unsigned memory_size(const Insn& i) {
    return is_whole(i) ? i.size : static_cast<unsigned>(std::countr_zero(i.row->function->memory_bytes));
  }
  // Groups can be begun again: none with a load changes what it reads.
  std::size_t group_end(std::size_t first, std::size_t end) const {
    std::uint32_t read = 0, written = 0;
    bool loads = false;
    unsigned addresses = 0;
    std::size_t i = first;
    std::uint32_t scalars = 0;
    for (; i < end && (!is_standalone(insns_[i].how) || insns_[i].how == Action::scalar); ++i) {
      const Insn& in = insns_[i];
      // Scalar instructions can wait for the group's end, where nothing behind them looks at their registers.
      if (in.how == Action::scalar) {
        scalars |= in.x_used & ~(1u << zero);
        continue;
      }
      if (in.x_used & scalars) break;
      std::uint32_t sources = 0;
      if (in.how != Action::load) {
        for (unsigned k = 0; k < in.source_count; ++k) sources |= 1u << in.sources[k];
        if (in.inactive == Predication::merging && !is_full(in, known_)) sources |= 1u << in.d;
      }
      const std::uint32_t now_read = read | (sources & ~written), now_written = written | 1u << in.d;
      const bool now_loads = loads || in.how == Action::load;
      if (in.how == Action::load && ++addresses > 3) break;
      if (std::popcount(now_read | now_written) > 10 && i > first) break;
      if (now_loads && (now_read & now_written) && i > first) break;
      read = now_read;
      written = now_written;
      loads = now_loads;
    }
    return i;
  }

  void put_group(std::size_t first, std::size_t end) {
    bool loads = false;
    address_count_ = 0;
    for (std::size_t i = first; i < end; ++i) loads |= insns_[i].how == Action::load;
    // Addresses, and the accesses' ends, so that what faults does so before anything has changed.
    unsigned next_temp = 0;
    for (std::size_t i = first; i < end; ++i) {
      if (insns_[i].how != Action::load) continue;
      const Address a = put_address(insns_[i], next_temp);
      addresses_[address_count_] = a;
      addresses_[address_count_++].at = i;
    }
    for (unsigned k = 0; k < address_count_; ++k) put_probe(addresses_[k], memory_span(insns_[addresses_[k].at]));
    // Once without effect, to know what is needed.
    next_spare_ = scratch_count_ = 0;
    live_in_ = 0;
    constant_count_ = mask_count_ = 0;
    std::fill_n(other_.of, 32, static_cast<std::uint8_t>(no_register));
    const std::size_t begin = code_->size(), log_begin = log_->size();
    measuring_ = true;
    put_span(first, end, pieces > 2 ? pieces - 2 : pieces - 1, pieces > 2 ? 2 : 1);
    measuring_ = false;
    code_->truncate(begin);
    log_->truncate(log_begin);
    borrow_vectors(next_spare_);
    for (unsigned k = 0; k < constant_count_; ++k) put_constant(constants_[k], temp(next_temp));
    for (std::uint32_t left = live_in_; left != 0; left &= left - 1) {
      const auto n = static_cast<unsigned>(std::countr_zero(left));
      store_q(n, z_offset(n, 0));
      if (loads) log_->add(code_->size(), CodeEvent::lent_z, n);
    }
    unsigned p = pieces;
    for (; p > 2; p -= 2) put_span(first, end, p - 2, 2);
    if (p == 2) put_span(first, end, 1, 1);
    put_span(first, end, 0, 1);
    if (loads) log_->add(code_->size(), CodeEvent::returned_z);
    for (std::size_t i = first; i < end; ++i) {
      if (insns_[i].how != Action::scalar) continue;
      log_->add(code_->size(), CodeEvent::instruction, 0, i);
      code_->put(insns_[i].word);
    }
  }

  // The pieces from `p` on, one or two.
  void put_span(std::size_t first, std::size_t end, unsigned p, unsigned halves) {
    piece_ = p;
    halves_ = halves;
    have_ = dirty_ = 0;
    for (unsigned k = 0; k < mask_count_; ++k) masks_[k].made = false;
    for (std::size_t i = first; i < end; ++i) {
      current_ = i;
      if (insns_[i].how != Action::scalar) put_piece(insns_[i]);
    }
    if (p == 0) return;  // they lie where they belong
    for (std::uint32_t left = dirty_; left != 0; left &= left - 1) {
      const auto n = static_cast<unsigned>(std::countr_zero(left));
      if (halves == 2)
        store_pair(n, other_.of[n], z_offset(n, 16 * p));
      else
        store_q(n, z_offset(n, 16 * p));
    }
  }

  unsigned new_spare() {
    if (next_spare_ >= usable_spares()) {
      code_->spoil();
      return 0;
    }
    return spare_[next_spare_++];
  }
  // The V register that holds a half of the pieces of Zn.
  unsigned home(unsigned n, unsigned half) {
    if (half == 0) return n;
    if (other_.of[n] == no_register) other_.of[n] = static_cast<std::uint8_t>(new_spare());
    return other_.of[n];
  }
  void use(unsigned n) {
    if (have_ >> n & 1) return;
    have_ |= 1u << n;
    if (measuring_) live_in_ |= 1u << n;
    if (halves_ == 2)
      load_pair(n, home(n, 1), z_offset(n, 16 * piece_));
    else
      load_q(n, z_offset(n, 16 * piece_));
  }
  void define(unsigned n) {
    have_ |= 1u << n;
    dirty_ |= 1u << n;
    if (halves_ == 2) home(n, 1);
  }
  // Temporaries within one instruction on one half.
  unsigned scratch(unsigned k) {
    while (k >= scratch_count_) scratch_[scratch_count_++] = new_spare();
    return scratch_[k];
  }

  unsigned constant_home(std::uint64_t value, unsigned gpr = no_register, unsigned size = 3) {
    for (unsigned k = 0; k < constant_count_; ++k)
      if (constants_[k].value == value && constants_[k].gpr == gpr && constants_[k].size == size)
        return constants_[k].home;
    if (constant_count_ == std::size(constants_)) {
      code_->spoil();
      return 0;
    }
    constants_[constant_count_] = {value, gpr, size, new_spare()};
    return constants_[constant_count_++].home;
  }
  void put_constant(const Constant& c, unsigned t) {
    if (c.gpr != no_register) {
      static constexpr const Form* dups[] = {&dup_b, &dup_h, &dup_s, &dup_d};
      code_->put(*dups[c.size], c.home, c.gpr);
    } else if (c.value == 0) {
      code_->put(movi_zero, c.home);
    } else {
      code_->load_x(t, c.value);
      code_->put(dup_d, c.home, t);
    }
  }
  static std::uint64_t replicated(std::int64_t value, unsigned size) {
    auto bits = static_cast<std::uint64_t>(value);
    for (unsigned s = size; s < 3; ++s) {
      bits &= (std::uint64_t{1} << (8 << s)) - 1;
      bits |= bits << (8 << s);
    }
    return bits;
  }

  // All ones in active elements.
  unsigned mask_home(const Insn& i, unsigned half) {
    unsigned k = 0;
    while (k < mask_count_ && (masks_[k].pg != i.pg || masks_[k].size != i.size)) ++k;
    if (k == mask_count_) {
      if (k == std::size(masks_)) {
        code_->spoil();
        return 0;
      }
      const unsigned a = new_spare(), b2 = new_spare();
      masks_[mask_count_++] = {i.pg, i.size, {a, b2}, false};
    }
    Mask& m = masks_[k];
    if (!m.made) {
      m.made = true;
      for (unsigned h = 0; h < halves_; ++h) put_mask(m.home[h], i.pg, i.size, piece_ + h);
    }
    return m.home[half];
  }
  void put_mask(unsigned r, unsigned pg, unsigned size, unsigned p) {
    load_q(r, p_offset(pg, 16 * p));
    vector(v_shl, size, r, r, (8u << size) - 1);
    vector(v_cmlt_zero, size, r, r);
  }

  // ---- One instruction on the pieces of a span ----

  // Its operands in a half.
  struct Operands {
    unsigned d, x, y, z;
  };

  void put_piece(const Insn& i) {
    const bool masked = !is_full(i, known_);
    if (i.how == Action::load) return put_load_piece(i, masked);
    for (unsigned k = 0; k < i.source_count; ++k) use(i.sources[k]);
    if (masked && i.inactive == Predication::merging) use(i.d);
    unsigned second = no_register;
    const unsigned size = i.size;
    if (i.has_immediate && i.how != Action::shift_left && i.how != Action::shift_right &&
        i.how != Action::shift_right_signed && i.how != Action::complex_fused)
      second = constant_home(replicated(i.immediate, size), no_register, size);
    if (i.how == Action::copy && !i.has_immediate) second = constant_home(0, i.xn, size);
    if (measuring_ && masked) mask_home(i, 0);
    define(i.d);
    for (unsigned h = 0; h < halves_; ++h) {
      Operands o{home(i.d, h), no_register, second, no_register};
      if (i.source_count > 0) o.x = home(i.sources[0], h);
      if (i.source_count > 1) o.y = home(i.sources[1], h);
      if (i.source_count > 2) o.z = home(i.sources[2], h);
      put_operation(i, o, masked ? mask_home(i, h) : no_register);
    }
  }

  void finish(const Insn& i, const Operands& o, unsigned result, unsigned m) {
    if (m == no_register)
      move_v(o.d, result);
    else if (i.inactive == Predication::merging)
      vector(v_bit_v, 0, o.d, result, m);
    else
      vector(v_and_v, 0, o.d, result, m);
  }
  // An operand whose inactive elements are 0.
  unsigned active(unsigned r, unsigned m, unsigned k) {
    if (m == no_register) return r;
    vector(v_and_v, 0, scratch(k), r, m);
    return scratch(k);
  }

  void put_operation(const Insn& i, const Operands& o, unsigned m) {
    const unsigned size = i.size;
    const unsigned result = m == no_register ? o.d : scratch(0);
    switch (i.how) {
      case Action::binary:
      case Action::reversed: {
        const bool is_bitwise = i.form->sizes == 1;
        const auto [a, c] = i.how == Action::reversed ? std::pair{o.y, o.x} : std::pair{o.x, o.y};
        if (size == element_d && is_extreme(i)) {
          const bool is_least = i.form == &v_smin || i.form == &v_umin;
          const unsigned t = scratch(0);
          vector(i.form == &v_smax || i.form == &v_smin ? v_cmgt : v_cmhi, size, t, a, c);
          vector(v_bsl_v, 0, t, is_least ? c : a, is_least ? a : c);
          finish(i, o, t, m);
          break;
        }
        vector(*i.form, is_bitwise ? 0 : size, result, a, c);
        if (m != no_register) finish(i, o, result, m);
        break;
      }
      case Action::fp_binary:
      case Action::fp_reversed: {
        const unsigned x = active(o.x, m, 1), y = active(o.y, m, 2);
        vector(*i.form, size, result, i.how == Action::fp_reversed ? y : x, i.how == Action::fp_reversed ? x : y);
        if (m != no_register) finish(i, o, result, m);
        break;
      }
      case Action::fp_divide:
      case Action::fp_divide_reversed: {
        // Inactive elements divide 0 by 1.
        const bool is_reversed = i.how == Action::fp_divide_reversed;
        unsigned x = is_reversed ? o.y : o.x, y = is_reversed ? o.x : o.y;
        if (m != no_register) {
          x = active(x, m, 1);
          const std::int64_t one = size == 1 ? 0x3c00 : size == 2 ? 0x3f800000 : 0x3ff0000000000000;
          const unsigned ones = constant_home(replicated(one, size), no_register, size);
          move_v(scratch(2), ones);
          vector(v_bit_v, 0, scratch(2), y, m);
          y = scratch(2);
        }
        vector(*i.form, size, result, x, y);
        if (m != no_register) finish(i, o, result, m);
        break;
      }
      case Action::fused:
      case Action::fp_fused:
      case Action::fp_fused_negated: {
        const unsigned addend = i.accumulates ? o.x : o.z, a = i.accumulates ? o.y : o.x, c = i.accumulates ? o.z : o.y;
        const bool is_fp = i.how != Action::fused, negates = i.how == Action::fp_fused_negated;
        if (m == no_register && addend == o.d && !negates) {
          vector(*i.form, size, o.d, a, c);  // reads all before it writes
          break;
        }
        const unsigned t = scratch(0);
        const unsigned mm = is_fp ? m : no_register;
        if (negates)
          vector(v_fneg, size, t, active(addend, mm, 3));
        else if (mm != no_register)
          vector(v_and_v, 0, t, addend, mm);
        else
          move_v(t, addend);
        const unsigned first = active(a, mm, 1), second = active(c, mm, 2);
        vector(*i.form, size, t, first, second);
        finish(i, o, t, m);
        break;
      }
      case Action::complex_fused: {
        // Real parts are even elements. The product's first factor is one part of x, twice; the second y, or for an
        // odd number of quarter turns y with its parts exchanged, with the signs of the turn.
        const auto turn = static_cast<unsigned>(i.immediate) / 90;
        const unsigned t = scratch(0), f = scratch(1), s = scratch(2);
        constexpr std::uint64_t even = 0x80000000, odd = even << 32;
        const std::uint64_t signs = turn == 0 ? 0 : turn == 1 ? even : turn == 2 ? even | odd : odd;
        vector(turn & 1 ? v_trn2 : v_trn1, size, f, o.y, o.y);
        unsigned second = o.z;
        if (turn & 1) vector(v_rev64, size, second = s, o.z);
        if (signs) {
          const unsigned from = std::exchange(second, s);
          vector(v_eor_v, 0, s, from, constant_home(signs));
        }
        // Not before: an active part takes the other one from an inactive element.
        if (m != no_register) {
          vector(v_and_v, 0, f, f, m);
          const unsigned from = std::exchange(second, s);
          vector(v_and_v, 0, s, from, m);
        }
        if (m == no_register) {
          if (f != o.d && second != o.d) {
            vector(v_fmla, size, o.d, f, second);
          } else {
            move_v(t, o.d);
            vector(v_fmla, size, t, f, second);
            move_v(o.d, t);
          }
        } else {
          vector(v_and_v, 0, t, o.x, m);
          vector(v_fmla, size, t, f, second);
          finish(i, o, t, m);
        }
        break;
      }
      case Action::unary:
        vector(*i.form, i.form->sizes == 1 ? 0 : size, result, o.x);
        if (m != no_register) finish(i, o, result, m);
        break;
      case Action::fp_unary:
        vector(*i.form, size, result, active(o.x, m, 1));
        if (m != no_register) finish(i, o, result, m);
        break;
      case Action::reverse: {
        // The parts of the instruction's letter, within an element.
        const unsigned part = i.form == &v_rev16 ? 0 : i.form == &v_rev32 ? 1 : 2;
        const VectorForm& f = size == 1 ? v_rev16 : size == 2 ? v_rev32 : v_rev64;
        vector(f, part, result, o.x);
        if (m != no_register) finish(i, o, result, m);
        break;
      }
      case Action::extend_signed:
      case Action::extend_unsigned: {
        const unsigned kept = 8u << count_size(i.row->mnemonic()), shift = (8u << size) - kept;
        const unsigned t = scratch(0);
        vector(v_shl, size, t, o.x, shift);
        vector(i.how == Action::extend_signed ? v_sshr : v_ushr, size, m == no_register ? o.d : t, t, shift);
        if (m != no_register) finish(i, o, t, m);
        break;
      }
      case Action::convert: {
        const unsigned x = active(o.x, m, 1), t = scratch(0);
        switch (i.converts) {
          case Conversion::narrow:
            code_->put(fcvtn_s, t, x);
            vector(v_uxtl, element_s, t, t);
            break;
          case Conversion::from_signed:
          case Conversion::from_unsigned: {
            const bool is_signed = i.converts == Conversion::from_signed;
            vector(v_shl, element_d, t, x, 32);
            vector(is_signed ? v_sshr : v_ushr, element_d, t, t, 32);
            vector(is_signed ? v_scvtf : v_ucvtf, element_d, t, t);
            break;
          }
          default:
            vector(v_xtn, element_s, t, x);
            code_->put(fcvtl_d, t, t);
            if (i.converts == Conversion::widen_and_convert) vector(*i.form, element_d, t, t);
        }
        finish(i, o, t, m);
        break;
      }
      case Action::shift_left:
      case Action::shift_right:
      case Action::shift_right_signed:
        if (!i.has_immediate) {
          // By as many as the element has bits at most; to the right is to the left by a negative number.
          const unsigned t = scratch(1);
          vector(v_umin, size, t, o.y, constant_home(replicated(8 << size, size), no_register, size));
          if (i.how != Action::shift_left) vector(v_neg, size, t, t);
          vector(i.how == Action::shift_right_signed ? v_sshl : v_ushl, size, result, o.x, t);
          if (m != no_register) finish(i, o, result, m);
          break;
        }
        if (i.how != Action::shift_left) {
          vector(*i.form, size, result, o.x, static_cast<unsigned>(i.immediate));
          if (m != no_register) finish(i, o, result, m);
          break;
        }
        vector(v_shl, size, result, o.x, static_cast<unsigned>(i.immediate));
        if (m != no_register) finish(i, o, result, m);
        break;
      case Action::move:
        finish(i, o, o.x, m);
        break;
      case Action::select:
        if (m == no_register) {
          move_v(o.d, o.x);
        } else {
          move_v(scratch(0), o.y);
          vector(v_bit_v, 0, scratch(0), o.x, m);
          move_v(o.d, scratch(0));
        }
        break;
      case Action::copy:
        finish(i, o, o.y, m);
        break;
      default:
        code_->spoil();
    }
  }

  // ---- Memory ----

  // The register and the offset of a contiguous access. The offset is a multiple of 16 in reach of all pieces.
  Address put_address(const Insn& i, unsigned& next_temp) {
    const unsigned n = i.xn;
    std::int64_t offset = 0;
    unsigned from = n;
    if (i.row->form->address == decode::AddressForm::base_index) {
      const unsigned r = temp(next_temp++);
      const unsigned shift = memory_size(i);
      if (n == sp) {
        code_->put(add_x_imm, r, sp, SVE_ENTRY_PUSHED);
        if (i.xm != zero) code_->put(add_x_lsl, r, r, i.xm, shift);
      } else if (i.xm != zero) {
        code_->put(add_x_lsl, r, n, i.xm, shift);
      } else {
        code_->put(mov_x, r, n);
      }
      return {0, r, 0};
    }
    offset = i.immediate * static_cast<std::int64_t>(i.row->offset_unit());
    if (n == sp) offset += SVE_ENTRY_PUSHED;
    const auto span = static_cast<std::int64_t>(vector_bytes);
    if (offset % 16 == 0 && offset >= 0 && offset + span <= 1008 && n != sp) return {0, from, static_cast<int>(offset)};
    const unsigned r = temp(next_temp++);
    add_offset(r, n, offset);
    return {0, r, 0};
  }

  void put_probe(const Address& a, unsigned span) {
    code_->put(ldrb_w, zero, a.r, a.offset);
    code_->put(ldrb_w, zero, a.r, a.offset + static_cast<int>(span) - 1);
  }

  void put_load_piece(const Insn& i, bool masked) {
    const unsigned d = i.d, size = i.size;
    const Address* a = addresses_;
    while (a->at != current_) ++a;
    const unsigned memory = memory_size(i), steps = size - memory;
    define(d);
    const bool is_signed = i.row->function->sign_extends;
    if (steps == 0 && halves_ == 2) {
      code_->put(ldp_q, home(d, 0), home(d, 1), a->r, a->offset + 16 * static_cast<int>(piece_));
    } else if (steps == 0) {
      code_->put(ldr_q, d, a->r, a->offset + 16 * static_cast<int>(piece_));
    } else {
      static constexpr const Form* loads[] = {nullptr, &ldr_d, &ldr_s, &ldr_h};
      for (unsigned h = 0; h < halves_; ++h) {
        const unsigned r = home(d, h);
        code_->put(*loads[steps], r, a->r, a->offset + static_cast<int>((16 >> steps) * (piece_ + h)));
        for (unsigned s = memory; s < size; ++s) vector(is_signed ? v_sxtl : v_uxtl, s, r, r);
      }
    }
    if (!masked) return;
    for (unsigned h = 0; h < halves_; ++h) vector(v_and_v, 0, home(d, h), home(d, h), mask_home(i, h));
  }

  void put_store(const Insn& i) {
    const unsigned n = i.sources[0], size = i.size, memory = memory_size(i), steps = size - memory;
    unsigned next_temp = 0;
    const Address a = put_address(i, next_temp);
    if (!is_full(i, known_)) return put_partial_store(i, a, next_temp);
    static constexpr const Form* stores[] = {&str_q, &str_d, &str_s, &str_h};
    const unsigned t = spare(0), u = steps == 0 ? spare(1) : t;
    for (unsigned p = 0; p < pieces; ++p) {
      const int at = a.offset + static_cast<int>((16 >> steps) * p);
      if (steps == 0 && p == 0) {
        code_->put(str_q, n, a.r, at);
      } else if (steps == 0 && p + 1 < pieces) {
        load_pair(t, u, z_offset(n, 16 * p));
        code_->put(stp_q, t, u, a.r, at);
        ++p;
      } else {
        unsigned from = n;
        if (p > 0) load_q(from = t, z_offset(n, 16 * p));
        for (unsigned s = size; s > memory; --s) {
          vector(v_xtn, s - 1, t, from);
          from = t;
        }
        code_->put(*stores[steps], t, a.r, at);
      }
    }
  }

  // Element by element, since nothing but active elements may be written.
  void put_partial_store(const Insn& i, const Address& a, unsigned next_temp) {
    static constexpr const Form* loads[] = {&ldrb_w, &ldrh_w, &ldr_w, &ldr_x};
    static constexpr const Form* stores[] = {&strb_w, &strh_w, &str_w, &str_x};
    const unsigned n = i.sources[0], size = i.size, memory = memory_size(i);
    const unsigned z = temp(next_temp), p = temp(next_temp + 1), value = temp(next_temp + 2);
    store_q(n, z_offset(n, 0));
    add_offset(z, base_, z_offset(n, 0));
    if (size == element_s) {
      // Two at a time.
      const unsigned other = temp(next_temp + 3);
      const Form& store = *stores[memory];
      for (unsigned e = 0; e < elements(size); e += 2) {
        code_->put(ldr_x, p, base_, p_offset(i.pg, e << size));
        code_->put(ldp_w, value, other, z, e << size);
        std::size_t skip = code_->size();
        code_->put(tbz_w, p, 0, 0);
        code_->put(store, value, a.r, a.offset + static_cast<int>(e << memory));
        code_->aim(skip, tbz_w, 2);
        skip = code_->size();
        code_->put(tbz_32, p, 0);
        code_->put(store, other, a.r, a.offset + static_cast<int>((e + 1) << memory));
        code_->aim(skip, tbz_32, 1);
      }
      return;
    }
    for (unsigned e = 0; e < elements(size); ++e) {
      code_->put(ldr_w, p, base_, p_offset(i.pg, e << size));
      const std::size_t skip = code_->size();
      code_->put(tbz_w, p, 0, 0);
      code_->put(*loads[size], value, z, e << size);
      code_->put(*stores[memory], value, a.r, a.offset + static_cast<int>(e << memory));
      code_->aim(skip, tbz_w, 2);
    }
  }

  // ---- Predicates ----

  // Stores `full` as what is known of a predicate.
  void put_full(unsigned pd, unsigned r) { code_->put(str_w, r, base_, full_offset(pd)); }

  // Copies the predicate bytes at `from` into a predicate.
  void put_predicate(unsigned pd, unsigned from, unsigned to) { put_predicate_bytes(p_offset(pd, 0), from, to); }
  void put_predicate_bytes(int offset, unsigned from, unsigned to) {
    const unsigned t = spare(0), u = spare(1);
    add_offset(to, base_, offset);
    for (unsigned p = 0; p + 1 < pieces; p += 2) {
      code_->put(ldp_q, t, u, from, 16 * p);
      code_->put(stp_q, t, u, to, 16 * p);
    }
    if (pieces % 2 == 0) return;
    code_->put(ldr_q, t, from, 16 * (pieces - 1));
    code_->put(str_q, t, to, 16 * (pieces - 1));
  }

  void put_while(const Insn& i) {
    const unsigned k = temp(0), t = temp(1), u = temp(2);
    const unsigned count = elements(i.size);
    spare(1);
    // How many elements, at most all: the flags are this instruction's to write.
    code_->put(movz_w, t, count);
    const bool is_signed = i.how == Action::while_signed;
    const Form& subtract = i.is_w ? subs_w : subs_x;
    const Form& select = is_signed ? csel_ge : csel_hs;
    const std::string_view mnemonic = i.row->mnemonic();
    if (mnemonic == "whilele" || mnemonic == "whilels") {
      // As if the limit were one more; all of them where it is the greatest number already, which counting on from
      // never exceeds.
      code_->load_x(u, (i.is_w ? 0xffffffffu : ~std::uint64_t{0}) >> (is_signed ? 1 : 0));
      code_->put(subtract, k, i.xm, u);
      code_->put(select, u, t, zero);
      if (i.xm == zero)
        code_->put(movz_w, k, 1);
      else
        code_->put(add_x_imm, k, i.xm, 1);
      code_->put(subtract, k, k, i.xn);
      code_->put(select, k, k, zero);
      code_->put(cmp_x, u, k);
      code_->put(csel_hi, k, u, k);
    } else {
      code_->put(subtract, k, i.xm, i.xn);
      code_->put(select, k, k, zero);
    }
    code_->put(cmp_x, k, t);
    code_->put(csel_lo, k, k, t);
    // First: some are active; none: none are; C: not the last one.
    code_->put(neg_w, u, k);
    code_->put(ccmp_partial, u);
    code_->put(movz_w, u, full_from(i.size));
    code_->put(csel_lo, u, u, zero);  // what follows from the flags as they are now: C is clear if all are active
    put_full(i.pd, u);
    code_->load_x(t, reinterpret_cast<std::uint64_t>(&prefixes.bytes[i.size][vector_bytes]));
    code_->put(sub_x_lsl, t, t, k, i.size);
    put_predicate(i.pd, t, u);
  }

  void put_pattern(const Insn& i) {
    const unsigned t = temp(0), u = temp(1);
    const unsigned active = active_elements(i);
    spare(1);
    code_->put(movz_w, t, active == elements(i.size) ? full_from(i.size) : 0);
    put_full(i.pd, t);
    code_->load_x(t, reinterpret_cast<std::uint64_t>(&prefixes.bytes[i.size][vector_bytes - (active << i.size)]));
    put_predicate(i.pd, t, u);
  }

  void put_logic(const Insn& i) {
    const unsigned r = spare(0), other = spare(1), one = spare(2), t = temp(0);
    const bool is_move = is_predicate_move(i);
    if (is_move) {
      code_->put(ldr_w, t, base_, full_offset(i.pn));
      put_full(i.pd, t);
    } else {
      put_full(i.pd, zero);
    }
    code_->put(movz_w, t, 1);
    code_->put(dup_b, one, t);
    for (unsigned p = 0; p < pieces; ++p) {
      load_q(r, p_offset(i.pn, 16 * p));
      if (!is_move) {
        load_q(other, p_offset(i.pm, 16 * p));
        vector(*i.form, 0, r, r, other);
        load_q(other, p_offset(i.pg, 16 * p));
        vector(v_and_v, 0, r, r, other);
      }
      vector(v_and_v, 0, r, r, one);
      store_q(r, p_offset(i.pd, 16 * p));
    }
  }

  void put_set_ffr() {
    const unsigned t = temp(0), u = temp(1);
    spare(1);
    code_->load_x(t, reinterpret_cast<std::uint64_t>(&prefixes.bytes[element_b][0]));
    put_predicate_bytes(ffr_offset(0), t, u);
  }

  void put_read_ffr(const Insn& i) {
    const unsigned r = spare(0), other = spare(1), one = spare(2), t = temp(0);
    put_full(i.pd, zero);
    code_->put(movz_w, t, 1);
    code_->put(dup_b, one, t);
    for (unsigned p = 0; p < pieces; ++p) {
      load_q(r, ffr_offset(16 * p));
      if (i.pg != no_register) {
        load_q(other, p_offset(i.pg, 16 * p));
        vector(v_and_v, 0, r, r, other);
      }
      vector(v_and_v, 0, r, r, one);
      store_q(r, p_offset(i.pd, 16 * p));
    }
  }

  // A piece of what is active in two predicates, or in one, a bit in each element's lowest byte.
  void put_both_active(unsigned r, unsigned other, unsigned firsts, unsigned pn, unsigned pg, unsigned p) {
    load_q(r, p_offset(pn, 16 * p));
    if (pg != no_register) {
      load_q(other, p_offset(pg, 16 * p));
      vector(v_and_v, 0, r, r, other);
    }
    vector(v_and_v, 0, r, r, firsts);
  }
  void put_firsts(unsigned r, unsigned size) { put_constant({replicated(1, size), no_register, size, r}, temp(0)); }

  void put_test(const Insn& i) {
    const unsigned r = spare(0), other = spare(1), firsts = spare(2), any = spare(3);
    put_firsts(firsts, element_b);
    for (unsigned p = 0; p < pieces; ++p) {
      put_both_active(p == 0 ? any : r, other, firsts, i.pn, i.pg, p);
      if (p > 0) vector(v_orr_v, 0, any, any, r);
    }
    put_flags(i.pg, i.pn, element_b, any, true);
  }

  void put_count_active(const Insn& i) {
    if (i.xd == zero) return;
    const unsigned r = spare(0), other = spare(1), firsts = spare(2), sum = spare(3), t = temp(0);
    put_firsts(firsts, i.size);
    for (unsigned p = 0; p < pieces; ++p) {
      put_both_active(p == 0 ? sum : r, other, firsts, i.pn, i.pg, p);
      if (p > 0) vector(v_add, 0, sum, sum, r);
    }
    code_->put(uaddlv_b, sum, sum);
    // A count by itself, or added to what the register has.
    const bool is_count = i.pg != no_register;
    code_->put(umov_d0, is_count ? i.xd : t, sum);
    if (!is_count) code_->put(i.form == &v_add ? add_x : sub_x, i.xd, i.xd, t);
  }

  void put_compact(const Insn& i) {
    const unsigned n = i.sources[0], z = temp(0), p = temp(1), value = temp(2), at = temp(3);
    const unsigned t = spare(0), u = spare(1);
    const int gathered = state_offset + SVE_ENTRY_GATHERED;
    store_q(n, z_offset(n, 0));
    add_offset(z, base_, z_offset(n, 0));
    code_->put(movi_zero, t);
    for (unsigned k = 0; k < pieces; ++k) code_->put(str_q, t, base_, gathered + 16 * static_cast<int>(k));
    add_offset(at, base_, gathered);
    for (unsigned e = 0; e < elements(i.size); ++e) {
      code_->put(ldr_w, p, base_, p_offset(i.pg, e << i.size));
      const std::size_t skip = code_->size();
      code_->put(tbz_w, p, 0, 0);
      code_->put(i.size == element_s ? ldr_w : ldr_x, value, z, e << i.size);
      code_->put(i.size == element_s ? str_w_post : str_x_post, value, at);
      code_->aim(skip, tbz_w, 2);
    }
    add_offset(at, base_, gathered);
    put_gathered(i.d, at, t, u);
  }

  // What has been gathered becomes a register's.
  void put_gathered(unsigned d, unsigned at, unsigned t, unsigned u) {
    code_->put(ldr_q, d, at, 0);
    for (unsigned p = 1; p + 1 < pieces; p += 2) {
      code_->put(ldp_q, t, u, at, 16 * p);
      store_pair(t, u, z_offset(d, 16 * p));
    }
    if (pieces % 2 != 0) return;
    code_->put(ldr_q, t, at, 16 * (pieces - 1));
    store_q(t, z_offset(d, 16 * (pieces - 1)));
  }

  void put_compare(const Insn& i) {
    const bool masked = !is_full(i, known_);
    const bool sets_flags = i.how <= Action::compare_not;
    const bool is_reversed = i.how == Action::compare_reversed || i.how == Action::fp_compare_reversed;
    const bool is_negated = i.how == Action::compare_not || i.how == Action::fp_compare_not;
    const unsigned size = i.size;
    unsigned k = 0;
    const unsigned r = spare(k++), any = spare(k++);
    unsigned x = i.sources[0], y = i.source_count > 1 ? i.sources[1] : 0;
    const unsigned x_home = spare(k++), y_home = spare(k++), m = masked ? spare(k++) : no_register;
    if (i.has_immediate) {
      put_constant({replicated(i.immediate, size), no_register, size, y_home}, temp(0));
    }
    put_full(i.pd, zero);
    for (unsigned p = 0; p < pieces; ++p) {
      unsigned a = x, c = i.has_immediate ? y_home : y;
      if (p > 0) {
        load_q(a = x_home, z_offset(x, 16 * p));
        if (!i.has_immediate) load_q(c = y_home, z_offset(y, 16 * p));
      }
      if (masked) {
        put_mask(m, i.pg, size, p);
        vector(v_and_v, 0, x_home, a, m);
        a = x_home;
        if (i.has_immediate) {
          vector(v_and_v, 0, r, c, m);
          c = r;
        } else {
          vector(v_and_v, 0, y_home, c, m);
          c = y_home;
        }
      }
      if (is_reversed) std::swap(a, c);
      vector(*i.form, size, r, a, c);
      if (is_negated) vector(v_mvn_v, 0, r, r);
      vector(v_ushr, size, r, r, (8u << size) - 1);
      if (masked) vector(v_and_v, 0, r, r, m);
      store_q(r, p_offset(i.pd, 16 * p));
      if (sets_flags && p == 0) move_v(any, r);
      if (sets_flags && p > 0) vector(v_orr_v, 0, any, any, r);
    }
    if (sets_flags) put_flags(i.pg, i.pd, i.size, any, masked);
  }

  // The flags of a compare whose result is in its predicate, `any` being the union of its pieces. First: the first
  // active element; none; C: not the last active one.
  void put_flags(unsigned pg, unsigned pd, unsigned size, unsigned any, bool masked) {
    const unsigned first = temp(0), t = temp(1), flags = temp(2);
    if (masked) put_ends(pg, pd, size);
    code_->put(umov_d0, masked ? temp(0) : first, any);
    code_->put(umov_d1, t, any);
    code_->put(orr_x, t, t, first);
    code_->put(cmp_x_imm, t, 0);
    code_->put(cset_eq, t);
    if (masked) {
      code_->put(bfi_1, temp(5), t);
      code_->put(bfi_2, temp(5), temp(4));
      code_->put(lsl_w_29, flags, temp(5));
    } else {
      const unsigned last = static_cast<unsigned>(vector_bytes) - (1u << size), last_word = last & ~3u;
      code_->put(ldr_w, first, base_, p_offset(pd, 0));
      code_->put(ldr_w, flags, base_, p_offset(pd, last_word));
      code_->put(mvn_w_lsr, flags, flags, 8 * (last - last_word));
      code_->put(bfi_1, flags, t);
      code_->put(bfi_2, flags, first);
      code_->put(lsl_w_29, flags, flags);
    }
    code_->put(msr_nzcv, flags);
  }

  // Sets the fourth borrowed register behind the first to whether the first active element's result is true, the fifth
  // to whether the last one's is not.
  void put_ends(unsigned pg, unsigned pd, unsigned size) {
    const unsigned place = temp(0), x = temp(1), firsts = temp(2), at = temp(3), first = temp(4), not_last = temp(5);
    constexpr int end = static_cast<int>(vector_bytes) - 8;
    constexpr std::uint64_t of_elements[] = {0x0101010101010101, 0x0001000100010001, 0x0000000100000001, 1};
    code_->load_x(firsts, of_elements[size]);
    code_->put(movz_w, first, 0);
    code_->put(movz_w, not_last, 1);
    add_offset(place, base_, p_offset(pg, end));
    code_->load_x(at, static_cast<std::uint64_t>(std::int64_t{-8} - end));
    const std::size_t upwards = code_->size();
    code_->put(add_x_imm, at, at, 8);
    code_->put(ldr_x_index, x, place, at);
    code_->put(and_x, x, x, firsts);
    const std::size_t found = code_->size();
    code_->put(cbnz_x, x, 0);
    code_->put(cbnz_x, at, -4 * static_cast<int>(code_->size() - upwards));
    const std::size_t none = code_->size();
    code_->put(b, 0);
    code_->aim(found, cbnz_x, 1);
    code_->put(neg_x, first, x);
    code_->put(and_x, x, x, first);
    add_offset(place, base_, p_offset(pd, end));
    code_->put(ldr_x_index, first, place, at);
    code_->put(and_x, first, first, x);
    code_->put(cmp_x_imm, first, 0);
    code_->put(cset_ne, first);
    add_offset(place, base_, p_offset(pg, 0));
    code_->put(movz_w, at, end + 8);
    const std::size_t downwards = code_->size();
    code_->put(sub_x_imm, at, at, 8);
    code_->put(ldr_x_index, x, place, at);
    code_->put(and_x, x, x, firsts);
    code_->put(cbz_x, x, -4 * static_cast<int>(code_->size() - downwards));
    add_offset(place, base_, p_offset(pd, 0));
    code_->put(ldr_x_index, not_last, place, at);
    code_->put(and_x, not_last, not_last, x);
    // The highest bit of the two is the result's if what differs lies below it.
    code_->put(eor_x, x, x, not_last);
    code_->put(cmp_x, x, not_last);
    code_->put(cset_hs, not_last);
    code_->aim(none, b, 0);
  }

  // ---- Memory by vectors of addresses ----

  // An element's address or offset, extended, to `at`.
  void put_index(const Insn& i, unsigned at, unsigned indices, unsigned e) {
    const Operand* offset = i.row->find(OperandRole::offset);
    const auto extends =
        i.row->form->address == decode::AddressForm::vector_immediate ? decode::Extension::none : offset->extends;
    const unsigned place = e << i.size;
    if (extends == decode::Extension::sxtw)
      code_->put(ldrsw_x, at, indices, place);
    else if (extends == decode::Extension::uxtw || i.size == element_s)
      code_->put(ldr_w, at, indices, place);
    else
      code_->put(ldr_x, at, indices, place);
  }

  // Gathers and scatters of words and doublewords, an element at a time. What is loaded reaches its register when all
  // of it is there.
  void put_gather(const Insn& i) {
    const bool masked = !is_full(i, known_), loads = i.how == Action::gather;
    const bool by_vector = i.row->form->address == decode::AddressForm::vector_immediate;
    const unsigned size = i.size, memory = memory_size(i);
    const unsigned index = i.sources[loads ? 0 : 1];
    const bool is_scaled = !by_vector && i.row->find(OperandRole::offset)->shift != 0;
    const std::int64_t offset = by_vector ? i.immediate * static_cast<std::int64_t>(i.row->offset_unit()) : 0;
    const unsigned at = temp(0), value = temp(1), indices = temp(2), data = temp(3);
    unsigned from = i.xn;
    if (!by_vector && from == sp) {
      from = temp(4);
      code_->put(add_x_imm, from, sp, SVE_ENTRY_PUSHED);
    }
    const unsigned active_word = masked ? temp(5) : 0, t = spare(0), u = spare(1);
    store_q(index, z_offset(index, 0));
    add_offset(indices, base_, z_offset(index, 0));
    const int gathered = state_offset + SVE_ENTRY_GATHERED;
    if (loads) {
      add_offset(data, base_, gathered);
      if (masked) {
        code_->put(movi_zero, t);
        for (unsigned p = 0; p < pieces; ++p) code_->put(str_q, t, data, 16 * p);
      }
    } else {
      store_q(i.sources[0], z_offset(i.sources[0], 0));
      add_offset(data, base_, z_offset(i.sources[0], 0));
    }
    const bool is_word = memory == element_s, is_signed = i.row->function->sign_extends;
    for (unsigned e = 0; e < elements(size); ++e) {
      std::size_t skip = 0;
      if (masked) {
        code_->put(ldr_w, active_word, base_, p_offset(i.pg, e << size));
        skip = code_->size();
        code_->put(tbz_w, active_word, 0, 0);
      }
      put_index(i, at, indices, e);
      const unsigned place = e << size;
      if (!loads) code_->put(size == element_s ? ldr_w : ldr_x, value, data, place);
      if (by_vector) {
        if (loads)
          code_->put(is_signed ? ldrsw_x : is_word ? ldr_w : ldr_x, value, at, offset);
        else
          code_->put(is_word ? str_w : str_x, value, at, offset);
      } else if (is_signed) {
        code_->put(add_x_lsl, at, from, at, is_scaled ? memory : 0);
        code_->put(ldrsw_x, value, at, 0);
      } else if (loads) {
        const Form& f = is_word ? is_scaled ? ldr_w_scaled : ldr_w_index : is_scaled ? ldr_x_scaled : ldr_x_index;
        code_->put(f, value, from, at);
      } else {
        const Form& f = is_word ? is_scaled ? str_w_scaled : str_w_index : is_scaled ? str_x_scaled : str_x_index;
        code_->put(f, value, from, at);
      }
      if (loads) code_->put(size == element_s ? str_w : str_x, value, data, place);
      if (masked) code_->aim(skip, tbz_w, 2);
    }
    if (loads) put_gathered(i.d, data, t, u);
  }

  // Structures of two to four, of which the processor has instructions for a piece of each register.
  void put_structure(const Insn& i) {
    const bool masked = !is_full(i, known_);
    const unsigned count = i.row->function->registers, first = i.is_store ? i.sources[0] : i.d;
    unsigned next_temp = 0;
    const Address a = put_address(i, next_temp);
    const unsigned at = temp(next_temp);
    const unsigned m = masked ? spare(0) : no_register;
    const unsigned span = count * static_cast<unsigned>(vector_bytes);
    if (!i.is_store) {
      put_probe({0, a.r, a.offset}, 1);
      add_offset(at, a.r, a.offset + static_cast<int>(span) - 1);
      code_->put(ldrb_w, zero, at, 0);
    }
    if (i.is_store)
      for (unsigned r = first; r < first + count; ++r) {
        store_q(r, z_offset(r, 0));
        log_->add(code_->size(), CodeEvent::lent_z, r);
      }
    // The low piece is the last to be loaded, and the first to be stored.
    for (unsigned k = 0; k < pieces; ++k) {
      const unsigned p = i.is_store ? k : (k + 1) % pieces;
      if (k == 0 || p == 0) add_offset(at, a.r, a.offset + static_cast<int>(16 * count * p));
      if (i.is_store && p > 0)
        for (unsigned r = first; r < first + count; ++r) load_q(r, z_offset(r, 16 * p));
      vector(*i.form, i.size, first, at);
      if (i.is_store) continue;
      if (masked) put_mask(m, i.pg, i.size, p);
      for (unsigned r = first; r < first + count; ++r) {
        if (masked) vector(v_and_v, 0, r, r, m);
        if (p > 0) store_q(r, z_offset(r, 16 * p));
      }
    }
    if (!i.is_store) return;
    for (unsigned r = first; r < first + count; ++r) load_q(r, z_offset(r, 0));
    log_->add(code_->size(), CodeEvent::returned_z);
  }

  // One element to all.
  void put_replicate(const Insn& i) {
    static constexpr const Form* loads[] = {&ldrb_w, &ldrh_w, &ldr_w, &ldr_x};
    static constexpr const Form* dups[] = {&dup_b, &dup_h, &dup_s, &dup_d};
    const bool masked = !is_full(i, known_);
    const unsigned value = temp(0), all = spare(0), t = spare(1);
    code_->put(*loads[memory_size(i)], value, i.xn, i.immediate * static_cast<std::int64_t>(i.row->offset_unit()));
    code_->put(*dups[i.size], all, value);
    for (unsigned p = 0; p < pieces; ++p) {
      if (masked) put_mask(t, i.pg, i.size, p);
      if (masked) vector(v_and_v, 0, t, t, all);
      const unsigned from = masked ? t : all;
      if (p == 0)
        move_v(i.d, from);
      else
        store_q(from, z_offset(i.d, 16 * p));
    }
  }

  // Starts and steps, each a general register or an immediate.
  void put_series(const Insn& i) {
    static constexpr const Form* dups[] = {&dup_b, &dup_h, &dup_s, &dup_d};
    const auto kinds = i.row->operands();
    const bool starts_at_x = kinds[1].kind != OperandKind::immediate;
    const bool steps_by_x = kinds[2].kind != OperandKind::immediate;
    const unsigned x = temp(0), values = spare(0), steps = spare(1), t = spare(2);
    // Makes `x` the number where it is none of the program's registers.
    const auto number = [&](bool is_x, unsigned reg, std::int64_t immediate) {
      if (is_x) return reg;
      code_->load_x(x, static_cast<std::uint64_t>(immediate));
      return x;
    };
    const auto start = [&] { return number(starts_at_x, i.xn, i.immediate); };
    const auto step = [&] {
      return number(steps_by_x, starts_at_x ? i.xm : i.xn, starts_at_x ? i.immediate : i.second_immediate);
    };
    if (i.size == element_d) {
      code_->put(movi_zero, values);
      code_->put(ins_d1, values, step());
    } else {
      // 0, 1, 2 ... times the step
      const unsigned bits = 8u << i.size, half = 64 / bits;
      std::uint64_t low = 0, ones = 0;
      for (unsigned k = 0; k < half; ++k) low |= std::uint64_t{k} << k * bits, ones |= std::uint64_t{1} << k * bits;
      code_->load_x(x, low);
      code_->put(fmov_d, values, x);
      code_->load_x(x, low + half * ones);
      code_->put(ins_d1, values, x);
      code_->put(*dups[i.size], steps, step());
      vector(v_mul, i.size, values, values, steps);
    }
    code_->put(*dups[i.size], t, start());
    vector(v_add, i.size, values, values, t);
    code_->put(*dups[i.size], steps, step());
    vector(v_shl, i.size, steps, steps, 4 - i.size);
    for (unsigned p = 0; p < pieces; ++p) {
      if (p == 0) {
        move_v(i.d, values);
      } else {
        vector(v_add, i.size, values, values, steps);
        store_q(values, z_offset(i.d, 16 * p));
      }
    }
  }

  // ---- Across pieces ----

  void put_unpack(const Insn& i) {
    const unsigned n = i.sources[0], from_size = i.size - 1;
    const VectorForm& low = *i.form;
    const VectorForm& high = i.form == &v_sxtl ? v_sxtl2 : v_uxtl2;
    const unsigned t = spare(0), a = spare(1), b2 = spare(2), z = temp(0);
    store_q(n, z_offset(n, 0));
    const bool is_low = i.how == Action::unpack_low;
    add_offset(z, base_, z_offset(n, is_low ? 0 : static_cast<unsigned>(vector_bytes) / 2));
    // In an order in which no piece is overwritten that is still to be read. Of an odd number the last one is half a
    // piece.
    constexpr unsigned last = (pieces - 1) / 2;
    for (unsigned k = 0; k <= last; ++k) {
      const unsigned q = is_low ? last - k : k;
      if (pieces % 2 != 0 && q == last) {
        code_->put(ldr_d, t, z, 16 * q);
        vector(low, from_size, q == 0 ? i.d : a, t);
        if (q > 0) store_q(a, z_offset(i.d, 32 * q));
        continue;
      }
      code_->put(ldr_q, t, z, 16 * q);
      vector(high, from_size, b2, t);
      vector(low, from_size, q == 0 ? i.d : a, t);
      if (q == 0)
        store_q(b2, z_offset(i.d, 16));
      else
        store_pair(a, b2, z_offset(i.d, 32 * q));
    }
  }

  // A scalar result: the rest of the vector becomes 0.
  void put_zero_rest(unsigned d) { put_zero_rest_with(d, spare(0)); }
  void put_zero_rest_with(unsigned d, unsigned t) {
    code_->put(movi_zero, t);
    for (unsigned p = 1; p + 1 < pieces; p += 2) store_pair(t, t, z_offset(d, 16 * p));
    if (pieces % 2 == 0) store_q(t, z_offset(d, 16 * (pieces - 1)));
  }

  // The operand's piece, its inactive elements those of `identity`.
  unsigned put_reduced_piece(const Insn& i, unsigned p, unsigned home_, unsigned m, unsigned identity) {
    const unsigned n = i.sources[0];
    unsigned from = n;
    if (p > 0) load_q(from = home_, z_offset(n, 16 * p));
    if (m == no_register) return from;
    put_mask(m, i.pg, i.size, p);
    if (identity == no_register) {
      vector(v_and_v, 0, home_, from, m);
    } else {
      vector(v_bsl_v, 0, m, from, identity);
      return m;
    }
    return home_;
  }

  void put_sum(const Insn& i) {
    const bool masked = !is_full(i, known_);
    const unsigned t = spare(0), sum = spare(1), m = masked ? spare(2) : no_register;
    static constexpr const Form* sums[] = {&uaddlv_b, &uaddlv_h, &uaddlv_s, &addp_d};
    for (unsigned p = 0; p < pieces; ++p) {
      const unsigned from = put_reduced_piece(i, p, t, m, no_register);
      code_->put(*sums[i.size], p == 0 ? sum : t, from);
      if (p > 0) code_->put(add_d, sum, sum, t);
    }
    put_zero_rest(i.d);
    move_v(i.d, sum);
  }

  void put_reduction(const Insn& i) {
    const bool masked = !is_full(i, known_);
    const unsigned t = spare(0), most = spare(1), m = masked ? spare(2) : no_register;
    unsigned identity = no_register;
    if (masked) {
      const unsigned bits = 8u << i.size;
      const std::uint64_t sign = std::uint64_t{1} << (bits - 1);
      const std::uint64_t value = i.form == &v_smax   ? sign
                                  : i.form == &v_smin ? sign - 1
                                  : i.form == &v_umax ? 0
                                                      : ~std::uint64_t{0};
      identity = spare(3);
      put_constant({replicated(static_cast<std::int64_t>(value), i.size), no_register, i.size, identity}, temp(0));
    }
    for (unsigned p = 0; p < pieces; ++p) {
      const unsigned from = put_reduced_piece(i, p, t, m, identity);
      if (p == 0)
        move_v(most, from);
      else
        vector(*i.form, i.size, most, most, from);
    }
    const VectorForm& across = i.form == &v_smax   ? v_smaxv
                               : i.form == &v_smin ? v_sminv
                               : i.form == &v_umax ? v_umaxv
                                                   : v_uminv;
    put_zero_rest(i.d);
    vector(across, i.size, i.d, most);
  }

  // One after the other, all being active.
  void put_fp_ordered_sum(const Insn& i) {
    const unsigned sum = spare(0), t = spare(1), piece = spare(2), n = i.sources[1];
    const bool is_single = i.size == element_s;
    move_v(sum, i.d);
    for (unsigned p = 0; p < pieces; ++p) {
      unsigned from = n;
      if (p > 0) load_q(from = piece, z_offset(n, 16 * p));
      for (unsigned e = 0; e < 16u >> i.size; ++e) {
        if (e > 0) code_->put(is_single ? dup_scalar_s : dup_scalar_d, t, from, e);
        code_->put(is_single ? fadd_s : fadd_d, sum, sum, e > 0 ? t : from);
      }
    }
    put_zero_rest_with(i.d, t);
    code_->put(is_single ? fmov_s_s : fmov_d_d, i.d, sum);
  }

  // A tree of neighbours, over as many pieces as a power of two, those that there are not being 0.
  void put_fp_sum(const Insn& i) {
    const bool masked = !is_full(i, known_);
    const unsigned m = masked ? spare(std::bit_width(pieces - 1) + 1) : no_register;
    const unsigned sum = put_fp_tree(i, m, 0, std::bit_ceil(pieces), 0);
    put_zero_rest_with(i.d, spare(1));
    // One piece is left.
    if (i.size == element_s) {
      vector(v_faddp, i.size, sum, sum, sum);
      code_->put(faddp_scalar_s, i.d, sum);
    } else {
      code_->put(faddp_scalar_d, i.d, sum);
    }
  }
  // Of `count` pieces from `first` on, in the k-th spare register.
  unsigned put_fp_tree(const Insn& i, unsigned m, unsigned first, unsigned count, unsigned k) {
    const unsigned at = spare(k);
    if (first >= pieces) {
      code_->put(movi_zero, at);
    } else if (count == 1) {
      move_v(at, put_reduced_piece(i, first, at, m, no_register));
    } else {
      put_fp_tree(i, m, first, count / 2, k);
      vector(v_faddp, i.size, at, at, put_fp_tree(i, m, first + count / 2, count / 2, k + 1));
    }
    return at;
  }

  // ---- General registers ----

  static std::int64_t counted(const Insn& i) {
    const std::int64_t multiplier = i.second_immediate;
    return VecTrueILength(static_cast<unsigned long>(i.immediate), static_cast<int>(elements(i.size))) * multiplier;
  }

  void put_alone(const Insn& i) {
    switch (i.how) {
      case Action::scalar:
        code_->put(i.word);
        break;
      case Action::store:
        put_store(i);
        break;
      case Action::compare:
      case Action::compare_reversed:
      case Action::compare_not:
      case Action::fp_compare:
      case Action::fp_compare_reversed:
      case Action::fp_compare_not:
        put_compare(i);
        break;
      case Action::fp_ordered_sum:
        put_fp_ordered_sum(i);
        break;
      case Action::gather:
      case Action::scatter:
        put_gather(i);
        break;
      case Action::replicate:
        put_replicate(i);
        break;
      case Action::series:
        put_series(i);
        break;
      case Action::structure:
        put_structure(i);
        break;
      case Action::nothing:
        break;
      case Action::set_ffr:
        put_set_ffr();
        break;
      case Action::read_ffr:
        put_read_ffr(i);
        break;
      case Action::test:
        put_test(i);
        break;
      case Action::count_active:
        put_count_active(i);
        break;
      case Action::compact:
        put_compact(i);
        break;
      case Action::unpack_low:
      case Action::unpack_high:
        put_unpack(i);
        break;
      case Action::sum:
        put_sum(i);
        break;
      case Action::reduce:
        put_reduction(i);
        break;
      case Action::fp_sum:
        put_fp_sum(i);
        break;
      case Action::while_unsigned:
      case Action::while_signed:
        put_while(i);
        break;
      case Action::set_pattern:
        put_pattern(i);
        break;
      case Action::logic:
        put_logic(i);
        break;
      case Action::count:
        if (i.xd != zero) code_->put(movz_w, i.xd, counted(i));
        break;
      case Action::count_up:
      case Action::count_down:
        if (i.xd != zero) add_offset(i.xd, i.xd, i.how == Action::count_up ? counted(i) : -counted(i));
        break;
      case Action::add_length: {
        const bool by_vectors = i.row->mnemonic() == "addvl";
        const std::int64_t unit =
            by_vectors ? static_cast<std::int64_t>(vector_bytes) : static_cast<std::int64_t>(predicate_bytes);
        add_offset(i.xd, i.xn, i.immediate * unit + (i.xn == sp ? SVE_ENTRY_PUSHED : 0));
        break;
      }
      case Action::read_length:
        if (i.xd != zero)
          code_->load_x(i.xd, static_cast<std::uint64_t>(i.immediate * static_cast<std::int64_t>(vector_bytes)));
        break;
      default:
        code_->spoil();
    }
  }

  EntryBuffer* code_ = nullptr;
  EventLog* log_ = nullptr;
  const Site* site_ = nullptr;
  HeavyEmitter put_handlers_ = nullptr;
  std::size_t count_ = 0;
  Insn insns_[longest_run];

  unsigned base_ = 0, temp_[7] = {}, temp_count_ = 0, borrowed_x_ = 3;
  unsigned spare_[32] = {}, spare_count_ = 0, borrowed_v_ = 0;
  Knowledge known_;

  // Of the group at work.
  unsigned piece_ = 0, halves_ = 2;
  std::size_t current_ = 0;
  std::uint32_t have_ = 0, dirty_ = 0, live_in_ = 0;
  bool measuring_ = false;
  HalfRegisters other_{};
  unsigned next_spare_ = 0;
  unsigned scratch_[8] = {}, scratch_count_ = 0;
  Constant constants_[8] = {};
  unsigned constant_count_ = 0;
  Mask masks_[4] = {};
  unsigned mask_count_ = 0;
  Address addresses_[4] = {};
  unsigned address_count_ = 0;
};

}  // namespace

void put_thread_block(EntryBuffer& code, unsigned to, unsigned by) {
  const auto place = reinterpret_cast<std::uintptr_t>(&this_thread_block) -
                     reinterpret_cast<std::uintptr_t>(__builtin_thread_pointer());
  code.put(mrs_thread, to);
  if (fits(ldr_x.fields[2], static_cast<std::int64_t>(place))) return code.put(ldr_x, to, to, place);
  code.load_x(by, place);
  code.put(ldr_x_index, to, to, by);
}

void put_native(EntryBuffer& code, EventLog& log, const Site& s, HeavyEmitter put_handlers, bool scalars_only) {
  static constinit Translator at_work;
  at_work.put_run(code, log, s, put_handlers, scalars_only);
}

}  // namespace sve::runner
