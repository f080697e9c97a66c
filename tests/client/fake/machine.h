// An interpreter of the instructions that the client inserts: a processor of which a test sees every register.
#pragma once

#include <array>
#include <cstring>

#include "platform.h"

namespace fake {

struct machine {
  std::array<reg_t, 32> x{};  ///< SP at 31
  std::array<std::array<byte, 16>, 32> q{};
  reg_t nzcv = 0, fpsr = 0, fpcr = 0;
  reg_t stolen = 0;  ///< the application's value of the platform's register

  /// Runs a block without instructions of the application's own; `call` stands for the run-time call.
  template <class Call>
  void run(const instrlist_t& list, thread& on, Call call) {
    for (const instr_t* i : list.instructions) step(*i, on, call);
  }

 private:
  static int x_of(reg_id_t r) { return r == DR_REG_SP ? 31 : r >= DR_REG_W0 ? r - DR_REG_W0 : r - DR_REG_X0; }
  byte* address(const opnd_t& o) { return reinterpret_cast<byte*>(x[x_of(o.number)] + static_cast<reg_t>(o.value)); }
  reg_t& system(reg_id_t r) { return r == DR_REG_NZCV ? nzcv : r == DR_REG_FPSR ? fpsr : fpcr; }
  void* data(reg_id_t r) {
    return r >= DR_REG_Q0 && r <= DR_REG_Q31 ? static_cast<void*>(q[r - DR_REG_Q0].data()) : &x[x_of(r)];
  }
  template <class Call>
  void step(const instr_t& i, thread& on, Call call) {
    const auto& o = i.operands;
    switch (i.special) {
      case instr_t::save:
        on.slots[i.slot] = x[x_of(o[0].number)];
        return;
      case instr_t::restore:
        x[x_of(o[0].number)] = on.slots[i.slot];
        return;
      case instr_t::get_stolen:
        x[x_of(o[0].number)] = stolen;
        return;
      case instr_t::set_stolen:
        stolen = x[x_of(o[0].number)];
        return;
      case instr_t::move_immediate:
        x[x_of(o[0].number)] = static_cast<reg_t>(o[1].value);
        return;
      case instr_t::read_field:
        x[x_of(o[0].number)] = reinterpret_cast<reg_t>(on.fields[static_cast<int>(o[1].value)]);
        return;
      case instr_t::read_direct:
        x[x_of(o[0].number)] = reinterpret_cast<reg_t>(on.direct[o[1].value / static_cast<int>(sizeof(void*))]);
        return;
      case instr_t::call:
        call(o);
        // No register is kept, and the platform's own is none of the application's.
        for (int n = 0; n < 31; ++n) x[n] = 0xdeadbeefdeadbeef;
        for (auto& vector : q) vector.fill(0xdd);
        nzcv = 0x50000000;
        return;
      case instr_t::none:
        break;
    }
    switch (i.opcode) {
      case OP_add:
        x[x_of(o[0].number)] = x[x_of(o[1].number)];
        return;
      case OP_str:
        std::memcpy(address(o[0]), data(o[1].number), o[0].size);
        return;
      case OP_ldr:
        if (o[1].size == OPSZ_4) x[x_of(o[0].number)] = 0;
        std::memcpy(data(o[0].number), address(o[1]), o[1].size);
        return;
      case OP_stp:
        std::memcpy(address(o[0]), data(o[1].number), 8);
        std::memcpy(address(o[0]) + 8, data(o[2].number), 8);
        return;
      case OP_ldp:
        std::memcpy(data(o[0].number), address(o[2]), 8);
        std::memcpy(data(o[1].number), address(o[2]) + 8, 8);
        return;
      case OP_mrs:
        x[x_of(o[0].number)] = system(o[1].number);
        return;
      case OP_msr:
        system(o[0].number) = x[x_of(o[1].number)];
        return;
      default:
        return;
    }
  }
};

}  // namespace fake
