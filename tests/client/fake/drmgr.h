// The platform's manager of events and thread-local fields.
#pragma once

#include "dr_api.h"

using drmgr_block_event = dr_emit_flags_t (*)(void*, void*, instrlist_t*, bool, bool);

bool drmgr_init();
void drmgr_exit();
bool drmgr_register_thread_init_event(void (*func)(void*));
bool drmgr_register_thread_exit_event(void (*func)(void*));
bool drmgr_register_bb_app2app_event(drmgr_block_event func, void* priority);
bool drmgr_unregister_bb_app2app_event(drmgr_block_event func);
bool drmgr_register_kernel_xfer_event(void (*func)(void* drcontext, const dr_kernel_xfer_info_t* info));
int drmgr_register_tls_field();
bool drmgr_set_tls_field(void* drcontext, int index, void* value);
void* drmgr_get_tls_field(void* drcontext, int index);
bool drmgr_insert_read_tls_field(void* drcontext, int index, instrlist_t* list, instr_t* where, reg_id_t to);
