// Edge cases of the processing plug-in's operations (dark reference, dark-chamber inspection,
// light-source calibration, stack statistics), the loadable module through the factory, and the
// scenario pipelines on the generated DarkChambers and LightSources sets.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "../testdata/generator/Random.h"
#include "CvErrors.h"
#include "DarkChamberInspection.h"
#include "DarkReference.h"
#include "DynamicLibrary.h"
#include "FactoryCollection.h"
#include "LightSourceCalibration.h"
#include "OmbrixProcessing.h"
#include "StackStatistics.h"
#include "VecCallback/PluginScenarios.h"
#include "mtf/MtfMeasurement.h"

namespace {

using testerrors::ExpectCvError;

namespace fs = std::filesystem;

const std::string kData = OMBRIX_TEST_DATA_DIR;

cv::Mat NoiseImage(int rows, int cols, double mean, double sigma, std::uint64_t seed) {
  datagen::Random rng(seed);
  cv::Mat image(rows, cols, CV_32F);
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x)
      image.at<float>(y, x) = static_cast<float>(mean + sigma * rng.Normal());
  }
  return image;
}

// A temporary folder removed at the end of the test.
class TempFolder {
 public:
  explicit TempFolder(const std::string& name)
      : path_(fs::temp_directory_path() / ("ombrix_processing_" + name)) {
    fs::remove_all(path_);
    fs::create_directories(path_);
  }
  ~TempFolder() { fs::remove_all(path_); }
  std::string File(const std::string& name) const { return (path_ / name).string(); }
  std::string Path() const { return path_.string(); }

 private:
  fs::path path_;
};

// ---- Dark reference -------------------------------------------------------------------------

struct DarkPair {
  cv::Mat d1, d150;
};

DarkPair MakeDarks(int rows, int cols) {
  DarkPair p{cv::Mat(rows, cols, CV_16U), cv::Mat(rows, cols, CV_16U)};
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x) {
      const int bias = 1000 + 3 * x - 2 * y;
      const int rate = (x * 7 + y * 13) % 50;  // ADU per s, hot ones up to 49
      p.d1.at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(bias + rate);
      p.d150.at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(bias + 150 * rate);
    }
  }
  return p;
}

TEST(DarkReference, InterpolatesLinearlyBetweenTheShortAndTheLongDark) {
  const DarkPair darks = MakeDarks(6, 7);
  CDarkReference reference;
  ASSERT_TRUE(reference.Set(darks.d150, darks.d1, cv::Mat()));
  for (const float t : {1.0f, 150.0f, 75.5f, 10.0f, 300.0f}) {
    cv::Mat dark;
    reference.DarkSignal(t, dark);
    ASSERT_EQ(dark.type(), CV_32F);
    for (int y = 0; y < 6; ++y) {
      for (int x = 0; x < 7; ++x) {
        const double d1 = darks.d1.at<std::uint16_t>(y, x);
        const double d150 = darks.d150.at<std::uint16_t>(y, x);
        const double expected = d1 + (d150 - d1) * (t - 1.0) / 149.0;
        EXPECT_NEAR(dark.at<float>(y, x), expected, 1e-6 * std::abs(expected) + 1e-4) << t;
      }
    }
  }
  // The end points are reproduced exactly.
  cv::Mat at1, at150, d1f, d150f;
  reference.DarkSignal(1.0f, at1);
  reference.DarkSignal(150.0f, at150);
  darks.d1.convertTo(d1f, CV_32F);
  darks.d150.convertTo(d150f, CV_32F);
  EXPECT_EQ(cv::norm(at1, d1f, cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(at150, d150f, cv::NORM_INF), 0.0);
}

TEST(DarkReference, SubtractMatchesTheElementReferenceOnRandomFrames) {
  datagen::Random rng(41);
  const DarkPair darks = MakeDarks(33, 29);
  CDarkReference reference;
  ASSERT_TRUE(reference.Set(darks.d150, darks.d1, cv::Mat()));
  for (int trial = 0; trial < 20; ++trial) {
    cv::Mat raw(33, 29, CV_16U);
    for (int i = 0; i < raw.rows * raw.cols; ++i) {
      raw.at<std::uint16_t>(i / raw.cols, i % raw.cols) =
          static_cast<std::uint16_t>(rng.Int(0, 65535));
    }
    const float t = static_cast<float>(rng.Uniform(0.0, 300.0));
    cv::Mat processed;
    reference.Subtract(raw, t, processed);
    EXPECT_EQ(cv::norm(processed, reference.SubtractReference(raw, t), cv::NORM_INF), 0.0);
  }
}

TEST(DarkReference, RefusesMissingEmptyAndMismatchedDarksAndKeepsThePreviousOne) {
  TempFolder folder("darks");
  const DarkPair darks = MakeDarks(8, 8);
  cv::imwrite(folder.File("long.tif"), darks.d150);
  cv::imwrite(folder.File("short.tif"), darks.d1);
  cv::imwrite(folder.File("small.tif"), cv::Mat(4, 8, CV_16U, cv::Scalar(5)));
  cv::Mat eight;
  darks.d1.convertTo(eight, CV_8U, 1.0 / 256.0);
  cv::imwrite(folder.File("eight.tif"), eight);
  cv::imwrite(folder.File("mask_small.tif"), cv::Mat(4, 4, CV_8U, cv::Scalar(0)));

  COmbrixProcessing plugin;
  EXPECT_FALSE(plugin.LoadDarkFrames(folder.File("missing.tif"), folder.File("short.tif"), ""));
  EXPECT_FALSE(plugin.LoadDarkFrames(folder.File("long.tif"), "", ""));
  EXPECT_FALSE(plugin.LoadDarkFrames(folder.File("long.tif"), folder.File("small.tif"), ""));
  EXPECT_FALSE(plugin.LoadDarkFrames(folder.File("long.tif"), folder.File("eight.tif"), ""));
  EXPECT_FALSE(plugin.DarkReference().Loaded());
  ASSERT_TRUE(plugin.LoadDarkFrames(folder.File("long.tif"), folder.File("short.tif"), ""));
  EXPECT_FALSE(plugin.LoadDarkFrames(folder.File("long.tif"), folder.File("short.tif"),
                                     folder.File("mask_small.tif")));
  EXPECT_FALSE(plugin.LoadDarkFrames(folder.File("long.tif"), folder.File("short.tif"),
                                     folder.File("no_mask.tif")));
  // The good reference loaded before the refusals is still in force.
  plugin.PushImage({darks.d150, 150.0f});
  EXPECT_EQ(cv::countNonZero(plugin.GetProcessedImage()), 0);
}

TEST(DarkReference, BadPixelsTakeTheMeanOfTheirGoodNeighbours) {
  const DarkPair darks = MakeDarks(5, 5);
  cv::Mat bad = cv::Mat::zeros(5, 5, CV_8U);
  bad.at<uchar>(2, 2) = 1;
  bad.at<uchar>(2, 3) = 1;
  CDarkReference reference;
  ASSERT_TRUE(reference.Set(darks.d150, darks.d1, bad));
  cv::Mat raw;
  darks.d150.convertTo(raw, CV_32F);
  for (int y = 0; y < 5; ++y) {
    for (int x = 0; x < 5; ++x) raw.at<float>(y, x) += static_cast<float>(10 * y + x);
  }
  raw.at<float>(2, 2) = 60000.0f;
  raw.at<float>(2, 3) = 60000.0f;
  cv::Mat processed;
  reference.Subtract(raw, 150.0f, processed);
  // Good neighbours of (2, 2): rows 1..3, columns 1..3 without (2, 2) and (2, 3).
  EXPECT_FLOAT_EQ(processed.at<float>(2, 2), (11 + 12 + 13 + 21 + 31 + 32 + 33) / 7.0f);
  EXPECT_FLOAT_EQ(processed.at<float>(2, 3), (12 + 13 + 14 + 24 + 32 + 33 + 34) / 7.0f);
  EXPECT_FLOAT_EQ(processed.at<float>(1, 1), 11.0f);
}

TEST(DarkReference, BadFramesRaiseClearErrors) {
  const DarkPair darks = MakeDarks(4, 4);
  CDarkReference reference;
  ASSERT_TRUE(reference.Set(darks.d150, darks.d1, cv::Mat()));
  cv::Mat out;
  ExpectCvError([&] { reference.Subtract(cv::Mat(), 150.0f, out); }, cv::Error::StsBadArg,
                "empty frame", "CDarkReference::Subtract");
  ExpectCvError([&] { reference.Subtract(cv::Mat(4, 5, CV_16U), 150.0f, out); },
                cv::Error::StsUnmatchedSizes, "frame and dark frames differ in size or channels",
                "CDarkReference::Subtract");
  ExpectCvError([&] { reference.Subtract(darks.d1, -1.0f, out); }, cv::Error::StsOutOfRange,
                "exposure must be finite and not negative", "CDarkReference::Subtract");
}

TEST(OmbrixProcessing, EveryPushedFrameGetsANewBuffer) {
  const DarkPair darks = MakeDarks(4, 4);
  COmbrixProcessing plugin;
  TempFolder folder("buffers");
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

// ---- Dark-chamber inspection ----------------------------------------------------------------

TEST(DarkChamberInspection, RobustStatisticsMatchTheSortedReference) {
  datagen::Random rng(5);
  for (int trial = 0; trial < 30; ++trial) {
    const int rows = rng.Int(1, 40), cols = rng.Int(1, 40);
    cv::Mat image(rows, cols, CV_32F);
    std::vector<float> values;
    for (int i = 0; i < rows * cols; ++i) {
      // Coarse values, so that ties and even counts occur.
      const float v = static_cast<float>(rng.Int(-20, 20)) * 0.5f;
      image.at<float>(i / cols, i % cols) = v;
      values.push_back(v);
    }
    double median = 0.0, noise = 0.0;
    CDarkChamberInspection::RobustStatistics(image, median, noise);
    const double referenceMedian = CDarkChamberInspection::MedianReference(values);
    std::vector<float> deviations;
    for (const float v : values)
      deviations.push_back(static_cast<float>(std::abs(v - referenceMedian)));
    EXPECT_EQ(median, referenceMedian);
    EXPECT_EQ(noise, 1.4826 * CDarkChamberInspection::MedianReference(deviations));
  }
}

TEST(DarkChamberInspection, PureNoiseAndIsolatedHotPixelsHaveNoDefect) {
  cv::Mat image = NoiseImage(256, 256, 0.0, 8.0, 11);
  EXPECT_EQ(CDarkChamberInspection::CountDefects(image), 0);
  datagen::Random rng(12);
  for (int i = 0; i < 200; ++i) image.at<float>(rng.Int(0, 255), rng.Int(0, 255)) = 5000.0f;
  EXPECT_EQ(CDarkChamberInspection::CountDefects(image), 0);
}

TEST(DarkChamberInspection, ALeakRegionOfSixteenConnectedPixelsCounts) {
  const cv::Mat noise = NoiseImage(128, 128, 0.0, 5.0, 21);
  cv::Mat image = noise.clone();
  image(cv::Rect(0, 40, 4, 4)) += cv::Scalar(200.0);  // 16 px at the left edge
  EXPECT_EQ(CDarkChamberInspection::CountDefects(image), 1);
  image = noise.clone();
  image(cv::Rect(0, 40, 3, 5)) += cv::Scalar(200.0);  // 15 px
  EXPECT_EQ(CDarkChamberInspection::CountDefects(image), 0);
  // Two regions, one of them a diagonal chain that is connected only through corners.
  image = noise.clone();
  image(cv::Rect(100, 100, 10, 10)) += cv::Scalar(200.0);
  for (int i = 0; i < 16; ++i) image.at<float>(10 + i, 50 + i) += 200.0f;
  EXPECT_EQ(CDarkChamberInspection::CountDefects(image), 2);
}

TEST(DarkChamberInspection, ThresholdIsSixRobustSigmasAboveTheMedian) {
  // Samples cycle 0, 1, 2: median 1, MAD 1, threshold 1 + 6 x 1.4826 = 9.8956 (a 25-pixel
  // region moves neither).
  cv::Mat image(64, 64, CV_32F);
  for (int i = 0; i < 64 * 64; ++i) image.at<float>(i / 64, i % 64) = static_cast<float>(i % 3);
  cv::Mat below = image.clone(), above = image.clone();
  below(cv::Rect(10, 10, 5, 5)).setTo(9.89f);
  above(cv::Rect(10, 10, 5, 5)).setTo(9.90f);
  EXPECT_EQ(CDarkChamberInspection::CountDefects(below), 0);
  EXPECT_EQ(CDarkChamberInspection::CountDefects(above), 1);
}

TEST(DarkChamberInspection, UnusableImagesAreNotAvailable) {
  EXPECT_EQ(CDarkChamberInspection::CountDefects(cv::Mat()), -1);
  EXPECT_EQ(CDarkChamberInspection::CountDefects(cv::Mat(8, 8, CV_32FC3, cv::Scalar::all(0))), -1);
  // Any depth is measured (here 16-bit with a 5 x 5 glow).
  cv::Mat sixteen(64, 64, CV_16U);
  for (int i = 0; i < 64 * 64; ++i) {
    sixteen.at<std::uint16_t>(i / 64, i % 64) = static_cast<std::uint16_t>(100 + i % 3);
  }
  sixteen(cv::Rect(20, 20, 5, 5)).setTo(200);
  EXPECT_EQ(CDarkChamberInspection::CountDefects(sixteen), 1);
}

// ---- Light-source calibration ---------------------------------------------------------------

TEST(LightSourceCalibration, FactorOfAKnownFlatFieldIsItsCentralMeanOverTheNominal) {
  // A vignetted field: 19816 ADU (0.9908 x 20000) over the central half, darker outside.
  cv::Mat field(200, 300, CV_32F, cv::Scalar(15000.0));
  field(CLightSourceCalibration::CentralRegion(field.size())).setTo(19816.0);
  EXPECT_EQ(CLightSourceCalibration::CentralRegion(field.size()), cv::Rect(75, 50, 150, 100));
  EXPECT_EQ(CLightSourceCalibration::Factor(field), 0.9908f);
  // Half the exposure, half the nominal level.
  cv::Mat half = field * 0.5;
  EXPECT_EQ(CLightSourceCalibration::Factor(half, 75.0), 0.9908f);
  // Only the centre matters.
  field(cv::Rect(0, 0, 75, 200)).setTo(0.0);
  EXPECT_EQ(CLightSourceCalibration::Factor(field), 0.9908f);
  // A gradient across the centre averages to its middle value.
  cv::Mat ramp(100, 100, CV_32F);
  for (int y = 0; y < 100; ++y) {
    for (int x = 0; x < 100; ++x) ramp.at<float>(y, x) = 19000.0f + 20.0f * x;
  }
  // Columns 25..74: mean column 49.5.
  EXPECT_FLOAT_EQ(CLightSourceCalibration::Factor(ramp), (19000.0f + 20.0f * 49.5f) / 20000.0f);
}

TEST(LightSourceCalibration, UnusableInputsAreNotAvailable) {
  EXPECT_EQ(CLightSourceCalibration::Factor(cv::Mat()), -1.0f);
  EXPECT_EQ(CLightSourceCalibration::Factor(cv::Mat(8, 8, CV_32FC2, cv::Scalar::all(1))), -1.0f);
  EXPECT_EQ(CLightSourceCalibration::Factor(cv::Mat(1, 8, CV_32F, cv::Scalar(1))), -1.0f);
  EXPECT_EQ(CLightSourceCalibration::Factor(cv::Mat(8, 8, CV_32F, cv::Scalar(1)), 0.0), -1.0f);
}

TEST(OmbrixProcessing, LightSourceFactorFollowsTheExposureOfTheFramesPushed) {
  COmbrixProcessing plugin;
  const cv::Mat flat(64, 64, CV_16U, cv::Scalar(9908));
  plugin.BeginImage();
  plugin.PushImage({flat, 75.0f});
  EXPECT_EQ(plugin.ComputeLightSourceFactor(plugin.GetProcessedImage()), 0.9908f);
}

// ---- Stack statistics -----------------------------------------------------------------------

TEST(StackStatistics, MinimumAndAverageOfFilledStacks) {
  COmbrixProcessing plugin;
  cv::Mat result;
  plugin.StackMinimum(result, scenarios::ConstantImages(CV_8UC1, 1.0));
  EXPECT_EQ(result.type(), CV_8UC1);
  EXPECT_EQ(result.at<uchar>(0, 0), 0);
  plugin.StackAverage(result, scenarios::ConstantImages(CV_8UC1, 10.0));
  EXPECT_EQ(result.type(), CV_8UC1);
  EXPECT_EQ(result.at<uchar>(2, 2), 45);
  plugin.StackAverage(result, scenarios::ConstantImages(CV_32FC1, 1.0));
  EXPECT_EQ(result.type(), CV_32FC1);
  EXPECT_EQ(result.at<float>(1, 1), 4.5f);
  // 8-bit means are rounded to nearest, ties to even: (0 + 1) / 2 and (1 + 2) / 2.
  plugin.StackAverage(result,
                      {cv::Mat(1, 2, CV_8U, cv::Scalar(0)), cv::Mat(1, 2, CV_8U, cv::Scalar(1))});
  EXPECT_EQ(result.at<uchar>(0, 0), 0);
  plugin.StackAverage(result,
                      {cv::Mat(1, 2, CV_8U, cv::Scalar(1)), cv::Mat(1, 2, CV_8U, cv::Scalar(2))});
  EXPECT_EQ(result.at<uchar>(0, 0), 2);
}

TEST(StackStatistics, MatchesTheElementReferencesOnRandomStacks) {
  datagen::Random rng(77);
  for (const int type : {CV_8UC1, CV_16UC1, CV_16SC1, CV_32FC1, CV_8UC3, CV_64FC1}) {
    for (int trial = 0; trial < 5; ++trial) {
      const int rows = rng.Int(1, 20), cols = rng.Int(1, 20), count = rng.Int(1, 7);
      std::vector<cv::Mat> images;
      for (int i = 0; i < count; ++i) {
        cv::Mat image(rows, cols, type);
        cv::Mat wide(rows, cols, CV_64FC(CV_MAT_CN(type)));
        for (int k = 0; k < rows * cols * image.channels(); ++k) {
          wide.ptr<double>(k / (cols * image.channels()))[k % (cols * image.channels())] =
              CV_MAT_DEPTH(type) >= CV_32F ? rng.Uniform(-100.0, 100.0) : rng.Int(0, 255);
        }
        wide.convertTo(image, CV_MAT_DEPTH(type));
        images.push_back(image);
      }
      cv::Mat minimum, average;
      CStackStatistics::Minimum(images, minimum);
      CStackStatistics::Average(images, average);
      EXPECT_EQ(minimum.type(), type);
      EXPECT_EQ(average.type(), type);
      EXPECT_EQ(cv::norm(minimum, CStackStatistics::MinimumReference(images), cv::NORM_INF), 0.0);
      EXPECT_EQ(cv::norm(average, CStackStatistics::AverageReference(images), cv::NORM_INF), 0.0);
    }
  }
}

TEST(StackStatistics, BadListsRaiseClearErrors) {
  COmbrixProcessing plugin;
  cv::Mat result;
  const cv::Mat a(3, 3, CV_8U, cv::Scalar(1));
  for (const bool average : {false, true}) {
    const std::string function =
        average ? "CStackStatistics::Average" : "CStackStatistics::Minimum";
    auto run = [&](const std::vector<cv::Mat>& images) {
      return [&, images] {
        if (average) {
          plugin.StackAverage(result, images);
        } else {
          plugin.StackMinimum(result, images);
        }
      };
    };
    ExpectCvError(run({}), cv::Error::StsBadArg, "empty image list", function);
    ExpectCvError(run({a, cv::Mat()}), cv::Error::StsBadArg, "empty image in the list", function);
    ExpectCvError(run({a, cv::Mat(3, 4, CV_8U)}), cv::Error::StsUnmatchedSizes,
                  "images differ in size", function);
    ExpectCvError(run({a, cv::Mat(3, 3, CV_16U)}), cv::Error::StsUnmatchedFormats,
                  "images differ in type", function);
    ExpectCvError(run({a, cv::Mat(3, 3, CV_8UC2)}), cv::Error::StsUnmatchedFormats,
                  "images differ in type", function);
  }
}

// ---- Technician's MTF figure -------------------------------------------------------------------

TEST(OmbrixProcessing, TechnicianFigureIsTheMeanEfficiencyOverEveryEdgeOfEveryTarget) {
  COmbrixProcessing plugin;
  for (const char* chart : {"FTM.tif", "TestEntreeFTM.tif"}) {
    const cv::Mat image = cv::imread(kData + chart, cv::IMREAD_UNCHANGED);
    ASSERT_FALSE(image.empty()) << chart;
    CMtfMeasurement measurement;
    const MtfTargetMap targets = measurement.MeasureTargets(image);
    double sum = 0.0;
    int edges = 0;
    for (const auto& target : targets) {
      for (const MtfEdge& edge : target.second.edges) {
        sum += edge.result.efficiency;
        ++edges;
      }
    }
    ASSERT_GT(edges, 4) << chart;
    EXPECT_NEAR(plugin.ComputeMtf(image), sum / edges, 1e-4) << chart;
  }
  EXPECT_EQ(plugin.ComputeMtf(cv::Mat()), -1.0f);
  EXPECT_EQ(plugin.ComputeMtf(cv::Mat(64, 64, CV_8U, cv::Scalar(128))), -1.0f);
}

// ---- The loadable module --------------------------------------------------------------------

TEST(OmbrixProcessingModule, LoadsThroughTheFactoryAndComputes) {
  CFactoryCollection collection;
  ASSERT_TRUE(collection.m_factoryProcessing.Load(std::string(OMBRIX_TEST_PROCESSING_MODULE)));
  std::shared_ptr<IOmbrixProcessing> plugin =
      collection.m_factoryProcessing.CreateInstance(std::shared_ptr<ILogger>());
  ASSERT_TRUE(plugin);
  cv::Mat result;
  plugin->StackAverage(result, scenarios::ConstantImages(CV_32FC1, 1.0));
  EXPECT_EQ(result.at<float>(0, 0), 4.5f);
  // Reserved slots are harmless.
  plugin->Reserved01();
  plugin->Reserved31();
  EXPECT_EQ(plugin->CountDarkChamberDefects(cv::Mat()), -1);
  EXPECT_FALSE(plugin->LoadDarkFrames("", "", ""));
  plugin.reset();
}

// ---- The scenario pipelines on the generated sets --------------------------------------------

// The dark-reference pipeline in process: frames of a folder minus the darks (when loaded).
std::vector<cv::Mat> ProcessedFrames(COmbrixProcessing& plugin, const std::string& folder,
                                     bool subtractDarks) {
  if (subtractDarks) {
    EXPECT_TRUE(plugin.LoadDarkFrames(folder + "/Black_150s.tif", folder + "/Black_1s.tif", ""));
  }
  std::vector<cv::String> files;
  cv::glob(folder + "/RawSignal_*.tif", files, false);
  EXPECT_GE(files.size(), 2u);
  std::vector<cv::Mat> frames;
  for (const auto& file : files) {
    plugin.BeginImage();
    plugin.PushImage({cv::imread(file, cv::IMREAD_UNCHANGED), 150.0f});
    frames.push_back(plugin.GetProcessedImage());
  }
  return frames;
}

cv::Mat MinimumOf(const std::vector<cv::Mat>& frames) {
  cv::Mat minimum = frames.front().clone();
  for (const cv::Mat& f : frames) cv::min(minimum, f, minimum);
  return minimum;
}

TEST(DarkChamberData, ClosedChambersAreCleanAndTheLeakIsFound) {
  for (const char* folder : {"DarkChamber", "DarkChamber2"}) {
    COmbrixProcessing plugin;
    EXPECT_EQ(
        plugin.CountDarkChamberDefects(MinimumOf(ProcessedFrames(plugin, kData + folder, true))), 0)
        << folder;
  }
  COmbrixProcessing plugin;
  EXPECT_GE(plugin.CountDarkChamberDefects(
                MinimumOf(ProcessedFrames(plugin, kData + "DarkChamberFail", true))),
            1);
}

TEST(DarkChamberData, TheLastFrameInPlaceOfTheMinimumCountsCosmicRays) {
  for (const char* folder : {"DarkChamber", "DarkChamber2"}) {
    COmbrixProcessing plugin;
    const std::vector<cv::Mat> frames = ProcessedFrames(plugin, kData + folder, true);
    EXPECT_GT(plugin.CountDarkChamberDefects(frames.back()), 0) << folder;
  }
}

TEST(DarkChamberData, WithoutDarkSubtractionHotPixelsStillDoNotMakeRegions) {
  // Hot pixels are isolated: the raw minimum has no 16-pixel region either, but the leak stays.
  COmbrixProcessing plugin;
  EXPECT_EQ(plugin.CountDarkChamberDefects(
                MinimumOf(ProcessedFrames(plugin, kData + "DarkChamber", false))),
            0);
}

struct ExpectedFactor {
  const char* folder;
  float factor;
};

TEST(LightSourceData, FactorsLandOnTheSourcesTrueFactors) {
  for (const ExpectedFactor e : {ExpectedFactor{"QT7M21013H", 0.9908f},
                                 {"QT7M21010B", 0.98178f},
                                 {"SNQT7M21013E_20degC", 0.9701563f},
                                 {"SNQT7M21013E_25degC", 0.968779f}}) {
    COmbrixProcessing plugin;
    const float factor =
        plugin.ComputeLightSourceFactor(MinimumOf(ProcessedFrames(plugin, kData + e.folder, true)));
    EXPECT_NEAR(factor, e.factor, 2e-5) << e.folder;
  }
}

TEST(LightSourceData, AFactorMeasuredWithoutDarkSubtractionMisses) {
  for (const ExpectedFactor e : {ExpectedFactor{"QT7M21013H", 0.9908f},
                                 {"QT7M21010B", 0.98178f},
                                 {"SNQT7M21013E_20degC", 0.9701563f},
                                 {"SNQT7M21013E_25degC", 0.968779f}}) {
    COmbrixProcessing plugin;
    const float factor = plugin.ComputeLightSourceFactor(
        MinimumOf(ProcessedFrames(plugin, kData + e.folder, false)));
    EXPECT_GT(std::abs(factor - e.factor), 1e-3f) << e.folder;
  }
}

TEST(LightSourceData, TheLastFrameInPlaceOfTheMinimumMisses) {
  // Without the minimum the cosmic rays and the noise's symmetric spread stay: the generator's
  // level accounts for the minimum's low bias, so a single frame reads high.
  COmbrixProcessing plugin;
  const std::vector<cv::Mat> frames = ProcessedFrames(plugin, kData + "QT7M21013H", true);
  EXPECT_GT(plugin.ComputeLightSourceFactor(frames.back()) - 0.9908f, 1e-3f);
}

TEST(LightSourceData, RepeatedMeasurementsAgreeWithinTheirDrift) {
  std::vector<float> factors;
  for (const char* m : {"Measure1", "Measure2", "Measure3"}) {
    COmbrixProcessing plugin;
    factors.push_back(plugin.ComputeLightSourceFactor(
        MinimumOf(ProcessedFrames(plugin, kData + "QT7M21013C/" + m, true))));
  }
  const float spread = *std::max_element(factors.begin(), factors.end()) -
                       *std::min_element(factors.begin(), factors.end());
  EXPECT_GT(spread, 0.0f);
  EXPECT_LE(spread, 0.0025f);
}

// ---- The suite's scenario bodies (run from the module's folder) -------------------------------

// Runs the body from the folder that holds the module, as the suite does, and goes back after.
class InSuiteFolder {
 public:
  InSuiteFolder() : previous_(fs::current_path()) {
    fs::current_path(fs::path(OMBRIX_TEST_PROCESSING_MODULE).parent_path());
  }
  ~InSuiteFolder() { fs::current_path(previous_); }

 private:
  fs::path previous_;
};

struct FolderOnly {
  std::string m_dataFolder;
};

TEST(PluginScenarios, FailureValueMinusOnePassesPass1AndFailsFail1) {
  TempFolder folder("no_raw");
  const DarkPair darks = MakeDarks(8, 8);
  fs::create_directories(folder.Path() + "/Chamber");
  cv::imwrite(folder.Path() + "/Chamber/Black_150s.tif", darks.d150);
  cv::imwrite(folder.Path() + "/Chamber/Black_1s.tif", darks.d1);
  InSuiteFolder here;
  const FolderOnly test{folder.Path() + "/"};
  const float value = scenarios::DarkChamberBody(test, "Chamber");
  EXPECT_EQ(value, -1.0f);
  EXPECT_TRUE(!(value > 0.0f));  // Pass_1's criterion holds
  EXPECT_FALSE(value > 0.0f);    // Fail_1's does not
  EXPECT_EQ(scenarios::LightSourceBody(test, "Missing"), -1.0f);
}

TEST(PluginScenarios, AFolderWithOneRawFrameGivesThatFramesValue) {
  TempFolder folder("one_raw");
  const DarkPair darks = MakeDarks(64, 64);
  fs::create_directories(folder.Path() + "/Source");
  cv::imwrite(folder.Path() + "/Source/Black_150s.tif", darks.d150);
  cv::imwrite(folder.Path() + "/Source/Black_1s.tif", darks.d1);
  cv::Mat raw;
  darks.d150.convertTo(raw, CV_16U);
  raw += cv::Scalar(19816);
  cv::imwrite(folder.Path() + "/Source/RawSignal_1.tif", raw);
  InSuiteFolder here;
  const FolderOnly test{folder.Path() + "/"};
  EXPECT_EQ(scenarios::LightSourceBody(test, "Source"), 0.9908f);
  EXPECT_EQ(scenarios::DarkChamberBody(test, "Source"), 0.0f);
}

TEST(PluginScenarios, GeneratedFoldersThroughTheLoadedModule) {
  InSuiteFolder here;
  const FolderOnly test{kData};
  EXPECT_EQ(scenarios::DarkChamberBody(test, "DarkChamber"), 0.0f);
  EXPECT_GT(scenarios::DarkChamberBody(test, "DarkChamberFail"), 0.0f);
  EXPECT_NEAR(scenarios::LightSourceBody(test, "QT7M21013H"), 0.9908f, 2e-5f);
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
  TempFolder folder("reused");
  const DarkPair darks = MakeDarks(8, 8);
  fs::create_directories(folder.Path() + "/Run");
  cv::imwrite(folder.Path() + "/Run/Black_150s.tif", darks.d150);
  cv::imwrite(folder.Path() + "/Run/Black_1s.tif", darks.d1);
  cv::imwrite(folder.Path() + "/Run/RawSignal_1.tif", cv::Mat(8, 8, CV_16U, cv::Scalar(100)));
  cv::imwrite(folder.Path() + "/Run/RawSignal_2.tif", cv::Mat(8, 8, CV_16U, cv::Scalar(300)));
  cv::imwrite(folder.Path() + "/Run/RawSignal_3.tif", cv::Mat(8, 8, CV_16U, cv::Scalar(200)));
  const auto corner = [](IOmbrixProcessing&, const cv::Mat& minimum) {
    return minimum.at<float>(0, 0);
  };
  const std::string data = folder.Path() + "/";
  CReusingPlugin reusing;
  // Deep copies keep every frame; shared results are the one buffer, holding the last frame.
  EXPECT_EQ(scenarios::RunDarkReferenceSequence(reusing, data, "Run",
                                                scenarios::FrameKeeping::kDeepCopy, corner),
            100.0f);
  EXPECT_EQ(scenarios::RunDarkReferenceSequence(reusing, data, "Run",
                                                scenarios::FrameKeeping::kShared, corner),
            200.0f);
  // Our plug-in gives every frame its own buffer, so both ways agree (raw minus the 150 s dark).
  COmbrixProcessing plugin;
  const float darkCorner = darks.d150.at<std::uint16_t>(0, 0);
  EXPECT_EQ(scenarios::RunDarkReferenceSequence(plugin, data, "Run",
                                                scenarios::FrameKeeping::kShared, corner),
            100.0f - darkCorner);
}

TEST(OmbrixProcessingModule, GetInstanceMakesOnlyVariantZero) {
  DynamicLibrary::Handle library = DynamicLibrary::Load(fs::path(OMBRIX_TEST_PROCESSING_MODULE));
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

TEST(PluginScenarios, DoubledSeparatorOfTheMtfFileNamesIsAccepted) {
  // The data folder ends in a separator and the file name starts with one.
  const cv::Mat image =
      cv::imread(kData + OMBRIX_SEP "DarkChamber" OMBRIX_SEP "Black_1s.tif", cv::IMREAD_UNCHANGED);
  EXPECT_FALSE(image.empty());
}

// ---- In-memory dark frames (slot 8) and the defect map (slot 14) ------------------------------

TEST(OmbrixProcessing, SetDarkFramesGivesTheReferenceOfLoadDarkFrames) {
  TempFolder folder("set_darks");
  const DarkPair darks = MakeDarks(9, 11);
  cv::Mat bad = cv::Mat::zeros(9, 11, CV_8U);
  bad.at<uchar>(4, 5) = 1;
  cv::imwrite(folder.File("long.tif"), darks.d150);
  cv::imwrite(folder.File("short.tif"), darks.d1);
  cv::imwrite(folder.File("bad.tif"), bad);
  cv::Mat raw;
  darks.d150.convertTo(raw, CV_16U);
  raw += cv::Scalar(250);
  raw.at<std::uint16_t>(4, 5) = 60000;
  for (const bool withMap : {false, true}) {
    COmbrixProcessing loaded;
    ASSERT_TRUE(loaded.LoadDarkFrames(folder.File("long.tif"), folder.File("short.tif"),
                                      withMap ? folder.File("bad.tif") : ""));
    COmbrixProcessing set;
    ASSERT_TRUE(set.SetDarkFrames(darks.d150, darks.d1, withMap ? bad : cv::Mat()));
    for (const float exposure : {1.0f, 37.5f, 150.0f}) {
      loaded.PushImage({raw, exposure});
      set.PushImage({raw, exposure});
      EXPECT_EQ(cv::norm(loaded.GetProcessedImage(), set.GetProcessedImage(), cv::NORM_INF), 0.0)
          << withMap << " " << exposure;
    }
  }
}

TEST(OmbrixProcessing, SetDarkFramesRefusesWhatLoadDarkFramesRefusesAndKeepsTheReference) {
  const DarkPair darks = MakeDarks(8, 8);
  cv::Mat eight;
  darks.d1.convertTo(eight, CV_8U, 1.0 / 256.0);
  COmbrixProcessing plugin;
  EXPECT_FALSE(plugin.SetDarkFrames(cv::Mat(), darks.d1, cv::Mat()));
  EXPECT_FALSE(plugin.SetDarkFrames(darks.d150, cv::Mat(), cv::Mat()));
  EXPECT_FALSE(plugin.SetDarkFrames(darks.d150, cv::Mat(4, 8, CV_16U, cv::Scalar(5)), cv::Mat()));
  EXPECT_FALSE(plugin.SetDarkFrames(darks.d150, eight, cv::Mat()));
  EXPECT_FALSE(plugin.DarkReference().Loaded());
  ASSERT_TRUE(plugin.SetDarkFrames(darks.d150, darks.d1, cv::Mat()));
  EXPECT_FALSE(plugin.SetDarkFrames(darks.d150, darks.d1, cv::Mat(4, 4, CV_8U, cv::Scalar(0))));
  EXPECT_FALSE(plugin.SetDarkFrames(darks.d150, darks.d1, cv::Mat(8, 8, CV_8UC3, cv::Scalar(0))));
  EXPECT_FALSE(
      plugin.SetDarkFrames(cv::Mat(8, 8, CV_16U, cv::Scalar(1)), darks.d1, cv::Mat(3, 3, CV_8U)));
  // The good reference set before the refusals is still in force.
  plugin.PushImage({darks.d150, 150.0f});
  EXPECT_EQ(cv::countNonZero(plugin.GetProcessedImage()), 0);
}

TEST(DarkChamberInspection, DefectMapHoldsTheRegionsCounted) {
  const cv::Mat noise = NoiseImage(128, 128, 0.0, 5.0, 31);
  cv::Mat image = noise.clone();
  image(cv::Rect(100, 100, 10, 10)) += cv::Scalar(200.0);                  // 100 px: counted
  image(cv::Rect(0, 40, 3, 5)) += cv::Scalar(200.0);                       // 15 px: too small
  for (int i = 0; i < 16; ++i) image.at<float>(10 + i, 50 + i) += 200.0f;  // corner-linked chain
  cv::Mat map;
  ASSERT_EQ(CDarkChamberInspection::CountDefects(image, map), 2);
  EXPECT_EQ(CDarkChamberInspection::CountDefects(image), 2);
  ASSERT_EQ(map.size(), image.size());
  ASSERT_EQ(map.type(), CV_8UC1);
  EXPECT_EQ(cv::countNonZero(map(cv::Rect(100, 100, 10, 10)) != 255), 0);
  EXPECT_EQ(cv::countNonZero(map(cv::Rect(0, 40, 3, 5))), 0);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(map.at<uchar>(10 + i, 50 + i), 255) << i;
  EXPECT_EQ(cv::countNonZero(map), 116);
  EXPECT_EQ(cv::countNonZero((map != 0) & (map != 255)), 0);
  // Unusable images release the map.
  EXPECT_EQ(CDarkChamberInspection::CountDefects(cv::Mat(), map), -1);
  EXPECT_TRUE(map.empty());
  CDarkChamberInspection::CountDefects(image, map);
  EXPECT_EQ(CDarkChamberInspection::CountDefects(cv::Mat(4, 4, CV_32FC3), map), -1);
  EXPECT_TRUE(map.empty());
}

// The dark-reference sequence of a scenario folder through a loaded plug-in object, the darks
// handed over in memory (slot 8); returns the minimum of the processed frames.
cv::Mat MinimumThroughSlots(IOmbrixProcessing& plugin, const std::string& folder) {
  EXPECT_TRUE(plugin.SetDarkFrames(cv::imread(folder + "/Black_150s.tif", cv::IMREAD_UNCHANGED),
                                   cv::imread(folder + "/Black_1s.tif", cv::IMREAD_UNCHANGED),
                                   cv::Mat()));
  std::vector<cv::String> files;
  cv::glob(folder + "/RawSignal_*.tif", files, false);
  std::vector<cv::Mat> frames;
  for (const auto& file : files) {
    plugin.BeginImage();
    plugin.PushImage({cv::imread(file, cv::IMREAD_UNCHANGED), 150.0f});
    frames.push_back(plugin.GetProcessedImage().clone());
  }
  return frames.empty() ? cv::Mat() : MinimumOf(frames);
}

TEST(OmbrixProcessingModule, DefectMapOfTheLastCountThroughTheLoadedModule) {
  CFactoryCollection collection;
  ASSERT_TRUE(collection.m_factoryProcessing.Load(std::string(OMBRIX_TEST_PROCESSING_MODULE)));
  std::shared_ptr<IOmbrixProcessing> plugin =
      collection.m_factoryProcessing.CreateInstance(std::shared_ptr<ILogger>());
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
