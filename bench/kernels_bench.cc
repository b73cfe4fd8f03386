// Each kernel in every set this machine runs, the reference set first, on a 1920 x 1080
// luma plane: the same work, so the times compare directly.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "src/kernels/kernels.h"
#include "src/kernels/match_kernels.h"

namespace {

using lumivex::kernels::KernelSet;

constexpr int kW = 1920, kH = 1080;

const std::vector<std::uint8_t>& Luma() {
  static const std::vector<std::uint8_t> bytes = [] {
    std::vector<std::uint8_t> b(static_cast<std::size_t>(kW) * kH);
    std::uint32_t s = 99;
    for (auto& v : b) {
      s = s * 1664525u + 1013904223u;
      v = static_cast<std::uint8_t>(s >> 24);
    }
    return b;
  }();
  return bytes;
}

void ColumnSums(benchmark::State& state, const KernelSet* k) {
  std::vector<std::uint32_t> out(kW);
  for (auto _ : state) {
    k->column_sums(kW, kH, Luma().data(), kW, out.data());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * kW * kH);
}

void LaneSums(benchmark::State& state, const KernelSet* k) {
  // The frame-to-frame tracker's middle band: a third of the width, every row.
  constexpr int kBand = kW / 3 & ~15;
  std::vector<std::uint32_t> low(kH), high(kH);
  for (auto _ : state) {
    k->lane_sums(Luma().data() + kW / 3, kW, kH, kBand, low.data(), high.data());
    benchmark::DoNotOptimize(low.data());
  }
  state.SetBytesProcessed(state.iterations() * kBand * kH);
}

void RowSums(benchmark::State& state, const KernelSet* k) {
  // Rows as narrow as the reference tracker's compensation strips at 640x480 (13) and as
  // wide as the frame-to-frame tracker's middle band there (213).
  const int width = static_cast<int>(state.range(0));
  std::vector<std::uint32_t> out(kH);
  for (auto _ : state) {
    k->row_sums(Luma().data() + kW / 3 + 1, kW, kH, width, out.data());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * width * kH);
}

void SadSearch(benchmark::State& state, const KernelSet* k) {
  // Column sums of two frames 37 pixels apart, searched +-W/6.
  std::vector<std::uint32_t> prev(kW), cur(kW);
  lumivex::kernels::Reference().column_sums(kW, kH, Luma().data(), kW, prev.data());
  for (int x = 0; x < kW; ++x) cur[x] = prev[(x + 37) % kW];
  const int max = kW / 6, m = kW - 2 * max - 1;
  for (auto _ : state)
    benchmark::DoNotOptimize(
        lumivex::track::BestShiftEarlyExit(cur.data(), prev.data(), max, m, *k));
}

void Fade(benchmark::State& state, const KernelSet* k) {
  // A 256-pixel cross-fade over every row.
  constexpr int kBand = 256;
  std::vector<std::uint16_t> up(kBand), down(kBand);
  for (int i = 0; i < kBand; ++i) {
    up[i] = static_cast<std::uint16_t>((kBand - 1 - i) * 65536 / kBand);
    down[i] = static_cast<std::uint16_t>(65535 - up[i]);
  }
  std::vector<std::uint8_t> first(Luma().begin(), Luma().begin() + kBand * kH);
  for (auto _ : state) {
    for (int y = 0; y < kH; ++y)
      k->fade_q16(first.data() + y * kBand, Luma().data() + y * kW, up.data(), down.data(), kBand);
    benchmark::DoNotOptimize(first.data());
  }
  state.SetBytesProcessed(state.iterations() * kBand * kH);
}

void FadeRows(benchmark::State& state, const KernelSet* k) {
  // A narrow overlap as at 640x480 (seven bytes a row) or a wider one, every row.
  const int n = static_cast<int>(state.range(0));
  std::vector<std::uint16_t> ws(n), wf(n);
  for (int i = 0; i < n; ++i) {
    ws[i] = static_cast<std::uint16_t>(i * 65535 / n);
    wf[i] = static_cast<std::uint16_t>(65535 - ws[i]);
  }
  std::vector<std::uint8_t> first(Luma().begin(), Luma().begin() + kW * kH);
  for (auto _ : state) {
    k->fade_rows(first.data(), kW, Luma().data() + 1, kW, kH, ws.data(), wf.data(), n);
    benchmark::DoNotOptimize(first.data());
  }
  state.SetBytesProcessed(state.iterations() * n * kH);
}

void CopyRows(benchmark::State& state, const KernelSet* k) {
  // A strip a kept frame lays on the canvas, `n` bytes wide, every row.
  const int n = static_cast<int>(state.range(0));
  std::vector<std::uint8_t> canvas(static_cast<std::size_t>(kW) * kH);
  for (auto _ : state) {
    k->copy_rows(canvas.data() + 3, kW, Luma().data() + 5, kW, kH, n);
    benchmark::DoNotOptimize(canvas.data());
  }
  state.SetBytesProcessed(state.iterations() * n * kH);
}

[[maybe_unused]] const bool registered = [] {
  for (const KernelSet* k : lumivex::kernels::Available()) {
    const std::string set = k->name;
    benchmark::RegisterBenchmark(("BM_ColumnSums/" + set).c_str(), ColumnSums, k);
    benchmark::RegisterBenchmark(("BM_LaneSums/" + set).c_str(), LaneSums, k);
    benchmark::RegisterBenchmark(("BM_RowSums/" + set).c_str(), RowSums, k)->Arg(13)->Arg(213);
    benchmark::RegisterBenchmark(("BM_SadSearch/" + set).c_str(), SadSearch, k);
    benchmark::RegisterBenchmark(("BM_Fade/" + set).c_str(), Fade, k);
    benchmark::RegisterBenchmark(("BM_FadeRows/" + set).c_str(), FadeRows, k)->Arg(7)->Arg(40);
    benchmark::RegisterBenchmark(("BM_CopyRows/" + set).c_str(), CopyRows, k)->Arg(24)->Arg(200);
  }
  return true;
}();

}  // namespace
