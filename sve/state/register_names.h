// Assembler names of the registers, indexed by register number.
#pragma once

#include <array>

namespace sve {

using name_table_16 = std::array<const char*, 16>;
using name_table_32 = std::array<const char*, 32>;

struct i_register_names {
  static const name_table_32 wname;
  static const name_table_32 xname;
};

struct i_rsp_register_names {
  static const name_table_32 wname;
  static const name_table_32 xname;
};

struct p_register_names {
  static const name_table_16 pname, pname_m, pname_z, pname_b, pname_h, pname_s, pname_d;
};

struct z_register_names {
  static const name_table_32 zname, zname_b, zname_h, zname_s, zname_d;
};

}  // namespace sve
