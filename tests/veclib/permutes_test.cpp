// Moves of elements in the vector library, against plain index arithmetic.
#include "tests/index_rules.h"
#include "values.h"

namespace {

using namespace veclib_test;

template <class T>
VectorV permuted(const VectorV& a, const VectorV& b, const CpuContext& c, IndexRule rule) {
  const std::size_t n = count<T>(c);
  return generated<T>(c, [&](std::size_t i) {
    const std::size_t from = rule(i, n);
    return from < n ? at<T>(a, from) : at<T>(b, from - n);
  });
}

// An element's whole group of bits moves.
template <class T>
PredV permuted(const PredV& a, const PredV& b, const CpuContext& c, IndexRule rule) {
  const std::size_t n = count<T>(c);
  PredV r{};
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t from = rule(i, n), first = i * sizeof(T);
    r.words[first / 64] |= u64{from < n ? group<T>(a, from) : group<T>(b, from - n)} << (first % 64);
  }
  return r;
}

// One element has no partner to transpose with: `trn2` of it is not looked at.
bool undefined(IndexRule rule, std::size_t n) { return rule == trn2 && n < 2; }

template <class T>
void check_vectors(const char* name, sve::routine::vvx* routine, IndexRule rule) {
  run(
      name, 30,
      [&](auto& o, CpuContext* c) { return undefined(rule, count<T>(*c)) ? VectorV{} : routine(o.a, o.b, c); },
      [&](auto& o, auto& c) { return undefined(rule, count<T>(c)) ? VectorV{} : permuted<T>(o.a, o.b, c, rule); });
}
template <class T>
void check_predicates(const char* name, sve::routine::ppp* routine, IndexRule rule) {
  run_from_zero(
      name, 60, [&](auto& o, CpuContext* c) { return undefined(rule, count<T>(*c)) ? PredV{} : routine(o.p, o.q, c); },
      [&](auto& o, auto& c) { return undefined(rule, count<T>(c)) ? PredV{} : permuted<T>(o.p, o.q, c, rule); });
}

TEST(Permute, Vectors) {
#define CHECK(Type, T)                                      \
  check_vectors<T>("zip1 " #Type, Vec##Type##Zip1VV, zip1); \
  check_vectors<T>("zip2 " #Type, Vec##Type##Zip2VV, zip2); \
  check_vectors<T>("uzp1 " #Type, Vec##Type##Uzp1VV, uzp1); \
  check_vectors<T>("uzp2 " #Type, Vec##Type##Uzp2VV, uzp2); \
  check_vectors<T>("trn1 " #Type, Vec##Type##Trn1VV, trn1); \
  check_vectors<T>("trn2 " #Type, Vec##Type##Trn2VV, trn2); \
  run("rev " #Type, 30, Vec##Type##ReverseV, [&](auto& o, auto& c) { return permuted<T>(o.a, o.a, c, reverse); });
  FOR_UNSIGNED(CHECK)
#undef CHECK
}

TEST(Permute, Predicates) {
#define CHECK(Type, T)                                         \
  check_predicates<T>("zip1 " #Type, Vec##Type##Zip1PP, zip1); \
  check_predicates<T>("zip2 " #Type, Vec##Type##Zip2PP, zip2); \
  check_predicates<T>("uzp1 " #Type, Vec##Type##Uzp1PP, uzp1); \
  check_predicates<T>("uzp2 " #Type, Vec##Type##Uzp2PP, uzp2); \
  check_predicates<T>("trn1 " #Type, Vec##Type##Trn1PP, trn1); \
  check_predicates<T>("trn2 " #Type, Vec##Type##Trn2PP, trn2); \
  run_from_zero("rev " #Type, 60, Vec##Type##ReverseP,         \
                [&](auto& o, auto& c) { return permuted<T>(o.p, o.p, c, reverse); });
  FOR_PREDICATES(CHECK)
#undef CHECK
  for (const bool high : {false, true})
    run_from_zero("punpk", 60, high ? VecPUnpackHiP : VecPUnpackLoP, [&](auto& o, auto& c) {
      const std::size_t n = count<u16>(c);
      return canonical<u16>(c, [&](auto e) { return bit(o.p, (high ? n : 0) + e); });
    });
}

TEST(Permute, Slide) {
  for (u64 imm = 0; imm < 256; ++imm)
    run("ext", 1, calling(VecU8SlideVI, imm), [&](auto& o, auto& c) {
      const std::size_t n = count<u8>(c);
      return generated<u8>(c, [&](auto i) {
        const std::size_t from = i + (imm < n ? imm : 0);
        return from < n ? o.a.bytes[from] : o.b.bytes[from - n];
      });
    });
}

template <class T>
void check_lookup(sve::routine::vvx* routine) {
  const auto indices = [](Operands& o) {
    for (std::size_t e = 0; e < 256 / sizeof(T); e += 2)
      sve::store<T>(o.b.bytes, e, static_cast<T>(at<T>(o.b, e) % 300));
  };
  run("tbl", 60, indices, routine, elements<T>([](auto& o, auto e, auto& c) {
        return at<T>(o.b, e) < count<T>(c) ? at<T>(o.a, at<T>(o.b, e)) : T{0};
      }));
}

// ---- Under a predicate ----

template <class T>
int last_active(const Operands& o, const CpuContext& c) {
  int last = -1;
  for (std::size_t e = 0; e < count<T>(c); ++e)
    if (active<T>(o.p, e)) last = static_cast<int>(e);
  return last;
}

template <class T>
void check_splice(sve::routine::pvv* routine) {
  run("splice", 200, routine, [&](auto& o, auto& c) {
    const int last = last_active<T>(o, c);
    std::size_t first = 0;
    while (last >= 0 && !active<T>(o.p, first)) ++first;
    const std::size_t taken = last < 0 ? 0 : static_cast<std::size_t>(last) - first + 1;
    return generated<T>(c, [&](auto e) { return e < taken ? at<T>(o.a, first + e) : at<T>(o.b, e - taken); });
  });
}
template <class T>
void check_compress(sve::routine::pv* routine) {
  run("compact", 200, routine, [&](auto& o, auto& c) {
    VectorV r{};
    std::size_t k = 0;
    for (std::size_t e = 0; e < count<T>(c); ++e)
      if (active<T>(o.p, e)) sve::store<T>(r.bytes, k++, at<T>(o.a, e));
    return r;
  });
}

// LAST A and B: the element, or `none` if no element is active.
template <class T>
T last_a(const Operands& o, const CpuContext& c, T none) {
  const int last = last_active<T>(o, c);
  return last < 0 ? none : at<T>(o.a, (static_cast<std::size_t>(last) + 1) % count<T>(c));
}
template <class T>
T last_b(const Operands& o, const CpuContext& c, T none) {
  const int last = last_active<T>(o, c);
  return last < 0 ? none : at<T>(o.a, static_cast<std::size_t>(last));
}

template <class T>
void check_extracts(sve::routine::pv_scalar* a, sve::routine::pv_scalar* b, sve::routine::psv_scalar* cond_a,
                    sve::routine::psv_scalar* cond_b) {
  run("lasta", 100, a, [&](auto& o, auto& c) { return u64{last_a<T>(o, c, at<T>(o.a, 0))}; });
  run("lastb", 100, b, [&](auto& o, auto& c) { return u64{last_b<T>(o, c, at<T>(o.a, count<T>(c) - 1))}; });
  run_from_zero("clasta", 100, cond_a, [&](auto& o, auto& c) { return u64{last_a<T>(o, c, static_cast<T>(o.x))}; });
  run_from_zero("clastb", 100, cond_b, [&](auto& o, auto& c) { return u64{last_b<T>(o, c, static_cast<T>(o.x))}; });
  // At length 0 the answer is undefined, but nothing outside the vector is read.
  CpuContext c{0, 0, 0, 0, {}};
  const VectorV v{};
  a(PredV{}, v, &c);
  b(PredV{}, v, &c);
}

template <class T>
void check_under_predicate(sve::routine::pvv* select, sve::routine::vvm* move_merging, sve::routine::vz* move_zeroing,
                           sve::routine::pvv* vector_a, sve::routine::pvv* vector_b, sve::routine::i* dup) {
  const auto blend = [](const PredV& p, const CpuContext& c, auto value, auto otherwise) {
    return generated<T>(c, [&](auto e) { return active<T>(p, e) ? value(e) : otherwise(e); });
  };
  const auto of = [](const VectorV& v) { return [&v](auto e) { return at<T>(v, e); }; };
  run("sel", 40, select, [&](auto& o, auto& c) { return blend(o.p, c, of(o.a), of(o.b)); });
  run("movprfx m", 40, move_merging, [&](auto& o, auto& c) { return blend(o.p, c, of(o.b), of(o.a)); });
  run("movprfx z", 40, move_zeroing,
      [&](auto& o, auto& c) { return blend(o.p, c, of(o.a), [](auto) { return T{0}; }); });
  const auto everywhere = [](T value, const CpuContext& c) { return generated<T>(c, [&](auto) { return value; }); };
  const auto swapped = [](auto routine) {
    return [routine](const Operands& o, CpuContext* c) { return routine(o.p, o.b, o.a, c); };
  };
  run("clasta v", 60, swapped(vector_a),
      [&](auto& o, auto& c) { return last_active<T>(o, c) < 0 ? o.b : everywhere(last_a<T>(o, c, 0), c); });
  run("clastb v", 60, swapped(vector_b),
      [&](auto& o, auto& c) { return last_active<T>(o, c) < 0 ? o.b : everywhere(last_b<T>(o, c, 0), c); });
  run("dup", 10, dup, [&](auto& o, auto& c) { return everywhere(static_cast<T>(o.x), c); });
}

TEST(UnderPredicate, EveryElementSize) {
#define CHECK(Type, T)                                                                                                 \
  check_lookup<T>(Vec##Type##TblVV);                                                                                   \
  check_splice<T>(Vec##Type##SpliceVV);                                                                                \
  check_under_predicate<T>(Vec##Type##SelVV, Vec##Type##MovePrefix1VM, Vec##Type##MovePrefix1VZ, Vec##Type##VCondXAVV, \
                           Vec##Type##VCondXBVV, Vec##Type##DupS);
  FOR_UNSIGNED(CHECK)
#undef CHECK
  check_compress<u32>(VecU32CompressVV);
  check_compress<u64>(VecU64CompressVV);
#define CHECK(Type, T) \
  check_extracts<T>(Vec##Type##LastAV, Vec##Type##LastBV, Vec##Type##CondXASV, Vec##Type##CondXBSV);
  FOR_UNSIGNED(CHECK) CHECK(B8, u8) CHECK(H16, u16) CHECK(F32, u32) CHECK(D64, u64)
#undef CHECK
}

// A scalar into the vector's low end, or into active elements.
template <class T>
void check_scalars(sve::routine::vix* insert, sve::routine::vim* copy) {
  run("insr", 40, insert,
      elements<T>([&](auto& o, auto e) { return e == 0 ? static_cast<T>(o.x) : at<T>(o.a, e - 1); }));
  run("cpy", 40, copy,
      elements<T>([&](auto& o, auto e) { return active<T>(o.p, e) ? static_cast<T>(o.x) : at<T>(o.a, e); }));
}

template <class T>
void check_immediates(sve::routine::i_signed* dup, sve::routine::vim_signed* merging, sve::routine::iz* zeroing) {
  for (const s64 imm : {s64{0}, s64{-1}, s64{127}, s64{-32768}}) {
    run("dup", 3, calling(dup, imm), [&](auto&, auto& c) { return generated<T>(c, [&](auto) { return imm; }); });
    run("cpy m", 10, calling(merging, imm),
        elements<T>([&](auto& o, auto e) { return active<T>(o.p, e) ? static_cast<T>(imm) : at<T>(o.a, e); }));
    run("cpy z", 10, calling(zeroing, imm),
        elements<T>([&](auto& o, auto e) { return active<T>(o.p, e) ? static_cast<T>(imm) : T{0}; }));
  }
}

template <class T>
void check_index(sve::routine::ii_signed* routine) {
  run("index", 40, routine, elements<T>([&](auto& o, auto e) { return o.x + e * o.y; }));
}

TEST(Scalars, InsertCopyBroadcastAndIndex) {
#define CHECK(Type, T) check_scalars<T>(Vec##Type##InsertS, Vec##Type##DupSM);
  FOR_UNSIGNED(CHECK)
  CHECK(B8, u8)
  CHECK(H16, u16)
  CHECK(F32, u32)
  CHECK(D64, u64)
#undef CHECK
#define CHECK(Type, T)                                                      \
  check_immediates<T>(Vec##Type##DupI, Vec##Type##DupIM, Vec##Type##DupIZ); \
  check_index<T>(Vec##Type##IndexII);                                       \
  check_index<T>(Vec##Type##IndexIS);                                       \
  check_index<T>(Vec##Type##IndexSI);                                       \
  check_index<T>(Vec##Type##IndexSS);
  FOR_SIGNED(CHECK)
#undef CHECK
  run("dupm", 10, VecS64DupMaskI, [&](auto& o, auto& c) { return generated<u64>(c, [&](auto) { return o.x; }); });
  run("move", 10, VecU32SpecialMoveV, [&](auto& o, auto&) { return o.a; });
}

TEST(Scalars, IndexedBroadcast) {
  for (u64 index = 0; index < 260; ++index) {
#define CHECK(Type, T)                                                                            \
  run("dup " #Type, 1, calling(Vec##Type##ExtDupVI, index), [&](auto& o, auto& c) {               \
    return generated<T>(c, [&](auto) { return index < count<T>(c) ? at<T>(o.a, index) : T{0}; }); \
  });
    FOR_UNSIGNED(CHECK)
#undef CHECK
    // Whole 128-bit units: the odd half at one granule, if any, stays out of it.
    Random random(index);
    for (const u32 granules : lengths) {
      const VectorV a = random_vector(random);
      CpuContext c{0, 0, 0, granules, {}};
      const VectorV r = VecU128ExtDupVI(a, index, &c);
      for (std::size_t i = 0; i < granules / 2 * 16; ++i)
        ASSERT_EQ(r.bytes[i], index < granules / 2 ? a.bytes[index * 16 + i % 16] : 0);
    }
  }
}

// ---- Extends and reversals inside elements ----

template <class T, class From>
void check_extend(const char* name, sve::routine::vvm* routine) {
  run(name, 40, routine, elements<T>([&](auto& o, auto e) {
        return active<T>(o.p, e) ? static_cast<T>(static_cast<From>(at<T>(o.b, e))) : at<T>(o.a, e);
      }));
}
template <class T, class Narrow>
void check_unpack(const char* name, sve::routine::v* low, sve::routine::v* high) {
  for (const bool upper : {false, true})
    run(name, 20, upper ? high : low,
        elements<T>([&](auto& o, auto e, auto& c) { return at<Narrow>(o.a, (upper ? count<T>(c) : 0) + e); }));
}
template <class T>
void check_reversal(const char* name, sve::routine::vvm* routine, std::size_t unit) {
  run(name, 40, routine, elements<u8>([&](auto& o, auto i) {
        const std::size_t e = i / sizeof(T), within = i % sizeof(T);
        const std::size_t from = sizeof(T) - unit - within / unit * unit + within % unit;
        return active<T>(o.p, e) ? o.b.bytes[e * sizeof(T) + from] : o.a.bytes[i];
      }));
}

TEST(Elements, ExtendsUnpacksAndReversals) {
  check_extend<u16, u8>("u12", VecU16Extnd12VM);
  check_extend<u32, u8>("u14", VecU32Extnd14VM);
  check_extend<u64, u8>("u18", VecU64Extnd18VM);
  check_extend<u32, u16>("u24", VecU32Extnd24VM);
  check_extend<u64, u16>("u28", VecU64Extnd28VM);
  check_extend<u64, u32>("u48", VecU64Extnd48VM);
  check_extend<s16, s8>("s12", VecS16Extnd12VM);
  check_extend<s32, s8>("s14", VecS32Extnd14VM);
  check_extend<s64, s8>("s18", VecS64Extnd18VM);
  check_extend<s32, s16>("s24", VecS32Extnd24VM);
  check_extend<s64, s16>("s28", VecS64Extnd28VM);
  check_extend<s64, s32>("s48", VecS64Extnd48VM);
  check_unpack<u16, u8>("u16", VecU16UnpackLoV, VecU16UnpackHiV);
  check_unpack<u32, u16>("u32", VecU32UnpackLoV, VecU32UnpackHiV);
  check_unpack<u64, u32>("u64", VecU64UnpackLoV, VecU64UnpackHiV);
  check_unpack<s16, s8>("s16", VecS16UnpackLoV, VecS16UnpackHiV);
  check_unpack<s32, s16>("s32", VecS32UnpackLoV, VecS32UnpackHiV);
  check_unpack<s64, s32>("s64", VecS64UnpackLoV, VecS64UnpackHiV);
  check_reversal<u16>("revb h", VecU16Rev1V, 1);
  check_reversal<u32>("revb s", VecU32Rev1V, 1);
  check_reversal<u64>("revb d", VecU64Rev1V, 1);
  check_reversal<u32>("revh s", VecU32Rev2V, 2);
  check_reversal<u64>("revh d", VecU64Rev2V, 2);
  check_reversal<u64>("revw d", VecU64Rev4V, 4);
}

}  // namespace
