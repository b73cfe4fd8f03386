#include <gtest/gtest.h>

#include <cstdint>
#include <tuple>
#include <vector>

#include "lumivex/select.h"
#include "src/select/frame_selector.h"
#include "tests/support/test_support.h"

namespace lumivex::select {
namespace {

using test::Frame;

constexpr int kW = 640, kH = 480;
// The values a 640-wide capture derives: keep past 7, wrong back past 128, strip 60.
constexpr int kMinStep = 7, kMaxBack = 128, kStrip = 60;

struct Report {
  std::int32_t status, x, y, result;
};

// A selector fed frames cut from the photograph; positions are given as the camera's
// travel (x, y) from a start point, so the frames' content moves the other way.
class Sweep {
 public:
  Sweep(const test::Plane8& photo, int direction, int x0 = 2000, int y0 = 1300)
      : photo_(photo), x0_(x0), y0_(y0) {
    EXPECT_EQ(
        ZMOSCreateFrameSelector_FS(&selector_, kMinStep, kMaxBack, kStrip, direction, nullptr), 0);
  }
  ~Sweep() { ZMOSReleaseFrameSelector_FS(&selector_); }
  Report At(int x, int y) {
    Frame frame(photo_, x0_ + x, y0_ + y, kW, kH);
    Report r{};
    std::int32_t off[2] = {0, 0};
    r.result = ZMOSFrameSelectorRunBySF_FS(selector_, frame.get(), frame.get(), off, &r.status);
    r.x = off[0];
    r.y = off[1];
    return r;
  }

 private:
  const test::Plane8& photo_;
  int x0_, y0_;
  ZMOSFRAMESELECTOR* selector_ = nullptr;
};

class FrameSelector : public testing::Test {
 protected:
  void SetUp() override {
    photo_ = test::Photo();
    LUMIVEX_REQUIRE_PHOTO(photo_ == nullptr);
  }
  const test::Plane8* photo_ = nullptr;
};

// Travel vectors of the four directions: forward along the sweep, and across it.
std::pair<int, int> Forward(int direction, int along, int across = 0) {
  switch (direction) {
    case 0:
      return {along, across};
    case 1:
      return {-along, across};
    case 2:
      return {across, along};
    default:
      return {across, -along};
  }
}

// A frame is kept exactly when the travel since the last kept frame passes the minimum
// step. With 1 px steps the first four frames after a keep are measured against the kept
// frame itself and the next ones frame to frame; both must add up.
TEST_F(FrameSelector, KeepsWhenTheTravelPassesTheMinimumStep) {
  for (int direction = 0; direction < 4; ++direction) {
    for (int step : {1, 3}) {
      SCOPED_TRACE(testing::Message() << "direction " << direction << " step " << step);
      Sweep sweep(*photo_, direction);
      int along = 0, since_keep = 0, keeps = 0;
      sweep.At(0, 0);  // the reference frame
      for (int k = 0; k < 24; ++k) {
        along += step;
        since_keep += step;
        const auto [x, y] = Forward(direction, along);
        const Report r = sweep.At(x, y);
        ASSERT_EQ(r.result, 0);
        const auto [tx, ty] = Forward(direction, since_keep);
        EXPECT_EQ(r.x, tx) << "frame " << k;
        EXPECT_EQ(r.y, ty) << "frame " << k;
        const bool keep = since_keep > kMinStep;
        ASSERT_EQ(r.status, keep ? ZMOS_SELECT_KEEP : ZMOS_SELECT_NONE) << "frame " << k;
        if (keep) {
          since_keep = 0;
          ++keeps;
        }
      }
      EXPECT_GE(keeps, 2);
    }
  }
}

// Travel past the strip is too fast (even though it also passes the minimum step); the
// frame is not kept, so the next report still counts from the kept frame.
TEST_F(FrameSelector, ReportsTooFastPastTheStrip) {
  for (int direction = 0; direction < 4; ++direction) {
    SCOPED_TRACE(testing::Message() << "direction " << direction);
    const bool vertical = direction >= 2;
    const int jump = vertical ? kStrip - 10 + 2 : kStrip + 10;  // vertical strips are 10 shorter
    Sweep sweep(*photo_, direction);
    sweep.At(0, 0);
    auto [x, y] = Forward(direction, 9);
    ASSERT_EQ(sweep.At(x, y).status, ZMOS_SELECT_KEEP);
    std::tie(x, y) = Forward(direction, 9 + jump);
    const Report fast = sweep.At(x, y);
    EXPECT_EQ(fast.status, ZMOS_SELECT_TOO_FAST);
    EXPECT_EQ(vertical ? std::abs(fast.y) : std::abs(fast.x), jump);
  }
}

// Backward travel and drift across the sweep both end in "gone wrong", never in a keep.
TEST_F(FrameSelector, ReportsBackwardAndDriftingSweeps) {
  for (int direction = 0; direction < 4; ++direction) {
    SCOPED_TRACE(testing::Message() << "direction " << direction);
    {
      Sweep sweep(*photo_, direction, 2000, 1500);
      sweep.At(0, 0);
      int first_wrong = 0;
      for (int k = 1; k <= 20 && first_wrong == 0; ++k) {
        const auto [x, y] = Forward(direction, -10 * k);
        const Report r = sweep.At(x, y);
        ASSERT_NE(r.status, ZMOS_SELECT_KEEP) << k;
        if (r.status == ZMOS_SELECT_WRONG) first_wrong = k;
      }
      // 13 frames (130 px) when every step is measured; horizontal sweeps narrow their
      // search around the last report once it passes 60 px, which reads the steps larger.
      EXPECT_GE(first_wrong, 7);
      EXPECT_LE(first_wrong, 13);
    }
    {
      // Drift: the band is strictly inside (2 - H/4, H/4 - 2) = (-118, 118) for horizontal
      // sweeps and (-158, 158) for vertical ones.
      Sweep sweep(*photo_, direction, 2000, 1500);
      sweep.At(0, 0);
      const int limit = direction < 2 ? kH / 4 - 2 : kW / 4 - 2;
      for (int k = 1; k <= 60; ++k) {
        const auto [x, y] = Forward(direction, 0, 3 * k);
        const Report r = sweep.At(x, y);
        ASSERT_EQ(r.status, 3 * k >= limit ? ZMOS_SELECT_WRONG : ZMOS_SELECT_NONE) << k;
        if (r.status == ZMOS_SELECT_WRONG) break;
      }
    }
  }
}

// The decision table itself, on travel values no tracker has to produce.
TEST(FrameSelectorRules, DecisionTable) {
  ZMOSFRAMESELECTOR s{};
  s.lMinStep = kMinStep;
  s.lMaxBack = kMaxBack;
  s.lMaxStep = kStrip;
  const std::int32_t w4 = kW / 4, h4 = kH / 4;
  auto decide = [&](int direction, int x, int y, int n, int last_x = 0) {
    s.lDirection = direction;
    s.lLastX = last_x;
    return Decide(s, Accumulators{x, y, n, {0, 0}}, w4, h4);
  };
  EXPECT_EQ(decide(0, 8, 0, 2), ZMOS_SELECT_KEEP);
  EXPECT_EQ(decide(0, 7, 0, 2), ZMOS_SELECT_NONE);
  EXPECT_EQ(decide(0, 61, 0, 2), ZMOS_SELECT_TOO_FAST);  // past both steps: too fast
  EXPECT_EQ(decide(1, -8, 0, 2), ZMOS_SELECT_KEEP);
  // A jump back on the first frame after a keep whose report reached 70 % of the strip.
  EXPECT_EQ(decide(0, -130, 0, 1, 42), ZMOS_SELECT_TOO_FAST);
  EXPECT_EQ(decide(0, -130, 0, 1, 41), ZMOS_SELECT_WRONG);
  EXPECT_EQ(decide(0, -130, 0, 2, 42), ZMOS_SELECT_WRONG);
  EXPECT_EQ(decide(1, 130, 0, 1, -42), ZMOS_SELECT_TOO_FAST);
  s.lLastY = 50;
  EXPECT_EQ(decide(2, 0, -130, 1, 0), ZMOS_SELECT_WRONG);  // no exception for vertical sweeps
  // Drift bands: H/4 - 2 across a horizontal sweep is already out.
  EXPECT_EQ(decide(0, 3, h4 - 3, 2), ZMOS_SELECT_NONE);
  EXPECT_EQ(decide(0, 3, h4 - 2, 2), ZMOS_SELECT_WRONG);
  EXPECT_EQ(decide(0, 3, 2 - h4, 2), ZMOS_SELECT_WRONG);
  EXPECT_EQ(decide(3, w4 - 2, -9, 2), ZMOS_SELECT_WRONG);
  EXPECT_EQ(decide(3, 0, -9, 2), ZMOS_SELECT_KEEP);
  EXPECT_EQ(decide(7, 100, 0, 2), ZMOS_SELECT_NONE);  // unknown direction

  // The single-tracker rules: a fixed drift band, horizontal sweeps only.
  auto single = [&](int direction, int x, int y) {
    s.lDirection = direction;
    return DecideSingle(s, Accumulators{x, y, 2, {0, 0}});
  };
  EXPECT_EQ(single(0, 8, 43), ZMOS_SELECT_KEEP);
  EXPECT_EQ(single(0, 8, 44), ZMOS_SELECT_WRONG);
  EXPECT_EQ(single(0, 8, -44), ZMOS_SELECT_WRONG);
  EXPECT_EQ(single(2, 300, 8), ZMOS_SELECT_KEEP);
  EXPECT_EQ(single(1, 200, 0), ZMOS_SELECT_WRONG);
}

TEST(FrameSelectorRules, CreationAndArguments) {
  test::WorkArena tiny(256);
  while (MMemAlloc(tiny.handle(), 8) != nullptr) {
  }
  ZMOSFRAMESELECTOR* s = reinterpret_cast<ZMOSFRAMESELECTOR*>(&tiny);
  EXPECT_EQ(ZMOSCreateFrameSelector_FS(&s, 7, 128, 60, 0, tiny.handle()), ZMOS_ERR_NO_MEMORY);
  EXPECT_EQ(s, nullptr);
  ASSERT_EQ(ZMOSCreateFrameSelector_FS(&s, 7, 128, 60, 2, nullptr), 0);
  EXPECT_EQ(s->lMaxStep, 50);  // vertical sweeps: strip less 10
  std::int32_t off[2], status = -1;
  test::Plane8 tex = test::SyntheticTexture(kW, kH, 1);
  Frame frame(tex, 0, 0, kW, kH);
  EXPECT_EQ(ZMOSFrameSelectorRunBySF_FS(nullptr, frame.get(), frame.get(), off, &status), 2);
  EXPECT_EQ(ZMOSFrameSelectorRunBySF_FS(s, nullptr, frame.get(), off, &status), 2);
  EXPECT_EQ(ZMOSFrameSelectorRun_FS(nullptr, frame.get(), nullptr, off, &status), 2);
  EXPECT_EQ(status, -1);
  ZMOSReleaseFrameSelector_FS(&s);
  EXPECT_EQ(s, nullptr);
  ZMOSReleaseFrameSelector_FS(&s);
  ZMOSReleaseFrameSelector_FS(nullptr);
}

// The single-tracker variant keeps frames on the same photograph sweep.
TEST_F(FrameSelector, SingleTrackerVariantKeepsFrames) {
  ZMOSFRAMESELECTOR* s = nullptr;
  ASSERT_EQ(ZMOSCreateFrameSelector_FS(&s, kMinStep, kMaxBack, kStrip, 0, nullptr), 0);
  int keeps = 0;
  for (int k = 0; k <= 12; ++k) {
    Frame frame(*photo_, 2000 + 3 * k, 1300, kW, kH);
    std::int32_t off[2], status = -1;
    ASSERT_EQ(ZMOSFrameSelectorRun_FS(s, frame.get(), nullptr, off, &status), 0);
    keeps += status == ZMOS_SELECT_KEEP;
  }
  EXPECT_EQ(keeps, 4);
  ZMOSReleaseFrameSelector_FS(&s);
}

}  // namespace
}  // namespace lumivex::select
