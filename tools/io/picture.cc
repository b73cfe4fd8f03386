#include "tools/io/picture.h"

#include <algorithm>

namespace lumivex::tools {
namespace {

std::uint8_t Clamp(int v) {
  return static_cast<std::uint8_t>(std::clamp(v, 0, 255));
}

}  // namespace

Yuv420::Yuv420(int width, int height, std::uint32_t format)
    : width_(width),
      height_(height),
      format_(format),
      data_(static_cast<std::size_t>(width) * height +
                2 * static_cast<std::size_t>(width / 2) * (height / 2),
            128) {}

ZMOSIMAGE Yuv420::Image() {
  ZMOSIMAGE img{format_, width_, height_, {}, {}};
  img.pPlane[0] = y();
  img.lPitch[0] = width_;
  img.pPlane[1] = chroma();
  if (format_ == ZMOS_FORMAT_I420) {
    img.lPitch[1] = img.lPitch[2] = width_ / 2;
    img.pPlane[2] = chroma() + static_cast<std::size_t>(width_ / 2) * (height_ / 2);
  } else {
    img.lPitch[1] = width_;
  }
  return img;
}

Rgb Shrink(const Rgb& rgb, int side) {
  const int f = std::max(1, (std::max(rgb.width, rgb.height) + side - 1) / std::max(side, 1));
  if (f == 1) return rgb;
  Rgb out;
  out.width = rgb.width / f;
  out.height = rgb.height / f;
  out.pixels.resize(static_cast<std::size_t>(out.width) * out.height * 3);
  for (int y = 0; y < out.height; ++y)
    for (int x = 0; x < out.width; ++x)
      for (int c = 0; c < 3; ++c) {
        int sum = 0;
        for (int dy = 0; dy < f; ++dy)
          for (int dx = 0; dx < f; ++dx)
            sum +=
                rgb.pixels[(static_cast<std::size_t>(y * f + dy) * rgb.width + x * f + dx) * 3 + c];
        out.pixels[(static_cast<std::size_t>(y) * out.width + x) * 3 + c] =
            static_cast<std::uint8_t>(sum / (f * f));
      }
  return out;
}

Yuv420 RgbToYuv420(const Rgb& rgb, std::uint32_t format) {
  const int w = rgb.width & ~1, h = rgb.height & ~1;
  Yuv420 out(w, h, format);
  auto px = [&](int x, int y) {
    return rgb.pixels.data() + (static_cast<std::size_t>(y) * rgb.width + x) * 3;
  };
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const std::uint8_t* p = px(x, y);
      // Y = 0.299 R + 0.587 G + 0.114 B, in Q16.
      out.y()[static_cast<std::size_t>(y) * w + x] =
          Clamp((19595 * p[0] + 38470 * p[1] + 7471 * p[2] + 32768) >> 16);
    }
  }
  for (int y = 0; y < h / 2; ++y) {
    for (int x = 0; x < w / 2; ++x) {
      int r = 0, g = 0, b = 0;
      for (int k = 0; k < 4; ++k) {
        const std::uint8_t* p = px(2 * x + (k & 1), 2 * y + (k >> 1));
        r += p[0];
        g += p[1];
        b += p[2];
      }
      const int u = Clamp(((-11059 * r - 21709 * g + 32768 * b + 131072) >> 18) + 128);
      const int v = Clamp(((32768 * r - 27439 * g - 5329 * b + 131072) >> 18) + 128);
      if (format == ZMOS_FORMAT_I420) {
        out.chroma()[static_cast<std::size_t>(y) * (w / 2) + x] = static_cast<std::uint8_t>(u);
        out.chroma()[static_cast<std::size_t>(w / 2) * (h / 2) +
                     static_cast<std::size_t>(y) * (w / 2) + x] = static_cast<std::uint8_t>(v);
      } else {
        std::uint8_t* pair = out.chroma() + static_cast<std::size_t>(y) * w + 2 * x;
        pair[0] = static_cast<std::uint8_t>(format == ZMOS_FORMAT_NV21 ? v : u);
        pair[1] = static_cast<std::uint8_t>(format == ZMOS_FORMAT_NV21 ? u : v);
      }
    }
  }
  return out;
}

Rgb ImageToRgb(const ZMOSIMAGE& img) {
  Rgb out;
  out.width = std::max(img.lWidth, 0);
  out.height = std::max(img.lHeight, 0);
  out.pixels.resize(static_cast<std::size_t>(out.width) * out.height * 3);
  const std::uint32_t f = img.dwFormat;
  for (int y = 0; y < out.height; ++y) {
    for (int x = 0; x < out.width; ++x) {
      int yy = 0, u = 128, v = 128;
      if (f == ZMOS_FORMAT_YUV422_501) {
        const std::uint8_t* row = img.pPlane[0] + static_cast<std::ptrdiff_t>(y) * img.lPitch[0];
        yy = row[2 * x];
        u = row[4 * (x / 2) + 1];
        v = row[4 * (x / 2) + 3];
      } else {
        yy = img.pPlane[0][static_cast<std::ptrdiff_t>(y) * img.lPitch[0] + x];
        if (f == ZMOS_FORMAT_I420 || f == ZMOS_FORMAT_PLANAR420_605) {
          u = img.pPlane[1][static_cast<std::ptrdiff_t>(y / 2) * img.lPitch[1] + x / 2];
          v = img.pPlane[2][static_cast<std::ptrdiff_t>(y / 2) * img.lPitch[2] + x / 2];
        } else if (f == ZMOS_FORMAT_SEMIPLANAR420_801 || f == ZMOS_FORMAT_NV21) {
          const std::uint8_t* pair =
              img.pPlane[1] + static_cast<std::ptrdiff_t>(y / 2) * img.lPitch[1] + 2 * (x / 2);
          u = f == ZMOS_FORMAT_NV21 ? pair[1] : pair[0];
          v = f == ZMOS_FORMAT_NV21 ? pair[0] : pair[1];
        }
      }
      // R = Y + 1.402 V', G = Y - 0.344 U' - 0.714 V', B = Y + 1.772 U' (Q16).
      const int cu = u - 128, cv = v - 128;
      std::uint8_t* p = out.pixels.data() + (static_cast<std::size_t>(y) * out.width + x) * 3;
      p[0] = Clamp(yy + ((91881 * cv + 32768) >> 16));
      p[1] = Clamp(yy - ((22554 * cu + 46802 * cv + 32768) >> 16));
      p[2] = Clamp(yy + ((116130 * cu + 32768) >> 16));
    }
  }
  return out;
}

}  // namespace lumivex::tools
