// Folder operations whose writes or reads fail part way (the fault-injecting
// file backend): what was there before is never lost, a failed removal
// leaves its stream as it was, and a failed read is not remembered.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "platform/fault_files.h"
#include "tree_support.h"

namespace {

using namespace ao::test;
using ao::platform::FaultFiles;

TEST(FolderFaults, FailedWritesAndReadsNeverCostExistingChildren) {
  TempDir dir;
  const std::string path = dir.File("faults.dat");
  aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, 0);
  aoStream* folder = storage->CreateStream("f", 1, kAoModeEdit);
  for (const char* name : {"a", "b", "c"}) WriteChild(folder, name, Text(name));
  folder->Release();
  storage->Release();
  const Bytes base = ReadWholeFile(path);
  for (int run = 0; run < 3 * 14; ++run) {
    const int nth = run % 14 + 1;
    SCOPED_TRACE("run " + std::to_string(run));
    WriteWholeFile(path, base);
    storage = aoStorage::Open(path.c_str(), kAoModeEdit, 0, 0);
    folder = storage->OpenStream("f", kAoModeEdit);
    bool removed = false;
    {
      ao::platform::ScopedFaultFiles files;
      if (run < 28) {
        files->FailWrite(nth, run < 14 ? FaultFiles::Fault::kFail : FaultFiles::Fault::kShort);
      } else {
        files->FailRead(nth);
      }
      aoStream* made = folder->CreateStream("new", 1, kAoModeEdit, 1);
      if (made != nullptr) made->Release();
      aoStream* b = folder->OpenStream("b", kAoModeEdit);
      if (b != nullptr && !(removed = b->Remove())) {
        EXPECT_STREQ(b->GetName(), "b");  // a refused removal leaves the object as it was
        b->Release();
      }
    }
    // A failed read is not remembered: the same object still finds "c".
    t_aoStreamU record;
    tag_aoStreamOffset where;
    EXPECT_TRUE(folder->FindStream("c", record, where));
    EXPECT_EQ(folder->CreateStream("c", 0, kAoModeEdit, 1), nullptr);
    folder->Release();
    storage->Release();

    storage = aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0);
    folder = storage->OpenStream("f", kAoModeInspect);
    const std::vector<std::string> names = Names(folder);
    for (const std::string& name : names) {
      const Bytes bytes = ReadChild(folder, name.c_str());  // every child listed opens
      if (name.size() == 1) {
        EXPECT_EQ(bytes, Text(name.c_str()));
      }
    }
    for (const char* kept : {"a", "c"}) EXPECT_EQ(std::count(names.begin(), names.end(), kept), 1) << kept;
    if (removed) {
      EXPECT_EQ(std::count(names.begin(), names.end(), "b"), 0);
    }
    folder->Release();
    storage->Release();
  }
}

}  // namespace
