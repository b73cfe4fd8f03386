// Desktop host kit: Android's bitmap access functions over the kit's stand-in
// android.graphics.Bitmap, whose pixels live in a direct ByteBuffer. Linked only into
// desktop builds; Android builds use libjnigraphics.
#include <cstring>

#include "src/android/bitmap_api.h"

namespace {

// An int getter of the stand-in; -1 when it is missing or throws.
int IntMethod(JNIEnv* env, jobject obj, const char* name) {
  jclass cls = env->GetObjectClass(obj);
  jmethodID m = env->GetMethodID(cls, name, "()I");
  int v = -1;
  if (m != nullptr) {
    v = env->CallIntMethod(obj, m);
    if (env->ExceptionCheck()) v = -1;
  }
  env->ExceptionClear();
  env->DeleteLocalRef(cls);
  return v;
}

}  // namespace

extern "C" {

int AndroidBitmap_getInfo(JNIEnv* env, jobject jbitmap, AndroidBitmapInfo* info) {
  if (env == nullptr || jbitmap == nullptr || info == nullptr)
    return ANDROID_BITMAP_RESULT_BAD_PARAMETER;
  const int w = IntMethod(env, jbitmap, "getWidth");
  const int h = IntMethod(env, jbitmap, "getHeight");
  const int stride = IntMethod(env, jbitmap, "getRowBytes");
  const int bytes = IntMethod(env, jbitmap, "getBytesPerPixel");
  if (w < 0 || h < 0 || stride < 0) return ANDROID_BITMAP_RESULT_JNI_EXCEPTION;
  info->width = static_cast<std::uint32_t>(w);
  info->height = static_cast<std::uint32_t>(h);
  info->stride = static_cast<std::uint32_t>(stride);
  info->format = bytes == 4   ? ANDROID_BITMAP_FORMAT_RGBA_8888
                 : bytes == 2 ? ANDROID_BITMAP_FORMAT_RGB_565
                 : bytes == 1 ? ANDROID_BITMAP_FORMAT_A_8
                              : ANDROID_BITMAP_FORMAT_NONE;
  info->flags = 0;
  return ANDROID_BITMAP_RESULT_SUCCESS;
}

int AndroidBitmap_lockPixels(JNIEnv* env, jobject jbitmap, void** addrPtr) {
  if (env == nullptr || jbitmap == nullptr || addrPtr == nullptr)
    return ANDROID_BITMAP_RESULT_BAD_PARAMETER;
  jclass cls = env->GetObjectClass(jbitmap);
  jfieldID field = env->GetFieldID(cls, "pixels", "Ljava/nio/ByteBuffer;");
  env->DeleteLocalRef(cls);
  if (field == nullptr) {
    env->ExceptionClear();
    return ANDROID_BITMAP_RESULT_JNI_EXCEPTION;
  }
  jobject buffer = env->GetObjectField(jbitmap, field);
  *addrPtr = buffer != nullptr ? env->GetDirectBufferAddress(buffer) : nullptr;
  if (buffer != nullptr) env->DeleteLocalRef(buffer);
  return *addrPtr != nullptr ? ANDROID_BITMAP_RESULT_SUCCESS
                             : ANDROID_BITMAP_RESULT_ALLOCATION_FAILED;
}

int AndroidBitmap_unlockPixels(JNIEnv* env, jobject jbitmap) {
  return env != nullptr && jbitmap != nullptr ? ANDROID_BITMAP_RESULT_SUCCESS
                                              : ANDROID_BITMAP_RESULT_BAD_PARAMETER;
}

}  // extern "C"
