// Synthetic sensor frames for the temporal-noise benchmarks: square 16-bit frames of a flat level
// with 11 random bits on top, drawn from the caller's generator so that a series continues it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>

#include "Random.h"

namespace ombrix_bench {

// side x side CV_16U, samples 2000 + (0 .. 2047); four samples per 64-bit draw. The side must be
// a multiple of 2 (the sample count a multiple of 4).
inline cv::Mat RandomSensorFrame(datagen::Random& random, int side) {
  cv::Mat frame(side, side, CV_16U);
  auto* samples = frame.ptr<std::uint16_t>(0);
  const std::size_t count = frame.total();
  for (std::size_t i = 0; i < count; i += 4) {
    std::uint64_t bits = random.Next();
    for (std::size_t j = 0; j < 4; ++j, bits >>= 16) {
      samples[i + j] = static_cast<std::uint16_t>(2000 + (bits & 0x7FF));
    }
  }
  return frame;
}

}  // namespace ombrix_bench
