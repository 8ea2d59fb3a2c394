// The oracles of CRobustStatistics: the median by a full sort (the mean of the two middle values
// for an even count) and the robust noise 1.4826 x the median absolute deviation from it, the
// deviations rounded to float. Accept any sample list; NaN when it is empty.
#pragma once

#include <vector>

namespace oracle {

double MedianBySort(std::vector<double> values);

double RobustNoise(const std::vector<double>& values);

}  // namespace oracle
