// A stand-in for the platform's interface, as far as the client uses it. It executes no application: it records what it
// is told, and a test reads that back. The names are the platform's.
#pragma once

#include <sys/types.h>

#include <csetjmp>
#include <cstddef>
#include <cstdint>

using byte = unsigned char;
using app_pc = byte*;
using uint = unsigned int;
using ptr_int_t = std::intptr_t;
using reg_t = std::uint64_t;
using reg_id_t = unsigned short;
using opnd_size_t = unsigned char;
using client_id_t = unsigned int;
using file_t = int;

#define DR_EXPORT

struct module_data_t {
  app_pc start;
  const char* full_path;
};

enum {
  DR_REG_NULL,
  DR_REG_X0 = 1,
  DR_REG_X1,
  DR_REG_X2,
  DR_REG_X9 = 10,
  DR_REG_X10 = 11,
  DR_REG_X19 = 20,
  DR_REG_X26 = 27,
  DR_REG_X27 = 28,
  DR_REG_X28 = 29,
  DR_REG_X30 = 31,
  DR_REG_SP = 32,
  DR_REG_W0 = 33,
  DR_REG_W26 = 59,
  DR_REG_Q0 = 64,
  DR_REG_Q31 = 95,
  DR_REG_NZCV = 96,
  DR_REG_FPSR,
  DR_REG_FPCR,
};
enum { OPSZ_4 = 4, OPSZ_8 = 8, OPSZ_16 = 16 };
enum { OP_add, OP_str, OP_ldr, OP_stp, OP_ldp, OP_mrs, OP_msr, OP_blr };
enum { DR_SHIFT_LSL };
enum { DR_OPND_IS_SHIFT = 2 };
enum dr_spill_slot_t { SPILL_SLOT_1, SPILL_SLOT_2, SPILL_SLOT_3, SPILL_SLOT_4 };
enum dr_emit_flags_t { DR_EMIT_DEFAULT };
enum { DR_MEMPROT_NONE = 0, DR_MEMPROT_READ = 1, DR_MEMPROT_WRITE = 2, DR_MEMPROT_PRETEND_WRITE = 8 };

struct opnd_t {
  enum { nothing, reg, immediate, memory } kind;
  reg_id_t number, index;
  int scale;
  ptr_int_t value;
  opnd_size_t size;
  int flags;
};
struct instr_t;
struct instrlist_t;

inline constexpr file_t our_stderr = 2;
inline constexpr file_t INVALID_FILE = -1;
inline constexpr unsigned DR_FILE_READ = 1, DR_FILE_WRITE_REQUIRE_NEW = 2;
file_t dr_open_file(const char* path, unsigned flags);
ssize_t dr_read_file(file_t file, void* to, std::size_t size);
ssize_t dr_write_file(file_t file, const void* from, std::size_t size);
void dr_close_file(file_t file);
int dr_get_process_id();

void dr_set_client_name(const char* name, const char* address);
module_data_t* dr_get_main_module();
module_data_t* dr_lookup_module(byte* pc);
void dr_free_module_data(module_data_t* data);
void dr_register_exit_event(void (*func)());
void dr_log(void* drcontext, uint mask, uint level, const char* format, ...);
[[gnu::format(printf, 2, 3)]] std::size_t dr_fprintf(file_t file, const char* format, ...);
[[noreturn]] void dr_abort();
void* dr_thread_alloc(void* drcontext, std::size_t size);
void dr_thread_free(void* drcontext, void* memory, std::size_t size);
void* dr_nonheap_alloc(std::size_t size, uint protection);
void dr_nonheap_free(void* memory, std::size_t size);
bool dr_memory_protect(void* base, std::size_t size, uint protection);
void* dr_get_current_drcontext();
std::size_t dr_page_size();
struct dr_mem_info_t {
  uint prot;
};
bool dr_query_memory_ex(const byte* pc, dr_mem_info_t* info);
bool dr_get_integer_option(const char* name, std::uint64_t* value);
bool dr_safe_read(const void* base, std::size_t size, void* out, std::size_t* read);

app_pc dr_fragment_app_pc(void* tag);
instr_t* instrlist_first_app(instrlist_t* list);
instr_t* instr_get_next_app(instr_t* instruction);
byte* instr_get_raw_bits(instr_t* instruction);
app_pc instr_get_app_pc(instr_t* instruction);
reg_id_t dr_get_stolen_reg();
void dr_save_reg(void* drcontext, instrlist_t* list, instr_t* where, reg_id_t reg, dr_spill_slot_t slot);
void dr_restore_reg(void* drcontext, instrlist_t* list, instr_t* where, reg_id_t reg, dr_spill_slot_t slot);
reg_t dr_read_saved_reg(void* drcontext, dr_spill_slot_t slot);
void dr_write_saved_reg(void* drcontext, dr_spill_slot_t slot, reg_t value);
bool dr_insert_get_stolen_reg_value(void* drcontext, instrlist_t* list, instr_t* where, reg_id_t reg);
bool dr_insert_set_stolen_reg_value(void* drcontext, instrlist_t* list, instr_t* where, reg_id_t reg);
void instrlist_insert_mov_immed_ptrsz(void* drcontext, ptr_int_t value, opnd_t to, instrlist_t* list, instr_t* where,
                                      instr_t** first, instr_t** last);

opnd_t opnd_create_reg(reg_id_t reg);
opnd_t opnd_create_base_disp(reg_id_t base, reg_id_t index, int scale, int displacement, opnd_size_t size);
opnd_t opnd_create_immed_int(ptr_int_t value, opnd_size_t size);
opnd_t opnd_add_flags(opnd_t operand, int flags);
ptr_int_t opnd_get_immed_int(opnd_t operand);
instr_t* instr_create_1dst_1src(void* drcontext, int opcode, opnd_t to, opnd_t from);
instr_t* instr_create_1dst_2src(void* drcontext, int opcode, opnd_t to, opnd_t first, opnd_t second);
instr_t* instr_create_2dst_1src(void* drcontext, int opcode, opnd_t first, opnd_t second, opnd_t from);
instr_t* instr_create_1dst_4src(void* drcontext, int opcode, opnd_t to, opnd_t a, opnd_t b, opnd_t c, opnd_t d);
void instr_set_translation(instr_t* instruction, app_pc address);
void instrlist_preinsert(instrlist_t* list, instr_t* where, instr_t* instruction);
void instrlist_meta_preinsert(instrlist_t* list, instr_t* where, instr_t* instruction);
void instrlist_remove(instrlist_t* list, instr_t* instruction);
void instr_destroy(void* drcontext, instr_t* instruction);

// A try block of the thread, innermost first.
struct fake_try_block {
  fake_try_block();
  ~fake_try_block();
  sigjmp_buf target;
  fake_try_block* outer;
};
#define DR_TRY_EXCEPT(drcontext, try_statement, except_statement) \
  do {                                                            \
    static_cast<void>(drcontext);                                 \
    bool fake_faulted = true;                                     \
    {                                                             \
      fake_try_block block;                                       \
      if (sigsetjmp(block.target, 1) == 0) {                      \
        try_statement fake_faulted = false;                       \
      }                                                           \
    }                                                             \
    if (fake_faulted) except_statement                            \
  } while (0)

struct dr_mcontext_t {
  std::size_t size;
  int flags;
  reg_t r0, others[30];  // X0 to X30
  reg_t sp;
  app_pc pc;
  uint nzcv, fpcr, fpsr;
  struct {
    unsigned char bytes[64];
  } simd[32];
};
enum { DR_MC_ALL = 7 };
bool dr_redirect_execution(dr_mcontext_t* context);

enum dr_kernel_xfer_type_t { DR_XFER_SIGNAL_DELIVERY, DR_XFER_SIGNAL_RETURN, DR_XFER_CLIENT_REDIRECT };
struct dr_kernel_xfer_info_t {
  dr_kernel_xfer_type_t type;
  const dr_mcontext_t* source_mcontext;
  app_pc target_pc;
  reg_t target_xsp;
  int sig;
};
void dr_register_fork_init_event(void (*func)(void* drcontext));

bool dr_raw_tls_calloc(reg_id_t* tls_register, uint* offset, uint num_slots, uint alignment);
void* dr_get_dr_segment_base(reg_id_t tls_register);
void dr_insert_read_raw_tls(void* drcontext, instrlist_t* list, instr_t* where, reg_id_t tls_register, uint offset,
                            reg_id_t to);

extern "C" void dr_client_main(client_id_t id, int argc, const char* argv[]);
