#include "OmbrixProcessing.h"

#include <utility>

#include "DarkChamberInspection.h"
#include "LightSourceCalibration.h"
#include "StackStatistics.h"
#include "mtf/MtfMeasurement.h"

COmbrixProcessing::COmbrixProcessing(std::shared_ptr<ILogger> logger)
    : logger_(std::move(logger)) {}

bool COmbrixProcessing::LoadDarkFrames(const std::string& longDarkPath,
                                       const std::string& shortDarkPath,
                                       const std::string& badPixelPath) {
  return dark_.Load(longDarkPath, shortDarkPath, badPixelPath);
}

bool COmbrixProcessing::SetDarkFrames(const cv::Mat& longDark150, const cv::Mat& shortDark1,
                                      const cv::Mat& badPixels) {
  return dark_.Set(longDark150, shortDark1, badPixels);
}

float COmbrixProcessing::ComputeLightSourceFactor(const cv::Mat& minimumImage) {
  return CLightSourceCalibration::Factor(minimumImage, lastExposure_);
}

int COmbrixProcessing::CountDarkChamberDefects(const cv::Mat& minimumImage) {
  return CDarkChamberInspection::CountDefects(minimumImage, defectMap_);
}

cv::Mat COmbrixProcessing::GetDefectMap() { return defectMap_.clone(); }

float COmbrixProcessing::ComputeMtf(const cv::Mat& targetImage) {
  // The plug-in reports failure through its result only: an image OpenCV cannot measure (a
  // 3-D matrix, an unsupported depth) has no figure.
  try {
    CMtfMeasurement measurement;
    const MtfTargetMap targets = measurement.MeasureTargets(targetImage);
    return static_cast<float>(CMtfMeasurement::MeanEfficiency(targets));
  } catch (const cv::Exception&) {
    return -1.0f;
  }
}

void COmbrixProcessing::SetAlgorithmMode(int mode) { detector_.SetMode(mode); }

void COmbrixProcessing::BeginImage() { processed_.release(); }

void COmbrixProcessing::PushImage(const ExposedImage& frame) {
  // A new buffer each time: the host may still hold the previous result.
  cv::Mat processed;
  dark_.Subtract(frame.image, frame.exposure, processed);
  processed_ = processed;
  lastExposure_ = frame.exposure;
}

cv::Mat COmbrixProcessing::GetProcessedImage() { return processed_; }

bool COmbrixProcessing::SetAlgoParameters(const AlgoParameters& parameters) {
  return detector_.Configure(parameters);
}

void COmbrixProcessing::DetectObjects(std::vector<DetectedObject>& objects, cv::Mat& labelImage,
                                      cv::Mat& overlayImage, int level, bool keepContours) {
  if (processed_.empty()) {
    objects.clear();
    labelImage.release();
    overlayImage.release();
    return;
  }
  detector_.Detect(processed_, objects, labelImage, overlayImage, level, keepContours);
}

void COmbrixProcessing::StackMinimum(cv::Mat& result, const std::vector<cv::Mat>& images) {
  CStackStatistics::Minimum(images, result);
}

void COmbrixProcessing::StackAverage(cv::Mat& result, const std::vector<cv::Mat>& images) {
  CStackStatistics::Average(images, result);
}
