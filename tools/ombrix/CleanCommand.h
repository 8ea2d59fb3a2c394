// `ombrix clean IMAGE... --radius R --threshold T [--mask M]` and `ombrix median IMAGE --radius R`:
// the core's cosmic-ray filter (bright outliers above the disc median replaced by it) and its disc
// median, on single-channel images: 16-bit unsigned for any radius, 8-bit unsigned for the clean
// command's radius 1 and 2.
#pragma once

#include <string>
#include <vector>

#include "RunContext.h"

namespace ombrix_tool {

struct CleanOptions {
  std::vector<std::string> images;
  int radius = 10;
  int threshold = 100;
  std::string mask;
};

struct MedianOptions {
  std::string image;
  int radius = 10;
};

// Return the process exit code; throw ToolError for usage and input errors.
int RunClean(const CleanOptions& options, const CommonOptions& common);
int RunMedian(const MedianOptions& options, const CommonOptions& common);

}  // namespace ombrix_tool
