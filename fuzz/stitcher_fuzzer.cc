// The direct image stitcher, the image stitcher and the image blender driven directly:
// canvases of any size and direction, frames with any offsets, overlaps and seams.
#include <algorithm>
#include <optional>

#include "fuzz/fuzz_support.h"

namespace {

using lumivex::fuzz::CallerImage;
using lumivex::fuzz::GuardedBuffer;
using lumivex::fuzz::Input;

void Direct(Input& in, MHandle mem, GuardedBuffer& work) {
  static constexpr std::uint32_t kCanvasFormats[] = {0x802, 0x601, 0x801, 0x803,
                                                     0x501, 0x701, 0x999};
  const std::uint32_t format = in.Pick(kCanvasFormats);
  const std::int32_t direction = in.Range(-1, 4);
  const std::int32_t fw = 2 * in.Range(0, 80), fh = 2 * in.Range(0, 60);
  const std::int32_t cw = in.Range(0, 3) == 0 ? in.Edgy(-4, 600) : fw * in.Range(1, 4);
  const std::int32_t ch = in.Range(0, 3) == 0 ? in.Edgy(-4, 600) : fh * in.Range(1, 4);
  // From the process heap a canvas of tens of megapixels is the host's request; it only
  // slows the run down (every pixel is read back at the end).
  if (mem == nullptr && std::int64_t{cw} * ch > (4 << 20)) return;
  ZMOSDIRECTSTITCHER* dis = nullptr;
  if (ZMOSCreateDirectImageStitcher_DIS(&dis, cw, ch, format, direction, in.Edgy(-2, 40), mem) !=
      0) {
    ZMOSReleaseDirectImageStitcher_DIS(&dis);
    return;
  }
  if (in.Bool()) ZMOSSetCrossMargin_DIS(dis, in.Edgy(-8, 64), in.Edgy(-8, 64));
  std::int64_t x = 0, y = 0;
  for (int k = in.Range(0, 40); k > 0 && in.left() > 0; --k) {
    CallerImage frame(in.Range(0, 15) == 0 ? in.Pick(lumivex::fuzz::kFormats) : format,
                      in.Range(0, 15) == 0 ? in.Range(0, 200) : fw, fh, in.Range(0, 5), in);
    if (!frame.ok()) break;
    const std::int32_t dx = in.Range(0, 7) == 0 ? in.Edgy(-80, 80) : in.Range(-4, 24);
    const std::int32_t dy = in.Range(0, 7) == 0 ? in.Edgy(-80, 80) : in.Range(-3, 3);
    x += dx;
    y += dy;
    frame.CutFromScene(x, y);
    frame.Snapshot();
    const std::int32_t offset[2] = {dx, dy};
    ZMOSAddImage_DIS(dis, frame.get(), offset, in.Edgy(-2, 40), in.Edgy(-4, 200), in.Edgy(-2, 60),
                     in.Range(0, 9) == 0);
    frame.CheckUnchanged("adding a frame changed it");
    work.CheckGuards("work memory after adding a frame");
  }
  if (in.Bool()) ZMOSStitchBlendImage_DIS(dis);
  ZMOSRECT r{};
  ZMOSGetValidRect_DIS(dis, &r);
  ZMOSIMAGE* result = nullptr;
  ZMOSGetResultImage_DIS(dis, &result);
  lumivex::fuzz::TouchImage(result);
  if (in.Bool()) {
    ZMOSReleasePartialDirectImageStitcher_DIS(&dis);
    if (dis != nullptr) ZMOSGetResultImage_DIS(dis, &result);
  }
  ZMOSReleaseDirectImageStitcher_DIS(&dis);
  work.CheckGuards("work memory after the direct stitcher");
}

void Recording(Input& in, MHandle mem, GuardedBuffer& work) {
  static constexpr std::uint32_t kFormats[] = {0x802, 0x601, 0x501, 0x701, 0x999};
  const std::uint32_t format = in.Pick(kFormats);
  const std::int32_t direction = in.Range(-1, 4);
  const std::int32_t fw = 2 * in.Range(0, 80), fh = 2 * in.Range(0, 60);
  ZMOSIMAGESTITCHER* isr = nullptr;
  const std::int32_t rw = in.Range(0, 3) == 0 ? in.Edgy(-4, 900) : fw * in.Range(1, 5);
  const std::int32_t rh = in.Range(0, 3) == 0 ? in.Edgy(-4, 400) : fh;
  if (mem == nullptr && std::int64_t{rw} * rh > (4 << 20)) return;
  if (ZMOSCreateImageStitcher_ISR(&isr, rw, rh, format, direction, in.Edgy(-2, 30), mem) != 0) {
    ZMOSReleaseImageStitcher_ISR(&isr);
    return;
  }
  std::int64_t x = 0;
  for (int k = in.Range(0, 30); k > 0 && in.left() > 0; --k) {
    CallerImage frame(format, fw, fh, in.Range(0, 5), in);
    if (!frame.ok()) break;
    const std::int32_t dx = in.Range(0, 7) == 0 ? in.Edgy(-80, 80) : in.Range(2, 24);
    x += dx;
    frame.CutFromScene(x, in.Range(0, 4));
    frame.Snapshot();
    const std::int32_t offset[2] = {dx, in.Range(-2, 2)};
    ZMOSAddImage_ISR(isr, frame.get(), offset, in.Edgy(-2, 40), in.Edgy(-4, 200), in.Edgy(-2, 60));
    frame.CheckUnchanged("recording a frame changed it");
    work.CheckGuards("work memory after recording a frame");
  }
  if (in.Bool()) ZMOSStitchBlendImage_ISR(isr);
  ZMOSRECT r{};
  ZMOSGetValidRect_ISR(isr, &r);
  ZMOSIMAGE* result = nullptr;
  ZMOSGetResultImage_ISR(isr, &result);
  lumivex::fuzz::TouchImage(result);
  ZMOSReleaseImageStitcher_ISR(&isr);
  work.CheckGuards("work memory after the image stitcher");
}

void Blender(Input& in, MHandle mem, GuardedBuffer& work) {
  static constexpr std::uint32_t kFormats[] = {0x802, 0x601, 0x501, 0x999};
  const std::uint32_t format = in.Pick(kFormats);
  CallerImage result(format, in.Range(0, 400), in.Range(0, 100), in.Range(0, 5), in);
  if (!result.ok()) return;
  ZMOSIMAGEBLENDER* sbi = nullptr;
  if (ZMOSCreateImageBlender_SBI(&sbi, in.Bool() ? result.get() : nullptr, in.Range(-1, 3),
                                 in.Edgy(-2, 60), in.U32(), mem) != 0) {
    ZMOSReleaseImageBlender_SBI(&sbi);
    return;
  }
  for (int k = in.Range(0, 20); k > 0 && in.left() > 0; --k) {
    if (in.Range(0, 7) == 0) ZMOSSetDirection_SBI(sbi, in.Range(-1, 3));
    CallerImage frame(format, in.Range(0, 120), result.get()->lHeight + in.Range(-2, 2),
                      in.Range(0, 3), in);
    if (!frame.ok()) break;
    frame.CutFromScene(in.Range(0, 1000), 0);
    frame.Snapshot();
    const ZMOSRECT rect{in.Range(-2, 20), in.Range(-2, 4), in.Range(0, 130), in.Range(0, 110)};
    const std::int32_t offset[2] = {in.Edgy(-10, 40), in.Edgy(-3, 3)};
    ZMOSImageBlenderRun_SBI(sbi, frame.get(), in.Bool() ? &rect : nullptr, offset, in.Edgy(-4, 130),
                            in.Edgy(-4, 130));
    frame.CheckUnchanged("the blender changed a frame");
    result.CheckPadding("the blender wrote outside the result's pixels");
    work.CheckGuards("work memory after the blender");
  }
  ZMOSRECT r{};
  ZMOSGetValidRect_SBI(sbi, &r);
  if (in.Bool()) ZMOSCropResultImage_SBI(sbi);
  ZMOSReleaseImageBlender_SBI(&sbi);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  const bool arena = in.Range(0, 3) != 0;
  GuardedBuffer work(arena ? static_cast<std::size_t>(in.Range(64, 3 << 20)) : 0);
  MHandle mem =
      arena ? MMemMgrCreate(work.data(), static_cast<std::int32_t>(work.size())) : nullptr;
  switch (in.Range(0, 2)) {
    case 0:
      Direct(in, mem, work);
      break;
    case 1:
      Recording(in, mem, work);
      break;
    default:
      Blender(in, mem, work);
      break;
  }
  // A table a failed blend left in this buffer goes with it, as a host would do.
  ZMOSSetBlendTableBufferHeadle(mem);
  ZMOSReleaseBlendTable();
  return 0;
}
