// Life cycle of the client: entry point, thread events and exit.
#include "sve/client/sve_client.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "drmgr.h"
#include "drreg.h"
#include "sve/client/assertion.h"
#include "sve/client/port.h"
#include "sve/client/run_data.h"
#include "sve/stats/stats.h"

#ifndef SVE_REPORT_ADDRESS
#define SVE_REPORT_ADDRESS "root@localhost"
#endif

module_data_t* exe;
app_pc exe_start;
std::int32_t tls_idx;

namespace {

constexpr unsigned int log_mask = 0xFFFFFF;
constexpr unsigned int log_level = 1;

// The platform's parser stops at the first word without a dash; here every word before "--" has to be an option. The
// client has none, so any such word is an error, and the other errors of the parser cannot arise.
bool parse_arguments(int argc, const char* argv[], std::string* error) {
  for (int i = 1; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
    *error = std::string("Unknown option: ") + argv[i];
    return false;
  }
  return true;
}

const char* without_directory(const char* path) {
  const char* slash = std::strrchr(path, '/');
  return slash ? slash + 1 : path;
}

}  // namespace

extern "C" DR_EXPORT void dr_client_main(client_id_t, int argc, const char* argv[]) {
  dr_set_client_name("Norvane SVE emulation client", SVE_REPORT_ADDRESS);
  if (std::string error; !parse_arguments(argc, argv, &error)) {
    dr_fprintf(our_stderr, "Usage error: %s\n", error.c_str());
    dr_abort();
  }

  drreg_options_t options = {};
  options.struct_size = sizeof options;
  if (!drmgr_init() || drreg_init(&options) != DRREG_SUCCESS) sve::client::fail_assertion(131, "false");

  exe = dr_get_main_module();
  if (exe) exe_start = exe->start;

  drmgr_register_thread_init_event(event_thread_init);
  drmgr_register_thread_exit_event(event_thread_exit);
  sve::client::register_exit_event(event_exit);
  if (!drmgr_register_bb_app2app_event(event_instruction_change, nullptr)) sve::client::fail_assertion(148, "false");
  tls_idx = drmgr_register_tls_field();
  sve::client::start_calls();
  sve::client::start_run_data();

  sve::on_no_memory_for_counts = [] {
    dr_fprintf(our_stderr, "no memory for more counts; from here on the total alone is counted\n");
  };
  sve_instr_count.store(0, std::memory_order_release);
  aarch64_instr_count = 0;
  dr_log(nullptr, log_mask, log_level, "SVE client initializing\n");
}

void event_thread_init(void* drcontext) {
  auto* const state = static_cast<cpu_state*>(dr_thread_alloc(drcontext, sizeof(cpu_state)));
  // The one field that must not begin with what the allocator left: it is OR-ed into FPCR and nothing ever stores it.
  state->fpcr_extra = 0;
  drmgr_set_tls_field(drcontext, tls_idx, state);
}

void event_thread_exit(void* drcontext) {
  void* const data = drmgr_get_tls_field(drcontext, tls_idx);
  if (!data) sve::client::fail_assertion(178, "data != __null");
  dr_thread_free(drcontext, data, sizeof(cpu_state));
}

void event_exit() {
  dr_log(nullptr, log_mask, log_level, "SVE client exiting\n");
  const char* const name = exe ? without_directory(exe->full_path) : "";
  std::fprintf(stderr, "%s: %lu SVE instructions executed\n", name, sve_instr_count.load());
  // Required: the text says "executed", the value counts what was seen when blocks were built.
  std::fprintf(stderr, "%s: %lu Non-SVE AArch64 instructions executed\n", name, aarch64_instr_count);
  sve::client::write_run_data();
  if (exe) dr_free_module_data(exe);
  if (!drmgr_unregister_bb_app2app_event(event_instruction_change) || drreg_exit() != DRREG_SUCCESS)
    sve::client::fail_assertion(204, "false");
  drmgr_exit();
}
