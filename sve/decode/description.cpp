// The table of instruction functions with what their mnemonics say, and the reading of a word's operands.
#include "sve/decode/description.h"

#include <algorithm>

#include "sve/decode/table.h"
#include "sve/state/vector_length.h"

namespace sve::decode {
namespace {

// The lists of the functions as an array, with marks where a family begins.
struct Listed {
  const char* name;  ///< null at a mark
  Family of;
  bool body;
};
#define SVE_FAMILY(name) {nullptr, Family::name, false},
#define LISTED(shape, name) {"sve_" #name, {}, true},
#define LISTED_STUB(shape, name) {"sve_" #name, {}, false},
#define SVE_FUNCTIONS(shape, ...) SVE_FOR_EACH_WITH(LISTED, shape, __VA_ARGS__)
#define SVE_UNREACHED_FUNCTIONS SVE_FUNCTIONS
#define SVE_STUBS(shape, ...) SVE_FOR_EACH_WITH(LISTED_STUB, shape, __VA_ARGS__)
constexpr Listed functions_by_family[] = {
#include "sve/insn/functions.inc"
#define SVE_FAMILY(name) {nullptr, Family::name, false},
#include "sve/insn/stubs.inc"
};

template <std::size_t N>
constexpr bool one_of(std::string_view text, const std::string_view (&list)[N]) {
  return std::find(list, list + N, text) != list + N;
}

/// Takes `prefix` off the front of `text` if it stands there.
constexpr bool take(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

// ld, st or prf; ff, nf or nt; a digit of registers; r or rq; s; the letter of the size in memory.
constexpr void describe_access(std::string_view rest, InstructionFunction& f) {
  if (rest == "ldr" || rest == "str") {
    f.access = rest == "ldr" ? AccessKind::fill : AccessKind::spill;
    f.memory_bytes = 1;
    return;
  }
  if (take(rest, "prf"))
    f.access = AccessKind::prefetch;
  else if (take(rest, "st"))
    f.access = AccessKind::store;
  else if (take(rest, "ld"))
    f.access = take(rest, "ff") ? AccessKind::first_fault : take(rest, "nf") ? AccessKind::non_fault : AccessKind::load;
  else
    return;
  f.non_temporal = take(rest, "nt");
  if (f.access != AccessKind::prefetch) {
    f.registers = static_cast<std::uint8_t>(rest[0] - '0');
    rest.remove_prefix(1);
  }
  if (take(rest, "rq")) f.access = AccessKind::replicate_quadword;
  if (take(rest, "r")) f.access = AccessKind::replicate;
  f.sign_extends = rest.size() == 2 && take(rest, "s");
  const std::size_t size = std::string_view("bhwd").find(rest[0]);
  if (rest.size() != 1 || size == rest.npos) throw "no size of memory elements";
  f.memory_bytes = static_cast<std::uint8_t>(1u << size);
}

// Instructions that touch flags though their family does not, and the other way round.
constexpr std::string_view set_flags[] = {"ands",    "bics",    "brkas",   "brkbs",   "brkns",  "brkpas",
                                          "brkpbs",  "eors",    "nands",   "nors",    "orns",   "orrs",
                                          "ctermeq", "ctermne", "pfirst",  "pnext",   "ptest",  "ptrues",
                                          "rdffrs",  "whilele", "whilelo", "whilels", "whilelt"};
constexpr std::string_view read_flags[] = {"ctermeq", "ctermne"};
constexpr std::string_view read_ffr[] = {"rdffr", "rdffrs"};
constexpr std::string_view write_ffr[] = {"setffr", "wrffr"};
constexpr std::string_view raise_no_exception[] = {"fabs", "fneg", "fexpa", "ftssel"};
constexpr std::string_view always_exact[] = {"scvtf_s2d_zpz", "ucvtf_s2d_zpz"};

constexpr InstructionFunction describe(const Listed& entry, Family of) {
  const std::string_view name = std::string_view(entry.name).substr(4), mnemonic = name.substr(0, name.find('_'));
  InstructionFunction f{entry.name, static_cast<std::uint8_t>(mnemonic.size()), of, 0, 0, false, entry.body};
  describe_access(mnemonic, f);
  f.floating_point = of == Family::fp_arithmetic || of == Family::fp_compares || of == Family::fp_conversions ||
                     of == Family::fp_reductions || of == Family::fp_complex;
  if (mnemonic.starts_with("cmp") || one_of(mnemonic, set_flags)) f.writes |= flag_nzcv;
  if (one_of(mnemonic, read_flags)) f.reads |= flag_nzcv;
  if (f.speculative() || one_of(mnemonic, read_ffr)) f.reads |= flag_ffr;
  if (f.speculative() || one_of(mnemonic, write_ffr)) f.writes |= flag_ffr;
  if (f.floating_point && !one_of(mnemonic, raise_no_exception) && !one_of(name, always_exact)) f.writes |= flag_fpsr;
  return f;
}

constexpr FunctionTable describe_all() {
  FunctionTable table{};
  Family of{};
  std::size_t n = 0;
  for (const Listed& entry : functions_by_family) {
    if (entry.name)
      table.of[n++] = describe(entry, of);
    else
      of = entry.of;
  }
  return table;
}

constexpr const char* family_names[] = {
#define SVE_FAMILY_NAME(name) #name,
#include "sve/decode/families.inc"
#undef SVE_FAMILY_NAME
};

}  // namespace

constinit const FunctionTable functions = describe_all();

const char* name_of(Family f) { return family_names[static_cast<std::size_t>(f)]; }

std::size_t operands_of(const Row& r, std::uint32_t word, OperandValue (&values)[max_operands]) {
  std::size_t n = 0;
  for (const Operand& o : r.operands())
    values[n++] = {o.kind, o.role, o.size, o.is_register() ? std::int64_t{o.number(word)} : o.value(word)};
  return n;
}

unsigned Row::memory_elements() const {
  if (function->access == AccessKind::replicate_quadword) return 16u / function->memory_bytes;
  if (operands()[0].kind == OperandKind::p) return predicate_bytes;
  return static_cast<unsigned>(vector_bytes) / (element_bytes() ? element_bytes() : 1);
}

unsigned Row::offset_unit() const {
  switch (function->access) {
    case AccessKind::fill:
    case AccessKind::spill:
      return memory_elements();
    case AccessKind::prefetch:
      return form->address == AddressForm::base_immediate ? static_cast<unsigned>(vector_bytes)
                                                          : function->memory_bytes;
    case AccessKind::replicate_quadword:
      return 16;
    case AccessKind::replicate:
      return function->memory_bytes;
    default:
      if (form->address == AddressForm::vector_immediate) return function->memory_bytes;
      return memory_elements() * function->registers * function->memory_bytes;
  }
}

}  // namespace sve::decode
