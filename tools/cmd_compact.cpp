// compact: the container rebuilt without unused space, the way Recreate
// rebuilds it, but never at the risk of the original: the copy is written
// beside it, compared with it, flushed to disk, and only then renamed over it.
#include "aostore/check.h"
#include "aostore/maintenance.h"
#include "arguments.h"
#include "commands.h"
#include "container.h"
#include "text.h"
#include "tree_compare.h"

namespace aotool {
namespace {

// Removes the temporary copy unless it was put in the original's place.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string path) : path_(std::move(path)) {}
  ~TemporaryFile() {
    if (!kept_) ao::RemoveFile(path_.c_str());
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  const std::string& path() const { return path_; }
  void Keep() { kept_ = true; }

 private:
  std::string path_;
  bool kept_ = false;
};

// Copies every root stream in directory order, each with its whole subtree.
void CopyRootStreams(const Container& source, const Container& copy, Progress& progress) {
  int position = 0;
  aoStream* stream = source.storage().OpenStreamFirst2(&position, kAoModeInspect);
  while (true) {
    if (stream != nullptr) {
      const HeldStream from(stream);
      const HeldStream to(copy.storage().CreateStream(from->GetName(), from->IsFolder() != 0 ? 1 : 0, kAoModeEdit));
      if (to.get() == nullptr) Fail(Exit::kWriteFailed, copy.file() + ": cannot create " + from->GetName());
      // The result is not what counts (an empty data stream copies as
      // false); the comparison afterwards is.
      from->CopyFolder(to.get());
      progress.Advance(1);
    }
    // A step yields null both at the end (the position stays) and for a name
    // that left the map (the position moves on).
    const int before = position;
    stream = source.storage().OpenStreamNext2(&position, kAoModeInspect);
    if (stream == nullptr && position == before) break;
  }
}

}  // namespace

int RunCompact(const Words& words, std::ostream& out) {
  const Arguments args(words, "compact");
  args.ExpectCount(1, 1);
  const std::string& file = args[0];
  const ao::CheckReport before = CheckForReading(file);
  if (before.problemCount > 0) {
    Fail(Exit::kDamaged, file + ": damaged at offset " + std::to_string(before.problems.front().offset) +
                             ": only a sound container is compacted (aostore export saves what can be read)");
  }
  TemporaryFile temporary(file + "_tmp");
  // The source stays open for writing until the copy is in its place: no
  // other process writes it meanwhile, whose writes would be lost with it.
  Container source = Container::Open(file, Access::kWrite);
  {
    Container copy = Container::Create(temporary.path(), source.storage().Uses64BitOffsets(), true);
    Progress copying("compact", before.facts.rootStreams, Progress::Unit::kItems);
    CopyRootStreams(source, copy, copying);
    copying.Finish();
    Progress comparing("verify", before.facts.dataBytes);
    const std::string difference = CompareTrees(source, nullptr, copy, nullptr, &comparing);
    if (!difference.empty()) Fail(Exit::kVerifyFailed, file + ": the compacted copy differs: " + difference);
  }
  const ao::CheckReport after = CheckWithProgress(temporary.path(), "check the copy");
  if (!after.Clean()) Fail(Exit::kVerifyFailed, file + ": the compacted copy did not pass its check");
  if (!ao::SyncFile(temporary.path().c_str()))
    Fail(Exit::kWriteFailed, temporary.path() + ": cannot flush the compacted copy to disk");
  if (!ao::RenameOver(temporary.path().c_str(), file.c_str()))
    Fail(Exit::kWriteFailed, file + ": cannot put the compacted copy in its place");
  temporary.Keep();
  source.Close();
  out << "compacted " << file << ": " << FormatBytes(before.facts.fileSize) << " -> "
      << FormatBytes(after.facts.fileSize) << " (" << FormatBytes(before.facts.fileSize - after.facts.fileSize)
      << " given back)\n";
  return 0;
}

}  // namespace aotool
