// CVastrelFile: the child streams of the current generic stream, and the
// in-memory copy of the rest of the current child.
#include <algorithm>
#include <cstring>

#include "aostore/storage.h"
#include "aostore/stream.h"
#include "aostore/types.h"
#include "aostore/vastrel_file.h"
#include "genfile/vastrel_io.h"

using ao::genfile::kFromCurrent;
using ao::genfile::kFromEnd;
using ao::genfile::kFromStart;
using ao::genfile::WroteAll;

namespace {

struct ChildWrite {
  const unsigned char* data = nullptr;
  int32_t length = 0;
  bool append = false;
  bool setEnd = false;
  // Space given to a child that had to be created; 0 for none.
  int64_t preallocate = 0;
  // A second piece written after a complete first one (a record body after
  // its header); null for none.
  const unsigned char* data2 = nullptr;
  int32_t length2 = 0;
};

ChildWrite PlainWrite(const unsigned char* data, int32_t length, int append, int flag) {
  ChildWrite write;
  write.data = data;
  write.length = length;
  write.append = append != 0;
  write.setEnd = flag != 0;
  return write;
}

// Opens or creates name in parent and writes to it. Without append an
// existing child is written over from its start and keeps any longer tail.
// Whether the last write was complete.
bool WriteNamedChild(aoStream* parent, const char* name, const ChildWrite& write) {
  if (parent == nullptr || name == nullptr || parent->IsFolder() == 0) return false;
  aoStream* child = parent->OpenStream(name, kAoModeEdit);
  if (child != nullptr) {
    if (write.append) child->Seek(0, kFromEnd, true);
  } else {
    child = parent->CreateStream(name, 0, kAoModeEdit, 1);
    if (child == nullptr) return false;
    if (write.preallocate > 0) child->PreallocateSpace(write.preallocate);
  }
  bool complete = WroteAll(child, write.data, write.length, write.setEnd);
  if (complete && write.data2 != nullptr && write.length2 != 0) {
    complete = WroteAll(child, write.data2, write.length2, false);
  }
  child->Release();
  return complete;
}

}  // namespace

int CVastrelFile::DoesGenericChildStreamExist(const char* name) {
  if (!HasGenericFolder() || name == nullptr) return 0;
  // A child left current by an earlier call is ended rather than lost.
  CloseChildStream(0);
  m_pChildStream = m_pGenericStream->OpenStream(name, ModeFlags());
  return m_pChildStream != nullptr;
}

int CVastrelFile::OpenNextGenericChildStream(int64_t* cursor) {
  if (m_pGenericStream == nullptr || cursor == nullptr) return 0;
  if (m_pChildStream != nullptr) {
    CloseChildStream(0);
    m_pChildStream = m_pGenericStream->OpenStreamNext(cursor, kAoModeEdit);
  } else {
    m_pChildStream = m_pGenericStream->OpenStreamFirst(cursor, kAoModeEdit);
  }
  return m_pChildStream != nullptr;
}

int CVastrelFile::OpenNextGenericChildStreamUsingParentStream(aoStream* parent, int64_t* cursor, int removeCurrent) {
  if (m_pGenericStream == nullptr || parent == nullptr || cursor == nullptr || parent->IsFolder() == 0) return 0;
  if (m_pChildStream != nullptr) {
    // Removing the child frees its record; the cursor already lies past it.
    CloseChildStream(removeCurrent);
    m_pChildStream = parent->OpenStreamNext(cursor, kAoModeEdit);
  } else {
    m_pChildStream = parent->OpenStreamFirst(cursor, kAoModeEdit);
  }
  return m_pChildStream != nullptr;
}

aoStream* CVastrelFile::OpenOrCreateGenericChildStream(aoStream* parent, const char* name, int seekToEnd,
                                                       uint32_t type) {
  if (m_pGenericStream == nullptr || parent == nullptr || name == nullptr) return nullptr;
  aoStream* child = parent->OpenStream(name, kAoModeEdit);
  if (child == nullptr) child = parent->CreateStream(name, type, kAoModeEdit, 1);
  if (child == nullptr) return nullptr;
  if (seekToEnd != 0) child->Seek(0, kFromEnd, true);
  return child;
}

int64_t CVastrelFile::ReadGenericChildStream(unsigned char* data, int64_t length) {
  if (m_pGenericStream == nullptr) return 0;
  if (m_pChildBuffer == nullptr) return m_pChildStream == nullptr ? 0 : m_pChildStream->Read(data, length);
  int64_t count = std::min(length, m_nChildBufferLength - m_nChildBufferPos);
  if (count <= 0 || data == nullptr) return 0;
  std::memcpy(data, m_pChildBuffer + m_nChildBufferPos, static_cast<size_t>(count));
  m_nChildBufferPos += count;
  return count;
}

int64_t CVastrelFile::ReadGenericChildStream_BufferRest() {
  if (m_pGenericStream == nullptr || m_pChildStream == nullptr) return 0;
  FreeChildBuffer();
  return m_pChildStream->ReadAll(&m_pChildBuffer, &m_nChildBufferLength);
}

uint32_t CVastrelFile::WriteGenericChildOpenedStream(unsigned char* data, int32_t length, int flag) {
  if (m_pGenericStream == nullptr) return 0;
  return WroteAll(m_pChildStream, data, length, flag != 0) ? static_cast<uint32_t>(length) : 0;
}

int CVastrelFile::WriteGenericChildStream(const char* name, unsigned char* data, int32_t length, int append,
                                          int flag) {
  if (m_pGenericStream == nullptr) return 0;
  ChildWrite write = PlainWrite(data, length, append, flag);
  return WriteNamedChild(m_pGenericStream, name, write);
}

int CVastrelFile::WriteGenericChildStream(aoStream* parent, const char* name, unsigned char* data, int32_t length,
                                          int append, int flag, unsigned char* data2, int32_t length2) {
  if (m_pGenericStream == nullptr) return 0;
  ChildWrite write = PlainWrite(data, length, append, flag);
  write.data2 = data2;
  write.length2 = length2;
  return WriteNamedChild(parent, name, write);
}

int CVastrelFile::WriteGenericChildStream_PreallocateSpace(const char* name, unsigned char* data, int32_t length,
                                                           int preallocate, int64_t size, int append, int flag) {
  if (m_pGenericStream == nullptr) return 0;
  ChildWrite write = PlainWrite(data, length, append, flag);
  write.preallocate = preallocate != 0 ? size : 0;
  return WriteNamedChild(m_pGenericStream, name, write);
}

int CVastrelFile::RemoveGenericChildStream(const char* name, const char* childName) {
  CloseStream();
  if (m_pStorage == nullptr || name == nullptr) return 0;
  m_pGenericStream = m_pStorage->OpenStream(name, kAoModeEdit);
  if (m_pGenericStream == nullptr || m_pGenericStream->IsFolder() == 0) return 0;
  aoStream* child = childName == nullptr ? nullptr : m_pGenericStream->OpenStream(childName, kAoModeEdit);
  if (child != nullptr && !child->Remove()) child->Release();
  CloseStream();
  return 1;
}

int CVastrelFile::RenameGenericChildStream(const char* oldName, const char* newName) {
  if (!HasGenericFolder() || oldName == nullptr || newName == nullptr) return 0;
  aoStream* child = m_pGenericStream->OpenStream(oldName, kAoModeEdit);
  if (child == nullptr) return 0;
  // Looked up without opening, so that a child that is open elsewhere (and
  // could not be opened here) still counts as taking the name.
  t_aoStreamU record;
  tag_aoStreamOffset where;
  if (m_pGenericStream->FindStream(newName, record, where)) {
    child->Release();
    return 0;
  }
  bool renamed = child->Rename(newName);
  child->Release();
  return renamed;
}

int CVastrelFile::CloseChildStream(int remove) {
  if (m_pChildStream == nullptr) return 0;
  FreeChildBuffer();
  // A successful Remove releases the object itself; a failed one leaves it
  // open, and it is released so that nothing stays behind.
  if (remove == 0 || !m_pChildStream->Remove()) m_pChildStream->Release();
  m_pChildStream = nullptr;
  return 1;
}

int64_t CVastrelFile::GetChildStreamSize() { return m_pChildStream == nullptr ? 0 : m_pChildStream->GetLength(); }

char* CVastrelFile::GetNextChildStreamName(aoStream*& iterator) {
  if (!HasGenericFolder()) return nullptr;
  // The interface carries no cursor, so every call starts from 0.
  int64_t cursor = 0;
  if (iterator != nullptr) {
    iterator->Release();
    iterator = m_pGenericStream->OpenStreamNext(&cursor, kAoModeInspect);
  } else {
    iterator = m_pGenericStream->OpenStreamFirst(&cursor, kAoModeInspect);
  }
  if (iterator != nullptr) CopyName(iterator->GetName());
  return m_szName;
}

int CVastrelFile::GoToBeginningOfGenericChildStream() {
  if (m_pGenericStream == nullptr || m_pChildStream == nullptr) return 0;
  return m_pChildStream->Seek(0, kFromStart, true) != -1;
}

int CVastrelFile::GoToEndOfGenericChildStream() {
  if (m_pGenericStream == nullptr || m_pChildStream == nullptr) return 0;
  return m_pChildStream->Seek(0, kFromEnd, true) != -1;
}

int CVastrelFile::SeekBackChildStream(int64_t count) {
  if (m_pGenericStream == nullptr || m_pChildStream == nullptr || count < 0) return 0;
  int64_t remaining = count;
  if (m_pChildBuffer != nullptr) {
    if (m_nChildBufferPos >= count) {
      m_nChildBufferPos -= count;
      return 1;
    }
    remaining = count - m_nChildBufferPos;
    m_nChildBufferPos = 0;
  }
  if (remaining == 0) return 1;
  return m_pChildStream->Seek(remaining, kFromCurrent, false) != -1;
}
