// The MTF measurement object: edge-region preparation (transpose, refusal, flips, line fit),
// single-edge and target measurement, region placement.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <tuple>

#include "SlantedEdge.h"
#include "mtf/MtfMeasurement.h"

namespace {

datagen::SlantedEdge Edge(double angle, bool darkFirst, bool horizontal, double sigma = 1.0) {
  datagen::SlantedEdge edge;
  edge.rows = 200;
  edge.cols = 100;
  edge.angleDegrees = angle;
  edge.sigma = sigma;
  edge.dark = 1000.0;
  edge.bright = 9000.0;
  edge.darkFirst = darkFirst;
  edge.horizontal = horizontal;
  return edge;
}

// Dark tilted squares (side, tilt in degrees) on a bright ground, 4 x 4 supersampled and blurred a
// little, as 8-bit.
struct Square {
  cv::Point2d centre;
  double side;
  double degrees;
};

cv::Mat RenderChart(cv::Size size, const std::vector<Square>& squares) {
  cv::Mat chart(size, CV_64F, cv::Scalar(200.0));
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      double dark = 0.0;
      for (int sy = 0; sy < 4; ++sy) {
        for (int sx = 0; sx < 4; ++sx) {
          const double px = x - 0.375 + 0.25 * sx;
          const double py = y - 0.375 + 0.25 * sy;
          for (const Square& s : squares) {
            const double a = s.degrees * CV_PI / 180.0;
            const double u = (px - s.centre.x) * std::cos(a) + (py - s.centre.y) * std::sin(a);
            const double v = -(px - s.centre.x) * std::sin(a) + (py - s.centre.y) * std::cos(a);
            if (std::fabs(u) <= s.side / 2 && std::fabs(v) <= s.side / 2) {
              dark += 1.0 / 16.0;
              break;
            }
          }
        }
      }
      chart.at<double>(y, x) = 200.0 - 160.0 * dark;
    }
  }
  cv::GaussianBlur(chart, chart, cv::Size(0, 0), 1.0);
  cv::Mat chart8;
  chart.convertTo(chart8, CV_8U);
  return chart8;
}

TEST(MtfMeasurement, DefaultsOfTheMeasurementObject) {
  const CMtfMeasurement m;
  const TargetDetectionSettings& d = m.detection;
  EXPECT_EQ(d.workingSize, 2048);
  EXPECT_EQ(std::tie(d.cannyLow, d.cannyHigh), std::make_tuple(30.0f, 50.0f));
  EXPECT_EQ(std::tie(d.minimumAspect, d.minimumArea), std::make_tuple(0.7f, 1000.0f));
  EXPECT_EQ(std::tie(d.minimumAngle, d.maximumAngle), std::make_tuple(3.5f, 8.0f));
  EXPECT_EQ(d.scale, 1.0);
  EXPECT_EQ(std::tie(m.oversampling, m.pitch, m.resolution, m.efficiency),
            std::make_tuple(4.0f, 1.0f, 1.0f, 0.0f));
  EXPECT_EQ(std::tie(m.centroidHalfWidth, m.regionLength, m.gamma), std::make_tuple(6.5, 0.8, 1.0));
  for (double v : m.edgeRegion) EXPECT_EQ(v, -1.0);
  EXPECT_EQ(m.profiler.threadCount, 1);
  EXPECT_EQ(m.profiler.oversampling, 4.0f);
}

TEST(MtfMeasurement, OrientationFlipsBringEveryEdgeIntoOneOrientation) {
  struct Case {
    double angle;
    bool darkFirst;
    bool flipH;
    bool flipV;
  };
  for (const Case& c : {Case{5.0, true, false, false}, Case{5.0, false, true, true},
                        Case{-5.0, true, false, true}, Case{-5.0, false, true, false}}) {
    for (bool horizontal : {false, true}) {
      CMtfMeasurement m;
      cv::Mat prepared;
      float slope = 0.0f;
      const cv::Mat image = datagen::RenderSlantedEdge(Edge(c.angle, c.darkFirst, horizontal));
      ASSERT_TRUE(m.LocateEdge(image, prepared, slope));
      SCOPED_TRACE(testing::Message() << c.angle << " " << c.darkFirst << " " << horizontal);
      EXPECT_EQ(m.Transposed(), horizontal);
      EXPECT_EQ(m.FlippedHorizontally(), c.flipH);
      EXPECT_EQ(m.FlippedVertically(), c.flipV);
      EXPECT_NEAR(slope, std::tan(5.0 * CV_PI / 180.0), 2e-4);
      EXPECT_EQ(prepared.type(), CV_64FC1);
      EXPECT_EQ(prepared.rows, 200);
      // Dark on the left after preparation.
      EXPECT_LT(prepared.at<double>(100, 0), prepared.at<double>(100, 99));
    }
  }
}

TEST(MtfMeasurement, RegionsUnderSixRowsOrColumnsAreRefused) {
  CMtfMeasurement m;
  cv::Mat prepared;
  float slope = 0.0f;
  cv::Mat wide(5, 40, CV_16UC1, cv::Scalar(100));
  wide.colRange(20, 40).setTo(900);
  EXPECT_FALSE(m.LocateEdge(wide, prepared, slope));
  EXPECT_TRUE(m.Transposed());
  EXPECT_TRUE(prepared.empty());
  cv::Mat narrow(40, 5, CV_16UC1, cv::Scalar(100));
  EXPECT_FALSE(m.LocateEdge(narrow, prepared, slope));
  EXPECT_FALSE(m.Transposed());
  MtfResult result;
  result.cutFrequency = 123.0f;
  EXPECT_FALSE(m.MeasureEdge(narrow, result));
  EXPECT_EQ(result.cutFrequency, 123.0f);
  // Six by six with an edge is measured.
  datagen::SlantedEdge small = Edge(5.0, true, false);
  small.rows = 6;
  small.cols = 6;
  EXPECT_TRUE(m.LocateEdge(datagen::RenderSlantedEdge(small), prepared, slope));
}

TEST(MtfMeasurement, EmptyImageMeasuresNothing) {
  CMtfMeasurement m;
  EXPECT_TRUE(m.MeasureTargets(cv::Mat()).empty());
  MtfResult result;
  EXPECT_FALSE(m.MeasureEdge(cv::Mat(), result));
  EXPECT_EQ(result.cutFrequency, -1.0f);
}

TEST(MtfMeasurement, ImageWithoutTargetsGivesAnEmptyMap) {
  CMtfMeasurement m;
  EXPECT_TRUE(m.MeasureTargets(cv::Mat(600, 800, CV_8UC1, cv::Scalar(128))).empty());
  // A circle is no target either.
  cv::Mat circle(600, 800, CV_8UC1, cv::Scalar(200));
  cv::circle(circle, cv::Point(400, 300), 150, cv::Scalar(40), cv::FILLED, cv::LINE_AA);
  EXPECT_TRUE(m.MeasureTargets(circle).empty());
}

TEST(MtfMeasurement, EveryTargetGetsItsEdgesMeasured) {
  const cv::Mat chart =
      RenderChart(cv::Size(900, 500), {{{220, 250}, 260, 5.0}, {{640, 240}, 240, -7.0}});
  CMtfMeasurement m;
  m.detection.minimumAngle = 3.5f;
  const MtfTargetMap targets = m.MeasureTargets(chart);
  EXPECT_EQ(m.detection.minimumAngle, -180.0f);
  EXPECT_EQ(m.detection.maximumAngle, 180.0f);
  ASSERT_EQ(targets.size(), 2u);
  EXPECT_EQ(targets.begin()->first, 1);
  EXPECT_EQ(targets.rbegin()->first, 2);
  for (const auto& [number, target] : targets) {
    SCOPED_TRACE(number);
    ASSERT_EQ(target.edges.size(), 4u);
    const EdgeSide order[] = {EdgeSide::Left, EdgeSide::Top, EdgeSide::Right, EdgeSide::Bottom};
    for (int i = 0; i < 4; ++i) {
      const MtfEdge& edge = target.edges[i];
      EXPECT_EQ(edge.side, order[i]);
      EXPECT_EQ(edge.transposed, edge.side == EdgeSide::Top || edge.side == EdgeSide::Bottom);
      // Tilted by 5 or 7 degrees, blurred by sigma 1 (0.25 px supersampling steps on top).
      EXPECT_GT(std::fabs(edge.slope), 0.07f);
      EXPECT_LT(std::fabs(edge.slope), 0.14f);
      EXPECT_GT(edge.result.cutFrequency, 0.25f);
      EXPECT_LT(edge.result.cutFrequency, 0.40f);
      EXPECT_GT(edge.result.efficiency, 0.0f);
    }
    EXPECT_NEAR(target.box.size.width, number == 1 ? 260 : 240, 4.0);
    // The rectangle keeps the angle range of OpenCV up to 4.5.0.
    EXPECT_GE(target.box.angle, -90.0f);
    EXPECT_LT(target.box.angle, 0.0f);
  }
  EXPECT_GT(CMtfMeasurement::MeanEfficiency(targets), 50.0);
}

TEST(MtfMeasurement, RegionsReachingOutsideTheImageAreSkipped) {
  // The left side lies 60 px from the border; its region reaches 65 px out.
  const cv::Mat chart = RenderChart(cv::Size(700, 500), {{{190, 250}, 260, 5.0}});
  CMtfMeasurement m;
  const MtfTargetMap targets = m.MeasureTargets(chart);
  ASSERT_EQ(targets.size(), 1u);
  const MtfTarget& target = targets.at(1);
  ASSERT_EQ(target.edges.size(), 3u);
  EXPECT_EQ(target.edges[0].side, EdgeSide::Top);
  EXPECT_EQ(target.edges[1].side, EdgeSide::Right);
  EXPECT_EQ(target.edges[2].side, EdgeSide::Bottom);
  const auto regions = m.EdgeRegions(target.box);
  EXPECT_LT(regions[0].second.x, 0);
}

TEST(MtfMeasurement, EdgeRegionsCoverTheMiddleOfEachSide) {
  const CMtfMeasurement m;
  const auto regions = m.EdgeRegions(cv::RotatedRect({500.0f, 400.0f}, {300.0f, 300.0f}, 0.0f));
  ASSERT_EQ(regions.size(), 4u);
  EXPECT_EQ(regions[0].first, EdgeSide::Left);
  EXPECT_EQ(regions[0].second, cv::Rect(275, 280, 150, 240));
  EXPECT_EQ(regions[1].first, EdgeSide::Top);
  EXPECT_EQ(regions[1].second, cv::Rect(380, 175, 240, 150));
  EXPECT_EQ(regions[2].first, EdgeSide::Right);
  EXPECT_EQ(regions[2].second, cv::Rect(575, 280, 150, 240));
  EXPECT_EQ(regions[3].first, EdgeSide::Bottom);
  EXPECT_EQ(regions[3].second, cv::Rect(380, 475, 240, 150));
}

TEST(MtfMeasurement, HorizontalEdgeMeasuresLikeItsVerticalTranspose) {
  CMtfMeasurement m;
  MtfResult vertical;
  MtfResult horizontal;
  ASSERT_TRUE(m.MeasureEdge(datagen::RenderSlantedEdge(Edge(6.0, true, false)), vertical));
  ASSERT_TRUE(m.MeasureEdge(datagen::RenderSlantedEdge(Edge(6.0, true, true)), horizontal));
  EXPECT_TRUE(m.Transposed());
  EXPECT_EQ(horizontal.esf.values, vertical.esf.values);
  EXPECT_EQ(horizontal.cutFrequency, vertical.cutFrequency);
  EXPECT_EQ(horizontal.efficiency, vertical.efficiency);
}

TEST(MtfMeasurement, RowsWithoutARisingEdgeAreLeftOutOfTheFit) {
  cv::Mat image = datagen::RenderSlantedEdge(Edge(4.0, true, false));
  const cv::Mat reference = image.clone();
  // Flat rows (derivative sum 0) and falling rows (sum below 0) at the top.
  image.rowRange(0, 15).setTo(5000.0);
  for (int r = 15; r < 25; ++r) {
    for (int c = 0; c < image.cols; ++c) image.at<double>(r, c) = 9000.0 - 40.0 * c;
  }
  CMtfMeasurement m;
  cv::Mat prepared;
  float slope = 0.0f;
  ASSERT_TRUE(m.LocateEdge(image, prepared, slope));
  EXPECT_NEAR(slope, std::tan(4.0 * CV_PI / 180.0), 3e-4);
}

TEST(MtfMeasurement, MultichannelImagesAreMeasuredThroughRgbToGrey) {
  // Channel 0 sharp, channel 2 soft: RGB2GRAY weighs channel 0 by 0.299, BGR2GRAY by 0.114.
  cv::Mat sharp;
  cv::Mat soft;
  datagen::RenderSlantedEdge(Edge(5.0, true, false, 0.6)).convertTo(sharp, CV_8U, 0.025);
  datagen::RenderSlantedEdge(Edge(5.0, true, false, 2.0)).convertTo(soft, CV_8U, 0.025);
  cv::Mat colour;
  cv::merge(std::vector<cv::Mat>{sharp, soft, soft}, colour);
  cv::Mat rgbGrey;
  cv::Mat bgrGrey;
  cv::cvtColor(colour, rgbGrey, cv::COLOR_RGB2GRAY);
  cv::cvtColor(colour, bgrGrey, cv::COLOR_BGR2GRAY);
  CMtfMeasurement m;
  MtfResult fromColour;
  MtfResult fromRgb;
  MtfResult fromBgr;
  ASSERT_TRUE(m.MeasureEdge(colour, fromColour));
  ASSERT_TRUE(m.MeasureEdge(rgbGrey, fromRgb));
  ASSERT_TRUE(m.MeasureEdge(bgrGrey, fromBgr));
  EXPECT_EQ(fromColour.esf.values, fromRgb.esf.values);
  EXPECT_EQ(fromColour.cutFrequency, fromRgb.cutFrequency);
  EXPECT_NE(fromColour.cutFrequency, fromBgr.cutFrequency);
}

TEST(MtfMeasurement, EdgeRegionSettingSelectsThePartMeasured) {
  cv::Mat image(300, 260, CV_64F, cv::Scalar(5000.0));
  const cv::Mat edge = datagen::RenderSlantedEdge(Edge(5.0, true, false));
  edge.copyTo(image(cv::Rect(70, 40, 100, 200)));
  CMtfMeasurement m;
  MtfResult whole;
  MtfResult expected;
  ASSERT_TRUE(m.MeasureEdge(edge, expected));
  m.edgeRegion[0] = 70;
  m.edgeRegion[1] = 40;
  m.edgeRegion[2] = 100;
  m.edgeRegion[3] = 200;
  MtfResult part;
  ASSERT_TRUE(m.MeasureEdge(image, part));
  EXPECT_EQ(part.esf.values, expected.esf.values);
  m.edgeRegion[2] = 300;  // reaches outside
  EXPECT_FALSE(m.MeasureEdge(image, whole));
}

TEST(MtfMeasurement, GammaLinearisesEncodedValues) {
  const cv::Mat linear = datagen::RenderSlantedEdge(Edge(5.0, true, false, 1.2));
  cv::Mat encoded;
  cv::pow(linear, 2.0, encoded);
  CMtfMeasurement m;
  MtfResult reference;
  ASSERT_TRUE(m.MeasureEdge(linear, reference));
  MtfResult raw;
  ASSERT_TRUE(m.MeasureEdge(encoded, raw));
  m.gamma = 2.0;
  MtfResult linearised;
  ASSERT_TRUE(m.MeasureEdge(encoded, linearised));
  EXPECT_NEAR(linearised.cutFrequency, reference.cutFrequency, 1e-5);
  EXPECT_GT(std::fabs(raw.cutFrequency - reference.cutFrequency), 1e-3);
}

TEST(MtfMeasurement, MeanEfficiencyOverAllEdges) {
  MtfTargetMap targets;
  EXPECT_EQ(CMtfMeasurement::MeanEfficiency(targets), -1.0);
  MtfEdge a;
  a.result.efficiency = 40.0f;
  MtfEdge b;
  b.result.efficiency = 50.0f;
  MtfEdge c;
  c.result.efficiency = 60.0f;
  targets[1].edges = {a, b};
  targets[2].edges = {c};
  EXPECT_DOUBLE_EQ(CMtfMeasurement::MeanEfficiency(targets), 50.0);
}

// --- The measurement's parts for jackknife replicates ---

TEST(MtfMeasurement, LocateEdgeIsPrepareRegionThenFitEdge) {
  for (bool horizontal : {false, true}) {
    const cv::Mat image = datagen::RenderSlantedEdge(Edge(-6.0, false, horizontal));
    CMtfMeasurement m;
    cv::Mat located;
    float slope = 0.0f;
    ASSERT_TRUE(m.LocateEdge(image, located, slope));
    cv::Mat prepared;
    float fitted = 0.0f;
    ASSERT_TRUE(m.PrepareRegion(image, prepared));
    EXPECT_EQ(m.Transposed(), horizontal);
    EXPECT_TRUE(m.FlippedHorizontally());
    ASSERT_TRUE(m.FitEdge(prepared, cv::Range(0, 0), fitted));
    EXPECT_EQ(fitted, slope);
    EXPECT_EQ(cv::norm(prepared, located, cv::NORM_INF), 0.0);
  }
}

TEST(MtfMeasurement, MeasurePreparedWithoutExclusionIsMeasureRegion) {
  const cv::Mat image = datagen::RenderSlantedEdge(Edge(4.0, true, false, 1.3));
  CMtfMeasurement m;
  MtfResult expected;
  float expectedSlope = 0.0f;
  ASSERT_TRUE(m.MeasureRegion(image, expected, &expectedSlope));
  cv::Mat prepared;
  ASSERT_TRUE(m.PrepareRegion(image, prepared));
  MtfResult result;
  float slope = 0.0f;
  ASSERT_TRUE(m.MeasurePrepared(prepared, cv::Range(0, 0), result, &slope));
  EXPECT_EQ(slope, expectedSlope);
  EXPECT_EQ(result.esf.values, expected.esf.values);
  EXPECT_EQ(result.mtfCopy.values, expected.mtfCopy.values);
  EXPECT_EQ(result.cutFrequency, expected.cutFrequency);
  EXPECT_EQ(result.efficiency, expected.efficiency);
}

TEST(MtfMeasurement, ExcludedRowsDoNotReachTheFitOrTheProfile) {
  datagen::SlantedEdge model = Edge(5.0, true, false, 1.0);
  model.noise = 40.0;
  const cv::Mat image = datagen::RenderSlantedEdge(model);
  CMtfMeasurement m;
  cv::Mat prepared;
  ASSERT_TRUE(m.PrepareRegion(image, prepared));
  const cv::Range block(60, 80);
  MtfResult clean;
  float cleanSlope = 0.0f;
  ASSERT_TRUE(m.MeasurePrepared(prepared, block, clean, &cleanSlope));
  // A second edge across the excluded rows would pull the fit and fill the profile's bins.
  cv::Mat spoiled = prepared.clone();
  for (int r = block.start; r < block.end; ++r) {
    for (int c = 0; c < spoiled.cols; ++c) spoiled.at<double>(r, c) = c < 20 ? 9000.0 : 0.0;
  }
  MtfResult result;
  float slope = 0.0f;
  ASSERT_TRUE(m.MeasurePrepared(spoiled, block, result, &slope));
  EXPECT_EQ(slope, cleanSlope);
  EXPECT_EQ(result.esf.values, clean.esf.values);
  EXPECT_EQ(result.cutFrequency, clean.cutFrequency);
  MtfResult whole;
  float wholeSlope = 0.0f;
  ASSERT_TRUE(m.MeasurePrepared(spoiled, cv::Range(0, 0), whole, &wholeSlope));
  EXPECT_NE(whole.esf.values, clean.esf.values);
  // Without the block the fit differs a little from the whole region's (less data).
  ASSERT_TRUE(m.MeasurePrepared(prepared, cv::Range(0, 0), whole, &wholeSlope));
  EXPECT_NE(wholeSlope, cleanSlope);
  EXPECT_NEAR(wholeSlope, cleanSlope, 1e-3);
}

TEST(MtfMeasurement, FitEdgeTakesOnlyPreparedRegions) {
  CMtfMeasurement m;
  float slope = 0.5f;
  const cv::Mat image = datagen::RenderSlantedEdge(Edge(5.0, true, false));
  cv::Mat eightBit;
  image.convertTo(eightBit, CV_8U, 1.0 / 40.0);
  EXPECT_FALSE(m.FitEdge(eightBit, cv::Range(0, 0), slope));
  EXPECT_FALSE(m.FitEdge(image(cv::Rect(0, 0, 5, 100)).clone(), cv::Range(0, 0), slope));
  EXPECT_FALSE(m.FitEdge(cv::Mat(), cv::Range(0, 0), slope));
  // Excluding every row leaves nothing to fit.
  EXPECT_FALSE(m.FitEdge(image, cv::Range(0, image.rows), slope));
  EXPECT_EQ(slope, 0.5f);
  EXPECT_TRUE(m.FitEdge(image, cv::Range(0, image.rows - 2), slope));
}

TEST(MtfMeasurement, EdgeAreaIsTheWholeImageOrTheEdgeRegion) {
  const cv::Mat image(300, 260, CV_8U, cv::Scalar(0));
  CMtfMeasurement m;
  cv::Rect area;
  ASSERT_TRUE(m.EdgeArea(image, area));
  EXPECT_EQ(area, cv::Rect(0, 0, 260, 300));
  m.edgeRegion[0] = 10.4;
  m.edgeRegion[1] = 20.6;
  m.edgeRegion[2] = 100.0;
  m.edgeRegion[3] = 50.5;
  ASSERT_TRUE(m.EdgeArea(image, area));
  EXPECT_EQ(area, cv::Rect(10, 21, 100, 51));
  m.edgeRegion[0] = 200.0;
  EXPECT_FALSE(m.EdgeArea(image, area));
}

TEST(MtfMeasurement, GreyConvertsColourAsRgb) {
  const cv::Mat grey(2, 3, CV_8U, cv::Scalar(7));
  EXPECT_EQ(CMtfMeasurement::Grey(grey).data, grey.data);
  const cv::Mat colour(2, 3, CV_8UC3, cv::Scalar(10, 100, 200));
  const cv::Mat measured = CMtfMeasurement::Grey(colour);
  ASSERT_EQ(measured.type(), CV_8UC1);
  // COLOR_RGB2GRAY weighs the first channel as red: 0.299 x 10 + 0.587 x 100 + 0.114 x 200.
  EXPECT_EQ(measured.at<unsigned char>(1, 2), 84);
}

TEST(MtfMeasurement, TiltOfAFittedSlopeIsItsArctangentInDegrees) {
  EXPECT_DOUBLE_EQ(CMtfMeasurement::TiltDegrees(0.0f), 0.0);
  EXPECT_NEAR(CMtfMeasurement::TiltDegrees(1.0f), 45.0, 1e-12);
  EXPECT_NEAR(CMtfMeasurement::TiltDegrees(static_cast<float>(std::tan(5.0 * CV_PI / 180.0))), 5.0,
              1e-5);
}

TEST(MtfMeasurement, SingleEdgeReportsTheTiltItWasDrawnWith) {
  for (double angle : {3.0, 5.0, 8.0}) {
    for (bool horizontal : {false, true}) {
      const cv::Mat image = datagen::RenderSlantedEdge(Edge(angle, true, horizontal));
      CMtfMeasurement measurement;
      MtfResult result;
      float slope = 0.0f;
      ASSERT_TRUE(measurement.MeasureEdge(image, result, &slope));
      EXPECT_NEAR(CMtfMeasurement::TiltDegrees(slope), angle, 0.1) << angle << " " << horizontal;
    }
  }
}

// ---- Edge-region preparation: the derivative and the smallest region ---------------------------

TEST(MtfMeasurement, FiveColumnsAreRefusedEvenWithAnEdgeSixAreMeasured) {
  CMtfMeasurement m;
  cv::Mat prepared;
  float slope = 0.0f;
  for (const int side : {5, 6}) {
    datagen::SlantedEdge edge = Edge(5.0, true, false);
    edge.rows = 40;
    edge.cols = side;
    const cv::Mat region = datagen::RenderSlantedEdge(edge);
    EXPECT_EQ(m.LocateEdge(region, prepared, slope), side == 6) << side << " columns";
    cv::Mat transposed;
    cv::transpose(region, transposed);
    EXPECT_EQ(m.LocateEdge(transposed, prepared, slope), side == 6) << side << " rows";
  }
}

// Least-squares slope of the points (r, c[r]).
double LineSlope(const std::vector<double>& c) {
  const double n = static_cast<double>(c.size());
  double sx = 0.0, sy = 0.0, sxx = 0.0, sxy = 0.0;
  for (std::size_t r = 0; r < c.size(); ++r) {
    sx += r;
    sy += c[r];
    sxx += static_cast<double>(r) * r;
    sxy += r * c[r];
  }
  return (n * sxy - sx * sy) / (n * sxx - sx * sx);
}

TEST(MtfMeasurement, FirstDerivativeColumnIsACopyOfTheSecond) {
  // Rows (0, a, 1, 1, 1, 1): the derivative 0.5 (v[x] - v[x - 1]) is 0.5 a at column 1 and
  // 0.5 (1 - a) at column 2. Column 0 takes column 1's value, so the row sums to 0.5 + 0.5 a and
  // its centroid is (2 - a) / (1 + a). The reflected border would have put -0.5 a there instead.
  const int rows = 8;
  cv::Mat region(rows, 6, CV_64F, cv::Scalar(1.0));
  std::vector<double> centroids;
  for (int r = 0; r < rows; ++r) {
    const double a = 0.1 * r;
    region.at<double>(r, 0) = 0.0;
    region.at<double>(r, 1) = a;
    centroids.push_back((2.0 - a) / (1.0 + a));
  }
  CMtfMeasurement m;
  float slope = 0.0f;
  ASSERT_TRUE(m.FitEdge(region, cv::Range(0, 0), slope));
  EXPECT_NEAR(slope, LineSlope(centroids), 1e-6);
}

TEST(MtfMeasurement, FallingEdgeIsFittedThroughTheNegatedKernel) {
  // FitEdge takes a region as it is: a bright-to-dark edge (the first five columns brighter)
  // makes the kernel change sign, so the derivative is positive and the fit works; the slope is
  // that of the mirrored rising edge with its sign turned.
  CMtfMeasurement m;
  cv::Mat rising;
  float risingSlope = 0.0f;
  ASSERT_TRUE(
      m.LocateEdge(datagen::RenderSlantedEdge(Edge(4.0, true, false)), rising, risingSlope));
  ASSERT_GT(risingSlope, 0.05f);
  cv::Mat falling;
  cv::flip(rising, falling, 1);
  float fallingSlope = 0.0f;
  ASSERT_TRUE(m.FitEdge(falling, cv::Range(0, 0), fallingSlope));
  EXPECT_NEAR(fallingSlope, -risingSlope, 1e-3);
}

}  // namespace

namespace {

TEST(MtfMeasurement, EdgeWithNonFiniteSamplesIsNotMeasured) {
  const cv::Mat clean = datagen::RenderSlantedEdge(Edge(5.0, true, false));
  CMtfMeasurement m;
  MtfResult reference;
  ASSERT_TRUE(m.MeasureEdge(clean, reference));
  for (const double bad :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity()}) {
    cv::Mat image = clean.clone();
    image.at<double>(40, 30) = bad;
    image.at<double>(120, 70) = bad;
    MtfResult result = reference;
    float slope = 7.0f;
    EXPECT_FALSE(m.MeasureEdge(image, result, &slope)) << bad;
    // Failure leaves the caller's result and slope as they were.
    EXPECT_EQ(result.esf.values, reference.esf.values);
    EXPECT_EQ(result.efficiency, reference.efficiency);
    EXPECT_EQ(slope, 7.0f);
    cv::Mat prepared;
    EXPECT_FALSE(m.LocateEdge(image, prepared, slope));
  }
  cv::Mat floats;
  clean.convertTo(floats, CV_32F);
  floats.at<float>(100, 50) = std::numeric_limits<float>::quiet_NaN();
  MtfResult result;
  EXPECT_FALSE(m.MeasureEdge(floats, result));
}

TEST(MtfMeasurement, TwoChannelImagesAreMeasuredThroughTheMeanOfTheirChannels) {
  cv::Mat edge8;
  datagen::RenderSlantedEdge(Edge(5.0, true, false)).convertTo(edge8, CV_8U, 0.025);
  // The mean of an edge and a copy of itself is the edge.
  cv::Mat pair;
  cv::merge(std::vector<cv::Mat>{edge8, edge8}, pair);
  CMtfMeasurement m;
  MtfResult fromPair;
  MtfResult fromGrey;
  ASSERT_TRUE(m.MeasureEdge(pair, fromPair));
  ASSERT_TRUE(m.MeasureEdge(edge8, fromGrey));
  EXPECT_EQ(fromPair.esf.values, fromGrey.esf.values);
  EXPECT_EQ(fromPair.cutFrequency, fromGrey.cutFrequency);
  // And a chart measured as a two-channel image throws nothing.
  cv::Mat chartPair;
  const cv::Mat chart = RenderChart({300, 300}, {{{150, 150}, 100, 5.0}});
  cv::merge(std::vector<cv::Mat>{chart, chart}, chartPair);
  const MtfTargetMap fromChart = m.MeasureTargets(chart);
  const MtfTargetMap fromChartPair = m.MeasureTargets(chartPair);
  ASSERT_EQ(fromChartPair.size(), fromChart.size());
  EXPECT_EQ(CMtfMeasurement::MeanEfficiency(fromChartPair),
            CMtfMeasurement::MeanEfficiency(fromChart));
}

}  // namespace

TEST(MtfMeasurement, EdgeSideNamesFollowTheSidesOrder) {
  EXPECT_STREQ(EdgeSideName(EdgeSide::Left), "left");
  EXPECT_STREQ(EdgeSideName(EdgeSide::Top), "top");
  EXPECT_STREQ(EdgeSideName(EdgeSide::Right), "right");
  EXPECT_STREQ(EdgeSideName(EdgeSide::Bottom), "bottom");
  EXPECT_STREQ(EdgeSideName(static_cast<EdgeSide>(7)), "?");
}
