#include "DisplayImage.h"

#include <vector>

#include "OrderStatistics.h"

namespace ombrix_tool {

cv::Mat DisplayGrey(const cv::Mat& image) {
  if (image.empty()) return cv::Mat();
  cv::Mat values;
  image.convertTo(values, CV_32F);
  values = values.reshape(1, image.rows);
  std::vector<float> sample(values.begin<float>(), values.end<float>());
  const std::size_t clip = sample.size() / 200;
  const std::vector<float> range = OrderStatistics(sample, {clip, sample.size() - 1 - clip});
  const double lo = range[0];
  const double hi = range[1];
  const double scale = hi > lo ? 255.0 / (hi - lo) : 1.0;
  cv::Mat grey;
  values.convertTo(grey, CV_8U, scale, -lo * scale);
  return grey;
}

}  // namespace ombrix_tool
