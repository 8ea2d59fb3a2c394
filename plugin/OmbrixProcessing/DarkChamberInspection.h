// Dark-chamber inspection: counts the light-leak regions in the pixel-wise minimum of
// dark-subtracted frames taken inside the closed chamber. Accepts a non-empty single-channel image
// of any depth (the plug-in receives 32-bit float).
//
// A leak shows as a spread glow: a region of at least kMinRegionArea 8-connected pixels above the
// image's median by more than kNoiseFactor times its robust noise (1.4826 x MAD). Isolated
// outliers are not leaks: hot pixels are removed by the dark subtraction (their residual shot
// noise leaves single pixels) and cosmic-ray tracks by the minimum over frames.
#pragma once

#include <opencv2/core.hpp>

class CDarkChamberInspection {
 public:
  static constexpr double kNoiseFactor = 6.0;
  static constexpr int kMinRegionArea = 16;

  virtual ~CDarkChamberInspection() = default;

  // Number of leak regions; -1 (not available) for an empty or multi-channel image. With zero
  // noise (MAD 0) every sample above the median counts as excess.
  static int CountDefects(const cv::Mat& minimumImage);

  // The same count, with the regions counted drawn into defectMap: CV_8U of the image's size,
  // 255 on every pixel of a counted region, 0 elsewhere (excess pixels of smaller regions too).
  // defectMap is released when the count is -1.
  static int CountDefects(const cv::Mat& minimumImage, cv::Mat& defectMap);

  // Binary map (CV_8U, 255) of the samples above the leak threshold, and the threshold. A
  // 2-D CV_32FC1 image only: anything else is StsUnsupportedFormat, threshold untouched.
  static cv::Mat ExcessMask(const cv::Mat& image32f, double& threshold);
};
