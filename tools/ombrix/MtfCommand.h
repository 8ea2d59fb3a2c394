// `ombrix mtf IMAGE...`: the core's slanted-edge MTF measurement on a user's images, either every
// edge of the square targets the chart holds, or (--edge) the whole image or a region of it as one
// edge. Images of any depth and channel count that CMtfMeasurement accepts.
#pragma once

#include <string>
#include <vector>

#include "RunContext.h"

namespace ombrix_tool {

struct MtfOptions {
  std::vector<std::string> images;
  bool edge = false;
  // "x,y,w,h" in pixels; implies edge.
  std::string roi;
  // Microns; 0 when not given (frequencies in cycles/pixel only).
  double pixelPitch = 0.0;
  double gamma = 1.0;
  // Which measured edge (1-based, over all images in table order) the ESF and LSF plots show.
  int plotEdge = 1;
};

// Returns the process exit code; throws ToolError for usage and input errors.
int RunMtf(const MtfOptions& options, const CommonOptions& common);

}  // namespace ombrix_tool
