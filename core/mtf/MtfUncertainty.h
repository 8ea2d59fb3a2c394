// Uncertainty of the slanted-edge MTF measurement: a confidence interval (95 % by default) for
// MTF50 and for the cut frequency (MTF 0.1) of one edge. Accepts what CMtfMeasurement measures: an
// image or a region holding one edge, and a chart image together with its target measurement.
//
// Method: a delete-a-group jackknife over blocks of rows along the edge, read through the MTF
// curve. The prepared region (the edge running down its rows) is cut into G contiguous blocks of
// rows; replicate g is the whole measurement (both line-fit passes, profile, MTF) on the region
// without block g, so the slope's own scatter counts. For a figure f (the frequency where the MTF
// falls to a level), each replicate's MTF is read at the whole region's f; the jackknife standard
// error of that MTF value, sqrt((G - 1) / G x sum (m_g - mean m)^2), is turned into a frequency
// error by the MTF's slope at f (least squares over slopeHalfWidth samples on each side), and the
// interval is f +- t(G - 1) x SE, t the Student quantile.
// Why blocks of rows: the rows carry independent noise on one and the same edge profile, so a
// region without one block is the same measurement on less data; contiguous blocks keep every
// sub-pixel phase of a slanted edge in each replicate and keep noise correlated over neighbouring
// rows inside one block. A bootstrap of rows would have to resample the rows' phases against the
// edge and needs hundreds of replicates; the jackknife needs G + 1 measurements.
// Why through the MTF value: the MTF's noise is correlated over about one frequency sample, and at
// the cut level of a sharp edge it bends the curve as steeply as the curve falls. The crossing of
// each replicate then moves with the local bend, not with the noise: on some draws the replicates
// agree to a fraction of the real error and the interval collapses (measured: 82 % coverage for the
// cut frequency at sigma 0.75 px, 1 % noise). The MTF value at a fixed frequency is a smooth
// function of the data, whose jackknife is sound, and the slope fitted over 2 x slopeHalfWidth
// samples is steady; with them the same case covers 95 %.
// Transposition, flips and the derivative's sign stay those of the whole region (discrete choices
// that one block cannot turn on an edge the measurement accepts), and every replicate keeps the
// whole region's profile sampling.
//
// What the interval does not hold: the measurement's own bias, which noise does not move (the
// profile's binning, the derivative's correction, the window). Its coverage of the truth therefore
// holds where the noise-driven error dominates that bias; the tests measure it on synthetic edges
// of known MTF and the README gives the conditions and figures.
#pragma once

#include <map>
#include <opencv2/core.hpp>
#include <vector>

#include "mtf/MtfMeasurement.h"

// One figure with its interval. Values not available are -1.0 (mtfSlope: 0.0).
struct MtfInterval {
  // The measurement's figure on the whole region (-1.0 when the measurement has none).
  double estimate = -1.0;
  // Standard error of the figure, frequency units; -1.0 when no interval could be made.
  double standardError = -1.0;
  double lower = -1.0;
  double upper = -1.0;
  // Jackknife standard error of the MTF at the estimate, and the MTF's fitted slope there (per
  // frequency unit): standardError = mtfStandardError / |mtfSlope|.
  double mtfStandardError = -1.0;
  double mtfSlope = 0.0;

  bool Available() const { return standardError >= 0.0; }
};

// The intervals of one edge.
struct MtfEdgeUncertainty {
  // MTF50: MtfCrossing(result, 0.5).
  MtfInterval mtf50;
  // The cut frequency: result.cutFrequency (MTF 0.1).
  MtfInterval cutFrequency;
  // Blocks of rows used; 0 when the region has too few rows for an interval.
  int groups = 0;
  // Student quantile t(G - 1) at (1 + confidence) / 2; 0 without groups.
  double tQuantile = 0.0;
};

// Target number to the intervals of that target's edges, in the order of MtfTarget::edges.
using MtfTargetUncertainty = std::map<int, std::vector<MtfEdgeUncertainty>>;

class CMtfUncertainty {
 public:
  // Defaults: 10 blocks when the region has 10 x 8 rows or more, else one block per 8 rows; no
  // interval under 3 blocks.
  static constexpr int kMinimumGroups = 3;

  virtual ~CMtfUncertainty() = default;

  // The single-edge measurement of CMtfMeasurement::MeasureEdge (the whole image, or the
  // measurement's edgeRegion) with its intervals. False, with result and uncertainty untouched,
  // where MeasureEdge gives false. The measurement object is not changed.
  bool MeasureEdge(const CMtfMeasurement& measurement, const cv::Mat& image, MtfResult& result,
                   MtfEdgeUncertainty& uncertainty) const;

  // One grey region, as CMtfMeasurement::MeasureRegion, with its intervals.
  bool MeasureRegion(const CMtfMeasurement& measurement, const cv::Mat& region, MtfResult& result,
                     MtfEdgeUncertainty& uncertainty) const;

  // The intervals of every edge of a target measurement: targets is what
  // measurement.MeasureTargets(image) returned (the estimates are taken from it).
  MtfTargetUncertainty MeasureTargets(const CMtfMeasurement& measurement, const cv::Mat& image,
                                      const MtfTargetMap& targets) const;

  // Jackknife standard error of G leave-one-group-out values: sqrt((G - 1) / G x sum (v_g -
  // mean)^2); -1.0 with fewer than 2 values or a value that is not finite.
  static double JackknifeStandardError(const std::vector<double>& values);

  // result.mtfCopy at the frequency, linearly interpolated between samples; -1.0 outside the
  // frequency axis.
  static double MtfAt(const MtfResult& result, double frequency);

  // Least-squares slope of result.mtfCopy against frequency over the halfWidth samples below the
  // frequency and the halfWidth samples from it on (fewer at the ends of the axis); 0.0 when fewer
  // than 2 samples remain.
  static double MtfSlope(const MtfResult& result, double frequency, int halfWidth);

  // Quantile of Student's t distribution (Boost.Math) at probability p in (0, 1).
  static double StudentQuantile(double p, int degreesOfFreedom);

  // Settings. Errors (cv::Exception StsOutOfRange, function of the public operation): "groups must
  // be at least 3", "minimumGroupRows must be at least 1", "confidence must lie in (0, 1)",
  // "slopeHalfWidth must be at least 1".
  int groups = 10;
  int minimumGroupRows = 8;
  double confidence = 0.95;
  // Samples on each side of the figure for the MTF's slope.
  int slopeHalfWidth = 6;

 private:
  void CheckSettings(const char* function) const;
  // The interval of the figure estimate of the full result from the replicates' MTF there.
  MtfInterval Interval(const MtfResult& full, double estimate,
                       const std::vector<MtfResult>& replicates, double tQuantile) const;
  // The jackknife of one prepared region whose full-region result is given.
  MtfEdgeUncertainty Jackknife(CMtfMeasurement& measurement, const cv::Mat& prepared,
                               const MtfResult& full) const;
};
