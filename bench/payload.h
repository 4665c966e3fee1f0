// The bytes every backend writes and every read is checked against. Each
// stream gets its own deterministic byte sequence, taken from one periodic
// pattern so that no byte has to be generated inside a timed loop.
#ifndef AOSTORE_BENCH_PAYLOAD_H
#define AOSTORE_BENCH_PAYLOAD_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

class Payload {
 public:
  // Longest span At() hands out.
  static constexpr std::size_t kMaxSpan = 64 * 1024;

  Payload();

  // The bytes of stream `stream` at [offset, offset + size); size <= kMaxSpan.
  const unsigned char* At(std::uint64_t stream, std::uint64_t offset, std::size_t size) const;

  // Throws BackendError unless got[0, size) are the stream's bytes at offset.
  void Verify(std::uint64_t stream, std::uint64_t offset, const unsigned char* got, std::size_t size,
              const std::string& where) const;

 private:
  // A prime period: equal-sized chunks at different offsets of one stream,
  // and the streams themselves, all start at different places of the pattern.
  static constexpr std::size_t kPeriod = 1048573;
  std::vector<unsigned char> bytes_;  // kPeriod bytes, then its first kMaxSpan again
};

}  // namespace bench

#endif  // AOSTORE_BENCH_PAYLOAD_H
