#include "mtf/TargetDetection.h"

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "mtf/GreyPicture.h"

namespace {

// The chain every candidate has to pass, in this order, all keeping what passes.
std::vector<FilterCriterion> TargetCriteria(const TargetDetectionSettings& settings) {
  return {
      {FilterAction::Keep, ContourFeature::Area, Comparison::GreaterThanSecond, 0.0,
       settings.minimumArea},
      {FilterAction::Keep, ContourFeature::VertexCount, Comparison::BetweenFirstAndSecond, 4.0,
       6.0},
      // Every measured corner within about 84.3 to 95.7 degrees.
      {FilterAction::Keep, ContourFeature::MaxCornerCosine, Comparison::BetweenFirstAndSecond, 0.0,
       0.1},
      {FilterAction::Keep, ContourFeature::Convex, Comparison::EqualToFirst, 1.0, 0.0},
      {FilterAction::Keep, ContourFeature::AspectRatio, Comparison::BetweenFirstAndSecond,
       settings.minimumAspect, 1.0},
      {FilterAction::Keep, ContourFeature::FoldedBoxAngle, Comparison::BetweenFirstAndSecond,
       settings.minimumAngle, settings.maximumAngle},
  };
}

// The min-max stretch of cv::normalize (NORM_MINMAX to 0..255, 8-bit), with the range taken over
// the finite samples only: one infinite sample would otherwise squeeze every other one into a
// single grey level. Non-finite samples saturate (+inf to 255, -inf and NaN to 0).
cv::Mat StretchToBytes(const cv::Mat& grey) {
  if (grey.empty()) return cv::Mat();
  cv::Mat finite;
  if (grey.depth() == CV_32F || grey.depth() == CV_64F) {
    cv::Mat asDouble;
    grey.convertTo(asDouble, CV_64F);
    // x - x is 0 for a finite x and NaN otherwise; NaN compares false.
    cv::compare(asDouble - asDouble, 0.0, finite, cv::CMP_EQ);
  }
  double low = 0.0, high = 0.0;
  cv::minMaxIdx(grey, &low, &high, nullptr, nullptr, finite);
  const double range = high - low;
  const double scale = 255.0 * (range > DBL_EPSILON ? 1.0 / range : 0.0);
  cv::Mat bytes;
  grey.convertTo(bytes, CV_8U, scale, -low * scale);
  return bytes;
}

// Rounds half away from zero, the rounding the detected vertices are scaled back with.
int RoundHalfAway(double v) { return static_cast<int>(std::round(v)); }

}  // namespace

void DetectTargets(TargetDetectionSettings& settings, std::vector<ContourRecord>& result,
                   const cv::Mat& image) {
  if (image.dims > 2) {
    cv::error(cv::Error::StsBadArg, "target detection needs a 2-D image", "DetectTargets", __FILE__,
              __LINE__);
  }
  if (!(settings.scale > 0.0) || !std::isfinite(settings.scale)) {
    cv::error(cv::Error::StsBadArg, "scale must be finite and positive", "DetectTargets", __FILE__,
              __LINE__);
  }
  result.clear();

  cv::Mat work;
  if (image.channels() > 1) {
    work = GreyPicture(image, false);
  } else {
    work = image.clone();
  }
  if (work.type() != CV_8UC1) work = StretchToBytes(work);

  // Working size. k and the new sides are derived from the larger side; the scale maps working
  // pixels back to input pixels and is left alone whenever nothing is resized.
  const int rows = work.rows;
  const int cols = work.cols;
  const int big = std::max(rows, cols);
  bool resize = false;
  double scale = settings.scale;
  if (settings.workingSize == 0) {
    const int k = static_cast<int>(big / 3.5);
    if (k < 1) {
      cv::error(cv::Error::StsBadSize, "The image is too small for the automatic working size",
                "DetectTargets", __FILE__, __LINE__);
    }
    scale = static_cast<double>(big) / k;
    resize = true;
  } else if (settings.workingSize > 0 &&
             (rows > settings.workingSize || cols > settings.workingSize)) {
    scale = static_cast<double>(big) / settings.workingSize;
    resize = true;
  }
  if (resize) {
    const cv::Size newSize(static_cast<int>(std::ceil(cols / scale)),
                           static_cast<int>(std::ceil(rows / scale)));
    settings.scale = scale;
    // fx is ignored because the size is given.
    cv::resize(work, work, newSize, 3.0, 0.0, cv::INTER_LINEAR);
  }

  ContourSet& contours = settings.contours;
  if (settings.cannyLow > 0.0f && settings.cannyHigh > 0.0f) {
    FindEdgeContours(contours, work, settings.cannyLow, settings.cannyHigh);
  } else {
    FindContourSet(contours, work);
  }

  // Simplification to convex polygons, each pass over the whole list before the next.
  for (ContourRecord& record : contours.candidates) {
    ApproximateContour(record, 0.01 * cv::arcLength(record.points, true));
  }
  for (ContourRecord& record : contours.candidates) {
    ConvexHullContour(record);
  }
  for (ContourRecord& record : contours.candidates) {
    ApproximateContour(record, 0.02 * cv::arcLength(record.points, true));
  }

  for (const FilterCriterion& criterion : TargetCriteria(settings)) {
    ApplyCriterion(contours, criterion);
  }
  RemoveNestedCandidates(contours);

  std::vector<ContourRecord> scaled = contours.candidates;
  const double back = settings.scale;
  for (ContourRecord& record : scaled) {
    for (cv::Point& p : record.points) {
      const double x = std::round(p.x * back);
      const double y = std::round(p.y * back);
      if (!(std::fabs(x) <= INT_MAX && std::fabs(y) <= INT_MAX)) {
        cv::error(cv::Error::StsOutOfRange, "scaled target outside the int range", "DetectTargets",
                  __FILE__, __LINE__);
      }
      p = cv::Point(RoundHalfAway(p.x * back), RoundHalfAway(p.y * back));
    }
  }
  result = std::move(scaled);
}
