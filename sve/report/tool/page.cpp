// Reports as a page: a frame of HTML, style and script, with the report's numbers in it.
#include <algorithm>
#include <fstream>
#include <map>
#include <set>

#include "sve/report/tool/report.h"

namespace sve::report {

extern const char page_frame[];

namespace {

// Sites beyond these are left out of the page, the least executed ones.
constexpr std::size_t most_sites_on_page = 40000;
constexpr std::size_t most_source_bytes = 400 << 10;
constexpr int context_lines = 3;

// Texts that rows name by number.
class Strings {
 public:
  std::size_t number(const std::string& text) {
    const auto [at, is_new] = numbers_.try_emplace(text, list_.size());
    if (is_new) list_.push_back(text);
    return at->second;
  }
  const Json& list() const { return list_; }

 private:
  std::map<std::string, std::size_t> numbers_;
  Json list_ = Json::array();
};

// Lines with counts and what stands around them, of the sources that can be read: {file, lines: [[number, text,
// executions]]}.
Json sources_of(const Json& report) {
  std::map<std::string, std::map<int, std::uint64_t>> counts;
  std::vector<std::pair<std::uint64_t, std::string>> order;
  for (const Json& l : report["lines"]) counts[l["file"]][l["line"]] += l["executions"].get<std::uint64_t>();
  for (const auto& [file, lines] : counts) {
    std::uint64_t sum = 0;
    for (const auto& [line, n] : lines) sum += n;
    order.emplace_back(sum, file);
  }
  std::sort(order.begin(), order.end(),
            [](auto& a, auto& b) { return a.first != b.first ? a.first > b.first : a.second < b.second; });
  Json sources = Json::array();
  std::size_t size = 0;
  for (const auto& [sum, file] : order) {
    std::ifstream in(file);
    if (!in || size > most_source_bytes) continue;
    std::set<int> wanted;
    for (const auto& [line, n] : counts[file])
      for (int k = line - context_lines; k <= line + context_lines; ++k) wanted.insert(k);
    Json lines = Json::array();
    std::string text;
    for (int number = 1; std::getline(in, text) && size <= most_source_bytes; ++number) {
      if (!wanted.contains(number)) continue;
      const auto n = counts[file].find(number);
      size += text.size() + 16;
      lines.push_back({number, text, n == counts[file].end() ? Json() : Json(n->second)});
    }
    sources.push_back({{"file", file}, {"executions", sum}, {"lines", lines}});
  }
  return sources;
}

// The report, but for what is long: that in rows of numbers.
Json compact(const Json& report) {
  Json data;
  for (const auto& [key, value] : report.items())
    if (key != "instructions" && key != "lines") data[key] = value;
  Strings strings;
  Json rows = Json::array();
  for (const Json& i : report["instructions"]) {
    if (rows.size() == most_sites_on_page) break;
    Json row = {i["module"],
                i["address"].get<std::string>().substr(2),
                strings.number(i["text"]),
                i["executions"],
                strings.number(i["function"]),
                strings.number(i["file"]),
                i["line"],
                strings.number(i["family"])};
    if (i.contains("lane_use")) {
      row.push_back(i["lane_use"]["active"]);
      row.push_back(i["lane_use"]["elements"]);
    }
    rows.push_back(std::move(row));
  }
  data["sites"] = std::move(rows);
  data["strings"] = strings.list();
  data["sources"] = sources_of(report);
  return data;
}

}  // namespace

std::string as_page(const Json& report, const std::vector<std::pair<std::string, std::string>>& others) {
  Json data = report["format"] == report_format ? compact(report) : report;
  data["links"] = Json::array();
  for (const auto& [name, link] : others) data["links"].push_back({name, link});
  std::string text = data.dump(-1, ' ', false, Json::error_handler_t::replace);
  // Nothing in it may end the script that holds it.
  for (std::size_t at = 0; (at = text.find("</", at)) != text.npos; at += 3) text.insert(at + 1, "\\");
  for (std::size_t at = 0; (at = text.find("<!--", at)) != text.npos; at += 9) text.replace(at, 1, "\\u003c");
  std::string page = page_frame;
  const std::string mark = "@DATA@";
  return page.replace(page.find(mark), mark.size(), text);
}

}  // namespace sve::report
