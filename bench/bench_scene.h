// A textured scene and an engine driven as a phone host drives it, shared by the
// benchmarks and the instruction-count program.
#ifndef LUMIVEX_BENCH_BENCH_SCENE_H_
#define LUMIVEX_BENCH_BENCH_SCENE_H_

#include <algorithm>
#include <cstdint>
#include <vector>

#include "lumivex/lumivex.h"
#include "src/engine/sweep_stitcher.h"
#include "src/platform/memory.h"

namespace lumivex::bench {

// Smooth value noise with detail at several scales: enough texture for the trackers.
struct Scene {
  Scene(int w, int h)
      : width(w),
        height(h),
        luma(static_cast<std::size_t>(w) * h),
        chroma(static_cast<std::size_t>(w) * (h / 2 + 2), 128) {
    std::uint32_t s = 2024;
    auto rnd = [&] {
      s = s * 1664525u + 1013904223u;
      return (s >> 8) & 0xFF;
    };
    std::vector<float> acc(luma.size(), 0.0f);
    for (int scale : {64, 16, 4}) {
      const int gw = w / scale + 2, gh = h / scale + 2;
      std::vector<float> grid(static_cast<std::size_t>(gw) * gh);
      for (auto& g : grid) g = static_cast<float>(rnd()) / 255.0f - 0.5f;
      for (int y = 0; y < h; ++y) {
        const float fy = static_cast<float>(y) / scale;
        const int gy = static_cast<int>(fy);
        const float ty = fy - gy;
        for (int x = 0; x < w; ++x) {
          const float fx = static_cast<float>(x) / scale;
          const int gx = static_cast<int>(fx);
          const float tx = fx - gx;
          const float a = grid[gy * gw + gx] * (1 - tx) + grid[gy * gw + gx + 1] * tx;
          const float b = grid[(gy + 1) * gw + gx] * (1 - tx) + grid[(gy + 1) * gw + gx + 1] * tx;
          acc[static_cast<std::size_t>(y) * w + x] += (a * (1 - ty) + b * ty) * 120.0f;
        }
      }
    }
    for (std::size_t i = 0; i < acc.size(); ++i)
      luma[i] = static_cast<std::uint8_t>(std::clamp(128.0f + acc[i], 0.0f, 255.0f));
  }
  // A frame is a window into the scene: no copy.
  ZMOSIMAGE Frame(int x, int y, int w, int h) {
    ZMOSIMAGE img{ZMOS_FORMAT_NV21, w, h, {}, {}};
    img.pPlane[0] = luma.data() + static_cast<std::size_t>(y) * width + x;
    img.pPlane[1] = chroma.data();
    img.lPitch[0] = img.lPitch[1] = width;
    return img;
  }
  int width, height;
  std::vector<std::uint8_t> luma, chroma;
};

inline std::int32_t WorkBufferSize(std::int32_t w, std::int32_t h) {
  const std::int64_t land = 3LL * w * h + 35 * ((h * ((h / 5) & ~3) * 3LL) / 2) + 16 * 38;
  const std::int64_t port = 3LL * w * h + 35 * ((w * ((w / 5) & ~3) * 3LL) / 2) + 16 * 38;
  return static_cast<std::int32_t>(std::max(land, port));
}

struct Engine {
  Engine(int w, int h, std::int32_t profile = ZMOS_PROFILE_EXACT) : buffer(WorkBufferSize(w, h)) {
    ZMOSINITPARAM p{buffer.data(), static_cast<std::int32_t>(buffer.size()), 180, w, h, w, h};
    ZMOS_Init(&p, &engine);
    ZMOS_SetProfile(engine, profile);
    ui.dwFormat = ZMOS_FORMAT_NV21;
  }
  ~Engine() { ZMOS_UnInit(&engine); }
  // One frame as a phone host handles it; returns the angle.
  std::int32_t Feed(ZMOSIMAGE* frame) {
    std::int32_t off[2], kept = 0, flags[4];
    if (ZMOS_SelectFrames(engine, frame, frame, off, &kept, flags, &angle) == 0)
      ZMOS_UpdateUIImage(engine, frame, &ui, 6, rect);
    return angle;
  }
  std::size_t PeakUse() {
    lumivex::platform::MemStats s;
    lumivex::platform::CheckHeap(engine->hMemMgr, &s);
    return s.peak_used;
  }
  std::vector<std::uint8_t> buffer;
  ZMOSSWEEPSTITCHER* engine = nullptr;
  ZMOSIMAGE ui{};
  std::int32_t rect[4] = {};
  std::int32_t angle = 0;
};

}  // namespace lumivex::bench

#endif  // LUMIVEX_BENCH_BENCH_SCENE_H_
