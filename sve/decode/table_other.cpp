// Rows of the remaining maps.
#include "sve/decode/rows.h"

// One aligned row per encoding.
// clang-format off
namespace sve::decode {

SVE_ROWS(31_0, {
  DIRECT(0x252c9000, VecPClearFFSR, sve_setffr, no_operands),
})

SVE_ROWS(31_9__4_0, {
  DIRECT(0x2528900, VecPWriteFFSRP, sve_wrffr_p, p_src),
})

SVE_ROWS(31_4, {
  DIRECT(0x2518e40, VecPFalse,     sve_pfalse_p, p_dst),
  DIRECT(0x2519f00, VecPReadFFSRP, sve_rdffr_p,  p_dst),
})

SVE_ROWS(31_9__4_4, {
  DIRECT( 0x53040,  VecPUnpackLoP,       sve_punpklo_pp, pp<h, b>),
  DIRECT( 0x53140,  VecPUnpackHiP,       sve_punpkhi_pp, pp<h, b>),
  DIRECT( 0x53440,  VecP8ReverseP,       sve_rev_pp,     pp<b, b>),
  DIRECT( 0x57440,  VecP16ReverseP,      sve_rev_pp,     pp<h, h>),
  DIRECT( 0x5b440,  VecP32ReverseP,      sve_rev_pp,     pp<s, s>),
  DIRECT( 0x5f440,  VecP64ReverseP,      sve_rev_pp,     pp<d, d>),
  DIRECT( 0x2518f0, VecPActualP,         sve_rdffr_pp,   pp_rdffr),
  DIRECT( 0x2519c4, VecP8GenNextP,       sve_pnext_pp,   pp_next<b>),
  LIBRARY(0x2558c0, VecPSetFirstActiveP, sve_pfirst_pp,  pp_next<b>),
  LIBRARY(0x2558f0, VecPActualFlgP,      sve_rdffrs_pp,  pp_rdffr),
  DIRECT( 0x2559c4, VecP16GenNextP,      sve_pnext_pp,   pp_next<h>),
  DIRECT( 0x2599c4, VecP32GenNextP,      sve_pnext_pp,   pp_next<s>),
  DIRECT( 0x25d9c4, VecP64GenNextP,      sve_pnext_pp,   pp_next<d>),
})

SVE_ROWS(31_14__9_9__4_0, {
  DIRECT(0x2550c0, VecPTestPZ, sve_ptest_pp, pp_test),
})

SVE_ROWS(31_10__4_4, {
  DIRECT( 0x128c70, VecP8TrueI,     sve_ptrue_pi,  pi_pattern<b>),
  LIBRARY(0x128cf0, VecP8TrueFlgI,  sve_ptrues_pi, pi_pattern<b>),
  DIRECT( 0x12ac70, VecP16TrueI,    sve_ptrue_pi,  pi_pattern<h>),
  LIBRARY(0x12acf0, VecP16TrueFlgI, sve_ptrues_pi, pi_pattern<h>),
  DIRECT( 0x12cc70, VecP32TrueI,    sve_ptrue_pi,  pi_pattern<s>),
  LIBRARY(0x12ccf0, VecP32TrueFlgI, sve_ptrues_pi, pi_pattern<s>),
  DIRECT( 0x12ec70, VecP64TrueI,    sve_ptrue_pi,  pi_pattern<d>),
  LIBRARY(0x12ecf0, VecP64TrueFlgI, sve_ptrues_pi, pi_pattern<d>),
})

SVE_ROWS(31_9, {
  LIBRARY(0x129444, VecS8QIncrSCount4PS,  sve_sqincp_rpr, rpr_count<b>),
  LIBRARY(0x129446, VecS8QIncrSCount8PS,  sve_sqincp_rp,  rp_count<b>),
  LIBRARY(0x1294c4, VecU8QIncrSCount4PS,  sve_uqincp_rp,  rp_count<b, s>),
  LIBRARY(0x1294c6, VecU8QIncrSCount8PS,  sve_uqincp_rp,  rp_count<b>),
  LIBRARY(0x129544, VecS8QDecrSCount4PS,  sve_sqdecp_rpr, rpr_count<b>),
  LIBRARY(0x129546, VecS8QDecrSCount8PS,  sve_sqdecp_rp,  rp_count<b>),
  LIBRARY(0x1295c4, VecU8QDecrSCount4PS,  sve_uqdecp_rp,  rp_count<b, s>),
  LIBRARY(0x1295c6, VecU8QDecrSCount8PS,  sve_uqdecp_rp,  rp_count<b>),
  DIRECT( 0x129644, VecU8IncrSCountPS,    sve_incp_rp,    rp_count<b>),
  LIBRARY(0x1296c4, VecU8DecrSCountPS,    sve_decp_rp,    rp_count<b>),
  LIBRARY(0x12b440, VecS16QIncrCountPV,   sve_sqincp_zp,  zp_count<h>),
  LIBRARY(0x12b444, VecS16QIncrSCount4PS, sve_sqincp_rpr, rpr_count<h>),
  LIBRARY(0x12b446, VecS16QIncrSCount8PS, sve_sqincp_rp,  rp_count<h>),
  LIBRARY(0x12b4c0, VecU16QIncrCountPV,   sve_uqincp_zp,  zp_count<h>),
  LIBRARY(0x12b4c4, VecU16QIncrSCount4PS, sve_uqincp_rp,  rp_count<h, s>),
  LIBRARY(0x12b4c6, VecU16QIncrSCount8PS, sve_uqincp_rp,  rp_count<h>),
  LIBRARY(0x12b540, VecS16QDecrCountPV,   sve_sqdecp_zp,  zp_count<h>),
  LIBRARY(0x12b544, VecS16QDecrSCount4PS, sve_sqdecp_rpr, rpr_count<h>),
  LIBRARY(0x12b546, VecS16QDecrSCount8PS, sve_sqdecp_rp,  rp_count<h>),
  LIBRARY(0x12b5c0, VecU16QDecrCountPV,   sve_uqdecp_zp,  zp_count<h>),
  LIBRARY(0x12b5c4, VecU16QDecrSCount4PS, sve_uqdecp_rp,  rp_count<h, s>),
  LIBRARY(0x12b5c6, VecU16QDecrSCount8PS, sve_uqdecp_rp,  rp_count<h>),
  LIBRARY(0x12b640, VecU16IncrCountPV,    sve_incp_zp,    zp_count<h>),
  DIRECT( 0x12b644, VecU16IncrSCountPS,   sve_incp_rp,    rp_count<h>),
  LIBRARY(0x12b6c0, VecU16DecrCountPV,    sve_decp_zp,    zp_count<h>),
  LIBRARY(0x12b6c4, VecU16DecrSCountPS,   sve_decp_rp,    rp_count<h>),
  LIBRARY(0x12d440, VecS32QIncrCountPV,   sve_sqincp_zp,  zp_count<s>),
  LIBRARY(0x12d444, VecS32QIncrSCount4PS, sve_sqincp_rpr, rpr_count<s>),
  LIBRARY(0x12d446, VecS32QIncrSCount8PS, sve_sqincp_rp,  rp_count<s>),
  LIBRARY(0x12d4c0, VecU32QIncrCountPV,   sve_uqincp_zp,  zp_count<s>),
  LIBRARY(0x12d4c4, VecU32QIncrSCount4PS, sve_uqincp_rp,  rp_count<s, s>),
  LIBRARY(0x12d4c6, VecU32QIncrSCount8PS, sve_uqincp_rp,  rp_count<s>),
  LIBRARY(0x12d540, VecS32QDecrCountPV,   sve_sqdecp_zp,  zp_count<s>),
  LIBRARY(0x12d544, VecS32QDecrSCount4PS, sve_sqdecp_rpr, rpr_count<s>),
  LIBRARY(0x12d546, VecS32QDecrSCount8PS, sve_sqdecp_rp,  rp_count<s>),
  LIBRARY(0x12d5c0, VecU32QDecrCountPV,   sve_uqdecp_zp,  zp_count<s>),
  LIBRARY(0x12d5c4, VecU32QDecrSCount4PS, sve_uqdecp_rp,  rp_count<s, s>),
  LIBRARY(0x12d5c6, VecU32QDecrSCount8PS, sve_uqdecp_rp,  rp_count<s>),
  LIBRARY(0x12d640, VecU32IncrCountPV,    sve_incp_zp,    zp_count<s>),
  DIRECT( 0x12d644, VecU32IncrSCountPS,   sve_incp_rp,    rp_count<s>),
  LIBRARY(0x12d6c0, VecU32DecrCountPV,    sve_decp_zp,    zp_count<s>),
  LIBRARY(0x12d6c4, VecU32DecrSCountPS,   sve_decp_rp,    rp_count<s>),
  LIBRARY(0x12f440, VecS64QIncrCountPV,   sve_sqincp_zp,  zp_count<d>),
  LIBRARY(0x12f444, VecS64QIncrSCount4PS, sve_sqincp_rpr, rpr_count<d>),
  LIBRARY(0x12f446, VecS64QIncrSCount8PS, sve_sqincp_rp,  rp_count<d>),
  LIBRARY(0x12f4c0, VecU64QIncrCountPV,   sve_uqincp_zp,  zp_count<d>),
  LIBRARY(0x12f4c4, VecU64QIncrSCount4PS, sve_uqincp_rp,  rp_count<d, s>),
  LIBRARY(0x12f4c6, VecU64QIncrSCount8PS, sve_uqincp_rp,  rp_count<d>),
  LIBRARY(0x12f540, VecS64QDecrCountPV,   sve_sqdecp_zp,  zp_count<d>),
  LIBRARY(0x12f544, VecS64QDecrSCount4PS, sve_sqdecp_rpr, rpr_count<d>),
  LIBRARY(0x12f546, VecS64QDecrSCount8PS, sve_sqdecp_rp,  rp_count<d>),
  LIBRARY(0x12f5c0, VecU64QDecrCountPV,   sve_uqdecp_zp,  zp_count<d>),
  LIBRARY(0x12f5c4, VecU64QDecrSCount4PS, sve_uqdecp_rp,  rp_count<d, s>),
  LIBRARY(0x12f5c6, VecU64QDecrSCount8PS, sve_uqdecp_rp,  rp_count<d>),
  LIBRARY(0x12f640, VecU64IncrCountPV,    sve_incp_zp,    zp_count<d>),
  DIRECT( 0x12f644, VecU64IncrSCountPS,   sve_incp_rp,    rp_count<d>),
  LIBRARY(0x12f6c0, VecU64DecrCountPV,    sve_decp_zp,    zp_count<d>),
  LIBRARY(0x12f6c4, VecU64DecrSCountPS,   sve_decp_rp,    rp_count<d>),
})

SVE_ROWS(31_13__9_6, {
  LIBRARY(  0x32ac40, VecF16AddVIM,    sve_fadd_zpi,   zpi_half_one<h>),
  LIBRARY(  0x32acc0, VecF16SubVIM,    sve_fsub_zpi,   zpi_half_one<h>),
  LIBRARY(  0x32ad40, VecF16MulVIM,    sve_fmul_zpi,   zpi_half_two<h>),
  LIBRARY(  0x32adc0, VecF16SubRVIM,   sve_fsubr_zpi,  zpi_half_one<h>),
  LIBRARY(  0x32ae40, VecF16MaxNumVIM, sve_fmaxnm_zpi, zpi_zero_one<h>),
  LIBRARY(  0x32aec0, VecF16MinNumVIM, sve_fminnm_zpi, zpi_zero_one<h>),
  LIBRARY(  0x32af40, VecF16MaxVIM,    sve_fmax_zpi,   zpi_zero_one<h>),
  LIBRARY(  0x32afc0, VecF16MinVIM,    sve_fmin_zpi,   zpi_zero_one<h>),
  DIRECT_FP(0x32cc40, VecF32AddVIM,    sve_fadd_zpi,   zpi_half_one<s>),
  DIRECT_FP(0x32ccc0, VecF32SubVIM,    sve_fsub_zpi,   zpi_half_one<s>),
  DIRECT_FP(0x32cd40, VecF32MulVIM,    sve_fmul_zpi,   zpi_half_two<s>),
  DIRECT_FP(0x32cdc0, VecF32SubRVIM,   sve_fsubr_zpi,  zpi_half_one<s>),
  LIBRARY(  0x32ce40, VecF32MaxNumVIM, sve_fmaxnm_zpi, zpi_zero_one<s>),
  LIBRARY(  0x32cec0, VecF32MinNumVIM, sve_fminnm_zpi, zpi_zero_one<s>),
  LIBRARY(  0x32cf40, VecF32MaxVIM,    sve_fmax_zpi,   zpi_zero_one<s>),
  LIBRARY(  0x32cfc0, VecF32MinVIM,    sve_fmin_zpi,   zpi_zero_one<s>),
  DIRECT_FP(0x32ec40, VecD64AddVIM,    sve_fadd_zpi,   zpi_half_one<d>),
  DIRECT_FP(0x32ecc0, VecD64SubVIM,    sve_fsub_zpi,   zpi_half_one<d>),
  DIRECT_FP(0x32ed40, VecD64MulVIM,    sve_fmul_zpi,   zpi_half_two<d>),
  DIRECT_FP(0x32edc0, VecD64SubRVIM,   sve_fsubr_zpi,  zpi_half_one<d>),
  LIBRARY(  0x32ee40, VecD64MaxNumVIM, sve_fmaxnm_zpi, zpi_zero_one<d>),
  LIBRARY(  0x32eec0, VecD64MinNumVIM, sve_fminnm_zpi, zpi_zero_one<d>),
  LIBRARY(  0x32ef40, VecD64MaxVIM,    sve_fmax_zpi,   zpi_zero_one<d>),
  LIBRARY(  0x32efc0, VecD64MinVIM,    sve_fmin_zpi,   zpi_zero_one<d>),
})

SVE_ROWS(31_10, {
  DIRECT(   0x1082f,  VecU32SpecialMoveV, sve_movprfx_zz,     zz_bare),
  LIBRARY(  0x1182e,  VecF16EXPAV,        sve_fexpa_zz,       zz<h>),
  LIBRARY(  0x1282e,  VecF32EXPAV,        sve_fexpa_zz,       zz<s>),
  LIBRARY(  0x1382e,  VecD64EXPAV,        sve_fexpa_zz,       zz<d>),
  DIRECT(   0x1480e,  VecU8DupS,          sve_dup_zr,         zr_dup<b>),
  LIBRARY(  0x1490e,  VecU8InsertS,       sve_insr_zr,        zr_insert<b>),
  LIBRARY(  0x14d0e,  VecB8InsertS,       sve_insr_zv,        zv_insert<b>),
  DIRECT(   0x14e0e,  VecU8ReverseV,      sve_rev_zz,         zz<b>),
  DIRECT(   0x1580e,  VecU16DupS,         sve_dup_zr,         zr_dup<h>),
  LIBRARY(  0x1590e,  VecU16InsertS,      sve_insr_zr,        zr_insert<h>),
  LIBRARY(  0x15c0e,  VecS16UnpackLoV,    sve_sunpklo_b2h_zz, zz_from<h, b>),
  LIBRARY(  0x15c4e,  VecS16UnpackHiV,    sve_sunpkhi_b2h_zz, zz_from<h, b>),
  DIRECT(   0x15c8e,  VecU16UnpackLoV,    sve_uunpklo_b2h_zz, zz_from<h, b>),
  DIRECT(   0x15cce,  VecU16UnpackHiV,    sve_uunpkhi_b2h_zz, zz_from<h, b>),
  LIBRARY(  0x15d0e,  VecH16InsertS,      sve_insr_zv,        zv_insert<h>),
  DIRECT(   0x15e0e,  VecU16ReverseV,     sve_rev_zz,         zz<h>),
  DIRECT(   0x1680e,  VecU32DupS,         sve_dup_zr,         zr_dup<s>),
  LIBRARY(  0x1690e,  VecU32InsertS,      sve_insr_zr,        zr_insert<s>),
  LIBRARY(  0x16c0e,  VecS32UnpackLoV,    sve_sunpklo_h2s_zz, zz_from<s, h>),
  LIBRARY(  0x16c4e,  VecS32UnpackHiV,    sve_sunpkhi_h2s_zz, zz_from<s, h>),
  DIRECT(   0x16c8e,  VecU32UnpackLoV,    sve_uunpklo_h2s_zz, zz_from<s, h>),
  DIRECT(   0x16cce,  VecU32UnpackHiV,    sve_uunpkhi_h2s_zz, zz_from<s, h>),
  LIBRARY(  0x16d0e,  VecF32InsertS,      sve_insr_zv,        zv_insert<s>),
  DIRECT(   0x16e0e,  VecU32ReverseV,     sve_rev_zz,         zz<s>),
  DIRECT(   0x1780e,  VecU64DupS,         sve_dup_zr,         zr_dup<d>),
  LIBRARY(  0x1790e,  VecU64InsertS,      sve_insr_zr,        zr_insert<d>),
  DIRECT(   0x17c0e,  VecS64UnpackLoV,    sve_sunpklo_s2d_zz, zz_from<d, s>),
  DIRECT(   0x17c4e,  VecS64UnpackHiV,    sve_sunpkhi_s2d_zz, zz_from<d, s>),
  DIRECT(   0x17c8e,  VecU64UnpackLoV,    sve_uunpklo_s2d_zz, zz_from<d, s>),
  DIRECT(   0x17cce,  VecU64UnpackHiV,    sve_uunpkhi_s2d_zz, zz_from<d, s>),
  LIBRARY(  0x17d0e,  VecD64InsertS,      sve_insr_zv,        zv_insert<d>),
  DIRECT(   0x17e0e,  VecU64ReverseV,     sve_rev_zz,         zz<d>),
  LIBRARY(  0x19538c, VecF16RecpEV,       sve_frecpe_zz,      zz<h>),
  LIBRARY(  0x1953cc, VecF16RSqrtEV,      sve_frsqrte_zz,     zz<h>),
  DIRECT_FP(0x19638c, VecF32RecpEV,       sve_frecpe_zz,      zz<s>),
  LIBRARY(  0x1963cc, VecF32RSqrtEV,      sve_frsqrte_zz,     zz<s>),
  DIRECT_FP(0x19738c, VecD64RecpEV,       sve_frecpe_zz,      zz<d>),
  LIBRARY(  0x1973cc, VecD64RSqrtEV,      sve_frsqrte_zz,     zz<d>),
})

SVE_ROWS(31_13__9_8, {
  DIRECT( 0x8011, VecS8ShrVIM,  sve_asr_zpi,  zpi_right<b>),
  LIBRARY(0x8031, VecU8ShrVIM,  sve_lsr_zpi,  zpi_right<b>),
  DIRECT( 0x8071, VecU8ShlVIM,  sve_lsl_zpi,  zpi_left<b>),
  LIBRARY(0x8091, VecS8ShrDVIM, sve_asrd_zpi, zpi_right<b>),
})

SVE_ROWS(31_11, {
  DIRECT(0x97ea, VecS64VLX, sve_rdvl_ri, ri_length),
})

SVE_ROWS(31_14__9_9__4_4, {
  DIRECT( 0x25104, VecPBreakAPZ,       sve_brka_ppp,  ppp_break<zeroing>),
  DIRECT( 0x25105, VecPBreakAPM,       sve_brka_ppp,  ppp_break<merging>),
  DIRECT( 0x25184, VecPBreakNextPZ,    sve_brkn_ppp,  ppp_brkn),
  LIBRARY(0x25504, VecPBreakAFlgPZ,    sve_brkas_ppp, ppp_break<zeroing>),
  DIRECT( 0x25584, VecPBreakNextFlgPZ, sve_brkns_ppp, ppp_brkn),
  DIRECT( 0x25904, VecPBreakBPZ,       sve_brkb_ppp,  ppp_break<zeroing>),
  DIRECT( 0x25905, VecPBreakBPM,       sve_brkb_ppp,  ppp_break<merging>),
  LIBRARY(0x25d04, VecPBreakBFlgPZ,    sve_brkbs_ppp, ppp_break<zeroing>),
})

SVE_ROWS(31_13__9_9, {
  DIRECT( 0x4009, VecS16ShrVIM,  sve_asr_zpi,  zpi_right<h>),
  LIBRARY(0x4019, VecU16ShrVIM,  sve_lsr_zpi,  zpi_right<h>),
  DIRECT( 0x4039, VecU16ShlVIM,  sve_lsl_zpi,  zpi_left<h>),
  LIBRARY(0x4049, VecS16ShrDVIM, sve_asrd_zpi, zpi_right<h>),
})

SVE_ROWS(31_13__4_4, {
  LIBRARY(  0x65502, VecF16CmpGEV0Z, sve_fcmge_ppz, ppz<h>),
  LIBRARY(  0x65503, VecF16CmpGTV0Z, sve_fcmgt_ppz, ppz<h>),
  LIBRARY(  0x65512, VecF16CmpLTV0Z, sve_fcmlt_ppz, ppz<h>),
  LIBRARY(  0x65513, VecF16CmpLEV0Z, sve_fcmle_ppz, ppz<h>),
  LIBRARY(  0x65522, VecF16CmpEQV0Z, sve_fcmeq_ppz, ppz<h>),
  LIBRARY(  0x65532, VecF16CmpNEV0Z, sve_fcmne_ppz, ppz<h>),
  DIRECT_FP(0x65902, VecF32CmpGEV0Z, sve_fcmge_ppz, ppz<s>),
  DIRECT_FP(0x65903, VecF32CmpGTV0Z, sve_fcmgt_ppz, ppz<s>),
  DIRECT_FP(0x65912, VecF32CmpLTV0Z, sve_fcmlt_ppz, ppz<s>),
  DIRECT_FP(0x65913, VecF32CmpLEV0Z, sve_fcmle_ppz, ppz<s>),
  DIRECT_FP(0x65922, VecF32CmpEQV0Z, sve_fcmeq_ppz, ppz<s>),
  LIBRARY(  0x65932, VecF32CmpNEV0Z, sve_fcmne_ppz, ppz<s>),
  DIRECT_FP(0x65d02, VecD64CmpGEV0Z, sve_fcmge_ppz, ppz<d>),
  DIRECT_FP(0x65d03, VecD64CmpGTV0Z, sve_fcmgt_ppz, ppz<d>),
  DIRECT_FP(0x65d12, VecD64CmpLTV0Z, sve_fcmlt_ppz, ppz<d>),
  DIRECT_FP(0x65d13, VecD64CmpLEV0Z, sve_fcmle_ppz, ppz<d>),
  DIRECT_FP(0x65d22, VecD64CmpEQV0Z, sve_fcmeq_ppz, ppz<d>),
  LIBRARY(  0x65d32, VecD64CmpNEV0Z, sve_fcmne_ppz, ppz<d>),
})

SVE_ROWS(31_24__21_10, {
  DIRECT(0x5c08, VecU128ExtDupVI, sve_dup_zzi, zzi_dup<q>),
})

SVE_ROWS(31_24__21_21__19_10, {
  DIRECT(0x2e08, VecU64ExtDupVI, sve_dup_zzi, zzi_dup<d>),
})

SVE_ROWS(31_19__15_10, {
  DIRECT( 0x2164,  VecS8ShrVIX,      sve_asr_zzi,   zzi_right<b>),
  LIBRARY(0x2165,  VecU8ShrVIX,      sve_lsr_zzi,   zzi_right<b>),
  DIRECT( 0x2167,  VecU8ShlVIX,      sve_lsl_zzi,   zzi_left<b>),
  LIBRARY(0x32aa0, VecF16TRIMADDVVI, sve_ftmad_zzi, zzi_trig<h>),
  LIBRARY(0x32ca0, VecF32TRIMADDVVI, sve_ftmad_zzi, zzi_trig<s>),
  LIBRARY(0x32ea0, VecD64TRIMADDVVI, sve_ftmad_zzi, zzi_trig<d>),
})

SVE_ROWS(31_14__9_9, {
  DIRECT(0x12904, VecU8SCountP,  sve_cntp_rpp, rpp_count<b>),
  DIRECT(0x12b04, VecU16SCountP, sve_cntp_rpp, rpp_count<h>),
  DIRECT(0x12d04, VecU32SCountP, sve_cntp_rpp, rpp_count<s>),
  DIRECT(0x12f04, VecU64SCountP, sve_cntp_rpp, rpp_count<d>),
})

SVE_ROWS(31_14, {
  DIRECT( 0x9483, VecU8AddVIX,   sve_add_zi,   zi_shifted<b>),
  DIRECT( 0x9487, VecU8SubVIX,   sve_sub_zi,   zi_shifted<b>),
  LIBRARY(0x948f, VecU8SubRVIX,  sve_subr_zi,  zi_shifted<b>),
  LIBRARY(0x9493, VecS8QAddVIX,  sve_sqadd_zi, zi_shifted<b>),
  LIBRARY(0x9497, VecU8QAddVIX,  sve_uqadd_zi, zi_shifted<b>),
  LIBRARY(0x949b, VecS8QSubVIX,  sve_sqsub_zi, zi_shifted<b>),
  LIBRARY(0x949f, VecU8QSubVIX,  sve_uqsub_zi, zi_shifted<b>),
  DIRECT( 0x94e3, VecS8DupI,     sve_dup_zi,   zi_dup<b>),
  DIRECT( 0x9583, VecU16AddVIX,  sve_add_zi,   zi_shifted<h>),
  DIRECT( 0x9587, VecU16SubVIX,  sve_sub_zi,   zi_shifted<h>),
  LIBRARY(0x958f, VecU16SubRVIX, sve_subr_zi,  zi_shifted<h>),
  LIBRARY(0x9593, VecS16QAddVIX, sve_sqadd_zi, zi_shifted<h>),
  LIBRARY(0x9597, VecU16QAddVIX, sve_uqadd_zi, zi_shifted<h>),
  LIBRARY(0x959b, VecS16QSubVIX, sve_sqsub_zi, zi_shifted<h>),
  LIBRARY(0x959f, VecU16QSubVIX, sve_uqsub_zi, zi_shifted<h>),
  DIRECT( 0x95e3, VecS16DupI,    sve_dup_zi,   zi_dup<h>),
  DIRECT( 0x9683, VecU32AddVIX,  sve_add_zi,   zi_shifted<s>),
  DIRECT( 0x9687, VecU32SubVIX,  sve_sub_zi,   zi_shifted<s>),
  LIBRARY(0x968f, VecU32SubRVIX, sve_subr_zi,  zi_shifted<s>),
  LIBRARY(0x9693, VecS32QAddVIX, sve_sqadd_zi, zi_shifted<s>),
  LIBRARY(0x9697, VecU32QAddVIX, sve_uqadd_zi, zi_shifted<s>),
  LIBRARY(0x969b, VecS32QSubVIX, sve_sqsub_zi, zi_shifted<s>),
  LIBRARY(0x969f, VecU32QSubVIX, sve_uqsub_zi, zi_shifted<s>),
  DIRECT( 0x96e3, VecS32DupI,    sve_dup_zi,   zi_dup<s>),
  DIRECT( 0x9783, VecU64AddVIX,  sve_add_zi,   zi_shifted<d>),
  DIRECT( 0x9787, VecU64SubVIX,  sve_sub_zi,   zi_shifted<d>),
  LIBRARY(0x978f, VecU64SubRVIX, sve_subr_zi,  zi_shifted<d>),
  LIBRARY(0x9793, VecS64QAddVIX, sve_sqadd_zi, zi_shifted<d>),
  LIBRARY(0x9797, VecU64QAddVIX, sve_uqadd_zi, zi_shifted<d>),
  LIBRARY(0x979b, VecS64QSubVIX, sve_sqsub_zi, zi_shifted<d>),
  LIBRARY(0x979f, VecU64QSubVIX, sve_uqsub_zi, zi_shifted<d>),
  DIRECT( 0x97e3, VecS64DupI,    sve_dup_zi,   zi_dup<d>),
})

SVE_ROWS(31_23__21_13, {
  DIRECT( 0x1204, VecS64ShrVIM,  sve_asr_zpi,  zpi_right<d>),
  LIBRARY(0x120c, VecU64ShrVIM,  sve_lsr_zpi,  zpi_right<d>),
  DIRECT( 0x121c, VecU64ShlVIM,  sve_lsl_zpi,  zpi_left<d>),
  LIBRARY(0x1224, VecS64ShrDVIM, sve_asrd_zpi, zpi_right<d>),
})

SVE_ROWS(31_24__21_21__18_10, {
  DIRECT(0x1708, VecU32ExtDupVI, sve_dup_zzi, zzi_dup<s>),
})

SVE_ROWS(31_17__15_13, {
  LIBRARY(0x19104, VecF16FCADDVVM, sve_fcadd_zpzr, zpz_rotated<h>),
  LIBRARY(0x19204, VecF32FCADDVVM, sve_fcadd_zpzr, zpz_rotated<s>),
  LIBRARY(0x19304, VecD64FCADDVVM, sve_fcadd_zpzr, zpz_rotated<d>),
})

SVE_ROWS(31_24__21_21__17_10, {
  DIRECT(0xb88, VecU16ExtDupVI, sve_dup_zzi, zzi_dup<h>),
})

SVE_ROWS(31_23__21_21__15_10, {
  DIRECT( 0x4e4,  VecS64ShrVIX,   sve_asr_zzi,   zzi_right<d>),
  LIBRARY(0x4e5,  VecU64ShrVIX,   sve_lsr_zzi,   zzi_right<d>),
  DIRECT( 0x4e7,  VecU64ShlVIX,   sve_lsl_zzi,   zzi_left<d>),
  LIBRARY(0x6440, VecF16FMAVVVIX, sve_fmla_zzzi, fma_indexed_h),
  LIBRARY(0x6441, VecF16FMSVVVIX, sve_fmls_zzzi, fma_indexed_h),
  LIBRARY(0x6448, VecF16MulVVIX,  sve_fmul_zzzi, fmul_indexed_h),
})

SVE_ROWS(31_24__21_21__16_10, {
  DIRECT(0x5c8, VecU8ExtDupVI, sve_dup_zzi, zzi_dup<b>),
})

SVE_ROWS(31_18, {
  DIRECT(0x140, VecU64OrVIX,    sve_orr_zi,  zi_logical),
  DIRECT(0x150, VecU64XorVIX,   sve_eor_zi,  zi_logical),
  DIRECT(0x160, VecU64AndVIX,   sve_and_zi,  zi_logical),
  DIRECT(0x170, VecS64DupMaskI, sve_dupm_zi, zi_dup_logical),
})

SVE_ROWS(31_22__15_13__4_4, {
  DIRECT(  0x2160, VecPFillSI,        sve_ldr_pri,  pri_fill),
  PREFETCH(0x2170, VecU8Prefetch1SI,  sve_prfb_pri, pri_prefetch),
  PREFETCH(0x2172, VecU16Prefetch2SI, sve_prfh_pri, pri_prefetch),
  PREFETCH(0x2174, VecU32Prefetch4SI, sve_prfw_pri, pri_prefetch),
  PREFETCH(0x2176, VecU64Prefetch8SI, sve_prfd_pri, pri_prefetch),
  DIRECT(  0x3960, VecPSpillSI,       sve_str_pri,  pri_spill),
})

SVE_ROWS(31_22__15_13, {
  DIRECT(0x108c, VecU8LoadDup1SIZ,  sve_ld1rb_zpri,    zpri_replicate<b>),
  DIRECT(0x108d, VecU16LoadDup1SIZ, sve_ld1rb_h_zpri,  zpri_replicate<h>),
  DIRECT(0x108e, VecU32LoadDup1SIZ, sve_ld1rb_s_zpri,  zpri_replicate<s>),
  DIRECT(0x108f, VecU64LoadDup1SIZ, sve_ld1rb_d_zpri,  zpri_replicate<d>),
  DIRECT(0x109c, VecS64LoadDup4SIZ, sve_ld1rsw_d_zpri, zpri_replicate<d>),
  DIRECT(0x109d, VecU16LoadDup2SIZ, sve_ld1rh_zpri,    zpri_replicate<h>),
  DIRECT(0x109e, VecU32LoadDup2SIZ, sve_ld1rh_s_zpri,  zpri_replicate<s>),
  DIRECT(0x109f, VecU64LoadDup2SIZ, sve_ld1rh_d_zpri,  zpri_replicate<d>),
  DIRECT(0x10ac, VecS64LoadDup2SIZ, sve_ld1rsh_d_zpri, zpri_replicate<d>),
  DIRECT(0x10ad, VecS32LoadDup2SIZ, sve_ld1rsh_s_zpri, zpri_replicate<s>),
  DIRECT(0x10ae, VecU32LoadDup4SIZ, sve_ld1rw_zpri,    zpri_replicate<s>),
  DIRECT(0x10af, VecU64LoadDup4SIZ, sve_ld1rw_d_zpri,  zpri_replicate<d>),
  DIRECT(0x10b2, VecU64FillSI,      sve_ldr_zri,       zri_fill),
  DIRECT(0x10bc, VecS64LoadDup1SIZ, sve_ld1rsb_d_zpri, zpri_replicate<d>),
  DIRECT(0x10bd, VecS32LoadDup1SIZ, sve_ld1rsb_s_zpri, zpri_replicate<s>),
  DIRECT(0x10be, VecS16LoadDup1SIZ, sve_ld1rsb_h_zpri, zpri_replicate<h>),
  DIRECT(0x10bf, VecU64LoadDup8SIZ, sve_ld1rd_zpri,    zpri_replicate<d>),
  DIRECT(0x1cb2, VecU64SpillSI,     sve_str_zri,       zri_spill),
})

}  // namespace sve::decode
