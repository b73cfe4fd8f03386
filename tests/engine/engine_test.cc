// End-to-end captures through the public API, on NV21 frames cut from the photograph.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "lumivex/lumivex.h"
#include "src/engine/sweep_stitcher.h"
#include "tests/support/test_support.h"

namespace {

using lumivex::test::ColourPlanes;
using lumivex::test::Frame;
using lumivex::test::Plane8;
using lumivex::test::Rng;

using lumivex::test::HandlerWorkBufferSize;

constexpr std::uint8_t kOutside = 0x6B;

// A capture over a work buffer with guard zones, driven as a phone host drives it.
class Capture {
 public:
  Capture(std::int32_t w, std::int32_t h, std::int32_t buffer_size = 0)
      : w_(w),
        h_(h),
        size_(buffer_size > 0 ? buffer_size : HandlerWorkBufferSize(w, h)),
        buffer_(size_ + 2 * kGuard, kOutside) {
    ZMOSINITPARAM param{buffer_.data() + kGuard, size_, 180, w, h, w, h};
    init_result_ = ZMOS_Init(&param, &engine_);
    ui_.dwFormat = ZMOS_FORMAT_NV21;
  }
  ~Capture() { ZMOS_UnInit(&engine_); }

  struct Step {
    std::int32_t result, kept, direction, angle;
    std::int32_t offset[2];
  };
  Step Feed(const ZMOSIMAGE* frame) {
    Step st{};
    std::int32_t flags[4] = {9, 9, 9, 9};
    st.angle = angle_;
    st.result = ZMOS_SelectFrames(engine_, frame, frame, st.offset, &st.kept, flags, &st.angle);
    angle_ = st.angle;
    st.direction = -1;
    for (int i = 0; i < 4; ++i)
      if (flags[i] == 1) st.direction = 3 - i;
    if (st.result == 0) {
      preview_result_ = ZMOS_UpdateUIImage(engine_, frame, &ui_, 6, rect_);
      const bool drawn = rect_[2] > rect_[0] && rect_[3] > rect_[1];
      if (drawn && (rects_.empty() || !std::equal(rect_, rect_ + 4, rects_.back().begin())))
        rects_.push_back({rect_[0], rect_[1], rect_[2], rect_[3]});
    }
    return st;
  }
  std::int32_t Stitch(ZMOSIMAGE* out) { return ZMOS_Stitch(engine_, out, nullptr); }
  bool GuardsIntact() const {
    for (std::size_t i = 0; i < buffer_.size(); ++i)
      if ((i < kGuard || i >= kGuard + size_) && buffer_[i] != kOutside) return false;
    return true;
  }
  std::int32_t init_result() const { return init_result_; }
  const ZMOSIMAGE& ui() const { return ui_; }
  const std::int32_t* rect() const { return rect_; }
  // Every distinct preview rectangle, in order.
  const std::vector<std::array<std::int32_t, 4>>& rects() const { return rects_; }
  std::int32_t preview_result() const { return preview_result_; }
  ZMOSSWEEPSTITCHER* engine() { return engine_; }

 private:
  static constexpr std::size_t kGuard = 4096;
  std::int32_t w_, h_, size_;
  std::vector<std::uint8_t> buffer_;
  ZMOSSWEEPSTITCHER* engine_ = nullptr;
  std::int32_t init_result_ = -1;
  ZMOSIMAGE ui_{};
  std::int32_t rect_[4] = {0, 0, 0, 0};
  std::vector<std::array<std::int32_t, 4>> rects_;
  std::int32_t preview_result_ = 0;
  std::int32_t angle_ = 0;
};

// A sweep path: camera positions (x, y) in photo pixels, frame by frame.
struct Path {
  std::vector<std::pair<int, int>> at;
};

// Steps along the direction's axis (varying within [lo, hi]) with cross jitter.
Path MakePath(int direction, int x0, int y0, int frames, int lo, int hi, int jitter,
              std::uint64_t seed) {
  Rng rng(seed);
  Path p;
  int along = 0, cross = 0;
  p.at.push_back({x0, y0});
  const int sign = direction % 2 == 0 ? 1 : -1;
  for (int k = 1; k < frames; ++k) {
    along += rng.Range(lo, hi);
    cross = std::clamp(cross + rng.Range(-jitter, jitter), -2 * jitter, 2 * jitter);
    if (direction < 2) {
      p.at.push_back({x0 + sign * along, y0 + cross});
    } else {
      p.at.push_back({x0 + cross, y0 + sign * along});
    }
  }
  return p;
}

struct SweepOutcome {
  bool finished = false;
  int detected_at = -1, direction = -1, last_angle = 0, frames = 0;
  bool monotonic = true;
  ZMOSIMAGE result{};
  std::int32_t stitch = -1;
};

template <typename Source>
SweepOutcome RunSweep(Capture& cap, const Source& photo, const Path& path, int w, int h) {
  SweepOutcome out;
  for (std::size_t k = 0; k < path.at.size(); ++k) {
    Frame frame(photo, path.at[k].first, path.at[k].second, w, h);
    const Capture::Step st = cap.Feed(frame.get());
    EXPECT_EQ(st.result, 0) << "frame " << k;
    if (st.result != 0) break;
    if (st.direction >= 0 && out.detected_at < 0) {
      out.detected_at = static_cast<int>(k);
      out.direction = st.direction;
    }
    if (std::getenv("LUMIVEX_TRACE") != nullptr)
      std::printf("frame %zu at %d,%d: result %d kept %d direction %d angle %d offset %d,%d\n", k,
                  path.at[k].first, path.at[k].second, st.result, st.kept, st.direction, st.angle,
                  st.offset[0], st.offset[1]);
    if (st.angle < out.last_angle) out.monotonic = false;
    out.last_angle = st.angle;
    out.frames = static_cast<int>(k) + 1;
    if (st.angle >= 180) {
      out.finished = true;
      break;
    }
  }
  out.stitch = cap.Stitch(&out.result);
  return out;
}

// PSNR of the result's luma against the photograph, at the best alignment within a few
// pixels of where the sweep's starting edge says it lies.
double LumaPsnr(const ZMOSIMAGE& img, const Plane8& photo, int x, int y, int search = 6) {
  double best = 1e30;
  for (int dy = -search; dy <= search; ++dy) {
    for (int dx = -search; dx <= search; ++dx) {
      double err = 0;
      long n = 0;
      for (int r = 0; r < img.lHeight; r += 3) {
        for (int c = 0; c < img.lWidth; c += 3) {
          const int px = x + dx + c, py = y + dy + r;
          if (px < 0 || py < 0 || px >= photo.width || py >= photo.height) return -1;
          const int d = img.pPlane[0][r * img.lPitch[0] + c] - photo.at(px, py);
          err += d * d;
          ++n;
        }
      }
      best = std::min(best, err / n);
    }
  }
  return best > 0 ? 10 * std::log10(255.0 * 255.0 / best) : 99.0;
}

class EngineCapture : public testing::Test {
 protected:
  void SetUp() override {
    colour_ = lumivex::test::ColourPhoto();
    grey_ = lumivex::test::Photo();
    LUMIVEX_REQUIRE_PHOTO(colour_ == nullptr || grey_ == nullptr);
  }
  const ColourPlanes* colour_ = nullptr;
  const Plane8* grey_ = nullptr;
};

// A steady sweep in each direction: detected, angles rise to 180, the capture finishes
// and the panorama, cropped to multiples of 16 from the starting edge, is the photograph.
TEST_F(EngineCapture, SteadySweepsInEveryDirection) {
  for (int direction = 0; direction < 4; ++direction) {
    SCOPED_TRACE(testing::Message() << "direction " << direction);
    const bool horizontal = direction < 2;
    // Horizontal sweeps: 640 x 480 along the horizon of the half-size colour photograph.
    // Vertical ones: 320 x 240 over the rocks of the full-size one (a vertical canvas is
    // three frame widths tall, and the photograph has about 1400 textured rows).
    const int w = horizontal ? 640 : 320, h = horizontal ? 480 : 240;
    const Plane8& luma = horizontal ? colour_->y : *grey_;
    const int x0 = horizontal ? (direction == 0 ? 150 : 1700) : 2000;
    const int y0 = horizontal ? 560 : (direction == 2 ? 1350 : 2250);
    // Vertical sweeps step more than 11 rows a frame: below that the reference tracker
    // does not move its horizontal band with the sweep, and a 60-row band of a 240-row
    // frame then misreads the horizontal offset on this photograph's strong rows.
    const Path path = MakePath(direction, x0, y0, 400, horizontal ? 10 : 12, 16, 0, 7);
    Capture cap(w, h);
    ASSERT_EQ(cap.init_result(), 0);
    const SweepOutcome out =
        horizontal ? RunSweep(cap, *colour_, path, w, h) : RunSweep(cap, luma, path, w, h);
    EXPECT_EQ(out.direction, direction);
    EXPECT_TRUE(out.monotonic);
    EXPECT_TRUE(out.finished);
    EXPECT_EQ(out.last_angle, 180);
    ASSERT_EQ(out.stitch, 0);
    EXPECT_EQ(ZMOSIsResultNarrow_SWT(cap.engine()), 0);
    EXPECT_EQ(out.result.lWidth % 16, 0);
    EXPECT_EQ(out.result.lHeight % 16, 0);
    EXPECT_GE(horizontal ? out.result.lWidth : out.result.lHeight, 2 * (horizontal ? w : h));
    // Where the starting edge lies in the photograph.
    const auto [sx, sy] = path.at[out.detected_at];
    const int ex = direction == 1 ? sx + w - out.result.lWidth : sx;
    const int ey = direction == 3 ? sy + h - out.result.lHeight : sy;
    const double psnr = LumaPsnr(out.result, luma, ex, ey);
    RecordProperty("psnr_dir" + std::to_string(direction), static_cast<int>(psnr));
    EXPECT_GT(psnr, 35.0);
    // The preview: created on the first kept frame, closed by the last strip.
    EXPECT_EQ(cap.preview_result(), 0);
    EXPECT_EQ(cap.ui().lWidth, horizontal ? 320 : 52);
    EXPECT_EQ(cap.ui().lHeight, horizontal ? 80 : 160);
    // It grows from the starting edge, strip by strip, until the last strip closes it.
    const auto& rects = cap.rects();
    ASSERT_GE(rects.size(), 3u);
    const int pw = cap.ui().lWidth, ph = cap.ui().lHeight;
    for (std::size_t i = 1; i < rects.size(); ++i) {
      const auto& a = rects[i - 1];
      const auto& b = rects[i];
      switch (direction) {
        case 0:
          EXPECT_EQ(b[0], 0);
          EXPECT_GT(b[2], a[2]);
          break;
        case 1:
          EXPECT_EQ(b[2], pw);
          EXPECT_LT(b[0], a[0]);
          break;
        case 2:
          EXPECT_EQ(b[1], 0);
          EXPECT_GT(b[3], a[3]);
          break;
        default:
          EXPECT_GE(b[3], ph);
          EXPECT_LT(b[1], a[1]);
          break;
      }
    }
    const auto& last = rects.back();
    EXPECT_EQ(last[0], 0);
    EXPECT_EQ(last[1], 0);
    EXPECT_EQ(last[2], pw);
    EXPECT_GE(last[3], ph);
    EXPECT_TRUE(cap.GuardsIntact());
  }
}

// A 1280 x 720 capture, and a hand-held one: speed varying between 8 and 24 px a frame
// and the camera wandering up and down by up to 2 px a frame.
TEST_F(EngineCapture, HighResolutionAndHandHeldSweeps) {
  {
    Capture cap(1280, 720);
    ASSERT_EQ(cap.init_result(), 0);
    const Path path = MakePath(0, 500, 1300, 400, 16, 30, 0, 3);
    const SweepOutcome out = RunSweep(cap, *grey_, path, 1280, 720);
    EXPECT_TRUE(out.finished);
    ASSERT_EQ(out.stitch, 0);
    EXPECT_GE(out.result.lWidth, 2 * 1280);
    const auto [sx, sy] = path.at[out.detected_at];
    const double psnr = LumaPsnr(out.result, *grey_, sx, sy);
    RecordProperty("psnr_1280x720", static_cast<int>(psnr));
    EXPECT_GT(psnr, 35.0);
  }
  for (int direction : {0, 1}) {
    SCOPED_TRACE(testing::Message() << "hand-held, direction " << direction);
    Capture cap(640, 480);
    const Path path = MakePath(direction, direction == 0 ? 150 : 1700, 560, 400, 8, 24, 2, 11);
    const SweepOutcome out = RunSweep(cap, *colour_, path, 640, 480);
    EXPECT_EQ(out.direction, direction);
    EXPECT_TRUE(out.finished);
    ASSERT_EQ(out.stitch, 0);
    EXPECT_EQ(ZMOSIsResultNarrow_SWT(cap.engine()), 0);
    const auto [sx, sy] = path.at[out.detected_at];
    const double psnr = LumaPsnr(out.result, colour_->y,
                                 direction == 1 ? sx + 640 - out.result.lWidth : sx, sy, 10);
    RecordProperty("psnr_handheld_dir" + std::to_string(direction), static_cast<int>(psnr));
    EXPECT_GT(psnr, 30.0);
  }
}

// Drift across a horizontal sweep is judged on the kept frames' summed cross travel: up
// to a third of the frame height (160 of 480) the sweep goes on, one pixel more and it has
// gone wrong, whichever way the hand drifts.
TEST_F(EngineCapture, DriftOfAThirdOfTheHeightIsTheLastKept) {
  for (const int sign : {1, -1}) {
    for (const int target : {160, 161}) {
      SCOPED_TRACE(testing::Message() << "drift " << sign * target);
      Capture cap(640, 480);
      const ZMOSSWEEPSTITCHER& s = *cap.engine();
      int x = 150, y = 560, pending = 0, res = 0, drift = 0;
      for (int k = 0; k < 70 && res == 0; ++k) {
        // Climb or sink until the kept frames' drift plus what is not yet kept reaches the
        // target, then hold the height.
        const int step = s.lDirection < 0 ? 0 : std::min(4, target - std::abs(s.lDriftY) - pending);
        y += sign * step;
        pending += step;
        const std::int32_t kept_before = s.lKeptCount;
        Frame frame(*colour_, x, y, 640, 480);
        res = cap.Feed(frame.get()).result;
        if (s.lKeptCount != kept_before) pending = 0;
        drift = std::max(drift, std::abs(s.lDriftY));
        x += 12;
      }
      if (target == 160) {
        EXPECT_EQ(res, 0);
        EXPECT_EQ(drift, 160) << "the hand's drift should have been tracked to the pixel";
      } else {
        EXPECT_EQ(res, ZMOS_ERR_SWEEP_WRONG);
      }
    }
  }
}

// What a user can do wrong, and what the engine answers.
TEST_F(EngineCapture, FailuresAndFallbacks) {
  auto feed = [&](Capture& cap, int x, int y) {
    Frame frame(*colour_, x, y, 640, 480);
    return cap.Feed(frame.get());
  };
  {
    // Too fast: a jump of 75 px after a steady start.
    Capture cap(640, 480);
    int x = 150;
    for (int k = 0; k < 8; ++k, x += 12) ASSERT_EQ(feed(cap, x, 560).result, 0);
    EXPECT_EQ(feed(cap, x + 75, 560).result, ZMOS_ERR_TOO_FAST);
  }
  {
    // Backward: the sweep reverses until it has gone wrong.
    Capture cap(640, 480);
    int x = 150, k = 0, res = 0;
    for (; k < 8; ++k, x += 12) ASSERT_EQ(feed(cap, x, 560).result, 0);
    for (k = 0; k < 40 && res == 0; ++k) {
      x -= 10;
      res = feed(cap, x, 560).result;
    }
    EXPECT_EQ(res, ZMOS_ERR_SWEEP_WRONG);
  }
  {
    // Drift: the camera climbs 3 px a frame while sweeping.
    Capture cap(640, 480);
    int res = 0;
    for (int k = 0; k < 150 && res == 0; ++k) res = feed(cap, 150 + 10 * k, 700 - 3 * k).result;
    EXPECT_EQ(res, ZMOS_ERR_SWEEP_WRONG);
  }
  {
    // A flat scene: no direction can be found, and the capture ends with 5.
    Capture cap(640, 480);
    Plane8 flat{640, 480, std::vector<std::uint8_t>(640 * 480, 120)};
    Frame frame(flat, 0, 0, 640, 480);
    EXPECT_EQ(cap.Feed(frame.get()).result, 0);
    EXPECT_EQ(cap.Feed(frame.get()).result, ZMOS_ERR_NO_TEXTURE);
    EXPECT_EQ(cap.Feed(frame.get()).result, 0);  // inactive from then on
  }
  {
    // A camera that never moves keeps detecting; stitching then returns the first frame.
    Capture cap(640, 480);
    Frame first(*colour_, 900, 560, 640, 480);
    for (int k = 0; k < 30; ++k) {
      Frame frame(*colour_, 900 + (k & 1), 560, 640, 480);
      const Capture::Step st = cap.Feed(k == 0 ? first.get() : frame.get());
      ASSERT_EQ(st.result, 0);
      ASSERT_EQ(st.direction, -1);
    }
    ZMOSIMAGE result{};
    ASSERT_EQ(cap.Stitch(&result), 0);
    EXPECT_EQ(ZMOSIsResultNarrow_SWT(cap.engine()), 1);
    ASSERT_EQ(result.lWidth, 640);
    ASSERT_EQ(result.lHeight, 480);
    for (int y = 0; y < 480; y += 7)
      for (int x = 0; x < 640; x += 5)
        ASSERT_EQ(result.pPlane[0][y * result.lPitch[0] + x], first.get()->pPlane[0][y * 640 + x]);
  }
  {
    // Stitching before any frame leaves the result untouched.
    Capture cap(640, 480);
    ZMOSIMAGE result{};
    result.lWidth = -5;
    EXPECT_EQ(cap.Stitch(&result), 0);
    EXPECT_EQ(result.lWidth, -5);
  }
}

TEST(EngineApi, ArgumentChecksAndDirectionFlags) {
  std::vector<std::uint8_t> buffer(HandlerWorkBufferSize(640, 480));
  ZMOSSWEEPSTITCHER* engine = nullptr;
  ZMOSINITPARAM param{
      buffer.data(), static_cast<std::int32_t>(buffer.size()), 180, 640, 480, 640, 480};
  for (auto bad : {ZMOSINITPARAM{nullptr, 100, 180, 640, 480, 640, 480},
                   ZMOSINITPARAM{buffer.data(), 0, 180, 640, 480, 640, 480},
                   ZMOSINITPARAM{buffer.data(), -1, 180, 640, 480, 640, 480},
                   ZMOSINITPARAM{buffer.data(), 100, 180, 641, 480, 640, 480},
                   ZMOSINITPARAM{buffer.data(), 100, 180, 640, 481, 640, 480},
                   ZMOSINITPARAM{buffer.data(), 100, 180, 640, 480, 639, 480},
                   ZMOSINITPARAM{buffer.data(), 100, 180, 640, 480, 640, 479}}) {
    EXPECT_EQ(ZMOS_Init(&bad, &engine), ZMOS_ERR_INVALID_PARAM);
    EXPECT_EQ(engine, nullptr);
  }
  ASSERT_EQ(ZMOS_Init(&param, &engine), 0);
  Plane8 tex = lumivex::test::SyntheticTexture(640, 480, 2);
  Frame frame(tex, 0, 0, 640, 480);
  std::int32_t off[2] = {7, 7}, kept = 0, flags[4] = {5, 5, 5, 5}, angle = 33;
  EXPECT_EQ(ZMOS_SelectFrames(nullptr, frame.get(), frame.get(), off, &kept, flags, &angle), 2);
  EXPECT_EQ(ZMOS_SelectFrames(engine, frame.get(), frame.get(), off, &kept, flags, nullptr), 2);
  EXPECT_EQ(flags[0], 5);  // nothing touched
  ASSERT_EQ(ZMOS_SelectFrames(engine, frame.get(), frame.get(), off, &kept, flags, &angle), 0);
  EXPECT_EQ(std::count(flags, flags + 4, 0), 4);  // direction unknown
  EXPECT_EQ(angle, 33);                           // written only for a kept frame
  // A preset direction sets its flag: direction 2 is the second flag.
  ASSERT_EQ(ZMOSSetDirection_SWT(engine, 2), 0);
  ASSERT_EQ(ZMOS_SelectFrames(engine, frame.get(), frame.get(), off, &kept, flags, &angle), 0);
  EXPECT_EQ(flags[0], 0);
  EXPECT_EQ(flags[1], 1);
  ZMOSIMAGE ui{};
  ui.dwFormat = 0x601;
  EXPECT_EQ(ZMOS_UpdateUIImage(engine, frame.get(), nullptr, 6, nullptr), 2);
  EXPECT_EQ(ZMOS_UpdateUIImage2(nullptr, frame.get(), &ui, 6, nullptr), 2);
  EXPECT_EQ(ZMOS_Stitch(engine, nullptr, nullptr), 2);
  EXPECT_EQ(ZMOS_UnInit(&engine), 0);
  EXPECT_EQ(engine, nullptr);
  EXPECT_EQ(ZMOS_UnInit(&engine), 0);
  EXPECT_EQ(ZMOSIsResultNarrow_SWT(nullptr), 1);
}

// Two captures one after the other in one process, and work buffers too small at every
// stage of a capture: 4 (or success), never a write outside the buffer.
TEST_F(EngineCapture, RepeatedCapturesAndShortWorkBuffers) {
  for (int round = 0; round < 2; ++round) {
    Capture cap(640, 480);
    const Path path = MakePath(0, 150 + 300 * round, 560, 400, 10, 16, 0, 5 + round);
    const SweepOutcome out = RunSweep(cap, *colour_, path, 640, 480);
    EXPECT_TRUE(out.finished) << "round " << round;
    EXPECT_EQ(out.stitch, 0);
    EXPECT_EQ(ZMOSIsResultNarrow_SWT(cap.engine()), 0);
  }
  const std::int32_t full = HandlerWorkBufferSize(320, 240);
  for (std::int32_t size :
       {64, 1024, 20000, 100000, 200000, 300000, 400000, 500000, 600000, full}) {
    SCOPED_TRACE(testing::Message() << "work buffer " << size);
    Capture cap(320, 240, size);
    if (cap.init_result() != 0) {
      EXPECT_EQ(cap.init_result(), ZMOS_ERR_NO_MEMORY);
      continue;
    }
    std::int32_t res = 0;
    for (int k = 0; k < 120 && res == 0; ++k) {
      Frame frame(*grey_, 1800 + 6 * k, 1500, 320, 240);
      res = cap.Feed(frame.get()).result;
    }
    EXPECT_TRUE(res == 0 || res == ZMOS_ERR_NO_MEMORY) << res;
    ZMOSIMAGE result{};
    const std::int32_t stitch = cap.Stitch(&result);
    EXPECT_TRUE(stitch == 0 || stitch == ZMOS_ERR_NO_MEMORY) << stitch;
    if (size == full) {
      EXPECT_EQ(res, 0);
      EXPECT_EQ(stitch, 0);
    }
    EXPECT_TRUE(cap.GuardsIntact());
  }
}

}  // namespace
