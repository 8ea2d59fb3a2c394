// The scenario library: the failure values and their asymmetry in the suite's verdicts, a folder
// with one raw frame, the generated folders through the loaded module, the two ways of keeping
// processed frames, the detection sequence's objects and images, the technician's charts and the
// stack scenarios, an empty plug-in object, the in-memory forms of the sequences against their
// folder forms and the checked loader.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "OmbrixProcessing.h"
#include "PluginScenarios.h"
#include "ProcessingHelpers.h"

namespace {

using testprocessing::DarkPair;
using testprocessing::kData;
using testprocessing::MakeDarks;
using testprocessing::TempFolder;

const std::string kModule = OMBRIX_TEST_PROCESSING_MODULE;

// A scenario folder holding the two master darks.
std::string DarkFolder(const TempFolder& root, const std::string& name, const DarkPair& darks) {
  const std::string folder = root.Path() + name;
  std::filesystem::create_directories(folder);
  cv::imwrite(folder + scenarios::kLongDarkFile, darks.d150);
  cv::imwrite(folder + scenarios::kShortDarkFile, darks.d1);
  return folder;
}

TEST(PluginScenarios, FailureValueMinusOnePassesPass1AndFailsFail1) {
  TempFolder root("no_raw");
  const std::string folder = DarkFolder(root, "Chamber", MakeDarks(8, 8));
  const float value = scenarios::DarkChamberBody(kModule, folder);
  EXPECT_EQ(value, -1.0f);
  EXPECT_TRUE(!(value > 0.0f));  // Pass_1's criterion holds
  EXPECT_FALSE(value > 0.0f);    // Fail_1's does not
  EXPECT_EQ(scenarios::LightSourceBody(kModule, root.Path() + "Missing"), -1.0f);
}

TEST(PluginScenarios, AFolderWithOneRawFrameGivesThatFramesValue) {
  TempFolder root("one_raw");
  const DarkPair darks = MakeDarks(64, 64);
  const std::string folder = DarkFolder(root, "Source", darks);
  cv::Mat raw;
  darks.d150.convertTo(raw, CV_16U);
  raw += cv::Scalar(19816);
  cv::imwrite(folder + OMBRIX_SEP "RawSignal_1.tif", raw);
  EXPECT_EQ(scenarios::LightSourceBody(kModule, folder), 0.9908f);
  EXPECT_EQ(scenarios::DarkChamberBody(kModule, folder), 0.0f);
}

TEST(PluginScenarios, GeneratedFoldersThroughTheLoadedModule) {
  EXPECT_EQ(scenarios::DarkChamberBody(kModule, kData + "DarkChamber"), 0.0f);
  EXPECT_GT(scenarios::DarkChamberBody(kModule, kData + "DarkChamberFail"), 0.0f);
  EXPECT_NEAR(scenarios::LightSourceBody(kModule, kData + "QT7M21013H"), 0.9908f, 2e-5f);
}

// A plug-in that hands back one buffer for every frame, which the sequence must not hide.
class CReusingPlugin : public COmbrixProcessing {
 public:
  void PushImage(const ExposedImage& frame) override { frame.image.convertTo(buffer_, CV_32F); }
  cv::Mat GetProcessedImage() override { return buffer_; }

 private:
  cv::Mat buffer_;
};

TEST(PluginScenarios, SharedResultRepeatsABufferThePluginReuses) {
  TempFolder root("reused");
  const DarkPair darks = MakeDarks(8, 8);
  const std::string folder = DarkFolder(root, "Run", darks);
  cv::imwrite(folder + OMBRIX_SEP "RawSignal_1.tif", cv::Mat(8, 8, CV_16U, cv::Scalar(100)));
  cv::imwrite(folder + OMBRIX_SEP "RawSignal_2.tif", cv::Mat(8, 8, CV_16U, cv::Scalar(300)));
  cv::imwrite(folder + OMBRIX_SEP "RawSignal_3.tif", cv::Mat(8, 8, CV_16U, cv::Scalar(200)));
  const auto corner = [](IOmbrixProcessing&, const cv::Mat& minimum) {
    return minimum.at<float>(0, 0);
  };
  CReusingPlugin reusing;
  // Deep copies keep every frame; shared results are the one buffer, holding the last frame.
  EXPECT_EQ(scenarios::RunDarkReferenceSequence(reusing, folder, scenarios::FrameKeeping::kDeepCopy,
                                                corner),
            100.0f);
  EXPECT_EQ(scenarios::RunDarkReferenceSequence(reusing, folder, scenarios::FrameKeeping::kShared,
                                                corner),
            200.0f);
  // Our plug-in gives every frame its own buffer, so both ways agree (raw minus the 150 s dark).
  COmbrixProcessing plugin;
  const float darkCorner = darks.d150.at<std::uint16_t>(0, 0);
  EXPECT_EQ(
      scenarios::RunDarkReferenceSequence(plugin, folder, scenarios::FrameKeeping::kShared, corner),
      100.0f - darkCorner);
}

TEST(PluginScenarios, DetectionSequenceHandsBackTheObjectsAndBothImages) {
  COmbrixProcessing plugin;
  const scenarios::DetectionOutput output = scenarios::RunDetectionSequence(
      plugin, kData + scenarios::kValidationFolder, "PTC.tif", ValidationAlgoParameters(true));
  ASSERT_TRUE(output.completed);
  ASSERT_FALSE(output.objects.empty());
  EXPECT_EQ(output.Count(), static_cast<int>(output.objects.size()));
  // Level 2: the label image numbers the objects from 1, the overlay marks them.
  ASSERT_EQ(output.labelImage.type(), CV_32SC1);
  double maxLabel = 0.0;
  cv::minMaxLoc(output.labelImage, nullptr, &maxLabel);
  EXPECT_EQ(maxLabel, static_cast<double>(output.objects.size()));
  EXPECT_EQ(cv::countNonZero(output.overlayImage), cv::countNonZero(output.labelImage));
  // Contours are kept.
  for (const DetectedObject& object : output.objects) EXPECT_FALSE(object.contour.empty());
  // The self-contained body on the loaded module counts the same objects.
  EXPECT_EQ(scenarios::DetectionBody(kModule, kData + scenarios::kValidationFolder, "PTC.tif",
                                     ValidationAlgoParameters(true)),
            output.Count());
}

TEST(PluginScenarios, DetectionGivesUpWhenTheDarkFramesAreRefused) {
  TempFolder root("no_darks");
  COmbrixProcessing plugin;
  const scenarios::DetectionOutput output = scenarios::RunDetectionSequence(
      plugin, root.Path() + "Missing", "PTC.tif", ValidationAlgoParameters(true));
  EXPECT_FALSE(output.completed);
  EXPECT_TRUE(output.objects.empty());
  EXPECT_EQ(output.Count(), -1);
  EXPECT_EQ(scenarios::DetectionBody(kModule, root.Path() + "Missing", "PTC.tif",
                                     ValidationAlgoParameters(false)),
            -1);
}

TEST(PluginScenarios, TechnicianChartsCarryADoubledSeparatorThatIsAccepted) {
  // The data folder ends in a separator and each chart name starts with one; the doubled
  // separator reaches the same file as the single one.
  ASSERT_EQ(kData.substr(kData.size() - 1), OMBRIX_SEP);
  const std::string charts[] = {"FTM.tif", "TestEntreeFTM.tif"};
  ASSERT_EQ(std::size(scenarios::kTechnicianCharts), std::size(charts));
  for (std::size_t i = 0; i < std::size(charts); ++i) {
    const std::string name(scenarios::kTechnicianCharts[i]);
    ASSERT_EQ(name, OMBRIX_SEP + charts[i]);
    const std::string doubled = kData + name;
    EXPECT_NE(doubled.find(OMBRIX_SEP OMBRIX_SEP), std::string::npos) << doubled;
    const cv::Mat throughDoubled = cv::imread(doubled, cv::IMREAD_UNCHANGED);
    const cv::Mat direct = cv::imread(kData + charts[i], cv::IMREAD_UNCHANGED);
    ASSERT_FALSE(direct.empty()) << name;
    ASSERT_EQ(throughDoubled.size(), direct.size()) << name;
    ASSERT_EQ(throughDoubled.type(), direct.type()) << name;
    EXPECT_EQ(cv::norm(throughDoubled, direct, cv::NORM_INF), 0.0) << name;
  }
  // The two charts are different files, so each name is read, not a stand-in.
  const cv::Mat first = cv::imread(kData + scenarios::kTechnicianCharts[0], cv::IMREAD_UNCHANGED);
  const cv::Mat second = cv::imread(kData + scenarios::kTechnicianCharts[1], cv::IMREAD_UNCHANGED);
  EXPECT_TRUE(first.size() != second.size() || cv::norm(first, second, cv::NORM_INF) > 0.0);
}

TEST(PluginScenarios, TechnicianBodyMeasuresEveryChartOnOneObject) {
  const std::vector<float> values = scenarios::TechnicianBody(kModule, kData);
  ASSERT_EQ(values.size(), std::size(scenarios::kTechnicianCharts));
  COmbrixProcessing plugin;
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(values[i],
              scenarios::MeasureTechnicianChart(plugin, kData + scenarios::kTechnicianCharts[i]))
        << scenarios::kTechnicianCharts[i];
  }
}

TEST(PluginScenarios, StackScenariosThroughTheLoadedModule) {
  const cv::Mat minimum = scenarios::StackBody(kModule, scenarios::StackScenario::kMinimum);
  const cv::Mat average8 = scenarios::StackBody(kModule, scenarios::StackScenario::kAverage8U);
  const cv::Mat average32 = scenarios::StackBody(kModule, scenarios::StackScenario::kAverage32F);
  EXPECT_EQ(minimum.at<uchar>(0, 0), 0);
  EXPECT_EQ(average8.at<uchar>(0, 0), 45);
  EXPECT_EQ(average32.at<float>(0, 0), 4.5f);
  const std::vector<cv::Mat> images = scenarios::StackImages(scenarios::StackScenario::kAverage8U);
  ASSERT_EQ(images.size(), 10u);
  EXPECT_EQ(images[9].at<uchar>(2, 2), 90);
  EXPECT_EQ(images[9].size(), cv::Size(3, 3));
}

// A plug-in that refuses the dark frames and counts what it is handed afterwards.
class CRefusingDarks : public COmbrixProcessing {
 public:
  bool LoadDarkFrames(const std::string&, const std::string&, const std::string&) override {
    ++loads;
    return false;
  }
  void BeginImage() override {
    ++frameCalls;
    COmbrixProcessing::BeginImage();
  }
  void PushImage(const ExposedImage& frame) override {
    ++frameCalls;
    COmbrixProcessing::PushImage(frame);
  }
  cv::Mat GetProcessedImage() override {
    ++frameCalls;
    return COmbrixProcessing::GetProcessedImage();
  }
  int loads = 0;
  int frameCalls = 0;
};

TEST(PluginScenarios, RefusedDarkFramesMeanNoFrameIsBegunPushedOrFetched) {
  for (const char* folder : {"DarkChamber", "QT7M21013H"}) {
    CRefusingDarks chamber;
    EXPECT_EQ(scenarios::RunDarkChamberSequence(chamber, kData + folder), -1.0f);
    EXPECT_EQ(chamber.loads, 1);
    EXPECT_EQ(chamber.frameCalls, 0) << folder;
    CRefusingDarks source;
    EXPECT_EQ(scenarios::RunLightSourceSequence(source, kData + folder), -1.0f);
    EXPECT_EQ(source.frameCalls, 0) << folder;
  }
  CRefusingDarks detection;
  const scenarios::DetectionOutput output = scenarios::RunDetectionSequence(
      detection, kData + scenarios::kValidationFolder, "PTC.tif", ValidationAlgoParameters(false));
  EXPECT_EQ(output.Count(), -1);
  EXPECT_EQ(detection.loads, 1);
  EXPECT_EQ(detection.frameCalls, 0);
}

// Records what every frame of a sequence looks like on the way in and on the way out.
class CFrameRecorder : public COmbrixProcessing {
 public:
  struct Shape {
    cv::Size size;
    int type;
  };
  void PushImage(const ExposedImage& frame) override {
    pushed.push_back({frame.image.size(), frame.image.type()});
    exposures.push_back(frame.exposure);
    COmbrixProcessing::PushImage(frame);
  }
  cv::Mat GetProcessedImage() override {
    cv::Mat result = COmbrixProcessing::GetProcessedImage();
    processed.push_back({result.size(), result.type()});
    return result;
  }
  std::vector<Shape> pushed;
  std::vector<Shape> processed;
  std::vector<float> exposures;
};

TEST(PluginScenarios, EveryFrameOfASequenceHasTheSizeAndTypeOfTheFirst) {
  for (const char* folder : {"DarkChamber", "DarkChamberFail", "QT7M21013H"}) {
    std::vector<cv::String> files;
    cv::glob(kData + folder + scenarios::kRawFramePattern, files, false);
    ASSERT_GE(files.size(), 2u) << folder;
    const cv::Mat firstFile = cv::imread(files.front(), cv::IMREAD_UNCHANGED);
    for (bool lightSource : {false, true}) {
      CFrameRecorder plugin;
      const float value = lightSource ? scenarios::RunLightSourceSequence(plugin, kData + folder)
                                      : scenarios::RunDarkChamberSequence(plugin, kData + folder);
      EXPECT_NE(value, -1.0f) << folder;
      ASSERT_EQ(plugin.pushed.size(), files.size()) << folder;
      ASSERT_EQ(plugin.processed.size(), files.size()) << folder;
      for (std::size_t i = 0; i < files.size(); ++i) {
        // Frames go in as read, unchanged, at the scenario's exposure.
        EXPECT_EQ(plugin.pushed[i].size, firstFile.size()) << folder << " frame " << i;
        EXPECT_EQ(plugin.pushed[i].type, firstFile.type()) << folder << " frame " << i;
        EXPECT_EQ(plugin.exposures[i], 150.0f) << folder << " frame " << i;
        EXPECT_EQ(plugin.processed[i].size, plugin.processed[0].size) << folder << " frame " << i;
        EXPECT_EQ(plugin.processed[i].type, plugin.processed[0].type) << folder << " frame " << i;
      }
    }
  }
}

TEST(PluginScenarios, FactorEqualToItsConstantPassesAThousandthOffOrNegativeFails) {
  for (float expected : {0.9908f, 0.98178f, 0.9701563f, 0.968779f}) {
    EXPECT_TRUE(scenarios::FactorIsNotNegative(expected));
    EXPECT_TRUE(scenarios::FactorMatches(expected, expected));
    EXPECT_FALSE(scenarios::FactorMatches(expected + 0.001f, expected));
    EXPECT_FALSE(scenarios::FactorMatches(expected - 0.001f, expected));
    EXPECT_FALSE(scenarios::FactorMatches(-1.0f, expected));
  }
  EXPECT_FALSE(scenarios::FactorIsNotNegative(-1.0f));
  EXPECT_FALSE(scenarios::FactorIsNotNegative(-1e-6f));
  EXPECT_TRUE(scenarios::FactorIsNotNegative(0.0f));
  // The tolerance is inclusive: a difference of exactly 0.0001 passes, the next float fails.
  EXPECT_TRUE(scenarios::FactorMatches(0.0001f, 0.0f));
  EXPECT_TRUE(scenarios::FactorMatches(-0.0001f, 0.0f));
  EXPECT_FALSE(scenarios::FactorMatches(std::nextafter(0.0001f, 1.0f), 0.0f));
}

TEST(PluginScenarios, RepeatabilityAllowsASpreadOfExactlyFiveThousandths) {
  EXPECT_TRUE(scenarios::RepeatabilityHolds(0.97f, 0.97f, 0.97f));
  const float spread = 0.005f;
  const float over = std::nextafter(spread, 1.0f);
  // The largest and the smallest may sit in any of the three places.
  EXPECT_TRUE(scenarios::RepeatabilityHolds(0.0f, spread, 0.002f));
  EXPECT_TRUE(scenarios::RepeatabilityHolds(spread, 0.002f, 0.0f));
  EXPECT_TRUE(scenarios::RepeatabilityHolds(0.002f, 0.0f, spread));
  EXPECT_FALSE(scenarios::RepeatabilityHolds(0.0f, over, 0.002f));
  EXPECT_FALSE(scenarios::RepeatabilityHolds(over, 0.002f, 0.0f));
  EXPECT_FALSE(scenarios::RepeatabilityHolds(0.002f, 0.0f, over));
  // One failed measurement makes it fail, wherever it is.
  EXPECT_FALSE(scenarios::RepeatabilityHolds(-1.0f, 0.97f, 0.97f));
  EXPECT_FALSE(scenarios::RepeatabilityHolds(0.97f, -1.0f, 0.97f));
  EXPECT_FALSE(scenarios::RepeatabilityHolds(0.97f, 0.97f, -1.0f));
}

TEST(PluginScenarios, PositiveControlPassesAtNineteenObjectsAndFailsAtEighteen) {
  EXPECT_TRUE(scenarios::PositiveControlHolds(19));
  EXPECT_TRUE(scenarios::PositiveControlHolds(117));
  EXPECT_FALSE(scenarios::PositiveControlHolds(18));
  EXPECT_FALSE(scenarios::PositiveControlHolds(-1));
}

TEST(PluginScenarios, AnEmptyPluginObjectGivesTheFailureValues) {
  // This module's entry declines to make an object.
  const std::string declining = OMBRIX_TEST_NULL_PLUGIN;
  EXPECT_EQ(scenarios::DarkChamberBody(declining, kData + "DarkChamber"), -1.0f);
  EXPECT_EQ(scenarios::LightSourceBody(declining, kData + "QT7M21013H"), -1.0f);
  EXPECT_EQ(scenarios::DetectionBody(declining, kData + scenarios::kValidationFolder, "PTC.tif",
                                     ValidationAlgoParameters(true)),
            -1);
  EXPECT_TRUE(scenarios::StackBody(declining, scenarios::StackScenario::kMinimum).empty());
}

// Every file of a folder's raw-frame pattern, read as the folder sequence reads them.
std::vector<cv::Mat> ReadRawFrames(const std::string& folder) {
  std::vector<cv::String> files;
  cv::glob(folder + scenarios::kRawFramePattern, files, false);
  std::vector<cv::Mat> frames;
  for (const cv::String& file : files) frames.push_back(cv::imread(file, cv::IMREAD_UNCHANGED));
  return frames;
}

scenarios::DarkFrames ReadDarks(const std::string& folder) {
  scenarios::DarkFrames darks;
  darks.longDark = cv::imread(folder + scenarios::kLongDarkFile, cv::IMREAD_UNCHANGED);
  darks.shortDark = cv::imread(folder + scenarios::kShortDarkFile, cv::IMREAD_UNCHANGED);
  return darks;
}

TEST(PluginScenarios, FramesInMemoryGiveTheFolderValues) {
  for (const char* name : {"DarkChamber", "DarkChamberFail"}) {
    const std::string folder = kData + name;
    COmbrixProcessing fromFolder;
    COmbrixProcessing inMemory;
    const float expected = scenarios::RunDarkChamberSequence(fromFolder, folder);
    EXPECT_EQ(scenarios::RunDarkChamberSequence(inMemory, ReadDarks(folder), ReadRawFrames(folder)),
              expected)
        << name;
  }
  const std::string source = kData + "QT7M21013H";
  COmbrixProcessing fromFolder;
  COmbrixProcessing inMemory;
  const float factor = scenarios::RunLightSourceSequence(fromFolder, source);
  EXPECT_NEAR(factor, 0.9908f, 2e-5f);
  EXPECT_EQ(scenarios::RunLightSourceSequence(inMemory, ReadDarks(source), ReadRawFrames(source)),
            factor);
}

TEST(PluginScenarios, FramesInMemoryFailLikeAnEmptyFolder) {
  const std::string folder = kData + "DarkChamber";
  COmbrixProcessing plugin;
  // No raw frame.
  EXPECT_EQ(scenarios::RunDarkChamberSequence(plugin, ReadDarks(folder), {}), -1.0f);
  // Darks refused: empty images.
  EXPECT_EQ(
      scenarios::RunLightSourceSequence(plugin, scenarios::DarkFrames{}, ReadRawFrames(folder)),
      -1.0f);
  const scenarios::DetectionOutput output = scenarios::RunDetectionSequence(
      plugin, scenarios::DarkFrames{}, cv::Mat(8, 8, CV_16U, cv::Scalar(0)),
      ValidationAlgoParameters(true));
  EXPECT_FALSE(output.completed);
  EXPECT_EQ(output.Count(), -1);
}

TEST(PluginScenarios, DetectionInMemoryFindsTheFolderObjects) {
  const std::string folder = kData + scenarios::kValidationFolder;
  COmbrixProcessing fromFolder;
  COmbrixProcessing inMemory;
  const scenarios::DetectionOutput expected = scenarios::RunDetectionSequence(
      fromFolder, folder, "PTC.tif", ValidationAlgoParameters(true));
  const scenarios::DetectionOutput output = scenarios::RunDetectionSequence(
      inMemory, ReadDarks(folder), cv::imread(folder + OMBRIX_SEP "PTC.tif", cv::IMREAD_UNCHANGED),
      ValidationAlgoParameters(true));
  ASSERT_TRUE(expected.completed);
  ASSERT_TRUE(output.completed);
  ASSERT_EQ(output.objects.size(), expected.objects.size());
  ASSERT_GT(output.Count(), 0);
  for (std::size_t i = 0; i < output.objects.size(); ++i) {
    EXPECT_EQ(output.objects[i].centroidX, expected.objects[i].centroidX);
    EXPECT_EQ(output.objects[i].centroidY, expected.objects[i].centroidY);
    EXPECT_EQ(output.objects[i].contour, expected.objects[i].contour);
  }
  EXPECT_EQ(cv::norm(output.labelImage, expected.labelImage, cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(output.overlayImage, expected.overlayImage, cv::NORM_INF), 0.0);
}

TEST(PluginScenarios, CheckedLoaderRefusesWhatWouldFault) {
  {
    CFactoryCollection collection;
    EXPECT_EQ(scenarios::MakeCheckedProcessingPlugin(collection, "/no/such/OmbrixProcessing.so"),
              nullptr);
  }
  {
    CFactoryCollection collection;
    EXPECT_EQ(scenarios::MakeCheckedProcessingPlugin(collection, OMBRIX_TEST_NO_ENTRY_PLUGIN),
              nullptr);
  }
  CFactoryCollection collection;
  std::shared_ptr<IOmbrixProcessing> plugin =
      scenarios::MakeCheckedProcessingPlugin(collection, kModule);
  ASSERT_NE(plugin, nullptr);
  EXPECT_EQ(scenarios::RunDarkChamberSequence(*plugin, kData + "DarkChamber"), 0.0f);
  plugin.reset();
}

}  // namespace
