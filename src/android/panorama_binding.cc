// RvkPanorama's natives: turn the token of notification 2 into the panorama, as standard
// NV21 bytes or as an ARGB_8888 Bitmap. The token is whatever the platform sent (the
// result bitmap's address on 32-bit targets, a key on 64-bit ones); it only selects among
// live captures, so a stale or made-up token gives null, never a wild read.
#include <algorithm>
#include <cstdint>

#include "src/android/rvk_internal.h"

namespace lumivex::android {
namespace {

// Bytes of one NV21 VU row: the width rounded up to whole pairs.
std::int64_t ChromaRow(std::int32_t width) {
  return (std::int64_t{width} + 1) & ~std::int64_t{1};
}

// The result stores one VU row per luma row; standard NV21 keeps every other one.
std::int64_t Nv21Bytes(const MBITMAP& b) {
  return std::int64_t{b.lWidth} * b.lHeight + ChromaRow(b.lWidth) * ((b.lHeight + 1) / 2);
}

jintArray JNICALL JNI_PanoramaSize(JNIEnv* env, jclass, jint token) {
  const MBITMAP* b = FindResultBitmap(token);
  if (b == nullptr) return nullptr;
  const jint size[2] = {b->lWidth, b->lHeight};
  jintArray out = env->NewIntArray(2);
  if (out != nullptr) env->SetIntArrayRegion(out, 0, 2, size);
  return out;
}

jbyteArray JNICALL JNI_PanoramaNv21(JNIEnv* env, jclass, jint token) {
  const MBITMAP* b = FindResultBitmap(token);
  if (b == nullptr || b->lWidth < 1 || b->lHeight < 1) return nullptr;
  const std::int64_t bytes = Nv21Bytes(*b);
  if (bytes > INT32_MAX) return nullptr;
  jbyteArray out = env->NewByteArray(static_cast<jsize>(bytes));
  if (out == nullptr) return nullptr;  // OutOfMemoryError is pending for the caller
  const std::int32_t w = b->lWidth;
  const auto chroma_row = static_cast<std::int32_t>(ChromaRow(w));
  jsize at = 0;
  for (std::int32_t y = 0; y < b->lHeight; ++y, at += w)
    env->SetByteArrayRegion(
        out, at, w, reinterpret_cast<const jbyte*>(b->pPlane[0] + std::int64_t{y} * b->lPitch[0]));
  const std::int32_t copy = std::min(chroma_row, b->lPitch[1]);
  for (std::int32_t y = 0; y < b->lHeight; y += 2, at += chroma_row)
    env->SetByteArrayRegion(
        out, at, copy,
        reinterpret_cast<const jbyte*>(b->pPlane[1] + std::int64_t{y} * b->lPitch[1]));
  return out;
}

jobject JNICALL JNI_PanoramaBitmap(JNIEnv* env, jclass, jint token) {
  const MBITMAP* b = FindResultBitmap(token);
  if (b == nullptr) return nullptr;
  MBITMAP* rgb = MdBitmapAlloc(b->lWidth, b->lHeight, MPAF_RGB32_A8R8G8B8);
  jobject out = nullptr;
  if (rgb != nullptr && ConvertCS(b, rgb) == 0) out = GetBitmapFromMBitmap(env, rgb);
  MdBitmapFree(rgb);
  return out;
}

}  // namespace

void RegisterPanoramaFunctions(JNIEnv* env) {
  static const JNINativeMethod kMethods[] = {
      {const_cast<char*>("nativeSize"), const_cast<char*>("(I)[I"),
       reinterpret_cast<void*>(JNI_PanoramaSize)},
      {const_cast<char*>("nativeNv21"), const_cast<char*>("(I)[B"),
       reinterpret_cast<void*>(JNI_PanoramaNv21)},
      {const_cast<char*>("nativeBitmap"), const_cast<char*>("(I)Landroid/graphics/Bitmap;"),
       reinterpret_cast<void*>(JNI_PanoramaBitmap)},
  };
  RegisterOptional(env, "com/velqor/camera/rvk/RvkPanorama", kMethods, 3);
}

}  // namespace lumivex::android
