// The quality profile: chosen per engine before the first frame, and each correction seen
// on a sweep the exact profile gets wrong while the exact profile stays as it was.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <fstream>
#include <set>
#include <sstream>

#include "lumivex/lumivex.h"
#include "src/engine/policy.h"
#include "tests/support/test_support.h"

namespace {

// The list of corrections is the one place they are named: every switch of the policy is
// on it once, the quality policy is exactly its switches, and the README names each.
TEST(Corrections, OneListNamesEverySwitch) {
  static_assert(sizeof(lumivex::Policy) == std::size(lumivex::kCorrections) * sizeof(bool),
                "every switch of Policy needs its entry in kCorrections");
  std::set<std::string> names;
  lumivex::Policy seen{};
  for (const lumivex::Correction& c : lumivex::kCorrections) {
    EXPECT_FALSE(seen.*c.flag) << c.name << " is listed twice";
    seen.*c.flag = true;
    EXPECT_TRUE(names.insert(c.name).second) << c.name;
    EXPECT_TRUE(lumivex::kQualityPolicy.*c.flag) << c.name;
    EXPECT_FALSE(lumivex::kExactPolicy.*c.flag) << c.name;
  }
  std::ifstream readme(std::string(LUMIVEX_SOURCE_DIR) + "/README.md");
  std::stringstream text;
  text << readme.rdbuf();
  for (const std::string& name : names)
    EXPECT_NE(text.str().find("`" + name + "`"), std::string::npos) << name << " not in README";
}

using lumivex::test::ColourPlanes;
using lumivex::test::Frame;
using lumivex::test::Plane8;

TEST(Profile, ChosenPerEngineBeforeTheFirstFrame) {
  std::vector<std::uint8_t> work(lumivex::test::HandlerWorkBufferSize(320, 240)),
      other(lumivex::test::HandlerWorkBufferSize(320, 240));
  ZMOSSWEEPSTITCHER *a = nullptr, *b = nullptr;
  ZMOSINITPARAM pa{work.data(), static_cast<std::int32_t>(work.size()), 180, 320, 240, 320, 240};
  ZMOSINITPARAM pb{other.data(), static_cast<std::int32_t>(other.size()), 180, 320, 240, 320, 240};
  ASSERT_EQ(ZMOS_Init(&pa, &a), 0);
  ASSERT_EQ(ZMOS_Init(&pb, &b), 0);
  EXPECT_EQ(ZMOS_SetProfile(nullptr, ZMOS_PROFILE_QUALITY), ZMOS_ERR_INVALID_PARAM);
  EXPECT_EQ(ZMOS_SetProfile(a, 7), ZMOS_ERR_INVALID_PARAM);
  EXPECT_EQ(ZMOS_SetProfile(a, ZMOS_PROFILE_QUALITY), 0);
  EXPECT_EQ(ZMOS_SetProfile(a, ZMOS_PROFILE_EXACT), 0);  // changing one's mind is fine
  EXPECT_EQ(ZMOS_SetProfile(a, ZMOS_PROFILE_QUALITY), 0);
  lumivex::test::GuardedImage frame(ZMOS_FORMAT_NV21, 320, 240);
  std::int32_t offset[2], kept = 0, flags[4], angle = 0;
  ZMOS_SelectFrames(a, frame.get(), frame.get(), offset, &kept, flags, &angle);
  EXPECT_EQ(ZMOS_SetProfile(a, ZMOS_PROFILE_EXACT), ZMOS_ERR_INVALID_PARAM);  // too late
  ZMOS_UnInit(&a);
  ZMOS_UnInit(&b);
}

// A released engine gives its profile back: captures one after another in one buffer (so
// each engine is at the last one's address) never run out of room for the quality
// profile, and one that does not ask for it runs exact.
TEST(Profile, ReleasedEnginesGiveTheirProfileBack) {
  std::vector<std::uint8_t> work(lumivex::test::HandlerWorkBufferSize(320, 240));
  ZMOSINITPARAM param{work.data(), static_cast<std::int32_t>(work.size()), 180, 320, 240, 320, 240};
  for (int i = 0; i < 40; ++i) {
    ZMOSSWEEPSTITCHER* e = nullptr;
    ASSERT_EQ(ZMOS_Init(&param, &e), 0);
    ASSERT_EQ(ZMOS_SetProfile(e, ZMOS_PROFILE_QUALITY), 0) << "capture " << i;
    ZMOS_UnInit(&e);
  }
  // Coasting is the quality profile's alone: a plain frame after a textured one never
  // coasts in an engine that was not asked for it.
  ZMOSSWEEPSTITCHER* e = nullptr;
  ASSERT_EQ(ZMOS_Init(&param, &e), 0);
  EXPECT_EQ(ZMOS_SetProfile(e, ZMOS_PROFILE_EXACT), 0);
  EXPECT_EQ(ZMOS_IsCoasting(e), 0);
  ZMOS_UnInit(&e);
}

// An engine over its own work buffer, under a profile.
struct ProfiledEngine {
  std::vector<std::uint8_t> work;
  ZMOSSWEEPSTITCHER* engine = nullptr;
  std::int32_t init = -1;
  ProfiledEngine(int w, int h, std::int32_t profile)
      : work(lumivex::test::HandlerWorkBufferSize(w, h)) {
    ZMOSINITPARAM param{work.data(), static_cast<std::int32_t>(work.size()), 180, w, h, w, h};
    init = ZMOS_Init(&param, &engine);
    if (init == 0) init = ZMOS_SetProfile(engine, profile);
  }
  ~ProfiledEngine() { ZMOS_UnInit(&engine); }
};

struct Outcome {
  std::int32_t end = 0;
  ZMOSIMAGE pano{};
  std::vector<std::uint8_t> work;
  // Each kept frame and the travel the engine reported for it along the sweep.
  std::vector<std::pair<int, int>> kept;
};

// A steady sweep of `step` pixels a frame over `scene`, stitched, under a profile.
void Sweep(const ColourPlanes& scene, int direction, int step, int w, int h, int cross0,
           std::int32_t profile, Outcome* out, double (*gain)(int frame) = nullptr) {
  ProfiledEngine capture(w, h, profile);
  ASSERT_EQ(capture.init, 0);
  ZMOSSWEEPSTITCHER* engine = capture.engine;
  const bool horizontal = direction < 2;
  const int sign = direction % 2 == 0 ? 1 : -1;
  const int travel = 3 * w - (horizontal ? w : h);
  const int along0 = sign > 0 ? 40 : 40 + travel + 100;
  std::int32_t kept = 0, angle = 0;
  for (int k = 0; k < 800 && angle < 180; ++k) {
    const int along = along0 + sign * step * k;
    Frame frame(scene, horizontal ? along : cross0, horizontal ? cross0 : along, w, h);
    if (gain != nullptr) {
      ZMOSIMAGE& img = *frame.get();
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          std::uint8_t& v = img.pPlane[0][y * img.lPitch[0] + x];
          v = static_cast<std::uint8_t>(std::min(255.0, v * gain(k) + 0.5));
        }
    }
    std::int32_t offset[2], flags[4];
    const std::int32_t before = kept;
    out->end = ZMOS_SelectFrames(engine, frame.get(), frame.get(), offset, &kept, flags, &angle);
    if (out->end != 0) break;
    // y is reported negated.
    if (kept > before) out->kept.push_back({k, horizontal ? offset[0] : -offset[1]});
  }
  ASSERT_EQ(ZMOS_Stitch(engine, &out->pano, nullptr), 0);
  // The pixels stay in the work buffer, which this outcome keeps; the engine may go.
  ZMOS_UnInit(&capture.engine);
  out->work = std::move(capture.work);
}

// Whether the panorama's luma is a window of the scene, anywhere along the sweep and
// within a few pixels across it.
bool IsWindowOf(const ZMOSIMAGE& pano, const Plane8& scene, int cross0, bool horizontal) {
  auto sample = [&](int x, int y) { return pano.pPlane[0][y * pano.lPitch[0] + x]; };
  for (int along = 0; along + (horizontal ? pano.lWidth : pano.lHeight) <=
                      (horizontal ? scene.width : scene.height);
       ++along) {
    for (int cross = cross0 - 6; cross <= cross0 + 6; ++cross) {
      const int ox = horizontal ? along : cross, oy = horizontal ? cross : along;
      if (ox < 0 || oy < 0 || ox + pano.lWidth > scene.width || oy + pano.lHeight > scene.height)
        continue;
      bool same = true;
      for (int y = 0; y < pano.lHeight && same; y += 7)
        for (int x = 0; x < pano.lWidth && same; x += 5)
          same = sample(x, y) == scene.at(ox + x, oy + y);
      for (int y = 0; y < pano.lHeight && same; ++y)
        for (int x = 0; x < pano.lWidth && same; ++x)
          same = sample(x, y) == scene.at(ox + x, oy + y);
      if (same) return true;
    }
  }
  return false;
}

// Small steps: the reference tracker no longer reads the columns that enter its band as
// cross travel, and the panorama is the photograph again, in every direction.
TEST(Profile, SmallStepsGiveThePhotographBack) {
  const ColourPlanes* photo = lumivex::test::ColourPhoto();
  LUMIVEX_REQUIRE_PHOTO(photo == nullptr);
  const ColourPlanes& turned = *lumivex::test::TurnedColourPhoto();
  int exact_wrong = 0;
  for (int direction = 0; direction < 4; ++direction) {
    for (int step : {5, 8}) {
      SCOPED_TRACE(testing::Message() << "direction " << direction << " step " << step);
      const ColourPlanes& scene = direction < 2 ? *photo : turned;
      Outcome quality, exact;
      // Across the ridge line, where the exact engine reads some of them as climbing.
      constexpr int kCross = 300;
      Sweep(scene, direction, step, 640, 480, kCross, ZMOS_PROFILE_QUALITY, &quality);
      EXPECT_EQ(quality.end, 0);
      EXPECT_EQ(std::max(quality.pano.lWidth, quality.pano.lHeight), 1920);
      EXPECT_TRUE(IsWindowOf(quality.pano, scene.y, kCross, direction < 2));
      if (direction == 0) {
        Sweep(scene, direction, step, 640, 480, kCross, ZMOS_PROFILE_EXACT, &exact);
        exact_wrong += exact.end != 0 || !IsWindowOf(exact.pano, scene.y, kCross, true);
      }
    }
  }
  EXPECT_EQ(exact_wrong, 2) << "the exact engine drifts on both, which is what this corrects";
}

// An upward sweep that starts on a sky the horizontal bands see as flat: rows of texture
// the vertical band measures well. The exact engine gives up on the second frame.
TEST(Profile, DetectionLooksAtTheVerticalBandBeforeGivingUp) {
  Plane8 rows{400, 900, {}};
  rows.pixels.resize(static_cast<std::size_t>(rows.width) * rows.height);
  lumivex::test::Rng rng(3);
  int level = 128;
  for (int y = 0; y < rows.height; ++y) {
    level = std::clamp(level + rng.Range(-6, 6), 20, 235);
    std::fill(rows.pixels.begin() + static_cast<std::ptrdiff_t>(y) * rows.width,
              rows.pixels.begin() + static_cast<std::ptrdiff_t>(y + 1) * rows.width,
              static_cast<std::uint8_t>(level));
  }
  for (std::int32_t profile : {ZMOS_PROFILE_EXACT, ZMOS_PROFILE_QUALITY}) {
    ProfiledEngine capture(320, 240, profile);
    ASSERT_EQ(capture.init, 0);
    ZMOSSWEEPSTITCHER* engine = capture.engine;
    std::int32_t res = 0, kept = 0, angle = 0, direction = -1;
    for (int k = 0; k < 12 && res == 0 && direction < 0; ++k) {
      Frame frame(rows, 40, 600 - 4 * k, 320, 240);
      std::int32_t offset[2], flags[4];
      res = ZMOS_SelectFrames(engine, frame.get(), frame.get(), offset, &kept, flags, &angle);
      for (int i = 0; i < 4; ++i)
        if (flags[i] == 1) direction = 3 - i;
    }
    if (profile == ZMOS_PROFILE_EXACT) {
      EXPECT_EQ(res, ZMOS_ERR_NO_TEXTURE);
    } else {
      EXPECT_EQ(res, 0);
      EXPECT_EQ(direction, 3);  // toward decreasing y
    }
  }
}

// Half of 854 is odd: the exact engine cuts the overlap at an odd column and blends U
// with V there. On a scene of one colour every chroma byte of the quality panorama keeps
// it.
TEST(Profile, OddSeamsKeepChromaInPhase) {
  const Plane8* luma = lumivex::test::Photo();
  LUMIVEX_REQUIRE_PHOTO(luma == nullptr);
  Plane8 u{luma->width, luma->height, std::vector<std::uint8_t>(luma->pixels.size(), 100)};
  Plane8 v{luma->width, luma->height, std::vector<std::uint8_t>(luma->pixels.size(), 160)};
  const ColourPlanes scene{*luma, u, v};
  for (std::int32_t profile : {ZMOS_PROFILE_EXACT, ZMOS_PROFILE_QUALITY}) {
    Outcome out;
    Sweep(scene, 0, 12, 854, 480, 1300, profile, &out);
    ASSERT_EQ(out.pano.dwFormat, static_cast<std::uint32_t>(ZMOS_FORMAT_NV21));
    int crossed = 0;
    for (int r = 0; r < out.pano.lHeight / 2; ++r)
      for (int c = 0; c + 1 < out.pano.lWidth; c += 2) {
        const std::uint8_t* vu = out.pano.pPlane[1] + r * out.pano.lPitch[1] + c;
        crossed += vu[0] != 160 || vu[1] != 100;
      }
    if (profile == ZMOS_PROFILE_EXACT) {
      EXPECT_GT(crossed, 1000);
    } else {
      EXPECT_EQ(crossed, 0);
    }
  }
}

// One frame three strips ahead, then the steady pace again, with a host that keeps feeding
// after "too fast". The exact engine keeps measuring against the frame left behind and
// never keeps another; the quality engine lays the hasty frame one strip on and completes.
TEST(Profile, TooFastFrameIsSurvived) {
  const ColourPlanes* photo = lumivex::test::ColourPhoto();
  if (photo == nullptr) GTEST_SKIP() << "no test photograph";
  for (std::int32_t profile : {ZMOS_PROFILE_EXACT, ZMOS_PROFILE_QUALITY}) {
    SCOPED_TRACE(testing::Message() << "profile " << profile);
    ProfiledEngine capture(640, 480, profile);
    ASSERT_EQ(capture.init, 0);
    ZMOSSWEEPSTITCHER* engine = capture.engine;
    std::int32_t kept = 0, angle = 0;
    int x = 40, too_fast = 0, kept_after = 0, other = 0;
    std::int32_t offset[2] = {0, 0};
    for (int k = 0; k < 160 && angle < 180; ++k) {
      x += k == 30 ? 180 : 16;
      Frame frame(*photo, x, 1000, 640, 480);
      std::int32_t flags[4];
      const std::int32_t before = kept;
      const std::int32_t res =
          ZMOS_SelectFrames(engine, frame.get(), frame.get(), offset, &kept, flags, &angle);
      too_fast += res == ZMOS_ERR_TOO_FAST;
      if (k > 30) kept_after += kept > before;
      if (res != 0 && res != ZMOS_ERR_TOO_FAST) {
        other = res;
        break;
      }
    }
    if (profile == ZMOS_PROFILE_EXACT) {
      EXPECT_GT(too_fast, 20);
      EXPECT_EQ(kept_after, 0);
    } else {
      EXPECT_EQ(too_fast, 1);
      EXPECT_EQ(other, 0);
      EXPECT_EQ(angle, 180);
      // The host's travel includes the strip the hasty frame was laid at: at the end it is
      // where the canvas is, two frame widths on (the sweep completes within a step).
      EXPECT_GE(offset[0], 1280);
      EXPECT_LT(offset[0], 1280 + 16);
      ZMOSIMAGE pano{};
      ASSERT_EQ(ZMOS_Stitch(engine, &pano, nullptr), 0);
      EXPECT_EQ(pano.lWidth, 1920);
    }
  }
}

// A plain wall mid-sweep, wider than a frame: nothing measures the travel there. The exact
// engine reads the camera as still and the wall comes out short in the panorama; the
// quality engine carries the speed across it.
TEST(Profile, PlainStretchIsCoasted) {
  const ColourPlanes* photo = lumivex::test::ColourPhoto();
  if (photo == nullptr) GTEST_SKIP() << "no test photograph";
  ColourPlanes scene = *photo;
  for (int y = 0; y < scene.y.height; ++y)
    for (int x = 560; x < 1360; ++x) {
      scene.y.pixels[static_cast<std::size_t>(y) * scene.y.width + x] = 170;
      scene.u.pixels[static_cast<std::size_t>(y) * scene.u.width + x] = 120;
      scene.v.pixels[static_cast<std::size_t>(y) * scene.v.width + x] = 136;
    }
  for (std::int32_t profile : {ZMOS_PROFILE_EXACT, ZMOS_PROFILE_QUALITY}) {
    SCOPED_TRACE(testing::Message() << "profile " << profile);
    Outcome out;
    Sweep(scene, 0, 16, 640, 480, 1000, profile, &out);
    EXPECT_EQ(out.end, 0);
    // The wall's width in the panorama: columns plain from top to bottom.
    int wall = 0;
    for (int x = 0; x < out.pano.lWidth; ++x) {
      bool plain = true;
      for (int y = 0; y < out.pano.lHeight && plain; ++y)
        plain = out.pano.pPlane[0][y * out.pano.lPitch[0] + x] == 170;
      wall += plain;
    }
    if (profile == ZMOS_PROFILE_EXACT) {
      EXPECT_LT(wall, 500);
    } else {
      EXPECT_NEAR(wall, 800, 8);
    }
  }
}

// A plain stretch longer than the coasting limit: the quality engine carries the speed for
// 60 frames, and the next plain frame ends the capture for lack of texture.
TEST(Profile, CoastingStopsAfterSixtyFrames) {
  const ColourPlanes* photo = lumivex::test::ColourPhoto();
  if (photo == nullptr) GTEST_SKIP() << "no test photograph";
  ColourPlanes scene = *photo;
  // 8 px a frame across a 1340-px wall: about 87 frames inside it, 60 of them 480 px, less
  // than a frame's length.
  ASSERT_GE(scene.y.width, 2000);
  for (int y = 0; y < scene.y.height; ++y)
    for (int x = 560; x < 1900; ++x)
      scene.y.pixels[static_cast<std::size_t>(y) * scene.y.width + x] = 170;
  ProfiledEngine capture(640, 480, ZMOS_PROFILE_QUALITY);
  ASSERT_EQ(capture.init, 0);
  std::int32_t kept = 0, angle = 0, end = 0, coasted = 0;
  for (int k = 0; k < 220 && end == 0; ++k) {
    Frame frame(scene, 40 + 8 * k, 1000, 640, 480);
    std::int32_t offset[2], flags[4];
    end = ZMOS_SelectFrames(capture.engine, frame.get(), frame.get(), offset, &kept, flags, &angle);
    if (end == 0) coasted += ZMOS_IsCoasting(capture.engine);
  }
  EXPECT_EQ(end, ZMOS_ERR_NO_TEXTURE);
  EXPECT_EQ(coasted, 60);
}

// A scene brightening to the right, and a camera whose exposure hunts, 7 % down and up
// again frame after frame: every frame's projection is its predecessor's, moved and
// scaled. Matched as they are, a scaled projection slides toward its bright side and the
// exact engine misreads the travel; matched at the reference frame's exposure, every
// step is read as it is.
double Hunting(int frame) {
  return frame % 2 ? 0.93 : 1.0;
}

TEST(Profile, ExposureChangesDoNotMoveTheTravel) {
  Plane8 scene = lumivex::test::SyntheticTexture(3400, 600, 8);
  for (int y = 0; y < scene.height; ++y)
    for (int x = 0; x < scene.width; ++x) {
      std::uint8_t& v = scene.pixels[static_cast<std::size_t>(y) * scene.width + x];
      v = static_cast<std::uint8_t>(std::min(255.0, v * (0.35 + 1.3 * x / scene.width)));
    }
  const ColourPlanes colour{
      scene, Plane8{scene.width, scene.height, std::vector<std::uint8_t>(scene.pixels.size(), 128)},
      Plane8{scene.width, scene.height, std::vector<std::uint8_t>(scene.pixels.size(), 128)}};
  int misread[2] = {0, 0};
  for (std::int32_t profile : {ZMOS_PROFILE_EXACT, ZMOS_PROFILE_QUALITY}) {
    Outcome out;
    Sweep(colour, 0, 12, 640, 480, 60, profile, &out, Hunting);
    for (std::size_t i = 1; i < out.kept.size(); ++i) {
      const int truth = 12 * (out.kept[i].first - out.kept[i - 1].first);
      misread[profile] += std::abs(out.kept[i].second - out.kept[i - 1].second - truth) > 1;
    }
    if (profile == ZMOS_PROFILE_QUALITY) {
      EXPECT_GT(out.kept.size(), 60u);
    }
  }
  EXPECT_GT(misread[ZMOS_PROFILE_EXACT], 10);
  EXPECT_EQ(misread[ZMOS_PROFILE_QUALITY], 0);
}

// Upward into a sky: texture below, a plain gradient above (nothing for a tracker to
// hold on to), and a hand that keeps going. The quality engine carries the speed a while,
// then ends the capture for lack of texture rather than call a guessed sweep complete, as
// the exact engine does.
TEST(Profile, NoSweepCompletesOnTheSky) {
  const ColourPlanes* turned = lumivex::test::TurnedColourPhoto();
  LUMIVEX_REQUIRE_PHOTO(turned == nullptr);
  ColourPlanes scene = *turned;
  // The sky: the upper part, plain but for a slow gradient (and a little noise).
  lumivex::test::Rng rng(5);
  const int horizon = 900;
  for (int y = 0; y < horizon; ++y)
    for (int x = 0; x < scene.y.width; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * scene.y.width + x;
      scene.y.pixels[i] = static_cast<std::uint8_t>(150 + y / 30 + rng.Range(0, 1));
      scene.u.pixels[i] = 150;
      scene.v.pixels[i] = 110;
    }
  for (std::int32_t profile : {ZMOS_PROFILE_EXACT, ZMOS_PROFILE_QUALITY}) {
    SCOPED_TRACE(testing::Message() << "profile " << profile);
    Outcome out;
    Sweep(scene, 3, 14, 640, 480, 560, profile, &out);
    if (profile == ZMOS_PROFILE_EXACT) {
      EXPECT_EQ(out.end, 0) << "the exact engine calls the guess complete";
    } else {
      EXPECT_EQ(out.end, ZMOS_ERR_NO_TEXTURE);
      EXPECT_GT(out.pano.lHeight, 480) << "what was laid is stitched";
    }
  }
}

// A phone's exposure creeping up by 0.3 % a frame while it pans, and jumping by 8 % on
// frame 40, with whatever goes past white clipped, over a scene as bright everywhere:
// the panorama's brightness along the sweep is the camera's course. The exact engine's
// shows the jump as a step at one seam; the quality engine's takes the step out but keeps
// the creep, and what the camera clipped stays white.
double CreepAndJump(int frame) {
  return (1.0 + 0.003 * frame) * (frame >= 40 ? 1.08 : 1.0);
}

TEST(Profile, ExposureStepsGoTheCameraCourseStays) {
  // Fine texture, the same on average everywhere: 3 x 3 means of cells of 4 x 4 pixels,
  // dark or bright (the bright ones clip as the exposure rises).
  Plane8 noise{3200, 700, {}};
  noise.pixels.resize(static_cast<std::size_t>(noise.width) * noise.height);
  lumivex::test::Rng rng(11);
  std::vector<std::uint8_t> cells(static_cast<std::size_t>(noise.width / 4 + 1) *
                                  (noise.height / 4 + 1));
  for (auto& c : cells) c = static_cast<std::uint8_t>(rng.Range(0, 1) ? 205 : 60);
  for (int y = 0; y < noise.height; ++y)
    for (int x = 0; x < noise.width; ++x)
      noise.pixels[static_cast<std::size_t>(y) * noise.width + x] =
          cells[static_cast<std::size_t>(y / 4) * (noise.width / 4 + 1) + x / 4];
  Plane8 scene = noise;
  for (int y = 1; y + 1 < scene.height; ++y)
    for (int x = 1; x + 1 < scene.width; ++x) {
      int sum = 0;
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) sum += noise.at(x + dx, y + dy);
      scene.pixels[static_cast<std::size_t>(y) * scene.width + x] =
          static_cast<std::uint8_t>(sum / 9);
    }
  const ColourPlanes colour{
      scene, Plane8{scene.width, scene.height, std::vector<std::uint8_t>(scene.pixels.size(), 128)},
      Plane8{scene.width, scene.height, std::vector<std::uint8_t>(scene.pixels.size(), 128)}};
  struct Seen {
    double step = 0, course = 0;
    long white = 0;
  };
  Seen seen[2];
  for (std::int32_t profile : {ZMOS_PROFILE_EXACT, ZMOS_PROFILE_QUALITY}) {
    SCOPED_TRACE(testing::Message() << "profile " << profile);
    Outcome steady, varied;
    Sweep(colour, 0, 12, 640, 480, 100, profile, &steady);
    Sweep(colour, 0, 12, 640, 480, 100, profile, &varied, CreepAndJump);
    ASSERT_EQ(varied.end, 0);
    ASSERT_EQ(varied.pano.lWidth, 1920);
    ASSERT_EQ(steady.pano.lWidth, 1920);
    // Brightness against the steady sweep's, in blocks of 32 columns: a step is a kink
    // in it (a change of slope from one block to the next; the creep is a slope), the
    // course its change from the first block to the last.
    Seen& s = seen[profile == ZMOS_PROFILE_QUALITY];
    const int rows = std::min(varied.pano.lHeight, steady.pano.lHeight);
    std::vector<double> ratio;
    for (int x0 = 0; x0 + 32 <= varied.pano.lWidth; x0 += 32) {
      double a = 0, b = 0;
      for (int y = 0; y < rows; ++y)
        for (int x = x0; x < x0 + 32; ++x) {
          const std::uint8_t v = varied.pano.pPlane[0][y * varied.pano.lPitch[0] + x];
          a += v;
          b += steady.pano.pPlane[0][y * steady.pano.lPitch[0] + x];
          s.white += v == 255;
        }
      ratio.push_back(a / b);
    }
    for (std::size_t b = 2; b < ratio.size(); ++b)
      s.step = std::max(s.step, std::abs(ratio[b] - 2 * ratio[b - 1] + ratio[b - 2]));
    s.course = ratio.back() / ratio.front();
  }
  EXPECT_GT(seen[0].step, 0.05) << "the jump shows in the exact panorama";
  EXPECT_LT(seen[1].step, 0.025) << "and not in the quality one";
  EXPECT_GT(seen[0].course, 1.25) << "the exact panorama follows the camera's creep";
  EXPECT_NEAR(seen[1].course, seen[0].course, 0.06) << "so does the quality one, but for the jump";
  EXPECT_GT(seen[0].white, 10000);
  EXPECT_GE(seen[1].white, seen[0].white * 9 / 10) << "clipped white stays white";
}

}  // namespace
