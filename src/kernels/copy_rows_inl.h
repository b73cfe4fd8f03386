// Row copies of 4 to 64 bytes for the vector sets, written once over each set's 16- and
// 8-byte vector types. Included by one kernel file per set: the anonymous namespace gives
// each its own copy, built with that file's flags.
#ifndef LUMIVEX_SRC_KERNELS_COPY_ROWS_INL_H_
#define LUMIVEX_SRC_KERNELS_COPY_ROWS_INL_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace lumivex::kernels {
namespace {

template <typename V>
V LoadPiece(const std::uint8_t* p) {
  V v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

template <typename V>
void StorePiece(std::uint8_t* p, V v) {
  std::memcpy(p, &v, sizeof v);
}

// Rows of sizeof(V) to 2 sizeof(V) bytes as two pieces, the second ending the row.
template <typename V>
void CopyTwoPieces(std::uint8_t* d, std::ptrdiff_t d_step, const std::uint8_t* s,
                   std::ptrdiff_t s_step, std::int32_t rows, std::int32_t m) {
  const std::int32_t e = m - static_cast<std::int32_t>(sizeof(V));
  for (std::int32_t y = 0; y < rows; ++y, d += d_step, s += s_step) {
    const V a = LoadPiece<V>(s), b = LoadPiece<V>(s + e);
    StorePiece(d, a);
    StorePiece(d + e, b);
  }
}

// Every piece of a row is loaded before any is stored, and overlapping pieces cover the
// ends: a row moves as memmove moves it, even onto itself.
template <typename V16, typename V8>
void CopyShortRows(std::uint8_t* d, std::ptrdiff_t d_step, const std::uint8_t* s,
                   std::ptrdiff_t s_step, std::int32_t rows, std::int32_t m) {
  static_assert(sizeof(V16) == 16 && sizeof(V8) == 8);
  if (m <= 32) {
    if (m >= 16) return CopyTwoPieces<V16>(d, d_step, s, s_step, rows, m);
    if (m >= 8) return CopyTwoPieces<V8>(d, d_step, s, s_step, rows, m);
    return CopyTwoPieces<std::uint32_t>(d, d_step, s, s_step, rows, m);
  }
  const std::int32_t c = m > 48 ? 32 : m - 16, e = m - 16;
  for (std::int32_t y = 0; y < rows; ++y, d += d_step, s += s_step) {
    const V16 v0 = LoadPiece<V16>(s), v1 = LoadPiece<V16>(s + 16);
    const V16 v2 = LoadPiece<V16>(s + c), v3 = LoadPiece<V16>(s + e);
    StorePiece(d, v0);
    StorePiece(d + 16, v1);
    StorePiece(d + c, v2);
    StorePiece(d + e, v3);
  }
}

}  // namespace
}  // namespace lumivex::kernels

#endif  // LUMIVEX_SRC_KERNELS_COPY_ROWS_INL_H_
