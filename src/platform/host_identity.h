// The identifier the operating system keeps for this installation, as each
// backend reads it; empty when there is none.
#ifndef AOSTORE_PLATFORM_HOST_IDENTITY_H
#define AOSTORE_PLATFORM_HOST_IDENTITY_H

#include <string>

namespace ao::platform {

std::string HostMachineIdentifier();

}  // namespace ao::platform

#endif  // AOSTORE_PLATFORM_HOST_IDENTITY_H
