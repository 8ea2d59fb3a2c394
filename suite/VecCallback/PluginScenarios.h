// Scenario bodies shared by the suite's processing plug-in classes (VerifDarkChamber,
// LighSourceCalibration, VerifAlgo, Stack, MTF): making the plug-in object through a factory
// collection, the dark-reference sequence that feeds the dark-chamber and light-source figures,
// and the Stack methods' constant images. A body takes its test object for the data folder;
// paths are plain concatenations.
//
// Every body declares its CFactoryCollection first and the plug-in pointer after it, and its
// frame and file lists after the pointer, so that tear-down runs lists, plug-in object, then the
// collection (which unloads the library).
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "FactoryCollection.h"
#include "IOmbrixProcessing.h"
#include "Platform.h"

namespace scenarios {

// Loads the processing library into the collection's processing factory (the result is
// deliberately not checked: without the library the entry call faults) and makes one object with
// an empty logger. The object must be released before the collection.
inline std::shared_ptr<IOmbrixProcessing> MakeProcessingPlugin(CFactoryCollection& collection) {
  collection.m_factoryProcessing.Load(std::string(OMBRIX_PROCESSING_MODULE));
  return collection.m_factoryProcessing.CreateInstance(std::shared_ptr<ILogger>());
}

// How the dark-reference sequence keeps the processed frames: the dark chamber keeps a deep copy
// of each, the light source the returned image itself (sharing its pixels with the plug-in's
// result, so a plug-in that reuses one buffer leaves that buffer repeated).
enum class FrameKeeping { kDeepCopy, kShared };

// Steps of the dark-reference sequence on a plug-in object: dark frames, every
// "RawSignal_*.tif" of the folder in cv::glob order pushed at 150 s, the pixel-wise minimum of
// the processed frames (started from a clone of the first and combined with every frame, the first
// included), handed to finish(plugin, minimum). -1.0 when the dark frames are refused or there is
// no raw frame. The frame and file lists are gone when it returns.
template <class Finish>
float RunDarkReferenceSequence(IOmbrixProcessing& plugin, const std::string& dataFolder,
                               const std::string& subfolder, FrameKeeping keeping, Finish finish) {
  if (!plugin.LoadDarkFrames(dataFolder + subfolder + OMBRIX_SEP "Black_150s.tif",
                             dataFolder + subfolder + OMBRIX_SEP "Black_1s.tif", std::string())) {
    return -1.0f;
  }
  std::vector<cv::String> files;
  cv::glob(dataFolder + subfolder + OMBRIX_SEP "RawSignal_*.tif", files, false);
  if (files.empty()) return -1.0f;
  std::vector<cv::Mat> processed;
  for (const cv::String& file : files) {
    plugin.BeginImage();
    const cv::Mat image = cv::imread(file, cv::IMREAD_UNCHANGED);
    ExposedImage frame;
    frame.image = image;
    frame.exposure = 150.0f;
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
  cv::Mat minimum = processed.front().clone();
  for (const cv::Mat& frame : processed) cv::min(minimum, frame, minimum);
  return finish(plugin, minimum);
}

// The whole sequence with a plug-in object of its own: -1.0 when the object is empty.
template <class Finish>
float DarkReferenceSequence(const std::string& dataFolder, const std::string& subfolder,
                            FrameKeeping keeping, Finish finish) {
  CFactoryCollection collection;
  std::shared_ptr<IOmbrixProcessing> plugin = MakeProcessingPlugin(collection);
  if (!plugin) return -1.0f;
  return RunDarkReferenceSequence(*plugin, dataFolder, subfolder, keeping, finish);
}

// Dark-chamber value of a folder: the number of defects as float, or -1.0.
template <class Test>
float DarkChamberBody(const Test& test, const std::string& subfolder) {
  return DarkReferenceSequence(test.m_dataFolder, subfolder, FrameKeeping::kDeepCopy,
                               [](IOmbrixProcessing& plugin, const cv::Mat& minimum) {
                                 return static_cast<float>(plugin.CountDarkChamberDefects(minimum));
                               });
}

// Light-source factor of a folder, or -1.0.
template <class Test>
float LightSourceBody(const Test& test, const std::string& subfolder) {
  return DarkReferenceSequence(test.m_dataFolder, subfolder, FrameKeeping::kShared,
                               [](IOmbrixProcessing& plugin, const cv::Mat& minimum) {
                                 return plugin.ComputeLightSourceFactor(minimum);
                               });
}

// The Stack methods' input: ten constant 3 x 3 images of the given type holding 0, step, ...,
// 9 x step.
inline std::vector<cv::Mat> ConstantImages(int type, double step) {
  std::vector<cv::Mat> images;
  for (int i = 0; i < 10; ++i) {
    cv::Mat image = cv::Mat::zeros(3, 3, type);
    image.setTo(cv::Scalar(i * step));
    images.push_back(image);
  }
  return images;
}

}  // namespace scenarios
