// The library functions that the model, the compiler and the C++ runtime call, bound to the library itself. What is
// imported a program can replace, and a program's own memcpy may well be SVE code: then each trap would end in another
// one. What is left to import stands, with its reasons, in the test of imports.
//
// Compiled so that no loop here is turned into a call of itself.
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "sve/runner/preload/descriptors.h"
#include "sve/runner/preload/kernel.h"

// Not exported, as exports.map has it.
#define OWN extern "C"

namespace {

using byte = unsigned char;
typedef std::uint8_t Piece __attribute__((vector_size(16), aligned(1), may_alias));

template <class T>
void copy_ends(byte* to, const byte* from, std::size_t n) {
  // Both are read before either is written, so that the ends may overlap.
  T first, last;
  __builtin_memcpy(&first, from, sizeof(T));
  __builtin_memcpy(&last, from + n - sizeof(T), sizeof(T));
  __builtin_memcpy(to, &first, sizeof(T));
  __builtin_memcpy(to + n - sizeof(T), &last, sizeof(T));
}

void copy_short(byte* to, const byte* from, std::size_t n) {
  if (n >= 8) return copy_ends<std::uint64_t>(to, from, n);
  if (n >= 4) return copy_ends<std::uint32_t>(to, from, n);
  if (n >= 2) return copy_ends<std::uint16_t>(to, from, n);
  if (n == 1) *to = *from;
}

template <class T>
T load(const byte* p) {
  T value;
  __builtin_memcpy(&value, p, sizeof value);
  return value;
}

}  // namespace

OWN void* memmove(void* destination, const void* source, std::size_t n) {
  auto* to = static_cast<byte*>(destination);
  auto* from = static_cast<const byte*>(source);
  if (n < 16) {
    copy_short(to, from, n);
  } else if (reinterpret_cast<std::uintptr_t>(to) - reinterpret_cast<std::uintptr_t>(from) >= n) {
    const Piece last = load<Piece>(from + n - 16);
    for (std::size_t i = 0; i < n - 16; i += 16) *reinterpret_cast<Piece*>(to + i) = load<Piece>(from + i);
    *reinterpret_cast<Piece*>(to + n - 16) = last;
  } else {
    const Piece first = load<Piece>(from);
    for (std::size_t i = n - 16; i > 0; i = i > 16 ? i - 16 : 0) {
      *reinterpret_cast<Piece*>(to + i) = load<Piece>(from + i);
    }
    *reinterpret_cast<Piece*>(to) = first;
  }
  return destination;
}
OWN void* memcpy(void* to, const void* from, std::size_t n) __attribute__((alias("memmove")));

OWN void* memset(void* destination, int value, std::size_t n) {
  auto* to = static_cast<byte*>(destination);
  const auto fill = static_cast<byte>(value);
  if (n < 16) {
    for (std::size_t i = 0; i < n; ++i) to[i] = fill;
    return destination;
  }
  const Piece filled = Piece{} + fill;
  for (std::size_t i = 0; i < n - 16; i += 16) *reinterpret_cast<Piece*>(to + i) = filled;
  *reinterpret_cast<Piece*>(to + n - 16) = filled;
  return destination;
}

OWN int memcmp(const void* a, const void* b, std::size_t n) {
  auto* p = static_cast<const byte*>(a);
  auto* q = static_cast<const byte*>(b);
  while (n >= 8 && load<std::uint64_t>(p) == load<std::uint64_t>(q)) p += 8, q += 8, n -= 8;
  for (; n > 0; ++p, ++q, --n)
    if (*p != *q) return *p < *q ? -1 : 1;
  return 0;
}

OWN void* memchr(const void* text, int c, std::size_t n) {
  for (auto* p = static_cast<const byte*>(text); n > 0; ++p, --n)
    if (*p == static_cast<byte>(c)) return const_cast<byte*>(p);
  return nullptr;
}

OWN std::size_t strlen(const char* text) {
  std::size_t n = 0;
  while (text[n]) ++n;
  return n;
}

OWN int strncmp(const char* a, const char* b, std::size_t n) {
  for (; n > 0; ++a, ++b, --n) {
    if (*a != *b) return static_cast<byte>(*a) < static_cast<byte>(*b) ? -1 : 1;
    if (!*a) break;
  }
  return 0;
}
OWN int strcmp(const char* a, const char* b) { return strncmp(a, b, SIZE_MAX); }

OWN char* strchr(const char* text, int c) {
  for (;; ++text) {
    if (*text == static_cast<char>(c)) return const_cast<char*>(text);
    if (!*text) return nullptr;
  }
}

OWN char* strrchr(const char* text, int c) {
  const char* last = nullptr;
  for (; (text = strchr(text, c)) != nullptr; ++text) {
    last = text;
    if (!*text) break;
  }
  return const_cast<char*>(last);
}

OWN char* strstr(const char* text, const char* part) {
  const std::size_t n = strlen(part);
  for (; strncmp(text, part, n) != 0; ++text)
    if (!*text) return nullptr;
  return const_cast<char*>(text);
}

OWN char* getenv(const char* name) {
  const std::size_t n = strlen(name);
  for (char** entry = environ; entry && *entry; ++entry)
    if (strncmp(*entry, name, n) == 0 && (*entry)[n] == '=') return *entry + n + 1;
  return nullptr;
}

namespace {

sve::runner::SignalBits* bits_of(const sigset_t* set) {
  return reinterpret_cast<sve::runner::SignalBits*>(const_cast<sigset_t*>(set));
}

}  // namespace

OWN int sigemptyset(sigset_t* set) {
  memset(set, 0, sizeof *set);
  return 0;
}
OWN int sigaddset(sigset_t* set, int sig) {
  *bits_of(set) |= sve::runner::bit(sig);
  return 0;
}
OWN int sigdelset(sigset_t* set, int sig) {
  *bits_of(set) &= ~sve::runner::bit(sig);
  return 0;
}
OWN int sigismember(const sigset_t* set, int sig) { return (*bits_of(set) & sve::runner::bit(sig)) != 0; }

OWN [[noreturn]] void abort() {
  using namespace sve::runner;
  const KernelAction action;
  kernel_sigaction(SIGABRT, &action, nullptr);
  system_call(SYS_tgkill, kernel_process_id(), system_call(SYS_gettid), SIGABRT);
  kernel_mask(SIG_UNBLOCK, bit(SIGABRT));
  for (;;) system_call(SYS_exit_group, 127);
}

// The words of parts of the model that are never reached here, without their numbers.
OWN int fprintf(FILE*, const char* format, ...) {
  sve::runner::write_quietly(STDERR_FILENO, format, strlen(format));
  return 0;
}
OWN int fflush(FILE*) { return 0; }
#undef stderr
OWN FILE* stderr;
FILE* stderr = nullptr;

// Of the model's own mutexes, which all guard a few instructions.
OWN int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  std::atomic_ref<int> taken(*reinterpret_cast<int*>(mutex));
  while (taken.exchange(1, std::memory_order_acquire) != 0) sve::runner::system_call(SYS_sched_yield);
  return 0;
}
OWN int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  std::atomic_ref<int>(*reinterpret_cast<int*>(mutex)).store(0, std::memory_order_release);
  return 0;
}

// What the C++ runtime does when no exception of ours is caught, or none can be made. It would print by stdio.
namespace __gnu_cxx {
void __verbose_terminate_handler() { abort(); }
}  // namespace __gnu_cxx
namespace std {
void __throw_system_error(int) { abort(); }
void __throw_length_error(const char*) { abort(); }
void __throw_logic_error(const char*) { abort(); }
void __throw_out_of_range_fmt(const char*, ...) { abort(); }
}  // namespace std
