#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "lumivex/track.h"
#include "tests/support/test_support.h"

namespace {

using lumivex::test::Frame;
using lumivex::test::GuardedImage;

TEST(Gradient, KernelContracts) {
  GuardedImage img(ZMOS_FORMAT_GREY, 200, 480, 0, 3);
  std::vector<std::int32_t> out(600, 7);
  // Two rows: nothing to differentiate; the first W entries are cleared.
  ZMOSRECT r{0, 0, 50, 2};
  ASSERT_EQ(ZMOSCalcIyVertProj(img.get(), &r, out.data(), nullptr), 0);
  for (int i = 0; i < 50; ++i) ASSERT_EQ(out[i], 0);
  EXPECT_EQ(out[50], 7);
  // A 160 x 480 rectangle clears only entries 0-159 before filling 0-477.
  std::fill(out.begin(), out.end(), 7);
  r = {20, 0, 180, 480};
  ASSERT_EQ(ZMOSCalcIyVertProj(img.get(), &r, out.data(), nullptr), 0);
  std::vector<std::int32_t> cleared(600, 0);
  ASSERT_EQ(ZMOSCalcIyVertProj(img.get(), &r, cleared.data(), nullptr), 0);
  for (int i = 0; i < 478; ++i) ASSERT_EQ(out[i], cleared[i] + (i < 160 ? 0 : 7)) << i;
  EXPECT_EQ(out[478], 7);
  // Edges are checked: right may equal the width, not pass it.
  r = {150, 0, 200, 10};
  EXPECT_EQ(ZMOSCalcIxHoriProj(img.get(), &r, out.data(), nullptr), 0);
  r = {150, 0, 201, 10};
  EXPECT_EQ(ZMOSCalcIxHoriProj(img.get(), &r, out.data(), nullptr), 2);
  GuardedImage packed(0x503, 40, 10);
  r = {0, 0, 20, 10};
  EXPECT_EQ(ZMOSCalcIxHoriProj(packed.get(), &r, out.data(), nullptr), 3);
  EXPECT_EQ(ZMOSCalcIxIy(img.get(), &r, out.data(), out.data(), 19, nullptr), 2);  // stride < W
  EXPECT_EQ(ZMOSCalcIyVertProj(img.get(), &r, nullptr, nullptr), 2);
}

// The two rounding schemes of Ix/Iy on a horizontal ramp: byte-per-pixel scales the sum
// once, packed pixels scale each term.
TEST(Gradient, IxIyRoundingSchemes) {
  GuardedImage grey(ZMOS_FORMAT_GREY, 16, 8, 0, 1), packed(0x501, 16, 8, 0, 1);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 16; ++x) {
      grey.at(0, x, y) = static_cast<std::uint8_t>(7 * x + y);
      packed.at(0, 2 * x, y) = static_cast<std::uint8_t>(7 * x + y);
    }
  const ZMOSRECT r{0, 0, 16, 8};
  std::vector<std::int32_t> ix(6 * 16), iy(6 * 16), pix(6 * 16), piy(6 * 16);
  ASSERT_EQ(ZMOSCalcIxIy(grey.get(), &r, ix.data(), iy.data(), 16, nullptr), 0);
  ASSERT_EQ(ZMOSCalcIxIy(packed.get(), &r, pix.data(), piy.data(), 16, nullptr), 0);
  // s(x+2) - s(x) = 16 x 14 = 224; 224 >> 5 = 7. Packed: s' steps are (p*5>>4) + (2p*3>>5).
  EXPECT_EQ(ix[0], 7);
  // d = 2 for every column: (2+2)*3 + 2*10 = 32 >> 5 = 1; packed: (2*5>>4) + (4*3>>5) = 0.
  EXPECT_EQ(iy[0], 1);
  EXPECT_EQ(piy[0], 0);
  const int p0 = 7 * 0 + 1, p2 = 7 * 2 + 1;
  auto s = [](int up, int mid, int down) { return ((mid * 5) >> 4) + (((up + down) * 3) >> 5); };
  EXPECT_EQ(pix[0], s(p2 - 1, p2, p2 + 1) - s(p0 - 1, p0, p0 + 1));
}

// The gradient tracker recovers known shifts between cuts of the photograph.
TEST(Gradient, TrackerRecoversShifts) {
  const lumivex::test::Plane8* photo = lumivex::test::Photo();
  LUMIVEX_REQUIRE_PHOTO(photo == nullptr);
  for (int mode : {0, 1}) {
    for (int d : {-20, -7, 0, 5, 18}) {
      ZMOSVideoTracker* t = nullptr;
      ASSERT_EQ(ZMOSCreateVideoTracker_PBM(&t, 640, 480, mode, nullptr), 0);
      const int dx = mode == 0 ? d : 0, dy = mode == 0 ? 0 : d;
      Frame a(*photo, 2000, 1300, 640, 480), b(*photo, 2000 + dx, 1300 + dy, 640, 480);
      std::int32_t off[2] = {9, 9};
      ASSERT_EQ(ZMOSVideoTrackerGradientRun_PBM(t, a.get(), off, 1), 0);
      EXPECT_EQ(off[0], 0);
      ASSERT_EQ(ZMOSVideoTrackerGradientRun_PBM(t, b.get(), off, 1), 0);
      EXPECT_EQ(off[0], dx) << "mode " << mode << " shift " << d;
      EXPECT_EQ(off[1], dy) << "mode " << mode << " shift " << d;
      Frame small(*photo, 0, 0, 320, 240);
      EXPECT_EQ(ZMOSVideoTrackerGradientRun_PBM(t, small.get(), off, 1), 2);
      ZMOSReleaseVideoTracker_PBM(&t);
    }
  }
  // Over a sequence with swaps, the horizontal sweep measures each frame against the one
  // before, the vertical sweep keeps measuring against its first frame.
  for (int mode : {0, 1}) {
    ZMOSVideoTracker* t = nullptr;
    ASSERT_EQ(ZMOSCreateVideoTracker_PBM(&t, 640, 480, mode, nullptr), 0);
    std::int32_t off[2] = {0, 0};
    for (int k = 0; k < 3; ++k) {
      const int step = 6 * k;
      Frame f(*photo, 2000 + (mode == 0 ? step : 0), 1300 + (mode == 1 ? step : 0), 640, 480);
      ASSERT_EQ(ZMOSVideoTrackerGradientRun_PBM(t, f.get(), off, 1), 0);
      if (k == 0) continue;
      EXPECT_EQ(off[mode], mode == 0 ? 6 : step) << "mode " << mode << " frame " << k;
    }
    ZMOSReleaseVideoTracker_PBM(&t);
  }
}

}  // namespace
