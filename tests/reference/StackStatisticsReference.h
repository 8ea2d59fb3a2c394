// The oracles of CStackStatistics: pixel-wise minimum and mean element by element through double,
// stored in the input type. Accepts non-empty lists of images of one size and type (any depth and
// channel count).
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace oracle {

cv::Mat StackMinimum(const std::vector<cv::Mat>& images);
cv::Mat StackAverage(const std::vector<cv::Mat>& images);

}  // namespace oracle
