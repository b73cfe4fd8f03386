// The sweep stitcher record: everything one capture owns.
#ifndef LUMIVEX_SRC_ENGINE_SWEEP_STITCHER_H_
#define LUMIVEX_SRC_ENGINE_SWEEP_STITCHER_H_

#include <cstdint>

#include "lumivex/engine.h"
#include "lumivex/select.h"
#include "lumivex/stitch.h"
#include "lumivex/track.h"
#include "src/platform/direction.h"
#include "src/platform/process_state.h"

struct ZMOSSWEEPSTITCHER {
  MHandle hMemMgr;
  std::int32_t lWorkBufferSize;
  std::int32_t bActive;
  std::int32_t lFrameWidth;
  std::int32_t lFrameHeight;
  std::int32_t lPanoWidth;
  std::int32_t lPanoHeight;
  std::uint32_t lFormat;
  std::int32_t lBandCount;
  ZMOSIMAGE** ppResultImages;
  ZMOSIMAGE* pPreview;
  ZMOSRECT PreviewRect;
  std::int32_t bNewStrip;
  std::int32_t* plStripPos;
  std::int32_t lKeptCount;
  std::int32_t lFrameCount;
  std::int32_t bNoSecondFrame;
  ZMOSFRAMESELECTOR* hFrameSelector;
  std::int32_t lMainOffset;
  std::int32_t lDriftY;
  std::int32_t lDriftX;
  std::int32_t lLastDx;
  std::int32_t lLastDy;
  std::int32_t lSumDx;
  std::int32_t lSumDy;
  std::int32_t lStripStart;
  std::int32_t lStripEnd;
  ZMOSDIRECTSTITCHER** phDIS;
  std::int32_t lDirection;
  ZMOSVideoTracker* hTracker;
  std::int32_t lMaxAngle;
  std::int32_t bFinished;
  std::int32_t lMaxKeptFrames;
  std::int32_t bNeedSetup;
  ZMOSIMAGE* pFirstFrame;
  std::int32_t bFirstFrameCopied;
  std::int32_t bResultWide;
  std::int32_t lDirThreshold;
  std::int32_t lStep;
  std::int32_t lMaxStep;
  std::int32_t lStripWidth;
  std::int32_t bDerived;
  std::int32_t lReserved2;
  std::int32_t lReserved1;
};

namespace lumivex::engine {

// The wrong-axis sums of frame selection are WrongAxis() (src/platform/process_state.h).

// Bytes of work buffer one capture of that frame size and angle needs; -1 when the
// engine cannot run it.
std::int64_t WorkBufferBytes(std::int32_t width, std::int32_t height, std::int32_t max_angle);

// The layout a one-band capture of this geometry makes in `direction` (ZMOS_GetSweepLayout);
// false when the engine cannot run it.
bool SweepLayout(std::int32_t width, std::int32_t height, std::int32_t max_angle,
                 std::int32_t direction, ZMOSSWEEPLAYOUT* out);

}  // namespace lumivex::engine

#endif  // LUMIVEX_SRC_ENGINE_SWEEP_STITCHER_H_
