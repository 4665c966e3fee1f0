// A folder object's list of its open children: the first opener's mode
// decides whether later opens of the same name may share it.
#include "aostore/stream.h"

t_OpenStream* aoStream::IsStreamOpen(const char* name) {
  if (name == nullptr || name[0] == '\0') return nullptr;
  return m_openChildren.Find(name);
}

t_OpenStream* aoStream::AddNewOpenStream(const char* name, uint32_t mode) {
  // Unlike the container's list, a folder's list never holds an empty name.
  if (name == nullptr || name[0] == '\0') return nullptr;
  return m_openChildren.Add(name, mode);
}

int aoStream::CloseStream(const char* name) { return name == nullptr ? -1 : m_openChildren.Close(name); }
