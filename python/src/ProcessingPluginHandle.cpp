#include "ProcessingPluginHandle.h"

#include <stdexcept>

ProcessingPluginHandle::ProcessingPluginHandle(const std::string& modulePath)
    : modulePath_(modulePath) {
  plugin_ = scenarios::MakeCheckedProcessingPlugin(collection_, modulePath);
  if (!plugin_) {
    throw std::invalid_argument("cannot load the processing plug-in from " + modulePath);
  }
}

float ProcessingPluginHandle::DarkChamberDefects(const scenarios::DarkFrames& darks,
                                                 const std::vector<cv::Mat>& frames) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return scenarios::RunDarkChamberSequence(*plugin_, darks, frames);
}

float ProcessingPluginHandle::LightSourceFactor(const scenarios::DarkFrames& darks,
                                                const std::vector<cv::Mat>& frames) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return scenarios::RunLightSourceSequence(*plugin_, darks, frames);
}

scenarios::DetectionOutput ProcessingPluginHandle::DetectSpots(const scenarios::DarkFrames& darks,
                                                               const cv::Mat& image,
                                                               const AlgoParameters& parameters) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return scenarios::RunDetectionSequence(*plugin_, darks, image, parameters);
}

cv::Mat ProcessingPluginHandle::DefectMap() {
  const std::lock_guard<std::mutex> lock(mutex_);
  const cv::Mat map = plugin_->GetDefectMap();
  return map.empty() ? cv::Mat() : map.clone();
}
