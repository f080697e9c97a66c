#include "sve/runner/preload/run_data.h"

#include <fcntl.h>

#include <cerrno>
#include <ctime>

#include "sve/runner/preload/descriptors.h"
#include "sve/runner/preload/interpose.h"
#include "sve/runner/preload/kernel.h"
#include "sve/runner/preload/process.h"
#include "sve/runner/preload/report.h"
#include "sve/runner/sites/site.h"

namespace sve::runner {
namespace {

const char* directory_path = nullptr;  // null if there is no report
char program_path[4096];
bool with_lanes = false;
KeptFile directory, file;
unsigned long file_number = 0;
int process = 0;                // that the file is of
std::uint64_t time_before = 0;  // of the process, by what it was before an exec

bool write_to_file(void* error, const char* text, std::size_t size) {
  if (is_sandboxed()) {
    kernel_write(file.number(), text, size);
    return true;
  }
  const int fd = file.get();
  auto& failure = *static_cast<int*>(error);
  failure = fd < 0 ? EBADF : write_quietly(fd, text, size);
  return failure == 0;
}

void print_error(int error) {
  Text<160> line;
  const char* const reason = real.strerrordesc_np ? real.strerrordesc_np(error) : nullptr;
  line << "no data of process " << static_cast<unsigned long>(kernel_process_id())
       << " for the report: " << (reason ? reason : "its file cannot be written");
  print_line(line.c_str());
}

// What all threads have taken of processors, in nanoseconds.
std::uint64_t processor_time() {
  timespec time{};
  system_call(SYS_clock_gettime, CLOCK_PROCESS_CPUTIME_ID, address(&time));
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(time.tv_nsec);
}

// Returns 0 or an error number.
int open_file(int begin) {
  const RoomForDescriptors room;
  const int fd = directory.get();
  Text<4096 + 64> path;
  if (fd < 0) path << directory_path << "/";
  path << static_cast<unsigned long>(kernel_process_id()) << "." << file_number;
  const long opened = system_call(SYS_openat, fd < 0 ? AT_FDCWD : fd, address(path.c_str()),
                                  O_WRONLY | O_APPEND | O_CLOEXEC | begin, 0666);
  if (opened < 0) return static_cast<int>(-opened);
  file.take(static_cast<int>(opened));
  return 0;
}

// `parent`: of a copy of a process the one that it is a copy of, which may have ended by now.
void begin_file(int parent) {
  time_before = processor_time();
  // A program that this process becomes later has another file, and so has a process that gets the same number.
  int error = EEXIST;
  for (file_number = 0; error == EEXIST; file_number += error == EEXIST) error = open_file(O_CREAT | O_EXCL);
  if (error == 0) {
    RunDataWriter data(write_to_file, &error);
    data.begin("embedded", kernel_process_id(), parent, program_path);
  }
  process = kernel_process_id();
  if (error == 0) return;
  print_error(error);
  directory_path = nullptr;  // what is open may be the parent's file
}

}  // namespace

void start_run_data(const char* path, const char* program, bool lanes) {
  directory_path = path;
  std::string_view(program).copy(program_path, sizeof program_path - 1);
  with_lanes = lanes;
  const long fd = system_call(SYS_openat, AT_FDCWD, address(path), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd >= 0) directory.take(static_cast<int>(fd));
  begin_file(static_cast<int>(system_call(SYS_getppid)));
}

void restart_run_data() {
  if (is_sandboxed()) directory_path = nullptr;
  if (directory_path) begin_file(process);
}

void write_run_data(ProcessEnd how, int signal) {
  if (!directory_path || file.number() < 0) return;
  int error = !is_sandboxed() && file.get() < 0 ? open_file(0) : 0;
  RunDataWriter data(write_to_file, &error);
  data.begin_counts(how, signal, count_executions(), with_lanes);
  if (counts_time() && !is_sandboxed()) data.line("processor", processor_time() - time_before);
  tell_sites(data);
  if (!data.end()) print_error(error);
}

}  // namespace sve::runner
