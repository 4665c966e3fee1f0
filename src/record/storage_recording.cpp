// aoStorage: switching the edit log of a container on and off.
#include <new>

#include "aostore/recorder.h"
#include "aostore/storage.h"

int aoStorage::StartRecording() {
  if (m_recorder != nullptr) return 1;
  m_recorder = new (std::nothrow) CCompRecorder(4096);
  return m_recorder != nullptr ? 1 : 0;
}

CCompRecorder* aoStorage::StopRecording() {
  CCompRecorder* recorder = m_recorder;
  if (recorder == nullptr) return nullptr;
  m_recorder = nullptr;
  // A partial log would replay into a container that matches neither the
  // start nor the end of the session: hand out an empty one instead.
  if (recorder->HasBeenStopped() != 0 || recorder->GetStmDepth() != 0) recorder->Empty();
  return recorder;
}
