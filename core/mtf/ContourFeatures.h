// Polygon contours of an 8-bit single-channel image and the numbered shape features that sift
// them (area, vertex count, corner cosine, box aspect and angle, circularity). Retrieval accepts
// what cv::findContours and cv::Canny accept (CV_8UC1); the features work on any integer contour.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

// One contour with its links as cv::findContours reports them. Records are plain values.
struct ContourRecord {
  std::vector<cv::Point> points;
  // next, previous, first child, parent; -1 for none.
  cv::Vec4i hierarchy{-1, -1, -1, -1};
  bool flag = false;
};

// The working lists of a contour search.
struct ContourSet {
  // Still under consideration: filled by retrieval, thinned by each criterion.
  std::vector<ContourRecord> candidates;
  // Moved out of the candidates by a criterion.
  std::vector<ContourRecord> rejected;
  // A copy per passed keep-criterion (a contour passing three keep-criteria appears three times).
  std::vector<ContourRecord> accepted;
};

// What happens to a contour that passes a criterion. Any other value drops the passing contour
// without recording it anywhere.
enum class FilterAction : std::int32_t { Keep = 1, Reject = 2 };

// Ids of ComputeFeature. Other ids give 0.0.
enum class ContourFeature : std::int32_t {
  Area = 1,              // cv::contourArea, unoriented
  Perimeter = 2,         // cv::arcLength, closed
  VertexCount = 3,       // number of points
  AspectRatio = 4,       // short over long side of the box; -1.0 below 3 points or on cv::Exception
  Convex = 5,            // 1.0 when cv::isContourConvex
  MaxCornerCosine = 6,   // largest |cos| over the corners at p[1] .. p[n-2]
  AbsoluteBoxAngle = 7,  // angle of the minimum-area box, folded to [0, 90]
  FoldedBoxAngle = 8,    // angle of the minimum-area box, folded to [0, 90)
  CircleCentreX = 9,     // centre of cv::minEnclosingCircle; 0.0 for an empty contour
  CircleCentreY = 10,
  Circularity = 11,  // 4 area / (pi D^2), D the box's larger side, at most 1; -1.0 as AspectRatio
};

// How a feature value x is compared with a criterion's bounds. Other codes never pass.
// GreaterThanSecond and LessThanFirst read different bounds, and BetweenSecondAndFirst reads the
// bounds of BetweenFirstAndSecond in reverse (it never passes when first < second); callers rely
// on both readings.
enum class Comparison : std::int32_t {
  GreaterThanSecond = 1,      // x > second
  LessThanFirst = 2,          // x < first
  BetweenFirstAndSecond = 3,  // first <= x <= second
  BetweenSecondAndFirst = 4,  // second <= x <= first
  EqualToFirst = 5,           // x == first
  NotEqualToFirst = 6,        // x != first (NaN passes)
};

// One test applied to every candidate. The enum fields may carry any 32-bit value.
struct FilterCriterion {
  FilterAction action = FilterAction::Keep;
  ContourFeature feature = ContourFeature::Area;
  Comparison comparison = Comparison::GreaterThanSecond;
  double first = 0.0;
  double second = 0.0;
};

// Largest |coordinate| a contour may have for its geometric features (2^24, where float stops
// holding every integer).
constexpr long long kMaxContourCoordinate = 16777216;

// The feature's value for the record; see ContourFeature. Every feature but VertexCount is -1.0
// (not available) for a contour with a coordinate beyond kMaxContourCoordinate.
double ComputeFeature(const ContourRecord& record, ContourFeature feature);

// True when the comparison passes for x with the criterion's bounds.
bool ComparisonPasses(Comparison comparison, double x, double first, double second);

// The box-angle features (AbsoluteBoxAngle, FoldedBoxAngle) of a rectangle in the legacy
// convention (mtf/MinAreaRectLegacy.h). Both read the float angle widened to double.
double AbsoluteBoxAngleOf(const cv::RotatedRect& legacyBox);
double FoldedBoxAngleOf(const cv::RotatedRect& legacyBox);

// Empties all three lists and fills the candidates with every contour of the binary image
// (RETR_TREE, CHAIN_APPROX_SIMPLE), in OpenCV's order. Returns true.
bool FindContourSet(ContourSet& set, const cv::Mat& binaryImage);

// Canny edges of the image (aperture 3, L1 gradient), then FindContourSet on the edges. A negative
// low threshold becomes Otsu's level of the image; a negative high threshold becomes 2 x low.
// Returns true.
bool FindEdgeContours(ContourSet& set, const cv::Mat& image, double low, double high);

// Walks the candidates: failing contours go to rejected; passing ones are kept (and copied to
// accepted), rejected or dropped according to the criterion's action. Order is kept.
void ApplyCriterion(ContourSet& set, const FilterCriterion& criterion);

// Keeps the first of nested or overlapping candidates: a candidate is dropped when the
// enclosing-circle centre of an already kept candidate, rounded to whole pixels with cvRound
// (halves to even, as OpenCV converts a float point), lies inside or on it.
void RemoveNestedCandidates(ContourSet& set);

// Polygon simplification in place: cv::approxPolyDP (closed) with the given epsilon, and
// cv::convexHull (counter-clockwise flag false, points returned).
void ApproximateContour(ContourRecord& record, double epsilon);
void ConvexHullContour(ContourRecord& record);
