// One real file per stream, folders as directories: the file system as the
// container. Names are resolved relative to an open directory descriptor
// (openat), as a tuned application would, so no full path is walked per call.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "backend.h"

namespace bench {
namespace {

[[noreturn]] void Fail(const std::string& what) {
  throw BackendError("fsdir: " + what + ": " + std::strerror(errno));
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

class FsdirWriter : public StreamWriter {
 public:
  FsdirWriter(int dir, const std::string& name)
      : fd_(::openat(dir, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644)), name_(name) {
    if (fd_.get() < 0) Fail("create " + name);
  }

  void Append(const unsigned char* data, std::size_t size) override {
    while (size > 0) {
      const ssize_t done = ::write(fd_.get(), data, size);
      if (done <= 0) Fail("write " + name_);
      data += done;
      size -= static_cast<std::size_t>(done);
    }
  }

 private:
  Descriptor fd_;
  std::string name_;
};

class FsdirReader : public StreamReader {
 public:
  FsdirReader(int dir, const std::string& name) : fd_(::openat(dir, name.c_str(), O_RDONLY | O_CLOEXEC)), name_(name) {
    if (fd_.get() < 0) Fail("open " + name);
  }

  std::size_t Read(unsigned char* out, std::size_t size) override {
    std::size_t done = 0;
    while (done < size) {
      const ssize_t got = ::read(fd_.get(), out + done, size - done);
      if (got < 0) Fail("read " + name_);
      if (got == 0) break;
      done += static_cast<std::size_t>(got);
    }
    return done;
  }

  std::size_t ReadAt(std::uint64_t offset, unsigned char* out, std::size_t size) override {
    std::size_t done = 0;
    while (done < size) {
      const ssize_t got = ::pread(fd_.get(), out + done, size - done, static_cast<off_t>(offset + done));
      if (got < 0) Fail("read " + name_);
      if (got == 0) break;
      done += static_cast<std::size_t>(got);
    }
    return done;
  }

 private:
  Descriptor fd_;
  std::string name_;
};

class FsdirFolder : public Folder {
 public:
  explicit FsdirFolder(const std::string& path) : dir_(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (dir_.get() < 0) Fail("open " + path);
  }

  FsdirFolder(int parent, const std::string& name)
      : dir_(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (dir_.get() < 0) Fail("open folder " + name);
  }

  std::unique_ptr<StreamWriter> CreateStream(const std::string& name) override {
    return std::make_unique<FsdirWriter>(dir_.get(), name);
  }

  std::unique_ptr<StreamReader> OpenStream(const std::string& name) override {
    return std::make_unique<FsdirReader>(dir_.get(), name);
  }

  std::unique_ptr<Folder> CreateFolder(const std::string& name) override {
    if (::mkdirat(dir_.get(), name.c_str(), 0755) != 0) Fail("create folder " + name);
    return std::make_unique<FsdirFolder>(dir_.get(), name);
  }

  std::unique_ptr<Folder> OpenFolder(const std::string& name) override {
    return std::make_unique<FsdirFolder>(dir_.get(), name);
  }

  void CreateEmpty(const std::string& name) override {
    const int fd = ::openat(dir_.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) Fail("create " + name);
    ::close(fd);
  }

  bool Contains(const std::string& name) override {
    struct stat info;
    return ::fstatat(dir_.get(), name.c_str(), &info, 0) == 0;
  }

 private:
  Descriptor dir_;
};

class FsdirContainer : public Container {
 public:
  explicit FsdirContainer(const std::string& path) : root_(path) {}
  Folder& Root() override { return root_; }

 private:
  FsdirFolder root_;
};

class FsdirBackend : public Backend {
 public:
  std::string Name() const override { return "fsdir"; }
  std::string Describe() const override { return "one file per stream, a directory per folder, openat/read/write"; }

  std::unique_ptr<Container> Create(const std::string& path) override {
    Remove(path);
    if (::mkdir(path.c_str(), 0755) != 0) Fail("create " + path);
    return Open(path, Access::kWrite);
  }

  std::unique_ptr<Container> Open(const std::string& path, Access) override {
    return std::make_unique<FsdirContainer>(path);
  }

  void Remove(const std::string& path) override {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
};

}  // namespace

std::unique_ptr<Backend> MakeFsdirBackend() { return std::make_unique<FsdirBackend>(); }

}  // namespace bench
