// The finite samples of a float image: which pixels count, in which order, and what the wrong kind
// of image raises.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <vector>

#include "filters/FiniteSamples.h"

namespace {

const float kInf = std::numeric_limits<float>::infinity();
const float kNan = std::numeric_limits<float>::quiet_NaN();

}  // namespace

TEST(FiniteSamples, NonFinitePixelsAreLeftOutAndTheRestKeepTheirRowOrder) {
  const cv::Mat image = (cv::Mat_<float>(3, 3) << 5, kNan, -1, kInf, 0.5f, -kInf, 7, 2, kNan);
  EXPECT_EQ(CFiniteSamples::Of(image), (std::vector<float>{5, -1, 0.5f, 7, 2}));
}

TEST(FiniteSamples, RegionOfALargerImageGivesOnlyItsOwnPixels) {
  cv::Mat image(4, 5, CV_32F);
  for (int i = 0; i < 20; ++i) image.at<float>(i / 5, i % 5) = static_cast<float>(i);
  image.at<float>(2, 2) = kNan;
  // Rows 1-2, columns 1-3: not continuous in memory.
  EXPECT_EQ(CFiniteSamples::Of(image(cv::Rect(1, 1, 3, 2))), (std::vector<float>{6, 7, 8, 11, 13}));
}

TEST(FiniteSamples, ImageWithoutFiniteSamplesGivesNone) {
  EXPECT_TRUE(CFiniteSamples::Of(cv::Mat(2, 3, CV_32F, cv::Scalar(kNan))).empty());
  EXPECT_TRUE(CFiniteSamples::Of(cv::Mat(0, 0, CV_32F)).empty());
}

TEST(FiniteSamples, OtherImagesAreRefused) {
  EXPECT_THROW(CFiniteSamples::Of(cv::Mat(2, 2, CV_64F, cv::Scalar(1))), cv::Exception);
  EXPECT_THROW(CFiniteSamples::Of(cv::Mat(2, 2, CV_32FC2, cv::Scalar(1, 2))), cv::Exception);
  const int sizes[] = {2, 2, 2};
  EXPECT_THROW(CFiniteSamples::Of(cv::Mat(3, sizes, CV_32F, cv::Scalar(1))), cv::Exception);
}
