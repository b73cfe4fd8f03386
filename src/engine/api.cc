// The engine API: thin argument checks over the sweep stitcher, the translation of
// selection statuses into result codes and of the direction into four flags.
#include <cstring>

#include "lumivex/version.h"
#include "src/engine/profile.h"
#include "src/platform/direction.h"
#include "src/engine/sweep_stitcher.h"

namespace {

void PutText(char (&field)[50], const char* text) {
  std::memset(field, 0, sizeof(field));
  std::strncpy(field, text, sizeof(field) - 1);
}

}  // namespace

extern "C" {

int32_t ZMOS_GetVersion(ZMOSVERSION* pVersion) {
  if (pVersion == nullptr) return ZMOS_ERR_INVALID_PARAM;
  pVersion->lMajor = LUMIVEX_VERSION_MAJOR;
  pVersion->lMinor = LUMIVEX_VERSION_MINOR;
  pVersion->lBuild = LUMIVEX_VERSION_PATCH;
  pVersion->lRevision = LUMIVEX_VERSION_TWEAK;
  PutText(pVersion->szVersion, "Velqor_Lumivex_" LUMIVEX_VERSION_STRING);
  PutText(pVersion->szDate, "06/20/2013");
  PutText(pVersion->szCopyright, "Copyright (c) 2013 Velqor. All rights reserved.");
  return ZMOS_OK;
}

int32_t ZMOS_Init(const ZMOSINITPARAM* pParam, ZMOSSWEEPSTITCHER** phEngine) {
  if (pParam == nullptr || phEngine == nullptr) return ZMOS_ERR_INVALID_PARAM;
  if (pParam->pWorkBuffer == nullptr || pParam->lWorkBufferSize < 1 || (pParam->lFrameWidth & 1) ||
      (pParam->lFrameHeight & 1) || (pParam->lTrackWidth & 1) || (pParam->lTrackHeight & 1))
    return ZMOS_ERR_INVALID_PARAM;
  ZMOSVERSION scratch;
  ZMOS_GetVersion(&scratch);
  const ZMOSSWTPARAM swt{pParam->pWorkBuffer, pParam->lWorkBufferSize, pParam->lMaxAngle, 0, 0};
  return ZMOSCreateSweepStitcher_SWT(phEngine, &swt, 1, nullptr);
}

int32_t ZMOS_GetWorkBufferSize(int32_t lFrameWidth, int32_t lFrameHeight, int32_t lMaxAngle,
                               int32_t* plSize) {
  if (plSize == nullptr) return ZMOS_ERR_INVALID_PARAM;
  const std::int64_t bytes = lumivex::engine::WorkBufferBytes(lFrameWidth, lFrameHeight, lMaxAngle);
  if (bytes < 0 || bytes > INT32_MAX) return ZMOS_ERR_INVALID_PARAM;
  *plSize = static_cast<std::int32_t>(bytes);
  return ZMOS_OK;
}

int32_t ZMOS_SelectFrames(ZMOSSWEEPSTITCHER* hEngine, const ZMOSIMAGE* pFrame,
                          const ZMOSIMAGE* pTrackFrame, int32_t* plOffset, int32_t* plKeptCount,
                          int32_t* plDirectionFlags, int32_t* plAngle) {
  if (hEngine == nullptr || pFrame == nullptr || pTrackFrame == nullptr || plOffset == nullptr ||
      plKeptCount == nullptr || plDirectionFlags == nullptr || plAngle == nullptr)
    return ZMOS_ERR_INVALID_PARAM;
  // This API never forces the end of a sweep; an inactive stitcher writes no status.
  std::int32_t status = ZMOS_SELECT_NONE, finish = 0;
  const std::int32_t res =
      ZMOSSelectFrame_SWT(hEngine, pFrame, pTrackFrame, plOffset, &status, &finish);
  if (res != 0) return res;
  std::int32_t code = ZMOS_OK;
  switch (status) {
    case ZMOS_SELECT_TOO_FAST:
      code = ZMOS_ERR_TOO_FAST;
      break;
    case ZMOS_SELECT_KEEP:
      ++*plKeptCount;
      ZMOSCalculateAngle_SWT(hEngine, plAngle);
      break;
    case ZMOS_SELECT_WRONG:
      code = ZMOS_ERR_SWEEP_WRONG;
      break;
    default:
      break;
  }
  // Flags in the order of directions 3, 2, 1, 0.
  for (int i = 0; i < 4; ++i) plDirectionFlags[i] = 0;
  std::int32_t direction = ZMOS_DIRECTION_UNKNOWN;
  ZMOSGetDirection_SWT(hEngine, &direction);
  if (lumivex::IsKnownDirection(direction)) plDirectionFlags[3 - direction] = 1;
  return code;
}

int32_t ZMOS_UpdateUIImage(ZMOSSWEEPSTITCHER* hEngine, const ZMOSIMAGE* pFrame, ZMOSIMAGE* pUIImage,
                           int32_t lScale, int32_t* plRect) {
  if (hEngine == nullptr || pFrame == nullptr || pUIImage == nullptr) return ZMOS_ERR_INVALID_PARAM;
  return ZMOSUpdateUIImage(hEngine, pFrame, pUIImage, lScale, plRect);
}

int32_t ZMOS_UpdateUIImage2(ZMOSSWEEPSTITCHER* hEngine, const ZMOSIMAGE* pFrame,
                            ZMOSIMAGE* pUIImage, int32_t lScale, int32_t* plRect) {
  return ZMOS_UpdateUIImage(hEngine, pFrame, pUIImage, lScale, plRect);
}

int32_t ZMOS_Stitch(ZMOSSWEEPSTITCHER* hEngine, ZMOSIMAGE* pResult, ZMOSPROGRESSCALLBACK) {
  if (hEngine == nullptr || pResult == nullptr) return ZMOS_ERR_INVALID_PARAM;
  if (const std::int32_t res = ZMOSImageStitcherRun_SWT(hEngine); res != 0) return res;
  ZMOSIMAGE** images = nullptr;
  std::int32_t count = 0;
  ZMOSGetResultImagesN(hEngine, &images, &count);
  // The record only: the pixels stay in the work buffer until ZMOS_UnInit.
  if (images != nullptr && count > 0 && images[0] != nullptr) *pResult = *images[0];
  // A plane that holds no bytes (a panorama one pixel wide has no chroma columns) is
  // reported with no pointer and pitch 0: the address worked out for it may lie past the
  // block the pixels live in, and a host must never be handed one.
  for (int p = 0; p < 3; ++p) {
    if (pResult->lPitch[p] <= 0) {
      pResult->pPlane[p] = nullptr;
      pResult->lPitch[p] = 0;
    }
  }
  return ZMOS_OK;
}

int32_t ZMOS_UnInit(ZMOSSWEEPSTITCHER** phEngine) {
  ZMOSReleaseSweepStitcher_SWT(phEngine);
  return ZMOS_OK;
}

int32_t ZMOS_SetProfile(ZMOSSWEEPSTITCHER* hEngine, int32_t lProfile) {
  // Only before the first frame: a capture never changes its rules midway.
  if (hEngine == nullptr || !hEngine->bActive || hEngine->bFirstFrameCopied)
    return ZMOS_ERR_INVALID_PARAM;
  if (lProfile != ZMOS_PROFILE_EXACT && lProfile != ZMOS_PROFILE_QUALITY)
    return ZMOS_ERR_INVALID_PARAM;
  return lumivex::engine::SetQuality(hEngine, lProfile == ZMOS_PROFILE_QUALITY)
             ? ZMOS_OK
             : ZMOS_ERR_NO_MEMORY;
}

int32_t ZMOS_GetSweepLayout(int32_t lFrameWidth, int32_t lFrameHeight, int32_t lMaxAngle,
                            int32_t lDirection, ZMOSSWEEPLAYOUT* pLayout) {
  if (pLayout == nullptr) return ZMOS_ERR_INVALID_PARAM;
  ZMOSSWEEPLAYOUT layout{};
  if (!lumivex::engine::SweepLayout(lFrameWidth, lFrameHeight, lMaxAngle, lDirection, &layout))
    return ZMOS_ERR_INVALID_PARAM;
  *pLayout = layout;
  return ZMOS_OK;
}

const char* ZMOS_ResultName(int32_t lCode, int32_t lContext) {
  switch (lCode) {
    case ZMOS_OK:
      return "success";
    case ZMOS_ERR_INVALID_PARAM:
      return "invalid argument";
    case ZMOS_ERR_UNSUPPORTED_FORMAT:
      return "unsupported image format";
    case ZMOS_ERR_NO_MEMORY:
      return "out of memory in the work buffer";
    case ZMOS_ERR_NO_TEXTURE:
      // The blending functions use 5 where the others use 2.
      return lContext == ZMOS_RESULTS_BLEND ? "invalid argument"
                                            : "too little texture to follow the sweep";
    case ZMOS_ERR_SWEEP_WRONG:
      return "the sweep went wrong (it moved backwards, drifted or turned)";
    case ZMOS_ERR_TOO_FAST:
      return "the camera moved too fast";
    default:
      return "unknown result";
  }
}

int32_t ZMOS_IsCoasting(const ZMOSSWEEPSTITCHER* hEngine) {
  const lumivex::select::Coasting* coast = lumivex::engine::CoastingOf(hEngine);
  return coast != nullptr && coast->carried > 0 ? 1 : 0;
}

}  // extern "C"
