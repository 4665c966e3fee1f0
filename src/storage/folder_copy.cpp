// Copying a stream's bytes into another stream, and a folder's tree into
// another folder (merging into what the destination already holds).
#include <algorithm>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "aostore/storage.h"
#include "aostore/stream.h"
#include "storage/folder_scanner.h"
#include "storage/format.h"
#include "storage/internals.h"

namespace {

// Bytes moved per read and write: large enough for few calls, small enough
// that a damaged length cannot ask for a huge buffer.
constexpr int64_t kCopyPiece = 4 * 1024 * 1024;

}  // namespace

bool aoStream::CopyStream(aoStream* destination) {
  if (destination == nullptr || destination == this) return false;
  destination->Erase();
  const int64_t length = m_header.dataLength;
  if (length < 1) return false;
  std::vector<unsigned char> buffer(static_cast<size_t>(std::min(length, kCopyPiece)));
  destination->SeekRight(0, true);
  // Read from where this stream stands: it is not rewound.
  int64_t copied = 0;
  while (copied < length) {
    const int64_t wanted = std::min(length - copied, kCopyPiece);
    const int64_t got = Read(buffer.data(), wanted);
    if (got < 1) break;
    if (destination->Write(buffer.data(), got, false, nullptr) != got) break;
    copied += got;
    if (got < wanted) break;
  }
  return copied == length;
}

bool aoStream::CopyRecordTraits(aoStream* destination) {
  t_aoStreamU& target = destination->m_header;
  const auto flags = static_cast<uint8_t>((target.flags & ~kAoFlagSizePrefix) | (m_header.flags & kAoFlagSizePrefix));
  if (flags == target.flags && target.duration == m_header.duration && target.childInfo == m_header.childInfo)
    return true;
  const t_aoStreamU kept = target;
  target.flags = flags;
  target.duration = m_header.duration;
  target.childInfo = m_header.childInfo;
  if (!destination->WriteOwnRecord()) {
    target = kept;
    return false;
  }
  destination->m_where.duration = static_cast<uint32_t>(target.duration) * 60u;
  destination->m_where.childInfo = target.childInfo;
  return true;
}

bool aoStream::IsSelfOrAncestor(const aoStream* other) const {
  for (const aoStream* stream = this; stream != nullptr; stream = stream->m_parent) {
    if (stream == other) return true;
    // Two objects opened on the same record of the same file are one stream.
    if (stream->m_storage != nullptr && other->m_storage != nullptr &&
        stream->m_where.recordOffset == other->m_where.recordOffset &&
        std::strcmp(stream->m_storage->m_path, other->m_storage->m_path) == 0)
      return true;
  }
  return false;
}

namespace ao {

// A destination folder's children for a copy into it, read once rather than
// once per copied child: where the first record of each name lies (the one a
// look-up finds), whether creation could take a free record, and where a new
// record goes. Opens and creations behave as OpenStream(name, 22) and
// CreateStream(name, attributes, 22, 1) on the folder.
class ChildIndex {
 public:
  explicit ChildIndex(aoStream& folder) : folder_(folder) {}

  // Copies source (a child of the folder being copied) into the namesake of
  // its kind here, making way for it or creating it.
  bool CopyChild(aoStream& source, int depth) {
    const bool folder = source.IsFolder() != 0;
    aoStream* target = nullptr;
    const t_OpenStream* held = folder_.IsStreamOpen(source.GetName());
    // A folder held open exclusively or share-read only is not copied into.
    if (!folder || held == nullptr || (held->mode & (kAoExclusive | kAoShareRead)) == 0) target = Open(source.GetName());
    // A namesake of the other kind gives way.
    if (target != nullptr && (target->IsFolder() != 0) != folder) {
      valid_ = false;
      if (!target->Remove()) {
        target->Release();
        return false;
      }
      target = nullptr;
    }
    if (target == nullptr) target = Create(source.GetName(), folder ? 1u : 0u);
    if (target == nullptr) return false;
    bool ok;
    if (folder) {
      ok = source.CopyFolderAtDepth(target, depth + 1);
    } else {
      // An empty stream is copied by emptying its copy.
      ok = source.m_header.dataLength < 1 ? target->m_header.dataLength == 0 || target->Erase()
                                          : source.CopyStream(target);
    }
    ok = ok && source.CopyRecordTraits(target);
    target->Release();
    return ok;
  }

 private:
  void Load() {
    first_.clear();
    valid_ = true;
    appendsOnly_ = false;
    if (folder_.IsFolder() == 0) return;
    FolderScanner scan(folder_);
    if (!scan.ReadHead()) return;
    appendsOnly_ = true;
    t_aoStreamU record;
    tag_aoStreamOffset where;
    for (uint32_t counted = 0; counted < scan.count(); ++counted) {
      const int64_t at = scan.position();
      if (!scan.NextRecord(record, where)) {
        appendsOnly_ = appendsOnly_ && at == scan.reachable();  // a record cut short fails creation
        break;
      }
      if (record.marker != format::kRecordMarker || record.name[0] == '\0') appendsOnly_ = false;
      if (record.name[0] != '\0') first_.emplace(record.name, at);
    }
    appendAt_ = scan.position();
  }

  aoStream* Open(const char* name) {
    t_aoStreamU record;
    tag_aoStreamOffset where;
    if (folder_.IsFolder() == 0) return nullptr;
    if (folder_.m_preloaded != nullptr) {
      if (!folder_.FindStream(name, record, where)) return nullptr;
    } else {
      if (!valid_) Load();
      const auto found = first_.find(name);
      FolderScanner scan(folder_);
      if (found == first_.end() || !scan.SeekTo(found->second) || !scan.NextRecord(record, where)) return nullptr;
    }
    return folder_.OpenStreamByOffset(record, where, name, kAoModeEdit);
  }

  aoStream* Create(const char* name, uint32_t attributes) {
    if (!valid_) Load();
    // With nothing to reuse, creation appends: no scan for a free record.
    if (folder_.m_preloaded != nullptr || !appendsOnly_ || appendAt_ != folder_.m_header.dataLength ||
        folder_.m_storage == nullptr) {
      valid_ = false;
      return folder_.CreateStream(name, attributes, kAoModeEdit, 1);
    }
    if (first_.count(name) != 0) return nullptr;  // unique: a namesake refuses it
    StorageLockGuard guard(*folder_.m_storage);
    aoStream* child = folder_.CreateChild(name, attributes, kAoModeEdit, 0);
    if (child == nullptr) {
      valid_ = false;
      return nullptr;
    }
    first_.emplace(name, appendAt_);
    appendAt_ = folder_.m_header.dataLength;
    return child;
  }

  aoStream& folder_;
  std::unordered_map<std::string, int64_t> first_;
  bool valid_ = false;
  bool appendsOnly_ = false;  // no free record and no damage within the count
  int64_t appendAt_ = -1;
};

}  // namespace ao

bool aoStream::CopyFolder(aoStream* destination) { return CopyFolderAtDepth(destination, 0); }

bool aoStream::CopyFolderAtDepth(aoStream* destination, int depth) {
  if (destination == nullptr) return false;
  if (IsFolder() == 0) return CopyStream(destination);
  // A folder copied into itself or below itself would never end.
  if (depth > ao::kMaxFolderDepth || destination->IsSelfOrAncestor(this)) return false;
  ao::ChildIndex index(*destination);
  ao::FolderScanner scan(*this);
  bool copied = true;
  scan.ForEachChild([&](const t_aoStreamU& found, const tag_aoStreamOffset& at) {
    t_aoStreamU record = found;
    tag_aoStreamOffset where = at;
    aoStream* source = OpenStreamByOffset(record, where, record.name, kAoModeInspect);
    const bool ok = source != nullptr && index.CopyChild(*source, depth);
    if (source != nullptr) source->Release();
    copied = copied && ok;
    return true;
  });
  return copied;
}
