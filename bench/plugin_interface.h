// The parts of the emulator's plugin interface, in its version 1, that are used: Debian packages no header for it.
#pragma once

#include <stddef.h>
#include <stdint.h>

#define EXPORT __attribute__((visibility("default")))

typedef uint64_t plugin_id;
struct qemu_plugin_tb;
struct qemu_plugin_insn;
enum { plugin_add_u64 = 0 };

void qemu_plugin_register_vcpu_tb_trans_cb(plugin_id id, void (*f)(plugin_id, struct qemu_plugin_tb*));
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);
struct qemu_plugin_insn* qemu_plugin_tb_get_insn(const struct qemu_plugin_tb* block, size_t i);
const void* qemu_plugin_insn_data(const struct qemu_plugin_insn* insn);
uint64_t qemu_plugin_insn_vaddr(const struct qemu_plugin_insn* insn);
void qemu_plugin_register_vcpu_insn_exec_inline(struct qemu_plugin_insn* insn, int op, void* counter, uint64_t amount);
void qemu_plugin_register_vcpu_syscall_cb(plugin_id id,
                                          void (*f)(plugin_id, unsigned, int64_t, uint64_t, uint64_t, uint64_t,
                                                    uint64_t, uint64_t, uint64_t, uint64_t, uint64_t));
void qemu_plugin_register_atexit_cb(plugin_id id, void (*f)(plugin_id, void*), void* argument);
