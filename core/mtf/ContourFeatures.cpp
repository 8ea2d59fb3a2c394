#include "mtf/ContourFeatures.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "mtf/MinAreaRectLegacy.h"

namespace {

// The box of the aspect-ratio and circularity features: the minimum-area rectangle for short
// contours, the fitted ellipse's bounding box from 6 points on. Only its sides are used, so the
// rectangle's angle convention does not matter here.
cv::RotatedRect ShapeBox(const std::vector<cv::Point>& points) {
  if (points.size() < 6) {
    return cv::minAreaRect(points);
  }
  return cv::fitEllipse(points);
}

double AspectRatio(const std::vector<cv::Point>& points) {
  if (points.size() < 3) {
    return -1.0;
  }
  try {
    const cv::Size2f size = ShapeBox(points).size;
    const double longSide = std::max(size.width, size.height);
    const double shortSide = std::min(size.width, size.height);
    if (!(longSide > 0.0)) {
      return 0.0;
    }
    return shortSide / longSide;
  } catch (const cv::Exception&) {
    return -1.0;
  }
}

double Circularity(const std::vector<cv::Point>& points) {
  if (points.size() < 3) {
    return -1.0;
  }
  try {
    const double area = cv::contourArea(points, false);
    const cv::Size2f size = ShapeBox(points).size;
    const double diameter = std::max(size.width, size.height);
    const double c = diameter > 0.0 ? 4.0 * area / (CV_PI * diameter * diameter) : 0.0;
    return std::min(c, 1.0);
  } catch (const cv::Exception&) {
    return -1.0;
  }
}

// Largest |cos| over the corners at p[1] .. p[n-2]. The corners at the first and the last point
// are left out on purpose (a quadrilateral gets two of its four corners tested), and the 1e-10
// keeps a repeated point from dividing by zero.
double MaxCornerCosineOf(const std::vector<cv::Point>& p) {
  const std::size_t n = p.size();
  if (n < 3) {
    return 0.0;
  }
  double m = 0.0;
  for (std::size_t i = 2; i < n; ++i) {
    // Differences in double: exact, and free of int overflow whatever the coordinates.
    const double d1x = static_cast<double>(p[i % n].x) - p[i - 1].x;
    const double d1y = static_cast<double>(p[i % n].y) - p[i - 1].y;
    const double d2x = static_cast<double>(p[i - 2].x) - p[i - 1].x;
    const double d2y = static_cast<double>(p[i - 2].y) - p[i - 1].y;
    const double cosine = (d1x * d2x + d1y * d2y) /
                          std::sqrt((d1x * d1x + d1y * d1y) * (d2x * d2x + d2y * d2y) + 1e-10);
    m = std::max(m, std::fabs(cosine));
  }
  return m;
}

}  // namespace

double AbsoluteBoxAngleOf(const cv::RotatedRect& box) {
  double a = box.angle;
  if (box.size.height > box.size.width) {
    a = a - 90.0;
  }
  a = std::fabs(a);
  if (a > 90.0) {
    a = a - 90.0;
  }
  return a;
}

double FoldedBoxAngleOf(const cv::RotatedRect& box) {
  double a = box.angle;
  if (box.size.height > box.size.width) {
    a = a - 90.0;
  }
  if (a < -45.0) {
    a = a + 180.0;
  }
  if (a < 0.0) {
    a = std::fabs(a);
  }
  if (a >= 90.0) {
    a = a - 90.0;
  }
  return a;
}

namespace {

// cv::isContourConvex multiplies coordinate differences in the points' own type: in int that
// overflows once a difference exceeds 46340, so wider contours are tested as float points.
bool IsConvex(const std::vector<cv::Point>& points) {
  constexpr int kIntProductLimit = 23170;
  const bool narrow = std::all_of(points.begin(), points.end(), [](const cv::Point& p) {
    return std::abs(p.x) <= kIntProductLimit && std::abs(p.y) <= kIntProductLimit;
  });
  if (narrow) return cv::isContourConvex(points);
  std::vector<cv::Point2f> wide(points.begin(), points.end());
  return cv::isContourConvex(wide);
}

bool CoordinatesInRange(const std::vector<cv::Point>& points) {
  return std::all_of(points.begin(), points.end(), [](const cv::Point& p) {
    return std::abs(static_cast<long long>(p.x)) <= kMaxContourCoordinate &&
           std::abs(static_cast<long long>(p.y)) <= kMaxContourCoordinate;
  });
}

double CircleCentre(const std::vector<cv::Point>& points, bool y) {
  if (points.empty()) {
    return 0.0;
  }
  cv::Point2f centre;
  float radius = 0.0f;
  cv::minEnclosingCircle(points, centre, radius);
  return y ? centre.y : centre.x;
}

}  // namespace

double ComputeFeature(const ContourRecord& record, ContourFeature feature) {
  const std::vector<cv::Point>& points = record.points;
  // OpenCV's contour geometry works in float (exact for integers up to 2^24) and in int products
  // of coordinate differences: beyond that range its answers are not to be trusted.
  const bool geometric = feature != ContourFeature::VertexCount &&
                         static_cast<std::int32_t>(feature) >= 1 &&
                         static_cast<std::int32_t>(feature) <= 11;
  if (geometric && !CoordinatesInRange(points)) return -1.0;
  switch (feature) {
    case ContourFeature::Area:
      return cv::contourArea(points, false);
    case ContourFeature::Perimeter:
      return cv::arcLength(points, true);
    case ContourFeature::VertexCount:
      return static_cast<double>(points.size());
    case ContourFeature::AspectRatio:
      return AspectRatio(points);
    case ContourFeature::Convex:
      return IsConvex(points) ? 1.0 : 0.0;
    case ContourFeature::MaxCornerCosine:
      return MaxCornerCosineOf(points);
    case ContourFeature::AbsoluteBoxAngle:
      return AbsoluteBoxAngleOf(MinAreaRectLegacy(points));
    case ContourFeature::FoldedBoxAngle:
      return FoldedBoxAngleOf(MinAreaRectLegacy(points));
    case ContourFeature::CircleCentreX:
      return CircleCentre(points, false);
    case ContourFeature::CircleCentreY:
      return CircleCentre(points, true);
    case ContourFeature::Circularity:
      return Circularity(points);
  }
  return 0.0;
}

bool ComparisonPasses(Comparison comparison, double x, double first, double second) {
  switch (comparison) {
    case Comparison::GreaterThanSecond:
      return x > second;
    case Comparison::LessThanFirst:
      return x < first;
    case Comparison::BetweenFirstAndSecond:
      return first <= x && x <= second;
    case Comparison::BetweenSecondAndFirst:
      return second <= x && x <= first;
    case Comparison::EqualToFirst:
      return x == first;
    case Comparison::NotEqualToFirst:
      return x != first;
  }
  return false;
}

bool FindContourSet(ContourSet& set, const cv::Mat& binaryImage) {
  set.candidates.clear();
  set.rejected.clear();
  set.accepted.clear();
  std::vector<std::vector<cv::Point>> contours;
  std::vector<cv::Vec4i> hierarchy;
  cv::findContours(binaryImage, contours, hierarchy, cv::RETR_TREE, cv::CHAIN_APPROX_SIMPLE,
                   cv::Point(0, 0));
  set.candidates.reserve(contours.size());
  for (std::size_t i = 0; i < contours.size(); ++i) {
    ContourRecord record;
    record.points = std::move(contours[i]);
    record.hierarchy = hierarchy[i];
    record.flag = false;
    set.candidates.push_back(std::move(record));
  }
  return true;
}

bool FindEdgeContours(ContourSet& set, const cv::Mat& image, double low, double high) {
  if (low < 0.0) {
    cv::Mat scratch;
    low = cv::threshold(image, scratch, 0.0, 255.0, cv::THRESH_OTSU);
  }
  if (high < 0.0) {
    high = 2.0 * low;
  }
  cv::Mat edges;
  cv::Canny(image, edges, low, high, 3, false);
  return FindContourSet(set, edges);
}

void ApplyCriterion(ContourSet& set, const FilterCriterion& criterion) {
  std::vector<ContourRecord> kept;
  kept.reserve(set.candidates.size());
  for (ContourRecord& record : set.candidates) {
    const double x = ComputeFeature(record, criterion.feature);
    if (!ComparisonPasses(criterion.comparison, x, criterion.first, criterion.second)) {
      set.rejected.push_back(std::move(record));
      continue;
    }
    switch (criterion.action) {
      case FilterAction::Keep:
        set.accepted.push_back(record);
        kept.push_back(std::move(record));
        break;
      case FilterAction::Reject:
        set.rejected.push_back(std::move(record));
        break;
      default:
        break;  // dropped without a trace
    }
  }
  set.candidates = std::move(kept);
}

void RemoveNestedCandidates(ContourSet& set) {
  std::vector<ContourRecord> kept;
  // Enclosing-circle centres of the kept records, rounded once when a record is kept.
  std::vector<cv::Point2f> keptCentres;
  for (ContourRecord& candidate : set.candidates) {
    bool duplicate = false;
    for (const cv::Point2f& centre : keptCentres) {
      if (cv::pointPolygonTest(candidate.points, centre, false) >= 0.0) {
        // The earlier record stays even when this one is larger: the first in walk order wins.
        duplicate = true;
        break;
      }
    }
    if (duplicate) {
      continue;
    }
    cv::Point2f centre;
    float radius = 0.0f;
    cv::minEnclosingCircle(candidate.points, centre, radius);
    keptCentres.emplace_back(static_cast<float>(cvRound(centre.x)),
                             static_cast<float>(cvRound(centre.y)));
    kept.push_back(std::move(candidate));
  }
  set.candidates = std::move(kept);
}

void ApproximateContour(ContourRecord& record, double epsilon) {
  std::vector<cv::Point> out;
  cv::approxPolyDP(record.points, out, epsilon, true);
  record.points = std::move(out);
}

void ConvexHullContour(ContourRecord& record) {
  std::vector<cv::Point> out;
  cv::convexHull(record.points, out, false, true);
  record.points = std::move(out);
}
