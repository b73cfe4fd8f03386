#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <vector>

#include "lumivex/stitch.h"
#include "src/stitch/blend_internal.h"
#include "tests/support/test_support.h"

namespace lumivex::stitch {
namespace {

using test::GuardedImage;
using test::Rng;

// Q16 weight k of an even-width table, from its definition.
std::int32_t Weight(std::int32_t k, std::int32_t w) {
  return static_cast<std::int32_t>((k < w / 2 ? w - 1 - k : w - k) * std::int64_t{65536} / w);
}
int Mix(std::int32_t wa, int a, std::int32_t wb, int b) {
  return std::clamp((wa * a + wb * b + 32768) >> 16, 0, 255);
}

void Fill(GuardedImage& img, int plane, const std::function<int(int x, int y)>& value) {
  for (int y = 0; y < img.rows(plane); ++y)
    for (int x = 0; x < img.row_bytes(plane); ++x)
      img.at(plane, x, y) = static_cast<std::uint8_t>(value(x, y));
}

using BlendFn = int32_t (*)(ZMOSIMAGE*, const ZMOSRECT*, const ZMOSIMAGE*, const ZMOSRECT*, int32_t,
                            MHandle);

// A white first image and a black second one: the overlap's luminance is the exact Q16
// ramp of the table, the second image at its own side.
TEST(SeamBlend, BlackAndWhiteGiveTheExactRamp) {
  for (std::uint32_t f : {0x601u, 0x802u}) {
    for (int side : {0, 1}) {
      // Left to right over 100 columns.
      GuardedImage first(f, 140, 20, 3, 1), second(f, 120, 20, 5, 2);
      Fill(first, 0, [](int, int) { return 255; });
      Fill(second, 0, [](int, int) { return 0; });
      ZMOSRECT r1{20, 0, 120, 20}, r2{10, 0, 110, 20};
      ASSERT_EQ(ZMOSBlendImageOdd_AME(first.get(), &r1, second.get(), &r2, side, nullptr), 0);
      for (int y = 0; y < 20; ++y) {
        for (int k = 0; k < 100; ++k) {
          const int want = side == 0 ? Mix(Weight(k, 100), 0, Weight(99 - k, 100), 255)
                                     : Mix(Weight(k, 100), 255, Weight(99 - k, 100), 0);
          ASSERT_EQ(first.at(0, 20 + k, y), want) << "column " << k << " side " << side;
        }
        EXPECT_EQ(first.at(0, 19, y), 255);
        EXPECT_EQ(first.at(0, 120, y), 255);
      }
      EXPECT_TRUE(first.GuardsIntact());

      // Top to bottom over 100 rows, 40 columns.
      GuardedImage top(f, 60, 130, 3, 3), bottom(f, 50, 110, 1, 4);
      Fill(top, 0, [](int, int) { return 255; });
      Fill(bottom, 0, [](int, int) { return 0; });
      r1 = {10, 20, 50, 120};
      r2 = {6, 4, 46, 104};
      ASSERT_EQ(ZMOSBlendImageOddT2B_AME(top.get(), &r1, bottom.get(), &r2, side, nullptr), 0);
      for (int x = 10; x < 50; ++x) {
        for (int k = 0; k < 100; ++k) {
          const int want = side == 0 ? Mix(Weight(k, 100), 0, Weight(99 - k, 100), 255)
                                     : Mix(Weight(k, 100), 255, Weight(99 - k, 100), 0);
          ASSERT_EQ(top.at(0, x, 20 + k), want) << "row " << k << " side " << side;
        }
      }
      EXPECT_EQ(top.at(0, 9, 50), 255);
      EXPECT_TRUE(top.GuardsIntact());
    }
  }
  EXPECT_EQ(g_BlendTable, nullptr);  // released on success
}

// Wide overlaps: a band of plain averages 512 wide around the middle, the second image
// beyond it on its side, the first image on the other.
TEST(SeamBlend, WideOverlapsAverageTheMiddle512) {
  GuardedImage first(ZMOS_FORMAT_NV21, 600, 4, 0, 1), second(ZMOS_FORMAT_NV21, 600, 4, 0, 2);
  GuardedImage before(ZMOS_FORMAT_NV21, 600, 4, 0, 1);
  const ZMOSRECT r{0, 0, 600, 4};
  ASSERT_EQ(ZMOSBlendImageOdd_AME(first.get(), &r, second.get(), &r, 0, nullptr), 0);
  for (int x = 0; x < 600; ++x) {
    const int want = x < 44    ? second.at(0, x, 2)
                     : x < 556 ? (before.at(0, x, 2) + second.at(0, x, 2)) >> 1
                               : before.at(0, x, 2);
    ASSERT_EQ(first.at(0, x, 2), want) << x;
  }

  // Top to bottom, second image below: the averages collapse into row 44 while the second
  // image is read stepping by both pitches; rows 44-131 are then copied from where the
  // stepping ended, and the rest keeps the first image.
  const int h = 600, pitch = 8;
  GuardedImage top(ZMOS_FORMAT_NV21, pitch, h, 0, 5), tall(ZMOS_FORMAT_NV21, pitch, 1700, 0, 6);
  GuardedImage keep(ZMOS_FORMAT_NV21, pitch, h, 0, 5);
  const ZMOSRECT col{3, 0, 4, h};
  ASSERT_EQ(ZMOSBlendImageOddT2B_AME(top.get(), &col, tall.get(), &col, 1, nullptr), 0);
  for (int i = 0; i < 88; ++i) {
    // The last stepped read was row 44 + 2 x 511; copies continue one row further each.
    ASSERT_EQ(top.at(0, 3, 44 + i), tall.at(0, 3, 44 + 1024 + i)) << i;
  }
  for (int y = 0; y < h; ++y) {
    if (y >= 44 && y < 132) continue;
    ASSERT_EQ(top.at(0, 3, y), keep.at(0, 3, y)) << y;
  }
  EXPECT_TRUE(top.GuardsIntact());
}

// Chroma components tagged by value (first image U 100 / V 200, second U 110 / V 210):
// whatever the parities of the two overlaps, every blended chroma byte stays within its
// own component's range, for every format family, side and orientation.
TEST(SeamBlend, LikeChromaComponentsStayTogether) {
  Rng rng(21);
  const std::uint32_t formats[] = {0x802, 0x801, 0x803, 0x601, 0x602, 0x603, 0x604, 0x501, 0x502};
  for (std::uint32_t f : formats) {
    const bool packed = (f >> 8) == 5;
    for (int trial = 0; trial < 24; ++trial) {
      const bool t2b = trial % 2 == 1;
      const int side = (trial / 2) % 2;
      const int w1 = rng.Range(40, 80), h1 = rng.Range(40, 80);
      const int w2 = rng.Range(40, 80), h2 = rng.Range(40, 80);
      GuardedImage first(f, w1, h1, rng.Range(0, 4), trial),
          second(f, w2, h2, rng.Range(0, 4), trial + 50);
      // U on the first chroma byte of a pair (even bytes, or byte 1 of a packed group).
      auto tag = [&](GuardedImage& img, int u, int v) {
        if (packed) {
          Fill(img, 0, [&](int x, int) { return x % 2 == 0 ? 128 : (x % 4 == 1 ? u : v); });
        } else if ((f >> 8) == 8) {
          Fill(img, 1, [&](int x, int) { return x % 2 == 0 ? u : v; });
        } else {
          Fill(img, 1, [&](int, int) { return u; });
          Fill(img, 2, [&](int, int) { return v; });
        }
      };
      tag(first, 100, 200);
      tag(second, 110, 210);
      const int w = rng.Range(8, std::min(w1, w2) - 1), h = rng.Range(8, std::min(h1, h2) - 1);
      const int l1 = rng.Range(0, w1 - w), t1 = rng.Range(0, h1 - h);
      const int l2 = rng.Range(0, w2 - w), t2 = rng.Range(0, h2 - h);
      const ZMOSRECT r1{l1, t1, l1 + w, t1 + h}, r2{l2, t2, l2 + w, t2 + h};
      SCOPED_TRACE(testing::Message()
                   << std::hex << "format 0x" << f << std::dec << (t2b ? " T2B" : " L2R")
                   << " side " << side << " first " << l1 << "," << t1 << " second " << l2 << ","
                   << t2 << " " << w << "x" << h);
      const BlendFn blend = t2b ? ZMOSBlendImageOddT2B_AME : ZMOSBlendImageOdd_AME;
      ASSERT_EQ(blend(first.get(), &r1, second.get(), &r2, side, nullptr), 0);
      ASSERT_TRUE(first.GuardsIntact());
      const int cp = packed ? 0 : 1;
      int blended = 0;
      for (int p = cp; p < first.planes(); ++p) {
        for (int y = 0; y < first.rows(p); ++y) {
          for (int x = 0; x < first.row_bytes(p); ++x) {
            if (packed && x % 2 == 0) continue;
            const bool u = packed ? x % 4 == 1 : (f >> 8) == 8 ? x % 2 == 0 : p == 1;
            const int v = first.at(p, x, y);
            ASSERT_TRUE(u ? (v >= 100 && v <= 110) : (v >= 200 && v <= 210))
                << "plane " << p << " byte " << x << " row " << y << " = " << v;
            blended += v != 100 && v != 200;
          }
        }
      }
      EXPECT_GT(blended, 0);
    }
  }
}

TEST(SeamBlend, OddTopsStartChromaOnTheNextRow) {
  // I420, first rectangle top 5: chroma rows start at 3 in the first image, at 4/2 = 2 in
  // the second (its position is not adjusted).
  GuardedImage first(0x601, 40, 40, 0, 1), second(0x601, 40, 40, 0, 2);
  GuardedImage before(0x601, 40, 40, 0, 1);
  const ZMOSRECT r1{4, 5, 36, 25}, r2{4, 4, 36, 24};
  ASSERT_EQ(ZMOSBlendImageOdd_AME(first.get(), &r1, second.get(), &r2, 0, nullptr), 0);
  for (int p = 1; p <= 2; ++p) {
    EXPECT_EQ(first.at(p, 2, 2), before.at(p, 2, 2));  // row 2 untouched
    // Chroma column 0 of the overlap is all second image (weight 65535/65536 rounds up).
    EXPECT_EQ(first.at(p, 2, 3),
              Mix(Weight(0, 16), second.at(p, 2, 2), Weight(15, 16), before.at(p, 2, 3)));
  }
}

TEST(SeamBlend, PassThroughFormatsAndBadArguments) {
  for (std::uint32_t f : {0x503u, 0x504u}) {
    GuardedImage a(f, 32, 16, 0, 1), b(f, 32, 16, 0, 2), before(f, 32, 16, 0, 1);
    const ZMOSRECT r{4, 0, 28, 16};
    for (BlendFn blend : {ZMOSBlendImageOdd_AME, ZMOSBlendImageOddT2B_AME}) {
      ASSERT_EQ(blend(a.get(), &r, b.get(), &r, 0, nullptr), 0);
      for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 64; ++x) ASSERT_EQ(a.at(0, x, y), before.at(0, x, y));
    }
  }
  GuardedImage p5(0x505, 32, 16), q5(0x505, 32, 16);
  const ZMOSRECT r{4, 0, 28, 16};
  // An unknown format is refused after the table was built from the overlap's extent,
  // and that table stays installed: the next blend image fades with it.
  EXPECT_EQ(ZMOSBlendImageOdd_AME(p5.get(), &r, q5.get(), &r, 0, nullptr), 3);
  EXPECT_EQ(g_BlendTableWidth, 24);
  EXPECT_EQ(ZMOSBlendImageOddT2B_AME(p5.get(), &r, q5.get(), &r, 0, nullptr), 3);
  EXPECT_EQ(g_BlendTableWidth, 16);
  ASSERT_NE(g_BlendTable, nullptr);
  {
    GuardedImage x(ZMOS_FORMAT_NV21, 40, 8, 0, 3), y(ZMOS_FORMAT_NV21, 40, 8, 0, 4);
    EXPECT_EQ(ZMOSBlendImage_AME(x.get(), ZMOSRECT{0, 0, 40, 8}, y.get(), ZMOSRECT{0, 0, 40, 8}, 0,
                                 nullptr),
              0);
    EXPECT_EQ(g_BlendTableWidth, 16);
  }
  ZMOSReleaseBlendTable();
  // A packed top-to-bottom blend whose second image ends inside a pixel pair: the chroma
  // byte past its row is skipped, the column's luminance is still blended.
  {
    GuardedImage first(0x501, 8, 20, 0, 5), second(0x501, 3, 20, 0, 6);
    // An odd first left against an even second left takes chroma 3 bytes on: byte 7 of a
    // 6-byte row.
    const ZMOSRECT r1{1, 0, 2, 20}, r2{2, 0, 3, 20};
    const std::uint8_t luma = first.at(0, 2, 19), chroma_before = first.at(0, 3, 19);
    ASSERT_EQ(ZMOSBlendImageOddT2B_AME(first.get(), &r1, second.get(), &r2, 1, nullptr), 0);
    // Last row of a 20-row band: weights 1/20 for the first image and 19/20 for the second.
    const int expected =
        (65536 * 1 / 20 * luma + 65536 * 19 / 20 * second.at(0, 4, 19) + 32768) >> 16;
    EXPECT_EQ(first.at(0, 2, 19), expected);
    EXPECT_EQ(first.at(0, 3, 19), chroma_before);
    EXPECT_TRUE(first.GuardsIntact());
  }

  GuardedImage a(ZMOS_FORMAT_NV21, 32, 16), b(ZMOS_FORMAT_NV21, 32, 16),
      c(ZMOS_FORMAT_I420, 32, 16);
  const ZMOSRECT bad[] = {{-1, 0, 10, 16}, {0, 0, 33, 16}, {12, 0, 10, 16}};
  for (BlendFn blend : {ZMOSBlendImageOdd_AME, ZMOSBlendImageOddT2B_AME}) {
    for (const ZMOSRECT& x : bad) {
      EXPECT_EQ(blend(a.get(), &x, b.get(), &r, 0, nullptr), 5);
      EXPECT_EQ(blend(a.get(), &r, b.get(), &x, 0, nullptr), 5);
    }
    EXPECT_EQ(blend(nullptr, &r, b.get(), &r, 0, nullptr), 5);
    EXPECT_EQ(blend(a.get(), nullptr, b.get(), &r, 0, nullptr), 5);
    EXPECT_EQ(blend(a.get(), &r, c.get(), &r, 0, nullptr), 5);  // mixed formats
    const ZMOSRECT empty{5, 5, 5, 5};
    EXPECT_EQ(blend(a.get(), &empty, b.get(), &empty, 0, nullptr), 0);
  }
  // Bottoms are not checked: an overlap running past the first image's bottom is
  // accepted, and only the rows inside both images are touched.
  const ZMOSRECT tall{4, 8, 28, 40};
  EXPECT_EQ(ZMOSBlendImageOddT2B_AME(a.get(), &tall, b.get(), &r, 0, nullptr), 0);
  EXPECT_EQ(ZMOSBlendImageOdd_AME(a.get(), &tall, b.get(), &r, 1, nullptr), 0);
  EXPECT_TRUE(a.GuardsIntact());
}

// Every work buffer size, from nothing up: 4 until the blend fits, never a write outside
// the images, and a finished blend once it fits.
TEST(SeamBlend, ExhaustedMemoryReturnsFourAndStaysInside) {
  for (BlendFn blend : {ZMOSBlendImageOdd_AME, ZMOSBlendImageOddT2B_AME}) {
    bool done = false;
    for (std::size_t size = 64; !done && size < 40000; size += 64) {
      GuardedImage a(ZMOS_FORMAT_NV21, 64, 48, 2, 1), b(ZMOS_FORMAT_NV21, 64, 48, 2, 2);
      test::WorkArena arena(size);
      const ZMOSRECT r{8, 4, 56, 44};
      const std::int32_t res = blend(a.get(), &r, b.get(), &r, 1, arena.handle());
      ASSERT_TRUE(res == 0 || res == ZMOS_ERR_NO_MEMORY) << res;
      ASSERT_TRUE(a.GuardsIntact());
      done = res == 0;
    }
    EXPECT_TRUE(done);
  }
}

// Random overlaps inside the images, every format the blends read: nothing outside the
// images changes (and AddressSanitizer sees no stray access).
TEST(SeamBlend, RandomOverlapsStayInsideTheImages) {
  Rng rng(33);
  const std::uint32_t formats[] = {0x601, 0x602, 0x603, 0x604, 0x605, 0x608, 0x801,
                                   0x802, 0x803, 0x501, 0x502, 0x503, 0x504, 0x701};
  for (std::uint32_t f : formats) {
    for (int trial = 0; trial < 30; ++trial) {
      const int w1 = rng.Range(2, 90), h1 = rng.Range(2, 90), w2 = rng.Range(2, 90),
                h2 = rng.Range(2, 90);
      GuardedImage a(f, w1, h1, rng.Range(0, 3), trial), b(f, w2, h2, rng.Range(0, 3), trial + 9);
      const int w = rng.Range(0, std::min(w1, w2)), h = rng.Range(0, std::min(h1, h2));
      const int l1 = rng.Range(0, w1 - w), t1 = rng.Range(0, h1 - h);
      const int l2 = rng.Range(0, w2 - w), t2 = rng.Range(0, h2 - h);
      const ZMOSRECT r1{l1, t1, l1 + w, t1 + h}, r2{l2, t2, l2 + w, t2 + h};
      const BlendFn blend = trial % 2 ? ZMOSBlendImageOddT2B_AME : ZMOSBlendImageOdd_AME;
      const std::int32_t res = blend(a.get(), &r1, b.get(), &r2, trial % 3 == 0, nullptr);
      ASSERT_TRUE(res == 0 || (f == 0x701 && res == 3)) << std::hex << f << " " << res;
      ASSERT_TRUE(a.GuardsIntact()) << std::hex << f << std::dec << " trial " << trial;
      ZMOSReleaseBlendTable();
    }
  }
}

// Two overlapping cuts of the photograph agree in their overlap: blending them gives the
// photograph back there, in both orientations.
TEST(SeamBlend, AgreeingCutsOfThePhotographJoinSeamlessly) {
  const test::Plane8* photo = test::Photo();
  LUMIVEX_REQUIRE_PHOTO(photo == nullptr);
  test::Frame left(*photo, 2000, 1200, 640, 480), right(*photo, 2300, 1200, 640, 480);
  const ZMOSRECT r1{300, 0, 640, 480}, r2{0, 0, 340, 480};
  ASSERT_EQ(ZMOSBlendImageOdd_AME(left.get(), &r1, right.get(), &r2, 1, nullptr), 0);
  int worst = 0;
  for (int y = 0; y < 480; ++y)
    for (int x = 0; x < 640; ++x)
      worst = std::max(
          worst, std::abs(left.get()->pPlane[0][y * 640 + x] - photo->at(2000 + x, 1200 + y)));
  EXPECT_LE(worst, 1);

  test::Frame upper(*photo, 2000, 900, 640, 480), lower(*photo, 2000, 1100, 640, 480);
  const ZMOSRECT u{0, 200, 640, 480}, d{0, 0, 640, 280};
  ASSERT_EQ(ZMOSBlendImageOddT2B_AME(upper.get(), &u, lower.get(), &d, 1, nullptr), 0);
  worst = 0;
  for (int y = 0; y < 480; ++y)
    for (int x = 0; x < 640; ++x)
      worst = std::max(
          worst, std::abs(upper.get()->pPlane[0][y * 640 + x] - photo->at(2000 + x, 900 + y)));
  EXPECT_LE(worst, 1);
}

}  // namespace
}  // namespace lumivex::stitch
