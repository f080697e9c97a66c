// What sve-run makes of command lines and of programs that it cannot run.
#include <elf.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "sve/runner/launcher/check.h"
#include "sve/runner/launcher/code.h"
#include "sve/runner/launcher/command_line.h"
#include "sve/runner/launcher/dynamorio.h"
#include "sve/runner/launcher/library.h"
#include "sve/runner/launcher/program.h"

namespace {

using namespace sve::runner;
using Words = std::vector<std::string>;

TEST(CommandLine, OptionsEndAtTheProgram) {
  const auto parsed = parse_command_line({"--quiet", "prog", "--counts", "-x", "--", "--version"});
  EXPECT_TRUE(parsed.run);
  EXPECT_TRUE(parsed.line.quiet);
  EXPECT_FALSE(parsed.line.counts);
  EXPECT_EQ(parsed.line.program, (Words{"prog", "--counts", "-x", "--", "--version"}));
}

TEST(CommandLine, TwoDashesEndTheOptions) {
  const auto parsed = parse_command_line({"-q", "--", "-odd-name", "1"});
  EXPECT_TRUE(parsed.run);
  EXPECT_EQ(parsed.line.program, (Words{"-odd-name", "1"}));
}

TEST(CommandLine, Counts) {
  auto parsed = parse_command_line({"--counts", "prog"});
  EXPECT_TRUE(parsed.run);
  EXPECT_TRUE(parsed.line.counts);
  EXPECT_EQ(parsed.line.counts_file, "");
  EXPECT_EQ(parsed.line.program, Words{"prog"});
  parsed = parse_command_line({"--counts=/tmp/a b:c", "prog"});
  EXPECT_TRUE(parsed.run);
  EXPECT_EQ(parsed.line.counts_file, "/tmp/a b:c");
}

TEST(CommandLine, OptionsForTheLibrary) {
  const auto value = [](const Words& w) { return options_value(parse_command_line(w).line); };
  EXPECT_EQ(value({"p"}), "");
  EXPECT_EQ(value({"--quiet", "p"}), "quiet");
  EXPECT_EQ(value({"--counts", "p"}), "counts");
  EXPECT_EQ(value({"--translate=native", "p"}), "");
  EXPECT_EQ(value({"--translate", "handlers", "--trace-translation", "p"}), "handlers:trace-translation");
  EXPECT_EQ(value({"--translate=off", "p"}), "no-patch");
  EXPECT_EQ(value({"--no-patch", "--translate=off", "p"}), "no-patch");
  EXPECT_EQ(value({"--counts=f", "--no-announce", "-q", "p"}), "quiet:no-announce:counts=f");
  EXPECT_EQ(value({"--counts=f.%p", "p"}), "begun=0000000000:counts=f.%p");
}

TEST(CommandLine, ErrorsAreOneLine) {
  const struct {
    Words arguments;
    std::string names;
  } cases[] = {
      {{}, "no program"},
      {{"--quiet"}, "no program"},
      {{"--"}, "no program"},
      {{"--fast", "prog"}, "--fast"},
      {{"-z", "prog"}, "-z"},
      {{"--quiet=perhaps", "prog"}, "quiet"},
      {{"--platform=nonesuch", "prog"}, "nonesuch"},
      {{"--translate=nonesuch", "prog"}, "nonesuch"},
  };
  for (const auto& c : cases) {
    const auto parsed = parse_command_line(c.arguments);
    EXPECT_FALSE(parsed.run);
    EXPECT_EQ(parsed.status, 125) << c.names;
    EXPECT_NE(parsed.text.find(c.names), std::string::npos) << parsed.text;
    EXPECT_EQ(std::count(parsed.text.begin(), parsed.text.end(), '\n'), 1) << parsed.text;
  }
}

TEST(CommandLine, HelpAndVersion) {
  for (const char* option : {"--help", "-h", "--version"}) {
    const auto parsed = parse_command_line({option});
    EXPECT_FALSE(parsed.run);
    EXPECT_EQ(parsed.status, 0);
    EXPECT_NE(parsed.text.find("sve-run"), std::string::npos);
  }
  const std::string help = parse_command_line({"--help"}).text;
  for (const char* option : {"--quiet", "--counts[=FILE]", "--no-announce", "--platform NAME", "PROGRAM", "125"}) {
    EXPECT_NE(help.find(option), std::string::npos) << option;
  }
  std::istringstream lines(help);
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80u) << line;
}

TEST(CommandLine, ValuesStandBehindOptionsAsTheHelpShows) {
  const auto parsed = parse_command_line({"--platform", "embedded", "--dynamorio-options", "-a -b", "prog", "-q"});
  EXPECT_TRUE(parsed.run) << parsed.text;
  EXPECT_EQ(parsed.line.dynamorio_options, "-a -b");
  EXPECT_EQ(parsed.line.program, (Words{"prog", "-q"}));
  EXPECT_EQ(parse_command_line({"--platform"}).status, 125);
  EXPECT_EQ(parse_command_line({"--platform", "nonesuch", "prog"}).status, 125);
}

TEST(CommandLine, AnOuterRunnersCountsAreKept) {
  EXPECT_EQ(with_outer_wishes("", nullptr), "");
  EXPECT_EQ(with_outer_wishes("quiet", "no-announce"), "quiet");
  EXPECT_EQ(with_outer_wishes("", "quiet:counts"), "counts");
  EXPECT_EQ(with_outer_wishes("quiet", "no-announce:counts=/a:b"), "quiet:counts=/a:b");
  EXPECT_EQ(with_outer_wishes("", "quiet:begun=0000000007:counts=/%p"), "begun=0000000007:counts=/%p");
}

TEST(CommandLine, Reports) {
  auto parsed = parse_command_line({"--report", "a.html", "--report=b.json", "--lane-use", "prog", "--report=c.txt"});
  EXPECT_TRUE(parsed.run) << parsed.text;
  EXPECT_EQ(parsed.line.reports, (Words{"a.html", "b.json"}));
  EXPECT_EQ(parsed.line.program, (Words{"prog", "--report=c.txt"}));
  EXPECT_EQ(options_value(parsed.line), "");  // there is no directory yet
  parsed.line.report_directory = "/tmp/x";
  parsed.line.counts = true;
  parsed.line.time = true;
  EXPECT_EQ(options_value(parsed.line), "lane-use:time:report=/tmp/x:counts");
  EXPECT_TRUE(parse_command_line({"--platform=dynamorio", "--report=-", "prog"}).run);
  for (const Words& wrong : {Words{"--report=a.pdf", "prog"}, Words{"--report=", "prog"}, Words{"--lane-use", "prog"},
                             Words{"--time", "prog"}, Words{"--platform=dynamorio", "--time", "--report=-", "prog"}})
    EXPECT_FALSE(parse_command_line(wrong).run) << wrong[0];
}

TEST(CommandLine, AnOuterRunnersReportIsKept) {
  EXPECT_EQ(with_outer_wishes("quiet", "lane-use:time:report=/tmp/x:counts=/a:b"),
            "lane-use:time:report=/tmp/x:quiet:counts=/a:b");
  EXPECT_EQ(with_outer_wishes("report=/tmp/y:counts", "lane-use:report=/tmp/x:counts"), "report=/tmp/y:counts");
  EXPECT_EQ(with_outer_wishes("report=/tmp/y", "quiet:report=/tmp/x:counts=/report=z"),
            "report=/tmp/y:counts=/report=z");
}

TEST(DynamoRio, TheDirectoryIsOneWordOrTwo) {
  for (const Words& arguments : {Words{"--platform=dynamorio", "--dynamorio", "/dr", "prog", "-x"},
                                 Words{"--dynamorio=/dr", "--platform=dynamorio", "prog", "-x"}}) {
    const auto parsed = parse_command_line(arguments);
    EXPECT_TRUE(parsed.run) << parsed.text;
    EXPECT_TRUE(parsed.line.dynamorio);
    EXPECT_EQ(parsed.line.dynamorio_home, "/dr");
    EXPECT_EQ(parsed.line.program, (Words{"prog", "-x"}));
  }
  EXPECT_FALSE(parse_command_line({"--platform=embedded", "prog"}).line.dynamorio);
  for (const char* option : {"--quiet", "--counts"}) {
    const auto parsed = parse_command_line({"--platform=dynamorio", option, "prog"});
    EXPECT_EQ(parsed.status, 125);
    EXPECT_EQ(std::count(parsed.text.begin(), parsed.text.end(), '\n'), 1) << parsed.text;
  }
}

TEST(DynamoRio, IsFoundWhereItIsSaidToBe) {
  const auto find = [](const std::string& given, const char* dir, const char* home, const char* there) {
    return find_dynamorio(
        given,
        [&](const char* name) -> const char* {
          return std::string(name) == "DynamoRIO_DIR" ? dir : std::string(name) == "DYNAMORIO_HOME" ? home : nullptr;
        },
        [&](const std::string& path) { return std::filesystem::path(path).lexically_normal() == there; });
  };
  EXPECT_EQ(find("/a", "/b", "/c", "/a/bin64/drrun").path, "/a");
  EXPECT_EQ(find("", "/b/cmake", "/c", "/b/bin64/drrun").path, "/b/");
  EXPECT_EQ(find("", nullptr, "/c", "/c/bin64/drrun").path, "/c");
  EXPECT_EQ(find("", "", "/c", "/c/bin64/drrun").path, "/c");
  for (const auto& missing : {find("/a", "/b", "/c", "/b/bin64/drrun"), find("", nullptr, nullptr, "/c/bin64/drrun")}) {
    EXPECT_EQ(missing.status, 125);
    EXPECT_EQ(missing.error.find('\n'), std::string::npos);
    EXPECT_NE(missing.error.find("--dynamorio"), std::string::npos) << missing.error;
  }
}

TEST(DynamoRio, TheCommandPassesTheClientAndWhatFollows) {
  const auto parsed = parse_command_line({"--platform=dynamorio", "--dynamorio-options=-a  b", "prog", "--", "-x"});
  EXPECT_EQ(dynamorio_command(parsed.line, "/dr", "/lib/client.so", "/bin/prog"),
            (Words{"/dr/bin64/drrun", "-thread_private", "-max_bb_instrs", "32", "-a", "b", "-c", "/lib/client.so",
                   "--", "/bin/prog", "--", "-x"}));
}

class Programs : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/launcher_test_XXXXXX";
    directory = mkdtemp(pattern);
  }
  void TearDown() override { std::filesystem::remove_all(directory); }

  std::string file(const std::string& name, const std::string& content, mode_t mode = 0755) {
    const std::string path = directory + "/" + name;
    std::ofstream(path) << content;
    chmod(path.c_str(), mode);
    return path;
  }

  // A program's head and its one segment, the loader's name.
  static std::string elf(unsigned machine, const std::string& loader, unsigned char data = ELFDATA2LSB) {
    Elf64_Ehdr header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] = data;
    header.e_type = ET_DYN;
    header.e_machine = static_cast<Elf64_Half>(machine);
    header.e_phoff = sizeof header;
    header.e_phentsize = sizeof(Elf64_Phdr);
    header.e_phnum = 1;
    Elf64_Phdr segment{};
    segment.p_type = loader.empty() ? PT_LOAD : PT_INTERP;
    segment.p_offset = sizeof header + sizeof segment;
    segment.p_filesz = loader.size() + 1;
    std::string bytes(sizeof header + sizeof segment, '\0');
    std::memcpy(bytes.data(), &header, sizeof header);
    std::memcpy(bytes.data() + sizeof header, &segment, sizeof segment);
    return bytes + loader + '\0';
  }

  std::string directory;
};

constexpr char loader[] = "/lib/ld-linux-aarch64.so.1";

// Of several lengths the one that is asked for, in the first place that has it; otherwise one line that names them.
TEST_F(Programs, LibrariesAreFoundByTheirLength) {
  const std::filesystem::path first = directory, second = first / "lib";
  std::filesystem::create_directory(second);
  for (const char* name : {"libsve_run_256.so", "lib/libsve_run_256.so", "lib/libsve_run_1024.so",
                           "lib/libsve_run_x.so", "lib/libsve_run_512.so-gdb.py", "lib/libsve_stats_128.so"})
    file(name, "");
  const auto find = [&](const char* bits) { return find_library({first, second}, "libsve_run_", bits, "remedy"); };
  EXPECT_EQ(find("256").path, (first / "libsve_run_256.so").string());
  EXPECT_EQ(find("1024").path, (second / "libsve_run_1024.so").string());
  for (const char* bits : {"512", "", "../lib/libsve_run_256"}) {
    EXPECT_EQ(find(bits).status, 125) << bits;
    EXPECT_NE(find(bits).error.find("only for 256, 1024"), std::string::npos) << find(bits).error;
  }
  const Finding none = find_library({first / "nonesuch"}, "libsve_run_", "256", "remedy");
  EXPECT_EQ(none.status, 125);
  EXPECT_EQ(none.error, "libsve_run_256.so: remedy");
  EXPECT_EQ(length_in("/a/libasan.so:/b/libsve_run_256.so:/c/libsve_run_128.so", "libsve_run_"), "256");
  EXPECT_EQ(length_in("/a/libasan.so", "libsve_run_"), "");
}

TEST_F(Programs, AreFoundAsTheShellFindsThem) {
  std::filesystem::create_directory(directory + "/sub");
  const std::string path = file("sub/prog", "x");
  file("prog", "x", 0644);
  EXPECT_EQ(find_program(path, "").path, path);
  EXPECT_EQ(find_program("prog", "/nonesuch:" + directory + "/sub").path, path);
  // A file that cannot be executed does not end the search, and is what is reported when nothing else is found.
  if (geteuid() != 0 || access((directory + "/prog").c_str(), X_OK) != 0) {
    EXPECT_EQ(find_program("prog", directory + ":" + directory + "/sub").path, path);
    const Finding f = find_program("prog", directory);
    EXPECT_EQ(f.status, 126);
    EXPECT_NE(f.error.find("chmod +x"), std::string::npos);
  }
  EXPECT_EQ(find_program("nonesuch", directory).status, 127);
  EXPECT_EQ(find_program("./nonesuch", directory).status, 127);
  EXPECT_EQ(find_program("", directory).status, 127);
  EXPECT_EQ(find_program(directory, "").status, 126);
}

TEST_F(Programs, WithFileCapabilitiesAreRefusedButToRoot) {
  const std::string path = file("capable", elf(EM_AARCH64, loader));
  const std::uint32_t one_of_them[] = {0x02000001, 1 << 10, 0, 0, 0};  // version 2, effective: binds to low ports
  if (setxattr(path.c_str(), "security.capability", one_of_them, sizeof one_of_them, 0) != 0)
    GTEST_SKIP() << "file capabilities cannot be set here";
  EXPECT_EQ(check_program(path).status, 0);
  chmod(directory.c_str(), 0755);
  const pid_t child = fork();
  if (child == 0) {
    const Finding f = setuid(65534) == 0 ? check_program(path) : Finding{};
    _exit(f.status == 126 && f.error.find("file capabilities") != std::string::npos ? 0 : 1);
  }
  int status = 1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST_F(Programs, AreRefusedWithTheReasonAndTheRemedy) {
  std::string relocatable = elf(EM_AARCH64, loader);
  relocatable[16] = ET_REL;
  Elf64_Phdr segment;
  std::string absurd = elf(EM_AARCH64, loader), library = elf(EM_AARCH64, "");
  std::memcpy(&segment, absurd.data() + sizeof(Elf64_Ehdr), sizeof segment);
  segment.p_filesz = std::uint64_t{1} << 60;
  segment.p_offset = std::uint64_t{1} << 61;
  std::memcpy(absurd.data() + sizeof(Elf64_Ehdr), &segment, sizeof segment);
  segment = {};
  segment.p_type = PT_DYNAMIC;
  std::memcpy(library.data() + sizeof(Elf64_Ehdr), &segment, sizeof segment);
  const struct {
    const char* name;
    std::string content;
    const char* says;
  } cases[] = {
      {"text", "hello\n", "not an ELF program"},
      {"empty", "", "not an ELF program"},
      {"cut", std::string(ELFMAG) + "\2\1", "not for 64-bit"},
      {"x86", elf(EM_X86_64, "/lib64/ld-linux-x86-64.so.2"), "x86-64"},
      {"big_endian", elf(EM_AARCH64, loader, ELFDATA2MSB), "not for 64-bit little-endian"},
      {"static", elf(EM_AARCH64, ""), "statically linked"},
      {"musl", elf(EM_AARCH64, "/lib/ld-musl-aarch64.so.1"), "ld-musl"},
      {"object", relocatable, "link it first"},
      {"absurd", absurd, "damaged"},
      {"library", library, "shared library"},
  };
  for (const auto& c : cases) {
    const std::string path = file(c.name, c.content);
    const Finding f = check_program(path);
    EXPECT_EQ(f.status, 126) << c.name;
    EXPECT_TRUE(f.error.starts_with(path + ": ")) << f.error;
    EXPECT_NE(f.error.find(c.says), std::string::npos) << f.error;
    EXPECT_EQ(f.error.find('\n'), std::string::npos) << f.error;
  }
  EXPECT_EQ(check_program(directory + "/nonesuch").status, 126);
}

TEST_F(Programs, LoopsOfLinksAreToldApart) {
  const std::string link = directory + "/loop";
  ASSERT_EQ(symlink("loop", link.c_str()), 0);
  const Finding f = find_program(link, "");
  EXPECT_EQ(f.status, 126);
  EXPECT_NE(f.error.find("symbolic links"), std::string::npos) << f.error;
}

TEST_F(Programs, DynamicPrograms) {
  const std::string path = file("prog", elf(EM_AARCH64, loader));
  EXPECT_EQ(check_program(path).status, 0);
  EXPECT_EQ(check_program(path).path, path);
}

TEST_F(Programs, OfScriptsAreTheirInterpreters) {
  const std::string program = file("prog", elf(EM_AARCH64, loader));
  const auto resolved = [&](const std::string& path, Words& command) {
    command = {path, "-a"};
    return resolve_scripts(find_program(path, ""), command);
  };
  Words command;
  EXPECT_EQ(resolved(program, command).path, program);
  EXPECT_EQ(command, (Words{program, "-a"}));
  const std::string script = file("script", "#! " + program + " -x  -y \t\nprint(1)\n");
  EXPECT_EQ(resolved(script, command).path, program);
  EXPECT_EQ(command, (Words{program, "-x  -y", script, "-a"}));
  const std::string outer = file("outer", "#!" + script);
  EXPECT_EQ(resolved(outer, command).path, program);
  EXPECT_EQ(command, (Words{program, "-x  -y", script, outer, "-a"}));
  const std::string bare = file("bare", "#!\n");
  EXPECT_EQ(resolved(bare, command).path, "/bin/sh");

  const std::string endless = directory + "/endless";
  file("endless", "#!" + endless);
  EXPECT_EQ(resolved(endless, command).status, 126);
  const std::string orphan = file("orphan", "#!/nonesuch/python\n");
  const Finding f = resolved(orphan, command);
  EXPECT_EQ(f.status, 127);
  EXPECT_TRUE(f.error.starts_with(orphan + ": a script of /nonesuch/python: ")) << f.error;
}

// A file of one function of code, and what lies in it as data.
struct CodeFile {
  std::vector<std::uint32_t> words;
  std::size_t data_from, data_to;  // in words
};

std::string file_with_code(const CodeFile& code) {
  const auto bytes = [](const auto& record) {
    return std::string(reinterpret_cast<const char*>(&record), sizeof record);
  };
  constexpr std::uint64_t address = 0x1000;
  const std::string text(reinterpret_cast<const char*>(code.words.data()), code.words.size() * 4);
  const std::string names("\0f\0$x\0$d", 9);
  std::string symbols;
  for (const auto& [name, type, word, size] : {std::tuple{1u, STT_FUNC, std::size_t{0}, code.words.size() - 1},
                                               {3u, STT_NOTYPE, 0, 0},
                                               {6u, STT_NOTYPE, code.data_from, 0},
                                               {3u, STT_NOTYPE, code.data_to, 0}}) {
    Elf64_Sym symbol{};
    symbol.st_name = name;
    symbol.st_info = static_cast<unsigned char>(ELF64_ST_INFO(STB_GLOBAL, type));
    symbol.st_shndx = 1;
    symbol.st_value = address + 4 * word;
    symbol.st_size = 4 * size;
    symbols += bytes(symbol);
  }
  std::string content(sizeof(Elf64_Ehdr), '\0');
  std::vector<Elf64_Shdr> sections(1);
  const auto add = [&](unsigned type, unsigned flags, unsigned link, const std::string& data) {
    Elf64_Shdr section{};
    section.sh_type = type;
    section.sh_flags = flags;
    section.sh_link = link;
    section.sh_addr = flags ? address : 0;
    section.sh_offset = content.size();
    section.sh_size = data.size();
    sections.push_back(section);
    content += data;
  };
  add(SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0, text);
  add(SHT_SYMTAB, 0, 3, symbols);
  add(SHT_STRTAB, 0, 0, names);
  Elf64_Ehdr header{};
  header.e_shoff = content.size();
  header.e_shentsize = sizeof(Elf64_Shdr);
  header.e_shnum = static_cast<Elf64_Half>(sections.size());
  for (const Elf64_Shdr& section : sections) content += bytes(section);
  std::memcpy(content.data(), &header, sizeof header);
  return content;
}

TEST_F(Programs, TheirCodeIsCountedByFunctionAndExtension) {
  constexpr std::uint32_t add = 0x04200000, saddlb = 0x45410000, fmopa = 0x80810000, nop = 0xd503201f;
  const CodeSummary code =
      summarise_code(file("code", file_with_code({{add, nop, saddlb, add, fmopa, fmopa, add, add}, 5, 7})));
  EXPECT_EQ(code.instructions, 3u);
  EXPECT_EQ(code.functions, (std::vector<std::pair<std::string, std::uint64_t>>{{"f", 2}, {"", 1}}));
  ASSERT_EQ(code.refused.size(), 2u);
  EXPECT_EQ(code.refused[0].extension, "SME");
  EXPECT_EQ(code.refused[0].instructions, 1u);
  EXPECT_EQ(code.refused[1].extension, "SVE2");
  EXPECT_EQ(code.refused[1].function, "f");
}

TEST_F(Programs, AreCheckedWithAVerdict) {
  Surroundings here;
  here.kernel = "Linux 6";
  here.libraries = [](const std::string&) { return Words{}; };
  here.dynamorio = [] { return Finding{0, "/dr", ""}; };
  const std::string own = file("own", elf(EM_AARCH64, loader)), fixed = file("fixed", elf(EM_AARCH64, ""));
  const std::string sve = file("sve", file_with_code({{0x04200000, 0}, 1, 1}));
  const std::string later = file("later", file_with_code({{0x04200000, 0x45410000, 0}, 2, 2}));
  const std::string user = file("user", elf(EM_AARCH64, loader));
  chmod(user.c_str(), 04755);
  const std::string script = file("script", "#!" + own + "\n");
  const auto verdict = [&](const Words& program, int status, const std::string& says) {
    CommandLine line;
    line.program = program;
    const CheckResult result = check(line, here);
    EXPECT_EQ(result.status, status) << result.text;
    std::string text;
    std::istringstream read(result.text.substr(result.text.rfind("\nverdict")));
    for (std::string word; read >> word;) text += word + " ";
    EXPECT_TRUE(text.find(says) != std::string::npos) << result.text;
    return result.text;
  };
  verdict({own}, 0, "runs without sve-run: no SVE code was found.");
  verdict({script, "a b"}, 0, "runs with: sve-run " + script + " 'a b'");
  verdict({fixed}, 0, "runs without sve-run");
  verdict({file("x86", elf(EM_X86_64, ""))}, 126, "x86-64");
  verdict({"nonesuch"}, 127, "no such program");
  here.libraries = [&](const std::string&) { return Words{sve}; };
  EXPECT_NE(verdict({own}, 0, "runs with: sve-run " + own).find("sve: 1 instruction in f (1)"), std::string::npos);
  here.libraries = [&](const std::string&) { return Words{later}; };
  EXPECT_NE(verdict({own}, 0, "runs with: ").find("later: 1 instruction of SVE2, first in f"), std::string::npos);
  here.libraries = [&](const std::string&) { return Words{sve, "libnone.so"}; };
  verdict({own}, 126, "does not find libnone.so");
  here.has_sve = true;
  here.libraries = [](const std::string&) { return Words{}; };
  verdict({own}, 0, "runs by itself");
}

}  // namespace
