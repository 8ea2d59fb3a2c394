// The dark-chamber inspection: pure noise and isolated hot pixels are clean, a 16-pixel
// 8-connected region counts and 15 pixels do not, the threshold of six robust sigmas, the defect
// map of the regions counted, and images that cannot be measured.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <opencv2/core.hpp>

#include "DarkChamberInspection.h"
#include "ProcessingHelpers.h"
#include "Random.h"

namespace {

using testprocessing::NoiseImage;

TEST(DarkChamberInspection, PureNoiseAndIsolatedHotPixelsHaveNoDefect) {
  cv::Mat image = NoiseImage(256, 256, 0.0, 8.0, 11);
  EXPECT_EQ(CDarkChamberInspection::CountDefects(image), 0);
  datagen::Random rng(12);
  for (int i = 0; i < 200; ++i) image.at<float>(rng.Int(0, 255), rng.Int(0, 255)) = 5000.0f;
  EXPECT_EQ(CDarkChamberInspection::CountDefects(image), 0);
}

TEST(DarkChamberInspection, ALeakRegionOfSixteenConnectedPixelsCounts) {
  const cv::Mat noise = NoiseImage(128, 128, 0.0, 5.0, 21);
  cv::Mat image = noise.clone();
  image(cv::Rect(0, 40, 4, 4)) += cv::Scalar(200.0);  // 16 px at the left edge
  EXPECT_EQ(CDarkChamberInspection::CountDefects(image), 1);
  image = noise.clone();
  image(cv::Rect(0, 40, 3, 5)) += cv::Scalar(200.0);  // 15 px
  EXPECT_EQ(CDarkChamberInspection::CountDefects(image), 0);
  // Two regions, one of them a diagonal chain that is connected only through corners.
  image = noise.clone();
  image(cv::Rect(100, 100, 10, 10)) += cv::Scalar(200.0);
  for (int i = 0; i < 16; ++i) image.at<float>(10 + i, 50 + i) += 200.0f;
  EXPECT_EQ(CDarkChamberInspection::CountDefects(image), 2);
}

TEST(DarkChamberInspection, ThresholdIsSixRobustSigmasAboveTheMedian) {
  // Samples cycle 0, 1, 2: median 1, MAD 1, threshold 1 + 6 x 1.4826 = 9.8956 (a 25-pixel
  // region moves neither).
  cv::Mat image(64, 64, CV_32F);
  for (int i = 0; i < 64 * 64; ++i) image.at<float>(i / 64, i % 64) = static_cast<float>(i % 3);
  cv::Mat below = image.clone(), above = image.clone();
  below(cv::Rect(10, 10, 5, 5)).setTo(9.89f);
  above(cv::Rect(10, 10, 5, 5)).setTo(9.90f);
  EXPECT_EQ(CDarkChamberInspection::CountDefects(below), 0);
  EXPECT_EQ(CDarkChamberInspection::CountDefects(above), 1);
  double threshold = 0.0;
  CDarkChamberInspection::ExcessMask(image, threshold);
  EXPECT_DOUBLE_EQ(threshold, 1.0 + 6.0 * 1.4826);
}

TEST(DarkChamberInspection, DefectMapHoldsTheRegionsCounted) {
  const cv::Mat noise = NoiseImage(128, 128, 0.0, 5.0, 31);
  cv::Mat image = noise.clone();
  image(cv::Rect(100, 100, 10, 10)) += cv::Scalar(200.0);                  // 100 px: counted
  image(cv::Rect(0, 40, 3, 5)) += cv::Scalar(200.0);                       // 15 px: too small
  for (int i = 0; i < 16; ++i) image.at<float>(10 + i, 50 + i) += 200.0f;  // corner-linked chain
  cv::Mat map;
  ASSERT_EQ(CDarkChamberInspection::CountDefects(image, map), 2);
  EXPECT_EQ(CDarkChamberInspection::CountDefects(image), 2);
  ASSERT_EQ(map.size(), image.size());
  ASSERT_EQ(map.type(), CV_8UC1);
  EXPECT_EQ(cv::countNonZero(map(cv::Rect(100, 100, 10, 10)) != 255), 0);
  EXPECT_EQ(cv::countNonZero(map(cv::Rect(0, 40, 3, 5))), 0);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(map.at<uchar>(10 + i, 50 + i), 255) << i;
  EXPECT_EQ(cv::countNonZero(map), 116);
  EXPECT_EQ(cv::countNonZero((map != 0) & (map != 255)), 0);
  // Unusable images release the map.
  EXPECT_EQ(CDarkChamberInspection::CountDefects(cv::Mat(), map), -1);
  EXPECT_TRUE(map.empty());
  CDarkChamberInspection::CountDefects(image, map);
  EXPECT_EQ(CDarkChamberInspection::CountDefects(cv::Mat(4, 4, CV_32FC3), map), -1);
  EXPECT_TRUE(map.empty());
}

TEST(DarkChamberInspection, UnusableImagesAreNotAvailable) {
  EXPECT_EQ(CDarkChamberInspection::CountDefects(cv::Mat()), -1);
  EXPECT_EQ(CDarkChamberInspection::CountDefects(cv::Mat(8, 8, CV_32FC3, cv::Scalar::all(0))), -1);
  // Without a finite sample there is no median to measure against.
  EXPECT_EQ(CDarkChamberInspection::CountDefects(
                cv::Mat(8, 8, CV_32F, cv::Scalar(std::numeric_limits<float>::quiet_NaN()))),
            -1);
  // Any depth is measured (here 16-bit with a 5 x 5 glow).
  cv::Mat sixteen(64, 64, CV_16U);
  for (int i = 0; i < 64 * 64; ++i) {
    sixteen.at<std::uint16_t>(i / 64, i % 64) = static_cast<std::uint16_t>(100 + i % 3);
  }
  sixteen(cv::Rect(20, 20, 5, 5)).setTo(200);
  EXPECT_EQ(CDarkChamberInspection::CountDefects(sixteen), 1);
}

}  // namespace

namespace {

TEST(DarkChamberInspection, ExcessMaskRefusesImagesThatAreNotFloat) {
  for (const int type : {CV_8UC1, CV_16UC1, CV_64FC1, CV_32FC2}) {
    const cv::Mat image(8, 8, type, cv::Scalar::all(3));
    double threshold = 42.0;
    try {
      CDarkChamberInspection::ExcessMask(image, threshold);
      ADD_FAILURE() << "type " << type << " went through";
    } catch (const cv::Exception& e) {
      EXPECT_EQ(e.code, cv::Error::StsUnsupportedFormat);
      EXPECT_EQ(e.err, "the image must be 2-D, 32-bit float, one channel");
      EXPECT_EQ(e.func, "CDarkChamberInspection::ExcessMask");
    }
    EXPECT_EQ(threshold, 42.0);
  }
  // The count itself converts any depth first.
  EXPECT_EQ(CDarkChamberInspection::CountDefects(cv::Mat(8, 8, CV_8UC1, cv::Scalar(3))), 0);
}

}  // namespace
