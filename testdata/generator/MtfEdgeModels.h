// The models of "MTF_Edge1.tif" and "MTF_Edge2.tif": 128 x 256 slanted edges at 5 degrees, 16-bit,
// with read noise; shared by the MtfEdges data set and the tool that calibrated their blur.
#pragma once

#include <cstdint>

#include "SlantedEdge.h"

namespace datagen {

// PSF widths found once by bisection with the suite's single-edge measurement on these very
// renderings (seed and noise included; testdata/tools/CalibrateMtfEdges.cpp), then frozen: Edge1
// aims at a cut frequency of 0.575 (middle of 0.55 .. 0.6), Edge2 at an efficiency of 45.25 %
// (middle of 45.0 .. 45.5), which with the Nyquist sample 0.4941 of a 128-column region at
// 5 degrees is a cut frequency of 0.2236, inside 0.2 .. 0.25 and 0.0014 from its middle.
constexpr double kMtfEdge1Sigma = 0.5024;
constexpr double kMtfEdge2Sigma = 1.4996;
constexpr std::uint64_t kMtfEdge1Seed = 61;
constexpr std::uint64_t kMtfEdge2Seed = 62;

inline SlantedEdge MtfEdgeModel(double sigma, std::uint64_t seed) {
  // rows, cols, angle, sigma, dark, bright, dark first, horizontal, offset, noise, seed
  return SlantedEdge{256, 128, 5.0, sigma, 2000.0, 12000.0, true, false, 0.0, 20.0, seed};
}

}  // namespace datagen
