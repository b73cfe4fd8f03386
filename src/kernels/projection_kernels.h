// Column-sum and row-sum kernels under the projections.
#ifndef LUMIVEX_SRC_KERNELS_PROJECTION_KERNELS_H_
#define LUMIVEX_SRC_KERNELS_PROJECTION_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "src/kernels/kernels.h"

namespace lumivex::track {

enum class ByteOrder { kLittle, kBig };

// Which bytes of each 4-byte group carry luma.
enum class LumaBytes {
  kAll,   // one byte a pixel
  kEven,  // two bytes a pixel, luma in bytes 0 and 2
  kOdd,   // two bytes a pixel, luma in bytes 1 and 3
};

// The machine's byte order, tested at run time on a stored word.
ByteOrder NativeByteOrder();

// Whether the column sums of `format` are plain sums of plane 0's bytes (one byte a pixel,
// on a little-endian machine), from the rectangle's left rounded down to a multiple of 4.
bool PlainSums(std::uint32_t format);

// Adds the column sums of `rows` lines of `width` pixels into out[0..width). Groups of
// four pixels are read as 32-bit words (two words for two-byte pixels) and split into
// bytes assuming `order`; a kernel run on a machine of the other order therefore sums
// the pixels of each group in reverse. Four rows are taken at a time.
using ColumnSumsFn = void (*)(std::int32_t width, std::int32_t rows, const std::uint8_t* line,
                              std::ptrdiff_t step, std::uint32_t* out);

ColumnSumsFn ColumnSumsKernel(LumaBytes luma, ByteOrder order);

// The kernel for `luma` in the machine's byte order.
ColumnSumsFn SelectColumnSums(LumaBytes luma);

// The column-sum kernel the projections use for one-byte pixels at a word-aligned start:
// the fastest kernel set's on a little-endian machine, which gives the word kernel's sums.
ColumnSumsFn FastColumnSums();

// Sum of n one-byte pixels with 16-bit lanes packed in a 32-bit accumulator. Exact
// while neither lane passes 65535 (rows up to 515 pixels, summed plainly by `k`'s row
// sums); beyond that the lanes wrap in a pattern that depends on the row's address
// alignment, which is kept on purpose, and is rebuilt from `k`'s lane sums.
std::uint32_t RowSumLanes(const std::uint8_t* p, std::int32_t n,
                          const kernels::KernelSet& k = kernels::Active());

// RowSumLanes of `rows` rows starting `step` bytes apart into out[0..rows); `step` a
// multiple of 4, so that every row starts in the first one's phase.
void RowSumLanesRows(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows, std::int32_t n,
                     std::uint32_t* out, const kernels::KernelSet& k = kernels::Active());

// The same for two-byte pixels, summing only the luma bytes.
std::uint32_t RowSumLanesPacked(const std::uint8_t* p, std::int32_t n, LumaBytes luma);

}  // namespace lumivex::track

#endif  // LUMIVEX_SRC_KERNELS_PROJECTION_KERNELS_H_
