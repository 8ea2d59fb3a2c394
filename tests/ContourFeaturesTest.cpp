// Contour features, comparisons, criteria, nesting removal and contour retrieval.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "ContourFeaturesReference.h"
#include "mtf/ContourFeatures.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

ContourRecord Record(std::vector<cv::Point> points) {
  ContourRecord record;
  record.points = std::move(points);
  return record;
}

// Square of the given side with its top-left corner at (x, y), in the order cv::findContours
// lists an outer border: down the left side, along the bottom, up the right side.
std::vector<cv::Point> Square(int x, int y, int side) {
  return {{x, y}, {x, y + side}, {x + side, y + side}, {x + side, y}};
}

double Feature(const std::vector<cv::Point>& points, ContourFeature feature) {
  return ComputeFeature(Record(points), feature);
}

// ---------------------------------------------------------------------------------------------
// Features

TEST(ContourFeatures, TwoPointContourGivesOpenCvLengthsAndNotAvailableShapes) {
  const std::vector<cv::Point> segment{{0, 0}, {3, 4}};
  EXPECT_EQ(Feature(segment, ContourFeature::Area), 0.0);
  // Closed: there and back again.
  EXPECT_DOUBLE_EQ(Feature(segment, ContourFeature::Perimeter), 10.0);
  EXPECT_EQ(Feature(segment, ContourFeature::VertexCount), 2.0);
  EXPECT_EQ(Feature(segment, ContourFeature::MaxCornerCosine), 0.0);
  EXPECT_EQ(Feature(segment, ContourFeature::AspectRatio), -1.0);
  EXPECT_EQ(Feature(segment, ContourFeature::Circularity), -1.0);
}

TEST(ContourFeatures, AxisAlignedSquare) {
  const std::vector<cv::Point> square = Square(10, 20, 40);
  EXPECT_DOUBLE_EQ(Feature(square, ContourFeature::Area), 1600.0);
  EXPECT_DOUBLE_EQ(Feature(square, ContourFeature::Perimeter), 160.0);
  EXPECT_EQ(Feature(square, ContourFeature::VertexCount), 4.0);
  EXPECT_NEAR(Feature(square, ContourFeature::MaxCornerCosine), 0.0, 1e-12);
  EXPECT_DOUBLE_EQ(Feature(square, ContourFeature::AspectRatio), 1.0);
  EXPECT_EQ(Feature(square, ContourFeature::Convex), 1.0);
  EXPECT_EQ(Feature(square, ContourFeature::FoldedBoxAngle), 0.0);
  EXPECT_DOUBLE_EQ(Feature(square, ContourFeature::CircleCentreX), 30.0);
  EXPECT_DOUBLE_EQ(Feature(square, ContourFeature::CircleCentreY), 40.0);
}

TEST(ContourFeatures, OnlyTheCornersAtSecondToPenultimatePointAreMeasured) {
  // Right angles at p[1] and p[2]; the corners at p[0] and p[3] are skewed.
  const std::vector<cv::Point> skewedAtEnds{{0, 0}, {0, 10}, {10, 10}, {10, 3}};
  EXPECT_NEAR(Feature(skewedAtEnds, ContourFeature::MaxCornerCosine), 0.0, 1e-12);
  // The same polygon started one point later puts a skewed corner at p[1].
  const std::vector<cv::Point> shifted{{10, 3}, {0, 0}, {0, 10}, {10, 10}};
  const double d1x = 0 - 0, d1y = 10 - 0, d2x = 10 - 0, d2y = 3 - 0;
  const double expected = std::fabs(d1x * d2x + d1y * d2y) /
                          std::sqrt((d1x * d1x + d1y * d1y) * (d2x * d2x + d2y * d2y) + 1e-10);
  EXPECT_NEAR(Feature(shifted, ContourFeature::MaxCornerCosine), expected, 1e-12);
  EXPECT_GT(expected, 0.2);
}

TEST(ContourFeatures, SquareWhoseOnlySkewedCornerIsAtFirstPointMeasuresZero) {
  // A square outline with an extra vertex on its top side at p[0]: the straight (180 degree)
  // corner there is the only one that is not a right angle, and it is never measured.
  const std::vector<cv::Point> square{{5, 0}, {0, 0}, {0, 10}, {10, 10}, {10, 0}};
  EXPECT_NEAR(Feature(square, ContourFeature::MaxCornerCosine), 0.0, 1e-12);
}

TEST(ContourFeatures, CornerCosineKeepsTheTinyTermUnderTheRoot) {
  // A repeated point makes one arm zero: the 1e-10 keeps the cosine at 0 instead of NaN.
  const std::vector<cv::Point> repeated{{0, 0}, {0, 0}, {10, 0}};
  EXPECT_EQ(Feature(repeated, ContourFeature::MaxCornerCosine), 0.0);
  // Unit arms pointing apart: exactly 1 without the term, 1 / sqrt(1 + 1e-10) with it.
  const std::vector<cv::Point> unitArms{{1, 0}, {0, 0}, {-1, 0}};
  EXPECT_NEAR(Feature(unitArms, ContourFeature::MaxCornerCosine), 1.0 / std::sqrt(1.0 + 1e-10),
              1e-15);
}

TEST(ContourFeatures, CircleTracedWithManyPointsIsAlmostPerfectlyCircular) {
  std::vector<cv::Point> circle;
  for (int i = 0; i < 360; ++i) {
    const double t = i * CV_PI / 180.0;
    circle.emplace_back(cvRound(500 + 200 * std::cos(t)), cvRound(400 + 200 * std::sin(t)));
  }
  const double circularity = Feature(circle, ContourFeature::Circularity);
  EXPECT_LE(circularity, 1.0);
  EXPECT_GT(circularity, 0.98);
  EXPECT_NEAR(Feature(circle, ContourFeature::AspectRatio), 1.0, 0.01);
}

TEST(ContourFeatures, CircularityIsCappedAtOne) {
  // Below 6 points the box is the minimum-area rectangle: for a square D is its side and
  // 4 A / (pi D^2) = 4 / pi, which the cap brings back to 1.
  EXPECT_EQ(Feature(Square(0, 0, 50), ContourFeature::Circularity), 1.0);
}

TEST(ContourFeatures, ShortContoursUseTheRectangleLongOnesTheEllipse) {
  // A 5-point rectangle outline (an extra point on a long side) has the rectangle's aspect 0.5.
  const std::vector<cv::Point> five{{0, 0}, {0, 50}, {100, 50}, {100, 0}, {50, 0}};
  EXPECT_DOUBLE_EQ(Feature(five, ContourFeature::AspectRatio), 0.5);
  // Six points on an ellipse with semi-axes 1000 and 400 give the ellipse's own aspect 0.4; the
  // minimum-area rectangle of the same hexagon would say about 0.35.
  std::vector<cv::Point> six;
  for (int i = 0; i < 6; ++i) {
    const double t = i * CV_PI / 3.0;
    six.emplace_back(cvRound(1000 + 1000 * std::cos(t)), cvRound(1000 + 400 * std::sin(t)));
  }
  EXPECT_NEAR(Feature(six, ContourFeature::AspectRatio), 0.4, 0.002);
  const cv::RotatedRect rect = cv::minAreaRect(six);
  EXPECT_LT(
      std::min(rect.size.width, rect.size.height) / std::max(rect.size.width, rect.size.height),
      0.36);
}

TEST(ContourFeatures, DegenerateBoxGivesZeroAspectAndCircularity) {
  // Six copies of one point: the fitted ellipse has no size, so the larger side is not above 0.
  const std::vector<cv::Point> point(6, cv::Point(7, 9));
  EXPECT_EQ(Feature(point, ContourFeature::AspectRatio), 0.0);
  EXPECT_EQ(Feature(point, ContourFeature::Circularity), 0.0);
  // Three copies go through the rectangle instead, with the same outcome.
  const std::vector<cv::Point> three(3, cv::Point(7, 9));
  EXPECT_EQ(Feature(three, ContourFeature::AspectRatio), 0.0);
  EXPECT_EQ(Feature(three, ContourFeature::Circularity), 0.0);
}

TEST(ContourFeatures, ConvexityOfAConcavePolygonIsZero) {
  const std::vector<cv::Point> arrow{{0, 0}, {10, 5}, {0, 10}, {4, 5}};
  EXPECT_EQ(Feature(arrow, ContourFeature::Convex), 0.0);
}

TEST(ContourFeatures, CircleCentreOfAnEmptyContourIsZero) {
  EXPECT_EQ(Feature({}, ContourFeature::CircleCentreX), 0.0);
  EXPECT_EQ(Feature({}, ContourFeature::CircleCentreY), 0.0);
}

TEST(ContourFeatures, UnknownFeatureIdsGiveZero) {
  const std::vector<cv::Point> square = Square(0, 0, 30);
  EXPECT_EQ(Feature(square, static_cast<ContourFeature>(0)), 0.0);
  EXPECT_EQ(Feature(square, static_cast<ContourFeature>(12)), 0.0);
  EXPECT_EQ(Feature(square, static_cast<ContourFeature>(-3)), 0.0);
}

// ---------------------------------------------------------------------------------------------
// Box angles: rectangles in the convention of OpenCV up to 4.5.0 (angle in [-90, 0)).

TEST(ContourFeatures, BoxAngleFoldedAngleOfUprightBoxesIsZero) {
  EXPECT_EQ(FoldedBoxAngleOf(cv::RotatedRect({0, 0}, {10, 10}, 0.0f)), 0.0);
  EXPECT_EQ(FoldedBoxAngleOf(cv::RotatedRect({0, 0}, {10, 10}, -90.0f)), 0.0);
  EXPECT_EQ(FoldedBoxAngleOf(cv::RotatedRect({0, 0}, {10, 20}, 0.0f)), 0.0);
  EXPECT_EQ(FoldedBoxAngleOf(cv::RotatedRect({0, 0}, {20, 10}, -90.0f)), 0.0);
}

TEST(ContourFeatures, BoxAngleAbsoluteAngleReadsMinusNinetyAsNinety) {
  EXPECT_EQ(AbsoluteBoxAngleOf(cv::RotatedRect({0, 0}, {10, 10}, 0.0f)), 0.0);
  EXPECT_EQ(AbsoluteBoxAngleOf(cv::RotatedRect({0, 0}, {10, 10}, -90.0f)), 90.0);
  // height > width turns 0 into -90, whose absolute value stays 90.
  EXPECT_EQ(AbsoluteBoxAngleOf(cv::RotatedRect({0, 0}, {10, 20}, 0.0f)), 90.0);
}

TEST(ContourFeatures, BoxAngleFortyFiveDegrees) {
  EXPECT_EQ(FoldedBoxAngleOf(cv::RotatedRect({0, 0}, {10, 10}, -45.0f)), 45.0);
  EXPECT_EQ(FoldedBoxAngleOf(cv::RotatedRect({0, 0}, {10, 10}, 45.0f)), 45.0);
  EXPECT_EQ(AbsoluteBoxAngleOf(cv::RotatedRect({0, 0}, {10, 10}, -45.0f)), 45.0);
  EXPECT_EQ(AbsoluteBoxAngleOf(cv::RotatedRect({0, 0}, {10, 10}, 45.0f)), 45.0);
  // Taller than wide: -45 - 90 = -135, folded back to 45 by both.
  EXPECT_EQ(FoldedBoxAngleOf(cv::RotatedRect({0, 0}, {10, 20}, -45.0f)), 45.0);
  EXPECT_EQ(AbsoluteBoxAngleOf(cv::RotatedRect({0, 0}, {10, 20}, -45.0f)), 45.0);
}

TEST(ContourFeatures, BoxAngleFoldedAngleOfANearSquareDependsOnWhichSideIsLonger) {
  // The same 5 degree tilt, labelled from either side: wider boxes fold to 5, taller ones to 85.
  EXPECT_NEAR(FoldedBoxAngleOf(cv::RotatedRect({0, 0}, {101, 100}, -5.0f)), 5.0, 1e-6);
  EXPECT_NEAR(FoldedBoxAngleOf(cv::RotatedRect({0, 0}, {100, 101}, -85.0f)), 5.0, 1e-6);
  EXPECT_NEAR(FoldedBoxAngleOf(cv::RotatedRect({0, 0}, {100, 101}, -5.0f)), 85.0, 1e-6);
}

TEST(ContourFeatures, BoxAngleAnglesAreReadFromTheFloatAngle) {
  const float angle = -30.1f;
  EXPECT_EQ(FoldedBoxAngleOf(cv::RotatedRect({0, 0}, {10, 10}, angle)),
            -static_cast<double>(angle));
}

// ---------------------------------------------------------------------------------------------
// Comparisons

// Which of the values pass the comparison with the bounds: "1" or "0" for each, in order.
std::string Passes(Comparison comparison, const std::vector<double>& values, double first,
                   double second) {
  std::string passes;
  for (const double x : values)
    passes += ComparisonPasses(comparison, x, first, second) ? '1' : '0';
  return passes;
}

TEST(ContourFeatures, ComparisonGreaterThanReadsTheSecondBound) {
  EXPECT_EQ(Passes(Comparison::GreaterThanSecond, {3.0, 4.0, 5.0}, 100.0, 4.0), "001");
}

TEST(ContourFeatures, ComparisonLessThanReadsTheFirstBound) {
  EXPECT_EQ(Passes(Comparison::LessThanFirst, {5.0, 6.0, 7.0}, 6.0, -100.0), "100");
}

TEST(ContourFeatures, ComparisonRangeIncludesBothBounds) {
  EXPECT_EQ(Passes(Comparison::BetweenFirstAndSecond, {3.5, 4.0, 6.0, 6.5}, 4.0, 6.0), "0110");
}

TEST(ContourFeatures, ComparisonReversedRangeReadsTheBoundsSwapped) {
  EXPECT_EQ(Passes(Comparison::BetweenSecondAndFirst, {3.5, 4.0, 5.0, 6.0, 6.5}, 6.0, 4.0),
            "01110");
  for (double x = 0.0; x <= 10.0; x += 0.25) {
    EXPECT_FALSE(ComparisonPasses(Comparison::BetweenSecondAndFirst, x, 4.0, 6.0)) << x;
  }
}

TEST(ContourFeatures, ComparisonReversedRangeWithFourAndSixRejectsEveryContour) {
  ContourSet set;
  for (int n = 3; n <= 8; ++n) {
    std::vector<cv::Point> polygon;
    for (int i = 0; i < n; ++i) {
      const double t = 2 * CV_PI * i / n;
      polygon.emplace_back(cvRound(100 + 50 * std::cos(t)), cvRound(100 + 50 * std::sin(t)));
    }
    set.candidates.push_back(Record(polygon));
  }
  ApplyCriterion(set, {FilterAction::Keep, ContourFeature::VertexCount,
                       Comparison::BetweenSecondAndFirst, 4.0, 6.0});
  EXPECT_TRUE(set.candidates.empty());
  EXPECT_TRUE(set.accepted.empty());
  EXPECT_EQ(set.rejected.size(), 6u);
}

TEST(ContourFeatures, ComparisonEqualityAndInequalityReadTheFirstBound) {
  EXPECT_EQ(Passes(Comparison::EqualToFirst, {0.0, 1.0}, 1.0, 0.0), "01");
  EXPECT_EQ(Passes(Comparison::NotEqualToFirst, {0.0, 1.0}, 1.0, 0.0), "10");
}

TEST(ContourFeatures, ComparisonNaNPassesOnlyInequality) {
  for (const Comparison c :
       {Comparison::GreaterThanSecond, Comparison::LessThanFirst, Comparison::BetweenFirstAndSecond,
        Comparison::BetweenSecondAndFirst, Comparison::EqualToFirst}) {
    EXPECT_FALSE(ComparisonPasses(c, kNaN, -1e300, 1e300)) << static_cast<int>(c);
    EXPECT_FALSE(ComparisonPasses(c, kNaN, 1e300, -1e300)) << static_cast<int>(c);
  }
  EXPECT_TRUE(ComparisonPasses(Comparison::NotEqualToFirst, kNaN, 0.0, 0.0));
}

TEST(ContourFeatures, ComparisonUnknownCodesNeverPass) {
  for (const int code : {0, 7, -1, 100}) {
    for (const double x : {-1.0, 0.0, 1.0, 5.0}) {
      EXPECT_FALSE(ComparisonPasses(static_cast<Comparison>(code), x, 0.0, 10.0));
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Criteria

ContourSet ThreeSquares() {
  ContourSet set;
  set.candidates.push_back(Record(Square(0, 0, 10)));    // area 100
  set.candidates.push_back(Record(Square(50, 0, 30)));   // area 900
  set.candidates.push_back(Record(Square(100, 0, 20)));  // area 400
  return set;
}

std::vector<double> Areas(const std::vector<ContourRecord>& records) {
  std::vector<double> areas;
  for (const ContourRecord& r : records) areas.push_back(ComputeFeature(r, ContourFeature::Area));
  return areas;
}

TEST(ContourFeatures, CriterionKeepMovesFailuresToRejectedAndCopiesPassesToAccepted) {
  ContourSet set = ThreeSquares();
  ApplyCriterion(
      set, {FilterAction::Keep, ContourFeature::Area, Comparison::GreaterThanSecond, 0.0, 300.0});
  EXPECT_EQ(Areas(set.candidates), (std::vector<double>{900.0, 400.0}));
  EXPECT_EQ(Areas(set.accepted), (std::vector<double>{900.0, 400.0}));
  EXPECT_EQ(Areas(set.rejected), (std::vector<double>{100.0}));
}

TEST(ContourFeatures, CriterionEveryPassedKeepCriterionAddsAnotherCopy) {
  ContourSet set = ThreeSquares();
  const FilterCriterion bigEnough{FilterAction::Keep, ContourFeature::Area,
                                  Comparison::GreaterThanSecond, 0.0, 300.0};
  const FilterCriterion fourCorners{FilterAction::Keep, ContourFeature::VertexCount,
                                    Comparison::EqualToFirst, 4.0, 0.0};
  ApplyCriterion(set, bigEnough);
  ApplyCriterion(set, fourCorners);
  EXPECT_EQ(Areas(set.accepted), (std::vector<double>{900.0, 400.0, 900.0, 400.0}));
  EXPECT_EQ(set.candidates.size(), 2u);
}

TEST(ContourFeatures, CriterionRejectActionMovesPassingContoursToRejected) {
  ContourSet set = ThreeSquares();
  ApplyCriterion(
      set, {FilterAction::Reject, ContourFeature::Area, Comparison::GreaterThanSecond, 0.0, 300.0});
  EXPECT_TRUE(set.candidates.empty());
  EXPECT_TRUE(set.accepted.empty());
  // In walk order: the failing 100, then the passing 900 and 400.
  EXPECT_EQ(Areas(set.rejected), (std::vector<double>{100.0, 900.0, 400.0}));
}

TEST(ContourFeatures, CriterionOtherActionsDropPassingContoursWithoutATrace) {
  ContourSet set = ThreeSquares();
  ApplyCriterion(set, {static_cast<FilterAction>(3), ContourFeature::Area,
                       Comparison::GreaterThanSecond, 0.0, 300.0});
  EXPECT_TRUE(set.candidates.empty());
  EXPECT_TRUE(set.accepted.empty());
  EXPECT_EQ(Areas(set.rejected), (std::vector<double>{100.0}));
}

TEST(ContourFeatures, CriterionRecordsKeepTheirLinksAndFlag) {
  ContourSet set;
  ContourRecord record = Record(Square(0, 0, 40));
  record.hierarchy = cv::Vec4i(3, -1, 7, 2);
  record.flag = true;
  set.candidates.push_back(record);
  ApplyCriterion(
      set, {FilterAction::Keep, ContourFeature::VertexCount, Comparison::EqualToFirst, 4.0, 0.0});
  ASSERT_EQ(set.candidates.size(), 1u);
  EXPECT_EQ(set.candidates[0].hierarchy, cv::Vec4i(3, -1, 7, 2));
  EXPECT_TRUE(set.candidates[0].flag);
  EXPECT_EQ(set.candidates[0].points, record.points);
  EXPECT_EQ(set.accepted[0].hierarchy, cv::Vec4i(3, -1, 7, 2));
}

// ---------------------------------------------------------------------------------------------
// Nesting

TEST(ContourFeatures, NestedConcentricSquaresKeepTheOneMetFirst) {
  ContourSet outerFirst;
  outerFirst.candidates = {Record(Square(0, 0, 100)), Record(Square(20, 20, 60))};
  RemoveNestedCandidates(outerFirst);
  EXPECT_EQ(Areas(outerFirst.candidates), (std::vector<double>{10000.0}));

  ContourSet innerFirst;
  innerFirst.candidates = {Record(Square(20, 20, 60)), Record(Square(0, 0, 100))};
  RemoveNestedCandidates(innerFirst);
  // The smaller one stays: the first in walk order wins, whatever the areas.
  EXPECT_EQ(Areas(innerFirst.candidates), (std::vector<double>{3600.0}));
}

TEST(ContourFeatures, NestedSeparateTargetsAllStayInOrder) {
  ContourSet set;
  set.candidates = {Record(Square(0, 0, 10)), Record(Square(50, 0, 30)),
                    Record(Square(100, 0, 20))};
  RemoveNestedCandidates(set);
  EXPECT_EQ(Areas(set.candidates), (std::vector<double>{100.0, 900.0, 400.0}));
  EXPECT_TRUE(set.rejected.empty());
  EXPECT_TRUE(set.accepted.empty());
}

TEST(ContourFeatures, NestedAKeptCentreOnTheBorderMakesADuplicate) {
  ContourSet set;
  // The first square's centre (10, 10) lies on the left side of the second.
  set.candidates = {Record(Square(0, 0, 20)), Record(Square(10, 0, 20))};
  RemoveNestedCandidates(set);
  EXPECT_EQ(set.candidates.size(), 1u);
  EXPECT_EQ(set.candidates[0].points, Square(0, 0, 20));
}

TEST(ContourFeatures, NestedOverlapWithoutTheCentreInsideKeepsBoth) {
  ContourSet set;
  // Overlapping, but the kept square's centre (10, 10) lies outside the second one.
  set.candidates = {Record(Square(0, 0, 20)), Record(Square(15, 5, 20))};
  RemoveNestedCandidates(set);
  EXPECT_EQ(set.candidates.size(), 2u);
}

TEST(ContourFeatures, NestedTheKeptCentreIsRoundedHalfToEven) {
  ContourSet set;
  // The first square's enclosing circle is centred at (10.5, 10.5), which the OpenCV rounding
  // (cvRound, halves to even) takes to (10, 10): a corner of the second square, so a duplicate.
  // Rounding halves up would give (11, 11), outside it.
  set.candidates = {Record({{0, 0}, {21, 0}, {21, 21}, {0, 21}}), Record(Square(0, 0, 10))};
  RemoveNestedCandidates(set);
  EXPECT_EQ(set.candidates.size(), 1u);
}

TEST(ContourFeatures, NestedMatchesTheStepByStepWalkOnRandomSets) {
  cv::RNG rng(31337);
  for (int trial = 0; trial < 200; ++trial) {
    ContourSet set;
    const int count = rng.uniform(0, 25);
    for (int i = 0; i < count; ++i) {
      const cv::Point2d c(rng.uniform(0.0, 400.0), rng.uniform(0.0, 400.0));
      const double half = rng.uniform(3.0, 80.0), t = rng.uniform(0.0, CV_PI);
      std::vector<cv::Point> polygon;
      const int corners = rng.uniform(3, 7);
      for (int k = 0; k < corners; ++k) {
        const double a = t + 2 * CV_PI * k / corners;
        polygon.emplace_back(cvRound(c.x + half * std::cos(a)), cvRound(c.y + half * std::sin(a)));
      }
      set.candidates.push_back(Record(polygon));
    }
    ContourSet reference = set;
    RemoveNestedCandidates(set);
    oracle::RemoveNestedCandidates(reference);
    ASSERT_EQ(set.candidates.size(), reference.candidates.size()) << trial;
    for (std::size_t i = 0; i < set.candidates.size(); ++i) {
      EXPECT_EQ(set.candidates[i].points, reference.candidates[i].points) << trial;
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Empty sets and retrieval

TEST(ContourFeatures, ContourSetEmptyCandidatesStayEmpty) {
  ContourSet set;
  ApplyCriterion(
      set, {FilterAction::Keep, ContourFeature::Area, Comparison::GreaterThanSecond, 0.0, 1.0});
  RemoveNestedCandidates(set);
  EXPECT_TRUE(set.candidates.empty());
  EXPECT_TRUE(set.rejected.empty());
  EXPECT_TRUE(set.accepted.empty());
  EXPECT_TRUE(FindContourSet(set, cv::Mat::zeros(50, 60, CV_8UC1)));
  EXPECT_TRUE(set.candidates.empty());
}

TEST(ContourFeatures, FindContourSetEmptiesAllListsAndRecordsTheTree) {
  ContourSet set = ThreeSquares();
  set.rejected.push_back(Record(Square(0, 0, 1)));
  set.accepted.push_back(Record(Square(0, 0, 1)));
  cv::Mat image = cv::Mat::zeros(100, 120, CV_8UC1);
  cv::rectangle(image, cv::Rect(10, 10, 60, 50), cv::Scalar(255), cv::FILLED);
  cv::rectangle(image, cv::Rect(30, 25, 20, 15), cv::Scalar(0), cv::FILLED);
  EXPECT_TRUE(FindContourSet(set, image));
  EXPECT_TRUE(set.rejected.empty());
  EXPECT_TRUE(set.accepted.empty());
  ASSERT_EQ(set.candidates.size(), 2u);
  EXPECT_EQ(set.candidates[0].points,
            (std::vector<cv::Point>{{10, 10}, {10, 59}, {69, 59}, {69, 10}}));
  EXPECT_EQ(set.candidates[0].hierarchy, cv::Vec4i(-1, -1, 1, -1));
  EXPECT_EQ(set.candidates[1].hierarchy, cv::Vec4i(-1, -1, -1, 0));
  EXPECT_FALSE(set.candidates[0].flag);
  EXPECT_FALSE(set.candidates[1].flag);
}

cv::Mat SquareOnRamp() {
  // A dark square on a bright, gently sloping background.
  cv::Mat image(200, 240, CV_8UC1);
  for (int y = 0; y < image.rows; ++y)
    for (int x = 0; x < image.cols; ++x)
      image.at<uchar>(y, x) = cv::saturate_cast<uchar>(150 + x / 4);
  cv::rectangle(image, cv::Rect(60, 50, 80, 90), cv::Scalar(40), cv::FILLED);
  return image;
}

std::vector<std::vector<cv::Point>> Points(const ContourSet& set) {
  std::vector<std::vector<cv::Point>> points;
  for (const ContourRecord& r : set.candidates) points.push_back(r.points);
  return points;
}

TEST(ContourFeatures, EdgeContoursNegativeLowTakesOtsusLevelAndNegativeHighDoublesLow) {
  const cv::Mat image = SquareOnRamp();
  cv::Mat scratch;
  const double otsu = cv::threshold(image, scratch, 0, 255, cv::THRESH_OTSU);
  ContourSet automatic, explicitLevels;
  EXPECT_TRUE(FindEdgeContours(automatic, image, -1.0, -1.0));
  EXPECT_TRUE(FindEdgeContours(explicitLevels, image, otsu, 2 * otsu));
  EXPECT_FALSE(automatic.candidates.empty());
  EXPECT_EQ(Points(automatic), Points(explicitLevels));

  ContourSet halfAutomatic, doubled;
  FindEdgeContours(halfAutomatic, image, 60.0, -5.0);
  FindEdgeContours(doubled, image, 60.0, 120.0);
  EXPECT_EQ(Points(halfAutomatic), Points(doubled));
}

TEST(ContourFeatures, EdgeContoursCannyRunsOnTheImageNotOnTheThresholdedImage) {
  // A smooth ramp: Otsu splits it in two, so the thresholded picture has a sharp step, but the
  // ramp itself has no gradient near Otsu's level and yields no edges.
  cv::Mat ramp(100, 256, CV_8UC1);
  for (int y = 0; y < ramp.rows; ++y)
    for (int x = 0; x < ramp.cols; ++x) ramp.at<uchar>(y, x) = static_cast<uchar>(x);
  ContourSet set;
  FindEdgeContours(set, ramp, -1.0, -1.0);
  EXPECT_TRUE(set.candidates.empty());

  cv::Mat thresholded;
  const double otsu = cv::threshold(ramp, thresholded, 0, 255, cv::THRESH_OTSU);
  ContourSet control;
  FindEdgeContours(control, thresholded, otsu, 2 * otsu);
  EXPECT_FALSE(control.candidates.empty());
}

}  // namespace

namespace {

TEST(ContourFeatures, ExtremeCoordinatesAreNotAvailableInsteadOfOverflowing) {
  const int big = std::numeric_limits<int>::max();
  ContourRecord far;
  far.points = {{big, big}, {-big, big}, {-big, -big}, {big, -big}};
  for (int id = 1; id <= 11; ++id) {
    const auto feature = static_cast<ContourFeature>(id);
    if (feature == ContourFeature::VertexCount) {
      EXPECT_EQ(ComputeFeature(far, feature), 4.0);
    } else {
      EXPECT_EQ(ComputeFeature(far, feature), -1.0) << id;
    }
  }
  EXPECT_EQ(ComputeFeature(far, static_cast<ContourFeature>(12)), 0.0);
  // At the bound the features are OpenCV's: a square of side 2^25 centred on the origin.
  const int edge = static_cast<int>(kMaxContourCoordinate);
  ContourRecord square;
  square.points = {{-edge, -edge}, {edge, -edge}, {edge, edge}, {-edge, edge}};
  EXPECT_EQ(ComputeFeature(square, ContourFeature::Area), 4.0 * edge * edge);
  EXPECT_EQ(ComputeFeature(square, ContourFeature::Convex), 1.0);
  EXPECT_NEAR(ComputeFeature(square, ContourFeature::MaxCornerCosine), 0.0, 1e-12);
  EXPECT_EQ(ComputeFeature(square, ContourFeature::AspectRatio), 1.0);
  square.points[2].x = edge + 1;
  EXPECT_EQ(ComputeFeature(square, ContourFeature::Area), -1.0);
  EXPECT_EQ(ComputeFeature(square, ContourFeature::MaxCornerCosine), -1.0);
}

}  // namespace
