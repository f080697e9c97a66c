// While the model is being built, a callee that is declared and not yet defined links as a null pointer, and its
// instructions answer as unimplemented.
#pragma once

#define SVE_PENDING __attribute__((weak))
