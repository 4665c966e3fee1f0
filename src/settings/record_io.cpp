#include "settings/record_io.h"

#include <algorithm>
#include <string>
#include <vector>

#include "aostore/stream.h"
#include "platform/base.h"
#include "platform/crypto.h"

namespace ao::settings {
namespace {

// Records of either kind are a few kilobytes. A child far larger than that
// is not one of ours, and reading it whole into memory would let a damaged
// file decide how much memory we take.
constexpr int64_t kMaxRecordChild = 1 << 20;

bool ReadExactly(CVastrelFile& file, unsigned char* buffer, uint64_t count) {
  return file.ReadGenericChildStream(buffer, static_cast<int64_t>(count)) == static_cast<int64_t>(count);
}

// RC4 from the start of the key stream, on a copy, so that a failure leaves
// the clear bytes for the fallback.
bool Encipher(uint64_t key, std::vector<unsigned char>& bytes) {
  if (key == 0) return false;
  const platform::CryptoHandle duplicate = platform::DuplicateKey(key);
  if (duplicate == 0) return false;
  std::vector<unsigned char> enciphered = bytes;
  const bool done = platform::Encrypt(duplicate, enciphered.data(), enciphered.size());
  platform::DestroyKey(duplicate);
  if (done) bytes.swap(enciphered);
  return done;
}

}  // namespace

bool ReadOuterHeader(CVastrelFile& file, OuterHeader* outer) {
  unsigned char bytes[kOuterHeaderSize];
  if (!ReadExactly(file, bytes, sizeof bytes)) return false;
  *outer = DecodeOuterHeader(bytes);
  return true;
}

bool DecryptRecordRest(CVastrelFile& file, uint64_t key) {
  if (file.GetChildStreamSize() > kMaxRecordChild) return false;
  return file.ReadGenericChildStream_BufferRest() == 1 && file.ReadGenericChildStream_DecryptRest(key) == 1;
}

bool ReadRecord(CVastrelFile& file, const OuterHeader& outer, const RecordDescriptor& kind, unsigned char* buffer,
                uint64_t size) {
  unsigned char bytes[kInnerHeaderSize];
  if (!ReadExactly(file, bytes, kind.innerHeaderSize)) return false;
  const InnerHeader inner = DecodeInnerHeader(bytes);
  if (outer.kind != kind.outerKind || inner.type != kind.recordType) return false;

  const uint64_t stored = inner.dataLength;
  if (inner.version > kind.currentVersion && size < stored) {
    // A newer record carries more than we know: take our part and step the
    // generic stream over the rest, as readers of this version always have.
    if (!ReadExactly(file, buffer, size)) return false;
    file.SeekForward(static_cast<int64_t>(stored - size));
    return true;
  }
  if (inner.version < kind.currentVersion) {
    if (kind.convert != nullptr) return kind.convert(file, inner, kind.listNumber, buffer, size) != 0;
    return size >= stored && ReadExactly(file, buffer, stored);
  }
  return size == stored && ReadExactly(file, buffer, stored);
}

int WriteRecord(CVastrelFile& file, uint64_t key, const RecordDescriptor& kind, const unsigned char* data,
                const char* streamPath, const char* childName) {
  std::string first, second;
  aoStream* parent = nullptr;
  aoStream* intermediate = nullptr;
  if (platform::QoCStrSplitOnChar(streamPath, '/', &first, &second)) {
    if (!file.OpenOrCreateGenericStream(first.c_str(), 0, 1)) return 0;
    intermediate = file.OpenOrCreateGenericChildStream(file.GetGenericStream(), second.c_str(), 0, 1);
    parent = intermediate;
  } else {
    if (!file.OpenOrCreateGenericStream(first.c_str(), 0, 1)) return 0;
    parent = file.GetGenericStream();
  }
  if (parent == nullptr) return 0;

  std::vector<unsigned char> body(kind.innerHeaderSize + size_t{kind.dataSize});
  EncodeInnerHeader(MakeInnerHeader(kind), body.data());
  std::copy(data, data + kind.dataSize, body.begin() + kind.innerHeaderSize);
  // A record that cannot be enciphered is written in clear, flagged so, and
  // loads as such.
  const bool encrypted = Encipher(key, body);
  unsigned char outer[kOuterHeaderSize];
  EncodeOuterHeader(MakeOuterHeader(kind, encrypted), outer);

  const int written = file.WriteGenericChildStream(parent, childName, outer, static_cast<int32_t>(sizeof outer), 0, 1,
                                                   body.data(), static_cast<int32_t>(body.size()));
  if (intermediate != nullptr) intermediate->Release();
  return written;
}

}  // namespace ao::settings
