// File and console operations offered to tools built on the library.
#include "aostore/maintenance.h"

#include "platform/files.h"
#include "platform/terminal.h"

namespace ao {
namespace {
constexpr int kDefaultColumns = 80;
}  // namespace

bool SyncFile(const char* path) {
  if (path == nullptr) return false;
  const FileHandle file = platform::Files().Open(path, true, platform::Disposition::kOpenExisting, platform::Mapping::kNever);
  if (file == kInvalidFile) return false;
  const bool flushed = platform::Files().Flush(file);
  platform::Files().Close(file);
  return flushed;
}

bool RenameOver(const char* from, const char* to) {
  return from != nullptr && to != nullptr && platform::Files().Rename(from, to);
}

bool RemoveFile(const char* path) { return path != nullptr && platform::Files().Delete(path); }

bool StandardErrorIsTerminal() { return platform::StandardErrorIsTerminal(); }

int StandardErrorColumns() {
  const int columns = platform::StandardErrorColumns();
  return columns > 0 ? columns : kDefaultColumns;
}

}  // namespace ao
