// Shared helpers for the tests: deterministic random data and images surrounded by
// guard bytes, so any write outside the pixels is detected.
#ifndef LUMIVEX_TESTS_SUPPORT_TEST_SUPPORT_H_
#define LUMIVEX_TESTS_SUPPORT_TEST_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "lumivex/lumivex.h"

namespace lumivex::test {

// Small, fast and reproducible on every target (std:: distributions are not).
class Rng {
 public:
  explicit Rng(std::uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15ull + 1) {}
  std::uint32_t Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return static_cast<std::uint32_t>(state_ >> 11);
  }
  // Uniform in [lo, hi].
  int Range(int lo, int hi) {
    return lo + static_cast<int>(Next() % static_cast<std::uint32_t>(hi - lo + 1));
  }

 private:
  std::uint64_t state_;
};

// An image over a private buffer in which every byte that is not a pixel (the guard
// zones between and around planes and the slack at the end of each row) holds a known
// pattern. Pixels start random.
class GuardedImage {
 public:
  GuardedImage(std::uint32_t format, int width, int height, int extra_pitch = 3,
               std::uint64_t seed = 1);
  // The image points into the buffer: a move keeps the storage, a copy would not.
  GuardedImage(GuardedImage&&) = default;
  GuardedImage& operator=(GuardedImage&&) = default;
  GuardedImage(const GuardedImage&) = delete;
  GuardedImage& operator=(const GuardedImage&) = delete;
  ZMOSIMAGE* get() { return &image_; }
  const ZMOSIMAGE* get() const { return &image_; }
  // True while no byte outside the pixels has changed.
  bool GuardsIntact() const;
  int planes() const { return planes_; }
  int row_bytes(int plane) const { return row_bytes_[plane]; }
  int rows(int plane) const { return rows_[plane]; }
  std::uint8_t& at(int plane, int x_byte, int y) {
    return image_.pPlane[plane][y * image_.lPitch[plane] + x_byte];
  }
  std::uint8_t at(int plane, int x_byte, int y) const {
    return image_.pPlane[plane][y * image_.lPitch[plane] + x_byte];
  }

 private:
  std::vector<std::uint8_t> buffer_;
  std::vector<bool> is_pixel_;
  ZMOSIMAGE image_{};
  int planes_ = 0;
  int row_bytes_[3] = {0, 0, 0};
  int rows_[3] = {0, 0, 0};
};

inline constexpr std::uint8_t kGuardByte = 0xA5;

// A memory manager over a private work buffer, with the heap's accounting.
class WorkArena {
 public:
  explicit WorkArena(std::size_t size);
  MHandle handle() const { return handle_; }
  int UsedBlocks() const;
  std::size_t FreeBytes() const;

 private:
  std::vector<std::uint8_t> buffer_;
  MHandle handle_ = nullptr;
};

// Folder of the test photographs (LUMIVEX_DATA_DIR), or empty when unknown.
std::string DataDir();

// An 8-bit single-channel picture.
struct Plane8 {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> pixels;
  std::uint8_t at(int x, int y) const { return pixels[static_cast<std::size_t>(y) * width + x]; }
  // Outside the picture the nearest edge sample.
  std::uint8_t clamped(int x, int y) const {
    return at(x < 0 ? 0 : x >= width ? width - 1 : x, y < 0 ? 0 : y >= height ? height - 1 : y);
  }
};

// The luma of the 5000 x 2500 test photograph (decoded at build time into the file
// named by LUMIVEX_PHOTO_PGM), loaded once; null when it is not available.
const Plane8* Photo();

// True when the photograph's source is present, so a missing decoded copy is a fault of
// the build rather than a reason to skip.
bool PhotoExpected();

// Ends the current test when `missing` holds: a skip where the photograph may be absent,
// a failure where the build said it would be there.
#define LUMIVEX_REQUIRE_PHOTO(missing)                                                          \
  do {                                                                                          \
    if (missing) {                                                                              \
      if (::lumivex::test::PhotoExpected()) FAIL() << "the decoded test photograph is missing"; \
      GTEST_SKIP();                                                                             \
    }                                                                                           \
  } while (0)

// The test photograph at half size (2500 x 1250) in full-resolution Y, U and V planes
// (BT.601, full range), decoded at build time into LUMIVEX_PHOTO_PPM; null when missing.
struct ColourPlanes {
  Plane8 y, u, v;
};
const ColourPlanes* ColourPhoto();

// The picture turned on its side (rows become columns), for vertical sweeps that should
// travel through the same content as horizontal ones.
Plane8 Transposed(const Plane8& p);

// The camera handler's work-buffer size for frames of w x h (30 frames): the larger of
// the landscape and portrait terms.
std::int32_t HandlerWorkBufferSize(std::int32_t w, std::int32_t h);

// The half-size colour photograph turned on its side, made once: vertical sweeps over it
// travel through the textured land rather than up into the sky. Null when the photograph
// is missing.
const ColourPlanes* TurnedColourPhoto();

// FNV-1a of a 4:2:0 panorama's size, luma rows and chroma rows (NV21's VU plane, or
// I420's U and V), so two panoramas compare by one number.
std::uint64_t PanoramaChecksum(const ZMOSIMAGE& img);

// Smooth random texture (sum of soft blobs at several scales), reproducible everywhere.
Plane8 SyntheticTexture(int width, int height, std::uint64_t seed);

// A frame cut out of a picture at (x, y): grey, NV21 (chroma 128) or I420 (chroma 128).
// Rows are padded to `pitch_pad` extra bytes.
class Frame {
 public:
  Frame(const Plane8& src, int x, int y, int width, int height,
        std::uint32_t format = ZMOS_FORMAT_NV21, int pitch_pad = 0);
  // With real chroma: each 2 x 2 block of the frame averages the photo's samples, on the
  // frame's own grid, as a camera's would.
  Frame(const ColourPlanes& src, int x, int y, int width, int height,
        std::uint32_t format = ZMOS_FORMAT_NV21, int pitch_pad = 0);
  ZMOSIMAGE* get() { return &image_; }
  const ZMOSIMAGE* get() const { return &image_; }

 private:
  void Layout(std::uint32_t format, int width, int height, int pitch_pad);
  std::vector<std::uint8_t> buffer_;
  ZMOSIMAGE image_{};
};

}  // namespace lumivex::test

#endif  // LUMIVEX_TESTS_SUPPORT_TEST_SUPPORT_H_
