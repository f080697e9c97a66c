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

using decode::access_kind;
using decode::address_form;
using decode::row;

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
struct instruction {
  std::size_t module = 0;
  std::uint64_t address = 0;
  std::uint32_t word = 0;
  std::uint64_t executions = 0;
  use_counts use;
  bool has_use = false;
  code_place place;
};

// What one execution moves if every element is active.
std::uint64_t full_bytes(const row& r, unsigned bits) {
  const decode::instruction_function& f = *r.function;
  switch (f.access) {
    case access_kind::fill:
    case access_kind::spill:
      return r.operands()[0].kind == decode::operand_kind::p ? bits / 64 : bits / 8;
    case access_kind::replicate:
      return f.memory_bytes;
    case access_kind::replicate_quadword:
      return 16;
    default:
      return std::uint64_t{bits / 8} / std::max(r.element_bytes(), 1u) * f.memory_bytes * f.registers;
  }
}

unsigned lanes_of(const row& r, unsigned bits) {
  if (r.function->access == access_kind::replicate_quadword) return 16u / r.function->memory_bytes;
  return bits / 8 / std::max(r.element_bytes(), 1u);
}

bool is_gather(const row& r) {
  return r.form->address == address_form::vector_immediate || r.form->address == address_form::base_vector;
}

json lane_use_json(const use_counts& use, std::uint64_t elements) {
  std::uint64_t governed = 0;
  for (const std::uint64_t bin : use.bins) governed += bin;
  return {{"executions", governed}, {"active", use.active}, {"elements", elements}, {"histogram", use.bins}};
}

std::uint64_t governed_executions(const use_counts& use) {
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
  struct item {
    Key key;
    std::uint64_t executions, instructions;
  };
  std::vector<item> sorted() const {
    std::vector<item> items;
    for (const auto& [key, sum] : sums_) items.push_back({key, sum.first, sum.second});
    std::stable_sort(items.begin(), items.end(), [](auto& a, auto& b) { return a.executions > b.executions; });
    return items;
  }

 private:
  std::map<Key, std::pair<std::uint64_t, std::uint64_t>> sums_;
};

class Builder {
 public:
  Builder(const std::vector<const process_data*>& processes, CodeFiles& files) : processes_(processes), files_(files) {}

  json build() {
    for (const process_data* p : processes_) collect(*p);
    const process_data& first = *processes_.front();
    bits_ = first.bits;
    std::vector<instruction*> all;
    for (auto& [key, i] : instructions_)
      if (i.executions != 0) all.push_back(&i);
    std::stable_sort(all.begin(), all.end(), [](auto* a, auto* b) { return a->executions > b->executions; });
    find_loops(all);

    json report;
    report["format"] = report_format;
    report["version"] = report_version;
    report["generator"] = std::string("sve-report ") + SVE_VERSION;
    report["vector_bits"] = bits_;
    report["platform"] = first.platform;
    report["program"] = first.program;
    std::uint64_t total = 0, traps = 0, unplaced = 0;
    for (const process_data* p : processes_) total += p->total, traps += p->traps, unplaced += p->unplaced;
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
    report["instructions"] = json::array();
    for (const instruction* i : all) report["instructions"].push_back(as_json(*i));
    return report;
  }

 private:
  std::size_t module_number(const std::string& path) {
    const auto [at, is_new] = module_numbers_.try_emplace(path, module_paths_.size());
    if (is_new) module_paths_.push_back(path);
    return at->second;
  }

  void collect(const process_data& p) {
    lanes_counted_ |= p.has_lanes;
    for (const executed_run& r : p.runs) {
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
      for (const executed_word& w : r.words) {
        const std::uint64_t at = offset + 4 * w.place;
        // Generated code of two processes has nothing in common.
        instruction& i = instructions_[{module, in_file ? 0 : p.id, at, w.word}];
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

  void find_loops(const std::vector<instruction*>& all) {
    using key = std::pair<std::size_t, std::uint64_t>;
    Sums<key> sums;
    std::map<key, const instruction*> members;
    for (const instruction* i : all) {
      if (i->place.loop.end == 0) continue;
      sums.add({i->module, i->place.loop.begin}, i->executions);
      members.try_emplace({i->module, i->place.loop.begin}, i);
    }
    loops_ = json::array();
    for (const auto& sum : sums.sorted()) {
      const instruction& i = *members.at(sum.key);
      CodeFile& file = files_.at(module_paths_[i.module]);
      const source_line from = file.line_of(i.place.loop.begin), to = file.line_of(i.place.loop.end - 4);
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

  void add_mix(json& report, const std::vector<instruction*>& all) {
    Sums<std::string> mnemonics;
    std::map<std::string, std::string> families_of;  // of a mnemonic, that of its most executed instruction
    Sums<std::string> families;
    Sums<unsigned> sizes;
    for (const instruction* i : all) {
      const row* const r = decode::find_row(i->word);
      const std::string family = r ? decode::name_of(r->function->of) : "";
      mnemonics.add(mnemonic_of(i->word), i->executions);
      families_of.try_emplace(mnemonic_of(i->word), family);
      families.add(family, i->executions);
      sizes.add(r ? r->element_bytes() * 8 : 0, i->executions);
    }
    for (const char* name : {"mnemonics", "families", "element_sizes"}) report[name] = json::array();
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

  json functions(const std::vector<instruction*>& all) const {
    Sums<std::pair<std::size_t, std::string>> sums;
    std::map<std::pair<std::size_t, std::string>, source_line> first;
    for (const instruction* i : all) {
      const std::pair key(i->module, i->place.function);
      sums.add(key, i->executions);
      const source_line own = i->place.inlined.empty() ? i->place.line : i->place.inlined.back().called_from;
      source_line& line = first[key];
      if (!own.file.empty() && (line.file.empty() || own.line < line.line)) line = own;
    }
    json list = json::array();
    for (const auto& f : sums.sorted()) {
      const source_line& line = first.at(f.key);
      list.push_back({{"name", f.key.second},
                      {"module", f.key.first},
                      {"file", line.file},
                      {"line", line.line},
                      {"executions", f.executions},
                      {"instructions", f.instructions}});
    }
    return list;
  }

  static json lines(const std::vector<instruction*>& all) {
    Sums<std::pair<std::string, int>> sums;
    for (const instruction* i : all)
      if (!i->place.line.file.empty()) sums.add({i->place.line.file, i->place.line.line}, i->executions);
    json list = json::array();
    for (const auto& l : sums.sorted())
      list.push_back({{"file", l.key.first},
                      {"line", l.key.second},
                      {"executions", l.executions},
                      {"instructions", l.instructions}});
    return list;
  }

  json runs() const {
    std::uint64_t executions = 0, instructions = 0;
    json lengths = json::array();
    for (const auto& [length, counts] : run_lengths_) {
      lengths.push_back({{"length", length}, {"sites", counts.first}, {"executions", counts.second}});
      executions += counts.second;
      instructions += counts.second * length;
    }
    return {{"executions", executions}, {"instructions", instructions}, {"lengths", lengths}};
  }

  json memory(const std::vector<instruction*>& all) const {
    struct moved {
      std::uint64_t executions = 0, bytes = 0;
      bool exact = true;
      json as_json() const { return {{"executions", executions}, {"bytes", bytes}, {"exact", exact}}; }
    };
    moved kinds[2][2];  // loads and stores, contiguous and gathered
    std::uint64_t crossing = 0, speculative = 0, shortened = 0;
    for (const instruction* i : all) {
      const row* const r = decode::find_row(i->word);
      if (!r || !r->function->is_memory()) continue;
      moved& m = kinds[r->function->stores()][is_gather(*r)];
      m.executions += i->executions;
      // What was not looked at may have moved as much as fits.
      const std::uint64_t unseen = i->executions - std::min(i->executions, i->use.executions);
      m.bytes += i->use.bytes + unseen * full_bytes(*r, bits_);
      if (unseen != 0 && r->find(decode::operand_role::governing)) m.exact = false;
      crossing += i->use.crossing;
      if (r->function->speculative()) speculative += i->executions;
      shortened += i->use.shortened;
    }
    return {{"loads", {{"contiguous", kinds[0][0].as_json()}, {"gathered", kinds[0][1].as_json()}}},
            {"stores", {{"contiguous", kinds[1][0].as_json()}, {"scattered", kinds[1][1].as_json()}}},
            {"page_crossing", lanes_counted_ ? json(crossing) : json()},
            {"first_fault", {{"executions", speculative}, {"shortened", lanes_counted_ ? json(shortened) : json()}}}};
  }

  json lane_use_of_all(const std::vector<instruction*>& all) const {
    if (!lanes_counted_) return nullptr;
    use_counts sum;
    std::uint64_t elements = 0;
    for (const instruction* i : all) {
      sum.add(i->use);
      if (const row* const r = decode::find_row(i->word)) elements += governed_executions(i->use) * lanes_of(*r, bits_);
    }
    return lane_use_json(sum, elements);
  }

  json time() const {
    std::uint64_t emulation = 0, processor = 0;
    for (const process_data* p : processes_) {
      if (!p->emulation || !p->processor) continue;
      emulation += *p->emulation;
      processor += *p->processor;
    }
    return processor == 0 ? json() : json{{"emulation_ns", emulation}, {"processor_ns", processor}};
  }

  json threads() const {
    json list = json::array();
    for (const process_data* p : processes_) {
      // What has ended and what goes on under one number is one thread.
      std::map<std::uint64_t, std::uint64_t> sums;
      for (const auto& [thread, executions] : p->threads) sums[thread] += executions;
      for (const auto& [thread, executions] : sums)
        list.push_back({{"process", p->id}, {"thread", thread}, {"executions", executions}});
    }
    std::stable_sort(list.begin(), list.end(),
                     [](const json& a, const json& b) { return a["executions"] > b["executions"]; });
    return list;
  }

  json processes() const {
    json list = json::array();
    for (const process_data* p : processes_) {
      list.push_back({{"id", p->id},
                      {"parent", p->parent},
                      {"program", p->program},
                      {"end", p->end.empty() ? "unknown" : p->end},
                      {"signal", p->end == "signal" ? json(p->signal) : json()},
                      {"executions", p->total},
                      {"traps", p->traps}});
    }
    return list;
  }

  json modules(const std::vector<instruction*>& all) const {
    std::vector<std::uint64_t> sums(module_paths_.size());
    for (const instruction* i : all) sums[i->module] += i->executions;
    json list = json::array();
    for (std::size_t n = 0; n < sums.size(); ++n) {
      const bool is_file = module_paths_[n] != generated;
      list.push_back({{"path", module_paths_[n]},
                      {"build_id", is_file ? files_.at(module_paths_[n]).build_id() : ""},
                      {"executions", sums[n]}});
    }
    return list;
  }

  json as_json(const instruction& i) const {
    const row* const r = decode::find_row(i.word);
    json inlined = json::array();
    for (const inlined_call& call : i.place.inlined)
      inlined.push_back(
          {{"function", call.function}, {"file", call.called_from.file}, {"line", call.called_from.line}});
    const auto loop = loop_numbers_.find({i.module, i.place.loop.begin});
    json all = {{"module", i.module},
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
                {"loop", i.place.loop.end != 0 && loop != loop_numbers_.end() ? json(loop->second) : json()}};
    if (i.has_use && r) {
      const std::uint64_t governed = governed_executions(i.use);
      if (governed != 0) all["lane_use"] = lane_use_json(i.use, governed * lanes_of(*r, bits_));
      if (r->function->is_memory())
        all["memory"] = {{"bytes", i.use.bytes}, {"page_crossing", i.use.crossing}, {"shortened", i.use.shortened}};
    }
    return all;
  }

  const std::vector<const process_data*>& processes_;
  CodeFiles& files_;
  unsigned bits_ = 0;
  bool lanes_counted_ = false;
  std::uint64_t site_count_ = 0, patched_count_ = 0;
  std::map<std::string, std::size_t> module_numbers_;
  std::vector<std::string> module_paths_;
  std::map<std::tuple<std::size_t, std::uint64_t, std::uint64_t, std::uint32_t>, instruction> instructions_;
  std::map<std::size_t, std::pair<std::uint64_t, std::uint64_t>> run_lengths_;  // sites, executions
  std::map<std::pair<std::size_t, std::uint64_t>, std::size_t> loop_numbers_;
  json loops_;
};

}  // namespace

CodeFile& CodeFiles::at(const std::string& path) {
  std::unique_ptr<CodeFile>& file = files_[path];
  if (!file) file = std::make_unique<CodeFile>(path);
  return *file;
}

json make_report(const std::vector<const process_data*>& processes, CodeFiles& files) {
  return Builder(processes, files).build();
}

json read_report(const std::filesystem::path& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(path.string() + ": cannot be read; give a report in JSON");
  json report = json::parse(file, nullptr, false);
  if (!report.is_object() || report.value("format", "") != report_format)
    throw std::runtime_error(path.string() +
                             ": no report; give a .json that sve-run --report or sve-report has written");
  if (report.value("version", 0u) != report_version)
    throw std::runtime_error(path.string() + ": a report of version " + report["version"].dump() + ", not " +
                             std::to_string(report_version) + "; make it anew");
  return report;
}

}  // namespace sve::report
