// Deterministic random numbers for the generated data and the randomized tests: xoshiro256**
// seeded through SplitMix64, and our own normal sampler (Marsaglia's polar method), so that the
// same seed gives the same values with every standard library.
#pragma once

#include <cmath>
#include <cstdint>

namespace datagen {

class Random {
 public:
  explicit Random(std::uint64_t seed) {
    for (auto& word : state_) {
      seed += 0x9E3779B97F4A7C15ull;
      std::uint64_t z = seed;
      z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
      z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
      word = z ^ (z >> 31);
    }
  }

  std::uint64_t Next() {
    const std::uint64_t result = Rotl(state_[1] * 5, 7) * 9;
    const std::uint64_t t = state_[1] << 17;
    state_[2] ^= state_[0];
    state_[3] ^= state_[1];
    state_[1] ^= state_[2];
    state_[0] ^= state_[3];
    state_[2] ^= t;
    state_[3] = Rotl(state_[3], 45);
    return result;
  }

  // Uniform in [0, 1) with 53 random bits.
  double Uniform() { return static_cast<double>(Next() >> 11) * 0x1.0p-53; }
  double Uniform(double lo, double hi) { return lo + (hi - lo) * Uniform(); }
  // Uniform integer in [lo, hi] (the tiny modulo bias is irrelevant here).
  int Int(int lo, int hi) {
    return lo + static_cast<int>(Next() % static_cast<std::uint64_t>(hi - lo + 1));
  }

  // Standard normal deviate.
  double Normal() {
    if (haveSpare_) {
      haveSpare_ = false;
      return spare_;
    }
    double u, v, s;
    do {
      u = 2.0 * Uniform() - 1.0;
      v = 2.0 * Uniform() - 1.0;
      s = u * u + v * v;
    } while (s >= 1.0 || s == 0.0);
    const double factor = std::sqrt(-2.0 * std::log(s) / s);
    spare_ = v * factor;
    haveSpare_ = true;
    return u * factor;
  }

 private:
  static std::uint64_t Rotl(std::uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }

  std::uint64_t state_[4];
  double spare_ = 0.0;
  bool haveSpare_ = false;
};

}  // namespace datagen
