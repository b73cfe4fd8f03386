// Whole-engine figures: ZMOS_SelectFrames per preview frame and ZMOS_Stitch for a full
// 180-degree sweep, next to the memory floor of reading one NV21 frame once.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "lumivex/lumivex.h"
#include "src/engine/sweep_stitcher.h"
#include "src/platform/memory.h"

namespace {

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

std::int32_t WorkBufferSize(std::int32_t w, std::int32_t h) {
  const std::int64_t land = 3LL * w * h + 35 * ((h * ((h / 5) & ~3) * 3LL) / 2) + 16 * 38;
  const std::int64_t port = 3LL * w * h + 35 * ((w * ((w / 5) & ~3) * 3LL) / 2) + 16 * 38;
  return static_cast<std::int32_t>(std::max(land, port));
}

struct Engine {
  Engine(int w, int h) : buffer(WorkBufferSize(w, h)) {
    ZMOSINITPARAM p{buffer.data(), static_cast<std::int32_t>(buffer.size()), 180, w, h, w, h};
    ZMOS_Init(&p, &engine);
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

void BM_FrameMemoryFloor(benchmark::State& state) {
  const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
  std::vector<std::uint8_t> frame(static_cast<std::size_t>(w) * h * 3 / 2, 7);
  for (auto _ : state) {
    std::uint64_t acc = 0;
    for (std::size_t i = 0; i + 8 <= frame.size(); i += 8) {
      std::uint64_t v;
      std::memcpy(&v, frame.data() + i, 8);
      acc += v;
    }
    benchmark::DoNotOptimize(acc);
  }
}

void BM_SelectFrames(benchmark::State& state) {
  const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
  Scene scene(4 * w, h + 64);
  const int step = std::max(4, w / 48);
  auto engine = std::make_unique<Engine>(w, h);
  int x = 0, frames = 0;
  std::size_t peak = 0;
  for (auto _ : state) {
    ZMOSIMAGE frame = scene.Frame(x, 32, w, h);
    if (engine->Feed(&frame) >= 180 || x + step + w >= scene.width) {
      state.PauseTiming();
      peak = std::max(peak, engine->PeakUse());
      engine = std::make_unique<Engine>(w, h);
      x = 0;
      state.ResumeTiming();
    } else {
      x += step;
    }
    ++frames;
  }
  state.counters["peak_work_MB"] = static_cast<double>(std::max(peak, engine->PeakUse())) / 1e6;
  state.counters["buffer_MB"] = WorkBufferSize(w, h) / 1e6;
}

void BM_Stitch(benchmark::State& state) {
  const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
  Scene scene(4 * w, h + 64);
  const int step = std::max(4, w / 48);
  std::size_t peak = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto engine = std::make_unique<Engine>(w, h);
    for (int x = 0; x + w < scene.width; x += step) {
      ZMOSIMAGE frame = scene.Frame(x, 32, w, h);
      if (engine->Feed(&frame) >= 180) break;
    }
    ZMOSIMAGE result{};
    state.ResumeTiming();
    ZMOS_Stitch(engine->engine, &result, nullptr);
    state.PauseTiming();
    peak = std::max(peak, engine->PeakUse());
    state.counters["result_width"] = result.lWidth;
    engine.reset();
    state.ResumeTiming();
  }
  state.counters["peak_work_MB"] = static_cast<double>(peak) / 1e6;
}

#define LUMIVEX_SIZES Args({640, 480})->Args({1280, 720})->Args({1920, 1080})
BENCHMARK(BM_FrameMemoryFloor)->LUMIVEX_SIZES;
BENCHMARK(BM_SelectFrames)->LUMIVEX_SIZES->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Stitch)->LUMIVEX_SIZES->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace
