#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "lumivex/stitch.h"
#include "tests/support/test_support.h"

namespace {

using lumivex::test::Frame;
using lumivex::test::GuardedImage;

bool Same(const ZMOSRECT& a, const ZMOSRECT& b) {
  return a.lLeft == b.lLeft && a.lTop == b.lTop && a.lRight == b.lRight && a.lBottom == b.lBottom;
}

std::vector<std::uint8_t> Row(const GuardedImage& image, int y) {
  const std::uint8_t* row = image.get()->pPlane[0] + y * image.get()->lPitch[0];
  return {row, row + image.get()->lWidth};
}

TEST(ImageStitcher, StoresEvenStripsAndNeedsFrames) {
  ZMOSIMAGESTITCHER* s = nullptr;
  ASSERT_EQ(ZMOSCreateImageStitcher_ISR(&s, 1000, 120, ZMOS_FORMAT_NV21, 0, 4, nullptr), 0);
  EXPECT_EQ(ZMOSStitchBlendImage_ISR(s), 2);  // nothing stored
  GuardedImage frame(ZMOS_FORMAT_NV21, 200, 120, 0, 1);
  const std::int32_t off[2] = {0, 0};
  ASSERT_EQ(ZMOSAddImage_ISR(s, frame.get(), off, 17, 101, 41), 0);
  // The strip (84, 0, 140, 120) with values (16, 16, 40): replayed as the first frame,
  // it fills result columns 0-55 from frame columns 84-139.
  ASSERT_EQ(ZMOSStitchBlendImage_ISR(s), 0);
  ZMOSIMAGE* result = nullptr;
  ZMOSGetResultImage_ISR(s, &result);
  for (int x = 0; x < 56; ++x)
    ASSERT_EQ(result->pPlane[0][7 * result->lPitch[0] + x], frame.at(0, 84 + x, 7));
  ZMOSRECT valid{};
  ZMOSGetValidRect_ISR(s, &valid);
  EXPECT_TRUE(Same(valid, ZMOSRECT{0, 0, 56, 120}));
  EXPECT_EQ(ZMOSStitchBlendImage_ISR(s), 2);  // the stack is exhausted
  EXPECT_EQ(ZMOSAddImage_ISR(nullptr, frame.get(), off, 16, 100, 40), 2);
  ZMOSReleaseImageStitcher_ISR(&s);
  EXPECT_EQ(s, nullptr);
}

TEST(ImageBlender, OverlapLimitsAndCrop) {
  GuardedImage result(ZMOS_FORMAT_NV21, 1600, 64, 0, 9);
  ZMOSIMAGEBLENDER* b = nullptr;
  ASSERT_EQ(ZMOSCreateImageBlender_SBI(&b, result.get(), 0, 6, 30, nullptr), 0);
  GuardedImage f0(ZMOS_FORMAT_NV21, 640, 64, 0, 1), f1(ZMOS_FORMAT_NV21, 640, 64, 0, 2);
  std::int32_t off[2] = {0, 0};
  ASSERT_EQ(ZMOSImageBlenderRun_SBI(b, f0.get(), nullptr, off, 100, 0), 0);
  // An overlap of 5 columns (below the minimum 6) is copied without blending.
  off[0] = 10;
  const std::vector<std::uint8_t> before = Row(result, 5);
  ASSERT_EQ(ZMOSImageBlenderRun_SBI(b, f1.get(), nullptr, off, 105, 100), 0);
  for (int x = 0; x < 110; ++x) ASSERT_EQ(result.at(0, x, 5), before[x]) << x;
  for (int x = 110; x < 200; ++x) ASSERT_EQ(result.at(0, x, 5), f1.at(0, x - 110 + 105, 5)) << x;
  // A 640-wide frame caps the blend at 320 columns: the seam region ends at the new
  // position 510 and starts 320 columns before it; the rest of the frame is copied after.
  off[0] = 400;
  const std::vector<std::uint8_t> before2 = Row(result, 5);
  ASSERT_EQ(ZMOSImageBlenderRun_SBI(b, f0.get(), nullptr, off, 600, 0), 0);
  EXPECT_EQ(result.at(0, 189, 5), before2[189]);
  int changed = 0;
  for (int x = 190; x < 510; ++x) changed += result.at(0, x, 5) != before2[x];
  EXPECT_GT(changed, 0);
  for (int x = 510; x < 550; ++x) ASSERT_EQ(result.at(0, x, 5), f0.at(0, x - 510 + 600, 5)) << x;
  ZMOSRECT valid{};
  ZMOSGetValidRect_SBI(b, &valid);
  EXPECT_TRUE(Same(valid, ZMOSRECT{0, 0, 550, 64}));
  ASSERT_EQ(ZMOSCropResultImage_SBI(b), 0);
  ZMOSGetValidRect_SBI(b, &valid);
  EXPECT_TRUE(Same(valid, ZMOSRECT{0, 0, 550, 64}));  // the whole cropped result
  EXPECT_EQ(result.get()->lWidth, 550);
  ZMOSReleaseImageBlender_SBI(&b);
  EXPECT_EQ(ZMOSImageBlenderRun_SBI(nullptr, f0.get(), nullptr, off, 1, 0), 2);
  EXPECT_EQ(ZMOSCropResultImage_SBI(nullptr), 2);
}

// Direction 1 keeps its historical geometry: the sweep position starts at the seam's frame
// column although the first frame lands at the right edge, so a later blend rectangle does
// not fit and the frame is dropped, and a plain copy is cut at column 0.
TEST(ImageBlender, DirectionOneKeepsItsGeometry) {
  GuardedImage result(ZMOS_FORMAT_NV21, 1000, 64, 0, 9), f0(ZMOS_FORMAT_NV21, 200, 64, 0, 1),
      f1(ZMOS_FORMAT_NV21, 200, 64, 0, 2);
  ZMOSIMAGEBLENDER* b = nullptr;
  ASSERT_EQ(ZMOSCreateImageBlender_SBI(&b, result.get(), 1, 6, 30, nullptr), 0);
  std::int32_t off[2] = {0, 0};
  ASSERT_EQ(ZMOSImageBlenderRun_SBI(b, f0.get(), nullptr, off, 100, 160), 0);
  for (int x = 840; x < 1000; ++x) ASSERT_EQ(result.at(0, x, 5), f0.at(0, x - 840, 5)) << x;
  ZMOSRECT valid{};
  ZMOSGetValidRect_SBI(b, &valid);
  EXPECT_TRUE(Same(valid, ZMOSRECT{840, 0, 1000, 64}));
  // E above F is the wrong way round for this direction.
  off[0] = -30;
  EXPECT_EQ(ZMOSImageBlenderRun_SBI(b, f1.get(), nullptr, off, 120, 100), 2);
  // An overlap of 60: the blend rectangles (100..960 against -660..160) do not fit.
  off[0] = 0;
  const std::vector<std::uint8_t> before = Row(result, 5);
  EXPECT_EQ(ZMOSImageBlenderRun_SBI(b, f1.get(), nullptr, off, 100, 160), 0);
  EXPECT_EQ(Row(result, 5), before);
  // No overlap: frame columns 0..E land at P - E..P, cut at 0; the content end reaches 0.
  off[0] = -30;
  ASSERT_EQ(ZMOSImageBlenderRun_SBI(b, f1.get(), nullptr, off, 100, 100), 0);
  for (int x = 0; x < 70; ++x) ASSERT_EQ(result.at(0, x, 5), f1.at(0, x + 30, 5)) << x;
  const std::vector<std::uint8_t> after = Row(result, 5);
  EXPECT_EQ(ZMOSImageBlenderRun_SBI(b, f0.get(), nullptr, off, 100, 100), 0);
  EXPECT_EQ(Row(result, 5), after);  // nothing more once the content end is 0
  ZMOSReleaseImageBlender_SBI(&b);
  // The image stitcher replays strips with E = O above F = 0: in direction 1 every strip
  // after the first is refused, and the replay answers with that refusal.
  ZMOSIMAGESTITCHER* s = nullptr;
  ASSERT_EQ(ZMOSCreateImageStitcher_ISR(&s, 1000, 64, ZMOS_FORMAT_NV21, 1, 4, nullptr), 0);
  ASSERT_EQ(ZMOSAddImage_ISR(s, f0.get(), off, 16, 100, 40), 0);
  ASSERT_EQ(ZMOSAddImage_ISR(s, f1.get(), off, 16, 100, 40), 0);
  EXPECT_EQ(ZMOSStitchBlendImage_ISR(s), 2);
  ZMOSReleaseImageStitcher_ISR(&s);
}

// A horizontal sweep recorded and replayed: the cropped panorama is the photograph.
TEST(ImageStitcher, SweepRebuildsThePhotograph) {
  const lumivex::test::ColourPlanes* photo = lumivex::test::ColourPhoto();
  LUMIVEX_REQUIRE_PHOTO(photo == nullptr);
  ZMOSIMAGESTITCHER* s = nullptr;
  ASSERT_EQ(ZMOSCreateImageStitcher_ISR(&s, 1920, 480, ZMOS_FORMAT_NV21, 0, 200, nullptr), 0);
  lumivex::test::Rng rng(3);
  const int x0 = 300, y0 = 560;
  int x = x0, y = y0;
  for (int k = 0; k < 80; ++k) {
    const int dx = k == 0 ? 0 : rng.Range(10, 24), dy = k == 0 ? 0 : rng.Range(-1, 1);
    x += dx;
    y += dy;
    Frame frame(*photo, x, y, 640, 480);
    const std::int32_t off[2] = {dx, dy};
    ASSERT_EQ(ZMOSAddImage_ISR(s, frame.get(), off, 16, 320, 40), 0);
  }
  ASSERT_EQ(ZMOSStitchBlendImage_ISR(s), 0);
  ZMOSRECT valid{};
  ZMOSGetValidRect_ISR(s, &valid);
  ZMOSIMAGE* result = nullptr;
  ZMOSGetResultImage_ISR(s, &result);
  ASSERT_GT(valid.lRight, 1200);
  double err = 0;
  long n = 0;
  // Result column u is photo column x0 + 304 + u (the first strip starts 16 before 320).
  for (int v = valid.lTop; v < valid.lBottom; ++v)
    for (int u = valid.lLeft; u < valid.lRight; ++u) {
      const int d =
          result->pPlane[0][v * result->lPitch[0] + u] - photo->y.at(x0 + 304 + u, y0 + v);
      err += d * d;
      ++n;
    }
  const double psnr = err > 0 ? 10 * std::log10(255.0 * 255.0 * n / err) : 99;
  RecordProperty("psnr", static_cast<int>(psnr));
  EXPECT_GT(psnr, 40.0);
  ZMOSReleaseImageStitcher_ISR(&s);
}

}  // namespace
