// Every row's word disassembles to the mnemonic that its handler's name means. The expected mnemonic comes from the
// name of the instruction function of a direct row, and from a table of operations for the rest; the other side is
// binutils.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "sve/decode/table.h"

namespace {

// The operation's mnemonic for signed, unsigned (or sign-less) and floating-point types. '#' stands for the letter of
// the element's size, '$' for that of the memory element, which the digit in the operation's name gives.
struct mnemonics {
  const char *is_signed, *is_unsigned, *floating;
};
const std::map<std::string, mnemonics> operations = {
    {"AbdVVM", {"sabd", "uabd", "fabd"}},
    {"AbsVM", {"abs", "", "fabs"}},
    {"AcGEVVZ", {"", "", "facge"}},
    {"AcGTVVZ", {"", "", "facgt"}},
    {"ActualFlgP", {"", "rdffrs", ""}},
    {"AddReduceAV", {"", "", "fadda"}},
    {"AddReduceFV", {"", "", "faddv"}},
    {"AddReduceV", {"saddv", "", ""}},
    {"AddVIM", {"", "", "fadd"}},
    {"AddVVM", {"", "", "fadd"}},
    {"AddVVX", {"", "", "fadd"}},
    {"AndFlgPPZ", {"", "ands", ""}},
    {"BicFlgPPZ", {"", "bics", ""}},
    {"BreakAFlgPZ", {"", "brkas", ""}},
    {"BreakBFlgPZ", {"", "brkbs", ""}},
    {"BreakPrevAFlgPZ", {"", "brkpas", ""}},
    {"BreakPrevAPZ", {"", "brkpa", ""}},
    {"CLoadFF1LSSZ", {"ldff1s$", "ldff1$", ""}},
    {"CLoadFF2LSSZ", {"ldff1s$", "ldff1$", ""}},
    {"CLoadFF4LSSZ", {"ldff1s$", "", ""}},
    {"CTermEQ", {"", "ctermeq", ""}},
    {"CTermNE", {"", "ctermne", ""}},
    {"ClsVM", {"", "cls", ""}},
    {"ClzVM", {"", "clz", ""}},
    {"CmpEQV0Z", {"", "", "fcmeq"}},
    {"CmpEQVVZ", {"", "", "fcmeq"}},
    {"CmpFlgEQVWZ", {"cmpeq", "", ""}},
    {"CmpFlgGEVIZ", {"cmpge", "cmphs", ""}},
    {"CmpFlgGEVWZ", {"cmpge", "cmphs", ""}},
    {"CmpFlgGTVWZ", {"cmpgt", "cmphi", ""}},
    {"CmpFlgLEVIZ", {"", "cmpls", ""}},
    {"CmpFlgLEVWZ", {"cmple", "cmpls", ""}},
    {"CmpFlgLTVWZ", {"cmplt", "cmplo", ""}},
    {"CmpFlgNEVWZ", {"cmpne", "", ""}},
    {"CmpGEV0Z", {"", "", "fcmge"}},
    {"CmpGEVVZ", {"", "", "fcmge"}},
    {"CmpGTV0Z", {"", "", "fcmgt"}},
    {"CmpGTVVZ", {"", "", "fcmgt"}},
    {"CmpLEV0Z", {"", "", "fcmle"}},
    {"CmpLTV0Z", {"", "", "fcmlt"}},
    {"CmpNEV0Z", {"", "", "fcmne"}},
    {"CmpNEVVZ", {"", "", "fcmne"}},
    {"CmpUNVVZ", {"", "", "fcmuo"}},
    {"CntVM", {"", "cnt", ""}},
    {"CompressVV", {"", "compact", ""}},
    {"CondXASV", {"", "clasta", "clasta"}},
    {"CondXBSV", {"", "clastb", "clastb"}},
    {"CountVLSI", {"", "cnt#", ""}},
    {"DecrCountPV", {"", "decp", ""}},
    {"DecrSCountPS", {"", "decp", ""}},
    {"DivRVVM", {"", "", "fdivr"}},
    {"DivVVM", {"", "", "fdiv"}},
    {"DotVVVIX", {"sdot", "udot", ""}},
    {"DotVVVX", {"sdot", "udot", ""}},
    {"DupIM", {"", "", "fcpy"}},
    {"EXPAV", {"", "", "fexpa"}},
    {"Extnd12VM", {"", "uxtb", ""}},
    {"Extnd14VM", {"", "uxtb", ""}},
    {"Extnd18VM", {"", "uxtb", ""}},
    {"ExtndFVM", {"", "", "fcvt"}},
    {"ExtndHVM", {"", "", "fcvt"}},
    {"FCADDVVM", {"", "", "fcadd"}},
    {"FCMLAVVVIX", {"", "", "fcmla"}},
    {"FCMLAVVVM", {"", "", "fcmla"}},
    {"FMADDVVVM", {"", "", "fmad"}},
    {"FMAVVVIX", {"", "", "fmla"}},
    {"FMAVVVM", {"", "", "fmla"}},
    {"FMSUBVVVM", {"", "", "fmsb"}},
    {"FMSVVVIX", {"", "", "fmls"}},
    {"FMSVVVM", {"", "", "fmls"}},
    {"FNMADDVVVM", {"", "", "fnmad"}},
    {"FNMAVVVM", {"", "", "fnmla"}},
    {"FNMSUBVVVM", {"", "", "fnmsb"}},
    {"FNMSVVVM", {"", "", "fnmls"}},
    {"FRIntAVM", {"", "", "frinta"}},
    {"FRIntIVM", {"", "", "frinti"}},
    {"FRIntMVM", {"", "", "frintm"}},
    {"FRIntNVM", {"", "", "frintn"}},
    {"FRIntPVM", {"", "", "frintp"}},
    {"FRIntXVM", {"", "", "frintx"}},
    {"FRIntZVM", {"", "", "frintz"}},
    {"FromS2VM", {"", "", "scvtf"}},
    {"FromS4VM", {"", "", "scvtf"}},
    {"FromS8VM", {"", "", "scvtf"}},
    {"FromU2VM", {"", "", "ucvtf"}},
    {"FromU4VM", {"", "", "ucvtf"}},
    {"FromU8VM", {"", "", "ucvtf"}},
    {"IncrCountPV", {"", "incp", ""}},
    {"InsertS", {"", "insr", "insr"}},
    {"InvVM", {"", "not", ""}},
    {"LastAV", {"", "lasta", "lasta"}},
    {"LastBV", {"", "lastb", "lastb"}},
    {"MaxNumReduceFV", {"", "", "fmaxnmv"}},
    {"MaxNumVIM", {"", "", "fmaxnm"}},
    {"MaxNumVVM", {"", "", "fmaxnm"}},
    {"MaxReduceFV", {"", "", "fmaxv"}},
    {"MaxVIM", {"", "", "fmax"}},
    {"MaxVIX", {"smax", "umax", ""}},
    {"MaxVVM", {"", "", "fmax"}},
    {"MinNumReduceFV", {"", "", "fminnmv"}},
    {"MinNumVIM", {"", "", "fminnm"}},
    {"MinNumVVM", {"", "", "fminnm"}},
    {"MinReduceFV", {"", "", "fminv"}},
    {"MinVIM", {"", "", "fmin"}},
    {"MinVIX", {"smin", "umin", ""}},
    {"MinVVM", {"", "", "fmin"}},
    {"MulHVVM", {"smulh", "umulh", ""}},
    {"MulVIM", {"", "", "fmul"}},
    {"MulVVIX", {"", "", "fmul"}},
    {"MulVVM", {"", "", "fmul"}},
    {"MulVVX", {"", "", "fmul"}},
    {"MulXVVM", {"", "", "fmulx"}},
    {"NandFlgPPZ", {"", "nands", ""}},
    {"NandPPZ", {"", "nand", ""}},
    {"NegVM", {"", "", "fneg"}},
    {"NorFlgPPZ", {"", "nors", ""}},
    {"NotVM", {"", "cnot", ""}},
    {"OrFlgPPZ", {"", "orrs", ""}},
    {"OrNFlgPPZ", {"", "orns", ""}},
    {"OrNPPZ", {"", "orn", ""}},
    {"QAddVIX", {"sqadd", "uqadd", ""}},
    {"QAddVVX", {"sqadd", "uqadd", ""}},
    {"QDecrCountPV", {"sqdecp", "uqdecp", ""}},
    {"QDecrSCount4PS", {"sqdecp", "uqdecp", ""}},
    {"QDecrSCount8PS", {"sqdecp", "uqdecp", ""}},
    {"QDecrVL4SI", {"sqdec#", "uqdec#", ""}},
    {"QDecrVL8SI", {"sqdec#", "uqdec#", ""}},
    {"QDecrVLVI", {"sqdec#", "uqdec#", ""}},
    {"QIncrCountPV", {"sqincp", "uqincp", ""}},
    {"QIncrSCount4PS", {"sqincp", "uqincp", ""}},
    {"QIncrSCount8PS", {"sqincp", "uqincp", ""}},
    {"QIncrVL4SI", {"sqinc#", "uqinc#", ""}},
    {"QIncrVL8SI", {"sqinc#", "uqinc#", ""}},
    {"QIncrVLVI", {"sqinc#", "uqinc#", ""}},
    {"QSubVIX", {"sqsub", "uqsub", ""}},
    {"QSubVVX", {"sqsub", "uqsub", ""}},
    {"RSqrtEV", {"", "", "frsqrte"}},
    {"RSqrtSVV", {"", "", "frsqrts"}},
    {"RecpEV", {"", "", "frecpe"}},
    {"RecpSVV", {"", "", "frecps"}},
    {"RecpXVM", {"", "", "frecpx"}},
    {"Rev1V", {"", "revb", ""}},
    {"Rev2V", {"", "revh", ""}},
    {"ScaleVVM", {"", "", "fscale"}},
    {"SetFirstActiveP", {"", "pfirst", ""}},
    {"ShlRVVM", {"", "lslr", ""}},
    {"ShlVWM", {"", "lsl", ""}},
    {"ShlVWX", {"", "lsl", ""}},
    {"ShrDVIM", {"asrd", "", ""}},
    {"ShrRVVM", {"asrr", "lsrr", ""}},
    {"ShrVIM", {"", "lsr", ""}},
    {"ShrVIX", {"", "lsr", ""}},
    {"ShrVWM", {"asr", "lsr", ""}},
    {"ShrVWX", {"asr", "lsr", ""}},
    {"SpliceVV", {"", "splice", ""}},
    {"SqrtVM", {"", "", "fsqrt"}},
    {"SubRVIM", {"", "", "fsubr"}},
    {"SubRVIX", {"", "subr", ""}},
    {"SubRVVM", {"", "subr", "fsubr"}},
    {"SubVIM", {"", "", "fsub"}},
    {"SubVVM", {"", "", "fsub"}},
    {"SubVVX", {"", "", "fsub"}},
    {"TRIMADDVVI", {"", "", "ftmad"}},
    {"TRISMULVV", {"", "", "ftsmul"}},
    {"TRISSELVV", {"", "", "ftssel"}},
    {"Trn1PP", {"", "trn1", ""}},
    {"Trn1VV", {"", "trn1", ""}},
    {"Trn2PP", {"", "trn2", ""}},
    {"TrueFlgI", {"", "ptrues", ""}},
    {"TruncDVM", {"", "", "fcvt"}},
    {"TruncFVM", {"", "", "fcvt"}},
    {"UnpackHiV", {"sunpkhi", "", ""}},
    {"UnpackLoV", {"sunpklo", "", ""}},
    {"Uzp2PP", {"", "uzp2", ""}},
    {"VCondXAVV", {"", "clasta", ""}},
    {"VCondXBVV", {"", "clastb", ""}},
    {"While4LESS", {"whilele", "", ""}},
    {"While8LESS", {"whilele", "", ""}},
    {"XorFlgPPZ", {"", "eors", ""}},
    {"_2FromHVM", {"fcvtzs", "fcvtzu", ""}},
    {"_4FromDVM", {"fcvtzs", "fcvtzu", ""}},
    {"_4FromFVM", {"fcvtzs", "fcvtzu", ""}},
    {"_4FromHVM", {"fcvtzs", "fcvtzu", ""}},
    {"_8FromDVM", {"fcvtzs", "fcvtzu", ""}},
    {"_8FromFVM", {"fcvtzs", "fcvtzu", ""}},
    {"_8FromHVM", {"fcvtzs", "fcvtzu", ""}},
};

// The families whose names carry a memory size, and 36 prefetches.
const std::pair<std::regex, mnemonics> memory_operations[] = {
    {std::regex("Load[1248][XY]?(VS|SV|VI)Z"), {"ld1s$", "ld1$", ""}},
    {std::regex("LoadFF[1248][XY]?(VS|SV|VI)Z"), {"ldff1s$", "ldff1$", ""}},
    {std::regex("Store[1248][XY]?(VS|SV|VI)Z"), {"", "st1$", ""}},
    {std::regex("LoadDup[1248]Q(SIZ|SSZ)"), {"", "ld1rq$", ""}},
    {std::regex("LEA[1248][XY]?VV"), {"", "adr", ""}},
    {std::regex("Prefetch[1248].*"), {"", "prf$", ""}},
};

std::string expected_mnemonic(const sve::decode::row& row) {
  if (row.function) {
    const std::string name = row.function + 4;  // behind "sve_"
    return name.substr(0, name.find('_'));
  }
  std::smatch parts;
  const std::string name = row.name;
  if (!std::regex_match(name, parts, std::regex("Vec([USFDHBP])(8|16|32|64|128)?(_?[A-Z2-8].*)"))) return "?";
  const char type = parts.str(1)[0];
  const std::string size = parts.str(2), operation = parts.str(3);
  const mnemonics* found = nullptr;
  if (const auto it = operations.find(operation); it != operations.end()) found = &it->second;
  for (const auto& [pattern, m] : memory_operations)
    if (!found && std::regex_match(operation, pattern)) found = &m;
  if (!found) return "?";
  std::string mnemonic = type == 'S'                  ? found->is_signed
                         : type == 'U' || type == 'P' ? found->is_unsigned
                                                      : found->floating;
  const auto replace = [&](char mark, char letter) {
    if (const std::size_t at = mnemonic.find(mark); at != std::string::npos) mnemonic[at] = letter;
  };
  replace('#', size == "8" ? 'b' : size == "16" ? 'h' : size == "32" ? 'w' : 'd');
  const std::size_t digit = operation.find_first_of("1248");
  if (digit != std::string::npos) {
    const char d = operation[digit];
    replace('$', d == '1' ? 'b' : d == '2' ? 'h' : d == '4' ? 'w' : 'd');
  }
  return mnemonic;
}

TEST(Assembler, EveryRowsWordHasItsMnemonic) {
  const char* const tool = SVE_OBJDUMP;
  if (std::system((std::string("command -v ") + tool + " >/dev/null").c_str()) != 0)
    GTEST_SKIP() << "no " << tool << " on this machine (Debian: binutils-aarch64-linux-gnu)";
  // Each word twice: with its operand bits clear, and with some of them set as they please.
  std::vector<const sve::decode::row*> rows;
  std::vector<std::uint32_t> words;
  std::mt19937 random(1);
  for (const sve::decode::map* m : sve::decode::maps_in_is_sve_order())
    for (const sve::decode::row& r : m->rows) {
      rows.push_back(&r);
      words.push_back(m->word(r.key));
      rows.push_back(&r);
      // Operands that are registers and predicates alone: an immediate may be one that the processor reserves.
      words.push_back(m->word(r.key) | (static_cast<std::uint32_t>(random()) & ~m->fixed_bits & 0x1f));
    }
  char path[] = "/tmp/sve_assembler_test_XXXXXX";
  const int file = mkstemp(path);
  ASSERT_GE(file, 0);
  ASSERT_EQ(write(file, words.data(), words.size() * 4), static_cast<ssize_t>(words.size() * 4));
  close(file);
  FILE* listing = popen((std::string(tool) + " -D -z -b binary -m aarch64 -M no-aliases " + path).c_str(), "r");
  ASSERT_NE(listing, nullptr);
  char line[512];
  std::size_t n = 0;
  while (std::fgets(line, sizeof line, listing)) {
    unsigned offset, word;
    char mnemonic[32];
    if (std::sscanf(line, " %x:\t%8x \t%31s", &offset, &word, mnemonic) != 3) continue;
    ASSERT_LT(n, words.size());
    ASSERT_EQ(word, words[n]);
    EXPECT_EQ(std::string(mnemonic), expected_mnemonic(*rows[n])) << rows[n]->name << std::hex << " word " << word;
    ++n;
  }
  pclose(listing);
  unlink(path);
  EXPECT_EQ(n, words.size());
}

}  // namespace
