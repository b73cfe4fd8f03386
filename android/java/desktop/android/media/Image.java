package android.media;

import java.nio.ByteBuffer;

/** Desktop stand-in for Camera2's Image: only what the binding's helper calls. */
public abstract class Image implements AutoCloseable {
  public abstract int getFormat();

  public abstract int getWidth();

  public abstract int getHeight();

  public abstract Plane[] getPlanes();

  @Override
  public abstract void close();

  /** One plane: its bytes, row stride and pixel stride. */
  public abstract static class Plane {
    public abstract int getRowStride();

    public abstract int getPixelStride();

    public abstract ByteBuffer getBuffer();
  }
}
