// Changing a stream's own record: removal (with everything below it),
// erasing, renaming and the child-stream information bits. A removed record
// stays where it was, nameless, and keeps its blocks for the next stream
// created in it.
#include <cstring>
#include <string>

#include "aostore/recorder.h"
#include "aostore/storage.h"
#include "aostore/stream.h"
#include "storage/folder_scanner.h"
#include "storage/format.h"

namespace format = ao::format;

bool aoStream::Remove() { return RemoveAtDepth(0); }

bool aoStream::RemoveAtDepth(int depth) {
  if ((m_mode & kAoReadWrite) == 0 || m_storage == nullptr || depth > ao::kMaxFolderDepth) return false;
  if (IsFolder() != 0) {
    bool childrenRemoved = true;
    ao::FolderScanner scan(*this);
    scan.ForEachChild([&](const t_aoStreamU& found, const tag_aoStreamOffset& at) {
      t_aoStreamU record = found;
      tag_aoStreamOffset where = at;
      aoStream* child = OpenStreamByOffset(record, where, record.name, kAoModeEdit);
      // A child held open exclusively elsewhere keeps its folder in place.
      if (child == nullptr) {
        childrenRemoved = false;
        return false;
      }
      if (!child->RemoveAtDepth(depth + 1)) {
        child->Release();
        childrenRemoved = false;
        return false;
      }
      return true;
    });
    if (!childrenRemoved) return false;
  }

  const std::string name = m_header.name;
  aoStream* parent = m_parent;
  aoStorage* storage = m_storage;
  const t_aoStreamU kept = m_header;
  std::memset(m_header.name, 0, sizeof m_header.name);
  m_header.childInfo = 0;
  m_header.dataLength = 0;
  m_header.mark = 1;
  m_header.duration = 0;
  m_header.flags = 0;
  if (!WriteOwnRecord()) {
    m_header = kept;  // nothing happened: the stream stays open as it was
    return false;
  }
  if (storage->GetRecorder() != nullptr) storage->GetRecorder()->OpRemove(name.c_str(), parent);
  if (parent != nullptr) {
    parent->CloseStream(name.c_str());
  } else {
    storage->CloseStream(name.c_str());
    storage->RemoveStream(name.c_str());
  }
  Release();  // the name is empty now: nothing more is closed
  if (storage->GetRecorder() != nullptr) storage->GetRecorder()->OpLeave(parent);
  return true;
}

bool aoStream::Erase() {
  if ((m_mode & kAoReadWrite) == 0) return false;
  const int64_t length = m_header.dataLength;
  m_header.dataLength = 0;
  if (!WriteOwnRecord()) {
    m_header.dataLength = length;
    return false;
  }
  // The blocks stay allocated for the data written next.
  SeekRight(0, true);
  return true;
}

bool aoStream::Rename(const char* name) {
  if ((m_mode & kAoReadWrite) == 0 || name == nullptr || name[0] == '\0') return false;
  char old[kAoNameFieldSize];
  std::memcpy(old, m_header.name, sizeof old);
  // A longer name is cut to 51 bytes, deliberately without failing.
  format::SetRecordName(m_header, name);
  if (!WriteOwnRecord()) {
    std::memcpy(m_header.name, old, sizeof old);
    return false;
  }
  // The open-list entry follows the record; the container's name map does not.
  t_OpenStream* open = nullptr;
  if (m_parent != nullptr) {
    open = m_parent->IsStreamOpen(old);
  } else if (m_storage != nullptr) {
    open = m_storage->IsStreamOpen(old);
  }
  if (open != nullptr) open->name = m_header.name;
  return true;
}

void aoStream::ClearFolder() {
  if (IsFolder() == 0) return;
  ao::FolderScanner scan(*this);
  scan.ForEachChild([this](const t_aoStreamU& found, const tag_aoStreamOffset& at) {
    t_aoStreamU record = found;
    tag_aoStreamOffset where = at;
    // A child that cannot be opened or removed stays; the others still go.
    aoStream* child = OpenStreamByOffset(record, where, record.name, kAoModeEdit);
    if (child != nullptr && !child->RemoveAtDepth(1)) child->Release();
    return true;
  });
}

bool aoStream::UpdateStreamHeaderChildStreamInfo(uint64_t bits) {
  if ((m_mode & kAoReadWrite) == 0) return false;
  const uint64_t info = m_header.childInfo;
  const uint8_t mark = m_header.mark;
  m_header.childInfo |= bits;
  m_header.mark = 1;
  if (!WriteOwnRecord()) {
    m_header.childInfo = info;
    m_header.mark = mark;
    return false;
  }
  m_where.childInfo = m_header.childInfo;
  m_where.mark = 1;
  return true;
}
