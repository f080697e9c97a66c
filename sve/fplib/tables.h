// Constant tables of the estimates and accelerators.
#pragma once

#include <array>
#include <cstdint>

namespace sve {

/// The fraction bits of the reciprocal square root estimate. The lower half serves significands in [0.25, 0.5) and the
/// upper half those in [0.5, 1): entry i is floor(256 / sqrt(x) + 0.5) - 256 at the middle x of its interval.
inline constexpr auto recip_sqrt_estimate_table = [] {
  std::array<std::uint8_t, 256> table{};
  for (unsigned i = 0; i < table.size(); ++i) {
    const unsigned x = i < 128 ? 2 * i + 257 : 4 * i + 2;  // in units of 1/1024
    // The greatest r with r - 1/2 <= 256 / sqrt(x), squared and brought to integers.
    unsigned r = 256;
    while ((2 * r + 1) * (2 * r + 1) * x <= (1u << 28)) ++r;
    table[i] = static_cast<std::uint8_t>(r - 256);
  }
  return table;
}();

/// The polynomial coefficients of `FPTRIMADD`: eight of the sine, then eight of the cosine.
template <class T>
inline constexpr T trigonometric_coefficients[16] = {};

template <>
inline constexpr unsigned short trigonometric_coefficients<unsigned short>[16] = {
    0x3c00, 0xb155, 0x2030, 0, 0, 0, 0, 0,  //
    0x3c00, 0xb800, 0x293a, 0, 0, 0, 0, 0};

template <>
inline constexpr unsigned int trigonometric_coefficients<unsigned int>[16] = {
    0x3f800000, 0xbe2aaaab, 0x3c088886, 0xb95008b9, 0x36369d6d, 0, 0, 0,  //
    0x3f800000, 0xbf000000, 0x3d2aaaa6, 0xbab60705, 0x37cd37cc, 0, 0, 0};

template <>
inline constexpr unsigned long trigonometric_coefficients<unsigned long>[16] = {
    0x3ff0000000000000, 0xbfc5555555555543, 0x3f8111111110f30c, 0xbf2a01a019b92fc6,
    0x3ec71de351f3d22b, 0xbe5ae5e2b60f7b91, 0x3de5d8408868552f, 0,
    0x3ff0000000000000, 0xbfe0000000000000, 0x3fa5555555555536, 0xbf56c16c16c13a0b,
    0x3efa01a019b1e8d8, 0xbe927e4f7282f468, 0x3e21ee96d2641b13, 0xbda8f76380fbb401};

/// Fractions of 2^(i/N), N being the number of entries, rounded to nearest.
template <class T>
inline constexpr T exponential_fractions[1] = {};

template <>
inline constexpr unsigned short exponential_fractions<unsigned short>[32] = {
    0x000, 0x016, 0x02d, 0x045, 0x05d, 0x075, 0x08e, 0x0a8, 0x0c2, 0x0dc, 0x0f8, 0x114, 0x130, 0x14d, 0x16b, 0x189,
    0x1a8, 0x1c8, 0x1e8, 0x209, 0x22b, 0x24e, 0x271, 0x295, 0x2ba, 0x2e0, 0x306, 0x32e, 0x356, 0x37f, 0x3a9, 0x3d4};

template <>
inline constexpr unsigned int exponential_fractions<unsigned int>[64] = {
    0x000000, 0x0164d2, 0x02cd87, 0x043a29, 0x05aac3, 0x071f62, 0x08980f, 0x0a14d5, 0x0b95c2, 0x0d1adf, 0x0ea43a,
    0x1031dc, 0x11c3d3, 0x135a2b, 0x14f4f0, 0x16942d, 0x1837f0, 0x19e046, 0x1b8d3a, 0x1d3eda, 0x1ef532, 0x20b051,
    0x227043, 0x243516, 0x25fed7, 0x27cd94, 0x29a15b, 0x2b7a3a, 0x2d583f, 0x2f3b79, 0x3123f6, 0x3311c4, 0x3504f3,
    0x36fd92, 0x38fbaf, 0x3aff5b, 0x3d08a4, 0x3f179a, 0x412c4d, 0x4346cd, 0x45672a, 0x478d75, 0x49b9be, 0x4bec15,
    0x4e248c, 0x506334, 0x52a81e, 0x54f35b, 0x5744fd, 0x599d16, 0x5bfbb8, 0x5e60f5, 0x60ccdf, 0x633f89, 0x65b907,
    0x68396a, 0x6ac0c7, 0x6d4f30, 0x6fe4ba, 0x728177, 0x75257d, 0x77d0df, 0x7a83b3, 0x7d3e0c};

template <>
inline constexpr unsigned long exponential_fractions<unsigned long>[64] = {
    0x0000000000000, 0x02c9a3e778061, 0x059b0d3158574, 0x0874518759bc8, 0x0b5586cf9890f, 0x0e3ec32d3d1a2,
    0x11301d0125b51, 0x1429aaea92de0, 0x172b83c7d517b, 0x1a35beb6fcb75, 0x1d4873168b9aa, 0x2063b88628cd6,
    0x2387a6e756238, 0x26b4565e27cdd, 0x29e9df51fdee1, 0x2d285a6e4030b, 0x306fe0a31b715, 0x33c08b26416ff,
    0x371a7373aa9cb, 0x3a7db34e59ff7, 0x3dea64c123422, 0x4160a21f72e2a, 0x44e086061892d, 0x486a2b5c13cd0,
    0x4bfdad5362a27, 0x4f9b2769d2ca7, 0x5342b569d4f82, 0x56f4736b527da, 0x5ab07dd485429, 0x5e76f15ad2148,
    0x6247eb03a5585, 0x6623882552225, 0x6a09e667f3bcd, 0x6dfb23c651a2f, 0x71f75e8ec5f74, 0x75feb564267c9,
    0x7a11473eb0187, 0x7e2f336cf4e62, 0x82589994cce13, 0x868d99b4492ed, 0x8ace5422aa0db, 0x8f1ae99157736,
    0x93737b0cdc5e5, 0x97d829fde4e50, 0x9c49182a3f090, 0xa0c667b5de565, 0xa5503b23e255d, 0xa9e6b5579fdbf,
    0xae89f995ad3ad, 0xb33a2b84f15fb, 0xb7f76f2fb5e47, 0xbcc1e904bc1d2, 0xc199bdd85529c, 0xc67f12e57d14b,
    0xcb720dcef9069, 0xd072d4a07897c, 0xd5818dcfba487, 0xda9e603db3285, 0xdfc97337b9b5f, 0xe502ee78b3ff6,
    0xea4afa2a490da, 0xefa1bee615a27, 0xf50765b6e4540, 0xfa7c1819e90d8};

/// FPEXPA of half precision whole, by its ten bits of operand.
inline constexpr auto half_exponentials = [] {
  std::array<std::uint16_t, 1024> table{};
  for (unsigned i = 0; i < table.size(); ++i)
    table[i] = static_cast<std::uint16_t>(i >> 5 << 10 | exponential_fractions<unsigned short>[i & 31]);
  return table;
}();

}  // namespace sve
