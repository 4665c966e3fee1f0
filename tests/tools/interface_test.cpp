// The tool's face to people and scripts: help for every command, the
// version, the manual page and the completion made from the same text, one
// exit status per condition in every command with the system's reason, JSON
// output, and a progress bar only on a terminal.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tools/tool_fixture.h"

namespace fs = std::filesystem;

namespace {

using namespace ao::test;

using Interface = ToolTest;

// The command names of the general help's list.
std::vector<std::string> Commands(const std::string& help) {
  std::vector<std::string> names;
  std::istringstream lines(help.substr(help.find("commands:\n") + 10));
  for (std::string line; std::getline(lines, line) && !line.empty();)
    names.push_back(line.substr(2, line.find(' ', 2) - 2));
  return names;
}

// What troff makes of plain text: hyphens and backslashes escaped.
std::string Roff(std::string text) {
  std::string out;
  for (const char c : text) out += c == '-' ? "\\-" : c == '\\' ? "\\e" : std::string(1, c);
  return out;
}

TEST_F(Interface, EveryCommandHasHelpAndTheManualPageSaysTheSame) {
  EXPECT_EQ(Ok({"--version"}), "aostore 0.1.0\n");
  const std::string help = Ok({"--help"});
  const std::vector<std::string> commands = Commands(help);
  EXPECT_EQ(commands.size(), 16u) << help;
  const std::string manual = Ok({"help", "--man"});
  EXPECT_EQ(ReadText(std::string(AOSTORE_TOOL_DOCUMENTS) + "/aostore.1"), manual);  // the page the build installs
  for (const std::string& command : commands) {
    const std::string text = Ok({command, "--help"});
    EXPECT_EQ(text.rfind("usage: aostore " + command, 0), 0u) << text;
    EXPECT_EQ(Ok({"help", command}), text);
    EXPECT_TRUE(Contains(text, "  --help ")) << text;
    // Every line of the help but the options' layout is in the manual page.
    std::istringstream lines(text.substr(text.find("\n\n") + 2, text.find("\noptions:") - text.find("\n\n") - 2));
    for (std::string line; std::getline(lines, line);)
      EXPECT_TRUE(line.empty() || Contains(manual, Roff(line))) << command << ": " << line;
    // An option the command does not take is a usage error that points at the help.
    const ToolRun wrong = Run({command, "--bogus"});
    EXPECT_EQ(wrong.status, kUsage) << command;
    EXPECT_TRUE(Contains(wrong.err, "aostore " + command + " --help")) << wrong.err;
  }
  for (const char* section : {".SH EXIT STATUS", ".SH NAMES", ".SH EXAMPLES", ".B 10 invalid\\-name"})
    EXPECT_TRUE(Contains(manual, section)) << section;
}

TEST_F(Interface, TheReadmeTableHasEveryExitStatusTheToolNames) {
  const std::string help = Ok({"--help"});
  const std::string readme = ReadText(std::string(AOSTORE_SOURCE_DIR) + "/README.md");
  std::istringstream lines(help.substr(help.find("exit status:\n") + 13));
  int statuses = 0;
  for (std::string line; std::getline(lines, line) && !line.empty(); ++statuses) {
    std::istringstream words(line);
    std::string code, name;
    words >> code >> name;
    std::string meaning;
    std::getline(words >> std::ws, meaning);
    const std::string row = "| " + code + " | " + name + " | " + meaning;
    EXPECT_TRUE(Contains(readme, row)) << row;
  }
  EXPECT_EQ(statuses, 12);
}

TEST_F(Interface, BashCompletesCommandsOptionsAndPathsInsideTheContainer) {
  Ok({"put", file, "docs/readme", "-"});
  Ok({"put", file, "data", "-"});
  const std::string completion = std::string(AOSTORE_TOOL_DOCUMENTS) + "/aostore.bash";
  EXPECT_EQ(ReadText(completion), Ok({"help", "--bash-completion"}));
  const auto complete = [&](const std::string& words) {
    const std::string script = "source '" + completion + "'; COMP_WORDS=(" + words +
                               "); COMP_CWORD=$(( ${#COMP_WORDS[@]} - 1 )); _aostore; "
                               "printf '%s\\n' \"${COMPREPLY[@]}\"";
    const std::string tools = fs::path(AOSTORE_TOOL).parent_path().string();
    const ToolRun run = RunProgram(dir, "/bin/bash", {"-c", script}, "", {"PATH=" + tools + ":/usr/bin:/bin"});
    EXPECT_EQ(run.status, 0) << run.err;
    return run.out;
  };
  EXPECT_EQ(complete("aostore im"), "import\n");
  EXPECT_EQ(complete("aostore export --f"), "--force\n");
  EXPECT_EQ(complete("aostore cat '" + file + "' d"), "data\ndocs/\n");
  EXPECT_EQ(complete("aostore rm -r '" + file + "' docs/"), "docs/readme\n");
  EXPECT_EQ(complete("aostore stress --threads 4 --pa"), "--passes\n--path\n");
}

TEST_F(Interface, OneConditionHasOneStatusInEveryCommandWithTheSystemsReason) {
  WriteWholeFile(Path("empty"), {});
  WriteWholeFile(Path("source"), {'s'});
  const std::string missing = Path("missing.aostore");
  const std::vector<std::vector<std::string>> readers = {
      {"info"}, {"ls"}, {"cat", "x"}, {"rm", "x"}, {"mv", "x", "y"}, {"export", Path("out")},
      {"entries"}, {"entries", "get", "x"}, {"check"}, {"compact"}};
  const std::vector<std::vector<std::string>> writers = {
      {"put", "x", Path("source")}, {"mkdir", "x"}, {"import", dir.path()}, {"entries", "set", "x", "1"}};
  std::vector<std::vector<std::string>> all = readers;
  all.insert(all.end(), writers.begin(), writers.end());
  const auto with = [](std::vector<std::string> args, const std::string& container) {
    args.insert(args.begin() + 1, container);
    return args;
  };
  for (const std::vector<std::string>& args : all) {
    Fails(with(args, dir.path()), kUnreadable, {dir.path() + ": Is a directory"});
    Fails(with(args, Path("empty")), kNotContainer, {"empty: not a container", "shorter than a container header"});
  }
  for (const std::vector<std::string>& args : readers)
    Fails(with(args, missing), kUnreadable, {missing + ": No such file or directory"});
  EXPECT_FALSE(fs::exists(missing));
  // Files outside the container, and containers that cannot be written.
  Fails({"put", file, "x", Path("absent")}, kHostFile, {Path("absent") + ": No such file or directory"});
  Fails({"put", file, "x", dir.path()}, kHostFile, {dir.path() + ": Is a directory"});
  Fails({"import", file, Path("absent")}, kHostFile, {Path("absent") + ": No such file or directory"});
  Fails({"put", Path("no/such/folder.aostore"), "x", Path("source")}, kWriteFailed,
        {"cannot create the container: No such file or directory"});
  Fails({"put", file, "x", file}, kConflict, {file + ": is the container itself"});
  Fails({"create", file}, kConflict, {"the file exists", "--force"});
  Ok({"create", file, "--force"});
}

TEST_F(Interface, PutAndMkdirCreateAMissingContainerAsImportDoes) {
  EXPECT_EQ(Ok({"put", Path("p.aostore"), "a/b", file}), "wrote 5936 bytes to a/b\n");
  EXPECT_EQ(Ok({"mkdir", Path("m.aostore"), "x/y"}), "folder x/y\n");
  EXPECT_EQ(Ok({"entries", Path("e.aostore"), "set", "n", "1"}), "set n = 1 (int)\n");
  for (const char* made : {"p.aostore", "m.aostore", "e.aostore"}) EXPECT_EQ(Run({"check", Path(made)}).status, 0);
  // A command that fails after it created the container leaves no file behind.
  if (fs::exists("/proc/self/mem")) {  // a file whose first read fails
    Fails({"put", Path("gone.aostore"), "x", "/proc/self/mem"}, kHostFile, {"/proc/self/mem: "});
    EXPECT_FALSE(fs::exists(Path("gone.aostore")));
  }
}

TEST_F(Interface, JsonForInfoLsAndEntries) {
  WriteWholeFile(Path("five"), Pattern(5936, 1));
  Ok({"put", file, "dir/a", Path("five")});
  Ok({"entries", file, "dir", "set", "n", "7"});
  Ok({"entries", file, "dir", "set", "s", "caf\xc3\xa9 \"x\""});
  EXPECT_TRUE(Contains(Ok({"info", file, "--json"}), "\"status\": \"clean\",\n  \"facts\": {\"version\": \"2\""));
  EXPECT_EQ(Ok({"ls", file, "-R", "--json"}),
            "[\n  {\"path\": \"dir\", \"name\": \"dir\", \"kind\": \"folder\", \"length\": 280, \"duration\": 0, "
            "\"flags\": \"\", \"childInfo\": 0},\n"
            "  {\"path\": \"dir/a\", \"name\": \"a\", \"kind\": \"stream\", \"length\": 5936, \"duration\": 0, "
            "\"flags\": \"\", \"childInfo\": 0},\n"
            "  {\"path\": \"dir/n\", \"name\": \"n\", \"kind\": \"stream\", \"length\": 4, \"duration\": 0, "
            "\"flags\": \"\", \"childInfo\": 0},\n"
            "  {\"path\": \"dir/s\", \"name\": \"s\", \"kind\": \"stream\", \"length\": 11, \"duration\": 0, "
            "\"flags\": \"\", \"childInfo\": 0}\n]\n");
  EXPECT_TRUE(Contains(Ok({"entries", file, "dir", "--json"}),
                       "{\"name\": \"n\", \"length\": 4, \"type\": \"int\", \"value\": 7},\n"
                       "  {\"name\": \"s\", \"length\": 11, \"type\": \"string\", "
                       "\"value\": \"caf\xc3\xa9 \\\"x\\\"\"}"));
  Ok({"create", Path("empty.aostore")});
  EXPECT_EQ(Ok({"ls", Path("empty.aostore"), "--json"}), "[]\n");
}

TEST_F(Interface, ExportAndCompactAndCheckDrawABarOnlyOnATerminal) {
  WriteWholeFile(Path("big"), Pattern(3 << 20, 9));
  Ok({"put", file, "big", Path("big")});
  const std::vector<std::string> now = {"AOSTORE_PROGRESS_DELAY=0"};
  for (const auto& [args, label] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"export", file, Path("out")}, "export ["},
           {{"check", file}, "check ["},
           {{"compact", file}, "compact ["},
           {{"ls", file}, "check ["}}) {
    const ToolRun shown = RunToolOnTerminal(dir, args, now);
    fs::remove_all(Path("out"));
    EXPECT_EQ(shown.status, 0) << args[0] << shown.err;
    EXPECT_TRUE(Contains(shown.err, label)) << args[0] << ": " << shown.err;
    EXPECT_TRUE(Contains(shown.err, "\r\033[K")) << args[0];  // the bar's line is cleared at the end
    const ToolRun quiet = RunTool(dir, args, "", now);  // standard error is a file
    EXPECT_EQ(quiet.err, "") << args[0];
    fs::remove_all(Path("out"));
  }
}

}  // namespace
