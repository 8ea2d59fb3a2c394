// The processing plug-in's scenarios: the folder conventions of the reference data and the call
// sequences that drive a plug-in object through them (dark chamber, light source, detection,
// technician MTF, stack). Each sequence runs on a caller's IOmbrixProcessing object and, as a
// self-contained body, on an object of its own made from a module path (relative paths resolve
// against the working directory). A scenario folder is one string, e.g. data folder +
// "DarkChamber"; the paths inside it are plain concatenations with the platform separator.
//
// A self-contained body declares its CFactoryCollection first and the plug-in pointer after it,
// and its frame, file and object lists after the pointer, so that tear-down runs lists, plug-in
// object, then the collection (which unloads the library).
#pragma once

#include <functional>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "FactoryCollection.h"
#include "IOmbrixProcessing.h"
#include "Platform.h"

namespace scenarios {

// ---- Folder conventions -----------------------------------------------------------------------

// Every dark-chamber, light-source and validation folder holds the two master darks; the first two
// also hold the raw frames, taken at kExposure seconds.
inline constexpr const char* kLongDarkFile = OMBRIX_SEP "Black_150s.tif";
inline constexpr const char* kShortDarkFile = OMBRIX_SEP "Black_1s.tif";
inline constexpr const char* kRawFramePattern = OMBRIX_SEP "RawSignal_*.tif";
inline constexpr float kExposure = 150.0f;

// The detection algorithm's validation folder.
inline constexpr const char* kValidationFolder = "ValidationAlgo1";

// The light sources calibrated one after the other, in run order.
inline constexpr const char* kLightSourceFolders[] = {
    "QT7M21013G", "QT7M21013F", "QT7M21013E", "QT7M21013D", "QT7M21013B",
    "QT7M21013A", "QT7M21010A", "QT7M21013C", "QT7M21010B", "QT7M21013H"};

// Three measurements of one light source, for its repeatability.
inline constexpr const char* kRepeatabilityFolders[] = {"QT7M21013C" OMBRIX_SEP "Measure1",
                                                        "QT7M21013C" OMBRIX_SEP "Measure2",
                                                        "QT7M21013C" OMBRIX_SEP "Measure3"};

// The technician's MTF charts, appended to the data folder as they are (they start with a
// separator although the data folder ends in one).
inline constexpr const char* kTechnicianCharts[] = {OMBRIX_SEP "FTM.tif",
                                                    OMBRIX_SEP "TestEntreeFTM.tif"};

// The raw frames of a dark-chamber or light-source folder, in cv::glob order (the order the
// sequence pushes them in); empty when there is none.
std::vector<cv::String> RawFrameFiles(const std::string& folder);

// The paths of the folder's long (150 s) and short (1 s) master darks, in that order.
std::vector<std::string> DarkFrameFiles(const std::string& folder);

// ---- The plug-in object ------------------------------------------------------------------------

// Loads the module into the collection's processing factory (the result is deliberately not
// checked: without the library the entry call faults) and makes one object with an empty logger.
// The object must be released before the collection.
std::shared_ptr<IOmbrixProcessing> MakeProcessingPlugin(CFactoryCollection& collection,
                                                        const std::string& modulePath);

// The same for callers that must survive a wrong path (the Python module, the ombrix tool): an
// empty pointer when
// the library cannot be loaded or exports no "GetInstance" entry, instead of the fault.
std::shared_ptr<IOmbrixProcessing> MakeCheckedProcessingPlugin(CFactoryCollection& collection,
                                                               const std::string& modulePath);

// ---- Frames in memory --------------------------------------------------------------------------

// The inputs a folder holds, for callers that have them in memory: the two master darks (150 s
// and 1 s) with an optional bad-pixel map, handed over through SetDarkFrames instead of
// LoadDarkFrames.
struct DarkFrames {
  cv::Mat longDark;
  cv::Mat shortDark;
  cv::Mat badPixels;
};

// ---- Dark-reference sequence (dark chamber, light source) --------------------------------------

// How the sequence keeps the processed frames: the dark chamber keeps a deep copy of each, the
// light source the returned image itself (sharing its pixels with the plug-in's result, so a
// plug-in that reuses one buffer leaves that buffer repeated).
enum class FrameKeeping { kDeepCopy, kShared };

// What the sequence does with the minimum image: its figure.
using DarkReferenceFinish = std::function<float(IOmbrixProcessing& plugin, const cv::Mat& minimum)>;

// Dark frames, every raw frame of the folder in cv::glob order pushed at kExposure, the pixel-wise
// minimum of the processed frames (started from a clone of the first and combined with every
// frame, the first included), handed to finish. -1.0 when the dark frames are refused or there is
// no raw frame. The frame and file lists are gone when it returns.
float RunDarkReferenceSequence(IOmbrixProcessing& plugin, const std::string& folder,
                               FrameKeeping keeping, const DarkReferenceFinish& finish);

// The same with an object of its own: -1.0 when the object is empty.
float DarkReferenceBody(const std::string& modulePath, const std::string& folder,
                        FrameKeeping keeping, const DarkReferenceFinish& finish);

// The same sequence on frames in memory: the darks through SetDarkFrames, then the raw frames in
// the order of the list. -1.0 when the darks are refused or the list is empty.
float RunDarkReferenceSequence(IOmbrixProcessing& plugin, const DarkFrames& darks,
                               const std::vector<cv::Mat>& rawFrames, FrameKeeping keeping,
                               const DarkReferenceFinish& finish);

// Dark-chamber value of a folder: the number of defects as float, or -1.0.
float RunDarkChamberSequence(IOmbrixProcessing& plugin, const std::string& folder);
float RunDarkChamberSequence(IOmbrixProcessing& plugin, const DarkFrames& darks,
                             const std::vector<cv::Mat>& rawFrames);
float DarkChamberBody(const std::string& modulePath, const std::string& folder);

// Light-source factor of a folder, or -1.0.
float RunLightSourceSequence(IOmbrixProcessing& plugin, const std::string& folder);
float RunLightSourceSequence(IOmbrixProcessing& plugin, const DarkFrames& darks,
                             const std::vector<cv::Mat>& rawFrames);
float LightSourceBody(const std::string& modulePath, const std::string& folder);

// ---- Detection sequence ------------------------------------------------------------------------

// What the detection left: the objects with the two diagnostic images, or completed false when the
// sequence gave up (empty object, dark frames refused).
struct DetectionOutput {
  bool completed = false;
  std::vector<DetectedObject> objects;
  cv::Mat labelImage;
  cv::Mat overlayImage;

  // The scenario's figure: the number of objects, or -1 when the sequence gave up.
  int Count() const { return completed ? static_cast<int>(objects.size()) : -1; }
};

// Parameters, dark frames, one image of the folder pushed at kExposure, mode 2, detection with
// level 2 and true.
DetectionOutput RunDetectionSequence(IOmbrixProcessing& plugin, const std::string& folder,
                                     const std::string& imageName,
                                     const AlgoParameters& parameters);

// The same on an image in memory, the darks through SetDarkFrames.
DetectionOutput RunDetectionSequence(IOmbrixProcessing& plugin, const DarkFrames& darks,
                                     const cv::Mat& image, const AlgoParameters& parameters);

// The same with an object of its own; the number of objects, or -1. The list and the images go
// before the object.
int DetectionBody(const std::string& modulePath, const std::string& folder,
                  const std::string& imageName, const AlgoParameters& parameters);

// ---- Technician's MTF --------------------------------------------------------------------------

// The plug-in's MTF figure of a chart image read unchanged from imagePath.
float MeasureTechnicianChart(IOmbrixProcessing& plugin, const std::string& imagePath);

// Every chart of kTechnicianCharts in turn, on one object of its own (no check for an empty
// object: the calls are made on it as it is).
std::vector<float> TechnicianBody(const std::string& modulePath, const std::string& dataFolder);

// ---- Verdicts of the scenario methods -----------------------------------------------------------

// The light-source methods make two separate checks, each failing on its own, in single
// precision: the factor is not negative, and it lies within kFactorTolerance of the expected one.
inline constexpr float kFactorTolerance = 0.0001f;
bool FactorIsNotNegative(float factor);
bool FactorMatches(float factor, float expected);

// Repeatability: the largest minus the smallest of three factors is at most kRepeatabilitySpread
// (single precision; a spread equal to it passes).
inline constexpr float kRepeatabilitySpread = 0.005f;
bool RepeatabilityHolds(float first, float second, float third);

// The positive control of the detection finds at least this many objects.
inline constexpr int kPositiveControlMinimum = 19;
bool PositiveControlHolds(int count);

// ---- Stack -------------------------------------------------------------------------------------

enum class StackScenario {
  kMinimum,     // StackMinimum of ten 8-bit images holding 0, 1, ..., 9
  kAverage8U,   // StackAverage of ten 8-bit images holding 0, 10, ..., 90
  kAverage32F,  // StackAverage of ten float images holding 0, 1, ..., 9
};

// Ten constant 3 x 3 images of the given type holding 0, step, ..., 9 x step.
std::vector<cv::Mat> ConstantImages(int type, double step);

// The scenario's input images.
std::vector<cv::Mat> StackImages(StackScenario scenario);

// The scenario's one stack call; the result image.
cv::Mat RunStackSequence(IOmbrixProcessing& plugin, StackScenario scenario);

// The same with an object of its own; an empty image when the object is empty.
cv::Mat StackBody(const std::string& modulePath, StackScenario scenario);

}  // namespace scenarios
