// Containers and streams as the commands use them: opened safely, named by
// slash-separated paths, and always released.
#ifndef AOSTORE_TOOLS_CONTAINER_H
#define AOSTORE_TOOLS_CONTAINER_H

#include <cstdint>
#include <string>
#include <vector>

#include "aostore/aostore.h"
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
  // A new empty container (an existing file is overwritten).
  static Container Create(const std::string& file, bool offsets64);
  // Opens the container for writing, creating it when there is no file.
  static Container OpenOrCreate(const std::string& file);

  Container(Container&& other) noexcept;
  Container& operator=(Container&&) = delete;
  Container(const Container&) = delete;
  ~Container();

  aoStorage& storage() const { return *storage_; }
  const std::string& file() const { return file_; }
  // Releases the container now (the destructor does it otherwise). What
  // was written is made durable first; a failure to do so is reported on
  // standard error and makes the command fail (WritesLost).
  void Close();

 private:
  Container(aoStorage* storage, std::string file, bool writer)
      : storage_(storage), file_(std::move(file)), writer_(writer) {}
  aoStorage* storage_;
  std::string file_;
  bool writer_;
};

// True once a container written by this command could not be made durable.
bool WritesLost();

// The tool's reading of the library's environment switches (file mapping).
void ApplyEnvironment();

// Splits "a/b/c" (leading and trailing slashes allowed, "" and "/" for the
// root) into stream names; a usage error for an empty or too long name.
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
// kNoSuchStream when a name is missing, kConflict when a level is no folder.
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
