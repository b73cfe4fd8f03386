#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "lumivex/stitch.h"
#include "src/stitch/blend_internal.h"
#include "tests/support/test_support.h"

namespace lumivex::stitch {
namespace {

std::vector<std::int32_t> Installed() {
  return std::vector<std::int32_t>(g_BlendTable, g_BlendTable + g_BlendTableWidth);
}

TEST(BlendTable, WidthsValuesAndLifetime) {
  test::WorkArena arena(4096);
  const std::size_t free_before = arena.FreeBytes();
  ASSERT_EQ(ZMOSCreateBlendTable(7, arena.handle()), 0);
  EXPECT_EQ(free_before - arena.FreeBytes(), 48u);  // 28 bytes asked (n, not the even width)
  EXPECT_EQ(Installed(), (std::vector<std::int32_t>{54613, 43690, 32768, 32768, 21845, 10922}));
  ASSERT_EQ(ZMOSCreateBlendTable(8, arena.handle()), 0);
  EXPECT_EQ(Installed(),
            (std::vector<std::int32_t>{57344, 49152, 40960, 32768, 32768, 24576, 16384, 8192}));
  ASSERT_EQ(ZMOSCreateBlendTable(2, arena.handle()), 0);
  EXPECT_EQ(Installed(), (std::vector<std::int32_t>{32768, 32768}));
  ASSERT_EQ(ZMOSCreateBlendTable(1, arena.handle()), 0);
  EXPECT_EQ(g_BlendTableWidth, 0);
  EXPECT_NE(g_BlendTable, nullptr);
  // A table from another manager is dropped, not freed through it (its buffer may be gone).
  const std::size_t dropped = free_before - arena.FreeBytes();
  // Mirrored entries add up to one, less the truncation of the two divisions.
  for (std::int32_t w : {10, 100, 512, 5000}) {
    ASSERT_EQ(ZMOSCreateBlendTable(w, nullptr), 0);
    for (std::int32_t i = 0; i < w; ++i) {
      const std::int32_t sum = g_BlendTable[i] + g_BlendTable[w - 1 - i];
      ASSERT_TRUE(sum == 65536 || sum == 65535) << w << " " << i;
    }
  }
  ZMOSReleaseBlendTable();
  ZMOSReleaseBlendTable();  // twice is harmless
  EXPECT_EQ(g_BlendTable, nullptr);
  EXPECT_EQ(ZMOSCreateBlendTable(-2, nullptr), ZMOS_ERR_NO_MEMORY);
  EXPECT_EQ(g_BlendTable, nullptr);

  // The built-in table is never freed: release leaves it, create just repoints.
  g_BlendTable = g_BlendTableStatic;
  ZMOSReleaseBlendTable();
  EXPECT_EQ(g_BlendTable, g_BlendTableStatic);
  ASSERT_EQ(ZMOSCreateBlendTable(4, arena.handle()), 0);
  EXPECT_NE(g_BlendTable, g_BlendTableStatic);
  ZMOSReleaseBlendTable();
  EXPECT_EQ(arena.FreeBytes(), free_before - dropped);

  // An exhausted manager: 4 and no table.
  test::WorkArena tiny(128);
  EXPECT_EQ(ZMOSCreateBlendTable(400, tiny.handle()), ZMOS_ERR_NO_MEMORY);
  EXPECT_EQ(g_BlendTable, nullptr);

  ZMOSSetPathSearchThreshold(120);
  EXPECT_EQ(g_PathSearchThreshold, 120u);
  ZMOSSetBlendTableBufferHeadle(arena.handle());
  EXPECT_EQ(g_hBlendTableMemMgr, arena.handle());
}

// Runs the search on a map given row by row; the table width sets the side margin.
std::vector<std::int32_t> Seam(const std::vector<std::vector<int>>& rows, std::int32_t table) {
  ZMOSCreateBlendTable(table, nullptr);
  const auto w = static_cast<std::int32_t>(rows[0].size());
  const auto h = static_cast<std::int32_t>(rows.size());
  std::vector<std::uint8_t> map;
  for (const auto& r : rows)
    for (int v : r) map.push_back(static_cast<std::uint8_t>(v));
  std::vector<std::int32_t> path(h, -7);
  EXPECT_EQ(SearchSeamPath(path.data(), map.data(), w, h, nullptr), 0);
  ZMOSReleaseBlendTable();
  return path;
}

TEST(SeamSearch, TieBreaksAndEdges) {
  using P = std::vector<std::int32_t>;
  // A cheap valley is followed.
  EXPECT_EQ(Seam({{9, 9, 0, 9, 9}, {9, 0, 9, 9, 9}, {0, 9, 9, 9, 9}, {9, 0, 9, 9, 9}}, 0),
            (P{2, 1, 0, 1}));
  // Equal costs left, straight and right: straight.
  EXPECT_EQ(Seam({{0, 0, 0}, {1, 0, 1}}, 0)[0], 1);
  // Left and right diagonals tie below the straight step: +1.
  EXPECT_EQ(Seam({{9, 0, 9, 0, 9}, {9, 9, 0, 9, 9}}, 0)[0], 3);
  // Left edge: a tie goes right. Right edge: a tie goes straight.
  EXPECT_EQ(Seam({{0, 0, 9, 9}, {0, 9, 9, 9}}, 0)[0], 1);
  EXPECT_EQ(Seam({{9, 9, 0, 0}, {9, 9, 9, 0}}, 0)[0], 3);
  // The end column is the leftmost minimum of the last row.
  EXPECT_EQ(Seam({{1, 1, 1, 1, 1, 1}, {3, 2, 5, 2, 2, 7}}, 0)[1], 1);
  // Half the table width is kept clear of each side: table 4 leaves columns 2 to 5.
  const P narrowed = Seam({{0, 0, 9, 9, 9, 9, 0, 0}, {0, 0, 9, 9, 9, 9, 0, 0}}, 4);
  for (std::int32_t c : narrowed) {
    EXPECT_GE(c, 2);
    EXPECT_LE(c, 5);
  }
  // A single row ends on its own minimum.
  EXPECT_EQ(Seam({{4, 3, 1, 3}}, 0), (P{2}));
}

// The top-to-bottom blend searches along the columns: one row per column.
TEST(SeamSearch, ColumnWiseVariantFollowsRows) {
  ZMOSCreateBlendTable(0, nullptr);
  // 4 columns, 5 rows; the cheap path runs along rows 3, 2, 1, 2.
  const int map[5][4] = {{9, 9, 9, 9}, {9, 9, 0, 9}, {9, 0, 9, 0}, {0, 9, 9, 9}, {9, 9, 9, 9}};
  std::vector<std::int32_t> path(4, -1);
  ASSERT_EQ(SeamSearch(
                path.data(), 5, 4,
                [&](std::int32_t row, std::int32_t col) { return map[row][col]; }, nullptr),
            0);
  EXPECT_EQ(path, (std::vector<std::int32_t>{3, 2, 1, 2}));
  ZMOSReleaseBlendTable();
}

}  // namespace
}  // namespace lumivex::stitch
