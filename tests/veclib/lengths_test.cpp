// The vector length as routines see it: none at all, bits above its field, and the record that no instruction runs on.
#include "sve/veclib/initialize.h"
#include "values.h"

namespace {

using namespace veclib_test;

TEST(Length, ZeroTouchesNoMemory) {
  CpuContext c{0x90000000, 0, 0, 0, bits_of([](auto) { return true; })}, before = c;
  const PredV all = bits_of([](auto) { return true; });
  VectorV v{}, w{};
  // Address 0 and the addresses in v, which are 0 too, are not mapped.
  VecU8CLoad1SIZ(all, 0, 0, &c);
  VecU64CLoad8LSSZ(all, 0, 0, &c);
  VecU8CStore1SIZ(all, 0, 0, v, &c);
  VecU64CStore8LSSZ(all, 0, 0, v, &c);
  VecU8CLoadFF1LSSZ(all, 0, 0, &c);
  VecU8CLoadNF1SIZ(all, 0, 0, &c);
  VecU64Load8VSZ(all, v, 0, &c);
  VecU64Load8SVZ(all, 0, v, &c);
  VecU64Store8VSZ(all, v, 0, v, &c);
  VecU8E2Load1SIZ(all, 0, 0, v, w, &c);
  VecU8E2Store1SIZ(all, 0, 0, v, w, &c);
  VecU64FillSI(0, 0, &c);
  VecU64SpillSI(0, 0, v, &c);
  VecPFillSI(0, 0, &c);
  VecPSpillSI(0, 0, all, &c);
  EXPECT_EQ(difference(before, c), "");
  EXPECT_EQ(bit(c.ffr, 0), true);
}

TEST(Length, BitsAboveTheFieldAreMaskedOutOfElementLoops) {
  Random random(15);
  const Operands o = random_operands(random);
  CpuContext plain{0, 0, 0, 14, {}}, high{0, 0, 0, 0xfc00000e, {}};
  EXPECT_EQ(difference(VecU8AddVVM(o.a, o.p, o.b, &plain), VecU8AddVVM(o.a, o.p, o.b, &high), plain), "");
  EXPECT_EQ(difference(VecS32CmpFlgGTVVZ(o.p, o.a, o.b, &plain), VecS32CmpFlgGTVVZ(o.p, o.a, o.b, &high), plain), "");
  EXPECT_EQ(plain.nzcv, high.nzcv);
  EXPECT_EQ(VecU16SCountP(o.p, o.q, &plain), VecU16SCountP(o.p, o.q, &high));
}

TEST(Length, TheGlobalContextIsSetUpOnce) {
  EXPECT_NE(SVEInitialize(), 0);
  EXPECT_EQ(cpu_ctxt.vl_word, 2u);  // not the 14 of the handlers
  EXPECT_EQ(ctxt, &cpu_ctxt);
  cpu_ctxt.vl_word = 3;
  EXPECT_NE(SVEInitialize(), 0);  // a second call does nothing
  EXPECT_EQ(cpu_ctxt.vl_word, 3u);
  cpu_ctxt.vl_word = 2;
}

// A routine may deliver its result to storage that holds an operand, and changes no operand.
TEST(Values, ResultsMayReplaceOperands) {
  Random random(16);
  CpuContext c{0, 0, 0, 14, {}};
  Operands o = random_operands(random);
  const Operands before = o;
  const VectorV zipped = VecU16Zip2VV(o.a, o.b, &c);
  EXPECT_EQ(difference(before.a, o.a, c) + difference(before.b, o.b, c), "");
  o.b = VecU16Zip2VV(o.a, o.b, &c);
  EXPECT_EQ(difference(zipped, o.b, c), "");
}

}  // namespace
