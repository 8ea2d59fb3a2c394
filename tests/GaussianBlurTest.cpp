// Gaussian blur and power process: kernel construction, both filtering paths against naive
// reference convolutions, the separable path's saturation, and the power process's contract.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <utility>
#include <vector>

#include "CvErrors.h"
#include "ImageCompare.h"
#include "ImageHelpers.h"
#include "Random.h"
#include "filters/GaussianBlur.h"

namespace {

using testimages::MaxAbsDiff;
using testimages::Reflect101;

// Correlation with a kernel (rows x cols of doubles) at its centre, reflect-101 border, exact
// double sums; the result is left unrounded.
cv::Mat NaiveCorrelate(const cv::Mat& src, const cv::Mat& kernel) {
  cv::Mat in;
  src.convertTo(in, CV_64F);
  cv::Mat out(src.size(), CV_64F);
  const int ay = kernel.rows / 2;
  const int ax = kernel.cols / 2;
  for (int y = 0; y < src.rows; ++y) {
    for (int x = 0; x < src.cols; ++x) {
      double sum = 0.0;
      for (int ky = 0; ky < kernel.rows; ++ky) {
        const int sy = Reflect101(y + ky - ay, src.rows);
        for (int kx = 0; kx < kernel.cols; ++kx) {
          const int sx = Reflect101(x + kx - ax, src.cols);
          sum += kernel.at<double>(ky, kx) * in.at<double>(sy, sx);
        }
      }
      out.at<double>(y, x) = sum;
    }
  }
  return out;
}

// Rounds and saturates like a store into the given depth.
cv::Mat Store(const cv::Mat& values, int depth) {
  cv::Mat out;
  values.convertTo(out, depth);
  return out;
}

// The separable path written out: row pass, store, column pass, store, divide, store.
cv::Mat NaiveSeparable(const cv::Mat& src, const CGaussianBlur& blur) {
  const int depth = src.depth();
  const cv::Mat rows = Store(NaiveCorrelate(src, blur.RowKernel()), depth);
  const cv::Mat both = Store(NaiveCorrelate(rows, blur.ColumnKernel()), depth);
  cv::Mat scaled;
  both.convertTo(scaled, CV_64F, 1.0 / blur.Scale());
  return Store(scaled, depth);
}

cv::Mat RandomImage(int rows, int cols, int type, std::uint64_t seed, double lo, double hi) {
  datagen::Random rng(seed);
  cv::Mat image(rows, cols, type);
  cv::Mat flat = image.reshape(1);
  for (int y = 0; y < flat.rows; ++y) {
    for (int x = 0; x < flat.cols; ++x) {
      const double v = rng.Uniform(lo, hi);
      switch (image.depth()) {
        case CV_16U:
          flat.at<unsigned short>(y, x) = static_cast<unsigned short>(v);
          break;
        case CV_8U:
          flat.at<unsigned char>(y, x) = static_cast<unsigned char>(v);
          break;
        default:
          flat.at<float>(y, x) = static_cast<float>(v);
      }
    }
  }
  return image;
}

// Sigma and the taps of its kernels.
class KernelSize : public ::testing::TestWithParam<std::pair<int, int>> {};

// h = ceil(4.5638 sigma) + 1, 2h - 1 taps, h at most 101.
TEST_P(KernelSize, FollowsTheHalfWidthRuleUpToTheCapOf201) {
  const int sigma = GetParam().first;
  const int taps = GetParam().second;
  const CGaussianBlur blur(sigma);
  EXPECT_EQ(blur.Kernel2D().rows, taps);
  EXPECT_EQ(blur.Kernel2D().cols, taps);
  EXPECT_EQ(blur.RowKernel().size(), cv::Size(taps, 1));
  EXPECT_EQ(blur.ColumnKernel().size(), cv::Size(1, taps));
  EXPECT_EQ(blur.Kernel2D().type(), CV_64F);
  EXPECT_EQ(blur.RowKernel().type(), CV_64F);
  EXPECT_EQ(blur.Sigma(), sigma);
}

INSTANTIATE_TEST_SUITE_P(GaussianBlur, KernelSize,
                         ::testing::Values(std::pair{1, 11}, std::pair{2, 21}, std::pair{3, 29},
                                           std::pair{7, 65}, std::pair{21, 193}, std::pair{22, 201},
                                           std::pair{50, 201}, std::pair{64, 201},
                                           std::pair{100, 201}));

TEST(GaussianBlur, KernelTapsCarrySinglePrecision) {
  const CGaussianBlur blur(7);
  const cv::Mat& row = blur.RowKernel();
  const int centre = row.cols / 2;
  int differFromDouble = 0;
  for (int j = 0; j < row.cols; ++j) {
    const double i = j - centre;
    const double exact = std::exp(-0.5 * i * i / 7.0 / 7.0);
    EXPECT_EQ(row.at<double>(0, j), static_cast<double>(static_cast<float>(exact))) << j;
    if (row.at<double>(0, j) != exact) ++differFromDouble;
  }
  EXPECT_EQ(row.at<double>(0, centre), 1.0);
  // The rounding is visible: most taps are not the double-precision Gaussian.
  EXPECT_GT(differFromDouble, row.cols / 2);
}

class Sigma : public ::testing::TestWithParam<int> {};

TEST_P(Sigma, KernelColumnIsTheRowTransposedAndScaleIsTheOuterProductSum) {
  const CGaussianBlur blur(GetParam());
  EXPECT_TRUE(ImagesEqual(blur.ColumnKernel(), blur.RowKernel().t()));
  const cv::Mat outer = blur.ColumnKernel() * blur.RowKernel();
  EXPECT_DOUBLE_EQ(blur.Scale(), cv::sum(outer)[0]);
  const double rowSum = cv::sum(blur.RowKernel())[0];
  EXPECT_NEAR(blur.Scale(), rowSum * rowSum, 1e-9 * blur.Scale());
  // The 2-D kernel is that outer product normalised to sum 1.
  EXPECT_NEAR(cv::sum(blur.Kernel2D())[0], 1.0, 1e-12);
  EXPECT_LE(MaxAbsDiff(blur.Kernel2D(), outer / blur.Scale()), 1e-15);
}

TEST_P(Sigma, ApplyMatchesTheNaiveFormOfEachPath) {
  const int sigma = GetParam();
  const CGaussianBlur blur(sigma);
  const cv::Mat src = RandomImage(37, 45, CV_16UC1, 100 + sigma, 0.0, 4000.0);
  cv::Mat twoD, separable;
  blur.Apply(src, twoD, false);
  blur.Apply(src, separable, true);
  ASSERT_EQ(twoD.type(), CV_16UC1);
  ASSERT_EQ(twoD.size(), src.size());
  ASSERT_EQ(separable.type(), CV_16UC1);
  // filter2D sums in single precision (or through the DFT for large kernels): one grey level
  // at a rounding tie is the most it may differ from the exact sum.
  EXPECT_LE(MaxAbsDiff(twoD, Store(NaiveCorrelate(src, blur.Kernel2D()), CV_16U)), 1.0);
  EXPECT_LE(MaxAbsDiff(separable, NaiveSeparable(src, blur)), 1.0);
}

TEST_P(Sigma, PowerProcessOfOneSigmaEqualsTheSeparableBlurInFloat) {
  const cv::Mat src = RandomImage(48, 40, CV_16UC1, 11, 0.0, 8000.0);
  CGaussianBlur blur(1);
  const cv::Mat result = blur.PowerProcess(src, {GetParam()});
  ASSERT_EQ(result.type(), CV_32FC1);
  cv::Mat blurred, expected;
  CGaussianBlur(GetParam()).Apply(src, blurred, true);
  blurred.convertTo(expected, CV_32F);
  EXPECT_TRUE(ImagesEqual(result, expected));
}

INSTANTIATE_TEST_SUITE_P(GaussianBlur, Sigma, ::testing::Values(1, 2, 3, 5, 7, 50));

TEST(GaussianBlur, KernelSigmaTwoScaleIsTwoPiSigmaSquared) {
  // The sampled Gaussian sums to sqrt(2 pi) sigma per axis to far better than the float taps.
  const CGaussianBlur blur(2);
  EXPECT_NEAR(blur.Scale(), 2.0 * CV_PI * 4.0, 1e-5);
}

TEST(GaussianBlur, KernelBinomialRowHoldsTheBinomialCoefficients) {
  const cv::Mat row = CGaussianBlur::BinomialKernel(4);
  ASSERT_EQ(row.size(), cv::Size(5, 1));
  ASSERT_EQ(row.type(), CV_32F);
  const float expected[] = {1.0f, 4.0f, 6.0f, 4.0f, 1.0f};
  for (int k = 0; k < 5; ++k) EXPECT_EQ(row.at<float>(0, k), expected[k]) << k;

  const cv::Mat wide = CGaussianBlur::BinomialKernel(14);
  EXPECT_EQ(wide.at<float>(0, 7), 3432.0f);
  EXPECT_EQ(wide.at<float>(0, 1), 14.0f);
  // Beyond the int range the coefficients are still truncated, not wrapped.
  const cv::Mat huge = CGaussianBlur::BinomialKernel(40);
  EXPECT_EQ(huge.at<float>(0, 20), static_cast<float>(137846528820.0));
}

// 171! exceeds DBL_MAX, so every larger argument is infinite; a huge argument must not recurse
// a million frames deep.
TEST(GaussianBlur, KernelFactorialIsInfiniteFrom171On) {
  EXPECT_TRUE(std::isfinite(CGaussianBlur::Factorial(170.0)));
  EXPECT_EQ(CGaussianBlur::Factorial(171.0), std::numeric_limits<double>::infinity());
  EXPECT_EQ(CGaussianBlur::Factorial(172.0), std::numeric_limits<double>::infinity());
  EXPECT_EQ(CGaussianBlur::Factorial(2.0e9), std::numeric_limits<double>::infinity());
}

TEST(GaussianBlur, KernelFactorialIsRecursiveFromOne) {
  EXPECT_EQ(CGaussianBlur::Factorial(0.0), 1.0);
  EXPECT_EQ(CGaussianBlur::Factorial(1.0), 1.0);
  EXPECT_EQ(CGaussianBlur::Factorial(5.0), 120.0);
  EXPECT_EQ(CGaussianBlur::Factorial(10.0), 3628800.0);
}

TEST(GaussianBlur, KernelGaussianKernel2DSetsTheSeparableKernels) {
  CGaussianBlur blur(2);
  const cv::Mat kernel = blur.GaussianKernel2D(3.0, 3e-5);
  EXPECT_EQ(kernel.cols, 29);
  EXPECT_EQ(blur.RowKernel().cols, 29);
  EXPECT_EQ(blur.ColumnKernel().rows, 29);
  // Only the returned kernel is new; the object's own 2-D kernel stays until BuildKernels.
  EXPECT_EQ(blur.Kernel2D().cols, 21);
  // A looser epsilon gives a narrower kernel: sqrt(-2 ln 0.01) * 3 = 9.1, h = 11.
  EXPECT_EQ(blur.GaussianKernel2D(3.0, 0.01).cols, 21);
}

TEST(GaussianBlur, KernelSigmaZeroIsNotGuarded) {
  // 0 / 0 in the taps: the kernel is one NaN tap.
  const CGaussianBlur blur(0);
  ASSERT_EQ(blur.RowKernel().cols, 1);
  EXPECT_TRUE(std::isnan(blur.RowKernel().at<double>(0, 0)));
}

TEST(GaussianBlur, ApplyFloatImagesStayFloat) {
  const CGaussianBlur blur(2);
  const cv::Mat src = RandomImage(30, 30, CV_32FC1, 7, 0.0, 1000.0);
  cv::Mat twoD, separable;
  blur.Apply(src, twoD, false);
  blur.Apply(src, separable, true);
  ASSERT_EQ(twoD.type(), CV_32FC1);
  ASSERT_EQ(separable.type(), CV_32FC1);
  EXPECT_LE(MaxAbsDiff(twoD, NaiveCorrelate(src, blur.Kernel2D())), 1e-2);
  cv::Mat expected = NaiveCorrelate(NaiveCorrelate(src, blur.RowKernel()), blur.ColumnKernel());
  expected /= blur.Scale();
  EXPECT_LE(MaxAbsDiff(separable, expected), 1e-2);
}

TEST(GaussianBlur, ApplyOutputKeepsTheSourceChannels) {
  const CGaussianBlur blur(2);
  const cv::Mat src = RandomImage(20, 24, CV_16UC3, 9, 0.0, 3000.0);
  cv::Mat dst;
  blur.Apply(src, dst, true);
  EXPECT_EQ(dst.type(), CV_16UC3);
  blur.Apply(src, dst, false);
  EXPECT_EQ(dst.type(), CV_16UC3);
}

// The suite's images: black with one centre pixel of 4000, at the suite's sigmas.
class CentrePixel : public ::testing::TestWithParam<int> {};

TEST_P(CentrePixel, BothPathsAgree) {
  const CGaussianBlur blur(GetParam());
  const int n = blur.Kernel2D().cols;
  cv::Mat image = cv::Mat::zeros(n, n, CV_16UC1);
  image.at<unsigned short>(n / 2, n / 2) = 4000;
  cv::Mat a, b;
  blur.Apply(image, a, true);
  blur.Apply(image, b, false);
  EXPECT_TRUE(ImagesEqual(a, b));
  EXPECT_EQ(a.at<unsigned short>(n / 2, n / 2), std::lround(4000.0 / blur.Scale()));
}

INSTANTIATE_TEST_SUITE_P(GaussianBlur, CentrePixel, ::testing::Values(2, 7));

TEST(GaussianBlur, ApplySeparablePathComesOutDarkerOnABrightIntegerImage) {
  // Row and column passes use the unnormalised taps: 60000 times the tap sum saturates at
  // 65535 before the division by the scale.
  const CGaussianBlur blur(2);
  const cv::Mat src(32, 32, CV_16UC1, cv::Scalar(60000));
  cv::Mat separable, twoD;
  blur.Apply(src, separable, true);
  blur.Apply(src, twoD, false);
  const auto saturated = static_cast<unsigned short>(std::lround(65535.0 / blur.Scale()));
  EXPECT_EQ(cv::countNonZero(separable != saturated), 0);
  EXPECT_EQ(cv::countNonZero(twoD != 60000), 0);
  EXPECT_LT(saturated, 60000 / 20);
}

TEST(GaussianBlur, ApplyDoesNotChangeTheObject) {
  const CGaussianBlur blur(3);
  const cv::Mat kernel = blur.Kernel2D().clone();
  const cv::Mat row = blur.RowKernel().clone();
  const double scale = blur.Scale();
  cv::Mat dst;
  blur.Apply(RandomImage(16, 16, CV_16UC1, 3, 0.0, 1000.0), dst, true);
  blur.Apply(RandomImage(16, 16, CV_16UC1, 4, 0.0, 1000.0), dst, false);
  EXPECT_TRUE(ImagesEqual(kernel, blur.Kernel2D()));
  EXPECT_TRUE(ImagesEqual(row, blur.RowKernel()));
  EXPECT_EQ(scale, blur.Scale());
  EXPECT_EQ(blur.Sigma(), 3);
}

TEST(GaussianBlur, PowerProcessIsTheProductOfTheBlursInListOrder) {
  const cv::Mat src = RandomImage(40, 40, CV_16UC1, 12, 100.0, 2000.0);
  CGaussianBlur blur(2);
  const cv::Mat result = blur.PowerProcess(src, {2, 3, 5});
  cv::Mat expected = cv::Mat::ones(src.size(), CV_32F);
  for (const int sigma : {2, 3, 5}) {
    cv::Mat blurred;
    CGaussianBlur(sigma).Apply(src, blurred, true);
    cv::multiply(expected, blurred, expected, 1.0, CV_32F);
  }
  EXPECT_TRUE(ImagesEqual(result, expected));
}

TEST(GaussianBlur, PowerProcessKeepsTheKernelsOfTheLastSigma) {
  CGaussianBlur blur(2);
  const cv::Mat src = RandomImage(24, 24, CV_16UC1, 13, 0.0, 1000.0);
  blur.PowerProcess(src, {2, 3, 5, 7});
  const CGaussianBlur seven(7);
  EXPECT_EQ(blur.Sigma(), 7);
  EXPECT_EQ(blur.Kernel2D().cols, 65);
  EXPECT_TRUE(ImagesEqual(blur.Kernel2D(), seven.Kernel2D()));
  EXPECT_TRUE(ImagesEqual(blur.RowKernel(), seven.RowKernel()));
  EXPECT_EQ(blur.Scale(), seven.Scale());
}

TEST(GaussianBlur, PowerProcessEmptyInputOrEmptyListGivesAnEmptyResultAndKeepsTheSigma) {
  CGaussianBlur blur(2);
  EXPECT_TRUE(blur.PowerProcess(cv::Mat(), {3, 5}).empty());
  EXPECT_EQ(blur.Sigma(), 2);
  EXPECT_TRUE(blur.PowerProcess(RandomImage(8, 8, CV_16UC1, 14, 0.0, 100.0), {}).empty());
  EXPECT_EQ(blur.Sigma(), 2);
  EXPECT_EQ(blur.Kernel2D().cols, 21);
}

TEST(GaussianBlur, PowerProcessChannelsAreKept) {
  CGaussianBlur blur(2);
  const cv::Mat result = blur.PowerProcess(RandomImage(16, 16, CV_8UC3, 15, 0.0, 200.0), {2});
  EXPECT_EQ(result.type(), CV_32FC3);
}

}  // namespace

namespace {

using testerrors::ExpectCvError;

TEST(GaussianBlur, HugeSigmaKeepsTheCappedKernelWithoutRecursionOrMemory) {
  for (const int sigma : {10000, 300000, std::numeric_limits<int>::max()}) {
    const CGaussianBlur blur(sigma);
    ASSERT_EQ(blur.RowKernel().cols, 201) << sigma;
    ASSERT_EQ(blur.Kernel2D().size(), cv::Size(201, 201));
    double rowSum = 0.0;
    for (int j = 0; j < 201; ++j) {
      const int i = std::abs(j - 100);
      const double tap = static_cast<float>(std::exp(-0.5 * i * i / sigma / sigma));
      EXPECT_EQ(blur.RowKernel().at<double>(0, j), tap) << sigma << " " << j;
      rowSum += tap;
    }
    EXPECT_NEAR(blur.Scale(), rowSum * rowSum, 1e-9 * rowSum * rowSum);
    EXPECT_NEAR(cv::sum(blur.Kernel2D())[0], 1.0, 1e-12);
    // A flat image stays flat on both paths.
    const cv::Mat flat(30, 30, CV_32F, cv::Scalar(7.0));
    cv::Mat out;
    blur.Apply(flat, out, true);
    EXPECT_LT(MaxAbsDiff(out, flat), 1e-4);
  }
  // The largest sigma: every tap rounds to 1.
  const CGaussianBlur widest(std::numeric_limits<int>::max());
  EXPECT_EQ(widest.Scale(), 201.0 * 201.0);
}

TEST(GaussianBlur, KernelFactorialOfLargeOrNonFiniteArguments) {
  // The product from the smallest factor up, as the recursive definition multiplies.
  double expected = 1.0;
  for (int k = 2; k <= 170; ++k) expected = k * expected;
  EXPECT_EQ(CGaussianBlur::Factorial(170.0), expected);
  EXPECT_EQ(CGaussianBlur::Factorial(4.5), 4.5 * (3.5 * (2.5 * 1.5)));
  EXPECT_EQ(CGaussianBlur::Factorial(171.0), std::numeric_limits<double>::infinity());
  EXPECT_EQ(CGaussianBlur::Factorial(1e300), std::numeric_limits<double>::infinity());
  EXPECT_EQ(CGaussianBlur::Factorial(std::numeric_limits<double>::infinity()),
            std::numeric_limits<double>::infinity());
  EXPECT_EQ(CGaussianBlur::Factorial(-1e300), 1.0);
  EXPECT_TRUE(std::isnan(CGaussianBlur::Factorial(std::numeric_limits<double>::quiet_NaN())));
  // A binomial row past the finite factorials is not finite, and costs no recursion.
  const cv::Mat row = CGaussianBlur::BinomialKernel(200);
  ASSERT_EQ(row.cols, 201);
  EXPECT_FALSE(std::isfinite(row.at<float>(0, 100)));
  ExpectCvError([] { CGaussianBlur::BinomialKernel(-2); }, cv::Error::StsOutOfRange,
                "the binomial order must lie in 0 .. INT_MAX - 1", "CGaussianBlur::BinomialKernel");
  ExpectCvError([] { CGaussianBlur::BinomialKernel(std::numeric_limits<int>::max()); },
                cv::Error::StsOutOfRange, "the binomial order must lie in 0 .. INT_MAX - 1",
                "CGaussianBlur::BinomialKernel");
}

TEST(GaussianBlur, NegativeSigmaIsAClearErrorNotAnOverflow) {
  for (const int sigma : {-1, -7, std::numeric_limits<int>::min()}) {
    ExpectCvError([sigma] { CGaussianBlur blur(sigma); }, cv::Error::StsOutOfRange,
                  "a negative sigma gives a kernel without taps",
                  "CGaussianBlur::GaussianKernel2D");
  }
}

TEST(GaussianBlur, KernelEpsilonOutsideZeroToOneIsRefused) {
  CGaussianBlur blur(2);
  for (const double epsilon : {0.0, -1.0, 1.0, 2.0, std::numeric_limits<double>::quiet_NaN(),
                               std::numeric_limits<double>::infinity()}) {
    ExpectCvError([&] { blur.GaussianKernel2D(3.0, epsilon); }, cv::Error::StsOutOfRange,
                  "epsilon must lie strictly between 0 and 1", "CGaussianBlur::GaussianKernel2D");
    // The object keeps the kernels of sigma 2.
    EXPECT_EQ(blur.RowKernel().cols, 21);
  }
  ExpectCvError([&] { blur.GaussianKernel2D(std::numeric_limits<double>::quiet_NaN(), 3e-5); },
                cv::Error::StsBadArg, "sigma is not a number", "CGaussianBlur::GaussianKernel2D");
  // A huge real sigma is capped like a huge integer one.
  EXPECT_EQ(blur.GaussianKernel2D(1e300, 3e-5).cols, 201);
  EXPECT_EQ(blur.GaussianKernel2D(std::numeric_limits<double>::infinity(), 3e-5).cols, 201);
}

}  // namespace
