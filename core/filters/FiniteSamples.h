// The finite samples of a single-channel float image and the percentile of sorted samples, shared
// by the processing plug-in's robust statistics and the tool's histograms and map summaries, so
// that every one of them leaves out the same pixels and interpolates the same way. Accepts 2-D
// CV_32FC1 images.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

class CFiniteSamples {
 public:
  // The finite samples (neither NaN nor infinite) of a 2-D CV_32FC1 image, row by row; callers
  // convert other depths first. Any other image fails CV_Assert.
  static std::vector<float> Of(const cv::Mat& image32f);

  // The percentile at fraction (0 to 1) of sorted (ascending, not empty): linear interpolation
  // between the samples at position fraction x (count - 1), numpy's default, so that no selection
  // order enters the result.
  static double Percentile(const std::vector<float>& sorted, double fraction);
};
