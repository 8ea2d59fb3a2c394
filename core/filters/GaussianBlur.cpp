#include "GaussianBlur.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>

namespace {
// Taps below this fraction of the centre tap are dropped from the kernel.
constexpr double kKernelEpsilon = 3e-5;
// Largest half-width: no kernel grows beyond 201 taps, whatever the sigma.
constexpr int kMaxHalfWidth = 101;
// Factorial(171) and beyond exceed the double range: every later product is +inf.
constexpr double kFirstInfiniteFactorial = 171.0;
// Largest binomial order whose factorials are all finite; beyond it the construction's binomial
// step yields nothing but NaN and infinities, so it is not run.
constexpr int kMaxBinomialOrder = 170;
constexpr const char* kKernelName = "CGaussianBlur::GaussianKernel2D";
}  // namespace

CGaussianBlur::CGaussianBlur(int sigma) : sigma_(sigma) { BuildKernels(); }

double CGaussianBlur::Factorial(double x) {
  // x * (x - 1) * ... down to a factor of 1 or less, whose factorial is 1, multiplied from the
  // smallest factor up (the order of the recursive definition) in a loop rather than a recursion,
  // which large x would overflow the stack with.
  if (std::isnan(x)) return x;
  if (x <= 1.0) return 1.0;
  if (x >= kFirstInfiniteFactorial) return std::numeric_limits<double>::infinity();
  double factors[static_cast<int>(kFirstInfiniteFactorial)];
  int count = 0;
  for (double v = x; v > 1.0; v -= 1.0) factors[count++] = v;
  double product = 1.0;
  while (count > 0) product = factors[--count] * product;
  return product;
}

cv::Mat CGaussianBlur::BinomialKernel(int n) {
  if (n < 0 || n == std::numeric_limits<int>::max()) {
    cv::error(cv::Error::StsOutOfRange, "the binomial order must lie in 0 .. INT_MAX - 1",
              "CGaussianBlur::BinomialKernel", __FILE__, __LINE__);
  }
  cv::Mat row(1, n + 1, CV_32F);
  const double nFactorial = Factorial(n);
  for (int k = 0; k <= n; ++k) {
    // std::trunc rather than an int cast: from n = 34 on the coefficients overflow an int.
    const double coefficient = std::trunc(nFactorial / (Factorial(k) * Factorial(n - k)));
    row.at<float>(0, k) = static_cast<float>(coefficient);
  }
  return row;
}

cv::Mat CGaussianBlur::GaussianKernel2D(double sigma, double epsilon) {
  if (!(epsilon > 0.0 && epsilon < 1.0)) {
    cv::error(cv::Error::StsOutOfRange, "epsilon must lie strictly between 0 and 1", kKernelName,
              __FILE__, __LINE__);
  }
  if (std::isnan(sigma)) {
    cv::error(cv::Error::StsBadArg, "sigma is not a number", kKernelName, __FILE__, __LINE__);
  }
  // The cap is applied in double: a huge sigma must not reach the int conversion.
  const int halfWidth = static_cast<int>(
      std::min(std::ceil(std::sqrt(-2.0 * std::log(epsilon)) * sigma) + 1, double{kMaxHalfWidth}));
  if (halfWidth < 1) {
    cv::error(cv::Error::StsOutOfRange, "a negative sigma gives a kernel without taps", kKernelName,
              __FILE__, __LINE__);
  }

  // The taps carry single precision on purpose: the blur's integer results depend on it.
  std::vector<double> half(static_cast<size_t>(std::max(halfWidth, 0)));
  for (int i = 0; i < halfWidth; ++i) {
    half[i] = static_cast<float>(std::exp(-0.5 * i * i / sigma / sigma));
  }
  cv::Mat full(1, 2 * halfWidth - 1, CV_64F);
  for (int j = 0; j < full.cols; ++j) {
    full.at<double>(0, j) = half[std::abs(j - (halfWidth - 1))];
  }

  cv::Mat kernel = full.t() * full;
  const double sum = cv::sum(kernel)[0];
  kernel.convertTo(kernel, -1, 1.0 / sum);

  rowKernel_ = full;
  columnKernel_ = full.t();
  scale_ = sum;
  return kernel;
}

void CGaussianBlur::BuildKernels() {
  // The binomial approximation is computed and then superseded by the Gaussian; only the
  // Gaussian kernels stay in the object. Beyond the orders whose factorials are finite it would be
  // all NaN and cost memory quadratic in sigma for nothing, so it is skipped there (and for a
  // negative sigma, which the Gaussian refuses below).
  if (sigma_ >= 0 && sigma_ <= kMaxBinomialOrder / 2) {
    const cv::Mat binomial = BinomialKernel(2 * sigma_);
    kernel2D_ = binomial.t() * binomial;
    kernel2D_.convertTo(kernel2D_, -1, 1.0 / cv::sum(kernel2D_)[0]);
  }

  kernel2D_ = GaussianKernel2D(sigma_, kKernelEpsilon);
}

void CGaussianBlur::Apply(const cv::Mat& src, cv::Mat& dst, bool separable) const {
  const int depth = src.depth();
  if (!separable) {
    cv::filter2D(src, dst, depth, kernel2D_, cv::Point(-1, -1), 0.0, cv::BORDER_REFLECT_101);
    return;
  }
  // Filter, filter, then divide: the intermediates live in the destination's own depth.
  cv::filter2D(src, dst, depth, rowKernel_, cv::Point(-1, -1), 0.0, cv::BORDER_REFLECT_101);
  cv::filter2D(dst, dst, depth, columnKernel_, cv::Point(-1, -1), 0.0, cv::BORDER_REFLECT_101);
  dst.convertTo(dst, -1, 1.0 / scale_, 0.0);
}

cv::Mat CGaussianBlur::PowerProcess(const cv::Mat& src, const std::vector<int>& sigmas) {
  if (src.data == nullptr || sigmas.empty()) return cv::Mat();

  cv::Mat product = cv::Mat::ones(src.size(), CV_MAKETYPE(CV_32F, src.channels()));
  cv::Mat blurred;
  for (const int sigma : sigmas) {
    sigma_ = sigma;
    BuildKernels();
    cv::filter2D(src, blurred, src.depth(), rowKernel_, cv::Point(-1, -1), 0.0,
                 cv::BORDER_REFLECT_101);
    cv::filter2D(blurred, blurred, src.depth(), columnKernel_, cv::Point(-1, -1), 0.0,
                 cv::BORDER_REFLECT_101);
    blurred.convertTo(blurred, -1, 1.0 / scale_, 0.0);
    cv::multiply(product, blurred, product, 1.0, product.type());
  }
  return product;
}
