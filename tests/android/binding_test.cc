// The binding's corners that need no virtual machine: the load hook's version check, the
// image wrap, the bitmap export of empty bitmaps, and the colour conversion against a
// floating-point reference.
#include <gtest/gtest.h>

#include <cmath>
#include <type_traits>
#include <vector>

#include "src/android/rvk_internal.h"
#include "tests/support/test_support.h"

namespace {

using lumivex::test::Rng;

jint NoJni14(JavaVM*, void** env, jint) {
  *env = nullptr;
  return JNI_EVERSION;
}

TEST(Binding, LoadFailsWithoutJni14) {
  // The JDK and AOSP name the table's type differently.
  std::remove_const_t<std::remove_pointer_t<decltype(JavaVM::functions)>> table{};
  table.GetEnv = NoJni14;
  JavaVM vm;
  vm.functions = &table;
  EXPECT_EQ(JNI_OnLoad(&vm, nullptr), -1);
}

TEST(Binding, WrapsEngineImagesAndRefusesEmptyBitmaps) {
  std::vector<std::uint8_t> pixels(64 * 48 * 3 / 2);
  ZMOSIMAGE nv21{ZMOS_FORMAT_NV21, 64, 48, {pixels.data(), pixels.data() + 64 * 48}, {64, 64}};
  MBITMAP b{};
  lumivex::android::BuildBmpFromZMOSIMAGE(&nv21, &b);
  EXPECT_EQ(b.dwPixelArrayFormat, static_cast<std::uint32_t>(MPAF_NV21_WRAP));
  EXPECT_EQ(b.pPlane[1], nv21.pPlane[1] + 1);  // U: the second byte of each VU pair
  EXPECT_EQ(b.pPlane[2], nv21.pPlane[1]);
  EXPECT_EQ(b.lPitch[2], 64);
  ZMOSIMAGE i420{ZMOS_FORMAT_I420,
                 64,
                 48,
                 {pixels.data(), pixels.data() + 10, pixels.data() + 20},
                 {64, 32, 32}};
  lumivex::android::BuildBmpFromZMOSIMAGE(&i420, &b);
  EXPECT_EQ(b.dwPixelArrayFormat, static_cast<std::uint32_t>(MPAF_I420));
  EXPECT_EQ(b.pPlane[2], i420.pPlane[2]);
  EXPECT_EQ(lumivex::android::GetBitmapFromMBitmap(nullptr, nullptr), nullptr);
  MBITMAP empty{MPAF_RGB16_R5G6B5, 4, 4, {8, 0, 0}, {nullptr, nullptr, nullptr}};
  EXPECT_EQ(lumivex::android::GetBitmapFromMBitmap(nullptr, &empty), nullptr);
}

// NV21 (wrapped as the binding wraps it), I420 and the full-height result layout, to
// RGB 565: every pixel within one step of the floating-point BT.601 conversion.
TEST(Binding, ConvertsToRgb565LikeTheFloatingPointFormula) {
  Rng rng(4);
  const int w = 38, h = 22;
  std::vector<std::uint8_t> y(w * h), vu(w * h / 2);
  for (auto& v : y) v = static_cast<std::uint8_t>(rng.Next());
  for (auto& v : vu) v = static_cast<std::uint8_t>(rng.Next());
  auto reference = [&](int px, int py, int* r, int* g, int* b) {
    const double yy = y[py * w + px], cv = vu[(py / 2) * w + 2 * (px / 2)] - 128.0,
                 cu = vu[(py / 2) * w + 2 * (px / 2) + 1] - 128.0;
    *r = static_cast<int>(std::clamp(std::lround(yy + 1.402 * cv), 0L, 255L)) >> 3;
    *g = static_cast<int>(std::clamp(std::lround(yy - 0.344136 * cu - 0.714136 * cv), 0L, 255L)) >>
         2;
    *b = static_cast<int>(std::clamp(std::lround(yy + 1.772 * cu), 0L, 255L)) >> 3;
  };
  // The same samples in the three layouts.
  std::vector<std::uint8_t> u_plane(w / 2 * h / 2), v_plane(w / 2 * h / 2), full(w * h);
  for (int r = 0; r < h / 2; ++r)
    for (int c = 0; c < w / 2; ++c) {
      v_plane[r * (w / 2) + c] = vu[r * w + 2 * c];
      u_plane[r * (w / 2) + c] = vu[r * w + 2 * c + 1];
    }
  for (int r = 0; r < h; ++r) std::copy_n(&vu[(r / 2) * w], w, &full[r * w]);
  const MBITMAP sources[] = {
      {MPAF_NV21_WRAP, w, h, {w, w, w}, {y.data(), vu.data() + 1, vu.data()}},
      {MPAF_I420, w, h, {w, w / 2, w / 2}, {y.data(), u_plane.data(), v_plane.data()}},
      {MPAF_NV21_RESULT, w, h, {w, w, 0}, {y.data(), full.data(), nullptr}},
  };
  for (const MBITMAP& src : sources) {
    MBITMAP* out = MdBitmapAlloc(w, h, MPAF_RGB16_R5G6B5);
    ASSERT_NE(out, nullptr);
    ASSERT_EQ(ConvertCS(&src, out), 0);
    for (int py = 0; py < h; ++py) {
      for (int px = 0; px < w; ++px) {
        const int v = out->pPlane[0][py * out->lPitch[0] + 2 * px] |
                      out->pPlane[0][py * out->lPitch[0] + 2 * px + 1] << 8;
        int r, g, b;
        reference(px, py, &r, &g, &b);
        ASSERT_LE(std::abs((v >> 11) - r), 1) << std::hex << src.dwPixelArrayFormat;
        ASSERT_LE(std::abs(((v >> 5) & 63) - g), 1) << std::hex << src.dwPixelArrayFormat;
        ASSERT_LE(std::abs((v & 31) - b), 1) << std::hex << src.dwPixelArrayFormat;
      }
    }
    MdBitmapFree(out);
  }
  MBITMAP* rgb = MdBitmapAlloc(w, h, MPAF_RGB16_R5G6B5);
  MBITMAP* odd = MdBitmapAlloc(w + 2, h, MPAF_RGB16_R5G6B5);
  EXPECT_EQ(ConvertCS(&sources[0], odd), 2);  // sizes differ
  EXPECT_EQ(ConvertCS(rgb, odd), 2);
  EXPECT_EQ(ConvertCS(rgb, rgb), 3);  // RGB to RGB is not a conversion the binding makes
  EXPECT_EQ(ConvertCS(nullptr, rgb), 2);
  MdBitmapFree(rgb);
  MdBitmapFree(odd);
  MBITMAP bad{0x12345678, 4, 4, {}, {}};
  EXPECT_EQ(MBitmapAlloc(&bad), 3);
  EXPECT_EQ(MdBitmapAlloc(0, 4, MPAF_GRAY8), nullptr);
}

}  // namespace

namespace {

// Keys name a slot of the handle table in their low byte: no key, however forged, reads
// outside the table (the sanitize configuration sees any read past it).
TEST(Binding, ForgedKeysFindNothing) {
  for (const std::int32_t slot_byte : {0, 64, 65, 66, 255})
    for (const std::int32_t generation : {0, 1, 0x3FFFFF}) {
      const std::int32_t key = (generation << 8) | slot_byte;
      EXPECT_EQ(lumivex::android::FindHandler(key), nullptr) << key;
      lumivex::android::RemoveHandler(key);  // harmless
    }
  EXPECT_EQ(lumivex::android::FindResultBitmap(65), nullptr);
}

}  // namespace
