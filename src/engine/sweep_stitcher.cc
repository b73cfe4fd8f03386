// The sweep stitcher object: creation over the caller's work buffer, release, direction,
// angle and result accessors, and the stitch run that ends a capture.
#include "src/engine/sweep_stitcher.h"

#include <algorithm>
#include <cstdint>

#include "src/engine/profile.h"
#include "src/platform/direction.h"
#include "src/stitch/blend_internal.h"
#include "src/stitch/direct_stitcher.h"

namespace lumivex::engine {

namespace {

// Trims one band's result to multiples of 16, keeping the edge the sweep began at.
void TrimSingleBand(ZMOSSWEEPSTITCHER& s) {
  ZMOSRECT r{};
  ZMOSGetValidRect_DIS(s.phDIS[0], &r);
  const std::int32_t w16 = (r.lRight - r.lLeft) & ~15;
  const std::int32_t h16 = (r.lBottom - r.lTop) & ~15;
  s.bResultWide = 1;
  ZMOSRECT crop = r;
  switch (s.lDirection) {
    case 0:
      crop = {r.lLeft, r.lTop, r.lLeft + w16, r.lTop + h16};
      if (w16 < s.lFrameWidth) s.bResultWide = 0;
      break;
    case 1:
      crop = {r.lRight - w16, r.lTop, r.lRight, r.lTop + h16};
      if (w16 < s.lFrameWidth) s.bResultWide = 0;
      break;
    case 2:
      crop = {r.lLeft, r.lTop, r.lLeft + w16, r.lTop + h16};
      if (h16 < s.lFrameHeight) s.bResultWide = 0;
      break;
    case 3:
      crop = {r.lLeft, r.lBottom - h16, r.lLeft + w16, r.lBottom};
      if (h16 < s.lFrameHeight) s.bResultWide = 0;
      break;
    default:
      break;
  }
  // Cropped even when judged narrow; the crop's result is not needed.
  ZMOSCropImageContinueBuffer_AOD(s.ppResultImages[0], &crop);
}

std::int32_t TrimBands(ZMOSSWEEPSTITCHER& s) {
  const std::int32_t n = s.lBandCount;
  auto* rects =
      static_cast<ZMOSRECT*>(MMemAlloc(s.hMemMgr, n * static_cast<std::int32_t>(sizeof(ZMOSRECT))));
  if (rects == nullptr) return ZMOS_ERR_NO_MEMORY;
  std::int32_t m = s.lPanoWidth;
  for (std::int32_t i = 0; i < n; ++i) {
    ZMOSGetValidRect_DIS(s.phDIS[i], &rects[i]);
    ZMOSRECT& r = rects[i];
    if (s.lDirection == ZMOS_DIRECTION_LEFT_TO_RIGHT) {
      r.lLeft = s.plStripPos[n - 1] + r.lLeft - s.plStripPos[i];
      m = std::min(m, r.lRight - r.lLeft);
    } else if (s.lDirection == ZMOS_DIRECTION_RIGHT_TO_LEFT) {
      r.lRight = s.plStripPos[0] + r.lRight - s.plStripPos[i];
      m = std::min(m, r.lRight - r.lLeft);
    }
  }
  const std::int32_t m16 = m & ~15;
  // The bands are compared with the frame height, deliberately; a narrow result keeps
  // the rectangles in the work buffer, which goes with the capture.
  if (m16 < s.lFrameHeight) return ZMOS_OK;
  s.bResultWide = 1;
  for (std::int32_t i = 0; i < n; ++i) {
    ZMOSRECT& r = rects[i];
    if (s.lDirection == ZMOS_DIRECTION_LEFT_TO_RIGHT) r.lRight = r.lLeft + m16;
    if (s.lDirection == ZMOS_DIRECTION_RIGHT_TO_LEFT) r.lLeft = r.lRight - m16;
    ZMOSCropImageContinueBuffer_AOD(s.ppResultImages[i], &r);
  }
  MMemFree(s.hMemMgr, rects);
  return ZMOS_OK;
}

}  // namespace
}  // namespace lumivex::engine

using namespace lumivex::engine;
using lumivex::IsHorizontal;

extern "C" {

int32_t ZMOSCreateSweepStitcher_SWT(ZMOSSWEEPSTITCHER** phStitcher, const ZMOSSWTPARAM* pParam,
                                    int32_t lBandCount, void*) {
  if (phStitcher == nullptr || pParam == nullptr) return ZMOS_ERR_INVALID_PARAM;
  *phStitcher = nullptr;
  // A count below 1 is refused later, by selection and the stitch run; a negative one
  // cannot size its arrays (4 below).
  if (lBandCount > 64) return ZMOS_ERR_INVALID_PARAM;
  MHandle mem = MMemMgrCreate(pParam->pWorkBuffer, pParam->lWorkBufferSize);
  if (mem == nullptr) return ZMOS_ERR_NO_MEMORY;
  auto* s = static_cast<ZMOSSWEEPSTITCHER*>(MMemAlloc(mem, sizeof(ZMOSSWEEPSTITCHER)));
  if (s == nullptr) return ZMOS_ERR_NO_MEMORY;
  MMemSet(s, 0, sizeof(ZMOSSWEEPSTITCHER));
  s->hMemMgr = mem;
  s->lWorkBufferSize = pParam->lWorkBufferSize;
  s->bActive = 1;
  s->lBandCount = lBandCount;
  s->bNoSecondFrame = 1;
  s->lDirection = ZMOS_DIRECTION_UNKNOWN;
  s->lMaxAngle = pParam->lMaxAngle;
  s->lMaxKeptFrames = 500;
  s->bNeedSetup = 1;
  s->lReserved1 = pParam->lReserved1;
  s->lReserved2 = pParam->lReserved2;
  // A negative count asks for a negative size, which no allocation can meet.
  if (lBandCount < 0) return ZMOS_ERR_NO_MEMORY;
  const std::int32_t pointers = lBandCount * static_cast<std::int32_t>(sizeof(ZMOSIMAGE*));
  s->ppResultImages = static_cast<ZMOSIMAGE**>(MMemAlloc(mem, pointers));
  if (s->ppResultImages == nullptr) return ZMOS_ERR_NO_MEMORY;
  MMemSet(s->ppResultImages, 0, pointers);
  s->plStripPos = static_cast<std::int32_t*>(MMemAlloc(mem, lBandCount * 4));
  if (s->plStripPos == nullptr) return ZMOS_ERR_NO_MEMORY;
  MMemSet(s->plStripPos, 0, lBandCount * 4);
  *phStitcher = s;
  return ZMOS_OK;
}

void ZMOSReleaseSweepStitcher_SWT(ZMOSSWEEPSTITCHER** phStitcher) {
  if (phStitcher == nullptr || *phStitcher == nullptr) return;
  ZMOSSWEEPSTITCHER* s = *phStitcher;
  MHandle mem = s->hMemMgr;
  MMemFree(mem, s->plStripPos);
  MMemFree(mem, s->ppResultImages);
  if (s->phDIS != nullptr) {
    for (std::int32_t i = 0; i < s->lBandCount; ++i)
      ZMOSReleaseDirectImageStitcher_DIS(&s->phDIS[i]);
    MMemFree(mem, s->phDIS);
  }
  ZMOSReleaseFrameSelector_FS(&s->hFrameSelector);
  ZMOSReleaseVideoTracker_PBM(&s->hTracker);
  ZMOSFreeImage_AOD(&s->pFirstFrame, mem);
  // The preview stays in the work buffer, which the caller discards; so does a blend table
  // a failed blend left installed, which must not outlive the buffer.
  lumivex::engine::ForgetProfile(s);
  MMemFree(mem, s);
  lumivex::stitch::ForgetBlendTableOf(mem);
  *phStitcher = nullptr;
}

int32_t ZMOSSetDirection_SWT(ZMOSSWEEPSTITCHER* hStitcher, int32_t lDirection) {
  if (hStitcher == nullptr) return ZMOS_ERR_INVALID_PARAM;
  hStitcher->lDirection = lDirection;
  return ZMOS_OK;
}

void ZMOSGetDirection_SWT(const ZMOSSWEEPSTITCHER* hStitcher, int32_t* plDirection) {
  if (hStitcher == nullptr || plDirection == nullptr) return;
  *plDirection = hStitcher->lDirection;
}

void ZMOSCalculateAngle_SWT(const ZMOSSWEEPSTITCHER* hStitcher, int32_t* plAngle) {
  if (hStitcher == nullptr || plAngle == nullptr) return;
  const ZMOSSWEEPSTITCHER& s = *hStitcher;
  const std::int32_t a = s.lMaxAngle;
  std::int32_t length = 0;
  if (IsHorizontal(s.lDirection)) {
    length = s.lPanoWidth;
    if (s.lBandCount == 1 && s.lPanoWidth > s.lFrameWidth) length = s.lPanoWidth - s.lFrameWidth;
  } else if (lumivex::IsVertical(s.lDirection)) {
    length = s.lPanoHeight;
    if (s.lBandCount == 1 && s.lPanoHeight > s.lFrameHeight)
      length = s.lPanoHeight - s.lFrameHeight;
  }
  if (length != 0) {
    const auto q = static_cast<std::int32_t>(std::int64_t{a} * s.lMainOffset / length);
    *plAngle = static_cast<std::int32_t>(static_cast<double>(q) + 0.5);
  }
  if (a < *plAngle || s.bFinished) *plAngle = a;
}

int32_t ZMOSIsResultNarrow_SWT(const ZMOSSWEEPSTITCHER* hStitcher) {
  if (hStitcher == nullptr) return 1;
  const std::int32_t wide = hStitcher->bResultWide;
  return wide == 0 || wide == 1 ? 1 - wide : 0;
}

void ZMOSGetResultImage(const ZMOSSWEEPSTITCHER* hStitcher, ZMOSIMAGE** ppImage) {
  if (hStitcher == nullptr || ppImage == nullptr) return;
  *ppImage = hStitcher->bResultWide ? hStitcher->ppResultImages[0] : hStitcher->pFirstFrame;
}

void ZMOSGetResultImagesN(ZMOSSWEEPSTITCHER* hStitcher, ZMOSIMAGE*** pppImages, int32_t* plCount) {
  if (hStitcher == nullptr || pppImages == nullptr || plCount == nullptr) return;
  ZMOSSWEEPSTITCHER& s = *hStitcher;
  *plCount = s.lBandCount;
  if (s.bResultWide) {
    *pppImages = s.ppResultImages;
  } else if (s.lBandCount == 1) {
    *pppImages = &s.pFirstFrame;
  } else {
    // A narrow multi-band sweep hands out the first frame in the first two entries.
    s.ppResultImages[0] = s.pFirstFrame;
    s.ppResultImages[1] = s.pFirstFrame;
    *pppImages = s.ppResultImages;
  }
}

int32_t ZMOSImageStitcherRun_SWT(ZMOSSWEEPSTITCHER* hStitcher) {
  if (hStitcher == nullptr) return ZMOS_ERR_INVALID_PARAM;
  ZMOSSWEEPSTITCHER& s = *hStitcher;
  s.bActive = 0;  // no frame can be selected once the stitch has begun
  if (s.lBandCount < 1) return ZMOS_ERR_INVALID_PARAM;
  if (s.phDIS == nullptr) return ZMOS_OK;  // the direction was never found
  if (s.lMainOffset == 0) {
    s.bResultWide = 0;
    return ZMOS_OK;
  }
  for (std::int32_t i = 0; i < s.lBandCount; ++i) {
    if (const std::int32_t res = lumivex::stitch::StitchBlend(s.phDIS[i], PolicyOf(&s)); res != 0)
      return res;
    ZMOSGetResultImage_DIS(s.phDIS[i], &s.ppResultImages[i]);
  }
  if (s.lBandCount == 1) {
    TrimSingleBand(s);
    return ZMOS_OK;
  }
  return TrimBands(s);
}

}  // extern "C"
