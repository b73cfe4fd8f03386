// A long, rough session in one process: captures one after another over fresh work
// buffers, with hand-held wobble, reversals, flat frames and jumps far too fast. Every
// call answers with a documented code, and nothing touches memory outside the buffers
// (the sanitizer configuration runs this too).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "lumivex/lumivex.h"
#include "tests/support/test_support.h"

namespace {

using lumivex::test::Frame;
using lumivex::test::Plane8;
using lumivex::test::Rng;

bool Documented(std::int32_t res) {
  return res == 0 || res == ZMOS_ERR_INVALID_PARAM || res == ZMOS_ERR_UNSUPPORTED_FORMAT ||
         res == ZMOS_ERR_NO_MEMORY || res == ZMOS_ERR_NO_TEXTURE || res == ZMOS_ERR_SWEEP_WRONG ||
         res == ZMOS_ERR_TOO_FAST;
}

TEST(Soak, ThousandsOfRoughFramesOverRepeatedCaptures) {
  constexpr int kW = 160, kH = 120, kGuard = 256;
  const Plane8 scene = lumivex::test::SyntheticTexture(2600, 700, 21);
  Plane8 flat = scene;
  std::fill(flat.pixels.begin(), flat.pixels.end(), std::uint8_t{90});
  Rng rng(99);
  int frames = 0, captures = 0, kept_total = 0;
  while (frames < 4000) {
    ++captures;
    // Work buffers from starved to plenty, each a new allocation with guard zones.
    const std::int32_t size = rng.Range(0, 3) == 0 ? rng.Range(20000, 300000) : 400000;
    std::vector<std::uint8_t> buffer(size + 2 * kGuard, 0xE7);
    ZMOSINITPARAM param{
        buffer.data() + kGuard, size, rng.Range(0, 4) == 0 ? 360 : 180, kW, kH, kW, kH};
    ZMOSSWEEPSTITCHER* engine = nullptr;
    ASSERT_EQ(ZMOS_Init(&param, &engine), 0);
    ZMOSIMAGE ui{};
    ui.dwFormat = ZMOS_FORMAT_NV21;
    std::int32_t kept = 0, angle = 0, rect[4];
    int x = rng.Range(0, 1800), y = rng.Range(0, 500), speed = rng.Range(-14, 14);
    const int length = rng.Range(20, 400);
    for (int k = 0; k < length; ++k, ++frames) {
      switch (rng.Range(0, 40)) {
        case 0:
          speed = -speed;  // reversal
          break;
        case 1:
          x += rng.Range(-200, 200);  // far too fast
          break;
        case 2:
          speed = rng.Range(-14, 14);
          break;
        default:
          break;
      }
      x = std::clamp(x + speed + rng.Range(-2, 2), 0, scene.width - kW);
      y = std::clamp(y + rng.Range(-2, 2), 0, scene.height - kH);
      const bool blank = rng.Range(0, 30) == 0;
      Frame frame(blank ? flat : scene, x, y, kW, kH);
      std::int32_t offset[2], flags[4];
      const std::int32_t res =
          ZMOS_SelectFrames(engine, frame.get(), frame.get(), offset, &kept, flags, &angle);
      ASSERT_TRUE(Documented(res)) << res;
      const std::int32_t preview = ZMOS_UpdateUIImage(engine, frame.get(), &ui, 6, rect);
      ASSERT_TRUE(Documented(preview)) << preview;
      if (angle >= 180 && rng.Range(0, 3) == 0) break;
    }
    ZMOSIMAGE result{};
    const std::int32_t stitched = ZMOS_Stitch(engine, &result, nullptr);
    ASSERT_TRUE(Documented(stitched));
    if (stitched == 0 && result.pPlane[0] != nullptr) {
      std::uint32_t sum = 0;  // every pixel of the result is readable
      for (std::int32_t r = 0; r < result.lHeight; ++r)
        for (std::int32_t c = 0; c < result.lWidth; ++c)
          sum += result.pPlane[0][std::int64_t{r} * result.lPitch[0] + c];
      EXPECT_GE(sum, 0u);
    }
    kept_total += kept;
    ZMOS_UnInit(&engine);
    for (int i = 0; i < kGuard; ++i) {
      ASSERT_EQ(buffer[i], 0xE7);
      ASSERT_EQ(buffer[kGuard + size + i], 0xE7);
    }
  }
  EXPECT_GT(captures, 10);
  EXPECT_GT(kept_total, 100);  // the rough session still keeps frames
}

}  // namespace
