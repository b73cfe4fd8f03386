// Whole-engine figures: ZMOS_SelectFrames per preview frame and ZMOS_Stitch for a full
// 180-degree sweep, next to the memory floor of reading one NV21 frame once.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "bench/bench_scene.h"
#include "lumivex/lumivex.h"
#include "src/engine/sweep_stitcher.h"
#include "src/platform/memory.h"

namespace {

using lumivex::bench::Engine;
using lumivex::bench::Scene;
using lumivex::bench::WorkBufferSize;

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
