// How a test sees the fake platform: what was called, what a block has become, and what to answer.
#pragma once

#include <list>
#include <map>
#include <string>
#include <vector>

#include "drmgr.h"
#include "drreg.h"

struct instr_t {
  std::string text;      ///< as `describe` in platform.cpp has it
  app_pc translation{};  ///< of an application instruction: its address
  bool is_app = true;
  bool is_original = false;
  int opcode = -1;                 ///< of one built from operands; see `special` otherwise
  std::vector<opnd_t> operands{};  ///< destinations first
  enum special_kind {
    none,
    save,
    restore,
    get_stolen,
    set_stolen,
    move_immediate,
    read_field,
    read_direct,
    call
  } special = none;
  dr_spill_slot_t slot{};
};
struct instrlist_t {
  std::list<instr_t*> instructions;
};

namespace fake {

struct aborted {};  ///< thrown by dr_abort

/// One thread of the application.
struct thread {
  std::map<int, void*> fields;
  reg_t slots[4] = {};
  void* direct[4] = {};  ///< what lies at an offset from the stolen register
};

struct platform {
  std::vector<std::string> calls;  ///< in order, with their arguments
  std::string reports;             ///< what went to our_stderr
  bool drmgr_fails = false, drreg_fails = false, register_fails = false, unregister_fails = false,
       drreg_exit_fails = false;
  bool shares_blocks = false;
  bool has_direct_slots = true;
  reg_id_t stolen = DR_REG_X28;
  module_data_t main_module{};
  bool has_main_module = true;
  std::vector<module_data_t> modules;  ///< each of one page
  thread* current = nullptr;
  int next_field = 1;
  const volatile void* put_right = nullptr;  ///< an address that looks writable to the application
  std::vector<void (*)(void*)> thread_init, thread_exit;
  void (*exit)() = nullptr;
  void (*forked)(void*) = nullptr;
  void (*transfer)(void*, const dr_kernel_xfer_info_t*) = nullptr;
  std::vector<dr_mcontext_t> redirections;
  drmgr_block_event block = nullptr;
  int destroyed = 0;
};
extern platform now;

/// A block of the words at `code`.
void fill(instrlist_t& list, const unsigned int* code, std::size_t count);
void clear(instrlist_t& list);
std::vector<std::string> texts(const instrlist_t& list);

/// Installs what stands for the platform's own handler of SIGSEGV and SIGBUS.
void own_signals();

}  // namespace fake
