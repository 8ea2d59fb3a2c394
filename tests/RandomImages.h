// Random 16-bit test images and cases for the filter identity tests, from the project's
// deterministic generator: several value models so that ties, the top bit, smooth data and wild
// data all occur.
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

// A random 8-bit mask of rows x cols: every value is step times a draw from 0..maxLevel, so that
// 0 (pixel left out) and several non-zero values (pixel selected) all occur.
inline cv::Mat RandomMask(datagen::Random& rng, int rows, int cols, int maxLevel, int step) {
  cv::Mat mask(rows, cols, CV_8UC1);
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x)
      mask.at<unsigned char>(y, x) = static_cast<unsigned char>(rng.Int(0, maxLevel) * step);
  }
  return mask;
}

// One random case of a disc filter's identity test: half the sides at most 40, so that discs cut
// on several sides are common; a radius in minRadius..40; the value model cycling with caseIndex;
// every fifth source a region of a larger image, so its rows are further apart than its width.
// False, with no image drawn, when the case would cost more than budget window pixels.
inline bool DrawDiscCase(datagen::Random& rng, int caseIndex, int minRadius, double budget,
                         cv::Mat& src, int& radius) {
  const int cols = rng.Uniform() < 0.5 ? rng.Int(1, 40) : rng.Int(1, 300);
  const int rows = rng.Uniform() < 0.5 ? rng.Int(1, 40) : rng.Int(1, 300);
  radius = rng.Int(minRadius, 40);
  const double window =
      std::min(2.0 * radius + 1, 1.0 * cols) * std::min(2.0 * radius + 1, 1.0 * rows);
  if (1.0 * cols * rows * window > budget) return false;
  const auto model = static_cast<Values>(caseIndex % kValueModels);
  src = caseIndex % 5 == 4 ? RandomImage(rng, rows + 3, cols + 5, model)(cv::Rect(2, 1, cols, rows))
                           : RandomImage(rng, rows, cols, model);
  return true;
}

// Draws up to count cases (DrawDiscCase) and hands each to check(caseIndex, src, radius), which
// returns false to stop. Returns how many cases were checked and passed; gives up after 5000
// draws, so a budget too small for count cases shows as a short count.
template <class Check>
int ForEachDiscCase(datagen::Random& rng, int count, int minRadius, double budget, Check check) {
  int cases = 0;
  for (int attempts = 0; cases < count && attempts < 5000; ++attempts) {
    cv::Mat src;
    int radius = 0;
    if (!DrawDiscCase(rng, cases, minRadius, budget, src, radius)) continue;
    if (!check(cases, src, radius)) break;
    ++cases;
  }
  return cases;
}

}  // namespace testimages
