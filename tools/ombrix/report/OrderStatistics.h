// Order statistics and percentiles of a sample of floats (a noise map's values, a picture's grey
// levels) by selection in linear time instead of a sort. The value at a sorted position is unique,
// so the results do not depend on the order in which the selection leaves the other values.
// Accepts any sample without NaN; the caller leaves out the values it does not summarise.
#pragma once

#include <cstddef>
#include <vector>

namespace ombrix_tool {

// The values that would stand at the given positions (each below values.size()) if the sample were
// sorted ascending, in the order of the positions asked. Reorders the sample.
std::vector<float> OrderStatistics(std::vector<float>& values,
                                   const std::vector<std::size_t>& positions);

// Percentiles (fractions from 0 to 1) interpolated linearly between the order statistics at
// fraction x (count - 1), numpy's default definition, in the order of the fractions asked. The
// sample must not be empty. Reorders the sample.
std::vector<double> Percentiles(std::vector<float>& values, const std::vector<double>& fractions);

}  // namespace ombrix_tool
