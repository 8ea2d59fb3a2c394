// The oracle of the 16-bit disc median: every pixel's disc gathered with a square-root membership
// test per window pixel, then selected with the project's selection routine and the even-count
// rule. Accepts 16-bit unsigned single-channel images and any radius from 1.
#pragma once

#include <opencv2/core.hpp>

namespace oracle {

// The disc median at (x, y): the samples with sqrt(dx^2 + dy^2) - 0.5 <= radius inside the image,
// in row-major order; an odd count gives the true median, an even count the entry before the
// middle after the selection, doubled and halved in 16 bits (which clears its top bit).
unsigned short DiscMedianAt(const cv::Mat& src, int x, int y, int radius);

// DiscMedianAt for every pixel of the rows [rows.start, rows.end) clamped to the image, written
// into dst, which must have the source's size and type.
void DiscMedianRows(const cv::Mat& src, cv::Mat& dst, int radius, const cv::Range& rows);

// The whole image in a new CV_16UC1 buffer.
cv::Mat DiscMedian(const cv::Mat& src, int radius);

}  // namespace oracle
