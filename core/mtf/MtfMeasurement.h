// Slanted-edge MTF measurement of a chart image: square targets are detected, an edge region is cut
// on each side of every target, the edge is located and its slope fitted, and the oversampled edge
// profile gives one MtfResult per edge. Also measures a single edge filling a whole image. Accepts
// any cv::Mat of the seven depths with one or more channels (multichannel images are measured
// through their GreyPicture). A region holding a NaN or infinite sample cannot be measured.
//
// Choices of the edge extraction (the slanted-edge practice of ISO 12233):
// - Regions on a target: one per side of the target's minimum-area rectangle, axis-aligned,
//   centred on the side's midpoint. Along the edge it covers regionLength (0.8) of the side's
//   extent, which keeps the corners and their rounding out; across the edge it spans
//   kRegionDepth (0.5) of the side length, half inside the target and half on the background,
//   which leaves room for the edge's lateral run over the region (up to 0.14 of the side at 10
//   degrees) plus flat ground on both sides for the profile. Regions are listed left, top, right,
//   bottom; a region that reaches outside the image is skipped.
// - Orientation patches: the left-right pair is the 5 x 5 patch at the middle row against the
//   first and last 5 columns; the region is flipped horizontally when the right patch is darker,
//   so the dark side is always on the left. The top-bottom pair is the 5 x 5 patch on the middle
//   column against the last and first 5 rows; the region is flipped vertically when the top patch
//   is darker than the bottom one, so the edge always leans to the right going down (positive
//   slope, the case in which the profile's bin offset carries the shift).
// - Rows: a row enters the line fit only when its derivative sums to more than a fifth of the
//   strongest row's sum (rows whose derivative sums to zero or less carry no rising edge and would
//   divide by zero) and its centroid is finite and inside the row.
// - Two passes: the first centroids use the whole row; the second uses only the derivative within
//   centroidHalfWidth (6.5) pixels of the first-pass line, which removes the noise of the flat
//   parts (whose far columns weigh most in a centroid) and any second edge in the region. The
//   second fit gives the slope.
// - gamma (1.0): the sensor's response exponent; when it is positive and not 1, values are
//   clipped at 0 and raised to 1 / gamma after the double conversion, so the profile is linear in
//   light.
// - edgeRegion (-1.0, -1.0, -1.0, -1.0): left, top, width, height of the part of the image that
//   the single-edge measurement uses; any negative value means the whole image.
#pragma once

#include <map>
#include <opencv2/core.hpp>
#include <vector>

#include "mtf/EdgeProfile.h"
#include "mtf/Mtf.h"
#include "mtf/TargetDetection.h"

enum class EdgeSide { Left = 0, Top = 1, Right = 2, Bottom = 3 };

// "left", "top", "right" or "bottom": the name the tool's tables and the Python results use.
const char* EdgeSideName(EdgeSide side);

// One measured edge of a target.
struct MtfEdge {
  EdgeSide side = EdgeSide::Left;
  // In input-image pixels.
  cv::Rect region;
  // Fitted slope in the prepared (transposed and flipped) region, columns per row.
  float slope = 0.0f;
  bool transposed = false;
  bool flippedVertically = false;
  bool flippedHorizontally = false;
  MtfResult result;
};

// One detected target: the minimum-area rectangle of its polygon (cv::minAreaRect, angle in
// [-90, 0) as OpenCV reported it up to 4.5.0, whatever the OpenCV version) and its measured edges.
struct MtfTarget {
  cv::RotatedRect box;
  std::vector<MtfEdge> edges;
};

// Target number (1, 2, ... in detection order) to target.
using MtfTargetMap = std::map<int, MtfTarget>;

class CMtfMeasurement {
 public:
  // Fraction of a side's length that a target's edge region spans across the edge.
  static constexpr double kRegionDepth = 0.5;
  // A row enters the fit when its derivative sum exceeds this fraction of the strongest row's.
  static constexpr double kRowStrength = 0.2;

  CMtfMeasurement();
  virtual ~CMtfMeasurement() = default;

  // Detects the targets (angle limits opened to -180 .. 180) and measures every edge region that
  // lies wholly inside the image. An empty image or one without targets gives an empty map.
  MtfTargetMap MeasureTargets(const cv::Mat& image);

  // The whole image (or edgeRegion when set) as one slanted-edge region. False, with result
  // untouched, when the image is empty, the edge cannot be located or the measured area holds a
  // non-finite sample. slope receives the fitted
  // slope when given.
  bool MeasureEdge(const cv::Mat& image, MtfResult& result, float* slope = nullptr);

  // The part of the image that MeasureEdge measures: edgeRegion (rounded) when all four values are
  // set, else the whole image. False when edgeRegion reaches outside the image.
  bool EdgeArea(const cv::Mat& image, cv::Rect& area) const;

  // One grey region: locate the edge, build its profile, compute its MTF. slope receives the
  // fitted slope when given.
  bool MeasureRegion(const cv::Mat& region, MtfResult& result, float* slope = nullptr);

  // Edge-region preparation: transposes a region with fewer rows than columns, refuses one under
  // 6 rows or columns, flips it into the one measured orientation, converts it to double (applying
  // gamma) and fits the edge line through the row centroids of its derivative, twice. prepared
  // receives the oriented double region that the profile is built from.
  bool LocateEdge(const cv::Mat& region, cv::Mat& prepared, float& slope);

  // The two halves of LocateEdge, for measurements that reuse one prepared region (the jackknife
  // of CMtfUncertainty). PrepareRegion: transposition, size check, flips, conversion (sets the
  // flags). FitEdge: the two-pass line fit on a prepared region (CV_64F, at least 6 x 6; false
  // otherwise), leaving the rows of excludedRows (start <= r < end) out of both passes and out of
  // the strongest-row threshold; the derivative's sign is still decided on the whole region.
  bool PrepareRegion(const cv::Mat& region, cv::Mat& prepared);
  bool FitEdge(const cv::Mat& prepared, const cv::Range& excludedRows, float& slope) const;

  // MeasureRegion's fit, profile and MTF on a prepared region without the rows of excludedRows
  // (an empty range: the measurement of the whole region, bit for bit).
  bool MeasurePrepared(const cv::Mat& prepared, const cv::Range& excludedRows, MtfResult& result,
                       float* slope = nullptr);

  // The edge regions of a target box, in the order left, top, right, bottom (not clipped).
  std::vector<std::pair<EdgeSide, cv::Rect>> EdgeRegions(const cv::RotatedRect& box) const;

  // The grey picture every measurement works on: GreyPicture in RGB order (the image itself when
  // it has one channel).
  static cv::Mat Grey(const cv::Mat& image);

  // The tilt of a fitted edge in degrees: the angle between the edge and the image axis it runs
  // along. Every region is flipped so that the edge leans to the right, so the tilt is positive for
  // a tilted edge, whichever way it leaned in the image.
  static double TiltDegrees(float slope);

  // Mean efficiency over every measured edge of every target; -1.0 when there is none.
  static double MeanEfficiency(const MtfTargetMap& targets);

  // Flags of the last LocateEdge.
  bool Transposed() const { return transposed_; }
  bool FlippedVertically() const { return flippedVertically_; }
  bool FlippedHorizontally() const { return flippedHorizontally_; }

  TargetDetectionSettings detection;
  EdgeProfiler profiler;
  float oversampling = 4.0f;
  // Given to every MtfResult before ComputeMtf (1.0: unknown, cycles per pixel).
  float pitch = 1.0f, resolution = 1.0f;
  float efficiency = 0.0f;
  double centroidHalfWidth = 6.5;
  double regionLength = 0.8;
  double gamma = 1.0;
  double edgeRegion[4] = {-1.0, -1.0, -1.0, -1.0};

 private:
  // Row centroids of the derivative and the least-squares line through the usable ones, the rows
  // of excludedRows left out. False when fewer than two rows are usable.
  static bool FitEdgeLine(const cv::Mat& derivative, const cv::Range& excludedRows,
                          double& intercept, double& slope);

  bool transposed_ = false;
  bool flippedVertically_ = false;
  bool flippedHorizontally_ = false;
};
