package androidx.camera.core;

import java.nio.ByteBuffer;

/** Desktop stand-in for CameraX's ImageProxy: only what the binding's helper calls. */
public interface ImageProxy extends AutoCloseable {
  int getFormat();

  int getWidth();

  int getHeight();

  PlaneProxy[] getPlanes();

  @Override
  void close();

  /** One plane: its bytes, row stride and pixel stride. */
  interface PlaneProxy {
    int getRowStride();

    int getPixelStride();

    ByteBuffer getBuffer();
  }
}
