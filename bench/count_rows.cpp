// Runs each row's handler, and execute_sve_instruction, between marks, so that an emulator that counts instructions
// tells what each takes. Prints "MARK NAME" lines; see bench/count.
#include <cstdio>

#include "bench/count_mark.h"
#include "bench/row_case.h"
#include "sve/decode/dispatch.h"
#include "sve/fault/fault_capture.h"

namespace {

cpu_state state;

void prepare(const bench::RowCase& c) {
  for (unsigned k = 0; k < 3; ++k) std::memcpy(state.z[k], c.values.z[k], sizeof state.z[k]);
  for (auto& p : state.p) std::memset(p, 1, sizeof p);
  std::memset(state.ffr, 1, sizeof state.ffr);
  state.x[1] = c.values.x1;
  state.x[2] = c.values.x2;
}

// The second of two runs on the same values counts, since the first one may be the first to meet a page or a table.
template <class Call>
void count(std::uint32_t id, const bench::RowCase& c, Call call) {
  for (int i = 0; i < 2; ++i) {
    prepare(c);
    bench::mark(id);
    call();
    bench::mark(id + 1);
  }
}

aarch64_decode_rc nothing(cpu_state*, unsigned int) { return AARCH64_DECODE_EXECUTED; }

}  // namespace

int main() {
  bench::map_window();
  std::uint32_t id = 0;
  bench::RowCase c{};
  DecodeHandler volatile empty = nothing;
  count(id, c, [&] { empty(&state, 0); });
  std::printf("%u empty\n", id);
  for (const sve::decode::Map* map : sve::decode::maps_in_is_sve_order())
    for (const sve::decode::Row& row : map->rows) {
      c = bench::make_case(*map, row);
      DecodeHandler volatile handle = row.handle;
      count(id += 2, c, [&] { handle(&state, c.word); });
      std::printf("%u handler %s %s\n", id, row.name, name_of(row.function->of));
    }
  c.word = 0x04000020;  // add z0.b, p0/m, z0.b, z1.b
  count(id += 2, c, [&] {
    state.pc = &c.word;
    execute_sve_instruction(&state);
  });
  std::printf("%u execute_sve_instruction add\n", id);
}
