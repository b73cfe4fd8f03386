// Tracker runs (offset of a new frame against the previous one) and swaps (the new
// frame becomes the previous one) for the plain, frame-to-frame and reference-frame
// trackers. Every match passes the previous frame's projection first.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "src/kernels/kernels.h"
#include "src/kernels/projection_kernels.h"
#include "src/platform/wrap.h"
#include "src/track/tracker.h"

namespace lumivex::track {
namespace {

bool FrameMatches(const ZMOSVideoTracker* t, const ZMOSIMAGE* image) {
  return t != nullptr && image != nullptr && image->lWidth == t->lWidth &&
         image->lHeight == t->lHeight;
}

std::int32_t ProjectH(const ZMOSIMAGE* image, const ZMOSRECT& rect, std::uint32_t* out) {
  return ZMOSHoriProjectSingle_PBM(image, &rect, out);
}

std::int32_t ProjectV(const ZMOSIMAGE* image, const ZMOSRECT& rect, std::uint32_t* out) {
  return ZMOSVertProjectSingle_PBM(image, &rect, out);
}

std::int32_t Direct(ZMOSVideoTracker* t, const std::uint32_t* prev, const std::uint32_t* cur,
                    std::int32_t len, std::int32_t* offset, std::int32_t max_offset) {
  return ZMOSMatch1DBufferAllocated_PBM(prev, cur, len, offset, max_offset,
                                        reinterpret_cast<std::int32_t*>(t->pScratch[0]),
                                        reinterpret_cast<std::int32_t*>(t->pScratch[1]));
}

std::int32_t Gradient(ZMOSVideoTracker* t, const std::uint32_t* prev, const std::uint32_t* cur,
                      std::int32_t len, std::int32_t* offset, std::int32_t max_offset) {
  return ZMOSComputeOffset_Gradient(prev, cur, len, offset, max_offset,
                                    reinterpret_cast<std::int32_t*>(t->pScratch[0]),
                                    reinterpret_cast<std::int32_t*>(t->pScratch[1]));
}

// Second pass of the horizontal estimate: +-8 around `off` over the quarter of the
// rectangle centred at 3/8 of its width. Returns the correction (0 when it fails).
std::int32_t Refine(ZMOSVideoTracker* t, const std::uint32_t* prev, const std::uint32_t* cur,
                    std::int32_t w, std::int32_t off) {
  const std::int32_t s = w / 2 - w / 8;
  const std::int64_t start = std::int64_t{s} - off;
  std::int32_t fine = 0;
  // Only within the projection buffer (frame width entries).
  if (start >= 0 && start + w / 4 <= t->lWidth) Direct(t, prev + s, cur + start, w / 4, &fine, 8);
  return fine;
}

// First frame: project every rectangle into the previous buffers.
std::int32_t StorePrevious(ZMOSVideoTracker* t, const ZMOSIMAGE* image) {
  for (std::int32_t i = 0; i < t->lHoriCount; ++i)
    if (const std::int32_t res = ProjectH(image, t->pHoriRects[i], t->ppPrevHori[i]); res != 0)
      return res;
  for (std::int32_t j = 0; j < t->lVertCount; ++j)
    if (const std::int32_t res = ProjectV(image, t->pVertRects[j], t->ppPrevVert[j]); res != 0)
      return res;
  t->bFirstFrame = 0;
  return ZMOS_OK;
}

void ExchangeHori(ZMOSVideoTracker* t, std::int32_t i) {
  std::swap(t->ppCurHori[i], t->ppPrevHori[i]);
}
void ExchangeVert(ZMOSVideoTracker* t, std::int32_t j) {
  std::swap(t->ppCurVert[j], t->ppPrevVert[j]);
}

// The previous buffers of one kind after a run: re-projected from `image` at the
// unmoved rectangles while the re-project flag of that kind is set (the run matched a
// moved rectangle), else exchanged with the current ones.
std::int32_t RefreshPrevious(ZMOSVideoTracker* t, const ZMOSIMAGE* image, bool vertical,
                             std::int32_t count) {
  const bool reproject = vertical ? t->bReprojectVert : t->bReprojectHori;
  for (std::int32_t i = 0; i < count; ++i) {
    if (!reproject) {
      vertical ? ExchangeVert(t, i) : ExchangeHori(t, i);
      continue;
    }
    const std::int32_t res = vertical ? ProjectV(image, t->pVertRects[i], t->ppPrevVert[i])
                                      : ProjectH(image, t->pHoriRects[i], t->ppPrevHori[i]);
    if (res != 0) return res;
  }
  return ZMOS_OK;
}

// Writes the first result of each kind as the run's offset pair.
std::int32_t Report(const ZMOSVideoTracker* t, std::int32_t* offsets) {
  offsets[0] = t->plHoriResult[0];
  offsets[1] = t->plVertResult[0];
  return ZMOS_OK;
}

// Adds `from` into `into` over n entries.
void Accumulate(std::uint32_t* into, const std::uint32_t* from, std::int32_t n) {
  for (std::int32_t k = 0; k < n; ++k) into[k] += from[k];
}

void Clear(std::uint32_t* p, std::int32_t n) {
  std::fill(p, p + n, 0u);
}

// The FF tracker's horizontal measure range: the central half in mode 0.
std::pair<std::int32_t, std::int32_t> HoriMeasureRange(const ZMOSVideoTracker* t) {
  if (t->lMode == 0) return {t->lWidth / 4, (3 * t->lWidth) / 4};
  return {0, t->lWidth};
}

// The row strips entering and leaving a rectangle moved by fewer than 11 rows (which the
// projection functions refuse), summed straight from plane 0 where the column sums are
// plain sums, so that the moved projection comes out as projecting the moved rectangle
// would, at the cost of the strips alone. False where they are not plain sums. (Row sums
// of column strips this narrow cost more than projecting the moved rectangle.)
bool RowStrips(const ZMOSIMAGE* image, const ZMOSRECT& rect, std::int32_t shift, std::int32_t limit,
               std::uint32_t* entering, std::uint32_t* leaving) {
  if (!PlainSums(image->dwFormat)) return false;
  const std::int32_t width = rect.lRight - rect.lLeft;
  const std::int32_t lo = rect.lTop, hi = rect.lBottom;
  const auto [e0, e1] = shift > 0 ? std::pair{std::max(lo - shift, 0), lo}
                                  : std::pair{hi, std::min(hi - shift, limit)};
  const auto [l0, l1] = shift > 0 ? std::pair{std::max(hi - shift, 0), hi}
                                  : std::pair{lo, std::min(lo - shift, limit)};
  const lumivex::kernels::KernelSet& k = lumivex::kernels::Active();
  auto sums = [&](std::int32_t a, std::int32_t b, std::uint32_t* out) {
    std::fill(out, out + width, 0u);
    // The projection's columns start at the left rounded down to a multiple of 4.
    k.column_sums(width, b - a, image->pPlane[0] + a * image->lPitch[0] + (rect.lLeft & ~3),
                  image->lPitch[0], out);
  };
  sums(e0, e1, entering);
  sums(l0, l1, leaving);
  return true;
}

// Projection of a rectangle moved by `shift` across its long side, built from the
// unmoved projection `cur` and the projections of two strips: cur + entering - leaving.
// `vertical` moves columns (row sums), otherwise rows (column sums). The result is
// written to the tracker's third scratch array.
// Shifts below `min_shift` in size leave the projection unmoved.
std::int32_t MovedProjection(ZMOSVideoTracker* t, const ZMOSIMAGE* image, const ZMOSRECT& rect,
                             std::int32_t shift, bool vertical, const std::uint32_t* cur,
                             const std::uint32_t** signal, std::int32_t min_shift = 11) {
  *signal = cur;
  if (shift > -min_shift && shift < min_shift) return ZMOS_OK;
  std::uint32_t* third = t->pScratch[2];
  std::uint32_t* fourth = t->pScratch[3];
  const std::int32_t lo = vertical ? rect.lLeft : rect.lTop;
  const std::int32_t hi = vertical ? rect.lRight : rect.lBottom;
  const std::int32_t limit = vertical ? t->lWidth : t->lHeight;
  auto strip = [&](std::int32_t a, std::int32_t b) {
    return vertical ? ZMOSRECT{a, rect.lTop, b, rect.lBottom}
                    : ZMOSRECT{rect.lLeft, a, rect.lRight, b};
  };
  auto project = vertical ? ProjectV : ProjectH;
  std::int32_t res;
  if (shift > -11 && shift < 11 && !vertical &&
      RowStrips(image, rect, shift, limit, third, fourth)) {
    // Summed straight from the pixels below.
  } else if (shift > -11 && shift < 11) {
    // Strips this narrow cannot be projected on their own: project the moved rectangle.
    res = project(image, strip(std::max(lo - shift, 0), std::min(hi - shift, limit)), third);
    if (res != 0) return res;
    *signal = third;
    return ZMOS_OK;
  } else if (shift > 0) {
    res = project(image, strip(std::max(lo - shift, 0), lo), third);
    if (res == 0) res = project(image, strip(std::max(hi - shift, 0), hi), fourth);
    if (res != 0) return res;
  } else {
    res = project(image, strip(lo, std::min(lo - shift, limit)), fourth);
    if (res == 0) res = project(image, strip(hi, std::min(hi - shift, limit)), third);
    if (res != 0) return res;
  }
  const std::int32_t n = vertical ? rect.lBottom - rect.lTop : rect.lRight - rect.lLeft;
  for (std::int32_t k = 0; k < n; ++k) third[k] = cur[k] + third[k] - fourth[k];
  *signal = third;
  return ZMOS_OK;
}

// The current projection for matching against the reference `prev`: as it is, or under
// a policy that matches across exposure changes, scaled (into the second scratch array)
// so that the two agree in mean where they overlap at `off` (prev[x] against
// cur[x - off]); as it is also when they already agree within a quarter of a percent.
const std::uint32_t* AtReferenceExposure(const lumivex::Policy& policy, ZMOSVideoTracker* t,
                                         const std::uint32_t* prev, const std::uint32_t* cur,
                                         std::int32_t len, std::int32_t off) {
  if (!policy.match_across_exposure || len <= 0) return cur;
  const std::int64_t lo = std::max<std::int64_t>(off, 0);
  const std::int64_t hi = std::min<std::int64_t>(len, std::int64_t{len} + off);
  if (hi - lo < 8) return cur;
  // Neighbouring entries share most of their pixels: every fourth one measures the ratio.
  std::uint64_t sp = 0, sc = 0;
  for (std::int64_t x = lo; x < hi; x += 4) {
    sp += prev[x];
    sc += cur[x - off];
  }
  if (sp == 0 || sc == 0) return cur;
  // Q16; sums of at most 2048 entries of 32 bits stay below 2^43, so the shift fits.
  const std::uint64_t ratio = std::min<std::uint64_t>((sp << 16) / sc, std::uint64_t{1} << 24);
  if (ratio > 65536 - 164 && ratio < 65536 + 164) return cur;
  std::uint32_t* out = t->pScratch[1];
  for (std::int32_t x = 0; x < len; ++x)
    out[x] = static_cast<std::uint32_t>(
        std::min<std::uint64_t>((std::uint64_t{cur[x]} * ratio + 32768) >> 16, UINT32_MAX));
  return out;
}

// Under a policy that matches across exposure changes: the match just made (`*off`) tells
// where the two projections overlap; if their exposures differ there, the current one is
// brought to the reference's and matched again near that place, since a scaled projection
// with a brightness slope matches best a few pixels toward its bright side. Returns the
// projection the offset stands on (for the caller's finer pass).
const std::uint32_t* MatchAgainAtReferenceExposure(const lumivex::Policy& policy,
                                                   ZMOSVideoTracker* t, const std::uint32_t* prev,
                                                   const std::uint32_t* cur, std::int32_t len,
                                                   std::int32_t* off) {
  const std::uint32_t* scaled = AtReferenceExposure(policy, t, prev, cur, len, *off);
  if (scaled == cur) return cur;
  // The pull of a brightness slope is a pixel or two.
  constexpr std::int32_t kAgain = 4;
  std::int32_t again = *off;
  if (Direct(t, prev, scaled, len, &again, kAgain) == 0) *off = again;
  return scaled;
}

// Band choice of the reference-frame swap: middle when textured, else the stronger of
// the outer two (the first one on ties).
std::int32_t BandChoice(const std::int32_t m[3]) {
  return m[1] >= 31 ? 1 : m[2] > m[0] ? 2 : 0;
}

// The current choice is left alone while every band is nearly flat.
bool KeepBand(const std::int32_t m[3]) {
  return m[1] < 31 && m[1] != 30 && m[0] <= 29 && m[2] <= 29;
}

// The three bands of one kind summed into `sums[0..2]` and added up into `sums[3]`, each
// band's texture over [from, to) into `texture`.
std::int32_t SumBands(const ZMOSIMAGE* pImage, const ZMOSRECT* rects, bool hori,
                      std::int32_t length, std::int32_t from, std::int32_t to, std::uint32_t** sums,
                      std::int32_t* texture) {
  Clear(sums[3], length);
  for (int i = 0; i < 3; ++i) {
    const std::int32_t res =
        hori ? ProjectH(pImage, rects[i], sums[i]) : ProjectV(pImage, rects[i], sums[i]);
    if (res != 0) return res;
    Accumulate(sums[3], sums[i], length);
    texture[i] = BandMeasure(sums[i], from, to);
  }
  return ZMOS_OK;
}

// The frame-to-frame tracker's first frame: every band's projection and texture, and the
// whole-frame sums, kept as the reference.
std::int32_t StoreFirstFF(ZMOSVideoTracker* t, const ZMOSIMAGE* pImage) {
  const std::int32_t w = t->lWidth, h = t->lHeight;
  const auto [from, to] = HoriMeasureRange(t);
  BandTextureTable& bt = BandTexture();
  if (const std::int32_t res =
          SumBands(pImage, t->pHoriRects, true, w, from, to, t->ppPrevHori, bt.prev_hori);
      res != 0)
    return res;
  if (const std::int32_t res =
          SumBands(pImage, t->pVertRects, false, h, 0, h, t->ppPrevVert, bt.prev_vert);
      res != 0)
    return res;
  t->bFirstFrame = 0;
  return ZMOS_OK;
}

// Horizontal travel: the three bands summed into a whole-frame projection, matched
// directly, or by gradients where the bands are too plain.
std::int32_t MatchColumnsFF(ZMOSVideoTracker* t, const ZMOSIMAGE* pImage) {
  const std::int32_t w = t->lWidth;
  const auto [from, to] = HoriMeasureRange(t);
  if (const std::int32_t res =
          SumBands(pImage, t->pHoriRects, true, w, from, to, t->ppCurHori, BandTexture().cur_hori);
      res != 0)
    return res;
  std::int32_t dx = 0;
  if (!FlatAlongSweep(0)) {
    t->lStatus = ZMOS_OK;
    Direct(t, t->ppPrevHori[3], t->ppCurHori[3], w, &dx, t->lMaxOffsetX);
  } else {
    t->lStatus = ZMOS_ERR_NO_TEXTURE;
    Gradient(t, t->ppPrevHori[3], t->ppCurHori[3], w, &dx, t->lMaxOffsetX);
  }
  t->plHoriResult[0] = dx;
  return ZMOS_OK;
}

// Vertical travel: across a horizontal sweep only the middle band is followed; along a
// vertical one the most textured band, or the middle one by gradients when all are plain.
std::int32_t MatchRowsFF(ZMOSVideoTracker* t, const ZMOSIMAGE* pImage) {
  const std::int32_t h = t->lHeight;
  BandTextureTable& bt = BandTexture();
  std::int32_t dy = 0;
  if (t->lMode == 0) {
    Clear(t->ppCurVert[3], h);
    if (const std::int32_t res = ProjectV(pImage, t->pVertRects[1], t->ppCurVert[1]); res != 0)
      return res;
    Accumulate(t->ppCurVert[3], t->ppCurVert[1], h);
    bt.cur_vert[1] = BandMeasure(t->ppCurVert[1], 0, h);
    auto match = bt.cur_vert[1] < 33 ? Gradient : Direct;
    match(t, t->ppPrevVert[1], t->ppCurVert[1], h, &dy, t->lMaxOffsetY);
  } else {
    if (const std::int32_t res = SumBands(pImage, t->pVertRects, false, h, h / 4, (3 * h) / 4,
                                          t->ppCurVert, bt.cur_vert);
        res != 0)
      return res;
    const std::int32_t* m = bt.cur_vert;
    if (FlatAlongSweep(1)) {
      Gradient(t, t->ppPrevVert[1], t->ppCurVert[1], h, &dy, t->lMaxOffsetY);
    } else {
      const int band = m[1] >= 40 ? 1 : m[0] > m[2] ? 0 : 2;
      Direct(t, t->ppPrevVert[band], t->ppCurVert[band], h, &dy, t->lMaxOffsetY);
    }
  }
  t->plVertResult[0] = dy;
  return ZMOS_OK;
}

}  // namespace
}  // namespace lumivex::track

using namespace lumivex::track;
using lumivex::WrapAbs;
using lumivex::WrapAdd;

extern "C" {

int32_t ZMOSVideoTrackerRun_PBM(ZMOSVideoTracker* t, const ZMOSIMAGE* pImage, int32_t* plOffsets) {
  if (!FrameMatches(t, pImage) || plOffsets == nullptr) return ZMOS_ERR_INVALID_PARAM;
  plOffsets[0] = plOffsets[1] = 0;
  if (t->bFirstFrame) return StorePrevious(t, pImage);

  if (t->lMode == 0) {
    for (std::int32_t i = 0; i < t->lHoriCount; ++i) {
      const ZMOSRECT& r = t->pHoriRects[i];
      if (const std::int32_t res = ProjectH(pImage, r, t->ppCurHori[i]); res != 0) return res;
      const std::int32_t w = r.lRight - r.lLeft;
      std::int32_t off = 0;
      Direct(t, t->ppPrevHori[i], t->ppCurHori[i], w, &off, t->lMaxOffsetX);
      t->plHoriResult[i] = WrapAdd(off, Refine(t, t->ppPrevHori[i], t->ppCurHori[i], w, off));
    }
    const std::int32_t dx = t->plHoriResult[0];
    for (std::int32_t j = 0; j < t->lVertCount; ++j) {
      const ZMOSRECT& r = t->pVertRects[j];
      const ZMOSRECT moved{std::max(r.lLeft - dx, 0), r.lTop,
                           r.lRight - dx < t->lWidth ? r.lRight - dx : t->lWidth, r.lBottom};
      if (const std::int32_t res = ProjectV(pImage, moved, t->ppCurVert[j]); res != 0) return res;
      std::int32_t off = 0;
      Direct(t, t->ppPrevVert[j], t->ppCurVert[j], r.lBottom - r.lTop, &off, t->lMaxOffsetY);
      t->plVertResult[j] = off;
    }
  } else {
    for (std::int32_t j = 0; j < t->lVertCount; ++j) {
      const ZMOSRECT& r = t->pVertRects[j];
      if (const std::int32_t res = ProjectV(pImage, r, t->ppCurVert[j]); res != 0) return res;
      std::int32_t off = 0;
      Direct(t, t->ppPrevVert[j], t->ppCurVert[j], r.lBottom - r.lTop, &off, t->lMaxOffsetY);
      t->plVertResult[j] = off;
    }
    const std::int32_t dy = t->plVertResult[0];
    for (std::int32_t i = 0; i < t->lHoriCount; ++i) {
      const ZMOSRECT& r = t->pHoriRects[i];
      const ZMOSRECT moved{r.lLeft, std::max(r.lTop - dy, 0), r.lRight,
                           r.lBottom - dy < t->lHeight ? r.lBottom - dy : t->lHeight};
      if (const std::int32_t res = ProjectH(pImage, moved, t->ppCurHori[i]); res != 0) return res;
      std::int32_t off = 0;
      Direct(t, t->ppPrevHori[i], t->ppCurHori[i], r.lRight - r.lLeft, &off, t->lMaxOffsetX);
      t->plHoriResult[i] = off;
    }
  }
  return Report(t, plOffsets);
}

int32_t ZMOSVideoTrackerSwap_PBM(ZMOSVideoTracker* t, const ZMOSIMAGE* pImage) {
  if (t == nullptr) return ZMOS_ERR_INVALID_PARAM;
  if (t->bFirstFrame) return ZMOS_OK;
  const std::int32_t pairs = std::min(t->lHoriCount, t->lVertCount);
  if (t->lMode == 0) {
    for (std::int32_t i = 0; i < t->lHoriCount; ++i) ExchangeHori(t, i);
    return RefreshPrevious(t, pImage, true, t->lVertCount);
  }
  for (std::int32_t j = 0; j < pairs; ++j) ExchangeVert(t, j);
  return RefreshPrevious(t, pImage, false, pairs);
}

int32_t ZMOSVideoTrackerRunFF_PBM(ZMOSVideoTracker* t, const ZMOSIMAGE* pImage,
                                  int32_t* plOffsets) {
  if (!FrameMatches(t, pImage)) return ZMOS_ERR_INVALID_PARAM;
  if (t->lHoriCount < 4 || t->lVertCount < 4) return ZMOS_ERR_INVALID_PARAM;
  t->bReprojectVert = 0;
  t->bReprojectHori = 0;
  if (t->bFirstFrame) return StoreFirstFF(t, pImage);
  // The first frame needs no offsets; any later one writes them.
  if (plOffsets == nullptr) return ZMOS_ERR_INVALID_PARAM;
  if (const std::int32_t res = MatchColumnsFF(t, pImage); res != 0) return res;
  if (const std::int32_t res = MatchRowsFF(t, pImage); res != 0) return res;
  return Report(t, plOffsets);
}

int32_t ZMOSVideoTrackerSwapFF_PBM(ZMOSVideoTracker* t, const ZMOSIMAGE*) {
  if (t == nullptr) return ZMOS_ERR_INVALID_PARAM;
  if (t->bFirstFrame) return ZMOS_OK;
  for (std::int32_t i = 0; i < t->lHoriCount; ++i) ExchangeHori(t, i);
  for (std::int32_t j = 0; j < std::min(t->lHoriCount, t->lVertCount); ++j) ExchangeVert(t, j);
  BandTextureTable& bt = BandTexture();
  std::copy(bt.cur_hori, bt.cur_hori + 3, bt.prev_hori);
  std::copy(bt.cur_vert, bt.cur_vert + 3, bt.prev_vert);
  return ZMOS_OK;
}

int32_t ZMOSVideoTrackerRunRF_PBM(ZMOSVideoTracker* t, const ZMOSIMAGE* pImage, int32_t* plOffsets,
                                  const int32_t* plLast) {
  return lumivex::track::RunRF(t, pImage, plOffsets, plLast, lumivex::kExactPolicy);
}

}  // extern "C"

bool lumivex::track::FlatAlongSweep(std::int32_t mode) {
  const BandTextureTable& bt = BandTexture();
  if (mode == 0) return bt.cur_hori[0] + bt.cur_hori[1] + bt.cur_hori[2] <= 95;
  return bt.cur_vert[0] < 40 && bt.cur_vert[1] < 40 && bt.cur_vert[2] < 40;
}

const std::uint32_t* lumivex::track::SharedColumnSums(const ZMOSVideoTracker* ff,
                                                      const ZMOSIMAGE* ff_image,
                                                      const ZMOSVideoTracker* rf,
                                                      const ZMOSIMAGE* image) {
  if (ff == nullptr || rf == nullptr || ff_image == nullptr || image == nullptr) return nullptr;
  if (ff->bFirstFrame || rf->bFirstFrame || ff->lMode != 0 || rf->lMode != 0) return nullptr;
  if (ff->lHoriCount < 3 || rf->lHoriCount < 1) return nullptr;
  // The same pixels, read the same way: one-byte luma.
  const std::uint32_t family = image->dwFormat >> 8;
  if (family != 6 && family != 7 && family != 8) return nullptr;
  if (ff_image->pPlane[0] != image->pPlane[0] || ff_image->lPitch[0] != image->lPitch[0] ||
      ff_image->lWidth != image->lWidth || ff_image->lHeight != image->lHeight ||
      ff_image->dwFormat != image->dwFormat || ff->lWidth != image->lWidth ||
      rf->lWidth != image->lWidth)
    return nullptr;
  const ZMOSRECT& r = rf->pHoriRects[0];
  if (r.lLeft < 0 || r.lLeft + 7 >= r.lRight || r.lRight > image->lWidth) return nullptr;
  for (std::int32_t i = 0; i < 3; ++i) {
    const ZMOSRECT& band = ff->pHoriRects[i];
    // A band sums from column 0; the rectangle's sums start at its left rounded down to 4.
    if (band.lTop == r.lTop && band.lBottom == r.lBottom && band.lLeft == 0 &&
        band.lRight == image->lWidth)
      return ff->ppCurHori[i] + (r.lLeft & ~3);
  }
  return nullptr;
}

namespace {

using lumivex::track::BandTexture;
using lumivex::track::BandTextureTable;

// Horizontal sweep, along: each horizontal band's column sums matched against the
// reference's, around the last report when the bands are textured, else around the
// prediction. `hori_sums` stands in for band 0's sums when given.
std::int32_t MatchAlongHorizontal(ZMOSVideoTracker* t, const ZMOSIMAGE* pImage,
                                  std::int32_t predicted_dx, const std::int32_t* plLast,
                                  const lumivex::Policy& policy, const std::uint32_t* hori_sums) {
  const BandTextureTable& bt = BandTexture();
  const bool textured = bt.cur_hori[0] + bt.cur_hori[1] + bt.cur_hori[2] > 96;
  if (textured && plLast == nullptr) return ZMOS_ERR_INVALID_PARAM;
  for (std::int32_t i = 0; i < t->lHoriCount; ++i) {
    const ZMOSRECT& r = t->pHoriRects[i];
    const std::int32_t w = r.lRight - r.lLeft;
    if (i == 0 && hori_sums != nullptr) {
      std::copy(hori_sums, hori_sums + w, t->ppCurHori[0]);
    } else if (const std::int32_t res = ProjectH(pImage, r, t->ppCurHori[i]); res != 0) {
      return res;
    }
    std::int32_t off = predicted_dx;
    const std::uint32_t* cur = t->ppCurHori[i];
    if (textured) {
      // Narrow the search around the last reported offset as the sweep speeds up.
      off = plLast[0];
      const std::int32_t speed = WrapAbs(off);
      const std::int32_t range = speed > 90   ? 10
                                 : speed > 80 ? 20
                                 : speed > 60 ? 30
                                              : t->lMaxOffsetX;
      if (Direct(t, t->ppPrevHori[i], cur, w, &off, range) != 0) {
        t->plHoriResult[i] = predicted_dx;
        continue;
      }
      cur = MatchAgainAtReferenceExposure(policy, t, t->ppPrevHori[i], cur, w, &off);
    } else {
      cur = AtReferenceExposure(policy, t, t->ppPrevHori[i], cur, w, off);
    }
    t->plHoriResult[i] = WrapAdd(off, Refine(t, t->ppPrevHori[i], cur, w, off));
  }
  return ZMOS_OK;
}

// Horizontal sweep, across: each vertical band's row sums, compensated for the travel
// `dx` along, matched against the reference's.
std::int32_t MatchAcrossHorizontal(ZMOSVideoTracker* t, const ZMOSIMAGE* pImage, std::int32_t dx,
                                   std::int32_t predicted_dy, const lumivex::Policy& policy) {
  for (std::int32_t j = 0; j < t->lVertCount; ++j) {
    const ZMOSRECT& r = t->pVertRects[j];
    if (const std::int32_t res = ProjectV(pImage, r, t->ppCurVert[j]); res != 0) return res;
    const std::uint32_t* signal = nullptr;
    if (const std::int32_t res = MovedProjection(t, pImage, r, dx, true, t->ppCurVert[j], &signal,
                                                 policy.MinCompensatedShift());
        res != 0)
      return res;
    std::int32_t dy = 0;
    const std::int32_t len = r.lBottom - r.lTop;
    const std::int32_t res = Direct(t, t->ppPrevVert[j], signal, len, &dy, t->lMaxOffsetY);
    if (res == 0) MatchAgainAtReferenceExposure(policy, t, t->ppPrevVert[j], signal, len, &dy);
    t->bReprojectVert = 0;
    t->plVertResult[j] = res == 0 ? dy : predicted_dy;
  }
  return ZMOS_OK;
}

// Vertical sweep, along: each vertical band's row sums matched against the reference's,
// unless every band is flat, when the prediction stands.
std::int32_t MatchAlongVertical(ZMOSVideoTracker* t, const ZMOSIMAGE* pImage,
                                std::int32_t predicted_dy, const lumivex::Policy& policy) {
  const BandTextureTable& bt = BandTexture();
  const bool flat = bt.cur_vert[0] < 40 && bt.cur_vert[1] < 40 && bt.cur_vert[2] < 40;
  for (std::int32_t j = 0; j < t->lVertCount; ++j) {
    const ZMOSRECT& r = t->pVertRects[j];
    if (const std::int32_t res = ProjectV(pImage, r, t->ppCurVert[j]); res != 0) return res;
    std::int32_t dy = 0;
    const std::int32_t len = r.lBottom - r.lTop;
    const bool ok =
        !flat && Direct(t, t->ppPrevVert[j], t->ppCurVert[j], len, &dy, t->lMaxOffsetY) == 0;
    if (ok) MatchAgainAtReferenceExposure(policy, t, t->ppPrevVert[j], t->ppCurVert[j], len, &dy);
    t->plVertResult[j] = ok ? dy : predicted_dy;
  }
  return ZMOS_OK;
}

// Vertical sweep, across: each horizontal band's column sums, compensated for the travel
// along, matched against the reference's.
std::int32_t MatchAcrossVertical(ZMOSVideoTracker* t, const ZMOSIMAGE* pImage,
                                 std::int32_t predicted_dx, const lumivex::Policy& policy) {
  std::int32_t dy = t->plVertResult[0];
  if (dy > 10 || dy < -10) dy &= ~1;  // strips of whole row pairs
  for (std::int32_t i = 0; i < t->lHoriCount; ++i) {
    const ZMOSRECT& r = t->pHoriRects[i];
    if (const std::int32_t res = ProjectH(pImage, r, t->ppCurHori[i]); res != 0) return res;
    const std::uint32_t* signal = nullptr;
    if (const std::int32_t res = MovedProjection(t, pImage, r, dy, false, t->ppCurHori[i], &signal,
                                                 policy.MinCompensatedShift());
        res != 0)
      return res;
    std::int32_t dx = predicted_dx;
    const std::int32_t len = r.lRight - r.lLeft;
    const std::int32_t res = Direct(t, t->ppPrevHori[i], signal, len, &dx, t->lMaxOffsetX);
    if (res == 0) MatchAgainAtReferenceExposure(policy, t, t->ppPrevHori[i], signal, len, &dx);
    t->bReprojectHori = 0;
    t->plHoriResult[i] = res == 0 ? dx : predicted_dx;
  }
  return ZMOS_OK;
}

}  // namespace

std::int32_t lumivex::track::RunRF(ZMOSVideoTracker* t, const ZMOSIMAGE* pImage,
                                   std::int32_t* plOffsets, const std::int32_t* plLast,
                                   const Policy& policy, const std::uint32_t* hori_sums) {
  if (!FrameMatches(t, pImage)) return ZMOS_ERR_INVALID_PARAM;
  if (t->bFirstFrame) return StorePrevious(t, pImage);
  // The prediction is read from the offsets; the last report only by a textured mode-0 run.
  if (plOffsets == nullptr) return ZMOS_ERR_INVALID_PARAM;
  const std::int32_t predicted_dx = plOffsets[0], predicted_dy = plOffsets[1];
  if (t->lMode == 0) {
    if (const std::int32_t res =
            MatchAlongHorizontal(t, pImage, predicted_dx, plLast, policy, hori_sums);
        res != 0)
      return res;
    if (const std::int32_t res =
            MatchAcrossHorizontal(t, pImage, t->plHoriResult[0], predicted_dy, policy);
        res != 0)
      return res;
  } else {
    if (const std::int32_t res = MatchAlongVertical(t, pImage, predicted_dy, policy); res != 0)
      return res;
    if (const std::int32_t res = MatchAcrossVertical(t, pImage, predicted_dx, policy); res != 0)
      return res;
  }
  return Report(t, plOffsets);
}

extern "C" {

int32_t ZMOSVideoTrackerSwapRF_PBM(ZMOSVideoTracker* t, const ZMOSIMAGE* pImage) {
  if (t == nullptr) return ZMOS_ERR_INVALID_PARAM;
  if (t->bFirstFrame) return ZMOS_OK;
  if (!FrameMatches(t, pImage) || t->lHoriCount < 1 || t->lVertCount < 1)
    return ZMOS_ERR_INVALID_PARAM;
  const BandTextureTable& bt = BandTexture();
  const std::int32_t w = t->lWidth, h = t->lHeight;
  const bool horizontal = t->lMode == 0;
  const std::int32_t* prev = horizontal ? bt.prev_hori : bt.prev_vert;
  const std::int32_t* cur = horizontal ? bt.cur_hori : bt.cur_vert;
  const std::int32_t choice = BandChoice(cur);

  // The sweep-axis rectangle follows the best-textured band.
  if (!KeepBand(cur) && BandChoice(prev) != choice) {
    if (horizontal) {
      const std::int32_t y0 = choice == 0 ? h / 6 : choice == 1 ? h / 2 : (5 * h) / 6;
      const std::int32_t half = (h / 3) / 2, q = static_cast<std::int32_t>(w * 0.7) / 2;
      t->pHoriRects[0] = ZMOSRECT{Align4(std::max(w / 2 - q, 0)), std::max(y0 - half, 0),
                                  Align4(std::min(w / 2 + q, w)), std::min(y0 + half, h)};
      if (const std::int32_t res = ProjectH(pImage, t->pHoriRects[0], t->ppPrevHori[0]); res != 0)
        return res;
    } else {
      const std::int32_t x0 = choice == 0 ? w / 4 : choice == 1 ? w / 2 : (3 * w) / 4;
      const std::int32_t half = (w / 5) / 2;
      t->pVertRects[0] =
          ZMOSRECT{Align4(std::max(x0 - half, 0)), 0, Align4(std::min(x0 + half, w)), (h / 2) * 2};
      if (const std::int32_t res = ProjectV(pImage, t->pVertRects[0], t->ppPrevVert[0]); res != 0)
        return res;
    }
  } else if (horizontal) {
    for (std::int32_t i = 0; i < t->lHoriCount; ++i) ExchangeHori(t, i);
  } else {
    for (std::int32_t j = 0; j < t->lVertCount; ++j) ExchangeVert(t, j);
  }

  // The cross-axis rectangles: re-projected when the run matched a moved projection.
  return RefreshPrevious(t, pImage, horizontal, horizontal ? t->lVertCount : t->lHoriCount);
}

}  // extern "C"
