#include "sve/decode/words.h"

namespace sve::decode {

namespace {

// What must not be all zero: the element size, bits 23 and 22, and the size that a shift's amount is encoded with.
constexpr std::uint32_t size = 0x00c00000, shift = 0x00d80000, narrow_shift = 0x00580000, predicated_shift = 0x00c00300;

// Each group in the order of its words. The first form that fits names the word.
// One aligned form per line.
// clang-format off
constexpr ExtensionForm forms[] = {
    // The optional parts of the first version of the vectors.
    {0xffe0f000, 0x05a00000, 0, "F64MM"},                   // zip1, zip2, uzp1, uzp2 of quadwords
    {0xffe0f800, 0x05a01800, 0, "F64MM"},                   // trn1, trn2
    {0xffe0fc00, 0x64e0e400, 0, "F64MM"},                   // fmmla
    {0xfe70e000, 0xa4202000, 0, "F64MM"},                   // ld1rob to ld1rod, immediate
    {0xfe7fe000, 0xa43f0000, 0, nullptr},                   // ... and by register, which 31 is not
    {0xfe60e000, 0xa4200000, 0, "F64MM"},
    {0xffe0fc00, 0x64a0e400, 0, "F32MM"},                   // fmmla
    {0xffe0fc00, 0x44807800, 0, "I8MM"},                    // usdot
    {0xffe0f800, 0x44a01800, 0, "I8MM"},                    // usdot, sudot by element
    {0xffe0fc00, 0x45009800, 0, "I8MM"},                    // smmla
    {0xffa0fc00, 0x45809800, 0, "I8MM"},                    // usmmla, ummla
    {0xffe0fc00, 0x64604000, 0, "BF16"},                    // bfdot by element
    {0xffe0fc00, 0x64608000, 0, "BF16"},                    // bfdot
    {0xffe0fc00, 0x6460e400, 0, "BF16"},                    // bfmmla
    {0xffffe000, 0x648aa000, 0, "BF16"},                    // bfcvtnt
    {0xffe0f000, 0x64e04000, 0, "BF16"},                    // bfmlalb, bfmlalt by element
    {0xffe0f800, 0x64e08000, 0, "BF16"},                    // bfmlalb, bfmlalt
    {0xffffe000, 0x658aa000, 0, "BF16"},                    // bfcvt

    // What the matrices bring for vectors.
    {0xffe0f800, 0x04205800, 0, "SME"},                     // addsvl
    {0xffe0f800, 0x04605800, 0, "SME"},                     // addspl
    {0xfffff800, 0x04bf5800, 0, "SME"},                     // rdsvl
    {0xffffe000, 0x052e8000, 0, "SME"},                     // revd
    {0xff20c210, 0x25204000, 0x005c0000, "SME"},            // psel
    {0xff20f800, 0x4400c000, 0, "SME"},                     // sclamp, uclamp

    // The optional parts of the second version.
    {0xffe0f800, 0x45006800, 0, "SVE2-AES"},                // pmullb, pmullt of doublewords
    {0xfffffbe0, 0x4520e000, 0, "SVE2-AES"},                // aesmc, aesimc
    {0xfffff800, 0x4522e000, 0, "SVE2-AES"},                // aese, aesd
    {0xfffffc00, 0x4523e000, 0, "SVE2-SM4"},                // sm4e
    {0xffe0fc00, 0x4520f000, 0, "SVE2-SM4"},                // sm4ekey
    {0xffe0fc00, 0x4520f400, 0, "SVE2-SHA3"},               // rax1
    {0xff20f800, 0x4500b000, 0, "SVE2-BitPerm"},            // bext, bdep
    {0xff20fc00, 0x4500b800, 0, "SVE2-BitPerm"},            // bgrp

    // Integers, in the opcodes of the first version.
    {0xff3ee000, 0x04068000, predicated_shift, "SVE2"},     // sqshl, uqshl by immediate
    {0xff3ee000, 0x040c8000, predicated_shift, "SVE2"},     // srshr, urshr
    {0xff3fe000, 0x040f8000, predicated_shift, "SVE2"},     // sqshlu
    {0xff20fc00, 0x04203400, shift, "SVE2"},                // xar
    {0xffa0fc00, 0x04a03800, 0, nullptr},
    {0xff20f800, 0x04203800, 0, "SVE2"},                    // eor3, bcax, bsl, bsl1n, bsl2n, nbsl
    {0xff20fc00, 0x04206000, 0, "SVE2"},                    // mul
    {0xffe0fc00, 0x04206400, 0, "SVE2"},                    // pmul
    {0xff20f800, 0x04206800, 0, "SVE2"},                    // smulh, umulh
    {0xff20f800, 0x04207000, 0, "SVE2"},                    // sqdmulh, sqrdmulh
    {0xff20f800, 0x05202800, 0, "SVE2"},                    // tbl of two vectors, tbx
    {0xff3fe000, 0x052d8000, 0, "SVE2"},                    // splice of two vectors
    {0xffe0e000, 0x05600000, 0, "SVE2"},                    // ext of two vectors
    {0xff20e400, 0x25200000, 0, "SVE2"},                    // whilege, whilegt, whilehs, whilehi
    {0xff20fc00, 0x25203000, 0, "SVE2"},                    // whilewr, whilerw

    // Multiply-add, predicated integers.
    {0xff20f800, 0x44000800, size, "SVE2"},                 // sqdmlalbt, sqdmlslbt
    {0xffa0f000, 0x44801000, 0, "SVE2"},                    // cdot
    {0xff20e000, 0x44002000, 0, "SVE2"},                    // cmla, sqrdcmlah
    {0xff20e000, 0x44004000, size, "SVE2"},                 // smlalb, umlalb, smlslb, umlslb and those of top elements
    {0xff20f000, 0x44006000, size, "SVE2"},                 // sqdmlalb, sqdmlslb
    {0xff20f800, 0x44007000, 0, "SVE2"},                    // sqrdmlah, sqrdmlsh
    {0xff3ae000, 0x44028000, 0, "SVE2"},                    // srshl, urshl, srshlr, urshlr
    {0xff38e000, 0x44088000, 0, "SVE2"},                    // sqshl, uqshl, sqrshl, uqrshl and reversed
    {0xff30e000, 0x44108000, 0, "SVE2"},                    // shadd, shsub, srhadd, sqadd, sqsub, suqadd and unsigned
    {0xfffee000, 0x4480a000, 0, "SVE2"},                    // urecpe, ursqrte
    {0xff3ee000, 0x4404a000, size, "SVE2"},                 // sadalp, uadalp
    {0xff3ee000, 0x4408a000, 0, "SVE2"},                    // sqabs, sqneg
    {0xff3fe000, 0x4411a000, 0, "SVE2"},                    // addp
    {0xff3ce000, 0x4414a000, 0, "SVE2"},                    // smaxp, umaxp, sminp, uminp

    // By element.
    {0xff20f800, 0x44200800, 0, "SVE2"},                    // mla, mls
    {0xff20f800, 0x44201000, 0, "SVE2"},                    // sqrdmlah, sqrdmlsh
    {0xffa0e000, 0x44a02000, 0, "SVE2"},                    // sqdmlalb, sqdmlslb
    {0xffa0f000, 0x44a04000, 0, "SVE2"},                    // cdot
    {0xffa0e000, 0x44a06000, 0, "SVE2"},                    // cmla, sqrdcmlah
    {0xffa0c000, 0x44a08000, 0, "SVE2"},                    // smlalb, umlalb, smlslb, umlslb
    {0xffa0e000, 0x44a0c000, 0, "SVE2"},                    // smullb, umullb
    {0xffa0f000, 0x44a0e000, 0, "SVE2"},                    // sqdmullb
    {0xff20f800, 0x4420f000, 0, "SVE2"},                    // sqdmulh, sqrdmulh
    {0xff20fc00, 0x4420f800, 0, "SVE2"},                    // mul

    // Widening, narrowing, accumulating.
    {0xff20e000, 0x45000000, size, "SVE2"},                 // saddlb, ssublb, uaddlb, usublb
    {0xff20f000, 0x45003000, size, "SVE2"},                 // sabdlb, uabdlb
    {0xff20e000, 0x45004000, size, "SVE2"},                 // saddwb, ssubwb, uaddwb, usubwb
    {0xffe0f800, 0x45806800, 0, nullptr},
    {0xff20e000, 0x45006000, size, "SVE2"},                 // sqdmullb, pmullb, smullb, umullb
    {0xff20fc00, 0x45008000, size, "SVE2"},                 // saddlbt
    {0xff20f800, 0x45008800, size, "SVE2"},                 // ssublbt, ssubltb
    {0xff20f800, 0x45009000, 0, "SVE2"},                    // eorbt, eortb
    {0xffa0f000, 0x4500a000, narrow_shift, "SVE2"},         // sshllb, ushllb
    {0xff20f000, 0x4500c000, size, "SVE2"},                 // sabalb, uabalb
    {0xff20f800, 0x4500d000, 0, "SVE2"},                    // adclb, sbclb
    {0xff3ef800, 0x4500d800, 0, "SVE2"},                    // cadd, sqcadd
    {0xff20f000, 0x4500e000, shift, "SVE2"},                // ssra, usra, srsra, ursra
    {0xff20f800, 0x4500f000, shift, "SVE2"},                // sri, sli
    {0xff20f800, 0x4500f800, 0, "SVE2"},                    // saba, uaba
    {0xffa0c000, 0x45200000, narrow_shift, "SVE2"},         // shrnb, rshrnb, sqshrnb, sqshrunb, uqshrnb and rounding
    {0xfffff800, 0x45285800, 0, nullptr},
    {0xffffe000, 0x45284000, 0, "SVE2"},                    // sqxtnb, uqxtnb, sqxtunb to bytes
    {0xfffff800, 0x45305800, 0, nullptr},
    {0xffffe000, 0x45304000, 0, "SVE2"},                    // ... to halves
    {0xfffff800, 0x45605800, 0, nullptr},
    {0xffffe000, 0x45604000, 0, "SVE2"},                    // ... to words
    {0xff20e000, 0x45206000, size, "SVE2"},                 // addhnb, subhnb, raddhnb, rsubhnb
    {0xffa0e010, 0x45208000, 0, "SVE2"},                    // match
    {0xffa0e010, 0x45208010, 0, "SVE2"},                    // nmatch
    {0xffe0fc00, 0x4520a000, 0, "SVE2"},                    // histseg
    {0xffa0e000, 0x45a0c000, 0, "SVE2"},                    // histcnt

    // Floating point.
    {0xff3fe000, 0x64108000, size, "SVE2"},                 // faddp
    {0xff3ce000, 0x64148000, size, "SVE2"},                 // fmaxnmp, fminnmp, fmaxp, fminp
    {0xffffe000, 0x640aa000, 0, "SVE2"},                    // fcvtxnt
    {0xfffee000, 0x6488a000, 0, "SVE2"},                    // fcvtnt, fcvtlt of halves
    {0xfffee000, 0x64caa000, 0, "SVE2"},                    // ... of words
    {0xffe0d000, 0x64a04000, 0, "SVE2"},                    // fmlalb, fmlslb by element
    {0xffe0d800, 0x64a08000, 0, "SVE2"},                    // fmlalb, fmlslb
    {0xffffe000, 0x650aa000, 0, "SVE2"},                    // fcvtx
    {0xfff9e000, 0x6518a000, 0x00060000, "SVE2"},           // flogb

    // Memory: vectors of addresses, without a place in the caches.
    {0xff60e000, 0x84008000, 0, "SVE2"},                    // ldnt1sb, ldnt1sh to words
    {0xff60e000, 0x8400a000, 0, "SVE2"},                    // ldnt1b, ldnt1h to words
    {0xffe0e000, 0x8500a000, 0, "SVE2"},                    // ldnt1w to words
    {0xff60a000, 0xc4008000, 0, "SVE2"},                    // ldnt1sb, ldnt1sh, ldnt1b, ldnt1h
    {0xffe0a000, 0xc5008000, 0, "SVE2"},                    // ldnt1sw, ldnt1w
    {0xffe0e000, 0xc580c000, 0, "SVE2"},                    // ldnt1d
    {0xfe60e000, 0xe4002000, 0, "SVE2"},                    // stnt1b to stnt1d
    {0xff60e000, 0xe4402000, 0, "SVE2"},                    // stnt1b, stnt1h of words
    {0xffe0e000, 0xe5402000, 0, "SVE2"},                    // stnt1w of words

    // Matrices.
    {0xffe0000c, 0x80800000, 0, "SME"},                     // fmopa, fmops of words
    {0xffe00008, 0x80c00000, 0, "SME"},                     // ... of doublewords
    {0xffe0000c, 0x81800000, 0, "SME"},                     // bfmopa, bfmops
    {0xffe0000c, 0x81a00000, 0, "SME"},                     // fmopa, fmops of halves
    {0xfec0000c, 0xa0800000, 0, "SME"},                     // smopa, sumopa, usmopa, umopa and differences
    {0xfec00008, 0xa0c00000, 0, "SME"},                     // ... of halves
    {0xff3f0010, 0xc0000000, 0, "SME"},                     // mova into tiles
    {0xffff0010, 0xc0c10000, 0, "SME"},
    {0xff3f0200, 0xc0020000, 0, "SME"},                     // mova out of tiles
    {0xffff0200, 0xc0c30000, 0, "SME"},
    {0xffffff00, 0xc0080000, 0, "SME"},                     // zero
    {0xfffe001c, 0xc0900000, 0, "SME"},                     // addha, addva
    {0xfffe0018, 0xc0d00000, 0, "SME"},
    {0xff000010, 0xe0000000, 0, "SME"},                     // ld1b to ld1d, st1b to st1d
    {0xffdf9c10, 0xe1000000, 0, "SME"},                     // ldr, str
    {0xffc00010, 0xe1c00000, 0, "SME"},                     // ld1q, st1q
    {0x9e000000, 0x80000000, 0, "SME2 or later"},           // their whole opcode
};
// clang-format on

}  // namespace

std::span<const ExtensionForm> extension_forms() { return forms; }

const char* extension_of(std::uint32_t word) {
  for (const ExtensionForm& form : forms)
    if ((word & form.mask) == form.value && (form.some == 0 || (word & form.some) != 0)) return form.name;
  return nullptr;
}

}  // namespace sve::decode
