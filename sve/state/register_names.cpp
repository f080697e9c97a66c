#include "sve/state/register_names.h"

namespace sve {

// clang-format off
#define NAMES_16(prefix, suffix)                                                                           \
  {prefix "0" suffix,  prefix "1" suffix,  prefix "2" suffix,  prefix "3" suffix,  prefix "4" suffix,      \
   prefix "5" suffix,  prefix "6" suffix,  prefix "7" suffix,  prefix "8" suffix,  prefix "9" suffix,      \
   prefix "10" suffix, prefix "11" suffix, prefix "12" suffix, prefix "13" suffix, prefix "14" suffix,     \
   prefix "15" suffix}
#define NAMES_32(prefix, suffix, last)                                                                     \
  {prefix "0" suffix,  prefix "1" suffix,  prefix "2" suffix,  prefix "3" suffix,  prefix "4" suffix,      \
   prefix "5" suffix,  prefix "6" suffix,  prefix "7" suffix,  prefix "8" suffix,  prefix "9" suffix,      \
   prefix "10" suffix, prefix "11" suffix, prefix "12" suffix, prefix "13" suffix, prefix "14" suffix,     \
   prefix "15" suffix, prefix "16" suffix, prefix "17" suffix, prefix "18" suffix, prefix "19" suffix,     \
   prefix "20" suffix, prefix "21" suffix, prefix "22" suffix, prefix "23" suffix, prefix "24" suffix,     \
   prefix "25" suffix, prefix "26" suffix, prefix "27" suffix, prefix "28" suffix, prefix "29" suffix,     \
   prefix "30" suffix, last}
// clang-format on

constexpr NameTable32 IRegisterNames::wname = NAMES_32("w", "", "wzr");
constexpr NameTable32 IRegisterNames::xname = NAMES_32("x", "", "xzr");
constexpr NameTable32 IRspRegisterNames::wname = NAMES_32("w", "", "illegal");
constexpr NameTable32 IRspRegisterNames::xname = NAMES_32("x", "", "sp");

constexpr NameTable16 PRegisterNames::pname = NAMES_16("p", "");
constexpr NameTable16 PRegisterNames::pname_m = NAMES_16("p", "/m");
constexpr NameTable16 PRegisterNames::pname_z = NAMES_16("p", "/z");
constexpr NameTable16 PRegisterNames::pname_b = NAMES_16("p", ".b");
constexpr NameTable16 PRegisterNames::pname_h = NAMES_16("p", ".h");
constexpr NameTable16 PRegisterNames::pname_s = NAMES_16("p", ".s");
constexpr NameTable16 PRegisterNames::pname_d = NAMES_16("p", ".d");

constexpr NameTable32 ZRegisterNames::zname = NAMES_32("z", "", "z31");
constexpr NameTable32 ZRegisterNames::zname_b = NAMES_32("z", ".b", "z31.b");
constexpr NameTable32 ZRegisterNames::zname_h = NAMES_32("z", ".h", "z31.h");
constexpr NameTable32 ZRegisterNames::zname_s = NAMES_32("z", ".s", "z31.s");
constexpr NameTable32 ZRegisterNames::zname_d = NAMES_32("z", ".d", "z31.d");

}  // namespace sve
