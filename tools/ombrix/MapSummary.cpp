#include "MapSummary.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace ombrix_tool {

namespace {

double Percentile(const std::vector<float>& sorted, double p) {
  const double position = p * static_cast<double>(sorted.size() - 1);
  const std::size_t below = static_cast<std::size_t>(std::floor(position));
  const std::size_t above = std::min(below + 1, sorted.size() - 1);
  const double fraction = position - static_cast<double>(below);
  return static_cast<double>(sorted[below]) +
         fraction * (static_cast<double>(sorted[above]) - static_cast<double>(sorted[below]));
}

}  // namespace

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
  std::sort(values.begin(), values.end());
  summary.count = static_cast<long long>(values.size());
  summary.mean = sum / static_cast<double>(values.size());
  summary.median = Percentile(values, 0.5);
  summary.percentile99 = Percentile(values, 0.99);
  return summary;
}

}  // namespace ombrix_tool
