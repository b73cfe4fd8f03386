#include <gtest/gtest.h>

#include <cstdint>

#include "lumivex/image.h"
#include "tests/support/test_support.h"

namespace {

using lumivex::test::GuardedImage;

TEST(ImageStack, FirstInFirstOutWithValuesAndTheLastFlag) {
  lumivex::test::WorkArena arena(1 << 20);
  ZMOSIMAGESTACK* s = nullptr;
  ASSERT_EQ(ZMOSCreateImageStack_SIS(&s, 3, arena.handle()), 0);
  ZMOSIMAGE* img = reinterpret_cast<ZMOSIMAGE*>(&s);
  std::int32_t t1 = -1, t2 = -1, v1, v2, v3, last = 0;
  EXPECT_EQ(ZMOSGetImageFromStack_SIS(s, &img, &t1, &t2, &v1, &v2, &v3, &last), 2);
  EXPECT_EQ(img, nullptr);
  EXPECT_EQ(t1, 0);
  GuardedImage frame(ZMOS_FORMAT_NV21, 64, 32, 0, 5);
  for (int i = 1; i <= 3; ++i) {
    const ZMOSRECT r{2 * i, 0, 2 * i + 16, 8};
    ASSERT_EQ(ZMOSAddImageIntoStack_SIS(s, frame.get(), i, -i, 10 * i, 20 * i, 30 * i, &r), 0);
  }
  EXPECT_EQ(ZMOSAddImageIntoStack_SIS(s, frame.get(), 4, 4, 4, 4, 4, nullptr), 2);  // full
  for (int i = 1; i <= 3; ++i) {
    ASSERT_EQ(ZMOSGetImageFromStack_SIS(s, &img, &t1, &t2, &v1, &v2, &v3, &last), 0);
    EXPECT_EQ(t1, i);
    EXPECT_EQ(t2, -i);
    EXPECT_EQ(v1, 10 * i);
    EXPECT_EQ(v3, 30 * i);
    EXPECT_EQ(last, i == 3 ? 1 : 0);
    ASSERT_EQ(img->lWidth, 16);
    EXPECT_EQ(img->pPlane[0][0], frame.at(0, 2 * i, 0));  // a copy of the rectangle
  }
  EXPECT_EQ(ZMOSGetImageFromStack_SIS(s, &img, &t1, &t2, &v1, &v2, &v3, &last), 2);
  ZMOSReleaseImageStack_SIS(&s);
  EXPECT_EQ(s, nullptr);
  ZMOSReleaseImageStack_SIS(&s);
  EXPECT_EQ(arena.UsedBlocks(), 0);
  EXPECT_EQ(ZMOSAddImageIntoStack_SIS(nullptr, frame.get(), 0, 0, 0, 0, 0, nullptr), 2);
  lumivex::test::WorkArena tiny(100);
  EXPECT_EQ(ZMOSCreateImageStack_SIS(&s, 1000, tiny.handle()), ZMOS_ERR_NO_MEMORY);
  EXPECT_EQ(s, nullptr);
}

// A failed insertion still takes its entry, every add rewinds reading to the first entry,
// and a failed creation leaves its record in the work buffer.
TEST(ImageStack, FailedInsertionsCountAndAddsRewind) {
  lumivex::test::WorkArena arena(1 << 20);
  ZMOSIMAGESTACK* s = nullptr;
  ASSERT_EQ(ZMOSCreateImageStack_SIS(&s, 4, arena.handle()), 0);
  GuardedImage frame(ZMOS_FORMAT_NV21, 64, 32, 0, 5);
  const ZMOSRECT bad{10, 0, 4, 8}, a{0, 0, 8, 8}, b{8, 0, 16, 8};
  EXPECT_NE(ZMOSAddImageIntoStack_SIS(s, frame.get(), 1, 1, 1, 1, 1, &bad), 0);
  ASSERT_EQ(ZMOSAddImageIntoStack_SIS(s, frame.get(), 2, 2, 2, 2, 2, &a), 0);
  ASSERT_EQ(ZMOSAddImageIntoStack_SIS(s, frame.get(), 3, 3, 3, 3, 3, &b), 0);
  ZMOSIMAGE* img = nullptr;
  std::int32_t t1, t2, v1, v2, v3, last = 0;
  ASSERT_EQ(ZMOSGetImageFromStack_SIS(s, &img, &t1, &t2, &v1, &v2, &v3, &last), 0);
  EXPECT_EQ(t1, 2);  // the image of the second add...
  EXPECT_EQ(v1, 1);  // ...with the values of the first entry, which the failure kept
  ASSERT_EQ(ZMOSAddImageIntoStack_SIS(s, frame.get(), 4, 4, 4, 4, 4, &b), 0);
  ASSERT_EQ(ZMOSGetImageFromStack_SIS(s, &img, &t1, &t2, &v1, &v2, &v3, &last), 0);
  EXPECT_EQ(t1, 2);  // reading starts over from the first image, not from where it was
  EXPECT_EQ(ZMOSAddImageIntoStack_SIS(s, frame.get(), 5, 5, 5, 5, 5, &a), 2);  // four entries
  ZMOSReleaseImageStack_SIS(&s);
  EXPECT_EQ(arena.UsedBlocks(), 1);  // the failed insertion's list node stays in the buffer

  lumivex::test::WorkArena small(200);
  EXPECT_EQ(ZMOSCreateImageStack_SIS(&s, 100, small.handle()), ZMOS_ERR_NO_MEMORY);
  EXPECT_EQ(s, nullptr);
  EXPECT_EQ(small.UsedBlocks(), 1);  // the record stays in the buffer
  EXPECT_EQ(ZMOSCreateImageStack_SIS(&s, -1, nullptr), ZMOS_ERR_NO_MEMORY);
  EXPECT_EQ(s, nullptr);  // and nothing leaks from the process heap
}

}  // namespace
