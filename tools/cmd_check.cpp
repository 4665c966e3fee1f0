// check: the whole structure verified, problems listed by offset.
#include <map>

#include "aostore/check.h"
#include "arguments.h"
#include "commands.h"
#include "container.h"
#include "errors.h"
#include "host_files.h"
#include "json.h"
#include "text.h"

namespace aotool {
namespace {

const char* Status(const ao::CheckReport& report) {
  if (!report.readable) return "unreadable";
  if (!report.container) return "not-container";
  return report.problemCount == 0 ? "clean" : "damaged";
}

void PrintJson(std::ostream& out, const std::string& file, const ao::CheckReport& report) {
  out << "{\n  \"file\": " << JsonString(file) << ",\n  \"status\": \"" << Status(report) << "\",\n";
  if (!report.readable) {
    out << "  \"error\": " << JsonString(report.readError) << "\n}\n";
    return;
  }
  out << "  \"container\": " << (report.container ? "true" : "false") << ",\n"
      << "  \"facts\": " << FactsJson(report.facts) << ",\n"
      << "  \"problemCount\": " << report.problemCount << ",\n  \"problems\": [";
  for (size_t i = 0; i < report.problems.size(); ++i) {
    const ao::CheckProblem& problem = report.problems[i];
    out << (i == 0 ? "\n" : ",\n") << "    {\"offset\": " << problem.offset << ", \"kind\": \""
        << ao::CheckProblemKindName(problem.kind) << "\", \"message\": " << JsonString(problem.message) << "}";
  }
  out << (report.problems.empty() ? "]\n}\n" : "\n  ]\n}\n");
}

void PrintText(std::ostream& out, const std::string& file, const ao::CheckReport& report) {
  std::map<std::string, int64_t> kinds;
  for (const ao::CheckProblem& problem : report.problems) {
    out << "offset " << problem.offset << ": " << ao::CheckProblemKindName(problem.kind) << ": " << problem.message
        << '\n';
    ++kinds[ao::CheckProblemKindName(problem.kind)];
  }
  const ao::ContainerFacts& f = report.facts;
  if (report.problemCount == 0) {
    out << file << ": clean (" << f.tables << " root tables, " << f.folders << " folders, " << f.streams
        << " streams, " << f.blocks << " blocks, " << FormatBytes(f.fileSize) << ")\n";
    return;
  }
  const int64_t unlisted = report.problemCount - static_cast<int64_t>(report.problems.size());
  if (unlisted > 0) out << "... and " << unlisted << " more problems not listed\n";
  out << file << ": " << report.problemCount << (report.problemCount == 1 ? " problem" : " problems") << " (";
  bool first = true;
  for (const auto& [kind, count] : kinds) {
    out << (first ? "" : ", ") << count << ' ' << kind;
    first = false;
  }
  out << ")\n";
}

}  // namespace

int RunCheck(const Words& words, std::ostream& out) {
  const Arguments args(words, "check");
  args.ExpectCount(1, 1);
  const std::string& file = args[0];
  ao::CheckReport report;
  report.readError = ReadProblem(file);
  if (report.readError.empty()) report = CheckWithProgress(file, "check");
  if (args.Has("--json")) {
    PrintJson(out, file, report);
  } else if (report.readable) {
    PrintText(out, file, report);
  }
  if (!report.readable) {
    FailIfBusy(file);
    Fail(Exit::kUnreadable, file + ": " + report.readError);
  }
  if (!report.container) FailNotContainer(file, report);
  return report.problemCount == 0 ? 0 : static_cast<int>(Exit::kDamaged);
}

}  // namespace aotool
