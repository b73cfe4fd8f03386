#include "src/kernels/kernels.h"

#include <array>
#include <bit>
#include <cstring>


namespace lumivex::kernels {
namespace {

void ColumnSumsRef(std::int32_t width, std::int32_t rows, const std::uint8_t* line,
                   std::ptrdiff_t step, std::uint32_t* out) {
  for (std::int32_t y = 0; y < rows; ++y) {
    const std::uint8_t* r = line + y * step;
    for (std::int32_t x = 0; x < width; ++x) out[x] += r[x];
  }
}

void LaneSumsRef(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows, std::int32_t n,
                 std::uint32_t* low, std::uint32_t* high) {
  for (std::int32_t y = 0; y < rows; ++y, p += step) {
    std::uint32_t lo = 0, hi = 0;
    for (std::int32_t i = 0; i < n; i += 4) {
      lo += p[i] + p[i + 1];
      hi += p[i + 2] + p[i + 3];
    }
    low[y] = lo;
    high[y] = hi;
  }
}

void RowSumsRef(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows, std::int32_t n,
                std::uint32_t* out) {
  for (std::int32_t y = 0; y < rows; ++y, p += step) {
    std::uint32_t sum = 0;
    for (std::int32_t i = 0; i < n; ++i) sum += p[i];
    out[y] = sum;
  }
}

std::uint32_t SadUntilRef(const std::uint32_t* a, const std::uint32_t* b, std::int32_t m,
                          std::uint32_t limit) {
  constexpr std::int32_t kBlock = 32;
  std::uint32_t sad = 0;
  for (std::int32_t i = 0; i < m; i += kBlock) {
    if (sad >= limit) break;
    const std::int32_t end = m - i < kBlock ? m : i + kBlock;
    for (std::int32_t k = i; k < end; ++k) sad += a[k] > b[k] ? a[k] - b[k] : b[k] - a[k];
  }
  return sad;
}

void FadeQ16Ref(std::uint8_t* f, const std::uint8_t* s, const std::uint16_t* ws,
                const std::uint16_t* wf, std::int32_t n) {
  for (std::int32_t k = 0; k < n; ++k) {
    const std::uint32_t v =
        (std::uint32_t{ws[k]} * s[k] + std::uint32_t{wf[k]} * f[k] + 32768) >> 16;
    f[k] = static_cast<std::uint8_t>(v > 255 ? 255 : v);
  }
}

void FadeRowsRef(std::uint8_t* f, std::ptrdiff_t f_step, const std::uint8_t* s,
                 std::ptrdiff_t s_step, std::int32_t rows, const std::uint16_t* ws,
                 const std::uint16_t* wf, std::int32_t n) {
  for (std::int32_t y = 0; y < rows; ++y) FadeQ16Ref(f + y * f_step, s + y * s_step, ws, wf, n);
}

void AverageRef(std::uint8_t* f, const std::uint8_t* s, std::int32_t n) {
  for (std::int32_t k = 0; k < n; ++k) f[k] = static_cast<std::uint8_t>((f[k] + s[k]) >> 1);
}

void CopyRowsRef(std::uint8_t* d, std::ptrdiff_t d_step, const std::uint8_t* s,
                 std::ptrdiff_t s_step, std::int32_t rows, std::int64_t n) {
  for (std::int32_t y = 0; y < rows; ++y)
    std::memmove(d + y * d_step, s + y * s_step, static_cast<std::size_t>(n));
}

void SwapPairsRef(std::uint8_t* dst, const std::uint8_t* src, std::int64_t pairs) {
  for (std::int64_t i = 0; i < pairs; ++i) {
    const std::uint8_t a = src[2 * i];
    dst[2 * i] = src[2 * i + 1];
    dst[2 * i + 1] = a;
  }
}

std::uint32_t BlockSadRef(const std::uint8_t* a, std::ptrdiff_t a_step, const std::uint8_t* b,
                          std::ptrdiff_t b_step, std::int32_t rows, std::int32_t n,
                          std::int32_t bias, std::uint32_t limit) {
  std::uint32_t sad = 0;
  for (std::int32_t y = 0; y < rows; ++y, a += a_step, b += b_step) {
    if ((y & 7) == 0 && y > 0 && sad >= limit) break;
    for (std::int32_t x = 0; x < n; ++x) {
      const std::int32_t v = a[x] + bias;
      const std::int32_t moved = v < 0 ? 0 : v > 255 ? 255 : v;
      sad += static_cast<std::uint32_t>(moved > b[x] ? moved - b[x] : b[x] - moved);
    }
  }
  return sad;
}

constexpr KernelSet kReference{"reference", ColumnSumsRef, LaneSumsRef,  RowSumsRef,
                               SadUntilRef, FadeQ16Ref,    FadeRowsRef,  AverageRef,
                               CopyRowsRef, SwapPairsRef,  BlockSadRef};

// The vector kernels read pixels as little-endian lanes.
[[maybe_unused]] constexpr bool LittleEndian() {
  return std::endian::native == std::endian::little;
}

struct Sets {
  std::array<const KernelSet*, 4> all{};
  std::size_t count = 0;
  const KernelSet* active = &kReference;
};

const Sets& Detect() {
  static const Sets sets = [] {
    Sets s;
    s.all[s.count++] = &kReference;
#if !defined(LUMIVEX_REFERENCE_KERNELS)
    if (LittleEndian()) {
      for (const KernelSet* k : {Sse2Set(), Avx2Set(), NeonSet()}) {
        if (k == nullptr) continue;
        s.all[s.count++] = k;
        s.active = k;  // listed from the slowest up
      }
    }
#endif
    return s;
  }();
  return sets;
}

}  // namespace

const KernelSet& Reference() {
  return kReference;
}

const KernelSet& Active() {
  return *Detect().active;
}

std::span<const KernelSet* const> Available() {
  const Sets& s = Detect();
  return {s.all.data(), s.count};
}

}  // namespace lumivex::kernels
