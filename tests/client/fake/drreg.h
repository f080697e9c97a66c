// The platform's register manager.
#pragma once

#include "dr_api.h"

struct drreg_options_t {
  std::size_t struct_size;
  uint num_spill_slots;
  bool conservative;
  bool (*error_callback)(int);
  bool do_not_sum_slots;
};
enum drreg_status_t { DRREG_SUCCESS, DRREG_ERROR };
drreg_status_t drreg_init(drreg_options_t* options);
drreg_status_t drreg_exit();
