// Runs a fixed piece of work so that an instruction counter (callgrind on x86, the qemu
// plugin beside this file on ARM) can measure it: the difference between two modes over
// the same setup is the cost of what one mode adds.
//   frame_cost MODE WIDTH HEIGHT FRAMES [exact|quality]
//   MODE: setup   build the scene and the engine only
//         frames  ... then FRAMES preview frames, as a phone host feeds them
//         floor   ... then read every luma byte of FRAMES frames once
//         sweep   ... then a whole 180-degree sweep (FRAMES is ignored)
//         stitch  ... then a whole sweep and its stitch
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "bench/bench_scene.h"

namespace {

// One pass that reads each luma byte once: the least any per-frame path can cost.
__attribute__((noinline)) std::uint64_t ReadLuma(const ZMOSIMAGE& frame) {
  std::uint64_t acc = 0;
  for (int y = 0; y < frame.lHeight; ++y) {
    const std::uint8_t* row = frame.pPlane[0] + static_cast<std::ptrdiff_t>(y) * frame.lPitch[0];
    for (int x = 0; x + 8 <= frame.lWidth; x += 8) {
      std::uint64_t v;
      std::memcpy(&v, row + x, 8);
      acc += v;
    }
  }
  return acc;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fputs(
        "usage: frame_cost setup|frames|floor|sweep|stitch WIDTH HEIGHT FRAMES "
        "[exact|quality]\n",
        stderr);
    return 1;
  }
  const char* mode = argv[1];
  const int w = std::atoi(argv[2]), h = std::atoi(argv[3]), frames = std::atoi(argv[4]);
  const std::int32_t profile =
      argc > 5 && std::strcmp(argv[5], "quality") == 0 ? ZMOS_PROFILE_QUALITY : ZMOS_PROFILE_EXACT;
  const int step = std::max(4, w / 48);
  const bool whole = std::strcmp(mode, "sweep") == 0 || std::strcmp(mode, "stitch") == 0;
  lumivex::bench::Scene scene(w + std::max(step * frames, 3 * w) + 64, h + 64);
  auto engine = std::make_unique<lumivex::bench::Engine>(w, h, profile);
  std::uint64_t sink = 0;
  if (std::strcmp(mode, "setup") != 0) {
    for (int k = 0; whole ? step * k + w <= scene.width && engine->angle < 180 : k < frames; ++k) {
      ZMOSIMAGE frame = scene.Frame(step * k, 32, w, h);
      if (std::strcmp(mode, "floor") == 0) {
        sink += ReadLuma(frame);
      } else {
        sink += static_cast<std::uint64_t>(engine->Feed(&frame));
      }
    }
    if (std::strcmp(mode, "stitch") == 0) {
      ZMOSIMAGE result{};
      sink += static_cast<std::uint64_t>(ZMOS_Stitch(engine->engine, &result, nullptr));
    }
  }
  std::printf("%llu\n", static_cast<unsigned long long>(sink & 1));
  return 0;
}
