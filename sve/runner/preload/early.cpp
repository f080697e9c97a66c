// Constructors of other libraries may come before ours: those of a library that is linked with -z initfirst and loaded
// later, and those that a user preloads. So may functions that choose an implementation when the loader relocates the
// program and its libraries (ifunc). All these may use SVE, and ask for it, so that traps are served, and SVE is told
// of, from the first moment at which the loader calls us.
//
// It calls the function that chooses our `__cxa_finalize`, which every library imports: when it relocates the first
// library that does. That is before ours is relocated, as libraries are relocated from the last one to the first. Where
// another library chooses implementations, we relocate ourselves then, and start; the loader does it again later and
// changes nothing. Otherwise the start waits for our own relocation.
//
// libc is relocated by then and not yet started: nothing is called that needs more than system calls.
#include "sve/runner/preload/early.h"

#include <sys/auxv.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "sve/runner/options.h"
#include "sve/runner/preload/interpose.h"
#include "sve/runner/preload/loader.h"
#include "sve/runner/preload/process.h"
#include "sve/runner/preload/thread_block.h"

extern "C" {
extern const char __ehdr_start[] __attribute__((visibility("hidden")));
__attribute__((visibility("hidden"), ifunc("sve_start_early"))) void sve_started_early(int, char**, char**);
__attribute__((visibility("default"), ifunc("sve_choose_finalize"))) void __cxa_finalize(void*);
}

namespace sve::runner {
namespace {

using Initialiser = void (*)(int, char**, char**);
using Finaliser = void (*)(void*);

struct InitialStack {
  int argument_count;
  char** arguments;
  char** environment;
};

const std::uintptr_t* stack_end = nullptr;  // where the kernel has put the arguments

InitialStack read_initial_stack() {
  const auto count = static_cast<int>(stack_end[0]);
  auto** arguments = reinterpret_cast<char**>(const_cast<std::uintptr_t*>(stack_end + 1));
  return {count, arguments, arguments + count + 1};
}

void nothing(int, char**, char**) {}

// The last of the initialisers that serving a trap takes: those of the model have smaller numbers. It calls the
// function that the loader asks for, since without a call there would be nothing to ask.
__attribute__((constructor(1999))) void model_is_initialised(int count, char** arguments, char** environment) {
  sve_started_early(count, arguments, environment);
}

// Not by the symbol _DYNAMIC, which the compiler would have the loader find.
LoadedObject ourselves() { return object_around(__ehdr_start); }
bool is_ourselves(const link_map* object) { return object->l_addr == reinterpret_cast<std::uintptr_t>(__ehdr_start); }

// Each runs once: the loader, which calls them all later, finds nothing in the place of these.
template <class Body>
void for_each_early_initialiser(Body body) {
  for (std::uintptr_t& place : ourselves().initialisers()) {
    const auto function = reinterpret_cast<Initialiser>(place);
    place = reinterpret_cast<std::uintptr_t>(nothing);
    if (function == model_is_initialised) break;
    body(function);
  }
}

// The argument of functions that choose an implementation is the loader's copy of the processor's features. It stands
// in front of the loader's pointer to the auxiliary vector; where it does not, they are told of no SVE.
void announce_to_loader(const LoadedObject& loader) {
  const unsigned long* features = auxiliary_value(AT_HWCAP);
  char** entry = read_initial_stack().environment;
  while (*entry) ++entry;
  const auto vector = reinterpret_cast<std::uintptr_t>(entry + 1);
  std::size_t size = 0;
  auto* words = static_cast<std::uintptr_t*>(loader.find("_rtld_global_ro", &size));
  ThreadBlock* block = need_thread_block();
  if (!words || !features || !block || !announces()) return;
  for (std::size_t i = 0; i + 1 < size / sizeof *words; ++i) {
    if (words[i] != *features || words[i + 1] != vector) continue;
    guarded(block, [&] { words[i] |= hwcap_sve; });
    return;
  }
}

bool has_started = false;

void start_early(const LoadedObject& loader) {
  const InitialStack initial = read_initial_stack();
  for_each_early_initialiser([&](Initialiser f) { f(initial.argument_count, initial.arguments, initial.environment); });
  serve_traps(initial.environment);
  announce_to_loader(loader);
  has_started = true;
}

// Until the loader has set up our thread-local variables they lie here.
alignas(64) std::byte early_variables[256];

void relocate(const LoadedObject& us, const link_map* objects) {
  const auto find = [&](const char* name) -> std::uintptr_t {
    for (const link_map* other = objects; other; other = other->l_next) {
      if (is_ourselves(other) || other->l_addr == 0) continue;
      if (void* found = LoadedObject(other->l_addr, other->l_ld).find(name))
        return reinterpret_cast<std::uintptr_t>(found);
    }
    return 0;
  };
  us.for_each_relocation([&](const ElfW(Rela) & r) {
    auto* const place = reinterpret_cast<std::uintptr_t*>(us.base() + r.r_offset);
    const ElfW(Sym)& symbol = us.symbol(r);
    switch (ELF64_R_TYPE(r.r_info)) {
      case R_AARCH64_RELATIVE:
        *place = us.base() + r.r_addend;
        break;
      case R_AARCH64_ABS64:
      case R_AARCH64_GLOB_DAT:
      case R_AARCH64_JUMP_SLOT:
        // What we define ourselves is bound by relative relocations.
        *place = find(us.name_of(symbol)) + r.r_addend;
        break;
      case R_AARCH64_TLS_TPREL:
        *place = reinterpret_cast<std::uintptr_t>(early_variables) + symbol.st_value + r.r_addend -
                 reinterpret_cast<std::uintptr_t>(__builtin_thread_pointer());
        break;
      default:
        break;
    }
  });
}

// This library, of any build and any length.
bool is_runner(const char* name) { return std::strncmp(name, library_prefix, sizeof library_prefix - 1) == 0; }

// Whether an object that the loader may relocate before us does so. Those of libc are not asked for SVE, and the
// program itself, which is the first, comes after us.
bool others_choose(const link_map* objects, const LoadedObject& loader) {
  for (const link_map* other = objects->l_next; other; other = other->l_next) {
    if (is_ourselves(other) || other->l_addr == loader.base() || other->l_addr == 0) continue;
    const LoadedObject object(other->l_addr, other->l_ld);
    if (std::strncmp(object.name(), "libc.so.", 8) == 0 || is_runner(object.name())) continue;
    if (object.chooses_implementations()) return true;
  }
  return false;
}

Finaliser next_finaliser = nullptr;

// `caller` is in the loader.
Finaliser choose_finaliser(const void* caller) {
  if (next_finaliser) return next_finaliser;
  const LoadedObject loader = object_around(caller);
  const link_map* const objects = static_cast<const r_debug*>(loader.find("_r_debug"))->r_map;
  stack_end = *static_cast<const std::uintptr_t* const*>(loader.find("__libc_stack_end"));
  for (const link_map* other = objects; other && !next_finaliser; other = other->l_next) {
    if (is_ourselves(other) || other->l_addr == 0) continue;
    next_finaliser = reinterpret_cast<Finaliser>(LoadedObject(other->l_addr, other->l_ld).find("__cxa_finalize"));
  }
  const LoadedObject us = ourselves();
  if (others_choose(objects, loader)) {
    relocate(us, objects);
    start_early(loader);
  }
  return next_finaliser;
}

}  // namespace
}  // namespace sve::runner

extern "C" {
__attribute__((visibility("hidden"))) void (*sve_choose_finalize())(void*) {
  return sve::runner::choose_finaliser(__builtin_return_address(0));
}

// Our own library's, which the linker redirects here.
__attribute__((visibility("hidden"))) void __wrap___cxa_finalize(void* library) {
  sve::runner::next_finaliser(library);
}

// The last of our relocations.
__attribute__((visibility("hidden"))) void (*sve_start_early())(int, char**, char**) {
  using namespace sve::runner;
  if (has_started) {
    for_each_early_initialiser([](Initialiser) {});
  } else {
    choose_finaliser(__builtin_return_address(0));
    start_early(object_around(__builtin_return_address(0)));
  }
  return nothing;
}
}

namespace sve::runner {

unsigned long* auxiliary_value(unsigned long type) {
  if (!stack_end) return nullptr;
  char** entry = read_initial_stack().environment;
  while (*entry) ++entry;
  for (auto* pair = reinterpret_cast<unsigned long*>(entry + 1); pair[0] != AT_NULL; pair += 2) {
    if (pair[0] == type) return pair + 1;
  }
  return nullptr;
}

}  // namespace sve::runner
