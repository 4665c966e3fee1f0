// The machine identifier handed to callers, with the hook that lets tests
// play another machine.
#include <cstring>
#include <mutex>
#include <optional>
#include <string>

#include "platform/base.h"
#include "platform/host_identity.h"
#include "platform/memory.h"

namespace ao::platform {
namespace {

std::mutex g_overrideLock;
std::optional<std::string> g_override;

std::string SystemIdentifier() {
  {
    std::lock_guard<std::mutex> hold(g_overrideLock);
    if (g_override) return *g_override;
  }
  return HostMachineIdentifier();
}

}  // namespace

unsigned char* GetSystemIdentifier(uint32_t* length) {
  if (length == nullptr) return nullptr;
  const std::string id = SystemIdentifier();
  if (id.empty()) return nullptr;
  auto* block = static_cast<unsigned char*>(AllocZeroed(id.size()));
  if (block == nullptr) return nullptr;
  std::memcpy(block, id.data(), id.size());
  *length = static_cast<uint32_t>(id.size());
  return block;
}

void SetSystemIdentifierForTesting(const char* identifier) {
  std::lock_guard<std::mutex> hold(g_overrideLock);
  if (identifier == nullptr) {
    g_override.reset();
  } else {
    g_override = identifier;
  }
}

}  // namespace ao::platform
