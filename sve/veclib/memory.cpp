#include "sve/veclib/memory.h"

#include "sve/fault/fault_capture.h"

using namespace sve;
using namespace sve::veclib;

namespace {

template <class M>
std::uint64_t read(std::uint64_t addr, bool* fault) {
  if (fault) {
    M value;
    if (!guarded_read(addr, value)) *fault = true;
    return value;
  }
  return read_plain<M>(addr);
}

}  // namespace

std::uint64_t ReadMemLib1(std::uint64_t addr, int, bool* fault, CpuContext*) { return read<std::uint8_t>(addr, fault); }
std::uint64_t ReadMemLib2(std::uint64_t addr, int, bool* fault, CpuContext*) {
  return read<std::uint16_t>(addr, fault);
}
std::uint64_t ReadMemLib4(std::uint64_t addr, int, bool* fault, CpuContext*) {
  return read<std::uint32_t>(addr, fault);
}
std::uint64_t ReadMemLib8(std::uint64_t addr, int, bool* fault, CpuContext*) {
  return read<std::uint64_t>(addr, fault);
}

void WriteMemLib1(std::uint8_t value, std::uint64_t addr, CpuContext*) { write_plain(addr, value); }
void WriteMemLib2(std::uint16_t value, std::uint64_t addr, CpuContext*) { write_plain(addr, value); }
void WriteMemLib4(std::uint32_t value, std::uint64_t addr, CpuContext*) { write_plain(addr, value); }
void WriteMemLib8(std::uint64_t value, std::uint64_t addr, CpuContext*) { write_plain(addr, value); }

std::uint64_t ReadMem(std::uint64_t, int, int, bool* fault, CpuContext*) {
  *fault = false;
  return 0;
}
std::uint64_t ReadMemSim(std::uint64_t, int, int, bool* fault, bool, CpuContext*) {
  *fault = false;
  return 0;
}
void WriteMem(std::uint64_t, std::uint64_t, int, CpuContext*) {}
void WriteMemSim(std::uint64_t, std::uint64_t, int, bool, CpuContext*) {}
