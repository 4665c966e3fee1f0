// The recorder's stack of entered streams, with real nested folders: where
// ancestors are entered on their own, and when the recorder gives up.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "support/container_test.h"

namespace ao::test {
namespace {

// Folders d0/d1/.../d(n-1) under the root, released innermost first.
class FolderChain {
 public:
  FolderChain(aoStorage* storage, int depth) {
    for (int i = 0; i < depth; ++i) {
      const std::string name = "d" + std::to_string(i);
      aoStream* folder =
          i == 0 ? storage->OpenOrCreateStream(name.c_str(), 1) : folders_.back()->OpenOrCreateStream(name.c_str(), 1);
      if (folder == nullptr) break;
      folders_.push_back(folder);
    }
  }
  ~FolderChain() {
    for (auto it = folders_.rbegin(); it != folders_.rend(); ++it) (*it)->Release();
  }
  size_t size() const { return folders_.size(); }
  aoStream* operator[](size_t i) const { return folders_[i]; }

 private:
  std::vector<aoStream*> folders_;
};

Bytes LogOf(CCompRecorder& recorder) {
  recorder.SeekToBegin();
  unsigned int len = 0;
  unsigned char* at = recorder.PeekAll(&len);
  return at != nullptr ? Bytes(at, at + len) : Bytes();
}

using RecorderStackOfStreams = ContainerTest;

TEST_F(RecorderStackOfStreams, TheThirtyThirdNestedEnterStopsTheLog) {
  FolderChain chain(storage_, 33);
  ASSERT_EQ(chain.size(), 33u);
  CCompRecorder recorder;
  for (size_t i = 0; i < 32; ++i) recorder.OpEnter(chain[i]->GetName(), 1, chain[i]);
  EXPECT_EQ(recorder.GetStmDepth(), 32);
  EXPECT_EQ(recorder.HasBeenStopped(), 0);
  EXPECT_EQ(recorder.GetOpCount(), 32u);
  const unsigned int before = recorder.GetDataLength();

  recorder.OpEnter(chain[32]->GetName(), 1, chain[32]);
  EXPECT_NE(recorder.HasBeenStopped(), 0);
  EXPECT_EQ(recorder.GetStmDepth(), 32);
  unsigned char byte[] = {1};
  recorder.OpWrite(byte, 1, 0, chain[31], 1);
  recorder.OpRemove("x", chain[31]);
  recorder.OpLeave(chain[31]);
  EXPECT_EQ(recorder.GetStmDepth(), 31);  // the stack is still kept
  EXPECT_EQ(recorder.GetDataLength(), before);
  EXPECT_EQ(recorder.GetOpCount(), 32u);
}

TEST_F(RecorderStackOfStreams, MissingAncestorsAreEnteredAndOthersAreNot) {
  FolderChain chain(storage_, 2);
  ASSERT_EQ(chain.size(), 2u);
  aoStream* leaf = chain[1]->OpenOrCreateStream("v", 0);
  ASSERT_NE(leaf, nullptr);
  CCompRecorder below;
  below.OpEnter("d0", 1, chain[0]);
  // An enter of a stream that is not a child of the top is not logged.
  const unsigned int before = below.GetDataLength();
  below.OpEnter("v", 0, leaf);
  EXPECT_EQ(below.GetDataLength(), before);
  EXPECT_EQ(below.GetStmDepth(), 1);
  EXPECT_EQ(below.HasBeenStopped(), 0);
  // A write two levels below the top enters the levels between.
  unsigned char byte[] = {0x5A};
  below.OpWrite(byte, 1, 0, leaf, 1);
  below.OpLeave(leaf);
  EXPECT_EQ(LogOf(below), (Bytes{
                              0x01, 0x02, 0x00, 'd', '0', 0x01,                // entered by the caller
                              0x01, 0x02, 0x00, 'd', '1', 0x01,                // the missing folder
                              0x01, 0x01, 0x00, 'v', 0x00,                     // the stream written
                              0x05, 0x00, 0x01, 0x01, 0x00, 0x00, 0x00, 0x5A,  // the write
                              0x03,
                          }));
  EXPECT_EQ(below.GetStmDepth(), 2);

  // At the root the whole chain is entered before an append or a remove.
  CCompRecorder atRoot;
  unsigned char bytes[] = {7, 8};
  atRoot.OpAppend(bytes, 2, leaf, 1);
  atRoot.OpLeave(leaf);
  atRoot.OpRemove("v", chain[1]);
  EXPECT_EQ(LogOf(atRoot), (Bytes{
                               0x01, 0x02, 0x00, 'd', '0', 0x01,
                               0x01, 0x02, 0x00, 'd', '1', 0x01,
                               0x01, 0x01, 0x00, 'v', 0x00,
                               0x06, 0x01, 0x02, 0x00, 0x00, 0x00, 7, 8,
                               0x03,
                               0x04, 0x01, 0x00, 'v',  // d1 is on top already
                           }));
  leaf->Release();
}

TEST_F(RecorderStackOfStreams, AnOpThatCannotBePlacedUnderTheTopStopsTheLog) {
  FolderChain chain(storage_, 1);
  aoStream* other = storage_->OpenOrCreateStream("other", 0);
  aoStream* child = chain[0]->OpenOrCreateStream("c", 0);
  ASSERT_NE(other, nullptr);
  ASSERT_NE(child, nullptr);
  CCompRecorder recorder;
  unsigned char byte[] = {1};
  recorder.OpWrite(byte, 1, 0, other, 1);
  const unsigned int before = recorder.GetDataLength();
  // "other" is still entered: the write to "c" would land in it on replay.
  recorder.OpWrite(byte, 1, 0, child, 1);
  EXPECT_NE(recorder.HasBeenStopped(), 0);
  EXPECT_EQ(recorder.GetDataLength(), before);
  child->Release();
  other->Release();
}

TEST_F(RecorderStackOfStreams, StreamsDeeperThanTenAncestorsCannotBePlaced) {
  FolderChain chain(storage_, 12);
  ASSERT_EQ(chain.size(), 12u);
  CCompRecorder reachable;
  unsigned char byte[] = {1};
  reachable.OpWrite(byte, 1, 0, chain[10], 1);  // ten ancestors
  EXPECT_EQ(reachable.HasBeenStopped(), 0);
  EXPECT_EQ(reachable.GetStmDepth(), 11);

  CCompRecorder unreachable;
  unreachable.OpWrite(byte, 1, 0, chain[11], 1);  // eleven
  EXPECT_NE(unreachable.HasBeenStopped(), 0);
  EXPECT_EQ(unreachable.GetDataLength(), 0u);
}

}  // namespace
}  // namespace ao::test
