// NEON kernels (32-bit ARM with NEON, as armeabi-v7a, and AArch64): chosen at compile
// time, as every core such a build runs on has NEON.
#include "src/kernels/kernels.h"

#if defined(__ARM_NEON)
#include <arm_neon.h>

#include <cstring>

#include "src/kernels/copy_rows_inl.h"

namespace lumivex::kernels {
namespace {

// No standard-library templates here: an out-of-line copy built with this file's flags
// could be the one the linker keeps for the whole library.
constexpr std::int32_t Min(std::int32_t a, std::int32_t b) {
  return a < b ? a : b;
}

// Adds eight 16-bit lanes into out[0..8) as 32-bit sums.
void FlushWords(uint16x8_t acc, std::uint32_t* out) {
  vst1q_u32(out, vaddw_u16(vld1q_u32(out), vget_low_u16(acc)));
  vst1q_u32(out + 4, vaddw_u16(vld1q_u32(out + 4), vget_high_u16(acc)));
}

// Column sums of 64 columns over rows >= 1 rows, added into out. vld4 reads the 64 bytes
// in one instruction, spread over four vectors by column modulo 4; vst4 puts the sums
// back in order. The sums start from the first row rather than from zero: gcc then
// updates them in place instead of copying every one of them on each row.
void AddColumns64(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows,
                  std::uint32_t* out) {
  uint8x16x4_t v = vld4q_u8(p);
  uint16x8_t l0 = vmovl_u8(vget_low_u8(v.val[0])), h0 = vmovl_u8(vget_high_u8(v.val[0]));
  uint16x8_t l1 = vmovl_u8(vget_low_u8(v.val[1])), h1 = vmovl_u8(vget_high_u8(v.val[1]));
  uint16x8_t l2 = vmovl_u8(vget_low_u8(v.val[2])), h2 = vmovl_u8(vget_high_u8(v.val[2]));
  uint16x8_t l3 = vmovl_u8(vget_low_u8(v.val[3])), h3 = vmovl_u8(vget_high_u8(v.val[3]));
  auto add = [&](const uint8x16x4_t& r) {
    l0 = vaddw_u8(l0, vget_low_u8(r.val[0]));
    h0 = vaddw_u8(h0, vget_high_u8(r.val[0]));
    l1 = vaddw_u8(l1, vget_low_u8(r.val[1]));
    h1 = vaddw_u8(h1, vget_high_u8(r.val[1]));
    l2 = vaddw_u8(l2, vget_low_u8(r.val[2]));
    h2 = vaddw_u8(h2, vget_high_u8(r.val[2]));
    l3 = vaddw_u8(l3, vget_low_u8(r.val[3]));
    h3 = vaddw_u8(h3, vget_high_u8(r.val[3]));
  };
  // Two rows a turn share the loop's own instructions.
  std::int32_t y = 1;
  for (; y + 2 <= rows; y += 2) {
    add(vld4q_u8(p + step));
    p += 2 * step;
    add(vld4q_u8(p));
  }
  if (y < rows) add(vld4q_u8(p + step));
  std::uint16_t sums[64];
  const uint16x8x4_t low = {{l0, l1, l2, l3}}, high = {{h0, h1, h2, h3}};
  vst4q_u16(sums, low);  // clang's vst4q_u16 is a macro: no braces in its arguments
  vst4q_u16(sums + 32, high);
  for (int k = 0; k < 64; k += 8) FlushWords(vld1q_u16(sums + k), out + k);
}

// The same for 16 columns.
void AddColumns16(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows,
                  std::uint32_t* out) {
  uint8x16_t v = vld1q_u8(p);
  uint16x8_t lo = vmovl_u8(vget_low_u8(v)), hi = vmovl_u8(vget_high_u8(v));
  for (std::int32_t y = 1; y < rows; ++y) {
    p += step;
    v = vld1q_u8(p);
    lo = vaddw_u8(lo, vget_low_u8(v));
    hi = vaddw_u8(hi, vget_high_u8(v));
  }
  FlushWords(lo, out);
  FlushWords(hi, out + 8);
}

// The same for eight columns.
void AddColumns8(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows,
                 std::uint32_t* out) {
  uint16x8_t a = vmovl_u8(vld1_u8(p));
  for (std::int32_t y = 1; y < rows; ++y) {
    p += step;
    a = vaddw_u8(a, vld1_u8(p));
  }
  FlushWords(a, out);
}

void ColumnSums(std::int32_t width, std::int32_t rows, const std::uint8_t* line,
                std::ptrdiff_t step, std::uint32_t* out) {
  // 257 rows of 255 still fit the 16-bit lanes.
  constexpr std::int32_t kRowBlock = 257;
  std::int32_t x = 0;
  for (; x + 64 <= width; x += 64)
    for (std::int32_t y0 = 0; y0 < rows; y0 += kRowBlock)
      AddColumns64(line + y0 * step + x, step, Min(rows - y0, kRowBlock), out + x);
  for (; x + 16 <= width; x += 16)
    for (std::int32_t y0 = 0; y0 < rows; y0 += kRowBlock)
      AddColumns16(line + y0 * step + x, step, Min(rows - y0, kRowBlock), out + x);
  for (; x + 8 <= width; x += 8)
    for (std::int32_t y0 = 0; y0 < rows; y0 += kRowBlock)
      AddColumns8(line + y0 * step + x, step, Min(rows - y0, kRowBlock), out + x);
  if (x < width && width >= 8) {
    // The last columns as the 8 that end the row (overlapping ones already summed),
    // summed aside: no byte past the row is read.
    std::uint32_t tail[8] = {};
    const std::int32_t t = width - 8;
    for (std::int32_t y0 = 0; y0 < rows; y0 += kRowBlock)
      AddColumns8(line + y0 * step + t, step, Min(rows - y0, kRowBlock), tail);
    for (; x < width; ++x) out[x] += tail[x - t];
  }
  if (x < width) Reference().column_sums(width - x, rows, line + x, step, out + x);
}

std::uint32_t SumLanes(uint32x4_t v) {
  const uint32x2_t s = vadd_u32(vget_low_u32(v), vget_high_u32(v));
  return vget_lane_u32(vpadd_u32(s, s), 0);
}

void LaneSums(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows, std::int32_t n,
              std::uint32_t* low, std::uint32_t* high) {
  const uint32x4_t mask = vdupq_n_u32(0xFFFF);
  for (std::int32_t y = 0; y < rows; ++y, p += step) {
    uint32x4_t lo = vdupq_n_u32(0), hi = lo;
    std::int32_t i = 0;
    // 64 bytes a step through vld4, whose k-th vector holds the bytes at offset k modulo
    // 4: the first two go to the low sums, the last two to the high ones. A 16-bit lane
    // gains at most 1020 a step: 64 steps before a flush.
    while (n - i >= 64) {
      const std::int32_t end = i + Min((n - i) & ~63, 64 * 64);
      uint16x8_t l = vdupq_n_u16(0), h = l;
      for (; i < end; i += 64) {
        const uint8x16x4_t v = vld4q_u8(p + i);
        l = vpadalq_u8(vpadalq_u8(l, v.val[0]), v.val[1]);
        h = vpadalq_u8(vpadalq_u8(h, v.val[2]), v.val[3]);
      }
      lo = vpadalq_u16(lo, l);
      hi = vpadalq_u16(hi, h);
    }
    // At most three 16-byte loads: pairwise adds put bytes 0+1 of each group in the even
    // 16-bit lanes and 2+3 in the odd ones.
    if (i < n) {
      uint16x8_t acc = vdupq_n_u16(0);
      for (; i < n; i += 16) acc = vpadalq_u8(acc, vld1q_u8(p + i));
      const uint32x4_t words = vreinterpretq_u32_u16(acc);
      lo = vaddq_u32(lo, vandq_u32(words, mask));
      hi = vaddq_u32(hi, vshrq_n_u32(words, 16));
    }
    low[y] = SumLanes(lo);
    high[y] = SumLanes(hi);
  }
}

// The 16 bytes from kTail + r keep the last r bytes of a load, the 8 bytes from
// kTail + 8 + r the last r of an 8-byte load.
constexpr const std::uint8_t* kTail = kTailMask + 16;

std::uint32_t SumPairs(uint16x4_t v) {
  const uint64x1_t s = vpaddl_u32(vpaddl_u16(v));
  return static_cast<std::uint32_t>(vget_lane_u64(s, 0));
}

// Sum of the bytes of [p, p + n) for 16 <= n <= 2048. The bytes past the last whole 16
// come from the row's last 16 bytes with the rest masked off (all of them when n is a
// multiple of 16), so nothing past p + n is read. The whole 64-byte blocks go through
// vld4, which spreads them over four vectors: the sum does not care, and one vld4 is
// fewer instructions than four loads. A 16-bit lane gains at most 510 a load: the limit
// on n keeps each below 70 loads.
std::uint32_t PieceSum(const std::uint8_t* p, std::int32_t n) {
  uint16x8_t a = vpaddlq_u8(vandq_u8(vld1q_u8(p + n - 16), vld1q_u8(kTail + (n & 15))));
  uint16x8_t b = vdupq_n_u16(0);
  const std::uint8_t* q = p;
  for (const std::uint8_t* end = p + (n & ~63); q != end; q += 64) {
    const uint8x16x4_t v = vld4q_u8(q);
    a = vpadalq_u8(vpadalq_u8(a, v.val[0]), v.val[1]);
    b = vpadalq_u8(vpadalq_u8(b, v.val[2]), v.val[3]);
  }
  for (const std::uint8_t* end = p + (n & ~15); q != end; q += 16) a = vpadalq_u8(a, vld1q_u8(q));
  return SumLanes(vpadalq_u16(vpaddlq_u16(a), b));
}

std::uint32_t RowSum(const std::uint8_t* p, std::int32_t n) {
  std::uint32_t sum = 0;
  for (; n > 2048; p += 2048, n -= 2048) sum += PieceSum(p, 2048);
  if (n >= 16) return sum + PieceSum(p, n);
  if (n >= 8) {
    const uint8x8_t tail = vand_u8(vld1_u8(p + n - 8), vld1_u8(kTail + n));
    return sum + SumPairs(vpadal_u8(vpaddl_u8(vld1_u8(p)), tail));
  }
  for (std::int32_t i = 0; i < n; ++i) sum += p[i];
  return sum;
}

// The four sums of a, b, c and d's lanes, in that order.
uint32x4_t SumsOf4(uint32x4_t a, uint32x4_t b, uint32x4_t c, uint32x4_t d) {
  const uint32x2_t ab = vpadd_u32(vadd_u32(vget_low_u32(a), vget_high_u32(a)),
                                  vadd_u32(vget_low_u32(b), vget_high_u32(b)));
  const uint32x2_t cd = vpadd_u32(vadd_u32(vget_low_u32(c), vget_high_u32(c)),
                                  vadd_u32(vget_low_u32(d), vget_high_u32(d)));
  return vcombine_u32(ab, cd);
}

// PieceSum of four rows at once, for 16 <= n <= 1024 (at most 65 loads a lane): the loop
// and the final additions are shared.
void PieceSums4(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t n, std::uint32_t* out) {
  const std::uint8_t* r[4] = {p, p + step, p + 2 * step, p + 3 * step};
  const uint8x16_t mask = vld1q_u8(kTail + (n & 15));
  uint16x8_t a0 = vpaddlq_u8(vandq_u8(vld1q_u8(r[0] + n - 16), mask));
  uint16x8_t a1 = vpaddlq_u8(vandq_u8(vld1q_u8(r[1] + n - 16), mask));
  uint16x8_t a2 = vpaddlq_u8(vandq_u8(vld1q_u8(r[2] + n - 16), mask));
  uint16x8_t a3 = vpaddlq_u8(vandq_u8(vld1q_u8(r[3] + n - 16), mask));
  auto add4 = [](uint16x8_t a, const uint8x16x4_t& v) {
    return vpadalq_u8(vpadalq_u8(vpadalq_u8(vpadalq_u8(a, v.val[0]), v.val[1]), v.val[2]),
                      v.val[3]);
  };
  std::int32_t i = 0;
  for (; i + 64 <= n; i += 64) {
    a0 = add4(a0, vld4q_u8(r[0] + i));
    a1 = add4(a1, vld4q_u8(r[1] + i));
    a2 = add4(a2, vld4q_u8(r[2] + i));
    a3 = add4(a3, vld4q_u8(r[3] + i));
  }
  for (; i + 16 <= n; i += 16) {
    a0 = vpadalq_u8(a0, vld1q_u8(r[0] + i));
    a1 = vpadalq_u8(a1, vld1q_u8(r[1] + i));
    a2 = vpadalq_u8(a2, vld1q_u8(r[2] + i));
    a3 = vpadalq_u8(a3, vld1q_u8(r[3] + i));
  }
  vst1q_u32(out, SumsOf4(vpaddlq_u16(a0), vpaddlq_u16(a1), vpaddlq_u16(a2), vpaddlq_u16(a3)));
}

// Four rows of 8 <= n < 16 bytes: the first 8 and the masked last 8 of each.
void ShortSums4(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t n, std::uint32_t* out) {
  const uint8x8_t mask = vld1_u8(kTail + n);
  uint16x4_t s[4];
  for (int k = 0; k < 4; ++k, p += step)
    s[k] = vpadal_u8(vpaddl_u8(vld1_u8(p)), vand_u8(vld1_u8(p + n - 8), mask));
  const uint32x4_t s01 = vpaddlq_u16(vcombine_u16(s[0], s[1]));  // r0 r0 r1 r1
  const uint32x4_t s23 = vpaddlq_u16(vcombine_u16(s[2], s[3]));
  vst1q_u32(out, vcombine_u32(vpadd_u32(vget_low_u32(s01), vget_high_u32(s01)),
                              vpadd_u32(vget_low_u32(s23), vget_high_u32(s23))));
}

void RowSums(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows, std::int32_t n,
             std::uint32_t* out) {
  std::int32_t y = 0;
  if (n >= 16 && n <= 1024) {
    for (; y + 4 <= rows; y += 4, p += 4 * step) PieceSums4(p, step, n, out + y);
  } else if (n >= 8 && n < 16) {
    for (; y + 4 <= rows; y += 4, p += 4 * step) ShortSums4(p, step, n, out + y);
  }
  for (; y < rows; ++y, p += step) out[y] = RowSum(p, n);
}

std::uint32_t SadUntil(const std::uint32_t* a, const std::uint32_t* b, std::int32_t m,
                       std::uint32_t limit) {
  // vld4 loads 16 entries at once, spread over four vectors in the same way for a and b,
  // so that each entry still meets its partner. Half a block at a time: a whole block's
  // loads would need more registers than there are and spill.
  std::uint32_t sad = 0;
  std::int32_t i = 0;
  const std::int32_t full = m & ~31;
  for (; i < full; i += 32) {
    if (sad >= limit) return sad;
    uint32x4x4_t va = vld4q_u32(a + i), vb = vld4q_u32(b + i);
    uint32x4_t s0 = vabdq_u32(va.val[0], vb.val[0]), s1 = vabdq_u32(va.val[1], vb.val[1]);
    s0 = vabaq_u32(s0, va.val[2], vb.val[2]);
    s1 = vabaq_u32(s1, va.val[3], vb.val[3]);
    va = vld4q_u32(a + i + 16);
    vb = vld4q_u32(b + i + 16);
    s0 = vabaq_u32(s0, va.val[0], vb.val[0]);
    s1 = vabaq_u32(s1, va.val[1], vb.val[1]);
    s0 = vabaq_u32(s0, va.val[2], vb.val[2]);
    s1 = vabaq_u32(s1, va.val[3], vb.val[3]);
    sad += SumLanes(vaddq_u32(s0, s1));
  }
  if (sad >= limit || i == m) return sad;
  uint32x4_t rest = vdupq_n_u32(0);
  for (; i + 4 <= m; i += 4) rest = vabaq_u32(rest, vld1q_u32(a + i), vld1q_u32(b + i));
  sad += SumLanes(rest);
  for (; i < m; ++i) sad += a[i] > b[i] ? a[i] - b[i] : b[i] - a[i];
  return sad;
}

// Eight pixels: (ws * s + wf * f + 32768) >> 16, saturated to a byte. The sums stay below
// 2^25, and the rounding shift adds the 32768.
uint8x8_t Fade8(uint8x8_t s, uint8x8_t f, uint16x8_t ws, uint16x8_t wf) {
  const uint16x8_t s16 = vmovl_u8(s), f16 = vmovl_u8(f);
  uint32x4_t lo = vmull_u16(vget_low_u16(ws), vget_low_u16(s16));
  uint32x4_t hi = vmull_u16(vget_high_u16(ws), vget_high_u16(s16));
  lo = vmlal_u16(lo, vget_low_u16(wf), vget_low_u16(f16));
  hi = vmlal_u16(hi, vget_high_u16(wf), vget_high_u16(f16));
  return vqmovn_u16(vcombine_u16(vrshrn_n_u32(lo, 16), vrshrn_n_u32(hi, 16)));
}

void FadeQ16(std::uint8_t* f, const std::uint8_t* s, const std::uint16_t* ws,
             const std::uint16_t* wf, std::int32_t n) {
  if (n < 8) return Reference().fade_q16(f, s, ws, wf, n);
  auto fade = [&](std::int32_t k) {
    return Fade8(vld1_u8(s + k), vld1_u8(f + k), vld1q_u16(ws + k), vld1q_u16(wf + k));
  };
  const uint8x8_t last = fade(n - 8);  // before the blocks overwrite any of its bytes
  for (std::int32_t k = 0; k + 8 < n; k += 8) vst1_u8(f + k, fade(k));
  vst1_u8(f + n - 8, last);
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
  auto bytes = [j](const std::uint8_t* p) {
    std::uint32_t a, b;
    std::memcpy(&a, p, 4);
    std::memcpy(&b, p + j, 4);
    return vreinterpret_u8_u32(vset_lane_u32(b, vdup_n_u32(a), 1));
  };
  const uint16x8_t wsv = vcombine_u16(vld1_u16(ws), vld1_u16(ws + j));
  const uint16x8_t wfv = vcombine_u16(vld1_u16(wf), vld1_u16(wf + j));
  for (std::int32_t y = 0; y < rows; ++y) {
    std::uint8_t* fr = f + y * f_step;
    const uint32x2_t v = vreinterpret_u32_u8(Fade8(bytes(s + y * s_step), bytes(fr), wsv, wfv));
    const std::uint32_t lo = vget_lane_u32(v, 0), hi = vget_lane_u32(v, 1);
    std::memcpy(fr + j, &hi, 4);
    std::memcpy(fr, &lo, 4);
  }
}

void Average(std::uint8_t* f, const std::uint8_t* s, std::int32_t n) {
  if (n < 8) return Reference().average(f, s, n);
  if (n < 16) {
    const uint8x8_t last = vhadd_u8(vld1_u8(f + n - 8), vld1_u8(s + n - 8));
    vst1_u8(f, vhadd_u8(vld1_u8(f), vld1_u8(s)));
    vst1_u8(f + n - 8, last);
    return;
  }
  const uint8x16_t last = vhaddq_u8(vld1q_u8(f + n - 16), vld1q_u8(s + n - 16));
  for (std::int32_t k = 0; k + 16 < n; k += 16)
    vst1q_u8(f + k, vhaddq_u8(vld1q_u8(f + k), vld1q_u8(s + k)));
  vst1q_u8(f + n - 16, last);
}

// Rows up to 64 bytes in vectors; longer rows go to memmove.
void CopyRows(std::uint8_t* d, std::ptrdiff_t d_step, const std::uint8_t* s, std::ptrdiff_t s_step,
              std::int32_t rows, std::int64_t n) {
  if (n > 64 || n < 4) return Reference().copy_rows(d, d_step, s, s_step, rows, n);
  CopyShortRows<uint8x16_t, uint8x8_t>(d, d_step, s, s_step, rows, static_cast<std::int32_t>(n));
}

void SwapPairs(std::uint8_t* dst, const std::uint8_t* src, std::int64_t pairs) {
  if (pairs < 4) return Reference().swap_pairs(dst, src, pairs);
  if (pairs < 8) {  // two overlapping halves
    const uint8x8_t a = vrev16_u8(vld1_u8(src));
    const uint8x8_t b = vrev16_u8(vld1_u8(src + 2 * pairs - 8));
    vst1_u8(dst, a);
    vst1_u8(dst + 2 * pairs - 8, b);
    return;
  }
  const uint8x16_t last = vrev16q_u8(vld1q_u8(src + 2 * pairs - 16));  // before any store
  for (std::int64_t i = 0; i + 8 < pairs; i += 8)
    vst1q_u8(dst + 2 * i, vrev16q_u8(vld1q_u8(src + 2 * i)));
  vst1q_u8(dst + 2 * pairs - 16, last);
}

std::uint32_t BlockSad(const std::uint8_t* a, std::ptrdiff_t a_step, const std::uint8_t* b,
                       std::ptrdiff_t b_step, std::int32_t rows, std::int32_t n,
                       std::int32_t bias, std::uint32_t limit) {
  if (n < 16) return Reference().block_sad(a, a_step, b, b_step, rows, n, bias, limit);
  // Saturating adds are the clamp: one of the two is zero.
  const uint8x16_t up = vdupq_n_u8(static_cast<std::uint8_t>(bias > 0 ? bias : 0));
  const uint8x16_t down = vdupq_n_u8(static_cast<std::uint8_t>(bias < 0 ? -bias : 0));
  const std::int32_t r = n & 15;
  // The last partial block as a load overlapping the one before, its first 16 - r bytes
  // masked off.
  const uint8x16_t mask = vld1q_u8(kTailMask + 16 + r);
  uint32x4_t total = vdupq_n_u32(0);
  auto sum = [&total] {
    const uint64x2_t pairs = vpaddlq_u32(total);
    return static_cast<std::uint32_t>(vgetq_lane_u64(pairs, 0) + vgetq_lane_u64(pairs, 1));
  };
  for (std::int32_t y = 0; y < rows; ++y, a += a_step, b += b_step) {
    if ((y & 7) == 0 && y > 0 && sum() >= limit) break;
    std::int32_t x = 0;
    // Sixteen-bit lanes gain at most 510 a block: flushed every 2048 bytes.
    while (x + 16 <= n) {
      uint16x8_t acc = vdupq_n_u16(0);
      const std::int32_t end = Min(n & ~15, x + 2048);
      for (; x < end; x += 16) {
        const uint8x16_t va = vqsubq_u8(vqaddq_u8(vld1q_u8(a + x), up), down);
        acc = vpadalq_u8(acc, vabdq_u8(va, vld1q_u8(b + x)));
      }
      total = vpadalq_u16(total, acc);
    }
    if (r != 0) {
      uint16x8_t acc = vdupq_n_u16(0);
      const uint8x16_t va = vqsubq_u8(vqaddq_u8(vld1q_u8(a + n - 16), up), down);
      acc = vpadalq_u8(acc, vandq_u8(vabdq_u8(va, vld1q_u8(b + n - 16)), mask));
      total = vpadalq_u16(total, acc);
    }
  }
  return sum();
}

constexpr KernelSet kNeon{"neon",   ColumnSums, LaneSums, RowSums,  SadUntil, FadeQ16,
                          FadeRows, Average,    CopyRows, SwapPairs, BlockSad};

}  // namespace

const KernelSet* NeonSet() {
  return &kNeon;
}

}  // namespace lumivex::kernels

#else

namespace lumivex::kernels {
const KernelSet* NeonSet() {
  return nullptr;
}
}  // namespace lumivex::kernels

#endif
