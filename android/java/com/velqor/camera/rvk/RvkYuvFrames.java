package com.velqor.camera.rvk;

import android.media.Image;
import androidx.camera.core.ImageProxy;

/**
 * Feeds YUV_420_888 frames (CameraX's {@code ImageAnalysis}, Camera2's {@code ImageReader})
 * to a capture without copying them into a packed NV21 array: the planes' direct buffers,
 * row strides and pixel stride go to the engine as they are. Padded rows and either
 * chroma order are fine. The caller still owns and closes the image.
 *
 * <p>An app without CameraX may drop {@link #process(int, ImageProxy)} (and this file's
 * import of it); one without Camera2 the other.
 */
public final class RvkYuvFrames {
  /** {@code android.graphics.ImageFormat.YUV_420_888}. */
  public static final int YUV_420_888 = 35;

  private RvkYuvFrames() {}

  /** One CameraX frame; returns what {@link VideoRVK#_ProcessRVK} would (2 for a bad image). */
  public static int process(int handle, ImageProxy image) {
    if (image == null || image.getFormat() != YUV_420_888) return 2;
    ImageProxy.PlaneProxy[] p = image.getPlanes();
    if (p == null || p.length < 3 || p[1].getPixelStride() != p[2].getPixelStride()
        || p[1].getRowStride() != p[2].getRowStride()) return 2;
    return VideoRVK._ProcessYuvRVK(handle, p[0].getBuffer(), p[1].getBuffer(), p[2].getBuffer(),
        p[0].getRowStride(), p[1].getRowStride(), p[1].getPixelStride(), image.getWidth(),
        image.getHeight());
  }

  /** One Camera2 frame; returns what {@link VideoRVK#_ProcessRVK} would (2 for a bad image). */
  public static int process(int handle, Image image) {
    if (image == null || image.getFormat() != YUV_420_888) return 2;
    Image.Plane[] p = image.getPlanes();
    if (p == null || p.length < 3 || p[1].getPixelStride() != p[2].getPixelStride()
        || p[1].getRowStride() != p[2].getRowStride()) return 2;
    return VideoRVK._ProcessYuvRVK(handle, p[0].getBuffer(), p[1].getBuffer(), p[2].getBuffer(),
        p[0].getRowStride(), p[1].getRowStride(), p[1].getPixelStride(), image.getWidth(),
        image.getHeight());
  }
}
