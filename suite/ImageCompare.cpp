#include "ImageCompare.h"

bool ImagesEqual(const cv::Mat& a, const cv::Mat& b) {
  cv::Mat diff;
  cv::absdiff(a, b, diff);
  double maxVal = 0.0;
  cv::minMaxIdx(diff, nullptr, &maxVal);
  return maxVal == 0.0;
}

double RegionMaxDifference(const cv::Mat& expected, const cv::Mat& computed, int border) {
  cv::Mat diff;
  cv::absdiff(expected, computed, diff);
  diff = diff(cv::Rect(border, border, diff.cols - 2 * border, diff.rows - 2 * border));
  double maxVal = 0.0;
  cv::minMaxIdx(diff, nullptr, &maxVal);
  return maxVal;
}
