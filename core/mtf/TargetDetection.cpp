#include "mtf/TargetDetection.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

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

// Rounds half away from zero, the rounding the detected vertices are scaled back with.
int RoundHalfAway(double v) { return static_cast<int>(std::round(v)); }

}  // namespace

void DetectTargets(TargetDetectionSettings& settings, std::vector<ContourRecord>& result,
                   const cv::Mat& image) {
  result.clear();

  cv::Mat work;
  if (image.channels() > 1) {
    cv::cvtColor(image, work, cv::COLOR_BGR2GRAY);
  } else {
    work = image.clone();
  }
  if (work.type() != CV_8UC1) {
    cv::Mat stretched;
    cv::normalize(work, stretched, 0, 255, cv::NORM_MINMAX, CV_8U);
    work = stretched;
  }

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

  result = contours.candidates;
  const double back = settings.scale;
  for (ContourRecord& record : result) {
    for (cv::Point& p : record.points) {
      p = cv::Point(RoundHalfAway(p.x * back), RoundHalfAway(p.y * back));
    }
  }
}
