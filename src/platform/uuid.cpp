// Version-4 UUIDs from the operating system's random source.
#include "platform/base.h"
#include "platform/crypto.h"

namespace ao::platform {

bool MakeQoUUID(QoUUID* uuid) {
  if (uuid == nullptr) return false;
  QoUUID bytes{};
  if (!RandomBytes(bytes.data(), bytes.size())) return false;
  bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  *uuid = bytes;
  return true;
}

}  // namespace ao::platform
