// aoStorage: applying an edit log recorded on a container with the same
// starting content.
#include <cstring>

#include "aostore/recorder.h"
#include "aostore/storage.h"
#include "aostore/stream.h"
#include "entries/entry_io.h"
#include "storage/internals.h"

namespace {

// Seek origin 1 counts back from the end of the data.
constexpr unsigned char kFromEnd = 1;

// The streams entered by the log and not yet left, innermost on top. The
// recorder never nests deeper than its own stack, so neither does a replay.
class EnteredStreams {
 public:
  ~EnteredStreams() {
    while (depth_ > 0) {
      if (aoStream* stream = streams_[--depth_]) stream->Release();
    }
  }
  int depth() const { return depth_; }
  bool full() const { return depth_ == CCompRecorder::kMaxDepth; }
  aoStream* top() const { return depth_ > 0 ? streams_[depth_ - 1] : nullptr; }
  void Push(aoStream* stream) { streams_[depth_++] = stream; }
  aoStream* Pop() { return streams_[--depth_]; }

 private:
  aoStream* streams_[CCompRecorder::kMaxDepth] = {};
  int depth_ = 0;
};

// Outcome of one record: applied or deliberately skipped (both counted), or
// the end of the replay.
enum class Step { kDone, kStop };

Step Push(EnteredStreams& entered, aoStream* stream) {
  if (stream == nullptr) return Step::kStop;
  if (entered.full()) {
    stream->Release();
    return Step::kStop;
  }
  entered.Push(stream);
  return Step::kDone;
}

// A remove inside an entered folder. The open obeys the folder's sharing
// rule: a child held exclusively or share-read-only elsewhere is skipped.
void RemoveChild(aoStream* folder, const char* name) {
  if (folder == nullptr || folder->IsFolder() == 0) return;
  t_aoStreamU record;
  tag_aoStreamOffset where;
  if (!folder->FindStream(name, record, where)) return;
  aoStream* child = folder->OpenStreamByOffset(record, where, name, kAoModeEdit);
  if (child != nullptr && !child->Remove()) child->Release();
}

Step Write(EnteredStreams& entered, const char* flags, unsigned char* data, uint32_t length) {
  if (entered.depth() == 0) return Step::kStop;
  aoStream* stream = entered.top();
  if (stream == nullptr) return Step::kDone;
  const bool truncate = flags[0] == '1';
  const bool sizePrefix = flags[1] == '1';
  if (truncate && sizePrefix) stream->PrependSize(length);
  stream->Write(data, length, truncate, nullptr);
  return Step::kDone;
}

Step Append(EnteredStreams& entered, const char* flags, unsigned char* data, uint32_t length, bool wide) {
  if (entered.depth() == 0) return Step::kStop;
  aoStream* stream = entered.top();
  if (stream == nullptr) return Step::kDone;
  ao::entries::AppendRecord(stream, data, length, std::strcmp(flags, "1") == 0, wide);
  return Step::kDone;
}

}  // namespace

int aoStorage::ReplayRecording(unsigned char* log, uint32_t length) {
  // The caller keeps its buffer; the reader only borrows it and never throws.
  CCompRecorder reader(4096);
  reader.Attach(log, length, 0);
  RecOpEnum op = RecOpLeave;
  char text[kAoNameFieldSize];
  unsigned char* data = nullptr;
  uint32_t value = 0;
  int count = 0;
  EnteredStreams entered;
  while (reader.PopOp(&op, text, &data, &value) != 0) {
    Step step = Step::kDone;
    switch (op) {
      case RecOpEnter: {
        if (entered.depth() > 0 && entered.top() == nullptr) {
          step = Step::kStop;
        } else {
          const int folder = static_cast<int>(value);
          step = Push(entered, entered.depth() == 0 ? OpenOrCreateStream(text, folder)
                                                    : entered.top()->OpenOrCreateStream(text, folder));
        }
        break;
      }
      case RecOpEnterFast: {
        aoStream* stream = OpenStreamFast(text, kAoModeEdit);
        if (stream == nullptr) stream = CreateStreamHelper(text, 0, kAoModeEdit, true, false);
        if (stream != nullptr) {
          if (value != 0) stream->Seek(0, kFromEnd, true);
          if (m_recorder != nullptr) m_recorder->OpEnterFast(text, static_cast<int>(value), stream);
        }
        step = Push(entered, stream);
        break;
      }
      case RecOpLeave:
        if (entered.depth() == 0) {
          step = Step::kStop;
        } else if (aoStream* stream = entered.Pop()) {
          stream->Release();
        }
        break;
      case RecOpRemove:
        if (entered.depth() > 0) {
          RemoveChild(entered.top(), text);
        } else {
          ao::StorageLockGuard lock(*this);
          tag_aoStreamOffset where;
          if (FindStreamOffset(text, where)) {
            aoStream* stream = OpenStreamByOffset(where, text, kAoModeEdit);
            if (stream != nullptr && !stream->Remove()) stream->Release();
          }
        }
        break;
      case RecOpWrite:
        step = Write(entered, text, data, value);
        break;
      case RecOpAppend:
        step = Append(entered, text, data, value, m_b64);
        break;
    }
    if (step == Step::kStop) break;
    ++count;
  }
  reader.Detach(nullptr);
  return count;
}
