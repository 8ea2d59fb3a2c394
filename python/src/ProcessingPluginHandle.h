// The processing plug-in as the Python module holds it: the library loaded through a factory
// collection of its own, one plug-in object, and the scenario sequences run on frames in memory.
// Accepts the images the plug-in accepts (16-bit sensor frames and darks, 8-bit bad-pixel maps).
#pragma once

#include <memory>
#include <mutex>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "FactoryCollection.h"
#include "IOmbrixProcessing.h"
#include "PluginScenarios.h"

class ProcessingPluginHandle {
 public:
  // Throws std::invalid_argument when the library cannot be loaded or makes no object.
  explicit ProcessingPluginHandle(const std::string& modulePath);
  // The object goes before the collection that unloads its library.
  ~ProcessingPluginHandle() { plugin_.reset(); }
  ProcessingPluginHandle(const ProcessingPluginHandle&) = delete;
  ProcessingPluginHandle& operator=(const ProcessingPluginHandle&) = delete;

  float DarkChamberDefects(const scenarios::DarkFrames& darks, const std::vector<cv::Mat>& frames);
  float LightSourceFactor(const scenarios::DarkFrames& darks, const std::vector<cv::Mat>& frames);
  scenarios::DetectionOutput DetectSpots(const scenarios::DarkFrames& darks, const cv::Mat& image,
                                         const AlgoParameters& parameters);
  // A copy of the defect map of the last dark-chamber count.
  cv::Mat DefectMap();

  const std::string& ModulePath() const { return modulePath_; }

 private:
  std::string modulePath_;
  CFactoryCollection collection_;
  std::shared_ptr<IOmbrixProcessing> plugin_;
  // The object keeps state from one call to the next (darks, the frame pushed last): one
  // sequence at a time, whichever Python thread calls.
  std::mutex mutex_;
};
