// The per-row kernels under the projections, the direct matcher and the blends, in a
// plain reference version and faster versions per instruction set (kernels_sse2.cc,
// kernels_avx2.cc, kernels_neon.cc). Every version gives the reference's bits; the set in
// use is chosen once, at first use.
#ifndef LUMIVEX_SRC_KERNELS_KERNELS_H_
#define LUMIVEX_SRC_KERNELS_KERNELS_H_

#include <cstddef>
#include <cstdint>
#include <span>

namespace lumivex::kernels {

struct KernelSet {
  const char* name;

  // Adds the column sums of `rows` lines of `width` one-byte pixels into out[0..width).
  // Sums never wrap for the frame sizes the trackers accept (rows * 255 < 2^32).
  void (*column_sums)(std::int32_t width, std::int32_t rows, const std::uint8_t* line,
                      std::ptrdiff_t step, std::uint32_t* out);

  // For each of `rows` rows starting `step` bytes apart: the sums of the bytes of
  // [row, row + n) (n a multiple of 16) by their offset modulo 4, bytes 0 and 1 of each
  // group into low[y], bytes 2 and 3 into high[y].
  void (*lane_sums)(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows, std::int32_t n,
                    std::uint32_t* low, std::uint32_t* high);

  // For each of `rows` rows starting `step` bytes apart: the plain sum of the bytes of
  // [row, row + n), n below 2^24 so that no sum wraps.
  void (*row_sums)(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows, std::int32_t n,
                   std::uint32_t* out);

  // Sum of |a[i] - b[i]| over [0, m), stopping at a block boundary once the partial sum
  // reaches `limit` (the partial sum is returned then). Entries are below 2^31 and the
  // whole sum below 2^32, so no order of summation wraps.
  std::uint32_t (*sad_until)(const std::uint32_t* a, const std::uint32_t* b, std::int32_t m,
                             std::uint32_t limit);

  // Q16 cross-fade: f[k] = clamp((ws[k] * s[k] + wf[k] * f[k] + 32768) >> 16) over [0, n).
  void (*fade_q16)(std::uint8_t* f, const std::uint8_t* s, const std::uint16_t* ws,
                   const std::uint16_t* wf, std::int32_t n);

  // fade_q16 on `rows` rows of n bytes starting `f_step` and `s_step` bytes apart, with
  // the same weights for every row (a narrow overlap's rows are a few bytes each: the
  // weights stay in registers and one call does them all).
  void (*fade_rows)(std::uint8_t* f, std::ptrdiff_t f_step, const std::uint8_t* s,
                    std::ptrdiff_t s_step, std::int32_t rows, const std::uint16_t* ws,
                    const std::uint16_t* wf, std::int32_t n);

  // f[k] = (f[k] + s[k]) >> 1 over [0, n).
  void (*average)(std::uint8_t* f, const std::uint8_t* s, std::int32_t n);

  // memmove of n bytes on each of `rows` rows, top to bottom, the rows starting `d_step`
  // and `s_step` bytes apart. The strips a sweep lays down are a few dozen bytes wide, where
  // a library call per row costs more than its bytes.
  void (*copy_rows)(std::uint8_t* d, std::ptrdiff_t d_step, const std::uint8_t* s,
                    std::ptrdiff_t s_step, std::int32_t rows, std::int64_t n);

  // dst[2i] = src[2i + 1], dst[2i + 1] = src[2i] for i in [0, pairs): interleaved chroma
  // moved into the other phase.
  void (*swap_pairs)(std::uint8_t* dst, const std::uint8_t* src, std::int64_t pairs);

  // Sum over `rows` rows of n bytes (rows `a_step` and `b_step` bytes apart) of
  // |clamp(a + bias, 0, 255) - b|, bias in [-255, 255]: two windows compared with one's
  // brightness moved to the other's. Stops after a multiple of 8 rows once the partial
  // sum reaches `limit` (and returns it). rows * n below 2^24, so the sum never wraps.
  std::uint32_t (*block_sad)(const std::uint8_t* a, std::ptrdiff_t a_step, const std::uint8_t* b,
                             std::ptrdiff_t b_step, std::int32_t rows, std::int32_t n,
                             std::int32_t bias, std::uint32_t limit);
};

// Thirty-two zero bytes then thirty-two 0xFF, for the kernels that read a row's last
// partial block as a load overlapping the one before it: the w bytes from
// kTailMask + 32 - w + r keep the last r bytes of a w-byte load.
inline constexpr std::uint8_t kTailMask[64] = {
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

// The plain versions: the truth every other set is tested against.
const KernelSet& Reference();

// The fastest set this machine runs (the reference set when the library is built with
// reference kernels only).
const KernelSet& Active();

// Every set this machine can run, the reference first; for the tests and benchmarks.
std::span<const KernelSet* const> Available();

// Instruction-set versions; null where the build or the CPU lacks them.
const KernelSet* Sse2Set();
const KernelSet* Avx2Set();
const KernelSet* NeonSet();

}  // namespace lumivex::kernels

#endif  // LUMIVEX_SRC_KERNELS_KERNELS_H_
