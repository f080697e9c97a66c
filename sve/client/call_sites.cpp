#include "sve/client/call_sites.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <list>
#include <map>
#include <mutex>
#include <new>
#include <utility>

#include "sve/client/guarded_call.h"
#include "sve/client/port.h"
#include "sve/client/run_data.h"
#include "sve/client/sve_client.h"
#include "sve/decode/table.h"
#include "sve/stats/stats.h"

namespace sve::client {
namespace {

struct WorkingMutex : std::mutex {
  WorkingMutex() { make_mutex_work(*this); }
};

struct SiteTable {
  WorkingMutex lock;
  std::map<std::pair<unsigned char*, unsigned int>, CallSite> sites;
};
SiteTable& table() {
  static SiteTable& the_one = *new SiteTable;  // other threads may run to the very end
  return the_one;
}

bool names_slot_register(unsigned int word) {
  const decode::Row* const row = decode::find_row(word);
  if (!row) return true;
  for (const decode::Operand& o : row->operands()) {
    const bool general = o.kind == decode::OperandKind::x || o.kind == decode::OperandKind::x_or_sp;
    if (general && o.number(word) >= 26 && o.number(word) <= 28) return true;
  }
  return false;
}

void count(CallSite* site) {
  auto* counter = site->count.load(std::memory_order_acquire);
  if (!counter) {
    counter = need_count(reinterpret_cast<unsigned int*>(site->pc), site->word);
    site->count.store(counter, std::memory_order_release);
  }
  sve_instr_count.fetch_add(1, std::memory_order_relaxed);
  if (counter) counter->fetch_add(1, std::memory_order_relaxed);
}

// A signal that comes while the callee runs stays pending until the thread leaves the code cache, which a loop that is
// one block never does; nor is a thread stopped there that another one waits for.
void leave_cache(const cpu_state* state, app_pc next) {
  void* const drcontext = dr_get_current_drcontext();
  dr_mcontext_t context;
  std::memset(&context, 0, sizeof context);
  context.size = sizeof context;
  context.flags = DR_MC_ALL;
  auto* const registers = reinterpret_cast<unsigned char*>(&context) + offsetof(dr_mcontext_t, r0);
  std::memcpy(registers, state->x, sizeof state->x);
  for (int i = 0; i < 3; ++i) {
    const reg_t waiting = dr_read_saved_reg(drcontext, static_cast<dr_spill_slot_t>(SPILL_SLOT_2 + i));
    std::memcpy(registers + (26 + i) * sizeof waiting, &waiting, sizeof waiting);
  }
  context.sp = state->sp;
  context.pc = next;
  context.nzcv = static_cast<unsigned int>(state->nzcv);
  context.fpcr = state->fpcr;
  context.fpsr = state->fpsr;
  for (int n = 0; n < 32; ++n) std::memcpy(&context.simd[n], state->z[n], 16);
  dr_redirect_execution(&context);
}

}  // namespace

CallSite* need_call_site(unsigned int word, unsigned char* pc, DecodeHandler handler) {
  const std::lock_guard<std::mutex> guard(table().lock);
  const auto [at, is_new] = table().sites.try_emplace({pc, word});
  CallSite& site = at->second;
  if (is_new) {
    site.word = word;
    site.pc = pc;
    site.row = decode::find_row(word);
    site.handler = site.row && has_lane_use(*site.row) ? counting_handler(handler) : handler;
    site.accesses_memory = word_accesses_memory(word);
    site.uses_slots = names_slot_register(word);
  }
  return &site;
}

void run_call_site(CallSite* site, cpu_state* state, CallThread* own) {
  if (site->uses_slots) {
    emulate_instruction(site->word, site->pc, site->handler);
  } else {
    state->pc = reinterpret_cast<std::uint32_t*>(site->pc);
    const aarch64_decode_rc rc = site->accesses_memory
                                     ? call_handler(dr_get_current_drcontext(), site->handler, state, site->word)
                                     : site->handler(state, site->word);
    if (rc == AARCH64_DECODE_EXECUTED) {
      count(site);
    } else {
      report_failure(site->pc);
    }
  }
  if (--own->until_leaving != 0) return;
  own->until_leaving = calls_between_leaving;
  leave_cache(state, site->pc + 4);
}

void restart_counts(void*) {
  // Another thread of the parent may have held the lock, in the middle of a change. So the table is put away as it is.
  make_mutex_work(icounts_mutex);
  static auto& put_away = *new std::list<decltype(icounts)>;
  put_away.push_back(std::move(icounts));
  make_mutex_work(table().lock);
  for (auto& [key, site] : table().sites) {
    site.count.store(nullptr);
    site.lanes.~LaneUse();
    new (&site.lanes) LaneUse{};
  }
  sve_instr_count.store(0);
  aarch64_instr_count = 0;
  restart_run_data();
}

}  // namespace sve::client
