// The writer threads of the stress test: each opens its own container object
// on the shared test file and writes one stream of 1 MiB.
#include "aostore/storage.h"
#include "aostore/stream.h"
#include "aostore/stress.h"
#include "aostore/types.h"
#include "stress/pass.h"

using ao::stress::kChunkBytes;
using ao::stress::kStreamBytes;

void CTestVastrel::Preallocate(aoStream& stream, int64_t size) {
  if (stream.m_header.firstBlock != 0) return;
  const int64_t block = stream.AllocateFirstBlock(size);
  // The allocation leaves making the block current to its caller; without
  // it the first write would start a second chain.
  if (block != 0) stream.MoveToBlock(block);
}

void CTestVastrel::WriteStream(ao::stress::Pass& pass, int n) {
  pass.start.wait();
  bool complete = false;
  try {
    // Opening, or creating when no writer was first, happens under the
    // registry lock as a whole: exactly one writer creates the file.
    aoStorage* storage = aoStorage::OpenOrCreate(pass.path.c_str(), kAoModeEdit, 0);
    if (storage != nullptr) {
      const std::string name = ao::stress::Pass::StreamName(n);
      aoStream* folder = nullptr;
      aoStream* stream = nullptr;
      if (pass.InFolder(n)) {
        folder = storage->OpenOrCreateStream(ao::stress::Pass::FolderName(n).c_str(), 1);
        if (folder != nullptr) stream = folder->OpenOrCreateStream(name.c_str(), 0u, kAoModeEdit);
      } else {
        stream = storage->OpenOrCreateStream(name.c_str(), 0);
      }
      if (stream != nullptr) {
        if (pass.Preallocates(n)) Preallocate(*stream, kStreamBytes);
        int64_t written = 0;
        for (int64_t at = 0; at < kStreamBytes; at += kChunkBytes) {
          const int64_t done = stream->Write(pass.pattern + at, kChunkBytes, false, nullptr);
          if (done > 0) written += done;
        }
        complete = written == kStreamBytes;
        stream->Release();
      }
      if (folder != nullptr) folder->Release();
      storage->Release();
    }
  } catch (...) {
    // Nothing may escape a thread; the pass only has to learn that this
    // writer is done.
  }
  if (!complete) pass.failed.fetch_add(1);
  pass.finished.fetch_add(1);  // the last act: the pass may end now
}
