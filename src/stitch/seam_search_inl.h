// Seam search shared by the two blend orientations.
#ifndef LUMIVEX_SRC_STITCH_SEAM_SEARCH_INL_H_
#define LUMIVEX_SRC_STITCH_SEAM_SEARCH_INL_H_

#include <algorithm>
#include <cstdint>

namespace lumivex::stitch {

// The searched columns [m, last] of one step of the seam search; `edge` is the right
// edge's column (one past `last` when the range is a single column).
struct SeamColumns {
  std::int32_t m, last, edge, across;
};

// Row `r` of the cost table from the row before: each column takes the cheapest of the
// (up to) three columns it can come from, and records which.
template <typename Diff>
void AdvanceSeamRow(const SeamColumns& cols, std::int32_t r, const std::int32_t* prev,
                    std::int32_t* next, std::int8_t* step, Diff& diff) {
  const std::int32_t m = cols.m, last = cols.last, edge = cols.edge;
  auto take = [&](std::int32_t c, std::int32_t cost, std::int8_t s) {
    next[c] = (c < cols.across ? diff(c, r) : 0) + cost;
    step[c] = s;
  };
  // Left edge: a tie goes right.
  if (prev[m] < prev[m + 1]) {
    take(m, prev[m], 0);
  } else {
    take(m, prev[m + 1], 1);
  }
  // Inside: ties go straight; a tie between the diagonals goes right.
  for (std::int32_t c = m + 1; c < last; ++c) {
    const std::int32_t a = prev[c - 1], b = prev[c], d = prev[c + 1];
    if (a < b) {
      if (a < d) {
        take(c, a, -1);
      } else {
        take(c, d, 1);
      }
    } else if (b <= d) {
      take(c, b, 0);
    } else {
      take(c, d, 1);
    }
  }
  // Right edge: a tie goes straight.
  if (prev[edge - 1] >= prev[edge]) {
    take(edge, prev[edge], 0);
  } else {
    take(edge, prev[edge - 1], -1);
  }
}

// The leftmost minimum of the last row ends the seam; a cost of 100000000 or more never
// does, and the caller's value then stays. The recorded steps lead back from it.
inline void TraceSeam(std::int32_t* path, const std::int32_t* final_row, const std::int8_t* steps,
                      std::int64_t stride, const SeamColumns& cols, std::int32_t along) {
  std::int32_t best = 100000000;
  for (std::int32_t c = cols.m; c <= cols.last; ++c) {
    if (final_row[c] < best) {
      best = final_row[c];
      path[along - 1] = c;
    }
  }
  for (std::int32_t r = along - 1; r >= 1; --r) {
    const std::int32_t c = path[r];
    path[r - 1] = (c >= 0 && c < stride) ? c + steps[(r - 1) * stride + c] : c;
  }
}

template <typename Diff>
std::int32_t SeamSearch(std::int32_t* path, std::int32_t across, std::int32_t along, Diff diff,
                        MHandle mem) {
  const std::int32_t m = g_BlendTableWidth / 2;
  const std::int32_t last = across - m - 1;
  // Two spare entries per row: the edge rules read and write one column past the
  // searched range when it is a single column wide.
  const std::int64_t stride = std::int64_t{across} + 2;
  if (along < 1 || across < 1) return ZMOS_OK;
  if (stride * along > INT32_MAX / 8) return ZMOS_ERR_NO_MEMORY;
  auto* steps =
      static_cast<std::int8_t*>(MMemAlloc(mem, static_cast<std::int32_t>(stride * along)));
  if (steps == nullptr) return ZMOS_ERR_NO_MEMORY;
  auto* costs = static_cast<std::int32_t*>(MMemAlloc(mem, static_cast<std::int32_t>(8 * stride)));
  if (costs == nullptr) {
    MMemFree(mem, steps);
    return ZMOS_ERR_NO_MEMORY;
  }
  if (last >= m && m + 1 < stride) {
    // Cleared so that columns outside the searched range read as zero cost and no step.
    MMemSet(steps, 0, static_cast<std::int32_t>(stride * along));
    MMemSet(costs, 0, static_cast<std::int32_t>(8 * stride));
    std::int32_t* row_a = costs;
    std::int32_t* row_b = costs + stride;
    for (std::int32_t c = m; c <= last; ++c) row_a[c] = diff(c, 0);
    const SeamColumns cols{m, last, std::max(last, m + 1), across};
    for (std::int32_t r = 1; r < along; ++r)
      AdvanceSeamRow(cols, r, (r & 1) ? row_a : row_b, (r & 1) ? row_b : row_a,
                     steps + (r - 1) * stride, diff);
    const std::int32_t* final_row = along == 1 ? row_a : ((along - 1) & 1) ? row_b : row_a;
    TraceSeam(path, final_row, steps, stride, cols, along);
  }
  MMemFree(mem, steps);
  MMemFree(mem, costs);
  return ZMOS_OK;
}

}  // namespace lumivex::stitch

#endif  // LUMIVEX_SRC_STITCH_SEAM_SEARCH_INL_H_
