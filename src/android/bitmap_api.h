// Android's bitmap access API: the NDK's own on Android; on desktop the same functions,
// provided by the desktop host kit for the JVM tests.
#ifndef LUMIVEX_SRC_ANDROID_BITMAP_API_H_
#define LUMIVEX_SRC_ANDROID_BITMAP_API_H_

#include <jni.h>

#if defined(__ANDROID__)
#include <android/bitmap.h>
#else
#include <cstdint>

enum {
  ANDROID_BITMAP_RESULT_SUCCESS = 0,
  ANDROID_BITMAP_RESULT_BAD_PARAMETER = -1,
  ANDROID_BITMAP_RESULT_JNI_EXCEPTION = -2,
  ANDROID_BITMAP_RESULT_ALLOCATION_FAILED = -3,
};

enum AndroidBitmapFormat {
  ANDROID_BITMAP_FORMAT_NONE = 0,
  ANDROID_BITMAP_FORMAT_RGBA_8888 = 1,
  ANDROID_BITMAP_FORMAT_RGB_565 = 4,
  ANDROID_BITMAP_FORMAT_RGBA_4444 = 7,
  ANDROID_BITMAP_FORMAT_A_8 = 8,
};

struct AndroidBitmapInfo {
  std::uint32_t width;
  std::uint32_t height;
  std::uint32_t stride;
  std::int32_t format;
  std::uint32_t flags;
};

extern "C" {
int AndroidBitmap_getInfo(JNIEnv* env, jobject jbitmap, AndroidBitmapInfo* info);
int AndroidBitmap_lockPixels(JNIEnv* env, jobject jbitmap, void** addrPtr);
int AndroidBitmap_unlockPixels(JNIEnv* env, jobject jbitmap);
}
#endif

#endif  // LUMIVEX_SRC_ANDROID_BITMAP_API_H_
