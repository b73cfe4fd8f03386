#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "lumivex/stitch.h"
#include "src/stitch/direct_stitcher.h"
#include "tests/support/test_support.h"

namespace lumivex::stitch {
namespace {

using test::Frame;
using test::GuardedImage;

bool Same(const ZMOSRECT& a, const ZMOSRECT& b) {
  return a.lLeft == b.lLeft && a.lTop == b.lTop && a.lRight == b.lRight && a.lBottom == b.lBottom;
}

// Frame pixel (x, y) of frame k holds k * 40 + x + 3y, so every placement is traceable.
GuardedImage TracedFrame(int k, int w, int h) {
  GuardedImage img(ZMOS_FORMAT_NV21, w, h, 0, k);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) img.at(0, x, y) = static_cast<std::uint8_t>(k * 40 + x + 3 * y);
  return img;
}

TEST(DirectStitcher, PlacesFirstAndLaterStripsLeftToRight) {
  ZMOSDIRECTSTITCHER* s = nullptr;
  ASSERT_EQ(ZMOSCreateDirectImageStitcher_DIS(&s, 1000, 120, ZMOS_FORMAT_NV21, 0, 10, nullptr), 0);
  GuardedImage f0 = TracedFrame(0, 200, 120), f1 = TracedFrame(1, 200, 120);
  const std::int32_t none[2] = {0, 0};
  ASSERT_EQ(ZMOSAddImage_DIS(s, f0.get(), none, 16, 100, 40, 0), 0);
  ZMOSIMAGE* canvas = nullptr;
  ZMOSGetResultImage_DIS(s, &canvas);
  // Frame columns 84-140 fill canvas columns 0-56; the position is 16.
  for (int u = 0; u < 56; ++u)
    EXPECT_EQ(canvas->pPlane[0][5 * canvas->lPitch[0] + u], f0.at(0, 84 + u, 5));
  EXPECT_EQ(s->lPosition, 16);

  // Moved 30 right and 3 up: position 46; frame rows 3.. land on canvas rows 0..
  const std::int32_t moved[2] = {30, -3};
  ASSERT_EQ(ZMOSAddImage_DIS(s, f1.get(), moved, 16, 100, 40, 0), 0);
  EXPECT_EQ(s->lPosition, 46);
  EXPECT_EQ(s->lMaxNegY, 3);
  EXPECT_TRUE(Same(s->pOverlapRects[1], ZMOSRECT{30, 0, 46, 117}));
  // The overlap strip is frame rows 2 to 120 (shift 1), columns 84-100.
  EXPECT_TRUE(Same(s->pStripRects[1], ZMOSRECT{0, 1, 16, 118}));
  for (int v = 0; v < 117; ++v) {
    for (int u = 46; u < 86; ++u)
      ASSERT_EQ(canvas->pPlane[0][v * canvas->lPitch[0] + u], f1.at(0, u - 46 + 100, v + 3));
    for (int c = 0; c < 16; ++c)
      ASSERT_EQ(s->pStrips->pPlane[0][v * s->pStrips->lPitch[0] + c], f1.at(0, 84 + c, v + 2));
  }
  EXPECT_EQ(s->lCount, 2);

  // Running off the canvas adds nothing and is not an error.
  const std::int32_t far[2] = {960, 0};
  EXPECT_EQ(ZMOSAddImage_DIS(s, f1.get(), far, 16, 100, 40, 0), 0);
  EXPECT_EQ(s->lCount, 2);
  EXPECT_EQ(s->lPosition, 1000);
  ZMOSReleaseDirectImageStitcher_DIS(&s);
  EXPECT_EQ(s, nullptr);
}

TEST(DirectStitcher, ValidRectangleRoundsTheLargestOffsets) {
  ZMOSDIRECTSTITCHER* s = nullptr;
  ASSERT_EQ(ZMOSCreateDirectImageStitcher_DIS(&s, 1000, 120, ZMOS_FORMAT_NV21, 0, 10, nullptr), 0);
  GuardedImage f = TracedFrame(0, 200, 120);
  const std::int32_t offsets[][2] = {{0, 0}, {20, 3}, {20, -8}, {21, 0}};
  for (int k = 0; k < 4; ++k)
    ASSERT_EQ(ZMOSAddImage_DIS(s, f.get(), offsets[k], 16, 100, 40, k == 3), 0);
  // Largest offsets 3 down and 5 up round to 4 and 6; the content end 77 + 40 to even.
  ZMOSRECT valid{};
  ZMOSGetValidRect_DIS(s, &valid);
  EXPECT_TRUE(Same(valid, ZMOSRECT{0, 4, 116, 114})) << valid.lRight;
  EXPECT_EQ(s->lMaxPosY, 4);
  EXPECT_EQ(s->lMaxNegY, 6);
  ZMOSReleaseDirectImageStitcher_DIS(&s);
}

TEST(DirectStitcher, RejectsWrongSignsLongStripsAndNullHandles) {
  GuardedImage f = TracedFrame(0, 200, 120);
  const std::int32_t none[2] = {0, 0}, right[2] = {5, 0}, left[2] = {-5, 0};
  ZMOSDIRECTSTITCHER* s = nullptr;
  ASSERT_EQ(ZMOSCreateDirectImageStitcher_DIS(&s, 300, 120, ZMOS_FORMAT_NV21, 1, 4, nullptr), 0);
  EXPECT_EQ(ZMOSAddImage_DIS(s, f.get(), none, 200, 100, 150, 0), 2);  // 350 > 300
  ASSERT_EQ(ZMOSAddImage_DIS(s, f.get(), none, 16, 100, 40, 0), 0);
  EXPECT_EQ(ZMOSAddImage_DIS(s, f.get(), right, 16, 100, 40, 0), 2);
  EXPECT_EQ(ZMOSAddImage_DIS(s, f.get(), left, 16, 100, 40, 0), 0);
  EXPECT_EQ(ZMOSAddImage_DIS(nullptr, f.get(), left, 16, 100, 40, 0), 2);
  EXPECT_EQ(ZMOSStitchBlendImage_DIS(nullptr), 2);
  ZMOSRECT untouched{1, 2, 3, 4};
  ZMOSGetValidRect_DIS(nullptr, &untouched);
  EXPECT_EQ(untouched.lLeft, 1);
  ZMOSReleasePartialDirectImageStitcher_DIS(&s);
  ZMOSIMAGE* canvas = nullptr;
  ZMOSGetResultImage_DIS(s, &canvas);
  EXPECT_NE(canvas, nullptr);  // the canvas outlives a partial release
  ZMOSReleaseDirectImageStitcher_DIS(&s);
  ZMOSReleaseDirectImageStitcher_DIS(&s);

  ASSERT_EQ(ZMOSCreateDirectImageStitcher_DIS(&s, 300, 120, ZMOS_FORMAT_NV21, 0, 4, nullptr), 0);
  ASSERT_EQ(ZMOSAddImage_DIS(s, f.get(), none, 16, 100, 40, 0), 0);
  EXPECT_EQ(ZMOSAddImage_DIS(s, f.get(), left, 16, 100, 40, 0), 2);
  ZMOSReleaseDirectImageStitcher_DIS(&s);

  for (std::size_t size : {100u, 200u, 2000u, 50000u, 100000u}) {
    test::WorkArena arena(size);
    EXPECT_EQ(
        ZMOSCreateDirectImageStitcher_DIS(&s, 300, 120, ZMOS_FORMAT_NV21, 0, 4, arena.handle()),
        ZMOS_ERR_NO_MEMORY);
    if (s != nullptr) ZMOSReleaseDirectImageStitcher_DIS(&s);  // canvas made, strips not
    EXPECT_EQ(arena.UsedBlocks(), 0);
  }
}

// A sweep cut from the photograph in each direction, with the cross position drifting up
// and down, laid and blended as a capture does: the valid rectangle of the canvas is the
// photograph, luminance exactly, chroma within the resampling of each frame's grid.
TEST(DirectStitcher, SweepsRebuildThePhotograph) {
  const test::ColourPlanes* photo = test::ColourPhoto();
  LUMIVEX_REQUIRE_PHOTO(photo == nullptr);
  for (int direction = 0; direction < 4; ++direction) {
    SCOPED_TRACE(testing::Message() << "direction " << direction);
    const bool horizontal = direction < 2, forward = direction % 2 == 0;
    const int w = horizontal ? 640 : 320, h = horizontal ? 480 : 240;
    const int strip = (w * 120 / 1280) & ~1;
    const int pano = 3 * w;  // the vertical canvas is three frame widths too
    const int cw = horizontal ? pano : w, ch = horizontal ? h : pano;
    const int along_size = horizontal ? w : h;
    const int p = horizontal ? w / 2 : (h / 2) & ~1;
    const int start = forward ? p : along_size - p, end = forward ? along_size - p : p;
    const int x0 = horizontal ? (forward ? 300 : 1500) : 900;
    const int y0 = horizontal ? 500 : (forward ? 100 : 900);

    ZMOSDIRECTSTITCHER* s = nullptr;
    ASSERT_EQ(
        ZMOSCreateDirectImageStitcher_DIS(&s, cw, ch, ZMOS_FORMAT_NV21, direction, 400, nullptr),
        0);
    test::Rng rng(direction + 1);
    int along = 0, cross = 0, main_offset = 0;
    const std::int32_t none[2] = {0, 0};
    {
      Frame first(*photo, x0, y0, w, h);
      ASSERT_EQ(ZMOSAddImage_DIS(s, first.get(), none, start, p, strip, 0), 0);
    }
    for (bool last = false; !last;) {
      const int step = rng.Range(6, strip - 2), drift = rng.Range(-2, 2);
      along += step;
      cross += drift;
      main_offset += step;
      last = end + main_offset + start >= pano;
      const int sign = forward ? 1 : -1;
      const int fx = horizontal ? x0 + sign * along : x0 + cross;
      const int fy = horizontal ? y0 + cross : y0 + sign * along;
      Frame frame(*photo, fx, fy, w, h);
      const std::int32_t offset[2] = {horizontal ? sign * step : drift,
                                      horizontal ? drift : sign * step};
      ASSERT_EQ(
          ZMOSAddImage_DIS(s, frame.get(), offset, (step / 2) & ~1, p, last ? end : strip, last),
          0);
    }
    ASSERT_EQ(ZMOSStitchBlendImage_DIS(s), 0);
    ZMOSRECT valid{};
    ZMOSGetValidRect_DIS(s, &valid);
    ZMOSIMAGE* canvas = nullptr;
    ZMOSGetResultImage_DIS(s, &canvas);
    ASSERT_GT(valid.lRight - valid.lLeft, w / 2);
    ASSERT_GT(valid.lBottom - valid.lTop, h / 2);
    // Where the first frame's top-left corner sits on the canvas.
    const int ou = direction == 1 ? cw - w : 0, ov = direction == 3 ? ch - h : 0;
    double luma_err = 0, chroma_err = 0;
    long luma_n = 0, chroma_n = 0;
    for (int v = valid.lTop; v < valid.lBottom; ++v) {
      for (int u = valid.lLeft; u < valid.lRight; ++u) {
        const int d =
            canvas->pPlane[0][v * canvas->lPitch[0] + u] - photo->y.at(x0 + u - ou, y0 + v - ov);
        luma_err += d * d;
        ++luma_n;
        if ((u | v) & 1) continue;
        const int px = x0 + u - ou, py = y0 + v - ov;
        auto mean = [&](const test::Plane8& pl) {
          return (pl.at(px, py) + pl.at(px + 1, py) + pl.at(px, py + 1) + pl.at(px + 1, py + 1) +
                  2) /
                 4;
        };
        const std::uint8_t* c = canvas->pPlane[1] + (v / 2) * canvas->lPitch[1] + u;
        const int dv = c[0] - mean(photo->v), du = c[1] - mean(photo->u);
        chroma_err += dv * dv + du * du;
        chroma_n += 2;
      }
    }
    const double luma_mse = luma_err / luma_n, chroma_mse = chroma_err / chroma_n;
    const double chroma_psnr = chroma_mse > 0 ? 10 * std::log10(255.0 * 255.0 / chroma_mse) : 99;
    RecordProperty("chroma_psnr_dir" + std::to_string(direction), static_cast<int>(chroma_psnr));
    EXPECT_EQ(luma_mse, 0.0);
    EXPECT_GT(chroma_psnr, 38.0);
    ZMOSReleaseDirectImageStitcher_DIS(&s);
  }
}

}  // namespace
}  // namespace lumivex::stitch
