// Tracker creation, release, accessors and the three rectangle layouts.
#include "src/track/tracker.h"
#include "src/platform/memory.h"

#include <algorithm>
#include <cstdint>

namespace lumivex::track {

std::int32_t BandMeasure(const std::uint32_t* p, std::int32_t from, std::int32_t to) {
  if (to <= from) return 0;
  std::int32_t sum = 0;
  for (std::int32_t k = from; k + 1 < to; ++k)
    sum += static_cast<std::int32_t>(p[k + 1] > p[k] ? p[k + 1] - p[k] : p[k] - p[k + 1]);
  return sum / (to - from);
}

namespace {

// Both buffer tables of one kind and their sums in one block: table A, table B, then
// per rectangle the sums for A followed by those for B.
std::int64_t BufferBlockBytes(std::int32_t count, std::int32_t length) {
  return 2 * std::int64_t{count} * static_cast<std::int64_t>(sizeof(std::uint32_t*)) +
         2 * std::int64_t{count} * length * static_cast<std::int64_t>(sizeof(std::uint32_t));
}

std::uint32_t** AllocBufferBlock(MHandle mem, std::int32_t count, std::int32_t length) {
  const std::int64_t bytes = BufferBlockBytes(count, length);
  if (bytes > INT32_MAX) return nullptr;
  auto* block = static_cast<std::uint32_t**>(MMemAlloc(mem, static_cast<std::int32_t>(bytes)));
  if (block == nullptr) return nullptr;
  MMemSet(block, 0, static_cast<std::int32_t>(bytes));
  auto* sums = reinterpret_cast<std::uint32_t*>(block + 2 * count);
  for (std::int32_t i = 0; i < count; ++i) {
    block[i] = sums + std::int64_t{i} * 2 * length;
    block[count + i] = block[i] + length;
  }
  return block;
}

void FreeBlocks(ZMOSVideoTracker* t) {
  MHandle mem = t->hMemMgr;
  MMemFree(mem, t->ppCurHori);
  MMemFree(mem, t->ppCurVert);
  MMemFree(mem, t->pScratch[0]);
  MMemFree(mem, t->pHoriRects);
  MMemFree(mem, t->plHoriResult);
  MMemFree(mem, t);
}

ZMOSRECT ClampedColumns(std::int32_t centre, std::int32_t half, std::int32_t w, std::int32_t top,
                        std::int32_t bottom) {
  return ZMOSRECT{Align4(std::max(centre - half, 0)), top, Align4(std::min(centre + half, w)),
                  bottom};
}

}  // namespace
// Mirrors the allocations of ZMOSCreateVideoTrackerNxN_PBM below, in its order.
std::int64_t TrackerBytes(std::int32_t width, std::int32_t height, std::int32_t hori_count,
                          std::int32_t vert_count) {
  if (width <= 0 || height <= 0 || hori_count < 0 || vert_count < 0) return -1;
  const std::int32_t rects = hori_count + vert_count;
  const std::int64_t requests[] = {
      sizeof(ZMOSVideoTracker),
      hori_count > 0 ? BufferBlockBytes(hori_count, width) : -2,
      vert_count > 0 ? BufferBlockBytes(vert_count, height) : -2,
      16 * std::int64_t{std::max(width, height)},
      static_cast<std::int64_t>(std::max(rects, 1) * sizeof(ZMOSRECT)),
      static_cast<std::int64_t>((rects + 2) * sizeof(std::int32_t)),
  };
  std::int64_t total = 0;
  for (const std::int64_t r : requests) {
    if (r == -2) continue;  // no buffers of that kind
    const std::int64_t b = platform::BlockBytes(r);
    if (b < 0) return -1;
    total += b;
  }
  return total;
}

}  // namespace lumivex::track

using namespace lumivex::track;

namespace {

// A new tracker's blocks, in this order: the projection buffers of each kind, scratch for
// the matchers, the rectangles and the results. False when any of them cannot be had.
bool AllocBlocks(ZMOSVideoTracker* t) {
  bool ok = true;
  if (t->lHoriCount > 0) {
    t->ppCurHori = AllocBufferBlock(t->hMemMgr, t->lHoriCount, t->lWidth);
    t->ppPrevHori = t->ppCurHori != nullptr ? t->ppCurHori + t->lHoriCount : nullptr;
    ok = t->ppCurHori != nullptr;
  }
  if (ok && t->lVertCount > 0) {
    t->ppCurVert = AllocBufferBlock(t->hMemMgr, t->lVertCount, t->lHeight);
    t->ppPrevVert = t->ppCurVert != nullptr ? t->ppCurVert + t->lVertCount : nullptr;
    ok = t->ppCurVert != nullptr;
  }
  const std::int32_t longest = std::max(t->lWidth, t->lHeight);
  if (ok && std::int64_t{longest} * 16 <= INT32_MAX) {
    auto* scratch = static_cast<std::uint32_t*>(MMemAlloc(t->hMemMgr, 16 * longest));
    for (int k = 0; k < 4 && scratch != nullptr; ++k) t->pScratch[k] = scratch + k * longest;
    ok = scratch != nullptr;
  } else {
    ok = false;
  }
  // Rectangles and results are zeroed, and the result block has a spare entry of each
  // kind: a run over a tracker without rectangles of one kind reports entry 0 of it.
  const std::int32_t rects = t->lHoriCount + t->lVertCount;
  if (ok) {
    t->pHoriRects = static_cast<ZMOSRECT*>(
        MMemAlloc(t->hMemMgr, static_cast<std::int32_t>(std::max(rects, 1) * sizeof(ZMOSRECT))));
    ok = t->pHoriRects != nullptr;
  }
  if (ok) {
    MMemSet(t->pHoriRects, 0, static_cast<std::int32_t>(std::max(rects, 1) * sizeof(ZMOSRECT)));
    t->pVertRects = t->pHoriRects + t->lHoriCount;
    const auto bytes = static_cast<std::int32_t>((rects + 2) * sizeof(std::int32_t));
    t->plHoriResult = static_cast<std::int32_t*>(MMemAlloc(t->hMemMgr, bytes));
    ok = t->plHoriResult != nullptr;
    if (ok) {
      MMemSet(t->plHoriResult, 0, bytes);
      t->plVertResult = t->plHoriResult + t->lHoriCount;
    }
  }
  return ok;
}

}  // namespace

extern "C" {

int32_t ZMOSLayoutPlain_PBM(ZMOSVideoTracker* t) {
  if (t == nullptr || t->pHoriRects == nullptr || t->pVertRects == nullptr)
    return ZMOS_ERR_INVALID_PARAM;
  const std::int32_t w = t->lWidth, h = t->lHeight;
  const std::int32_t c = w / 2;
  if (t->lHoriCount > 0) {
    const std::int32_t a = h / 3, b = (h / 4) / 2, half = std::min(w, 1280) / 2;
    t->pHoriRects[0] = ClampedColumns(c, half, w, std::max(a - b, 0), std::min(a + b, h));
  }
  if (t->lVertCount > 0) {
    const std::int32_t half = w >= 1604 ? 200 : w >= 644 ? w / 8 : 80;
    const std::int32_t right = c + half < w ? Align4(c + half) : Align4(w);
    t->pVertRects[0] = ZMOSRECT{Align4(std::max(c - half, 0)), 0, right, (h / 2) * 2};
  }
  return ZMOS_OK;
}

int32_t ZMOSLayoutFF_PBM(ZMOSVideoTracker* t) {
  if (t == nullptr || t->pHoriRects == nullptr || t->pVertRects == nullptr)
    return ZMOS_ERR_INVALID_PARAM;
  if (t->lHoriCount < 3 || t->lVertCount < 3) return ZMOS_ERR_INVALID_PARAM;
  const std::int32_t w = t->lWidth, h = t->lHeight;
  const std::int32_t h1 = Align2(h / 3), h2 = Align2(2 * h / 3);
  t->pHoriRects[0] = ZMOSRECT{0, 0, w, h1};
  t->pHoriRects[1] = ZMOSRECT{0, h1, w, h2};
  t->pHoriRects[2] = ZMOSRECT{0, h2, w, h};
  const bool vertical = t->lMode == 1;
  const std::int32_t w1 = vertical ? Align2(3 * w / 8) : Align2(w / 3);
  const std::int32_t w2 = vertical ? Align2(5 * w / 8) : Align2(2 * w / 3);
  t->pVertRects[0] = ZMOSRECT{0, 0, w1, h};
  t->pVertRects[1] = ZMOSRECT{w1, 0, w2, h};
  t->pVertRects[2] = ZMOSRECT{w2, 0, w, h};
  return ZMOS_OK;
}

int32_t ZMOSLayoutRF_PBM(ZMOSVideoTracker* t) {
  if (t == nullptr || t->pHoriRects == nullptr || t->pVertRects == nullptr)
    return ZMOS_ERR_INVALID_PARAM;
  const std::int32_t w = t->lWidth, h = t->lHeight, c = w / 2;
  const BandTextureTable& bt = BandTexture();
  ZMOSRECT hori, vert;
  if (t->lMode == 0) {
    const std::int32_t y0 = bt.prev_hori[1] > 30                 ? h / 2
                            : bt.prev_hori[2] <= bt.prev_hori[0] ? h / 6
                                                                 : (5 * h) / 6;
    const std::int32_t half_h = std::min(h / 3, 240) / 2;
    const std::int32_t q = std::min(static_cast<std::int32_t>(w * 0.7), 900) / 2;
    hori = ClampedColumns(c, q, w, std::max(y0 - half_h, 0), std::min(y0 + half_h, h));
    const std::int32_t u = std::min(w / 4, 320) / 2, v = std::min(h, 720) / 2;
    vert = ClampedColumns(c, u, w, std::max(h / 2 - v, 0), std::min(h / 2 + v, h));
  } else {
    const std::int32_t q = std::min(w / 2, 640) / 2, half_h = (h / 4) / 2;
    hori = ClampedColumns(c, q, w, std::max(h / 2 - half_h, 0), std::min(h / 2 + half_h, h));
    std::int32_t x0 = w / 2;
    if (bt.prev_vert[1] < 31) x0 = bt.prev_vert[0] > bt.prev_vert[2] ? w / 4 : (3 * w) / 4;
    vert = ClampedColumns(x0, (w / 5) / 2, w, 0, std::min((h / 2) * 2, h));
  }
  if (t->lHoriCount > 0) t->pHoriRects[0] = hori;
  if (t->lVertCount > 0) t->pVertRects[0] = vert;
  return ZMOS_OK;
}

int32_t ZMOSCreateVideoTrackerNxN_PBM(ZMOSVideoTracker** phTracker, int32_t lWidth, int32_t lHeight,
                                      int32_t lHoriCount, int32_t lVertCount, int32_t lMode,
                                      ZMOSTrackerLayoutFn pfnLayout, MHandle hMemMgr) {
  if (phTracker == nullptr) return ZMOS_ERR_INVALID_PARAM;
  *phTracker = nullptr;
  if (lWidth <= 0 || lHeight <= 0 || lHoriCount < 0 || lVertCount < 0 || lHoriCount > 64 ||
      lVertCount > 64)
    return ZMOS_ERR_INVALID_PARAM;
  auto* t = static_cast<ZMOSVideoTracker*>(MMemAlloc(hMemMgr, sizeof(ZMOSVideoTracker)));
  if (t == nullptr) return ZMOS_ERR_NO_MEMORY;
  MMemSet(t, 0, sizeof(ZMOSVideoTracker));
  t->lMode = lMode;
  t->lSize = sizeof(ZMOSVideoTracker);
  t->bFirstFrame = 1;
  t->hMemMgr = hMemMgr;
  t->lWidth = lWidth;
  t->lHeight = lHeight;
  t->lHoriCount = lHoriCount;
  t->lVertCount = lVertCount;

  if (!AllocBlocks(t)) {
    FreeBlocks(t);
    return ZMOS_ERR_NO_MEMORY;
  }
  t->pfnLayout = pfnLayout != nullptr ? pfnLayout : ZMOSLayoutPlain_PBM;
  t->pfnLayout(t);
  t->lMaxOffsetX = lWidth / 10;
  t->lMaxOffsetY = lHeight / 20;
  t->bReprojectVert = 1;
  t->bReprojectHori = 1;
  *phTracker = t;
  return ZMOS_OK;
}

int32_t ZMOSCreateVideoTracker_PBM(ZMOSVideoTracker** phTracker, int32_t lWidth, int32_t lHeight,
                                   int32_t lMode, MHandle hMemMgr) {
  return ZMOSCreateVideoTrackerNxN_PBM(phTracker, lWidth, lHeight, 1, 1, lMode, ZMOSLayoutPlain_PBM,
                                       hMemMgr);
}

int32_t ZMOSCreateVideoTrackerRF_PBM(ZMOSVideoTracker** phTracker, int32_t lWidth, int32_t lHeight,
                                     int32_t lMode, MHandle hMemMgr) {
  return ZMOSCreateVideoTrackerNxN_PBM(phTracker, lWidth, lHeight, 1, 1, lMode, ZMOSLayoutRF_PBM,
                                       hMemMgr);
}

int32_t ZMOSCreateVideoTrackerFF_PBM(ZMOSVideoTracker** phTracker, int32_t lWidth, int32_t lHeight,
                                     int32_t lMode, MHandle hMemMgr) {
  return ZMOSCreateVideoTrackerNxN_PBM(phTracker, lWidth, lHeight, 4, 4, lMode, ZMOSLayoutFF_PBM,
                                       hMemMgr);
}

void ZMOSReleaseVideoTracker_PBM(ZMOSVideoTracker** phTracker) {
  if (phTracker == nullptr || *phTracker == nullptr) return;
  FreeBlocks(*phTracker);
  *phTracker = nullptr;
}

void ZMOSGetHoriProjRect_PBM(ZMOSVideoTracker* pTracker, ZMOSRECT** ppRects, int32_t* plCount) {
  if (ppRects != nullptr) *ppRects = pTracker != nullptr ? pTracker->pHoriRects : nullptr;
  if (plCount != nullptr) *plCount = pTracker != nullptr ? pTracker->lHoriCount : 0;
}

void ZMOSGetVertProjRect_PBM(ZMOSVideoTracker* pTracker, ZMOSRECT** ppRects, int32_t* plCount) {
  if (ppRects != nullptr) *ppRects = pTracker != nullptr ? pTracker->pVertRects : nullptr;
  if (plCount != nullptr) *plCount = pTracker != nullptr ? pTracker->lVertCount : 0;
}

int32_t ZMOSGetFrameWidth_PBM(const ZMOSVideoTracker* pTracker) {
  return pTracker != nullptr ? pTracker->lWidth : 0;
}

int32_t ZMOSGetFrameHeight_PBM(const ZMOSVideoTracker* pTracker) {
  return pTracker != nullptr ? pTracker->lHeight : 0;
}

void ZMOSSetMaxOffet_PBM(ZMOSVideoTracker* pTracker, int32_t lMaxX, int32_t lMaxY) {
  if (pTracker == nullptr) return;
  pTracker->lMaxOffsetX = lMaxX;
  pTracker->lMaxOffsetY = lMaxY;
}

void ZMOSGetMaxOffet_PBM(const ZMOSVideoTracker* pTracker, int32_t* plMaxX, int32_t* plMaxY) {
  if (pTracker == nullptr) return;
  if (plMaxX != nullptr) *plMaxX = pTracker->lMaxOffsetX;
  if (plMaxY != nullptr) *plMaxY = pTracker->lMaxOffsetY;
}

int32_t ZMOSGetVideoTrackStatus_PBM(const ZMOSVideoTracker* pTracker) {
  return pTracker != nullptr ? pTracker->lStatus : ZMOS_ERR_INVALID_PARAM;
}

}  // extern "C"
