// A small, fast random generator that gives the same numbers on every machine, so that a
// simulated sweep is the same for the same seed everywhere.
#ifndef LUMIVEX_TOOLS_SIM_RNG_H_
#define LUMIVEX_TOOLS_SIM_RNG_H_

#include <cstdint>

namespace lumivex::tools {

class Rng {
 public:
  explicit Rng(std::uint64_t seed) : s_(seed * 0x9E3779B97F4A7C15ull + 7) {}
  std::uint32_t Next() {
    s_ ^= s_ << 13;
    s_ ^= s_ >> 7;
    s_ ^= s_ << 17;
    return static_cast<std::uint32_t>(s_ >> 11);
  }
  double Uniform() { return (Next() & 0xFFFFFF) / double(0x1000000); }  // [0, 1)
  double Uniform(double lo, double hi) { return lo + (hi - lo) * Uniform(); }
  // Roughly normal, unit variance (sum of four uniforms).
  double Normal() { return (Uniform() + Uniform() + Uniform() + Uniform() - 2.0) * 1.7320508; }
  // The same shape from one draw: four 16-bit uniforms of one 64-bit state step.
  float QuickNormal() {
    s_ ^= s_ << 13;
    s_ ^= s_ >> 7;
    s_ ^= s_ << 17;
    const std::uint64_t v = s_;
    const float sum = static_cast<float>((v & 0xFFFF) + ((v >> 16) & 0xFFFF) +
                                         ((v >> 32) & 0xFFFF) + (v >> 48));
    return (sum * (1.0f / 65536) - 2.0f) * 1.7320508f;
  }

 private:
  std::uint64_t s_;
};

// Mixes several numbers into one seed (splitmix64), so that streams for different frames
// and lines are independent.
constexpr std::uint64_t MixSeed(std::uint64_t a, std::uint64_t b) {
  std::uint64_t z = a + 0x9E3779B97F4A7C15ull * (b + 1);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_SIM_RNG_H_
