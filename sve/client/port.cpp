// The run-time call on the stock platform.
//
// A clean call of the platform would save and restore every register once more, and its plain call runs on the
// application's stack, which may be too small. This one switches to a stack that each thread gets when its first call is
// built. The platform's thread pointer is in place in its code cache, so C++ code can be called as it is, and the stolen
// register is one that the callee keeps.
#include "sve/client/port.h"

#include <cstdarg>
#include <cstddef>

#include "drmgr.h"
#include "sve/client/assertion.h"
#include "sve/fault/fault_capture.h"

namespace {

constexpr std::size_t stack_bytes = 128 * 1024;
int stack_idx;

// The lowest page is a guard.
std::size_t mapping_bytes() { return stack_bytes + page_size; }

void release_stack(void* drcontext) {
  if (void* const mapping = drmgr_get_tls_field(drcontext, stack_idx)) dr_nonheap_free(mapping, mapping_bytes());
  drmgr_set_tls_field(drcontext, stack_idx, nullptr);
}

// The end of the thread's stack, where it begins to grow down.
ptr_int_t stack_end(void* drcontext) {
  void* mapping = drmgr_get_tls_field(drcontext, stack_idx);
  if (!mapping) {
    mapping = dr_nonheap_alloc(mapping_bytes(), DR_MEMPROT_READ | DR_MEMPROT_WRITE);
    dr_memory_protect(mapping, page_size, DR_MEMPROT_NONE);
    drmgr_set_tls_field(drcontext, stack_idx, mapping);
  }
  return reinterpret_cast<ptr_int_t>(mapping) + static_cast<ptr_int_t>(mapping_bytes());
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

void start_calls() {
  stack_idx = drmgr_register_tls_field();
  drmgr_register_thread_exit_event(release_stack);
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

  std::va_list arguments;
  va_start(arguments, count);
  for (unsigned int i = 0; i < count; ++i)
    load(static_cast<reg_id_t>(DR_REG_X0 + i), opnd_get_immed_int(va_arg(arguments, opnd_t)));
  va_end(arguments);
  load(DR_REG_X9, stack_end(drcontext));
  load(DR_REG_X10, reinterpret_cast<ptr_int_t>(callee));
  move(DR_REG_X19, DR_REG_SP);  // which the callee keeps
  move(DR_REG_SP, DR_REG_X9);
  insert(instr_create_1dst_1src(drcontext, OP_blr, opnd_create_reg(DR_REG_X30), opnd_create_reg(DR_REG_X10)));
  move(DR_REG_SP, DR_REG_X19);
}
