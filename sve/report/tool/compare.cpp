// Two reports beside each other.
#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "sve/report/tool/report.h"

namespace sve::report {
namespace {

using Names = std::map<std::string, std::pair<std::uint64_t, std::uint64_t>>;

// What changed most comes first; what did not is not told of.
Json items_of(const Names& all) {
  Json items = Json::array();
  for (const auto& [name, counts] : all) {
    const auto [before, after] = counts;
    if (before == after) continue;
    items.push_back({{"name", name},
                     {"before", before},
                     {"after", after},
                     {"change", static_cast<std::int64_t>(after - before)},
                     {"kind", before == 0      ? "came"
                              : after == 0     ? "went"
                              : after > before ? "grew"
                                               : "shrank"}});
  }
  std::stable_sort(items.begin(), items.end(), [](const Json& a, const Json& b) {
    return std::abs(a["change"].get<std::int64_t>()) > std::abs(b["change"].get<std::int64_t>());
  });
  return items;
}

template <class Name>
Json section(const char* title, const Json& before, const Json& after, const char* list, const char* counted,
             Name&& name) {
  Names all;
  for (const Json& x : before[list]) all[name(x)].first += x[counted].get<std::uint64_t>();
  for (const Json& x : after[list]) all[name(x)].second += x[counted].get<std::uint64_t>();
  return {{"title", title}, {"items", items_of(all)}};
}

Json totals_section(const Json& before, const Json& after) {
  Json items = Json::array();
  const auto add = [&](const char* name, const Json& a, const Json& b) {
    if (a.is_null() || b.is_null()) return;
    const auto from = a.get<std::uint64_t>(), to = b.get<std::uint64_t>();
    items.push_back({{"name", name},
                     {"before", from},
                     {"after", to},
                     {"change", static_cast<std::int64_t>(to - from)},
                     {"kind", from == to  ? "same"
                              : to > from ? "grew"
                                          : "shrank"}});
  };
  const auto total = [&](const char* name, const char* key) { add(name, before["totals"][key], after["totals"][key]); };
  total("executions", "executions");
  total("instructions in the code", "instructions");
  total("sites", "sites");
  total("traps", "traps");
  add("runs", before["runs"]["executions"], after["runs"]["executions"]);
  if (!before["lane_use"].is_null() && !after["lane_use"].is_null()) {
    add("active elements", before["lane_use"]["active"], after["lane_use"]["active"]);
    add("elements of predicated instructions", before["lane_use"]["elements"], after["lane_use"]["elements"]);
  }
  return {{"title", "Totals"}, {"items", items}};
}

}  // namespace

Json compare_reports(const Json& before, const Json& after) {
  const auto side = [](const Json& r) {
    return Json{{"program", r["program"]},
                {"platform", r["platform"]},
                {"vector_bits", r["vector_bits"]},
                {"executions", r["totals"]["executions"]}};
  };
  const auto name = [](const Json& x) { return x["name"].get<std::string>(); };
  Json c;
  c["format"] = "sve-run comparison";
  c["version"] = report_version;
  c["generator"] = std::string("sve-report ") + SVE_VERSION;
  c["before"] = side(before);
  c["after"] = side(after);
  c["sections"] = Json::array();
  c["sections"].push_back(totals_section(before, after));
  c["sections"].push_back(section("Families", before, after, "families", "executions", name));
  c["sections"].push_back(section("Mnemonics", before, after, "mnemonics", "executions", name));
  c["sections"].push_back(section("Functions", before, after, "functions", "executions", [](const Json& x) {
    const std::string known = x["name"];
    return known.empty() ? std::string("(unknown)") : known;
  }));
  c["sections"].push_back(section("Source lines", before, after, "lines", "executions",
                                  [](const Json& x) { return x["file"].get<std::string>() + ":" + x["line"].dump(); }));
  c["sections"].push_back(section("Instructions by text", before, after, "instructions", "executions",
                                  [](const Json& x) { return x["text"].get<std::string>(); }));
  return c;
}

}  // namespace sve::report
