// SSE2 kernels: the x86-64 baseline, so every x86 machine has them.
#include "src/kernels/kernels.h"

#if defined(__SSE2__)
#include <emmintrin.h>

#include <cstring>

#include "src/kernels/copy_rows_inl.h"

namespace lumivex::kernels {
namespace {

// No standard-library templates here: an out-of-line copy built with this file's flags
// could be the one the linker keeps for the whole library.
constexpr std::int32_t Min(std::int32_t a, std::int32_t b) {
  return a < b ? a : b;
}

__m128i Load(const void* p) {
  return _mm_loadu_si128(static_cast<const __m128i*>(p));
}
void Store(void* p, __m128i v) {
  _mm_storeu_si128(static_cast<__m128i*>(p), v);
}

// Adds eight 16-bit lanes into out[0..8) as 32-bit sums.
void FlushWords(__m128i acc, std::uint32_t* out) {
  const __m128i zero = _mm_setzero_si128();
  Store(out, _mm_add_epi32(Load(out), _mm_unpacklo_epi16(acc, zero)));
  Store(out + 4, _mm_add_epi32(Load(out + 4), _mm_unpackhi_epi16(acc, zero)));
}

// Column sums of 16 * kBlocks columns over rows >= 1 rows, added into out. The sums start
// from the first row rather than from zero: gcc then updates them in place instead of
// copying every one of them on each row.
template <int kBlocks>
void AddColumns(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows, std::uint32_t* out) {
  const __m128i zero = _mm_setzero_si128();
  __m128i lo[kBlocks], hi[kBlocks];
  for (int k = 0; k < kBlocks; ++k) {
    const __m128i v = Load(p + 16 * k);
    lo[k] = _mm_unpacklo_epi8(v, zero);
    hi[k] = _mm_unpackhi_epi8(v, zero);
  }
  for (std::int32_t y = 1; y < rows; ++y) {
    p += step;
    for (int k = 0; k < kBlocks; ++k) {
      const __m128i v = Load(p + 16 * k);
      lo[k] = _mm_add_epi16(lo[k], _mm_unpacklo_epi8(v, zero));
      hi[k] = _mm_add_epi16(hi[k], _mm_unpackhi_epi8(v, zero));
    }
  }
  for (int k = 0; k < kBlocks; ++k) {
    FlushWords(lo[k], out + 16 * k);
    FlushWords(hi[k], out + 16 * k + 8);
  }
}

void ColumnSums(std::int32_t width, std::int32_t rows, const std::uint8_t* line,
                std::ptrdiff_t step, std::uint32_t* out) {
  // 257 rows of 255 still fit the 16-bit lanes.
  constexpr std::int32_t kRowBlock = 257;
  std::int32_t x = 0;
  for (; x + 32 <= width; x += 32)
    for (std::int32_t y0 = 0; y0 < rows; y0 += kRowBlock)
      AddColumns<2>(line + y0 * step + x, step, Min(rows - y0, kRowBlock), out + x);
  for (; x + 16 <= width; x += 16)
    for (std::int32_t y0 = 0; y0 < rows; y0 += kRowBlock)
      AddColumns<1>(line + y0 * step + x, step, Min(rows - y0, kRowBlock), out + x);
  if (x < width && width >= 16) {
    // The last columns as the 16 that end the row (overlapping ones already summed),
    // summed aside: no byte past the row is read.
    alignas(16) std::uint32_t tail[16] = {};
    const std::int32_t t = width - 16;
    for (std::int32_t y0 = 0; y0 < rows; y0 += kRowBlock)
      AddColumns<1>(line + y0 * step + t, step, Min(rows - y0, kRowBlock), tail);
    for (; x < width; ++x) out[x] += tail[x - t];
  }
  if (x < width) Reference().column_sums(width - x, rows, line + x, step, out + x);
}

std::uint32_t Sum64(__m128i v) {
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(v) + _mm_cvtsi128_si32(_mm_srli_si128(v, 8)));
}

void LaneSums(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows, std::int32_t n,
              std::uint32_t* low, std::uint32_t* high) {
  // Bytes 0 and 1 of each 4-byte group; psadbw adds each half's bytes into 64 bits.
  const __m128i mask = _mm_set1_epi32(0xFFFF);
  const __m128i zero = _mm_setzero_si128();
  for (std::int32_t y = 0; y < rows; ++y, p += step) {
    __m128i lo = zero, all = zero;
    for (std::int32_t i = 0; i < n; i += 16) {
      const __m128i v = Load(p + i);
      lo = _mm_add_epi64(lo, _mm_sad_epu8(_mm_and_si128(v, mask), zero));
      all = _mm_add_epi64(all, _mm_sad_epu8(v, zero));
    }
    const std::uint32_t l = Sum64(lo);
    low[y] = l;
    high[y] = Sum64(all) - l;
  }
}

// The 16 bytes from kTail + r keep the last r bytes of a load, the 8 bytes from
// kTail + 8 + r the last r of an 8-byte load.
constexpr const std::uint8_t* kTail = kTailMask + 16;

// Sum of the bytes of [p, p + n): whole 16-byte loads, the last one overlapping the one
// before it with the overlap masked off, so nothing past p + n is read.
std::uint32_t RowSum(const std::uint8_t* p, std::int32_t n) {
  const __m128i zero = _mm_setzero_si128();
  if (n < 16) {
    if (n < 8) {
      std::uint32_t sum = 0;
      for (std::int32_t i = 0; i < n; ++i) sum += p[i];
      return sum;
    }
    const __m128i head = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    const __m128i tail =
        _mm_and_si128(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + n - 8)),
                      _mm_loadl_epi64(reinterpret_cast<const __m128i*>(kTail + n)));
    return Sum64(_mm_sad_epu8(_mm_unpacklo_epi64(head, tail), zero));
  }
  __m128i acc = zero;
  std::int32_t i = 0;
  for (; i + 16 <= n; i += 16) acc = _mm_add_epi64(acc, _mm_sad_epu8(Load(p + i), zero));
  if (i < n)
    acc = _mm_add_epi64(acc,
                        _mm_sad_epu8(_mm_and_si128(Load(p + n - 16), Load(kTail + (n - i))), zero));
  return Sum64(acc);
}

void RowSums(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows, std::int32_t n,
             std::uint32_t* out) {
  for (std::int32_t y = 0; y < rows; ++y, p += step) out[y] = RowSum(p, n);
}

std::uint32_t SumWords(__m128i v) {
  v = _mm_add_epi32(v, _mm_srli_si128(v, 8));
  v = _mm_add_epi32(v, _mm_srli_si128(v, 4));
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(v));
}

// |a - b| of entries below 2^31: the signed difference does not overflow.
__m128i AbsDiff(__m128i a, __m128i b) {
  const __m128i d = _mm_sub_epi32(a, b);
  const __m128i sign = _mm_srai_epi32(d, 31);
  return _mm_sub_epi32(_mm_xor_si128(d, sign), sign);
}

std::uint32_t SadUntil(const std::uint32_t* a, const std::uint32_t* b, std::int32_t m,
                       std::uint32_t limit) {
  std::uint32_t sad = 0;
  std::int32_t i = 0;
  for (; i + 32 <= m && sad < limit; i += 32) {
    __m128i s0 = AbsDiff(Load(a + i), Load(b + i));
    __m128i s1 = AbsDiff(Load(a + i + 4), Load(b + i + 4));
    for (std::int32_t k = 8; k < 32; k += 8) {
      s0 = _mm_add_epi32(s0, AbsDiff(Load(a + i + k), Load(b + i + k)));
      s1 = _mm_add_epi32(s1, AbsDiff(Load(a + i + k + 4), Load(b + i + k + 4)));
    }
    sad += SumWords(_mm_add_epi32(s0, s1));
  }
  if (sad >= limit || i == m) return sad;
  __m128i rest = _mm_setzero_si128();
  for (; i + 4 <= m; i += 4) rest = _mm_add_epi32(rest, AbsDiff(Load(a + i), Load(b + i)));
  sad += SumWords(rest);
  for (; i < m; ++i) sad += a[i] > b[i] ? a[i] - b[i] : b[i] - a[i];
  return sad;
}

// 32-bit products of 16-bit weights and 16-bit pixels, low four and high four.
void Products(__m128i w, __m128i px, __m128i* lo, __m128i* hi) {
  const __m128i l = _mm_mullo_epi16(w, px), h = _mm_mulhi_epu16(w, px);
  *lo = _mm_unpacklo_epi16(l, h);
  *hi = _mm_unpackhi_epi16(l, h);
}

// Eight pixels of the fade from bytes (low half of `f8`, `s8`) and weights in registers.
__m128i FadeBytes(__m128i f8, __m128i s8, __m128i ws, __m128i wf) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i half = _mm_set1_epi32(32768);
  __m128i s_lo, s_hi, f_lo, f_hi;
  Products(ws, _mm_unpacklo_epi8(s8, zero), &s_lo, &s_hi);
  Products(wf, _mm_unpacklo_epi8(f8, zero), &f_lo, &f_hi);
  // At most 2 * 65535 * 255 + 32768 < 2^25; the shift leaves at most 510.
  const __m128i lo = _mm_srli_epi32(_mm_add_epi32(_mm_add_epi32(s_lo, f_lo), half), 16);
  const __m128i hi = _mm_srli_epi32(_mm_add_epi32(_mm_add_epi32(s_hi, f_hi), half), 16);
  const __m128i words = _mm_packs_epi32(lo, hi);
  return _mm_packus_epi16(words, words);
}

// Eight pixels of the fade, from the bytes as they are now.
__m128i Fade8(const std::uint8_t* f, const std::uint8_t* s, const std::uint16_t* ws,
              const std::uint16_t* wf) {
  return FadeBytes(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(f)),
                   _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s)), Load(ws), Load(wf));
}

__m128i Load4(const void* p) {
  std::int32_t v;
  std::memcpy(&v, p, 4);
  return _mm_cvtsi32_si128(v);
}

void Store4(void* p, __m128i v) {
  const std::int32_t x = _mm_cvtsi128_si32(v);
  std::memcpy(p, &x, 4);
}

void FadeQ16(std::uint8_t* f, const std::uint8_t* s, const std::uint16_t* ws,
             const std::uint16_t* wf, std::int32_t n) {
  if (n < 8) return Reference().fade_q16(f, s, ws, wf, n);
  // The last eight are computed first, before the blocks overwrite any of their bytes.
  const __m128i last = Fade8(f + n - 8, s + n - 8, ws + n - 8, wf + n - 8);
  for (std::int32_t k = 0; k + 8 < n; k += 8)
    _mm_storel_epi64(reinterpret_cast<__m128i*>(f + k), Fade8(f + k, s + k, ws + k, wf + k));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(f + n - 8), last);
}

void FadeRows(std::uint8_t* f, std::ptrdiff_t f_step, const std::uint8_t* s, std::ptrdiff_t s_step,
              std::int32_t rows, const std::uint16_t* ws, const std::uint16_t* wf, std::int32_t n) {
  if (n >= 8 || n < 4) {
    for (std::int32_t y = 0; y < rows; ++y) FadeQ16(f + y * f_step, s + y * s_step, ws, wf, n);
    return;
  }
  // Four to seven bytes a row: two overlapping halves of four, both computed before either
  // is stored, with the weights loaded once.
  const std::int32_t j = n - 4;
  auto weights = [j](const std::uint16_t* w) {
    return _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(w)),
                              _mm_loadl_epi64(reinterpret_cast<const __m128i*>(w + j)));
  };
  auto bytes = [j](const std::uint8_t* p) { return _mm_unpacklo_epi32(Load4(p), Load4(p + j)); };
  const __m128i wsv = weights(ws), wfv = weights(wf);
  for (std::int32_t y = 0; y < rows; ++y) {
    std::uint8_t* fr = f + y * f_step;
    const __m128i v = FadeBytes(bytes(fr), bytes(s + y * s_step), wsv, wfv);
    Store4(fr + j, _mm_srli_si128(v, 4));
    Store4(fr, v);
  }
}

__m128i Average16(const std::uint8_t* f, const std::uint8_t* s) {
  // pavgb rounds up: take back the half where the sum is odd.
  const __m128i a = Load(f), b = Load(s);
  return _mm_sub_epi8(_mm_avg_epu8(a, b), _mm_and_si128(_mm_xor_si128(a, b), _mm_set1_epi8(1)));
}

void Average(std::uint8_t* f, const std::uint8_t* s, std::int32_t n) {
  if (n < 16) return Reference().average(f, s, n);
  const __m128i last = Average16(f + n - 16, s + n - 16);  // before any store
  for (std::int32_t k = 0; k + 16 < n; k += 16) Store(f + k, Average16(f + k, s + k));
  Store(f + n - 16, last);
}

// Rows up to 64 bytes in vectors; longer rows go to memmove.
void CopyRows(std::uint8_t* d, std::ptrdiff_t d_step, const std::uint8_t* s, std::ptrdiff_t s_step,
              std::int32_t rows, std::int64_t n) {
  if (n > 64 || n < 4) return Reference().copy_rows(d, d_step, s, s_step, rows, n);
  CopyShortRows<__m128i, std::uint64_t>(d, d_step, s, s_step, rows, static_cast<std::int32_t>(n));
}

void SwapPairs(std::uint8_t* dst, const std::uint8_t* src, std::int64_t pairs) {
  auto swap = [](__m128i v) { return _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8)); };
  if (pairs < 4) return Reference().swap_pairs(dst, src, pairs);
  if (pairs < 8) {  // two overlapping halves
    const __m128i a = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(src));
    const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + 2 * pairs - 8));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), swap(a));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + 2 * pairs - 8), swap(b));
    return;
  }
  const __m128i last = swap(Load(src + 2 * pairs - 16));  // before any store
  for (std::int64_t i = 0; i + 8 < pairs; i += 8) Store(dst + 2 * i, swap(Load(src + 2 * i)));
  Store(dst + 2 * pairs - 16, last);
}

std::uint32_t Total(__m128i acc) {
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(acc) +
                                    _mm_cvtsi128_si32(_mm_unpackhi_epi64(acc, acc)));
}

std::uint32_t BlockSad(const std::uint8_t* a, std::ptrdiff_t a_step, const std::uint8_t* b,
                       std::ptrdiff_t b_step, std::int32_t rows, std::int32_t n,
                       std::int32_t bias, std::uint32_t limit) {
  if (n < 16) return Reference().block_sad(a, a_step, b, b_step, rows, n, bias, limit);
  // Saturating adds are the clamp: one of the two is zero.
  const __m128i up = _mm_set1_epi8(static_cast<char>(bias > 0 ? bias : 0));
  const __m128i down = _mm_set1_epi8(static_cast<char>(bias < 0 ? -bias : 0));
  const std::int32_t r = n & 15;
  // The last partial block as a load overlapping the one before, its first 16 - r bytes
  // masked to zero on both sides.
  const __m128i mask = Load(kTailMask + 16 + r);
  __m128i acc = _mm_setzero_si128();
  for (std::int32_t y = 0; y < rows; ++y, a += a_step, b += b_step) {
    if ((y & 7) == 0 && y > 0 && Total(acc) >= limit) break;
    std::int32_t x = 0;
    for (; x + 16 <= n; x += 16) {
      const __m128i va = _mm_subs_epu8(_mm_adds_epu8(Load(a + x), up), down);
      acc = _mm_add_epi64(acc, _mm_sad_epu8(va, Load(b + x)));
    }
    if (r != 0) {
      const __m128i va = _mm_subs_epu8(_mm_adds_epu8(Load(a + n - 16), up), down);
      acc = _mm_add_epi64(acc, _mm_sad_epu8(_mm_and_si128(va, mask),
                                            _mm_and_si128(Load(b + n - 16), mask)));
    }
  }
  return Total(acc);
}

constexpr KernelSet kSse2{"sse2",   ColumnSums, LaneSums, RowSums,  SadUntil, FadeQ16,
                          FadeRows, Average,    CopyRows, SwapPairs, BlockSad};

}  // namespace

const KernelSet* Sse2Set() {
  return &kSse2;
}

}  // namespace lumivex::kernels

#else

namespace lumivex::kernels {
const KernelSet* Sse2Set() {
  return nullptr;
}
}  // namespace lumivex::kernels

#endif
