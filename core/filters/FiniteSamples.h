// The finite samples of a single-channel float image, shared by the processing plug-in's robust
// statistics and the tool's histograms, colour ranges and map summaries, so that every one of them
// leaves out the same pixels. Accepts 2-D CV_32FC1 images.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

class CFiniteSamples {
 public:
  // The finite samples (neither NaN nor infinite) of a 2-D CV_32FC1 image, row by row; callers
  // convert other depths first. Any other image fails CV_Assert.
  static std::vector<float> Of(const cv::Mat& image32f);
};
