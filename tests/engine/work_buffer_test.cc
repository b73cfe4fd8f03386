// ZMOS_GetWorkBufferSize against real captures: exactly that many bytes complete a sweep
// in every direction, portrait and landscape, at 90, 180 and 360 degrees, with the same
// panorama as a roomy buffer; one byte less fails cleanly with 4.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "lumivex/lumivex.h"
#include "src/engine/sweep_stitcher.h"
#include "tests/support/test_support.h"

namespace {

using lumivex::test::Frame;
using lumivex::test::Plane8;

struct Outcome {
  std::int32_t code = 0;   // the first failing result, or 0
  std::uint64_t hash = 0;  // of the panorama when the capture completed
};

// A sweep over `scene` in direction `dir` (0 right, 1 left, 2 down, 3 up) at `speed` pixels
// a frame, `cross` pixels in from the scene's edge across it, with a buffer of `size`
// bytes whose start has the worst alignment (1 past a multiple of 16). A frame refused as
// too fast is only skipped, as a host would.
struct Sweep {
  int w, h, angle, dir, speed, cross;
  std::uint32_t frame_format;    // NV21 or I420
  std::uint32_t preview_format;  // 0: no preview, as I420 frames have none
  std::int32_t profile;
};

Outcome Capture(const Plane8& scene, const Sweep& c, std::int32_t size) {
  const int w = c.w, h = c.h, angle = c.angle, dir = c.dir, speed = c.speed, cross = c.cross;
  std::vector<std::uint8_t> storage(static_cast<std::size_t>(size) + 32);
  std::uint8_t* start =
      storage.data() + (16 - reinterpret_cast<std::uintptr_t>(storage.data()) % 16) + 1;
  ZMOSINITPARAM param{start, size, angle, w, h, w, h};
  ZMOSSWEEPSTITCHER* engine = nullptr;
  Outcome out;
  if ((out.code = ZMOS_Init(&param, &engine)) != 0) return out;
  if ((out.code = ZMOS_SetProfile(engine, c.profile)) != 0) return out;
  const bool across = dir < 2;
  const int room = across ? scene.width - w : scene.height - h;
  ZMOSIMAGE ui{};
  ui.dwFormat = c.preview_format;
  std::int32_t rect[4], angle_now = 0, kept = 0;
  for (int at = dir % 2 ? room : 0; at >= 0 && at <= room && angle_now < angle;
       at += dir % 2 ? -speed : speed) {
    Frame frame(scene, across ? at : cross, across ? cross : at, w, h, c.frame_format);
    // Each frame with noise of its own, as a camera's, so that a skipped blend shows.
    ZMOSIMAGE& f = *frame.get();
    std::uint32_t noise = 2654435761u * static_cast<std::uint32_t>(at + 1);
    for (int y = 0; y < h; ++y) {
      std::uint8_t* row = f.pPlane[0] + std::ptrdiff_t{y} * f.lPitch[0];
      for (int x = 0; x < w; ++x) {
        noise ^= noise << 13, noise ^= noise >> 17, noise ^= noise << 5;
        row[x] =
            static_cast<std::uint8_t>(std::clamp(row[x] + static_cast<int>(noise % 5) - 2, 0, 255));
      }
    }
    std::int32_t offset[2], flags[4];
    out.code =
        ZMOS_SelectFrames(engine, frame.get(), frame.get(), offset, &kept, flags, &angle_now);
    if (out.code == ZMOS_ERR_TOO_FAST) out.code = 0;
    if (out.code == 0 && c.preview_format != 0)
      out.code = ZMOS_UpdateUIImage(engine, frame.get(), &ui, 6, rect);
    if (out.code != 0) break;
  }
  ZMOSIMAGE result{};
  if (out.code == 0 && angle_now >= angle &&
      (out.code = ZMOS_Stitch(engine, &result, nullptr)) == 0) {
    out.hash = lumivex::test::PanoramaChecksum(result);
  }
  if (out.code == 0 && angle_now < angle) out.code = -1;  // the scene ran out
  ZMOS_UnInit(&engine);
  return out;
}

// Exactly the size suffices for NV21 frames with the largest preview and for I420 frames
// (which have none), in both profiles; one byte less is short for at least one of them.
// The default profile skips a blend it has no memory for without an error; the quality
// profile never hands out such a panorama, it answers 4.
TEST(WorkBufferSize, IsExactlyWhatACaptureNeedsInEveryDirection) {
  const Plane8* photo = lumivex::test::Photo();
  LUMIVEX_REQUIRE_PHOTO(photo == nullptr);
  // Vertical sweeps run down the photograph turned on its side; both stay in the land.
  const Plane8 turned = lumivex::test::Transposed(*photo);
  const struct { int w, h; } sizes[] = {{320, 240}, {240, 320}};
  for (const auto& s : sizes) {
    for (const int angle : {90, 180, 360}) {
      std::int32_t size = 0;
      ASSERT_EQ(ZMOS_GetWorkBufferSize(s.w, s.h, angle, &size), 0);
      bool needs_it_all = false;
      for (int dir = 0; dir < 4; ++dir) {
        for (const std::uint32_t format : {ZMOS_FORMAT_NV21, ZMOS_FORMAT_I420}) {
          for (const std::int32_t profile : {ZMOS_PROFILE_EXACT, ZMOS_PROFILE_QUALITY}) {
            SCOPED_TRACE(testing::Message()
                         << s.w << "x" << s.h << " at " << angle << " degrees, direction " << dir
                         << ", format 0x" << std::hex << format << ", profile " << profile);
            // As fast as frames are still kept: a strip a frame, ten pixels less vertically.
            const int strip = (s.w * 120 / 1280) & ~1;
            const Sweep sweep{s.w,
                              s.h,
                              angle,
                              dir,
                              dir < 2 ? strip : strip - 10,
                              1400,
                              format,
                              format == ZMOS_FORMAT_NV21 ? 0x501u : 0u,
                              profile};
            const Plane8& scene = dir < 2 ? *photo : turned;
            const Outcome roomy = Capture(scene, sweep, size + (1 << 20));
            ASSERT_EQ(roomy.code, 0);
            const Outcome exact = Capture(scene, sweep, size);
            EXPECT_EQ(exact.code, 0);
            EXPECT_EQ(exact.hash, roomy.hash);
            const Outcome short_by_one = Capture(scene, sweep, size - 1);
            if (short_by_one.code == 0) {
              if (profile == ZMOS_PROFILE_QUALITY) {
                EXPECT_EQ(short_by_one.hash, roomy.hash);
              }
              needs_it_all |= short_by_one.hash != roomy.hash;
            } else {
              EXPECT_EQ(short_by_one.code, ZMOS_ERR_NO_MEMORY);
              needs_it_all = true;
            }
          }
        }
      }
      EXPECT_TRUE(needs_it_all) << s.w << "x" << s.h << " at " << angle;
    }
  }
}

// The Android binding's own sizing (the larger of its landscape and portrait terms, for 30
// frames) leaves room for everything a 180-degree capture needs, in both orientations of
// the preview sizes phones offer from 320 x 240 up. (For 176 x 144 its fixed part falls
// about 7 KB short: such a capture can end with 4.)
TEST(WorkBufferSize, TheBindingsBufferIsLargeEnough) {
  const struct {
    int w, h;
  } sizes[] = {{320, 240}, {352, 288},  {640, 480},   {720, 480}, {800, 600},
               {960, 540}, {1280, 720}, {1920, 1080}, {854, 480}, {1366, 768}};
  for (const auto& s : sizes) {
    for (const bool portrait : {false, true}) {
      const int w = portrait ? s.h : s.w, h = portrait ? s.w : s.h;
      std::int32_t size = 0;
      ASSERT_EQ(ZMOS_GetWorkBufferSize(w, h, 180, &size), 0) << w << "x" << h;
      EXPECT_GE(lumivex::test::HandlerWorkBufferSize(w, h), size) << w << "x" << h;
    }
  }
}

// The layout a host is told: a frame is kept past W x 14 / 1280 pixels, each lays a strip
// of W x 120 / 1280 rounded down to even, travel past a strip (ten pixels less across a
// vertical sweep's shorter strips) is too fast, the seam halves the frame along the sweep
// (to an even row on vertical sweeps), and the canvas is the frame across the sweep.
TEST(SweepLayout, FollowsItsRulesForEveryFrameSize) {
  for (int w = 160; w <= 4096; w += 2) {
    const int h = (w * 3 / 4) & ~1;
    for (int dir = 0; dir < 4; ++dir) {
      ZMOSSWEEPLAYOUT l{};
      ASSERT_EQ(ZMOS_GetSweepLayout(w, h, 180, dir, &l), 0) << w << "x" << h;
      const bool horizontal = dir < 2;
      const int strip = (w * 120 / 1280) / 2 * 2;
      ASSERT_EQ(l.lMinStep, w * 14 / 1280) << w;
      ASSERT_EQ(l.lStripWidth, strip) << w;
      ASSERT_EQ(l.lMaxStep, horizontal ? strip : strip - 10) << w;
      ASSERT_EQ(l.lSeam, horizontal ? w / 2 : h / 2 / 2 * 2) << w;
      ASSERT_EQ(horizontal ? l.lCanvasHeight : l.lCanvasWidth, horizontal ? h : w) << w;
    }
  }
}

// A capture lays out what the host was told.
TEST(SweepLayout, IsWhatTheCaptureLaysOut) {
  const Plane8* scene = lumivex::test::Photo();
  LUMIVEX_REQUIRE_PHOTO(scene == nullptr);
  for (const auto& [w, h] : {std::array{640, 480}, std::array{1280, 720}}) {
    std::vector<std::uint8_t> work(lumivex::test::HandlerWorkBufferSize(w, h));
    ZMOSINITPARAM param{work.data(), static_cast<std::int32_t>(work.size()), 180, w, h, w, h};
    ZMOSSWEEPSTITCHER* engine = nullptr;
    ASSERT_EQ(ZMOS_Init(&param, &engine), 0);
    std::int32_t offset[2], kept = 0, flags[4], angle = 0;
    for (int k = 0; k < 12; ++k) {
      Frame frame(*scene, 200 + 12 * k, 900, w, h);
      ASSERT_EQ(ZMOS_SelectFrames(engine, frame.get(), frame.get(), offset, &kept, flags, &angle),
                0);
    }
    ZMOSSWEEPLAYOUT l{};
    ASSERT_EQ(ZMOS_GetSweepLayout(w, h, 180, ZMOS_DIRECTION_LEFT_TO_RIGHT, &l), 0);
    EXPECT_EQ(engine->lDirection, ZMOS_DIRECTION_LEFT_TO_RIGHT);
    EXPECT_EQ(engine->lStep, l.lMinStep);
    EXPECT_EQ(engine->lStripWidth, l.lStripWidth);
    EXPECT_EQ(engine->lPanoWidth, l.lCanvasWidth);
    EXPECT_EQ(engine->lPanoHeight, l.lCanvasHeight);
    ZMOS_UnInit(&engine);
  }
}

TEST(WorkBufferSize, RefusesWhatTheEngineCannotRun) {
  std::int32_t size = 7;
  EXPECT_EQ(ZMOS_GetWorkBufferSize(640, 480, 180, nullptr), ZMOS_ERR_INVALID_PARAM);
  for (const auto& [w, h, angle] :
       {std::array{641, 480, 180}, std::array{640, 0, 180}, std::array{-640, 480, 180},
        std::array{640, 480, 0}, std::array{64, 48, 180}, std::array{30000, 30000, 360},
        std::array{30000, 30000, INT32_MAX}, std::array{640, 480, -180}}) {
    EXPECT_EQ(ZMOS_GetWorkBufferSize(w, h, angle, &size), ZMOS_ERR_INVALID_PARAM) << w << "x" << h;
    EXPECT_EQ(size, 7);
  }
}

}  // namespace
