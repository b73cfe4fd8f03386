// What a careless or hostile host can do through the public functions: none of it may
// read or write outside the caller's images and buffers, or leave undefined behaviour.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "lumivex/lumivex.h"
#include "src/stitch/blend_internal.h"
#include "tests/support/test_support.h"

namespace {

using lumivex::test::Frame;
using lumivex::test::GuardedImage;
using lumivex::test::Plane8;

struct CaptureResult {
  std::int32_t stitch = -1;
  int frames = 0;
  bool table_left_in_buffer = false;
  std::int64_t largest_offset = 0;
};

// One capture over a heap buffer of `size` bytes, `steps` frames moving `step` px right
// (a `jump` px jump at frame `jump_at`), ended by the angle, an error or the frames.
CaptureResult RunCapture(const Plane8& scene, std::int32_t size, int frames, int step,
                         int jump_at = -1, int jump = 0) {
  constexpr int kW = 160, kH = 120;
  CaptureResult out;
  auto buffer = std::make_unique<std::uint8_t[]>(size);
  ZMOSSWEEPSTITCHER* engine = nullptr;
  ZMOSINITPARAM param{buffer.get(), size, 180, kW, kH, kW, kH};
  if (ZMOS_Init(&param, &engine) != 0) return out;
  ZMOSIMAGE ui{};
  ui.dwFormat = ZMOS_FORMAT_NV21;
  std::int32_t kept = 0, angle = 0, rect[4];
  int x = 1000;
  for (int k = 0; k < frames; ++k, x += step) {
    if (k == jump_at) x += jump;
    Frame frame(scene, x % (scene.width - kW), scene.height * 3 / 5, kW, kH);
    std::int32_t offset[2], flags[4];
    const std::int32_t res =
        ZMOS_SelectFrames(engine, frame.get(), frame.get(), offset, &kept, flags, &angle);
    ++out.frames;
    if (res == 0 || res == ZMOS_ERR_TOO_FAST || res == ZMOS_ERR_SWEEP_WRONG)
      out.largest_offset = std::max(out.largest_offset, std::abs(std::int64_t{offset[0]}));
    if (jump_at < 0 && res != 0) break;
    if (res == 0) ZMOS_UpdateUIImage(engine, frame.get(), &ui, 6, rect);
    if (angle >= 180) break;
  }
  ZMOSIMAGE result{};
  out.stitch = ZMOS_Stitch(engine, &result, nullptr);
  using lumivex::stitch::g_BlendTable;
  const auto* table = reinterpret_cast<const std::uint8_t*>(g_BlendTable);
  out.table_left_in_buffer = table >= buffer.get() && table < buffer.get() + size;
  ZMOS_UnInit(&engine);
  using lumivex::stitch::g_BlendTableStatic;
  // After the engine is gone no installed table may point into the buffer the host frees.
  if (g_BlendTable != nullptr && g_BlendTable != g_BlendTableStatic) {
    table = reinterpret_cast<const std::uint8_t*>(g_BlendTable);
    EXPECT_FALSE(table >= buffer.get() && table < buffer.get() + size);
  }
  return out;
}

// A blend that fails for want of work memory leaves its table installed; the buffer it
// lives in is freed with the capture, and the next capture must neither free nor read it.
TEST(HostileHost, BlendTableDoesNotOutliveTheCaptureBuffer) {
  const Plane8* scene = lumivex::test::Photo();
  if (scene == nullptr) GTEST_SKIP() << "no test photograph";
  const std::int32_t full = lumivex::test::HandlerWorkBufferSize(160, 120);
  bool reproduced = false;
  // Just enough memory for the capture but not for every blend's seam work.
  for (std::int32_t size = full / 100 * 74; size < full / 100 * 78 && !reproduced; size += 16)
    reproduced = RunCapture(*scene, size, 120, 7).table_left_in_buffer;
  // The next capture, over a new buffer, creates and releases tables of its own.
  EXPECT_EQ(RunCapture(*scene, full, 120, 7).stitch, 0);
  EXPECT_TRUE(reproduced) << "no work-buffer size made a blend fail after creating its table";
}

// A host that keeps feeding after "too fast" sees the travel run away; the sums wrap as
// on the device instead of overflowing (the sanitizer build checks that).
TEST(HostileHost, RunawayTravelAfterTooFastStaysDefined) {
  const Plane8* scene = lumivex::test::Photo();
  if (scene == nullptr) GTEST_SKIP() << "no test photograph";
  const CaptureResult run =
      RunCapture(*scene, lumivex::test::HandlerWorkBufferSize(160, 120), 90, 6, 20, 40);
  EXPECT_EQ(run.frames, 90);
  EXPECT_GT(run.largest_offset, 1000000000) << "the travel did not run away";
}

// The second rectangle narrower than the first: only the columns the second image has
// are read; the first image keeps the rest.
TEST(HostileHost, OddBlendsReadOnlyTheSecondImage) {
  for (std::uint32_t format : {0x802u, 0x601u, 0x501u}) {
    for (int t2b = 0; t2b < 2; ++t2b) {
      for (std::int32_t side = 0; side < 2; ++side) {
        SCOPED_TRACE(testing::Message() << format << " t2b " << t2b << " side " << side);
        const std::int32_t w1 = t2b ? 10 : 100, h1 = t2b ? 100 : 10;
        const std::int32_t w2 = t2b ? 10 : 20, h2 = t2b ? 20 : 10;
        GuardedImage first(format, t2b ? 100 : 100, t2b ? 100 : 10, 3, 1);
        GuardedImage second(format, w2, h2, 0, 2);
        const std::int32_t bpp = format == 0x501u ? 2 : 1;
        std::vector<std::uint8_t> before;
        for (int y = 0; y < first.rows(0); ++y)
          for (int x = 0; x < first.row_bytes(0); ++x) before.push_back(first.at(0, x, y));
        const ZMOSRECT r1{0, 0, w1, h1}, r2{0, 0, w2, h2};
        const std::int32_t res =
            t2b ? ZMOSBlendImageOddT2B_AME(first.get(), &r1, second.get(), &r2, side, nullptr)
                : ZMOSBlendImageOdd_AME(first.get(), &r1, second.get(), &r2, side, nullptr);
        EXPECT_EQ(res, 0);
        EXPECT_TRUE(first.GuardsIntact());
        // Luma the second image does not cover is untouched.
        for (int y = 0; y < first.rows(0); ++y)
          for (int x = 0; x < first.row_bytes(0); x += bpp) {
            const bool covered = t2b ? (y < h2 && x < w2 * bpp) : (x < w2 * bpp && y < h2);
            if (!covered) {
              ASSERT_EQ(first.at(0, x, y), before[y * first.row_bytes(0) + x]) << x << "," << y;
            }
          }
      }
    }
  }
}

// Planar chroma placed by a halved odd top, and missing chroma planes, stay inside.
TEST(HostileHost, BlendImageStaysInsidePlanarChroma) {
  for (std::uint32_t format : {0x601u, 0x602u, 0x604u}) {
    SCOPED_TRACE(format);
    GuardedImage a(format, 400, 3, 0, 1), b(format, 400, 3, 0, 2);
    const ZMOSRECT r{0, 1, 400, 3};
    const std::int32_t res = ZMOSBlendImage_AME(a.get(), r, b.get(), r, 0, nullptr);
    EXPECT_TRUE(res == 0 || res == ZMOS_ERR_UNSUPPORTED_FORMAT) << res;
    EXPECT_TRUE(a.GuardsIntact());
  }
  for (std::uint32_t format : {0x601u, 0x802u}) {
    GuardedImage a(format, 200, 40, 0, 1), b(format, 200, 40, 0, 2);
    a.get()->pPlane[1] = a.get()->pPlane[2] = nullptr;
    b.get()->pPlane[1] = b.get()->pPlane[2] = nullptr;
    const ZMOSRECT r{0, 0, 200, 40};
    EXPECT_EQ(ZMOSBlendImage_AME(a.get(), r, b.get(), r, 0, nullptr), 0);
    EXPECT_TRUE(a.GuardsIntact());
  }
}

// The exported luma steps after the table was released (its width stays set).
TEST(HostileHost, LumaStepsWithoutATable) {
  ASSERT_EQ(ZMOSCreateBlendTable(8, nullptr), 0);
  ZMOSReleaseBlendTable();
  std::vector<std::uint8_t> a(64 * 8, 10), b(64 * 8, 200);
  std::vector<std::int32_t> path(64, 4);
  EXPECT_EQ(BlendPlaneAlongSeam(a.data(), b.data(), 64, 64, 64, 8, path.data(), 8, 0, nullptr),
            ZMOS_ERR_NO_TEXTURE);
  EXPECT_EQ(BlendLumaAlongSeamT2B(a.data(), b.data(), 8, 8, 8, 64, path.data(), 8, 0, nullptr),
            ZMOS_ERR_NO_TEXTURE);
  EXPECT_TRUE(std::all_of(a.begin(), a.end(), [](std::uint8_t v) { return v == 10; }));
}

// Extreme 32-bit arguments are refused without signed overflow on the way.
TEST(HostileHost, ExtremeSizesAndOffsets) {
  ZMOSIMAGE* img = nullptr;
  for (std::int32_t w : {INT32_MAX, INT32_MAX - 1, INT32_MIN, 65536})
    for (std::int32_t h : {INT32_MAX, INT32_MIN, 65536})
      for (std::uint32_t f : {0x802u, 0x601u, 0x501u, 0x401u}) {
        EXPECT_NE(ZMOSCreateImage_AOD(&img, w, h, f, nullptr), 0);
        EXPECT_EQ(img, nullptr);
      }
  Frame frame(lumivex::test::SyntheticTexture(64, 48, 1), 0, 0, 64, 48);
  const std::int32_t extreme[] = {INT32_MIN, INT32_MIN + 1, -1, 0, 1, INT32_MAX - 1, INT32_MAX};
  for (int direction = 0; direction < 4; ++direction) {
    ZMOSIMAGESTITCHER* isr = nullptr;
    ASSERT_EQ(ZMOSCreateImageStitcher_ISR(&isr, 200, 48, ZMOS_FORMAT_NV21, direction, 64, nullptr),
              0);
    ZMOSDIRECTSTITCHER* dis = nullptr;
    ASSERT_EQ(
        ZMOSCreateDirectImageStitcher_DIS(&dis, 256, 256, ZMOS_FORMAT_NV21, direction, 64, nullptr),
        0);
    for (std::int32_t a : extreme)
      for (std::int32_t b : extreme) {
        const std::int32_t offset[2] = {a, b};
        ZMOSAddImage_ISR(isr, frame.get(), offset, a, b, a);
        ZMOSAddImage_ISR(isr, frame.get(), offset, 4, b, 8);
        ZMOSAddImage_DIS(dis, frame.get(), offset, 4, 32, 8, 0);
        ZMOSAddImage_DIS(dis, frame.get(), offset, a & INT32_MAX, b, a & INT32_MAX, 0);
      }
    ZMOSStitchBlendImage_DIS(dis);
    ZMOSReleaseDirectImageStitcher_DIS(&dis);
    ZMOSReleaseImageStitcher_ISR(&isr);
  }
}

}  // namespace
