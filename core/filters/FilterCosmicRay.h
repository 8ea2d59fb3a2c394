// Cosmic-ray (bright outlier) filter for sensor images, and the disc median it smooths with.
// Process accepts what its median accepts: any cv::medianBlur input for radius 1 and 2 (square
// 3x3 and 5x5 windows), and 16-bit unsigned single-channel images for every larger radius.
#pragma once

#include <opencv2/core.hpp>

class CFilterCosmicRay {
 public:
  CFilterCosmicRay(int radius, int threshold) : radius_(radius), threshold_(threshold) {}
  virtual ~CFilterCosmicRay() = default;

  // Pixels more than threshold above their local median take the median's value; all other
  // pixels, dark outliers included, are copied. A non-empty 8-bit mask of the image's size limits
  // the replacement to its non-zero pixels. dst always receives a fresh buffer.
  // From radius 3 on 16-bit single-channel data the median is computed only where a pixel can
  // be an outlier; the result and the errors are those of ProcessReference.
  void Process(const cv::Mat& src, cv::Mat& dst, const cv::Mat& mask) const;

  // Process, and replaced receives a fresh 8-bit map of src's size and channel count: 255 where the
  // rule above replaced the pixel by its median, 0 elsewhere. Errors are those of Process, raised
  // before dst or replaced changes.
  void Process(const cv::Mat& src, cv::Mat& dst, const cv::Mat& mask, cv::Mat& replaced) const;

  // The straightforward filter: full median image, difference, outlier map, copy through the map.
  void ProcessReference(const cv::Mat& src, cv::Mat& dst, const cv::Mat& mask) const;

  // Median over the disc of the given radius (dx^2 + dy^2 <= (radius + 0.5)^2), cut at the image
  // edge rather than padded. 16-bit unsigned single-channel only; dst may not alias src.
  static void MedianBlur(const cv::Mat& src, cv::Mat& dst, int radius);

  int Radius() const { return radius_; }
  int Threshold() const { return threshold_; }

 private:
  int radius_;
  int threshold_;

  void Run(const cv::Mat& src, cv::Mat& dst, const cv::Mat& mask, cv::Mat* replaced) const;
  void RunReference(const cv::Mat& src, cv::Mat& dst, const cv::Mat& mask, cv::Mat* replaced) const;
};
