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

bool is_extreme(const Insn& i) {
  return i.form == &v_smax || i.form == &v_smin || i.form == &v_umax || i.form == &v_umin;
}

namespace {

using decode::AccessKind;
using decode::Operand;
using decode::OperandKind;
using decode::OperandRole;
using decode::Predication;

constexpr unsigned sp = 31;
constexpr std::uint32_t nop = 0xd503201f;

struct NativeForm {
  std::string_view mnemonic;
  Action how;
  const VectorForm* form;
};

constexpr NativeForm native_forms[] = {
#define SVE_NATIVE(mnemonic, how, form) {#mnemonic, Action::how, &form},
#include "sve/runner/native/operations.inc"
#undef SVE_NATIVE
};
static_assert(std::ranges::is_sorted(native_forms, {}, &NativeForm::mnemonic));

const NativeForm* find_native(std::string_view mnemonic) {
  const NativeForm* found = std::ranges::lower_bound(native_forms, mnemonic, {}, &NativeForm::mnemonic);
  return found != std::end(native_forms) && found->mnemonic == mnemonic ? found : nullptr;
}

bool half_precision = false;  // whether the processor has it

constexpr bool is_floating(Action how) {
  return (how >= Action::fp_binary && how <= Action::complex_fused && how != Action::fused) ||
         how == Action::fp_unary || (how >= Action::fp_compare && how <= Action::fp_compare_not) ||
         how == Action::fp_sum || how == Action::fp_ordered_sum;
}

void note_operand(Insn& i, const Operand& o) {
  const auto n = static_cast<std::uint8_t>(o.is_register() ? o.number(i.word) : 0);
  switch (o.kind) {
    case OperandKind::z:
    case OperandKind::v:
      for (unsigned k = 0; k < std::max<unsigned>(o.registers, 1); ++k) i.z_used |= 1u << (n + k) % 32;
      if (o.role == OperandRole::source || o.role == OperandRole::stored || o.role == OperandRole::offset ||
          o.role == OperandRole::base) {
        if (i.source_count < 3) i.sources[i.source_count++] = n;
      } else {
        i.d = n;
        i.tied = o.role == OperandRole::both && o.repeated != decode::Repetition::none;
        i.accumulates = o.role == OperandRole::both && !i.tied;
        if (o.role == OperandRole::both) i.sources[i.source_count++] = n;
      }
      break;
    case OperandKind::p:
      if (o.role == OperandRole::governing) {
        i.pg = n;
        i.inactive = o.inactive;
      } else if (o.is_written()) {
        i.pd = n;
        i.p_written |= static_cast<std::uint16_t>(1u << n);
      } else {
        (i.pn == no_register ? i.pn : i.pm) = n;
      }
      break;
    case OperandKind::x:
    case OperandKind::x_or_sp:
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
bool has_one_size(const decode::Row& row) {
  for (const Operand& o : row.operands())
    if ((o.kind == OperandKind::z || o.kind == OperandKind::p) && o.size != Operand::no_size &&
        o.size != row.form->element_size && o.role != OperandRole::governing)
      return false;
  return true;
}

// A conversion between words and doublewords, in the slots of the larger. It is told what the slots hold.
bool takes_conversion(Insn& i) {
  const Operand *to = nullptr, *from = nullptr;
  for (const Operand& o : i.row->operands()) {
    if (o.kind != OperandKind::z) continue;
    (o.is_written() ? to : from) = &o;
  }
  if (!to || !from || to->size + from->size != element_s + element_d || to->size == from->size) return false;
  const bool widens = to->size == element_d;
  const std::string_view mnemonic = i.row->mnemonic();
  // Narrowing between integers and formats has no instruction for a vector.
  if (!widens && mnemonic != "fcvt") return false;
  i.size = element_d;
  i.converts = mnemonic == "fcvt"    ? (widens ? Conversion::widen : Conversion::narrow)
               : mnemonic == "scvtf" ? Conversion::from_signed
               : mnemonic == "ucvtf" ? Conversion::from_unsigned
                                     : Conversion::widen_and_convert;
  i.how = Action::convert;
  return true;
}

// What of the table's lines the emitters know.
bool is_known_form(Insn& i) {
  const decode::Row& row = *i.row;
  const bool z_to_z = i.d != no_register && i.x_used == 0;
  const bool exists = i.form->sizes >> i.size & 1;
  switch (i.how) {
    case Action::binary:
    case Action::reversed: {
      const bool is_logic = i.form == &v_and_v || i.form == &v_orr_v || i.form == &v_eor_v || i.form == &v_bic_v;
      if (!z_to_z || !has_one_size(row)) return false;
      return (exists || is_logic || is_extreme(i)) && i.source_count + i.has_immediate == 2;
    }
    case Action::fp_binary:
    case Action::fp_reversed:
    case Action::fp_divide:
    case Action::fp_divide_reversed:
      return z_to_z && exists && has_one_size(row) && i.source_count + i.has_immediate == 2;
    case Action::fused:
    case Action::fp_fused:
    case Action::fp_fused_negated:
      return z_to_z && exists && has_one_size(row) && i.source_count == 3 && !i.has_immediate;
    case Action::complex_fused:
      return z_to_z && i.size == element_s && has_one_size(row) && i.source_count == 3 && i.pg != no_register;
    case Action::unary: {
      const bool is_bytes = i.form == &v_cnt_v || i.form == &v_rbit_v;
      return z_to_z && (exists || i.form == &v_mvn_v) && !(is_bytes && i.size != element_b) && i.source_count == 1 &&
             !i.has_immediate;
    }
    case Action::fp_unary:
      if (!z_to_z || i.source_count != 1 || i.has_immediate) return false;
      return has_one_size(row) ? exists : takes_conversion(i);
    case Action::convert:
      return takes_conversion(i);
    case Action::reverse:
      return z_to_z && i.source_count == 1;
    case Action::extend_signed:
    case Action::extend_unsigned:
      return z_to_z && i.source_count == 1;
    case Action::shift_left:
    case Action::shift_right:
    case Action::shift_right_signed:
      if (!z_to_z || !has_one_size(row)) return false;
      return i.has_immediate ? i.source_count == 1 : i.source_count == 2 && i.pg != no_register && i.size <= element_s;
    case Action::move:
      return z_to_z && i.source_count == 1;
    case Action::select:
      return z_to_z && i.source_count == 2;
    case Action::copy:
      return i.d != no_register && i.source_count == 0 && (i.has_immediate || (i.xn != no_register && i.xn != sp));
    case Action::load:
    case Action::store: {
      const auto address = row.form->address;
      if (row.function->access == AccessKind::fill || row.function->access == AccessKind::spill)
        return row.operands()[0].kind == OperandKind::z;
      if (row.function->access != AccessKind::load && row.function->access != AccessKind::store) return false;
      const bool is_contiguous =
          address == decode::AddressForm::base_immediate || address == decode::AddressForm::base_index;
      if (row.function->registers != 1) {
        i.is_store = i.how == Action::store;
        i.how = Action::structure;
        const unsigned first = i.is_store ? i.sources[0] : i.d;
        return is_contiguous && first + row.function->registers <= 32;
      }
      if (address == decode::AddressForm::base_vector || address == decode::AddressForm::vector_immediate) {
        const bool loads = i.how == Action::load;
        i.how = loads ? Action::gather : Action::scatter;
        return row.function->memory_bytes >= 4;
      }
      return is_contiguous;
    }
    case Action::nothing:
    case Action::set_ffr:
    case Action::read_ffr:
    case Action::test:
      return true;
    case Action::count_active:
      return i.xd != no_register && i.d == no_register;
    case Action::compact:
      return i.size >= element_s;
    case Action::compare:
    case Action::compare_reversed:
    case Action::compare_not:
    case Action::fp_compare:
    case Action::fp_compare_reversed:
    case Action::fp_compare_not:
      // With 0 where there is nothing else.
      if (is_floating(i.how) && i.source_count == 1) i.has_immediate = true;
      return exists && i.pd != no_register && has_one_size(row) && i.source_count + i.has_immediate == 2;
    case Action::unpack_low:
    case Action::unpack_high:
      return z_to_z && i.source_count == 1;
    case Action::sum:
      return i.d != no_register && i.source_count == 1;
    case Action::reduce:
      return exists && i.d != no_register && i.source_count == 1;
    case Action::fp_sum:
      return i.d != no_register && i.size >= element_s && i.source_count == 1;
    case Action::fp_ordered_sum:
      return i.size >= element_s;
    case Action::series:
      return i.d != no_register;
    case Action::replicate:
      return row.function->access == AccessKind::replicate && i.xn != sp;
    case Action::while_unsigned:
    case Action::while_signed:
    case Action::set_pattern:
      return i.pd != no_register;
    case Action::count:
    case Action::count_up:
    case Action::count_down:
      if (i.d != no_register) {
        // Of vectors: the number is added to each element.
        i.immediate =
            VecTrueILength(static_cast<unsigned long>(i.immediate), static_cast<int>(vector_bytes >> i.size)) *
            i.second_immediate;
        i.form = i.how == Action::count_up ? &v_add : &v_sub;
        i.how = Action::binary;
        return i.source_count == 1;
      }
      i.size = count_size(row.mnemonic());
      return i.xd != no_register;
    case Action::add_length:
      return i.xd != sp;
    case Action::read_length:
      return true;
    default:
      return false;
  }
}

// The rows by their handlers, and their native forms once they have been looked for, so that nothing is searched for
// twice. What shares a handler is the same instruction to it.
class RowTable {
 public:
  struct Entry {
    const decode::Row* row;
    const NativeForm* form;  // null: none, or not looked for
    bool is_known;
  };
  Entry& find(DecodeHandler handle) {
    if (!filled_) fill();
    std::size_t at = place(handle);
    while (entries_[at].row && entries_[at].row->handle != handle) at = (at + 1) % size;
    return entries_[at];
  }
  const NativeForm* form_of(Entry& e) {
    if (!e.is_known) e.form = find_native(e.row->mnemonic());
    e.is_known = true;
    return e.form;
  }

 private:
  static constexpr std::size_t size = 4096;
  static std::size_t place(DecodeHandler handle) {
    return reinterpret_cast<std::uintptr_t>(handle) * 0x9e3779b97f4a7c15u >> 52;
  }
  void fill() {
    filled_ = true;
    for (const decode::Map* map : decode::maps_in_is_sve_order())
      for (const decode::Row& row : map->rows) find(row.handle).row = &row;
  }
  Entry entries_[size] = {};
  bool filled_ = false;
};
constinit RowTable rows;

}  // namespace

Insn decode_insn(std::uint32_t word, DecodeHandler handle) {
  Insn i;
  i.word = word;
  if (!handle) {  // it has none where it is no instruction of ours
    i.how = Action::scalar;
    if (word != nop)
      i.x_used = 1u << (word & 31) | 1u << (word >> 5 & 31) | 1u << (word >> 10 & 31) | 1u << (word >> 16 & 31);
    i.writes_x = true;
    return i;
  }
  RowTable::Entry& found_row = rows.find(handle);
  i.row = found_row.row;
  const std::uint8_t size = i.row->form->element_size;
  if (size != Operand::no_size) i.size = size;
  for (const Operand& o : i.row->operands()) note_operand(i, o);
  const NativeForm* found = rows.form_of(found_row);
  if (!found) return i;
  i.how = found->how;
  i.form = found->form;
  // mad and its kin overwrite a factor; the addend is their last operand.
  if (i.row->mnemonic().ends_with("mad") || i.row->mnemonic().ends_with("msb")) i.accumulates = false;
  if (i.d == no_register && i.pd != no_register && i.pm != no_register && i.pg != no_register) {
    i.how = Action::logic;
    const bool known = i.form == &v_and_v || i.form == &v_orr_v || i.form == &v_eor_v || i.form == &v_bic_v;
    if (!known || i.inactive != Predication::zeroing) i.how = Action::none;
    return i;
  }
  const bool exists = is_known_form(i);
  if (!exists || i.size > element_d || (is_floating(i.how) && i.size == element_h && !half_precision))
    i.how = Action::none;
  return i;
}

const decode::Row* find_row(DecodeHandler handle) { return rows.find(handle).row; }

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

bool has_native_form(std::uint32_t word) { return decode_insn(word, is_sve(word)).how != Action::none; }

}  // namespace sve::runner
