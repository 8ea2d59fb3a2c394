// A sampled one-dimensional profile: edge spread, line spread, MTF curve or frequency axis.
// Sample i lies at origin + i x step; the class is instantiated for double only.
#pragma once

#include <cstddef>
#include <vector>

template <class T>
class KProfile {
 public:
  KProfile() = default;
  explicit KProfile(std::vector<T> values, double origin = 0.0, double step = 1.0)
      : values(std::move(values)), origin(origin), step(step) {}
  virtual ~KProfile() = default;
  KProfile(const KProfile&) = default;
  KProfile& operator=(const KProfile&) = default;
  KProfile(KProfile&&) noexcept = default;
  KProfile& operator=(KProfile&&) noexcept = default;

  std::size_t Size() const { return values.size(); }
  bool Empty() const { return values.empty(); }
  T& operator[](std::size_t i) { return values[i]; }
  const T& operator[](std::size_t i) const { return values[i]; }
  // Position of sample i on the profile's axis.
  double Position(std::size_t i) const { return origin + static_cast<double>(i) * step; }

  std::vector<T> values;
  double origin = 0.0;
  double step = 1.0;
};
