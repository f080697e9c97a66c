// The run-time call on the stock platform.
//
// A clean call of the platform would save and restore every register once more, and its plain call runs on the
// application's stack, which may be too small. This one switches to a stack that each thread has for it. The platform's
// thread pointer is in place in its code cache, so C++ code can be called as it is, and the stolen register is one that
// the callee keeps.
//
// The client is written for blocks that are private to a thread, which -thread_private asks for. On AArch64
// release 11.3 shares blocks all the same (the option turns on another that turns sharing back on), and faults in its
// own code when it is made not to. So where the platform says that it shares blocks, what differs between threads is
// loaded at run time.
#include "sve/client/port.h"

#include <pthread.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "drmgr.h"
#include "sve/client/call_sites.h"
#include "sve/client/handler_states.h"
#include "sve/client/sve_client.h"
#include "sve/fault/fault_capture.h"
#include "sve/stats/stats.h"

namespace {

using sve::client::CallThread;

constexpr std::size_t stack_bytes = 128 * 1024;
int stack_idx;

// The lowest page is a guard.
std::size_t mapping_bytes() { return stack_bytes + page_size; }

bool blocks_are_shared = false;

// Where the platform has room, inserted code finds what is a thread's at an offset from the stolen register, one load
// away, rather than behind the fields of the platform's manager.
struct DirectSlots {
  bool exist = false;
  reg_id_t base = DR_REG_NULL;
  unsigned int state = 0, stack = 0;
} direct;

void set_direct(unsigned int offset, void* value) {
  if (direct.exist) std::memcpy(static_cast<byte*>(dr_get_dr_segment_base(direct.base)) + offset, &value, sizeof value);
}

// The field holds the place of the thread's record, below which the stack begins.
void allocate_stack(void* drcontext) {
  auto* const mapping = static_cast<byte*>(dr_nonheap_alloc(mapping_bytes(), DR_MEMPROT_READ | DR_MEMPROT_WRITE));
  dr_memory_protect(mapping, page_size, DR_MEMPROT_NONE);
  byte* const record = mapping + mapping_bytes() - sizeof(CallThread);
  new (record) CallThread{sve::client::calls_between_leaving};
  drmgr_set_tls_field(drcontext, stack_idx, record);
  set_direct(direct.stack, record);
  set_direct(direct.state, drmgr_get_tls_field(drcontext, tls_idx));
}

void release_stack(void* drcontext) {
  auto* const record = static_cast<byte*>(drmgr_get_tls_field(drcontext, stack_idx));
  dr_nonheap_free(record + sizeof(CallThread) - mapping_bytes(), mapping_bytes());
}

}  // namespace

namespace sve::client {

void register_exit_event(void (*event)()) {
// Newer releases give the plain name's meaning to the extension, and turn the plain name into an error.
#ifdef dr_register_exit_event
  drmgr_register_exit_event(event);
#else
  dr_register_exit_event(event);
#endif
}

void make_mutex_work(std::mutex& mutex) {
  pthread_mutexattr_t shared;
  pthread_mutexattr_init(&shared);
  pthread_mutexattr_setpshared(&shared, PTHREAD_PROCESS_SHARED);
  pthread_mutex_init(mutex.native_handle(), &shared);
  pthread_mutexattr_destroy(&shared);
}

void start_calls() {
  make_mutex_work(icounts_mutex);
  std::uint64_t shared;
  blocks_are_shared = dr_get_integer_option("shared_bbs", &shared) && shared != 0;
  stack_idx = drmgr_register_tls_field();
  direct.exist = dr_raw_tls_calloc(&direct.base, &direct.state, 2, 0);
  direct.stack = direct.state + sizeof(void*);
  drmgr_register_thread_init_event(allocate_stack);
  drmgr_register_thread_exit_event(release_stack);
  keep_states_over_handlers();
  dr_register_fork_init_event(restart_counts);
}

void insert_load_of_field(void* drcontext, instrlist_t* list, instr_t* where, int index, reg_id_t to) {
  if (blocks_are_shared && direct.exist) {
    const unsigned int offset = index == stack_idx ? direct.stack : direct.state;
    dr_insert_read_raw_tls(drcontext, list, where, direct.base, offset, to);
  } else if (blocks_are_shared) {
    drmgr_insert_read_tls_field(drcontext, index, list, where, to);
  } else {
    instrlist_insert_mov_immed_ptrsz(drcontext, reinterpret_cast<ptr_int_t>(drmgr_get_tls_field(drcontext, index)),
                                     opnd_create_reg(to), list, where, nullptr, nullptr);
  }
}

}  // namespace sve::client

void dr_insert_call_zorvi(void* drcontext, instrlist_t* list, instr_t* where, app_pc address, void* callee,
                          unsigned int count, ...) {
  const auto insert = [&](instr_t* instruction) {
    instr_set_translation(instruction, address);
    instrlist_meta_preinsert(list, where, instruction);
  };
  const auto load = [&](reg_id_t to, ptr_int_t value) {
    instrlist_insert_mov_immed_ptrsz(drcontext, value, opnd_create_reg(to), list, where, nullptr, nullptr);
  };
  const auto move = [&](reg_id_t to, reg_id_t from) {
    insert(instr_create_1dst_4src(drcontext, OP_add, opnd_create_reg(to), opnd_create_reg(from),
                                  opnd_create_immed_int(0, OPSZ_4),
                                  opnd_add_flags(opnd_create_immed_int(DR_SHIFT_LSL, OPSZ_4), DR_OPND_IS_SHIFT),
                                  opnd_create_immed_int(0, OPSZ_4)));
  };

  const bool is_site = callee == reinterpret_cast<void*>(emulate_instruction) && count == 3;
  ptr_int_t values[8];
  std::va_list arguments;
  va_start(arguments, count);
  for (unsigned int i = 0; i < count; ++i) values[i] = opnd_get_immed_int(va_arg(arguments, opnd_t));
  va_end(arguments);

  reg_id_t stack = DR_REG_X9;
  if (is_site) {
    load(DR_REG_X0, reinterpret_cast<ptr_int_t>(sve::client::need_call_site(
                        static_cast<unsigned int>(values[0]), reinterpret_cast<unsigned char*>(values[1]),
                        reinterpret_cast<DecodeHandler>(values[2]))));
    move(DR_REG_X1, DR_REG_X27);
    stack = DR_REG_X2;  // where the thread's record lies too
    callee = reinterpret_cast<void*>(sve::client::run_call_site);
  } else {
    for (unsigned int i = 0; i < count; ++i) load(static_cast<reg_id_t>(DR_REG_X0 + i), values[i]);
  }
  sve::client::insert_load_of_field(drcontext, list, where, stack_idx, stack);
  load(DR_REG_X10, reinterpret_cast<ptr_int_t>(callee));
  move(DR_REG_X19, DR_REG_SP);  // which the callee keeps
  move(DR_REG_SP, stack);
  insert(instr_create_1dst_1src(drcontext, OP_blr, opnd_create_reg(DR_REG_X30), opnd_create_reg(DR_REG_X10)));
  move(DR_REG_SP, DR_REG_X19);
}
