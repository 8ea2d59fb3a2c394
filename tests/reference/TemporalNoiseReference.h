// The oracle of CTemporalNoise::Compute: the statistic of every covered pixel computed on the
// calling thread, one pixel after the other, straight from the frames with a fresh vector per
// pixel. Accepts any series CTemporalNoise accepts.
#pragma once

#include <opencv2/core.hpp>

#include "stack/TemporalNoise.h"

namespace oracle {

// Same size and type as Compute's image: the last (pixels mod kWorkers) pixels stay 0. Throws
// std::invalid_argument on an empty series.
cv::Mat TemporalNoise(const CTemporalNoise& noise, CTemporalNoise::Statistic statistic);

}  // namespace oracle
