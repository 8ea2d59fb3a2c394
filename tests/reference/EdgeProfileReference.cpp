#include "EdgeProfileReference.h"

#include <cmath>

namespace oracle {

std::vector<double> BuildEdgeProfile(const cv::Mat& region, float slope, float oversampling,
                                     std::int32_t& binOffset) {
  cv::Mat values;
  region.convertTo(values, CV_64F);
  // The projection of the last row's first pixel decides how far the bins reach to the left.
  const float lastRow =
      std::round((0.0f - static_cast<float>(region.rows - 1) * slope) * oversampling);
  binOffset = lastRow < 1.0f ? static_cast<int>(lastRow) : 0;
  const int kept = static_cast<int>(static_cast<float>(region.cols) * oversampling);
  const int reach = static_cast<int>(std::fabs(lastRow));
  std::vector<double> sums(static_cast<std::size_t>(reach + kept), 0.0);
  std::vector<double> counts(sums.size(), 0.0);
  for (int r = 0; r < values.rows; ++r) {
    for (int c = 0; c < values.cols; ++c) {
      const float position =
          std::ceil((static_cast<float>(c) - static_cast<float>(r) * slope) * oversampling);
      const int bin = static_cast<int>(position - static_cast<float>(binOffset));
      if (bin < 0 || bin >= static_cast<int>(sums.size())) continue;
      counts[bin] += 1.0;
      sums[bin] += values.at<double>(r, c);
    }
  }
  // Empty bins read 0; the profile is the kept bins from half the reach on.
  std::vector<double> esf;
  const int first = static_cast<int>(std::round(reach * 0.5));
  for (int i = first; i < first + kept && i < static_cast<int>(sums.size()); ++i) {
    esf.push_back(counts[i] != 0.0 ? sums[i] / counts[i] : 0.0);
  }
  return esf;
}

}  // namespace oracle
