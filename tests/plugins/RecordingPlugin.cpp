// Test plug-in whose "GetInstance" makes an object that records its creation (with the arguments
// it was given) and its destruction, so that tests can observe ownership and unload order.
#include <memory>
#include <string>

#include "IOmbrixProcessing.h"
#include "ModuleLifetime.h"

namespace {

std::string Describe(const cv::Mat& image) {
  return image.empty() ? std::string("empty")
                       : std::to_string(image.rows) + "x" + std::to_string(image.cols);
}

class CRecordingProcessing : public IOmbrixProcessing, private ObjectLifetime {
 public:
  CRecordingProcessing(int variant, bool hasLogger) : ObjectLifetime(variant, hasLogger) {}

  bool LoadDarkFrames(const std::string& longDark, const std::string& shortDark,
                      const std::string& bias) override {
    RecordModuleEvent("LoadDarkFrames " + longDark + "|" + shortDark + "|" + bias);
    return false;
  }
  bool SetDarkFrames(const cv::Mat& longDark, const cv::Mat& shortDark,
                     const cv::Mat& badPixels) override {
    RecordModuleEvent("SetDarkFrames " + Describe(longDark) + "|" + Describe(shortDark) + "|" +
                      Describe(badPixels));
    return !badPixels.empty();
  }
  float ComputeLightSourceFactor(const cv::Mat&) override { return -1.0f; }
  int CountDarkChamberDefects(const cv::Mat&) override { return -1; }
  float ComputeMtf(const cv::Mat& target) override { return static_cast<float>(target.cols); }
  // A map whose size tells which call made it.
  cv::Mat GetDefectMap() override {
    RecordModuleEvent("GetDefectMap");
    return cv::Mat(2, 5, CV_8U, cv::Scalar(255));
  }
  void SetAlgorithmMode(int mode) override {
    RecordModuleEvent("SetAlgorithmMode " + std::to_string(mode));
  }
  void BeginImage() override {}
  void PushImage(const ExposedImage&) override {}
  cv::Mat GetProcessedImage() override { return cv::Mat(); }
  bool SetAlgoParameters(const AlgoParameters&) override { return true; }
  void DetectObjects(std::vector<DetectedObject>& objects, cv::Mat&, cv::Mat&, int level,
                     bool) override {
    objects.resize(static_cast<std::size_t>(level));
  }
  void StackMinimum(cv::Mat&, const std::vector<cv::Mat>&) override {}
  void StackAverage(cv::Mat&, const std::vector<cv::Mat>&) override {}
};

}  // namespace

extern "C" OMBRIX_PLUGIN_API IOmbrixProcessing* GetInstance(int variant,
                                                            std::shared_ptr<ILogger> logger) {
  return new CRecordingProcessing(variant, logger != nullptr);
}
