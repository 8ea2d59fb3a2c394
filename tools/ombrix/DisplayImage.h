// 8-bit pictures of sensor images for a person to look at: any single-channel image stretched
// between its 0.5th and 99.5th percentiles, so that faint structure stays visible.
#pragma once

#include <opencv2/core.hpp>

namespace ombrix_tool {

// CV_8UC1 of the image's size; an empty image gives an empty picture.
cv::Mat DisplayGrey(const cv::Mat& image);

}  // namespace ombrix_tool
