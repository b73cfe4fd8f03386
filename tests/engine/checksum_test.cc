// Deterministic end-to-end sweeps whose panoramas are pinned by checksum: any change to
// what the default (exact) engine produces shows up here and has to be explained. The
// same sweeps check the preview's drawn rectangle against its rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "lumivex/lumivex.h"
#include "tests/support/test_support.h"

namespace {

using lumivex::test::ColourPlanes;
using lumivex::test::Frame;
using lumivex::test::Plane8;

struct Sweep {
  int scene;  // 0 half-size photograph, 1 turned on its side, 2 full size
  int direction;
  int step;  // pixels a frame along the sweep
  int width, height;
  std::uint32_t format;
  std::uint64_t expected;  // FNV-1a of the panorama's size, luma and chroma rows
  // (LUMIVEX_PRINT_CHECKSUMS=1 prints the table as the engine computes it)
  int expected_width, expected_height;
};

// Twice the size, each sample repeated: the half-size colour planes under the full-size luma.
Plane8 Doubled(const Plane8& p) {
  Plane8 d{2 * p.width, 2 * p.height, std::vector<std::uint8_t>(p.pixels.size() * 4)};
  for (int y = 0; y < d.height; ++y)
    for (int x = 0; x < d.width; ++x)
      d.pixels[static_cast<std::size_t>(y) * d.width + x] = p.at(x / 2, y / 2);
  return d;
}

// Runs a steady sweep, checking the preview's drawn area after every kept strip, and
// returns the panorama's checksum.
std::uint64_t RunSweep(const ColourPlanes& scene, const Sweep& s, ZMOSIMAGE* result_out,
                       std::vector<std::uint8_t>* work) {
  const std::int32_t size = lumivex::test::HandlerWorkBufferSize(s.width, s.height);
  work->assign(size, 0);
  ZMOSSWEEPSTITCHER* engine = nullptr;
  ZMOSINITPARAM param{work->data(), size, 180, s.width, s.height, s.width, s.height};
  EXPECT_EQ(ZMOS_Init(&param, &engine), 0);
  const bool horizontal = s.direction < 2;
  const int sign = s.direction % 2 == 0 ? 1 : -1;
  // A sweep is complete after three frame widths less one frame along it.
  const int travel = 3 * s.width - (horizontal ? s.width : s.height);
  const int along0 = sign > 0 ? 40 : 40 + travel + 100;
  const int cross0 = s.scene == 2 ? 1300 : 560;  // through the land below the horizon
  std::int32_t kept = 0, angle = 0, strips = 0;
  ZMOSIMAGE ui{};
  ui.dwFormat = ZMOS_FORMAT_NV21;
  for (int k = 0; k < 600 && angle < 180; ++k) {
    const int along = along0 + sign * s.step * k;
    const int x = horizontal ? along : cross0, y = horizontal ? cross0 : along;
    Frame frame(scene, x, y, s.width, s.height, s.format);
    std::int32_t offset[2], flags[4];
    const std::int32_t res =
        ZMOS_SelectFrames(engine, frame.get(), frame.get(), offset, &kept, flags, &angle);
    if (res != 0) break;  // the table pins where a sweep ends, too
    if (s.format != ZMOS_FORMAT_NV21) continue;
    std::int32_t drawn[4] = {-1, -1, -1, -1};
    EXPECT_EQ(ZMOS_UpdateUIImage(engine, frame.get(), &ui, 6, drawn), 0);
    if (drawn[0] < 0) continue;  // nothing new was kept: nothing drawn
    ++strips;
    // The drawn area after this strip, from the preview rules: the first strip fills the
    // starting edge up to the cut, later ones reach the canvas position M + SS (in preview
    // pixels), the last one the far edge. M comes from the reported travel, in frame pixels.
    const std::int32_t travel = horizontal ? offset[0] : -offset[1];
    const std::int32_t m = sign * travel;
    const std::int32_t ss = horizontal ? s.width / 2 : (s.height / 2) & ~1;
    const std::int32_t e = (m + ss) / 6;
    auto even = [](std::int32_t v) { return v / 2 * 2; };
    const std::int32_t pw = even((horizontal ? 3 * s.width : s.width) / 6);
    const std::int32_t ph = even((horizontal ? s.height : 3 * s.width) / 6);
    const bool first = strips == 1, last = angle >= 180;
    std::int32_t want[4] = {0, 0, pw, ph};
    switch (s.direction) {
      case 0:
        want[2] = first ? even(ss / 6) : last ? pw : even(e);
        break;
      case 1:
        want[0] = first ? even(pw + 1 - ss / 6) : last ? 0 : even(pw + 1 - e);
        break;
      case 2:
        want[3] = first ? even(ss / 6) : last ? even(ph + 1) : even(e);
        break;
      default:
        want[1] = first ? even(ph + 1 - ss / 6) : last ? 0 : even(ph + 1 - e);
        break;
    }
    if (!std::equal(drawn, drawn + 4, want)) {
      ADD_FAILURE() << "strip " << strips << ": drawn " << drawn[0] << "," << drawn[1] << ","
                    << drawn[2] << "," << drawn[3] << " expected " << want[0] << "," << want[1]
                    << "," << want[2] << "," << want[3];
      break;
    }
  }
  ZMOSIMAGE result{};
  EXPECT_EQ(ZMOS_Stitch(engine, &result, nullptr), 0);
  const std::uint64_t sum = lumivex::test::PanoramaChecksum(result);
  *result_out = result;
  ZMOS_UnInit(&engine);
  return sum;
}

TEST(PanoramaChecksums, ExactOutputOfDeterministicSweeps) {
  const ColourPlanes* photo = lumivex::test::ColourPhoto();
  LUMIVEX_REQUIRE_PHOTO(photo == nullptr);
  // Vertical sweeps run over the photograph turned on its side, so that they travel
  // through the textured land rather than up into the sky.
  const ColourPlanes& turned = *lumivex::test::TurnedColourPhoto();
  // 854-wide frames (half of it odd) need the full-size photograph to fit a whole sweep.
  const Plane8* luma = lumivex::test::Photo();
  ASSERT_NE(luma, nullptr);
  const ColourPlanes full{*luma, Doubled(photo->u), Doubled(photo->v)};
  const ColourPlanes* scenes[] = {photo, &turned, &full};
  const Sweep sweeps[] = {
      {0, 0, 12, 640, 480, 0x802, 0xEC424AA4DE08A0D4ull, 1920, 480},
      {0, 0, 12, 640, 480, 0x601, 0x75EB4EFDA572D686ull, 1920, 480},
      {0, 1, 12, 640, 480, 0x802, 0xAC0F159D4BFB7D1Eull, 1920, 480},
      {0, 1, 12, 640, 480, 0x601, 0x15819AE296EE3676ull, 1920, 480},
      {1, 2, 12, 640, 480, 0x802, 0x64806B9A4430C80Dull, 640, 1920},
      {1, 2, 12, 640, 480, 0x601, 0xFEED95AB6A2F2227ull, 640, 1920},
      {1, 3, 12, 640, 480, 0x802, 0xD9DBF6B5CF5D2F19ull, 640, 1920},
      {1, 3, 12, 640, 480, 0x601, 0xFC9A55AC5BE3D5ADull, 640, 1920},
      {2, 0, 12, 854, 480, 0x802, 0x4243B5814BD3252Eull, 2560, 480},
      {2, 1, 12, 854, 480, 0x802, 0xCE0EF0A9984BE0E3ull, 2560, 480},
      {2, 0, 12, 854, 480, 0x601, 0x66C89750B41CC3E4ull, 2560, 480},
      {2, 1, 12, 854, 480, 0x601, 0xCB249A77DD1BE587ull, 2560, 480},
      // Small steps, where the reference tracker matches its cross-axis band uncompensated.
      {0, 0, 8, 640, 480, 0x802, 0xEC424AA4DE08A0D4ull, 1920, 480},
      {0, 0, 5, 640, 480, 0x802, 0xE16CD2EAAEB6F63Aull, 1920, 480},
      {0, 2, 4, 640, 480, 0x802, 0xC157E3D73B237F3Dull, 640, 480},
  };
  std::vector<std::uint8_t> work;
  for (const Sweep& s : sweeps) {
    SCOPED_TRACE(testing::Message() << "direction " << s.direction << " " << s.width << "x"
                                    << s.height << " format " << s.format);
    ZMOSIMAGE result{};
    const std::uint64_t sum = RunSweep(*scenes[s.scene], s, &result, &work);
    if (std::getenv("LUMIVEX_PRINT_CHECKSUMS") != nullptr)
      std::printf("      {%d, %d, %d, %d, %d, 0x%X, 0x%016llXull, %d, %d},\n", s.scene, s.direction,
                  s.step, s.width, s.height, s.format, static_cast<unsigned long long>(sum),
                  result.lWidth, result.lHeight);
    EXPECT_EQ(sum, s.expected);
    EXPECT_EQ(result.lWidth, s.expected_width);
    EXPECT_EQ(result.lHeight, s.expected_height);
  }
}

}  // namespace
