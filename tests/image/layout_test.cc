#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "lumivex/image.h"
#include "tests/support/test_support.h"

namespace {

constexpr int Align16(int v) {
  return (v + 15) & ~15;
}

struct LayoutCase {
  std::uint32_t format;
  int planes;
  int pitch[3];
  int rows[3];
};

// Hand-written table for a 33 x 21 image (odd sizes show every truncation).
std::vector<LayoutCase> Cases() {
  const int w = 33, h = 21;
  std::vector<LayoutCase> c;
  for (std::uint32_t f : {0x301u, 0x303u, 0x401u, 0x402u, 0x403u, 0x404u})
    c.push_back({f, 1, {Align16(3 * w), 0, 0}, {h, 0, 0}});
  for (std::uint32_t f : {0x302u, 0x304u}) c.push_back({f, 1, {Align16(4 * w), 0, 0}, {h, 0, 0}});
  for (std::uint32_t f = 0x501; f <= 0x508; ++f)
    c.push_back({f, 1, {Align16(2 * w), 0, 0}, {h, 0, 0}});
  c.push_back({0x701, 1, {48, 0, 0}, {h, 0, 0}});
  for (std::uint32_t f : {0x601u, 0x605u}) c.push_back({f, 3, {48, 16, 16}, {h, 10, 10}});
  for (std::uint32_t f : {0x602u, 0x606u}) c.push_back({f, 3, {48, 48, 48}, {h, 10, 10}});
  for (std::uint32_t f : {0x603u, 0x607u}) c.push_back({f, 3, {48, 16, 16}, {h, h, h}});
  for (std::uint32_t f : {0x604u, 0x608u}) c.push_back({f, 3, {48, 48, 48}, {h, h, h}});
  for (std::uint32_t f : {0x801u, 0x802u}) c.push_back({f, 2, {48, 48, 0}, {h, 10, 0}});
  c.push_back({0x803, 2, {48, 48, 0}, {h, h, 0}});
  return c;
}

class ImageLayout : public testing::Test {
 protected:
  int UsedBlocks() const { return arena_.UsedBlocks(); }
  std::size_t FreeBytes() const { return arena_.FreeBytes(); }
  lumivex::test::WorkArena arena_{1 << 20};
  MHandle mgr_ = arena_.handle();
};

TEST_F(ImageLayout, EveryFormatFamilyGetsItsPitchesRowsAndPlanes) {
  for (const LayoutCase& c : Cases()) {
    SCOPED_TRACE(testing::Message() << std::hex << "format 0x" << c.format);
    ZMOSIMAGE* img = nullptr;
    ASSERT_EQ(ZMOSCreateImage_AOD(&img, 33, 21, c.format, mgr_), 0);
    ASSERT_NE(img, nullptr);
    EXPECT_EQ(img->dwFormat, c.format);
    EXPECT_EQ(img->lWidth, 33);
    EXPECT_EQ(img->lHeight, 21);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(img->pPlane[0]) % 32, 0u);
    for (int p = 0; p < 3; ++p) {
      EXPECT_EQ(img->lPitch[p], c.pitch[p]) << "plane " << p;
      if (p >= c.planes) {
        EXPECT_EQ(img->pPlane[p], nullptr) << "plane " << p;
      } else if (p > 0) {
        // One block: each plane follows the previous one.
        EXPECT_EQ(img->pPlane[p] - img->pPlane[p - 1], c.pitch[p - 1] * c.rows[p - 1]);
      }
    }
    // The last plane's last row is writable (ASan checks the block size).
    const int last = c.planes - 1;
    img->pPlane[last][c.pitch[last] * c.rows[last] - 1] = 7;

    // Wrapping caller planes takes as many pointers and pitches as the format uses.
    std::uint8_t bytes[3];
    std::uint8_t* planes[3] = {bytes, bytes + 1, bytes + 2};
    const std::int32_t pitches[3] = {101, 102, 103};
    ZMOSIMAGE wrapped{};
    ASSERT_EQ(ZMOSSetImage_AOD(&wrapped, 33, 21, c.format, planes, pitches), 0);
    for (int p = 0; p < 3; ++p) {
      EXPECT_EQ(wrapped.pPlane[p], p < c.planes ? planes[p] : nullptr);
      EXPECT_EQ(wrapped.lPitch[p], p < c.planes ? pitches[p] : 0);
    }
    ZMOSFreeImage_AOD(&img, mgr_);
    EXPECT_EQ(img, nullptr);
  }
  EXPECT_EQ(UsedBlocks(), 0);
}

TEST_F(ImageLayout, Nv21OfHundredByFiftyIsOneBlock) {
  ZMOSIMAGE* img = nullptr;
  const std::size_t before = FreeBytes();
  ASSERT_EQ(ZMOSCreateImage_AOD(&img, 100, 50, ZMOS_FORMAT_NV21, mgr_), 0);
  EXPECT_EQ(img->lPitch[0], 112);
  EXPECT_EQ(img->lPitch[1], 112);
  EXPECT_EQ(img->pPlane[1] - img->pPlane[0], 5600);
  EXPECT_EQ(UsedBlocks(), 2);  // record and pixel block
  // 112 x 75 pixel bytes plus the aligned allocator's keep word and 64 bytes of slack.
  const std::size_t record = (sizeof(ZMOSIMAGE) + 16 + 15) & ~std::size_t{15};
  const std::size_t pixels = (112 * 75 + sizeof(void*) + 64 + 16 + 15) & ~std::size_t{15};
  EXPECT_EQ(before - FreeBytes(), record + pixels);
  ZMOSFreeImage_AOD(&img, mgr_);
}

TEST_F(ImageLayout, AlignedBlocksKeepTheRawAddressBelow) {
  for (int size : {0, 1, 31, 4095, 4096, 10000}) {
    const std::size_t before = FreeBytes();
    void* block = ibAllocAlign(mgr_, size);
    ASSERT_NE(block, nullptr);
    const auto addr = reinterpret_cast<std::uintptr_t>(block);
    EXPECT_EQ(addr % 32, 0u);
    // The raw block kept below holds the whole aligned block.
    const auto raw = reinterpret_cast<std::uintptr_t>(static_cast<void**>(block)[-1]);
    EXPECT_GE(addr, raw + sizeof(void*));
    EXPECT_LE(addr + size, raw + (before - FreeBytes()));
    ibFreeAlign(mgr_, &block);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(FreeBytes(), before);
  }
  ibFreeAlign(mgr_, nullptr);
  void* none = nullptr;
  ibFreeAlign(mgr_, &none);
  EXPECT_EQ(ibAllocAlign(mgr_, -4), nullptr);
}

TEST_F(ImageLayout, BadArgumentsAndExhaustion) {
  ZMOSIMAGE dummy{};
  ZMOSIMAGE* img = &dummy;  // must be overwritten
  EXPECT_EQ(ZMOSCreateImage_AOD(&img, 8, 8, 0x305, mgr_), ZMOS_ERR_UNSUPPORTED_FORMAT);
  EXPECT_EQ(img, nullptr);
  for (std::uint32_t bad :
       {0x0u, 0x300u, 0x405u, 0x509u, 0x600u, 0x609u, 0x702u, 0x804u, 0x901u, 0x15000454u}) {
    EXPECT_EQ(ZMOSCreateImage_AOD(&img, 8, 8, bad, mgr_), ZMOS_ERR_UNSUPPORTED_FORMAT) << bad;
  }
  EXPECT_EQ(ZMOSCreateImage_AOD(nullptr, 8, 8, ZMOS_FORMAT_NV21, mgr_), ZMOS_ERR_INVALID_PARAM);
  EXPECT_EQ(ZMOSCreateImage_AOD(&img, -2, 8, ZMOS_FORMAT_NV21, mgr_), ZMOS_ERR_INVALID_PARAM);
  EXPECT_EQ(ZMOSCreateImage_AOD(&img, 1 << 30, 1 << 20, ZMOS_FORMAT_NV21, mgr_),
            ZMOS_ERR_NO_MEMORY);
  // Planes so large that their sizes' sum would pass 2^63 (a fuzzer's find).
  EXPECT_EQ(ZMOSCreateImage_AOD(&img, 0x7FFFFFF0, 0x7FFFFFF0, 0x604, mgr_), ZMOS_ERR_NO_MEMORY);
  EXPECT_EQ(img, nullptr);
  // Exhausted by a large image: the record is given back.
  const int used = UsedBlocks();
  EXPECT_EQ(ZMOSCreateImage_AOD(&img, 4000, 4000, ZMOS_FORMAT_NV21, mgr_), ZMOS_ERR_NO_MEMORY);
  EXPECT_EQ(UsedBlocks(), used);

  std::uint8_t* planes[3] = {nullptr, nullptr, nullptr};
  const std::int32_t pitches[3] = {0, 0, 0};
  EXPECT_EQ(ZMOSSetImage_AOD(nullptr, 8, 8, ZMOS_FORMAT_NV21, planes, pitches),
            ZMOS_ERR_INVALID_PARAM);
  ZMOSIMAGE wrapped{};
  EXPECT_EQ(ZMOSSetImage_AOD(&wrapped, 8, 8, 0x999, planes, pitches), 0);

  ZMOSFreeImage_AOD(nullptr, mgr_);
  ZMOSIMAGE* none = nullptr;
  ZMOSFreeImage_AOD(&none, mgr_);
  ZMOSFreeImageLink_AOD(nullptr, mgr_);
  ZMOSIMAGELINK empty{};
  ZMOSFreeImageLink_AOD(&empty, mgr_);
}

TEST(ImageHeap, NullManagerUsesTheProcessHeap) {
  ZMOSIMAGE* img = nullptr;
  ASSERT_EQ(ZMOSCreateImage_AOD(&img, 640, 480, ZMOS_FORMAT_I420, nullptr), 0);
  EXPECT_EQ(img->pPlane[2] - img->pPlane[0], 640 * 480 + 320 * 240);
  img->pPlane[2][320 * 240 - 1] = 1;
  ZMOSFreeImage_AOD(&img, nullptr);
  EXPECT_EQ(img, nullptr);
}

}  // namespace
