// Desktop host kit, test side: natives of com.velqor.camera.rvk.desktop.HostKit that let
// the JVM tests run the engine directly on the same frames for comparison and reach the
// binding's corners.
#include <algorithm>
#include <cstring>
#include <vector>

#include "src/android/rvk_internal.h"

using namespace lumivex::android;

namespace {

jbyteArray ToArray(JNIEnv* env, const std::vector<std::uint8_t>& bytes) {
  jbyteArray out = env->NewByteArray(static_cast<jsize>(bytes.size()));
  if (out != nullptr)
    env->SetByteArrayRegion(out, 0, static_cast<jsize>(bytes.size()),
                            reinterpret_cast<const jbyte*>(bytes.data()));
  return out;
}

}  // namespace

extern "C" {

// Runs the engine directly on `count` NV21 frames as the handler would (selection and
// preview per frame, stitch on the full angle, a failure or the last frame) and returns
// width and height (4 bytes each, big-endian) followed by the NV21 panorama.
LUMIVEX_API jbyteArray Java_com_velqor_camera_rvk_desktop_HostKit_stitchReference(
    JNIEnv* env, jclass, jbyteArray frames, jint count, jint width, jint height) {
  const std::int64_t frame_bytes = static_cast<std::int64_t>(width) * height * 3 / 2;
  if (frames == nullptr || count < 1 || width <= 0 || height <= 0 ||
      env->GetArrayLength(frames) < frame_bytes * count)
    return nullptr;
  const std::int64_t n = 30, w = width, h = height;
  const std::int64_t size =
      std::max(3 * w * h + (n + 5) * ((h * ((h / 5) & ~3) * 3) / 2) + 16 * (n + 8),
               3 * w * h + (n + 5) * ((w * ((w / 5) & ~3) * 3) / 2) + 16 * (n + 8));
  std::vector<std::uint8_t> work(static_cast<std::size_t>(size));
  ZMOSINITPARAM param{work.data(), static_cast<std::int32_t>(size), 180, width, height, width,
                      height};
  ZMOSSWEEPSTITCHER* engine = nullptr;
  if (ZMOS_Init(&param, &engine) != 0) return nullptr;
  std::vector<std::uint8_t> pixels(static_cast<std::size_t>(frame_bytes));
  ZMOSIMAGE ui{};
  ui.dwFormat = ZMOS_FORMAT_NV21;
  std::int32_t rect[4] = {};
  for (jint k = 0; k < count; ++k) {
    env->GetByteArrayRegion(frames, static_cast<jsize>(k * frame_bytes),
                            static_cast<jsize>(frame_bytes),
                            reinterpret_cast<jbyte*>(pixels.data()));
    ZMOSIMAGE frame{ZMOS_FORMAT_NV21,
                    width,
                    height,
                    {pixels.data(), pixels.data() + width * height},
                    {width, width}};
    std::int32_t offset[2], kept = 0, flags[4] = {}, angle = 0;
    const std::int32_t res =
        ZMOS_SelectFrames(engine, &frame, &frame, offset, &kept, flags, &angle);
    if (res != 0 || ZMOS_UpdateUIImage(engine, &frame, &ui, 6, rect) != 0) break;
    if (kept == 1 && angle >= 180) break;
  }
  ZMOSIMAGE result{};
  std::vector<std::uint8_t> out;
  if (ZMOS_Stitch(engine, &result, nullptr) == 0 && result.lWidth > 0) {
    out.resize(8);
    for (int i = 0; i < 4; ++i) {
      out[i] = static_cast<std::uint8_t>(result.lWidth >> (24 - 8 * i));
      out[4 + i] = static_cast<std::uint8_t>(result.lHeight >> (24 - 8 * i));
    }
    for (std::int32_t y = 0; y < result.lHeight; ++y) {
      const std::uint8_t* row =
          result.pPlane[0] + static_cast<std::ptrdiff_t>(y) * result.lPitch[0];
      out.insert(out.end(), row, row + result.lWidth);
    }
    for (std::int32_t y = 0; y < result.lHeight / 2; ++y) {
      const std::uint8_t* row =
          result.pPlane[1] + static_cast<std::ptrdiff_t>(y) * result.lPitch[1];
      out.insert(out.end(), row, row + result.lWidth);
    }
  }
  ZMOS_UnInit(&engine);
  return out.empty() ? nullptr : ToArray(env, out);
}

// Sends an arbitrary notification id through a handler.
LUMIVEX_API jint Java_com_velqor_camera_rvk_desktop_HostKit_notifyRaw(JNIEnv*, jclass, jint key,
                                                                      jint msg) {
  CCamHandlerVideoRVK* h = FindHandler(key);
  if (h == nullptr) return ZMOS_ERR_INVALID_PARAM;
  Notify(h, msg, nullptr);
  return 0;
}

// GetBitmapFromMBitmap on a small grey-ramp bitmap of the given platform format.
LUMIVEX_API jobject Java_com_velqor_camera_rvk_desktop_HostKit_bitmapOfFormat(JNIEnv* env, jclass,
                                                                              jint format) {
  MBITMAP* b = MdBitmapAlloc(8, 4, static_cast<std::uint32_t>(format));
  if (b == nullptr) {
    // Formats the platform cannot allocate still go through the export, with a fake plane.
    static std::uint8_t plane[64];
    MBITMAP fake{static_cast<std::uint32_t>(format), 8, 4, {8, 8, 8}, {plane, plane, plane}};
    return GetBitmapFromMBitmap(env, &fake);
  }
  for (int i = 0; i < b->lPitch[0] * b->lHeight; ++i)
    b->pPlane[0][i] = static_cast<std::uint8_t>(i);
  jobject out = GetBitmapFromMBitmap(env, b);
  MdBitmapFree(b);
  return out;
}

}  // extern "C"
