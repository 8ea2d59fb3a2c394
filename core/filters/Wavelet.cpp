#include "Wavelet.h"

#include <cmath>
#include <opencv2/imgproc.hpp>

namespace {

// A kernel of n taps becomes one of 2n - 1 taps with a zero between every two neighbours.
std::vector<double> Dilate(const std::vector<double>& kernel) {
  std::vector<double> dilated;
  if (kernel.empty()) return dilated;
  dilated.reserve(2 * kernel.size() - 1);
  for (size_t i = 0; i < kernel.size(); ++i) {
    if (i > 0) dilated.push_back(0.0);
    dilated.push_back(kernel[i]);
  }
  return dilated;
}

// Data and at least one element, whatever the dimensions: a 3-D region (rows and cols of -1)
// must reach the OpenCV calls and fail there rather than be taken as no region.
bool HasPixels(const cv::Mat& image) { return image.data != nullptr && image.total() > 0; }

}  // namespace

void CWavelet::ExtendOutsideMask(const cv::Mat& src, cv::Mat& dst, const cv::Mat& region) {
  // Holding the source's buffer keeps it valid when dst is the same matrix as src.
  const cv::Mat source = src;
  const int halfCols = source.cols / 2;
  const int halfRows = source.rows / 2;
  const cv::Point2f centre(static_cast<float>(halfCols), static_cast<float>(halfRows));
  const double maxRadius = std::sqrt(static_cast<double>(halfRows * halfRows) +
                                     static_cast<double>(halfCols * halfCols));

  cv::Mat polar;
  cv::warpPolar(source, polar, cv::Size(), centre, maxRadius,
                cv::INTER_LINEAR + cv::WARP_FILL_OUTLIERS);

  if (polar.cols > kExtensionRadius) {
    // The stretched range stops one column short of the edge: the outermost radius keeps its
    // warped values. With 711 columns the range is empty and nothing is stretched.
    const int width = polar.cols - kExtensionRadius - 1;
    if (width > 0) {
      const cv::Mat column = polar(cv::Rect(kExtensionRadius, 0, 1, polar.rows)).clone();
      cv::Mat outer = polar(cv::Rect(kExtensionRadius, 0, width, polar.rows));
      cv::resize(column, outer, outer.size(), 0.0, 0.0, cv::INTER_LINEAR);
    }
  }

  cv::Mat result = cv::Mat::zeros(source.size(), source.type());
  cv::warpPolar(polar, result, source.size(), centre, maxRadius,
                cv::INTER_LINEAR + cv::WARP_FILL_OUTLIERS + cv::WARP_INVERSE_MAP);
  source.copyTo(result, region);
  dst = result;
}

void CWavelet::Decompose(const cv::Mat& src, int /*reserved*/, const cv::Mat& region) {
  if (src.rows == 0 || src.cols == 0 || src.data == nullptr) return;

  // Planes are built aside and swapped in at the end, so a failing call leaves the object as it
  // was.
  cv::Mat current;
  if (HasPixels(region)) {
    ExtendOutsideMask(src, current, region);
  } else {
    current = src.clone();
  }

  std::vector<cv::Mat> details;
  std::vector<cv::Mat> smooths;
  details.reserve(kLevels);
  smooths.reserve(kLevels);
  std::vector<double> kernel = kernel_;
  const int smoothType = CV_16S;
  for (int level = 0; level < kLevels; ++level) {
    const cv::Mat column(static_cast<int>(kernel.size()), 1, CV_64F, kernel.data());
    cv::Mat input;
    current.convertTo(input, smoothType, 1.0, 0.0);
    cv::Mat smooth;
    cv::filter2D(input, smooth, CV_16S, column, cv::Point(-1, -1), 0.0, cv::BORDER_REFLECT_101);
    cv::filter2D(smooth, smooth, CV_16S, column.t(), cv::Point(-1, -1), 0.0,
                 cv::BORDER_REFLECT_101);

    cv::Mat detail;
    cv::subtract(current, smooth, detail, cv::noArray(), smoothType);

    smooths.push_back(smooth.clone());
    details.push_back(detail.clone());
    current = smooth;
    kernel = Dilate(kernel);
  }

  details_.swap(details);
  smooths_.swap(smooths);
}

void CWavelet::ExtractStructures(cv::Mat& out, int /*reserved*/, float k, const cv::Mat& mask,
                                 const cv::Mat& base) const {
  if (details_.empty()) {
    out = cv::Mat();
    return;
  }

  const cv::Mat& first = details_.front();
  cv::Mat sum = cv::Mat::zeros(first.size(), CV_MAKETYPE(CV_32F, first.channels()));
  if (base.data != nullptr) {
    // copyTo would give sum the base's type; the result is float whatever the base's depth.
    if (base.dims != 2 || base.size() != first.size() || base.channels() != first.channels()) {
      cv::error(cv::Error::StsUnmatchedSizes, "base must match the planes' size and channels",
                "CWavelet::ExtractStructures", __FILE__, __LINE__);
    }
    cv::Mat floatBase;
    base.convertTo(floatBase, CV_32F);
    floatBase.copyTo(sum, mask);
  }

  cv::Mat weight;
  mask.convertTo(weight, sum.type(), 1.0, 0.0);
  weight.setTo(1.0, weight > 0.0);

  const int openingSize = static_cast<int>(kernel_.size());
  const cv::Mat element =
      cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(openingSize, openingSize));

  // The two finest planes are mostly noise and never contribute.
  for (size_t level = 2; level < details_.size(); ++level) {
    cv::Mat plane = details_[level].clone();
    cv::Scalar mean, sigma;
    cv::meanStdDev(plane, mean, sigma, mask);

    // The noise level is measured again without the coefficients beyond rejection sigmas, which
    // are mostly structure.
    cv::Mat clipped = plane.clone();
    const float spread = static_cast<float>(sigma[0]) * rejection_;
    const float centre = static_cast<float>(mean[0]);
    clipped.setTo(0, clipped > static_cast<double>(centre + spread));
    clipped.setTo(0, clipped < static_cast<double>(centre - spread));
    cv::Scalar noiseMean, noiseSigma;
    cv::meanStdDev(clipped, noiseMean, noiseSigma, mask);

    plane.setTo(0, plane < static_cast<double>(k) * noiseSigma[0]);
    cv::morphologyEx(plane, plane, cv::MORPH_OPEN, element, cv::Point(-1, -1), 1,
                     cv::BORDER_CONSTANT, cv::morphologyDefaultBorderValue());
    cv::add(plane, sum, sum, cv::noArray(), sum.type());
  }

  cv::multiply(sum, weight, sum, 1.0, -1);
  out = sum;
}
