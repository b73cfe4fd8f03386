#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "lumivex/track.h"
#include "src/track/tracker.h"
#include "tests/support/test_support.h"

// Readable rectangles in failure messages.
void PrintTo(const ZMOSRECT& r, std::ostream* os) {
  *os << "(" << r.lLeft << ", " << r.lTop << ", " << r.lRight << ", " << r.lBottom << ")";
}

namespace lumivex::track {
namespace {

bool SameRect(const ZMOSRECT& a, const ZMOSRECT& b) {
  return a.lLeft == b.lLeft && a.lTop == b.lTop && a.lRight == b.lRight && a.lBottom == b.lBottom;
}

struct Layout {
  ZMOSRECT hori[3];
  ZMOSRECT vert[3];
  int max_x, max_y;
};

Layout Read(ZMOSVideoTracker* t, int count) {
  Layout l{};
  ZMOSRECT* rects = nullptr;
  std::int32_t n = 0;
  ZMOSGetHoriProjRect_PBM(t, &rects, &n);
  for (int i = 0; i < count; ++i) l.hori[i] = rects[i];
  ZMOSGetVertProjRect_PBM(t, &rects, &n);
  for (int i = 0; i < count; ++i) l.vert[i] = rects[i];
  ZMOSGetMaxOffet_PBM(t, &l.max_x, &l.max_y);
  return l;
}

TEST(Tracker, LayoutsAndRangesOfTheBuiltInTrackers) {
  BandTexture() = {};
  struct Case {
    int w, h;
    ZMOSRECT hori, vert;
    int max_x, max_y;
  };
  const Case plain[] = {
      {1920, 1080, {320, 225, 1600, 495}, {760, 0, 1160, 1080}, 192, 54},
      {640, 480, {0, 100, 640, 220}, {240, 0, 400, 480}, 64, 24},
      {1280, 720, {0, 150, 1280, 330}, {480, 0, 800, 720}, 128, 36},
  };
  for (const Case& c : plain) {
    ZMOSVideoTracker* t = nullptr;
    ASSERT_EQ(ZMOSCreateVideoTracker_PBM(&t, c.w, c.h, 0, nullptr), 0);
    const Layout l = Read(t, 1);
    EXPECT_PRED2(SameRect, l.hori[0], c.hori);
    EXPECT_PRED2(SameRect, l.vert[0], c.vert);
    EXPECT_EQ(l.max_x, c.max_x);
    EXPECT_EQ(l.max_y, c.max_y);
    EXPECT_EQ(ZMOSGetFrameWidth_PBM(t), c.w);
    EXPECT_EQ(ZMOSGetFrameHeight_PBM(t), c.h);
    EXPECT_EQ(ZMOSGetVideoTrackStatus_PBM(t), 0);
    ZMOSReleaseVideoTracker_PBM(&t);
    EXPECT_EQ(t, nullptr);
    ZMOSReleaseVideoTracker_PBM(&t);  // second release is harmless
  }

  for (int mode : {0, 1}) {
    ZMOSVideoTracker* t = nullptr;
    ASSERT_EQ(ZMOSCreateVideoTrackerFF_PBM(&t, 1280, 720, mode, nullptr), 0);
    const Layout l = Read(t, 3);
    const int w1 = mode == 1 ? 480 : 426, w2 = mode == 1 ? 800 : 852;
    EXPECT_PRED2(SameRect, l.hori[0], (ZMOSRECT{0, 0, 1280, 240}));
    EXPECT_PRED2(SameRect, l.hori[1], (ZMOSRECT{0, 240, 1280, 480}));
    EXPECT_PRED2(SameRect, l.hori[2], (ZMOSRECT{0, 480, 1280, 720}));
    EXPECT_PRED2(SameRect, l.vert[0], (ZMOSRECT{0, 0, w1, 720}));
    EXPECT_PRED2(SameRect, l.vert[1], (ZMOSRECT{w1, 0, w2, 720}));
    EXPECT_PRED2(SameRect, l.vert[2], (ZMOSRECT{w2, 0, 1280, 720}));
    ZMOSReleaseVideoTracker_PBM(&t);
  }
}

// The reference-frame layout follows the previous band measures. Ties between the outer
// bands go to the top band in mode 0 and to the right band otherwise.
TEST(Tracker, ReferenceFrameLayoutFollowsBandTexture) {
  struct Case {
    int mode;
    BandTextureTable bands;
    ZMOSRECT hori, vert;
  };
  const Case cases[] = {
      // Mode 0: rows y0 +- 120, columns 640 +- 448; vertical 640 +- 160 over all rows.
      {0, {{10, 31, 10}, {}, {}, {}}, {192, 240, 1088, 480}, {480, 0, 800, 720}},
      {0, {{20, 30, 10}, {}, {}, {}}, {192, 0, 1088, 240}, {480, 0, 800, 720}},
      {0, {{10, 30, 10}, {}, {}, {}}, {192, 0, 1088, 240}, {480, 0, 800, 720}},
      {0, {{10, 30, 20}, {}, {}, {}}, {192, 480, 1088, 720}, {480, 0, 800, 720}},
      // Mode 1: horizontal 640 +- 320 over rows 360 +- 90; vertical x0 +- 128.
      {1, {{}, {}, {50, 40, 50}, {}}, {320, 270, 960, 450}, {512, 0, 768, 720}},
      {1, {{}, {}, {50, 30, 10}, {}}, {320, 270, 960, 450}, {192, 0, 448, 720}},
      {1, {{}, {}, {10, 30, 10}, {}}, {320, 270, 960, 450}, {832, 0, 1088, 720}},
  };
  for (const Case& c : cases) {
    BandTexture() = c.bands;
    ZMOSVideoTracker* t = nullptr;
    ASSERT_EQ(ZMOSCreateVideoTrackerRF_PBM(&t, 1280, 720, c.mode, nullptr), 0);
    const Layout l = Read(t, 1);
    EXPECT_PRED2(SameRect, l.hori[0], c.hori);
    EXPECT_PRED2(SameRect, l.vert[0], c.vert);
    ZMOSReleaseVideoTracker_PBM(&t);
  }
  BandTexture() = {};
}

TEST(Tracker, CreationFailsCleanlyAndAccessorsTolerateNull) {
  // Every allocation step failing in turn: 4, a null handle and nothing left allocated.
  bool created = false;
  for (std::size_t size = 256; !created && size < 200000; size += 256) {
    test::WorkArena arena(size);
    ZMOSVideoTracker* t = reinterpret_cast<ZMOSVideoTracker*>(&size);
    const std::int32_t res = ZMOSCreateVideoTrackerFF_PBM(&t, 640, 480, 0, arena.handle());
    if (res == 0) {
      created = true;
      ZMOSReleaseVideoTracker_PBM(&t);
    } else {
      ASSERT_EQ(res, ZMOS_ERR_NO_MEMORY);
      EXPECT_EQ(t, nullptr);
    }
    EXPECT_EQ(arena.UsedBlocks(), 0);
  }
  EXPECT_TRUE(created);

  ZMOSVideoTracker* t = nullptr;
  ASSERT_EQ(ZMOSCreateVideoTrackerNxN_PBM(&t, 320, 240, 0, 1, 0, nullptr, nullptr), 0);
  ZMOSRECT* rects = nullptr;
  std::int32_t count = -1;
  ZMOSGetHoriProjRect_PBM(t, &rects, &count);
  EXPECT_EQ(count, 0);
  ZMOSReleaseVideoTracker_PBM(&t);
  EXPECT_EQ(ZMOSCreateVideoTrackerNxN_PBM(&t, 0, 240, 1, 1, 0, nullptr, nullptr), 2);
  EXPECT_EQ(ZMOSCreateVideoTracker_PBM(nullptr, 320, 240, 0, nullptr), 2);

  ZMOSGetHoriProjRect_PBM(nullptr, &rects, &count);
  EXPECT_EQ(rects, nullptr);
  EXPECT_EQ(count, 0);
  ZMOSGetVertProjRect_PBM(nullptr, &rects, &count);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(ZMOSGetFrameWidth_PBM(nullptr), 0);
  EXPECT_EQ(ZMOSGetFrameHeight_PBM(nullptr), 0);
  ZMOSSetMaxOffet_PBM(nullptr, 1, 2);
  std::int32_t mx = 5, my = 6;
  ZMOSGetMaxOffet_PBM(nullptr, &mx, &my);
  EXPECT_EQ(mx, 5);
  EXPECT_EQ(ZMOSLayoutPlain_PBM(nullptr), 2);
  EXPECT_EQ(ZMOSLayoutFF_PBM(nullptr), 2);
  EXPECT_EQ(ZMOSLayoutRF_PBM(nullptr), 2);
}

}  // namespace
}  // namespace lumivex::track
