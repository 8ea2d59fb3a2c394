// The cosmic-ray filter: square medians for radius 1 and 2, the disc beyond, the strict
// threshold, dark outliers left alone, the mask, a fresh dst, the errors of its median, and the
// pruned path against the straightforward one on random images, and radii far beyond the image.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <functional>
#include <opencv2/core.hpp>
#include <string>
#include <tuple>

#include "CvErrors.h"
#include "ImageHelpers.h"
#include "RandomImages.h"
#include "filters/FilterCosmicRay.h"
#include "filters/MedianFunction16U.h"
#include "reference/DiscMedianReference.h"

namespace {

using testerrors::CaptureError;
using testerrors::ExpectMedianBlurError;
using testimages::Equal;

std::uint16_t At(const cv::Mat& m, int y, int x) { return m.at<std::uint16_t>(y, x); }

// Both the filter and its straightforward form.
cv::Mat Filter(const CFilterCosmicRay& filter, const cv::Mat& src, const cv::Mat& mask,
               bool reference) {
  cv::Mat dst;
  if (reference) {
    filter.ProcessReference(src, dst, mask);
  } else {
    filter.Process(src, dst, mask);
  }
  return dst;
}

TEST(FilterCosmicRay, KeepsRadiusAndThreshold) {
  const CFilterCosmicRay filter(10, 100);
  EXPECT_EQ(filter.Radius(), 10);
  EXPECT_EQ(filter.Threshold(), 100);
}

// Each radius through both the filter and its straightforward form.
class RadiusAndPath : public ::testing::TestWithParam<std::tuple<int, bool>> {
 protected:
  CFilterCosmicRay FilterOf(int threshold) const {
    return CFilterCosmicRay(std::get<0>(GetParam()), threshold);
  }
  cv::Mat Run(const cv::Mat& src, const cv::Mat& mask, int threshold = 100) const {
    return Filter(FilterOf(threshold), src, mask, std::get<1>(GetParam()));
  }
};

std::string RadiusAndPathName(const ::testing::TestParamInfo<std::tuple<int, bool>>& info) {
  return "Radius" + std::to_string(std::get<0>(info.param)) +
         (std::get<1>(info.param) ? "Straightforward" : "Fast");
}

TEST_P(RadiusAndPath, ExactlyThresholdAboveIsKeptOneMoreIsReplaced) {
  cv::Mat src(31, 31, CV_16UC1, cv::Scalar(1000));
  src.at<std::uint16_t>(10, 10) = 1100;  // exactly threshold above the median
  src.at<std::uint16_t>(20, 20) = 1101;  // one grey level more
  const cv::Mat dst = Run(src, cv::Mat());
  EXPECT_EQ(At(dst, 10, 10), 1100);
  EXPECT_EQ(At(dst, 20, 20), 1000);
  EXPECT_EQ(cv::countNonZero(dst != 1000), 1);
}

TEST_P(RadiusAndPath, DarkOutliersAreKept) {
  cv::Mat src(25, 25, CV_16UC1, cv::Scalar(30000));
  src.at<std::uint16_t>(12, 12) = 0;
  src.at<std::uint16_t>(0, 0) = 5;
  src.at<std::uint16_t>(24, 3) = 100;
  EXPECT_TRUE(Equal(Run(src, cv::Mat()), src));
}

TEST_P(RadiusAndPath, ImageWithoutOutliersComesBackIdenticalInAFreshBuffer) {
  datagen::Random rng(3);
  cv::Mat src(64, 80, CV_16UC1);
  for (int y = 0; y < src.rows; ++y) {
    for (int x = 0; x < src.cols; ++x) {
      src.at<std::uint16_t>(y, x) =
          static_cast<std::uint16_t>(5000 + 3 * x + 2 * y + rng.Int(-20, 20));
    }
  }
  const cv::Mat dst = Run(src, cv::Mat());
  EXPECT_TRUE(Equal(dst, src));
  EXPECT_NE(dst.data, src.data);
}

TEST_P(RadiusAndPath, MaskRestrictsTheReplacement) {
  cv::Mat src(40, 40, CV_16UC1, cv::Scalar(2000));
  src.at<std::uint16_t>(5, 5) = 9000;
  src.at<std::uint16_t>(20, 20) = 9000;
  src.at<std::uint16_t>(35, 30) = 9000;
  cv::Mat mask(40, 40, CV_8UC1, cv::Scalar(0));
  mask.at<unsigned char>(20, 20) = 1;  // any non-zero value selects
  mask.at<unsigned char>(5, 5) = 255;
  const cv::Mat dst = Run(src, mask);
  EXPECT_EQ(At(dst, 5, 5), 2000);
  EXPECT_EQ(At(dst, 20, 20), 2000);
  EXPECT_EQ(At(dst, 35, 30), 9000);
  // An empty mask treats the whole image.
  EXPECT_EQ(cv::countNonZero(Run(src, cv::Mat()) != 2000), 0);
}

TEST_P(RadiusAndPath, MaskOfAnotherSizeOrTypeThrows) {
  const cv::Mat src(20, 20, CV_16UC1, cv::Scalar(2000));
  for (const cv::Mat& mask :
       {cv::Mat(19, 20, CV_8UC1, cv::Scalar(1)), cv::Mat(20, 20, CV_16UC1, cv::Scalar(1))}) {
    EXPECT_THROW(Run(src, mask), cv::Exception);
  }
}

TEST_P(RadiusAndPath, ThreeDimensionalMaskThrowsInsteadOfBeingIgnored) {
  cv::Mat src(20, 20, CV_16UC1, cv::Scalar(2000));
  src.at<std::uint16_t>(10, 10) = 9000;
  const cv::Mat before = src.clone();
  const int sizes[] = {20, 20, 1};
  const cv::Mat mask(3, sizes, CV_8UC1, cv::Scalar(0));
  cv::Mat dst(3, 3, CV_16UC1, cv::Scalar(5));
  EXPECT_THROW(Filter(FilterOf(100), src, mask, std::get<1>(GetParam())), cv::Exception);
  EXPECT_TRUE(Equal(src, before));
}

INSTANTIATE_TEST_SUITE_P(FilterCosmicRay, RadiusAndPath,
                         ::testing::Combine(::testing::Values(1, 2, 3, 4, 6, 10),
                                            ::testing::Bool()),
                         RadiusAndPathName);

TEST(FilterCosmicRay, RadiusTwoUsesASquareWindow) {
  // A 7 x 7 image at 100 with the centre and 10 more pixels of its radius-2 disc at 1000: the
  // disc holds 11 bright of 21, its median is 1000 and the centre is no outlier; the 5 x 5
  // square holds 11 bright of 25, its median is 100 and the centre is replaced.
  cv::Mat src(7, 7, CV_16UC1, cv::Scalar(100));
  const cv::Point bright[11] = {{3, 3}, {3, 1}, {3, 5}, {1, 3}, {5, 3}, {2, 2},
                                {4, 4}, {2, 4}, {4, 2}, {3, 2}, {3, 4}};
  for (const cv::Point& p : bright) src.at<std::uint16_t>(p) = 1000;
  cv::Mat discMedian;
  CFilterCosmicRay::MedianBlur(src, discMedian, 2);
  EXPECT_EQ(At(discMedian, 3, 3), 1000);
  for (bool reference : {false, true}) {
    const cv::Mat dst = Filter(CFilterCosmicRay(2, 50), src, cv::Mat(), reference);
    EXPECT_EQ(At(dst, 3, 3), 100);
  }
}

// A single hot pixel in the corner of a 5 x 5 image lies outside the radius-2 disc of the centre,
// yet the square windows of radius 1 and 2 (replicated border) remove it.
class SquareRadius : public ::testing::TestWithParam<std::tuple<int, bool>> {};

TEST_P(SquareRadius, CatchesACornerHotPixel) {
  cv::Mat src(5, 5, CV_16UC1, cv::Scalar(200));
  src.at<std::uint16_t>(0, 0) = 9000;
  const cv::Mat dst = Filter(CFilterCosmicRay(std::get<0>(GetParam()), 100), src, cv::Mat(),
                             std::get<1>(GetParam()));
  EXPECT_EQ(At(dst, 0, 0), 200);
  EXPECT_EQ(cv::countNonZero(dst != 200), 0);
  // The radius-2 disc around the centre does not reach the corner: its top row spans only
  // dx = -1..1.
  EXPECT_EQ(MedianFunction_16U::DiscHalfWidths(2).front(), 1);
}

INSTANTIATE_TEST_SUITE_P(FilterCosmicRay, SquareRadius,
                         ::testing::Combine(::testing::Values(1, 2), ::testing::Bool()),
                         RadiusAndPathName);

// Radius 1 takes the 3 x 3 square with the border replicated: at the corner (0, 0) the square
// holds the corner four times, its two edge neighbours twice and the diagonal once. With the
// corner and its diagonal at 300 on 100 the square's median is 300 (five of nine), while the
// radius-1 disc cut by the border (corner and two edge neighbours) has the median 100.
TEST(FilterCosmicRay, RadiusOneMedianAtACornerIsTheSquaresNotTheDiscs) {
  cv::Mat src(6, 6, CV_16UC1, cv::Scalar(100));
  src.at<std::uint16_t>(0, 0) = 300;
  src.at<std::uint16_t>(1, 1) = 300;
  cv::Mat discMedian;
  CFilterCosmicRay::MedianBlur(src, discMedian, 1);
  ASSERT_EQ(At(discMedian, 0, 0), 100);
  for (bool reference : {false, true}) {
    const cv::Mat dst = Filter(CFilterCosmicRay(1, 50), src, cv::Mat(), reference);
    EXPECT_EQ(At(dst, 0, 0), 300) << (reference ? "reference" : "pruned");
  }
}

TEST(FilterCosmicRay, DestinationIsAFreshCopy) {
  cv::Mat src(30, 30, CV_16UC1, cv::Scalar(700));
  src.at<std::uint16_t>(15, 15) = 5000;
  for (int radius : {2, 5}) {
    cv::Mat image = src.clone();
    cv::Mat dst = image;  // shares the buffer
    CFilterCosmicRay(radius, 100).Process(image, dst, cv::Mat());
    EXPECT_NE(dst.data, image.data);
    EXPECT_EQ(At(image, 15, 15), 5000);
    EXPECT_EQ(At(dst, 15, 15), 700);
    // The same matrix as source and destination.
    cv::Mat inPlace = src.clone();
    const uchar* before = inPlace.data;
    CFilterCosmicRay(radius, 100).Process(inPlace, inPlace, cv::Mat());
    EXPECT_NE(inPlace.data, before);
    EXPECT_EQ(cv::countNonZero(inPlace != 700), 0);
  }
}

TEST(FilterCosmicRay, DiscRadiusNeedsSixteenBitSingleChannel) {
  for (int type : {CV_8UC1, CV_32FC1, CV_16SC1, CV_16UC3}) {
    const cv::Mat src(12, 12, type, cv::Scalar::all(10));
    cv::Mat dst(3, 3, CV_8UC1, cv::Scalar(42));
    const uchar* before = dst.data;
    const cv::Exception e =
        CaptureError([&] { CFilterCosmicRay(3, 100).Process(src, dst, cv::Mat()); });
    ExpectMedianBlurError(e, -213, "Not impl", 106);
    EXPECT_EQ(dst.data, before);
    EXPECT_EQ(dst.size(), cv::Size(3, 3));
    EXPECT_EQ(cv::countNonZero(dst != 42), 0);
  }
}

TEST(FilterCosmicRay, BadRadiusOrEmptySourceIsWrongParameters) {
  const cv::Mat image(12, 12, CV_16UC1, cv::Scalar(10));
  struct Case {
    int radius;
    cv::Mat src;
  };
  for (const Case& c : {Case{0, image}, Case{-3, image}, Case{3, cv::Mat()}, Case{10, cv::Mat()}}) {
    cv::Mat dst(3, 3, CV_8UC1, cv::Scalar(42));
    const uchar* before = dst.data;
    const cv::Exception e =
        CaptureError([&] { CFilterCosmicRay(c.radius, 100).Process(c.src, dst, cv::Mat()); });
    ExpectMedianBlurError(e, -5, "wrongs parameters", 90);
    EXPECT_EQ(dst.data, before);
    EXPECT_EQ(cv::countNonZero(dst != 42), 0);
  }
}

TEST(FilterCosmicRay, SquareRadiiAcceptWhatMedianBlurAccepts) {
  // 8-bit and float work with the square radii; what cv::medianBlur rejects passes through.
  cv::Mat bytes(9, 9, CV_8UC1, cv::Scalar(20));
  bytes.at<unsigned char>(4, 4) = 250;
  cv::Mat floats(9, 9, CV_32FC1, cv::Scalar(20.0f));
  floats.at<float>(4, 4) = 250.0f;
  for (int radius : {1, 2}) {
    cv::Mat dst;
    CFilterCosmicRay(radius, 100).Process(bytes, dst, cv::Mat());
    EXPECT_EQ(dst.type(), CV_8UC1);
    EXPECT_EQ(dst.at<unsigned char>(4, 4), 20);
    CFilterCosmicRay(radius, 100).Process(floats, dst, cv::Mat());
    EXPECT_EQ(dst.type(), CV_32FC1);
    EXPECT_EQ(dst.at<float>(4, 4), 20.0f);
  }
  const cv::Mat doubles(9, 9, CV_64FC1, cv::Scalar(1.0));
  cv::Mat dst(2, 2, CV_8UC1, cv::Scalar(42));
  const uchar* before = dst.data;
  EXPECT_THROW(CFilterCosmicRay(2, 100).Process(doubles, dst, cv::Mat()), cv::Exception);
  EXPECT_THROW(CFilterCosmicRay(1, 100).Process(cv::Mat(), dst, cv::Mat()), cv::Exception);
  EXPECT_EQ(dst.data, before);
}

TEST(FilterCosmicRay, FastPathEqualsStraightforwardOnRandomImages) {
  datagen::Random rng(771);
  const int cases = testimages::ForEachDiscCase(
      rng, 100, 3, 3e6, [&rng](int caseIndex, const cv::Mat& src, int radius) {
        // Thresholds from far below to far above the 16-bit difference range.
        const int thresholds[] = {100,   0,      -1,     1,      1000,   32766, 32767,
                                  40000, -32767, -32768, -32769, -70000, 65535};
        const int threshold = caseIndex % 3 == 0 ? thresholds[rng.Int(0, 12)] : rng.Int(-200, 3000);
        const cv::Mat mask =
            caseIndex % 4 == 1 ? testimages::RandomMask(rng, src.rows, src.cols, 3, 60) : cv::Mat();
        const CFilterCosmicRay filter(radius, threshold);
        const bool same = Equal(Filter(filter, src, mask, false), Filter(filter, src, mask, true));
        EXPECT_TRUE(same) << src.cols << "x" << src.rows << " radius " << radius << " threshold "
                          << threshold;
        return same;
      });
  EXPECT_EQ(cases, 100);
}

// The map of replaced pixels is the outlier rule itself: src more than threshold above the disc
// median (the straightforward per-pixel median of the oracle), inside the mask.
TEST(FilterCosmicRay, ReplacedMapMarksExactlyThePixelsAboveTheirMedianByMoreThanThreshold) {
  datagen::Random rng(9127);
  const int cases = testimages::ForEachDiscCase(
      rng, 40, 3, 1e6, [&rng](int caseIndex, const cv::Mat& src, int radius) {
        const int threshold = rng.Int(-50, 2000);
        const cv::Mat mask = caseIndex % 2 == 1
                                 ? testimages::RandomMask(rng, src.rows, src.cols, 1, 255)
                                 : cv::Mat();
        const cv::Mat median = oracle::DiscMedian(src, radius);
        cv::Mat dst, replaced;
        CFilterCosmicRay(radius, threshold).Process(src, dst, mask, replaced);
        bool same = replaced.type() == CV_8UC1 && replaced.size() == src.size();
        for (int y = 0; same && y < src.rows; ++y) {
          for (int x = 0; same && x < src.cols; ++x) {
            const bool selected = mask.empty() || mask.at<unsigned char>(y, x) != 0;
            const bool outlier =
                selected &&
                static_cast<int>(At(src, y, x)) - static_cast<int>(At(median, y, x)) > threshold;
            same = replaced.at<unsigned char>(y, x) == (outlier ? 255 : 0) &&
                   At(dst, y, x) == (outlier ? At(median, y, x) : At(src, y, x));
          }
        }
        EXPECT_TRUE(same) << src.cols << "x" << src.rows << " radius " << radius << " threshold "
                          << threshold;
        return same;
      });
  EXPECT_EQ(cases, 40);
}

TEST(FilterCosmicRay, ReplacedMapOfTheSquareRadiiFollowsTheSquareMedian) {
  cv::Mat src(6, 6, CV_16UC1, cv::Scalar(100));
  src.at<std::uint16_t>(0, 0) = 5000;
  src.at<std::uint16_t>(3, 3) = 150;
  cv::Mat dst, replaced;
  CFilterCosmicRay(1, 40).Process(src, dst, cv::Mat(), replaced);
  EXPECT_EQ(cv::countNonZero(replaced), 2);
  EXPECT_EQ(replaced.at<unsigned char>(0, 0), 255);
  EXPECT_EQ(replaced.at<unsigned char>(3, 3), 255);
  EXPECT_EQ(At(dst, 0, 0), 100);
}

TEST(FilterCosmicRay, ReplacedMapIsUntouchedWhenTheFilterThrows) {
  cv::Mat replaced(2, 2, CV_8UC1, cv::Scalar(7));
  cv::Mat dst;
  EXPECT_THROW(CFilterCosmicRay(5, 100).Process(cv::Mat(4, 4, CV_8UC1), dst, cv::Mat(), replaced),
               cv::Exception);
  EXPECT_EQ(replaced.rows, 2);
  EXPECT_EQ(replaced.at<unsigned char>(0, 0), 7);
}

// Beyond rows + cols the disc holds the whole image around every pixel: any larger radius gives
// that result, quickly and without buffers sized by the radius (INT_MAX would overflow them).
TEST(FilterCosmicRay, RadiiBeyondTheImageGiveTheWholeImageDisc) {
  datagen::Random rng(1313);
  for (const testimages::Values model : {testimages::Values::kUniform, testimages::Values::kHigh}) {
    const cv::Mat src = testimages::RandomImage(rng, 9, 7, model);
    const cv::Mat expected = oracle::DiscMedian(src, 40);
    for (const int radius : {16, 40, 100000, INT_MAX}) {
      cv::Mat dst;
      CFilterCosmicRay::MedianBlur(src, dst, radius);
      EXPECT_TRUE(Equal(dst, expected)) << radius;
      const CFilterCosmicRay filter(radius, 50);
      cv::Mat cleaned;
      cv::Mat replaced;
      filter.Process(src, cleaned, cv::Mat(), replaced);
      EXPECT_TRUE(Equal(cleaned, Filter(CFilterCosmicRay(40, 50), src, cv::Mat(), true))) << radius;
      EXPECT_EQ(cv::countNonZero(replaced), cv::countNonZero(cleaned != src)) << radius;
    }
  }
}

}  // namespace
