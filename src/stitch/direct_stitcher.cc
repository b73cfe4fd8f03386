// Direct image stitcher: lays each kept frame as a strip on the panorama canvas at the
// sweep position reached so far, keeps the overlap with the previous strip aside, and
// blends every overlap in at the end.
#include "src/stitch/direct_stitcher.h"

#include <algorithm>
#include <cstdint>

#include "src/image/image_internal.h"
#include "src/platform/direction.h"
#include "src/platform/memory.h"
#include "src/platform/wrap.h"
#include "src/stitch/blend_internal.h"
#include "src/stitch/exposure.h"

namespace lumivex::stitch {
namespace {

// Orientation of a sweep: "along" is the axis the panorama grows on, "cross" the other.
struct Axes {
  bool horizontal;  // along = x
  bool forward;     // the panorama grows toward increasing coordinates

  explicit Axes(std::int32_t direction)
      : horizontal(lumivex::IsHorizontal(direction)), forward(lumivex::IsForward(direction)) {}

  ZMOSRECT Rect(std::int32_t a0, std::int32_t a1, std::int32_t c0, std::int32_t c1) const {
    return horizontal ? ZMOSRECT{a0, c0, a1, c1} : ZMOSRECT{c0, a0, c1, a1};
  }
  std::int32_t AlongEnd(const ZMOSRECT& r) const { return horizontal ? r.lRight : r.lBottom; }
};

// The per-orientation fields of the record.
struct CrossState {
  std::int32_t& position;  // accumulated cross offset
  std::int32_t& margin;
  std::int32_t& largest_pos;
  std::int32_t& largest_neg;
};

CrossState CrossOf(ZMOSDIRECTSTITCHER& s, const Axes& axes) {
  if (axes.horizontal) return CrossState{s.lCrossY, s.lMarginY, s.lMaxPosY, s.lMaxNegY};
  return CrossState{s.lCrossX, s.lMarginX, s.lMaxPosX, s.lMaxNegX};
}

// Cross extent of a later frame: where its lines start in the frame and on the canvas and
// how many are laid, after the frame moved `offset` across the sweep.
struct CrossSpan {
  W32 src, dst, count;
};

CrossSpan PlaceAcross(CrossState& c, W32 offset, W32 frame_extent, W32 canvas_extent) {
  c.position = W32(c.position) + offset;
  const W32 y = c.position;
  CrossSpan span{};
  if (y < 1) {
    const W32 up = -y;
    if (up > c.margin) {
      span = CrossSpan{up - c.margin, 0, 0};
    } else {
      span = CrossSpan{0, y + c.margin, 0};
    }
    span.count = frame_extent - span.src;
    c.largest_neg = std::max<std::int32_t>(c.largest_neg, up);
  } else {
    span = CrossSpan{0, c.margin + y, frame_extent};
    if (c.margin + y + frame_extent > canvas_extent) span.count = canvas_extent - (c.margin + y);
    c.largest_pos = std::max<std::int32_t>(c.largest_pos, y);
  }
  return span;
}

std::int32_t AddFirst(ZMOSDIRECTSTITCHER& s, const Axes& axes, const ZMOSIMAGE& frame, W32 overlap,
                      W32 seam, W32 length, W32 last) {
  const W32 canvas_along = axes.horizontal ? s.lCanvasWidth : s.lCanvasHeight;
  const W32 frame_cross = axes.horizontal ? frame.lHeight : frame.lWidth;
  const W32 margin = axes.horizontal ? s.lMarginY : s.lMarginX;
  const W32 strip = overlap + length;
  if (strip > canvas_along) return ZMOS_ERR_INVALID_PARAM;
  const W32 src0 = axes.forward ? seam - overlap : seam - length;
  const W32 dst0 = axes.forward ? W32(0) : canvas_along - strip;
  const ZMOSRECT src = axes.Rect(src0, src0 + strip, 0, frame_cross);
  const ZMOSRECT dst = axes.Rect(dst0, dst0 + strip, margin, margin + frame_cross);
  if (const std::int32_t res = ZMOSCopyImageROI_AOD(s.pCanvas, &dst, &frame, &src); res != 0)
    return res;
  s.lPosition = axes.forward ? overlap : canvas_along - overlap;
  s.lContentEnd = last ? (axes.forward ? strip : canvas_along - strip) : W32(s.lPosition);
  s.pOverlapRects[0] = ZMOSRECT{};
  s.pStripRects[0] = ZMOSRECT{};
  s.bFirstFrame = 0;
  s.lCount = 1;
  return ZMOS_OK;
}

std::int32_t AddLater(ZMOSDIRECTSTITCHER& s, const Axes& axes, const ZMOSIMAGE& frame,
                      const std::int32_t* offset, W32 overlap, W32 seam, W32 length, W32 last,
                      const Policy& policy) {
  const W32 canvas_along = axes.horizontal ? s.lCanvasWidth : s.lCanvasHeight;
  const W32 canvas_cross = axes.horizontal ? s.lCanvasHeight : s.lCanvasWidth;
  const W32 frame_cross = axes.horizontal ? frame.lHeight : frame.lWidth;
  const W32 advance = axes.horizontal ? offset[0] : offset[1];
  if (axes.forward ? advance < 0 : advance > 0) return ZMOS_ERR_INVALID_PARAM;
  const W32 p = s.lPosition + advance;
  // Running off the canvas ends the sweep quietly.
  if (axes.forward && p >= canvas_along) {
    s.lPosition = canvas_along;
    return ZMOS_OK;
  }
  if (!axes.forward && p < 1) {
    s.lPosition = 0;
    return ZMOS_OK;
  }
  s.lPosition = p;
  CrossState cross = CrossOf(s, axes);
  const CrossSpan span =
      PlaceAcross(cross, axes.horizontal ? offset[1] : offset[0], frame_cross, canvas_cross);

  // The strip after the seam, cut at the canvas edge; odd positions keep chroma in phase.
  const W32 len = std::min<std::int32_t>(length, axes.forward ? canvas_along - p : p);
  const W32 src0 = axes.forward ? seam : seam - len;
  const W32 dst0 = axes.forward ? p : p - len;
  const ZMOSRECT src = axes.Rect(src0, src0 + len, span.src, span.src + span.count);
  const ZMOSRECT dst = axes.Rect(dst0, dst0 + len, span.dst, span.dst + span.count);
  if (const std::int32_t res = ZMOSCopyImageROIOddRect_AOD(s.pCanvas, &dst, &frame, &src); res != 0)
    return res;
  s.lContentEnd = last ? (axes.forward ? p + len : p - len) : p;

  const W32 i = s.lCount;
  const W32 ov0 = axes.forward ? p - overlap : p;
  s.pOverlapRects[i] = axes.Rect(ov0, ov0 + overlap, span.dst, span.dst + span.count);

  // The overlap strip, set beside the previous one; its cross start is rounded down to
  // even (the shift is recorded) and its end up, so chroma rows and columns stay whole.
  const W32 first = span.src & ~1, shift = span.src & 1;
  const W32 end = span.src + span.count;
  const W32 end_even = end + (end & 1);
  const W32 r = axes.AlongEnd(s.pStripRects[i - 1]);
  const W32 strip0 = axes.forward ? seam - overlap : seam;
  const ZMOSRECT strip_src = axes.Rect(strip0, strip0 + overlap, first, end_even);
  const ZMOSRECT strip_dst = axes.Rect(r, r + overlap, 0, end_even - first);
  const auto copy =
      policy.keep_overlap_chroma_phase ? ZMOSCopyImageROIOddRect_AOD : ZMOSCopyImageROI_AOD;
  if (const std::int32_t res = copy(s.pStrips, &strip_dst, &frame, &strip_src); res != 0)
    return res;
  s.pStripRects[i] = axes.Rect(r, r + overlap, shift, end - first);
  ++s.lCount;
  return ZMOS_OK;
}

}  // namespace
}  // namespace lumivex::stitch

using namespace lumivex::stitch;
using lumivex::W32;

namespace lumivex::stitch {
namespace {

bool CapacityFits(std::int32_t capacity) {
  return capacity >= 1 && capacity <= INT32_MAX / (2 * static_cast<std::int32_t>(sizeof(ZMOSRECT)));
}

}  // namespace

// Mirrors ZMOSCreateDirectImageStitcher_DIS: the record, the rectangles, canvas and strips.
std::int64_t DirectStitcherBytes(std::int32_t width, std::int32_t height, std::uint32_t format,
                                 std::int32_t capacity) {
  if (!CapacityFits(capacity)) return -1;
  const std::int64_t image = image::ImageBytes(width, height, format);
  if (image < 0) return -1;
  return platform::BlockBytes(sizeof(ZMOSDIRECTSTITCHER)) +
         platform::BlockBytes(2 * std::int64_t{capacity} * std::int64_t{sizeof(ZMOSRECT)}) +
         2 * image;
}

// What the finishing pass takes at once on top of the stitcher: one overlap's blend
// tables, seam path and difference map (the seam search never runs there, since each
// table is as wide as its own overlap), or the quality profile's per-strip gains, which
// are freed before the blends begin.
std::int64_t StitchScratchBytes(bool horizontal, bool interleaved, std::int32_t overlap,
                                std::int32_t cross, std::int32_t strips) {
  if (overlap < 1 || cross < 1) return 0;
  // Left to right the map has a row of the overlap's width per cross row and one more;
  // top to bottom a row of the cross width per overlap row and one more.
  const std::int64_t map =
      horizontal ? std::int64_t{overlap} * (cross + 1) : std::int64_t{cross} * (overlap + 1);
  // The chroma pass adds its own table while the luma's scratch is still held: as many
  // weights as chroma bytes across the overlap (interleaved, or a plane's half width), or
  // as chroma rows along it.
  const std::int32_t chroma = (horizontal && interleaved ? overlap : overlap / 2) & ~1;
  const std::int64_t blend = platform::BlockBytes(4 * std::int64_t{overlap}) +
                             platform::BlockBytes(4 * (std::int64_t{cross} + 1)) +
                             platform::BlockBytes(map) +
                             platform::BlockBytes(4 * std::int64_t{chroma});
  const std::int64_t gains = platform::BlockBytes(std::int64_t{strips} * sizeof(double));
  return blend < 0 || gains < 0 ? -1 : std::max(blend, gains);
}

}  // namespace lumivex::stitch

extern "C" {

int32_t ZMOSCreateDirectImageStitcher_DIS(ZMOSDIRECTSTITCHER** phStitcher, int32_t lWidth,
                                          int32_t lHeight, uint32_t dwFormat, int32_t lDirection,
                                          int32_t lCapacity, MHandle hMemMgr) {
  if (phStitcher == nullptr) return ZMOS_ERR_INVALID_PARAM;
  *phStitcher = nullptr;
  if (!CapacityFits(lCapacity)) return ZMOS_ERR_INVALID_PARAM;
  auto* s = static_cast<ZMOSDIRECTSTITCHER*>(MMemAlloc(hMemMgr, sizeof(ZMOSDIRECTSTITCHER)));
  if (s == nullptr) return ZMOS_ERR_NO_MEMORY;
  MMemSet(s, 0, sizeof(ZMOSDIRECTSTITCHER));
  s->hMemMgr = hMemMgr;
  s->lCapacity = lCapacity;
  s->lDirection = lDirection;
  s->lCanvasHeight = lHeight;
  s->lCanvasWidth = lWidth;
  s->bFirstFrame = 1;
  const auto rect_bytes = static_cast<std::int32_t>(2 * lCapacity * sizeof(ZMOSRECT));
  s->pOverlapRects = static_cast<ZMOSRECT*>(MMemAlloc(hMemMgr, rect_bytes));
  if (s->pOverlapRects == nullptr) {
    MMemFree(hMemMgr, s);
    return ZMOS_ERR_NO_MEMORY;
  }
  MMemSet(s->pOverlapRects, 0, rect_bytes);
  s->pStripRects = s->pOverlapRects + lCapacity;
  if (const std::int32_t res = ZMOSCreateImage_AOD(&s->pCanvas, lWidth, lHeight, dwFormat, hMemMgr);
      res != 0) {
    MMemFree(hMemMgr, s->pOverlapRects);
    MMemFree(hMemMgr, s);
    return res;
  }
  // A failed strip image still hands out the stitcher (it can be released), with the code.
  const std::int32_t res = ZMOSCreateImage_AOD(&s->pStrips, lWidth, lHeight, dwFormat, hMemMgr);
  *phStitcher = s;
  return res;
}

int32_t ZMOSAddImage_DIS(ZMOSDIRECTSTITCHER* hStitcher, const ZMOSIMAGE* pFrame,
                         const int32_t* plOffset, int32_t lOverlap, int32_t lSeam,
                         int32_t lStripLength, int32_t bLast) {
  return lumivex::stitch::AddImage(hStitcher, pFrame, plOffset, lOverlap, lSeam, lStripLength,
                                   bLast, lumivex::kExactPolicy);
}

}  // extern "C"

std::int32_t lumivex::stitch::AddImage(ZMOSDIRECTSTITCHER* stitcher, const ZMOSIMAGE* frame,
                                       const std::int32_t* offset, std::int32_t overlap,
                                       std::int32_t seam, std::int32_t strip_length,
                                       std::int32_t last, const Policy& policy) {
  if (stitcher == nullptr || frame == nullptr || offset == nullptr) return ZMOS_ERR_INVALID_PARAM;
  ZMOSDIRECTSTITCHER& s = *stitcher;
  if (!lumivex::IsKnownDirection(s.lDirection)) return ZMOS_OK;
  // More frames than the stitcher was made for would write past its rectangle arrays.
  if (s.pCanvas == nullptr || s.pStrips == nullptr || s.pOverlapRects == nullptr ||
      s.lCount >= s.lCapacity)
    return ZMOS_ERR_INVALID_PARAM;
  const Axes axes(s.lDirection);
  if (s.bFirstFrame) return AddFirst(s, axes, *frame, overlap, seam, strip_length, last);
  return AddLater(s, axes, *frame, offset, overlap, seam, strip_length, last, policy);
}

extern "C" {

int32_t ZMOSStitchBlendImage_DIS(ZMOSDIRECTSTITCHER* hStitcher) {
  return lumivex::stitch::StitchBlend(hStitcher, lumivex::kExactPolicy);
}

}  // extern "C"

std::int32_t lumivex::stitch::StitchBlend(ZMOSDIRECTSTITCHER* hStitcher, const Policy& policy) {
  if (hStitcher == nullptr) return ZMOS_ERR_INVALID_PARAM;
  ZMOSDIRECTSTITCHER& s = *hStitcher;
  if (s.pCanvas == nullptr || s.pStrips == nullptr || s.pOverlapRects == nullptr) return ZMOS_OK;
  if (policy.equalize_exposure) {
    const std::int32_t res = EqualizeExposure(s);
    if (res != 0 && policy.report_unblended_seams) return res;
  }
  const std::int32_t d = s.lDirection;
  for (std::int32_t i = 1; i < s.lCount; ++i) {
    // The new frame's strip lies after the overlap along the sweep.
    const std::int32_t res =
        d == 0 || d == 1 ? ZMOSBlendImageOdd_AME(s.pCanvas, &s.pOverlapRects[i], s.pStrips,
                                                 &s.pStripRects[i], d == 0 ? 1 : 0, s.hMemMgr)
                         : ZMOSBlendImageOddT2B_AME(s.pCanvas, &s.pOverlapRects[i], s.pStrips,
                                                    &s.pStripRects[i], d == 2 ? 1 : 0, s.hMemMgr);
    // A failed blend leaves the later overlaps unblended, without an error.
    if (res == ZMOS_ERR_NO_MEMORY && policy.report_unblended_seams) return res;
    if (res != 0) break;
  }
  return ZMOS_OK;
}

extern "C" {

void ZMOSGetValidRect_DIS(ZMOSDIRECTSTITCHER* hStitcher, ZMOSRECT* pRect) {
  if (hStitcher == nullptr || pRect == nullptr) return;
  ZMOSDIRECTSTITCHER& s = *hStitcher;
  s.lMaxPosY = RoundUpEven(s.lMaxPosY);
  s.lMaxNegY = RoundUpEven(s.lMaxNegY);
  s.lMaxPosX = RoundUpEven(s.lMaxPosX);
  s.lMaxNegX = RoundUpEven(s.lMaxNegX);
  const std::int32_t canvas_w = s.pCanvas != nullptr ? s.pCanvas->lWidth : s.lCanvasWidth;
  const std::int32_t canvas_h = s.pCanvas != nullptr ? s.pCanvas->lHeight : s.lCanvasHeight;
  const W32 top = W32(s.lMarginY) + s.lMaxPosY;
  const W32 bottom = W32(s.lMarginY) + s.lCanvasHeight - s.lMaxNegY;
  const W32 left = W32(s.lMarginX) + s.lMaxPosX;
  const W32 right = W32(s.lMarginX) + s.lCanvasWidth - s.lMaxNegX;
  switch (s.lDirection) {
    case 0:
      s.lContentEnd &= ~1;
      *pRect = ZMOSRECT{0, top, s.lContentEnd, bottom};
      break;
    case 1:
      s.lContentEnd = RoundUpEven(s.lContentEnd);
      *pRect = ZMOSRECT{s.lContentEnd, top, canvas_w, bottom};
      break;
    case 2:
      s.lContentEnd &= ~1;
      *pRect = ZMOSRECT{left, 0, right, s.lContentEnd};
      break;
    case 3:
      s.lContentEnd = RoundUpEven(s.lContentEnd);
      *pRect = ZMOSRECT{left, s.lContentEnd, right, canvas_h};
      break;
    default:
      *pRect = ZMOSRECT{};
      break;
  }
}

void ZMOSGetResultImage_DIS(ZMOSDIRECTSTITCHER* hStitcher, ZMOSIMAGE** ppImage) {
  if (hStitcher == nullptr || ppImage == nullptr) return;
  *ppImage = hStitcher->pCanvas;
}

void ZMOSSetCrossMargin_DIS(ZMOSDIRECTSTITCHER* hStitcher, int32_t lMarginY, int32_t lMarginX) {
  if (hStitcher == nullptr) return;
  hStitcher->lMarginY = lMarginY;
  hStitcher->lMarginX = lMarginX;
}

void ZMOSReleasePartialDirectImageStitcher_DIS(ZMOSDIRECTSTITCHER** phStitcher) {
  if (phStitcher == nullptr || *phStitcher == nullptr) return;
  ZMOSDIRECTSTITCHER& s = **phStitcher;
  ZMOSFreeImage_AOD(&s.pStrips, s.hMemMgr);
  MMemFree(s.hMemMgr, s.pOverlapRects);
  s.pOverlapRects = nullptr;
  s.pStripRects = nullptr;
}

void ZMOSReleaseDirectImageStitcher_DIS(ZMOSDIRECTSTITCHER** phStitcher) {
  if (phStitcher == nullptr || *phStitcher == nullptr) return;
  ZMOSReleasePartialDirectImageStitcher_DIS(phStitcher);
  ZMOSDIRECTSTITCHER* s = *phStitcher;
  ZMOSFreeImage_AOD(&s->pCanvas, s->hMemMgr);
  MMemFree(s->hMemMgr, s);
  *phStitcher = nullptr;
}

}  // extern "C"
