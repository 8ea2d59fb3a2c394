// Pixel-wise statistics over a stack of images: minimum and mean. Accepts non-empty images of one
// size and one type (any depth, any number of channels); the result has the input type.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

class CStackStatistics {
 public:
  virtual ~CStackStatistics() = default;

  // Pixel-wise minimum. dst receives a fresh buffer.
  static void Minimum(const std::vector<cv::Mat>& images, cv::Mat& dst);

  // Pixel-wise mean, summed in double and divided by the count, then stored in the input type:
  // integer depths are rounded to nearest (ties to even, as cv::saturate_cast) and saturated,
  // float keeps the nearest float to the exact mean. dst receives a fresh buffer.
  static void Average(const std::vector<cv::Mat>& images, cv::Mat& dst);

  // Errors of both (cv::Exception, function "CStackStatistics::Minimum" or "...::Average"):
  // StsBadArg "empty image list", StsBadArg "empty image in the list", StsUnmatchedSizes "images
  // differ in size", StsUnmatchedFormats "images differ in type".
  static void Validate(const std::vector<cv::Mat>& images, const char* function);
};
