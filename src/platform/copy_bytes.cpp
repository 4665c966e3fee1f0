#include "platform/copy_bytes.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace ao::platform {

void CopyBytes(void* to, const void* from, size_t count) {
  constexpr size_t kPage = 4096;
  constexpr size_t kNear = 64;
  constexpr size_t kPiece = 2048;
  const auto gap = (reinterpret_cast<uintptr_t>(to) - reinterpret_cast<uintptr_t>(from)) % kPage;
  if (count <= kPiece || gap == 0 || gap >= kNear) {
    std::memcpy(to, from, count);
    return;
  }
  auto* out = static_cast<unsigned char*>(to);
  const auto* in = static_cast<const unsigned char*>(from);
  for (size_t done = 0; done < count; done += kPiece) std::memcpy(out + done, in + done, std::min(kPiece, count - done));
}

}  // namespace ao::platform
