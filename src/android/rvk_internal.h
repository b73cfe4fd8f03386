// The Android binding's pieces that the desktop host kit and the tests reach.
#ifndef LUMIVEX_SRC_ANDROID_RVK_INTERNAL_H_
#define LUMIVEX_SRC_ANDROID_RVK_INTERNAL_H_

#include <jni.h>

#include <cstdint>

#include "lumivex/lumivex.h"

namespace lumivex::android {

struct CCamHandlerVideoRVK;

// Handles as Java ints: a process-wide table hands out non-zero keys, so that 64-bit
// pointers never have to fit in an int.
std::int32_t AddHandler(CCamHandlerVideoRVK* handler);
CCamHandlerVideoRVK* FindHandler(std::int32_t key);
void RemoveHandler(std::int32_t key);
// The panorama bitmap that notification 2 names by key.
MBITMAP* FindResultBitmap(std::int32_t key);

// Sends notification `msg` to the handler's host (unknown ids are only logged).
void Notify(CCamHandlerVideoRVK* handler, std::int32_t msg, jobject bitmap);

jobject GetBitmapFromMBitmap(JNIEnv* env, const MBITMAP* bitmap);
void BuildBmpFromZMOSIMAGE(const ZMOSIMAGE* image, MBITMAP* bitmap);
void DUMP2FILE(const char* path, const void* buffer, std::int32_t length);

jint JNI_InitRVK(JNIEnv* env, jclass clazz, jobject context, jobject host, jint maxNumber,
                 jint width, jint height);
jint JNI_UnInitRVK(JNIEnv* env, jclass clazz, jint handle);
jint JNI_StopProcessRVK(JNIEnv* env, jclass clazz, jint handle);
jint JNI_ProccessRVK(JNIEnv* env, jclass clazz, jint handle, jbyteArray data, jint width,
                     jint height);
// A YUV_420_888 frame (CameraX's ImageProxy, Camera2's Image): three direct buffers,
// the luma and chroma row strides and the chroma pixel stride (1 or 2).
jint JNI_ProcessYuvRVK(JNIEnv* env, jclass clazz, jint handle, jobject y, jobject u, jobject v,
                       jint y_stride, jint uv_stride, jint uv_pixel_stride, jint width,
                       jint height);
jint Register_VideoRVK_Functions(JavaVM* vm, JNIEnv* env);
// The profile a capture starts with (RvkProfile.select; exact unless chosen).
std::int32_t CaptureProfile();
// Registers natives on an optional class: an app that does not ship it goes without.
void RegisterOptional(JNIEnv* env, const char* class_name, const JNINativeMethod* methods,
                      jint count);
// RvkPanorama's natives, on a class of its own.
void RegisterPanoramaFunctions(JNIEnv* env);
// The virtual machine notifications fetch their environment from.
void SetJavaVM(JavaVM* vm);

}  // namespace lumivex::android

#endif  // LUMIVEX_SRC_ANDROID_RVK_INTERNAL_H_
