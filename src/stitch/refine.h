// A kept frame's travel refined where it shows: at the seam, against the strip the
// previous frame laid there.
#ifndef LUMIVEX_SRC_STITCH_REFINE_H_
#define LUMIVEX_SRC_STITCH_REFINE_H_

#include <climits>
#include <cstdint>

#include "src/stitch/direct_stitcher.h"

namespace lumivex::stitch {

// The most a refinement moves a frame, each way along and across the sweep.
inline constexpr std::int32_t kRefineAlong = 12, kRefineAcross = 3;

// `offset` (x, y) is the travel of `frame` since the last frame laid on `stitcher`, about
// to be given to AddImage with seam position `seam`; the previous frame's strip was
// `strip` pixels long. Moves the offset to where the frame's pixels around the seam best
// match the canvas (a search of whole pixels, the frame's window brought to the canvas's
// brightness), when there is enough of the previous strip to compare and the best place
// is clearly better than the given one; otherwise leaves it. Reads only inside the
// canvas and the frame. Returns whether the offset moved.
// `expected` is the travel along the sweep the frame's recent speed predicts (or
// kNoExpectation): where the trackers' travel is far from it, the search looks farther.
inline constexpr std::int32_t kNoExpectation = INT32_MIN;
bool RefineTravel(const ZMOSDIRECTSTITCHER& stitcher, const ZMOSIMAGE& frame, std::int32_t seam,
                  std::int32_t strip, std::int32_t* offset, std::int32_t expected);

}  // namespace lumivex::stitch

#endif  // LUMIVEX_SRC_STITCH_REFINE_H_
