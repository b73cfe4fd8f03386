// The live preview: a reduced copy of the canvas, grey until strips arrive, into which
// each newly kept frame's strip is drawn where it lands.
#include <algorithm>
#include <cstdint>

#include "src/engine/sweep_stitcher.h"

namespace lumivex::engine {
namespace {

constexpr std::int32_t Even(std::int32_t v) {
  return v / 2 * 2;
}

bool PreviewFormat(std::uint32_t f) {
  return f == ZMOS_FORMAT_YUV422_501 || f == ZMOS_FORMAT_SEMIPLANAR420_801 || f == ZMOS_FORMAT_NV21;
}

// Nearest-sample access to the luma and chroma of the formats the preview handles.
struct Sampler {
  const ZMOSIMAGE& img;

  bool packed() const {
    return img.dwFormat == ZMOS_FORMAT_YUV422_501 || img.dwFormat == ZMOS_FORMAT_YUV422_502;
  }
  std::uint8_t Luma(std::int32_t x, std::int32_t y) const {
    const std::uint8_t* row = img.pPlane[0] + std::int64_t{y} * img.lPitch[0];
    return packed() ? row[2 * x] : row[x];
  }
  // (U, V) of the chroma sample that pixel (x, y) uses.
  void Chroma(std::int32_t x, std::int32_t y, std::uint8_t* u, std::uint8_t* v) const {
    if (packed()) {
      const std::uint8_t* pair = img.pPlane[0] + std::int64_t{y} * img.lPitch[0] + 4 * (x / 2);
      // 0x501 carries U then V, 0x502 V then U.
      *u = img.dwFormat == ZMOS_FORMAT_YUV422_501 ? pair[1] : pair[3];
      *v = img.dwFormat == ZMOS_FORMAT_YUV422_501 ? pair[3] : pair[1];
      return;
    }
    const std::int32_t row = img.dwFormat == ZMOS_FORMAT_SEMIPLANAR422_803 ? y : y / 2;
    const std::uint8_t* pair = img.pPlane[1] + std::int64_t{row} * img.lPitch[1] + 2 * (x / 2);
    // NV21 (0x802) orders its chroma V, U; 0x801 and 0x803 U, V.
    *u = img.dwFormat == ZMOS_FORMAT_NV21 ? pair[1] : pair[0];
    *v = img.dwFormat == ZMOS_FORMAT_NV21 ? pair[0] : pair[1];
  }
};

// Chroma of a target pixel pair whose first pixel samples source pixel (sx, sy). A packed
// source keeps its components in order: U beside the first sample, V beside the second
// (sx + the horizontal factor), when that one exists.
void PairChroma(const Sampler& src, std::int32_t sx, std::int32_t sy, std::int32_t scale,
                std::uint8_t* u, std::uint8_t* v) {
  src.Chroma(sx, sy, u, v);
  if (!src.packed() || std::int64_t{sx} + scale >= src.img.lWidth) return;
  std::uint8_t unused;
  src.Chroma(sx + scale, sy, &unused, v);
}

// floor(a / b) for b > 0.
constexpr std::int64_t FloorDiv(std::int64_t a, std::int64_t b) {
  return a >= 0 ? a / b : -((-a + b - 1) / b);
}

// Target columns [lo, hi) within [x0, x1) whose source column left + (tx - d_left) * scale
// lies in [0, width).
struct Columns {
  std::int32_t lo, hi;
};
Columns SourceColumns(std::int32_t x0, std::int32_t x1, std::int32_t d_left, std::int32_t left,
                      std::int32_t scale, std::int32_t width) {
  const std::int64_t lo = d_left - FloorDiv(left, scale);  // d_left + ceil(-left / scale)
  const std::int64_t hi = d_left + FloorDiv(std::int64_t{width} - 1 - left, scale) + 1;
  return Columns{static_cast<std::int32_t>(std::clamp<std::int64_t>(lo, x0, x1)),
                 static_cast<std::int32_t>(std::clamp<std::int64_t>(hi, x0, x1))};
}

// Semi-planar to semi-planar, the host's case: the same samples as the general loop, row
// by row over the columns whose source lies inside the frame, without a bounds test and a
// format test per pixel.
void DownSampleSemiPlanar(const ZMOSIMAGE& src, const ZMOSRECT& s, ZMOSIMAGE& dst,
                          const ZMOSRECT& d, std::int32_t scale_x, std::int32_t scale_y,
                          std::int32_t x0, std::int32_t y0, std::int32_t x1, std::int32_t y1) {
  const Columns cols = SourceColumns(x0, x1, d.lLeft, s.lLeft, scale_x, src.lWidth);
  if (cols.lo >= cols.hi) return;
  auto source_row = [&](std::int32_t ty) {
    return std::int64_t{s.lTop} + (std::int64_t{ty} - d.lTop) * scale_y;
  };
  const std::int64_t sx0 = std::int64_t{s.lLeft} + (std::int64_t{cols.lo} - d.lLeft) * scale_x;
  for (std::int32_t ty = y0; ty < y1; ++ty) {
    const std::int64_t sy = source_row(ty);
    if (sy < 0 || sy >= src.lHeight) continue;
    const std::uint8_t* in = src.pPlane[0] + sy * src.lPitch[0] + sx0;
    std::uint8_t* out = dst.pPlane[0] + std::int64_t{ty} * dst.lPitch[0];
    for (std::int32_t tx = cols.lo; tx < cols.hi; ++tx, in += scale_x) out[tx] = *in;
  }
  // One chroma pair per 2 x 2 block (2 x 1 for 0x803), taken from the source pair that
  // holds the block's first sample; NV21 (0x802) keeps V before U, the others U before V.
  const bool full_rows = dst.dwFormat == ZMOS_FORMAT_SEMIPLANAR422_803;
  const bool swap = (src.dwFormat == ZMOS_FORMAT_NV21) != (dst.dwFormat == ZMOS_FORMAT_NV21);
  const std::int32_t first = std::max(x0 + (x0 & 1), cols.lo + (cols.lo & 1));
  for (std::int32_t ty = y0; ty < y1; ty += full_rows ? 1 : 2) {
    if (!full_rows && (ty & 1)) ++ty;
    if (ty >= y1) break;
    const std::int64_t sy = source_row(ty);
    if (sy < 0 || sy >= src.lHeight) continue;
    const std::uint8_t* in =
        src.pPlane[1] +
        (src.dwFormat == ZMOS_FORMAT_SEMIPLANAR422_803 ? sy : sy / 2) * src.lPitch[1];
    std::uint8_t* out = dst.pPlane[1] + std::int64_t{full_rows ? ty : ty / 2} * dst.lPitch[1];
    std::int64_t sx = std::int64_t{s.lLeft} + (std::int64_t{first} - d.lLeft) * scale_x;
    for (std::int32_t tx = first; tx < cols.hi; tx += 2, sx += 2 * std::int64_t{scale_x}) {
      const std::uint8_t* pair = in + (sx & ~std::int64_t{1});
      out[tx] = pair[swap ? 1 : 0];
      out[tx + 1] = pair[swap ? 0 : 1];
    }
  }
}

// A reduction of a source rectangle `s` onto a target rectangle `d`, `scale_x` x `scale_y`
// source pixels a target pixel, where one of the two images is packed.
struct Reduction {
  const ZMOSIMAGE& src_img;
  const ZMOSRECT& s;
  const ZMOSIMAGE& dst_img;
  const ZMOSRECT& d;
  std::int32_t scale_x, scale_y;
  const Sampler& src;

  // The source pixel of target pixel (tx, ty); false outside the source.
  bool Source(std::int32_t tx, std::int32_t ty, std::int32_t* sx, std::int32_t* sy) const {
    *sx = s.lLeft + (tx - d.lLeft) * scale_x;
    *sy = s.lTop + (ty - d.lTop) * scale_y;
    return *sx >= 0 && *sy >= 0 && *sx < src_img.lWidth && *sy < src_img.lHeight;
  }

  // Luma of every target pixel in [x0, x1) x [y0, y1), with the chroma pair of a packed
  // target beside it.
  void Luma(std::int32_t x0, std::int32_t y0, std::int32_t x1, std::int32_t y1) const {
    const bool packed = Sampler{dst_img}.packed();
    for (std::int32_t ty = y0; ty < y1; ++ty) {
      std::uint8_t* drow = dst_img.pPlane[0] + std::int64_t{ty} * dst_img.lPitch[0];
      for (std::int32_t tx = x0; tx < x1; ++tx) {
        std::int32_t sx, sy;
        if (!Source(tx, ty, &sx, &sy)) continue;
        const std::uint8_t y = src.Luma(sx, sy);
        if (!packed) {
          drow[tx] = y;
          continue;
        }
        drow[2 * tx] = y;
        if ((tx & 1) == 0) {
          std::uint8_t u, v;
          PairChroma(src, sx, sy, scale_x, &u, &v);
          drow[2 * tx + 1] = dst_img.dwFormat == ZMOS_FORMAT_YUV422_501 ? u : v;
          if (tx + 1 < Even(dst_img.lWidth))
            drow[2 * tx + 3] = dst_img.dwFormat == ZMOS_FORMAT_YUV422_501 ? v : u;
        }
      }
    }
  }

  // Chroma of a semi-planar target: one pair per 2 x 2 block (2 x 1 for 0x803).
  void SemiPlanarChroma(std::int32_t x0, std::int32_t y0, std::int32_t x1, std::int32_t y1) const {
    const bool full_rows = dst_img.dwFormat == ZMOS_FORMAT_SEMIPLANAR422_803;
    for (std::int32_t ty = y0; ty < y1; ty += full_rows ? 1 : 2) {
      if (!full_rows && (ty & 1)) ++ty;
      if (ty >= y1) break;
      std::uint8_t* crow =
          dst_img.pPlane[1] + std::int64_t{full_rows ? ty : ty / 2} * dst_img.lPitch[1];
      for (std::int32_t tx = x0 + (x0 & 1); tx < x1; tx += 2) {
        std::int32_t sx, sy;
        if (!Source(tx, ty, &sx, &sy)) continue;
        std::uint8_t u, v;
        PairChroma(src, sx, sy, scale_x, &u, &v);
        crow[tx] = dst_img.dwFormat == ZMOS_FORMAT_NV21 ? v : u;
        crow[tx + 1] = dst_img.dwFormat == ZMOS_FORMAT_NV21 ? u : v;
      }
    }
  }
};

bool Sampleable(const ZMOSIMAGE& img) {
  const std::uint32_t f = img.dwFormat;
  if (img.pPlane[0] == nullptr) return false;
  if (f == ZMOS_FORMAT_YUV422_501 || f == ZMOS_FORMAT_YUV422_502) return true;
  return (f >= ZMOS_FORMAT_SEMIPLANAR420_801 && f <= ZMOS_FORMAT_SEMIPLANAR422_803) &&
         img.pPlane[1] != nullptr;
}

// The preview's reduction: `s` the caller's scale, `r` how much larger the engine's
// frames are than the ones given here (at least 1).
struct PreviewScale {
  std::int32_t s, r;
  PreviewScale(std::int32_t scale, std::int32_t ratio) : s(scale), r(ratio == 0 ? 1 : ratio) {}
};

// Where one strip of the frame goes: `src` in the frame, `dst` in the preview.
struct PreviewStep {
  ZMOSRECT dst{}, src{};
};

// The first kept frame: the preview is made (once) and painted dark grey, and the
// caller's record becomes a view of it.
std::int32_t StartPreview(ZMOSSWEEPSTITCHER& st, const PreviewScale& scale, ZMOSIMAGE* ui) {
  if (st.pPreview == nullptr) {
    if (const std::int32_t res =
            ZMOSCreateImage_AOD(&st.pPreview, Even(st.lPanoWidth / scale.r / scale.s),
                                Even(st.lPanoHeight / scale.r / scale.s), ui->dwFormat, st.hMemMgr);
        res != 0)
      return res;
  }
  ZMOSIMAGE& p = *st.pPreview;
  *ui = p;
  if (p.dwFormat == ZMOS_FORMAT_YUV422_501) {
    for (std::int32_t y = 0; y < p.lHeight; ++y)
      for (std::int32_t x = 0; x < p.lWidth; ++x) {
        p.pPlane[0][std::int64_t{y} * p.lPitch[0] + 2 * x] = 40;
        p.pPlane[0][std::int64_t{y} * p.lPitch[0] + 2 * x + 1] = 128;
      }
  } else {
    MMemSet(p.pPlane[0], 40, p.lHeight * p.lPitch[0]);
    MMemSet(p.pPlane[1], 128, p.lHeight / 2 * p.lPitch[1]);
  }
  return ZMOS_OK;
}

// The first frame's part before the cut fills the preview's starting edge.
PreviewStep FirstStrip(ZMOSSWEEPSTITCHER& st, const PreviewScale& scale, const ZMOSIMAGE& frame,
                       std::int32_t pw, std::int32_t ph) {
  const std::int32_t s = scale.s, r = scale.r, cut = st.lStripStart;
  PreviewStep step;
  ZMOSRECT& d = step.dst;
  ZMOSRECT& src = step.src;
  switch (st.lDirection) {
    case ZMOS_DIRECTION_LEFT_TO_RIGHT:
      d = {0, 0, Even(cut / r / s), Even(ph)};
      src = {0, 0, s * d.lRight, s * Even(ph)};
      break;
    case ZMOS_DIRECTION_RIGHT_TO_LEFT: {
      d = {Even(pw + 1 - cut / r / s), 0, Even(pw), Even(ph)};
      const std::int32_t left = Even(frame.lWidth - cut / r);
      src = {left, 0, left + s * (d.lRight - d.lLeft), s * Even(ph)};
      break;
    }
    case ZMOS_DIRECTION_TOP_TO_BOTTOM:
      d = {0, 0, Even(pw), Even(cut / r / s)};
      src = {0, 0, s * Even(pw), s * d.lBottom};
      break;
    default: {
      d = {0, Even(ph + 1 - cut / r / s), Even(pw), Even(ph)};
      const std::int32_t top = Even(frame.lHeight - cut / r);
      src = {0, top, s * Even(pw), top + s * (d.lBottom - d.lTop)};
      break;
    }
  }
  st.PreviewRect = d;
  return step;
}

// A later strip: from the preview's drawn edge to the canvas's reach (to the preview's far
// edge for the last one); the drawn edge moves on.
PreviewStep NextStrip(ZMOSSWEEPSTITCHER& st, const PreviewScale& scale, std::int32_t pw,
                      std::int32_t ph) {
  const std::int32_t s = scale.s, r = scale.r, strip_end = st.lStripEnd;
  const bool last = st.bFinished == 1;
  const std::int32_t reach = (st.lMainOffset + st.lStripStart) / r / s;  // in preview pixels
  ZMOSRECT& pr = st.PreviewRect;
  PreviewStep step;
  ZMOSRECT& d = step.dst;
  ZMOSRECT& src = step.src;
  switch (st.lDirection) {
    case ZMOS_DIRECTION_LEFT_TO_RIGHT: {
      d = {Even(pr.lRight), 0, last ? Even(pw) : Even(reach), ph};
      const std::int32_t left = Even((strip_end - st.lLastDx) / r);
      src = {left, 0, left + s * (d.lRight - d.lLeft), s * ph};
      pr.lRight = d.lRight;
      break;
    }
    case ZMOS_DIRECTION_RIGHT_TO_LEFT:
      if (last) {
        d = {0, 0, Even(pr.lLeft + 1), ph};
        src = {0, 0, s * d.lRight, s * ph};
      } else {
        d = {Even(pw + 1 - reach), 0, Even(pr.lLeft + 1), ph};
        const std::int32_t left = Even(strip_end / r);
        src = {left, 0, left + s * (d.lRight - d.lLeft), s * ph};
      }
      pr.lLeft = d.lLeft;
      break;
    case ZMOS_DIRECTION_TOP_TO_BOTTOM: {
      d = {0, Even(pr.lBottom), pw, last ? Even(ph + 1) : Even(reach)};
      const std::int32_t top = Even((strip_end - st.lLastDy) / r);
      src = {0, top, s * pw, top + s * (d.lBottom - d.lTop)};
      pr.lBottom = d.lBottom;
      break;
    }
    default:
      if (last) {
        d = {0, 0, pw, Even(pr.lTop + 1)};
        src = {0, 0, s * pw, s * d.lBottom};
      } else {
        d = {0, Even(ph + 1 - reach), pw, Even(pr.lTop + 1)};
        const std::int32_t top = Even(strip_end / r);
        src = {0, top, s * pw, top + s * (d.lBottom - d.lTop)};
      }
      pr.lTop = d.lTop;
      break;
  }
  return step;
}

}  // namespace
}  // namespace lumivex::engine

using namespace lumivex::engine;

extern "C" {

int32_t DownSampleImage(const ZMOSIMAGE* pSrc, const ZMOSRECT* pSrcRect, ZMOSIMAGE* pDst,
                        const ZMOSRECT* pDstRect, int32_t lScaleX, int32_t lScaleY, int32_t) {
  if (pSrc == nullptr || pDst == nullptr || lScaleX < 1 || lScaleY < 1)
    return ZMOS_ERR_INVALID_PARAM;
  const ZMOSRECT s =
      pSrcRect != nullptr ? *pSrcRect : ZMOSRECT{0, 0, Even(pSrc->lWidth), Even(pSrc->lHeight)};
  const ZMOSRECT d =
      pDstRect != nullptr ? *pDstRect : ZMOSRECT{0, 0, Even(pDst->lWidth), Even(pDst->lHeight)};
  if (std::int64_t{d.lBottom} - d.lTop < 1) return ZMOS_OK;
  const std::uint32_t sf = pSrc->dwFormat;
  if (!(sf == ZMOS_FORMAT_YUV422_501 || sf == ZMOS_FORMAT_YUV422_502 ||
        (sf >= ZMOS_FORMAT_SEMIPLANAR420_801 && sf <= ZMOS_FORMAT_SEMIPLANAR422_803)))
    return ZMOS_ERR_UNSUPPORTED_FORMAT;
  // A source without its planes, or a target this reduction cannot lay out, is a bad
  // argument rather than a format the engine does not read.
  if (!Sampleable(*pSrc) || !Sampleable(*pDst)) return ZMOS_ERR_INVALID_PARAM;
  const Sampler src{*pSrc};
  const Sampler dst{*pDst};
  // Only what lies inside both images is drawn.
  const std::int32_t x0 = std::max(d.lLeft, 0), y0 = std::max(d.lTop, 0);
  const std::int32_t x1 = std::min(d.lRight, Even(pDst->lWidth));
  const std::int32_t y1 = std::min(d.lBottom, Even(pDst->lHeight));
  if (!src.packed() && !dst.packed()) {
    DownSampleSemiPlanar(*pSrc, s, *pDst, d, lScaleX, lScaleY, x0, y0, x1, y1);
    return ZMOS_OK;
  }
  const Reduction red{*pSrc, s, *pDst, d, lScaleX, lScaleY, src};
  red.Luma(x0, y0, x1, y1);
  if (!dst.packed()) red.SemiPlanarChroma(x0, y0, x1, y1);
  return ZMOS_OK;
}

int32_t ZMOSUpdateUIImage(ZMOSSWEEPSTITCHER* hStitcher, const ZMOSIMAGE* pFrame,
                          ZMOSIMAGE* pUIImage, int32_t lScale, int32_t* plRect) {
  if (hStitcher == nullptr || pFrame == nullptr || pUIImage == nullptr)
    return ZMOS_ERR_INVALID_PARAM;
  ZMOSSWEEPSTITCHER& st = *hStitcher;
  if (st.lDirection == ZMOS_DIRECTION_UNKNOWN || !st.bNewStrip || !st.bActive) return ZMOS_OK;
  if (!PreviewFormat(pUIImage->dwFormat)) return ZMOS_ERR_UNSUPPORTED_FORMAT;
  if (lScale < 1 || pFrame->lWidth <= 0 || pFrame->lHeight <= 0) return ZMOS_ERR_INVALID_PARAM;
  const PreviewScale scale{
      lScale, std::max(st.lFrameWidth / pFrame->lWidth, st.lFrameHeight / pFrame->lHeight)};
  if (st.lKeptCount == 1) {
    if (const std::int32_t res = StartPreview(st, scale, pUIImage); res != 0) return res;
  }
  const std::int32_t pw = st.pPreview != nullptr ? st.pPreview->lWidth : 0;
  const std::int32_t ph = st.pPreview != nullptr ? st.pPreview->lHeight : 0;
  PreviewStep step =
      st.lKeptCount == 1 ? FirstStrip(st, scale, *pFrame, pw, ph) : NextStrip(st, scale, pw, ph);
  step.src.lRight = std::min(step.src.lRight, pFrame->lWidth);
  step.src.lBottom = std::min(step.src.lBottom, pFrame->lHeight);
  // Drawn into the caller's record: a view of the preview after the first strip unless
  // the caller has put its own buffer there (clipped to that image).
  const std::int32_t res =
      DownSampleImage(pFrame, &step.src, pUIImage, &step.dst, scale.s, scale.s, 0);
  if (plRect != nullptr) {
    const ZMOSRECT& pr = st.PreviewRect;
    plRect[0] = pr.lLeft;
    plRect[1] = pr.lTop;
    plRect[2] = pr.lRight;
    plRect[3] = pr.lBottom;
  }
  st.bNewStrip = 0;
  return res;
}

}  // extern "C"
