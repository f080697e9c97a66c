// A report: the JSON that docs/report.schema.json describes. Text, page and comparison are made of it.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "sve/report/tool/code.h"
#include "sve/report/tool/run_data_reader.h"

namespace sve::report {

using Json = nlohmann::ordered_json;

inline constexpr char report_format[] = "sve-run report";
inline constexpr unsigned report_version = 1;

/// The files of code that were asked for, each read once.
class CodeFiles {
 public:
  CodeFile& at(const std::string& path);

 private:
  std::map<std::string, std::unique_ptr<CodeFile>> files_;
};

/// Of one process or of several together.
Json make_report(const std::vector<const ProcessData*>& processes, CodeFiles& files);

/// Reads a report in JSON. Throws std::runtime_error.
Json read_report(const std::filesystem::path& path);

/// What came, went and grew from one report to another, as JSON of its own.
Json compare_reports(const Json& before, const Json& after);

/// Text of at most 100 columns, of a report or of a comparison.
std::string as_text(const Json& report);

/// A page that needs nothing but a browser, of a report or of a comparison. `others` are (name, link) of the pages of
/// single processes.
std::string as_page(const Json& report, const std::vector<std::pair<std::string, std::string>>& others);

}  // namespace sve::report
