#include "src/kernels/projection_kernels.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "src/kernels/kernels.h"

namespace lumivex::track {
namespace {

std::uint32_t LoadWord(const std::uint8_t* p) {
  std::uint32_t w;
  std::memcpy(&w, p, sizeof(w));
  return w;
}

// Byte k (0 = lowest address under `kOrder`) of a loaded word.
template <ByteOrder kOrder>
constexpr std::uint32_t ByteOf(std::uint32_t w, int k) {
  const int shift = kOrder == ByteOrder::kLittle ? 8 * k : 24 - 8 * k;
  return (w >> shift) & 0xFFu;
}

template <LumaBytes kLuma>
constexpr int kBytesPerPixel = kLuma == LumaBytes::kAll ? 1 : 2;

template <LumaBytes kLuma>
constexpr int kLumaOffset = kLuma == LumaBytes::kOdd ? 1 : 0;

// Adds the four pixels of group `g` of one line into out[0..4).
template <LumaBytes kLuma, ByteOrder kOrder>
inline void AddGroup(const std::uint8_t* line, std::uint32_t* out) {
  if constexpr (kLuma == LumaBytes::kAll) {
    const std::uint32_t w = LoadWord(line);
    out[0] += ByteOf<kOrder>(w, 0);
    out[1] += ByteOf<kOrder>(w, 1);
    out[2] += ByteOf<kOrder>(w, 2);
    out[3] += ByteOf<kOrder>(w, 3);
  } else {
    constexpr int b = kLumaOffset<kLuma>;
    const std::uint32_t w0 = LoadWord(line);
    const std::uint32_t w1 = LoadWord(line + 4);
    out[0] += ByteOf<kOrder>(w0, b);
    out[1] += ByteOf<kOrder>(w0, b + 2);
    out[2] += ByteOf<kOrder>(w1, b);
    out[3] += ByteOf<kOrder>(w1, b + 2);
  }
}

}  // namespace

ByteOrder NativeByteOrder() {
  return std::endian::native == std::endian::little ? ByteOrder::kLittle : ByteOrder::kBig;
}

namespace {

template <LumaBytes kLuma, ByteOrder kOrder>
void ColumnSums(std::int32_t width, std::int32_t rows, const std::uint8_t* line,
                std::ptrdiff_t step, std::uint32_t* out) {
  constexpr int bpp = kBytesPerPixel<kLuma>;
  constexpr int off = kLumaOffset<kLuma>;
  const std::int32_t groups = width / 4;
  std::int32_t y = 0;
  for (; y + 4 <= rows; y += 4) {
    const std::uint8_t* r0 = line + y * step;
    const std::uint8_t* r1 = r0 + step;
    const std::uint8_t* r2 = r1 + step;
    const std::uint8_t* r3 = r2 + step;
    for (std::int32_t g = 0; g < groups; ++g) {
      const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(g) * 4 * bpp;
      std::uint32_t* o = out + 4 * g;
      AddGroup<kLuma, kOrder>(r0 + at, o);
      AddGroup<kLuma, kOrder>(r1 + at, o);
      AddGroup<kLuma, kOrder>(r2 + at, o);
      AddGroup<kLuma, kOrder>(r3 + at, o);
    }
    for (std::int32_t x = 4 * groups; x < width; ++x) {
      const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(x) * bpp + off;
      out[x] += static_cast<std::uint32_t>(r0[at]) + r1[at] + r2[at] + r3[at];
    }
  }
  for (; y < rows; ++y) {
    const std::uint8_t* r = line + y * step;
    for (std::int32_t g = 0; g < groups; ++g)
      AddGroup<kLuma, kOrder>(r + static_cast<std::ptrdiff_t>(g) * 4 * bpp, out + 4 * g);
    for (std::int32_t x = 4 * groups; x < width; ++x)
      out[x] += r[static_cast<std::ptrdiff_t>(x) * bpp + off];
  }
}

// Every word kernel, by luma layout and byte order.
constexpr ColumnSumsFn kColumnSums[3][2] = {
    {ColumnSums<LumaBytes::kAll, ByteOrder::kLittle>, ColumnSums<LumaBytes::kAll, ByteOrder::kBig>},
    {ColumnSums<LumaBytes::kEven, ByteOrder::kLittle>,
     ColumnSums<LumaBytes::kEven, ByteOrder::kBig>},
    {ColumnSums<LumaBytes::kOdd, ByteOrder::kLittle>, ColumnSums<LumaBytes::kOdd, ByteOrder::kBig>},
};

}  // namespace

ColumnSumsFn ColumnSumsKernel(LumaBytes luma, ByteOrder order) {
  return kColumnSums[static_cast<int>(luma)][order == ByteOrder::kLittle ? 0 : 1];
}

ColumnSumsFn SelectColumnSums(LumaBytes luma) {
  return ColumnSumsKernel(luma, NativeByteOrder());
}

ColumnSumsFn FastColumnSums() {
  // The vector kernels read little-endian words; elsewhere the word kernel is the rule.
  if (NativeByteOrder() != ByteOrder::kLittle) return SelectColumnSums(LumaBytes::kAll);
  return kernels::Active().column_sums;
}

namespace {

constexpr std::uint32_t Fold(std::uint32_t acc) {
  return (acc & 0xFFFFu) + (acc >> 16);
}

// Accumulates `words` words of 4 bytes through `lanes`, folding the 16-byte groups on
// their own when the part is 256 bytes or more.
template <typename Lanes>
std::uint32_t LaneSum(const std::uint8_t* p, std::int32_t words, Lanes lanes) {
  const std::int32_t groups = words / 4;
  std::uint32_t sum = 0;
  std::uint32_t acc = 0;
  for (std::int32_t g = 0; g < groups; ++g, p += 16)
    acc += lanes(LoadWord(p)) + lanes(LoadWord(p + 4)) + lanes(LoadWord(p + 8)) +
           lanes(LoadWord(p + 12));
  if (words * 4 >= 256) {
    sum += Fold(acc);
    acc = 0;
  }
  for (std::int32_t w = 4 * groups; w < words; ++w, p += 4) acc += lanes(LoadWord(p));
  return sum + Fold(acc);
}

}  // namespace

void RowSumLanesRows(const std::uint8_t* p, std::ptrdiff_t step, std::int32_t rows, std::int32_t n,
                     std::uint32_t* out, const kernels::KernelSet& k) {
  // A lane gains at most 2 * 255 a word, so up to 128 words neither lane wraps, and the
  // folds give back the plain sum of the row whatever its alignment.
  constexpr std::int32_t kUnwrappedBytes = 4 * (0xFFFF / 510) + 3;
  if (n <= kUnwrappedBytes) return k.row_sums(p, step, rows, n, out);
  // Wider rows hold more than 256 bytes of whole words and 16-byte groups.
  const auto misalign = static_cast<std::int32_t>(reinterpret_cast<std::uintptr_t>(p) & 3);
  const std::int32_t lead = misalign != 0 ? 4 - misalign : 0;
  const std::int32_t m = n - lead, bytes = m & ~3, grouped = m & ~15;
  // A lane accumulator over words holds (bytes 0, 1) + (bytes 2, 3) << 16 modulo 2^32,
  // whatever the order of the additions: exact lane sums rebuild it, wraps included.
  constexpr std::int32_t kChunk = 64;
  std::uint32_t low[kChunk], high[kChunk];
  for (std::int32_t y0 = 0; y0 < rows; y0 += kChunk) {
    const std::int32_t count = std::min(kChunk, rows - y0);
    const std::uint8_t* first = p + y0 * step;
    k.lane_sums(first + lead, step, count, grouped, low, high);
    for (std::int32_t j = 0; j < count; ++j) {
      const std::uint8_t* r = first + j * step;
      const std::uint8_t* a = r + lead;
      // At most three bytes before the groups, three words and three bytes after them.
      std::uint32_t sum = 0;
      switch (lead) {
        case 3:
          sum += r[2];
          [[fallthrough]];
        case 2:
          sum += r[1];
          [[fallthrough]];
        case 1:
          sum += r[0];
          break;
        default:
          break;
      }
      std::uint32_t tail_low = 0, tail_high = 0;
      switch ((bytes - grouped) >> 2) {
        case 3:
          tail_low += a[grouped + 8] + a[grouped + 9];
          tail_high += a[grouped + 10] + a[grouped + 11];
          [[fallthrough]];
        case 2:
          tail_low += a[grouped + 4] + a[grouped + 5];
          tail_high += a[grouped + 6] + a[grouped + 7];
          [[fallthrough]];
        case 1:
          tail_low += a[grouped] + a[grouped + 1];
          tail_high += a[grouped + 2] + a[grouped + 3];
          break;
        default:
          break;
      }
      // From 256 bytes of words on, the 16-byte groups are folded on their own.
      sum += Fold(low[j] + (high[j] << 16)) + Fold(tail_low + (tail_high << 16));
      switch (m - bytes) {
        case 3:
          sum += a[bytes + 2];
          [[fallthrough]];
        case 2:
          sum += a[bytes + 1];
          [[fallthrough]];
        case 1:
          sum += a[bytes];
          break;
        default:
          break;
      }
      out[y0 + j] = sum;
    }
  }
}

std::uint32_t RowSumLanes(const std::uint8_t* p, std::int32_t n, const kernels::KernelSet& k) {
  std::uint32_t sum = 0;
  RowSumLanesRows(p, 0, 1, n, &sum, k);
  return sum;
}

std::uint32_t RowSumLanesPacked(const std::uint8_t* p, std::int32_t n, LumaBytes luma) {
  const int off = luma == LumaBytes::kOdd ? 1 : 0;
  // Each word is a pixel pair; the mask keeps its two luma bytes in the lanes' low bytes.
  const std::uint32_t sum =
      off == 0 ? LaneSum(p, n / 2, [](std::uint32_t w) { return w & 0x00FF00FFu; })
               : LaneSum(p, n / 2, [](std::uint32_t w) { return (w >> 8) & 0x00FF00FFu; });
  return (n & 1) ? sum + p[2 * (n - 1) + off] : sum;
}

}  // namespace lumivex::track
