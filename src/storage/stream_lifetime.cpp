// aoStream's identity and the end of a stream object.
#include "aostore/recorder.h"
#include "aostore/storage.h"
#include "aostore/stream.h"

aoStream::~aoStream() {
  delete m_preloaded;
}

int aoStream::Release() {
  int closed = 0;
  if (m_header.name[0] != '\0') {
    if (m_parent != nullptr) {
      closed = m_parent->CloseStream(m_header.name);
    } else if (m_storage != nullptr) {
      closed = m_storage->CloseStream(m_header.name);
    }
  }
  if (m_storage != nullptr && m_storage->GetRecorder() != nullptr) m_storage->GetRecorder()->OpLeave(this);
  delete this;
  return closed;
}

aoStream* aoStream::GetParentStm() { return m_parent; }

int aoStream::IsFolder() { return m_header.flags & kAoFlagFolder; }

const char* aoStream::GetName() { return m_header.name; }

uint16_t aoStream::GetDuration() { return m_header.duration; }
