// The frame selector record and its process-wide accumulators.
#ifndef LUMIVEX_SRC_SELECT_FRAME_SELECTOR_H_
#define LUMIVEX_SRC_SELECT_FRAME_SELECTOR_H_

#include <cstdint>

#include "lumivex/select.h"
#include "lumivex/track.h"
#include "src/engine/policy.h"

namespace lumivex::select {
// Travel since the last kept frame and frames since it.
struct Accumulators {
  std::int32_t x, y, n;
  std::int32_t spare[2];
};
}  // namespace lumivex::select

struct ZMOSFRAMESELECTOR {
  MHandle hMemMgr;
  std::int32_t lMinStep;
  std::int32_t lMaxBack;
  std::int32_t lMaxStep;
  ZMOSVideoTracker* hTrackerRF;
  ZMOSVideoTracker* hTrackerFF;
  std::int32_t lDirection;
  std::int32_t lStatus;
  std::int32_t lLastX;
  std::int32_t lLastY;
  // Each selector's own (not the process's), so captures in several threads, or
  // interleaved in one, never add to each other's travel: one set for the two-tracker
  // run, one for the single-tracker run.
  lumivex::select::Accumulators travel;
  lumivex::select::Accumulators single_travel;
};

namespace lumivex::select {

// The status of a frame from the travel since the last kept frame (quarter frame sizes
// w4, h4 bound the drift); the tests run in order and a later one overwrites an earlier.
std::int32_t Decide(const ZMOSFRAMESELECTOR& s, const Accumulators& acc, std::int32_t w4,
                    std::int32_t h4);
// The single-tracker variant's rules: a fixed drift band, horizontal sweeps only.
std::int32_t DecideSingle(const ZMOSFRAMESELECTOR& s, const Accumulators& acc);

// Speed carried through plain stretches: the last measured speed along the sweep in
// sixteenths of a pixel a frame, and how many frames in a row it has been carried.
struct Coasting {
  std::int32_t speed16 = 0;
  std::int32_t carried = 0;
  std::int64_t travel = 0;  // carried so far in this stretch, pixels along the sweep
  bool known = false;
};
// A plain stretch is carried for at most this many frames, and no farther than a frame's
// length along the sweep: beyond that the speed is a guess (the hand may have stopped on
// the sky), and the capture ends for lack of texture.
inline constexpr std::int32_t kMaxCoastedFrames = 60;

// ZMOSFrameSelectorRunBySF_FS under the policy of the engine that runs it (the exported
// function is always exact). *restarted tells that a too-fast frame became the new
// reference with its travel cut to one strip (the caller keeps it); `coast` holds the
// speed a quality engine carries through plain stretches.
std::int32_t RunBySF(ZMOSFRAMESELECTOR* selector, const ZMOSIMAGE* frame, const ZMOSIMAGE* track,
                     std::int32_t* offset, std::int32_t* status_out, const Policy& policy,
                     bool* restarted = nullptr, Coasting* coast = nullptr);

}  // namespace lumivex::select

#endif  // LUMIVEX_SRC_SELECT_FRAME_SELECTOR_H_
