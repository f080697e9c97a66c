#include "sve/runner/native/instruction.h"

#include <sys/auxv.h>

#include <algorithm>

#include "sve/decode/dispatch.h"
#include "sve/lanes/patterns.h"
#include "sve/runner/sites/site.h"

namespace sve::runner {

using namespace arm64;

std::uint8_t count_size(std::string_view mnemonic) {
  return static_cast<std::uint8_t>(std::string_view("bhwd").find(mnemonic.back()));
}

bool is_extreme(const insn& i) {
  return i.form == &v_smax || i.form == &v_smin || i.form == &v_umax || i.form == &v_umin;
}

namespace {

using decode::access_kind;
using decode::operand;
using decode::operand_kind;
using decode::operand_role;
using decode::predication;

constexpr unsigned sp = 31;
constexpr std::uint32_t nop = 0xd503201f;

struct native_form {
  std::string_view mnemonic;
  action how;
  const vector_form* form;
};

constexpr native_form native_forms[] = {
#define SVE_NATIVE(mnemonic, how, form) {#mnemonic, action::how, &form},
#include "sve/runner/native/operations.inc"
#undef SVE_NATIVE
};
static_assert(std::ranges::is_sorted(native_forms, {}, &native_form::mnemonic));

const native_form* find_native(std::string_view mnemonic) {
  const native_form* found = std::ranges::lower_bound(native_forms, mnemonic, {}, &native_form::mnemonic);
  return found != std::end(native_forms) && found->mnemonic == mnemonic ? found : nullptr;
}

bool half_precision = false;  // whether the processor has it

constexpr bool is_floating(action how) {
  return (how >= action::fp_binary && how <= action::complex_fused && how != action::fused) ||
         how == action::fp_unary || (how >= action::fp_compare && how <= action::fp_compare_not) ||
         how == action::fp_sum || how == action::fp_ordered_sum;
}

void note_operand(insn& i, const operand& o) {
  const auto n = static_cast<std::uint8_t>(o.is_register() ? o.number(i.word) : 0);
  switch (o.kind) {
    case operand_kind::z:
    case operand_kind::v:
      for (unsigned k = 0; k < std::max<unsigned>(o.registers, 1); ++k) i.z_used |= 1u << (n + k) % 32;
      if (o.role == operand_role::source || o.role == operand_role::stored || o.role == operand_role::offset ||
          o.role == operand_role::base) {
        if (i.source_count < 3) i.sources[i.source_count++] = n;
      } else {
        i.d = n;
        i.tied = o.role == operand_role::both && o.repeated != decode::repetition::none;
        i.accumulates = o.role == operand_role::both && !i.tied;
        if (o.role == operand_role::both) i.sources[i.source_count++] = n;
      }
      break;
    case operand_kind::p:
      if (o.role == operand_role::governing) {
        i.pg = n;
        i.inactive = o.inactive;
      } else if (o.is_written()) {
        i.pd = n;
        i.p_written |= static_cast<std::uint16_t>(1u << n);
      } else {
        (i.pn == no_register ? i.pn : i.pm) = n;
      }
      break;
    case operand_kind::x:
    case operand_kind::x_or_sp:
      i.x_used |= 1u << n;
      if (o.is_written()) {
        i.xd = n;
        i.writes_x = true;
      } else {
        (i.xn == no_register ? i.xn : i.xm) = n;
      }
      i.is_w = o.size == 2;
      break;
    default:
      if (i.has_immediate)
        i.second_immediate = o.value(i.word);
      else
        i.immediate = o.value(i.word);
      i.has_immediate = true;
  }
}

// Whether all vector operands have elements of the row's size.
bool has_one_size(const decode::row& row) {
  for (const operand& o : row.operands())
    if ((o.kind == operand_kind::z || o.kind == operand_kind::p) && o.size != operand::no_size &&
        o.size != row.form->element_size && o.role != operand_role::governing)
      return false;
  return true;
}

// A conversion between words and doublewords, in the slots of the larger. It is told what the slots hold.
bool takes_conversion(insn& i) {
  const operand *to = nullptr, *from = nullptr;
  for (const operand& o : i.row->operands()) {
    if (o.kind != operand_kind::z) continue;
    (o.is_written() ? to : from) = &o;
  }
  if (!to || !from || to->size + from->size != element_s + element_d || to->size == from->size) return false;
  const bool widens = to->size == element_d;
  const std::string_view mnemonic = i.row->mnemonic();
  // Narrowing between integers and formats has no instruction for a vector.
  if (!widens && mnemonic != "fcvt") return false;
  i.size = element_d;
  i.converts = mnemonic == "fcvt"    ? (widens ? conversion::widen : conversion::narrow)
               : mnemonic == "scvtf" ? conversion::from_signed
               : mnemonic == "ucvtf" ? conversion::from_unsigned
                                     : conversion::widen_and_convert;
  i.how = action::convert;
  return true;
}

// What of the table's lines the emitters know.
bool is_known_form(insn& i) {
  const decode::row& row = *i.row;
  const bool z_to_z = i.d != no_register && i.x_used == 0;
  const bool exists = i.form->sizes >> i.size & 1;
  switch (i.how) {
    case action::binary:
    case action::reversed: {
      const bool is_logic = i.form == &v_and_v || i.form == &v_orr_v || i.form == &v_eor_v || i.form == &v_bic_v;
      if (!z_to_z || !has_one_size(row)) return false;
      return (exists || is_logic || is_extreme(i)) && i.source_count + i.has_immediate == 2;
    }
    case action::fp_binary:
    case action::fp_reversed:
    case action::fp_divide:
    case action::fp_divide_reversed:
      return z_to_z && exists && has_one_size(row) && i.source_count + i.has_immediate == 2;
    case action::fused:
    case action::fp_fused:
    case action::fp_fused_negated:
      return z_to_z && exists && has_one_size(row) && i.source_count == 3 && !i.has_immediate;
    case action::complex_fused:
      return z_to_z && i.size == element_s && has_one_size(row) && i.source_count == 3 && i.pg != no_register;
    case action::unary: {
      const bool is_bytes = i.form == &v_cnt_v || i.form == &v_rbit_v;
      return z_to_z && (exists || i.form == &v_mvn_v) && !(is_bytes && i.size != element_b) && i.source_count == 1 &&
             !i.has_immediate;
    }
    case action::fp_unary:
      if (!z_to_z || i.source_count != 1 || i.has_immediate) return false;
      return has_one_size(row) ? exists : takes_conversion(i);
    case action::convert:
      return takes_conversion(i);
    case action::reverse:
      return z_to_z && i.source_count == 1;
    case action::extend_signed:
    case action::extend_unsigned:
      return z_to_z && i.source_count == 1;
    case action::shift_left:
    case action::shift_right:
    case action::shift_right_signed:
      if (!z_to_z || !has_one_size(row)) return false;
      return i.has_immediate ? i.source_count == 1 : i.source_count == 2 && i.pg != no_register && i.size <= element_s;
    case action::move:
      return z_to_z && i.source_count == 1;
    case action::select:
      return z_to_z && i.source_count == 2;
    case action::copy:
      return i.d != no_register && i.source_count == 0 && (i.has_immediate || (i.xn != no_register && i.xn != sp));
    case action::load:
    case action::store: {
      const auto address = row.form->address;
      if (row.function->access == access_kind::fill || row.function->access == access_kind::spill)
        return row.operands()[0].kind == operand_kind::z;
      if (row.function->access != access_kind::load && row.function->access != access_kind::store) return false;
      const bool is_contiguous =
          address == decode::address_form::base_immediate || address == decode::address_form::base_index;
      if (row.function->registers != 1) {
        i.is_store = i.how == action::store;
        i.how = action::structure;
        const unsigned first = i.is_store ? i.sources[0] : i.d;
        return is_contiguous && first + row.function->registers <= 32;
      }
      if (address == decode::address_form::base_vector || address == decode::address_form::vector_immediate) {
        const bool loads = i.how == action::load;
        i.how = loads ? action::gather : action::scatter;
        return row.function->memory_bytes >= 4;
      }
      return is_contiguous;
    }
    case action::nothing:
    case action::set_ffr:
    case action::read_ffr:
    case action::test:
      return true;
    case action::count_active:
      return i.xd != no_register && i.d == no_register;
    case action::compact:
      return i.size >= element_s;
    case action::compare:
    case action::compare_reversed:
    case action::compare_not:
    case action::fp_compare:
    case action::fp_compare_reversed:
    case action::fp_compare_not:
      // With 0 where there is nothing else.
      if (is_floating(i.how) && i.source_count == 1) i.has_immediate = true;
      return exists && i.pd != no_register && has_one_size(row) && i.source_count + i.has_immediate == 2;
    case action::unpack_low:
    case action::unpack_high:
      return z_to_z && i.source_count == 1;
    case action::sum:
      return i.d != no_register && i.source_count == 1;
    case action::reduce:
      return exists && i.d != no_register && i.source_count == 1;
    case action::fp_sum:
      return i.d != no_register && i.size >= element_s && i.source_count == 1;
    case action::fp_ordered_sum:
      return i.size >= element_s;
    case action::series:
      return i.d != no_register;
    case action::replicate:
      return row.function->access == access_kind::replicate && i.xn != sp;
    case action::while_unsigned:
    case action::while_signed:
    case action::set_pattern:
      return i.pd != no_register;
    case action::count:
    case action::count_up:
    case action::count_down:
      if (i.d != no_register) {
        // Of vectors: the number is added to each element.
        i.immediate =
            VecTrueILength(static_cast<unsigned long>(i.immediate), static_cast<int>(vector_bytes >> i.size)) *
            i.second_immediate;
        i.form = i.how == action::count_up ? &v_add : &v_sub;
        i.how = action::binary;
        return i.source_count == 1;
      }
      i.size = count_size(row.mnemonic());
      return i.xd != no_register;
    case action::add_length:
      return i.xd != sp;
    case action::read_length:
      return true;
    default:
      return false;
  }
}

// The rows by their handlers, and their native forms once they have been looked for, so that nothing is searched for
// twice. What shares a handler is the same instruction to it.
class row_table {
 public:
  struct entry {
    const decode::row* row;
    const native_form* form;  // null: none, or not looked for
    bool is_known;
  };
  entry& find(decode_handler handle) {
    if (!filled_) fill();
    std::size_t at = place(handle);
    while (entries_[at].row && entries_[at].row->handle != handle) at = (at + 1) % size;
    return entries_[at];
  }
  const native_form* form_of(entry& e) {
    if (!e.is_known) e.form = find_native(e.row->mnemonic());
    e.is_known = true;
    return e.form;
  }

 private:
  static constexpr std::size_t size = 4096;
  static std::size_t place(decode_handler handle) {
    return reinterpret_cast<std::uintptr_t>(handle) * 0x9e3779b97f4a7c15u >> 52;
  }
  void fill() {
    filled_ = true;
    for (const decode::map* map : decode::maps_in_is_sve_order())
      for (const decode::row& row : map->rows) find(row.handle).row = &row;
  }
  entry entries_[size] = {};
  bool filled_ = false;
};
constinit row_table rows;

}  // namespace

insn decode_insn(std::uint32_t word, decode_handler handle) {
  insn i;
  i.word = word;
  if (!handle) {  // it has none where it is no instruction of ours
    i.how = action::scalar;
    if (word != nop)
      i.x_used = 1u << (word & 31) | 1u << (word >> 5 & 31) | 1u << (word >> 10 & 31) | 1u << (word >> 16 & 31);
    i.writes_x = true;
    return i;
  }
  row_table::entry& found_row = rows.find(handle);
  i.row = found_row.row;
  const std::uint8_t size = i.row->form->element_size;
  if (size != operand::no_size) i.size = size;
  for (const operand& o : i.row->operands()) note_operand(i, o);
  const native_form* found = rows.form_of(found_row);
  if (!found) return i;
  i.how = found->how;
  i.form = found->form;
  // mad and its kin overwrite a factor; the addend is their last operand.
  if (i.row->mnemonic().ends_with("mad") || i.row->mnemonic().ends_with("msb")) i.accumulates = false;
  if (i.d == no_register && i.pd != no_register && i.pm != no_register && i.pg != no_register) {
    i.how = action::logic;
    const bool known = i.form == &v_and_v || i.form == &v_orr_v || i.form == &v_eor_v || i.form == &v_bic_v;
    if (!known || i.inactive != predication::zeroing) i.how = action::none;
    return i;
  }
  const bool exists = is_known_form(i);
  if (!exists || i.size > element_d || (is_floating(i.how) && i.size == element_h && !half_precision))
    i.how = action::none;
  return i;
}

const decode::row* find_row(decode_handler handle) { return rows.find(handle).row; }

void start_native() {
  constexpr unsigned long half = 1ul << 9 | 1ul << 10;  // HWCAP_FPHP and HWCAP_ASIMDHP
  half_precision = (getauxval(AT_HWCAP) & half) == half;
}

bool is_simple_scalar(std::uint32_t w) {
  const unsigned rd = w & 31, rn = w >> 5 & 31;
  const bool sets_flags = w >> 29 & 1;
  switch (w >> 23 & 63) {
    case 0b100010:  // add, sub, with an immediate, where 31 is the stack pointer
      return rn != 31 && (rd != 31 || sets_flags);
    case 0b100100:  // logic with an immediate
      return rd != 31 || (w >> 29 & 3) == 3;
    case 0b100101:  // movn, movz, movk
      return (w >> 29 & 3) != 1;
    case 0b100110:  // bit fields
      return (w >> 29 & 3) != 3;
    case 0b100111:  // extr
      return (w >> 29 & 3) == 0;
    default:
      break;
  }
  switch (w >> 24 & 31) {
    case 0b01010:  // logic, shifted registers
      return true;
    case 0b01011:  // add, sub, shifted or extended
      if (!(w >> 21 & 1)) return (w >> 22 & 3) != 3;
      return (w >> 22 & 3) == 0 && rn != 31 && (rd != 31 || sets_flags);
    case 0b11011:  // multiply
      return (w >> 21 & 7) == 0 || ((w >> 21 & 7) == 1 && (w >> 31)) || ((w >> 21 & 7) == 5 && (w >> 31));
    default:
      break;
  }
  if ((w >> 21 & 0xff) == 0b11010100) return (w >> 29 & 1) == 0 && (w >> 11 & 1) == 0;  // conditional select
  return w == nop;                                                                      // nop
}

bool has_native_form(std::uint32_t word) { return decode_insn(word, is_sve(word)).how != action::none; }

}  // namespace sve::runner
