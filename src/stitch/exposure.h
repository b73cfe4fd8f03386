// Exposure equalisation of the strips of a direct stitcher, before they are blended.
#ifndef LUMIVEX_SRC_STITCH_EXPOSURE_H_
#define LUMIVEX_SRC_STITCH_EXPOSURE_H_

#include "src/stitch/direct_stitcher.h"

namespace lumivex::stitch {

// Brings the luma of every strip laid after the first (on the canvas and in the overlap
// strips) to the first frame's exposure. Needs scratch from the stitcher's memory manager:
// 4 and nothing changed without it, 0 otherwise.
std::int32_t EqualizeExposure(ZMOSDIRECTSTITCHER& stitcher);

}  // namespace lumivex::stitch

#endif  // LUMIVEX_SRC_STITCH_EXPOSURE_H_
