#include "demo_edits.h"

#include <cstring>
#include <memory>
#include <sstream>

#include "container.h"
#include "text.h"
#include "tree_compare.h"

namespace aotool {
namespace {

bool Report(std::ostream& out, const std::string& name, const std::string& type, const std::string& value, bool same) {
  char line[64];
  std::snprintf(line, sizeof line, "  demo/settings/%-10s %-7s ", name.c_str(), type.c_str());
  out << line << value << (same ? "" : "   (read back differs!)") << '\n';
  return same;
}

std::string Pair(int32_t a, int32_t b) { return std::to_string(a) + "," + std::to_string(b); }

void Append(aoStream& folder, const char* name, const std::string& text) {
  std::string bytes = text;
  folder.SetEntry(name, bytes.data(), static_cast<uint32_t>(bytes.size()));
}

}  // namespace

bool WriteTypedEntries(const std::string& file, std::ostream& out) {
  Container container = Container::Open(file, Access::kWrite);
  const StreamPath path = OpenOrCreatePath(container, {"demo", "settings"}, true);
  aoStream& settings = *path.target();
  RECT window{10, 20, 1290, 820};
  SIZE tile{64, 48};
  std::string blob = "any bytes \x01\x02\x03";
  settings.SetEntry("build", 42);
  settings.SetEntry("ratio", 0.75);
  settings.SetEntry("greeting", "hello, container");
  settings.SetEntry("big", static_cast<int64_t>(1) << 40);
  settings.SetEntry("window", &window);
  settings.SetEntry("tile", &tile);
  settings.SetEntryEraseOld("blob", blob.data(), static_cast<uint32_t>(blob.size()), 1);

  bool same = true;
  const int build = settings.GetEntry("build", 0);
  same &= Report(out, "build", "int", std::to_string(build), build == 42);
  const double ratio = settings.GetEntry("ratio", 0.0);
  same &= Report(out, "ratio", "double", FormatNumber(ratio), ratio == 0.75);
  const std::string greeting = settings.GetEntry("greeting", "");
  same &= Report(out, "greeting", "string", "\"" + greeting + "\"", greeting == "hello, container");
  const int64_t big = settings.GetEntry("big", static_cast<int64_t>(0));
  same &= Report(out, "big", "int64", std::to_string(big), big == static_cast<int64_t>(1) << 40);
  RECT rect{};
  const RECT none{};
  settings.GetEntry("window", &rect, &none);
  same &= Report(out, "window", "rect", Pair(rect.left, rect.top) + "," + Pair(rect.right, rect.bottom),
                 std::memcmp(&rect, &window, sizeof rect) == 0);
  SIZE size{};
  const SIZE noSize{};
  settings.GetEntry("tile", &size, &noSize);
  same &= Report(out, "tile", "size", Pair(size.cx, size.cy), size.cx == 64 && size.cy == 48);
  void* data = nullptr;
  unsigned int length = 0;
  const int read = settings.GetEntryErasedOld("blob", &data, &length);
  const bool blobSame = read == 1 && length == blob.size() && std::memcmp(data, blob.data(), length) == 0;
  same &= Report(out, "blob", "blob", std::to_string(length) + " bytes behind a size prefix", blobSame);
  aoFreeBuffer(data);
  return same;
}

bool RecordAndReplay(const std::string& file, const std::string& replica, std::ostream& out) {
  std::unique_ptr<CCompRecorder> recorder;
  {
    Container container = Container::Open(file, Access::kWrite);
    aoStorage& storage = container.storage();
    if (storage.StartRecording() == 0) Fail(Exit::kWriteFailed, file + ": cannot start recording");
    {
      // A removal inside a folder.
      StreamPath tile = OpenPath(container, {"demo", "settings", "tile"}, kAoModeEdit);
      if (tile.target()->Remove()) tile.DropTarget();
    }
    {
      // A new folder with entries of several kinds, and a blob appended to
      // three times.
      StreamPath journal = OpenOrCreatePath(container, {"demo", "journal"}, true);
      aoStream& folder = *journal.target();
      folder.SetEntry("opened", "a recorded session");
      folder.SetEntry("edits", 7);
      folder.SetEntry("ratio", 0.5);
      Append(folder, "log", "first line\n");
      Append(folder, "log", "second line\n");
      Append(folder, "log", "third line\n");
      std::string snapshot(4096, 's');
      folder.SetEntryEraseOld("snapshot", snapshot.data(), static_cast<uint32_t>(snapshot.size()), 1);
    }
    storage.SetEntry("last-session", "journal");
    recorder.reset(storage.StopRecording());
  }
  if (recorder == nullptr) Fail(Exit::kWriteFailed, file + ": the recording was lost");
  const unsigned int recorded = recorder->GetOpCount();
  unsigned int length = 0;
  unsigned char* log = recorder->Detach(&length);
  int replayed = 0;
  {
    Container copy = Container::Open(replica, Access::kWrite);
    replayed = copy.storage().ReplayRecording(log, length);
  }
  CCompRecorder::Free(log);
  out << "  recorded " << recorded << " edits in a log of " << FormatBytes(length) << "; replayed " << replayed
      << " of them into " << replica << '\n';
  const Container original = Container::Open(file, Access::kRead);
  const Container copy = Container::Open(replica, Access::kRead);
  const std::string difference = CompareTrees(original, nullptr, copy, nullptr, nullptr);
  out << "  " << (difference.empty() ? "the two containers now hold the same tree, byte for byte"
                                     : "the replica differs: " + difference)
      << '\n';
  return recorded > 0 && replayed == static_cast<int>(recorded) && difference.empty();
}

}  // namespace aotool
