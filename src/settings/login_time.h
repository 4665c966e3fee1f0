// Login validity of the global settings store, in the 32-bit seconds that the
// stored records carry.
#ifndef AOSTORE_SETTINGS_LOGIN_TIME_H
#define AOSTORE_SETTINGS_LOGIN_TIME_H

#include <cstdint>
#include <ctime>

namespace ao::settings {

// Seconds since 1970, cut to 32 bits as the records store them.
inline uint32_t CurrentTime32() { return static_cast<uint32_t>(std::time(nullptr)); }

// A login stays valid for hours after lastLogin. The sum is taken in 32-bit
// unsigned arithmetic, as stored times are.
inline bool LoginStillValid(uint32_t now, uint16_t hours, uint32_t lastLogin) {
  return now < static_cast<uint32_t>(hours * 3600u + lastLogin);
}

}  // namespace ao::settings

#endif  // AOSTORE_SETTINGS_LOGIN_TIME_H
