// stress: the library's concurrent write test, every stream read back and
// compared.
#include <filesystem>

#include "arguments.h"
#include "commands.h"
#include "errors.h"
#include "progress.h"
#include "stress_run.h"
#include "text.h"

namespace aotool {

int RunStress(const Words& words, std::ostream& out) {
  const Arguments args(words, "stress");
  args.ExpectCount(0, 0);
  const int threads = static_cast<int>(args.Number("--threads", 32, 1, 1024));
  const int passes = static_cast<int>(args.Number("--passes", 2, 1, 1000));
  const std::string path = args.Value("--path", DefaultStressPath());
  std::error_code error;
  // Every pass creates the file and removes it at its end.
  if (std::filesystem::exists(path, error))
    Fail(Exit::kConflict, path + ": exists; the stress test needs a path it may create and delete");
  out << "stress: " << passes << (passes == 1 ? " pass" : " passes") << " of " << threads << " threads writing 1 MiB each to "
      << path << '\n';
  out.flush();
  Progress progress("stress", passes, Progress::Unit::kItems);
  const StressResult result = RunStressPasses(path, threads, passes, &progress);
  progress.Finish();
  for (const std::string& problem : result.problems) out << problem << '\n';
  out << "streams verified " << result.checked << ", missing " << result.missing << ", differing "
      << result.differing << ", writers failed " << result.writersFailed << " ("
      << FormatBytes(result.checked << 20) << " in " << FormatElapsed(result.seconds) << ")\n";
  if (!result.Passed(passes)) Fail(Exit::kVerifyFailed, path + ": the stress test found lost or damaged streams");
  return 0;
}

}  // namespace aotool
