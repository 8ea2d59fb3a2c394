// The oracle of BuildEdgeProfile: the same projection written out in one single-threaded pass with
// cv::Mat::at over a double copy of the region. Accepts the regions BuildEdgeProfile accepts.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

namespace oracle {

// The ESF of the region for the slope and oversampling, with the bin offset it used.
std::vector<double> BuildEdgeProfile(const cv::Mat& region, float slope, float oversampling,
                                     std::int32_t& binOffset);

}  // namespace oracle
