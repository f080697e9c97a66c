// The fake platform.
#include "platform.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace fake {
platform now;
}
using fake::now;

namespace {

[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...) {
  char line[512];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  return line;
}

std::string name(reg_id_t r) {
  if (r == DR_REG_SP) return "sp";
  if (r >= DR_REG_X0 && r < DR_REG_SP) return text("x%d", r - DR_REG_X0);
  if (r >= DR_REG_W0 && r < DR_REG_Q0) return text("w%d", r - DR_REG_W0);
  if (r >= DR_REG_Q0 && r <= DR_REG_Q31) return text("q%d", r - DR_REG_Q0);
  return r == DR_REG_NZCV ? "nzcv" : r == DR_REG_FPSR ? "fpsr" : r == DR_REG_FPCR ? "fpcr" : "?";
}

// Registers by name, memory as [base+offset:size], immediates as #value, a shift operand as lsl.
std::string describe(const opnd_t& o) {
  switch (o.kind) {
    case opnd_t::reg:
      return name(o.number);
    case opnd_t::memory:
      return text("[%s+%" PRIdPTR ":%d]%s", name(o.number).c_str(), o.value, o.size, o.index ? "!" : "");
    case opnd_t::immediate:
      return o.flags == DR_OPND_IS_SHIFT && o.value == DR_SHIFT_LSL ? "lsl" : text("#%" PRIdPTR, o.value);
    default:
      return "?";
  }
}

constexpr const char* mnemonics[] = {"add", "str", "ldr", "stp", "ldp", "mrs", "msr", "blr"};

instr_t* build(int opcode, std::vector<opnd_t> operands) {
  auto* const i = new instr_t;
  i->opcode = opcode;
  i->text = mnemonics[opcode];
  for (const opnd_t& o : operands) i->text += (&o == operands.data() ? " " : ", ") + describe(o);
  i->operands = std::move(operands);
  return i;
}

// What the platform's own insertions become: instructions that are not the application's.
instr_t* special(instr_t::special_kind kind, std::string line, std::vector<opnd_t> operands,
                 dr_spill_slot_t slot = {}) {
  auto* const i = new instr_t;
  i->special = kind;
  i->text = std::move(line);
  i->operands = std::move(operands);
  i->slot = slot;
  return i;
}

void insert(instrlist_t* list, instr_t* where, instr_t* i) {
  list->instructions.insert(std::find(list->instructions.begin(), list->instructions.end(), where), i);
}

fake::thread& thread_of(void* drcontext) { return *static_cast<fake::thread*>(drcontext); }

instrlist_t* walked;  // the list of the last instrlist_first_app

thread_local fake_try_block* innermost;

void on_fault(int sig, siginfo_t* info, void*) {
  if (now.put_right && info->si_addr == now.put_right && !innermost) {
    const auto page = reinterpret_cast<std::uintptr_t>(info->si_addr) & ~(dr_page_size() - 1);
    mprotect(reinterpret_cast<void*>(page), dr_page_size(), PROT_READ | PROT_WRITE);
    return;
  }
  if (!innermost) {
    std::fprintf(stderr, "fake platform: crash of the client by signal %d\n", sig);
    std::_Exit(3);
  }
  siglongjmp(innermost->target, 1);
}

}  // namespace

fake_try_block::fake_try_block() : outer(innermost) { innermost = this; }
fake_try_block::~fake_try_block() { innermost = outer; }

namespace fake {

void fill(instrlist_t& list, const unsigned int* code, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    auto* const one = new instr_t;
    one->text = text("app %08x", code[i]);
    one->is_original = true;
    one->translation = const_cast<byte*>(reinterpret_cast<const byte*>(code + i));
    list.instructions.push_back(one);
  }
}

void clear(instrlist_t& list) {
  for (instr_t* i : list.instructions) delete i;
  list.instructions.clear();
}

std::vector<std::string> texts(const instrlist_t& list) {
  std::vector<std::string> lines;
  for (const instr_t* i : list.instructions) lines.push_back(i->text);
  return lines;
}

void own_signals() {
  struct sigaction action = {};
  action.sa_sigaction = on_fault;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGSEGV, &action, nullptr);
  sigaction(SIGBUS, &action, nullptr);
}

}  // namespace fake

void dr_set_client_name(const char* client, const char*) { now.calls.push_back(text("dr_set_client_name %s", client)); }
module_data_t* dr_get_main_module() {
  now.calls.push_back("dr_get_main_module");
  return now.has_main_module ? &now.main_module : nullptr;
}
module_data_t* dr_lookup_module(byte* pc) {
  for (const module_data_t& m : now.modules)
    if (pc >= m.start && pc < m.start + dr_page_size()) return new module_data_t(m);
  return nullptr;
}
void dr_free_module_data(module_data_t* data) {
  now.calls.push_back(data == &now.main_module ? "dr_free_module_data main" : "dr_free_module_data");
  if (data != &now.main_module) delete data;
}
void dr_register_exit_event(void (*func)()) {
  now.calls.push_back("dr_register_exit_event");
  now.exit = func;
}
void dr_log(void* drcontext, uint mask, uint level, const char* format, ...) {
  now.calls.push_back(text("dr_log %s %x %u %s", drcontext ? "context" : "null", mask, level, format));
}
std::size_t dr_fprintf(file_t file, const char* format, ...) {
  char line[512];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  if (file == our_stderr) now.reports += line;
  return 0;
}
void dr_abort() {
  now.calls.push_back("dr_abort");
  throw fake::aborted{};
}
void* dr_thread_alloc(void*, std::size_t size) {
  now.calls.push_back(text("dr_thread_alloc %zu", size));
  void* const memory = std::aligned_alloc(16, (size + 15) & ~std::size_t{15});
  std::fill_n(static_cast<byte*>(memory), size, byte{0xa5});
  return memory;
}
void dr_thread_free(void*, void* memory, std::size_t size) {
  now.calls.push_back(text("dr_thread_free %zu", size));
  std::free(memory);
}
void* dr_nonheap_alloc(std::size_t size, uint protection) {
  now.calls.push_back(text("dr_nonheap_alloc %zu %u", size, protection));
  void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return memory == MAP_FAILED ? nullptr : memory;
}
void dr_nonheap_free(void* memory, std::size_t size) {
  now.calls.push_back(text("dr_nonheap_free %zu", size));
  munmap(memory, size);
}
bool dr_memory_protect(void* base, std::size_t size, uint protection) {
  now.calls.push_back(text("dr_memory_protect %zu %u", size, protection));
  return mprotect(base, size, static_cast<int>(protection)) == 0;
}
void* dr_get_current_drcontext() { return now.current; }
std::size_t dr_page_size() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }
bool dr_query_memory_ex(const byte* pc, dr_mem_info_t* info) {
  std::ifstream maps("/proc/self/maps");
  const auto at = reinterpret_cast<std::uintptr_t>(pc);
  for (std::string line; std::getline(maps, line);) {
    std::uintptr_t from, to;
    char read, write;
    if (std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR " %c%c", &from, &to, &read, &write) != 4) continue;
    if (at < from || at >= to) continue;
    info->prot = (read == 'r' ? DR_MEMPROT_READ : 0) | (write == 'w' ? DR_MEMPROT_WRITE : 0) |
                 (pc == now.put_right ? DR_MEMPROT_PRETEND_WRITE : 0);
    return true;
  }
  return false;
}
bool dr_safe_read(const void* base, std::size_t size, void* out, std::size_t*) {
  // The kernel's own check: it writes what can be read into a pipe, and complains of the rest.
  int ends[2];
  if (pipe(ends) != 0) return false;
  const bool readable = write(ends[1], base, size) == static_cast<ssize_t>(size) &&
                        read(ends[0], out, size) == static_cast<ssize_t>(size);
  close(ends[0]);
  close(ends[1]);
  return readable;
}
bool dr_get_integer_option(const char* option, std::uint64_t* value) {
  if (std::string(option) != "shared_bbs") return false;
  *value = now.shares_blocks;
  return true;
}

app_pc dr_fragment_app_pc(void* tag) { return static_cast<app_pc>(tag); }
instr_t* instrlist_first_app(instrlist_t* list) {
  walked = list;
  return list->instructions.empty() ? nullptr : list->instructions.front();
}
instr_t* instr_get_next_app(instr_t* instruction) {
  auto at = std::find(walked->instructions.begin(), walked->instructions.end(), instruction);
  return at == walked->instructions.end() || ++at == walked->instructions.end() ? nullptr : *at;
}
byte* instr_get_raw_bits(instr_t* instruction) { return instruction->translation; }
app_pc instr_get_app_pc(instr_t* instruction) { return instruction->translation; }
reg_id_t dr_get_stolen_reg() { return now.stolen; }
void dr_save_reg(void*, instrlist_t* list, instr_t* where, reg_id_t reg, dr_spill_slot_t slot) {
  insert(list, where,
         special(instr_t::save, text("save %s, slot %d", name(reg).c_str(), slot + 1), {opnd_create_reg(reg)}, slot));
}
void dr_restore_reg(void*, instrlist_t* list, instr_t* where, reg_id_t reg, dr_spill_slot_t slot) {
  insert(list, where,
         special(instr_t::restore, text("restore %s, slot %d", name(reg).c_str(), slot + 1), {opnd_create_reg(reg)},
                 slot));
}
reg_t dr_read_saved_reg(void* drcontext, dr_spill_slot_t slot) { return thread_of(drcontext).slots[slot]; }
void dr_write_saved_reg(void* drcontext, dr_spill_slot_t slot, reg_t value) {
  thread_of(drcontext).slots[slot] = value;
}
bool dr_insert_get_stolen_reg_value(void*, instrlist_t* list, instr_t* where, reg_id_t reg) {
  insert(list, where, special(instr_t::get_stolen, text("get stolen %s", name(reg).c_str()), {opnd_create_reg(reg)}));
  return true;
}
bool dr_insert_set_stolen_reg_value(void*, instrlist_t* list, instr_t* where, reg_id_t reg) {
  insert(list, where, special(instr_t::set_stolen, text("set stolen %s", name(reg).c_str()), {opnd_create_reg(reg)}));
  return true;
}
void instrlist_insert_mov_immed_ptrsz(void*, ptr_int_t value, opnd_t to, instrlist_t* list, instr_t* where, instr_t**,
                                      instr_t**) {
  insert(list, where,
         special(instr_t::move_immediate, text("mov %s, #%" PRIdPTR, describe(to).c_str(), value),
                 {to, opnd_create_immed_int(value, OPSZ_8)}));
}

opnd_t opnd_create_reg(reg_id_t reg) { return {opnd_t::reg, reg, 0, 0, 0, 0, 0}; }
opnd_t opnd_create_base_disp(reg_id_t base, reg_id_t index, int scale, int displacement, opnd_size_t size) {
  return {opnd_t::memory, base, index, scale, displacement, size, 0};
}
opnd_t opnd_create_immed_int(ptr_int_t value, opnd_size_t size) { return {opnd_t::immediate, 0, 0, 0, value, size, 0}; }
opnd_t opnd_add_flags(opnd_t operand, int flags) {
  operand.flags |= flags;
  return operand;
}
ptr_int_t opnd_get_immed_int(opnd_t operand) { return operand.value; }
instr_t* instr_create_1dst_1src(void*, int opcode, opnd_t to, opnd_t from) { return build(opcode, {to, from}); }
instr_t* instr_create_1dst_2src(void*, int opcode, opnd_t to, opnd_t first, opnd_t second) {
  return build(opcode, {to, first, second});
}
instr_t* instr_create_2dst_1src(void*, int opcode, opnd_t first, opnd_t second, opnd_t from) {
  return build(opcode, {first, second, from});
}
instr_t* instr_create_1dst_4src(void*, int opcode, opnd_t to, opnd_t a, opnd_t b, opnd_t c, opnd_t d) {
  return build(opcode, {to, a, b, c, d});
}
void instr_set_translation(instr_t* instruction, app_pc address) { instruction->translation = address; }
void instrlist_preinsert(instrlist_t* list, instr_t* where, instr_t* instruction) { insert(list, where, instruction); }
void instrlist_meta_preinsert(instrlist_t* list, instr_t* where, instr_t* instruction) {
  instruction->is_app = false;
  insert(list, where, instruction);
}
void instrlist_remove(instrlist_t* list, instr_t* instruction) { list->instructions.remove(instruction); }
void instr_destroy(void*, instr_t* instruction) {
  ++now.destroyed;
  delete instruction;
}

bool drmgr_init() {
  now.calls.push_back("drmgr_init");
  return !now.drmgr_fails;
}
void drmgr_exit() { now.calls.push_back("drmgr_exit"); }
bool drmgr_register_thread_init_event(void (*func)(void*)) {
  now.calls.push_back("drmgr_register_thread_init_event");
  now.thread_init.push_back(func);
  return true;
}
bool drmgr_register_thread_exit_event(void (*func)(void*)) {
  now.calls.push_back("drmgr_register_thread_exit_event");
  now.thread_exit.push_back(func);
  return true;
}
bool drmgr_register_bb_app2app_event(drmgr_block_event func, void* priority) {
  now.calls.push_back(text("drmgr_register_bb_app2app_event %s", priority ? "priority" : "null"));
  now.block = func;
  return !now.register_fails;
}
bool drmgr_unregister_bb_app2app_event(drmgr_block_event func) {
  now.calls.push_back(text("drmgr_unregister_bb_app2app_event %s", func == now.block ? "the same" : "another"));
  return !now.unregister_fails;
}
int drmgr_register_tls_field() {
  now.calls.push_back(text("drmgr_register_tls_field %d", now.next_field));
  return now.next_field++;
}
bool drmgr_set_tls_field(void* drcontext, int index, void* value) {
  thread_of(drcontext).fields[index] = value;
  return true;
}
void* drmgr_get_tls_field(void* drcontext, int index) { return thread_of(drcontext).fields[index]; }

bool dr_raw_tls_calloc(reg_id_t* tls_register, uint* offset, uint num_slots, uint) {
  now.calls.push_back(text("dr_raw_tls_calloc %u", num_slots));
  *tls_register = now.stolen;
  *offset = sizeof(void*);
  return now.has_direct_slots;
}
void* dr_get_dr_segment_base(reg_id_t) { return now.current->direct; }
void dr_insert_read_raw_tls(void*, instrlist_t* list, instr_t* where, reg_id_t tls_register, uint offset, reg_id_t to) {
  insert(list, where,
         special(instr_t::read_direct, text("read %s, [%s+%u]", name(to).c_str(), name(tls_register).c_str(), offset),
                 {opnd_create_reg(to), opnd_create_immed_int(offset, OPSZ_4)}));
}
void dr_register_fork_init_event(void (*func)(void*)) {
  now.calls.push_back("dr_register_fork_init_event");
  now.forked = func;
}
bool drmgr_register_kernel_xfer_event(void (*func)(void*, const dr_kernel_xfer_info_t*)) {
  now.calls.push_back("drmgr_register_kernel_xfer_event");
  now.transfer = func;
  return true;
}
bool dr_redirect_execution(dr_mcontext_t* context) {
  now.redirections.push_back(*context);
  return false;
}

drreg_status_t drreg_init(drreg_options_t* options) {
  now.calls.push_back(text("drreg_init %d %u %d %d", options->struct_size == sizeof *options, options->num_spill_slots,
                           options->conservative, options->error_callback != nullptr));
  return now.drreg_fails ? DRREG_ERROR : DRREG_SUCCESS;
}
drreg_status_t drreg_exit() {
  now.calls.push_back("drreg_exit");
  return now.drreg_exit_fails ? DRREG_ERROR : DRREG_SUCCESS;
}
bool drmgr_insert_read_tls_field(void*, int index, instrlist_t* list, instr_t* where, reg_id_t to) {
  insert(list, where,
         special(instr_t::read_field, text("read %s, field %d", name(to).c_str(), index),
                 {opnd_create_reg(to), opnd_create_immed_int(index, OPSZ_4)}));
  return true;
}

file_t dr_open_file(const char* path, unsigned flags) {
  return open(path, flags == DR_FILE_READ ? O_RDONLY : O_WRONLY | O_CREAT | O_EXCL, 0666);
}
ssize_t dr_read_file(file_t file, void* to, std::size_t size) { return read(file, to, size); }
ssize_t dr_write_file(file_t file, const void* from, std::size_t size) { return write(file, from, size); }
void dr_close_file(file_t file) { close(file); }
int dr_get_process_id() { return getpid(); }
