// Helpers shared by the image-object functions.
#ifndef LUMIVEX_SRC_IMAGE_IMAGE_INTERNAL_H_
#define LUMIVEX_SRC_IMAGE_IMAGE_INTERNAL_H_

#include <cstdint>

#include "lumivex/image.h"

namespace lumivex::image {

// Stores format and size in `image`, sets pitches 0-2 for a freshly created image of
// that geometry (multiples of 16) and writes the plane row counts to `rows` (0 for
// planes not in use). Returns 0, 2 (null record, negative or oversized geometry) or 3.
std::int32_t PlaneLayout(ZMOSIMAGE* image, std::int32_t width, std::int32_t height,
                         std::uint32_t format, std::int32_t rows[3]);

// What ibAllocAlign asks the memory manager for to return `size` aligned bytes.
std::int64_t AlignedRequest(std::int32_t size);
// Bytes ZMOSCreateImage_AOD takes from a work buffer for that geometry; -1 when it cannot
// create the image.
std::int64_t ImageBytes(std::int32_t width, std::int32_t height, std::uint32_t format);

// Row counts and plane count of an existing image, from its format and height. The
// count is 1 for an unsupported format (result 3).
std::int32_t PlaneHeights(const ZMOSIMAGE* image, std::int32_t rows[3], std::int32_t* count);

// Rectangle checks shared by the region copies and the crops: non-negative left and
// top, non-negative extent no larger than the image. Only the extent is compared, so a
// rectangle may run past the right or bottom border; the copies clip what they touch.
bool RectFits(const ZMOSRECT& rect, const ZMOSIMAGE& image);

constexpr ZMOSRECT WholeRect(const ZMOSIMAGE& image) {
  return ZMOSRECT{0, 0, image.lWidth, image.lHeight};
}

}  // namespace lumivex::image

#endif  // LUMIVEX_SRC_IMAGE_IMAGE_INTERNAL_H_
