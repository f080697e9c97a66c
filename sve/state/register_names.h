// Assembler names of the registers, indexed by register number.
#pragma once

#include <array>

namespace sve {

using NameTable16 = std::array<const char*, 16>;
using NameTable32 = std::array<const char*, 32>;

struct IRegisterNames {
  static const NameTable32 wname;
  static const NameTable32 xname;
};

struct IRspRegisterNames {
  static const NameTable32 wname;
  static const NameTable32 xname;
};

struct PRegisterNames {
  static const NameTable16 pname, pname_m, pname_z, pname_b, pname_h, pname_s, pname_d;
};

struct ZRegisterNames {
  static const NameTable32 zname, zname_b, zname_h, zname_s, zname_d;
};

}  // namespace sve
