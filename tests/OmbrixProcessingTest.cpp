// The processing plug-in object and its module: a new buffer for every pushed frame, the
// light-source factor at the exposure pushed, the technician's MTF figure, and the loadable
// module through the factory and through its entry.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "DynamicLibrary.h"
#include "FactoryCollection.h"
#include "OmbrixProcessing.h"
#include "PluginScenarios.h"
#include "ProcessingHelpers.h"
#include "mtf/MtfMeasurement.h"

namespace {

using testprocessing::DarkPair;
using testprocessing::kData;
using testprocessing::MakeDarks;

TEST(OmbrixProcessing, EveryPushedFrameGetsANewBuffer) {
  const DarkPair darks = MakeDarks(4, 4);
  COmbrixProcessing plugin;
  testprocessing::TempFolder folder("buffers");
  cv::imwrite(folder.File("long.tif"), darks.d150);
  cv::imwrite(folder.File("short.tif"), darks.d1);
  ASSERT_TRUE(plugin.LoadDarkFrames(folder.File("long.tif"), folder.File("short.tif"), ""));
  plugin.BeginImage();
  EXPECT_TRUE(plugin.GetProcessedImage().empty());
  cv::Mat raw;
  darks.d150.convertTo(raw, CV_16U);
  raw += cv::Scalar(7);
  plugin.PushImage({raw, 150.0f});
  const cv::Mat first = plugin.GetProcessedImage();
  ASSERT_EQ(first.type(), CV_32F);
  plugin.BeginImage();
  plugin.PushImage({darks.d150, 150.0f});
  const cv::Mat second = plugin.GetProcessedImage();
  EXPECT_NE(first.data, second.data);
  EXPECT_EQ(cv::norm(first, cv::Mat(4, 4, CV_32F, cv::Scalar(7)), cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::countNonZero(second), 0);
}

TEST(OmbrixProcessing, LightSourceFactorFollowsTheExposureOfTheFramesPushed) {
  COmbrixProcessing plugin;
  const cv::Mat flat(64, 64, CV_16U, cv::Scalar(9908));
  plugin.BeginImage();
  plugin.PushImage({flat, 75.0f});
  EXPECT_EQ(plugin.ComputeLightSourceFactor(plugin.GetProcessedImage()), 0.9908f);
}

class TechnicianChart : public ::testing::TestWithParam<const char*> {};

TEST_P(TechnicianChart, FigureIsTheMeanEfficiencyOverEveryEdgeOfEveryTarget) {
  COmbrixProcessing plugin;
  const cv::Mat image = cv::imread(kData + GetParam(), cv::IMREAD_UNCHANGED);
  ASSERT_FALSE(image.empty());
  CMtfMeasurement measurement;
  const MtfTargetMap targets = measurement.MeasureTargets(image);
  std::size_t edges = 0;
  for (const auto& target : targets) edges += target.second.edges.size();
  ASSERT_GT(edges, 4u);
  EXPECT_NEAR(plugin.ComputeMtf(image), CMtfMeasurement::MeanEfficiency(targets), 1e-4);
}

INSTANTIATE_TEST_SUITE_P(OmbrixProcessing, TechnicianChart,
                         ::testing::Values("FTM.tif", "TestEntreeFTM.tif"));

TEST(OmbrixProcessing, TechnicianFigureOfAnImageWithoutTargetsIsNotAvailable) {
  COmbrixProcessing plugin;
  EXPECT_EQ(plugin.ComputeMtf(cv::Mat()), -1.0f);
  EXPECT_EQ(plugin.ComputeMtf(cv::Mat(64, 64, CV_8U, cv::Scalar(128))), -1.0f);
}

TEST(OmbrixProcessing, ModuleLoadsThroughTheFactoryAndComputes) {
  CFactoryCollection collection;
  ASSERT_TRUE(collection.m_factoryProcessing.Load(std::string(OMBRIX_TEST_PROCESSING_MODULE)));
  std::shared_ptr<IOmbrixProcessing> plugin =
      collection.m_factoryProcessing.CreateInstance(std::shared_ptr<ILogger>());
  ASSERT_TRUE(plugin);
  const cv::Mat result =
      scenarios::RunStackSequence(*plugin, scenarios::StackScenario::kAverage32F);
  EXPECT_EQ(result.at<float>(0, 0), 4.5f);
  // Reserved slots are harmless.
  plugin->Reserved01();
  plugin->Reserved31();
  EXPECT_EQ(plugin->CountDarkChamberDefects(cv::Mat()), -1);
  EXPECT_FALSE(plugin->LoadDarkFrames("", "", ""));
  plugin.reset();
}

TEST(OmbrixProcessing, GetInstanceMakesOnlyVariantZero) {
  DynamicLibrary::Handle library =
      DynamicLibrary::Load(std::filesystem::path(OMBRIX_TEST_PROCESSING_MODULE));
  ASSERT_NE(library, nullptr);
  const auto entry =
      reinterpret_cast<ProcessingFactoryFn>(DynamicLibrary::Resolve(library, "GetInstance"));
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry(1, nullptr), nullptr);
  IOmbrixProcessing* object = entry(0, nullptr);
  ASSERT_NE(object, nullptr);
  cv::Mat result;
  object->StackMinimum(
      result, {cv::Mat(2, 2, CV_16U, cv::Scalar(7)), cv::Mat(2, 2, CV_16U, cv::Scalar(3))});
  EXPECT_EQ(result.at<std::uint16_t>(1, 1), 3);
  delete object;
  DynamicLibrary::Free(library);
}

TEST(OmbrixProcessing, ModuleExportsNothingButItsEntry) {
  DynamicLibrary::Handle library =
      DynamicLibrary::Load(std::filesystem::path(OMBRIX_TEST_PROCESSING_MODULE));
  ASSERT_NE(library, nullptr);
  EXPECT_NE(DynamicLibrary::Resolve(library, "GetInstance"), nullptr);
  // Names of the plug-in's own code are internal to the module.
  for (const char* internal : {"_ZN17COmbrixProcessing9PushImageERK12ExposedImage",
                               "_ZN16CFilterCosmicRay10MedianBlurERKN2cv3MatERS1_i"}) {
    EXPECT_EQ(DynamicLibrary::Resolve(library, internal), nullptr) << internal;
  }
  DynamicLibrary::Free(library);
}

}  // namespace
