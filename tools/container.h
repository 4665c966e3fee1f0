// Containers and streams as the commands use them: opened safely, named by
// slash-separated paths, and always released.
#ifndef AOSTORE_TOOLS_CONTAINER_H
#define AOSTORE_TOOLS_CONTAINER_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "aostore/check.h"
#include "errors.h"

namespace aotool {

enum class Access { kRead, kWrite };

class Container {
 public:
  // Opens an existing container. The header and the root directory are
  // verified first: the library removes a file whose root directory it
  // cannot load, and a damaged file must stay as it is. Reading opens the
  // file read-only (flags 0x12); writing with 0x16.
  static Container Open(const std::string& file, Access access);
  // Opens a container for reading that CheckForReading has checked.
  static Container Open(const std::string& file, const ao::CheckReport& checked);
  // A new empty container; fails with kConflict when the file exists,
  // unless replace.
  static Container Create(const std::string& file, bool offsets64, bool replace = false);
  // Opens the container for writing, creating it when there is no file.
  static Container OpenOrCreate(const std::string& file);

  Container(Container&& other) noexcept;
  Container& operator=(Container&&) = delete;
  Container(const Container&) = delete;
  // A container this command created is removed again when the command
  // fails (an exception passes through), so that no new file is left behind.
  ~Container();

  aoStorage& storage() const { return *storage_; }
  const std::string& file() const { return file_; }
  // Releases the container now (the destructor does it otherwise). What a
  // command wrote is made durable first; a failure to do so is said on
  // standard error and makes the command fail (WritesLost).
  void Close();

 private:
  Container(aoStorage* storage, std::string file, bool created, bool writer);
  aoStorage* storage_;
  std::string file_;
  bool created_;
  bool writer_;
  int uncaught_;
};

// True once a container this command wrote could not be made durable.
bool WritesLost();

// The library's switches the tool takes from its environment:
// AOSTORE_FILE_MAPPING=0 turns file mapping off.
void ApplyEnvironment();

// Fails with kBusy when the library's last open failed because another
// process holds the file; otherwise returns.
void FailIfBusy(const std::string& file);

// Fails with kNotContainer, saying why the report's file is not one.
[[noreturn]] void FailNotContainer(const std::string& file, const ao::CheckReport& report);

// The full check of the file, with a bar labelled label on a terminal while
// it lasts.
ao::CheckReport CheckWithProgress(const std::string& file, const char* label);

// The whole container checked before a command that surveys it reads it,
// with a bar on a terminal while that lasts. Fails as Open does for a file
// that is missing or is not a container; Open(file, checked) then refuses a
// root directory the library cannot load.
ao::CheckReport CheckForReading(const std::string& file);

// Runs the work of a command that reads the container CheckForReading
// checked, and gives its exit status. work prints what it can read and
// returns how many streams or folders it could not read (after saying so).
// Once it is done, damage the check found is said on standard error and the
// status is kDamaged; streams unread without damage to explain them give
// kUnreadable. A failure of work on a damaged container (a path that damage
// hides) is said, then ends the same way.
int ReadChecked(const std::string& file, const ao::CheckReport& report, const std::function<int64_t()>& work);

// Splits "a/b/c" (leading and trailing slashes allowed, "" and "/" for the
// root) into stream names; a usage error for an empty name inside. Commands
// that write check the names against the name rule themselves.
std::vector<std::string> SplitPath(const std::string& path);
std::string JoinPath(const std::vector<std::string>& names, size_t count);

// A stream at a path with every folder above it, released from the bottom
// up (a child stream needs its parent while it lives).
class StreamPath {
 public:
  StreamPath() = default;
  StreamPath(StreamPath&& other) noexcept : chain_(std::move(other.chain_)) { other.chain_.clear(); }
  StreamPath(const StreamPath&) = delete;
  StreamPath& operator=(const StreamPath&) = delete;
  ~StreamPath();

  // The stream at the path; null for the path of the root itself.
  aoStream* target() const { return chain_.empty() ? nullptr : chain_.back(); }
  // The folder holding the target; null when the target is a root stream.
  aoStream* parent() const { return chain_.size() < 2 ? nullptr : chain_[chain_.size() - 2]; }
  void Push(aoStream* stream) { chain_.push_back(stream); }
  // Forgets the target without releasing it (aoStream::Remove released it).
  void DropTarget() { chain_.pop_back(); }

 private:
  std::vector<aoStream*> chain_;
};

// Releases one stream object at the end of a scope.
class HeldStream {
 public:
  explicit HeldStream(aoStream* stream) : stream_(stream) {}
  ~HeldStream() {
    if (stream_ != nullptr) stream_->Release();
  }
  HeldStream(const HeldStream&) = delete;
  HeldStream& operator=(const HeldStream&) = delete;
  aoStream* get() const { return stream_; }
  aoStream* operator->() const { return stream_; }

 private:
  aoStream* stream_;
};

// Opens the stream at names (every level with mode). Fails with
// kNoSuchStream when a name is missing (kDamaged when the container is
// damaged, which may hide it), kConflict when a level is no folder.
StreamPath OpenPath(const Container& container, const std::vector<std::string>& names, uint32_t mode);
// Opens the stream at names for writing, creating missing folders on the
// way and, when missing, the last level as a folder or a data stream. Fails
// with kConflict when an existing level is of the other kind.
StreamPath OpenOrCreatePath(const Container& container, const std::vector<std::string>& names, bool lastIsFolder);

// For a failure the library reports without a reason: checks the whole file
// and fails with kDamaged naming the first damaged offset, or with fallback
// and what when the file is sound.
[[noreturn]] void FailWithDiagnosis(const std::string& file, Exit fallback, const std::string& what);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_CONTAINER_H
