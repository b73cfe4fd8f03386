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

// Per-byte weights of one row for the fade kernel.
struct RowFade {
  std::uint16_t ws[FadeWeights::kMax];
  std::uint16_t wf[FadeWeights::kMax];
};

// Copies a few bytes inline: the seam's copied zones are often a handful of bytes, where a
// library call costs more than the copy.
inline void CopyBytes(std::uint8_t* dst, const std::uint8_t* src, std::int64_t n) {
  if (n >= 32) {
    MMemCpy(dst, src, static_cast<std::int32_t>(n));
    return;
  }
  for (std::int64_t i = 0; i < n; ++i) dst[i] = src[i];
}

// The luminance blend of one overlap, row by row, over columns [0, w_row) (the overlap's
// width); only the first `s_cols` columns exist in the second image, the rest of each row
// keeps the first. Everything but the seam column is the same for every row, so it is
// worked out once. `fade` holds the table's weights for the kernels (null or not ok: per
// pixel).
class SeamRows {
 public:
  SeamRows(std::int32_t w_row, std::int64_t s_cols, std::int32_t band, std::int32_t side,
           const FadeWeights* fade)
      : t_(g_BlendTable),
        w_(g_BlendTableWidth),
        averaged_(w_ > band),
        n_(averaged_ ? band : w_),
        side_(side),
        w_row_(std::min<std::int64_t>(w_row, std::max<std::int64_t>(s_cols, 0))),
        fade_(fade != nullptr && fade->ok ? fade : nullptr),
        kern_(kernels::Active()) {}

  // Bytes of each row the blend writes.
  std::int64_t row_bytes() const { return w_row_; }

  // The weights that blend a whole row with its seam at `seam` in one fade: the copied zone
  // takes (65535, 1), which gives the second image's byte exactly, the kept zone (0, 65535),
  // which gives the first's, and an averaged band (32767, 32767), the floor of the mean of
  // two bytes. False when the row or the table's weights do not fit.
  bool RowWeights(std::int32_t seam, std::uint16_t* ws, std::uint16_t* wf) const {
    if (w_row_ > FadeWeights::kMax || (!averaged_ && fade_ == nullptr)) return false;
    const std::int64_t start = std::int64_t{seam} - (std::int64_t{n_} - 1) / 2;
    for (std::int64_t c = 0; c < w_row_; ++c) {
      const std::int64_t k = c - start;
      const bool copied = side_ == 0 ? k < 0 : k >= n_;
      if (k >= 0 && k < n_) {
        ws[c] = averaged_ ? 32767 : side_ == 0 ? fade_->up[k] : fade_->down[k];
        wf[c] = averaged_ ? 32767 : side_ == 0 ? fade_->down[k] : fade_->up[k];
      } else {
        ws[c] = copied ? 65535 : 0;
        wf[c] = copied ? 1 : 65535;
      }
    }
    return true;
  }

  void operator()(std::uint8_t* f, const std::uint8_t* s, std::int32_t seam) const {
    const std::int64_t start = std::int64_t{seam} - (std::int64_t{n_} - 1) / 2;
    const std::int64_t lo = std::max<std::int64_t>(start, 0);
    const std::int64_t hi = std::min<std::int64_t>(start + n_, w_row_);
    if (averaged_) {
      Average(f + lo, s + lo, hi - lo);
    } else if (fade_ != nullptr && hi - lo >= kMinVectorRun) {
      const auto count = static_cast<std::int32_t>(hi - lo);
      const std::int64_t k0 = lo - start;
      if (side_ == 0) {
        kern_.fade_q16(f + lo, s + lo, fade_->up + k0, fade_->down + k0, count);
      } else {
        kern_.fade_q16(f + lo, s + lo, fade_->down + k0, fade_->up + k0, count);
      }
    } else {
      for (std::int64_t c = lo; c < hi; ++c) {
        const std::int64_t k = c - start;
        f[c] = side_ == 0 ? Rule(t_[k], s[c], t_[w_ - 1 - k], f[c])
                          : Rule(t_[k], f[c], t_[w_ - 1 - k], s[c]);
      }
    }
    // The second image's side of the band is copied from it.
    if (side_ == 0) {
      CopyBytes(f, s, std::min<std::int64_t>(start, w_row_));
    } else {
      const std::int64_t from = std::max<std::int64_t>(start + n_, 0);
      CopyBytes(f + from, s + from, w_row_ - from);
    }
  }

 private:
  // Bands narrower than a vector stay per pixel: a call costs more than they do.
  void Average(std::uint8_t* f, const std::uint8_t* s, std::int64_t count) const {
    if (count >= kMinVectorRun) {
      kern_.average(f, s, static_cast<std::int32_t>(count));
      return;
    }
    for (std::int64_t c = 0; c < count; ++c) f[c] = static_cast<std::uint8_t>((f[c] + s[c]) >> 1);
  }

  const std::int32_t* t_;
  std::int32_t w_;
  bool averaged_;
  std::int32_t n_, side_;
  std::int64_t w_row_;
  const FadeWeights* fade_;
  const kernels::KernelSet& kern_;
};

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
  if (first.dwFormat < ZMOS_FORMAT_I420 || first.dwFormat > ZMOS_FORMAT_PLANAR444_608)
    return ZMOS_ERR_UNSUPPORTED_FORMAT;
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
  if (first.dwFormat < ZMOS_FORMAT_SEMIPLANAR420_801 ||
      first.dwFormat > ZMOS_FORMAT_SEMIPLANAR422_803) {
    MMemFree(mem, t);
    return ZMOS_ERR_UNSUPPORTED_FORMAT;
  }
  if (first.dwFormat != ZMOS_FORMAT_SEMIPLANAR422_803 && path != nullptr)
    PathToChroma(path, static_cast<std::int32_t>(o.rows), true, false);

  const PlaneView a = ViewOf(first, 1), b = ViewOf(second, 1);
  const RowRange range = CommonRows(a, o.row1, b, o.row2, o.rows);
  // Rows whose second-image bytes lie inside its row take the table's weights straight.
  const FadeWeights fade(t, w, true);
  const bool straight = fade.ok && o.x >= 0 && o.x + w <= b.row_bytes;
  const kernels::KernelSet& kern = kernels::Active();
  const std::uint16_t* ws = side == 0 ? fade.up : fade.down;
  const std::uint16_t* wf = side == 0 ? fade.down : fade.up;
  std::uint8_t swapped[FadeWeights::kMax];  // a crosswise row in the first image's order
  // Straight rows all take the same weights: one call does them, and the row loop below
  // is left with nothing to do unless a kept odd byte follows.
  const bool in_one_call = straight && !o.crosswise;
  if (in_one_call && range.lo < range.hi) {
    kern.fade_rows(a.Row(o.row1 + range.lo) + o.left, a.pitch, b.Row(o.row2 + range.lo) + o.x,
                   b.pitch, static_cast<std::int32_t>(range.hi - range.lo), ws, wf, w);
  }
  const bool rows_left = !in_one_call || (side != 0 && w < o.width);
  for (std::int64_t i = range.lo; rows_left && i < range.hi; ++i) {
    std::uint8_t* f = a.Row(o.row1 + i) + o.left;
    const std::uint8_t* srow = b.Row(o.row2 + i);
    auto second_byte = [&](std::int64_t k) -> const std::uint8_t* {
      const std::int64_t col = o.Source(k);
      return col >= 0 && col < b.row_bytes ? srow + col : nullptr;
    };
    if (straight) {
      if (o.crosswise && w >= kMinVectorRun) {  // pairs meet swapped
        kern.swap_pairs(swapped, srow + o.x, w / 2);
        kern.fade_q16(f, swapped, ws, wf, w);
      } else if (o.crosswise) {
        const std::uint8_t* s = srow + o.x;
        for (std::int32_t k = 0; k < w; ++k) f[k] = Rule(ws[k], s[k ^ 1], wf[k], f[k]);
      }
      if (side != 0) {
        for (std::int64_t k = w; k < o.width; ++k)
          if (const std::uint8_t* tail = second_byte(k)) f[k] = *tail;
      }
      continue;
    }
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
  const auto lock = LockBlendTable();
  if (pFirst == nullptr || pSecond == nullptr || plPath == nullptr) return ZMOS_ERR_NO_TEXTURE;
  if (g_BlendTable == nullptr) return ZMOS_ERR_NO_TEXTURE;  // released: no weights to read
  const FadeWeights fade(g_BlendTable, g_BlendTableWidth, false);
  const SeamRows blend(lWidth, lWidth, lBand, lSide, &fade);
  for (std::int32_t r = 0; r < lHeight; ++r)
    blend(pFirst + std::int64_t{r} * lFirstPitch, pSecond + std::int64_t{r} * lSecondPitch,
          plPath[r]);
  return ZMOS_OK;
}

int32_t BlendPlanarChroma(ZMOSIMAGE* pFirst, const ZMOSIMAGE* pSecond, const ZMOSRECT* pFirstRect,
                          const ZMOSRECT* pSecondRect, int32_t* plPath, int32_t lSide,
                          MHandle hMemMgr) {
  const auto lock = LockBlendTable();
  if (pFirst == nullptr || pSecond == nullptr || !StepRectFits(*pFirst, pFirstRect))
    return ZMOS_ERR_NO_TEXTURE;
  return PlanarChroma(*pFirst, *pSecond, pFirstRect, pSecondRect, plPath, lSide, hMemMgr);
}

int32_t BlendInterleavedChroma(ZMOSIMAGE* pFirst, const ZMOSIMAGE* pSecond,
                               const ZMOSRECT* pFirstRect, const ZMOSRECT* pSecondRect,
                               int32_t* plPath, int32_t lSide, MHandle hMemMgr) {
  const auto lock = LockBlendTable();
  if (pFirst == nullptr || pSecond == nullptr || !StepRectFits(*pFirst, pFirstRect))
    return ZMOS_ERR_NO_TEXTURE;
  return InterleavedChroma(*pFirst, *pSecond, pFirstRect, pSecondRect, plPath, lSide, hMemMgr);
}

int32_t ZMOSBlendImageOdd_AME(ZMOSIMAGE* pFirst, const ZMOSRECT* pFirstRect,
                              const ZMOSIMAGE* pSecond, const ZMOSRECT* pSecondRect, int32_t lSide,
                              MHandle hMemMgr) {
  const auto lock = LockBlendTable();
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
  if (!((format >= ZMOS_FORMAT_SEMIPLANAR420_801 && format <= ZMOS_FORMAT_SEMIPLANAR422_803) ||
        (format >= ZMOS_FORMAT_I420 && format <= ZMOS_FORMAT_PLANAR444_608) ||
        (format >= ZMOS_FORMAT_YUV422_501 && format <= ZMOS_FORMAT_YUV422_504)))
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
  if ((format >= ZMOS_FORMAT_SEMIPLANAR420_801 && format <= ZMOS_FORMAT_SEMIPLANAR422_803) ||
      (format >= ZMOS_FORMAT_I420 && format <= ZMOS_FORMAT_PLANAR444_608)) {
    const FadeWeights fade(g_BlendTable, g_BlendTableWidth, false);
    const SeamRows blend(w_overlap, b.row_bytes - std::int64_t{pSecondRect->lLeft}, band, lSide,
                         &fade);
    auto first_row = [&](std::int64_t r) {
      return a.Row(pFirstRect->lTop + r) + pFirstRect->lLeft;
    };
    auto second_row = [&](std::int64_t r) {
      return b.Row(pSecondRect->lTop + r) + pSecondRect->lLeft;
    };
    // Without a seam search every row has its seam in the same column: each row is then
    // one fade over its whole width, the zones folded into the weights.
    RowFade row;
    if (*min_p == *max_p && rows.lo < rows.hi && blend.RowWeights(*min_p, row.ws, row.wf)) {
      lumivex::kernels::Active().fade_rows(first_row(rows.lo), a.pitch, second_row(rows.lo),
                                           b.pitch, static_cast<std::int32_t>(rows.hi - rows.lo),
                                           row.ws, row.wf,
                                           static_cast<std::int32_t>(blend.row_bytes()));
    } else {
      for (std::int64_t r = rows.lo; r < rows.hi; ++r) blend(first_row(r), second_row(r), path[r]);
    }
    const std::int32_t res =
        format >= ZMOS_FORMAT_SEMIPLANAR420_801
            ? InterleavedChroma(*pFirst, *pSecond, pFirstRect, pSecondRect, path, lSide, hMemMgr)
            : PlanarChroma(*pFirst, *pSecond, pFirstRect, pSecondRect, path, lSide, hMemMgr);
    return work.Finish(res);
  }
  if (format == ZMOS_FORMAT_YUV422_501 || format == ZMOS_FORMAT_YUV422_502) {
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
