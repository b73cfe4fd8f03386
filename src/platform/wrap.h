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

// A 32-bit value whose +, - and * wrap: geometry built from a host's offsets and sizes,
// which may be anything, computes what the device computes.
class W32 {
 public:
  constexpr W32(std::int32_t v = 0) : v_(v) {}  // NOLINT: converts like the int it stands for
  constexpr operator std::int32_t() const { return v_; }
  constexpr W32& operator+=(W32 b) { return *this = WrapAdd(v_, b.v_); }
  constexpr W32& operator-=(W32 b) { return *this = WrapSub(v_, b.v_); }

 private:
  std::int32_t v_;
};

constexpr W32 operator+(W32 a, W32 b) {
  return WrapAdd(a, b);
}
constexpr W32 operator+(W32 a, std::int32_t b) {
  return WrapAdd(a, b);
}
constexpr W32 operator+(std::int32_t a, W32 b) {
  return WrapAdd(a, b);
}
constexpr W32 operator-(W32 a, W32 b) {
  return WrapSub(a, b);
}
constexpr W32 operator-(W32 a, std::int32_t b) {
  return WrapSub(a, b);
}
constexpr W32 operator-(std::int32_t a, W32 b) {
  return WrapSub(a, b);
}
constexpr W32 operator*(W32 a, W32 b) {
  return WrapMul(a, b);
}
constexpr W32 operator*(W32 a, std::int32_t b) {
  return WrapMul(a, b);
}
constexpr W32 operator*(std::int32_t a, W32 b) {
  return WrapMul(a, b);
}
constexpr W32 operator-(W32 a) {
  return WrapNeg(a);
}

}  // namespace lumivex

#endif  // LUMIVEX_SRC_PLATFORM_WRAP_H_
