// The physical limit: the same bytes written with pwrite at consecutive
// offsets of one file, and read back with pread. Where each stream's bytes lie
// is kept in memory only (it survives "reopen" because it is never stored), so
// this backend pays for data transfer and nothing else.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "backend.h"

namespace bench {
namespace {

[[noreturn]] void Fail(const std::string& what) {
  throw BackendError("rawfile: " + what + ": " + std::strerror(errno));
}

struct Extent {
  std::uint64_t logical = 0;  // offset within the stream
  std::uint64_t physical = 0;  // offset within the file
  std::uint64_t size = 0;
};

struct Entry {
  bool folder = false;
  std::vector<Extent> extents;
};

// What all containers open on one path share: the end of the file and the
// place of every stream ("folder/name" keys).
struct FileState {
  explicit FileState(std::uint64_t start) : end(start) {}
  std::atomic<std::uint64_t> end;
  std::mutex lock;
  std::unordered_map<std::string, Entry> entries;

  Entry& Add(const std::string& key, bool folder) {
    std::lock_guard guard(lock);
    auto [it, added] = entries.try_emplace(key);
    if (!added) throw BackendError("rawfile: exists: " + key);
    it->second.folder = folder;
    return it->second;
  }

  const Entry* Find(const std::string& key) {
    std::lock_guard guard(lock);
    const auto it = entries.find(key);
    return it == entries.end() ? nullptr : &it->second;
  }
};

class RawWriter : public StreamWriter {
 public:
  RawWriter(int fd, FileState& state, Entry& entry) : fd_(fd), state_(state), entry_(entry) {}
  ~RawWriter() override {
    std::lock_guard guard(state_.lock);
    entry_.extents = std::move(extents_);
  }

  void Append(const unsigned char* data, std::size_t size) override {
    const std::uint64_t at = state_.end.fetch_add(size);
    for (std::size_t done = 0; done < size;) {
      const ssize_t wrote = ::pwrite(fd_, data + done, size - done, static_cast<off_t>(at + done));
      if (wrote <= 0) Fail("write");
      done += static_cast<std::size_t>(wrote);
    }
    if (!extents_.empty() && extents_.back().physical + extents_.back().size == at) {
      extents_.back().size += size;
    } else {
      extents_.push_back({length_, at, size});
    }
    length_ += size;
  }

 private:
  int fd_;
  FileState& state_;
  Entry& entry_;
  std::vector<Extent> extents_;
  std::uint64_t length_ = 0;
};

class RawReader : public StreamReader {
 public:
  RawReader(int fd, const Entry& entry) : fd_(fd), extents_(entry.extents) {}

  std::size_t Read(unsigned char* out, std::size_t size) override {
    const std::size_t got = ReadAt(position_, out, size);
    position_ += got;
    return got;
  }

  std::size_t ReadAt(std::uint64_t offset, unsigned char* out, std::size_t size) override {
    auto it = std::upper_bound(extents_.begin(), extents_.end(), offset,
                               [](std::uint64_t value, const Extent& extent) { return value < extent.logical; });
    if (it == extents_.begin()) return 0;
    --it;
    std::size_t done = 0;
    for (; it != extents_.end() && done < size; ++it) {
      const std::uint64_t within = offset + done - it->logical;
      if (within >= it->size) break;
      const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(it->size - within, size - done));
      PreadAll(it->physical + within, out + done, count);
      done += count;
    }
    return done;
  }

 private:
  void PreadAll(std::uint64_t at, unsigned char* out, std::size_t size) const {
    for (std::size_t done = 0; done < size;) {
      const ssize_t got = ::pread(fd_, out + done, size - done, static_cast<off_t>(at + done));
      if (got <= 0) Fail("read");
      done += static_cast<std::size_t>(got);
    }
  }

  int fd_;
  const std::vector<Extent>& extents_;
  std::uint64_t position_ = 0;
};

class RawFolder : public Folder {
 public:
  RawFolder(int fd, FileState& state, std::string prefix) : fd_(fd), state_(state), prefix_(std::move(prefix)) {}

  std::unique_ptr<StreamWriter> CreateStream(const std::string& name) override {
    return std::make_unique<RawWriter>(fd_, state_, state_.Add(prefix_ + name, false));
  }

  std::unique_ptr<StreamReader> OpenStream(const std::string& name) override {
    return std::make_unique<RawReader>(fd_, Find(name, false));
  }

  std::unique_ptr<Folder> CreateFolder(const std::string& name) override {
    state_.Add(prefix_ + name, true);
    return std::make_unique<RawFolder>(fd_, state_, prefix_ + name + "/");
  }

  std::unique_ptr<Folder> OpenFolder(const std::string& name) override {
    Find(name, true);
    return std::make_unique<RawFolder>(fd_, state_, prefix_ + name + "/");
  }

  void CreateEmpty(const std::string& name) override { state_.Add(prefix_ + name, false); }

  bool Contains(const std::string& name) override { return state_.Find(prefix_ + name) != nullptr; }

 private:
  const Entry& Find(const std::string& name, bool folder) {
    const Entry* entry = state_.Find(prefix_ + name);
    if (entry == nullptr || entry->folder != folder) throw BackendError("rawfile: not found: " + prefix_ + name);
    return *entry;
  }

  int fd_;
  FileState& state_;
  std::string prefix_;
};

class RawContainer : public Container {
 public:
  RawContainer(const std::string& path, int flags, std::shared_ptr<FileState> state)
      : fd_(::open(path.c_str(), flags | O_CLOEXEC, 0644)), state_(std::move(state)), root_(fd_, *state_, "") {
    if (fd_ < 0) Fail("open " + path);
  }
  ~RawContainer() override { ::close(fd_); }
  Folder& Root() override { return root_; }

 private:
  int fd_;
  std::shared_ptr<FileState> state_;
  RawFolder root_;
};

class RawfileBackend : public Backend {
 public:
  explicit RawfileBackend(std::uint64_t start) : start_(start) {}
  std::string Name() const override { return start_ == 0 ? "rawfile" : "rawfile" + std::to_string(start_); }
  std::string Describe() const override {
    if (start_ != 0)
      return "rawfile with the bytes starting " + std::to_string(start_) +
             " bytes past a page boundary, as a block's data does behind its header";
    return "pwrite/pread at consecutive offsets of one file; stream places kept in memory only";
  }

  std::unique_ptr<Container> Create(const std::string& path) override {
    auto state = std::make_shared<FileState>(start_);
    {
      std::lock_guard guard(lock_);
      states_[path] = state;
    }
    return std::make_unique<RawContainer>(path, O_RDWR | O_CREAT | O_TRUNC, state);
  }

  std::unique_ptr<Container> Open(const std::string& path, Access access) override {
    std::shared_ptr<FileState> state;
    {
      std::lock_guard guard(lock_);
      const auto it = states_.find(path);
      if (it == states_.end()) throw BackendError("rawfile: unknown container " + path);
      state = it->second;
    }
    return std::make_unique<RawContainer>(path, access == Access::kWrite ? O_RDWR : O_RDONLY, state);
  }

  void Remove(const std::string& path) override {
    {
      std::lock_guard guard(lock_);
      states_.erase(path);
    }
    ::unlink(path.c_str());
  }

 private:
  std::uint64_t start_;
  std::mutex lock_;
  std::map<std::string, std::shared_ptr<FileState>> states_;
};

}  // namespace

std::unique_ptr<Backend> MakeRawfileBackend(std::uint64_t start) { return std::make_unique<RawfileBackend>(start); }

}  // namespace bench
