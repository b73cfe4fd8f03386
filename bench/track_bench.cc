// Projections and the SAD search on a 1920 x 1080 luma plane, each next to the memory
// floor: one pass that only reads every byte of the same pixels.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "lumivex/track.h"
#include "src/kernels/projection_kernels.h"

namespace {

constexpr int kW = 1920, kH = 1080;

struct Plane {
  Plane() : bytes(static_cast<std::size_t>(kW) * kH + 64) {
    std::uint32_t s = 12345;
    for (auto& b : bytes) {
      s = s * 1664525u + 1013904223u;
      b = static_cast<std::uint8_t>(s >> 24);
    }
    // 32-byte aligned rows, as created images have.
    const auto addr = reinterpret_cast<std::uintptr_t>(bytes.data());
    image = ZMOSIMAGE{ZMOS_FORMAT_NV21, kW, kH, {bytes.data() + (32 - addr % 32) % 32}, {kW}};
  }
  std::vector<std::uint8_t> bytes;
  ZMOSIMAGE image;
};

const Plane& Frame() {
  static const Plane plane;
  return plane;
}

void BM_MemoryFloor(benchmark::State& state) {
  const Plane& p = Frame();
  const std::size_t n = static_cast<std::size_t>(kW) * kH / 8;
  for (auto _ : state) {
    std::uint64_t acc = 0;
    const std::uint8_t* data = p.image.pPlane[0];
    for (std::size_t i = 0; i < n; ++i) {
      std::uint64_t w;
      std::memcpy(&w, data + 8 * i, 8);
      acc += w;
    }
    benchmark::DoNotOptimize(acc);
  }
  state.SetBytesProcessed(state.iterations() * kW * kH);
}
BENCHMARK(BM_MemoryFloor);

template <int32_t (*Project)(const ZMOSIMAGE*, const ZMOSRECT*, uint32_t*), bool kRows>
void BM_Projection(benchmark::State& state) {
  const Plane& p = Frame();
  const ZMOSRECT rect{0, 0, kW, kH};
  std::vector<std::uint32_t> out(kRows ? kH : kW);
  for (auto _ : state) {
    Project(&p.image, &rect, out.data());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * kW * kH);
}
BENCHMARK(BM_Projection<ZMOSHoriProjectSingle_PBM, false>)->Name("BM_HoriProject");
BENCHMARK(BM_Projection<ZMOSHoriProjectSingleInterval_PBM, false>)->Name("BM_HoriProjectInterval");
BENCHMARK(BM_Projection<ZMOSVertProjectSingle_PBM, true>)->Name("BM_VertProject");

// The word kernel the vector ones replace on the projections' hot path.
void BM_HoriProjectWordKernel(benchmark::State& state) {
  const Plane& p = Frame();
  std::vector<std::uint32_t> out(kW);
  const auto kernel = lumivex::track::SelectColumnSums(lumivex::track::LumaBytes::kAll);
  for (auto _ : state) {
    std::fill(out.begin(), out.end(), 0u);
    kernel(kW, kH, p.image.pPlane[0], kW, out.data());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * kW * kH);
}
BENCHMARK(BM_HoriProjectWordKernel);

// The FF tracker's horizontal search: whole-frame column sums of two frames, +-W/10.
void BM_SadSearch(benchmark::State& state) {
  const Plane& p = Frame();
  const ZMOSRECT a{0, 0, kW, kH}, b{0, 0, kW, kH};
  std::vector<std::uint32_t> prev(kW), cur(kW);
  ZMOSHoriProjectSingle_PBM(&p.image, &a, prev.data());
  ZMOSHoriProjectSingle_PBM(&p.image, &b, cur.data());
  std::rotate(cur.begin(), cur.begin() + 37, cur.end());
  for (auto _ : state) {
    std::int32_t off = 0;
    ZMOSMatch1DBufferAllocated_PBM(prev.data(), cur.data(), kW, &off, kW / 10, nullptr, nullptr);
    benchmark::DoNotOptimize(off);
  }
}
BENCHMARK(BM_SadSearch);

}  // namespace
