// Clones, in-place crops and image-list insertion.
#include <climits>
#include <cstdint>

#include "lumivex/image.h"
#include "src/image/image_internal.h"

namespace lumivex::image {
namespace {

enum class CropKind { kKeepPlanes, kContinuous };

std::int32_t Crop(ZMOSIMAGE* image, const ZMOSRECT* rect, CropKind kind) {
  if (image == nullptr || rect == nullptr) return ZMOS_ERR_INVALID_PARAM;
  if (!RectFits(*rect, *image)) return ZMOS_ERR_INVALID_PARAM;
  ZMOSIMAGE cropped{};
  std::int32_t new_rows[3];
  if (const std::int32_t res = PlaneLayout(&cropped, rect->lRight - rect->lLeft,
                                           rect->lBottom - rect->lTop, image->dwFormat, new_rows);
      res != 0)
    return res;
  std::int32_t old_rows[3];
  std::int32_t count = 1;
  if (const std::int32_t res = PlaneHeights(image, old_rows, &count); res != 0) return res;

  for (int p = 0; p < count; ++p) {
    if (kind == CropKind::kKeepPlanes || p == 0) {
      cropped.pPlane[p] = image->pPlane[p];
    } else {
      cropped.pPlane[p] =
          cropped.pPlane[p - 1] + std::int64_t{cropped.lPitch[p - 1]} * new_rows[p - 1];
    }
    // The cropped plane must fit where the old one was.
    if (std::int64_t{cropped.lPitch[p]} * new_rows[p] >
        std::int64_t{image->lPitch[p]} * old_rows[p])
      return ZMOS_ERR_INVALID_PARAM;
  }
  const std::int32_t res = ZMOSCopyImageROI_AOD(&cropped, nullptr, image, rect);
  if (res == 0) *image = cropped;
  return res;
}

std::int32_t AppendCopy(ZMOSIMAGELINK* link, const ZMOSIMAGE* image, const ZMOSRECT* rect,
                        std::int32_t tag1, std::int32_t tag2, MHandle mem) {
  if (link == nullptr || image == nullptr) return ZMOS_ERR_INVALID_PARAM;
  auto* node = static_cast<ZMOSIMAGENODE*>(MMemAlloc(mem, sizeof(ZMOSIMAGENODE)));
  if (node == nullptr) return ZMOS_ERR_NO_MEMORY;
  ZMOSIMAGE* copy = nullptr;
  const std::int32_t res = rect == nullptr ? ZMOSCloneImage_AOD(&copy, image, mem)
                                           : ZMOSCloneImageROI_AOD(&copy, image, rect, mem);
  // A failed copy keeps the node block in a work buffer (it goes with the buffer) but
  // gives it back to the process heap; the list itself is left untouched.
  if (res != 0) {
    if (mem == nullptr) {
      ZMOSFreeImage_AOD(&copy, mem);
      MMemFree(mem, node);
    }
    return res;
  }
  node->pImage = copy;
  node->lTag1 = tag1;
  node->lTag2 = tag2;
  node->pNext = nullptr;
  node->pPrev = link->pTail;
  if (link->pTail != nullptr) {
    link->pTail->pNext = node;
  } else {
    link->pHead = node;
  }
  link->pTail = node;
  ++link->lCount;
  return ZMOS_OK;
}

}  // namespace
}  // namespace lumivex::image

using namespace lumivex::image;

extern "C" {

int32_t ZMOSCloneImage_AOD(ZMOSIMAGE** ppImage, const ZMOSIMAGE* pSrc, MHandle hMemMgr) {
  if (pSrc == nullptr || ppImage == nullptr) return ZMOS_ERR_INVALID_PARAM;
  const std::int32_t res =
      ZMOSCreateImage_AOD(ppImage, pSrc->lWidth, pSrc->lHeight, pSrc->dwFormat, hMemMgr);
  if (res != 0) return res;
  return ZMOSCopyImage_AOD(*ppImage, pSrc);
}

int32_t ZMOSCloneImageROI_AOD(ZMOSIMAGE** ppImage, const ZMOSIMAGE* pSrc, const ZMOSRECT* pRect,
                              MHandle hMemMgr) {
  if (pSrc == nullptr || pRect == nullptr || ppImage == nullptr) return ZMOS_ERR_INVALID_PARAM;
  const std::int64_t width = std::int64_t{pRect->lRight} - pRect->lLeft;
  const std::int64_t height = std::int64_t{pRect->lBottom} - pRect->lTop;
  if (width < 0 || height < 0 || width > INT32_MAX || height > INT32_MAX) {
    *ppImage = nullptr;
    return ZMOS_ERR_INVALID_PARAM;
  }
  const std::int32_t res =
      ZMOSCreateImage_AOD(ppImage, static_cast<std::int32_t>(width),
                          static_cast<std::int32_t>(height), pSrc->dwFormat, hMemMgr);
  if (res != 0) return res;
  return ZMOSCopyImageROI_AOD(*ppImage, nullptr, pSrc, pRect);
}

int32_t ZMOSCropImage_AOD(ZMOSIMAGE* pImage, const ZMOSRECT* pRect) {
  return Crop(pImage, pRect, CropKind::kKeepPlanes);
}

int32_t ZMOSCropImageContinueBuffer_AOD(ZMOSIMAGE* pImage, const ZMOSRECT* pRect) {
  return Crop(pImage, pRect, CropKind::kContinuous);
}

int32_t ZMOSInsertImageToLink_AOD(ZMOSIMAGELINK* pLink, const ZMOSIMAGE* pImage, int32_t lTag1,
                                  int32_t lTag2, MHandle hMemMgr) {
  return AppendCopy(pLink, pImage, nullptr, lTag1, lTag2, hMemMgr);
}

int32_t ZMOSInsertImageToLinkROI_AOD(ZMOSIMAGELINK* pLink, const ZMOSIMAGE* pImage,
                                     const ZMOSRECT* pRect, int32_t lTag1, int32_t lTag2,
                                     MHandle hMemMgr) {
  return AppendCopy(pLink, pImage, pRect, lTag1, lTag2, hMemMgr);
}

}  // extern "C"
