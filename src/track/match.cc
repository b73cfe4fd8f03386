// One-dimensional matching: direct SAD search and the gradient walker.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "lumivex/track.h"
#include "src/kernels/kernels.h"
#include "src/kernels/match_kernels.h"

namespace lumivex::track {

std::uint32_t SumAbsDiff(const std::uint32_t* a, const std::uint32_t* b, std::int32_t m) {
  std::uint32_t sum = 0;
  for (std::int32_t i = 0; i < m; ++i) sum += a[i] > b[i] ? a[i] - b[i] : b[i] - a[i];
  return sum;
}

std::uint32_t SumAdjacentDiff(const std::uint32_t* a, std::int32_t m) {
  std::uint32_t sum = 0;
  for (std::int32_t i = 0; i < m; ++i) sum += a[i + 1] > a[i] ? a[i + 1] - a[i] : a[i] - a[i + 1];
  return sum;
}

std::int32_t BestShiftReference(const std::uint32_t* c, const std::uint32_t* r,
                                std::int32_t max_offset, std::int32_t m) {
  std::uint32_t best = 0xFFFFFFFFu;
  std::int32_t best_d = 0;
  for (std::int32_t d = max_offset; d >= -max_offset; --d) {
    const std::uint32_t sad = m > 0 ? SumAbsDiff(c + max_offset, r + (max_offset - d), m) : 0;
    if (sad < best) {
      best = sad;
      best_d = d;
    }
  }
  return best_d;
}

std::int32_t BestShiftEarlyExit(const std::uint32_t* c, const std::uint32_t* r,
                                std::int32_t max_offset, std::int32_t m,
                                const kernels::KernelSet& k) {
  if (m <= 0 || max_offset < 0) return BestShiftReference(c, r, max_offset, m);
  // A candidate can be dropped once its partial sum reaches the best one only if no sum
  // wraps: bounded by m times the largest entry either signal contributes. Entries below
  // 2^31 also let the vector kernels take signed differences.
  const std::uint32_t* a = c + max_offset;
  std::uint32_t top = 0;
  for (std::int32_t i = 0; i < m; ++i) top = std::max(top, a[i]);
  for (std::int64_t i = 0; i < std::int64_t{m} + 2 * std::int64_t{max_offset}; ++i)
    top = std::max(top, r[i]);
  if (std::uint64_t{top} * static_cast<std::uint64_t>(m) >= 0xFFFFFFFFu || top >= 0x80000000u)
    return BestShiftReference(c, r, max_offset, m);
  // The unmoved candidate (the caller's prior) is usually close to the answer: its sum
  // bounds every other from the start. A candidate above it can never win; one equal to
  // it still can, if met first, so those are summed in full.
  const std::uint32_t seed = k.sad_until(a, r + max_offset, m, 0xFFFFFFFFu);
  std::uint32_t best = 0xFFFFFFFFu;
  std::int32_t best_d = 0;
  for (std::int32_t d = max_offset; d >= -max_offset; --d) {
    // Once the partial sum reaches the limit, the whole one cannot win.
    const std::uint32_t sad = k.sad_until(a, r + (max_offset - d), m, std::min(best, seed + 1));
    if (sad < best && sad <= seed) {
      best = sad;
      best_d = d;
    }
  }
  return best_d;
}

std::int32_t BestShift(const std::uint32_t* c, const std::uint32_t* r, std::int32_t max_offset,
                       std::int32_t m) {
  return BestShiftEarlyExit(c, r, max_offset, m, kernels::Active());
}

namespace {

// Usable length after the prior shifts the signals against each other.
std::int32_t UsableLength(std::int32_t len, std::int32_t prior) {
  return prior >= 0 ? len - prior : len + prior;
}

// Five-tap box filter with round-half-up; the two entries at each end are copied.
void Smooth5(const std::int32_t* in, std::int32_t len, std::int32_t* out) {
  out[0] = in[0];
  out[1] = in[1];
  out[len - 2] = in[len - 2];
  out[len - 1] = in[len - 1];
  for (std::int32_t i = 2; i <= len - 3; ++i) {
    const auto sum = static_cast<std::int32_t>(
        static_cast<std::uint32_t>(in[i - 2]) + static_cast<std::uint32_t>(in[i - 1]) +
        static_cast<std::uint32_t>(in[i]) + static_cast<std::uint32_t>(in[i + 1]) +
        static_cast<std::uint32_t>(in[i + 2]));
    // Single-precision division, double-precision rounding, truncation toward zero.
    out[i] = static_cast<std::int32_t>(static_cast<double>(static_cast<float>(sum) / 5.0f) + 0.5);
  }
}

// Best shift s in [-6, 6] of b against a, over entries 6 .. n - 8 of a; returns -s.
// Ties keep the earlier candidate in the order 0, +1, -1, +2, -2, ...
std::int32_t LocalSearchStep(const std::int32_t* a, std::int32_t a_len, const std::int32_t* b,
                             std::int32_t b_len, std::int32_t n) {
  const std::int32_t q = n - 13;
  auto sum = [&](std::int32_t s) {
    std::int32_t total = 0;
    for (std::int32_t i = 0; i < q; ++i) {
      const std::int32_t ai = 6 + i, bi = 6 + s + i;
      if (ai >= a_len || bi < 0 || bi >= b_len) break;  // never past the scratch arrays
      total += std::abs(a[ai] - b[bi]);
    }
    return total;
  };
  std::int32_t best = sum(0);
  std::int32_t best_index = 0;
  for (std::int32_t k = 1; k <= 6; ++k) {
    const std::int32_t plus = sum(k);
    if (best > plus) {
      best = plus;
      best_index = k;
    }
    const std::int32_t minus = sum(-k);
    if (minus < best) {
      best = minus;
      best_index = -k;
    }
  }
  return -best_index;
}

}  // namespace
}  // namespace lumivex::track

using namespace lumivex::track;

extern "C" {

int32_t ZMOSMatch1DBufferAllocated_PBM(const uint32_t* pCur, const uint32_t* pRef, int32_t lLen,
                                       int32_t* plOffset, int32_t lMaxOffset, int32_t*, int32_t*) {
  if (pCur == nullptr || pRef == nullptr || plOffset == nullptr) return ZMOS_ERR_INVALID_PARAM;
  const std::int32_t prior = *plOffset;
  const std::int32_t n = UsableLength(lLen, prior);
  if (n < 2 * static_cast<std::int64_t>(lMaxOffset) || n <= 0) return ZMOS_ERR_NO_TEXTURE;
  const std::uint32_t* c = prior > 0 ? pCur + prior : pCur;
  const std::uint32_t* r = prior < 0 ? pRef - prior : pRef;
  const std::uint32_t texture = SumAdjacentDiff(c, n - 1);
  if (texture / static_cast<std::uint32_t>(n) < 30) return ZMOS_ERR_NO_TEXTURE;
  std::int32_t best = 0;
  if (lMaxOffset >= 0) best = BestShift(c, r, lMaxOffset, n - 2 * lMaxOffset - 1);
  *plOffset = best + prior;
  return ZMOS_OK;
}

int32_t ZMOSComputeOffset_Gradient(const uint32_t* pCur, const uint32_t* pRef, int32_t lLen,
                                   int32_t* plOffset, int32_t lMaxOffset, int32_t* pScratchA,
                                   int32_t* pScratchB) {
  if (plOffset == nullptr) return ZMOS_ERR_INVALID_PARAM;
  if (pScratchA == nullptr || pScratchB == nullptr) {
    *plOffset = 0;
    return ZMOS_ERR_NO_MEMORY;
  }
  if (pCur == nullptr || pRef == nullptr) return ZMOS_ERR_INVALID_PARAM;
  const std::int32_t prior = *plOffset;
  const std::int32_t n = UsableLength(lLen, prior);
  if (n < 2 * static_cast<std::int64_t>(lMaxOffset)) return ZMOS_ERR_NO_TEXTURE;
  // The smoothing needs five entries and the gradients at least one.
  if (lLen < 5 || n < 3 || n > lLen) return ZMOS_ERR_NO_TEXTURE;

  Smooth5(reinterpret_cast<const std::int32_t*>(pCur), lLen, pScratchA);
  Smooth5(reinterpret_cast<const std::int32_t*>(pRef), lLen, pScratchB);
  const std::int32_t g = n - 2;
  std::uint32_t magnitude = 0;
  for (std::int32_t i = 0; i < g; ++i) {
    pScratchA[i] = static_cast<std::int32_t>(static_cast<std::uint32_t>(pScratchA[i + 2]) -
                                             static_cast<std::uint32_t>(pScratchA[i]));
    pScratchB[i] = static_cast<std::int32_t>(static_cast<std::uint32_t>(pScratchB[i + 2]) -
                                             static_cast<std::uint32_t>(pScratchB[i]));
    magnitude += static_cast<std::uint32_t>(std::abs(pScratchA[i]));
  }
  // A flat signal keeps the prior and still succeeds.
  if (magnitude / static_cast<std::uint32_t>(g) <= 39) return ZMOS_OK;

  std::int32_t acc = 0;
  for (std::int32_t iteration = 0;; ++iteration) {
    std::int32_t step;
    if (acc > 0) {
      step = LocalSearchStep(pScratchA + acc, g - acc, pScratchB, g, g - acc);
    } else {
      step = LocalSearchStep(pScratchA, g, pScratchB - acc, g + acc, g + acc);
    }
    acc += step;
    if (step == 0 || lMaxOffset <= 6 || iteration > lMaxOffset / 6) break;
    if (acc >= g || -acc >= g) break;  // walked off the signal
  }
  *plOffset = acc + prior;
  return ZMOS_OK;
}

}  // extern "C"
