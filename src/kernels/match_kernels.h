// Kernels of the one-dimensional matchers.
#ifndef LUMIVEX_SRC_KERNELS_MATCH_KERNELS_H_
#define LUMIVEX_SRC_KERNELS_MATCH_KERNELS_H_

#include <cstdint>

#include "src/kernels/kernels.h"

namespace lumivex::track {

// Sum over i in [0, m) of |a[i] - b[i]| in unsigned 32-bit arithmetic (wrapping).
std::uint32_t SumAbsDiff(const std::uint32_t* a, const std::uint32_t* b, std::int32_t m);

// Sum over i in [0, m) of |a[i+1] - a[i]| (unsigned, wrapping).
std::uint32_t SumAdjacentDiff(const std::uint32_t* a, std::int32_t m);

// Direct search: SAD of c[max + i] against r[max - d + i] over i in [0, m) for every d
// from +max down to -max; returns the d with the smallest SAD (the first met on ties)
// and 0 when none is below 0xFFFFFFFF.
std::int32_t BestShift(const std::uint32_t* c, const std::uint32_t* r, std::int32_t max_offset,
                       std::int32_t m);
// The two ways of computing it: every candidate summed in full, and each candidate dropped
// once its partial sum reaches the best so far (the same answer, found sooner).
std::int32_t BestShiftReference(const std::uint32_t* c, const std::uint32_t* r,
                                std::int32_t max_offset, std::int32_t m);
std::int32_t BestShiftEarlyExit(const std::uint32_t* c, const std::uint32_t* r,
                                std::int32_t max_offset, std::int32_t m,
                                const kernels::KernelSet& k = kernels::Active());

}  // namespace lumivex::track

#endif  // LUMIVEX_SRC_KERNELS_MATCH_KERNELS_H_
