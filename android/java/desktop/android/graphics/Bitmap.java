package android.graphics;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;

/**
 * Desktop stand-in for Android's Bitmap: the size, the config and the pixels in a direct
 * buffer that the desktop AndroidBitmap_lockPixels hands to native code.
 */
public final class Bitmap {
  /** The configs the binding uses, with their bytes per pixel. */
  public enum Config {
    ALPHA_8(1),
    RGB_565(2),
    ARGB_8888(4);

    final int bytes;

    Config(int bytes) {
      this.bytes = bytes;
    }
  }

  private final int width;
  private final int height;
  private final Config config;
  final ByteBuffer pixels;

  private Bitmap(int width, int height, Config config) {
    this.width = width;
    this.height = height;
    this.config = config;
    this.pixels = ByteBuffer.allocateDirect(width * height * config.bytes).order(ByteOrder.LITTLE_ENDIAN);
  }

  public static Bitmap createBitmap(int width, int height, Config config) {
    if (width <= 0 || height <= 0 || config == null) throw new IllegalArgumentException("bad bitmap");
    return new Bitmap(width, height, config);
  }

  public int getWidth() {
    return width;
  }

  public int getHeight() {
    return height;
  }

  public Config getConfig() {
    return config;
  }

  public int getRowBytes() {
    return width * config.bytes;
  }

  public int getBytesPerPixel() {
    return config.bytes;
  }

  /** A copy of the pixel bytes, rows packed. */
  public byte[] getPixelBytes() {
    byte[] out = new byte[pixels.capacity()];
    pixels.duplicate().position(0).get(out);
    return out;
  }
}
