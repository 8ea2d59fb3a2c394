// A-trous (undecimated) wavelet decomposition into seven signed 16-bit detail planes, and the
// image of significant structures rebuilt from the coarser planes. Decompose accepts any image
// cv::Mat::convertTo can bring to CV_16S; masks are 8-bit of the image's size.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

class CWavelet {
 public:
  CWavelet() = default;
  CWavelet(std::vector<double> kernel, float rejection)
      : kernel_(std::move(kernel)), rejection_(rejection) {}
  virtual ~CWavelet() = default;

  // Seven levels of smoothing with the scaling kernel dilated by inserted zeros at every level.
  // A region with data first extends the source radially outside it (a region that does not fit,
  // 3-D included, is a cv::Exception from the extension). An empty source changes
  // nothing; the planes of an earlier decomposition are replaced only when this one succeeds.
  void Decompose(const cv::Mat& src, int reserved, const cv::Mat& region);

  // Sum of the detail planes from the third on, each cleared below k times its noise level and
  // opened with an ellipse as wide as the scaling kernel; 32-bit float, zero outside the mask.
  // base, when it holds data, is what the sum starts from inside the mask, converted to float; a
  // base of another size or channel count than the planes is a cv::Exception.
  void ExtractStructures(cv::Mat& out, int reserved, float k, const cv::Mat& mask,
                         const cv::Mat& base) const;

  // dst = src inside region; outside, polar radii from 710 on repeat the value at radius 710.
  static void ExtendOutsideMask(const cv::Mat& src, cv::Mat& dst, const cv::Mat& region);

  // Installs planes computed elsewhere (a stored decomposition) in place of Decompose's.
  void SetPlanes(std::vector<cv::Mat> details, std::vector<cv::Mat> smooths) {
    details_ = std::move(details);
    smooths_ = std::move(smooths);
  }

  void SetKernel(std::vector<double> kernel) { kernel_ = std::move(kernel); }
  void SetRejection(float rejection) { rejection_ = rejection; }
  const std::vector<double>& Kernel() const { return kernel_; }
  float Rejection() const { return rejection_; }
  const std::vector<cv::Mat>& Details() const { return details_; }
  const std::vector<cv::Mat>& Smooths() const { return smooths_; }

  static constexpr int kLevels = 7;
  // Polar radius (in columns of the polar image) beyond which ExtendOutsideMask repeats values.
  static constexpr int kExtensionRadius = 710;

 private:
  std::vector<cv::Mat> details_;
  std::vector<cv::Mat> smooths_;
  std::vector<double> kernel_;
  float rejection_ = 0.0f;
};
