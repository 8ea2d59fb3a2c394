// Light-source calibration: the factor of a light source from the pixel-wise minimum of
// dark-subtracted flat-field frames taken on the calibration bench. Accepts a non-empty
// single-channel image of any depth (the plug-in receives 32-bit float).
//
// The factor is the mean of the central region (the middle half in each direction, where the
// bench optics' vignetting is mildest) relative to the nominal level, the level that the bench
// camera reads in the centre for the nominal source: kNominalLevel150s ADU at 150 s, proportional
// to the exposure.
#pragma once

#include <opencv2/core.hpp>

class CLightSourceCalibration {
 public:
  static constexpr double kNominalLevel150s = 20000.0;  // ADU
  static constexpr double kNominalExposure = 150.0;     // s

  virtual ~CLightSourceCalibration() = default;

  // Region whose mean is measured: columns cols/4 .. cols/4 + cols/2, rows likewise.
  static cv::Rect CentralRegion(const cv::Size& size);

  // Central mean over the nominal level at the exposure (seconds); -1 (not available) for an
  // empty or multi-channel image, an empty central region, an exposure that is not positive or a
  // central mean that is not finite (a NaN or infinite sample in the region).
  static float Factor(const cv::Mat& minimumImage, double exposure = kNominalExposure);

  // Mean of a single-channel image over a region, summed in double row by row.
  static double RegionMean(const cv::Mat& image, const cv::Rect& region);
};
