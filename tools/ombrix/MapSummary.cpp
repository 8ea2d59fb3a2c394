#include "MapSummary.h"

#include <algorithm>
#include <vector>

#include "filters/FiniteSamples.h"

namespace ombrix_tool {

MapSummary SummarizeMap(const cv::Mat& map32f) {
  CV_Assert(map32f.type() == CV_32FC1);
  std::vector<float> values = CFiniteSamples::Of(map32f);
  double sum = 0.0;
  for (float v : values) sum += v;
  MapSummary summary;
  if (values.empty()) return summary;
  std::sort(values.begin(), values.end());
  summary.count = static_cast<long long>(values.size());
  summary.mean = sum / static_cast<double>(values.size());
  summary.median = CFiniteSamples::Percentile(values, 0.5);
  summary.percentile99 = CFiniteSamples::Percentile(values, 0.99);
  return summary;
}

}  // namespace ombrix_tool
