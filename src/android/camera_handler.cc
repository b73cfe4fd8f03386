// The camera handler behind the four native methods: sizes the work buffer, drives the
// engine frame by frame, turns its outputs into notifications for the host, ends the
// capture and hands the panorama over.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "src/android/bitmap_api.h"
#include "src/android/rvk_internal.h"

namespace lumivex::android {

struct CCamHandlerVideoRVK {
  std::int32_t m_dwRVKCount;
  std::int32_t m_dwRVKMaxNumber;
  std::int32_t bFinished;
  ZMOSSWEEPSTITCHER* hEngine;
  void* pWorkMem;
  std::uint8_t* pResultMem;
  std::int32_t lResultMemSize;
  ZMOSINITPARAM m_StitchParam;
  std::int32_t lPreviewWidth;
  std::int32_t lPreviewHeight;
  std::int32_t PanoInfo[5];  // angle, offset x, offset y, direction tip, kept flag
  MBITMAP ResultBitmap;
  ZMOSIMAGE* pUIImage;
  std::int32_t UIParam[4];
  jobject jHost;
  // Binding bookkeeping: the handler's own key and its result bitmap's.
  std::int32_t lKey;
  std::int32_t lBitmapKey;
  // The profile the capture started with; under the quality one the binding reports
  // failures as failures, with their reason (lFailure, the engine's result code).
  std::int32_t lProfile;
  std::int32_t lFailure;
  // NV21 chroma rows gathered from YUV_420_888 planes that are not NV21 already.
  std::uint8_t* pChroma;
};

namespace {

JavaVM* g_vm = nullptr;

constexpr int kSlots = 64;
CCamHandlerVideoRVK* g_handlers[kSlots] = {};
std::uint32_t g_generation = 0;
// The handler table is the process's; Java may start, feed and stop captures from
// several threads, so every look-up and change holds this lock.
std::mutex g_handlers_mutex;

// Keys carry a generation so a stale key never finds a newer handler in the same slot.
std::int32_t KeyFor(int slot) {
  g_generation = (g_generation + 1) & 0x3FFFFF;
  return static_cast<std::int32_t>((g_generation << 8) | static_cast<std::uint32_t>(slot + 1));
}

std::int32_t g_keys[kSlots] = {};

// Direction tip from the four flags, tested third, fourth, first, second.
std::int32_t TipOf(const std::int32_t flags[4]) {
  if (flags[2] == 1) return 2;
  if (flags[3] == 1) return 1;
  if (flags[0] == 1) return 8;
  if (flags[1] == 1) return 4;
  return 0;
}

std::int32_t EngineDirection(std::int32_t tip) {
  return tip == 1 ? 0 : tip == 2 ? 1 : tip == 4 ? 2 : tip == 8 ? 3 : -1;
}

std::int32_t StitchProgress(std::int32_t, void*) {
  return 0;
}

std::int32_t Forward(CCamHandlerVideoRVK* h) {
  _LOG2FILE("Forward <--- %d, %d", h->m_dwRVKCount, h->bFinished);
  if (!h->bFinished) {
    const std::int32_t angle = h->PanoInfo[0], tip = h->PanoInfo[3];
    if (std::abs(angle) < 180 || (tip != 1 && tip != 2 && tip != 4 && tip != 8)) {
      _LOG2FILE("Forward --->");
      return 0;
    }
  }
  h->bFinished = 1;
  _LOG2FILE("Forward bFinished=%d", h->bFinished);
  std::int32_t res = 0;
  if (h->pResultMem != nullptr) {
    MMemSet(h->pResultMem, 0, h->lResultMemSize);
    _LOG2FILE("ZMOS_Stitch ....");
    ZMOSIMAGE result{};
    res = ZMOS_Stitch(h->hEngine, &result, StitchProgress);
    _LOG2FILE("ZMOS_Stitch  res = %d", res);
    if (res != 0) {
      h->lFailure = res;
      Notify(h, 3, nullptr);
      _LOG2FILE("ZMOS_Stitch error res = %d", res);
    } else {
      MBITMAP wrap{};
      BuildBmpFromZMOSIMAGE(&result, &wrap);
      if (h->ResultBitmap.pPlane[0] != nullptr) MBitmapFree(&h->ResultBitmap);
      h->ResultBitmap = MBITMAP{};
      h->ResultBitmap.dwPixelArrayFormat = wrap.dwPixelArrayFormat == MPAF_NV21_WRAP
                                               ? std::uint32_t{MPAF_NV21_RESULT}
                                               : wrap.dwPixelArrayFormat;
      h->ResultBitmap.lWidth = wrap.lWidth;
      h->ResultBitmap.lHeight = wrap.lHeight;
      MBitmapAlloc(&h->ResultBitmap);
      MBITMAP& out = h->ResultBitmap;
      if (out.lWidth == wrap.lWidth && out.lHeight == wrap.lHeight &&
          out.dwPixelArrayFormat == MPAF_NV21_RESULT && out.lHeight >= 1 &&
          out.pPlane[0] != nullptr && wrap.pPlane[0] != nullptr) {
        // Row by row; each chroma row is copied twice, once per luma row.
        const std::int32_t luma = std::min(wrap.lPitch[0], out.lPitch[0]);
        const std::int32_t chroma = std::min(wrap.lPitch[2], out.lPitch[1]);
        for (std::int32_t i = 0; i < out.lHeight; ++i) {
          MMemCpy(out.pPlane[0] + static_cast<std::ptrdiff_t>(i) * out.lPitch[0],
                  wrap.pPlane[0] + static_cast<std::ptrdiff_t>(i) * wrap.lPitch[0], luma);
          MMemCpy(out.pPlane[1] + static_cast<std::ptrdiff_t>(i) * out.lPitch[1],
                  wrap.pPlane[2] + static_cast<std::ptrdiff_t>(i / 2) * wrap.lPitch[2], chroma);
        }
      }
      _LOG2FILE("Notify bitmapRVK %x, f: %d, %dx%d", static_cast<unsigned>(h->lBitmapKey),
                static_cast<int>(out.dwPixelArrayFormat), out.lWidth, out.lHeight);
      Notify(h, 2, nullptr);
    }
  }
  _LOG2FILE("Forward --->");
  return res;
}

// A direct ByteBuffer's bytes; empty when the object is not one.
struct Plane {
  std::uint8_t* data = nullptr;
  std::int64_t size = 0;
};

Plane DirectPlane(JNIEnv* env, jobject buffer) {
  if (buffer == nullptr) return {};
  auto* data = static_cast<std::uint8_t*>(env->GetDirectBufferAddress(buffer));
  const jlong size = env->GetDirectBufferCapacity(buffer);
  if (data == nullptr || size <= 0) return {};
  return {data, size};
}

std::int32_t ChromaBytes(std::int32_t width, std::int32_t height) {
  return static_cast<std::int32_t>(std::int64_t{width} * (height / 2));
}

// Whether `rows` rows of `row_bytes` bytes, `stride` apart, starting at `at`, lie inside
// [begin, begin + size).
bool RowsInside(const std::uint8_t* at, std::int64_t stride, std::int64_t rows,
                std::int64_t row_bytes, const std::uint8_t* begin, std::int64_t size) {
  if (at == nullptr || begin == nullptr || rows < 1 || row_bytes < 1 || stride < row_bytes)
    return false;
  const std::int64_t first = at - begin;
  return first >= 0 && first + (rows - 1) * stride + row_bytes <= size;
}

// A YUV_420_888 image (CameraX, Camera2) as an NV21 frame for the engine. The luma is
// used where it lies, with its row stride; so is the chroma when it already is NV21
// (pixel stride 2, V one byte before U, as most phones deliver it). Other layouts (U
// first, or planar) are gathered into `scratch`, width x height / 2 bytes. Every row read
// is checked against its buffer's capacity first.
bool Yuv420ToNv21(const Plane& y, const Plane& u, const Plane& v, std::int32_t y_stride,
                  std::int32_t uv_stride, std::int32_t uv_pixel_stride, std::int32_t width,
                  std::int32_t height, std::uint8_t* scratch, ZMOSIMAGE* frame) {
  const std::int32_t cw = width / 2, ch = height / 2;
  if (!RowsInside(y.data, y_stride, height, width, y.data, y.size) || uv_stride < 1 ||
      (uv_pixel_stride != 1 && uv_pixel_stride != 2))
    return false;
  const std::int64_t chroma_row = std::int64_t{cw - 1} * uv_pixel_stride + 1;
  if (!RowsInside(u.data, uv_stride, ch, chroma_row, u.data, u.size) ||
      !RowsInside(v.data, uv_stride, ch, chroma_row, v.data, v.size))
    return false;
  *frame = ZMOSIMAGE{ZMOS_FORMAT_NV21, width, height, {y.data, nullptr}, {y_stride, 0, 0}};
  // V then U in one run: the VU rows are the V plane's bytes, a row's last U the one byte
  // past the V plane's last V, which is the U plane's own.
  if (uv_pixel_stride == 2 && u.data == v.data + 1 && uv_stride >= width) {
    frame->pPlane[1] = v.data;
    frame->lPitch[1] = uv_stride;
    return true;
  }
  if (scratch == nullptr) return false;
  for (std::int32_t r = 0; r < ch; ++r) {
    const std::uint8_t* ur = u.data + std::int64_t{r} * uv_stride;
    const std::uint8_t* vr = v.data + std::int64_t{r} * uv_stride;
    std::uint8_t* out = scratch + std::int64_t{r} * width;
    for (std::int32_t c = 0; c < cw; ++c) {
      out[2 * c] = vr[c * uv_pixel_stride];
      out[2 * c + 1] = ur[c * uv_pixel_stride];
    }
  }
  frame->pPlane[1] = scratch;
  frame->lPitch[1] = width;
  return true;
}

}  // namespace

std::int32_t AddHandler(CCamHandlerVideoRVK* handler) {
  const std::lock_guard<std::mutex> lock(g_handlers_mutex);
  for (int i = 0; i < kSlots; ++i) {
    if (g_handlers[i] == nullptr) {
      g_handlers[i] = handler;
      g_keys[i] = KeyFor(i);
      return g_keys[i];
    }
  }
  return 0;
}

CCamHandlerVideoRVK* FindHandler(std::int32_t key) {
  const std::lock_guard<std::mutex> lock(g_handlers_mutex);
  const int slot = (key & 0xFF) - 1;
  if (key == 0 || slot < 0 || slot >= kSlots || g_keys[slot] != key) return nullptr;
  return g_handlers[slot];
}

void RemoveHandler(std::int32_t key) {
  const std::lock_guard<std::mutex> lock(g_handlers_mutex);
  const int slot = (key & 0xFF) - 1;
  if (key == 0 || slot < 0 || slot >= kSlots || g_keys[slot] != key) return;
  g_handlers[slot] = nullptr;
  g_keys[slot] = 0;
}

MBITMAP* FindResultBitmap(std::int32_t key) {
  const std::lock_guard<std::mutex> lock(g_handlers_mutex);
  for (int i = 0; i < kSlots; ++i) {
    CCamHandlerVideoRVK* h = g_handlers[i];
    if (h != nullptr && h->lBitmapKey == key && key != 0 && h->ResultBitmap.pPlane[0] != nullptr)
      return &h->ResultBitmap;
  }
  return nullptr;
}

void Notify(CCamHandlerVideoRVK* h, std::int32_t msg, jobject bitmap) {
  JNIEnv* env = nullptr;
  if (h == nullptr || g_vm == nullptr ||
      g_vm->GetEnv(reinterpret_cast<void**>(&env), 0x10004) != JNI_OK || env == nullptr)
    return;
  jobject data = nullptr;
  switch (msg) {
    case 1: {
      _LOG2FILE("call onCallBackPanoInfo:%d,%d,%d,%d", h->PanoInfo[0], h->PanoInfo[1],
                h->PanoInfo[2], h->PanoInfo[3]);
      jclass cls = env->FindClass("com/velqor/camera/rvk/MPanoInfo");
      if (cls == nullptr) break;
      jmethodID init = env->GetMethodID(cls, "<init>", "(IIIII)V");
      if (init != nullptr)
        data = env->NewObject(cls, init, h->PanoInfo[0], h->PanoInfo[1], h->PanoInfo[2],
                              h->PanoInfo[3], h->PanoInfo[4]);
      if (env->ExceptionCheck()) env->ExceptionClear();
      env->DeleteLocalRef(cls);
      break;
    }
    case 2:
    case 3: {
      if (msg == 2) {
        _LOG2FILE("Notify VIDEORVK_MSG_CAPTURE_SUCCESS");
      } else {
        _LOG2FILE("Notify VIDEORVK_MSG_CAPTURE_FAILED or other: %d", 1);
      }
      jclass cls = env->FindClass("java/lang/Integer");
      if (cls == nullptr) break;
      jmethodID init = env->GetMethodID(cls, "<init>", "(I)V");
      // Notification 2 carries the result bitmap's token (RvkPanorama turns it into
      // pixels); notification 3 the failure value 1.
      const std::int32_t failure =
          h->lProfile == ZMOS_PROFILE_QUALITY && h->lFailure != 0 ? h->lFailure : 1;
      if (init != nullptr) data = env->NewObject(cls, init, msg == 2 ? h->lBitmapKey : failure);
      env->DeleteLocalRef(cls);
      break;
    }
    case 4:
      data = env->NewLocalRef(bitmap);
      break;
    default:
      _LOG2FILE("Notify VIDEORVK unknown MSG: 0x%x", static_cast<unsigned>(msg));
      return;
  }
  if (env->ExceptionCheck()) env->ExceptionClear();
  jclass host = env->GetObjectClass(h->jHost);
  jmethodID on_notify =
      host != nullptr ? env->GetMethodID(host, "onNotify", "(ILjava/lang/Object;)I") : nullptr;
  if (on_notify != nullptr) env->CallIntMethod(h->jHost, on_notify, msg, data);
  if (env->ExceptionCheck()) {
    // The host's exception must not reach the engine's next JNI call.
    _LOG2FILE("onNotify threw an exception for message %d", msg);
    env->ExceptionDescribe();
    env->ExceptionClear();
  }
  if (host != nullptr) env->DeleteLocalRef(host);
  if (data != nullptr) env->DeleteLocalRef(data);
}

// The work buffer the binding gives a capture of `max_frames` kept frames at this preview
// size: the larger of the landscape and portrait needs.
std::int64_t BindingWorkBytes(std::int64_t n, std::int64_t w, std::int64_t ht) {
  const std::int64_t land = 3 * w * ht + (n + 5) * ((ht * ((ht / 5) & ~3) * 3) / 2) + 16 * (n + 8);
  const std::int64_t port = 3 * w * ht + (n + 5) * ((w * ((w / 5) & ~3) * 3) / 2) + 16 * (n + 8);
  _LOG2FILE("land=%d,port=%d", static_cast<int>(land), static_cast<int>(port));
  return std::max(land, port);
}

// The work and result buffers, the engine and the chroma scratch of a new handler; false
// (with the buffers given back) when any of them cannot be had.
bool StartCapture(CCamHandlerVideoRVK* h, std::int64_t size) {
  const std::int32_t width = h->lPreviewWidth, height = h->lPreviewHeight;
  bool ok = size <= INT32_MAX;
  if (ok) {
    h->pWorkMem = MMemAlloc(nullptr, h->m_StitchParam.lWorkBufferSize);
    if (h->pWorkMem == nullptr) {
      _LOG2FILE(
          "Allocate work buffer memory %d bytes for StitchParam.pWorkBuffer return error = %d !\n",
          h->m_StitchParam.lWorkBufferSize, 4);
      ok = false;
    }
  }
  if (ok) {
    const std::int64_t result_size = std::int64_t{height} * 10000;
    h->lResultMemSize = static_cast<std::int32_t>(std::min<std::int64_t>(result_size, INT32_MAX));
    h->pResultMem = static_cast<std::uint8_t*>(MMemAlloc(nullptr, h->lResultMemSize));
    if (h->pResultMem == nullptr) {
      _LOG2FILE("Fail to malloc memory!");
      ok = false;
    }
  }
  if (ok) {
    h->m_StitchParam.pWorkBuffer = h->pWorkMem;
    _LOG2FILE("ZMOS_Init ...");
    const std::int32_t res = ZMOS_Init(&h->m_StitchParam, &h->hEngine);
    if (res == 0) {
      ZMOS_SetProfile(h->hEngine, h->lProfile);
      h->pUIImage = static_cast<ZMOSIMAGE*>(MMemAlloc(nullptr, sizeof(ZMOSIMAGE)));
      if (h->pUIImage != nullptr) {
        MMemSet(h->pUIImage, 0, sizeof(ZMOSIMAGE));
        h->pUIImage->dwFormat = ZMOS_FORMAT_NV21;
      }
      MMemSet(h->UIParam, 0, sizeof(h->UIParam));
      _LOG2FILE("CCamHandlerVideoRVK::InitRVK res=%d ---->", res);
    } else {
      _LOG2FILE("ZMOS_Init return error = %d!\n", res);
      ok = false;
    }
  }
  if (ok) {
    h->pChroma = static_cast<std::uint8_t*>(MMemAlloc(nullptr, ChromaBytes(width, height)));
    ok = h->pChroma != nullptr;
  }
  if (!ok) {
    MMemFree(nullptr, h->pWorkMem);
    MMemFree(nullptr, h->pResultMem);
    h->pWorkMem = nullptr;
    h->pResultMem = nullptr;
    _LOG2FILE("InitRVK Failed ---->");
  }
  return ok;
}

// Everything a handler that will not be handed out holds, and the handler.
jint DiscardHandler(JNIEnv* env, CCamHandlerVideoRVK* h) {
  ZMOS_UnInit(&h->hEngine);
  MMemFree(nullptr, h->pWorkMem);
  MMemFree(nullptr, h->pResultMem);
  MMemFree(nullptr, h->pUIImage);
  MMemFree(nullptr, h->pChroma);
  if (h->jHost != nullptr) env->DeleteGlobalRef(h->jHost);
  MMemFree(nullptr, h);
  _LOG2FILE("JNI_InitRVK ---->");
  return 0;
}

jint JNI_InitRVK(JNIEnv* env, jclass, jobject, jobject host, jint maxNumber, jint width,
                 jint height) {
  _LOG2FILE("JNI_InitRVK <----");
  ZMOSVERSION version;
  ZMOS_GetVersion(&version);
  _LOG2FILE("RVK Version: %s,%s,%s", version.szVersion, version.szCopyright, version.szDate);
  if (host == nullptr || width <= 0 || height <= 0) {
    _LOG2FILE("JNI_InitRVK ---->");
    return 0;
  }
  auto* h = static_cast<CCamHandlerVideoRVK*>(MMemAlloc(nullptr, sizeof(CCamHandlerVideoRVK)));
  if (h == nullptr) {
    _LOG2FILE("JNI_InitRVK ---->");
    return 0;
  }
  MMemSet(h, 0, sizeof(CCamHandlerVideoRVK));
  h->m_dwRVKMaxNumber = maxNumber < 1 || maxNumber > 30 ? 30 : maxNumber;
  h->lPreviewWidth = width;
  h->lPreviewHeight = height;
  h->lProfile = CaptureProfile();
  _LOG2FILE("InitRVK <----");
  _LOG2FILE("lPreviewWidth=%d, lPreviewHeight=%d", width, height);
  const std::int64_t size = BindingWorkBytes(h->m_dwRVKMaxNumber, width, height);
  h->m_StitchParam =
      ZMOSINITPARAM{nullptr, static_cast<std::int32_t>(std::min<std::int64_t>(size, INT32_MAX)),
                    180,     width,
                    height,  width,
                    height};
  _LOG2FILE("m_dwRVKMaxNumber=%d, mPhotoNumberforSize=%d, m_StitchParam.lWorkBufferSize = %d",
            h->m_dwRVKMaxNumber, h->m_dwRVKMaxNumber + 4, h->m_StitchParam.lWorkBufferSize);
  // A handle that can never capture would leave a host waiting for a result that never
  // comes: under the quality profile there is none.
  if (!StartCapture(h, size) && h->lProfile == ZMOS_PROFILE_QUALITY) return DiscardHandler(env, h);
  h->jHost = env->NewGlobalRef(host);
  h->lKey = AddHandler(h);
  // Notification 2 names the panorama by ResultBitmap's address where an address fits in
  // a Java int (32-bit targets), by the handler's key elsewhere. Either is only ever
  // compared with live handlers, never dereferenced.
  if constexpr (sizeof(void*) == sizeof(std::int32_t)) {
    h->lBitmapKey = static_cast<std::int32_t>(reinterpret_cast<std::uintptr_t>(&h->ResultBitmap));
  } else {
    h->lBitmapKey = h->lKey;
  }
  // No room in the handle table: the capture cannot be reached, so it is not made.
  if (h->lKey == 0) return DiscardHandler(env, h);
  _LOG2FILE("JNI_InitRVK ---->");
  return h->lKey;
}

namespace {

// One frame through the engine, the preview and the notifications.
std::int32_t ProcessFrame(JNIEnv* env, CCamHandlerVideoRVK* h, const ZMOSIMAGE& frame) {
  if (h->bFinished) return ZMOS_ERR_NO_TEXTURE;
  _LOG2FILE("StitchRVK <----");
  _LOG2FILE("FindRVK <---");
  std::int32_t offset[2] = {0, 0}, count = 0, flags[4] = {0, 0, 0, 0}, angle = 0;
  std::int32_t res = ZMOS_SelectFrames(h->hEngine, &frame, &frame, offset, &count, flags, &angle);
  std::int32_t kept = count == 1 ? 1 : 0;
  // The quality engine lays a too-fast frame one strip on and goes on, as the program
  // does: the capture continues, its angle read back from the engine.
  if (res == ZMOS_ERR_TOO_FAST && h->lProfile == ZMOS_PROFILE_QUALITY) {
    _LOG2FILE("too fast: the frame is laid one strip on");
    ZMOSCalculateAngle_SWT(h->hEngine, &angle);
    kept = 1;
    res = 0;
  }
  const std::int32_t tip = TipOf(flags);
  if (res == 0) {
    res = h->pUIImage != nullptr
              ? ZMOS_UpdateUIImage(h->hEngine, &frame, h->pUIImage, 6, h->UIParam)
              : ZMOS_ERR_INVALID_PARAM;
    if (res == 0 && h->pUIImage->lWidth > 0 && h->pUIImage->lHeight > 0) {
      MBITMAP wrap{};
      BuildBmpFromZMOSIMAGE(h->pUIImage, &wrap);
      MBITMAP* rgb = MdBitmapAlloc(wrap.lWidth, wrap.lHeight, MPAF_RGB16_R5G6B5);
      if (rgb != nullptr && ConvertCS(&wrap, rgb) == 0) {
        jobject bitmap = GetBitmapFromMBitmap(env, rgb);
        if (bitmap != nullptr) {
          Notify(h, 4, bitmap);
          env->DeleteLocalRef(bitmap);
        }
      }
      MdBitmapFree(rgb);
    } else {
      _LOG2FILE("ZMOS_UpdateUIImage Failed res = %d\n", res);
    }
  }
  if (res == 0) {
    if (h->PanoInfo[3] == 0) h->PanoInfo[3] = tip;
    if (h->PanoInfo[3] != 0) {
      h->PanoInfo[0] = angle;
      h->PanoInfo[1] = offset[0];
      h->PanoInfo[2] = offset[1];
      h->PanoInfo[4] = kept;
      _LOG2FILE("panorama tip dir=%d, lDirection=%d, offset(%d,%d), angle=%d", h->PanoInfo[3],
                EngineDirection(h->PanoInfo[3]), offset[0], offset[1], angle);
      Notify(h, 1, nullptr);
    }
    _LOG2FILE("StitchRVK m_dwRVKCount=%d, lImageCount=%d", h->m_dwRVKCount, count);
    h->m_dwRVKCount = kept;
    res = Forward(h);
    _LOG2FILE("StitchRVK ---->");
  } else if (h->lProfile == ZMOS_PROFILE_QUALITY) {
    // A failed sweep is a failure, with its reason; nothing is stitched or claimed.
    _LOG2FILE("*** RVK match failed, res=%d", res);
    h->bFinished = 1;
    h->lFailure = res;
    Notify(h, 3, nullptr);
  } else {
    _LOG2FILE("*** RVK match failed, m_dwRVKCount=%d", h->m_dwRVKCount);
    h->PanoInfo[0] = 180;
    Notify(h, 1, nullptr);
    h->bFinished = 1;
    res = Forward(h);
  }
  return res;
}

}  // namespace

jint JNI_ProccessRVK(JNIEnv* env, jclass, jint handle, jbyteArray data, jint width, jint height) {
  CCamHandlerVideoRVK* h = FindHandler(handle);
  if (h == nullptr) return ZMOS_ERR_INVALID_PARAM;
  _LOG2FILE("JNI_ProccessRVK <----");
  // The frame must hold an NV21 picture of the size given.
  const std::int64_t need = static_cast<std::int64_t>(width) * height * 3 / 2;
  if (data == nullptr || width <= 0 || height <= 0 || (width & 1) || (height & 1) ||
      env->GetArrayLength(data) < need) {
    _LOG2FILE("JNI_ProccessRVK ---->");
    return ZMOS_ERR_INVALID_PARAM;
  }
  jbyte* bytes = env->GetByteArrayElements(data, nullptr);
  if (bytes == nullptr) {
    _LOG2FILE("JNI_ProccessRVK ---->");
    return ZMOS_ERR_NO_MEMORY;
  }
  auto* pixels = reinterpret_cast<std::uint8_t*>(bytes);
  const ZMOSIMAGE frame{
      ZMOS_FORMAT_NV21, width, height, {pixels, pixels + width * height}, {width, width, width}};
  const std::int32_t res = ProcessFrame(env, h, frame);
  env->ReleaseByteArrayElements(data, bytes, JNI_ABORT);
  _LOG2FILE("JNI_ProccessRVK ---->");
  return res;
}

jint JNI_ProcessYuvRVK(JNIEnv* env, jclass, jint handle, jobject y, jobject u, jobject v,
                       jint y_stride, jint uv_stride, jint uv_pixel_stride, jint width,
                       jint height) {
  CCamHandlerVideoRVK* h = FindHandler(handle);
  if (h == nullptr) return ZMOS_ERR_INVALID_PARAM;
  if (width <= 0 || height <= 0 || (width & 1) || (height & 1) || width != h->lPreviewWidth ||
      height != h->lPreviewHeight)
    return ZMOS_ERR_INVALID_PARAM;
  const Plane py = DirectPlane(env, y), pu = DirectPlane(env, u), pv = DirectPlane(env, v);
  ZMOSIMAGE frame{};
  if (!Yuv420ToNv21(py, pu, pv, y_stride, uv_stride, uv_pixel_stride, width, height, h->pChroma,
                    &frame))
    return ZMOS_ERR_INVALID_PARAM;
  return ProcessFrame(env, h, frame);
}

jint JNI_StopProcessRVK(JNIEnv*, jclass, jint handle) {
  CCamHandlerVideoRVK* h = FindHandler(handle);
  if (h == nullptr) return ZMOS_ERR_INVALID_PARAM;
  _LOG2FILE("JNI_StopProcessRVK <----");
  h->bFinished = 1;
  const std::int32_t res = Forward(h);
  _LOG2FILE("JNI_StopProcessRVK ---->");
  return res;
}

jint JNI_UnInitRVK(JNIEnv* env, jclass, jint handle) {
  CCamHandlerVideoRVK* h = FindHandler(handle);
  if (h == nullptr) return ZMOS_ERR_INVALID_PARAM;
  _LOG2FILE("JNI_UnInitRVK <----");
  _LOG2FILE("UninitRVK <--- ");
  if (h->hEngine != nullptr) {
    const std::int32_t res = ZMOS_UnInit(&h->hEngine);
    _LOG2FILE("ZMOS_UnInit  res = %d", res);
  }
  MMemFree(nullptr, h->pWorkMem);
  MMemFree(nullptr, h->pResultMem);
  if (h->ResultBitmap.pPlane[0] != nullptr) {
    MBitmapFree(&h->ResultBitmap);
    h->ResultBitmap = MBITMAP{};
  }
  MMemFree(nullptr, h->pUIImage);
  MMemFree(nullptr, h->pChroma);
  h->bFinished = 1;
  _LOG2FILE("UninitRVK --->");
  if (h->jHost != nullptr) env->DeleteGlobalRef(h->jHost);
  RemoveHandler(handle);
  MMemFree(nullptr, h);
  _LOG2FILE("JNI_UnInitRVK ---->");
  return 0;
}

void SetJavaVM(JavaVM* vm) {
  g_vm = vm;
}

}  // namespace lumivex::android
