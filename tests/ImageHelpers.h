// Small image helpers shared by the filter tests: the exact and the largest-difference comparison
// of two images (any size, depth and channel count), and the reflect-101 border index that the
// straightforward convolution oracles use.
#pragma once

#include <opencv2/core.hpp>

namespace testimages {

// Same size, same type and every sample equal.
inline bool Equal(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

// Largest absolute sample difference, computed in double so no depth saturates it.
inline double MaxAbsDiff(const cv::Mat& a, const cv::Mat& b) {
  cv::Mat a64, b64, diff;
  a.convertTo(a64, CV_64F);
  b.convertTo(b64, CV_64F);
  cv::absdiff(a64, b64, diff);
  double maxVal = 0.0;
  cv::minMaxIdx(diff, nullptr, &maxVal);
  return maxVal;
}

// Index p folded into 0..length-1 by mirroring without repeating the edge sample (gfedcb|abcdefgh).
inline int Reflect101(int p, int length) {
  if (length == 1) return 0;
  while (p < 0 || p >= length) {
    p = p < 0 ? -p : 2 * (length - 1) - p;
  }
  return p;
}

}  // namespace testimages
