#include "StackStatistics.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr const char* kErrorFile = "OmbrixProcessing/StackStatistics";

template <class T>
void AccumulateRow(const T* src, double* acc, int n) {
  for (int i = 0; i < n; ++i) acc[i] += static_cast<double>(src[i]);
}

template <class T>
void StoreMeanRow(const double* acc, T* dst, int n, double count) {
  for (int i = 0; i < n; ++i) dst[i] = cv::saturate_cast<T>(acc[i] / count);
}

void AccumulateRow(int depth, const uchar* src, double* acc, int n) {
  switch (depth) {
    case CV_8U:
      return AccumulateRow(reinterpret_cast<const std::uint8_t*>(src), acc, n);
    case CV_8S:
      return AccumulateRow(reinterpret_cast<const std::int8_t*>(src), acc, n);
    case CV_16U:
      return AccumulateRow(reinterpret_cast<const std::uint16_t*>(src), acc, n);
    case CV_16S:
      return AccumulateRow(reinterpret_cast<const std::int16_t*>(src), acc, n);
    case CV_32S:
      return AccumulateRow(reinterpret_cast<const std::int32_t*>(src), acc, n);
    case CV_32F:
      return AccumulateRow(reinterpret_cast<const float*>(src), acc, n);
    case CV_64F:
      return AccumulateRow(reinterpret_cast<const double*>(src), acc, n);
    default:
      return AccumulateRow(reinterpret_cast<const cv::float16_t*>(src), acc, n);
  }
}

void StoreMeanRow(int depth, const double* acc, uchar* dst, int n, double count) {
  switch (depth) {
    case CV_8U:
      return StoreMeanRow(acc, reinterpret_cast<std::uint8_t*>(dst), n, count);
    case CV_8S:
      return StoreMeanRow(acc, reinterpret_cast<std::int8_t*>(dst), n, count);
    case CV_16U:
      return StoreMeanRow(acc, reinterpret_cast<std::uint16_t*>(dst), n, count);
    case CV_16S:
      return StoreMeanRow(acc, reinterpret_cast<std::int16_t*>(dst), n, count);
    case CV_32S:
      return StoreMeanRow(acc, reinterpret_cast<std::int32_t*>(dst), n, count);
    case CV_32F:
      return StoreMeanRow(acc, reinterpret_cast<float*>(dst), n, count);
    case CV_64F:
      return StoreMeanRow(acc, reinterpret_cast<double*>(dst), n, count);
    default:
      return StoreMeanRow(acc, reinterpret_cast<cv::float16_t*>(dst), n, count);
  }
}

}  // namespace

void CStackStatistics::Validate(const std::vector<cv::Mat>& images, const char* function) {
  if (images.empty()) {
    cv::error(cv::Error::StsBadArg, "empty image list", function, kErrorFile, __LINE__);
  }
  for (const cv::Mat& image : images) {
    if (image.empty()) {
      cv::error(cv::Error::StsBadArg, "empty image in the list", function, kErrorFile, __LINE__);
    }
  }
  const cv::Mat& first = images.front();
  for (const cv::Mat& image : images) {
    if (image.dims > 2 || image.size != first.size) {
      cv::error(cv::Error::StsUnmatchedSizes, "images differ in size", function, kErrorFile,
                __LINE__);
    }
    if (image.type() != first.type()) {
      cv::error(cv::Error::StsUnmatchedFormats, "images differ in type", function, kErrorFile,
                __LINE__);
    }
  }
}

void CStackStatistics::Minimum(const std::vector<cv::Mat>& images, cv::Mat& dst) {
  Validate(images, "CStackStatistics::Minimum");
  cv::Mat result = images.front().clone();
  for (size_t i = 1; i < images.size(); ++i) cv::min(result, images[i], result);
  dst = result;
}

void CStackStatistics::Average(const std::vector<cv::Mat>& images, cv::Mat& dst) {
  Validate(images, "CStackStatistics::Average");
  const cv::Mat& first = images.front();
  const int depth = first.depth();
  const int n = first.cols * first.channels();
  const double count = static_cast<double>(images.size());
  cv::Mat result(first.rows, first.cols, first.type());
  std::vector<double> acc(static_cast<size_t>(n));
  for (int y = 0; y < first.rows; ++y) {
    std::fill(acc.begin(), acc.end(), 0.0);
    for (const cv::Mat& image : images) AccumulateRow(depth, image.ptr(y), acc.data(), n);
    StoreMeanRow(depth, acc.data(), result.ptr(y), n, count);
  }
  dst = result;
}
