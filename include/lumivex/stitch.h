/* Stitching and blending: the engine-wide blend table, the seam search and the seam
 * blends that join a second image into a first one across their overlap. */
#ifndef LUMIVEX_STITCH_H_
#define LUMIVEX_STITCH_H_

#include <stdint.h>

#include "lumivex/export.h"
#include "lumivex/image.h"
#include "lumivex/platform.h"

LUMIVEX_EXTERN_C_BEGIN

/* Installs a blend table of n rounded down to even Q16 weights (65536 = 1.0), falling
 * from (w-1)/w to 1/w with weight(i) + weight(w-1-i) = 65536. Returns 0 or 4. */
LUMIVEX_API int32_t ZMOSCreateBlendTable(int32_t lWidth, MHandle hMemMgr);
LUMIVEX_API void ZMOSReleaseBlendTable(void);
LUMIVEX_API void ZMOSSetBlendTableBufferHeadle(MHandle hMemMgr);
/* Stored for hosts; the blends use a fixed seam-search margin. */
LUMIVEX_API void ZMOSSetPathSearchThreshold(uint32_t dwThreshold);

/* |Y1 - Y2| over the overlap `pRect` of the first image and the same-sized area at
 * plPos (x, y) of the second: W x H bytes, row stride W. */
LUMIVEX_API void ComputeLumaDiffMap(const ZMOSIMAGE* pFirst, const ZMOSIMAGE* pSecond,
                                    const ZMOSRECT* pRect, const int32_t* plPos, uint8_t* pDiffMap);
/* Minimum-cost top-to-bottom path through a W x H difference map, one column per row,
 * kept half the blend table's width away from the sides. Returns 0 or 4. */
LUMIVEX_API int32_t SearchSeamPath(int32_t* plPath, const uint8_t* pDiffMap, int32_t lWidth,
                                   int32_t lHeight, MHandle hMemMgr);

/* Joins the second image into the first across a vertical seam inside the overlap
 * pFirstRect (the second's overlap starts at pSecondRect's left and top). lSide 0: the
 * second image lies left of the seam. Returns 0, 3, 4 or 5 (invalid argument). */
LUMIVEX_API int32_t ZMOSBlendImageOdd_AME(ZMOSIMAGE* pFirst, const ZMOSRECT* pFirstRect,
                                          const ZMOSIMAGE* pSecond, const ZMOSRECT* pSecondRect,
                                          int32_t lSide, MHandle hMemMgr);
/* The same across a horizontal seam; lSide 0: the second image lies above it. */
LUMIVEX_API int32_t ZMOSBlendImageOddT2B_AME(ZMOSIMAGE* pFirst, const ZMOSRECT* pFirstRect,
                                             const ZMOSIMAGE* pSecond, const ZMOSRECT* pSecondRect,
                                             int32_t lSide, MHandle hMemMgr);

/* Steps of the two blends, for hosts that compose their own. The plane functions take
 * the addresses of the overlap's top-left samples and trust their extents. */
LUMIVEX_API int32_t BlendPlaneAlongSeam(uint8_t* pFirst, const uint8_t* pSecond,
                                        int32_t lFirstPitch, int32_t lSecondPitch, int32_t lWidth,
                                        int32_t lHeight, const int32_t* plPath, int32_t lBand,
                                        int32_t lSide, MHandle hMemMgr);
LUMIVEX_API int32_t BlendLumaAlongSeamT2B(uint8_t* pFirst, const uint8_t* pSecond,
                                          int32_t lFirstPitch, int32_t lSecondPitch, int32_t lWidth,
                                          int32_t lHeight, const int32_t* plPath, int32_t lBand,
                                          int32_t lSide, MHandle hMemMgr);
LUMIVEX_API int32_t BlendPlanarChroma(ZMOSIMAGE* pFirst, const ZMOSIMAGE* pSecond,
                                      const ZMOSRECT* pFirstRect, const ZMOSRECT* pSecondRect,
                                      int32_t* plPath, int32_t lSide, MHandle hMemMgr);
LUMIVEX_API int32_t BlendInterleavedChroma(ZMOSIMAGE* pFirst, const ZMOSIMAGE* pSecond,
                                           const ZMOSRECT* pFirstRect, const ZMOSRECT* pSecondRect,
                                           int32_t* plPath, int32_t lSide, MHandle hMemMgr);
LUMIVEX_API int32_t BlendInterleavedChromaT2B(ZMOSIMAGE* pFirst, const ZMOSIMAGE* pSecond,
                                              const ZMOSRECT* pFirstRect,
                                              const ZMOSRECT* pSecondRect, int32_t* plPath,
                                              int32_t lSide, MHandle hMemMgr);

/* Direct image stitcher: the panorama canvas of one sweep. Kept frames are laid on it as
 * strips; the overlap of each with what the canvas held is kept aside and blended in at
 * the end. */
typedef struct ZMOSDIRECTSTITCHER ZMOSDIRECTSTITCHER;

/* lDirection as ZMOS_DIRECTION_*; lCapacity: the most frames that will be added. */
LUMIVEX_API int32_t ZMOSCreateDirectImageStitcher_DIS(ZMOSDIRECTSTITCHER** phStitcher,
                                                      int32_t lWidth, int32_t lHeight,
                                                      uint32_t dwFormat, int32_t lDirection,
                                                      int32_t lCapacity, MHandle hMemMgr);
/* plOffset: the frame's motion (x, y) since the last added frame. lOverlap: columns (rows)
 * before the seam kept for blending; lSeam: the seam column (row) in the frame;
 * lStripLength: columns (rows) after it laid on the canvas; bLast: the final frame. */
LUMIVEX_API int32_t ZMOSAddImage_DIS(ZMOSDIRECTSTITCHER* hStitcher, const ZMOSIMAGE* pFrame,
                                     const int32_t* plOffset, int32_t lOverlap, int32_t lSeam,
                                     int32_t lStripLength, int32_t bLast);
LUMIVEX_API int32_t ZMOSStitchBlendImage_DIS(ZMOSDIRECTSTITCHER* hStitcher);
/* The part of the canvas that every frame covered. */
LUMIVEX_API void ZMOSGetValidRect_DIS(ZMOSDIRECTSTITCHER* hStitcher, ZMOSRECT* pRect);
/* The canvas itself (not a copy); it lives until the stitcher is fully released. */
LUMIVEX_API void ZMOSGetResultImage_DIS(ZMOSDIRECTSTITCHER* hStitcher, ZMOSIMAGE** ppImage);
/* Rows (horizontal sweeps) and columns (vertical sweeps) at which an unshifted frame lands
 * on the canvas; 0 unless set, for callers that make the canvas taller or wider. */
LUMIVEX_API void ZMOSSetCrossMargin_DIS(ZMOSDIRECTSTITCHER* hStitcher, int32_t lMarginY,
                                        int32_t lMarginX);
/* Frees the strips and rectangles, keeps the canvas. */
LUMIVEX_API void ZMOSReleasePartialDirectImageStitcher_DIS(ZMOSDIRECTSTITCHER** phStitcher);
LUMIVEX_API void ZMOSReleaseDirectImageStitcher_DIS(ZMOSDIRECTSTITCHER** phStitcher);

/* Image blender: places frames one by one on a result image, blending each into what is
 * there across a searched seam (directions 0 and 1). */
typedef struct ZMOSIMAGEBLENDER ZMOSIMAGEBLENDER;

LUMIVEX_API int32_t ZMOSCreateImageBlender_SBI(ZMOSIMAGEBLENDER** phBlender, ZMOSIMAGE* pResult,
                                               int32_t lDirection, int32_t lMinOverlap,
                                               uint32_t dwPathSearchThreshold, MHandle hMemMgr);
LUMIVEX_API void ZMOSSetDirection_SBI(ZMOSIMAGEBLENDER* hBlender, int32_t lDirection);
/* pRect: the usable part of the frame (null: all of it); plOffset: its motion (x, y);
 * lSeam (E) and lOverlapStart (F): frame columns of the seam and of the overlap's start. */
LUMIVEX_API int32_t ZMOSImageBlenderRun_SBI(ZMOSIMAGEBLENDER* hBlender, const ZMOSIMAGE* pFrame,
                                            const ZMOSRECT* pRect, const int32_t* plOffset,
                                            int32_t lSeam, int32_t lOverlapStart);
LUMIVEX_API void ZMOSGetValidRect_SBI(ZMOSIMAGEBLENDER* hBlender, ZMOSRECT* pRect);
LUMIVEX_API int32_t ZMOSCropResultImage_SBI(ZMOSIMAGEBLENDER* hBlender);
LUMIVEX_API void ZMOSReleaseImageBlender_SBI(ZMOSIMAGEBLENDER** phBlender);

/* Image stitcher: records strips around each frame's seam in an image stack, and replays
 * them through an image blender when asked to stitch. */
typedef struct ZMOSIMAGESTITCHER ZMOSIMAGESTITCHER;

LUMIVEX_API int32_t ZMOSCreateImageStitcher_ISR(ZMOSIMAGESTITCHER** phStitcher, int32_t lWidth,
                                                int32_t lHeight, uint32_t dwFormat,
                                                int32_t lDirection, int32_t lCapacity,
                                                MHandle hMemMgr);
LUMIVEX_API int32_t ZMOSAddImage_ISR(ZMOSIMAGESTITCHER* hStitcher, const ZMOSIMAGE* pFrame,
                                     const int32_t* plOffset, int32_t lOverlap, int32_t lSeam,
                                     int32_t lStripLength);
LUMIVEX_API int32_t ZMOSStitchBlendImage_ISR(ZMOSIMAGESTITCHER* hStitcher);
LUMIVEX_API void ZMOSGetValidRect_ISR(ZMOSIMAGESTITCHER* hStitcher, ZMOSRECT* pRect);
LUMIVEX_API void ZMOSGetResultImage_ISR(ZMOSIMAGESTITCHER* hStitcher, ZMOSIMAGE** ppImage);
LUMIVEX_API void ZMOSReleaseImageStitcher_ISR(ZMOSIMAGESTITCHER** phStitcher);

/* Merges two equal-sized regions along a searched seam: the first image's pixels left of
 * it, the second's right of it, a narrow faded band between (built-in 10-weight table when
 * none is installed). lFlag nonzero writes into the second image and copies the region
 * back into the first. Returns 0, 3, 4 or 5. */
LUMIVEX_API int32_t ZMOSBlendImage_AME(ZMOSIMAGE* pFirst, ZMOSRECT FirstRect, ZMOSIMAGE* pSecond,
                                       ZMOSRECT SecondRect, int32_t lFlag, MHandle hMemMgr);

LUMIVEX_EXTERN_C_END

#endif /* LUMIVEX_STITCH_H_ */
