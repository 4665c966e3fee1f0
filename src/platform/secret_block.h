// A zeroed block for secret bytes: wiped and freed unless the caller takes it.
#ifndef AOSTORE_PLATFORM_SECRET_BLOCK_H
#define AOSTORE_PLATFORM_SECRET_BLOCK_H

#include <cstddef>

#include "platform/base.h"
#include "platform/memory.h"

namespace ao::platform {

class OwnedBlock {
 public:
  explicit OwnedBlock(size_t size) : block_(static_cast<unsigned char*>(AllocZeroed(size))) {}
  ~OwnedBlock() { FreeSecretBlock(block_); }
  OwnedBlock(const OwnedBlock&) = delete;
  OwnedBlock& operator=(const OwnedBlock&) = delete;
  unsigned char* get() const { return block_; }
  unsigned char* release() {
    unsigned char* block = block_;
    block_ = nullptr;
    return block;
  }

 private:
  unsigned char* block_;
};

}  // namespace ao::platform

#endif  // AOSTORE_PLATFORM_SECRET_BLOCK_H
