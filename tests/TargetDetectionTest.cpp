// Target detection: grey conversion, stretching, working size and scale, retrieval modes, the
// criteria chain and the nesting removal, on drawn charts whose geometry is known.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "MtfChart.h"
#include "mtf/TargetDetection.h"

namespace {

// Fills the polygon with sub-pixel accurate vertices (8 fractional bits).
void Fill(cv::Mat& image, const std::vector<cv::Point2d>& polygon, double value,
          int lineType = cv::LINE_AA) {
  std::vector<cv::Point> fixed;
  for (const cv::Point2d& p : polygon) fixed.emplace_back(cvRound(p.x * 256), cvRound(p.y * 256));
  cv::fillPoly(image, std::vector<std::vector<cv::Point>>{fixed}, cv::Scalar::all(value), lineType,
               8);
}

TargetDetectionSettings AllTilts() {
  TargetDetectionSettings settings;
  settings.minimumAngle = -180.0f;
  settings.maximumAngle = 180.0f;
  return settings;
}

// Every tilt, the given working size, and no Canny: the grey image goes to contour retrieval as
// it is, so a white image gives one contour, its own border, at the working size.
TargetDetectionSettings PlainRetrieval(std::int32_t workingSize) {
  TargetDetectionSettings settings = AllTilts();
  settings.workingSize = workingSize;
  settings.cannyLow = 0.0f;
  return settings;
}

// Largest distance from a detected vertex to the nearest true corner and from a true corner to
// the nearest vertex.
double CornerError(const ContourRecord& polygon, const std::vector<cv::Point2d>& corners) {
  double worst = 0.0;
  for (const cv::Point& p : polygon.points) {
    double nearest = 1e9;
    for (const cv::Point2d& c : corners) nearest = std::min(nearest, cv::norm(cv::Point2d(p) - c));
    worst = std::max(worst, nearest);
  }
  for (const cv::Point2d& c : corners) {
    double nearest = 1e9;
    for (const cv::Point& p : polygon.points)
      nearest = std::min(nearest, cv::norm(cv::Point2d(p) - c));
    worst = std::max(worst, nearest);
  }
  return worst;
}

// The vertices in a fixed order, so that the comparison does not depend on where OpenCV starts a
// polygon.
std::vector<cv::Point> Sorted(std::vector<cv::Point> points) {
  std::sort(points.begin(), points.end(), [](const cv::Point& a, const cv::Point& b) {
    return a.x != b.x ? a.x < b.x : a.y < b.y;
  });
  return points;
}

cv::Mat WhiteChart(int rows, int cols, int type = CV_8UC1, double white = 230.0) {
  return cv::Mat(rows, cols, type, cv::Scalar::all(white));
}

TEST(TargetDetection, FindsATiltedSquareInInputPixels) {
  cv::Mat chart = WhiteChart(600, 800);
  const std::vector<cv::Point2d> square = datagen::SquareCorners({400, 300}, 200, 6.0);
  Fill(chart, square, 30.0);
  TargetDetectionSettings settings = AllTilts();
  std::vector<ContourRecord> targets;
  DetectTargets(settings, targets, chart);
  ASSERT_EQ(targets.size(), 1u);
  EXPECT_GE(targets[0].points.size(), 4u);
  EXPECT_LE(targets[0].points.size(), 6u);
  EXPECT_LT(CornerError(targets[0], square), 3.0);
  // Smaller than workingSize: nothing resized, the fresh scale stays.
  EXPECT_EQ(settings.scale, 1.0);
}

TEST(TargetDetection, EightBitGreyIsUsedAsItIs) {
  // A step of 6 grey levels gives Canny gradients below 30: nothing is found unless the image is
  // stretched, and an 8-bit grey image is not.
  cv::Mat chart = WhiteChart(400, 400, CV_8UC1, 106.0);
  Fill(chart, datagen::SquareCorners({200, 200}, 150, 5.0), 100.0);
  TargetDetectionSettings settings = AllTilts();
  std::vector<ContourRecord> targets;
  DetectTargets(settings, targets, chart);
  EXPECT_TRUE(targets.empty());
}

TEST(TargetDetection, SixteenBitAndFloatImagesAreStretchedFirst) {
  const std::vector<cv::Point2d> square = datagen::SquareCorners({200, 200}, 150, 5.0);
  cv::Mat wide = WhiteChart(400, 400, CV_16UC1, 1006.0);
  Fill(wide, square, 1000.0);
  cv::Mat real = WhiteChart(400, 400, CV_32FC1, 0.53);
  Fill(real, square, 0.5);
  for (const cv::Mat& chart : {wide, real}) {
    TargetDetectionSettings settings = AllTilts();
    std::vector<ContourRecord> targets;
    DetectTargets(settings, targets, chart);
    ASSERT_EQ(targets.size(), 1u) << chart.type();
    EXPECT_LT(CornerError(targets[0], square), 3.0);
  }
}

TEST(TargetDetection, ColourImagesAreReadAsBgr) {
  // Blue 200 on green 102: the same grey (about 60) when the channels are read as RGB, a clear
  // step (23 against 60) when read as BGR.
  cv::Mat chart(400, 400, CV_8UC3, cv::Scalar(0, 102, 0));
  const std::vector<cv::Point2d> square = datagen::SquareCorners({200, 200}, 150, 5.0);
  cv::Mat mask = cv::Mat::zeros(400, 400, CV_8UC1);
  Fill(mask, square, 255.0, cv::LINE_8);
  chart.setTo(cv::Scalar(200, 0, 0), mask);
  cv::Mat asRgb;
  cv::cvtColor(chart, asRgb, cv::COLOR_RGB2GRAY);
  double lo = 0, hi = 0;
  cv::minMaxLoc(asRgb, &lo, &hi);
  ASSERT_LE(hi - lo, 1.0);

  TargetDetectionSettings settings = AllTilts();
  std::vector<ContourRecord> targets;
  DetectTargets(settings, targets, chart);
  ASSERT_EQ(targets.size(), 1u);
  EXPECT_LT(CornerError(targets[0], square), 3.0);
}

TEST(TargetDetection, AutomaticWorkingSizeOfA2048By1536Image) {
  // With plain retrieval a white image has one contour, its own border, which shows the working
  // size: k = 585, scale = 2048 / 585, 585 x 439 pixels.
  const cv::Mat white(1536, 2048, CV_8UC1, cv::Scalar(255));
  TargetDetectionSettings settings = PlainRetrieval(0);
  std::vector<ContourRecord> targets;
  DetectTargets(settings, targets, white);
  EXPECT_EQ(settings.scale, 2048.0 / 585.0);
  ASSERT_EQ(settings.contours.candidates.size(), 1u);
  EXPECT_EQ(Sorted(settings.contours.candidates[0].points),
            (std::vector<cv::Point>{{0, 0}, {0, 438}, {584, 0}, {584, 438}}));
  // Back in input pixels: 584 x 2048 / 585 = 2044.50 (rounds to 2044, just below the half) and
  // 438 x 2048 / 585 = 1533.37.
  ASSERT_EQ(targets.size(), 1u);
  EXPECT_EQ(Sorted(targets[0].points),
            (std::vector<cv::Point>{{0, 0}, {0, 1533}, {2044, 0}, {2044, 1533}}));
}

TEST(TargetDetection, PositiveWorkingSizeBoundsTheLargerSide) {
  const cv::Mat white(300, 1000, CV_8UC1, cv::Scalar(255));
  TargetDetectionSettings settings = PlainRetrieval(400);
  std::vector<ContourRecord> targets;
  DetectTargets(settings, targets, white);
  EXPECT_EQ(settings.scale, 2.5);
  // 1000 / 2.5 = 400 columns, 300 / 2.5 = 120 rows.
  ASSERT_EQ(settings.contours.candidates.size() + settings.contours.rejected.size(), 1u);
  const std::vector<ContourRecord>& all = settings.contours.candidates.empty()
                                              ? settings.contours.rejected
                                              : settings.contours.candidates;
  EXPECT_EQ(Sorted(all[0].points),
            (std::vector<cv::Point>{{0, 0}, {0, 119}, {399, 0}, {399, 119}}));
}

TEST(TargetDetection, WorkingSizeAboveBothSidesKeepsTheOldScale) {
  cv::Mat chart = WhiteChart(600, 800);
  const std::vector<cv::Point2d> square = datagen::SquareCorners({300, 300}, 160, 5.0);
  Fill(chart, square, 30.0);
  TargetDetectionSettings settings = AllTilts();
  settings.workingSize = 1000;
  std::vector<ContourRecord> fresh;
  DetectTargets(settings, fresh, chart);
  ASSERT_EQ(fresh.size(), 1u);
  EXPECT_EQ(settings.scale, 1.0);

  // Whatever scale an earlier run left is applied again.
  settings.scale = 2.0;
  std::vector<ContourRecord> doubled;
  DetectTargets(settings, doubled, chart);
  EXPECT_EQ(settings.scale, 2.0);
  ASSERT_EQ(doubled.size(), 1u);
  ASSERT_EQ(doubled[0].points.size(), fresh[0].points.size());
  for (std::size_t i = 0; i < fresh[0].points.size(); ++i) {
    EXPECT_EQ(doubled[0].points[i], fresh[0].points[i] * 2);
  }
}

TEST(TargetDetection, NegativeWorkingSizeNeverResizesAndRoundsHalvesAwayFromZero) {
  cv::Mat binary = cv::Mat::zeros(200, 200, CV_8UC1);
  cv::rectangle(binary, cv::Rect(1, 3, 99, 81), cv::Scalar(255), cv::FILLED);
  TargetDetectionSettings settings = PlainRetrieval(-1);
  settings.scale = 2.5;
  std::vector<ContourRecord> targets;
  DetectTargets(settings, targets, binary);
  EXPECT_EQ(settings.scale, 2.5);
  ASSERT_EQ(targets.size(), 1u);
  // Working corners (1, 3), (1, 83), (99, 83), (99, 3): 2.5 -> 3, 7.5 -> 8, 207.5 -> 208,
  // 247.5 -> 248.
  EXPECT_EQ(Sorted(targets[0].points),
            (std::vector<cv::Point>{{3, 8}, {3, 208}, {248, 8}, {248, 208}}));
}

TEST(TargetDetection, ZeroCannyThresholdHandsTheGreyImageToRetrieval) {
  cv::Mat binary = cv::Mat::zeros(300, 300, CV_8UC1);
  cv::rectangle(binary, cv::Rect(50, 60, 150, 140), cv::Scalar(255), cv::FILLED);
  for (const bool lowZero : {true, false}) {
    TargetDetectionSettings settings = AllTilts();
    (lowZero ? settings.cannyLow : settings.cannyHigh) = 0.0f;
    std::vector<ContourRecord> targets;
    DetectTargets(settings, targets, binary);
    // One region, one contour, exactly on the region's border; it passed six criteria.
    ASSERT_EQ(targets.size(), 1u);
    EXPECT_EQ(settings.contours.rejected.size(), 0u);
    EXPECT_EQ(settings.contours.accepted.size(), 6u);
    EXPECT_EQ(Sorted(targets[0].points),
              (std::vector<cv::Point>{{50, 60}, {50, 199}, {199, 60}, {199, 199}}));
  }
  // Canny edges of the same image give an outer and an inner contour along the edge line; both
  // pass, and the nesting removal keeps one.
  TargetDetectionSettings edges = AllTilts();
  std::vector<ContourRecord> targets;
  DetectTargets(edges, targets, binary);
  EXPECT_EQ(edges.contours.accepted.size(), 12u);
  EXPECT_EQ(targets.size(), 1u);
}

TEST(TargetDetection, ThirtyDegreeSquarePassesOnlyInsideTheAngleLimits) {
  cv::Mat chart = WhiteChart(800, 800);
  Fill(chart, datagen::SquareCorners({400, 400}, 250, 30.0), 30.0);
  std::vector<ContourRecord> targets;

  TargetDetectionSettings all = AllTilts();
  DetectTargets(all, targets, chart);
  EXPECT_EQ(targets.size(), 1u);

  // Its folded angle is 30 or 60 degrees (depending on which side the box calls its width).
  TargetDetectionSettings below = AllTilts();
  below.maximumAngle = 29.0f;
  DetectTargets(below, targets, chart);
  EXPECT_TRUE(targets.empty());

  TargetDetectionSettings around = AllTilts();
  around.minimumAngle = 25.0f;
  around.maximumAngle = 65.0f;
  DetectTargets(around, targets, chart);
  EXPECT_EQ(targets.size(), 1u);

  TargetDetectionSettings defaults;
  DetectTargets(defaults, targets, chart);
  EXPECT_TRUE(targets.empty());
}

TEST(TargetDetection, TargetWithBothBordersSurvivingIsReportedOnce) {
  // A dark frame around a lighter square: the frame's outer border and the inner square's border
  // are both squares of useful size.
  cv::Mat chart = WhiteChart(800, 800);
  const std::vector<cv::Point2d> outer = datagen::SquareCorners({400, 400}, 360, 5.0);
  const std::vector<cv::Point2d> inner = datagen::SquareCorners({400, 400}, 200, 5.0);
  Fill(chart, outer, 30.0);
  Fill(chart, inner, 150.0);
  TargetDetectionSettings settings = AllTilts();
  std::vector<ContourRecord> targets;
  DetectTargets(settings, targets, chart);
  ASSERT_EQ(targets.size(), 1u);

  // Both borders passed every criterion (each final pass adds a copy to accepted).
  bool sawOuter = false, sawInner = false;
  for (const ContourRecord& r : settings.contours.accepted) {
    const double area = ComputeFeature(r, ContourFeature::Area);
    sawOuter = sawOuter || std::fabs(area - 360.0 * 360.0) < 0.05 * 360 * 360;
    sawInner = sawInner || std::fabs(area - 200.0 * 200.0) < 0.05 * 200 * 200;
  }
  EXPECT_TRUE(sawOuter);
  EXPECT_TRUE(sawInner);
}

TEST(TargetDetection, SmallSquaresAndOtherShapesAreRejected) {
  cv::Mat chart = WhiteChart(900, 1200);
  Fill(chart, datagen::SquareCorners({200, 200}, 28, 5.0), 30.0);  // area 784 < 1000
  cv::circle(chart, {500, 200}, 90, cv::Scalar(30), cv::FILLED, cv::LINE_AA);
  Fill(chart, {{800, 120}, {1000, 120}, {900, 300}}, 30.0);             // triangle
  Fill(chart, {{150, 500}, {450, 520}, {443, 640}, {143, 620}}, 30.0);  // aspect 0.4
  Fill(chart, datagen::SquareCorners({800, 600}, 220, 4.0), 30.0);      // the target
  TargetDetectionSettings settings = AllTilts();
  std::vector<ContourRecord> targets;
  DetectTargets(settings, targets, chart);
  ASSERT_EQ(targets.size(), 1u);
  EXPECT_LT(CornerError(targets[0], datagen::SquareCorners({800, 600}, 220, 4.0)), 3.0);
}

TEST(TargetDetection, NoTargetIsAnEmptyResult) {
  TargetDetectionSettings settings;
  std::vector<ContourRecord> targets(3);
  DetectTargets(settings, targets, WhiteChart(300, 300));
  EXPECT_TRUE(targets.empty());
  EXPECT_TRUE(settings.contours.candidates.empty());
}

TEST(TargetDetection, EachRunStartsFromEmptyLists) {
  cv::Mat chart = WhiteChart(600, 800);
  Fill(chart, datagen::SquareCorners({400, 300}, 200, 6.0), 30.0);
  TargetDetectionSettings settings = AllTilts();
  std::vector<ContourRecord> targets;
  DetectTargets(settings, targets, chart);
  const std::size_t rejected = settings.contours.rejected.size();
  const std::size_t accepted = settings.contours.accepted.size();
  DetectTargets(settings, targets, chart);
  EXPECT_EQ(settings.contours.rejected.size(), rejected);
  EXPECT_EQ(settings.contours.accepted.size(), accepted);
  EXPECT_EQ(targets.size(), 1u);
}

TEST(TargetDetection, OpenCvErrorsPassToTheCaller) {
  TargetDetectionSettings settings;
  std::vector<ContourRecord> targets;
  // A 3-D matrix is no image for edge detection.
  const int sizes[] = {3, 50, 50};
  EXPECT_THROW(DetectTargets(settings, targets, cv::Mat(3, sizes, CV_8UC1, cv::Scalar(1))),
               cv::Exception);
  EXPECT_THROW(DetectTargets(settings, targets, cv::Mat(3, sizes, CV_16UC1, cv::Scalar(1))),
               cv::Exception);
}

TEST(TargetDetection, EmptyImageGivesNoTargets) {
  // OpenCV 4.6's Canny and contour retrieval accept an empty image and find nothing.
  TargetDetectionSettings settings;
  std::vector<ContourRecord> targets(2);
  DetectTargets(settings, targets, cv::Mat());
  EXPECT_TRUE(targets.empty());
  EXPECT_EQ(settings.scale, 1.0);
}

TEST(TargetDetection, AutomaticWorkingSizeRefusesImagesBelowFourPixels) {
  // k = big / 3.5 would be 0 and the scale undefined.
  TargetDetectionSettings settings;
  settings.workingSize = 0;
  std::vector<ContourRecord> targets;
  try {
    DetectTargets(settings, targets, cv::Mat(3, 3, CV_8UC1, cv::Scalar(0)));
    ADD_FAILURE() << "a 3 x 3 image went through";
  } catch (const cv::Exception& e) {
    EXPECT_EQ(e.code, cv::Error::StsBadSize);
    EXPECT_EQ(e.err, "The image is too small for the automatic working size");
    EXPECT_EQ(e.func, "DetectTargets");
  }
  // Four pixels are enough: k = 1.
  EXPECT_NO_THROW(DetectTargets(settings, targets, cv::Mat(4, 4, CV_8UC1, cv::Scalar(0))));
  EXPECT_EQ(settings.scale, 4.0);
}

// ---- The constants of the simplification and of the criteria ----------------------------------

// Rhombus of the given side and corner angle (the other corner is 180 minus it), one side turned
// by 3 degrees from the x axis; every corner has the same |cos|.
std::vector<cv::Point2d> Rhombus(cv::Point2d centre, double side, double angleDegrees) {
  const double a = angleDegrees * CV_PI / 180.0;
  const double r = 3.0 * CV_PI / 180.0;
  const cv::Point2d u(side * std::cos(r), side * std::sin(r));
  const cv::Point2d v(side * std::cos(r + a), side * std::sin(r + a));
  const cv::Point2d o = centre - 0.5 * (u + v);
  return {o, o + u, o + u + v, o + v};
}

std::size_t CountTargets(const cv::Mat& chart, TargetDetectionSettings settings = AllTilts()) {
  std::vector<ContourRecord> targets;
  DetectTargets(settings, targets, chart);
  return targets.size();
}

cv::Mat Drawn(int side, const std::vector<cv::Point2d>& polygon) {
  cv::Mat chart = WhiteChart(side, side);
  Fill(chart, polygon, 30.0);
  return chart;
}

TEST(TargetDetection, CornerCosineBoundOfOneTenthSplitsRhombiOf83AndAHalfAnd85Degrees) {
  // |cos 83.5| = 0.113 lies above the bound, |cos 85| = 0.087 below.
  EXPECT_EQ(CountTargets(Drawn(700, Rhombus({350, 350}, 300, 83.5))), 0u);
  EXPECT_EQ(CountTargets(Drawn(700, Rhombus({350, 350}, 300, 81.0))), 0u);
  EXPECT_EQ(CountTargets(Drawn(700, Rhombus({350, 350}, 300, 85.0))), 1u);
}

TEST(TargetDetection, ConvexHullPassClosesANotchedSquare) {
  // A 60 x 35 notch in one side, deeper than both epsilons: only the hull removes it.
  const std::vector<cv::Point2d> notched = {{150, 150}, {270, 150}, {270, 185}, {330, 185},
                                            {330, 150}, {450, 150}, {450, 450}, {150, 450}};
  EXPECT_EQ(CountTargets(Drawn(600, notched)), 1u);
}

TEST(TargetDetection, BumpAboveBothApproximationEpsilonsKeepsItsVertex) {
  // A 30 px bump on a 300 px side: above 0.01 and 0.02 of the perimeter (about 12 and 24 px), so
  // the polygon keeps five vertices and its corners next to the bump are too sharp.
  const std::vector<cv::Point2d> bumped = {
      {150, 150}, {300, 120}, {450, 150}, {450, 450}, {150, 450}};
  EXPECT_EQ(CountTargets(Drawn(600, bumped)), 0u);
}

TEST(TargetDetection, SecondApproximationRemovesCornerBevelsOfFifteenPixels) {
  // Bevels of 15 px on all four corners deviate by about 11 px: within 0.02 of the perimeter
  // (about 24 px), not within 0.01, so only the second approximation makes the octagon a square.
  const double c = 15.0;
  const std::vector<cv::Point2d> bevelled = {{150 + c, 150}, {450 - c, 150}, {450, 150 + c},
                                             {450, 450 - c}, {450 - c, 450}, {150 + c, 450},
                                             {150, 450 - c}, {150, 150 + c}};
  EXPECT_EQ(CountTargets(Drawn(600, bevelled)), 1u);
}

TEST(TargetDetection, PentagonWithItsBevelOnTheUnmeasuredCornersIsATarget) {
  // A bevel of 80 px at the top-left corner: its two vertices come first and last in the
  // polygon, whose corners are not measured, so the five-vertex polygon passes.
  const std::vector<cv::Point2d> pentagon = {
      {150, 230}, {230, 150}, {450, 150}, {450, 450}, {150, 450}};
  TargetDetectionSettings settings = AllTilts();
  std::vector<ContourRecord> targets;
  DetectTargets(settings, targets, Drawn(600, pentagon));
  ASSERT_EQ(targets.size(), 1u);
  EXPECT_EQ(targets[0].points.size(), 5u);
}

TEST(TargetDetection, DefaultAspectBoundRejectsSixTenthsAndKeepsThreeQuarters) {
  cv::Mat wide = WhiteChart(600, 600);
  Fill(wide, {{100, 200}, {400, 200}, {400, 380}, {100, 380}}, 30.0);
  cv::Mat squarer = WhiteChart(600, 600);
  Fill(squarer, {{100, 200}, {400, 200}, {400, 425}, {100, 425}}, 30.0);
  TargetDetectionSettings defaults;
  EXPECT_FLOAT_EQ(defaults.minimumAspect, 0.7f);
  EXPECT_EQ(CountTargets(wide), 0u);
  EXPECT_EQ(CountTargets(squarer), 1u);
}

TEST(TargetDetection, TriangleIsNoTargetEvenWithItsMeasuredCornerSquare) {
  // The right angle of each triangle is among the measured corners; with the aspect bound
  // lifted only the vertex count rejects them.
  TargetDetectionSettings settings = AllTilts();
  settings.minimumAspect = 0.0f;
  const std::vector<std::vector<cv::Point2d>> triangles = {{{100, 100}, {500, 100}, {100, 450}},
                                                           {{100, 100}, {500, 100}, {500, 450}},
                                                           {{100, 450}, {500, 450}, {100, 100}},
                                                           {{500, 450}, {100, 450}, {500, 100}}};
  for (const auto& triangle : triangles) {
    EXPECT_EQ(CountTargets(Drawn(600, triangle), settings), 0u);
  }
}

TEST(TargetDetection, CannyHighThresholdOfFiftyNeedsAStrongerGradient) {
  // An axis-aligned square of contrast h on 100: the L1 Sobel gradient is 4 h along the sides
  // and up to 6 h at the corners. h = 9 puts the corners at 54, above 50 (and the sides at 36,
  // above the low threshold 30); h = 8 gives 48 and no edge at all.
  for (const int h : {8, 9}) {
    cv::Mat chart(600, 600, CV_8UC1, cv::Scalar(100));
    chart(cv::Rect(150, 150, 300, 300)).setTo(100 + h);
    cv::Mat gx;
    cv::Mat gy;
    cv::Sobel(chart, gx, CV_16S, 1, 0, 3);
    cv::Sobel(chart, gy, CV_16S, 0, 1, 3);
    double strongest = 0.0;
    cv::minMaxLoc(cv::abs(gx) + cv::abs(gy), nullptr, &strongest);
    ASSERT_EQ(strongest, 6.0 * h);
    EXPECT_EQ(CountTargets(chart), h == 9 ? 1u : 0u) << "contrast " << h;
  }
}

TEST(TargetDetection, WorkingImageIsSampledLinearlySoLinesBetweenSamplesVanish) {
  // 1024 x 1024 reduced to 256 x 256: linear interpolation reads source columns 4 x + 1 and
  // 4 x + 2, so a one-pixel outline on columns and rows that are multiples of 4 disappears, while
  // one shifted by a pixel stays (an area average would keep both).
  for (const int offset : {0, 1}) {
    cv::Mat chart(1024, 1024, CV_8UC1, cv::Scalar(0));
    cv::rectangle(chart, cv::Rect(300 + offset, 300 + offset, 401, 401), cv::Scalar(255), 1,
                  cv::LINE_8);
    TargetDetectionSettings settings = AllTilts();
    settings.workingSize = 256;
    EXPECT_EQ(CountTargets(chart, settings), offset == 0 ? 0u : 1u) << "offset " << offset;
  }
}

TEST(TargetDetection, EveryCriterionCopiesItsSurvivorsToAccepted) {
  // One drawn target gives two large contours, the two borders of its edge line. A square
  // passes all six criteria: six copies of each border. A rhombus of 81 degrees passes area and
  // vertex count and fails the corner bound: two copies of each.
  TargetDetectionSettings square = AllTilts();
  std::vector<ContourRecord> targets;
  DetectTargets(square, targets, Drawn(700, datagen::SquareCorners({350, 350}, 300, 4.0)));
  ASSERT_EQ(targets.size(), 1u);
  EXPECT_EQ(square.contours.accepted.size(), 12u);
  TargetDetectionSettings rhombus = AllTilts();
  DetectTargets(rhombus, targets, Drawn(700, Rhombus({350, 350}, 300, 81.0)));
  EXPECT_TRUE(targets.empty());
  EXPECT_EQ(rhombus.contours.accepted.size(), 4u);
}

}  // namespace

namespace {

TEST(TargetDetection, InfiniteOrNanSampleDoesNotDecideTheStretch) {
  const std::vector<cv::Point2d> square = datagen::SquareCorners({200, 200}, 150, 5.0);
  cv::Mat chart = WhiteChart(400, 400, CV_32FC1, 0.53);
  Fill(chart, square, 0.5);
  for (const float bad :
       {std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
        std::numeric_limits<float>::quiet_NaN()}) {
    cv::Mat damaged = chart.clone();
    damaged.at<float>(10, 10) = bad;
    const cv::Mat before = damaged.clone();
    TargetDetectionSettings settings = AllTilts();
    std::vector<ContourRecord> targets;
    DetectTargets(settings, targets, damaged);
    ASSERT_EQ(targets.size(), 1u) << bad;
    EXPECT_LT(CornerError(targets[0], square), 3.0);
    // The caller's image, NaN included, is left as it was.
    EXPECT_EQ(std::memcmp(damaged.data, before.data, damaged.total() * damaged.elemSize()), 0);
  }
  // The finite samples alone give the same result as the undamaged chart.
  cv::Mat withInf = chart.clone();
  withInf.at<float>(399, 0) = std::numeric_limits<float>::infinity();
  TargetDetectionSettings a = AllTilts();
  TargetDetectionSettings b = AllTilts();
  std::vector<ContourRecord> clean;
  std::vector<ContourRecord> damaged;
  DetectTargets(a, clean, chart);
  DetectTargets(b, damaged, withInf);
  ASSERT_EQ(clean.size(), 1u);
  ASSERT_EQ(damaged.size(), 1u);
  EXPECT_EQ(Sorted(clean[0].points), Sorted(damaged[0].points));
}

TEST(TargetDetection, NanOrHugeScaleIsAClearErrorNotAnOverflow) {
  cv::Mat chart = WhiteChart(400, 400);
  Fill(chart, datagen::SquareCorners({200, 200}, 150, 5.0), 30.0);
  for (const double scale : {std::numeric_limits<double>::quiet_NaN(), 0.0, -2.0,
                             std::numeric_limits<double>::infinity()}) {
    TargetDetectionSettings settings = AllTilts();
    settings.scale = scale;
    std::vector<ContourRecord> targets(3);
    try {
      DetectTargets(settings, targets, chart);
      ADD_FAILURE() << "scale " << scale << " went through";
    } catch (const cv::Exception& e) {
      EXPECT_EQ(e.code, cv::Error::StsBadArg);
      EXPECT_EQ(e.err, "scale must be finite and positive");
      EXPECT_EQ(e.func, "DetectTargets");
    }
    EXPECT_EQ(targets.size(), 3u);
  }
  // A kept scale of 1e300 (no resize) would take every vertex far beyond int.
  TargetDetectionSettings settings = AllTilts();
  settings.scale = 1e300;
  std::vector<ContourRecord> targets;
  try {
    DetectTargets(settings, targets, chart);
    ADD_FAILURE() << "a huge scale went through";
  } catch (const cv::Exception& e) {
    EXPECT_EQ(e.code, cv::Error::StsOutOfRange);
  }
  EXPECT_TRUE(targets.empty());
  // A large but representable scale still works.
  settings.scale = 1000.0;
  DetectTargets(settings, targets, chart);
  ASSERT_EQ(targets.size(), 1u);
  EXPECT_GT(targets[0].points[0].x, 1000 * 100);
}

TEST(TargetDetection, TwoChannelImagesAreDetectedThroughTheMeanOfTheirChannels) {
  const std::vector<cv::Point2d> square = datagen::SquareCorners({200, 200}, 150, 5.0);
  cv::Mat grey = WhiteChart(400, 400, CV_8UC1, 230.0);
  Fill(grey, square, 30.0);
  // The second channel a flat 100: the mean keeps the square's step.
  cv::Mat pair;
  cv::merge(std::vector<cv::Mat>{grey, cv::Mat(400, 400, CV_8UC1, cv::Scalar(100))}, pair);
  TargetDetectionSettings settings = AllTilts();
  std::vector<ContourRecord> targets;
  DetectTargets(settings, targets, pair);
  ASSERT_EQ(targets.size(), 1u);
  EXPECT_LT(CornerError(targets[0], square), 3.0);
}

}  // namespace
