#include "PluginScenarios.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgcodecs.hpp>

namespace scenarios {

std::shared_ptr<IOmbrixProcessing> MakeProcessingPlugin(CFactoryCollection& collection,
                                                        const std::string& modulePath) {
  collection.m_factoryProcessing.Load(modulePath);
  return collection.m_factoryProcessing.CreateInstance(std::shared_ptr<ILogger>());
}

std::shared_ptr<IOmbrixProcessing> MakeCheckedProcessingPlugin(CFactoryCollection& collection,
                                                               const std::string& modulePath) {
  if (!collection.m_factoryProcessing.Load(modulePath)) return nullptr;
  const DynamicLibrary::Handle library = collection.m_factoryProcessing.LibraryHandle();
  if (DynamicLibrary::Resolve(library, "GetInstance") == nullptr) return nullptr;
  return collection.m_factoryProcessing.CreateInstance(std::shared_ptr<ILogger>());
}

std::vector<cv::String> RawFrameFiles(const std::string& folder) {
  std::vector<cv::String> files;
  cv::glob(folder + kRawFramePattern, files, false);
  return files;
}

std::vector<std::string> DarkFrameFiles(const std::string& folder) {
  return {folder + kLongDarkFile, folder + kShortDarkFile};
}

namespace {

// One raw frame through the plug-in, its processed form kept as the sequence keeps them.
void ProcessFrame(IOmbrixProcessing& plugin, const cv::Mat& image, FrameKeeping keeping,
                  std::vector<cv::Mat>& processed) {
  plugin.BeginImage();
  ExposedImage frame;
  frame.image = image;
  frame.exposure = kExposure;
  plugin.PushImage(frame);
  cv::Mat result = plugin.GetProcessedImage();
  if (keeping == FrameKeeping::kDeepCopy) {
    cv::Mat copy;
    result.copyTo(copy);
    processed.push_back(copy);
  } else {
    processed.push_back(result);
  }
}

float FinishWithMinimum(IOmbrixProcessing& plugin, const std::vector<cv::Mat>& processed,
                        const DarkReferenceFinish& finish) {
  cv::Mat minimum = processed.front().clone();
  for (const cv::Mat& frame : processed) cv::min(minimum, frame, minimum);
  return finish(plugin, minimum);
}

}  // namespace

float RunDarkReferenceSequence(IOmbrixProcessing& plugin, const std::string& folder,
                               FrameKeeping keeping, const DarkReferenceFinish& finish) {
  const std::vector<std::string> darks = DarkFrameFiles(folder);
  if (!plugin.LoadDarkFrames(darks[0], darks[1], std::string())) return -1.0f;
  const std::vector<cv::String> files = RawFrameFiles(folder);
  if (files.empty()) return -1.0f;
  std::vector<cv::Mat> processed;
  for (const cv::String& file : files) {
    ProcessFrame(plugin, cv::imread(file, cv::IMREAD_UNCHANGED), keeping, processed);
  }
  return FinishWithMinimum(plugin, processed, finish);
}

float RunDarkReferenceSequence(IOmbrixProcessing& plugin, const DarkFrames& darks,
                               const std::vector<cv::Mat>& rawFrames, FrameKeeping keeping,
                               const DarkReferenceFinish& finish) {
  if (!plugin.SetDarkFrames(darks.longDark, darks.shortDark, darks.badPixels)) return -1.0f;
  if (rawFrames.empty()) return -1.0f;
  std::vector<cv::Mat> processed;
  for (const cv::Mat& image : rawFrames) ProcessFrame(plugin, image, keeping, processed);
  return FinishWithMinimum(plugin, processed, finish);
}

float DarkReferenceBody(const std::string& modulePath, const std::string& folder,
                        FrameKeeping keeping, const DarkReferenceFinish& finish) {
  CFactoryCollection collection;
  std::shared_ptr<IOmbrixProcessing> plugin = MakeProcessingPlugin(collection, modulePath);
  if (!plugin) return -1.0f;
  return RunDarkReferenceSequence(*plugin, folder, keeping, finish);
}

namespace {

float CountDefects(IOmbrixProcessing& plugin, const cv::Mat& minimum) {
  return static_cast<float>(plugin.CountDarkChamberDefects(minimum));
}

float LightSourceFactor(IOmbrixProcessing& plugin, const cv::Mat& minimum) {
  return plugin.ComputeLightSourceFactor(minimum);
}

}  // namespace

float RunDarkChamberSequence(IOmbrixProcessing& plugin, const std::string& folder) {
  return RunDarkReferenceSequence(plugin, folder, FrameKeeping::kDeepCopy, CountDefects);
}

float RunDarkChamberSequence(IOmbrixProcessing& plugin, const DarkFrames& darks,
                             const std::vector<cv::Mat>& rawFrames) {
  return RunDarkReferenceSequence(plugin, darks, rawFrames, FrameKeeping::kDeepCopy, CountDefects);
}

float DarkChamberBody(const std::string& modulePath, const std::string& folder) {
  return DarkReferenceBody(modulePath, folder, FrameKeeping::kDeepCopy, CountDefects);
}

float RunLightSourceSequence(IOmbrixProcessing& plugin, const std::string& folder) {
  return RunDarkReferenceSequence(plugin, folder, FrameKeeping::kShared, LightSourceFactor);
}

float RunLightSourceSequence(IOmbrixProcessing& plugin, const DarkFrames& darks,
                             const std::vector<cv::Mat>& rawFrames) {
  return RunDarkReferenceSequence(plugin, darks, rawFrames, FrameKeeping::kShared,
                                  LightSourceFactor);
}

float LightSourceBody(const std::string& modulePath, const std::string& folder) {
  return DarkReferenceBody(modulePath, folder, FrameKeeping::kShared, LightSourceFactor);
}

namespace {

// The detection steps after the darks: the image pushed at kExposure, mode 2, detection with
// level 2 and true.
void DetectInImage(IOmbrixProcessing& plugin, const cv::Mat& image, DetectionOutput& output) {
  plugin.BeginImage();
  ExposedImage frame;
  frame.image = image;
  frame.exposure = kExposure;
  plugin.PushImage(frame);
  plugin.SetAlgorithmMode(2);
  plugin.DetectObjects(output.objects, output.labelImage, output.overlayImage, 2, true);
  output.completed = true;
}

}  // namespace

DetectionOutput RunDetectionSequence(IOmbrixProcessing& plugin, const std::string& folder,
                                     const std::string& imageName,
                                     const AlgoParameters& parameters) {
  DetectionOutput output;
  plugin.SetAlgoParameters(parameters);
  const std::vector<std::string> darks = DarkFrameFiles(folder);
  if (!plugin.LoadDarkFrames(darks[0], darks[1], std::string())) return output;
  DetectInImage(plugin, cv::imread(folder + OMBRIX_SEP + imageName, cv::IMREAD_UNCHANGED), output);
  return output;
}

DetectionOutput RunDetectionSequence(IOmbrixProcessing& plugin, const DarkFrames& darks,
                                     const cv::Mat& image, const AlgoParameters& parameters) {
  DetectionOutput output;
  plugin.SetAlgoParameters(parameters);
  if (!plugin.SetDarkFrames(darks.longDark, darks.shortDark, darks.badPixels)) return output;
  DetectInImage(plugin, image, output);
  return output;
}

int DetectionBody(const std::string& modulePath, const std::string& folder,
                  const std::string& imageName, const AlgoParameters& parameters) {
  CFactoryCollection collection;
  std::shared_ptr<IOmbrixProcessing> plugin = MakeProcessingPlugin(collection, modulePath);
  if (!plugin) return -1;
  const DetectionOutput output = RunDetectionSequence(*plugin, folder, imageName, parameters);
  return output.Count();
}

float MeasureTechnicianChart(IOmbrixProcessing& plugin, const std::string& imagePath) {
  const cv::Mat image = cv::imread(imagePath, cv::IMREAD_UNCHANGED);
  return plugin.ComputeMtf(image);
}

std::vector<float> TechnicianBody(const std::string& modulePath, const std::string& dataFolder) {
  CFactoryCollection collection;
  std::shared_ptr<IOmbrixProcessing> plugin = MakeProcessingPlugin(collection, modulePath);
  std::vector<float> values;
  for (const char* chart : kTechnicianCharts) {
    values.push_back(MeasureTechnicianChart(*plugin, dataFolder + chart));
  }
  return values;
}

std::vector<cv::Mat> ConstantImages(int type, double step) {
  std::vector<cv::Mat> images;
  for (int i = 0; i < 10; ++i) {
    cv::Mat image = cv::Mat::zeros(3, 3, type);
    image.setTo(cv::Scalar(i * step));
    images.push_back(image);
  }
  return images;
}

std::vector<cv::Mat> StackImages(StackScenario scenario) {
  switch (scenario) {
    case StackScenario::kMinimum:
      return ConstantImages(CV_8UC1, 1.0);
    case StackScenario::kAverage8U:
      return ConstantImages(CV_8UC1, 10.0);
    case StackScenario::kAverage32F:
      return ConstantImages(CV_32FC1, 1.0);
  }
  return {};
}

cv::Mat RunStackSequence(IOmbrixProcessing& plugin, StackScenario scenario) {
  const std::vector<cv::Mat> images = StackImages(scenario);
  cv::Mat result;
  if (scenario == StackScenario::kMinimum) {
    plugin.StackMinimum(result, images);
  } else {
    plugin.StackAverage(result, images);
  }
  return result;
}

cv::Mat StackBody(const std::string& modulePath, StackScenario scenario) {
  CFactoryCollection collection;
  std::shared_ptr<IOmbrixProcessing> plugin = MakeProcessingPlugin(collection, modulePath);
  if (!plugin) return cv::Mat();
  return RunStackSequence(*plugin, scenario);
}

bool FactorIsNotNegative(float factor) { return !(factor < 0.0f); }

bool FactorMatches(float factor, float expected) {
  return !(std::fabs(factor - expected) > kFactorTolerance);
}

bool RepeatabilityHolds(float first, float second, float third) {
  const float largest = std::max({first, second, third});
  const float smallest = std::min({first, second, third});
  return !(largest - smallest > kRepeatabilitySpread);
}

bool PositiveControlHolds(int count) { return count >= kPositiveControlMinimum; }

}  // namespace scenarios
