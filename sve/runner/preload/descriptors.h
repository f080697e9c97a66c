// Descriptors of our own in the program's table, and writing that disturbs nobody.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <cstddef>

namespace sve::runner {

/// An open file under a high number that is closed by exec. The program may close it, as programs do that close all
/// they find, and open a file of its own under that number: that is noticed.
class KeptFile {
 public:
  /// A second descriptor for what `fd` refers to, in place of what was kept; no change if that is nothing.
  void keep(int fd);
  /// Takes over `fd`, which is closed in any case.
  void take(int fd);
  /// The descriptor if it still refers to that file, -1 otherwise.
  int get() const { return refers(fd_) ? fd_ : -1; }
  /// The same without asking: -1 only if nothing was kept.
  int number() const { return fd_; }
  /// Whether `fd` refers to the file.
  bool refers(int fd) const;

 private:
  int fd_ = -1;
  dev_t device_ = 0;
  ino_t number_ = 0;
  dev_t special_ = 0;
};

/// Lets descriptors be opened for as long as it lives where the program has used up all that it may have, as far as
/// the system's own limit goes.
class RoomForDescriptors {
 public:
  RoomForDescriptors();
  ~RoomForDescriptors();
  RoomForDescriptors(const RoomForDescriptors&) = delete;
  RoomForDescriptors& operator=(const RoomForDescriptors&) = delete;

 private:
  struct rlimit before_;
};

/// Writes all of `text`. A reader that is gone or a limit that is met ends the writing and not the process. Returns 0
/// or an error number.
int write_quietly(int fd, const char* text, std::size_t size);

}  // namespace sve::runner
