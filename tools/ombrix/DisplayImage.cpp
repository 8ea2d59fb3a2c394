#include "DisplayImage.h"

#include <algorithm>
#include <vector>

namespace ombrix_tool {

cv::Mat DisplayGrey(const cv::Mat& image) {
  if (image.empty()) return cv::Mat();
  cv::Mat values;
  image.convertTo(values, CV_32F);
  values = values.reshape(1, image.rows);
  std::vector<float> sorted(values.begin<float>(), values.end<float>());
  std::sort(sorted.begin(), sorted.end());
  const double lo = sorted[sorted.size() / 200];
  const double hi = sorted[sorted.size() - 1 - sorted.size() / 200];
  const double scale = hi > lo ? 255.0 / (hi - lo) : 1.0;
  cv::Mat grey;
  values.convertTo(grey, CV_8U, scale, -lo * scale);
  return grey;
}

}  // namespace ombrix_tool
