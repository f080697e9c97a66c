// A plugin of the emulator that counts the instructions executed: on an emulated AArch64 processor that is exactly what
// a processor would execute, on every machine. Writes "MARK COUNT" lines to the file given as out=FILE: one for each
// mark of the program (count_mark.h), one for the whole run with the mark "end".
#include <inttypes.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "plugin_interface.h"

EXPORT int qemu_plugin_version = 1;

static uint64_t executed;
static FILE* out;

static void block_translated(plugin_id id, struct qemu_plugin_tb* block) {
  (void)id;
  for (size_t i = 0, n = qemu_plugin_tb_n_insns(block); i < n; ++i)
    qemu_plugin_register_vcpu_insn_exec_inline(qemu_plugin_tb_get_insn(block, i), plugin_add_u64, &executed, 1);
}

static void system_call(plugin_id id, unsigned cpu, int64_t number, uint64_t a, uint64_t b, uint64_t c, uint64_t d,
                        uint64_t e, uint64_t f, uint64_t g, uint64_t h) {
  (void)id, (void)cpu, (void)c, (void)d, (void)e, (void)f, (void)g, (void)h;
  const int64_t lseek_of_aarch64 = 62;
  if (number == lseek_of_aarch64 && (int32_t)a == -1 && b >> 32 == 0x5e5e5e) {
    fprintf(out, "%" PRIu32 " %" PRIu64 "\n", (uint32_t)b, executed);
    fflush(out);
  }
}

static void at_exit(plugin_id id, void* argument) {
  (void)id, (void)argument;
  fprintf(out, "end %" PRIu64 "\n", executed);
  fclose(out);
}

EXPORT int qemu_plugin_install(plugin_id id, const void* info, int argc, char** argv) {
  (void)info;
  for (int i = 0; i < argc; ++i)
    if (strncmp(argv[i], "out=", 4) == 0) out = fopen(argv[i] + 4, "w");
  if (!out) {
    fprintf(stderr, "count_plugin: give it out=FILE, a file that can be written\n");
    return 1;
  }
  qemu_plugin_register_vcpu_tb_trans_cb(id, block_translated);
  qemu_plugin_register_vcpu_syscall_cb(id, system_call);
  qemu_plugin_register_atexit_cb(id, at_exit, NULL);
  return 0;
}
