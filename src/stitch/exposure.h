// Exposure equalisation of the strips of a direct stitcher, before they are blended.
#ifndef LUMIVEX_SRC_STITCH_EXPOSURE_H_
#define LUMIVEX_SRC_STITCH_EXPOSURE_H_

#include "src/stitch/direct_stitcher.h"

namespace lumivex::stitch {

// Takes the exposure steps between strips out of their luma (on the canvas and in the
// overlap strips), leaving the camera's slow course. Needs scratch from the stitcher's
// memory manager: 4 and nothing changed without it, 0 otherwise.
std::int32_t EqualizeExposure(ZMOSDIRECTSTITCHER& stitcher);

}  // namespace lumivex::stitch

#endif  // LUMIVEX_SRC_STITCH_EXPOSURE_H_
