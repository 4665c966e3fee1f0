// Encrypted elements: the provider, the key derived from the key material,
// and the key record kept in the element's container file.
#include "aostore/encrypted_element.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "genfile/key_record.h"
#include "genfile/qo_string.h"
#include "genfile/vastrel_io.h"
#include "platform/base.h"
#include "platform/crypto.h"
#include "platform/files.h"

using ao::genfile::kQoPathCapacity;
using ao::genfile::QoBuffer;

namespace {

// Hashes the key material and derives params' key and block length from it;
// false when no key was made.
bool DeriveElementKey(uint64_t provider, AppDatabaseParams* params) {
  uint64_t hash = CreateHashObj(provider, params->keyMaterial.bytes, kStreamKeyLength);
  if (hash == 0) return false;
  params->key = GetDeriveKey(provider, hash);
  ao::platform::DestroyHash(hash);
  if (params->key == 0) return false;
  uint32_t blockLength = 0;
  ao::platform::GetKeyBlockLength(params->key, &blockLength);
  params->blockLength = blockLength;
  return true;
}

}  // namespace

uint64_t GetCryptContainer(const char* containerName) { return ao::platform::AcquireCryptoProvider(containerName); }

uint64_t CreateHashObj(uint64_t provider, unsigned char* data, uint32_t length) {
  if (data == nullptr && length != 0) return 0;
  uint64_t hash = ao::platform::CreateMd5Hash(provider);
  if (hash == 0) return 0;
  if (!ao::platform::HashData(hash, data, length)) {
    ao::platform::DestroyHash(hash);
    return 0;
  }
  return hash;
}

uint64_t GetDeriveKey(uint64_t provider, uint64_t hash) { return ao::platform::DeriveRc4Key(provider, hash); }

void InitEncryptionElement(uint64_t provider, AppDatabaseParams* params, Qo::QOSTR* folder, const char* streamName,
                           const char* childName) {
  if (params == nullptr) return;
  params->key = 0;
  params->blockLength = 0;
  std::optional<std::string_view> folderText = ao::genfile::QoText(folder);
  QoBuffer<kQoPathCapacity> path;
  bool havePath = folderText.has_value() && params->keyFileName != nullptr &&
                  ao::genfile::QoJoinPath(path.get(), *folderText, params->keyFileName);
  if (!havePath || !ao::platform::Files().Exists(path.c_str())) {
    // No key file yet: fresh material, stored when OpenVastrelFile creates
    // the file. Without good random bytes no key is made at all, rather
    // than one anybody could guess.
    if (!ao::platform::RandomBytes(params->keyMaterial.bytes, kStreamKeyLength)) return;
  } else {
    CVastrelFile file;
    if (OpenVastrelFile(params->keyMaterial, &file, folder, params->keyFileName, streamName, childName, 1) != 0 &&
        file.OpenGenericStreams(streamName, childName) != 0) {
      ao::genfile::ReadKeyRecord(file, &params->keyMaterial);
    }
    file.Close();
  }
  // Derived from whatever material params now holds: a caller learns of a
  // failure only from a key of 0.
  DeriveElementKey(provider, params);
}

int InitEncryptionElementFromOpenFile(CVastrelFile& file, uint64_t provider, AppDatabaseParams* params,
                                      const char* streamName, const char* childName) {
  if (params == nullptr) return 0;
  if (file.OpenGenericStreams(streamName, childName) == 0) return 0;
  if (!ao::genfile::ReadKeyRecord(file, &params->keyMaterial)) return 0;
  return DeriveElementKey(provider, params) ? 1 : 0;
}

int OpenVastrelFile(const StreamKeyBuf& key, CVastrelFile* file, Qo::QOSTR* folder, const char* fileName,
                    const char* streamName, const char* childName, int mode) {
  std::optional<std::string_view> folderText = ao::genfile::QoText(folder);
  if (file == nullptr || !folderText.has_value() || fileName == nullptr) return 0;
  if (!ao::platform::VerifyOrCreateDirectory(folder->buffer)) return 0;
  QoBuffer<kQoPathCapacity> path;
  if (!ao::genfile::QoJoinPath(path.get(), *folderText, fileName)) return 0;
  bool existed = ao::platform::Files().Exists(path.c_str());

  int result = file->Open(path.c_str(), mode);
  if (result == 0 || existed || mode != 2) return result;

  // A container created just now receives its key record, once: later opens
  // only read it.
  if (file->OpenOrCreateGenericStream(streamName, 0, ao::genfile::kFolderType) == 0) return result;
  std::array<unsigned char, ao::genfile::kKeyRecordSize> record = ao::genfile::EncodeKeyRecord(key);
  file->WriteGenericChildStream(childName, record.data(), static_cast<int32_t>(record.size()), 0, 0);
  file->CloseStream();
  return result;
}
