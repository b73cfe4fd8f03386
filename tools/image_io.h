// Reading and writing pictures for the lumivex tools: JPEG through libjpeg-turbo, PNG
// through libpng, and BT.601 (full range) conversion between RGB and the engine's
// 4:2:0 layouts.
#ifndef LUMIVEX_TOOLS_IMAGE_IO_H_
#define LUMIVEX_TOOLS_IMAGE_IO_H_

#include <cstdint>
#include <string>
#include <vector>

#include "lumivex/image.h"

namespace lumivex::tools {

// The largest picture side the readers decode (a 8192 x 8192 frame is 192 MB of RGB).
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

// Reads a JPEG or PNG file (by its signature). On failure returns false and says why.
bool ReadImage(const std::string& path, Rgb* out, std::string* error);
// Writes JPEG (of that quality, 1 to 100) or PNG, chosen by the extension (.jpg/.jpeg/.png).
bool WriteImage(const std::string& path, const Rgb& rgb, std::string* error, int quality = 92);

// JPEG bytes of that quality (1 to 100), in memory.
bool EncodeJpeg(const Rgb& rgb, int quality, std::vector<std::uint8_t>* out, std::string* error);
// At most `side` pixels on the longer side, each the average of a square of the original
// (unchanged when already small enough).
Rgb Shrink(const Rgb& rgb, int side);

// BT.601 full-range conversions. The 4:2:0 side averages each 2 x 2 block.
Yuv420 RgbToYuv420(const Rgb& rgb, std::uint32_t format);
// Any engine image of the 4:2:0 families (NV21, 0x801, I420) or 0x501 to RGB.
Rgb ImageToRgb(const ZMOSIMAGE& image);

bool EndsWith(const std::string& s, const std::string& suffix);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_IMAGE_IO_H_
