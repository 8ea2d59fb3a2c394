// Spot detection: known synthetic spots, every distractor rejected for its own reason, nominal and
// control modes, the border margin, the filled records and output images, bad input, the order
// statistics and labelling against straightforward oracles, and the generated ValidationAlgo1
// frames against their recorded truth.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "../testdata/generator/Random.h"
#include "CvErrors.h"
#include "OmbrixProcessing.h"
#include "SpotDetector.h"

namespace {

using testerrors::ExpectCvError;

using Rejection = CSpotDetector::Rejection;

const std::string kAlgoFolder = std::string(OMBRIX_TEST_DATA_DIR) + "ValidationAlgo1/";

struct TrueSpot {
  double x, y, sigma, peak;
};

// Pixel-integrated Gaussian spot whose brightest pixel is `peak` above what was there.
void AddSpot(cv::Mat& image, const TrueSpot& s) {
  auto cdf = [](double t) { return 0.5 * std::erfc(-t / std::sqrt(2.0)); };
  auto fx = [&](int px) {
    return cdf((px + 0.5 - s.x) / s.sigma) - cdf((px - 0.5 - s.x) / s.sigma);
  };
  auto fy = [&](int py) {
    return cdf((py + 0.5 - s.y) / s.sigma) - cdf((py - 0.5 - s.y) / s.sigma);
  };
  const int cx = static_cast<int>(std::lround(s.x));
  const int cy = static_cast<int>(std::lround(s.y));
  const double flux = s.peak / (fx(cx) * fy(cy));
  for (int y = std::max(0, cy - 10); y <= std::min(image.rows - 1, cy + 10); ++y) {
    for (int x = std::max(0, cx - 10); x <= std::min(image.cols - 1, cx + 10); ++x) {
      image.at<float>(y, x) += static_cast<float>(flux * fx(x) * fy(y));
    }
  }
}

// Flat background with Gaussian noise from our generator.
cv::Mat Frame(int rows, int cols, double background, double noise, std::uint64_t seed) {
  datagen::Random rng(seed);
  cv::Mat image(rows, cols, CV_32F);
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x) {
      image.at<float>(y, x) = static_cast<float>(background + noise * rng.Normal());
    }
  }
  return image;
}

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

AlgoParameters Parameters(bool nominal) { return CSpotDetector::DefaultParameters(nominal); }

CSpotDetector Detector(const AlgoParameters& p) {
  CSpotDetector detector;
  EXPECT_TRUE(detector.Configure(p));
  return detector;
}

std::vector<DetectedObject> Detect(const CSpotDetector& detector, const cv::Mat& frame) {
  std::vector<DetectedObject> objects;
  cv::Mat labels, mask;
  detector.Detect(frame, objects, labels, mask, 2, true);
  return objects;
}

// True when every spot has exactly one object within 2 px and every object belongs to a spot.
::testing::AssertionResult MatchOneToOne(const std::vector<TrueSpot>& spots,
                                         const std::vector<DetectedObject>& objects) {
  if (spots.size() != objects.size()) {
    return ::testing::AssertionFailure()
           << objects.size() << " objects for " << spots.size() << " spots";
  }
  std::vector<int> used(objects.size(), 0);
  for (const TrueSpot& s : spots) {
    int matches = 0;
    for (size_t i = 0; i < objects.size(); ++i) {
      if (std::hypot(objects[i].centroidX - s.x, objects[i].centroidY - s.y) <= 2.0) {
        ++matches;
        ++used[i];
      }
    }
    if (matches != 1) {
      return ::testing::AssertionFailure()
             << matches << " objects within 2 px of the spot at " << s.x << ", " << s.y;
    }
  }
  for (size_t i = 0; i < used.size(); ++i) {
    if (used[i] != 1) {
      return ::testing::AssertionFailure() << "object at " << objects[i].centroidX << ", "
                                           << objects[i].centroidY << " matches " << used[i];
    }
  }
  return ::testing::AssertionSuccess();
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
  cv::Mat frame = Frame(256, 256, 100.0, 10.0, 11);
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
  cv::Mat frame = Frame(128, 128, 100.0, 10.0, 12);
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
  cv::Mat frame = Frame(256, 256, 100.0, 10.0, 13);
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
  cv::Mat frame = Frame(128, 128, 100.0, 10.0, 14);
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
    const cv::Mat frame = Frame(512, 512, 150.0, 12.0, seed);
    EXPECT_TRUE(Detect(Detector(Parameters(true)), frame).empty()) << seed;
  }
}

// Single hot pixels and a cosmic-ray track: gone with the cosmic-ray step, found without it.
TEST(SpotDetector, HotPixelsAndCosmicRaysAreRemovedByTheCosmicRayStep) {
  cv::Mat frame = Frame(200, 200, 100.0, 10.0, 31);
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

TEST(SpotDetector, TheCosmicRayStepLeavesSpotsUntouched) {
  cv::Mat frame = Frame(256, 256, 100.0, 10.0, 32);
  for (const TrueSpot& s : GridSpots()) AddSpot(frame, s);
  double background = 0.0, noise = 0.0;
  CSpotDetector::RobustStatistics(frame, background, noise);
  cv::Mat cleaned;
  EXPECT_EQ(CSpotDetector::RemoveCosmicRays(frame, background, 3, 100, cleaned), 0);
  EXPECT_EQ(cv::countNonZero(cleaned != frame), 0);
}

TEST(SpotDetector, BlotchIsRejectedForItsArea) {
  cv::Mat frame = Frame(200, 200, 100.0, 10.0, 41);
  AddBlotch(frame, 100.0, 100.0, 20.0, 1000.0);
  cv::Mat footprint;
  CSpotDetector detector = Detector(Parameters(false));
  std::vector<CSpotDetector::Candidate> candidates = detector.Segment(frame, footprint);
  ASSERT_EQ(candidates.size(), 1u);
  EXPECT_EQ(candidates[0].rejection, Rejection::kTooLarge);
  EXPECT_GT(candidates[0].object.area, 1000.0);
  // Nothing else holds it back: with a larger limit it is an object, in control mode as well.
  AlgoParameters p = Parameters(false);
  p.maxObjectArea = 5000;
  detector.Configure(p);
  EXPECT_EQ(Detect(detector, frame).size(), 1u);
}

TEST(SpotDetector, ScratchIsRejectedForItsShape) {
  cv::Mat frame = Frame(200, 200, 100.0, 10.0, 42);
  AddLine(frame, 80.0, 94.0, 122.0, 106.0, 2.5, 900.0);
  cv::Mat footprint;
  CSpotDetector detector = Detector(Parameters(false));
  std::vector<CSpotDetector::Candidate> candidates = detector.Segment(frame, footprint);
  ASSERT_EQ(candidates.size(), 1u);
  EXPECT_EQ(candidates[0].rejection, Rejection::kNotRound);
  EXPECT_LT(candidates[0].object.area, 1000.0);
  EXPECT_GT(candidates[0].object.peak, 800);
  AlgoParameters p = Parameters(false);
  p.marginAndCircularity = AlgoParameters::PackMarginAndCircularity(5, 0);
  detector.Configure(p);
  EXPECT_EQ(Detect(detector, frame).size(), 1u);
}

TEST(SpotDetector, SpotsWithinTheBorderMarginAreRejected) {
  cv::Mat frame = Frame(128, 128, 100.0, 10.0, 43);
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
  cv::Mat footprint;
  CSpotDetector detector = Detector(Parameters(true));
  std::vector<CSpotDetector::Candidate> candidates = detector.Segment(frame, footprint);
  ASSERT_EQ(candidates.size(), 1u);
  EXPECT_EQ(candidates[0].rejection, Rejection::kTooSmall);
  EXPECT_LT(candidates[0].object.area, 4.0 * 3.14159265);
  AlgoParameters p = Parameters(true);
  p.minObjectRadius = 0;
  detector.Configure(p);
  EXPECT_EQ(Detect(detector, frame).size(), 1u);
}

TEST(SpotDetector, NominalModeCountsFaintSpotsControlModeOnlyBrightOnes) {
  cv::Mat frame = Frame(256, 256, 100.0, 10.0, 51);
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
    cv::Mat frame = Frame(128, 128, pedestal, 10.0, 52);
    AddSpot(frame, {64.0, 64.0, 1.5, 700.0});
    EXPECT_TRUE(Detect(Detector(Parameters(false)), frame).empty()) << pedestal;
    EXPECT_EQ(Detect(Detector(Parameters(true)), frame).size(), 1u) << pedestal;
  }
}

TEST(SpotDetector, SegmentationModeReportsEveryFootprint) {
  cv::Mat frame = Frame(256, 256, 100.0, 10.0, 53);
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

TEST(SpotDetector, TheHostRecordMeansWhatTheDetectorDocuments) {
  const AlgoParameters p = Parameters(true);
  EXPECT_EQ(p.cosmicRayRadius, 3);
  EXPECT_EQ(p.cosmicRayThreshold, 100);
  EXPECT_EQ(p.smoothingSigma, 2);
  EXPECT_EQ(p.maxObjectArea, 1000);
  EXPECT_EQ(p.minObjectRadius, 2);
  EXPECT_EQ(p.thresholdFactor, 3.2f);
  EXPECT_EQ(p.minControlPeak, 800);
  EXPECT_EQ(p.marginAndCircularity, 0x00050046u);
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
  cv::Mat frame = Frame(256, 256, 1000.0, 10.0, 54);
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

// Oracle: sort and pick.
TEST(SpotDetector, RobustStatisticsAreExactOrderStatistics) {
  datagen::Random rng(61);
  for (int trial = 0; trial < 20; ++trial) {
    const int rows = rng.Int(1, 30), cols = rng.Int(1, 30);
    cv::Mat frame(rows, cols, CV_32F);
    std::vector<double> values;
    for (int y = 0; y < rows; ++y) {
      for (int x = 0; x < cols; ++x) {
        // Integer samples with ties, as sensor frames have.
        frame.at<float>(y, x) = static_cast<float>(std::round(50.0 * rng.Normal()));
        values.push_back(frame.at<float>(y, x));
      }
    }
    auto median = [](std::vector<double> v) {
      std::sort(v.begin(), v.end());
      const size_t n = v.size();
      return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
    };
    const double m = median(values);
    std::vector<double> deviations;
    for (const double v : values) deviations.push_back(std::abs(v - m));
    double gotMedian = 0.0, gotNoise = 0.0;
    CSpotDetector::RobustStatistics(frame, gotMedian, gotNoise);
    EXPECT_EQ(gotMedian, m);
    EXPECT_NEAR(gotNoise, 1.4826 * median(deviations), 1e-9);
  }
}

// Oracle: cv::connectedComponents gives the same partition of the thresholded samples.
TEST(SpotDetector, FootprintsAreTheEightConnectedComponents) {
  datagen::Random rng(62);
  for (int trial = 0; trial < 5; ++trial) {
    cv::Mat frame = Frame(128, 128, 100.0, 10.0, 100 + trial);
    for (int i = 0; i < 12; ++i) {
      AddSpot(frame, {rng.Uniform(10.0, 118.0), rng.Uniform(10.0, 118.0), rng.Uniform(1.2, 2.5),
                      rng.Uniform(200.0, 3000.0)});
    }
    CSpotDetector detector = Detector(Parameters(true));
    detector.SetMode(CSpotDetector::kModeSegmentation);
    cv::Mat footprint, reference;
    const auto candidates = detector.Segment(frame, footprint);
    const int count = cv::connectedComponents(footprint > 0, reference, 8, CV_32S);
    ASSERT_EQ(static_cast<int>(candidates.size()), count - 1);
    // Same partition: the pairing of labels is one-to-one.
    std::vector<int> pair(candidates.size() + 1, -1);
    for (int y = 0; y < footprint.rows; ++y) {
      for (int x = 0; x < footprint.cols; ++x) {
        const int a = footprint.at<int>(y, x), b = reference.at<int>(y, x);
        ASSERT_EQ(a == 0, b == 0);
        if (a == 0) continue;
        if (pair[a] < 0) pair[a] = b;
        ASSERT_EQ(pair[a], b);
      }
    }
    for (size_t i = 0; i < candidates.size(); ++i) {
      EXPECT_EQ(candidates[i].object.area, cv::countNonZero(footprint == static_cast<int>(i) + 1));
    }
  }
}

// ---- The generated validation frames against their recorded truth ----

struct Truth {
  std::vector<TrueSpot> spots;
  int distractors = 0;
};

Truth ReadTruth(const std::string& name) {
  Truth truth;
  std::ifstream file(kAlgoFolder + "Truth_" + name + ".txt");
  EXPECT_TRUE(file.good()) << name;
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream s(line);
    std::string kind;
    s >> kind;
    if (kind == "spot") {
      TrueSpot spot{};
      double flux = 0.0;
      s >> spot.x >> spot.y >> spot.sigma >> flux >> spot.peak;
      truth.spots.push_back(spot);
    } else if (kind == "blotch" || kind == "scratch" || kind == "hot" || kind == "cosmic") {
      ++truth.distractors;
    }
  }
  return truth;
}

// The frame as the plug-in processes it at 150 s: raw minus the long master dark.
cv::Mat Processed(const std::string& name) {
  const cv::Mat raw = cv::imread(kAlgoFolder + name + ".tif", cv::IMREAD_UNCHANGED);
  const cv::Mat dark = cv::imread(kAlgoFolder + "Black_150s.tif", cv::IMREAD_UNCHANGED);
  EXPECT_FALSE(raw.empty() || dark.empty()) << name;
  cv::Mat a, b;
  raw.convertTo(a, CV_32F);
  dark.convertTo(b, CV_32F);
  return a - b;
}

std::vector<TrueSpot> BrighterThan(const std::vector<TrueSpot>& spots, double peak) {
  std::vector<TrueSpot> out;
  for (const TrueSpot& s : spots) {
    if (s.peak > peak) out.push_back(s);
  }
  return out;
}

TEST(ValidationAlgo1, PtcNominalFindsExactlyTheTrueSpots) {
  const Truth truth = ReadTruth("PTC");
  ASSERT_EQ(truth.spots.size(), 117u);
  EXPECT_GT(truth.distractors, 20);
  EXPECT_TRUE(MatchOneToOne(truth.spots, Detect(Detector(Parameters(true)), Processed("PTC"))));
}

TEST(ValidationAlgo1, PtcControlFindsExactlyTheSpotsPeakingAbove800) {
  const Truth truth = ReadTruth("PTC");
  const std::vector<TrueSpot> bright = BrighterThan(truth.spots, 800.0);
  EXPECT_GE(bright.size(), 19u);
  EXPECT_LT(bright.size(), truth.spots.size());
  EXPECT_TRUE(MatchOneToOne(bright, Detect(Detector(Parameters(false)), Processed("PTC"))));
}

TEST(ValidationAlgo1, PtcDistractorsAreEachRejectedForTheirReason) {
  const cv::Mat frame = Processed("PTC_NEG");
  cv::Mat footprint;
  for (const bool nominal : {true, false}) {
    const auto candidates = Detector(Parameters(nominal)).Segment(frame, footprint);
    // The stain and the scratch survive the cosmic-ray step; hot pixels and cosmic rays do not.
    ASSERT_EQ(candidates.size(), 2u);
    int large = 0, notRound = 0;
    for (const auto& c : candidates) {
      large += c.rejection == Rejection::kTooLarge;
      notRound += c.rejection == Rejection::kNotRound;
      EXPECT_GT(c.object.peak, 800);  // the peak test alone would not reject them
    }
    EXPECT_EQ(large, 1);
    EXPECT_EQ(notRound, 1);
  }
}

// The hits of the frames are real distractors: without the cosmic-ray step they become objects.
TEST(ValidationAlgo1, HotPixelsAndCosmicRaysNeedTheCosmicRayStep) {
  AlgoParameters p = Parameters(true);
  p.cosmicRayRadius = 0;
  EXPECT_GT(Detect(Detector(p), Processed("PTC_NEG")).size(), 5u);
  EXPECT_FALSE(Detect(Detector(p), Processed("Image_1")).empty());
  EXPECT_GT(Detect(Detector(p), Processed("PTC")).size(), 117u);
}

TEST(ValidationAlgo1, NegativeControlAndEmptyFieldGiveNothing) {
  EXPECT_TRUE(ReadTruth("PTC_NEG").spots.empty());
  EXPECT_TRUE(ReadTruth("Image_1").spots.empty());
  for (const bool nominal : {true, false}) {
    EXPECT_TRUE(Detect(Detector(Parameters(nominal)), Processed("PTC_NEG")).empty());
    EXPECT_TRUE(Detect(Detector(Parameters(nominal)), Processed("Image_1")).empty());
  }
}

TEST(ValidationAlgo1, LowExposureSpotsAreFoundButAllBelowTheControlPeak) {
  const Truth truth = ReadTruth("LowExposure");
  ASSERT_FALSE(truth.spots.empty());
  EXPECT_TRUE(BrighterThan(truth.spots, 800.0).empty());
  const cv::Mat frame = Processed("LowExposure");
  EXPECT_TRUE(MatchOneToOne(truth.spots, Detect(Detector(Parameters(true)), frame)));
  EXPECT_TRUE(Detect(Detector(Parameters(false)), frame).empty());
}

// The plug-in object's detection sequence on the same data, as the scenarios drive it.
TEST(ValidationAlgo1, PluginDetectionSequenceMatchesTheTruth) {
  const Truth truth = ReadTruth("PTC");
  for (const bool nominal : {true, false}) {
    COmbrixProcessing plugin;
    plugin.SetAlgoParameters(Parameters(nominal));
    ASSERT_TRUE(
        plugin.LoadDarkFrames(kAlgoFolder + "Black_150s.tif", kAlgoFolder + "Black_1s.tif", ""));
    plugin.BeginImage();
    ExposedImage frame;
    frame.image = cv::imread(kAlgoFolder + "PTC.tif", cv::IMREAD_UNCHANGED);
    frame.exposure = 150.0f;
    plugin.PushImage(frame);
    plugin.SetAlgorithmMode(2);
    std::vector<DetectedObject> objects;
    cv::Mat labels, mask;
    plugin.DetectObjects(objects, labels, mask, 2, true);
    const std::vector<TrueSpot> expected = nominal ? truth.spots : BrighterThan(truth.spots, 800.0);
    EXPECT_TRUE(MatchOneToOne(expected, objects)) << nominal;
    EXPECT_EQ(cv::countNonZero(mask), cv::countNonZero(labels));
  }
}

}  // namespace
