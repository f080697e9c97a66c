// The floating-point control and status word, the rounding selector, and the mode and flag words derived from them.
#pragma once

#include <cstdint>

/// Control and cumulative status in one word: bits stand where AArch64's FPCR and FPSR have them.
using FPSCR = std::uint32_t;

/// How an operation with an explicit rounding rounds. Values 0 to 3 equal the RMode field of FPCR.
enum FPRounding : int {
  FPRounding_TiesEven = 0,  ///< to nearest, ties to even
  FPRounding_PosInf = 1,    ///< towards plus infinity
  FPRounding_NegInf = 2,    ///< towards minus infinity
  FPRounding_Zero = 3,      ///< towards zero
  FPRounding_TiesAway = 4,  ///< to nearest, ties away from zero; only `FPRoundInt` and `FPToFixed_64` know it
  FPRounding_Odd = 5,       ///< truncate, then set the lowest bit if inexact; only the rounding routines know it
};

namespace sve {

/// Flags: the status bits of an `FPSCR`, and the flag word of the inner routines.
inline constexpr int flag_ioc = 1;    ///< invalid operation
inline constexpr int flag_dzc = 2;    ///< division by zero
inline constexpr int flag_ofc = 4;    ///< overflow
inline constexpr int flag_ufc = 8;    ///< underflow
inline constexpr int flag_ixc = 16;   ///< inexact
inline constexpr int flag_idc = 128;  ///< an input denormal was flushed to zero

/// Control bits of an `FPSCR`.
inline constexpr FPSCR fpscr_fz16 = 1u << 19;
inline constexpr FPSCR fpscr_rmode_shift = 22;
inline constexpr FPSCR fpscr_fz = 1u << 24;
inline constexpr FPSCR fpscr_dn = 1u << 25;
inline constexpr FPSCR fpscr_ahp = 1u << 26;

/// The mode word: rounding in bits 0 and 1, then the controls that arithmetic looks at.
inline constexpr int mode_rounding = 3;
inline constexpr int mode_fz = 4;
inline constexpr int mode_dn = 8;
inline constexpr int mode_ahp = 16;
inline constexpr int mode_fz16 = 32;

/// What of a working `FPSCR` a vector routine folds into the machine's FPSR.
inline constexpr std::uint32_t fpsr_mask = 0xf800009fu;

/// The mode word of arithmetic. AHP stays clear on purpose: half-precision arithmetic is always IEEE, and only
/// `FPConvert` to half brings AHP to the rounding routine.
constexpr int mode_of(FPSCR fpscr) { return static_cast<int>(((fpscr >> 22) & 15) | ((fpscr >> 14) & 32)); }

}  // namespace sve
