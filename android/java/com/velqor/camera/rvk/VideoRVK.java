package com.velqor.camera.rvk;

import android.content.Context;

/**
 * The host side of the sweep-panorama binding. Frames go in through {@link #_ProcessRVK};
 * the engine answers through {@link #onNotify}:
 *
 * <ul>
 *   <li>1: progress, an {@link MPanoInfo};
 *   <li>2: capture succeeded, an {@code Integer} key naming the NV21 panorama bitmap;
 *   <li>3: capture failed, {@code Integer} 1;
 *   <li>4: the live preview, an {@code android.graphics.Bitmap} (RGB 565).
 * </ul>
 */
public class VideoRVK {
  static {
    System.loadLibrary("lumivex");
  }

  /** Receives the notifications of a capture. */
  public interface Listener {
    int onNotify(int msg, Object data);
  }

  private final Listener listener;

  public VideoRVK(Listener listener) {
    this.listener = listener;
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
}
