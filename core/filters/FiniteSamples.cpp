#include "FiniteSamples.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

std::vector<float> CFiniteSamples::Of(const cv::Mat& image32f) {
  CV_Assert(image32f.type() == CV_32FC1 && image32f.dims <= 2);
  std::vector<float> samples;
  samples.reserve(image32f.total());
  for (int y = 0; y < image32f.rows; ++y) {
    const float* row = image32f.ptr<float>(y);
    for (int x = 0; x < image32f.cols; ++x) {
      if (std::isfinite(row[x])) samples.push_back(row[x]);
    }
  }
  return samples;
}

double CFiniteSamples::Percentile(const std::vector<float>& sorted, double fraction) {
  const double position = fraction * static_cast<double>(sorted.size() - 1);
  const std::size_t below = static_cast<std::size_t>(std::floor(position));
  const std::size_t above = std::min(below + 1, sorted.size() - 1);
  const double weight = position - static_cast<double>(below);
  return static_cast<double>(sorted[below]) +
         weight * (static_cast<double>(sorted[above]) - static_cast<double>(sorted[below]));
}
