package com.velqor.camera.rvk.desktop;

/** Desktop host kit, test side: natives implemented by the desktop build of liblumivex. */
public final class HostKit {
  private HostKit() {}

  /** The engine run directly on the frames: width, height (big-endian ints), NV21. */
  public static native byte[] stitchReference(byte[] frames, int count, int width, int height);

  public static native int notifyRaw(int handle, int msg);

  public static native Object bitmapOfFormat(int format);
}
