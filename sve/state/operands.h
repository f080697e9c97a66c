// Operand records: the small values through which handlers name registers and immediates.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sve/state/register_names.h"

/// Element-size codes used by every operand record.
enum element_size : unsigned int {
  element_b = 0,  ///< 8 bits
  element_h = 1,  ///< 16 bits
  element_s = 2,  ///< 32 bits
  element_d = 3,  ///< 64 bits
  element_q = 4,  ///< 128 bits, in `aarch64_z_reg` only
};

/// A Z register operand. The plain form is {number, size, 5, 5}, the tied (destructive) form {number, 5, size, size}.
struct aarch64_z_reg : sve::ZRegisterNames {
  static constexpr unsigned int none = 5;  ///< no size in this member

  unsigned int number = 0;            ///< 0 to 31
  unsigned int size = none;           ///< element-size code, or `none`
  unsigned int tied_dst_size = none;  ///< element-size code of a destructive operand, or `none`
  unsigned int tied_src_size = none;  ///< always equal to `tied_dst_size`

  constexpr aarch64_z_reg() = default;
  constexpr aarch64_z_reg(unsigned int n, unsigned int s, unsigned int dst = none, unsigned int src = none)
      : number(n), size(s), tied_dst_size(dst), tied_src_size(src) {}
};

/// A predicate register operand. `size` is an element-size code or one of the qualifiers below.
struct aarch64_p_reg : sve::PRegisterNames {
  static constexpr unsigned int merging = 4;  ///< governing, /m
  static constexpr unsigned int zeroing = 5;  ///< governing, /z
  static constexpr unsigned int bare = 6;     ///< no suffix
  static constexpr unsigned int none = 7;     ///< no size in this member (the tied form)

  unsigned int number = 0;            ///< 0 to 15
  unsigned int size = none;           ///< element-size code or qualifier
  unsigned int tied_dst_size = none;  ///< element-size code of a destructive operand, or `none`
  unsigned int tied_src_size = none;  ///< always equal to `tied_dst_size`

  constexpr aarch64_p_reg() = default;
  constexpr aarch64_p_reg(unsigned int n, unsigned int s, unsigned int dst = none, unsigned int src = none)
      : number(n), size(s), tied_dst_size(dst), tied_src_size(src) {}
};

/// A general register in which number 31 is the zero register.
struct aarch64_i_reg : sve::IRegisterNames {
  static constexpr unsigned int none = 4;  ///< no size in this member

  unsigned int number = 0;            ///< 0 to 31
  unsigned int size = none;           ///< width in which it is read: 2 is W, 3 is X, 0 and 1 feed narrow elements
  unsigned int tied_dst_size = none;  ///< 2 or 3 where the register is read and written, or `none`
  unsigned int tied_src_size = none;  ///< always equal to `tied_dst_size`

  constexpr aarch64_i_reg() = default;
  constexpr aarch64_i_reg(unsigned int n, unsigned int s, unsigned int dst = none, unsigned int src = none)
      : number(n), size(s), tied_dst_size(dst), tied_src_size(src) {}
};

/// A general register in which number 31 is the stack pointer.
struct aarch64_i_rsp_reg : sve::IRspRegisterNames {
  unsigned int number = 0;  ///< 0 to 31
  unsigned int size = 3;    ///< as in `aarch64_i_reg`; a base address carries 3

  constexpr aarch64_i_rsp_reg() = default;
  constexpr aarch64_i_rsp_reg(unsigned int n, unsigned int s) : number(n), size(s) {}
};

/// The expanded pattern of a logical immediate.
struct aarch64_sve_logical64_imm {
  std::uint64_t value;
};

/// An 8-bit floating-point constant expanded to all three widths.
struct aarch64_sve_fp_dup_imm {
  std::uint16_t half;
  std::uint32_t single;
  std::uint64_t double_;
};

/// The raw single-bit immediate of the predicated floating-point immediate forms.
struct aarch64_sve_fp_arith_imm {
  std::uint8_t value;
};

// The layout of the records is part of the interface.
#define SVE_REGISTER_LAYOUT(record)                                                                     \
  static_assert(sizeof(record) == 16 && offsetof(record, number) == 0 && offsetof(record, size) == 4 && \
                offsetof(record, tied_dst_size) == 8 && offsetof(record, tied_src_size) == 12)
SVE_REGISTER_LAYOUT(aarch64_z_reg);
SVE_REGISTER_LAYOUT(aarch64_p_reg);
SVE_REGISTER_LAYOUT(aarch64_i_reg);
#undef SVE_REGISTER_LAYOUT
static_assert(sizeof(aarch64_i_rsp_reg) == 8 && offsetof(aarch64_i_rsp_reg, number) == 0 &&
              offsetof(aarch64_i_rsp_reg, size) == 4);
static_assert(sizeof(aarch64_sve_logical64_imm) == 8 && sizeof(aarch64_sve_fp_arith_imm) == 1);
static_assert(sizeof(aarch64_sve_fp_dup_imm) == 16 && offsetof(aarch64_sve_fp_dup_imm, half) == 0 &&
              offsetof(aarch64_sve_fp_dup_imm, single) == 4 && offsetof(aarch64_sve_fp_dup_imm, double_) == 8);
