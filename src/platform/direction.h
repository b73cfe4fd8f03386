// The sweep's direction as the ABI numbers it (ZMOS_DIRECTION_*), asked the questions
// every stage asks: which axis, and which way along it.
#ifndef LUMIVEX_SRC_PLATFORM_DIRECTION_H_
#define LUMIVEX_SRC_PLATFORM_DIRECTION_H_

#include <cstdint>

#include "lumivex/select.h"

namespace lumivex {

// Left to right or right to left (false for an unknown direction).
constexpr bool IsHorizontal(std::int32_t direction) {
  return direction == ZMOS_DIRECTION_LEFT_TO_RIGHT || direction == ZMOS_DIRECTION_RIGHT_TO_LEFT;
}

// Top to bottom or bottom to top (false for an unknown direction).
constexpr bool IsVertical(std::int32_t direction) {
  return direction == ZMOS_DIRECTION_TOP_TO_BOTTOM || direction == ZMOS_DIRECTION_BOTTOM_TO_TOP;
}

// One of the four directions (not ZMOS_DIRECTION_UNKNOWN or garbage).
constexpr bool IsKnownDirection(std::int32_t direction) {
  return IsHorizontal(direction) || IsVertical(direction);
}

// Toward larger coordinates: left to right or top to bottom.
constexpr bool IsForward(std::int32_t direction) {
  return direction == ZMOS_DIRECTION_LEFT_TO_RIGHT || direction == ZMOS_DIRECTION_TOP_TO_BOTTOM;
}

}  // namespace lumivex

#endif  // LUMIVEX_SRC_PLATFORM_DIRECTION_H_
