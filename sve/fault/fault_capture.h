// Capture of faults on emulated memory accesses. An application address is a host pointer, and most accesses are plain:
// a fault there ends the process. First-fault and non-fault loads ask whether memory can be read, and read guarded. One
// interface; which implementation stands behind it is chosen when linking: POSIX signals, or the instrumentation
// platform's own means where that owns the signals.
#pragma once

#include <csignal>
#include <cstddef>
#include <cstdint>

/// The host's page size, a power of two. Taken once when the library is loaded, before any instruction runs.
extern unsigned int page_size;

/// True if the byte at `p` can be read. Only an access violation counts: a bus error during the probe goes the way of
/// an unguarded fault.
template <class T>
bool addr_is_readable(T volatile* p);
template <>
bool addr_is_readable<char>(char volatile* p);

/// What an unguarded fault comes to: prints one line that names the signal, restores the default action for SIGSEGV and
/// SIGBUS and returns, so that the access faults again and ends the process by that signal. A fault of a guarded read
/// is captured instead.
void SVESigHandler(int sig, siginfo_t* info, void* context);

namespace sve {

/// Reads the element at `address` by one access, guarded: false if that raised SIGSEGV or SIGBUS, and `value` is then
/// 0. The answer and the value come from the same access, so that nothing other threads do to the mapping can come
/// between them. Safe in any number of threads at once. For elements of 1, 2, 4 and 8 bytes, unsigned.
template <class M>
bool guarded_read(std::uint64_t address, M& value);

/// Copies `bytes` bytes from `address`, at least 8, guarded: false if one of them raised SIGSEGV or SIGBUS, and what
/// lies at `to` is then unspecified.
bool guarded_copy(void* to, std::uint64_t address, std::size_t bytes);

/// Around guarded reads: sees to it that their faults come to this library. A program may have set actions of its own
/// for the two signals; then ours stand in their place while one of these lives, and pass on what is not ours.
class GuardedReads {
 public:
  GuardedReads();
  ~GuardedReads();
  GuardedReads(const GuardedReads&) = delete;
  GuardedReads& operator=(const GuardedReads&) = delete;

 private:
  bool borrowed_;
};

/// Makes guarded reads work: installs SVESigHandler for SIGSEGV and SIGBUS, where signals are the means.
void install_fault_capture();

/// For a handler of the two signals: if the fault was that of a guarded read, moves the interrupted context past it and
/// returns true.
bool recover_guarded_fault(int sig, void* context);

}  // namespace sve
