#include "mtf/MtfUncertainty.h"

#include <algorithm>
#include <boost/math/distributions/students_t.hpp>
#include <cmath>
#include <utility>

namespace {

constexpr const char* kMeasureEdgeName = "CMtfUncertainty::MeasureEdge";
constexpr const char* kMeasureRegionName = "CMtfUncertainty::MeasureRegion";
constexpr const char* kMeasureTargetsName = "CMtfUncertainty::MeasureTargets";
constexpr const char* kStudentName = "CMtfUncertainty::StudentQuantile";

double Mtf50(const MtfResult& result) { return MtfCrossing(result, 0.5); }
double CutFrequency(const MtfResult& result) { return result.cutFrequency; }

}  // namespace

void CMtfUncertainty::CheckSettings(const char* function) const {
  if (groups < kMinimumGroups) {
    cv::error(cv::Error::StsOutOfRange, "groups must be at least 3", function, __FILE__, __LINE__);
  }
  if (minimumGroupRows < 1) {
    cv::error(cv::Error::StsOutOfRange, "minimumGroupRows must be at least 1", function, __FILE__,
              __LINE__);
  }
  if (!(confidence > 0.0 && confidence < 1.0)) {
    cv::error(cv::Error::StsOutOfRange, "confidence must lie in (0, 1)", function, __FILE__,
              __LINE__);
  }
  if (slopeHalfWidth < 1) {
    cv::error(cv::Error::StsOutOfRange, "slopeHalfWidth must be at least 1", function, __FILE__,
              __LINE__);
  }
}

double CMtfUncertainty::StudentQuantile(double p, int degreesOfFreedom) {
  if (!(p > 0.0 && p < 1.0) || degreesOfFreedom < 1) {
    cv::error(cv::Error::StsOutOfRange, "p must lie in (0, 1) and the degrees of freedom be >= 1",
              kStudentName, __FILE__, __LINE__);
  }
  const boost::math::students_t_distribution<double> distribution(degreesOfFreedom);
  return boost::math::quantile(distribution, p);
}

double CMtfUncertainty::JackknifeStandardError(const std::vector<double>& values) {
  const std::size_t g = values.size();
  if (g < 2) return -1.0;
  double sum = 0.0;
  for (const double value : values) {
    if (!std::isfinite(value)) return -1.0;
    sum += value;
  }
  const double n = static_cast<double>(g);
  const double mean = sum / n;
  double squares = 0.0;
  for (const double value : values) squares += (value - mean) * (value - mean);
  return std::sqrt((n - 1.0) / n * squares);
}

double CMtfUncertainty::MtfAt(const MtfResult& result, double frequency) {
  const std::vector<double>& f = result.frequencies.values;
  const std::vector<double>& m = result.mtfCopy.values;
  const std::size_t n = std::min(f.size(), m.size());
  if (n == 0 || !(frequency >= f[0] && frequency <= f[n - 1])) return -1.0;
  if (n == 1) return m[0];
  const std::size_t above = static_cast<std::size_t>(
      std::upper_bound(f.begin(), f.begin() + static_cast<std::ptrdiff_t>(n), frequency) -
      f.begin());
  if (above >= n) return m[n - 1];
  const std::size_t below = above - 1;
  const double t = (frequency - f[below]) / (f[above] - f[below]);
  return m[below] + t * (m[above] - m[below]);
}

double CMtfUncertainty::MtfSlope(const MtfResult& result, double frequency, int halfWidth) {
  const std::vector<double>& f = result.frequencies.values;
  const std::vector<double>& m = result.mtfCopy.values;
  const long n = static_cast<long>(std::min(f.size(), m.size()));
  // First sample at or above the frequency; the window is halfWidth samples on either side of it.
  const long above =
      static_cast<long>(std::lower_bound(f.begin(), f.begin() + n, frequency) - f.begin());
  const long first = std::max(0L, above - halfWidth);
  const long last = std::min(n, above + halfWidth);
  if (last - first < 2) return 0.0;
  double sf = 0.0, sm = 0.0;
  for (long i = first; i < last; ++i) {
    sf += f[i];
    sm += m[i];
  }
  const double count = static_cast<double>(last - first);
  const double meanF = sf / count;
  const double meanM = sm / count;
  double sff = 0.0, sfm = 0.0;
  for (long i = first; i < last; ++i) {
    sff += (f[i] - meanF) * (f[i] - meanF);
    sfm += (f[i] - meanF) * (m[i] - meanM);
  }
  return sff > 0.0 ? sfm / sff : 0.0;
}

MtfInterval CMtfUncertainty::Interval(const MtfResult& full, double estimate,
                                      const std::vector<MtfResult>& replicates,
                                      double tQuantile) const {
  MtfInterval interval;
  interval.estimate = estimate;
  if (estimate < 0.0 || replicates.empty()) return interval;
  std::vector<double> values;
  for (const MtfResult& replicate : replicates) {
    const double value = MtfAt(replicate, estimate);
    if (value < 0.0) return interval;
    values.push_back(value);
  }
  interval.mtfSlope = MtfSlope(full, estimate, slopeHalfWidth);
  interval.mtfStandardError = JackknifeStandardError(values);
  // A curve that does not fall at the figure gives no frequency error.
  if (interval.mtfStandardError < 0.0 || !(interval.mtfSlope < 0.0)) return interval;
  interval.standardError = interval.mtfStandardError / -interval.mtfSlope;
  interval.lower = estimate - tQuantile * interval.standardError;
  interval.upper = estimate + tQuantile * interval.standardError;
  return interval;
}

MtfEdgeUncertainty CMtfUncertainty::Jackknife(CMtfMeasurement& measurement, const cv::Mat& prepared,
                                              const MtfResult& full) const {
  MtfEdgeUncertainty uncertainty;
  uncertainty.mtf50.estimate = Mtf50(full);
  uncertainty.cutFrequency.estimate = CutFrequency(full);
  const int rows = prepared.rows;
  const int g = std::min(groups, rows / minimumGroupRows);
  if (g < kMinimumGroups) return uncertainty;

  std::vector<MtfResult> replicates(static_cast<std::size_t>(g));
  for (int k = 0; k < g; ++k) {
    // Block k: rows [k R / G, (k + 1) R / G), sizes differing by at most one row.
    const cv::Range block(static_cast<int>(static_cast<long long>(k) * rows / g),
                          static_cast<int>(static_cast<long long>(k + 1) * rows / g));
    if (!measurement.MeasurePrepared(prepared, block, replicates[k])) return uncertainty;
  }
  uncertainty.groups = g;
  uncertainty.tQuantile = StudentQuantile(0.5 * (1.0 + confidence), g - 1);
  uncertainty.mtf50 = Interval(full, uncertainty.mtf50.estimate, replicates, uncertainty.tQuantile);
  uncertainty.cutFrequency =
      Interval(full, uncertainty.cutFrequency.estimate, replicates, uncertainty.tQuantile);
  return uncertainty;
}

bool CMtfUncertainty::MeasureRegion(const CMtfMeasurement& measurement, const cv::Mat& region,
                                    MtfResult& result, MtfEdgeUncertainty& uncertainty) const {
  CheckSettings(kMeasureRegionName);
  CMtfMeasurement work(measurement);
  cv::Mat prepared;
  MtfResult full;
  if (!work.PrepareRegion(region, prepared) ||
      !work.MeasurePrepared(prepared, cv::Range(0, 0), full)) {
    return false;
  }
  uncertainty = Jackknife(work, prepared, full);
  result = std::move(full);
  return true;
}

bool CMtfUncertainty::MeasureEdge(const CMtfMeasurement& measurement, const cv::Mat& image,
                                  MtfResult& result, MtfEdgeUncertainty& uncertainty) const {
  CheckSettings(kMeasureEdgeName);
  if (image.empty() || image.rows < 1 || image.cols < 1) return false;
  const cv::Mat grey = CMtfMeasurement::Grey(image);
  cv::Rect area;
  if (!measurement.EdgeArea(grey, area)) return false;
  return MeasureRegion(measurement, grey(area), result, uncertainty);
}

MtfTargetUncertainty CMtfUncertainty::MeasureTargets(const CMtfMeasurement& measurement,
                                                     const cv::Mat& image,
                                                     const MtfTargetMap& targets) const {
  CheckSettings(kMeasureTargetsName);
  MtfTargetUncertainty all;
  if (targets.empty() || image.empty()) return all;
  const cv::Mat grey = CMtfMeasurement::Grey(image);
  const cv::Rect inside(0, 0, grey.cols, grey.rows);
  CMtfMeasurement work(measurement);
  for (const auto& [number, target] : targets) {
    std::vector<MtfEdgeUncertainty>& edges = all[number];
    for (const MtfEdge& edge : target.edges) {
      cv::Mat prepared;
      // An edge that is not this image's (outside it, or no longer locatable) gets no interval.
      if ((edge.region & inside) != edge.region || edge.region.empty() ||
          !work.PrepareRegion(grey(edge.region), prepared)) {
        MtfEdgeUncertainty none;
        none.mtf50.estimate = Mtf50(edge.result);
        none.cutFrequency.estimate = CutFrequency(edge.result);
        edges.push_back(none);
        continue;
      }
      edges.push_back(Jackknife(work, prepared, edge.result));
    }
  }
  return all;
}
