#include "sve/client/handler_states.h"

#include <cstddef>
#include <cstring>

#include "dr_api.h"  // ahead of its extensions
//
#include "drmgr.h"
#include "sve/client/sve_client.h"

namespace sve::client {
namespace {

// What the platform's signal frame does not hold: all from the vectors to FFR.
constexpr std::size_t kept_begin = offsetof(cpu_state, z);
constexpr std::size_t kept_bytes = offsetof(cpu_state, ffr) + sizeof(cpu_state::ffr) - kept_begin;

// The state that a handler interrupted. A thread's entries form a list, the innermost first.
struct Interrupted {
  Interrupted* outer;
  reg_t sp;  // of the interrupted code
  unsigned char kept[kept_bytes];
};

// A handler that is left by a jump never returns, so more than this many are not waited for.
constexpr int most_interrupted = 64;

int field;

Interrupted* innermost(void* drcontext) { return static_cast<Interrupted*>(drmgr_get_tls_field(drcontext, field)); }

void drop(void* drcontext, Interrupted* entry) { dr_thread_free(drcontext, entry, sizeof *entry); }

void forget_beyond(void* drcontext, Interrupted* entry, int count) {
  while (entry && --count > 0) entry = entry->outer;
  if (!entry) return;
  while (Interrupted* const last = entry->outer) {
    entry->outer = last->outer;
    drop(drcontext, last);
  }
}

unsigned char* kept_of(void* drcontext) {
  return static_cast<unsigned char*>(drmgr_get_tls_field(drcontext, tls_idx)) + kept_begin;
}

void on_transfer(void* drcontext, const dr_kernel_xfer_info_t* info) {
  if (info->type == DR_XFER_SIGNAL_DELIVERY && info->source_mcontext) {
    auto* const entry = static_cast<Interrupted*>(dr_thread_alloc(drcontext, sizeof(Interrupted)));
    entry->outer = innermost(drcontext);
    entry->sp = info->source_mcontext->sp;
    std::memcpy(entry->kept, kept_of(drcontext), kept_bytes);
    drmgr_set_tls_field(drcontext, field, entry);
    forget_beyond(drcontext, entry, most_interrupted);
  } else if (info->type == DR_XFER_SIGNAL_RETURN) {
    // Handlers that were left by a jump stand in front of the one that returns now.
    Interrupted* returning = innermost(drcontext);
    while (returning && returning->sp != info->target_xsp) returning = returning->outer;
    if (!returning) return;
    std::memcpy(kept_of(drcontext), returning->kept, kept_bytes);
    for (Interrupted* entry = innermost(drcontext); entry != returning;) {
      Interrupted* const outer = entry->outer;
      drop(drcontext, entry);
      entry = outer;
    }
    drmgr_set_tls_field(drcontext, field, returning->outer);
    drop(drcontext, returning);
  }
}

void release(void* drcontext) {
  for (Interrupted* entry = innermost(drcontext); entry;) {
    Interrupted* const outer = entry->outer;
    drop(drcontext, entry);
    entry = outer;
  }
}

}  // namespace

void keep_states_over_handlers() {
  field = drmgr_register_tls_field();
  drmgr_register_kernel_xfer_event(on_transfer);
  drmgr_register_thread_exit_event(release);
}

}  // namespace sve::client
