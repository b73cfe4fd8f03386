#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "lumivex/image.h"
#include "tests/support/test_support.h"

namespace {

using lumivex::test::GuardedImage;

class ImageObjects : public testing::Test {
 protected:
  int UsedBlocks() const { return arena_.UsedBlocks(); }
  std::size_t FreeBytes() const { return arena_.FreeBytes(); }
  lumivex::test::WorkArena arena_{512 * 1024};
  MHandle mgr_ = arena_.handle();
};

// The pixels of `rect` in `src` equal the whole of `img` (all planes, NV21 or I420).
void ExpectSameAsRect(const ZMOSIMAGE& img, const GuardedImage& src, const ZMOSRECT& rect) {
  const int w = rect.lRight - rect.lLeft, h = rect.lBottom - rect.lTop;
  ASSERT_EQ(img.lWidth, w);
  ASSERT_EQ(img.lHeight, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      ASSERT_EQ(img.pPlane[0][y * img.lPitch[0] + x], src.at(0, rect.lLeft + x, rect.lTop + y));
  const bool nv21 = img.dwFormat == ZMOS_FORMAT_NV21;
  for (int p = 1; p < (nv21 ? 2 : 3); ++p) {
    const int cw = nv21 ? w : w / 2, cl = nv21 ? rect.lLeft : rect.lLeft / 2;
    for (int y = 0; y < h / 2; ++y)
      for (int x = 0; x < cw; ++x)
        ASSERT_EQ(img.pPlane[p][y * img.lPitch[p] + x], src.at(p, cl + x, rect.lTop / 2 + y));
  }
}

TEST_F(ImageObjects, ContinuousCropPacksPlanesFromPlaneZero) {
  GuardedImage original(ZMOS_FORMAT_NV21, 100, 50, 0, 5);
  ZMOSIMAGE* img = nullptr;
  ASSERT_EQ(ZMOSCloneImage_AOD(&img, original.get(), mgr_), 0);
  std::uint8_t* const start = img->pPlane[0];
  const ZMOSRECT rect{10, 10, 60, 30};
  ASSERT_EQ(ZMOSCropImageContinueBuffer_AOD(img, &rect), 0);
  EXPECT_EQ(img->lPitch[0], 64);
  EXPECT_EQ(img->lPitch[1], 64);
  EXPECT_EQ(img->pPlane[0], start);
  EXPECT_EQ(img->pPlane[1], start + 1280);
  ExpectSameAsRect(*img, original, rect);
  ZMOSFreeImage_AOD(&img, mgr_);  // plane 0 is still the block start
  EXPECT_EQ(UsedBlocks(), 0);
}

TEST_F(ImageObjects, CropKeepsPlaneStarts) {
  GuardedImage original(ZMOS_FORMAT_I420, 64, 40, 0, 6);
  ZMOSIMAGE* img = nullptr;
  ASSERT_EQ(ZMOSCloneImage_AOD(&img, original.get(), mgr_), 0);
  ZMOSIMAGE old = *img;
  const ZMOSRECT rect{6, 4, 38, 36};
  ASSERT_EQ(ZMOSCropImage_AOD(img, &rect), 0);
  for (int p = 0; p < 3; ++p) EXPECT_EQ(img->pPlane[p], old.pPlane[p]);
  EXPECT_EQ(img->lPitch[0], 32);
  EXPECT_EQ(img->lPitch[1], 16);
  ExpectSameAsRect(*img, original, rect);
  ZMOSFreeImage_AOD(&img, mgr_);
}

TEST_F(ImageObjects, CropRefusesWhatDoesNotFitOrIsInvalid) {
  // Caller planes with unpadded pitch 20: the cropped layout's pitch 32 would not fit.
  GuardedImage tight(ZMOS_FORMAT_GREY, 20, 10, 0, 1);
  const ZMOSIMAGE before = *tight.get();
  ZMOSRECT rect{0, 0, 20, 10};
  EXPECT_EQ(ZMOSCropImage_AOD(tight.get(), &rect), 2);
  EXPECT_EQ(tight.get()->lPitch[0], before.lPitch[0]);
  rect = {0, 0, 16, 5};  // pitch 16 x 5 rows fits in 20 x 10
  EXPECT_EQ(ZMOSCropImage_AOD(tight.get(), &rect), 0);
  EXPECT_TRUE(tight.GuardsIntact());

  GuardedImage img(ZMOS_FORMAT_NV21, 32, 16);
  // Each refused by the rectangle check alone (even sizes the layout would take), or also
  // by the layout.
  const ZMOSIMAGE whole = *img.get();
  for (const ZMOSRECT bad :
       {ZMOSRECT{-2, 0, 8, 8}, ZMOSRECT{0, -2, 8, 8}, ZMOSRECT{0, 0, 34, 8}, ZMOSRECT{0, 0, 8, 18},
        ZMOSRECT{-1, 0, 8, 8}, ZMOSRECT{0, 0, 33, 8}, ZMOSRECT{5, 5, 4, 8}}) {
    EXPECT_EQ(ZMOSCropImage_AOD(img.get(), &bad), 2);
    EXPECT_EQ(img.get()->lWidth, whole.lWidth);
    EXPECT_EQ(img.get()->pPlane[0], whole.pPlane[0]);
  }
  EXPECT_EQ(ZMOSCropImage_AOD(nullptr, &rect), 2);
  EXPECT_EQ(ZMOSCropImageContinueBuffer_AOD(img.get(), nullptr), 2);
  ZMOSIMAGE unknown{0x999, 8, 8, {}, {}};
  rect = {0, 0, 4, 4};
  EXPECT_EQ(ZMOSCropImage_AOD(&unknown, &rect), 3);
}

TEST_F(ImageObjects, ClonesCopyPixelsAndReportFailures) {
  GuardedImage original(ZMOS_FORMAT_I420, 40, 30, 2, 9);
  ZMOSIMAGE* roi = nullptr;
  const ZMOSRECT rect{8, 6, 30, 26};
  ASSERT_EQ(ZMOSCloneImageROI_AOD(&roi, original.get(), &rect, mgr_), 0);
  ExpectSameAsRect(*roi, original, rect);
  ZMOSFreeImage_AOD(&roi, mgr_);

  // A rectangle that does not fit the source: the new image is still handed out.
  const ZMOSRECT too_big{0, 0, 41, 10};
  EXPECT_EQ(ZMOSCloneImageROI_AOD(&roi, original.get(), &too_big, mgr_), 2);
  ASSERT_NE(roi, nullptr);
  ZMOSFreeImage_AOD(&roi, mgr_);
  const ZMOSRECT inverted{10, 0, 5, 10};
  EXPECT_EQ(ZMOSCloneImageROI_AOD(&roi, original.get(), &inverted, mgr_), 2);
  EXPECT_EQ(ZMOSCloneImageROI_AOD(&roi, nullptr, &rect, mgr_), 2);
  EXPECT_EQ(ZMOSCloneImageROI_AOD(&roi, original.get(), nullptr, mgr_), 2);
  EXPECT_EQ(ZMOSCloneImage_AOD(&roi, nullptr, mgr_), 2);
  EXPECT_EQ(UsedBlocks(), 0);

  std::vector<std::uint8_t> small(2048);
  MHandle tiny = MMemMgrCreate(small.data(), static_cast<std::int32_t>(small.size()));
  EXPECT_EQ(ZMOSCloneImage_AOD(&roi, original.get(), tiny), 4);
  EXPECT_EQ(roi, nullptr);
}

TEST_F(ImageObjects, ListsKeepInsertionOrderTagsAndFreeEverything) {
  GuardedImage a(ZMOS_FORMAT_NV21, 32, 16, 0, 1), b(ZMOS_FORMAT_I420, 24, 12, 0, 2);
  ZMOSIMAGELINK link{};
  ASSERT_EQ(ZMOSInsertImageToLink_AOD(&link, a.get(), 1, 10, mgr_), 0);
  const ZMOSRECT rect{2, 2, 18, 10};
  ASSERT_EQ(ZMOSInsertImageToLinkROI_AOD(&link, b.get(), &rect, 2, 20, mgr_), 0);
  ASSERT_EQ(ZMOSInsertImageToLink_AOD(&link, b.get(), 3, 30, mgr_), 0);
  ASSERT_EQ(link.lCount, 3);
  const ZMOSIMAGENODE* n = link.pHead;
  EXPECT_EQ(n->pPrev, nullptr);
  for (int i = 1; i <= 3; ++i, n = n->pNext) {
    ASSERT_NE(n, nullptr);
    EXPECT_EQ(n->lTag1, i);
    EXPECT_EQ(n->lTag2, 10 * i);
    if (n->pNext != nullptr) {
      EXPECT_EQ(n->pNext->pPrev, n);
    }
  }
  EXPECT_EQ(n, nullptr);
  EXPECT_EQ(link.pTail->lTag1, 3);
  ExpectSameAsRect(*link.pHead->pImage, a, ZMOSRECT{0, 0, 32, 16});
  ExpectSameAsRect(*link.pHead->pNext->pImage, b, rect);
  // The list holds copies, not the caller's planes.
  EXPECT_NE(link.pTail->pImage->pPlane[0], b.get()->pPlane[0]);

  ZMOSFreeImageLink_AOD(&link, mgr_);
  EXPECT_EQ(link.lCount, 0);
  EXPECT_EQ(link.pHead, nullptr);
  EXPECT_EQ(link.pTail, nullptr);
  EXPECT_EQ(UsedBlocks(), 0);

  EXPECT_EQ(ZMOSInsertImageToLink_AOD(nullptr, a.get(), 0, 0, mgr_), 2);
  EXPECT_EQ(ZMOSInsertImageToLink_AOD(&link, nullptr, 0, 0, mgr_), 2);
  std::vector<std::uint8_t> small(512);
  MHandle tiny = MMemMgrCreate(small.data(), static_cast<std::int32_t>(small.size()));
  EXPECT_EQ(ZMOSInsertImageToLink_AOD(&link, a.get(), 0, 0, tiny), 4);
  EXPECT_EQ(link.lCount, 0);
}

}  // namespace
