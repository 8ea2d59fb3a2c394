// Spot detection: known synthetic spots, every distractor rejected for its own reason, nominal and
// control modes, the border margin, the filled records and output images, bad input, and the
// footprint labels against a raster-order oracle. The generated ValidationAlgo1 frames are in
// ValidationAlgoDataTest.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "CvErrors.h"
#include "LabellingReference.h"
#include "OmbrixProcessing.h"
#include "ProcessingHelpers.h"
#include "Random.h"
#include "SpotDetector.h"
#include "SpotHelpers.h"

namespace {

using testerrors::ExpectCvError;
using testprocessing::NoiseImage;
using namespace testspots;

using Rejection = CSpotDetector::Rejection;

// A round stain: flat top, soft edge.
void AddBlotch(cv::Mat& image, double cx, double cy, double radius, double amplitude) {
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      const double r = std::hypot(x - cx, y - cy);
      image.at<float>(y, x) += static_cast<float>(amplitude / (1.0 + std::exp((r - radius) / 2.0)));
    }
  }
}

// A straight bright line with a Gaussian cross-section.
void AddLine(cv::Mat& image, double x0, double y0, double x1, double y1, double sigma,
             double amplitude) {
  const double dx = x1 - x0, dy = y1 - y0, len2 = dx * dx + dy * dy;
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      const double t = std::clamp(((x - x0) * dx + (y - y0) * dy) / len2, 0.0, 1.0);
      const double d = std::hypot(x - (x0 + t * dx), y - (y0 + t * dy));
      image.at<float>(y, x) +=
          static_cast<float>(amplitude * std::exp(-0.5 * d * d / (sigma * sigma)));
    }
  }
}

// A 3 x 3 grid of spots with peaks from 300 to 3000 ADU on a 256 x 256 frame.
std::vector<TrueSpot> GridSpots() {
  std::vector<TrueSpot> spots;
  const double peaks[] = {300, 450, 600, 900, 1200, 1600, 2000, 2500, 3000};
  for (int i = 0; i < 9; ++i) {
    spots.push_back({50.3 + 75.0 * (i % 3) + 0.17 * i, 52.6 + 75.0 * (i / 3) - 0.11 * i,
                     1.3 + 0.05 * i, peaks[i]});
  }
  return spots;
}

TEST(SpotDetector, FindsKnownSpotsWithinTwoPixels) {
  cv::Mat frame = NoiseImage(256, 256, 100.0, 10.0, 11);
  const std::vector<TrueSpot> spots = GridSpots();
  for (const TrueSpot& s : spots) AddSpot(frame, s);
  const std::vector<DetectedObject> objects = Detect(Detector(Parameters(true)), frame);
  EXPECT_TRUE(MatchOneToOne(spots, objects));
  // Far better than the 2 px the validation asks for.
  for (const TrueSpot& s : spots) {
    double best = 1e9;
    for (const DetectedObject& o : objects) {
      best = std::min(best, std::hypot(o.centroidX - s.x, o.centroidY - s.y));
    }
    EXPECT_LT(best, 0.3) << s.x << ", " << s.y;
  }
}

TEST(SpotDetector, ObjectFieldsAreFilled) {
  cv::Mat frame = NoiseImage(128, 128, 100.0, 10.0, 12);
  const TrueSpot spot{60.4, 70.8, 1.5, 2000.0};
  AddSpot(frame, spot);
  std::vector<DetectedObject> objects;
  cv::Mat labels, mask;
  Detector(Parameters(true)).Detect(frame, objects, labels, mask, 2, true);
  ASSERT_EQ(objects.size(), 1u);
  const DetectedObject& o = objects[0];
  EXPECT_EQ(o.label, 1);
  EXPECT_NEAR(o.centroidX, spot.x, 0.2);
  EXPECT_NEAR(o.centroidY, spot.y, 0.2);
  // The brightest sample: the true peak plus the noise of the few samples near the top.
  EXPECT_NEAR(o.peak, spot.peak, 60.0);
  EXPECT_EQ(o.area, cv::countNonZero(labels == 1));
  EXPECT_GT(o.area, 40.0);
  EXPECT_GT(o.circularity, 0.8);
  EXPECT_LE(o.circularity, 1.05);
  // The bounding box is the labels' extent.
  cv::Mat points;
  cv::findNonZero(labels == 1, points);
  const cv::Rect box = cv::boundingRect(points);
  EXPECT_EQ(o.boxX, box.x);
  EXPECT_EQ(o.boxY, box.y);
  EXPECT_EQ(o.boxWidth, box.width);
  EXPECT_EQ(o.boxHeight, box.height);
  EXPECT_TRUE(o.centroidX > box.x && o.centroidX < box.x + box.width);
  // The contour runs over the object's own boundary samples.
  ASSERT_GT(o.contour.size(), 8u);
  for (const cv::Point& p : o.contour) {
    ASSERT_EQ(labels.at<int>(p), 1) << p;
    int outside = 0;
    for (int dy = -1; dy <= 1; ++dy) {
      for (int dx = -1; dx <= 1; ++dx) outside += labels.at<int>(p.y + dy, p.x + dx) == 0;
    }
    EXPECT_GT(outside, 0) << p;
  }
}

TEST(SpotDetector, LabelsAndMaskAgreeWithTheObjects) {
  cv::Mat frame = NoiseImage(256, 256, 100.0, 10.0, 13);
  for (const TrueSpot& s : GridSpots()) AddSpot(frame, s);
  std::vector<DetectedObject> objects;
  cv::Mat labels, mask;
  Detector(Parameters(true)).Detect(frame, objects, labels, mask, 2, true);
  ASSERT_EQ(objects.size(), 9u);
  ASSERT_EQ(labels.type(), CV_32SC1);
  ASSERT_EQ(mask.type(), CV_8UC1);
  ASSERT_EQ(labels.size(), frame.size());
  EXPECT_EQ(cv::countNonZero(mask != ((labels > 0) & 255)), 0);
  double total = 0.0;
  for (size_t i = 0; i < objects.size(); ++i) {
    EXPECT_EQ(objects[i].label, static_cast<int>(i) + 1);
    EXPECT_EQ(cv::countNonZero(labels == objects[i].label), objects[i].area);
    total += objects[i].area;
  }
  EXPECT_EQ(cv::countNonZero(mask), total);
  double maxLabel = 0.0;
  cv::minMaxLoc(labels, nullptr, &maxLabel);
  EXPECT_EQ(maxLabel, 9.0);
  // Raster order of the first sample.
  for (size_t i = 1; i < objects.size(); ++i) {
    EXPECT_TRUE(objects[i].boxY >= objects[i - 1].boxY);
  }
}

TEST(SpotDetector, OutputLevelAndContoursFollowTheArguments) {
  cv::Mat frame = NoiseImage(128, 128, 100.0, 10.0, 14);
  AddSpot(frame, {64.0, 64.0, 1.5, 1500.0});
  const CSpotDetector detector = Detector(Parameters(true));
  std::vector<DetectedObject> objects(3);
  cv::Mat labels = cv::Mat::ones(5, 5, CV_8U), mask = cv::Mat::ones(5, 5, CV_8U);
  detector.Detect(frame, objects, labels, mask, 0, false);
  ASSERT_EQ(objects.size(), 1u);  // the list is replaced, not appended to
  EXPECT_TRUE(objects[0].contour.empty());
  EXPECT_TRUE(labels.empty());
  EXPECT_TRUE(mask.empty());
  detector.Detect(frame, objects, labels, mask, 1, true);
  EXPECT_FALSE(objects[0].contour.empty());
  EXPECT_EQ(labels.type(), CV_32SC1);
  EXPECT_TRUE(mask.empty());
}

TEST(SpotDetector, PureNoiseGivesNoObject) {
  for (const std::uint64_t seed : {21u, 22u, 23u}) {
    const cv::Mat frame = NoiseImage(512, 512, 150.0, 12.0, seed);
    EXPECT_TRUE(Detect(Detector(Parameters(true)), frame).empty()) << seed;
  }
}

// Single hot pixels and a cosmic-ray track: gone with the cosmic-ray step, found without it.
TEST(SpotDetector, HotPixelsAndCosmicRaysAreRemovedByTheCosmicRayStep) {
  cv::Mat frame = NoiseImage(200, 200, 100.0, 10.0, 31);
  frame.at<float>(40, 40) += 3000.0f;
  frame.at<float>(40, 150) += 800.0f;
  frame.at<float>(150, 60) += 20000.0f;
  AddLine(frame, 110.0, 120.0, 140.0, 131.0, 0.55, 2500.0);  // an oblique track
  AddLine(frame, 60.0, 100.0, 60.0, 112.0, 0.55, 1500.0);    // a short vertical one

  CSpotDetector::FrameStatistics stats;
  cv::Mat footprint;
  CSpotDetector detector = Detector(Parameters(true));
  EXPECT_TRUE(detector.Segment(frame, footprint, &stats).empty());
  EXPECT_GT(stats.cosmicRayHits, 3 * 9);

  AlgoParameters off = Parameters(true);
  off.cosmicRayRadius = 0;
  detector.Configure(off);
  EXPECT_EQ(detector.Segment(frame, footprint, &stats).size(), 5u);
  EXPECT_EQ(stats.cosmicRayHits, 0);
}

// The frame's only footprint, which the mode's parameters reject for the given reason; once
// relax has changed those parameters, it is the frame's one object.
CSpotDetector::Candidate OnlyFootprint(const cv::Mat& frame, bool nominal, Rejection reason,
                                       const std::function<void(AlgoParameters&)>& relax) {
  cv::Mat footprint;
  CSpotDetector detector = Detector(Parameters(nominal));
  const std::vector<CSpotDetector::Candidate> candidates = detector.Segment(frame, footprint);
  EXPECT_EQ(candidates.size(), 1u);
  if (candidates.size() != 1u) return CSpotDetector::Candidate();
  EXPECT_EQ(candidates[0].rejection, reason);
  AlgoParameters relaxed = Parameters(nominal);
  relax(relaxed);
  EXPECT_TRUE(detector.Configure(relaxed));
  EXPECT_EQ(Detect(detector, frame).size(), 1u);
  return candidates[0];
}

TEST(SpotDetector, BlotchIsRejectedForItsArea) {
  cv::Mat frame = NoiseImage(200, 200, 100.0, 10.0, 41);
  AddBlotch(frame, 100.0, 100.0, 20.0, 1000.0);
  // Nothing else holds it back: with a larger limit it is an object, in control mode as well.
  const CSpotDetector::Candidate blotch = OnlyFootprint(
      frame, false, Rejection::kTooLarge, [](AlgoParameters& p) { p.maxObjectArea = 5000; });
  EXPECT_GT(blotch.object.area, 1000.0);
}

TEST(SpotDetector, ScratchIsRejectedForItsShape) {
  cv::Mat frame = NoiseImage(200, 200, 100.0, 10.0, 42);
  AddLine(frame, 80.0, 94.0, 122.0, 106.0, 2.5, 900.0);
  const CSpotDetector::Candidate scratch =
      OnlyFootprint(frame, false, Rejection::kNotRound, [](AlgoParameters& p) {
        p.marginAndCircularity = AlgoParameters::PackMarginAndCircularity(5, 0);
      });
  EXPECT_LT(scratch.object.area, 1000.0);
  EXPECT_GT(scratch.object.peak, 800);
}

TEST(SpotDetector, SpotsWithinTheBorderMarginAreRejected) {
  cv::Mat frame = NoiseImage(128, 128, 100.0, 10.0, 43);
  AddSpot(frame, {7.2, 64.0, 1.5, 2000.0});    // its footprint reaches the margin
  AddSpot(frame, {64.0, 120.5, 1.5, 2000.0});  // so does this one, at the bottom
  AddSpot(frame, {40.0, 40.0, 1.5, 2000.0});
  cv::Mat footprint;
  CSpotDetector detector = Detector(Parameters(true));
  std::vector<CSpotDetector::Candidate> candidates = detector.Segment(frame, footprint);
  ASSERT_EQ(candidates.size(), 3u);
  int border = 0;
  for (const auto& c : candidates) border += c.rejection == Rejection::kBorder;
  EXPECT_EQ(border, 2);
  const std::vector<DetectedObject> objects = Detect(detector, frame);
  ASSERT_EQ(objects.size(), 1u);
  EXPECT_NEAR(objects[0].centroidX, 40.0, 0.3);
  AlgoParameters p = Parameters(true);
  p.marginAndCircularity = AlgoParameters::PackMarginAndCircularity(0, 70);
  detector.Configure(p);
  EXPECT_EQ(Detect(detector, frame).size(), 3u);
}

TEST(SpotDetector, FootprintsBelowTheMinimumRadiusAreRejected) {
  // A noise-free frame: the threshold rests on the quantization floor, 3.2 / sqrt(12) ADU, and a
  // spot of 5 ADU leaves a footprint of a few samples only.
  cv::Mat frame(100, 100, CV_32F, cv::Scalar(100.0));
  AddSpot(frame, {50.0, 50.0, 1.0, 5.0});
  const CSpotDetector::Candidate speck = OnlyFootprint(
      frame, true, Rejection::kTooSmall, [](AlgoParameters& p) { p.minObjectRadius = 0; });
  EXPECT_LT(speck.object.area, 4.0 * CV_PI);
}

TEST(SpotDetector, NominalModeCountsFaintSpotsControlModeOnlyBrightOnes) {
  cv::Mat frame = NoiseImage(256, 256, 100.0, 10.0, 51);
  std::vector<TrueSpot> bright, all;
  for (int i = 0; i < 9; ++i) {
    const bool isBright = i % 3 == 0;
    const TrueSpot s{45.0 + 80.0 * (i % 3), 45.0 + 80.0 * (i / 3), 1.4,
                     isBright ? 1500.0 + 300.0 * i : 350.0 + 40.0 * i};
    AddSpot(frame, s);
    all.push_back(s);
    if (isBright) bright.push_back(s);
  }
  EXPECT_TRUE(MatchOneToOne(all, Detect(Detector(Parameters(true)), frame)));
  EXPECT_TRUE(MatchOneToOne(bright, Detect(Detector(Parameters(false)), frame)));
  cv::Mat footprint;
  int faint = 0;
  for (const auto& c : Detector(Parameters(false)).Segment(frame, footprint)) {
    faint += c.rejection == Rejection::kFaintPeak;
  }
  EXPECT_EQ(faint, 6);
}

TEST(SpotDetector, ControlPeakIsMeasuredAboveTheBackground) {
  // The same spot on two pedestals: the verdict must not depend on the pedestal.
  for (const double pedestal : {0.0, 5000.0}) {
    cv::Mat frame = NoiseImage(128, 128, pedestal, 10.0, 52);
    AddSpot(frame, {64.0, 64.0, 1.5, 700.0});
    EXPECT_TRUE(Detect(Detector(Parameters(false)), frame).empty()) << pedestal;
    EXPECT_EQ(Detect(Detector(Parameters(true)), frame).size(), 1u) << pedestal;
  }
}

TEST(SpotDetector, SegmentationModeReportsEveryFootprint) {
  cv::Mat frame = NoiseImage(256, 256, 100.0, 10.0, 53);
  AddBlotch(frame, 70.0, 70.0, 20.0, 1000.0);
  AddLine(frame, 150.0, 180.0, 200.0, 190.0, 2.5, 900.0);
  AddSpot(frame, {190.0, 60.0, 1.5, 500.0});
  CSpotDetector detector = Detector(Parameters(false));
  EXPECT_TRUE(Detect(detector, frame).empty());
  EXPECT_TRUE(detector.SetMode(CSpotDetector::kModeSegmentation));
  EXPECT_EQ(Detect(detector, frame).size(), 3u);
}

TEST(SpotDetector, UnknownModesAndInvalidParametersAreRefused) {
  CSpotDetector detector;
  EXPECT_EQ(detector.GetMode(), CSpotDetector::kModeValidated);
  EXPECT_FALSE(detector.SetMode(0));
  EXPECT_FALSE(detector.SetMode(3));
  EXPECT_EQ(detector.GetMode(), CSpotDetector::kModeValidated);

  const AlgoParameters good = Parameters(true);
  std::vector<AlgoParameters> bad(6, good);
  bad[0].cosmicRayRadius = -1;
  bad[1].smoothingSigma = 51;
  bad[2].maxObjectArea = 0;
  bad[3].thresholdFactor = std::numeric_limits<float>::quiet_NaN();
  bad[4].thresholdFactor = 0.0f;
  bad[5].marginAndCircularity = AlgoParameters::PackMarginAndCircularity(5, 101);
  AlgoParameters previous = good;
  previous.minControlPeak = 1234;
  ASSERT_TRUE(detector.Configure(previous));
  for (const AlgoParameters& p : bad) {
    EXPECT_FALSE(detector.Configure(p));
    EXPECT_EQ(detector.Parameters().minControlPeak, 1234);
  }
}

TEST(SpotDetector, OutOfRangeCosmicRayRadiusIsRefusedAndThePreviousParametersKept) {
  CSpotDetector detector;
  AlgoParameters previous = Parameters(true);
  previous.cosmicRayRadius = 7;
  ASSERT_TRUE(detector.Configure(previous));
  for (const std::int32_t radius : {51, 1000000, std::numeric_limits<std::int32_t>::max()}) {
    AlgoParameters p = Parameters(true);
    p.cosmicRayRadius = radius;
    EXPECT_FALSE(detector.Configure(p)) << radius;
    EXPECT_EQ(detector.Parameters().cosmicRayRadius, 7);
  }
  AlgoParameters largest = Parameters(true);
  largest.cosmicRayRadius = CSpotDetector::kMaxCosmicRayRadius;
  EXPECT_TRUE(detector.Configure(largest));
  // Through the plug-in: the refused record leaves detection as configured before.
  COmbrixProcessing plugin;
  AlgoParameters huge = Parameters(true);
  huge.cosmicRayRadius = 1000000;
  EXPECT_FALSE(plugin.SetAlgoParameters(huge));
}

TEST(SpotDetector, TheHostRecordMeansWhatTheDetectorDocuments) {
  const AlgoParameters p = Parameters(true);
  // Radius 3, threshold 100, sigma 2, area 1000, radius 2, factor 3.2, peak 800, 0x00050046.
  EXPECT_EQ(std::make_tuple(p.cosmicRayRadius, p.cosmicRayThreshold, p.smoothingSigma,
                            p.maxObjectArea, p.minObjectRadius, p.thresholdFactor, p.minControlPeak,
                            p.marginAndCircularity),
            std::make_tuple(3, 100, 2, std::uint16_t{1000}, 2, 3.2f, 800, 0x00050046u));
  EXPECT_EQ(p.BorderMargin(), 5);
  EXPECT_EQ(p.MinCircularityPercent(), 70);
  EXPECT_TRUE(p.nominalMode);
  EXPECT_FALSE(Parameters(false).nominalMode);
}

TEST(SpotDetector, BadFramesRaiseOpenCvErrors) {
  const CSpotDetector detector;
  std::vector<DetectedObject> objects;
  cv::Mat labels, mask;
  ExpectCvError([&] { detector.Detect(cv::Mat(), objects, labels, mask, 2, true); },
                cv::Error::StsBadArg, "the frame is empty", "CSpotDetector::Segment");
  ExpectCvError([&] { detector.Detect(cv::Mat(20, 20, CV_32FC3), objects, labels, mask, 2, true); },
                cv::Error::StsBadArg, "the frame must have one channel", "CSpotDetector::Segment");
  for (const int level : {-1, 3}) {
    ExpectCvError(
        [&] { detector.Detect(cv::Mat(20, 20, CV_32F), objects, labels, mask, level, true); },
        cv::Error::StsOutOfRange, "output level must be 0, 1 or 2", "CSpotDetector::Detect");
  }
}

TEST(SpotDetector, SixteenBitFramesAreDetectedLikeFloatOnes) {
  cv::Mat frame = NoiseImage(256, 256, 1000.0, 10.0, 54);
  for (const TrueSpot& s : GridSpots()) AddSpot(frame, s);
  cv::Mat rounded, frame16;
  frame.convertTo(frame16, CV_16U);
  frame16.convertTo(rounded, CV_32F);
  const CSpotDetector detector = Detector(Parameters(true));
  const std::vector<DetectedObject> a = Detect(detector, frame16);
  const std::vector<DetectedObject> b = Detect(detector, rounded);
  ASSERT_EQ(a.size(), 9u);
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) {
    EXPECT_EQ(a[i].centroidX, b[i].centroidX);
    EXPECT_EQ(a[i].peak, b[i].peak);
  }
}

// Oracle: a raster-order flood fill. The footprints are its components with its numbering, and
// the object records measure exactly those samples.
TEST(SpotDetector, FootprintsAreTheEightConnectedComponentsInRasterOrder) {
  datagen::Random rng(62);
  for (int trial = 0; trial < 5; ++trial) {
    cv::Mat frame = NoiseImage(128, 128, 100.0, 10.0, 100 + trial);
    for (int i = 0; i < 12; ++i) {
      AddSpot(frame, {rng.Uniform(10.0, 118.0), rng.Uniform(10.0, 118.0), rng.Uniform(1.2, 2.5),
                      rng.Uniform(200.0, 3000.0)});
    }
    CSpotDetector detector = Detector(Parameters(true));
    detector.SetMode(CSpotDetector::kModeSegmentation);
    cv::Mat footprint;
    const auto candidates = detector.Segment(frame, footprint);
    const cv::Mat reference = oracle::RasterLabels(footprint > 0);
    ASSERT_EQ(cv::countNonZero(footprint != reference), 0) << "trial " << trial;
    for (size_t i = 0; i < candidates.size(); ++i) {
      const cv::Mat member = footprint == static_cast<int>(i) + 1;
      EXPECT_EQ(candidates[i].object.area, cv::countNonZero(member));
      EXPECT_EQ(cv::Rect(candidates[i].object.boxX, candidates[i].object.boxY,
                         candidates[i].object.boxWidth, candidates[i].object.boxHeight),
                cv::boundingRect(member));
    }
  }
}

// Why the labelling names Wu's algorithm: OpenCV's default for 8-connectivity scans blocks of two
// rows, so a component starting on the lower row of a block can be numbered before one starting
// further right on its upper row; Wu's scan numbers components in raster order of their first
// sample, which the objects' order and labels promise.
TEST(SpotDetector, WuLabellingIsRasterOrderWhereTheDefaultIsNot) {
  datagen::Random rng(63);
  int defaultDiffers = 0;
  for (int trial = 0; trial < 20; ++trial) {
    cv::Mat binary(rng.Int(2, 60), rng.Int(2, 60), CV_8U);
    const double density = rng.Uniform(0.05, 0.5);
    for (int y = 0; y < binary.rows; ++y) {
      for (int x = 0; x < binary.cols; ++x) {
        binary.at<uchar>(y, x) = rng.Uniform() < density ? 255 : 0;
      }
    }
    const cv::Mat reference = oracle::RasterLabels(binary);
    cv::Mat wu, byDefault, stats, centroids;
    cv::connectedComponentsWithStats(binary, wu, stats, centroids, 8, CV_32S, cv::CCL_WU);
    cv::connectedComponentsWithStats(binary, byDefault, stats, centroids, 8, CV_32S);
    EXPECT_EQ(cv::countNonZero(wu != reference), 0) << "trial " << trial;
    defaultDiffers += cv::countNonZero(byDefault != reference) > 0;
  }
  EXPECT_GT(defaultDiffers, 0);
}

}  // namespace
