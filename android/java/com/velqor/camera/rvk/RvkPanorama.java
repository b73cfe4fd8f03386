package com.velqor.camera.rvk;

import android.graphics.Bitmap;

/**
 * The finished panorama of a capture, reached from the {@code Integer} that notification
 * {@link VideoRVK#MSG_CAPTURE_SUCCESS} carries.
 *
 * <p>The pixels stay in the capture: they are readable until {@link VideoRVK#_UninitRVK}
 * of that capture, or until a later stop of it stitches again. Afterwards every method
 * returns null. Call it from the thread that drives the capture.
 */
public final class RvkPanorama {
  static {
    System.loadLibrary("lumivex");
  }

  private final int token;
  /** Size in pixels. */
  public final int width;
  public final int height;

  private RvkPanorama(int token, int width, int height) {
    this.token = token;
    this.width = width;
    this.height = height;
  }

  /**
   * The panorama named by the data of notification 2 (an {@code Integer}), or null when
   * the data is not such a token or its capture is gone.
   */
  public static RvkPanorama from(Object data) {
    if (!(data instanceof Integer)) return null;
    int token = (Integer) data;
    int[] size = nativeSize(token);
    return size == null ? null : new RvkPanorama(token, size[0], size[1]);
  }

  /**
   * Standard NV21: {@code width * height} luma bytes, then one row of interleaved V and U
   * bytes for every two luma rows. Null once the capture is gone.
   */
  public byte[] toNv21() {
    return nativeNv21(token);
  }

  /** An ARGB_8888 bitmap of the panorama (BT.601, full range). Null once the capture is gone. */
  public Bitmap toBitmap() {
    return nativeBitmap(token);
  }

  private static native int[] nativeSize(int token);

  private static native byte[] nativeNv21(int token);

  private static native Bitmap nativeBitmap(int token);
}
