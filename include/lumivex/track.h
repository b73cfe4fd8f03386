/* Motion estimation: luma projections, one-dimensional matching and the projection
 * trackers that estimate the offset between consecutive frames. */
#ifndef LUMIVEX_TRACK_H_
#define LUMIVEX_TRACK_H_

#include <stdint.h>

#include "lumivex/export.h"
#include "lumivex/image.h"
#include "lumivex/platform.h"

LUMIVEX_EXTERN_C_BEGIN

/* Packed 24-bit pixels read by the projections (blue-green-red and red-green-blue). */
enum { ZMOS_FORMAT_BGR24_201 = 0x201, ZMOS_FORMAT_RGB24_204 = 0x204 };

/* Projections of a rectangle of plane 0's luma, at least 8 x 8 and inside the image.
 * Horizontal: one column sum per column (right - left entries); the interval variant
 * sums every second row. Vertical: one row sum per row (bottom - top entries). */
LUMIVEX_API int32_t ZMOSHoriProjectSingle_PBM(const ZMOSIMAGE* pImage, const ZMOSRECT* pRect,
                                              uint32_t* pOut);
LUMIVEX_API int32_t ZMOSHoriProjectSingleInterval_PBM(const ZMOSIMAGE* pImage,
                                                      const ZMOSRECT* pRect, uint32_t* pOut);
LUMIVEX_API int32_t ZMOSVertProjectSingle_PBM(const ZMOSIMAGE* pImage, const ZMOSRECT* pRect,
                                              uint32_t* pOut);

/* One-dimensional matching of two signals of `lLen` entries. On entry *plOffset holds a
 * prior estimate; on success the new total. Offset d means pCur[x] matches pRef[x - d].
 * Returns 0, 4 (gradient matcher without scratch) or 5 (too short or too flat). */
LUMIVEX_API int32_t ZMOSMatch1DBufferAllocated_PBM(const uint32_t* pCur, const uint32_t* pRef,
                                                   int32_t lLen, int32_t* plOffset,
                                                   int32_t lMaxOffset, int32_t* pScratchA,
                                                   int32_t* pScratchB);
LUMIVEX_API int32_t ZMOSComputeOffset_Gradient(const uint32_t* pCur, const uint32_t* pRef,
                                               int32_t lLen, int32_t* plOffset, int32_t lMaxOffset,
                                               int32_t* pScratchA, int32_t* pScratchB);

/* Projection tracker (opaque). */
typedef struct ZMOSVideoTracker ZMOSVideoTracker;

/* Fills a tracker's rectangles; returns a result code. */
typedef int32_t (*ZMOSTrackerLayoutFn)(ZMOSVideoTracker* pTracker);

/* The three built-in layouts: one centred rectangle of each kind; one of each placed on
 * the best-textured band; three bands of each kind. */
LUMIVEX_API int32_t ZMOSLayoutPlain_PBM(ZMOSVideoTracker* pTracker);
LUMIVEX_API int32_t ZMOSLayoutRF_PBM(ZMOSVideoTracker* pTracker);
LUMIVEX_API int32_t ZMOSLayoutFF_PBM(ZMOSVideoTracker* pTracker);

/* lMode 0 tracks a horizontal sweep (horizontal offset first), nonzero a vertical one.
 * A null layout function selects the plain layout. */
LUMIVEX_API int32_t ZMOSCreateVideoTrackerNxN_PBM(ZMOSVideoTracker** phTracker, int32_t lWidth,
                                                  int32_t lHeight, int32_t lHoriCount,
                                                  int32_t lVertCount, int32_t lMode,
                                                  ZMOSTrackerLayoutFn pfnLayout, MHandle hMemMgr);
LUMIVEX_API int32_t ZMOSCreateVideoTracker_PBM(ZMOSVideoTracker** phTracker, int32_t lWidth,
                                               int32_t lHeight, int32_t lMode, MHandle hMemMgr);
LUMIVEX_API int32_t ZMOSCreateVideoTrackerRF_PBM(ZMOSVideoTracker** phTracker, int32_t lWidth,
                                                 int32_t lHeight, int32_t lMode, MHandle hMemMgr);
LUMIVEX_API int32_t ZMOSCreateVideoTrackerFF_PBM(ZMOSVideoTracker** phTracker, int32_t lWidth,
                                                 int32_t lHeight, int32_t lMode, MHandle hMemMgr);
LUMIVEX_API void ZMOSReleaseVideoTracker_PBM(ZMOSVideoTracker** phTracker);

/* The rectangle arrays are the tracker's own: a caller's layout function writes them. */
LUMIVEX_API void ZMOSGetHoriProjRect_PBM(ZMOSVideoTracker* pTracker, ZMOSRECT** ppRects,
                                         int32_t* plCount);
LUMIVEX_API void ZMOSGetVertProjRect_PBM(ZMOSVideoTracker* pTracker, ZMOSRECT** ppRects,
                                         int32_t* plCount);
LUMIVEX_API int32_t ZMOSGetFrameWidth_PBM(const ZMOSVideoTracker* pTracker);
LUMIVEX_API int32_t ZMOSGetFrameHeight_PBM(const ZMOSVideoTracker* pTracker);
LUMIVEX_API void ZMOSSetMaxOffet_PBM(ZMOSVideoTracker* pTracker, int32_t lMaxX, int32_t lMaxY);
LUMIVEX_API void ZMOSGetMaxOffet_PBM(const ZMOSVideoTracker* pTracker, int32_t* plMaxX,
                                     int32_t* plMaxY);
/* 0 after a direct match, 5 after the frame-to-frame run fell back to the gradient
 * matcher; 2 for a null tracker. */
LUMIVEX_API int32_t ZMOSGetVideoTrackStatus_PBM(const ZMOSVideoTracker* pTracker);

/* Runs: estimate the offset (dx, dy) of `pImage` against the previous frame and write it
 * to plOffsets[0..1]. The first run after creation only stores the frame. */
LUMIVEX_API int32_t ZMOSVideoTrackerRun_PBM(ZMOSVideoTracker* pTracker, const ZMOSIMAGE* pImage,
                                            int32_t* plOffsets);
LUMIVEX_API int32_t ZMOSVideoTrackerRunFF_PBM(ZMOSVideoTracker* pTracker, const ZMOSIMAGE* pImage,
                                              int32_t* plOffsets);
/* plOffsets holds the predicted offsets on entry (start and fallback); plLast the
 * caller's last reported offsets (only dx is read, in mode 0). */
LUMIVEX_API int32_t ZMOSVideoTrackerRunRF_PBM(ZMOSVideoTracker* pTracker, const ZMOSIMAGE* pImage,
                                              int32_t* plOffsets, const int32_t* plLast);

/* Swaps: make `pImage` (the frame of the last run) the previous frame. */
LUMIVEX_API int32_t ZMOSVideoTrackerSwap_PBM(ZMOSVideoTracker* pTracker, const ZMOSIMAGE* pImage);
LUMIVEX_API int32_t ZMOSVideoTrackerSwapRF_PBM(ZMOSVideoTracker* pTracker, const ZMOSIMAGE* pImage);
LUMIVEX_API int32_t ZMOSVideoTrackerSwapFF_PBM(ZMOSVideoTracker* pTracker, const ZMOSIMAGE* pImage);

/* Gradient kernels over a rectangle of W x H luma samples (3 x 3 derivative, smoothing
 * 3, 10, 3, scaled down by 32). Iy: H - 2 row sums of |vertical gradient| (only the first W
 * output entries are cleared first); Ix: W - 2 column sums of |horizontal gradient|;
 * IxIy: both gradients, (H - 2) rows of W - 2 values at a row stride of lStride entries.
 * Return 0, 2, 3 or 4. */
LUMIVEX_API int32_t ZMOSCalcIyVertProj(const ZMOSIMAGE* pImage, const ZMOSRECT* pRect,
                                       int32_t* plOut, MHandle hMemMgr);
LUMIVEX_API int32_t ZMOSCalcIxHoriProj(const ZMOSIMAGE* pImage, const ZMOSRECT* pRect,
                                       int32_t* plOut, MHandle hMemMgr);
LUMIVEX_API int32_t ZMOSCalcIxIy(const ZMOSIMAGE* pImage, const ZMOSRECT* pRect, int32_t* plIx,
                                 int32_t* plIy, int32_t lStride, MHandle hMemMgr);
/* A tracker run on gradient projections; bSwap makes this frame the reference. */
LUMIVEX_API int32_t ZMOSVideoTrackerGradientRun_PBM(ZMOSVideoTracker* pTracker,
                                                    const ZMOSIMAGE* pImage, int32_t* plOffsets,
                                                    int32_t bSwap);

LUMIVEX_EXTERN_C_END

#endif /* LUMIVEX_TRACK_H_ */
