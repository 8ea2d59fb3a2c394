#include "FilterCosmicRay.h"

#include <opencv2/imgproc.hpp>

#include "MedianFunction16U.h"

namespace {
// Errors carry this source name and the historical line numbers, which callers and tests match.
constexpr const char* kErrorFile = "OmbrixProcessing/FilterCosmicRay";
constexpr const char* kMedianBlurName = "CFilterCosmicRay::MedianBlur";
constexpr int kBadArgLine = 90;
constexpr int kNotImplementedLine = 106;
}  // namespace

void CFilterCosmicRay::MedianBlur(const cv::Mat& src, cv::Mat& dst, int radius) {
  if (src.data == nullptr || src.total() == 0 || src.dims == 0 || radius < 1) {
    cv::error(cv::Error::StsBadArg, "wrongs parameters", kMedianBlurName, kErrorFile,
              kBadArgLine);
  }
  if (dst.rows != src.rows || dst.cols != src.cols || dst.type() != src.type()) {
    dst = cv::Mat(src.rows, src.cols, src.type());
  }
  // Reported after the reallocation above, so dst has the source's size and type even then.
  if (src.type() != CV_16UC1) {
    cv::error(cv::Error::StsNotImplemented, "Not impl", kMedianBlurName, kErrorFile,
              kNotImplementedLine);
  }
  const MedianFunction_16U body(dst.data, src.data, static_cast<std::uint32_t>(dst.step[0]),
                                static_cast<std::uint32_t>(src.step[0]), src.cols, src.rows,
                                radius, 16);
  cv::parallel_for_(cv::Range(0, src.rows), body, static_cast<double>(cv::getNumThreads() - 1));
}

void CFilterCosmicRay::Process(const cv::Mat& src, cv::Mat& dst, const cv::Mat& mask) const {
  // Square windows for the two smallest radii and the disc beyond are a deliberate mix.
  cv::Mat median;
  if (radius_ == 1) {
    cv::medianBlur(src, median, 3);
  } else if (radius_ == 2) {
    cv::medianBlur(src, median, 5);
  } else {
    MedianBlur(src, median, radius_);
  }

  cv::Mat diff;
  cv::subtract(src, median, diff, cv::noArray(), CV_16S);
  cv::Mat outliers = diff > static_cast<double>(threshold_);
  if (mask.data != nullptr && mask.rows >= 1 && mask.cols >= 1) {
    cv::bitwise_and(mask, outliers, outliers);
  }

  cv::Mat copy;
  src.copyTo(copy);
  dst = copy;
  median.copyTo(dst, outliers);
}
