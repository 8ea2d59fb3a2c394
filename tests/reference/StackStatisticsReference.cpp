#include "StackStatisticsReference.h"

#include <algorithm>
#include <cstdint>

namespace oracle {

namespace {

// Element (row, i) of any depth as double; i counts channels within the row.
double ElementAt(const cv::Mat& m, int row, int i) {
  const uchar* p = m.ptr(row);
  switch (m.depth()) {
    case CV_8U:
      return reinterpret_cast<const std::uint8_t*>(p)[i];
    case CV_8S:
      return reinterpret_cast<const std::int8_t*>(p)[i];
    case CV_16U:
      return reinterpret_cast<const std::uint16_t*>(p)[i];
    case CV_16S:
      return reinterpret_cast<const std::int16_t*>(p)[i];
    case CV_32S:
      return reinterpret_cast<const std::int32_t*>(p)[i];
    case CV_32F:
      return reinterpret_cast<const float*>(p)[i];
    case CV_64F:
      return reinterpret_cast<const double*>(p)[i];
    default:
      return static_cast<float>(reinterpret_cast<const cv::float16_t*>(p)[i]);
  }
}

// Every element of the stack's first image folded over the stack in double, then stored in the
// input type.
template <class Fold>
cv::Mat ElementwiseThroughDouble(const std::vector<cv::Mat>& images, Fold fold) {
  const cv::Mat& first = images.front();
  cv::Mat result(first.rows, first.cols, CV_64FC(first.channels()));
  const int n = first.cols * first.channels();
  for (int y = 0; y < first.rows; ++y) {
    for (int i = 0; i < n; ++i) {
      std::vector<double> values;
      for (const cv::Mat& image : images) values.push_back(ElementAt(image, y, i));
      result.ptr<double>(y)[i] = fold(values);
    }
  }
  cv::Mat typed;
  result.convertTo(typed, first.depth());
  return typed;
}

}  // namespace

cv::Mat StackMinimum(const std::vector<cv::Mat>& images) {
  return ElementwiseThroughDouble(images, [](const std::vector<double>& values) {
    return *std::min_element(values.begin(), values.end());
  });
}

cv::Mat StackAverage(const std::vector<cv::Mat>& images) {
  return ElementwiseThroughDouble(images, [](const std::vector<double>& values) {
    double sum = 0.0;
    for (const double v : values) sum += v;
    return sum / static_cast<double>(values.size());
  });
}

}  // namespace oracle
