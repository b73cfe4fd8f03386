#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "lumivex/track.h"
#include "src/kernels/projection_kernels.h"
#include "tests/support/test_support.h"

namespace lumivex::track {
namespace {

using test::Rng;

// A plane-0 buffer whose first row starts `misalign` bytes past a 4-byte boundary.
struct Plane0 {
  Plane0(std::uint32_t format, int width, int height, int pitch, int misalign, std::uint64_t seed)
      : bytes(static_cast<std::size_t>(pitch) * height + 8) {
    Rng rng(seed);
    for (auto& b : bytes) b = static_cast<std::uint8_t>(rng.Next());
    image.dwFormat = format;
    image.lWidth = width;
    image.lHeight = height;
    image.pPlane[0] =
        bytes.data() + (4 - reinterpret_cast<std::uintptr_t>(bytes.data()) % 4) % 4 + misalign;
    image.lPitch[0] = pitch;
  }
  std::vector<std::uint8_t> bytes;
  ZMOSIMAGE image{};
};

int BytesPerPixel(std::uint32_t f) {
  return (f >> 8) == 5 ? 2 : (f >> 8) == 2 ? 3 : 1;
}

// The luma the projections read at (x, y), written from the pixel layouts alone.
std::uint32_t Luma(const ZMOSIMAGE& img, int x, int y) {
  const std::uint8_t* p = img.pPlane[0] + static_cast<std::ptrdiff_t>(y) * img.lPitch[0];
  switch (img.dwFormat) {
    case 0x501:
    case 0x502:
      return p[2 * x];
    case 0x503:
    case 0x504:
      return p[2 * x + 1];
    case 0x201:
      return (117u * p[3 * x] + 601u * p[3 * x + 1] + 306u * p[3 * x + 2] + 512) >> 10;
    case 0x204:
      return (306u * p[3 * x] + 601u * p[3 * x + 1] + 117u * p[3 * x + 2] + 512) >> 10;
    default:
      return p[x];
  }
}

// Every kernel against plain column and row sums: random sizes, pitches, alignments
// and formats. Lefts are multiples of 4 (the projections' contract); rows stay below the
// width at which the lane-packed row sums start to wrap.
TEST(Projection, KernelsMatchPlainSums) {
  Rng rng(42);
  const std::uint32_t formats[] = {0x601, 0x701, 0x802, 0x501, 0x502, 0x503, 0x504, 0x201, 0x204};
  for (std::uint32_t f : formats) {
    for (int trial = 0; trial < 40; ++trial) {
      const int width = rng.Range(8, 400), height = rng.Range(8, 60);
      const int pitch = width * BytesPerPixel(f) + rng.Range(0, 9);
      Plane0 plane(f, width, height, pitch, rng.Range(0, 3), trial);
      const int left = 4 * rng.Range(0, (width - 8) / 4);
      const int right = rng.Range(left + 8, width);
      const int top = rng.Range(0, height - 8);
      const int bottom = rng.Range(top + 8, height);
      const ZMOSRECT rect{left, top, right, bottom};
      SCOPED_TRACE(testing::Message()
                   << std::hex << "format 0x" << f << std::dec << " rect " << left << "," << top
                   << "," << right << "," << bottom << " pitch " << pitch);
      std::vector<std::uint32_t> out(right - left), every2(right - left), rows(bottom - top);
      ASSERT_EQ(ZMOSHoriProjectSingle_PBM(&plane.image, &rect, out.data()), 0);
      ASSERT_EQ(ZMOSHoriProjectSingleInterval_PBM(&plane.image, &rect, every2.data()), 0);
      ASSERT_EQ(ZMOSVertProjectSingle_PBM(&plane.image, &rect, rows.data()), 0);
      // The 0x503 plain loop (pitch not a multiple of 4) sums whole pixel pairs only.
      const bool pairs_only = (f == 0x503 || f == 0x504) && pitch % 4 != 0;
      const int counted = pairs_only ? (right - left) & ~1 : right - left;
      for (int i = 0; i < right - left; ++i) {
        std::uint32_t all = 0, half = 0;
        for (int y = top; y < bottom; ++y) {
          const std::uint32_t v = i < counted ? Luma(plane.image, left + i, y) : 0;
          all += v;
          if ((y - top) % 2 == 0 && y - top < ((bottom - top) / 2) * 2) half += v;
        }
        ASSERT_EQ(out[i], all) << "column " << i;
        ASSERT_EQ(every2[i], half) << "column " << i;
      }
      for (int j = 0; j < bottom - top; ++j) {
        std::uint32_t sum = 0;
        for (int x = left; x < right; ++x) sum += Luma(plane.image, x, top + j);
        ASSERT_EQ(rows[j], sum) << "row " << j;
      }
    }
  }
}

// The big-endian kernels, run here on a little-endian machine, see each 4-byte word
// reversed: fed byte-reversed words they must give the little-endian kernel's sums.
TEST(Projection, BigEndianKernelsReadWordsInTheOtherOrder) {
  if (NativeByteOrder() != ByteOrder::kLittle) GTEST_SKIP() << "needs a little-endian host";
  Rng rng(5);
  struct Pair {
    ColumnSumsFn little, big;
    int bpp;
  };
  const Pair pairs[] = {
      {ColumnSumsKernel(LumaBytes::kAll, ByteOrder::kLittle),
       ColumnSumsKernel(LumaBytes::kAll, ByteOrder::kBig), 1},
      {ColumnSumsKernel(LumaBytes::kEven, ByteOrder::kLittle),
       ColumnSumsKernel(LumaBytes::kEven, ByteOrder::kBig), 2},
      {ColumnSumsKernel(LumaBytes::kOdd, ByteOrder::kLittle),
       ColumnSumsKernel(LumaBytes::kOdd, ByteOrder::kBig), 2},
  };
  for (const Pair& k : pairs) {
    for (int trial = 0; trial < 20; ++trial) {
      const int groups = rng.Range(2, 40), rows = rng.Range(1, 13);
      const int width = 4 * groups;  // whole words: leftovers are read bytewise anyway
      const int step = width * k.bpp + 4 * rng.Range(0, 3);
      std::vector<std::uint8_t> data(static_cast<std::size_t>(step) * rows), swapped(data.size());
      for (auto& b : data) b = static_cast<std::uint8_t>(rng.Next());
      for (std::size_t i = 0; i < data.size(); i += 4)
        for (int b = 0; b < 4; ++b) swapped[i + b] = data[i + 3 - b];
      std::vector<std::uint32_t> want(width, 7), got(width, 7);  // kernels add into out
      k.little(width, rows, data.data(), step, want.data());
      k.big(width, rows, swapped.data(), step, got.data());
      ASSERT_EQ(got, want);
    }
  }
  EXPECT_EQ(SelectColumnSums(LumaBytes::kAll),
            ColumnSumsKernel(LumaBytes::kAll, ByteOrder::kLittle));
}

// Row sums as the rule states them: bytes up to a 4-byte boundary singly, then 16-byte
// groups and words into two 16-bit lanes (the groups folded on their own from 256 aligned
// bytes on), the last bytes singly.
std::uint32_t LaneModel(const std::uint8_t* p, int n) {
  int lead = static_cast<int>((4 - reinterpret_cast<std::uintptr_t>(p) % 4) % 4);
  if (lead > n) lead = n;
  std::uint32_t sum = 0;
  for (int i = 0; i < lead; ++i) sum += p[i];
  const int aligned = n - lead;
  auto lanes = [&](int i) {
    const std::uint32_t w = p[i] | p[i + 1] << 8 | p[i + 2] << 16 | std::uint32_t{p[i + 3]} << 24;
    return (w & 0x00FF00FFu) + ((w >> 8) & 0x00FF00FFu);
  };
  auto fold = [](std::uint32_t a) { return (a & 0xFFFFu) + (a >> 16); };
  std::uint32_t acc = 0;
  int i = lead;
  for (int g = 0; g < aligned / 16; ++g, i += 16)
    acc += lanes(i) + lanes(i + 4) + lanes(i + 8) + lanes(i + 12);
  if ((aligned / 4) * 4 >= 256) {
    sum += fold(acc);
    acc = 0;
  }
  for (; i + 4 <= lead + (aligned / 4) * 4; i += 4) acc += lanes(i);
  sum += fold(acc);
  for (; i < n; ++i) sum += p[i];
  return sum;
}

TEST(Projection, RowSumsWrapInSixteenBitLanesOnWideRows) {
  std::vector<std::uint8_t> bright(1100, 255);
  const ZMOSIMAGE grey{ZMOS_FORMAT_GREY, 1000, 8, {bright.data()}, {0}};
  std::vector<std::uint32_t> rows(8);
  const ZMOSRECT wide{0, 0, 1000, 8}, narrow{0, 0, 500, 8};
  ASSERT_EQ(ZMOSVertProjectSingle_PBM(&grey, &wide, rows.data()), 0);
  EXPECT_NE(rows[0], 255000u);
  ASSERT_EQ(ZMOSVertProjectSingle_PBM(&grey, &narrow, rows.data()), 0);
  EXPECT_EQ(rows[0], 127500u);

  if (NativeByteOrder() != ByteOrder::kLittle) return;
  // Through the public projection: random widths, lefts and pitches, bright enough that
  // the lanes wrap on the wider rows.
  Rng rng(9);
  for (int trial = 0; trial < 200; ++trial) {
    const int n = rng.Range(8, 2000), left = rng.Range(0, 9), pitch = left + n + rng.Range(0, 5);
    std::vector<std::uint8_t> plane(static_cast<std::size_t>(pitch) * 8 + 4);
    const int level = rng.Range(0, 255);
    for (auto& b : plane) b = static_cast<std::uint8_t>(std::min(255, level + rng.Range(0, 40)));
    const ZMOSIMAGE img{ZMOS_FORMAT_GREY, left + n, 8, {plane.data() + rng.Range(0, 3)}, {pitch}};
    const ZMOSRECT r{left, 0, left + n, 8};
    std::vector<std::uint32_t> sums(8);
    ASSERT_EQ(ZMOSVertProjectSingle_PBM(&img, &r, sums.data()), 0);
    for (int y = 0; y < 8; ++y)
      ASSERT_EQ(sums[y], LaneModel(img.pPlane[0] + y * pitch + left, n))
          << "n " << n << " left " << left << " row " << y;
  }
}

TEST(Projection, EntryChecksAndFormatQuirks) {
  Plane0 plane(ZMOS_FORMAT_GREY, 32, 32, 32, 0, 1);
  std::vector<std::uint32_t> out(40, 99);
  const ZMOSRECT bad[] = {{0, 0, 7, 8},  {0, 0, 8, 7},  {-4, 0, 8, 8}, {0, -1, 8, 8},
                          {0, 0, 33, 8}, {0, 0, 8, 33}, {20, 0, 10, 8}};
  for (auto project :
       {ZMOSHoriProjectSingle_PBM, ZMOSHoriProjectSingleInterval_PBM, ZMOSVertProjectSingle_PBM}) {
    std::fill(out.begin(), out.end(), 99u);
    for (const ZMOSRECT& r : bad) EXPECT_EQ(project(&plane.image, &r, out.data()), 2);
    const ZMOSRECT ok{0, 0, 8, 8};
    EXPECT_EQ(project(nullptr, &ok, out.data()), 2);
    EXPECT_EQ(project(&plane.image, nullptr, out.data()), 2);
    EXPECT_EQ(project(&plane.image, &ok, nullptr), 2);
    EXPECT_EQ(out[0], 99u);  // untouched on failure
    EXPECT_EQ(project(&plane.image, &ok, out.data()), 0);
    ZMOSIMAGE unsupported = plane.image;
    unsupported.dwFormat = 0x301;
    std::fill(out.begin(), out.end(), 99u);
    EXPECT_EQ(project(&unsupported, &ok, out.data()), 3);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(out[i], 0u);
  }
  // Horizontal sums of planar images start at the column rounded down to 4.
  const ZMOSRECT at2{2, 0, 12, 8};
  ASSERT_EQ(ZMOSHoriProjectSingle_PBM(&plane.image, &at2, out.data()), 0);
  std::uint32_t col0 = 0;
  for (int y = 0; y < 8; ++y) col0 += Luma(plane.image, 0, y);
  EXPECT_EQ(out[0], col0);
  // The interval variant of 9 rows takes rows 0, 2, 4 and 6.
  const ZMOSRECT nine{0, 0, 8, 9};
  ASSERT_EQ(ZMOSHoriProjectSingleInterval_PBM(&plane.image, &nine, out.data()), 0);
  EXPECT_EQ(out[0], Luma(plane.image, 0, 0) + Luma(plane.image, 0, 2) + Luma(plane.image, 0, 4) +
                        Luma(plane.image, 0, 6));
  // Any code of families 6 to 8 is planar for the horizontal projections only.
  ZMOSIMAGE odd_code = plane.image;
  odd_code.dwFormat = 0x7FF;
  EXPECT_EQ(ZMOSHoriProjectSingle_PBM(&odd_code, &nine, out.data()), 0);
  EXPECT_EQ(ZMOSVertProjectSingle_PBM(&odd_code, &nine, out.data()), 3);
}

}  // namespace
}  // namespace lumivex::track
