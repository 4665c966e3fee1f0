#include "container.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>

#include "host_files.h"
#include "names.h"
#include "progress.h"

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

std::string FirstProblem(const ao::CheckReport& report) {
  if (report.problems.empty()) return "damaged";
  const ao::CheckProblem& problem = report.problems.front();
  return "damaged at offset " + std::to_string(problem.offset) + ": " + problem.message;
}

// Fails unless the library can open the file the report describes.
void RequireOpenable(const std::string& file, const ao::CheckReport& report) {
  if (!report.readable) {
    FailIfBusy(file);
    Fail(Exit::kUnreadable, file + ": " + report.readError);
  }
  if (!report.container) FailNotContainer(file, report);
  if (!report.directorySound) Fail(Exit::kDamaged, file + ": " + FirstProblem(report));
}

// Fails with kUnreadable and the system's reason when file cannot be read
// (missing, a directory, no permission).
void RequireReadableFile(const std::string& file) {
  const std::string problem = ReadProblem(file);
  if (!problem.empty()) Fail(Exit::kUnreadable, file + ": " + problem);
}

}  // namespace

void FailIfBusy(const std::string& file) {
  const ao::errc why = ao::LastError();
  if (why == ao::errc::busy || why == ao::errc::read_elsewhere) Fail(Exit::kBusy, file + ": " + ao::ErrorText(why));
}

void FailNotContainer(const std::string& file, const ao::CheckReport& report) {
  Fail(Exit::kNotContainer,
       file + ": not a container" + (report.problems.empty() ? "" : " (" + report.problems.front().message + ")"));
}

Container Container::Open(const std::string& file, Access access) {
  RequireReadableFile(file);
  RequireOpenable(file, ao::CheckContainer(file.c_str(), ao::CheckScope::kDirectory));
  const bool read = access == Access::kRead;
  if (!read) {
    const std::string problem = WriteProblem(file);
    if (!problem.empty()) Fail(Exit::kWriteFailed, file + ": cannot open the container for writing: " + problem);
  }
  aoStorage* storage = aoStorage::Open(file.c_str(), read ? kAoModeInspect : kAoModeEdit, 0, 0);
  if (storage == nullptr) {
    FailIfBusy(file);
    Fail(read ? Exit::kUnreadable : Exit::kWriteFailed,
         file + (read ? ": cannot open the container" : ": cannot open the container for writing") + " (" +
             ao::ErrorText(ao::LastError()) + ")");
  }
  return Container(storage, file, false, !read);
}

Container Container::Open(const std::string& file, const ao::CheckReport& checked) {
  RequireOpenable(file, checked);
  aoStorage* storage = aoStorage::Open(file.c_str(), kAoModeInspect, 0, 0);
  if (storage == nullptr) {
    FailIfBusy(file);
    Fail(Exit::kUnreadable, file + ": cannot open the container (" + ao::ErrorText(ao::LastError()) + ")");
  }
  return Container(storage, file, false, false);
}

Container Container::Create(const std::string& file, bool offsets64, bool replace) {
  std::error_code error;
  if (!replace && std::filesystem::exists(file, error))
    Fail(Exit::kConflict, file + ": the file exists (--force replaces it)");
  const std::string problem = WriteProblem(file);
  if (!problem.empty()) Fail(Exit::kWriteFailed, file + ": cannot create the container: " + problem);
  CreateWidth width(offsets64);
  aoStorage* storage = aoStorage::Create(file.c_str(), kAoModeEdit, 0);
  if (storage == nullptr) {
    FailIfBusy(file);
    Fail(Exit::kWriteFailed, file + ": cannot create the container (" + ao::ErrorText(ao::LastError()) + ")");
  }
  return Container(storage, file, true, true);
}

Container Container::OpenOrCreate(const std::string& file) {
  std::error_code error;
  if (std::filesystem::symlink_status(file, error).type() == std::filesystem::file_type::not_found)
    return Create(file, true);
  return Open(file, Access::kWrite);
}

Container::Container(aoStorage* storage, std::string file, bool created, bool writer)
    : storage_(storage),
      file_(std::move(file)),
      created_(created),
      writer_(writer),
      uncaught_(std::uncaught_exceptions()) {}

Container::Container(Container&& other) noexcept
    : storage_(other.storage_),
      file_(std::move(other.file_)),
      created_(other.created_),
      writer_(other.writer_),
      uncaught_(other.uncaught_) {
  other.storage_ = nullptr;
  other.created_ = false;
}

Container::~Container() {
  Close();
  if (created_ && std::uncaught_exceptions() > uncaught_) {
    std::error_code error;
    std::filesystem::remove(file_, error);
  }
}

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

ao::CheckReport CheckWithProgress(const std::string& file, const char* label) {
  Progress progress(label, 0);
  return ao::CheckContainer(file.c_str(), ao::CheckScope::kFull, [&progress](int64_t done, int64_t total) {
    progress.SetTotal(total);
    progress.Update(done);
  });
}

ao::CheckReport CheckForReading(const std::string& file) {
  RequireReadableFile(file);
  ao::CheckReport report = CheckWithProgress(file, "check");
  if (!report.readable) {
    FailIfBusy(file);
    Fail(Exit::kUnreadable, file + ": " + report.readError);
  }
  if (!report.container) FailNotContainer(file, report);
  return report;
}

int ReadChecked(const std::string& file, const ao::CheckReport& report, const std::function<int64_t()>& work) {
  int64_t unreadable = 0;
  try {
    unreadable = work();
  } catch (const ToolError& error) {
    const bool hidden = error.status() == Exit::kNoSuchStream || error.status() == Exit::kUnreadable ||
                        error.status() == Exit::kDamaged;
    if (report.problemCount == 0 || !hidden) throw;
    Warn(error.what());
  }
  if (report.problemCount > 0) {
    std::string text = file + ": " + FirstProblem(report);
    if (report.problemCount > 1)
      text += " (" + std::to_string(report.problemCount) + " problems in all; aostore check lists them)";
    Warn(text);
    return static_cast<int>(Exit::kDamaged);
  }
  if (unreadable > 0) return static_cast<int>(Exit::kUnreadable);
  return 0;
}

std::vector<std::string> SplitPath(const std::string& path) {
  std::vector<std::string> names;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    const std::string name = path.substr(start, end - start);
    const bool edge = start == 0 || end == path.size();
    if (name.empty() && !edge) Fail(Exit::kUsage, "empty name in the path " + Shown(path));
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
    // Damage can hide a stream: a missing one is looked for in the whole check.
    if (stream == nullptr)
      FailWithDiagnosis(container.file(), Exit::kNoSuchStream, "no such stream: " + Shown(JoinPath(names, level + 1)));
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
    aoStream* stream =
        parent == nullptr ? container.storage().OpenStream(name, kAoModeEdit) : parent->OpenStream(name, kAoModeEdit);
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
    if (stream == nullptr)
      FailWithDiagnosis(container.file(), Exit::kWriteFailed, "cannot create " + JoinPath(names, level + 1));
    path.Push(stream);
  }
  return path;
}

void FailWithDiagnosis(const std::string& file, Exit fallback, const std::string& what) {
  const ao::CheckReport report = ao::CheckContainer(file.c_str(), ao::CheckScope::kFull);
  if (report.readable && report.problemCount > 0)
    Fail(Exit::kDamaged, file + ": " + what + ": " + FirstProblem(report));
  Fail(fallback, file + ": " + what);
}

}  // namespace aotool
