// A file backend for tests that makes the Nth read or write fail or come
// short, so that failure paths run for real.
#ifndef AOSTORE_PLATFORM_FAULT_FILES_H
#define AOSTORE_PLATFORM_FAULT_FILES_H

#include <atomic>
#include <cstdint>

#include "platform/files.h"

namespace ao::platform {

class FaultFiles final : public FileApi {
 public:
  enum class Fault { kFail, kShort };

  explicit FaultFiles(FileApi& inner) : inner_(inner) {}

  // The nth read (or write) from now on, counting from 1, fails or delivers
  // half of its bytes; 0 disarms. Counters restart at each call.
  void FailRead(int64_t nth, Fault fault = Fault::kFail);
  void FailWrite(int64_t nth, Fault fault = Fault::kFail);
  // Every write from the nth on fails (a device that went away).
  void FailWritesFrom(int64_t nth);
  void Disarm();
  int64_t reads() const { return reads_; }
  int64_t writes() const { return writes_; }
  int64_t faults() const { return faults_; }

  FileHandle Open(const char* path, bool write, Disposition disposition, Mapping mapping) override;
  void Close(FileHandle file) override { inner_.Close(file); }
  bool ReadAt(FileHandle file, void* buffer, size_t count, int64_t offset, size_t* done) override;
  bool WriteAt(FileHandle file, const void* buffer, size_t count, int64_t offset, size_t* done) override;
  int64_t Size(FileHandle file) override { return inner_.Size(file); }
  bool SetSize(FileHandle file, int64_t size) override { return inner_.SetSize(file, size); }
  bool Flush(FileHandle file) override { return inner_.Flush(file); }
  bool Identify(FileHandle file, FileIdentity& identity) override { return inner_.Identify(file, identity); }
  FileHandle OpenForLocking(const char* path) override { return inner_.OpenForLocking(path); }
  LockResult SetLock(FileHandle lockHandle, LockMode held, LockMode wanted) override {
    return inner_.SetLock(lockHandle, held, wanted);
  }
  void LimitGrowth(FileHandle file, int64_t limit) override { inner_.LimitGrowth(file, limit); }
  int64_t RoomLeftBehind(FileHandle file) override { return inner_.RoomLeftBehind(file); }
  bool Copy(const char* from, const char* to) override { return inner_.Copy(from, to); }
  bool Delete(const char* path) override { return inner_.Delete(path); }
  bool Exists(const char* path) override { return inner_.Exists(path); }
  bool Rename(const char* from, const char* to) override { return inner_.Rename(from, to); }

 private:
  FileApi& inner_;
  std::atomic<int64_t> reads_{0}, writes_{0}, faults_{0};
  int64_t readTarget_ = 0, writeTarget_ = 0;
  bool writesFromTarget_ = false;
  Fault readFault_ = Fault::kFail, writeFault_ = Fault::kFail;
};

// Installs a FaultFiles over the system backend for the life of the object.
class ScopedFaultFiles {
 public:
  ScopedFaultFiles() : faults_(SystemFiles()), previous_(SetFilesForTesting(&faults_)) {}
  ~ScopedFaultFiles() { SetFilesForTesting(previous_); }
  ScopedFaultFiles(const ScopedFaultFiles&) = delete;
  ScopedFaultFiles& operator=(const ScopedFaultFiles&) = delete;
  FaultFiles* operator->() { return &faults_; }
  FaultFiles& get() { return faults_; }

 private:
  FaultFiles faults_;
  FileApi* previous_;
};

}  // namespace ao::platform

#endif  // AOSTORE_PLATFORM_FAULT_FILES_H
