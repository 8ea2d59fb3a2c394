// The processing plug-in object and its module: a new buffer for every pushed frame, the
// light-source factor at the exposure pushed, the technician's MTF figure, the loadable module
// through the factory and through its entry, and the defect map of its last count.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "DarkChamberInspection.h"
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

// The module loaded by path into the collection's processing factory and one object made by its
// entry; a failure and no object when the module does not load.
std::shared_ptr<IOmbrixProcessing> MakeModuleObject(CFactoryCollection& collection) {
  if (!collection.m_factoryProcessing.Load(std::string(OMBRIX_TEST_PROCESSING_MODULE))) {
    ADD_FAILURE() << "cannot load " << OMBRIX_TEST_PROCESSING_MODULE;
    return nullptr;
  }
  return collection.m_factoryProcessing.CreateInstance(std::shared_ptr<ILogger>());
}

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
  std::shared_ptr<IOmbrixProcessing> plugin = MakeModuleObject(collection);
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

// The dark-reference sequence of a scenario folder through a loaded plug-in object, the darks
// handed over in memory (slot 8); returns the minimum of the processed frames.
cv::Mat MinimumThroughSlots(IOmbrixProcessing& plugin, const std::string& folder) {
  EXPECT_TRUE(plugin.SetDarkFrames(
      cv::imread(folder + scenarios::kLongDarkFile, cv::IMREAD_UNCHANGED),
      cv::imread(folder + scenarios::kShortDarkFile, cv::IMREAD_UNCHANGED), cv::Mat()));
  std::vector<cv::String> files;
  cv::glob(folder + scenarios::kRawFramePattern, files, false);
  cv::Mat minimum;
  for (const auto& file : files) {
    plugin.BeginImage();
    plugin.PushImage({cv::imread(file, cv::IMREAD_UNCHANGED), scenarios::kExposure});
    const cv::Mat processed = plugin.GetProcessedImage();
    if (minimum.empty()) {
      minimum = processed.clone();
    } else {
      cv::min(minimum, processed, minimum);
    }
  }
  return minimum;
}

TEST(OmbrixProcessing, DefectMapOfTheLastCountThroughTheLoadedModule) {
  CFactoryCollection collection;
  std::shared_ptr<IOmbrixProcessing> plugin = MakeModuleObject(collection);
  ASSERT_TRUE(plugin);
  EXPECT_TRUE(plugin->GetDefectMap().empty());

  // The leaking chamber: the map holds exactly the regions counted, as computed in process.
  const cv::Mat leaking = MinimumThroughSlots(*plugin, kData + "DarkChamberFail");
  ASSERT_FALSE(leaking.empty());
  const int defects = plugin->CountDarkChamberDefects(leaking);
  ASSERT_GT(defects, 0);
  cv::Mat map = plugin->GetDefectMap();
  ASSERT_EQ(map.size(), leaking.size());
  ASSERT_EQ(map.type(), CV_8UC1);
  cv::Mat expected;
  EXPECT_EQ(CDarkChamberInspection::CountDefects(leaking, expected), defects);
  EXPECT_EQ(cv::norm(map, expected, cv::NORM_INF), 0.0);
  cv::Mat labels, stats, centroids;
  const int components = cv::connectedComponentsWithStats(map, labels, stats, centroids, 8);
  EXPECT_EQ(components - 1, defects);
  for (int i = 1; i < components; ++i) {
    EXPECT_GE(stats.at<int>(i, cv::CC_STAT_AREA), CDarkChamberInspection::kMinRegionArea);
  }
  // The caller owns its copy.
  map.setTo(cv::Scalar(0));
  EXPECT_EQ(cv::norm(plugin->GetDefectMap(), expected, cv::NORM_INF), 0.0);

  // A clean chamber: a map of zeros; then an unusable image: no map.
  const cv::Mat clean = MinimumThroughSlots(*plugin, kData + "DarkChamber");
  EXPECT_EQ(plugin->CountDarkChamberDefects(clean), 0);
  const cv::Mat zeros = plugin->GetDefectMap();
  EXPECT_EQ(zeros.size(), clean.size());
  EXPECT_EQ(cv::countNonZero(zeros), 0);
  EXPECT_EQ(plugin->CountDarkChamberDefects(cv::Mat()), -1);
  EXPECT_TRUE(plugin->GetDefectMap().empty());
  plugin.reset();
}

}  // namespace

namespace {

TEST(OmbrixProcessing, TechnicianFigureNeverThrowsOnImagesOpenCvCannotMeasure) {
  COmbrixProcessing plugin;
  const cv::Mat chart = cv::imread(kData + "FTM.tif", cv::IMREAD_UNCHANGED);
  ASSERT_FALSE(chart.empty());
  ASSERT_EQ(chart.channels(), 1);
  // Two channels (a grey chart and a copy of it) measure as the chart itself.
  cv::Mat pair;
  cv::merge(std::vector<cv::Mat>{chart, chart}, pair);
  const float figure = plugin.ComputeMtf(chart);
  ASSERT_GT(figure, 0.0f);
  EXPECT_EQ(plugin.ComputeMtf(pair), figure);
  // A 3-D matrix cannot be measured at all.
  const int sizes[] = {4, 64, 64};
  const cv::Mat cube(3, sizes, CV_8U, cv::Scalar(100));
  EXPECT_EQ(plugin.ComputeMtf(cube), -1.0f);
}

}  // namespace
