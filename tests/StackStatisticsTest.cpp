// Stack statistics: the stack scenarios' filled stacks, rounding of 8-bit means, the element-by-
// element oracles on random stacks of every depth, and the errors of bad lists.
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "CvErrors.h"
#include "OmbrixProcessing.h"
#include "PluginScenarios.h"
#include "Random.h"
#include "StackStatistics.h"
#include "StackStatisticsReference.h"

namespace {

using scenarios::StackScenario;
using testerrors::ExpectCvError;

TEST(StackStatistics, MinimumAndAverageOfFilledStacks) {
  COmbrixProcessing plugin;
  cv::Mat result = scenarios::RunStackSequence(plugin, StackScenario::kMinimum);
  EXPECT_EQ(result.type(), CV_8UC1);
  EXPECT_EQ(result.at<uchar>(0, 0), 0);
  result = scenarios::RunStackSequence(plugin, StackScenario::kAverage8U);
  EXPECT_EQ(result.type(), CV_8UC1);
  EXPECT_EQ(result.at<uchar>(2, 2), 45);
  result = scenarios::RunStackSequence(plugin, StackScenario::kAverage32F);
  EXPECT_EQ(result.type(), CV_32FC1);
  EXPECT_EQ(result.at<float>(1, 1), 4.5f);
}

TEST(StackStatistics, EightBitMeansRoundToNearestTiesToEven) {
  COmbrixProcessing plugin;
  cv::Mat result;
  // (0 + 1) / 2 and (1 + 2) / 2.
  plugin.StackAverage(result,
                      {cv::Mat(1, 2, CV_8U, cv::Scalar(0)), cv::Mat(1, 2, CV_8U, cv::Scalar(1))});
  EXPECT_EQ(result.at<uchar>(0, 0), 0);
  plugin.StackAverage(result,
                      {cv::Mat(1, 2, CV_8U, cv::Scalar(1)), cv::Mat(1, 2, CV_8U, cv::Scalar(2))});
  EXPECT_EQ(result.at<uchar>(0, 0), 2);
}

class RandomStacks : public ::testing::TestWithParam<int> {};

TEST_P(RandomStacks, MatchTheElementReferences) {
  const int type = GetParam();
  datagen::Random rng(77 + static_cast<std::uint64_t>(type));
  for (int trial = 0; trial < 5; ++trial) {
    const int rows = rng.Int(1, 20), cols = rng.Int(1, 20), count = rng.Int(1, 7);
    std::vector<cv::Mat> images;
    for (int i = 0; i < count; ++i) {
      cv::Mat image(rows, cols, type);
      cv::Mat wide(rows, cols, CV_64FC(CV_MAT_CN(type)));
      for (int k = 0; k < rows * cols * image.channels(); ++k) {
        wide.ptr<double>(k / (cols * image.channels()))[k % (cols * image.channels())] =
            CV_MAT_DEPTH(type) >= CV_32F ? rng.Uniform(-100.0, 100.0) : rng.Int(0, 255);
      }
      wide.convertTo(image, CV_MAT_DEPTH(type));
      images.push_back(image);
    }
    cv::Mat minimum, average;
    CStackStatistics::Minimum(images, minimum);
    CStackStatistics::Average(images, average);
    EXPECT_EQ(minimum.type(), type);
    EXPECT_EQ(average.type(), type);
    EXPECT_EQ(cv::norm(minimum, oracle::StackMinimum(images), cv::NORM_INF), 0.0) << trial;
    EXPECT_EQ(cv::norm(average, oracle::StackAverage(images), cv::NORM_INF), 0.0) << trial;
  }
}

INSTANTIATE_TEST_SUITE_P(StackStatistics, RandomStacks,
                         ::testing::Values(CV_8UC1, CV_16UC1, CV_16SC1, CV_32FC1, CV_8UC3,
                                           CV_64FC1));

class BadStackLists : public ::testing::TestWithParam<bool> {};

TEST_P(BadStackLists, RaiseClearErrors) {
  const bool average = GetParam();
  COmbrixProcessing plugin;
  cv::Mat result;
  const cv::Mat a(3, 3, CV_8U, cv::Scalar(1));
  const std::string function = average ? "CStackStatistics::Average" : "CStackStatistics::Minimum";
  auto run = [&](const std::vector<cv::Mat>& images) {
    return [&, images] {
      if (average) {
        plugin.StackAverage(result, images);
      } else {
        plugin.StackMinimum(result, images);
      }
    };
  };
  ExpectCvError(run({}), cv::Error::StsBadArg, "empty image list", function);
  ExpectCvError(run({a, cv::Mat()}), cv::Error::StsBadArg, "empty image in the list", function);
  ExpectCvError(run({a, cv::Mat(3, 4, CV_8U)}), cv::Error::StsUnmatchedSizes,
                "images differ in size", function);
  ExpectCvError(run({a, cv::Mat(3, 3, CV_16U)}), cv::Error::StsUnmatchedFormats,
                "images differ in type", function);
  ExpectCvError(run({a, cv::Mat(3, 3, CV_8UC2)}), cv::Error::StsUnmatchedFormats,
                "images differ in type", function);
}

INSTANTIATE_TEST_SUITE_P(StackStatistics, BadStackLists, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& info) {
                           return info.param ? std::string("Average") : std::string("Minimum");
                         });

}  // namespace
