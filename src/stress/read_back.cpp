// The read-back of a stress pass: every stream is opened again through a
// fresh container object and read whole; a verifying run compares it.
#include <cstring>

#include "aostore/storage.h"
#include "aostore/stream.h"
#include "aostore/stress.h"
#include "aostore/types.h"
#include "stress/pass.h"

using ao::stress::kStreamBytes;

void CTestVastrel::NoteProblem(const ao::stress::Pass& pass, int n, const std::string& what) {
  m_problems.push_back("pass " + std::to_string(pass.number) + ": " + pass.Describe(n) + " " + what);
}

void CTestVastrel::ReadBack(const ao::stress::Pass& pass, unsigned char* readBuffer) {
  aoStorage* storage = aoStorage::Open(pass.path.c_str(), kAoModeEdit, 0, 0);
  for (int n = 0; n < pass.threads; ++n) {
    aoStream* folder = nullptr;
    aoStream* stream = nullptr;
    if (storage != nullptr) {
      const std::string name = ao::stress::Pass::StreamName(n);
      if (pass.InFolder(n)) {
        folder = storage->OpenStream(ao::stress::Pass::FolderName(n).c_str(), kAoModeEdit);
        if (folder != nullptr) stream = folder->OpenStream(name.c_str(), kAoModeEdit);
      } else {
        stream = storage->OpenStream(name.c_str(), kAoModeEdit);
      }
    }
    const bool found = stream != nullptr;
    int64_t got = 0;
    int64_t length = 0;
    if (found) {
      // A short read must not pass on the bytes of the stream before.
      if (pass.verify) std::memset(readBuffer, 0, static_cast<size_t>(kStreamBytes));
      got = stream->Read(readBuffer, kStreamBytes);
      length = stream->GetLength();
      stream->Release();
    }
    if (folder != nullptr) folder->Release();
    if (!pass.verify) continue;

    ++m_streamsChecked;
    if (!found) {
      ++m_streamsMissing;
      NoteProblem(pass, n, "missing");
      continue;
    }
    int64_t first = 0;
    while (first < got && readBuffer[first] == pass.pattern[first]) ++first;
    if (got != kStreamBytes || length != kStreamBytes || first != got) {
      ++m_streamsDiffering;
      NoteProblem(pass, n,
                  "differs: length " + std::to_string(length) + ", read " + std::to_string(got) +
                      (first != got ? ", first wrong byte at " + std::to_string(first) : std::string()));
    }
  }
  if (storage != nullptr) storage->Release();
}
