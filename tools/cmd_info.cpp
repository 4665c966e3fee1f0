// create and info: a new container, and the facts of an existing one.
#include <iomanip>

#include "aostore/check.h"
#include "arguments.h"
#include "commands.h"
#include "container.h"
#include "json.h"
#include "text.h"

namespace aotool {
namespace {

void Line(std::ostream& out, const char* label, const std::string& value) {
  out << std::left << std::setw(14) << label << value << '\n';
}

std::string Bytes(int64_t bytes) {
  return bytes < 1024 ? FormatBytes(bytes) : FormatBytes(bytes) + " (" + std::to_string(bytes) + " bytes)";
}

std::string Plural(int64_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

void PrintText(std::ostream& out, const std::string& file, const ao::CheckReport& report) {
  const ao::ContainerFacts& facts = report.facts;
  Line(out, "file", file);
  if (facts.version != 0) {
    Line(out, "format",
         facts.legacy
             ? std::string("legacy header, 32-bit offsets")
             : std::string("version ") + facts.version + ", " + (facts.offsets64 ? "64" : "32") + "-bit offsets");
    Line(out, "root tables",
         Plural(facts.tables, "table", "tables") + " of " + std::to_string(facts.slotsPerTable) + " slots (" +
             std::to_string(facts.reservedSlots) + " reserved for fast access)");
    Line(out, "root streams", std::to_string(facts.rootStreams));
    Line(out, "tree", Plural(facts.folders, "folder", "folders") + ", " + Plural(facts.streams, "stream", "streams"));
  }
  Line(out, "file size", Bytes(facts.fileSize));
  Line(out, "data",
       FormatBytes(facts.dataBytes) + " in " + FormatBytes(facts.allocatedBytes) + " allocated (" +
           FormatPercent(facts.dataBytes, facts.allocatedBytes) + " in use)");
  Line(out, "structure", FormatBytes(facts.structureBytes) + " (header, root tables, block headers)");
  Line(out, "reclaimable",
       FormatBytes(facts.reclaimableBytes) + " (" +
           FormatBytes(std::max<int64_t>(facts.allocatedBytes - facts.dataBytes, 0)) + " spare capacity, " +
           FormatBytes(facts.unreferencedBytes) + " unreferenced, of which " + FormatBytes(facts.freeRecordBytes) +
           " kept by removed streams)");
  Line(out, "health",
       report.problemCount == 0 ? std::string("clean")
                                : Plural(report.problemCount, "problem", "problems") + " (aostore check lists them)");
}

void PrintJson(std::ostream& out, const std::string& file, const ao::CheckReport& report) {
  out << "{\n  \"file\": " << JsonString(file) << ",\n  \"status\": \""
      << (report.problemCount == 0 ? "clean" : "damaged") << "\",\n  \"facts\": " << FactsJson(report.facts)
      << ",\n  \"problemCount\": " << report.problemCount << "\n}\n";
}

}  // namespace

int RunCreate(const Words& words, std::ostream& out) {
  const Arguments args(words, "create");
  args.ExpectCount(1, 1);
  const bool offsets64 = !args.Has("--32");
  Container container = Container::Create(args[0], offsets64, args.Has("--force"));
  container.Close();
  out << "created " << args[0] << " (" << (offsets64 ? "64" : "32") << "-bit offsets)\n";
  return 0;
}

int RunInfo(const Words& words, std::ostream& out) {
  const Arguments args(words, "info");
  args.ExpectCount(1, 1);
  const std::string& file = args[0];
  const ao::CheckReport report = CheckForReading(file);
  return ReadChecked(file, report, [&]() -> int64_t {
    if (args.Has("--json")) {
      PrintJson(out, file, report);
    } else {
      PrintText(out, file, report);
    }
    return 0;
  });
}

}  // namespace aotool
