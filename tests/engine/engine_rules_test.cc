// Rules of the engine layer: the preview reduction and where it is drawn, the tail of a
// failing selection, and where band counts are checked.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "lumivex/lumivex.h"
#include "src/engine/sweep_stitcher.h"
#include "tests/support/test_support.h"

namespace {

using lumivex::test::GuardedImage;
using lumivex::test::Rng;

// Nearest-sample reduction of a packed source as the rule reads: target pixel pair k of
// row y takes the luma of source pixels 2ks and 2ks + s of row ys, U from beside the first
// and V from beside the second.
struct PackedModel {
  const GuardedImage& src;
  std::uint8_t Luma(int x, int y) const { return src.at(0, 2 * x, y); }
  // 0x501: Y U Y V; 0x502: Y V Y U.
  std::uint8_t U(int x, int y, bool swapped) const {
    return src.at(0, 4 * (x / 2) + (swapped ? 3 : 1), y);
  }
  std::uint8_t V(int x, int y, bool swapped) const {
    return src.at(0, 4 * (x / 2) + (swapped ? 1 : 3), y);
  }
};

TEST(Preview, DownSampleTakesEachSampleFromItsOwnSourcePixel) {
  Rng rng(5);
  for (std::uint32_t source : {0x501u, 0x502u}) {
    for (int s : {1, 2, 3, 5, 6}) {
      SCOPED_TRACE(testing::Message() << "source " << source << " factor " << s);
      const int tw = 2 * rng.Range(2, 12), th = 2 * rng.Range(1, 3);
      GuardedImage src(source, tw * s + rng.Range(0, 3), th * s + 1, 3, s);
      GuardedImage dst(0x501, tw, th, 2, 9);
      ASSERT_EQ(DownSampleImage(src.get(), nullptr, dst.get(), nullptr, s, s, 0), 0);
      const PackedModel m{src};
      const bool swapped = source == 0x502;
      for (int y = 0; y < th; ++y)
        for (int k = 0; k < tw / 2; ++k) {
          const int a = 2 * k * s, b = 2 * k * s + s, ys = y * s;
          ASSERT_EQ(dst.at(0, 4 * k, y), m.Luma(a, ys)) << k << "," << y;
          ASSERT_EQ(dst.at(0, 4 * k + 2, y), m.Luma(b, ys)) << k << "," << y;
          ASSERT_EQ(dst.at(0, 4 * k + 1, y), m.U(a, ys, swapped)) << k << "," << y;
          ASSERT_EQ(dst.at(0, 4 * k + 3, y), m.V(b, ys, swapped)) << k << "," << y;
        }
      EXPECT_TRUE(dst.GuardsIntact());
    }
  }
}

// Semi-planar to semi-planar with rectangles that reach past the source on any side: a
// target pixel (x, y) of the target rectangle shows source pixel (l + (x - dl) s, t + (y -
// dt) s) when that lies in the frame and is left alone otherwise; each 2 x 2 block (2 x 1
// for 0x803) takes the chroma pair of its first pixel's source, in the target's order.
TEST(Preview, SemiPlanarDownSampleFollowsEachTargetPixelToItsSource) {
  Rng rng(6);
  const std::uint32_t formats[] = {0x801u, 0x802u, 0x803u};
  for (int trial = 0; trial < 120; ++trial) {
    const std::uint32_t sf = formats[rng.Range(0, 2)], df = formats[rng.Range(0, 2)];
    const int s = rng.Range(1, 6), sw = 2 * rng.Range(4, 40), sh = 2 * rng.Range(4, 30);
    const int tw = 2 * rng.Range(2, 20), th = 2 * rng.Range(2, 12);
    SCOPED_TRACE(testing::Message() << trial << ": " << sf << " -> " << df << " x" << s);
    GuardedImage src(sf, sw, sh, 3, trial), dst(df, tw, th, 2, trial + 7);
    GuardedImage before(df, tw, th, 2, trial + 7);
    const ZMOSRECT sr{rng.Range(-3 * s, sw / 2), rng.Range(-3 * s, sh / 2), sw, sh};
    const ZMOSRECT dr{rng.Range(-2, tw / 2), rng.Range(-2, th / 2), rng.Range(tw / 2, tw + 4),
                      rng.Range(th / 2, th + 4)};
    ASSERT_EQ(DownSampleImage(src.get(), &sr, dst.get(), &dr, s, s, 0), 0);
    auto source = [&](int x, int y, int* sx, int* sy) {
      *sx = sr.lLeft + (x - dr.lLeft) * s;
      *sy = sr.lTop + (y - dr.lTop) * s;
      return x >= dr.lLeft && y >= dr.lTop && x < dr.lRight && y < dr.lBottom && *sx >= 0 &&
             *sy >= 0 && *sx < sw && *sy < sh;
    };
    for (int y = 0; y < th; ++y)
      for (int x = 0; x < tw; ++x) {
        int sx, sy;
        const std::uint8_t want = source(x, y, &sx, &sy) ? src.at(0, sx, sy) : before.at(0, x, y);
        ASSERT_EQ(dst.at(0, x, y), want) << x << "," << y;
      }
    const bool full = df == 0x803;
    for (int y = 0; y < th; y += full ? 1 : 2)
      for (int x = 0; x < tw; x += 2) {
        const int cy = full ? y : y / 2;
        int sx, sy;
        if (!source(x, y, &sx, &sy)) {
          ASSERT_EQ(dst.at(1, x, cy), before.at(1, x, cy)) << x << "," << y;
          ASSERT_EQ(dst.at(1, x + 1, cy), before.at(1, x + 1, cy)) << x << "," << y;
          continue;
        }
        const int row = sf == 0x803 ? sy : sy / 2, col = sx / 2 * 2;
        const std::uint8_t first = src.at(1, col, row), second = src.at(1, col + 1, row);
        const std::uint8_t u = sf == 0x802 ? second : first, v = sf == 0x802 ? first : second;
        ASSERT_EQ(dst.at(1, x, cy), df == 0x802 ? v : u) << x << "," << y;
        ASSERT_EQ(dst.at(1, x + 1, cy), df == 0x802 ? u : v) << x << "," << y;
      }
    EXPECT_TRUE(dst.GuardsIntact());
  }
}

TEST(Preview, DownSampleRefusesOnlyUnknownSources) {
  GuardedImage nv21(ZMOS_FORMAT_NV21, 64, 32), i420(ZMOS_FORMAT_I420, 64, 32);
  GuardedImage target(ZMOS_FORMAT_NV21, 16, 8), odd_target(ZMOS_FORMAT_I420, 16, 8);
  EXPECT_EQ(DownSampleImage(i420.get(), nullptr, target.get(), nullptr, 4, 4, 0),
            ZMOS_ERR_UNSUPPORTED_FORMAT);
  EXPECT_EQ(DownSampleImage(nv21.get(), nullptr, target.get(), nullptr, 4, 4, 0), 0);
  // A target it cannot lay out is a bad argument, not an unsupported source.
  EXPECT_EQ(DownSampleImage(nv21.get(), nullptr, odd_target.get(), nullptr, 4, 4, 0),
            ZMOS_ERR_INVALID_PARAM);
  EXPECT_TRUE(odd_target.GuardsIntact());
  // An empty target rectangle draws nothing, whatever the source.
  const ZMOSRECT empty{0, 4, 16, 4};
  EXPECT_EQ(DownSampleImage(i420.get(), nullptr, target.get(), &empty, 4, 4, 0), 0);
}

// After the first strip the host may hand its own buffer in; strips are drawn into it.
TEST(Preview, DrawsIntoTheCallersImage) {
  const lumivex::test::Plane8* scene = lumivex::test::Photo();
  if (scene == nullptr) GTEST_SKIP() << "no test photograph";
  constexpr int kW = 320, kH = 120;
  std::vector<std::uint8_t> work(8 << 20);
  ZMOSSWEEPSTITCHER* engine = nullptr;
  ZMOSINITPARAM param{work.data(), static_cast<std::int32_t>(work.size()), 180, kW, kH, kW, kH};
  ASSERT_EQ(ZMOS_Init(&param, &engine), 0);
  ZMOSIMAGE ui{};
  ui.dwFormat = ZMOS_FORMAT_NV21;
  GuardedImage own(ZMOS_FORMAT_NV21, 160, 20, 4, 3);
  for (int r = 0; r < own.rows(0); ++r)
    for (int c = 0; c < own.row_bytes(0); ++c) own.at(0, c, r) = 7;
  std::int32_t kept = 0, angle = 0, rect[4] = {0, 0, 0, 0};
  bool swapped = false;
  for (int k = 0; k < 120 && angle < 180; ++k) {
    lumivex::test::Frame frame(*scene, 1000 + 9 * k, 1300, kW, kH);
    std::int32_t offset[2], flags[4];
    ASSERT_EQ(ZMOS_SelectFrames(engine, frame.get(), frame.get(), offset, &kept, flags, &angle), 0);
    ASSERT_EQ(ZMOS_UpdateUIImage(engine, frame.get(), swapped ? own.get() : &ui, 6, rect), 0);
    if (kept >= 2 && !swapped) swapped = true;  // the engine's view was filled once
  }
  ASSERT_TRUE(swapped);
  int drawn = 0;
  for (int r = 0; r < own.rows(0); ++r)
    for (int c = 0; c < own.row_bytes(0); ++c) drawn += own.at(0, c, r) != 7;
  EXPECT_GT(drawn, 500) << "the host's buffer received no strip";
  EXPECT_TRUE(own.GuardsIntact());
  ZMOS_UnInit(&engine);
}

}  // namespace

namespace {

// A frame the reference tracker cannot read (its full frame is of an unknown format) ends
// the capture; the travel the selector measured on it from the tracking image is still
// reported, continuing the sweep's offsets.
TEST(SelectionTail, TheFrameThatEndsACaptureReportsItsTravel) {
  const lumivex::test::Plane8* scene = lumivex::test::Photo();
  if (scene == nullptr) GTEST_SKIP() << "no test photograph";
  constexpr int kW = 640, kH = 480, kStep = 5;
  std::vector<std::uint8_t> work(8 << 20);
  ZMOSSWEEPSTITCHER* engine = nullptr;
  ZMOSINITPARAM param{work.data(), static_cast<std::int32_t>(work.size()), 180, kW, kH, kW, kH};
  ASSERT_EQ(ZMOS_Init(&param, &engine), 0);
  std::int32_t kept = 0, angle = 0, previous = 0;
  bool moving = false;
  for (int k = 0; k < 14; ++k) {
    lumivex::test::Frame frame(*scene, 1000 + kStep * k, 1300, kW, kH);
    ZMOSIMAGE full = *frame.get();
    const bool last = k == 13;
    if (last) full.dwFormat = 0x999;
    std::int32_t offset[2], flags[4];
    const std::int32_t res =
        ZMOS_SelectFrames(engine, &full, frame.get(), offset, &kept, flags, &angle);
    EXPECT_EQ(res, last ? ZMOS_ERR_UNSUPPORTED_FORMAT : 0) << k;
    if (moving) {
      EXPECT_EQ(offset[0] - previous, kStep) << "frame " << k;
    }
    moving = moving || offset[0] != 0;
    previous = offset[0];
  }
  EXPECT_TRUE(moving);
  ZMOS_UnInit(&engine);
}

}  // namespace

namespace {

// A band count below 1 is taken at creation and refused by the steps that use it; a
// negative one cannot size the stitcher's arrays.
TEST(SweepStitcher, BandCountsAreCheckedWhereTheyAreUsed) {
  std::vector<std::uint8_t> work(1 << 20);
  const ZMOSSWTPARAM param{work.data(), static_cast<std::int32_t>(work.size()), 180, 0, 0};
  ZMOSSWEEPSTITCHER* s = nullptr;
  ASSERT_EQ(ZMOSCreateSweepStitcher_SWT(&s, &param, 0, nullptr), 0);
  ASSERT_NE(s, nullptr);
  lumivex::test::GuardedImage frame(ZMOS_FORMAT_NV21, 160, 120);
  std::int32_t offset[2], status = 0, finish = 0;
  EXPECT_EQ(ZMOSSelectFrame_SWT(s, frame.get(), frame.get(), offset, &status, &finish),
            ZMOS_ERR_INVALID_PARAM);
  EXPECT_EQ(ZMOSImageStitcherRun_SWT(s), ZMOS_ERR_INVALID_PARAM);
  ZMOSReleaseSweepStitcher_SWT(&s);
  EXPECT_EQ(ZMOSCreateSweepStitcher_SWT(&s, &param, -3, nullptr), ZMOS_ERR_NO_MEMORY);
  EXPECT_EQ(s, nullptr);
  EXPECT_EQ(ZMOSCreateSweepStitcher_SWT(&s, &param, 65, nullptr), ZMOS_ERR_INVALID_PARAM);
}

}  // namespace

namespace {

// What a capture reports per frame: the angle from the travel kept so far, the offset in
// tracking-image pixels with y negated, and the finish flag exchanged with the host.
TEST(SelectionReports, AngleOffsetAndFinishFollowTheirRules) {
  const lumivex::test::Plane8* scene = lumivex::test::Photo();
  if (scene == nullptr) GTEST_SKIP() << "no test photograph";
  constexpr int kW = 640, kH = 480;
  for (int direction : {0, 1}) {
    SCOPED_TRACE(testing::Message() << "direction " << direction);
    std::vector<std::uint8_t> work(16 << 20);
    ZMOSSWEEPSTITCHER* engine = nullptr;
    ZMOSINITPARAM param{work.data(), static_cast<std::int32_t>(work.size()), 180, kW, kH, kW / 2,
                        kH / 2};
    ASSERT_EQ(ZMOS_Init(&param, &engine), 0);
    const int sign = direction == 0 ? 1 : -1;
    std::int32_t kept = 0, angle = 0, checked = 0, first_k = -1, first_offset = 0;
    for (int k = 0; k < 200 && angle < 180; ++k) {
      // Steady along the sweep, 2 rows down a frame (y grows downwards on the photograph).
      const int x = 1500 + sign * 14 * k, y = 1300 + 2 * (k / 8);
      lumivex::test::Frame frame(*scene, x, y, kW, kH);
      // The tracking image: every second pixel of the frame, as a host's small preview.
      lumivex::test::Frame track(*scene, 0, 0, kW / 2, kH / 2);
      for (int r = 0; r < kH / 2; ++r)
        for (int c = 0; c < kW / 2; ++c)
          track.get()->pPlane[0][r * track.get()->lPitch[0] + c] =
              frame.get()->pPlane[0][2 * r * frame.get()->lPitch[0] + 2 * c];
      std::int32_t offset[2], flags[4];
      const std::int32_t before = kept;
      ASSERT_EQ(ZMOS_SelectFrames(engine, frame.get(), track.get(), offset, &kept, flags, &angle),
                0);
      if (kept == before || kept < 2) continue;
      // Offsets count from the frame the direction was found on, in tracking pixels (half
      // the frame's), with y negated: the frames moved down.
      if (first_k < 0) first_k = k, first_offset = offset[0];
      EXPECT_NEAR(offset[0] - first_offset, sign * 7 * (k - first_k), 2) << k;
      EXPECT_LE(offset[1], 0) << k;
      // Angle = 180 x travel / (canvas - frame), rounded half up, or 180 once finished.
      const std::int32_t travel = sign * offset[0] * 2;
      const std::int32_t want = std::min(180, static_cast<std::int32_t>(180 * travel / 1280 + 0.5));
      EXPECT_NEAR(angle, want, 1) << k;
      ++checked;
    }
    EXPECT_EQ(angle, 180);
    EXPECT_GT(checked, 20);
    ZMOS_UnInit(&engine);
  }
}

// The host can end a sweep through the finish flag; until then a zero flag reads the
// engine's.
TEST(SelectionReports, FinishFlagIsExchangedWithTheHost) {
  const lumivex::test::Plane8* scene = lumivex::test::Photo();
  if (scene == nullptr) GTEST_SKIP() << "no test photograph";
  constexpr int kW = 320, kH = 240;
  std::vector<std::uint8_t> work(8 << 20);
  const ZMOSSWTPARAM param{work.data(), static_cast<std::int32_t>(work.size()), 180, 0, 0};
  ZMOSSWEEPSTITCHER* s = nullptr;
  ASSERT_EQ(ZMOSCreateSweepStitcher_SWT(&s, &param, 1, nullptr), 0);
  std::int32_t finish = 0, status = 0, offset[2];
  int kept = 0;
  for (int k = 0; k < 30; ++k) {
    lumivex::test::Frame frame(*scene, 1500 + 8 * k, 1300, kW, kH);
    finish = k == 20 ? 1 : 0;
    ASSERT_EQ(ZMOSSelectFrame_SWT(s, frame.get(), frame.get(), offset, &status, &finish), 0);
    if (k < 20) {
      EXPECT_EQ(finish, 0) << k;
    }
    if (k > 20) {
      // A finished sweep goes straight to the tail: nothing kept, the flag not exchanged.
      EXPECT_EQ(finish, 0) << k;
      EXPECT_EQ(status, ZMOS_SELECT_NONE) << k;
    }
    kept += status == ZMOS_SELECT_KEEP;
  }
  EXPECT_GT(kept, 5);
  std::int32_t angle = 0;
  ZMOSCalculateAngle_SWT(s, &angle);
  EXPECT_EQ(angle, 180);
  ZMOSReleaseSweepStitcher_SWT(&s);
}

}  // namespace

namespace {

// Several bands: the canvas is 2.6 frame widths long (twice the width down), the strips
// sit at a tenth of the frame apart around its middle, and the stitch trims every band
// to one width.
TEST(SweepStitcher, MultiBandLayoutFollowsItsRules) {
  const lumivex::test::Plane8* scene = lumivex::test::Photo();
  if (scene == nullptr) GTEST_SKIP() << "no test photograph";
  constexpr int kW = 320, kH = 240;
  for (int bands : {2, 3, 4}) {
    SCOPED_TRACE(testing::Message() << bands << " bands");
    std::vector<std::uint8_t> work(32 << 20);
    const ZMOSSWTPARAM param{work.data(), static_cast<std::int32_t>(work.size()), 180, 0, 0};
    ZMOSSWEEPSTITCHER* s = nullptr;
    ASSERT_EQ(ZMOSCreateSweepStitcher_SWT(&s, &param, bands, nullptr), 0);
    std::int32_t offset[2], status = 0, finish = 0;
    int k = 0;
    for (; k < 150 && !s->bFinished; ++k) {
      lumivex::test::Frame frame(*scene, 1200 + 7 * k, 1300, kW, kH);
      finish = 0;
      ASSERT_EQ(ZMOSSelectFrame_SWT(s, frame.get(), frame.get(), offset, &status, &finish), 0);
    }
    ASSERT_EQ(s->lDirection, 0);
    EXPECT_EQ(
        s->lPanoWidth,
        static_cast<std::int32_t>(static_cast<double>(static_cast<float>(kW) * 2.6f) + 0.5) & ~3);
    const int spacing = (kW / 10) & ~1;
    const int first = bands % 2 ? (kW / 2 - spacing * (bands - 1) / 2) & ~1
                                : (kW / 2 - spacing / 2 - spacing * (bands / 2 - 1)) & ~1;
    for (int i = 0; i < bands; ++i) EXPECT_EQ(s->plStripPos[i], first + i * spacing) << i;
    EXPECT_EQ(s->lStripStart, 0);
    EXPECT_EQ(s->lStripEnd, 0);
    EXPECT_TRUE(s->bFinished) << "the sweep ends past the canvas or at the frame limit";
    ASSERT_EQ(ZMOSImageStitcherRun_SWT(s), 0);
    ZMOSIMAGE** images = nullptr;
    std::int32_t count = 0;
    ZMOSGetResultImagesN(s, &images, &count);
    ASSERT_EQ(count, bands);
    ASSERT_EQ(s->bResultWide, 1);
    for (int i = 1; i < bands; ++i) EXPECT_EQ(images[i]->lWidth, images[0]->lWidth) << i;
    EXPECT_EQ(images[0]->lWidth % 16, 0);
    ZMOSReleaseSweepStitcher_SWT(&s);
  }
}

}  // namespace

namespace {

struct SelectRun {
  ZMOSSWEEPSTITCHER* s = nullptr;
  std::vector<std::uint8_t> work = std::vector<std::uint8_t>(8 << 20);
  std::int32_t status = 0;
  SelectRun() {
    const ZMOSSWTPARAM param{work.data(), static_cast<std::int32_t>(work.size()), 180, 0, 0};
    EXPECT_EQ(ZMOSCreateSweepStitcher_SWT(&s, &param, 1, nullptr), 0);
  }
  ~SelectRun() { ZMOSReleaseSweepStitcher_SWT(&s); }
  void Feed(const lumivex::test::Plane8& scene, int x, int y) {
    lumivex::test::Frame frame(scene, x, y, 320, 240);
    std::int32_t offset[2], finish = 0;
    ASSERT_EQ(ZMOSSelectFrame_SWT(s, frame.get(), frame.get(), offset, &status, &finish), 0);
  }
  // Moves right until the direction is found, then holds still until `count` frames.
  void DetectThenHold(const lumivex::test::Plane8& scene, int* x, int count) {
    for (int k = 0; k < 20 && s->lDirection == ZMOS_DIRECTION_UNKNOWN; ++k)
      Feed(scene, *x += 8, 1300);
    ASSERT_EQ(s->lDirection, 0);
    while (s->lFrameCount < count) Feed(scene, *x, 1300);
    ASSERT_EQ(s->bNoSecondFrame, 1);
  }
};

// Without a second kept frame, travel from the 42nd frame after detection on is summed
// into totals that live as long as the process; the sweep has gone wrong once they lean
// to the other axis. A later capture starts from what the earlier one left.
TEST(SelectionReports, WrongAxisTotalsStartLateAndOutliveTheCapture) {
  const lumivex::test::Plane8* scene = lumivex::test::Photo();
  if (scene == nullptr) GTEST_SKIP() << "no test photograph";
  lumivex::engine::WrongAxis() = {};
  {
    SelectRun run;
    int x = 1500;
    run.DetectThenHold(*scene, &x, 40);
    run.Feed(*scene, x, 1310);  // the 41st frame: not summed
    EXPECT_NE(run.status, ZMOS_SELECT_WRONG);
    run.Feed(*scene, x, 1320);  // the 42nd: summed, and vertical
    EXPECT_EQ(run.status, ZMOS_SELECT_WRONG);
  }
  const lumivex::engine::WrongAxisSums left = lumivex::engine::WrongAxis();
  ASSERT_GT(std::abs(left.sy), 2 * std::abs(left.sx));
  SelectRun run;
  int x = 1500;
  run.DetectThenHold(*scene, &x, 41);
  // Holding still adds only the travel along the sweep, on top of the last capture's totals.
  run.Feed(*scene, x, 1300);
  EXPECT_EQ(run.status, ZMOS_SELECT_WRONG);
}

// A single-band sweep also completes one kept frame before the frame limit.
TEST(SelectionReports, FrameLimitCompletesTheSweep) {
  const lumivex::test::Plane8* scene = lumivex::test::Photo();
  if (scene == nullptr) GTEST_SKIP() << "no test photograph";
  SelectRun run;
  int limit_at = -1;
  for (int k = 0; k < 100 && !run.s->bFinished; ++k) {
    run.Feed(*scene, 1000 + 9 * k, 1300);
    if (limit_at < 0 && run.s->lKeptCount == 2) {
      limit_at = run.s->lKeptCount;
      run.s->lMaxKeptFrames = limit_at + 3;
    }
  }
  ASSERT_GE(limit_at, 0);
  EXPECT_TRUE(run.s->bFinished);
  EXPECT_EQ(run.s->lKeptCount, limit_at + 3);
}

}  // namespace
