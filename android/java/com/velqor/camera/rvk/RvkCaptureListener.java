package com.velqor.camera.rvk;

import android.graphics.Bitmap;

/**
 * Typed notifications of a capture; see {@link VideoRVK#VideoRVK(RvkCaptureListener)}.
 * Every method is called on the thread that called into {@link VideoRVK} (the one feeding
 * frames or stopping the capture), before that call returns.
 */
public interface RvkCaptureListener {
  /** Progress after a frame once the sweep direction is known. */
  void onProgress(MPanoInfo info);

  /** The preview of the sweep so far (RGB 565), after every frame. */
  default void onPreview(Bitmap preview) {}

  /** The capture ended and was stitched; the panorama is readable until {@code _UninitRVK}. */
  void onPanorama(RvkPanorama panorama);

  /** The capture ended without a panorama. */
  default void onFailure() {}

  /**
   * The capture ended without a panorama, for {@code reason}: one of the
   * {@code VideoRVK.FAILURE_*} codes ({@code FAILURE_UNKNOWN} under the exact profile).
   * By default it calls {@link #onFailure()}.
   */
  default void onFailure(int reason) {
    onFailure();
  }
}
