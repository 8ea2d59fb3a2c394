#include "RobustStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "filters/FiniteSamples.h"

double CRobustStatistics::MedianInPlace(std::vector<float>& values) {
  const size_t n = values.size();
  if (n == 0) return std::numeric_limits<double>::quiet_NaN();
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(n / 2);
  std::nth_element(values.begin(), middle, values.end());
  const double upper = *middle;
  if (n % 2 == 1) return upper;
  // The lower middle value is the largest of the lower half, whatever order nth_element left.
  const double lower = *std::max_element(values.begin(), middle);
  return 0.5 * (lower + upper);
}

void CRobustStatistics::MedianAndNoise(std::vector<float>& values, double& median, double& noise) {
  median = MedianInPlace(values);
  for (float& v : values) v = static_cast<float>(std::abs(v - median));
  noise = kMadToSigma * MedianInPlace(values);
}

void CRobustStatistics::OfImage(const cv::Mat& image32f, double& median, double& noise) {
  if (image32f.type() != CV_32FC1 || image32f.dims > 2) {
    cv::error(cv::Error::StsUnsupportedFormat, "the image must be 2-D, 32-bit float, one channel",
              "CRobustStatistics::OfImage", __FILE__, __LINE__);
  }
  std::vector<float> values = CFiniteSamples::Of(image32f);
  MedianAndNoise(values, median, noise);
}
