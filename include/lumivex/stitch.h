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

LUMIVEX_EXTERN_C_END

#endif /* LUMIVEX_STITCH_H_ */
