#include "mtf/MtfMeasurement.h"

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "mtf/GreyPicture.h"
#include "mtf/MinAreaRectLegacy.h"

namespace {

constexpr int kPatch = 5;
constexpr int kMinimumSide = 6;

double PatchSum(const cv::Mat& image, int top, int left) {
  return cv::sum(image(cv::Rect(left, top, kPatch, kPatch)))[0];
}

bool InsideImage(const cv::Rect& r, const cv::Mat& image) {
  return r.x >= 0 && r.y >= 0 && r.width >= 1 && r.height >= 1 && r.x + r.width <= image.cols &&
         r.y + r.height <= image.rows;
}

bool InRows(int row, const cv::Range& rows) { return row >= rows.start && row < rows.end; }

}  // namespace

const char* EdgeSideName(EdgeSide side) {
  switch (side) {
    case EdgeSide::Left:
      return "left";
    case EdgeSide::Top:
      return "top";
    case EdgeSide::Right:
      return "right";
    case EdgeSide::Bottom:
      return "bottom";
  }
  return "?";
}

CMtfMeasurement::CMtfMeasurement() {
  profiler.oversampling = oversampling;
  profiler.threadCount = 1;
}

bool CMtfMeasurement::FitEdgeLine(const cv::Mat& derivative, const cv::Range& excludedRows,
                                  double& intercept, double& slope) {
  const int rows = derivative.rows;
  const int cols = derivative.cols;
  cv::Mat indices(1, cols, CV_64F);
  for (int c = 0; c < cols; ++c) indices.at<double>(0, c) = c;
  cv::Mat weighted;
  cv::multiply(cv::repeat(indices, rows, 1), derivative, weighted);
  cv::Mat moments;
  cv::Mat sums;
  cv::reduce(weighted, moments, 1, cv::REDUCE_SUM, CV_64F);
  cv::reduce(derivative, sums, 1, cv::REDUCE_SUM, CV_64F);
  cv::Mat centroids;
  cv::divide(moments, sums, centroids, 1.0);

  double strongest = 0.0;
  if (excludedRows.empty()) {
    cv::minMaxIdx(sums, nullptr, &strongest);
  } else {
    // The strongest of the rows that take part, as if the excluded ones were not in the region.
    bool first = true;
    for (int r = 0; r < rows; ++r) {
      if (InRows(r, excludedRows)) continue;
      const double sum = sums.at<double>(r);
      if (first || sum > strongest) strongest = sum;
      first = false;
    }
  }
  const double threshold = kRowStrength * strongest;
  std::vector<int> used;
  for (int r = 0; r < rows; ++r) {
    if (InRows(r, excludedRows)) continue;
    const double sum = sums.at<double>(r);
    const double x = centroids.at<double>(r);
    if (sum > 0.0 && sum > threshold && std::isfinite(x) && x >= 0.0 && x <= cols - 1) {
      used.push_back(r);
    }
  }
  if (used.size() < 2) return false;

  // x = intercept + slope x row, by the normal equations.
  const int n = static_cast<int>(used.size());
  cv::Mat design(n, 2, CV_64F);
  cv::Mat positions(n, 1, CV_64F);
  for (int i = 0; i < n; ++i) {
    design.at<double>(i, 0) = 1.0;
    design.at<double>(i, 1) = used[i];
    positions.at<double>(i, 0) = centroids.at<double>(used[i]);
  }
  const cv::Mat designT = design.t();
  const cv::Mat normal = designT * design;
  const cv::Mat coefficients = normal.inv(cv::DECOMP_LU) * (designT * positions);
  intercept = coefficients.at<double>(0);
  slope = coefficients.at<double>(1);
  return std::isfinite(intercept) && std::isfinite(slope);
}

bool CMtfMeasurement::LocateEdge(const cv::Mat& region, cv::Mat& prepared, float& slope) {
  cv::Mat work;
  float fitted = 0.0f;
  if (!PrepareRegion(region, work) || !FitEdge(work, cv::Range(0, 0), fitted)) return false;
  prepared = work;
  slope = fitted;
  return true;
}

bool CMtfMeasurement::PrepareRegion(const cv::Mat& region, cv::Mat& prepared) {
  transposed_ = false;
  flippedVertically_ = false;
  flippedHorizontally_ = false;

  cv::Mat work;
  if (region.rows < region.cols) {
    cv::transpose(region, work);
    transposed_ = true;
  } else {
    work = region;
  }
  if (work.rows < kMinimumSide || work.cols < kMinimumSide) return false;

  const int rows = work.rows;
  const int cols = work.cols;
  const int middleRow = rows / 2 - kPatch / 2;
  if (PatchSum(work, middleRow, cols - kPatch) < PatchSum(work, middleRow, 0)) {
    cv::Mat flipped;
    cv::flip(work, flipped, 1);
    work = flipped;
    flippedHorizontally_ = true;
  }
  const int middleColumn = cols / 2 - kPatch / 2;
  if (PatchSum(work, 0, middleColumn) < PatchSum(work, rows - kPatch, middleColumn)) {
    cv::Mat flipped;
    cv::flip(work, flipped, 0);
    work = flipped;
    flippedVertically_ = true;
  }

  if (work.depth() != CV_64F) {
    cv::Mat converted;
    work.convertTo(converted, CV_64F, 1.0, 0.0);
    work = converted;
  } else if (work.data == region.data) {
    work = work.clone();
  }
  if (gamma > 0.0 && gamma != 1.0) {
    cv::max(work, 0.0, work);
    cv::pow(work, 1.0 / gamma, work);
  }
  prepared = work;
  return true;
}

bool CMtfMeasurement::FitEdge(const cv::Mat& work, const cv::Range& excludedRows,
                              float& slope) const {
  if (work.type() != CV_64FC1 || work.rows < kMinimumSide || work.cols < kMinimumSide) {
    return false;
  }
  // A NaN or infinite sample would spread through the derivative, the centroids and every bin of
  // the profile it lands in, giving a plausible-looking but meaningless MTF: no measurement.
  if (!cv::checkRange(work)) return false;
  const int rows = work.rows;
  const int cols = work.cols;
  cv::Mat kernel = (cv::Mat_<float>(1, 2) << -0.5f, 0.5f);
  const double firstColumns = cv::sum(work.colRange(0, kPatch))[0];
  const double lastColumns = cv::sum(work.colRange(cols - kPatch, cols))[0];
  if (firstColumns > lastColumns) kernel = -kernel;
  cv::Mat derivative;
  cv::filter2D(work, derivative, -1, kernel, cv::Point(-1, -1), 0.0, cv::BORDER_REFLECT_101);
  derivative.col(1).copyTo(derivative.col(0));

  double intercept = 0.0;
  double fitted = 0.0;
  if (!FitEdgeLine(derivative, excludedRows, intercept, fitted)) return false;

  // Second pass: only the derivative near the first line counts.
  cv::Mat window(rows, cols, CV_64F, cv::Scalar(0.0));
  for (int r = 0; r < rows; ++r) {
    const double centre = intercept + fitted * r;
    double* row = window.ptr<double>(r);
    for (int c = 0; c < cols; ++c) {
      if (std::fabs(c - centre) <= centroidHalfWidth) row[c] = 1.0;
    }
  }
  cv::Mat windowed;
  cv::multiply(derivative, window, windowed);
  if (!FitEdgeLine(windowed, excludedRows, intercept, fitted)) return false;

  slope = static_cast<float>(fitted);
  return true;
}

bool CMtfMeasurement::MeasureRegion(const cv::Mat& region, MtfResult& result, float* slope) {
  cv::Mat prepared;
  return PrepareRegion(region, prepared) &&
         MeasurePrepared(prepared, cv::Range(0, 0), result, slope);
}

bool CMtfMeasurement::MeasurePrepared(const cv::Mat& prepared, const cv::Range& excludedRows,
                                      MtfResult& result, float* slope) {
  float fitted = 0.0f;
  if (!FitEdge(prepared, excludedRows, fitted)) return false;
  profiler.oversampling = oversampling;
  BuildEdgeProfile(profiler, prepared, fitted, excludedRows);
  MtfResult measured;
  measured.pitch = pitch;
  measured.resolution = resolution;
  measured.efficiency = efficiency;
  ComputeMtf(measured, profiler.esf, fitted, oversampling);
  result = std::move(measured);
  if (slope != nullptr) *slope = fitted;
  return true;
}

bool CMtfMeasurement::MeasureEdge(const cv::Mat& image, MtfResult& result, float* slope) {
  if (image.empty() || image.rows < 1 || image.cols < 1) return false;
  const cv::Mat grey = Grey(image);
  cv::Rect area;
  if (!EdgeArea(grey, area)) return false;
  return MeasureRegion(grey(area), result, slope);
}

double CMtfMeasurement::TiltDegrees(float slope) {
  return std::atan(static_cast<double>(slope)) * 180.0 / CV_PI;
}

bool CMtfMeasurement::EdgeArea(const cv::Mat& image, cv::Rect& area) const {
  area = cv::Rect(0, 0, image.cols, image.rows);
  if (edgeRegion[0] >= 0.0 && edgeRegion[1] >= 0.0 && edgeRegion[2] >= 0.0 &&
      edgeRegion[3] >= 0.0) {
    area = cv::Rect(
        static_cast<int>(std::lround(edgeRegion[0])), static_cast<int>(std::lround(edgeRegion[1])),
        static_cast<int>(std::lround(edgeRegion[2])), static_cast<int>(std::lround(edgeRegion[3])));
    if (!InsideImage(area, image)) return false;
  }
  return true;
}

std::vector<std::pair<EdgeSide, cv::Rect>> CMtfMeasurement::EdgeRegions(
    const cv::RotatedRect& box) const {
  cv::Point2f corners[4];
  box.points(corners);
  std::vector<std::pair<EdgeSide, cv::Rect>> regions;
  for (int i = 0; i < 4; ++i) {
    const cv::Point2f a = corners[i];
    const cv::Point2f b = corners[(i + 1) % 4];
    const double mx = 0.5 * (a.x + b.x);
    const double my = 0.5 * (a.y + b.y);
    const double dx = std::fabs(b.x - a.x);
    const double dy = std::fabs(b.y - a.y);
    const double length = std::hypot(dx, dy);
    const bool vertical = dy >= dx;
    const double along = regionLength * (vertical ? dy : dx);
    const double across = kRegionDepth * length;
    const double width = vertical ? across : along;
    const double height = vertical ? along : across;
    const cv::Rect rect(static_cast<int>(std::lround(mx - 0.5 * width)),
                        static_cast<int>(std::lround(my - 0.5 * height)),
                        static_cast<int>(std::lround(width)),
                        static_cast<int>(std::lround(height)));
    EdgeSide side;
    if (vertical) {
      side = mx < box.center.x ? EdgeSide::Left : EdgeSide::Right;
    } else {
      side = my < box.center.y ? EdgeSide::Top : EdgeSide::Bottom;
    }
    regions.emplace_back(side, rect);
  }
  std::stable_sort(regions.begin(), regions.end(),
                   [](const auto& l, const auto& r) { return l.first < r.first; });
  return regions;
}

MtfTargetMap CMtfMeasurement::MeasureTargets(const cv::Mat& image) {
  MtfTargetMap targets;
  if (image.empty() || image.rows < 1 || image.cols < 1) return targets;
  const cv::Mat grey = Grey(image);

  detection.minimumAngle = -180.0f;
  detection.maximumAngle = 180.0f;
  std::vector<ContourRecord> polygons;
  DetectTargets(detection, polygons, image);

  int number = 0;
  for (const ContourRecord& polygon : polygons) {
    MtfTarget target;
    target.box = MinAreaRectLegacy(polygon.points);
    for (const auto& [side, rect] : EdgeRegions(target.box)) {
      if (!InsideImage(rect, grey)) continue;
      MtfEdge edge;
      edge.side = side;
      edge.region = rect;
      if (!MeasureRegion(grey(rect), edge.result, &edge.slope)) continue;
      edge.transposed = transposed_;
      edge.flippedVertically = flippedVertically_;
      edge.flippedHorizontally = flippedHorizontally_;
      target.edges.push_back(std::move(edge));
    }
    targets.emplace(++number, std::move(target));
  }
  return targets;
}

cv::Mat CMtfMeasurement::Grey(const cv::Mat& image) { return GreyPicture(image, true); }

double CMtfMeasurement::MeanEfficiency(const MtfTargetMap& targets) {
  double sum = 0.0;
  int count = 0;
  for (const auto& entry : targets) {
    for (const MtfEdge& edge : entry.second.edges) {
      sum += edge.result.efficiency;
      ++count;
    }
  }
  return count == 0 ? -1.0 : sum / count;
}
