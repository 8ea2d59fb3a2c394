// Robust location and spread of float samples, shared by the dark-chamber inspection and the spot
// detector: the exact median and the robust noise 1.4826 x MAD. Accepts any sample vector, or a
// single-channel float image whose finite samples count.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

class CRobustStatistics {
 public:
  // Robust noise of a normal distribution from its median absolute deviation.
  static constexpr double kMadToSigma = 1.4826;

  // Exact median of values, which it reorders: the mean of the two middle values for an even
  // count, so any platform gives the same number whatever order the selection leaves. NaN when
  // there is no value.
  static double MedianInPlace(std::vector<float>& values);

  // Median and kMadToSigma x MAD of values; values is overwritten by the absolute deviations
  // (each rounded to float, as the samples are).
  static void MedianAndNoise(std::vector<float>& values, double& median, double& noise);

  // Median and kMadToSigma x MAD of the finite samples of a CV_32FC1 image (exact order
  // statistics, so every platform gives the same numbers); NaN when there is no finite sample.
  // Any other image is StsUnsupportedFormat "the image must be 2-D, 32-bit float, one channel".
  static void OfImage(const cv::Mat& image32f, double& median, double& noise);
};
