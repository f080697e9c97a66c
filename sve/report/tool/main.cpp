// sve-report: makes reports of what sve-run has collected, and compares two of them.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "sve/report/tool/report.h"

namespace {

using namespace sve::report;
using Links = std::vector<std::pair<std::string, std::string>>;

std::string formatted(const Json& report, const std::string& file, const Links& others) {
  if (file.ends_with(".json")) return report.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
  if (file.ends_with(".html")) return as_page(report, others);
  if (file.ends_with(".txt") || file == "-") return as_text(report);
  throw std::runtime_error(file + ": no such form of a report; end it in .html, .json or .txt");
}

void write(const Json& report, const std::string& file, const Links& others = {}) {
  const std::string text = formatted(report, file, others);
  if (file == "-") {
    std::cerr << text;
    return;
  }
  std::ofstream out(file, std::ios::binary);
  out << text;
  out.close();
  if (!out) throw std::runtime_error(file + ": cannot be written; name a file that can");
}

std::string with_process(std::string file, const std::string& process) {
  for (std::size_t at; (at = file.find("%p")) != file.npos;) file.replace(at, 2, process);
  return file;
}

// A report a process where the name says so, and in any case one of all of them.
void write_reports(const std::string& directory, const std::vector<std::string>& outputs) {
  const std::vector<ProcessData> all = read_run_data(directory);
  CodeFiles files;
  std::vector<const ProcessData*> pointers;
  std::map<std::uint64_t, std::vector<const ProcessData*>> by_process;  // with what a process has become by exec
  for (const ProcessData& p : all) {
    pointers.push_back(&p);
    by_process[p.id].push_back(&p);
  }
  const Json whole = make_report(pointers, files);
  for (const std::string& output : outputs) {
    Links others;
    if (output.find("%p") != output.npos) {
      for (const auto& [id, own] : by_process) {
        const std::string file = with_process(output, std::to_string(id));
        write(make_report(own, files), file);
        others.emplace_back("process " + std::to_string(id), std::filesystem::path(file).filename().string());
      }
    }
    write(whole, with_process(output, "all"), others);
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "Makes reports of what sve-run has collected. Of one report in JSON it makes one in another form, of two it "
      "makes a "
      "comparison.",
      "sve-report");
  app.set_version_flag("--version", std::string("sve-report ") + SVE_VERSION, "Print the version and exit");
  std::string data;
  std::vector<std::string> outputs, reports;
  app.add_option("--data", data, "A directory of data that processes have left behind")->type_name("DIRECTORY");
  app.add_option("-o,--output", outputs, "What to write: FILE.html, FILE.json, FILE.txt, or - for text on stderr")
      ->type_name("FILE")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_option("REPORT", reports, "Reports in JSON: one, or two to compare")->expected(0, 2);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    std::cerr << "sve-report: " << error.what() << "; see sve-report --help\n";
    return 2;
  }
  try {
    if (data.empty() == reports.empty())
      throw std::runtime_error("give either --data or one or two reports in JSON; see sve-report --help");
    if (!data.empty()) {
      write_reports(data, outputs.empty() ? std::vector<std::string>{"-"} : outputs);
      return 0;
    }
    const Json first = read_report(reports[0]);
    const Json report = reports.size() == 2 ? compare_reports(first, read_report(reports[1])) : first;
    if (outputs.empty()) std::cout << as_text(report);
    for (const std::string& output : outputs) write(report, output);
  } catch (const std::exception& error) {
    std::cerr << "sve-report: " << error.what() << "\n";
    return 1;
  }
  return 0;
}
