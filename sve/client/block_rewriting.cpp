// Rewriting of blocks: each SVE instruction becomes straight-line code around one call into the model.
#include "dr_api.h"  // ahead of its extensions
//
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "drmgr.h"
#include "sve/client/assertion.h"
#include "sve/client/guarded_call.h"
#include "sve/client/port.h"
#include "sve/client/sve_client.h"
#include "sve/stats/stats.h"

namespace {

// Scratch and base register of the inserted code, and where the application's values of these and of the platform's
// stolen register wait meanwhile.
constexpr reg_id_t scratch = DR_REG_X26;
constexpr reg_id_t base = DR_REG_X27;
constexpr dr_spill_slot_t slot_of_x26 = SPILL_SLOT_2;
constexpr dr_spill_slot_t slot_of_x27 = SPILL_SLOT_3;
constexpr dr_spill_slot_t slot_of_x28 = SPILL_SLOT_4;

constexpr int offset_of_x(int number) {
  return static_cast<int>(offsetof(cpu_state, x) + number * sizeof(std::uint64_t));
}
constexpr int offset_of_z(int number) { return static_cast<int>(offsetof(cpu_state, z) + number * sve::vector_bytes); }
constexpr int offset_of_sp = offsetof(cpu_state, sp);
constexpr int offset_of_nzcv = offsetof(cpu_state, nzcv);
constexpr int offset_of_fpsr = offsetof(cpu_state, fpsr);
constexpr int offset_of_fpcr = offsetof(cpu_state, fpcr);

// In a register list the platform's numbers follow the architecture's.
reg_id_t x(int number) { return static_cast<reg_id_t>(DR_REG_X0 + number); }
reg_id_t q(int number) { return static_cast<reg_id_t>(DR_REG_Q0 + number); }

unsigned int read_word(const void* at) {
  unsigned int word;
  std::memcpy(&word, at, sizeof word);
  return word;
}

// Builds the code for one instruction, ahead of it and with its address.
class Sequence {
 public:
  Sequence(void* drcontext, instrlist_t* bb, instr_t* where, app_pc address)
      : drcontext_(drcontext), bb_(bb), where_(where), address_(address) {}

  void load_base() { sve::client::insert_load_of_field(drcontext_, bb_, where_, tls_idx, base); }
  void store(reg_id_t from, int offset, opnd_size_t size) {
    insert(instr_create_1dst_1src(drcontext_, OP_str, field(offset, size), reg(from)));
  }
  void load(reg_id_t to, int offset, opnd_size_t size) {
    insert(instr_create_1dst_1src(drcontext_, OP_ldr, reg(to), field(offset, size)));
  }
  // A pair is one access of twice the register's size.
  void store_pair(int number) {
    insert(instr_create_1dst_2src(drcontext_, OP_stp, field(offset_of_x(number), OPSZ_16), reg(x(number)),
                                  reg(x(number + 1))));
  }
  void load_pair(int number) {
    insert(instr_create_2dst_1src(drcontext_, OP_ldp, reg(x(number)), reg(x(number + 1)),
                                  field(offset_of_x(number), OPSZ_16)));
  }
  // `add to, from, #0, lsl #0`, the platform's form of a move that involves SP.
  void move(reg_id_t to, reg_id_t from) {
    insert(instr_create_1dst_4src(drcontext_, OP_add, reg(to), reg(from), opnd_create_immed_int(0, OPSZ_4),
                                  opnd_add_flags(opnd_create_immed_int(DR_SHIFT_LSL, OPSZ_4), DR_OPND_IS_SHIFT),
                                  opnd_create_immed_int(0, OPSZ_4)));
  }
  void read_system_register(reg_id_t from) {
    insert(instr_create_1dst_1src(drcontext_, OP_mrs, reg(scratch), reg(from)));
  }
  void write_system_register(reg_id_t to) { insert(instr_create_1dst_1src(drcontext_, OP_msr, reg(to), reg(scratch))); }

 private:
  static opnd_t reg(reg_id_t r) { return opnd_create_reg(r); }
  static opnd_t field(int offset, opnd_size_t size) {
    return opnd_create_base_disp(base, DR_REG_NULL, 0, offset, size);
  }
  void insert(instr_t* instruction) {
    instr_set_translation(instruction, address_);
    instrlist_preinsert(bb_, where_, instruction);
  }

  void* drcontext_;
  instrlist_t* bb_;
  instr_t* where_;
  app_pc address_;
};

void rewrite(void* drcontext, instrlist_t* bb, instr_t* instruction, DecodeHandler handler) {
  if (dr_get_stolen_reg() != DR_REG_X28) sve::client::fail_assertion(270, "dr_get_stolen_reg() == DR_REG_X28");
  const app_pc address = instr_get_app_pc(instruction);
  const unsigned int word = read_word(address);
  Sequence code(drcontext, bb, instruction, address);

  dr_save_reg(drcontext, bb, instruction, scratch, slot_of_x26);
  dr_save_reg(drcontext, bb, instruction, base, slot_of_x27);
  dr_insert_get_stolen_reg_value(drcontext, bb, instruction, base);
  dr_save_reg(drcontext, bb, instruction, base, slot_of_x28);
  code.load_base();
  code.move(scratch, DR_REG_SP);
  code.store(scratch, offset_of_sp, OPSZ_8);
  for (int n = 0; n <= 24; n += 2) code.store_pair(n);
  code.store_pair(29);
  for (int n = 0; n < 32; ++n) code.store(q(n), offset_of_z(n), OPSZ_16);
  code.read_system_register(DR_REG_NZCV);
  code.store(scratch, offset_of_nzcv, OPSZ_8);
  code.read_system_register(DR_REG_FPSR);
  code.store(DR_REG_W26, offset_of_fpsr, OPSZ_4);
  code.read_system_register(DR_REG_FPCR);
  code.store(DR_REG_W26, offset_of_fpcr, OPSZ_4);

  dr_insert_call_zorvi(drcontext, bb, instruction, address, reinterpret_cast<void*>(emulate_instruction), 3,
                       opnd_create_immed_int(static_cast<ptr_int_t>(word), OPSZ_4),
                       opnd_create_immed_int(reinterpret_cast<ptr_int_t>(address), OPSZ_8),
                       opnd_create_immed_int(reinterpret_cast<ptr_int_t>(handler), OPSZ_8));

  code.load_base();
  code.load(DR_REG_W26, offset_of_fpcr, OPSZ_4);
  code.write_system_register(DR_REG_FPCR);
  code.load(DR_REG_W26, offset_of_fpsr, OPSZ_4);
  code.write_system_register(DR_REG_FPSR);
  code.load(scratch, offset_of_nzcv, OPSZ_8);
  code.write_system_register(DR_REG_NZCV);
  for (int n = 0; n < 32; ++n) code.load(q(n), offset_of_z(n), OPSZ_16);
  for (int n = 0; n <= 24; n += 2) code.load_pair(n);
  code.load_pair(29);
  code.load(scratch, offset_of_sp, OPSZ_8);
  code.move(DR_REG_SP, scratch);
  dr_restore_reg(drcontext, bb, instruction, base, slot_of_x28);
  dr_insert_set_stolen_reg_value(drcontext, bb, instruction, base);
  dr_restore_reg(drcontext, bb, instruction, base, slot_of_x27);
  dr_restore_reg(drcontext, bb, instruction, scratch, slot_of_x26);

  instrlist_remove(bb, instruction);
  instr_destroy(drcontext, instruction);
}

// Shared libraries keep their instructions, SVE ones too. That is required: the client answers for the program alone,
// and who wants the libraries' as well has the other platform. Code that no module holds counts as the main program's.
bool is_left_alone(void* tag) {
  module_data_t* const module = dr_lookup_module(dr_fragment_app_pc(tag));
  if (!module) return false;
  const app_pc start = module->start;
  dr_free_module_data(module);
  return start != exe_start;
}

}  // namespace

static_assert(DR_REG_X28 - DR_REG_X0 == 28 && DR_REG_Q31 - DR_REG_Q0 == 31, "register numbers are consecutive");

dr_emit_flags_t event_instruction_change(void* drcontext, void* tag, instrlist_t* bb, bool, bool) {
  if (is_left_alone(tag)) return DR_EMIT_DEFAULT;
  for (instr_t *instruction = instrlist_first_app(bb), *next; instruction; instruction = next) {
    next = instr_get_next_app(instruction);  // first, since the current one may go away
    if (const DecodeHandler handler = is_sve(read_word(instr_get_raw_bits(instruction)))) {
      rewrite(drcontext, bb, instruction, handler);
    } else {
      ++aarch64_instr_count;
    }
  }
  return DR_EMIT_DEFAULT;
}

void sve::client::report_failure(const void* pc) {
  std::fprintf(stderr, "Error: failed to emulate SVE instruction 0x%08x at PC %p\n", read_word(pc), pc);
}

void emulate_instruction(unsigned int word, unsigned char* pc, DecodeHandler handler) {
  void* const drcontext = dr_get_current_drcontext();
  auto* const state = static_cast<cpu_state*>(drmgr_get_tls_field(drcontext, tls_idx));
  state->pc = reinterpret_cast<std::uint32_t*>(pc);
  state->x[26] = dr_read_saved_reg(drcontext, slot_of_x26);
  state->x[27] = dr_read_saved_reg(drcontext, slot_of_x27);
  state->x[28] = dr_read_saved_reg(drcontext, slot_of_x28);
  if (sve::client::call_handler(drcontext, handler, state, word) != AARCH64_DECODE_EXECUTED) {
    sve::client::report_failure(pc);
  } else {
    update_sve_stats(reinterpret_cast<unsigned int*>(pc), word);
  }
  dr_write_saved_reg(drcontext, slot_of_x26, state->x[26]);
  dr_write_saved_reg(drcontext, slot_of_x27, state->x[27]);
  dr_write_saved_reg(drcontext, slot_of_x28, state->x[28]);
}
