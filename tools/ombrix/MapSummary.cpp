#include "MapSummary.h"

#include <cmath>
#include <vector>

#include "OrderStatistics.h"

namespace ombrix_tool {

MapSummary SummarizeMap(const cv::Mat& map32f) {
  CV_Assert(map32f.type() == CV_32FC1);
  std::vector<float> values;
  values.reserve(map32f.total());
  double sum = 0.0;
  for (int y = 0; y < map32f.rows; ++y) {
    const float* row = map32f.ptr<float>(y);
    for (int x = 0; x < map32f.cols; ++x) {
      if (!std::isfinite(row[x])) continue;
      values.push_back(row[x]);
      sum += row[x];
    }
  }
  MapSummary summary;
  if (values.empty()) return summary;
  summary.count = static_cast<long long>(values.size());
  summary.mean = sum / static_cast<double>(values.size());
  const std::vector<double> percentiles = Percentiles(values, {0.5, 0.99});
  summary.median = percentiles[0];
  summary.percentile99 = percentiles[1];
  return summary;
}

}  // namespace ombrix_tool
