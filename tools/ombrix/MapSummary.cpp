#include "MapSummary.h"

#include <vector>

#include "OrderStatistics.h"
#include "filters/FiniteSamples.h"

namespace ombrix_tool {

MapSummary SummarizeMap(const cv::Mat& map32f) {
  CV_Assert(map32f.type() == CV_32FC1);
  std::vector<float> values = CFiniteSamples::Of(map32f);
  double sum = 0.0;
  for (float v : values) sum += v;
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
