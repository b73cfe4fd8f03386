import android.graphics.Bitmap;
import androidx.camera.core.ImageProxy;
import com.velqor.camera.rvk.MPanoInfo;
import com.velqor.camera.rvk.RvkCaptureListener;
import com.velqor.camera.rvk.RvkLog;
import com.velqor.camera.rvk.RvkPanorama;
import com.velqor.camera.rvk.RvkProfile;
import com.velqor.camera.rvk.RvkYuvFrames;
import com.velqor.camera.rvk.VideoRVK;
import com.velqor.camera.rvk.desktop.HostKit;
import java.io.DataInputStream;
import java.io.FileInputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/**
 * Drives whole captures through the four native methods in a real JVM, with frames a
 * simulated sweep wrote, and checks the notifications. Exits non-zero on any failure.
 */
public final class RvkCaptureTest {
  private static int failures = 0;

  private static void check(boolean ok, String what) {
    System.out.println((ok ? "ok   " : "FAIL ") + what);
    if (!ok) failures++;
  }

  /** Every notification of one capture. */
  private static final class Recorder implements VideoRVK.Listener {
    final List<Integer> ids = new ArrayList<>();
    final List<Object> data = new ArrayList<>();

    @Override
    public int onNotify(int msg, Object d) {
      ids.add(msg);
      data.add(d);
      return 0;
    }

    int count(int id) {
      int n = 0;
      for (int i : ids) if (i == id) n++;
      return n;
    }

    Object last(int id) {
      for (int i = ids.size() - 1; i >= 0; i--) if (ids.get(i) == id) return data.get(i);
      return null;
    }
  }

  private static int width, height;

  /** 4:2:0 Y4M frames as NV21. */
  private static List<byte[]> readY4m(String path) throws IOException {
    List<byte[]> frames = new ArrayList<>();
    try (DataInputStream in = new DataInputStream(new FileInputStream(path))) {
      String header = readLine(in);
      for (String word : header.split(" ")) {
        if (word.startsWith("W")) width = Integer.parseInt(word.substring(1));
        if (word.startsWith("H")) height = Integer.parseInt(word.substring(1));
      }
      int luma = width * height, chroma = luma / 4;
      byte[] i420 = new byte[luma + 2 * chroma];
      for (String line = readLine(in); line != null && line.startsWith("FRAME"); line = readLine(in)) {
        in.readFully(i420);
        byte[] nv21 = new byte[luma + 2 * chroma];
        System.arraycopy(i420, 0, nv21, 0, luma);
        for (int i = 0; i < chroma; i++) {
          nv21[luma + 2 * i] = i420[luma + chroma + i]; // V
          nv21[luma + 2 * i + 1] = i420[luma + i]; // U
        }
        frames.add(nv21);
      }
    }
    return frames;
  }

  private static String readLine(DataInputStream in) throws IOException {
    StringBuilder sb = new StringBuilder();
    int c;
    while ((c = in.read()) != -1 && c != '\n') sb.append((char) c);
    return c == -1 && sb.length() == 0 ? null : sb.toString();
  }

  /** The panorama as the host reads it (standard NV21) equals the engine's own stitch. */
  private static boolean sameAsReference(Object token, byte[] reference) {
    RvkPanorama pano = RvkPanorama.from(token);
    byte[] nv21 = pano != null ? pano.toNv21() : null;
    if (nv21 == null || reference == null) return false;
    ByteBuffer ref = ByteBuffer.wrap(reference);
    int w = ref.getInt(), h = ref.getInt();
    if (pano.width != w || pano.height != h) {
      System.out.println("  result " + pano.width + "x" + pano.height + ", reference " + w + "x" + h);
      return false;
    }
    return Arrays.equals(nv21, Arrays.copyOfRange(reference, 8, reference.length));
  }

  /** The ARGB_8888 bitmap: the panorama's size, and pixels from the BT.601 formula (+-1). */
  private static boolean bitmapMatches(RvkPanorama pano) {
    Bitmap b = pano.toBitmap();
    byte[] nv21 = pano.toNv21();
    if (b == null || b.getConfig() != Bitmap.Config.ARGB_8888 || b.getWidth() != pano.width
        || b.getHeight() != pano.height) return false;
    byte[] px = b.getPixelBytes();
    int w = pano.width;
    for (int y = 0; y < pano.height; y += 7) {
      for (int x = 0; x < w; x += 5) {
        int yy = nv21[y * w + x] & 0xFF;
        int at = w * pano.height + (y / 2) * w + (x & ~1);
        double v = (nv21[at] & 0xFF) - 128.0, u = (nv21[at + 1] & 0xFF) - 128.0;
        double[] rgb = {yy + 1.402 * v, yy - 0.344136 * u - 0.714136 * v, yy + 1.772 * u};
        for (int c = 0; c < 3; c++) {
          long want = Math.max(0, Math.min(255, Math.round(rgb[c])));
          if (Math.abs((px[4 * (y * w + x) + c] & 0xFF) - want) > 1) return false;
        }
        if (px[4 * (y * w + x) + 3] != (byte) 255) return false;
      }
    }
    return true;
  }

  /** Feeds frames until the capture ends; returns the last status. */
  private static int feed(int key, List<byte[]> frames, Recorder rec) {
    int status = 0;
    for (byte[] f : frames) {
      status = VideoRVK._ProcessRVK(key, f, width, height);
      if (status != 0 || rec.count(2) > 0 || rec.count(3) > 0) break;
    }
    return status;
  }

  /** A YUV_420_888 image of an NV21 frame, rows padded, chroma in the given layout. */
  private static final class Yuv implements ImageProxy {
    final PlaneProxy[] planes = new PlaneProxy[3];

    /** layout 0: interleaved V first (NV21); 1: interleaved U first (NV12); 2: planar. */
    Yuv(byte[] nv21, int layout) {
      int pad = 24, ys = width + pad, cw = width / 2, ch = height / 2;
      ByteBuffer y = ByteBuffer.allocateDirect(ys * (height - 1) + width);
      for (int r = 0; r < height; r++) {
        y.position(r * ys);
        y.put(nv21, r * width, width);
      }
      planes[0] = plane(y, ys, 1);
      int luma = width * height;
      if (layout < 2) {
        int cs = width + pad;
        ByteBuffer both = ByteBuffer.allocateDirect(cs * (ch - 1) + width);
        for (int r = 0; r < ch; r++) {
          for (int c = 0; c < cw; c++) {
            byte v = nv21[luma + r * width + 2 * c], u = nv21[luma + r * width + 2 * c + 1];
            both.put(r * cs + 2 * c, layout == 0 ? v : u);
            both.put(r * cs + 2 * c + 1, layout == 0 ? u : v);
          }
        }
        ByteBuffer first = slice(both, 0, both.capacity() - 1);
        ByteBuffer second = slice(both, 1, both.capacity() - 1);
        planes[1] = plane(layout == 0 ? second : first, cs, 2);
        planes[2] = plane(layout == 0 ? first : second, cs, 2);
      } else {
        int cs = cw + 8;
        ByteBuffer u = ByteBuffer.allocateDirect(cs * (ch - 1) + cw);
        ByteBuffer v = ByteBuffer.allocateDirect(cs * (ch - 1) + cw);
        for (int r = 0; r < ch; r++) {
          for (int c = 0; c < cw; c++) {
            v.put(r * cs + c, nv21[luma + r * width + 2 * c]);
            u.put(r * cs + c, nv21[luma + r * width + 2 * c + 1]);
          }
        }
        planes[1] = plane(u, cs, 1);
        planes[2] = plane(v, cs, 1);
      }
    }

    private static ByteBuffer slice(ByteBuffer b, int from, int length) {
      ByteBuffer d = b.duplicate();
      d.position(from);
      d.limit(from + length);
      return d.slice();
    }

    private static PlaneProxy plane(ByteBuffer b, int rowStride, int pixelStride) {
      b.rewind();
      return new PlaneProxy() {
        @Override public int getRowStride() { return rowStride; }
        @Override public int getPixelStride() { return pixelStride; }
        @Override public ByteBuffer getBuffer() { return b; }
      };
    }

    @Override public int getFormat() { return RvkYuvFrames.YUV_420_888; }
    @Override public int getWidth() { return width; }
    @Override public int getHeight() { return height; }
    @Override public PlaneProxy[] getPlanes() { return planes; }
    @Override public void close() {}
  }

  /** The panorama of a whole capture fed through YUV_420_888 images of one layout. */
  private static byte[] yuvCapture(List<byte[]> frames, int layout) {
    Recorder rec = new Recorder();
    int key = VideoRVK._InitRVK(null, new VideoRVK(rec), 30, width, height);
    for (byte[] f : frames) {
      if (RvkYuvFrames.process(key, new Yuv(f, layout)) != 0 || rec.count(2) > 0) break;
    }
    RvkPanorama pano = rec.count(2) == 1 ? RvkPanorama.from(rec.last(2)) : null;
    byte[] nv21 = pano != null ? pano.toNv21() : null;
    VideoRVK._UninitRVK(key);
    return nv21;
  }

  /** Under the quality profile the binding tells failures as failures. */
  private static void qualityBinding(List<byte[]> frames) {
    // A moment of haste: twelve frames skipped at once.
    List<byte[]> hasty = new ArrayList<>(frames.subList(0, 20));
    hasty.addAll(frames.subList(32, frames.size()));
    // The exact profile ends there, reports 180 degrees and stitches what it had.
    Recorder exact = new Recorder();
    int key = VideoRVK._InitRVK(null, new VideoRVK(exact), 30, width, height);
    feed(key, hasty, exact);
    RvkPanorama short_ = exact.count(2) == 1 ? RvkPanorama.from(exact.last(2)) : null;
    MPanoInfo exactLast = (MPanoInfo) exact.last(1);
    check(short_ != null && short_.width < 2 * width && exactLast != null && exactLast.angle == 180,
        "exact: a too-fast sweep ends with 180 degrees and a short panorama");
    VideoRVK._UninitRVK(key);

    RvkProfile.select(RvkProfile.QUALITY);
    Recorder host = new Recorder();
    check(VideoRVK._InitRVK(null, new VideoRVK(host), 30, 321, 240) == 0,
        "quality: an odd width gives no handle");
    check(VideoRVK._InitRVK(null, new VideoRVK(host), 30, 20000, 20000) == 0,
        "quality: a size no buffer can hold gives no handle");

    // The capture goes on and completes.
    Recorder fast = new Recorder();
    key = VideoRVK._InitRVK(null, new VideoRVK(fast), 30, width, height);
    int status = feed(key, hasty, fast);
    MPanoInfo fastLast = (MPanoInfo) fast.last(1);
    check(status == 0 && fast.count(2) == 1 && fast.count(3) == 0 && fastLast != null
            && fastLast.angle >= 180,
        "quality: a too-fast sweep completes: " + fastLast);
    VideoRVK._UninitRVK(key);

    // Turning back mid-sweep: notification 3 with the engine's reason, no panorama, and
    // onFailure(reason) through the typed listener.
    int[] reason = {0};
    Recorder turned = new Recorder();
    key = VideoRVK._InitRVK(null, new VideoRVK(turned), 30, width, height);
    for (int k = 0; k < 25; k++) VideoRVK._ProcessRVK(key, frames.get(k), width, height);
    status = 0;
    for (int k = 23; k >= 0 && status == 0; k -= 3) {
      status = VideoRVK._ProcessRVK(key, frames.get(k), width, height);
    }
    check(status == VideoRVK.FAILURE_SWEEP_WENT_WRONG && turned.count(2) == 0
            && Integer.valueOf(VideoRVK.FAILURE_SWEEP_WENT_WRONG).equals(turned.last(3)),
        "quality: turning back ends with notification 3 and its reason: " + turned.last(3));
    MPanoInfo turnedLast = (MPanoInfo) turned.last(1);
    check(turnedLast == null || turnedLast.angle < 180, "quality: no fake angle of 180");
    VideoRVK._UninitRVK(key);
    key = VideoRVK._InitRVK(null, new VideoRVK(new RvkCaptureListener() {
      @Override public void onProgress(MPanoInfo info) {}
      @Override public void onPanorama(RvkPanorama panorama) {}
      @Override public void onFailure(int why) { reason[0] = why; }
    }), 30, width, height);
    for (int k = 0; k < 25; k++) VideoRVK._ProcessRVK(key, frames.get(k), width, height);
    for (int k = 23; k >= 0 && reason[0] == 0; k -= 3) {
      VideoRVK._ProcessRVK(key, frames.get(k), width, height);
    }
    check(reason[0] == VideoRVK.FAILURE_SWEEP_WENT_WRONG, "quality: onFailure(reason) " + reason[0]);
    VideoRVK._UninitRVK(key);

    // YUV_420_888 with padded rows, in every chroma layout, gives the NV21 capture's panorama.
    Recorder packed = new Recorder();
    key = VideoRVK._InitRVK(null, new VideoRVK(packed), 30, width, height);
    feed(key, frames, packed);
    RvkPanorama pano = packed.count(2) == 1 ? RvkPanorama.from(packed.last(2)) : null;
    byte[] nv21 = pano != null ? pano.toNv21() : null;
    VideoRVK._UninitRVK(key);
    check(nv21 != null, "quality: the packed NV21 capture completes");
    String[] names = {"V first", "U first", "planar"};
    for (int layout = 0; layout < 3; layout++) {
      check(Arrays.equals(yuvCapture(frames, layout), nv21),
          "YUV_420_888, " + names[layout] + ", padded rows: the NV21 capture's panorama");
    }
    key = VideoRVK._InitRVK(null, new VideoRVK(new Recorder()), 30, width, height);
    ByteBuffer tiny = ByteBuffer.allocateDirect(16);
    check(VideoRVK._ProcessYuvRVK(key, tiny, tiny, tiny, width, width, 2, width, height) == 2
            && VideoRVK._ProcessYuvRVK(key, null, null, null, width, width, 2, width, height) == 2,
        "planes smaller than their strides say are refused with 2");
    VideoRVK._UninitRVK(key);
    RvkProfile.select(RvkProfile.EXACT);
  }

  private static byte[] concat(List<byte[]> frames, int count) {
    int size = frames.get(0).length;
    byte[] all = new byte[size * count];
    for (int i = 0; i < count; i++) System.arraycopy(frames.get(i), 0, all, i * size, size);
    return all;
  }

  public static void main(String[] args) throws IOException {
    List<byte[]> frames = readY4m(args[0]);
    check(frames.size() > 40, "read " + frames.size() + " frames of " + width + "x" + height);

    // A whole capture.
    Recorder rec = new Recorder();
    VideoRVK host = new VideoRVK(rec);
    int key = VideoRVK._InitRVK(null, host, 30, width, height);
    check(key != 0, "init gives a handle");
    int processed = 0, result = 0;
    for (byte[] f : frames) {
      result = VideoRVK._ProcessRVK(key, f, width, height);
      processed++;
      if (rec.count(2) > 0 || result != 0) break;
    }
    check(result == 0, "frames processed without error (" + processed + ")");
    check(rec.count(4) > 0, "preview bitmaps arrived: " + rec.count(4));
    boolean previewsOk = true;
    for (int i = 0; i < rec.ids.size(); i++) {
      if (rec.ids.get(i) != 4) continue;
      Bitmap b = (Bitmap) rec.data.get(i);
      previewsOk &= b.getConfig() == Bitmap.Config.RGB_565 && b.getWidth() == (3 * width) / 6
          && b.getHeight() == height / 6;
    }
    check(previewsOk, "previews are RGB 565 of " + (3 * width) / 6 + "x" + height / 6);
    MPanoInfo last = (MPanoInfo) rec.last(1);
    check(last != null && last.angle == 180 && last.direction == 1,
        "progress reaches 180 degrees left to right: " + last);
    int firstProgress = rec.ids.indexOf(1);
    check(firstProgress > 0 && rec.count(1) > 10, "progress arrives once the direction is known");
    check(rec.count(2) == 1 && rec.count(3) == 0, "the result arrives once");
    Integer resultKey = (Integer) rec.last(2);
    check(resultKey != null && sameAsReference(resultKey,
            HostKit.stitchReference(concat(frames, processed), processed, width, height)),
        "the panorama's NV21 bytes are what ZMOS_Stitch gives for the same frames");
    check(bitmapMatches(RvkPanorama.from(resultKey)), "the panorama as an ARGB_8888 Bitmap");
    check(RvkPanorama.from(12345) == null && RvkPanorama.from("x") == null,
        "a made-up token names no panorama");
    check(VideoRVK._ProcessRVK(key, frames.get(0), width, height) == 5, "a later frame returns 5");
    int before = rec.ids.size();
    HostKit.notifyRaw(key, 0x77);
    check(rec.ids.size() == before, "nothing reaches the host for an unknown id");
    RvkPanorama kept = RvkPanorama.from(resultKey);
    check(VideoRVK._UninitRVK(key) == 0, "uninit returns 0");
    check(VideoRVK._ProcessRVK(key, frames.get(0), width, height) == 2, "a released handle returns 2");
    check(RvkPanorama.from(resultKey) == null && kept.toNv21() == null && kept.toBitmap() == null,
        "the panorama is gone with its capture");

    // The same sweep under the quality profile, chosen for captures started afterwards.
    RvkProfile.select(RvkProfile.QUALITY);
    // Through the typed listener, with the library's logging switched off meanwhile.
    RvkLog.setEnabled(false);
    List<Object> typed = new ArrayList<>();
    key = VideoRVK._InitRVK(null, new VideoRVK(new RvkCaptureListener() {
      @Override public void onProgress(MPanoInfo info) { typed.add(info); }
      @Override public void onPanorama(RvkPanorama panorama) { typed.add(panorama); }
      @Override public void onFailure() { typed.add("failure"); }
    }), 30, width, height);
    for (byte[] f : frames) {
      if (VideoRVK._ProcessRVK(key, f, width, height) != 0
          || (!typed.isEmpty() && typed.get(typed.size() - 1) instanceof RvkPanorama)) break;
    }
    Object end = typed.isEmpty() ? null : typed.get(typed.size() - 1);
    check(end instanceof RvkPanorama && ((RvkPanorama) end).toNv21() != null
            && typed.get(0) instanceof MPanoInfo,
        "a quality capture delivers progress and its panorama to a typed listener");
    RvkLog.setEnabled(true);
    VideoRVK._UninitRVK(key);
    RvkProfile.select(7);  // ignored
    RvkProfile.select(RvkProfile.EXACT);

    // Stopped before any direction was found: the panorama is the first frame.
    Recorder early = new Recorder();
    key = VideoRVK._InitRVK(null, new VideoRVK(early), 0, width, height);
    VideoRVK._ProcessRVK(key, frames.get(0), width, height);
    check(VideoRVK._StopProcessRVK(key) == 0, "stop before a direction stitches");
    check(early.count(2) == 1 && early.count(1) == 0, "a result and no progress");
    check(sameAsReference(early.last(2), HostKit.stitchReference(frames.get(0), 1, width, height)),
        "that result is the first frame");
    VideoRVK._UninitRVK(key);

    // The same sweep played backwards: right to left, tip 2.
    List<byte[]> reversed = new ArrayList<>(frames);
    java.util.Collections.reverse(reversed);
    Recorder back = new Recorder();
    key = VideoRVK._InitRVK(null, new VideoRVK(back), 30, width, height);
    for (byte[] f : reversed) {
      if (VideoRVK._ProcessRVK(key, f, width, height) != 0 || back.count(2) > 0) break;
    }
    MPanoInfo backLast = (MPanoInfo) back.last(1);
    check(back.count(2) == 1 && backLast != null && backLast.direction == 2,
        "a right-to-left sweep completes with tip 2: " + backLast);
    VideoRVK._UninitRVK(key);

    // Turning back mid-sweep is an engine failure: progress jumps to 180 and what was kept
    // is stitched. Stopping again stitches again.
    Recorder turned = new Recorder();
    key = VideoRVK._InitRVK(null, new VideoRVK(turned), 30, width, height);
    int k = 0, status = 0;
    for (; k < 25; k++) VideoRVK._ProcessRVK(key, frames.get(k), width, height);
    for (k -= 2; k >= 0 && turned.count(2) == 0; k -= 3) {
      status = VideoRVK._ProcessRVK(key, frames.get(k), width, height);
    }
    MPanoInfo turnedLast = (MPanoInfo) turned.last(1);
    check(status == 0 && turned.count(2) == 1 && turnedLast != null && turnedLast.angle == 180,
        "turning back ends the capture with 180 degrees and a result: " + turnedLast);
    check(VideoRVK._StopProcessRVK(key) == 0 && VideoRVK._StopProcessRVK(key) == 0
            && turned.count(2) == 3,
        "every stop stitches again and delivers a result");
    VideoRVK._UninitRVK(key);

    // A failed stitch (not reachable with the handler's own buffer sizes) is reported with
    // the failure value 1.
    Recorder failed = new Recorder();
    key = VideoRVK._InitRVK(null, new VideoRVK(failed), 30, width, height);
    HostKit.notifyRaw(key, 3);
    check(failed.ids.size() == 1 && Integer.valueOf(1).equals(failed.last(3)),
        "notification 3 carries Integer 1");
    VideoRVK._UninitRVK(key);

    // maxNumber 31 is clamped like 0 (the log shows m_dwRVKMaxNumber=30 for both).
    key = VideoRVK._InitRVK(null, new VideoRVK((VideoRVK.Listener) null), 31, width, height);
    check(key != 0, "maxNumber 31 initialises");
    VideoRVK._UninitRVK(key);

    check(VideoRVK._InitRVK(null, null, 30, width, height) == 0, "a null host gives 0");
    check(VideoRVK._InitRVK(null, host, 30, 0, height) == 0, "a zero width gives 0");
    check(VideoRVK._InitRVK(null, host, 30, width, 0) == 0, "a zero height gives 0");

    qualityBinding(frames);

    check(HostKit.bitmapOfFormat(0x70000002) == null, "an NV21 bitmap exports as null");
    check(HostKit.bitmapOfFormat(0x50000811) == null, "an I420 bitmap exports as null");
    Object rgb = HostKit.bitmapOfFormat(0x15000454);
    check(rgb instanceof Bitmap && ((Bitmap) rgb).getPixelBytes()[5] == 5, "an RGB 565 bitmap exports with its pixels");

    System.out.println(failures == 0 ? "PASS" : failures + " FAILED");
    System.exit(failures == 0 ? 0 : 1);
  }
}
