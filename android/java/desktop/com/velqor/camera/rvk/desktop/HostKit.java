package com.velqor.camera.rvk.desktop;

/** Desktop host kit, test side: natives implemented by the desktop build of liblumivex. */
public final class HostKit {
  private HostKit() {}

  /** {width, height, luma pitch, chroma pitch, format} of the panorama named by a key. */
  public static native int[] resultInfo(int key);

  /** Luma plane then chroma plane of that panorama (pitch x height each). */
  public static native byte[] resultPixels(int key);

  /** The engine run directly on the frames: width, height (big-endian ints), NV21. */
  public static native byte[] stitchReference(byte[] frames, int count, int width, int height);

  public static native int notifyRaw(int handle, int msg);

  public static native Object bitmapOfFormat(int format);
}
