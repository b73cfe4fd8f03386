// Plane geometry of every supported format code, shared by layout, copies and crops.
#ifndef LUMIVEX_SRC_IMAGE_FORMAT_H_
#define LUMIVEX_SRC_IMAGE_FORMAT_H_

#include <cstdint>
#include <optional>

#include "lumivex/image.h"

namespace lumivex::image {

enum class Family : std::uint8_t {
  kPacked3or4,  // families 3 and 4
  kPacked422,   // family 5
  kPlanar,      // family 6
  kGrey,        // 0x701
  kSemiPlanar,  // family 8
};

struct FormatInfo {
  Family family;
  int planes;           // planes in use, 1 to 3
  int bytes_per_pixel;  // plane 0
  bool chroma_half_width;
  bool chroma_half_height;
};

constexpr std::uint32_t FamilyOf(std::uint32_t format) {
  return format >> 8;
}
constexpr std::uint32_t MemberOf(std::uint32_t format) {
  return format & 0xFF;
}

// The format groups the blends, trackers and preview tell apart.
constexpr bool IsPlanarYuv(std::uint32_t f) {  // 0x601-0x608: three planes
  return f >= ZMOS_FORMAT_I420 && f <= ZMOS_FORMAT_PLANAR444_608;
}
constexpr bool IsSemiPlanar(std::uint32_t f) {  // 0x801-0x803: luma and interleaved chroma
  return f >= ZMOS_FORMAT_SEMIPLANAR420_801 && f <= ZMOS_FORMAT_SEMIPLANAR422_803;
}
constexpr bool IsPacked422(std::uint32_t f) {  // 0x501-0x504: the pair orders the blends know
  return f >= ZMOS_FORMAT_YUV422_501 && f <= ZMOS_FORMAT_YUV422_504;
}
// 0x503/0x504 carry each luma byte second in its pair.
constexpr bool LumaSecond(std::uint32_t f) {
  return f == ZMOS_FORMAT_YUV422_503 || f == ZMOS_FORMAT_YUV422_504;
}

// Geometry of `format`, or nothing for an unsupported code.
constexpr std::optional<FormatInfo> LookupFormat(std::uint32_t format) {
  const std::uint32_t member = MemberOf(format);
  switch (FamilyOf(format)) {
    case 3:
      if (member < 1 || member > 4) return std::nullopt;
      // 0x302 and 0x304 are four bytes a pixel.
      return FormatInfo{Family::kPacked3or4, 1, (member % 2 == 0) ? 4 : 3, false, false};
    case 4:
      if (member < 1 || member > 4) return std::nullopt;
      return FormatInfo{Family::kPacked3or4, 1, 3, false, false};
    case 5:
      if (member < 1 || member > 8) return std::nullopt;
      return FormatInfo{Family::kPacked422, 1, 2, false, false};
    case 6: {
      if (member < 1 || member > 8) return std::nullopt;
      const std::uint32_t kind = (member - 1) % 4;  // 0x601/0x605 share a kind, and so on
      return FormatInfo{Family::kPlanar, 3, 1, kind == 0 || kind == 2, kind == 0 || kind == 1};
    }
    case 7:
      if (member != 1) return std::nullopt;
      return FormatInfo{Family::kGrey, 1, 1, false, false};
    case 8:
      if (member < 1 || member > 3) return std::nullopt;
      return FormatInfo{Family::kSemiPlanar, 2, 1, false, member != 3};
    default:
      return std::nullopt;
  }
}

// Rows of each plane for an image of `height` (0 for planes not in use).
struct PlaneRows {
  std::int32_t rows[3] = {0, 0, 0};
};

constexpr PlaneRows RowsOf(const FormatInfo& info, std::int32_t height) {
  PlaneRows r;
  r.rows[0] = height;
  for (int p = 1; p < info.planes; ++p) r.rows[p] = info.chroma_half_height ? height / 2 : height;
  return r;
}

// Meaningful bytes in one row of plane `p` for an image of `width`.
constexpr std::int64_t RowBytesOf(const FormatInfo& info, int p, std::int32_t width) {
  if (p == 0) return static_cast<std::int64_t>(info.bytes_per_pixel) * width;
  return info.chroma_half_width ? width / 2 : width;
}

constexpr std::int64_t Align16(std::int64_t v) {
  return (v + 15) & ~std::int64_t{15};
}

}  // namespace lumivex::image

#endif  // LUMIVEX_SRC_IMAGE_FORMAT_H_
