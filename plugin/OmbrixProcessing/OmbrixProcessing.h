// The processing plug-in object that OmbrixProcessing.so (.dll on Windows) makes through its
// "GetInstance" entry: dark subtraction, dark-chamber inspection, light-source calibration, the
// technician's MTF figure, spot detection and stack statistics behind IOmbrixProcessing.
//
// Behaviour of the operations the host calls:
// - LoadDarkFrames(long150, short1, badPixels): reads both master darks unchanged; false when
//   either is missing or empty or they differ in size or type, or when a non-empty third path is
//   not a single-channel bad-pixel map of their size (non-zero = bad). On false the previous
//   reference stays.
// - SetDarkFrames(long150, short1, badPixels): the same from images in memory (an empty map means
//   none), through the same CDarkReference::Set: same checks, same reference.
// - BeginImage / PushImage / GetProcessedImage: the processed frame is raw - D(t), 32-bit float,
//   with D(t) = D1 + (D150 - D1)(t - 1)/149 per pixel (t the frame's exposure, seconds); bad pixels
//   take the mean of their good neighbours. Every pushed frame gets a new buffer, so a caller may
//   keep earlier results. BeginImage forgets the frame; GetProcessedImage before a push gives an
//   empty image. Bad frames raise cv::Exception at PushImage (see CDarkReference::Subtract).
// - CountDarkChamberDefects(min): light-leak regions, CDarkChamberInspection (8-connected regions
//   of at least 16 px more than 6 x 1.4826 x MAD above the median); -1 for an unusable image.
// - GetDefectMap(): a copy of the defect map of the last CountDarkChamberDefects: CV_8U of the
//   image's size, 255 on the pixels of the regions counted; empty before the first count and after
//   a count of -1.
// - ComputeLightSourceFactor(min): central mean (middle half each way) over the nominal level,
//   20000 ADU for 150 s, scaled to the exposure of the last frame pushed (150 s when none was);
//   -1 for an unusable image or a last exposure of 0 s (CLightSourceCalibration).
// - ComputeMtf(image): the technician's figure: the mean efficiency (percent) over every edge of
//   every target that the MTF measurement (CMtfMeasurement::MeasureTargets) finds; -1 when none
//   or when OpenCV cannot read the image (it never throws).
// - SetAlgoParameters / SetAlgorithmMode / DetectObjects: spot detection (CSpotDetector) on the
//   processed form of the frame last pushed. The mode selects the detector variant (1 every
//   footprint, 2 validated objects); an unknown mode keeps the current one. DetectObjects' int is
//   the detector's output level (0 no images, 1 label image, 2 label image and mask) and its bool
//   keeps the contours. With no frame pushed the list is cleared and both images released.
// - StackMinimum / StackAverage: CStackStatistics (input type kept; 8-bit means rounded, float
//   exact); cv::Exception for an empty list, an empty image, or mixed sizes or types.
// - The reserved slots do nothing.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "DarkReference.h"
#include "IOmbrixProcessing.h"
#include "SpotDetector.h"

class COmbrixProcessing : public IOmbrixProcessing {
 public:
  explicit COmbrixProcessing(std::shared_ptr<ILogger> logger = nullptr);
  ~COmbrixProcessing() override = default;

  bool LoadDarkFrames(const std::string& longDarkPath, const std::string& shortDarkPath,
                      const std::string& badPixelPath) override;

  bool SetDarkFrames(const cv::Mat& longDark150, const cv::Mat& shortDark1,
                     const cv::Mat& badPixels) override;

  float ComputeLightSourceFactor(const cv::Mat& minimumImage) override;
  int CountDarkChamberDefects(const cv::Mat& minimumImage) override;
  float ComputeMtf(const cv::Mat& targetImage) override;

  cv::Mat GetDefectMap() override;

  void SetAlgorithmMode(int mode) override;

  void BeginImage() override;
  void PushImage(const ExposedImage& frame) override;
  cv::Mat GetProcessedImage() override;

  bool SetAlgoParameters(const AlgoParameters& parameters) override;

  void DetectObjects(std::vector<DetectedObject>& objects, cv::Mat& labelImage,
                     cv::Mat& overlayImage, int level, bool keepContours) override;

  void StackMinimum(cv::Mat& result, const std::vector<cv::Mat>& images) override;
  void StackAverage(cv::Mat& result, const std::vector<cv::Mat>& images) override;

  const CDarkReference& DarkReference() const { return dark_; }

 private:
  std::shared_ptr<ILogger> logger_;
  CDarkReference dark_;
  CSpotDetector detector_;
  cv::Mat processed_;  // processed form of the frame last pushed; empty after BeginImage
  cv::Mat defectMap_;  // defect map of the last CountDarkChamberDefects
  float lastExposure_ = CDarkReference::kLongExposure;
};
