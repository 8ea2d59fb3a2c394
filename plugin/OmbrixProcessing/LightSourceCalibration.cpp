#include "LightSourceCalibration.h"

#include <cmath>

namespace {

template <class T>
double SumRow(const T* row, int n) {
  double sum = 0.0;
  for (int i = 0; i < n; ++i) sum += static_cast<double>(row[i]);
  return sum;
}

}  // namespace

cv::Rect CLightSourceCalibration::CentralRegion(const cv::Size& size) {
  return {size.width / 4, size.height / 4, size.width / 2, size.height / 2};
}

double CLightSourceCalibration::RegionMean(const cv::Mat& image, const cv::Rect& region) {
  cv::Mat values;
  image(region).convertTo(values, CV_64F);
  double sum = 0.0;
  for (int y = 0; y < values.rows; ++y) sum += SumRow(values.ptr<double>(y), values.cols);
  return sum / (static_cast<double>(region.width) * region.height);
}

float CLightSourceCalibration::Factor(const cv::Mat& minimumImage, double exposure) {
  if (minimumImage.empty() || minimumImage.channels() != 1 || minimumImage.dims > 2) return -1.0f;
  if (!(exposure > 0.0) || !std::isfinite(exposure)) return -1.0f;
  const cv::Rect region = CentralRegion(minimumImage.size());
  if (region.area() == 0) return -1.0f;
  const double nominal = kNominalLevel150s * exposure / kNominalExposure;
  // A NaN factor would pass both light-source checks (every comparison with NaN is false), so a
  // frame whose central mean is not finite has no factor.
  const double mean = RegionMean(minimumImage, region);
  if (!std::isfinite(mean)) return -1.0f;
  return static_cast<float>(mean / nominal);
}
