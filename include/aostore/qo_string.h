// Qo::QOSTR: the bounded string in which the encryption and settings functions
// take folders and paths.
#ifndef AOSTORE_QO_STRING_H
#define AOSTORE_QO_STRING_H

#include <cstdint>

namespace Qo {

// A caller-owned character buffer of capacity bytes, terminator included.
// The library never writes more than capacity bytes into buffer.
struct QOSTR {
  uint16_t capacity = 0;
  char* buffer = nullptr;
};

}  // namespace Qo

#endif  // AOSTORE_QO_STRING_H
