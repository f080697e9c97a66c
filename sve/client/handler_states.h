// Vectors around the application's signal handlers.
#pragma once

namespace sve::client {

/// From here on what a handler of the application leaves in the upper bytes of Z, in predicates and in FFR is undone
/// when it returns, as a processor with SVE restores them from the signal frame.
void keep_states_over_handlers();

}  // namespace sve::client
