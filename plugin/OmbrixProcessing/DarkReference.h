// Dark reference of the camera: the long (150 s) and short (1 s) master dark frames, the dark
// signal interpolated between them for any exposure, and an optional bad-pixel map. Accepts dark
// frames of any depth and channel count (both of one size and type) and raw frames of their size
// and channel count.
#pragma once

#include <opencv2/core.hpp>
#include <string>

class CDarkReference {
 public:
  // Exposures of the two master darks, seconds.
  static constexpr float kLongExposure = 150.0f, kShortExposure = 1.0f;

  virtual ~CDarkReference() = default;

  // Reads both darks unchanged (cv::IMREAD_UNCHANGED). False, with the previous reference kept,
  // when either is missing or empty or they differ in size or type, or when a non-empty
  // badPixelPath does not give a single-channel map of their size (non-zero marks a bad pixel).
  bool Load(const std::string& longDarkPath, const std::string& shortDarkPath,
            const std::string& badPixelPath);

  // Same from images in memory; an empty badPixels means none.
  bool Set(const cv::Mat& longDark, const cv::Mat& shortDark, const cv::Mat& badPixels);

  bool Loaded() const { return !shortDark_.empty(); }

  // Dark signal per pixel at the exposure: D(t) = D1 + (D150 - D1) (t - 1) / 149, linear in t
  // (bias plus dark current), extrapolated outside 1 .. 150 s. 32-bit float, fresh buffer.
  void DarkSignal(float exposure, cv::Mat& dark) const;

  // raw - D(exposure) as 32-bit float in a fresh buffer; without a loaded reference, raw as
  // float. Bad pixels then take the mean of their good 8-neighbours (0 when none is good).
  // Errors (cv::Exception, function "CDarkReference::Subtract"): StsBadArg "empty frame",
  // StsUnmatchedSizes "frame and dark frames differ in size or channels", StsOutOfRange
  // "exposure must be finite and not negative".
  void Subtract(const cv::Mat& raw, float exposure, cv::Mat& processed) const;

 private:
  void RepairBadPixels(cv::Mat& processed) const;

  cv::Mat shortDark_;  // D1, float
  cv::Mat slope_;      // (D150 - D1), float: dark increase from 1 s to 150 s
  cv::Mat badPixels_;  // 8-bit, non-zero = bad; empty when none
};
