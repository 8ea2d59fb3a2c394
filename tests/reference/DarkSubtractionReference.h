// The oracle of CDarkReference::Subtract without a bad-pixel map: raw - D(t) element by element,
// with D(t) = D1 + (D150 - D1)(t - 1)/149 evaluated as written in single precision. Accepts dark
// frames of one size and type and a raw frame of their size and channel count.
#pragma once

#include <opencv2/core.hpp>

namespace oracle {

// 32-bit float with the raw frame's channels.
cv::Mat SubtractDark(const cv::Mat& longDark, const cv::Mat& shortDark, const cv::Mat& raw,
                     float exposure);

}  // namespace oracle
