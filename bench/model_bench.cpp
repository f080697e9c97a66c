// Time of every row's handler, by name, with the decode searches, the fixed cost of a library handler, and a plain
// load-load-store of a register and plain copies beside them.
#include <benchmark/benchmark.h>

#include "bench/row_case.h"
#include "sve/decode/handlers.h"
#include "sve/lanes/lanes.h"

namespace {

void run_row(benchmark::State& bench_state, const sve::decode::Map* map, const sve::decode::Row* row) {
  const bench::RowCase c = bench::make_case(*map, *row);
  cpu_state state{};
  std::memset(state.p, 1, sizeof state.p);
  std::memset(state.ffr, 1, sizeof state.ffr);
  state.x[1] = c.values.x1;
  state.x[2] = c.values.x2;
  for (int i = 0; i < 4; ++i) std::memcpy(state.z[i], c.values.z[i], sizeof state.z[i]);
  const DecodeHandler handle = row->handle;
  for (auto _ : bench_state) {
    if (c.floating_point) std::memcpy(state.z[0], state.z[3], sizeof state.z[0]);
    benchmark::DoNotOptimize(handle(&state, c.word));
    benchmark::ClobberMemory();
  }
}

// Two vectors read, one written: what any instruction on two operands has to do.
void load_load_store(benchmark::State& bench_state) {
  cpu_state state{};
  cpu_state* escaped = &state;
  benchmark::DoNotOptimize(escaped);  // else the compiler sees that nobody looks
  for (auto _ : bench_state) {
    sve::map_lanes<std::uint64_t>(
        state.z[0], sve::lanes<std::uint64_t>, [](std::uint64_t a, std::uint64_t b) { return a ^ b; },
        static_cast<const sve::byte*>(state.z[1]), static_cast<const sve::byte*>(state.z[2]));
    benchmark::ClobberMemory();
  }
}

// One vector read, one written: in line, and as a handler, called through a pointer as all of them are.
void copy(benchmark::State& bench_state) {
  cpu_state state{};
  cpu_state* escaped = &state;
  benchmark::DoNotOptimize(escaped);
  for (auto _ : bench_state) {
    std::memcpy(state.z[0], state.z[1], sizeof state.z[0]);
    benchmark::ClobberMemory();
  }
}

aarch64_decode_rc copying_handler(cpu_state* state, unsigned int) {
  std::memcpy(state->z[0], state->z[1], sizeof state->z[0]);
  return AARCH64_DECODE_EXECUTED;
}

void copy_handler(benchmark::State& bench_state) {
  cpu_state state{};
  sve::decode::handler handle = copying_handler;
  benchmark::DoNotOptimize(handle);
  for (auto _ : bench_state) {
    benchmark::DoNotOptimize(handle(&state, 0));
    benchmark::ClobberMemory();
  }
}

// The protocol of the library alone: a handler whose routine does nothing.
[[gnu::noinline]] void nothing(sve::in_place::CpuContext* context) { benchmark::DoNotOptimize(context); }

void marshalling(benchmark::State& bench_state) {
  cpu_state state{};
  for (auto _ : bench_state) {
    benchmark::DoNotOptimize(
        sve::decode::library_call<nothing, sve::decode::routine_form<sve::decode::nothing>>::handle(&state, 0));
    benchmark::ClobberMemory();
  }
}

void decode_hit(benchmark::State& bench_state) {
  for (auto _ : bench_state) benchmark::DoNotOptimize(is_sve(0x04000000));
}
void decode_miss(benchmark::State& bench_state) {
  for (auto _ : bench_state) benchmark::DoNotOptimize(is_sve(0xd503201f));
}

void execute(benchmark::State& bench_state) {
  cpu_state state{};
  std::uint32_t word = 0x04000000;  // add z0.b, p0/m, z0.b, z0.b
  for (auto _ : bench_state) {
    state.pc = &word;
    benchmark::DoNotOptimize(execute_sve_instruction(&state));
  }
}

}  // namespace

int main(int argc, char** argv) {
  bench::map_window();
  benchmark::RegisterBenchmark("load_load_store", load_load_store);
  benchmark::RegisterBenchmark("copy", copy);
  benchmark::RegisterBenchmark("copy_handler", copy_handler);
  benchmark::RegisterBenchmark("marshalling", marshalling);
  benchmark::RegisterBenchmark("decode_hit", decode_hit);
  benchmark::RegisterBenchmark("decode_miss", decode_miss);
  benchmark::RegisterBenchmark("execute", execute);
  for (const sve::decode::Map* map : sve::decode::maps_in_is_sve_order())
    for (const sve::decode::Row& row : map->rows)
      benchmark::RegisterBenchmark((std::string("row/") + row.name).c_str(), run_row, map, &row);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
