// The generated DarkChambers and LightSources sets (one camera model, SensorModel.h) through the
// plug-in object's dark-reference sequence: closed chambers are clean and the leak is found, the
// factors land on the sources' true factors, and each step of the sequence is needed (without
// the dark subtraction or with the last frame in place of the minimum, the figures miss).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "OmbrixProcessing.h"
#include "PluginScenarios.h"
#include "ProcessingHelpers.h"

namespace {

using testprocessing::kData;

// The plug-in with its dark frames ignored: the sequence runs on the raw frames as float.
class CWithoutDarks : public COmbrixProcessing {
 public:
  bool LoadDarkFrames(const std::string&, const std::string&, const std::string&) override {
    return true;
  }
};

// The figures of the last processed frame instead of the minimum.
float LastFrameDefects(IOmbrixProcessing& plugin, const cv::Mat&) {
  return static_cast<float>(plugin.CountDarkChamberDefects(plugin.GetProcessedImage()));
}

float LastFrameFactor(IOmbrixProcessing& plugin, const cv::Mat&) {
  return plugin.ComputeLightSourceFactor(plugin.GetProcessedImage());
}

class ClosedChamber : public ::testing::TestWithParam<const char*> {};

TEST_P(ClosedChamber, IsClean) {
  COmbrixProcessing plugin;
  EXPECT_EQ(scenarios::RunDarkChamberSequence(plugin, kData + GetParam()), 0.0f);
}

TEST_P(ClosedChamber, TheLastFrameInPlaceOfTheMinimumCountsCosmicRays) {
  COmbrixProcessing plugin;
  EXPECT_GT(scenarios::RunDarkReferenceSequence(
                plugin, kData + GetParam(), scenarios::FrameKeeping::kDeepCopy, LastFrameDefects),
            0.0f);
}

TEST_P(ClosedChamber, WithoutDarkSubtractionHotPixelsStillDoNotMakeRegions) {
  // Hot pixels are isolated: the raw minimum has no 16-pixel region either.
  CWithoutDarks plugin;
  EXPECT_EQ(scenarios::RunDarkChamberSequence(plugin, kData + GetParam()), 0.0f);
}

INSTANTIATE_TEST_SUITE_P(DarkChambersData, ClosedChamber,
                         ::testing::Values("DarkChamber", "DarkChamber2"));

TEST(DarkChambersData, TheLeakIsFound) {
  COmbrixProcessing plugin;
  EXPECT_GE(scenarios::RunDarkChamberSequence(plugin, kData + "DarkChamberFail"), 1.0f);
}

struct ExpectedFactor {
  const char* folder;
  float factor;
};

void PrintTo(const ExpectedFactor& e, std::ostream* out) { *out << e.folder; }

class LightSource : public ::testing::TestWithParam<ExpectedFactor> {};

TEST_P(LightSource, FactorLandsOnTheTrueFactor) {
  COmbrixProcessing plugin;
  EXPECT_NEAR(scenarios::RunLightSourceSequence(plugin, kData + GetParam().folder),
              GetParam().factor, 2e-5);
}

TEST_P(LightSource, AFactorMeasuredWithoutDarkSubtractionMisses) {
  CWithoutDarks plugin;
  const float factor = scenarios::RunLightSourceSequence(plugin, kData + GetParam().folder);
  EXPECT_GT(std::abs(factor - GetParam().factor), 1e-3f);
}

INSTANTIATE_TEST_SUITE_P(LightSourcesData, LightSource,
                         ::testing::Values(ExpectedFactor{"QT7M21013H", 0.9908f},
                                           ExpectedFactor{"QT7M21010B", 0.98178f},
                                           ExpectedFactor{"SNQT7M21013E_20degC", 0.9701563f},
                                           ExpectedFactor{"SNQT7M21013E_25degC", 0.968779f}));

TEST(LightSourcesData, TheLastFrameInPlaceOfTheMinimumMisses) {
  // Without the minimum the cosmic rays and the noise's symmetric spread stay: the generator's
  // level accounts for the minimum's low bias, so a single frame reads high.
  COmbrixProcessing plugin;
  const float factor = scenarios::RunDarkReferenceSequence(
      plugin, kData + "QT7M21013H", scenarios::FrameKeeping::kShared, LastFrameFactor);
  EXPECT_GT(factor - 0.9908f, 1e-3f);
}

TEST(LightSourcesData, RepeatedMeasurementsAgreeWithinTheirDrift) {
  std::vector<float> factors;
  for (const char* measurement : scenarios::kRepeatabilityFolders) {
    COmbrixProcessing plugin;
    factors.push_back(scenarios::RunLightSourceSequence(plugin, kData + measurement));
  }
  const float spread = *std::max_element(factors.begin(), factors.end()) -
                       *std::min_element(factors.begin(), factors.end());
  EXPECT_GT(spread, 0.0f);
  EXPECT_LE(spread, 0.0025f);
}

}  // namespace
