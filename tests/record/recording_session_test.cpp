// Recording a container's edits: the exact log of small sessions, what
// StopRecording hands out, and how a replay counts and stops.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "aostore/aostore.h"
#include "support/container_test.h"

namespace ao::test {
namespace {

class RecordingSession : public ContainerTest {
 protected:
  // Stops recording and returns the log's bytes.
  Bytes Stop() {
    std::unique_ptr<CCompRecorder> recorder(storage_->StopRecording());
    if (recorder == nullptr) return {};
    stopped_ = recorder->HasBeenStopped();
    unsigned int len = 0;
    unsigned char* log = recorder->Detach(&len);
    Bytes bytes(log, log + (log != nullptr ? len : 0));
    CCompRecorder::Free(log);
    return bytes;
  }
  int stopped_ = 0;
};


TEST_F(RecordingSession, ContainerEntriesAreLoggedAsEnterDataLeave) {
  EXPECT_EQ(storage_->StopRecording(), nullptr);
  ASSERT_EQ(storage_->StartRecording(), 1);
  CCompRecorder* active = storage_->GetRecorder();
  ASSERT_EQ(storage_->StartRecording(), 1);  // already recording: the same log goes on
  EXPECT_EQ(storage_->GetRecorder(), active);
  storage_->SetEntry("n", 5);
  storage_->SetEntry("s", "hi");
  storage_->SetEntryFast("k", 1);
  unsigned char blob[] = {1, 2, 3};
  storage_->SetEntry("b", blob, 3);
  storage_->SetEntryEraseOld("e", blob, 2, 0);
  const Bytes expected = {
      0x01, 0x01, 0x00, 'n', 0x00,
      0x05, 0x00, 0x01, 0x04, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00,
      0x03,
      0x01, 0x01, 0x00, 's', 0x00,
      0x05, 0x00, 0x01, 0x02, 0x00, 0x00, 0x00, 0x02, 0x00,  // the length field
      0x05, 0x00, 0x01, 0x02, 0x00, 0x00, 0x00, 'h', 'i',    // the characters
      0x03,
      0x02, 0x01, 0x00, 'k', 0x00,                           // a fast entry
      0x05, 0x00, 0x01, 0x04, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00,
      0x03,
      0x01, 0x01, 0x00, 'b', 0x00,
      0x06, 0x01, 0x03, 0x00, 0x00, 0x00, 1, 2, 3,
      0x03,
      0x01, 0x01, 0x00, 'e', 0x00,
      0x05, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 1, 2,
      0x03,
  };
  EXPECT_EQ(Stop(), expected);
  EXPECT_EQ(stopped_, 0);
}

TEST_F(RecordingSession, FolderEntriesAndRemovalsAreLoggedUnderTheirFolder) {
  aoStream* gone = storage_->CreateStream("gone", kAoModeEdit);
  ASSERT_NE(gone, nullptr);
  gone->Release();
  ASSERT_EQ(storage_->StartRecording(), 1);
  aoStream* folder = storage_->OpenOrCreateStream("F", 1);
  ASSERT_NE(folder, nullptr);
  folder->SetEntry("x", 7);
  aoStream* child = folder->OpenStream("x", kAoModeEdit);
  ASSERT_NE(child, nullptr);
  EXPECT_TRUE(child->Remove());
  unsigned char zero[] = {0};
  folder->SetEntryEraseOld("y", zero, 1, 0);  // the stream form always logs the size flag
  folder->Release();
  gone = storage_->OpenStream("gone", kAoModeEdit);
  ASSERT_NE(gone, nullptr);
  EXPECT_TRUE(gone->Remove());
  const Bytes expected = {
      0x01, 0x01, 0x00, 'F', 0x01,
      0x01, 0x01, 0x00, 'x', 0x00,
      0x05, 0x00, 0x01, 0x04, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00,
      0x03,                                                  // x released
      0x04, 0x01, 0x00, 'x',                                 // x removed from F
      0x03,                                                  // the removal leaves F
      0x01, 0x01, 0x00, 'F', 0x01,                           // F entered again for y
      0x01, 0x01, 0x00, 'y', 0x00,
      0x05, 0x01, 0x01, 0x01, 0x00, 0x00, 0x00, 0x00,
      0x03,                                                  // y released
      0x03,                                                  // F released
      0x04, 0x04, 0x00, 'g', 'o', 'n', 'e',                  // a root-level remove
  };
  EXPECT_EQ(Stop(), expected);
}

TEST_F(RecordingSession, AnUnbalancedOrStoppedLogIsHandedOutEmpty) {
  ASSERT_EQ(storage_->StartRecording(), 1);
  aoStream* folder = storage_->OpenOrCreateStream("F", 1);
  ASSERT_NE(folder, nullptr);
  folder->SetEntry("x", 1);  // F stays entered: it is released only after the stop
  EXPECT_EQ(storage_->GetRecorder()->GetStmDepth(), 1);
  EXPECT_GT(storage_->GetRecorder()->GetDataLength(), 0u);
  std::unique_ptr<CCompRecorder> unbalanced(storage_->StopRecording());
  ASSERT_NE(unbalanced, nullptr);
  EXPECT_EQ(unbalanced->GetDataLength(), 0u);
  unsigned int len = 0;
  EXPECT_EQ(storage_->ReplayRecording(unbalanced->PeekAll(&len), len), 0);
  folder->Release();

  ASSERT_EQ(storage_->StartRecording(), 1);
  aoStream* first = storage_->OpenOrCreateStreamFast("a", 0);
  aoStream* second = storage_->OpenOrCreateStreamFast("b", 0);  // a fast enter below another
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  second->Release();
  first->Release();
  std::unique_ptr<CCompRecorder> stopped(storage_->StopRecording());
  ASSERT_NE(stopped, nullptr);
  EXPECT_NE(stopped->HasBeenStopped(), 0);
  EXPECT_EQ(stopped->GetDataLength(), 0u);
}

TEST_F(RecordingSession, ReplayCountsRecordsAndStopsAtOnesItCannotApply) {
  EXPECT_EQ(storage_->ReplayRecording(nullptr, 0), 0);
  Bytes notALog = {0x09, 0x01, 0x00};
  EXPECT_EQ(storage_->ReplayRecording(notALog.data(), 3), 0);

  Bytes log = {
      0x01, 0x01, 0x00, 'v', 0x00,
      0x05, 0x00, 0x01, 0x02, 0x00, 0x00, 0x00, 0x34, 0x12,
      0x04, 0x01, 0x00, 'q',                                 // no such child: skipped, counted
      0x03,
      0x04, 0x01, 0x00, 'q',                                 // no such root stream either
      0x03,                                                  // a leave with nothing entered
      0x01, 0x01, 0x00, 'w', 0x00,                           // never reached
  };
  const Bytes original = log;
  EXPECT_EQ(storage_->ReplayRecording(log.data(), static_cast<uint32_t>(log.size())), 5);
  EXPECT_EQ(log, original);  // the caller's buffer is only read
  EXPECT_EQ(storage_->GetEntry("v", 0), 0x1234);
  tag_aoStreamOffset where;
  EXPECT_FALSE(storage_->FindStreamOffset("w", where));

  // A write with nothing entered ends the replay before it.
  Bytes orphanWrite = {0x05, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01};
  EXPECT_EQ(storage_->ReplayRecording(orphanWrite.data(), static_cast<uint32_t>(orphanWrite.size())), 0);
  // A record cut short ends it after the whole ones.
  Bytes cut = {0x01, 0x01, 0x00, 'v', 0x00, 0x03, 0x05, 0x00};
  EXPECT_EQ(storage_->ReplayRecording(cut.data(), static_cast<uint32_t>(cut.size())), 2);
}

TEST_F(RecordingSession, AReplayIntoARecordingContainerLogsItsFastEnters) {
  ASSERT_EQ(storage_->StartRecording(), 1);
  Bytes log = {
      0x02, 0x01, 0x00, 'k', 0x00,
      0x05, 0x00, 0x01, 0x04, 0x00, 0x00, 0x00, 0x09, 0x00, 0x00, 0x00,
      0x03,
  };
  EXPECT_EQ(storage_->ReplayRecording(log.data(), static_cast<uint32_t>(log.size())), 3);
  EXPECT_EQ(storage_->GetEntryFast("k", 0), 9);
  // The write went straight to the stream; the enter and the leave were logged.
  EXPECT_EQ(Stop(), (Bytes{0x02, 0x01, 0x00, 'k', 0x00, 0x03}));
}

}  // namespace
}  // namespace ao::test
