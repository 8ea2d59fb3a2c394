// A-trous wavelet: the decomposition against a naive dilated-kernel smoothing, reconstruction,
// saturation, the structure extraction's threshold, opening, outlier rejection, mask and base,
// the radial extension outside a region, and bad masks.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "ImageCompare.h"
#include "ImageHelpers.h"
#include "Random.h"
#include "filters/Wavelet.h"

namespace {

using testimages::MaxAbsDiff;
using testimages::Reflect101;

const std::vector<double> kB3 = {0.0625, 0.25, 0.375, 0.25, 0.0625};

// One level of a-trous smoothing written out: taps 2^level apart (no stored zeros), a vertical
// pass then a horizontal one, each rounded and saturated to signed 16 bits.
cv::Mat NaiveSmooth(const cv::Mat& src16s, const std::vector<double>& kernel, int level) {
  const int spacing = 1 << level;
  const int half = static_cast<int>(kernel.size()) / 2;
  cv::Mat vertical(src16s.size(), CV_16S);
  for (int y = 0; y < src16s.rows; ++y) {
    for (int x = 0; x < src16s.cols; ++x) {
      double sum = 0.0;
      for (int k = 0; k < static_cast<int>(kernel.size()); ++k) {
        sum += kernel[k] * src16s.at<short>(Reflect101(y + (k - half) * spacing, src16s.rows), x);
      }
      vertical.at<short>(y, x) = cv::saturate_cast<short>(sum);
    }
  }
  cv::Mat both(src16s.size(), CV_16S);
  for (int y = 0; y < src16s.rows; ++y) {
    for (int x = 0; x < src16s.cols; ++x) {
      double sum = 0.0;
      for (int k = 0; k < static_cast<int>(kernel.size()); ++k) {
        sum += kernel[k] * vertical.at<short>(y, Reflect101(x + (k - half) * spacing, src16s.cols));
      }
      both.at<short>(y, x) = cv::saturate_cast<short>(sum);
    }
  }
  return both;
}

cv::Mat RandomIntegers(int rows, int cols, int type, std::uint64_t seed, int lo, int hi) {
  datagen::Random rng(seed);
  cv::Mat values(rows, cols, CV_32S);
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x) values.at<int>(y, x) = rng.Int(lo, hi);
  }
  cv::Mat image;
  values.convertTo(image, type);
  return image;
}

// A smooth scene with a few bright spots, in 16-bit unsigned.
cv::Mat Scene(int rows, int cols, std::uint64_t seed) {
  datagen::Random rng(seed);
  cv::Mat image(rows, cols, CV_16UC1);
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x) {
      double v = 500.0 + 2.0 * x + 1.0 * y;
      for (const auto& spot : {cv::Point3d(40, 50, 2.0), cv::Point3d(120, 90, 4.0)}) {
        const double dx = x - spot.x;
        const double dy = y - spot.y;
        v += 3000.0 * std::exp(-0.5 * (dx * dx + dy * dy) / (spot.z * spot.z));
      }
      image.at<unsigned short>(y, x) = cv::saturate_cast<unsigned short>(v + 10.0 * rng.Normal());
    }
  }
  return image;
}

std::vector<cv::Mat> ZeroPlanes(int count, cv::Size size) {
  std::vector<cv::Mat> planes;
  for (int i = 0; i < count; ++i) planes.push_back(cv::Mat::zeros(size, CV_16S));
  return planes;
}

// A wavelet with the B3 kernel and the given rejection holding the detail planes (and as many
// zero smooth planes).
CWavelet WithPlanes(const std::vector<cv::Mat>& details, float rejection = 4.0f) {
  CWavelet wavelet(kB3, rejection);
  wavelet.SetPlanes(details, ZeroPlanes(static_cast<int>(details.size()), details.front().size()));
  return wavelet;
}

cv::Mat Structures(const CWavelet& wavelet, float k, const cv::Mat& mask,
                   const cv::Mat& base = cv::Mat()) {
  cv::Mat out;
  wavelet.ExtractStructures(out, 0, k, mask, base);
  return out;
}

TEST(Wavelet, DecomposeMakesSevenSigned16BitLevels) {
  CWavelet wavelet(kB3, 4.0f);
  const cv::Mat src = Scene(64, 80, 1);
  wavelet.Decompose(src, 0, cv::Mat());
  ASSERT_EQ(wavelet.Details().size(), 7u);
  ASSERT_EQ(wavelet.Smooths().size(), 7u);
  for (int level = 0; level < 7; ++level) {
    EXPECT_EQ(wavelet.Details()[level].type(), CV_16SC1);
    EXPECT_EQ(wavelet.Smooths()[level].type(), CV_16SC1);
    EXPECT_EQ(wavelet.Details()[level].size(), src.size());
  }
  // The caller's kernel is not touched by the dilation of the higher levels.
  EXPECT_EQ(wavelet.Kernel(), kB3);
}

TEST(Wavelet, DecomposePlanesAreDeepCopies) {
  CWavelet wavelet(kB3, 4.0f);
  wavelet.Decompose(Scene(48, 48, 2), 0, cv::Mat());
  for (int i = 0; i < 7; ++i) {
    for (int j = i + 1; j < 7; ++j) {
      EXPECT_NE(wavelet.Smooths()[i].data, wavelet.Smooths()[j].data);
      EXPECT_NE(wavelet.Details()[i].data, wavelet.Details()[j].data);
    }
  }
}

TEST(Wavelet, DecomposeSmoothingDilatesTheKernelAtEveryLevel) {
  // Each level checked from the library's previous smooth, so differences cannot accumulate.
  CWavelet wavelet(kB3, 4.0f);
  const cv::Mat src = RandomIntegers(200, 210, CV_16UC1, 3, 0, 12000);
  wavelet.Decompose(src, 0, cv::Mat());
  cv::Mat previous;
  src.convertTo(previous, CV_16S);
  for (int level = 0; level < 7; ++level) {
    const cv::Mat expected = NaiveSmooth(previous, kB3, level);
    // Up to 33 taps the filter sums the dyadic taps exactly; from 65 taps on it goes through the
    // DFT, which may land a rounding tie one grey level off.
    const double tolerance = level <= 3 ? 0.0 : 1.0;
    EXPECT_LE(MaxAbsDiff(wavelet.Smooths()[level], expected), tolerance) << "level " << level;
    previous = wavelet.Smooths()[level];
  }
}

TEST(Wavelet, DecomposeDetailsPlusLastSmoothReconstructTheImage) {
  CWavelet wavelet(kB3, 4.0f);
  const cv::Mat src = RandomIntegers(90, 70, CV_16UC1, 4, 0, 20000);
  wavelet.Decompose(src, 0, cv::Mat());
  cv::Mat sum;
  wavelet.Smooths().back().convertTo(sum, CV_32S);
  for (const cv::Mat& detail : wavelet.Details()) cv::add(sum, detail, sum, cv::noArray(), CV_32S);
  cv::Mat expected;
  src.convertTo(expected, CV_32S);
  EXPECT_TRUE(ImagesEqual(sum, expected));
}

TEST(Wavelet, DecomposeDetailsAndTheFirstInputSaturateInSigned16Bit) {
  CWavelet wavelet(kB3, 4.0f);
  cv::Mat src = cv::Mat::zeros(32, 32, CV_16UC1);
  src.at<unsigned short>(16, 16) = 60000;
  wavelet.Decompose(src, 0, cv::Mat());
  // The source is brought to 32767 before smoothing; 60000 minus the smooth saturates.
  EXPECT_EQ(wavelet.Smooths()[0].at<short>(16, 16), std::lround(32767 * 0.375 * 0.375));
  EXPECT_EQ(wavelet.Details()[0].at<short>(16, 16), 32767);
}

TEST(Wavelet, DecomposeEmptySourceLeavesTheObjectUnchanged) {
  CWavelet wavelet(kB3, 4.0f);
  wavelet.Decompose(Scene(40, 40, 5), 0, cv::Mat());
  const cv::Mat first = wavelet.Details()[3];
  wavelet.Decompose(cv::Mat(), 0, cv::Mat());
  ASSERT_EQ(wavelet.Details().size(), 7u);
  EXPECT_EQ(wavelet.Details()[3].data, first.data);
}

TEST(Wavelet, DecomposeRegionOfTheWrongSizeOrTypeThrowsAndKeepsThePlanes) {
  CWavelet wavelet(kB3, 4.0f);
  const cv::Mat src = Scene(60, 60, 6);
  wavelet.Decompose(src, 0, cv::Mat());
  const std::vector<cv::Mat> details = wavelet.Details();
  const cv::Mat other = Scene(60, 60, 7);
  EXPECT_THROW(wavelet.Decompose(other, 0, cv::Mat::ones(50, 60, CV_8U)), cv::Exception);
  EXPECT_THROW(wavelet.Decompose(other, 0, cv::Mat::ones(60, 60, CV_16U)), cv::Exception);
  ASSERT_EQ(wavelet.Details().size(), 7u);
  for (size_t i = 0; i < details.size(); ++i) {
    EXPECT_EQ(wavelet.Details()[i].data, details[i].data) << i;
  }
}

TEST(Wavelet, DecomposeARegionDecomposesTheExtendedImage) {
  const cv::Mat src = Scene(100, 120, 8);
  cv::Mat region = cv::Mat::zeros(src.size(), CV_8U);
  cv::circle(region, cv::Point(60, 50), 35, cv::Scalar(255), cv::FILLED);
  CWavelet withRegion(kB3, 4.0f);
  withRegion.Decompose(src, 0, region);
  cv::Mat extended;
  CWavelet::ExtendOutsideMask(src, extended, region);
  CWavelet direct(kB3, 4.0f);
  direct.Decompose(extended, 0, cv::Mat());
  for (int level = 0; level < 7; ++level) {
    EXPECT_TRUE(ImagesEqual(withRegion.Details()[level], direct.Details()[level])) << level;
  }
}

TEST(Wavelet, StructuresNoPlanesGiveAnEmptyResult) {
  const CWavelet wavelet(kB3, 4.0f);
  cv::Mat out = cv::Mat::ones(4, 4, CV_32F);
  wavelet.ExtractStructures(out, 0, 3.0f, cv::Mat::ones(4, 4, CV_8U), cv::Mat());
  EXPECT_TRUE(out.empty());
}

TEST(Wavelet, StructuresFewerThanThreePlanesGiveZerosInsideTheMask) {
  CWavelet wavelet(kB3, 4.0f);
  const cv::Size size(40, 30);
  wavelet.SetPlanes(
      {RandomIntegers(30, 40, CV_16S, 9, -500, 500), RandomIntegers(30, 40, CV_16S, 10, -500, 500)},
      ZeroPlanes(2, size));
  const cv::Mat mask = cv::Mat::ones(size, CV_8U);
  const cv::Mat out = Structures(wavelet, 3.0f, mask);
  ASSERT_EQ(out.type(), CV_32FC1);
  EXPECT_EQ(cv::countNonZero(out), 0);

  // With a base the sum of no planes is the base inside the mask.
  cv::Mat half = cv::Mat::zeros(size, CV_8U);
  half(cv::Rect(0, 0, 20, 30)).setTo(255);
  const cv::Mat base(size, CV_32F, cv::Scalar(7.5f));
  const cv::Mat withBase = Structures(wavelet, 3.0f, half, base);
  EXPECT_EQ(cv::countNonZero(withBase(cv::Rect(0, 0, 20, 30)) != 7.5f), 0);
  EXPECT_EQ(cv::countNonZero(withBase(cv::Rect(20, 0, 20, 30))), 0);
}

TEST(Wavelet, StructuresAPlaneEntirelyBelowTheThresholdContributesNothing) {
  // Noise of -2..2 and a 20x20 block of 4: the noise level is about 1.45, so k = 3 clears the
  // block and k = 2 keeps it.
  const cv::Size size(200, 200);
  cv::Mat plane = RandomIntegers(200, 200, CV_16S, 11, -2, 2);
  plane(cv::Rect(90, 90, 20, 20)).setTo(4);
  std::vector<cv::Mat> details = ZeroPlanes(2, size);
  details.push_back(plane);
  CWavelet wavelet = WithPlanes(details);
  const cv::Mat mask = cv::Mat::ones(size, CV_8U);

  EXPECT_EQ(cv::countNonZero(Structures(wavelet, 3.0f, mask)), 0);
  const cv::Mat kept = Structures(wavelet, 2.0f, mask);
  EXPECT_EQ(kept.at<float>(100, 100), 4.0f);
  EXPECT_EQ(cv::countNonZero(kept(cv::Rect(0, 0, 80, 80))), 0);
}

TEST(Wavelet, StructuresNegativeCoefficientsAreAlwaysCleared) {
  const cv::Size size(60, 60);
  std::vector<cv::Mat> details = ZeroPlanes(3, size);
  details[2](cv::Rect(20, 20, 15, 15)).setTo(-300);
  CWavelet wavelet = WithPlanes(details);
  EXPECT_EQ(cv::countNonZero(Structures(wavelet, 0.0f, cv::Mat::ones(size, CV_8U))), 0);
}

TEST(Wavelet, StructuresStructuresSmallerThanTheFiveByFiveEllipseVanish) {
  const cv::Size size(120, 120);
  std::vector<cv::Mat> details = ZeroPlanes(4, size);
  // Squares of sides 3, 4, 5 and 7 in a row.
  for (const cv::Rect& square : {cv::Rect(10, 10, 3, 3), cv::Rect(30, 10, 4, 4),
                                 cv::Rect(50, 10, 5, 5), cv::Rect(80, 10, 7, 7)}) {
    details[3](square).setTo(100);
  }
  CWavelet wavelet = WithPlanes(details);
  const cv::Mat out = Structures(wavelet, 3.0f, cv::Mat::ones(size, CV_8U));
  EXPECT_EQ(cv::countNonZero(out(cv::Rect(5, 5, 35, 20))), 0);
  // A 5x5 square keeps the ellipse inside it (its corners go); 7x7 keeps its centre.
  cv::Mat ellipse;
  cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(5, 5)).convertTo(ellipse, CV_32F, 100.0);
  EXPECT_TRUE(ImagesEqual(out(cv::Rect(50, 10, 5, 5)), ellipse));
  EXPECT_EQ(out.at<float>(12, 52), 100.0f);
  EXPECT_EQ(out.at<float>(10, 50), 0.0f);
  EXPECT_EQ(out.at<float>(13, 83), 100.0f);

  // The opening is as wide as the scaling kernel: with three taps a 3x3 block stays.
  wavelet.SetKernel({0.25, 0.5, 0.25});
  const cv::Mat narrow = Structures(wavelet, 3.0f, cv::Mat::ones(size, CV_8U));
  EXPECT_EQ(narrow.at<float>(11, 11), 100.0f);
}

TEST(Wavelet, StructuresOutliersAreRejectedFromTheNoiseLevel) {
  // Noise of -3..3, 200 single-pixel outliers of 3000 and a 9x9 structure of 12. Without the
  // rejection the outliers raise the noise level to about 200 and the structure is cleared.
  const cv::Size size(200, 200);
  cv::Mat plane = RandomIntegers(200, 200, CV_16S, 12, -3, 3);
  datagen::Random rng(13);
  for (int i = 0; i < 200; ++i) plane.at<short>(rng.Int(0, 199), rng.Int(0, 199)) = 3000;
  plane(cv::Rect(150, 150, 9, 9)).setTo(12);
  std::vector<cv::Mat> details = ZeroPlanes(2, size);
  details.push_back(plane);
  const cv::Mat mask = cv::Mat::ones(size, CV_8U);

  CWavelet rejecting = WithPlanes(details);
  const cv::Mat out = Structures(rejecting, 3.0f, mask);
  EXPECT_EQ(out.at<float>(154, 154), 12.0f);

  CWavelet keeping = WithPlanes(details, 1e6f);
  EXPECT_EQ(Structures(keeping, 3.0f, mask).at<float>(154, 154), 0.0f);
}

TEST(Wavelet, StructuresTheTwoFinestPlanesNeverContribute) {
  // The blocks cover 4% of the planes, so the rejection takes them out of the noise level.
  const cv::Size size(100, 100);
  std::vector<cv::Mat> details = ZeroPlanes(7, size);
  details[0](cv::Rect(10, 10, 20, 20)).setTo(500);
  details[1](cv::Rect(10, 10, 20, 20)).setTo(500);
  details[6](cv::Rect(10, 10, 20, 20)).setTo(9);
  CWavelet wavelet = WithPlanes(details);
  const cv::Mat out = Structures(wavelet, 3.0f, cv::Mat::ones(size, CV_8U));
  EXPECT_EQ(out.at<float>(20, 20), 9.0f);
}

TEST(Wavelet, StructuresTheMaskLimitsTheResultWithWeightOne) {
  CWavelet wavelet(kB3, 4.0f);
  wavelet.Decompose(Scene(160, 160, 14), 0, cv::Mat());
  cv::Mat mask255 = cv::Mat::zeros(160, 160, CV_8U);
  mask255(cv::Rect(0, 0, 160, 80)).setTo(255);
  const cv::Mat out = Structures(wavelet, 3.0f, mask255);
  EXPECT_EQ(cv::countNonZero(out(cv::Rect(0, 80, 160, 80))), 0);
  // The spot at (40, 50) lies inside; any non-zero mask value weighs as 1.
  EXPECT_GT(out.at<float>(50, 40), 0.0f);
  cv::Mat mask1 = cv::Mat::zeros(160, 160, CV_8U);
  mask1(cv::Rect(0, 0, 160, 80)).setTo(1);
  EXPECT_TRUE(ImagesEqual(out, Structures(wavelet, 3.0f, mask1)));
  // The spot at (120, 90) lies outside this mask but inside a full one.
  const cv::Mat full = Structures(wavelet, 3.0f, cv::Mat::ones(160, 160, CV_8U));
  EXPECT_EQ(out.at<float>(90, 120), 0.0f);
  EXPECT_GT(full.at<float>(90, 120), 0.0f);
}

TEST(Wavelet, StructuresRepeatedCallsGiveTheSameResult) {
  CWavelet wavelet(kB3, 4.0f);
  wavelet.Decompose(Scene(128, 128, 15), 0, cv::Mat());
  const cv::Mat mask = cv::Mat::ones(128, 128, CV_8U);
  const cv::Mat a = Structures(wavelet, 3.0f, mask);
  const cv::Mat b = Structures(wavelet, 3.0f, mask);
  EXPECT_TRUE(ImagesEqual(a, b));
  EXPECT_GT(cv::countNonZero(a), 0);
}

TEST(Wavelet, StructuresMaskOfTheWrongSizeOrTypeThrowsAndKeepsThePlanes) {
  CWavelet wavelet(kB3, 4.0f);
  wavelet.Decompose(Scene(64, 64, 16), 0, cv::Mat());
  const std::vector<cv::Mat> details = wavelet.Details();
  cv::Mat out;
  EXPECT_THROW(wavelet.ExtractStructures(out, 0, 3.0f, cv::Mat::ones(63, 64, CV_8U), cv::Mat()),
               cv::Exception);
  EXPECT_THROW(wavelet.ExtractStructures(out, 0, 3.0f, cv::Mat::ones(64, 64, CV_16U), cv::Mat()),
               cv::Exception);
  ASSERT_EQ(wavelet.Details().size(), 7u);
  for (size_t i = 0; i < details.size(); ++i) {
    EXPECT_EQ(wavelet.Details()[i].data, details[i].data);
    EXPECT_TRUE(ImagesEqual(wavelet.Details()[i], details[i]));
  }
}

// ExtendOutsideMask's steps with the stretched range as a parameter.
cv::Mat ReferenceExtension(const cv::Mat& src, const cv::Mat& region, bool stopShort) {
  const cv::Point2f centre(static_cast<float>(src.cols / 2), static_cast<float>(src.rows / 2));
  const double radius = std::sqrt(static_cast<double>((src.rows / 2) * (src.rows / 2)) +
                                  static_cast<double>((src.cols / 2) * (src.cols / 2)));
  cv::Mat polar;
  cv::warpPolar(src, polar, cv::Size(), centre, radius, cv::INTER_LINEAR + cv::WARP_FILL_OUTLIERS);
  const int width = polar.cols - 710 - (stopShort ? 1 : 0);
  if (polar.cols > 710 && width > 0) {
    cv::Mat outer = polar(cv::Rect(710, 0, width, polar.rows));
    cv::resize(polar(cv::Rect(710, 0, 1, polar.rows)).clone(), outer, outer.size(), 0.0, 0.0,
               cv::INTER_LINEAR);
  }
  cv::Mat dst = cv::Mat::zeros(src.size(), src.type());
  cv::warpPolar(polar, dst, src.size(), centre, radius,
                cv::INTER_LINEAR + cv::WARP_FILL_OUTLIERS + cv::WARP_INVERSE_MAP);
  src.copyTo(dst, region);
  return dst;
}

// ExtendOutsideMask of src with a disc of the given radius around the image centre as region.
cv::Mat ExtendAroundDisc(const cv::Mat& src, int radius, cv::Mat& region) {
  region = cv::Mat::zeros(src.size(), CV_8U);
  cv::circle(region, cv::Point(src.cols / 2, src.rows / 2), radius, cv::Scalar(1), cv::FILLED);
  cv::Mat dst;
  CWavelet::ExtendOutsideMask(src, dst, region);
  return dst;
}

cv::Mat RadialRamp(int size) {
  cv::Mat image(size, size, CV_16UC1);
  const double c = size / 2;
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      image.at<unsigned short>(y, x) =
          static_cast<unsigned short>(std::lround(10.0 * std::hypot(x - c, y - c)));
    }
  }
  return image;
}

TEST(Wavelet, ExtensionNarrowPolarFormIsMappedBackWithoutExtension) {
  // 300 x 260: radius 198, so the polar image has 198 columns.
  const cv::Mat src = RandomIntegers(260, 300, CV_16UC1, 17, 100, 9000);
  cv::Mat region;
  const cv::Mat dst = ExtendAroundDisc(src, 80, region);
  EXPECT_TRUE(ImagesEqual(dst, ReferenceExtension(src, region, true)));
  // Inside the region the source is kept exactly; outside it is the round trip through polar.
  cv::Mat inside = cv::Mat::zeros(src.size(), src.type());
  dst.copyTo(inside, region);
  cv::Mat sourceInside = cv::Mat::zeros(src.size(), src.type());
  src.copyTo(sourceInside, region);
  EXPECT_TRUE(ImagesEqual(inside, sourceInside));
  EXPECT_FALSE(ImagesEqual(dst, src));
}

TEST(Wavelet, ExtensionPolarWidthOf711HasNothingToStretch) {
  // 1006 x 1006: radius 711.4, 711 polar columns; the range from 710 that stops one column
  // short of the edge is empty, so the image is mapped back as it is.
  const cv::Mat src = RadialRamp(1006);
  cv::Mat region;
  const cv::Mat dst = ExtendAroundDisc(src, 200, region);
  EXPECT_TRUE(ImagesEqual(dst, ReferenceExtension(src, region, true)));
  EXPECT_NEAR(dst.at<unsigned short>(503 + 488, 503 + 488), 6900, 30);
}

TEST(Wavelet, ExtensionRadiiFrom710OnRepeatTheValueAt710) {
  // 1100 x 1100: radius 777.8, 778 polar columns.
  const cv::Mat src = RadialRamp(1100);
  cv::Mat region;
  const cv::Mat dst = ExtendAroundDisc(src, 300, region);
  // Radius 740 along the diagonal reads the ramp at 710, radius 600 its own value.
  EXPECT_NEAR(dst.at<unsigned short>(550 + 523, 550 + 523), 7100, 30);
  EXPECT_NEAR(dst.at<unsigned short>(550 + 424, 550 + 424), 6000, 30);
  EXPECT_EQ(dst.at<unsigned short>(550, 550 + 299), src.at<unsigned short>(550, 550 + 299));
  // The stretched range stops one column short of the edge.
  EXPECT_TRUE(ImagesEqual(dst, ReferenceExtension(src, region, true)));
  EXPECT_FALSE(ImagesEqual(dst, ReferenceExtension(src, region, false)));
}

TEST(Wavelet, ExtensionRegionOfTheWrongSizeThrows) {
  const cv::Mat src = RandomIntegers(40, 40, CV_16UC1, 18, 0, 100);
  cv::Mat dst;
  EXPECT_THROW(CWavelet::ExtendOutsideMask(src, dst, cv::Mat::ones(30, 40, CV_8U)), cv::Exception);
}

}  // namespace

namespace {

TEST(Wavelet, DecomposeThreeDimensionalRegionThrowsInsteadOfBeingIgnored) {
  CWavelet wavelet(kB3, 4.0f);
  wavelet.Decompose(Scene(60, 60, 6), 0, cv::Mat());
  const std::vector<cv::Mat> details = wavelet.Details();
  const int sizes[] = {60, 60, 1};
  const cv::Mat region(3, sizes, CV_8U, cv::Scalar(255));
  EXPECT_THROW(wavelet.Decompose(Scene(60, 60, 7), 0, region), cv::Exception);
  ASSERT_EQ(wavelet.Details().size(), 7u);
  for (size_t i = 0; i < details.size(); ++i) {
    EXPECT_EQ(wavelet.Details()[i].data, details[i].data) << i;
  }
}

TEST(Wavelet, StructuresIntegerBaseStillGivesAFloatResult) {
  CWavelet wavelet(kB3, 4.0f);
  wavelet.Decompose(Scene(64, 64, 18), 0, cv::Mat());
  const cv::Mat mask = cv::Mat::ones(64, 64, CV_8U);
  const cv::Mat withoutBase = Structures(wavelet, 3.0f, mask);
  for (const int type : {CV_8U, CV_16U, CV_16S, CV_32S, CV_64F}) {
    const cv::Mat base(64, 64, type, cv::Scalar(100));
    const cv::Mat out = Structures(wavelet, 3.0f, mask, base);
    ASSERT_EQ(out.type(), CV_32FC1) << type;
    // The planes add to the base: the result is the base's 100 above the base-less one.
    EXPECT_LT(MaxAbsDiff(out, withoutBase + 100.0), 1e-3) << type;
  }
  cv::Mat out;
  EXPECT_THROW(wavelet.ExtractStructures(out, 0, 3.0f, mask, cv::Mat(32, 64, CV_32F)),
               cv::Exception);
  EXPECT_THROW(wavelet.ExtractStructures(out, 0, 3.0f, mask, cv::Mat(64, 64, CV_32FC2)),
               cv::Exception);
  EXPECT_TRUE(out.empty());
}

}  // namespace
