// Spot detection on a dark-subtracted frame: cosmic-ray cleaning, Gaussian smoothing, a threshold
// in units of the frame's robust noise, then size, shape, border and peak acceptance tests.
// Detect accepts any non-empty single-channel image (the plug-in hands it 32-bit float frames).
//
// Meaning of the nine AlgoParameters fields (the host's values in brackets):
//   1 cosmicRayRadius [3]      disc radius of the cosmic-ray step (CCosmicRayCleaner, on the
//                              disc median of CFilterCosmicRay); 0 disables the step.
//   2 cosmicRayThreshold [100] a sample more than this many ADU above the median of its disc is an
//                              outlier; outliers that are also sharp (see CCosmicRayCleaner) seed
//                              a hit (cosmic ray, hot pixel), which is refilled from its
//                              surroundings.
//   3 smoothingSigma [2]       sigma of the Gaussian smoothing (CGaussianBlur, separable) that the
//                              threshold is applied to; 0 thresholds the cleaned frame itself.
//   4 maxObjectArea [1000]     largest accepted footprint, pixels.
//   5 minObjectRadius [2]      smallest accepted equivalent radius sqrt(area / pi), pixels.
//   6 thresholdFactor [3.2]    footprint threshold: the smoothed frame must exceed the background
//                              (median of the frame) by this many times the robust noise
//                              (1.4826 x MAD) of the unsmoothed frame.
//   7 minControlPeak [800]     control mode: the brightest sample of the footprint in the cleaned,
//                              unsmoothed frame must exceed the background by more than this.
//   8 marginAndCircularity [0x00050046]  high half: border margin in pixels (no footprint pixel
//                              may lie closer to the edge); low half: minimum circularity in
//                              percent (4 pi area / perimeter^2 of the footprint's outer contour,
//                              cv::contourArea and cv::arcLength).
//   9 nominalMode [true]       true: nominal mode, objects are whatever passes the statistical
//                              threshold and the shape tests; false: control mode, which in
//                              addition requires the absolute peak of field 7. Both modes share
//                              the footprints, so control objects are a subset of nominal ones.
//
// Why the threshold uses the noise of the unsmoothed frame: the smoothing acts as a matched filter
// for spots, and its output noise is several times below the per-sample noise (about 7 times for
// sigma 2), so a threshold of a few per-sample sigmas sits far above the smoothed noise and a
// frame of pure noise yields no object at all, while a spot concentrates its flux and stays well
// above it.
//
// Measurements: the centroid is weighted by the smoothed excess over the background, the area is
// the footprint's sample count, the peak is read from the cleaned frame. Spots must be resolved
// by the optics (PSF sigma of about 1.2 px or more) to be told from cosmic rays; sharper ones are
// treated as hits. Every step is deterministic (exact order statistics, raster-order labels).
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

#include "IOmbrixProcessing.h"

class CSpotDetector {
 public:
  // Algorithm variants selected by SetMode.
  enum Mode : int {
    // Every connected footprint above the threshold is reported; no acceptance test is applied.
    kModeSegmentation = 1,
    // Footprints must pass the border, size, shape and (in control mode) peak tests.
    kModeValidated = 2,
  };

  // Why a footprint was not accepted, tested in this order; the first failing test is recorded.
  enum class Rejection : std::int32_t {
    kNone = 0,
    kBorder = 1,     // a pixel lies within the border margin
    kTooLarge = 2,   // area above maxObjectArea
    kTooSmall = 3,   // equivalent radius below minObjectRadius
    kNotRound = 4,   // circularity below the minimum
    kFaintPeak = 5,  // control mode only: peak not above minControlPeak
  };

  // One thresholded footprint with its measurements and its verdict.
  struct Candidate {
    DetectedObject object;  // label holds the candidate's index + 1 in the footprint image
    Rejection rejection = Rejection::kNone;
  };

  // What Segment measured on the whole frame, kept for diagnostics and tests.
  struct FrameStatistics {
    double background = 0.0;  // median of the frame
    double noise = 0.0;       // 1.4826 * median absolute deviation, at least 1/sqrt(12)
    double threshold = 0.0;   // thresholdFactor * noise, above the background
    int cosmicRayHits = 0;    // samples replaced by the cosmic-ray step
  };

  // Starts with the host's parameters in nominal mode and the validated variant.
  CSpotDetector();
  virtual ~CSpotDetector() = default;

  // The host's parameter record (ValidationAlgoParameters): 3, 100, 2, 1000, 2, 3.2, 800,
  // 0x00050046 and the given flag.
  static AlgoParameters DefaultParameters(bool nominalMode = true);

  // Largest cosmic-ray radius: the refill gathers a disc of (2r + 1)^2 offsets per hit, and a
  // cosmic ray is a few pixels across, so radii beyond this only cost time and memory.
  static constexpr std::int32_t kMaxCosmicRayRadius = 50;

  // Takes the parameters when they make sense (cosmic-ray radius 0 .. kMaxCosmicRayRadius,
  // non-negative threshold, sigma at most 50,
  // margin; positive area and finite positive factor; circularity at most 100 %) and returns true;
  // otherwise returns false and keeps the previous ones.
  bool Configure(const AlgoParameters& parameters);
  const AlgoParameters& Parameters() const { return parameters_; }

  // Selects kModeSegmentation or kModeValidated; any other value returns false and keeps the
  // current mode.
  bool SetMode(int mode);
  int GetMode() const { return mode_; }

  // Detects the spots of a dark-subtracted frame. objects is replaced by the accepted objects in
  // raster order of their first pixel, each with centroid, area, circularity, bounding box, peak
  // and its label, and with its outer contour when keepContours is true. outputLevel chooses the
  // images: 0 none (both released), 1 the label image (CV_32S, 0 background, object i has label
  // i + 1), 2 the label image and the mask (CV_8U, 255 on objects). Errors: cv::Exception
  // StsBadArg for an empty or multi-channel frame, StsOutOfRange for another outputLevel.
  void Detect(const cv::Mat& processed, std::vector<DetectedObject>& objects, cv::Mat& labels,
              cv::Mat& mask, int outputLevel, bool keepContours) const;

  // Every footprint above the threshold with its verdict under the current mode and parameters,
  // in raster order; footprintLabels (CV_32S) receives label index + 1 for every candidate.
  std::vector<Candidate> Segment(const cv::Mat& processed, cv::Mat& footprintLabels,
                                 FrameStatistics* statistics = nullptr) const;

 private:
  AlgoParameters parameters_;
  int mode_ = kModeValidated;
};
