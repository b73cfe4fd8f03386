#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "lumivex/track.h"
#include "src/track/match_kernels.h"
#include "tests/support/test_support.h"

namespace lumivex::track {
namespace {

using test::Rng;

// A smooth, textured signal: a random walk of slopes, like a projection of a photo.
// `memory` (in 1/100) sets how long the slope keeps its direction.
std::vector<std::uint32_t> Signal(int len, std::uint64_t seed, int roughness = 400,
                                  int memory = 75) {
  Rng rng(seed);
  std::vector<std::uint32_t> s(len);
  std::int64_t v = 2000000, slope = 0;
  for (int i = 0; i < len; ++i) {
    slope = slope * memory / 100 + rng.Range(-roughness, roughness);
    v += slope;
    s[i] = static_cast<std::uint32_t>(std::max<std::int64_t>(v, 0));
  }
  return s;
}

// b[x] = a[x + d]: the content of a moved towards lower indices, as a frame shows when
// the camera moves by +d; the matchers report d (a[x] matches b[x - d]).
std::vector<std::uint32_t> Shifted(const std::vector<std::uint32_t>& a, int d, int len) {
  std::vector<std::uint32_t> b(len);
  for (int x = 0; x < len; ++x) b[x] = a[x + d + 200];
  return b;
}

TEST(Match, DirectSearchFindsEveryShiftInRange) {
  const int len = 400, max = 60;
  const auto base = Signal(len + 400, 1);
  const std::vector<std::uint32_t> prev = Shifted(base, 0, len);
  for (int d = -max; d <= max; ++d) {
    const auto cur = Shifted(base, d, len);
    std::int32_t off = 0;
    ASSERT_EQ(
        ZMOSMatch1DBufferAllocated_PBM(prev.data(), cur.data(), len, &off, max, nullptr, nullptr),
        0);
    ASSERT_EQ(off, d);
    // A prior near the answer gives the same total.
    for (int prior : {-7, 5}) {
      off = prior;
      ASSERT_EQ(
          ZMOSMatch1DBufferAllocated_PBM(prev.data(), cur.data(), len, &off, 20, nullptr, nullptr),
          0);
      if (std::abs(d - prior) <= 20) {
        ASSERT_EQ(off, d) << "prior " << prior;
      }
    }
  }
}

TEST(Match, DirectSearchRulesAndGates) {
  const auto s = Signal(100, 2);
  std::int32_t off = 0;
  // n = 100 = 2 x 50 is accepted; the overlap less one is empty, so every candidate ties
  // at 0 and the first, +50, wins.
  EXPECT_EQ(ZMOSMatch1DBufferAllocated_PBM(s.data(), s.data(), 100, &off, 50, nullptr, nullptr), 0);
  EXPECT_EQ(off, 50);
  off = 1;
  EXPECT_EQ(ZMOSMatch1DBufferAllocated_PBM(s.data(), s.data(), 100, &off, 50, nullptr, nullptr), 5);
  EXPECT_EQ(off, 1);
  // Flat: mean adjacent difference below 30.
  const std::vector<std::uint32_t> flat(200, 5000);
  off = 4;
  EXPECT_EQ(
      ZMOSMatch1DBufferAllocated_PBM(flat.data(), flat.data(), 200, &off, 10, nullptr, nullptr), 5);
  EXPECT_EQ(off, 4);
  // A periodic signal ties at every period: the largest tying offset wins.
  std::vector<std::uint32_t> periodic(200);
  for (int i = 0; i < 200; ++i) periodic[i] = (i % 8) * 1000;
  off = 0;
  EXPECT_EQ(ZMOSMatch1DBufferAllocated_PBM(periodic.data(), periodic.data(), 200, &off, 20, nullptr,
                                           nullptr),
            0);
  EXPECT_EQ(off, 16);
  // The prior is added to the best shift: prior 3, best -2 gives 1.
  const auto base = Signal(800, 3);
  const auto prev = Shifted(base, 0, 300), cur = Shifted(base, 1, 300);
  off = 3;
  EXPECT_EQ(
      ZMOSMatch1DBufferAllocated_PBM(prev.data(), cur.data(), 300, &off, 10, nullptr, nullptr), 0);
  EXPECT_EQ(off, 1);
  EXPECT_EQ(ZMOSMatch1DBufferAllocated_PBM(nullptr, cur.data(), 300, &off, 10, nullptr, nullptr),
            2);
}

// The kernel against the search written out: every candidate, smallest SAD, first on
// ties, over the overlap less one element.
TEST(Match, BestShiftMatchesPlainSearch) {
  Rng rng(11);
  for (int trial = 0; trial < 300; ++trial) {
    const int max = rng.Range(0, 40), m = rng.Range(-3, 300);
    const int n = m + 2 * max + 1;
    std::vector<std::uint32_t> c(std::max(n, 1)), r(std::max(n, 1));
    const std::uint32_t spread = trial % 3 == 0 ? 4 : 1u << rng.Range(4, 24);
    for (auto& v : c) v = rng.Next() % spread;
    for (auto& v : r) v = rng.Next() % spread;
    std::uint32_t best = 0xFFFFFFFFu;
    std::int32_t want = 0;
    for (int d = max; d >= -max; --d) {
      std::uint32_t sad = 0;
      for (int i = 0; i < m; ++i) {
        const std::uint32_t a = c[max + i], b = r[max - d + i];
        sad += a > b ? a - b : b - a;
      }
      if (sad < best) {
        best = sad;
        want = d;
      }
    }
    ASSERT_EQ(BestShift(c.data(), r.data(), max, m), want) << "trial " << trial;
  }
}

TEST(Match, GradientWalkerFollowsSmoothSignals) {
  const int len = 600;
  // Gradients that keep their sign over tens of entries, as wide projections have.
  const auto base = Signal(len + 400, 4, 300, 97);
  const auto prev = Shifted(base, 0, len);
  std::vector<std::int32_t> a(len), b(len);
  for (int d : {-40, -13, -6, -1, 0, 2, 9, 31}) {
    const auto cur = Shifted(base, d, len);
    std::int32_t off = 0;
    ASSERT_EQ(
        ZMOSComputeOffset_Gradient(prev.data(), cur.data(), len, &off, 60, a.data(), b.data()), 0);
    EXPECT_NEAR(off, d, 1) << "shift " << d;
  }
  // One local search when the range is 6 or less: at most 6 from the prior.
  const auto far = Shifted(base, 20, len);
  std::int32_t off = 0;
  ASSERT_EQ(ZMOSComputeOffset_Gradient(prev.data(), far.data(), len, &off, 6, a.data(), b.data()),
            0);
  EXPECT_LE(std::abs(off), 6);
  // Flat signals succeed and keep the prior; missing scratch is 4 with the offset cleared.
  const std::vector<std::uint32_t> flat(len, 1000);
  off = 7;
  EXPECT_EQ(ZMOSComputeOffset_Gradient(flat.data(), flat.data(), len, &off, 10, a.data(), b.data()),
            0);
  EXPECT_EQ(off, 7);
  EXPECT_EQ(ZMOSComputeOffset_Gradient(prev.data(), prev.data(), len, &off, 10, nullptr, b.data()),
            4);
  EXPECT_EQ(off, 0);
  off = 1;
  EXPECT_EQ(ZMOSComputeOffset_Gradient(prev.data(), prev.data(), 20, &off, 10, a.data(), b.data()),
            5);
  EXPECT_EQ(off, 1);
}

}  // namespace
}  // namespace lumivex::track
