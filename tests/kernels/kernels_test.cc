// Every kernel set this machine runs against the reference set: odd widths, unaligned
// starts, pitches wider than the rows, and inputs that end exactly where an unreadable
// page begins, so that a kernel reading one byte too far faults.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "src/kernels/kernels.h"
#include "src/kernels/match_kernels.h"
#include "src/kernels/projection_kernels.h"
#include "tests/support/test_support.h"

namespace lumivex::kernels {
namespace {

using test::Rng;

// `bytes` writable bytes followed by a page that cannot be read.
class Guarded {
 public:
  explicit Guarded(std::size_t bytes) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    span_ = ((bytes + page - 1) / page + 1) * page;
    void* base = mmap(nullptr, span_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED) std::abort();
    base_ = static_cast<std::uint8_t*>(base);
    if (mprotect(base_ + span_ - page, page, PROT_NONE) != 0) std::abort();
    data_ = base_ + span_ - page - bytes;
  }
  ~Guarded() { munmap(base_, span_); }
  Guarded(const Guarded&) = delete;
  Guarded& operator=(const Guarded&) = delete;
  std::uint8_t* bytes() { return data_; }
  template <typename T>
  T* as() {
    return reinterpret_cast<T*>(data_);
  }

 private:
  std::uint8_t* base_;
  std::uint8_t* data_;
  std::size_t span_;
};

// Pixels: mostly random around a level, sometimes all 255 (the widest sums).
void Fill(std::uint8_t* p, std::size_t n, Rng& rng, int trial) {
  const int level = rng.Range(0, 255);
  for (std::size_t i = 0; i < n; ++i)
    p[i] = static_cast<std::uint8_t>(trial % 5 == 0 ? 255 : (level + rng.Next() % 80) & 0xFF);
}

class Kernels : public ::testing::TestWithParam<const KernelSet*> {
 protected:
  const KernelSet& fast() const { return *GetParam(); }
  const KernelSet& ref() const { return Reference(); }
};

TEST_P(Kernels, ColumnSums) {
  Rng rng(1);
  for (int trial = 0; trial < 150; ++trial) {
    // Past 257 rows the 16-bit blocks flush; widths cross every vector width.
    const int width = trial % 10 == 0 ? rng.Range(600, 1300) : rng.Range(1, 200);
    const int rows = trial % 3 == 0 ? rng.Range(250, 600) : rng.Range(1, 40);
    const int step = width + rng.Range(0, 37);
    const std::size_t bytes = static_cast<std::size_t>(step) * (rows - 1) + width;
    Guarded buf(bytes);
    Fill(buf.bytes(), bytes, rng, trial);
    std::vector<std::uint32_t> want(width), got(width);
    for (int x = 0; x < width; ++x) want[x] = got[x] = rng.Next() % 1000;  // sums add in
    ref().column_sums(width, rows, buf.bytes(), step, want.data());
    fast().column_sums(width, rows, buf.bytes(), step, got.data());
    ASSERT_EQ(got, want) << width << " x " << rows << " step " << step;
  }
}

TEST_P(Kernels, LaneSumsAndTheRowSumsBuiltOnThem) {
  Rng rng(2);
  for (int trial = 0; trial < 300; ++trial) {
    // Long bright rows wrap the 16-bit lanes of the row sums (and flush the kernels').
    const int n = trial % 7 == 0 ? rng.Range(500, 5000) : rng.Range(0, 300);
    const int rows = rng.Range(1, 70), phase = rng.Range(0, 3);
    const int step = ((n + phase + 3) & ~3) + 4 * rng.Range(0, 3);
    const std::size_t bytes = static_cast<std::size_t>(step) * (rows - 1) + phase + n;
    Guarded buf(bytes);
    Fill(buf.bytes(), bytes, rng, trial);
    const std::uint8_t* p = buf.bytes() + phase;
    std::vector<std::uint32_t> want(rows), got(rows);
    for (int y = 0; y < rows; ++y) want[y] = track::RowSumLanes(p + y * step, n, ref());
    track::RowSumLanesRows(p, step, rows, n, got.data(), fast());
    ASSERT_EQ(got, want) << n << " x " << rows << " phase " << phase;
    ASSERT_EQ(track::RowSumLanes(p, n, fast()), want[0]);

    const int grouped = n & ~15;
    std::vector<std::uint32_t> wl(rows), wh(rows), gl(rows, 1), gh(rows, 1);
    const std::uint8_t* last = buf.bytes() + bytes - grouped - std::size_t(step) * (rows - 1);
    ref().lane_sums(last, step, rows, grouped, wl.data(), wh.data());
    fast().lane_sums(last, step, rows, grouped, gl.data(), gh.data());
    ASSERT_EQ(gl, wl) << grouped;
    ASSERT_EQ(gh, wh) << grouped;
  }
}

TEST_P(Kernels, RowSums) {
  Rng rng(6);
  for (int trial = 0; trial < 400; ++trial) {
    // Every width below 40 (each tail case), then wide rows past the 16-bit flushes.
    const int n = trial < 160      ? trial / 4
                  : trial % 9 == 0 ? rng.Range(2000, 9000)
                                   : rng.Range(40, 600);
    const int rows = rng.Range(1, 30), step = n + rng.Range(0, 40);
    const std::size_t bytes = static_cast<std::size_t>(step) * (rows - 1) + n;
    Guarded buf(bytes);
    Fill(buf.bytes(), bytes, rng, trial);
    std::vector<std::uint32_t> want(rows), got(rows, 7);
    ref().row_sums(buf.bytes(), step, rows, n, want.data());
    fast().row_sums(buf.bytes(), step, rows, n, got.data());
    ASSERT_EQ(got, want) << n << " x " << rows << " step " << step;
  }
}

TEST_P(Kernels, SadStopsOnlyWhereTheReferenceWould) {
  Rng rng(3);
  for (int trial = 0; trial < 600; ++trial) {
    const int m = rng.Range(0, 400);
    Guarded a(4 * static_cast<std::size_t>(m)), b(4 * static_cast<std::size_t>(m));
    // Entries below 2^31 whose sum stays below 2^32, as the matcher guarantees.
    const std::uint32_t top = m > 0 ? std::min<std::uint32_t>(0x7FFFFFFFu, 0xFFFFFFFEu / m) : 1;
    const bool big = trial % 4 == 0;
    for (int i = 0; i < m; ++i) {
      a.as<std::uint32_t>()[i] = big ? top - rng.Next() % 1000 : 50000 + rng.Range(0, 9000);
      b.as<std::uint32_t>()[i] = big ? rng.Next() % 1000 : 50000 + rng.Range(0, 9000);
    }
    const std::uint32_t full =
        ref().sad_until(a.as<std::uint32_t>(), b.as<std::uint32_t>(), m, 0xFFFFFFFFu);
    const std::uint32_t limits[] = {0, 1, full / 3, full, full + 1, 0xFFFFFFFFu};
    for (const std::uint32_t limit : limits) {
      const std::uint32_t want =
          ref().sad_until(a.as<std::uint32_t>(), b.as<std::uint32_t>(), m, limit);
      const std::uint32_t got =
          fast().sad_until(a.as<std::uint32_t>(), b.as<std::uint32_t>(), m, limit);
      // Below the limit the sum is complete and must agree; at or above it, both gave up.
      ASSERT_EQ(got < limit, want < limit) << m << " limit " << limit;
      if (want < limit) {
        ASSERT_EQ(got, want) << m;
      }
    }
    ASSERT_EQ(fast().sad_until(a.as<std::uint32_t>(), b.as<std::uint32_t>(), m, 0xFFFFFFFFu), full);
  }
}

TEST_P(Kernels, DirectSearchAgreesWithTheFullSearch) {
  Rng rng(4);
  for (int trial = 0; trial < 800; ++trial) {
    const int max_offset = rng.Range(0, 60), m = rng.Range(0, 200);
    std::vector<std::uint32_t> c(m + 2 * max_offset + 1), r(c.size());
    for (std::size_t i = 0; i < c.size(); ++i) {
      if (trial % 3 == 0) {
        c[i] = r[i] = 1000 * (i % 9);  // exact repeats: ties
      } else {
        c[i] = 60000 + rng.Range(0, 3000 * (trial % 5));
        r[i] = 60000 + rng.Range(0, 3000 * (trial % 5));
      }
    }
    ASSERT_EQ(track::BestShiftEarlyExit(c.data(), r.data(), max_offset, m, fast()),
              track::BestShiftReference(c.data(), r.data(), max_offset, m))
        << max_offset << " " << m;
  }
}

TEST_P(Kernels, FadeAndAverage) {
  Rng rng(5);
  for (int trial = 0; trial < 300; ++trial) {
    // Every short length (each has its own path in some sets), then any.
    const int n = trial < 40 ? trial : rng.Range(0, 700);
    Guarded s(n), ws(2 * static_cast<std::size_t>(n)), wf(2 * static_cast<std::size_t>(n));
    Fill(s.bytes(), n, rng, trial);
    for (int k = 0; k < n; ++k) {
      // Complementary weights as the blend table has, or any 16-bit pair (the sum then
      // passes 255 and saturates).
      const std::uint16_t w = static_cast<std::uint16_t>(rng.Next());
      ws.as<std::uint16_t>()[k] = w;
      wf.as<std::uint16_t>()[k] = trial % 2 ? static_cast<std::uint16_t>(65535 - w)
                                            : static_cast<std::uint16_t>(rng.Next());
    }
    // The row being blended into ends at the page too.
    Guarded want(n), got(n);
    Fill(want.bytes(), n, rng, trial + 1);
    std::copy(want.bytes(), want.bytes() + n, got.bytes());
    ref().fade_q16(want.bytes(), s.bytes(), ws.as<std::uint16_t>(), wf.as<std::uint16_t>(), n);
    fast().fade_q16(got.bytes(), s.bytes(), ws.as<std::uint16_t>(), wf.as<std::uint16_t>(), n);
    ASSERT_EQ(std::memcmp(got.bytes(), want.bytes(), n), 0) << "fade " << n;
    ref().average(want.bytes(), s.bytes(), n);
    fast().average(got.bytes(), s.bytes(), n);
    ASSERT_EQ(std::memcmp(got.bytes(), want.bytes(), n), 0) << "average " << n;
  }
}

// A whole overlap's rows in one call: each row is the single-row fade, nothing outside a
// row's n bytes changes, and the last row may end at the page.
TEST_P(Kernels, FadeRowsIsTheFadeOfEachRow) {
  Rng rng(7);
  for (int trial = 0; trial < 200; ++trial) {
    const int n = trial < 40 ? trial : rng.Range(0, 300), rows = rng.Range(1, 6);
    const int f_step = n + rng.Range(0, 9), s_step = n + rng.Range(0, 9);
    const std::size_t f_bytes = static_cast<std::size_t>(f_step) * (rows - 1) + n;
    const std::size_t s_bytes = static_cast<std::size_t>(s_step) * (rows - 1) + n;
    Guarded s(s_bytes), ws(2 * static_cast<std::size_t>(n)), wf(2 * static_cast<std::size_t>(n));
    Fill(s.bytes(), s_bytes, rng, trial);
    for (int k = 0; k < n; ++k) {
      ws.as<std::uint16_t>()[k] = static_cast<std::uint16_t>(rng.Next());
      wf.as<std::uint16_t>()[k] = static_cast<std::uint16_t>(rng.Next());
    }
    Guarded want(f_bytes), got(f_bytes);
    Fill(want.bytes(), f_bytes, rng, trial + 1);
    std::copy(want.bytes(), want.bytes() + f_bytes, got.bytes());
    for (int y = 0; y < rows; ++y)
      ref().fade_q16(want.bytes() + y * f_step, s.bytes() + y * s_step, ws.as<std::uint16_t>(),
                     wf.as<std::uint16_t>(), n);
    fast().fade_rows(got.bytes(), f_step, s.bytes(), s_step, rows, ws.as<std::uint16_t>(),
                     wf.as<std::uint16_t>(), n);
    ASSERT_EQ(std::memcmp(got.bytes(), want.bytes(), f_bytes), 0) << n << " x " << rows;
  }
}

// Rows copy as memmove copies them, also when a row's source and destination overlap
// either way (in-place crops), and nothing past a row's n bytes is touched.
TEST_P(Kernels, CopyRowsMovesLikeMemmove) {
  Rng rng(8);
  for (int trial = 0; trial < 300; ++trial) {
    const int n = trial < 80 ? trial : rng.Range(0, 400), rows = rng.Range(1, 5);
    const int step = n + rng.Range(0, 40);
    const int shift = rng.Range(-20, 20);  // destination against source, same buffer
    const std::size_t bytes = static_cast<std::size_t>(step) * rows + 64;
    Guarded want(bytes), got(bytes);
    Fill(want.bytes(), bytes, rng, trial);
    std::copy(want.bytes(), want.bytes() + bytes, got.bytes());
    const std::ptrdiff_t s0 = 24, d0 = trial % 3 == 0 ? 24 + shift : 24;
    auto run = [&](const KernelSet& k, std::uint8_t* base, const std::uint8_t* other) {
      // Trials alternate between a separate source and an overlapping one.
      const std::uint8_t* src = trial % 3 == 0 ? base + s0 : other + s0;
      k.copy_rows(base + d0, step, src, step, rows, n);
    };
    Guarded source(bytes);
    Fill(source.bytes(), bytes, rng, trial + 1);
    run(ref(), want.bytes(), source.bytes());
    run(fast(), got.bytes(), source.bytes());
    ASSERT_EQ(std::memcmp(got.bytes(), want.bytes(), bytes), 0) << n << " x " << rows;
  }
}

TEST_P(Kernels, SwapPairs) {
  Rng rng(6);
  for (int trial = 0; trial < 200; ++trial) {
    const int pairs = rng.Range(0, 500), skew = rng.Range(0, 1);
    Guarded src(2 * static_cast<std::size_t>(pairs) + skew);
    Fill(src.bytes(), 2 * pairs + skew, rng, trial);
    Guarded want(2 * static_cast<std::size_t>(pairs)), got(2 * static_cast<std::size_t>(pairs));
    ref().swap_pairs(want.bytes(), src.bytes() + skew, pairs);
    fast().swap_pairs(got.bytes(), src.bytes() + skew, pairs);
    ASSERT_EQ(std::memcmp(got.bytes(), want.bytes(), 2 * pairs), 0) << pairs;
  }
}

std::vector<const KernelSet*> FastSets() {
  std::vector<const KernelSet*> sets;
  for (const KernelSet* k : Available())
    if (k != &Reference()) sets.push_back(k);
  return sets;
}

INSTANTIATE_TEST_SUITE_P(Sets, Kernels, ::testing::ValuesIn(FastSets()),
                         [](const auto& info) { return std::string(info.param->name); });
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Kernels);

// The set in use is the last one this machine can run; a build with reference kernels
// only runs nothing else.
// The block SAD from its contract: |clamp(a + bias) - b| over the rows, stopping after a
// multiple of 8 rows once the partial sum reaches the limit.
std::uint32_t BlockSadModel(const std::uint8_t* a, std::ptrdiff_t as, const std::uint8_t* b,
                            std::ptrdiff_t bs, int rows, int n, int bias, std::uint32_t limit) {
  std::uint32_t sum = 0;
  for (int y = 0; y < rows; ++y) {
    if (y > 0 && y % 8 == 0 && sum >= limit) break;
    for (int x = 0; x < n; ++x)
      sum += static_cast<std::uint32_t>(
          std::abs(std::clamp(a[y * as + x] + bias, 0, 255) - b[y * bs + x]));
  }
  return sum;
}

TEST_P(Kernels, BlockSadStopsOnlyWhereTheModelDoes) {
  Rng rng(9);
  for (int trial = 0; trial < 400; ++trial) {
    const int n = trial % 7 == 0 ? rng.Range(100, 300) : rng.Range(1, 80);
    const int rows = rng.Range(1, 70);
    const int as = n + rng.Range(0, 19), bs = trial % 9 == 0 ? 0 : n + rng.Range(0, 19);
    const int bias = trial % 11 == 0 ? (trial % 2 ? 255 : -255) : rng.Range(-60, 60);
    const std::size_t abytes = static_cast<std::size_t>(as) * (rows - 1) + n;
    const std::size_t bbytes = static_cast<std::size_t>(bs) * (rows - 1) + n;
    Guarded a(abytes), b(bbytes);
    Fill(a.bytes(), abytes, rng, trial);
    Fill(b.bytes(), bbytes, rng, trial + 1);
    const std::uint32_t full =
        BlockSadModel(a.bytes(), as, b.bytes(), bs, rows, n, bias, UINT32_MAX);
    const std::uint32_t limit = trial % 4 == 0 ? UINT32_MAX : rng.Next() % (full + 2);
    const std::uint32_t want = BlockSadModel(a.bytes(), as, b.bytes(), bs, rows, n, bias, limit);
    ASSERT_EQ(fast().block_sad(a.bytes(), as, b.bytes(), bs, rows, n, bias, limit), want)
        << n << " x " << rows << " bias " << bias << " limit " << limit;
  }
}

TEST(KernelChoice, ActiveIsTheFastestAvailable) {
  const auto sets = Available();
  ASSERT_FALSE(sets.empty());
  EXPECT_EQ(sets.front(), &Reference());
  EXPECT_EQ(&Active(), sets.back());
#if defined(LUMIVEX_REFERENCE_KERNELS)
  EXPECT_EQ(sets.size(), 1u);
#endif
}

}  // namespace
}  // namespace lumivex::kernels
