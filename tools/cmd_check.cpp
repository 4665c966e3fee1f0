// check: the whole structure verified, problems listed by offset.
#include <map>

#include "aostore/check.h"
#include "arguments.h"
#include "commands.h"
#include "errors.h"
#include "json.h"
#include "progress.h"
#include "text.h"

namespace aotool {
namespace {

void PrintJson(std::ostream& out, const std::string& file, const ao::CheckReport& report) {
  const ao::ContainerFacts& f = report.facts;
  const char* status = !report.readable ? "unreadable" : report.problemCount == 0 ? "clean" : "damaged";
  out << "{\n  \"file\": " << JsonString(file) << ",\n  \"status\": \"" << status << "\",\n";
  if (!report.readable) {
    out << "  \"error\": " << JsonString(report.readError) << "\n}\n";
    return;
  }
  out << "  \"container\": " << (report.container ? "true" : "false") << ",\n"
      << "  \"facts\": {\"version\": " << JsonString(std::string(f.version == 0 ? 0 : 1, f.version))
      << ", \"legacy\": " << (f.legacy ? "true" : "false") << ", \"offsetBits\": " << (f.offsets64 ? 64 : 32)
      << ", \"fileSize\": " << f.fileSize << ", \"tables\": " << f.tables << ", \"rootStreams\": " << f.rootStreams
      << ", \"folders\": " << f.folders << ", \"streams\": " << f.streams << ", \"blocks\": " << f.blocks
      << ", \"dataBytes\": " << f.dataBytes << ", \"allocatedBytes\": " << f.allocatedBytes
      << ", \"structureBytes\": " << f.structureBytes << ", \"unreferencedBytes\": " << f.unreferencedBytes
      << ", \"reclaimableBytes\": " << f.reclaimableBytes << "},\n"
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
  const Arguments args(words, {{"--json"}, {}});
  args.ExpectCount(1, 1, "check FILE [--json]");
  const std::string& file = args[0];
  Progress progress("check", 0);
  const ao::CheckReport report = ao::CheckContainer(
      file.c_str(), ao::CheckScope::kFull, [&progress](int64_t done, int64_t total) {
        progress.SetTotal(total);
        progress.Update(done);
      });
  progress.Finish();
  if (args.Has("--json")) {
    PrintJson(out, file, report);
  } else if (report.readable) {
    PrintText(out, file, report);
  }
  if (!report.readable) Fail(Exit::kUnreadable, file + ": " + report.readError);
  return report.problemCount == 0 ? 0 : static_cast<int>(Exit::kDamaged);
}

}  // namespace aotool
