// OpenVastrelAuthStream: a stream of an encrypted element's file by a path
// of one or two names.
#include <string>

#include "aostore/encrypted_element.h"
#include "aostore/stream.h"
#include "aostore/types.h"
#include "genfile/qo_string.h"
#include "platform/base.h"

using ao::genfile::kQoPathCapacity;
using ao::genfile::kQoPieceCapacity;
using ao::genfile::QoBuffer;

namespace {

// A piece of a stream path must fit the base library's 128-character strings.
bool FitsPiece(const std::string& piece) { return piece.size() < kQoPieceCapacity; }

}  // namespace

aoStream* OpenVastrelAuthStream(CVastrelFile& file, const char* folder, const char* fileName, const char* streamPath,
                                const StreamKeyBuf& key, const char* subFolder, const char* keyStreamName,
                                const char* keyChildName, int& isChild) {
  isChild = 0;
  if (folder == nullptr || subFolder == nullptr || streamPath == nullptr) return nullptr;
  QoBuffer<kQoPathCapacity> elementFolder;
  if (!ao::genfile::QoJoinPath(elementFolder.get(), folder, subFolder)) return nullptr;
  // Opened for writing, so that a missing file is created with its key record.
  if (OpenVastrelFile(key, &file, elementFolder.get(), fileName, keyStreamName, keyChildName, 2) == 0) {
    return nullptr;
  }

  // The path is taken literally (the base library would have run it through
  // its formatter, where a '%' is not allowed anyway).
  QoBuffer<kQoPieceCapacity> path;
  std::string first;
  std::string second;
  if (!ao::genfile::QoAssign(path.get(), streamPath)) {
    file.Close();
    return nullptr;
  }
  if (!ao::platform::QoCStrSplitOnChar(path.c_str(), '/', &first, &second)) {
    if (file.OpenGenericStream(path.c_str(), 1) == 0) {
      file.Close();
      return nullptr;
    }
    return file.GetGenericStream();
  }

  if (!FitsPiece(first) || !FitsPiece(second) || file.OpenGenericStream(first.c_str(), 1) == 0) {
    file.Close();
    return nullptr;
  }
  aoStream* child = file.GetGenericStream()->OpenStream(second.c_str(), kAoModeEdit);
  if (child == nullptr) {
    file.Close();
    return nullptr;
  }
  isChild = 1;
  return child;
}
