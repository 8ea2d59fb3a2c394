// Robust statistics: the median and robust noise of float samples and of an image's finite
// samples against the sort-based oracles, on integer-valued samples with ties and even counts.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <vector>

#include "Random.h"
#include "RobustStatistics.h"
#include "RobustStatisticsReference.h"

namespace {

// Random images of 1..40 x 1..40 samples of the given spread, rounded to multiples of step.
class RandomSamples : public ::testing::TestWithParam<double> {};

TEST_P(RandomSamples, AreExactOrderStatistics) {
  const double step = GetParam();
  datagen::Random rng(5);
  for (int trial = 0; trial < 30; ++trial) {
    const int rows = rng.Int(1, 40), cols = rng.Int(1, 40);
    cv::Mat image(rows, cols, CV_32F);
    std::vector<double> values;
    for (int i = 0; i < rows * cols; ++i) {
      // Coarse values, so that ties and even counts occur.
      const float v = static_cast<float>(std::round(50.0 * rng.Normal() / step) * step);
      image.at<float>(i / cols, i % cols) = v;
      values.push_back(v);
    }
    double median = 0.0, noise = 0.0;
    CRobustStatistics::OfImage(image, median, noise);
    EXPECT_EQ(median, oracle::MedianBySort(values)) << rows << "x" << cols;
    EXPECT_EQ(noise, oracle::RobustNoise(values)) << rows << "x" << cols;
  }
}

INSTANTIATE_TEST_SUITE_P(RobustStatistics, RandomSamples, ::testing::Values(0.5, 1.0, 25.0));

TEST(RobustStatistics, OnlyFiniteSamplesOfAnImageCount) {
  cv::Mat image(1, 6, CV_32F);
  const float inf = std::numeric_limits<float>::infinity();
  const float values[6] = {4.0f, std::numeric_limits<float>::quiet_NaN(), 1.0f, inf, -inf, 2.0f};
  for (int i = 0; i < 6; ++i) image.at<float>(0, i) = values[i];
  double median = 0.0, noise = 0.0;
  CRobustStatistics::OfImage(image, median, noise);
  EXPECT_EQ(median, 2.0);
  EXPECT_EQ(noise, 1.4826 * 1.0);
  CRobustStatistics::OfImage(cv::Mat(2, 2, CV_32F, cv::Scalar(inf)), median, noise);
  EXPECT_TRUE(std::isnan(median));
}

TEST(RobustStatistics, EvenCountMedianIsTheMeanOfTheTwoMiddleValues) {
  std::vector<float> values = {7.0f, 1.0f, 3.0f, 100.0f};
  EXPECT_EQ(CRobustStatistics::MedianInPlace(values), 5.0);
  std::vector<float> none;
  EXPECT_TRUE(std::isnan(CRobustStatistics::MedianInPlace(none)));
}

}  // namespace

namespace {

TEST(RobustStatistics, ImagesThatAreNotFloatAreRefusedBeforeBeingRead) {
  const int sizes[] = {2, 2, 2};
  for (const cv::Mat& image :
       {cv::Mat(4, 4, CV_8UC1, cv::Scalar(1)), cv::Mat(4, 4, CV_16UC1, cv::Scalar(1)),
        cv::Mat(3, sizes, CV_32FC1, cv::Scalar(1))}) {
    double median = 5.0, noise = 6.0;
    try {
      CRobustStatistics::OfImage(image, median, noise);
      ADD_FAILURE() << "an image of type " << image.type() << " went through";
    } catch (const cv::Exception& e) {
      EXPECT_EQ(e.code, cv::Error::StsUnsupportedFormat);
      EXPECT_EQ(e.err, "the image must be 2-D, 32-bit float, one channel");
      EXPECT_EQ(e.func, "CRobustStatistics::OfImage");
    }
    EXPECT_EQ(median, 5.0);
    EXPECT_EQ(noise, 6.0);
  }
}

}  // namespace
