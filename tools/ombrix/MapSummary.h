// Summary figures of a float map (the temporal-noise image): mean, median and 99th percentile of
// its finite values, over the whole map or a region of it. Accepts CV_32F single-channel maps.
#pragma once

#include <opencv2/core.hpp>

namespace ombrix_tool {

struct MapSummary {
  // -1 when the area holds no finite value.
  double mean = -1.0;
  double median = -1.0;
  double percentile99 = -1.0;
  // Finite values summarised.
  long long count = 0;
};

// Percentiles interpolate linearly between the sorted values at position p (count - 1), the
// common definition (numpy's default).
MapSummary SummarizeMap(const cv::Mat& map32f);

}  // namespace ombrix_tool
