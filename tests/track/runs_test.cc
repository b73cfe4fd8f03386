#include <gtest/gtest.h>

#include <algorithm>
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
    BandTexture() = {};
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
    LUMIVEX_REQUIRE_PHOTO(photo_ == nullptr);
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

// Two frames of a scene that brightens along the sweep, the second moved and 7 % darker
// (a phone's exposure moving between them): the reference run reads the travel off by
// pixels when it matches the projections as they are, and exactly when it matches them at
// the reference frame's exposure. Both sweep axes.
TEST(TrackerExposure, ChangesAreMatchedAcross) {
  const Plane8 scene = test::SyntheticTexture(1600, 1600, 12);
  int off_by[2] = {0, 0};
  for (int mode : {0, 1}) {
    Plane8 sloped = scene;
    for (int x = 0; x < scene.width; ++x)
      for (int y = 0; y < scene.height; ++y) {
        std::uint8_t& v = sloped.pixels[static_cast<std::size_t>(y) * scene.width + x];
        // Faint detail on a strong slope, as on a hazy hillside toward the sun.
        const int along = mode == 0 ? x : y;
        const double detail = 128 + (v - 128) * 0.5;
        v = static_cast<std::uint8_t>(std::min(255.0, detail * (0.4 + 1.2 * along / 1600.0)));
      }
    for (int shift : {7, 12, 19, 26}) {
      for (const Policy* policy : {&kExactPolicy, &kQualityPolicy}) {
        Frame a(sloped, 400, 400, kW, kH);
        Frame b(sloped, mode == 0 ? 400 + shift : 400, mode == 0 ? 400 : 400 + shift, kW, kH);
        ZMOSIMAGE& img = *b.get();
        for (int y = 0; y < kH; ++y)
          for (int x = 0; x < kW; ++x) {
            std::uint8_t& v = img.pPlane[0][y * img.lPitch[0] + x];
            v = static_cast<std::uint8_t>(v * 0.93 + 0.5);
          }
        // Textured bands, as the frame-to-frame tracker measures them on such frames.
        BandTexture() = {{40, 40, 40}, {40, 40, 40}, {50, 50, 50}, {50, 50, 50}};
        ZMOSVideoTracker* rf = nullptr;
        ASSERT_EQ(ZMOSCreateVideoTrackerRF_PBM(&rf, kW, kH, mode, nullptr), 0);
        ZMOSSetMaxOffet_PBM(rf, mode == 0 ? 80 : 46, mode == 0 ? 46 : 54);
        std::int32_t off[2] = {0, 0};
        // The last report, as a sweep at about this speed gives it: a little short.
        const std::int32_t last[2] = {mode == 0 ? shift - 3 : 0, mode == 0 ? 0 : shift - 3};
        ASSERT_EQ(RunRF(rf, a.get(), off, last, *policy), 0);
        off[0] = last[0];
        off[1] = last[1];
        ASSERT_EQ(RunRF(rf, b.get(), off, last, *policy), 0);
        const int read = mode == 0 ? off[0] : off[1];
        if (policy == &kQualityPolicy) {
          EXPECT_EQ(read, shift) << "mode " << mode;
        } else {
          off_by[mode] += std::abs(read - shift) > 1;
        }
        ZMOSReleaseVideoTracker_PBM(&rf);
      }
    }
  }
  EXPECT_GT(off_by[0] + off_by[1], 2) << "the exact run misreads such frames";
}

TEST(TrackerFallbacks, FlatFramesUseTheGradientMatcherAndPredictions) {
  test::Plane8 flat{kW, kH, std::vector<std::uint8_t>(kW * kH, 90)};
  Frame a(flat, 0, 0, kW, kH), b(flat, 0, 0, kW, kH);
  BandTexture() = {};
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

namespace lumivex::track {
namespace {

using test::Rng;

// The frame-to-frame run modelled from its rules over the library's projections and
// matchers (both pinned on their own): which bands are summed, where and how texture is
// measured, the thresholds that choose the matcher and the band, and the ties.
struct FFModel {
  ZMOSVideoTracker* t;
  std::int32_t w, h, mode;

  std::vector<std::uint32_t> Project(const ZMOSIMAGE* img, const ZMOSRECT& r, bool hori) const {
    std::vector<std::uint32_t> p(hori ? w : h, 0);
    if (hori) {
      ZMOSHoriProjectSingle_PBM(img, &r, p.data());
    } else {
      ZMOSVertProjectSingle_PBM(img, &r, p.data());
    }
    return p;
  }
  // Mean absolute difference of neighbours over [a, b), divided by the range's length.
  static std::int32_t Measure(const std::vector<std::uint32_t>& p, std::int32_t a, std::int32_t b) {
    std::int64_t sum = 0;
    for (std::int32_t k = a; k + 1 < b; ++k)
      sum += std::abs(static_cast<std::int64_t>(p[k + 1]) - static_cast<std::int64_t>(p[k]));
    return static_cast<std::int32_t>(sum / (b - a));
  }
  struct Result {
    std::int32_t dx, dy, status;
    std::int32_t hori[3], vert[3];
  };
  Result Run(const ZMOSIMAGE* prev, const ZMOSIMAGE* cur) const {
    ZMOSRECT *hr = nullptr, *vr = nullptr;
    std::int32_t hn = 0, vn = 0, max_x = 0, max_y = 0;
    ZMOSGetHoriProjRect_PBM(t, &hr, &hn);
    ZMOSGetVertProjRect_PBM(t, &vr, &vn);
    ZMOSGetMaxOffet_PBM(t, &max_x, &max_y);
    const std::int32_t ha = mode == 0 ? w / 4 : 0, hb = mode == 0 ? (3 * w) / 4 : w;
    Result r{};
    std::vector<std::uint32_t> ph(w, 0), ch(w, 0);
    for (int i = 0; i < 3; ++i) {
      const auto a = Project(prev, hr[i], true), b = Project(cur, hr[i], true);
      for (std::int32_t k = 0; k < w; ++k) ph[k] += a[k], ch[k] += b[k];
      r.hori[i] = Measure(b, ha, hb);
    }
    std::vector<std::int32_t> sa(std::max(w, h)), sb(std::max(w, h));
    r.dx = 0;
    if (r.hori[0] + r.hori[1] + r.hori[2] > 95) {
      r.status = 0;
      ZMOSMatch1DBufferAllocated_PBM(ph.data(), ch.data(), w, &r.dx, max_x, sa.data(), sb.data());
    } else {
      r.status = 5;
      ZMOSComputeOffset_Gradient(ph.data(), ch.data(), w, &r.dx, max_x, sa.data(), sb.data());
    }
    r.dy = 0;
    if (mode == 0) {
      const auto a = Project(prev, vr[1], false), b = Project(cur, vr[1], false);
      r.vert[1] = Measure(b, 0, h);
      auto match = r.vert[1] < 33 ? ZMOSComputeOffset_Gradient : ZMOSMatch1DBufferAllocated_PBM;
      match(a.data(), b.data(), h, &r.dy, max_y, sa.data(), sb.data());
      return r;
    }
    std::vector<std::uint32_t> pv[3], cv[3];
    for (int j = 0; j < 3; ++j) {
      pv[j] = Project(prev, vr[j], false);
      cv[j] = Project(cur, vr[j], false);
      r.vert[j] = Measure(cv[j], h / 4, (3 * h) / 4);
    }
    if (r.vert[1] < 40 && r.vert[0] < 40 && r.vert[2] < 40) {
      ZMOSComputeOffset_Gradient(pv[1].data(), cv[1].data(), h, &r.dy, max_y, sa.data(), sb.data());
      return r;
    }
    const int band = r.vert[1] >= 40 ? 1 : r.vert[0] > r.vert[2] ? 0 : 2;
    ZMOSMatch1DBufferAllocated_PBM(pv[band].data(), cv[band].data(), h, &r.dy, max_y, sa.data(),
                                   sb.data());
    return r;
  }
};

// Frames whose texture is scaled per third (so each band's measure crosses the
// thresholds), some mirrored so that two bands measure exactly alike.
Plane8 Scene(std::uint64_t seed, Rng& rng, bool mirrored) {
  Plane8 p = test::SyntheticTexture(420, 320, seed);
  // Projections sum many rows, so a few percent of contrast already reads as texture.
  auto pick = [&] {
    return rng.Range(0, 3) == 0 ? 0 : rng.Range(0, 3) == 0 ? 100 : rng.Range(0, 6);
  };
  int contrast[3] = {pick(), pick(), pick()};
  if (mirrored) contrast[0] = contrast[1] = 100, contrast[2] = 0;  // textured sides, flat middle
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width; ++x) {
      const int third =
          std::min(2, (mirrored ? std::min(x, p.width - 1 - x) * 2 : x) * 3 / p.width);
      const int band = std::min(2, y * 3 / p.height);
      const int c = contrast[mirrored ? third : (third + band) % 3];
      const int src = mirrored && x >= p.width / 2 ? p.width - 1 - x : x;
      std::uint8_t& v = p.pixels[static_cast<std::size_t>(y) * p.width + x];
      v = static_cast<std::uint8_t>(128 + (p.at(src, y) - 128) * c / 100);
    }
  return p;
}

TEST(TrackerRules, FrameToFrameRunFollowsItsRules) {
  Rng rng(17);
  constexpr int kFW = 320, kFH = 240;
  int direct = 0, gradient = 0, ties = 0;
  for (int trial = 0; trial < 80; ++trial) {
    const bool mirrored = trial % 4 == 3;
    const Plane8 scene = Scene(trial, rng, mirrored);
    const int mode = trial % 2;
    const int x0 = mirrored ? 50 : rng.Range(30, 60), y0 = rng.Range(30, 50);
    const int dx = mirrored ? 0 : rng.Range(-25, 25),
              dy = mirrored ? rng.Range(-20, 20) : rng.Range(-20, 20);
    Frame a(scene, x0, y0, kFW, kFH), b(scene, x0 + dx, y0 + dy, kFW, kFH);
    ZMOSVideoTracker* t = nullptr;
    ASSERT_EQ(ZMOSCreateVideoTrackerFF_PBM(&t, kFW, kFH, mode, nullptr), 0);
    const FFModel model{t, kFW, kFH, mode};
    const FFModel::Result want = model.Run(a.get(), b.get());
    std::int32_t got[2] = {0, 0};
    ASSERT_EQ(ZMOSVideoTrackerRunFF_PBM(t, a.get(), got), 0);
    ASSERT_EQ(ZMOSVideoTrackerRunFF_PBM(t, b.get(), got), 0);
    SCOPED_TRACE(testing::Message() << "trial " << trial << " mode " << mode);
    EXPECT_EQ(got[0], want.dx);
    EXPECT_EQ(got[1], want.dy);
    EXPECT_EQ(ZMOSGetVideoTrackStatus_PBM(t), want.status);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(BandTexture().cur_hori[i], want.hori[i]) << i;
    if (mode != 0) {
      for (int j = 0; j < 3; ++j) EXPECT_EQ(BandTexture().cur_vert[j], want.vert[j]) << j;
      ties += want.vert[1] < 40 && want.vert[0] == want.vert[2] && want.vert[0] >= 40;
    } else {
      EXPECT_EQ(BandTexture().cur_vert[1], want.vert[1]);
    }
    (want.status == 0 ? direct : gradient) += 1;
    ZMOSReleaseVideoTracker_PBM(&t);
  }
  EXPECT_GT(direct, 10);
  EXPECT_GT(gradient, 5);
  EXPECT_GT(ties, 0);
}

}  // namespace
}  // namespace lumivex::track

namespace lumivex::track {
namespace {

// A grey frame on which the trackers' texture measures can be set exactly.
struct Canvas {
  int w, h;
  std::vector<std::uint8_t> y;
  Canvas(int w_, int h_) : w(w_), h(h_), y(static_cast<std::size_t>(w_) * h_, 100) {}
  std::uint8_t& at(int x, int r) { return y[static_cast<std::size_t>(r) * w + x]; }
  ZMOSIMAGE Image() {
    ZMOSIMAGE img{};
    img.dwFormat = ZMOS_FORMAT_GREY;
    img.lWidth = w;
    img.lHeight = h;
    img.pPlane[0] = y.data();
    img.lPitch[0] = w;
    return img;
  }
};

// The frame-to-frame run's thresholds met exactly, and its tie between two side bands.
TEST(TrackerRules, FrameToFrameThresholdsAndTiesAtTheirEdges) {
  constexpr int kW = 320, kH = 240;
  // Horizontal: isolated +100 pixels in the top band, every other column of the measured
  // half [80, 240): each adds 200 to the band's sum of differences, divided by 160. 77 of
  // them measure 96 (the direct matcher), 76 measure 95 (the gradient one, status 5).
  for (int spikes : {76, 77}) {
    ZMOSVideoTracker* t = nullptr;
    ASSERT_EQ(ZMOSCreateVideoTrackerFF_PBM(&t, kW, kH, 0, nullptr), 0);
    ZMOSRECT* hr = nullptr;
    std::int32_t hn = 0;
    ZMOSGetHoriProjRect_PBM(t, &hr, &hn);
    Canvas a(kW, kH), b(kW, kH);
    for (int k = 0; k < spikes; ++k) b.at(82 + 2 * k, hr[0].lTop + 3) = 200;
    ZMOSIMAGE ia = a.Image(), ib = b.Image();
    std::int32_t off[2] = {0, 0};
    ASSERT_EQ(ZMOSVideoTrackerRunFF_PBM(t, &ia, off), 0);
    ASSERT_EQ(ZMOSVideoTrackerRunFF_PBM(t, &ib, off), 0);
    EXPECT_EQ(BandTexture().cur_hori[0] + BandTexture().cur_hori[1] + BandTexture().cur_hori[2],
              spikes == 77 ? 96 : 95);
    EXPECT_EQ(ZMOSGetVideoTrackStatus_PBM(t), spikes == 77 ? 0 : 5) << spikes;
    ZMOSReleaseVideoTracker_PBM(&t);
  }
  // Vertical, mode 0: the middle band measured over the full height (divided by 240); 40
  // spikes measure 33 and take the direct matcher, which finds their 5-row move, 39
  // measure 32 and take the gradient one, which reads the sparse spikes as flat.
  for (int spikes : {39, 40}) {
    ZMOSVideoTracker* t = nullptr;
    ASSERT_EQ(ZMOSCreateVideoTrackerFF_PBM(&t, kW, kH, 0, nullptr), 0);
    ZMOSRECT* vr = nullptr;
    std::int32_t vn = 0;
    ZMOSGetVertProjRect_PBM(t, &vr, &vn);
    Canvas a(kW, kH), b(kW, kH);
    for (int k = 0; k < spikes; ++k) {
      a.at(vr[1].lLeft, 20 + 5 * k) = 200;
      b.at(vr[1].lLeft, 20 + 5 * k - 5) = 200;
    }
    ZMOSIMAGE ia = a.Image(), ib = b.Image();
    std::int32_t off[2] = {0, 0};
    ASSERT_EQ(ZMOSVideoTrackerRunFF_PBM(t, &ia, off), 0);
    ASSERT_EQ(ZMOSVideoTrackerRunFF_PBM(t, &ib, off), 0);
    EXPECT_EQ(BandTexture().cur_vert[1], spikes == 40 ? 33 : 32);
    EXPECT_EQ(off[1] == 5, spikes == 40) << "dy " << off[1];
    ZMOSReleaseVideoTracker_PBM(&t);
  }
  // Vertical, mode 1: a flat middle band and two side bands of one measure (a triangle
  // wave, every row one step from the next) that move differently: the tie goes to the
  // right band.
  ZMOSVideoTracker* t = nullptr;
  ASSERT_EQ(ZMOSCreateVideoTrackerFF_PBM(&t, kW, kH, 1, nullptr), 0);
  ZMOSSetMaxOffet_PBM(t, 8, 12);
  ZMOSRECT* vr = nullptr;
  std::int32_t vn = 0;
  ZMOSGetVertProjRect_PBM(t, &vr, &vn);
  auto wave = [](int r) { return static_cast<std::uint8_t>(100 + std::abs((r % 40) - 20)); };
  Canvas a(kW, kH), b(kW, kH);
  for (int r = 0; r < kH; ++r)
    for (int side : {0, 2})
      for (int x = vr[side].lLeft; x < vr[side].lRight; ++x) {
        a.at(x, r) = wave(r + 100);
        b.at(x, r) = wave(r + 100 + (side == 0 ? 3 : 7));
      }
  ZMOSIMAGE ia = a.Image(), ib = b.Image();
  std::int32_t off[2] = {0, 0};
  ASSERT_EQ(ZMOSVideoTrackerRunFF_PBM(t, &ia, off), 0);
  ASSERT_EQ(ZMOSVideoTrackerRunFF_PBM(t, &ib, off), 0);
  ASSERT_EQ(BandTexture().cur_vert[0], BandTexture().cur_vert[2]);
  ASSERT_GE(BandTexture().cur_vert[0], 40);
  ASSERT_LT(BandTexture().cur_vert[1], 40);
  EXPECT_EQ(off[1], 7);
  ZMOSReleaseVideoTracker_PBM(&t);
}

}  // namespace
}  // namespace lumivex::track

namespace lumivex::track {
namespace {

// The reference tracker's swap, enumerated over band measures around its thresholds: the
// sweep-axis rectangle moves to the best-textured band exactly when the rules say so.
TEST(TrackerRules, ReferenceSwapPlacesTheBandByItsRules) {
  constexpr int kW = 320, kH = 240;
  const int values[] = {0, 29, 30, 31, 45};
  Canvas canvas(kW, kH);
  ZMOSIMAGE img = canvas.Image();
  int moved = 0;
  for (int mode = 0; mode < 2; ++mode) {
    for (int code = 0; code < 5 * 5 * 5 * 5 * 5 * 5; ++code) {
      int m[6], c = code;
      for (int& v : m) v = values[c % 5], c /= 5;
      ZMOSVideoTracker* t = nullptr;
      ASSERT_EQ(ZMOSCreateVideoTrackerRF_PBM(&t, kW, kH, mode, nullptr), 0);
      std::int32_t off[2] = {0, 0};
      ASSERT_EQ(ZMOSVideoTrackerRunRF_PBM(t, &img, off, off), 0);  // first frame
      std::int32_t* prev = mode == 0 ? BandTexture().prev_hori : BandTexture().prev_vert;
      std::int32_t* cur = mode == 0 ? BandTexture().cur_hori : BandTexture().cur_vert;
      std::copy(m, m + 3, prev);
      std::copy(m + 3, m + 6, cur);
      ZMOSRECT* rects = nullptr;
      std::int32_t n = 0;
      if (mode == 0) {
        ZMOSGetHoriProjRect_PBM(t, &rects, &n);
      } else {
        ZMOSGetVertProjRect_PBM(t, &rects, &n);
      }
      const ZMOSRECT before = rects[0];
      ASSERT_EQ(ZMOSVideoTrackerSwapRF_PBM(t, &img), 0);
      // Model: the middle band from 31, else the far band when it beats the near one
      // (a tie stays near); the current choice is left alone when the middle is below 31
      // but not exactly 30 and neither side exceeds 29.
      auto choice = [](const int* v) { return v[1] >= 31 ? 1 : v[2] > v[0] ? 2 : 0; };
      const int* p = m;
      const int* q = m + 3;
      const bool leave = q[1] < 31 && q[1] != 30 && q[0] <= 29 && q[2] <= 29;
      ZMOSRECT want = before;
      if (!leave && choice(p) != choice(q)) {
        const int k = choice(q);
        if (mode == 0) {
          const int y0 = k == 0 ? kH / 6 : k == 1 ? kH / 2 : (5 * kH) / 6, half = (kH / 3) / 2;
          const int qw = static_cast<int>(kW * 0.7) / 2;
          want = {std::max(kW / 2 - qw, 0) & ~3, std::max(y0 - half, 0),
                  std::min(kW / 2 + qw, kW) & ~3, std::min(y0 + half, kH)};
        } else {
          const int x0 = k == 0 ? kW / 4 : k == 1 ? kW / 2 : (3 * kW) / 4, half = (kW / 5) / 2;
          want = {std::max(x0 - half, 0) & ~3, 0, std::min(x0 + half, kW) & ~3, (kH / 2) * 2};
        }
      }
      ASSERT_EQ(rects[0].lLeft, want.lLeft) << "mode " << mode << " code " << code;
      ASSERT_EQ(rects[0].lTop, want.lTop) << "mode " << mode << " code " << code;
      ASSERT_EQ(rects[0].lRight, want.lRight) << "mode " << mode << " code " << code;
      ASSERT_EQ(rects[0].lBottom, want.lBottom) << "mode " << mode << " code " << code;
      moved += rects[0].lTop != before.lTop || rects[0].lLeft != before.lLeft;
      ZMOSReleaseVideoTracker_PBM(&t);
    }
  }
  EXPECT_GT(moved, 1000);
}

}  // namespace
}  // namespace lumivex::track

namespace lumivex::track {
namespace {

// The reference run modelled from its rules over the library's projections and matchers:
// the search narrowed by the last report, the refinement window, the compensation of the
// cross-axis projection from 11 pixels of motion on, the even rounding of a vertical
// offset, and every fallback to the prediction.
struct RFModel {
  ZMOSVideoTracker* t;
  std::int32_t w, h, mode;

  std::vector<std::uint32_t> Project(const ZMOSIMAGE* img, ZMOSRECT r, bool hori) const {
    std::vector<std::uint32_t> p(hori ? w : h, 0);
    if (r.lRight > r.lLeft && r.lBottom > r.lTop) {
      if (hori) {
        ZMOSHoriProjectSingle_PBM(img, &r, p.data());
      } else {
        ZMOSVertProjectSingle_PBM(img, &r, p.data());
      }
    }
    return p;
  }
  // cur + entering - leaving when the rectangle moved by `shift` across its long side.
  std::vector<std::uint32_t> Moved(const ZMOSIMAGE* img, const ZMOSRECT& r, std::int32_t shift,
                                   bool columns, std::vector<std::uint32_t> cur) const {
    if (shift >= -10 && shift <= 10) return cur;
    const std::int32_t lo = columns ? r.lLeft : r.lTop, hi = columns ? r.lRight : r.lBottom;
    const std::int32_t limit = columns ? w : h;
    auto strip = [&](std::int32_t a, std::int32_t b) {
      return columns ? ZMOSRECT{a, r.lTop, b, r.lBottom} : ZMOSRECT{r.lLeft, a, r.lRight, b};
    };
    std::vector<std::uint32_t> third, fourth;
    if (shift > 10) {
      third = Project(img, strip(std::max(lo - shift, 0), lo), !columns);
      fourth = Project(img, strip(std::max(hi - shift, 0), hi), !columns);
    } else {
      fourth = Project(img, strip(lo, std::min(lo - shift, limit)), !columns);
      third = Project(img, strip(hi, std::min(hi - shift, limit)), !columns);
    }
    for (std::size_t k = 0; k < cur.size(); ++k) cur[k] = cur[k] + third[k] - fourth[k];
    return cur;
  }
  void Run(const ZMOSIMAGE* a, const ZMOSIMAGE* b, std::int32_t* off, std::int32_t last_dx) const {
    ZMOSRECT *hr = nullptr, *vr = nullptr;
    std::int32_t hn = 0, vn = 0, max_x = 0, max_y = 0;
    ZMOSGetHoriProjRect_PBM(t, &hr, &hn);
    ZMOSGetVertProjRect_PBM(t, &vr, &vn);
    ZMOSGetMaxOffet_PBM(t, &max_x, &max_y);
    const std::int32_t pdx = off[0], pdy = off[1];
    auto direct = [](const std::vector<std::uint32_t>& p, const std::uint32_t* c, std::int32_t len,
                     std::int32_t* o, std::int32_t range) {
      return ZMOSMatch1DBufferAllocated_PBM(p.data(), c, len, o, range, nullptr, nullptr);
    };
    if (mode == 0) {
      const ZMOSRECT& r = hr[0];
      const std::int32_t rw = r.lRight - r.lLeft;
      const auto prev = Project(a, r, true), cur = Project(b, r, true);
      std::int32_t dx = pdx;
      bool done = false;
      if (BandTexture().cur_hori[0] + BandTexture().cur_hori[1] + BandTexture().cur_hori[2] > 96) {
        const std::int32_t speed = std::abs(last_dx);
        const std::int32_t range = speed > 90 ? 10 : speed > 80 ? 20 : speed > 60 ? 30 : max_x;
        dx = last_dx;
        if (direct(prev, cur.data(), rw, &dx, range) != 0) dx = pdx, done = true;
      }
      if (!done) {
        const std::int32_t s = rw / 2 - rw / 8;
        std::int32_t fine = 0;
        if (s - dx >= 0 && s - dx + rw / 4 <= w) {
          const std::vector<std::uint32_t> shifted(prev.begin() + s, prev.end());
          direct(shifted, cur.data() + (s - dx), rw / 4, &fine, 8);
        }
        dx += fine;
      }
      const ZMOSRECT& v = vr[0];
      const auto vprev = Project(a, v, false);
      const auto signal = Moved(b, v, dx, true, Project(b, v, false));
      std::int32_t dy = 0;
      off[0] = dx;
      off[1] = direct(vprev, signal.data(), v.lBottom - v.lTop, &dy, max_y) == 0 ? dy : pdy;
      return;
    }
    const ZMOSRECT& v = vr[0];
    const bool flat = BandTexture().cur_vert[0] < 40 && BandTexture().cur_vert[1] < 40 &&
                      BandTexture().cur_vert[2] < 40;
    std::int32_t dy = 0;
    if (flat || direct(Project(a, v, false), Project(b, v, false).data(), v.lBottom - v.lTop, &dy,
                       max_y) != 0)
      dy = pdy;
    const std::int32_t result_dy = dy;
    if (dy > 10 || dy < -10) dy &= ~1;
    const ZMOSRECT& r = hr[0];
    const auto signal = Moved(b, r, dy, false, Project(b, r, true));
    std::int32_t dx = pdx;
    if (direct(Project(a, r, true), signal.data(), r.lRight - r.lLeft, &dx, max_x) != 0) dx = pdx;
    off[0] = dx;
    off[1] = result_dy;
  }
};

TEST(TrackerRules, ReferenceRunFollowsItsRules) {
  constexpr int kW = 320, kH = 240;
  const Plane8 scene = test::SyntheticTexture(700, 600, 23);
  Rng rng(29);
  int compensated = 0, fallbacks = 0;
  for (int trial = 0; trial < 600; ++trial) {
    const int mode = trial % 2;
    // Last reports on the narrowing thresholds, true offsets just inside and outside the
    // narrowed range, and motion of exactly 10 or 11 pixels (compensated from 11 on).
    static constexpr int kLast[] = {60, 61, 80, 81, 90, 91};
    const int sign = rng.Range(0, 1) ? 1 : -1;
    const int edge = sign * kLast[rng.Range(0, 5)];
    const int kind = rng.Range(0, 3);
    int dx = kind == 0 ? edge - sign * rng.Range(8, 40) : rng.Range(-40, 40);
    int dy = rng.Range(-30, 30);
    if (kind == 1) (mode == 0 ? dx : dy) = sign * rng.Range(10, 11);
    dx = std::clamp(dx, -80, 80);
    Frame a(scene, 150, 150, kW, kH), b(scene, 150 + dx, 150 + dy, kW, kH);
    ZMOSVideoTracker* t = nullptr;
    ASSERT_EQ(ZMOSCreateVideoTrackerRF_PBM(&t, kW, kH, mode, nullptr), 0);
    if (mode == 0) {
      ZMOSSetMaxOffet_PBM(t, 80, 46);
    } else {
      ZMOSSetMaxOffet_PBM(t, 46, 60);
    }
    std::int32_t got[2] = {0, 0};
    ASSERT_EQ(ZMOSVideoTrackerRunRF_PBM(t, a.get(), got, got), 0);
    // Texture as the frame-to-frame tracker would have measured it: sometimes flat.
    const int texture = rng.Range(0, 3) == 0 ? 10 : 60;
    std::fill(BandTexture().cur_hori, BandTexture().cur_hori + 3, texture);
    std::fill(BandTexture().cur_vert, BandTexture().cur_vert + 3, texture);
    const std::int32_t last_dx = kind == 0 ? edge : dx + rng.Range(-3, 3);
    std::int32_t predicted[2] = {dx + rng.Range(-20, 20), dy + rng.Range(-20, 20)};
    std::int32_t want[2] = {predicted[0], predicted[1]};
    const RFModel model{t, kW, kH, mode};
    model.Run(a.get(), b.get(), want, last_dx);
    got[0] = predicted[0];
    got[1] = predicted[1];
    const std::int32_t last[2] = {last_dx, 0};
    ASSERT_EQ(ZMOSVideoTrackerRunRF_PBM(t, b.get(), got, last), 0);
    EXPECT_EQ(got[0], want[0]) << "trial " << trial << " mode " << mode << " dx " << dx << " dy "
                               << dy << " last " << last_dx << " texture " << texture;
    EXPECT_EQ(got[1], want[1]) << "trial " << trial << " mode " << mode << " dx " << dx << " dy "
                               << dy << " last " << last_dx << " texture " << texture;
    compensated += std::abs(mode == 0 ? want[0] : want[1]) > 10;
    fallbacks += want[0] == predicted[0] || want[1] == predicted[1];
    ZMOSReleaseVideoTracker_PBM(&t);
  }
  EXPECT_GT(compensated, 60);
  EXPECT_GT(fallbacks, 10);
}

}  // namespace
}  // namespace lumivex::track
