// The second stitching pipeline: an image blender that places frames on a result image
// one by one, and an image stitcher that records strips in an image stack and replays
// them through the blender.
#include <algorithm>
#include <cstdint>

#include "lumivex/stitch.h"
#include "src/platform/direction.h"
#include "src/platform/wrap.h"
#include "src/stitch/blend_internal.h"

struct ZMOSIMAGEBLENDER {
  MHandle hMemMgr;
  std::int32_t lDirection;
  ZMOSIMAGE* pResult;
  std::int32_t lMaxPos;  // Dp: rows every frame covers start here
  std::int32_t lMaxNeg;  // Dn: and end this far above the bottom
  std::int32_t lPosition;
  std::int32_t lCrossY;
  std::int32_t lMaxBlend;
  std::int32_t lContentEnd;
  std::int32_t bFirstFrame;
  std::int32_t bCropped;
  std::int32_t lMinBlend;
};

struct ZMOSIMAGESTITCHER {
  MHandle hMemMgr;
  std::int32_t lWidth;
  std::int32_t lHeight;
  std::uint32_t dwFormat;
  std::int32_t lCount;
  std::int32_t lDirection;
  ZMOSIMAGE* pResult;
  ZMOSIMAGESTACK* hStack;
  ZMOSIMAGEBLENDER* hBlender;
};

namespace lumivex::stitch {
namespace {

struct Rows {
  std::int32_t result_top, result_bottom, frame_top, frame_bottom;
};

// Rows of a later frame on the result and in the frame, after the cross position moved
// to y. Direction 1 keeps two deliberate differences from direction 0.
Rows PlaceRows(ZMOSIMAGEBLENDER& b, W32 y, W32 h, bool direction1) {
  Rows r{};
  std::int32_t& dp = b.lMaxPos;
  std::int32_t& dn = b.lMaxNeg;
  if (y < 1) {
    r.result_top = dp;
    r.frame_top = dp - y;
    if (-y <= dn) {
      r.result_bottom = h - dn;
      r.frame_bottom = h - dn - y;
    } else {
      r.frame_bottom = h;
      r.result_bottom = direction1 ? h - dn : h + y;  // direction 1: the old Dn
      dn = -y;
    }
  } else {
    if (y > dp) {
      dp = y;
      r.frame_top = 0;
      r.result_top = y;
    } else {
      r.frame_top = direction1 ? y - dp : dp - y;  // direction 1: Y - Dp
      r.result_top = dp;
    }
    r.result_bottom = h - dn;
    r.frame_bottom = h - y - dn;
  }
  return r;
}

std::int32_t FirstFrame(ZMOSIMAGEBLENDER& b, const ZMOSIMAGE& frame, const ZMOSRECT& r, W32 e,
                        W32 f) {
  const W32 cw = b.pResult->lWidth, ch = b.pResult->lHeight;
  const W32 rw = W32(r.lRight) - r.lLeft, rh = W32(r.lBottom) - r.lTop;
  ZMOSRECT src{}, dst{};
  switch (b.lDirection) {
    case 0:
      src = {f, r.lTop, r.lRight, r.lBottom};
      dst = {0, 0, r.lRight - f, rh};
      b.lContentEnd = r.lRight - f;
      break;
    case 1:
      src = {r.lLeft, r.lTop, f, r.lBottom};
      dst = {cw - (f - r.lLeft), 0, cw, rh};
      b.lContentEnd = cw - (f - r.lLeft);
      break;
    case 2:
      src = {r.lLeft, f, r.lRight, r.lBottom};
      dst = {0, 0, rw, r.lBottom - f};
      b.lContentEnd = r.lBottom - f;
      break;
    case 3:
      src = {r.lLeft, r.lTop, r.lRight, f};
      dst = {0, ch - (f - r.lTop), rw, ch};
      b.lContentEnd = ch - (f - r.lTop);
      break;
    default:
      b.bFirstFrame = 0;
      return ZMOS_ERR_INVALID_PARAM;
  }
  b.bFirstFrame = 0;
  b.lPosition = e;
  return ZMOSCopyImageROIOddRect_AOD(b.pResult, &dst, &frame, &src);
}

}  // namespace
}  // namespace lumivex::stitch

using namespace lumivex::stitch;
using lumivex::W32;
using lumivex::WrapAdd;
using lumivex::WrapSub;

extern "C" {

int32_t ZMOSCreateImageBlender_SBI(ZMOSIMAGEBLENDER** phBlender, ZMOSIMAGE* pResult,
                                   int32_t lDirection, int32_t lMinOverlap,
                                   uint32_t dwPathSearchThreshold, MHandle hMemMgr) {
  const auto lock = LockBlendTable();
  if (phBlender == nullptr) return ZMOS_ERR_INVALID_PARAM;
  *phBlender = nullptr;
  auto* b = static_cast<ZMOSIMAGEBLENDER*>(MMemAlloc(hMemMgr, sizeof(ZMOSIMAGEBLENDER)));
  if (b == nullptr) return ZMOS_ERR_NO_MEMORY;
  MMemSet(b, 0, sizeof(ZMOSIMAGEBLENDER));
  b->bFirstFrame = 1;
  b->lDirection = lDirection;
  b->lMinBlend = lMinOverlap;
  b->pResult = pResult;
  b->hMemMgr = hMemMgr;
  ZMOSSetPathSearchThreshold(dwPathSearchThreshold);
  ZMOSSetBlendTableBufferHeadle(hMemMgr);
  const std::int32_t res = ZMOSCreateBlendTable(lMinOverlap, hMemMgr);
  if (res != 0) {
    MMemFree(hMemMgr, b);
    return res;
  }
  *phBlender = b;
  return ZMOS_OK;
}

void ZMOSSetDirection_SBI(ZMOSIMAGEBLENDER* hBlender, int32_t lDirection) {
  if (hBlender != nullptr) hBlender->lDirection = lDirection;
}

int32_t ZMOSImageBlenderRun_SBI(ZMOSIMAGEBLENDER* hBlender, const ZMOSIMAGE* pFrame,
                                const ZMOSRECT* pRect, const int32_t* plOffset, int32_t lSeam,
                                int32_t lOverlapStart) {
  const auto lock = LockBlendTable();
  if (hBlender == nullptr || pFrame == nullptr || plOffset == nullptr ||
      hBlender->pResult == nullptr)
    return ZMOS_ERR_INVALID_PARAM;
  ZMOSIMAGEBLENDER& b = *hBlender;
  const ZMOSRECT r = pRect != nullptr ? *pRect : ZMOSRECT{0, 0, pFrame->lWidth, pFrame->lHeight};
  const W32 w = pFrame->lWidth, h = pFrame->lHeight, cw = b.pResult->lWidth;
  const W32 e = lSeam, f = lOverlapStart;
  if (b.lMaxBlend == 0) b.lMaxBlend = w / 2;
  if (b.bFirstFrame) return FirstFrame(b, *pFrame, r, e, f);
  if (b.lDirection == ZMOS_DIRECTION_LEFT_TO_RIGHT) {
    if (b.lContentEnd >= cw) return ZMOS_OK;
    if (e < f || f < 0 || e > w) return ZMOS_ERR_INVALID_PARAM;
    b.lPosition = W32(b.lPosition) + plOffset[0];
    b.lCrossY = W32(b.lCrossY) + plOffset[1];
    const Rows rows = PlaceRows(b, b.lCrossY, h, false);
    W32 v = e - f;
    if (v >= b.lMinBlend) {
      v = std::min<std::int32_t>(v, b.lMaxBlend);
      const ZMOSRECT into{b.lPosition - v, rows.result_top, b.lPosition, rows.result_bottom};
      const ZMOSRECT from{f, rows.frame_top, f + v, rows.frame_bottom};
      // A frame whose blend fails is dropped without an error.
      if (ZMOSBlendImageOdd_AME(b.pResult, &into, pFrame, &from, 1, b.hMemMgr) != 0) return ZMOS_OK;
    }
    const W32 len = std::min(r.lRight - e, cw - b.lPosition);
    const ZMOSRECT src{e, rows.frame_top, e + len, rows.frame_bottom};
    const ZMOSRECT dst{b.lPosition, rows.result_top, b.lPosition + len, rows.result_bottom};
    b.lContentEnd = b.lPosition + len;
    return ZMOSCopyImageROIOddRect_AOD(b.pResult, &dst, pFrame, &src);
  }
  if (b.lDirection == ZMOS_DIRECTION_RIGHT_TO_LEFT) {
    if (b.lContentEnd <= 0) return ZMOS_OK;
    if (e > f || f > w || e < 0) return ZMOS_ERR_INVALID_PARAM;
    b.lPosition = W32(b.lPosition) + plOffset[0];
    b.lCrossY = W32(b.lCrossY) + plOffset[1];
    const Rows rows = PlaceRows(b, b.lCrossY, h, true);
    W32 v = f - e;
    if (v > b.lMinBlend) {
      v = std::min<std::int32_t>(v, b.lMaxBlend);
      const W32 right = cw - b.lPosition + v;
      const ZMOSRECT into{b.lPosition, rows.result_top, right, rows.result_bottom};
      const ZMOSRECT from{r.lRight - right + b.lPosition, rows.frame_top, f, rows.frame_bottom};
      if (ZMOSBlendImageOdd_AME(b.pResult, &into, pFrame, &from, 0, b.hMemMgr) != 0) return ZMOS_OK;
    }
    W32 dst_left = r.lLeft - e + b.lPosition, src_left = r.lLeft;
    if (dst_left < 0) {
      src_left = e - b.lPosition;
      dst_left = 0;
    }
    const ZMOSRECT src{src_left, rows.frame_top, e, rows.frame_bottom};
    const ZMOSRECT dst{dst_left, rows.result_top, b.lPosition, rows.result_bottom};
    b.lContentEnd = dst_left;
    return ZMOSCopyImageROIOddRect_AOD(b.pResult, &dst, pFrame, &src);
  }
  return ZMOS_OK;
}

void ZMOSGetValidRect_SBI(ZMOSIMAGEBLENDER* hBlender, ZMOSRECT* pRect) {
  if (hBlender == nullptr || pRect == nullptr || hBlender->pResult == nullptr) return;
  ZMOSIMAGEBLENDER& b = *hBlender;
  const W32 cw = b.pResult->lWidth, ch = b.pResult->lHeight;
  if (b.bCropped) {
    *pRect = ZMOSRECT{0, 0, cw, ch};
    return;
  }
  b.lMaxPos = RoundUpEven(b.lMaxPos);
  b.lMaxNeg = RoundUpEven(b.lMaxNeg);
  if (b.lDirection == ZMOS_DIRECTION_LEFT_TO_RIGHT) {
    b.lContentEnd &= ~1;
    *pRect = ZMOSRECT{0, b.lMaxPos, b.lContentEnd, ch - b.lMaxNeg};
  } else if (b.lDirection == ZMOS_DIRECTION_RIGHT_TO_LEFT) {
    b.lContentEnd = RoundUpEven(b.lContentEnd);
    *pRect = ZMOSRECT{b.lContentEnd, b.lMaxPos, cw, ch - b.lMaxNeg};
  }
}

int32_t ZMOSCropResultImage_SBI(ZMOSIMAGEBLENDER* hBlender) {
  if (hBlender == nullptr || hBlender->pResult == nullptr) return ZMOS_ERR_INVALID_PARAM;
  // No rectangle is defined for vertical sweeps.
  if (!lumivex::IsHorizontal(hBlender->lDirection)) return ZMOS_ERR_INVALID_PARAM;
  ZMOSRECT valid{};
  ZMOSGetValidRect_SBI(hBlender, &valid);
  const std::int32_t res = ZMOSCropImage_AOD(hBlender->pResult, &valid);
  hBlender->bCropped = 1;
  return res;
}

void ZMOSReleaseImageBlender_SBI(ZMOSIMAGEBLENDER** phBlender) {
  const auto lock = LockBlendTable();
  if (phBlender == nullptr || *phBlender == nullptr) return;
  ZMOSReleaseBlendTable();
  MMemFree((*phBlender)->hMemMgr, *phBlender);
  *phBlender = nullptr;
}

int32_t ZMOSCreateImageStitcher_ISR(ZMOSIMAGESTITCHER** phStitcher, int32_t lWidth, int32_t lHeight,
                                    uint32_t dwFormat, int32_t lDirection, int32_t lCapacity,
                                    MHandle hMemMgr) {
  const auto lock = LockBlendTable();
  if (phStitcher == nullptr) return ZMOS_ERR_INVALID_PARAM;
  *phStitcher = nullptr;
  auto* s = static_cast<ZMOSIMAGESTITCHER*>(MMemAlloc(hMemMgr, sizeof(ZMOSIMAGESTITCHER)));
  if (s == nullptr) return ZMOS_ERR_NO_MEMORY;
  MMemSet(s, 0, sizeof(ZMOSIMAGESTITCHER));
  s->hMemMgr = hMemMgr;
  s->lWidth = lWidth;
  s->lHeight = lHeight;
  s->dwFormat = dwFormat;
  s->lDirection = lDirection;
  ZMOSCreateImage_AOD(&s->pResult, lWidth, lHeight, dwFormat, hMemMgr);
  std::int32_t res = ZMOSCreateImageStack_SIS(&s->hStack, lCapacity, hMemMgr);
  if (res == 0)
    res = ZMOSCreateImageBlender_SBI(&s->hBlender, s->pResult, lDirection, 6, 30, hMemMgr);
  if (res != 0) {
    ZMOSReleaseImageStitcher_ISR(&s);  // the handle is set only for a complete stitcher
    return res;
  }
  *phStitcher = s;
  return ZMOS_OK;
}

int32_t ZMOSAddImage_ISR(ZMOSIMAGESTITCHER* hStitcher, const ZMOSIMAGE* pFrame,
                         const int32_t* plOffset, int32_t lOverlap, int32_t lSeam,
                         int32_t lStripLength) {
  const auto lock = LockBlendTable();
  if (hStitcher == nullptr || pFrame == nullptr || plOffset == nullptr)
    return ZMOS_ERR_INVALID_PARAM;
  ZMOSIMAGESTITCHER& s = *hStitcher;
  const std::int32_t o = lOverlap & ~1, seam = lSeam & ~1, l = lStripLength & ~1;
  const std::int32_t fw = pFrame->lWidth, fh = pFrame->lHeight;
  ZMOSRECT strip{};
  switch (s.lDirection) {
    case 0:
      strip = {WrapSub(seam, o), 0, WrapAdd(seam, l), fh};
      break;
    case 1:
      strip = {WrapSub(seam, l), 0, WrapAdd(seam, o), fh};
      break;
    case 2:
      strip = {0, WrapSub(seam, o), fw, WrapAdd(seam, l)};
      break;
    case 3:
      strip = {0, WrapSub(seam, l), fw, WrapAdd(seam, o)};
      break;
    default:
      ++s.lCount;  // nothing is stored for other directions
      return ZMOS_OK;
  }
  const std::int32_t res =
      ZMOSAddImageIntoStack_SIS(s.hStack, pFrame, plOffset[0], plOffset[1], o, o, l, &strip);
  if (res != 0) return res;
  ++s.lCount;
  return ZMOS_OK;
}

int32_t ZMOSStitchBlendImage_ISR(ZMOSIMAGESTITCHER* hStitcher) {
  const auto lock = LockBlendTable();
  if (hStitcher == nullptr) return ZMOS_ERR_INVALID_PARAM;
  std::int32_t last_result = ZMOS_OK;
  for (;;) {
    ZMOSIMAGE* image = nullptr;
    std::int32_t tag1 = 0, tag2 = 0, overlap = 0, seam = 0, length = 0, last = 0;
    const std::int32_t res = ZMOSGetImageFromStack_SIS(hStitcher->hStack, &image, &tag1, &tag2,
                                                       &overlap, &seam, &length, &last);
    if (res != 0) return res;
    const std::int32_t offset[2] = {tag1, tag2};
    // Blender failures do not stop the replay.
    last_result =
        ZMOSImageBlenderRun_SBI(hStitcher->hBlender, image, nullptr, offset, seam, seam - overlap);
    if (last) return last_result;
  }
}

void ZMOSGetValidRect_ISR(ZMOSIMAGESTITCHER* hStitcher, ZMOSRECT* pRect) {
  if (hStitcher != nullptr) ZMOSGetValidRect_SBI(hStitcher->hBlender, pRect);
}

void ZMOSGetResultImage_ISR(ZMOSIMAGESTITCHER* hStitcher, ZMOSIMAGE** ppImage) {
  if (hStitcher != nullptr && ppImage != nullptr) *ppImage = hStitcher->pResult;
}

void ZMOSReleaseImageStitcher_ISR(ZMOSIMAGESTITCHER** phStitcher) {
  const auto lock = LockBlendTable();
  if (phStitcher == nullptr || *phStitcher == nullptr) return;
  ZMOSIMAGESTITCHER* s = *phStitcher;
  ZMOSReleaseImageBlender_SBI(&s->hBlender);
  ZMOSReleaseImageStack_SIS(&s->hStack);
  ZMOSFreeImage_AOD(&s->pResult, s->hMemMgr);
  MMemFree(s->hMemMgr, s);
  *phStitcher = nullptr;
}

}  // extern "C"
