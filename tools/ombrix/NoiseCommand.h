// `ombrix noise FRAMES...`: the per-pixel temporal noise (sample standard deviation) of a series
// of single-channel 8- or 16-bit frames of one size, streamed in two passes over the files
// (memory for a few frames whatever their number), or with --exact-stack the in-memory stack
// statistic itself. Writes the 32-bit float noise map and its summary figures.
#pragma once

#include <string>
#include <vector>

#include "RunContext.h"

namespace ombrix_tool {

struct NoiseOptions {
  std::vector<std::string> frames;
  // "x,y,w,h" in pixels; empty: whole frame only.
  std::string region;
  bool exactStack = false;
};

// Frames decoded ahead of the stream: one per core, at least 2.
std::size_t NoiseReadAhead();

// Returns the process exit code; throws ToolError for usage and input errors.
int RunNoise(const NoiseOptions& options, const CommonOptions& common);

}  // namespace ombrix_tool
