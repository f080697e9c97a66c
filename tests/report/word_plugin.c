// A plugin of the emulator that counts executions of SVE words by address: what a processor with SVE executes, counted
// by somebody else. Writes "ADDRESS WORD COUNT" lines to the file given as out=FILE.
#include <inttypes.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "../../bench/plugin_interface.h"

EXPORT int qemu_plugin_version = 1;

static struct {
  uint64_t address, count;
  uint32_t word;
} places[1 << 16];
static size_t used;
static FILE* out;

static uint64_t* counter_of(uint64_t address, uint32_t word) {
  for (size_t i = 0; i < used; ++i)
    if (places[i].address == address && places[i].word == word) return &places[i].count;
  places[used].address = address;
  places[used].word = word;
  return &places[used++].count;
}

static void block_translated(plugin_id id, struct qemu_plugin_tb* block) {
  (void)id;
  for (size_t i = 0, n = qemu_plugin_tb_n_insns(block); i < n; ++i) {
    struct qemu_plugin_insn* insn = qemu_plugin_tb_get_insn(block, i);
    uint32_t word;
    memcpy(&word, qemu_plugin_insn_data(insn), sizeof word);
    if ((word >> 25 & 15) == 2)  // the major opcode of SVE
      qemu_plugin_register_vcpu_insn_exec_inline(insn, plugin_add_u64, counter_of(qemu_plugin_insn_vaddr(insn), word),
                                                 1);
  }
}

static void at_exit(plugin_id id, void* argument) {
  (void)id, (void)argument;
  for (size_t i = 0; i < used; ++i)
    if (places[i].count != 0)
      fprintf(out, "%" PRIx64 " %08" PRIx32 " %" PRIu64 "\n", places[i].address, places[i].word, places[i].count);
  fclose(out);
}

EXPORT int qemu_plugin_install(plugin_id id, const void* info, int argc, char** argv) {
  (void)info;
  for (int i = 0; i < argc; ++i)
    if (strncmp(argv[i], "out=", 4) == 0) out = fopen(argv[i] + 4, "w");
  if (!out) return 1;
  qemu_plugin_register_vcpu_tb_trans_cb(id, block_translated);
  qemu_plugin_register_atexit_cb(id, at_exit, NULL);
  return 0;
}
