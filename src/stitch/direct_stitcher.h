// The direct image stitcher record.
#ifndef LUMIVEX_SRC_STITCH_DIRECT_STITCHER_H_
#define LUMIVEX_SRC_STITCH_DIRECT_STITCHER_H_

#include <cstdint>

#include "lumivex/stitch.h"
#include "src/engine/policy.h"

struct ZMOSDIRECTSTITCHER {
  MHandle hMemMgr;
  std::int32_t lCapacity;
  std::int32_t lCount;
  std::int32_t lMaxPosY;   // horizontal sweeps: largest downward cross offset
  std::int32_t lMaxNegY;   // ... largest upward one, as a magnitude
  std::int32_t lMaxPosX;   // vertical sweeps: rightward
  std::int32_t lMaxNegX;   // ... leftward, as a magnitude
  std::int32_t lPosition;  // canvas coordinate of the latest seam along the sweep
  std::int32_t lCrossY;
  std::int32_t lCrossX;
  std::int32_t lMarginY;
  std::int32_t lMarginX;
  std::int32_t lCanvasHeight;
  std::int32_t lCanvasWidth;
  std::int32_t lDirection;
  std::int32_t lContentEnd;
  std::int32_t bFirstFrame;
  ZMOSRECT* pOverlapRects;  // start of the block that also holds pStripRects
  ZMOSRECT* pStripRects;
  ZMOSIMAGE* pCanvas;
  ZMOSIMAGE* pStrips;
};

namespace lumivex::stitch {

// ZMOSAddImage_DIS under the policy of the engine that runs it (the exported function is
// always exact).
std::int32_t AddImage(ZMOSDIRECTSTITCHER* stitcher, const ZMOSIMAGE* frame,
                      const std::int32_t* offset, std::int32_t overlap, std::int32_t seam,
                      std::int32_t strip_length, std::int32_t last, const Policy& policy);
// Bytes ZMOSCreateDirectImageStitcher_DIS takes from a work buffer; -1 when it cannot
// create the stitcher.
std::int64_t DirectStitcherBytes(std::int32_t width, std::int32_t height, std::uint32_t format,
                                 std::int32_t capacity);
// The most the finishing pass allocates at once beyond the stitcher, in either profile,
// for overlaps of at most `overlap` along the sweep and `cross` across it, `strips`
// strips, and interleaved (NV21) or planar (I420) chroma.
std::int64_t StitchScratchBytes(bool horizontal, bool interleaved, std::int32_t overlap,
                                std::int32_t cross, std::int32_t strips);
// ZMOSStitchBlendImage_DIS under the policy of the engine that runs it.
std::int32_t StitchBlend(ZMOSDIRECTSTITCHER* stitcher, const Policy& policy);

}  // namespace lumivex::stitch

#endif  // LUMIVEX_SRC_STITCH_DIRECT_STITCHER_H_
