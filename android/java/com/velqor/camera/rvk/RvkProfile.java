package com.velqor.camera.rvk;

/**
 * Chooses the engine's profile for the captures started afterwards (by
 * {@link VideoRVK#_InitRVK}); a capture under way keeps the one it started with.
 *
 * <p>{@link #EXACT}, the default, runs the engine unchanged. {@link #QUALITY} corrects
 * what spoils real panoramas: small steps read as drift, a sweep starting on sky given
 * up, and colour fringes at seams when half the frame width is odd, among others; through
 * the binding it also reports failures truthfully (see {@link VideoRVK}). Call it from the
 * thread that drives the captures.
 */
public final class RvkProfile {
  public static final int EXACT = 0;
  public static final int QUALITY = 1;

  static {
    System.loadLibrary("lumivex");
  }

  private RvkProfile() {}

  /** Unknown values are ignored. */
  public static native void select(int profile);
}
