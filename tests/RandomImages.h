// Random 16-bit test images for the filter identity tests, from the project's deterministic
// generator: several value models so that ties, the top bit, smooth data and wild data all occur.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>

#include "Random.h"

namespace testimages {

enum class Values {
  kUniform,      // anywhere in 0..65535
  kHigh,         // 32768..65535: every even-count edge result loses its top bit
  kFewLevels,    // four levels around 32768: many ties
  kSmoothNoisy,  // a smooth ramp with Gaussian noise and a few bright outliers
  kBinary,       // 0 or 65535
};
constexpr int kValueModels = 5;

inline cv::Mat RandomImage(datagen::Random& rng, int rows, int cols, Values model) {
  cv::Mat image(rows, cols, CV_16UC1);
  const double base = rng.Uniform(500.0, 60000.0);
  const double slopeX = rng.Uniform(-40.0, 40.0);
  const double slopeY = rng.Uniform(-40.0, 40.0);
  const double sigma = rng.Uniform(1.0, 300.0);
  for (int y = 0; y < rows; ++y) {
    auto* row = image.ptr<std::uint16_t>(y);
    for (int x = 0; x < cols; ++x) {
      int v = 0;
      switch (model) {
        case Values::kUniform:
          v = rng.Int(0, 65535);
          break;
        case Values::kHigh:
          v = rng.Int(32768, 65535);
          break;
        case Values::kFewLevels:
          v = 32766 + rng.Int(0, 3);
          break;
        case Values::kSmoothNoisy: {
          double s = base + slopeX * x + slopeY * y + sigma * rng.Normal();
          if (rng.Uniform() < 0.01) s += rng.Uniform(150.0, 20000.0);
          v = static_cast<int>(std::lround(std::clamp(s, 0.0, 65535.0)));
          break;
        }
        case Values::kBinary:
          v = rng.Int(0, 1) * 65535;
          break;
      }
      row[x] = static_cast<std::uint16_t>(v);
    }
  }
  return image;
}

}  // namespace testimages
