// The single-channel grey picture that target detection and edge measurement work on. Accepts a
// 2-D cv::Mat of any depth and channel count: one channel is returned as it is, three and four
// channels go through OpenCV's colour conversion, any other count is the mean of its channels.
#pragma once

#include <opencv2/core.hpp>

// rgbOrder picks COLOR_RGB2GRAY (true) or COLOR_BGR2GRAY (false) for three and four channels.
// Two channels (grey plus alpha, or a complex pair) and more than four have no colour meaning and
// no OpenCV conversion, so they are averaged; the result keeps the input's depth. Three and four
// channels of a depth OpenCV's colour conversion lacks (8S, 16S, 32S, 64F) give a 32F picture.
cv::Mat GreyPicture(const cv::Mat& image, bool rgbOrder);
