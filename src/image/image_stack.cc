// Image stack: a first-in, first-out store of frame rectangles with per-entry values.
#include <cstdint>

#include "lumivex/image.h"

struct ZMOSIMAGESTACK {
  MHandle hMemMgr;
  std::int32_t (*plValues)[3];
  std::int32_t lCapacity;
  std::int32_t lCount;
  std::int32_t lReadIndex;
  ZMOSIMAGELINK Link;
  ZMOSIMAGENODE* pCursor;
};

extern "C" {

int32_t ZMOSCreateImageStack_SIS(ZMOSIMAGESTACK** phStack, int32_t lCapacity, MHandle hMemMgr) {
  if (phStack != nullptr) *phStack = nullptr;
  auto* s = static_cast<ZMOSIMAGESTACK*>(MMemAlloc(hMemMgr, sizeof(ZMOSIMAGESTACK)));
  if (s == nullptr) return ZMOS_ERR_NO_MEMORY;
  MMemSet(s, 0, sizeof(ZMOSIMAGESTACK));
  s->hMemMgr = hMemMgr;
  // A negative or oversized capacity asks for a size no allocation can meet.
  const bool sized = lCapacity >= 0 && lCapacity <= INT32_MAX / 12;
  s->plValues =
      sized ? static_cast<std::int32_t(*)[3]>(MMemAlloc(hMemMgr, lCapacity * 12)) : nullptr;
  // Unreachable records stay in a work buffer (they go with it) but are given back to
  // the process heap, where they would leak for good.
  if (s->plValues == nullptr) {
    if (hMemMgr == nullptr) MMemFree(hMemMgr, s);
    return ZMOS_ERR_NO_MEMORY;
  }
  s->lCapacity = lCapacity;
  if (phStack != nullptr) {
    *phStack = s;
  } else if (hMemMgr == nullptr) {
    MMemFree(hMemMgr, s->plValues);
    MMemFree(hMemMgr, s);
  }
  return ZMOS_OK;
}

int32_t ZMOSAddImageIntoStack_SIS(ZMOSIMAGESTACK* hStack, const ZMOSIMAGE* pImage, int32_t lTag1,
                                  int32_t lTag2, int32_t lValue1, int32_t lValue2, int32_t lValue3,
                                  const ZMOSRECT* pRect) {
  if (hStack == nullptr || hStack->lCount >= hStack->lCapacity) return ZMOS_ERR_INVALID_PARAM;
  ZMOSIMAGESTACK& s = *hStack;
  s.plValues[s.lCount][0] = lValue1;
  s.plValues[s.lCount][1] = lValue2;
  s.plValues[s.lCount][2] = lValue3;
  const std::int32_t res =
      ZMOSInsertImageToLinkROI_AOD(&s.Link, pImage, pRect, lTag1, lTag2, s.hMemMgr);
  // Counted even when the copy failed; every add rewinds reading to the first entry.
  ++s.lCount;
  s.pCursor = s.Link.pHead;
  return res;
}

int32_t ZMOSGetImageFromStack_SIS(ZMOSIMAGESTACK* hStack, ZMOSIMAGE** ppImage, int32_t* plTag1,
                                  int32_t* plTag2, int32_t* plValue1, int32_t* plValue2,
                                  int32_t* plValue3, int32_t* plLast) {
  if (ppImage != nullptr) *ppImage = nullptr;
  if (plTag1 != nullptr) *plTag1 = 0;
  if (plTag2 != nullptr) *plTag2 = 0;
  if (hStack == nullptr || hStack->pCursor == nullptr) return ZMOS_ERR_INVALID_PARAM;
  ZMOSIMAGESTACK& s = *hStack;
  const ZMOSIMAGENODE* node = s.pCursor;
  if (plTag1 != nullptr) *plTag1 = node->lTag1;
  if (plTag2 != nullptr) *plTag2 = node->lTag2;
  // Values by read index, which a failed insertion may leave ahead of the images.
  const std::int32_t* v = s.lReadIndex < s.lCount ? s.plValues[s.lReadIndex] : nullptr;
  if (plValue1 != nullptr) *plValue1 = v != nullptr ? v[0] : 0;
  if (plValue2 != nullptr) *plValue2 = v != nullptr ? v[1] : 0;
  if (plValue3 != nullptr) *plValue3 = v != nullptr ? v[2] : 0;
  if (ppImage != nullptr) *ppImage = node->pImage;
  s.pCursor = node->pNext;
  ++s.lReadIndex;
  if (s.pCursor == nullptr && plLast != nullptr) *plLast = 1;
  return ZMOS_OK;
}

void ZMOSReleaseImageStack_SIS(ZMOSIMAGESTACK** phStack) {
  if (phStack == nullptr) return;
  if (ZMOSIMAGESTACK* s = *phStack) {
    MMemFree(s->hMemMgr, s->plValues);
    ZMOSFreeImageLink_AOD(&s->Link, s->hMemMgr);
    MMemFree(s->hMemMgr, s);
  }
  *phStack = nullptr;
}

}  // extern "C"
