// The generated ValidationAlgo1 frames (spot fields with recorded truth, on the camera model of
// SensorModel.h) through the spot detector and through the plug-in object's detection sequence:
// exactly the true spots in nominal mode, exactly those above the control peak in control mode,
// every distractor rejected for its reason, and nothing on the negative control and the empty
// field.
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <vector>

#include "OmbrixProcessing.h"
#include "PluginScenarios.h"
#include "SpotHelpers.h"

namespace {

using Rejection = CSpotDetector::Rejection;
using namespace testspots;

// The spots a mode must find on PTC.tif: all of them, or those above the control peak.
std::vector<TrueSpot> ExpectedSpots(const Truth& truth, bool nominal) {
  return nominal ? truth.spots : BrighterThan(truth.spots, 800.0);
}

class Mode : public ::testing::TestWithParam<bool> {};

std::string ModeName(const ::testing::TestParamInfo<bool>& info) {
  return info.param ? "Nominal" : "Control";
}

TEST_P(Mode, PtcGivesExactlyTheExpectedSpots) {
  const Truth truth = ReadTruth("PTC");
  ASSERT_EQ(truth.spots.size(), 117u);
  EXPECT_GT(truth.distractors, 20);
  EXPECT_TRUE(MatchOneToOne(ExpectedSpots(truth, GetParam()),
                            Detect(Detector(Parameters(GetParam())), Processed("PTC"))));
}

TEST_P(Mode, PtcDistractorsAreEachRejectedForTheirReason) {
  cv::Mat footprint;
  const auto candidates = Detector(Parameters(GetParam())).Segment(Processed("PTC_NEG"), footprint);
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

TEST_P(Mode, NegativeControlAndEmptyFieldGiveNothing) {
  EXPECT_TRUE(ReadTruth("PTC_NEG").spots.empty());
  EXPECT_TRUE(ReadTruth("Image_1").spots.empty());
  EXPECT_TRUE(Detect(Detector(Parameters(GetParam())), Processed("PTC_NEG")).empty());
  EXPECT_TRUE(Detect(Detector(Parameters(GetParam())), Processed("Image_1")).empty());
}

// The plug-in object's detection sequence on the same data, as the scenarios drive it.
TEST_P(Mode, PluginDetectionSequenceMatchesTheTruth) {
  COmbrixProcessing plugin;
  const scenarios::DetectionOutput output =
      scenarios::RunDetectionSequence(plugin, testprocessing::kData + scenarios::kValidationFolder,
                                      "PTC.tif", ValidationAlgoParameters(GetParam()));
  ASSERT_TRUE(output.completed);
  EXPECT_TRUE(MatchOneToOne(ExpectedSpots(ReadTruth("PTC"), GetParam()), output.objects));
  EXPECT_EQ(cv::countNonZero(output.overlayImage), cv::countNonZero(output.labelImage));
}

INSTANTIATE_TEST_SUITE_P(ValidationAlgoData, Mode, ::testing::Values(true, false), ModeName);

TEST(ValidationAlgoData, PtcHoldsAtLeastNineteenSpotsAboveTheControlPeak) {
  const Truth truth = ReadTruth("PTC");
  const std::vector<TrueSpot> bright = BrighterThan(truth.spots, 800.0);
  EXPECT_GE(bright.size(), 19u);
  EXPECT_LT(bright.size(), truth.spots.size());
}

// The hits of the frames are real distractors: without the cosmic-ray step they become objects.
TEST(ValidationAlgoData, HotPixelsAndCosmicRaysNeedTheCosmicRayStep) {
  AlgoParameters p = Parameters(true);
  p.cosmicRayRadius = 0;
  EXPECT_GT(Detect(Detector(p), Processed("PTC_NEG")).size(), 5u);
  EXPECT_FALSE(Detect(Detector(p), Processed("Image_1")).empty());
  EXPECT_GT(Detect(Detector(p), Processed("PTC")).size(), 117u);
}

TEST(ValidationAlgoData, LowExposureSpotsAreFoundButAllBelowTheControlPeak) {
  const Truth truth = ReadTruth("LowExposure");
  ASSERT_FALSE(truth.spots.empty());
  EXPECT_TRUE(BrighterThan(truth.spots, 800.0).empty());
  const cv::Mat frame = Processed("LowExposure");
  EXPECT_TRUE(MatchOneToOne(truth.spots, Detect(Detector(Parameters(true)), frame)));
  EXPECT_TRUE(Detect(Detector(Parameters(false)), frame).empty());
}

}  // namespace
