// The minimum-area rectangle in the convention of OpenCV up to 4.5.0: the conversion of a newer
// rectangle (angles, sides, segments), known boxes of squares, diamonds and rectangles, random
// rectangles that keep their corners, and the folded angle of tilted squares.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "mtf/ContourFeatures.h"
#include "mtf/MinAreaRectLegacy.h"

namespace {

double Feature(const std::vector<cv::Point>& points, ContourFeature feature) {
  ContourRecord record;
  record.points = points;
  return ComputeFeature(record, feature);
}

// The integer corners of a rectangle of half-sides (w, h) centred on (c, c) and turned by tilt.
std::vector<cv::Point> TiltedRectangle(double c, double w, double h, double tilt) {
  std::vector<cv::Point> corners;
  for (const cv::Point2d p :
       {cv::Point2d(-w, -h), cv::Point2d(w, -h), cv::Point2d(w, h), cv::Point2d(-w, h)}) {
    corners.emplace_back(cvRound(c + p.x * std::cos(tilt) - p.y * std::sin(tilt)),
                         cvRound(c + p.x * std::sin(tilt) + p.y * std::cos(tilt)));
  }
  return corners;
}

// True when every corner of a lies within tolerance of a corner of b.
::testing::AssertionResult SameCorners(const cv::RotatedRect& a, const cv::RotatedRect& b,
                                       double tolerance) {
  cv::Point2f pa[4], pb[4];
  a.points(pa);
  b.points(pb);
  for (const cv::Point2f& p : pa) {
    double nearest = 1e9;
    for (const cv::Point2f& q : pb) nearest = std::min(nearest, cv::norm(p - q));
    if (!(nearest < tolerance)) return ::testing::AssertionFailure() << "corner " << p;
  }
  return ::testing::AssertionSuccess();
}

// The conversion of a rectangle from cv::minAreaRect of OpenCV >= 4.5.1, angle in (0, 90].
TEST(MinAreaRectLegacy, NinetyBecomesMinusNinetyWithTheSameSides) {
  const cv::RotatedRect legacy = ToLegacyBoxAngle(cv::RotatedRect({5.5f, 5.5f}, {9, 9}, 90.0f));
  EXPECT_EQ(legacy.angle, -90.0f);
  EXPECT_EQ(legacy.size, cv::Size2f(9, 9));
  EXPECT_EQ(legacy.center, cv::Point2f(5.5f, 5.5f));
}

class NewerAngle : public ::testing::TestWithParam<float> {};

TEST_P(NewerAngle, TurnsByMinusNinetyAndSwapsSides) {
  const float angle = GetParam();
  const cv::RotatedRect newer({3, 4}, {20, 50}, angle);
  const cv::RotatedRect legacy = ToLegacyBoxAngle(newer);
  EXPECT_EQ(legacy.angle, angle - 90.0f);
  EXPECT_EQ(legacy.size, cv::Size2f(50, 20));
  EXPECT_TRUE(SameCorners(legacy, newer, 1e-3));
}

INSTANTIATE_TEST_SUITE_P(MinAreaRectLegacy, NewerAngle,
                         ::testing::Values(45.0f, 30.0f, 1.5f, 89.0f));

TEST(MinAreaRectLegacy, UprightZeroStaysAndLosesItsSign) {
  const cv::RotatedRect legacy = ToLegacyBoxAngle(cv::RotatedRect({0, 0}, {109, 124}, -0.0f));
  EXPECT_EQ(legacy.angle, 0.0f);
  EXPECT_FALSE(std::signbit(legacy.angle));
  EXPECT_EQ(legacy.size, cv::Size2f(109, 124));
}

TEST(MinAreaRectLegacy, SegmentsTurnHalfAround) {
  EXPECT_NEAR(ToLegacyBoxAngle(cv::RotatedRect({0, 0}, {11.18f, 0}, -153.4350f)).angle, 26.5650f,
              1e-4);
  EXPECT_EQ(ToLegacyBoxAngle(cv::RotatedRect({0, 0}, {10, 0}, 180.0f)).angle, 0.0f);
  EXPECT_EQ(ToLegacyBoxAngle(cv::RotatedRect({0, 0}, {10, 0}, -90.0f)).angle, 90.0f);
  EXPECT_NEAR(ToLegacyBoxAngle(cv::RotatedRect({0, 0}, {11.18f, 0}, 153.4350f)).angle, -26.5650f,
              1e-4);
}

TEST(MinAreaRectLegacy, MinAreaRectOfAnUprightSquareReadsMinusNinety) {
  // OpenCV 4.2 reports ((5.5, 5.5), (9, 9), -90) for this square (4.5.1 reports +90).
  const cv::RotatedRect box = MinAreaRectLegacy({{1, 1}, {1, 10}, {10, 10}, {10, 1}});
  EXPECT_EQ(box.center, cv::Point2f(5.5f, 5.5f));
  EXPECT_EQ(box.size, cv::Size2f(9, 9));
  EXPECT_EQ(box.angle, -90.0f);
}

TEST(MinAreaRectLegacy, MinAreaRectOfADiamondReadsMinusFortyFive) {
  // A square turned by 45 degrees: 4.2's calipers give -45 (4.5.1: +45).
  const std::vector<cv::Point> diamond{{0, 10}, {10, 0}, {20, 10}, {10, 20}};
  const cv::RotatedRect box = MinAreaRectLegacy(diamond);
  EXPECT_EQ(box.angle, -45.0f);
  EXPECT_NEAR(box.size.width, 14.142f, 1e-3);
  EXPECT_NEAR(box.size.height, 14.142f, 1e-3);
  EXPECT_NEAR(Feature(diamond, ContourFeature::FoldedBoxAngle), 45.0, 1e-5);
  EXPECT_NEAR(Feature(diamond, ContourFeature::AbsoluteBoxAngle), 45.0, 1e-5);
}

TEST(MinAreaRectLegacy, MinAreaRectOfATiltedSquareAndAnUprightRectangle) {
  // Square with sides along (1, -2) and (2, 1): 4.2 reads -63.435 (4.5.1: 26.565).
  const std::vector<cv::Point> tilted{{0, 20}, {10, 0}, {30, 10}, {20, 30}};
  const cv::RotatedRect box = MinAreaRectLegacy(tilted);
  EXPECT_NEAR(box.angle, -63.4350f, 1e-3);
  EXPECT_NEAR(Feature(tilted, ContourFeature::FoldedBoxAngle), 26.565, 1e-3);
  EXPECT_NEAR(Feature(tilted, ContourFeature::AbsoluteBoxAngle), 63.435, 1e-3);
  // Upright 20 x 40: -90 with the 40 side as width; folded 0, absolute 90.
  const std::vector<cv::Point> upright{{0, 0}, {0, 40}, {20, 40}, {20, 0}};
  const cv::RotatedRect rect = MinAreaRectLegacy(upright);
  EXPECT_EQ(rect.angle, -90.0f);
  EXPECT_EQ(rect.size, cv::Size2f(40, 20));
  EXPECT_EQ(Feature(upright, ContourFeature::FoldedBoxAngle), 0.0);
  EXPECT_EQ(Feature(upright, ContourFeature::AbsoluteBoxAngle), 90.0);
}

TEST(MinAreaRectLegacy, MinAreaRectAnglesStayInTheLegacyRangeAndKeepTheRectangle) {
  cv::RNG rng(20240607);
  for (int trial = 0; trial < 500; ++trial) {
    const double tilt = rng.uniform(-180.0, 180.0) * CV_PI / 180.0;
    const double w = rng.uniform(20.0, 200.0), h = rng.uniform(20.0, 200.0);
    const std::vector<cv::Point> corners = TiltedRectangle(500, w, h, tilt);
    const cv::RotatedRect legacy = MinAreaRectLegacy(corners);
    const cv::RotatedRect current = cv::minAreaRect(corners);
    EXPECT_TRUE((legacy.angle >= -90.0f && legacy.angle < 0.0f) || legacy.angle == 0.0f)
        << legacy.angle;
    EXPECT_FLOAT_EQ(legacy.size.area(), current.size.area());
    EXPECT_TRUE(SameCorners(legacy, current, 1e-2)) << "trial " << trial;
  }
}

class SquareTilt : public ::testing::TestWithParam<double> {};

// A square tilted by d folds to t = d mod 90 or to 90 - t, depending on which side the rounding
// of its corners makes the longer one.
TEST_P(SquareTilt, FoldsToTheTiltOrItsComplement) {
  const double degrees = GetParam();
  const std::vector<cv::Point> corners = TiltedRectangle(1000, 150, 150, degrees * CV_PI / 180.0);
  const double folded = Feature(corners, ContourFeature::FoldedBoxAngle);
  const double expected = std::fmod(degrees + 360.0, 90.0);
  EXPECT_TRUE(std::fabs(folded - expected) < 0.3 || std::fabs(folded - (90.0 - expected)) < 0.3)
      << folded;
}

INSTANTIATE_TEST_SUITE_P(MinAreaRectLegacy, SquareTilt,
                         ::testing::Values(2.0, 5.0, 10.0, 30.0, -5.0, -30.0));

}  // namespace
