#include "sve/veclib/initialize.h"

#include "sve/fault/fault_capture.h"
#include "sve/processor/vectors.h"
#include "sve/veclib/types.h"

CpuContext cpu_ctxt;
CpuContext* ctxt;

namespace {
int initialized;
}

int SVEInitialize() {
  if (initialized) return initialized;
  cpu_ctxt.vl_word = 2;  // a length of 128 bits, not that of the handlers; nothing runs on this record
  ctxt = &cpu_ctxt;
  sve::install_fault_capture();
  sve::processor::initialize();
  initialized = 1;
  return initialized;
}
