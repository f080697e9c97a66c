// Runs every instruction word of the table on the processor and in the model, from equal states, and compares
// everything. With --write it records the model's outcomes, and with --replay it compares another build's record with
// this build's.
#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/conformance/delta.h"
#include "tests/conformance/memory_accesses.h"
#include "tests/conformance/model.h"
#include "tests/conformance/native.h"
#include "tests/conformance/runs.h"
#include "tests/conformance/states.h"
#include "tests/conformance/words.h"

namespace conformance {
namespace {

constexpr int skipped = 77;  // ctest's code for a test that could not run
constexpr unsigned states_per_word = 4, fault_period = 16;
constexpr unsigned enough_cases = 200;  ///< for a row's coverage to be judged

struct Options {
  unsigned cases = 200;
  std::uint64_t seed = 1;
  const char* row = nullptr;
  long one_case = -1;
  const char* write = nullptr;
  const char* replay = nullptr;
  unsigned runs = 20000;
  long one_run = -1;
  unsigned failures_shown = 3;
};

void usage(std::FILE* to) {
  std::fputs(
      "usage: conformance [--cases N] [--seed S] [--row NAME] [--case K] [--runs N] [--run K]\n"
      "                   [--write FILE | --replay FILE]\n"
      "  --cases N      cases of each row (200)\n"
      "  --seed S       seed of words and states (1)\n"
      "  --row NAME     rows whose name contains NAME; a whole name takes that row alone\n"
      "  --case K       only case K of each row, with its operands shown\n"
      "  --runs N       runs of several instructions (20000), where all rows are run\n"
      "  --run K        only run K\n"
      "  --write FILE   record the model's outcomes\n"
      "  --replay FILE  compare the record of another build with this build's model; needs no SVE\n",
      to);
}

unsigned number(const char* text) { return static_cast<unsigned>(std::strtoul(text, nullptr, 0)); }

const struct KnownOption {
  std::string_view name;
  void (*set)(Options& o, const char* value);
} known_options[] = {
    {"--cases", [](Options& o, const char* value) { o.cases = number(value); }},
    {"--seed", [](Options& o, const char* value) { o.seed = std::strtoull(value, nullptr, 0); }},
    {"--row", [](Options& o, const char* value) { o.row = value; }},
    {"--case", [](Options& o, const char* value) { o.one_case = std::strtol(value, nullptr, 0); }},
    {"--runs", [](Options& o, const char* value) { o.runs = number(value); }},
    {"--run", [](Options& o, const char* value) { o.one_run = std::strtol(value, nullptr, 0); }},
    {"--write", [](Options& o, const char* value) { o.write = value; }},
    {"--replay", [](Options& o, const char* value) { o.replay = value; }},
};

Options parse(int argc, char** argv) {
  Options o;
  for (int i = 1; i < argc; i += 2) {
    const std::string_view name = argv[i];
    const auto known = std::ranges::find(known_options, name, &KnownOption::name);
    if (known == std::end(known_options) || i + 1 == argc) {
      usage(name == "--help" ? stdout : stderr);
      std::exit(name == "--help" ? 0 : 2);
    }
    known->set(o, argv[i + 1]);
  }
  return o;
}

/// The cases of one row, all a function of the seed, the row's name and the case's number.
class RowCases {
 public:
  RowCases(const RowInfo& row, std::uint64_t seed) : row_(row), seed_(mix(seed, hash_name(row.row->name))) {
    RandomSource random(seed_);
    make_background(random, background_);
  }
  std::uint32_t word(unsigned number) const {
    RandomSource random(mix(seed_, 2 * (number / states_per_word)));
    return make_word(row_, random);
  }
  void make(unsigned number, std::uint32_t word, TestCase& c) const {
    c.row = &row_;
    c.number = number;
    c.word = word;
    c.state = background_;
    RandomSource random(mix(seed_, 2 * std::uint64_t{number} + 1));
    make_state(row_, word, number, number % fault_period == fault_period / 2, random, c.state);
  }

 private:
  const RowInfo& row_;
  std::uint64_t seed_;
  Machine background_;
};

struct RecordHeader {
  char magic[8] = {'s', 'v', 'e', 'c', 'o', 'n', 'f', '1'};
  std::uint64_t seed = 0;
};
struct RecordCase {
  std::uint64_t hash;
  std::uint32_t number, word;
  std::uint16_t row, size;
};

class Run {
 public:
  explicit Run(const Options& o) : options_(o), shared_(std::make_unique<Buffers>()) {
    RandomSource random(o.seed);
    for (std::uint8_t& byte : shared_->original.data) byte = static_cast<std::uint8_t>(random.next() >> 32);
    window::map();
    window::fill(shared_->original);
    native_set_up();
  }

  int compare_with_processor() {
    if (options_.one_run >= 0) return compare_runs(0, options_.seed, options_.one_run) != 0;
    if (options_.write) open_record();
    const auto begin = std::chrono::steady_clock::now();
    for (const RowInfo& row : all_rows())
      if (selected(row)) compare_row(row);
    if (record_) std::fclose(record_);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    const bool everything = !options_.row && options_.one_case < 0;
    const bool runs_differ = everything && compare_runs(options_.runs, options_.seed, -1) != 0;
    return report(seconds) != 0 || runs_differ;
  }

  int replay() {
    std::FILE* file = std::fopen(options_.replay, "rb");
    if (!file) {
      std::printf("[  SKIPPED ] no record at %s: run scripts/conformance to write one\n", options_.replay);
      return skipped;
    }
    RecordHeader header, expected;
    if (std::fread(&header, sizeof header, 1, file) != 1 || std::memcmp(header.magic, expected.magic, 8) != 0) {
      std::fprintf(stderr, "conformance: %s is no record of cases\n", options_.replay);
      return 2;
    }
    options_.seed = header.seed;
    RandomSource random(header.seed);
    for (std::uint8_t& byte : shared_->original.data) byte = static_cast<std::uint8_t>(random.next() >> 32);
    window::fill(shared_->original);
    RecordCase entry;
    std::vector<std::uint8_t> change;
    int current = -1;
    std::unique_ptr<RowCases> cases;
    while (std::fread(&entry, sizeof entry, 1, file) == 1) {
      change.resize(entry.size);
      if (std::fread(change.data(), 1, change.size(), file) != change.size() || entry.row >= all_rows().size()) {
        std::fprintf(stderr, "conformance: %s ends in the middle of a case\n", options_.replay);
        return 2;
      }
      const RowInfo& row = all_rows()[entry.row];
      if (!selected(row)) continue;
      if (current != entry.row) {
        cases = std::make_unique<RowCases>(row, options_.seed);
        current = entry.row;
        ++rows_;
        failed_here_ = 0;
      }
      replay_case(*cases, entry, change);
    }
    std::fclose(file);
    std::printf("%u rows, %" PRIu64 " cases replayed, %" PRIu64 " differ\n", rows_, cases_, failures_);
    return failures_ || !cases_ ? 1 : 0;
  }

 private:
  struct Buffers {
    window::Contents original;
    TestCase c;
    Outcome expected;
    ModelOutcome model;
  };

  bool selected(const RowInfo& row) const {
    if (!options_.row) return true;
    static const bool whole = [this] {
      for (const RowInfo& r : all_rows())
        if (std::strcmp(r.row->name, options_.row) == 0) return true;
      return false;
    }();
    return whole ? std::strcmp(row.row->name, options_.row) == 0 : row.name_has(options_.row);
  }

  void compare_row(const RowInfo& row) {
    const RowCases cases(row, options_.seed);
    const unsigned first = options_.one_case < 0 ? 0 : static_cast<unsigned>(options_.one_case);
    const unsigned last = options_.one_case < 0 ? options_.cases : first + 1;
    failed_here_ = 0;
    run_here_ = changed_here_ = 0;
    varied_here_ = 0;
    const std::uint32_t first_word = cases.word(first);
    // Words are written in batches before they run: the emulator translates a page of code anew after each write to it.
    constexpr unsigned batch = native_places / 2 * states_per_word;
    for (unsigned begin = first; begin < last; begin += batch) {
      const unsigned end = std::min(last, begin + batch);
      words_.clear();
      for (unsigned n = begin / states_per_word; n * states_per_word < end; ++n) {
        const std::uint32_t word = cases.word(n * states_per_word);
        const std::uint32_t asked = native_word(row, word);
        const unsigned spare = native_spare_register({&asked, 1});
        words_.push_back({word, spare, native_place({&asked, 1}, spare)});
        varied_here_ |= word ^ first_word;
      }
      for (unsigned n = begin; n < end; ++n)
        compare_case(cases, n, words_[n / states_per_word - begin / states_per_word]);
    }
    ++rows_;
    if (!failed_here_) ++rows_passed_;
    check_coverage(row, first_word);
  }

  /// A row proves nothing if it had no case, if none of its cases changed anything, or if an operand bit stood still.
  void check_coverage(const RowInfo& row, std::uint32_t word) {
    const auto lacking = [&](const char* what) { lacking_.push_back(std::string(row.row->name) + ": " + what); };
    if (!run_here_) lacking("no case");
    if (options_.one_case >= 0 || options_.cases < enough_cases) return;
    if (!changed_here_ && row.row->model != sve::decode::Kind::prefetch) lacking("no case changes anything");
    for (unsigned bit = 0; bit < 32; ++bit) {
      const std::uint32_t mask = 1u << bit;
      if (!(row.operand_bits() & mask) || varied_here_ & mask) continue;
      bool reserved = false;
      for (const ReservedRule& r : reserved_rules()) reserved |= r.matches(row, word ^ mask);
      if (!reserved) lacking(("bit " + std::to_string(bit) + " of the word never varied").c_str());
    }
  }

  struct PlacedWord {
    std::uint32_t word;
    unsigned spare, place;
  };

  void compare_case(const RowCases& cases, unsigned number, const PlacedWord& w) {
    auto& [original, c, expected, model] = *shared_;
    cases.make(number, w.word, c);
    const bool ask = prepare_native(c);
    const bool stores = c.row->memory.stores();
    expected.state = c.state;
    expected.faulted = false;
    expected.unspecified_begin = expected.unspecified_end = 0;
    if (stores) expected.memory = original;
    NativeResult native;
    if (ask) {
      native = native_run(w.place, w.spare, expected.state);
      expected.faulted = native.faulted;
      expected.fault_address = native.address;
      if (stores) {
        window::save(expected.memory);
        window::fill(original);
      }
    }
    ++cases_;
    ++run_here_;
    if (native.undefined) {
      fail(c, "the processor has no such instruction");
      return;
    }
    apply_rules(c, ask, original, expected);
    run_model(c, model);
    if (stores) window::fill(original);
    if (options_.one_case >= 0) std::fputs(describe_inputs(c).c_str(), stdout);
    changed_here_ += expected.faulted || std::memcmp(&expected.state, &c.state, sizeof c.state) != 0 ||
                     (stores && std::memcmp(&expected.memory, &original, sizeof original) != 0);
    check(c, expected, model);
    if (record_) write_record(c, original, model);
  }

  void check(const TestCase& c, const Outcome& expected, const ModelOutcome& model) {
    std::string difference = first_difference(c, expected, model);
    if (difference.empty() && !model.faulted) {
      const bool stores_word =
          c.row->row->model == sve::decode::Kind::direct || c.row->row->model == sve::decode::Kind::direct_fp;
      if (model.code != AARCH64_DECODE_EXECUTED)
        difference = "the handler did not answer 0";
      else if (model.instr_stored != stores_word)
        difference =
            stores_word ? "the handler did not store the word in instr" : "the handler stored the word in instr";
      else if (model.stray_bytes)
        difference = "a predicate byte of the model holds more than its bit 0";
    }
    if (!difference.empty()) fail(c, difference);
  }

  void fail(const TestCase& c, const std::string& difference) {
    ++failures_;
    if (failed_here_++ >= options_.failures_shown) return;
    std::printf("FAIL %s case %u\n  asm 0x%08x\n  %s\n  repeat: scripts/conformance --seed %" PRIu64
                " --row %s --case %u\n",
                c.row->row->name, c.number, c.word, difference.c_str(), options_.seed, c.row->row->name, c.number);
    std::fflush(stdout);
  }

  void open_record() {
    record_ = std::fopen(options_.write, "wb");
    if (!record_) {
      std::fprintf(stderr, "conformance: cannot write %s\n", options_.write);
      std::exit(2);
    }
    RecordHeader header;
    header.seed = options_.seed;
    std::fwrite(&header, sizeof header, 1, record_);
  }

  void write_record(const TestCase& c, const window::Contents& original, const ModelOutcome& model) {
    const std::vector<std::uint8_t> change = encode_change(c, original, model);
    const RecordCase entry = {hash_case(c), c.number, c.word, static_cast<std::uint16_t>(c.row->index),
                              static_cast<std::uint16_t>(change.size())};
    std::fwrite(&entry, sizeof entry, 1, record_);
    std::fwrite(change.data(), 1, change.size(), record_);
  }

  void replay_case(const RowCases& cases, const RecordCase& entry, const std::vector<std::uint8_t>& change) {
    auto& [original, c, expected, model] = *shared_;
    cases.make(entry.number, cases.word(entry.number), c);
    prepare_native(c);
    ++cases_;
    if (c.word != entry.word || hash_case(c) != entry.hash) {
      fail(c, "this build makes another case of the same seed and number");
      return;
    }
    run_model(c, model);
    if (c.row->memory.stores()) window::fill(original);
    const std::vector<std::uint8_t> here = encode_change(c, original, model);
    if (here == change) return;
    std::size_t at = 0;
    while (at < here.size() && at < change.size() && here[at] == change[at]) ++at;
    fail(c, "the record and this build's outcome differ at byte " + std::to_string(at) + " of the change");
  }

  int report(double seconds) {
    bool failed = failures_ != 0;
    for (const std::string& row : lacking_) {
      std::printf("LACKING %s\n", row.c_str());
      failed = true;
    }
    const bool everything = !options_.row && options_.one_case < 0;
    const auto rule = [&](const char* kind, const char* name, std::uint64_t fired, const char* reason) {
      if (!everything && !fired) return;
      std::printf("%-10s %-36s %8" PRIu64 "  %s\n", kind, name, fired, reason);
      if (!fired) {
        std::printf("rule %s never fired\n", name);
        failed = true;
      }
    };
    for (const ReservedRule& r : reserved_rules()) rule("left out", r.name, r.fired, r.reason);
    for (const DifferenceRule& r : difference_rules())
      if (r.exists) rule("difference", r.name, r.fired, r.reason);
    std::printf("%u of %zu rows passed, %" PRIu64 " cases, %" PRIu64 " failed, seed %" PRIu64 ", %.0f cases a second\n",
                rows_passed_, everything ? all_rows().size() : std::size_t{rows_}, cases_, failures_, options_.seed,
                static_cast<double>(cases_) / seconds);
    return failed ? 1 : 0;
  }

  Options options_;
  std::unique_ptr<Buffers> shared_;
  std::vector<PlacedWord> words_;
  std::vector<std::string> lacking_;
  std::FILE* record_ = nullptr;
  std::uint64_t cases_ = 0, failures_ = 0, run_here_ = 0, changed_here_ = 0;
  std::uint32_t varied_here_ = 0;
  unsigned rows_ = 0, rows_passed_ = 0, failed_here_ = 0;
};

int conform(int argc, char** argv) {
  const Options o = parse(argc, argv);
  if (o.replay) return Run(o).replay();
  const char* why;
  if (!native_available(&why)) {
    std::printf("[  SKIPPED ] %s; scripts/conformance runs this on an emulated processor that has it\n", why);
    return skipped;
  }
  return Run(o).compare_with_processor();
}

}  // namespace
}  // namespace conformance

int main(int argc, char** argv) { return conformance::conform(argc, argv); }
