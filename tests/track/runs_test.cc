#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "lumivex/track.h"
#include "src/track/tracker.h"
#include "tests/support/test_support.h"

namespace lumivex::track {
namespace {

using test::Frame;
using test::Plane8;

enum class Kind { kPlain, kFF, kRF };

const char* Name(Kind k) {
  return k == Kind::kPlain ? "plain" : k == Kind::kFF ? "FF" : "RF";
}

constexpr int kW = 640, kH = 480;
// Trees and granite below the horizon: textured in both directions.
constexpr int kX0 = 2000, kY0 = 1100;

// Drives one tracker kind the way frame selection does: the RF tracker gets the FF
// tracker's estimate as its prediction and its own previous result as context.
class Driver {
 public:
  Driver(Kind kind, int mode) : kind_(kind) {
    BandTexture = {};
    if (kind == Kind::kPlain) {
      EXPECT_EQ(ZMOSCreateVideoTracker_PBM(&main_, kW, kH, mode, nullptr), 0);
    } else {
      EXPECT_EQ(ZMOSCreateVideoTrackerFF_PBM(&ff_, kW, kH, mode, nullptr), 0);
    }
  }
  ~Driver() {
    ZMOSReleaseVideoTracker_PBM(&main_);
    ZMOSReleaseVideoTracker_PBM(&ff_);
  }
  // Runs on `frame` and, after every run but the first (which only stores the frame),
  // swaps; returns the run's offsets.
  std::vector<std::int32_t> Step(const ZMOSIMAGE* frame, int mode) {
    std::vector<std::int32_t> off{-999, -999};
    const bool first = steps_++ == 0;
    if (kind_ == Kind::kPlain) {
      EXPECT_EQ(ZMOSVideoTrackerRun_PBM(main_, frame, off.data()), 0);
      if (!first) {
        EXPECT_EQ(ZMOSVideoTrackerSwap_PBM(main_, frame), 0);
      }
      return off;
    }
    EXPECT_EQ(ZMOSVideoTrackerRunFF_PBM(ff_, frame, off.data()), 0);
    if (kind_ == Kind::kRF) {
      if (main_ == nullptr) {
        // Created once the FF tracker has measured its bands, as frame selection does.
        EXPECT_EQ(ZMOSCreateVideoTrackerRF_PBM(&main_, kW, kH, mode, nullptr), 0);
      }
      EXPECT_EQ(ZMOSVideoTrackerRunRF_PBM(main_, frame, off.data(), last_), 0);
      last_[0] = off[0];
      last_[1] = off[1];
      if (!first) {
        EXPECT_EQ(ZMOSVideoTrackerSwapRF_PBM(main_, frame), 0);
      }
    }
    if (!first) {
      EXPECT_EQ(ZMOSVideoTrackerSwapFF_PBM(ff_, frame), 0);
    }
    return off;
  }
  ZMOSVideoTracker* ff() { return ff_; }

 private:
  Kind kind_;
  ZMOSVideoTracker* main_ = nullptr;
  ZMOSVideoTracker* ff_ = nullptr;
  std::int32_t last_[2] = {0, 0};
  int steps_ = 0;
};

class TrackerRuns : public testing::Test {
 protected:
  void SetUp() override {
    photo_ = test::Photo();
    if (photo_ == nullptr) {
      if (test::PhotoExpected()) FAIL() << "the decoded test photograph is missing";
      GTEST_SKIP() << "test photograph not available";
    }
  }
  const Plane8* photo_ = nullptr;
};

// One shift along the sweep axis, anywhere in the search range, is measured exactly.
TEST_F(TrackerRuns, RecoverSweepAxisShiftsOverTheWholeRange) {
  for (int mode : {0, 1}) {
    const int range = mode == 0 ? kW / 10 : kH / 20;
    const int shifts[] = {-range, -range + 3, -29, -11, -5, -1, 0, 1, 4, 12, 33, range - 2, range};
    for (Kind kind : {Kind::kPlain, Kind::kFF, Kind::kRF}) {
      for (int d : shifts) {
        if (std::abs(d) > range) continue;
        SCOPED_TRACE(testing::Message() << Name(kind) << " mode " << mode << " shift " << d);
        const int dx = mode == 0 ? d : 0, dy = mode == 0 ? 0 : d;
        Driver driver(kind, mode);
        Frame first(*photo_, kX0, kY0, kW, kH);
        Frame second(*photo_, kX0 + dx, kY0 + dy, kW, kH);
        driver.Step(first.get(), mode);
        const auto off = driver.Step(second.get(), mode);
        // The FF run measures the cross axis on unmoved bands: only its sweep axis is exact.
        if (kind != Kind::kFF || mode == 0) {
          EXPECT_EQ(off[0], dx);
        }
        if (kind != Kind::kFF || mode != 0) {
          EXPECT_EQ(off[1], dy);
        }
      }
    }
  }
}

// A hand-held sweep: varying speed along the axis, jitter across it, 36 frames with a
// swap after each. The sweep axis is always within a pixel. Across it, the plain tracker
// moves its rectangle by the sweep offset and stays within a pixel too; the FF run does
// not compensate, and the RF run only from 11 pixels on, so a few of their cross-axis
// estimates may stray on content that changes between the rows or columns.
TEST_F(TrackerRuns, FollowCombinedShiftsOverALongSequence) {
  for (int mode : {0, 1}) {
    for (Kind kind : {Kind::kPlain, Kind::kFF, Kind::kRF}) {
      SCOPED_TRACE(testing::Message() << Name(kind) << " mode " << mode);
      Driver driver(kind, mode);
      test::Rng rng(17 + mode);
      int x = 1200, y = 1100;
      Frame start(*photo_, x, y, kW, kH);
      driver.Step(start.get(), mode);
      int cross_within_1 = 0, worst_cross = 0;
      constexpr int kFrames = 36;
      for (int k = 0; k < kFrames; ++k) {
        const int along = rng.Range(3, mode == 0 ? 40 : 16), across = rng.Range(-2, 2);
        const int dx = mode == 0 ? along : across, dy = mode == 0 ? across : along;
        x += dx;
        y += dy;
        Frame frame(*photo_, x, y, kW, kH);
        const auto off = driver.Step(frame.get(), mode);
        const int along_err = mode == 0 ? std::abs(off[0] - dx) : std::abs(off[1] - dy);
        const int cross_err = mode == 0 ? std::abs(off[1] - dy) : std::abs(off[0] - dx);
        EXPECT_LE(along_err, 1) << "frame " << k << " true " << dx << "," << dy;
        if (kind == Kind::kPlain) {
          EXPECT_LE(cross_err, 1) << "frame " << k;
        }
        cross_within_1 += cross_err <= 1;
        worst_cross = std::max(worst_cross, cross_err);
      }
      EXPECT_GE(cross_within_1, kFrames * 9 / 10);
      EXPECT_LE(worst_cross, 24);
    }
  }
}

TEST(TrackerFallbacks, FlatFramesUseTheGradientMatcherAndPredictions) {
  test::Plane8 flat{kW, kH, std::vector<std::uint8_t>(kW * kH, 90)};
  Frame a(flat, 0, 0, kW, kH), b(flat, 0, 0, kW, kH);
  BandTexture = {};
  ZMOSVideoTracker* ff = nullptr;
  ASSERT_EQ(ZMOSCreateVideoTrackerFF_PBM(&ff, kW, kH, 0, nullptr), 0);
  std::int32_t off[2] = {-9, -9};
  ASSERT_EQ(ZMOSVideoTrackerRunFF_PBM(ff, a.get(), off), 0);
  EXPECT_EQ(off[0], -9);  // first frame: stored only
  ASSERT_EQ(ZMOSVideoTrackerRunFF_PBM(ff, b.get(), off), 0);
  EXPECT_EQ(ZMOSGetVideoTrackStatus_PBM(ff), ZMOS_ERR_NO_TEXTURE);
  EXPECT_EQ(off[0], 0);
  EXPECT_EQ(off[1], 0);

  // The RF tracker falls back to the caller's prediction.
  ZMOSVideoTracker* rf = nullptr;
  ASSERT_EQ(ZMOSCreateVideoTrackerRF_PBM(&rf, kW, kH, 0, nullptr), 0);
  const std::int32_t last[2] = {0, 0};
  ASSERT_EQ(ZMOSVideoTrackerRunRF_PBM(rf, a.get(), off, last), 0);
  off[0] = 3;
  off[1] = -2;
  ASSERT_EQ(ZMOSVideoTrackerRunRF_PBM(rf, b.get(), off, last), 0);
  EXPECT_EQ(off[0], 3);
  EXPECT_EQ(off[1], -2);

  // The plain tracker falls back to zero.
  ZMOSVideoTracker* plain = nullptr;
  ASSERT_EQ(ZMOSCreateVideoTracker_PBM(&plain, kW, kH, 0, nullptr), 0);
  off[0] = off[1] = 5;
  ASSERT_EQ(ZMOSVideoTrackerRun_PBM(plain, a.get(), off), 0);
  EXPECT_EQ(off[0], 0);  // the plain run clears the pair even on the first frame
  off[0] = off[1] = 5;
  ASSERT_EQ(ZMOSVideoTrackerRun_PBM(plain, b.get(), off), 0);
  EXPECT_EQ(off[0], 0);
  EXPECT_EQ(off[1], 0);

  for (ZMOSVideoTracker** t : {&ff, &rf, &plain}) ZMOSReleaseVideoTracker_PBM(t);
}

TEST(TrackerFallbacks, BadArgumentsLeaveOffsetsAlone) {
  test::Plane8 tex = test::SyntheticTexture(kW + 8, kH + 8, 3);
  Frame frame(tex, 0, 0, kW, kH), small(tex, 0, 0, kW - 2, kH);
  const std::int32_t last[2] = {0, 0};
  ZMOSVideoTracker* trackers[3] = {};
  ASSERT_EQ(ZMOSCreateVideoTracker_PBM(&trackers[0], kW, kH, 0, nullptr), 0);
  ASSERT_EQ(ZMOSCreateVideoTrackerFF_PBM(&trackers[1], kW, kH, 0, nullptr), 0);
  ASSERT_EQ(ZMOSCreateVideoTrackerRF_PBM(&trackers[2], kW, kH, 0, nullptr), 0);
  for (int k = 0; k < 3; ++k) {
    auto run = [&](ZMOSVideoTracker* t, const ZMOSIMAGE* img, std::int32_t* off) {
      return k == 0   ? ZMOSVideoTrackerRun_PBM(t, img, off)
             : k == 1 ? ZMOSVideoTrackerRunFF_PBM(t, img, off)
                      : ZMOSVideoTrackerRunRF_PBM(t, img, off, last);
    };
    std::int32_t off[2] = {7, 7};
    EXPECT_EQ(run(trackers[k], small.get(), off), 2);
    EXPECT_EQ(run(nullptr, frame.get(), off), 2);
    EXPECT_EQ(run(trackers[k], nullptr, off), 2);
    EXPECT_EQ(off[0], 7);
    EXPECT_EQ(off[1], 7);
  }
  // The first frame needs neither the offsets nor the last report: it is projected and
  // the run succeeds; a later frame writes offsets, and a mode-1 reference run never
  // reads the last report.
  EXPECT_EQ(ZMOSVideoTrackerRunFF_PBM(trackers[1], frame.get(), nullptr), 0);
  EXPECT_EQ(ZMOSVideoTrackerRunFF_PBM(trackers[1], frame.get(), nullptr), 2);
  EXPECT_EQ(ZMOSVideoTrackerRunRF_PBM(trackers[2], frame.get(), nullptr, nullptr), 0);
  EXPECT_EQ(ZMOSVideoTrackerRunRF_PBM(trackers[2], frame.get(), nullptr, last), 2);
  ZMOSVideoTracker* vertical = nullptr;
  ASSERT_EQ(ZMOSCreateVideoTrackerRF_PBM(&vertical, kW, kH, 1, nullptr), 0);
  std::int32_t predicted[2] = {3, -2};
  EXPECT_EQ(ZMOSVideoTrackerRunRF_PBM(vertical, frame.get(), predicted, nullptr), 0);
  EXPECT_EQ(ZMOSVideoTrackerRunRF_PBM(vertical, frame.get(), predicted, nullptr), 0);
  ZMOSReleaseVideoTracker_PBM(&vertical);
  EXPECT_EQ(ZMOSVideoTrackerSwap_PBM(nullptr, frame.get()), 2);
  EXPECT_EQ(ZMOSVideoTrackerSwapFF_PBM(nullptr, frame.get()), 2);
  EXPECT_EQ(ZMOSVideoTrackerSwapRF_PBM(nullptr, frame.get()), 2);
  // Before the first run a swap does nothing.
  EXPECT_EQ(ZMOSVideoTrackerSwap_PBM(trackers[0], frame.get()), 0);
  for (ZMOSVideoTracker*& t : trackers) ZMOSReleaseVideoTracker_PBM(&t);
}

}  // namespace
}  // namespace lumivex::track
