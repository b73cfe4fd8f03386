// The projection tracker record and the process-wide band texture table.
#ifndef LUMIVEX_SRC_TRACK_TRACKER_H_
#define LUMIVEX_SRC_TRACK_TRACKER_H_

#include <cstdint>

#include "lumivex/track.h"
#include "src/engine/policy.h"
#include "src/platform/process_state.h"

// Field order is part of the record's contract: 26 words on the 32-bit target.
struct ZMOSVideoTracker {
  MHandle hMemMgr;
  std::int32_t lSize;
  std::int32_t lWidth;
  std::int32_t lHeight;
  std::uint32_t** ppCurHori;  // start of the horizontal block
  std::uint32_t** ppPrevHori;
  std::uint32_t** ppPrevVert;
  std::uint32_t** ppCurVert;   // start of the vertical block
  std::uint32_t* pScratch[4];  // pScratch[0] starts the scratch block
  ZMOSRECT* pHoriRects;        // start of the rectangle block
  ZMOSRECT* pVertRects;
  std::int32_t* plHoriResult;  // start of the result block
  std::int32_t* plVertResult;
  std::int32_t lMaxOffsetX;
  std::int32_t lMaxOffsetY;
  std::int32_t lHoriCount;
  std::int32_t lVertCount;
  std::int32_t bFirstFrame;
  std::int32_t bReprojectVert;
  std::int32_t bReprojectHori;
  std::int32_t lMode;
  std::int32_t lStatus;
  ZMOSTrackerLayoutFn pfnLayout;
};

static_assert(sizeof(void*) != 4 || sizeof(ZMOSVideoTracker) == 104,
              "the tracker record is 26 words on 32-bit targets");

namespace lumivex::track {

// Band texture measures (BandTexture(), src/platform/process_state.h) are handed from the
// frame-to-frame tracker to the reference-frame tracker within one frame's call.

// Whether the frame-to-frame tracker's last frame was too plain along its sweep axis for
// the direct matcher (mode 0: the three horizontal bands together; mode 1: every vertical
// band), so that its estimate came from the gradient matcher.
bool FlatAlongSweep(std::int32_t mode);

// Mean absolute difference of adjacent entries of p over [from, to), divided by the
// range's length.
std::int32_t BandMeasure(const std::uint32_t* p, std::int32_t from, std::int32_t to);

// The reference run as ZMOSVideoTrackerRunRF_PBM, under the policy of the engine that
// runs it (the exported function is always exact).
std::int32_t RunRF(ZMOSVideoTracker* t, const ZMOSIMAGE* image, std::int32_t* offsets,
                   const std::int32_t* last, const Policy& policy,
                   const std::uint32_t* hori_sums = nullptr);

// Column sums of the reference tracker `rf`'s horizontal rectangle for a run on `image`,
// when they are a slice of a band the frame-to-frame tracker `ff` has just summed on the
// same image (a successful run, not its first); else null. Column sums are plain sums,
// so the slice equals a projection of its own, and the frame's rows are read once.
const std::uint32_t* SharedColumnSums(const ZMOSVideoTracker* ff, const ZMOSIMAGE* ff_image,
                                      const ZMOSVideoTracker* rf, const ZMOSIMAGE* image);

// Bytes ZMOSCreateVideoTrackerNxN_PBM takes from a work buffer for that geometry and
// band counts; -1 when it cannot create the tracker.
std::int64_t TrackerBytes(std::int32_t width, std::int32_t height, std::int32_t hori_count,
                          std::int32_t vert_count);

constexpr std::int32_t Align4(std::int32_t v) {
  return v & ~3;
}
constexpr std::int32_t Align2(std::int32_t v) {
  return v & ~1;
}

}  // namespace lumivex::track

#endif  // LUMIVEX_SRC_TRACK_TRACKER_H_
