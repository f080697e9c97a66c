#include "sve/decode/unallocated.h"

namespace sve::decode {

namespace {

constexpr const char index_31[] = "the index of a contiguous access is the zero register";
constexpr const char shifted_8_bit[] = "an immediate of 8-bit elements is shifted left by 8";
constexpr const char all_ones[] = "a logical immediate fills its element with ones";

constexpr UnallocatedForm forms[] = {
    // Rm, bits 20 to 16.
    {0xfe1fe000, 0xa41f4000, index_31},  // ld1
    {0xfe1fe000, 0xa41fc000, index_31},  // ldnt1, ld2, ld3, ld4
    {0xfe1fe000, 0xa41f0000, index_31},  // ld1rq
    {0xff1fe000, 0xe41f4000, index_31},  // st1, which shares its bits with str
    {0xff9fe000, 0xe51f4000, index_31},
    {0xffdfe000, 0xe5df4000, index_31},
    {0xfe1fe000, 0xe41f6000, index_31},  // stnt1, st2, st3, st4
    {0xfe7fe010, 0x841fc000, index_31},  // prfb, prfh, prfw, prfd
    // sh, bit 13.
    {0xfff8e000, 0x2520e000, shifted_8_bit},  // add, sub, subr, sqadd, uqadd, sqsub, uqsub
    {0xffffe000, 0x2538e000, shifted_8_bit},  // dup
    {0xfff0a000, 0x05102000, shifted_8_bit},  // cpy
    // N and imms, bits 17 and 10 to 5, of and, orr, eor and dupm: elements of 64, 32, 16, 8, 4 and 2 bits; the last
    // form
    // has none that is wide enough either.
    {0xff3e07e0, 0x050207e0, all_ones},
    {0xff3e07e0, 0x050003e0, all_ones},
    {0xff3e07e0, 0x050005e0, all_ones},
    {0xff3e07e0, 0x050006e0, all_ones},
    {0xff3e07e0, 0x05000760, all_ones},
    {0xff3e07e0, 0x050007a0, all_ones},
    {0xff3e07c0, 0x050007c0, all_ones},
};

}  // namespace

std::span<const UnallocatedForm> unallocated_forms() { return forms; }

bool is_unallocated(std::uint32_t word) {
  for (const UnallocatedForm& form : forms)
    if ((word & form.mask) == form.value) return true;
  return false;
}

}  // namespace sve::decode
