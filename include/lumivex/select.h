/* Frame selection: decides per frame whether the camera has moved far enough along the
 * sweep to keep the frame, moves too fast, or has gone wrong. */
#ifndef LUMIVEX_SELECT_H_
#define LUMIVEX_SELECT_H_

#include <stdint.h>

#include "lumivex/export.h"
#include "lumivex/image.h"
#include "lumivex/platform.h"

LUMIVEX_EXTERN_C_BEGIN

/* Selection status of a frame. */
enum {
  ZMOS_SELECT_NONE = 0,     /* keep tracking */
  ZMOS_SELECT_WRONG = 1,    /* backwards, or drifting across the sweep axis */
  ZMOS_SELECT_TOO_FAST = 2, /* travel since the last kept frame exceeds the strip */
  ZMOS_SELECT_KEEP = 3      /* keep this frame */
};

/* Sweep directions: the panorama grows toward increasing x (0), decreasing x (1),
 * increasing y (2) or decreasing y (3); -1 while unknown. */
enum {
  ZMOS_DIRECTION_UNKNOWN = -1,
  ZMOS_DIRECTION_LEFT_TO_RIGHT = 0,
  ZMOS_DIRECTION_RIGHT_TO_LEFT = 1,
  ZMOS_DIRECTION_TOP_TO_BOTTOM = 2,
  ZMOS_DIRECTION_BOTTOM_TO_TOP = 3
};

typedef struct ZMOSFRAMESELECTOR ZMOSFRAMESELECTOR;

/* lMinStep: travel that keeps a frame; lMaxBack: backward travel that is wrong; the strip
 * width bounds the travel (less 10 for vertical sweeps) before a frame is too fast. */
LUMIVEX_API int32_t ZMOSCreateFrameSelector_FS(ZMOSFRAMESELECTOR** phSelector, int32_t lMinStep,
                                               int32_t lMaxBack, int32_t lStripWidth,
                                               int32_t lDirection, MHandle hMemMgr);
LUMIVEX_API void ZMOSReleaseFrameSelector_FS(ZMOSFRAMESELECTOR** phSelector);

/* Tracks the full frame with a reference tracker seeded by a frame-to-frame tracker on the
 * (smaller) tracking image. Writes the travel since the last kept frame (x, y) to
 * plOffset and a ZMOS_SELECT_* status; returns the reference tracker's result. */
LUMIVEX_API int32_t ZMOSFrameSelectorRunBySF_FS(ZMOSFRAMESELECTOR* hSelector,
                                                const ZMOSIMAGE* pFrame,
                                                const ZMOSIMAGE* pTrackFrame, int32_t* plOffset,
                                                int32_t* plStatus);
/* Single-tracker variant on the full frame; the third argument is not used. */
LUMIVEX_API int32_t ZMOSFrameSelectorRun_FS(ZMOSFRAMESELECTOR* hSelector, const ZMOSIMAGE* pFrame,
                                            const ZMOSIMAGE* pUnused, int32_t* plOffset,
                                            int32_t* plStatus);

LUMIVEX_EXTERN_C_END

#endif /* LUMIVEX_SELECT_H_ */
