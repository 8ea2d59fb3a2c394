// The oracle of the detectors' connected-component labels: an 8-connected flood fill that numbers
// the components in raster order of their first sample (the one met first in a row-major scan
// gets label 1). Accepts any 8-bit single-channel image; non-zero samples are foreground.
#pragma once

#include <opencv2/core.hpp>

namespace oracle {

// CV_32S labels, 0 on the background.
cv::Mat RasterLabels(const cv::Mat& binary);

}  // namespace oracle
