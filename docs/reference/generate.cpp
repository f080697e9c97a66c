// usage: generate SOURCES DIRECTORY. Writes the operation reference, a page a family, from the descriptions of the rows
// and from what the sources of both models say about their lanes.
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "sve/decode/table.h"
#include "sve/decode/text.h"
#include "sve/lanes/repeat.h"

namespace {

namespace fs = std::filesystem;
using sve::decode::AccessKind;
using sve::decode::Map;
using sve::decode::Operand;
using sve::decode::Row;

/// The operations of the routines, by the routine's name.
const std::map<std::string, std::string> operations = {
#define ROUTINE(shape, type, op) {"Vec" #type #op, #op},
#define SVE_ROUTINES(shape, types, ...) SVE_FOR_EACH_PAIR(ROUTINE, shape, types, __VA_ARGS__)
#include "sve/veclib/routines.inc"
};

/// What stands in the sources: the comment at an instruction function, and the line that defines a routine's lanes.
struct Said {
  std::map<std::string, std::string> at_function, at_operation;
};

void read_source(const fs::path& path, Said& known) {
  std::ifstream source(path);
  std::string comment;
  for (std::string line; std::getline(source, line);) {
    if (line.starts_with("// ")) {
      comment += (comment.empty() ? "" : " ") + line.substr(3);
      continue;
    }
    if (const std::size_t at = line.find(" sve_"); at != line.npos && !comment.empty() && line[0] != ' ')
      known.at_function[line.substr(at + 1, line.find('(', at) - at - 1)] = comment;
    if (line.starts_with("SVE_DEFINE")) {
      const auto depth = [&] {
        return std::count(line.begin(), line.end(), '(') - std::count(line.begin(), line.end(), ')');
      };
      for (std::string more; depth() > 0 && std::getline(source, more);)
        line += more.substr(more.find_first_not_of(' ') - 1);
      const std::size_t open = line.find('('), comma = line.find(',', open);
      if (comma != line.npos) known.at_operation[line.substr(open + 1, comma - open - 1)] = line;
    }
    comment.clear();
  }
}

Said read_sources(const fs::path& root) {
  Said known;
  for (const char* folder : {"sve/insn", "sve/veclib"})
    for (const auto& file : fs::directory_iterator(root / folder))
      if (file.path().extension() == ".cpp") read_source(file.path(), known);
  return known;
}

/// The row's syntax: the text of a word whose registers are told apart and whose immediates are small.
std::string syntax(const Map& m, const Row& r) {
  std::uint32_t word = m.word(r.key), n = 0;
  for (const Operand& o : r.operands())
    if (o.is_register()) word = o.with(word, n++) | m.word(r.key);
  char buffer[sve::decode::max_text];
  return std::string(sve::decode::text_of(word, buffer));
}

std::string flags(sve::decode::Flags f) {
  std::string text;
  for (const auto& [bit, name] : {std::pair(sve::decode::flag_nzcv, "NZCV"), std::pair(sve::decode::flag_fpsr, "FPSR"),
                                  std::pair(sve::decode::flag_ffr, "FFR")})
    if (f & bit) text += (text.empty() ? "" : ", ") + std::string(name);
  return text.empty() ? "none" : text;
}

const char* engine(const Row& r) {
  switch (r.model) {
    case sve::decode::Kind::direct:
      return "function";
    case sve::decode::Kind::direct_fp:
      return "function, host's floating point";
    case sve::decode::Kind::library:
      return "routine";
    default:
      return "nothing to do";
  }
}

/// Where results differ from the architecture's.
std::vector<std::string> differences(const Row& r) {
  std::vector<std::string> found;
  const AccessKind access = r.function->access;
  if (access == AccessKind::first_fault && r.is_direct())
    found.push_back(
        "The first element, active or not, and the end of the span are probed by page; elements beyond an "
        "unreadable page are marked and keep their old value.");
  else if (access == AccessKind::first_fault)
    found.push_back(
        "Every active element is read under guard, the first one too: none faults; from the first that is "
        "not readable, elements are 0 and marked.");
  if (access == AccessKind::non_fault)
    found.push_back(
        "Readability is asked once a page, at the first active element there; marked elements keep their "
        "old value.");
  for (const Operand& o : r.operands()) {
    if (o.role == sve::decode::OperandRole::offset && o.kind == sve::decode::OperandKind::x &&
        access != AccessKind::first_fault)
      found.push_back("Index register 31, which is reserved, reads as 0.");
    if (o.spelled == sve::decode::Spelling::shifted && r.element_bytes() == 1)
      found.push_back("A shifted immediate, which is reserved, is cut to the element: 0.");
    if (o.spelled == sve::decode::Spelling::logical)
      found.push_back(
          "A mask whose ones fill its element, which is reserved, gives 0 at 64 bits; with N clear and imms "
          "all ones its expansion does not return.");
  }
  return found;
}

/// The shapes of the functions or routines, by name: the types that a header gives them, in C++'s own words.
std::map<std::string, std::string> read_shapes(const fs::path& path, std::map<std::string, std::string> names) {
  std::map<std::string, std::string> shapes;
  std::ifstream source(path);
  for (std::string line; std::getline(source, line);) {
    // "using NAME = TYPE;", or "SVE_BY_VALUE_SHAPE(NAME, TYPE)".
    const bool is_alias = line.starts_with("using ");
    if (!is_alias && !line.starts_with("SVE_BY_VALUE_SHAPE(")) continue;
    const std::size_t begin = is_alias ? 6 : line.find('(') + 1;
    const std::size_t is = is_alias ? line.find(" = ") : line.find(", ");
    const std::size_t end = is_alias ? line.find(';') : line.rfind(')');
    std::string type;
    for (std::size_t at = is + (is_alias ? 3 : 2); at < end;) {
      std::size_t next = at;
      while (next < end && (std::isalnum(static_cast<unsigned char>(line[next])) || line[next] == '_')) ++next;
      const std::string word = line.substr(at, std::max<std::size_t>(next - at, 1));
      type += names.contains(word) ? names[word] : word;
      at += word.size();
    }
    const std::string name = line.substr(begin, is - begin);
    (type.find('(') == type.npos ? names : shapes)[name] = type;
  }
  return shapes;
}

/// Each function and routine with its parameters' types, for who looks for one by name.
void write_signatures(std::ostream& out, const fs::path& root) {
  const auto functions = read_shapes(root / "sve/insn/signatures.h", {});
  const auto routines = read_shapes(root / "sve/veclib/signatures.inc", {});
  const auto declare = [&](const std::map<std::string, std::string>& shapes, const char* shape,
                           const std::string& name) {
    std::string type = shapes.at(shape);
    type.insert(type.find('('), " " + name);
    out << type << ";\n";
  };
  out << "# Signatures\n\nThe instruction functions (`sve/insn/functions.h`):\n\n```c++\n";
#define FUNCTION(shape, name) declare(functions, #shape, "sve_" #name);
#define SVE_FUNCTIONS(shape, ...) SVE_FOR_EACH_WITH(FUNCTION, shape, __VA_ARGS__)
#define SVE_UNREACHED_FUNCTIONS SVE_FUNCTIONS
#include "sve/insn/functions.inc"
  out << "```\n\nThose that report themselves unimplemented, and return 2:\n\n```c++\n";
#define SVE_STUBS SVE_FUNCTIONS
#include "sve/insn/stubs.inc"
  out << "```\n\nThe routines (`sve/veclib/routines.h`):\n\n```c++\n";
#undef ROUTINE
#undef SVE_ROUTINES
#define ROUTINE(shape, type, op) declare(routines, #shape, "Vec" #type #op);
#define SVE_ROUTINES(shape, types, ...) SVE_FOR_EACH_PAIR(ROUTINE, shape, types, __VA_ARGS__)
#include "sve/veclib/routines.inc"
  out << "```\n";
}

struct Placed {
  const Map* in;
  const Row* of;
};

void write_page(std::ostream& out, const std::string& family,
                const std::map<std::string, std::vector<Placed>>& mnemonics, const Said& known) {
  out << "# " << family << "\n\nMnemonics: ";
  for (const auto& [mnemonic, rows] : mnemonics) out << "[" << mnemonic << "](#" << mnemonic << ") ";
  out << "\n";
  for (const auto& [mnemonic, rows] : mnemonics) {
    out << "\n## " << mnemonic << "\n\n";
    out << "| Syntax | Element bytes | Row and routine | Runs in | Instruction function | Flags read | Flags written "
           "|\n"
           "|---|---|---|---|---|---|---|\n";
    std::map<std::string, int> notes;
    for (const auto& [m, r] : rows) {
      out << "| `" << syntax(*m, *r) << "` | " << (r->element_bytes() ? std::to_string(r->element_bytes()) : "-")
          << " | `" << r->name << "` | " << engine(*r) << " | `" << r->function->name
          << (r->function->body ? "`" : "` (stub)") << " | " << flags(r->function->reads) << " | "
          << flags(r->function->writes) << " |\n";
      if (const auto at = known.at_function.find(r->function->name); at != known.at_function.end())
        notes["Function: " + at->second];
      if (const auto op = operations.find(r->name); op != operations.end())
        if (const auto at = known.at_operation.find(op->second); at != known.at_operation.end())
          notes["Routine: `" + at->second + "`"];
      for (const std::string& difference : differences(*r)) notes["Differs from the architecture: " + difference];
    }
    if (!notes.empty()) out << "\n";
    for (const auto& [note, unused] : notes) out << "- " << note << "\n";
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: generate SOURCES DIRECTORY\n";
    return 2;
  }
  const Said known = read_sources(argv[1]);
  std::map<std::string, std::map<std::string, std::vector<Placed>>> families;
  for (const Map* m : sve::decode::maps_in_is_sve_order())
    for (const Row& r : m->rows) families[name_of(r.function->of)][std::string(r.mnemonic())].push_back({m, &r});
  const fs::path directory = argv[2];
  fs::create_directories(directory);
  std::ofstream index(directory / "index.md");
  index << "# Operations by family\n\nBy name, with the types of their parameters: [signatures](signatures.md).\n\n";
  std::ofstream signatures(directory / "signatures.md");
  write_signatures(signatures, argv[1]);
  for (const auto& [family, mnemonics] : families) {
    std::ofstream page(directory / (family + ".md"));
    write_page(page, family, mnemonics, known);
    index << "- [" << family << "](" << family << ".md):";
    for (const auto& [mnemonic, rows] : mnemonics) index << ' ' << mnemonic;
    index << "\n";
    if (!page) {
      std::cerr << "generate: cannot write to " << directory << "\n";
      return 1;
    }
  }
  return 0;
}
