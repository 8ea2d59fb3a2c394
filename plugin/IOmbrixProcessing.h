// Binary contract between the host and the processing plug-in library: the plug-in object's
// virtual operations in table order, the records passed across, and the "GetInstance" entry that
// makes an object. Host and plug-in must be built against the same OpenCV and standard library.
// The types every plug-in kind shares (logger, entry decoration) are in PluginTypes.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "PluginTypes.h"

// One frame handed to the plug-in together with its exposure time in seconds.
struct ExposedImage {
  cv::Mat image;
  float exposure = 0.0f;
};

// Parameters of the detection algorithm. The layout is part of the binary contract (36 bytes,
// natural alignment); the values the host uses are given per field.
struct AlgoParameters {
  // 3: disc radius of the outlier filter, pixels.
  std::int32_t cosmicRayRadius;
  // 100: outlier threshold above the local median.
  std::int32_t cosmicRayThreshold;
  // 2: Gaussian sigma of the background smoothing.
  std::int32_t smoothingSigma;
  // 1000: largest accepted object area, pixels (2 padding bytes follow).
  std::uint16_t maxObjectArea;
  // 2: smallest accepted object radius, pixels.
  std::int32_t minObjectRadius;
  // 3.2: detection threshold in units of the background noise.
  float thresholdFactor;
  // 800: weakest peak a control object must reach.
  std::int32_t minControlPeak;
  // 0x00050046: high half the border margin in pixels (5), low half the minimum circularity in
  // percent (70).
  std::uint32_t marginAndCircularity;
  // true for nominal runs, false for control runs (3 padding bytes follow).
  bool nominalMode;

  static constexpr std::uint32_t PackMarginAndCircularity(std::uint16_t borderMargin,
                                                          std::uint16_t minCircularityPercent) {
    return (static_cast<std::uint32_t>(borderMargin) << 16) | minCircularityPercent;
  }
  constexpr std::uint16_t BorderMargin() const {
    return static_cast<std::uint16_t>(marginAndCircularity >> 16);
  }
  constexpr std::uint16_t MinCircularityPercent() const {
    return static_cast<std::uint16_t>(marginAndCircularity & 0xFFFFu);
  }
};

// The record the host's validation runs pass, the same for every run but the mode flag: radius 3,
// threshold 100, sigma 2, area 1000, radius 2, factor 3.2, control peak 800, margin 5 with
// circularity 70 % (0x00050046), and the flag.
constexpr AlgoParameters ValidationAlgoParameters(bool nominalMode) {
  return AlgoParameters{
      3, 100, 2, 1000, 2, 3.2f, 800, AlgoParameters::PackMarginAndCircularity(5, 70), nominalMode};
}

static_assert(sizeof(AlgoParameters) == 36, "AlgoParameters is 36 bytes across the boundary");
static_assert(alignof(AlgoParameters) == 4, "AlgoParameters uses 4-byte natural alignment");
static_assert(offsetof(AlgoParameters, cosmicRayRadius) == 0, "AlgoParameters field 1");
static_assert(offsetof(AlgoParameters, cosmicRayThreshold) == 4, "AlgoParameters field 2");
static_assert(offsetof(AlgoParameters, smoothingSigma) == 8, "AlgoParameters field 3");
static_assert(offsetof(AlgoParameters, maxObjectArea) == 12, "AlgoParameters field 4");
static_assert(offsetof(AlgoParameters, minObjectRadius) == 16, "AlgoParameters field 5");
static_assert(offsetof(AlgoParameters, thresholdFactor) == 20, "AlgoParameters field 6");
static_assert(offsetof(AlgoParameters, minControlPeak) == 24, "AlgoParameters field 7");
static_assert(offsetof(AlgoParameters, marginAndCircularity) == 28, "AlgoParameters field 8");
static_assert(offsetof(AlgoParameters, nominalMode) == 32, "AlgoParameters field 9");

// One detected object: 56 bytes of plain measurements the host never reads, then the object's
// contour. Releasing a record releases only the contour.
struct DetectedObject {
  double centroidX = 0.0;  // intensity-weighted centre, pixels
  double centroidY = 0.0;
  double area = 0.0;         // pixels
  double circularity = 0.0;  // 4*pi*area/perimeter^2
  std::int32_t boxX = 0;     // bounding box
  std::int32_t boxY = 0;
  std::int32_t boxWidth = 0;
  std::int32_t boxHeight = 0;
  std::int32_t peak = 0;   // brightest sample above background
  std::int32_t label = 0;  // index of the object in the label image
  std::vector<cv::Point> contour;
};

static_assert(sizeof(cv::Point) == 8, "contour points are pairs of 32-bit integers");
static_assert(offsetof(DetectedObject, contour) == 56, "56 leading plain-data bytes");
#if INTPTR_MAX == INT64_MAX
static_assert(sizeof(DetectedObject) == 80, "DetectedObject is 80 bytes on 64-bit targets");
#endif

// The processing plug-in object. The order of declaration is the order of the virtual table and
// must never change: the host and the plug-in are compiled separately and meet only through the
// table. Slot numbers in the comments count from the destructor at slot 0, which is how MSVC lays
// out the table (one deleting-destructor entry). On the Itanium C++ ABI (GCC, Clang on POSIX) the
// virtual destructor takes two entries (complete and deleting), so every later operation sits one
// entry further; the declaration order keeps both layouts consistent with their own compilers.
// Operations the host never calls are kept as reserved entries that do nothing, so that the
// numbering holds; implementations need not define them.
//
// A reserved entry is named after its slot (Reserved09 is slot 9), and a run of them is declared
// in one line, so that the numbers can be read against the slot comments at a glance.
#define OMBRIX_RESERVED_SLOT(n) \
  virtual void Reserved##n() {}
#define OMBRIX_RESERVED_SLOTS_2(a, b) OMBRIX_RESERVED_SLOT(a) OMBRIX_RESERVED_SLOT(b)
#define OMBRIX_RESERVED_SLOTS_6(a, b, c, d, e, f) \
  OMBRIX_RESERVED_SLOTS_2(a, b) OMBRIX_RESERVED_SLOTS_2(c, d) OMBRIX_RESERVED_SLOTS_2(e, f)

class IOmbrixProcessing {
 public:
  virtual ~IOmbrixProcessing() = default;  // slot 0

  OMBRIX_RESERVED_SLOTS_6(01, 02, 03, 04, 05, 06)  // slots 1 to 6

  // Slot 7: the long and short dark references; the third path is kept for a bias frame and
  // is passed empty. False means the references are unusable.
  virtual bool LoadDarkFrames(const std::string& longDarkPath, const std::string& shortDarkPath,
                              const std::string& biasPath) = 0;

  // Slot 8: the in-memory counterpart of LoadDarkFrames: the long (150 s) and short (1 s) dark
  // frames and a bad-pixel map (empty: none), with the same checks and the same result.
  virtual bool SetDarkFrames(const cv::Mat& longDark150, const cv::Mat& shortDark1,
                             const cv::Mat& badPixels) = 0;

  OMBRIX_RESERVED_SLOTS_2(09, 10)  // slots 9 and 10

  // Slot 11: correction factor of the light source from the minimum of the processed frames.
  virtual float ComputeLightSourceFactor(const cv::Mat& minimumImage) = 0;
  // Slot 12: number of defects in the dark chamber; 0 or less means clean.
  virtual int CountDarkChamberDefects(const cv::Mat& minimumImage) = 0;
  // Slot 13: MTF figure of a target image as read from file.
  virtual float ComputeMtf(const cv::Mat& targetImage) = 0;

  // Slot 14: the 8-bit map (255 on the defect regions, 0 elsewhere) of the last
  // CountDarkChamberDefects, owned by the caller; empty before the first.
  virtual cv::Mat GetDefectMap() = 0;

  // Slot 15: selects the algorithm variant used by the next detection.
  virtual void SetAlgorithmMode(int mode) = 0;

  OMBRIX_RESERVED_SLOTS_2(16, 17)  // slots 16 and 17

  // Slot 18: starts a new frame.
  virtual void BeginImage() = 0;
  // Slot 19: hands one frame and its exposure to the plug-in.
  virtual void PushImage(const ExposedImage& frame) = 0;
  // Slot 20: processed form of the frame last pushed, owned by the caller.
  virtual cv::Mat GetProcessedImage() = 0;

  OMBRIX_RESERVED_SLOTS_6(21, 22, 23, 24, 25, 26)  // slots 21 to 26

  // Slot 27: detection parameters; the result says whether they were accepted (the host ignores
  // it).
  virtual bool SetAlgoParameters(const AlgoParameters& parameters) = 0;

  OMBRIX_RESERVED_SLOT(28)  // slot 28

  // Slot 29: detects objects in the frame last pushed. The two images receive diagnostic output.
  virtual void DetectObjects(std::vector<DetectedObject>& objects, cv::Mat& labelImage,
                             cv::Mat& overlayImage, int level, bool keepContours) = 0;

  OMBRIX_RESERVED_SLOTS_2(30, 31)  // slots 30 and 31

  // Slot 32: pixel-wise minimum of the input images.
  virtual void StackMinimum(cv::Mat& result, const std::vector<cv::Mat>& images) = 0;
  // Slot 33: pixel-wise average of the input images (8-bit or 32-bit float stacks).
  virtual void StackAverage(cv::Mat& result, const std::vector<cv::Mat>& images) = 0;
};

// The reserved-entry macros serve the declaration above only.
#undef OMBRIX_RESERVED_SLOTS_6
#undef OMBRIX_RESERVED_SLOTS_2
#undef OMBRIX_RESERVED_SLOT

// The entry a processing plug-in library exports under the undecorated name "GetInstance"; see
// PluginTypes.h for the arguments.
using ProcessingFactoryFn = IOmbrixProcessing* (*)(int, std::shared_ptr<ILogger>);

// The processing plug-in's entry, exported by name with C linkage.
extern "C" OMBRIX_PLUGIN_API IOmbrixProcessing* GetInstance(int variant,
                                                            std::shared_ptr<ILogger> logger);
