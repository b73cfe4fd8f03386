// The quality profile's refinement of a kept frame's travel at the seam: against the
// previous strip on the canvas, from a tracker's estimate a few pixels off, in every
// direction; and where it must leave the estimate alone.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "lumivex/stitch.h"
#include "src/stitch/direct_stitcher.h"
#include "src/stitch/refine.h"
#include "tests/support/test_support.h"

namespace lumivex::stitch {
namespace {

using test::Frame;
using test::Plane8;

constexpr int kW = 320, kH = 240, kStrip = 30;

// A canvas with one frame laid at (x0, y0) of the scene, as the engine lays the first.
struct Laid {
  ZMOSDIRECTSTITCHER* dis = nullptr;
  int direction, seam;
  Laid(const Plane8& scene, int direction, int x0, int y0) : direction(direction) {
    const bool horizontal = direction < 2;
    const int along = horizontal ? 3 * kW : 3 * kW, w = horizontal ? along : kW,
              h = horizontal ? kH : along;
    seam = horizontal ? kW / 2 : (kH / 2) & ~1;
    EXPECT_EQ(
        ZMOSCreateDirectImageStitcher_DIS(&dis, w, h, ZMOS_FORMAT_NV21, direction, 100, nullptr),
        0);
    Frame first(scene, x0, y0, kW, kH);
    const std::int32_t none[2] = {0, 0};
    const int size = horizontal ? kW : kH;
    const bool forward = direction == 0 || direction == 2;
    EXPECT_EQ(
        ZMOSAddImage_DIS(dis, first.get(), none, forward ? seam : size - seam, seam, kStrip, 0), 0);
  }
  ~Laid() { ZMOSReleaseDirectImageStitcher_DIS(&dis); }
};

// The scene position of a frame that travelled (along, across) from (x0, y0).
void Moved(int direction, int x0, int y0, int along, int across, int* x, int* y) {
  const bool horizontal = direction < 2;
  *x = x0 + (horizontal ? along : across);
  *y = y0 + (horizontal ? across : along);
}

// Random travels and tracker errors: the refined travel is the true one. Within the
// fine search the refinement finds it on its own; farther, the sweep's recent speed (the
// expected travel) sends it to the coarse search.
TEST(RefineTravel, FindsTheTravelTheTrackersMissed) {
  const Plane8 scene = test::SyntheticTexture(1400, 1400, 5);
  test::Rng rng(17);
  int moved = 0;
  for (int trial = 0; trial < 160; ++trial) {
    const int direction = trial % 4;
    const int sign = direction == 0 || direction == 2 ? 1 : -1;
    const int along = sign * rng.Range(8, 24), across = rng.Range(-2, 2);
    const bool far = trial % 3 == 0;
    const int error_along = far ? rng.Range(-10, 10) : rng.Range(-4, 4);
    const int error_across = rng.Range(-2, 2);
    SCOPED_TRACE(testing::Message() << "direction " << direction << " travel " << along << ","
                                    << across << " error " << error_along << "," << error_across);
    const int x0 = 500, y0 = 500;
    Laid laid(scene, direction, x0, y0);
    int x, y;
    Moved(direction, x0, y0, along, across, &x, &y);
    Frame next(scene, x, y, kW, kH);
    const bool horizontal = direction < 2;
    std::int32_t offset[2] = {horizontal ? along + error_along : across + error_across,
                              horizontal ? across + error_across : along + error_along};
    // The estimate must keep going the sweep's way, as a kept frame's does.
    if (sign * (along + error_along) < 2) continue;
    const std::int32_t expected = far ? along : kNoExpectation;
    const bool changed = RefineTravel(*laid.dis, *next.get(), laid.seam, kStrip, offset, expected);
    EXPECT_EQ(offset[horizontal ? 0 : 1], along);
    EXPECT_EQ(offset[horizontal ? 1 : 0], across);
    EXPECT_EQ(changed, error_along != 0 || error_across != 0);
    moved += changed;
  }
  EXPECT_GT(moved, 100);
}

// A place is taken only when it is clearly better than the trackers' (by a 32nd of their
// difference), not on noise over a flat minimum. A frame that lies a share w of the way
// toward the next pixel of a black-and-white scene differs from the estimate by w and
// from the next place by 1 - w of every edge: 0.53 moves on, 0.506 (2.3 % better) does not.
TEST(RefineTravel, MovesOnlyWhenClearlyBetter) {
  Plane8 scene{1400, 1400, std::vector<std::uint8_t>(1400 * 1400)};
  test::Rng rng(23);
  for (auto& v : scene.pixels) v = rng.Range(0, 1) ? 255 : 0;
  for (const double w : {0.53, 0.506}) {
    SCOPED_TRACE(testing::Message() << "share " << w);
    Plane8 between = scene;
    for (int y = 0; y < scene.height; ++y)
      for (int x = 0; x + 1 < scene.width; ++x)
        between.pixels[static_cast<std::size_t>(y) * scene.width + x] = static_cast<std::uint8_t>(
            std::lround(w * scene.at(x + 1, y) + (1 - w) * scene.at(x, y)));
    Laid laid(scene, 0, 500, 500);
    Frame next(between, 512, 500, kW, kH);
    std::int32_t offset[2] = {12, 0};
    const bool moved =
        RefineTravel(*laid.dis, *next.get(), laid.seam, kStrip, offset, kNoExpectation);
    EXPECT_EQ(moved, w > 0.52);
    EXPECT_EQ(offset[0], w > 0.52 ? 13 : 12);
    EXPECT_EQ(offset[1], 0);
  }
}

// Where nothing can tell one place from another, or the previous strip is out of reach,
// the estimate stands; a refinement never turns the sweep back.
TEST(RefineTravel, LeavesTheEstimateWhereItCannotTell) {
  Plane8 flat{1400, 1400, std::vector<std::uint8_t>(1400 * 1400, 150)};
  {
    Laid laid(flat, 0, 500, 500);
    Frame next(flat, 512, 500, kW, kH);
    std::int32_t offset[2] = {9, 1};
    EXPECT_FALSE(RefineTravel(*laid.dis, *next.get(), laid.seam, kStrip, offset, 12));
    EXPECT_EQ(offset[0], 9);
    EXPECT_EQ(offset[1], 1);
  }
  const Plane8 scene = test::SyntheticTexture(1400, 1400, 6);
  {
    // Travelled past the previous strip: nothing of it to compare with.
    Laid laid(scene, 0, 500, 500);
    Frame next(scene, 500 + kStrip + 20, 500, kW, kH);
    std::int32_t offset[2] = {kStrip + 20, 0};
    EXPECT_FALSE(RefineTravel(*laid.dis, *next.get(), laid.seam, kStrip, offset, kNoExpectation));
    EXPECT_EQ(offset[0], kStrip + 20);
  }
  for (int direction : {0, 1, 2, 3}) {
    // The truth is a step back: the refinement stops at one pixel forward.
    const int sign = direction == 0 || direction == 2 ? 1 : -1;
    Laid laid(scene, direction, 500, 500);
    int x, y;
    Moved(direction, 500, 500, -sign * 2, 0, &x, &y);
    Frame next(scene, x, y, kW, kH);
    std::int32_t offset[2] = {0, 0};
    offset[direction < 2 ? 0 : 1] = sign * 3;
    RefineTravel(*laid.dis, *next.get(), laid.seam, kStrip, offset, kNoExpectation);
    EXPECT_EQ(offset[direction < 2 ? 0 : 1], sign) << "direction " << direction;
  }
  // A frame of another format than the canvas is not compared.
  {
    Laid laid(scene, 0, 500, 500);
    Frame grey(scene, 510, 500, kW, kH, ZMOS_FORMAT_GREY);
    std::int32_t offset[2] = {7, 0};
    EXPECT_FALSE(RefineTravel(*laid.dis, *grey.get(), laid.seam, kStrip, offset, 10));
    EXPECT_EQ(offset[0], 7);
  }
}

}  // namespace
}  // namespace lumivex::stitch
