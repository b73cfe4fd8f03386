// Blend image: two equal-sized regions merged along a searched seam, the first image's
// pixels left of it, the second's right of it, a narrow faded band in between.
#include <algorithm>
#include <cstdint>

#include "lumivex/stitch.h"
#include "src/stitch/blend_internal.h"

namespace lumivex::stitch {
namespace {

void InstallBuiltInTable() {
  if (g_BlendTable != nullptr) return;
  FillBlendTable(g_BlendTableStatic, 10);
  g_BlendTable = g_BlendTableStatic;
  g_BlendTableWidth = 10;
}

bool RectInside(const ZMOSRECT& r, const ZMOSIMAGE& img) {
  return r.lLeft >= 0 && r.lRight <= img.lWidth && r.lRight >= r.lLeft && r.lTop >= 0 &&
         r.lBottom <= img.lHeight && r.lBottom >= r.lTop;
}

// One row of samples `step` bytes apart: the kept row k and the incoming row n, w samples.
// Returns nothing; samples past the row are never touched.
void BlendRow(std::uint8_t* k, const std::uint8_t* n, std::int32_t w, std::int32_t seam,
              std::int32_t half, int step, bool chroma_with_copy) {
  const std::int32_t nt = g_BlendTableWidth;
  const std::int32_t* t = g_BlendTable;
  auto at = [&](std::int64_t i) { return i >= 0 && i < w; };
  auto copy_from = [&](std::int64_t i0, std::int64_t count = INT32_MAX) {
    const std::int64_t end = std::min<std::int64_t>(w, i0 + count);
    for (std::int64_t i = std::max<std::int64_t>(i0, 0); i < end; ++i) {
      k[i * step] = n[i * step];
      if (chroma_with_copy) k[i * step + 1] = n[i * step + 1];
    }
  };
  if (half > nt / 2) {
    const std::int64_t s0 = std::int64_t{seam} - nt / 2;
    for (std::int32_t j = 0; j < nt; ++j)
      if (at(s0 + j))
        k[(s0 + j) * step] = Rule(t[j], k[(s0 + j) * step], t[nt - 1 - j], n[(s0 + j) * step]);
    copy_from(std::int64_t{seam} + nt / 2);
    return;
  }
  // Narrow: averages around the seam, then the incoming row after them (cut at the row's
  // end). Packed rows average only `half` samples.
  const std::int64_t s0 = std::int64_t{seam} - half;
  const std::int32_t averaged = step == 2 ? half : nt;
  for (std::int32_t j = 0; j < averaged; ++j)
    if (at(s0 + j))
      k[(s0 + j) * step] =
          static_cast<std::uint8_t>((k[(s0 + j) * step] + n[(s0 + j) * step]) >> 1);
  copy_from(s0 + averaged, std::int64_t{w} - seam - half);
}

std::int32_t Blend(ZMOSIMAGE& kept, const ZMOSRECT& rk, const ZMOSIMAGE& incoming,
                   const ZMOSRECT& rn, MHandle mem) {
  InstallBuiltInTable();
  const std::int32_t w = rk.lRight - rk.lLeft, h = rk.lBottom - rk.lTop;
  // The straight seam is written for the kept image's full height: room for both.
  const std::int32_t path_rows = std::max({h, kept.lHeight, 1});
  auto* path = static_cast<std::int32_t*>(MMemAlloc(mem, path_rows * 4));
  const std::int64_t map_bytes = std::int64_t{std::max(w, 1)} * std::max(h, 1);
  auto* map = map_bytes <= INT32_MAX
                  ? static_cast<std::uint8_t*>(MMemAlloc(mem, static_cast<std::int32_t>(map_bytes)))
                  : nullptr;
  auto finish = [&](std::int32_t res) {
    MMemFree(mem, path);
    MMemFree(mem, map);
    return res;
  };
  if (path == nullptr || map == nullptr) return finish(ZMOS_ERR_NO_MEMORY);
  if (w < 1 || h < 1) return finish(ZMOS_OK);
  if (w > g_BlendTableWidth + kSeamSearchMargin) {
    ComputeLumaDiffMap(&kept, &incoming, &rk, &rn.lLeft, map);
    if (const std::int32_t res = SearchSeamPath(path, map, w, h, mem); res != 0) return finish(res);
  } else {
    std::fill(path, path + path_rows, w / 2);
  }
  // Band half-width: as far as the seam stays from both sides, at most 256, down to a power
  // of two.
  const auto [min_p, max_p] = std::minmax_element(path, path + h);
  std::int32_t half = *min_p > 255 ? 256 : *min_p;
  half = std::min(half, w - 1 - *max_p);
  int shift = 0;
  if (half >= 2) {
    while ((2 << shift) <= half) ++shift;
    half = 1 << shift;
  }

  const std::uint32_t f = kept.dwFormat;
  const bool packed = f >= 0x501 && f <= 0x504;
  const bool planar = f >= 0x601 && f <= 0x608;
  const bool semi = f >= 0x801 && f <= 0x803;
  if (!packed && !planar && !semi) return finish(ZMOS_ERR_UNSUPPORTED_FORMAT);

  // Planar chroma geometry is checked before anything is written.
  std::int32_t cw = 0, ch = 0, kw = 0, kh = 0;
  if (planar) {
    const std::uint32_t kind = (f - 0x601) % 4;  // 0: 4:2:0, 1: half rows, 2: half columns, 3: full
    const bool half_cols = kind == 0 || kind == 2;
    cw = half_cols ? (w + 1) >> 1 : w;
    ch = kind == 0 ? h / 2 : kind == 1 ? (h + 1) / 2 : h;
    if (half_cols) {
      while ((cw << kw) < w) ++kw;
      if ((cw << kw) != w) return finish(ZMOS_ERR_UNSUPPORTED_FORMAT);
    }
    if (ch >= 1) {
      while ((ch << kh) < h) ++kh;
      if ((ch << kh) != h) return finish(ZMOS_ERR_UNSUPPORTED_FORMAT);
    }
  }
  const int luma_offset = f == 0x503 || f == 0x504 ? 1 : 0;
  const int step = packed ? 2 : 1;
  const bool blend_luma = !(luma_offset == 1 && w < g_BlendTableWidth);
  for (std::int32_t r = 0; r < h && blend_luma; ++r) {
    std::uint8_t* k = kept.pPlane[0] + std::int64_t{rk.lTop + r} * kept.lPitch[0] +
                      std::int64_t{rk.lLeft} * step + luma_offset;
    const std::uint8_t* n = incoming.pPlane[0] + std::int64_t{rn.lTop + r} * incoming.lPitch[0] +
                            std::int64_t{rn.lLeft} * step + luma_offset;
    // Packed rows take the chroma byte beside each copied luma byte.
    BlendRow(k, n, w, path[r], half, step, packed && luma_offset == 0);
  }
  if (semi) {
    const bool full_rows = f == 0x803;
    const std::int32_t rows = full_rows ? h : h / 2;
    if (full_rows)
      for (std::int32_t i = 0; i < h / 2; ++i) path[i] = path[2 * i];
    // Rows and columns that either chroma plane lacks (or a missing plane) are skipped.
    const PlaneView kv = ViewOf(kept, 1), nv = ViewOf(incoming, 1);
    for (std::int32_t r = 0; r < rows; ++r) {
      const std::int32_t s = (full_rows ? path[r] : path[2 * r]) & ~1;
      const std::int64_t krow = full_rows ? rk.lTop + r : rk.lTop / 2 + r;
      const std::int64_t nrow = full_rows ? rn.lTop + r : rn.lTop / 2 + r;
      if (!kv.HasRow(krow) || !nv.HasRow(nrow)) continue;
      std::uint8_t* k = kv.Row(krow) + rk.lLeft;
      const std::uint8_t* n = nv.Row(nrow) + rn.lLeft;
      const std::int64_t end =
          std::min<std::int64_t>({w, kv.row_bytes - rk.lLeft, nv.row_bytes - rn.lLeft});
      for (std::int64_t i = std::max(s + 2, 0); i < end; ++i) k[i] = n[i];
    }
  }
  if (planar && ch >= 1) {
    for (std::int32_t i = 0; i < h; ++i) path[i] >>= kw;
    if (kh > 0)
      for (std::int32_t i = 0; i < ch; ++i) path[i] = path[i << kh];
    for (int p = 1; p <= 2; ++p) {
      // The chroma origin halves the rectangle's left and top for every planar format; with
      // an odd top (or full-size chroma) that origin can run off the plane, so each byte is
      // placed by its offset and only bytes inside both planes' samples are copied.
      const PlaneView kv = ViewOf(kept, p), nv = ViewOf(incoming, p);
      const std::int64_t kbase = rk.lLeft / 2 + (std::int64_t{kv.pitch} * rk.lTop) / 2;
      const std::int64_t nbase = rn.lLeft / 2 + (std::int64_t{nv.pitch} * rn.lTop) / 2;
      for (std::int32_t r = 0; r < ch; ++r)
        for (std::int64_t i = std::max(path[r] + 1, 0); i < cw; ++i) {
          const std::uint8_t* from = nv.At(nbase + r * nv.pitch + i);
          const std::uint8_t* to = kv.At(kbase + r * kv.pitch + i);
          if (from != nullptr && to != nullptr) *const_cast<std::uint8_t*>(to) = *from;
        }
    }
  }
  return finish(ZMOS_OK);
}

}  // namespace
}  // namespace lumivex::stitch

extern "C" int32_t ZMOSBlendImage_AME(ZMOSIMAGE* pFirst, ZMOSRECT FirstRect, ZMOSIMAGE* pSecond,
                                      ZMOSRECT SecondRect, int32_t lFlag, MHandle hMemMgr) {
  using namespace lumivex::stitch;
  if (pFirst == nullptr || pSecond == nullptr || pFirst->pPlane[0] == nullptr ||
      pSecond->pPlane[0] == nullptr || pFirst->dwFormat != pSecond->dwFormat)
    return ZMOS_ERR_NO_TEXTURE;
  if (!RectInside(FirstRect, *pFirst) || !RectInside(SecondRect, *pSecond))
    return ZMOS_ERR_NO_TEXTURE;
  // Regions of one size: the blend reads both over the first rectangle's extent.
  if (FirstRect.lRight - FirstRect.lLeft != SecondRect.lRight - SecondRect.lLeft ||
      FirstRect.lBottom - FirstRect.lTop != SecondRect.lBottom - SecondRect.lTop)
    return ZMOS_ERR_NO_TEXTURE;
  if (lFlag == 0) return Blend(*pFirst, FirstRect, *pSecond, SecondRect, hMemMgr);
  const std::int32_t res = Blend(*pSecond, SecondRect, *pFirst, FirstRect, hMemMgr);
  ZMOSCopyImageROI_AOD(pFirst, &FirstRect, pSecond, &SecondRect);
  return res;
}
