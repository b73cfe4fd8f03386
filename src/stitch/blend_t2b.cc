// Top-to-bottom seam blending: the second image joins the first across a horizontal seam,
// one seam row per column; the band runs down each column.
#include <algorithm>
#include <cstdint>

#include "src/stitch/blend_internal.h"

namespace lumivex::stitch {
namespace {

// A column of samples: `first` and `second` point at the overlap's top sample, the rows
// in [lo, hi) exist in both images.
struct Column {
  std::uint8_t* first;
  const std::uint8_t* second;
  std::ptrdiff_t pitch1, pitch2;
  std::int64_t lo, hi;
  // The second plane and the offset of `second` in it, for reads off the column.
  const PlaneView* second_plane;
  std::int64_t second_offset;

  bool Has(std::int64_t r) const { return r >= lo && r < hi; }
  std::uint8_t& F(std::int64_t r) const { return first[r * pitch1]; }
  std::uint8_t S(std::int64_t r) const { return second[r * pitch2]; }
};

void BlendColumnAlongSeam(const Column& col, std::int32_t h, std::int32_t seam, std::int32_t band,
                          std::int32_t side) {
  const std::int32_t w = g_BlendTableWidth;
  const std::int32_t* t = g_BlendTable;
  if (side != 0 && w > band) {
    // The averaging band does not advance: one sample takes B running averages while
    // the second image is read stepping by both pitches, then H - B samples are copied
    // from where that stepping ended.
    const std::int64_t start = std::int64_t{seam} - (std::int64_t{band} - 1) / 2;
    if (!col.Has(start)) return;
    std::uint8_t& target = col.F(start);
    std::uint8_t value = target;
    std::int64_t offset = col.second_offset + start * col.pitch2;
    for (std::int32_t i = 0; i < band; ++i, offset += col.pitch1 + col.pitch2) {
      if (const std::uint8_t* s = col.second_plane->At(offset))
        value = static_cast<std::uint8_t>((*s + value) >> 1);
      target = value;
    }
    for (std::int64_t i = 0; i < h - band; ++i, offset += col.pitch2) {
      const std::uint8_t* s = col.second_plane->At(offset);
      if (s != nullptr && col.Has(start + i)) col.F(start + i) = *s;
    }
    return;
  }
  // Side 0 always uses the weighted band, however narrow the seam's spread.
  const std::int64_t start = std::int64_t{seam} - (w - 1) / 2;
  for (std::int32_t k = 0; k < w; ++k) {
    const std::int64_t r = start + k;
    if (!col.Has(r)) continue;
    col.F(r) = side == 0 ? Rule(t[k], col.S(r), t[w - 1 - k], col.F(r))
                         : Rule(t[k], col.F(r), t[w - 1 - k], col.S(r));
  }
  const std::int64_t from = side == 0 ? 0 : start + w;
  const std::int64_t to = side == 0 ? start : h;
  for (std::int64_t r = std::max(from, col.lo); r < std::min(to, col.hi); ++r) col.F(r) = col.S(r);
}

// Packed 4:2:2 with luminance in the even bytes, down each pixel column: both bytes of a
// pixel take the zones and weights of its row; the second image's chroma byte is the
// one of the same component.
void BlendPackedColumn(const Column& luma, const Column* chroma, std::int32_t h, std::int32_t seam,
                       std::int32_t band, std::int32_t side) {
  const std::int32_t w = g_BlendTableWidth;
  const std::int32_t* t = g_BlendTable;
  const bool averaged = w > band;
  const std::int32_t n = averaged ? band : w;
  const std::int64_t start = std::int64_t{seam} - (std::int64_t{n} - 1) / 2;
  for (const Column* col : {&luma, chroma}) {
    if (col == nullptr) continue;
    for (std::int32_t k = 0; k < n; ++k) {
      const std::int64_t r = start + k;
      if (!col->Has(r)) continue;
      std::uint8_t& f = col->F(r);
      const std::uint8_t s = col->S(r);
      f = averaged    ? static_cast<std::uint8_t>((f + s) >> 1)
          : side == 0 ? Rule(t[k], s, t[w - 1 - k], f)
                      : Rule(t[k], f, t[w - 1 - k], s);
    }
    const std::int64_t from = side == 0 ? 0 : start + n;
    const std::int64_t to = side == 0 ? start : h;
    for (std::int64_t r = std::max(from, col->lo); r < std::min(to, col->hi); ++r)
      col->F(r) = col->S(r);
  }
}

// Planar chroma down the columns over the whole chroma overlap height.
std::int32_t PlanarChromaT2B(ZMOSIMAGE& first, const ZMOSIMAGE& second, const ZMOSRECT& r1,
                             const ZMOSRECT& r2, std::int32_t* path, std::int32_t side,
                             MHandle mem) {
  const ChromaOverlap o = PlanarChromaOverlap(first, &r1, &r2);
  for (std::int32_t i = 0; i < o.cols; ++i) {
    const std::int32_t v = o.half_cols ? path[2 * i] : path[i];
    path[i] = o.half_rows ? v / 2 : v;
  }
  const std::int32_t hc = o.rows & ~1;
  std::int32_t* t = AllocTable(hc, mem);
  if (t == nullptr) return ZMOS_ERR_NO_MEMORY;
  for (int p = 1; p <= 2; ++p) {
    const PlaneView a = ViewOf(first, p), b = ViewOf(second, p);
    const RowRange rows = CommonRows(a, o.row1, b, o.row2, o.rows);
    const std::int64_t cols =
        std::min<std::int64_t>({o.cols, a.row_bytes - o.col1, b.row_bytes - o.col2});
    for (std::int64_t r = rows.lo; r < rows.hi; ++r) {
      std::uint8_t* f = a.Row(o.row1 + r) + o.col1;
      const std::uint8_t* s = b.Row(o.row2 + r) + o.col2;
      for (std::int64_t c = std::max<std::int64_t>({0, -o.col1, -o.col2}); c < cols; ++c) {
        if (r < hc) {
          f[c] = side == 0 ? Rule(t[r], s[c], t[hc - 1 - r], f[c])
                           : Rule(t[hc - 1 - r], s[c], t[r], f[c]);
        } else if (side != 0 && p == 1) {
          f[c] = s[c];  // the odd last row: plane 1 takes the second image, plane 2 keeps
        }
      }
    }
  }
  MMemFree(mem, t);
  return ZMOS_OK;
}

std::int32_t InterleavedChromaT2B(ZMOSIMAGE& first, const ZMOSIMAGE& second, const ZMOSRECT* r1,
                                  const ZMOSRECT* r2, std::int32_t* path, std::int32_t side,
                                  MHandle mem) {
  const InterleavedOverlap o = InterleavedChromaOverlap(first, r1, r2);
  const auto hc = static_cast<std::int32_t>(o.rows & ~std::int64_t{1});
  std::int32_t* t = AllocTable(hc, mem);
  if (t == nullptr) return ZMOS_ERR_NO_MEMORY;
  if (first.dwFormat < ZMOS_FORMAT_SEMIPLANAR420_801 ||
      first.dwFormat > ZMOS_FORMAT_SEMIPLANAR422_803) {
    MMemFree(mem, t);
    return ZMOS_ERR_UNSUPPORTED_FORMAT;
  }
  if (first.dwFormat != ZMOS_FORMAT_SEMIPLANAR422_803 && path != nullptr)
    for (std::int64_t j = 0; j < o.width; ++j) path[j] /= 2;  // seam row to chroma row

  const PlaneView a = ViewOf(first, 1), b = ViewOf(second, 1);
  const RowRange range = CommonRows(a, o.row1, b, o.row2, o.rows);
  for (std::int64_t k = 0; k < o.width; ++k) {
    const std::int64_t src = o.Source(k);
    if (src < 0 || src >= b.row_bytes) continue;
    // Side 0 follows the seam: only the rows above it; the other side blends the last
    // hc rows whatever the seam.
    std::int64_t lo = o.rows - hc, hi = o.rows;
    if (side == 0) {
      lo = 0;
      hi = path != nullptr ? std::min<std::int64_t>(path[k], hc) : 0;
    }
    for (std::int64_t i = std::max(lo, range.lo); i < std::min(hi, range.hi); ++i) {
      std::uint8_t& f = a.Row(o.row1 + i)[o.left + k];
      const std::uint8_t s = b.Row(o.row2 + i)[src];
      const std::int64_t n = i - lo;
      f = side == 0 ? Rule(t[n], s, t[hc - 1 - n], f) : Rule(t[hc - 1 - n], s, t[n], f);
    }
  }
  MMemFree(mem, t);
  return ZMOS_OK;
}

}  // namespace
}  // namespace lumivex::stitch

using namespace lumivex::stitch;

extern "C" {

int32_t BlendLumaAlongSeamT2B(uint8_t* pFirst, const uint8_t* pSecond, int32_t lFirstPitch,
                              int32_t lSecondPitch, int32_t lWidth, int32_t lHeight,
                              const int32_t* plPath, int32_t lBand, int32_t lSide, MHandle) {
  const auto lock = LockBlendTable();
  if (pFirst == nullptr || pSecond == nullptr || plPath == nullptr || lSecondPitch <= 0)
    return ZMOS_ERR_NO_TEXTURE;
  if (g_BlendTable == nullptr) return ZMOS_ERR_NO_TEXTURE;  // released: no weights to read
  // The second plane is the lHeight rows the caller describes; the averaging band's
  // stepping by both pitches stops at their end.
  const PlaneView second{const_cast<std::uint8_t*>(pSecond), lSecondPitch,
                         std::max<std::int32_t>(lHeight, 0), lSecondPitch};
  for (std::int32_t j = 0; j < lWidth; ++j) {
    const Column col{pFirst + j, pSecond + j, lFirstPitch, lSecondPitch, 0, lHeight, &second, j};
    BlendColumnAlongSeam(col, lHeight, plPath[j], lBand, lSide);
  }
  return ZMOS_OK;
}

int32_t BlendInterleavedChromaT2B(ZMOSIMAGE* pFirst, const ZMOSIMAGE* pSecond,
                                  const ZMOSRECT* pFirstRect, const ZMOSRECT* pSecondRect,
                                  int32_t* plPath, int32_t lSide, MHandle hMemMgr) {
  const auto lock = LockBlendTable();
  if (pFirst == nullptr || pSecond == nullptr || !StepRectFits(*pFirst, pFirstRect))
    return ZMOS_ERR_NO_TEXTURE;
  return InterleavedChromaT2B(*pFirst, *pSecond, pFirstRect, pSecondRect, plPath, lSide, hMemMgr);
}

int32_t ZMOSBlendImageOddT2B_AME(ZMOSIMAGE* pFirst, const ZMOSRECT* pFirstRect,
                                 const ZMOSIMAGE* pSecond, const ZMOSRECT* pSecondRect,
                                 int32_t lSide, MHandle hMemMgr) {
  const auto lock = LockBlendTable();
  if (!ValidBlendArguments(pFirst, pFirstRect, pSecond, pSecondRect)) return ZMOS_ERR_NO_TEXTURE;
  const ZMOSRECT& r1 = *pFirstRect;
  const ZMOSRECT& r2 = *pSecondRect;
  const std::int64_t h64 = std::int64_t{r1.lBottom} - r1.lTop;
  const std::int32_t w = r1.lRight - r1.lLeft;
  if (h64 < 1 || w < 1) return ZMOS_OK;
  if (h64 >= INT32_MAX / 8) return ZMOS_ERR_NO_TEXTURE;
  const auto h = static_cast<std::int32_t>(h64);
  const std::uint32_t format = pFirst->dwFormat;
  const bool planar = format >= ZMOS_FORMAT_I420 && format <= ZMOS_FORMAT_PLANAR444_608;
  const bool semi =
      format >= ZMOS_FORMAT_SEMIPLANAR420_801 && format <= ZMOS_FORMAT_SEMIPLANAR422_803;
  const bool packed = format == ZMOS_FORMAT_YUV422_501 || format == ZMOS_FORMAT_YUV422_502;
  if (const std::int32_t res = ZMOSCreateBlendTable(h, hMemMgr); res != 0) return res;
  if (g_BlendTableWidth < 2) {  // a single row: nothing to blend
    ZMOSReleaseBlendTable();
    return ZMOS_OK;
  }
  BlendWork work(hMemMgr, w + 1, std::int64_t{w} * (h + 1));
  if (!work.ok()) return work.Abandon(ZMOS_ERR_NO_MEMORY);
  std::int32_t* path = work.path;
  // An unknown format is refused with the table built from H still installed.
  if (!planar && !semi && !packed && format != ZMOS_FORMAT_YUV422_503 &&
      format != ZMOS_FORMAT_YUV422_504)
    return work.Abandon(ZMOS_ERR_UNSUPPORTED_FORMAT);

  if (h > g_BlendTableWidth + kSeamSearchMargin) {
    ComputeLumaDiffMap(pFirst, pSecond, pFirstRect, &pSecondRect->lLeft, work.map);
    const std::uint8_t* map = work.map;
    const std::int32_t res = SeamSearch(
        path, h, w,
        [&](std::int32_t row, std::int32_t col) { return map[std::int64_t{row} * w + col]; },
        hMemMgr);
    if (res != 0) return work.Finish(res);
  } else {
    std::fill(path, path + w, (h - 1) / 2);
  }
  const auto [min_p, max_p] = std::minmax_element(path, path + w);
  const std::int32_t band = 2 * std::min({*min_p + 1, 256, h - 1 - *max_p});

  const PlaneView a = ViewOf(*pFirst, 0), b = ViewOf(*pSecond, 0);
  const RowRange rows = CommonRows(a, r1.lTop, b, r2.lTop, h);
  const std::int64_t bpp = packed ? 2 : 1;
  for (std::int32_t j = 0; j < w && (planar || semi || packed); ++j) {
    const std::int64_t col1 = bpp * (std::int64_t{r1.lLeft} + j);
    const std::int64_t col2 = bpp * (std::int64_t{r2.lLeft} + j);
    // Columns the second image does not have leave the first image as it is.
    if (col2 + bpp > b.row_bytes) break;
    const Column luma{a.Row(r1.lTop) + col1,
                      b.Row(r2.lTop) + col2,
                      a.pitch,
                      b.pitch,
                      rows.lo,
                      rows.hi,
                      &b,
                      std::int64_t{r2.lTop} * b.pitch + col2};
    if (!packed) {
      BlendColumnAlongSeam(luma, h, path[j], band, lSide);
      continue;
    }
    // The second image's chroma byte of the same component, by the lefts' parities; one
    // that lies past the second image's row leaves only that chroma byte alone.
    const bool odd1 = r1.lLeft & 1, odd2 = r2.lLeft & 1;
    const std::int64_t off = odd1 == odd2 ? 1 : odd1 ? 3 : -1;
    const bool chroma_in = col2 + off >= 0 && col2 + off < b.row_bytes;
    const Column chroma{luma.first + 1, luma.second + off, a.pitch, b.pitch,
                        rows.lo,        rows.hi,           &b,      luma.second_offset + off};
    BlendPackedColumn(luma, chroma_in ? &chroma : nullptr, h, path[j], band, lSide);
  }
  std::int32_t res = ZMOS_OK;
  if (planar) {
    res = PlanarChromaT2B(*pFirst, *pSecond, r1, r2, path, lSide, hMemMgr);
  } else if (semi) {
    res = InterleavedChromaT2B(*pFirst, *pSecond, pFirstRect, pSecondRect, path, lSide, hMemMgr);
  }
  // A failing chroma step returns its code without freeing anything.
  return res != 0 ? work.Abandon(res) : work.Finish(res);
}

}  // extern "C"
