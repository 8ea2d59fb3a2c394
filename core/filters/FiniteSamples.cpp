#include "FiniteSamples.h"

#include <cmath>

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
