#include "TemporalNoiseReference.h"

#include <stdexcept>
#include <vector>

namespace oracle {

namespace {

unsigned short SampleAt(const cv::Mat& frame, int y, int x) {
  if (frame.elemSize() == 2) return frame.at<unsigned short>(y, x);
  cv::Mat converted;
  frame(cv::Rect(x, y, 1, 1)).convertTo(converted, CV_16U);
  return converted.at<unsigned short>(0, 0);
}

}  // namespace

cv::Mat TemporalNoise(const CTemporalNoise& noise, CTemporalNoise::Statistic statistic) {
  const std::vector<cv::Mat>& images = noise.Images();
  if (images.empty()) throw std::invalid_argument("empty series");
  const cv::Mat& reference = images.back();
  const int rows = reference.rows;
  const int cols = reference.cols;
  const int covered = (rows * cols) / CTemporalNoise::kWorkers * CTemporalNoise::kWorkers;
  cv::Mat result = cv::Mat::zeros(rows, cols, CV_32F);
  for (int p = 0; p < covered; ++p) {
    const int y = p / cols;
    const int x = p % cols;
    std::vector<unsigned short> values;
    for (const cv::Mat& frame : images) values.push_back(SampleAt(frame, y, x));
    result.at<float>(y, x) = statistic(values);
  }
  return result;
}

}  // namespace oracle
