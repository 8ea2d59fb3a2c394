#include "OrderStatistics.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace ombrix_tool {

std::vector<float> OrderStatistics(std::vector<float>& values,
                                   const std::vector<std::size_t>& positions) {
  std::vector<std::size_t> ascending(positions);
  std::sort(ascending.begin(), ascending.end());
  ascending.erase(std::unique(ascending.begin(), ascending.end()), ascending.end());
  if (!ascending.empty() && ascending.back() >= values.size()) {
    throw std::out_of_range("order statistic " + std::to_string(ascending.back()) +
                            " of a sample of " + std::to_string(values.size()));
  }
  // Each selection leaves every smaller value before its position, so the next (larger) position
  // is searched for among the values after it only.
  auto from = values.begin();
  for (const std::size_t position : ascending) {
    const auto nth = values.begin() + static_cast<std::ptrdiff_t>(position);
    if (nth == from) {
      // The next position after a selected one (a percentile's upper neighbour): the smallest of
      // the rest, one scan.
      std::iter_swap(from, std::min_element(from, values.end()));
    } else {
      std::nth_element(from, nth, values.end());
    }
    from = nth + 1;
  }
  std::vector<float> result;
  result.reserve(positions.size());
  for (const std::size_t position : positions) result.push_back(values[position]);
  return result;
}

std::vector<double> Percentiles(std::vector<float>& values, const std::vector<double>& fractions) {
  if (values.empty()) throw std::invalid_argument("percentiles of an empty sample");
  const double last = static_cast<double>(values.size() - 1);
  std::vector<std::size_t> positions;
  for (const double fraction : fractions) {
    if (!(fraction >= 0.0 && fraction <= 1.0)) {
      throw std::invalid_argument("a percentile fraction must lie from 0 to 1");
    }
    const auto below = static_cast<std::size_t>(std::floor(fraction * last));
    positions.push_back(below);
    positions.push_back(std::min(below + 1, values.size() - 1));
  }
  const std::vector<float> order = OrderStatistics(values, positions);
  std::vector<double> result;
  for (std::size_t i = 0; i < fractions.size(); ++i) {
    const double below = order[2 * i];
    const double above = order[2 * i + 1];
    const double weight = fractions[i] * last - std::floor(fractions[i] * last);
    result.push_back(below + weight * (above - below));
  }
  return result;
}

}  // namespace ombrix_tool
