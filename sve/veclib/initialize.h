// Set-up of the vector library.
#pragma once

/// Sets up `cpu_ctxt` and `ctxt` and the capture of memory faults. Called once when the library is loaded; a later call
/// does nothing. Returns a non-zero value.
int SVEInitialize();
