// Image objects: region copies, clones, in-place crops, lists and the image stack, on
// caller images of every format with any rectangle.
#include "fuzz/fuzz_support.h"

namespace {

using lumivex::fuzz::CallerImage;
using lumivex::fuzz::Check;
using lumivex::fuzz::GuardedBuffer;
using lumivex::fuzz::Input;

ZMOSRECT Rect(Input& in) {
  if (in.Range(0, 7) == 0)
    return ZMOSRECT{in.Edgy(-4, 4), in.Edgy(-4, 4), in.Edgy(-4, 200), in.Edgy(-4, 200)};
  const std::int32_t l = in.Range(-2, 120), t = in.Range(-2, 90);
  return ZMOSRECT{l, t, l + in.Range(-1, 130), t + in.Range(-1, 100)};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  const bool arena = in.Bool();
  GuardedBuffer work(arena ? static_cast<std::size_t>(in.Range(64, 1 << 20)) : 0);
  MHandle mem =
      arena ? MMemMgrCreate(work.data(), static_cast<std::int32_t>(work.size())) : nullptr;
  const std::uint32_t format = in.Pick(lumivex::fuzz::kFormats);
  const std::uint32_t format2 = in.Range(0, 7) == 0 ? in.Pick(lumivex::fuzz::kFormats) : format;
  CallerImage dst(format, in.Range(-1, 130), in.Range(-1, 100), in.Range(0, 7), in);
  CallerImage src(format2, in.Range(-1, 130), in.Range(-1, 100), in.Range(0, 7), in);
  if (!dst.ok() || !src.ok()) return 0;
  ZMOSIMAGELINK link{};
  ZMOSIMAGESTACK* stack = nullptr;
  if (in.Bool()) ZMOSCreateImageStack_SIS(&stack, in.Edgy(-1, 6), mem);
  for (int k = in.Range(1, 12); k > 0 && in.left() > 0; --k) {
    const ZMOSRECT r1 = Rect(in), r2 = Rect(in);
    // Clones and list copies are sized by the rectangle: from the process heap one of
    // millions of pixels a side really asks for gigabytes, the host's request, not a fault.
    auto huge = [](const ZMOSRECT& r) {
      return std::int64_t{r.lRight} - r.lLeft > 4096 || std::int64_t{r.lBottom} - r.lTop > 4096;
    };
    if (mem == nullptr && (huge(r1) || huge(r2))) continue;
    src.Snapshot();
    ZMOSIMAGE* owned = nullptr;
    switch (in.Range(0, 9)) {
      case 0:
        ZMOSCopyImageROI_AOD(dst.get(), in.Bool() ? &r1 : nullptr, src.get(),
                             in.Bool() ? &r2 : nullptr);
        break;
      case 1:
        ZMOSCopyImageROIOddRect_AOD(dst.get(), &r1, src.get(), in.Bool() ? &r2 : nullptr);
        break;
      case 2:
        ZMOSCopyImage_AOD(dst.get(), src.get());
        break;
      case 3:
        if (ZMOSCloneImage_AOD(&owned, src.get(), mem) == 0) lumivex::fuzz::TouchImage(owned);
        break;
      case 4:
        if (ZMOSCloneImageROI_AOD(&owned, src.get(), in.Bool() ? &r1 : nullptr, mem) == 0)
          lumivex::fuzz::TouchImage(owned);
        break;
      case 5: {
        // Crops work in place on an image the library made.
        if (ZMOSCloneImage_AOD(&owned, src.get(), mem) == 0) {
          if (in.Bool()) {
            ZMOSCropImage_AOD(owned, &r1);
          } else {
            ZMOSCropImageContinueBuffer_AOD(owned, &r1);
          }
          lumivex::fuzz::TouchImage(owned);
        }
        ZMOSFreeImage_AOD(&owned, mem);
        break;
      }
      case 6:
        ZMOSInsertImageToLink_AOD(&link, src.get(), in.I32(), in.I32(), mem);
        break;
      case 7:
        ZMOSInsertImageToLinkROI_AOD(&link, src.get(), in.Bool() ? &r1 : nullptr, in.I32(),
                                     in.I32(), mem);
        break;
      case 8:
        ZMOSAddImageIntoStack_SIS(stack, src.get(), in.I32(), in.I32(), in.I32(), in.I32(),
                                  in.I32(), in.Bool() ? &r1 : nullptr);
        break;
      default: {
        ZMOSIMAGE* got = nullptr;
        std::int32_t a, b, c, d, e, last = 0;
        if (ZMOSGetImageFromStack_SIS(stack, &got, &a, &b, &c, &d, &e, &last) == 0)
          lumivex::fuzz::TouchImage(got);
        break;
      }
    }
    if (owned != nullptr) ZMOSFreeImage_AOD(&owned, mem);
    src.CheckUnchanged("an image operation changed its source");
    dst.CheckPadding("an image operation wrote outside the destination's pixels");
    work.CheckGuards("work memory");
  }
  ZMOSFreeImageLink_AOD(&link, mem);
  ZMOSReleaseImageStack_SIS(&stack);
  Check(stack == nullptr, "release clears the stack handle");
  work.CheckGuards("work memory at the end");
  return 0;
}
