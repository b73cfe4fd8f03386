// Horizontal (column-sum) and vertical (row-sum) projections of plane 0's luma.
#include <cstdint>

#include "lumivex/track.h"
#include "src/kernels/kernels.h"
#include "src/kernels/projection_kernels.h"

namespace lumivex::track {
namespace {

enum class Pixels { kPlanar, kPackedEven, kPackedOdd, kBgr24, kRgb24, kUnsupported };

Pixels HorizontalPixels(std::uint32_t format) {
  const std::uint32_t family = format >> 8;
  if (family == 6 || family == 7 || family == 8) return Pixels::kPlanar;
  return format == ZMOS_FORMAT_YUV422_501 || format == ZMOS_FORMAT_YUV422_502 ? Pixels::kPackedEven
         : format == ZMOS_FORMAT_YUV422_503 || format == ZMOS_FORMAT_YUV422_504 ? Pixels::kPackedOdd
         : format == 0x201                                                      ? Pixels::kBgr24
         : format == 0x204                                                      ? Pixels::kRgb24
                           : Pixels::kUnsupported;
}

Pixels VerticalPixels(std::uint32_t format) {
  if ((format >= ZMOS_FORMAT_I420 && format <= ZMOS_FORMAT_PLANAR444_608) ||
      format == ZMOS_FORMAT_GREY ||
      (format >= ZMOS_FORMAT_SEMIPLANAR420_801 && format <= ZMOS_FORMAT_SEMIPLANAR422_803))
    return Pixels::kPlanar;
  const Pixels p = HorizontalPixels(format);
  return p == Pixels::kPlanar ? Pixels::kUnsupported : p;
}

// Luma of a 24-bit pixel, BT.601 weights in Q10.
inline std::uint32_t Luma24(const std::uint8_t* px, Pixels order) {
  const std::uint32_t b0 = px[0], b1 = px[1], b2 = px[2];
  return order == Pixels::kBgr24 ? (117 * b0 + 601 * b1 + 306 * b2 + 512) >> 10
                                 : (306 * b0 + 601 * b1 + 117 * b2 + 512) >> 10;
}

bool RectOk(const ZMOSIMAGE* image, const ZMOSRECT* rect, const std::uint32_t* out) {
  if (image == nullptr || rect == nullptr || out == nullptr) return false;
  const std::int64_t l = rect->lLeft, t = rect->lTop, r = rect->lRight, b = rect->lBottom;
  if (l + 7 >= r || t + 7 >= b) return false;
  if (l < 0 || r > image->lWidth || t < 0 || b > image->lHeight) return false;
  return image->pPlane[0] != nullptr;
}

std::int32_t Horizontal(const ZMOSIMAGE* image, const ZMOSRECT* rect, std::uint32_t* out,
                        bool every_second_row) {
  if (!RectOk(image, rect, out)) return ZMOS_ERR_INVALID_PARAM;
  const std::int32_t width = rect->lRight - rect->lLeft;
  std::int32_t rows = rect->lBottom - rect->lTop;
  for (std::int32_t i = 0; i < width; ++i) out[i] = 0;
  const Pixels pixels = HorizontalPixels(image->dwFormat);
  if (pixels == Pixels::kUnsupported) return ZMOS_ERR_UNSUPPORTED_FORMAT;

  const std::ptrdiff_t pitch = image->lPitch[0];
  std::ptrdiff_t step = pitch;
  if (every_second_row) {
    step *= 2;
    rows /= 2;
  }
  const std::uint8_t* row0 = image->pPlane[0] + pitch * rect->lTop;
  switch (pixels) {
    case Pixels::kPlanar: {
      // Sums start at the column rounded down to a multiple of 4.
      const std::uint8_t* line = row0 + (rect->lLeft & ~3);
      if ((reinterpret_cast<std::uintptr_t>(line) & 3) == 0 && (pitch & 3) == 0) {
        FastColumnSums()(width, rows, line, step, out);
      } else {
        kernels::Active().column_sums(width, rows, line, step, out);
      }
      return ZMOS_OK;
    }
    case Pixels::kPackedEven:
    case Pixels::kPackedOdd: {
      const LumaBytes luma = pixels == Pixels::kPackedEven ? LumaBytes::kEven : LumaBytes::kOdd;
      if ((pitch & 3) == 0) {
        // Whole pixel pairs: an odd left starts one pixel early.
        SelectColumnSums(luma)(width, rows, row0 + (rect->lLeft / 2) * 4, step, out);
        return ZMOS_OK;
      }
      const std::uint8_t* line = row0 + 2 * rect->lLeft;
      for (std::int32_t y = 0; y < rows; ++y) {
        const std::uint8_t* p = line + y * step;
        if (luma == LumaBytes::kEven) {
          for (std::int32_t x = 0; x < width; ++x) out[x] += p[2 * x];
        } else {
          // Pixel pairs: an odd width leaves its last pixel out.
          for (std::int32_t k = 0; k < width / 2; ++k) {
            out[2 * k] += p[4 * k + 1];
            out[2 * k + 1] += p[4 * k + 3];
          }
        }
      }
      return ZMOS_OK;
    }
    default: {
      const std::uint8_t* line = row0 + 3 * rect->lLeft;
      for (std::int32_t y = 0; y < rows; ++y)
        for (std::int32_t x = 0; x < width; ++x) out[x] += Luma24(line + y * step + 3 * x, pixels);
      return ZMOS_OK;
    }
  }
}

}  // namespace

bool PlainSums(std::uint32_t format) {
  return VerticalPixels(format) == Pixels::kPlanar && NativeByteOrder() == ByteOrder::kLittle;
}

}  // namespace lumivex::track

using namespace lumivex::track;

extern "C" {

int32_t ZMOSHoriProjectSingle_PBM(const ZMOSIMAGE* pImage, const ZMOSRECT* pRect, uint32_t* pOut) {
  return Horizontal(pImage, pRect, pOut, false);
}

int32_t ZMOSHoriProjectSingleInterval_PBM(const ZMOSIMAGE* pImage, const ZMOSRECT* pRect,
                                          uint32_t* pOut) {
  return Horizontal(pImage, pRect, pOut, true);
}

int32_t ZMOSVertProjectSingle_PBM(const ZMOSIMAGE* pImage, const ZMOSRECT* pRect, uint32_t* pOut) {
  if (!RectOk(pImage, pRect, pOut)) return ZMOS_ERR_INVALID_PARAM;
  const std::int32_t width = pRect->lRight - pRect->lLeft;
  const std::int32_t rows = pRect->lBottom - pRect->lTop;
  for (std::int32_t j = 0; j < rows; ++j) pOut[j] = 0;
  const Pixels pixels = VerticalPixels(pImage->dwFormat);
  if (pixels == Pixels::kUnsupported) return ZMOS_ERR_UNSUPPORTED_FORMAT;

  const std::ptrdiff_t pitch = pImage->lPitch[0];
  const std::uint8_t* row0 = pImage->pPlane[0] + pitch * pRect->lTop;
  if (pixels == Pixels::kPlanar && (pitch & 3) == 0) {
    RowSumLanesRows(row0 + pRect->lLeft, pitch, rows, width, pOut);
    return ZMOS_OK;
  }
  for (std::int32_t j = 0; j < rows; ++j) {
    const std::uint8_t* row = row0 + j * pitch;
    std::uint32_t sum = 0;
    switch (pixels) {
      case Pixels::kPlanar:
        sum = RowSumLanes(row + pRect->lLeft, width);
        break;
      case Pixels::kPackedEven:
      case Pixels::kPackedOdd: {
        const int off = pixels == Pixels::kPackedOdd ? 1 : 0;
        const std::uint8_t* p = row + 2 * pRect->lLeft;
        std::int32_t n = width;
        if ((pitch & 3) != 0) {
          for (std::int32_t x = 0; x < n; ++x) sum += p[2 * x + off];
          break;
        }
        if (pRect->lLeft & 1) {  // start on a pixel-pair boundary
          sum += p[off];
          p += 2;
          --n;
        }
        sum += RowSumLanesPacked(p, n,
                                 pixels == Pixels::kPackedOdd ? LumaBytes::kOdd : LumaBytes::kEven);
        break;
      }
      default:
        for (std::int32_t x = 0; x < width; ++x)
          sum += Luma24(row + 3 * (pRect->lLeft + x), pixels);
        break;
    }
    pOut[j] = sum;
  }
  return ZMOS_OK;
}

}  // extern "C"
