/* Engine interface: the top-level capture operations, the sweep stitcher that owns one
 * capture, the preview and the version record. */
#ifndef LUMIVEX_ENGINE_H_
#define LUMIVEX_ENGINE_H_

#include <stdint.h>

#include "lumivex/export.h"
#include "lumivex/image.h"
#include "lumivex/platform.h"

LUMIVEX_EXTERN_C_BEGIN

typedef struct ZMOSVERSION {
  int32_t lMajor;
  int32_t lMinor;
  int32_t lBuild;
  int32_t lRevision;
  char szVersion[50];
  char szDate[50];
  char szCopyright[50];
} ZMOSVERSION;

/* Engine initialisation. The work buffer must outlive the engine; the engine never frees
 * it. Frame sizes must be even; only the buffer, its size and the angle are used. */
typedef struct ZMOSINITPARAM {
  void* pWorkBuffer;
  int32_t lWorkBufferSize;
  int32_t lMaxAngle; /* full sweep angle in degrees; hosts pass 180 */
  int32_t lFrameWidth;
  int32_t lFrameHeight;
  int32_t lTrackWidth;
  int32_t lTrackHeight;
} ZMOSINITPARAM;

/* The sweep stitcher: the engine handle, one capture. */
typedef struct ZMOSSWEEPSTITCHER ZMOSSWEEPSTITCHER;

/* Accepted by ZMOS_Stitch for hosts that pass one; never called. */
typedef int32_t (*ZMOSPROGRESSCALLBACK)(int32_t lProgress, void* pUserData);

/* Engine API. */
LUMIVEX_API int32_t ZMOS_GetVersion(ZMOSVERSION* pVersion);
LUMIVEX_API int32_t ZMOS_Init(const ZMOSINITPARAM* pParam, ZMOSSWEEPSTITCHER** phEngine);
/* The work buffer (lWorkBufferSize) one capture of lFrameWidth x lFrameHeight frames needs
 * at lMaxAngle degrees: exactly the bytes the engine holds at its fullest, in either sweep
 * direction, portrait or landscape, either profile, for any start address of the buffer.
 * Assumes what the Android host does: the frame is also the tracking image, and it is
 * NV21 with a preview (ZMOS_UpdateUIImage) of scale 6 or more in any preview format, or
 * I420 without one. Writes *plSize and returns 0; returns 2 for a null plSize or a
 * geometry the engine cannot run (odd or non-positive sizes, an angle or width too small
 * for one step, more than 2 GiB). With less, a capture can end with 4. */
LUMIVEX_API int32_t ZMOS_GetWorkBufferSize(int32_t lFrameWidth, int32_t lFrameHeight,
                                           int32_t lMaxAngle, int32_t* plSize);
/* One preview frame: pFrame is the full frame, pTrackFrame the image motion is tracked on
 * (the frame itself, or a smaller copy). Outputs: plOffset (x, y) the sweep's travel in
 * tracking-image pixels (y negated), *plKeptCount incremented when the frame was kept,
 * plDirectionFlags four flags (directions 3, 2, 1, 0 in that order), *plAngle the
 * progress in degrees, written when a frame was kept. Returns 0, 2, 4, 5, 0x7001 (sweep
 * went wrong) or 0x7003 (too fast). */
LUMIVEX_API int32_t ZMOS_SelectFrames(ZMOSSWEEPSTITCHER* hEngine, const ZMOSIMAGE* pFrame,
                                      const ZMOSIMAGE* pTrackFrame, int32_t* plOffset,
                                      int32_t* plKeptCount, int32_t* plDirectionFlags,
                                      int32_t* plAngle);
/* Draws the newly kept strip into the preview (created on the first kept frame, its
 * record copied into *pUIImage); lScale is the reduction factor; plRect receives the
 * preview rectangle drawn so far (left, top, right, bottom). */
LUMIVEX_API int32_t ZMOS_UpdateUIImage(ZMOSSWEEPSTITCHER* hEngine, const ZMOSIMAGE* pFrame,
                                       ZMOSIMAGE* pUIImage, int32_t lScale, int32_t* plRect);
LUMIVEX_API int32_t ZMOS_UpdateUIImage2(ZMOSSWEEPSTITCHER* hEngine, const ZMOSIMAGE* pFrame,
                                        ZMOSIMAGE* pUIImage, int32_t lScale, int32_t* plRect);
/* Blends the kept strips and hands back the panorama record (its pixels stay in the work
 * buffer until ZMOS_UnInit); a sweep that never moved yields the first frame. */
LUMIVEX_API int32_t ZMOS_Stitch(ZMOSSWEEPSTITCHER* hEngine, ZMOSIMAGE* pResult,
                                ZMOSPROGRESSCALLBACK pfnProgress);
LUMIVEX_API int32_t ZMOS_UnInit(ZMOSSWEEPSTITCHER** phEngine);

/* Profiles. EXACT (the default) keeps every decision of the engine as it was defined, bit for
 * bit. QUALITY corrects the ones that spoil real panoramas (README and `lumivex version`
 * list them: small steps, a start on sky, chroma at odd overlaps, too-fast moments, plain
 * stretches, exposure steps and changes, the seams' placement, ...).
 * The profile belongs to one engine: other engines and the functions below called
 * directly stay exact. */
enum { ZMOS_PROFILE_EXACT = 0, ZMOS_PROFILE_QUALITY = 1 };
/* Valid after ZMOS_Init and before the first ZMOS_SelectFrames; 2 otherwise, or for an
 * unknown profile. */
LUMIVEX_API int32_t ZMOS_SetProfile(ZMOSSWEEPSTITCHER* hEngine, int32_t lProfile);
/* 1 when the travel of the last frame was carried from the recent speed because the scene
 * was too plain to measure (quality profile only), 0 otherwise or for a null engine. */
LUMIVEX_API int32_t ZMOS_IsCoasting(const ZMOSSWEEPSTITCHER* hEngine);

/* The layout a capture makes for frames of lFrameWidth x lFrameHeight at lMaxAngle
 * degrees once it knows its direction (0 to 3, ZMOS_DIRECTION_*): the canvas, where each
 * frame's seam lies along the sweep, the strip a kept frame lays after it, the travel
 * that keeps a frame and the travel that is too fast. For hosts that draw guides or check
 * a recording; a capture lays out exactly this. Writes *pLayout and returns 0; 2 for a
 * null pLayout, an unknown direction or a geometry the engine cannot run. */
typedef struct ZMOSSWEEPLAYOUT {
  int32_t lCanvasWidth;
  int32_t lCanvasHeight;
  int32_t lSeam;       /* in every frame, along the sweep */
  int32_t lStripWidth; /* laid after the seam by every kept frame but the last */
  int32_t lMinStep;    /* travel beyond which a frame is kept */
  int32_t lMaxStep;    /* travel beyond which the camera moved too fast */
} ZMOSSWEEPLAYOUT;
LUMIVEX_API int32_t ZMOS_GetSweepLayout(int32_t lFrameWidth, int32_t lFrameHeight,
                                        int32_t lMaxAngle, int32_t lDirection,
                                        ZMOSSWEEPLAYOUT* pLayout);

/* What a result code means where it was returned, as a short phrase for people (never
 * null): lContext ZMOS_RESULTS_CAPTURE for the capture and image functions, where 5 is too
 * little texture; ZMOS_RESULTS_BLEND for the blending functions (..._AME), which use 5 for
 * an invalid argument. */
enum { ZMOS_RESULTS_CAPTURE = 0, ZMOS_RESULTS_BLEND = 1 };
LUMIVEX_API const char* ZMOS_ResultName(int32_t lCode, int32_t lContext);

/* The sweep stitcher underneath, for hosts that drive it directly. */
typedef struct ZMOSSWTPARAM {
  void* pWorkBuffer;
  int32_t lWorkBufferSize;
  int32_t lMaxAngle;
  int32_t lReserved1;
  int32_t lReserved2;
} ZMOSSWTPARAM;

LUMIVEX_API int32_t ZMOSCreateSweepStitcher_SWT(ZMOSSWEEPSTITCHER** phStitcher,
                                                const ZMOSSWTPARAM* pParam, int32_t lBandCount,
                                                void* pUnused);
LUMIVEX_API void ZMOSReleaseSweepStitcher_SWT(ZMOSSWEEPSTITCHER** phStitcher);
LUMIVEX_API int32_t ZMOSSetDirection_SWT(ZMOSSWEEPSTITCHER* hStitcher, int32_t lDirection);
LUMIVEX_API void ZMOSGetDirection_SWT(const ZMOSSWEEPSTITCHER* hStitcher, int32_t* plDirection);
LUMIVEX_API void ZMOSCalculateAngle_SWT(const ZMOSSWEEPSTITCHER* hStitcher, int32_t* plAngle);
LUMIVEX_API int32_t ZMOSIsResultNarrow_SWT(const ZMOSSWEEPSTITCHER* hStitcher);
LUMIVEX_API void ZMOSGetResultImage(const ZMOSSWEEPSTITCHER* hStitcher, ZMOSIMAGE** ppImage);
LUMIVEX_API void ZMOSGetResultImagesN(ZMOSSWEEPSTITCHER* hStitcher, ZMOSIMAGE*** pppImages,
                                      int32_t* plCount);
/* One frame of selection: status ZMOS_SELECT_*; *plFinish non-zero on entry forces the
 * finished state, zero is replaced by it. */
LUMIVEX_API int32_t ZMOSSelectFrame_SWT(ZMOSSWEEPSTITCHER* hStitcher, const ZMOSIMAGE* pFrame,
                                        const ZMOSIMAGE* pTrackFrame, int32_t* plOffset,
                                        int32_t* plStatus, int32_t* plFinish);
LUMIVEX_API int32_t ZMOSImageStitcherRun_SWT(ZMOSSWEEPSTITCHER* hStitcher);
LUMIVEX_API int32_t ZMOSUpdateUIImage(ZMOSSWEEPSTITCHER* hStitcher, const ZMOSIMAGE* pFrame,
                                      ZMOSIMAGE* pUIImage, int32_t lScale, int32_t* plRect);
/* Nearest-sample reduction of a rectangle (null: the whole image, sizes rounded down to
 * even) of a packed 4:2:2 or semi-planar image into a rectangle of another. */
LUMIVEX_API int32_t DownSampleImage(const ZMOSIMAGE* pSrc, const ZMOSRECT* pSrcRect,
                                    ZMOSIMAGE* pDst, const ZMOSRECT* pDstRect, int32_t lScaleX,
                                    int32_t lScaleY, int32_t lFlag);

LUMIVEX_EXTERN_C_END

#endif /* LUMIVEX_ENGINE_H_ */
