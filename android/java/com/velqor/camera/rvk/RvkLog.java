package com.velqor.camera.rvk;

/**
 * The library's own log lines (tag "lumivex"): about twenty a frame while capturing, so
 * release builds should switch them off. The switch is process-wide and on by default.
 */
public final class RvkLog {
  static {
    System.loadLibrary("lumivex");
  }

  private RvkLog() {}

  public static native void setEnabled(boolean enabled);
}
