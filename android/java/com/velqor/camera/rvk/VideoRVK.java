package com.velqor.camera.rvk;

import android.content.Context;
import android.graphics.Bitmap;

/**
 * The host side of the sweep-panorama binding. Frames go in through {@link #_ProcessRVK};
 * the engine answers through {@link #onNotify}:
 *
 * <ul>
 *   <li>{@link #MSG_PROGRESS}: an {@link MPanoInfo};
 *   <li>{@link #MSG_CAPTURE_SUCCESS}: an {@code Integer} naming the panorama, which
 *       {@link RvkPanorama#from} turns into NV21 bytes or a Bitmap;
 *   <li>{@link #MSG_CAPTURE_FAILED}: an {@code Integer}: 1 under the exact profile; under
 *       the quality profile the reason, one of the {@code FAILURE_*} codes;
 *   <li>{@link #MSG_PREVIEW}: the live preview, an {@code android.graphics.Bitmap} (RGB 565).
 * </ul>
 *
 * <p>Under {@link RvkProfile#QUALITY}, {@link #_InitRVK} gives 0 when the capture cannot
 * run (an odd or impossible size, no memory), a sweep that goes wrong ends with
 * {@link #MSG_CAPTURE_FAILED} and its reason, and a too-fast moment is recovered from.
 * The exact profile keeps the engine's historical behaviour: a handle without an engine,
 * and any failure stitched and reported as a success.
 *
 * <p>Threading: call the methods of one capture from one thread at a time (the camera's
 * analysis thread, say); notifications arrive on that thread, inside the call that caused
 * them. Captures may run in several threads at once.
 */
public class VideoRVK {
  static {
    System.loadLibrary("lumivex");
  }

  /** Notification ids, the {@code msg} of {@link #onNotify}. */
  public static final int MSG_PROGRESS = 1;
  public static final int MSG_CAPTURE_SUCCESS = 2;
  public static final int MSG_CAPTURE_FAILED = 3;
  public static final int MSG_PREVIEW = 4;

  /** Failure reasons (quality profile), the {@code Integer} of {@link #MSG_CAPTURE_FAILED}. */
  public static final int FAILURE_UNKNOWN = 1;
  public static final int FAILURE_INVALID_ARGUMENT = 2;
  public static final int FAILURE_NO_MEMORY = 4;
  public static final int FAILURE_TOO_LITTLE_TEXTURE = 5;
  public static final int FAILURE_SWEEP_WENT_WRONG = 0x7001;
  public static final int FAILURE_TOO_FAST = 0x7003;

  /** Direction tips, {@link MPanoInfo#direction}. */
  public static final int DIRECTION_UNKNOWN = 0;
  public static final int DIRECTION_LEFT_TO_RIGHT = 1;
  public static final int DIRECTION_RIGHT_TO_LEFT = 2;
  public static final int DIRECTION_TOP_TO_BOTTOM = 4;
  public static final int DIRECTION_BOTTOM_TO_TOP = 8;

  /** Receives the notifications of a capture. */
  public interface Listener {
    int onNotify(int msg, Object data);
  }

  private final Listener listener;

  public VideoRVK(Listener listener) {
    this.listener = listener;
  }

  /** Delivers the notifications typed; unknown ids are ignored. */
  public VideoRVK(RvkCaptureListener typed) {
    this.listener = (msg, data) -> {
      switch (msg) {
        case MSG_PROGRESS:
          if (data instanceof MPanoInfo) typed.onProgress((MPanoInfo) data);
          break;
        case MSG_CAPTURE_SUCCESS:
          RvkPanorama panorama = RvkPanorama.from(data);
          if (panorama != null) {
            typed.onPanorama(panorama);
          } else {
            typed.onFailure(FAILURE_UNKNOWN);
          }
          break;
        case MSG_CAPTURE_FAILED:
          typed.onFailure(data instanceof Integer ? (Integer) data : FAILURE_UNKNOWN);
          break;
        case MSG_PREVIEW:
          if (data instanceof Bitmap) typed.onPreview((Bitmap) data);
          break;
        default:
          break;
      }
      return 0;
    };
  }

  /** Called by the native side, on the thread that called into it. */
  public int onNotify(int msg, Object data) {
    return listener != null ? listener.onNotify(msg, data) : 0;
  }

  /** Returns the capture handle, or 0 when it cannot be made. */
  public static native int _InitRVK(Context context, Object host, int maxNumber, int width, int height);

  public static native int _UninitRVK(int handle);

  public static native int _StopProcessRVK(int handle);

  /** One NV21 preview frame of width x height. */
  public static native int _ProcessRVK(int handle, byte[] nv21, int width, int height);

  /**
   * One YUV_420_888 frame of the capture's size from three direct buffers (see
   * {@link RvkYuvFrames}, which takes a CameraX or Camera2 image): luma row stride, chroma
   * row stride and chroma pixel stride (1 or 2). Returns 2 for planes too small for them.
   */
  public static native int _ProcessYuvRVK(int handle, java.nio.ByteBuffer y,
      java.nio.ByteBuffer u, java.nio.ByteBuffer v, int yRowStride, int uvRowStride,
      int uvPixelStride, int width, int height);
}
