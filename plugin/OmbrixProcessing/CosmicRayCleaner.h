// The spot detector's cosmic-ray cleaner: removes cosmic-ray hits, cosmic-ray tracks and hot
// pixels from a dark-subtracted float frame while leaving the spots the optics resolved untouched.
// Accepts a non-empty CV_32FC1 frame and its background level (the frame's median).
//
// Why not CFilterCosmicRay: that filter replaces every sample more than the threshold above the
// median of its disc, and at the detector's radius of 3 px the core of a resolved spot (PSF sigma
// 1.2 px or more) stands that far above its disc's median too, so its peak is flattened; a
// track's flanks, on the other hand, stay and hold up a small footprint. On the ValidationAlgo1
// frames, CFilterCosmicRay (radius 3, threshold 100) in place of this cleaner leaves 110 of the 117
// true spots of "PTC.tif" in nominal mode, 13 instead of 28 above the control peak, and one object
// on the negative control "PTC_NEG.tif" (the test
// CosmicRayCleaner.FilterCosmicRayInItsPlaceLosesTrueSpots shows it). This cleaner replaces only
// what no optical structure explains, in four stages per pass:
//   1. Medians: the 16-bit disc median of the frame and of its 3 x 3 median (CFilterCosmicRay's
//      disc median on the frame shifted so the background sits at 16384).
//   2. Seeds: outliers (more than threshold above their disc median) that stand out of their 3 x 3
//      median by more than twice the fine structure (3 x 3 median minus the disc median of the
//      3 x 3 median image, as in L.A.Cosmic) and are either local maxima or lose more than 75 %
//      of their height above the background to their 3 x 3 median (the end of a track).
//   3. Hits: every outlier 8-connected to a seed.
//   4. Refill: the hits grown by one sample in every direction take the median of the disc samples
//      outside the grown mask.
// Passes repeat while they find a seed, at most three times.
#pragma once

#include <opencv2/core.hpp>

class CCosmicRayCleaner {
 public:
  // The disc medians of one pass, on the frame shifted so that its background sits at kShift and
  // clipped at kShiftedCeiling (the even-count rule of the 16-bit disc median clears the top bit of
  // a result, so no sample may reach 32768; clipping only touches samples more than 16383 ADU
  // above the background, outliers either way).
  struct Medians {
    cv::Mat shifted;         // CV_16U: the frame, shifted and clipped
    cv::Mat discMedian;      // CV_16U: disc median of shifted
    cv::Mat median3;         // CV_32F: 3 x 3 median of the frame
    cv::Mat shiftedMedian3;  // CV_16U: median3, shifted and clipped
    cv::Mat coarse;          // CV_16U: disc median of shiftedMedian3
  };

  static constexpr double kShift = 16384.0;
  static constexpr double kShiftedCeiling = 32767.0;
  // Fine-structure limit: a hit stands out of its 3 x 3 median by more than this many times the
  // structure that the 3 x 3 median itself keeps against its disc median. A spot resolved by the
  // optics survives the 3 x 3 median, so that ratio stays near or below 1 on its samples; a hot
  // pixel or a cosmic-ray track does not survive it, so its ratio is large.
  static constexpr double kObjectLimit = 2.0;
  // A seed that is no local maximum must lose more than this fraction of its height above the
  // background to its 3 x 3 median; a spot's flank loses about half, a track's end nearly all.
  static constexpr double kThinFraction = 0.75;
  // Cleaning passes: a faint hit on the flank of a brighter one only stands out once the brighter
  // one is gone; the loop ends early as soon as a pass finds nothing.
  static constexpr int kMaxPasses = 3;

  virtual ~CCosmicRayCleaner() = default;

  // cleaned receives a fresh copy of the frame with the hits replaced; returns the number of
  // replaced samples. A radius of 0 or less replaces nothing.
  static int Clean(const cv::Mat& frame32f, double background, int radius, int threshold,
                   cv::Mat& cleaned);

  // Stage 1. The disc medians are the core's 16-bit ones, so rounding there moves a comparison by
  // at most half an ADU.
  static Medians ComputeMedians(const cv::Mat& frame32f, double background, int radius);

  // Stage 2: 255 on the seeds (CV_8U).
  static cv::Mat FindSeeds(const cv::Mat& frame32f, const Medians& medians, double background,
                           int threshold);

  // Stage 3: 255 on every outlier 8-connected to a seed (CV_8U).
  static cv::Mat GrowHits(const cv::Mat& seeds, const Medians& medians, int threshold);

  // Stage 4: the charge cloud spills into the neighbouring samples and a track's flanks would hold
  // the disc median up, so the hits grow by one sample and are refilled from what lies outside,
  // in place; returns the number of replaced samples.
  static int Refill(cv::Mat& frame32f, const cv::Mat& hits, const Medians& medians,
                    double background, int radius);
};
