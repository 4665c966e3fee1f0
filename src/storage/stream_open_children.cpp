// A folder object's list of its open children: the first opener's mode
// decides whether later opens of the same name may share it.
#include "aostore/stream.h"

t_OpenStream* aoStream::IsStreamOpen(const char* name) {
  if (name == nullptr || name[0] == '\0') return nullptr;
  for (t_OpenStream* open : m_openChildren)
    if (open->name == name) return open;
  return nullptr;
}

t_OpenStream* aoStream::AddNewOpenStream(const char* name, uint32_t mode) {
  // Unlike the container's list, a folder's list never holds an empty name.
  if (name == nullptr || name[0] == '\0') return nullptr;
  auto* open = new t_OpenStream{name, 1, mode};
  m_openChildren.push_back(open);
  return open;
}

int aoStream::CloseStream(const char* name) {
  if (name == nullptr) return -1;
  for (auto it = m_openChildren.begin(); it != m_openChildren.end(); ++it) {
    t_OpenStream* open = *it;
    if (open->name != name) continue;
    const int before = static_cast<int>(open->count);
    if (open->count <= 1) {
      m_openChildren.erase(it);
      delete open;
    } else {
      --open->count;
    }
    return before;
  }
  return -1;
}
