// 32-bit arithmetic that wraps as the target's registers do. Travel sums grow without
// bound when a host keeps feeding a capture that has run away; the wrap is the value
// the 32-bit device computes, made explicit so it is never undefined behaviour.
#ifndef LUMIVEX_SRC_PLATFORM_WRAP_H_
#define LUMIVEX_SRC_PLATFORM_WRAP_H_

#include <cstdint>

namespace lumivex {

constexpr std::int32_t WrapAdd(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}
constexpr std::int32_t WrapSub(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}
constexpr std::int32_t WrapMul(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}
constexpr std::int32_t WrapNeg(std::int32_t a) {
  return WrapSub(0, a);
}
// |a| as the device computes it: the most negative value stays itself.
constexpr std::int32_t WrapAbs(std::int32_t a) {
  return a < 0 ? WrapNeg(a) : a;
}

}  // namespace lumivex

#endif  // LUMIVEX_SRC_PLATFORM_WRAP_H_
