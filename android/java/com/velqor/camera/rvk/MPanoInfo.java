package com.velqor.camera.rvk;

/** Progress of a capture, sent with notification 1. */
public final class MPanoInfo {
  /** Degrees swept so far (0 on frames that were not kept, 180 when complete). */
  public final int angle;
  /** Travel since the direction was found, in preview pixels (y upwards). */
  public final int offsetX;
  public final int offsetY;
  /** One of the {@code VideoRVK.DIRECTION_*} tips: 1 left to right, 2 right to left, 4 top
   * to bottom, 8 bottom to top, 0 unknown. */
  public final int direction;
  /** 1 when this frame was kept. */
  public final int kept;

  public MPanoInfo(int angle, int offsetX, int offsetY, int direction, int kept) {
    this.angle = angle;
    this.offsetX = offsetX;
    this.offsetY = offsetY;
    this.direction = direction;
    this.kept = kept;
  }

  @Override
  public String toString() {
    return "MPanoInfo(angle=" + angle + ", offset=" + offsetX + "," + offsetY + ", direction="
        + direction + ", kept=" + kept + ")";
  }
}
