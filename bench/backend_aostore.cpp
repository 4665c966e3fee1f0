// aostore driven through its public interface only, the way an application
// would use it: one aoStorage per open container, folders kept open with their
// children preloaded so that every name is found by one hash look-up.
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "aostore/aostore.h"
#include "backend.h"

namespace bench {
namespace {

[[noreturn]] void Fail(const std::string& what) { throw BackendError("aostore: " + what); }

// Messages are built only on failure: the calls around them are timed.
void Require(bool ok, const char* what, std::string_view name) {
  if (!ok) Fail(what + std::string(name));
}

class AostoreWriter : public StreamWriter {
 public:
  explicit AostoreWriter(aoStream* stream) : stream_(stream) {}
  ~AostoreWriter() override { stream_->Release(); }

  void Append(const unsigned char* data, std::size_t size) override {
    const auto count = static_cast<int64_t>(size);
    Require(stream_->Write(data, count, false, nullptr) == count, "short write to ", stream_->GetName());
  }

 private:
  aoStream* stream_;
};

class AostoreReader : public StreamReader {
 public:
  explicit AostoreReader(aoStream* stream) : stream_(stream) {}
  ~AostoreReader() override { stream_->Release(); }

  std::size_t Read(unsigned char* out, std::size_t size) override {
    const int64_t got = stream_->Read(out, static_cast<int64_t>(size));
    Require(got >= 0, "read error in ", stream_->GetName());
    return static_cast<std::size_t>(got);
  }

  std::size_t ReadAt(std::uint64_t offset, unsigned char* out, std::size_t size) override {
    Require(stream_->Seek(static_cast<int64_t>(offset), 0, true) == 0, "seek failed in ", stream_->GetName());
    return Read(out, size);
  }

 private:
  aoStream* stream_;
};

// A folder object. Its children are preloaded when it is opened or created, so
// finding a child is one hash look-up; a new child is then checked against the
// map and appended (unique 0), which keeps creation O(1) per child instead of
// the free-record scan that unique creation does.
class AostoreFolder : public Folder {
 public:
  AostoreFolder(aoStream* folder, uint32_t mode) : folder_(folder), mode_(mode) { folder_->PreloadChildren(); }
  ~AostoreFolder() override { folder_->Release(); }

  std::unique_ptr<StreamWriter> CreateStream(const std::string& name) override {
    return std::make_unique<AostoreWriter>(CreateChild(name, 0));
  }

  std::unique_ptr<StreamReader> OpenStream(const std::string& name) override {
    return std::make_unique<AostoreReader>(OpenChild(name));
  }

  std::unique_ptr<Folder> CreateFolder(const std::string& name) override {
    return std::make_unique<AostoreFolder>(CreateChild(name, 1), kAoModeEdit);
  }

  std::unique_ptr<Folder> OpenFolder(const std::string& name) override {
    return std::make_unique<AostoreFolder>(OpenChild(name), mode_);
  }

  void CreateEmpty(const std::string& name) override { CreateChild(name, 0)->Release(); }

  bool Contains(const std::string& name) override {
    t_aoStreamU record;
    tag_aoStreamOffset where;
    return folder_->FindStream(name.c_str(), record, where);
  }

 private:
  aoStream* CreateChild(const std::string& name, uint32_t attributes) {
    Require(!Contains(name), "child exists: ", name);
    aoStream* child = folder_->CreateStream(name.c_str(), attributes, kAoModeEdit, 0);
    Require(child != nullptr, "cannot create child ", name);
    return child;
  }

  aoStream* OpenChild(const std::string& name) {
    aoStream* child = folder_->OpenStream(name.c_str(), mode_);
    Require(child != nullptr, "cannot open child ", name);
    return child;
  }

  aoStream* folder_;
  uint32_t mode_;
};

class AostoreRoot : public Folder {
 public:
  AostoreRoot(aoStorage* storage, uint32_t mode) : storage_(storage), mode_(mode) {}

  std::unique_ptr<StreamWriter> CreateStream(const std::string& name) override {
    return std::make_unique<AostoreWriter>(CreateRoot(name, 0));
  }

  std::unique_ptr<StreamReader> OpenStream(const std::string& name) override {
    return std::make_unique<AostoreReader>(OpenRoot(name));
  }

  std::unique_ptr<Folder> CreateFolder(const std::string& name) override {
    return std::make_unique<AostoreFolder>(CreateRoot(name, 1), kAoModeEdit);
  }

  std::unique_ptr<Folder> OpenFolder(const std::string& name) override {
    return std::make_unique<AostoreFolder>(OpenRoot(name), mode_);
  }

  void CreateEmpty(const std::string& name) override { CreateRoot(name, 0)->Release(); }

  bool Contains(const std::string& name) override {
    tag_aoStreamOffset where;
    return storage_->FindStreamOffset(name.c_str(), where);
  }

 private:
  aoStream* CreateRoot(const std::string& name, uint32_t attributes) {
    aoStream* stream = storage_->CreateStream(name.c_str(), attributes, kAoModeEdit);
    Require(stream != nullptr, "cannot create root stream ", name);
    return stream;
  }

  aoStream* OpenRoot(const std::string& name) {
    aoStream* stream = storage_->OpenStream(name.c_str(), mode_);
    Require(stream != nullptr, "cannot open root stream ", name);
    return stream;
  }

  aoStorage* storage_;
  uint32_t mode_;
};

class AostoreContainer : public Container {
 public:
  AostoreContainer(aoStorage* storage, uint32_t mode) : storage_(storage), root_(storage, mode) {}
  ~AostoreContainer() override { storage_->Release(); }
  Folder& Root() override { return root_; }

 private:
  aoStorage* storage_;
  AostoreRoot root_;
};

class AostoreBackend : public Backend {
 public:
  explicit AostoreBackend(uint32_t minBlockCapacity) : minBlockCapacity_(minBlockCapacity) {}

  std::string Name() const override { return "aostore"; }

  std::string Describe() const override {
    return "public interface, minimum block capacity " + std::to_string(minBlockCapacity_) + ", " +
           (aoStorage::g_bUse64BitOffsets ? "64" : "32") + "-bit offsets, folders preloaded";
  }

  std::unique_ptr<Container> Create(const std::string& path) override {
    aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, minBlockCapacity_);
    Require(storage != nullptr, "cannot create ", path);
    return std::make_unique<AostoreContainer>(storage, kAoModeEdit);
  }

  std::unique_ptr<Container> Open(const std::string& path, Access access) override {
    const uint32_t mode = access == Access::kWrite ? kAoModeEdit : kAoModeInspect;
    aoStorage* storage = aoStorage::Open(path.c_str(), mode, minBlockCapacity_, 0);
    Require(storage != nullptr, "cannot open ", path);
    return std::make_unique<AostoreContainer>(storage, mode);
  }

  void Remove(const std::string& path) override { std::remove(path.c_str()); }

 private:
  uint32_t minBlockCapacity_;
};

}  // namespace

std::unique_ptr<Backend> MakeAostoreBackend(std::uint32_t minBlockCapacity) {
  return std::make_unique<AostoreBackend>(minBlockCapacity);
}

}  // namespace bench
