#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "lumivex/track.h"
#include "src/kernels/match_kernels.h"
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

// Both matchers modelled from their rules and compared with the library on random
// signals, lengths, priors and ranges: textured and flat, shifted copies and small
// alphabets (ties), so every gate, tie rule and rounding shows.
namespace model {

std::int64_t Usable(std::int32_t len, std::int32_t p) {
  return p == 0 ? len : p > 0 ? std::int64_t{len} - p : std::int64_t{len} + p;
}

std::int32_t Direct(const std::uint32_t* cur, const std::uint32_t* ref, std::int32_t len,
                    std::int32_t* offset, std::int32_t max) {
  const std::int32_t p = *offset;
  const std::int64_t n = Usable(len, p);
  if (n < 2 * std::int64_t{max} || n <= 0) return 5;
  const std::uint32_t* c = p > 0 ? cur + p : cur;
  const std::uint32_t* r = p < 0 ? ref - p : ref;
  std::uint32_t texture = 0;
  for (std::int64_t i = 0; i + 1 < n; ++i)
    texture += c[i + 1] > c[i] ? c[i + 1] - c[i] : c[i] - c[i + 1];
  if (texture / static_cast<std::uint32_t>(n) < 30) return 5;
  std::int32_t found = 0;
  if (max >= 0) {
    const std::int64_t m = n - 2 * std::int64_t{max} - 1;
    std::uint32_t best = 0xFFFFFFFFu;
    for (std::int32_t d = max; d >= -max; --d) {
      std::uint32_t sad = 0;
      for (std::int64_t i = 0; i < m; ++i) {
        const std::uint32_t x = c[max + i], y = r[max - d + i];
        sad += x > y ? x - y : y - x;
      }
      if (sad < best) best = sad, found = d;
    }
  }
  *offset = found + p;
  return 0;
}

void Smooth(const std::uint32_t* in, std::int32_t len, std::vector<std::int32_t>* out) {
  out->assign(len, 0);
  for (int i : {0, 1, len - 2, len - 1}) (*out)[i] = static_cast<std::int32_t>(in[i]);
  for (std::int32_t i = 2; i <= len - 3; ++i) {
    const auto sum =
        static_cast<std::int32_t>(in[i - 2] + in[i - 1] + in[i] + in[i + 1] + in[i + 2]);
    (*out)[i] = static_cast<std::int32_t>(static_cast<float>(sum) / 5.0f + 0.5);
  }
}

// The search that drops a candidate once its partial sum reaches the best gives the full
// search's answer: near-ties, exact repeats, lengths around its chunk size, and sums that
// wrap (where it must fall back to summing everything).
TEST(Match, EarlyExitSearchIsBitExact) {
  Rng rng(23);
  for (int trial = 0; trial < 3000; ++trial) {
    const int max_offset = rng.Range(0, 40), m = rng.Range(0, 70);
    const int kind = trial % 4;
    std::vector<std::uint32_t> c(m + 2 * max_offset + 1), r(c.size());
    for (std::size_t i = 0; i < c.size(); ++i) {
      switch (kind) {
        case 0:  // small values: many equal sums
          c[i] = rng.Range(0, 3), r[i] = rng.Range(0, 3);
          break;
        case 1:  // a periodic signal: exact repeats
          c[i] = r[i] = static_cast<std::uint32_t>(1000 * (i % 7));
          break;
        case 2:  // large values: the sums wrap
          c[i] = 0xF0000000u + rng.Range(0, 1 << 20), r[i] = rng.Range(0, 1 << 20);
          break;
        default:  // a projection-like signal
          c[i] = 50000 + rng.Range(0, 20000), r[i] = 50000 + rng.Range(0, 20000);
          break;
      }
    }
    ASSERT_EQ(BestShiftEarlyExit(c.data(), r.data(), max_offset, m),
              BestShiftReference(c.data(), r.data(), max_offset, m))
        << "kind " << kind << " max " << max_offset << " m " << m;
  }
}

// The step the local search returns: minus the best shift, ties to the earlier candidate.
std::int32_t LocalStep(const std::int32_t* a, const std::int32_t* b, std::int64_t n) {
  auto sum = [&](int s) {
    std::int64_t t = 0;
    for (std::int64_t i = 0; i < n - 13; ++i) t += std::abs(a[6 + i] - b[6 + s + i]);
    return t;
  };
  std::int64_t best = sum(0);
  int index = 0;
  for (int k = 1; k <= 6; ++k) {
    if (best > sum(k)) best = sum(k), index = k;
    if (sum(-k) < best) best = sum(-k), index = -k;
  }
  return -index;
}

std::int32_t Gradient(const std::uint32_t* cur, const std::uint32_t* ref, std::int32_t len,
                      std::int32_t* offset, std::int32_t max) {
  const std::int32_t p = *offset;
  const std::int64_t n = Usable(len, p);
  if (n < 2 * std::int64_t{max}) return 5;
  std::vector<std::int32_t> a, b;
  Smooth(cur, len, &a);
  Smooth(ref, len, &b);
  for (std::int64_t i = 0; i < n - 2; ++i) {
    a[i] = a[i + 2] - a[i];
    b[i] = b[i + 2] - b[i];
  }
  std::uint32_t flatness = 0;
  for (std::int64_t i = 0; i < n - 2; ++i) flatness += static_cast<std::uint32_t>(std::abs(a[i]));
  if (flatness / static_cast<std::uint32_t>(n - 2) <= 39) return 0;
  std::int32_t acc = 0;
  for (std::int32_t round = 0;; ++round) {
    const std::int32_t step = acc > 0 ? LocalStep(a.data() + acc, b.data(), n - 2 - acc)
                                      : LocalStep(a.data(), b.data() - acc, n - 2 + acc);
    acc += step;
    if (step == 0 || max <= 6 || round > max / 6) break;
  }
  *offset = acc + p;
  return 0;
}

}  // namespace model

TEST(Match, BothMatchersFollowTheirRules) {
  Rng rng(11);
  int textured = 0, flat = 0, moved = 0;
  for (int trial = 0; trial < 3000; ++trial) {
    const int len = rng.Range(24, 360), max = rng.Range(0, 60);
    std::vector<std::uint32_t> cur, ref;
    if (trial % 5 == 0) {
      // Few distinct values: long runs of equal costs.
      const std::uint32_t spread = 1u << rng.Range(1, 9);
      cur.resize(len), ref.resize(len);
      for (auto& v : cur) v = rng.Next() % spread * 40;
      for (auto& v : ref) v = rng.Next() % spread * 40;
    } else {
      const auto base = Signal(len + 400, trial, rng.Range(2, 600), rng.Range(0, 99));
      cur = Shifted(base, 0, len);
      ref = Shifted(base, rng.Range(-max - 3, max + 3), len);
    }
    std::vector<std::int32_t> sa(len), sb(len);
    const std::int32_t prior = rng.Range(0, 3) == 0 ? 0 : rng.Range(-12, 12);
    std::int32_t want = prior, got = prior;
    const std::int32_t want_res = model::Direct(cur.data(), ref.data(), len, &want, max);
    ASSERT_EQ(
        ZMOSMatch1DBufferAllocated_PBM(cur.data(), ref.data(), len, &got, max, nullptr, nullptr),
        want_res)
        << "direct, trial " << trial;
    ASSERT_EQ(got, want) << "direct, trial " << trial;
    textured += want_res == 0;
    want = got = prior;
    const std::int32_t grad_res = model::Gradient(cur.data(), ref.data(), len, &want, max);
    ASSERT_EQ(
        ZMOSComputeOffset_Gradient(cur.data(), ref.data(), len, &got, max, sa.data(), sb.data()),
        grad_res)
        << "gradient, trial " << trial;
    ASSERT_EQ(got, want) << "gradient, trial " << trial;
    flat += grad_res == 0 && want == prior;
    moved += grad_res == 0 && want != prior;
  }
  // The random cases reach every branch.
  EXPECT_GT(textured, 300);
  EXPECT_GT(flat, 100);
  EXPECT_GT(moved, 300);
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
