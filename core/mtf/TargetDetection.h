// Detection of the square targets of an MTF chart: the image is reduced to a bounded 8-bit grey
// picture, its contours are simplified to convex polygons and sifted for squares of useful size and
// tilt. Accepts any cv::Mat with one or more channels and any depth.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

#include "mtf/ContourFeatures.h"

struct TargetDetectionSettings {
  // 0: reduce by about 3.5; > 0: largest side of the working image; < 0: never resize.
  std::int32_t workingSize = 2048;
  // Canny thresholds; when either is not above 0 the grey image itself is handed to contour
  // retrieval and must already be binary.
  float cannyLow = 30.0f, cannyHigh = 50.0f;
  // Shortest over longest box side.
  float minimumAspect = 0.7f;
  // In pixels of the working image.
  float minimumArea = 1000.0f;
  // Bounds of the folded box angle, degrees.
  float minimumAngle = 3.5f, maximumAngle = 8.0f;
  // Written by detection: working-image coordinates times scale give input coordinates. Kept
  // from the previous run when a run does not resize.
  double scale = 1.0;
  // The lists of the last run.
  ContourSet contours;
};

// Fills result (emptied first) with one polygon of four to six vertices per target, in input-image
// pixels, and updates settings.scale and settings.contours. OpenCV errors (empty image,
// unsupported type) pass to the caller; no target is an empty result. A settings.scale that is
// not finite and positive is StsBadArg "scale must be finite and positive" (nothing changed); a
// kept scale that takes a vertex beyond the int range is StsOutOfRange (result left empty).
// Non-finite samples of a float image take no part in its stretch to 8 bits. A matrix of more
// than two dimensions is StsBadArg "target detection needs a 2-D image".
void DetectTargets(TargetDetectionSettings& settings, std::vector<ContourRecord>& result,
                   const cv::Mat& image);
