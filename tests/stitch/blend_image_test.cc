#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "lumivex/stitch.h"
#include "src/stitch/blend_internal.h"
#include "tests/support/test_support.h"

namespace lumivex::stitch {
namespace {

using test::GuardedImage;

// 90 columns with the built-in table are not searched: the seam is column 45, the band
// half-width min(45, 44) rounds to 32, so the table fades columns 40-49 exactly.
TEST(BlendImage, StraightSeamFadesTheBuiltInBand) {
  ZMOSReleaseBlendTable();
  g_BlendTable = nullptr;
  GuardedImage a(ZMOS_FORMAT_NV21, 100, 20, 0, 1), b(ZMOS_FORMAT_NV21, 100, 20, 0, 2);
  GuardedImage keep(ZMOS_FORMAT_NV21, 100, 20, 0, 1);
  const ZMOSRECT r{5, 0, 95, 20};
  ASSERT_EQ(ZMOSBlendImage_AME(a.get(), r, b.get(), r, 0, nullptr), 0);
  EXPECT_EQ(g_BlendTableWidth, 10);
  EXPECT_EQ(g_BlendTable[0], 58982);
  EXPECT_EQ(g_BlendTable[9], 6553);
  for (int y = 0; y < 20; ++y) {
    for (int c = 0; c < 90; ++c) {
      const int x = 5 + c;
      int want = keep.at(0, x, y);
      if (c >= 40 && c < 50) {
        const int k = c - 40;
        want = std::clamp(
            (g_BlendTable[k] * keep.at(0, x, y) + g_BlendTable[9 - k] * b.at(0, x, y) + 32768) >>
                16,
            0, 255);
      } else if (c >= 50) {
        want = b.at(0, x, y);
      }
      ASSERT_EQ(a.at(0, x, y), want) << "column " << c;
    }
  }
}

// An object that moved: only in the incoming image. The searched seam goes around it, so
// it ends up either whole or not at all.
TEST(BlendImage, SeamGoesAroundAMovingObject) {
  test::Plane8 tex = test::SyntheticTexture(300, 120, 5);
  test::Frame kept(tex, 0, 0, 300, 120), incoming(tex, 0, 0, 300, 120);
  // The object: a bright square across the middle of the overlap.
  for (int y = 30; y < 70; ++y)
    for (int x = 120; x < 160; ++x) incoming.get()->pPlane[0][y * 300 + x] = 250;
  const ZMOSRECT r{40, 0, 260, 120};
  ASSERT_EQ(ZMOSBlendImage_AME(kept.get(), r, incoming.get(), r, 0, nullptr), 0);
  int bright = 0;
  for (int y = 30; y < 70; ++y)
    for (int x = 120; x < 160; ++x) bright += kept.get()->pPlane[0][y * 300 + x] == 250;
  EXPECT_TRUE(bright == 0 || bright == 40 * 40) << bright << " object pixels taken";
  // Elsewhere both images agree, so the merge is the texture itself.
  for (int x = 0; x < 300; ++x) EXPECT_EQ(kept.get()->pPlane[0][100 * 300 + x], tex.at(x, 100));
}

TEST(BlendImage, ChecksRectanglesAndChromaSizes) {
  GuardedImage a(ZMOS_FORMAT_I420, 100, 20, 3, 1), b(ZMOS_FORMAT_I420, 100, 20, 3, 2);
  const ZMOSRECT ok{0, 0, 40, 20};
  for (const ZMOSRECT bad :
       {ZMOSRECT{-1, 0, 39, 20}, ZMOSRECT{70, 0, 101, 20}, ZMOSRECT{30, 0, 20, 20}}) {
    EXPECT_EQ(ZMOSBlendImage_AME(a.get(), bad, b.get(), ok, 0, nullptr), 5);
    EXPECT_EQ(ZMOSBlendImage_AME(a.get(), ok, b.get(), bad, 0, nullptr), 5);
  }
  EXPECT_TRUE(a.GuardsIntact());
  // 4:2:0 needs an even width: 41 columns give inconsistent chroma sizes, judged after
  // the luminance was blended.
  const ZMOSRECT odd{0, 0, 41, 20};
  const std::uint8_t right_of_seam = a.at(0, 30, 5);
  EXPECT_EQ(ZMOSBlendImage_AME(a.get(), odd, b.get(), odd, 0, nullptr), 3);
  EXPECT_EQ(a.at(0, 30, 5), b.at(0, 30, 5));
  EXPECT_NE(a.at(0, 30, 5), right_of_seam);
  GuardedImage p(0x505, 64, 8), q(0x505, 64, 8);
  const ZMOSRECT packed{0, 0, 40, 8};
  EXPECT_EQ(ZMOSBlendImage_AME(p.get(), packed, q.get(), packed, 0, nullptr), 3);
  // The flag blends into the second image and copies the region back into the first.
  GuardedImage c(ZMOS_FORMAT_NV21, 60, 10, 0, 3), d(ZMOS_FORMAT_NV21, 60, 10, 0, 4);
  const ZMOSRECT r{0, 0, 60, 10};
  ASSERT_EQ(ZMOSBlendImage_AME(c.get(), r, d.get(), r, 1, nullptr), 0);
  for (int x = 0; x < 60; ++x) EXPECT_EQ(c.at(0, x, 4), d.at(0, x, 4));
  EXPECT_TRUE(c.GuardsIntact());
  EXPECT_TRUE(d.GuardsIntact());
}

// Rules of the row blend that reach past the overlap, and the checks it does not make.
TEST(BlendImage, NarrowCopiesPackedChromaAndFreeRectangles) {
  // A 4-column overlap: seam 2, half-width 1, so the ten averages and the copy after them
  // run n - 2h = 8 samples past the overlap; the copy lands on overlap column 11 only.
  GuardedImage k(ZMOS_FORMAT_NV21, 40, 2, 0, 1), n(ZMOS_FORMAT_NV21, 40, 2, 0, 2);
  GuardedImage k0(ZMOS_FORMAT_NV21, 40, 2, 0, 1);
  ASSERT_EQ(ZMOSBlendImage_AME(k.get(), ZMOSRECT{10, 0, 14, 2}, n.get(), ZMOSRECT{10, 0, 14, 2}, 0,
                               nullptr),
            0);
  for (int x = 14; x < 40; ++x)
    EXPECT_EQ(k.at(0, x, 0), x == 21 ? n.at(0, x, 0) : k0.at(0, x, 0)) << x;
  // Clipped at the image: the same overlap at the right edge copies nothing past it.
  ASSERT_EQ(ZMOSBlendImage_AME(k.get(), ZMOSRECT{34, 0, 38, 2}, n.get(), ZMOSRECT{34, 0, 38, 2}, 0,
                               nullptr),
            0);
  EXPECT_TRUE(k.GuardsIntact());

  // 0x503/0x504 carry chroma before each luma byte; it goes with the copied part.
  for (std::uint32_t f : {0x503u, 0x504u}) {
    GuardedImage p(f, 40, 2, 0, 3), q(f, 40, 2, 0, 4), p0(f, 40, 2, 0, 3);
    ASSERT_EQ(ZMOSBlendImage_AME(p.get(), ZMOSRECT{0, 0, 20, 2}, q.get(), ZMOSRECT{0, 0, 20, 2}, 0,
                                 nullptr),
              0);
    for (int x = 15; x < 20; ++x) {
      EXPECT_EQ(p.at(0, 2 * x + 1, 1), q.at(0, 2 * x + 1, 1)) << x;  // luma copied
      EXPECT_EQ(p.at(0, 2 * x, 1), q.at(0, 2 * x, 1)) << x;          // with its chroma
    }
    EXPECT_EQ(p.at(0, 2 * 20, 1), p0.at(0, 2 * 20, 1));
  }

  // Unequal rectangles, mixed formats and rows past the bottom are taken: only what lies
  // in both images is read or written.
  GuardedImage wide(ZMOS_FORMAT_NV21, 120, 30, 2, 5), small(ZMOS_FORMAT_I420, 50, 10, 1, 6);
  EXPECT_EQ(ZMOSBlendImage_AME(wide.get(), ZMOSRECT{0, 4, 110, 40}, small.get(),
                               ZMOSRECT{10, 0, 30, 20}, 0, nullptr),
            0);
  EXPECT_EQ(ZMOSBlendImage_AME(wide.get(), ZMOSRECT{0, 4, 110, 40}, small.get(),
                               ZMOSRECT{10, 0, 30, 20}, 1, nullptr),
            0);
  EXPECT_TRUE(wide.GuardsIntact());
  EXPECT_TRUE(small.GuardsIntact());
}

}  // namespace
}  // namespace lumivex::stitch
