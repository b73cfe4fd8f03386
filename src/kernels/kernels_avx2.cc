// AVX2 kernels, compiled with -mavx2 and chosen only on CPUs that report AVX2.
#include "src/kernels/kernels.h"

#if defined(__AVX2__)
#include <immintrin.h>

namespace lumivex::kernels {
namespace {

// No standard-library templates here: an out-of-line copy built with this file's flags
// could be the one the linker keeps for the whole library.
constexpr std::int32_t Min(std::int32_t a, std::int32_t b) {
  return a < b ? a : b;
}

__m256i Load(const void* p) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}
void Store(void* p, __m256i v) {
  _mm256_storeu_si256(static_cast<__m256i*>(p), v);
}
// Sixteen bytes widened to sixteen 16-bit lanes, in order.
__m256i Widen(const std::uint8_t* p) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

// Adds sixteen 16-bit lanes (in order) into out[0..16) as 32-bit sums.
void FlushWords(__m256i acc, std::uint32_t* out) {
  const __m256i lo = _mm256_cvtepu16_epi32(_mm256_castsi256_si128(acc));
  const __m256i hi = _mm256_cvtepu16_epi32(_mm256_extracti128_si256(acc, 1));
  Store(out, _mm256_add_epi32(Load(out), lo));
  Store(out + 8, _mm256_add_epi32(Load(out + 8), hi));
}

// Column sums of 16 * kBlocks columns over rows >= 1 rows, added into out. The sums start
// from the first row rather than from zero: gcc then updates them in place instead of
// copying every one of them on each row.
template <int kBlocks>
void AddColumns(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows, std::uint32_t* out) {
  __m256i a[kBlocks];
  for (int k = 0; k < kBlocks; ++k) a[k] = Widen(p + 16 * k);
  for (std::int32_t y = 1; y < rows; ++y) {
    p += step;
    for (int k = 0; k < kBlocks; ++k) a[k] = _mm256_add_epi16(a[k], Widen(p + 16 * k));
  }
  for (int k = 0; k < kBlocks; ++k) FlushWords(a[k], out + 16 * k);
}

void ColumnSums(std::int32_t width, std::int32_t rows, const std::uint8_t* line,
                std::ptrdiff_t step, std::uint32_t* out) {
  // 257 rows of 255 still fit the 16-bit lanes.
  constexpr std::int32_t kRowBlock = 257;
  std::int32_t x = 0;
  for (; x + 64 <= width; x += 64)
    for (std::int32_t y0 = 0; y0 < rows; y0 += kRowBlock)
      AddColumns<4>(line + y0 * step + x, step, Min(rows - y0, kRowBlock), out + x);
  for (; x + 16 <= width; x += 16)
    for (std::int32_t y0 = 0; y0 < rows; y0 += kRowBlock)
      AddColumns<1>(line + y0 * step + x, step, Min(rows - y0, kRowBlock), out + x);
  if (x < width && width >= 16) {
    // The last columns as the 16 that end the row (overlapping ones already summed),
    // summed aside: no byte past the row is read.
    alignas(32) std::uint32_t tail[16] = {};
    const std::int32_t t = width - 16;
    for (std::int32_t y0 = 0; y0 < rows; y0 += kRowBlock)
      AddColumns<1>(line + y0 * step + t, step, Min(rows - y0, kRowBlock), tail);
    for (; x < width; ++x) out[x] += tail[x - t];
  }
  if (x < width) Reference().column_sums(width - x, rows, line + x, step, out + x);
}

std::uint32_t SumLanes(__m256i v) {
  __m128i s = _mm_add_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
  s = _mm_add_epi32(s, _mm_srli_si128(s, 8));
  s = _mm_add_epi32(s, _mm_srli_si128(s, 4));
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(s));
}

void LaneSums(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows, std::int32_t n,
              std::uint32_t* low, std::uint32_t* high) {
  // pmaddubsw adds byte pairs into 16-bit lanes: even lanes hold bytes 0+1 of a group,
  // odd lanes bytes 2+3. A lane gains at most 510 a step: 128 steps before a flush.
  const __m256i ones = _mm256_set1_epi8(1);
  const __m256i mask = _mm256_set1_epi32(0xFFFF);
  for (std::int32_t y = 0; y < rows; ++y, p += step) {
    __m256i lo = _mm256_setzero_si256(), hi = lo;
    std::int32_t i = 0;
    while (i + 32 <= n) {
      const std::int32_t end = Min(n - 31, i + 128 * 32);
      __m256i acc = _mm256_setzero_si256();
      for (; i < end; i += 32) acc = _mm256_add_epi16(acc, _mm256_maddubs_epi16(Load(p + i), ones));
      lo = _mm256_add_epi32(lo, _mm256_and_si256(acc, mask));
      hi = _mm256_add_epi32(hi, _mm256_srli_epi32(acc, 16));
    }
    __m128i l = _mm_add_epi32(_mm256_castsi256_si128(lo), _mm256_extracti128_si256(lo, 1));
    __m128i h = _mm_add_epi32(_mm256_castsi256_si128(hi), _mm256_extracti128_si256(hi, 1));
    if (i < n) {  // the last 16 bytes
      const __m128i pairs = _mm_maddubs_epi16(
          _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i)), _mm256_castsi256_si128(ones));
      l = _mm_add_epi32(l, _mm_and_si128(pairs, _mm256_castsi256_si128(mask)));
      h = _mm_add_epi32(h, _mm_srli_epi32(pairs, 16));
    }
    const __m128i t = _mm_hadd_epi32(l, h);  // l01 l23 h01 h23
    const __m128i both = _mm_hadd_epi32(t, t);
    low[y] = static_cast<std::uint32_t>(_mm_cvtsi128_si32(both));
    high[y] = static_cast<std::uint32_t>(_mm_extract_epi32(both, 1));
  }
}

__m128i Load16(const std::uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
__m128i Load8(const std::uint8_t* p) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}
std::uint32_t Sum64(__m128i v) {
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(v) + _mm_cvtsi128_si32(_mm_srli_si128(v, 8)));
}

// Sum of the bytes of [p, p + n): whole loads, the last one overlapping the one before it
// with the overlap masked off, so nothing past p + n is read.
std::uint32_t RowSum(const std::uint8_t* p, std::int32_t n) {
  if (n < 32) {
    const __m128i zero = _mm_setzero_si128();
    if (n >= 16) {
      const __m128i tail = _mm_and_si128(Load16(p + n - 16), Load16(kTailMask + 16 + (n - 16)));
      return Sum64(_mm_add_epi64(_mm_sad_epu8(Load16(p), zero), _mm_sad_epu8(tail, zero)));
    }
    if (n >= 8) {
      const __m128i tail = _mm_and_si128(Load8(p + n - 8), Load8(kTailMask + 24 + (n - 8)));
      return Sum64(_mm_sad_epu8(_mm_unpacklo_epi64(Load8(p), tail), zero));
    }
    std::uint32_t sum = 0;
    for (std::int32_t i = 0; i < n; ++i) sum += p[i];
    return sum;
  }
  const __m256i zero = _mm256_setzero_si256();
  __m256i acc = zero;
  std::int32_t i = 0;
  for (; i + 32 <= n; i += 32) acc = _mm256_add_epi64(acc, _mm256_sad_epu8(Load(p + i), zero));
  if (i < n)
    acc = _mm256_add_epi64(
        acc, _mm256_sad_epu8(_mm256_and_si256(Load(p + n - 32), Load(kTailMask + (n - i))), zero));
  return Sum64(_mm_add_epi64(_mm256_castsi256_si128(acc), _mm256_extracti128_si256(acc, 1)));
}

void RowSums(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows, std::int32_t n,
             std::uint32_t* out) {
  for (std::int32_t y = 0; y < rows; ++y, p += step) out[y] = RowSum(p, n);
}

__m256i AbsDiff(const std::uint32_t* a, const std::uint32_t* b) {
  // Entries below 2^31: the signed difference does not overflow.
  return _mm256_abs_epi32(_mm256_sub_epi32(Load(a), Load(b)));
}

std::uint32_t SadUntil(const std::uint32_t* a, const std::uint32_t* b, std::int32_t m,
                       std::uint32_t limit) {
  std::uint32_t sad = 0;
  std::int32_t i = 0;
  for (; i + 32 <= m && sad < limit; i += 32) {
    const __m256i s0 = _mm256_add_epi32(AbsDiff(a + i, b + i), AbsDiff(a + i + 8, b + i + 8));
    const __m256i s1 =
        _mm256_add_epi32(AbsDiff(a + i + 16, b + i + 16), AbsDiff(a + i + 24, b + i + 24));
    sad += SumLanes(_mm256_add_epi32(s0, s1));
  }
  if (sad >= limit || i == m) return sad;
  __m256i rest = _mm256_setzero_si256();
  for (; i + 8 <= m; i += 8) rest = _mm256_add_epi32(rest, AbsDiff(a + i, b + i));
  sad += SumLanes(rest);
  for (; i < m; ++i) sad += a[i] > b[i] ? a[i] - b[i] : b[i] - a[i];
  return sad;
}

// Sixteen pixels of the fade, from the bytes as they are now.
__m128i Fade16(const std::uint8_t* f, const std::uint8_t* s, const std::uint16_t* ws,
               const std::uint16_t* wf) {
  const __m256i half = _mm256_set1_epi32(32768);
  const __m256i sv = Widen(s), fv = Widen(f);
  const __m256i w1 = Load(ws), w2 = Load(wf);
  const __m256i l1 = _mm256_mullo_epi16(w1, sv), h1 = _mm256_mulhi_epu16(w1, sv);
  const __m256i l2 = _mm256_mullo_epi16(w2, fv), h2 = _mm256_mulhi_epu16(w2, fv);
  // Lanes 0-3 and 8-11 in `lo`, 4-7 and 12-15 in `hi` (unpack works per 128-bit half);
  // the packs below undo it. Sums stay below 2^25 and shift down to at most 510.
  const __m256i lo = _mm256_srli_epi32(
      _mm256_add_epi32(
          _mm256_add_epi32(_mm256_unpacklo_epi16(l1, h1), _mm256_unpacklo_epi16(l2, h2)), half),
      16);
  const __m256i hi = _mm256_srli_epi32(
      _mm256_add_epi32(
          _mm256_add_epi32(_mm256_unpackhi_epi16(l1, h1), _mm256_unpackhi_epi16(l2, h2)), half),
      16);
  const __m256i words = _mm256_packs_epi32(lo, hi);  // lanes 0-7 | 8-15
  const __m256i bytes = _mm256_packus_epi16(words, words);
  return _mm256_castsi256_si128(_mm256_permute4x64_epi64(bytes, 0x08));  // qwords 0, 2
}

void FadeQ16(std::uint8_t* f, const std::uint8_t* s, const std::uint16_t* ws,
             const std::uint16_t* wf, std::int32_t n) {
  if (n < 16) return Sse2Set()->fade_q16(f, s, ws, wf, n);
  // The last sixteen are computed first, before the blocks overwrite any of their bytes.
  const __m128i last = Fade16(f + n - 16, s + n - 16, ws + n - 16, wf + n - 16);
  for (std::int32_t k = 0; k + 16 < n; k += 16)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(f + k), Fade16(f + k, s + k, ws + k, wf + k));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(f + n - 16), last);
}

void FadeRows(std::uint8_t* f, std::ptrdiff_t f_step, const std::uint8_t* s, std::ptrdiff_t s_step,
              std::int32_t rows, const std::uint16_t* ws, const std::uint16_t* wf, std::int32_t n) {
  if (n < 16) return Sse2Set()->fade_rows(f, f_step, s, s_step, rows, ws, wf, n);
  for (std::int32_t y = 0; y < rows; ++y) FadeQ16(f + y * f_step, s + y * s_step, ws, wf, n);
}

__m256i Average32(const std::uint8_t* f, const std::uint8_t* s) {
  // vpavgb rounds up: take back the half where the sum is odd.
  const __m256i a = Load(f), b = Load(s);
  return _mm256_sub_epi8(_mm256_avg_epu8(a, b),
                         _mm256_and_si256(_mm256_xor_si256(a, b), _mm256_set1_epi8(1)));
}

void Average(std::uint8_t* f, const std::uint8_t* s, std::int32_t n) {
  if (n < 32) return Sse2Set()->average(f, s, n);
  const __m256i last = Average32(f + n - 32, s + n - 32);  // before any store
  for (std::int32_t k = 0; k + 32 < n; k += 32) Store(f + k, Average32(f + k, s + k));
  Store(f + n - 32, last);
}

void CopyRows(std::uint8_t* d, std::ptrdiff_t d_step, const std::uint8_t* s, std::ptrdiff_t s_step,
              std::int32_t rows, std::int64_t n) {
  Sse2Set()->copy_rows(d, d_step, s, s_step, rows, n);
}

void SwapPairs(std::uint8_t* dst, const std::uint8_t* src, std::int64_t pairs) {
  auto swap = [](__m256i v) {
    return _mm256_or_si256(_mm256_slli_epi16(v, 8), _mm256_srli_epi16(v, 8));
  };
  if (pairs < 16) return Sse2Set()->swap_pairs(dst, src, pairs);
  const __m256i last = swap(Load(src + 2 * pairs - 32));  // before any store
  for (std::int64_t i = 0; i + 16 < pairs; i += 16) Store(dst + 2 * i, swap(Load(src + 2 * i)));
  Store(dst + 2 * pairs - 32, last);
}

std::uint32_t BlockSad(const std::uint8_t* a, std::ptrdiff_t a_step, const std::uint8_t* b,
                       std::ptrdiff_t b_step, std::int32_t rows, std::int32_t n,
                       std::int32_t bias, std::uint32_t limit) {
  if (n < 32) return Sse2Set()->block_sad(a, a_step, b, b_step, rows, n, bias, limit);
  // Saturating adds are the clamp: one of the two is zero.
  const __m256i up = _mm256_set1_epi8(static_cast<char>(bias > 0 ? bias : 0));
  const __m256i down = _mm256_set1_epi8(static_cast<char>(bias < 0 ? -bias : 0));
  const std::int32_t r = n & 31;
  // The last partial block as a load overlapping the one before, its first 32 - r bytes
  // masked to zero on both sides.
  const __m256i mask = Load(kTailMask + r);
  __m256i acc = _mm256_setzero_si256();
  auto total = [&acc] {
    const __m128i half = _mm_add_epi64(_mm256_castsi256_si128(acc), _mm256_extracti128_si256(acc, 1));
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(half) +
                                      _mm_cvtsi128_si32(_mm_unpackhi_epi64(half, half)));
  };
  for (std::int32_t y = 0; y < rows; ++y, a += a_step, b += b_step) {
    if ((y & 7) == 0 && y > 0 && total() >= limit) break;
    std::int32_t x = 0;
    for (; x + 32 <= n; x += 32) {
      const __m256i va = _mm256_subs_epu8(_mm256_adds_epu8(Load(a + x), up), down);
      acc = _mm256_add_epi64(acc, _mm256_sad_epu8(va, Load(b + x)));
    }
    if (r != 0) {
      const __m256i va = _mm256_subs_epu8(_mm256_adds_epu8(Load(a + n - 32), up), down);
      acc = _mm256_add_epi64(acc, _mm256_sad_epu8(_mm256_and_si256(va, mask),
                                                  _mm256_and_si256(Load(b + n - 32), mask)));
    }
  }
  return total();
}

constexpr KernelSet kAvx2{"avx2",   ColumnSums, LaneSums, RowSums,  SadUntil, FadeQ16,
                          FadeRows, Average,    CopyRows, SwapPairs, BlockSad};

}  // namespace

const KernelSet* Avx2Set() {
  static const bool supported = __builtin_cpu_supports("avx2");
  return supported ? &kAvx2 : nullptr;
}

}  // namespace lumivex::kernels

#else

namespace lumivex::kernels {
const KernelSet* Avx2Set() {
  return nullptr;
}
}  // namespace lumivex::kernels

#endif
