// Constructors of other libraries may come before ours: those of a library that is linked with -z initfirst and loaded
// later, and those that a user preloads. So may functions that choose an implementation when the loader relocates the
// program. All these may use SVE, and so traps are served from the moment when the loader relocates this library: it
// then calls the function below, which pretends to choose an implementation, last of all relocations.
//
// libc is relocated by then and not yet started: nothing is called that needs more than system calls.
#include "sve/runner/preload/early.h"

#include <elf.h>
#include <link.h>
#include <sys/auxv.h>

#include <cstddef>
#include <cstdint>

#include "sve/runner/preload/process.h"

extern "C" {
extern void* __libc_stack_end;  // of the loader: where the kernel has put the arguments
extern const char __ehdr_start[] __attribute__((visibility("hidden")));
__attribute__((visibility("hidden"), ifunc("sve_start_early"))) void sve_started_early(int, char**, char**);
}

namespace sve::runner {
namespace {

using initialiser = void (*)(int, char**, char**);

struct initial_stack {
  int argument_count;
  char** arguments;
  char** environment;
};

initial_stack read_initial_stack() {
  auto* words = static_cast<std::uintptr_t*>(__libc_stack_end);
  const auto count = static_cast<int>(words[0]);
  auto** arguments = reinterpret_cast<char**>(words + 1);
  return {count, arguments, arguments + count + 1};
}

void nothing(int, char**, char**) {}

// The last of the initialisers that serving a trap takes: those of the model have smaller numbers. It calls the
// function that the loader asks for, since without a call there would be nothing to ask.
__attribute__((constructor(1999))) void model_is_initialised(int count, char** arguments, char** environment) {
  sve_started_early(count, arguments, environment);
}

initialiser start_early() {
  const initial_stack initial = read_initial_stack();
  std::uintptr_t first = 0;
  std::size_t size = 0;
  for (const ElfW(Dyn)* entry = _DYNAMIC; entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag == DT_INIT_ARRAY) first = reinterpret_cast<std::uintptr_t>(__ehdr_start) + entry->d_un.d_ptr;
    if (entry->d_tag == DT_INIT_ARRAYSZ) size = entry->d_un.d_val;
  }
  // Each runs once: the loader, which calls them all later, finds nothing in the place of these.
  auto* initialisers = reinterpret_cast<initialiser*>(first);
  for (std::size_t i = 0; i < size / sizeof(initialiser); ++i) {
    const initialiser function = initialisers[i];
    initialisers[i] = nothing;
    if (function == model_is_initialised) break;
    function(initial.argument_count, initial.arguments, initial.environment);
  }
  serve_traps(initial.environment);
  return nothing;
}

}  // namespace
}  // namespace sve::runner

extern "C" {
__attribute__((visibility("hidden"))) void (*sve_start_early())(int, char**, char**) {
  return sve::runner::start_early();
}
}

namespace sve::runner {

unsigned long* auxiliary_value(unsigned long type) {
  char** entry = read_initial_stack().environment;
  while (*entry) ++entry;
  for (auto* pair = reinterpret_cast<unsigned long*>(entry + 1); pair[0] != AT_NULL; pair += 2) {
    if (pair[0] == type) return pair + 1;
  }
  return nullptr;
}

}  // namespace sve::runner
