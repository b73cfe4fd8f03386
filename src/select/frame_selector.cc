// Frame selector: keeps a frame once the camera has travelled a strip's worth along the
// sweep since the last kept frame, and flags travel that is too fast or goes wrong.
#include "src/select/frame_selector.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "src/platform/direction.h"
#include "src/platform/wrap.h"
#include "src/track/tracker.h"

namespace lumivex::select {

namespace {

// Strictly inside (2 - quarter, quarter - 2).
bool InBand(std::int32_t v, std::int32_t quarter) {
  return 2 - quarter < v && v < quarter - 2;
}

}  // namespace

std::int32_t Decide(const ZMOSFRAMESELECTOR& s, const Accumulators& acc, std::int32_t w4,
                    std::int32_t h4) {
  const std::int32_t x = acc.x, y = acc.y;
  // Along the sweep, forward positive; a jump back right after a large step (70 % of the
  // strip) on the first frame after a keep reads as too fast rather than as a reversal.
  std::int32_t along = 0, last_along = 0, cross = 0, quarter = 0;
  switch (s.lDirection) {
    case 0:
      along = x, last_along = s.lLastX, cross = y, quarter = h4;
      break;
    case 1:
      along = WrapNeg(x), last_along = WrapNeg(s.lLastX), cross = y, quarter = h4;
      break;
    case 2:
      along = y, cross = x, quarter = w4;
      break;
    case 3:
      along = WrapNeg(y), cross = x, quarter = w4;
      break;
    default:
      return ZMOS_SELECT_NONE;
  }
  std::int32_t status = ZMOS_SELECT_NONE;
  if (along > s.lMinStep) status = ZMOS_SELECT_KEEP;
  if (along < -s.lMaxBack) {
    const bool jump_back = IsHorizontal(s.lDirection) && acc.n == 1 &&
                           std::int64_t{last_along} * 10 >= std::int64_t{s.lMaxStep} * 7;
    status = jump_back ? ZMOS_SELECT_TOO_FAST : ZMOS_SELECT_WRONG;
  }
  if (!InBand(cross, quarter)) status = ZMOS_SELECT_WRONG;
  if (along > s.lMaxStep) status = ZMOS_SELECT_TOO_FAST;
  return status;
}

std::int32_t DecideSingle(const ZMOSFRAMESELECTOR& s, const Accumulators& acc) {
  const bool horizontal = IsHorizontal(s.lDirection);
  if (!lumivex::IsKnownDirection(s.lDirection)) return ZMOS_SELECT_NONE;
  const std::int32_t forward = lumivex::IsForward(s.lDirection) ? 1 : -1;
  const std::int32_t along = WrapMul(forward, horizontal ? acc.x : acc.y);
  std::int32_t status = ZMOS_SELECT_NONE;
  if (along > s.lMinStep) status = ZMOS_SELECT_KEEP;
  if (along < -s.lMaxBack) status = ZMOS_SELECT_WRONG;
  if (horizontal && (acc.y < -43 || acc.y >= 44)) status = ZMOS_SELECT_WRONG;
  if (along > s.lMaxStep) status = ZMOS_SELECT_TOO_FAST;
  return status;
}

namespace {

// Reports the travel, then either restarts it (first four frames after a keep, measured
// against the kept frame itself) or moves the trackers' reference to this frame. An
// anchoring frame (a keep) also starts the travel over.
template <typename Swap>
void Conclude(ZMOSFRAMESELECTOR& s, Accumulators& acc, std::int32_t status, std::int32_t* offset,
              std::int32_t* status_out, Swap swap, bool anchor) {
  offset[0] = s.lLastX = acc.x;
  offset[1] = s.lLastY = acc.y;
  s.lStatus = status;
  *status_out = status;
  if (acc.n < 5 && !anchor) {
    acc.x = acc.y = 0;
    return;
  }
  swap();
  if (anchor) acc.x = acc.y = acc.n = 0;
}

// Cuts travel past the strip back to one strip along the sweep; false when the frame is
// too fast for another reason (a jump back) and keeps its travel.
bool CutToStrip(const ZMOSFRAMESELECTOR& s, Accumulators& acc) {
  std::int32_t* along = lumivex::IsHorizontal(s.lDirection) ? &acc.x : &acc.y;
  const std::int32_t sign = lumivex::IsForward(s.lDirection) ? 1 : -1;
  if (WrapMul(sign, *along) <= s.lMaxStep) return false;
  *along = sign * s.lMaxStep;
  return true;
}

enum class Carry { kNone, kCarried, kTooLong };

// A frame too plain along the sweep for the direct matcher: under a policy that coasts
// through plain stretches, the gradient matcher's reading `along` stands only when it
// goes forward and agrees with the recent speed; the prior of 0, a step back read off the
// edge of a plain area, or a crawl read off a half-plain frame give way to the speed. A
// stretch carried too far (see kMaxCoastedFrames; `length` is the frame's length along
// the sweep) is given up.
Carry CarryThroughPlain(const ZMOSFRAMESELECTOR& s, const lumivex::Policy& policy, Coasting* coast,
                        std::int32_t gap, std::int32_t length, std::int32_t* along) {
  if (coast == nullptr || !policy.coast_through_plain_stretches) return Carry::kNone;
  const bool vertical = lumivex::IsVertical(s.lDirection);
  if (!coast->known || !lumivex::track::FlatAlongSweep(vertical ? 1 : 0)) {
    coast->carried = 0;
    coast->travel = 0;
    return Carry::kNone;
  }
  const auto expected = static_cast<std::int32_t>(std::int64_t{coast->speed16} * gap / 16);
  const bool forward = lumivex::IsForward(s.lDirection) ? *along > 0 : *along < 0;
  const std::int64_t off = std::abs(std::int64_t{*along} - expected);
  if (forward && off <= std::max<std::int64_t>(4, std::abs(std::int64_t{expected}) / 4)) {
    coast->carried = 0;
    coast->travel = 0;
    return Carry::kNone;
  }
  coast->travel += std::abs(std::int64_t{coast->speed16}) / 16;
  if (coast->carried >= kMaxCoastedFrames || coast->travel > length) return Carry::kTooLong;
  ++coast->carried;
  *along = expected;
  return Carry::kCarried;
}

// The first frame after a keep-less start: both trackers made for this sweep's axis,
// their travel cleared.
std::int32_t StartTrackers(ZMOSFRAMESELECTOR& s, const ZMOSIMAGE& frame, const ZMOSIMAGE& track) {
  const std::int32_t vertical = lumivex::IsVertical(s.lDirection) ? 1 : 0;
  const std::int32_t w = track.lWidth, h = track.lHeight;
  s.travel = Accumulators{};
  s.lLastX = s.lLastY = 0;
  if (const std::int32_t res = ZMOSCreateVideoTrackerRF_PBM(&s.hTrackerRF, frame.lWidth,
                                                            frame.lHeight, vertical, s.hMemMgr);
      res != 0)
    return res;
  if (const std::int32_t res =
          ZMOSCreateVideoTrackerFF_PBM(&s.hTrackerFF, w, h, vertical, s.hMemMgr);
      res != 0)
    return res;
  // Reference limits: a fixed 80 across a horizontal sweep, not derived from the strip.
  if (vertical) {
    ZMOSSetMaxOffet_PBM(s.hTrackerRF, 46, s.lMaxStep + 4);
    ZMOSSetMaxOffet_PBM(s.hTrackerFF, w / 30, h / 8);
  } else {
    ZMOSSetMaxOffet_PBM(s.hTrackerRF, 80, 46);
    ZMOSSetMaxOffet_PBM(s.hTrackerFF, w / 6, h / 30);
  }
  return ZMOS_OK;
}

// A prediction more than 0.6 strips behind the last report along the sweep is not
// believed: the last report stands instead.
void DisbelieveFarBehind(const ZMOSFRAMESELECTOR& s, std::int32_t predicted[2]) {
  if (!lumivex::IsKnownDirection(s.lDirection)) return;
  const bool vertical = lumivex::IsVertical(s.lDirection);
  std::int32_t& along = predicted[vertical ? 1 : 0];
  const std::int64_t last = vertical ? s.lLastY : s.lLastX;
  const std::int64_t behind = lumivex::IsForward(s.lDirection) ? last - along : along - last;
  if (behind * 10 > std::int64_t{s.lMaxStep} * 6) along = static_cast<std::int32_t>(last);
}

bool ValidFrames(const ZMOSIMAGE* frame, const ZMOSIMAGE* track, const std::int32_t* offset,
                 const std::int32_t* status) {
  return frame != nullptr && track != nullptr && offset != nullptr && status != nullptr &&
         frame->lWidth > 0 && frame->lHeight > 0 && track->lWidth > 0 && track->lHeight > 0;
}

}  // namespace
}  // namespace lumivex::select

using namespace lumivex::select;
using lumivex::WrapAdd;
using lumivex::WrapMul;

extern "C" {

int32_t ZMOSCreateFrameSelector_FS(ZMOSFRAMESELECTOR** phSelector, int32_t lMinStep,
                                   int32_t lMaxBack, int32_t lStripWidth, int32_t lDirection,
                                   MHandle hMemMgr) {
  if (phSelector == nullptr) return ZMOS_ERR_INVALID_PARAM;
  *phSelector = nullptr;
  auto* s = static_cast<ZMOSFRAMESELECTOR*>(MMemAlloc(hMemMgr, sizeof(ZMOSFRAMESELECTOR)));
  if (s == nullptr) return ZMOS_ERR_NO_MEMORY;
  MMemSet(s, 0, sizeof(ZMOSFRAMESELECTOR));
  s->hMemMgr = hMemMgr;
  s->lMinStep = lMinStep;
  s->lMaxBack = lMaxBack;
  s->lMaxStep = lumivex::IsVertical(lDirection) ? lStripWidth - 10 : lStripWidth;
  s->lDirection = lDirection;
  *phSelector = s;
  return ZMOS_OK;
}

void ZMOSReleaseFrameSelector_FS(ZMOSFRAMESELECTOR** phSelector) {
  if (phSelector == nullptr || *phSelector == nullptr) return;
  ZMOSFRAMESELECTOR* s = *phSelector;
  ZMOSReleaseVideoTracker_PBM(&s->hTrackerRF);
  ZMOSReleaseVideoTracker_PBM(&s->hTrackerFF);
  MMemFree(s->hMemMgr, s);
  *phSelector = nullptr;
}

int32_t ZMOSFrameSelectorRunBySF_FS(ZMOSFRAMESELECTOR* hSelector, const ZMOSIMAGE* pFrame,
                                    const ZMOSIMAGE* pTrackFrame, int32_t* plOffset,
                                    int32_t* plStatus) {
  return RunBySF(hSelector, pFrame, pTrackFrame, plOffset, plStatus, lumivex::kExactPolicy);
}

}  // extern "C"

std::int32_t lumivex::select::RunBySF(ZMOSFRAMESELECTOR* selector, const ZMOSIMAGE* frame,
                                      const ZMOSIMAGE* track, std::int32_t* offset,
                                      std::int32_t* status_out, const Policy& policy,
                                      bool* restarted, Coasting* coast) {
  if (selector == nullptr || !ValidFrames(frame, track, offset, status_out))
    return ZMOS_ERR_INVALID_PARAM;
  ZMOSFRAMESELECTOR& s = *selector;
  Accumulators& acc = s.travel;
  const std::int32_t w = track->lWidth;
  const std::int32_t big_w = frame->lWidth, big_h = frame->lHeight;
  if (s.hTrackerRF == nullptr) {
    if (const std::int32_t res = StartTrackers(s, *frame, *track); res != 0) return res;
  }
  s.lStatus = ZMOS_SELECT_NONE;

  // Prediction from the tracking image, scaled to the full frame.
  std::int32_t predicted[2] = {0, 0};
  const bool ff_first = s.hTrackerFF->bFirstFrame != 0;
  const bool ff_ok = ZMOSVideoTrackerRunFF_PBM(s.hTrackerFF, track, predicted) == ZMOS_OK;
  // Where the tracking image is the frame, the reference tracker takes its column sums
  // from the band the frame-to-frame tracker has just summed, not from a second read.
  const std::uint32_t* shared = ff_ok && !ff_first ? lumivex::track::SharedColumnSums(
                                                         s.hTrackerFF, track, s.hTrackerRF, frame)
                                                   : nullptr;
  const std::int32_t scale = big_w / w;
  predicted[0] = WrapMul(predicted[0], scale);
  predicted[1] = WrapMul(predicted[1], scale);
  DisbelieveFarBehind(s, predicted);
  // Frames between the trackers' reference and this one: the kept frame for the first
  // five after a keep, the previous frame after that.
  const bool vertical = lumivex::IsVertical(s.lDirection);
  const std::int32_t gap = acc.n < 5 ? acc.n + 1 : 1;
  std::int32_t& along = vertical ? predicted[1] : predicted[0];
  const Carry carry = CarryThroughPlain(s, policy, coast, gap, vertical ? big_h : big_w, &along);
  if (carry == Carry::kTooLong) return ZMOS_ERR_NO_TEXTURE;
  const std::int32_t last[2] = {s.lLastX, s.lLastY};
  const std::int32_t res =
      lumivex::track::RunRF(s.hTrackerRF, frame, predicted, last, policy, shared);
  acc.x = WrapAdd(acc.x, predicted[0]);
  acc.y = WrapAdd(acc.y, predicted[1]);
  acc.n += 1;
  const std::int32_t status = Decide(s, acc, big_w >> 2, big_h >> 2);
  // The speed to carry comes from kept frames only: their travel is forward and passed
  // the minimum step, where a single frame's reading on half-plain content may not be.
  if (coast != nullptr && status == ZMOS_SELECT_KEEP) {
    coast->speed16 = static_cast<std::int32_t>(std::int64_t{vertical ? acc.y : acc.x} * 16 / acc.n);
    coast->known = true;
  }
  const bool restart =
      status == ZMOS_SELECT_TOO_FAST && policy.keep_too_fast_frames && CutToStrip(s, acc);
  if (restarted != nullptr) *restarted = restart;
  Conclude(
      s, acc, status, offset, status_out,
      [&] {
        ZMOSVideoTrackerSwapRF_PBM(s.hTrackerRF, frame);
        ZMOSVideoTrackerSwapFF_PBM(s.hTrackerFF, track);
      },
      status == ZMOS_SELECT_KEEP || restart);
  return res;
}

extern "C" {

int32_t ZMOSFrameSelectorRun_FS(ZMOSFRAMESELECTOR* hSelector, const ZMOSIMAGE* pFrame,
                                const ZMOSIMAGE*, int32_t* plOffset, int32_t* plStatus) {
  if (hSelector == nullptr || !ValidFrames(pFrame, pFrame, plOffset, plStatus))
    return ZMOS_ERR_INVALID_PARAM;
  ZMOSFRAMESELECTOR& s = *hSelector;
  Accumulators& acc = s.single_travel;
  if (s.hTrackerRF == nullptr) {
    const std::int32_t vertical = lumivex::IsVertical(s.lDirection) ? 1 : 0;
    acc = Accumulators{};
    if (const std::int32_t res = ZMOSCreateVideoTracker_PBM(&s.hTrackerRF, pFrame->lWidth,
                                                            pFrame->lHeight, vertical, s.hMemMgr);
        res != 0)
      return res;
    if (vertical) {
      ZMOSSetMaxOffet_PBM(s.hTrackerRF, pFrame->lWidth / 40, s.lMaxStep + 8);
    } else {
      ZMOSSetMaxOffet_PBM(s.hTrackerRF, s.lMaxStep + 8, pFrame->lHeight / 20);
    }
  }
  s.lStatus = ZMOS_SELECT_NONE;
  std::int32_t measured[2] = {0, 0};
  const std::int32_t res = ZMOSVideoTrackerRun_PBM(s.hTrackerRF, pFrame, measured);
  acc.x = WrapAdd(acc.x, measured[0]);
  acc.y = WrapAdd(acc.y, measured[1]);
  acc.n += 1;
  const std::int32_t status = DecideSingle(s, acc);
  Conclude(
      s, acc, status, plOffset, plStatus, [&] { ZMOSVideoTrackerSwap_PBM(s.hTrackerRF, pFrame); },
      status == ZMOS_SELECT_KEEP);
  return res;
}

}  // extern "C"
