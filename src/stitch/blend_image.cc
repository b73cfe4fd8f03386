// Blend image: two equal-sized regions merged along a searched seam, the first image's
// pixels left of it, the second's right of it, a narrow faded band in between.
#include <algorithm>
#include <cstdint>

#include "lumivex/stitch.h"
#include "src/image/format.h"
#include "src/stitch/blend_internal.h"

namespace lumivex::stitch {
namespace {

void InstallBuiltInTable() {
  if (g_BlendTable != nullptr) return;
  FillBlendTable(g_BlendTableStatic, 10);
  g_BlendTable = g_BlendTableStatic;
  g_BlendTableWidth = 10;
}

// Horizontal extent of a rectangle against its image: the only argument check of the
// blend (tops and bottoms are free; rows outside the images are skipped).
bool ColumnsInside(const ZMOSRECT& r, const ZMOSIMAGE& img) {
  return r.lLeft >= 0 && r.lRight <= img.lWidth && r.lRight >= r.lLeft;
}

// One row of samples `step` bytes apart: the kept row k and the incoming row n, w samples
// of overlap, of which the first `limit` exist in both images. Samples past `limit` are
// never touched, not even by the narrow copy, which runs n - 2h samples past w.
void BlendRow(std::uint8_t* k, const std::uint8_t* n, std::int32_t w, std::int64_t limit,
              std::int32_t seam, std::int32_t half, int step, int chroma_beside) {
  const std::int32_t nt = g_BlendTableWidth;
  const std::int32_t* t = g_BlendTable;
  auto at = [&](std::int64_t i) { return i >= 0 && i < w && i < limit; };
  auto copy_from = [&](std::int64_t i0, std::int64_t count) {
    const std::int64_t end = std::min<std::int64_t>(limit, i0 + count);
    for (std::int64_t i = std::max<std::int64_t>(i0, 0); i < end; ++i) {
      k[i * step] = n[i * step];
      if (chroma_beside != 0) k[i * step + chroma_beside] = n[i * step + chroma_beside];
    }
  };
  if (half > nt / 2) {
    const std::int64_t s0 = std::int64_t{seam} - nt / 2;
    for (std::int32_t j = 0; j < nt; ++j)
      if (at(s0 + j))
        k[(s0 + j) * step] = Rule(t[j], k[(s0 + j) * step], t[nt - 1 - j], n[(s0 + j) * step]);
    copy_from(std::int64_t{seam} + nt / 2, std::int64_t{w} - seam - nt / 2);
    return;
  }
  // Narrow: averages around the seam, then the incoming row after them. Packed rows
  // average only `half` samples.
  const std::int64_t s0 = std::int64_t{seam} - half;
  const std::int32_t averaged = step == 2 ? half : nt;
  for (std::int32_t j = 0; j < averaged; ++j)
    if (at(s0 + j))
      k[(s0 + j) * step] =
          static_cast<std::uint8_t>((k[(s0 + j) * step] + n[(s0 + j) * step]) >> 1);
  copy_from(s0 + averaged, std::int64_t{w} - seam - half);
}

// Band half-width: as far as the seam stays from both sides, at most 256, down to a power
// of two.
std::int32_t BandHalfWidth(const std::int32_t* path, std::int32_t h, std::int32_t w) {
  const auto [min_p, max_p] = std::minmax_element(path, path + h);
  std::int32_t half = *min_p > 255 ? 256 : *min_p;
  half = std::min(half, w - 1 - *max_p);
  int shift = 0;
  if (half >= 2) {
    while ((2 << shift) <= half) ++shift;
    half = 1 << shift;
  }
  return half;
}

// The two rectangles of one blend: `rk` in the kept image, `rn` in the incoming one, both
// `w` x `h`.
struct Overlap {
  ZMOSIMAGE& kept;
  const ZMOSRECT& rk;
  const ZMOSIMAGE& incoming;
  const ZMOSRECT& rn;
  std::int32_t w, h;
};

// Luminance: rows and samples that exist in both images. Packed rows take the chroma byte
// beside each copied luma byte (after it for 0x501/0x502, before it for 0x503/0x504).
void BlendLuma(const Overlap& o, const std::int32_t* path, std::int32_t half) {
  const std::uint32_t f = o.kept.dwFormat;
  const bool packed = image::IsPacked422(f);
  const int luma_offset = image::LumaSecond(f) ? 1 : 0;
  if (luma_offset == 1 && o.w < g_BlendTableWidth) return;
  const int step = packed ? 2 : 1;
  const int chroma_beside = !packed ? 0 : luma_offset == 0 ? 1 : -1;
  const PlaneView kl = ViewOf(o.kept, 0), nl = ViewOf(o.incoming, 0);
  // Samples i with bytes i*step + luma_offset and the chroma byte beside it in both rows.
  auto samples = [&](const PlaneView& v, std::int64_t left) {
    const std::int64_t bytes = v.row_bytes - left * step;
    return packed ? bytes / 2 : bytes;
  };
  const std::int64_t limit = std::min(samples(kl, o.rk.lLeft), samples(nl, o.rn.lLeft));
  for (std::int32_t r = 0; r < o.h; ++r) {
    const std::int64_t krow = std::int64_t{o.rk.lTop} + r, nrow = std::int64_t{o.rn.lTop} + r;
    if (!kl.HasRow(krow) || !nl.HasRow(nrow)) continue;
    BlendRow(kl.Row(krow) + std::int64_t{o.rk.lLeft} * step + luma_offset,
             nl.Row(nrow) + std::int64_t{o.rn.lLeft} * step + luma_offset, o.w, limit, path[r],
             half, step, chroma_beside);
  }
}

// Semi-planar chroma: the incoming image's from two past the (even) seam on. Rows and
// columns that either chroma plane lacks (or a missing plane) are skipped.
void CopySemiPlanarChroma(const Overlap& o, std::int32_t* path) {
  const bool full_rows = o.kept.dwFormat == ZMOS_FORMAT_SEMIPLANAR422_803;
  const std::int32_t rows = full_rows ? o.h : o.h / 2;
  if (full_rows)
    for (std::int32_t i = 0; i < o.h / 2; ++i) path[i] = path[2 * i];
  const PlaneView kv = ViewOf(o.kept, 1), nv = ViewOf(o.incoming, 1);
  for (std::int32_t r = 0; r < rows; ++r) {
    const std::int32_t s = (full_rows ? path[r] : path[2 * r]) & ~1;
    const std::int64_t krow = full_rows ? std::int64_t{o.rk.lTop} + r : o.rk.lTop / 2 + r;
    const std::int64_t nrow = full_rows ? std::int64_t{o.rn.lTop} + r : o.rn.lTop / 2 + r;
    if (!kv.HasRow(krow) || !nv.HasRow(nrow)) continue;
    std::uint8_t* k = kv.Row(krow) + o.rk.lLeft;
    const std::uint8_t* n = nv.Row(nrow) + o.rn.lLeft;
    const std::int64_t end =
        std::min<std::int64_t>({o.w, kv.row_bytes - o.rk.lLeft, nv.row_bytes - o.rn.lLeft});
    for (std::int64_t i = std::max(s + 2, 0); i < end; ++i) k[i] = n[i];
  }
}

// Planar chroma: the incoming image's from one past the seam on, the seam scaled to the
// chroma grid. Unsupported when the overlap does not halve evenly onto that grid. The
// chroma geometry is judged after the luminance was blended.
std::int32_t CopyPlanarChroma(const Overlap& o, std::int32_t* path) {
  const std::int32_t w = o.w, h = o.h;
  const std::uint32_t kind =
      (o.kept.dwFormat - ZMOS_FORMAT_I420) % 4;  // 0: 4:2:0, 1: half rows, 2: half columns, 3: full
  const bool half_cols = kind == 0 || kind == 2;
  const std::int32_t cw = half_cols ? (w + 1) >> 1 : w;
  const std::int32_t ch = kind == 0 ? h / 2 : kind == 1 ? (h + 1) / 2 : h;
  std::int32_t kw = 0, kh = 0;
  if (half_cols) {
    while ((std::int64_t{cw} << kw) < w) ++kw;
    if ((std::int64_t{cw} << kw) != w) return ZMOS_ERR_UNSUPPORTED_FORMAT;
  }
  if (ch >= 1) {
    while ((std::int64_t{ch} << kh) < h) ++kh;
    if ((std::int64_t{ch} << kh) != h) return ZMOS_ERR_UNSUPPORTED_FORMAT;
  }
  if (ch < 1) return ZMOS_OK;
  for (std::int32_t i = 0; i < h; ++i) path[i] >>= kw;
  if (kh > 0)
    for (std::int32_t i = 0; i < ch; ++i) path[i] = path[i << kh];
  for (int p = 1; p <= 2; ++p) {
    // The chroma origin halves the rectangle's left and top for every planar format; with
    // an odd top (or full-size chroma) that origin can run off the plane, so each byte is
    // placed by its offset and only bytes inside both planes' samples are copied.
    const PlaneView kv = ViewOf(o.kept, p), nv = ViewOf(o.incoming, p);
    const std::int64_t kbase = o.rk.lLeft / 2 + (std::int64_t{kv.pitch} * o.rk.lTop) / 2;
    const std::int64_t nbase = o.rn.lLeft / 2 + (std::int64_t{nv.pitch} * o.rn.lTop) / 2;
    for (std::int32_t r = 0; r < ch; ++r)
      for (std::int64_t i = std::max(path[r] + 1, 0); i < cw; ++i) {
        const std::uint8_t* from = nv.At(nbase + r * nv.pitch + i);
        if (std::uint8_t* to = kv.At(kbase + r * kv.pitch + i); from != nullptr && to != nullptr)
          *to = *from;
      }
  }
  return ZMOS_OK;
}

std::int32_t Blend(ZMOSIMAGE& kept, const ZMOSRECT& rk, const ZMOSIMAGE& incoming,
                   const ZMOSRECT& rn, MHandle mem) {
  InstallBuiltInTable();
  const std::int32_t w = rk.lRight - rk.lLeft;
  const std::int64_t h64 = std::int64_t{rk.lBottom} - rk.lTop;
  const auto h = static_cast<std::int32_t>(std::clamp<std::int64_t>(h64, -1, INT32_MAX / 8));
  // The straight seam is written for the kept image's full height: room for both.
  const std::int32_t path_rows = std::max({h, kept.lHeight, 1});
  BlendWork work(mem, path_rows, std::int64_t{std::max(w, 1)} * std::max(h, 1),
                 BlendWork::kEachAlone);
  std::int32_t* const path = work.path;
  if (!work.ok()) return work.Abandon(ZMOS_ERR_NO_MEMORY);
  if (w < 1 || h < 1) return work.Free(ZMOS_OK);
  if (w > g_BlendTableWidth + kSeamSearchMargin) {
    ComputeLumaDiffMap(&kept, &incoming, &rk, &rn.lLeft, work.map);
    if (const std::int32_t res = SearchSeamPath(path, work.map, w, h, mem); res != 0)
      return work.Free(res);
  } else {
    std::fill(path, path + path_rows, w / 2);
  }
  const std::int32_t half = BandHalfWidth(path, h, w);
  const std::uint32_t f = kept.dwFormat;
  if (!image::IsPacked422(f) && !image::IsPlanarYuv(f) && !image::IsSemiPlanar(f))
    return work.Abandon(ZMOS_ERR_UNSUPPORTED_FORMAT);
  const Overlap o{kept, rk, incoming, rn, w, h};
  BlendLuma(o, path, half);
  if (image::IsSemiPlanar(f)) CopySemiPlanarChroma(o, path);
  if (image::IsPlanarYuv(f)) {
    if (const std::int32_t res = CopyPlanarChroma(o, path); res != ZMOS_OK)
      return work.Abandon(res);
  }
  return work.Free(ZMOS_OK);
}

}  // namespace
}  // namespace lumivex::stitch

extern "C" int32_t ZMOSBlendImage_AME(ZMOSIMAGE* pFirst, ZMOSRECT FirstRect, ZMOSIMAGE* pSecond,
                                      ZMOSRECT SecondRect, int32_t lFlag, MHandle hMemMgr) {
  using namespace lumivex::stitch;
  // Without luminance planes there is nothing to blend or read.
  if (pFirst == nullptr || pSecond == nullptr || pFirst->pPlane[0] == nullptr ||
      pSecond->pPlane[0] == nullptr)
    return ZMOS_ERR_NO_TEXTURE;
  if (!ColumnsInside(FirstRect, *pFirst) || !ColumnsInside(SecondRect, *pSecond))
    return ZMOS_ERR_NO_TEXTURE;
  if (lFlag == 0) return Blend(*pFirst, FirstRect, *pSecond, SecondRect, hMemMgr);
  const std::int32_t res = Blend(*pSecond, SecondRect, *pFirst, FirstRect, hMemMgr);
  ZMOSCopyImageROI_AOD(pFirst, &FirstRect, pSecond, &SecondRect);
  return res;
}
