// Image record: plane layout, creation, wrapping, freeing and the aligned allocator.
#include <cstdint>
#include <limits>

#include "lumivex/image.h"
#include "src/image/format.h"
#include "src/image/image_internal.h"
#include "src/platform/memory.h"

namespace lumivex::image {

std::int32_t PlaneLayout(ZMOSIMAGE* image, std::int32_t width, std::int32_t height,
                         std::uint32_t format, std::int32_t rows[3]) {
  if (image == nullptr || rows == nullptr) return ZMOS_ERR_INVALID_PARAM;
  image->dwFormat = format;
  image->lWidth = width;
  image->lHeight = height;
  for (int p = 0; p < 3; ++p) {
    image->lPitch[p] = 0;
    rows[p] = 0;
  }
  const auto info = LookupFormat(format);
  if (!info) return ZMOS_ERR_UNSUPPORTED_FORMAT;
  if (width < 0 || height < 0) return ZMOS_ERR_INVALID_PARAM;
  const PlaneRows plane_rows = RowsOf(*info, height);
  for (int p = 0; p < info->planes; ++p) {
    const std::int64_t pitch = Align16(RowBytesOf(*info, p, width));
    if (pitch > std::numeric_limits<std::int32_t>::max()) return ZMOS_ERR_INVALID_PARAM;
    image->lPitch[p] = static_cast<std::int32_t>(pitch);
  }
  for (int p = 0; p < info->planes; ++p) rows[p] = plane_rows.rows[p];
  return ZMOS_OK;
}

std::int32_t PlaneHeights(const ZMOSIMAGE* image, std::int32_t rows[3], std::int32_t* count) {
  if (image == nullptr || rows == nullptr || count == nullptr) return ZMOS_ERR_INVALID_PARAM;
  *count = 1;
  rows[0] = rows[1] = rows[2] = 0;
  const auto info = LookupFormat(image->dwFormat);
  if (!info) return ZMOS_ERR_UNSUPPORTED_FORMAT;
  const PlaneRows plane_rows = RowsOf(*info, image->lHeight);
  *count = info->planes;
  for (int p = 0; p < 3; ++p) rows[p] = plane_rows.rows[p];
  return ZMOS_OK;
}

bool RectFits(const ZMOSRECT& rect, const ZMOSIMAGE& image) {
  if (rect.lLeft < 0 || rect.lTop < 0) return false;
  if (rect.lRight < rect.lLeft || rect.lBottom < rect.lTop) return false;
  const std::int64_t w = std::int64_t{rect.lRight} - rect.lLeft;
  const std::int64_t h = std::int64_t{rect.lBottom} - rect.lTop;
  return w <= image.lWidth && h <= image.lHeight;
}

std::int64_t AlignedRequest(std::int32_t size) {
  return std::int64_t{size} + static_cast<std::int64_t>(sizeof(void*)) + (size < 4096 ? 32 : 64);
}

std::int64_t ImageBytes(std::int32_t width, std::int32_t height, std::uint32_t format) {
  ZMOSIMAGE layout{};
  std::int32_t rows[3];
  if (PlaneLayout(&layout, width, height, format, rows) != 0) return -1;
  std::int64_t size = 0;
  for (int p = 0; p < 3; ++p) size += std::int64_t{layout.lPitch[p]} * rows[p];
  if (size > std::numeric_limits<std::int32_t>::max()) return -1;
  const std::int64_t record = platform::BlockBytes(sizeof(ZMOSIMAGE));
  const std::int64_t planes = platform::BlockBytes(AlignedRequest(static_cast<std::int32_t>(size)));
  return planes < 0 ? -1 : record + planes;
}

}  // namespace lumivex::image

using namespace lumivex::image;

extern "C" {

void* ibAllocAlign(MHandle hMemMgr, int32_t lSize) {
  if (lSize < 0) return nullptr;
  // The word below the block keeps the raw address; on 32-bit targets this asks for
  // size + 4 + slack and returns (raw + 36) rounded down to a multiple of 32.
  constexpr std::int64_t kKeep = sizeof(void*);
  const std::int64_t request = AlignedRequest(lSize);
  if (request > std::numeric_limits<std::int32_t>::max()) return nullptr;
  void* raw = MMemAlloc(hMemMgr, static_cast<std::int32_t>(request));
  if (raw == nullptr) return nullptr;
  const std::uintptr_t block =
      (reinterpret_cast<std::uintptr_t>(raw) + kKeep + 32) & ~std::uintptr_t{31};
  reinterpret_cast<void**>(block)[-1] = raw;
  return reinterpret_cast<void*>(block);
}

void ibFreeAlign(MHandle hMemMgr, void** ppBlock) {
  if (ppBlock == nullptr || *ppBlock == nullptr) return;
  MMemFree(hMemMgr, static_cast<void**>(*ppBlock)[-1]);
  *ppBlock = nullptr;
}

int32_t ZMOSCreateImage_AOD(ZMOSIMAGE** ppImage, int32_t lWidth, int32_t lHeight, uint32_t dwFormat,
                            MHandle hMemMgr) {
  if (ppImage == nullptr) return ZMOS_ERR_INVALID_PARAM;
  *ppImage = nullptr;
  auto* image = static_cast<ZMOSIMAGE*>(MMemAlloc(hMemMgr, sizeof(ZMOSIMAGE)));
  if (image == nullptr) return ZMOS_ERR_NO_MEMORY;
  MMemSet(image, 0, sizeof(ZMOSIMAGE));
  std::int32_t rows[3];
  // On a layout failure the record stays allocated in a work buffer (it goes with the
  // buffer); from the process heap it is given back, where it would leak for good.
  if (const std::int32_t res = PlaneLayout(image, lWidth, lHeight, dwFormat, rows); res != 0) {
    if (hMemMgr == nullptr) MMemFree(hMemMgr, image);
    return res;
  }
  // Each plane is below 2^62 bytes, but three of them can pass 2^63: the sum stops as
  // soon as it is too large to allocate.
  constexpr std::int64_t kMax = std::numeric_limits<std::int32_t>::max();
  std::int64_t size = 0;
  for (int p = 0; p < 3 && size <= kMax; ++p) size += std::int64_t{image->lPitch[p]} * rows[p];
  void* block = size <= kMax
                    ? ibAllocAlign(hMemMgr, static_cast<std::int32_t>(size))
                    : nullptr;
  if (block == nullptr) {
    ZMOSFreeImage_AOD(&image, hMemMgr);
    return ZMOS_ERR_NO_MEMORY;
  }
  image->pPlane[0] = static_cast<std::uint8_t*>(block);
  if (image->lPitch[1] != 0)
    image->pPlane[1] = image->pPlane[0] + std::int64_t{image->lPitch[0]} * rows[0];
  if (image->lPitch[2] != 0)
    image->pPlane[2] = image->pPlane[1] + std::int64_t{image->lPitch[1]} * rows[1];
  *ppImage = image;
  return ZMOS_OK;
}

int32_t ZMOSSetImage_AOD(ZMOSIMAGE* pImage, int32_t lWidth, int32_t lHeight, uint32_t dwFormat,
                         uint8_t* const* ppPlane, const int32_t* plPitch) {
  if (pImage == nullptr || ppPlane == nullptr || plPitch == nullptr) return ZMOS_ERR_INVALID_PARAM;
  pImage->lWidth = lWidth;
  pImage->lHeight = lHeight;
  pImage->dwFormat = dwFormat;
  std::int32_t rows[3];
  std::int32_t count = 1;
  PlaneHeights(pImage, rows, &count);  // an unknown format still wraps one plane
  for (int p = 0; p < count; ++p) {
    pImage->pPlane[p] = ppPlane[p];
    pImage->lPitch[p] = plPitch[p];
  }
  return ZMOS_OK;
}

void ZMOSFreeImage_AOD(ZMOSIMAGE** ppImage, MHandle hMemMgr) {
  if (ppImage == nullptr || *ppImage == nullptr) return;
  ZMOSIMAGE* image = *ppImage;
  if (image->pPlane[0] != nullptr) {
    void* block = image->pPlane[0];
    ibFreeAlign(hMemMgr, &block);
  }
  MMemFree(hMemMgr, image);
  *ppImage = nullptr;
}

void ZMOSFreeImageLink_AOD(ZMOSIMAGELINK* pLink, MHandle hMemMgr) {
  if (pLink == nullptr || pLink->pHead == nullptr) return;
  for (ZMOSIMAGENODE* node = pLink->pHead; node != nullptr;) {
    ZMOSIMAGENODE* next = node->pNext;
    ZMOSFreeImage_AOD(&node->pImage, hMemMgr);
    MMemFree(hMemMgr, node);
    node = next;
  }
  pLink->lCount = 0;
  pLink->pHead = nullptr;
  pLink->pTail = nullptr;
}

}  // extern "C"
