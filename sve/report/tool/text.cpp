// Reports as text of at most 100 columns.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>

#include "sve/report/lane_use.h"
#include "sve/report/tool/report.h"

namespace sve::report {
namespace {

constexpr std::size_t width = 100;

std::string grouped(std::uint64_t value) {
  std::string digits = std::to_string(value);
  for (std::ptrdiff_t at = static_cast<std::ptrdiff_t>(digits.size()) - 3; at > 0; at -= 3)
    digits.insert(static_cast<std::size_t>(at), ",");
  return digits;
}

std::string share(double part, double whole) {
  char text[16];
  std::snprintf(text, sizeof text, "%5.1f%%", whole > 0 ? 100 * part / whole : 0.0);
  return text;
}

std::string left(const std::string& text, std::size_t size) {
  if (text.size() <= size) return text + std::string(size - text.size(), ' ');
  return text.substr(0, size - 2) + "..";
}
// Of a path the end says more.
std::string path_end(const std::string& text, std::size_t size) {
  return text.size() <= size ? text : ".." + text.substr(text.size() - size + 2);
}
std::string right(const std::string& text, std::size_t size) {
  return text.size() >= size ? text : std::string(size - text.size(), ' ') + text;
}

std::string bar(double part, double whole, std::size_t size) {
  const double filled = whole > 0 ? part / whole * static_cast<double>(size) : 0;
  return std::string(std::min(size, static_cast<std::size_t>(filled + 0.5)), '#');
}

std::string name_of_function(const Json& f) {
  const std::string name = f.value("name", f.value("function", ""));
  return name.empty() ? "(unknown)" : name;
}

std::string place_of(const std::string& file, int line, std::size_t size) {
  if (file.empty()) return "";
  return path_end(std::filesystem::path(file).filename().string() + ":" + std::to_string(line), size);
}

class Writer {
 public:
  void line(std::string text) {
    while (!text.empty() && text.back() == ' ') text.pop_back();
    text_ += text.substr(0, width) + "\n";
  }
  void title(const std::string& text) {
    line("");
    line(text);
    line(std::string(text.size(), '-'));
  }
  // A line with a share of the whole.
  void item(const std::string& name, std::uint64_t part, std::uint64_t whole, std::size_t name_size = 40,
            const std::string& rest = "") {
    const std::string head = left(name, name_size) + right(grouped(part), 18) + " " +
                             share(static_cast<double>(part), static_cast<double>(whole)) + "  ";
    line(head +
         (rest.empty() ? bar(static_cast<double>(part), static_cast<double>(whole), width - head.size()) : rest));
  }
  std::string take() { return std::move(text_); }

 private:
  std::string text_;
};

const std::string bin_names[] = {"none",   "to 10%", "to 20%", "to 30%", "to 40%",    "to 50%",
                                 "to 60%", "to 70%", "to 80%", "to 90%", "below all", "all"};

void write_memory(Writer& w, const Json& memory) {
  w.title("Memory");
  const auto kind = [&](const char* name, const Json& m) {
    if (m["executions"] == 0) return;
    w.line(left(name, 22) + right(grouped(m["executions"]), 18) + " executions   " +
           (m["exact"].get<bool>() ? "" : "at most ") + grouped(m["bytes"]) + " bytes");
  };
  kind("contiguous loads", memory["loads"]["contiguous"]);
  kind("gathers", memory["loads"]["gathered"]);
  kind("contiguous stores", memory["stores"]["contiguous"]);
  kind("scatters", memory["stores"]["scattered"]);
  const Json& faults = memory["first_fault"];
  if (faults["executions"] != 0)
    w.line(left("first-fault, non-fault", 22) + right(grouped(faults["executions"]), 18) + " executions   " +
           (faults["shortened"].is_null() ? "" : grouped(faults["shortened"]) + " of them shortened"));
  if (!memory["page_crossing"].is_null())
    w.line(left("over a page's end", 22) + right(grouped(memory["page_crossing"]), 18) + " executions");
}

std::string report_text(const Json& r) {
  Writer w;
  const std::uint64_t total = r["totals"]["executions"];
  w.line(path_end(r["program"], width));
  w.line(grouped(total) + " SVE instructions executed at " + r["vector_bits"].dump() + " bits, at " +
         grouped(r["totals"]["instructions"]) + " places; platform " + r["platform"].get<std::string>());
  if (r["totals"]["sites"] != 0)
    w.line(grouped(r["totals"]["traps"]) + " traps, " + grouped(r["totals"]["patched_sites"]) + " of " +
           grouped(r["totals"]["sites"]) + " sites patched");
  if (!r["time"].is_null())
    w.line(share(r["time"]["emulation_ns"].get<double>(), r["time"]["processor_ns"].get<double>()).substr(1) +
           " of the processors' time went into them");
  if (r["totals"]["unplaced"] != 0)
    w.line(grouped(r["totals"]["unplaced"]) + " executions at places that there was no room to count apart");

  const auto section = [&](const char* title, const Json& list, std::size_t most, auto&& write) {
    if (list.empty()) return;
    w.title(title);
    for (std::size_t i = 0; i < std::min(list.size(), most); ++i) write(list[i]);
    if (list.size() > most) w.line("and " + std::to_string(list.size() - most) + " more");
  };
  const auto named = [&](const Json& x) { w.item(x["name"], x["executions"], total, 28); };
  section("Families", r["families"], 30, named);
  section("Mnemonics", r["mnemonics"], 30, named);
  section("Element sizes", r["element_sizes"], 10, [&](const Json& x) {
    w.item(x["bits"] == 0 ? "none" : x["bits"].dump() + " bits", x["executions"], total, 28);
  });
  section("Functions", r["functions"], 30, [&](const Json& x) {
    w.item(name_of_function(x), x["executions"], total, 46, place_of(x["file"], x["line"], 27));
  });
  section("Loops", r["loops"], 20, [&](const Json& x) {
    std::string place = place_of(x["file"], x["first_line"], 22);
    if (!place.empty() && x["first_line"] != x["last_line"]) place += "-" + x["last_line"].dump();
    w.item(left(name_of_function(x), 27) + " " + x["begin"].get<std::string>(), x["executions"], total, 44, place);
  });
  section("Source lines", r["lines"], 30, [&](const Json& x) {
    w.item(path_end(x["file"].get<std::string>() + ":" + x["line"].dump(), 58), x["executions"], total, 60);
  });
  section("Hot instructions", r["instructions"], 40, [&](const Json& x) {
    w.item(right(x["address"], 14) + "  " + left(x["text"], 40), x["executions"], total, 57,
           left(name_of_function(x), 17));
  });
  if (!r["lane_use"].is_null()) {
    const Json& use = r["lane_use"];
    w.title("Lane use of predicated instructions");
    w.line(share(use["active"].get<double>(), use["elements"].get<double>()).substr(1) + " of " +
           grouped(use["elements"]) + " elements were active");
    for (std::size_t i = 0; i < lane_bins; ++i) w.item(bin_names[i], use["histogram"][i], use["executions"], 28);
  }
  write_memory(w, r["memory"]);
  const Json& runs = r["runs"];
  if (!runs["lengths"].empty()) w.title("Runs");
  for (const Json& x : runs["lengths"])
    w.item("of " + x["length"].dump() + ", at " + x["sites"].dump() + " sites", x["executions"], runs["executions"],
           28);
  section("Threads", r["threads"], 20, [&](const Json& x) {
    w.item("process " + x["process"].dump() + ", thread " + x["thread"].dump(), x["executions"], total, 40);
  });
  section("Processes", r["processes"], 50, [&](const Json& x) {
    std::string end = x["end"] == "unknown" ? "end not known" : "ended by " + x["end"].get<std::string>();
    if (!x["signal"].is_null()) end += " " + x["signal"].dump();
    w.item(right(x["id"].dump(), 8) + "  " + std::filesystem::path(x["program"].get<std::string>()).filename().string(),
           x["executions"], total, 46, end);
  });
  return w.take();
}

std::string signed_number(std::int64_t value) {
  return (value < 0 ? "-" : value > 0 ? "+" : "") + grouped(static_cast<std::uint64_t>(std::abs(value)));
}

std::string comparison_text(const Json& c) {
  Writer w;
  const auto side = [&](const char* name, const Json& s) {
    w.line(std::string(name) + path_end(s["program"], 60) + ", " + s["vector_bits"].dump() + " bits");
  };
  side("before: ", c["before"]);
  side("after:  ", c["after"]);
  for (const Json& section : c["sections"]) {
    w.title(section["title"]);
    w.line(left("", 48) + right("before", 16) + right("after", 16) + right("change", 19));
    std::size_t shown = 0;
    for (const Json& x : section["items"]) {
      if (++shown > 40) continue;
      w.line(left(path_end(x["name"], 48), 48) + right(grouped(x["before"]), 16) + right(grouped(x["after"]), 16) +
             right(signed_number(x["change"]), 19));
    }
    if (shown > 40) w.line("and " + std::to_string(shown - 40) + " more");
  }
  return w.take();
}

}  // namespace

std::string as_text(const Json& report) {
  return report["format"] == report_format ? report_text(report) : comparison_text(report);
}

}  // namespace sve::report
