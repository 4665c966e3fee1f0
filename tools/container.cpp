#include "container.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "aostore/check.h"

namespace aotool {
namespace {

// Sets the offset width for Create for the life of the object.
class CreateWidth {
 public:
  explicit CreateWidth(bool offsets64) : saved_(aoStorage::g_bUse64BitOffsets) {
    aoStorage::g_bUse64BitOffsets = offsets64 ? 1 : 0;
  }
  ~CreateWidth() { aoStorage::g_bUse64BitOffsets = saved_; }
  CreateWidth(const CreateWidth&) = delete;
  CreateWidth& operator=(const CreateWidth&) = delete;

 private:
  int saved_;
};

bool g_writesLost = false;

// Fails for a file another process holds, naming why.
void FailIfBusy(const std::string& file) {
  const ao::errc why = ao::LastError();
  if (why == ao::errc::busy || why == ao::errc::read_elsewhere) Fail(Exit::kBusy, file + ": " + ao::ErrorText(why));
}

std::string FirstProblem(const ao::CheckReport& report) {
  if (report.problems.empty()) return "damaged";
  const ao::CheckProblem& problem = report.problems.front();
  return "damaged at offset " + std::to_string(problem.offset) + ": " + problem.message;
}

}  // namespace

Container Container::Open(const std::string& file, Access access) {
  const ao::CheckReport report = ao::CheckContainer(file.c_str(), ao::CheckScope::kDirectory);
  if (!report.readable) {
    FailIfBusy(file);
    Fail(Exit::kUnreadable, file + ": " + report.readError);
  }
  if (!report.container) Fail(Exit::kNotContainer, file + ": not a container");
  if (!report.directorySound) Fail(Exit::kDamaged, file + ": " + FirstProblem(report));
  const uint32_t flags = access == Access::kRead ? kAoModeInspect : kAoModeEdit;
  aoStorage* storage = aoStorage::Open(file.c_str(), flags, 0, 0);
  if (storage == nullptr) {
    FailIfBusy(file);
    Fail(access == Access::kRead ? Exit::kUnreadable : Exit::kWriteFailed,
         file + (access == Access::kRead ? ": cannot open the container" : ": cannot open the container for writing") +
             " (" + ao::ErrorText(ao::LastError()) + ")");
  }
  return Container(storage, file, access == Access::kWrite);
}

Container Container::Create(const std::string& file, bool offsets64) {
  CreateWidth width(offsets64);
  aoStorage* storage = aoStorage::Create(file.c_str(), kAoModeEdit, 0);
  if (storage == nullptr) {
    FailIfBusy(file);
    Fail(Exit::kWriteFailed, file + ": cannot create the container (" + ao::ErrorText(ao::LastError()) + ")");
  }
  return Container(storage, file, true);
}

Container Container::OpenOrCreate(const std::string& file) {
  std::error_code error;
  if (!std::filesystem::exists(file, error) && !error) return Create(file, true);
  return Open(file, Access::kWrite);
}

Container::Container(Container&& other) noexcept
    : storage_(other.storage_), file_(std::move(other.file_)), writer_(other.writer_) {
  other.storage_ = nullptr;
}

Container::~Container() { Close(); }

void Container::Close() {
  if (storage_ == nullptr) return;
  if (writer_ && storage_->Sync() == 0) {
    std::fprintf(stderr, "aostore: %s: what was written could not be made durable (%s)\n", file_.c_str(),
                 ao::ErrorText(ao::LastError()));
    g_writesLost = true;
  }
  storage_->Release();
  storage_ = nullptr;
}

bool WritesLost() { return g_writesLost; }

void ApplyEnvironment() {
  const char* mapping = std::getenv("AOSTORE_FILE_MAPPING");
  if (mapping != nullptr && std::string(mapping) == "0") aoStorage::g_bUseFileMapping = 0;
}

std::vector<std::string> SplitPath(const std::string& path) {
  std::vector<std::string> names;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    const std::string name = path.substr(start, end - start);
    const bool edge = start == 0 || end == path.size();
    if (name.empty() && !edge) Fail(Exit::kUsage, "empty name in the path \"" + path + "\"");
    if (name.size() > static_cast<size_t>(kAoMaxNameLength))
      Fail(Exit::kUsage, "the name \"" + name + "\" is longer than " + std::to_string(kAoMaxNameLength) + " bytes");
    if (!name.empty()) names.push_back(name);
    start = end + 1;
  }
  return names;
}

std::string JoinPath(const std::vector<std::string>& names, size_t count) {
  std::string path;
  for (size_t i = 0; i < count && i < names.size(); ++i) path += (i == 0 ? "" : "/") + names[i];
  return path;
}

StreamPath::~StreamPath() {
  while (!chain_.empty()) {
    chain_.back()->Release();
    chain_.pop_back();
  }
}

StreamPath OpenPath(const Container& container, const std::vector<std::string>& names, uint32_t mode) {
  StreamPath path;
  for (size_t level = 0; level < names.size(); ++level) {
    aoStream* parent = path.target();
    if (parent != nullptr && parent->IsFolder() == 0)
      Fail(Exit::kConflict, container.file() + ": " + JoinPath(names, level) + " is a data stream, not a folder");
    aoStream* stream = parent == nullptr ? container.storage().OpenStream(names[level].c_str(), mode)
                                         : parent->OpenStream(names[level].c_str(), mode);
    if (stream == nullptr) Fail(Exit::kNoSuchStream, container.file() + ": no such stream: " + JoinPath(names, level + 1));
    path.Push(stream);
  }
  return path;
}

StreamPath OpenOrCreatePath(const Container& container, const std::vector<std::string>& names, bool lastIsFolder) {
  StreamPath path;
  for (size_t level = 0; level < names.size(); ++level) {
    const bool folder = level + 1 < names.size() || lastIsFolder;
    const char* name = names[level].c_str();
    aoStream* parent = path.target();
    aoStream* stream = parent == nullptr ? container.storage().OpenStream(name, kAoModeEdit)
                                         : parent->OpenStream(name, kAoModeEdit);
    if (stream != nullptr && (stream->IsFolder() != 0) != folder) {
      stream->Release();
      Fail(Exit::kConflict, container.file() + ": " + JoinPath(names, level + 1) + " is " +
                                (folder ? "a data stream, not a folder" : "a folder, not a data stream"));
    }
    if (stream == nullptr) {
      const uint32_t attributes = folder ? 1 : 0;
      stream = parent == nullptr ? container.storage().CreateStream(name, attributes, kAoModeEdit)
                                 : parent->CreateStream(name, attributes, kAoModeEdit, 1);
    }
    if (stream == nullptr) FailWithDiagnosis(container.file(), Exit::kWriteFailed, "cannot create " + JoinPath(names, level + 1));
    path.Push(stream);
  }
  return path;
}

void FailWithDiagnosis(const std::string& file, Exit fallback, const std::string& what) {
  const ao::CheckReport report = ao::CheckContainer(file.c_str(), ao::CheckScope::kFull);
  if (report.readable && report.problemCount > 0) Fail(Exit::kDamaged, file + ": " + FirstProblem(report));
  Fail(fallback, file + ": " + what);
}

}  // namespace aotool

