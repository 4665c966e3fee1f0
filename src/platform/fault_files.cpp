#include "platform/fault_files.h"

namespace ao::platform {

void FaultFiles::FailRead(int64_t nth, Fault fault) {
  reads_ = 0;
  readTarget_ = nth;
  readFault_ = fault;
}

void FaultFiles::FailWrite(int64_t nth, Fault fault) {
  writes_ = 0;
  writeTarget_ = nth;
  writeFault_ = fault;
  writesFromTarget_ = false;
}

void FaultFiles::FailWritesFrom(int64_t nth) {
  writes_ = 0;
  writeTarget_ = nth;
  writeFault_ = Fault::kFail;
  writesFromTarget_ = true;
}

void FaultFiles::Disarm() {
  readTarget_ = 0;
  writeTarget_ = 0;
  writesFromTarget_ = false;
}

FileHandle FaultFiles::Open(const char* path, bool write, Disposition disposition, Mapping mapping) {
  return inner_.Open(path, write, disposition, mapping);
}

bool FaultFiles::ReadAt(FileHandle file, void* buffer, size_t count, int64_t offset, size_t* done) {
  const int64_t call = ++reads_;
  if (readTarget_ != 0 && call == readTarget_) {
    ++faults_;
    if (readFault_ == Fault::kFail) {
      *done = 0;
      return false;
    }
    return inner_.ReadAt(file, buffer, count / 2, offset, done);
  }
  return inner_.ReadAt(file, buffer, count, offset, done);
}

bool FaultFiles::WriteAt(FileHandle file, const void* buffer, size_t count, int64_t offset, size_t* done) {
  const int64_t call = ++writes_;
  const bool hit = writeTarget_ != 0 && (writesFromTarget_ ? call >= writeTarget_ : call == writeTarget_);
  if (hit) {
    ++faults_;
    if (writeFault_ == Fault::kFail) {
      *done = 0;
      return false;
    }
    inner_.WriteAt(file, buffer, count / 2, offset, done);
    return false;
  }
  return inner_.WriteAt(file, buffer, count, offset, done);
}

}  // namespace ao::platform
