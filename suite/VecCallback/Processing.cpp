// Test classes of the Processing namespace: filters, MTF measurement, stack statistics and the
// processing plug-in's scenarios, each checked against the reference data in UnitTestData.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "DataFolder.h"
#include "Harness.h"
#include "ImageCompare.h"
#include "Platform.h"
#include "PluginScenarios.h"
#include "filters/FilterCosmicRay.h"
#include "filters/GaussianBlur.h"
#include "filters/Wavelet.h"
#include "mtf/MtfMeasurement.h"
#include "stack/TemporalNoise.h"

using harness::Assert;

namespace Processing {

TEST_CLASS(Median16U) {
 public:
  std::string m_dataFolder = FindDataFolder();

  TEST_METHOD(CompareImageJ) {
    [[maybe_unused]] const std::filesystem::path workingDirectory = std::filesystem::current_path();
    const cv::Mat expected = cv::imread(m_dataFolder + "MedianDst.tif", cv::IMREAD_UNCHANGED);
    const cv::Mat input = cv::imread(m_dataFolder + "MedianSrc.tif", cv::IMREAD_UNCHANGED);
    cv::Mat output;
    CFilterCosmicRay::MedianBlur(input, output, 10);
    const double maxVal = RegionMaxDifference(expected, output, 10);
    Assert::IsTrue(maxVal == 0.0);
  }
};

TEST_CLASS(Outliers) {
 public:
  std::string m_dataFolder = FindDataFolder();

  TEST_METHOD(CompareImageJ1) {
    [[maybe_unused]] const std::filesystem::path workingDirectory = std::filesystem::current_path();
    const cv::Mat expected = cv::imread(m_dataFolder + "MedianDst10-100.tif", cv::IMREAD_UNCHANGED);
    const cv::Mat input = cv::imread(m_dataFolder + "MedianSrc.tif", cv::IMREAD_UNCHANGED);
    const CFilterCosmicRay filter(10, 100);
    cv::Mat output;
    filter.Process(input, output, cv::Mat());
    const double maxVal = RegionMaxDifference(expected, output, 10);
    Assert::IsTrue(maxVal == 0.0);
  }

  TEST_METHOD(CompareImageJ2) {
    [[maybe_unused]] const std::filesystem::path workingDirectory = std::filesystem::current_path();
    const cv::Mat expected = cv::imread(m_dataFolder + "CosmicRay10-100.tif", cv::IMREAD_UNCHANGED);
    const cv::Mat input = cv::imread(m_dataFolder + "CosmicRay.tif", cv::IMREAD_UNCHANGED);
    const CFilterCosmicRay filter(10, 100);
    cv::Mat output;
    filter.Process(input, output, cv::Mat());
    // The tolerance is deliberate: the filter restores the clean frame to within the noise.
    const double maxVal = RegionMaxDifference(expected, output, 10);
    Assert::IsTrue(maxVal < 105.0);
  }
};

// Blurs src into dst with a fresh CGaussianBlur and returns the elapsed milliseconds.
static double TimedBlur(const cv::Mat& src, cv::Mat& dst, double sigma, bool separable) {
  CGaussianBlur blur(static_cast<int>(sigma));
  const auto start = std::chrono::steady_clock::now();
  blur.Apply(src, dst, separable);
  const auto stop = std::chrono::steady_clock::now();
  const auto nanoseconds =
      std::chrono::duration_cast<std::chrono::nanoseconds>(stop - start).count();
  return static_cast<double>(nanoseconds / 1000000);
}

// A class that opens with a test method is misread by clang-format.
// clang-format off
TEST_CLASS(GaussianBlur) {
 public:
  TEST_METHOD(Sigma_2) {
    CGaussianBlur blur(2);
    const int n = blur.Kernel2D().cols;
    cv::Mat image = cv::Mat::zeros(n, n, CV_16UC1);
    image.at<unsigned short>(n / 2, n / 2) = 4000;
    cv::Mat separable, twoD;
    TimedBlur(image, separable, 2, true);
    TimedBlur(image, twoD, 2, false);
    Assert::IsTrue(ImagesEqual(separable, twoD));
    Assert::IsTrue(separable.at<unsigned short>(10, 10) == 159);
    Assert::IsTrue(separable.at<unsigned short>(10, 11) == 140);
  }

  TEST_METHOD(Sigma_7) {
    CGaussianBlur blur(7);
    const int n = blur.Kernel2D().cols;
    cv::Mat image = cv::Mat::zeros(n, n, CV_16UC1);
    image.at<unsigned short>(n / 2, n / 2) = 4000;
    cv::Mat separable, twoD;
    TimedBlur(image, separable, 7, true);
    TimedBlur(image, twoD, 7, false);
    Assert::IsTrue(ImagesEqual(separable, twoD));
    Assert::IsTrue(separable.at<unsigned short>(32, 32) == 13);
  }
};
// clang-format on

TEST_CLASS(PowerProcess) {
 public:
  std::string m_dataFolder = FindDataFolder();

  TEST_METHOD(Sigma_2) {
    CGaussianBlur blur(2);
    const cv::Mat image = cv::imread(m_dataFolder + "Power.tif", cv::IMREAD_UNCHANGED);
    cv::Mat result = blur.PowerProcess(image, {2, 3, 5, 7});
    cv::normalize(result, result, 0.0, 1024.0, cv::NORM_MINMAX, -1);
    // Both are inequality checks; 1840.29 lies outside the normalised range.
    Assert::IsTrue(result.at<float>(162, 92) != 1014.1f);
    Assert::IsTrue(static_cast<double>(result.at<float>(55, 129)) != 1840.29);
  }
};

TEST_CLASS(Wavelet) {
 public:
  std::string m_dataFolder = FindDataFolder();

  TEST_METHOD(Proc) {
    CWavelet wavelet({0.0625, 0.25, 0.375, 0.25, 0.0625}, 4.0f);
    const cv::Mat image = cv::imread(m_dataFolder + "Power.tif", cv::IMREAD_UNCHANGED);
    const cv::Mat mask = cv::Mat::ones(image.size(), CV_8U);
    wavelet.Decompose(image, 0, cv::Mat());
    cv::Mat out;
    wavelet.ExtractStructures(out, 0, 3.0f, mask, cv::Mat());
    Assert::IsTrue(out.at<float>(162, 90) == 50.0f);
    Assert::IsTrue(out.at<float>(55, 126) == 24.0f);
  }
};

// The plug-in's stack methods (Minimum, Average_8U, Average_32F) join this class.
TEST_CLASS(Stack) {
 public:
  std::string m_dataFolder = FindDataFolder();

  TEST_METHOD(TemporalNoise) {
    CTemporalNoise noise;
    std::vector<cv::String> files;
    cv::glob(m_dataFolder + OMBRIX_SEP "TemporalNoise" OMBRIX_SEP "RawNoise_*.tif", files, false);
    for (const cv::String& file : files) {
      noise.AddImage(cv::imread(file, cv::IMREAD_UNCHANGED));
    }
    const cv::Mat result =
        noise.Compute(std::bind(&CTemporalNoise::StandardDeviation, &noise, std::placeholders::_1));
    cv::Scalar mean, stddev;
    cv::meanStdDev(result(cv::Rect(924, 924, 200, 200)), mean, stddev);
    Assert::IsTrue(static_cast<int>(stddev[0]) == 17);
  }

  TEST_METHOD(Minimum) {
    CFactoryCollection collection;
    std::shared_ptr<IOmbrixProcessing> plugin =
        scenarios::MakeProcessingPlugin(collection, OMBRIX_PROCESSING_MODULE);
    Assert::IsTrue(plugin != nullptr);
    const cv::Mat result = scenarios::RunStackSequence(*plugin, scenarios::StackScenario::kMinimum);
    Assert::IsTrue(result.at<uchar>(0, 0) == 0);
  }

  TEST_METHOD(Average_8U) {
    CFactoryCollection collection;
    std::shared_ptr<IOmbrixProcessing> plugin =
        scenarios::MakeProcessingPlugin(collection, OMBRIX_PROCESSING_MODULE);
    Assert::IsTrue(plugin != nullptr);
    const cv::Mat result =
        scenarios::RunStackSequence(*plugin, scenarios::StackScenario::kAverage8U);
    Assert::IsTrue(result.at<uchar>(0, 0) == 45);
  }

  TEST_METHOD(Average_32F) {
    CFactoryCollection collection;
    std::shared_ptr<IOmbrixProcessing> plugin =
        scenarios::MakeProcessingPlugin(collection, OMBRIX_PROCESSING_MODULE);
    Assert::IsTrue(plugin != nullptr);
    const cv::Mat result =
        scenarios::RunStackSequence(*plugin, scenarios::StackScenario::kAverage32F);
    Assert::IsTrue(result.at<float>(0, 0) == 4.5f);
  }
};

// The processing plug-in's scenarios: the bodies and the folder conventions are those of the
// scenario library (PluginScenarios.h), run on the module next to the suite.

// A failure value of -1.0 passes Pass_1 and Pass_2 and fails Fail_1.
TEST_CLASS(VerifDarkChamber) {
 public:
  std::string m_dataFolder = FindDataFolder();

  VerifDarkChamber() {
    std::cout << "VerifDarkChamber use directory: " << m_dataFolder << std::endl;
  }

  TEST_METHOD(Fail_1) {
    const float value = DarkChamber("DarkChamberFail");
    Assert::IsTrue(value > 0.0f);
  }

  TEST_METHOD(Pass_1) {
    const float value = DarkChamber("DarkChamber");
    Assert::IsTrue(!(value > 0.0f));
  }

  TEST_METHOD(Pass_2) {
    const float value = DarkChamber("DarkChamber2");
    Assert::IsTrue(!(value > 0.0f));
  }

 private:
  float DarkChamber(const std::string& folder) const {
    return scenarios::DarkChamberBody(OMBRIX_PROCESSING_MODULE, m_dataFolder + folder);
  }
};

TEST_CLASS(LighSourceCalibration) {
 public:
  std::string m_dataFolder = FindDataFolder();

  LighSourceCalibration() {
    std::cout << "LighSourceCalibration use directory: " << m_dataFolder << std::endl;
  }

  TEST_METHOD(Repetability) {
    const float first = LightSource(scenarios::kRepeatabilityFolders[0]);
    const float second = LightSource(scenarios::kRepeatabilityFolders[1]);
    const float third = LightSource(scenarios::kRepeatabilityFolders[2]);
    Assert::IsTrue(scenarios::RepeatabilityHolds(first, second, third));
  }

  TEST_METHOD(SNQT7M21013E_20degC) { CheckFactor("SNQT7M21013E_20degC", 0.9701563f); }

  TEST_METHOD(SNQT7M21013E_25degC) { CheckFactor("SNQT7M21013E_25degC", 0.968779f); }

  // Runs the calibration on every source and checks nothing: it passes unless something throws.
  TEST_METHOD(SNQT7Mxxxxxx) {
    for (const char* folder : scenarios::kLightSourceFolders) LightSource(folder);
  }

  TEST_METHOD(QT7M21010B) { CheckFactor("QT7M21010B", 0.98178f); }

  TEST_METHOD(QT7M21013H) { CheckFactor("QT7M21013H", 0.9908f); }

 private:
  float LightSource(const std::string& folder) const {
    return scenarios::LightSourceBody(OMBRIX_PROCESSING_MODULE, m_dataFolder + folder);
  }

  // Two separate checks, each failing the test on its own; single precision throughout.
  void CheckFactor(const std::string& folder, float expected) {
    const float value = LightSource(folder);
    Assert::IsTrue(scenarios::FactorIsNotNegative(value));
    Assert::IsTrue(scenarios::FactorMatches(value, expected));
  }
};

TEST_CLASS(VerifAlgo) {
 public:
  std::string m_dataFolder = FindDataFolder();

  VerifAlgo() { std::cout << "VerifAlgo use directory: " << m_dataFolder << std::endl; }

  TEST_METHOD(LowExposure) { Assert::IsTrue(!(Run("LowExposure.tif", false) > 0)); }

  TEST_METHOD(PTC_AlgoNominal) { Assert::IsTrue(Run("PTC.tif", true) == 117); }

  TEST_METHOD(PTC_NegatifCtrl) { Assert::IsTrue(Run("PTC_NEG.tif", false) == 0); }

  TEST_METHOD(PTC_PositifCtrl) {
    Assert::IsTrue(scenarios::PositiveControlHolds(Run("PTC.tif", false)));
  }

  TEST_METHOD(Test_1) { Assert::IsTrue(!(Run("Image_1.tif", true) > 0)); }

 private:
  // The record every method passes; only the flag differs.
  int Run(const std::string& imageName, bool flag) const {
    return scenarios::DetectionBody(OMBRIX_PROCESSING_MODULE,
                                    m_dataFolder + scenarios::kValidationFolder, imageName,
                                    ValidationAlgoParameters(flag));
  }
};

TEST_CLASS(MTF) {
 public:
  std::string m_dataFolder = FindDataFolder();
  CMtfMeasurement m_measurement;

  MTF() { std::cout << "MTF use directory: " << m_dataFolder << std::endl; }

  TEST_METHOD(TargetDetection) {
    cv::Mat image = cv::imread(m_dataFolder + "FTM.tif", cv::IMREAD_UNCHANGED);
    MtfTargetMap targets = m_measurement.MeasureTargets(image);
    Assert::IsTrue(targets.size() == 5);
    image = cv::imread(m_dataFolder + "FTM2.tif", cv::IMREAD_UNCHANGED);
    targets = m_measurement.MeasureTargets(image);
    Assert::IsTrue(targets.size() == 5);
  }

  TEST_METHOD(CutFrequency) {
    cv::Mat image = cv::imread(m_dataFolder + "MTF_Edge1.tif", cv::IMREAD_UNCHANGED);
    MtfResult sharp;
    m_measurement.MeasureEdge(image, sharp);
    Assert::IsTrue(sharp.cutFrequency >= 0.55f);
    Assert::IsTrue(0.6f >= sharp.cutFrequency);
    image = cv::imread(m_dataFolder + "MTF_Edge2.tif", cv::IMREAD_UNCHANGED);
    MtfResult soft;
    m_measurement.MeasureEdge(image, soft);
    Assert::IsTrue(soft.cutFrequency >= 0.2f);
    Assert::IsTrue(0.25f >= soft.cutFrequency);
  }

  TEST_METHOD(Efficiency) {
    cv::Mat image = cv::imread(m_dataFolder + "MTF_Edge1.tif", cv::IMREAD_UNCHANGED);
    MtfResult sharp;
    m_measurement.MeasureEdge(image, sharp);
    Assert::IsTrue(sharp.efficiency >= 99.5f);
    Assert::IsTrue(100.0f >= sharp.efficiency);
    image = cv::imread(m_dataFolder + "MTF_Edge2.tif", cv::IMREAD_UNCHANGED);
    MtfResult soft;
    m_measurement.MeasureEdge(image, soft);
    Assert::IsTrue(soft.efficiency >= 45.0f);
    Assert::IsTrue(45.5f >= soft.efficiency);
  }

  // Through the plug-in. The file names start with a separator although the folder ends in one.
  TEST_METHOD(TechnicianApproach) {
    CFactoryCollection collection;
    std::shared_ptr<IOmbrixProcessing> plugin =
        scenarios::MakeProcessingPlugin(collection, OMBRIX_PROCESSING_MODULE);
    float value =
        scenarios::MeasureTechnicianChart(*plugin, m_dataFolder + scenarios::kTechnicianCharts[0]);
    Assert::IsTrue(value >= 47.0f);
    Assert::IsTrue(48.0f >= value);
    value =
        scenarios::MeasureTechnicianChart(*plugin, m_dataFolder + scenarios::kTechnicianCharts[1]);
    Assert::IsTrue(value >= 37.0f);
    Assert::IsTrue(38.0f >= value);
  }
};

}  // namespace Processing
