#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "lumivex/image.h"
#include "tests/support/test_support.h"

namespace {

using lumivex::test::GuardedImage;
using lumivex::test::Rng;

const std::uint32_t kAllFormats[] = {0x301, 0x302, 0x303, 0x304, 0x401, 0x404, 0x501, 0x502,
                                     0x503, 0x504, 0x505, 0x508, 0x601, 0x602, 0x603, 0x604,
                                     0x605, 0x608, 0x701, 0x801, 0x802, 0x803};

ZMOSRECT Rect(int l, int t, int r, int b) {
  return ZMOSRECT{l, t, r, b};
}

// Expected sample of the plain copy, written per destination byte: which source byte
// (if any) lands at (plane, x, y) of the destination.
bool PlainSource(std::uint32_t f, int plane, int x, int y, const ZMOSRECT& d, const ZMOSRECT& s,
                 int* sx, int* sy) {
  const int w = d.lRight - d.lLeft, h = d.lBottom - d.lTop;
  if (plane == 0) {
    const int bpp = (f >> 8) == 5 ? 2 : (f >> 8) <= 4 ? ((f == 0x302 || f == 0x304) ? 4 : 3) : 1;
    const int copied = bpp == 4 ? 3 : bpp;
    const int col = x - bpp * d.lLeft;
    if (col < 0 || col >= copied * w || y < d.lTop || y >= d.lTop + h) return false;
    *sx = bpp * s.lLeft + col;
    *sy = s.lTop + (y - d.lTop);
    return true;
  }
  const std::uint32_t kind = (f & 0xF00) == 0x600 ? (f - 0x601) % 4 : (f == 0x803 ? 3 : 1);
  const bool hw = (f & 0xF00) == 0x600 && (kind == 0 || kind == 2);
  const bool hh = kind == 0 || kind == 1;
  const int dl = hw ? d.lLeft / 2 : d.lLeft, sl = hw ? s.lLeft / 2 : s.lLeft;
  const int dt = hh ? d.lTop / 2 : d.lTop, st = hh ? s.lTop / 2 : s.lTop;
  const int cw = hw ? w / 2 : w, ch = hh ? h / 2 : h;
  if (x < dl || x >= dl + cw || y < dt || y >= dt + ch) return false;
  *sx = sl + (x - dl);
  *sy = st + (y - dt);
  return true;
}

// Random rectangles inside both images, for every format: the plain copy moves exactly
// the bytes the layout rules name, leaves the rest alone and writes nothing outside.
TEST(RegionCopy, PlainCopyMatchesTheLayoutRulesForEveryFormat) {
  Rng rng(7);
  for (std::uint32_t f : kAllFormats) {
    for (int trial = 0; trial < 25; ++trial) {
      const int sw = rng.Range(1, 40), sh = rng.Range(1, 30);
      const int dw = rng.Range(1, 40), dh = rng.Range(1, 30);
      GuardedImage src(f, sw, sh, rng.Range(0, 5), trial + 1);
      GuardedImage dst(f, dw, dh, rng.Range(0, 5), trial + 100);
      GuardedImage before(f, dw, dh, 0, trial + 100);
      const int w = rng.Range(0, std::min(sw, dw)), h = rng.Range(0, std::min(sh, dh));
      const int sl = rng.Range(0, sw - w), st = rng.Range(0, sh - h);
      const int dl = rng.Range(0, dw - w), dt = rng.Range(0, dh - h);
      const ZMOSRECT sr = Rect(sl, st, sl + w, st + h), dr = Rect(dl, dt, dl + w, dt + h);
      SCOPED_TRACE(testing::Message()
                   << std::hex << "format 0x" << f << std::dec << " trial " << trial);
      ASSERT_EQ(ZMOSCopyImageROI_AOD(dst.get(), &dr, src.get(), &sr), 0);
      EXPECT_TRUE(dst.GuardsIntact());
      for (int p = 0; p < dst.planes(); ++p) {
        for (int y = 0; y < dst.rows(p); ++y) {
          for (int x = 0; x < dst.row_bytes(p); ++x) {
            int sx = 0, sy = 0;
            const std::uint8_t want = (h > 0 && PlainSource(f, p, x, y, dr, sr, &sx, &sy))
                                          ? src.at(p, sx, sy)
                                          : before.at(p, x, y);
            ASSERT_EQ(dst.at(p, x, y), want) << "plane " << p << " at " << x << "," << y;
          }
        }
      }
    }
  }
}

// Rectangles that start inside but run past the border pass validation; the copy then
// stays inside both images.
TEST(RegionCopy, RectanglesRunningPastTheBorderAreClipped) {
  Rng rng(11);
  for (std::uint32_t f : kAllFormats) {
    for (int trial = 0; trial < 20; ++trial) {
      const int sw = rng.Range(2, 30), sh = rng.Range(2, 20);
      GuardedImage src(f, sw, sh, 0, trial);
      GuardedImage dst(f, sw, sh, 0, trial + 50);
      const int w = rng.Range(1, sw), h = rng.Range(1, sh);
      const int l = rng.Range(0, sw - 1), t = rng.Range(0, sh - 1);
      const ZMOSRECT r = Rect(l, t, l + w, t + h);
      EXPECT_EQ(ZMOSCopyImageROI_AOD(dst.get(), &r, src.get(), &r), 0);
      const int odd = ZMOSCopyImageROIOddRect_AOD(dst.get(), &r, src.get(), &r);
      EXPECT_EQ(odd, (f >= 0x505 && f <= 0x508) ? ZMOS_ERR_UNSUPPORTED_FORMAT : 0);
      ASSERT_TRUE(dst.GuardsIntact()) << std::hex << f;
    }
  }
  // A full-width rectangle that starts at column 1.
  GuardedImage a(ZMOS_FORMAT_NV21, 16, 8), b(ZMOS_FORMAT_NV21, 16, 8);
  const ZMOSRECT shifted = Rect(1, 0, 17, 8);
  EXPECT_EQ(ZMOSCopyImageROI_AOD(a.get(), &shifted, b.get(), nullptr), 0);
  EXPECT_TRUE(a.GuardsIntact());
}

// Chroma samples tagged by component: V (even bytes of NV21's interleaved plane, or the
// first chroma byte of a packed pair) gets an even value, U an odd one. After an
// odd-rectangle copy at any parity, every chroma byte written holds the component its
// position calls for, and luminance moves unchanged.
TEST(RegionCopy, OddRectKeepsChromaComponentsInPhase) {
  Rng rng(3);
  for (std::uint32_t f : {0x801u, 0x802u, 0x803u, 0x501u, 0x502u, 0x503u, 0x504u}) {
    const bool packed = (f >> 8) == 5;
    const int chroma = (f <= 0x502) ? 1 : 0;  // packed: first chroma byte of a pair
    for (int trial = 0; trial < 60; ++trial) {
      const int sw = rng.Range(4, 36), sh = rng.Range(4, 24);
      GuardedImage src(f, sw, sh, 2, trial);
      GuardedImage dst(f, sw + 5, sh + 3, 2, trial + 7);
      const int cp = packed ? 0 : 1;
      for (GuardedImage* img : {&src, &dst}) {
        for (int y = 0; y < img->rows(cp); ++y) {
          for (int x = 0; x < img->row_bytes(cp); ++x) {
            const bool is_chroma = !packed || (x % 2) == chroma;
            if (!is_chroma) continue;
            // First component of its pair: even; second: odd.
            const bool first = packed ? (x % 4) == chroma : (x % 2) == 0;
            img->at(cp, x, y) = static_cast<std::uint8_t>((img->at(cp, x, y) & ~1) | !first);
          }
        }
      }
      const GuardedImage& before = dst;
      std::vector<std::uint8_t> snapshot;
      for (int y = 0; y < before.rows(cp); ++y)
        for (int x = 0; x < before.row_bytes(cp); ++x) snapshot.push_back(before.at(cp, x, y));

      const int w = rng.Range(1, sw), h = rng.Range(1, sh);
      const int sl = rng.Range(0, sw - w), st = rng.Range(0, sh - h);
      const int dl = rng.Range(0, sw + 5 - w), dt = rng.Range(0, sh + 3 - h);
      const ZMOSRECT sr = Rect(sl, st, sl + w, st + h), dr = Rect(dl, dt, dl + w, dt + h);
      SCOPED_TRACE(testing::Message()
                   << std::hex << "format 0x" << f << std::dec << " src " << sl << "," << st
                   << " dst " << dl << "," << dt << " " << w << "x" << h);
      ASSERT_EQ(ZMOSCopyImageROIOddRect_AOD(dst.get(), &dr, src.get(), &sr), 0);
      ASSERT_TRUE(dst.GuardsIntact());
      int changed = 0;
      std::size_t i = 0;
      for (int y = 0; y < dst.rows(cp); ++y) {
        for (int x = 0; x < dst.row_bytes(cp); ++x, ++i) {
          const bool is_chroma = !packed || (x % 2) == chroma;
          if (!is_chroma) continue;
          const bool first = packed ? (x % 4) == chroma : (x % 2) == 0;
          ASSERT_EQ(dst.at(cp, x, y) & 1, first ? 0 : 1) << "chroma byte " << x << "," << y;
          changed += dst.at(cp, x, y) != snapshot[i];
        }
      }
      if (w >= 4 && h >= 4) {
        EXPECT_GT(changed, 0);
      }
      // Luminance: plane 0 of semi-planar images, even bytes of packed (or odd for 0x503).
      for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
          if (packed) {
            ASSERT_EQ(dst.at(0, 2 * (dl + x) + (chroma ^ 1), dt + y),
                      src.at(0, 2 * (sl + x) + (chroma ^ 1), st + y));
            // Onto an even column from an odd one, a pair takes both chroma bytes from the
            // source pair that holds its first pixel.
            if (!(dl & 1) && (sl & 1) && x % 2 == 0 && x + 1 < w) {
              for (int c = 0; c < 4; c += 2)
                ASSERT_EQ(dst.at(0, 2 * (dl + x) + chroma + c, dt + y),
                          src.at(0, 2 * (sl + x - 1) + chroma + c, st + y));
            }
          } else {
            ASSERT_EQ(dst.at(0, dl + x, dt + y), src.at(0, sl + x, st + y));
          }
        }
      }
    }
  }
}

TEST(RegionCopy, OddRectPlanarChromaStartsAtTheNextSample) {
  // I420: a destination at (3, 3) takes its chroma from (2, 2)/2 = (1, 1) of the source
  // and writes it at (4/2, 4/2) = (2, 2); chroma extent is 4/2 x 4/2.
  GuardedImage src(ZMOS_FORMAT_I420, 12, 12, 0, 1), dst(ZMOS_FORMAT_I420, 12, 12, 0, 2);
  GuardedImage before(ZMOS_FORMAT_I420, 12, 12, 0, 2);
  const ZMOSRECT sr = Rect(2, 2, 6, 6), dr = Rect(3, 3, 7, 7);
  ASSERT_EQ(ZMOSCopyImageROIOddRect_AOD(dst.get(), &dr, src.get(), &sr), 0);
  for (int p = 1; p < 3; ++p) {
    for (int y = 0; y < 6; ++y) {
      for (int x = 0; x < 6; ++x) {
        const bool inside = x >= 2 && x < 4 && y >= 2 && y < 4;
        EXPECT_EQ(dst.at(p, x, y), inside ? src.at(p, x - 1, y - 1) : before.at(p, x, y));
      }
    }
  }
  // 0x604 copies chroma like luminance.
  GuardedImage s444(0x604, 9, 9, 0, 3), d444(0x604, 9, 9, 0, 4);
  ASSERT_EQ(ZMOSCopyImageROIOddRect_AOD(d444.get(), &dr, s444.get(), &sr), 0);
  for (int p = 0; p < 3; ++p) EXPECT_EQ(d444.at(p, 3, 3), s444.at(p, 2, 2));
}

TEST(RegionCopy, OddRectSemiPlanarExamples) {
  // (1, 1, 5, 5) into (0, 0, 4, 4): the even destination left rounds the source left
  // down to 0; two chroma rows from source row 0.
  GuardedImage src(ZMOS_FORMAT_NV21, 8, 8, 0, 1), dst(ZMOS_FORMAT_NV21, 8, 8, 0, 2);
  GuardedImage before(ZMOS_FORMAT_NV21, 8, 8, 0, 2);
  ZMOSRECT sr = Rect(1, 1, 5, 5), dr = Rect(0, 0, 4, 4);
  ASSERT_EQ(ZMOSCopyImageROIOddRect_AOD(dst.get(), &dr, src.get(), &sr), 0);
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 8; ++x) {
      EXPECT_EQ(dst.at(1, x, y), (y < 2 && x < 4) ? src.at(1, x, y) : before.at(1, x, y));
    }
  }
  // (0, 0, 4, 2) into (3, 0, 7, 2): the bytes of each chroma pair change places.
  GuardedImage dst2(ZMOS_FORMAT_NV21, 8, 2, 0, 3);
  sr = Rect(0, 0, 4, 2);
  dr = Rect(3, 0, 7, 2);
  ASSERT_EQ(ZMOSCopyImageROIOddRect_AOD(dst2.get(), &dr, src.get(), &sr), 0);
  EXPECT_EQ(dst2.at(1, 3, 0), src.at(1, 1, 0));
  EXPECT_EQ(dst2.at(1, 4, 0), src.at(1, 0, 0));
  EXPECT_EQ(dst2.at(1, 5, 0), src.at(1, 3, 0));
  EXPECT_EQ(dst2.at(1, 6, 0), src.at(1, 2, 0));
  EXPECT_TRUE(dst2.GuardsIntact());
}

TEST(RegionCopy, FourBytePixelsCopyThreeBytesPerPixel) {
  GuardedImage src(0x302, 6, 2, 0, 1), dst(0x302, 6, 2, 0, 2), before(0x302, 6, 2, 0, 2);
  ASSERT_EQ(ZMOSCopyImage_AOD(dst.get(), src.get()), 0);
  // Only the first 3 x 6 bytes of each 24-byte row move.
  for (int x = 0; x < 24; ++x)
    EXPECT_EQ(dst.at(0, x, 1), x < 18 ? src.at(0, x, 1) : before.at(0, x, 1)) << x;
}

TEST(RegionCopy, InvalidArgumentsReturnTheirCodes) {
  GuardedImage a(ZMOS_FORMAT_NV21, 16, 8, 0, 1), b(ZMOS_FORMAT_NV21, 16, 8, 0, 2);
  GuardedImage i420(ZMOS_FORMAT_I420, 16, 8);
  const ZMOSRECT ok = Rect(0, 0, 8, 4);
  struct Bad {
    ZMOSRECT dst, src;
  };
  const Bad bad[] = {
      {Rect(-1, 0, 7, 4), ok},
      {Rect(0, -2, 8, 2), ok},
      {Rect(4, 0, 3, 4), ok},
      {Rect(0, 4, 8, 3), ok},
      {Rect(0, 0, 17, 4), Rect(0, 0, 17, 4)},
      {Rect(0, 0, 8, 9), Rect(0, 0, 8, 9)},
      {Rect(0, 0, 8, 4), Rect(0, 0, 8, 3)},
      {Rect(0, 0, 7, 4), ok},
  };
  for (auto copy : {ZMOSCopyImageROI_AOD, ZMOSCopyImageROIOddRect_AOD}) {
    for (const Bad& c : bad) EXPECT_EQ(copy(a.get(), &c.dst, b.get(), &c.src), 2);
    EXPECT_EQ(copy(nullptr, &ok, b.get(), &ok), 2);
    EXPECT_EQ(copy(a.get(), &ok, nullptr, &ok), 2);
    EXPECT_EQ(copy(a.get(), &ok, i420.get(), &ok), 2);  // formats differ
    // Nothing to copy: success even with missing planes.
    ZMOSIMAGE empty{ZMOS_FORMAT_NV21, 16, 8, {}, {}};
    const ZMOSRECT flat = Rect(0, 3, 8, 3);
    EXPECT_EQ(copy(&empty, &flat, b.get(), &flat), 0);
    EXPECT_EQ(copy(&empty, &ok, b.get(), &ok), 2);  // planes missing
    ZMOSIMAGE u1{0x305, 4, 4, {}, {}}, u2{0x305, 4, 4, {}, {}};
    EXPECT_EQ(copy(&u1, nullptr, &u2, nullptr), 3);
  }
  GuardedImage p1(0x506, 8, 4), p2(0x506, 8, 4);
  EXPECT_EQ(ZMOSCopyImageROI_AOD(p1.get(), nullptr, p2.get(), nullptr), 0);
  EXPECT_EQ(ZMOSCopyImageROIOddRect_AOD(p1.get(), nullptr, p2.get(), nullptr), 3);
  EXPECT_EQ(ZMOSCopyImage_AOD(nullptr, b.get()), 2);
  EXPECT_TRUE(a.GuardsIntact());
  EXPECT_TRUE(b.GuardsIntact());
}

}  // namespace
