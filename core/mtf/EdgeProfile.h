// Oversampled edge spread function (ESF) of one slanted edge: every pixel of an edge region is
// projected along the edge onto the axis across it and averaged in bins of 1/oversampling pixel.
// Regions are single-channel cv::Mat of depth CV_8U, CV_8S, CV_16U, CV_16S, CV_32S, CV_32F or
// CV_64F whose edge runs roughly along the columns.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

#include "mtf/KProfile.h"

// Profile-extraction state held by the measurement object.
struct EdgeProfiler {
  // Index shift of the first bin, written by every run: the rounded projection offset of the last
  // row when it is zero or negative, else 0.
  std::int32_t binOffset = 0;
  // Bins per pixel.
  float oversampling = 4.0f;
  // Worker threads of the projection; values below 1 run one thread.
  std::int32_t threadCount = 1;
  // The last ESF built (origin 0.0, step 1.0).
  KProfile<double> esf;
};

// Builds the ESF of the region for an edge whose column position grows by slope per row, stores it
// in profiler.esf and returns its values. Pixel (r, c) falls into bin
// (int)(ceil((c - r x slope) x oversampling) - binOffset); a positive projection offset (negative
// slope) is deliberately not used as the shift, so those pixels start at bin 0. Rows are split into
// threadCount consecutive chunks (the last one takes the remainder), each on its own std::thread
// with its own sums and counts, merged after all joins. The ESF is the width = (int)(C x
// oversampling) bins that start round(|offset| / 2) bins in; empty bins are 0.
// threadCount above the row count runs one thread (the same result).
// Errors: cv::Error::StsBadArg "empty region", "region must be 2-D", "slope must be finite",
// "oversampling must be finite and positive"; cv::Error::StsOutOfRange "the profile would exceed
// 16777216 bins", "too many threads for the size of the profile"; cv::Error::StsUnsupportedFormat
// "region must have one channel" / "unsupported region depth"; std::system_error when a thread
// cannot be started (the threads already started are joined first). profiler is unchanged by a
// cv::Exception.
std::vector<double> BuildEdgeProfile(EdgeProfiler& profiler, const cv::Mat& region, float slope);

// The same profile without the rows start <= r < end of excludedRows (none when end <= start): the
// other rows keep their row index in the projection and the bins keep the whole region's layout,
// so profiles that leave out different rows share one sampling.
std::vector<double> BuildEdgeProfile(EdgeProfiler& profiler, const cv::Mat& region, float slope,
                                     const cv::Range& excludedRows);
