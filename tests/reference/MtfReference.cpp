#include "MtfReference.h"

#include <cmath>
#include <cstddef>
#include <opencv2/core.hpp>

namespace oracle {

std::vector<double> SpectrumMagnitude(const std::vector<double>& values) {
  const std::size_t n = values.size();
  std::vector<double> magnitude(n, 0.0);
  for (std::size_t k = 0; k < n; ++k) {
    double re = 0.0;
    double im = 0.0;
    for (std::size_t j = 0; j < n; ++j) {
      const double angle = -2.0 * CV_PI * static_cast<double>((k * j) % n) / static_cast<double>(n);
      re += values[j] * std::cos(angle);
      im += values[j] * std::sin(angle);
    }
    magnitude[k] = std::hypot(re, im);
  }
  return magnitude;
}

}  // namespace oracle
