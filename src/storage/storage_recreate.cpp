// Rebuilding a container compactly: every root stream and its tree is copied
// into a new container beside the file (its path with "_tmp" appended), which
// then replaces the file. Free records, abandoned blocks and block padding
// are left behind; names, kinds, bytes, size prefixes, durations and
// child-stream information are carried over.
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "aostore/storage.h"
#include "aostore/stream.h"
#include "platform/files.h"
#include "storage/file_ref.h"
#include "storage/folder_scanner.h"
#include "storage/format.h"
#include "storage/internals.h"

namespace platform = ao::platform;

namespace {

constexpr char kTemporarySuffix[] = "_tmp";

// How many containers have path open. A file is only rebuilt while its
// rebuilder is alone on it: any other user would keep a stale picture of it.
int32_t Users(const std::string& path) { return ao::OpenersOf(path.c_str()); }

uint32_t CreationAttributes(const t_aoStreamU& record) {
  return ((record.flags & kAoFlagFolder) != 0 ? 1u : 0u) | (static_cast<uint32_t>(record.duration) << 16);
}

// Puts the rebuilt file in place. When the copy fails the file may be
// damaged, so the rebuilt one stays beside it.
bool ReplaceWithTemporary(const char* path, const std::string& temporary) {
  if (!platform::Files().Copy(temporary.c_str(), path)) return false;
  platform::Files().Delete(temporary.c_str());
  return true;
}

}  // namespace

bool aoStream::CloneTreeInto(aoStream* destination, int depth) {
  if (depth > ao::kMaxFolderDepth) return false;
  struct Pair {
    t_aoStreamU source;
    tag_aoStreamOffset sourceWhere;
    t_aoStreamU copy;
    tag_aoStreamOffset copyWhere;
  };
  std::vector<Pair> pairs;
  bool ok = true;
  // Every record first, while the destination's block is the file's tail
  // and grows in place; duplicate names are kept as they are.
  ao::FolderScanner scan(*this);
  scan.ForEachChild([&](const t_aoStreamU& record, const tag_aoStreamOffset& where) {
    Pair pair{record, where, {}, {}};
    ok = destination->AddStreamHeader(record.name, CreationAttributes(record), pair.copy, pair.copyWhere, 0);
    if (ok) pairs.push_back(pair);
    return ok;
  });
  if (!ok) return false;
  if (!pairs.empty()) {
    destination->m_childCount = static_cast<uint32_t>(pairs.size());
    if (!destination->WriteChildCount()) return false;
  }
  for (Pair& pair : pairs) {
    aoStream* from = OpenStreamByOffset(pair.source, pair.sourceWhere, pair.source.name, kAoModeInspect);
    aoStream* to = destination->OpenStreamByOffset(pair.copy, pair.copyWhere, pair.copy.name, kAoModeEdit);
    if (from == nullptr || to == nullptr) {
      ok = false;
    } else if (from->IsFolder() != 0) {
      ok = to->WriteChildCount() && from->CloneTreeInto(to, depth + 1);
    } else if (from->m_header.dataLength > 0) {
      ok = from->CopyStream(to);
    }
    if (ok) ok = from->CopyRecordTraits(to);
    if (to != nullptr) to->Release();
    if (from != nullptr) from->Release();
    if (!ok) return false;
  }
  return true;
}

bool aoStorage::WriteCompactCopy(aoStorage* source, const char* temporary) {
  aoStorage* target = Create(temporary, kAoModeEdit, 0);  // capacity 0: no block is padded
  if (target == nullptr) return false;
  CMapStringToStreamOffset& map = source->m_fileRef->rootMap;
  const int64_t firstTable = source->m_headerLength;
  const int64_t reservedEnd = firstTable + source->TableHeaderSize() +
                              static_cast<int64_t>(source->m_reservedSlots) * source->RecordSize();
  bool ok = true;
  void* position = nullptr;
  const bool sorted = source->m_sortingEnabled != 0;
  for (aoStream* from = source->OpenStreamFirst(&position, kAoModeInspect, 0);;
       from = source->OpenStreamNext(&position, kAoModeInspect)) {
    const bool last = sorted ? reinterpret_cast<intptr_t>(position) < 0 : position == nullptr;
    if (from == nullptr) {
      ok = map.IsEmpty() && last;  // an entry that cannot be opened is not left out silently
      break;
    }
    const t_aoStreamU& record = from->GetHeader();
    const tag_aoStreamOffset& where = from->GetWhere();
    // A stream of a reserved slot stays where the fast operations look.
    const bool reserved = where.tableOffset == firstTable && where.recordOffset < reservedEnd;
    aoStream* to = reserved ? target->CreateStreamFast(record.name, CreationAttributes(record), kAoModeEdit) : nullptr;
    if (to == nullptr) to = target->CreateStream(record.name, CreationAttributes(record), kAoModeEdit);
    ok = to != nullptr;
    if (ok && from->IsFolder() != 0) {
      ok = from->CloneTreeInto(to, 1);
    } else if (ok && record.dataLength > 0) {
      ok = from->CopyStream(to);
    }
    if (ok) ok = from->CopyRecordTraits(to);
    if (to != nullptr) to->Release();
    from->Release();
    if (!ok || last) break;
  }
  target->Release();
  if (!ok) platform::Files().Delete(temporary);
  return ok;
}

int aoStorage::Recreate(const char* path) {
  if (path == nullptr) return 0;
  aoStorage* source = Open(path, kAoModeInspect, 0, 0);
  if (source == nullptr) return 0;
  const std::string temporary = std::string(path) + kTemporarySuffix;
  const bool built = ao::StorageInternals::RefCount(*source) == 1 && Users(temporary) == 0 &&
                     WriteCompactCopy(source, temporary.c_str());
  source->Release();
  return built && ReplaceWithTemporary(path, temporary) ? 1 : 0;
}

aoStorage* aoStorage::Recreate(aoStorage* storage, const char* path) {
  if (storage == nullptr || path == nullptr || storage->m_fileRef == nullptr) return storage;
  const std::string temporary = std::string(path) + kTemporarySuffix;
  const t_FileRef* atPath = nullptr;
  const int32_t users = ao::OpenersOf(path, &atPath);
  const bool alone = atPath == storage->m_fileRef ? users == 1 : users == 0;
  if (!alone || Users(temporary) != 0) return storage;
  // A container opened fast has not read its root directory yet.
  if (!storage->m_fileRef->tables.known() && !storage->InitStreamMap()) return storage;
  if (!WriteCompactCopy(storage, temporary.c_str())) return storage;
  storage->Release();
  ReplaceWithTemporary(path, temporary);
  return Open(path, kAoModeEdit, 0, 0);
}
