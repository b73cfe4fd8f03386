// The library's Android face: the load hook that registers the four native methods on
// the host class, bitmap export to Android, the engine-image wrap and the raw dump.
#include <algorithm>
#include <atomic>
#include <cstdio>

#include "src/android/bitmap_api.h"

#include "src/android/rvk_internal.h"

namespace lumivex::android {

jint Register_VideoRVK_Functions(JavaVM* vm, JNIEnv* env) {
  _LOG2FILE("Register_Utils_Functions <----");
  SetJavaVM(vm);
  jclass cls = env->FindClass("com/velqor/camera/rvk/VideoRVK");
  if (cls == nullptr) {
    if (env->ExceptionCheck()) env->ExceptionClear();
    return -1;
  }
  static const JNINativeMethod kMethods[] = {
      {const_cast<char*>("_InitRVK"),
       const_cast<char*>("(Landroid/content/Context;Ljava/lang/Object;III)I"),
       reinterpret_cast<void*>(JNI_InitRVK)},
      {const_cast<char*>("_UninitRVK"), const_cast<char*>("(I)I"),
       reinterpret_cast<void*>(JNI_UnInitRVK)},
      {const_cast<char*>("_StopProcessRVK"), const_cast<char*>("(I)I"),
       reinterpret_cast<void*>(JNI_StopProcessRVK)},
      {const_cast<char*>("_ProcessRVK"), const_cast<char*>("(I[BII)I"),
       reinterpret_cast<void*>(JNI_ProccessRVK)},
      {const_cast<char*>("_ProcessYuvRVK"),
       const_cast<char*>(
           "(ILjava/nio/ByteBuffer;Ljava/nio/ByteBuffer;Ljava/nio/ByteBuffer;IIIII)I"),
       reinterpret_cast<void*>(JNI_ProcessYuvRVK)},
  };
  const jint res = env->RegisterNatives(cls, kMethods, 5);
  env->DeleteLocalRef(cls);
  if (res < 0) return -1;
  _LOG2FILE("Register_Utils_Functions ---->");
  return 0;
}

// The Bitmap.Config a pixel array format is shown as (null for one Android cannot show).
const char* ConfigName(std::uint32_t format) {
  switch (format) {
    case MPAF_GRAY8:
      return "ALPHA_8";
    case MPAF_RGB16_R5G6B5:
      return "RGB_565";
    case MPAF_RGB32_A8R8G8B8:
      return "ARGB_8888";
    default:
      return nullptr;
  }
}

// The bitmap's pixels into a new Android bitmap of its size. Android's stride is taken to
// equal the pitch; never past either buffer.
void CopyPixels(JNIEnv* env, const MBITMAP& bitmap, jobject target) {
  AndroidBitmapInfo info{};
  int ret = AndroidBitmap_getInfo(env, target, &info);
  if (ret < 0) {
    _LOG2FILE("AndroidBitmap_getInfo nRet:%d", ret);
    return;
  }
  void* pixels = nullptr;
  ret = AndroidBitmap_lockPixels(env, target, &pixels);
  if (ret < 0 || pixels == nullptr) {
    _LOG2FILE("AndroidBitmap_lockPixels nRet:%d", ret);
    return;
  }
  _LOG2FILE("MMemCpy to pAddress");
  const std::int64_t bytes =
      std::min<std::int64_t>(static_cast<std::int64_t>(bitmap.lPitch[0]) * bitmap.lHeight,
                             static_cast<std::int64_t>(info.stride) * info.height);
  MMemCpy(pixels, bitmap.pPlane[0], static_cast<std::int32_t>(bytes));
  AndroidBitmap_unlockPixels(env, target);
}

jobject GetBitmapFromMBitmap(JNIEnv* env, const MBITMAP* bitmap) {
  _LOG2FILE("GetBitmapFromMBitmap in ");
  if (bitmap == nullptr || bitmap->pPlane[0] == nullptr) {
    _LOG2FILE("GetBitmapFromMBitmap in  pMBitmap is null or empty");
    return nullptr;
  }
  jclass bitmap_class = env->FindClass("android/graphics/Bitmap");
  jclass config_class = env->FindClass("android/graphics/Bitmap$Config");
  if (bitmap_class == nullptr || config_class == nullptr) {
    if (env->ExceptionCheck()) env->ExceptionClear();
    if (bitmap_class != nullptr) env->DeleteLocalRef(bitmap_class);
    if (config_class != nullptr) env->DeleteLocalRef(config_class);
    return nullptr;
  }
  _LOG2FILE(" GetBitmapFromMBitmap MPAF_GRAY8: %d ", static_cast<int>(MPAF_GRAY8));
  _LOG2FILE(" GetBitmapFromMBitmap MPAF_RGB16_R5G6B5: %d ", static_cast<int>(MPAF_RGB16_R5G6B5));
  _LOG2FILE(" GetBitmapFromMBitmap MPAF_RGB32_A8R8G8B8: %d ",
            static_cast<int>(MPAF_RGB32_A8R8G8B8));
  _LOG2FILE(" GetBitmapFromMBitmap color_format: %d,lWidth: %d,lHeight: %d ",
            static_cast<int>(bitmap->dwPixelArrayFormat), bitmap->lWidth, bitmap->lHeight);
  const char* config_name = ConfigName(bitmap->dwPixelArrayFormat);
  jobject result = nullptr;
  if (config_name == nullptr) {
    env->DeleteLocalRef(bitmap_class);
    env->DeleteLocalRef(config_class);
    _LOG2FILE("return jbitmap: %p", static_cast<void*>(result));
    return nullptr;
  }
  jfieldID field =
      env->GetStaticFieldID(config_class, config_name, "Landroid/graphics/Bitmap$Config;");
  jobject config = field != nullptr ? env->GetStaticObjectField(config_class, field) : nullptr;
  _LOG2FILE("bitmap config:%d\r\n", config != nullptr ? 1 : 0);
  _LOG2FILE("GetBitmapFromMBitmap before createBitmap ");
  jmethodID create =
      env->GetStaticMethodID(bitmap_class, "createBitmap",
                             "(IILandroid/graphics/Bitmap$Config;)Landroid/graphics/Bitmap;");
  if (config != nullptr && create != nullptr)
    result =
        env->CallStaticObjectMethod(bitmap_class, create, bitmap->lWidth, bitmap->lHeight, config);
  if (env->ExceptionCheck()) {
    env->ExceptionClear();
    result = nullptr;
  }
  _LOG2FILE("GetBitmapFromMBitmap after createBitmap");
  if (result == nullptr) {
    _LOG2FILE("createBitmap faild...");
  } else {
    CopyPixels(env, *bitmap, result);
  }
  env->DeleteLocalRef(bitmap_class);
  env->DeleteLocalRef(config_class);
  if (config != nullptr) env->DeleteLocalRef(config);
  _LOG2FILE("return jbitmap: %p", static_cast<void*>(result));
  return result;
}

void BuildBmpFromZMOSIMAGE(const ZMOSIMAGE* image, MBITMAP* bitmap) {
  if (bitmap == nullptr || image == nullptr) return;
  bitmap->lWidth = image->lWidth;
  bitmap->lHeight = image->lHeight;
  _LOG2FILE("BuildBmpFromZMOSIMAGE offscreen Width=%d, Height=%d", image->lWidth, image->lHeight);
  _LOG2FILE("BuildBmpFromZMOSIMAGE offscreen Pitch[0]=%d, Pitch[1]=%d, Pitch[2]=%d",
            image->lPitch[0], image->lPitch[1], image->lPitch[2]);
  if (image->dwFormat == ZMOS_FORMAT_I420) {
    _LOG2FILE("BuildBmpFromZMOSIMAGE I420");
    bitmap->dwPixelArrayFormat = MPAF_I420;
    for (int p = 0; p < 3; ++p) {
      bitmap->lPitch[p] = image->lPitch[p];
      bitmap->pPlane[p] = image->pPlane[p];
    }
  } else if (image->dwFormat == ZMOS_FORMAT_NV21) {
    _LOG2FILE("BuildBmpFromZMOSIMAGE NV21");
    bitmap->dwPixelArrayFormat = MPAF_NV21_WRAP;
    bitmap->lPitch[0] = image->lPitch[0];
    bitmap->lPitch[1] = image->lPitch[1];
    bitmap->lPitch[2] = image->lPitch[1];
    // U is the second byte of each VU pair, V the first.
    bitmap->pPlane[0] = image->pPlane[0];
    bitmap->pPlane[1] = image->pPlane[1] != nullptr ? image->pPlane[1] + 1 : nullptr;
    bitmap->pPlane[2] = image->pPlane[1];
  }
}

void DUMP2FILE(const char* path, const void* buffer, std::int32_t length) {
  if (path == nullptr || buffer == nullptr || length <= 0) return;
  std::FILE* f = std::fopen(path, "wb");
  if (f == nullptr) return;
  std::fwrite(buffer, 1, static_cast<std::size_t>(length), f);
  std::fclose(f);
}

namespace {

// The profile captures start with; chosen from Java through RvkProfile.select.
std::atomic<std::int32_t> g_capture_profile{ZMOS_PROFILE_EXACT};

void JNICALL JNI_SelectProfile(JNIEnv*, jclass, jint profile) {
  if (profile == ZMOS_PROFILE_EXACT || profile == ZMOS_PROFILE_QUALITY) g_capture_profile = profile;
}

void JNICALL JNI_SetLogging(JNIEnv*, jclass, jboolean enabled) {
  MLogSetEnabled(enabled ? 1 : 0);
}

void RegisterProfileFunctions(JNIEnv* env) {
  static const JNINativeMethod kProfile = {const_cast<char*>("select"), const_cast<char*>("(I)V"),
                                           reinterpret_cast<void*>(JNI_SelectProfile)};
  static const JNINativeMethod kLog = {const_cast<char*>("setEnabled"), const_cast<char*>("(Z)V"),
                                       reinterpret_cast<void*>(JNI_SetLogging)};
  RegisterOptional(env, "com/velqor/camera/rvk/RvkProfile", &kProfile, 1);
  RegisterOptional(env, "com/velqor/camera/rvk/RvkLog", &kLog, 1);
}

}  // namespace

void RegisterOptional(JNIEnv* env, const char* class_name, const JNINativeMethod* methods,
                      jint count) {
  jclass cls = env->FindClass(class_name);
  if (cls == nullptr) {
    env->ExceptionClear();
    return;
  }
  if (env->RegisterNatives(cls, methods, count) != 0) env->ExceptionClear();
  env->DeleteLocalRef(cls);
}

std::int32_t CaptureProfile() {
  return g_capture_profile;
}

}  // namespace lumivex::android

extern "C" LUMIVEX_API jint JNI_OnLoad(JavaVM* vm, void*) {
  using namespace lumivex::android;
  _LOG2FILE("JNI_OnLoad <---");
  JNIEnv* env = nullptr;
  if (vm == nullptr || vm->GetEnv(reinterpret_cast<void**>(&env), 0x10004) != JNI_OK ||
      env == nullptr) {
    _LOG2FILE("JNI_VERSION_1_4 is not OK !!! ");
    return -1;
  }
  if (Register_VideoRVK_Functions(vm, env) != 0) {
    _LOG2FILE("Register_VideoRVK_Functions return -1");
    return -1;
  }
  RegisterProfileFunctions(env);
  RegisterPanoramaFunctions(env);
  _LOG2FILE("JNI_OnLoad --->");
  return 0x10004;
}
