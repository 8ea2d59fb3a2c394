#include "RobustStatisticsReference.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace oracle {

double MedianBySort(std::vector<double> values) {
  if (values.empty()) return std::numeric_limits<double>::quiet_NaN();
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  return n % 2 ? values[n / 2] : 0.5 * (values[n / 2 - 1] + values[n / 2]);
}

double RobustNoise(const std::vector<double>& values) {
  const double median = MedianBySort(values);
  std::vector<double> deviations;
  // Deviations are rounded to float like the float samples they come from.
  for (const double v : values) deviations.push_back(static_cast<float>(std::abs(v - median)));
  return 1.4826 * MedianBySort(deviations);
}

}  // namespace oracle
