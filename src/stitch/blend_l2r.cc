// Left-to-right seam blending: the second image joins the first across a vertical seam.
// Every row is split at the seam column into a zone copied from the second image, a band
// cross-faded with the blend table and a zone that keeps the first image.
#include <algorithm>
#include <cstdint>

#include "src/kernels/kernels.h"
#include "src/stitch/blend_internal.h"

namespace lumivex::stitch {
namespace {

// Runs shorter than this are blended pixel by pixel.
constexpr std::int64_t kMinVectorRun = 8;

// One row of the luminance blend over columns [0, w_row) (the overlap's width); only the
// first `s_cols` columns exist in the second image, the rest of the row keeps the first.
// `fade` holds the table's weights for the kernels (null or not ok: per pixel).
void BlendRowAlongSeam(std::uint8_t* f, const std::uint8_t* s, std::int32_t w_row,
                       std::int64_t s_cols, std::int32_t seam, std::int32_t band, std::int32_t side,
                       const FadeWeights* fade) {
  const std::int32_t w = g_BlendTableWidth;
  const std::int32_t* t = g_BlendTable;
  const bool averaged = w > band;
  const std::int32_t n = averaged ? band : w;
  const std::int64_t start = std::int64_t{seam} - (std::int64_t{n} - 1) / 2;
  const std::int64_t lo = std::max<std::int64_t>(start, 0);
  w_row =
      static_cast<std::int32_t>(std::min<std::int64_t>(w_row, std::max<std::int64_t>(s_cols, 0)));
  const std::int64_t hi = std::min<std::int64_t>(start + n, w_row);
  // Bands narrower than a vector stay per pixel: a call costs more than they do.
  if (hi - lo >= kMinVectorRun && (averaged || (fade != nullptr && fade->ok))) {
    const kernels::KernelSet& kern = kernels::Active();
    const auto count = static_cast<std::int32_t>(hi - lo);
    const std::int64_t k0 = lo - start;
    if (averaged) {
      kern.average(f + lo, s + lo, count);
    } else if (side == 0) {
      kern.fade_q16(f + lo, s + lo, fade->up + k0, fade->down + k0, count);
    } else {
      kern.fade_q16(f + lo, s + lo, fade->down + k0, fade->up + k0, count);
    }
  } else {
    for (std::int64_t c = lo; c < hi; ++c) {
      const std::int64_t k = c - start;
      if (averaged) {
        f[c] = static_cast<std::uint8_t>((f[c] + s[c]) >> 1);
      } else if (side == 0) {
        f[c] = Rule(t[k], s[c], t[w - 1 - k], f[c]);
      } else {
        f[c] = Rule(t[k], f[c], t[w - 1 - k], s[c]);
      }
    }
  }
  // The second image's side of the band is copied from it.
  if (side == 0) {
    const std::int64_t end = std::min<std::int64_t>(start, w_row);
    if (end > 0) MMemCpy(f, s, static_cast<std::int32_t>(end));
  } else {
    const std::int64_t from = std::max<std::int64_t>(start + n, 0);
    if (from < w_row) MMemCpy(f + from, s + from, static_cast<std::int32_t>(w_row - from));
  }
}

// Packed 4:2:2 rows with luminance in bytes 0 and 2 of each pixel pair: the same zones as
// the luminance blend, applied to whole pixel pairs counted from the overlap's left.
class PackedRow {
 public:
  PackedRow(std::uint8_t* f, const std::uint8_t* s, std::int32_t w_row, std::int64_t s_avail,
            const PairOrder& order)
      : f_(f), s_(s), bytes_(2 * std::int64_t{w_row}), s_avail_(s_avail), order_(order) {}

  // Copies pixels [a, b) from the second image, pair by pair, then one odd pixel.
  void Copy(std::int64_t a, std::int64_t b) {
    a = std::max<std::int64_t>(a, 0);
    for (std::int64_t q = a; q < b; q += 2) {
      const int count = q + 1 < b ? 4 : 2;
      for (int i = 0; i < count; ++i)
        Put(2 * q, i, [&](std::uint8_t, std::uint8_t v) { return v; });
    }
  }
  // Mixes the pair of pixels starting at pixel q with `mix(first, second)`.
  template <typename Mix>
  void MixPair(std::int64_t q, Mix mix) {
    for (int i = 0; i < 4; ++i) Put(2 * q, i, mix);
  }

 private:
  template <typename Mix>
  void Put(std::int64_t unit, int i, Mix mix) {
    const std::int64_t at = unit + i, from = unit + order_.byte[i];
    if (at < 0 || at >= bytes_ || from < 0 || from >= s_avail_) return;
    f_[at] = mix(f_[at], s_[from]);
  }
  std::uint8_t* f_;
  const std::uint8_t* s_;
  std::int64_t bytes_, s_avail_;
  PairOrder order_;
};

void BlendPackedRow(PackedRow& row, std::int32_t w_row, std::int32_t seam, std::int32_t band,
                    std::int32_t side) {
  const std::int32_t w = g_BlendTableWidth;
  const std::int32_t* t = g_BlendTable;
  const bool averaged = w > band;
  const std::int32_t n = averaged ? band : w;
  const std::int64_t start = std::int64_t{seam} - (std::int64_t{n} - 1) / 2;
  for (std::int32_t j = 0; j < (n & ~1); j += 2) {
    if (averaged) {
      row.MixPair(start + j, [](std::uint8_t a, std::uint8_t b) {
        return static_cast<std::uint8_t>((a + b) >> 1);
      });
    } else if (side == 0) {
      row.MixPair(start + j,
                  [&](std::uint8_t a, std::uint8_t b) { return Rule(t[j], b, t[w - 1 - j], a); });
    } else {
      row.MixPair(start + j,
                  [&](std::uint8_t a, std::uint8_t b) { return Rule(t[j], a, t[w - 1 - j], b); });
    }
  }
  if (side == 0) {
    row.Copy(0, std::min<std::int64_t>(start, w_row));
  } else {
    row.Copy(start + n, w_row);
  }
}

// Rewrites the seam path to chroma resolution in place (it is not used afterwards, but
// callers may look at it).
void PathToChroma(std::int32_t* path, std::int32_t count, bool every_second, bool halve) {
  for (std::int32_t i = 0; i < count; ++i) {
    const std::int32_t v = every_second ? path[2 * i] : path[i];
    path[i] = halve ? v / 2 : v;
  }
}

std::int32_t PlanarChroma(ZMOSIMAGE& first, const ZMOSIMAGE& second, const ZMOSRECT* r1,
                          const ZMOSRECT* r2, std::int32_t* path, std::int32_t side, MHandle mem) {
  if (first.dwFormat < 0x601 || first.dwFormat > 0x608) return ZMOS_ERR_UNSUPPORTED_FORMAT;
  const ChromaOverlap o = PlanarChromaOverlap(first, r1, r2);
  if (path != nullptr) PathToChroma(path, o.rows, o.half_rows, o.half_cols);
  const std::int32_t wc = o.cols & ~1;
  std::int32_t* t = AllocTable(wc, mem);
  if (t == nullptr) return ZMOS_ERR_NO_MEMORY;
  // Chroma is cross-faded over the whole chroma overlap, not along the seam.
  const std::int64_t start = side == 0 ? 0 : o.cols - wc;
  for (int p = 1; p <= 2; ++p) {
    const PlaneView a = ViewOf(first, p), b = ViewOf(second, p);
    const RowRange rows = CommonRows(a, o.row1, b, o.row2, o.rows);
    // Only the chroma columns both planes have (a second position left of the plane, as
    // a host may pass to this step, starts the run later).
    const std::int64_t n =
        std::min<std::int64_t>({wc, a.row_bytes - o.col1 - start, b.row_bytes - o.col2 - start});
    const std::int64_t k0 = std::max<std::int64_t>({0, -(o.col1 + start), -(o.col2 + start)});
    for (std::int64_t r = rows.lo; r < rows.hi; ++r) {
      std::uint8_t* f = a.Row(o.row1 + r) + o.col1 + start;
      const std::uint8_t* s = b.Row(o.row2 + r) + o.col2 + start;
      for (std::int64_t k = k0; k < n; ++k) {
        f[k] = side == 0 ? Rule(t[k], s[k], t[wc - 1 - k], f[k])
                         : Rule(t[wc - 1 - k], s[k], t[k], f[k]);
      }
    }
  }
  MMemFree(mem, t);
  return ZMOS_OK;
}

std::int32_t InterleavedChroma(ZMOSIMAGE& first, const ZMOSIMAGE& second, const ZMOSRECT* r1,
                               const ZMOSRECT* r2, std::int32_t* path, std::int32_t side,
                               MHandle mem) {
  const InterleavedOverlap o = InterleavedChromaOverlap(first, r1, r2);
  const auto w = static_cast<std::int32_t>(o.width & ~std::int64_t{1});
  std::int32_t* t = AllocTable(w, mem);
  if (t == nullptr) return ZMOS_ERR_NO_MEMORY;
  if (first.dwFormat < 0x801 || first.dwFormat > 0x803) {
    MMemFree(mem, t);
    return ZMOS_ERR_UNSUPPORTED_FORMAT;
  }
  if (first.dwFormat != 0x803 && path != nullptr)
    PathToChroma(path, static_cast<std::int32_t>(o.rows), true, false);

  const PlaneView a = ViewOf(first, 1), b = ViewOf(second, 1);
  const RowRange range = CommonRows(a, o.row1, b, o.row2, o.rows);
  // Rows whose second-image bytes run straight (no crosswise pairing) and lie inside its
  // row go through the fade kernel.
  const FadeWeights fade(t, w, true);
  const bool straight =
      fade.ok && w >= kMinVectorRun && !o.crosswise && o.x >= 0 && o.x + w <= b.row_bytes;
  const kernels::KernelSet& kern = kernels::Active();
  for (std::int64_t i = range.lo; i < range.hi; ++i) {
    std::uint8_t* f = a.Row(o.row1 + i) + o.left;
    const std::uint8_t* srow = b.Row(o.row2 + i);
    if (straight) {
      if (side == 0) {
        kern.fade_q16(f, srow + o.x, fade.up, fade.down, w);
      } else {
        kern.fade_q16(f, srow + o.x, fade.down, fade.up, w);
        for (std::int64_t k = w; k < o.width; ++k)
          if (o.x + k < b.row_bytes) f[k] = srow[o.x + k];
      }
      continue;
    }
    auto second_byte = [&](std::int64_t k) -> const std::uint8_t* {
      const std::int64_t col = o.Source(k);
      return col >= 0 && col < b.row_bytes ? srow + col : nullptr;
    };
    // Weights step by pairs: both bytes of pair j take entries 2j and w-1-2j.
    for (std::int64_t k = 0; k < w; ++k) {
      const std::uint8_t* s = second_byte(k);
      if (s == nullptr) continue;
      const std::int32_t near = t[k & ~1], far = t[w - 1 - (k & ~1)];
      f[k] = side == 0 ? Rule(near, *s, far, f[k]) : Rule(far, *s, near, f[k]);
    }
    // The second image's side keeps its last byte when the width is odd.
    if (side != 0) {
      for (std::int64_t k = w; k < o.width; ++k)
        if (const std::uint8_t* s = second_byte(k)) f[k] = *s;
    }
  }
  MMemFree(mem, t);
  return ZMOS_OK;
}

}  // namespace
}  // namespace lumivex::stitch

using namespace lumivex::stitch;

extern "C" {

int32_t BlendPlaneAlongSeam(uint8_t* pFirst, const uint8_t* pSecond, int32_t lFirstPitch,
                            int32_t lSecondPitch, int32_t lWidth, int32_t lHeight,
                            const int32_t* plPath, int32_t lBand, int32_t lSide, MHandle) {
  if (pFirst == nullptr || pSecond == nullptr || plPath == nullptr) return ZMOS_ERR_NO_TEXTURE;
  if (g_BlendTable == nullptr) return ZMOS_ERR_NO_TEXTURE;  // released: no weights to read
  const FadeWeights fade(g_BlendTable, g_BlendTableWidth, false);
  for (std::int32_t r = 0; r < lHeight; ++r)
    BlendRowAlongSeam(pFirst + std::int64_t{r} * lFirstPitch,
                      pSecond + std::int64_t{r} * lSecondPitch, lWidth, lWidth, plPath[r], lBand,
                      lSide, &fade);
  return ZMOS_OK;
}

int32_t BlendPlanarChroma(ZMOSIMAGE* pFirst, const ZMOSIMAGE* pSecond, const ZMOSRECT* pFirstRect,
                          const ZMOSRECT* pSecondRect, int32_t* plPath, int32_t lSide,
                          MHandle hMemMgr) {
  if (pFirst == nullptr || pSecond == nullptr || !StepRectFits(*pFirst, pFirstRect))
    return ZMOS_ERR_NO_TEXTURE;
  return PlanarChroma(*pFirst, *pSecond, pFirstRect, pSecondRect, plPath, lSide, hMemMgr);
}

int32_t BlendInterleavedChroma(ZMOSIMAGE* pFirst, const ZMOSIMAGE* pSecond,
                               const ZMOSRECT* pFirstRect, const ZMOSRECT* pSecondRect,
                               int32_t* plPath, int32_t lSide, MHandle hMemMgr) {
  if (pFirst == nullptr || pSecond == nullptr || !StepRectFits(*pFirst, pFirstRect))
    return ZMOS_ERR_NO_TEXTURE;
  return InterleavedChroma(*pFirst, *pSecond, pFirstRect, pSecondRect, plPath, lSide, hMemMgr);
}

int32_t ZMOSBlendImageOdd_AME(ZMOSIMAGE* pFirst, const ZMOSRECT* pFirstRect,
                              const ZMOSIMAGE* pSecond, const ZMOSRECT* pSecondRect, int32_t lSide,
                              MHandle hMemMgr) {
  if (!ValidBlendArguments(pFirst, pFirstRect, pSecond, pSecondRect)) return ZMOS_ERR_NO_TEXTURE;
  const std::int32_t w_overlap = pFirstRect->lRight - pFirstRect->lLeft;
  if (w_overlap < 1) return ZMOS_OK;
  const std::uint32_t format = pFirst->dwFormat;
  if (const std::int32_t res = ZMOSCreateBlendTable(w_overlap, hMemMgr); res != 0) return res;
  const std::int64_t h64 = std::int64_t{pFirstRect->lBottom} - pFirstRect->lTop;
  // A single column (no weights) or no rows: nothing to blend.
  if (h64 < 1 || g_BlendTableWidth < 2 || h64 >= INT32_MAX / 8) {
    ZMOSReleaseBlendTable();
    return ZMOS_OK;
  }
  const auto h = static_cast<std::int32_t>(h64);
  BlendWork work(hMemMgr, h + 1, std::int64_t{w_overlap} * (h + 1));
  if (!work.ok()) return work.Abandon(ZMOS_ERR_NO_MEMORY);
  std::int32_t* path = work.path;
  // An unknown format is refused with the table built from W still installed.
  if (!((format >= 0x801 && format <= 0x803) || (format >= 0x601 && format <= 0x608) ||
        (format >= 0x501 && format <= 0x504)))
    return work.Abandon(ZMOS_ERR_UNSUPPORTED_FORMAT);

  if (w_overlap > g_BlendTableWidth + kSeamSearchMargin) {
    ComputeLumaDiffMap(pFirst, pSecond, pFirstRect, &pSecondRect->lLeft, work.map);
    if (const std::int32_t res = SearchSeamPath(path, work.map, w_overlap, h, hMemMgr); res != 0)
      return work.Finish(res);
  } else {
    std::fill(path, path + h, (w_overlap - 1) / 2);
  }
  const auto [min_p, max_p] = std::minmax_element(path, path + h);
  const std::int32_t band = 2 * std::min({w_overlap - 1 - *max_p, *min_p + 1, 256});

  const PlaneView a = ViewOf(*pFirst, 0), b = ViewOf(*pSecond, 0);
  const RowRange rows = CommonRows(a, pFirstRect->lTop, b, pSecondRect->lTop, h);
  if ((format >= 0x801 && format <= 0x803) || (format >= 0x601 && format <= 0x608)) {
    const FadeWeights fade(g_BlendTable, g_BlendTableWidth, false);
    for (std::int64_t r = rows.lo; r < rows.hi; ++r)
      BlendRowAlongSeam(a.Row(pFirstRect->lTop + r) + pFirstRect->lLeft,
                        b.Row(pSecondRect->lTop + r) + pSecondRect->lLeft, w_overlap,
                        b.row_bytes - std::int64_t{pSecondRect->lLeft}, path[r], band, lSide,
                        &fade);
    const std::int32_t res =
        format >= 0x801
            ? InterleavedChroma(*pFirst, *pSecond, pFirstRect, pSecondRect, path, lSide, hMemMgr)
            : PlanarChroma(*pFirst, *pSecond, pFirstRect, pSecondRect, path, lSide, hMemMgr);
    return work.Finish(res);
  }
  if (format == 0x501 || format == 0x502) {
    const PairOrder& order =
        ((pFirstRect->lLeft ^ pSecondRect->lLeft) & 1) ? kSwappedChroma : kSameOrder;
    for (std::int64_t r = rows.lo; r < rows.hi; ++r) {
      PackedRow row(a.Row(pFirstRect->lTop + r) + 2 * std::int64_t{pFirstRect->lLeft},
                    b.Row(pSecondRect->lTop + r) + 2 * std::int64_t{pSecondRect->lLeft}, w_overlap,
                    b.row_bytes - 2 * std::int64_t{pSecondRect->lLeft}, order);
      BlendPackedRow(row, w_overlap, path[r], band, lSide);
    }
    return work.Finish(ZMOS_OK);
  }
  // Luminance in the odd bytes (0x503, 0x504): passed through unchanged.
  return work.Finish(ZMOS_OK);
}

}  // extern "C"
