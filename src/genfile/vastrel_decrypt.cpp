// CVastrelFile::ReadGenericChildStream_DecryptRest: deciphering the buffered
// rest of the current child.
#include <cstdint>

#include "aostore/vastrel_file.h"
#include "platform/crypto.h"

int CVastrelFile::ReadGenericChildStream_DecryptRest(uint64_t key) {
  if (key == 0) return 0;
  // The system service takes a 32-bit length; a longer buffer cannot be
  // deciphered whole.
  if (m_nChildBufferLength < 0 || m_nChildBufferLength > INT64_C(0xFFFFFFFF)) return 0;
  if (m_pChildBuffer == nullptr && m_nChildBufferLength != 0) return 0;
  // Every record is enciphered from the start of the key stream; a fresh
  // duplicate starts there whatever was deciphered with key before.
  uint64_t duplicate = ao::platform::DuplicateKey(key);
  if (duplicate == 0) return 0;
  bool whole = ao::platform::Decrypt(duplicate, m_pChildBuffer, static_cast<size_t>(m_nChildBufferLength));
  ao::platform::DestroyKey(duplicate);
  return whole ? 1 : 0;
}
