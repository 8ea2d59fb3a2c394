// Gaussian smoothing with an integer standard deviation, as one normalised 2-D kernel or as a row
// and a column pass, and the power process (pixel-wise product of several blurs, in float).
// Apply accepts every depth and channel count cv::filter2D accepts; the output keeps the source's.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

class CGaussianBlur {
 public:
  // Builds the kernels; cv::Exception for a negative sigma (see GaussianKernel2D).
  explicit CGaussianBlur(int sigma);
  virtual ~CGaussianBlur() = default;

  // dst gets the source's size and type. The separable path filters with the unnormalised taps
  // first and divides by the scale last, so integer intermediates round and saturate.
  void Apply(const cv::Mat& src, cv::Mat& dst, bool separable) const;

  // Product of the separable blurs at every sigma of the list, as 32-bit float with the source's
  // channel count; empty when src has no data or the list is empty. The object keeps the kernels
  // of the last sigma of the list.
  cv::Mat PowerProcess(const cv::Mat& src, const std::vector<int>& sigmas);

  // Rebuilds every kernel for the current sigma.
  void BuildKernels();
  // Returns the normalised 2-D kernel and sets the row and column kernels and the scale.
  // cv::Exception (object unchanged) for epsilon outside (0, 1), a NaN sigma or a negative sigma
  // (no tap); sigma 0 gives one NaN tap (0 / 0), any huge sigma the capped 201 taps.
  cv::Mat GaussianKernel2D(double sigma, double epsilon);
  // 1 x (n + 1) float row of binomial coefficients n! / (k! (n - k)!), NaN or inf from n = 171 on
  // where the factorials overflow. cv::Exception for n < 0 or n = INT_MAX.
  static cv::Mat BinomialKernel(int n);
  // x (x - 1) (x - 2) ... down to a factor of 1 or less; +inf from 171 on, NaN for NaN.
  static double Factorial(double x);

  const cv::Mat& Kernel2D() const { return kernel2D_; }
  const cv::Mat& RowKernel() const { return rowKernel_; }
  const cv::Mat& ColumnKernel() const { return columnKernel_; }
  double Scale() const { return scale_; }
  int Sigma() const { return sigma_; }

 private:
  cv::Mat kernel2D_;
  cv::Mat rowKernel_;
  cv::Mat columnKernel_;
  double scale_ = 0.0;
  int sigma_;
};
