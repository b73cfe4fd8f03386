#include "src/kernels/row_kernels.h"

#include "src/kernels/kernels.h"

namespace lumivex::image {

void CopyRowSwapPairs(std::uint8_t* dst, const std::uint8_t* src, std::int64_t bytes,
                      std::int64_t src_avail) {
  const std::int64_t even = bytes & ~std::int64_t{1};
  kernels::Active().swap_pairs(dst, src, even / 2);
  if (bytes != even && even < src_avail - 1) dst[even] = src[even + 1];
}

void CopyRowPacked422(std::uint8_t* dst, const std::uint8_t* src, std::int64_t pixels,
                      std::int64_t src_avail, int chroma, Packed422Shift mode) {
  const int luma = chroma ^ 1;
  const std::int64_t pairs = pixels / 2;
  // Read offsets of the two chroma bytes, relative to the pair.
  const int first = mode == Packed422Shift::kSwap ? chroma + 2 : chroma - 2;
  const int second = chroma;
  for (std::int64_t k = 0; k < pairs; ++k) {
    const std::uint8_t* s = src + 4 * k;
    std::uint8_t* d = dst + 4 * k;
    const std::uint8_t c0 = s[first];
    const std::uint8_t c1 = s[second];
    d[luma] = s[luma];
    d[luma + 2] = s[luma + 2];
    d[chroma] = c0;
    d[chroma + 2] = c1;
  }
  if (pixels & 1) {
    const std::int64_t base = 4 * pairs;
    dst[base + luma] = src[base + luma];
    if (base + first < src_avail) dst[base + chroma] = src[base + first];
  }
}

}  // namespace lumivex::image
