// The quality profile's exposure pass. The step between two strips is the luma ratio of
// their overlap over pixels that neither frame clipped (or lost in the dark): how bright
// the clipped parts of a scene are must not change the correction of the rest.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include "lumivex/select.h"
#include "src/stitch/direct_stitcher.h"
#include "src/stitch/exposure.h"

namespace lumivex::stitch {
namespace {

// Eight frames of a horizontal sweep laid 64 px apart on a grey canvas, each overlap 32 px
// wide; frames 4 on are exposed brighter (a jump), the others alike.
constexpr int kFrames = 8, kSpacing = 64, kOverlap = 32, kRows = 64;

struct Sweep {
  std::vector<std::uint8_t> canvas_px, strips_px;
  ZMOSIMAGE canvas{}, strips{};
  std::array<ZMOSRECT, 2 * kFrames> rects{};
  ZMOSDIRECTSTITCHER dis{};
};

// A scene: mid-grey texture (multiples of 8, so that the brighter frames show them
// exactly) but for `bright_in_5` of every 5 pixels, which are `bright`; frames 4 on are
// exposed `gain` times brighter.
struct Look {
  int bright = 235;
  double gain = 1.125;
  int bright_in_5 = 2;
};

bool IsBright(int x, int y, const Look& look) {
  return (x + y) % 5 < look.bright_in_5;
}
std::uint8_t Exposed(int x, int y, const Look& look, int frame) {
  const int v = IsBright(x, y, look) ? look.bright : 40 + 8 * ((x * 7 + y * 13) % 13);
  const double gain = frame >= 4 ? look.gain : 1.0;
  return static_cast<std::uint8_t>(std::min(255L, std::lround(v * gain)));
}

void Build(const Look& look, Sweep* s) {
  const int width = kFrames * kSpacing;
  s->canvas_px.resize(static_cast<std::size_t>(width) * kRows);
  s->strips_px.resize(static_cast<std::size_t>(kOverlap) * kRows * kFrames);
  // The canvas holds, at each column, the frame laid there (an overlap still shows the
  // earlier frame); the strips keep each later frame's own view of its overlap.
  for (int y = 0; y < kRows; ++y)
    for (int x = 0; x < width; ++x)
      s->canvas_px[static_cast<std::size_t>(y) * width + x] = Exposed(x, y, look, x / kSpacing);
  for (int i = 1; i < kFrames; ++i)
    for (int y = 0; y < kRows; ++y)
      for (int x = 0; x < kOverlap; ++x)
        s->strips_px[(static_cast<std::size_t>(i) * kRows + y) * kOverlap + x] =
            Exposed(i * kSpacing - kOverlap + x, y, look, i);
  s->canvas = ZMOSIMAGE{ZMOS_FORMAT_GREY, width, kRows, {s->canvas_px.data()}, {width}};
  s->strips =
      ZMOSIMAGE{ZMOS_FORMAT_GREY, kOverlap, kRows * kFrames, {s->strips_px.data()}, {kOverlap}};
  ZMOSRECT* overlaps = s->rects.data();
  ZMOSRECT* strips = overlaps + kFrames;
  for (int i = 0; i < kFrames; ++i) {
    overlaps[i] = ZMOSRECT{i * kSpacing - kOverlap, 0, i * kSpacing, kRows};
    strips[i] = ZMOSRECT{0, i * kRows, kOverlap, (i + 1) * kRows};
  }
  s->dis.lCount = kFrames;
  s->dis.lDirection = ZMOS_DIRECTION_LEFT_TO_RIGHT;
  s->dis.lContentEnd = width;
  s->dis.pOverlapRects = overlaps;
  s->dis.pStripRects = strips;
  s->dis.pCanvas = &s->canvas;
  s->dis.pStrips = &s->strips;
}

TEST(Exposure, ClippedPixelsDoNotMoveTheCorrection) {
  // 235 an eighth brighter clips in the later frames; 200 does not.
  Sweep clipping, unclipped;
  Build(Look{235}, &clipping);
  Build(Look{200}, &unclipped);
  ASSERT_EQ(EqualizeExposure(clipping.dis), 0);
  ASSERT_EQ(EqualizeExposure(unclipped.dis), 0);
  const int width = kFrames * kSpacing;
  int corrected = 0, differ = 0;
  for (int y = 0; y < kRows; ++y)
    for (int x = 0; x < width; ++x) {
      if (IsBright(x, y, Look{})) continue;
      const std::size_t i = static_cast<std::size_t>(y) * width + x;
      differ += clipping.canvas_px[i] != unclipped.canvas_px[i];
      corrected += clipping.canvas_px[i] != Exposed(x, y, Look{235}, x / kSpacing);
    }
  EXPECT_GT(corrected, width * kRows / 8) << "the jump should have been corrected";
  EXPECT_EQ(differ, 0) << "the clipped pixels changed the correction of the rest";
}

// What is not exposure is left alone: a step beyond 0.8-1.25 (a person walking through
// the overlap, a misread), and steps measured on too few usable pixels (here four in five
// pixels clip in the brighter frames, leaving too few seams to go on).
TEST(Exposure, LeavesWhatIsNotExposureAlone) {
  for (const Look& look : {Look{235, 1.4, 2}, Look{235, 1.125, 4}}) {
    SCOPED_TRACE(testing::Message() << "gain " << look.gain << ", bright " << look.bright_in_5);
    Sweep sweep;
    Build(look, &sweep);
    const std::vector<std::uint8_t> before = sweep.canvas_px;
    ASSERT_EQ(EqualizeExposure(sweep.dis), 0);
    EXPECT_EQ(sweep.canvas_px, before);
  }
}

}  // namespace
}  // namespace lumivex::stitch
