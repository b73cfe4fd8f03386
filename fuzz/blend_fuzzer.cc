// The blends and their exported steps on caller images of any format, size, padding and
// rectangle, with the engine-wide table created, released and repointed in between.
#include <algorithm>
#include <vector>

#include "fuzz/fuzz_support.h"

namespace {

using lumivex::fuzz::CallerImage;
using lumivex::fuzz::Check;
using lumivex::fuzz::GuardedBuffer;
using lumivex::fuzz::Input;

ZMOSRECT Rect(Input& in, std::int32_t w, std::int32_t h) {
  if (in.Range(0, 15) == 0)
    return ZMOSRECT{in.Edgy(-8, 8), in.Edgy(-8, 8), in.Edgy(-8, 300), in.Edgy(-8, 300)};
  const std::int32_t l = in.Range(-2, std::max(w, 0)), t = in.Range(-2, std::max(h, 0));
  return ZMOSRECT{l, t, l + in.Range(0, std::max(w, 0) + 2), t + in.Range(0, std::max(h, 0) + 2)};
}

// A work-memory manager over a guarded buffer of the input's size, or the process heap.
struct Memory {
  explicit Memory(Input& in) : buffer(in.Bool() ? in.Range(0, 1 << 18) : 0) {
    if (buffer.size() > 0)
      handle = MMemMgrCreate(buffer.data(), static_cast<std::int32_t>(buffer.size()));
  }
  GuardedBuffer buffer;
  MHandle handle = nullptr;
};

void TableOps(Input& in, Memory& mem) {
  switch (in.Range(0, 5)) {
    case 0:
      ZMOSCreateBlendTable(in.Edgy(-4, 600), mem.handle);
      break;
    case 1:
      ZMOSReleaseBlendTable();
      break;
    case 2:
      ZMOSSetBlendTableBufferHeadle(in.Bool() ? mem.handle : nullptr);
      break;
    case 3:
      ZMOSSetPathSearchThreshold(in.U32());
      break;
    default:
      break;
  }
}

// The exported steps over buffers of exactly the extents they are told.
void Steps(Input& in, Memory& mem) {
  const std::int32_t w = in.Range(0, 300), h = in.Range(0, 300);
  const std::int32_t p1 = w + in.Range(0, 5), p2 = w + in.Range(0, 5);
  std::vector<std::uint8_t> first(static_cast<std::size_t>(p1) * h + 1),
      second(static_cast<std::size_t>(p2) * h + 1);
  for (auto& b : second) b = in.Byte();
  const std::vector<std::uint8_t> second_before = second;
  const bool t2b = in.Bool();
  std::vector<std::int32_t> path(static_cast<std::size_t>(t2b ? w : h) + 1);
  for (auto& v : path) v = in.Range(0, 3) == 0 ? in.Edgy(-5, 5) : in.Range(-2, (t2b ? h : w) + 2);
  const std::int32_t band = in.Edgy(-4, 600), side = in.Range(-1, 2);
  if (t2b) {
    BlendLumaAlongSeamT2B(first.data(), second.data(), p1, p2, w, h, path.data(), band, side,
                          mem.handle);
  } else {
    BlendPlaneAlongSeam(first.data(), second.data(), p1, p2, w, h, path.data(), band, side,
                        mem.handle);
  }
  Check(second == second_before, "a luma step changed its second plane");
  if (w > 0 && h > 0 && in.Bool()) {
    std::vector<std::uint8_t> map(static_cast<std::size_t>(w) * h);
    for (auto& b : map) b = in.Byte();
    std::vector<std::int32_t> seam(static_cast<std::size_t>(h), in.I32());
    SearchSeamPath(seam.data(), map.data(), w, h, mem.handle);
  }
}

void Blends(Input& in, Memory& mem) {
  const std::uint32_t format = in.Pick(lumivex::fuzz::kFormats);
  const std::uint32_t format2 = in.Range(0, 15) == 0 ? in.Pick(lumivex::fuzz::kFormats) : format;
  CallerImage a(format, in.Range(-1, 260), in.Range(-1, 200), in.Range(0, 9), in);
  CallerImage b(format2, in.Range(-1, 260), in.Range(-1, 200), in.Range(0, 9), in);
  if (!a.ok() || !b.ok()) return;
  if (in.Range(0, 15) == 0) a.get()->pPlane[1 + in.Range(0, 1)] = nullptr;
  if (in.Range(0, 15) == 0) b.get()->pPlane[1 + in.Range(0, 1)] = nullptr;
  const ZMOSRECT r1 = Rect(in, a.get()->lWidth, a.get()->lHeight);
  // Often the same size as the first rectangle, placed anywhere near the second image.
  auto clamp32 = [](std::int64_t v) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(v, INT32_MIN, INT32_MAX));
  };
  const std::int32_t x2 = in.Range(-2, 40), y2 = in.Range(-2, 40);
  const ZMOSRECT r2 = in.Bool() ? ZMOSRECT{x2, y2, clamp32(std::int64_t{x2} + r1.lRight - r1.lLeft),
                                           clamp32(std::int64_t{y2} + r1.lBottom - r1.lTop)}
                                : Rect(in, b.get()->lWidth, b.get()->lHeight);
  const std::int32_t side = in.Range(-1, 2);
  const int op = in.Range(0, 6);
  // Tables and maps are sized by the overlap: from the process heap, an overlap of
  // millions of rows really asks for gigabytes. That is the host's request, not a fault.
  // (The blend image works on the second rectangle when its flag is set.)
  auto size = [](const ZMOSRECT& r) {
    return std::max(std::int64_t{r.lRight} - r.lLeft, std::int64_t{r.lBottom} - r.lTop);
  };
  const std::int64_t extent = std::max(size(r1), size(r2));
  if (mem.handle == nullptr && extent > (1 << 16)) return;
  if (op != 2) b.Snapshot();
  switch (op) {
    case 0:
      ZMOSBlendImageOdd_AME(a.get(), in.Bool() ? &r1 : nullptr, b.get(), &r2, side, mem.handle);
      break;
    case 1:
      ZMOSBlendImageOddT2B_AME(a.get(), &r1, b.get(), in.Bool() ? &r2 : nullptr, side, mem.handle);
      break;
    case 2: {
      // Flag nonzero writes into the second image.
      const std::int32_t res =
          ZMOSBlendImage_AME(a.get(), r1, b.get(), r2, in.Range(0, 2), mem.handle);
      (void)res;
      b.CheckPadding("blend image wrote outside the second image's pixels");
      break;
    }
    case 3:
      BlendPlanarChroma(a.get(), b.get(), &r1, &r2, nullptr, side, mem.handle);
      break;
    case 4:
      BlendInterleavedChroma(a.get(), b.get(), &r1, &r2, nullptr, side, mem.handle);
      break;
    case 5:
      BlendInterleavedChromaT2B(a.get(), b.get(), &r1, &r2, nullptr, side, mem.handle);
      break;
    default: {
      const std::int64_t w = std::int64_t{r1.lRight} - r1.lLeft,
                         h = std::int64_t{r1.lBottom} - r1.lTop;
      if (w > 0 && h > 0 && w < 4096 && h < 4096 && w * h < (1 << 20)) {
        std::vector<std::uint8_t> map(static_cast<std::size_t>(w * h));
        ComputeLumaDiffMap(a.get(), b.get(), &r1, &r2.lLeft, map.data());
      }
      break;
    }
  }
  if (op != 2) b.CheckUnchanged("a blend changed its second image");
  a.CheckPadding("a blend wrote outside the first image's pixels");
  a.Touch();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  Memory mem(in);
  for (int k = in.Range(1, 6); k > 0 && in.left() > 0; --k) {
    TableOps(in, mem);
    if (in.Bool()) {
      Blends(in, mem);
    } else {
      Steps(in, mem);
    }
    mem.buffer.CheckGuards("work memory");
  }
  // The table may live in this input's buffer, which is about to go: as a host would,
  // hand it back while the buffer still exists.
  ZMOSSetBlendTableBufferHeadle(mem.handle);
  ZMOSReleaseBlendTable();
  return 0;
}
