#include "sve/runner/preload/descriptors.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "sve/runner/preload/kernel.h"

namespace sve::runner {
namespace {

bool file_status(int fd, struct stat* status) { return fd >= 0 && system_call(SYS_fstat, fd, address(status)) == 0; }

// High numbers are out of the way of programs that count on getting the lowest ones.
long lowest_number() {
  rlimit limit{};
  system_call(SYS_prlimit64, 0, RLIMIT_NOFILE, 0, address(&limit));
  constexpr unsigned long usual_limit = 1024, ours = 24;
  const unsigned long top = limit.rlim_cur < usual_limit ? limit.rlim_cur : usual_limit;
  return top > 2 * ours ? static_cast<long>(top - ours) : 3;
}

}  // namespace

bool KeptFile::refers(int fd) const {
  struct stat now;
  return fd_ >= 0 && file_status(fd, &now) && now.st_dev == device_ && now.st_ino == number_ && now.st_rdev == special_;
}

void KeptFile::keep(int fd) {
  struct stat status;
  if (!file_status(fd, &status)) return;
  if (const int old = get(); old >= 0) system_call(SYS_close, old);
  fd_ = static_cast<int>(system_call(SYS_fcntl, fd, F_DUPFD_CLOEXEC, lowest_number()));
  device_ = status.st_dev;
  number_ = status.st_ino;
  special_ = status.st_rdev;
}

void KeptFile::take(int fd) {
  keep(fd);
  system_call(SYS_close, fd);
}

RoomForDescriptors::RoomForDescriptors() : before_{} {
  if (system_call(SYS_prlimit64, 0, RLIMIT_NOFILE, 0, address(&before_)) != 0) return;
  const rlimit most{before_.rlim_max, before_.rlim_max};
  system_call(SYS_prlimit64, 0, RLIMIT_NOFILE, address(&most));
}

RoomForDescriptors::~RoomForDescriptors() {
  if (before_.rlim_max != 0) system_call(SYS_prlimit64, 0, RLIMIT_NOFILE, address(&before_));
}

int write_quietly(int fd, const char* text, std::size_t size) {
  constexpr SignalBits raised = bit(SIGPIPE) | bit(SIGXFSZ);
  const SignalBits before = kernel_mask(SIG_BLOCK, raised);
  SignalBits waiting = 0;
  system_call(SYS_rt_sigpending, address(&waiting), sizeof waiting);
  int error = 0;
  while (size > 0) {
    const long n = system_call(SYS_write, fd, address(text), static_cast<long>(size));
    if (n == -EINTR) continue;
    if (n <= 0) {
      error = n == 0 ? EIO : static_cast<int>(-n);
      break;
    }
    text += n;
    size -= static_cast<std::size_t>(n);
  }
  if (error != 0) {
    // The signal that came with the error was ours; one that waited before is the program's.
    const SignalBits ours = raised & ~waiting;
    const timespec none{};
    system_call(SYS_rt_sigtimedwait, address(&ours), 0, address(&none), sizeof ours);
  }
  kernel_mask(SIG_SETMASK, before);
  return error;
}

}  // namespace sve::runner
