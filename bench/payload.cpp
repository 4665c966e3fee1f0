#include "payload.h"

#include <cstring>
#include <stdexcept>

#include "backend.h"

namespace bench {
namespace {

std::uint64_t SplitMix(std::uint64_t& state) {
  std::uint64_t z = (state += 0x9E3779B97F4A7C15ULL);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

}  // namespace

Payload::Payload() : bytes_(kPeriod + kMaxSpan) {
  std::uint64_t state = 0x5EED;
  for (std::size_t i = 0; i < kPeriod; ++i) bytes_[i] = static_cast<unsigned char>(SplitMix(state) >> 56);
  std::memcpy(bytes_.data() + kPeriod, bytes_.data(), kMaxSpan);
}

const unsigned char* Payload::At(std::uint64_t stream, std::uint64_t offset, std::size_t size) const {
  if (size > kMaxSpan) throw std::logic_error("payload span too long");
  std::uint64_t state = stream;
  const std::uint64_t start = (SplitMix(state) % kPeriod + offset % kPeriod) % kPeriod;
  return bytes_.data() + start;
}

void Payload::Verify(std::uint64_t stream, std::uint64_t offset, const unsigned char* got, std::size_t size,
                     const std::string& where) const {
  const unsigned char* expected = At(stream, offset, size);
  if (std::memcmp(got, expected, size) == 0) return;
  std::size_t first = 0;
  while (got[first] == expected[first]) ++first;
  throw BackendError("data mismatch in " + where + " at byte " + std::to_string(offset + first));
}

}  // namespace bench
