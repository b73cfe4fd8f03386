// Row kernels of the region copies. Each copies one row; `src_avail` is how many
// bytes of the source row may be read from `src` onward, so that a kernel that looks
// one pixel ahead never leaves the source image.
#ifndef LUMIVEX_SRC_KERNELS_ROW_KERNELS_H_
#define LUMIVEX_SRC_KERNELS_ROW_KERNELS_H_

#include <cstdint>

namespace lumivex::image {

// Interleaved chroma (two components alternating byte by byte) copied into the other
// phase: each byte pair is exchanged. An odd count ends with the byte that follows in
// the source, which is left alone when the source row ends there.
void CopyRowSwapPairs(std::uint8_t* dst, const std::uint8_t* src, std::int64_t bytes,
                      std::int64_t src_avail);

enum class Packed422Shift {
  kSwap,       // destination starts on an odd pixel, source on an even one
  kFromPrior,  // destination even, source odd: first chroma comes from the pair before
};

// Packed 4:2:2 row of `pixels` pixels whose chroma bytes sit at `chroma` and `chroma + 2`
// of each four-byte pixel pair; luminance bytes are copied unchanged.
void CopyRowPacked422(std::uint8_t* dst, const std::uint8_t* src, std::int64_t pixels,
                      std::int64_t src_avail, int chroma, Packed422Shift mode);

}  // namespace lumivex::image

#endif  // LUMIVEX_SRC_KERNELS_ROW_KERNELS_H_
