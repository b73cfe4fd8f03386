// Gradient projections and the tracker run that matches them: column profiles of the
// absolute horizontal gradient and row profiles of the absolute vertical gradient.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "src/track/tracker.h"

namespace lumivex::track {
namespace {

// Luma of rectangle row y, column x: one byte a pixel, or the first byte of each packed
// 4:2:2 pixel.
struct Luma {
  const std::uint8_t* origin;
  std::ptrdiff_t pitch;
  int step;
  int operator()(std::int32_t y, std::int32_t x) const { return origin[y * pitch + x * step]; }
};

// Checks shared by the three kernels; fills the luma view.
std::int32_t Prepare(const ZMOSIMAGE* image, const ZMOSRECT* rect, const void* out, Luma* luma,
                     bool* packed) {
  if (image == nullptr || rect == nullptr || out == nullptr || image->pPlane[0] == nullptr)
    return ZMOS_ERR_INVALID_PARAM;
  const ZMOSRECT& r = *rect;
  if (r.lLeft < 0 || r.lTop < 0 || r.lRight > image->lWidth || r.lBottom > image->lHeight ||
      r.lRight < r.lLeft || r.lBottom < r.lTop)
    return ZMOS_ERR_INVALID_PARAM;
  const std::uint32_t f = image->dwFormat;
  int step = 1;
  if ((f >= ZMOS_FORMAT_I420 && f <= ZMOS_FORMAT_PLANAR444_608) ||
      (f >= ZMOS_FORMAT_SEMIPLANAR420_801 && f <= ZMOS_FORMAT_SEMIPLANAR422_803) ||
      f == ZMOS_FORMAT_GREY) {
    step = 1;
  } else if (f == ZMOS_FORMAT_YUV422_501 || f == ZMOS_FORMAT_YUV422_502 ||
             f == ZMOS_FORMAT_YUV422_505 || f == ZMOS_FORMAT_YUV422_506) {
    step = 2;
  } else {
    return ZMOS_ERR_UNSUPPORTED_FORMAT;
  }
  *packed = step == 2;
  *luma = Luma{image->pPlane[0] + static_cast<std::ptrdiff_t>(r.lTop) * image->lPitch[0] +
                   static_cast<std::ptrdiff_t>(r.lLeft) * step,
               image->lPitch[0], step};
  return ZMOS_OK;
}

std::int32_t* WorkRow(std::int32_t w, MHandle mem) {
  return static_cast<std::int32_t*>(MMemAlloc(mem, std::max(w, 1) * 4));
}

}  // namespace
}  // namespace lumivex::track

using namespace lumivex::track;

namespace {

// One run of the gradient tracker over a frame: gradient profiles of its bands, matched
// against the previous frame's; `swap` makes this frame the next one's reference.
struct GradientPass {
  ZMOSVideoTracker* t;
  const ZMOSIMAGE* image;
  bool swap;

  std::int32_t Ix(const ZMOSRECT& r, std::uint32_t* out) const {
    return ZMOSCalcIxHoriProj(image, &r, reinterpret_cast<std::int32_t*>(out), t->hMemMgr);
  }
  // A vertical profile clears as many entries as its rectangle is wide: never past the
  // buffer of frame-height entries.
  std::int32_t Iy(const ZMOSRECT& r, std::uint32_t* out) const {
    if (r.lRight - r.lLeft > t->lHeight) return ZMOS_ERR_INVALID_PARAM;
    return ZMOSCalcIyVertProj(image, &r, reinterpret_cast<std::int32_t*>(out), t->hMemMgr);
  }
  std::int32_t Match(const std::uint32_t* prev, const std::uint32_t* cur, std::int32_t len,
                     std::int32_t range) const {
    std::int32_t off = 0;
    ZMOSMatch1DBufferAllocated_PBM(prev, cur, len, &off, range,
                                   reinterpret_cast<std::int32_t*>(t->pScratch[0]),
                                   reinterpret_cast<std::int32_t*>(t->pScratch[1]));
    return off;
  }

  // Horizontal sweep: the horizontal bands along, then the vertical ones moved by the
  // travel found.
  std::int32_t Horizontal() const {
    for (std::int32_t i = 0; i < t->lHoriCount; ++i) {
      const ZMOSRECT& r = t->pHoriRects[i];
      if (const std::int32_t res = Ix(r, t->ppCurHori[i]); res != 0) return res;
      t->plHoriResult[i] =
          Match(t->ppPrevHori[i], t->ppCurHori[i], r.lRight - r.lLeft, t->lMaxOffsetX);
      if (swap) std::swap(t->ppPrevHori[i], t->ppCurHori[i]);
    }
    const std::int32_t dx = t->plHoriResult[0];
    for (std::int32_t j = 0; j < t->lVertCount; ++j) {
      const ZMOSRECT& r = t->pVertRects[j];
      const ZMOSRECT moved{std::max(r.lLeft - dx, 0), r.lTop, std::min(r.lRight - dx, t->lWidth),
                           r.lBottom};
      if (const std::int32_t res = Iy(moved, t->ppCurVert[j]); res != 0) return res;
      t->plVertResult[j] =
          Match(t->ppPrevVert[j], t->ppCurVert[j], r.lBottom - r.lTop, t->lMaxOffsetY);
      if (swap)
        if (const std::int32_t res = Iy(r, t->ppPrevVert[j]); res != 0) return res;
    }
    return ZMOS_OK;
  }

  // Vertical sweep: the vertical bands along, then the horizontal ones moved by the travel
  // found.
  std::int32_t Vertical() const {
    for (std::int32_t j = 0; j < t->lVertCount; ++j) {
      const ZMOSRECT& r = t->pVertRects[j];
      if (const std::int32_t res = Iy(r, t->ppCurVert[j]); res != 0) return res;
      t->plVertResult[j] =
          Match(t->ppPrevVert[j], t->ppCurVert[j], r.lBottom - r.lTop, t->lMaxOffsetY);
      // The vertical pass exchanges the horizontal buffers of the same index, and the
      // previous vertical profiles are never refreshed: the asymmetry is part of the design.
      if (swap && j < t->lHoriCount) std::swap(t->ppPrevHori[j], t->ppCurHori[j]);
    }
    const std::int32_t dy = t->plVertResult[0];
    for (std::int32_t i = 0; i < t->lHoriCount; ++i) {
      const ZMOSRECT& r = t->pHoriRects[i];
      const ZMOSRECT moved{r.lLeft, std::max(r.lTop - dy, 0), r.lRight,
                           std::min(r.lBottom - dy, t->lHeight)};
      if (const std::int32_t res = Ix(moved, t->ppCurHori[i]); res != 0) return res;
      t->plHoriResult[i] =
          Match(t->ppPrevHori[i], t->ppCurHori[i], r.lRight - r.lLeft, t->lMaxOffsetX);
      if (swap)
        if (const std::int32_t res = Ix(r, t->ppPrevHori[i]); res != 0) return res;
    }
    return ZMOS_OK;
  }
};

}  // namespace

extern "C" {

int32_t ZMOSCalcIyVertProj(const ZMOSIMAGE* pImage, const ZMOSRECT* pRect, int32_t* plOut,
                           MHandle hMemMgr) {
  Luma p{};
  bool packed = false;
  if (const std::int32_t res = Prepare(pImage, pRect, plOut, &p, &packed); res != 0) return res;
  const std::int32_t w = pRect->lRight - pRect->lLeft, h = pRect->lBottom - pRect->lTop;
  std::int32_t* d = WorkRow(w, hMemMgr);
  if (d == nullptr) return ZMOS_ERR_NO_MEMORY;
  // Only the first W entries are cleared; later ones accumulate onto what they held.
  for (std::int32_t i = 0; i < w; ++i) plOut[i] = 0;
  for (std::int32_t y = 0; y + 2 < h; ++y) {
    for (std::int32_t x = 0; x < w; ++x) d[x] = p(y + 2, x) - p(y, x);
    for (std::int32_t x = 0; x + 2 < w; ++x)
      plOut[y] += std::abs(((d[x] + d[x + 2]) * 3 + d[x + 1] * 10) >> 5);
  }
  MMemFree(hMemMgr, d);
  return ZMOS_OK;
}

int32_t ZMOSCalcIxHoriProj(const ZMOSIMAGE* pImage, const ZMOSRECT* pRect, int32_t* plOut,
                           MHandle hMemMgr) {
  Luma p{};
  bool packed = false;
  if (const std::int32_t res = Prepare(pImage, pRect, plOut, &p, &packed); res != 0) return res;
  const std::int32_t w = pRect->lRight - pRect->lLeft, h = pRect->lBottom - pRect->lTop;
  std::int32_t* s = WorkRow(w, hMemMgr);
  if (s == nullptr) return ZMOS_ERR_NO_MEMORY;
  for (std::int32_t i = 0; i < w; ++i) plOut[i] = 0;
  for (std::int32_t y = 0; y + 2 < h; ++y) {
    for (std::int32_t x = 0; x < w; ++x) s[x] = (p(y, x) + p(y + 2, x)) * 3 + p(y + 1, x) * 10;
    for (std::int32_t x = 0; x + 2 < w; ++x) plOut[x] += std::abs((s[x + 2] - s[x]) >> 5);
  }
  MMemFree(hMemMgr, s);
  return ZMOS_OK;
}

int32_t ZMOSCalcIxIy(const ZMOSIMAGE* pImage, const ZMOSRECT* pRect, int32_t* plIx, int32_t* plIy,
                     int32_t lStride, MHandle hMemMgr) {
  Luma p{};
  bool packed = false;
  if (plIx == nullptr) return ZMOS_ERR_INVALID_PARAM;
  if (const std::int32_t res = Prepare(pImage, pRect, plIy, &p, &packed); res != 0) return res;
  const std::int32_t w = pRect->lRight - pRect->lLeft, h = pRect->lBottom - pRect->lTop;
  if (w > lStride) return ZMOS_ERR_INVALID_PARAM;
  std::int32_t* work = WorkRow(2 * w, hMemMgr);
  if (work == nullptr) return ZMOS_ERR_NO_MEMORY;
  std::int32_t* s = work;
  std::int32_t* d = work + w;
  for (std::int32_t y = 0; y + 2 < h; ++y) {
    for (std::int32_t x = 0; x < w; ++x) {
      d[x] = p(y + 2, x) - p(y, x);
      // Packed pixels scale each term before adding; both roundings are kept.
      s[x] = packed ? ((p(y + 1, x) * 5) >> 4) + (((p(y, x) + p(y + 2, x)) * 3) >> 5)
                    : (p(y, x) + p(y + 2, x)) * 3 + p(y + 1, x) * 10;
    }
    std::int32_t* ix = plIx + static_cast<std::ptrdiff_t>(y) * lStride;
    std::int32_t* iy = plIy + static_cast<std::ptrdiff_t>(y) * lStride;
    for (std::int32_t x = 0; x + 2 < w; ++x) {
      if (packed) {
        ix[x] = s[x + 2] - s[x];
        iy[x] = ((d[x + 1] * 5) >> 4) + (((d[x] + d[x + 2]) * 3) >> 5);
      } else {
        ix[x] = (s[x + 2] - s[x]) >> 5;
        iy[x] = ((d[x] + d[x + 2]) * 3 + d[x + 1] * 10) >> 5;
      }
    }
  }
  MMemFree(hMemMgr, work);
  return ZMOS_OK;
}

int32_t ZMOSVideoTrackerGradientRun_PBM(ZMOSVideoTracker* t, const ZMOSIMAGE* pImage,
                                        int32_t* plOffsets, int32_t bSwap) {
  if (t == nullptr || pImage == nullptr || plOffsets == nullptr || pImage->lWidth != t->lWidth ||
      pImage->lHeight != t->lHeight)
    return ZMOS_ERR_INVALID_PARAM;
  plOffsets[0] = plOffsets[1] = 0;
  const GradientPass pass{t, pImage, bSwap != 0};
  if (t->bFirstFrame) {
    for (std::int32_t i = 0; i < t->lHoriCount; ++i)
      if (const std::int32_t res = pass.Ix(t->pHoriRects[i], t->ppPrevHori[i]); res != 0)
        return res;
    for (std::int32_t j = 0; j < t->lVertCount; ++j)
      if (const std::int32_t res = pass.Iy(t->pVertRects[j], t->ppPrevVert[j]); res != 0)
        return res;
    t->bFirstFrame = 0;
    return ZMOS_OK;
  }
  if (const std::int32_t res = t->lMode == 0 ? pass.Horizontal() : pass.Vertical(); res != 0)
    return res;
  plOffsets[0] = t->plHoriResult[0];
  plOffsets[1] = t->plVertResult[0];
  return ZMOS_OK;
}

}  // extern "C"
