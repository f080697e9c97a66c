// What an ELF file tells of its code: functions, source lines, loops.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace sve::report {

struct SourceLine {
  std::string file;  ///< empty if it is not known
  int line = 0;
};

/// A function whose body stands in another one.
struct InlinedCall {
  std::string function;
  SourceLine called_from;
};

struct LoopPlace {
  std::uint64_t begin = 0, end = 0;  ///< from the branch's target to the branch; end 0 if there is no loop
};

struct CodePlace {
  std::uint64_t address = 0;  ///< in the file's own addresses, as addr2line takes them
  std::string function;       ///< empty if it is not known
  SourceLine line;
  std::vector<InlinedCall> inlined;  ///< the innermost one first
  LoopPlace loop;                    ///< the innermost one
};

class CodeFile {
 public:
  /// Of a file that cannot be read nothing is told but addresses.
  explicit CodeFile(const std::string& path);
  ~CodeFile();
  CodeFile(const CodeFile&) = delete;
  CodeFile& operator=(const CodeFile&) = delete;

  /// Of what stands at an offset in the file.
  CodePlace find(std::uint64_t offset);
  SourceLine line_of(std::uint64_t address);
  /// In hexadecimal digits; empty if it has none.
  std::string build_id();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace sve::report
