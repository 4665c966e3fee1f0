// CCompRecorder: recording edits, with the stack of entered streams that
// places every data op under the right stream.
#include <algorithm>
#include <cstring>

#include "aostore/recorder.h"
#include "aostore/stream.h"

namespace {
// Most ancestors entered on behalf of one op; a deeper stream cannot be placed.
constexpr int kMaxInsertedAncestors = 10;
constexpr unsigned int kDataGrowth = 4096;
constexpr uint32_t kMaxNameField = 0xFFFF;

aoStream* AsStream(void* stream) { return static_cast<aoStream*>(stream); }
}  // namespace

void CCompRecorder::Push(const char* name, int isFolder, void* stream) {
  RecStmStruct& entry = m_stack[m_depth++];
  std::memset(entry.name, 0, sizeof entry.name);
  if (name != nullptr) std::strncpy(entry.name, name, kAoMaxNameLength);
  entry.isFolder = isFolder;
  entry.stream = stream;
}

void CCompRecorder::PushOp(RecOpEnum op, const char* text, unsigned char* data, uint32_t len) {
  PutU8(op);
  switch (op) {
    case RecOpEnter:
    case RecOpEnterFast:
    case RecOpRemove: {
      const auto n = static_cast<uint16_t>(text != nullptr ? std::min<size_t>(std::strlen(text), kMaxNameField) : 0);
      PutU16(n);
      if (n != 0) PutField(reinterpret_cast<const unsigned char*>(text), n);
      if (op != RecOpRemove) PutU8(static_cast<uint8_t>(len));
      break;
    }
    case RecOpLeave:
      break;
    case RecOpWrite:
    case RecOpAppend: {
      if (op == RecOpWrite) {
        const bool pair = text != nullptr && std::strlen(text) == 2;
        PutU8(pair && text[0] == '1' ? 1 : 0);
        PutU8(pair && text[1] == '1' ? 1 : 0);
      } else {
        PutU8(text != nullptr && std::strcmp(text, "1") == 0 ? 1 : 0);
      }
      // A length without its bytes would misframe the rest of the log.
      if (data == nullptr) len = 0;
      PutU32(len);
      if (len != 0 && m_stopped == 0) {
        if (EnsureRoom(len, std::max<unsigned int>(len, kDataGrowth))) {
          Add(data, len, kDataGrowth);
        } else {
          m_stopped = 1;
        }
      }
      break;
    }
    default:
      return;  // an unknown op is its byte alone and is not counted
  }
  ++m_opCount;
}

void CCompRecorder::OpEnter(const char* name, int isFolder, void* stream) {
  if (m_depth == kMaxDepth) {
    m_stopped = 1;
    return;
  }
  // An enter is only logged right under its parent; anything else would
  // place the stream elsewhere on replay.
  if (m_depth > 0) {
    void* parent = stream != nullptr ? AsStream(stream)->GetParentStm() : nullptr;
    if (m_stack[m_depth - 1].stream != parent) return;
  }
  Push(name, isFolder, stream);
  if (m_stopped == 0) PushOp(RecOpEnter, name, nullptr, static_cast<uint32_t>(isFolder));
}

void CCompRecorder::OpEnterFast(const char* name, int atEnd, void* stream) {
  // The fast path opens root streams only: inside an entered stream it
  // cannot be expressed, so the log is given up.
  if (m_depth > 0) {
    m_stopped = 1;
    return;
  }
  Push(name, 0, stream);
  if (m_stopped == 0) PushOp(RecOpEnterFast, name, nullptr, static_cast<uint32_t>(atEnd));
}

void CCompRecorder::OpLeave(void* stream) {
  if (!TopIs(stream)) return;
  --m_depth;
  if (m_stopped == 0) PushOp(RecOpLeave, nullptr, nullptr, 0);
}

int CCompRecorder::UpdateStmStack(void* stream) {
  if (TopIs(stream)) return 1;
  return InsertParents(m_depth > 0 ? &m_stack[m_depth - 1] : nullptr, stream);
}

int CCompRecorder::InsertParents(const RecStmStruct* top, void* stream) {
  if (stream == nullptr) return 0;
  aoStream* target = AsStream(stream);
  if (target->GetParentStm() != nullptr) {
    aoStream* chain[kMaxInsertedAncestors];
    aoStream* ancestor = top != nullptr ? AsStream(top->stream) : nullptr;
    const int count = target->GetChildrenOf(ancestor, chain, kMaxInsertedAncestors);
    if (count < 0 || count > kMaxInsertedAncestors) {
      m_stopped = 1;
      return 0;
    }
    for (int i = count - 1; i >= 0; --i) {
      OpEnter(chain[i]->GetName(), chain[i]->IsFolder(), chain[i]);
      if (m_stopped != 0) return 0;
    }
  }
  OpEnter(target->GetName(), target->IsFolder(), target);
  if (m_stopped != 0) return 0;
  // The entered stream is not below the top (an unrelated stream is still
  // entered): an op logged now would land on the wrong stream on replay.
  if (!TopIs(stream)) {
    m_stopped = 1;
    return 0;
  }
  return 1;
}

void CCompRecorder::OpWrite(unsigned char* data, uint32_t len, int truncate, void* stream, int sizePrefix) {
  if (stream == nullptr || UpdateStmStack(stream) == 0 || m_stopped != 0) return;
  const char flags[3] = {truncate != 0 ? '1' : '0', sizePrefix != 0 ? '1' : '0', '\0'};
  PushOp(RecOpWrite, flags, data, len);
}

void CCompRecorder::OpAppend(unsigned char* data, uint32_t len, void* stream, int prefix) {
  if (stream == nullptr || UpdateStmStack(stream) == 0 || m_stopped != 0) return;
  PushOp(RecOpAppend, prefix != 0 ? "1" : "0", data, len);
}

void CCompRecorder::OpRemove(const char* name, void* parent) {
  if (m_depth > 0) {
    // A root-level remove cannot be expressed while a stream is entered.
    if (parent == nullptr) return;
    if (!TopIs(parent) && InsertParents(&m_stack[m_depth - 1], parent) == 0) return;
  } else if (parent != nullptr && InsertParents(nullptr, parent) == 0) {
    return;
  }
  if (m_stopped == 0) PushOp(RecOpRemove, name, nullptr, 0);
}
