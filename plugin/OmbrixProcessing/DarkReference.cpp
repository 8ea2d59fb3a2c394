#include "DarkReference.h"

#include <cmath>
#include <opencv2/imgcodecs.hpp>

namespace {

constexpr const char* kErrorFile = "OmbrixProcessing/DarkReference";
constexpr const char* kSubtractName = "CDarkReference::Subtract";

// Weight of the 1 s -> 150 s dark increase at an exposure. At 150 s it is exactly 1, so the long
// dark is reproduced bit for bit.
float InterpolationWeight(float exposure) {
  return (exposure - CDarkReference::kShortExposure) /
         (CDarkReference::kLongExposure - CDarkReference::kShortExposure);
}

void SubtractRow(const float* raw, const float* d1, const float* slope, float weight, float* out,
                 int n) {
  for (int i = 0; i < n; ++i) out[i] = raw[i] - (d1[i] + slope[i] * weight);
}

}  // namespace

bool CDarkReference::Load(const std::string& longDarkPath, const std::string& shortDarkPath,
                          const std::string& badPixelPath) {
  const cv::Mat longDark = cv::imread(longDarkPath, cv::IMREAD_UNCHANGED);
  const cv::Mat shortDark = cv::imread(shortDarkPath, cv::IMREAD_UNCHANGED);
  cv::Mat badPixels;
  if (!badPixelPath.empty()) {
    badPixels = cv::imread(badPixelPath, cv::IMREAD_UNCHANGED);
    if (badPixels.empty()) return false;
  }
  return Set(longDark, shortDark, badPixels);
}

bool CDarkReference::Set(const cv::Mat& longDark, const cv::Mat& shortDark,
                         const cv::Mat& badPixels) {
  if (longDark.empty() || shortDark.empty()) return false;
  if (longDark.dims > 2 || longDark.size != shortDark.size || longDark.type() != shortDark.type()) {
    return false;
  }
  if (!badPixels.empty() &&
      (badPixels.channels() != 1 || badPixels.dims > 2 || badPixels.size != longDark.size)) {
    return false;
  }
  cv::Mat d1, d150;
  shortDark.convertTo(d1, CV_32F);
  longDark.convertTo(d150, CV_32F);
  shortDark_ = d1;
  slope_ = d150 - d1;
  if (badPixels.empty()) {
    badPixels_.release();
  } else {
    badPixels_ = badPixels != 0;
  }
  return true;
}

void CDarkReference::DarkSignal(float exposure, cv::Mat& dark) const {
  cv::Mat zero = cv::Mat::zeros(shortDark_.size(), shortDark_.type());
  cv::Mat out;
  Subtract(zero, exposure, out);
  dark = -out;
}

void CDarkReference::Subtract(const cv::Mat& raw, float exposure, cv::Mat& processed) const {
  if (raw.empty())
    cv::error(cv::Error::StsBadArg, "empty frame", kSubtractName, kErrorFile, __LINE__);
  if (!std::isfinite(exposure) || exposure < 0.0f) {
    cv::error(cv::Error::StsOutOfRange, "exposure must be finite and not negative", kSubtractName,
              kErrorFile, __LINE__);
  }
  if (Loaded() && (raw.dims > 2 || raw.rows != shortDark_.rows || raw.cols != shortDark_.cols ||
                   raw.channels() != shortDark_.channels())) {
    cv::error(cv::Error::StsUnmatchedSizes, "frame and dark frames differ in size or channels",
              kSubtractName, kErrorFile, __LINE__);
  }
  // A fresh buffer for every frame: callers may keep earlier results.
  cv::Mat out;
  raw.convertTo(out, CV_32F);
  if (Loaded()) {
    const float weight = InterpolationWeight(exposure);
    const int n = out.cols * out.channels();
    for (int y = 0; y < out.rows; ++y) {
      float* row = out.ptr<float>(y);
      SubtractRow(row, shortDark_.ptr<float>(y), slope_.ptr<float>(y), weight, row, n);
    }
    if (!badPixels_.empty()) RepairBadPixels(out);
  }
  processed = out;
}

void CDarkReference::RepairBadPixels(cv::Mat& processed) const {
  const cv::Mat source = processed.clone();
  const int cn = processed.channels();
  for (int y = 0; y < processed.rows; ++y) {
    const uchar* bad = badPixels_.ptr<uchar>(y);
    for (int x = 0; x < processed.cols; ++x) {
      if (!bad[x]) continue;
      for (int c = 0; c < cn; ++c) {
        double sum = 0.0;
        int good = 0;
        for (int dy = -1; dy <= 1; ++dy) {
          for (int dx = -1; dx <= 1; ++dx) {
            const int yy = y + dy, xx = x + dx;
            if ((dx == 0 && dy == 0) || yy < 0 || xx < 0 || yy >= processed.rows ||
                xx >= processed.cols || badPixels_.at<uchar>(yy, xx)) {
              continue;
            }
            sum += source.ptr<float>(yy)[xx * cn + c];
            ++good;
          }
        }
        processed.ptr<float>(y)[x * cn + c] = good ? static_cast<float>(sum / good) : 0.0f;
      }
    }
  }
}
