// Stores into a mapped view that a killed process cannot leave half done.
// A process dies between two instructions, never inside one, so bytes that
// one store instruction writes are either all there or not at all, even when
// they cross into the next page. A write call gives no such promise: the
// system copies it a page at a time and lets a kill end it between pages.
#ifndef AOSTORE_PLATFORM_PIECE_STORE_H
#define AOSTORE_PLATFORM_PIECE_STORE_H

#include <cstddef>
#include <cstring>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#endif

namespace ao::platform {

// Stores count bytes front to back in pieces of 16 bytes, then one of 8, one
// of 4, and single bytes, each piece one store instruction. Every field that
// lies inside one piece (a stream's length beside its last block, any field
// of a block header) is thus either wholly old or wholly new.
inline void StoreInPieces(void* to, const void* from, size_t count) {
  auto* out = static_cast<unsigned char*>(to);
  const auto* in = static_cast<const unsigned char*>(from);
#if defined(__SSE2__) || defined(_M_X64)
  // The intrinsics are single instructions at every optimisation level.
  for (; count >= 16; count -= 16, in += 16, out += 16)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_loadu_si128(reinterpret_cast<const __m128i*>(in)));
  if (count >= 8) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in)));
    count -= 8, in += 8, out += 8;
  }
  if (count >= 4) {
    _mm_storeu_si32(out, _mm_loadu_si32(in));
    count -= 4, in += 4, out += 4;
  }
#else
  // Copies of a constant size become one load and one store when optimised.
  for (; count >= 16; count -= 16, in += 16, out += 16) std::memcpy(out, in, 16);
  if (count >= 8) std::memcpy(out, in, 8), count -= 8, in += 8, out += 8;
  if (count >= 4) std::memcpy(out, in, 4), count -= 4, in += 4, out += 4;
#endif
  for (; count > 0; --count) *out++ = *in++;
}

}  // namespace ao::platform

#endif  // AOSTORE_PLATFORM_PIECE_STORE_H
