// Image comparisons of the suite: exact equality over the whole image, and the largest absolute
// difference inside a centred region with a fixed border cut off (the border is where windowed
// filters see a clipped neighbourhood). Images of different sizes or types make OpenCV throw.
#pragma once

#include <opencv2/core.hpp>

// True when every sample of every channel is identical; no tolerance.
bool ImagesEqual(const cv::Mat& a, const cv::Mat& b);

// Largest |expected - computed| over cv::Rect(border, border, cols - 2 border, rows - 2 border).
double RegionMaxDifference(const cv::Mat& expected, const cv::Mat& computed, int border = 10);
