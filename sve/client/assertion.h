// What a failed assertion of the client comes to.
#pragma once

#include "dr_api.h"

namespace sve::client {

/// Reports the failure and ends the process. The lines are fixed names of the sites, so that a report means the same in
/// every build.
inline void fail_assertion(int line, const char* condition) {
  dr_fprintf(our_stderr, "ASSERT FAILURE: %s:%d: %s (%s)\n", "sve/client/sve_client", line, condition, "");
  dr_abort();
}

}  // namespace sve::client
