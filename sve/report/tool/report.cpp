#include "sve/report/tool/report.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <tuple>

#include "sve/decode/table.h"
#include "sve/decode/text.h"
#include "sve/report/run_data.h"

namespace sve::report {
namespace {

using decode::AccessKind;
using decode::AddressForm;
using decode::Row;

std::string hex(std::uint64_t value, unsigned width = 1) {
  Text<20> text;
  text.hex(value, width);
  return {text.data(), text.size()};
}

std::string mnemonic_of(std::uint32_t word) {
  char buffer[decode::max_text];
  const std::string_view text = decode::text_of(word, buffer);
  return std::string(text.substr(0, text.find(' ')));
}

std::string text_of(std::uint32_t word) {
  char buffer[decode::max_text];
  std::string text(decode::text_of(word, buffer));
  std::replace(text.begin(), text.end(), '\t', ' ');
  return text;
}

const std::string generated = "[generated code]";

// One instruction of the program, of all processes together.
struct Instruction {
  std::size_t module = 0;
  std::uint64_t address = 0;
  std::uint32_t word = 0;
  std::uint64_t executions = 0;
  UseCounts use;
  bool has_use = false;
  CodePlace place;
};

// What one execution moves if every element is active.
std::uint64_t full_bytes(const Row& r, unsigned bits) {
  const decode::InstructionFunction& f = *r.function;
  switch (f.access) {
    case AccessKind::fill:
    case AccessKind::spill:
      return r.operands()[0].kind == decode::OperandKind::p ? bits / 64 : bits / 8;
    case AccessKind::replicate:
      return f.memory_bytes;
    case AccessKind::replicate_quadword:
      return 16;
    default:
      return std::uint64_t{bits / 8} / std::max(r.element_bytes(), 1u) * f.memory_bytes * f.registers;
  }
}

unsigned lanes_of(const Row& r, unsigned bits) {
  if (r.function->access == AccessKind::replicate_quadword) return 16u / r.function->memory_bytes;
  return bits / 8 / std::max(r.element_bytes(), 1u);
}

bool is_gather(const Row& r) {
  return r.form->address == AddressForm::vector_immediate || r.form->address == AddressForm::base_vector;
}

Json lane_use_json(const UseCounts& use, std::uint64_t elements) {
  std::uint64_t governed = 0;
  for (const std::uint64_t bin : use.bins) governed += bin;
  return {{"executions", governed}, {"active", use.active}, {"elements", elements}, {"histogram", use.bins}};
}

std::uint64_t governed_executions(const UseCounts& use) {
  std::uint64_t n = 0;
  for (const std::uint64_t bin : use.bins) n += bin;
  return n;
}

// Sums under names, the largest first.
template <class Key>
class Sums {
 public:
  void add(const Key& key, std::uint64_t executions) {
    auto& [sum, instructions] = sums_[key];
    sum += executions;
    ++instructions;
  }
  struct Item {
    Key key;
    std::uint64_t executions, instructions;
  };
  std::vector<Item> sorted() const {
    std::vector<Item> items;
    for (const auto& [key, sum] : sums_) items.push_back({key, sum.first, sum.second});
    std::stable_sort(items.begin(), items.end(), [](auto& a, auto& b) { return a.executions > b.executions; });
    return items;
  }

 private:
  std::map<Key, std::pair<std::uint64_t, std::uint64_t>> sums_;
};

class Builder {
 public:
  Builder(const std::vector<const ProcessData*>& processes, CodeFiles& files) : processes_(processes), files_(files) {}

  Json build() {
    for (const ProcessData* p : processes_) collect(*p);
    const ProcessData& first = *processes_.front();
    bits_ = first.bits;
    std::vector<Instruction*> all;
    for (auto& [key, i] : instructions_)
      if (i.executions != 0) all.push_back(&i);
    std::stable_sort(all.begin(), all.end(), [](auto* a, auto* b) { return a->executions > b->executions; });
    find_loops(all);

    Json report;
    report["format"] = report_format;
    report["version"] = report_version;
    report["generator"] = std::string("sve-report ") + SVE_VERSION;
    report["vector_bits"] = bits_;
    report["platform"] = first.platform;
    report["program"] = first.program;
    std::uint64_t total = 0, traps = 0, unplaced = 0;
    for (const ProcessData* p : processes_) total += p->total, traps += p->traps, unplaced += p->unplaced;
    report["totals"] = {{"executions", total}, {"unplaced", unplaced}, {"instructions", all.size()},
                        {"traps", traps},      {"sites", site_count_}, {"patched_sites", patched_count_}};
    add_mix(report, all);
    report["functions"] = functions(all);
    report["lines"] = lines(all);
    report["loops"] = loops_;
    report["runs"] = runs();
    report["memory"] = memory(all);
    report["lane_use"] = lane_use_of_all(all);
    report["time"] = time();
    report["threads"] = threads();
    report["processes"] = processes();
    report["modules"] = modules(all);
    report["instructions"] = Json::array();
    for (const Instruction* i : all) report["instructions"].push_back(as_json(*i));
    return report;
  }

 private:
  std::size_t module_number(const std::string& path) {
    const auto [at, is_new] = module_numbers_.try_emplace(path, module_paths_.size());
    if (is_new) module_paths_.push_back(path);
    return at->second;
  }

  void collect(const ProcessData& p) {
    lanes_counted_ |= p.has_lanes;
    for (const ExecutedRun& r : p.runs) {
      const auto m = p.modules.find(r.module);
      const bool in_file = m != p.modules.end();
      const std::size_t module = module_number(in_file ? m->second.path : generated);
      const std::uint64_t offset = in_file ? r.address - m->second.begin + m->second.offset : r.address;
      if (p.platform == "embedded") {  // the other one knows no runs
        ++site_count_;
        patched_count_ += r.patched;
        auto& [sites, executions] = run_lengths_[r.words.size()];
        ++sites;
        executions += r.executions;
      }
      for (const ExecutedWord& w : r.words) {
        const std::uint64_t at = offset + 4 * w.place;
        // Generated code of two processes has nothing in common.
        Instruction& i = instructions_[{module, in_file ? 0 : p.id, at, w.word}];
        if (i.word == 0) {
          i.module = module;
          i.word = w.word;
          i.place.address = at;
          if (in_file) i.place = files_.at(module_paths_[module]).find(at);
          i.address = i.place.address;
        }
        i.executions += r.executions + static_cast<std::uint64_t>(w.partial);
        if (w.use) {
          i.has_use = true;
          i.use.add(*w.use);
        }
      }
    }
  }

  void find_loops(const std::vector<Instruction*>& all) {
    using Key = std::pair<std::size_t, std::uint64_t>;
    Sums<Key> sums;
    std::map<Key, const Instruction*> members;
    for (const Instruction* i : all) {
      if (i->place.loop.end == 0) continue;
      sums.add({i->module, i->place.loop.begin}, i->executions);
      members.try_emplace({i->module, i->place.loop.begin}, i);
    }
    loops_ = Json::array();
    for (const auto& sum : sums.sorted()) {
      const Instruction& i = *members.at(sum.key);
      CodeFile& file = files_.at(module_paths_[i.module]);
      const SourceLine from = file.line_of(i.place.loop.begin), to = file.line_of(i.place.loop.end - 4);
      const bool one_file = from.file == to.file;
      loop_numbers_[sum.key] = loops_.size();
      loops_.push_back({{"module", i.module},
                        {"begin", hex(i.place.loop.begin)},
                        {"end", hex(i.place.loop.end)},
                        {"function", i.place.function},
                        {"file", from.file},
                        {"first_line", one_file ? std::min(from.line, to.line) : from.line},
                        {"last_line", one_file ? std::max(from.line, to.line) : from.line},
                        {"executions", sum.executions},
                        {"instructions", sum.instructions}});
    }
  }

  void add_mix(Json& report, const std::vector<Instruction*>& all) {
    Sums<std::string> mnemonics;
    std::map<std::string, std::string> families_of;  // of a mnemonic, that of its most executed instruction
    Sums<std::string> families;
    Sums<unsigned> sizes;
    for (const Instruction* i : all) {
      const Row* const r = decode::find_row(i->word);
      const std::string family = r ? decode::name_of(r->function->of) : "";
      mnemonics.add(mnemonic_of(i->word), i->executions);
      families_of.try_emplace(mnemonic_of(i->word), family);
      families.add(family, i->executions);
      sizes.add(r ? r->element_bytes() * 8 : 0, i->executions);
    }
    for (const char* name : {"mnemonics", "families", "element_sizes"}) report[name] = Json::array();
    for (const auto& m : mnemonics.sorted())
      report["mnemonics"].push_back({{"name", m.key},
                                     {"family", families_of.at(m.key)},
                                     {"executions", m.executions},
                                     {"instructions", m.instructions}});
    for (const auto& f : families.sorted())
      report["families"].push_back({{"name", f.key}, {"executions", f.executions}, {"instructions", f.instructions}});
    for (const auto& s : sizes.sorted())
      report["element_sizes"].push_back(
          {{"bits", s.key}, {"executions", s.executions}, {"instructions", s.instructions}});
  }

  Json functions(const std::vector<Instruction*>& all) const {
    Sums<std::pair<std::size_t, std::string>> sums;
    std::map<std::pair<std::size_t, std::string>, SourceLine> first;
    for (const Instruction* i : all) {
      const std::pair key(i->module, i->place.function);
      sums.add(key, i->executions);
      const SourceLine own = i->place.inlined.empty() ? i->place.line : i->place.inlined.back().called_from;
      SourceLine& line = first[key];
      if (!own.file.empty() && (line.file.empty() || own.line < line.line)) line = own;
    }
    Json list = Json::array();
    for (const auto& f : sums.sorted()) {
      const SourceLine& line = first.at(f.key);
      list.push_back({{"name", f.key.second},
                      {"module", f.key.first},
                      {"file", line.file},
                      {"line", line.line},
                      {"executions", f.executions},
                      {"instructions", f.instructions}});
    }
    return list;
  }

  static Json lines(const std::vector<Instruction*>& all) {
    Sums<std::pair<std::string, int>> sums;
    for (const Instruction* i : all)
      if (!i->place.line.file.empty()) sums.add({i->place.line.file, i->place.line.line}, i->executions);
    Json list = Json::array();
    for (const auto& l : sums.sorted())
      list.push_back({{"file", l.key.first},
                      {"line", l.key.second},
                      {"executions", l.executions},
                      {"instructions", l.instructions}});
    return list;
  }

  Json runs() const {
    std::uint64_t executions = 0, instructions = 0;
    Json lengths = Json::array();
    for (const auto& [length, counts] : run_lengths_) {
      lengths.push_back({{"length", length}, {"sites", counts.first}, {"executions", counts.second}});
      executions += counts.second;
      instructions += counts.second * length;
    }
    return {{"executions", executions}, {"instructions", instructions}, {"lengths", lengths}};
  }

  Json memory(const std::vector<Instruction*>& all) const {
    struct Moved {
      std::uint64_t executions = 0, bytes = 0;
      bool exact = true;
      Json as_json() const { return {{"executions", executions}, {"bytes", bytes}, {"exact", exact}}; }
    };
    Moved kinds[2][2];  // loads and stores, contiguous and gathered
    std::uint64_t crossing = 0, speculative = 0, shortened = 0;
    for (const Instruction* i : all) {
      const Row* const r = decode::find_row(i->word);
      if (!r || !r->function->is_memory()) continue;
      Moved& m = kinds[r->function->stores()][is_gather(*r)];
      m.executions += i->executions;
      // What was not looked at may have moved as much as fits.
      const std::uint64_t unseen = i->executions - std::min(i->executions, i->use.executions);
      m.bytes += i->use.bytes + unseen * full_bytes(*r, bits_);
      if (unseen != 0 && r->find(decode::OperandRole::governing)) m.exact = false;
      crossing += i->use.crossing;
      if (r->function->speculative()) speculative += i->executions;
      shortened += i->use.shortened;
    }
    return {{"loads", {{"contiguous", kinds[0][0].as_json()}, {"gathered", kinds[0][1].as_json()}}},
            {"stores", {{"contiguous", kinds[1][0].as_json()}, {"scattered", kinds[1][1].as_json()}}},
            {"page_crossing", lanes_counted_ ? Json(crossing) : Json()},
            {"first_fault", {{"executions", speculative}, {"shortened", lanes_counted_ ? Json(shortened) : Json()}}}};
  }

  Json lane_use_of_all(const std::vector<Instruction*>& all) const {
    if (!lanes_counted_) return nullptr;
    UseCounts sum;
    std::uint64_t elements = 0;
    for (const Instruction* i : all) {
      sum.add(i->use);
      if (const Row* const r = decode::find_row(i->word)) elements += governed_executions(i->use) * lanes_of(*r, bits_);
    }
    return lane_use_json(sum, elements);
  }

  Json time() const {
    std::uint64_t emulation = 0, processor = 0;
    for (const ProcessData* p : processes_) {
      if (!p->emulation || !p->processor) continue;
      emulation += *p->emulation;
      processor += *p->processor;
    }
    return processor == 0 ? Json() : Json{{"emulation_ns", emulation}, {"processor_ns", processor}};
  }

  Json threads() const {
    Json list = Json::array();
    for (const ProcessData* p : processes_) {
      // What has ended and what goes on under one number is one thread.
      std::map<std::uint64_t, std::uint64_t> sums;
      for (const auto& [thread, executions] : p->threads) sums[thread] += executions;
      for (const auto& [thread, executions] : sums)
        list.push_back({{"process", p->id}, {"thread", thread}, {"executions", executions}});
    }
    std::stable_sort(list.begin(), list.end(),
                     [](const Json& a, const Json& b) { return a["executions"] > b["executions"]; });
    return list;
  }

  Json processes() const {
    Json list = Json::array();
    for (const ProcessData* p : processes_) {
      list.push_back({{"id", p->id},
                      {"parent", p->parent},
                      {"program", p->program},
                      {"end", p->end.empty() ? "unknown" : p->end},
                      {"signal", p->end == "signal" ? Json(p->signal) : Json()},
                      {"executions", p->total},
                      {"traps", p->traps}});
    }
    return list;
  }

  Json modules(const std::vector<Instruction*>& all) const {
    std::vector<std::uint64_t> sums(module_paths_.size());
    for (const Instruction* i : all) sums[i->module] += i->executions;
    Json list = Json::array();
    for (std::size_t n = 0; n < sums.size(); ++n) {
      const bool is_file = module_paths_[n] != generated;
      list.push_back({{"path", module_paths_[n]},
                      {"build_id", is_file ? files_.at(module_paths_[n]).build_id() : ""},
                      {"executions", sums[n]}});
    }
    return list;
  }

  Json as_json(const Instruction& i) const {
    const Row* const r = decode::find_row(i.word);
    Json inlined = Json::array();
    for (const InlinedCall& call : i.place.inlined)
      inlined.push_back(
          {{"function", call.function}, {"file", call.called_from.file}, {"line", call.called_from.line}});
    const auto loop = loop_numbers_.find({i.module, i.place.loop.begin});
    Json all = {{"module", i.module},
                {"address", hex(i.address)},
                {"word", hex(i.word, 8)},
                {"text", text_of(i.word)},
                {"mnemonic", mnemonic_of(i.word)},
                {"family", r ? decode::name_of(r->function->of) : ""},
                {"element_bits", r ? r->element_bytes() * 8 : 0},
                {"executions", i.executions},
                {"function", i.place.function},
                {"file", i.place.line.file},
                {"line", i.place.line.line},
                {"inlined", inlined},
                {"loop", i.place.loop.end != 0 && loop != loop_numbers_.end() ? Json(loop->second) : Json()}};
    if (i.has_use && r) {
      const std::uint64_t governed = governed_executions(i.use);
      if (governed != 0) all["lane_use"] = lane_use_json(i.use, governed * lanes_of(*r, bits_));
      if (r->function->is_memory())
        all["memory"] = {{"bytes", i.use.bytes}, {"page_crossing", i.use.crossing}, {"shortened", i.use.shortened}};
    }
    return all;
  }

  const std::vector<const ProcessData*>& processes_;
  CodeFiles& files_;
  unsigned bits_ = 0;
  bool lanes_counted_ = false;
  std::uint64_t site_count_ = 0, patched_count_ = 0;
  std::map<std::string, std::size_t> module_numbers_;
  std::vector<std::string> module_paths_;
  std::map<std::tuple<std::size_t, std::uint64_t, std::uint64_t, std::uint32_t>, Instruction> instructions_;
  std::map<std::size_t, std::pair<std::uint64_t, std::uint64_t>> run_lengths_;  // sites, executions
  std::map<std::pair<std::size_t, std::uint64_t>, std::size_t> loop_numbers_;
  Json loops_;
};

}  // namespace

CodeFile& CodeFiles::at(const std::string& path) {
  std::unique_ptr<CodeFile>& file = files_[path];
  if (!file) file = std::make_unique<CodeFile>(path);
  return *file;
}

Json make_report(const std::vector<const ProcessData*>& processes, CodeFiles& files) {
  return Builder(processes, files).build();
}

Json read_report(const std::filesystem::path& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(path.string() + ": cannot be read; give a report in JSON");
  Json report = Json::parse(file, nullptr, false);
  if (!report.is_object() || report.value("format", "") != report_format)
    throw std::runtime_error(path.string() +
                             ": no report; give a .json that sve-run --report or sve-report has written");
  if (report.value("version", 0u) != report_version)
    throw std::runtime_error(path.string() + ": a report of version " + report["version"].dump() + ", not " +
                             std::to_string(report_version) + "; make it anew");
  return report;
}

}  // namespace sve::report
