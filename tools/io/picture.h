// Pictures in memory for the lumivex tools: packed RGB, and the engine's 4:2:0 layouts
// (NV21 or I420) with the BT.601 full-range conversions between them. Nothing here reads
// or writes files, so the simulators and tests use it on every target.
#ifndef LUMIVEX_TOOLS_IO_PICTURE_H_
#define LUMIVEX_TOOLS_IO_PICTURE_H_

#include <cstdint>
#include <vector>

#include "lumivex/image.h"

namespace lumivex::tools {

// The largest picture side the tools handle (a 8192 x 8192 frame is 192 MB of RGB).
inline constexpr int kMaxPictureSide = 8192;

struct Rgb {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> pixels;  // R, G, B per pixel, rows packed
};

// Owned 4:2:0 picture (NV21 or I420) with tightly packed planes.
class Yuv420 {
 public:
  Yuv420() = default;
  Yuv420(int width, int height, std::uint32_t format);
  int width() const { return width_; }
  int height() const { return height_; }
  std::uint32_t format() const { return format_; }
  std::uint8_t* y() { return data_.data(); }
  const std::uint8_t* y() const { return data_.data(); }
  std::uint8_t* chroma() { return data_.data() + luma_size(); }  // VU pairs or U then V
  const std::uint8_t* chroma() const { return data_.data() + luma_size(); }
  std::size_t luma_size() const { return static_cast<std::size_t>(width_) * height_; }
  std::size_t size() const { return data_.size(); }
  std::uint8_t* data() { return data_.data(); }
  // The engine's view of these pixels.
  ZMOSIMAGE Image();

 private:
  int width_ = 0, height_ = 0;
  std::uint32_t format_ = ZMOS_FORMAT_NV21;
  std::vector<std::uint8_t> data_;
};

// At most `side` pixels on the longer side, each the average of a square of the original
// (unchanged when already small enough).
Rgb Shrink(const Rgb& rgb, int side);

// BT.601 full-range conversions. The 4:2:0 side averages each 2 x 2 block.
Yuv420 RgbToYuv420(const Rgb& rgb, std::uint32_t format);
// Any engine image of the 4:2:0 families (NV21, 0x801, I420) or 0x501 to RGB.
Rgb ImageToRgb(const ZMOSIMAGE& image);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_IO_PICTURE_H_
