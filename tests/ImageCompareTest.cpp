// Exact image equality and the bordered region comparison of the suite.
#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include "ImageCompare.h"

namespace {

cv::Mat Ramp(int rows, int cols, int type) {
  cv::Mat image(rows, cols, type);
  cv::randu(image, 0, 1000);
  return image;
}

TEST(ImageCompare, IdenticalImagesAreEqual) {
  const cv::Mat a = Ramp(40, 30, CV_16UC1);
  EXPECT_TRUE(ImagesEqual(a, a.clone()));
}

TEST(ImageCompare, OneSampleOffByOneAnywhereMakesThemUnequal) {
  const cv::Mat a = Ramp(40, 30, CV_16UC1);
  for (const cv::Point at : {cv::Point(0, 0), cv::Point(29, 39), cv::Point(13, 17)}) {
    cv::Mat b = a.clone();
    b.at<unsigned short>(at) += 1;
    EXPECT_FALSE(ImagesEqual(a, b)) << at;
  }
}

TEST(ImageCompare, ADifferenceInOneChannelCounts) {
  const cv::Mat a = Ramp(8, 8, CV_8UC3);
  cv::Mat b = a.clone();
  b.at<cv::Vec3b>(4, 4)[2] ^= 1;
  EXPECT_FALSE(ImagesEqual(a, b));
}

TEST(ImageCompare, DifferentSizesThrow) {
  EXPECT_THROW(ImagesEqual(Ramp(8, 8, CV_16UC1), Ramp(8, 9, CV_16UC1)), cv::Exception);
}

TEST(ImageCompare, RegionDifferenceWithinTheBorderPasses) {
  const cv::Mat a = Ramp(50, 40, CV_16UC1);
  cv::Mat b = a.clone();
  b.at<unsigned short>(0, 0) += 500;
  b.at<unsigned short>(9, 20) += 500;
  b.at<unsigned short>(25, 39 - 9) += 500;
  b.at<unsigned short>(49 - 9, 20) += 500;
  EXPECT_EQ(RegionMaxDifference(a, b), 0.0);
}

TEST(ImageCompare, RegionDifferenceJustInsideTheBorderCounts) {
  const cv::Mat a = Ramp(50, 40, CV_16UC1);
  cv::Mat b = a.clone();
  b.at<unsigned short>(10, 10) += 7;
  EXPECT_EQ(RegionMaxDifference(a, b), 7.0);
  cv::Mat c = a.clone();
  c.at<unsigned short>(49 - 10, 39 - 10) = a.at<unsigned short>(49 - 10, 39 - 10) + 3;
  EXPECT_EQ(RegionMaxDifference(a, c), 3.0);
}

TEST(ImageCompare, RegionTypesMustMatch) {
  EXPECT_THROW(RegionMaxDifference(Ramp(30, 30, CV_16UC1), Ramp(30, 30, CV_8UC1)), cv::Exception);
}

}  // namespace
