// The engine-wide blend table, the luminance difference map and the seam search.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "src/image/format.h"
#include "src/platform/memory.h"
#include "src/stitch/blend_internal.h"

namespace lumivex::stitch {

namespace {

// Gives the installed table back when `current` (the manager the caller works with) is
// the one it came from, or it came from the process heap; a table from another manager
// is only dropped: that manager's buffer may already be gone.
void ReleaseInstalledTable(MHandle current) {
  if (g_BlendTable == nullptr || g_BlendTable == g_BlendTableStatic) return;
  if (g_BlendTableOwner == nullptr || g_BlendTableOwner == current)
    MMemFree(g_BlendTableOwner, g_BlendTable);
  g_BlendTable = nullptr;
}

}  // namespace

void ForgetBlendTableOf(MHandle mgr) {
  const auto lock = LockBlendTable();
  if (mgr == nullptr || g_BlendTableOwner != mgr) return;
  if (g_BlendTable != g_BlendTableStatic) g_BlendTable = nullptr;
  g_BlendTableOwner = nullptr;
}

namespace {
// A manager laid over a buffer that held an earlier one makes any table from that one
// garbage; forget it before the new manager hands the same bytes out again.
[[maybe_unused]] const bool g_forget_on_new_arena =
    (platform::SetNewArenaHook(&ForgetBlendTableOf), true);
}  // namespace

void FillBlendTable(std::int32_t* table, std::int32_t w) {
  const std::int32_t half = w >> 1;
  for (std::int32_t i = 0; i < w; ++i) {
    const std::int64_t numerator = i < half ? w - 1 - i : w - i;
    table[i] = static_cast<std::int32_t>(numerator * 65536 / w);
  }
}

FadeWeights::FadeWeights(const std::int32_t* t, std::int32_t w, bool pairs) {
  if (t == nullptr || w < 1 || w > kMax) return;
  for (std::int32_t k = 0; k < w; ++k) {
    const std::int32_t i = pairs ? k & ~1 : k;
    const std::int32_t a = t[i], b = t[w - 1 - i];
    if (a < 0 || a > 0xFFFF || b < 0 || b > 0xFFFF) return;
    up[k] = static_cast<std::uint16_t>(a);
    down[k] = static_cast<std::uint16_t>(b);
  }
  ok = true;
}

std::uint8_t* PlaneView::At(std::int64_t offset) const {
  if (base == nullptr || pitch <= 0 || offset < 0) return nullptr;
  const std::int64_t row = offset / pitch, col = offset % pitch;
  return (row < rows && col < row_bytes) ? base + offset : nullptr;
}

PlaneView ViewOf(const ZMOSIMAGE& image, int p) {
  const auto info = image::LookupFormat(image.dwFormat);
  if (!info || p >= info->planes || image.pPlane[p] == nullptr) return PlaneView{};
  return PlaneView{image.pPlane[p], image.lPitch[p], image::RowsOf(*info, image.lHeight).rows[p],
                   static_cast<std::int32_t>(image::RowBytesOf(*info, p, image.lWidth))};
}

RowRange CommonRows(const PlaneView& a, std::int64_t top1, const PlaneView& b, std::int64_t top2,
                    std::int64_t rows) {
  const std::int64_t lo = std::max<std::int64_t>({0, -top1, -top2});
  const std::int64_t hi = std::min<std::int64_t>({rows, a.rows - top1, b.rows - top2});
  return RowRange{lo, std::max(lo, hi)};
}

ChromaOverlap PlanarChromaOverlap(const ZMOSIMAGE& first, const ZMOSRECT* first_rect,
                                  const ZMOSRECT* second_rect) {
  const ZMOSRECT r =
      first_rect != nullptr ? *first_rect : ZMOSRECT{0, 0, first.lWidth, first.lHeight};
  const std::int64_t x = second_rect != nullptr ? second_rect->lLeft : 0;
  const std::int64_t y = second_rect != nullptr ? second_rect->lTop : 0;
  const auto info = image::LookupFormat(first.dwFormat);
  ChromaOverlap o{};
  o.half_cols = info && info->chroma_half_width;
  o.half_rows = info && info->chroma_half_height;
  // One direction: an odd first-image start is raised by one where it is halved.
  auto place = [](bool half, std::int64_t start, std::int64_t second, std::int64_t extent,
                  std::int64_t* pos1, std::int64_t* pos2) {
    *pos1 = half ? (start + (start & 1)) / 2 : start;
    *pos2 = half ? second / 2 : second;
    return half ? extent / 2 : extent;
  };
  const std::int64_t cols =
      place(o.half_cols, r.lLeft, x, std::int64_t{r.lRight} - r.lLeft, &o.col1, &o.col2);
  const std::int64_t rows =
      place(o.half_rows, r.lTop, y, std::int64_t{r.lBottom} - r.lTop, &o.row1, &o.row2);
  o.cols = static_cast<std::int32_t>(cols);
  o.rows = static_cast<std::int32_t>(rows);
  return o;
}

InterleavedOverlap InterleavedChromaOverlap(const ZMOSIMAGE& first, const ZMOSRECT* first_rect,
                                            const ZMOSRECT* second_rect) {
  const ZMOSRECT r =
      first_rect != nullptr ? *first_rect : ZMOSRECT{0, 0, first.lWidth, first.lHeight};
  InterleavedOverlap o{};
  o.left = r.lLeft;
  o.x = second_rect != nullptr ? second_rect->lLeft : 0;
  const std::int64_t y = second_rect != nullptr ? second_rect->lTop : 0;
  o.width = std::int64_t{r.lRight} - r.lLeft;
  o.height = std::int64_t{r.lBottom} - r.lTop;
  if (first.dwFormat == ZMOS_FORMAT_SEMIPLANAR422_803) {
    o.rows = o.height;
    o.row1 = r.lTop;
    o.row2 = y;
  } else {
    o.rows = o.height / 2;
    o.row1 = (std::int64_t{r.lTop} + (r.lTop & 1)) / 2;
    o.row2 = y / 2;
  }
  o.crosswise = (o.left & 1) && !(o.x & 1);
  if (!(o.left & 1) && (o.x & 1)) --o.x;
  return o;
}

std::int32_t* AllocTable(std::int32_t w, MHandle mem) {
  if (w < 0 || w > INT32_MAX / 4) return nullptr;
  auto* table = static_cast<std::int32_t*>(MMemAlloc(mem, w * 4));
  if (table != nullptr && w > 0) FillBlendTable(table, w);
  return table;
}

bool ValidBlendArguments(const ZMOSIMAGE* first, const ZMOSRECT* r1, const ZMOSIMAGE* second,
                         const ZMOSRECT* r2) {
  if (first == nullptr || r1 == nullptr || second == nullptr || r2 == nullptr) return false;
  if (r1->lLeft < 0 || r1->lRight > first->lWidth || r1->lLeft > r1->lRight) return false;
  if (r2->lLeft < 0 || r2->lRight > second->lWidth || r2->lLeft > r2->lRight) return false;
  return first->dwFormat == second->dwFormat && first->pPlane[0] != nullptr &&
         second->pPlane[0] != nullptr;
}

bool StepRectFits(const ZMOSIMAGE& first, const ZMOSRECT* r1) {
  return r1 == nullptr || (r1->lLeft >= 0 && r1->lLeft <= r1->lRight &&
                           r1->lRight <= first.lWidth && r1->lTop <= r1->lBottom);
}

BlendWork::BlendWork(MHandle mem, std::int32_t path_entries, std::int64_t map_bytes, Sizing sizing)
    : mem_(mem) {
  const bool path_fits = path_entries >= 0 && path_entries <= INT32_MAX / 4;
  const bool map_fits = map_bytes >= 0 && map_bytes <= INT32_MAX;
  if (sizing == kBothOrNone && (!path_fits || path_entries == INT32_MAX / 4 || !map_fits)) return;
  if (path_fits) path = static_cast<std::int32_t*>(MMemAlloc(mem, path_entries * 4));
  if (map_fits)
    map = static_cast<std::uint8_t*>(MMemAlloc(mem, static_cast<std::int32_t>(map_bytes)));
}

std::int32_t BlendWork::Abandon(std::int32_t res) {
  if (mem_ == nullptr) {
    MMemFree(mem_, path);
    MMemFree(mem_, map);
  }
  path = nullptr;
  map = nullptr;
  return res;
}

std::int32_t BlendWork::Free(std::int32_t res) {
  MMemFree(mem_, path);
  MMemFree(mem_, map);
  path = nullptr;
  map = nullptr;
  return res;
}

std::int32_t BlendWork::Finish(std::int32_t res) {
  Free(res);
  if (res == 0) ZMOSReleaseBlendTable();
  return res;
}

}  // namespace lumivex::stitch

using namespace lumivex::stitch;

extern "C" {

int32_t ZMOSCreateBlendTable(int32_t lWidth, MHandle hMemMgr) {
  const auto lock = LockBlendTable();
  ReleaseInstalledTable(hMemMgr);
  // A negative request cannot be met.
  g_BlendTable = lWidth >= 0 && lWidth <= INT32_MAX / 4
                     ? static_cast<std::int32_t*>(MMemAlloc(hMemMgr, lWidth * 4))
                     : nullptr;
  if (g_BlendTable == nullptr) return ZMOS_ERR_NO_MEMORY;
  const std::int32_t w = lWidth & ~1;
  g_BlendTableOwner = hMemMgr;
  g_hBlendTableMemMgr = hMemMgr;
  g_BlendTableWidth = w;
  if (w >= 1) FillBlendTable(g_BlendTable, w);
  return ZMOS_OK;
}

void ZMOSReleaseBlendTable(void) {
  const auto lock = LockBlendTable();
  ReleaseInstalledTable(g_hBlendTableMemMgr);
}

void ZMOSSetBlendTableBufferHeadle(MHandle hMemMgr) {
  const auto lock = LockBlendTable();
  g_hBlendTableMemMgr = hMemMgr;
}

void ZMOSSetPathSearchThreshold(uint32_t dwThreshold) {
  g_PathSearchThreshold = dwThreshold;
}

void ComputeLumaDiffMap(const ZMOSIMAGE* pFirst, const ZMOSIMAGE* pSecond, const ZMOSRECT* pRect,
                        const int32_t* plPos, uint8_t* pDiffMap) {
  if (pFirst == nullptr || pSecond == nullptr || pRect == nullptr || plPos == nullptr ||
      pDiffMap == nullptr)
    return;
  const std::uint32_t f = pFirst->dwFormat;
  const std::uint32_t family = f >> 8;
  int bpp, off;
  if (family == 6 || family == 7 || family == 8) {
    bpp = 1;
    off = 0;
  } else if (f == ZMOS_FORMAT_YUV422_501 || f == ZMOS_FORMAT_YUV422_502 ||
             f == ZMOS_FORMAT_YUV422_503 || f == ZMOS_FORMAT_YUV422_504) {
    bpp = 2;
    off = f >= ZMOS_FORMAT_YUV422_503 ? 1 : 0;
  } else {
    return;
  }
  const std::int64_t w = std::int64_t{pRect->lRight} - pRect->lLeft;
  const std::int64_t h = std::int64_t{pRect->lBottom} - pRect->lTop;
  if (w < 1 || h < 1 || w * h > INT32_MAX) return;
  // Samples that lie outside either image are not read: they count as the largest
  // difference, so that a seam keeps away from where the images do not meet.
  const PlaneView pa = ViewOf(*pFirst, 0), pb = ViewOf(*pSecond, 0);
  const std::int64_t x1 = pRect->lLeft, x2 = plPos[0];
  // Columns [lo, hi) of the overlap whose samples exist in both rows.
  auto first_col = [&](std::int64_t x0) {
    return std::clamp<std::int64_t>((-x0 * bpp - off + bpp - 1) / bpp, 0, w);
  };
  auto end_col = [&](const PlaneView& v, std::int64_t x0) {
    const std::int64_t n = v.row_bytes - off - x0 * bpp;  // bytes from the overlap's first sample
    return std::clamp<std::int64_t>(n <= 0 ? 0 : (n + bpp - 1) / bpp, 0, w);
  };
  const std::int64_t lo = std::max(first_col(x1), first_col(x2));
  const std::int64_t hi = std::min(end_col(pa, x1), end_col(pb, x2));
  for (std::int64_t y = 0; y < h; ++y) {
    std::uint8_t* out = pDiffMap + y * w;
    const std::int64_t r1 = pRect->lTop + y, r2 = plPos[1] + y;
    if (!pa.HasRow(r1) || !pb.HasRow(r2) || lo >= hi) {
      std::fill(out, out + w, std::uint8_t{255});
      continue;
    }
    const std::uint8_t* a = pa.Row(r1) + off + x1 * bpp;
    const std::uint8_t* b = pb.Row(r2) + off + x2 * bpp;
    std::fill(out, out + lo, std::uint8_t{255});
    for (std::int64_t x = lo; x < hi; ++x)
      out[x] = static_cast<std::uint8_t>(std::abs(a[x * bpp] - b[x * bpp]));
    std::fill(out + hi, out + w, std::uint8_t{255});
  }
}

int32_t SearchSeamPath(int32_t* plPath, const uint8_t* pDiffMap, int32_t lWidth, int32_t lHeight,
                       MHandle hMemMgr) {
  if (plPath == nullptr || pDiffMap == nullptr) return ZMOS_ERR_NO_TEXTURE;
  return SeamSearch(
      plPath, lWidth, lHeight,
      [&](std::int32_t c, std::int32_t r) { return pDiffMap[std::int64_t{r} * lWidth + c]; },
      hMemMgr);
}

}  // extern "C"
