// Platform bitmaps and the colour conversions the Android binding needs.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "lumivex/platform.h"

namespace {

struct Layout {
  int planes;
  std::int64_t pitch[3];
  std::int64_t rows[3];
};

bool LayoutOf(std::uint32_t format, std::int32_t w, std::int32_t h, Layout* l) {
  *l = Layout{};
  switch (format) {
    case MPAF_GRAY8:
      *l = Layout{1, {w, 0, 0}, {h, 0, 0}};
      return true;
    case MPAF_RGB16_R5G6B5:
      *l = Layout{1, {2LL * w, 0, 0}, {h, 0, 0}};
      return true;
    case MPAF_RGB32_A8R8G8B8:
      *l = Layout{1, {4LL * w, 0, 0}, {h, 0, 0}};
      return true;
    case MPAF_I420:
      *l = Layout{3, {w, w / 2, w / 2}, {h, h / 2, h / 2}};
      return true;
    case MPAF_NV21_WRAP:
      *l = Layout{2, {w, w, 0}, {h, h / 2, 0}};
      return true;
    case MPAF_NV21_RESULT:
      // Interleaved chroma at full height: each chroma row is stored once per luma row.
      *l = Layout{2, {w, w, 0}, {h, h, 0}};
      return true;
    default:
      return false;
  }
}

inline std::uint8_t Clamp(int v) {
  return static_cast<std::uint8_t>(std::clamp(v, 0, 255));
}

// BT.601 full range in Q16: R = Y + 1.402 V', G = Y - 0.344136 U' - 0.714136 V',
// B = Y + 1.772 U'.
inline void YuvToRgb(int y, int u, int v, int* r, int* g, int* b) {
  const int cu = u - 128, cv = v - 128;
  *r = Clamp(y + ((91881 * cv + 32768) >> 16));
  *g = Clamp(y - ((22554 * cu + 46802 * cv + 32768) >> 16));
  *b = Clamp(y + ((116130 * cu + 32768) >> 16));
}

}  // namespace

extern "C" {

int32_t MBitmapAlloc(MBITMAP* pBitmap) {
  if (pBitmap == nullptr || pBitmap->lWidth < 1 || pBitmap->lHeight < 1) return 2;
  Layout l;
  if (!LayoutOf(pBitmap->dwPixelArrayFormat, pBitmap->lWidth, pBitmap->lHeight, &l)) return 3;
  std::int64_t total = 0;
  for (int p = 0; p < l.planes; ++p) total += l.pitch[p] * l.rows[p];
  if (total > INT32_MAX) return 4;
  auto* block = static_cast<std::uint8_t*>(MMemAlloc(nullptr, static_cast<std::int32_t>(total)));
  if (block == nullptr) return 4;
  std::uint8_t* at = block;
  for (int p = 0; p < 3; ++p) {
    pBitmap->lPitch[p] = p < l.planes ? static_cast<std::int32_t>(l.pitch[p]) : 0;
    pBitmap->pPlane[p] = p < l.planes ? at : nullptr;
    if (p < l.planes) at += l.pitch[p] * l.rows[p];
  }
  return 0;
}

void MBitmapFree(MBITMAP* pBitmap) {
  if (pBitmap == nullptr) return;
  MMemFree(nullptr, pBitmap->pPlane[0]);
  for (int p = 0; p < 3; ++p) pBitmap->pPlane[p] = nullptr;
}

MBITMAP* MdBitmapAlloc(int32_t lWidth, int32_t lHeight, uint32_t dwFormat) {
  auto* bmp = static_cast<MBITMAP*>(MMemAlloc(nullptr, sizeof(MBITMAP)));
  if (bmp == nullptr) return nullptr;
  *bmp = MBITMAP{dwFormat, lWidth, lHeight, {0, 0, 0}, {nullptr, nullptr, nullptr}};
  if (MBitmapAlloc(bmp) != 0) {
    MMemFree(nullptr, bmp);
    return nullptr;
  }
  return bmp;
}

void MdBitmapFree(MBITMAP* pBitmap) {
  if (pBitmap == nullptr) return;
  MBitmapFree(pBitmap);
  MMemFree(nullptr, pBitmap);
}

int32_t ConvertCS(const MBITMAP* pSrc, MBITMAP* pDst) {
  if (pSrc == nullptr || pDst == nullptr || pSrc->pPlane[0] == nullptr ||
      pDst->pPlane[0] == nullptr)
    return 2;
  if (pSrc->lWidth != pDst->lWidth || pSrc->lHeight != pDst->lHeight || pSrc->lWidth < 1 ||
      pSrc->lHeight < 1)
    return 2;
  const std::uint32_t sf = pSrc->dwPixelArrayFormat, df = pDst->dwPixelArrayFormat;
  const bool yuv = sf == MPAF_I420 || sf == MPAF_NV21_WRAP || sf == MPAF_NV21_RESULT;
  const bool rgb = df == MPAF_RGB16_R5G6B5 || df == MPAF_RGB32_A8R8G8B8 || df == MPAF_GRAY8;
  if (!yuv || !rgb) return 3;
  if (pSrc->pPlane[1] == nullptr || (sf != MPAF_NV21_RESULT && pSrc->pPlane[2] == nullptr))
    return 2;
  for (std::int32_t y = 0; y < pSrc->lHeight; ++y) {
    const std::uint8_t* luma = pSrc->pPlane[0] + static_cast<std::ptrdiff_t>(y) * pSrc->lPitch[0];
    std::uint8_t* out = pDst->pPlane[0] + static_cast<std::ptrdiff_t>(y) * pDst->lPitch[0];
    for (std::int32_t x = 0; x < pSrc->lWidth; ++x) {
      int u, v;
      if (sf == MPAF_I420) {
        u = pSrc->pPlane[1][static_cast<std::ptrdiff_t>(y / 2) * pSrc->lPitch[1] + x / 2];
        v = pSrc->pPlane[2][static_cast<std::ptrdiff_t>(y / 2) * pSrc->lPitch[2] + x / 2];
      } else if (sf == MPAF_NV21_WRAP) {
        // Planes 1 and 2 address the U and V bytes of each VU pair.
        const std::ptrdiff_t at =
            static_cast<std::ptrdiff_t>(y / 2) * pSrc->lPitch[1] + 2 * (x / 2);
        u = pSrc->pPlane[1][at];
        v = pSrc->pPlane[2][at];
      } else {
        const std::uint8_t* pair =
            pSrc->pPlane[1] + static_cast<std::ptrdiff_t>(y) * pSrc->lPitch[1] + 2 * (x / 2);
        v = pair[0];
        u = pair[1];
      }
      int r, g, b;
      YuvToRgb(luma[x], u, v, &r, &g, &b);
      if (df == MPAF_RGB16_R5G6B5) {
        const auto px = static_cast<std::uint16_t>(((r >> 3) << 11) | ((g >> 2) << 5) | (b >> 3));
        out[2 * x] = static_cast<std::uint8_t>(px & 0xFF);  // little-endian, as Android stores it
        out[2 * x + 1] = static_cast<std::uint8_t>(px >> 8);
      } else if (df == MPAF_RGB32_A8R8G8B8) {
        out[4 * x] = static_cast<std::uint8_t>(r);  // R, G, B, A bytes: Android's ARGB_8888
        out[4 * x + 1] = static_cast<std::uint8_t>(g);
        out[4 * x + 2] = static_cast<std::uint8_t>(b);
        out[4 * x + 3] = 255;
      } else {
        out[x] = luma[x];
      }
    }
  }
  return 0;
}

}  // extern "C"
