// Sweep frame selection: detects the sweep direction, lays out the canvas on the frame
// that finds it, then keeps frames as the frame selector decides, adds them to the
// canvas, watches for drift and motion on the wrong axis, and decides when the sweep
// is complete.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>

#include "src/engine/profile.h"
#include "src/engine/sweep_stitcher.h"
#include "src/image/image_internal.h"
#include "src/platform/direction.h"
#include "src/platform/memory.h"
#include "src/platform/wrap.h"
#include "src/select/frame_selector.h"
#include "src/stitch/direct_stitcher.h"
#include "src/stitch/refine.h"
#include "src/track/tracker.h"

namespace lumivex::engine {
namespace {

constexpr std::int32_t StepFor(std::int32_t w) {
  return w * 14 / 1280;
}

constexpr std::int32_t StripFor(std::int32_t w) {
  return (w * 120 / 1280) & ~1;
}

// Canvas length along a one-band sweep: three frame widths for 180 degrees, the frame
// width also for vertical sweeps.
std::int32_t SweepLength(std::int32_t frame_width, std::int32_t max_angle) {
  const auto f = static_cast<float>(max_angle * 6.0 / 360.0);
  const float length = static_cast<float>(frame_width) * f;
  // A length past the int range converts to INT32_MIN, as x86 does, rather than leaving
  // the conversion undefined; such a sweep cannot be laid out.
  if (!(length > -2147483648.0f && length < 2147483648.0f)) return INT32_MIN;
  return static_cast<std::int32_t>(length) & ~3;
}

void Derive(ZMOSSWEEPSTITCHER& s, std::int32_t w) {
  s.lMaxStep = w / 5;
  s.lDirThreshold = w / 32;
  s.lStep = StepFor(w);
  s.lStripWidth = StripFor(w);
  s.bDerived = 1;
}

// Whether detection gives up for lack of texture. The tracker's status speaks for its
// horizontal bands only; the quality profile also asks the vertical band that would
// measure an upward or downward sweep (flat below the measure that picks the direct
// matcher), so a start on sky with texture below it is not given up.
bool TooFlatToDetect(const ZMOSSWEEPSTITCHER& s) {
  const bool horizontal_flat = ZMOSGetVideoTrackStatus_PBM(s.hTracker) == ZMOS_ERR_NO_TEXTURE;
  if (!PolicyOf(&s).detect_on_either_axis) return horizontal_flat;
  return horizontal_flat && lumivex::track::BandTexture().cur_vert[1] < 33;
}

// Runs while the direction is unknown; the detection tracker is never swapped, so each
// offset is measured against the frame detection started on.
std::int32_t DetectDirection(ZMOSSWEEPSTITCHER& s, const ZMOSIMAGE& frame, const ZMOSIMAGE& track) {
  const std::int32_t w = track.lWidth, h = track.lHeight;
  std::int32_t f[2] = {0, 0};
  if (s.hTracker == nullptr) {
    if (const std::int32_t res = ZMOSCreateVideoTrackerFF_PBM(&s.hTracker, w, h, 0, s.hMemMgr);
        res != 0)
      return res;
    ZMOSSetMaxOffet_PBM(s.hTracker, w / 10, h / 10);
    return ZMOSVideoTrackerRunFF_PBM(s.hTracker, &track, f);
  }
  if (const std::int32_t res = ZMOSVideoTrackerRunFF_PBM(s.hTracker, &track, f); res != 0)
    return res;
  const std::int32_t big_w = frame.lWidth, t = s.lDirThreshold;
  const auto sx = static_cast<std::int32_t>(std::int64_t{big_w} * f[0] / w);
  const auto sy = static_cast<std::int32_t>(std::int64_t{big_w} * f[1] / w);
  if (sx > t) {
    s.lDirection = 0;
  } else if (sx < -t) {
    s.lDirection = 1;
  } else if (sy > t) {
    s.lDirection = 2;
  } else if (sy < -t) {
    s.lDirection = 3;
  } else {
    return TooFlatToDetect(s) ? ZMOS_ERR_NO_TEXTURE : ZMOS_OK;
  }
  return ZMOS_OK;
}

// Canvas size, strip positions and cut positions for the detected direction.
std::int32_t LayOut(ZMOSSWEEPSTITCHER& s) {
  const bool horizontal = IsHorizontal(s.lDirection);
  if (!lumivex::IsKnownDirection(s.lDirection)) return ZMOS_ERR_INVALID_PARAM;
  const std::int32_t n = s.lBandCount;
  std::int32_t length = 0;
  if (n == 1) {
    length = SweepLength(s.lFrameWidth, s.lMaxAngle);
  } else if (horizontal) {
    length = static_cast<std::int32_t>(
                 static_cast<double>(static_cast<float>(s.lFrameWidth) * 2.6f) + 0.5) &
             ~3;
  } else {
    length = (2 * s.lFrameWidth) & ~3;
  }
  s.lPanoWidth = horizontal ? length : s.lFrameWidth;
  s.lPanoHeight = horizontal ? s.lFrameHeight : length;
  s.lMaxKeptFrames = s.lStep > 0 ? length / s.lStep : 0;

  const std::int32_t size = horizontal ? s.lFrameWidth : s.lFrameHeight;
  if (n == 1) {
    s.plStripPos[0] = horizontal ? s.lFrameWidth / 2 : (s.lFrameHeight / 2) & ~1;
    const std::int32_t p = s.plStripPos[0];
    const bool forward = lumivex::IsForward(s.lDirection);
    s.lStripStart = forward ? p : size - p;
    s.lStripEnd = forward ? size - p : p;
    return ZMOS_OK;
  }
  const std::int32_t spacing = (size / 10) & ~1;
  const std::int32_t first = (n & 1) ? (size / 2 - (spacing * (n - 1)) / 2) & ~1
                                     : (size / 2 - spacing / 2 - spacing * (n / 2 - 1)) & ~1;
  if (first < 0) return ZMOS_ERR_INVALID_PARAM;
  for (std::int32_t i = 0; i < n; ++i) s.plStripPos[i] = first + i * spacing;
  s.lStripStart = s.lStripEnd = 0;
  return ZMOS_OK;
}

std::int32_t SetUp(ZMOSSWEEPSTITCHER& s, const ZMOSIMAGE& frame) {
  s.lFrameWidth = frame.lWidth;
  s.lFrameHeight = frame.lHeight;
  s.lFormat = frame.dwFormat;
  s.lMainOffset = 0;
  if (const std::int32_t res = LayOut(s); res != 0) return res;
  if (const std::int32_t res = ZMOSCreateFrameSelector_FS(&s.hFrameSelector, s.lStep, s.lMaxStep,
                                                          s.lStripWidth, s.lDirection, s.hMemMgr);
      res != 0)
    return res;
  const auto bytes = static_cast<std::int32_t>(s.lBandCount * sizeof(ZMOSDIRECTSTITCHER*));
  s.phDIS = static_cast<ZMOSDIRECTSTITCHER**>(MMemAlloc(s.hMemMgr, bytes));
  if (s.phDIS == nullptr) return ZMOS_ERR_NO_MEMORY;
  MMemSet(s.phDIS, 0, bytes);
  const std::int32_t none[2] = {0, 0};
  for (std::int32_t i = 0; i < s.lBandCount; ++i) {
    if (const std::int32_t res =
            ZMOSCreateDirectImageStitcher_DIS(&s.phDIS[i], s.lPanoWidth, s.lPanoHeight, s.lFormat,
                                              s.lDirection, s.lMaxKeptFrames, s.hMemMgr);
        res != 0)
      return res;
    if (const std::int32_t res =
            lumivex::stitch::AddImage(s.phDIS[i], &frame, none, s.lStripStart, s.plStripPos[i],
                                      s.lStripWidth, 0, PolicyOf(&s));
        res != 0)
      return res;
  }
  s.bNeedSetup = 0;
  ++s.lKeptCount;
  s.bNewStrip = 1;
  if (QualityState* quality = QualityOf(&s)) quality->laid_at = s.lFrameCount;
  return ZMOS_OK;
}

// A kept frame: running sums, the drift test, completion and the strip on the canvas.
// Returns a result code; *drifted is set when the frame was refused for drift.
std::int32_t Keep(ZMOSSWEEPSTITCHER& s, const ZMOSIMAGE& frame, std::int32_t dx, std::int32_t dy,
                  bool* drifted) {
  if (!lumivex::IsKnownDirection(s.lDirection)) return ZMOS_OK;
  // Along the sweep the canvas offset grows by the travel (shrinks going backward); across
  // it the drift adds up.
  const bool horizontal = IsHorizontal(s.lDirection), forward = lumivex::IsForward(s.lDirection);
  const std::int32_t along = horizontal ? dx : dy;
  s.lMainOffset = forward ? WrapAdd(s.lMainOffset, along) : WrapSub(s.lMainOffset, along);
  std::int32_t& drift_sum = horizontal ? s.lDriftY : s.lDriftX;
  drift_sum = WrapAdd(drift_sum, horizontal ? dy : dx);
  const std::int32_t drift = drift_sum;
  const std::int32_t k = forward ? along / 2 : -(along / 2);
  // The frame height bounds the drift of both kinds of sweep.
  const std::int32_t third = frame.lHeight / 3;
  if (drift > third || drift < -third) {
    *drifted = true;
    return ZMOS_OK;
  }
  const std::int32_t cut = k & ~1;
  const std::int32_t length = IsHorizontal(s.lDirection) ? s.lPanoWidth : s.lPanoHeight;
  const bool complete =
      s.lBandCount == 1 ? WrapAdd(WrapAdd(s.lStripEnd, s.lMainOffset), s.lStripStart) >= length ||
                              s.lKeptCount >= s.lMaxKeptFrames - 1
                        : s.lMainOffset > s.lPanoWidth || s.lKeptCount >= s.lMaxKeptFrames - 1;
  if (complete) s.bFinished = 1;
  const std::int32_t offset[2] = {dx, dy};
  for (std::int32_t i = 0; i < s.lBandCount; ++i) {
    const std::int32_t res = lumivex::stitch::AddImage(
        s.phDIS[i], &frame, offset, cut, s.plStripPos[i], complete ? s.lStripEnd : s.lStripWidth,
        complete ? 1 : 0, PolicyOf(&s));
    if (res != 0) return res;
  }
  s.bNoSecondFrame = 0;
  ++s.lKeptCount;
  return ZMOS_OK;
}

// The travel of a frame about to be laid, refined at the seam against the previous strip;
// the sweep's recent speed tells the search how far off the trackers may be.
void RefineAtSeam(const ZMOSSWEEPSTITCHER& s, const ZMOSIMAGE& frame, const QualityState& q,
                  std::int32_t* dx, std::int32_t* dy) {
  std::int32_t expected = lumivex::stitch::kNoExpectation;
  if (q.laid_at >= 0 && s.lFrameCount > q.laid_at) {
    const std::int64_t along = std::int64_t{q.laid_speed16} * (s.lFrameCount - q.laid_at) / 16;
    if (along > -65536 && along < 65536) expected = static_cast<std::int32_t>(along);
  }
  std::int32_t refined[2] = {*dx, *dy};
  lumivex::stitch::RefineTravel(*s.phDIS[0], frame, s.plStripPos[0], s.lStripWidth, refined,
                                expected);
  *dx = refined[0];
  *dy = refined[1];
}

// Whether the sweep has just completed on travel carried through a plain stretch longer
// than a quarter of a frame: the quality profile then ends it for lack of texture rather
// than call a guess complete (the hand may have stopped on the sky). The panorama is
// stitched as after any failure.
bool CompletedOnAGuess(const ZMOSSWEEPSTITCHER& s, const QualityState* q) {
  const std::int32_t frame = IsHorizontal(s.lDirection) ? s.lFrameWidth : s.lFrameHeight;
  return q != nullptr && s.bFinished && q->coasting.carried > 0 && 4 * q->coasting.travel > frame;
}

// Remembers a laid frame's travel for the next refinement.
void Laid(const ZMOSSWEEPSTITCHER& s, QualityState& q, std::int32_t dx, std::int32_t dy) {
  const std::int32_t along = IsHorizontal(s.lDirection) ? dx : dy;
  const std::int32_t gap = q.laid_at >= 0 ? s.lFrameCount - q.laid_at : 0;
  q.laid_speed16 = gap > 0 ? static_cast<std::int32_t>(std::int64_t{along} * 16 / gap) : 0;
  q.laid_at = gap > 0 ? s.lFrameCount : -1;
}

// What one frame did: the selector's status, its travel and whether a too-fast frame was
// laid.
struct FrameOutcome {
  std::int32_t status = ZMOS_SELECT_NONE, dx = 0, dy = 0;
  bool laid_too_fast = false;
};

// One frame of the sweep: the first frame kept aside, the direction detected, the selector
// run and a kept frame laid; *plStatus and *plFinish as the host sees them. The selector
// writes the travel before it reports a failure, so `out` holds it either way.
std::int32_t SelectAndLay(ZMOSSWEEPSTITCHER& s, const ZMOSIMAGE& frame, const ZMOSIMAGE& track,
                          std::int32_t* plStatus, std::int32_t* plFinish, FrameOutcome* out) {
  std::int32_t res = ZMOS_OK;
  if (!s.bFirstFrameCopied) {
    res =
        ZMOSCreateImage_AOD(&s.pFirstFrame, frame.lWidth, frame.lHeight, frame.dwFormat, s.hMemMgr);
    if (res == 0) res = ZMOSCopyImage_AOD(s.pFirstFrame, &frame);
    if (res != 0) return res;
    s.bFirstFrameCopied = 1;
  }
  *plStatus = ZMOS_SELECT_NONE;
  if (s.bFinished) return res;
  if (s.lDirection == ZMOS_DIRECTION_UNKNOWN) {
    res = DetectDirection(s, frame, track);
    if (res != 0 || s.lDirection == ZMOS_DIRECTION_UNKNOWN) return res;
  }
  if (s.bNeedSetup && (res = SetUp(s, frame)) != 0) return res;

  std::int32_t travel[2] = {0, 0};
  bool restarted = false;
  std::int32_t status = ZMOS_SELECT_NONE;
  res = lumivex::select::RunBySF(s.hFrameSelector, &frame, &track, travel, &status, PolicyOf(&s),
                                 &restarted, CoastingOf(&s));
  out->status = status;
  out->dx = travel[0];
  out->dy = travel[1];
  if (res != 0) return res;
  // A too-fast frame the selector restarted from is laid like a kept one; the host is
  // still told it was too fast.
  if (status == ZMOS_SELECT_KEEP || restarted) {
    QualityState* quality = QualityOf(&s);
    if (PolicyOf(&s).refine_travel_at_seam && s.lBandCount == 1 && quality != nullptr)
      RefineAtSeam(s, frame, *quality, &out->dx, &out->dy);
    bool drifted = false;
    if ((res = Keep(s, frame, out->dx, out->dy, &drifted)) != 0) return res;
    if (quality != nullptr && !drifted) Laid(s, *quality, out->dx, out->dy);
    out->laid_too_fast = restarted && !drifted;
    if (CompletedOnAGuess(s, quality)) return ZMOS_ERR_NO_TEXTURE;
    if (drifted) {
      out->status = *plStatus = ZMOS_SELECT_WRONG;
      return res;
    }
  }
  // A sweep with no second kept frame 41 frames after detection whose motion has
  // turned onto the other axis has gone wrong.
  if (s.lFrameCount >= 41 && s.bNoSecondFrame) {
    WrongAxis().sx = WrapAdd(WrongAxis().sx, out->dx);
    WrongAxis().sy = WrapAdd(WrongAxis().sy, out->dy);
    const std::int32_t ax = WrapAbs(WrongAxis().sx), ay = WrapAbs(WrongAxis().sy);
    if (IsHorizontal(s.lDirection) ? ax < ay : ax > ay) out->status = ZMOS_SELECT_WRONG;
  }
  ++s.lFrameCount;
  *plStatus = out->status;
  if (*plFinish != 0) {
    s.bFinished = *plFinish;
  } else {
    *plFinish = s.bFinished;
  }
  return res;
}

}  // namespace
// The work buffer one capture needs: everything a one-band sweep holds while its stitch
// blends an overlap, which is its fullest. The frame is both image and tracking image, as
// the Android host feeds it: NV21 with a preview at the host's scale of 6 in the largest
// preview format, or I420, which has no preview. The worst of both formats and both axes,
// since the direction is known only later; -1 when the engine cannot run that geometry.
std::int64_t WorkBufferBytes(std::int32_t width, std::int32_t height, std::int32_t max_angle) {
  if (width <= 0 || height <= 0 || (width & 1) || (height & 1)) return -1;
  const std::int32_t length = SweepLength(width, max_angle);
  const std::int32_t step = StepFor(width);
  const std::int32_t strip = StripFor(width);
  if (length <= 0 || step <= 0) return -1;
  const std::int32_t capacity = length / step;
  // Every kept frame after the first has travelled more than a step, and the frame that
  // reaches the sweep's length is the last: no more strips than that are ever blended.
  const std::int32_t strips = std::min(capacity, length / (step + 1) + 2);
  constexpr std::int32_t kPreviewScale = 6;
  const std::int64_t fixed[] = {
      platform::ManagerOverheadBytes(),
      platform::BlockBytes(sizeof(ZMOSSWEEPSTITCHER)),
      platform::BlockBytes(sizeof(ZMOSIMAGE*)),    // result images, one band
      platform::BlockBytes(sizeof(std::int32_t)),  // strip positions
      track::TrackerBytes(width, height, 4, 4),    // direction detection
      platform::BlockBytes(sizeof(ZMOSFRAMESELECTOR)),
      platform::BlockBytes(sizeof(ZMOSDIRECTSTITCHER*)),
      track::TrackerBytes(width, height, 1, 1),  // the selector's reference tracker
      track::TrackerBytes(width, height, 4, 4),  // and its frame-to-frame one
  };
  std::int64_t total = 0;
  for (const std::int64_t b : fixed) {
    if (b < 0) return -1;
    total += b;
  }
  std::int64_t worst = -1;
  for (const std::uint32_t format : {ZMOS_FORMAT_NV21, ZMOS_FORMAT_I420}) {
    const std::int64_t first_frame = image::ImageBytes(width, height, format);
    for (const bool horizontal : {true, false}) {
      const std::int32_t pano_w = horizontal ? length : width;
      const std::int32_t pano_h = horizontal ? height : length;
      std::int64_t preview = 0;
      if (format == ZMOS_FORMAT_NV21) {
        for (const std::uint32_t ui :
             {ZMOS_FORMAT_YUV422_501, ZMOS_FORMAT_SEMIPLANAR420_801, ZMOS_FORMAT_NV21})
          preview = std::max(preview, image::ImageBytes((pano_w / kPreviewScale) & ~1,
                                                        (pano_h / kPreviewScale) & ~1, ui));
      }
      const std::int64_t canvas = stitch::DirectStitcherBytes(pano_w, pano_h, format, capacity);
      // A kept frame overlaps the one before by half its travel, which the selector caps
      // at one strip (ten pixels less on vertical sweeps).
      const std::int32_t overlap = ((horizontal ? strip : strip - 10) / 2) & ~1;
      const std::int64_t scratch = stitch::StitchScratchBytes(
          horizontal, format == ZMOS_FORMAT_NV21, overlap, horizontal ? height : width, strips);
      if (first_frame < 0 || preview < 0 || canvas < 0 || scratch < 0) return -1;
      worst = std::max(worst, first_frame + canvas + preview + scratch);
    }
  }
  return total + worst;
}

// The layout of a one-band capture of this geometry in `direction`; false when the engine
// cannot run it.
bool SweepLayout(std::int32_t width, std::int32_t height, std::int32_t max_angle,
                 std::int32_t direction, ZMOSSWEEPLAYOUT* out) {
  if (width <= 0 || height <= 0 || (width & 1) || (height & 1) ||
      direction < ZMOS_DIRECTION_LEFT_TO_RIGHT || direction > ZMOS_DIRECTION_BOTTOM_TO_TOP)
    return false;
  const std::int32_t length = SweepLength(width, max_angle);
  if (length <= 0 || StepFor(width) <= 0) return false;
  const bool horizontal = IsHorizontal(direction);
  out->lCanvasWidth = horizontal ? length : width;
  out->lCanvasHeight = horizontal ? height : length;
  out->lSeam = horizontal ? width / 2 : (height / 2) & ~1;
  out->lStripWidth = StripFor(width);
  out->lMinStep = StepFor(width);
  // The selector's bound: ten pixels less across a vertical sweep's shorter strips.
  out->lMaxStep = horizontal ? StripFor(width) : StripFor(width) - 10;
  return true;
}

}  // namespace lumivex::engine

using namespace lumivex::engine;
using lumivex::IsHorizontal;
using lumivex::WrapAbs;
using lumivex::WrapAdd;

extern "C" int32_t ZMOSSelectFrame_SWT(ZMOSSWEEPSTITCHER* hStitcher, const ZMOSIMAGE* pFrame,
                                       const ZMOSIMAGE* pTrackFrame, int32_t* plOffset,
                                       int32_t* plStatus, int32_t* plFinish) {
  if (hStitcher == nullptr) return ZMOS_ERR_INVALID_PARAM;
  ZMOSSWEEPSTITCHER& s = *hStitcher;
  if (!s.bActive) return ZMOS_OK;
  if (pFrame == nullptr || pTrackFrame == nullptr || s.lBandCount < 1 || plOffset == nullptr ||
      plStatus == nullptr || plFinish == nullptr || pFrame->lWidth <= 0 || pFrame->lHeight <= 0 ||
      pTrackFrame->lWidth <= 0 || pTrackFrame->lHeight <= 0) {
    s.bActive = 0;
    return ZMOS_ERR_INVALID_PARAM;
  }
  const ZMOSIMAGE& frame = *pFrame;
  const ZMOSIMAGE& track = *pTrackFrame;
  if (!s.bDerived) Derive(s, frame.lWidth);

  FrameOutcome out;
  const std::int32_t res = SelectAndLay(s, frame, track, plStatus, plFinish, &out);
  const std::int32_t dx = out.dx, dy = out.dy;
  // Tail: the sweep's travel for the host, in tracking-image pixels with y negated.
  s.lLastDx = dx;
  s.lLastDy = dy;
  const std::int64_t x = std::int64_t{dx} + s.lSumDx, y = std::int64_t{dy} + s.lSumDy;
  plOffset[0] = static_cast<std::int32_t>(x * track.lWidth / frame.lWidth);
  plOffset[1] = static_cast<std::int32_t>(-(y * track.lWidth / frame.lWidth));
  // A too-fast frame the quality profile laid moves the sweep on like a kept one.
  if (*plStatus == ZMOS_SELECT_KEEP || out.laid_too_fast) {
    s.lSumDx = WrapAdd(s.lSumDx, dx);
    s.lSumDy = WrapAdd(s.lSumDy, dy);
    s.bNewStrip = 1;
  }
  if (s.phDIS != nullptr) {
    for (std::int32_t i = 0; i < s.lBandCount; ++i)
      if (s.phDIS[i] != nullptr) ZMOSGetResultImage_DIS(s.phDIS[i], &s.ppResultImages[i]);
  }
  if (res != 0) s.bActive = 0;
  return res;
}
