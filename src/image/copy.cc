// Region copies between images of one format.
//
// Both copies accept a rectangle that starts inside its image and is no larger than
// it, even when it runs past the right or bottom border; the rows and bytes actually
// touched are clipped to both planes, so such a rectangle never reaches memory outside
// the images.
#include <algorithm>
#include <cstdint>

#include "lumivex/image.h"
#include "src/image/format.h"
#include "src/image/image_internal.h"
#include "src/kernels/kernels.h"
#include "src/kernels/row_kernels.h"

namespace lumivex::image {
namespace {

struct Plane {
  std::uint8_t* base;
  std::int64_t pitch;
  std::int64_t row_bytes;  // meaningful bytes of a row
  std::int64_t rows;
};

Plane PlaneOf(const ZMOSIMAGE& image, const FormatInfo& info, int p) {
  const PlaneRows rows = RowsOf(info, image.lHeight);
  return Plane{image.pPlane[p], image.lPitch[p], RowBytesOf(info, p, image.lWidth), rows.rows[p]};
}

// A block of rows: where it starts in each plane and how large it is.
struct Span {
  std::int64_t dst_x, dst_y, src_x, src_y;
  std::int64_t bytes, rows;
};

// Runs `row(dst_row, src_row, bytes, src_avail)` over the rows of `span`, cut to what
// lies inside both planes. Rows go top to bottom, which keeps in-place crops safe.
template <typename RowFn>
void ForEachRow(const Plane& dst, const Plane& src, Span span, RowFn row) {
  const std::int64_t bytes =
      std::min({span.bytes, dst.row_bytes - span.dst_x, src.row_bytes - span.src_x});
  const std::int64_t rows = std::min({span.rows, dst.rows - span.dst_y, src.rows - span.src_y});
  if (bytes <= 0 || rows <= 0) return;
  const std::int64_t src_avail = src.row_bytes - span.src_x;
  for (std::int64_t r = 0; r < rows; ++r) {
    std::uint8_t* d = dst.base + (span.dst_y + r) * dst.pitch + span.dst_x;
    const std::uint8_t* s = src.base + (span.src_y + r) * src.pitch + span.src_x;
    row(d, s, bytes, src_avail);
  }
}

// Plain row copies, without a call through MMemCpy per row; whole rows of two
// unpadded planes are one run of bytes and go in one call. Kept frames are laid down as
// strips on every few preview frames, so the cost per row counts.
void CopyRows(const Plane& dst, const Plane& src, Span span) {
  const std::int64_t bytes =
      std::min({span.bytes, dst.row_bytes - span.dst_x, src.row_bytes - span.src_x});
  std::int64_t rows = std::min({span.rows, dst.rows - span.dst_y, src.rows - span.src_y});
  if (bytes <= 0 || rows <= 0) return;
  std::uint8_t* d = dst.base + span.dst_y * dst.pitch + span.dst_x;
  const std::uint8_t* s = src.base + span.src_y * src.pitch + span.src_x;
  std::int64_t run = bytes;
  // One run equals the rows copied top to bottom when the destination does not start
  // after the source (in-place crops move rows toward the start of their plane).
  if (dst.pitch == bytes && src.pitch == bytes &&
      reinterpret_cast<std::uintptr_t>(d) <= reinterpret_cast<std::uintptr_t>(s)) {
    run = bytes * rows;
    rows = 1;
  }
  kernels::Active().copy_rows(d, static_cast<std::ptrdiff_t>(dst.pitch), s,
                              static_cast<std::ptrdiff_t>(src.pitch),
                              static_cast<std::int32_t>(rows), run);
}

struct Region {
  std::int64_t left, top, width, height;
};

Region RegionOf(const ZMOSRECT& r) {
  return Region{r.lLeft, r.lTop, std::int64_t{r.lRight} - r.lLeft,
                std::int64_t{r.lBottom} - r.lTop};
}

// Plane 0 of every format. 0x302/0x304 copy three bytes of each four-byte pixel; the
// fourth byte of the destination keeps its old value.
void CopyPlane0(const ZMOSIMAGE& dst, const Region& d, const ZMOSIMAGE& src, const Region& s,
                const FormatInfo& info) {
  const int bpp = info.bytes_per_pixel;
  const int copied = std::min(bpp, 3);
  CopyRows(PlaneOf(dst, info, 0), PlaneOf(src, info, 0),
           Span{bpp * d.left, d.top, bpp * s.left, s.top, copied * d.width, d.height});
}

void CopyChromaPlain(const ZMOSIMAGE& dst, const Region& d, const ZMOSIMAGE& src, const Region& s,
                     const FormatInfo& info) {
  const bool hw = info.chroma_half_width;
  const bool hh = info.chroma_half_height;
  const Span span{hw ? d.left / 2 : d.left,    hh ? d.top / 2 : d.top,
                  hw ? s.left / 2 : s.left,    hh ? s.top / 2 : s.top,
                  hw ? d.width >> 1 : d.width, hh ? d.height >> 1 : d.height};
  for (int p = 1; p < info.planes; ++p)
    CopyRows(PlaneOf(dst, info, p), PlaneOf(src, info, p), span);
}

// Planar chroma: a destination that starts on an odd column or row begins at the next
// chroma sample, so no sample lands half a pixel away from its luminance.
void CopyChromaPlanarOdd(const ZMOSIMAGE& dst, const Region& d, const ZMOSIMAGE& src,
                         const Region& s, const FormatInfo& info) {
  Span span{d.left, d.top, s.left, s.top, d.width, d.height};
  if (info.chroma_half_width) {
    span.dst_x = (d.left & 1) ? (d.left + 1) / 2 : d.left / 2;
    span.src_x = s.left / 2;
    span.bytes = d.width / 2;
  }
  if (info.chroma_half_height) {
    span.dst_y = (d.top & 1) ? (d.top + 1) / 2 : d.top / 2;
    span.src_y = s.top / 2;
    span.rows = d.height / 2;
  }
  for (int p = 1; p < 3; ++p) CopyRows(PlaneOf(dst, info, p), PlaneOf(src, info, p), span);
}

// Interleaved chroma: byte pairs must stay pairs of the same two components.
void CopyChromaSemiPlanarOdd(const ZMOSIMAGE& dst, const Region& d, const ZMOSIMAGE& src,
                             const Region& s, const FormatInfo& info) {
  Span span{d.left, d.top, s.left, s.top, d.width, d.height};
  if (info.chroma_half_height) {
    const std::int64_t top = d.top + (d.top & 1);
    span.rows = (d.top + d.height - top) / 2;
    span.dst_y = top / 2;
    span.src_y = s.top / 2;
  }
  const Plane dp = PlaneOf(dst, info, 1);
  const Plane sp = PlaneOf(src, info, 1);
  if ((d.left & 1) && !(s.left & 1)) {
    ForEachRow(dp, sp, span, CopyRowSwapPairs);
    return;
  }
  if (!(d.left & 1)) span.src_x = s.left & ~std::int64_t{1};
  CopyRows(dp, sp, span);
}

// Packed 4:2:2 (0x501-0x504): chroma bytes alternate between pixel pairs.
std::int32_t CopyPacked422Odd(const ZMOSIMAGE& dst, const Region& d, const ZMOSIMAGE& src,
                              const Region& s, const FormatInfo& info) {
  if (MemberOf(dst.dwFormat) > 4) return ZMOS_ERR_UNSUPPORTED_FORMAT;
  if ((d.left & 1) == (s.left & 1)) {
    CopyPlane0(dst, d, src, s, info);
    return ZMOS_OK;
  }
  const int chroma = MemberOf(dst.dwFormat) <= 2 ? 1 : 0;
  const Packed422Shift mode = (d.left & 1) ? Packed422Shift::kSwap : Packed422Shift::kFromPrior;
  ForEachRow(PlaneOf(dst, info, 0), PlaneOf(src, info, 0),
             Span{2 * d.left, d.top, 2 * s.left, s.top, 2 * d.width, d.height},
             [&](std::uint8_t* dr, const std::uint8_t* sr, std::int64_t bytes, std::int64_t avail) {
               CopyRowPacked422(dr, sr, bytes / 2, avail, chroma, mode);
             });
  return ZMOS_OK;
}

enum class CopyKind { kPlain, kOddRect };

std::int32_t CopyRegion(ZMOSIMAGE* dst, const ZMOSRECT* dst_rect, const ZMOSIMAGE* src,
                        const ZMOSRECT* src_rect, CopyKind kind) {
  if (dst == nullptr || src == nullptr) return ZMOS_ERR_INVALID_PARAM;
  if (dst->dwFormat != src->dwFormat) return ZMOS_ERR_INVALID_PARAM;
  const ZMOSRECT dr = dst_rect != nullptr ? *dst_rect : WholeRect(*dst);
  const ZMOSRECT sr = src_rect != nullptr ? *src_rect : WholeRect(*src);
  if (!RectFits(dr, *dst) || !RectFits(sr, *src)) return ZMOS_ERR_INVALID_PARAM;
  const Region d = RegionOf(dr);
  const Region s = RegionOf(sr);
  if (d.width != s.width || d.height != s.height) return ZMOS_ERR_INVALID_PARAM;

  const auto info = LookupFormat(dst->dwFormat);
  if (!info) return ZMOS_ERR_UNSUPPORTED_FORMAT;
  if (kind == CopyKind::kOddRect && info->family == Family::kPacked422 &&
      MemberOf(dst->dwFormat) > 4)
    return ZMOS_ERR_UNSUPPORTED_FORMAT;
  if (d.height == 0) return ZMOS_OK;
  for (int p = 0; p < info->planes; ++p)
    if (dst->pPlane[p] == nullptr || src->pPlane[p] == nullptr) return ZMOS_ERR_INVALID_PARAM;

  if (kind == CopyKind::kOddRect && info->family == Family::kPacked422)
    return CopyPacked422Odd(*dst, d, *src, s, *info);
  CopyPlane0(*dst, d, *src, s, *info);
  if (info->planes == 1) return ZMOS_OK;
  if (kind == CopyKind::kPlain) {
    CopyChromaPlain(*dst, d, *src, s, *info);
  } else if (info->family == Family::kPlanar) {
    CopyChromaPlanarOdd(*dst, d, *src, s, *info);
  } else {
    CopyChromaSemiPlanarOdd(*dst, d, *src, s, *info);
  }
  return ZMOS_OK;
}

}  // namespace
}  // namespace lumivex::image

using lumivex::image::CopyKind;
using lumivex::image::CopyRegion;

extern "C" {

int32_t ZMOSCopyImageROI_AOD(ZMOSIMAGE* pDst, const ZMOSRECT* pDstRect, const ZMOSIMAGE* pSrc,
                             const ZMOSRECT* pSrcRect) {
  return CopyRegion(pDst, pDstRect, pSrc, pSrcRect, CopyKind::kPlain);
}

int32_t ZMOSCopyImageROIOddRect_AOD(ZMOSIMAGE* pDst, const ZMOSRECT* pDstRect,
                                    const ZMOSIMAGE* pSrc, const ZMOSRECT* pSrcRect) {
  return CopyRegion(pDst, pDstRect, pSrc, pSrcRect, CopyKind::kOddRect);
}

int32_t ZMOSCopyImage_AOD(ZMOSIMAGE* pDst, const ZMOSIMAGE* pSrc) {
  return CopyRegion(pDst, nullptr, pSrc, nullptr, CopyKind::kPlain);
}

}  // extern "C"
